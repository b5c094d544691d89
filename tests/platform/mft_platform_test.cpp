// The master file table on NTFS image volumes as Windows gives it: the change journal made active at attach
// or found in the image, the enumeration's USN_RECORD_V2 batches read byte by byte, and ntdll's open by
// file id and name query, on images made by mkntfs.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>

#include "../../platform/unique_handles.h"
#include "../support/disk_images.h"

namespace {

using namespace testing_support;

using NtCreateFileFunction = NTSTATUS(NTAPI*)(PHANDLE, ACCESS_MASK, POBJECT_ATTRIBUTES, PIO_STATUS_BLOCK, PLARGE_INTEGER,
                                              ULONG, ULONG, ULONG, ULONG, PVOID, ULONG);
using NtQueryInformationFileFunction = NTSTATUS(NTAPI*)(HANDLE, PIO_STATUS_BLOCK, PVOID, ULONG, FILE_INFORMATION_CLASS);

template <class T>
T At(const BYTE* bytes, size_t offset) {
    T value;
    std::memcpy(&value, bytes + offset, sizeof value);
    return value;
}

struct UsnRecord {
    ULONGLONG reference = 0, parent = 0;
    DWORD attributes = 0;
    std::string name;
};

class MftPlatform : public HostFolderTest {
protected:
    std::string image_;
    void SetUp() override {
        HostFolderTest::SetUp();
        image_ = Host("disk.img");
        MakeDiskImage(image_, 512, "dos", 40, {{"ntfs", 32}});
    }

    static HANDLE OpenVolume(LPCWSTR path) {
        return sys().CreateFileW(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                                 nullptr);
    }
    static ULONGLONG FileIndex(LPCWSTR path) {
        UniqueHandle file(sys().CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                            FILE_FLAG_BACKUP_SEMANTICS, nullptr));
        EXPECT_TRUE(file) << U(path);
        BY_HANDLE_FILE_INFORMATION info{};
        EXPECT_TRUE(sys().GetFileInformationByHandle(file.get(), &info));
        return (static_cast<ULONGLONG>(info.nFileIndexHigh) << 32) | info.nFileIndexLow;
    }
    static void Put(LPCWSTR path, const std::string& content) {
        UniqueHandle file(sys().CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
        ASSERT_TRUE(file) << U(path) << " " << sys().GetLastError();
        DWORD written = 0;
        ASSERT_TRUE(sys().WriteFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &written, nullptr));
    }
    static LONGLONG NextUsn(HANDLE volume, DWORD& error) {
        BYTE data[64] = {};
        DWORD returned = 0;
        error = ERROR_SUCCESS;
        if (!sys().DeviceIoControl(volume, FSCTL_QUERY_USN_JOURNAL, nullptr, 0, data, sizeof data, &returned, nullptr)) {
            error = sys().GetLastError();
            return -1;
        }
        EXPECT_EQ(returned, 64u);
        return At<LONGLONG>(data, 16);
    }

    // Every record the enumeration gives with batches of outSize bytes, checking each record's layout.
    static std::vector<UsnRecord> Enumerate(HANDLE volume, LONGLONG highUsn, DWORD outSize) {
        std::vector<UsnRecord> records;
        BYTE request[32] = {};
        std::memcpy(request + 16, &highUsn, 8);
        const WORD maxMajor = 2;
        std::memcpy(request + 26, &maxMajor, 2);
        std::vector<BYTE> out(outSize);
        for (int calls = 0; calls < 100000; ++calls) {
            DWORD returned = 0;
            sys().SetLastError(kJunkError);
            if (!sys().DeviceIoControl(volume, FSCTL_ENUM_USN_DATA, request, sizeof request, out.data(), outSize, &returned, nullptr)) {
                EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_HANDLE_EOF));
                return records;
            }
            EXPECT_GT(returned, 8u);
            for (DWORD offset = 8; offset < returned;) {
                const BYTE* record = out.data() + offset;
                const DWORD length = At<DWORD>(record, 0);
                const WORD nameBytes = At<WORD>(record, 56);
                EXPECT_EQ(length % 8, 0u);
                EXPECT_EQ(length, (60u + nameBytes + 7) & ~7u);
                EXPECT_EQ(At<WORD>(record, 4), 2);  // major
                EXPECT_EQ(At<WORD>(record, 6), 0);  // minor
                EXPECT_EQ(At<WORD>(record, 58), 60);
                EXPECT_LE(offset + length, returned);
                if (length == 0 || offset + length > returned) return records;
                UsnRecord entry;
                entry.reference = At<ULONGLONG>(record, 8);
                entry.parent = At<ULONGLONG>(record, 16);
                entry.attributes = At<DWORD>(record, 52);
                entry.name = WStrToUtf8(WString(reinterpret_cast<const WCHAR*>(record + 60), nameBytes / sizeof(WCHAR)));
                records.push_back(entry);
                offset += length;
            }
            const ULONGLONG next = At<ULONGLONG>(out.data(), 0);
            EXPECT_GT(next, At<ULONGLONG>(request, 0));
            std::memcpy(request, &next, 8);
        }
        ADD_FAILURE() << "the enumeration never ended";
        return records;
    }
};

TEST_F(MftPlatform, TheJournalIsActiveWhenTheImageHasOneOrTheAttachMakesIt) {
    DWORD error = 0;
    {
        AttachedImage disk(image_, "E");
        ASSERT_GE(disk.Number(), 0) << disk.Error();
        UniqueHandle volume(OpenVolume(_T("\\\\.\\E:")));
        ASSERT_TRUE(volume);
        // NTFS answers the volume data whatever the journal's state; the journal is not there yet.
        BYTE data[96] = {};
        DWORD returned = 0;
        ASSERT_TRUE(sys().DeviceIoControl(volume.get(), FSCTL_GET_NTFS_VOLUME_DATA, nullptr, 0, data, sizeof data, &returned, nullptr));
        EXPECT_EQ(returned, 96u);
        EXPECT_EQ(At<LONGLONG>(data, 8), 32LL * 2048 - 1);  // sectors: mkntfs keeps the last for the backup boot sector
        EXPECT_EQ(At<DWORD>(data, 40), 512u);
        EXPECT_EQ(At<DWORD>(data, 44), 4096u);
        EXPECT_EQ(NextUsn(volume.get(), error), -1);
        EXPECT_EQ(error, static_cast<DWORD>(ERROR_JOURNAL_NOT_ACTIVE));
    }
    {
        // A read-only image cannot be given a journal: the attach says so instead of going on without one.
        vlx::DiskAttachOptions options;
        options.letters = u"E";
        options.readOnly = true;
        options.activateJournal = true;
        std::string why;
        EXPECT_EQ(vlx::AttachDiskImage(image_, options, &why), -1);
        EXPECT_NE(why.find("journal"), std::string::npos) << why;
    }
    for (bool activate : {true, false}) {
        SCOPED_TRACE(activate ? "made at attach" : "kept in the image");
        AttachedImage disk(image_, "E", -1, 0, activate);
        ASSERT_GE(disk.Number(), 0) << disk.Error();
        UniqueHandle volume(OpenVolume(_T("\\\\.\\E:")));
        EXPECT_EQ(NextUsn(volume.get(), error), 0);
        EXPECT_EQ(error, static_cast<DWORD>(ERROR_SUCCESS));
    }
}

TEST_F(MftPlatform, TheEnumerationGivesEachFileOnceWithItsReferenceParentNameAndAttributes) {
    AttachedImage disk(image_, "E", -1, 0, true);
    ASSERT_GE(disk.Number(), 0) << disk.Error();
    const std::string japanese = "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E.txt";
    ASSERT_TRUE(sys().CreateDirectoryW(_T("E:\\Dir"), nullptr));
    Put(W("E:\\Dir\\" + japanese), "japanese");
    Put(_T("E:\\a.txt"), "a");
    ASSERT_TRUE(sys().CreateHardLinkW(_T("E:\\Dir\\link.txt"), _T("E:\\a.txt"), nullptr));
    for (int index = 0; index < 60; ++index) Put(W("E:\\Dir\\file" + std::to_string(index) + std::string(40, 'x')), "");

    UniqueHandle volume(OpenVolume(_T("\\\\.\\E:")));
    DWORD error = 0;
    const LONGLONG next = NextUsn(volume.get(), error);
    ASSERT_EQ(error, static_cast<DWORD>(ERROR_SUCCESS));
    const ULONGLONG root = FileIndex(_T("E:\\")), dir = FileIndex(_T("E:\\Dir"));
    const std::map<std::string, std::pair<ULONGLONG, ULONGLONG>> expected = {
        {"Dir", {FileIndex(_T("E:\\Dir")), root}},
        {japanese, {FileIndex(W("E:\\Dir\\" + japanese)), dir}},
        {"a.txt", {FileIndex(_T("E:\\a.txt")), root}},
    };
    // A batch of 4096 bytes holds many records; one of 160 bytes one or two at a time.
    for (DWORD size : {4096u, 160u}) {
        SCOPED_TRACE(size);
        const std::vector<UsnRecord> records = Enumerate(volume.get(), next, size);
        EXPECT_EQ(records.size(), 63u);  // the hard link's second name is no record of its own
        std::set<ULONGLONG> seen;
        for (const UsnRecord& record : records) {
            EXPECT_TRUE(seen.insert(record.reference).second) << record.name;
            auto found = expected.find(record.name);
            if (found == expected.end()) continue;
            EXPECT_EQ(record.reference, found->second.first) << record.name;
            EXPECT_EQ(record.parent, found->second.second) << record.name;
            EXPECT_EQ((record.attributes & FILE_ATTRIBUTE_DIRECTORY) != 0, record.name == "Dir") << record.name;
        }
    }
    // A buffer that cannot hold the next-start value and one record is refused.
    BYTE request[32] = {};
    std::memcpy(request + 16, &next, 8);
    request[26] = 2;
    BYTE small[16] = {};
    DWORD returned = 0;
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(sys().DeviceIoControl(volume.get(), FSCTL_ENUM_USN_DATA, request, sizeof request, small, sizeof small, &returned, nullptr));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
}

TEST_F(MftPlatform, NtdllIsLoadedFromTheStartAndOpensByFileIdRelativeToTheVolume) {
    AttachedImage disk(image_, "E");
    ASSERT_GE(disk.Number(), 0) << disk.Error();
    ASSERT_TRUE(sys().CreateDirectoryW(_T("E:\\Dir"), nullptr));
    Put(_T("E:\\Dir\\Name.txt"), "x");
    Put(_T("E:\\gone.txt"), "x");
    const ULONGLONG file = FileIndex(_T("E:\\Dir\\Name.txt")), root = FileIndex(_T("E:\\")), gone = FileIndex(_T("E:\\gone.txt"));
    ASSERT_TRUE(sys().DeleteFileW(_T("E:\\gone.txt")));

    const HMODULE ntdll = sys().GetModuleHandleW(_T("ntdll.dll"));
    ASSERT_NE(ntdll, nullptr);
    EXPECT_EQ(sys().LoadLibraryW(_T("NTDLL")), ntdll);
    EXPECT_TRUE(sys().FreeLibrary(ntdll));
    EXPECT_TRUE(sys().FreeLibrary(ntdll));  // never unloaded
    ASSERT_EQ(sys().GetModuleHandleW(_T("ntdll")), ntdll);
    auto create = reinterpret_cast<NtCreateFileFunction>(reinterpret_cast<void (*)()>(sys().GetProcAddress(ntdll, "NtCreateFile")));
    auto query = reinterpret_cast<NtQueryInformationFileFunction>(
        reinterpret_cast<void (*)()>(sys().GetProcAddress(ntdll, "NtQueryInformationFile")));
    ASSERT_NE(create, nullptr);
    ASSERT_NE(query, nullptr);

    UniqueHandle volume(OpenVolume(_T("\\\\.\\E:")));
    ASSERT_TRUE(volume);
    auto open = [&](ULONGLONG reference, HANDLE& out) {
        UNICODE_STRING id{8, 8, reinterpret_cast<PWSTR>(&reference)};
        OBJECT_ATTRIBUTES attributes{};
        attributes.Length = sizeof attributes;
        attributes.RootDirectory = volume.get();
        attributes.ObjectName = &id;
        attributes.Attributes = OBJ_CASE_INSENSITIVE;
        IO_STATUS_BLOCK status{};
        out = nullptr;
        return create(&out, FILE_GENERIC_READ, &attributes, &status, nullptr, FILE_ATTRIBUTE_READONLY,
                      FILE_SHARE_READ | FILE_SHARE_WRITE, FILE_OPEN, FILE_OPEN_BY_FILE_ID | FILE_OPEN_FOR_BACKUP_INTENT, nullptr, 0);
    };
    auto name = [&](HANDLE handle, ULONG size, NTSTATUS& result) {
        std::vector<BYTE> answer(size);
        IO_STATUS_BLOCK status{};
        result = query(handle, &status, answer.data(), size, FileNameInformation);
        const ULONG length = At<ULONG>(answer.data(), 0);
        const size_t units = std::min<size_t>(length, size - 4) / sizeof(WCHAR);
        return std::to_string(length) + " " + WStrToUtf8(WString(reinterpret_cast<const WCHAR*>(answer.data() + 4), units));
    };

    sys().SetLastError(kJunkError);
    struct Row {
        const char* what;
        ULONGLONG reference;
        ULONG size;
        NTSTATUS open, query;
        std::string name;
    } rows[] = {
        {"a file", file, 4096, STATUS_SUCCESS, STATUS_SUCCESS, "26 \\Dir\\Name.txt"},
        {"the root", root, 4096, STATUS_SUCCESS, STATUS_SUCCESS, "2 \\"},
        {"a name cut to the answer", file, 12, STATUS_SUCCESS, STATUS_BUFFER_OVERFLOW, "26 \\Dir"},
        {"a reused record's old sequence number", file + (1ULL << 48), 4096, STATUS_INVALID_PARAMETER, 0, ""},
        {"a deleted file", gone, 4096, STATUS_INVALID_PARAMETER, 0, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        HANDLE opened = nullptr;
        ASSERT_EQ(open(row.reference, opened), row.open);
        if (row.open != STATUS_SUCCESS) {
            EXPECT_EQ(opened, nullptr);
            continue;
        }
        UniqueHandle handle(opened);
        NTSTATUS result = 0;
        EXPECT_EQ(name(handle.get(), row.size, result), row.name);
        EXPECT_EQ(result, row.query);
    }
    // Native calls leave the last error as they found it.
    EXPECT_EQ(sys().GetLastError(), kJunkError);
}

TEST_F(MftPlatform, OtherVolumesFailTheNtfsGate) {
    MakeDiskImage(image_, 512, "dos", 80, {{"fat32", 40}, {"exfat", 16}});
    AttachedImage disk(image_, "FX", -1, 0, true);
    ASSERT_GE(disk.Number(), 0) << disk.Error();
    for (LPCWSTR device : {_T("\\\\.\\F:"), _T("\\\\.\\X:"), _T("\\\\.\\T:")}) {
        SCOPED_TRACE(U(device));
        UniqueHandle volume(OpenVolume(device));
        if (!volume) continue;  // a host folder has no volume device to open
        BYTE data[96] = {};
        DWORD returned = 0;
        sys().SetLastError(kJunkError);
        EXPECT_FALSE(sys().DeviceIoControl(volume.get(), FSCTL_GET_NTFS_VOLUME_DATA, nullptr, 0, data, sizeof data, &returned, nullptr));
        EXPECT_NE(sys().GetLastError(), kJunkError);
    }
}

}  // namespace
