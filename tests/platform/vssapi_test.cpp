// The platform's vssapi.dll driven directly through its published slots: the order its methods demand,
// what AddToSnapshotSet accepts as a volume, the properties of a copy, the slots it does not serve, and
// the copy ending with its object; and the copy-on-write store under writes that straddle its blocks.
#include <gtest/gtest.h>

#include <cstring>

#include "../../platform/unique_handles.h"
#include "../../platform/vssapi.h"
#include "../support/disk_images.h"

namespace {

using namespace testing_support;

class BuiltInVssApi : public HostFolderTest {
protected:
    void SetUp() override {
        HostFolderTest::SetUp();
        MakeDiskImage(Host("disk.img"), 512, "gpt", 40, {{"ntfs", 16}, {"fat32", 36 - 16 - 1}});
        image_ = std::make_unique<AttachedImage>(Host("disk.img"), "EF");
        ASSERT_GE(image_->Number(), 0) << image_->Error();
        vlx::SetProcessToken(vlx::TokenKind::Elevated);
        ASSERT_TRUE(SUCCEEDED(sys().CoInitialize(nullptr)));
        library_ = sys().LoadLibraryW(_T("C:\\Windows\\System32\\vssapi.dll"));
        ASSERT_NE(library_, nullptr);
        create_ = reinterpret_cast<CreateVssBackupComponentsFunction>(
            reinterpret_cast<void (*)()>(sys().GetProcAddress(library_, "CreateVssBackupComponentsInternal")));
        free_ = reinterpret_cast<VssFreeSnapshotPropertiesFunction>(
            reinterpret_cast<void (*)()>(sys().GetProcAddress(library_, "VssFreeSnapshotPropertiesInternal")));
        ASSERT_NE(create_, nullptr);
        ASSERT_NE(free_, nullptr);
        volumeName_ = vlx::DiskVolumes(image_->Number())[0].volumeName;
    }
    void TearDown() override {
        EXPECT_EQ(vlx::ShadowCopyCount(), 0u);
        if (library_ != nullptr) sys().FreeLibrary(library_);
        sys().CoUninitialize();
        vlx::SetProcessToken(vlx::TokenKind::AsProcessRuns);
        image_.reset();
        HostFolderTest::TearDown();
    }
    // A components object ready for a set: initialised for backup in the file-share context.
    void Ready(UniqueComPtr<IVssBackupComponents>& backup) {
        ASSERT_EQ(create_(backup.put()), S_OK);
        EXPECT_EQ(backup->InitializeForBackup(nullptr), S_OK);
        EXPECT_EQ(backup->SetBackupState(false, false, VSS_BT_COPY, false), S_OK);
        EXPECT_EQ(backup->SetContext(VSS_CTX_FILE_SHARE_BACKUP), S_OK);
    }
    static HRESULT MakeSet(IVssBackupComponents* backup) {
        IVssAsync* async = nullptr;
        const HRESULT done = backup->DoSnapshotSet(&async);
        if (FAILED(done)) return done;
        const HRESULT waited = async->Wait(INFINITE);
        async->Release();
        return waited;
    }

    std::unique_ptr<AttachedImage> image_;
    HMODULE library_ = nullptr;
    CreateVssBackupComponentsFunction create_ = nullptr;
    VssFreeSnapshotPropertiesFunction free_ = nullptr;
    WString volumeName_;
};

TEST_F(BuiltInVssApi, MethodsAnswerInTheOrderTheServiceDemands) {
    UniqueComPtr<IVssBackupComponents> backup;
    ASSERT_EQ(create_(backup.put()), S_OK);
    VSS_ID setId{}, snapshotId{};
    EXPECT_EQ(backup->StartSnapshotSet(&setId), VSS_E_BAD_STATE) << "before InitializeForBackup";
    EXPECT_EQ(backup->InitializeForBackup(nullptr), S_OK);
    EXPECT_EQ(backup->InitializeForBackup(nullptr), VSS_E_BAD_STATE);
    EXPECT_EQ(backup->AddToSnapshotSet(const_cast<VSS_PWSZ>(_T("E:\\")), VSS_ID{}, &snapshotId), VSS_E_BAD_STATE)
        << "before StartSnapshotSet";
    EXPECT_EQ(backup->StartSnapshotSet(&setId), S_OK);
    EXPECT_EQ(backup->StartSnapshotSet(&setId), VSS_E_SNAPSHOT_SET_IN_PROGRESS);
    EXPECT_EQ(backup->SetContext(VSS_CTX_FILE_SHARE_BACKUP), VSS_E_BAD_STATE) << "after the set began";

    // The slots the service does not serve are there, and say so.
    IVssAsync* async = nullptr;
    EXPECT_EQ(backup->GatherWriterMetadata(&async), E_NOTIMPL);
    EXPECT_EQ(backup->PrepareForBackup(&async), E_NOTIMPL);
    EXPECT_EQ(backup->BackupComplete(&async), E_NOTIMPL);
    BOOL supported = FALSE;
    EXPECT_EQ(backup->IsVolumeSupported(VSS_ID{}, const_cast<VSS_PWSZ>(_T("E:\\")), &supported), E_NOTIMPL);
    EXPECT_EQ(backup->QueryRevertStatus(const_cast<VSS_PWSZ>(_T("E:\\")), &async), E_NOTIMPL);
    EXPECT_EQ(async, nullptr);
}

TEST_F(BuiltInVssApi, OnlyTheRootOfAnNtfsImageVolumeJoinsASet) {
    UniqueComPtr<IVssBackupComponents> backup;
    Ready(backup);
    VSS_ID setId{};
    ASSERT_EQ(backup->StartSnapshotSet(&setId), S_OK);
    const VSS_ID otherProvider = {1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
    struct Case {
        WString volume;
        VSS_ID provider;
        HRESULT expected;
    };
    const Case cases[] = {
        {_T("E:"), VSS_ID{}, VSS_E_OBJECT_NOT_FOUND},  // the backslash is part of the name
        {_T("E:\\Dir\\"), VSS_ID{}, VSS_E_OBJECT_NOT_FOUND},
        {_T("Q:\\"), VSS_ID{}, VSS_E_OBJECT_NOT_FOUND},
        {_T("T:\\"), VSS_ID{}, VSS_E_VOLUME_NOT_SUPPORTED},  // a host folder
        {_T("F:\\"), VSS_ID{}, VSS_E_VOLUME_NOT_SUPPORTED},  // FAT32
        {_T("E:\\"), otherProvider, VSS_E_PROVIDER_NOT_REGISTERED},
        {volumeName_, VSS_ID{}, S_OK},
        {_T("e:\\"), VSS_ID{}, VSS_E_OBJECT_ALREADY_EXISTS},  // the same volume by its letter
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(U(each.volume.c_str()));
        VSS_ID snapshotId{};
        WString volume = each.volume;
        EXPECT_EQ(backup->AddToSnapshotSet(volume.data(), each.provider, &snapshotId), each.expected);
        EXPECT_EQ(snapshotId != VSS_ID{}, each.expected == S_OK);
    }
}

TEST_F(BuiltInVssApi, ACopysPropertiesNameItAndItEndsWithItsObject) {
    UniqueComPtr<IVssBackupComponents> backup;
    Ready(backup);
    VSS_ID setId{}, snapshotId{};
    ASSERT_EQ(backup->StartSnapshotSet(&setId), S_OK);
    ASSERT_EQ(backup->AddToSnapshotSet(const_cast<VSS_PWSZ>(_T("E:\\")), VSS_ID{}, &snapshotId), S_OK);
    ASSERT_EQ(MakeSet(backup.get()), S_OK);
    EXPECT_EQ(vlx::ShadowCopyCount(), 1u);

    VSS_SNAPSHOT_PROP properties{};
    EXPECT_EQ(backup->GetSnapshotProperties(setId, &properties), VSS_E_OBJECT_NOT_FOUND) << "a set is no snapshot";
    ASSERT_EQ(backup->GetSnapshotProperties(snapshotId, &properties), S_OK);
    EXPECT_EQ(properties.m_SnapshotId, snapshotId);
    EXPECT_EQ(properties.m_SnapshotSetId, setId);
    EXPECT_EQ(properties.m_lSnapshotsCount, 1);
    EXPECT_EQ(WString(properties.m_pwszOriginalVolumeName), volumeName_);
    const WString device = properties.m_pwszSnapshotDeviceObject;
    EXPECT_EQ(U(device.c_str()).rfind("\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy", 0), 0u);
    EXPECT_NE(device.back(), u'\\');
    EXPECT_EQ(properties.m_lSnapshotAttributes, VSS_CTX_FILE_SHARE_BACKUP);
    EXPECT_EQ(properties.m_eStatus, VSS_SS_CREATED);
    EXPECT_NE(properties.m_tsCreationTimestamp, 0);
    free_(&properties);

    // The copy is a volume with a root folder, and a path past its number names no copy.
    const DWORD root = sys().GetFileAttributesW((device + _T("\\")).c_str());
    EXPECT_TRUE(root != INVALID_FILE_ATTRIBUTES && (root & FILE_ATTRIBUTE_DIRECTORY) != 0);
    EXPECT_EQ(sys().GetFileAttributesW((device + _T("0\\")).c_str()), INVALID_FILE_ATTRIBUTES);

    backup.reset();
    EXPECT_EQ(vlx::ShadowCopyCount(), 0u);
    EXPECT_EQ(sys().GetFileAttributesW((device + _T("\\")).c_str()), INVALID_FILE_ATTRIBUTES);
}

// Writes that start and end inside the store's blocks, and runs of many blocks, are saved whole: the copy
// reads every byte of a large file as it was, after the live file was rewritten in pieces.
TEST_F(BuiltInVssApi, CopyOnWriteKeepsEveryByteUnderUnalignedAndLongWrites) {
    const std::string before = PatternBytes(3 * 1024 * 1024 + 777, 5);
    {
        UniqueHandle file(sys().CreateFileW(_T("E:\\big.bin"), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
        ASSERT_TRUE(file);
        DWORD written = 0;
        ASSERT_TRUE(sys().WriteFile(file.get(), before.data(), static_cast<DWORD>(before.size()), &written, nullptr));
    }
    UniqueComPtr<IVssBackupComponents> backup;
    Ready(backup);
    VSS_ID setId{}, snapshotId{};
    ASSERT_EQ(backup->StartSnapshotSet(&setId), S_OK);
    ASSERT_EQ(backup->AddToSnapshotSet(volumeName_.data(), VSS_ID{}, &snapshotId), S_OK);
    ASSERT_EQ(MakeSet(backup.get()), S_OK);
    VSS_SNAPSHOT_PROP properties{};
    ASSERT_EQ(backup->GetSnapshotProperties(snapshotId, &properties), S_OK);
    const WString copied = WString(properties.m_pwszSnapshotDeviceObject) + _T("\\big.bin");
    free_(&properties);

    std::string after = before;
    {
        UniqueHandle file(sys().CreateFileW(_T("E:\\big.bin"), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        ASSERT_TRUE(file);
        const std::pair<LONGLONG, size_t> pieces[] = {{1, 10}, {65530, 20}, {100000, 1024 * 1024 + 3}, {3 * 1024 * 1024, 700}};
        for (const auto& [at, size] : pieces) {
            const std::string bytes = PatternBytes(size, static_cast<unsigned>(at));
            after.replace(static_cast<size_t>(at), size, bytes);
            LARGE_INTEGER position;
            position.QuadPart = at;
            ASSERT_TRUE(sys().SetFilePointerEx(file.get(), position, nullptr, FILE_BEGIN));
            DWORD written = 0;
            ASSERT_TRUE(sys().WriteFile(file.get(), bytes.data(), static_cast<DWORD>(size), &written, nullptr));
        }
    }
    auto read = [](LPCWSTR path) {
        UniqueHandle file(sys().CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
        std::string content;
        char buffer[70000];  // reads that cross the store's blocks too
        DWORD read = 0;
        while (file && sys().ReadFile(file.get(), buffer, sizeof buffer, &read, nullptr) && read > 0) content.append(buffer, read);
        return content;
    };
    EXPECT_TRUE(read(copied.c_str()) == before);
    EXPECT_TRUE(read(_T("E:\\big.bin")) == after);
}

}  // namespace
