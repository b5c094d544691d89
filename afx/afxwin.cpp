// CWnd over the platform's window functions.
#include "../platform/api.h"
#include "afxwin.h"

CWnd::~CWnd() {
    if (m_hWnd != nullptr) DestroyWindow();
}

BOOL CWnd::Create(LPCTSTR className, LPCTSTR windowName, DWORD style, const RECT& rect, CWnd* parent, UINT id, LPVOID param) {
    return CreateEx(0, className, windowName, style | WS_CHILD, rect.left, rect.top, rect.right - rect.left,
                    rect.bottom - rect.top, parent != nullptr ? parent->m_hWnd : nullptr,
                    reinterpret_cast<HMENU>(static_cast<UINT_PTR>(id)), param);
}

BOOL CWnd::CreateEx(DWORD exStyle, LPCTSTR className, LPCTSTR windowName, DWORD style, int x, int y, int width, int height,
                    HWND parent, HMENU idOrMenu, LPVOID param) {
    if (m_hWnd != nullptr) return FALSE;
    m_hWnd = sys().CreateWindowExW(exStyle, className, windowName, style, x, y, width, height, parent, idOrMenu, nullptr, param);
    return m_hWnd != nullptr;
}

BOOL CWnd::DestroyWindow() {
    if (m_hWnd == nullptr) return FALSE;
    const BOOL result = sys().DestroyWindow(m_hWnd);
    m_hWnd = nullptr;
    return result;
}

BOOL CWnd::Attach(HWND window) {
    if (m_hWnd != nullptr || window == nullptr) return FALSE;
    m_hWnd = window;
    return TRUE;
}

HWND CWnd::Detach() {
    HWND window = m_hWnd;
    m_hWnd = nullptr;
    return window;
}

LRESULT CWnd::SendMessage(UINT message, WPARAM wParam, LPARAM lParam) const {
    return sys().SendMessageW(m_hWnd, message, wParam, lParam);
}

BOOL CWnd::PostMessage(UINT message, WPARAM wParam, LPARAM lParam) const {
    return sys().PostMessageW(m_hWnd, message, wParam, lParam);
}

void CWnd::SetWindowText(LPCTSTR text) { sys().SetWindowTextW(m_hWnd, text); }

int CWnd::GetWindowText(LPTSTR buffer, int capacity) const { return sys().GetWindowTextW(m_hWnd, buffer, capacity); }

void CWnd::GetWindowText(CString& text) const {
    const int length = sys().GetWindowTextLengthW(m_hWnd);
    LPTSTR buffer = text.GetBufferSetLength(length + 1);
    const int copied = sys().GetWindowTextW(m_hWnd, buffer, length + 1);
    text.ReleaseBuffer(copied);
}

BOOL CWnd::ShowWindow(int command) { return sys().ShowWindow(m_hWnd, command); }

BOOL CWnd::IsWindowVisible() const { return sys().IsWindowVisible(m_hWnd); }
