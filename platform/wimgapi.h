// The Windows imaging library's published interface (wimgapi.dll): its constants, message ids and the
// shapes of the entry points that callers resolve by name at run time. The SDK header is not part of every
// tool chain, and the library never links wimgapi.dll, so the values are declared here once for both the
// library and the Linux platform's built-in wimgapi.dll.
#pragma once

#include "win32.h"

// Access, dispositions, flags and compression types of WIMCreateFile.
#define WIM_GENERIC_READ 0x80000000UL
#define WIM_GENERIC_WRITE 0x40000000UL
#define WIM_GENERIC_MOUNT 0x20000000UL

#define WIM_CREATE_NEW 1
#define WIM_CREATE_ALWAYS 2
#define WIM_OPEN_EXISTING 3
#define WIM_OPEN_ALWAYS 4

#define WIM_COMPRESS_NONE 0
#define WIM_COMPRESS_XPRESS 1
#define WIM_COMPRESS_LZX 2
#define WIM_COMPRESS_LZMS 3

// What WIMCreateFile reports through its creation-result pointer.
#define WIM_CREATED_NEW 0
#define WIM_OPENED_EXISTING 1

// Flags of WIMCreateFile, WIMCaptureImage and WIMApplyImage.
#define WIM_FLAG_RESERVED 0x00000001
#define WIM_FLAG_VERIFY 0x00000002
#define WIM_FLAG_INDEX 0x00000004
#define WIM_FLAG_NO_APPLY 0x00000008
#define WIM_FLAG_NO_DIRACL 0x00000010
#define WIM_FLAG_NO_FILEACL 0x00000020
#define WIM_FLAG_SHARE_WRITE 0x00000040
#define WIM_FLAG_FILEINFO 0x00000080
#define WIM_FLAG_NO_RP_FIX 0x00000100

#define INVALID_CALLBACK_VALUE 0xFFFFFFFFUL

// Messages of the message callback, and what a callback may answer.
#define WIM_MSG (WM_APP + 0x1476)
#define WIM_MSG_TEXT (WIM_MSG + 1)
#define WIM_MSG_PROGRESS (WIM_MSG + 2)      // wParam: percent done; lParam: milliseconds left (estimate)
#define WIM_MSG_PROCESS (WIM_MSG + 3)       // wParam: full path of the file; lParam: PBOOL, FALSE skips it
#define WIM_MSG_SCANNING (WIM_MSG + 4)
#define WIM_MSG_SETRANGE (WIM_MSG + 5)
#define WIM_MSG_SETPOS (WIM_MSG + 6)
#define WIM_MSG_STEPIT (WIM_MSG + 7)
#define WIM_MSG_COMPRESS (WIM_MSG + 8)
#define WIM_MSG_ERROR (WIM_MSG + 9)
#define WIM_MSG_ALIGNMENT (WIM_MSG + 10)
#define WIM_MSG_RETRY (WIM_MSG + 11)
#define WIM_MSG_SPLIT (WIM_MSG + 12)
#define WIM_MSG_FILEINFO (WIM_MSG + 13)     // wParam: full path of the file; lParam: its WIN32_FIND_DATAW
#define WIM_MSG_INFO (WIM_MSG + 14)
#define WIM_MSG_WARNING (WIM_MSG + 15)
#define WIM_MSG_CHK_PROCESS (WIM_MSG + 16)

#define WIM_MSG_SUCCESS ERROR_SUCCESS
#define WIM_MSG_DONE 0xFFFFFFF0UL
#define WIM_MSG_SKIP_ERROR 0xFFFFFFFEUL
#define WIM_MSG_ABORT_IMAGE 0xFFFFFFFFUL

using WimMessageCallbackFunction = DWORD(CALLBACK*)(DWORD messageId, WPARAM wParam, LPARAM lParam, PVOID userData);

// The entry points, under the names callers pass to GetProcAddress.
using WIMCreateFileFunction = HANDLE(WINAPI*)(PCWSTR path, DWORD access, DWORD disposition, DWORD flags,
                                              DWORD compression, PDWORD creationResult);
using WIMCloseHandleFunction = BOOL(WINAPI*)(HANDLE handle);
using WIMSetTemporaryPathFunction = BOOL(WINAPI*)(HANDLE wim, PCWSTR path);
using WIMRegisterMessageCallbackFunction = DWORD(WINAPI*)(HANDLE wim, FARPROC callback, PVOID userData);
using WIMUnregisterMessageCallbackFunction = BOOL(WINAPI*)(HANDLE wim, FARPROC callback);
using WIMCaptureImageFunction = HANDLE(WINAPI*)(HANDLE wim, PCWSTR path, DWORD captureFlags);
using WIMLoadImageFunction = HANDLE(WINAPI*)(HANDLE wim, DWORD index);
using WIMApplyImageFunction = BOOL(WINAPI*)(HANDLE image, PCWSTR path, DWORD applyFlags);
using WIMMountImageFunction = BOOL(WINAPI*)(PCWSTR mountPath, PCWSTR wimPath, DWORD index, PCWSTR tempPath);
using WIMUnmountImageFunction = BOOL(WINAPI*)(PCWSTR mountPath, PCWSTR wimPath, DWORD index, BOOL commit);
