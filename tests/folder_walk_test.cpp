// Folder walk and counting, and the folder content test, on host-folder volumes.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/scripted_files.h"

namespace {

using testing_support::HostFolderTest;
using testing_support::U;
using testing_support::W;
using Paths = std::vector<std::string>;

struct Counts {
    ULONGLONG files = 0, folders = 0, bytes = 0;
    Paths list;
};

class FolderWalk : public HostFolderTest {
protected:
    // The worked tree: t\a.txt (10 bytes), t\b.log (5), t\sub\c.txt (3).
    void MakeWorkedTree() {
        WriteFile("t/a.txt", std::string(10, 'a'));
        WriteFile("t/b.log", std::string(5, 'b'));
        WriteFile("t/sub/c.txt", std::string(3, 'c'));
    }
    Counts Walk(const CString& path, const CString& filter = CString(), BOOL* cancel = nullptr) {
        Counts counts;
        FileListNode head{};
        GetFileCountInFolder(path, &counts.files, &counts.folders, &counts.bytes, &head, filter, cancel);
        counts.list = testing_support::TakePaths(head);
        return counts;
    }
};

TEST_F(FolderWalk, WorkedTreeCountsSumsAndListsDepthFirst) {
    MakeWorkedTree();
    for (const char* path : {"T:\\t", "T:\\t\\"}) {  // a trailing backslash is not doubled
        const Counts counts = Walk(W(path));
        EXPECT_EQ(std::vector<ULONGLONG>({counts.files, counts.folders, counts.bytes}), std::vector<ULONGLONG>({3, 1, 18}));
        EXPECT_EQ(counts.list, (Paths{"T:\\t\\a.txt", "T:\\t\\b.log", "T:\\t\\sub\\", "T:\\t\\sub\\c.txt"}));
    }
}

TEST_F(FolderWalk, SubfolderContentsComeBeforeTheNextEntryOfTheParent) {
    for (const char* name : {"t/a/x/1.txt", "t/a/y.txt", "t/b/2.txt", "t/c.txt"}) WriteFile(name, "1");
    EXPECT_EQ(Walk(Win("t")).list, (Paths{"T:\\t\\a\\", "T:\\t\\a\\x\\", "T:\\t\\a\\x\\1.txt", "T:\\t\\a\\y.txt", "T:\\t\\b\\",
                                          "T:\\t\\b\\2.txt", "T:\\t\\c.txt"}));
}

TEST_F(FolderWalk, ExtensionFilterCountsMatchingFilesAtEveryDepthAndNoFolders) {
    // Which texts match which names is the filter's own test; here, that the walk applies it everywhere.
    MakeWorkedTree();
    WriteFile("t/sub/d.DOC", "dd");
    WriteFile("t/sub/e.txt;+", "e");
    struct Case {
        const char* filter;
        ULONGLONG files, bytes;
        Paths list;
    } cases[] = {
        {".TXT", 2, 13, {"T:\\t\\a.txt", "T:\\t\\sub\\c.txt"}},
        {"*.txt", 2, 13, {"T:\\t\\a.txt", "T:\\t\\sub\\c.txt"}},
        {"txt", 0, 0, {}},  // no dot: nothing matches
        {".txt;+.doc", 2, 3, {"T:\\t\\sub\\d.DOC", "T:\\t\\sub\\e.txt;+"}},
        {".log.doc", 2, 7, {"T:\\t\\b.log", "T:\\t\\sub\\d.DOC"}},
    };
    for (const Case& c : cases) {
        const Counts counts = Walk(Win("t"), W(c.filter));
        EXPECT_EQ(std::vector<ULONGLONG>({counts.files, counts.folders, counts.bytes}), std::vector<ULONGLONG>({c.files, 0, c.bytes}))
            << c.filter;
        EXPECT_EQ(counts.list, c.list) << c.filter;
    }
}

TEST_F(FolderWalk, CountersAreOnlyAddedToEachIsOptionalAndAFolderThatCannotBeListedAddsNothing) {
    WriteFile("t/a", "12");
    WriteFile("t/b", "345");
    ULONGLONG files = 5, folders = 7, bytes = 100;
    FileListNode head{};
    GetFileCountInFolder(Win("t"), &files, &folders, &bytes, nullptr, CString(), nullptr);
    EXPECT_EQ(std::vector<ULONGLONG>({files, folders, bytes}), std::vector<ULONGLONG>({7, 7, 105}));
    GetFileCountInFolder(Win("t"), &files, nullptr, nullptr, nullptr, CString(), nullptr);
    for (const char* unlisted : {"missing", "t/a"})
        GetFileCountInFolder(Win(unlisted), &files, &folders, &bytes, &head, CString(), nullptr);
    EXPECT_EQ(std::vector<ULONGLONG>({files, folders, bytes}), std::vector<ULONGLONG>({9, 7, 105}));
    EXPECT_TRUE(head.next == nullptr);
}

TEST_F(FolderWalk, NodesAreChainedBehindTheTailGiven) {
    WriteFile("t/a", "1");
    FileListNode head{};
    auto* existing = static_cast<FileListNode*>(std::calloc(1, sizeof(FileListNode)));
    head.next = existing;
    GetFileCountInFolder(Win("t"), nullptr, nullptr, nullptr, existing, CString(), nullptr);
    EXPECT_EQ(testing_support::TakePaths(head), (Paths{"", "T:\\t\\a"}));
}

TEST_F(FolderWalk, PathThatDoesNotFitANodeIsCountedButNotListed) {
    // T:\ and 250 units: the folder's node fits, a file's full path fits up to 259 units.
    const std::string folder(250, 'f');
    WriteFile(folder + "/abcde", "12345");  // 259 units: listed
    WriteFile(folder + "/abcdef", "1");     // 260 units: past MAX_PATH, so its size cannot be read either
    const Counts counts = Walk(Win(""));
    EXPECT_EQ(counts.files, 2u);
    EXPECT_EQ(counts.bytes, 5u);
    EXPECT_EQ(counts.list, (Paths{"T:\\" + folder + "\\", "T:\\" + folder + "\\abcde"}));
}

TEST_F(FolderWalk, LinkBackIntoItsOwnTreeIsListedButNotEntered) {
    WriteFile("t/a.txt", "1");
    ASSERT_EQ(symlink("..", Host("t/loop").c_str()), 0);
    ASSERT_EQ(symlink(".", Host("t/self").c_str()), 0);
    const Counts counts = Walk(Win("t"));
    EXPECT_EQ(counts.files, 1u);
    EXPECT_EQ(counts.folders, 2u);
    EXPECT_EQ(counts.list, (Paths{"T:\\t\\a.txt", "T:\\t\\loop\\", "T:\\t\\self\\"}));
}

TEST_F(FolderWalk, CancelFlagStopsTheWalkOnlyWhenItEqualsOne) {
    MakeWorkedTree();
    BOOL cancel = 1;
    const Counts cancelled = Walk(Win("t"), CString(), &cancel);
    EXPECT_TRUE(cancelled.files + cancelled.folders == 0 && cancelled.list.empty());
    cancel = 2;
    EXPECT_EQ(Walk(Win("t"), CString(), &cancel).files, 3u);
}

TEST_F(FolderWalk, CancelSetFromAnotherThreadEndsTheWalkBeforeItsNextEntryWithEverySearchClosed) {
    for (const char* name : {"t/a/1.txt", "t/a/2.txt", "t/a/3.txt", "t/b.txt"}) WriteFile(name, "1");
    BOOL cancel = 0;
    int openSearches = 0;
    ApiPatch<&Win32Api::FindFirstFileW> first([&](LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
        HANDLE find = first.Original()(pattern, data);
        return openSearches += find != INVALID_HANDLE_VALUE, find;
    });
    ApiPatch<&Win32Api::FindClose> close([&](HANDLE find) { return --openSearches, close.Original()(find); });
    // Once the walk is inside t\a and has delivered 1.txt, another thread sets the flag.
    ApiPatch<&Win32Api::FindNextFileW> next([&](HANDLE find, LPWIN32_FIND_DATAW data) {
        const BOOL found = next.Original()(find, data);
        if (found && U(data->cFileName) == "2.txt") std::thread([&] { std::atomic_ref<BOOL>(cancel).store(1); }).join();
        return found;
    });
    const Counts counts = Walk(Win("t"), CString(), &cancel);
    EXPECT_EQ(counts.list, (Paths{"T:\\t\\a\\", "T:\\t\\a\\1.txt"}));
    EXPECT_EQ(counts.files, 1u);
    EXPECT_EQ(openSearches, 0);
}

TEST_F(FolderWalk, ContentTestFindsAnyEntryButDots) {
    MakeFolder("empty");
    MakeFolder("onlysub/inner");
    WriteFile("hidden/h", "x");
    ASSERT_TRUE(SetHiddenFlag(Win("hidden/h"), 1));
    WriteFile("file.txt", "x");
    for (auto [path, want] : {std::pair{"T:\\empty", 0}, {"T:\\empty\\", 0}, {"T:\\onlysub", 1}, {"T:\\onlysub\\", 1},
                              {"T:\\hidden", 1}, {"T:\\missing", 0}, {"T:\\file.txt", 0}, {"T:\\", 1}})
        EXPECT_EQ(IsFileExistsInFolder(W(path)), want) << path;
}

}  // namespace
