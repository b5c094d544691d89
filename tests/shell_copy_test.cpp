// CopyFiles and CopyFilesEx: the shell records they build, their detail codes, and the direct way with
// its overwrite prompt.
#include <gtest/gtest.h>

#include "../copy/copy_internal.h"
#include "support/copy_support.h"

namespace {

using namespace testing_support;
namespace fs = std::filesystem;

using Entries = std::vector<std::string>;

class ShellCopy : public HostFolderTest {};

TEST_F(ShellCopy, CopyFilesOfAFolderCopiesItsContents) {
    MakeFolder("data/sub");
    ShellRecorder shell;
    HWND owner = reinterpret_cast<HWND>(0x77);
    EXPECT_EQ(CopyFiles(Win("data"), Win("bk"), 0, 0, owner), TRUE);
    ASSERT_EQ(shell.records.size(), 1u);
    const ShellRecord& r = shell.records[0];
    EXPECT_EQ(r.owner, owner);
    EXPECT_EQ(r.function, static_cast<UINT>(FO_COPY));
    EXPECT_EQ(r.from, Entries{"T:\\data\\*.*"});
    EXPECT_EQ(r.to, Entries{"T:\\bk"});
    EXPECT_EQ(r.flags, FOF_NOCONFIRMMKDIR);
    EXPECT_EQ(r.aborted, FALSE);
    EXPECT_EQ(r.mappings, nullptr);
    EXPECT_EQ(r.title, "");
}

TEST_F(ShellCopy, FlagsFollowSilentAndTheExtraFlags) {
    WriteFile("a.txt", "a");
    struct Case {
        int silent;
        WORD extra;
        FILEOP_FLAGS flags;
    };
    const Case cases[] = {
        {0, 0, 0x200}, {1, 0, 0x614}, {2, 0, 0x200}, {-1, 0, 0x200}, {0, FOF_RENAMEONCOLLISION, 0x208}, {1, FOF_ALLOWUNDO, 0x654},
    };
    for (const Case& c : cases) {
        ShellRecorder shell;
        CopyFiles(Win("a.txt"), Win("bk"), c.silent, c.extra, nullptr);
        ASSERT_EQ(shell.records.size(), 1u);
        EXPECT_EQ(shell.records[0].flags, c.flags) << c.silent << " " << c.extra;
    }
}

TEST_F(ShellCopy, CopyFilesOfAFileNamesTheTargetWithoutTouchingTheBackslashes) {
    WriteFile("a/b.txt", "b");
    ShellRecorder shell;
    EXPECT_EQ(CopyFiles(Win("a\\b.txt"), Win("bk\\"), 1, 0, nullptr), TRUE);
    EXPECT_EQ(CopyFiles(Win("a\\b.txt"), Win("bk"), 1, 0, nullptr), TRUE);
    ASSERT_EQ(shell.records.size(), 2u);
    EXPECT_EQ(shell.records[0].from, Entries{"T:\\a\\b.txt"});
    EXPECT_EQ(shell.records[0].to, Entries{"T:\\bk\\\\b.txt"});
    EXPECT_EQ(shell.records[1].to, Entries{"T:\\bk\\b.txt"});
}

TEST_F(ShellCopy, CopyFilesRefusesBeforeTheShellIsAsked) {
    ShellRecorder shell;
    ApiPatch<&Win32Api::GetFileAttributesW> attributes([](LPCWSTR path) -> DWORD {
        return U(path) == "T:\\missing" ? INVALID_FILE_ATTRIBUTES : FILE_ATTRIBUTE_ARCHIVE;
    });
    EXPECT_EQ(CopyFiles(_T(""), Win("bk"), 1, 0, nullptr), FALSE);
    EXPECT_EQ(CopyFiles(Win("a.txt"), _T(""), 1, 0, nullptr), FALSE);
    EXPECT_EQ(CopyFiles(Win("missing"), Win("bk"), 1, 0, nullptr), FALSE);
    EXPECT_EQ(CopyFiles(_T("name.txt"), Win("bk"), 1, 0, nullptr), FALSE);
    EXPECT_TRUE(shell.records.empty());
    // Shorter than three characters: to the shell as it stands.
    EXPECT_EQ(CopyFiles(_T("ab"), _T("x"), 1, 0, nullptr), TRUE);
    ASSERT_EQ(shell.records.size(), 1u);
    EXPECT_EQ(shell.records[0].from, Entries{"ab"});
    EXPECT_EQ(shell.records[0].to, Entries{"x"});
}

TEST_F(ShellCopy, CopyFilesReportsTheShellsFailure) {
    WriteFile("a.txt", "a");
    ShellRecorder shell(DE_SAMEFILE);
    EXPECT_EQ(CopyFiles(Win("a.txt"), Win("bk"), 1, 0, nullptr), FALSE);
}

TEST_F(ShellCopy, CopyFilesCopiesForRealThroughTheShell) {
    WriteFile("data/a.txt", "a");
    WriteFile("data/sub/b.txt", "bb");
    EXPECT_EQ(CopyFiles(Win("data"), Win("bk"), 1, 0, nullptr), TRUE);
    EXPECT_EQ(ReadHostFile(Host("bk/a.txt")), "a");
    EXPECT_EQ(ReadHostFile(Host("bk/sub/b.txt")), "bb");
    EXPECT_FALSE(fs::exists(Host("bk/data")));
}

struct ExCall {
    int code = 12345;
    BOOL result = -1;
};

TEST_F(ShellCopy, CopyFilesExDetailCodesForRefusals) {
    ShellRecorder shell;
    ApiPatch<&Win32Api::GetFileAttributesW> attributes([](LPCWSTR path) -> DWORD {
        return U(path) == "T:\\missing" ? INVALID_FILE_ATTRIBUTES : FILE_ATTRIBUTE_ARCHIVE;
    });
    struct Case {
        CString source, destination;
        int code;
    };
    const Case cases[] = {
        {_T(""), Win("bk"), -2}, {Win("a.txt"), _T(""), -2}, {Win("missing"), Win("bk"), -3}, {_T("a.txt"), Win("bk"), -4},
    };
    for (const Case& c : cases) {
        int code = 12345;
        EXPECT_EQ(CopyFilesEx(c.source, c.destination, 1, 0, 0, 0, 0, &code, nullptr), FALSE);
        EXPECT_EQ(code, c.code) << U(c.source) << " -> " << U(c.destination);
        // Without a pointer for the code the call still answers.
        EXPECT_EQ(CopyFilesEx(c.source, c.destination, 1, 0, 0, 0, 0, nullptr, nullptr), FALSE);
    }
    EXPECT_TRUE(shell.records.empty());
}

TEST_F(ShellCopy, CopyFilesExRebuildsTheFolderNameOrTheWholePath) {
    MakeFolder("x/data");
    struct Case {
        BOOL withFolderName, withFullPath;
        const char* destination;
        const char* to;
    };
    const Case cases[] = {
        {0, 0, "bk\\", "T:\\bk\\"},  // untouched without either option
        {1, 0, "bk\\\\", "T:\\bk\\data"},
        {0, 1, "bk", "T:\\bk\\x\\data"},
        {1, 1, "bk\\", "T:\\bk\\x\\data"},
        {2, 0, "bk", "T:\\bk"},
    };
    for (const Case& c : cases) {
        ShellRecorder shell(0);
        int code = 12345;
        EXPECT_EQ(CopyFilesEx(Win("x\\data"), Win(c.destination), 1, 0, c.withFolderName, c.withFullPath, 1000, &code, nullptr), TRUE);
        EXPECT_EQ(code, 0);
        ASSERT_EQ(shell.records.size(), 1u);
        EXPECT_EQ(shell.records[0].from, Entries{"T:\\x\\data\\*.*"});
        EXPECT_EQ(shell.records[0].to, Entries{c.to}) << c.withFolderName << c.withFullPath;
        EXPECT_EQ(shell.records[0].flags, 0x614);
    }
}

TEST_F(ShellCopy, CopyFilesExOfAFileIgnoresTheFolderNameOption) {
    WriteFile("x/data.txt", "12345");
    for (BOOL withFolderName : {0, 1}) {
        ShellRecorder shell(0);
        int code = 12345;
        EXPECT_EQ(CopyFilesEx(Win("x\\data.txt"), Win("bk\\\\"), 1, 0, withFolderName, 0, 0, &code, nullptr), TRUE);
        ASSERT_EQ(shell.records.size(), 1u);
        EXPECT_EQ(shell.records[0].to, Entries{"T:\\bk\\data.txt"});
    }
    ShellRecorder shell(0);
    CopyFilesEx(Win("x\\data.txt"), Win("bk"), 1, 0, 0, 1, 0, nullptr, nullptr);
    ASSERT_EQ(shell.records.size(), 1u);
    EXPECT_EQ(shell.records[0].to, Entries{"T:\\bk\\x\\data.txt"});
}

TEST_F(ShellCopy, CopyFilesExPassesTheShellsResultAsTheCode) {
    MakeFolder("data");
    ShellRecorder shell(ERROR_CANCELLED);
    int code = 0;
    EXPECT_EQ(CopyFilesEx(Win("data"), Win("bk"), 1, 0, 0, 0, 0, &code, nullptr), FALSE);
    EXPECT_EQ(code, ERROR_CANCELLED);
}

// Which way a file went: the direct copy or the shell.
struct Route {
    int direct = 0;
    int shell = 0;
};

TEST_F(ShellCopy, DirectWayThresholds) {
    struct Case {
        size_t size;
        ULONGLONG limit;
        int silent;
        WORD extra;
        bool direct;
    };
    const Case cases[] = {
        {10, 10, 0, 0, true},                    // exactly the limit
        {11, 10, 0, 0, false},                   // one byte more
        {0, 0, 0, 0, true},                      // a limit of 0 still takes empty files
        {1, 0, 0, 0, false},
        {10, 100, 2, 0, false},                  // silent 2: the shell, with its dialogs
        {10, 100, 1, 0, false},
        {10, 100, 0, FOF_NOCONFIRMATION, false}, // the shell replaces without asking
        {10, ~0ULL, 0, FOF_SILENT, true},
    };
    for (const Case& c : cases) {
        WriteFile("src/f.bin", std::string(c.size, 'x'));
        Route route;
        ApiPatch<&Win32Api::CopyFileW> direct([&](LPCWSTR, LPCWSTR, BOOL) {
            ++route.direct;
            return TRUE;
        });
        ApiPatch<&Win32Api::SHFileOperationW> shell([&](LPSHFILEOPSTRUCTW) {
            ++route.shell;
            return 0;
        });
        int code = 12345;
        EXPECT_EQ(CopyFilesEx(Win("src\\f.bin"), Win("bk"), c.silent, c.extra, 0, 0, c.limit, &code, nullptr), TRUE);
        EXPECT_EQ(code, 0);
        EXPECT_EQ(route.direct, c.direct ? 1 : 0) << c.size << " " << c.limit << " " << c.silent << " " << c.extra;
        EXPECT_EQ(route.shell, c.direct ? 0 : 1) << c.size << " " << c.limit << " " << c.silent << " " << c.extra;
    }
}

TEST_F(ShellCopy, DirectWayAsksBeforeReplacing) {
    struct Case {
        int answer;
        BOOL result;
        int code;
        bool replaced;
    };
    const Case cases[] = {
        {kReplaceButton, TRUE, 0, true},
        {kSkipButton, FALSE, ERROR_ALREADY_EXISTS, false},
        {IDCANCEL, FALSE, ERROR_ALREADY_EXISTS, false},  // closed with Esc: skipped, not cancelled
        {kCancelCopyButton, FALSE, -1, false},
        {vlx::kDialogCannotBeShown, TRUE, 0, true},  // no prompt: copied as if replace was chosen
    };
    for (const Case& c : cases) {
        WriteFile("src/a.txt", "new");
        WriteFile("bk/a.txt", "old");
        std::string shownName;
        HWND shownOwner = nullptr;
        ScopedResponder user([&](const vlx::DialogRequest& request) {
            shownName = U(request.taskDialog->pszContent);
            shownOwner = request.owner;
            return c.answer;
        });
        int code = 12345;
        HWND owner = reinterpret_cast<HWND>(0x99);
        EXPECT_EQ(CopyFilesEx(Win("src\\a.txt"), Win("bk"), 0, 0, 0, 0, 100, &code, owner), c.result);
        EXPECT_EQ(code, c.code) << c.answer;
        EXPECT_EQ(ReadHostFile(Host("bk/a.txt")), c.replaced ? "new" : "old") << c.answer;
        EXPECT_EQ(shownName, "宛先には既に \"a.txt\" という名前のファイルが存在します");
        EXPECT_EQ(shownOwner, owner);
    }
}

TEST_F(ShellCopy, DirectWayMakesTheTargetFolderAndReportsCopyErrors) {
    WriteFile("x/a.txt", "a");
    int code = 12345;
    EXPECT_EQ(CopyFilesEx(Win("x\\a.txt"), Win("bk\\deep"), 0, 0, 0, 1, 100, &code, nullptr), TRUE);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(ReadHostFile(Host("bk/deep/x/a.txt")), "a");

    ApiPatch<&Win32Api::CopyFileW> failing([](LPCWSTR, LPCWSTR, BOOL failIfExists) {
        EXPECT_EQ(failIfExists, FALSE);
        sys().SetLastError(ERROR_DISK_FULL);
        return FALSE;
    });
    code = 12345;
    EXPECT_EQ(CopyFilesEx(Win("x\\a.txt"), Win("other"), 0, 0, 0, 0, 100, &code, nullptr), FALSE);
    EXPECT_EQ(code, ERROR_DISK_FULL);
}

TEST_F(ShellCopy, DirectWayMakesNoFolderForAFileStraightUnderARoot) {
    WriteFile("a.txt", "a");
    std::vector<std::string> made;
    ApiPatch<&Win32Api::CreateDirectoryW> record([&](LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
        made.push_back(U(path));
        return record.Original()(path, security);
    });
    ApiPatch<&Win32Api::CopyFileW> copy([](LPCWSTR, LPCWSTR to, BOOL) {
        EXPECT_EQ(U(to), "T:\\a.txt");
        return TRUE;
    });
    EXPECT_EQ(CopyFilesEx(Win("a.txt"), _T("T:\\"), 0, 0, 0, 0, 100, nullptr, nullptr), TRUE);
    EXPECT_TRUE(made.empty());
}

}  // namespace
