// Host-folder volumes behaving as Windows does where the library depends on it: path rules, lookup
// without regard to case, attribute mapping, enumeration order, share modes and error codes.
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cstring>
#include <ctime>
#include <filesystem>
#include <set>

#include "../support/host_fixture.h"
#include "../support/share_holder.h"

namespace {

using testing_support::HeldElsewhere;
using testing_support::HostFolderTest;
using testing_support::kJunkError;
using testing_support::U;
using testing_support::W;

class HostFolder : public HostFolderTest {
protected:
    DWORD Attributes(const CString& path) { return sys().GetFileAttributesW(path); }
    DWORD ErrorAfterAttributes(const CString& path) {
        sys().SetLastError(kJunkError);
        EXPECT_EQ(sys().GetFileAttributesW(path), INVALID_FILE_ATTRIBUTES) << U(path);
        return sys().GetLastError();
    }
    std::vector<std::string> List(const CString& pattern) {
        std::vector<std::string> names;
        WIN32_FIND_DATAW data{};
        HANDLE find = sys().FindFirstFileW(pattern, &data);
        if (find == INVALID_HANDLE_VALUE) return names;
        do names.push_back(U(data.cFileName));
        while (sys().FindNextFileW(find, &data));
        EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_FILES));
        EXPECT_TRUE(sys().FindClose(find));
        return names;
    }
};

TEST_F(HostFolder, PathFormsReachTheSameEntry) {
    WriteFile("Dir/Sub/File.TXT", "x");
    const std::string host = Host("Dir/Sub/File.TXT");
    for (const char* form : {"T:\\Dir\\Sub\\File.TXT", "T:/dir/sub/file.txt", "t:\\DIR\\\\Sub\\\\\\FILE.txt",
                             "T:\\Dir\\.\\Other\\..\\Sub\\File.TXT", "T:\\Dir\\Sub\\File.TXT.  ", "\\\\?\\T:\\Dir\\Sub\\File.TXT"}) {
        EXPECT_EQ(vlx::Win32ToHostPath(W(form)), host) << form;
        EXPECT_NE(Attributes(W(form)), INVALID_FILE_ATTRIBUTES) << form;
    }
    // The case on disk is kept, whatever case the caller used.
    WIN32_FIND_DATAW data{};
    HANDLE find = sys().FindFirstFileW(W("T:\\dir\\sub\\file.txt"), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    EXPECT_EQ(U(data.cFileName), "File.TXT");
    sys().FindClose(find);
}

TEST_F(HostFolder, RelativePathsFollowTheCurrentFolder) {
    WriteFile("work/a.txt", "x");
    WCHAR saved[MAX_PATH];
    ASSERT_GT(sys().GetCurrentDirectoryW(MAX_PATH, saved), 0u);
    ASSERT_TRUE(sys().SetCurrentDirectoryW(Win("work")));
    EXPECT_NE(Attributes(W("a.txt")), INVALID_FILE_ATTRIBUTES);
    EXPECT_NE(Attributes(W("..\\work\\a.txt")), INVALID_FILE_ATTRIBUTES);
    EXPECT_NE(Attributes(W("T:a.txt")), INVALID_FILE_ATTRIBUTES);
    WCHAR full[MAX_PATH];
    ASSERT_GT(sys().GetFullPathNameW(W("sub\\..\\b.txt"), MAX_PATH, full, nullptr), 0u);
    EXPECT_EQ(U(full), "T:\\work\\b.txt");
    // A buffer that is too small gets the size needed, NUL included.
    EXPECT_EQ(sys().GetCurrentDirectoryW(3, full), static_cast<DWORD>(WStrLen(W("T:\\work")) + 1));
    ASSERT_TRUE(sys().SetCurrentDirectoryW(saved));
}

TEST_F(HostFolder, ErrorCodesForPathsThatCannotBeReached) {
    WriteFile("file.txt", "x");
    EXPECT_EQ(ErrorAfterAttributes(Win("missing.txt")), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(ErrorAfterAttributes(Win("missing\\a.txt")), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(ErrorAfterAttributes(Win("file.txt\\a.txt")), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(ErrorAfterAttributes(Win("file.txt\\")), static_cast<DWORD>(ERROR_INVALID_NAME));
    EXPECT_EQ(ErrorAfterAttributes(Win("*.txt")), static_cast<DWORD>(ERROR_INVALID_NAME));
    EXPECT_EQ(ErrorAfterAttributes(Win("a<b")), static_cast<DWORD>(ERROR_INVALID_NAME));
    EXPECT_EQ(ErrorAfterAttributes(W("Q:\\anything")), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(ErrorAfterAttributes(W("")), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
}

TEST_F(HostFolder, PathsReachMaxPathOnlyThroughTheLongPathPrefix) {
    // "T:\" plus a name of 255 is 258 units: one under the limit with its NUL. One more unit is over.
    const std::string fits(255, 'a');
    WriteFile(fits, "x");
    EXPECT_NE(Attributes(Win(fits)), INVALID_FILE_ATTRIBUTES);
    const std::string longName = "d/" + std::string(200, 'b') + "/" + std::string(60, 'c');
    WriteFile(longName, "x");
    EXPECT_EQ(ErrorAfterAttributes(Win(longName)), static_cast<DWORD>(ERROR_FILENAME_EXCED_RANGE));
    EXPECT_NE(Attributes(W("\\\\?\\" + U(Win(longName)))), INVALID_FILE_ATTRIBUTES);
}

TEST_F(HostFolder, AttributeWordsMapToHostState) {
    WriteFile("plain.txt", "x");
    MakeFolder("folder");
    EXPECT_EQ(Attributes(Win("plain.txt")), static_cast<DWORD>(FILE_ATTRIBUTE_ARCHIVE));
    EXPECT_EQ(Attributes(Win("folder")), static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY));
    EXPECT_EQ(Attributes(W("T:\\")) & FILE_ATTRIBUTE_DIRECTORY, static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY));

    // Hidden, system and archive are kept in the extended attribute; read-only in the owner's write bit.
    ASSERT_TRUE(sys().SetFileAttributesW(Win("plain.txt"), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_READONLY));
    EXPECT_EQ(Attributes(Win("plain.txt")), static_cast<DWORD>(FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_READONLY));
    struct stat status {};
    stat(Host("plain.txt").c_str(), &status);
    EXPECT_EQ(status.st_mode & S_IWUSR, 0u);
    char stored[32] = {};
    ASSERT_GT(getxattr(Host("plain.txt").c_str(), "user.DOSATTRIB", stored, sizeof stored - 1), 0);
    EXPECT_STREQ(stored, "0x6");

    // FILE_ATTRIBUTE_NORMAL alone clears everything; a folder keeps its folder bit whatever is written.
    ASSERT_TRUE(sys().SetFileAttributesW(Win("plain.txt"), FILE_ATTRIBUTE_NORMAL));
    EXPECT_EQ(Attributes(Win("plain.txt")), static_cast<DWORD>(FILE_ATTRIBUTE_NORMAL));
    ASSERT_TRUE(sys().SetFileAttributesW(Win("folder"), FILE_ATTRIBUTE_READONLY));
    EXPECT_EQ(Attributes(Win("folder")), static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY));

    std::filesystem::create_directory_symlink(Host("folder"), Host("junction"));
    EXPECT_EQ(Attributes(Win("junction")) & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT),
              static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT));
    EXPECT_EQ(sys().PathIsDirectoryW(Win("junction")), FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_FALSE(sys().PathIsDirectoryW(Win("plain.txt")));
    EXPECT_TRUE(sys().PathFileExistsW(Win("plain.txt")));
    EXPECT_FALSE(sys().PathFileExistsW(Win("nothing")));
}

// Attribute words are remembered between reads only while nothing could have changed them unseen: a word
// written by another program right after a read is read back, and so is one this process writes, also
// for entries old enough to be remembered (a clock running a minute ahead makes every entry old).
TEST_F(HostFolder, RememberedAttributeWordsNeverHideAChange) {
    WriteFile("a.txt", "x");
    auto writeElsewhere = [&](const char* word) {
        ASSERT_EQ(setxattr(Host("a.txt").c_str(), "user.DOSATTRIB", word, std::strlen(word), 0), 0);
    };
    for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(Attributes(Win("a.txt")), DWORD(FILE_ATTRIBUTE_ARCHIVE));
        writeElsewhere("0x2");
        EXPECT_EQ(Attributes(Win("a.txt")), DWORD(FILE_ATTRIBUTE_HIDDEN)) << round;
        writeElsewhere("0x20");
    }

    struct Ahead {
        Ahead() { vlx::SetPresentClock(&Now); }
        ~Ahead() { vlx::SetPresentClock(nullptr); }
        static struct timespec Now() {
            struct timespec now {};
            clock_gettime(CLOCK_REALTIME, &now);
            now.tv_sec += 60;
            return now;
        }
    } ahead;
    for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(Attributes(Win("a.txt")), DWORD(FILE_ATTRIBUTE_ARCHIVE));
        ASSERT_TRUE(sys().SetFileAttributesW(Win("a.txt"), FILE_ATTRIBUTE_SYSTEM));
        EXPECT_EQ(Attributes(Win("a.txt")), DWORD(FILE_ATTRIBUTE_SYSTEM)) << round;
        ASSERT_TRUE(sys().SetFileAttributesW(Win("a.txt"), FILE_ATTRIBUTE_ARCHIVE));
        // A remembered word stands for the file as it was: a write that moves the change time is seen.
        EXPECT_EQ(Attributes(Win("a.txt")), DWORD(FILE_ATTRIBUTE_ARCHIVE));
    }
}

// What non-root users meet: every write of an attribute word happens whole or changes nothing, whatever
// the entry's permissions, and a refusal says why.
TEST_F(HostFolder, AttributeWritesHappenWholeOrNotAtAll) {
    WriteFile("ro.txt", "x");
    MakeFolder("dir");
    MakeFolder("locked");
    WriteFile("lk.txt", "x");
    std::filesystem::create_symlink(Host("lk.txt"), Host("link"));
    ASSERT_EQ(mkfifo(Host("pipe").c_str(), 0644), 0);
    auto mode = [&](const std::string& name) {
        struct stat status {};
        lstat(Host(name).c_str(), &status);
        return status.st_mode & 07777;
    };
    auto stored = [&](const std::string& name) {
        char text[32] = {};
        return lgetxattr(Host(name).c_str(), "user.DOSATTRIB", text, sizeof text - 1) > 0 ? std::string(text) : std::string("none");
    };

    // Hidden on a read-only file: the stored word needs the file writable for the moment of the write.
    ASSERT_TRUE(sys().SetFileAttributesW(Win("ro.txt"), FILE_ATTRIBUTE_READONLY));
    ASSERT_TRUE(sys().SetFileAttributesW(Win("ro.txt"), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM));
    EXPECT_EQ(Attributes(Win("ro.txt")), DWORD(FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM));
    EXPECT_EQ(mode("ro.txt") & S_IWUSR, 0u);
    ASSERT_TRUE(sys().SetFileAttributesW(Win("ro.txt"), FILE_ATTRIBUTE_ARCHIVE));
    EXPECT_EQ(Attributes(Win("ro.txt")), DWORD(FILE_ATTRIBUTE_ARCHIVE));

    // A read-only folder keeps its write permission: files are still made inside it, as on Windows.
    const mode_t folderMode = mode("dir");
    ASSERT_TRUE(sys().SetFileAttributesW(Win("dir"), FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    EXPECT_EQ(Attributes(Win("dir")), DWORD(FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    EXPECT_EQ(mode("dir"), folderMode);
    HANDLE made = sys().CreateFileW(Win("dir\\new.txt"), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    EXPECT_NE(made, INVALID_HANDLE_VALUE);
    sys().CloseHandle(made);
    ASSERT_TRUE(sys().SetFileAttributesW(Win("dir"), FILE_ATTRIBUTE_DIRECTORY));
    EXPECT_EQ(Attributes(Win("dir")), DWORD(FILE_ATTRIBUTE_DIRECTORY));
    // A folder nobody may write into reads as read-only, and clearing the flag gives the permission back.
    ASSERT_EQ(chmod(Host("locked").c_str(), 0555), 0);
    EXPECT_EQ(Attributes(Win("locked")), DWORD(FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY));
    ASSERT_TRUE(sys().SetFileAttributesW(Win("locked"), FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_HIDDEN));
    EXPECT_EQ(Attributes(Win("locked")), DWORD(FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_HIDDEN));
    EXPECT_EQ(mode("locked"), 0755u);

    // A link keeps only what it reads as; a pipe cannot carry a stored word, so its permission stays too.
    const DWORD linkWord = Attributes(Win("link"));
    EXPECT_TRUE(sys().SetFileAttributesW(Win("link"), linkWord));
    const struct {
        const char* name;
        DWORD word;
        DWORD error;
    } refused[] = {
        {"link", linkWord | FILE_ATTRIBUTE_HIDDEN, ERROR_NOT_SUPPORTED},
        {"link", linkWord | FILE_ATTRIBUTE_READONLY, ERROR_NOT_SUPPORTED},
        {"pipe", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN, ERROR_ACCESS_DENIED},
    };
    for (const auto& c : refused) {
        SCOPED_TRACE(c.name);
        const DWORD before = Attributes(Win(c.name));
        const mode_t modeBefore = mode(c.name);
        sys().SetLastError(kJunkError);
        EXPECT_FALSE(sys().SetFileAttributesW(Win(c.name), c.word));
        EXPECT_EQ(sys().GetLastError(), c.error);
        EXPECT_EQ(Attributes(Win(c.name)), before);
        EXPECT_EQ(mode(c.name), modeBefore);
        EXPECT_EQ(stored(c.name), "none");
    }
    EXPECT_EQ(Attributes(Win("lk.txt")), DWORD(FILE_ATTRIBUTE_ARCHIVE));
}

// Root searches every folder, so only an unprivileged run meets a folder it may not enter.
TEST_F(HostFolder, EntriesBehindAFolderThatCannotBeEnteredAreDeniedNotMissing) {
    if (geteuid() == 0) GTEST_SKIP() << "root enters every folder";
    WriteFile("closed/inner/f.txt", "x");
    ASSERT_EQ(chmod(Host("closed").c_str(), 0), 0);
    for (const char* name : {"closed\\f.txt", "closed\\inner\\f.txt"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(ErrorAfterAttributes(Win(name)), DWORD(ERROR_ACCESS_DENIED));
        sys().SetLastError(kJunkError);
        EXPECT_EQ(sys().CreateFileW(Win(name), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr), INVALID_HANDLE_VALUE);
        EXPECT_EQ(sys().GetLastError(), DWORD(ERROR_ACCESS_DENIED));
    }
}

TEST_F(HostFolder, EnumerationGivesDotsFirstThenNtfsOrder) {
    for (const char* name : {"b.txt", "A.txt", "_x", "a.doc", "Z", "10", "9", "noext"}) WriteFile(std::string("dir/") + name, "");
    MakeFolder("dir/sub");
    EXPECT_EQ(List(Win("dir\\*")), (std::vector<std::string>{".", "..", "10", "9", "a.doc", "A.txt", "b.txt", "noext", "sub", "Z", "_x"}));
    EXPECT_EQ(List(Win("dir\\*.*")).size(), 11u);
    EXPECT_EQ(List(Win("dir\\*.TXT")), (std::vector<std::string>{"A.txt", "b.txt"}));
    EXPECT_EQ(List(Win("dir\\?.txt")), (std::vector<std::string>{"A.txt", "b.txt"}));
    EXPECT_EQ(List(Win("dir\\noext.*")), (std::vector<std::string>{"noext"}));
    // The root of a volume lists no dots.
    EXPECT_EQ(List(W("T:\\*")), (std::vector<std::string>{"dir"}));
}

TEST_F(HostFolder, FindDataCarriesSizesTimesAndAttributes) {
    WriteFile("dir/data.bin", std::string(1000, 'x'));
    std::filesystem::last_write_time(Host("dir/data.bin"), std::filesystem::file_time_type::clock::now());
    WIN32_FIND_DATAW data{};
    HANDLE find = sys().FindFirstFileW(Win("dir\\data.bin"), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    EXPECT_EQ(data.nFileSizeLow, 1000u);
    EXPECT_EQ(data.nFileSizeHigh, 0u);
    EXPECT_EQ(data.dwFileAttributes, static_cast<DWORD>(FILE_ATTRIBUTE_ARCHIVE));
    struct stat status {};
    stat(Host("dir/data.bin").c_str(), &status);
    const ULONGLONG written = (static_cast<ULONGLONG>(data.ftLastWriteTime.dwHighDateTime) << 32) | data.ftLastWriteTime.dwLowDateTime;
    EXPECT_EQ(written, static_cast<ULONGLONG>(status.st_mtim.tv_sec) * 10000000ULL + status.st_mtim.tv_nsec / 100 + 116444736000000000ULL);
    // The search handle is refused by CloseHandle and ended by FindClose.
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(sys().CloseHandle(find));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_TRUE(sys().FindClose(find));
}

TEST_F(HostFolder, FindFailuresSayWhatWasMissing) {
    MakeFolder("empty");
    WIN32_FIND_DATAW data{};
    const std::pair<std::string, DWORD> cases[] = {
        {"T:\\empty\\*.txt", ERROR_FILE_NOT_FOUND}, {"T:\\missing\\*", ERROR_PATH_NOT_FOUND},
        {"T:\\empty\\", ERROR_FILE_NOT_FOUND},      {"T:\\", ERROR_FILE_NOT_FOUND},
        {"T:\\nothing.txt", ERROR_FILE_NOT_FOUND},
    };
    for (const auto& [pattern, code] : cases) {
        sys().SetLastError(kJunkError);
        EXPECT_EQ(sys().FindFirstFileW(W(pattern), &data), INVALID_HANDLE_VALUE) << pattern;
        EXPECT_EQ(sys().GetLastError(), code) << pattern;
    }
}

TEST_F(HostFolder, ShareModesAreEnforcedBetweenOpenHandles) {
    WriteFile("shared.txt", "content");
    const CString path = Win("shared.txt");
    HANDLE exclusive = sys().CreateFileW(path, GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(exclusive, INVALID_HANDLE_VALUE);
    sys().SetLastError(kJunkError);
    EXPECT_EQ(sys().CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    // An open for attributes alone does not touch the data and is let through.
    HANDLE attributesOnly = sys().CreateFileW(path, FILE_READ_ATTRIBUTES, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(attributesOnly, INVALID_HANDLE_VALUE);
    sys().CloseHandle(attributesOnly);
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(sys().DeleteFileW(path));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    EXPECT_TRUE(sys().CloseHandle(exclusive));

    HANDLE reader = sys().CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    HANDLE second = sys().CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(second, INVALID_HANDLE_VALUE) << "two readers that share reading";
    EXPECT_EQ(sys().CreateFileW(path, GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr), INVALID_HANDLE_VALUE)
        << "a writer while readers refuse to share writing";
    sys().CloseHandle(reader);
    sys().CloseHandle(second);
}

TEST_F(HostFolder, ShareModesHoldAgainstAnotherProcess) {
    WriteFile("a.txt", "kept");
    constexpr DWORD kAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const struct {
        DWORD heldAccess, heldShare, access, share;
        bool opens;
    } cases[] = {
        {GENERIC_READ, 0, GENERIC_READ, kAll, false},                         // held without sharing
        {GENERIC_READ, FILE_SHARE_READ, GENERIC_READ, kAll, true},
        {GENERIC_READ, FILE_SHARE_READ, GENERIC_WRITE, kAll, false},
        {GENERIC_READ, FILE_SHARE_READ, GENERIC_READ, 0, false},              // we would deny its reading
        {GENERIC_WRITE, kAll, GENERIC_READ, FILE_SHARE_READ, false},          // we would deny its writing
        {GENERIC_WRITE, kAll, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, true},
        {FILE_READ_ATTRIBUTES, 0, GENERIC_READ, 0, true},                     // attributes alone never conflict
        {GENERIC_READ, kAll, FILE_READ_ATTRIBUTES, 0, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << std::hex << c.heldAccess << "/" << c.heldShare << " then " << c.access << "/" << c.share);
        HeldElsewhere held(root_, "T:\\a.txt", c.heldAccess, c.heldShare);
        ASSERT_EQ(held.openError(), DWORD(ERROR_SUCCESS));
        sys().SetLastError(kJunkError);
        HANDLE file = sys().CreateFileW(Win("a.txt"), c.access, c.share, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        EXPECT_EQ(file != INVALID_HANDLE_VALUE, c.opens);
        if (file != INVALID_HANDLE_VALUE) sys().CloseHandle(file);
        else EXPECT_EQ(sys().GetLastError(), DWORD(ERROR_SHARING_VIOLATION));
    }

    {
        // A replacing open is refused before the held file loses its data, and so is a deletion.
        HeldElsewhere held(root_, "T:\\a.txt", GENERIC_READ, FILE_SHARE_READ);
        ASSERT_EQ(held.openError(), DWORD(ERROR_SUCCESS));
        for (DWORD disposition : {DWORD(CREATE_ALWAYS), DWORD(TRUNCATE_EXISTING)}) {
            sys().SetLastError(kJunkError);
            EXPECT_EQ(sys().CreateFileW(Win("a.txt"), GENERIC_WRITE, kAll, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr),
                      INVALID_HANDLE_VALUE);
            EXPECT_EQ(sys().GetLastError(), DWORD(ERROR_SHARING_VIOLATION));
        }
        EXPECT_EQ(std::filesystem::file_size(Host("a.txt")), 4u);
        sys().SetLastError(kJunkError);
        EXPECT_FALSE(sys().DeleteFileW(Win("a.txt")));
        EXPECT_EQ(sys().GetLastError(), DWORD(ERROR_SHARING_VIOLATION));
        // Once the other process has let go, the file is free again.
        held.Release();
        EXPECT_TRUE(sys().DeleteFileW(Win("a.txt")));
    }

    // The other way round: a file this process holds is refused to the other one; a folder held open
    // without sharing deletion cannot be removed.
    WriteFile("b.txt", "x");
    HANDLE mine = sys().CreateFileW(Win("b.txt"), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(mine, INVALID_HANDLE_VALUE);
    EXPECT_EQ(HeldElsewhere(root_, "T:\\b.txt", GENERIC_WRITE, kAll).openError(), DWORD(ERROR_SHARING_VIOLATION));
    EXPECT_EQ(HeldElsewhere(root_, "T:\\b.txt", GENERIC_READ, kAll).openError(), DWORD(ERROR_SUCCESS));
    sys().CloseHandle(mine);
    MakeFolder("dir");
    HeldElsewhere folder(root_, "T:\\dir", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, FILE_FLAG_BACKUP_SEMANTICS);
    ASSERT_EQ(folder.openError(), DWORD(ERROR_SUCCESS));
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(sys().RemoveDirectoryW(Win("dir")));
    EXPECT_EQ(sys().GetLastError(), DWORD(ERROR_SHARING_VIOLATION));
}

TEST_F(HostFolder, CreateFileDispositionsAndRefusals) {
    MakeFolder("dir");
    WriteFile("ro.txt", "x");
    ASSERT_TRUE(sys().SetFileAttributesW(Win("ro.txt"), FILE_ATTRIBUTE_READONLY));
    struct Case {
        std::string path;
        DWORD access, disposition, flags, error;
    };
    const Case refusals[] = {
        {"dir", GENERIC_READ, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, ERROR_ACCESS_DENIED},  // folder without backup semantics
        {"ro.txt", GENERIC_WRITE, OPEN_EXISTING, 0, ERROR_ACCESS_DENIED},                  // read-only, even for root
        {"ro.txt", GENERIC_READ, CREATE_NEW, 0, ERROR_FILE_EXISTS},
        {"missing.txt", GENERIC_READ, OPEN_EXISTING, 0, ERROR_FILE_NOT_FOUND},
        {"nodir\\new.txt", GENERIC_WRITE, CREATE_ALWAYS, 0, ERROR_PATH_NOT_FOUND},
    };
    for (const Case& c : refusals) {
        sys().SetLastError(kJunkError);
        EXPECT_EQ(sys().CreateFileW(Win(c.path), c.access, 0, nullptr, c.disposition, c.flags, nullptr), INVALID_HANDLE_VALUE) << c.path;
        EXPECT_EQ(sys().GetLastError(), c.error) << c.path;
    }

    HANDLE folder = sys().CreateFileW(Win("dir"), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    ASSERT_NE(folder, INVALID_HANDLE_VALUE);
    BY_HANDLE_FILE_INFORMATION info{};
    ASSERT_TRUE(sys().GetFileInformationByHandle(folder, &info));
    EXPECT_EQ(info.nNumberOfLinks, 1u);
    EXPECT_TRUE(info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY);
    sys().CloseHandle(folder);

    // CREATE_ALWAYS over an existing file truncates it and says so.
    WriteFile("old.txt", "old content");
    sys().SetLastError(kJunkError);
    HANDLE file = sys().CreateFileW(Win("old.txt"), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    DWORD written = 0;
    ASSERT_TRUE(sys().WriteFile(file, "new", 3, &written, nullptr));
    EXPECT_EQ(sys().GetFileSize(file, nullptr), 3u);
    // A handle opened for writing only cannot read.
    char buffer[4];
    DWORD read = 0;
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(sys().ReadFile(file, buffer, sizeof buffer, &read, nullptr));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    sys().CloseHandle(file);
    EXPECT_EQ(std::filesystem::file_size(Host("old.txt")), 3u);
}

TEST_F(HostFolder, ReadWriteAndSizesPastFourGiB) {
    const CString path = Win("big.bin");
    HANDLE file = sys().CreateFileW(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    LARGE_INTEGER at{};
    at.QuadPart = 5LL << 30;
    ASSERT_TRUE(sys().SetFilePointerEx(file, at, nullptr, FILE_BEGIN));
    DWORD written = 0;
    ASSERT_TRUE(sys().WriteFile(file, "end", 3, &written, nullptr));
    DWORD high = 0;
    EXPECT_EQ(sys().GetFileSize(file, &high), 0x40000003u);
    EXPECT_EQ(high, 1u);
    LARGE_INTEGER size{};
    ASSERT_TRUE(sys().GetFileSizeEx(file, &size));
    EXPECT_EQ(size.QuadPart, (5LL << 30) + 3);
    at.QuadPart = -3;
    ASSERT_TRUE(sys().SetFilePointerEx(file, at, nullptr, FILE_END));
    char buffer[8] = {};
    DWORD read = 0;
    ASSERT_TRUE(sys().ReadFile(file, buffer, sizeof buffer, &read, nullptr));
    EXPECT_EQ(read, 3u);
    EXPECT_EQ(std::string(buffer, 3), "end");
    ASSERT_TRUE(sys().ReadFile(file, buffer, sizeof buffer, &read, nullptr));
    EXPECT_EQ(read, 0u) << "reading at the end succeeds with nothing";
    sys().CloseHandle(file);
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(sys().CloseHandle(file)) << "a handle closes once";
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST_F(HostFolder, HardLinksListEveryNameNearestFirst) {
    WriteFile("a/one.txt", "x");
    MakeFolder("a/sub");
    MakeFolder("aa");
    MakeFolder("b");
    // Made far to near, so that the order found cannot be the order made.
    ASSERT_TRUE(sys().CreateHardLinkW(Win("b\\two.txt"), Win("a\\one.txt"), nullptr));
    ASSERT_TRUE(sys().CreateHardLinkW(Win("aa\\far.txt"), Win("a\\one.txt"), nullptr));
    ASSERT_TRUE(sys().CreateHardLinkW(Win("three.txt"), Win("a\\one.txt"), nullptr));
    ASSERT_TRUE(sys().CreateHardLinkW(Win("a\\sub\\below.txt"), Win("a\\one.txt"), nullptr));
    ASSERT_TRUE(sys().CreateHardLinkW(Win("a\\next.txt"), Win("a\\one.txt"), nullptr));
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(sys().CreateHardLinkW(Win("three.txt"), Win("a\\one.txt"), nullptr));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));

    WCHAR name[MAX_PATH];
    DWORD length = MAX_PATH;
    HANDLE find = sys().FindFirstFileNameW(Win("a\\ONE.txt"), 0, &length, name);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    std::vector<std::string> names{U(name)};
    for (;;) {
        length = MAX_PATH;
        if (!sys().FindNextFileNameW(find, &length, name)) break;
        names.push_back(U(name));
    }
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_HANDLE_EOF));
    EXPECT_TRUE(sys().FindClose(find));
    // The name asked for first, with its case on disk; then its own folder, the folders below it, and
    // only then the folders around it, the root's own entries before its other folders.
    EXPECT_EQ(names, (std::vector<std::string>{"\\a\\one.txt", "\\a\\next.txt", "\\a\\sub\\below.txt", "\\three.txt",
                                               "\\aa\\far.txt", "\\b\\two.txt"}));

    // A buffer too small for the name: ERROR_MORE_DATA and the size needed.
    length = 5;
    sys().SetLastError(kJunkError);
    EXPECT_EQ(sys().FindFirstFileNameW(Win("three.txt"), 0, &length, name), INVALID_HANDLE_VALUE);
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_MORE_DATA));
    EXPECT_EQ(length, 11u);
}

TEST_F(HostFolder, SetCompressionFailsAsOnFat) {
    WriteFile("c.txt", "x");
    HANDLE file = sys().CreateFileW(Win("c.txt"), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    USHORT state = COMPRESSION_FORMAT_DEFAULT;
    DWORD returned = 0;
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(sys().DeviceIoControl(file, FSCTL_SET_COMPRESSION, &state, sizeof state, nullptr, 0, &returned, nullptr));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INVALID_FUNCTION));
    sys().CloseHandle(file);
}

TEST_F(HostFolder, FoldersAreMadeAndRemovedWithWindowsRefusals) {
    ASSERT_TRUE(sys().CreateDirectoryW(Win("new"), nullptr));
    const std::pair<std::function<BOOL()>, DWORD> cases[] = {
        {[&] { return sys().CreateDirectoryW(Win("new"), nullptr); }, ERROR_ALREADY_EXISTS},
        {[&] { return sys().CreateDirectoryW(Win("a\\b"), nullptr); }, ERROR_PATH_NOT_FOUND},
        {[&] {
             WriteFile("new/f.txt", "");
             return sys().RemoveDirectoryW(Win("new"));
         },
         ERROR_DIR_NOT_EMPTY},
        {[&] { return sys().RemoveDirectoryW(Win("new\\f.txt")); }, ERROR_DIRECTORY},
        {[&] { return sys().DeleteFileW(Win("new")); }, ERROR_ACCESS_DENIED},
    };
    for (const auto& [call, code] : cases) {
        sys().SetLastError(kJunkError);
        EXPECT_FALSE(call());
        EXPECT_EQ(sys().GetLastError(), code);
    }
    ASSERT_TRUE(sys().DeleteFileW(Win("new\\f.txt")));
    EXPECT_TRUE(sys().RemoveDirectoryW(Win("new")));
}

}  // namespace
