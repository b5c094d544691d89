// The image exports against a scripted imaging library registered in the system folder: the values passed
// to each call, the order of release on every exit with the last error the caller sees, the message
// callback's targets and the message pump.
#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "../platform/api_patch.h"
#include "../platform/wimgapi.h"
#include "../wim/wim_internal.h"
#include "support/scripted_files.h"

namespace {

using namespace testing_support;

const HANDLE kFile = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(0xF11E));
const HANDLE kImage = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(0x1A6E));
constexpr DWORD kImagingError = 0x2A2A;  // what the scripted library leaves when a call fails

std::string Text(LPCWSTR text) { return text == nullptr ? "null" : U(text); }

// The scripted wimgapi.dll: logs each call with its values and answers as the test sets. A message list
// is sent through the registered callback while an image is captured or applied.
struct Script {
    std::vector<std::string> log;
    HANDLE created = kFile, captured = kImage, loaded = kImage;
    DWORD registered = 0;
    BOOL temporarySet = TRUE, applied = TRUE, mounted = TRUE, unmounted = TRUE;
    std::vector<std::pair<DWORD, WPARAM>> messages;
    std::vector<DWORD> answers;
    std::function<void()> whileWorking;
    WimMessageCallbackFunction callback = nullptr;
    PVOID userData = nullptr;

    template <class T>
    T Answer(T value, T failure) {
        if (value == failure) sys().SetLastError(kImagingError);
        return value;
    }
    void Work() {
        if (whileWorking) whileWorking();
        if (callback == nullptr) return;
        for (auto [id, wParam] : messages) {
            BOOL process = TRUE;
            answers.push_back(callback(id, wParam, reinterpret_cast<LPARAM>(&process), userData));
        }
    }
};
Script* g_script = nullptr;

HANDLE WINAPI ScriptCreateFile(PCWSTR path, DWORD access, DWORD disposition, DWORD flags, DWORD compression, PDWORD result) {
    g_script->log.push_back("CreateFile " + Text(path) + " " + Hex(access) + " " + std::to_string(disposition) + " " +
                            Hex(flags) + " " + std::to_string(compression) + (result == nullptr ? " null" : " set"));
    return g_script->Answer<HANDLE>(g_script->created, nullptr);
}
DWORD WINAPI ScriptRegister(HANDLE wim, FARPROC callback, PVOID userData) {
    const bool ours = callback == reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(WimMessageCallback));
    g_script->log.push_back("Register " + Hex(reinterpret_cast<uintptr_t>(wim)) + (ours ? " callback" : " other"));
    g_script->callback = reinterpret_cast<WimMessageCallbackFunction>(reinterpret_cast<void (*)()>(callback));
    g_script->userData = userData;
    return g_script->Answer<DWORD>(g_script->registered, INVALID_CALLBACK_VALUE);
}
BOOL WINAPI ScriptUnregister(HANDLE wim, FARPROC callback) {
    const bool ours = callback == reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(WimMessageCallback));
    g_script->log.push_back("Unregister " + Hex(reinterpret_cast<uintptr_t>(wim)) + (ours ? " callback" : " other"));
    g_script->callback = nullptr;
    return TRUE;
}
BOOL WINAPI ScriptClose(HANDLE handle) {
    g_script->log.push_back("Close " + Hex(reinterpret_cast<uintptr_t>(handle)));
    return TRUE;
}
BOOL WINAPI ScriptSetTemporary(HANDLE wim, PCWSTR path) {
    g_script->log.push_back("SetTemporaryPath " + Hex(reinterpret_cast<uintptr_t>(wim)) + " " + Text(path));
    return g_script->Answer<BOOL>(g_script->temporarySet, FALSE);
}
HANDLE WINAPI ScriptCapture(HANDLE wim, PCWSTR path, DWORD flags) {
    g_script->log.push_back("Capture " + Hex(reinterpret_cast<uintptr_t>(wim)) + " " + Text(path) + " " + Hex(flags));
    g_script->Work();
    return g_script->Answer<HANDLE>(g_script->captured, nullptr);
}
HANDLE WINAPI ScriptLoad(HANDLE wim, DWORD index) {
    g_script->log.push_back("Load " + Hex(reinterpret_cast<uintptr_t>(wim)) + " " + std::to_string(index));
    return g_script->Answer<HANDLE>(g_script->loaded, nullptr);
}
BOOL WINAPI ScriptApply(HANDLE image, PCWSTR path, DWORD flags) {
    g_script->log.push_back("Apply " + Hex(reinterpret_cast<uintptr_t>(image)) + " " + Text(path) + " " + Hex(flags));
    g_script->Work();
    return g_script->Answer<BOOL>(g_script->applied, FALSE);
}
BOOL WINAPI ScriptMount(PCWSTR mountPath, PCWSTR wimPath, DWORD index, PCWSTR temporary) {
    g_script->log.push_back("Mount " + Text(mountPath) + " " + Text(wimPath) + " " + std::to_string(index) + " " + Text(temporary));
    return g_script->Answer<BOOL>(g_script->mounted, FALSE);
}
BOOL WINAPI ScriptUnmount(PCWSTR mountPath, PCWSTR wimPath, DWORD index, BOOL commit) {
    g_script->log.push_back("Unmount " + Text(mountPath) + " " + Text(wimPath) + " " + std::to_string(index) + " " +
                            std::to_string(commit));
    return g_script->Answer<BOOL>(g_script->unmounted, FALSE);
}

vlx::ModuleDefinition ScriptedLibrary(const std::set<std::string>& lacking) {
    vlx::ModuleDefinition module;
    const std::pair<const char*, FARPROC> entries[] = {
        {"WIMCreateFile", vlx::EntryPoint(ScriptCreateFile)}, {"WIMRegisterMessageCallback", vlx::EntryPoint(ScriptRegister)},
        {"WIMUnregisterMessageCallback", vlx::EntryPoint(ScriptUnregister)}, {"WIMCloseHandle", vlx::EntryPoint(ScriptClose)},
        {"WIMSetTemporaryPath", vlx::EntryPoint(ScriptSetTemporary)}, {"WIMCaptureImage", vlx::EntryPoint(ScriptCapture)},
        {"WIMLoadImage", vlx::EntryPoint(ScriptLoad)}, {"WIMApplyImage", vlx::EntryPoint(ScriptApply)},
        {"WIMMountImage", vlx::EntryPoint(ScriptMount)}, {"WIMUnmountImage", vlx::EntryPoint(ScriptUnmount)}};
    for (const auto& [name, entry] : entries) {
        if (!lacking.count(name)) module.entryPoints[name] = entry;
    }
    return module;
}

// A window class whose windows keep their text, and count the messages they are sent.
int g_pinged = 0;
LRESULT CALLBACK PingProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_USER) ++g_pinged;
    return sys().DefWindowProcW(window, message, wParam, lParam);
}

class WimExports : public ::testing::Test {
protected:
    void SetUp() override {
        g_script = &script;
        g_pinged = 0;
        Use({});
        WNDCLASSW windowClass{};
        windowClass.lpfnWndProc = PingProc;
        windowClass.lpszClassName = _T("WimTestText");
        sys().RegisterClassW(&windowClass);
        ASSERT_TRUE(text.CreateEx(0, _T("WimTestText"), _T(""), 0, 0, 0, 10, 10, nullptr, nullptr));
        sys().SetLastError(kJunkError);
    }
    void TearDown() override {
        EXPECT_EQ(vlx::ModuleLoadCount(_T("wimgapi.dll")), 0) << "the imaging library was left loaded";
        text.DestroyWindow();
        sys().UnregisterClassW(_T("WimTestText"), nullptr);
        MSG left;
        while (sys().PeekMessageW(&left, nullptr, 0, 0, PM_REMOVE)) {
        }
        g_script = nullptr;
    }
    // Registers a scripted library lacking the entry points named, or failing to load with a code.
    void Use(const std::set<std::string>& lacking, DWORD loadError = 0) {
        module.reset();
        vlx::ModuleDefinition definition = ScriptedLibrary(lacking);
        definition.loadError = loadError;
        module = std::make_unique<vlx::SystemModule>(_T("wimgapi.dll"), std::move(definition));
    }
    std::string Log() const {
        std::string joined;
        for (const std::string& line : script.log) joined += line + "\n";
        return joined;
    }
    std::string WindowText() {
        CString value;
        text.GetWindowText(value);
        return U(value);
    }

    Script script;
    std::unique_ptr<vlx::SystemModule> module;
    CWnd text;
    // The loader's and the library's own steps join the script's log.
    ApiPatch<&Win32Api::LoadLibraryW> load_{[this](LPCWSTR path) {
        script.log.push_back("LoadLibrary " + U(path));
        return load_.Original()(path);
    }};
    ApiPatch<&Win32Api::GetProcAddress> find_{[this](HMODULE library, LPCSTR name) {
        script.log.push_back(std::string("GetProcAddress ") + name);
        return find_.Original()(library, name);
    }};
    ApiPatch<&Win32Api::FreeLibrary> free_{[this](HMODULE library) {
        script.log.push_back("FreeLibrary");
        return free_.Original()(library);
    }};
    ApiPatch<&Win32Api::SetLastError> setError_{[this](DWORD code) {
        if (code != kImagingError && code != kJunkError) script.log.push_back("SetLastError " + std::to_string(code));
        setError_.Original()(code);
    }};
};

const char kLoad[] = "LoadLibrary C:\\Windows\\System32\\wimgapi.dll\n";
const char kShared[] =
    "GetProcAddress WIMCreateFile\nGetProcAddress WIMRegisterMessageCallback\nGetProcAddress WIMUnregisterMessageCallback\n"
    "GetProcAddress WIMCloseHandle\nGetProcAddress WIMSetTemporaryPath\n";
const std::vector<std::string> kCaptureNames = {"WIMCreateFile", "WIMRegisterMessageCallback", "WIMUnregisterMessageCallback",
                                                "WIMCloseHandle", "WIMSetTemporaryPath", "WIMCaptureImage"};
const std::vector<std::string> kApplyNames = {"WIMCreateFile", "WIMRegisterMessageCallback", "WIMUnregisterMessageCallback",
                                              "WIMCloseHandle", "WIMSetTemporaryPath", "WIMLoadImage", "WIMApplyImage"};

TEST_F(WimExports, EmptyImageOrFolderIsRefusedBeforeAnythingIsLoaded) {
    DWORD percent = 7;
    const BOOL results[] = {
        CompressToWim(_T(""), _T("C:\\src"), _T(""), WIM_COMPRESS_LZX, &percent, &text),
        CompressToWim(_T("C:\\a.wim"), _T(""), _T(""), WIM_COMPRESS_LZX, &percent, &text),
        ExtractFromWim(_T(""), _T("C:\\out"), _T(""), 1, &percent, &text),
        ExtractFromWim(_T("C:\\a.wim"), _T(""), _T(""), 1, &percent, &text),
        MountWim(_T(""), _T("C:\\mnt"), _T("C:\\tmp"), 1),
        MountWim(_T("C:\\a.wim"), _T(""), _T("C:\\tmp"), 1),
        UnMountWim(_T(""), _T("C:\\mnt"), 1, TRUE),
        UnMountWim(_T("C:\\a.wim"), _T(""), 1, TRUE),
    };
    for (BOOL result : results) EXPECT_EQ(result, FALSE);
    EXPECT_EQ(Log(), "");
    EXPECT_EQ(sys().GetLastError(), kJunkError);
    EXPECT_EQ(percent, 7u);
}

TEST_F(WimExports, ALibraryThatCannotBeLoadedLeavesTheLoadersCodeAndIsNotSearched) {
    Use({}, ERROR_BAD_FORMAT);
    EXPECT_EQ(CompressToWim(_T("C:\\a.wim"), _T("C:\\src"), _T(""), 0, nullptr, nullptr), FALSE);
    EXPECT_EQ(ExtractFromWim(_T("C:\\a.wim"), _T("C:\\out"), _T(""), 1, nullptr, nullptr), FALSE);
    EXPECT_EQ(MountWim(_T("C:\\a.wim"), _T("C:\\mnt"), _T(""), 1), FALSE);
    EXPECT_EQ(UnMountWim(_T("C:\\a.wim"), _T("C:\\mnt"), 1, FALSE), FALSE);
    EXPECT_EQ(Log(), std::string(kLoad) + kLoad + kLoad + kLoad);
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_BAD_FORMAT));
}

// Each operation's names are looked up in order; the first one missing stops the lookup, frees the library
// and only then sets ERROR_PROC_NOT_FOUND, before any file is opened.
TEST_F(WimExports, AMissingEntryPointFreesTheLibraryThenReportsProcNotFound) {
    struct Operation {
        const char* name;
        std::vector<std::string> names;
        std::function<BOOL()> call;
    };
    DWORD percent = 0;
    const Operation operations[] = {
        {"capture", kCaptureNames, [&] { return CompressToWim(_T("C:\\a.wim"), _T("C:\\src"), _T(""), 0, &percent, &text); }},
        {"apply", kApplyNames, [&] { return ExtractFromWim(_T("C:\\a.wim"), _T("C:\\out"), _T(""), 1, &percent, &text); }},
        {"mount", {"WIMMountImage"}, [&] { return MountWim(_T("C:\\a.wim"), _T("C:\\mnt"), _T("C:\\tmp"), 1); }},
        {"unmount", {"WIMUnmountImage"}, [&] { return UnMountWim(_T("C:\\a.wim"), _T("C:\\mnt"), 1, TRUE); }},
    };
    for (const Operation& operation : operations) {
        for (size_t missing = 0; missing < operation.names.size(); ++missing) {
            SCOPED_TRACE(std::string(operation.name) + " without " + operation.names[missing]);
            Use({operation.names[missing]});
            script.log.clear();
            sys().SetLastError(kJunkError);
            EXPECT_EQ(operation.call(), FALSE);
            std::string expected = kLoad;
            for (size_t at = 0; at <= missing; ++at) expected += "GetProcAddress " + operation.names[at] + "\n";
            EXPECT_EQ(Log(), expected + "FreeLibrary\nSetLastError 127\n");
            EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_PROC_NOT_FOUND));
        }
    }
}

TEST_F(WimExports, CapturePassesItsValuesAndReleasesInOrderOnEveryExit) {
    struct Row {
        const char* failing;
        std::function<void(Script&)> fail;
        BOOL result;
        std::string tail;  // the log after the lookups
    };
    const std::string open = "CreateFile T:\\img.wim 0xc0000000 4 0x40 3 null\n";
    const std::string registered = open + "Register 0xf11e callback\n";
    const std::string temporary = registered + "SetTemporaryPath 0xf11e T:\\scratch\n";
    const std::string capture = temporary + "Capture 0xf11e T:\\src 0x0\n";
    const Row rows[] = {
        {"nothing", [](Script&) {}, TRUE, capture + "Unregister 0xf11e callback\nClose 0x1a6e\nClose 0xf11e\nFreeLibrary\n"},
        {"open", [](Script& s) { s.created = nullptr; }, FALSE, open + "FreeLibrary\n"},
        {"register", [](Script& s) { s.registered = INVALID_CALLBACK_VALUE; }, FALSE, registered + "Close 0xf11e\nFreeLibrary\n"},
        {"temporary", [](Script& s) { s.temporarySet = FALSE; }, FALSE,
         temporary + "Unregister 0xf11e callback\nClose 0xf11e\nFreeLibrary\n"},
        {"capture", [](Script& s) { s.captured = nullptr; }, FALSE,
         capture + "Unregister 0xf11e callback\nClose 0xf11e\nFreeLibrary\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string("failing: ") + row.failing);
        script = Script{};
        row.fail(script);
        sys().SetLastError(kJunkError);
        DWORD percent = 0;
        EXPECT_EQ(CompressToWim(_T("T:\\img.wim"), _T("T:\\src"), _T("T:\\scratch"), WIM_COMPRESS_LZMS, &percent, nullptr),
                  row.result);
        std::string lookups = kLoad;
        for (const std::string& name : kCaptureNames) lookups += "GetProcAddress " + name + "\n";
        EXPECT_EQ(Log(), lookups + row.tail);
        EXPECT_EQ(sys().GetLastError(), row.result ? kJunkError : kImagingError);
    }
}

TEST_F(WimExports, ApplyPassesItsValuesAndReturnsTheApplyResultAfterTheSameRelease) {
    struct Row {
        const char* failing;
        std::function<void(Script&)> fail;
        BOOL result;
        std::string tail;
    };
    const std::string open = "CreateFile T:\\img.wim 0x80000000 3 0x0 0 null\n";
    const std::string temporary = open + "Register 0xf11e callback\nSetTemporaryPath 0xf11e T:\\scratch\n";
    const std::string load = temporary + "Load 0xf11e 3\n";
    const std::string apply = load + "Apply 0x1a6e T:\\out 0x80\n";
    const std::string fullRelease = "Unregister 0xf11e callback\nClose 0x1a6e\nClose 0xf11e\nFreeLibrary\n";
    const Row rows[] = {
        {"nothing", [](Script&) {}, TRUE, apply + fullRelease},
        {"apply gives 2", [](Script& s) { s.applied = 2; }, 2, apply + fullRelease},  // passed through as it is
        {"apply", [](Script& s) { s.applied = FALSE; }, FALSE, apply + fullRelease},
        {"open", [](Script& s) { s.created = nullptr; }, FALSE, open + "FreeLibrary\n"},
        {"register", [](Script& s) { s.registered = INVALID_CALLBACK_VALUE; }, FALSE,
         open + "Register 0xf11e callback\nClose 0xf11e\nFreeLibrary\n"},
        {"temporary", [](Script& s) { s.temporarySet = FALSE; }, FALSE,
         temporary + "Unregister 0xf11e callback\nClose 0xf11e\nFreeLibrary\n"},
        {"load", [](Script& s) { s.loaded = nullptr; }, FALSE, load + "Unregister 0xf11e callback\nClose 0xf11e\nFreeLibrary\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string("failing: ") + row.failing);
        script = Script{};
        row.fail(script);
        sys().SetLastError(kJunkError);
        EXPECT_EQ(ExtractFromWim(_T("T:\\img.wim"), _T("T:\\out"), _T("T:\\scratch"), 3, nullptr, &text), row.result);
        std::string lookups = kLoad;
        for (const std::string& name : kApplyNames) lookups += "GetProcAddress " + name + "\n";
        EXPECT_EQ(Log(), lookups + row.tail);
        EXPECT_EQ(sys().GetLastError(), row.result == TRUE || row.result == 2 ? kJunkError : kImagingError);
    }
}

TEST_F(WimExports, WithoutTargetsNothingIsRegisteredOrPumpedButTheExitStillUnregisters) {
    sys().PostMessageW(text.GetSafeHwnd(), WM_USER, 0, 0);
    script.messages = {{WIM_MSG_PROGRESS, 50}};
    EXPECT_EQ(ExtractFromWim(_T("T:\\img.wim"), _T("T:\\out"), _T(""), 1, nullptr, nullptr), TRUE);
    EXPECT_EQ(Log().find("Register "), std::string::npos);
    EXPECT_NE(Log().find("Unregister 0xf11e callback\n"), std::string::npos);
    EXPECT_TRUE(script.answers.empty());
    EXPECT_EQ(g_pinged, 0);
    MSG waiting;
    EXPECT_TRUE(sys().PeekMessageW(&waiting, nullptr, 0, 0, PM_NOREMOVE));  // still the caller's to take
}

TEST_F(WimExports, EmptyTemporaryFolderMeansTheUsersForCaptureAndApplyButNoneForMount) {
    WCHAR users[MAX_PATH] = {};
    sys().GetTempPathW(MAX_PATH, users);
    EXPECT_EQ(CompressToWim(_T("T:\\img.wim"), _T("T:\\src"), _T(""), 0, nullptr, nullptr), TRUE);
    EXPECT_EQ(ExtractFromWim(_T("T:\\img.wim"), _T("T:\\out"), _T(""), 1, nullptr, nullptr), TRUE);
    EXPECT_EQ(MountWim(_T("T:\\img.wim"), _T("T:\\mnt"), _T(""), 2), TRUE);
    EXPECT_EQ(MountWim(_T("T:\\img.wim"), _T("T:\\mnt"), _T("T:\\scratch"), 2), TRUE);
    std::vector<std::string> seen;
    for (const std::string& line : script.log) {
        if (line.starts_with("SetTemporaryPath") || line.starts_with("Mount")) seen.push_back(line);
    }
    const std::string tempSet = "SetTemporaryPath 0xf11e " + U(users);
    EXPECT_EQ(seen, (std::vector<std::string>{tempSet, tempSet, "Mount T:\\mnt T:\\img.wim 2 null",
                                              "Mount T:\\mnt T:\\img.wim 2 T:\\scratch"}));
    EXPECT_TRUE(U(users).ends_with("\\"));
}

TEST_F(WimExports, MountAndUnmountPassTheFolderFirstAndTheirResultsThrough) {
    script.unmounted = 5;
    EXPECT_EQ(UnMountWim(_T("T:\\img.wim"), _T("T:\\mnt"), 4, 2), 5);  // the commit flag is not made 1
    script.mounted = FALSE;
    sys().SetLastError(kJunkError);
    EXPECT_EQ(MountWim(_T("T:\\img.wim"), _T("T:\\mnt"), _T("T:\\scratch"), 9), FALSE);
    EXPECT_EQ(sys().GetLastError(), kImagingError);
    EXPECT_EQ(Log(), std::string(kLoad) + "GetProcAddress WIMUnmountImage\nUnmount T:\\mnt T:\\img.wim 4 2\nFreeLibrary\n" +
                         kLoad + "GetProcAddress WIMMountImage\nMount T:\\mnt T:\\img.wim 9 T:\\scratch\nFreeLibrary\n");
}

TEST_F(WimExports, PathsThatDoNotFitTheBuffersAreRefusedWithTheLibraryReleased) {
    const CString longest(std::basic_string<WCHAR>(MAX_PATH - 1, u'a').c_str());  // fits with its terminator
    const CString tooLong = longest + _T("b");
    EXPECT_EQ(CompressToWim(tooLong, _T("T:\\src"), _T(""), 0, nullptr, nullptr), FALSE);
    EXPECT_EQ(ExtractFromWim(_T("T:\\img.wim"), tooLong, _T(""), 1, nullptr, nullptr), FALSE);
    EXPECT_EQ(CompressToWim(_T("T:\\img.wim"), _T("T:\\src"), tooLong, 0, nullptr, nullptr), FALSE);
    EXPECT_EQ(MountWim(_T("T:\\img.wim"), _T("T:\\mnt"), tooLong, 1), FALSE);
    EXPECT_EQ(UnMountWim(_T("T:\\img.wim"), tooLong, 1, TRUE), FALSE);
    for (const std::string& line : script.log) {
        EXPECT_FALSE(line.starts_with("Mount") || line.starts_with("Unmount") || line.starts_with("Capture")) << line;
    }
    EXPECT_EQ(CompressToWim(longest, _T("T:\\src"), _T(""), 0, nullptr, nullptr), TRUE);
    EXPECT_EQ(MountWim(longest, _T("T:\\mnt"), longest, 1), TRUE);
}

TEST_F(WimExports, EachTargetAloneGetsOnlyItsMessagesAndEveryMessageIsAnsweredOneAfterPumping) {
    script.messages = {{WIM_MSG_PROGRESS, 0x100000028}, {WIM_MSG_PROCESS, reinterpret_cast<WPARAM>(_T("T:\\src\\日本語.txt"))},
                       {WIM_MSG_FILEINFO, reinterpret_cast<WPARAM>(_T("T:\\out\\b.bin"))}, {WIM_MSG_SCANNING, 3}};
    struct Row {
        bool percent, window;
        DWORD expectedPercent;
        std::string expectedText;
    };
    for (const Row& row : {Row{true, false, 40, ""}, Row{false, true, 7, "T:\\out\\b.bin"}, Row{true, true, 40, "T:\\out\\b.bin"}}) {
        SCOPED_TRACE(std::to_string(row.percent) + " " + std::to_string(row.window));
        text.SetWindowText(_T(""));
        script.answers.clear();
        g_pinged = 0;
        DWORD percent = 7;
        // A message waits before each of the four the imaging library sends; each is pumped before the answer.
        script.whileWorking = [&] {
            sys().PostMessageW(text.GetSafeHwnd(), WM_USER, 0, 0);
        };
        std::vector<std::string> texts;
        ApiPatch<&Win32Api::SetWindowTextW> watch([&](HWND window, LPCWSTR value) {
            texts.push_back(U(value));
            return watch.Original()(window, value);
        });
        EXPECT_EQ(ExtractFromWim(_T("T:\\img.wim"), _T("T:\\out"), _T(""), 1, row.percent ? &percent : nullptr,
                                 row.window ? &text : nullptr),
                  TRUE);
        EXPECT_EQ(percent, row.expectedPercent);  // the low 32 bits of the percentage
        EXPECT_EQ(WindowText(), row.expectedText);
        EXPECT_EQ(texts.size(), row.window ? 2u : 0u);
        EXPECT_EQ(script.answers, (std::vector<DWORD>{1, 1, 1, 1}));
        EXPECT_EQ(g_pinged, 1);
    }
}

TEST_F(WimExports, AQuitPostedDuringTheWorkIsConsumedByThePump) {
    script.whileWorking = [] { sys().PostQuitMessage(3); };
    script.messages = {{WIM_MSG_PROGRESS, 100}};
    DWORD percent = 0;
    EXPECT_EQ(CompressToWim(_T("T:\\img.wim"), _T("T:\\src"), _T(""), 0, &percent, nullptr), TRUE);
    EXPECT_EQ(percent, 100u);
    MSG left;
    EXPECT_FALSE(sys().PeekMessageW(&left, nullptr, 0, 0, PM_REMOVE));
}

}  // namespace
