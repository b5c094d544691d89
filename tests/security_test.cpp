// GetAccessInfo, SetAccessInfo and CopySecurityInfo on a scripted platform: the information sets and masks
// passed, the blocks (malloc'd for the caller, zero-filled local memory inside the copy), the privileges
// asked for and the token closed on every path; then the same exports over the Linux platform's token,
// on host folders and on the NTFS and FAT volumes of a disk image.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "../platform/linux/services/security_descriptor.h"
#include "support/disk_images.h"
#include "support/scripted_files.h"

namespace {

using namespace testing_support;

const HANDLE kToken = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(0x7070));
const HANDLE kProcess = reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1));

// Every security-related entry patched: calls logged with the values passed, each step able to fail.
class ScriptedSecurity {
public:
    std::vector<BYTE> descriptor = {1, 0, 4, 0x80, 20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9, 9, 9, 9};
    DWORD neededOnFailure = 0;  // what a failed size query reports; 0 means "use the descriptor's size"
    // The step that fails, by its log entry's first word and how often it has been seen; empty: none.
    std::string failing;
    int failingCall = 1;
    DWORD failingError = ERROR_ACCESS_DENIED;
    BOOL setResult = TRUE;
    std::vector<std::string> log;
    std::vector<BYTE> written;  // what SetFileSecurityW was given, as far as the descriptor's size
    bool blockWasZero = false;

private:
    std::map<std::string, int> seen_;
    bool Fails(const std::string& step) {
        const int count = ++seen_[step];
        return step == failing && count == failingCall;
    }
    template <class T>
    T Failed(T result) {
        sys().SetLastError(failingError);
        return result;
    }
    static std::string Name(LPCWSTR text) { return text == nullptr ? "null" : U(text); }

    ApiPatch<&Win32Api::GetCurrentProcess> process_{[] { return kProcess; }};
    ApiPatch<&Win32Api::OpenProcessToken> open_{[this](HANDLE process, DWORD access, PHANDLE token) {
        log.push_back("OpenProcessToken " + std::string(process == kProcess ? "self " : "other ") + Hex(access));
        if (Fails("OpenProcessToken")) return Failed(FALSE);
        *token = kToken;
        return TRUE;
    }};
    ApiPatch<&Win32Api::LookupPrivilegeValueW> lookup_{[this](LPCWSTR system, LPCWSTR name, PLUID luid) {
        log.push_back("LookupPrivilegeValueW " + Name(system) + " " + Name(name));
        if (Fails("LookupPrivilegeValueW")) return Failed(FALSE);
        *luid = {U(name) == "SeSecurityPrivilege" ? 8u : 9u, 0};
        return TRUE;
    }};
    ApiPatch<&Win32Api::AdjustTokenPrivileges> adjust_{[this](HANDLE token, BOOL disableAll, PTOKEN_PRIVILEGES state, DWORD length,
                                                              PTOKEN_PRIVILEGES previous, PDWORD returned) {
        log.push_back("AdjustTokenPrivileges " + std::string(token == kToken ? "" : "stray ") + std::to_string(disableAll) + " " +
                      std::to_string(state->PrivilegeCount) + " luid " + std::to_string(state->Privileges[0].Luid.LowPart) +
                      " " + Hex(state->Privileges[0].Attributes) + " previous " + (previous ? "set" : "null") + " " +
                      (returned ? "set" : "null"));
        // The call itself succeeds: a privilege not held shows only in the last error.
        sys().SetLastError(Fails("AdjustTokenPrivileges") ? ERROR_NOT_ALL_ASSIGNED : ERROR_SUCCESS);
        return TRUE;
    }};
    ApiPatch<&Win32Api::GetFileSecurityW> get_{[this](LPCWSTR path, SECURITY_INFORMATION mask, PSECURITY_DESCRIPTOR block,
                                                      DWORD length, LPDWORD needed) {
        log.push_back("GetFileSecurityW " + U(path) + " " + Hex(mask) + " " + (block ? "block " : "null ") + std::to_string(length));
        if (Fails("GetFileSecurityW")) {
            *needed = neededOnFailure;
            return Failed(FALSE);
        }
        *needed = static_cast<DWORD>(descriptor.size());
        if (block == nullptr || length < descriptor.size()) return sys().SetLastError(ERROR_INSUFFICIENT_BUFFER), FALSE;
        blockWasZero = std::all_of(static_cast<BYTE*>(block), static_cast<BYTE*>(block) + length, [](BYTE b) { return b == 0; });
        std::memcpy(block, descriptor.data(), descriptor.size());
        return TRUE;
    }};
    ApiPatch<&Win32Api::SetFileSecurityW> set_{[this](LPCWSTR path, SECURITY_INFORMATION mask, PSECURITY_DESCRIPTOR block) {
        log.push_back("SetFileSecurityW " + U(path) + " " + Hex(mask));
        if (Fails("SetFileSecurityW")) return Failed(FALSE);
        written.assign(static_cast<BYTE*>(block), static_cast<BYTE*>(block) + descriptor.size());
        return setResult;
    }};
    ApiPatch<&Win32Api::LocalAlloc> alloc_{[this](UINT flags, SIZE_T bytes) {
        log.push_back("LocalAlloc " + Hex(flags) + " " + std::to_string(bytes));
        if (Fails("LocalAlloc")) return Failed(HLOCAL(nullptr));
        return alloc_.Original()(flags, bytes);
    }};
    ApiPatch<&Win32Api::LocalFree> free_{[this](HLOCAL block) {
        log.push_back("LocalFree");
        return free_.Original()(block);
    }};
    ApiPatch<&Win32Api::CloseHandle> close_{[this](HANDLE handle) {
        log.push_back(handle == kToken ? "CloseHandle token" : "CloseHandle stray");
        return TRUE;
    }};
};

TEST(AccessInfo, ReadsTheFullSetTwiceIntoAMallocBlockThatTheCallerFrees) {
    ScriptedSecurity script;
    PSECURITY_DESCRIPTOR block = nullptr;
    DWORD reserved = 0x5a5a;
    EXPECT_EQ(GetAccessInfo(_T("T:\\a.txt"), &block, &reserved), 1);
    EXPECT_EQ(script.log, (std::vector<std::string>{"GetFileSecurityW T:\\a.txt 0x1003f null 0",
                                                    "GetFileSecurityW T:\\a.txt 0x1003f block 24"}));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::memcmp(block, script.descriptor.data(), script.descriptor.size()), 0);
    EXPECT_EQ(reserved, 0x5a5au);
    std::free(block);  // the sanitizer checks that the block came from malloc
}

TEST(AccessInfo, FailuresLeaveNothingToFree) {
    struct Case {
        const char* name;
        bool nullDescriptor, nullReserved;
        int failingCall;  // which GetFileSecurityW fails; 0: none
        DWORD neededOnFailure;
        size_t calls;
        int result;
    };
    const Case cases[] = {
        {"no descriptor pointer", true, false, 0, 0, 0, 0},
        {"no reserved pointer, even for a readable path", false, true, 0, 0, 0, 0},
        {"the size query reports nothing needed", false, false, 1, 0, 1, 0},
        {"a size reported with the failure is still allocated", false, false, 1, 24, 2, 1},
        {"the second read fails", false, false, 2, 0, 2, 0},
    };
    for (const Case& c : cases) {
        ScriptedSecurity script;
        script.failing = c.failingCall != 0 ? "GetFileSecurityW" : "";
        script.failingCall = c.failingCall;
        script.neededOnFailure = c.neededOnFailure;
        PSECURITY_DESCRIPTOR block = reinterpret_cast<PSECURITY_DESCRIPTOR>(static_cast<uintptr_t>(0x99));
        DWORD reserved = 0;
        EXPECT_EQ(GetAccessInfo(_T("T:\\a"), c.nullDescriptor ? nullptr : &block, c.nullReserved ? nullptr : &reserved), c.result)
            << c.name;
        EXPECT_EQ(script.log.size(), c.calls) << c.name;
        if (c.result == 1) {
            std::free(block);
        } else if (c.calls == 2) {
            EXPECT_EQ(block, nullptr) << c.name;  // freed, and not left dangling
        }
    }
}

TEST(AccessInfo, SetWritesTheFullSetAndReturnsThePlatformsAnswerUnchanged) {
    for (BOOL answer : {TRUE, 7, FALSE}) {
        ScriptedSecurity script;
        script.setResult = answer;
        EXPECT_EQ(SetAccessInfo(_T("T:\\a"), script.descriptor.data()), answer);
        EXPECT_EQ(script.log, std::vector<std::string>{"SetFileSecurityW T:\\a 0x1003f"});
    }
}

TEST(CopySecurity, EnablesBothPrivilegesThenCopiesThroughAZeroFilledLocalBlock) {
    ScriptedSecurity script;
    EXPECT_EQ(CopySecurityInfo(_T("T:\\src"), _T("T:\\dst"), 1, 1, 1, 1), 1);
    EXPECT_EQ(script.log, (std::vector<std::string>{
                              "OpenProcessToken self 0x28",
                              "LookupPrivilegeValueW null SeSecurityPrivilege",
                              "AdjustTokenPrivileges 0 1 luid 8 0x2 previous null null",
                              "LookupPrivilegeValueW null SeTakeOwnershipPrivilege",
                              "AdjustTokenPrivileges 0 1 luid 9 0x2 previous null null",
                              "GetFileSecurityW T:\\src 0xf null 0",
                              "LocalAlloc 0x40 24",
                              "GetFileSecurityW T:\\src 0xf block 24",
                              "SetFileSecurityW T:\\dst 0xf",
                              "LocalFree",
                              "CloseHandle token",
                          }));
    EXPECT_TRUE(script.blockWasZero);
    EXPECT_EQ(script.written, script.descriptor);
}

TEST(CopySecurity, TheMaskTakesOnlyFlagsEqualToOne) {
    struct Case {
        int owner, group, dacl, sacl;
        const char* mask;  // null: stops before the token is opened
    };
    const Case cases[] = {
        {0, 0, 0, 0, nullptr}, {1, 0, 0, 0, "0x1"}, {0, 1, 0, 0, "0x2"}, {0, 0, 1, 0, "0x4"},
        {0, 0, 0, 1, "0x8"},   {2, 0, 0, 0, "0x0"}, {-1, 1, 2, 1, "0xa"}, {0, 0, 1, 5, "0x4"},
    };
    for (const Case& c : cases) {
        ScriptedSecurity script;
        const int result = CopySecurityInfo(_T("T:\\s"), _T("T:\\d"), c.owner, c.group, c.dacl, c.sacl);
        const std::string label = std::to_string(c.owner) + std::to_string(c.group) + std::to_string(c.dacl) + std::to_string(c.sacl);
        if (c.mask == nullptr) {
            EXPECT_EQ(result, 0) << label;
            EXPECT_TRUE(script.log.empty()) << label;
            continue;
        }
        EXPECT_EQ(result, 1) << label;
        EXPECT_NE(std::find(script.log.begin(), script.log.end(), "SetFileSecurityW T:\\d " + std::string(c.mask)), script.log.end())
            << label;
    }
}

TEST(CopySecurity, EveryFailureReturnsZeroAndClosesTheTokenOnceOpened) {
    struct Case {
        const char* step;
        int call;
        DWORD neededOnFailure;
        const char* lastSteps;  // the log's last entries after the failing step, joined by " | "
    };
    const Case cases[] = {
        {"OpenProcessToken", 1, 0, "OpenProcessToken self 0x28"},
        {"LookupPrivilegeValueW", 1, 0, "LookupPrivilegeValueW null SeSecurityPrivilege | CloseHandle token"},
        {"AdjustTokenPrivileges", 1, 0, "AdjustTokenPrivileges 0 1 luid 8 0x2 previous null null | CloseHandle token"},
        {"LookupPrivilegeValueW", 2, 0, "LookupPrivilegeValueW null SeTakeOwnershipPrivilege | CloseHandle token"},
        {"AdjustTokenPrivileges", 2, 0, "AdjustTokenPrivileges 0 1 luid 9 0x2 previous null null | CloseHandle token"},
        {"GetFileSecurityW", 1, 0, "GetFileSecurityW T:\\s 0x4 null 0 | CloseHandle token"},
        {"LocalAlloc", 1, 0, "LocalAlloc 0x40 24 | CloseHandle token"},
        {"GetFileSecurityW", 2, 0, "GetFileSecurityW T:\\s 0x4 block 24 | LocalFree | CloseHandle token"},
        {"SetFileSecurityW", 1, 0, "SetFileSecurityW T:\\d 0x4 | LocalFree | CloseHandle token"},
    };
    for (const Case& c : cases) {
        ScriptedSecurity script;
        script.failing = c.step;
        script.failingCall = c.call;
        script.neededOnFailure = c.neededOnFailure;
        EXPECT_EQ(CopySecurityInfo(_T("T:\\s"), _T("T:\\d"), 0, 0, 1, 0), 0) << c.step << " " << c.call;
        std::string tail;
        const std::string first = std::string(c.step) + " ";
        bool from = false;
        int seen = 0;
        for (const std::string& entry : script.log) {
            if (!from && entry.rfind(first, 0) == 0 && ++seen == c.call) from = true;
            if (from) tail += (tail.empty() ? "" : " | ") + entry;
        }
        EXPECT_EQ(tail, c.lastSteps) << c.step << " " << c.call;
    }
}

// ---- Over the Linux platform's token and host-folder security.

class SecurityOnHost : public HostFolderTest {
protected:
    void SetUp() override {
        HostFolderTest::SetUp();
        blocksBefore_ = vlx::LocalBlockCount();
    }
    void TearDown() override {
        EXPECT_EQ(vlx::LocalBlockCount(), blocksBefore_) << "a local block was left";
        vlx::SetProcessToken(vlx::TokenKind::AsProcessRuns);
        HostFolderTest::TearDown();
    }
    // The enabled privileges of the process token, by identifier.
    std::vector<DWORD> Enabled() {
        HANDLE token = nullptr;
        EXPECT_TRUE(sys().OpenProcessToken(sys().GetCurrentProcess(), TOKEN_QUERY, &token));
        BYTE buffer[1024];
        DWORD length = 0;
        EXPECT_TRUE(sys().GetTokenInformation(token, TokenPrivileges, buffer, sizeof buffer, &length));
        sys().CloseHandle(token);
        std::vector<DWORD> enabled;
        const auto* privileges = reinterpret_cast<const TOKEN_PRIVILEGES*>(buffer);
        const LUID_AND_ATTRIBUTES* entry = privileges->Privileges;
        for (DWORD at = 0; at < privileges->PrivilegeCount; ++at, ++entry) {
            if (entry->Attributes & SE_PRIVILEGE_ENABLED) enabled.push_back(entry->Luid.LowPart);
        }
        return enabled;
    }
    size_t blocksBefore_ = 0;
};

constexpr DWORD kSecurityLuid = 8, kTakeOwnershipLuid = 9;

bool Has(const std::vector<DWORD>& set, DWORD value) { return std::find(set.begin(), set.end(), value) != set.end(); }

TEST_F(SecurityOnHost, WithoutThePrivilegesNothingIsReadAndTheTokenStaysAsItWas) {
    vlx::SetProcessToken(vlx::TokenKind::StandardUser);
    WriteFile("src", "s");
    WriteFile("dst", "d");
    chmod(Host("src").c_str(), 0640);
    chmod(Host("dst").c_str(), 0600);
    const std::vector<DWORD> before = Enabled();
    int reads = 0;
    ApiPatch<&Win32Api::GetFileSecurityW> count([&](LPCWSTR path, SECURITY_INFORMATION mask, PSECURITY_DESCRIPTOR block, DWORD length,
                                                    LPDWORD needed) {
        ++reads;
        return count.Original()(path, mask, block, length, needed);
    });
    EXPECT_EQ(CopySecurityInfo(Win("src"), Win("dst"), 0, 0, 1, 0), 0);
    EXPECT_EQ(reads, 0);
    EXPECT_EQ(Enabled(), before);
    struct stat status {};
    ASSERT_EQ(stat(Host("dst").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    // Nor may the whole descriptor be read: it includes the audit list.
    PSECURITY_DESCRIPTOR block = nullptr;
    DWORD reserved = 0;
    EXPECT_EQ(GetAccessInfo(Win("src"), &block, &reserved), 0);
}

TEST_F(SecurityOnHost, TheAccessListAloneIsCopiedAndThePrivilegesStayEnabled) {
    vlx::SetProcessToken(vlx::TokenKind::Elevated);
    WriteFile("src", "s");
    WriteFile("dst", "d");
    chmod(Host("src").c_str(), 0751);
    chmod(Host("dst").c_str(), 0600);
    EXPECT_FALSE(Has(Enabled(), kSecurityLuid));
    EXPECT_EQ(CopySecurityInfo(Win("src"), Win("dst"), 0, 0, 1, 0), 1);
    struct stat status {};
    ASSERT_EQ(stat(Host("dst").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0751u);
    const std::vector<DWORD> after = Enabled();
    EXPECT_TRUE(Has(after, kSecurityLuid));
    EXPECT_TRUE(Has(after, kTakeOwnershipLuid));

    // With the security privilege left enabled, the whole descriptor reads, and written back changes nothing.
    PSECURITY_DESCRIPTOR block = nullptr;
    DWORD reserved = 0;
    ASSERT_EQ(GetAccessInfo(Win("dst"), &block, &reserved), 1);
    EXPECT_EQ(SetAccessInfo(Win("dst"), block), 1);
    ASSERT_EQ(stat(Host("dst").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0751u);
    std::free(block);
}


// ---- On the volumes of a disk image: NTFS keeps whole descriptors, FAT keeps none.

class SecurityOnImage : public SecurityOnHost {
protected:
    void SetUp() override {
        SecurityOnHost::SetUp();
        vlx::SetProcessToken(vlx::TokenKind::Elevated);
        disk_ = MakeDiskImage(Host("disk.img"), 512, "dos", 64, {{"ntfs", 16}, {"fat32", 40}});
    }
    static void Create(LPCWSTR path) {
        HANDLE file = sys().CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
        ASSERT_NE(file, INVALID_HANDLE_VALUE) << U(path) << " " << sys().GetLastError();
        sys().CloseHandle(file);
    }
    // The parts a mask selects, as the platform hands them out; empty when the read fails.
    static std::vector<BYTE> Parts(LPCWSTR path, SECURITY_INFORMATION mask) {
        DWORD needed = 0;
        sys().GetFileSecurityW(path, mask, nullptr, 0, &needed);
        std::vector<BYTE> block(needed);
        if (needed == 0 || !sys().GetFileSecurityW(path, mask, block.data(), needed, &needed)) return {};
        return block;
    }
    static std::string Sddl(LPCWSTR path, SECURITY_INFORMATION mask) {
        std::vector<BYTE> block = Parts(path, mask);
        if (block.empty()) return "error " + std::to_string(sys().GetLastError());
        return WStrToUtf8(vlx::SecurityDescriptorToSddl(block.data()));
    }
    static vlx::Ace Entry(BYTE type, ACCESS_MASK mask, const char* sid) { return vlx::Ace{type, 0, mask, vlx::SidFromText(sid), {}}; }
    static bool Write(LPCWSTR path, SECURITY_INFORMATION mask, const vlx::Descriptor& parts) {
        std::vector<BYTE> block = vlx::SelfRelative(parts);
        return sys().SetFileSecurityW(path, mask, block.data()) != FALSE;
    }
    // Reading and writing audit lists needs the security privilege enabled.
    static void EnableSecurityPrivilege() {
        HANDLE token = nullptr;
        ASSERT_TRUE(sys().OpenProcessToken(sys().GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &token));
        TOKEN_PRIVILEGES privileges{};
        privileges.PrivilegeCount = 1;
        privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
        EXPECT_TRUE(sys().LookupPrivilegeValueW(nullptr, SE_SECURITY_NAME, &privileges.Privileges[0].Luid));
        EXPECT_TRUE(sys().AdjustTokenPrivileges(token, FALSE, &privileges, 0, nullptr, nullptr));
        sys().CloseHandle(token);
    }
    static constexpr SECURITY_INFORMATION kAll =
        OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION | SACL_SECURITY_INFORMATION;
    MadeDisk disk_;
};

TEST_F(SecurityOnImage, NtfsDescriptorsRoundTripAndOnlyTheAccessListIsCopied) {
    {
        AttachedImage disk(Host("disk.img"), "NF");
        ASSERT_GE(disk.Number(), 0) << disk.Error();
        Create(u"N:\\source");
        Create(u"N:\\target");
        // The source gets an access list of its own; the target an owner and group of its own.
        vlx::Descriptor access;
        access.control = SE_DACL_PROTECTED;
        access.daclPresent = true;
        access.dacl = vlx::Acl{ACL_REVISION,
                               {Entry(ACCESS_DENIED_ACE_TYPE, FILE_ALL_ACCESS, "S-1-5-7"),
                                Entry(ACCESS_ALLOWED_ACE_TYPE, FILE_GENERIC_READ, "S-1-1-0"),
                                Entry(ACCESS_ALLOWED_ACE_TYPE, FILE_ALL_ACCESS, "S-1-5-32-544")}};
        ASSERT_TRUE(Write(u"N:\\source", DACL_SECURITY_INFORMATION, access));
        vlx::Descriptor owners;
        owners.owner = vlx::SidFromText("S-1-5-18");
        owners.group = vlx::SidFromText("S-1-5-32-545");
        ASSERT_TRUE(Write(u"N:\\target", OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION, owners));
        EnableSecurityPrivilege();
        vlx::Descriptor audit;
        audit.saclPresent = true;
        audit.sacl = vlx::Acl{ACL_REVISION, {vlx::Ace{SYSTEM_AUDIT_ACE_TYPE, FAILED_ACCESS_ACE_FLAG, FILE_WRITE_DATA,
                                                       vlx::SidFromText("S-1-1-0"), {}}}};
        ASSERT_TRUE(Write(u"N:\\target", SACL_SECURITY_INFORMATION, audit));
        const std::string ownerBefore = Sddl(u"N:\\target", OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION);
        const std::vector<BYTE> auditBefore = Parts(u"N:\\target", SACL_SECURITY_INFORMATION);
        EXPECT_EQ(ownerBefore, "O:SYG:BU");
        EXPECT_EQ(Sddl(u"N:\\target", SACL_SECURITY_INFORMATION), "S:(AU;FA;0x2;;;WD)");

        EXPECT_EQ(CopySecurityInfo(_T("N:\\source"), _T("N:\\target"), 0, 0, 1, 0), 1);
        EXPECT_EQ(Sddl(u"N:\\target", DACL_SECURITY_INFORMATION), Sddl(u"N:\\source", DACL_SECURITY_INFORMATION));
        EXPECT_EQ(Sddl(u"N:\\target", DACL_SECURITY_INFORMATION), "D:P(D;;FA;;;AN)(A;;FR;;;WD)(A;;FA;;;BA)");
        EXPECT_EQ(Sddl(u"N:\\target", OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION), ownerBefore);
        EXPECT_EQ(Parts(u"N:\\target", SACL_SECURITY_INFORMATION), auditBefore);

        // The whole descriptor read and written back leaves the stored bytes as they were.
        const std::vector<BYTE> whole = Parts(u"N:\\target", kAll);
        ASSERT_FALSE(whole.empty());
        PSECURITY_DESCRIPTOR block = nullptr;
        DWORD reserved = 0;
        ASSERT_EQ(GetAccessInfo(_T("N:\\target"), &block, &reserved), 1);
        EXPECT_EQ(SetAccessInfo(_T("N:\\target"), block), 1);
        std::free(block);
        EXPECT_EQ(Parts(u"N:\\target", kAll), whole);
    }
    // And so they are after the image was detached and attached again.
    AttachedImage again(Host("disk.img"), "N");
    EXPECT_EQ(Sddl(u"N:\\target", OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION),
              "O:SYG:BUD:P(D;;FA;;;AN)(A;;FR;;;WD)(A;;FA;;;BA)");
    EXPECT_EQ(Sddl(u"N:\\missing", DACL_SECURITY_INFORMATION), "error " + std::to_string(ERROR_FILE_NOT_FOUND));
}

TEST_F(SecurityOnImage, FatGivesEveryoneEverythingAndKeepsNothing) {
    WriteFile("plain.txt", "p");
    CopyIntoFat(Host("disk.img"), disk_.offsets[1], Host("plain.txt"), "/plain.txt");
    AttachedImage disk(Host("disk.img"), "NF");
    ASSERT_GE(disk.Number(), 0) << disk.Error();
    EXPECT_EQ(Sddl(u"F:\\plain.txt", OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION),
              "O:WDG:WDD:NO_ACCESS_CONTROL");
    vlx::Descriptor denied;
    denied.daclPresent = true;
    denied.dacl = vlx::Acl{ACL_REVISION, {Entry(ACCESS_DENIED_ACE_TYPE, FILE_ALL_ACCESS, "S-1-1-0")}};
    EXPECT_TRUE(Write(u"F:\\plain.txt", DACL_SECURITY_INFORMATION, denied));
    EXPECT_FALSE(Write(u"F:\\absent.txt", DACL_SECURITY_INFORMATION, denied));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(Sddl(u"F:\\plain.txt", DACL_SECURITY_INFORMATION), "D:NO_ACCESS_CONTROL");
}

}  // namespace
