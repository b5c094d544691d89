// Share modes as Windows enforces them: the whole matrix of a first open's access and share mode against
// a second open's, and the opens a file copy makes against a source or target someone else holds.
#include <filesystem>

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

class ShareMatrix : public HostFolderTest {
protected:
    HANDLE Open(const CString& path, DWORD access, DWORD share) {
        return sys().CreateFileW(path, access, share, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    }
};

TEST_F(ShareMatrix, EverySecondOpenIsLetThroughOrRefusedAsOnWindows) {
    WriteFile("f.txt", "data");
    const CString path = Win("f.txt");
    int mismatches = 0;
    for (DWORD heldAccess : kAccesses) {
        for (DWORD heldShare : kShares) {
            HANDLE held = Open(path, heldAccess, heldShare);
            ASSERT_NE(held, INVALID_HANDLE_VALUE);
            for (DWORD access : kAccesses) {
                for (DWORD share : kShares) {
                    sys().SetLastError(kJunkError);
                    HANDLE second = Open(path, access, share);
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
    EXPECT_EQ(mismatches, 0);
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
