// Counting and listing whole NTFS volumes from the master file table, on images made by mkntfs and filled
// at test time: the list is the volume's tree as a folder walk finds it, the counts and bytes agree with
// GetFileCountInFolder, a file deleted behind the walk is skipped, and other volumes change nothing.
#include <gtest/gtest.h>

#include <set>

#include "../platform/linux/volumes/ntfs/ntfs_engine.h"
#include "../platform/unique_handles.h"
#include "support/disk_images.h"
#include "support/scripted_files.h"

namespace {

using namespace testing_support;
using PathList = std::vector<std::basic_string<WCHAR>>;

std::set<std::string> AsSet(const PathList& list) {
    std::set<std::string> paths;
    for (const auto& path : list) EXPECT_TRUE(paths.insert(WStrToUtf8(path)).second) << "listed twice: " << WStrToUtf8(path);
    return paths;
}

// Every path below folder as FindFirstFileW and FindNextFileW give it, depth first.
void WalkFolders(const std::string& folder, std::set<std::string>& paths) {
    WIN32_FIND_DATAW data;
    UniqueFindHandle find(sys().FindFirstFileW(W(folder + "\\*"), &data));
    if (!find) return;
    do {
        const std::string name = U(data.cFileName);
        if (name == "." || name == "..") continue;
        paths.insert(folder + "\\" + name);
        if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) WalkFolders(folder + "\\" + name, paths);
    } while (sys().FindNextFileW(find.get(), &data));
}

class MftVolumes : public HostFolderTest {
protected:
    std::string image_;
    ULONGLONG offset_ = 0;
    ULONGLONG length_ = 0;

    void SetUp() override {
        HostFolderTest::SetUp();
        image_ = Host("disk.img");
        const MadeDisk made = MakeDiskImage(image_, 512, "dos", 72, {{"ntfs", 64}});
        offset_ = made.offsets[0];
        length_ = 64ULL << 20;
    }

    // Fills the volume through the engine, with no MAX_PATH in the way: deep paths, paths past what a
    // 520-byte name buffer holds, Japanese names and hard links. Returns the second names of the links.
    std::vector<std::string> FillVolume(bool overLong = true) {
        std::unique_ptr<vlx::ntfs::Volume> volume;
        EXPECT_EQ(vlx::ntfs::Volume::Attach(image_, offset_, length_, false, volume), ERROR_SUCCESS);
        if (!volume) return {};
        auto folder = [&](const std::string& path) { EXPECT_EQ(volume->CreateFolder(WStrFromUtf8(path)), ERROR_SUCCESS) << path; };
        auto file = [&](const std::string& path, size_t size) {
            std::shared_ptr<vlx::ntfs::File> made;
            ASSERT_EQ(volume->CreateFile(WStrFromUtf8(path), FILE_ATTRIBUTE_ARCHIVE, made), ERROR_SUCCESS) << path;
            const std::string content = PatternBytes(size, static_cast<unsigned>(size));
            DWORD done = 0;
            ASSERT_EQ(made->Write(0, content.data(), static_cast<DWORD>(content.size()), done), ERROR_SUCCESS);
        };
        const std::string japanese = "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E";
        folder("\\Docs");
        folder("\\Docs\\" + japanese);
        file("\\Docs\\" + japanese + "\\\xE3\x83\x95\xE3\x82\xA1\xE3\x82\xA4\xE3\x83\xAB.txt", 3000);
        file("\\Docs\\report.txt", 100000);
        file("\\empty.bin", 0);
        std::string deep;
        for (int level = 0; level < 12; ++level) {
            deep += "\\level" + std::to_string(level);
            folder(deep);
        }
        file(deep + "\\bottom.txt", 12);
        // A path of 240 units still fits; below it, names reach past 259 units.
        if (overLong) {
            const std::string nearLimit = "\\" + std::string(239, 'L');
            folder(nearLimit);
            file(nearLimit + "\\" + std::string(30, 'x'), 7);
            folder(nearLimit + "\\" + std::string(40, 'y'));
        }
        for (int index = 0; index < 150; ++index) file("\\many\\f" + std::to_string(index), static_cast<size_t>(index));
        EXPECT_EQ(volume->CreateHardLink(WStrFromUtf8("\\Docs\\second.txt"), WStrFromUtf8("\\Docs\\report.txt")), ERROR_SUCCESS);
        EXPECT_EQ(volume->Detach(), ERROR_SUCCESS);
        return {"E:\\Docs\\second.txt"};
    }
    void MakeManyFolder() {
        std::unique_ptr<vlx::ntfs::Volume> volume;
        ASSERT_EQ(vlx::ntfs::Volume::Attach(image_, offset_, length_, false, volume), ERROR_SUCCESS);
        ASSERT_EQ(volume->CreateFolder(u"\\many"), ERROR_SUCCESS);
        ASSERT_EQ(volume->Detach(), ERROR_SUCCESS);
    }
};

TEST_F(MftVolumes, TheListIsTheFolderTreeWithOneNamePerFileAndNoPathPastTheNameBuffer) {
    MakeManyFolder();
    const std::vector<std::string> secondNames = FillVolume();
    AttachedImage disk(image_, "E", -1, 0, true);
    ASSERT_GE(disk.Number(), 0) << disk.Error();

    PathList list;
    GetFileListFromMFT(W("E:\\Docs\\ignored"), &list);
    const std::set<std::string> listed = AsSet(list);
    std::set<std::string> walked;
    WalkFolders("E:", walked);
    ASSERT_GT(walked.size(), 170u);
    for (const std::string& path : listed) EXPECT_TRUE(walked.contains(path)) << "not in the tree: " << path;
    // What the walk finds and the list leaves out: paths longer than 259 units, and the second name of
    // the file that has two (one record, listed under one of them).
    std::set<std::string> onlyWalked, overLong;
    for (const std::string& path : walked) {
        if (WStrFromUtf8(path).size() > 259) overLong.insert(path);
        else if (!listed.contains(path)) onlyWalked.insert(path);
    }
    EXPECT_EQ(overLong.size(), 2u);
    for (const std::string& path : overLong) EXPECT_FALSE(listed.contains(path)) << path;
    ASSERT_EQ(onlyWalked.size(), 1u);
    EXPECT_TRUE(*onlyWalked.begin() == secondNames[0] || *onlyWalked.begin() == "E:\\Docs\\report.txt") << *onlyWalked.begin();
    EXPECT_TRUE(listed.contains("E:\\Docs\\\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E\\\xE3\x83\x95\xE3\x82\xA1\xE3\x82\xA4\xE3\x83\xAB.txt"));

    // The count chains a node for every path that fits one, in the same order as the list.
    FileListNode head{};
    GetFileCountInFolderFromMFT(W("E:"), nullptr, nullptr, nullptr, &head, W("txt"));
    std::vector<std::string> inOrder;
    for (const auto& path : list) inOrder.push_back(WStrToUtf8(path));
    EXPECT_EQ(TakePaths(head), inOrder);
}

TEST_F(MftVolumes, CountsAndBytesAgreeWithTheFolderWalkSaveForTheSecondLinkName) {
    MakeManyFolder();
    FillVolume(false);
    AttachedImage disk(image_, "E", -1, 0, true);
    ASSERT_GE(disk.Number(), 0) << disk.Error();
    ULONGLONG files = 1, folders = 2, bytes = 3;
    GetFileCountInFolderFromMFT(W("E:\\many"), &files, &folders, &bytes, nullptr, W(""));
    ULONGLONG walkFiles = 0, walkFolders = 0, walkBytes = 0;
    GetFileCountInFolder(W("E:"), &walkFiles, &walkFolders, &walkBytes, nullptr, W(""), nullptr);
    ASSERT_GT(walkFiles, 150u);
    // The folder walk counts the linked file of 100,000 bytes under both of its names.
    EXPECT_EQ(files, 1 + walkFiles - 1);
    EXPECT_EQ(folders, 2 + walkFolders);
    EXPECT_EQ(bytes, 3 + walkBytes - 100000);
}

TEST_F(MftVolumes, AFileDeletedBetweenTheBatchAndItsLookupIsSkipped) {
    MakeManyFolder();
    FillVolume();
    AttachedImage disk(image_, "E", -1, 0, true);
    ASSERT_GE(disk.Number(), 0) << disk.Error();
    ULONGLONG before = 0;
    GetFileCountInFolderFromMFT(W("E:"), &before, nullptr, nullptr, nullptr, W(""));
    // The count collects every reference first; the file goes once the table has been read to its end.
    bool deleted = false;
    const auto original = sys().DeviceIoControl;
    ApiPatch<&Win32Api::DeviceIoControl> deleteAtTheEnd(
        [&](HANDLE device, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize, LPDWORD returned, LPOVERLAPPED overlapped) {
            const BOOL answered = original(device, code, in, inSize, out, outSize, returned, overlapped);
            if (code == FSCTL_ENUM_USN_DATA && !answered && !deleted) {
                const DWORD error = sys().GetLastError();
                deleted = sys().DeleteFileW(_T("E:\\many\\f7")) != FALSE;
                sys().SetLastError(error);
            }
            return answered;
        });
    ULONGLONG after = 0;
    FileListNode head{};
    GetFileCountInFolderFromMFT(W("E:"), &after, nullptr, nullptr, &head, W(""));
    ASSERT_TRUE(deleted);
    EXPECT_EQ(after, before - 1);
    for (const std::string& path : TakePaths(head)) EXPECT_NE(path, "E:\\many\\f7");
}

// Nothing changes where the gates fail: FAT32, exFAT, NTFS without an active journal, a host folder, a
// letter with no volume and an empty path.
TEST_F(MftVolumes, VolumesWithoutAnActiveJournalOnNtfsChangeNothing) {
    MakeDiskImage(image_, 512, "dos", 100, {{"fat32", 40}, {"exfat", 16}, {"ntfs", 32}});
    AttachedImage disk(image_, "FXN");
    ASSERT_GE(disk.Number(), 0) << disk.Error();
    WriteFile("host.txt", "host");
    for (const char* path : {"F:\\", "X:\\", "N:\\", "T:\\", "Q:\\", ""}) {
        SCOPED_TRACE(path);
        ULONGLONG files = 5, folders = 6, bytes = 7;
        FileListNode head{};
        GetFileCountInFolderFromMFT(W(path), &files, &folders, &bytes, &head, W(""));
        EXPECT_EQ(files, 5u);
        EXPECT_EQ(folders, 6u);
        EXPECT_EQ(bytes, 7u);
        EXPECT_TRUE(head.next == nullptr);
        PathList list{u"kept"};
        GetFileListFromMFT(W(path), &list);
        EXPECT_EQ(list, PathList{u"kept"});
    }
}

}  // namespace
