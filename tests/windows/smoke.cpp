// Smoke run of the Windows DLL under a real Win32 implementation: load it by name, find the exports by
// their plain names, read its version block, and call what can be called without a volume of our own.
#include <windows.h>

#include <cstdio>
#include <cwchar>
#include <initializer_list>

namespace {

int g_failures = 0;

void Check(bool ok, const char* what) {
    std::printf("%s %s\n", ok ? "ok  " : "FAIL", what);
    if (!ok) ++g_failures;
}

bool VersionTextIs(const wchar_t* path, const wchar_t* key, const wchar_t* want) {
    DWORD ignored = 0;
    const DWORD size = GetFileVersionInfoSizeW(path, &ignored);
    if (size == 0) return false;
    static BYTE block[8192];
    if (size > sizeof block || !GetFileVersionInfoW(path, 0, size, block)) return false;
    wchar_t query[128];
    std::swprintf(query, 128, L"\\StringFileInfo\\041104b0\\%ls", key);
    wchar_t* value = nullptr;
    UINT length = 0;
    return VerQueryValueW(block, query, reinterpret_cast<void**>(&value), &length) && length > 0 && std::wcscmp(value, want) == 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    const wchar_t* dll = argc > 1 ? argv[1] : L"Velmora.dll";
    HMODULE module = LoadLibraryW(dll);
    Check(module != nullptr, "LoadLibraryW runs the library's entry and succeeds");
    if (module == nullptr) return 1;

    Check(VersionTextIs(dll, L"FileDescription", L"\u30D5\u30A1\u30A4\u30EB\u64CD\u4F5C\u30E9\u30A4\u30D6\u30E9\u30EA"),
          "FileDescription in the Japanese version block");
    Check(VersionTextIs(dll, L"FileVersion", L"2.0.5.1"), "FileVersion 2.0.5.1");
    Check(VersionTextIs(dll, L"OriginalFilename", L"Velmora.dll"), "OriginalFilename");

    for (const char* name : {"_ZN8CVelmoraC1Ev", "_ZN8CVelmoraaSERKS_", "_ZN8CVelmoraaSEOS_"})
        Check(GetProcAddress(module, name) != nullptr, name);

    using Constructor = void(__cdecl*)(void*);
    using Assign = void*(__cdecl*)(void*, const void*);
    alignas(8) unsigned char a[8] = {}, b[8] = {};
    reinterpret_cast<Constructor>(reinterpret_cast<void*>(GetProcAddress(module, "_ZN8CVelmoraC1Ev")))(a);
    void* assigned = reinterpret_cast<Assign>(reinterpret_cast<void*>(GetProcAddress(module, "_ZN8CVelmoraaSERKS_")))(a, b);
    Check(assigned == a, "CVelmora::operator= returns the object assigned to");

    Check(FreeLibrary(module) != FALSE, "FreeLibrary runs the library's detach and succeeds");
    std::printf("%d failure(s)\n", g_failures);
    return g_failures == 0 ? 0 : 1;
}
