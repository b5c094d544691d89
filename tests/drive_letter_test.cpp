// ChangeDriveLetter: the drive roots made from the letters, one attempt per mount step, the two pauses
// (counted, never slept), the old letter restored when the new one cannot be taken; then over the Linux
// platform's mount manager with host-folder volumes.
#include <gtest/gtest.h>

#include "support/scripted_files.h"
#include "support/disk_images.h"
#include "support/volume_fixture.h"

namespace {

using namespace testing_support;

const std::string kVolume = "\\\\?\\Volume{0b1d2c3e-0000-4000-8000-00000000abcd}\\";

class ScriptedMounts {
public:
    // Each step's answer: 0 succeeds, otherwise the error it fails with.
    DWORD getError = 0, deleteError = 0, setNewError = 0, setOldError = 0;
    std::vector<std::string> log;

private:
    template <class T>
    static T Failed(DWORD error, T result) {
        sys().SetLastError(error);
        return result;
    }
    ApiPatch<&Win32Api::GetVolumeNameForVolumeMountPointW> get_{[this](LPCWSTR root, LPWSTR name, DWORD length) {
        const bool clean = std::all_of(name, name + length, [](WCHAR unit) { return unit == 0; });
        log.push_back("Get " + U(root) + " " + std::to_string(length) + (clean ? " clean" : " dirty"));
        if (getError != 0) return Failed(getError, FALSE);
        const WString text = WStrFromUtf8(kVolume);
        text.copy(name, text.size());
        return TRUE;
    }};
    ApiPatch<&Win32Api::DeleteVolumeMountPointW> delete_{[this](LPCWSTR root) {
        log.push_back("Delete " + U(root));
        return deleteError != 0 ? Failed(deleteError, FALSE) : TRUE;
    }};
    ApiPatch<&Win32Api::SetVolumeMountPointW> set_{[this](LPCWSTR root, LPCWSTR name) {
        const bool first = std::none_of(log.begin(), log.end(), [](const std::string& entry) { return entry.rfind("Set ", 0) == 0; });
        log.push_back("Set " + U(root) + (U(name) == kVolume ? "" : " other volume"));
        const DWORD error = first ? setNewError : setOldError;
        return error != 0 ? Failed(error, FALSE) : TRUE;
    }};
    ApiPatch<&Win32Api::Sleep> sleep_{[this](DWORD milliseconds) { log.push_back("Sleep " + std::to_string(milliseconds)); }};
};

std::string Joined(const std::vector<std::string>& log) {
    std::string text;
    for (const std::string& entry : log) text += (text.empty() ? "" : " | ") + entry;
    return text;
}

TEST(DriveLetter, EachStepIsTriedOnceWithAPauseAfterEveryChange) {
    struct Case {
        const char* name;
        WCHAR from, to;
        DWORD getError, deleteError, setNewError, setOldError;
        int result;
        const char* log;
    };
    const Case cases[] = {
        {"moved", 'E', 'F', 0, 0, 0, 0, 1, "Get E:\\ 260 clean | Delete E:\\ | Sleep 1000 | Set F:\\ | Sleep 1000"},
        {"same letter: deleted and made again", 'E', 'E', 0, 0, 0, 0, 1,
         "Get E:\\ 260 clean | Delete E:\\ | Sleep 1000 | Set E:\\ | Sleep 1000"},
        {"letters used as given", 'e', '1', 0, 0, 0, 0, 1, "Get e:\\ 260 clean | Delete e:\\ | Sleep 1000 | Set 1:\\ | Sleep 1000"},
        {"no volume at the old letter", 'Q', 'F', ERROR_FILE_NOT_FOUND, 0, 0, 0, 0, "Get Q:\\ 260 clean"},
        {"the old mount point stays", 'E', 'F', 0, ERROR_ACCESS_DENIED, 0, 0, 0, "Get E:\\ 260 clean | Delete E:\\"},
        {"new letter taken: back at the old", 'E', 'F', 0, 0, ERROR_DIR_NOT_EMPTY, 0, 0,
         "Get E:\\ 260 clean | Delete E:\\ | Sleep 1000 | Set F:\\ | Set E:\\"},
        {"restore fails too: still 0", 'E', 'F', 0, 0, ERROR_DIR_NOT_EMPTY, ERROR_DIR_NOT_EMPTY, 0,
         "Get E:\\ 260 clean | Delete E:\\ | Sleep 1000 | Set F:\\ | Set E:\\"},
    };
    for (const Case& c : cases) {
        ScriptedMounts script;
        script.getError = c.getError;
        script.deleteError = c.deleteError;
        script.setNewError = c.setNewError;
        script.setOldError = c.setOldError;
        EXPECT_EQ(ChangeDriveLetter(c.from, c.to), c.result) << c.name;
        EXPECT_EQ(Joined(script.log), c.log) << c.name;
    }
}

// ---- Over the mount manager of the Linux platform.

class DriveLetterOnHost : public MappedVolumesTest {
protected:
    int pauses_ = 0;
    ApiPatch<&Win32Api::Sleep> sleep_{[this](DWORD milliseconds) { pauses_ += milliseconds == 1000 ? 1 : 100; }};
};

TEST_F(DriveLetterOnHost, AVolumeMovesToAFreeLetterAndKeepsItsName) {
    WCHAR before[MAX_PATH] = {}, after[MAX_PATH] = {};
    ASSERT_TRUE(sys().GetVolumeNameForVolumeMountPointW(_T("P:\\"), before, MAX_PATH));
    EXPECT_EQ(ChangeDriveLetter('P', 'Q'), 1);
    EXPECT_EQ(pauses_, 2);
    EXPECT_EQ(vlx::DriveRoot('P'), "");
    EXPECT_EQ(vlx::DriveRoot('Q'), Real("one"));
    ASSERT_TRUE(sys().GetVolumeNameForVolumeMountPointW(_T("Q:\\"), after, MAX_PATH));
    EXPECT_EQ(U(before), U(after));
    // To the letter it already has: taken away and given back.
    EXPECT_EQ(ChangeDriveLetter('Q', 'Q'), 1);
    EXPECT_EQ(vlx::DriveRoot('Q'), Real("one"));
}

TEST_F(DriveLetterOnHost, ATakenLetterSendsTheVolumeBackToItsOldOne) {
    ASSERT_TRUE(vlx::MapDrive('R', Host("two")));
    EXPECT_EQ(ChangeDriveLetter('P', 'R'), 0);
    EXPECT_EQ(pauses_, 1);
    EXPECT_EQ(vlx::DriveRoot('P'), Real("one"));
    EXPECT_EQ(vlx::DriveRoot('R'), Real("two"));
}

TEST_F(DriveLetterOnHost, NothingChangesWithoutAVolumeOrWithoutElevation) {
    EXPECT_EQ(ChangeDriveLetter('Q', 'R'), 0);  // nothing at Q:
    vlx::SetProcessToken(vlx::TokenKind::StandardUser);
    EXPECT_EQ(ChangeDriveLetter('P', 'Q'), 0);
    EXPECT_EQ(pauses_, 0);
    EXPECT_EQ(vlx::DriveRoot('P'), Real("one"));
    EXPECT_EQ(vlx::DriveRoot('Q'), "");
}


TEST_F(DriveLetterOnHost, AVolumeOfADiskImageMovesAsAnyOtherDoes) {
    MakeDiskImage(Host("disk.img"), 512, "dos", 44, {{"fat32", 40}});
    AttachedImage disk(Host("disk.img"), "E");
    ASSERT_GE(disk.Number(), 0) << disk.Error();
    WCHAR before[MAX_PATH] = {}, after[MAX_PATH] = {};
    ASSERT_TRUE(sys().GetVolumeNameForVolumeMountPointW(_T("E:\\"), before, MAX_PATH));
    EXPECT_EQ(ChangeDriveLetter('E', 'Q'), 1);
    ASSERT_TRUE(sys().GetVolumeNameForVolumeMountPointW(_T("Q:\\"), after, MAX_PATH));
    EXPECT_EQ(U(before), U(after));
    EXPECT_EQ(U(after), U(vlx::DiskVolumes(disk.Number()).at(0).volumeName.c_str()));
    EXPECT_FALSE(sys().GetVolumeNameForVolumeMountPointW(_T("E:\\"), before, MAX_PATH));
    WCHAR fileSystem[16] = {};
    EXPECT_TRUE(sys().GetVolumeInformationW(_T("Q:\\"), nullptr, 0, nullptr, nullptr, nullptr, fileSystem, 16));
    EXPECT_EQ(U(fileSystem), "FAT32");
    // A host folder stands at P:, so the image's volume goes back to Q:.
    EXPECT_EQ(ChangeDriveLetter('Q', 'P'), 0);
    EXPECT_EQ(vlx::DiskVolumes(disk.Number()).at(0).letter, 'Q');
    EXPECT_EQ(vlx::DriveRoot('P'), Real("one"));
}

}  // namespace
