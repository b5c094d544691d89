// Our own reader of FAT volumes (FAT12, FAT16 and FAT32) inside disk images: the boot sector, cluster
// chains, folders with long names; lookup, listing, reading, and the file's cluster runs as retrieval
// pointers. It only reads: every change fails as on write-protected media.
#include <algorithm>
#include <cstring>
#include <map>

#include "../core/table.h"
#include "volume.h"


namespace vlx {

namespace {

constexpr BYTE kAttrReadOnly = 0x01, kAttrHidden = 0x02, kAttrSystem = 0x04, kAttrVolumeId = 0x08, kAttrDirectory = 0x10,
               kAttrArchive = 0x20, kAttrLongName = 0x0F;
constexpr size_t kEntryBytes = 32;
constexpr BYTE kDeletedMark = 0xE5, kEndMark = 0x00;
constexpr BYTE kLastLongEntry = 0x40;
constexpr BYTE kLowerCaseBase = 0x08, kLowerCaseExtension = 0x10;
constexpr DWORD kFirstCluster = 2;
constexpr DWORD kFat12Limit = 4085;
constexpr size_t kFatCacheBytes = 64 * 1024;

template <class T>
T Little(const BYTE* bytes, size_t offset) {
    T value = 0;
    for (size_t at = 0; at < sizeof(T); ++at) value |= static_cast<T>(static_cast<T>(bytes[offset + at]) << (8 * at));
    return value;
}

bool IsPowerOfTwo(DWORD value) { return value != 0 && (value & (value - 1)) == 0; }

// FAT time stamps are local times with no zone; they are taken as UTC, the way a volume moved between
// machines is read most predictably.
FILETIME FileTimeFromDos(WORD date, WORD time, BYTE tenths) {
    FILETIME result{};
    if (date == 0) return result;
    SYSTEMTIME system{};
    system.wYear = static_cast<WORD>(1980 + (date >> 9));
    system.wMonth = static_cast<WORD>(std::clamp((date >> 5) & 0x0F, 1, 12));
    system.wDay = static_cast<WORD>(std::clamp(date & 0x1F, 1, 31));
    system.wHour = static_cast<WORD>(std::min(time >> 11, 23));
    system.wMinute = static_cast<WORD>(std::min((time >> 5) & 0x3F, 59));
    system.wSecond = static_cast<WORD>(std::min((time & 0x1F) * 2 + tenths / 100, 59));
    system.wMilliseconds = static_cast<WORD>((tenths % 100) * 10);
    if (!SystemTimeToFileTime(&system, &result)) return FILETIME{};
    return result;
}

struct Run {
    DWORD cluster;  // first cluster of the run
    DWORD count;
};

struct FatEntry {
    VolumeEntry entry;
    DWORD firstCluster = 0;
};

class FatVolume;

class FatFile : public VolumeFile {
public:
    FatFile(FatVolume& volume, FatEntry entry, std::vector<Run> runs) : volume_(volume), entry_(std::move(entry)), runs_(std::move(runs)) {}
    bool Read(ULONGLONG offset, void* buffer, DWORD size, DWORD& done) override;
    bool Stat(VolumeEntry& out) override {
        out = entry_.entry;
        return true;
    }
    bool Control(DWORD code, const void* in, DWORD inSize, void* out, DWORD outSize, DWORD& returned) override;

private:
    FatVolume& volume_;
    FatEntry entry_;
    std::vector<Run> runs_;
};

class FatVolume : public Volume {
public:
    explicit FatVolume(std::shared_ptr<VolumeBytes> bytes) : bytes_(std::move(bytes)) {}

    // False when the boot sector does not describe a FAT volume that fits its bytes.
    bool Mount() {
        BYTE boot[512];
        if (!bytes_->Read(0, boot, sizeof boot)) return false;
        if (boot[510] != 0x55 || boot[511] != 0xAA) return false;
        bytesPerSector_ = Little<WORD>(boot, 11);
        sectorsPerCluster_ = boot[13];
        const DWORD reserved = Little<WORD>(boot, 14);
        const DWORD fats = boot[16];
        const DWORD rootEntries = Little<WORD>(boot, 17);
        const DWORD totalSectors = Little<WORD>(boot, 19) != 0 ? Little<WORD>(boot, 19) : Little<DWORD>(boot, 32);
        const DWORD fatSectors = Little<WORD>(boot, 22) != 0 ? Little<WORD>(boot, 22) : Little<DWORD>(boot, 36);
        if (bytesPerSector_ < 512 || bytesPerSector_ > 4096 || !IsPowerOfTwo(bytesPerSector_) || !IsPowerOfTwo(sectorsPerCluster_) ||
            reserved == 0 || fats == 0 || fatSectors == 0 || totalSectors == 0)
            return false;
        const ULONGLONG rootSectors = (rootEntries * kEntryBytes + bytesPerSector_ - 1) / bytesPerSector_;
        const ULONGLONG dataStart = reserved + static_cast<ULONGLONG>(fats) * fatSectors + rootSectors;
        if (dataStart >= totalSectors || static_cast<ULONGLONG>(totalSectors) * bytesPerSector_ > bytes_->Length()) return false;
        clusterCount_ = static_cast<DWORD>((totalSectors - dataStart) / sectorsPerCluster_);
        if (clusterCount_ == 0) return false;
        // Only FAT32's boot sector leaves the 16-bit FAT size at 0; between FAT12 and FAT16 the count of
        // clusters decides.
        fatBits_ = Little<WORD>(boot, 22) == 0 ? 32 : clusterCount_ < kFat12Limit ? 12 : 16;
        fatOffset_ = static_cast<ULONGLONG>(reserved) * bytesPerSector_;
        fatBytes_ = static_cast<ULONGLONG>(fatSectors) * bytesPerSector_;
        if ((static_cast<ULONGLONG>(clusterCount_) + kFirstCluster) * fatBits_ / 8 > fatBytes_) return false;
        rootOffset_ = (reserved + static_cast<ULONGLONG>(fats) * fatSectors) * bytesPerSector_;
        rootBytes_ = rootSectors * bytesPerSector_;
        dataOffset_ = dataStart * bytesPerSector_;
        clusterBytes_ = static_cast<DWORD>(bytesPerSector_) * sectorsPerCluster_;
        const size_t extended = fatBits_ == 32 ? 64 : 36;  // the extended boot record's place
        facts_.fileSystem = fatBits_ == 32 ? _T("FAT32") : _T("FAT");
        if (boot[extended + 2] == 0x29) {
            facts_.serial = Little<DWORD>(boot, extended + 3);
            std::string label(reinterpret_cast<const char*>(boot + extended + 7), 11);
            while (!label.empty() && label.back() == ' ') label.pop_back();
            if (label != "NO NAME") facts_.label = WStrFromUtf8(label);
        }
        facts_.maxComponentLength = 255;
        facts_.flags = FILE_CASE_PRESERVED_NAMES | FILE_UNICODE_ON_DISK;
        if (fatBits_ == 32) {
            rootCluster_ = Little<DWORD>(boot, 44);
            if (!IsDataCluster(rootCluster_)) return false;
        }
        return true;
    }

    VolumeFacts Facts() override { return facts_; }

    bool Lookup(const VolumePath& path, VolumeEntry& out) override {
        FatEntry found;
        if (!Find(path, found)) return false;
        out = found.entry;
        return true;
    }

    bool List(const VolumePath& folder, std::vector<VolumeEntry>& out) override {
        FatEntry found;
        if (!Find(folder, found)) return false;
        if (!(found.entry.attributes & FILE_ATTRIBUTE_DIRECTORY)) return Fail(ERROR_DIRECTORY, false);
        std::vector<FatEntry> entries;
        if (!ReadFolder(found, entries)) return false;
        for (FatEntry& entry : entries) out.push_back(std::move(entry.entry));
        return true;
    }

    std::unique_ptr<VolumeFile> Open(const VolumePath& path, DWORD access, DWORD share, DWORD disposition, DWORD flags) override {
        using Result = std::unique_ptr<VolumeFile>;
        FatEntry found;
        if (!Find(path, found)) {
            if (LastError() == ERROR_FILE_NOT_FOUND && disposition != OPEN_EXISTING && disposition != TRUNCATE_EXISTING)
                return Fail(ERROR_WRITE_PROTECT, Result());
            return Result();
        }
        const bool folder = (found.entry.attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        if (folder && (flags & FILE_FLAG_BACKUP_SEMANTICS) == 0) return Fail(ERROR_ACCESS_DENIED, Result());
        if (disposition == CREATE_NEW) return Fail(ERROR_FILE_EXISTS, Result());
        constexpr DWORD kChanges = FILE_WRITE_DATA | FILE_APPEND_DATA | FILE_WRITE_ATTRIBUTES | FILE_WRITE_EA | DELETE;
        if ((access & kChanges) != 0 || disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING ||
            (flags & FILE_FLAG_DELETE_ON_CLOSE) != 0)
            return Fail(ERROR_WRITE_PROTECT, Result());
        std::vector<Run> runs;
        if (!Chain(found, runs)) return Result();
        return std::make_unique<FatFile>(*this, std::move(found), std::move(runs));
    }

    // Reads within the data of a chain of runs.
    bool ReadRuns(const std::vector<Run>& runs, ULONGLONG offset, void* buffer, size_t size) {
        BYTE* to = static_cast<BYTE*>(buffer);
        ULONGLONG runStart = 0;
        for (const Run& run : runs) {
            const ULONGLONG runBytes = static_cast<ULONGLONG>(run.count) * clusterBytes_;
            if (size == 0) break;
            if (offset < runStart + runBytes) {
                const ULONGLONG within = offset - runStart;
                const size_t take = static_cast<size_t>(std::min<ULONGLONG>(size, runBytes - within));
                if (!bytes_->Read(ClusterOffset(run.cluster) + within, to, take)) return false;
                to += take;
                offset += take;
                size -= take;
            }
            runStart += runBytes;
        }
        return size == 0 ? true : Fail(ERROR_FILE_CORRUPT, false);
    }

    DWORD ClusterBytes() const { return clusterBytes_; }

private:
    bool IsDataCluster(DWORD cluster) const { return cluster >= kFirstCluster && cluster < clusterCount_ + kFirstCluster; }
    ULONGLONG ClusterOffset(DWORD cluster) const { return dataOffset_ + static_cast<ULONGLONG>(cluster - kFirstCluster) * clusterBytes_; }

    bool FatBytes(ULONGLONG at, BYTE* out, size_t size) {
        for (size_t index = 0; index < size; ++index) {
            const ULONGLONG position = at + index;
            if (cache_.empty() || position < cacheStart_ || position >= cacheStart_ + cache_.size()) {
                cacheStart_ = position - position % kFatCacheBytes;
                const size_t length = static_cast<size_t>(std::min<ULONGLONG>(kFatCacheBytes, fatBytes_ - cacheStart_));
                cache_.assign(length, 0);
                if (!bytes_->Read(fatOffset_ + cacheStart_, cache_.data(), length)) {
                    cache_.clear();
                    return false;
                }
            }
            out[index] = cache_[static_cast<size_t>(position - cacheStart_)];
        }
        return true;
    }

    // The FAT's entry for a cluster; false when it cannot be read.
    bool Next(DWORD cluster, DWORD& next) {
        BYTE raw[4] = {};
        if (fatBits_ == 32) {
            if (!FatBytes(static_cast<ULONGLONG>(cluster) * 4, raw, 4)) return false;
            next = Little<DWORD>(raw, 0) & 0x0FFFFFFF;
        } else if (fatBits_ == 16) {
            if (!FatBytes(static_cast<ULONGLONG>(cluster) * 2, raw, 2)) return false;
            next = Little<WORD>(raw, 0);
        } else {
            if (!FatBytes(cluster + cluster / 2, raw, 2)) return false;
            const WORD pair = Little<WORD>(raw, 0);
            next = (cluster & 1) ? pair >> 4 : pair & 0x0FFF;
        }
        return true;
    }
    bool IsEndOfChain(DWORD value) const {
        const DWORD end = fatBits_ == 32 ? 0x0FFFFFF8 : fatBits_ == 16 ? 0xFFF8 : 0xFF8;
        return value >= end;
    }

    // The runs of clusters of an entry. A chain longer than the volume has clusters loops, and a link to a
    // free, bad or out-of-range cluster leads nowhere: both are a damaged file (ERROR_FILE_CORRUPT). The
    // chain of a file ends once it holds the file's size.
    bool Chain(const FatEntry& entry, std::vector<Run>& runs) {
        runs.clear();
        DWORD cluster = entry.firstCluster;
        const bool folder = (entry.entry.attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        // Only the fixed root of FAT12/16 and empty files have no first cluster.
        if (cluster == 0) return (folder ? IsRootFixed(entry) : entry.entry.size == 0) ? true : Fail(ERROR_FILE_CORRUPT, false);
        const ULONGLONG needed = folder ? ~0ULL : (entry.entry.size + clusterBytes_ - 1) / clusterBytes_;
        ULONGLONG walked = 0;
        while (walked < needed) {
            if (!IsDataCluster(cluster) || walked >= clusterCount_) return Fail(ERROR_FILE_CORRUPT, false);
            if (!runs.empty() && runs.back().cluster + runs.back().count == cluster) ++runs.back().count;
            else runs.push_back({cluster, 1});
            ++walked;
            DWORD next = 0;
            if (!Next(cluster, next)) return false;
            if (IsEndOfChain(next)) break;
            cluster = next;
        }
        if (walked < needed && !folder) return Fail(ERROR_FILE_CORRUPT, false);
        return true;
    }
    bool IsRootFixed(const FatEntry& entry) const { return entry.entry.fileIndex == 0 && fatBits_ != 32; }

    FatEntry Root() const {
        FatEntry root;
        root.entry.attributes = FILE_ATTRIBUTE_DIRECTORY;
        root.firstCluster = fatBits_ == 32 ? rootCluster_ : 0;
        return root;
    }

    bool FolderBytes(const FatEntry& folder, std::vector<BYTE>& data) {
        if (IsRootFixed(folder)) {
            data.assign(static_cast<size_t>(rootBytes_), 0);
            return bytes_->Read(rootOffset_, data.data(), data.size());
        }
        std::vector<Run> runs;
        if (!Chain(folder, runs)) return false;
        ULONGLONG total = 0;
        for (const Run& run : runs) total += static_cast<ULONGLONG>(run.count) * clusterBytes_;
        // A folder holds at most 65536 entries.
        if (total > 65536 * kEntryBytes) return Fail(ERROR_FILE_CORRUPT, false);
        data.assign(static_cast<size_t>(total), 0);
        return ReadRuns(runs, 0, data.data(), data.size());
    }

    static BYTE ShortNameChecksum(const BYTE* name) {
        BYTE sum = 0;
        for (int at = 0; at < 11; ++at) sum = static_cast<BYTE>(((sum & 1) ? 0x80 : 0) + (sum >> 1) + name[at]);
        return sum;
    }

    static WString ShortName(const BYTE* raw) {
        const BYTE caseBits = raw[12];
        auto part = [&](size_t from, size_t length, bool lower) {
            WString text;
            for (size_t at = from; at < from + length; ++at) {
                BYTE c = raw[at];
                if (at == 0 && c == 0x05) c = kDeletedMark;
                if (lower && c >= 'A' && c <= 'Z') c = static_cast<BYTE>(c - 'A' + 'a');
                text += static_cast<WCHAR>(c);
            }
            while (!text.empty() && text.back() == ' ') text.pop_back();
            return text;
        };
        WString name = part(0, 8, caseBits & kLowerCaseBase);
        const WString extension = part(8, 3, caseBits & kLowerCaseExtension);
        if (!extension.empty()) name += _T(".") + extension;
        return name;
    }

    bool ReadFolder(const FatEntry& folder, std::vector<FatEntry>& out) {
        std::vector<BYTE> data;
        if (!FolderBytes(folder, data)) return false;
        // Long-name parts come before their short entry, last part first; they count only when their
        // sequence is whole and their checksum matches the short name.
        std::map<int, WString> parts;
        int expected = 0;
        BYTE checksum = 0;
        const ULONGLONG folderKey = folder.firstCluster;
        for (size_t at = 0; at + kEntryBytes <= data.size(); at += kEntryBytes) {
            const BYTE* raw = data.data() + at;
            if (raw[0] == kEndMark) break;
            if (raw[0] == kDeletedMark) {
                parts.clear();
                continue;
            }
            const BYTE attributes = raw[11];
            if ((attributes & 0x3F) == kAttrLongName) {
                const int order = raw[0] & 0x1F;
                if (raw[0] & kLastLongEntry) {
                    parts.clear();
                    expected = order;
                    checksum = raw[13];
                }
                WString piece;
                for (size_t offset : {1, 3, 5, 7, 9, 14, 16, 18, 20, 22, 24, 28, 30}) piece += static_cast<WCHAR>(Little<WORD>(raw, offset));
                parts[order] = piece;
                continue;
            }
            if (attributes & kAttrVolumeId) {
                parts.clear();
                continue;
            }
            FatEntry entry;
            entry.entry.name = ShortName(raw);
            if (expected > 0 && static_cast<int>(parts.size()) == expected && parts.begin()->first == 1 &&
                checksum == ShortNameChecksum(raw)) {
                WString name;
                for (const auto& [order, piece] : parts) name += piece;
                const size_t end = name.find(WCHAR(0));
                if (end != WString::npos) name.resize(end);
                if (!name.empty()) entry.entry.name = name;
            }
            parts.clear();
            expected = 0;
            if (entry.entry.name == _T(".") || entry.entry.name == _T("..")) continue;
            DWORD word = attributes & (kAttrReadOnly | kAttrHidden | kAttrSystem | kAttrDirectory | kAttrArchive);
            entry.entry.attributes = word == 0 ? FILE_ATTRIBUTE_NORMAL : word;
            entry.firstCluster = (fatBits_ == 32 ? static_cast<DWORD>(Little<WORD>(raw, 20)) << 16 : 0) | Little<WORD>(raw, 26);
            entry.entry.size = (attributes & kAttrDirectory) ? 0 : Little<DWORD>(raw, 28);
            entry.entry.created = FileTimeFromDos(Little<WORD>(raw, 16), Little<WORD>(raw, 14), raw[13]);
            entry.entry.accessed = FileTimeFromDos(Little<WORD>(raw, 18), 0, 0);
            entry.entry.written = FileTimeFromDos(Little<WORD>(raw, 24), Little<WORD>(raw, 22), 0);
            // The place of the short entry identifies the file for as long as the volume is attached.
            entry.entry.fileIndex = (folderKey << 20) + at / kEntryBytes + 1;
            entry.entry.links = 1;
            out.push_back(std::move(entry));
        }
        return true;
    }

    bool Find(const VolumePath& path, FatEntry& out) {
        FatEntry current = Root();
        for (size_t index = 0; index < path.size(); ++index) {
            if (!(current.entry.attributes & FILE_ATTRIBUTE_DIRECTORY)) return Fail(ERROR_PATH_NOT_FOUND, false);
            std::vector<FatEntry> entries;
            if (!ReadFolder(current, entries)) return false;
            auto match = std::find_if(entries.begin(), entries.end(),
                                      [&](const FatEntry& entry) { return NamesEqualNoCase(entry.entry.name, path[index]); });
            if (match == entries.end()) return Fail(index + 1 == path.size() ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND, false);
            current = *match;
        }
        out = current;
        return true;
    }

    std::shared_ptr<VolumeBytes> bytes_;
    VolumeFacts facts_;
    DWORD bytesPerSector_ = 0, sectorsPerCluster_ = 0, clusterBytes_ = 0, clusterCount_ = 0, rootCluster_ = 0;
    int fatBits_ = 0;
    ULONGLONG fatOffset_ = 0, fatBytes_ = 0, rootOffset_ = 0, rootBytes_ = 0, dataOffset_ = 0;
    std::vector<BYTE> cache_;
    ULONGLONG cacheStart_ = 0;
};

bool FatFile::Read(ULONGLONG offset, void* buffer, DWORD size, DWORD& done) {
    done = 0;
    if ((entry_.entry.attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return Fail(ERROR_INVALID_FUNCTION, false);
    if (offset >= entry_.entry.size) return true;
    const DWORD take = static_cast<DWORD>(std::min<ULONGLONG>(size, entry_.entry.size - offset));
    if (!volume_.ReadRuns(runs_, offset, buffer, take)) return false;
    done = take;
    return true;
}

// The runs from the asked-for virtual cluster on, counted from the first data cluster (cluster 2 is 0):
// as many as the buffer holds, with ERROR_MORE_DATA when more follow and ERROR_HANDLE_EOF when the file
// has no cluster at or after the one asked for.
bool FatFile::Control(DWORD code, const void* in, DWORD inSize, void* out, DWORD outSize, DWORD& returned) {
    returned = 0;
    if (code != FSCTL_GET_RETRIEVAL_POINTERS) return Fail(ERROR_INVALID_FUNCTION, false);
    if (in == nullptr || inSize < sizeof(STARTING_VCN_INPUT_BUFFER)) return Fail(ERROR_INVALID_PARAMETER, false);
    if (out == nullptr || outSize < sizeof(RETRIEVAL_POINTERS_BUFFER)) return Fail(ERROR_INSUFFICIENT_BUFFER, false);
    STARTING_VCN_INPUT_BUFFER input;
    std::memcpy(&input, in, sizeof input);
    const LONGLONG wanted = input.StartingVcn.QuadPart;
    if (wanted < 0) return Fail(ERROR_INVALID_PARAMETER, false);
    size_t first = 0;
    LONGLONG vcn = 0;
    while (first < runs_.size() && vcn + runs_[first].count <= wanted) vcn += runs_[first++].count;
    if (first == runs_.size()) return Fail(ERROR_HANDLE_EOF, false);
    BYTE* buffer = static_cast<BYTE*>(out);
    const size_t room = (outSize - offsetof(RETRIEVAL_POINTERS_BUFFER, Extents)) / sizeof(RETRIEVAL_POINTERS_BUFFER::Extents[0]);
    const size_t count = std::min(room, runs_.size() - first);
    const DWORD extentCount = static_cast<DWORD>(count);
    LARGE_INTEGER startingVcn{};
    startingVcn.QuadPart = vcn;
    std::memcpy(buffer, &extentCount, sizeof extentCount);
    std::memcpy(buffer + offsetof(RETRIEVAL_POINTERS_BUFFER, StartingVcn), &startingVcn, sizeof startingVcn);
    for (size_t index = 0; index < count; ++index) {
        const Run& run = runs_[first + index];
        vcn += run.count;
        const LONGLONG pair[2] = {vcn, static_cast<LONGLONG>(run.cluster) - kFirstCluster};
        std::memcpy(buffer + offsetof(RETRIEVAL_POINTERS_BUFFER, Extents) + index * sizeof pair, pair, sizeof pair);
    }
    returned = static_cast<DWORD>(offsetof(RETRIEVAL_POINTERS_BUFFER, Extents) + count * 16);
    if (first + count < runs_.size()) return Fail(ERROR_MORE_DATA, false);
    SetLastErrorCode(ERROR_SUCCESS);
    return true;
}

}  // namespace

std::unique_ptr<Volume> OpenFatVolume(std::shared_ptr<VolumeBytes> bytes, const VolumePlacement& /*placement*/) {
    auto volume = std::make_unique<FatVolume>(std::move(bytes));
    if (!volume->Mount()) return Fail(ERROR_UNRECOGNIZED_VOLUME, std::unique_ptr<Volume>());
    return volume;
}

}  // namespace vlx
