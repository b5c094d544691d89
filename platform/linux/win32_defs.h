// Win32 types, constants and structures for the Linux build, with the Windows SDK's names, sizes and values.
#pragma once

#include <cstddef>
#include <cstdint>

#define WINAPI
#define CALLBACK
#define APIENTRY

#define _T(x) u##x
#define TEXT(x) u##x

typedef int BOOL;
typedef uint8_t BYTE;
typedef uint8_t BOOLEAN;
typedef uint16_t WORD;
typedef uint16_t USHORT;
typedef int16_t SHORT;
typedef uint32_t DWORD;
typedef int32_t LONG;
typedef uint32_t ULONG;
typedef int32_t INT;
typedef uint32_t UINT;
typedef int64_t LONGLONG;
typedef uint64_t ULONGLONG;
typedef uint64_t DWORD64;
typedef uint64_t DWORDLONG;
typedef int64_t __time64_t;
typedef intptr_t INT_PTR;
typedef uintptr_t UINT_PTR;
typedef intptr_t LONG_PTR;
typedef uintptr_t ULONG_PTR;
typedef ULONG_PTR DWORD_PTR;
typedef ULONG_PTR SIZE_T;
typedef LONG_PTR SSIZE_T;
typedef LONG HRESULT;
typedef LONG NTSTATUS;
typedef char CHAR;
typedef char16_t WCHAR;
typedef WCHAR TCHAR;
typedef void VOID;
typedef void* PVOID;
typedef void* LPVOID;
typedef const void* LPCVOID;
typedef BOOL* LPBOOL;
typedef BYTE* LPBYTE;
typedef DWORD* LPDWORD;
typedef DWORD* PDWORD;
typedef LONG* PLONG;
typedef ULONG* PULONG;
typedef WORD* LPWORD;
typedef WCHAR* LPWSTR;
typedef WCHAR* PWSTR;
typedef const WCHAR* LPCWSTR;
typedef const WCHAR* PCWSTR;
typedef TCHAR* LPTSTR;
typedef const TCHAR* LPCTSTR;
typedef char* LPSTR;
typedef const char* LPCSTR;
typedef UINT_PTR WPARAM;
typedef LONG_PTR LPARAM;
typedef LONG_PTR LRESULT;
typedef WORD ATOM;

typedef void* HANDLE;
typedef HANDLE* PHANDLE;
typedef HANDLE* LPHANDLE;
struct HWND__;
typedef HWND__* HWND;
struct HINSTANCE__;
typedef HINSTANCE__* HINSTANCE;
typedef HINSTANCE HMODULE;
struct HMENU__;
typedef HMENU__* HMENU;
struct HICON__;
typedef HICON__* HICON;
typedef HICON HCURSOR;
struct HBRUSH__;
typedef HBRUSH__* HBRUSH;
struct HFONT__;
typedef HFONT__* HFONT;
struct HDC__;
typedef HDC__* HDC;
typedef ULONG_PTR HCRYPTPROV;
typedef ULONG_PTR HCRYPTHASH;
typedef ULONG_PTR HCRYPTKEY;
typedef UINT ALG_ID;
typedef int (*FARPROC)();

#define TRUE 1
#define FALSE 0
#define MAX_PATH 260

#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)))
#define INVALID_FILE_ATTRIBUTES (static_cast<DWORD>(-1))
#define INVALID_FILE_SIZE (static_cast<DWORD>(0xFFFFFFFF))
#define INVALID_SET_FILE_POINTER (static_cast<DWORD>(-1))

#define LOWORD(l) (static_cast<WORD>(static_cast<DWORD_PTR>(l) & 0xffff))
#define HIWORD(l) (static_cast<WORD>((static_cast<DWORD_PTR>(l) >> 16) & 0xffff))
#define MAKELONG(a, b) (static_cast<LONG>((static_cast<WORD>(static_cast<DWORD_PTR>(a) & 0xffff)) | (static_cast<DWORD>(static_cast<WORD>(static_cast<DWORD_PTR>(b) & 0xffff))) << 16))
#define MAKELPARAM(l, h) (static_cast<LPARAM>(static_cast<DWORD>(MAKELONG(l, h))))

typedef union _LARGE_INTEGER {
    struct {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
} LARGE_INTEGER, *PLARGE_INTEGER;

typedef union _ULARGE_INTEGER {
    struct {
        DWORD LowPart;
        DWORD HighPart;
    } u;
    ULONGLONG QuadPart;
} ULARGE_INTEGER, *PULARGE_INTEGER;

typedef struct _FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
} FILETIME, *PFILETIME, *LPFILETIME;

typedef struct _SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
} SYSTEMTIME, *PSYSTEMTIME, *LPSYSTEMTIME;

typedef struct _SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
} SECURITY_ATTRIBUTES, *PSECURITY_ATTRIBUTES, *LPSECURITY_ATTRIBUTES;

typedef struct _OVERLAPPED {
    ULONG_PTR Internal;
    ULONG_PTR InternalHigh;
    union {
        struct {
            DWORD Offset;
            DWORD OffsetHigh;
        } s;
        PVOID Pointer;
    } u;
    HANDLE hEvent;
} OVERLAPPED, *LPOVERLAPPED;

typedef struct _WIN32_FIND_DATAW {
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD dwReserved0;
    DWORD dwReserved1;
    WCHAR cFileName[MAX_PATH];
    WCHAR cAlternateFileName[14];
} WIN32_FIND_DATAW, *PWIN32_FIND_DATAW, *LPWIN32_FIND_DATAW;

typedef struct _BY_HANDLE_FILE_INFORMATION {
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD dwVolumeSerialNumber;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD nNumberOfLinks;
    DWORD nFileIndexHigh;
    DWORD nFileIndexLow;
} BY_HANDLE_FILE_INFORMATION, *PBY_HANDLE_FILE_INFORMATION, *LPBY_HANDLE_FILE_INFORMATION;

typedef struct _WIN32_FILE_ATTRIBUTE_DATA {
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
} WIN32_FILE_ATTRIBUTE_DATA, *LPWIN32_FILE_ATTRIBUTE_DATA;

typedef enum _GET_FILEEX_INFO_LEVELS { GetFileExInfoStandard, GetFileExMaxInfoLevel } GET_FILEEX_INFO_LEVELS;

// File attributes
#define FILE_ATTRIBUTE_READONLY 0x00000001
#define FILE_ATTRIBUTE_HIDDEN 0x00000002
#define FILE_ATTRIBUTE_SYSTEM 0x00000004
#define FILE_ATTRIBUTE_DIRECTORY 0x00000010
#define FILE_ATTRIBUTE_ARCHIVE 0x00000020
#define FILE_ATTRIBUTE_DEVICE 0x00000040
#define FILE_ATTRIBUTE_NORMAL 0x00000080
#define FILE_ATTRIBUTE_TEMPORARY 0x00000100
#define FILE_ATTRIBUTE_SPARSE_FILE 0x00000200
#define FILE_ATTRIBUTE_REPARSE_POINT 0x00000400
#define FILE_ATTRIBUTE_COMPRESSED 0x00000800
#define FILE_ATTRIBUTE_OFFLINE 0x00001000
#define FILE_ATTRIBUTE_NOT_CONTENT_INDEXED 0x00002000
#define FILE_ATTRIBUTE_ENCRYPTED 0x00004000

// Access rights
#define DELETE 0x00010000L
#define READ_CONTROL 0x00020000L
#define WRITE_DAC 0x00040000L
#define WRITE_OWNER 0x00080000L
#define SYNCHRONIZE 0x00100000L
#define ACCESS_SYSTEM_SECURITY 0x01000000L
#define MAXIMUM_ALLOWED 0x02000000L
#define GENERIC_READ 0x80000000L
#define GENERIC_WRITE 0x40000000L
#define GENERIC_EXECUTE 0x20000000L
#define GENERIC_ALL 0x10000000L
#define FILE_READ_DATA 0x0001
#define FILE_LIST_DIRECTORY 0x0001
#define FILE_WRITE_DATA 0x0002
#define FILE_ADD_FILE 0x0002
#define FILE_APPEND_DATA 0x0004
#define FILE_READ_EA 0x0008
#define FILE_WRITE_EA 0x0010
#define FILE_EXECUTE 0x0020
#define FILE_TRAVERSE 0x0020
#define FILE_READ_ATTRIBUTES 0x0080
#define FILE_WRITE_ATTRIBUTES 0x0100

// Sharing and creation
#define FILE_SHARE_READ 0x00000001
#define FILE_SHARE_WRITE 0x00000002
#define FILE_SHARE_DELETE 0x00000004
#define CREATE_NEW 1
#define CREATE_ALWAYS 2
#define OPEN_EXISTING 3
#define OPEN_ALWAYS 4
#define TRUNCATE_EXISTING 5
#define FILE_FLAG_WRITE_THROUGH 0x80000000
#define FILE_FLAG_OVERLAPPED 0x40000000
#define FILE_FLAG_NO_BUFFERING 0x20000000
#define FILE_FLAG_RANDOM_ACCESS 0x10000000
#define FILE_FLAG_SEQUENTIAL_SCAN 0x08000000
#define FILE_FLAG_DELETE_ON_CLOSE 0x04000000
#define FILE_FLAG_BACKUP_SEMANTICS 0x02000000
#define FILE_FLAG_POSIX_SEMANTICS 0x01000000
#define FILE_FLAG_OPEN_REPARSE_POINT 0x00200000

#define FILE_BEGIN 0
#define FILE_CURRENT 1
#define FILE_END 2

// Find
typedef enum _FINDEX_INFO_LEVELS { FindExInfoStandard, FindExInfoBasic, FindExInfoMaxInfoLevel } FINDEX_INFO_LEVELS;
typedef enum _FINDEX_SEARCH_OPS {
    FindExSearchNameMatch,
    FindExSearchLimitToDirectories,
    FindExSearchLimitToDevices,
    FindExSearchMaxSearchOp
} FINDEX_SEARCH_OPS;

// Error codes
#define ERROR_SUCCESS 0L
#define NO_ERROR 0L
#define ERROR_INVALID_FUNCTION 1L
#define ERROR_FILE_NOT_FOUND 2L
#define ERROR_PATH_NOT_FOUND 3L
#define ERROR_TOO_MANY_OPEN_FILES 4L
#define ERROR_ACCESS_DENIED 5L
#define ERROR_INVALID_HANDLE 6L
#define ERROR_NOT_ENOUGH_MEMORY 8L
#define ERROR_INVALID_DATA 13L
#define ERROR_OUTOFMEMORY 14L
#define ERROR_INVALID_DRIVE 15L
#define ERROR_CURRENT_DIRECTORY 16L
#define ERROR_NOT_SAME_DEVICE 17L
#define ERROR_NO_MORE_FILES 18L
#define ERROR_WRITE_PROTECT 19L
#define ERROR_NOT_READY 21L
#define ERROR_CRC 23L
#define ERROR_SEEK 25L
#define ERROR_WRITE_FAULT 29L
#define ERROR_READ_FAULT 30L
#define ERROR_GEN_FAILURE 31L
#define ERROR_SHARING_VIOLATION 32L
#define ERROR_LOCK_VIOLATION 33L
#define ERROR_HANDLE_EOF 38L
#define ERROR_HANDLE_DISK_FULL 39L
#define ERROR_NOT_SUPPORTED 50L
#define ERROR_FILE_EXISTS 80L
#define ERROR_CANNOT_MAKE 82L
#define ERROR_INVALID_PARAMETER 87L
#define ERROR_BROKEN_PIPE 109L
#define ERROR_DISK_FULL 112L
#define ERROR_CALL_NOT_IMPLEMENTED 120L
#define ERROR_INSUFFICIENT_BUFFER 122L
#define ERROR_INVALID_NAME 123L
#define ERROR_MOD_NOT_FOUND 126L
#define ERROR_PROC_NOT_FOUND 127L
#define ERROR_NEGATIVE_SEEK 131L
#define ERROR_DIR_NOT_EMPTY 145L
#define ERROR_BAD_PATHNAME 161L
#define ERROR_BUSY 170L
#define ERROR_ALREADY_EXISTS 183L
#define ERROR_FILENAME_EXCED_RANGE 206L
#define ERROR_MORE_DATA 234L
#define ERROR_NO_MORE_ITEMS 259L
#define ERROR_DIRECTORY 267L
#define ERROR_DLL_INIT_FAILED 1114L
#define ERROR_OPERATION_ABORTED 995L
#define ERROR_IO_PENDING 997L
#define ERROR_NOACCESS 998L
#define ERROR_INVALID_FLAGS 1004L
#define ERROR_CANT_RESOLVE_FILENAME 1921L
#define ERROR_CANCELLED 1223L
#define ERROR_REQUEST_ABORTED 1235L
#define ERROR_PRIVILEGE_NOT_HELD 1314L
#define ERROR_NOT_ALL_ASSIGNED 1300L
#define ERROR_INVALID_WINDOW_HANDLE 1400L
#define ERROR_CLASS_ALREADY_EXISTS 1410L
#define ERROR_CLASS_DOES_NOT_EXIST 1411L
#define ERROR_DIR_NOT_ROOT 144L

// Device I/O control codes
#define CTL_CODE(DeviceType, Function, Method, Access) \
    ((static_cast<DWORD>(DeviceType) << 16) | (static_cast<DWORD>(Access) << 14) | (static_cast<DWORD>(Function) << 2) | (static_cast<DWORD>(Method)))
#define METHOD_BUFFERED 0
#define METHOD_IN_DIRECT 1
#define METHOD_OUT_DIRECT 2
#define METHOD_NEITHER 3
#define FILE_ANY_ACCESS 0
#define FILE_READ_ACCESS 0x0001
#define FILE_WRITE_ACCESS 0x0002
#define FILE_DEVICE_DISK 0x00000007
#define FILE_DEVICE_FILE_SYSTEM 0x00000009
#define FSCTL_SET_COMPRESSION CTL_CODE(FILE_DEVICE_FILE_SYSTEM, 16, METHOD_BUFFERED, FILE_READ_DATA | FILE_WRITE_DATA)
#define FSCTL_GET_COMPRESSION CTL_CODE(FILE_DEVICE_FILE_SYSTEM, 15, METHOD_BUFFERED, FILE_ANY_ACCESS)
#define COMPRESSION_FORMAT_NONE 0x0000
#define COMPRESSION_FORMAT_DEFAULT 0x0001
#define COMPRESSION_FORMAT_LZNT1 0x0002

// Progress routine of CopyFileExW
#define CALLBACK_CHUNK_FINISHED 0x00000000
#define CALLBACK_STREAM_SWITCH 0x00000001
#define PROGRESS_CONTINUE 0
#define PROGRESS_CANCEL 1
#define PROGRESS_STOP 2
#define PROGRESS_QUIET 3
#define COPY_FILE_FAIL_IF_EXISTS 0x00000001
#define COPY_FILE_RESTARTABLE 0x00000002
typedef DWORD(CALLBACK* LPPROGRESS_ROUTINE)(LARGE_INTEGER TotalFileSize, LARGE_INTEGER TotalBytesTransferred,
                                            LARGE_INTEGER StreamSize, LARGE_INTEGER StreamBytesTransferred,
                                            DWORD dwStreamNumber, DWORD dwCallbackReason, HANDLE hSourceFile,
                                            HANDLE hDestinationFile, LPVOID lpData);

// Modules
#define DLL_PROCESS_DETACH 0
#define DLL_PROCESS_ATTACH 1
#define DLL_THREAD_ATTACH 2
#define DLL_THREAD_DETACH 3

// Windows and messages
#define WM_NULL 0x0000
#define WM_CREATE 0x0001
#define WM_DESTROY 0x0002
#define WM_CLOSE 0x0010
#define WM_QUIT 0x0012
#define WM_SETTEXT 0x000C
#define WM_GETTEXT 0x000D
#define WM_GETTEXTLENGTH 0x000E
#define WM_USER 0x0400
#define SW_HIDE 0
#define SW_SHOWNORMAL 1
#define SW_SHOW 5
#define IDOK 1
#define IDCANCEL 2
#define PM_NOREMOVE 0x0000
#define PM_REMOVE 0x0001
#define WM_NCCREATE 0x0081
#define WM_NCDESTROY 0x0082
#define WM_SHOWWINDOW 0x0018
#define WM_TIMER 0x0113
#define WM_KEYDOWN 0x0100
#define WM_COMMAND 0x0111
#define WM_APP 0x8000
#define SW_SHOWNOACTIVATE 4
#define SW_MINIMIZE 6
#define SW_RESTORE 9
#define ERROR_INVALID_INDEX 1413L
#define ERROR_CANNOT_FIND_WND_CLASS 1407L
#define ERROR_WINDOW_OF_OTHER_THREAD 1408L

#define WS_OVERLAPPED 0x00000000L
#define WS_POPUP 0x80000000L
#define WS_CHILD 0x40000000L
#define WS_MINIMIZE 0x20000000L
#define WS_VISIBLE 0x10000000L
#define WS_DISABLED 0x08000000L
#define WS_CLIPSIBLINGS 0x04000000L
#define WS_CLIPCHILDREN 0x02000000L
#define WS_MAXIMIZE 0x01000000L
#define WS_CAPTION 0x00C00000L
#define WS_BORDER 0x00800000L
#define WS_SYSMENU 0x00080000L
#define WS_THICKFRAME 0x00040000L
#define WS_OVERLAPPEDWINDOW 0x00CF0000L
#define WS_EX_TOOLWINDOW 0x00000080L
#define CW_USEDEFAULT (static_cast<int>(0x80000000))
#define HWND_MESSAGE (reinterpret_cast<HWND>(static_cast<LONG_PTR>(-3)))
#define GWLP_WNDPROC (-4)
#define GWLP_HINSTANCE (-6)
#define GWLP_ID (-12)
#define GWLP_USERDATA (-21)

typedef LRESULT(CALLBACK* WNDPROC)(HWND, UINT, WPARAM, LPARAM);

typedef struct tagPOINT {
    LONG x;
    LONG y;
} POINT, *PPOINT, *LPPOINT;

typedef struct tagRECT {
    LONG left;
    LONG top;
    LONG right;
    LONG bottom;
} RECT, *PRECT, *LPRECT;

typedef struct tagMSG {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    DWORD time;
    POINT pt;
} MSG, *PMSG, *LPMSG;

typedef struct tagWNDCLASSW {
    UINT style;
    WNDPROC lpfnWndProc;
    int cbClsExtra;
    int cbWndExtra;
    HINSTANCE hInstance;
    HICON hIcon;
    HCURSOR hCursor;
    HBRUSH hbrBackground;
    LPCWSTR lpszMenuName;
    LPCWSTR lpszClassName;
} WNDCLASSW, *PWNDCLASSW, *LPWNDCLASSW;

typedef struct tagCREATESTRUCTW {
    LPVOID lpCreateParams;
    HINSTANCE hInstance;
    HMENU hMenu;
    HWND hwndParent;
    int cy;
    int cx;
    int y;
    int x;
    LONG style;
    LPCWSTR lpszName;
    LPCWSTR lpszClass;
    DWORD dwExStyle;
} CREATESTRUCTW, *LPCREATESTRUCTW;

// ---- Enumeration and comparison: CryptoAPI hashing, list views

// CryptoAPI
#define PROV_RSA_FULL 1
#define PROV_RSA_AES 24
#define CRYPT_VERIFYCONTEXT 0xF0000000
#define CRYPT_NEWKEYSET 0x00000008
#define CRYPT_DELETEKEYSET 0x00000010
#define CRYPT_MACHINE_KEYSET 0x00000020
#define CRYPT_SILENT 0x00000040
#define HP_ALGID 0x0001
#define HP_HASHVAL 0x0002
#define HP_HASHSIZE 0x0004
#define ALG_CLASS_HASH (4 << 13)
#define ALG_TYPE_ANY 0
#define ALG_SID_MD2 1
#define ALG_SID_MD4 2
#define ALG_SID_MD5 3
#define ALG_SID_SHA1 4
#define ALG_SID_SHA_256 12
#define ALG_SID_SHA_384 13
#define ALG_SID_SHA_512 14
#define CALG_MD2 (ALG_CLASS_HASH | ALG_TYPE_ANY | ALG_SID_MD2)
#define CALG_MD4 (ALG_CLASS_HASH | ALG_TYPE_ANY | ALG_SID_MD4)
#define CALG_MD5 (ALG_CLASS_HASH | ALG_TYPE_ANY | ALG_SID_MD5)
#define CALG_SHA1 (ALG_CLASS_HASH | ALG_TYPE_ANY | ALG_SID_SHA1)
#define CALG_SHA CALG_SHA1
#define CALG_SHA_256 (ALG_CLASS_HASH | ALG_TYPE_ANY | ALG_SID_SHA_256)
#define CALG_SHA_384 (ALG_CLASS_HASH | ALG_TYPE_ANY | ALG_SID_SHA_384)
#define CALG_SHA_512 (ALG_CLASS_HASH | ALG_TYPE_ANY | ALG_SID_SHA_512)
#define NTE_BAD_UID static_cast<DWORD>(0x80090001L)
#define NTE_BAD_HASH static_cast<DWORD>(0x80090002L)
#define NTE_BAD_KEY static_cast<DWORD>(0x80090003L)
#define NTE_BAD_ALGID static_cast<DWORD>(0x80090008L)
#define NTE_BAD_FLAGS static_cast<DWORD>(0x80090009L)
#define NTE_BAD_HASH_STATE static_cast<DWORD>(0x8009000BL)
#define NTE_BAD_TYPE static_cast<DWORD>(0x8009000AL)
#define NTE_BAD_KEYSET static_cast<DWORD>(0x80090016L)
#define NTE_PROV_TYPE_NOT_DEF static_cast<DWORD>(0x80090017L)
#define NTE_BAD_KEYSET_PARAM static_cast<DWORD>(0x8009001FL)
#define NTE_FAIL static_cast<DWORD>(0x80090020L)

// OLE automation date: days since 1899-12-30 00:00, the fraction being the time of day.
typedef double DATE;

// List-view control (comctl32)
#define WC_LISTVIEWW u"SysListView32"
#define LVS_ICON 0x0000
#define LVS_REPORT 0x0001
#define LVS_SMALLICON 0x0002
#define LVS_LIST 0x0003
#define LVS_SINGLESEL 0x0004
#define LVS_SHOWSELALWAYS 0x0008
#define LVS_SORTASCENDING 0x0010
#define LVS_SORTDESCENDING 0x0020
#define LVM_FIRST 0x1000
#define LVM_GETITEMCOUNT (LVM_FIRST + 4)
#define LVM_DELETEITEM (LVM_FIRST + 8)
#define LVM_DELETEALLITEMS (LVM_FIRST + 9)
#define LVM_DELETECOLUMN (LVM_FIRST + 28)
#define LVM_GETITEMW (LVM_FIRST + 75)
#define LVM_INSERTITEMW (LVM_FIRST + 77)
#define LVM_GETCOLUMNW (LVM_FIRST + 95)
#define LVM_INSERTCOLUMNW (LVM_FIRST + 97)
#define LVM_GETITEMTEXTW (LVM_FIRST + 115)
#define LVM_SETITEMTEXTW (LVM_FIRST + 116)
#define LVIF_TEXT 0x00000001
#define LVIF_IMAGE 0x00000002
#define LVIF_PARAM 0x00000004
#define LVIF_STATE 0x00000008
#define LVCF_FMT 0x0001
#define LVCF_WIDTH 0x0002
#define LVCF_TEXT 0x0004
#define LVCF_SUBITEM 0x0008
#define LVCFMT_LEFT 0x0000
#define LVCFMT_RIGHT 0x0001
#define LVCFMT_CENTER 0x0002
#define LPSTR_TEXTCALLBACKW (reinterpret_cast<LPWSTR>(static_cast<LONG_PTR>(-1)))

typedef struct tagLVITEMW {
    UINT mask;
    int iItem;
    int iSubItem;
    UINT state;
    UINT stateMask;
    LPWSTR pszText;
    int cchTextMax;
    int iImage;
    LPARAM lParam;
    int iIndent;
    int iGroupId;
    UINT cColumns;
    UINT* puColumns;
    int* piColFmt;
    int iGroup;
} LVITEMW, *LPLVITEMW;

typedef struct tagLVCOLUMNW {
    UINT mask;
    int fmt;
    int cx;
    LPWSTR pszText;
    int cchTextMax;
    int iSubItem;
    int iImage;
    int iOrder;
    int cxMin;
    int cxDefault;
    int cxIdeal;
} LVCOLUMNW, *LPLVCOLUMNW;

// ---- Copy engine: the shell's file operation, the task dialog and the progress bar.

#ifndef S_OK
#define S_OK (static_cast<HRESULT>(0L))
#endif
#ifndef E_FAIL
#define E_FAIL (static_cast<HRESULT>(0x80004005L))
#endif
#ifndef E_INVALIDARG
#define E_INVALIDARG (static_cast<HRESULT>(0x80070057L))
#endif
#ifndef SUCCEEDED
#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr) (static_cast<HRESULT>(hr) < 0)
#endif
#ifndef IDYES
#define IDABORT 3
#define IDRETRY 4
#define IDIGNORE 5
#define IDYES 6
#define IDNO 7
#endif
#ifndef IDCLOSE
#define IDCLOSE 8
#endif

// SHFileOperationW
#define FO_MOVE 0x0001
#define FO_COPY 0x0002
#define FO_DELETE 0x0003
#define FO_RENAME 0x0004
#define FOF_MULTIDESTFILES 0x0001
#define FOF_CONFIRMMOUSE 0x0002
#define FOF_SILENT 0x0004
#define FOF_RENAMEONCOLLISION 0x0008
#define FOF_NOCONFIRMATION 0x0010
#define FOF_WANTMAPPINGHANDLE 0x0020
#define FOF_ALLOWUNDO 0x0040
#define FOF_FILESONLY 0x0080
#define FOF_SIMPLEPROGRESS 0x0100
#define FOF_NOCONFIRMMKDIR 0x0200
#define FOF_NOERRORUI 0x0400
#define FOF_NOCOPYSECURITYATTRIBS 0x0800
typedef WORD FILEOP_FLAGS;
typedef const WCHAR* PCZZWSTR;
typedef struct _SHFILEOPSTRUCTW {
    HWND hwnd;
    UINT wFunc;
    PCZZWSTR pFrom;
    PCZZWSTR pTo;
    FILEOP_FLAGS fFlags;
    BOOL fAnyOperationsAborted;
    LPVOID hNameMappings;
    PCWSTR lpszProgressTitle;
} SHFILEOPSTRUCTW, *LPSHFILEOPSTRUCTW;

// The shell's own result codes for a file operation that cannot be done as asked.
#define DE_SAMEFILE 0x71
#define DE_MANYSRC1DEST 0x72
#define DE_DESTSUBTREE 0x76
#define DE_MANYDEST 0x7A
#define DE_INVALIDFILES 0x7C
#define DE_FLDDESTISFILE 0x7E
#define DE_FILEDESTISFLD 0x80

// TaskDialogIndirect. The SDK packs these structures to one byte.
#define TDF_ENABLE_HYPERLINKS 0x0001
#define TDF_USE_HICON_MAIN 0x0002
#define TDF_USE_HICON_FOOTER 0x0004
#define TDF_ALLOW_DIALOG_CANCELLATION 0x0008
#define TDF_USE_COMMAND_LINKS 0x0010
#define TDF_USE_COMMAND_LINKS_NO_ICON 0x0020
#define TDCBF_OK_BUTTON 0x0001
#define TDCBF_YES_BUTTON 0x0002
#define TDCBF_NO_BUTTON 0x0004
#define TDCBF_CANCEL_BUTTON 0x0008
#define TDCBF_RETRY_BUTTON 0x0010
#define TDCBF_CLOSE_BUTTON 0x0020
typedef int TASKDIALOG_FLAGS;
typedef int TASKDIALOG_COMMON_BUTTON_FLAGS;
typedef HRESULT(CALLBACK* PFTASKDIALOGCALLBACK)(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam, LONG_PTR lpRefData);
#pragma pack(push, 1)
typedef struct _TASKDIALOG_BUTTON {
    int nButtonID;
    PCWSTR pszButtonText;
} TASKDIALOG_BUTTON;
typedef struct _TASKDIALOGCONFIG {
    UINT cbSize;
    HWND hwndParent;
    HINSTANCE hInstance;
    TASKDIALOG_FLAGS dwFlags;
    TASKDIALOG_COMMON_BUTTON_FLAGS dwCommonButtons;
    PCWSTR pszWindowTitle;
    union {
        HICON hMainIcon;
        PCWSTR pszMainIcon;
    };
    PCWSTR pszMainInstruction;
    PCWSTR pszContent;
    UINT cButtons;
    const TASKDIALOG_BUTTON* pButtons;
    int nDefaultButton;
    UINT cRadioButtons;
    const TASKDIALOG_BUTTON* pRadioButtons;
    int nDefaultRadioButton;
    PCWSTR pszVerificationText;
    PCWSTR pszExpandedInformation;
    PCWSTR pszExpandedControlText;
    PCWSTR pszCollapsedControlText;
    union {
        HICON hFooterIcon;
        PCWSTR pszFooterIcon;
    };
    PCWSTR pszFooter;
    PFTASKDIALOGCALLBACK pfCallback;
    LONG_PTR lpCallbackData;
    UINT cxWidth;
} TASKDIALOGCONFIG;
#pragma pack(pop)
static_assert(sizeof(TASKDIALOGCONFIG) == 160, "TASKDIALOGCONFIG has the SDK's packed layout");

// The progress bar control.
#define PROGRESS_CLASSW u"msctls_progress32"
#define PBM_SETRANGE (WM_USER + 1)
#define PBM_SETPOS (WM_USER + 2)
#define PBM_DELTAPOS (WM_USER + 3)
#define PBM_SETSTEP (WM_USER + 4)
#define PBM_STEPIT (WM_USER + 5)
#define PBM_SETRANGE32 (WM_USER + 6)
#define PBM_GETRANGE (WM_USER + 7)
#define PBM_GETPOS (WM_USER + 8)
typedef struct {
    int iLow;
    int iHigh;
} PBRANGE, *PPBRANGE;

// The shell refuses to delete, move or rename a volume's root folder.
#define DE_ROOTDIR 0x74

// ---- Shell archives and shortcuts: COM, automation types, the shell's folder objects and shell links.
// Interfaces are declared in the order of the published ones, so that vtable slots match Windows.
#define ERROR_FILE_CORRUPT 1392L
typedef int errno_t;
typedef WCHAR OLECHAR;
typedef OLECHAR* LPOLESTR;
typedef const OLECHAR* LPCOLESTR;
typedef OLECHAR* BSTR;
typedef SHORT VARIANT_BOOL;
typedef WORD VARTYPE;
typedef DWORD LCID;
typedef LONG DISPID;
#define VARIANT_TRUE (static_cast<VARIANT_BOOL>(-1))
#define VARIANT_FALSE (static_cast<VARIANT_BOOL>(0))
typedef struct _GUID {
    DWORD Data1;
    WORD Data2;
    WORD Data3;
    BYTE Data4[8];
} GUID, IID, CLSID;
typedef const GUID& REFGUID;
typedef const IID& REFIID;
typedef const CLSID& REFCLSID;
inline bool IsEqualGUID(REFGUID a, REFGUID b) {
    if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
    for (int at = 0; at < 8; ++at) {
        if (a.Data4[at] != b.Data4[at]) return false;
    }
    return true;
}
inline bool operator==(REFGUID a, REFGUID b) { return IsEqualGUID(a, b); }
inline bool operator!=(REFGUID a, REFGUID b) { return !IsEqualGUID(a, b); }

#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr) (static_cast<HRESULT>(hr) < 0)
#define S_OK (static_cast<HRESULT>(0L))
#define S_FALSE (static_cast<HRESULT>(1L))
#define E_NOTIMPL (static_cast<HRESULT>(0x80004001L))
#define E_NOINTERFACE (static_cast<HRESULT>(0x80004002L))
#define E_POINTER (static_cast<HRESULT>(0x80004003L))
#define E_ABORT (static_cast<HRESULT>(0x80004004L))
#define E_FAIL (static_cast<HRESULT>(0x80004005L))
#define E_UNEXPECTED (static_cast<HRESULT>(0x8000FFFFL))
#define E_ACCESSDENIED (static_cast<HRESULT>(0x80070005L))
#define E_OUTOFMEMORY (static_cast<HRESULT>(0x8007000EL))
#define E_INVALIDARG (static_cast<HRESULT>(0x80070057L))
#define REGDB_E_CLASSNOTREG (static_cast<HRESULT>(0x80040154L))
#define CLASS_E_NOAGGREGATION (static_cast<HRESULT>(0x80040110L))
#define CO_E_NOTINITIALIZED (static_cast<HRESULT>(0x800401F0L))
#define RPC_E_CHANGED_MODE (static_cast<HRESULT>(0x80010106L))
#define DISP_E_MEMBERNOTFOUND (static_cast<HRESULT>(0x80020003L))
#define DISP_E_TYPEMISMATCH (static_cast<HRESULT>(0x80020005L))
#define FACILITY_WIN32 7
#define HRESULT_FROM_WIN32(x) \
    (static_cast<HRESULT>(x) <= 0 ? static_cast<HRESULT>(x) \
                                  : static_cast<HRESULT>((static_cast<DWORD>(x) & 0x0000FFFF) | (FACILITY_WIN32 << 16) | 0x80000000))

#define COINIT_APARTMENTTHREADED 0x2
#define COINIT_MULTITHREADED 0x0
#define CLSCTX_INPROC_SERVER 0x1
#define STGM_READ 0x00000000L
#define STGM_WRITE 0x00000001L
#define STGM_READWRITE 0x00000002L

enum VARENUM : VARTYPE { VT_EMPTY = 0, VT_NULL = 1, VT_I2 = 2, VT_I4 = 3, VT_BSTR = 8, VT_DISPATCH = 9, VT_BOOL = 11,
                         VT_UNKNOWN = 13, VT_INT = 22 };

struct IUnknown;
struct IDispatch;
struct ITypeInfo;
typedef IUnknown* LPUNKNOWN;

// The 24-byte VARIANT of 64-bit Windows: the type, three reserved words, then the value.
typedef struct tagVARIANT {
    VARTYPE vt;
    WORD wReserved1;
    WORD wReserved2;
    WORD wReserved3;
    union {
        LONGLONG llVal;
        LONG lVal;
        SHORT iVal;
        INT intVal;
        VARIANT_BOOL boolVal;
        BSTR bstrVal;
        IUnknown* punkVal;
        IDispatch* pdispVal;
        void* byref;
        struct {
            PVOID pvRecord;
            PVOID pRecInfo;
        } brecVal;
    };
} VARIANT, VARIANTARG;
static_assert(sizeof(VARIANT) == 24, "VARIANT has the 64-bit SDK's layout");

typedef struct tagDISPPARAMS {
    VARIANTARG* rgvarg;
    DISPID* rgdispidNamedArgs;
    UINT cArgs;
    UINT cNamedArgs;
} DISPPARAMS;
typedef struct tagEXCEPINFO {
    WORD wCode;
    WORD wReserved;
    BSTR bstrSource;
    BSTR bstrDescription;
    BSTR bstrHelpFile;
    DWORD dwHelpContext;
    PVOID pvReserved;
    HRESULT(WINAPI* pfnDeferredFillIn)(struct tagEXCEPINFO*);
    LONG scode;
} EXCEPINFO;

#define STDMETHODCALLTYPE WINAPI
#define STDMETHOD(name) virtual HRESULT STDMETHODCALLTYPE name
#define STDMETHOD_(type, name) virtual type STDMETHODCALLTYPE name
#define PURE = 0

struct IUnknown {
    STDMETHOD(QueryInterface)(REFIID riid, void** object) PURE;
    STDMETHOD_(ULONG, AddRef)() PURE;
    STDMETHOD_(ULONG, Release)() PURE;
};

struct IDispatch : IUnknown {
    STDMETHOD(GetTypeInfoCount)(UINT* count) PURE;
    STDMETHOD(GetTypeInfo)(UINT index, LCID locale, ITypeInfo** info) PURE;
    STDMETHOD(GetIDsOfNames)(REFIID riid, LPOLESTR* names, UINT count, LCID locale, DISPID* ids) PURE;
    STDMETHOD(Invoke)(DISPID member, REFIID riid, LCID locale, WORD flags, DISPPARAMS* params, VARIANT* result,
                      EXCEPINFO* exception, UINT* argumentError) PURE;
};

struct Folder;
struct FolderItem;
struct FolderItems;
struct FolderItemVerbs;

struct IShellDispatch : IDispatch {
    STDMETHOD(get_Application)(IDispatch** application) PURE;
    STDMETHOD(get_Parent)(IDispatch** parent) PURE;
    STDMETHOD(NameSpace)(VARIANT folder, Folder** result) PURE;
    STDMETHOD(BrowseForFolder)(LONG window, BSTR title, LONG options, VARIANT root, Folder** result) PURE;
    STDMETHOD(Windows)(IDispatch** windows) PURE;
    STDMETHOD(Open)(VARIANT folder) PURE;
    STDMETHOD(Explore)(VARIANT folder) PURE;
    STDMETHOD(MinimizeAll)() PURE;
    STDMETHOD(UndoMinimizeALL)() PURE;
    STDMETHOD(FileRun)() PURE;
    STDMETHOD(CascadeWindows)() PURE;
    STDMETHOD(TileVertically)() PURE;
    STDMETHOD(TileHorizontally)() PURE;
    STDMETHOD(ShutdownWindows)() PURE;
    STDMETHOD(Suspend)() PURE;
    STDMETHOD(EjectPC)() PURE;
    STDMETHOD(SetTime)() PURE;
    STDMETHOD(TrayProperties)() PURE;
    STDMETHOD(Help)() PURE;
    STDMETHOD(FindFiles)() PURE;
    STDMETHOD(FindComputer)() PURE;
    STDMETHOD(RefreshMenu)() PURE;
    STDMETHOD(ControlPanelItem)(BSTR file) PURE;
};

struct Folder : IDispatch {
    STDMETHOD(get_Title)(BSTR* title) PURE;
    STDMETHOD(get_Application)(IDispatch** application) PURE;
    STDMETHOD(get_Parent)(IDispatch** parent) PURE;
    STDMETHOD(get_ParentFolder)(Folder** parent) PURE;
    STDMETHOD(Items)(FolderItems** items) PURE;
    STDMETHOD(ParseName)(BSTR name, FolderItem** item) PURE;
    STDMETHOD(NewFolder)(BSTR name, VARIANT options) PURE;
    STDMETHOD(MoveHere)(VARIANT item, VARIANT options) PURE;
    STDMETHOD(CopyHere)(VARIANT item, VARIANT options) PURE;
    STDMETHOD(GetDetailsOf)(VARIANT item, int column, BSTR* text) PURE;
};

struct FolderItems : IDispatch {
    STDMETHOD(get_Count)(LONG* count) PURE;
    STDMETHOD(get_Application)(IDispatch** application) PURE;
    STDMETHOD(get_Parent)(IDispatch** parent) PURE;
    STDMETHOD(Item)(VARIANT index, FolderItem** item) PURE;
    STDMETHOD(_NewEnum)(IUnknown** enumerator) PURE;
};

struct FolderItem : IDispatch {
    STDMETHOD(get_Application)(IDispatch** application) PURE;
    STDMETHOD(get_Parent)(IDispatch** parent) PURE;
    STDMETHOD(get_Name)(BSTR* name) PURE;
    STDMETHOD(put_Name)(BSTR name) PURE;
    STDMETHOD(get_Path)(BSTR* path) PURE;
    STDMETHOD(get_GetLink)(IDispatch** link) PURE;
    STDMETHOD(get_GetFolder)(IDispatch** folder) PURE;
    STDMETHOD(get_IsLink)(VARIANT_BOOL* value) PURE;
    STDMETHOD(get_IsFolder)(VARIANT_BOOL* value) PURE;
    STDMETHOD(get_IsFileSystem)(VARIANT_BOOL* value) PURE;
    STDMETHOD(get_IsBrowsable)(VARIANT_BOOL* value) PURE;
    STDMETHOD(get_ModifyDate)(DATE* date) PURE;
    STDMETHOD(put_ModifyDate)(DATE date) PURE;
    STDMETHOD(get_Size)(LONG* size) PURE;
    STDMETHOD(get_Type)(BSTR* type) PURE;
    STDMETHOD(Verbs)(FolderItemVerbs** verbs) PURE;
    STDMETHOD(InvokeVerb)(VARIANT verb) PURE;
};

struct _ITEMIDLIST;
typedef _ITEMIDLIST* PIDLIST_ABSOLUTE;
typedef const _ITEMIDLIST* PCIDLIST_ABSOLUTE;

struct IShellLinkW : IUnknown {
    STDMETHOD(GetPath)(LPWSTR file, int capacity, WIN32_FIND_DATAW* findData, DWORD flags) PURE;
    STDMETHOD(GetIDList)(PIDLIST_ABSOLUTE* list) PURE;
    STDMETHOD(SetIDList)(PCIDLIST_ABSOLUTE list) PURE;
    STDMETHOD(GetDescription)(LPWSTR name, int capacity) PURE;
    STDMETHOD(SetDescription)(LPCWSTR name) PURE;
    STDMETHOD(GetWorkingDirectory)(LPWSTR folder, int capacity) PURE;
    STDMETHOD(SetWorkingDirectory)(LPCWSTR folder) PURE;
    STDMETHOD(GetArguments)(LPWSTR arguments, int capacity) PURE;
    STDMETHOD(SetArguments)(LPCWSTR arguments) PURE;
    STDMETHOD(GetHotkey)(WORD* hotkey) PURE;
    STDMETHOD(SetHotkey)(WORD hotkey) PURE;
    STDMETHOD(GetShowCmd)(int* showCommand) PURE;
    STDMETHOD(SetShowCmd)(int showCommand) PURE;
    STDMETHOD(GetIconLocation)(LPWSTR iconPath, int capacity, int* icon) PURE;
    STDMETHOD(SetIconLocation)(LPCWSTR iconPath, int icon) PURE;
    STDMETHOD(SetRelativePath)(LPCWSTR path, DWORD reserved) PURE;
    STDMETHOD(Resolve)(HWND window, DWORD flags) PURE;
    STDMETHOD(SetPath)(LPCWSTR file) PURE;
};

struct IPersist : IUnknown {
    STDMETHOD(GetClassID)(CLSID* classId) PURE;
};

struct IPersistFile : IPersist {
    STDMETHOD(IsDirty)() PURE;
    STDMETHOD(Load)(LPCOLESTR fileName, DWORD mode) PURE;
    STDMETHOD(Save)(LPCOLESTR fileName, BOOL remember) PURE;
    STDMETHOD(SaveCompleted)(LPCOLESTR fileName) PURE;
    STDMETHOD(GetCurFile)(LPOLESTR* fileName) PURE;
};
// WIM images: run-time libraries, the imaging library's errors and the timers a window shows progress by.
#define ERROR_BAD_FORMAT 11L
#define ERROR_FILE_CORRUPT 1392L
#define ERROR_DLL_INIT_FAILED 1114L
#define USER_TIMER_MINIMUM 0x0000000A
typedef VOID(CALLBACK* TIMERPROC)(HWND window, UINT message, UINT_PTR id, DWORD time);
#define WC_STATICW u"Static"
// Odd files of a host folder (pipes, sockets, devices): what Windows answers for an entry it cannot open.
#define ERROR_CANT_ACCESS_FILE 1920L

// ---- Security descriptors, SIDs, access lists and the process token (advapi32), and local memory.
typedef DWORD SECURITY_INFORMATION, *PSECURITY_INFORMATION;
typedef WORD SECURITY_DESCRIPTOR_CONTROL, *PSECURITY_DESCRIPTOR_CONTROL;
typedef PVOID PSECURITY_DESCRIPTOR;
typedef PVOID PSID;
typedef DWORD ACCESS_MASK;
typedef void* HLOCAL;

#define OWNER_SECURITY_INFORMATION 0x00000001L
#define GROUP_SECURITY_INFORMATION 0x00000002L
#define DACL_SECURITY_INFORMATION 0x00000004L
#define SACL_SECURITY_INFORMATION 0x00000008L
#define LABEL_SECURITY_INFORMATION 0x00000010L
#define ATTRIBUTE_SECURITY_INFORMATION 0x00000020L
#define SCOPE_SECURITY_INFORMATION 0x00000040L
#define PROCESS_TRUST_LABEL_SECURITY_INFORMATION 0x00000080L
#define BACKUP_SECURITY_INFORMATION 0x00010000L
#define PROTECTED_DACL_SECURITY_INFORMATION 0x80000000L
#define PROTECTED_SACL_SECURITY_INFORMATION 0x40000000L
#define UNPROTECTED_DACL_SECURITY_INFORMATION 0x20000000L
#define UNPROTECTED_SACL_SECURITY_INFORMATION 0x10000000L

#define SECURITY_DESCRIPTOR_REVISION 1
#define SECURITY_DESCRIPTOR_MIN_LENGTH 40
#define SE_OWNER_DEFAULTED 0x0001
#define SE_GROUP_DEFAULTED 0x0002
#define SE_DACL_PRESENT 0x0004
#define SE_DACL_DEFAULTED 0x0008
#define SE_SACL_PRESENT 0x0010
#define SE_SACL_DEFAULTED 0x0020
#define SE_DACL_AUTO_INHERIT_REQ 0x0100
#define SE_SACL_AUTO_INHERIT_REQ 0x0200
#define SE_DACL_AUTO_INHERITED 0x0400
#define SE_SACL_AUTO_INHERITED 0x0800
#define SE_DACL_PROTECTED 0x1000
#define SE_SACL_PROTECTED 0x2000
#define SE_RM_CONTROL_VALID 0x4000
#define SE_SELF_RELATIVE 0x8000

// The in-memory (absolute) form holds pointers; the self-relative form, which files keep and
// GetFileSecurityW hands out, holds offsets from its own start.
typedef struct _SID_IDENTIFIER_AUTHORITY {
    BYTE Value[6];
} SID_IDENTIFIER_AUTHORITY, *PSID_IDENTIFIER_AUTHORITY;
typedef struct _SID {
    BYTE Revision;
    BYTE SubAuthorityCount;
    SID_IDENTIFIER_AUTHORITY IdentifierAuthority;
    DWORD SubAuthority[1];
} SID;
#define SID_REVISION 1
#define SECURITY_WORLD_SID_AUTHORITY {0, 0, 0, 0, 0, 1}
#define SECURITY_WORLD_RID 0x00000000L
#define SID_MAX_SUB_AUTHORITIES 15
typedef struct _ACL {
    BYTE AclRevision;
    BYTE Sbz1;
    WORD AclSize;
    WORD AceCount;
    WORD Sbz2;
} ACL, *PACL;
#define ACL_REVISION 2
#define ACL_REVISION_DS 4
typedef struct _ACE_HEADER {
    BYTE AceType;
    BYTE AceFlags;
    WORD AceSize;
} ACE_HEADER, *PACE_HEADER;
typedef struct _ACCESS_ALLOWED_ACE {
    ACE_HEADER Header;
    ACCESS_MASK Mask;
    DWORD SidStart;
} ACCESS_ALLOWED_ACE, *PACCESS_ALLOWED_ACE;
typedef ACCESS_ALLOWED_ACE ACCESS_DENIED_ACE;
typedef ACCESS_ALLOWED_ACE SYSTEM_AUDIT_ACE;
typedef ACCESS_ALLOWED_ACE SYSTEM_MANDATORY_LABEL_ACE;
#define ACCESS_ALLOWED_ACE_TYPE 0x0
#define ACCESS_DENIED_ACE_TYPE 0x1
#define SYSTEM_AUDIT_ACE_TYPE 0x2
#define SYSTEM_ALARM_ACE_TYPE 0x3
#define SYSTEM_MANDATORY_LABEL_ACE_TYPE 0x11
#define OBJECT_INHERIT_ACE 0x01
#define CONTAINER_INHERIT_ACE 0x02
#define NO_PROPAGATE_INHERIT_ACE 0x04
#define INHERIT_ONLY_ACE 0x08
#define INHERITED_ACE 0x10
#define SUCCESSFUL_ACCESS_ACE_FLAG 0x40
#define FAILED_ACCESS_ACE_FLAG 0x80
#define SYSTEM_MANDATORY_LABEL_NO_WRITE_UP 0x1
#define SYSTEM_MANDATORY_LABEL_NO_READ_UP 0x2
#define SYSTEM_MANDATORY_LABEL_NO_EXECUTE_UP 0x4

typedef struct _SECURITY_DESCRIPTOR_RELATIVE {
    BYTE Revision;
    BYTE Sbz1;
    SECURITY_DESCRIPTOR_CONTROL Control;
    DWORD Owner;
    DWORD Group;
    DWORD Sacl;
    DWORD Dacl;
} SECURITY_DESCRIPTOR_RELATIVE, *PISECURITY_DESCRIPTOR_RELATIVE;
static_assert(sizeof(SECURITY_DESCRIPTOR_RELATIVE) == 20, "SECURITY_DESCRIPTOR_RELATIVE has the SDK's layout");
typedef struct _SECURITY_DESCRIPTOR {
    BYTE Revision;
    BYTE Sbz1;
    SECURITY_DESCRIPTOR_CONTROL Control;
    PSID Owner;
    PSID Group;
    PACL Sacl;
    PACL Dacl;
} SECURITY_DESCRIPTOR, *PISECURITY_DESCRIPTOR;
static_assert(sizeof(SECURITY_DESCRIPTOR) == 40, "SECURITY_DESCRIPTOR has the SDK's layout");

// File rights beyond those above.
#define FILE_ADD_SUBDIRECTORY 0x0004
#define FILE_DELETE_CHILD 0x0040
#define STANDARD_RIGHTS_REQUIRED 0x000F0000L
#define STANDARD_RIGHTS_READ READ_CONTROL
#define STANDARD_RIGHTS_WRITE READ_CONTROL
#define STANDARD_RIGHTS_EXECUTE READ_CONTROL
#define FILE_ALL_ACCESS (STANDARD_RIGHTS_REQUIRED | SYNCHRONIZE | 0x1FF)
#define FILE_GENERIC_READ (STANDARD_RIGHTS_READ | FILE_READ_DATA | FILE_READ_ATTRIBUTES | FILE_READ_EA | SYNCHRONIZE)
#define FILE_GENERIC_WRITE \
    (STANDARD_RIGHTS_WRITE | FILE_WRITE_DATA | FILE_WRITE_ATTRIBUTES | FILE_WRITE_EA | FILE_APPEND_DATA | SYNCHRONIZE)
#define FILE_GENERIC_EXECUTE (STANDARD_RIGHTS_EXECUTE | FILE_READ_ATTRIBUTES | FILE_EXECUTE | SYNCHRONIZE)

// The process token.
typedef struct _LUID {
    DWORD LowPart;
    LONG HighPart;
} LUID, *PLUID;
typedef struct _LUID_AND_ATTRIBUTES {
    LUID Luid;
    DWORD Attributes;
} LUID_AND_ATTRIBUTES, *PLUID_AND_ATTRIBUTES;
typedef struct _TOKEN_PRIVILEGES {
    DWORD PrivilegeCount;
    LUID_AND_ATTRIBUTES Privileges[1];
} TOKEN_PRIVILEGES, *PTOKEN_PRIVILEGES;
static_assert(sizeof(TOKEN_PRIVILEGES) == 16, "TOKEN_PRIVILEGES has the SDK's layout");
typedef enum _TOKEN_INFORMATION_CLASS {
    TokenUser = 1,
    TokenGroups,
    TokenPrivileges,
    TokenOwner,
    TokenPrimaryGroup,
    TokenElevation = 20,
} TOKEN_INFORMATION_CLASS;
typedef struct _TOKEN_ELEVATION {
    DWORD TokenIsElevated;
} TOKEN_ELEVATION, *PTOKEN_ELEVATION;
#define TOKEN_ASSIGN_PRIMARY 0x0001
#define TOKEN_DUPLICATE 0x0002
#define TOKEN_IMPERSONATE 0x0004
#define TOKEN_QUERY 0x0008
#define TOKEN_QUERY_SOURCE 0x0010
#define TOKEN_ADJUST_PRIVILEGES 0x0020
#define TOKEN_ADJUST_GROUPS 0x0040
#define TOKEN_ADJUST_DEFAULT 0x0080
#define TOKEN_ADJUST_SESSIONID 0x0100
#define TOKEN_ALL_ACCESS (STANDARD_RIGHTS_REQUIRED | 0x01FF)
#define SE_PRIVILEGE_ENABLED_BY_DEFAULT 0x00000001L
#define SE_PRIVILEGE_ENABLED 0x00000002L
#define SE_PRIVILEGE_REMOVED 0x00000004L
#define SE_PRIVILEGE_USED_FOR_ACCESS 0x80000000L
#define SE_SECURITY_NAME u"SeSecurityPrivilege"
#define SE_TAKE_OWNERSHIP_NAME u"SeTakeOwnershipPrivilege"
#define SE_BACKUP_NAME u"SeBackupPrivilege"
#define SE_RESTORE_NAME u"SeRestorePrivilege"
#define SE_CHANGE_NOTIFY_NAME u"SeChangeNotifyPrivilege"
#define SE_SHUTDOWN_NAME u"SeShutdownPrivilege"
#define SE_DEBUG_NAME u"SeDebugPrivilege"
#define SE_MANAGE_VOLUME_NAME u"SeManageVolumePrivilege"
#define SE_INC_WORKING_SET_NAME u"SeIncreaseWorkingSetPrivilege"
#define SE_TIME_ZONE_NAME u"SeTimeZonePrivilege"
#define SE_UNDOCK_NAME u"SeUndockPrivilege"
#define SE_CREATE_SYMBOLIC_LINK_NAME u"SeCreateSymbolicLinkPrivilege"
#define SE_IMPERSONATE_NAME u"SeImpersonatePrivilege"
#define SE_CREATE_GLOBAL_NAME u"SeCreateGlobalPrivilege"
#define SE_SYSTEM_ENVIRONMENT_NAME u"SeSystemEnvironmentPrivilege"
#define SE_LOAD_DRIVER_NAME u"SeLoadDriverPrivilege"
#define ERROR_INVALID_OWNER 1307L
#define ERROR_INVALID_PRIMARY_GROUP 1308L
#define ERROR_NO_SUCH_PRIVILEGE 1313L
#define ERROR_INVALID_ACL 1336L
#define ERROR_INVALID_SID 1337L
#define ERROR_INVALID_SECURITY_DESCR 1338L
#define ERROR_BAD_INHERITANCE_ACL 1340L
#define ERROR_NONE_MAPPED 1332L

#define LMEM_FIXED 0x0000
#define LMEM_MOVEABLE 0x0002
#define LMEM_ZEROINIT 0x0040
#define LPTR (LMEM_FIXED | LMEM_ZEROINIT)

// The mount manager: volume names are "\\?\Volume{GUID}\".
#define ERROR_INVALID_DRIVE_OBJECT 4321L

// ---- Disks and volumes: device controls, their structures, volume information.
#define ERROR_UNRECOGNIZED_VOLUME 1005L
#define ERROR_BAD_LENGTH 24L
#define ERROR_DEVICE_NOT_CONNECTED 1167L
#define FILE_DEVICE_MASS_STORAGE 0x0000002d
#define IOCTL_VOLUME_BASE 0x00000056
#define IOCTL_DISK_BASE FILE_DEVICE_DISK
#define IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS CTL_CODE(IOCTL_VOLUME_BASE, 0, METHOD_BUFFERED, FILE_ANY_ACCESS)
#define IOCTL_DISK_GET_DRIVE_GEOMETRY CTL_CODE(IOCTL_DISK_BASE, 0x0000, METHOD_BUFFERED, FILE_ANY_ACCESS)
#define IOCTL_DISK_GET_PARTITION_INFO_EX CTL_CODE(IOCTL_DISK_BASE, 0x0012, METHOD_BUFFERED, FILE_ANY_ACCESS)
#define IOCTL_DISK_GET_DRIVE_GEOMETRY_EX CTL_CODE(IOCTL_DISK_BASE, 0x0028, METHOD_BUFFERED, FILE_ANY_ACCESS)
#define IOCTL_DISK_GET_LENGTH_INFO CTL_CODE(IOCTL_DISK_BASE, 0x0017, METHOD_BUFFERED, FILE_READ_ACCESS)
#define FSCTL_GET_RETRIEVAL_POINTERS CTL_CODE(FILE_DEVICE_FILE_SYSTEM, 28, METHOD_NEITHER, FILE_ANY_ACCESS)
#define FSCTL_GET_NTFS_VOLUME_DATA CTL_CODE(FILE_DEVICE_FILE_SYSTEM, 25, METHOD_BUFFERED, FILE_ANY_ACCESS)

typedef struct _DISK_EXTENT {
    DWORD DiskNumber;
    LARGE_INTEGER StartingOffset;
    LARGE_INTEGER ExtentLength;
} DISK_EXTENT, *PDISK_EXTENT;
typedef struct _VOLUME_DISK_EXTENTS {
    DWORD NumberOfDiskExtents;
    DISK_EXTENT Extents[1];
} VOLUME_DISK_EXTENTS, *PVOLUME_DISK_EXTENTS;
static_assert(sizeof(VOLUME_DISK_EXTENTS) == 32, "VOLUME_DISK_EXTENTS has the SDK's layout");

typedef enum _MEDIA_TYPE { Unknown = 0, RemovableMedia = 11, FixedMedia = 12 } MEDIA_TYPE;
typedef struct _DISK_GEOMETRY {
    LARGE_INTEGER Cylinders;
    MEDIA_TYPE MediaType;
    DWORD TracksPerCylinder;
    DWORD SectorsPerTrack;
    DWORD BytesPerSector;
} DISK_GEOMETRY, *PDISK_GEOMETRY;
typedef struct _DISK_GEOMETRY_EX {
    DISK_GEOMETRY Geometry;
    LARGE_INTEGER DiskSize;
    BYTE Data[1];
} DISK_GEOMETRY_EX, *PDISK_GEOMETRY_EX;
static_assert(sizeof(DISK_GEOMETRY) == 24 && sizeof(DISK_GEOMETRY_EX) == 40, "geometry has the SDK's layout");

typedef enum _PARTITION_STYLE { PARTITION_STYLE_MBR = 0, PARTITION_STYLE_GPT = 1, PARTITION_STYLE_RAW = 2 } PARTITION_STYLE;
typedef struct _PARTITION_INFORMATION_MBR {
    BYTE PartitionType;
    BOOLEAN BootIndicator;
    BOOLEAN RecognizedPartition;
    DWORD HiddenSectors;
    GUID PartitionId;
} PARTITION_INFORMATION_MBR;
typedef struct _PARTITION_INFORMATION_GPT {
    GUID PartitionType;
    GUID PartitionId;
    ULONGLONG Attributes;
    WCHAR Name[36];
} PARTITION_INFORMATION_GPT;
typedef struct _PARTITION_INFORMATION_EX {
    PARTITION_STYLE PartitionStyle;
    LARGE_INTEGER StartingOffset;
    LARGE_INTEGER PartitionLength;
    DWORD PartitionNumber;
    BOOLEAN RewritePartition;
    BOOLEAN IsServicePartition;
    union {
        PARTITION_INFORMATION_MBR Mbr;
        PARTITION_INFORMATION_GPT Gpt;
    };
} PARTITION_INFORMATION_EX, *PPARTITION_INFORMATION_EX;
static_assert(sizeof(PARTITION_INFORMATION_EX) == 144, "PARTITION_INFORMATION_EX has the SDK's layout");

typedef struct _GET_LENGTH_INFORMATION {
    LARGE_INTEGER Length;
} GET_LENGTH_INFORMATION;

typedef struct _STARTING_VCN_INPUT_BUFFER {
    LARGE_INTEGER StartingVcn;
} STARTING_VCN_INPUT_BUFFER, *PSTARTING_VCN_INPUT_BUFFER;
typedef struct RETRIEVAL_POINTERS_BUFFER {
    DWORD ExtentCount;
    LARGE_INTEGER StartingVcn;
    struct {
        LARGE_INTEGER NextVcn;
        LARGE_INTEGER Lcn;
    } Extents[1];
} RETRIEVAL_POINTERS_BUFFER, *PRETRIEVAL_POINTERS_BUFFER;
static_assert(sizeof(RETRIEVAL_POINTERS_BUFFER) == 32, "RETRIEVAL_POINTERS_BUFFER has the SDK's layout");

#define FILE_CASE_SENSITIVE_SEARCH 0x00000001
#define FILE_CASE_PRESERVED_NAMES 0x00000002
#define FILE_UNICODE_ON_DISK 0x00000004
#define FILE_PERSISTENT_ACLS 0x00000008
#define FILE_FILE_COMPRESSION 0x00000010
#define FILE_SUPPORTS_HARD_LINKS 0x00400000

// ---- The master file table walk: the change journal's controls and ntdll's open by file id.
#define FSCTL_ENUM_USN_DATA CTL_CODE(FILE_DEVICE_FILE_SYSTEM, 44, METHOD_NEITHER, FILE_ANY_ACCESS)
#define FSCTL_CREATE_USN_JOURNAL CTL_CODE(FILE_DEVICE_FILE_SYSTEM, 57, METHOD_NEITHER, FILE_ANY_ACCESS)
#define FSCTL_QUERY_USN_JOURNAL CTL_CODE(FILE_DEVICE_FILE_SYSTEM, 61, METHOD_BUFFERED, FILE_ANY_ACCESS)
#ifndef ERROR_JOURNAL_NOT_ACTIVE
#define ERROR_JOURNAL_NOT_ACTIVE 1179L
#endif

typedef struct {
    DWORDLONG MaximumSize;
    DWORDLONG AllocationDelta;
} CREATE_USN_JOURNAL_DATA, *PCREATE_USN_JOURNAL_DATA;

#define NTAPI
#define STATUS_SUCCESS (static_cast<NTSTATUS>(0x00000000L))
#define STATUS_BUFFER_OVERFLOW (static_cast<NTSTATUS>(0x80000005L))
#define STATUS_UNSUCCESSFUL (static_cast<NTSTATUS>(0xC0000001L))
#define STATUS_INVALID_INFO_CLASS (static_cast<NTSTATUS>(0xC0000003L))
#define STATUS_INFO_LENGTH_MISMATCH (static_cast<NTSTATUS>(0xC0000004L))
#define STATUS_INVALID_HANDLE (static_cast<NTSTATUS>(0xC0000008L))
#define STATUS_INVALID_PARAMETER (static_cast<NTSTATUS>(0xC000000DL))
#define STATUS_NO_SUCH_DEVICE (static_cast<NTSTATUS>(0xC000000EL))
#define STATUS_INVALID_DEVICE_REQUEST (static_cast<NTSTATUS>(0xC0000010L))
#define STATUS_ACCESS_DENIED (static_cast<NTSTATUS>(0xC0000022L))
#define STATUS_OBJECT_NAME_NOT_FOUND (static_cast<NTSTATUS>(0xC0000034L))
#define STATUS_SHARING_VIOLATION (static_cast<NTSTATUS>(0xC0000043L))
#define STATUS_NOT_IMPLEMENTED (static_cast<NTSTATUS>(0xC0000002L))
#define STATUS_DEVICE_NOT_CONNECTED (static_cast<NTSTATUS>(0xC000009DL))

#define OBJ_CASE_INSENSITIVE 0x00000040L
#define FILE_OPEN 0x00000001
#define FILE_NON_DIRECTORY_FILE 0x00000040
#define FILE_OPEN_BY_FILE_ID 0x00002000
#define FILE_OPEN_FOR_BACKUP_INTENT 0x00004000

typedef struct _UNICODE_STRING {
    USHORT Length;
    USHORT MaximumLength;
    PWSTR Buffer;
} UNICODE_STRING, *PUNICODE_STRING;

typedef struct _OBJECT_ATTRIBUTES {
    ULONG Length;
    HANDLE RootDirectory;
    PUNICODE_STRING ObjectName;
    ULONG Attributes;
    PVOID SecurityDescriptor;
    PVOID SecurityQualityOfService;
} OBJECT_ATTRIBUTES, *POBJECT_ATTRIBUTES;
static_assert(sizeof(OBJECT_ATTRIBUTES) == 48, "OBJECT_ATTRIBUTES has the SDK's layout");

typedef struct _IO_STATUS_BLOCK {
    union {
        NTSTATUS Status;
        PVOID Pointer;
    };
    ULONG_PTR Information;
} IO_STATUS_BLOCK, *PIO_STATUS_BLOCK;

typedef enum _FILE_INFORMATION_CLASS {
    FileNameInformation = 9,
} FILE_INFORMATION_CLASS;

typedef struct _FILE_NAME_INFORMATION {
    ULONG FileNameLength;
    WCHAR FileName[1];
} FILE_NAME_INFORMATION, *PFILE_NAME_INFORMATION;
// ---- File calls answering as Windows does
#define ERROR_INVALID_USER_BUFFER 1784L

// ---- Volume snapshots: waits on the shadow copy service's asynchronous operations.
#ifndef INFINITE
#define INFINITE 0xFFFFFFFFUL
#endif
