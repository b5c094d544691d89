// Attribute flags and NTFS compression: the values handed to the platform, and real host-folder volumes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "../platform/api_patch.h"
#include "support/host_fixture.h"

using testing_support::HostFolderTest;
using testing_support::kJunkError;
using testing_support::U;
using ::testing::ElementsAre;

namespace {

constexpr DWORD kAllFlagBits = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_COMPRESSED | FILE_ATTRIBUTE_HIDDEN |
                               FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ENCRYPTED;
const HANDLE kScriptedFile = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(0x4242));

std::string Hex(DWORD value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", static_cast<unsigned>(value));
    return text;
}

// One path whose attribute word lives in the test. Every platform call is logged in order, so that a test
// can check what was asked, with which values, and that the word ends as it began.
class ScriptedPath {
public:
    explicit ScriptedPath(DWORD word) : word(word) {}

    DWORD word;
    BOOL setResult = TRUE;
    std::vector<std::string> log;
    std::vector<std::string> paths;

private:
    ApiPatch<&Win32Api::GetFileAttributesW> get_{[this](LPCWSTR path) {
        log.push_back("get");
        paths.push_back(U(path));
        if (word == INVALID_FILE_ATTRIBUTES) sys().SetLastError(ERROR_PATH_NOT_FOUND);
        return word;
    }};
    ApiPatch<&Win32Api::SetFileAttributesW> set_{[this](LPCWSTR path, DWORD value) {
        log.push_back("set " + Hex(value));
        paths.push_back(U(path));
        if (!setResult) {
            sys().SetLastError(ERROR_ACCESS_DENIED);
            return FALSE;
        }
        word = value;
        return TRUE;
    }};
};

// The open and the control call of a compression change, scripted: what was passed is kept, and either
// step can be made to fail with its own error.
class ScriptedCompression {
public:
    bool openFails = false;
    bool controlFails = false;
    std::vector<std::string>& log;

    CString openedPath;
    DWORD access = 0, share = 0, disposition = 0, flags = 0;
    LPSECURITY_ATTRIBUTES security = reinterpret_cast<LPSECURITY_ATTRIBUTES>(1);
    HANDLE templateFile = reinterpret_cast<HANDLE>(1);
    DWORD code = 0, inSize = 0, outSize = 99;
    USHORT state = 0xffff;
    LPVOID out = reinterpret_cast<LPVOID>(1);
    bool hadCounter = false;
    LPOVERLAPPED overlapped = reinterpret_cast<LPOVERLAPPED>(1);

    explicit ScriptedCompression(std::vector<std::string>& sharedLog) : log(sharedLog) {}

private:
    ApiPatch<&Win32Api::CreateFileW> open_{[this](LPCWSTR path, DWORD a, DWORD s, LPSECURITY_ATTRIBUTES sa, DWORD d, DWORD f,
                                                  HANDLE t) {
        log.push_back("open");
        openedPath = path;
        access = a, share = s, security = sa, disposition = d, flags = f, templateFile = t;
        if (openFails) {
            sys().SetLastError(ERROR_SHARING_VIOLATION);
            return INVALID_HANDLE_VALUE;
        }
        return kScriptedFile;
    }};
    ApiPatch<&Win32Api::DeviceIoControl> control_{[this](HANDLE handle, DWORD c, LPVOID in, DWORD inBytes, LPVOID o, DWORD outBytes,
                                                         LPDWORD returned, LPOVERLAPPED ov) {
        log.push_back(handle == kScriptedFile ? "control" : "control on a stray handle");
        code = c, inSize = inBytes, out = o, outSize = outBytes, hadCounter = returned != nullptr, overlapped = ov;
        if (in != nullptr && inBytes == sizeof(USHORT)) state = *static_cast<const USHORT*>(in);
        if (controlFails) {
            sys().SetLastError(ERROR_INVALID_FUNCTION);
            return FALSE;
        }
        return TRUE;
    }};
    ApiPatch<&Win32Api::CloseHandle> close_{[this](HANDLE handle) {
        log.push_back(handle == kScriptedFile ? "close" : "close a stray handle");
        return TRUE;
    }};
};

struct FlagGetter {
    const char* name;
    int (*get)(CString, int*);
    DWORD bit;
};
const FlagGetter kGetters[] = {
    {"GetReadOnlyFlag", GetReadOnlyFlag, FILE_ATTRIBUTE_READONLY},
    {"GetCompressNtfs", GetCompressNtfs, FILE_ATTRIBUTE_COMPRESSED},
    {"GetHiddenFlag", GetHiddenFlag, FILE_ATTRIBUTE_HIDDEN},
    {"GetSystemFlag", GetSystemFlag, FILE_ATTRIBUTE_SYSTEM},
};

struct FlagSetter {
    const char* name;
    int (*set)(CString, int);
    int (*get)(CString, int*);
    DWORD bit;
};
const FlagSetter kSetters[] = {
    {"SetReadOnlyFlag", SetReadOnlyFlag, GetReadOnlyFlag, FILE_ATTRIBUTE_READONLY},
    {"SetHiddenFlag", SetHiddenFlag, GetHiddenFlag, FILE_ATTRIBUTE_HIDDEN},
    {"SetSystemFlag", SetSystemFlag, GetSystemFlag, FILE_ATTRIBUTE_SYSTEM},
};

}  // namespace

// ---- Reading flags

TEST(AttributeFlags, GetFilePropertyWritesEachFlagFromItsOwnBitOnly) {
    const DWORD words[] = {FILE_ATTRIBUTE_NORMAL, FILE_ATTRIBUTE_READONLY, FILE_ATTRIBUTE_COMPRESSED, FILE_ATTRIBUTE_HIDDEN,
                           FILE_ATTRIBUTE_SYSTEM, FILE_ATTRIBUTE_ENCRYPTED, 0xFFFFFFFEu & ~kAllFlagBits,
                           kAllFlagBits | FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_ARCHIVE};
    for (DWORD word : words) {
        SCOPED_TRACE(Hex(word));
        ScriptedPath scripted(word);
        int flags[5] = {7, 7, 7, 7, 7};
        EXPECT_EQ(GetFileProperty(_T("C:\\data\\x.txt"), &flags[0], &flags[1], &flags[2], &flags[3], &flags[4]), 1);
        EXPECT_THAT(flags, ElementsAre((word & FILE_ATTRIBUTE_READONLY) ? 1 : 0, (word & FILE_ATTRIBUTE_COMPRESSED) ? 1 : 0,
                                       (word & FILE_ATTRIBUTE_HIDDEN) ? 1 : 0, (word & FILE_ATTRIBUTE_SYSTEM) ? 1 : 0,
                                       (word & FILE_ATTRIBUTE_ENCRYPTED) ? 1 : 0));
        EXPECT_THAT(scripted.log, ElementsAre("get"));
        EXPECT_THAT(scripted.paths, ElementsAre("C:\\data\\x.txt"));
    }
}

TEST(AttributeFlags, GetFilePropertyWithoutPointersStillReadsTheWordOnce) {
    ScriptedPath scripted(FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_EQ(GetFileProperty(_T("C:\\x"), nullptr, nullptr, nullptr, nullptr, nullptr), 1);
    EXPECT_THAT(scripted.log, ElementsAre("get"));
}

TEST(AttributeFlags, UnreadableWordFailsAndLeavesEveryOutputAlone) {
    ScriptedPath scripted(INVALID_FILE_ATTRIBUTES);
    int flags[5] = {7, 7, 7, 7, 7};
    sys().SetLastError(kJunkError);
    EXPECT_EQ(GetFileProperty(_T("C:\\gone\\x"), &flags[0], &flags[1], &flags[2], &flags[3], &flags[4]), 0);
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
    for (const FlagGetter& getter : kGetters) {
        SCOPED_TRACE(getter.name);
        int flag = 7;
        EXPECT_EQ(getter.get(_T("C:\\gone\\x"), &flag), 0);
        EXPECT_EQ(flag, 7);
    }
    EXPECT_THAT(flags, ElementsAre(7, 7, 7, 7, 7));
}

TEST(AttributeFlags, EachGetterAnswersFromItsOwnBitWithOneReadOfTheSamePath) {
    for (const FlagGetter& getter : kGetters) {
        SCOPED_TRACE(getter.name);
        for (DWORD word : {getter.bit | FILE_ATTRIBUTE_ARCHIVE, (kAllFlagBits & ~getter.bit) | FILE_ATTRIBUTE_DIRECTORY}) {
            ScriptedPath scripted(word);
            int flag = 7;
            EXPECT_EQ(getter.get(_T("D:\\Some Folder\\f.bin"), &flag), 1);
            EXPECT_EQ(flag, (word & getter.bit) ? 1 : 0);
            EXPECT_THAT(scripted.log, ElementsAre("get"));
            EXPECT_THAT(scripted.paths, ElementsAre("D:\\Some Folder\\f.bin"));
        }
    }
}

TEST(AttributeFlags, GetterWithoutAFlagPointerFailsWithoutReading) {
    for (const FlagGetter& getter : kGetters) {
        SCOPED_TRACE(getter.name);
        ScriptedPath scripted(getter.bit);
        EXPECT_EQ(getter.get(_T("C:\\x"), nullptr), 0);
        EXPECT_TRUE(scripted.log.empty());
    }
}

// ---- Setting flags

TEST(AttributeFlags, SettersChangeOnlyTheirBitAndOnlyOneMeansSet) {
    // Folder, archive and compressed must go back exactly as read.
    const DWORD others = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_COMPRESSED;
    for (const FlagSetter& setter : kSetters) {
        SCOPED_TRACE(setter.name);
        struct Case {
            DWORD start;
            int set;
            DWORD written;
        } cases[] = {
            {others, 1, others | setter.bit},
            {others | setter.bit, 1, others | setter.bit},
            {others | setter.bit, 0, others},
            {others | setter.bit, 2, others},
            {others | setter.bit, -1, others},
            {others, 0, others},
        };
        for (const Case& c : cases) {
            SCOPED_TRACE(c.set);
            ScriptedPath scripted(c.start);
            EXPECT_EQ(setter.set(_T("C:\\dir\\f"), c.set), 1);
            EXPECT_THAT(scripted.log, ElementsAre("get", "set " + Hex(c.written)));
            EXPECT_THAT(scripted.paths, ElementsAre("C:\\dir\\f", "C:\\dir\\f"));
        }
    }
}

TEST(AttributeFlags, SetterReturnsTheWriteResultAndKeepsItsError) {
    for (const FlagSetter& setter : kSetters) {
        SCOPED_TRACE(setter.name);
        ScriptedPath scripted(FILE_ATTRIBUTE_ARCHIVE);
        scripted.setResult = FALSE;
        sys().SetLastError(kJunkError);
        EXPECT_EQ(setter.set(_T("C:\\f"), 1), 0);
        EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    }
}

TEST(AttributeFlags, SetterDoesNotWriteWhenTheWordCannotBeRead) {
    for (const FlagSetter& setter : kSetters) {
        SCOPED_TRACE(setter.name);
        ScriptedPath scripted(INVALID_FILE_ATTRIBUTES);
        EXPECT_EQ(setter.set(_T("C:\\gone"), 1), 0);
        EXPECT_THAT(scripted.log, ElementsAre("get"));
    }
}

// ---- NTFS compression

TEST(Compression, OpensFilesAndFoldersAsEachNeedsAndSendsATwoByteState) {
    struct Case {
        const char* name;
        DWORD word;
        int compress;
        DWORD openFlags;
        USHORT state;
    } cases[] = {
        {"file, compress", FILE_ATTRIBUTE_ARCHIVE, 1, FILE_ATTRIBUTE_NORMAL, COMPRESSION_FORMAT_DEFAULT},
        {"file, decompress", FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_COMPRESSED, 0, FILE_ATTRIBUTE_NORMAL, COMPRESSION_FORMAT_NONE},
        {"file, 2 means off", FILE_ATTRIBUTE_COMPRESSED, 2, FILE_ATTRIBUTE_NORMAL, COMPRESSION_FORMAT_NONE},
        {"file, -1 means off", FILE_ATTRIBUTE_NORMAL, -1, FILE_ATTRIBUTE_NORMAL, COMPRESSION_FORMAT_NONE},
        {"folder, compress", FILE_ATTRIBUTE_DIRECTORY, 1, FILE_FLAG_BACKUP_SEMANTICS, COMPRESSION_FORMAT_DEFAULT},
        {"folder, decompress", FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_COMPRESSED, 0, FILE_FLAG_BACKUP_SEMANTICS,
         COMPRESSION_FORMAT_NONE},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedPath scripted(c.word);
        ScriptedCompression compression(scripted.log);
        EXPECT_EQ(SetCompressNtfs(_T("E:\\big\\data"), c.compress), 1);
        EXPECT_THAT(scripted.log, ElementsAre("get", "open", "control", "close"));
        EXPECT_EQ(U(compression.openedPath), "E:\\big\\data");
        EXPECT_EQ(compression.access, 0xC0000000u);
        EXPECT_EQ(compression.share, 3u);
        EXPECT_EQ(compression.security, nullptr);
        EXPECT_EQ(compression.disposition, static_cast<DWORD>(OPEN_EXISTING));
        EXPECT_EQ(compression.flags, c.openFlags);
        EXPECT_EQ(compression.templateFile, nullptr);
        EXPECT_EQ(compression.code, 0x9C040u);
        EXPECT_EQ(compression.inSize, 2u);
        EXPECT_EQ(compression.state, c.state);
        EXPECT_EQ(compression.out, nullptr);
        EXPECT_EQ(compression.outSize, 0u);
        EXPECT_TRUE(compression.hadCounter);
        EXPECT_EQ(compression.overlapped, nullptr);
        EXPECT_EQ(scripted.word, c.word);
    }
}

TEST(Compression, ReadOnlyFlagIsLiftedForTheChangeAndRestoredWhateverHappens) {
    const DWORD word = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE;
    const std::string lifted = "set " + Hex(word & ~FILE_ATTRIBUTE_READONLY);
    const std::string restored = "set " + Hex(word);
    struct Case {
        const char* name;
        bool openFails, controlFails;
        int result;
        DWORD error;
        std::vector<std::string> log;
    } cases[] = {
        {"change succeeds", false, false, 1, kJunkError,
         {"get", "get", lifted, "open", "control", "close", "get", restored}},
        {"open fails", true, false, 0, ERROR_SHARING_VIOLATION, {"get", "get", lifted, "open", "get", restored}},
        {"control call fails", false, true, 0, ERROR_INVALID_FUNCTION,
         {"get", "get", lifted, "open", "control", "close", "get", restored}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedPath scripted(word);
        ScriptedCompression compression(scripted.log);
        compression.openFails = c.openFails;
        compression.controlFails = c.controlFails;
        sys().SetLastError(kJunkError);
        EXPECT_EQ(SetCompressNtfs(_T("C:\\ro.txt"), 1), c.result);
        // The caller sees why the change failed, not how the flag went back.
        EXPECT_EQ(sys().GetLastError(), c.error);
        EXPECT_EQ(scripted.log, c.log);
        EXPECT_EQ(scripted.word, word);
        for (const std::string& path : scripted.paths) EXPECT_EQ(path, "C:\\ro.txt");
    }
}

TEST(Compression, UnreadablePathIsNeitherOpenedNorChanged) {
    ScriptedPath scripted(INVALID_FILE_ATTRIBUTES);
    ScriptedCompression compression(scripted.log);
    sys().SetLastError(kJunkError);
    EXPECT_EQ(SetCompressNtfs(_T("C:\\gone"), 1), 0);
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
    EXPECT_THAT(scripted.log, ElementsAre("get"));
}

// ---- Real host-folder volumes

class AttributeFlagsOnHost : public HostFolderTest {};

TEST_F(AttributeFlagsOnHost, EachFlagRoundTripsAndLeavesTheOthersAlone) {
    WriteFile("f.txt", "data");
    for (const FlagSetter& setter : kSetters) {
        SCOPED_TRACE(setter.name);
        const DWORD before = sys().GetFileAttributesW(Win(("f.txt")));
        int flag = 7;
        ASSERT_EQ(setter.set(Win("f.txt"), 1), 1);
        EXPECT_EQ(sys().GetFileAttributesW(Win("f.txt")), before | setter.bit);
        EXPECT_EQ(setter.get(Win("f.txt"), &flag), 1);
        EXPECT_EQ(flag, 1);
        ASSERT_EQ(setter.set(Win("f.txt"), 0), 1);
        EXPECT_EQ(sys().GetFileAttributesW(Win("f.txt")), before);
        EXPECT_EQ(setter.get(Win("f.txt"), &flag), 1);
        EXPECT_EQ(flag, 0);
    }
    int flags[5] = {7, 7, 7, 7, 7};
    ASSERT_EQ(SetHiddenFlag(Win("f.txt"), 1), 1);
    ASSERT_EQ(SetReadOnlyFlag(Win("f.txt"), 1), 1);
    EXPECT_EQ(GetFileProperty(Win("f.txt"), &flags[0], &flags[1], &flags[2], &flags[3], &flags[4]), 1);
    EXPECT_THAT(flags, ElementsAre(1, 0, 1, 0, 0));
}

TEST_F(AttributeFlagsOnHost, ReadOnlyFolderIsWrittenBackWithItsFolderBit) {
    MakeFolder("docs");
    std::vector<DWORD> written;
    ApiPatch<&Win32Api::SetFileAttributesW> record([&](LPCWSTR path, DWORD word) {
        written.push_back(word);
        return record.Original()(path, word);
    });
    ASSERT_EQ(SetReadOnlyFlag(Win("docs"), 1), 1);
    ASSERT_EQ(written.size(), 1u);
    EXPECT_EQ(written[0] & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY), static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY));
    EXPECT_EQ(sys().GetFileAttributesW(Win("docs")) & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY),
              static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY));
    EXPECT_EQ(GetPathIsFileOrFolder(Win("docs")), 2);
}

TEST_F(AttributeFlagsOnHost, CompressionFailsLikeFatAndLeavesAReadOnlyFileReadOnly) {
    WriteFile("ro.txt", "data");
    WriteFile("rw.txt", "data");
    MakeFolder("dir");
    ASSERT_EQ(SetReadOnlyFlag(Win("ro.txt"), 1), 1);
    for (const char* name : {"ro.txt", "rw.txt", "dir"}) {
        SCOPED_TRACE(name);
        const DWORD before = sys().GetFileAttributesW(Win(name));
        sys().SetLastError(kJunkError);
        EXPECT_EQ(SetCompressNtfs(Win(name), 1), 0);
        EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INVALID_FUNCTION));
        EXPECT_EQ(sys().GetFileAttributesW(Win(name)), before);
        int compressed = 7;
        EXPECT_EQ(GetCompressNtfs(Win(name), &compressed), 1);
        EXPECT_EQ(compressed, 0);
    }
}

TEST_F(AttributeFlagsOnHost, ReadOnlyFileIsOpenedForTheChangeAndStaysReadOnly) {
    WriteFile("ro.txt", "data");
    MakeFolder("dir");
    ASSERT_EQ(SetReadOnlyFlag(Win("ro.txt"), 1), 1);
    ASSERT_EQ(SetReadOnlyFlag(Win("dir"), 1), 1);
    // A volume that compresses: the real open must have succeeded for the control call to be reached.
    int controlCalls = 0;
    ApiPatch<&Win32Api::DeviceIoControl> compresses([&](HANDLE, DWORD code, LPVOID, DWORD, LPVOID, DWORD, LPDWORD, LPOVERLAPPED) {
        ++controlCalls;
        return code == FSCTL_SET_COMPRESSION ? TRUE : FALSE;
    });
    EXPECT_EQ(SetCompressNtfs(Win("ro.txt"), 1), 1);
    EXPECT_EQ(SetCompressNtfs(Win("dir"), 0), 1);
    EXPECT_EQ(controlCalls, 2);
    int readOnly = 7;
    EXPECT_EQ(GetReadOnlyFlag(Win("ro.txt"), &readOnly), 1);
    EXPECT_EQ(readOnly, 1);
    EXPECT_EQ(GetReadOnlyFlag(Win("dir"), &readOnly), 1);
    EXPECT_EQ(readOnly, 1);
}

TEST_F(AttributeFlagsOnHost, FileHeldWithoutSharingCannotBeCompressedAndStaysReadOnly) {
    WriteFile("held.txt", "data");
    ASSERT_EQ(SetReadOnlyFlag(Win("held.txt"), 1), 1);
    HANDLE held = sys().CreateFileW(Win("held.txt"), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(held, INVALID_HANDLE_VALUE);
    sys().SetLastError(kJunkError);
    EXPECT_EQ(SetCompressNtfs(Win("held.txt"), 1), 0);
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    sys().CloseHandle(held);
    int readOnly = 7;
    EXPECT_EQ(GetReadOnlyFlag(Win("held.txt"), &readOnly), 1);
    EXPECT_EQ(readOnly, 1);
}

TEST_F(AttributeFlagsOnHost, MissingPathFailsEverywhereWithTheFileNotFoundCode) {
    int flags[5] = {7, 7, 7, 7, 7};
    sys().SetLastError(kJunkError);
    EXPECT_EQ(GetFileProperty(Win("none.txt"), &flags[0], &flags[1], &flags[2], &flags[3], &flags[4]), 0);
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_THAT(flags, ElementsAre(7, 7, 7, 7, 7));
    for (const FlagSetter& setter : kSetters) {
        SCOPED_TRACE(setter.name);
        sys().SetLastError(kJunkError);
        EXPECT_EQ(setter.set(Win("none.txt"), 1), 0);
        EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    }
    sys().SetLastError(kJunkError);
    EXPECT_EQ(SetCompressNtfs(Win("missing\\none.txt"), 1), 0);
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
}
