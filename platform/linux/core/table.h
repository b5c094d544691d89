// The Linux implementations of the platform table's entries, for binding and for calls between them.
#pragma once

#include "../../win32.h"

namespace vlx {

DWORD WINAPI GetLastError();
void WINAPI SetLastError(DWORD code);
DWORD WINAPI GetFileAttributesW(LPCWSTR path);
BOOL WINAPI SetFileAttributesW(LPCWSTR path, DWORD attributes);
HANDLE WINAPI FindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW data);
BOOL WINAPI FindNextFileW(HANDLE find, LPWIN32_FIND_DATAW data);
BOOL WINAPI FindClose(HANDLE find);
HANDLE WINAPI FindFirstFileNameW(LPCWSTR path, DWORD flags, LPDWORD length, PWSTR name);
BOOL WINAPI FindNextFileNameW(HANDLE find, LPDWORD length, PWSTR name);
HANDLE WINAPI CreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                          DWORD flags, HANDLE templateFile);
BOOL WINAPI ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED overlapped);
BOOL WINAPI WriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written, LPOVERLAPPED overlapped);
DWORD WINAPI GetFileSize(HANDLE file, LPDWORD sizeHigh);
BOOL WINAPI GetFileSizeEx(HANDLE file, PLARGE_INTEGER size);
BOOL WINAPI SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER newPosition, DWORD method);
BOOL WINAPI SetEndOfFile(HANDLE file);
BOOL WINAPI GetFileTime(HANDLE file, LPFILETIME created, LPFILETIME accessed, LPFILETIME written);
BOOL WINAPI SetFileTime(HANDLE file, const FILETIME* created, const FILETIME* accessed, const FILETIME* written);
BOOL WINAPI GetFileInformationByHandle(HANDLE file, LPBY_HANDLE_FILE_INFORMATION info);
BOOL WINAPI CloseHandle(HANDLE object);
BOOL WINAPI DeleteFileW(LPCWSTR path);
BOOL WINAPI CreateDirectoryW(LPCWSTR path, LPSECURITY_ATTRIBUTES security);
BOOL WINAPI RemoveDirectoryW(LPCWSTR path);
BOOL WINAPI CreateHardLinkW(LPCWSTR newName, LPCWSTR existing, LPSECURITY_ATTRIBUTES security);
DWORD WINAPI GetCurrentDirectoryW(DWORD length, LPWSTR buffer);
BOOL WINAPI SetCurrentDirectoryW(LPCWSTR path);
DWORD WINAPI GetFullPathNameW(LPCWSTR path, DWORD length, LPWSTR buffer, LPWSTR* filePart);
BOOL WINAPI DeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize,
                            LPDWORD returned, LPOVERLAPPED overlapped);
BOOL WINAPI FileTimeToSystemTime(const FILETIME* fileTime, LPSYSTEMTIME systemTime);
BOOL WINAPI SystemTimeToFileTime(const SYSTEMTIME* systemTime, LPFILETIME fileTime);
BOOL WINAPI PathFileExistsW(LPCWSTR path);
BOOL WINAPI PathIsDirectoryW(LPCWSTR path);
void WINAPI Sleep(DWORD milliseconds);

// Windows and messages
ATOM WINAPI RegisterClassW(const WNDCLASSW* windowClass);
BOOL WINAPI UnregisterClassW(LPCWSTR className, HINSTANCE instance);
HWND WINAPI CreateWindowExW(DWORD exStyle, LPCWSTR className, LPCWSTR windowName, DWORD style, int x, int y, int width,
                            int height, HWND parent, HMENU menu, HINSTANCE instance, LPVOID param);
BOOL WINAPI DestroyWindow(HWND window);
LRESULT WINAPI DefWindowProcW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
BOOL WINAPI IsWindow(HWND window);
LRESULT WINAPI SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
BOOL WINAPI PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
BOOL WINAPI PeekMessageW(LPMSG msg, HWND window, UINT filterMin, UINT filterMax, UINT remove);
BOOL WINAPI GetMessageW(LPMSG msg, HWND window, UINT filterMin, UINT filterMax);
BOOL WINAPI TranslateMessage(const MSG* msg);
LRESULT WINAPI DispatchMessageW(const MSG* msg);
void WINAPI PostQuitMessage(int exitCode);
BOOL WINAPI SetWindowTextW(HWND window, LPCWSTR text);
int WINAPI GetWindowTextW(HWND window, LPWSTR buffer, int capacity);
int WINAPI GetWindowTextLengthW(HWND window);
HWND WINAPI FindWindowW(LPCWSTR className, LPCWSTR windowName);
BOOL WINAPI ShowWindow(HWND window, int command);
BOOL WINAPI IsWindowVisible(HWND window);
LONG_PTR WINAPI GetWindowLongPtrW(HWND window, int index);
LONG_PTR WINAPI SetWindowLongPtrW(HWND window, int index, LONG_PTR value);
// Enumeration and comparison: CryptoAPI hashing (crypto.cpp).
BOOL WINAPI CryptAcquireContextW(HCRYPTPROV* provider, LPCWSTR container, LPCWSTR providerName, DWORD type, DWORD flags);
BOOL WINAPI CryptCreateHash(HCRYPTPROV provider, ALG_ID algorithm, HCRYPTKEY key, DWORD flags, HCRYPTHASH* hash);
BOOL WINAPI CryptHashData(HCRYPTHASH hash, const BYTE* data, DWORD length, DWORD flags);
BOOL WINAPI CryptGetHashParam(HCRYPTHASH hash, DWORD param, BYTE* data, DWORD* length, DWORD flags);
BOOL WINAPI CryptDestroyHash(HCRYPTHASH hash);
BOOL WINAPI CryptReleaseContext(HCRYPTPROV provider, DWORD flags);
// Copy engine
BOOL WINAPI CopyFileW(LPCWSTR existing, LPCWSTR newName, BOOL failIfExists);
BOOL WINAPI CopyFileExW(LPCWSTR existing, LPCWSTR newName, LPPROGRESS_ROUTINE progress, LPVOID data, LPBOOL cancel,
                        DWORD flags);
int WINAPI SHFileOperationW(LPSHFILEOPSTRUCTW operation);
HRESULT WINAPI TaskDialogIndirect(const TASKDIALOGCONFIG* config, int* button, int* radioButton, BOOL* verificationChecked);
// WIM images: run-time libraries and folders (modules.cpp), timers (desktop/windows.cpp).
UINT WINAPI GetSystemDirectoryW(LPWSTR buffer, UINT size);
DWORD WINAPI GetTempPathW(DWORD length, LPWSTR buffer);
HMODULE WINAPI LoadLibraryW(LPCWSTR path);
HMODULE WINAPI GetModuleHandleW(LPCWSTR name);
FARPROC WINAPI GetProcAddress(HMODULE module, LPCSTR name);
BOOL WINAPI FreeLibrary(HMODULE module);
UINT_PTR WINAPI SetTimer(HWND window, UINT_PTR id, UINT elapse, TIMERPROC timerProc);
BOOL WINAPI KillTimer(HWND window, UINT_PTR id);

// Shell archives and shortcuts: COM (shell/com.cpp), environment strings and the bounded append (shell/strings.cpp).
HRESULT WINAPI CoInitialize(LPVOID reserved);
void WINAPI CoUninitialize();
HRESULT WINAPI CoCreateInstance(REFCLSID classId, LPUNKNOWN outer, DWORD context, REFIID riid, LPVOID* object);
BSTR WINAPI SysAllocString(const OLECHAR* text);
void WINAPI SysFreeString(BSTR text);
void WINAPI VariantInit(VARIANTARG* variant);
HRESULT WINAPI VariantClear(VARIANTARG* variant);
DWORD WINAPI ExpandEnvironmentStringsW(LPCWSTR source, LPWSTR destination, DWORD capacity);
errno_t WINAPI wcscat_s(WCHAR* destination, size_t capacity, const WCHAR* source);
// Raw volume access (volumes/devices.cpp)
BOOL WINAPI GetVolumeInformationW(LPCWSTR root, LPWSTR volumeName, DWORD volumeNameSize, LPDWORD serial,
                                  LPDWORD maxComponentLength, LPDWORD flags, LPWSTR fileSystemName, DWORD fileSystemNameSize);

// File properties: security descriptors (volumes/host_security.cpp), the process token
// (services/token.cpp), local memory (core/local_memory.cpp) and the mount manager (core/mount_manager.cpp).
BOOL WINAPI GetFileSecurityW(LPCWSTR path, SECURITY_INFORMATION requested, PSECURITY_DESCRIPTOR descriptor, DWORD length,
                             LPDWORD needed);
BOOL WINAPI SetFileSecurityW(LPCWSTR path, SECURITY_INFORMATION parts, PSECURITY_DESCRIPTOR descriptor);
HANDLE WINAPI GetCurrentProcess();
BOOL WINAPI OpenProcessToken(HANDLE process, DWORD access, PHANDLE token);
BOOL WINAPI LookupPrivilegeValueW(LPCWSTR systemName, LPCWSTR name, PLUID luid);
BOOL WINAPI AdjustTokenPrivileges(HANDLE token, BOOL disableAll, PTOKEN_PRIVILEGES newState, DWORD length,
                                  PTOKEN_PRIVILEGES previousState, PDWORD returnLength);
BOOL WINAPI GetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS kind, LPVOID information, DWORD length,
                                PDWORD returnLength);
HLOCAL WINAPI LocalAlloc(UINT flags, SIZE_T bytes);
HLOCAL WINAPI LocalFree(HLOCAL memory);
BOOL WINAPI GetVolumeNameForVolumeMountPointW(LPCWSTR mountPoint, LPWSTR volumeName, DWORD length);
BOOL WINAPI DeleteVolumeMountPointW(LPCWSTR mountPoint);
BOOL WINAPI SetVolumeMountPointW(LPCWSTR mountPoint, LPCWSTR volumeName);

}  // namespace vlx
