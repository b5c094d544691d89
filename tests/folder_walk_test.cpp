// Folder walk and counting, and the folder content test, on host-folder volumes.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "../platform/api_patch.h"
#include "support/host_fixture.h"

namespace {

using testing_support::HostFolderTest;
using testing_support::U;

// The paths of a chain behind head, freeing each node as the caller does.
std::vector<std::string> TakeChain(FileListNode& head) {
    std::vector<std::string> paths;
    for (FileListNode* node = head.next; node != nullptr;) {
        FileListNode* next = node->next;
        EXPECT_EQ(node->flags, 0u);
        paths.push_back(U(node->filePath));
        std::free(node);
        node = next;
    }
    head.next = nullptr;
    return paths;
}

struct Counts {
    ULONGLONG files = 0, folders = 0, bytes = 0;
    std::vector<std::string> list;
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
        counts.list = TakeChain(head);
        return counts;
    }
};

TEST_F(FolderWalk, WorkedTreeCountsSumsAndListsDepthFirst) {
    MakeWorkedTree();
    for (const char* path : {"T:\\t", "T:\\t\\"}) {  // a trailing backslash is not doubled
        const Counts counts = Walk(testing_support::W(path));
        EXPECT_EQ(counts.files, 3u);
        EXPECT_EQ(counts.folders, 1u);
        EXPECT_EQ(counts.bytes, 18u);
        EXPECT_EQ(counts.list, (std::vector<std::string>{"T:\\t\\a.txt", "T:\\t\\b.log", "T:\\t\\sub\\", "T:\\t\\sub\\c.txt"}));
    }
}

TEST_F(FolderWalk, SubfolderContentsComeBeforeTheNextEntryOfTheParent) {
    WriteFile("t/a/x/1.txt", "1");
    WriteFile("t/a/y.txt", "2");
    WriteFile("t/b/2.txt", "3");
    WriteFile("t/c.txt", "4");
    EXPECT_EQ(Walk(Win("t")).list, (std::vector<std::string>{"T:\\t\\a\\", "T:\\t\\a\\x\\", "T:\\t\\a\\x\\1.txt",
                                                             "T:\\t\\a\\y.txt", "T:\\t\\b\\", "T:\\t\\b\\2.txt",
                                                             "T:\\t\\c.txt"}));
}

TEST_F(FolderWalk, ExtensionFilterCountsMatchingFilesAtEveryDepthAndNoFolders) {
    MakeWorkedTree();
    WriteFile("t/sub/d.DOC", "dd");
    WriteFile("t/sub/e.txt;*", "e");
    struct Case {
        const char* filter;
        ULONGLONG files, bytes;
        std::vector<std::string> list;
    } cases[] = {
        {".txt", 2, 13, {"T:\\t\\a.txt", "T:\\t\\sub\\c.txt"}},
        {".TXT", 2, 13, {"T:\\t\\a.txt", "T:\\t\\sub\\c.txt"}},
        {"*.txt", 2, 13, {"T:\\t\\a.txt", "T:\\t\\sub\\c.txt"}},
        {"txt", 0, 0, {}},  // no dot: nothing matches
        {".txt;*.doc", 2, 3, {"T:\\t\\sub\\d.DOC", "T:\\t\\sub\\e.txt;*"}},
        {".log.doc", 2, 7, {"T:\\t\\b.log", "T:\\t\\sub\\d.DOC"}},
    };
    for (const Case& c : cases) {
        const Counts counts = Walk(Win("t"), testing_support::W(c.filter));
        EXPECT_EQ(counts.files, c.files) << c.filter;
        EXPECT_EQ(counts.folders, 0u) << c.filter;
        EXPECT_EQ(counts.bytes, c.bytes) << c.filter;
        EXPECT_EQ(counts.list, c.list) << c.filter;
    }
}

TEST_F(FolderWalk, CountersAreOnlyAddedToAndEachIsOptional) {
    WriteFile("t/a", "12");
    WriteFile("t/b", "345");
    ULONGLONG files = 5, folders = 7, bytes = 100;
    GetFileCountInFolder(Win("t"), &files, &folders, &bytes, nullptr, CString(), nullptr);
    EXPECT_EQ(files, 7u);
    EXPECT_EQ(folders, 7u);
    EXPECT_EQ(bytes, 105u);
    GetFileCountInFolder(Win("t"), &files, nullptr, nullptr, nullptr, CString(), nullptr);
    EXPECT_EQ(files, 9u);
}

TEST_F(FolderWalk, FolderThatCannotBeListedAddsNothing) {
    ULONGLONG files = 1, folders = 2, bytes = 3;
    FileListNode head{};
    GetFileCountInFolder(Win("missing"), &files, &folders, &bytes, &head, CString(), nullptr);
    WriteFile("file.txt", "x");
    GetFileCountInFolder(Win("file.txt"), &files, &folders, &bytes, &head, CString(), nullptr);
    EXPECT_EQ(files, 1u);
    EXPECT_EQ(folders, 2u);
    EXPECT_EQ(bytes, 3u);
    EXPECT_TRUE(head.next == nullptr);
}

TEST_F(FolderWalk, NodesAreChainedBehindTheTailGiven) {
    WriteFile("t/a", "1");
    FileListNode head{};
    auto* existing = static_cast<FileListNode*>(std::calloc(1, sizeof(FileListNode)));
    head.next = existing;
    GetFileCountInFolder(Win("t"), nullptr, nullptr, nullptr, existing, CString(), nullptr);
    const FileListNode* added = existing->next;  // copied out: the packed field is not pointer-aligned
    ASSERT_NE(added, nullptr);
    EXPECT_EQ(U(added->filePath), "T:\\t\\a");
    EXPECT_TRUE(added->next == nullptr);
    TakeChain(head);
}

TEST_F(FolderWalk, PathThatDoesNotFitANodeIsCountedButNotListed) {
    // T:\ and 250 units: the folder's node fits, a file's full path fits up to 259 units.
    const std::string folder(250, 'f');
    WriteFile(folder + "/abcde", "12345");   // 259 units: listed
    WriteFile(folder + "/abcdef", "1");      // 260 units: past MAX_PATH, so its size cannot be read either
    const Counts counts = Walk(Win(""));
    EXPECT_EQ(counts.files, 2u);
    EXPECT_EQ(counts.bytes, 5u);
    EXPECT_EQ(counts.list, (std::vector<std::string>{"T:\\" + folder + "\\", "T:\\" + folder + "\\abcde"}));
}

TEST_F(FolderWalk, LinkBackIntoItsOwnTreeIsListedButNotEntered) {
    WriteFile("t/a.txt", "1");
    ASSERT_EQ(symlink("..", Host("t/loop").c_str()), 0);
    ASSERT_EQ(symlink(".", Host("t/self").c_str()), 0);
    const Counts counts = Walk(Win("t"));
    EXPECT_EQ(counts.files, 1u);
    EXPECT_EQ(counts.folders, 2u);
    EXPECT_EQ(counts.list, (std::vector<std::string>{"T:\\t\\a.txt", "T:\\t\\loop\\", "T:\\t\\self\\"}));
}

TEST_F(FolderWalk, CancelFlagStopsTheWalkOnlyWhenItEqualsOne) {
    MakeWorkedTree();
    BOOL cancel = 1;
    Counts counts = Walk(Win("t"), CString(), &cancel);
    EXPECT_EQ(counts.files + counts.folders, 0u);
    EXPECT_TRUE(counts.list.empty());
    cancel = 2;
    counts = Walk(Win("t"), CString(), &cancel);
    EXPECT_EQ(counts.files, 3u);
}

TEST_F(FolderWalk, CancelSetFromAnotherThreadEndsTheWalkBeforeItsNextEntryWithEverySearchClosed) {
    WriteFile("t/a/1.txt", "1");
    WriteFile("t/a/2.txt", "2");
    WriteFile("t/a/3.txt", "3");
    WriteFile("t/b.txt", "4");
    BOOL cancel = 0;
    int openSearches = 0;
    ApiPatch<&Win32Api::FindFirstFileW> first([&](LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
        HANDLE find = first.Original()(pattern, data);
        if (find != INVALID_HANDLE_VALUE) ++openSearches;
        return find;
    });
    ApiPatch<&Win32Api::FindClose> close([&](HANDLE find) {
        --openSearches;
        return close.Original()(find);
    });
    // Once the walk is inside t\a and has delivered 1.txt, another thread sets the flag.
    ApiPatch<&Win32Api::FindNextFileW> next([&](HANDLE find, LPWIN32_FIND_DATAW data) {
        const BOOL found = next.Original()(find, data);
        if (found && U(data->cFileName) == "2.txt") {
            std::thread([&] { std::atomic_ref<BOOL>(cancel).store(1); }).join();
        }
        return found;
    });
    const Counts counts = Walk(Win("t"), CString(), &cancel);
    EXPECT_EQ(counts.list, (std::vector<std::string>{"T:\\t\\a\\", "T:\\t\\a\\1.txt"}));
    EXPECT_EQ(counts.files, 1u);
    EXPECT_EQ(openSearches, 0);
}

TEST_F(FolderWalk, ContentTestFindsAnyEntryButDots) {
    MakeFolder("empty");
    MakeFolder("onlysub/inner");
    WriteFile("hidden/h", "x");
    ASSERT_TRUE(SetHiddenFlag(Win("hidden/h"), 1));
    WriteFile("file.txt", "x");
    struct Case {
        const char* path;
        int want;
    } cases[] = {{"T:\\empty", 0},    {"T:\\empty\\", 0},  {"T:\\onlysub", 1}, {"T:\\onlysub\\", 1},
                 {"T:\\hidden", 1},   {"T:\\missing", 0},  {"T:\\file.txt", 0}, {"T:\\", 1}};
    for (const Case& c : cases) EXPECT_EQ(IsFileExistsInFolder(testing_support::W(c.path)), c.want) << c.path;
}

}  // namespace
