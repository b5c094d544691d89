// Host names that Windows cannot hold: the reversible mapping itself, and entries with such names listed,
// looked up and named back as exactly themselves on a host-folder volume.
#include <sys/stat.h>

#include "../../platform/linux/volumes/host_names.h"
#include "../support/host_fixture.h"

namespace {

using testing_support::HostFolderTest;
using testing_support::U;
using testing_support::W;

// Windows names written with \uXXXX escapes for the mapped units.
WString Units(std::initializer_list<WCHAR> units) { return WString(units); }

TEST(HostNames, MapWhatWindowsCannotHoldAndComeBackByteForByte) {
    const struct Case {
        std::string host;
        WString windows;
    } cases[] = {
        {"plain.txt", _T("plain.txt")},
        {"Grüße ünd 日本", WStrFromUtf8("Grüße ünd 日本")},
        {"emoji \xF0\x9F\x98\x80", WStrFromUtf8("emoji \xF0\x9F\x98\x80")},  // a surrogate pair stays a pair
        {"..\\victim", Units({'.', '.', 0xF05C, 'v', 'i', 'c', 't', 'i', 'm'})},
        {"a:b*c?\"<>|", Units({'a', 0xF03A, 'b', 0xF02A, 'c', 0xF03F, 0xF022, 0xF03C, 0xF03E, 0xF07C})},
        {"tab\tnl\n", Units({'t', 'a', 'b', 0xF009, 'n', 'l', 0xF00A})},
        {"trail.", Units({'t', 'r', 'a', 'i', 'l', 0xF02E})},
        {"trail ", Units({'t', 'r', 'a', 'i', 'l', 0xF020})},
        {"a..", Units({'a', '.', 0xF02E})},  // only the last needs it: Windows then drops nothing
        {"CON", Units({0xF043, 'O', 'N'})},
        {"nul.txt", Units({0xF06E, 'u', 'l', '.', 't', 'x', 't'})},
        {"Com7.tar.gz", Units({0xF043, 'o', 'm', '7', '.', 't', 'a', 'r', '.', 'g', 'z'})},
        {"CONSOLE", _T("CONSOLE")},  // only the device names themselves
        {"COM0", _T("COM0")},
        {"latin1-\xE9", Units({'l', 'a', 't', 'i', 'n', '1', '-', 0xF0E9})},            // not UTF-8
        {"\xC0\xAF", Units({0xF0C0, 0xF0AF})},                                            // overlong '/'
        {"\xED\xA0\x80", Units({0xF0ED, 0xF0A0, 0xF080})},                                // encoded surrogate
        {"\xEF\x80\x81", Units({0xF0EF, 0xF080, 0xF081})},  // a literal U+F001 is not taken for a mapped 0x01
    };
    for (const Case& c : cases) {
        EXPECT_EQ(vlx::WindowsNameOfHost(c.host), c.windows) << c.host;
        std::string back;
        EXPECT_TRUE(vlx::HostNameOfWindows(c.windows, back)) << c.host;
        EXPECT_EQ(back, c.host);
    }
}

TEST(HostNames, RefuseWindowsNamesThatNoHostNameListsUnder) {
    const WString refused[] = {
        _T("CON"),                          // a device: the entry "CON" lists as U+F043 "ON"
        Units({'a', 0xF061}),               // a plain 'a' spelt as a mapped one
        Units({0xF02E}),                    // "."
        Units({'.', 0xF02E}),               // ".." with its last dot mapped: would climb out
        Units({'a', 0xF02F, 'b'}),          // '/' would make two names of one
        Units({'a', 0xF000}),               // NUL
        Units({'a', 0xD800}),               // a lone surrogate
        Units({0xF0EF, 0xF080, 0xF061}),    // the bytes of U+F001 spelt for a name that is plain UTF-8
        WString(),
    };
    for (const WString& name : refused) {
        std::string host = "untouched";
        EXPECT_FALSE(vlx::HostNameOfWindows(name, host)) << U(name.c_str());
    }
}

class HostNamesOnDisk : public HostFolderTest {};

TEST_F(HostNamesOnDisk, HostileEntriesAreListedFoundAndNamedAsThemselves) {
    MakeFolder("box");
    MakeFolder("victim");
    const std::string hostile[] = {"..\\victim", "a:b", "CON", "trail.", "bad\xFF", "\xEF\x80\x81", "x*y", "low\x01"};
    for (const std::string& name : hostile) WriteFile("box/" + name, name);

    std::vector<std::string> listed;
    WIN32_FIND_DATAW data{};
    HANDLE find = sys().FindFirstFileW(Win("box\\*"), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    do {
        const WString name = data.cFileName;
        if (name == _T(".") || name == _T("..")) continue;
        std::string host;
        ASSERT_TRUE(vlx::HostNameOfWindows(name, host)) << U(name.c_str());
        listed.push_back(host);
        // Joined to its folder, the listed name reaches that entry and no other.
        const CString path = Win("box\\") + name.c_str();
        EXPECT_EQ(vlx::Win32ToHostPath(path), Host("box/" + host));
        EXPECT_EQ(vlx::HostToWin32Path(Host("box/" + host)), WString(path.GetString()));
        EXPECT_EQ(data.nFileSizeLow, host.size()) << host;
        EXPECT_NE(sys().GetFileAttributesW(path), INVALID_FILE_ATTRIBUTES) << host;
    } while (sys().FindNextFileW(find, &data));
    sys().FindClose(find);
    std::sort(listed.begin(), listed.end());
    std::vector<std::string> expected(std::begin(hostile), std::end(hostile));
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(listed, expected);

    // Spelt without the mapping, these names are not the entries (and mostly not names at all).
    sys().SetLastError(testing_support::kJunkError);
    EXPECT_EQ(sys().GetFileAttributesW(Win("box\\CON")), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INVALID_NAME));
    EXPECT_EQ(sys().GetFileAttributesW(Win("box\\a:b")), INVALID_FILE_ATTRIBUTES);
}

TEST_F(HostNamesOnDisk, MappedNamesAreMadeAsTheHostNamesTheyStandFor) {
    MakeFolder("box");
    const CString folder = Win("box\\") + Units({'n', 'e', 'w', 0xF03A, 0xF02E}).c_str();
    ASSERT_TRUE(sys().CreateDirectoryW(folder, nullptr));
    struct stat status {};
    EXPECT_EQ(stat(Host("box/new:.").c_str(), &status), 0);
    // Found again without regard to case, through the mapped characters.
    EXPECT_NE(sys().GetFileAttributesW(Win("BOX\\") + Units({'N', 'E', 'W', 0xF03A, 0xF02E}).c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(HostNamesOnDisk, VerbatimPathsAreTakenAsWrittenAndNeverAsTheRoot) {
    MakeFolder("a");
    WCHAR full[MAX_PATH] = {'x', 0};
    const struct Case {
        const char* path;
        const char* full;  // nullptr: refused with ERROR_INVALID_NAME
    } cases[] = {
        {"\\\\?\\", nullptr},
        {"\\\\?\\T:", nullptr},
        {"\\\\?\\T:a", nullptr},
        {"\\\\?\\T:\\a\\..\\b", nullptr},
        {"\\\\?\\T:\\.\\a", nullptr},
        {"\\\\?\\T:\\a\\b. ", "T:\\a\\b. "},
        {"\\\\?\\T:\\a", "T:\\a"},
        {"T:\\a\\b. ", "T:\\a\\b"},
    };
    for (const Case& c : cases) {
        sys().SetLastError(testing_support::kJunkError);
        const DWORD length = sys().GetFullPathNameW(W(c.path), MAX_PATH, full, nullptr);
        if (c.full == nullptr) {
            EXPECT_EQ(length, 0u) << c.path;
            EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INVALID_NAME)) << c.path;
        } else {
            EXPECT_EQ(U(full), c.full) << c.path;
        }
    }
    // A name ending in a dot is no name the volume can hold as written.
    EXPECT_EQ(sys().GetFileAttributesW(W("\\\\?\\T:\\a.")), INVALID_FILE_ATTRIBUTES);
}

TEST_F(HostNamesOnDisk, LongVerbatimPathsAreMadeLevelByLevelUpToWindowsLimit) {
    // Past the host's own limit for one path (4,096 bytes).
    CString deep = W("\\\\?\\T:\\long");
    while (deep.GetLength() < 5000) deep += _T("\\level");
    EXPECT_EQ(CreateFolders(deep), TRUE);
    EXPECT_EQ(sys().GetFileAttributesW(deep), static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY));
    // Past Windows' limit for \\?\ paths: refused, not walked.
    CString pastWindows = deep;
    while (pastWindows.GetLength() <= 32767) pastWindows += _T("\\level");
    sys().SetLastError(testing_support::kJunkError);
    EXPECT_FALSE(sys().CreateDirectoryW(pastWindows, nullptr));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_FILENAME_EXCED_RANGE));
    // Taken down the same way, since the host's own tools for a whole tree stop at its limit.
    for (CString level = deep; level.GetLength() > 7; level = level.Left(level.ReverseFind(_T('\\')))) {
        ASSERT_TRUE(sys().RemoveDirectoryW(level)) << testing_support::U(level);
    }
}

}  // namespace
