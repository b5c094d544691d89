// CreateFolders and DeleteFolders on a host-folder volume.
#include <gtest/gtest.h>

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

}  // namespace
