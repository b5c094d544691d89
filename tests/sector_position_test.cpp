// Volume geometry and file sector positions over a scripted disk: the calls made and their order, the
// arithmetic on recorded answers (sector sizes, partition offsets, boot sectors, 32-bit wrap-around), the
// walk over retrieval pointers, and the rules for answers no real volume gives.
#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <functional>
#include <map>

#include "../ntfs/ntfs_internal.h"
#include "support/scripted_files.h"

namespace {

using namespace testing_support;

struct Run {
    LONGLONG nextVcn;
    LONGLONG lcn;
};

// One recorded answer to FSCTL_GET_RETRIEVAL_POINTERS, given as it stands whatever the call asked for.
struct RecordedAnswer {
    DWORD error;  // 0 for success
    DWORD extentCount;
    LONGLONG startingVcn;
    std::vector<Run> extents;
};

// A disk with one volume E: and one file on it. Each device query answers from the fields below; the
// file's runs are answered as a file system does, 64 at a time from the cluster asked for, unless recorded
// answers are queued.
class ScriptedDisk {
public:
    std::string fileSystem = "NTFS";
    DWORD volumeInformationError = 0;
    DWORD diskNumber = 0, diskExtents = 1, extentsError = 0;
    DWORD bytesPerSector = 512, geometryExError = 0;
    DWORD olderBytesPerSector = 512, geometryError = 0;
    LONGLONG startingOffset = 1048576;
    DWORD partitionError = 0, readError = 0;
    size_t bootSectorBytesRead = 0;  // 0: the whole sector
    std::vector<BYTE> bootSector = std::vector<BYTE>(4096, 0);
    DWORD fileOpenError = 0;
    std::vector<Run> runs;  // the file's runs from cluster 0, in file order
    std::deque<RecordedAnswer> recorded;
    ULONGLONG fileSize = 0;
    std::vector<std::string> log;

    ScriptedDisk() { SetBoot(8, 0, 0, 0); }
    void SetBoot(BYTE sectorsPerCluster, WORD reserved, BYTE fats, DWORD sectorsPerFat) {
        bootSector[13] = sectorsPerCluster;
        bootSector[14] = static_cast<BYTE>(reserved);
        bootSector[15] = static_cast<BYTE>(reserved >> 8);
        bootSector[16] = fats;
        for (int at = 0; at < 4; ++at) bootSector[36 + at] = static_cast<BYTE>(sectorsPerFat >> (8 * at));
    }
    size_t OpenHandles() const { return open_.size(); }

private:
    std::map<HANDLE, std::string> open_;
    uintptr_t nextHandle_ = 0x100;

    static BOOL Failed(DWORD error) {
        sys().SetLastError(error);
        return FALSE;
    }
    std::string NameOf(HANDLE handle) const {
        auto found = open_.find(handle);
        return found == open_.end() ? "stray" : found->second;
    }
    template <class T>
    static BOOL Give(const T& value, LPVOID out, DWORD outSize, LPDWORD returned) {
        if (outSize < sizeof value) return Failed(ERROR_INSUFFICIENT_BUFFER);
        std::memcpy(out, &value, sizeof value);
        *returned = sizeof value;
        return TRUE;
    }
    BOOL Geometry(DWORD code, LPVOID out, DWORD outSize, LPDWORD returned) {
        if (code == IOCTL_DISK_GET_DRIVE_GEOMETRY_EX) {
            if (geometryExError != 0) return Failed(geometryExError);
            DISK_GEOMETRY_EX geometry{};
            geometry.Geometry.BytesPerSector = bytesPerSector;
            return Give(geometry, out, outSize, returned);
        }
        if (geometryError != 0) return Failed(geometryError);
        DISK_GEOMETRY geometry{};
        geometry.BytesPerSector = olderBytesPerSector;
        return Give(geometry, out, outSize, returned);
    }
    BOOL Retrieval(LONGLONG from, BYTE* out, DWORD outSize, LPDWORD returned) {
        RecordedAnswer answer{0, 0, 0, {}};
        if (!recorded.empty()) {
            answer = recorded.front();
            recorded.pop_front();
        } else {
            size_t first = 0;
            while (first < runs.size() && runs[first].nextVcn <= from) ++first;
            if (first == runs.size()) return Failed(ERROR_HANDLE_EOF);
            const size_t room = (outSize - 16) / 16;
            answer.startingVcn = first == 0 ? 0 : runs[first - 1].nextVcn;
            answer.extents.assign(runs.begin() + static_cast<std::ptrdiff_t>(first),
                                  runs.begin() + static_cast<std::ptrdiff_t>(std::min(runs.size(), first + room)));
            answer.extentCount = static_cast<DWORD>(answer.extents.size());
            answer.error = first + room < runs.size() ? ERROR_MORE_DATA : 0;
        }
        if (answer.error != 0 && answer.error != ERROR_MORE_DATA) return Failed(answer.error);
        std::memcpy(out, &answer.extentCount, 4);
        std::memcpy(out + 8, &answer.startingVcn, 8);
        for (size_t index = 0; index < answer.extents.size() && 16 + 16 * (index + 1) <= outSize; ++index)
            std::memcpy(out + 16 + 16 * index, &answer.extents[index], 16);
        *returned = static_cast<DWORD>(16 + 16 * answer.extents.size());
        return answer.error != 0 ? Failed(answer.error) : TRUE;
    }

    ApiPatch<&Win32Api::CreateFileW> open_call_{[this](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES,
                                                       DWORD disposition, DWORD flags, HANDLE) {
        const std::string name = U(path);
        log.push_back("CreateFileW " + name + " " + Hex(access) + " " + Hex(share) + " " + std::to_string(disposition) +
                      " " + Hex(flags));
        const bool device = name.starts_with("\\\\.\\");
        if (!device && fileOpenError != 0) return Failed(fileOpenError), INVALID_HANDLE_VALUE;
        HANDLE handle = reinterpret_cast<HANDLE>(nextHandle_++);
        open_[handle] = name;
        return handle;
    }};
    ApiPatch<&Win32Api::CloseHandle> close_call_{[this](HANDLE handle) {
        log.push_back("CloseHandle " + NameOf(handle));
        return open_.erase(handle) == 1 ? TRUE : Failed(ERROR_INVALID_HANDLE);
    }};
    ApiPatch<&Win32Api::DeviceIoControl> control_call_{[this](HANDLE handle, DWORD code, LPVOID in, DWORD inSize, LPVOID out,
                                                              DWORD outSize, LPDWORD returned, LPOVERLAPPED) {
        std::string entry = "DeviceIoControl " + NameOf(handle) + " " + Hex(code);
        if (code == FSCTL_GET_RETRIEVAL_POINTERS && in != nullptr && inSize == 8)
            entry += " from " + std::to_string(*static_cast<LONGLONG*>(in));
        log.push_back(entry + " in " + std::to_string(inSize) + " out " + std::to_string(outSize));
        *returned = 0;
        switch (code) {
            case IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS: {
                if (extentsError != 0) return Failed(extentsError);
                VOLUME_DISK_EXTENTS extents{};
                extents.NumberOfDiskExtents = diskExtents;
                extents.Extents[0].DiskNumber = diskNumber;
                return Give(extents, out, outSize, returned);
            }
            case IOCTL_DISK_GET_DRIVE_GEOMETRY_EX:
            case IOCTL_DISK_GET_DRIVE_GEOMETRY: return Geometry(code, out, outSize, returned);
            case IOCTL_DISK_GET_PARTITION_INFO_EX: {
                if (partitionError != 0) return Failed(partitionError);
                PARTITION_INFORMATION_EX partition{};
                partition.StartingOffset.QuadPart = startingOffset;
                return Give(partition, out, outSize, returned);
            }
            case FSCTL_GET_RETRIEVAL_POINTERS:
                return Retrieval(*static_cast<LONGLONG*>(in), static_cast<BYTE*>(out), outSize, returned);
        }
        return Failed(ERROR_INVALID_FUNCTION);
    }};
    ApiPatch<&Win32Api::ReadFile> read_call_{[this](HANDLE handle, LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED) {
        log.push_back("ReadFile " + NameOf(handle) + " " + std::to_string(toRead));
        if (readError != 0) return Failed(readError);
        const size_t count = std::min<size_t>(bootSectorBytesRead != 0 ? bootSectorBytesRead : toRead, bootSector.size());
        std::memcpy(buffer, bootSector.data(), std::min<size_t>(count, toRead));
        *read = static_cast<DWORD>(std::min<size_t>(count, toRead));
        return TRUE;
    }};
    ApiPatch<&Win32Api::GetVolumeInformationW> information_call_{
        [this](LPCWSTR root, LPWSTR volumeName, DWORD volumeNameSize, LPDWORD serial, LPDWORD maxLength, LPDWORD flags,
               LPWSTR fileSystemName, DWORD fileSystemNameSize) {
            log.push_back("GetVolumeInformationW " + U(root) + " " + std::to_string(volumeNameSize) + " " +
                          std::to_string(fileSystemNameSize) + (volumeName && serial && maxLength && flags ? "" : " null"));
            if (volumeInformationError != 0) return Failed(volumeInformationError);
            const WString name = WStrFromUtf8(fileSystem);
            name.copy(fileSystemName, name.size());
            fileSystemName[name.size()] = 0;
            return TRUE;
        }};
    ApiPatch<&Win32Api::FindFirstFileW> find_call_{[this](LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
        log.push_back("FindFirstFileW " + U(pattern));
        *data = WIN32_FIND_DATAW{};
        data->nFileSizeHigh = static_cast<DWORD>(fileSize >> 32);
        data->nFileSizeLow = static_cast<DWORD>(fileSize);
        return reinterpret_cast<HANDLE>(static_cast<uintptr_t>(0x5151));
    }};
    ApiPatch<&Win32Api::FindNextFileW> next_call_{[](HANDLE, LPWIN32_FIND_DATAW) { return Failed(ERROR_NO_MORE_FILES); }};
    ApiPatch<&Win32Api::FindClose> find_close_call_{[](HANDLE) { return TRUE; }};
};

struct Layout {
    int result;
    ULONGLONG firstDataSector;
    int sectorsPerCluster;
    DWORD bytesPerSector;
    bool operator==(const Layout&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Layout& layout) {
    return out << layout.result << " P " << layout.firstDataSector << " S " << layout.sectorsPerCluster << " B "
               << layout.bytesPerSector;
}
// Out values that were not written keep the marker 7.
Layout MeasureE(WCHAR letter = 'E') {
    ULONGLONG first = 7;
    BYTE sectors = 7;
    DWORD size = 7;
    const int result = GetVolumeLayout(letter, &first, &sectors, &size);
    return {result, first, sectors, size};
}
constexpr Layout kRefused{0, 7, 7, 7};

TEST(VolumeLayout, MeasuresEachVolumeFromItsDiskAndBootSectorOrRefusesIt) {
    struct Row {
        const char* name;
        std::function<void(ScriptedDisk&)> script;
        Layout expected;
    };
    const Row rows[] = {
        {"NTFS at 1 MiB, 512-byte sectors", [](ScriptedDisk&) {}, {1, 2048, 8, 512}},
        {"FAT32 counts from the cluster after its FATs",
         [](ScriptedDisk& d) { d.fileSystem = "FAT32", d.SetBoot(8, 32, 2, 1000); }, {1, 4080, 8, 512}},
        {"4096-byte sectors", [](ScriptedDisk& d) { d.bytesPerSector = 4096; }, {1, 256, 8, 4096}},
        {"older geometry query when the newer fails",
         [](ScriptedDisk& d) { d.geometryExError = ERROR_INVALID_FUNCTION, d.olderBytesPerSector = 4096; }, {1, 256, 8, 4096}},
        {"both geometry queries fail",
         [](ScriptedDisk& d) { d.geometryExError = d.geometryError = ERROR_INVALID_FUNCTION; }, kRefused},
        {"older geometry answers sector size 0",
         [](ScriptedDisk& d) { d.geometryExError = ERROR_INVALID_FUNCTION, d.olderBytesPerSector = 0; }, kRefused},
        {"newer geometry answers sector size 0", [](ScriptedDisk& d) { d.bytesPerSector = 0; }, kRefused},
        {"sector size beyond any disk's", [](ScriptedDisk& d) { d.bytesPerSector = 1u << 20; }, kRefused},
        {"names in other letter case", [](ScriptedDisk& d) { d.fileSystem = "ntfs"; }, {1, 2048, 8, 512}},
        {"FAT12/16", [](ScriptedDisk& d) { d.fileSystem = "FAT"; }, kRefused},
        {"FAT16 spelled out", [](ScriptedDisk& d) { d.fileSystem = "FAT16"; }, kRefused},
        {"exFAT", [](ScriptedDisk& d) { d.fileSystem = "exFAT"; }, kRefused},
        {"ReFS", [](ScriptedDisk& d) { d.fileSystem = "ReFS"; }, kRefused},
        {"no volume information", [](ScriptedDisk& d) { d.volumeInformationError = ERROR_NOT_READY; }, kRefused},
        {"volume spread over several disks", [](ScriptedDisk& d) { d.extentsError = ERROR_MORE_DATA; }, kRefused},
        {"extent query names no extent", [](ScriptedDisk& d) { d.diskExtents = 0; }, kRefused},
        {"partition query fails", [](ScriptedDisk& d) { d.partitionError = ERROR_INVALID_FUNCTION; }, kRefused},
        {"partition before the disk's start", [](ScriptedDisk& d) { d.startingOffset = -512; }, kRefused},
        {"offset not on a sector boundary truncates", [](ScriptedDisk& d) { d.startingOffset = 1048576 + 511; }, {1, 2048, 8, 512}},
        {"boot sector unreadable", [](ScriptedDisk& d) { d.readError = ERROR_READ_FAULT; }, kRefused},
        {"boot sector short", [](ScriptedDisk& d) { d.bootSectorBytesRead = 100; }, kRefused},
        {"zero sectors per cluster", [](ScriptedDisk& d) { d.SetBoot(0, 32, 2, 1000); }, kRefused},
        {"FAT32 boot sector with zero FAT fields starts at the partition",
         [](ScriptedDisk& d) { d.fileSystem = "Fat32", d.SetBoot(1, 0, 0, 0); }, {1, 2048, 1, 512}},
    };
    for (const Row& row : rows) {
        ScriptedDisk disk;
        row.script(disk);
        EXPECT_EQ(MeasureE(), row.expected) << row.name;
        EXPECT_EQ(disk.OpenHandles(), 0u) << row.name;
    }
}

TEST(VolumeLayout, OpensEachDeviceAsTheQueriesNeedAndReadsOneSectorOfBootSector) {
    ScriptedDisk disk;
    disk.bytesPerSector = 4096;
    disk.diskNumber = 3;
    EXPECT_EQ(MeasureE('e'), (Layout{1, 256, 8, 4096}));
    const std::vector<std::string> expected = {
        "CreateFileW \\\\.\\e: 0xc0000000 0x3 3 0x0",
        "DeviceIoControl \\\\.\\e: 0x560000 in 0 out 32",
        "CloseHandle \\\\.\\e:",
        "CreateFileW \\\\.\\PhysicalDrive3 0xc0000000 0x3 3 0x0",
        "DeviceIoControl \\\\.\\PhysicalDrive3 0x700a0 in 0 out 40",
        "CloseHandle \\\\.\\PhysicalDrive3",
        "GetVolumeInformationW e:\\ 260 80",
        "CreateFileW \\\\.\\e: 0x80000000 0x3 3 0x80",
        "DeviceIoControl \\\\.\\e: 0x70048 in 0 out 144",
        "ReadFile \\\\.\\e: 4096",
        "CloseHandle \\\\.\\e:",
    };
    EXPECT_EQ(disk.log, expected);
}

TEST(VolumeLayout, DiskNumbersFromTheLettersOwnVolumeTakenAsEightBitsForTheSectorSize) {
    ScriptedDisk disk;
    disk.diskNumber = 300;
    EXPECT_EQ(GetVolumeDiskNumber('E'), 300);
    disk.log.clear();
    EXPECT_EQ(MeasureE().result, 1);
    EXPECT_EQ(disk.log[3], "CreateFileW \\\\.\\PhysicalDrive44 0xc0000000 0x3 3 0x0");
    // Only ASCII letters name a volume; nothing is opened for anything else.
    disk.log.clear();
    for (WCHAR letter : {WCHAR('1'), WCHAR('\\'), WCHAR(0), WCHAR(0xFF21) /* fullwidth A */}) {
        EXPECT_EQ(GetVolumeDiskNumber(letter), -1);
        EXPECT_EQ(MeasureE(letter), kRefused);
    }
    EXPECT_TRUE(disk.log.empty());
}

TEST(VolumeLayout, FileSystemNamesCompareWholeAndWithoutCase) {
    ScriptedDisk disk;
    const std::pair<const char*, FileSystemKind> rows[] = {
        {"NTFS", FileSystemKind::Ntfs}, {"Ntfs", FileSystemKind::Ntfs}, {"FAT32", FileSystemKind::Fat32},
        {"fat32", FileSystemKind::Fat32}, {"FAT", FileSystemKind::Fat}, {"FAT16", FileSystemKind::Unknown},
        {"exFAT", FileSystemKind::Unknown}, {"NTFS ", FileSystemKind::Unknown}, {"", FileSystemKind::Unknown},
        {"UDF", FileSystemKind::Unknown}, {"CDFS", FileSystemKind::Unknown},
    };
    for (const auto& [name, type] : rows) {
        disk.fileSystem = name;
        EXPECT_EQ(GetFileSystemType('E'), type) << name;
    }
    disk.volumeInformationError = ERROR_PATH_NOT_FOUND;
    EXPECT_EQ(GetFileSystemType('E'), FileSystemKind::Unknown);
}

TEST(VolumeLayout, Fat32DataStartWrapsAtThirtyTwoBits) {
    ScriptedDisk disk;
    disk.SetBoot(8, 32, 2, 1000);
    EXPECT_EQ(GetFat32DataStart(disk.bootSector.data()), 2032u);
    disk.SetBoot(8, 0xFFFF, 255, 0xFFFFFFFF);
    EXPECT_EQ(GetFat32DataStart(disk.bootSector.data()), static_cast<DWORD>(0xFFFF + 255ull * 0xFFFFFFFF));
}

struct Position {
    int result;
    std::vector<std::pair<ULONGLONG, ULONGLONG>> extents;
    ULONGLONG first, lastData, last;
};
constexpr ULONGLONG kUnwritten = 0xAAAA;

Position Locate(LPCWSTR path, std::vector<SectorExtent> extents = {}) {
    Position position{0, {}, kUnwritten, kUnwritten, kUnwritten};
    position.result = GetFileSectorPos(path, &extents, &position.first, &position.lastData, &position.last);
    for (const SectorExtent& extent : extents) position.extents.emplace_back(extent.startSector, extent.sectorCount);
    return position;
}

TEST(SectorPosition, TenThousandByteFileInOneRunOfThreeClusters) {
    ScriptedDisk disk;
    disk.runs = {{3, 100}};
    disk.fileSize = 10000;
    const Position position = Locate(_T("E:\\dir\\file.bin"));
    EXPECT_EQ(position.result, 1);
    EXPECT_EQ(position.extents, (std::vector<std::pair<ULONGLONG, ULONGLONG>>{{2848, 24}}));
    EXPECT_EQ(position.first, 2848u);
    EXPECT_EQ(position.last, 2871u);
    EXPECT_EQ(position.lastData, 2867u);
    // The file is opened after the layout is known, walked until the file system has no more runs, and
    // closed before its size is asked.
    const std::vector<std::string> tail(disk.log.end() - 5, disk.log.end());
    const std::vector<std::string> expected = {
        "CreateFileW E:\\dir\\file.bin 0x80000000 0x3 3 0x80",
        "DeviceIoControl E:\\dir\\file.bin 0x90073 from 0 in 8 out 1040",
        "DeviceIoControl E:\\dir\\file.bin 0x90073 from 3 in 8 out 1040",
        "CloseHandle E:\\dir\\file.bin",
        "FindFirstFileW E:\\dir\\file.bin",
    };
    EXPECT_EQ(tail, expected);
    EXPECT_EQ(disk.OpenHandles(), 0u);
}

TEST(SectorPosition, FragmentedFileGivesEveryRunInOrderAcrossSeveralCalls) {
    ScriptedDisk disk;
    disk.fileSystem = "FAT32";
    disk.SetBoot(4, 32, 2, 1000);  // P = 4080
    for (LONGLONG run = 0; run < 130; ++run) disk.runs.push_back({2 * (run + 1), 1000 - 5 * run});
    disk.fileSize = 260 * 4 * 512;  // every cluster full
    const Position position = Locate(_T("E:\\frag"), {{1, 2}});
    ASSERT_EQ(position.extents.size(), 131u);
    EXPECT_EQ(position.extents[0], (std::pair<ULONGLONG, ULONGLONG>{1, 2}));  // the caller's own stays first
    for (size_t run = 0; run < 130; ++run)
        EXPECT_EQ(position.extents[run + 1], (std::pair<ULONGLONG, ULONGLONG>{4080 + (1000 - 5 * run) * 4, 8}));
    EXPECT_EQ(position.first, 4080u + 4000);
    EXPECT_EQ(position.last, 4080u + (1000 - 5 * 129 + 2) * 4 - 1);
    EXPECT_EQ(position.lastData, position.last);
    std::vector<std::string> walk;
    for (const std::string& line : disk.log)
        if (line.find("0x90073") != std::string::npos) walk.push_back(line.substr(line.find("from")));
    EXPECT_EQ(walk, (std::vector<std::string>{"from 0 in 8 out 1040", "from 128 in 8 out 1040", "from 256 in 8 out 1040",
                                              "from 260 in 8 out 1040"}));
}

TEST(SectorPosition, RunsWithoutClustersEndTheWalk) {
    {
        SCOPED_TRACE("a hole after the first run");
        ScriptedDisk disk;
        disk.runs = {{2, 50}, {6, -1}, {8, 70}};
        disk.fileSize = 8 * 4096;
        const Position position = Locate(_T("E:\\sparse"));
        EXPECT_EQ(position.extents, (std::vector<std::pair<ULONGLONG, ULONGLONG>>{{2448, 16}}));
        EXPECT_EQ(position.first, 2448u);
        EXPECT_EQ(position.last, 2463u);
        EXPECT_EQ(position.lastData, 2463u);
    }
    {
        SCOPED_TRACE("a hole first: the first sector comes from its cluster number -1");
        ScriptedDisk disk;
        disk.runs = {{4, -1}, {8, 70}};
        const Position position = Locate(_T("E:\\sparse"));
        EXPECT_EQ(position.result, 1);
        EXPECT_TRUE(position.extents.empty());
        EXPECT_EQ(position.first, 2048ull + static_cast<DWORD>(0xFFFFFFFFu * 8));
        EXPECT_EQ(position.last, 0u);
        EXPECT_EQ(position.lastData, kUnwritten);
    }
    {
        SCOPED_TRACE("data kept in the file record: the first call fails");
        ScriptedDisk disk;
        disk.fileSize = 100;
        const Position position = Locate(_T("E:\\small"));
        EXPECT_EQ(position.result, 1);
        EXPECT_TRUE(position.extents.empty());
        EXPECT_EQ(position.first, 0u);
        EXPECT_EQ(position.last, 0u);
        EXPECT_EQ(position.lastData, kUnwritten);
    }
}

TEST(SectorPosition, LastDataSectorTakesOffTheUnusedSectorsOfTheLastCluster) {
    const std::pair<ULONGLONG, ULONGLONG> rows[] = {
        // size in bytes -> last data sector, for one run of 2 clusters of 8 sectors at cluster 10 (P 2048)
        {16 * 512, 2143}, {15 * 512 + 1, 2143}, {15 * 512, 2142}, {9 * 512, 2136}, {8 * 512, 2143}, {1, 2136}, {0, 2143},
    };
    for (const auto& [size, lastData] : rows) {
        ScriptedDisk disk;
        disk.runs = {{2, 10}};
        disk.fileSize = size;
        const Position position = Locate(_T("E:\\f"));
        EXPECT_EQ(position.last, 2143u);
        EXPECT_EQ(position.lastData, lastData) << size;
    }
}

TEST(SectorPosition, ClusterArithmeticWrapsAtThirtyTwoBitsBeforeTheVolumeStartIsAdded) {
    ScriptedDisk disk;
    disk.startingOffset = 0x300000000LL * 512;  // a volume far beyond 2 TiB on its disk
    // Cluster 2^29 times 8 sectors is 2^32: it wraps to 0. The high half of a cluster number is ignored.
    disk.runs = {{1, 0x20000000}, {2, 0x100000064LL}};
    disk.fileSize = 2 * 4096;
    const Position position = Locate(_T("E:\\far"));
    const ULONGLONG start = 0x300000000ULL;
    EXPECT_EQ(position.extents, (std::vector<std::pair<ULONGLONG, ULONGLONG>>{{start, 8}, {start + 800, 8}}));
    EXPECT_EQ(position.first, start);
    EXPECT_EQ(position.last, start + 808 - 1);
}

TEST(SectorPosition, RefusedBeforeTheWalkWithNothingWritten) {
    struct Row {
        const char* name;
        LPCWSTR path;
        std::function<void(ScriptedDisk&)> script;
    };
    const Row rows[] = {
        {"empty path", _T(""), [](ScriptedDisk&) {}},
        {"UNC path: its first character is no letter", _T("\\\\server\\share\\f"), [](ScriptedDisk&) {}},
        {"a FAT16 volume", _T("E:\\f"), [](ScriptedDisk& d) { d.fileSystem = "FAT"; }},
        {"the file cannot be opened", _T("E:\\folder"), [](ScriptedDisk& d) { d.fileOpenError = ERROR_ACCESS_DENIED; }},
    };
    for (const Row& row : rows) {
        ScriptedDisk disk;
        disk.runs = {{1, 1}};
        row.script(disk);
        const Position position = Locate(row.path, {{9, 9}});
        EXPECT_EQ(position.result, 0) << row.name;
        EXPECT_EQ(position.extents.size(), 1u) << row.name;
        EXPECT_EQ(position.first + position.lastData + position.last, 3 * kUnwritten) << row.name;
        EXPECT_EQ(disk.OpenHandles(), 0u) << row.name;
    }
    EXPECT_EQ(GetFileSectorPos(_T("E:\\f"), nullptr, nullptr, nullptr, nullptr), 0);
}

TEST(SectorPosition, MalformedAnswersNeitherOverrunTheBufferNorLoop) {
    {
        SCOPED_TRACE("an extent count above the 64 the buffer holds reads the 64 and goes on from there");
        ScriptedDisk disk;
        RecordedAnswer big{ERROR_MORE_DATA, 5000, 0, {}};
        for (LONGLONG run = 0; run < 64; ++run) big.extents.push_back({run + 1, 10 + run * 2});
        disk.recorded = {big, {0, 1, 64, {{65, 500}}}};
        const Position position = Locate(_T("E:\\f"));
        EXPECT_EQ(position.extents.size(), 65u);
        EXPECT_EQ(position.extents.back(), (std::pair<ULONGLONG, ULONGLONG>{2048 + 4000, 8}));
    }
    {
        SCOPED_TRACE("a platform that answers the same runs whatever it is asked ends the walk");
        ScriptedDisk disk;
        for (int call = 0; call < 5; ++call) disk.recorded.push_back({0, 1, 0, {{0, 10}}});
        const Position position = Locate(_T("E:\\f"));
        EXPECT_EQ(position.result, 1);
        EXPECT_EQ(position.extents, (std::vector<std::pair<ULONGLONG, ULONGLONG>>{{2128, 0}}));
        EXPECT_EQ(disk.recorded.size(), 4u);
    }
    {
        SCOPED_TRACE("an empty answer ends the walk");
        ScriptedDisk disk;
        disk.recorded = {{0, 0, 0, {}}, {0, 1, 0, {{1, 10}}}};
        EXPECT_TRUE(Locate(_T("E:\\f")).extents.empty());
    }
}

}  // namespace
