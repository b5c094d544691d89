// The table of attached disk images and their volumes: by disk number, by drive letter and by volume
// name. Everything the devices and the file calls on image volumes find, they find here.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include "volume.h"

namespace vlx {

struct AttachedDisk;

// One volume of an attached disk. The engine's lock serialises every call into it: the file-system
// engines keep state of their own and none of them is safe for two threads at once.
struct ImageVolume {
    std::weak_ptr<AttachedDisk> disk;
    std::unique_ptr<Volume> engine;  // null when the volume holds no file system we know
    std::recursive_mutex engineLock;
    VolumePlacement placement;
    VolumeFacts facts;               // fileSystem empty when there is no engine
    WString guidName;                // \\?\Volume{GUID} without a trailing backslash
    WCHAR letter = 0;
    std::atomic<bool> detached{false};
};

struct AttachedDisk {
    DWORD number = 0;
    std::string imagePath;
    std::shared_ptr<ImageFile> image;
    bool readOnly = false;
    DWORD sectorSize = 512;
    ULONGLONG size = 0;              // bytes
    std::vector<std::shared_ptr<ImageVolume>> volumes;
    std::atomic<bool> detached{false};
};

// Registers a disk with its volumes and letters; false with a reason when its number or a letter is taken.
bool RegisterDisk(const std::shared_ptr<AttachedDisk>& disk, std::string* error);
// Takes a disk out of the table; null when it is not there.
std::shared_ptr<AttachedDisk> UnregisterDisk(DWORD number);
// The lowest disk number not in use.
DWORD FreeDiskNumber();
std::shared_ptr<AttachedDisk> DiskByNumber(DWORD number);
std::shared_ptr<ImageVolume> VolumeByLetter(WCHAR letter);
// By \\?\Volume{GUID}, matched without regard to case.
std::shared_ptr<ImageVolume> VolumeByName(const WString& name);
bool AssignLetter(const std::shared_ptr<ImageVolume>& volume, WCHAR letter);

// The Win32 paths that reach image volumes: "X:\..." with X a letter of an image volume, and
// "\\?\Volume{GUID}\...". The rest of the path is split into components, "." and ".." applied, with
// ERROR_INVALID_NAME for names Windows refuses and ERROR_FILENAME_EXCED_RANGE for overlong paths. Null
// (last error untouched) when the path is on no image volume.
struct ImagePath {
    std::shared_ptr<ImageVolume> volume;
    VolumePath components;
    bool trailingSeparator = false;
    bool valid = true;               // false: the last error says why the path cannot be used
    bool hasWildcard = false;        // the last component holds * or ?
};
ImagePath ResolveImagePath(LPCWSTR path);
// Whether a path lies on an image volume, as ResolveImagePath would find, without taking the rest apart.
bool OnImageVolume(LPCWSTR path);

}  // namespace vlx
