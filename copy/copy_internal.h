// What the copy exports share inside the library: the progress routine, the overwrite prompt, and the
// pieces of the shell copy that the single- and multi-source forms both use.
#pragma once

#include "../frame/frame_internal.h"

// The buttons of the overwrite prompt, as AskReplaceOrSkip returns them (or IDCANCEL, or 0).
constexpr int kReplaceButton = 100;
constexpr int kSkipButton = 101;
constexpr int kCancelCopyButton = 102;

// The progress routine handed to CopyFileExW: draws the percentage of the file being copied into the
// CProgressCtrl that data points to (none when it is null). Never stops a copy.
DWORD CALLBACK CopyProgressRoutine(LARGE_INTEGER totalFileSize, LARGE_INTEGER totalBytesTransferred,
                                   LARGE_INTEGER streamSize, LARGE_INTEGER streamBytesTransferred, DWORD streamNumber,
                                   DWORD callbackReason, HANDLE sourceFile, HANDLE destinationFile, LPVOID data);

// The whole percentage of transferred out of total, 0 when total is 0 or less.
int CopyPercentage(LONGLONG totalFileSize, LONGLONG totalBytesTransferred);

// Asks whether the existing fileName at the destination is to be replaced: kReplaceButton, kSkipButton,
// kCancelCopyButton, IDCANCEL when the prompt was closed without a choice, 0 when it could not be shown.
int AskReplaceOrSkip(CString fileName, HWND owner);

// The tail of source that is rebuilt under the destination, backslash first: from the last backslash, or
// with withFullPath equal to 1 from the first backslash at index 2 or later when there is one.
CString NamePart(const CString& source, BOOL withFullPath);

// The flags of every shell copy: no question before making folders, the caller's extra flags, and with
// silent equal to 1 no progress, no error messages and no questions.
FILEOP_FLAGS ShellCopyFlags(int silent, WORD extraFlags);

// A shell copy record for the given double-NUL-terminated lists.
SHFILEOPSTRUCTW ShellCopyRecord(HWND owner, LPCWSTR fromList, LPCWSTR toList, FILEOP_FLAGS flags);

// A one-entry shell list: the path with one NUL appended, so that its own terminator makes the second.
CString OneEntryList(const CString& path);

// A path that holds a NUL before its end reads as one path to every platform call but as two entries in a
// shell list, so the exports that build lists refuse it before they touch anything.
inline bool HasEmbeddedNul(const CString& path) {
    const LPCWSTR text = path.GetString();
    for (int i = 0; i < path.GetLength(); ++i) {
        if (text[i] == 0) return true;
    }
    return false;
}

// Writes why a copy ended through the caller's optional detail-code pointer, and gives its result back.
inline BOOL FinishWithCode(int* detailCode, int code, BOOL result) {
    if (detailCode != nullptr) *detailCode = code;
    return result;
}
