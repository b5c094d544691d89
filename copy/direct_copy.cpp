// Direct copy: CopyFilesNoneShell copies a file or a folder tree file by file with CopyFileExW, drawing
// each file's progress into the caller's progress bar, with the caller's cancel flag and extension filter.
#include <vector>

#include "../frame/extension_filter.h"
#include "../platform/unique_handles.h"
#include "copy_internal.h"

namespace {

// The source folders of the levels being walked, outermost first.
using WalkedFolders = std::vector<CString>;

BOOL CopyTree(const CString& source, const CString& destination, BOOL* cancel, CProgressCtrl* progress,
              const CString& extensionFilter, WalkedFolders& walked);

// Volume serial number and file index of what a path leads to, following links; false when it cannot
// be opened.
bool FolderIdentity(const CString& path, DWORD& volume, ULONGLONG& index) {
    UniqueHandle folder(sys().CreateFileW(path, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                          OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!folder) return false;
    BY_HANDLE_FILE_INFORMATION info{};
    if (!sys().GetFileInformationByHandle(folder.get(), &info)) return false;
    volume = info.dwVolumeSerialNumber;
    index = (static_cast<ULONGLONG>(info.nFileIndexHigh) << 32) | info.nFileIndexLow;
    return true;
}

// Whether a folder link leads to one of the folders being walked, so that walking it would never end.
// A link that cannot be looked at is not walked either.
bool LeadsBackIntoWalk(const CString& link, const WalkedFolders& walked) {
    DWORD volume = 0;
    ULONGLONG index = 0;
    if (!FolderIdentity(link, volume, index)) return true;
    for (const CString& folder : walked) {
        DWORD otherVolume = 0;
        ULONGLONG otherIndex = 0;
        if (FolderIdentity(folder, otherVolume, otherIndex) && otherVolume == volume && otherIndex == index) return true;
    }
    return false;
}

BOOL CopyOneFile(const CString& source, const CString& target, BOOL* cancel, CProgressCtrl* progress) {
    const BOOL copied = sys().CopyFileExW(source, target, CopyProgressRoutine, progress, cancel, 0);
    if (copied == TRUE && progress != nullptr) progress->SetPos(100);
    return copied;
}

BOOL CopySingleFile(const CString& source, const CString& destination, BOOL* cancel, CProgressCtrl* progress) {
    // The name as stored, whatever case the caller wrote it in.
    WIN32_FIND_DATAW data;
    {
        UniqueFindHandle find(sys().FindFirstFileW(source, &data));
        if (!find) return FALSE;
    }
    const CString target = destination + _T("\\") + data.cFileName;
    if (progress != nullptr) progress->SetPos(0);
    return CopyOneFile(source, target, cancel, progress);
}

BOOL CopyFolderLevel(CString source, const CString& destination, BOOL* cancel, CProgressCtrl* progress,
                     const CString& extensionFilter, WalkedFolders& walked) {
    if (source.IsEmpty() || source[source.GetLength() - 1] != _T('\\')) source += _T('\\');
    WIN32_FIND_DATAW data;
    UniqueFindHandle find(sys().FindFirstFileW(source + _T("*.*"), &data));
    if (!find) return FALSE;
    // The top folder of an unfiltered copy gets its counterpart first, so that its own files have a
    // place to go even when no subfolder comes before them; deeper levels are made by their parents.
    if (walked.empty() && extensionFilter.IsEmpty()) CreateFolders(destination);
    walked.push_back(source);
    BOOL result = FALSE;
    do {
        const CString name = data.cFileName;
        CString entrySource = source + name;
        const CString entryTarget = destination + _T("\\") + name;
        if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
            entrySource += _T('\\');
            if (name == _T(".") || name == _T("..")) continue;
            // A link back to a folder of this walk would be walked without end; it is left out.
            if ((data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) && LeadsBackIntoWalk(entrySource, walked)) continue;
            if (extensionFilter.IsEmpty()) CreateFolders(entryTarget);
            CopyTree(entrySource, entryTarget, cancel, progress, extensionFilter, walked);
        } else {
            if (progress != nullptr) progress->SetPos(0);
            if (!extensionFilter.IsEmpty()) {
                if (!MatchesExtensionFilter(entryTarget, extensionFilter)) continue;
                // Made only now, so that a filtered copy leaves no folder empty.
                CreateFolders(destination);
            }
            result = CopyOneFile(entrySource, entryTarget, cancel, progress);
        }
    } while (sys().FindNextFileW(find.get(), &data));
    walked.pop_back();
    return result;
}

// One call of the copy for a file or a folder, with the library's module state current for it, as every
// nested call for a subfolder has it again.
BOOL CopyTree(const CString& source, const CString& destination, BOOL* cancel, CProgressCtrl* progress,
              const CString& extensionFilter, WalkedFolders& walked) {
    VELMORA_MANAGE_STATE();
    if (source.IsEmpty() || destination.IsEmpty()) return FALSE;
    const DWORD attributes = sys().GetFileAttributesW(source);
    if (attributes == INVALID_FILE_ATTRIBUTES) return FALSE;
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return CopySingleFile(source, destination, cancel, progress);
    return CopyFolderLevel(source, destination, cancel, progress, extensionFilter, walked);
}

}  // namespace

BOOL CopyFilesNoneShell(CString source, CString destination, BOOL* cancel, CProgressCtrl* progress, CString extensionFilter) {
    return VelmoraGuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        WalkedFolders walked;
        return CopyTree(source, destination, cancel, progress, extensionFilter, walked);
    });
}
