// Counting and listing from the master file table over a scripted volume: the gates, the enumeration
// requests and recorded batches (well formed and broken), the open by file id and name query handed to
// ntdll's entry points, and what the two exports make of the answers.
#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <map>
#include <optional>

#include "../ntfs/ntfs_internal.h"
#include "support/scripted_files.h"

namespace {

using namespace testing_support;

// One FSCTL_ENUM_USN_DATA answer as it stands: the next start, then the raw record bytes.
struct Batch {
    DWORD error = 0;  // 0 for success
    std::vector<BYTE> bytes;
};

// A 72-byte USN_RECORD_V2 for reference, its RecordLength as a platform would write it or as claimed.
std::vector<BYTE> Record(ULONGLONG reference, std::optional<DWORD> claimedLength = std::nullopt) {
    std::vector<BYTE> record(72, 0);
    const DWORD length = claimedLength.value_or(72);
    std::memcpy(record.data(), &length, 4);
    const WORD major = 2;
    std::memcpy(record.data() + 4, &major, 2);
    std::memcpy(record.data() + 8, &reference, 8);
    return record;
}

Batch MakeBatch(ULONGLONG next, const std::vector<std::vector<BYTE>>& records) {
    Batch batch;
    batch.bytes.resize(8);
    std::memcpy(batch.bytes.data(), &next, 8);
    for (const auto& record : records) batch.bytes.insert(batch.bytes.end(), record.begin(), record.end());
    return batch;
}

constexpr ULONGLONG kSequence = 1ULL << 48;

// Volume E: (or whichever letter the test asks for) behind \\.\E:, with NT entry points reached through
// GetModuleHandleW and GetProcAddress. Names are answered by reference; a reference without a name fails
// its open as a stale id does.
class ScriptedMftVolume {
public:
    DWORD openError = 0, volumeDataError = 0, journalError = 0;
    LONGLONG nextUsn = 0x1234;
    std::deque<Batch> batches;  // answered in turn, then ERROR_HANDLE_EOF
    std::map<ULONGLONG, std::string> names;
    std::map<ULONGLONG, NTSTATUS> queryStatus;  // a name query that fails for a reference
    std::map<ULONGLONG, ULONG> claimedNameBytes;  // a FileNameLength other than the name's
    std::map<std::string, DWORD> attributes;      // by full path; missing: INVALID_FILE_ATTRIBUTES
    std::map<std::string, ULONGLONG> sizes;       // missing: the size cannot be read
    std::vector<std::string> log;

    ScriptedMftVolume() { current_ = this; }
    ~ScriptedMftVolume() { current_ = nullptr; }
    size_t OpenHandles() const { return open_.size(); }

private:
    static inline ScriptedMftVolume* current_ = nullptr;
    static inline const HMODULE kNtdll = reinterpret_cast<HMODULE>(static_cast<uintptr_t>(0x7700));
    std::map<HANDLE, std::string> open_;
    uintptr_t nextHandle_ = 0x100;

    static BOOL Failed(DWORD error) {
        sys().SetLastError(error);
        return FALSE;
    }
    HANDLE Open(const std::string& name) {
        HANDLE handle = reinterpret_cast<HANDLE>(nextHandle_++);
        open_[handle] = name;
        return handle;
    }
    std::string NameOf(HANDLE handle) const {
        auto found = open_.find(handle);
        return found == open_.end() ? "stray" : found->second;
    }

    static NTSTATUS NTAPI NtCreateFile(PHANDLE file, ACCESS_MASK access, POBJECT_ATTRIBUTES attributes, PIO_STATUS_BLOCK status,
                                       PLARGE_INTEGER allocation, ULONG fileAttributes, ULONG share, ULONG disposition,
                                       ULONG options, PVOID ea, ULONG eaLength) {
        ScriptedMftVolume& self = *current_;
        ULONGLONG reference = 0;
        std::memcpy(&reference, attributes->ObjectName->Buffer, 8);
        self.log.push_back("NtCreateFile " + Hex(reference) + " root " + self.NameOf(attributes->RootDirectory) + " " +
                           Hex(access) + " len " + std::to_string(attributes->Length) + " name " +
                           std::to_string(attributes->ObjectName->Length) + "/" +
                           std::to_string(attributes->ObjectName->MaximumLength) + " attr " + Hex(attributes->Attributes) +
                           (attributes->SecurityDescriptor || attributes->SecurityQualityOfService ? " qos" : "") +
                           (allocation ? " allocation" : "") + " " + Hex(fileAttributes) + " " + Hex(share) + " " +
                           std::to_string(disposition) + " " + Hex(options) + (ea || eaLength ? " ea" : "") +
                           (status ? "" : " no-status"));
        if (!self.names.contains(reference)) return STATUS_INVALID_PARAMETER;
        *file = self.Open("file " + Hex(reference));
        return STATUS_SUCCESS;
    }
    static NTSTATUS NTAPI NtQueryInformationFile(HANDLE file, PIO_STATUS_BLOCK, PVOID information, ULONG length,
                                                 FILE_INFORMATION_CLASS kind) {
        ScriptedMftVolume& self = *current_;
        const std::string name = self.NameOf(file);
        self.log.push_back("NtQueryInformationFile " + name + " " + std::to_string(length) + " class " +
                           std::to_string(static_cast<int>(kind)));
        const ULONGLONG reference = std::stoull(name.substr(7), nullptr, 16);
        if (self.queryStatus.contains(reference)) return self.queryStatus[reference];
        const WString text = WStrFromUtf8(self.names[reference]);
        ULONG bytes = static_cast<ULONG>(text.size() * sizeof(WCHAR));
        if (bytes + 4 > length) return STATUS_BUFFER_OVERFLOW;
        std::memcpy(static_cast<BYTE*>(information) + 4, text.data(), bytes);
        if (self.claimedNameBytes.contains(reference)) bytes = self.claimedNameBytes[reference];
        std::memcpy(information, &bytes, 4);
        return STATUS_SUCCESS;
    }

    ApiPatch<&Win32Api::GetModuleHandleW> module_call_{[this](LPCWSTR name) {
        log.push_back("GetModuleHandleW " + U(name));
        return kNtdll;
    }};
    ApiPatch<&Win32Api::GetProcAddress> proc_call_{[this](HMODULE module, LPCSTR name) -> FARPROC {
        log.push_back(std::string("GetProcAddress ") + (module == kNtdll ? "ntdll " : "stray ") + name);
        if (std::strcmp(name, "NtCreateFile") == 0) return vlx::EntryPoint(&NtCreateFile);
        if (std::strcmp(name, "NtQueryInformationFile") == 0) return vlx::EntryPoint(&NtQueryInformationFile);
        return nullptr;
    }};
    ApiPatch<&Win32Api::CreateFileW> open_call_{[this](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES,
                                                       DWORD disposition, DWORD flags, HANDLE) {
        log.push_back("CreateFileW " + U(path) + " " + Hex(access) + " " + Hex(share) + " " + std::to_string(disposition) + " " +
                      Hex(flags));
        if (openError != 0) return Failed(openError), INVALID_HANDLE_VALUE;
        return Open(U(path));
    }};
    ApiPatch<&Win32Api::CloseHandle> close_call_{[this](HANDLE handle) {
        log.push_back("CloseHandle " + NameOf(handle));
        return open_.erase(handle) == 1 ? TRUE : Failed(ERROR_INVALID_HANDLE);
    }};
    ApiPatch<&Win32Api::DeviceIoControl> control_call_{[this](HANDLE handle, DWORD code, LPVOID in, DWORD inSize, LPVOID out,
                                                              DWORD outSize, LPDWORD returned, LPOVERLAPPED) {
        std::string entry = "DeviceIoControl " + NameOf(handle) + " " + Hex(code) + " in " + std::to_string(inSize);
        if (code == FSCTL_ENUM_USN_DATA) {
            const auto* request = static_cast<const BYTE*>(in);
            ULONGLONG start = 0;
            LONGLONG low = 0, high = 0;
            WORD minMajor = 0, maxMajor = 0;
            DWORD tail = 0;
            std::memcpy(&start, request, 8);
            std::memcpy(&low, request + 8, 8);
            std::memcpy(&high, request + 16, 8);
            std::memcpy(&minMajor, request + 24, 2);
            std::memcpy(&maxMajor, request + 26, 2);
            std::memcpy(&tail, request + 28, 4);
            entry += " start " + Hex(start) + " usn " + Hex(low) + ".." + Hex(high) + " v" + std::to_string(minMajor) + "-" +
                     std::to_string(maxMajor) + (tail != 0 ? " dirty" : "");
        }
        // A buffer the library zeroed reads as zero here; anything else shows in the log.
        bool zeroed = true;
        for (DWORD at = 0; at < (code == FSCTL_ENUM_USN_DATA ? 4u : outSize); ++at) zeroed = zeroed && static_cast<BYTE*>(out)[at] == 0;
        log.push_back(entry + " out " + std::to_string(outSize) + (zeroed ? "" : " unzeroed"));
        *returned = 0;
        switch (code) {
            case FSCTL_GET_NTFS_VOLUME_DATA:
                if (volumeDataError != 0) return Failed(volumeDataError);
                *returned = 96;
                return TRUE;
            case FSCTL_QUERY_USN_JOURNAL:
                if (journalError != 0) return Failed(journalError);
                std::memcpy(static_cast<BYTE*>(out) + 16, &nextUsn, 8);
                *returned = 64;
                return TRUE;
            case FSCTL_ENUM_USN_DATA: {
                if (batches.empty()) return Failed(ERROR_HANDLE_EOF);
                const Batch batch = batches.front();
                batches.pop_front();
                if (batch.error != 0) return Failed(batch.error);
                std::memcpy(out, batch.bytes.data(), std::min<size_t>(batch.bytes.size(), outSize));
                *returned = static_cast<DWORD>(batch.bytes.size());
                return TRUE;
            }
        }
        return Failed(ERROR_INVALID_FUNCTION);
    }};
    ApiPatch<&Win32Api::GetFileAttributesW> attributes_call_{[this](LPCWSTR path) {
        log.push_back("GetFileAttributesW " + U(path));
        auto found = attributes.find(U(path));
        return found == attributes.end() ? INVALID_FILE_ATTRIBUTES : found->second;
    }};
    ApiPatch<&Win32Api::FindFirstFileW> find_call_{[this](LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
        auto found = sizes.find(U(pattern));
        if (found == sizes.end()) return Failed(ERROR_FILE_NOT_FOUND), INVALID_HANDLE_VALUE;
        *data = WIN32_FIND_DATAW{};
        data->nFileSizeHigh = static_cast<DWORD>(found->second >> 32);
        data->nFileSizeLow = static_cast<DWORD>(found->second);
        return reinterpret_cast<HANDLE>(static_cast<uintptr_t>(0x5151));
    }};
    ApiPatch<&Win32Api::FindNextFileW> next_call_{[](HANDLE, LPWIN32_FIND_DATAW) { return Failed(ERROR_NO_MORE_FILES); }};
    ApiPatch<&Win32Api::FindClose> find_close_call_{[](HANDLE) { return TRUE; }};
};

std::vector<std::string> Listed(const std::vector<std::basic_string<WCHAR>>& list) {
    std::vector<std::string> paths;
    for (const auto& path : list) paths.push_back(WStrToUtf8(path));
    return paths;
}

// Two files and a folder in one batch, then the end of the table.
void ScriptSmallVolume(ScriptedMftVolume& volume) {
    const ULONGLONG a = kSequence | 40, b = 2 * kSequence | 41, c = kSequence | 42;
    volume.batches.push_back(MakeBatch(43, {Record(a), Record(b), Record(c)}));
    volume.names = {{a, "\\docs"}, {b, "\\docs\\a.txt"}, {c, "\\b.bin"}};
    volume.attributes = {{"E:\\docs", FILE_ATTRIBUTE_DIRECTORY}, {"E:\\docs\\a.txt", FILE_ATTRIBUTE_ARCHIVE},
                         {"E:\\b.bin", FILE_ATTRIBUTE_NORMAL}};
    volume.sizes = {{"E:\\docs\\a.txt", 100}, {"E:\\b.bin", 5000000000ULL}};
}

TEST(MftWalk, ListBindsNtdllOpensTheVolumeAndLooksUpEachRecordDuringTheWalk) {
    ScriptedMftVolume volume;
    ScriptSmallVolume(volume);
    volume.batches.push_front(MakeBatch(40, {Record(kSequence | 39)}));  // a record whose file is gone
    std::vector<std::basic_string<WCHAR>> list;
    GetFileListFromMFT(W("E:\\Users\\x"), &list);
    EXPECT_EQ(Listed(list), (std::vector<std::string>{"E:\\docs", "E:\\docs\\a.txt", "E:\\b.bin"}));
    const std::string open = " 0x120089 len 48 name 8/8 attr 0x40 0x1 0x3 1 0x6000";
    const std::vector<std::string> expected = {
        "GetModuleHandleW ntdll.dll",
        "GetProcAddress ntdll NtCreateFile",
        "GetProcAddress ntdll NtQueryInformationFile",
        "CreateFileW \\\\.\\E: 0xc0000000 0x3 3 0x0",
        "DeviceIoControl \\\\.\\E: 0x90064 in 0 out 96",
        "DeviceIoControl \\\\.\\E: 0x900f4 in 0 out 64",
        "DeviceIoControl \\\\.\\E: 0x900b3 in 32 start 0x0 usn 0x0..0x1234 v0-2 out 4096",
        "NtCreateFile 0x1000000000027 root \\\\.\\E:" + open,
        "DeviceIoControl \\\\.\\E: 0x900b3 in 32 start 0x28 usn 0x0..0x1234 v0-2 out 4096",
        "NtCreateFile 0x1000000000028 root \\\\.\\E:" + open,
        "NtQueryInformationFile file 0x1000000000028 4096 class 9",
        "CloseHandle file 0x1000000000028",
        "NtCreateFile 0x2000000000029 root \\\\.\\E:" + open,
        "NtQueryInformationFile file 0x2000000000029 4096 class 9",
        "CloseHandle file 0x2000000000029",
        "NtCreateFile 0x100000000002a root \\\\.\\E:" + open,
        "NtQueryInformationFile file 0x100000000002a 4096 class 9",
        "CloseHandle file 0x100000000002a",
        "DeviceIoControl \\\\.\\E: 0x900b3 in 32 start 0x2b usn 0x0..0x1234 v0-2 out 4096",
        "CloseHandle \\\\.\\E:",
    };
    EXPECT_EQ(volume.log, expected);
    EXPECT_EQ(volume.OpenHandles(), 0u);
}

TEST(MftWalk, CountCollectsEveryReferenceBeforeItsFirstLookupAndAddsToTheCallersValues) {
    ScriptedMftVolume volume;
    ScriptSmallVolume(volume);
    volume.batches.push_back(MakeBatch(50, {Record(kSequence | 44)}));
    volume.names[kSequence | 44] = "\\unreadable";  // no attributes: counted as a folder
    volume.attributes["E:\\docs\\a.txt"] = FILE_ATTRIBUTE_ARCHIVE;
    volume.sizes.erase("E:\\b.bin");  // counted, adds nothing to the total
    ULONGLONG files = 10, folders = 20, bytes = 30;
    FileListNode head{};
    GetFileCountInFolderFromMFT(W("E:"), &files, &folders, &bytes, &head, W("txt"));
    EXPECT_EQ(files, 12u);
    EXPECT_EQ(folders, 22u);
    EXPECT_EQ(bytes, 130u);
    EXPECT_EQ(TakePaths(head), (std::vector<std::string>{"E:\\docs", "E:\\docs\\a.txt", "E:\\b.bin", "E:\\unreadable"}));
    // Every batch is asked for before the first open by file id.
    size_t lastBatch = 0, firstOpen = volume.log.size();
    for (size_t at = 0; at < volume.log.size(); ++at) {
        if (volume.log[at].find("0x900b3") != std::string::npos) lastBatch = at;
        if (volume.log[at].starts_with("NtCreateFile") && firstOpen == volume.log.size()) firstOpen = at;
    }
    EXPECT_LT(lastBatch, firstOpen);
    EXPECT_EQ(volume.log.back(), "CloseHandle \\\\.\\E:");
    EXPECT_EQ(volume.OpenHandles(), 0u);
}

TEST(MftWalk, CountWithoutOutputsStillWalksAndANodeTooLongForThePathIsLeftOut) {
    ScriptedMftVolume volume;
    const std::string longName = "\\" + std::string(300, 'n');
    volume.batches.push_back(MakeBatch(3, {Record(kSequence | 1), Record(kSequence | 2)}));
    volume.names = {{kSequence | 1, longName}, {kSequence | 2, "\\"}};
    volume.attributes = {{"E:" + longName, FILE_ATTRIBUTE_ARCHIVE}, {"E:\\", FILE_ATTRIBUTE_DIRECTORY}};
    ULONGLONG files = 0, folders = 0;
    FileListNode head{};
    GetFileCountInFolderFromMFT(W("e:\\"), &files, &folders, nullptr, &head, W(""));
    // A lower-case letter stays as written, in the device and in every path.
    EXPECT_EQ(volume.log[3], "CreateFileW \\\\.\\e: 0xc0000000 0x3 3 0x0");
    // The long path is still counted; only the root made a node.
    EXPECT_EQ(TakePaths(head), (std::vector<std::string>{"e:\\"}));
    EXPECT_EQ(files + folders, 2u);
    GetFileCountInFolderFromMFT(W("E:"), nullptr, nullptr, nullptr, nullptr, W(""));
    EXPECT_EQ(volume.OpenHandles(), 0u);
}

// Each gate that fails leaves the caller's data alone and closes what it opened.
TEST(MftWalk, AFailingGateChangesNothing) {
    struct Row {
        const char* name;
        DWORD open, volumeData, journal;
        const char* path;
    } rows[] = {
        {"volume cannot be opened", ERROR_ACCESS_DENIED, 0, 0, "E:\\"},
        {"not NTFS", 0, ERROR_INVALID_FUNCTION, 0, "E:\\"},
        {"no active journal", 0, 0, ERROR_JOURNAL_NOT_ACTIVE, "E:\\"},
        {"empty path", ERROR_FILE_NOT_FOUND, 0, 0, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ScriptedMftVolume volume;
        ScriptSmallVolume(volume);
        volume.openError = row.open;
        volume.volumeDataError = row.volumeData;
        volume.journalError = row.journal;
        ULONGLONG files = 1, folders = 2, bytes = 3;
        FileListNode head{};
        GetFileCountInFolderFromMFT(W(row.path), &files, &folders, &bytes, &head, W(""));
        std::vector<std::basic_string<WCHAR>> list{u"kept"};
        GetFileListFromMFT(W(row.path), &list);
        EXPECT_EQ(files, 1u);
        EXPECT_EQ(folders, 2u);
        EXPECT_EQ(bytes, 3u);
        EXPECT_TRUE(head.next == nullptr);
        EXPECT_EQ(list.size(), 1u);
        for (const std::string& entry : volume.log) EXPECT_FALSE(entry.find("0x900b3") != std::string::npos) << entry;
        EXPECT_EQ(volume.OpenHandles(), 0u);
    }
    ScriptedMftVolume volume;
    std::vector<std::basic_string<WCHAR>> list;
    GetFileListFromMFT(W(""), &list);
    // The NUL letter ends the device path where it stands.
    EXPECT_EQ(volume.log[3], "CreateFileW \\\\.\\ 0xc0000000 0x3 3 0x0");
}

// Batches that are short, broken or that would repeat themselves end the walk after the records that came
// before the fault; nothing is read past the bytes returned.
TEST(MftWalk, MalformedBatchesEndTheWalkWithoutLoopingOrReadingPastTheBytesReturned) {
    const ULONGLONG a = kSequence | 30, b = kSequence | 31;
    struct Row {
        const char* name;
        std::vector<Batch> batches;
        std::vector<std::string> listed;
    } rows[] = {
        {"exactly 8 bytes", {MakeBatch(99, {}), MakeBatch(100, {Record(a)})}, {}},
        {"a failing call", {Batch{ERROR_INVALID_PARAMETER, {}}, MakeBatch(100, {Record(a)})}, {}},
        {"RecordLength 0", {MakeBatch(40, {Record(a), Record(b, 0)})}, {"E:\\a"}},
        {"record past the bytes returned", {MakeBatch(40, {Record(a), Record(b, 80)})}, {"E:\\a"}},
        {"record shorter than its head", {MakeBatch(40, {Record(a), Record(b, 12)})}, {"E:\\a"}},
        {"next start that does not advance", {MakeBatch(31, {Record(a)}), MakeBatch(31, {Record(b)}), MakeBatch(31, {Record(b)})},
         {"E:\\a", "E:\\b"}},
        {"next start that goes back", {MakeBatch(31, {Record(a)}), MakeBatch(5, {Record(b)}), MakeBatch(40, {Record(b)})},
         {"E:\\a", "E:\\b"}},
        {"several batches", {MakeBatch(31, {Record(a)}), MakeBatch(32, {Record(b)})}, {"E:\\a", "E:\\b"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ScriptedMftVolume volume;
        volume.batches.assign(row.batches.begin(), row.batches.end());
        volume.names = {{a, "\\a"}, {b, "\\b"}};
        std::vector<std::basic_string<WCHAR>> list;
        GetFileListFromMFT(W("E:"), &list);
        EXPECT_EQ(Listed(list), row.listed);
        EXPECT_EQ(volume.OpenHandles(), 0u);
    }
}

// The name answer is used only when it lies inside the 4096-byte answer and fits the caller's buffer with
// its terminator; a name query that fails skips the record.
TEST(MftWalk, NamesThatDoNotFitOrCannotBeReadAreSkipped) {
    ScriptedMftVolume volume;
    const ULONGLONG fits = kSequence | 20, tooLong = kSequence | 21, failing = kSequence | 22, lying = kSequence | 23;
    volume.batches.push_back(MakeBatch(30, {Record(fits), Record(tooLong), Record(failing), Record(lying)}));
    // 259 units with the backslash fit the list's 520 bytes with a NUL; 260 do not.
    volume.names = {{fits, "\\" + std::string(258, 'f')}, {tooLong, "\\" + std::string(259, 't')}, {failing, "\\x"}, {lying, "\\y"}};
    volume.queryStatus[failing] = STATUS_ACCESS_DENIED;
    volume.claimedNameBytes[lying] = 5000;
    std::vector<std::basic_string<WCHAR>> list;
    GetFileListFromMFT(W("E:"), &list);
    EXPECT_EQ(Listed(list), (std::vector<std::string>{"E:\\" + std::string(258, 'f')}));
    EXPECT_EQ(volume.OpenHandles(), 0u);
}

TEST(MftWalk, WithoutNtdllEntryPointsNoRecordIsLookedUp) {
    ScriptedMftVolume volume;
    ScriptSmallVolume(volume);
    ApiPatch<&Win32Api::GetProcAddress> missing([](HMODULE, LPCSTR) -> FARPROC {
        sys().SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    });
    std::vector<std::basic_string<WCHAR>> list;
    GetFileListFromMFT(W("E:"), &list);
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(volume.OpenHandles(), 0u);
}

}  // namespace
