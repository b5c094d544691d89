// CopyFiles and CopyFilesEx: the shell records they build, their detail codes (the shell's result as the
// code for CopyFilesMultiEx too), and the direct way with its overwrite prompt.
#include <gtest/gtest.h>

#include "../copy/copy_internal.h"
#include "support/copy_support.h"

namespace {

using namespace testing_support;

class ShellCopy : public HostFolderTest {};

TEST_F(ShellCopy, CopyFilesHandsTheShellAFoldersContentsOrAFileUnderItsNameWithFlagsFromSilentAndTheExtraFlags) {
    MakeFolder("data/sub");
    WriteFile("a/b.txt", "b");
    const HWND owner = reinterpret_cast<HWND>(0x77);
    const struct Case {
        const char *source, *destination;
        int silent;
        WORD extra;
        const char *from, *to;
        FILEOP_FLAGS flags;
    } cases[] = {
        {"data", "bk", 0, 0, "T:\\data\\*.*", "T:\\bk", FOF_NOCONFIRMMKDIR},
        {"a\\b.txt", "bk\\", 1, 0, "T:\\a\\b.txt", "T:\\bk\\\\b.txt", 0x614},  // the destination's backslash is kept
        {"a\\b.txt", "bk", 2, 0, "T:\\a\\b.txt", "T:\\bk\\b.txt", 0x200},
        {"a\\b.txt", "bk", -1, 0, "T:\\a\\b.txt", "T:\\bk\\b.txt", 0x200},
        {"a\\b.txt", "bk", 0, FOF_RENAMEONCOLLISION, "T:\\a\\b.txt", "T:\\bk\\b.txt", 0x208},
        {"a\\b.txt", "bk", 1, FOF_ALLOWUNDO, "T:\\a\\b.txt", "T:\\bk\\b.txt", 0x654},
    };
    for (const Case& c : cases) {
        ShellRecorder shell;
        EXPECT_EQ(CopyFiles(Win(c.source), Win(c.destination), c.silent, c.extra, owner), TRUE);
        EXPECT_EQ(shell.records, (ShellRecords{{.owner = owner, .from = {c.from}, .to = {c.to}, .flags = c.flags}}))
            << c.source << " " << c.silent << " " << c.extra;
    }
}

TEST_F(ShellCopy, RefusalsComeBeforeTheShellIsAskedWithTheirDetailCodes) {
    ShellRecorder shell;
    ApiPatch<&Win32Api::GetFileAttributesW> attributes([](LPCWSTR path) -> DWORD {
        return U(path) == "T:\\missing" ? INVALID_FILE_ATTRIBUTES : FILE_ATTRIBUTE_ARCHIVE;
    });
    const struct Case {
        CString source, destination;
        int code;
    } cases[] = {
        {_T(""), Win("bk"), -2}, {Win("a.txt"), _T(""), -2}, {Win("missing"), Win("bk"), -3}, {_T("a.txt"), Win("bk"), -4},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(CopyFiles(c.source, c.destination, 1, 0, nullptr), FALSE);
        int code = 12345;
        EXPECT_EQ(CopyFilesEx(c.source, c.destination, 1, 0, 0, 0, 0, &code, nullptr), FALSE);
        EXPECT_EQ(code, c.code) << U(c.source) << " -> " << U(c.destination);
        // Without a pointer for the code the call still answers.
        EXPECT_EQ(CopyFilesEx(c.source, c.destination, 1, 0, 0, 0, 0, nullptr, nullptr), FALSE);
    }
    EXPECT_TRUE(shell.records.empty());
    // A source shorter than three characters goes to CopyFiles' shell as it stands.
    EXPECT_EQ(CopyFiles(_T("ab"), _T("x"), 1, 0, nullptr), TRUE);
    EXPECT_EQ(shell.records, (ShellRecords{{.from = {"ab"}, .to = {"x"}, .flags = 0x614}}));
}

TEST_F(ShellCopy, EveryShellCopysFailureFailsTheCallAndIsTheDetailCode) {
    MakeFolder("data");
    ShellRecorder shell(ERROR_CANCELLED);
    EXPECT_EQ(CopyFiles(Win("data"), Win("bk"), 1, 0, nullptr), FALSE);
    int code = 0;
    EXPECT_EQ(CopyFilesEx(Win("data"), Win("bk"), 1, 0, 0, 0, 0, &code, nullptr), FALSE);
    EXPECT_EQ(code, ERROR_CANCELLED);
    CStringArray sources;
    sources.Add(Win("data"));
    code = 0;
    EXPECT_EQ(CopyFilesMultiEx(&sources, Win("bk"), 1, 0, 0, 0, &code, nullptr), FALSE);
    EXPECT_EQ(code, ERROR_CANCELLED);
}

TEST_F(ShellCopy, CopyFilesExRebuildsTheFolderNameOrTheWholePath) {
    MakeFolder("x/data");
    WriteFile("x/data.txt", "12345");
    const struct Case {
        const char* source;
        BOOL withFolderName, withFullPath;
        const char *destination, *from, *to;
    } cases[] = {
        {"x\\data", 0, 0, "bk\\", "T:\\x\\data\\*.*", "T:\\bk\\"},  // untouched without either option
        {"x\\data", 1, 0, "bk\\\\", "T:\\x\\data\\*.*", "T:\\bk\\data"},
        {"x\\data", 0, 1, "bk", "T:\\x\\data\\*.*", "T:\\bk\\x\\data"},
        {"x\\data", 1, 1, "bk\\", "T:\\x\\data\\*.*", "T:\\bk\\x\\data"},
        {"x\\data", 2, 0, "bk", "T:\\x\\data\\*.*", "T:\\bk"},
        {"x\\data.txt", 0, 0, "bk\\\\", "T:\\x\\data.txt", "T:\\bk\\data.txt"},  // a file's name always follows
        {"x\\data.txt", 1, 0, "bk\\\\", "T:\\x\\data.txt", "T:\\bk\\data.txt"},
        {"x\\data.txt", 0, 1, "bk", "T:\\x\\data.txt", "T:\\bk\\x\\data.txt"},
    };
    for (const Case& c : cases) {
        ShellRecorder shell;
        int code = 12345;
        EXPECT_EQ(CopyFilesEx(Win(c.source), Win(c.destination), 1, 0, c.withFolderName, c.withFullPath, 1000, &code, nullptr), TRUE);
        EXPECT_EQ(code, 0);
        EXPECT_EQ(shell.records, (ShellRecords{{.from = {c.from}, .to = {c.to}, .flags = 0x614}}))
            << c.source << " " << c.withFolderName << c.withFullPath;
    }
}

TEST_F(ShellCopy, DirectWayThresholds) {
    const struct Case {
        size_t size;
        ULONGLONG limit;
        int silent;
        WORD extra;
        bool direct;
    } cases[] = {
        {10, 10, 0, 0, true},                     // exactly the limit
        {11, 10, 0, 0, false},                    // one byte more
        {0, 0, 0, 0, true},                       // a limit of 0 still takes empty files
        {1, 0, 0, 0, false},
        {10, 100, 2, 0, false},                   // silent 2: the shell, with its dialogs
        {10, 100, 1, 0, false},
        {10, 100, 0, FOF_NOCONFIRMATION, false},  // the shell replaces without asking
        {10, ~0ULL, 0, FOF_SILENT, true},
    };
    for (const Case& c : cases) {
        WriteFile("src/f.bin", std::string(c.size, 'x'));
        int direct = 0;
        ApiPatch<&Win32Api::CopyFileW> copy([&](LPCWSTR, LPCWSTR, BOOL) { return ++direct, TRUE; });
        ShellRecorder shell;
        int code = 12345;
        EXPECT_EQ(CopyFilesEx(Win("src\\f.bin"), Win("bk"), c.silent, c.extra, 0, 0, c.limit, &code, nullptr), TRUE);
        EXPECT_EQ(code, 0);
        EXPECT_EQ(direct, c.direct ? 1 : 0) << c.size << " " << c.limit << " " << c.silent << " " << c.extra;
        EXPECT_EQ(shell.records.size(), c.direct ? 0u : 1u) << c.size << " " << c.limit << " " << c.silent << " " << c.extra;
    }
}

TEST_F(ShellCopy, DirectWayAsksBeforeReplacing) {
    const struct Case {
        int answer;
        BOOL result;
        int code;
        bool replaced;
    } cases[] = {
        {kReplaceButton, TRUE, 0, true},
        {kSkipButton, FALSE, ERROR_ALREADY_EXISTS, false},
        {IDCANCEL, FALSE, ERROR_ALREADY_EXISTS, false},  // closed with Esc: skipped, not cancelled
        {kCancelCopyButton, FALSE, -1, false},
        {vlx::kDialogCannotBeShown, TRUE, 0, true},  // no prompt: copied as if replace was chosen
    };
    const HWND owner = reinterpret_cast<HWND>(0x99);
    for (const Case& c : cases) {
        WriteFile("src/a.txt", "new");
        WriteFile("bk/a.txt", "old");
        ScopedResponder user([&](const vlx::DialogRequest& request) {
            EXPECT_EQ(U(request.taskDialog->pszContent), "宛先には既に \"a.txt\" という名前のファイルが存在します");
            EXPECT_EQ(request.owner, owner);
            return c.answer;
        });
        int code = 12345;
        EXPECT_EQ(CopyFilesEx(Win("src\\a.txt"), Win("bk"), 0, 0, 0, 0, 100, &code, owner), c.result);
        EXPECT_EQ(code, c.code) << c.answer;
        EXPECT_EQ(ReadHostFile(Host("bk/a.txt")), c.replaced ? "new" : "old") << c.answer;
    }
}

TEST_F(ShellCopy, DirectWayAsksOnlyWhenTheTargetExists) {
    WriteFile("src/a.txt", "new");
    int asked = 0;
    // An answer that would stop the copy, had there been a question.
    ScopedResponder user([&](const vlx::DialogRequest&) { return ++asked, kSkipButton; });
    int code = 12345;
    EXPECT_EQ(CopyFilesEx(Win("src\\a.txt"), Win("bk"), 0, 0, 0, 0, 100, &code, nullptr), TRUE);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(asked, 0);
    EXPECT_EQ(ReadHostFile(Host("bk/a.txt")), "new");
}

TEST_F(ShellCopy, DirectWayMakesTheTargetFolderButNoneUnderARootAndReportsCopyErrors) {
    WriteFile("x/a.txt", "a");
    int code = 12345;
    EXPECT_EQ(CopyFilesEx(Win("x\\a.txt"), Win("bk\\deep"), 0, 0, 0, 1, 100, &code, nullptr), TRUE);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(ReadHostFile(Host("bk/deep/x/a.txt")), "a");

    std::vector<std::string> made;
    ApiPatch<&Win32Api::CreateDirectoryW> record([&](LPCWSTR path, LPSECURITY_ATTRIBUTES) { return made.push_back(U(path)), TRUE; });
    ApiPatch<&Win32Api::CopyFileW> failing([](LPCWSTR, LPCWSTR to, BOOL failIfExists) {
        EXPECT_EQ(U(to), "T:\\a.txt");
        EXPECT_EQ(failIfExists, FALSE);
        sys().SetLastError(ERROR_DISK_FULL);
        return FALSE;
    });
    code = 12345;
    EXPECT_EQ(CopyFilesEx(Win("x\\a.txt"), _T("T:\\"), 0, 0, 0, 0, 100, &code, nullptr), FALSE);
    EXPECT_EQ(code, ERROR_DISK_FULL);
    EXPECT_TRUE(made.empty());
}

}  // namespace
