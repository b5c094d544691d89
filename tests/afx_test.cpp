// The MFC subset: CString formatting and editing, CTime conversions, CFileFind's order of matches.
#include <gtest/gtest.h>

#include <afxcoll.h>

#include "../platform/api_patch.h"
#include "support/host_fixture.h"

namespace {

using testing_support::U;

TEST(CStringFormat, SpecifiersWidthsAndPadding) {
    struct Case {
        CString got;
        const char* want;
    };
    CString s;
    const auto F = [](LPCTSTR format, auto... args) {
        CString text;
        text.Format(format, args...);
        return text;
    };
    const Case cases[] = {
        {F(_T("%s|%c|%d|%u"), _T("ab"), static_cast<int>(_T('x')), -12, 4000000000u), "ab|x|-12|4000000000"},
        {F(_T("%I64u"), 18446744073709551615ULL), "18446744073709551615"},
        {F(_T("%I64d"), static_cast<long long>(INT64_MIN)), "-9223372036854775808"},
        {F(_T("[%5d][%-5d][%05d][%05d]"), 42, 42, 42, -42), "[   42][42   ][00042][-0042]"},
        {F(_T("[%3s][%-3s][%.2s]"), _T("a"), _T("a"), _T("abcdef")), "[  a][a  ][ab]"},
        {F(_T("%04X %x %%"), 0xBEEFu, 255u), "BEEF ff %"},
        {F(_T("100%")), "100%"},
        {F(_T("宛先には既に \"%s\" という名前のファイルが存在します"), _T("C:\\a\\b.txt")),
         "宛先には既に \"C:\\a\\b.txt\" という名前のファイルが存在します"},
    };
    for (const Case& c : cases) EXPECT_EQ(U(c.got), c.want);
}

TEST(CStringFormat, BoundedFormatFailsCleanlyWhenTheResultDoesNotFit) {
    WCHAR buffer[8];
    EXPECT_EQ(WStrFormatBuffer(buffer, 8, _T("%s"), _T("1234567")), 7);
    EXPECT_EQ(U(buffer), "1234567");
    EXPECT_EQ(WStrFormatBuffer(buffer, 8, _T("%s"), _T("12345678")), -1);
    EXPECT_EQ(buffer[0], 0);
    EXPECT_FALSE(WStrCopy(buffer, 8, _T("12345678")));
    EXPECT_TRUE(WStrCopy(buffer, 8, _T("1234567")));
}

TEST(CStringEditing, ClampsPositionsAsMfcDoes) {
    CString text(_T("C:\\dir\\file.tar.gz"));
    EXPECT_EQ(U(text.Left(2)), "C:");
    EXPECT_EQ(U(text.Right(3)), ".gz");
    EXPECT_EQ(U(text.Right(100)), U(text));
    EXPECT_EQ(U(text.Mid(7)), "file.tar.gz");
    EXPECT_EQ(U(text.Mid(-5, 2)), "C:");
    EXPECT_EQ(U(text.Mid(50)), "");
    EXPECT_EQ(text.ReverseFind(_T('\\')), 6);
    EXPECT_EQ(text.Find(_T('.'), 12), 15);
    EXPECT_EQ(text.Find(_T("dir")), 3);
    EXPECT_EQ(text.Find(_T('x'), 100), -1);
    EXPECT_EQ(CString(_T("ABC_x")).CompareNoCase(_T("abc_X")), 0);
    // The "C" locale folds ASCII only.
    EXPECT_NE(CString(_T("Ä")).CompareNoCase(_T("ä")), 0);
    CString replaced(_T("a\\\\b\\\\c"));
    EXPECT_EQ(replaced.Replace(_T("\\\\"), _T("\\")), 2);
    EXPECT_EQ(U(replaced), "a\\b\\c");
    CString buffer;
    WStrCopy(buffer.GetBuffer(10), 10, _T("abc"));
    buffer.ReleaseBuffer();
    EXPECT_EQ(buffer.GetLength(), 3);
}

TEST(CStringArray, SetAtGrowAppendsAndFillsGaps) {
    CStringArray names;
    names.Add(_T("first"));
    names.SetAtGrow(names.GetSize(), _T("second"));
    names.SetAtGrow(4, _T("fifth"));
    ASSERT_EQ(names.GetSize(), 5);
    EXPECT_EQ(U(names[1]), "second");
    EXPECT_TRUE(names[2].IsEmpty());
    names.RemoveAt(1, 2);
    EXPECT_EQ(names.GetSize(), 3);
    EXPECT_EQ(U(names[2]), "fifth");
}

FILETIME FileTimeOf(LONGLONG ticks) { return FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(static_cast<ULONGLONG>(ticks) >> 32)}; }

// The range and rounding of FILETIME conversions are proved through GetFileDate; here the calendar.
TEST(CTimeConversion, CalendarFieldsAndSystemTimesAgree) {
    constexpr LONGLONG k1970 = 116444736000000000;
    const CTime far(3001, 1, 1, 0, 0, 0);
    EXPECT_EQ(far.GetYear(), 3001);
    EXPECT_EQ(CTime(2024, 2, 29, 23, 59, 58).GetTime(), 1709251198);
    EXPECT_EQ(CTime(1709251198).GetMonth(), 2);

    SYSTEMTIME st{};
    ASSERT_TRUE(sys().FileTimeToSystemTime(&static_cast<const FILETIME&>(FileTimeOf(k1970 + 1709251198LL * 10000000 + 1234567)), &st));
    EXPECT_EQ(st.wYear, 2024);
    EXPECT_EQ(st.wMonth, 2);
    EXPECT_EQ(st.wDay, 29);
    EXPECT_EQ(st.wDayOfWeek, 4);
    EXPECT_EQ(st.wSecond, 58);
    EXPECT_EQ(st.wMilliseconds, 123);
    FILETIME back{};
    ASSERT_TRUE(sys().SystemTimeToFileTime(&st, &back));
    EXPECT_EQ(CTime(back).GetTime(), 1709251198);
}

class FileFind : public testing_support::HostFolderTest {};

TEST_F(FileFind, FindNextFileMakesTheFirstMatchCurrentAndReportsTheLast) {
    WriteFile("logs/a.log", "1");
    WriteFile("logs/b.log", "22");
    CFileFind find;
    ASSERT_TRUE(find.FindFile(Win("logs\\*.log")));
    EXPECT_EQ(find.GetLength(), 0u) << "nothing is current before FindNextFile";
    EXPECT_TRUE(find.FindNextFile());
    EXPECT_EQ(U(find.GetFileName()), "a.log");
    EXPECT_EQ(U(find.GetFilePath()), "T:\\logs\\a.log");
    sys().SetLastError(testing_support::kJunkError);
    EXPECT_FALSE(find.FindNextFile()) << "b.log is now current and was the last";
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_FILES));
    EXPECT_EQ(find.GetLength(), 2u);
    find.Close();
    EXPECT_FALSE(find.FindFile(Win("logs\\*.txt")));
}

TEST_F(FileFind, FoundPathIsThePatternsFolderAndTheFoundName) {
    WriteFile("logs/deep/a.log", "1");
    const struct {
        const char* pattern;
        const char* root;
        const char* path;
    } cases[] = {
        {"T:\\logs\\deep\\a.log", "T:\\logs\\deep", "T:\\logs\\deep\\a.log"},
        {"T:\\logs\\deep\\*.*", "T:\\logs\\deep", "T:\\logs\\deep\\."},
        {"T:/logs/deep/A.LOG", "T:/logs/deep", "T:/logs/deep\\a.log"},
        {"T:\\logs/deep\\a.log", "T:\\logs/deep", "T:\\logs/deep\\a.log"},
    };
    for (const auto& c : cases) {
        CFileFind find;
        ASSERT_TRUE(find.FindFile(testing_support::W(c.pattern))) << c.pattern;
        find.FindNextFile();
        EXPECT_EQ(U(find.GetRoot()), c.root) << c.pattern;
        EXPECT_EQ(U(find.GetFilePath()), c.path) << c.pattern;
    }
}

}  // namespace
