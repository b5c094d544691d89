// Open devices of attached disks and open files of image volumes, as objects of the handle table.
#pragma once

#include <mutex>
#include <optional>

#include "image_table.h"

namespace vlx {

// \\.\PhysicalDriveN (no volume) or a volume's device (\\.\X:, \\?\Volume{GUID}).
class DeviceObject : public KernelObject {
public:
    std::shared_ptr<AttachedDisk> disk;
    std::shared_ptr<ImageVolume> volume;
    DWORD access = 0;
    std::mutex lock;
    ULONGLONG position = 0;  // bytes from the device's first byte; a new handle stands at 0

    bool Gone() const;       // its disk or volume was detached
    ULONGLONG Start() const; // byte of the disk where the device begins
    ULONGLONG Length() const;
};

// A file or folder opened on an image volume.
class ImageFileObject : public KernelObject {
public:
    ~ImageFileObject() override;
    std::shared_ptr<ImageVolume> volume;
    std::unique_ptr<VolumeFile> file;
    DWORD access = 0;
    bool isFolder = false;
    std::mutex lock;
    ULONGLONG position = 0;
    OpenRecord record;
    bool registered = false;
};

// Opens a device path; empty when the path names no device.
std::optional<HANDLE> OpenDevice(LPCWSTR path, DWORD access, DWORD flags);
BOOL ReadDevice(DeviceObject& device, LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED overlapped);
BOOL DeviceControl(DeviceObject& device, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize, LPDWORD returned);

}  // namespace vlx
