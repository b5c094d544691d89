// Folder comparison: every difference bit alone and combined, the two runs of results, and the forms in
// which the folders are given.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "support/scripted_files.h"

namespace {

using testing_support::HostFolderTest;
using testing_support::W;

using Results = std::vector<std::pair<std::string, DWORD>>;

constexpr time_t kBase = 1700000000;

class CompareFolders : public HostFolderTest {
protected:
    void SetWritten(const std::string& relative, time_t seconds, long nanoseconds = 0) {
        const struct timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
        ASSERT_EQ(utimensat(AT_FDCWD, Host(relative).c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << relative;
    }
    // Writing into a folder changes its time; give every entry of both trees the same one afterwards.
    void SettleTimes() {
        for (const char* top : {"A", "B"}) {
            std::error_code ignored;
            if (!std::filesystem::exists(Host(top))) continue;
            for (auto& entry : std::filesystem::recursive_directory_iterator(Host(top)))
                SetWritten(entry.path().string().substr(root_.size() + 1), kBase);
            SetWritten(top, kBase);
        }
    }
    void WriteBoth(const std::string& relative, const std::string& inA, const std::string& inB) {
        WriteFile("A/" + relative, inA);
        WriteFile("B/" + relative, inB);
    }
    Results Compare(const char* a, const char* b, int bothWays = 0, int useHash = 0) {
        FileListNode head{};
        CompareFolder(W(a), W(b), &head, bothWays, useHash);
        return testing_support::TakeChain(head);
    }
};

TEST_F(CompareFolders, EachDifferenceBitAndTheirCombinations) {
    WriteBoth("newer.txt", "abc", "abc");
    WriteBoth("bigger_older.txt", "abcdef", "abc");
    WriteBoth("content.txt", "abc", "abd");
    WriteBoth("everything.txt", "abcd", "abc");
    WriteBoth("subsecond.txt", "abc", "abc");
    WriteFile("A/only_a.txt", "a");
    WriteFile("B/only_b.txt", "b");
    SettleTimes();
    SetWritten("A/newer.txt", kBase + 60);
    SetWritten("B/bigger_older.txt", kBase + 60);
    SetWritten("A/everything.txt", kBase + 1);
    SetWritten("A/subsecond.txt", kBase, 900000000);  // less than a second apart counts as equal
    SetWritten("A", kBase);

    EXPECT_EQ(Compare("T:\\A", "T:\\B"), (Results{{"\\bigger_older.txt", SizeDiffers | NewerInB},
                                                  {"\\everything.txt", NewerInA | SizeDiffers},
                                                  {"\\newer.txt", NewerInA},
                                                  {"\\only_a.txt", OnlyInA}}));
    EXPECT_EQ(Compare("T:\\A", "T:\\B", 0, 1), (Results{{"\\bigger_older.txt", SizeDiffers | NewerInB | ContentDiffers},
                                                        {"\\content.txt", ContentDiffers},
                                                        {"\\everything.txt", NewerInA | SizeDiffers | ContentDiffers},
                                                        {"\\newer.txt", NewerInA},
                                                        {"\\only_a.txt", OnlyInA}}));
    // Option flags count only when they equal 1.
    EXPECT_EQ(Compare("T:\\A", "T:\\B", 2, 2), Compare("T:\\A", "T:\\B"));
    // Entries only in B come last, in a run of their own.
    const Results both = Compare("T:\\A", "T:\\B", 1, 0);
    ASSERT_EQ(both.size(), 5u);
    EXPECT_EQ(both.back(), (std::pair<std::string, DWORD>{"\\only_b.txt", OnlyInB}));
}

TEST_F(CompareFolders, FolderOnlyInAIsReportedWithEverythingBelowIt) {
    WriteFile("A/sub/deep/f.txt", "x");
    MakeFolder("B");
    SettleTimes();
    EXPECT_EQ(Compare("T:\\A", "T:\\B"),
              (Results{{"\\sub\\", OnlyInA}, {"\\sub\\deep\\", OnlyInA}, {"\\sub\\deep\\f.txt", OnlyInA}}));
    EXPECT_EQ(Compare("T:\\A\\", "T:\\B\\"),
              (Results{{"sub\\", OnlyInA}, {"sub\\deep\\", OnlyInA}, {"sub\\deep\\f.txt", OnlyInA}}));
}

TEST_F(CompareFolders, WhatAFolderLinkLeadsToIsComparedLikeAFolder) {
    WriteFile("elsewhere/x.txt", "x");
    MakeFolder("A");
    MakeFolder("B/out");
    ASSERT_EQ(symlink(Host("elsewhere").c_str(), Host("A/out").c_str()), 0);
    ASSERT_EQ(symlink(Host("A").c_str(), Host("elsewhere/back").c_str()), 0);  // leads back: not entered
    EXPECT_EQ(Compare("T:\\A", "T:\\B", 1),
              (Results{{"\\out\\back\\", OnlyInA}, {"\\out\\x.txt", OnlyInA}}));
}

TEST_F(CompareFolders, FoldersOnBothSidesCompareByTimeAlone) {
    WriteBoth("item/inner.txt", "x", "x");
    WriteFile("A/kind", "file in A");
    MakeFolder("B/kind");
    SettleTimes();
    SetWritten("A/item", kBase + 5);
    SetWritten("B/kind", kBase + 5);
    EXPECT_EQ(Compare("T:\\A", "T:\\B", 0, 1), (Results{{"\\item\\", NewerInA}, {"\\kind", NewerInB}}));
}

TEST_F(CompareFolders, IdenticalTreesGiveNoResultButFoldersGivenInDifferentFormsFindNoCounterparts) {
    WriteBoth("x.txt", "x", "x");
    WriteBoth("sub/y.bin", "bytes", "bytes");
    SettleTimes();
    EXPECT_EQ(Compare("T:\\A", "T:\\B", 1, 1), Results{});
    EXPECT_EQ(Compare("T:\\A\\", "T:\\B\\", 1, 1), Results{});
    // The relative path keeps A's form and is joined to B as it stands: T:\Bx.txt does not exist.
    EXPECT_EQ(Compare("T:\\A\\", "T:\\B"), (Results{{"sub\\", OnlyInA}, {"sub\\y.bin", OnlyInA}, {"x.txt", OnlyInA}}));
}

TEST_F(CompareFolders, MissingOrNonFolderArgumentsAndANullTail) {
    WriteFile("A/x.txt", "x");
    WriteFile("file.txt", "x");
    SettleTimes();
    EXPECT_EQ(Compare("T:\\A", "T:\\file.txt", 1, 1), Results{});
    EXPECT_EQ(Compare("T:\\file.txt", "T:\\A", 1, 1), Results{});
    // A missing folder passes the folder test and lists nothing.
    EXPECT_EQ(Compare("T:\\A", "T:\\missing"), (Results{{"\\x.txt", OnlyInA}}));
    EXPECT_EQ(Compare("T:\\missing", "T:\\A", 1), (Results{{"\\x.txt", OnlyInB}}));
    CompareFolder(W("T:\\A"), W("T:\\missing"), nullptr, 1, 1);  // nothing to chain to: nothing done
}

TEST_F(CompareFolders, FileThatCannotBeHashedKeepsItsOtherBits) {
    WriteBoth("locked.txt", "abcd", "abc");
    SettleTimes();
    HANDLE other = sys().CreateFileW(W("T:\\B\\locked.txt"), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                     OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(other, INVALID_HANDLE_VALUE);
    EXPECT_EQ(Compare("T:\\A", "T:\\B", 0, 1), (Results{{"\\locked.txt", SizeDiffers}}));
    sys().CloseHandle(other);
}

}  // namespace
