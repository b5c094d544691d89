// File security on host-folder volumes: owner and group as S-1-22 SIDs, the access list from the mode
// bits and back, the size query, the audit list under the security privilege, and the refusals of what a
// host folder cannot keep, each leaving the file as it was.
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "../../platform/linux/services/security_descriptor.h"
#include "../support/volume_fixture.h"

namespace {

using testing_support::EnableSecurityPrivilege;
using testing_support::HostFolderTest;
using testing_support::kJunkError;
using testing_support::U;

constexpr SECURITY_INFORMATION kOwnerGroupDacl = OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
constexpr SECURITY_INFORMATION kFull = kOwnerGroupDacl | SACL_SECURITY_INFORMATION | LABEL_SECURITY_INFORMATION |
                                       ATTRIBUTE_SECURITY_INFORMATION | BACKUP_SECURITY_INFORMATION;

class HostSecurity : public HostFolderTest {
protected:
    void TearDown() override {
        vlx::SetProcessToken(vlx::TokenKind::AsProcessRuns);
        HostFolderTest::TearDown();
    }
    std::vector<BYTE> Read(const CString& path, SECURITY_INFORMATION mask) {
        DWORD needed = 0;
        sys().SetLastError(kJunkError);
        if (sys().GetFileSecurityW(path, mask, nullptr, 0, &needed)) return {};
        EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
        std::vector<BYTE> block(needed);
        EXPECT_TRUE(sys().GetFileSecurityW(path, mask, block.data(), needed, &needed));
        return block;
    }
    std::string Sddl(const CString& path, SECURITY_INFORMATION mask = kOwnerGroupDacl) {
        const std::vector<BYTE> block = Read(path, mask);
        return block.empty() ? "" : WStrToUtf8(vlx::SecurityDescriptorToSddl(block.data()));
    }
    mode_t Mode(const std::string& relative) {
        struct stat status {};
        EXPECT_EQ(stat(Host(relative).c_str(), &status), 0);
        return status.st_mode & 07777;
    }
    std::string Me() { return "S-1-22-1-" + std::to_string(geteuid()); }
    std::string MyGroup() { return "S-1-22-2-" + std::to_string(getegid()); }
    // A descriptor of the current user and group with the access list given.
    vlx::Descriptor Mine(std::vector<vlx::Ace> aces) {
        vlx::Descriptor descriptor;
        descriptor.owner = vlx::SidFromText(Me());
        descriptor.group = vlx::SidFromText(MyGroup());
        descriptor.daclPresent = true;
        descriptor.dacl = vlx::Acl{ACL_REVISION, std::move(aces)};
        return descriptor;
    }
    static vlx::Ace Allow(const std::string& sid, ACCESS_MASK mask, BYTE type = ACCESS_ALLOWED_ACE_TYPE, BYTE flags = 0) {
        return vlx::Ace{type, flags, mask, vlx::SidFromText(sid), {}};
    }
    DWORD WriteError(const CString& path, SECURITY_INFORMATION mask, const vlx::Descriptor& descriptor) {
        std::vector<BYTE> block = vlx::SelfRelative(descriptor);
        sys().SetLastError(kJunkError);
        return sys().SetFileSecurityW(path, mask, block.data()) ? ERROR_SUCCESS : sys().GetLastError();
    }
};

TEST_F(HostSecurity, OwnerGroupAndModeBitsReadAsSidsAndAProtectedAccessList) {
    WriteFile("file", "x");
    MakeFolder("folder");
    chmod(Host("file").c_str(), 0754);
    chmod(Host("folder").c_str(), 0730);
    const std::string owner = Me(), group = MyGroup();
    // Owner rwx plus the access list itself; group r-x; others r.
    EXPECT_EQ(Sddl(Win("file")), "O:" + owner + "G:" + group + "D:P(A;;0x1601bf;;;" + owner + ")(A;;0x1200a9;;;" + group + ")(A;;FR;;;WD)");
    // A folder's write includes deleting children; nobody else gets an entry without bits.
    EXPECT_EQ(Sddl(Win("folder")), "O:" + owner + "G:" + group + "D:P(A;;0x1601ff;;;" + owner + ")(A;;0x1201f6;;;" + group + ")");
    EXPECT_EQ(Sddl(Win("file"), GROUP_SECURITY_INFORMATION), "G:" + group);
    chmod(Host("file").c_str(), 0);
    EXPECT_EQ(Sddl(Win("file"), DACL_SECURITY_INFORMATION), "D:P(A;;RCWD;;;" + owner + ")");
}

TEST_F(HostSecurity, TheSizeQueryReportsTheLengthNeededAndAShortBufferIsLeftAlone) {
    WriteFile("file", "x");
    DWORD needed = 0;
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(sys().GetFileSecurityW(Win("file"), kOwnerGroupDacl, nullptr, 0, &needed));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    ASSERT_GT(needed, static_cast<DWORD>(sizeof(SECURITY_DESCRIPTOR_RELATIVE)));
    std::vector<BYTE> block(needed, 0xcc);
    DWORD again = 0;
    EXPECT_FALSE(sys().GetFileSecurityW(Win("file"), kOwnerGroupDacl, block.data(), needed - 1, &again));
    EXPECT_EQ(again, needed);
    EXPECT_TRUE(std::all_of(block.begin(), block.end(), [](BYTE b) { return b == 0xcc; }));
    EXPECT_TRUE(sys().GetFileSecurityW(Win("file"), kOwnerGroupDacl, block.data(), needed, &again));
    EXPECT_EQ(block[2] | block[3] << 8, SE_SELF_RELATIVE | SE_DACL_PRESENT | SE_DACL_PROTECTED);

    struct Case {
        const char* path;
        DWORD error;
    };
    for (const Case& c : {Case{"missing", ERROR_FILE_NOT_FOUND}, Case{"missing\\file", ERROR_PATH_NOT_FOUND}}) {
        sys().SetLastError(kJunkError);
        EXPECT_FALSE(sys().GetFileSecurityW(Win(c.path), kOwnerGroupDacl, nullptr, 0, &needed)) << c.path;
        EXPECT_EQ(sys().GetLastError(), c.error) << c.path;
        EXPECT_EQ(WriteError(Win(c.path), DACL_SECURITY_INFORMATION, Mine({})), c.error) << c.path;
    }
}

TEST_F(HostSecurity, TheAuditListIsOnlyForAProcessWithTheSecurityPrivilegeEnabled) {
    WriteFile("file", "x");
    vlx::SetProcessToken(vlx::TokenKind::Elevated);  // held, but not yet enabled
    DWORD needed = 0;
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(sys().GetFileSecurityW(Win("file"), kFull, nullptr, 0, &needed));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_PRIVILEGE_NOT_HELD));
    EXPECT_EQ(WriteError(Win("file"), SACL_SECURITY_INFORMATION, Mine({})), static_cast<DWORD>(ERROR_PRIVILEGE_NOT_HELD));

    EnableSecurityPrivilege();
    // A host folder keeps no audit list: asked for, none is present.
    EXPECT_EQ(Sddl(Win("file"), kFull), Sddl(Win("file")));
}

TEST_F(HostSecurity, ADescriptorWrittenBackLeavesTheFileAndItsBytesUnchanged) {
    vlx::SetProcessToken(vlx::TokenKind::Elevated);
    EnableSecurityPrivilege();
    WriteFile("file", "x");
    MakeFolder("shared");
    chmod(Host("file").c_str(), 0640);
    chmod(Host("shared").c_str(), 02775);  // set-group-ID stays: mode bits have no place in the list
    for (const char* name : {"file", "shared"}) {
        const std::vector<BYTE> before = Read(Win(name), kFull);
        const mode_t mode = Mode(name);
        EXPECT_EQ(WriteError(Win(name), kFull, [&] {
                      vlx::Descriptor parsed;
                      EXPECT_TRUE(vlx::ParseDescriptor(before.data(), parsed));
                      return parsed;
                  }()),
                  static_cast<DWORD>(ERROR_SUCCESS))
            << name;
        EXPECT_EQ(Read(Win(name), kFull), before) << name;
        EXPECT_EQ(Mode(name), mode) << name;
    }
}

TEST_F(HostSecurity, AccessListsMapBackToModeBitsClassByClass) {
    WriteFile("file", "x");
    chmod(Host("file").c_str(), 04600);
    struct Case {
        const char* name;
        std::vector<vlx::Ace> aces;
        bool nullList;
        mode_t mode;
    };
    const std::string me = Me(), group = MyGroup();
    const Case cases[] = {
        {"file rights", {Allow(me, FILE_GENERIC_READ | FILE_GENERIC_WRITE), Allow(group, FILE_GENERIC_READ), Allow("S-1-1-0", FILE_EXECUTE)}, false, 04641},
        {"generic rights", {Allow(me, GENERIC_ALL), Allow("S-1-1-0", GENERIC_READ | GENERIC_EXECUTE)}, false, 04705},
        {"rights without a bit are dropped", {Allow(me, READ_CONTROL | DELETE | FILE_WRITE_ATTRIBUTES)}, false, 04000},
        {"inherit-only entries are for children", {Allow(me, FILE_READ_DATA), Allow("S-1-5-32-544", FILE_ALL_ACCESS, 0, INHERIT_ONLY_ACE | OBJECT_INHERIT_ACE)}, false, 04400},
        {"an empty list: nobody", {}, false, 04000},
        {"a null list: everybody everything", {}, true, 04777},
    };
    for (const Case& c : cases) {
        vlx::Descriptor descriptor = Mine(c.aces);
        if (c.nullList) descriptor.dacl.reset();
        EXPECT_EQ(WriteError(Win("file"), DACL_SECURITY_INFORMATION, descriptor), static_cast<DWORD>(ERROR_SUCCESS)) << c.name;
        EXPECT_EQ(Mode("file"), c.mode) << c.name;
    }
}

TEST_F(HostSecurity, OtherLinuxUsersAndGroupsAreKeptInAPosixAccessAcl) {
    WriteFile("file", "x");
    chmod(Host("file").c_str(), 0640);
    const std::string me = Me(), group = MyGroup();
    auto hasAcl = [&] { return getxattr(Host("file").c_str(), "system.posix_acl_access", nullptr, 0) > 0; };
    const vlx::Descriptor named = Mine({Allow(me, FILE_GENERIC_READ | FILE_GENERIC_WRITE), Allow("S-1-22-1-4242", FILE_GENERIC_READ | FILE_EXECUTE),
                                        Allow(group, FILE_GENERIC_READ), Allow("S-1-22-2-4343", FILE_GENERIC_WRITE)});
    const DWORD written = WriteError(Win("file"), DACL_SECURITY_INFORMATION, named);
    if (written == ERROR_NOT_SUPPORTED) GTEST_SKIP() << "the test folder's file system keeps no POSIX ACLs";
    ASSERT_EQ(written, static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_TRUE(hasAcl());
    // The mode's group bits are the mask, wide enough for every named entry; each shows its own rights.
    EXPECT_EQ(Mode("file"), 0670u);
    EXPECT_EQ(Sddl(Win("file"), DACL_SECURITY_INFORMATION),
              "D:P(A;;0x16019f;;;" + me + ")(A;;0x1200a9;;;S-1-22-1-4242)(A;;FR;;;" + group + ")(A;;FW;;;S-1-22-2-4343)");
    // Read back and written again, the descriptor and the file stay as they are.
    const std::vector<BYTE> before = Read(Win("file"), kOwnerGroupDacl);
    ASSERT_TRUE(sys().SetFileSecurityW(Win("file"), kOwnerGroupDacl, const_cast<BYTE*>(before.data())));
    EXPECT_EQ(Read(Win("file"), kOwnerGroupDacl), before);
    // A mask narrowed on the host limits what the named entries show.
    chmod(Host("file").c_str(), 0640);
    EXPECT_EQ(Sddl(Win("file"), DACL_SECURITY_INFORMATION),
              "D:P(A;;0x16019f;;;" + me + ")(A;;FR;;;S-1-22-1-4242)(A;;FR;;;" + group + ")");
    // Without named entries the ACL goes and the mode alone says it all.
    ASSERT_EQ(WriteError(Win("file"), DACL_SECURITY_INFORMATION, Mine({Allow(me, FILE_GENERIC_READ), Allow(group, FILE_GENERIC_READ)})),
              static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_FALSE(hasAcl());
    EXPECT_EQ(Mode("file"), 0440u);
}

TEST_F(HostSecurity, WhatAHostFolderCannotKeepIsRefusedBeforeAnythingChanges) {
    WriteFile("file", "x");
    chmod(Host("file").c_str(), 0640);
    const std::string me = Me(), group = MyGroup();
    auto withSacl = [&](BYTE type) {
        vlx::Descriptor descriptor = Mine({Allow(me, FILE_ALL_ACCESS)});
        descriptor.saclPresent = true;
        descriptor.sacl = vlx::Acl{ACL_REVISION, {Allow("S-1-1-0", FILE_ALL_ACCESS, type, SUCCESSFUL_ACCESS_ACE_FLAG)}};
        return descriptor;
    };
    vlx::Descriptor foreignOwner = Mine({Allow(me, FILE_ALL_ACCESS)});
    foreignOwner.owner = vlx::SidFromText("S-1-5-18");
    vlx::Descriptor foreignGroup = Mine({Allow(me, FILE_ALL_ACCESS)});
    foreignGroup.group = vlx::SidFromText("S-1-5-32-544");
    struct Case {
        const char* name;
        SECURITY_INFORMATION mask;
        vlx::Descriptor descriptor;
        DWORD error;
    };
    const Case cases[] = {
        {"a deny entry", kOwnerGroupDacl, Mine({Allow(me, FILE_ALL_ACCESS), Allow("S-1-1-0", FILE_WRITE_DATA, ACCESS_DENIED_ACE_TYPE)}), ERROR_NOT_SUPPORTED},
        {"an entry for another SID", kOwnerGroupDacl, Mine({Allow(me, FILE_ALL_ACCESS), Allow("S-1-5-32-545", FILE_GENERIC_READ)}), ERROR_NOT_SUPPORTED},
        {"an entry for a domain user", DACL_SECURITY_INFORMATION, Mine({Allow("S-1-5-21-1-2-3-1001", FILE_GENERIC_READ)}), ERROR_NOT_SUPPORTED},
        {"an audit entry", kOwnerGroupDacl | SACL_SECURITY_INFORMATION, withSacl(SYSTEM_AUDIT_ACE_TYPE), ERROR_NOT_SUPPORTED},
        {"a mandatory label", kOwnerGroupDacl | LABEL_SECURITY_INFORMATION, withSacl(SYSTEM_MANDATORY_LABEL_ACE_TYPE), ERROR_NOT_SUPPORTED},
        {"an owner that is no Linux user", kOwnerGroupDacl, foreignOwner, ERROR_INVALID_OWNER},
        {"a group that is no Linux group", kOwnerGroupDacl, foreignGroup, ERROR_INVALID_PRIMARY_GROUP},
    };
    vlx::SetProcessToken(vlx::TokenKind::Elevated);
    EnableSecurityPrivilege();
    for (const Case& c : cases) {
        EXPECT_EQ(WriteError(Win("file"), c.mask, c.descriptor), c.error) << c.name;
        EXPECT_EQ(Mode("file"), 0640u) << c.name;
    }
    // A block that is no descriptor at all.
    BYTE junk[64] = {7};
    sys().SetLastError(kJunkError);
    EXPECT_FALSE(sys().SetFileSecurityW(Win("file"), DACL_SECURITY_INFORMATION, junk));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_INVALID_SECURITY_DESCR));
}

TEST_F(HostSecurity, AnotherOwnerIsGivenOnlyWhereTheHostAllowsIt) {
    WriteFile("file", "x");
    vlx::Descriptor descriptor = Mine({});
    descriptor.owner = vlx::SidFromText("S-1-22-1-4242");
    if (geteuid() == 0) {
        EXPECT_EQ(WriteError(Win("file"), OWNER_SECURITY_INFORMATION, descriptor), static_cast<DWORD>(ERROR_SUCCESS));
        EXPECT_EQ(Sddl(Win("file"), OWNER_SECURITY_INFORMATION), "O:S-1-22-1-4242");
    } else {
        EXPECT_EQ(WriteError(Win("file"), OWNER_SECURITY_INFORMATION, descriptor), static_cast<DWORD>(ERROR_INVALID_OWNER));
        EXPECT_EQ(Sddl(Win("file"), OWNER_SECURITY_INFORMATION), "O:" + Me());
    }
}

TEST(SecurityDescriptorForms, AbsoluteAndSelfRelativeFormsReadAlikeAndPrintAsWindowsTools) {
    vlx::Descriptor parts;
    parts.owner = vlx::SidFromText("S-1-5-32-544");
    parts.group = vlx::SidFromText("S-1-5-18");
    parts.daclPresent = true;
    parts.dacl = vlx::Acl{ACL_REVISION, {vlx::Ace{ACCESS_ALLOWED_ACE_TYPE, OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE | INHERITED_ACE,
                                                  FILE_ALL_ACCESS, vlx::SidFromText("S-1-5-18"), {}},
                                         vlx::Ace{ACCESS_DENIED_ACE_TYPE, 0, 0x1234, vlx::SidFromText("S-1-5-21-1-2-3-1001"), {}}}};
    parts.control = SE_DACL_AUTO_INHERITED;
    const std::vector<BYTE> relative = vlx::SelfRelative(parts);
    EXPECT_EQ(WStrToUtf8(vlx::SecurityDescriptorToSddl(relative.data())),
              "O:BAG:SYD:AI(A;OICIID;FA;;;SY)(D;;0x1234;;;S-1-5-21-1-2-3-1001)");

    // The same parts behind pointers.
    SECURITY_DESCRIPTOR absolute{SECURITY_DESCRIPTOR_REVISION, 0, SE_DACL_PRESENT | SE_DACL_AUTO_INHERITED,
                                 parts.owner->data(), parts.group->data(), nullptr,
                                 reinterpret_cast<PACL>(const_cast<BYTE*>(relative.data() + 20))};
    vlx::Descriptor read;
    ASSERT_TRUE(vlx::ParseDescriptor(&absolute, read));
    EXPECT_EQ(vlx::SelfRelative(read), relative);
    EXPECT_EQ(vlx::SidToText(vlx::SidFromText("S-1-22-2-4294967295")), "S-1-22-2-4294967295");
    EXPECT_TRUE(vlx::SidFromText("S-1-22-x").empty());
}

}  // namespace
