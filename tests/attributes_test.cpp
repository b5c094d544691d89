// Attribute flags and NTFS compression: the values handed to the platform, and real host-folder volumes.
#include <gmock/gmock.h>

#include "support/scripted_files.h"

using namespace testing_support;
using ::testing::ElementsAre;

namespace {

struct Flag {
    const char* name;
    int (*get)(CString, int*);
    int (*set)(CString, int);  // null for the flag that is only read
    DWORD bit;
};
const Flag kFlags[] = {
    {"read-only", GetReadOnlyFlag, SetReadOnlyFlag, FILE_ATTRIBUTE_READONLY},
    {"compressed", GetCompressNtfs, nullptr, FILE_ATTRIBUTE_COMPRESSED},
    {"hidden", GetHiddenFlag, SetHiddenFlag, FILE_ATTRIBUTE_HIDDEN},
    {"system", GetSystemFlag, SetSystemFlag, FILE_ATTRIBUTE_SYSTEM},
};
constexpr DWORD kFlagBits = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_COMPRESSED | FILE_ATTRIBUTE_HIDDEN |
                            FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ENCRYPTED;

}  // namespace

TEST(AttributeFlags, EachOutputComesFromItsOwnBitOfOneReadAndAnUnreadableWordLeavesThemUntouched) {
    for (DWORD word : {DWORD{FILE_ATTRIBUTE_NORMAL}, DWORD{FILE_ATTRIBUTE_ENCRYPTED}, ~kFlagBits, kFlagBits | FILE_ATTRIBUTE_DIRECTORY,
                       INVALID_FILE_ATTRIBUTES}) {
        SCOPED_TRACE(Hex(word));
        const int read = word != INVALID_FILE_ATTRIBUTES;
        const auto expected = [&](DWORD bit) { return read ? int{(word & bit) != 0} : 7; };
        ScriptedFiles platform;
        platform.word = word;
        int out[5] = {7, 7, 7, 7, 7};
        sys().SetLastError(kJunkError);
        EXPECT_EQ(GetFileProperty(_T("C:\\d\\x"), &out[0], &out[1], &out[2], &out[3], &out[4]), read);
        EXPECT_TRUE(read || sys().GetLastError() == DWORD{ERROR_PATH_NOT_FOUND});
        EXPECT_THAT(out, ElementsAre(expected(FILE_ATTRIBUTE_READONLY), expected(FILE_ATTRIBUTE_COMPRESSED),
                                     expected(FILE_ATTRIBUTE_HIDDEN), expected(FILE_ATTRIBUTE_SYSTEM), expected(FILE_ATTRIBUTE_ENCRYPTED)));
        EXPECT_EQ(GetFileProperty(_T("C:\\d\\x"), nullptr, nullptr, nullptr, nullptr, nullptr), read);
        for (const Flag& flag : kFlags) {
            int value = 7;
            EXPECT_EQ(flag.get(_T("C:\\d\\x"), &value), read) << flag.name;
            EXPECT_EQ(value, expected(flag.bit)) << flag.name;
            EXPECT_EQ(flag.get(_T("C:\\d\\x"), nullptr), 0) << flag.name;  // without reading anything
        }
        EXPECT_EQ(platform.log, std::vector<std::string>(6, "GetFileAttributesW C:\\d\\x"));
    }
}

TEST(AttributeFlags, SettersWriteTheWholeWordChangingOnlyTheirBitOnlyOneSetsAndAnUnreadableWordWritesNothing) {
    const DWORD others = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_COMPRESSED;
    for (const Flag& flag : kFlags) {
        for (int set : {1, 0, 2, -1}) {
            if (flag.set == nullptr) continue;
            SCOPED_TRACE(std::string(flag.name) + " " + std::to_string(set));
            ScriptedFiles platform;
            platform.word = others | (set == 1 ? 0 : flag.bit);
            EXPECT_EQ(flag.set(_T("C:\\f"), set), 1);
            EXPECT_THAT(platform.log, ElementsAre("GetFileAttributesW C:\\f",
                                                  "SetFileAttributesW C:\\f " + Hex(others | (set == 1 ? flag.bit : 0))));
            platform.setError = ERROR_ACCESS_DENIED;
            sys().SetLastError(kJunkError);
            EXPECT_EQ(flag.set(_T("C:\\f"), set), 0);
            EXPECT_EQ(sys().GetLastError(), DWORD{ERROR_ACCESS_DENIED});
        }
    }
    // A word that cannot be read writes nothing.
    ScriptedFiles unreadable;
    unreadable.word = INVALID_FILE_ATTRIBUTES;
    for (auto set : {SetReadOnlyFlag, SetHiddenFlag, SetSystemFlag, SetCompressNtfs}) EXPECT_EQ(set(_T("C:\\x"), 1), 0);
    EXPECT_EQ(unreadable.log, std::vector<std::string>(4, "GetFileAttributesW C:\\x"));
}

TEST(Compression, FoldersOpenWithBackupSemanticsFilesAsNormalAndOnlyOneCompresses) {
    struct Case {
        DWORD word;
        int compress;
        const char* flags;
        const char* state;
    } cases[] = {
        {FILE_ATTRIBUTE_ARCHIVE, 1, "0x80", "1"},           {FILE_ATTRIBUTE_COMPRESSED, 0, "0x80", "0"},
        {FILE_ATTRIBUTE_COMPRESSED, 2, "0x80", "0"},        {FILE_ATTRIBUTE_NORMAL, -1, "0x80", "0"},
        {FILE_ATTRIBUTE_DIRECTORY, 1, "0x2000000", "1"},    {FILE_ATTRIBUTE_DIRECTORY, 0, "0x2000000", "0"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(Hex(c.word) + " " + std::to_string(c.compress));
        ScriptedFiles platform;
        platform.word = c.word;
        EXPECT_EQ(SetCompressNtfs(_T("E:\\big"), c.compress), 1);
        EXPECT_THAT(platform.log,
                    ElementsAre("GetFileAttributesW E:\\big", "CreateFileW E:\\big 0xc0000000 0x3 null 3 " + std::string(c.flags) + " null",
                                "DeviceIoControl 0x9c040 state " + std::string(c.state) + " in 2 out null 0 counter set overlapped null",
                                "CloseHandle"));
    }
}

TEST(Compression, ReadOnlyFlagIsClearedForTheChangeAndRestoredWhetherOpenOrControlFails) {
    const std::string read = "GetFileAttributesW C:\\ro", clear = "SetFileAttributesW C:\\ro 0x20",
                      restore = "SetFileAttributesW C:\\ro 0x21", open = "CreateFileW C:\\ro 0xc0000000 0x3 null 3 0x80 null",
                      control = "DeviceIoControl 0x9c040 state 1 in 2 out null 0 counter set overlapped null";
    struct Case {
        DWORD openError, controlError;
        int result;
        std::vector<std::string> log;
    } cases[] = {
        {0, 0, 1, {read, read, clear, open, control, "CloseHandle", read, restore}},
        {ERROR_SHARING_VIOLATION, 0, 0, {read, read, clear, open, read, restore}},
        {0, ERROR_INVALID_FUNCTION, 0, {read, read, clear, open, control, "CloseHandle", read, restore}},
    };
    for (const Case& c : cases) {
        ScriptedFiles platform;
        platform.word = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE;
        platform.openError = c.openError;
        platform.controlError = c.controlError;
        sys().SetLastError(kJunkError);
        EXPECT_EQ(SetCompressNtfs(_T("C:\\ro"), 1), c.result);
        // The caller learns why the change failed, not how the flag went back.
        EXPECT_EQ(sys().GetLastError(), c.result == 1 ? kJunkError : c.openError | c.controlError);
        EXPECT_EQ(platform.log, c.log);
    }
}

class AttributeFlagsOnHost : public HostFolderTest {};

TEST_F(AttributeFlagsOnHost, FlagsRoundTripAndAFolderKeepsItsFolderBit) {
    WriteFile("f.txt", "data");
    MakeFolder("dir");
    for (const char* name : {"f.txt", "dir"}) {
        for (const Flag& flag : kFlags) {
            if (flag.set == nullptr) continue;
            SCOPED_TRACE(std::string(name) + " " + flag.name);
            const DWORD before = sys().GetFileAttributesW(Win(name));
            int value = 7;
            ASSERT_EQ(flag.set(Win(name), 1), 1);
            EXPECT_EQ(sys().GetFileAttributesW(Win(name)), before | flag.bit);
            EXPECT_TRUE(flag.get(Win(name), &value) == 1 && value == 1);
            ASSERT_EQ(flag.set(Win(name), 0), 1);
            EXPECT_EQ(sys().GetFileAttributesW(Win(name)), before);
            EXPECT_TRUE(flag.get(Win(name), &value) == 1 && value == 0);
        }
    }
}

TEST_F(AttributeFlagsOnHost, CompressionFailsAsOnFatAndAReadOnlyFileStaysReadOnlyEvenWhenHeld) {
    WriteFile("ro.txt", "data");
    WriteFile("held.txt", "data");
    MakeFolder("dir");
    ASSERT_EQ(SetReadOnlyFlag(Win("ro.txt"), 1) + SetReadOnlyFlag(Win("held.txt"), 1) + SetReadOnlyFlag(Win("dir"), 1), 3);
    HANDLE held = sys().CreateFileW(Win("held.txt"), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(held, INVALID_HANDLE_VALUE);
    for (auto [name, error] : {std::pair{"ro.txt", ERROR_INVALID_FUNCTION}, {"dir", ERROR_INVALID_FUNCTION}, {"held.txt", ERROR_SHARING_VIOLATION}}) {
        SCOPED_TRACE(name);
        const DWORD before = sys().GetFileAttributesW(Win(name));
        sys().SetLastError(kJunkError);
        EXPECT_EQ(SetCompressNtfs(Win(name), 1), 0);
        EXPECT_EQ(sys().GetLastError(), DWORD(error));
        EXPECT_EQ(sys().GetFileAttributesW(Win(name)), before);
    }
    sys().CloseHandle(held);
    // Where the volume compresses, the real open for reading and writing must succeed for both kinds.
    ApiPatch<&Win32Api::DeviceIoControl> compresses([](HANDLE, DWORD, LPVOID, DWORD, LPVOID, DWORD, LPDWORD, LPOVERLAPPED) { return TRUE; });
    EXPECT_EQ(SetCompressNtfs(Win("ro.txt"), 1), 1);
    EXPECT_EQ(SetCompressNtfs(Win("dir"), 1), 1);
    int readOnly = 7;
    EXPECT_TRUE(GetReadOnlyFlag(Win("ro.txt"), &readOnly) == 1 && readOnly == 1);
}
