// Folder creation and deletion: CreateFolders makes a folder with every missing level above it,
// DeleteFolders removes a folder tree for good through the shell.
#include <vector>

#include "../platform/unique_handles.h"
#include "copy_internal.h"

namespace {

// Whether the file system holds an entry of that name, file or folder.
BOOL PathEntryExists(const CString& path) {
    WIN32_FIND_DATAW data;
    UniqueFindHandle find(sys().FindFirstFileW(path, &data));
    return find ? TRUE : FALSE;
}

}  // namespace

// Each level is tried first; only when that fails is the parent looked at, made the same way, and the
// level tried once more. The climb is a loop rather than a recursion so that a path of thousands of
// backslashes cannot exhaust the stack; the calls made and their order are those of the recursion.
// Every level is a prefix of path, so the levels waiting for their parent are kept as lengths.
BOOL CreateFolders(CString path) {
    return VelmoraGuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        std::vector<int> pending;  // lengths of the levels that failed at the first try, deepest first
        int length = path.GetLength();
        for (;;) {
            const CString level = path.Left(length);
            const int slash = level.ReverseFind(_T('\\'));
            if (slash < 0) return FALSE;
            if (sys().CreateDirectoryW(level, nullptr)) break;
            // The level is taken to exist already (or to fail for a reason its caller will see).
            if (PathEntryExists(level.Left(slash))) break;
            pending.push_back(length);
            length = slash;
        }
        for (auto it = pending.rbegin(); it != pending.rend(); ++it) {
            if (!sys().CreateDirectoryW(path.Left(*it), nullptr)) return FALSE;
        }
        return TRUE;
    });
}

BOOL DeleteFolders(CString path, BOOL silent, HWND owner) {
    VELMORA_MANAGE_STATE();
    return VelmoraGuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        if (path.IsEmpty() || HasEmbeddedNul(path)) return FALSE;
        const DWORD attributes = sys().GetFileAttributesW(path);
        // Files are not this export's to delete.
        if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return FALSE;
        const CString from = OneEntryList(path);
        SHFILEOPSTRUCTW operation{};
        operation.hwnd = owner;
        operation.wFunc = FO_DELETE;
        operation.pFrom = from;
        operation.pTo = _T("");
        // Never FOF_ALLOWUNDO: the folder is gone for good, not moved to the recycle bin.
        operation.fFlags = silent == 1 ? FOF_SILENT | FOF_NOERRORUI | FOF_NOCONFIRMMKDIR | FOF_NOCONFIRMATION : 0;
        operation.fAnyOperationsAborted = FALSE;
        operation.hNameMappings = nullptr;
        operation.lpszProgressTitle = _T("");
        return sys().SHFileOperationW(&operation) == 0 ? TRUE : FALSE;
    });
}
