// The Win32 calls as they reach disk images: devices (\\.\X:, \\.\PhysicalDriveN, \\?\Volume{GUID}) and
// files on image volumes. Each entry of the platform asks these first, in one line at its top:
//
//     if (auto answer = ImageReadFile(file, buffer, toRead, read, overlapped)) return *answer;
//
// An empty answer means the path or handle is not ours and the host-folder code goes on as before.
#pragma once

#include <optional>
#include <vector>

#include "../../win32.h"
#include "../../wstr.h"

namespace vlx {

std::optional<HANDLE> ImageCreateFile(LPCWSTR path, DWORD access, DWORD share, DWORD disposition, DWORD flags);
std::optional<BOOL> ImageReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED overlapped);
std::optional<BOOL> ImageWriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written, LPOVERLAPPED overlapped);
std::optional<BOOL> ImageGetFileSizeEx(HANDLE file, PLARGE_INTEGER size);
std::optional<BOOL> ImageSetFilePointerEx(HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER newPosition, DWORD method);
std::optional<BOOL> ImageSetEndOfFile(HANDLE file);
std::optional<BOOL> ImageGetFileTime(HANDLE file, LPFILETIME created, LPFILETIME accessed, LPFILETIME written);
std::optional<BOOL> ImageSetFileTime(HANDLE file, const FILETIME* created, const FILETIME* accessed, const FILETIME* written);
std::optional<BOOL> ImageGetFileInformationByHandle(HANDLE file, LPBY_HANDLE_FILE_INFORMATION info);
std::optional<BOOL> ImageDeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize,
                                         LPDWORD returned);
std::optional<DWORD> ImageGetFileAttributes(LPCWSTR path);
std::optional<BOOL> ImageSetFileAttributes(LPCWSTR path, DWORD attributes);
std::optional<BOOL> ImageDeleteFile(LPCWSTR path);
std::optional<BOOL> ImageCreateDirectory(LPCWSTR path);
std::optional<BOOL> ImageRemoveDirectory(LPCWSTR path);
std::optional<HANDLE> ImageFindFirstFile(LPCWSTR pattern, LPWIN32_FIND_DATAW data);
std::optional<BOOL> ImageFindNextFile(HANDLE find, LPWIN32_FIND_DATAW data);
std::optional<BOOL> ImageCreateHardLink(LPCWSTR newName, LPCWSTR existing);
std::optional<HANDLE> ImageFindFirstFileName(LPCWSTR path, DWORD flags, LPDWORD length, PWSTR name);
std::optional<BOOL> ImageFindNextFileName(HANDLE find, LPDWORD length, PWSTR name);
std::optional<BOOL> ImageCopyFile(LPCWSTR existing, LPCWSTR newName, LPPROGRESS_ROUTINE progress, LPVOID data, LPBOOL cancel,
                                  DWORD flags);
// The current folder moved onto an image volume's folder.
std::optional<BOOL> ImageSetCurrentDirectory(LPCWSTR path);
// The selected parts of a file's descriptor as one self-relative block, and the write of them.
std::optional<BOOL> ImageGetFileSecurity(LPCWSTR path, SECURITY_INFORMATION requested, std::vector<BYTE>& block);
std::optional<BOOL> ImageSetFileSecurity(LPCWSTR path, SECURITY_INFORMATION parts, const std::vector<BYTE>& selfRelative);

// ntdll's open by file id: a file of the volume behind an open volume device, by its file index (NTFS:
// the file reference); INVALID_HANDLE_VALUE with the last error set (ERROR_INVALID_PARAMETER for a
// reference that names no file in use).
HANDLE ImageOpenByIndex(HANDLE volumeDevice, ULONGLONG fileIndex, DWORD access, DWORD share);
// The path of an open file from its volume's root ("\a\b", "\" for the root).
std::optional<BOOL> ImageFileName(HANDLE file, WString& relative);
// How both copies (between host folders, and to or from an image) open their two ends, so that a copy is
// refused and let through by the same open handles on either kind of volume: the source is read without
// letting others write, unless a writer holds it already and shares reading, as a log file's writer
// does; the target is written while others who share writing go on reading or writing it. Opening the
// target fails for the source itself, which no one may write while the copy reads it.
constexpr DWORD kCopyTargetShare = FILE_SHARE_READ | FILE_SHARE_WRITE;
HANDLE OpenCopySource(LPCWSTR existing);

}  // namespace vlx
