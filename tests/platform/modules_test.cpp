// Libraries loaded at run time from the emulated system folder: where they are found, how loads are
// counted, entry points by name, a test's own module hiding the platform's, and the folder names.
#include <gtest/gtest.h>

#include "../../platform/api.h"
#include "../../platform/linux/host.h"

namespace {

constexpr DWORD kJunkError = 0xdeadbeef;

int WINAPI Answer42() { return 42; }

TEST(Modules, FoundInTheSystemFolderByFullPathOrBareNameOnly) {
    vlx::SystemModule module(u"velmoratest.dll", {{{"Answer", vlx::EntryPoint(Answer42)}}, 0});
    struct Row {
        const char16_t* path;
        bool found;
    };
    const Row rows[] = {
        {u"C:\\Windows\\System32\\velmoratest.dll", true}, {u"c:/windows/SYSTEM32\\VelmoraTest.DLL", true},
        {u"velmoratest.dll", true},  {u"velmoratest", true},  // ".dll" is understood
        {u"C:\\Windows\\velmoratest.dll", false}, {u"C:\\Windows\\System32\\other.dll", false}, {u"", false}};
    for (const Row& row : rows) {
        SCOPED_TRACE(WStrToUtf8(row.path));
        sys().SetLastError(kJunkError);
        const HMODULE module = sys().LoadLibraryW(row.path);
        EXPECT_EQ(module != nullptr, row.found);
        if (module == nullptr) {
            EXPECT_EQ(sys().GetLastError(), row.path[0] == 0 ? DWORD{ERROR_INVALID_PARAMETER} : DWORD{ERROR_MOD_NOT_FOUND});
        } else {
            EXPECT_TRUE(sys().FreeLibrary(module));
        }
    }
    EXPECT_EQ(vlx::ModuleLoadCount(u"velmoratest.dll"), 0);
}

TEST(Modules, LoadsShareOneHandleThatLivesUntilTheLastFreeAndEntryPointsGoByExactName) {
    const size_t handles = vlx::OpenHandleCount();
    vlx::SystemModule module(u"velmoratest.dll", {{{"Answer", vlx::EntryPoint(Answer42)}}, 0});
    const HMODULE first = sys().LoadLibraryW(u"velmoratest.dll");
    const HMODULE second = sys().LoadLibraryW(u"C:\\Windows\\System32\\velmoratest.dll");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first, second);
    EXPECT_EQ(sys().GetModuleHandleW(u"VELMORATEST.DLL"), first);
    EXPECT_EQ(vlx::ModuleLoadCount(u"velmoratest.dll"), 2);
    EXPECT_EQ(vlx::OpenHandleCount(), handles + 1);

    const FARPROC answer = sys().GetProcAddress(first, "Answer");
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(reinterpret_cast<int(WINAPI*)()>(reinterpret_cast<void (*)()>(answer))(), 42);
    for (LPCSTR name : {"answer", "Missing", reinterpret_cast<LPCSTR>(static_cast<uintptr_t>(1))}) {
        sys().SetLastError(kJunkError);
        EXPECT_EQ(sys().GetProcAddress(first, name), nullptr);
        EXPECT_EQ(sys().GetLastError(), DWORD{ERROR_PROC_NOT_FOUND});
    }

    EXPECT_TRUE(sys().FreeLibrary(first));
    EXPECT_NE(sys().GetProcAddress(first, "Answer"), nullptr);  // one load is left
    EXPECT_TRUE(sys().FreeLibrary(first));
    EXPECT_EQ(vlx::OpenHandleCount(), handles);
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(sys().FreeLibrary(first));
    EXPECT_EQ(sys().GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(sys().GetModuleHandleW(u"velmoratest.dll"), nullptr);
}

TEST(Modules, ATestsModuleHidesThePlatformsUntilItsRegistrationEnds) {
    const HMODULE builtin = sys().LoadLibraryW(u"wimgapi.dll");
    ASSERT_NE(builtin, nullptr);
    EXPECT_NE(sys().GetProcAddress(builtin, "WIMCreateFile"), nullptr);
    {
        vlx::SystemModule lacking(u"WIMGAPI.DLL", {{{"WIMCreateFile", nullptr}}, 0});
        const HMODULE own = sys().LoadLibraryW(u"wimgapi.dll");
        EXPECT_NE(own, builtin);
        EXPECT_EQ(sys().GetProcAddress(own, "WIMCreateFile"), nullptr);
        sys().FreeLibrary(own);
        vlx::SystemModule broken(u"wimgapi.dll", {{}, ERROR_DLL_INIT_FAILED});
        sys().SetLastError(kJunkError);
        EXPECT_EQ(sys().LoadLibraryW(u"wimgapi.dll"), nullptr);
        EXPECT_EQ(sys().GetLastError(), DWORD{ERROR_DLL_INIT_FAILED});
    }
    EXPECT_EQ(sys().LoadLibraryW(u"wimgapi.dll"), builtin);
    sys().FreeLibrary(builtin);
    sys().FreeLibrary(builtin);
}

TEST(Modules, FolderNamesTellTheSizeNeededWhenTheBufferIsShort) {
    WCHAR buffer[MAX_PATH];
    const UINT length = sys().GetSystemDirectoryW(buffer, MAX_PATH);
    EXPECT_EQ(WStrToUtf8(buffer), "C:\\Windows\\System32");
    EXPECT_EQ(length, 19u);
    buffer[0] = u'x';
    EXPECT_EQ(sys().GetSystemDirectoryW(buffer, length), length + 1);
    EXPECT_EQ(buffer[0], u'x');

    const DWORD tempLength = sys().GetTempPathW(MAX_PATH, buffer);
    ASSERT_GT(tempLength, 0u);
    EXPECT_EQ(buffer[tempLength - 1], u'\\');
    EXPECT_EQ(sys().PathIsDirectoryW(buffer), FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_EQ(sys().GetTempPathW(tempLength, buffer), tempLength + 1);
}

// A caller's window shows progress from a timer while a long call pumps its messages.
TEST(MessageTimers, ATimerFiresOnlyWhenNothingElseWaitsAndNeverPilesUp) {
    int fired = 0;
    static int* counter = nullptr;
    counter = &fired;
    const UINT_PTR id = sys().SetTimer(nullptr, 0, 0, [](HWND, UINT, UINT_PTR, DWORD) { ++*counter; });
    ASSERT_NE(id, 0u);
    sys().PostMessageW(nullptr, WM_USER, 0, 0);
    MSG msg;
    // Wait for the period to pass without sleeping in the test: GetMessageW blocks until it has.
    ASSERT_TRUE(sys().GetMessageW(&msg, nullptr, 0, 0));
    EXPECT_EQ(msg.message, static_cast<UINT>(WM_USER));  // the posted message comes first
    ASSERT_TRUE(sys().GetMessageW(&msg, nullptr, 0, 0));
    EXPECT_EQ(msg.message, static_cast<UINT>(WM_TIMER));
    EXPECT_EQ(msg.wParam, id);
    sys().DispatchMessageW(&msg);
    EXPECT_EQ(fired, 1);
    EXPECT_FALSE(sys().PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE));  // the next one is a whole period away
    EXPECT_TRUE(sys().KillTimer(nullptr, id));
    EXPECT_FALSE(sys().KillTimer(nullptr, id));
}

}  // namespace
