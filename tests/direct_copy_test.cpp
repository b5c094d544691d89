// CopyFilesNoneShell: single files and folder walks, progress, the extension filter, the result of a walk,
// folder links, the module state of nested calls and a cancel from another thread.
#include <gtest/gtest.h>

#include <thread>

#include "../frame/frame_internal.h"
#include "support/copy_support.h"

namespace {

using namespace testing_support;
namespace fs = std::filesystem;

class DirectCopy : public HostFolderTest {};

TEST_F(DirectCopy, SingleFileGoesIntoTheDestinationUnderItsStoredName) {
    WriteFile("a/Report.TXT", "report");
    MakeFolder("bk");
    ProgressRecorder bar;
    EXPECT_EQ(CopyFilesNoneShell(Win("a\\report.txt"), Win("bk"), nullptr, &bar.control, _T(".doc")), TRUE);
    EXPECT_EQ(ReadHostFile(Host("bk/Report.TXT")), "report");
    EXPECT_EQ(bar.messages, (std::vector<ProgressMessage>{Position(0), Range100(), Position(0), Range100(), Position(100),
                                                          Position(100)}));
}

TEST_F(DirectCopy, SingleFileMakesNoFolder) {
    WriteFile("a.txt", "a");
    EXPECT_EQ(CopyFilesNoneShell(Win("a.txt"), Win("missing"), nullptr, nullptr, _T("")), FALSE);
    EXPECT_FALSE(fs::exists(Host("missing")));
}

TEST_F(DirectCopy, RefusesEmptyOrUnreachableArguments) {
    EXPECT_EQ(CopyFilesNoneShell(_T(""), Win("bk"), nullptr, nullptr, _T("")), FALSE);
    EXPECT_EQ(CopyFilesNoneShell(Win("a"), _T(""), nullptr, nullptr, _T("")), FALSE);
    EXPECT_EQ(CopyFilesNoneShell(Win("missing"), Win("bk"), nullptr, nullptr, _T("")), FALSE);
    EXPECT_FALSE(fs::exists(Host("bk")));
}

TEST_F(DirectCopy, CopiesAWholeTreeWithEmptyFoldersAndHiddenFiles) {
    WriteFile("src/a.txt", "a");
    WriteFile("src/sub/deep/b.bin", std::string(3 << 20, 'b'));
    WriteFile("src/.hidden", "h");
    MakeFolder("src/empty");
    AFX_MODULE_STATE* callers = AfxGetModuleState();
    EXPECT_EQ(CopyFilesNoneShell(Win("src"), Win("bk"), nullptr, nullptr, _T("")), TRUE);
    EXPECT_EQ(AfxGetModuleState(), callers);
    EXPECT_EQ(ReadHostFile(Host("bk/a.txt")), "a");
    EXPECT_EQ(ReadHostFile(Host("bk/sub/deep/b.bin")), std::string(3 << 20, 'b'));
    EXPECT_EQ(ReadHostFile(Host("bk/.hidden")), "h");
    EXPECT_TRUE(fs::is_directory(Host("bk/empty")));
}

TEST_F(DirectCopy, EveryNestedCallRunsInTheLibrarysModuleState) {
    WriteFile("src/one/two/f.txt", "f");
    int walks = 0;
    int outside = 0;
    ApiPatch<&Win32Api::FindFirstFileW> record([&](LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
        ++walks;
        if (AfxGetModuleState() != VelmoraModuleState()) ++outside;
        return record.Original()(pattern, data);
    });
    CopyFilesNoneShell(Win("src"), Win("bk"), nullptr, nullptr, _T(""));
    EXPECT_EQ(walks, 3);
    EXPECT_EQ(outside, 0);
}

TEST_F(DirectCopy, ProgressRunsFromZeroToAHundredForEveryFile) {
    WriteFile("src/a.bin", std::string((1 << 20) + 5, 'a'));  // two chunks
    WriteFile("src/b.txt", "");
    WriteFile("src/c.skip", "c");
    ProgressRecorder bar;
    EXPECT_EQ(CopyFilesNoneShell(Win("src"), Win("bk"), nullptr, &bar.control, _T(".bin.txt")), TRUE);
    // a.bin: 0, stream switch, two chunks, 100; b.txt (empty): 0, stream switch 0, 100; c.skip: 0 alone.
    EXPECT_EQ(bar.Positions(), (std::vector<int>{0, 0, 99, 100, 100, 0, 0, 100, 0}));
}

TEST_F(DirectCopy, TheResultIsThatOfTheLastFileCopiedInTheTopFolder) {
    WriteFile("src/a.txt", "a");
    WriteFile("src/b.txt", "b");
    WriteFile("src/sub/z.txt", "z");
    struct Case {
        const char* failing;
        BOOL result;
    };
    const Case cases[] = {
        {"", TRUE},
        {"T:\\src\\b.txt", FALSE},      // the last top-level file failed
        {"T:\\src\\a.txt", TRUE},       // an earlier failure does not show
        {"T:\\src\\sub\\z.txt", TRUE},  // nor does one inside a subfolder
    };
    for (const Case& c : cases) {
        ApiPatch<&Win32Api::CopyFileExW> copy([&](LPCWSTR from, LPCWSTR to, LPPROGRESS_ROUTINE routine, LPVOID data, LPBOOL cancel,
                                                  DWORD flags) {
            EXPECT_EQ(flags, 0u);
            if (U(from) == c.failing) return FALSE;
            return copy.Original()(from, to, routine, data, cancel, flags);
        });
        EXPECT_EQ(CopyFilesNoneShell(Win("src"), Win("bk"), nullptr, nullptr, _T("")), c.result) << c.failing;
    }
}

TEST_F(DirectCopy, AFolderOfSubfoldersOnlyReportsFailureThoughEverythingIsCopied) {
    WriteFile("src/sub/a.txt", "a");
    EXPECT_EQ(CopyFilesNoneShell(Win("src"), Win("bk"), nullptr, nullptr, _T("")), FALSE);
    EXPECT_EQ(ReadHostFile(Host("bk/sub/a.txt")), "a");
}

TEST_F(DirectCopy, MakesTheTopDestinationBeforeTheFirstFile) {
    // "a.txt" comes before any subfolder, so it is copied before a subfolder's counterpart could make bk.
    WriteFile("src/a.txt", "a");
    WriteFile("src/z/b.txt", "b");
    EXPECT_EQ(CopyFilesNoneShell(Win("src"), Win("new\\bk"), nullptr, nullptr, _T("")), TRUE);
    EXPECT_EQ(ReadHostFile(Host("new/bk/a.txt")), "a");
    EXPECT_EQ(ReadHostFile(Host("new/bk/z/b.txt")), "b");
}

TEST_F(DirectCopy, FilterCopiesMatchingFilesAndMakesOnlyTheFoldersTheyNeed) {
    WriteFile("src/a.TXT", "a");
    WriteFile("src/b.text", "b");
    WriteFile("src/none/x.doc", "x");
    MakeFolder("src/empty");
    WriteFile("src/some/deeper/y.txt", "y");
    // b.text comes after a.TXT but is skipped, so the result stays that of a.TXT.
    EXPECT_EQ(CopyFilesNoneShell(Win("src"), Win("bk"), nullptr, nullptr, _T("*.txt")), TRUE);
    EXPECT_EQ(ReadHostFile(Host("bk/a.TXT")), "a");
    EXPECT_FALSE(fs::exists(Host("bk/b.text")));
    EXPECT_FALSE(fs::exists(Host("bk/none")));
    EXPECT_FALSE(fs::exists(Host("bk/empty")));
    EXPECT_EQ(ReadHostFile(Host("bk/some/deeper/y.txt")), "y");
}

TEST_F(DirectCopy, FilterWithoutADotCopiesNothing) {
    WriteFile("src/a.txt", "a");
    WriteFile("src/sub/b.txt", "b");
    EXPECT_EQ(CopyFilesNoneShell(Win("src"), Win("bk"), nullptr, nullptr, _T("txt")), FALSE);
    EXPECT_FALSE(fs::exists(Host("bk")));
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
    EXPECT_EQ(CopyFilesNoneShell(Win("src\\"), Win("bk\\"), nullptr, nullptr, _T("")), TRUE);
    EXPECT_EQ(patterns, std::vector<std::string>{"T:\\src\\*.*"});
    EXPECT_EQ(targets, std::vector<std::string>{"T:\\bk\\\\a.txt"});
    EXPECT_EQ(ReadHostFile(Host("bk/a.txt")), "a");
}

TEST_F(DirectCopy, AFolderLinkBackIntoTheTreeIsNotWalked) {
    WriteFile("src/sub/a.txt", "a");
    WriteFile("elsewhere/e.txt", "e");
    ASSERT_EQ(symlink(Host("src").c_str(), Host("src/sub/loop").c_str()), 0);
    ASSERT_EQ(symlink(Host("elsewhere").c_str(), Host("src/out").c_str()), 0);
    // Links really look like folders with the reparse-point attribute, as junctions do.
    EXPECT_EQ(sys().GetFileAttributesW(Win("src\\sub\\loop")) & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT),
              static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT));
    CopyFilesNoneShell(Win("src"), Win("bk"), nullptr, nullptr, _T(""));
    EXPECT_EQ(ReadHostFile(Host("bk/sub/a.txt")), "a");
    EXPECT_FALSE(fs::exists(Host("bk/sub/loop")));
    // A link that leads out of the tree is walked like any folder.
    EXPECT_EQ(ReadHostFile(Host("bk/out/e.txt")), "e");
}

TEST_F(DirectCopy, CancelFromAnotherThreadStopsTheCopyAndTheRest) {
    WriteFile("src/big.bin", std::string(8 << 20, 'x'));
    WriteFile("src/small.txt", "s");
    BOOL cancel = FALSE;
    CProgressCtrl bar;
    ASSERT_TRUE(bar.Create(WS_CHILD, RECT{0, 0, 100, 10}, nullptr, 1));
    bool cancelled = false;
    // The other thread sets the flag while the first chunk's progress is drawn, and the copy waits for it.
    ApiPatch<&Win32Api::SendMessageW> onProgress([&](HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
        if (!cancelled && message == PBM_SETPOS && wParam > 0 && wParam < 100) {
            cancelled = true;
            std::thread([&cancel] { __atomic_store_n(&cancel, TRUE, __ATOMIC_RELAXED); }).join();
        }
        return onProgress.Original()(window, message, wParam, lParam);
    });
    std::vector<DWORD> errors;
    ApiPatch<&Win32Api::CopyFileExW> copy([&](LPCWSTR from, LPCWSTR to, LPPROGRESS_ROUTINE routine, LPVOID data, LPBOOL flag,
                                              DWORD flags) {
        EXPECT_EQ(flag, &cancel);
        const BOOL result = copy.Original()(from, to, routine, data, flag, flags);
        errors.push_back(result ? ERROR_SUCCESS : sys().GetLastError());
        return result;
    });
    EXPECT_EQ(CopyFilesNoneShell(Win("src"), Win("bk"), &cancel, &bar, _T("")), FALSE);
    EXPECT_TRUE(cancelled);
    EXPECT_EQ(errors, (std::vector<DWORD>{ERROR_REQUEST_ABORTED, ERROR_REQUEST_ABORTED}));
    EXPECT_FALSE(fs::exists(Host("bk/big.bin")));
    EXPECT_FALSE(fs::exists(Host("bk/small.txt")));
    EXPECT_TRUE(fs::is_directory(Host("bk")));
}

}  // namespace
