// The common controls of the MFC subset, over the platform's window messages.
#pragma once

#include "afxwin.h"

// ---- CListCtrl: a list-view control (WC_LISTVIEWW).
class CListCtrl : public CWnd {
public:
    using CWnd::Create;
    BOOL Create(DWORD style, const RECT& rect, CWnd* parent, UINT id);

    // Width -1 and subItem -1 leave those to the control, as in MFC.
    int InsertColumn(int column, LPCTSTR heading, int format = LVCFMT_LEFT, int width = -1, int subItem = -1);
    int InsertColumn(int column, const LVCOLUMNW* column_);
    int InsertItem(UINT mask, int item, LPCTSTR text, UINT state, UINT stateMask, int image, LPARAM param);
    int InsertItem(int item, LPCTSTR text);
    int InsertItem(const LVITEMW* item);
    BOOL SetItemText(int item, int subItem, LPCTSTR text);
    int GetItemCount() const;
    CString GetItemText(int item, int subItem) const;
    int GetItemText(int item, int subItem, LPTSTR buffer, int capacity) const;
    BOOL GetColumn(int column, LVCOLUMNW* column_) const;
    BOOL DeleteItem(int item);
    BOOL DeleteAllItems();
};

// ---- CProgressCtrl: a progress bar (PROGRESS_CLASSW). Every member is one message to the control.
class CProgressCtrl : public CWnd {
public:
    CProgressCtrl() = default;

    using CWnd::Create;
    virtual BOOL Create(DWORD style, const RECT& rect, CWnd* parent, UINT id);

    void SetRange(short lower, short upper);
    void SetRange32(int lower, int upper);
    void GetRange(int& lower, int& upper) const;
    int SetPos(int position);
    int GetPos() const;
    int OffsetPos(int delta);
    int SetStep(int step);
    int StepIt();
};
// ---- end CProgressCtrl
