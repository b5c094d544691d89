// The emulated desktop: window classes, synchronous sends, posted messages and window text.
#include <gtest/gtest.h>

#include <vector>

#include <afxwin.h>

#include "../../platform/api.h"
#include "../../platform/linux/desktop/desktop.h"

namespace {

std::vector<UINT>& Seen() {
    static std::vector<UINT> seen;
    return seen;
}

LRESULT CALLBACK RecordingProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    Seen().push_back(message);
    if (message == WM_APP) return static_cast<LRESULT>(wParam * 2);
    return sys().DefWindowProcW(window, message, wParam, lParam);
}

class Desktop : public ::testing::Test {
protected:
    void SetUp() override {
        Seen().clear();
        WNDCLASSW windowClass{};
        windowClass.lpfnWndProc = RecordingProc;
        windowClass.lpszClassName = _T("VelmoraTestWindow");
        ASSERT_NE(sys().RegisterClassW(&windowClass), 0);
        windowsBefore_ = vlx::WindowCount();
    }
    void TearDown() override {
        EXPECT_EQ(vlx::WindowCount(), windowsBefore_) << "a window was left behind";
        sys().UnregisterClassW(_T("VelmoraTestWindow"), nullptr);
    }
    HWND Make(LPCWSTR title, HWND parent = nullptr) {
        return sys().CreateWindowExW(0, _T("velmoratestwindow"), title, parent ? WS_CHILD : WS_OVERLAPPEDWINDOW, 0, 0, 10, 10,
                                     parent, nullptr, nullptr, nullptr);
    }
    size_t windowsBefore_ = 0;
};

TEST_F(Desktop, SendRunsTheProcedureAtOnceAndReturnsItsResult) {
    HWND window = Make(_T("one"));
    ASSERT_NE(window, nullptr);
    EXPECT_EQ(Seen(), (std::vector<UINT>{WM_NCCREATE, WM_CREATE}));
    EXPECT_EQ(sys().SendMessageW(window, WM_APP, 21, 0), 42);
    EXPECT_TRUE(sys().DestroyWindow(window));

    sys().SetLastError(0xdeadbeef);
    EXPECT_EQ(sys().SendMessageW(window, WM_APP, 21, 0), 0);
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INVALID_WINDOW_HANDLE));
}

WNDPROC g_subclassed = nullptr;
LRESULT CALLBACK DoublingSubclass(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_APP) return 2 * g_subclassed(window, message, wParam, lParam);
    return g_subclassed(window, message, wParam, lParam);
}

TEST_F(Desktop, SubclassingTakesEffectAtTheNextSendAndAProcedureMayDestroyItsOwnWindow) {
    HWND window = Make(_T("subclassed"));
    ASSERT_NE(window, nullptr);
    EXPECT_EQ(sys().SetWindowLongPtrW(window, GWLP_USERDATA, 7), 0);
    EXPECT_EQ(sys().GetWindowLongPtrW(window, GWLP_USERDATA), 7);
    g_subclassed = reinterpret_cast<WNDPROC>(
        sys().SetWindowLongPtrW(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(DoublingSubclass)));
    EXPECT_EQ(g_subclassed, RecordingProc);
    EXPECT_EQ(sys().SendMessageW(window, WM_APP, 5, 0), 20);

    // WM_CLOSE reaches the default procedure through both, and it destroys the window mid-send.
    EXPECT_EQ(sys().SendMessageW(window, WM_CLOSE, 0, 0), 0);
    EXPECT_FALSE(sys().IsWindow(window));
    for (const int index : {GWLP_USERDATA, GWLP_WNDPROC}) {
        sys().SetLastError(0xdeadbeef);
        EXPECT_EQ(sys().GetWindowLongPtrW(window, index), 0);
        EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INVALID_WINDOW_HANDLE));
        sys().SetLastError(0xdeadbeef);
        EXPECT_EQ(sys().SetWindowLongPtrW(window, index, 1), 0);
        EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INVALID_WINDOW_HANDLE));
    }

    HWND other = Make(_T("other"));
    sys().SetLastError(0xdeadbeef);
    EXPECT_EQ(sys().GetWindowLongPtrW(other, 12345), 0);
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INVALID_INDEX));
    sys().DestroyWindow(other);
}

TEST_F(Desktop, UnknownClassFails) {
    sys().SetLastError(0xdeadbeef);
    EXPECT_EQ(sys().CreateWindowExW(0, _T("NoSuchClass"), _T(""), 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_CANNOT_FIND_WND_CLASS));
}

TEST_F(Desktop, PostedMessagesWaitForPeekAndDispatchInOrderAndHonourTheFilter) {
    HWND window = Make(_T("queue"));
    Seen().clear();
    ASSERT_TRUE(sys().PostMessageW(window, WM_APP, 1, 0));
    ASSERT_TRUE(sys().PostMessageW(window, WM_USER, 2, 0));
    EXPECT_TRUE(Seen().empty()) << "posting must not run the procedure";

    MSG msg{};
    ASSERT_TRUE(sys().PeekMessageW(&msg, nullptr, WM_USER, WM_USER, PM_REMOVE));
    EXPECT_EQ(msg.message, static_cast<UINT>(WM_USER));
    ASSERT_TRUE(sys().PeekMessageW(&msg, nullptr, 0, 0, PM_NOREMOVE));
    EXPECT_EQ(msg.message, static_cast<UINT>(WM_APP));
    ASSERT_TRUE(sys().PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE));
    EXPECT_EQ(sys().DispatchMessageW(&msg), 2);
    EXPECT_FALSE(sys().PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE));
    sys().DestroyWindow(window);
}

TEST_F(Desktop, DestroyingAParentTakesItsChildrenAndTheirQueuedMessages) {
    HWND parent = Make(_T("parent"));
    HWND child = Make(_T("child"), parent);
    ASSERT_NE(child, nullptr);
    sys().PostMessageW(child, WM_APP, 0, 0);
    EXPECT_TRUE(sys().DestroyWindow(parent));
    EXPECT_FALSE(sys().IsWindow(child));
    MSG msg{};
    EXPECT_FALSE(sys().PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE));
}

TEST_F(Desktop, WindowTextIsCutToTheBufferAndFoundByTitle) {
    HWND older = Make(_T("Same title"));
    HWND newer = Make(_T("Same title"));
    EXPECT_EQ(sys().FindWindowW(nullptr, _T("Same title")), newer) << "the newest window is on top";
    EXPECT_EQ(sys().FindWindowW(_T("VELMORATESTWINDOW"), nullptr), newer);

    ASSERT_TRUE(sys().SetWindowTextW(older, _T("abcdef")));
    WCHAR buffer[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(sys().GetWindowTextW(older, buffer, 4), 3);
    EXPECT_EQ(WString(buffer), WString(_T("abc")));
    EXPECT_EQ(sys().GetWindowTextLengthW(older), 6);
    sys().DestroyWindow(older);
    sys().DestroyWindow(newer);
    EXPECT_EQ(sys().FindWindowW(nullptr, _T("Same title")), nullptr);
}

TEST_F(Desktop, CWndDestroysTheWindowItStillHolds) {
    HWND handle = nullptr;
    {
        CWnd wnd;
        ASSERT_TRUE(wnd.CreateEx(0, _T("VelmoraTestWindow"), _T("held"), 0, 0, 0, 1, 1, nullptr, nullptr));
        handle = wnd.GetSafeHwnd();
        CString text;
        wnd.GetWindowText(text);
        EXPECT_EQ(text, _T("held"));
    }
    EXPECT_FALSE(sys().IsWindow(handle));
}

}  // namespace
