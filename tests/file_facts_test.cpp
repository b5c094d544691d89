// File facts: time stamps, sizes, kinds of path and hard-link names, scripted and on host-folder volumes.
#include <gmock/gmock.h>
#include <fcntl.h>

#include <new>

#include "support/scripted_files.h"
#include "support/share_holder.h"

using namespace testing_support;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

namespace {

constexpr LONGLONG kSecondsFrom1601 = 11644473600;
constexpr LONGLONG kTicksPerSecond = 10000000;

FILETIME At(LONGLONG secondsSince1970, LONGLONG extraTicks = 0) {
    const ULONGLONG ticks = static_cast<ULONGLONG>((secondsSince1970 + kSecondsFrom1601) * kTicksPerSecond + extraTicks);
    return FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

WIN32_FIND_DATAW Found(FILETIME created, FILETIME written, FILETIME accessed, ULONGLONG size) {
    WIN32_FIND_DATAW data{};
    data.ftCreationTime = created, data.ftLastWriteTime = written, data.ftLastAccessTime = accessed;
    data.nFileSizeHigh = static_cast<DWORD>(size >> 32), data.nFileSizeLow = static_cast<DWORD>(size);
    return data;
}

std::vector<std::string> Items(const CStringArray& names) {
    std::vector<std::string> items;
    for (INT_PTR at = 0; at < names.GetSize(); ++at) items.push_back(U(names[at]));
    return items;
}

}  // namespace

TEST(FileFacts, TimeStampsAreWholeSecondsFlooredAndExactBefore1970AndAfter3000) {
    struct Case {
        FILETIME time;
        __time64_t seconds;
    } cases[] = {
        {FILETIME{0, 0}, -kSecondsFrom1601},                        // 1601-01-01, the earliest
        {At(-1, kTicksPerSecond / 2), -1},                           // 1969-12-31 23:59:59.5
        {At(1795350896, kTicksPerSecond - 1), 1795350896},           // 2026-11-22 12:34:56.9999999
        {At(32535216000), 32535216000},                              // 3001-01-01, beyond MFC's CTime
    };
    for (const Case& c : cases) {
        // One slot at a time carries the time, so that a mix-up of the three outputs shows.
        for (int slot = 0; slot < 3; ++slot) {
            ScriptedFiles platform;
            platform.found = {Found(slot == 0 ? c.time : At(5), slot == 1 ? c.time : At(5), slot == 2 ? c.time : At(5), 0)};
            __time64_t times[3] = {7, 7, 7};
            EXPECT_EQ(GetFileDate(_T("C:\\t"), &times[0], &times[1], &times[2]), 1);
            for (int at = 0; at < 3; ++at) EXPECT_EQ(times[at], at == slot ? c.seconds : 5);
            EXPECT_THAT(platform.log, ElementsAre("FindFirstFileW C:\\t", "FindNextFileW", "FindClose"));
        }
    }
}

// Which match answers a pattern is shown on a real volume below.
TEST(FileFacts, NullLengthSearchesNothingAndOnlyNoMoreFilesCountsAsFound) {
    ScriptedFiles platform;
    platform.found = {Found(At(1), At(2), At(3), 5)};
    EXPECT_EQ(GetFileLength(_T("C:\\x"), nullptr), 0);
    EXPECT_TRUE(platform.log.empty());
    ULONGLONG length = 7;
    __time64_t written = 7;
    platform.nextFoundError = ERROR_ACCESS_DENIED;
    sys().SetLastError(kJunkError);
    EXPECT_EQ(GetFileLength(_T("C:\\t"), &length), 0);
    EXPECT_EQ(sys().GetLastError(), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(GetFileDate(_T("C:\\t"), nullptr, &written, nullptr), 0);
    EXPECT_TRUE(length == 7 && written == 7);
    EXPECT_EQ(platform.log.back(), "FindClose");
}

TEST(FileFacts, KindAsksExistenceThenFolderThenAttributes) {
    struct Case {
        BOOL exists, folder;
        DWORD word;
        int kind, calls;
    } cases[] = {{FALSE, FALSE, 0, -1, 1}, {TRUE, FILE_ATTRIBUTE_DIRECTORY, 0, 2, 2}, {TRUE, FALSE, 0x20, 1, 3},
                 {TRUE, FALSE, INVALID_FILE_ATTRIBUTES, -1, 3}};
    for (const Case& c : cases) {
        std::vector<std::string> log;
        ApiPatch<&Win32Api::PathFileExistsW> exists([&](LPCWSTR path) { return log.push_back("exists " + U(path)), c.exists; });
        ApiPatch<&Win32Api::PathIsDirectoryW> folder([&](LPCWSTR path) { return log.push_back("folder " + U(path)), c.folder; });
        ApiPatch<&Win32Api::GetFileAttributesW> word([&](LPCWSTR path) { return log.push_back("word " + U(path)), c.word; });
        EXPECT_EQ(GetPathIsFileOrFolder(_T("C:\\p")), c.kind);
        std::vector<std::string> expected = {"exists C:\\p", "folder C:\\p", "word C:\\p"};
        expected.resize(static_cast<size_t>(c.calls));
        EXPECT_EQ(log, expected);
    }
}

TEST(HardLinks, OpenedWithoutSharingAndClosedBeforeNamesAreListedAfterTheCallersEntries) {
    struct Case {
        DWORD links;
        std::vector<std::string> platformNames;
        DWORD firstNameError;
        std::vector<std::string> names;  // after the caller's own entry
    } cases[] = {
        {2, {"\\a", "\\b"}, 0, {"kept", "\\a", "\\b"}},
        {3, {"\\a", "\\b", "\\c", "\\d", "\\e", "\\f"}, 0, {"kept", "\\a", "\\b", "\\c", "\\d"}},  // first, then one per link
        {3, {"\\a"}, 0, {"kept", "\\a"}},                                                                  // the second did not fit
        {3, {"\\a"}, ERROR_MORE_DATA, {"kept"}},
    };
    for (const Case& c : cases) {
        ScriptedFiles platform;
        platform.links = c.links;
        platform.linkNames = c.platformNames;
        platform.firstNameError = c.firstNameError;
        CStringArray names;
        names.Add(_T("kept"));
        EXPECT_EQ(GetFileIsHardlink(_T("C:\\a"), &names), static_cast<int>(c.links));
        EXPECT_EQ(Items(names), c.names);
        std::vector<std::string> log = {"CreateFileW C:\\a 0x80000000 0x0 null 3 0x80 null", "GetFileInformationByHandle",
                                        "CloseHandle", "FindFirstFileNameW C:\\a 0 260 clean"};
        if (c.firstNameError == 0) {
            const size_t further = std::min<size_t>(c.links, c.platformNames.size());
            log.insert(log.end(), further, "FindNextFileNameW 260 clean");
            log.push_back("FindClose");
        }
        EXPECT_EQ(platform.log, log);
    }
}

TEST(HardLinks, OneNameOrNoListAsksForNoNamesAndFailuresGiveMinusOne) {
    ScriptedFiles platform;
    platform.linkNames = {"\\a", "\\b"};
    CStringArray names;
    names.Add(_T("kept"));
    for (DWORD links : {0u, 1u}) {
        platform.links = links;
        EXPECT_EQ(GetFileIsHardlink(_T("C:\\a"), &names), 0);
    }
    platform.links = 2;
    EXPECT_EQ(GetFileIsHardlink(_T("C:\\a"), nullptr), 2);
    platform.informationError = ERROR_INVALID_FUNCTION;
    EXPECT_EQ(GetFileIsHardlink(_T("C:\\a"), &names), -1);
    platform.openError = ERROR_SHARING_VIOLATION;
    sys().SetLastError(kJunkError);
    EXPECT_EQ(GetFileIsHardlink(_T("C:\\a"), &names), -1);
    EXPECT_EQ(sys().GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
    EXPECT_THAT(Items(names), ElementsAre("kept"));
    EXPECT_EQ(std::count(platform.log.begin(), platform.log.end(), "CloseHandle"), 4);
    EXPECT_EQ(std::count(platform.log.begin(), platform.log.end(), "FindFirstFileNameW C:\\a 0 260 clean"), 0);
}

TEST(HardLinks, UnterminatedNameIsCutAtTheBufferAndAnExceptionBecomesMinusOne) {
    ScriptedFiles platform;
    platform.links = 2;
    CStringArray names;
    {
        ApiPatch<&Win32Api::FindFirstFileNameW> fills([](LPCWSTR, DWORD, LPDWORD length, PWSTR name) {
            std::fill(name, name + *length, _T('x'));
            return ScriptedFiles::kSearch;
        });
        EXPECT_EQ(GetFileIsHardlink(_T("C:\\a"), &names), 2);
    }
    ASSERT_EQ(names.GetSize(), 1);
    EXPECT_EQ(names[0].GetLength(), MAX_PATH - 1);
    platform.linkNames = {"\\a", "\\b"};
    ApiPatch<&Win32Api::FindNextFileNameW> throws([](HANDLE, LPDWORD, PWSTR) -> BOOL { throw std::bad_alloc(); });
    EXPECT_EQ(GetFileIsHardlink(_T("C:\\a"), &names), -1);
    EXPECT_EQ(platform.log.back(), "FindClose");
}

class FileFactsOnHost : public HostFolderTest {};

TEST_F(FileFactsOnHost, SizesTimesAndKindsOfRealEntries) {
    WriteFile("empty.bin", "");
    WriteFile("big.bin", "");
    ASSERT_EQ(truncate(Host("big.bin").c_str(), 5368709120LL), 0);  // sparse
    WriteFile("logs/b.log", "bb");
    WriteFile("logs/A.log", "a");
    const struct timespec times[2] = {{1500000000, 999999999}, {1600000000, 500000000}};
    for (const char* name : {"logs/A.log", "logs"}) ASSERT_EQ(utimensat(AT_FDCWD, Host(name).c_str(), times, 0), 0);

    // The folder first: listing it, as a pattern does, may update its access time.
    for (const char* name : {"logs", "logs\\*.log"}) {
        __time64_t written = 7, accessed = 7;
        EXPECT_EQ(GetFileDate(Win(name), nullptr, &written, &accessed), 1) << name;
        EXPECT_EQ(written, 1600000000) << name;
        EXPECT_EQ(accessed, 1500000000) << name;
    }
    for (auto [name, size] : {std::pair{"empty.bin", 0ull}, {"big.bin", 5368709120ull}, {"logs", 0ull}, {"logs\\*.log", 1ull}}) {
        ULONGLONG length = 7;
        EXPECT_EQ(GetFileLength(Win(name), &length), 1) << name;
        EXPECT_EQ(length, size) << name;
    }
    for (auto [path, kind] : {std::pair{"T:\\", 2}, {"T:\\logs\\", 2}, {"T:\\big.bin", 1}, {"T:\\none", -1}, {"T:\\none\\x", -1}})
        EXPECT_EQ(GetPathIsFileOrFolder(W(path)), kind) << path;
}

TEST_F(FileFactsOnHost, FileWithThreeNamesListsThemAndOneNameLeavesTheListAlone) {
    WriteFile("a.txt", "shared");
    WriteFile("one.txt", "x");
    MakeFolder("sub");
    ASSERT_TRUE(sys().CreateHardLinkW(Win("sub\\b.txt"), Win("a.txt"), nullptr));
    ASSERT_TRUE(sys().CreateHardLinkW(Win("c.txt"), Win("a.txt"), nullptr));
    CStringArray names;
    EXPECT_EQ(GetFileIsHardlink(Win("sub\\b.txt"), &names), 3);
    EXPECT_THAT(Items(names), UnorderedElementsAre("\\a.txt", "\\sub\\b.txt", "\\c.txt"));
    EXPECT_EQ(GetFileIsHardlink(Win("one.txt"), &names), 0);
    EXPECT_EQ(names.GetSize(), 3);
}

TEST_F(FileFactsOnHost, FileHeldByAnotherProcessFolderAndMissingPathCannotBeAskedForLinks) {
    WriteFile("held.txt", "held");
    MakeFolder("dir");
    HeldElsewhere held(root_, "T:\\held.txt", GENERIC_READ, 0);
    ASSERT_EQ(held.openError(), DWORD(ERROR_SUCCESS));
    for (auto [name, error] : {std::pair{"held.txt", ERROR_SHARING_VIOLATION}, {"dir", ERROR_ACCESS_DENIED}, {"none", ERROR_FILE_NOT_FOUND}}) {
        sys().SetLastError(kJunkError);
        EXPECT_EQ(GetFileIsHardlink(Win(name), nullptr), -1) << name;
        EXPECT_EQ(sys().GetLastError(), DWORD(error)) << name;
    }
    // Only the link count needs the file to itself.
    ULONGLONG length = 7;
    EXPECT_TRUE(GetFileLength(Win("held.txt"), &length) == 1 && length == 4);
    EXPECT_EQ(GetFileDate(Win("held.txt"), nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(GetPathIsFileOrFolder(Win("held.txt")), 1);
    held.Release();
    EXPECT_EQ(GetFileIsHardlink(Win("held.txt"), nullptr), 0);
    __time64_t written = 7;
    EXPECT_EQ(GetFileDate(Win("none"), nullptr, &written, nullptr), 0);
    EXPECT_EQ(GetFileDate(Win("none"), nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(GetFileLength(Win("none"), &length), 0);
    EXPECT_TRUE(written == 7 && length == 4);
}
