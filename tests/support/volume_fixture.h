// Test support for the token and the mount manager: a test folder with two host folders, one of them
// mapped as P:, under an elevated token that the fixture puts back afterwards; and the security privilege
// enabled as an administrator's tool enables it.
#pragma once

#include <filesystem>

#include "host_fixture.h"

namespace testing_support {

// Enables the security privilege in the process token; the token must hold it (TokenKind::Elevated).
inline void EnableSecurityPrivilege() {
    HANDLE token = nullptr;
    ASSERT_TRUE(sys().OpenProcessToken(sys().GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &token));
    TOKEN_PRIVILEGES enable{};
    ASSERT_TRUE(sys().LookupPrivilegeValueW(nullptr, SE_SECURITY_NAME, &enable.Privileges[0].Luid));
    enable.PrivilegeCount = 1;
    enable.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    sys().AdjustTokenPrivileges(token, FALSE, &enable, 0, nullptr, nullptr);
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_SUCCESS));
    sys().CloseHandle(token);
}

class MappedVolumesTest : public HostFolderTest {
protected:
    void SetUp() override {
        HostFolderTest::SetUp();
        vlx::SetProcessToken(vlx::TokenKind::Elevated);
        MakeFolder("one");
        MakeFolder("two");
        ASSERT_TRUE(vlx::MapDrive('P', Host("one")));
    }
    void TearDown() override {
        for (WCHAR letter : {'P', 'Q', 'R'}) vlx::UnmapDrive(letter);
        vlx::SetProcessToken(vlx::TokenKind::AsProcessRuns);
        HostFolderTest::TearDown();
    }
    // The real path of a folder, as the drive table keeps it.
    std::string Real(const std::string& relative) const { return std::filesystem::canonical(Host(relative)).string(); }
};

}  // namespace testing_support
