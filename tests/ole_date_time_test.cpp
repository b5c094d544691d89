// COleDateTime (MFC's valid range, status and comparison rules) and CListCtrl over the list-view control.
#include <gtest/gtest.h>

#include <velmora/velmora.h>

#include "support/host_fixture.h"

namespace {

using testing_support::U;

TEST(COleDateTime, DatesMapToTheAutomationDayCount) {
    struct Case {
        int y, mo, d, h, mi, s;
        DATE want;
    } cases[] = {
        {1899, 12, 30, 0, 0, 0, 0.0},     {1900, 1, 1, 0, 0, 0, 2.0},        {1899, 12, 30, 6, 0, 0, 0.25},
        {1899, 12, 29, 6, 0, 0, -1.25},  // before day 0 the fraction still runs forward
        {2024, 5, 1, 0, 0, 0, 45413.0},   {100, 1, 1, 0, 0, 0, -657434.0},   {9999, 12, 31, 0, 0, 0, 2958465.0},
    };
    for (const Case& c : cases) {
        COleDateTime date(c.y, c.mo, c.d, c.h, c.mi, c.s);
        EXPECT_EQ(date.GetStatus(), COleDateTime::valid);
        EXPECT_DOUBLE_EQ(date.m_dt, c.want) << c.y << "-" << c.mo << "-" << c.d;
        EXPECT_EQ(date.GetYear(), c.y);
        EXPECT_EQ(date.GetMonth(), c.mo);
        EXPECT_EQ(date.GetDay(), c.d);
        EXPECT_EQ(date.GetHour(), c.h);
    }
}

TEST(COleDateTime, MomentsThatDoNotExistOrLieOutsideMfcsRangeAreInvalid) {
    const int bad[][6] = {{99, 12, 31, 0, 0, 0},  {10000, 1, 1, 0, 0, 0}, {2023, 2, 29, 0, 0, 0}, {2024, 13, 1, 0, 0, 0},
                          {2024, 4, 31, 0, 0, 0}, {2024, 1, 1, 24, 0, 0}, {2024, 1, 1, 0, 60, 0}, {2024, 1, 0, 0, 0, 0},
                          {-1, 1, 1, 0, 0, 0}};
    for (const auto& b : bad) {
        COleDateTime date;
        EXPECT_EQ(date.SetDateTime(b[0], b[1], b[2], b[3], b[4], b[5]), COleDateTime::invalid) << b[0] << "-" << b[1] << "-" << b[2];
        EXPECT_EQ(date.GetStatus(), COleDateTime::invalid);
        EXPECT_EQ(date.GetYear(), -1);
    }
    COleDateTime leap;
    EXPECT_EQ(leap.SetDateTime(2024, 2, 29, 23, 59, 59), 0);
    EXPECT_EQ(leap.GetSecond(), 59);
}

TEST(COleDateTime, OrderingIsFalseUnlessBothAreValid) {
    const COleDateTime early(2024, 5, 1, 0, 0, 0);
    const COleDateTime late(2024, 5, 1, 12, 0, 0);
    COleDateTime invalid;
    invalid.SetDateTime(2024, 2, 30, 0, 0, 0);
    COleDateTime null;
    null.SetStatus(COleDateTime::null);

    EXPECT_TRUE(early < late);
    EXPECT_TRUE(late > early);
    EXPECT_TRUE(early <= early);
    EXPECT_FALSE(early > early);
    for (const COleDateTime* odd : {&invalid, &null}) {
        EXPECT_FALSE(*odd < late);
        EXPECT_FALSE(*odd > early);
        EXPECT_FALSE(early < *odd);
        EXPECT_FALSE(late > *odd);
        EXPECT_FALSE(late >= *odd);
    }
    // Negative dates compare by the moment they stand for: 1899-12-29 18:00 is after 06:00 that day.
    EXPECT_TRUE(COleDateTime(1899, 12, 29, 18, 0, 0) > COleDateTime(1899, 12, 29, 6, 0, 0));
    EXPECT_TRUE(COleDateTime(1899, 12, 29, 18, 0, 0) < COleDateTime(1899, 12, 30, 0, 0, 0));
}

class ListCtrl : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(list_.Create(LVS_REPORT, RECT{0, 0, 200, 100}, nullptr, 1)); }
    CListCtrl list_;
};

TEST_F(ListCtrl, InsertsRowsAndReadsBackEveryColumn) {
    EXPECT_EQ(list_.InsertColumn(0, _T("パス")), 0);
    EXPECT_EQ(list_.InsertColumn(1, _T("更新日時"), LVCFMT_LEFT, 120), 1);
    EXPECT_EQ(list_.InsertItem(LVIF_TEXT, 0, _T("T:\\a.txt"), 0, 0, 0, 0), 0);
    EXPECT_EQ(list_.InsertItem(1, _T("T:\\b.txt")), 1);
    EXPECT_TRUE(list_.SetItemText(1, 1, _T("2024/03/05 07:08")));
    EXPECT_FALSE(list_.SetItemText(1, 2, _T("no third column")));
    EXPECT_EQ(list_.GetItemCount(), 2);
    EXPECT_EQ(U(list_.GetItemText(0, 0)), "T:\\a.txt");
    EXPECT_EQ(U(list_.GetItemText(1, 1)), "2024/03/05 07:08");
    EXPECT_EQ(U(list_.GetItemText(0, 1)), "");
    // Rows that cannot exist are refused; past the end appends.
    EXPECT_EQ(list_.InsertItem(-1, _T("x")), -1);
    EXPECT_FALSE(list_.SetItemText(5, 0, _T("no such row")));
    EXPECT_EQ(list_.InsertItem(99, _T("T:\\c.txt")), 2);
    // The control cuts a text to the caller's buffer, NUL included.
    WCHAR cut[4];
    EXPECT_EQ(list_.GetItemText(2, 0, cut, 4), 3);
    EXPECT_EQ(U(cut), "T:\\");
}

TEST(ListCtrlSorting, SortingStyleOrdersRowsWithoutRegardToCase) {
    CListCtrl sorted;
    ASSERT_TRUE(sorted.Create(LVS_REPORT | LVS_SORTASCENDING, RECT{0, 0, 200, 100}, nullptr, 1));
    sorted.InsertItem(0, _T("b"));
    sorted.InsertItem(0, _T("C"));
    EXPECT_EQ(sorted.InsertItem(5, _T("a")), 0);
    EXPECT_EQ(U(sorted.GetItemText(1, 0)), "b");
    EXPECT_EQ(U(sorted.GetItemText(2, 0)), "C");
}

TEST_F(ListCtrl, GetItemTextGrowsItsBufferForLongTexts) {
    list_.InsertColumn(0, _T("path"));
    const CString longText(_T('x'), 1000);
    list_.InsertItem(0, longText);
    EXPECT_EQ(list_.GetItemText(0, 0), longText);
}

}  // namespace
