// The shell-link object (CLSID_ShellLink: IShellLinkW and IPersistFile) reading .lnk files.
//
// What the library relies on:
//  - Load reads the whole link at once and fails (HRESULT of ERROR_FILE_NOT_FOUND, or of ERROR_FILE_CORRUPT
//    for a file that is not a whole shell link: short, a wrong header, offsets or string sizes that run
//    past their block or the file) without keeping anything of a broken file.
//  - GetPath gives the target as stored: the environment-variable block's text when the link says it has
//    one (unexpanded, so the caller expands it), else the LinkInfo local path (its Unicode form when
//    present, else the ANSI form in the system code page, 932 here as on a Japanese Windows), cut to the
//    buffer. The find data is the header's attributes, times and size with the target's name.
//  - GetArguments gives the arguments as stored, cut to the buffer; an empty text when there are none.
#include <iconv.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "com.h"
#include "../core/internal.h"

namespace vlx {

namespace {

const CLSID kShellLinkClass = {0x00021401, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
const IID kShellLinkInterface = {0x000214F9, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
const IID kPersistInterface = {0x0000010C, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
const IID kPersistFileInterface = {0x0000010B, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

// Links are small; anything larger than this is not one.
constexpr DWORD kLargestLink = 1 << 20;
constexpr DWORD kHeaderSize = 0x4C;

// Link flags.
constexpr DWORD kHasTargetIdList = 0x1;
constexpr DWORD kHasLinkInfo = 0x2;
constexpr DWORD kHasName = 0x4;
constexpr DWORD kHasRelativePath = 0x8;
constexpr DWORD kHasWorkingDir = 0x10;
constexpr DWORD kHasArguments = 0x20;
constexpr DWORD kHasIconLocation = 0x40;
constexpr DWORD kIsUnicode = 0x80;
constexpr DWORD kHasExpString = 0x200;
// LinkInfo flags and the header size from which it holds Unicode offsets.
constexpr DWORD kVolumeIdAndLocalBasePath = 0x1;
constexpr DWORD kLinkInfoUnicodeHeader = 0x24;
// Extra data.
constexpr DWORD kEnvironmentBlockSignature = 0xA0000001;
constexpr DWORD kEnvironmentBlockSize = 0x314;

// Bounded little-endian reads over the link's bytes: every read checks its range first.
class LinkBytes {
public:
    explicit LinkBytes(const std::vector<BYTE>& bytes) : bytes_(bytes) {}
    size_t size() const { return bytes_.size(); }
    bool Has(size_t at, size_t length) const { return at <= bytes_.size() && length <= bytes_.size() - at; }
    bool U16(size_t at, WORD& value) const {
        if (!Has(at, 2)) return false;
        value = static_cast<WORD>(bytes_[at] | bytes_[at + 1] << 8);
        return true;
    }
    bool U32(size_t at, DWORD& value) const {
        if (!Has(at, 4)) return false;
        value = static_cast<DWORD>(bytes_[at]) | static_cast<DWORD>(bytes_[at + 1]) << 8 | static_cast<DWORD>(bytes_[at + 2]) << 16 |
                static_cast<DWORD>(bytes_[at + 3]) << 24;
        return true;
    }
    // A NUL-terminated ANSI string inside [at, end).
    bool Ansi(size_t at, size_t end, std::string& text) const {
        if (at >= end || end > bytes_.size()) return false;
        const auto nul = std::find(bytes_.begin() + static_cast<long>(at), bytes_.begin() + static_cast<long>(end), 0);
        if (nul == bytes_.begin() + static_cast<long>(end)) return false;
        text.assign(bytes_.begin() + static_cast<long>(at), nul);
        return true;
    }
    // A NUL-terminated UTF-16 string inside [at, end).
    bool Unicode(size_t at, size_t end, WString& text) const {
        text.clear();
        for (WORD unit = 0; U16(at, unit) && at + 2 <= end; at += 2) {
            if (unit == 0) return true;
            text.push_back(static_cast<WCHAR>(unit));
        }
        return false;
    }
    // count UTF-16 units, or count ANSI bytes, at at.
    bool Counted(size_t at, size_t count, bool unicode, WString& text) const;

private:
    const std::vector<BYTE>& bytes_;
};

// The system's ANSI code page is 932, as on the Japanese Windows this library's users run.
WString FromAnsi(const std::string& text) {
    WString result;
    iconv_t convert = iconv_open("UTF-16LE", "CP932");
    if (convert == reinterpret_cast<iconv_t>(-1)) {
        for (const char c : text) result.push_back(static_cast<WCHAR>(static_cast<unsigned char>(c)));
        return result;
    }
    std::string in = text;
    std::vector<char> out(text.size() * 2 + 2);
    char* inAt = in.data();
    size_t inLeft = in.size();
    char* outAt = out.data();
    size_t outLeft = out.size();
    while (inLeft > 0) {
        if (iconv(convert, &inAt, &inLeft, &outAt, &outLeft) != static_cast<size_t>(-1)) break;
        // A byte the code page does not map shows as '?', as the conversion of Windows does.
        if (outLeft < 2) break;
        *outAt++ = '?';
        *outAt++ = 0;
        outLeft -= 2;
        ++inAt;
        --inLeft;
    }
    iconv_close(convert);
    for (char* at = out.data(); at + 1 < outAt; at += 2)
        result.push_back(static_cast<WCHAR>(static_cast<unsigned char>(at[0]) | static_cast<unsigned char>(at[1]) << 8));
    return result;
}

bool LinkBytes::Counted(size_t at, size_t count, bool unicode, WString& text) const {
    const size_t length = unicode ? count * 2 : count;
    if (!Has(at, length)) return false;
    if (!unicode) {
        text = FromAnsi(std::string(bytes_.begin() + static_cast<long>(at), bytes_.begin() + static_cast<long>(at + length)));
        return true;
    }
    text.clear();
    for (size_t unit = 0; unit < count; ++unit) text.push_back(static_cast<WCHAR>(bytes_[at + 2 * unit] | bytes_[at + 2 * unit + 1] << 8));
    return true;
}

struct LinkData {
    DWORD attributes = 0;
    FILETIME created{}, accessed{}, written{};
    DWORD size = 0;
    WString path, name, relativePath, workingDirectory, arguments, iconLocation;
};

FILETIME FileTimeAt(const LinkBytes& bytes, size_t at) {
    FILETIME time{};
    bytes.U32(at, time.dwLowDateTime);
    bytes.U32(at + 4, time.dwHighDateTime);
    return time;
}

// The LinkInfo's local path: base and common suffix, Unicode where the header holds their offsets, else
// ANSI. A network target has no local path and leaves path empty.
bool ReadLinkInfoPath(const LinkBytes& bytes, size_t start, WString& path) {
    DWORD size = 0, headerSize = 0, flags = 0, baseOffset = 0, suffixOffset = 0;
    if (!bytes.U32(start, size) || !bytes.U32(start + 4, headerSize) || !bytes.U32(start + 8, flags) ||
        !bytes.U32(start + 16, baseOffset) || !bytes.U32(start + 24, suffixOffset))
        return false;
    if (size < 28 || !bytes.Has(start, size) || headerSize > size) return false;
    const size_t end = start + size;
    if ((flags & kVolumeIdAndLocalBasePath) == 0) return true;
    if (headerSize >= kLinkInfoUnicodeHeader) {
        DWORD baseUnicode = 0, suffixUnicode = 0;
        if (!bytes.U32(start + 28, baseUnicode) || !bytes.U32(start + 32, suffixUnicode)) return false;
        if (baseUnicode != 0) {
            WString base, suffix;
            if (!bytes.Unicode(start + baseUnicode, end, base)) return false;
            if (suffixUnicode != 0 && !bytes.Unicode(start + suffixUnicode, end, suffix)) return false;
            path = base + suffix;
            return true;
        }
    }
    std::string base, suffix;
    if (!bytes.Ansi(start + baseOffset, end, base)) return false;
    if (suffixOffset != 0 && !bytes.Ansi(start + suffixOffset, end, suffix)) return false;
    path = FromAnsi(base + suffix);
    return true;
}

bool ParseLink(const std::vector<BYTE>& raw, LinkData& link) {
    const LinkBytes bytes(raw);
    DWORD headerSize = 0, flags = 0;
    if (!bytes.U32(0, headerSize) || headerSize != kHeaderSize || !bytes.Has(0, kHeaderSize)) return false;
    CLSID stored{};
    bytes.U32(4, stored.Data1);
    bytes.U16(8, stored.Data2);
    bytes.U16(10, stored.Data3);
    std::copy(raw.begin() + 12, raw.begin() + 20, stored.Data4);
    if (stored != kShellLinkClass) return false;
    bytes.U32(20, flags);
    bytes.U32(24, link.attributes);
    link.created = FileTimeAt(bytes, 28);
    link.accessed = FileTimeAt(bytes, 36);
    link.written = FileTimeAt(bytes, 44);
    bytes.U32(52, link.size);

    size_t at = kHeaderSize;
    if (flags & kHasTargetIdList) {
        WORD listSize = 0;
        if (!bytes.U16(at, listSize) || !bytes.Has(at + 2, listSize)) return false;
        at += 2 + listSize;
    }
    if (flags & kHasLinkInfo) {
        DWORD infoSize = 0;
        if (!bytes.U32(at, infoSize) || !bytes.Has(at, infoSize) || !ReadLinkInfoPath(bytes, at, link.path)) return false;
        at += infoSize;
    }
    const bool unicode = (flags & kIsUnicode) != 0;
    const std::pair<DWORD, WString*> strings[] = {{kHasName, &link.name},
                                                  {kHasRelativePath, &link.relativePath},
                                                  {kHasWorkingDir, &link.workingDirectory},
                                                  {kHasArguments, &link.arguments},
                                                  {kHasIconLocation, &link.iconLocation}};
    for (const auto& [flag, text] : strings) {
        if ((flags & flag) == 0) continue;
        WORD count = 0;
        if (!bytes.U16(at, count) || !bytes.Counted(at + 2, count, unicode, *text)) return false;
        at += 2 + (unicode ? 2 * static_cast<size_t>(count) : count);
    }
    // Extra data blocks up to the terminal block (size below 4); only the environment block is read.
    for (;;) {
        DWORD blockSize = 0, signature = 0;
        if (!bytes.U32(at, blockSize)) return false;
        if (blockSize < 4) break;
        if (blockSize < 8 || !bytes.Has(at, blockSize) || !bytes.U32(at + 4, signature)) return false;
        if (signature == kEnvironmentBlockSignature && (flags & kHasExpString)) {
            if (blockSize != kEnvironmentBlockSize) return false;
            WString target;
            std::string ansi;
            if (bytes.Unicode(at + 8 + MAX_PATH, at + blockSize, target) && !target.empty()) link.path = target;
            else if (bytes.Ansi(at + 8, at + 8 + MAX_PATH, ansi) && !ansi.empty()) link.path = FromAnsi(ansi);
        }
        at += blockSize;
    }
    return true;
}

void CopyCut(const WString& text, LPWSTR buffer, int capacity) {
    const size_t length = std::min(text.size(), static_cast<size_t>(capacity) - 1);
    text.copy(buffer, length);
    buffer[length] = 0;
}

class ShellLinkObject final : public IShellLinkW, public IPersistFile, public ComLifetime {
public:
    static HRESULT Create(REFIID riid, void** object) {
        auto* link = new ShellLinkObject();
        const HRESULT answer = link->QueryInterface(riid, object);
        link->DropReference();
        return answer;
    }

    STDMETHOD(QueryInterface)(REFIID riid, void** object) override {
        if (object == nullptr) return E_POINTER;
        *object = nullptr;
        if (riid == kUnknownInterface || riid == kShellLinkInterface) *object = static_cast<IShellLinkW*>(this);
        else if (riid == kPersistFileInterface || riid == kPersistInterface) *object = static_cast<IPersistFile*>(this);
        else return E_NOINTERFACE;
        AddReference();
        return S_OK;
    }
    VLX_COM_LIFETIME

    // IShellLinkW
    STDMETHOD(GetPath)(LPWSTR file, int capacity, WIN32_FIND_DATAW* findData, DWORD flags) override {
        if (file == nullptr || capacity <= 0) return E_INVALIDARG;
        CopyCut(link_.path, file, capacity);
        if (findData != nullptr) {
            *findData = WIN32_FIND_DATAW{};
            findData->dwFileAttributes = link_.attributes;
            findData->ftCreationTime = link_.created;
            findData->ftLastAccessTime = link_.accessed;
            findData->ftLastWriteTime = link_.written;
            findData->nFileSizeLow = link_.size;
            const size_t slash = link_.path.find_last_of(u"\\/");
            CopyCut(slash == WString::npos ? link_.path : link_.path.substr(slash + 1), findData->cFileName, MAX_PATH);
        }
        return link_.path.empty() ? S_FALSE : S_OK;
    }
    STDMETHOD(GetIDList)(PIDLIST_ABSOLUTE*) override { return E_NOTIMPL; }
    STDMETHOD(SetIDList)(PCIDLIST_ABSOLUTE) override { return E_NOTIMPL; }
    STDMETHOD(GetDescription)(LPWSTR name, int capacity) override { return Give(link_.name, name, capacity); }
    STDMETHOD(SetDescription)(LPCWSTR name) override { return Take(link_.name, name); }
    STDMETHOD(GetWorkingDirectory)(LPWSTR folder, int capacity) override { return Give(link_.workingDirectory, folder, capacity); }
    STDMETHOD(SetWorkingDirectory)(LPCWSTR folder) override { return Take(link_.workingDirectory, folder); }
    STDMETHOD(GetArguments)(LPWSTR arguments, int capacity) override { return Give(link_.arguments, arguments, capacity); }
    STDMETHOD(SetArguments)(LPCWSTR arguments) override { return Take(link_.arguments, arguments); }
    STDMETHOD(GetHotkey)(WORD*) override { return E_NOTIMPL; }
    STDMETHOD(SetHotkey)(WORD) override { return E_NOTIMPL; }
    STDMETHOD(GetShowCmd)(int*) override { return E_NOTIMPL; }
    STDMETHOD(SetShowCmd)(int) override { return E_NOTIMPL; }
    STDMETHOD(GetIconLocation)(LPWSTR iconPath, int capacity, int* icon) override {
        if (icon != nullptr) *icon = 0;
        return Give(link_.iconLocation, iconPath, capacity);
    }
    STDMETHOD(SetIconLocation)(LPCWSTR iconPath, int) override { return Take(link_.iconLocation, iconPath); }
    STDMETHOD(SetRelativePath)(LPCWSTR path, DWORD) override { return Take(link_.relativePath, path); }
    STDMETHOD(Resolve)(HWND, DWORD) override { return S_OK; }
    STDMETHOD(SetPath)(LPCWSTR file) override { return Take(link_.path, file); }

    // IPersistFile
    STDMETHOD(GetClassID)(CLSID* classId) override {
        if (classId == nullptr) return E_POINTER;
        *classId = kShellLinkClass;
        return S_OK;
    }
    STDMETHOD(IsDirty)() override { return S_FALSE; }
    STDMETHOD(Load)(LPCOLESTR fileName, DWORD mode) override {
        if (fileName == nullptr) return E_INVALIDARG;
        HANDLE file = CreateFileW(fileName, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
        if (file == INVALID_HANDLE_VALUE) return HRESULT_FROM_WIN32(LastError());
        std::vector<BYTE> bytes;
        DWORD size = GetFileSize(file, nullptr);
        bool read = size != INVALID_FILE_SIZE && size <= kLargestLink;
        if (read) {
            bytes.resize(size);
            DWORD got = 0;
            read = size == 0 || (ReadFile(file, bytes.data(), size, &got, nullptr) && got == size);
        }
        CloseHandle(file);
        LinkData parsed;
        if (!read || !ParseLink(bytes, parsed)) return HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT);
        link_ = std::move(parsed);
        return S_OK;
    }
    STDMETHOD(Save)(LPCOLESTR, BOOL) override { return E_NOTIMPL; }
    STDMETHOD(SaveCompleted)(LPCOLESTR) override { return S_OK; }
    STDMETHOD(GetCurFile)(LPOLESTR*) override { return E_NOTIMPL; }

private:
    static HRESULT Give(const WString& text, LPWSTR buffer, int capacity) {
        if (buffer == nullptr || capacity <= 0) return E_INVALIDARG;
        CopyCut(text, buffer, capacity);
        return S_OK;
    }
    static HRESULT Take(WString& field, LPCWSTR text) {
        if (text == nullptr) return E_INVALIDARG;
        field = text;
        return S_OK;
    }

    LinkData link_;
};

const bool g_registered = RegisterComClass(kShellLinkClass, &ShellLinkObject::Create);

}  // namespace

}  // namespace vlx
