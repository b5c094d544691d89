// The list-view control class (WC_LISTVIEWW): it keeps its columns and rows, so that the library can
// report into it and hosts and tests can read back what was reported.
#include <algorithm>
#include <mutex>
#include <vector>

#include "desktop.h"
#include "../core/table.h"

namespace vlx {

namespace {

struct Column {
    WString heading;
    int format = LVCFMT_LEFT;
    int width = 0;
    int subItem = 0;
};

// A text as the control keeps it: none for null and for the callback marker, whose texts the owner
// would supply on demand.
void AssignText(WString& kept, LPCWSTR text) {
    if (text == nullptr || text == LPSTR_TEXTCALLBACKW) kept.clear();
    else kept.assign(text);
}

struct Row {
    // By subitem, 0 being the item's own text. A row has a text for few columns, so a short list searched
    // in order costs less than a tree, and a report's rows, made by the thousand, allocate less.
    std::vector<std::pair<int, WString>> texts;
    UINT state = 0;
    int image = 0;
    LPARAM param = 0;

    const WString* Text(int subItem) const {
        for (const auto& [column, text] : texts) {
            if (column == subItem) return &text;
        }
        return nullptr;
    }
    void SetText(int subItem, LPCWSTR text) {
        for (auto& [column, kept] : texts) {
            if (column == subItem) return AssignText(kept, text);
        }
        texts.emplace_back(subItem, WString());
        AssignText(texts.back().second, text);
    }
};

class ListViewState : public ControlState {
public:
    std::mutex lock;
    DWORD style = 0;
    std::vector<Column> columns;
    std::vector<Row> rows;

    bool HasSubItem(int subItem) const {
        return subItem == 0 || std::any_of(columns.begin(), columns.end(), [&](const Column& c) { return c.subItem == subItem; });
    }
};

// Copies text out the way the control does: at most capacity - 1 units and a NUL; the count copied.
int CopyOut(const WString& text, LPWSTR buffer, int capacity) {
    if (buffer == nullptr || capacity <= 0) return 0;
    const size_t count = std::min(text.size(), static_cast<size_t>(capacity - 1));
    std::copy_n(text.data(), count, buffer);
    buffer[count] = 0;
    return static_cast<int>(count);
}

const WString& ItemText(const Row& row) {
    static const WString none;
    const WString* text = row.Text(0);
    return text != nullptr ? *text : none;
}

// Where a sorting control puts a new row: after every row that does not sort after it, as comctl32 does.
size_t SortedPosition(const ListViewState& state, const WString& text) {
    const bool descending = (state.style & LVS_SORTDESCENDING) != 0;
    size_t at = 0;
    for (; at < state.rows.size(); ++at) {
        const int order = WStrICmp(text.c_str(), ItemText(state.rows[at]).c_str());
        if (descending ? order > 0 : order < 0) break;
    }
    return at;
}

LRESULT InsertItem(ListViewState& state, const LVITEMW* item) {
    if (item == nullptr || item->iSubItem != 0 || item->iItem < 0) return -1;
    Row row;
    row.texts.reserve(std::max<size_t>(state.columns.size(), 1));  // room for the texts a report row gets
    if (item->mask & LVIF_TEXT) row.SetText(0, item->pszText);
    if (item->mask & LVIF_STATE) row.state = item->state & item->stateMask;
    if (item->mask & LVIF_IMAGE) row.image = item->iImage;
    if (item->mask & LVIF_PARAM) row.param = item->lParam;
    size_t at = std::min(static_cast<size_t>(item->iItem), state.rows.size());
    if (state.style & (LVS_SORTASCENDING | LVS_SORTDESCENDING)) at = SortedPosition(state, ItemText(row));
    state.rows.insert(state.rows.begin() + static_cast<std::ptrdiff_t>(at), std::move(row));
    return static_cast<LRESULT>(at);
}

LRESULT InsertColumn(ListViewState& state, WPARAM index, const LVCOLUMNW* column) {
    if (column == nullptr) return -1;
    Column added;
    const size_t at = std::min(static_cast<size_t>(index), state.columns.size());
    if (column->mask & LVCF_TEXT) AssignText(added.heading, column->pszText);
    if (column->mask & LVCF_FMT) added.format = column->fmt;
    if (column->mask & LVCF_WIDTH) added.width = column->cx;
    added.subItem = (column->mask & LVCF_SUBITEM) ? column->iSubItem : static_cast<int>(at);
    state.columns.insert(state.columns.begin() + static_cast<std::ptrdiff_t>(at), std::move(added));
    return static_cast<LRESULT>(at);
}

LRESULT GetColumn(const ListViewState& state, WPARAM index, LVCOLUMNW* column) {
    if (column == nullptr || index >= state.columns.size()) return FALSE;
    const Column& found = state.columns[index];
    if (column->mask & LVCF_TEXT) CopyOut(found.heading, column->pszText, column->cchTextMax);
    if (column->mask & LVCF_FMT) column->fmt = found.format;
    if (column->mask & LVCF_WIDTH) column->cx = found.width;
    if (column->mask & LVCF_SUBITEM) column->iSubItem = found.subItem;
    return TRUE;
}

LRESULT SetItemText(ListViewState& state, WPARAM index, const LVITEMW* item) {
    // A subitem is shown only under a column of its own; without one there is nowhere to keep the text.
    if (item == nullptr || index >= state.rows.size() || !state.HasSubItem(item->iSubItem)) return FALSE;
    state.rows[index].SetText(item->iSubItem, item->pszText);
    return TRUE;
}

LRESULT GetItemText(const ListViewState& state, WPARAM index, LVITEMW* item) {
    if (item == nullptr) return 0;
    if (index >= state.rows.size()) return CopyOut(WString(), item->pszText, item->cchTextMax);
    const WString* text = state.rows[index].Text(item->iSubItem);
    return CopyOut(text != nullptr ? *text : WString(), item->pszText, item->cchTextMax);
}

LRESULT GetItem(const ListViewState& state, LVITEMW* item) {
    if (item == nullptr || item->iItem < 0 || static_cast<size_t>(item->iItem) >= state.rows.size()) return FALSE;
    const Row& row = state.rows[static_cast<size_t>(item->iItem)];
    if (item->mask & LVIF_TEXT) GetItemText(state, static_cast<WPARAM>(item->iItem), item);
    if (item->mask & LVIF_STATE) item->state = row.state & item->stateMask;
    if (item->mask & LVIF_IMAGE) item->iImage = row.image;
    if (item->mask & LVIF_PARAM) item->lParam = row.param;
    return TRUE;
}

LRESULT CALLBACK ListViewProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    auto state = ControlStateAs<ListViewState>(window);
    if (!state) return DefWindowProcW(window, message, wParam, lParam);
    std::unique_lock guard(state->lock);
    switch (message) {
        case WM_CREATE: {
            const auto* create = reinterpret_cast<const CREATESTRUCTW*>(lParam);
            if (create != nullptr) state->style = static_cast<DWORD>(create->style);
            return 0;
        }
        case LVM_GETITEMCOUNT: return static_cast<LRESULT>(state->rows.size());
        case LVM_INSERTITEMW: return InsertItem(*state, reinterpret_cast<const LVITEMW*>(lParam));
        case LVM_SETITEMTEXTW: return SetItemText(*state, wParam, reinterpret_cast<const LVITEMW*>(lParam));
        case LVM_GETITEMTEXTW: return GetItemText(*state, wParam, reinterpret_cast<LVITEMW*>(lParam));
        case LVM_GETITEMW: return GetItem(*state, reinterpret_cast<LVITEMW*>(lParam));
        case LVM_INSERTCOLUMNW: return InsertColumn(*state, wParam, reinterpret_cast<const LVCOLUMNW*>(lParam));
        case LVM_GETCOLUMNW: return GetColumn(*state, wParam, reinterpret_cast<LVCOLUMNW*>(lParam));
        case LVM_DELETEITEM:
            if (wParam >= state->rows.size()) return FALSE;
            state->rows.erase(state->rows.begin() + static_cast<std::ptrdiff_t>(wParam));
            return TRUE;
        case LVM_DELETEALLITEMS: state->rows.clear(); return TRUE;
        case LVM_DELETECOLUMN:
            if (wParam >= state->columns.size()) return FALSE;
            state->columns.erase(state->columns.begin() + static_cast<std::ptrdiff_t>(wParam));
            return TRUE;
        default: break;
    }
    guard.unlock();
    return DefWindowProcW(window, message, wParam, lParam);
}

const bool g_registered = RegisterBuiltinClass(WC_LISTVIEWW, ListViewProc);

}  // namespace

}  // namespace vlx
