// CStringArray members. Negative sizes and indexes are refused by the vector's own checks.
#include "afxcoll.h"

#include <algorithm>

void CStringArray::SetSize(INT_PTR size, INT_PTR /*growBy*/) { m_items.resize(static_cast<size_t>(size < 0 ? 0 : size)); }

void CStringArray::SetAtGrow(INT_PTR index, LPCTSTR text) {
    if (index < 0) return;
    if (static_cast<size_t>(index) >= m_items.size()) m_items.resize(static_cast<size_t>(index) + 1);
    m_items[static_cast<size_t>(index)] = text;
}

INT_PTR CStringArray::Add(LPCTSTR text) {
    m_items.emplace_back(text);
    return GetUpperBound();
}

INT_PTR CStringArray::Add(const CString& text) {
    m_items.push_back(text);
    return GetUpperBound();
}

void CStringArray::InsertAt(INT_PTR index, LPCTSTR text, INT_PTR count) {
    if (index < 0 || count <= 0) return;
    if (static_cast<size_t>(index) > m_items.size()) m_items.resize(static_cast<size_t>(index));
    m_items.insert(m_items.begin() + index, static_cast<size_t>(count), CString(text));
}

void CStringArray::RemoveAt(INT_PTR index, INT_PTR count) {
    if (index < 0 || count <= 0 || static_cast<size_t>(index) >= m_items.size()) return;
    const size_t end = std::min(m_items.size(), static_cast<size_t>(index + count));
    m_items.erase(m_items.begin() + index, m_items.begin() + static_cast<std::ptrdiff_t>(end));
}
