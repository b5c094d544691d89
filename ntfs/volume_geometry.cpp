// Volume and disk geometry: which physical disk holds a volume, the disk's sector size, and the sector of
// the disk at which the volume's cluster 0 begins. Each query opens its device, asks one question and
// closes it again; GetVolumeLayout chains them.
#include <cstring>
#include <memory>
#include <new>

#include "../platform/unique_handles.h"
#include "ntfs_internal.h"

namespace {

constexpr size_t kDiskNumberPathUnits = 32;
constexpr size_t kPhysicalDrivePathUnits = 32;
constexpr DWORD kVolumeNameUnits = MAX_PATH;
constexpr DWORD kFileSystemNameUnits = 80;
constexpr DWORD kDeviceShare = FILE_SHARE_READ | FILE_SHARE_WRITE;
// No disk has sectors larger than this; a larger answer is malformed, and taking it would make the layout
// query allocate and read gigabytes for one boot sector.
constexpr DWORD kLargestSectorSize = 64 * 1024;

// The boot sector fields, little-endian at fixed offsets.
constexpr size_t kSectorsPerClusterOffset = 13;
constexpr size_t kReservedSectorsOffset = 14;
constexpr size_t kFatCountOffset = 16;
constexpr size_t kSectorsPerFatOffset = 36;

// As isalpha in the "C" locale: only A-Z and a-z. A wider unit is not a letter (and must not reach the
// CRT's table, which is indexed by byte).
bool IsAsciiLetter(WCHAR unit) { return (unit >= 'A' && unit <= 'Z') || (unit >= 'a' && unit <= 'z'); }

template <class T>
T ReadLittleEndian(const BYTE* bytes, size_t offset) {
    T value = 0;
    for (size_t at = 0; at < sizeof(T); ++at) value |= static_cast<T>(static_cast<T>(bytes[offset + at]) << (8 * at));
    return value;
}

HANDLE OpenDevice(LPCWSTR path, DWORD access, DWORD flags) {
    return sys().CreateFileW(path, access, kDeviceShare, nullptr, OPEN_EXISTING, flags, nullptr);
}

}  // namespace

FileSystemKind GetFileSystemType(WCHAR letter) {
    WCHAR root[MAX_PATH];
    if (WStrFormatBuffer(root, MAX_PATH, _T("%c:\\"), letter) < 0) return FileSystemKind::Unknown;
    WCHAR volumeName[kVolumeNameUnits] = {};
    WCHAR fileSystemName[kFileSystemNameUnits] = {};
    DWORD serial = 0, maxComponentLength = 0, flags = 0;
    if (!sys().GetVolumeInformationW(root, volumeName, kVolumeNameUnits, &serial, &maxComponentLength, &flags,
                                     fileSystemName, kFileSystemNameUnits))
        return FileSystemKind::Unknown;
    // The platform may have filled the buffer to its end; the name is read only up to its last unit.
    fileSystemName[kFileSystemNameUnits - 1] = 0;
    // FAT32 is tested before FAT; a whole-name comparison keeps FAT16 and exFAT out of both.
    if (WStrICmp(fileSystemName, _T("FAT32")) == 0) return FileSystemKind::Fat32;
    if (WStrICmp(fileSystemName, _T("FAT")) == 0) return FileSystemKind::Fat;
    if (WStrICmp(fileSystemName, _T("NTFS")) == 0) return FileSystemKind::Ntfs;
    return FileSystemKind::Unknown;
}

int GetVolumeDiskNumber(WCHAR letter) {
    if (!IsAsciiLetter(letter)) return -1;
    WCHAR path[kDiskNumberPathUnits];
    if (WStrFormatBuffer(path, kDiskNumberPathUnits, _T("\\\\.\\%c:"), letter) < 0) return -1;
    VOLUME_DISK_EXTENTS extents;
    std::memset(&extents, 0, sizeof extents);
    DWORD returned = 0;
    BOOL answered = FALSE;
    {
        UniqueHandle volume(OpenDevice(path, GENERIC_READ | GENERIC_WRITE, 0));
        if (!volume) return -1;
        // The buffer has room for one extent: a volume spread over several disks fails the query here.
        answered = sys().DeviceIoControl(volume.get(), IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, nullptr, 0, &extents,
                                         sizeof extents, &returned, nullptr);
    }
    if (!answered) return -1;
    // A success that names no extent names no disk either.
    if (extents.NumberOfDiskExtents == 0) return -1;
    return static_cast<int>(extents.Extents[0].DiskNumber);
}

int GetDiskBytesPerSector(BYTE diskNumber, DWORD* bytesPerSector) {
    WCHAR path[kPhysicalDrivePathUnits];
    if (WStrFormatBuffer(path, kPhysicalDrivePathUnits, _T("\\\\.\\PhysicalDrive%d"), static_cast<int>(diskNumber)) < 0)
        return 0;
    UniqueHandle disk(OpenDevice(path, GENERIC_READ | GENERIC_WRITE, 0));
    if (!disk) return 0;
    DWORD returned = 0;
    DISK_GEOMETRY_EX geometryEx;
    std::memset(&geometryEx, 0, sizeof geometryEx);
    if (sys().DeviceIoControl(disk.get(), IOCTL_DISK_GET_DRIVE_GEOMETRY_EX, nullptr, 0, &geometryEx, sizeof geometryEx,
                              &returned, nullptr)) {
        // A sector size of 0 is no answer: every later step divides by it.
        if (geometryEx.Geometry.BytesPerSector == 0) return 0;
        if (bytesPerSector != nullptr) *bytesPerSector = geometryEx.Geometry.BytesPerSector;
        return 1;
    }
    // Older drivers know only the first form of the query.
    DISK_GEOMETRY geometry;
    std::memset(&geometry, 0, sizeof geometry);
    const BOOL answered =
        sys().DeviceIoControl(disk.get(), IOCTL_DISK_GET_DRIVE_GEOMETRY, nullptr, 0, &geometry, sizeof geometry, &returned, nullptr);
    disk.reset();
    if (!answered) return 0;
    if (bytesPerSector != nullptr) *bytesPerSector = geometry.BytesPerSector;
    return geometry.BytesPerSector == 0 ? 0 : 1;
}

DWORD GetFat32DataStart(const BYTE* bootSector) {
    const DWORD reserved = ReadLittleEndian<WORD>(bootSector, kReservedSectorsOffset);
    const DWORD fatCount = bootSector[kFatCountOffset];
    const DWORD sectorsPerFat = ReadLittleEndian<DWORD>(bootSector, kSectorsPerFatOffset);
    return reserved + fatCount * sectorsPerFat;
}

int GetVolumeLayout(WCHAR letter, ULONGLONG* firstDataSector, BYTE* sectorsPerCluster, DWORD* bytesPerSector) {
    const int diskNumber = GetVolumeDiskNumber(letter);
    if (diskNumber == -1) return 0;
    // Only the low 8 bits of the disk number reach the sector-size query.
    DWORD sectorSize = 0;
    if (!GetDiskBytesPerSector(static_cast<BYTE>(diskNumber), &sectorSize)) return 0;
    if (sectorSize > kLargestSectorSize) return 0;
    std::unique_ptr<BYTE[]> bootSector(new (std::nothrow) BYTE[sectorSize]);
    if (!bootSector) return 0;
    std::memset(bootSector.get(), 0, sectorSize);

    const FileSystemKind type = GetFileSystemType(letter);
    if (type != FileSystemKind::Ntfs && type != FileSystemKind::Fat32) return 0;

    WCHAR path[MAX_PATH];
    if (WStrFormatBuffer(path, MAX_PATH, _T("\\\\.\\%c:"), letter) < 0) return 0;
    ULONGLONG partitionFirstSector = 0;
    {
        UniqueHandle volume(OpenDevice(path, GENERIC_READ, FILE_ATTRIBUTE_NORMAL));
        if (!volume) return 0;
        PARTITION_INFORMATION_EX partition;
        std::memset(&partition, 0, sizeof partition);
        DWORD returned = 0;
        if (!sys().DeviceIoControl(volume.get(), IOCTL_DISK_GET_PARTITION_INFO_EX, nullptr, 0, &partition, sizeof partition,
                                   &returned, nullptr))
            return 0;
        // A partition cannot begin before its disk does; a negative offset is a malformed answer.
        if (partition.StartingOffset.QuadPart < 0) return 0;
        partitionFirstSector = static_cast<ULONGLONG>(partition.StartingOffset.QuadPart / static_cast<LONGLONG>(sectorSize));
        // The handle was opened just now, so it stands at the volume's first byte: the boot sector. A short
        // read is no boot sector.
        DWORD read = 0;
        if (!sys().ReadFile(volume.get(), bootSector.get(), sectorSize, &read, nullptr) || read != sectorSize) return 0;
    }

    const BYTE clusterSectors = bootSector[kSectorsPerClusterOffset];
    // A boot sector that claims clusters of no sectors describes no file system, and the sector position
    // would divide by it.
    if (clusterSectors == 0) return 0;
    ULONGLONG dataStart = partitionFirstSector;
    // FAT32 numbers its clusters from the first cluster after the FATs; NTFS from the volume's first sector.
    if (type == FileSystemKind::Fat32) dataStart += GetFat32DataStart(bootSector.get());

    if (firstDataSector != nullptr) *firstDataSector = dataStart;
    if (sectorsPerCluster != nullptr) *sectorsPerCluster = clusterSectors;
    if (bytesPerSector != nullptr) *bytesPerSector = sectorSize;
    return 1;
}
