// The mount manager of the Linux platform: stable volume names for host-folder volumes, drive roots as
// the only mount points, letters taken and given back only by an elevated process.
#include "../../platform/linux/core/mount_manager.h"
#include "../support/volume_fixture.h"

namespace {

using testing_support::kJunkError;
using testing_support::U;

class MountManager : public testing_support::MappedVolumesTest {
protected:
    std::string Name(LPCWSTR root) {
        WCHAR name[MAX_PATH] = {};
        if (!sys().GetVolumeNameForVolumeMountPointW(root, name, MAX_PATH)) return "error " + std::to_string(sys().GetLastError());
        return U(name);
    }
    DWORD ErrorOf(BOOL result) {
        EXPECT_FALSE(result);
        return sys().GetLastError();
    }
};

TEST_F(MountManager, AHostFolderHasOneStableVolumeNameWhereverItIsMapped) {
    const std::string name = Name(u"P:\\");
    ASSERT_EQ(name.size(), 49u) << name;
    EXPECT_EQ(name.substr(0, 11), "\\\\?\\Volume{");
    EXPECT_EQ(name.substr(47), "}\\");
    EXPECT_EQ(U(vlx::HostFolderVolumeName(Host("one/../one")).c_str()), name);  // the real path decides
    ASSERT_TRUE(vlx::MapDrive('Q', Host("one")));
    EXPECT_EQ(Name(u"q:\\"), name);
    ASSERT_TRUE(vlx::MapDrive('R', Host("two")));
    EXPECT_NE(Name(u"R:\\"), name);
    EXPECT_EQ(Name(u"C:\\").size(), 49u);
}

TEST_F(MountManager, OnlyDriveRootsAreMountPointsAndTheNameMustFit) {
    struct Case {
        const char16_t* root;
        DWORD error;
    };
    const Case cases[] = {
        {u"P:", ERROR_INVALID_NAME}, {u"P:\\one\\", ERROR_INVALID_NAME}, {u"1:\\", ERROR_INVALID_NAME},
        {u"Q:\\", ERROR_FILE_NOT_FOUND},
    };
    for (const Case& c : cases) {
        sys().SetLastError(kJunkError);
        EXPECT_EQ(Name(c.root), "error " + std::to_string(c.error)) << U(c.root);
    }
    WCHAR name[50] = {};
    EXPECT_EQ(ErrorOf(sys().GetVolumeNameForVolumeMountPointW(u"P:\\", name, 49)), static_cast<DWORD>(ERROR_FILENAME_EXCED_RANGE));
    EXPECT_TRUE(sys().GetVolumeNameForVolumeMountPointW(u"P:\\", name, 50));
}

TEST_F(MountManager, ALetterTakenAwayLeavesItsPathsAndIsGivenBackByName) {
    const std::string name = Name(u"P:\\");
    WriteFile("one/file.txt", "x");
    ASSERT_TRUE(sys().DeleteVolumeMountPointW(u"P:\\"));
    EXPECT_EQ(sys().GetFileAttributesW(u"P:\\file.txt"), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(Name(u"P:\\"), "error " + std::to_string(ERROR_FILE_NOT_FOUND));
    ASSERT_TRUE(sys().SetVolumeMountPointW(u"Q:\\", WStrFromUtf8(name).c_str()));
    EXPECT_NE(sys().GetFileAttributesW(u"Q:\\file.txt"), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(Name(u"Q:\\"), name);
}

TEST_F(MountManager, RefusalsLeaveEveryLetterAsItWas) {
    const WString name = WStrFromUtf8(Name(u"P:\\"));
    ASSERT_TRUE(vlx::MapDrive('R', Host("two")));
    EXPECT_EQ(ErrorOf(sys().SetVolumeMountPointW(u"R:\\", name.c_str())), static_cast<DWORD>(ERROR_DIR_NOT_EMPTY));
    EXPECT_EQ(ErrorOf(sys().SetVolumeMountPointW(u"Q:\\", u"\\\\?\\Volume{00000000-0000-0000-0000-000000000000}\\")),
              static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(ErrorOf(sys().SetVolumeMountPointW(u"Q:\\", u"P:\\")), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(ErrorOf(sys().DeleteVolumeMountPointW(u"Q:\\")), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(ErrorOf(sys().DeleteVolumeMountPointW(u"C:\\")), static_cast<DWORD>(ERROR_ACCESS_DENIED));  // the system volume
    vlx::SetProcessToken(vlx::TokenKind::StandardUser);
    EXPECT_EQ(ErrorOf(sys().DeleteVolumeMountPointW(u"P:\\")), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(ErrorOf(sys().SetVolumeMountPointW(u"Q:\\", name.c_str())), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(U(name.c_str()), Name(u"P:\\"));  // reading a name needs no elevation
    EXPECT_EQ(vlx::DriveRoot('Q'), "");
    EXPECT_EQ(vlx::DriveRoot('R'), Real("two"));
}

}  // namespace

namespace {

// A kind of volume that stands in front of host folders when it holds a letter, as a disk image's will.
class OneImageVolume : public vlx::VolumeLetters {
public:
    WCHAR letter = 0;  // 0: no letter, nothing claimed
    const WString name = u"\\\\?\\Volume{11111111-2222-4333-8444-555555555555}\\";
    bool NameAt(WCHAR at, WString& volumeName) override {
        if (at != letter) return false;
        volumeName = name;
        return true;
    }
    bool Remove(WCHAR) override { return letter = 0, true; }
    bool Knows(const WString& volumeName) override { return volumeName == name; }
    bool Place(const WString&, WCHAR at) override { return letter = at, true; }
};

OneImageVolume& ImageKind() {
    static OneImageVolume kind;
    static const bool registered = (vlx::RegisterVolumeLetters(&kind), true);
    (void)registered;
    return kind;
}

TEST_F(MountManager, AnotherKindOfVolumeStandsInFrontOfAHostFolderAtTheSameLetter) {
    OneImageVolume& image = ImageKind();
    image.letter = 'P';
    EXPECT_EQ(Name(u"P:\\"), U(image.name.c_str()));
    // Moved away, it leaves the host folder at P: and takes Q:.
    EXPECT_TRUE(sys().DeleteVolumeMountPointW(u"P:\\"));
    EXPECT_NE(Name(u"P:\\"), U(image.name.c_str()));
    EXPECT_TRUE(sys().SetVolumeMountPointW(u"Q:\\", image.name.c_str()));
    EXPECT_EQ(image.letter, 'Q');
    image.letter = 0;
}

}  // namespace
