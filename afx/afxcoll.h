// CStringArray: MFC's growable array of CString.
#pragma once

#include <vector>

#include "afx.h"

class CStringArray {
public:
    INT_PTR GetSize() const { return static_cast<INT_PTR>(m_items.size()); }
    INT_PTR GetCount() const { return GetSize(); }
    INT_PTR GetUpperBound() const { return GetSize() - 1; }
    bool IsEmpty() const { return m_items.empty(); }
    void SetSize(INT_PTR size, INT_PTR growBy = -1);
    void RemoveAll() { m_items.clear(); }

    const CString& GetAt(INT_PTR index) const { return m_items.at(static_cast<size_t>(index)); }
    CString& ElementAt(INT_PTR index) { return m_items.at(static_cast<size_t>(index)); }
    const CString& operator[](INT_PTR index) const { return GetAt(index); }
    CString& operator[](INT_PTR index) { return ElementAt(index); }
    void SetAt(INT_PTR index, LPCTSTR text) { ElementAt(index) = text; }
    void SetAtGrow(INT_PTR index, LPCTSTR text);
    INT_PTR Add(LPCTSTR text);
    INT_PTR Add(const CString& text);
    void InsertAt(INT_PTR index, LPCTSTR text, INT_PTR count = 1);
    void RemoveAt(INT_PTR index, INT_PTR count = 1);

private:
    std::vector<CString> m_items;
};
