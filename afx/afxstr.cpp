// CString members with MFC's clamping rules: out-of-range positions and counts are brought into range.
#include "afxstr.h"

#include <algorithm>

namespace {

bool IsSpace(TCHAR unit) { return unit == _T(' ') || (unit >= _T('\t') && unit <= _T('\r')); }

}  // namespace

CString CString::Left(int count) const {
    count = std::clamp(count, 0, GetLength());
    return CString(m_text.substr(0, static_cast<size_t>(count)));
}

CString CString::Right(int count) const {
    count = std::clamp(count, 0, GetLength());
    return CString(m_text.substr(m_text.size() - static_cast<size_t>(count)));
}

CString CString::Mid(int first) const { return Mid(first, GetLength()); }

CString CString::Mid(int first, int count) const {
    first = std::clamp(first, 0, GetLength());
    count = std::clamp(count, 0, GetLength() - first);
    return CString(m_text.substr(static_cast<size_t>(first), static_cast<size_t>(count)));
}

int CString::Find(TCHAR unit, int start) const {
    if (start < 0 || start >= GetLength()) return -1;
    const size_t at = m_text.find(unit, static_cast<size_t>(start));
    return at == WString::npos ? -1 : static_cast<int>(at);
}

int CString::Find(LPCTSTR text, int start) const {
    if (text == nullptr || start < 0 || start > GetLength()) return -1;
    const size_t at = m_text.find(text, static_cast<size_t>(start));
    return at == WString::npos ? -1 : static_cast<int>(at);
}

int CString::ReverseFind(TCHAR unit) const {
    const size_t at = m_text.rfind(unit);
    return at == WString::npos ? -1 : static_cast<int>(at);
}

int CString::Replace(TCHAR from, TCHAR to) {
    int count = 0;
    for (TCHAR& unit : m_text) {
        if (unit == from) {
            unit = to;
            ++count;
        }
    }
    return count;
}

int CString::Replace(LPCTSTR from, LPCTSTR to) {
    const size_t fromLength = WStrLen(from);
    if (fromLength == 0) return 0;
    const WString replacement = to != nullptr ? to : _T("");
    int count = 0;
    for (size_t at = m_text.find(from, 0, fromLength); at != WString::npos;
         at = m_text.find(from, at + replacement.size(), fromLength)) {
        m_text.replace(at, fromLength, replacement);
        ++count;
    }
    return count;
}

int CString::Insert(int index, LPCTSTR text) {
    index = std::clamp(index, 0, GetLength());
    if (text != nullptr) m_text.insert(static_cast<size_t>(index), text);
    return GetLength();
}

int CString::Delete(int index, int count) {
    index = std::max(index, 0);
    if (count > 0 && index < GetLength()) m_text.erase(static_cast<size_t>(index), static_cast<size_t>(count));
    return GetLength();
}

CString& CString::MakeUpper() {
    for (TCHAR& unit : m_text) unit = WCharToUpper(unit);
    return *this;
}

CString& CString::MakeLower() {
    for (TCHAR& unit : m_text) unit = WCharToLower(unit);
    return *this;
}

CString& CString::TrimLeft() {
    size_t first = 0;
    while (first < m_text.size() && IsSpace(m_text[first])) ++first;
    m_text.erase(0, first);
    return *this;
}

CString& CString::TrimRight() {
    size_t end = m_text.size();
    while (end > 0 && IsSpace(m_text[end - 1])) --end;
    m_text.resize(end);
    return *this;
}

CString& CString::Trim() { return TrimRight().TrimLeft(); }

CString& CString::TrimLeft(TCHAR unit) {
    size_t first = 0;
    while (first < m_text.size() && m_text[first] == unit) ++first;
    m_text.erase(0, first);
    return *this;
}

CString& CString::TrimRight(TCHAR unit) {
    size_t end = m_text.size();
    while (end > 0 && m_text[end - 1] == unit) --end;
    m_text.resize(end);
    return *this;
}

void CString::FormatV(LPCTSTR format, va_list args) { m_text = WStrFormatV(format, args); }

void CString::Format(LPCTSTR format, ...) {
    va_list args;
    va_start(args, format);
    m_text = WStrFormatV(format, args);
    va_end(args);
}

void CString::AppendFormat(LPCTSTR format, ...) {
    va_list args;
    va_start(args, format);
    m_text += WStrFormatV(format, args);
    va_end(args);
}

LPTSTR CString::GetBuffer(int minLength) {
    if (minLength > GetLength()) m_text.resize(static_cast<size_t>(minLength));
    return m_text.data();
}

LPTSTR CString::GetBufferSetLength(int length) {
    m_text.resize(static_cast<size_t>(std::max(length, 0)));
    return m_text.data();
}

void CString::ReleaseBuffer(int newLength) {
    if (newLength < 0) newLength = static_cast<int>(WStrLen(m_text.c_str()));
    m_text.resize(static_cast<size_t>(std::min(newLength, GetLength())));
}
