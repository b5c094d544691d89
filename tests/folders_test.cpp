// CreateFolders and DeleteFolders on a host-folder volume.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>

#include "support/copy_support.h"

namespace {

using namespace testing_support;
namespace fs = std::filesystem;

class Folders : public HostFolderTest {};

TEST_F(Folders, CreateFoldersTriesEachLevelThenMakesTheMissingOnesFromTheTopDown) {
    std::vector<std::string> attempts;
    ApiPatch<&Win32Api::CreateDirectoryW> record([&](LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
        attempts.push_back(U(path));
        EXPECT_EQ(security, nullptr);
        return record.Original()(path, security);
    });
    EXPECT_EQ(CreateFolders(Win("a\\b\\c")), TRUE);
    EXPECT_TRUE(fs::is_directory(Host("a/b/c")));
    EXPECT_EQ(attempts, (std::vector<std::string>{"T:\\a\\b\\c", "T:\\a\\b", "T:\\a", "T:\\a\\b", "T:\\a\\b\\c"}));
    attempts.clear();
    EXPECT_EQ(CreateFolders(Win("a\\b\\d")), TRUE);
    EXPECT_EQ(attempts, std::vector<std::string>{"T:\\a\\b\\d"});
}

TEST_F(Folders, CreateFoldersAnswersAsItsStepsSay) {
    MakeFolder("top/exists");
    WriteFile("file", "x");
    CString deep = Win("deep");
    for (int i = 0; i < 2000; ++i) deep += _T("\\x");
    const std::pair<CString, BOOL> cases[] = {
        {Win("top\\exists"), TRUE},  // there already: the parent is found
        {Win("file\\b"), TRUE},       // a file in the way: its "parent" exists, though no folder was made
        {_T("bare"), FALSE},          // no backslash: nothing to climb
        {_T("Q:\\a\\b"), FALSE},      // no such drive: the climb ends at the bare "Q:"
        {_T(""), FALSE},
        {deep, FALSE},                // thousands of levels climbed without exhausting the stack
    };
    for (const auto& [path, result] : cases) EXPECT_EQ(CreateFolders(path), result) << U(path).substr(0, 20);
    EXPECT_FALSE(fs::exists(Host("file/b")));
    EXPECT_FALSE(fs::exists(Host("bare")));
}

TEST_F(Folders, DeleteFoldersRemovesTheTreeForGoodSilentlyOnlyWhenSilentIsOne) {
    WriteFile("tree/sub/b.txt", "b");
    const HWND owner = reinterpret_cast<HWND>(0x42);
    // Other than 1, the shell asks, and with no one to answer nothing is deleted.
    const std::pair<BOOL, FILEOP_FLAGS> cases[] = {{2, 0}, {0, 0}, {1, 0x614}};
    for (const auto& [silent, flags] : cases) {
        ShellRecorder shell(0, true);
        AFX_MODULE_STATE* callers = AfxGetModuleState();
        EXPECT_EQ(DeleteFolders(Win("tree"), silent, owner), silent == 1 ? TRUE : FALSE);
        EXPECT_EQ(AfxGetModuleState(), callers);
        EXPECT_EQ(fs::exists(Host("tree/sub/b.txt")), silent != 1);
        EXPECT_EQ(shell.records, (ShellRecords{{.owner = owner, .function = FO_DELETE, .from = {"T:\\tree"},
                                                .flags = flags, .toIsEmptyString = true}}));
    }
}

TEST_F(Folders, DeleteFoldersLeavesFilesAndMissingPathsAlone) {
    WriteFile("file.txt", "x");
    ShellRecorder shell;
    EXPECT_EQ(DeleteFolders(Win("file.txt"), 1, nullptr), FALSE);
    EXPECT_EQ(DeleteFolders(Win("missing"), 1, nullptr), FALSE);
    EXPECT_EQ(DeleteFolders(_T(""), 1, nullptr), FALSE);
    EXPECT_TRUE(shell.records.empty());
    EXPECT_TRUE(fs::exists(Host("file.txt")));
}

// Every entry under a host folder with its kind and content (or link target), to prove nothing changed.
std::map<std::string, std::string> Snapshot(const std::string& root) {
    std::map<std::string, std::string> entries;
    std::error_code ignored;
    for (auto it = fs::recursive_directory_iterator(root, ignored); it != fs::recursive_directory_iterator(); it.increment(ignored)) {
        const std::string path = it->path().string();
        if (it->is_symlink()) entries[path] = "link:" + fs::read_symlink(it->path()).string();
        else if (it->is_directory()) entries[path] = "folder";
        else entries[path] = ReadHostFile(path);
    }
    return entries;
}

class Deletion : public Folders {
protected:
    // A tree whose names and links all lead outside it, beside the entries they lead to.
    void MakeHostileTree() {
        WriteFile("outside/victim/keep.txt", "keep");
        WriteFile("outside/file.txt", "file");
        WriteFile("del/..\\victim/inner.txt", "i");
        WriteFile("del/..\\outside\\file.txt", "n");
        WriteFile("del/sub/ro.txt", "r");
        chmod(Host("del/sub/ro.txt").c_str(), 0444);
        chmod(Host("del/sub").c_str(), 0555);
        ASSERT_EQ(symlink(Host("outside/victim").c_str(), Host("del/folder-link").c_str()), 0);
        ASSERT_EQ(symlink(Host("outside/file.txt").c_str(), Host("del/sub-file-link").c_str()), 0);
        ASSERT_EQ(symlink("..", Host("del/up").c_str()), 0);
    }
};

TEST_F(Deletion, DeletesTheNamedFolderAndNothingThatItsNamesOrLinksLeadTo) {
    MakeHostileTree();
    const auto before = Snapshot(Host("outside"));
    ASSERT_EQ(before.size(), 3u);
    EXPECT_EQ(DeleteFolders(Win("del"), 1, nullptr), TRUE);
    EXPECT_FALSE(fs::exists(fs::symlink_status(Host("del"))));
    EXPECT_EQ(Snapshot(Host("outside")), before);
}

TEST_F(Deletion, RefusesRootsTheCurrentFolderAndPathsWithANulInside) {
    WriteFile("a/here/x.txt", "x");
    WriteFile("asked/x.txt", "x");
    WriteFile("other/x.txt", "x");
    WCHAR saved[MAX_PATH];
    ASSERT_GT(sys().GetCurrentDirectoryW(MAX_PATH, saved), 0u);
    ASSERT_TRUE(sys().SetCurrentDirectoryW(Win("a\\here")));
    const auto before = Snapshot(root_);
    CString twoInOne = Win("asked");
    twoInOne += _T('\0');
    twoInOne += Win("other");
    const CString refused[] = {Win(""), Win("a\\.."), W("T:"), W("\\\\?\\"), W("\\\\?\\T:\\"), Win("a\\here"), Win("a"), W("T:."),
                               twoInOne};
    for (const CString& path : refused) EXPECT_EQ(DeleteFolders(path, 1, nullptr), FALSE) << U(path);
    EXPECT_EQ(Snapshot(root_), before);
    ASSERT_TRUE(sys().SetCurrentDirectoryW(saved));
}

TEST_F(Deletion, GoesOnPastWhatItCannotDeleteAndLeavesExactlyThat) {
    WriteFile("tree/a/held.txt", "h");
    WriteFile("tree/a/free.txt", "f");
    WriteFile("tree/b/free.txt", "f");
    HANDLE held = sys().CreateFileW(Win("tree\\a\\held.txt"), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(held, INVALID_HANDLE_VALUE);
    EXPECT_EQ(DeleteFolders(Win("tree"), 1, nullptr), FALSE);
    sys().CloseHandle(held);
    EXPECT_EQ(Snapshot(Host("tree")), (std::map<std::string, std::string>{{Host("tree/a"), "folder"}, {Host("tree/a/held.txt"), "h"}}));
}

TEST_F(Deletion, DeletesATreeDeeperThanAHostPathCanName) {
    // Made level by level from descriptors: the whole is longer than a host path may be (PATH_MAX).
    MakeFolder("deep");
    int folder = open(Host("deep").c_str(), O_RDONLY | O_DIRECTORY);
    for (int i = 0; i < 2100 && folder >= 0; ++i) {
        mkdirat(folder, "d", 0700);
        const int inner = openat(folder, "d", O_RDONLY | O_DIRECTORY);
        close(folder);
        folder = inner;
    }
    ASSERT_GE(folder, 0);
    close(openat(folder, "x.txt", O_CREAT | O_WRONLY, 0600));
    close(folder);
    EXPECT_EQ(DeleteFolders(Win("deep"), 1, nullptr), TRUE);
    EXPECT_FALSE(fs::exists(Host("deep")));
}

}  // namespace
