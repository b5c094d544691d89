// Smoke run of the Windows DLL under a real Win32 implementation: load it by name, find the exports by
// their plain names, read its version block, and call what can be called without a volume of our own.
#include <velmora/velmora.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <initializer_list>
#include <vector>

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

void WriteSmallFile(const wchar_t* path, const char* text) {
    HANDLE handle = CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    DWORD written = 0;
    WriteFile(handle, text, static_cast<DWORD>(std::strlen(text)), &written, nullptr);
    CloseHandle(handle);
}

// An export found by its plain name, typed from its declaration in the public header.
template <class Function>
Function Export(HMODULE module, const char* name) {
    FARPROC address = GetProcAddress(module, name);
    Check(address != nullptr, name);
    return reinterpret_cast<Function>(reinterpret_cast<void*>(address));
}
#define EXPORT(module, name) Export<decltype(&::name)>(module, #name)

// Attribute flags and file facts against a real Win32 file system.
void FileProperties(HMODULE module) {
    auto getProperty = EXPORT(module, GetFileProperty);
    auto setHidden = EXPORT(module, SetHiddenFlag);
    auto getHidden = EXPORT(module, GetHiddenFlag);
    auto setReadOnly = EXPORT(module, SetReadOnlyFlag);
    auto getLength = EXPORT(module, GetFileLength);
    auto getDate = EXPORT(module, GetFileDate);
    auto kind = EXPORT(module, GetPathIsFileOrFolder);
    auto links = EXPORT(module, GetFileIsHardlink);
    if (!getProperty || !setHidden || !getHidden || !setReadOnly || !getLength || !getDate || !kind || !links) return;

    wchar_t folder[MAX_PATH];
    GetTempPathW(MAX_PATH, folder);
    wchar_t file[MAX_PATH], second[MAX_PATH];
    std::swprintf(file, MAX_PATH, L"%lsvelmora-smoke.txt", folder);
    std::swprintf(second, MAX_PATH, L"%lsvelmora-smoke-link.txt", folder);
    DeleteFileW(second);
    SetFileAttributesW(file, FILE_ATTRIBUTE_NORMAL);
    WriteSmallFile(file, "12345");

    Check(kind(CString(L"C:\\")) == 2, "GetPathIsFileOrFolder of C:\\ is 2");
    Check(kind(CString(file)) == 1, "GetPathIsFileOrFolder of a file is 1");
    Check(kind(CString(L"C:\\no\\such\\thing")) == -1, "GetPathIsFileOrFolder of a missing path is -1");
    ULONGLONG length = 0;
    Check(getLength(CString(file), &length) == 1 && length == 5, "GetFileLength of a 5-byte file");
    __time64_t written64 = 0;
    Check(getDate(CString(file), nullptr, &written64, nullptr) == 1 && written64 > 1600000000, "GetFileDate gives the last write");
    int hidden = -1;
    Check(setHidden(CString(file), 1) == 1 && getHidden(CString(file), &hidden) == 1 && hidden == 1, "hidden flag set");
    Check(setHidden(CString(file), 2) == 1 && getHidden(CString(file), &hidden) == 1 && hidden == 0, "an option of 2 clears");
    int readOnly = -1, compressed = -1, system = -1, encrypted = -1;
    Check(setReadOnly(CString(file), 1) == 1 &&
              getProperty(CString(file), &readOnly, &compressed, &hidden, &system, &encrypted) == 1 && readOnly == 1 &&
              hidden == 0 && system == 0 && encrypted == 0,
          "GetFileProperty reads the five flags in one go");
    setReadOnly(CString(file), 0);
    Check(links(CString(file), nullptr) == 0, "a file with one name is no hard link");
    if (CreateHardLinkW(second, file, nullptr)) {
        Check(links(CString(file), nullptr) == 2, "a file with two names has 2 links");
        DeleteFileW(second);
    }
    DeleteFileW(file);
}

// Enumeration and comparison: MD5 through the real CryptoAPI, a walk, a content test and a comparison.
void Enumeration(HMODULE module) {
    auto hash = EXPORT(module, GetFileHash);
    auto compareHash = EXPORT(module, CompareFileHash);
    auto count = EXPORT(module, GetFileCountInFolder);
    auto holds = EXPORT(module, IsFileExistsInFolder);
    auto compare = EXPORT(module, CompareFolder);
    if (!hash || !compareHash || !count || !holds || !compare) return;

    wchar_t temp[MAX_PATH], a[MAX_PATH], b[MAX_PATH], fileA[MAX_PATH], fileB[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    std::swprintf(a, MAX_PATH, L"%lsvelmora-smoke-a", temp);
    std::swprintf(b, MAX_PATH, L"%lsvelmora-smoke-b", temp);
    std::swprintf(fileA, MAX_PATH, L"%ls\\x.txt", a);
    std::swprintf(fileB, MAX_PATH, L"%ls\\x.txt", b);
    CreateDirectoryW(a, nullptr);
    CreateDirectoryW(b, nullptr);
    WriteSmallFile(fileA, "12345");
    WriteSmallFile(fileB, "12346");

    BYTE digest[16] = {};
    static const BYTE kMd5Of12345[16] = {0x82, 0x7c, 0xcb, 0x0e, 0xea, 0x8a, 0x70, 0x6c,
                                         0x4c, 0x34, 0xa1, 0x68, 0x91, 0xf8, 0x4e, 0x7b};
    Check(hash(CString(fileA), digest, CALG_MD5) == 1 && std::memcmp(digest, kMd5Of12345, 16) == 0, "GetFileHash gives MD5");
    Check(hash(CString(fileA), digest, CALG_SHA1) == 0, "GetFileHash refuses a digest longer than 16 bytes");
    Check(compareHash(CString(fileA), CString(fileB), CALG_MD5) == 1, "CompareFileHash tells different contents");
    ULONGLONG files = 0, bytes = 0;
    count(CString(a), &files, nullptr, &bytes, nullptr, CString(), nullptr);
    Check(files == 1 && bytes == 5, "GetFileCountInFolder counts and sums");
    Check(holds(CString(a)) == 1, "IsFileExistsInFolder of a folder with a file is 1");
    FileListNode head{};
    compare(CString(a), CString(b), &head, 1, 1);
    FileListNode* result = head.next;
    Check(result != nullptr && std::wcscmp(result->filePath, L"\\x.txt") == 0 && (result->flags & ContentDiffers) != 0,
          "CompareFolder finds the different contents");
    while (result != nullptr) {
        FileListNode* next = result->next;
        std::free(result);
        result = next;
    }
    DeleteFileW(fileA);
    DeleteFileW(fileB);
    RemoveDirectoryW(a);
    RemoveDirectoryW(b);
}

// The copy engine against a real Win32 file system and shell, quietly (no dialog may come up here).
void CopyEngine(HMODULE module) {
    auto createFolders = EXPORT(module, CreateFolders);
    auto copyDirect = EXPORT(module, CopyFilesNoneShell);
    auto copyShell = EXPORT(module, CopyFiles);
    auto copyEx = EXPORT(module, CopyFilesEx);
    EXPORT(module, CopyFilesMultiEx);  // found by name; a CStringArray needs the MFC subset this program does not link
    auto deleteFolders = EXPORT(module, DeleteFolders);
    if (!createFolders || !copyDirect || !copyShell || !copyEx || !deleteFolders) return;

    wchar_t temp[MAX_PATH], root[MAX_PATH], source[MAX_PATH], file[MAX_PATH], target[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    std::swprintf(root, MAX_PATH, L"%lsvelmora-smoke-copy", temp);
    std::swprintf(source, MAX_PATH, L"%ls\\src\\sub", root);
    Check(createFolders(CString(source)) == 1, "CreateFolders makes every missing level");
    std::swprintf(file, MAX_PATH, L"%ls\\src\\a.txt", root);
    WriteSmallFile(file, "hello");

    std::swprintf(source, MAX_PATH, L"%ls\\src", root);
    std::swprintf(target, MAX_PATH, L"%ls\\direct", root);
    BOOL cancel = FALSE;
    Check(copyDirect(CString(source), CString(target), &cancel, nullptr, CString(L"")) == 1, "CopyFilesNoneShell copies a tree");
    std::swprintf(target, MAX_PATH, L"%ls\\direct\\a.txt", root);
    Check(GetFileAttributesW(target) != INVALID_FILE_ATTRIBUTES, "the direct copy's file is there");

    std::swprintf(target, MAX_PATH, L"%ls\\shell", root);
    Check(copyShell(CString(source), CString(target), 1, 0, nullptr) == 1, "CopyFiles copies a folder's contents quietly");
    std::swprintf(target, MAX_PATH, L"%ls\\shell\\a.txt", root);
    Check(GetFileAttributesW(target) != INVALID_FILE_ATTRIBUTES, "the shell copy's file is there");

    std::swprintf(target, MAX_PATH, L"%ls\\ex", root);
    int code = 12345;
    Check(copyEx(CString(file), CString(target), 0, 0, 0, 0, 100, &code, nullptr) == 1 && code == 0,
          "CopyFilesEx copies a small file directly");
    Check(deleteFolders(CString(root), 1, nullptr) == 1 && GetFileAttributesW(root) == INVALID_FILE_ATTRIBUTES,
          "DeleteFolders removes the tree quietly");
}

}  // namespace

// Raw volume access: Wine has no raw disk behind its drives, so the sector position fails cleanly, with
// the caller's vector and out values as they were.
void RawVolumeAccess(HMODULE module) {
    auto sectorPosition = EXPORT(module, GetFileSectorPos);
    if (!sectorPosition) return;
    wchar_t folder[MAX_PATH], file[MAX_PATH];
    GetTempPathW(MAX_PATH, folder);
    std::swprintf(file, MAX_PATH, L"%lsvelmora-smoke-sectors.txt", folder);
    WriteSmallFile(file, "sectors");
    std::vector<SectorExtent> runs{{7, 8}};
    ULONGLONG first = 99, lastData = 99, last = 99;
    Check(sectorPosition(CString(file), &runs, &first, &lastData, &last) == 0, "GetFileSectorPos fails without a raw disk");
    Check(runs.size() == 1 && runs[0].startSector == 7 && first == 99 && lastData == 99 && last == 99,
          "GetFileSectorPos leaves the caller's vector and values alone when it fails");
    Check(sectorPosition(CString(L""), &runs, &first, &lastData, &last) == 0, "GetFileSectorPos refuses an empty path");
    DeleteFileW(file);
}

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

    FileProperties(module);
    Enumeration(module);
    CopyEngine(module);
    RawVolumeAccess(module);

    Check(FreeLibrary(module) != FALSE, "FreeLibrary runs the library's detach and succeeds");
    std::printf("%d failure(s)\n", g_failures);
    return g_failures == 0 ? 0 : 1;
}
