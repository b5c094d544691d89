// Share modes as Windows enforces them: the whole matrix of a first open's access and share mode against
// a second open's, and the opens a file copy makes against a source or target someone else holds.
#include <filesystem>

#include "../support/disk_images.h"
#include "../support/host_fixture.h"

namespace {

using testing_support::HostFolderTest;
using testing_support::kJunkError;
using testing_support::W;

constexpr DWORD kAccesses[] = {
    0,                      FILE_READ_ATTRIBUTES, FILE_WRITE_ATTRIBUTES, FILE_READ_EA,   FILE_WRITE_EA,
    FILE_DELETE_CHILD,      READ_CONTROL,         GENERIC_READ,          GENERIC_WRITE,  GENERIC_READ | GENERIC_WRITE,
    GENERIC_EXECUTE,        FILE_APPEND_DATA,     DELETE,                GENERIC_ALL,
};
constexpr DWORD kShares[] = {
    0,
    FILE_SHARE_READ,
    FILE_SHARE_WRITE,
    FILE_SHARE_DELETE,
    FILE_SHARE_READ | FILE_SHARE_WRITE,
    FILE_SHARE_READ | FILE_SHARE_DELETE,
    FILE_SHARE_WRITE | FILE_SHARE_DELETE,
    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
};

// The rights that take part in sharing, as the documentation of CreateFile names them: reading (data or
// execution), writing (data or appending) and deleting. An open that holds none of them is neither
// checked nor counted.
struct SharedRights {
    bool read, write, remove;
    bool any() const { return read || write || remove; }
};
SharedRights RightsOf(DWORD access) {
    const bool all = (access & GENERIC_ALL) != 0;
    return {all || (access & (GENERIC_READ | GENERIC_EXECUTE | FILE_READ_DATA | FILE_EXECUTE)) != 0,
            all || (access & (GENERIC_WRITE | FILE_WRITE_DATA | FILE_APPEND_DATA)) != 0, all || (access & DELETE) != 0};
}

// Whether an open may join one that is already there: each right either holds must be shared by the other.
bool MayJoin(DWORD heldAccess, DWORD heldShare, DWORD access, DWORD share) {
    const SharedRights held = RightsOf(heldAccess), wanted = RightsOf(access);
    if (!held.any() || !wanted.any()) return true;
    auto shares = [](const SharedRights& rights, DWORD mode) {
        return (!rights.read || (mode & FILE_SHARE_READ)) && (!rights.write || (mode & FILE_SHARE_WRITE)) &&
               (!rights.remove || (mode & FILE_SHARE_DELETE));
    };
    return shares(wanted, heldShare) && shares(held, share);
}

// Opens path with every access and share mode while it is held with every other, and reports the first
// few pairs that are let through or refused otherwise than MayJoin says; the count of them is returned.
int MatrixMismatches(const CString& path, DWORD flags) {
    auto open = [&](DWORD access, DWORD share) {
        return sys().CreateFileW(path, access, share, nullptr, OPEN_EXISTING, flags, nullptr);
    };
    int mismatches = 0;
    for (DWORD heldAccess : kAccesses) {
        for (DWORD heldShare : kShares) {
            HANDLE held = open(heldAccess, heldShare);
            if (held == INVALID_HANDLE_VALUE) {
                ADD_FAILURE() << std::hex << "cannot hold " << heldAccess << "/" << heldShare;
                return ++mismatches;
            }
            for (DWORD access : kAccesses) {
                for (DWORD share : kShares) {
                    sys().SetLastError(kJunkError);
                    HANDLE second = open(access, share);
                    const bool opened = second != INVALID_HANDLE_VALUE;
                    const DWORD error = sys().GetLastError();
                    if (opened) sys().CloseHandle(second);
                    const bool expected = MayJoin(heldAccess, heldShare, access, share);
                    if (opened == expected && (opened || error == ERROR_SHARING_VIOLATION)) continue;
                    // One line for each of the first few differences, not thousands.
                    if (++mismatches <= 10)
                        ADD_FAILURE() << std::hex << "held " << heldAccess << "/" << heldShare << ", then " << access << "/" << share
                                      << ": opened " << opened << ", error " << std::dec << error;
                }
            }
            sys().CloseHandle(held);
        }
    }
    return mismatches;
}

class ShareMatrix : public HostFolderTest {};

TEST_F(ShareMatrix, EverySecondOpenIsLetThroughOrRefusedAsOnWindows) {
    WriteFile("f.txt", "data");
    MakeFolder("folder");
    EXPECT_EQ(MatrixMismatches(Win("f.txt"), FILE_ATTRIBUTE_NORMAL), 0);
    EXPECT_EQ(MatrixMismatches(Win("folder"), FILE_FLAG_BACKUP_SEMANTICS), 0);
}

TEST_F(ShareMatrix, FilesInsideADiskImageShareAsHostFilesDo) {
    const auto attached = testing_support::AttachNewNtfsVolume(Host("ntfs.img"), "N");
    ASSERT_GE(attached->Number(), 0) << attached->Error();
    HANDLE file = sys().CreateFileW(_T("N:\\f.txt"), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    sys().CloseHandle(file);
    EXPECT_EQ(MatrixMismatches(_T("N:\\f.txt"), FILE_ATTRIBUTE_NORMAL), 0);

    // Copies out of and into the image go ahead past holders that share as a copy needs.
    HANDLE writer = sys().CreateFileW(_T("N:\\f.txt"), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(writer, INVALID_HANDLE_VALUE);
    EXPECT_TRUE(sys().CopyFileW(_T("N:\\f.txt"), Win("out.txt"), FALSE));
    sys().CloseHandle(writer);
    WriteFile("in.txt", "in");
    HANDLE reader = sys().CreateFileW(_T("N:\\f.txt"), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(reader, INVALID_HANDLE_VALUE);
    EXPECT_TRUE(sys().CopyFileW(Win("in.txt"), _T("N:\\f.txt"), FALSE));
    sys().CloseHandle(reader);
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(sys().CopyFileW(_T("N:\\f.txt"), _T("N:\\F.TXT"), FALSE)) << "a file copied onto itself";
    EXPECT_EQ(sys().GetLastError(), DWORD(ERROR_SHARING_VIOLATION));
}

// A copy reads its source and writes its target while others hold them, as far as their share modes let it.
TEST_F(ShareMatrix, CopiesGoAheadWhereTheHoldersShareModesAllowThem) {
    constexpr DWORD kAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    constexpr DWORD kReadWrite = GENERIC_READ | GENERIC_WRITE;
    const struct {
        bool holdsTarget;  // else the source is held
        DWORD access, share;
        bool copies;
    } cases[] = {
        {false, kReadWrite, FILE_SHARE_READ, true},  // a log file being written
        {false, GENERIC_READ, FILE_SHARE_READ, true},
        {false, GENERIC_READ, 0, false},
        {false, GENERIC_WRITE, FILE_SHARE_WRITE, false},
        {false, FILE_READ_ATTRIBUTES, 0, true},
        {false, DELETE, kAll, true},
        {true, kReadWrite, FILE_SHARE_WRITE, true},
        {true, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, true},
        {true, GENERIC_READ, FILE_SHARE_READ, false},
        {true, GENERIC_WRITE, FILE_SHARE_READ, false},
        {true, DELETE, kAll, false},
        {true, FILE_WRITE_ATTRIBUTES, 0, true},
    };
    const LPPROGRESS_ROUTINE counts = [](LARGE_INTEGER, LARGE_INTEGER, LARGE_INTEGER, LARGE_INTEGER, DWORD, DWORD, HANDLE, HANDLE,
                                         LPVOID calls) -> DWORD {
        ++*static_cast<int*>(calls);
        return PROGRESS_CONTINUE;
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << (c.holdsTarget ? "target" : "source") << " held " << std::hex << c.access << "/" << c.share);
        WriteFile("source.txt", "new data");
        WriteFile("target.txt", "old");
        HANDLE held = sys().CreateFileW(Win(c.holdsTarget ? "target.txt" : "source.txt"), c.access, c.share, nullptr, OPEN_EXISTING,
                                        FILE_ATTRIBUTE_NORMAL, nullptr);
        ASSERT_NE(held, INVALID_HANDLE_VALUE);
        for (bool withProgress : {false, true}) {
            int calls = 0;
            sys().SetLastError(kJunkError);
            const BOOL copied = withProgress ? sys().CopyFileExW(Win("source.txt"), Win("target.txt"), counts, &calls, nullptr, 0)
                                             : sys().CopyFileW(Win("source.txt"), Win("target.txt"), FALSE);
            EXPECT_EQ(copied != FALSE, c.copies) << "progress " << withProgress;
            if (!copied) {
                EXPECT_EQ(sys().GetLastError(), DWORD(ERROR_SHARING_VIOLATION));
            }
            if (withProgress) {
                EXPECT_EQ(calls > 0, c.copies);
            }
        }
        sys().CloseHandle(held);
        std::ifstream target(Host("target.txt"));
        const std::string content((std::istreambuf_iterator<char>(target)), std::istreambuf_iterator<char>());
        EXPECT_EQ(content, c.copies ? "new data" : "old");
    }

    // A file is never copied onto itself, whoever else holds it.
    WriteFile("self.txt", "self");
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(sys().CopyFileW(Win("self.txt"), Win("SELF.TXT"), FALSE));
    EXPECT_EQ(sys().GetLastError(), DWORD(ERROR_SHARING_VIOLATION));
}

}  // namespace
