// velmora acl and velmora drive: a path's security descriptor shown and copied, and a volume moved to
// another drive letter.
#include <cstdio>
#include <cstdlib>

#include "../platform/linux/host.h"
#include "../platform/unique_handles.h"
#include "command.h"

namespace cli {

namespace {

// ---- acl

int RunAcl(const std::vector<std::string>& args);

const Command kAcl = {
    "acl",
    "show a path's security descriptor, or copy parts of it to another path",
    "acl get PATH | acl copy SOURCE TARGET [--owner] [--group] [--dacl] [--sacl]\n"
    "  get prints the descriptor in SDDL, as Windows tools show it: O: owner, G: group, D: access list,\n"
    "  S: audit list. On a host folder the owner and group are the Linux user and group (S-1-22-1-uid,\n"
    "  S-1-22-2-gid) and the access list comes from the mode bits and the POSIX ACL. The audit list is read\n"
    "  only with the security privilege (root); without it the rest is shown.\n"
    "  copy copies the parts named (the access list when none is named). It needs the security and\n"
    "  take-ownership privileges, so root. A host folder keeps what mode bits and a POSIX ACL can hold:\n"
    "  an access list with deny entries or with SIDs that are no Linux user or group fails there, as does\n"
    "  an audit list with entries. Exit 1 when the copy fails.",
    RunAcl,
};

// The process asks for the security privilege as an administrator's tool would; a process that does not
// hold it simply does not get it.
void TryEnableSecurityPrivilege() {
    HANDLE opened = nullptr;
    if (!sys().OpenProcessToken(sys().GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &opened)) return;
    UniqueHandle token(opened);
    TOKEN_PRIVILEGES change{};
    if (!sys().LookupPrivilegeValueW(nullptr, SE_SECURITY_NAME, &change.Privileges[0].Luid)) return;
    change.PrivilegeCount = 1;
    change.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    sys().AdjustTokenPrivileges(token.get(), FALSE, &change, 0, nullptr, nullptr);
}

int AclGet(const std::string& argument) {
    const CString path = LibraryPath(argument);
    TryEnableSecurityPrivilege();
    PSECURITY_DESCRIPTOR whole = nullptr;
    DWORD reserved = 0;
    if (GetAccessInfo(path, &whole, &reserved) == 1) {
        const WString sddl = vlx::SecurityDescriptorToSddl(whole);
        std::free(whole);
        std::printf("%s\n%s\n", Printable(path).c_str(), WStrToUtf8(sddl).c_str());
        return kExitOk;
    }
    // Without the security privilege the whole set cannot be read; the rest still can.
    constexpr SECURITY_INFORMATION kWithoutAudit = OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
    DWORD needed = 0;
    sys().GetFileSecurityW(path, kWithoutAudit, nullptr, 0, &needed);
    std::vector<BYTE> block(needed);
    if (needed == 0 || !sys().GetFileSecurityW(path, kWithoutAudit, block.data(), needed, &needed))
        return Fail(kAcl, "cannot read the security of " + Printable(path));
    std::printf("%s\n%s\n  (audit list not read: that needs the security privilege)\n", Printable(path).c_str(),
                WStrToUtf8(vlx::SecurityDescriptorToSddl(block.data())).c_str());
    return kExitOk;
}

int AclCopy(const std::vector<std::string>& args) {
    if (args.size() < 3) return UsageError(kAcl, "copy needs a source and a target");
    int owner = 0, group = 0, dacl = 0, sacl = 0;
    for (size_t at = 3; at < args.size(); ++at) {
        if (args[at] == "--owner") owner = 1;
        else if (args[at] == "--group") group = 1;
        else if (args[at] == "--dacl") dacl = 1;
        else if (args[at] == "--sacl") sacl = 1;
        else return UsageError(kAcl, "unknown option '" + args[at] + "'");
    }
    if (owner + group + dacl + sacl == 0) dacl = 1;
    const CString source = LibraryPath(args[1]), target = LibraryPath(args[2]);
    if (CopySecurityInfo(source, target, owner, group, dacl, sacl) != 1)
        return Fail(kAcl, "cannot copy from " + Printable(source) + " to " + Printable(target) +
                              " (it needs root, both paths, and a target that can keep what is copied)");
    std::printf("copied %s%s%s%sfrom %s to %s\n", owner ? "owner " : "", group ? "group " : "", dacl ? "access list " : "",
                sacl ? "audit list " : "", Printable(source).c_str(), Printable(target).c_str());
    return kExitOk;
}

int RunAcl(const std::vector<std::string>& args) {
    if (args.size() == 2 && args[0] == "get") return AclGet(args[1]);
    if (!args.empty() && args[0] == "copy") return AclCopy(args);
    return UsageError(kAcl, "give get PATH or copy SOURCE TARGET");
}

const CommandRegistration kAclRegistration(kAcl);

// ---- drive

int RunDrive(const std::vector<std::string>& args);

const Command kDrive = {
    "drive",
    "move a volume from one drive letter to another",
    "drive move OLD NEW\n"
    "  Moves the volume at the letter OLD (E or E:) to NEW, pausing a second after each change; when NEW is\n"
    "  taken the volume goes back to OLD. Letters are those given with --map (or C:, which stays put).\n"
    "  Needs root, as changing mount points needs an administrator. Exit 1 when the volume did not move.",
    RunDrive,
};

bool Letter(const std::string& text, WCHAR& letter) {
    if (text.empty() || text.size() > 2 || (text.size() == 2 && text[1] != ':')) return false;
    letter = static_cast<WCHAR>(std::toupper(static_cast<unsigned char>(text[0])));
    return letter >= 'A' && letter <= 'Z';
}

std::string VolumeAt(WCHAR letter) {
    WCHAR root[] = _T("C:\\");
    root[0] = letter;
    WCHAR name[MAX_PATH] = {};
    if (!sys().GetVolumeNameForVolumeMountPointW(root, name, MAX_PATH)) return "(none)";
    return WStrToUtf8(name);
}

int RunDrive(const std::vector<std::string>& args) {
    WCHAR from = 0, to = 0;
    if (args.size() != 3 || args[0] != "move" || !Letter(args[1], from) || !Letter(args[2], to))
        return UsageError(kDrive, "give move and two drive letters");
    const std::string volume = VolumeAt(from);
    const int moved = ChangeDriveLetter(from, to);
    std::printf("%c: %s\n%c: %s\n", static_cast<char>(from), VolumeAt(from).c_str(), static_cast<char>(to), VolumeAt(to).c_str());
    if (moved != 1) return Fail(kDrive, "the volume " + volume + " did not move");
    return kExitOk;
}

const CommandRegistration kDriveRegistration(kDrive);

}  // namespace

}  // namespace cli
