// What the raw-volume family shares inside the library: the geometry of a volume and of its physical disk,
// which turns a volume's cluster numbers into absolute sectors of the disk, and the master file table walk
// that the whole-volume counting and listing are built on.
#pragma once

#include <functional>

#include "../frame/frame_internal.h"
#include "../platform/unique_handles.h"

// The file systems the geometry recognises. The numbers are fixed: there is no 3 or 4.
enum class FileSystemKind : DWORD { Unknown = 0, Fat = 1, Fat32 = 2, Ntfs = 5 };

// The file system of the volume behind a drive letter, by the name the volume reports.
FileSystemKind GetFileSystemType(WCHAR letter);
// The number of the physical disk that holds the volume, or -1 when the letter is not an ASCII letter, the
// volume cannot be opened, or it does not lie in one extent on one disk.
int GetVolumeDiskNumber(WCHAR letter);
// The sector size of \\.\PhysicalDriveN; 1 on success, 0 when the disk cannot be opened or measured.
int GetDiskBytesPerSector(BYTE diskNumber, DWORD* bytesPerSector);
// Sectors from the start of a FAT32 volume to its first data cluster, from its boot sector.
DWORD GetFat32DataStart(const BYTE* bootSector);
// Where the volume's cluster 0 lies on its disk, how many sectors make a cluster and how large the disk's
// sectors are. Null out-pointers are not written. 1 on success, 0 for any volume but NTFS and FAT32.
int GetVolumeLayout(WCHAR letter, ULONGLONG* firstDataSector, BYTE* sectorsPerCluster, DWORD* bytesPerSector);

// ---- The master file table walk: every in-use record of an NTFS volume through the change journal's
// enumeration, and the path of each by opening it by its file reference relative to the volume.

// The native entry points the walk reaches by name in ntdll.dll.
using NtCreateFileFunction = NTSTATUS(NTAPI*)(PHANDLE file, ACCESS_MASK access, POBJECT_ATTRIBUTES attributes,
                                              PIO_STATUS_BLOCK status, PLARGE_INTEGER allocationSize, ULONG fileAttributes,
                                              ULONG share, ULONG disposition, ULONG options, PVOID eaBuffer, ULONG eaLength);
using NtQueryInformationFileFunction = NTSTATUS(NTAPI*)(HANDLE file, PIO_STATUS_BLOCK status, PVOID information,
                                                        ULONG length, FILE_INFORMATION_CLASS kind);

// A volume opened for the walk, with the journal's NextUsn that bounds the enumeration.
struct JournalVolume {
    UniqueHandle volume;
    LONGLONG nextUsn = 0;
};

// Resolves NtCreateFile and NtQueryInformationFile in the already-loaded ntdll.dll into the library-wide
// pointers; every call stores the same two values.
void BindNtFileFunctions();
// Opens \\.\X: and passes the NTFS and change-journal gates; false (nothing held) when any of them fails.
bool OpenJournalVolume(WCHAR letter, JournalVolume& out);
// Hands each record's file reference to visit, in the order the batches deliver them, until the platform
// reports the end of the table, a call fails, or a batch is malformed.
void EnumerateMftRecords(HANDLE volume, LONGLONG nextUsn, const std::function<void(ULONGLONG reference)>& visit);
// The volume-relative path of a file reference into buffer (bufferBytes bytes), NUL-terminated: 1, or 0
// when the file cannot be opened or named, or its name does not fit with its terminator.
int LookupPathByReference(HANDLE volume, ULONGLONG reference, LPWSTR buffer, DWORD bufferBytes);
// "X:" followed by the volume-relative path.
CString MakeFullPath(WCHAR letter, LPCWSTR relative);
