// The process token and local memory of the Linux platform, as advapi32 and kernel32 behave: privileges
// held by elevated and standard tokens, adjustments that report a privilege not held only through the last
// error, handle rights, and local blocks.
#include <unistd.h>

#include "../support/host_fixture.h"

namespace {

using testing_support::kJunkError;

class Token : public ::testing::Test {
protected:
    void TearDown() override {
        for (HANDLE handle : opened_) sys().CloseHandle(handle);
        vlx::SetProcessToken(vlx::TokenKind::AsProcessRuns);
    }
    HANDLE Open(DWORD access) {
        HANDLE token = nullptr;
        EXPECT_TRUE(sys().OpenProcessToken(sys().GetCurrentProcess(), access, &token));
        opened_.push_back(token);
        return token;
    }
    LUID Luid(LPCWSTR name) {
        LUID luid{};
        EXPECT_TRUE(sys().LookupPrivilegeValueW(nullptr, name, &luid));
        return luid;
    }
    // Adjusts one privilege; the last error after the call.
    DWORD Adjust(HANDLE token, LPCWSTR name, DWORD attributes) {
        TOKEN_PRIVILEGES change{1, {{Luid(name), attributes}}};
        sys().SetLastError(kJunkError);
        EXPECT_TRUE(sys().AdjustTokenPrivileges(token, FALSE, &change, 0, nullptr, nullptr));
        return sys().GetLastError();
    }
    // The privilege's attributes in the token, or -1 when the token does not hold it.
    long long State(LPCWSTR name) {
        BYTE buffer[512];
        DWORD length = 0;
        EXPECT_TRUE(sys().GetTokenInformation(Open(TOKEN_QUERY), TokenPrivileges, buffer, sizeof buffer, &length));
        const auto* privileges = reinterpret_cast<const TOKEN_PRIVILEGES*>(buffer);
        const LUID wanted = Luid(name);
        const LUID_AND_ATTRIBUTES* entry = privileges->Privileges;
        for (DWORD at = 0; at < privileges->PrivilegeCount; ++at, ++entry) {
            if (entry->Luid.LowPart == wanted.LowPart) return entry->Attributes;
        }
        return -1;
    }
    std::vector<HANDLE> opened_;
};

TEST_F(Token, ElevatedHoldsTheAdministratorsPrivilegesDisabledAndAStandardUserDoesNot) {
    const LPCWSTR kAdministrators[] = {SE_BACKUP_NAME, SE_RESTORE_NAME, SE_SECURITY_NAME, SE_TAKE_OWNERSHIP_NAME};
    vlx::SetProcessToken(vlx::TokenKind::Elevated);
    for (LPCWSTR name : kAdministrators) EXPECT_EQ(State(name), 0) << testing_support::U(name);
    EXPECT_EQ(State(SE_CHANGE_NOTIFY_NAME), SE_PRIVILEGE_ENABLED | SE_PRIVILEGE_ENABLED_BY_DEFAULT);
    vlx::SetProcessToken(vlx::TokenKind::StandardUser);
    for (LPCWSTR name : kAdministrators) EXPECT_EQ(State(name), -1) << testing_support::U(name);
    EXPECT_EQ(State(SE_CHANGE_NOTIFY_NAME), SE_PRIVILEGE_ENABLED | SE_PRIVILEGE_ENABLED_BY_DEFAULT);

    // Left to itself the token follows the process's user: root runs elevated.
    vlx::SetProcessToken(vlx::TokenKind::AsProcessRuns);
    TOKEN_ELEVATION elevation{};
    DWORD length = 0;
    ASSERT_TRUE(sys().GetTokenInformation(Open(TOKEN_QUERY), TokenElevation, &elevation, sizeof elevation, &length));
    EXPECT_EQ(elevation.TokenIsElevated, geteuid() == 0 ? 1u : 0u);
}

TEST_F(Token, PrivilegeNamesAreFoundWithoutRegardToCaseOnTheLocalSystemOnly) {
    LUID luid{};
    ASSERT_TRUE(sys().LookupPrivilegeValueW(nullptr, u"sesecurityprivilege", &luid));
    EXPECT_EQ(luid.LowPart, 8u);
    ASSERT_TRUE(sys().LookupPrivilegeValueW(u"", SE_TAKE_OWNERSHIP_NAME, &luid));
    EXPECT_EQ(luid.LowPart, 9u);
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(sys().LookupPrivilegeValueW(nullptr, u"SeMadeUpPrivilege", &luid));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_NO_SUCH_PRIVILEGE));
}

TEST_F(Token, AdjustingSucceedsEvenForAPrivilegeNotHeldAndTellsOnlyThroughTheLastError) {
    vlx::SetProcessToken(vlx::TokenKind::StandardUser);
    const HANDLE token = Open(TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY);
    EXPECT_EQ(Adjust(token, SE_SECURITY_NAME, SE_PRIVILEGE_ENABLED), static_cast<DWORD>(ERROR_NOT_ALL_ASSIGNED));
    EXPECT_EQ(State(SE_SECURITY_NAME), -1);
    EXPECT_EQ(Adjust(token, SE_SHUTDOWN_NAME, SE_PRIVILEGE_ENABLED), static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_EQ(State(SE_SHUTDOWN_NAME), SE_PRIVILEGE_ENABLED);

    // In one call with both, the held one changes and the call still says not all were assigned.
    TOKEN_PRIVILEGES* both = reinterpret_cast<TOKEN_PRIVILEGES*>(new BYTE[sizeof(TOKEN_PRIVILEGES) + sizeof(LUID_AND_ATTRIBUTES)]);
    both->PrivilegeCount = 2;
    LUID_AND_ATTRIBUTES* entries = both->Privileges;
    entries[0] = {Luid(SE_BACKUP_NAME), SE_PRIVILEGE_ENABLED};
    entries[1] = {Luid(SE_SHUTDOWN_NAME), 0};
    sys().SetLastError(kJunkError);
    EXPECT_TRUE(sys().AdjustTokenPrivileges(token, FALSE, both, 0, nullptr, nullptr));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_NOT_ALL_ASSIGNED));
    EXPECT_EQ(State(SE_SHUTDOWN_NAME), 0);
    delete[] reinterpret_cast<BYTE*>(both);
}

TEST_F(Token, ChangesStayInTheProcessTokenAcrossHandlesUntilUndone) {
    vlx::SetProcessToken(vlx::TokenKind::Elevated);
    const HANDLE first = Open(TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY);
    EXPECT_EQ(Adjust(first, SE_SECURITY_NAME, SE_PRIVILEGE_ENABLED), static_cast<DWORD>(ERROR_SUCCESS));
    sys().CloseHandle(first);
    opened_.clear();
    EXPECT_EQ(State(SE_SECURITY_NAME), SE_PRIVILEGE_ENABLED);

    // The previous state comes back for the privileges that changed; a buffer too small changes nothing.
    const HANDLE second = Open(TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY);
    TOKEN_PRIVILEGES change{1, {{Luid(SE_SECURITY_NAME), 0}}}, previous{};
    DWORD needed = 0;
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(sys().AdjustTokenPrivileges(second, FALSE, &change, 4, &previous, &needed));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(needed, sizeof(TOKEN_PRIVILEGES));
    EXPECT_EQ(State(SE_SECURITY_NAME), SE_PRIVILEGE_ENABLED);
    EXPECT_TRUE(sys().AdjustTokenPrivileges(second, FALSE, &change, sizeof previous, &previous, &needed));
    EXPECT_EQ(previous.PrivilegeCount, 1u);
    EXPECT_EQ(previous.Privileges[0].Attributes, static_cast<DWORD>(SE_PRIVILEGE_ENABLED));
    EXPECT_EQ(State(SE_SECURITY_NAME), 0);

    // Disabling all leaves every privilege held but none enabled; removing one takes it out of the token.
    EXPECT_TRUE(sys().AdjustTokenPrivileges(second, TRUE, nullptr, 0, nullptr, nullptr));
    EXPECT_EQ(State(SE_CHANGE_NOTIFY_NAME), SE_PRIVILEGE_ENABLED_BY_DEFAULT);
    EXPECT_EQ(Adjust(second, SE_BACKUP_NAME, SE_PRIVILEGE_REMOVED), static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_EQ(State(SE_BACKUP_NAME), -1);
}

TEST_F(Token, HandlesAnswerOnlyForTheRightsTheyWereOpenedWith) {
    const HANDLE queryOnly = Open(TOKEN_QUERY);
    TOKEN_PRIVILEGES change{1, {{Luid(SE_CHANGE_NOTIFY_NAME), SE_PRIVILEGE_ENABLED}}};
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(sys().AdjustTokenPrivileges(queryOnly, FALSE, &change, 0, nullptr, nullptr));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    const HANDLE adjustOnly = Open(TOKEN_ADJUST_PRIVILEGES);
    BYTE buffer[256];
    DWORD length = 0;
    EXPECT_FALSE(sys().GetTokenInformation(adjustOnly, TokenPrivileges, buffer, sizeof buffer, &length));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));

    HANDLE token = nullptr;
    EXPECT_FALSE(sys().OpenProcessToken(reinterpret_cast<HANDLE>(static_cast<uintptr_t>(0x4444)), TOKEN_QUERY, &token));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    const size_t before = vlx::OpenHandleCount();
    token = Open(TOKEN_QUERY);
    EXPECT_EQ(vlx::OpenHandleCount(), before + 1);
    EXPECT_TRUE(sys().CloseHandle(token));
    opened_.pop_back();
    EXPECT_FALSE(sys().AdjustTokenPrivileges(token, TRUE, nullptr, 0, nullptr, nullptr));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST(LocalMemory, BlocksAreZeroFilledOnRequestAndFreedOnce) {
    const size_t before = vlx::LocalBlockCount();
    auto* block = static_cast<BYTE*>(sys().LocalAlloc(LMEM_ZEROINIT, 4096));
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(std::all_of(block, block + 4096, [](BYTE b) { return b == 0; }));
    EXPECT_EQ(vlx::LocalBlockCount(), before + 1);
    EXPECT_EQ(sys().LocalFree(block), nullptr);
    sys().SetLastError(kJunkError);
    EXPECT_EQ(sys().LocalFree(block), block);  // a second free is refused, not done
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(sys().LocalFree(nullptr), nullptr);
    EXPECT_EQ(sys().LocalAlloc(LMEM_MOVEABLE, 16), nullptr);
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(vlx::LocalBlockCount(), before);
}

}  // namespace
