// The volume interface: what every kind of volume (host folder, NTFS or FAT inside a disk image) offers the
// Win32 file calls, as a file-system driver's table of operations. A call finds the volume behind its path
// (drive letter or device name) and hands it the path relative to the volume root; the volume does its own
// case-insensitive lookup and answers in Win32 terms. Every operation that fails returns false (or null)
// with the last-error code Windows gives for the same failure; the defaults below fail as a file system
// without that feature does, so a kind implements only what it has.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "../core/internal.h"

namespace vlx {

class ShadowStore;

// What GetFileAttributesW, FindFirstFileW and GetFileInformationByHandle report of one entry.
struct VolumeEntry {
    WString name;                 // the last component as stored on the volume (its case kept)
    DWORD attributes = 0;         // FILE_ATTRIBUTE_*
    FILETIME created{}, accessed{}, written{};
    ULONGLONG size = 0;           // bytes of data; 0 for a folder
    ULONGLONG fileIndex = 0;      // stable while the volume is attached (NTFS: the file reference)
    DWORD links = 1;              // names of the file
};

// The find data of an entry under the name given (cut to what cFileName holds).
void FillFindData(const VolumeEntry& entry, const WString& name, WIN32_FIND_DATAW& data);

// A volume-relative path: the components below the root, without separators. Empty names the root.
using VolumePath = std::vector<WString>;

// The facts GetVolumeInformationW gives.
struct VolumeFacts {
    WString label;
    WString fileSystem;           // as Windows spells it: NTFS, FAT32, FAT, exFAT
    DWORD serial = 0;
    DWORD maxComponentLength = 255;
    DWORD flags = 0;              // FILE_CASE_PRESERVED_NAMES and the like
};

// Where a volume lies: on which attached disk, at which byte, how long. Host folders lie on no disk.
struct VolumePlacement {
    bool onDisk = false;
    DWORD diskNumber = 0;
    DWORD bytesPerSector = 0;     // the disk's sector size
    ULONGLONG startingOffset = 0; // byte offset of the volume's first byte on its disk
    ULONGLONG length = 0;         // bytes
    DWORD partitionNumber = 0;    // 1-based; 0 for a whole-disk file system
    bool gpt = false;
    BYTE mbrType = 0;             // MBR partition type
    GUID typeGuid{}, partitionGuid{};  // GPT
};

// One open file or folder of a volume, owned by the handle that opened it. Offsets are explicit: the
// handle keeps the file pointer.
class VolumeFile {
public:
    virtual ~VolumeFile() = default;
    // Reads up to size bytes at offset; done < size only at the end of the data.
    virtual bool Read(ULONGLONG offset, void* buffer, DWORD size, DWORD& done) = 0;
    virtual bool Write(ULONGLONG offset, const void* buffer, DWORD size, DWORD& done) {
        return Fail(ERROR_WRITE_PROTECT, false);
    }
    virtual bool SetSize(ULONGLONG size) { return Fail(ERROR_WRITE_PROTECT, false); }
    virtual bool Stat(VolumeEntry& out) = 0;
    // Null times stay as they are.
    virtual bool SetTimes(const FILETIME* created, const FILETIME* accessed, const FILETIME* written) {
        return Fail(ERROR_WRITE_PROTECT, false);
    }
    // File-system controls sent to this file (FSCTL_GET_RETRIEVAL_POINTERS, FSCTL_SET_COMPRESSION, ...).
    // returned is the count of bytes written to out, also on ERROR_MORE_DATA.
    virtual bool Control(DWORD code, const void* in, DWORD inSize, void* out, DWORD outSize, DWORD& returned) {
        returned = 0;
        return Fail(ERROR_INVALID_FUNCTION, false);
    }
};

class Volume {
public:
    virtual ~Volume() = default;

    virtual VolumeFacts Facts() = 0;
    virtual VolumePlacement Placement() { return {}; }

    // The entry a path names; false with ERROR_FILE_NOT_FOUND (last component missing) or
    // ERROR_PATH_NOT_FOUND (a folder on the way missing or not a folder).
    virtual bool Lookup(const VolumePath& path, VolumeEntry& out) = 0;
    // Every entry of a folder, without "." and "..", in any order (the caller sorts).
    virtual bool List(const VolumePath& folder, std::vector<VolumeEntry>& out) = 0;
    // Opens or creates an entry with CreateFileW's access (already expanded to specific rights), share,
    // disposition and flags; folders only with FILE_FLAG_BACKUP_SEMANTICS. Null with the last error set.
    virtual std::unique_ptr<VolumeFile> Open(const VolumePath& path, DWORD access, DWORD share, DWORD disposition,
                                             DWORD flags) = 0;

    virtual bool SetAttributes(const VolumePath& path, DWORD attributes) { return Fail(ERROR_WRITE_PROTECT, false); }
    virtual bool Delete(const VolumePath& path) { return Fail(ERROR_WRITE_PROTECT, false); }
    virtual bool CreateFolder(const VolumePath& path) { return Fail(ERROR_WRITE_PROTECT, false); }
    virtual bool RemoveFolder(const VolumePath& path) { return Fail(ERROR_WRITE_PROTECT, false); }
    virtual bool CreateHardLink(const VolumePath& newName, const VolumePath& existing) {
        return Fail(ERROR_INVALID_FUNCTION, false);
    }
    // Every name of the file, each from the root with a leading backslash ("\dir\file.txt").
    virtual bool LinkNames(const VolumePath& path, std::vector<WString>& names) {
        return Fail(ERROR_INVALID_FUNCTION, false);
    }
    // Opening by file index and the volume-relative name of an index, for the open-by-id of ntdll.
    virtual std::unique_ptr<VolumeFile> OpenByIndex(ULONGLONG fileIndex, DWORD access, DWORD share) {
        return Fail(ERROR_INVALID_PARAMETER, std::unique_ptr<VolumeFile>());
    }
    virtual bool NameOfIndex(ULONGLONG fileIndex, WString& relative) { return Fail(ERROR_INVALID_PARAMETER, false); }
    // Controls sent to the volume device (\\.\X:) that belong to the file system rather than to the disk
    // (FSCTL_GET_NTFS_VOLUME_DATA, the change journal); the disk's own IOCTLs are answered by the device.
    virtual bool VolumeControl(DWORD code, const void* in, DWORD inSize, void* out, DWORD outSize, DWORD& returned) {
        returned = 0;
        return Fail(ERROR_INVALID_FUNCTION, false);
    }
    // The parts of the entry's security descriptor that selection (OWNER_, GROUP_, DACL_, SACL_ and
    // LABEL_SECURITY_INFORMATION) names, as one self-relative block; and the write of those parts from a
    // self-relative block, the others left as they are. A kind without security keeps the defaults below.
    virtual bool GetSecurity(const VolumePath& path, SECURITY_INFORMATION selection, std::vector<BYTE>& selfRelative);
    virtual bool SetSecurity(const VolumePath& path, SECURITY_INFORMATION selection, const std::vector<BYTE>& selfRelative);
    // Writes everything held in memory to the image; detach calls it last.
    virtual bool Flush() { return true; }
    // A shadow copy: a read-only volume that keeps what this one holds now, reading through store (made
    // over this volume's bytes) while the store saves each block before this volume overwrites it. Kinds
    // that cannot be copied fail with ERROR_NOT_SUPPORTED.
    virtual std::unique_ptr<Volume> MakeShadowCopy(const std::shared_ptr<ShadowStore>& store) {
        return Fail(ERROR_NOT_SUPPORTED, std::unique_ptr<Volume>());
    }
};

// The open image file of an attached disk, closed when its last user lets go of it: a volume engine
// that outlives the detach of its disk never reads through a descriptor number that was reused.
class ImageFile {
public:
    explicit ImageFile(int fd) : fd_(fd) {}
    ~ImageFile();
    ImageFile(const ImageFile&) = delete;
    ImageFile& operator=(const ImageFile&) = delete;
    int Fd() const { return fd_; }

private:
    int fd_;
};

// A file-system engine's way into its bytes: reads and writes at offsets within the volume, bounded to
// the volume's length, on the image file that holds it.
class VolumeBytes {
public:
    VolumeBytes(std::shared_ptr<ImageFile> image, ULONGLONG offset, ULONGLONG length)
        : image_(std::move(image)), offset_(offset), length_(length) {}
    ULONGLONG Length() const { return length_; }
    int Fd() const { return image_->Fd(); }
    ULONGLONG Offset() const { return offset_; }
    // False (ERROR_READ_FAULT / ERROR_WRITE_FAULT) when the range leaves the volume or the image is short.
    bool Read(ULONGLONG at, void* buffer, size_t size) const;
    bool Write(ULONGLONG at, const void* buffer, size_t size) const;

private:
    std::shared_ptr<ImageFile> image_;
    ULONGLONG offset_;
    ULONGLONG length_;
};

// The file-system engines behind image volumes. Each gives null with the last error set when the bytes do
// not hold its file system (ERROR_UNRECOGNIZED_VOLUME) or hold a damaged one.
std::unique_ptr<Volume> OpenFatVolume(std::shared_ptr<VolumeBytes> bytes, const VolumePlacement& placement);
// The NTFS engine opens the image itself, at the volume's place in it.
std::unique_ptr<Volume> OpenNtfsVolume(const std::string& imagePath, const VolumePlacement& placement, bool readOnly);

}  // namespace vlx
