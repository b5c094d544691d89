// The list-view control: the rows and columns it keeps, read back through its own messages.
#include <gtest/gtest.h>

#include <string>

#include "../../../afx/wstr.h"
#include "../../api.h"
#include "../desktop.h"

namespace {

class ListView : public ::testing::Test {
protected:
    void SetUp() override {
        windowsBefore_ = vlx::WindowCount();
        list_ = Make(LVS_REPORT);
        ASSERT_NE(list_, nullptr);
    }
    void TearDown() override {
        sys().DestroyWindow(list_);
        EXPECT_EQ(vlx::WindowCount(), windowsBefore_);
    }
    static HWND Make(DWORD style) {
        return sys().CreateWindowExW(0, WC_LISTVIEWW, nullptr, style, 0, 0, 100, 100, nullptr, nullptr, nullptr, nullptr);
    }
    static LRESULT Insert(HWND list, int at, LPCWSTR text) {
        LVITEMW item{};
        item.mask = LVIF_TEXT;
        item.iItem = at;
        item.pszText = const_cast<LPWSTR>(text);
        return sys().SendMessageW(list, LVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(&item));
    }
    static LRESULT AddColumn(HWND list, int at, LPCWSTR heading) {
        LVCOLUMNW column{};
        column.mask = LVCF_TEXT | LVCF_WIDTH;
        column.pszText = const_cast<LPWSTR>(heading);
        column.cx = 80;
        return sys().SendMessageW(list, LVM_INSERTCOLUMNW, static_cast<WPARAM>(at), reinterpret_cast<LPARAM>(&column));
    }
    static BOOL SetText(HWND list, int row, int subItem, LPCWSTR text) {
        LVITEMW item{};
        item.iSubItem = subItem;
        item.pszText = const_cast<LPWSTR>(text);
        return static_cast<BOOL>(sys().SendMessageW(list, LVM_SETITEMTEXTW, static_cast<WPARAM>(row), reinterpret_cast<LPARAM>(&item)));
    }
    static std::string Text(HWND list, int row, int subItem, int capacity = 64) {
        WString buffer(static_cast<size_t>(capacity), u'?');
        LVITEMW item{};
        item.iSubItem = subItem;
        item.pszText = buffer.data();
        item.cchTextMax = capacity;
        const LRESULT copied = sys().SendMessageW(list, LVM_GETITEMTEXTW, static_cast<WPARAM>(row), reinterpret_cast<LPARAM>(&item));
        EXPECT_EQ(static_cast<size_t>(copied), WStrLen(buffer.c_str()));
        return WStrToUtf8(buffer.c_str());
    }
    static LRESULT Count(HWND list) { return sys().SendMessageW(list, LVM_GETITEMCOUNT, 0, 0); }

    HWND list_ = nullptr;
    size_t windowsBefore_ = 0;
};

TEST_F(ListView, KeepsRowsInInsertionOrderWithTheirColumnTexts) {
    for (int i = 0; i < 3; ++i) EXPECT_EQ(AddColumn(list_, i, u"col"), i);
    EXPECT_EQ(Count(list_), 0);
    EXPECT_EQ(Insert(list_, 0, u"first"), 0);
    EXPECT_EQ(Insert(list_, 1, u"second"), 1);
    EXPECT_EQ(Insert(list_, 1, u"between"), 1);
    EXPECT_EQ(Insert(list_, 99, u"last"), 3);  // past the end appends
    EXPECT_EQ(Count(list_), 4);
    EXPECT_TRUE(SetText(list_, 2, 1, u"2024/03/05 07:08"));
    EXPECT_TRUE(SetText(list_, 2, 2, u"1 KB"));
    EXPECT_EQ(Text(list_, 0, 0), "first");
    EXPECT_EQ(Text(list_, 1, 0), "between");
    EXPECT_EQ(Text(list_, 2, 0), "second");
    EXPECT_EQ(Text(list_, 2, 1), "2024/03/05 07:08");
    EXPECT_EQ(Text(list_, 2, 2), "1 KB");
    EXPECT_EQ(Text(list_, 3, 0), "last");
    EXPECT_EQ(Text(list_, 3, 1), "");  // a subitem never set is empty
}

TEST_F(ListView, RefusesRowsAndSubitemsItCannotHold) {
    AddColumn(list_, 0, u"path");
    EXPECT_EQ(Insert(list_, -1, u"x"), -1);
    LVITEMW subItem{};
    subItem.mask = LVIF_TEXT;
    subItem.iSubItem = 1;
    subItem.pszText = const_cast<LPWSTR>(u"x");
    EXPECT_EQ(sys().SendMessageW(list_, LVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(&subItem)), -1);
    ASSERT_EQ(Insert(list_, 0, u"row"), 0);
    EXPECT_FALSE(SetText(list_, 1, 0, u"no such row"));
    EXPECT_FALSE(SetText(list_, 0, 1, u"no such column"));
    EXPECT_EQ(Count(list_), 1);
}

TEST_F(ListView, CutsTextToTheCallersBuffer) {
    AddColumn(list_, 0, u"path");
    Insert(list_, 0, u"abcdefgh");
    EXPECT_EQ(Text(list_, 0, 0, 4), "abc");
    EXPECT_EQ(Text(list_, 0, 0, 9), "abcdefgh");
}

TEST_F(ListView, SortingStyleOrdersRowsWithoutRegardToCase) {
    HWND sorted = Make(LVS_REPORT | LVS_SORTASCENDING);
    Insert(sorted, 0, u"b");
    Insert(sorted, 0, u"C");
    EXPECT_EQ(Insert(sorted, 5, u"a"), 0);
    EXPECT_EQ(Text(sorted, 0, 0), "a");
    EXPECT_EQ(Text(sorted, 1, 0), "b");
    EXPECT_EQ(Text(sorted, 2, 0), "C");
    sys().DestroyWindow(sorted);
}

TEST_F(ListView, ColumnsReadBackWithHeadingAndWidth) {
    AddColumn(list_, 0, u"path");
    AddColumn(list_, 0, u"first");
    WCHAR heading[16] = {};
    LVCOLUMNW column{};
    column.mask = LVCF_TEXT | LVCF_WIDTH;
    column.pszText = heading;
    column.cchTextMax = 16;
    EXPECT_TRUE(sys().SendMessageW(list_, LVM_GETCOLUMNW, 1, reinterpret_cast<LPARAM>(&column)));
    EXPECT_EQ(WStrToUtf8(heading), "path");
    EXPECT_EQ(column.cx, 80);
    EXPECT_FALSE(sys().SendMessageW(list_, LVM_GETCOLUMNW, 2, reinterpret_cast<LPARAM>(&column)));
}

}  // namespace
