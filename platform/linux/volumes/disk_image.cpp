// Disk images attached as physical disks: the partition table read with libblkid, one volume per
// partition (or one for a bare file system) with its GUID name and letter, the file-system engine chosen
// from the volume's first sector, and the flush on detach.
#include <blkid/blkid.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "../core/table.h"
#include "image_table.h"

namespace vlx {

ImageFile::~ImageFile() {
    if (fd_ >= 0) close(fd_);
}

bool VolumeBytes::Read(ULONGLONG at, void* buffer, size_t size) const {
    if (at > length_ || size > length_ - at) return Fail(ERROR_READ_FAULT, false);
    size_t done = 0;
    while (done < size) {
        const ssize_t count = pread(Fd(), static_cast<char*>(buffer) + done, size - done, static_cast<off_t>(offset_ + at + done));
        if (count < 0 && errno == EINTR) continue;
        // An image shorter than its partition table says ends the data here.
        if (count <= 0) return Fail(ERROR_READ_FAULT, false);
        done += static_cast<size_t>(count);
    }
    return true;
}

bool VolumeBytes::Write(ULONGLONG at, const void* buffer, size_t size) const {
    if (at > length_ || size > length_ - at) return Fail(ERROR_WRITE_FAULT, false);
    size_t done = 0;
    while (done < size) {
        const ssize_t count =
            pwrite(Fd(), static_cast<const char*>(buffer) + done, size - done, static_cast<off_t>(offset_ + at + done));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return Fail(count < 0 && errno == ENOSPC ? ERROR_DISK_FULL : ERROR_WRITE_FAULT, false);
        done += static_cast<size_t>(count);
    }
    return true;
}

namespace {

constexpr DWORD kSmallSector = 512;
constexpr DWORD kLargeSector = 4096;
constexpr char kGptSignature[] = "EFI PART";

// A volume whose file system we recognise by name but do not serve.
class NamedVolume : public Volume {
public:
    explicit NamedVolume(WString name) { facts_.fileSystem = std::move(name); }
    VolumeFacts Facts() override { return facts_; }
    bool Lookup(const VolumePath&, VolumeEntry&) override { return Fail(ERROR_UNRECOGNIZED_VOLUME, false); }
    bool List(const VolumePath&, std::vector<VolumeEntry>&) override { return Fail(ERROR_UNRECOGNIZED_VOLUME, false); }
    std::unique_ptr<VolumeFile> Open(const VolumePath&, DWORD, DWORD, DWORD, DWORD) override {
        return Fail(ERROR_UNRECOGNIZED_VOLUME, std::unique_ptr<VolumeFile>());
    }

private:
    VolumeFacts facts_;
};

bool HasSignatureAt(int fd, off_t offset) {
    char bytes[sizeof kGptSignature - 1] = {};
    return pread(fd, bytes, sizeof bytes, offset) == static_cast<ssize_t>(sizeof bytes) &&
           std::memcmp(bytes, kGptSignature, sizeof bytes) == 0;
}

// 16 bytes from a text with 32 hex digits and any dashes, as GUID's fields (the first three little-endian
// on disk, written big-endian in text).
bool ParseGuid(const std::string& text, GUID& guid) {
    std::string hex;
    for (char c : text)
        if (c != '-') hex += c;
    if (hex.size() != 32) return false;
    BYTE bytes[16];
    for (int at = 0; at < 16; ++at) {
        char pair[3] = {hex[2 * at], hex[2 * at + 1], 0};
        char* end = nullptr;
        bytes[at] = static_cast<BYTE>(std::strtoul(pair, &end, 16));
        if (end != pair + 2) return false;
    }
    guid.Data1 = (DWORD(bytes[0]) << 24) | (DWORD(bytes[1]) << 16) | (DWORD(bytes[2]) << 8) | bytes[3];
    guid.Data2 = static_cast<WORD>((bytes[4] << 8) | bytes[5]);
    guid.Data3 = static_cast<WORD>((bytes[6] << 8) | bytes[7]);
    std::memcpy(guid.Data4, bytes + 8, 8);
    return true;
}

WString FormatGuid(const GUID& guid) {
    return WStrFormat(_T("%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x"), guid.Data1, guid.Data2, guid.Data3,
                      guid.Data4[0], guid.Data4[1], guid.Data4[2], guid.Data4[3], guid.Data4[4], guid.Data4[5], guid.Data4[6],
                      guid.Data4[7]);
}

// A volume of an MBR disk or a bare image has no GUID of its own: one is made from what identifies it, so
// that the same image attached again gives the same name.
GUID DerivedGuid(const std::string& diskId, ULONGLONG offset) {
    ULONGLONG hash = 1469598103934665603ULL;
    auto mix = [&](const void* data, size_t size) {
        for (size_t at = 0; at < size; ++at) hash = (hash ^ static_cast<const BYTE*>(data)[at]) * 1099511628211ULL;
    };
    mix(diskId.data(), diskId.size());
    mix(&offset, sizeof offset);
    const ULONGLONG second = hash * 0x9E3779B97F4A7C15ULL;
    GUID guid{};
    guid.Data1 = static_cast<DWORD>(hash);
    guid.Data2 = static_cast<WORD>(hash >> 32);
    guid.Data3 = static_cast<WORD>(((hash >> 48) & 0x0FFF) | 0x4000);
    std::memcpy(guid.Data4, &second, 8);
    guid.Data4[0] = static_cast<BYTE>((guid.Data4[0] & 0x3F) | 0x80);
    return guid;
}

struct Partition {
    ULONGLONG offset = 0, length = 0;
    DWORD number = 0;
    BYTE mbrType = 0;
    std::string typeGuid, partitionGuid;
};

struct PartitionTable {
    bool found = false;
    bool gpt = false;
    std::string diskId;
    std::vector<Partition> partitions;
};

struct ProbeDeleter {
    void operator()(blkid_probe probe) const { blkid_free_probe(probe); }
};

PartitionTable ReadPartitionTable(int fd, ULONGLONG size, DWORD sectorSize) {
    PartitionTable table;
    std::unique_ptr<std::remove_pointer_t<blkid_probe>, ProbeDeleter> probe(blkid_new_probe());
    if (!probe || blkid_probe_set_device(probe.get(), fd, 0, static_cast<blkid_loff_t>(size)) != 0) return table;
    blkid_probe_set_sectorsize(probe.get(), sectorSize);
    blkid_probe_enable_superblocks(probe.get(), 0);
    blkid_probe_enable_partitions(probe.get(), 1);
    blkid_partlist list = blkid_probe_get_partitions(probe.get());
    if (list == nullptr) return table;
    blkid_parttable root = blkid_partlist_get_table(list);
    if (root == nullptr) return table;
    table.found = true;
    const char* type = blkid_parttable_get_type(root);
    table.gpt = type != nullptr && std::strcmp(type, "gpt") == 0;
    const char* id = blkid_parttable_get_id(root);
    table.diskId = id != nullptr ? id : "";
    const int count = blkid_partlist_numof_partitions(list);
    for (int index = 0; index < count; ++index) {
        blkid_partition entry = blkid_partlist_get_partition(list, index);
        if (entry == nullptr || blkid_partition_is_extended(entry)) continue;
        Partition partition;
        // libblkid counts in 512-byte units whatever the disk's sector size.
        partition.offset = static_cast<ULONGLONG>(blkid_partition_get_start(entry)) * kSmallSector;
        partition.length = static_cast<ULONGLONG>(blkid_partition_get_size(entry)) * kSmallSector;
        partition.number = static_cast<DWORD>(blkid_partition_get_partno(entry));
        partition.mbrType = static_cast<BYTE>(blkid_partition_get_type(entry));
        const char* typeText = blkid_partition_get_type_string(entry);
        const char* uuid = blkid_partition_get_uuid(entry);
        partition.typeGuid = typeText != nullptr ? typeText : "";
        partition.partitionGuid = uuid != nullptr ? uuid : "";
        table.partitions.push_back(partition);
    }
    return table;
}

constexpr DWORDLONG kJournalMaximumSize = 32ULL << 20;
constexpr DWORDLONG kJournalAllocationDelta = 4ULL << 20;

// The engine for the file system in the volume's bytes, if we know it. A damaged file system of a kind
// we know leaves the volume RAW, as Windows shows it.
void OpenEngine(ImageVolume& volume, const AttachedDisk& disk, const std::shared_ptr<VolumeBytes>& bytes) {
    BYTE first[kSmallSector] = {};
    if (!bytes->Read(0, first, sizeof first)) return;
    if (std::memcmp(first + 3, "NTFS    ", 8) == 0) {
        volume.engine = OpenNtfsVolume(disk.imagePath, volume.placement, disk.readOnly);
    } else if (std::memcmp(first + 3, "EXFAT   ", 8) == 0) {
        volume.engine = std::make_unique<NamedVolume>(_T("exFAT"));
    } else {
        volume.engine = OpenFatVolume(bytes, volume.placement);
    }
    if (volume.engine) volume.facts = volume.engine->Facts();
}

}  // namespace

int AttachDiskImage(const std::string& imagePath, const DiskAttachOptions& options, std::string* error) {
    auto refuse = [&](const std::string& why) {
        if (error != nullptr) *error = why;
        return -1;
    };
    if (options.sectorSize != 0 && options.sectorSize != kSmallSector && options.sectorSize != kLargeSector)
        return refuse("sector size must be 512 or 4096");
    const int fd = open(imagePath.c_str(), (options.readOnly ? O_RDONLY : O_RDWR) | O_CLOEXEC);
    if (fd < 0) return refuse(imagePath + ": " + std::strerror(errno));
    auto disk = std::make_shared<AttachedDisk>();
    disk->image = std::make_shared<ImageFile>(fd);
    disk->imagePath = imagePath;
    disk->readOnly = options.readOnly;
    struct stat status {};
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return refuse(imagePath + ": not a regular file");
    disk->size = static_cast<ULONGLONG>(status.st_size);
    disk->sectorSize = options.sectorSize != 0 ? options.sectorSize
                       : (!HasSignatureAt(fd, kSmallSector) && HasSignatureAt(fd, kLargeSector)) ? kLargeSector
                                                                                                 : kSmallSector;
    if (disk->size < disk->sectorSize) return refuse(imagePath + ": shorter than one sector");
    disk->number = options.diskNumber >= 0 ? static_cast<DWORD>(options.diskNumber) : FreeDiskNumber();

    PartitionTable table = ReadPartitionTable(fd, disk->size, disk->sectorSize);
    if (!table.found) {
        // A bare file system fills the whole image.
        Partition whole;
        whole.length = disk->size;
        table.partitions.push_back(whole);
        char first[kSmallSector] = {};
        if (pread(fd, first, sizeof first, 0) < 0) return refuse(imagePath + ": unreadable");
        table.diskId = std::string(first, sizeof first) + std::to_string(disk->size);
    }

    size_t letterIndex = 0;
    for (const Partition& partition : table.partitions) {
        // A partition the table places (partly) beyond the image's end is not a volume; the others are.
        if (partition.length == 0 || partition.offset >= disk->size || partition.length > disk->size - partition.offset) continue;
        auto volume = std::make_shared<ImageVolume>();
        volume->disk = disk;
        VolumePlacement& placement = volume->placement;
        placement.onDisk = true;
        placement.diskNumber = disk->number;
        placement.bytesPerSector = disk->sectorSize;
        placement.startingOffset = partition.offset;
        placement.length = partition.length;
        placement.partitionNumber = partition.number;
        placement.gpt = table.gpt;
        placement.mbrType = partition.mbrType;
        GUID guid{};
        if (!(table.gpt && ParseGuid(partition.partitionGuid, guid))) guid = DerivedGuid(table.diskId, partition.offset);
        placement.partitionGuid = guid;
        if (table.gpt) ParseGuid(partition.typeGuid, placement.typeGuid);
        volume->guidName = _T("\\\\?\\Volume{") + FormatGuid(guid) + _T("}");
        if (letterIndex < options.letters.size()) {
            const WCHAR letter = options.letters[letterIndex++];
            if (letter != '-') volume->letter = (letter >= 'a' && letter <= 'z') ? static_cast<WCHAR>(letter - 'a' + 'A') : letter;
        }
        OpenEngine(*volume, *disk, std::make_shared<VolumeBytes>(disk->image, partition.offset, partition.length));
        if (options.activateJournal && volume->engine && volume->facts.fileSystem == _T("NTFS")) {
            // The sizes Windows picks for a journal made by hand on a small volume.
            CREATE_USN_JOURNAL_DATA journal{kJournalMaximumSize, kJournalAllocationDelta};
            DWORD returned = 0;
            if (!volume->engine->VolumeControl(FSCTL_CREATE_USN_JOURNAL, &journal, sizeof journal, nullptr, 0, returned))
                return refuse(imagePath + ": the change journal cannot be made active");
        }
        disk->volumes.push_back(std::move(volume));
    }
    if (!RegisterDisk(disk, error)) return -1;
    return static_cast<int>(disk->number);
}

bool DetachDisk(int diskNumber) {
    if (diskNumber < 0) return false;
    std::shared_ptr<AttachedDisk> disk = UnregisterDisk(static_cast<DWORD>(diskNumber));
    if (!disk) return false;
    disk->detached = true;
    for (const auto& volume : disk->volumes) {
        std::lock_guard lock(volume->engineLock);
        volume->detached = true;
        if (volume->engine) volume->engine->Flush();
    }
    fsync(disk->image->Fd());
    return true;
}

std::vector<AttachedVolumeInfo> DiskVolumes(int diskNumber) {
    std::vector<AttachedVolumeInfo> out;
    if (diskNumber < 0) return out;
    auto disk = DiskByNumber(static_cast<DWORD>(diskNumber));
    if (!disk) return out;
    for (const auto& volume : disk->volumes) {
        AttachedVolumeInfo info;
        info.volumeName = volume->guidName + _T("\\");
        info.letter = volume->letter;
        info.fileSystem = volume->facts.fileSystem;
        info.offset = volume->placement.startingOffset;
        info.length = volume->placement.length;
        info.partitionNumber = volume->placement.partitionNumber;
        out.push_back(info);
    }
    return out;
}

bool SetVolumeLetter(const WString& volumeName, WCHAR letter) {
    WString name = volumeName;
    if (!name.empty() && name.back() == '\\') name.pop_back();
    auto volume = VolumeByName(name);
    return volume && AssignLetter(volume, letter);
}

}  // namespace vlx
