// CopyFilesMultiEx: the lists it packs, its flags and detail codes, and lists that outgrow their first size.
#include <gtest/gtest.h>

#include "support/copy_support.h"

namespace {

using namespace testing_support;

using Entries = std::vector<std::string>;

class MultiCopy : public HostFolderTest {
protected:
    void SetUp() override {
        HostFolderTest::SetUp();
        // T:\ is the current folder, so a source named without a backslash exists and is refused as such.
        ASSERT_GT(sys().GetCurrentDirectoryW(MAX_PATH, callersFolder_), 0u);
        ASSERT_TRUE(sys().SetCurrentDirectoryW(_T("T:\\")));
    }
    void TearDown() override {
        sys().SetCurrentDirectoryW(callersFolder_);
        HostFolderTest::TearDown();
    }
    WCHAR callersFolder_[MAX_PATH] = {};

    CStringArray Sources(std::initializer_list<std::string> relatives) const {
        CStringArray sources;
        for (const std::string& relative : relatives) sources.Add(Win(relative));
        return sources;
    }
};

TEST_F(MultiCopy, DetailCodesForRefusals) {
    WriteFile("here.txt", "x");
    ShellRecorder shell;
    CStringArray empty, one = Sources({"a.txt"}), none = Sources({"missing1", "missing2"});
    none.Add(_T("here.txt"));
    const std::tuple<CStringArray*, CString, int> cases[] = {
        {nullptr, Win("bk"), -1},
        {&empty, Win("bk"), -2},
        {&one, _T(""), -2},
        {&none, Win("bk"), -7},  // every source missing, or there but without a backslash: nothing accepted
    };
    for (const auto& [sources, destination, expected] : cases) {
        int code = 12345;
        EXPECT_EQ(CopyFilesMultiEx(sources, destination, 1, 0, 0, 0, &code, nullptr), FALSE);
        EXPECT_EQ(code, expected);
        EXPECT_EQ(CopyFilesMultiEx(sources, destination, 1, 0, 0, 0, nullptr, nullptr), FALSE);
    }
    EXPECT_TRUE(shell.records.empty());
}

TEST_F(MultiCopy, OneAcceptedSourceGoesWithoutMultipleDestinations) {
    WriteFile("a.txt", "a");
    CStringArray sources = Sources({"a.txt", "missing.txt"});
    sources.Add(_T("a.txt"));  // the same file, named without a backslash: not taken
    ShellRecorder shell;
    int code = 12345;
    HWND owner = reinterpret_cast<HWND>(0x31);
    EXPECT_EQ(CopyFilesMultiEx(&sources, Win("bk"), 0, 0, 0, 0, &code, owner), TRUE);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(shell.records, (ShellRecords{{.owner = owner, .from = {"T:\\a.txt"}, .to = {"T:\\bk\\a.txt"},
                                            .flags = FOF_NOCONFIRMMKDIR}}));
}

TEST_F(MultiCopy, PairsEverySourceWithItsDestination) {
    MakeFolder("x/data");
    MakeFolder("y/data");
    WriteFile("f.txt", "f");
    const struct Case {
        BOOL withFolderName, withFullPath;
        const char* destination;
        Entries to;
    } cases[] = {
        {0, 0, "bk", {"T:\\bk", "T:\\bk", "T:\\bk\\f.txt"}},
        {0, 0, "bk\\", {"T:\\bk\\", "T:\\bk\\", "T:\\bk\\\\f.txt"}},  // a file's destination is not trimmed
        {1, 0, "bk\\", {"T:\\bk\\data", "T:\\bk\\data", "T:\\bk\\\\f.txt"}},
        {0, 1, "bk", {"T:\\bk\\x\\data", "T:\\bk\\y\\data", "T:\\bk\\f.txt"}},
    };
    for (const Case& c : cases) {
        CStringArray sources = Sources({"x\\data", "y\\data", "f.txt"});
        ShellRecorder shell;
        EXPECT_EQ(CopyFilesMultiEx(&sources, Win(c.destination), 1, FOF_FILESONLY, c.withFolderName, c.withFullPath, nullptr, nullptr),
                  TRUE);
        EXPECT_EQ(shell.records, (ShellRecords{{.from = {"T:\\x\\data\\*.*", "T:\\y\\data\\*.*", "T:\\f.txt"}, .to = c.to,
                                                .flags = 0x614 | FOF_MULTIDESTFILES | FOF_FILESONLY}}))
            << c.withFolderName << c.withFullPath << c.destination;
    }
}

TEST_F(MultiCopy, ListsGrowForEntriesLongerThanTheirShare) {
    // One source, so a share of 261 units: the folder with "\*.*" and the rebuilt destination need more.
    const std::string longName(120, 'n');
    MakeFolder(longName + "/" + longName);
    CStringArray sources = Sources({longName + "\\" + longName});
    const std::string destination = "bk\\" + std::string(200, 'd');
    ShellRecorder shell;
    EXPECT_EQ(CopyFilesMultiEx(&sources, Win(destination), 1, 0, 0, 1, nullptr, nullptr), TRUE);
    EXPECT_EQ(shell.records, (ShellRecords{{.from = {"T:\\" + longName + "\\" + longName + "\\*.*"},
                                            .to = {"T:\\" + destination + "\\" + longName + "\\" + longName},
                                            .flags = 0x614}}));
}

TEST_F(MultiCopy, CopiesFoldersAndFilesForReal) {
    WriteFile("x/data/one.txt", "1");
    WriteFile("y/data/two.txt", "2");
    WriteFile("f.txt", "f");
    CStringArray sources = Sources({"x\\data", "y\\data", "f.txt"});
    EXPECT_EQ(CopyFilesMultiEx(&sources, Win("bk"), 1, 0, 1, 0, nullptr, nullptr), TRUE);
    // Both folders land together in bk\data.
    EXPECT_EQ(ReadHostFile(Host("bk/data/one.txt")), "1");
    EXPECT_EQ(ReadHostFile(Host("bk/data/two.txt")), "2");
    EXPECT_EQ(ReadHostFile(Host("bk/f.txt")), "f");
}

}  // namespace
