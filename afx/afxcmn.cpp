// Common controls of the MFC subset (CListCtrl, CProgressCtrl) over the platform's window messages, as MFC sends them.
#include "../platform/api.h"
#include "afxcmn.h"

BOOL CListCtrl::Create(DWORD style, const RECT& rect, CWnd* parent, UINT id) {
    return CWnd::Create(WC_LISTVIEWW, nullptr, style, rect, parent, id);
}

int CListCtrl::InsertColumn(int column, LPCTSTR heading, int format, int width, int subItem) {
    LVCOLUMNW added{};
    added.mask = LVCF_TEXT | LVCF_FMT;
    added.pszText = const_cast<LPTSTR>(heading);
    added.fmt = format;
    if (width != -1) {
        added.mask |= LVCF_WIDTH;
        added.cx = width;
    }
    if (subItem != -1) {
        added.mask |= LVCF_SUBITEM;
        added.iSubItem = subItem;
    }
    return InsertColumn(column, &added);
}

int CListCtrl::InsertColumn(int column, const LVCOLUMNW* column_) {
    return static_cast<int>(SendMessage(LVM_INSERTCOLUMNW, static_cast<WPARAM>(column), reinterpret_cast<LPARAM>(column_)));
}

int CListCtrl::InsertItem(UINT mask, int item, LPCTSTR text, UINT state, UINT stateMask, int image, LPARAM param) {
    LVITEMW added{};
    added.mask = mask;
    added.iItem = item;
    added.iSubItem = 0;
    added.pszText = const_cast<LPTSTR>(text);
    added.state = state;
    added.stateMask = stateMask;
    added.iImage = image;
    added.lParam = param;
    return InsertItem(&added);
}

int CListCtrl::InsertItem(int item, LPCTSTR text) { return InsertItem(LVIF_TEXT, item, text, 0, 0, 0, 0); }

int CListCtrl::InsertItem(const LVITEMW* item) {
    return static_cast<int>(SendMessage(LVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(item)));
}

BOOL CListCtrl::SetItemText(int item, int subItem, LPCTSTR text) {
    LVITEMW changed{};
    changed.iSubItem = subItem;
    changed.pszText = const_cast<LPTSTR>(text);
    return static_cast<BOOL>(SendMessage(LVM_SETITEMTEXTW, static_cast<WPARAM>(item), reinterpret_cast<LPARAM>(&changed)));
}

int CListCtrl::GetItemCount() const { return static_cast<int>(SendMessage(LVM_GETITEMCOUNT, 0, 0)); }

int CListCtrl::GetItemText(int item, int subItem, LPTSTR buffer, int capacity) const {
    LVITEMW wanted{};
    wanted.iSubItem = subItem;
    wanted.pszText = buffer;
    wanted.cchTextMax = capacity;
    return static_cast<int>(SendMessage(LVM_GETITEMTEXTW, static_cast<WPARAM>(item), reinterpret_cast<LPARAM>(&wanted)));
}

CString CListCtrl::GetItemText(int item, int subItem) const {
    // The control does not say how long a text is: grow the buffer until the text comes back shorter.
    CString text;
    for (int capacity = 256;; capacity *= 2) {
        const int copied = GetItemText(item, subItem, text.GetBufferSetLength(capacity), capacity);
        if (copied < capacity - 1) {
            text.ReleaseBuffer(copied);
            return text;
        }
    }
}

BOOL CListCtrl::GetColumn(int column, LVCOLUMNW* column_) const {
    return static_cast<BOOL>(SendMessage(LVM_GETCOLUMNW, static_cast<WPARAM>(column), reinterpret_cast<LPARAM>(column_)));
}

BOOL CListCtrl::DeleteItem(int item) { return static_cast<BOOL>(SendMessage(LVM_DELETEITEM, static_cast<WPARAM>(item), 0)); }

BOOL CListCtrl::DeleteAllItems() { return static_cast<BOOL>(SendMessage(LVM_DELETEALLITEMS, 0, 0)); }

// ---- CProgressCtrl

BOOL CProgressCtrl::Create(DWORD style, const RECT& rect, CWnd* parent, UINT id) {
    return CWnd::Create(PROGRESS_CLASSW, nullptr, style, rect, parent, id);
}

void CProgressCtrl::SetRange(short lower, short upper) { SendMessage(PBM_SETRANGE, 0, MAKELPARAM(lower, upper)); }

void CProgressCtrl::SetRange32(int lower, int upper) {
    SendMessage(PBM_SETRANGE32, static_cast<WPARAM>(lower), static_cast<LPARAM>(upper));
}

void CProgressCtrl::GetRange(int& lower, int& upper) const {
    PBRANGE range{};
    SendMessage(PBM_GETRANGE, FALSE, reinterpret_cast<LPARAM>(&range));
    lower = range.iLow;
    upper = range.iHigh;
}

int CProgressCtrl::SetPos(int position) { return static_cast<int>(SendMessage(PBM_SETPOS, static_cast<WPARAM>(position), 0)); }

int CProgressCtrl::GetPos() const { return static_cast<int>(SendMessage(PBM_GETPOS, 0, 0)); }

int CProgressCtrl::OffsetPos(int delta) { return static_cast<int>(SendMessage(PBM_DELTAPOS, static_cast<WPARAM>(delta), 0)); }

int CProgressCtrl::SetStep(int step) { return static_cast<int>(SendMessage(PBM_SETSTEP, static_cast<WPARAM>(step), 0)); }

int CProgressCtrl::StepIt() { return static_cast<int>(SendMessage(PBM_STEPIT, 0, 0)); }

// ---- end CProgressCtrl
