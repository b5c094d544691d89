// Paths with a NUL inside read as one path to the platform but as two entries of a shell list: the exports
// that build lists refuse them before asking the platform anything.
#include <gtest/gtest.h>

#include "support/copy_support.h"

namespace {

using namespace testing_support;

class EmbeddedNul : public HostFolderTest {};

CString Joined(const CString& first, const CString& second) {
    CString text = first;
    text += _T('\0');
    text += second;
    return text;
}

TEST_F(EmbeddedNul, ListBuildingExportsRefuseAPathWithANulInside) {
    WriteFile("src/a.txt", "a");
    WriteFile("other/b.txt", "b");
    MakeFolder("bk");
    const CString source = Joined(Win("src"), Win("other"));
    const CString destination = Joined(Win("bk"), Win("other"));
    ShellRecorder shell;
    int code = 12345;
    EXPECT_EQ(CopyFiles(source, Win("bk"), 1, 0, nullptr), FALSE);
    EXPECT_EQ(CopyFiles(Win("src"), destination, 1, 0, nullptr), FALSE);
    EXPECT_EQ(CopyFilesEx(source, Win("bk"), 1, 0, 0, 0, 0, &code, nullptr), FALSE);
    EXPECT_EQ(code, -2);
    code = 12345;
    EXPECT_EQ(CopyFilesEx(Win("src\\a.txt"), destination, 0, 0, 0, 0, 100, &code, nullptr), FALSE);
    EXPECT_EQ(code, -2);
    for (const auto& [first, target] : {std::pair{Joined(Win("src"), Win("other")), Win("bk")}, std::pair{Win("src"), destination}}) {
        CStringArray sources;
        sources.Add(Win("src\\a.txt"));
        sources.Add(first);
        code = 12345;
        EXPECT_EQ(CopyFilesMultiEx(&sources, target, 1, 0, 0, 0, &code, nullptr), FALSE);
        EXPECT_EQ(code, -2);
    }
    EXPECT_EQ(DeleteFolders(source, 1, nullptr), FALSE);
    EXPECT_TRUE(shell.records.empty());
    EXPECT_TRUE(std::filesystem::exists(Host("other/b.txt")));
    EXPECT_TRUE(std::filesystem::is_empty(Host("bk")));
}

}  // namespace
