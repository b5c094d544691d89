// Find patterns against one fixed set of names, by Windows' rules (a trailing dot for "no extension",
// `*.*` for every name, `?` never taking a dot, the DOS wildcards `<` `>` `"`), on a host folder and on an
// NTFS image volume, which share the matcher; and device names, which every find turns up.
#include <filesystem>

#include "../support/disk_images.h"
#include "../support/host_fixture.h"

namespace {

using testing_support::HostFolderTest;
using testing_support::kJunkError;
using testing_support::U;
using testing_support::W;

using Names = std::vector<std::string>;

// Every name of the folder the patterns are tried on, as the folder lists them (dots first, then NTFS
// order); "." and ".." come along because the folder is not a root.
const Names kFolder = {".profile", "a.b", "a.b.c", "ab.cd", "abc", "readme.txt", "x y", "z"};

struct PatternCase {
    const char* pattern;
    Names found;  // empty: the find fails with ERROR_FILE_NOT_FOUND
};

const PatternCase kPatterns[] = {
    {"*", {".", "..", ".profile", "a.b", "a.b.c", "ab.cd", "abc", "readme.txt", "x y", "z"}},
    {"*.*", {".", "..", ".profile", "a.b", "a.b.c", "ab.cd", "abc", "readme.txt", "x y", "z"}},
    {"*.*.*", {".", "..", ".profile", "a.b", "a.b.c", "ab.cd", "abc", "readme.txt", "x y", "z"}},
    // A trailing dot: no extension, however many dots and spaces end the pattern.
    {"*.", {".", "..", "abc", "x y", "z"}},
    {"*..", {".", "..", "abc", "x y", "z"}},
    {"* .", {".", "..", "abc", "x y", "z"}},
    {".*.*", {".", "..", ".profile"}},
    {".*.", {".", "..", ".profile"}},
    {"..*", {".", ".."}},
    // `?` takes one character but never a dot, and at a dot or the end it may take none.
    {"?", {"z"}},
    {"??.", {".", "z"}},
    {"???.", {".", "abc", "x y", "z"}},
    {"?.??.", {".", "..", "a.b", "z"}},
    {"?b*", {"ab.cd", "abc"}},
    {"??", {"z"}},
    // The DOS wildcards written out.
    {"<", {"abc", "x y", "z"}},
    {"ab>", {"abc"}},
    {"a.b\"", {"a.b"}},
    {"<.c", {"a.b.c"}},
    // Ordinary patterns, without regard to case.
    {"*.TXT", {"readme.txt"}},
    {"a*", {"a.b", "a.b.c", "ab.cd", "abc"}},
    {"*c", {"a.b.c", "abc"}},
    {"*.c*", {"a.b.c", "ab.cd"}},
    {"*.x", {}},
};

// Lists a pattern; an empty list when the find fails, which must then be with ERROR_FILE_NOT_FOUND.
Names Find(const CString& pattern) {
    Names names;
    WIN32_FIND_DATAW data{};
    sys().SetLastError(kJunkError);
    HANDLE find = sys().FindFirstFileW(pattern, &data);
    if (find == INVALID_HANDLE_VALUE) {
        EXPECT_EQ(sys().GetLastError(), DWORD(ERROR_FILE_NOT_FOUND));
        return names;
    }
    do names.push_back(U(data.cFileName));
    while (sys().FindNextFileW(find, &data));
    EXPECT_EQ(sys().GetLastError(), DWORD(ERROR_NO_MORE_FILES));
    EXPECT_TRUE(sys().FindClose(find));
    return names;
}

void ExpectPatternTable(const std::string& folder) {
    for (const PatternCase& c : kPatterns) EXPECT_EQ(Find(W(folder + "\\" + c.pattern)), c.found) << c.pattern;
}

class Wildcards : public HostFolderTest {};

TEST_F(Wildcards, PatternsFindWhatWindowsFindsInAHostFolder) {
    for (const std::string& name : kFolder) WriteFile("dir/" + name, "x");
    ExpectPatternTable("T:\\dir");
}

TEST_F(Wildcards, PatternsFindTheSameInAnNtfsImage) {
    const auto attached = testing_support::AttachNewNtfsVolume(Host("ntfs.img"), "N");
    ASSERT_GE(attached->Number(), 0) << attached->Error();
    ASSERT_TRUE(sys().CreateDirectoryW(W("N:\\dir"), nullptr));
    for (const std::string& name : kFolder) {
        HANDLE file = sys().CreateFileW(W("N:\\dir\\" + name), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
        ASSERT_NE(file, INVALID_HANDLE_VALUE) << name;
        sys().CloseHandle(file);
    }
    ExpectPatternTable("N:\\dir");
}

TEST_F(Wildcards, DeviceNamesAreFoundAnywhereAsOneEmptyEntry) {
    MakeFolder("x");
    const std::pair<const char*, const char*> devices[] = {
        {"T:\\x\\nul", "nul"}, {"lpt1", "lpt1"}, {"T:\\missing\\CON.txt", "CON"}, {"T:\\x\\com9", "com9"}, {"T:\\Aux", "Aux"},
    };
    for (const auto& [path, name] : devices) {
        WIN32_FIND_DATAW data{};
        data.nFileSizeLow = 1;
        HANDLE find = sys().FindFirstFileW(W(path), &data);
        ASSERT_NE(find, INVALID_HANDLE_VALUE) << path;
        EXPECT_EQ(U(data.cFileName), name);
        EXPECT_EQ(data.dwFileAttributes, DWORD(FILE_ATTRIBUTE_ARCHIVE));
        EXPECT_EQ(data.nFileSizeLow | data.nFileSizeHigh, 0u);
        sys().SetLastError(kJunkError);
        EXPECT_FALSE(sys().FindNextFileW(find, &data));
        EXPECT_EQ(sys().GetLastError(), DWORD(ERROR_NO_MORE_FILES));
        EXPECT_TRUE(sys().FindClose(find));
    }
    // Names that only look like devices are looked for as files.
    for (const char* path : {"T:\\x\\com0", "T:\\x\\nully", "T:\\x\\lpt10", "T:\\x\\nu?"}) EXPECT_EQ(Find(W(path)), Names{}) << path;
}

}  // namespace
