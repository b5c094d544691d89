// Counting with list report: the date and size filters, and the rows written into a list control.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "../platform/api_patch.h"
#include "support/canceller.h"
#include "support/scripted_files.h"

namespace {

using testing_support::Canceller;
using testing_support::HostFolderTest;
using testing_support::U;

// 2024-05-01 00:00:00 UTC.
constexpr time_t kMay1 = 1714521600;

using Strings = std::vector<std::string>;

class ListReport : public HostFolderTest {
protected:
    void SetUp() override {
        HostFolderTest::SetUp();
        ASSERT_TRUE(list_.Create(LVS_REPORT, RECT{0, 0, 400, 300}, nullptr, 1));
        list_.InsertColumn(0, _T("パス"));
        list_.InsertColumn(1, _T("更新日時"));
        list_.InsertColumn(2, _T("サイズ"));
    }
    void TearDown() override {
        list_.DestroyWindow();
        HostFolderTest::TearDown();
    }
    void File(const std::string& relative, size_t size, time_t written) {
        WriteFile(relative, std::string(size, 'x'));
        const struct timespec times[2] = {{written, 0}, {written, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, Host(relative).c_str(), times, 0), 0);
    }
    struct Outcome {
        ULONGLONG files = 0, folders = 0, bytes = 0;
        Strings list;
    };
    Outcome Run(const COleDateTime& from, const COleDateTime& to, int dateMode, ULONGLONG sizeLimit, int sizeMode,
                bool withTotal = true, const CString& filter = CString()) {
        Outcome outcome;
        FileListNode head{};
        GetFileCountInFolderEx(Win("t"), &outcome.files, &outcome.folders, withTotal ? &outcome.bytes : nullptr, &head,
                               filter, nullptr, from, to, dateMode, sizeLimit, sizeMode, &list_);
        outcome.list = testing_support::TakePaths(head);
        return outcome;
    }
    // Each row as its path, time and size texts joined by "|".
    Strings Rows() {
        Strings rows;
        for (int i = 0; i < list_.GetItemCount(); ++i)
            rows.push_back(U(list_.GetItemText(i, 0)) + "|" + U(list_.GetItemText(i, 1)) + "|" + U(list_.GetItemText(i, 2)));
        return rows;
    }
    const COleDateTime kAnyDate{2024, 1, 1, 0, 0, 0};
    CListCtrl list_;
};

TEST_F(ListReport, RowsShowPathUtcTimeAndSizeTexts) {
    File("t/a", 1023, 1709622489);  // 2024-03-05 07:08:09 UTC
    File("t/b", 1024, kMay1);
    File("t/c", 1535, kMay1 + 86399);
    File("t/sub/d", 0, kMay1);
    const Outcome outcome = Run(kAnyDate, kAnyDate, 0, 0, 0);
    EXPECT_EQ(std::vector<ULONGLONG>({outcome.files, outcome.folders, outcome.bytes}), std::vector<ULONGLONG>({4, 1, 3582}));
    EXPECT_EQ(outcome.list, (Strings{"T:\\t\\a", "T:\\t\\b", "T:\\t\\c", "T:\\t\\sub\\", "T:\\t\\sub\\d"}));
    // Folders get no row.
    EXPECT_EQ(Rows(), (Strings{"T:\\t\\a|2024/03/05 07:08|1023 バイト", "T:\\t\\b|2024/05/01 00:00|1 KB",
                               "T:\\t\\c|2024/05/01 23:59|1 KB", "T:\\t\\sub\\d|2024/05/01 00:00|0 バイト"}));
}

TEST_F(ListReport, RowsAreAppendedAfterThoseAlreadyThereAndWithoutATotalHoldThePathAlone) {
    list_.InsertItem(0, _T("earlier row"));
    File("t/a", 5, kMay1);
    Run(kAnyDate, kAnyDate, 0, 0, 0);
    Run(kAnyDate, kAnyDate, 0, 0, 0, false);
    EXPECT_EQ(Rows(), (Strings{"earlier row||", "T:\\t\\a|2024/05/01 00:00|5 バイト", "T:\\t\\a||"}));
}

TEST_F(ListReport, SizeFilterModes) {
    for (size_t size : {50, 100, 101, 150, 2047, 2048, 3071, 3072}) File("t/f" + std::to_string(size), size, kMay1);
    struct Case {
        int mode;
        ULONGLONG limit;
        Strings kept;
    } cases[] = {
        {1, 2048, {"T:\\t\\f2048", "T:\\t\\f3071"}},
        {2, 2048, {"T:\\t\\f2048", "T:\\t\\f3071", "T:\\t\\f3072"}},
        {3, 100, {"T:\\t\\f100", "T:\\t\\f50"}},
        {-1, 100, {"T:\\t\\f100", "T:\\t\\f101", "T:\\t\\f150", "T:\\t\\f2047", "T:\\t\\f2048", "T:\\t\\f3071", "T:\\t\\f3072", "T:\\t\\f50"}},
    };
    for (const Case& c : cases) {
        const Outcome outcome = Run(kAnyDate, kAnyDate, 0, c.limit, c.mode);
        EXPECT_EQ(outcome.list, c.kept) << c.mode;
        EXPECT_EQ(outcome.files, c.kept.size()) << c.mode;
        // A file the size filter leaves out has still added its size.
        EXPECT_EQ(outcome.bytes, 50u + 100 + 101 + 150 + 2047 + 2048 + 3071 + 3072) << c.mode;
    }
}

TEST_F(ListReport, DateFilterComparesTheFilesDayAtMidnightAndADateThatCannotBeMadeNeverExcludes) {
    File("t/late", 1, kMay1 + 86340);  // 2024-05-01 23:59 UTC
    File("t/before", 1, kMay1 - 1);    // 2024-04-30 23:59:59
    File("t/after", 1, kMay1 + 86400);  // 2024-05-02 00:00
    const COleDateTime may1(2024, 5, 1, 0, 0, 0), may1Noon(2024, 5, 1, 12, 0, 0);
    COleDateTime invalid;
    invalid.SetDateTime(2024, 2, 30, 0, 0, 0);
    struct Case {
        COleDateTime from, to;
        int mode;
        Strings kept;
    } cases[] = {
        {may1, may1, 1, {"T:\\t\\late"}},
        {may1Noon, may1Noon, 1, {}},
        {may1Noon, may1, 3, {"T:\\t\\before", "T:\\t\\late"}},
        {may1, may1Noon, 2, {"T:\\t\\after", "T:\\t\\late"}},
        {may1, invalid, 1, {"T:\\t\\after", "T:\\t\\late"}},  // an invalid bound never excludes
        {invalid, invalid, 1, {"T:\\t\\after", "T:\\t\\before", "T:\\t\\late"}},
        {may1Noon, may1Noon, 7, {"T:\\t\\after", "T:\\t\\before", "T:\\t\\late"}},
    };
    for (const Case& c : cases) {
        const Outcome outcome = Run(c.from, c.to, c.mode, 0, 0);
        EXPECT_EQ(outcome.list, c.kept) << c.mode;
        // A file the date filter leaves out adds nothing at all.
        EXPECT_EQ(outcome.bytes, c.kept.size()) << c.mode;
    }
    // A file date that cannot be made never excludes.
    ApiPatch<&Win32Api::FileTimeToSystemTime> convert([](const FILETIME*, LPSYSTEMTIME) { return FALSE; });
    EXPECT_EQ(Run(may1Noon, may1Noon, 1, 0, 0).files, 3u);
}

TEST_F(ListReport, FileWhoseSizeCannotBeReadIsCountedShowingZeroBytes) {
    File("t/a", 4096, kMay1);
    ApiPatch<&Win32Api::FindFirstFileW> find([&](LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
        // The size lookup of the file itself fails; the folder's listing works.
        if (U(pattern) != "T:\\t\\a") return find.Original()(pattern, data);
        sys().SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    });
    const Outcome outcome = Run(kAnyDate, kAnyDate, 0, 1, 1);
    EXPECT_TRUE(outcome.files == 1 && outcome.bytes == 0);
    EXPECT_EQ(Rows(), (Strings{"T:\\t\\a|2024/05/01 00:00|0 バイト"}));
}

TEST_F(ListReport, FiltersCombineWithTheExtensionFilterAndCancel) {
    File("t/a.txt", 10, kMay1);
    File("t/b.log", 10, kMay1);
    File("t/sub/c.TXT", 3000, kMay1);
    Outcome outcome = Run(kAnyDate, kAnyDate, 0, 1024, 3, true, _T(".txt"));
    EXPECT_EQ(outcome.list, Strings{"T:\\t\\a.txt"});
    EXPECT_EQ(outcome.folders, 0u);
    EXPECT_EQ(outcome.bytes, 3010u);

    BOOL cancel = 1;
    ULONGLONG files = 0;
    GetFileCountInFolderEx(Win("t"), &files, nullptr, nullptr, nullptr, CString(), &cancel, kAnyDate, kAnyDate, 0, 0, 0, &list_);
    EXPECT_EQ(files, 0u);
}

TEST_F(ListReport, CancelSetFromAnotherThreadWhileARowIsAddedEndsTheWalkAfterThatRow) {
    for (const char* name : {"t/a.txt", "t/b.txt", "t/sub/c.txt"}) File(name, 1, kMay1);
    BOOL cancel = 0;
    Canceller canceller(cancel);
    ApiPatch<&Win32Api::SendMessageW> onRow([&](HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
        const LRESULT result = onRow.Original()(window, message, wParam, lParam);
        if (message == LVM_INSERTITEMW) canceller.Fire();
        return result;
    });
    ULONGLONG files = 0, bytes = 0;
    FileListNode head{};
    GetFileCountInFolderEx(Win("t"), &files, nullptr, &bytes, &head, CString(), &cancel, kAnyDate, kAnyDate, 0, 0, 0, &list_);
    EXPECT_TRUE(canceller.fired());
    EXPECT_TRUE(files == 1 && bytes == 1);
    EXPECT_EQ(Rows(), Strings{"T:\\t\\a.txt|2024/05/01 00:00|1 バイト"});
    EXPECT_EQ(testing_support::TakePaths(head), Strings{"T:\\t\\a.txt"});
}

}  // namespace
