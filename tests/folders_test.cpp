// CreateFolders and DeleteFolders on a host-folder volume.
#include <gtest/gtest.h>

#include "../frame/frame_internal.h"
#include "support/copy_support.h"

namespace {

using namespace testing_support;
namespace fs = std::filesystem;

class Folders : public HostFolderTest {};

TEST_F(Folders, CreateFoldersMakesEveryMissingLevelFromTheTopDown) {
    std::vector<std::string> attempts;
    ApiPatch<&Win32Api::CreateDirectoryW> record([&](LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
        attempts.push_back(U(path));
        EXPECT_EQ(security, nullptr);
        return record.Original()(path, security);
    });
    EXPECT_EQ(CreateFolders(Win("a\\b\\c")), TRUE);
    EXPECT_TRUE(fs::is_directory(Host("a/b/c")));
    EXPECT_EQ(attempts, (std::vector<std::string>{"T:\\a\\b\\c", "T:\\a\\b", "T:\\a", "T:\\a\\b", "T:\\a\\b\\c"}));
}

TEST_F(Folders, CreateFoldersMakesOnlyTheMissingLevel) {
    MakeFolder("a/b");
    std::vector<std::string> attempts;
    ApiPatch<&Win32Api::CreateDirectoryW> record([&](LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
        attempts.push_back(U(path));
        return record.Original()(path, security);
    });
    EXPECT_EQ(CreateFolders(Win("a\\b\\c")), TRUE);
    EXPECT_EQ(attempts, std::vector<std::string>{"T:\\a\\b\\c"});
}

TEST_F(Folders, CreateFoldersAnswersAsItsStepsSay) {
    MakeFolder("top/exists");
    WriteFile("file", "x");
    struct Case {
        CString path;
        BOOL result;
    };
    const Case cases[] = {
        {Win("top\\exists"), TRUE},  // there already: the parent is found
        {Win("file\\b"), TRUE},       // a file in the way: its "parent" exists, though no folder was made
        {_T("bare"), FALSE},          // no backslash: nothing to climb
        {_T("Q:\\a\\b"), FALSE},      // no such drive: the climb ends at the bare "Q:"
        {_T(""), FALSE},
    };
    for (const Case& c : cases) EXPECT_EQ(CreateFolders(c.path), c.result) << U(c.path);
    EXPECT_FALSE(fs::exists(Host("file/b")));
    EXPECT_FALSE(fs::exists(Host("bare")));
}

TEST_F(Folders, CreateFoldersSurvivesAPathOfThousandsOfLevels) {
    CString path = Win("deep");
    for (int i = 0; i < 2000; ++i) path += _T("\\x");
    EXPECT_EQ(CreateFolders(path), FALSE);
}

TEST_F(Folders, DeleteFoldersSilentlyRemovesTheTreeForGood) {
    WriteFile("tree/a.txt", "a");
    WriteFile("tree/sub/b.txt", "b");
    chmod(Host("tree/sub/b.txt").c_str(), 0444);
    std::vector<ShellRecord> records;
    bool stateWasTheLibrarys = false;
    ApiPatch<&Win32Api::SHFileOperationW> record([&](LPSHFILEOPSTRUCTW operation) {
        records.push_back(Capture(*operation));
        stateWasTheLibrarys = AfxGetModuleState() == VelmoraModuleState();
        return record.Original()(operation);
    });
    AFX_MODULE_STATE* callers = AfxGetModuleState();
    HWND owner = reinterpret_cast<HWND>(0x42);
    EXPECT_EQ(DeleteFolders(Win("tree"), 1, owner), TRUE);
    EXPECT_FALSE(fs::exists(Host("tree")));
    EXPECT_TRUE(stateWasTheLibrarys);
    EXPECT_EQ(AfxGetModuleState(), callers);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].owner, owner);
    EXPECT_EQ(records[0].function, static_cast<UINT>(FO_DELETE));
    EXPECT_EQ(records[0].from, std::vector<std::string>{"T:\\tree"});
    EXPECT_TRUE(records[0].toIsEmptyString);
    EXPECT_EQ(records[0].flags, 0x614);
    EXPECT_EQ(records[0].aborted, FALSE);
    EXPECT_EQ(records[0].mappings, nullptr);
    EXPECT_EQ(records[0].title, "");
}

TEST_F(Folders, DeleteFoldersWithQuestionsLetsTheUserDecline) {
    MakeFolder("keep/sub");
    int asked = 0;
    ScopedResponder user([&](const vlx::DialogRequest& request) {
        ++asked;
        EXPECT_EQ(request.kind, vlx::DialogKind::ShellDelete);
        EXPECT_EQ(U(request.target.c_str()), "T:\\keep");
        return IDNO;
    });
    std::vector<ShellRecord> records;
    ApiPatch<&Win32Api::SHFileOperationW> record([&](LPSHFILEOPSTRUCTW operation) {
        records.push_back(Capture(*operation));
        return record.Original()(operation);
    });
    // 2 is not 1: the shell asks.
    EXPECT_EQ(DeleteFolders(Win("keep"), 2, nullptr), FALSE);
    EXPECT_EQ(asked, 1);
    EXPECT_TRUE(fs::is_directory(Host("keep/sub")));
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].flags, 0);
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
