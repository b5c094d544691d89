// The table of every platform operation the library uses, with the Win32 names and signatures.
//
// Library code calls the platform only through sys(): sys().GetFileAttributesW(path). On Windows the
// entries are bound to the real DLL functions; on Linux to our own implementation (platform/linux).
// Tests replace one entry at a time with ApiPatch (platform/api_patch.h) to record what the library
// passes, to script answers and to inject failures at any step.
//
// Each entry says what the library relies on. Where an entry fails, it leaves the last-error code that
// Windows leaves, and the library reads it back through GetLastError below.
#pragma once

#include "win32.h"

struct Win32Api {
    // --- Errors: the calling thread's last-error value.
    DWORD(WINAPI* GetLastError)();
    void(WINAPI* SetLastError)(DWORD code);

    // --- Attributes. GetFileAttributesW answers INVALID_FILE_ATTRIBUTES with ERROR_FILE_NOT_FOUND or
    // ERROR_PATH_NOT_FOUND for a path that cannot be reached, ERROR_ACCESS_DENIED behind a folder the
    // user may not enter. SetFileAttributesW writes the whole word or, failing, changes nothing; the
    // directory bit is ignored and read-only, hidden, system and archive are kept (read-only on a folder
    // does not stop files being made in it). On Linux a link keeps only the word it reads as and refuses
    // any other with ERROR_NOT_SUPPORTED.
    DWORD(WINAPI* GetFileAttributesW)(LPCWSTR path);
    BOOL(WINAPI* SetFileAttributesW)(LPCWSTR path, DWORD attributes);

    // --- Finding. A pattern's last component may hold * and ?; "." and ".." come first in every folder
    // but a root. FindFirstFileW fails with ERROR_FILE_NOT_FOUND when nothing matches, ERROR_PATH_NOT_FOUND
    // when the folder is missing; FindNextFileW fails with ERROR_NO_MORE_FILES after the last match.
    HANDLE(WINAPI* FindFirstFileW)(LPCWSTR pattern, LPWIN32_FIND_DATAW data);
    BOOL(WINAPI* FindNextFileW)(HANDLE find, LPWIN32_FIND_DATAW data);
    BOOL(WINAPI* FindClose)(HANDLE find);

    // --- Hard-link names: each name as the path from the volume root without the drive letter. The length
    // goes in as the buffer's size in characters and comes out as the name's length; a name that does not
    // fit fails with ERROR_MORE_DATA. FindNextFileNameW ends with ERROR_HANDLE_EOF. FindClose ends it.
    HANDLE(WINAPI* FindFirstFileNameW)(LPCWSTR path, DWORD flags, LPDWORD length, PWSTR name);
    BOOL(WINAPI* FindNextFileNameW)(HANDLE find, LPDWORD length, PWSTR name);

    // --- Files. CreateFileW enforces share modes between open handles (ERROR_SHARING_VIOLATION), refuses
    // a folder without FILE_FLAG_BACKUP_SEMANTICS and a read-only file for writing (ERROR_ACCESS_DENIED).
    // An entry that is no file nor folder (a host's named pipe, socket or device) is listed like a file but
    // opened only for its attributes: an open for reading or writing its data, or one that would create or
    // truncate, fails with ERROR_CANT_ACCESS_FILE at once, as Windows fails for an entry it cannot open,
    // and never waits. ReadFile ends at the end of the file; a host program outside the platform may still
    // grow a file that a handle holds without write sharing, so a loop that reads up to a size taken at
    // the open stops once it has read that much or more (the library's hashing does), never reading on.
    // On Linux share modes hold between the processes that use the platform too: each open holds open
    // file description locks on bytes far past any data, one per right it holds and one per right it
    // denies, so a file another such process holds without sharing is refused as on Windows, and a
    // replacing open cuts nothing until it has passed. Limits: a handle on a file its user may not read
    // (or an open for attributes alone) shares within its own process only; a file system without such
    // locks leaves sharing to the process; other programs are not bound by them.
    HANDLE(WINAPI* CreateFileW)(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                DWORD disposition, DWORD flags, HANDLE templateFile);
    BOOL(WINAPI* ReadFile)(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED overlapped);
    BOOL(WINAPI* WriteFile)(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written, LPOVERLAPPED overlapped);
    DWORD(WINAPI* GetFileSize)(HANDLE file, LPDWORD sizeHigh);
    BOOL(WINAPI* GetFileSizeEx)(HANDLE file, PLARGE_INTEGER size);
    BOOL(WINAPI* SetFilePointerEx)(HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER newPosition, DWORD method);
    BOOL(WINAPI* SetEndOfFile)(HANDLE file);
    BOOL(WINAPI* GetFileTime)(HANDLE file, LPFILETIME created, LPFILETIME accessed, LPFILETIME written);
    BOOL(WINAPI* SetFileTime)(HANDLE file, const FILETIME* created, const FILETIME* accessed, const FILETIME* written);
    BOOL(WINAPI* GetFileInformationByHandle)(HANDLE file, LPBY_HANDLE_FILE_INFORMATION info);
    BOOL(WINAPI* CloseHandle)(HANDLE object);
    BOOL(WINAPI* DeleteFileW)(LPCWSTR path);

    // --- Folders and links.
    BOOL(WINAPI* CreateDirectoryW)(LPCWSTR path, LPSECURITY_ATTRIBUTES security);
    BOOL(WINAPI* RemoveDirectoryW)(LPCWSTR path);
    BOOL(WINAPI* CreateHardLinkW)(LPCWSTR newName, LPCWSTR existing, LPSECURITY_ATTRIBUTES security);
    DWORD(WINAPI* GetCurrentDirectoryW)(DWORD length, LPWSTR buffer);
    BOOL(WINAPI* SetCurrentDirectoryW)(LPCWSTR path);
    DWORD(WINAPI* GetFullPathNameW)(LPCWSTR path, DWORD length, LPWSTR buffer, LPWSTR* filePart);

    // --- Device and file-system control. On a volume without compression FSCTL_SET_COMPRESSION fails with
    // ERROR_INVALID_FUNCTION, as on FAT.
    BOOL(WINAPI* DeviceIoControl)(HANDLE device, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize,
                                  LPDWORD returned, LPOVERLAPPED overlapped);

    // --- Time conversion.
    BOOL(WINAPI* FileTimeToSystemTime)(const FILETIME* fileTime, LPSYSTEMTIME systemTime);
    BOOL(WINAPI* SystemTimeToFileTime)(const SYSTEMTIME* systemTime, LPFILETIME fileTime);

    // --- shlwapi path tests. PathIsDirectoryW answers FILE_ATTRIBUTE_DIRECTORY for a folder, 0 otherwise.
    BOOL(WINAPI* PathFileExistsW)(LPCWSTR path);
    BOOL(WINAPI* PathIsDirectoryW)(LPCWSTR path);

    // --- Threads.
    void(WINAPI* Sleep)(DWORD milliseconds);

    // --- Windows and messages. SendMessageW runs the window's procedure at once and returns its result;
    // a window handle that names no window gives 0 with ERROR_INVALID_WINDOW_HANDLE. Posted messages
    // wait in the queue of the thread that made the window until it peeks, gets and dispatches them.
    ATOM(WINAPI* RegisterClassW)(const WNDCLASSW* windowClass);
    BOOL(WINAPI* UnregisterClassW)(LPCWSTR className, HINSTANCE instance);
    HWND(WINAPI* CreateWindowExW)(DWORD exStyle, LPCWSTR className, LPCWSTR windowName, DWORD style, int x, int y,
                                  int width, int height, HWND parent, HMENU menu, HINSTANCE instance, LPVOID param);
    BOOL(WINAPI* DestroyWindow)(HWND window);
    LRESULT(WINAPI* DefWindowProcW)(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    BOOL(WINAPI* IsWindow)(HWND window);
    LRESULT(WINAPI* SendMessageW)(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    BOOL(WINAPI* PostMessageW)(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    BOOL(WINAPI* PeekMessageW)(LPMSG msg, HWND window, UINT filterMin, UINT filterMax, UINT remove);
    BOOL(WINAPI* GetMessageW)(LPMSG msg, HWND window, UINT filterMin, UINT filterMax);
    BOOL(WINAPI* TranslateMessage)(const MSG* msg);
    LRESULT(WINAPI* DispatchMessageW)(const MSG* msg);
    void(WINAPI* PostQuitMessage)(int exitCode);
    BOOL(WINAPI* SetWindowTextW)(HWND window, LPCWSTR text);
    int(WINAPI* GetWindowTextW)(HWND window, LPWSTR buffer, int capacity);
    int(WINAPI* GetWindowTextLengthW)(HWND window);
    HWND(WINAPI* FindWindowW)(LPCWSTR className, LPCWSTR windowName);
    BOOL(WINAPI* ShowWindow)(HWND window, int command);
    BOOL(WINAPI* IsWindowVisible)(HWND window);
    LONG_PTR(WINAPI* GetWindowLongPtrW)(HWND window, int index);
    LONG_PTR(WINAPI* SetWindowLongPtrW)(HWND window, int index, LONG_PTR value);

    // --- Enumeration and comparison: CryptoAPI hashing (advapi32).
    // CryptAcquireContextW gives a provider of PROV_RSA_FULL (MD5, SHA-1) or PROV_RSA_AES (also SHA-256/384/512);
    // with no key container only CRYPT_VERIFYCONTEXT is served (NTE_BAD_KEYSET otherwise), an unknown type
    // fails with NTE_PROV_TYPE_NOT_DEF. CryptCreateHash fails with NTE_BAD_ALGID for an algorithm the provider
    // does not hash. CryptGetHashParam(HP_HASHVAL) finishes the hash; with a buffer that is too short it fails
    // with ERROR_MORE_DATA and puts the needed length in *length, leaving the buffer alone; after it the hash
    // takes no more data (NTE_BAD_HASH_STATE). HP_HASHSIZE and HP_ALGID give a DWORD.
    BOOL(WINAPI* CryptAcquireContextW)(HCRYPTPROV* provider, LPCWSTR container, LPCWSTR providerName, DWORD type,
                                       DWORD flags);
    BOOL(WINAPI* CryptCreateHash)(HCRYPTPROV provider, ALG_ID algorithm, HCRYPTKEY key, DWORD flags, HCRYPTHASH* hash);
    BOOL(WINAPI* CryptHashData)(HCRYPTHASH hash, const BYTE* data, DWORD length, DWORD flags);
    BOOL(WINAPI* CryptGetHashParam)(HCRYPTHASH hash, DWORD param, BYTE* data, DWORD* length, DWORD flags);
    BOOL(WINAPI* CryptDestroyHash)(HCRYPTHASH hash);
    BOOL(WINAPI* CryptReleaseContext)(HCRYPTPROV provider, DWORD flags);

    // --- Copy engine: file copies, the shell's file operation and the task dialog.
    // CopyFileExW copies in chunks; it calls the progress routine once with CALLBACK_STREAM_SWITCH and
    // nothing transferred, then with CALLBACK_CHUNK_FINISHED after each chunk, with the totals of the one
    // file. When the flag behind cancel becomes non-zero it stops with ERROR_REQUEST_ABORTED and removes the
    // partial target. It replaces an existing target unless COPY_FILE_FAIL_IF_EXISTS (ERROR_FILE_EXISTS),
    // and carries the attributes and the last-write time over. CopyFileW is CopyFileExW without a routine.
    // An existing target stays whole until the copy is: the copy is written beside it and takes its place
    // only when complete, so a failure (a full disk) or a cancel leaves the old file as it was and nothing
    // else behind. A routine's PROGRESS_STOP keeps what was copied only where there was no file before.
    BOOL(WINAPI* CopyFileW)(LPCWSTR existing, LPCWSTR newName, BOOL failIfExists);
    BOOL(WINAPI* CopyFileExW)(LPCWSTR existing, LPCWSTR newName, LPPROGRESS_ROUTINE progress, LPVOID data, LPBOOL cancel,
                              DWORD flags);
    // SHFileOperationW: 0 on success, else the shell's error value; fAnyOperationsAborted is set when the
    // user cancelled.
    int(WINAPI* SHFileOperationW)(LPSHFILEOPSTRUCTW operation);
    // TaskDialogIndirect: S_OK with the pressed button's identifier (IDCANCEL when the dialog was closed
    // without a choice); a failure code when the dialog could not be shown.
    HRESULT(WINAPI* TaskDialogIndirect)(const TASKDIALOGCONFIG* config, int* button, int* radioButton,
                                        BOOL* verificationChecked);

    // --- Shell archives and shortcuts: COM (ole32, oleaut32), environment strings and a bounded append.
    // CoInitialize enters the calling thread into a single-threaded apartment: S_OK the first time, S_FALSE
    // when the thread is in one already (each success wants its CoUninitialize), RPC_E_CHANGED_MODE when the
    // thread is multithreaded. CoCreateInstance gives the object of a registered class for the interface
    // asked, with one reference the caller releases: REGDB_E_CLASSNOTREG for an unknown class,
    // E_NOINTERFACE for an interface it lacks, CO_E_NOTINITIALIZED on a thread outside any apartment.
    HRESULT(WINAPI* CoInitialize)(LPVOID reserved);
    void(WINAPI* CoUninitialize)();
    HRESULT(WINAPI* CoCreateInstance)(REFCLSID classId, LPUNKNOWN outer, DWORD context, REFIID riid, LPVOID* object);
    // SysAllocString copies a string into a new BSTR (null for a null string or when memory runs out);
    // SysFreeString frees one (null is allowed). VariantClear frees what a VARIANT owns (a BSTR, a reference
    // to an interface) and leaves it VT_EMPTY.
    BSTR(WINAPI* SysAllocString)(const OLECHAR* text);
    void(WINAPI* SysFreeString)(BSTR text);
    void(WINAPI* VariantInit)(VARIANTARG* variant);
    HRESULT(WINAPI* VariantClear)(VARIANTARG* variant);
    // ExpandEnvironmentStringsW replaces each %NAME% of a variable that exists by its value and leaves the
    // others as written; it returns the length needed with the terminator, which is larger than the
    // capacity when the text did not fit (the buffer then holds nothing usable), and 0 on failure.
    DWORD(WINAPI* ExpandEnvironmentStringsW)(LPCWSTR source, LPWSTR destination, DWORD capacity);
    // wcscat_s appends within a capacity that counts the terminator. The library checks that the text fits
    // first: the CRT of Windows ends the process on an overflow by default.
    errno_t(WINAPI* wcscat_s)(WCHAR* destination, size_t capacity, const WCHAR* source);
    // --- WIM images: libraries loaded at run time, the temporary folder, and timers.
    // GetSystemDirectoryW and GetTempPathW give the length without the terminator, or the size needed
    // with it when the buffer is too small. The system folder has no trailing backslash; the temporary
    // folder has one. LoadLibraryW fails with ERROR_MOD_NOT_FOUND for a library that is not there (or with
    // the library's own code when it cannot start); each load of one library gives the same handle, which
    // stays valid until as many FreeLibrary calls. GetProcAddress fails with ERROR_PROC_NOT_FOUND for a
    // name the library does not export. A timer's WM_TIMER is made by PeekMessageW and GetMessageW when
    // the thread's queue holds nothing else and the period has passed; it never piles up.
    UINT(WINAPI* GetSystemDirectoryW)(LPWSTR buffer, UINT size);
    DWORD(WINAPI* GetTempPathW)(DWORD length, LPWSTR buffer);
    HMODULE(WINAPI* LoadLibraryW)(LPCWSTR path);
    HMODULE(WINAPI* GetModuleHandleW)(LPCWSTR name);
    FARPROC(WINAPI* GetProcAddress)(HMODULE module, LPCSTR name);
    BOOL(WINAPI* FreeLibrary)(HMODULE module);
    UINT_PTR(WINAPI* SetTimer)(HWND window, UINT_PTR id, UINT elapse, TIMERPROC timerProc);
    BOOL(WINAPI* KillTimer)(HWND window, UINT_PTR id);

    // --- File properties: security descriptors, the process token and local memory (advapi32, kernel32).
    // GetFileSecurityW copies the parts the mask selects into the buffer as one self-relative descriptor;
    // with a buffer too small (null and 0 included) it fails with ERROR_INSUFFICIENT_BUFFER and puts the
    // length needed in *needed. The audit list (SACL_SECURITY_INFORMATION) is handed out and written only
    // while the security privilege is enabled in the process token, else ERROR_PRIVILEGE_NOT_HELD.
    // SetFileSecurityW writes the parts the mask selects and leaves the others as they are; a part the
    // volume cannot keep fails the whole call before anything is changed.
    BOOL(WINAPI* GetFileSecurityW)(LPCWSTR path, SECURITY_INFORMATION requested, PSECURITY_DESCRIPTOR descriptor,
                                   DWORD length, LPDWORD needed);
    BOOL(WINAPI* SetFileSecurityW)(LPCWSTR path, SECURITY_INFORMATION parts, PSECURITY_DESCRIPTOR descriptor);
    // GetCurrentProcess gives the pseudo-handle of the calling process, which needs no closing.
    HANDLE(WINAPI* GetCurrentProcess)();
    // OpenProcessToken opens the process token with the rights asked for; the handle is closed with
    // CloseHandle. LookupPrivilegeValueW (system null: the local one) fails with ERROR_NO_SUCH_PRIVILEGE
    // for a name it does not know. AdjustTokenPrivileges succeeds also when a privilege named is not held
    // by the token: it then leaves that one alone and sets the last error to ERROR_NOT_ALL_ASSIGNED, and to
    // ERROR_SUCCESS when every change was made, so the caller must read the last error after it.
    // GetTokenInformation(TokenPrivileges) lists every privilege held with its state.
    BOOL(WINAPI* OpenProcessToken)(HANDLE process, DWORD access, PHANDLE token);
    BOOL(WINAPI* LookupPrivilegeValueW)(LPCWSTR systemName, LPCWSTR name, PLUID luid);
    BOOL(WINAPI* AdjustTokenPrivileges)(HANDLE token, BOOL disableAll, PTOKEN_PRIVILEGES newState, DWORD length,
                                        PTOKEN_PRIVILEGES previousState, PDWORD returnLength);
    BOOL(WINAPI* GetTokenInformation)(HANDLE token, TOKEN_INFORMATION_CLASS kind, LPVOID information, DWORD length,
                                      PDWORD returnLength);
    // LocalAlloc(LMEM_FIXED, n) gives a pointer, zero-filled with LMEM_ZEROINIT, or null with
    // ERROR_NOT_ENOUGH_MEMORY; LocalFree gives null when it freed the block.
    HLOCAL(WINAPI* LocalAlloc)(UINT flags, SIZE_T bytes);
    HLOCAL(WINAPI* LocalFree)(HLOCAL memory);

    // --- File properties: the mount manager. Mount points here are drive roots ("E:\", with the
    // backslash); a volume name is "\\?\Volume{GUID}\". GetVolumeNameForVolumeMountPointW fails for a root with
    // no volume behind it; DeleteVolumeMountPointW takes the letter away from its volume and
    // SetVolumeMountPointW gives a free letter to a volume (a taken one fails with ERROR_DIR_NOT_EMPTY);
    // both need an elevated process (ERROR_ACCESS_DENIED otherwise).
    BOOL(WINAPI* GetVolumeNameForVolumeMountPointW)(LPCWSTR mountPoint, LPWSTR volumeName, DWORD length);
    BOOL(WINAPI* DeleteVolumeMountPointW)(LPCWSTR mountPoint);
    BOOL(WINAPI* SetVolumeMountPointW)(LPCWSTR mountPoint, LPCWSTR volumeName);
    // --- Raw volume access: volume information. GetVolumeInformationW takes a root ("E:\\") and gives the
    // file-system name as Windows spells it (NTFS, FAT32, FAT, exFAT); any buffer may be null. A name that
    // does not fit its buffer fails with ERROR_BAD_LENGTH; a letter with no volume with ERROR_PATH_NOT_FOUND.
    BOOL(WINAPI* GetVolumeInformationW)(LPCWSTR root, LPWSTR volumeName, DWORD volumeNameSize, LPDWORD serial,
                                        LPDWORD maxComponentLength, LPDWORD flags, LPWSTR fileSystemName,
                                        DWORD fileSystemNameSize);

    // --- Raw volume access: the master file table walk. These are the entries above as the walk uses
    // them; there are no entries of its own. DeviceIoControl on a volume device (\\.\X:) answers
    // FSCTL_GET_NTFS_VOLUME_DATA on NTFS alone (ERROR_INVALID_FUNCTION elsewhere), FSCTL_QUERY_USN_JOURNAL
    // with ERROR_JOURNAL_NOT_ACTIVE where no change journal is active, and FSCTL_ENUM_USN_DATA with the next
    // record number to ask for at offset 0 and USN_RECORD_V2 records behind it, each RecordLength a multiple
    // of 8; it fails with ERROR_HANDLE_EOF once no record is left. GetModuleHandleW("ntdll.dll") finds ntdll
    // loaded from the start of the process; its NtCreateFile opens by file id relative to a volume handle
    // (STATUS_INVALID_PARAMETER for a reference whose record is free or reused) and its
    // NtQueryInformationFile(FileNameInformation) gives the path from the volume root, "\" for the root.
};

// The process's table. Tests patch entries through ApiPatch; nothing else writes to it.
Win32Api& sys();
