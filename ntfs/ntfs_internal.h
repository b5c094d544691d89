// What the raw-volume family shares inside the library: the geometry of a volume and of its physical disk,
// which turns a volume's cluster numbers into absolute sectors of the disk.
#pragma once

#include "../frame/frame_internal.h"

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
