// Volume information and the devices of attached disks: \\.\X:, \\?\Volume{GUID} and \\.\PhysicalDriveN
// handles, the disk and volume IOCTLs they answer and raw sector reads. Opening a device needs an
// elevated process (root), as on Windows.
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "../core/table.h"
#include "../services/token.h"
#include "device_object.h"

namespace vlx {

namespace {

bool StartsWithNoCase(const WString& text, const WString& prefix) {
    return text.size() >= prefix.size() && WStrICmp(text.substr(0, prefix.size()).c_str(), prefix.c_str()) == 0;
}

// Parses "\\.\PhysicalDriveN" and the volume device names; false when the path is no device name.
struct DeviceName {
    bool isDevice = false;
    std::shared_ptr<AttachedDisk> disk;
    std::shared_ptr<ImageVolume> volume;
};

DeviceName ParseDeviceName(LPCWSTR path) {
    DeviceName name;
    if (path == nullptr) return name;
    const WString text = path;
    static const WString kDevicePrefix = _T("\\\\.\\"), kLongPrefix = _T("\\\\?\\");
    WString rest;
    if (StartsWithNoCase(text, kDevicePrefix)) rest = text.substr(kDevicePrefix.size());
    else if (StartsWithNoCase(text, kLongPrefix)) rest = text.substr(kLongPrefix.size());
    else return name;
    static const WString kPhysicalDrive = _T("PhysicalDrive"), kVolume = _T("Volume{");
    if (StartsWithNoCase(rest, kPhysicalDrive) && text[2] == '.') {
        const WString digits = rest.substr(kPhysicalDrive.size());
        if (digits.empty() || digits.size() > 9) return name;
        DWORD number = 0;
        for (WCHAR unit : digits) {
            if (unit < '0' || unit > '9') return name;
            number = number * 10 + (unit - '0');
        }
        name.isDevice = true;
        name.disk = DiskByNumber(number);
    } else if (rest.size() == 2 && rest[1] == ':' && text[2] == '.') {
        name.isDevice = true;
        name.volume = VolumeByLetter(rest[0]);
    } else if (StartsWithNoCase(rest, kVolume) && rest.back() == '}') {
        // With a trailing backslash the name is the volume's root folder, not its device.
        name.isDevice = true;
        name.volume = VolumeByName(kLongPrefix + rest);
    }
    if (name.volume) name.disk = name.volume->disk.lock();
    return name;
}

template <class T>
bool GiveStructure(const T& value, LPVOID out, DWORD outSize, LPDWORD returned) {
    if (out == nullptr || outSize < sizeof value) return Fail(ERROR_INSUFFICIENT_BUFFER, false);
    std::memcpy(out, &value, sizeof value);
    if (returned != nullptr) *returned = sizeof value;
    return true;
}

DISK_GEOMETRY GeometryOf(const AttachedDisk& disk) {
    // The classic translation: 255 heads of 63 sectors, as Windows reports for every disk it can address.
    DISK_GEOMETRY geometry{};
    geometry.MediaType = FixedMedia;
    geometry.TracksPerCylinder = 255;
    geometry.SectorsPerTrack = 63;
    geometry.BytesPerSector = disk.sectorSize;
    geometry.Cylinders.QuadPart = static_cast<LONGLONG>(disk.size / (255ULL * 63 * disk.sectorSize));
    return geometry;
}

PARTITION_INFORMATION_EX PartitionOf(const AttachedDisk& disk, const ImageVolume* volume) {
    PARTITION_INFORMATION_EX partition;
    std::memset(&partition, 0, sizeof partition);
    if (volume == nullptr) {
        // The whole disk is partition 0.
        partition.PartitionStyle = PARTITION_STYLE_RAW;
        partition.PartitionLength.QuadPart = static_cast<LONGLONG>(disk.size);
        return partition;
    }
    const VolumePlacement& placement = volume->placement;
    partition.StartingOffset.QuadPart = static_cast<LONGLONG>(placement.startingOffset);
    partition.PartitionLength.QuadPart = static_cast<LONGLONG>(placement.length);
    partition.PartitionNumber = placement.partitionNumber;
    if (placement.gpt) {
        partition.PartitionStyle = PARTITION_STYLE_GPT;
        partition.Gpt.PartitionType = placement.typeGuid;
        partition.Gpt.PartitionId = placement.partitionGuid;
    } else {
        partition.PartitionStyle = PARTITION_STYLE_MBR;
        partition.Mbr.PartitionType = placement.mbrType;
        partition.Mbr.RecognizedPartition = !volume->facts.fileSystem.empty();
        partition.Mbr.HiddenSectors = static_cast<DWORD>(placement.startingOffset / disk.sectorSize);
        partition.Mbr.PartitionId = placement.partitionGuid;
    }
    return partition;
}

}  // namespace

bool DeviceObject::Gone() const { return disk->detached || (volume && volume->detached); }
ULONGLONG DeviceObject::Start() const { return volume ? volume->placement.startingOffset : 0; }
ULONGLONG DeviceObject::Length() const { return volume ? volume->placement.length : disk->size; }

std::optional<HANDLE> OpenDevice(LPCWSTR path, DWORD access, DWORD flags) {
    const DeviceName name = ParseDeviceName(path);
    if (!name.isDevice) return std::nullopt;
    // Only attached images have devices; a host folder behind a letter has none.
    if (!name.disk) return Fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
    if (!ProcessIsElevated()) return Fail(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE);
    if (name.disk->readOnly && (ExpandAccess(access) & (FILE_WRITE_DATA | FILE_APPEND_DATA)))
        return Fail(ERROR_WRITE_PROTECT, INVALID_HANDLE_VALUE);
    auto object = std::make_shared<DeviceObject>();
    object->disk = name.disk;
    object->volume = name.volume;
    object->access = ExpandAccess(access);
    SetLastErrorCode(ERROR_SUCCESS);
    return InsertHandle(std::move(object));
}

// Raw reads go through whole sectors from the device's current position, as on Windows, where an
// unaligned offset or length fails with ERROR_INVALID_PARAMETER. Reading at or past the end gives 0 bytes.
BOOL DeviceObject::Read(LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED overlapped) {
    DeviceObject& device = *this;
    if (device.Gone()) return Fail(ERROR_DEVICE_NOT_CONNECTED, FALSE);
    if ((device.access & FILE_READ_DATA) == 0) return Fail(ERROR_ACCESS_DENIED, FALSE);
    std::lock_guard lock(device.lock);
    ULONGLONG position = device.position;
    if (overlapped != nullptr) position = (static_cast<ULONGLONG>(overlapped->u.s.OffsetHigh) << 32) | overlapped->u.s.Offset;
    const DWORD sector = device.disk->sectorSize;
    if (position % sector != 0 || toRead % sector != 0) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    if (buffer == nullptr && toRead > 0) return Fail(ERROR_NOACCESS, FALSE);
    const ULONGLONG length = device.Length();
    const DWORD take = position >= length ? 0 : static_cast<DWORD>(std::min<ULONGLONG>(toRead, length - position));
    VolumeBytes bytes(device.disk->image, device.Start(), length);
    if (take > 0 && !bytes.Read(position, buffer, take)) return FALSE;
    device.position = position + take;
    if (read != nullptr) *read = take;
    return TRUE;  // a read that succeeds leaves the last error as it was
}

BOOL DeviceObject::SetPointer(LARGE_INTEGER distance, PLARGE_INTEGER newPosition, DWORD method) {
    std::lock_guard guard(lock);
    return MovePointer(position, Length(), distance, newPosition, method);
}

BOOL DeviceObject::Control(DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize, LPDWORD returned) {
    DeviceObject& device = *this;
    if (device.Gone()) return Fail(ERROR_DEVICE_NOT_CONNECTED, FALSE);
    const AttachedDisk& disk = *device.disk;
    switch (code) {
        case IOCTL_DISK_GET_DRIVE_GEOMETRY:
            return GiveStructure(GeometryOf(disk), out, outSize, returned);
        case IOCTL_DISK_GET_DRIVE_GEOMETRY_EX: {
            // The detection data after the size is optional; the fixed part is what callers read.
            DISK_GEOMETRY_EX geometry;
            std::memset(&geometry, 0, sizeof geometry);
            geometry.Geometry = GeometryOf(disk);
            geometry.DiskSize.QuadPart = static_cast<LONGLONG>(disk.size);
            const DWORD fixed = offsetof(DISK_GEOMETRY_EX, Data);
            if (out == nullptr || outSize < fixed) return Fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
            std::memcpy(out, &geometry, fixed);
            if (returned != nullptr) *returned = fixed;
            return TRUE;
        }
        case IOCTL_DISK_GET_LENGTH_INFO: {
            GET_LENGTH_INFORMATION length{};
            length.Length.QuadPart = static_cast<LONGLONG>(device.Length());
            return GiveStructure(length, out, outSize, returned);
        }
        case IOCTL_DISK_GET_PARTITION_INFO_EX:
            return GiveStructure(PartitionOf(disk, device.volume.get()), out, outSize, returned);
        case IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS: {
            if (!device.volume) return Fail(ERROR_INVALID_FUNCTION, FALSE);
            VOLUME_DISK_EXTENTS extents;
            std::memset(&extents, 0, sizeof extents);
            extents.NumberOfDiskExtents = 1;
            extents.Extents[0].DiskNumber = disk.number;
            extents.Extents[0].StartingOffset.QuadPart = static_cast<LONGLONG>(device.volume->placement.startingOffset);
            extents.Extents[0].ExtentLength.QuadPart = static_cast<LONGLONG>(device.volume->placement.length);
            return GiveStructure(extents, out, outSize, returned);
        }
    }
    // What the file system itself answers on its volume device.
    if (device.volume && device.volume->engine) {
        std::lock_guard lock(device.volume->engineLock);
        DWORD count = 0;
        const bool done = device.volume->engine->VolumeControl(code, in, inSize, out, outSize, count);
        if (returned != nullptr) *returned = count;
        return done ? TRUE : FALSE;
    }
    return Fail(ERROR_INVALID_FUNCTION, FALSE);
}

}  // namespace vlx
