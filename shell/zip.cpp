// Zip archives through the shell's compressed folders: CompressToZip and CompressToZipT hand a file or a
// folder to the shell's copy into an archive and wait until the shell has let go of it; ExtractFromZip
// asks the shell to copy an archive's items into a folder.
#include "shell_internal.h"

namespace {

// Detail codes of CompressToZip.
constexpr int kCompressed = 0;
constexpr int kSourceMissing = -1;
constexpr int kSourceFolderEmpty = -2;
constexpr int kArchivePathEmpty = -3;
constexpr int kArchiveNotCreated = -4;
constexpr int kEmptyArchiveNotWritten = -5;
constexpr int kNoShell = -6;
constexpr int kArchiveNotAFolder = -7;
constexpr int kCopyRefused = -8;
constexpr int kArchiveNotReleased = -9;

// The end-of-central-directory record of an archive with no entries: its signature, then every count,
// size, offset and the comment length at 0.
constexpr BYTE kEmptyArchive[22] = {0x50, 0x4B, 0x05, 0x06};

constexpr LONG kQuietCompressOptions = FOF_SILENT | FOF_NOCONFIRMATION | FOF_NOCONFIRMMKDIR | FOF_NOERRORUI;
constexpr LONG kQuietExtractOptions = FOF_SILENT | FOF_NOCONFIRMATION | FOF_NOERRORUI;

// The window the shell shows while it compresses, looked for 30 times 200 ms.
constexpr LPCWSTR kProgressTitle = _T("圧縮しています...");
constexpr int kProgressLooks = 30;
constexpr DWORD kProgressPause = 200;

// The shell holds the archive without sharing until it has written the last entry. An hour of tries a
// second apart lets it compress tens of gigabytes at its own pace, yet a copy that never ends (a question
// nobody answers, a stuck shell) cannot keep the caller forever.
constexpr int kReleaseTries = 3600;
constexpr DWORD kReleasePause = 1000;

BOOL Finish(int* detailCode, int code) {
    if (detailCode != nullptr) *detailCode = code;
    return code == kCompressed ? TRUE : FALSE;
}

bool EndsInZip(const CString& path) { return path.GetLength() >= 4 && path.Right(4).CompareNoCase(_T(".zip")) == 0; }

// Makes the archive file when it is new, as an empty archive. An existing file is used as it is, so the
// source is added to what it holds. 0 or the detail code of the failure.
int MakeArchiveUnlessPresent(const CString& zipPath) {
    UniqueHandle archive(sys().CreateFileW(zipPath, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                           CREATE_NEW, 0, nullptr));
    if (!archive) return sys().GetLastError() == ERROR_FILE_EXISTS ? kCompressed : kArchiveNotCreated;
    DWORD written = 0;
    // A short write leaves no valid archive either; the partial file stays for the caller to see.
    if (!sys().WriteFile(archive.get(), kEmptyArchive, sizeof kEmptyArchive, &written, nullptr) || written != sizeof kEmptyArchive)
        return kEmptyArchiveNotWritten;
    return kCompressed;
}

// Hides the shell's progress window when asked to be quiet. Without that it only gives the shell time to
// open the archive before the release wait looks at it.
void WaitForProgressWindow(int silent) {
    for (int look = 0; look < kProgressLooks; ++look) {
        const HWND progress = sys().FindWindowW(nullptr, kProgressTitle);
        if (progress != nullptr && silent == 1 && sys().ShowWindow(progress, SW_HIDE)) return;
        sys().Sleep(kProgressPause);
    }
}

// True once the archive can be opened without sharing, the sign that the shell has finished writing. Only
// a sharing conflict is worth waiting for: an archive that cannot be opened for another reason (read-only,
// no permission, gone) never will be.
bool WaitForRelease(const CString& zipPath) {
    for (int attempt = 0; attempt < kReleaseTries; ++attempt) {
        UniqueHandle probe(sys().CreateFileW(zipPath, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        if (probe) return true;
        const DWORD error = sys().GetLastError();
        if (error != ERROR_SHARING_VIOLATION && error != ERROR_LOCK_VIOLATION) return false;
        sys().Sleep(kReleasePause);
    }
    return false;
}

}  // namespace

BOOL CompressToZip(CString source, CString zipPath, int silent, int* detailCode) {
    VELMORA_MANAGE_STATE();
    return VelmoraGuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        if (!sys().PathFileExistsW(source)) return Finish(detailCode, kSourceMissing);
        const DWORD attributes = sys().GetFileAttributesW(source);
        if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) && !IsFileExistsInFolder(source))
            return Finish(detailCode, kSourceFolderEmpty);
        if (zipPath.IsEmpty()) return Finish(detailCode, kArchivePathEmpty);
        if (!EndsInZip(zipPath)) zipPath += _T(".zip");
        if (const int made = MakeArchiveUnlessPresent(zipPath); made != kCompressed) return Finish(detailCode, made);

        UniqueApartment apartment;
        UniqueComPtr<IShellDispatch> shell;
        if (FAILED(sys().CoCreateInstance(kShellClass, nullptr, CLSCTX_INPROC_SERVER, kShellDispatchInterface, shell.put_void())) ||
            !shell) {
            apartment.Leave();
            return Finish(detailCode, kNoShell);
        }
        UniqueComPtr<Folder> archive;
        if (!OpenShellFolder(shell.get(), zipPath, archive)) {
            shell.reset();
            apartment.Leave();
            return Finish(detailCode, kArchiveNotAFolder);
        }

        HRESULT copied = E_OUTOFMEMORY;
        {
            UniqueVariant item;
            UniqueVariant options;
            options.get().vt = VT_I4;
            options.get().lVal = silent == 1 ? kQuietCompressOptions : 0;
            if (SetBstr(item, source)) copied = archive->CopyHere(item.get(), options.get());
        }
        // Both waits run whatever the shell answered: a refused copy may still have opened the archive.
        WaitForProgressWindow(silent);
        const bool released = WaitForRelease(zipPath);

        archive.reset();
        shell.reset();
        apartment.Leave();
        if (FAILED(copied)) return Finish(detailCode, kCopyRefused);
        return Finish(detailCode, released ? kCompressed : kArchiveNotReleased);
    });
}

BOOL CompressToZipT(LPCWSTR source, LPCWSTR zipPath, int silent, int* detailCode) {
    VELMORA_MANAGE_STATE();
    return VelmoraGuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        if (source == nullptr || zipPath == nullptr || *source == 0 || *zipPath == 0) return FALSE;
        CString sourceCopy;
        sourceCopy.Format(_T("%s"), source);
        CString zipCopy;
        zipCopy.Format(_T("%s"), zipPath);
        return CompressToZip(sourceCopy, zipCopy, silent, detailCode);
    });
}

BOOL ExtractFromZip(CString zipPath, CString destination, int silent) {
    VELMORA_MANAGE_STATE();
    return VelmoraGuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        if (zipPath.IsEmpty() || destination.IsEmpty()) return FALSE;
        CreateFolders(destination);

        UniqueApartment apartment;
        UniqueComPtr<IShellDispatch> shell;
        if (FAILED(sys().CoCreateInstance(kShellClass, nullptr, CLSCTX_INPROC_SERVER, kShellDispatchInterface, shell.put_void())) ||
            !shell) {
            apartment.Leave();
            return FALSE;
        }
        UniqueComPtr<Folder> target;
        if (!OpenShellFolder(shell.get(), destination, target)) {
            shell.reset();
            apartment.Leave();
            return FALSE;
        }
        UniqueComPtr<Folder> archive;
        if (!OpenShellFolder(shell.get(), zipPath, archive)) {
            target.reset();
            shell.reset();
            apartment.Leave();
            return FALSE;
        }
        UniqueComPtr<FolderItems> items;
        if (FAILED(archive->Items(items.put())) || !items) {
            archive.reset();
            target.reset();
            shell.reset();
            apartment.Leave();
            return FALSE;
        }

        // The items stay the holder's: the VARIANT borrows them for the call and is not cleared.
        VARIANT entries;
        sys().VariantInit(&entries);
        entries.vt = VT_DISPATCH;
        entries.pdispVal = items.get();
        UniqueVariant options;
        options.get().vt = VT_I4;
        options.get().lVal = silent == 1 ? kQuietExtractOptions : 0;
        const HRESULT copied = target->CopyHere(entries, options.get());

        items.reset();
        archive.reset();
        target.reset();
        shell.reset();
        apartment.Leave();
        return SUCCEEDED(copied) ? TRUE : FALSE;
    });
}
