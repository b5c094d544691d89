// CopyFilesNoneShell: single files and folder walks, progress, the extension filter, the result of a walk,
// folder links, the module state of nested calls and a cancel from another thread.
#include <gtest/gtest.h>

#include "../copy/copy_internal.h"
#include "support/canceller.h"
#include "support/copy_support.h"

namespace {

using namespace testing_support;
namespace fs = std::filesystem;

class DirectCopy : public HostFolderTest {
protected:
    BOOL Copy(const CString& source, const CString& destination, LPCTSTR filter = _T(""), CProgressCtrl* bar = nullptr) {
        return CopyFilesNoneShell(source, destination, nullptr, bar, filter);
    }
};

TEST_F(DirectCopy, SingleFileGoesUnderItsStoredNameIntoAnExistingFolderOnlyAndBadArgumentsAreRefused) {
    WriteFile("a/Report.TXT", "report");
    MakeFolder("bk");
    ProgressRecorder bar;
    EXPECT_EQ(Copy(Win("a\\report.txt"), Win("bk"), _T(".doc"), &bar.control), TRUE);  // no filter for a single file
    EXPECT_EQ(ReadHostFile(Host("bk/Report.TXT")), "report");
    EXPECT_EQ(bar.log, "0 R 0 R 100 100 ");
    // No folder is made for a single file, and empty or missing arguments are refused.
    EXPECT_EQ(Copy(Win("a\\report.txt"), Win("missing")), FALSE);
    EXPECT_EQ(Copy(_T(""), Win("missing")), FALSE);
    EXPECT_EQ(Copy(Win("a"), _T("")), FALSE);
    EXPECT_EQ(Copy(Win("missing"), Win("missing")), FALSE);
    EXPECT_FALSE(fs::exists(Host("missing")));
}

TEST_F(DirectCopy, ExistingTargetsAreReplacedWithoutAsking) {
    WriteFile("a/one.txt", "new one");
    WriteFile("tree/two.txt", "new two");
    WriteFile("bk/one.txt", "old");
    WriteFile("bk/two.txt", "old");
    int asked = 0;
    ScopedResponder user([&](const vlx::DialogRequest&) { return ++asked, kSkipButton; });
    EXPECT_EQ(Copy(Win("a\\one.txt"), Win("bk")), TRUE);
    EXPECT_EQ(Copy(Win("tree"), Win("bk")), TRUE);
    EXPECT_EQ(asked, 0);
    EXPECT_EQ(ReadHostFile(Host("bk/one.txt")), "new one");
    EXPECT_EQ(ReadHostFile(Host("bk/two.txt")), "new two");
}

TEST_F(DirectCopy, CopiesAWholeTreeIntoATopFolderMadeFirstWithEveryLevelInTheLibrarysState) {
    WriteFile("src/a.txt", "a");
    WriteFile("src/sub/deep/b.bin", std::string(3 << 20, 'b'));
    WriteFile("src/.hidden", "h");
    MakeFolder("src/empty");
    int walks = 0, outside = 0;  // folder listings, and calls made outside the library's state
    ApiPatch<&Win32Api::FindFirstFileW> record([&](LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
        walks += U(pattern).ends_with("*.*");
        if (AfxGetModuleState() != VelmoraModuleState()) ++outside;
        return record.Original()(pattern, data);
    });
    AFX_MODULE_STATE* callers = AfxGetModuleState();
    // The files come before any subfolder could make new\bk, so the top folder has to be made first.
    EXPECT_EQ(Copy(Win("src"), Win("new\\bk")), TRUE);
    EXPECT_EQ(AfxGetModuleState(), callers);
    EXPECT_EQ(walks, 4);
    EXPECT_EQ(outside, 0);
    EXPECT_EQ(ReadHostFile(Host("new/bk/a.txt")), "a");
    EXPECT_EQ(ReadHostFile(Host("new/bk/sub/deep/b.bin")), std::string(3 << 20, 'b'));
    EXPECT_EQ(ReadHostFile(Host("new/bk/.hidden")), "h");
    EXPECT_TRUE(fs::is_directory(Host("new/bk/empty")));
}

TEST_F(DirectCopy, ProgressRunsFromZeroToAHundredForEveryFile) {
    WriteFile("src/a.bin", std::string((1 << 20) + 5, 'a'));  // two chunks
    WriteFile("src/b.txt", "");
    WriteFile("src/c.skip", "c");
    ProgressRecorder bar;
    EXPECT_EQ(Copy(Win("src"), Win("bk"), _T(".bin.txt"), &bar.control), TRUE);
    // a.bin: 0, stream switch, two chunks, 100; b.txt (empty): 0, stream switch, 100; c.skip: 0 alone.
    EXPECT_EQ(bar.log, "0 R 0 R 99 R 100 100 0 R 0 100 0 ");
}

TEST_F(DirectCopy, TheResultIsThatOfTheLastFileCopiedInTheTopFolder) {
    WriteFile("src/a.txt", "a");
    WriteFile("src/b.txt", "b");
    WriteFile("src/sub/z.txt", "z");
    const std::pair<const char*, BOOL> cases[] = {
        {"", TRUE},
        {"T:\\src\\b.txt", FALSE},      // the last top-level file failed
        {"T:\\src\\a.txt", TRUE},       // an earlier failure does not show
        {"T:\\src\\sub\\z.txt", TRUE},  // nor does one inside a subfolder
    };
    for (const auto& [failing, result] : cases) {
        ApiPatch<&Win32Api::CopyFileExW> copy([&](LPCWSTR from, LPCWSTR to, LPPROGRESS_ROUTINE routine, LPVOID data, LPBOOL cancel,
                                                  DWORD flags) {
            EXPECT_EQ(flags, 0u);
            return U(from) == failing ? FALSE : copy.Original()(from, to, routine, data, cancel, flags);
        });
        EXPECT_EQ(Copy(Win("src"), Win("bk")), result) << failing;
    }
    // A top folder of subfolders only reports failure, though everything is copied.
    fs::remove(Host("src/a.txt"));
    fs::remove(Host("src/b.txt"));
    EXPECT_EQ(Copy(Win("src"), Win("subs")), FALSE);
    EXPECT_EQ(ReadHostFile(Host("subs/sub/z.txt")), "z");
}

TEST_F(DirectCopy, FilterCopiesMatchingFilesAndMakesOnlyTheFoldersTheyNeed) {
    WriteFile("src/a.TXT", "a");
    WriteFile("src/b.text", "b");
    WriteFile("src/none/x.doc", "x");
    MakeFolder("src/empty");
    WriteFile("src/some/deeper/y.txt", "y");
    // b.text comes after a.TXT but is skipped, so the result stays that of a.TXT.
    EXPECT_EQ(Copy(Win("src"), Win("bk"), _T("*.txt")), TRUE);
    EXPECT_EQ(ReadHostFile(Host("bk/a.TXT")), "a");
    EXPECT_FALSE(fs::exists(Host("bk/b.text")));
    EXPECT_FALSE(fs::exists(Host("bk/none")));
    EXPECT_FALSE(fs::exists(Host("bk/empty")));
    EXPECT_EQ(ReadHostFile(Host("bk/some/deeper/y.txt")), "y");
    // A filter without a dot matches nothing, and nothing is made.
    EXPECT_EQ(Copy(Win("src"), Win("none"), _T("txt")), FALSE);
    EXPECT_FALSE(fs::exists(Host("none")));
}

TEST_F(DirectCopy, TrailingBackslashesShapeThePathsAsGiven) {
    WriteFile("src/a.txt", "a");
    std::vector<std::string> patterns, targets;
    ApiPatch<&Win32Api::FindFirstFileW> find([&](LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
        patterns.push_back(U(pattern));
        return find.Original()(pattern, data);
    });
    ApiPatch<&Win32Api::CopyFileExW> copy([&](LPCWSTR from, LPCWSTR to, LPPROGRESS_ROUTINE routine, LPVOID data, LPBOOL cancel,
                                              DWORD flags) {
        targets.push_back(U(to));
        return copy.Original()(from, to, routine, data, cancel, flags);
    });
    EXPECT_EQ(Copy(Win("src\\"), Win("bk\\")), TRUE);
    EXPECT_EQ(patterns, std::vector<std::string>{"T:\\src\\*.*"});
    EXPECT_EQ(targets, std::vector<std::string>{"T:\\bk\\\\a.txt"});
    EXPECT_EQ(ReadHostFile(Host("bk/a.txt")), "a");
}

TEST_F(DirectCopy, AFolderLinkBackIntoTheTreeIsNotWalked) {
    WriteFile("src/sub/a.txt", "a");
    WriteFile("elsewhere/e.txt", "e");
    ASSERT_EQ(symlink(Host("src").c_str(), Host("src/sub/loop").c_str()), 0);
    ASSERT_EQ(symlink(Host("elsewhere").c_str(), Host("src/out").c_str()), 0);
    Copy(Win("src"), Win("bk"));
    EXPECT_EQ(ReadHostFile(Host("bk/sub/a.txt")), "a");
    EXPECT_FALSE(fs::exists(Host("bk/sub/loop")));
    // A link that leads out of the tree is walked like any folder.
    EXPECT_EQ(ReadHostFile(Host("bk/out/e.txt")), "e");
}

TEST_F(DirectCopy, CancelFromAnotherThreadStopsTheCopyAndTheRest) {
    WriteFile("src/big.bin", std::string(8 << 20, 'x'));
    WriteFile("src/small.txt", "s");
    BOOL cancel = FALSE;
    Canceller canceller(cancel);
    ProgressRecorder bar;
    // The other thread sets the flag while the first chunk's progress is drawn, and the copy waits for it.
    ApiPatch<&Win32Api::SendMessageW> onProgress([&](HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
        if (message == PBM_SETPOS && wParam > 0 && wParam < 100) canceller.Fire();
        return onProgress.Original()(window, message, wParam, lParam);
    });
    EXPECT_EQ(CopyFilesNoneShell(Win("src"), Win("bk"), &cancel, &bar.control, _T("")), FALSE);
    EXPECT_TRUE(canceller.fired());
    EXPECT_EQ(bar.log, "0 R 0 R 12 0 ");  // big.bin stops after its first chunk, small.txt before its first byte
    EXPECT_FALSE(fs::exists(Host("bk/big.bin")));
    EXPECT_FALSE(fs::exists(Host("bk/small.txt")));
    EXPECT_TRUE(fs::is_directory(Host("bk")));
}

}  // namespace
