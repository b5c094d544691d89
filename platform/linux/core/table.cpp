// The platform table bound to the Linux implementations.
#include "../../api.h"
#include "table.h"

namespace {

Win32Api MakeLinuxTable() {
    Win32Api table{};
    table.GetLastError = vlx::GetLastError;
    table.SetLastError = vlx::SetLastError;
    table.GetFileAttributesW = vlx::GetFileAttributesW;
    table.SetFileAttributesW = vlx::SetFileAttributesW;
    table.FindFirstFileW = vlx::FindFirstFileW;
    table.FindNextFileW = vlx::FindNextFileW;
    table.FindClose = vlx::FindClose;
    table.FindFirstFileNameW = vlx::FindFirstFileNameW;
    table.FindNextFileNameW = vlx::FindNextFileNameW;
    table.CreateFileW = vlx::CreateFileW;
    table.ReadFile = vlx::ReadFile;
    table.WriteFile = vlx::WriteFile;
    table.GetFileSize = vlx::GetFileSize;
    table.GetFileSizeEx = vlx::GetFileSizeEx;
    table.SetFilePointerEx = vlx::SetFilePointerEx;
    table.SetEndOfFile = vlx::SetEndOfFile;
    table.GetFileTime = vlx::GetFileTime;
    table.SetFileTime = vlx::SetFileTime;
    table.GetFileInformationByHandle = vlx::GetFileInformationByHandle;
    table.CloseHandle = vlx::CloseHandle;
    table.DeleteFileW = vlx::DeleteFileW;
    table.CreateDirectoryW = vlx::CreateDirectoryW;
    table.RemoveDirectoryW = vlx::RemoveDirectoryW;
    table.CreateHardLinkW = vlx::CreateHardLinkW;
    table.GetCurrentDirectoryW = vlx::GetCurrentDirectoryW;
    table.SetCurrentDirectoryW = vlx::SetCurrentDirectoryW;
    table.GetFullPathNameW = vlx::GetFullPathNameW;
    table.DeviceIoControl = vlx::DeviceIoControl;
    table.FileTimeToSystemTime = vlx::FileTimeToSystemTime;
    table.SystemTimeToFileTime = vlx::SystemTimeToFileTime;
    table.PathFileExistsW = vlx::PathFileExistsW;
    table.PathIsDirectoryW = vlx::PathIsDirectoryW;
    table.Sleep = vlx::Sleep;
    table.RegisterClassW = vlx::RegisterClassW;
    table.UnregisterClassW = vlx::UnregisterClassW;
    table.CreateWindowExW = vlx::CreateWindowExW;
    table.DestroyWindow = vlx::DestroyWindow;
    table.DefWindowProcW = vlx::DefWindowProcW;
    table.IsWindow = vlx::IsWindow;
    table.SendMessageW = vlx::SendMessageW;
    table.PostMessageW = vlx::PostMessageW;
    table.PeekMessageW = vlx::PeekMessageW;
    table.GetMessageW = vlx::GetMessageW;
    table.TranslateMessage = vlx::TranslateMessage;
    table.DispatchMessageW = vlx::DispatchMessageW;
    table.PostQuitMessage = vlx::PostQuitMessage;
    table.SetWindowTextW = vlx::SetWindowTextW;
    table.GetWindowTextW = vlx::GetWindowTextW;
    table.GetWindowTextLengthW = vlx::GetWindowTextLengthW;
    table.FindWindowW = vlx::FindWindowW;
    table.ShowWindow = vlx::ShowWindow;
    table.IsWindowVisible = vlx::IsWindowVisible;
    table.GetWindowLongPtrW = vlx::GetWindowLongPtrW;
    table.SetWindowLongPtrW = vlx::SetWindowLongPtrW;
    // Enumeration and comparison
    table.CryptAcquireContextW = vlx::CryptAcquireContextW;
    table.CryptCreateHash = vlx::CryptCreateHash;
    table.CryptHashData = vlx::CryptHashData;
    table.CryptGetHashParam = vlx::CryptGetHashParam;
    table.CryptDestroyHash = vlx::CryptDestroyHash;
    table.CryptReleaseContext = vlx::CryptReleaseContext;
    // Copy engine
    table.CopyFileW = vlx::CopyFileW;
    table.CopyFileExW = vlx::CopyFileExW;
    table.SHFileOperationW = vlx::SHFileOperationW;
    table.TaskDialogIndirect = vlx::TaskDialogIndirect;
    // Shell archives and shortcuts
    table.CoInitialize = vlx::CoInitialize;
    table.CoUninitialize = vlx::CoUninitialize;
    table.CoCreateInstance = vlx::CoCreateInstance;
    table.SysAllocString = vlx::SysAllocString;
    table.SysFreeString = vlx::SysFreeString;
    table.VariantInit = vlx::VariantInit;
    table.VariantClear = vlx::VariantClear;
    table.ExpandEnvironmentStringsW = vlx::ExpandEnvironmentStringsW;
    table.wcscat_s = vlx::wcscat_s;
    // WIM images
    table.GetSystemDirectoryW = vlx::GetSystemDirectoryW;
    table.GetTempPathW = vlx::GetTempPathW;
    table.LoadLibraryW = vlx::LoadLibraryW;
    table.GetModuleHandleW = vlx::GetModuleHandleW;
    table.GetProcAddress = vlx::GetProcAddress;
    table.FreeLibrary = vlx::FreeLibrary;
    table.SetTimer = vlx::SetTimer;
    table.KillTimer = vlx::KillTimer;
    // File properties: security descriptors, the process token, local memory and the mount manager
    table.GetFileSecurityW = vlx::GetFileSecurityW;
    table.SetFileSecurityW = vlx::SetFileSecurityW;
    table.GetCurrentProcess = vlx::GetCurrentProcess;
    table.OpenProcessToken = vlx::OpenProcessToken;
    table.LookupPrivilegeValueW = vlx::LookupPrivilegeValueW;
    table.AdjustTokenPrivileges = vlx::AdjustTokenPrivileges;
    table.GetTokenInformation = vlx::GetTokenInformation;
    table.LocalAlloc = vlx::LocalAlloc;
    table.LocalFree = vlx::LocalFree;
    table.GetVolumeNameForVolumeMountPointW = vlx::GetVolumeNameForVolumeMountPointW;
    table.DeleteVolumeMountPointW = vlx::DeleteVolumeMountPointW;
    table.SetVolumeMountPointW = vlx::SetVolumeMountPointW;
    // Raw volume access
    table.GetVolumeInformationW = vlx::GetVolumeInformationW;
    return table;
}

}  // namespace

Win32Api& sys() {
    static Win32Api table = MakeLinuxTable();
    return table;
}
