// File facts: time stamps, sizes, kinds of path and hard-link names, scripted and on host-folder volumes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <new>
#include <string>
#include <vector>

#include "../platform/api_patch.h"
#include "support/host_fixture.h"

using testing_support::HostFolderTest;
using testing_support::kJunkError;
using testing_support::U;
using testing_support::W;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

namespace {

constexpr LONGLONG kSecondsFrom1601To1970 = 11644473600;
constexpr LONGLONG kTicksPerSecond = 10000000;
const HANDLE kScriptedFile = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(0x4242));
const HANDLE kScriptedNames = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(0x5151));
const HANDLE kScriptedSearch = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(0x6161));

FILETIME FileTimeAt(LONGLONG secondsSince1970, LONGLONG extraTicks = 0) {
    const ULONGLONG ticks = static_cast<ULONGLONG>((secondsSince1970 + kSecondsFrom1601To1970) * kTicksPerSecond + extraTicks);
    return FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

std::vector<std::string> Items(const CStringArray& names) {
    std::vector<std::string> items;
    for (INT_PTR at = 0; at < names.GetSize(); ++at) items.push_back(U(names[at]));
    return items;
}

// A search that finds the entries given, in order, and counts how it is ended.
class ScriptedSearch {
public:
    explicit ScriptedSearch(std::vector<WIN32_FIND_DATAW> entries) : entries_(std::move(entries)) {}

    DWORD errorAfterLast = ERROR_NO_MORE_FILES;
    int firstCalls = 0;
    int closes = 0;
    std::string pattern;

private:
    std::vector<WIN32_FIND_DATAW> entries_;
    size_t next_ = 0;
    ApiPatch<&Win32Api::FindFirstFileW> first_{[this](LPCWSTR text, LPWIN32_FIND_DATAW data) {
        ++firstCalls;
        pattern = U(text);
        next_ = 0;  // every search starts from the first entry
        if (entries_.empty()) {
            sys().SetLastError(ERROR_FILE_NOT_FOUND);
            return INVALID_HANDLE_VALUE;
        }
        *data = entries_[next_++];
        return kScriptedSearch;
    }};
    ApiPatch<&Win32Api::FindNextFileW> next_call_{[this](HANDLE, LPWIN32_FIND_DATAW data) {
        if (next_ >= entries_.size()) {
            sys().SetLastError(errorAfterLast);
            return FALSE;
        }
        *data = entries_[next_++];
        return TRUE;
    }};
    ApiPatch<&Win32Api::FindClose> close_{[this](HANDLE handle) {
        if (handle == kScriptedSearch) ++closes;
        return TRUE;
    }};
};

WIN32_FIND_DATAW Entry(FILETIME created, FILETIME written, FILETIME accessed, ULONGLONG size = 0) {
    WIN32_FIND_DATAW data{};
    data.dwFileAttributes = FILE_ATTRIBUTE_ARCHIVE;
    data.ftCreationTime = created;
    data.ftLastWriteTime = written;
    data.ftLastAccessTime = accessed;
    data.nFileSizeHigh = static_cast<DWORD>(size >> 32);
    data.nFileSizeLow = static_cast<DWORD>(size);
    return data;
}

// A file with `links` names, opened and asked through scripted entries. The name enumeration gives the
// names listed and then fails with ERROR_HANDLE_EOF, or, when endless is set, far more names than the file
// has (a bounded "forever", so that a listing without a limit fails the test instead of hanging it).
class ScriptedLinks {
public:
    explicit ScriptedLinks(DWORD links, std::vector<std::string> platformNames = {}) : links_(links), names_(std::move(platformNames)) {}

    bool openFails = false;
    bool informationFails = false;
    bool firstNameFails = false;
    bool endless = false;
    std::vector<std::string> log;
    // Every name call must find the length set to the whole buffer and the buffer zeroed.
    bool buffersPrepared = true;

    DWORD access = 1, share = 1, disposition = 0, flags = 0;
    LPSECURITY_ATTRIBUTES security = reinterpret_cast<LPSECURITY_ATTRIBUTES>(1);
    HANDLE templateFile = reinterpret_cast<HANDLE>(1);
    std::string openedPath, namedPath;
    DWORD nameFlags = 1;

private:
    static bool Prepared(LPDWORD length, PWSTR buffer) {
        if (*length != MAX_PATH) return false;
        for (int at = 0; at < MAX_PATH; ++at) {
            if (buffer[at] != 0) return false;
        }
        return true;
    }
    bool Give(size_t index, LPDWORD length, PWSTR buffer) {
        const WString name = WStrFromUtf8(endless ? "\\loop" + std::to_string(index) : names_[index]);
        name.copy(buffer, name.size());
        buffer[name.size()] = 0;
        *length = static_cast<DWORD>(name.size() + 1);
        return true;
    }

    static constexpr size_t kEndlessNames = 10000;
    DWORD links_;
    std::vector<std::string> names_;
    size_t next_ = 0;

    ApiPatch<&Win32Api::CreateFileW> open_{[this](LPCWSTR path, DWORD a, DWORD s, LPSECURITY_ATTRIBUTES sa, DWORD d, DWORD f,
                                                  HANDLE t) {
        log.push_back("open");
        openedPath = U(path);
        access = a, share = s, security = sa, disposition = d, flags = f, templateFile = t;
        if (openFails) {
            sys().SetLastError(ERROR_SHARING_VIOLATION);
            return INVALID_HANDLE_VALUE;
        }
        return kScriptedFile;
    }};
    ApiPatch<&Win32Api::GetFileInformationByHandle> information_{[this](HANDLE handle, LPBY_HANDLE_FILE_INFORMATION info) {
        log.push_back(handle == kScriptedFile ? "information" : "information of a stray handle");
        if (informationFails) {
            sys().SetLastError(ERROR_INVALID_FUNCTION);
            return FALSE;
        }
        *info = BY_HANDLE_FILE_INFORMATION{};
        info->nNumberOfLinks = links_;
        return TRUE;
    }};
    ApiPatch<&Win32Api::CloseHandle> close_{[this](HANDLE handle) {
        log.push_back(handle == kScriptedFile ? "close" : "close a stray handle");
        return TRUE;
    }};
    ApiPatch<&Win32Api::FindFirstFileNameW> first_{[this](LPCWSTR path, DWORD f, LPDWORD length, PWSTR buffer) {
        log.push_back("first name");
        namedPath = U(path);
        nameFlags = f;
        buffersPrepared = buffersPrepared && Prepared(length, buffer);
        if (firstNameFails || (!endless && names_.empty())) {
            sys().SetLastError(ERROR_MORE_DATA);
            return INVALID_HANDLE_VALUE;
        }
        Give(next_++, length, buffer);
        return kScriptedNames;
    }};
    ApiPatch<&Win32Api::FindNextFileNameW> next_call_{[this](HANDLE handle, LPDWORD length, PWSTR buffer) {
        log.push_back(handle == kScriptedNames ? "next name" : "next name of a stray handle");
        buffersPrepared = buffersPrepared && Prepared(length, buffer);
        if (next_ >= (endless ? kEndlessNames : names_.size())) {
            sys().SetLastError(ERROR_HANDLE_EOF);
            return FALSE;
        }
        return Give(next_++, length, buffer) ? TRUE : FALSE;
    }};
    ApiPatch<&Win32Api::FindClose> end_{[this](HANDLE handle) {
        log.push_back(handle == kScriptedNames ? "end names" : "end a stray search");
        return TRUE;
    }};
};

}  // namespace

// ---- Time stamps and sizes, scripted

TEST(FileFacts, TimeStampsAreWholeSecondsFlooredAtBothEndsOfTheRange) {
    struct Case {
        const char* name;
        FILETIME time;
        __time64_t expected;
    } cases[] = {
        {"1601-01-01, the earliest FILETIME", FILETIME{0, 0}, -kSecondsFrom1601To1970},
        {"1969-12-31 23:59:59.5", FileTimeAt(-1, kTicksPerSecond / 2), -1},
        {"1970-01-01 00:00:00", FileTimeAt(0), 0},
        {"2026-11-22 12:34:56.9999999", FileTimeAt(1795350896, kTicksPerSecond - 1), 1795350896},
        {"3001-01-01, past MFC's range", FileTimeAt(32535216000), 32535216000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        // Each time goes into one slot at a time, so a mix-up of the three outputs shows.
        const FILETIME other = FileTimeAt(1000);
        for (int slot = 0; slot < 3; ++slot) {
            ScriptedSearch search({Entry(slot == 0 ? c.time : other, slot == 1 ? c.time : other, slot == 2 ? c.time : other)});
            __time64_t times[3] = {7, 7, 7};
            EXPECT_EQ(GetFileDate(_T("C:\\t.txt"), &times[0], &times[1], &times[2]), 1);
            for (int at = 0; at < 3; ++at) EXPECT_EQ(times[at], at == slot ? c.expected : 1000) << "slot " << slot;
            EXPECT_EQ(search.pattern, "C:\\t.txt");
            EXPECT_EQ(search.closes, 1);
        }
    }
}

TEST(FileFacts, AnotherMatchAfterTheFirstIsFineAndTheFirstIsReported) {
    const ULONGLONG fiveGiB = 5ull << 30;
    ScriptedSearch search({Entry(FileTimeAt(10), FileTimeAt(20), FileTimeAt(30), fiveGiB), Entry(FileTimeAt(1), FileTimeAt(2), FileTimeAt(3), 1)});
    ULONGLONG length = 7;
    EXPECT_EQ(GetFileLength(_T("C:\\logs\\*.log"), &length), 1);
    EXPECT_EQ(length, fiveGiB);
    __time64_t written = 7;
    EXPECT_EQ(GetFileDate(_T("C:\\logs\\*.log"), nullptr, &written, nullptr), 1);
    EXPECT_EQ(written, 20);
    EXPECT_EQ(search.closes, 2);
}

TEST(FileFacts, FailureOfTheSecondSearchStepLeavesOutputsUntouched) {
    ScriptedSearch search({Entry(FileTimeAt(10), FileTimeAt(20), FileTimeAt(30), 99)});
    search.errorAfterLast = ERROR_ACCESS_DENIED;
    ULONGLONG length = 7;
    __time64_t times[3] = {7, 7, 7};
    sys().SetLastError(kJunkError);
    EXPECT_EQ(GetFileLength(_T("C:\\t.txt"), &length), 0);
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(GetFileDate(_T("C:\\t.txt"), &times[0], &times[1], &times[2]), 0);
    EXPECT_EQ(length, 7u);
    EXPECT_THAT(times, ElementsAre(7, 7, 7));
    EXPECT_EQ(search.closes, 2);
}

TEST(FileFacts, NothingFoundFailsWithOutputsUntouched) {
    ScriptedSearch search({});
    ULONGLONG length = 7;
    __time64_t written = 7;
    EXPECT_EQ(GetFileLength(_T("C:\\none"), &length), 0);
    EXPECT_EQ(GetFileDate(_T("C:\\none"), nullptr, &written, nullptr), 0);
    EXPECT_EQ(GetFileDate(_T("C:\\none"), nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(length, 7u);
    EXPECT_EQ(written, 7);
    EXPECT_EQ(search.closes, 0);
}

TEST(FileFacts, LengthWithoutAnOutputFailsWithoutSearching) {
    ScriptedSearch search({Entry(FileTimeAt(1), FileTimeAt(1), FileTimeAt(1), 5)});
    EXPECT_EQ(GetFileLength(_T("C:\\t.txt"), nullptr), 0);
    EXPECT_EQ(search.firstCalls, 0);
    // The date has no required output: with none it still looks.
    EXPECT_EQ(GetFileDate(_T("C:\\t.txt"), nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(search.firstCalls, 1);
}

// ---- Kinds of path, scripted

TEST(FileFacts, KindAsksExistenceThenFolderThenAttributes) {
    struct Case {
        BOOL exists, folder;
        DWORD word;
        int kind;
        std::vector<std::string> calls;
    } cases[] = {
        {FALSE, FALSE, FILE_ATTRIBUTE_ARCHIVE, -1, {"exists"}},
        {TRUE, FILE_ATTRIBUTE_DIRECTORY, FILE_ATTRIBUTE_DIRECTORY, 2, {"exists", "folder"}},
        {TRUE, FALSE, FILE_ATTRIBUTE_ARCHIVE, 1, {"exists", "folder", "attributes"}},
        {TRUE, FALSE, INVALID_FILE_ATTRIBUTES, -1, {"exists", "folder", "attributes"}},
    };
    for (const Case& c : cases) {
        std::vector<std::string> calls;
        std::vector<std::string> paths;
        ApiPatch<&Win32Api::PathFileExistsW> exists([&](LPCWSTR path) {
            calls.push_back("exists");
            paths.push_back(U(path));
            return c.exists;
        });
        ApiPatch<&Win32Api::PathIsDirectoryW> folder([&](LPCWSTR path) {
            calls.push_back("folder");
            paths.push_back(U(path));
            return c.folder;
        });
        ApiPatch<&Win32Api::GetFileAttributesW> attributes([&](LPCWSTR path) {
            calls.push_back("attributes");
            paths.push_back(U(path));
            return c.word;
        });
        EXPECT_EQ(GetPathIsFileOrFolder(_T("C:\\p")), c.kind);
        EXPECT_EQ(calls, c.calls);
        for (const std::string& path : paths) EXPECT_EQ(path, "C:\\p");
    }
}

// ---- Hard links, scripted

TEST(HardLinks, OpensWithoutSharingAndClosesBeforeAskingForNames) {
    ScriptedLinks file(2, {"\\a.txt", "\\b.txt"});
    CStringArray names;
    EXPECT_EQ(GetFileIsHardlink(_T("C:\\a.txt"), &names), 2);
    EXPECT_EQ(file.openedPath, "C:\\a.txt");
    EXPECT_EQ(file.access, 0x80000000u);
    EXPECT_EQ(file.share, 0u);
    EXPECT_EQ(file.security, nullptr);
    EXPECT_EQ(file.disposition, static_cast<DWORD>(OPEN_EXISTING));
    EXPECT_EQ(file.flags, static_cast<DWORD>(FILE_ATTRIBUTE_NORMAL));
    EXPECT_EQ(file.templateFile, nullptr);
    EXPECT_EQ(file.namedPath, "C:\\a.txt");
    EXPECT_EQ(file.nameFlags, 0u);
    EXPECT_THAT(file.log, ElementsAre("open", "information", "close", "first name", "next name", "next name", "end names"));
    EXPECT_TRUE(file.buffersPrepared);
    EXPECT_THAT(Items(names), ElementsAre("\\a.txt", "\\b.txt"));
}

TEST(HardLinks, NameListingStopsAfterOneFurtherNamePerLinkOrAtTheFirstRefusal) {
    struct Case {
        const char* name;
        DWORD links;
        std::vector<std::string> platformNames;
        bool endless, firstFails;
        std::vector<std::string> appended;
    } cases[] = {
        {"a platform that never stops", 3, {}, true, false, {"\\loop0", "\\loop1", "\\loop2", "\\loop3"}},
        {"every name given", 3, {"\\a", "\\b", "\\c"}, false, false, {"\\a", "\\b", "\\c"}},
        {"the second name does not fit", 3, {"\\a"}, false, false, {"\\a"}},
        {"the first name does not fit", 3, {"\\a", "\\b", "\\c"}, false, true, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedLinks file(c.links, c.platformNames);
        file.endless = c.endless;
        file.firstNameFails = c.firstFails;
        CStringArray names;
        names.Add(_T("kept 1"));
        names.Add(_T("kept 2"));
        EXPECT_EQ(GetFileIsHardlink(_T("C:\\a"), &names), 3);
        std::vector<std::string> expected = {"kept 1", "kept 2"};
        expected.insert(expected.end(), c.appended.begin(), c.appended.end());
        EXPECT_EQ(Items(names), expected);
        EXPECT_TRUE(file.buffersPrepared);
        // The enumeration is ended exactly when it was started.
        EXPECT_EQ(std::count(file.log.begin(), file.log.end(), "end names"), c.firstFails ? 0 : 1);
    }
}

TEST(HardLinks, SingleNameOrNoListWantedAsksForNoNames) {
    for (DWORD links : {0u, 1u}) {
        ScriptedLinks file(links, {"\\a"});
        CStringArray names;
        names.Add(_T("kept"));
        EXPECT_EQ(GetFileIsHardlink(_T("C:\\a"), &names), 0);
        EXPECT_THAT(Items(names), ElementsAre("kept"));
        EXPECT_THAT(file.log, ElementsAre("open", "information", "close"));
    }
    ScriptedLinks file(3, {"\\a", "\\b", "\\c"});
    EXPECT_EQ(GetFileIsHardlink(_T("C:\\a"), nullptr), 3);
    EXPECT_THAT(file.log, ElementsAre("open", "information", "close"));
}

TEST(HardLinks, FileThatCannotBeOpenedOrAskedGivesMinusOne) {
    {
        ScriptedLinks file(3, {"\\a"});
        file.openFails = true;
        CStringArray names;
        sys().SetLastError(kJunkError);
        EXPECT_EQ(GetFileIsHardlink(_T("C:\\a"), &names), -1);
        EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
        EXPECT_THAT(file.log, ElementsAre("open"));
        EXPECT_EQ(names.GetSize(), 0);
    }
    {
        ScriptedLinks file(3, {"\\a"});
        file.informationFails = true;
        sys().SetLastError(kJunkError);
        EXPECT_EQ(GetFileIsHardlink(_T("C:\\a"), nullptr), -1);
        EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INVALID_FUNCTION));
        EXPECT_THAT(file.log, ElementsAre("open", "information", "close"));
    }
}

TEST(HardLinks, NameFillingTheWholeBufferIsCutAtItsEnd) {
    ScriptedLinks file(2);
    // A platform that writes all 260 units without a terminator: only the buffer is read.
    ApiPatch<&Win32Api::FindFirstFileNameW> unterminated([](LPCWSTR, DWORD, LPDWORD length, PWSTR buffer) {
        for (DWORD at = 0; at < *length; ++at) buffer[at] = _T('x');
        return kScriptedNames;
    });
    CStringArray names;
    EXPECT_EQ(GetFileIsHardlink(_T("C:\\a"), &names), 2);
    ASSERT_EQ(names.GetSize(), 1);
    EXPECT_EQ(names[0].GetLength(), MAX_PATH - 1);
}

TEST(HardLinks, ExceptionWhileListingBecomesMinusOneWithTheEnumerationEnded) {
    ScriptedLinks file(3, {"\\a", "\\b", "\\c"});
    ApiPatch<&Win32Api::FindNextFileNameW> throws([](HANDLE, LPDWORD, PWSTR) -> BOOL { throw std::bad_alloc(); });
    CStringArray names;
    EXPECT_EQ(GetFileIsHardlink(_T("C:\\a"), &names), -1);
    EXPECT_EQ(file.log.back(), "end names");
}

// ---- Real host-folder volumes

class FileFactsOnHost : public HostFolderTest {};

TEST_F(FileFactsOnHost, SizesOfEmptyFilledSparseFilesAndFolders) {
    WriteFile("empty.bin", "");
    WriteFile("five.bin", "12345");
    WriteFile("big.bin", "");
    ASSERT_EQ(truncate(Host("big.bin").c_str(), 5368709120LL), 0);  // sparse: no data is written
    MakeFolder("dir");
    struct Case {
        const char* name;
        ULONGLONG size;
    } cases[] = {{"empty.bin", 0}, {"five.bin", 5}, {"big.bin", 5368709120ull}, {"dir", 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ULONGLONG length = 7;
        EXPECT_EQ(GetFileLength(Win(c.name), &length), 1);
        EXPECT_EQ(length, c.size);
    }
    EXPECT_EQ(GetFileLength(Win("five.bin"), nullptr), 0);
}

TEST_F(FileFactsOnHost, WildcardPatternReportsItsFirstMatchInNameOrder) {
    WriteFile("logs/b.log", "bb");
    WriteFile("logs/A.log", "a");
    WriteFile("logs/c.txt", "ccc");
    const struct timespec times[2] = {{1000000000, 0}, {1100000000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, Host("logs/A.log").c_str(), times, 0), 0);
    ULONGLONG length = 7;
    EXPECT_EQ(GetFileLength(Win("logs\\*.log"), &length), 1);
    EXPECT_EQ(length, 1u);
    __time64_t written = 7, accessed = 7;
    EXPECT_EQ(GetFileDate(Win("logs\\*.log"), nullptr, &written, &accessed), 1);
    EXPECT_EQ(written, 1100000000);
    EXPECT_EQ(accessed, 1000000000);
}

TEST_F(FileFactsOnHost, TimeStampsAreTheEntrysOwnInWholeSeconds) {
    WriteFile("t.txt", "x");
    MakeFolder("dir");
    for (const char* name : {"t.txt", "dir"}) {
        SCOPED_TRACE(name);
        const struct timespec times[2] = {{1500000000, 999999999}, {1600000000, 500000000}};
        ASSERT_EQ(utimensat(AT_FDCWD, Host(name).c_str(), times, 0), 0);
        struct statx birth {};
        ASSERT_EQ(statx(AT_FDCWD, Host(name).c_str(), 0, STATX_BTIME, &birth), 0);
        const __time64_t createdSeconds = (birth.stx_mask & STATX_BTIME) != 0 ? birth.stx_btime.tv_sec : 1600000000;
        __time64_t created = 7, written = 7, accessed = 7;
        EXPECT_EQ(GetFileDate(Win(name), &created, &written, &accessed), 1);
        EXPECT_EQ(created, createdSeconds);
        EXPECT_EQ(written, 1600000000);
        EXPECT_EQ(accessed, 1500000000);
    }
}

TEST_F(FileFactsOnHost, KindsOfPaths) {
    WriteFile("f.txt", "x");
    MakeFolder("dir");
    struct Case {
        const char* path;
        int kind;
    } cases[] = {
        {"T:\\", 2}, {"T:\\f.txt", 1}, {"T:\\dir", 2}, {"T:\\dir\\", 2}, {"T:\\none.txt", -1}, {"T:\\none\\f.txt", -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(GetPathIsFileOrFolder(W(c.path)), c.kind);
    }
}

TEST_F(FileFactsOnHost, FileWithThreeNamesListsThemAfterTheCallersEntries) {
    WriteFile("a.txt", "shared");
    MakeFolder("sub");
    ASSERT_TRUE(sys().CreateHardLinkW(Win("sub\\b.txt"), Win("a.txt"), nullptr));
    ASSERT_TRUE(sys().CreateHardLinkW(Win("c.txt"), Win("a.txt"), nullptr));
    CStringArray names;
    names.Add(_T("kept"));
    EXPECT_EQ(GetFileIsHardlink(Win("sub\\b.txt"), &names), 3);
    ASSERT_EQ(names.GetSize(), 4);
    EXPECT_EQ(U(names[0]), "kept");
    const std::vector<std::string> items = Items(names);
    EXPECT_THAT(std::vector<std::string>(items.begin() + 1, items.end()), UnorderedElementsAre("\\a.txt", "\\sub\\b.txt", "\\c.txt"));
    EXPECT_EQ(GetFileIsHardlink(Win("a.txt"), nullptr), 3);
}

TEST_F(FileFactsOnHost, FileWithOneNameLeavesTheListAlone) {
    WriteFile("one.txt", "x");
    CStringArray names;
    names.Add(_T("kept"));
    EXPECT_EQ(GetFileIsHardlink(Win("one.txt"), &names), 0);
    EXPECT_THAT(Items(names), ElementsAre("kept"));
}

TEST_F(FileFactsOnHost, FileHeldOpenWithoutSharingCannotBeAskedForLinksButAnswersTheRest) {
    WriteFile("held.txt", "held");
    HANDLE held = sys().CreateFileW(Win("held.txt"), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(held, INVALID_HANDLE_VALUE);
    sys().SetLastError(kJunkError);
    EXPECT_EQ(GetFileIsHardlink(Win("held.txt"), nullptr), -1);
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    ULONGLONG length = 7;
    __time64_t written = 7;
    EXPECT_EQ(GetFileLength(Win("held.txt"), &length), 1);
    EXPECT_EQ(length, 4u);
    EXPECT_EQ(GetFileDate(Win("held.txt"), nullptr, &written, nullptr), 1);
    EXPECT_NE(written, 7);
    EXPECT_EQ(GetPathIsFileOrFolder(Win("held.txt")), 1);
    sys().CloseHandle(held);
}

TEST_F(FileFactsOnHost, FolderCannotBeAskedForLinks) {
    MakeFolder("dir");
    sys().SetLastError(kJunkError);
    EXPECT_EQ(GetFileIsHardlink(Win("dir"), nullptr), -1);
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

TEST_F(FileFactsOnHost, MissingPathGivesEveryFailureValueWithOutputsUntouched) {
    ULONGLONG length = 7;
    __time64_t times[3] = {7, 7, 7};
    CStringArray names;
    EXPECT_EQ(GetFileLength(Win("none.txt"), &length), 0);
    EXPECT_EQ(GetFileDate(Win("none.txt"), &times[0], &times[1], &times[2]), 0);
    EXPECT_EQ(GetFileDate(Win("none.txt"), nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(GetPathIsFileOrFolder(Win("none.txt")), -1);
    sys().SetLastError(kJunkError);
    EXPECT_EQ(GetFileIsHardlink(Win("none.txt"), &names), -1);
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(length, 7u);
    EXPECT_THAT(times, ElementsAre(7, 7, 7));
    EXPECT_EQ(names.GetSize(), 0);
}
