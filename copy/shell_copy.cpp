// Shell copy: CopyFiles and CopyFilesEx hand a file or a folder's contents to the shell's file operation;
// CopyFilesEx copies small single files directly instead, after asking before it replaces one.
#include "copy_internal.h"

namespace {

// Detail codes of CopyFilesEx besides the shell's own results and the platform's error codes.
constexpr int kEmptyArgument = -2;
constexpr int kSourceMissing = -3;
constexpr int kNoBackslash = -4;
constexpr int kUserCancelled = -1;
constexpr int kCopiedDirectly = 0;

void StripTrailingBackslashes(CString& path) { path.TrimRight(_T('\\')); }

}  // namespace

CString NamePart(const CString& source, BOOL withFullPath) {
    if (withFullPath == 1) {
        const int first = source.Find(_T('\\'), 2);
        if (first >= 0) return source.Mid(first);
    }
    return source.Mid(source.ReverseFind(_T('\\')));
}

FILEOP_FLAGS ShellCopyFlags(int silent, WORD extraFlags) {
    FILEOP_FLAGS flags = static_cast<FILEOP_FLAGS>(FOF_NOCONFIRMMKDIR | extraFlags);
    if (silent == 1) flags |= FOF_SILENT | FOF_NOERRORUI | FOF_NOCONFIRMATION;
    return flags;
}

SHFILEOPSTRUCTW ShellCopyRecord(HWND owner, LPCWSTR fromList, LPCWSTR toList, FILEOP_FLAGS flags) {
    SHFILEOPSTRUCTW operation{};
    operation.hwnd = owner;
    operation.wFunc = FO_COPY;
    operation.pFrom = fromList;
    operation.pTo = toList;
    operation.fFlags = flags;
    operation.fAnyOperationsAborted = FALSE;
    operation.hNameMappings = nullptr;
    operation.lpszProgressTitle = _T("");
    return operation;
}

CString OneEntryList(const CString& path) {
    CString list = path;
    list += _T('\0');
    return list;
}

BOOL CopyFiles(CString source, CString destination, BOOL silent, WORD extraFlags, HWND owner) {
    VELMORA_MANAGE_STATE();
    return VelmoraGuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        if (source.IsEmpty() || destination.IsEmpty()) return FALSE;
        if (HasEmbeddedNul(source) || HasEmbeddedNul(destination)) return FALSE;
        const DWORD attributes = sys().GetFileAttributesW(source);
        if (attributes == INVALID_FILE_ATTRIBUTES) return FALSE;
        // Shorter sources (a bare drive, say) go to the shell as they are.
        if (source.GetLength() >= 3) {
            const int slash = source.ReverseFind(_T('\\'));
            if (slash < 0) return FALSE;
            if (attributes & FILE_ATTRIBUTE_DIRECTORY) {
                // The folder's contents, not the folder itself, land in the destination.
                source += _T("\\*.*");
            } else {
                // The destination names the copy itself; a trailing backslash there is kept as it is.
                destination += source.Mid(slash);
            }
        }
        const CString from = OneEntryList(source);
        const CString to = OneEntryList(destination);
        SHFILEOPSTRUCTW operation = ShellCopyRecord(owner, from, to, ShellCopyFlags(silent, extraFlags));
        return sys().SHFileOperationW(&operation) == 0 ? TRUE : FALSE;
    });
}

BOOL CopyFilesEx(CString source, CString destination, int silent, WORD extraFlags, BOOL withFolderName, BOOL withFullPath,
                 ULONGLONG directCopyLimit, int* detailCode, HWND owner) {
    VELMORA_MANAGE_STATE();
    return VelmoraGuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        if (source.IsEmpty() || destination.IsEmpty()) return FinishWithCode(detailCode, kEmptyArgument, FALSE);
        // Not a usable path, as an empty one is not.
        if (HasEmbeddedNul(source) || HasEmbeddedNul(destination)) return FinishWithCode(detailCode, kEmptyArgument, FALSE);
        const DWORD attributes = sys().GetFileAttributesW(source);
        if (attributes == INVALID_FILE_ATTRIBUTES) return FinishWithCode(detailCode, kSourceMissing, FALSE);
        if (source.ReverseFind(_T('\\')) < 0) return FinishWithCode(detailCode, kNoBackslash, FALSE);
        const CString namePart = NamePart(source, withFullPath);

        if (attributes & FILE_ATTRIBUTE_DIRECTORY) {
            if (withFolderName == 1 || withFullPath == 1) {
                StripTrailingBackslashes(destination);
                destination += namePart;
            }
            source += _T("\\*.*");
        } else {
            CString name = namePart;
            name.TrimLeft(_T('\\'));
            StripTrailingBackslashes(destination);
            destination += _T('\\');
            destination += name;
            ULONGLONG size = 0;
            if (!GetFileLength(source, &size)) size = 0;

            // Small files when the caller allows questions: copied here, asking before replacing.
            const bool direct = size <= directCopyLimit && silent == 0 && (extraFlags & FOF_NOCONFIRMATION) == 0;
            if (direct) {
                if (sys().PathFileExistsW(destination)) {
                    const int answer = AskReplaceOrSkip(name, owner);
                    if (answer == kSkipButton || answer == IDCANCEL) return FinishWithCode(detailCode, ERROR_ALREADY_EXISTS, FALSE);
                    if (answer == kCancelCopyButton) return FinishWithCode(detailCode, kUserCancelled, FALSE);
                    // Replace, or a prompt that could not be shown: the copy goes ahead.
                }
                // D:\bk\a is made for D:\bk\a\b.txt; a file straight under a root needs no folder.
                const int slash = destination.ReverseFind(_T('\\'));
                if (slash > 3) CreateFolders(destination.Left(slash));
                const BOOL copied = sys().CopyFileW(source, destination, FALSE);
                return FinishWithCode(detailCode, copied == TRUE ? kCopiedDirectly : static_cast<int>(sys().GetLastError()), copied);
            }
        }

        const CString from = OneEntryList(source);
        const CString to = OneEntryList(destination);
        SHFILEOPSTRUCTW operation = ShellCopyRecord(owner, from, to, ShellCopyFlags(silent, extraFlags));
        const int result = sys().SHFileOperationW(&operation);
        return FinishWithCode(detailCode, result, result == 0 ? TRUE : FALSE);
    });
}
