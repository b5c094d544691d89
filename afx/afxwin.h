// Windows side of the MFC subset: module state and CWnd, the base of every window object.
#pragma once

#include "afx.h"
#include "afxstat_.h"

// A C++ object that wraps one window handle. Like MFC's, it destroys a window it still holds when it is
// destroyed itself.
class CWnd {
public:
    CWnd() = default;
    virtual ~CWnd();
    CWnd(const CWnd&) = delete;
    CWnd& operator=(const CWnd&) = delete;

    HWND m_hWnd = nullptr;

    HWND GetSafeHwnd() const { return m_hWnd; }
    operator HWND() const { return m_hWnd; }  // NOLINT: MFC converts implicitly

    virtual BOOL Create(LPCTSTR className, LPCTSTR windowName, DWORD style, const RECT& rect, CWnd* parent, UINT id,
                        LPVOID param = nullptr);
    BOOL CreateEx(DWORD exStyle, LPCTSTR className, LPCTSTR windowName, DWORD style, int x, int y, int width, int height,
                  HWND parent, HMENU idOrMenu, LPVOID param = nullptr);
    virtual BOOL DestroyWindow();
    BOOL Attach(HWND window);
    HWND Detach();

    LRESULT SendMessage(UINT message, WPARAM wParam = 0, LPARAM lParam = 0) const;
    BOOL PostMessage(UINT message, WPARAM wParam = 0, LPARAM lParam = 0) const;
    void SetWindowText(LPCTSTR text);
    int GetWindowText(LPTSTR buffer, int capacity) const;
    void GetWindowText(CString& text) const;
    BOOL ShowWindow(int command);
    BOOL IsWindowVisible() const;
};
