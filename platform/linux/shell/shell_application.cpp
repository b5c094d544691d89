// Shell.Application (IShellDispatch) with its Folder, FolderItems and FolderItem objects, where a folder is
// a folder of a volume or a zip archive (a file whose name ends in .zip).
//
// What the library relies on:
//  - NameSpace gives a folder for an existing folder or .zip file, and S_FALSE with no folder otherwise.
//  - CopyHere into a zip folder returns once the copy has started: it opens the archive without sharing,
//    shows a top-level progress bar window titled "圧縮しています..." and hands both to a thread that
//    compresses, changes the archive in place through that handle, then destroys the window and closes
//    the handle. A source that does not exist fails at once with ERROR_FILE_NOT_FOUND as an HRESULT.
//  - CopyHere of an archive's items into a folder extracts them before it returns; a damaged archive or
//    one with names that would land outside the folder fails without writing anything.
//  - Questions (an entry or file of the same name) go to the host's dialog responder unless the options
//    hold FOF_NOCONFIRMATION.
#include <algorithm>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>

#include "com.h"
#include "zip_archive.h"
#include "../core/internal.h"
#include "../volumes/file_object.h"

namespace vlx {

namespace {

const CLSID kShellApplicationClass = {0x13709620, 0xC279, 0x11CE, {0xA4, 0x9E, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}};
const IID kShellDispatchInterface = {0xD8F015C0, 0xC278, 0x11CE, {0xA4, 0x9E, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}};
const IID kFolderInterface = {0xBBCBDE60, 0xC3FF, 0x11CE, {0x83, 0x50, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}};
const IID kFolderItemsInterface = {0x744129E0, 0xCBE5, 0x11CE, {0x83, 0x50, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}};
const IID kFolderItemInterface = {0xFAC32C80, 0xCBE4, 0x11CE, {0x83, 0x50, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}};

constexpr char16_t kProgressTitle[] = u"圧縮しています...";

// Background compressions still running, and the result of the last one to end. Never destroyed: a
// compression may still be finishing while a host that has its archive back leaves.
struct BackgroundCopies {
    std::mutex lock;
    std::condition_variable done;
    int running = 0;
    DWORD lastResult = ERROR_SUCCESS;
};
BackgroundCopies& Copies() {
    static auto* copies = new BackgroundCopies();
    return *copies;
}

HRESULT FromWin32(DWORD error) { return error == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(error); }

bool EndsInZip(const WString& path) {
    return path.size() >= 4 && NamesEqualNoCase(path.substr(path.size() - 4), u".zip");
}

WString JoinPath(const WString& folder, const WString& name) {
    return !folder.empty() && folder.back() == u'\\' ? folder + name : folder + u"\\" + name;
}

// One entry of a folder: of a volume (path is its Win32 path) or at the top of an archive.
struct ShellItem {
    WString name;
    bool folder = false;
    bool inArchive = false;
    WString path;              // Win32 path of the entry, or of the archive for an archive's entry
    std::string archiveHost;   // host path of the archive, for an archive's entry
};

struct FolderPlace {
    WString win32Path;
    std::string hostPath;
    bool isArchive = false;
};

// The answer to "replace name?" for a copy with these options.
ReplaceQuestion AskReplace(DWORD options, const WString& destination) {
    return [options, destination](const WString& name) {
        if (options & FOF_NOCONFIRMATION) return IDYES;
        DialogRequest request;
        request.kind = DialogKind::ShellReplaceFile;
        request.source = name;
        request.target = JoinPath(destination, name);
        request.itemCount = 1;
        const int answer = AskDialog(request);
        return answer == kDialogCannotBeShown ? IDCANCEL : answer;
    };
}

class ShellItemObject final : public FolderItem, public ComLifetime {
public:
    explicit ShellItemObject(ShellItem item) : item_(std::move(item)) {}
    const ShellItem& item() const { return item_; }

    STDMETHOD(QueryInterface)(REFIID riid, void** object) override {
        return AnswerQuery(this, static_cast<FolderItem*>(this), riid, object, kFolderItemInterface);
    }
    VLX_COM_LIFETIME
    VLX_NO_AUTOMATION
    STDMETHOD(get_Application)(IDispatch**) override { return E_NOTIMPL; }
    STDMETHOD(get_Parent)(IDispatch**) override { return E_NOTIMPL; }
    STDMETHOD(get_Name)(BSTR* name) override { return GiveText(item_.name, name); }
    STDMETHOD(put_Name)(BSTR) override { return E_NOTIMPL; }
    STDMETHOD(get_Path)(BSTR* path) override { return GiveText(item_.inArchive ? JoinPath(item_.path, item_.name) : item_.path, path); }
    STDMETHOD(get_GetLink)(IDispatch**) override { return E_NOTIMPL; }
    STDMETHOD(get_GetFolder)(IDispatch**) override { return E_NOTIMPL; }
    STDMETHOD(get_IsLink)(VARIANT_BOOL* value) override { return GiveFlag(false, value); }
    STDMETHOD(get_IsFolder)(VARIANT_BOOL* value) override { return GiveFlag(item_.folder, value); }
    STDMETHOD(get_IsFileSystem)(VARIANT_BOOL* value) override { return GiveFlag(!item_.inArchive, value); }
    STDMETHOD(get_IsBrowsable)(VARIANT_BOOL* value) override { return GiveFlag(false, value); }
    STDMETHOD(get_ModifyDate)(DATE*) override { return E_NOTIMPL; }
    STDMETHOD(put_ModifyDate)(DATE) override { return E_NOTIMPL; }
    STDMETHOD(get_Size)(LONG*) override { return E_NOTIMPL; }
    STDMETHOD(get_Type)(BSTR*) override { return E_NOTIMPL; }
    STDMETHOD(Verbs)(FolderItemVerbs**) override { return E_NOTIMPL; }
    STDMETHOD(InvokeVerb)(VARIANT) override { return E_NOTIMPL; }

private:
    static HRESULT GiveText(const WString& text, BSTR* out) {
        if (out == nullptr) return E_POINTER;
        *out = NewBstr(text);
        return *out != nullptr ? S_OK : E_OUTOFMEMORY;
    }
    static HRESULT GiveFlag(bool value, VARIANT_BOOL* out) {
        if (out == nullptr) return E_POINTER;
        *out = value ? VARIANT_TRUE : VARIANT_FALSE;
        return S_OK;
    }
    ShellItem item_;
};

class ShellItemsObject final : public FolderItems, public ComLifetime {
public:
    explicit ShellItemsObject(std::vector<ShellItem> items) : items_(std::move(items)) {}
    const std::vector<ShellItem>& items() const { return items_; }

    STDMETHOD(QueryInterface)(REFIID riid, void** object) override {
        return AnswerQuery(this, static_cast<FolderItems*>(this), riid, object, kFolderItemsInterface);
    }
    VLX_COM_LIFETIME
    VLX_NO_AUTOMATION
    STDMETHOD(get_Count)(LONG* count) override {
        if (count == nullptr) return E_POINTER;
        *count = static_cast<LONG>(items_.size());
        return S_OK;
    }
    STDMETHOD(get_Application)(IDispatch**) override { return E_NOTIMPL; }
    STDMETHOD(get_Parent)(IDispatch**) override { return E_NOTIMPL; }
    STDMETHOD(Item)(VARIANT index, FolderItem** item) override {
        if (item == nullptr) return E_POINTER;
        *item = nullptr;
        size_t at = items_.size();
        if (index.vt == VT_I4 || index.vt == VT_INT) at = index.lVal < 0 ? items_.size() : static_cast<size_t>(index.lVal);
        else if (index.vt == VT_I2) at = index.iVal < 0 ? items_.size() : static_cast<size_t>(index.iVal);
        else if (index.vt == VT_BSTR) {
            const WString name = BstrText(index.bstrVal);
            at = static_cast<size_t>(std::find_if(items_.begin(), items_.end(), [&](const ShellItem& i) { return NamesEqualNoCase(i.name, name); }) -
                                     items_.begin());
        }
        if (at >= items_.size()) return S_FALSE;
        *item = new ShellItemObject(items_[at]);
        return S_OK;
    }
    STDMETHOD(_NewEnum)(IUnknown**) override { return E_NOTIMPL; }

private:
    std::vector<ShellItem> items_;
};

HRESULT StartCompression(const FolderPlace& archive, std::vector<ZipSource> sources, DWORD options) {
    HANDLE handle = CreateFileW(archive.win32Path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return FromWin32(LastError());
    const auto file = LookupHandleAs<FileObject>(handle);
    if (!file) {
        CloseHandle(handle);
        return E_UNEXPECTED;
    }
    {
        std::lock_guard guard(Copies().lock);
        ++Copies().running;
    }
    std::promise<void> shown;
    std::future<void> started = shown.get_future();
    std::thread([handle, file, archive, sources = std::move(sources), options, shown = std::move(shown)]() mutable {
        HWND window = CreateWindowExW(0, PROGRESS_CLASSW, kProgressTitle, WS_POPUP | WS_CAPTION | WS_VISIBLE, 0, 0, 400, 80,
                                      nullptr, nullptr, nullptr, nullptr);
        shown.set_value();
        const DWORD result = CompressIntoZip(file->fd, archive.hostPath, sources, AskReplace(options, archive.win32Path),
                                             [window](int percent) { SendMessageW(window, PBM_SETPOS, static_cast<WPARAM>(percent), 0); });
        if (window != nullptr) DestroyWindow(window);
        CloseHandle(handle);
        std::lock_guard guard(Copies().lock);
        Copies().lastResult = result;
        --Copies().running;
        Copies().done.notify_all();
    }).detach();
    started.wait();
    return S_OK;
}

class ShellFolderObject final : public Folder, public ComLifetime {
public:
    explicit ShellFolderObject(FolderPlace place) : place_(std::move(place)) {}

    STDMETHOD(QueryInterface)(REFIID riid, void** object) override {
        return AnswerQuery(this, static_cast<Folder*>(this), riid, object, kFolderInterface);
    }
    VLX_COM_LIFETIME
    VLX_NO_AUTOMATION
    STDMETHOD(get_Title)(BSTR* title) override {
        if (title == nullptr) return E_POINTER;
        const size_t slash = place_.win32Path.find_last_of(u'\\');
        *title = NewBstr(slash == WString::npos ? place_.win32Path : place_.win32Path.substr(slash + 1));
        return *title != nullptr ? S_OK : E_OUTOFMEMORY;
    }
    STDMETHOD(get_Application)(IDispatch**) override { return E_NOTIMPL; }
    STDMETHOD(get_Parent)(IDispatch**) override { return E_NOTIMPL; }
    STDMETHOD(get_ParentFolder)(Folder**) override { return E_NOTIMPL; }
    STDMETHOD(Items)(FolderItems** result) override {
        if (result == nullptr) return E_POINTER;
        *result = nullptr;
        std::vector<ShellItem> items;
        if (place_.isArchive) {
            std::vector<ZipTopItem> top;
            if (!ListZipTop(place_.hostPath, top)) return FromWin32(ERROR_FILE_CORRUPT);
            for (const ZipTopItem& entry : top) items.push_back({entry.name, entry.folder, true, place_.win32Path, place_.hostPath});
        } else if (std::vector<std::string> names; HostFolderNames(place_.hostPath, names)) {
            for (const std::string& name : names) {
                const WString path = JoinPath(place_.win32Path, WStrFromUtf8(name));
                const DWORD attributes = GetFileAttributesW(path.c_str());
                items.push_back({WStrFromUtf8(name), attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY), false, path, {}});
            }
        } else {
            return FromWin32(Win32ErrorFromErrno(errno));
        }
        *result = new ShellItemsObject(std::move(items));
        return S_OK;
    }
    STDMETHOD(ParseName)(BSTR, FolderItem**) override { return E_NOTIMPL; }
    STDMETHOD(NewFolder)(BSTR, VARIANT) override { return E_NOTIMPL; }
    STDMETHOD(MoveHere)(VARIANT, VARIANT) override { return E_NOTIMPL; }
    STDMETHOD(CopyHere)(VARIANT item, VARIANT options) override {
        DWORD flags = 0;
        if (options.vt == VT_I4 || options.vt == VT_INT) flags = static_cast<DWORD>(options.lVal);
        else if (options.vt == VT_I2) flags = static_cast<DWORD>(static_cast<USHORT>(options.iVal));
        std::vector<ShellItem> sources;
        if (const HRESULT taken = TakeSources(item, sources); FAILED(taken)) return taken;
        if (sources.empty()) return S_OK;
        const bool fromArchive = sources.front().inArchive;
        for (const ShellItem& source : sources) {
            if (source.inArchive != fromArchive || source.archiveHost != sources.front().archiveHost) return E_INVALIDARG;
        }
        if (place_.isArchive) {
            if (fromArchive) return E_NOTIMPL;
            std::vector<ZipSource> zipSources;
            for (const ShellItem& source : sources) {
                ResolvedPath resolved;
                if (!Resolve(source.path.c_str(), resolved)) return FromWin32(LastError());
                if (!resolved.exists || resolved.isRoot()) return FromWin32(ERROR_FILE_NOT_FOUND);
                zipSources.push_back({resolved.hostPath, resolved.components.back()});
            }
            return StartCompression(place_, std::move(zipSources), flags);
        }
        if (fromArchive) {
            std::vector<WString> names;
            for (const ShellItem& source : sources) names.push_back(source.name);
            return FromWin32(ExtractFromZipArchive(sources.front().archiveHost, names, place_.hostPath, AskReplace(flags, place_.win32Path)));
        }
        // Files of volumes into a folder: the shell's own file copy.
        WString from;
        for (const ShellItem& source : sources) from += source.path + WString(1, u'\0');
        const WString to = place_.win32Path + WString(1, u'\0');
        SHFILEOPSTRUCTW operation{};
        operation.wFunc = FO_COPY;
        operation.pFrom = from.c_str();
        operation.pTo = to.c_str();
        operation.fFlags = static_cast<FILEOP_FLAGS>(flags);
        operation.lpszProgressTitle = u"";
        const int result = SHFileOperationW(&operation);
        return FromWin32(static_cast<DWORD>(result));
    }
    STDMETHOD(GetDetailsOf)(VARIANT, int, BSTR*) override { return E_NOTIMPL; }

private:
    // The items a CopyHere names: a path, or our own FolderItems or FolderItem.
    static HRESULT TakeSources(const VARIANT& item, std::vector<ShellItem>& sources) {
        if (item.vt == VT_BSTR) {
            const WString path = BstrText(item.bstrVal);
            if (GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES) return FromWin32(ERROR_FILE_NOT_FOUND);
            sources.push_back({path, false, false, path, {}});
            return S_OK;
        }
        if (item.vt != VT_DISPATCH || item.pdispVal == nullptr) return E_INVALIDARG;
        if (auto* items = dynamic_cast<ShellItemsObject*>(item.pdispVal)) {
            sources = items->items();
            return S_OK;
        }
        if (auto* one = dynamic_cast<ShellItemObject*>(item.pdispVal)) {
            sources.push_back(one->item());
            return S_OK;
        }
        return E_INVALIDARG;
    }

    FolderPlace place_;
};

class ShellApplication final : public IShellDispatch, public ComLifetime {
public:
    static HRESULT Create(REFIID riid, void** object) {
        auto* shell = new ShellApplication();
        const HRESULT answer = shell->QueryInterface(riid, object);
        shell->Release();
        return answer;
    }

    STDMETHOD(QueryInterface)(REFIID riid, void** object) override {
        return AnswerQuery(this, static_cast<IShellDispatch*>(this), riid, object, kShellDispatchInterface);
    }
    VLX_COM_LIFETIME
    VLX_NO_AUTOMATION
    STDMETHOD(get_Application)(IDispatch**) override { return E_NOTIMPL; }
    STDMETHOD(get_Parent)(IDispatch**) override { return E_NOTIMPL; }
    STDMETHOD(NameSpace)(VARIANT folder, Folder** result) override {
        if (result == nullptr) return E_POINTER;
        *result = nullptr;
        if (folder.vt != VT_BSTR) return S_FALSE;
        ResolvedPath resolved;
        if (!Resolve(folder.bstrVal, resolved) || !resolved.exists) return S_FALSE;
        const WString path = resolved.win32Path();
        const DWORD attributes = GetFileAttributesW(path.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES) return S_FALSE;
        const bool isFolder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        if (!isFolder && !EndsInZip(path)) return S_FALSE;
        *result = new ShellFolderObject({path, resolved.hostPath, !isFolder});
        return S_OK;
    }
    STDMETHOD(BrowseForFolder)(LONG, BSTR, LONG, VARIANT, Folder**) override { return E_NOTIMPL; }
    STDMETHOD(Windows)(IDispatch**) override { return E_NOTIMPL; }
    STDMETHOD(Open)(VARIANT) override { return E_NOTIMPL; }
    STDMETHOD(Explore)(VARIANT) override { return E_NOTIMPL; }
    STDMETHOD(MinimizeAll)() override { return E_NOTIMPL; }
    STDMETHOD(UndoMinimizeALL)() override { return E_NOTIMPL; }
    STDMETHOD(FileRun)() override { return E_NOTIMPL; }
    STDMETHOD(CascadeWindows)() override { return E_NOTIMPL; }
    STDMETHOD(TileVertically)() override { return E_NOTIMPL; }
    STDMETHOD(TileHorizontally)() override { return E_NOTIMPL; }
    STDMETHOD(ShutdownWindows)() override { return E_NOTIMPL; }
    STDMETHOD(Suspend)() override { return E_NOTIMPL; }
    STDMETHOD(EjectPC)() override { return E_NOTIMPL; }
    STDMETHOD(SetTime)() override { return E_NOTIMPL; }
    STDMETHOD(TrayProperties)() override { return E_NOTIMPL; }
    STDMETHOD(Help)() override { return E_NOTIMPL; }
    STDMETHOD(FindFiles)() override { return E_NOTIMPL; }
    STDMETHOD(FindComputer)() override { return E_NOTIMPL; }
    STDMETHOD(RefreshMenu)() override { return E_NOTIMPL; }
    STDMETHOD(ControlPanelItem)(BSTR) override { return E_NOTIMPL; }
};

const bool g_registered = RegisterComClass(kShellApplicationClass, &ShellApplication::Create);

}  // namespace

DWORD WaitForShellCopies() {
    std::unique_lock guard(Copies().lock);
    Copies().done.wait(guard, [] { return Copies().running == 0; });
    return Copies().lastResult;
}

}  // namespace vlx
