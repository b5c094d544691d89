// GetFileSectorPos on disk images made by Debian's tools: the bytes at every sector run it reports, read
// straight from the image file, are the file's bytes, and its last data sector holds the file's last byte.
#include <gtest/gtest.h>

#include "../platform/unique_handles.h"
#include "support/disk_images.h"

namespace {

using namespace testing_support;

class DiskSectors : public HostFolderTest {
protected:
    struct Located {
        int result = 0;
        std::vector<SectorExtent> runs;
        ULONGLONG first = 0, lastData = 0, last = 0;
    };
    static Located Locate(LPCWSTR path) {
        Located out;
        out.result = GetFileSectorPos(path, &out.runs, &out.first, &out.lastData, &out.last);
        return out;
    }

    // The file's bytes gathered from the image at the reported runs, and the sector where byte `size - 1`
    // lies by the same runs.
    void ExpectRunsHold(const std::string& image, DWORD sectorSize, const Located& located, const std::string& content) {
        ASSERT_EQ(located.result, 1);
        ASSERT_FALSE(located.runs.empty());
        std::string gathered;
        for (const SectorExtent& run : located.runs)
            gathered += ReadImageBytes(image, run.startSector * sectorSize, static_cast<size_t>(run.sectorCount * sectorSize));
        ASSERT_GE(gathered.size(), content.size());
        EXPECT_TRUE(gathered.compare(0, content.size(), content) == 0) << "the runs do not hold the file's bytes";
        EXPECT_EQ(located.first, located.runs.front().startSector);
        EXPECT_EQ(located.last, located.runs.back().startSector + located.runs.back().sectorCount - 1);
        ULONGLONG remaining = (content.size() - 1) / sectorSize;  // sectors before the one with the last byte
        for (const SectorExtent& run : located.runs) {
            if (remaining < run.sectorCount) {
                EXPECT_EQ(located.lastData, run.startSector + remaining);
                break;
            }
            remaining -= run.sectorCount;
        }
    }
};

TEST_F(DiskSectors, EveryReportedRunHoldsTheFilesBytesOnFat32With512And4096ByteSectors) {
    for (DWORD sectorSize : {512u, 4096u}) {
        SCOPED_TRACE(sectorSize);
        const std::string image = Host("disk.img");
        const unsigned size = sectorSize == 512 ? 40 : 270;
        // A first partition in front makes the volume's own offset count.
        const MadeDisk made = MakeDiskImage(image, sectorSize, sectorSize == 512 ? "dos" : "gpt", size + 6, {{"", 1}, {"fat32", size}});
        const ULONGLONG at = made.offsets[1];
        // Fragment the free space: small files, every other one deleted, then the files to locate.
        const std::string filler = PatternBytes(sectorSize * 3, 9);
        WriteFile("filler", filler);
        for (int index = 0; index < 12; ++index) CopyIntoFat(image, at, Host("filler"), "/f" + std::to_string(index));
        for (int index = 0; index < 12; index += 2) DeleteFromFat(image, at, "/f" + std::to_string(index));
        // Forget the free-cluster hint, so that the next file is laid into the holes from the start.
        WriteImageBytes(image, at + sectorSize + 488, std::string(8, '\xFF'));
        const std::string fragmented = PatternBytes(sectorSize * 30 + 17, 2);
        const std::string large = PatternBytes(3 << 20, 3);
        const std::string small = "x";
        const std::string full = PatternBytes(sectorSize * 4, 4);  // fills its clusters exactly
        WriteFile("fragmented", fragmented);
        WriteFile("large", large);
        WriteFile("small", small);
        WriteFile("full", full);
        WriteFile("empty", "");
        CopyIntoFat(image, at, Host("fragmented"), "/fragmented.bin");
        CopyIntoFat(image, at, Host("large"), "/large.bin");
        CopyIntoFat(image, at, Host("small"), "/small.txt");
        CopyIntoFat(image, at, Host("full"), "/full.bin");
        CopyIntoFat(image, at, Host("empty"), "/empty");

        AttachedImage disk(image, "-E");
        ASSERT_GE(disk.Number(), 0) << disk.Error();
        const Located scattered = Locate(_T("E:\\fragmented.bin"));
        EXPECT_GT(scattered.runs.size(), 3u) << "the file was not fragmented";
        ExpectRunsHold(image, sectorSize, scattered, fragmented);
        ExpectRunsHold(image, sectorSize, Locate(_T("E:\\large.bin")), large);
        ExpectRunsHold(image, sectorSize, Locate(_T("e:\\SMALL.TXT")), small);
        const Located whole = Locate(_T("E:\\full.bin"));
        ExpectRunsHold(image, sectorSize, whole, full);
        EXPECT_EQ(whole.lastData, whole.last);
        // An empty file has no clusters: the walk finds no run.
        const Located empty = Locate(_T("E:\\empty"));
        EXPECT_EQ(empty.result, 1);
        EXPECT_TRUE(empty.runs.empty());
        EXPECT_EQ(empty.first + empty.last, 0u);
        // Folders are opened as plain files and refused; so is a volume that is not NTFS or FAT32.
        EXPECT_EQ(Locate(_T("E:\\")).result, 0);
        EXPECT_EQ(Locate(_T("E:\\missing")).result, 0);
    }
}

TEST_F(DiskSectors, EveryReportedRunHoldsTheFilesBytesOnNtfsWith512And4096ByteSectors) {
    for (DWORD sectorSize : {512u, 4096u}) {
        SCOPED_TRACE(sectorSize);
        const std::string image = Host("disk.img");
        MakeDiskImage(image, sectorSize, sectorSize == 512 ? "dos" : "gpt", 40, {{"", 1}, {"ntfs", 32}});
        const std::string large = PatternBytes((2 << 20) + 123, 5);
        const std::string medium = PatternBytes(70000, 6);
        auto write = [](LPCWSTR path, const std::string& content) {
            UniqueHandle file(sys().CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
            ASSERT_TRUE(file) << sys().GetLastError();
            DWORD written = 0;
            ASSERT_TRUE(sys().WriteFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &written, nullptr));
        };
        {
            // Written through the platform, then detached so that everything reaches the image.
            AttachedImage disk(image, "-E");
            ASSERT_GE(disk.Number(), 0) << disk.Error();
            ASSERT_TRUE(sys().CreateDirectoryW(_T("E:\\Data"), nullptr));
            write(_T("E:\\Data\\large.bin"), large);
            write(_T("E:\\Data\\medium.bin"), medium);
            write(_T("E:\\Data\\tiny.txt"), "kept in its record");
        }
        AttachedImage disk(image, "-E");
        ASSERT_GE(disk.Number(), 0) << disk.Error();
        ExpectRunsHold(image, sectorSize, Locate(_T("E:\\DATA\\Large.bin")), large);
        ExpectRunsHold(image, sectorSize, Locate(_T("E:\\Data\\medium.bin")), medium);
        // A file whose data lives in its record has no runs: measured, with nothing to show.
        const Located tiny = Locate(_T("E:\\Data\\tiny.txt"));
        EXPECT_EQ(tiny.result, 1);
        EXPECT_TRUE(tiny.runs.empty());
        EXPECT_EQ(tiny.first + tiny.last, 0u);
    }
}

TEST_F(DiskSectors, NothingIsMeasuredWithoutElevationOrOnOtherVolumes) {
    const MadeDisk made = MakeDiskImage(Host("disk.img"), 512, "dos", 64, {{"fat32", 40}, {"fat16", 16}});
    WriteFile("a", "abc");
    CopyIntoFat(Host("disk.img"), made.offsets[0], Host("a"), "/a");
    CopyIntoFat(Host("disk.img"), made.offsets[1], Host("a"), "/a");
    AttachedImage disk(Host("disk.img"), "EF");
    EXPECT_EQ(Locate(_T("E:\\a")).result, 1);
    EXPECT_EQ(Locate(_T("F:\\a")).result, 0);  // FAT16
    WriteFile("host.txt", "on a host folder");
    EXPECT_EQ(Locate(Win("host.txt")).result, 0);
    vlx::SetProcessToken(vlx::TokenKind::StandardUser);
    EXPECT_EQ(Locate(_T("E:\\a")).result, 0);
}

}  // namespace
