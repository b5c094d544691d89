// Shadow copies of image volumes: point-in-time, read-only copies made by copy-on-write, as the system's
// shadow copy service keeps them. Making one costs the same for a small and a huge volume: nothing is
// copied then. From that moment each write the live volume makes first saves the blocks it overwrites
// into the copy's diff area (an unnamed temporary file); the copy reads a block from the diff area when it
// was saved there, from the live image otherwise, and the same file-system engine as the live volume
// serves it read-only. A copy is reachable as \\?\GLOBALROOT\Device\HarddiskVolumeShadowCopyN, with N
// counting up from 1 for the life of the process, until it is released.
//
// Limits: a copy follows the live volume as attached when it was made; a disk detached and attached
// again, or an image changed behind the platform's back, is not copied on write.
#pragma once

#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "image_table.h"
#include "ntfs/ntfs_engine.h"

namespace vlx {

// The diff area of one copy and its view of the volume's bytes as they were.
class ShadowStore : public ntfs::WriteObserver, public ntfs::ByteSource {
public:
    // The volume's bytes are [offset, offset + length) of the image.
    ShadowStore(std::shared_ptr<ImageFile> image, ULONGLONG offset, ULONGLONG length);
    ~ShadowStore() override;
    ShadowStore(const ShadowStore&) = delete;
    ShadowStore& operator=(const ShadowStore&) = delete;
    // False when no diff area could be made (ERROR_DISK_FULL, ERROR_ACCESS_DENIED).
    bool Ready() const { return diffFd_ >= 0; }

    bool BeforeWrite(ULONGLONG offset, ULONGLONG count) override;
    ULONGLONG Length() const override { return length_; }
    bool Read(ULONGLONG offset, void* buffer, size_t count) override;
    // The copy is gone: the diff area is given back, reads fail and writes need nothing saved.
    void Release();
    // Bytes held in the diff area.
    ULONGLONG SavedBytes();

private:
    bool ReadLive(ULONGLONG offset, void* buffer, size_t count) const;

    std::shared_ptr<ImageFile> image_;
    ULONGLONG offset_;
    ULONGLONG length_;
    std::mutex lock_;
    int diffFd_ = -1;
    ULONGLONG diffSize_ = 0;
    std::unordered_map<ULONGLONG, ULONGLONG> saved_;  // block number -> its place in the diff area
    std::vector<char> block_;
    bool released_ = false;
};

// One shadow copy, alive as long as its holder keeps it.
class ShadowCopy {
public:
    // A copy of an image volume as it is now; null with the last error when its kind has no copies
    // (ERROR_NOT_SUPPORTED) or the diff area cannot be made.
    static std::shared_ptr<ShadowCopy> Create(const std::shared_ptr<ImageVolume>& original);
    ~ShadowCopy();
    ShadowCopy(const ShadowCopy&) = delete;
    ShadowCopy& operator=(const ShadowCopy&) = delete;

    // \\?\GLOBALROOT\Device\HarddiskVolumeShadowCopyN, without a trailing backslash.
    const WString& DeviceName() const { return volume_->guidName; }
    // \\?\Volume{GUID}\ of the volume copied, with its trailing backslash.
    const WString& OriginalVolumeName() const { return originalName_; }
    ULONGLONG DiffAreaBytes() { return store_->SavedBytes(); }

private:
    ShadowCopy() = default;
    std::shared_ptr<ImageVolume> volume_;
    std::shared_ptr<ShadowStore> store_;
    WString originalName_;
};

// The copy a device name names (matched without regard to case), or null.
std::shared_ptr<ImageVolume> ShadowCopyVolume(const WString& deviceName);
// How many copies are alive.
size_t ShadowCopyCount();

}  // namespace vlx
