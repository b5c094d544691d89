// The platform table bound to the real Windows DLL functions.
#include "../api.h"

namespace {

Win32Api MakeWindowsTable() {
    Win32Api table{};
    table.GetLastError = ::GetLastError;
    table.SetLastError = ::SetLastError;
    table.GetFileAttributesW = ::GetFileAttributesW;
    table.SetFileAttributesW = ::SetFileAttributesW;
    table.FindFirstFileW = ::FindFirstFileW;
    table.FindNextFileW = ::FindNextFileW;
    table.FindClose = ::FindClose;
    table.FindFirstFileNameW = ::FindFirstFileNameW;
    table.FindNextFileNameW = ::FindNextFileNameW;
    table.CreateFileW = ::CreateFileW;
    table.ReadFile = ::ReadFile;
    table.WriteFile = ::WriteFile;
    table.GetFileSize = ::GetFileSize;
    table.GetFileSizeEx = ::GetFileSizeEx;
    table.SetFilePointerEx = ::SetFilePointerEx;
    table.SetEndOfFile = ::SetEndOfFile;
    table.GetFileTime = ::GetFileTime;
    table.SetFileTime = ::SetFileTime;
    table.GetFileInformationByHandle = ::GetFileInformationByHandle;
    table.CloseHandle = ::CloseHandle;
    table.DeleteFileW = ::DeleteFileW;
    table.CreateDirectoryW = ::CreateDirectoryW;
    table.RemoveDirectoryW = ::RemoveDirectoryW;
    table.CreateHardLinkW = ::CreateHardLinkW;
    table.GetCurrentDirectoryW = ::GetCurrentDirectoryW;
    table.SetCurrentDirectoryW = ::SetCurrentDirectoryW;
    table.GetFullPathNameW = ::GetFullPathNameW;
    table.DeviceIoControl = ::DeviceIoControl;
    table.FileTimeToSystemTime = ::FileTimeToSystemTime;
    table.SystemTimeToFileTime = ::SystemTimeToFileTime;
    table.PathFileExistsW = ::PathFileExistsW;
    table.PathIsDirectoryW = ::PathIsDirectoryW;
    table.Sleep = ::Sleep;
    table.RegisterClassW = ::RegisterClassW;
    table.UnregisterClassW = ::UnregisterClassW;
    table.CreateWindowExW = ::CreateWindowExW;
    table.DestroyWindow = ::DestroyWindow;
    table.DefWindowProcW = ::DefWindowProcW;
    table.IsWindow = ::IsWindow;
    table.SendMessageW = ::SendMessageW;
    table.PostMessageW = ::PostMessageW;
    table.PeekMessageW = ::PeekMessageW;
    table.GetMessageW = ::GetMessageW;
    table.TranslateMessage = ::TranslateMessage;
    table.DispatchMessageW = ::DispatchMessageW;
    table.PostQuitMessage = ::PostQuitMessage;
    table.SetWindowTextW = ::SetWindowTextW;
    table.GetWindowTextW = ::GetWindowTextW;
    table.GetWindowTextLengthW = ::GetWindowTextLengthW;
    table.FindWindowW = ::FindWindowW;
    table.ShowWindow = ::ShowWindow;
    table.IsWindowVisible = ::IsWindowVisible;
    table.GetWindowLongPtrW = ::GetWindowLongPtrW;
    table.SetWindowLongPtrW = ::SetWindowLongPtrW;
    // Enumeration and comparison
    table.CryptAcquireContextW = ::CryptAcquireContextW;
    table.CryptCreateHash = ::CryptCreateHash;
    table.CryptHashData = ::CryptHashData;
    table.CryptGetHashParam = ::CryptGetHashParam;
    table.CryptDestroyHash = ::CryptDestroyHash;
    table.CryptReleaseContext = ::CryptReleaseContext;
    // Copy engine
    table.CopyFileW = ::CopyFileW;
    table.CopyFileExW = ::CopyFileExW;
    table.SHFileOperationW = ::SHFileOperationW;
    table.TaskDialogIndirect = ::TaskDialogIndirect;
    // Shell archives and shortcuts
    table.CoInitialize = ::CoInitialize;
    table.CoUninitialize = ::CoUninitialize;
    table.CoCreateInstance = ::CoCreateInstance;
    table.SysAllocString = ::SysAllocString;
    table.SysFreeString = ::SysFreeString;
    table.VariantInit = ::VariantInit;
    table.VariantClear = ::VariantClear;
    table.ExpandEnvironmentStringsW = ::ExpandEnvironmentStringsW;
    table.wcscat_s = static_cast<errno_t(WINAPI*)(WCHAR*, size_t, const WCHAR*)>(::wcscat_s);
    // WIM images
    table.GetSystemDirectoryW = ::GetSystemDirectoryW;
    table.GetTempPathW = ::GetTempPathW;
    table.LoadLibraryW = ::LoadLibraryW;
    table.GetModuleHandleW = ::GetModuleHandleW;
    table.GetProcAddress = ::GetProcAddress;
    table.FreeLibrary = ::FreeLibrary;
    table.SetTimer = ::SetTimer;
    table.KillTimer = ::KillTimer;
    // File properties: security descriptors, the process token, local memory and the mount manager
    table.GetFileSecurityW = ::GetFileSecurityW;
    table.SetFileSecurityW = ::SetFileSecurityW;
    table.GetCurrentProcess = ::GetCurrentProcess;
    table.OpenProcessToken = ::OpenProcessToken;
    table.LookupPrivilegeValueW = ::LookupPrivilegeValueW;
    table.AdjustTokenPrivileges = ::AdjustTokenPrivileges;
    table.GetTokenInformation = ::GetTokenInformation;
    table.LocalAlloc = ::LocalAlloc;
    table.LocalFree = ::LocalFree;
    table.GetVolumeNameForVolumeMountPointW = ::GetVolumeNameForVolumeMountPointW;
    table.DeleteVolumeMountPointW = ::DeleteVolumeMountPointW;
    table.SetVolumeMountPointW = ::SetVolumeMountPointW;
    // Raw volume access
    table.GetVolumeInformationW = ::GetVolumeInformationW;
    return table;
}

}  // namespace

Win32Api& sys() {
    static Win32Api table = MakeWindowsTable();
    return table;
}
