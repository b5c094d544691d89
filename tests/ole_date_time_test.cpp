// COleDateTime (MFC's valid range, status and comparison rules) and CListCtrl over the list-view control.
#include <gtest/gtest.h>

#include <vector>

#include <velmora/velmora.h>

#include "support/host_fixture.h"

namespace {

using testing_support::U;

TEST(COleDateTime, DatesMapToTheAutomationDayCount) {
    struct Case {
        int y, mo, d, h;
        DATE want;
    } cases[] = {
        {1899, 12, 30, 0, 0.0},  {1900, 1, 1, 0, 2.0},    {1899, 12, 30, 6, 0.25},
        {1899, 12, 29, 6, -1.25},  // before day 0 the fraction still runs forward
        {2024, 5, 1, 0, 45413.0}, {100, 1, 1, 0, -657434.0}, {9999, 12, 31, 0, 2958465.0},
    };
    for (const Case& c : cases) {
        const COleDateTime date(c.y, c.mo, c.d, c.h, 0, 0);
        EXPECT_EQ(date.GetStatus(), COleDateTime::valid);
        EXPECT_DOUBLE_EQ(date.m_dt, c.want) << c.y << "-" << c.mo << "-" << c.d;
        EXPECT_EQ((std::vector<int>{date.GetYear(), date.GetMonth(), date.GetDay(), date.GetHour()}),
                  (std::vector<int>{c.y, c.mo, c.d, c.h}));
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
    const COleDateTime early(2024, 5, 1, 0, 0, 0), late(2024, 5, 1, 12, 0, 0);
    COleDateTime invalid, null;
    invalid.SetDateTime(2024, 2, 30, 0, 0, 0);
    null.SetStatus(COleDateTime::null);
    EXPECT_TRUE(early < late && late > early && early <= early && !(early > early));
    for (const COleDateTime* odd : {&invalid, &null}) {
        EXPECT_FALSE(*odd < late || *odd > early || early < *odd || late > *odd || late >= *odd);
    }
    // Negative dates compare by the moment they stand for: 1899-12-29 18:00 is after 06:00 that day.
    EXPECT_TRUE(COleDateTime(1899, 12, 29, 18, 0, 0) > COleDateTime(1899, 12, 29, 6, 0, 0));
    EXPECT_TRUE(COleDateTime(1899, 12, 29, 18, 0, 0) < COleDateTime(1899, 12, 30, 0, 0, 0));
}

TEST(ListCtrl, InsertsRowsAndReadsBackEveryColumnRefusingRowsAndColumnsThatDoNotExist) {
    CListCtrl list;
    ASSERT_TRUE(list.Create(LVS_REPORT, RECT{0, 0, 200, 100}, nullptr, 1));
    EXPECT_EQ(list.InsertColumn(0, _T("パス")), 0);
    EXPECT_EQ(list.InsertColumn(1, _T("更新日時"), LVCFMT_LEFT, 120), 1);
    EXPECT_EQ(list.InsertItem(LVIF_TEXT, 0, _T("T:\\a.txt"), 0, 0, 0, 0), 0);
    EXPECT_EQ(list.InsertItem(1, _T("T:\\b.txt")), 1);
    EXPECT_TRUE(list.SetItemText(1, 1, _T("2024/03/05 07:08")));
    EXPECT_FALSE(list.SetItemText(1, 2, _T("no third column")));
    EXPECT_EQ(list.GetItemCount(), 2);
    EXPECT_EQ(U(list.GetItemText(0, 0)) + "|" + U(list.GetItemText(1, 1)) + "|" + U(list.GetItemText(0, 1)),
              "T:\\a.txt|2024/03/05 07:08|");
    // Rows that cannot exist are refused; past the end appends.
    EXPECT_EQ(list.InsertItem(-1, _T("x")), -1);
    EXPECT_FALSE(list.SetItemText(5, 0, _T("no such row")));
    EXPECT_EQ(list.InsertItem(99, _T("T:\\c.txt")), 2);
    // The control cuts a text to the caller's buffer, NUL included; CListCtrl grows its own for long texts.
    WCHAR cut[4];
    EXPECT_EQ(list.GetItemText(2, 0, cut, 4), 3);
    EXPECT_EQ(U(cut), "T:\\");
    const CString longText(_T('x'), 1000);
    list.InsertItem(3, longText);
    EXPECT_EQ(list.GetItemText(3, 0), longText);
}

TEST(ListCtrl, SortingStyleOrdersRowsWithoutRegardToCase) {
    CListCtrl sorted;
    ASSERT_TRUE(sorted.Create(LVS_REPORT | LVS_SORTASCENDING, RECT{0, 0, 200, 100}, nullptr, 1));
    sorted.InsertItem(0, _T("b"));
    sorted.InsertItem(0, _T("C"));
    EXPECT_EQ(sorted.InsertItem(5, _T("a")), 0);
    EXPECT_EQ(U(sorted.GetItemText(1, 0)) + U(sorted.GetItemText(2, 0)), "bC");
}

}  // namespace
