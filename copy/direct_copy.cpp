// Direct copy: CopyFilesNoneShell copies a file or a folder tree file by file with CopyFileExW, drawing
// each file's progress into the caller's progress bar, with the caller's cancel flag and extension filter.
#include <vector>

#include "../frame/extension_filter.h"
#include "../frame/walk_guard.h"
#include "../platform/unique_handles.h"
#include "copy_internal.h"

namespace {

BOOL CopyTree(const CString& source, const CString& destination, BOOL* cancel, CProgressCtrl* progress,
              const CString& extensionFilter, bool topLevel);

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
                     const CString& extensionFilter, bool topLevel) {
    if (source.IsEmpty() || source[source.GetLength() - 1] != _T('\\')) source += _T('\\');
    WIN32_FIND_DATAW data;
    UniqueFindHandle find(sys().FindFirstFileW(source + _T("*.*"), &data));
    if (!find) return FALSE;
    // The top folder of an unfiltered copy gets its counterpart first, so that its own files have a
    // place to go even when no subfolder comes before them; deeper levels are made by their parents.
    if (topLevel && extensionFilter.IsEmpty()) CreateFolders(destination);
    const WalkLevel level(source);
    BOOL result = FALSE;
    do {
        const CString name = data.cFileName;
        CString entrySource = source + name;
        const CString entryTarget = destination + _T("\\") + name;
        if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
            entrySource += _T('\\');
            if (name == _T(".") || name == _T("..")) continue;
            // A link back to a folder of this walk would be walked without end; it is left out.
            if ((data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) && LeadsBackIntoWalk(entrySource)) continue;
            if (extensionFilter.IsEmpty()) CreateFolders(entryTarget);
            CopyTree(entrySource, entryTarget, cancel, progress, extensionFilter, false);
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
    return result;
}

// One call of the copy for a file or a folder, with the library's module state current for it, as every
// nested call for a subfolder has it again.
BOOL CopyTree(const CString& source, const CString& destination, BOOL* cancel, CProgressCtrl* progress,
              const CString& extensionFilter, bool topLevel) {
    VELMORA_MANAGE_STATE();
    if (source.IsEmpty() || destination.IsEmpty()) return FALSE;
    const DWORD attributes = sys().GetFileAttributesW(source);
    if (attributes == INVALID_FILE_ATTRIBUTES) return FALSE;
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return CopySingleFile(source, destination, cancel, progress);
    return CopyFolderLevel(source, destination, cancel, progress, extensionFilter, topLevel);
}

}  // namespace

BOOL CopyFilesNoneShell(CString source, CString destination, BOOL* cancel, CProgressCtrl* progress, CString extensionFilter) {
    return VelmoraGuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        return CopyTree(source, destination, cancel, progress, extensionFilter, true);
    });
}
