// Disk images attached as physical disks, on images made by Debian's tools: partitions become volumes
// with names and letters, devices answer their IOCTLs and raw reads, FAT volumes are read through the
// file calls, and broken images attach or fail cleanly.
#include <gtest/gtest.h>

#include <cstring>

#include "../../platform/unique_handles.h"
#include "../support/disk_images.h"

namespace {

using namespace testing_support;

class DiskImages : public HostFolderTest {
protected:
    std::string Image(const std::string& name) const { return Host(name); }

    static HANDLE OpenDevice(LPCWSTR path) {
        return sys().CreateFileW(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                                 nullptr);
    }
    static HANDLE OpenRead(LPCWSTR path, DWORD flags = 0) {
        return sys().CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, flags, nullptr);
    }
    static std::string FileSystemOf(LPCWSTR root) {
        WCHAR name[80] = {};
        if (!sys().GetVolumeInformationW(root, nullptr, 0, nullptr, nullptr, nullptr, name, 80))
            return "error " + std::to_string(sys().GetLastError());
        return U(name);
    }
    static std::string ReadWhole(LPCWSTR path) {
        UniqueHandle file(OpenRead(path));
        if (!file) return "error " + std::to_string(sys().GetLastError());
        std::string content;
        char buffer[7000];  // not a multiple of any cluster, so reads cross cluster and run boundaries
        DWORD read = 0;
        while (sys().ReadFile(file.get(), buffer, sizeof buffer, &read, nullptr) && read > 0) content.append(buffer, read);
        return content;
    }
    static std::vector<std::string> List(LPCWSTR pattern) {
        std::vector<std::string> names;
        WIN32_FIND_DATAW data;
        UniqueFindHandle find(sys().FindFirstFileW(pattern, &data));
        if (!find) return {"error " + std::to_string(sys().GetLastError())};
        do {
            std::string name = U(data.cFileName);
            if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) name += "\\";
            else name += " " + std::to_string(data.nFileSizeLow);
            names.push_back(name);
        } while (sys().FindNextFileW(find.get(), &data));
        EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_FILES));
        return names;
    }
};

TEST_F(DiskImages, EachPartitionBecomesANamedVolumeWithTheLetterGivenAndReportsItsFileSystem) {
    const MadeDisk made = MakeDiskImage(Image("disk.img"), 512, "dos", 100,
                                        {{"fat32", 40}, {"fat16", 16}, {"exfat", 8}, {"ntfs", 16}});
    {
        AttachedImage disk(Image("disk.img"), "EF-H", 300);
        ASSERT_EQ(disk.Number(), 300) << disk.Error();
        const auto volumes = vlx::DiskVolumes(300);
        ASSERT_EQ(volumes.size(), 4u);
        const char* letters = "EF\0H";
        for (size_t index = 0; index < volumes.size(); ++index) {
            EXPECT_EQ(volumes[index].offset, made.offsets[index]);
            EXPECT_EQ(volumes[index].partitionNumber, index + 1);
            EXPECT_EQ(volumes[index].letter, static_cast<WCHAR>(letters[index]));
            EXPECT_TRUE(U(volumes[index].volumeName.c_str()).starts_with("\\\\?\\Volume{")) << index;
            EXPECT_EQ(U(volumes[index].volumeName.c_str()).back(), '\\');
        }
        EXPECT_EQ(FileSystemOf(_T("E:\\")), "FAT32");
        EXPECT_EQ(FileSystemOf(_T("f:\\")), "FAT");
        EXPECT_EQ(FileSystemOf(volumes[2].volumeName.c_str()), "exFAT");
        EXPECT_EQ(FileSystemOf(_T("H:\\")), "NTFS");
        EXPECT_EQ(FileSystemOf(_T("E:\\dir\\")), "error " + std::to_string(ERROR_DIR_NOT_ROOT));
        EXPECT_EQ(FileSystemOf(_T("E:")), "error " + std::to_string(ERROR_DIR_NOT_ROOT));
        // The label comes from the boot sector, and a name that does not fit its buffer is refused.
        WCHAR label[32] = {}, small[5] = {};
        EXPECT_TRUE(sys().GetVolumeInformationW(_T("E:\\"), label, 32, nullptr, nullptr, nullptr, nullptr, 0));
        EXPECT_EQ(U(label), "VELMORA");
        sys().SetLastError(kJunkError);
        EXPECT_FALSE(sys().GetVolumeInformationW(_T("E:\\"), nullptr, 0, nullptr, nullptr, nullptr, small, 5));
        EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_BAD_LENGTH));

        // A letter is taken only once, and the same image cannot be attached under a number in use.
        AttachedImage again(Image("disk.img"), "E", 300);
        EXPECT_EQ(again.Number(), -1);
        EXPECT_FALSE(again.Error().empty());
    }
    // Detached: the letters are gone, and attaching again gives the same volume names.
    EXPECT_EQ(FileSystemOf(_T("E:\\")), "error " + std::to_string(ERROR_PATH_NOT_FOUND));
    AttachedImage disk(Image("disk.img"), "");
    EXPECT_EQ(disk.Number(), 0);
    EXPECT_EQ(FileSystemOf(vlx::DiskVolumes(0)[0].volumeName.c_str()), "FAT32");
}

TEST_F(DiskImages, DevicesAnswerGeometryPartitionAndExtentQueriesAndReadRawSectors) {
    for (DWORD sectorSize : {512u, 4096u}) {
        SCOPED_TRACE(sectorSize);
        const unsigned size = sectorSize == 512 ? 40 : 270;  // FAT32 needs 65525 clusters of one sector
        const MadeDisk made = MakeDiskImage(Image("disk.img"), sectorSize, "gpt", size + 4, {{"fat32", size}});
        AttachedImage disk(Image("disk.img"), "E", 7);
        ASSERT_EQ(disk.Number(), 7) << disk.Error();

        UniqueHandle volume(OpenDevice(_T("\\\\.\\E:")));
        ASSERT_TRUE(volume);
        VOLUME_DISK_EXTENTS extents{};
        DWORD returned = 0;
        ASSERT_TRUE(sys().DeviceIoControl(volume.get(), IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, nullptr, 0, &extents, sizeof extents,
                                          &returned, nullptr));
        EXPECT_EQ(extents.NumberOfDiskExtents, 1u);
        EXPECT_EQ(extents.Extents[0].DiskNumber, 7u);
        EXPECT_EQ(static_cast<ULONGLONG>(extents.Extents[0].StartingOffset.QuadPart), made.offsets[0]);
        PARTITION_INFORMATION_EX partition{};
        ASSERT_TRUE(sys().DeviceIoControl(volume.get(), IOCTL_DISK_GET_PARTITION_INFO_EX, nullptr, 0, &partition, sizeof partition,
                                          &returned, nullptr));
        EXPECT_EQ(partition.PartitionStyle, PARTITION_STYLE_GPT);
        EXPECT_EQ(static_cast<ULONGLONG>(partition.StartingOffset.QuadPart), made.offsets[0]);
        EXPECT_EQ(static_cast<ULONGLONG>(partition.PartitionLength.QuadPart), size * (1ULL << 20));
        EXPECT_EQ(partition.PartitionNumber, 1u);

        // Raw reads start at the volume's first byte and go by whole sectors.
        std::string sector(sectorSize, '\0');
        sys().SetLastError(kJunkError);
        ASSERT_TRUE(sys().ReadFile(volume.get(), sector.data(), sectorSize, &returned, nullptr));
        EXPECT_EQ(sys().GetLastError(), kJunkError);  // success leaves it alone
        EXPECT_EQ(returned, sectorSize);
        EXPECT_EQ(sector, ReadImageBytes(Image("disk.img"), made.offsets[0], sectorSize));
        EXPECT_EQ(sector.substr(82, 5), "FAT32");
        ASSERT_TRUE(sys().ReadFile(volume.get(), sector.data(), sectorSize, &returned, nullptr));
        EXPECT_EQ(sector, ReadImageBytes(Image("disk.img"), made.offsets[0] + sectorSize, sectorSize));
        sys().SetLastError(kJunkError);
        EXPECT_FALSE(sys().ReadFile(volume.get(), sector.data(), 100, &returned, nullptr));
        EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));

        UniqueHandle drive(OpenDevice(_T("\\\\.\\PhysicalDrive7")));
        ASSERT_TRUE(drive);
        DISK_GEOMETRY_EX geometryEx{};
        ASSERT_TRUE(sys().DeviceIoControl(drive.get(), IOCTL_DISK_GET_DRIVE_GEOMETRY_EX, nullptr, 0, &geometryEx, sizeof geometryEx,
                                          &returned, nullptr));
        EXPECT_EQ(geometryEx.Geometry.BytesPerSector, sectorSize);
        EXPECT_EQ(static_cast<ULONGLONG>(geometryEx.DiskSize.QuadPart), (size + 4) * (1ULL << 20));
        DISK_GEOMETRY geometry{};
        ASSERT_TRUE(sys().DeviceIoControl(drive.get(), IOCTL_DISK_GET_DRIVE_GEOMETRY, nullptr, 0, &geometry, sizeof geometry,
                                          &returned, nullptr));
        EXPECT_EQ(geometry.BytesPerSector, sectorSize);
        // The disk's first sector is the protective MBR; its second (at 512 or 4096) the GPT header.
        ASSERT_TRUE(sys().ReadFile(drive.get(), sector.data(), sectorSize, &returned, nullptr));
        ASSERT_TRUE(sys().ReadFile(drive.get(), sector.data(), sectorSize, &returned, nullptr));
        EXPECT_EQ(sector.substr(0, 8), "EFI PART");
        // A buffer too small for the answer is refused.
        BYTE tiny[8];
        sys().SetLastError(kJunkError);
        EXPECT_FALSE(sys().DeviceIoControl(volume.get(), IOCTL_DISK_GET_PARTITION_INFO_EX, nullptr, 0, tiny, sizeof tiny, &returned,
                                           nullptr));
        EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    }
}

TEST_F(DiskImages, DevicesNeedAnElevatedProcessAndAnAttachedDisk) {
    MakeDiskImage(Image("disk.img"), 512, "dos", 44, {{"fat32", 40}});
    AttachedImage disk(Image("disk.img"), "E", 2);
    struct Row {
        LPCWSTR path;
        int elevated;
        DWORD error;
    };
    WString volumeDevice = vlx::DiskVolumes(2)[0].volumeName;
    volumeDevice.pop_back();  // without its backslash the name is the volume's device
    const Row rows[] = {
        {_T("\\\\.\\E:"), 0, ERROR_ACCESS_DENIED},         {_T("\\\\.\\PhysicalDrive2"), 0, ERROR_ACCESS_DENIED},
        {_T("\\\\.\\E:"), 1, ERROR_SUCCESS},               {_T("\\\\.\\e:"), 1, ERROR_SUCCESS},
        {volumeDevice.c_str(), 1, ERROR_SUCCESS},          {_T("\\\\.\\PhysicalDrive2"), 1, ERROR_SUCCESS},
        {_T("\\\\.\\PhysicalDrive3"), 1, ERROR_FILE_NOT_FOUND}, {_T("\\\\.\\T:"), 1, ERROR_FILE_NOT_FOUND},
    };
    for (const Row& row : rows) {
        vlx::SetProcessToken(row.elevated ? vlx::TokenKind::Elevated : vlx::TokenKind::StandardUser);
        sys().SetLastError(kJunkError);
        UniqueHandle device(OpenDevice(row.path));
        EXPECT_EQ(static_cast<bool>(device), row.error == ERROR_SUCCESS) << U(row.path);
        EXPECT_EQ(sys().GetLastError(), row.error) << U(row.path);
    }
    vlx::SetProcessToken(vlx::TokenKind::Elevated);
    // A handle kept across the detach fails from then on.
    UniqueHandle volume(OpenDevice(_T("\\\\.\\E:")));
    disk.Detach();
    char sector[512];
    DWORD read = 0;
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(sys().ReadFile(volume.get(), sector, sizeof sector, &read, nullptr));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_DEVICE_NOT_CONNECTED));
}

TEST_F(DiskImages, FatVolumesServeFindOpenAndReadWithLongNamesAndNoChanges) {
    const MadeDisk made = MakeDiskImage(Image("disk.img"), 512, "dos", 44, {{"fat32", 40}});
    const ULONGLONG at = made.offsets[0];
    const std::string big = PatternBytes(300000, 1);
    WriteFile("big.bin", big);
    WriteFile("short.txt", "hello");
    WriteFile("empty", "");
    MakeFatFolder(Image("disk.img"), at, "/Docs");
    MakeFatFolder(Image("disk.img"), at, "/Docs/Sub Folder");
    CopyIntoFat(Image("disk.img"), at, Host("big.bin"), "/Docs/A Long Name With Spaces.bin");
    CopyIntoFat(Image("disk.img"), at, Host("short.txt"), "/Docs/README.TXT");
    CopyIntoFat(Image("disk.img"), at, Host("short.txt"), "/Docs/mixedCase.Txt");
    CopyIntoFat(Image("disk.img"), at, Host("empty"), "/Docs/empty");
    CopyIntoFat(Image("disk.img"), at, Host("short.txt"), "/Docs/日本語.txt");
    AttachedImage disk(Image("disk.img"), "E");
    ASSERT_GE(disk.Number(), 0) << disk.Error();

    EXPECT_EQ(List(_T("E:\\docs\\*")),
              (std::vector<std::string>{".\\", "..\\", "A Long Name With Spaces.bin 300000", "empty 0", "mixedCase.Txt 5",
                                        "README.TXT 5", "Sub Folder\\", "日本語.txt 5"}));
    EXPECT_EQ(List(_T("E:\\*")), (std::vector<std::string>{"Docs\\"}));
    EXPECT_EQ(List(_T("E:\\DOCS\\*.txt")), (std::vector<std::string>{"mixedCase.Txt 5", "README.TXT 5", "日本語.txt 5"}));
    EXPECT_EQ(List(_T("E:\\Docs\\readme.txt")), (std::vector<std::string>{"README.TXT 5"}));
    EXPECT_EQ(List(_T("E:\\Docs\\nothing*")), (std::vector<std::string>{"error " + std::to_string(ERROR_FILE_NOT_FOUND)}));
    EXPECT_EQ(ReadWhole(_T("e:\\DOCS\\a long name with spaces.bin")), big);
    EXPECT_EQ(ReadWhole(_T("E:\\Docs\\日本語.TXT")), "hello");
    EXPECT_EQ(ReadWhole(_T("E:\\Docs\\empty")), "");
    EXPECT_EQ(sys().GetFileAttributesW(_T("E:\\Docs\\Sub Folder")) & FILE_ATTRIBUTE_DIRECTORY, static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY));
    EXPECT_TRUE(sys().PathFileExistsW(_T("E:\\Docs\\README.TXT")));

    struct Refusal {
        LPCWSTR path;
        DWORD access, disposition, flags, error;
    };
    const Refusal refusals[] = {
        {_T("E:\\Docs\\missing"), GENERIC_READ, OPEN_EXISTING, 0, ERROR_FILE_NOT_FOUND},
        {_T("E:\\Nowhere\\file"), GENERIC_READ, OPEN_EXISTING, 0, ERROR_PATH_NOT_FOUND},
        {_T("E:\\Docs\\README.TXT\\x"), GENERIC_READ, OPEN_EXISTING, 0, ERROR_PATH_NOT_FOUND},
        {_T("E:\\Docs"), GENERIC_READ, OPEN_EXISTING, 0, ERROR_ACCESS_DENIED},
        {_T("E:\\Docs\\README.TXT"), GENERIC_WRITE, OPEN_EXISTING, 0, ERROR_WRITE_PROTECT},
        {_T("E:\\Docs\\new.txt"), GENERIC_WRITE, CREATE_NEW, 0, ERROR_WRITE_PROTECT},
        {_T("E:\\Docs\\README.TXT"), GENERIC_READ, CREATE_NEW, 0, ERROR_FILE_EXISTS},
        {_T("E:\\Docs\\a<b"), GENERIC_READ, OPEN_EXISTING, 0, ERROR_INVALID_NAME},
    };
    for (const Refusal& row : refusals) {
        sys().SetLastError(kJunkError);
        UniqueHandle file(sys().CreateFileW(row.path, row.access, FILE_SHARE_READ, nullptr, row.disposition, row.flags, nullptr));
        EXPECT_FALSE(file) << U(row.path);
        EXPECT_EQ(sys().GetLastError(), row.error) << U(row.path);
    }
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(sys().DeleteFileW(_T("E:\\Docs\\README.TXT")));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_WRITE_PROTECT));

    // A folder opens with backup semantics; FAT has no compression, and share modes hold between handles.
    UniqueHandle folder(OpenRead(_T("E:\\Docs"), FILE_FLAG_BACKUP_SEMANTICS));
    EXPECT_TRUE(folder);
    UniqueHandle file(sys().CreateFileW(_T("E:\\Docs\\README.TXT"), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(file);
    USHORT state = COMPRESSION_FORMAT_DEFAULT;
    DWORD returned = 0;
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(sys().DeviceIoControl(file.get(), FSCTL_SET_COMPRESSION, &state, sizeof state, nullptr, 0, &returned, nullptr));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INVALID_FUNCTION));
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(UniqueHandle(OpenRead(_T("E:\\Docs\\readme.txt"))));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    BY_HANDLE_FILE_INFORMATION info{};
    EXPECT_TRUE(sys().GetFileInformationByHandle(file.get(), &info));
    EXPECT_EQ(info.nFileSizeLow, 5u);
    EXPECT_EQ(info.nNumberOfLinks, 1u);
    EXPECT_NE(info.nFileIndexLow, 0u);
}

TEST_F(DiskImages, ChangesMadeWhileDetachedShowAfterTheNextAttach) {
    const MadeDisk made = MakeDiskImage(Image("disk.img"), 512, "dos", 44, {{"fat32", 40}});
    WriteFile("a.txt", "first");
    CopyIntoFat(Image("disk.img"), made.offsets[0], Host("a.txt"), "/a.txt");
    {
        AttachedImage disk(Image("disk.img"), "E");
        EXPECT_EQ(ReadWhole(_T("E:\\a.txt")), "first");
    }
    WriteFile("a.txt", "second, longer");
    CopyIntoFat(Image("disk.img"), made.offsets[0], Host("a.txt"), "/a.txt");
    AttachedImage disk(Image("disk.img"), "E");
    EXPECT_EQ(ReadWhole(_T("E:\\a.txt")), "second, longer");
}

TEST_F(DiskImages, BrokenImagesAttachOrFailCleanly) {
    {
        SCOPED_TRACE("truncated: the partition runs past the image's end and is no volume");
        MakeDiskImage(Image("cut.img"), 512, "dos", 44, {{"fat32", 40}});
        ASSERT_EQ(truncate(Image("cut.img").c_str(), 4 << 20), 0);
        AttachedImage disk(Image("cut.img"), "E");
        ASSERT_GE(disk.Number(), 0) << disk.Error();
        EXPECT_TRUE(vlx::DiskVolumes(disk.Number()).empty());
        EXPECT_EQ(FileSystemOf(_T("E:\\")), "error " + std::to_string(ERROR_PATH_NOT_FOUND));
    }
    {
        SCOPED_TRACE("a partition table entry pointing outside the image");
        MakeDiskImage(Image("out.img"), 512, "dos", 44, {{"fat32", 40}});
        // The second entry: start far beyond the end, 16 sectors long.
        std::string entry(16, '\0');
        entry[4] = 0x0C;
        const DWORD start = 0x10000000, count = 16;
        std::memcpy(&entry[8], &start, 4);
        std::memcpy(&entry[12], &count, 4);
        WriteImageBytes(Image("out.img"), 446 + 16, entry);
        AttachedImage disk(Image("out.img"), "EF");
        ASSERT_GE(disk.Number(), 0) << disk.Error();
        ASSERT_EQ(vlx::DiskVolumes(disk.Number()).size(), 1u);
        EXPECT_EQ(FileSystemOf(_T("E:\\")), "FAT32");
    }
    {
        SCOPED_TRACE("zeroed boot sector: a RAW volume that files cannot reach but the device can");
        const MadeDisk made = MakeDiskImage(Image("zero.img"), 512, "dos", 44, {{"fat32", 40}});
        WriteImageBytes(Image("zero.img"), made.offsets[0], std::string(512, '\0'));
        AttachedImage disk(Image("zero.img"), "E");
        ASSERT_GE(disk.Number(), 0) << disk.Error();
        EXPECT_EQ(FileSystemOf(_T("E:\\")), "error " + std::to_string(ERROR_UNRECOGNIZED_VOLUME));
        sys().SetLastError(kJunkError);
        EXPECT_EQ(sys().GetFileAttributesW(_T("E:\\x")), INVALID_FILE_ATTRIBUTES);
        EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_UNRECOGNIZED_VOLUME));
        UniqueHandle volume(OpenDevice(_T("\\\\.\\E:")));
        EXPECT_TRUE(volume);
    }
    {
        SCOPED_TRACE("a folder whose cluster chain loops: listing fails, nothing hangs");
        const MadeDisk made = MakeDiskImage(Image("loop.img"), 512, "dos", 44, {{"fat32", 40}});
        MakeFatFolder(Image("loop.img"), made.offsets[0], "/Dir");
        // Root is cluster 2 and Dir the next free one, 3; make cluster 3 lead back to itself.
        const std::string boot = ReadImageBytes(Image("loop.img"), made.offsets[0], 512);
        const WORD reserved = static_cast<WORD>(static_cast<BYTE>(boot[14]) | (static_cast<BYTE>(boot[15]) << 8));
        const DWORD self = 3;
        std::string link(4, '\0');
        std::memcpy(link.data(), &self, 4);
        WriteImageBytes(Image("loop.img"), made.offsets[0] + reserved * 512ULL + 3 * 4, link);
        AttachedImage disk(Image("loop.img"), "E");
        ASSERT_GE(disk.Number(), 0) << disk.Error();
        EXPECT_EQ(List(_T("E:\\*")), (std::vector<std::string>{"Dir\\"}));
        EXPECT_EQ(List(_T("E:\\Dir\\*")), (std::vector<std::string>{"error " + std::to_string(ERROR_PATH_NOT_FOUND)}));
    }
    {
        SCOPED_TRACE("no image, an empty file, a folder, a bad sector size");
        WriteFile("empty.img", "");
        MakeFolder("folder.img");
        vlx::DiskAttachOptions options;
        std::string error;
        for (const char* name : {"missing.img", "empty.img", "folder.img"}) {
            EXPECT_EQ(vlx::AttachDiskImage(Image(name), options, &error), -1) << name;
            EXPECT_FALSE(error.empty());
        }
        options.sectorSize = 1024;
        EXPECT_EQ(vlx::AttachDiskImage(Image("zero.img"), options, &error), -1);
        EXPECT_FALSE(vlx::DetachDisk(12345));
    }
}

TEST_F(DiskImages, NtfsVolumesServeFilesFoldersAndHardLinks) {
    MakeDiskImage(Image("disk.img"), 512, "gpt", 40, {{"ntfs", 32}});
    AttachedImage disk(Image("disk.img"), "N");
    ASSERT_GE(disk.Number(), 0) << disk.Error();
    ASSERT_TRUE(sys().CreateDirectoryW(_T("N:\\Docs"), nullptr));
    const std::string content = PatternBytes(100000, 7);
    {
        UniqueHandle file(sys().CreateFileW(_T("N:\\Docs\\Report.txt"), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                            FILE_ATTRIBUTE_NORMAL, nullptr));
        ASSERT_TRUE(file) << sys().GetLastError();
        DWORD written = 0;
        ASSERT_TRUE(sys().WriteFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &written, nullptr));
        // A file-system control the engine does not know fails as on a volume without it.
        DWORD returned = 0;
        sys().SetLastError(kJunkError);
        EXPECT_FALSE(sys().DeviceIoControl(file.get(), FSCTL_GET_NTFS_VOLUME_DATA, nullptr, 0, nullptr, 0, &returned, nullptr));
        EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INVALID_FUNCTION));
    }
    ASSERT_TRUE(sys().CreateHardLinkW(_T("N:\\Docs\\Second.txt"), _T("N:\\Docs\\Report.txt"), nullptr)) << sys().GetLastError();
    EXPECT_EQ(GetFileIsHardlink(_T("N:\\Docs\\report.txt"), nullptr), 2);
    EXPECT_TRUE(sys().DeleteFileW(_T("N:\\Docs\\Second.txt")));
    EXPECT_EQ(List(_T("N:\\Docs\\*")), (std::vector<std::string>{".\\", "..\\", "Report.txt 100000"}));
    EXPECT_EQ(ReadWhole(_T("N:\\Docs\\report.txt")), content);
    EXPECT_TRUE(sys().DeleteFileW(_T("N:\\Docs\\Report.txt")));
    EXPECT_TRUE(sys().RemoveDirectoryW(_T("N:\\Docs")));
    EXPECT_EQ(List(_T("N:\\*")), (std::vector<std::string>{"error " + std::to_string(ERROR_FILE_NOT_FOUND)}));
}


TEST_F(DiskImages, TheCurrentFolderMayLieOnAnImageVolumeAndRelativePathsFollowIt) {
    const auto attached = AttachNewNtfsVolume(Image("ntfs.img"), "N");
    ASSERT_GE(attached->Number(), 0) << attached->Error();
    ASSERT_TRUE(sys().CreateDirectoryW(_T("N:\\dir"), nullptr));
    ASSERT_TRUE(sys().CreateDirectoryW(_T("N:\\dir\\sub"), nullptr));
    WCHAR before[MAX_PATH] = {}, now[MAX_PATH] = {};
    ASSERT_GT(sys().GetCurrentDirectoryW(MAX_PATH, before), 0u);

    ASSERT_TRUE(sys().SetCurrentDirectoryW(_T("N:\\DIR")));
    HANDLE file = sys().CreateFileW(_T("made.txt"), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE) << sys().GetLastError();
    sys().CloseHandle(file);
    EXPECT_NE(sys().GetFileAttributesW(_T("N:\\dir\\made.txt")), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(List(_T("*")), (std::vector<std::string>{".\\", "..\\", "made.txt 0", "sub\\"}));
    ASSERT_TRUE(sys().SetCurrentDirectoryW(_T("sub")));
    ASSERT_GT(sys().GetCurrentDirectoryW(MAX_PATH, now), 0u);
    EXPECT_EQ(U(now), "N:\\DIR\\sub");
    EXPECT_NE(sys().GetFileAttributesW(_T("..\\made.txt")), INVALID_FILE_ATTRIBUTES);

    // Only folders, and a relative path that leads nowhere changes nothing.
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(sys().SetCurrentDirectoryW(_T("..\\made.txt")));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_DIRECTORY));
    EXPECT_FALSE(sys().SetCurrentDirectoryW(_T("missing")));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    ASSERT_GT(sys().GetCurrentDirectoryW(MAX_PATH, now), 0u);
    EXPECT_EQ(U(now), "N:\\DIR\\sub");
    ASSERT_TRUE(sys().SetCurrentDirectoryW(before));
}

}  // namespace
