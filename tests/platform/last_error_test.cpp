// The file calls' results and last-error values where Windows answers in a way of its own: no path at
// all, empty reads and writes, device names, the current folder, the times that mean "leave it", and the
// opens that truncate or delete.
#include <sys/stat.h>

#include <filesystem>
#include <functional>

#include "../support/disk_images.h"
#include "../support/host_fixture.h"

namespace {

using testing_support::HostFolderTest;
using testing_support::kJunkError;
using testing_support::W;

class LastError : public HostFolderTest {
protected:
    HANDLE OpenFile(const std::string& name, DWORD access, DWORD disposition = OPEN_EXISTING, DWORD flags = FILE_ATTRIBUTE_NORMAL) {
        return sys().CreateFileW(Win(name), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, disposition, flags,
                                 nullptr);
    }
};

TEST_F(LastError, FailuresGiveTheCodesWindowsGives) {
    WriteFile("file.txt", "x");
    MakeFolder("empty");
    const struct {
        const char* what;
        std::function<bool()> call;  // true when the call failed
        DWORD error;
    } cases[] = {
        {"CopyFileW from no path", [] { return !sys().CopyFileW(nullptr, W("T:\\copy.txt"), FALSE); }, ERROR_PATH_NOT_FOUND},
        {"CopyFileW to no path", [&] { return !sys().CopyFileW(Win("file.txt"), nullptr, FALSE); }, ERROR_PATH_NOT_FOUND},
        {"CopyFileExW from no path",
         [] { return !sys().CopyFileExW(nullptr, W("T:\\copy.txt"), nullptr, nullptr, nullptr, 0); },
         ERROR_PATH_NOT_FOUND},
        {"DeleteFileW of no path", [] { return !sys().DeleteFileW(nullptr); }, ERROR_PATH_NOT_FOUND},
        {"CreateDirectoryW of no path", [] { return !sys().CreateDirectoryW(nullptr, nullptr); }, ERROR_PATH_NOT_FOUND},
        {"FindFirstFileW in a missing folder, ending in a separator",
         [] {
             WIN32_FIND_DATAW data{};
             return sys().FindFirstFileW(W("T:\\missing\\"), &data) == INVALID_HANDLE_VALUE;
         },
         ERROR_PATH_NOT_FOUND},
        {"FindFirstFileW in a folder, ending in a separator",
         [] {
             WIN32_FIND_DATAW data{};
             return sys().FindFirstFileW(W("T:\\empty\\"), &data) == INVALID_HANDLE_VALUE;
         },
         ERROR_FILE_NOT_FOUND},
        {"CreateFileW of a device no one has",
         [] {
             return sys().CreateFileW(W("\\\\.\\NoSuchDevice"), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr) ==
                    INVALID_HANDLE_VALUE;
         },
         ERROR_FILE_NOT_FOUND},
    };
    for (const auto& c : cases) {
        sys().SetLastError(kJunkError);
        EXPECT_TRUE(c.call()) << c.what;
        EXPECT_EQ(sys().GetLastError(), c.error) << c.what;
    }
    EXPECT_FALSE(std::filesystem::exists(Host("copy.txt")));
}

TEST_F(LastError, SuccessfulReadsAndWritesLeaveTheLastErrorAlone) {
    WriteFile("file.txt", "abc");
    HANDLE file = OpenFile("file.txt", GENERIC_READ | GENERIC_WRITE);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    char buffer[8];
    DWORD done = 99;
    const struct {
        const char* what;
        std::function<BOOL()> call;
        DWORD done;
    } cases[] = {
        {"read", [&] { return sys().ReadFile(file, buffer, sizeof buffer, &done, nullptr); }, 3},
        {"read at the end", [&] { return sys().ReadFile(file, buffer, sizeof buffer, &done, nullptr); }, 0},
        {"read of nothing", [&] { return sys().ReadFile(file, buffer, 0, &done, nullptr); }, 0},
        {"write of nothing", [&] { return sys().WriteFile(file, buffer, 0, &done, nullptr); }, 0},
        {"write", [&] { return sys().WriteFile(file, "de", 2, &done, nullptr); }, 2},
    };
    for (const auto& c : cases) {
        sys().SetLastError(kJunkError);
        EXPECT_TRUE(c.call()) << c.what;
        EXPECT_EQ(done, c.done) << c.what;
        EXPECT_EQ(sys().GetLastError(), kJunkError) << c.what;
    }
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(sys().WriteFile(file, nullptr, 1, &done, nullptr));
    EXPECT_EQ(sys().GetLastError(), DWORD(ERROR_INVALID_USER_BUFFER));
    sys().CloseHandle(file);
    EXPECT_EQ(std::filesystem::file_size(Host("file.txt")), 5u);

    // No path to make full is answered with 0, the last error as it was.
    WCHAR full[MAX_PATH];
    for (LPCWSTR path : {static_cast<LPCWSTR>(nullptr), _T("")}) {
        sys().SetLastError(kJunkError);
        EXPECT_EQ(sys().GetFullPathNameW(path, MAX_PATH, full, nullptr), 0u);
        EXPECT_EQ(sys().GetLastError(), kJunkError);
    }
}

TEST_F(LastError, TheCurrentFolderCannotBeRemoved) {
    MakeFolder("here/inner");
    // The same folder by another name: a link on the way to it.
    std::filesystem::create_directory_symlink(Host("here"), Host("alias"));
    WCHAR before[MAX_PATH];
    ASSERT_GT(sys().GetCurrentDirectoryW(MAX_PATH, before), 0u);
    ASSERT_TRUE(sys().SetCurrentDirectoryW(Win("here\\inner")));
    for (const char* path : {"T:\\here\\inner", "t:\\HERE\\inner\\", ".", "T:\\alias\\inner"}) {
        sys().SetLastError(kJunkError);
        EXPECT_FALSE(sys().RemoveDirectoryW(W(path))) << path;
        EXPECT_EQ(sys().GetLastError(), DWORD(ERROR_SHARING_VIOLATION)) << path;
    }
    ASSERT_TRUE(sys().SetCurrentDirectoryW(Win("here")));
    EXPECT_TRUE(sys().RemoveDirectoryW(W("inner")));
    ASSERT_TRUE(sys().SetCurrentDirectoryW(before));
}

TEST_F(LastError, TimesOfZeroOrAllOnesAreLeftAsTheyAre) {
    WriteFile("file.txt", "x");
    HANDLE file = OpenFile("file.txt", GENERIC_READ | GENERIC_WRITE);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    const FILETIME set{0x12345600, 0x01D00000};  // a time in 2014
    ASSERT_TRUE(sys().SetFileTime(file, nullptr, &set, &set));
    for (const FILETIME kept : {FILETIME{0, 0}, FILETIME{0xFFFFFFFF, 0xFFFFFFFF}}) {
        ASSERT_TRUE(sys().SetFileTime(file, &kept, &kept, &kept));
        FILETIME accessed{}, written{};
        ASSERT_TRUE(sys().GetFileTime(file, nullptr, &accessed, &written));
        for (const FILETIME& time : {accessed, written}) {
            EXPECT_EQ(time.dwHighDateTime, set.dwHighDateTime) << std::hex << kept.dwLowDateTime;
            EXPECT_EQ(time.dwLowDateTime, set.dwLowDateTime) << std::hex << kept.dwLowDateTime;
        }
    }
    sys().CloseHandle(file);
}

TEST_F(LastError, TruncatingNeedsTheGenericWriteRight) {
    WriteFile("file.txt", "keep me");
    for (const DWORD access : {DWORD(GENERIC_READ), DWORD(FILE_WRITE_DATA), DWORD(FILE_GENERIC_WRITE)}) {
        sys().SetLastError(kJunkError);
        EXPECT_EQ(OpenFile("file.txt", access, TRUNCATE_EXISTING), INVALID_HANDLE_VALUE) << std::hex << access;
        EXPECT_EQ(sys().GetLastError(), DWORD(ERROR_INVALID_PARAMETER)) << std::hex << access;
    }
    EXPECT_EQ(std::filesystem::file_size(Host("file.txt")), 7u);
    HANDLE file = OpenFile("file.txt", GENERIC_WRITE, TRUNCATE_EXISTING);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    sys().CloseHandle(file);
    EXPECT_EQ(std::filesystem::file_size(Host("file.txt")), 0u);
}

TEST_F(LastError, AReadOnlyFileOpensForDeletionButIsNotDeletedOnClose) {
    WriteFile("ro.txt", "x");
    ASSERT_TRUE(sys().SetFileAttributesW(Win("ro.txt"), FILE_ATTRIBUTE_READONLY));
    HANDLE file = OpenFile("ro.txt", DELETE);
    EXPECT_NE(file, INVALID_HANDLE_VALUE);
    sys().CloseHandle(file);
    sys().SetLastError(kJunkError);
    EXPECT_EQ(OpenFile("ro.txt", DELETE, OPEN_EXISTING, FILE_FLAG_DELETE_ON_CLOSE), INVALID_HANDLE_VALUE);
    EXPECT_EQ(sys().GetLastError(), DWORD(ERROR_ACCESS_DENIED));
    EXPECT_TRUE(std::filesystem::exists(Host("ro.txt")));
}

TEST_F(LastError, FilesInsideADiskImageAnswerTheSame) {
    const auto attached = testing_support::AttachNewNtfsVolume(Host("ntfs.img"), "N");
    ASSERT_GE(attached->Number(), 0) << attached->Error();
    ASSERT_TRUE(sys().CreateDirectoryW(_T("N:\\dir"), nullptr));
    HANDLE file = sys().CreateFileW(_T("N:\\dir\\f.txt"), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL,
                                    nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    char buffer[4];
    DWORD done = 99;
    sys().SetLastError(kJunkError);
    EXPECT_TRUE(sys().WriteFile(file, "abc", 3, &done, nullptr));
    EXPECT_TRUE(sys().ReadFile(file, buffer, sizeof buffer, &done, nullptr));  // at the end
    EXPECT_EQ(done, 0u);
    EXPECT_EQ(sys().GetLastError(), kJunkError);
    EXPECT_FALSE(sys().WriteFile(file, nullptr, 1, &done, nullptr));
    EXPECT_EQ(sys().GetLastError(), DWORD(ERROR_INVALID_USER_BUFFER));
    FILETIME before{}, after{};
    ASSERT_TRUE(sys().GetFileTime(file, nullptr, nullptr, &before));
    const FILETIME kept{0xFFFFFFFF, 0xFFFFFFFF};
    EXPECT_TRUE(sys().SetFileTime(file, nullptr, nullptr, &kept));
    ASSERT_TRUE(sys().GetFileTime(file, nullptr, nullptr, &after));
    EXPECT_EQ(after.dwHighDateTime, before.dwHighDateTime);
    EXPECT_EQ(after.dwLowDateTime, before.dwLowDateTime);
    sys().CloseHandle(file);

    sys().SetLastError(kJunkError);
    EXPECT_EQ(sys().CreateFileW(_T("N:\\dir\\f.txt"), FILE_WRITE_DATA, 0, nullptr, TRUNCATE_EXISTING, 0, nullptr), INVALID_HANDLE_VALUE);
    EXPECT_EQ(sys().GetLastError(), DWORD(ERROR_INVALID_PARAMETER));
    WIN32_FIND_DATAW data{};
    for (const auto& [pattern, error] : {std::pair(_T("N:\\missing\\"), DWORD(ERROR_PATH_NOT_FOUND)), std::pair(_T("N:\\dir\\"), DWORD(ERROR_FILE_NOT_FOUND))}) {
        sys().SetLastError(kJunkError);
        EXPECT_EQ(sys().FindFirstFileW(pattern, &data), INVALID_HANDLE_VALUE);
        EXPECT_EQ(sys().GetLastError(), error);
    }
    ASSERT_TRUE(sys().SetFileAttributesW(_T("N:\\dir\\f.txt"), FILE_ATTRIBUTE_READONLY));
    file = sys().CreateFileW(_T("N:\\dir\\f.txt"), DELETE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(file, INVALID_HANDLE_VALUE);
    sys().CloseHandle(file);
    sys().SetLastError(kJunkError);
    EXPECT_EQ(sys().CreateFileW(_T("N:\\dir\\f.txt"), DELETE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_DELETE_ON_CLOSE, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_EQ(sys().GetLastError(), DWORD(ERROR_ACCESS_DENIED));
    EXPECT_EQ(sys().GetFileAttributesW(_T("N:\\dir\\f.txt")), DWORD(FILE_ATTRIBUTE_READONLY));
}

}  // namespace
