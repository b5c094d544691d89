// A scripted COM world for logic tests of the shell exports: Shell.Application with folders and items and
// the shell-link object as plain objects that log every call with the values passed, count their
// references, and answer or fail as the test sets. CoInitialize, CoUninitialize and CoCreateInstance are
// patched to log and to hand out these objects.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "../../platform/api_patch.h"
#include "host_fixture.h"
#include "scripted_files.h"

namespace testing_support {

inline std::string GuidText(const GUID& guid) {
    char text[48];
    std::snprintf(text, sizeof text, "%08X-%04X-%04X", static_cast<unsigned>(guid.Data1), guid.Data2, guid.Data3);
    return text;
}

inline std::string VariantText(const VARIANT& value) {
    switch (value.vt) {
        case VT_BSTR: return "bstr " + U(value.bstrVal);
        case VT_I4: return "i4 " + Hex(static_cast<DWORD>(value.lVal));
        case VT_DISPATCH: return "dispatch";
        default: return "vt " + std::to_string(value.vt);
    }
}

class ScriptedShell;

// Reference counting shared by the scripted objects: the last Release is logged with the object's name.
class ScriptedObject {
public:
    ScriptedObject(ScriptedShell& shell, std::string name) : shell_(shell), name_(std::move(name)) {}
    virtual ~ScriptedObject() = default;
    ULONG Add() { return ++references_; }
    ULONG Drop();
    ScriptedShell& shell_;
    std::string name_;

private:
    ULONG references_ = 1;
};

#define SCRIPTED_REFERENCES                                          \
    STDMETHOD_(ULONG, AddRef)() override { return Add(); }          \
    STDMETHOD_(ULONG, Release)() override { return Drop(); }
#define SCRIPTED_NO_AUTOMATION                                                                                 \
    STDMETHOD(GetTypeInfoCount)(UINT*) override { return E_NOTIMPL; }                                         \
    STDMETHOD(GetTypeInfo)(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }                            \
    STDMETHOD(GetIDsOfNames)(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }           \
    STDMETHOD(Invoke)(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override { return E_NOTIMPL; }
#define SCRIPTED_UNUSED(signature) \
    STDMETHOD(signature) override { return E_NOTIMPL; }

class ScriptedShell {
public:
    std::vector<std::string> log;
    // Failures, S_OK for success. A path in noFolder makes NameSpace answer S_FALSE without a folder.
    HRESULT createResult = S_OK, queryResult = S_OK, nameSpaceResult = S_OK, itemsResult = S_OK, copyResult = S_OK,
            loadResult = S_OK, pathResult = S_OK, argumentsResult = S_OK;
    std::vector<std::string> noFolder;
    std::string linkPath = "C:\\Tools\\app.exe", linkArguments;
    std::function<void()> duringCopy;  // runs inside CopyHere, to look at the state of the call

    static inline const CLSID kShellClass = {0x13709620, 0xC279, 0x11CE, {0xA4, 0x9E, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}};
    static inline const CLSID kLinkClass = {0x00021401, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

    struct ItemList final : FolderItems, ScriptedObject {
        using ScriptedObject::ScriptedObject;
        SCRIPTED_REFERENCES
        SCRIPTED_NO_AUTOMATION
        STDMETHOD(QueryInterface)(REFIID, void**) override { return E_NOINTERFACE; }
        SCRIPTED_UNUSED(get_Count(LONG*))
        SCRIPTED_UNUSED(get_Application(IDispatch**))
        SCRIPTED_UNUSED(get_Parent(IDispatch**))
        SCRIPTED_UNUSED(Item(VARIANT, FolderItem**))
        SCRIPTED_UNUSED(_NewEnum(IUnknown**))
    };

    struct ShellFolder final : Folder, ScriptedObject {
        using ScriptedObject::ScriptedObject;
        SCRIPTED_REFERENCES
        SCRIPTED_NO_AUTOMATION
        STDMETHOD(QueryInterface)(REFIID, void**) override { return E_NOINTERFACE; }
        SCRIPTED_UNUSED(get_Title(BSTR*))
        SCRIPTED_UNUSED(get_Application(IDispatch**))
        SCRIPTED_UNUSED(get_Parent(IDispatch**))
        SCRIPTED_UNUSED(get_ParentFolder(Folder**))
        STDMETHOD(Items)(FolderItems** items) override {
            shell_.log.push_back("Items of " + name_);
            if (FAILED(shell_.itemsResult)) return shell_.itemsResult;
            *items = shell_.lastItems = new ItemList(shell_, "items of " + name_);
            return S_OK;
        }
        SCRIPTED_UNUSED(ParseName(BSTR, FolderItem**))
        SCRIPTED_UNUSED(NewFolder(BSTR, VARIANT))
        SCRIPTED_UNUSED(MoveHere(VARIANT, VARIANT))
        STDMETHOD(CopyHere)(VARIANT item, VARIANT options) override {
            std::string what = VariantText(item);
            if (item.vt == VT_DISPATCH) what += item.pdispVal == static_cast<IDispatch*>(shell_.lastItems) ? " items" : " stray";
            shell_.log.push_back("CopyHere into " + name_ + ": " + what + ", " + VariantText(options));
            if (shell_.duringCopy) shell_.duringCopy();
            return shell_.copyResult;
        }
        SCRIPTED_UNUSED(GetDetailsOf(VARIANT, int, BSTR*))
    };

    struct Dispatch final : IShellDispatch, ScriptedObject {
        using ScriptedObject::ScriptedObject;
        SCRIPTED_REFERENCES
        SCRIPTED_NO_AUTOMATION
        STDMETHOD(QueryInterface)(REFIID, void**) override { return E_NOINTERFACE; }
        SCRIPTED_UNUSED(get_Application(IDispatch**))
        SCRIPTED_UNUSED(get_Parent(IDispatch**))
        STDMETHOD(NameSpace)(VARIANT folder, Folder** result) override {
            const std::string path = folder.vt == VT_BSTR ? U(folder.bstrVal) : "?";
            shell_.log.push_back("NameSpace " + VariantText(folder));
            *result = nullptr;
            if (FAILED(shell_.nameSpaceResult)) return shell_.nameSpaceResult;
            for (const std::string& none : shell_.noFolder) {
                if (none == path) return S_FALSE;
            }
            *result = new ShellFolder(shell_, path);
            return S_OK;
        }
        SCRIPTED_UNUSED(BrowseForFolder(LONG, BSTR, LONG, VARIANT, Folder**))
        SCRIPTED_UNUSED(Windows(IDispatch**))
        SCRIPTED_UNUSED(Open(VARIANT))
        SCRIPTED_UNUSED(Explore(VARIANT))
        SCRIPTED_UNUSED(MinimizeAll())
        SCRIPTED_UNUSED(UndoMinimizeALL())
        SCRIPTED_UNUSED(FileRun())
        SCRIPTED_UNUSED(CascadeWindows())
        SCRIPTED_UNUSED(TileVertically())
        SCRIPTED_UNUSED(TileHorizontally())
        SCRIPTED_UNUSED(ShutdownWindows())
        SCRIPTED_UNUSED(Suspend())
        SCRIPTED_UNUSED(EjectPC())
        SCRIPTED_UNUSED(SetTime())
        SCRIPTED_UNUSED(TrayProperties())
        SCRIPTED_UNUSED(Help())
        SCRIPTED_UNUSED(FindFiles())
        SCRIPTED_UNUSED(FindComputer())
        SCRIPTED_UNUSED(RefreshMenu())
        SCRIPTED_UNUSED(ControlPanelItem(BSTR))
    };

    struct LinkFile final : IPersistFile, ScriptedObject {
        using ScriptedObject::ScriptedObject;
        SCRIPTED_REFERENCES
        STDMETHOD(QueryInterface)(REFIID, void**) override { return E_NOINTERFACE; }
        SCRIPTED_UNUSED(GetClassID(CLSID*))
        SCRIPTED_UNUSED(IsDirty())
        STDMETHOD(Load)(LPCOLESTR name, DWORD mode) override {
            shell_.log.push_back("Load " + U(name) + " mode " + std::to_string(mode));
            return shell_.loadResult;
        }
        SCRIPTED_UNUSED(Save(LPCOLESTR, BOOL))
        SCRIPTED_UNUSED(SaveCompleted(LPCOLESTR))
        SCRIPTED_UNUSED(GetCurFile(LPOLESTR*))
    };

    struct Link final : IShellLinkW, ScriptedObject {
        using ScriptedObject::ScriptedObject;
        SCRIPTED_REFERENCES
        STDMETHOD(QueryInterface)(REFIID riid, void** object) override {
            shell_.log.push_back("QueryInterface " + GuidText(riid));
            *object = nullptr;
            if (FAILED(shell_.queryResult)) return shell_.queryResult;
            *object = static_cast<IPersistFile*>(new LinkFile(shell_, "persist file"));
            return S_OK;
        }
        STDMETHOD(GetPath)(LPWSTR file, int capacity, WIN32_FIND_DATAW* findData, DWORD flags) override {
            shell_.log.push_back("GetPath " + std::to_string(capacity) + (findData ? " find data" : " null") + " flags " +
                                 std::to_string(flags) + (file[0] == 0 ? " clean" : " dirty"));
            if (FAILED(shell_.pathResult)) return shell_.pathResult;
            WStrCopy(file, capacity, WStrFromUtf8(shell_.linkPath).c_str());
            if (findData != nullptr) findData->nFileSizeLow = 4242;
            return S_OK;
        }
        SCRIPTED_UNUSED(GetIDList(PIDLIST_ABSOLUTE*))
        SCRIPTED_UNUSED(SetIDList(PCIDLIST_ABSOLUTE))
        SCRIPTED_UNUSED(GetDescription(LPWSTR, int))
        SCRIPTED_UNUSED(SetDescription(LPCWSTR))
        SCRIPTED_UNUSED(GetWorkingDirectory(LPWSTR, int))
        SCRIPTED_UNUSED(SetWorkingDirectory(LPCWSTR))
        STDMETHOD(GetArguments)(LPWSTR arguments, int capacity) override {
            shell_.log.push_back("GetArguments " + std::to_string(capacity));
            if (FAILED(shell_.argumentsResult)) return shell_.argumentsResult;
            WStrCopy(arguments, capacity, WStrFromUtf8(shell_.linkArguments).c_str());
            return S_OK;
        }
        SCRIPTED_UNUSED(SetArguments(LPCWSTR))
        SCRIPTED_UNUSED(GetHotkey(WORD*))
        SCRIPTED_UNUSED(SetHotkey(WORD))
        SCRIPTED_UNUSED(GetShowCmd(int*))
        SCRIPTED_UNUSED(SetShowCmd(int))
        SCRIPTED_UNUSED(GetIconLocation(LPWSTR, int, int*))
        SCRIPTED_UNUSED(SetIconLocation(LPCWSTR, int))
        SCRIPTED_UNUSED(SetRelativePath(LPCWSTR, DWORD))
        SCRIPTED_UNUSED(Resolve(HWND, DWORD))
        SCRIPTED_UNUSED(SetPath(LPCWSTR))
    };

    ItemList* lastItems = nullptr;

private:
    ApiPatch<&Win32Api::CoInitialize> initialize_{[this](LPVOID reserved) {
        log.push_back(reserved == nullptr ? "CoInitialize" : "CoInitialize reserved");
        return S_OK;
    }};
    ApiPatch<&Win32Api::CoUninitialize> uninitialize_{[this] { log.push_back("CoUninitialize"); }};
    ApiPatch<&Win32Api::CoCreateInstance> create_{[this](REFCLSID classId, LPUNKNOWN outer, DWORD context, REFIID riid, LPVOID* object) {
        log.push_back("CoCreateInstance " + GuidText(classId) + " " + GuidText(riid) + " context " + std::to_string(context) +
                      (outer == nullptr ? "" : " outer"));
        *object = nullptr;
        if (FAILED(createResult)) return createResult;
        if (classId == kShellClass) *object = static_cast<IShellDispatch*>(new Dispatch(*this, "shell"));
        else if (classId == kLinkClass) *object = static_cast<IShellLinkW*>(new Link(*this, "link"));
        else return REGDB_E_CLASSNOTREG;
        return S_OK;
    }};
};

inline ULONG ScriptedObject::Drop() {
    const ULONG left = --references_;
    if (left == 0) {
        shell_.log.push_back("Release " + name_);
        delete this;
    }
    return left;
}

}  // namespace testing_support
