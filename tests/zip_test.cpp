// CompressToZip, CompressToZipT and ExtractFromZip against a scripted shell: the order of their steps and
// releases, the detail codes, the archive file they make, and the two waits with Sleep counted.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "../frame/frame_internal.h"
#include "support/scripted_shell.h"

namespace {

using namespace testing_support;

const std::string kEmptyArchive("PK\x05\x06\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 22);
const std::string kShell = "CoCreateInstance 13709620-C279-11CE D8F015C0-C278-11CE context 1";
const std::string kTitle = "圧縮しています...";

// The desktop and the clock as the waits see them: the progress window is found from look `windowAt` on
// (never when 0), ShowWindow answers `wasVisible`, and every Sleep is logged instead of slept.
struct ScriptedWaits {
    explicit ScriptedWaits(std::vector<std::string>& log) : log_(log) {}
    int windowAt = 1;
    BOOL wasVisible = TRUE;
    int looks = 0;
    std::vector<DWORD> sleeps;

    static inline const HWND kProgress = reinterpret_cast<HWND>(static_cast<uintptr_t>(0x9999));

private:
    std::vector<std::string>& log_;
    ApiPatch<&Win32Api::FindWindowW> find_{[this](LPCWSTR className, LPCWSTR title) -> HWND {
        ++looks;
        if (className != nullptr || U(title) != kTitle) log_.push_back("FindWindowW stray");
        return windowAt != 0 && looks >= windowAt ? kProgress : nullptr;
    }};
    ApiPatch<&Win32Api::ShowWindow> show_{[this](HWND window, int command) {
        log_.push_back("ShowWindow " + std::string(window == kProgress ? "progress " : "stray ") + std::to_string(command));
        return wasVisible;
    }};
    ApiPatch<&Win32Api::Sleep> sleep_{[this](DWORD milliseconds) { sleeps.push_back(milliseconds); }};
};

class Zip : public HostFolderTest {
protected:
    std::string Read(const std::string& relative) const {
        std::ifstream in(Host(relative), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    bool Exists(const std::string& relative) const { return std::filesystem::exists(Host(relative)); }
};

TEST_F(Zip, CompressToZipMakesAnEmptyArchiveThenHandsTheSourceToTheShellAndReleasesInOrder) {
    WriteFile("src/a.txt", "a");
    ScriptedShell shell;
    ScriptedWaits waits(shell.log);
    AFX_MODULE_STATE* during = nullptr;
    shell.duringCopy = [&] {
        during = AfxGetModuleState();
        EXPECT_EQ(Read("out.zip"), kEmptyArchive);  // written and closed before the shell is asked
    };
    AFX_MODULE_STATE* const before = AfxGetModuleState();
    int code = 12345;
    EXPECT_EQ(CompressToZip(Win("src"), Win("out"), 1, &code), TRUE);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(during, VelmoraModuleState());
    EXPECT_EQ(AfxGetModuleState(), before);
    EXPECT_EQ(shell.log, (std::vector<std::string>{"CoInitialize", kShell, "NameSpace bstr T:\\out.zip",
                                                   "CopyHere into T:\\out.zip: bstr T:\\src, i4 0x614", "ShowWindow progress 0",
                                                   "Release T:\\out.zip", "Release shell", "CoUninitialize"}));
    EXPECT_TRUE(waits.sleeps.empty());
}

TEST_F(Zip, TheSuffixIsAddedUnlessThePathEndsInZipInAnyCase) {
    WriteFile("a.txt", "a");
    const struct Case {
        const char *given, *archive;
    } cases[] = {{"out", "out.zip"}, {"up.ZIP", "up.ZIP"}, {"out.zip2", "out.zip2.zip"}, {"zip", "zip.zip"}, {".zip", ".zip"}};
    for (const Case& c : cases) {
        ScriptedShell shell;
        ScriptedWaits waits(shell.log);
        int code = 12345;
        EXPECT_EQ(CompressToZip(Win("a.txt"), Win(c.given), 1, &code), TRUE) << c.given;
        EXPECT_EQ(shell.log.at(2), "NameSpace bstr T:\\" + std::string(c.archive)) << c.given;
        EXPECT_EQ(Read(c.archive), kEmptyArchive) << c.given;
    }
}

TEST_F(Zip, RefusalsComeInTheOrderOfTheStepsWithoutMakingAFile) {
    WriteFile("a.txt", "a");
    MakeFolder("empty");
    WriteFile("hidden/.h", "");
    const struct Case {
        CString source, zip;
        int code;
    } cases[] = {
        {Win("missing"), _T(""), -1},
        {Win("missing"), Win("out"), -1},
        {Win("empty"), Win("out"), -2},
        {Win("a.txt"), _T(""), -3},
    };
    for (const Case& c : cases) {
        ScriptedShell shell;
        int code = 12345;
        EXPECT_EQ(CompressToZip(c.source, c.zip, 1, &code), FALSE) << U(c.source);
        EXPECT_EQ(code, c.code) << U(c.source);
        EXPECT_EQ(CompressToZip(c.source, c.zip, 1, nullptr), FALSE);
        EXPECT_TRUE(shell.log.empty());
        EXPECT_FALSE(Exists("out.zip"));
    }
    // A folder holding only a hidden file is not empty.
    ScriptedShell shell;
    ScriptedWaits waits(shell.log);
    int code = 12345;
    EXPECT_EQ(CompressToZip(Win("hidden"), Win("h"), 1, &code), TRUE);
    EXPECT_EQ(code, 0);
}

TEST_F(Zip, CompressToZipTCopiesItsStringsAndRefusesNullOrEmptyOnesWithoutACode) {
    WriteFile("a.txt", "a");
    const std::u16string source = u"T:\\a.txt", archive = u"T:\\t";
    const struct Case {
        LPCWSTR source, zip;
    } refused[] = {{nullptr, archive.c_str()}, {source.c_str(), nullptr}, {u"", archive.c_str()}, {source.c_str(), u""}};
    for (const Case& c : refused) {
        ScriptedShell shell;
        int code = 12345;
        EXPECT_EQ(CompressToZipT(c.source, c.zip, 1, &code), FALSE);
        EXPECT_EQ(code, 12345);
        EXPECT_TRUE(shell.log.empty());
    }
    ScriptedShell shell;
    ScriptedWaits waits(shell.log);
    int code = 12345;
    EXPECT_EQ(CompressToZipT(source.c_str(), archive.c_str(), 1, &code), TRUE);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(shell.log.at(3), "CopyHere into T:\\t.zip: bstr T:\\a.txt, i4 0x614");
}

TEST_F(Zip, AnExistingArchiveIsUsedUnchangedAndFilesThatCannotBeMadeOrWrittenGiveTheirCodes) {
    WriteFile("a.txt", "a");
    WriteFile("old.zip", "existing archive");
    {
        ScriptedShell shell;
        ScriptedWaits waits(shell.log);
        int code = 12345;
        EXPECT_EQ(CompressToZip(Win("a.txt"), Win("old.zip"), 1, &code), TRUE);
        EXPECT_EQ(Read("old.zip"), "existing archive");
    }
    {
        ScriptedShell shell;
        int code = 12345;
        EXPECT_EQ(CompressToZip(Win("a.txt"), Win("no\\such\\folder\\x"), 1, &code), FALSE);
        EXPECT_EQ(code, -4);
        EXPECT_TRUE(shell.log.empty());
    }
    {
        ScriptedShell shell;
        ApiPatch<&Win32Api::WriteFile> write([](HANDLE, LPCVOID, DWORD, LPDWORD written, LPOVERLAPPED) {
            *written = 0;
            sys().SetLastError(ERROR_DISK_FULL);
            return FALSE;
        });
        int code = 12345;
        EXPECT_EQ(CompressToZip(Win("a.txt"), Win("full"), 1, &code), FALSE);
        EXPECT_EQ(code, -5);
        EXPECT_TRUE(shell.log.empty());
        EXPECT_TRUE(Exists("full.zip"));  // the new file stays, closed (the fixture counts handles)
    }
}

TEST_F(Zip, EachShellFailureReleasesWhatWasObtainedAndGivesItsCode) {
    WriteFile("a.txt", "a");
    const struct Case {
        const char* name;
        std::function<void(ScriptedShell&)> script;
        int code;
        std::vector<std::string> log;
    } cases[] = {
        {"no shell", [](ScriptedShell& s) { s.createResult = REGDB_E_CLASSNOTREG; }, -6, {"CoInitialize", kShell, "CoUninitialize"}},
        {"namespace fails", [](ScriptedShell& s) { s.nameSpaceResult = E_FAIL; }, -7,
         {"CoInitialize", kShell, "NameSpace bstr T:\\o.zip", "Release shell", "CoUninitialize"}},
        {"no folder", [](ScriptedShell& s) { s.noFolder = {"T:\\o.zip"}; }, -7,
         {"CoInitialize", kShell, "NameSpace bstr T:\\o.zip", "Release shell", "CoUninitialize"}},
        // A refused copy still waits for the window and the archive.
        {"copy refused", [](ScriptedShell& s) { s.copyResult = E_ABORT; }, -8,
         {"CoInitialize", kShell, "NameSpace bstr T:\\o.zip", "CopyHere into T:\\o.zip: bstr T:\\a.txt, i4 0x614",
          "ShowWindow progress 0", "Release T:\\o.zip", "Release shell", "CoUninitialize"}},
    };
    for (const Case& c : cases) {
        ScriptedShell shell;
        ScriptedWaits waits(shell.log);
        c.script(shell);
        int code = 12345;
        EXPECT_EQ(CompressToZip(Win("a.txt"), Win("o"), 1, &code), FALSE) << c.name;
        EXPECT_EQ(code, c.code) << c.name;
        EXPECT_EQ(shell.log, c.log) << c.name;
        std::filesystem::remove(Host("o.zip"));
    }
}

TEST_F(Zip, TheProgressWaitLastsSixSecondsUnlessAQuietCallHidesTheWindow) {
    WriteFile("a.txt", "a");
    const std::vector<DWORD> fullWait(30, 200);
    const struct Case {
        int silent, windowAt;
        BOOL wasVisible;
        std::vector<DWORD> sleeps;
        int hides;
    } cases[] = {
        {0, 1, TRUE, fullWait, 0},                     // found but not hidden when questions are allowed
        {2, 1, TRUE, fullWait, 0},                     // only 1 is quiet
        {1, 0, TRUE, fullWait, 0},                     // never shown
        {1, 3, TRUE, {200, 200}, 1},                   // hidden at the third look
        {1, 1, FALSE, fullWait, 30},                   // found hidden already: looked for to the end
    };
    for (const Case& c : cases) {
        ScriptedShell shell;
        ScriptedWaits waits(shell.log);
        waits.windowAt = c.windowAt;
        waits.wasVisible = c.wasVisible;
        int code = 12345;
        EXPECT_EQ(CompressToZip(Win("a.txt"), Win("o"), c.silent, &code), TRUE);
        EXPECT_EQ(waits.sleeps, c.sleeps) << c.silent << " " << c.windowAt;
        EXPECT_EQ(std::count(shell.log.begin(), shell.log.end(), "ShowWindow progress 0"), c.hides);
        EXPECT_EQ(shell.log.at(3), "CopyHere into T:\\o.zip: bstr T:\\a.txt, i4 " + Hex(c.silent == 1 ? 0x614 : 0));
        std::filesystem::remove(Host("o.zip"));
    }
}

TEST_F(Zip, TheReleaseWaitTriesEverySecondForAnHourAndGivesUpAtOnceOnOtherErrors) {
    WriteFile("a.txt", "a");
    const struct Case {
        DWORD error;
        int busyTries;  // tries that meet the error before the archive opens; -1 never opens
        BOOL result;
        int code;
        size_t releaseSleeps;
    } cases[] = {
        {ERROR_SHARING_VIOLATION, 3, TRUE, 0, 3},
        {ERROR_SHARING_VIOLATION, -1, FALSE, -9, 3600},
        {ERROR_LOCK_VIOLATION, -1, FALSE, -9, 3600},
        {ERROR_ACCESS_DENIED, -1, FALSE, -9, 0},
    };
    for (const Case& c : cases) {
        ScriptedShell shell;
        ScriptedWaits waits(shell.log);
        int probes = 0;
        std::function<HANDLE(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE)> original;
        ApiPatch<&Win32Api::CreateFileW> probe([&](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                                   DWORD disposition, DWORD flags, HANDLE templateFile) -> HANDLE {
            if (disposition == OPEN_EXISTING) {
                EXPECT_EQ(access, static_cast<DWORD>(GENERIC_READ | GENERIC_WRITE));
                EXPECT_EQ(share, 0u);
                if (c.busyTries < 0 || probes++ < c.busyTries) {
                    sys().SetLastError(c.error);
                    return INVALID_HANDLE_VALUE;
                }
            }
            return original(path, access, share, security, disposition, flags, templateFile);
        });
        original = probe.Original();
        int code = 12345;
        EXPECT_EQ(CompressToZip(Win("a.txt"), Win("o"), 1, &code), c.result) << c.error;
        EXPECT_EQ(code, c.code) << c.error;
        EXPECT_EQ(static_cast<size_t>(std::count(waits.sleeps.begin(), waits.sleeps.end(), 1000u)), c.releaseSleeps) << c.error;
        EXPECT_EQ(shell.log.back(), "CoUninitialize");
        std::filesystem::remove(Host("o.zip"));
    }
}

TEST_F(Zip, ExtractFromZipMakesTheFolderThenCopiesTheArchivesItemsAndReleasesInOrder) {
    ScriptedShell shell;
    AFX_MODULE_STATE* during = nullptr;
    shell.duringCopy = [&] { during = AfxGetModuleState(); };
    AFX_MODULE_STATE* const before = AfxGetModuleState();
    EXPECT_EQ(ExtractFromZip(Win("in"), Win("out\\x"), 1), TRUE);
    EXPECT_TRUE(Exists("out/x"));
    EXPECT_EQ(during, VelmoraModuleState());
    EXPECT_EQ(AfxGetModuleState(), before);
    EXPECT_EQ(shell.log, (std::vector<std::string>{"CoInitialize", kShell, "NameSpace bstr T:\\out\\x", "NameSpace bstr T:\\in",
                                                   "Items of T:\\in", "CopyHere into T:\\out\\x: dispatch items, i4 0x414",
                                                   "Release items of T:\\in", "Release T:\\in", "Release T:\\out\\x",
                                                   "Release shell", "CoUninitialize"}));
}

TEST_F(Zip, ExtractFromZipReleasesWhatItObtainedAtEachFailure) {
    const std::string start[] = {"CoInitialize", kShell};
    const struct Case {
        const char* name;
        std::function<void(ScriptedShell&)> script;
        int silent;
        BOOL result;
        std::vector<std::string> rest;
    } cases[] = {
        {"no shell", [](ScriptedShell& s) { s.createResult = E_OUTOFMEMORY; }, 1, FALSE, {"CoUninitialize"}},
        {"no destination", [](ScriptedShell& s) { s.noFolder = {"T:\\d"}; }, 1, FALSE,
         {"NameSpace bstr T:\\d", "Release shell", "CoUninitialize"}},
        {"no archive", [](ScriptedShell& s) { s.noFolder = {"T:\\a.zip"}; }, 1, FALSE,
         {"NameSpace bstr T:\\d", "NameSpace bstr T:\\a.zip", "Release T:\\d", "Release shell", "CoUninitialize"}},
        {"no items", [](ScriptedShell& s) { s.itemsResult = E_FAIL; }, 1, FALSE,
         {"NameSpace bstr T:\\d", "NameSpace bstr T:\\a.zip", "Items of T:\\a.zip", "Release T:\\a.zip", "Release T:\\d",
          "Release shell", "CoUninitialize"}},
        {"copy refused", [](ScriptedShell& s) { s.copyResult = E_FAIL; }, 2, FALSE,
         {"NameSpace bstr T:\\d", "NameSpace bstr T:\\a.zip", "Items of T:\\a.zip", "CopyHere into T:\\d: dispatch items, i4 0x0",
          "Release items of T:\\a.zip", "Release T:\\a.zip", "Release T:\\d", "Release shell", "CoUninitialize"}},
    };
    for (const Case& c : cases) {
        ScriptedShell shell;
        c.script(shell);
        EXPECT_EQ(ExtractFromZip(Win("a.zip"), Win("d"), c.silent), c.result) << c.name;
        std::vector<std::string> log(std::begin(start), std::end(start));
        log.insert(log.end(), c.rest.begin(), c.rest.end());
        EXPECT_EQ(shell.log, log) << c.name;
    }
    // Empty arguments: nothing made, the shell not asked.
    ScriptedShell shell;
    EXPECT_EQ(ExtractFromZip(_T(""), Win("e"), 1), FALSE);
    EXPECT_EQ(ExtractFromZip(Win("a.zip"), _T(""), 1), FALSE);
    EXPECT_TRUE(shell.log.empty());
    EXPECT_FALSE(Exists("e"));
}

}  // namespace
