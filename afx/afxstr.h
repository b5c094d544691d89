// CString: MFC's wide string with value semantics, the subset of members the library and its hosts use.
#pragma once

#include <compare>

#include "../platform/wstr.h"

class CString {
public:
    CString() = default;
    CString(LPCTSTR text) : m_text(text != nullptr ? text : _T("")) {}  // NOLINT: MFC converts implicitly
    CString(LPCTSTR text, int length) : m_text(text != nullptr && length > 0 ? WString(text, static_cast<size_t>(length)) : WString()) {}
    explicit CString(TCHAR unit, int repeat = 1) : m_text(repeat > 0 ? static_cast<size_t>(repeat) : 0, unit) {}
    CString(const CString&) = default;
    CString(CString&&) noexcept = default;
    CString& operator=(const CString&) = default;
    CString& operator=(CString&&) noexcept = default;
    CString& operator=(LPCTSTR text) {
        m_text = text != nullptr ? text : _T("");
        return *this;
    }
    CString& operator=(TCHAR unit) {
        m_text.assign(1, unit);
        return *this;
    }

    int GetLength() const { return static_cast<int>(m_text.size()); }
    bool IsEmpty() const { return m_text.empty(); }
    void Empty() { m_text.clear(); }
    LPCTSTR GetString() const { return m_text.c_str(); }
    operator LPCTSTR() const { return m_text.c_str(); }  // NOLINT: MFC converts implicitly
    TCHAR GetAt(int index) const { return m_text.at(static_cast<size_t>(index)); }
    TCHAR operator[](int index) const { return GetAt(index); }
    void SetAt(int index, TCHAR unit) { m_text.at(static_cast<size_t>(index)) = unit; }

    CString& operator+=(const CString& text) {
        m_text += text.m_text;
        return *this;
    }
    CString& operator+=(LPCTSTR text) {
        if (text != nullptr) m_text += text;
        return *this;
    }
    CString& operator+=(TCHAR unit) {
        m_text += unit;
        return *this;
    }
    friend CString operator+(const CString& a, const CString& b) { return CString(a.m_text + b.m_text); }
    friend CString operator+(const CString& a, LPCTSTR b) { return CString(a.m_text + (b != nullptr ? b : _T(""))); }
    friend CString operator+(LPCTSTR a, const CString& b) { return CString((a != nullptr ? a : _T("")) + b.m_text); }
    friend CString operator+(const CString& a, TCHAR b) { return CString(a.m_text + b); }
    friend CString operator+(TCHAR a, const CString& b) { return CString(WString(1, a) + b.m_text); }

    friend bool operator==(const CString& a, const CString& b) { return a.m_text == b.m_text; }
    friend bool operator==(const CString& a, LPCTSTR b) { return a.Compare(b) == 0; }
    friend std::strong_ordering operator<=>(const CString& a, const CString& b) { return a.m_text <=> b.m_text; }

    int Compare(LPCTSTR other) const { return WStrCmp(GetString(), other != nullptr ? other : _T("")); }
    int CompareNoCase(LPCTSTR other) const { return WStrICmp(GetString(), other != nullptr ? other : _T("")); }

    CString Left(int count) const;
    CString Right(int count) const;
    CString Mid(int first) const;
    CString Mid(int first, int count) const;
    int Find(TCHAR unit, int start = 0) const;
    int Find(LPCTSTR text, int start = 0) const;
    int ReverseFind(TCHAR unit) const;
    int Replace(TCHAR from, TCHAR to);
    int Replace(LPCTSTR from, LPCTSTR to);
    int Insert(int index, LPCTSTR text);
    int Delete(int index, int count = 1);
    CString& MakeUpper();
    CString& MakeLower();
    CString& TrimLeft();
    CString& TrimRight();
    CString& Trim();
    CString& TrimLeft(TCHAR unit);
    CString& TrimRight(TCHAR unit);

    void Format(LPCTSTR format, ...);
    void AppendFormat(LPCTSTR format, ...);
    void FormatV(LPCTSTR format, va_list args);

    // Direct access to a buffer of at least minLength units; ReleaseBuffer(-1) takes the length up to the
    // first NUL, as MFC does.
    LPTSTR GetBuffer(int minLength = 0);
    LPTSTR GetBufferSetLength(int length);
    void ReleaseBuffer(int newLength = -1);

private:
    explicit CString(WString text) : m_text(std::move(text)) {}
    WString m_text;
};
