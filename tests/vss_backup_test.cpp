// The snapshot exports end to end, over the platform's own vssapi.dll on NTFS disk images made at test
// time: files read through the copy as they were when it was made, whatever the live volume did since,
// the paths the copy refuses, volumes that cannot be copied, and nothing left behind by CloseVssBackUp.
#include <gtest/gtest.h>

#include <cstring>

#include "../platform/unique_handles.h"
#include "../platform/vssapi.h"
#include "../snapshot/snapshot_internal.h"
#include "support/disk_images.h"

namespace {

using namespace testing_support;

class VssBackup : public HostFolderTest {
protected:
    void SetUp() override {
        HostFolderTest::SetUp();
        MakeDiskImage(Host("disk.img"), 512, "dos", 20, {{"ntfs", 16}});
        image_ = std::make_unique<AttachedImage>(Host("disk.img"), "E");
        ASSERT_GE(image_->Number(), 0) << image_->Error();
        vlx::SetProcessToken(vlx::TokenKind::Elevated);
        ASSERT_TRUE(SUCCEEDED(sys().CoInitialize(nullptr)));
        comObjectsBefore_ = vlx::LiveComObjectCount();
        const auto volumes = vlx::DiskVolumes(image_->Number());
        ASSERT_EQ(volumes.size(), 1u);
        volumeName_ = U(volumes[0].volumeName.c_str());
        // The name a caller finds for the letter, as on Windows.
        WCHAR name[MAX_PATH] = {};
        ASSERT_TRUE(sys().GetVolumeNameForVolumeMountPointW(_T("E:\\"), name, MAX_PATH));
        EXPECT_EQ(U(name), volumeName_);
    }
    void TearDown() override {
        CloseVssBackUp();
        EXPECT_EQ(vlx::ShadowCopyCount(), 0u) << "a shadow copy outlived its components object";
        EXPECT_EQ(vlx::LiveComObjectCount(), comObjectsBefore_) << "a COM object was not released";
        // The library keeps vssapi.dll loaded on purpose; the test gives its loads back.
        while (HMODULE module = sys().GetModuleHandleW(_T("vssapi.dll"))) sys().FreeLibrary(module);
        sys().CoUninitialize();
        vlx::SetProcessToken(vlx::TokenKind::AsProcessRuns);
        image_.reset();
        HostFolderTest::TearDown();
    }

    static void WriteLive(LPCWSTR path, const std::string& content, DWORD disposition = CREATE_ALWAYS) {
        UniqueHandle file(sys().CreateFileW(path, GENERIC_WRITE, 0, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
        ASSERT_TRUE(file) << U(path);
        DWORD written = 0;
        ASSERT_TRUE(sys().WriteFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &written, nullptr));
        ASSERT_EQ(written, content.size());
    }
    static std::string ReadAll(HANDLE file) {
        std::string content;
        char buffer[4096];
        DWORD read = 0;
        while (sys().ReadFile(file, buffer, sizeof buffer, &read, nullptr) && read > 0) content.append(buffer, read);
        return content;
    }
    static std::string ReadLive(LPCWSTR path) {
        UniqueHandle file(sys().CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
        return file ? ReadAll(file.get()) : "<" + std::to_string(sys().GetLastError()) + ">";
    }
    // The file as VssOpenFile gives it, or the last error in angle brackets.
    std::string ReadThroughCopy(const std::string& belowVolume) const {
        const HANDLE file = VssOpenFile(WStrFromUtf8(volumeName_ + belowVolume).c_str());
        if (file == nullptr) return "<" + std::to_string(sys().GetLastError()) + ">";
        UniqueHandle owned(file);
        return ReadAll(file);
    }

    std::unique_ptr<AttachedImage> image_;
    size_t comObjectsBefore_ = 0;
    std::string volumeName_;
};

TEST_F(VssBackup, FilesReadThroughTheCopyAsTheyWereWhileTheLiveVolumeMovesOn) {
    const std::string locked = PatternBytes(300 * 1024, 1);
    WriteLive(_T("E:\\locked.bin"), locked);
    WriteLive(_T("E:\\changed.txt"), "before");
    WriteLive(_T("E:\\deleted.txt"), "gone later");
    ASSERT_TRUE(sys().CreateDirectoryW(_T("E:\\Dir"), nullptr));
    WriteLive(_T("E:\\Dir\\deep.txt"), "deep");
    // Another part of the program holds this one open without sharing, and goes on writing to it.
    UniqueHandle holder(sys().CreateFileW(_T("E:\\locked.bin"), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                          FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(holder);

    WCHAR device[MAX_PATH] = {};
    VSS_ID id{};
    ASSERT_EQ(InitializeVssBackUp(_T("E:"), VSS_BT_COPY, device, &id), TRUE);
    EXPECT_EQ(U(device).rfind("\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy", 0), 0u) << U(device);
    EXPECT_NE(id, VSS_ID{});
    EXPECT_EQ(id.Data3 >> 12, 4) << "a random GUID";
    EXPECT_EQ(U(VelmoraSnapshotState().snapshotProp.m_pwszOriginalVolumeName), volumeName_);
    EXPECT_EQ(vlx::ShadowCopyCount(), 1u);

    const std::string overwrite = PatternBytes(200 * 1024, 2);
    DWORD written = 0;
    ASSERT_TRUE(sys().WriteFile(holder.get(), overwrite.data(), static_cast<DWORD>(overwrite.size()), &written, nullptr));
    WriteLive(_T("E:\\changed.txt"), "after, and longer than before");
    ASSERT_TRUE(sys().DeleteFileW(_T("E:\\deleted.txt")));
    WriteLive(_T("E:\\Dir\\new.txt"), "new");

    EXPECT_TRUE(ReadThroughCopy("locked.bin") == locked) << "the locked file as it was";
    EXPECT_EQ(ReadThroughCopy("CHANGED.txt"), "before");
    EXPECT_EQ(ReadThroughCopy("deleted.txt"), "gone later");
    EXPECT_EQ(ReadThroughCopy("dir\\DEEP.TXT"), "deep");
    EXPECT_EQ(ReadThroughCopy("Dir\\new.txt"), "<" + std::to_string(ERROR_FILE_NOT_FOUND) + ">");
    EXPECT_EQ(ReadLive(_T("E:\\changed.txt")), "after, and longer than before");
    EXPECT_EQ(ReadLive(_T("E:\\deleted.txt")), "<" + std::to_string(ERROR_FILE_NOT_FOUND) + ">");
    EXPECT_EQ(ReadLive(_T("E:\\locked.bin")), "<" + std::to_string(ERROR_SHARING_VIOLATION) + ">");

    // The copy's handle shares nothing either, within the copy.
    const HANDLE first = VssOpenFile(WStrFromUtf8(volumeName_ + "changed.txt").c_str());
    ASSERT_NE(first, nullptr);
    UniqueHandle owned(first);
    EXPECT_EQ(ReadThroughCopy("changed.txt"), "<" + std::to_string(ERROR_SHARING_VIOLATION) + ">");
    owned.reset();

    // The copy is only the volume's, by its volume name, and its root is no file.
    EXPECT_EQ(VssOpenFile(_T("E:\\changed.txt")), nullptr);
    EXPECT_EQ(VssOpenFile(WStrFromUtf8(volumeName_).c_str()), nullptr);

    holder.reset();
    CloseVssBackUp();
    EXPECT_EQ(vlx::ShadowCopyCount(), 0u);
    EXPECT_EQ(VssOpenFile(WStrFromUtf8(volumeName_ + "changed.txt").c_str()), nullptr);
    sys().SetLastError(kJunkError);
    EXPECT_EQ(sys().GetFileAttributesW((WString(device) + _T("\\changed.txt")).c_str()), INVALID_FILE_ATTRIBUTES)
        << "the copy's device is gone";
    EXPECT_NE(sys().GetLastError(), kJunkError);
}

TEST_F(VssBackup, VolumesWithoutShadowCopiesFailAfterTheObjectIsMade) {
    for (LPCWSTR volume : {_T("T:"), _T("C:\\"), _T("E:\\Dir"), _T("Q:")}) {
        SCOPED_TRACE(U(volume));
        EXPECT_EQ(InitializeVssBackUp(volume, VSS_BT_FULL, nullptr, nullptr), FALSE);
        EXPECT_NE(VelmoraSnapshotState().pBackup, nullptr) << "partial: the object waits for the close";
        EXPECT_EQ(vlx::ShadowCopyCount(), 0u);
        CloseVssBackUp();
        EXPECT_EQ(vlx::LiveComObjectCount(), comObjectsBefore_);
    }
}

TEST_F(VssBackup, AnUnelevatedProcessGetsNoComponentsObject) {
    vlx::SetProcessToken(vlx::TokenKind::StandardUser);
    EXPECT_EQ(InitializeVssBackUp(_T("E:"), VSS_BT_FULL, nullptr, nullptr), FALSE);
    EXPECT_EQ(VelmoraSnapshotState().pBackup, nullptr);
    EXPECT_NE(VelmoraSnapshotState().hVssApi, nullptr);
}

TEST_F(VssBackup, AnEarlierCopyNamedByItsIdIsOpenedAgainWhileItLives) {
    WriteLive(_T("E:\\a.txt"), "first");
    VSS_ID id{};
    ASSERT_EQ(InitializeVssBackUp(_T("E:\\"), VSS_BT_COPY, nullptr, &id), TRUE);
    IVssBackupComponents* earlier = VelmoraSnapshotState().pBackup;
    earlier->AddRef();  // the next initialisation drops the library's reference without releasing it
    VSS_SNAPSHOT_PROP dropped = VelmoraSnapshotState().snapshotProp;  // and these strings with it
    WriteLive(_T("E:\\a.txt"), "second");

    VSS_ID named = id;
    WCHAR device[MAX_PATH] = {};
    ASSERT_EQ(InitializeVssBackUp(_T("E:"), VSS_BT_COPY, device, &named), TRUE);
    EXPECT_EQ(named, id);
    EXPECT_EQ(vlx::ShadowCopyCount(), 1u) << "no new copy was made";
    EXPECT_EQ(ReadThroughCopy("a.txt"), "first");
    VelmoraSnapshotState().pfnVssFreeSnapshotProperties(&dropped);
    CloseVssBackUp();
    earlier->Release();  // the first call's reference, which the second dropped
    earlier->Release();  // the test's own
    EXPECT_EQ(vlx::ShadowCopyCount(), 0u);
}

}  // namespace
