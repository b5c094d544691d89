// Open devices of attached disks and open files of image volumes, as objects of the handle table.
#pragma once

#include <mutex>
#include <optional>

#include "image_table.h"
#include "volume_kind.h"

namespace vlx {

// \\.\PhysicalDriveN (no volume) or a volume's device (\\.\X:, \\?\Volume{GUID}).
class DeviceObject : public OpenObject {
public:
    BOOL Read(LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED overlapped) override;
    // Raw writes would go behind the file system's back; the devices here are read-only.
    BOOL Write(LPCVOID, DWORD, LPDWORD, LPOVERLAPPED) override { return Fail(ERROR_WRITE_PROTECT, FALSE); }
    BOOL GetSize(PLARGE_INTEGER) override { return Fail(ERROR_INVALID_FUNCTION, FALSE); }
    BOOL SetPointer(LARGE_INTEGER distance, PLARGE_INTEGER newPosition, DWORD method) override;
    BOOL Control(DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize, LPDWORD returned) override;

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
class ImageFileObject : public OpenObject {
public:
    ~ImageFileObject() override;
    BOOL Read(LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED overlapped) override;
    BOOL Write(LPCVOID buffer, DWORD toWrite, LPDWORD written, LPOVERLAPPED overlapped) override;
    BOOL GetSize(PLARGE_INTEGER size) override;
    BOOL SetPointer(LARGE_INTEGER distance, PLARGE_INTEGER newPosition, DWORD method) override;
    BOOL SetEnd() override;
    BOOL GetTimes(LPFILETIME created, LPFILETIME accessed, LPFILETIME written) override;
    BOOL SetTimes(const FILETIME* created, const FILETIME* accessed, const FILETIME* written) override;
    BOOL GetInformation(LPBY_HANDLE_FILE_INFORMATION info) override;
    BOOL Control(DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize, LPDWORD returned) override;
    bool VolumeRelativeName(WString& relative) override;

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
// Moves a handle's own file pointer, as SetFilePointerEx does, within a file or device of end bytes.
BOOL MovePointer(ULONGLONG& position, ULONGLONG end, LARGE_INTEGER distance, PLARGE_INTEGER newPosition, DWORD method);

// ntdll's open by file id: a file of the volume behind an open volume device, by its file index (NTFS:
// the file reference); INVALID_HANDLE_VALUE with the last error set (ERROR_INVALID_PARAMETER for a
// reference that names no file in use).
HANDLE ImageOpenByIndex(HANDLE volumeDevice, ULONGLONG fileIndex, DWORD access, DWORD share);

}  // namespace vlx
