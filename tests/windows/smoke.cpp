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

// Security descriptors and drive letters on Wine's own file security and mount manager. What Wine does not
// serve is reported as a note, not a failure: the run shows what a real Windows would have to prove.
void Note(const char* what) { std::printf("note %s\n", what); }

std::vector<BYTE> DaclOf(const wchar_t* path) {
    DWORD needed = 0;
    GetFileSecurityW(path, DACL_SECURITY_INFORMATION, nullptr, 0, &needed);
    std::vector<BYTE> block(needed);
    if (needed == 0 || !GetFileSecurityW(path, DACL_SECURITY_INFORMATION, block.data(), needed, &needed)) block.clear();
    return block;
}

void SecurityAndDrives(HMODULE module) {
    auto getAccess = EXPORT(module, GetAccessInfo);
    auto setAccess = EXPORT(module, SetAccessInfo);
    auto copySecurity = EXPORT(module, CopySecurityInfo);
    auto changeLetter = EXPORT(module, ChangeDriveLetter);
    if (!getAccess || !setAccess || !copySecurity || !changeLetter) return;

    wchar_t temp[MAX_PATH], source[MAX_PATH], target[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    std::swprintf(source, MAX_PATH, L"%lsvelmora-smoke-acl-a.txt", temp);
    std::swprintf(target, MAX_PATH, L"%lsvelmora-smoke-acl-b.txt", temp);
    WriteSmallFile(source, "a");
    WriteSmallFile(target, "b");

    PSECURITY_DESCRIPTOR descriptor = nullptr;
    Check(getAccess(CString(source), &descriptor, nullptr) == 0, "GetAccessInfo needs its reserved pointer");
    Check(copySecurity(CString(source), CString(target), 0, 0, 0, 0) == 0, "CopySecurityInfo with no part named copies nothing");

    if (copySecurity(CString(source), CString(target), 0, 0, 1, 0) == 1) {
        Check(!DaclOf(source).empty() && DaclOf(source) == DaclOf(target), "CopySecurityInfo copies the access list");
    } else {
        Note("Wine: CopySecurityInfo gives 0 (the token lacks the security or take-ownership privilege, or file security fails)");
    }
    DWORD reserved = 0;
    if (getAccess(CString(source), &descriptor, &reserved) == 1) {
        Check(descriptor != nullptr && IsValidSecurityDescriptor(descriptor), "GetAccessInfo gives a valid descriptor");
        const std::vector<BYTE> before = DaclOf(source);
        if (setAccess(CString(source), descriptor) != 0) Check(DaclOf(source) == before, "SetAccessInfo writes it back unchanged");
        else Note("Wine: SetAccessInfo cannot write the full information set (audit list, label, attributes, backup)");
        std::free(descriptor);
    } else {
        Note("Wine: GetAccessInfo gives 0 (the full information set with audit list, label and attributes is not served)");
    }
    DeleteFileW(source);
    DeleteFileW(target);

    // Letters are only ever taken from a letter with no volume here: moving a real one would move Wine's own.
    wchar_t name[MAX_PATH] = {};
    if (GetVolumeNameForVolumeMountPointW(L"C:\\", name, MAX_PATH))
        Check(std::wcsncmp(name, L"\\\\?\\Volume{", 11) == 0, "the volume behind C: has a GUID name");
    else
        Note("Wine: no volume name for C:\\");
    for (wchar_t letter = L'K'; letter <= L'W'; ++letter) {
        const wchar_t root[] = {letter, L':', L'\\', 0};
        if (GetVolumeNameForVolumeMountPointW(root, name, MAX_PATH)) continue;
        Check(changeLetter(letter, static_cast<wchar_t>(letter + 1)) == 0, "ChangeDriveLetter from a letter without a volume gives 0");
        break;
    }
}

// WIM images. Wine's imaging library has no WIMSetTemporaryPath and no WIMUnmountImage, so capture, apply
// and unmount stop at the missing entry point with ERROR_PROC_NOT_FOUND, before any file is made. Its
// WIMMountImage is an unimplemented stub that raises when called, so mount is checked up to its arguments.
void WimImages(HMODULE module) {
    auto capture = EXPORT(module, CompressToWim);
    auto extract = EXPORT(module, ExtractFromWim);
    auto mount = EXPORT(module, MountWim);
    auto unmount = EXPORT(module, UnMountWim);
    if (!capture || !extract || !mount || !unmount) return;
    wchar_t folder[MAX_PATH], image[MAX_PATH];
    GetTempPathW(MAX_PATH, folder);
    std::swprintf(image, MAX_PATH, L"%lsvelmora-smoke.wim", folder);
    DWORD percent = 0;
    SetLastError(0xdeadbeef);
    Check(capture(CString(L""), CString(folder), CString(L""), 2, &percent, nullptr) == 0 && GetLastError() == 0xdeadbeef,
          "CompressToWim refuses an empty image path before loading anything");
    SetLastError(0xdeadbeef);
    Check(capture(CString(image), CString(folder), CString(L""), 2, &percent, nullptr) == 0 &&
              GetLastError() == ERROR_PROC_NOT_FOUND && GetFileAttributesW(image) == INVALID_FILE_ATTRIBUTES,
          "CompressToWim: 127 for the missing WIMSetTemporaryPath, no image file made");
    SetLastError(0xdeadbeef);
    Check(extract(CString(image), CString(folder), CString(L""), 1, &percent, nullptr) == 0 &&
              GetLastError() == ERROR_PROC_NOT_FOUND,
          "ExtractFromWim: 127 for the missing WIMSetTemporaryPath");
    SetLastError(0xdeadbeef);
    Check(unmount(CString(image), CString(folder), 1, TRUE) == 0 && GetLastError() == ERROR_PROC_NOT_FOUND,
          "UnMountWim: 127 for the missing WIMUnmountImage");
    SetLastError(0xdeadbeef);
    Check(mount(CString(image), CString(L""), CString(L""), 1) == 0 && GetLastError() == 0xdeadbeef,
          "MountWim refuses an empty mount folder before loading anything");
    Check(GetModuleHandleW(L"wimgapi.dll") == nullptr, "the imaging library is released after every call");
}

// Zip folders and shell links through Wine's real shell. The refusals need no shell; what Wine's shell
// cannot serve (its zip folders are incomplete) is reported as a note, not a failure.
void ShellArchives(HMODULE module) {
    auto compress = EXPORT(module, CompressToZip);
    auto compressT = EXPORT(module, CompressToZipT);
    auto extract = EXPORT(module, ExtractFromZip);
    auto shortcut = EXPORT(module, GetShortCutTargetPath);
    if (!compress || !compressT || !extract || !shortcut) return;

    wchar_t temp[MAX_PATH], source[MAX_PATH], archive[MAX_PATH], target[MAX_PATH], link[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    std::swprintf(source, MAX_PATH, L"%lsvelmora-smoke-zip.txt", temp);
    std::swprintf(archive, MAX_PATH, L"%lsvelmora-smoke", temp);
    std::swprintf(target, MAX_PATH, L"%lsvelmora-smoke-unzip", temp);
    std::swprintf(link, MAX_PATH, L"%lsvelmora-smoke.lnk", temp);
    WriteSmallFile(source, "hello");

    int code = 12345;
    Check(compress(CString(L"C:\\no\\such\\source"), CString(archive), 1, &code) == 0 && code == -1,
          "CompressToZip of a missing source gives -1");
    code = 12345;
    Check(compressT(nullptr, archive, 1, &code) == 0 && code == 12345, "CompressToZipT refuses a null string without a code");
    code = 12345;
    const BOOL zipped = compress(CString(source), CString(archive), 1, &code);
    std::wcscat(archive, L".zip");
    Check(GetFileAttributesW(archive) != INVALID_FILE_ATTRIBUTES, "CompressToZip makes the archive file with its suffix");
    if (zipped) std::printf("ok   CompressToZip through the shell\n");
    else std::printf("note Wine's shell did not compress into the zip folder (detail code %d)\n", code);
    if (extract(CString(archive), CString(target), 1)) std::printf("ok   ExtractFromZip through the shell\n");
    else std::printf("note Wine's shell did not extract the zip folder\n");
    Check(GetFileAttributesW(target) != INVALID_FILE_ATTRIBUTES, "ExtractFromZip makes its destination");

    // A link written by Wine's own shell-link object, read back through the export.
    static const CLSID shellLinkClass = {0x00021401, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
    static const IID shellLinkInterface = {0x000214F9, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
    static const IID persistFileInterface = {0x0000010B, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
    CoInitialize(nullptr);
    IShellLinkW* writer = nullptr;
    IPersistFile* file = nullptr;
    bool saved = false;
    if (SUCCEEDED(CoCreateInstance(shellLinkClass, nullptr, CLSCTX_INPROC_SERVER, shellLinkInterface, reinterpret_cast<void**>(&writer)))) {
        writer->SetPath(L"C:\\windows\\notepad.exe");
        writer->SetArguments(L"/p %TEMP%\\a.txt");
        if (SUCCEEDED(writer->QueryInterface(persistFileInterface, reinterpret_cast<void**>(&file)))) {
            saved = SUCCEEDED(file->Save(link, TRUE));
            file->Release();
        }
        writer->Release();
    }
    CoUninitialize();
    if (!saved) {
        std::printf("note Wine's shell-link object could not save a link\n");
    } else {
        wchar_t text[MAX_PATH] = {};
        Check(shortcut(CString(link), text, nullptr) == 1 && _wcsicmp(text, L"C:\\windows\\notepad.exe /p %TEMP%\\a.txt") == 0,
              "GetShortCutTargetPath gives the target, one space and the arguments unexpanded");
    }
    wchar_t untouched[MAX_PATH] = L"untouched";
    Check(shortcut(CString(source), untouched, nullptr) == 0 && std::wcscmp(untouched, L"untouched") == 0,
          "GetShortCutTargetPath of a file that is no link gives 0 and leaves the buffer");
    DeleteFileW(link);
    DeleteFileW(archive);
    DeleteFileW(source);
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

// The master file table: Wine has no change journal (nor raw volume), so counting and listing the system
// drive change nothing the caller holds; both return cleanly.
void MasterFileTable(HMODULE module) {
    auto count = EXPORT(module, GetFileCountInFolderFromMFT);
    auto list = EXPORT(module, GetFileListFromMFT);
    if (!count || !list) return;
    ULONGLONG files = 1, folders = 2, bytes = 3;
    FileListNode head{};
    count(CString(L"C:\\windows"), &files, &folders, &bytes, &head, CString(L""));
    Check(files == 1 && folders == 2 && bytes == 3 && head.next == nullptr,
          "GetFileCountInFolderFromMFT leaves the counters and the chain alone without a change journal");
    std::vector<std::wstring> paths{L"kept"};
    list(CString(L"C:\\"), &paths);
    Check(paths.size() == 1 && paths[0] == L"kept", "GetFileListFromMFT leaves the vector alone without a change journal");
    list(CString(L""), &paths);
    Check(paths.size() == 1, "GetFileListFromMFT of an empty path changes nothing");
}

// Volume snapshots. Wine has no shadow copy service: InitializeVssBackUp fails at whichever step its
// vssapi.dll refuses, writing nothing to the caller's outputs, and with no copy VssOpenFile gives null.
// CloseVssBackUp is checked in the empty state, twice; after the failed initialisation it would hand the
// (empty) properties to Wine's VssFreeSnapshotPropertiesInternal, an unimplemented stub that raises, so
// the smoke run leaves that close out where Windows needs it.
void VolumeSnapshots(HMODULE module) {
    auto initialize = EXPORT(module, InitializeVssBackUp);
    auto open = EXPORT(module, VssOpenFile);
    auto close = EXPORT(module, CloseVssBackUp);
    if (!initialize || !open || !close) return;
    close();
    close();
    Check(open(L"C:\\windows\\win.ini") == nullptr, "CloseVssBackUp twice with nothing held; VssOpenFile gives null");
    const bool apartment = SUCCEEDED(CoInitialize(nullptr));
    wchar_t device[MAX_PATH] = L"untouched";
    GUID id = {};
    const GUID zero = {};
    Check(initialize(L"C:", 5, device, &id) == 0 && std::wcscmp(device, L"untouched") == 0 && std::memcmp(&id, &zero, sizeof id) == 0,
          "InitializeVssBackUp fails cleanly without a shadow copy service, outputs untouched");
    Check(open(L"C:\\windows\\win.ini") == nullptr, "VssOpenFile gives null after the failed initialisation");
    if (apartment) CoUninitialize();
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
    SecurityAndDrives(module);
    WimImages(module);
    ShellArchives(module);
    RawVolumeAccess(module);
    MasterFileTable(module);
    VolumeSnapshots(module);

    Check(FreeLibrary(module) != FALSE, "FreeLibrary runs the library's detach and succeeds");
    std::printf("%d failure(s)\n", g_failures);
    return g_failures == 0 ? 0 : 1;
}
