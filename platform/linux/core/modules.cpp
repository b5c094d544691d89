// Libraries loaded at run time: LoadLibraryW, GetModuleHandleW, GetProcAddress and FreeLibrary over the
// modules registered in the emulated system folder, and the system and temporary folders' names.
//
// A module is a table of entry points; loading one puts a module object into the handle table, so a
// library that is never freed shows up as an open handle. Loads of one module share one handle and count,
// as on Windows: the handle lives until as many FreeLibrary calls as there were loads. A resident module
// (ntdll.dll) is there from the start instead: found without a load, never freed, outside the handle table.
#include <cstdlib>
#include <mutex>
#include <vector>

#include "internal.h"
#include "table.h"

namespace vlx {

namespace {

constexpr WCHAR kSystemFolder[] = u"C:\\Windows\\System32";

struct Registration {
    WString fileName;
    std::shared_ptr<const ModuleDefinition> definition;
};

class ModuleObject : public KernelObject {
public:
    WString fileName;
    std::shared_ptr<const ModuleDefinition> definition;
    int loads = 0;
};

struct LoadedModule {
    HANDLE handle = nullptr;
    std::shared_ptr<ModuleObject> object;
};

std::mutex g_modulesLock;

// Newest registration last: it hides older ones of the same name.
std::vector<Registration>& Registrations() {
    static std::vector<Registration> registrations;
    return registrations;
}
std::vector<LoadedModule>& Loaded() {
    static std::vector<LoadedModule> loaded;
    return loaded;
}

std::shared_ptr<const ModuleDefinition> FindRegisteredLocked(const WString& fileName) {
    auto& registrations = Registrations();
    for (auto it = registrations.rbegin(); it != registrations.rend(); ++it) {
        if (NamesEqualNoCase(it->fileName, fileName)) return it->definition;
    }
    return nullptr;
}

LoadedModule* FindLoadedLocked(const std::shared_ptr<const ModuleDefinition>& definition) {
    for (LoadedModule& module : Loaded()) {
        if (module.object->definition == definition) return &module;
    }
    return nullptr;
}

// A resident module's handle is its definition's address: never in the handle table, never freed, and
// the same for every caller while the module is registered.
HMODULE ResidentHandle(const std::shared_ptr<const ModuleDefinition>& definition) {
    return reinterpret_cast<HMODULE>(const_cast<ModuleDefinition*>(definition.get()));
}

std::shared_ptr<const ModuleDefinition> FindResidentLocked(HMODULE module) {
    for (const Registration& registration : Registrations()) {
        if (registration.definition->resident && ResidentHandle(registration.definition) == module) return registration.definition;
    }
    return nullptr;
}

// The file name a LoadLibraryW or GetModuleHandleW argument asks for, with ".dll" added to a name
// without extension as Windows adds it; empty when the path leads anywhere but the system folder.
WString ModuleFileName(LPCWSTR path) {
    WString text(path);
    const size_t separator = text.find_last_of(u"\\/");
    WString name = separator == WString::npos ? text : text.substr(separator + 1);
    if (separator != WString::npos) {
        WString folder;
        if (!FullWin32Path(text.substr(0, separator).c_str(), folder)) return WString();
        while (folder.size() > 3 && (folder.back() == u'\\' || folder.back() == u'/')) folder.pop_back();
        if (!NamesEqualNoCase(folder, kSystemFolder)) return WString();
    }
    if (name.find(u'.') == WString::npos) name += u".dll";
    return name;
}

// Copies text into a caller's buffer as the folder-name functions do: the length without the terminator,
// or the size needed with it when the buffer is too small (the buffer is then left alone).
DWORD CopyFolderName(const WString& text, LPWSTR buffer, DWORD size) {
    if (buffer == nullptr || size <= text.size()) return static_cast<DWORD>(text.size() + 1);
    text.copy(buffer, text.size());
    buffer[text.size()] = 0;
    return static_cast<DWORD>(text.size());
}

}  // namespace

SystemModule::SystemModule(const WString& fileName, ModuleDefinition definition)
    : fileName_(fileName), definition_(std::make_shared<const ModuleDefinition>(std::move(definition))) {
    std::lock_guard guard(g_modulesLock);
    Registrations().push_back({fileName_, definition_});
}

SystemModule::~SystemModule() {
    std::lock_guard guard(g_modulesLock);
    auto& registrations = Registrations();
    for (auto it = registrations.begin(); it != registrations.end(); ++it) {
        if (it->definition == definition_) {
            registrations.erase(it);
            break;
        }
    }
}

int ModuleLoadCount(const WString& fileName) {
    std::lock_guard guard(g_modulesLock);
    int loads = 0;
    for (const LoadedModule& module : Loaded()) {
        if (NamesEqualNoCase(module.object->fileName, fileName)) loads += module.object->loads;
    }
    return loads;
}

UINT WINAPI GetSystemDirectoryW(LPWSTR buffer, UINT size) { return CopyFolderName(kSystemFolder, buffer, size); }

DWORD WINAPI GetTempPathW(DWORD length, LPWSTR buffer) {
    const char* fromEnvironment = std::getenv("TMPDIR");
    const std::string host = fromEnvironment != nullptr && *fromEnvironment == '/' ? fromEnvironment : "/tmp";
    WString path = HostToWin32Path(host);
    if (path.empty() || path.back() != u'\\') path += u'\\';
    return CopyFolderName(path, buffer, length);
}

HMODULE WINAPI LoadLibraryW(LPCWSTR path) {
    if (path == nullptr || *path == 0) return Fail(ERROR_INVALID_PARAMETER, static_cast<HMODULE>(nullptr));
    const WString fileName = ModuleFileName(path);
    std::lock_guard guard(g_modulesLock);
    auto definition = fileName.empty() ? nullptr : FindRegisteredLocked(fileName);
    if (!definition) return Fail(ERROR_MOD_NOT_FOUND, static_cast<HMODULE>(nullptr));
    if (definition->loadError != 0) return Fail(definition->loadError, static_cast<HMODULE>(nullptr));
    if (definition->resident) return ResidentHandle(definition);
    if (LoadedModule* loaded = FindLoadedLocked(definition)) {
        ++loaded->object->loads;
        return reinterpret_cast<HMODULE>(loaded->handle);
    }
    auto object = std::make_shared<ModuleObject>();
    object->fileName = fileName;
    object->definition = definition;
    object->loads = 1;
    const HANDLE handle = InsertHandle(object);
    Loaded().push_back({handle, object});
    return reinterpret_cast<HMODULE>(handle);
}

HMODULE WINAPI GetModuleHandleW(LPCWSTR name) {
    if (name == nullptr) return Fail(ERROR_MOD_NOT_FOUND, static_cast<HMODULE>(nullptr));
    const WString fileName = ModuleFileName(name);
    std::lock_guard guard(g_modulesLock);
    for (const LoadedModule& module : Loaded()) {
        if (!fileName.empty() && NamesEqualNoCase(module.object->fileName, fileName))
            return reinterpret_cast<HMODULE>(module.handle);
    }
    auto definition = fileName.empty() ? nullptr : FindRegisteredLocked(fileName);
    if (definition && definition->resident) return ResidentHandle(definition);
    return Fail(ERROR_MOD_NOT_FOUND, static_cast<HMODULE>(nullptr));
}

FARPROC WINAPI GetProcAddress(HMODULE module, LPCSTR name) {
    std::shared_ptr<const ModuleDefinition> definition;
    {
        std::lock_guard guard(g_modulesLock);
        definition = FindResidentLocked(module);
    }
    if (!definition) {
        auto object = LookupHandleAs<ModuleObject>(reinterpret_cast<HANDLE>(module));
        if (!object) return Fail(ERROR_MOD_NOT_FOUND, static_cast<FARPROC>(nullptr));
        definition = object->definition;
    }
    // Below 0x10000 the "name" is an ordinal; our modules export by name only.
    if (reinterpret_cast<uintptr_t>(name) < 0x10000) return Fail(ERROR_PROC_NOT_FOUND, static_cast<FARPROC>(nullptr));
    auto entry = definition->entryPoints.find(name);
    if (entry == definition->entryPoints.end() || entry->second == nullptr)
        return Fail(ERROR_PROC_NOT_FOUND, static_cast<FARPROC>(nullptr));
    return entry->second;
}

BOOL WINAPI FreeLibrary(HMODULE module) {
    std::shared_ptr<ModuleObject> released;  // dies outside the lock
    {
        std::lock_guard guard(g_modulesLock);
        // A resident module stays loaded however often it is freed.
        if (FindResidentLocked(module)) return TRUE;
        auto& loaded = Loaded();
        for (auto it = loaded.begin(); it != loaded.end(); ++it) {
            if (it->handle != reinterpret_cast<HANDLE>(module)) continue;
            if (--it->object->loads == 0) {
                released = it->object;
                RemoveHandleOf<ModuleObject>(it->handle);
                loaded.erase(it);
            }
            return TRUE;
        }
    }
    return Fail(ERROR_INVALID_HANDLE, FALSE);
}

}  // namespace vlx
