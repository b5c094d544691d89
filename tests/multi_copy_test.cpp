// CopyFilesMultiEx: the lists it packs, its flags and detail codes, and lists that outgrow their first size.
#include <gtest/gtest.h>

#include "support/copy_support.h"

namespace {

using namespace testing_support;
namespace fs = std::filesystem;

using Entries = std::vector<std::string>;

class MultiCopy : public HostFolderTest {
protected:
    CStringArray Sources(std::initializer_list<std::string> relatives) const {
        CStringArray sources;
        for (const std::string& relative : relatives) sources.Add(Win(relative));
        return sources;
    }
};

TEST_F(MultiCopy, DetailCodesForRefusals) {
    ShellRecorder shell;
    int code = 12345;
    EXPECT_EQ(CopyFilesMultiEx(nullptr, Win("bk"), 1, 0, 0, 0, &code, nullptr), FALSE);
    EXPECT_EQ(code, -1);
    CStringArray empty;
    EXPECT_EQ(CopyFilesMultiEx(&empty, Win("bk"), 1, 0, 0, 0, &code, nullptr), FALSE);
    EXPECT_EQ(code, -2);
    CStringArray one = Sources({"a.txt"});
    EXPECT_EQ(CopyFilesMultiEx(&one, _T(""), 1, 0, 0, 0, &code, nullptr), FALSE);
    EXPECT_EQ(code, -2);
    // Every source missing, or without a backslash: nothing accepted.
    WriteFile("here.txt", "x");
    CStringArray none = Sources({"missing1", "missing2"});
    none.Add(_T("here.txt"));
    EXPECT_EQ(CopyFilesMultiEx(&none, Win("bk"), 1, 0, 0, 0, &code, nullptr), FALSE);
    EXPECT_EQ(code, -7);
    EXPECT_EQ(CopyFilesMultiEx(&none, Win("bk"), 1, 0, 0, 0, nullptr, nullptr), FALSE);
    EXPECT_TRUE(shell.records.empty());
}

TEST_F(MultiCopy, OneAcceptedSourceGoesWithoutMultipleDestinations) {
    WriteFile("a.txt", "a");
    CStringArray sources = Sources({"a.txt", "missing.txt"});
    ShellRecorder shell;
    int code = 12345;
    HWND owner = reinterpret_cast<HWND>(0x31);
    EXPECT_EQ(CopyFilesMultiEx(&sources, Win("bk"), 0, 0, 0, 0, &code, owner), TRUE);
    EXPECT_EQ(code, 0);
    ASSERT_EQ(shell.records.size(), 1u);
    const ShellRecord& r = shell.records[0];
    EXPECT_EQ(r.owner, owner);
    EXPECT_EQ(r.function, static_cast<UINT>(FO_COPY));
    EXPECT_EQ(r.from, Entries{"T:\\a.txt"});
    EXPECT_EQ(r.to, Entries{"T:\\bk\\a.txt"});
    EXPECT_EQ(r.flags, FOF_NOCONFIRMMKDIR);
    EXPECT_EQ(r.title, "");
}

TEST_F(MultiCopy, PairsEverySourceWithItsDestination) {
    MakeFolder("x/data");
    MakeFolder("y/data");
    WriteFile("f.txt", "f");
    struct Case {
        BOOL withFolderName, withFullPath;
        const char* destination;
        Entries to;
    };
    const Case cases[] = {
        {0, 0, "bk", {"T:\\bk", "T:\\bk", "T:\\bk\\f.txt"}},
        {0, 0, "bk\\", {"T:\\bk\\", "T:\\bk\\", "T:\\bk\\\\f.txt"}},  // a file's destination is not trimmed
        {1, 0, "bk\\", {"T:\\bk\\data", "T:\\bk\\data", "T:\\bk\\\\f.txt"}},
        {0, 1, "bk", {"T:\\bk\\x\\data", "T:\\bk\\y\\data", "T:\\bk\\f.txt"}},
    };
    for (const Case& c : cases) {
        CStringArray sources = Sources({"x\\data", "y\\data", "f.txt"});
        ShellRecorder shell;
        int code = 12345;
        EXPECT_EQ(CopyFilesMultiEx(&sources, Win(c.destination), 1, FOF_FILESONLY, c.withFolderName, c.withFullPath, &code, nullptr), TRUE);
        ASSERT_EQ(shell.records.size(), 1u);
        EXPECT_EQ(shell.records[0].from, (Entries{"T:\\x\\data\\*.*", "T:\\y\\data\\*.*", "T:\\f.txt"}));
        EXPECT_EQ(shell.records[0].to, c.to) << c.withFolderName << c.withFullPath << c.destination;
        EXPECT_EQ(shell.records[0].flags, 0x614 | FOF_MULTIDESTFILES | FOF_FILESONLY);
    }
}

TEST_F(MultiCopy, ListsGrowForEntriesLongerThanTheirShare) {
    // One source, so a share of 261 units: the folder with "\*.*" and the rebuilt destination need more.
    const std::string longName(120, 'n');
    const std::string folder = longName + "/" + longName;
    MakeFolder(folder);
    CStringArray sources = Sources({longName + "\\" + longName});
    const std::string destination = "bk\\" + std::string(200, 'd');
    ShellRecorder shell;
    int code = 12345;
    EXPECT_EQ(CopyFilesMultiEx(&sources, Win(destination), 1, 0, 0, 1, &code, nullptr), TRUE);
    ASSERT_EQ(shell.records.size(), 1u);
    EXPECT_EQ(shell.records[0].from, Entries{"T:\\" + longName + "\\" + longName + "\\*.*"});
    EXPECT_EQ(shell.records[0].to, Entries{"T:\\" + destination + "\\" + longName + "\\" + longName});
    EXPECT_GT(shell.records[0].to[0].size(), 261u);
}

TEST_F(MultiCopy, PassesTheShellsResultAsTheCode) {
    WriteFile("a.txt", "a");
    CStringArray sources = Sources({"a.txt"});
    ShellRecorder shell(ERROR_CANCELLED);
    int code = 0;
    EXPECT_EQ(CopyFilesMultiEx(&sources, Win("bk"), 1, 0, 0, 0, &code, nullptr), FALSE);
    EXPECT_EQ(code, ERROR_CANCELLED);
}

TEST_F(MultiCopy, CopiesFoldersAndFilesForReal) {
    WriteFile("x/data/one.txt", "1");
    WriteFile("y/data/two.txt", "2");
    WriteFile("f.txt", "f");
    CStringArray sources = Sources({"x\\data", "y\\data", "f.txt"});
    int code = 12345;
    EXPECT_EQ(CopyFilesMultiEx(&sources, Win("bk"), 1, 0, 1, 0, &code, nullptr), TRUE);
    EXPECT_EQ(code, 0);
    // Both folders land together in bk\data.
    EXPECT_TRUE(fs::exists(Host("bk/data/one.txt")));
    EXPECT_TRUE(fs::exists(Host("bk/data/two.txt")));
    EXPECT_TRUE(fs::exists(Host("bk/f.txt")));
}

}  // namespace
