// GetShortCutTargetPath against a scripted shell-link object: the order of its calls and releases, and
// the command line it assembles, with what it does when that does not fit the caller's 260 units.
#include <gtest/gtest.h>

#include <cstdlib>

#include "support/scripted_shell.h"

namespace {

using namespace testing_support;

const std::vector<std::string> kLoaded = {"CoInitialize", "CoCreateInstance 00021401-0000-0000 000214F9-0000-0000 context 1",
                                          "QueryInterface 0000010B-0000-0000", "Load T:\\a.lnk mode 0"};

TEST(Shortcut, ReadsPathThenArgumentsAndReleasesBothInterfacesBeforeLeavingCom) {
    ScriptedShell shell;
    shell.linkArguments = "/p a.txt";
    WCHAR buffer[MAX_PATH];
    WIN32_FIND_DATAW data{};
    EXPECT_EQ(GetShortCutTargetPath(_T("T:\\a.lnk"), buffer, &data), TRUE);
    EXPECT_EQ(U(buffer), "C:\\Tools\\app.exe /p a.txt");
    EXPECT_EQ(data.nFileSizeLow, 4242u);
    std::vector<std::string> log = kLoaded;
    log.insert(log.end(), {"GetPath 260 find data flags 0 clean", "GetArguments 260", "Release persist file", "Release link",
                           "CoUninitialize"});
    EXPECT_EQ(shell.log, log);
}

TEST(Shortcut, TheCommandLineExpandsThePathOnlyAndIsNotCutWhenItDoesNotFit) {
    setenv("VELMORA_TOOLS", "C:\\Program Files\\Tool", 1);
    const std::string longName(250, 'x');
    const struct Case {
        std::string path, arguments;
        HRESULT pathResult, argumentsResult;
        BOOL result;
        std::string text;
    } cases[] = {
        {"%velmora_tools%\\t.exe", "/p a.txt", S_OK, S_OK, TRUE, "C:\\Program Files\\Tool\\t.exe /p a.txt"},
        {"C:\\app.exe", "/log %VELMORA_TOOLS%\\x", S_OK, S_OK, TRUE, "C:\\app.exe /log %VELMORA_TOOLS%\\x"},
        {"C:\\app.exe", "", S_OK, S_OK, TRUE, "C:\\app.exe "},
        {"%NO_SUCH_VELMORA_NAME%\\a", "", S_OK, S_OK, TRUE, "%NO_SUCH_VELMORA_NAME%\\a "},
        {"C:\\app.exe", "", S_OK, E_FAIL, FALSE, "C:\\app.exe "},  // the path and its space still written
        {"C:\\app.exe", "/x", E_FAIL, S_OK, TRUE, " /x"},
        // 258 units of path, the space and the terminator: the last text that fits.
        {"C:\\" + std::string(255, 'p'), "", S_OK, S_OK, TRUE, "C:\\" + std::string(255, 'p') + " "},
        {"C:\\" + std::string(255, 'p'), "a", S_OK, S_OK, FALSE, ""},
        {"%VELMORA_TOOLS%\\" + std::string(240, 'q'), "", S_OK, S_OK, FALSE, ""},  // the expansion alone is too long
    };
    for (const Case& c : cases) {
        ScriptedShell shell;
        shell.linkPath = c.path;
        shell.linkArguments = c.arguments;
        shell.pathResult = c.pathResult;
        shell.argumentsResult = c.argumentsResult;
        WCHAR buffer[MAX_PATH + 1];
        buffer[MAX_PATH] = u'!';
        EXPECT_EQ(GetShortCutTargetPath(_T("T:\\a.lnk"), buffer, nullptr), c.result) << c.path;
        EXPECT_EQ(U(buffer), c.text) << c.path;
        EXPECT_EQ(buffer[MAX_PATH], u'!') << c.path;
        EXPECT_EQ(shell.log.at(4), "GetPath 260 null flags 0 clean");
    }
    unsetenv("VELMORA_TOOLS");
}

TEST(Shortcut, FailuresBeforeTheLinkIsLoadedLeaveTheBufferAndReleaseWhatWasObtained) {
    const struct Case {
        const char* name;
        std::function<void(ScriptedShell&)> script;
        size_t steps;  // of kLoaded that happen
        std::vector<std::string> rest;
    } cases[] = {
        {"no link object", [](ScriptedShell& s) { s.createResult = REGDB_E_CLASSNOTREG; }, 2, {"CoUninitialize"}},
        {"no file interface", [](ScriptedShell& s) { s.queryResult = E_NOINTERFACE; }, 3, {"Release link", "CoUninitialize"}},
        {"not a link", [](ScriptedShell& s) { s.loadResult = E_FAIL; }, 4,
         {"Release persist file", "Release link", "CoUninitialize"}},
    };
    for (const Case& c : cases) {
        ScriptedShell shell;
        c.script(shell);
        WCHAR buffer[MAX_PATH] = u"untouched";
        EXPECT_EQ(GetShortCutTargetPath(_T("T:\\a.lnk"), buffer, nullptr), FALSE) << c.name;
        EXPECT_EQ(U(buffer), "untouched") << c.name;
        std::vector<std::string> log(kLoaded.begin(), kLoaded.begin() + static_cast<long>(c.steps));
        log.insert(log.end(), c.rest.begin(), c.rest.end());
        EXPECT_EQ(shell.log, log) << c.name;
    }
    ScriptedShell shell;
    EXPECT_EQ(GetShortCutTargetPath(_T("T:\\a.lnk"), nullptr, nullptr), FALSE);
    EXPECT_TRUE(shell.log.empty());
}

}  // namespace
