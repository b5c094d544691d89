// The security of host-folder volumes: a mapping between a
// Linux file's owner, group, mode bits and POSIX access ACL and a Windows descriptor that Windows callers
// can read, change and copy.
//
// Mapping. The owner is S-1-22-1-<uid> and the group S-1-22-2-<gid> (the SIDs Samba gives Unix users and
// groups). The access list holds, in this order, an allow entry for the owner SID with the owner's mode
// bits, one per named user of the POSIX ACL, one for the group SID, one per named group, and one for
// Everyone (S-1-1-0) with the others' bits. Named users and groups and the owning group show what they
// may really do: their bits as limited by the ACL's mask. Each bit is a file right: read as
// FILE_GENERIC_READ, write as FILE_GENERIC_WRITE (with FILE_DELETE_CHILD on a folder), execute as
// FILE_GENERIC_EXECUTE. The owner may always read and change the access list (READ_CONTROL, WRITE_DAC),
// so the owner's entry is there even with no bits; other entries without bits are left out. The list is
// marked protected: nothing is inherited. Writing maps back the same way, each entry to its own class or
// named entry (a right among FILE_READ_DATA, FILE_WRITE_DATA, FILE_EXECUTE or a generic right sets the
// bit; other rights have no bit and are dropped), writes a POSIX ACL only when there are named entries
// (with a mask that lets each do what its entry says) and removes it otherwise, and keeps the
// set-user-ID, set-group-ID and sticky bits. A null access list gives everyone everything (mode 777).
//
// What a host folder cannot keep fails the whole call with ERROR_NOT_SUPPORTED before anything changes:
// deny entries, allow entries for a SID that is neither Everyone nor a Linux user or group (S-1-22),
// named entries on a file system without POSIX ACLs, audit entries, mandatory labels and resource
// attributes. Inherit-only entries are dropped, since a host folder hands nothing down. An owner or group
// SID that names no Linux user or group fails with ERROR_INVALID_OWNER or ERROR_INVALID_PRIMARY_GROUP; an
// owner the host refuses to give (to anyone but root) with ERROR_INVALID_OWNER.
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>

#include "../core/internal.h"
#include "../core/table.h"
#include "../services/token.h"
#include "host_kind.h"
#include "../services/security_descriptor.h"

namespace vlx {

namespace {

constexpr ULONGLONG kUnixAuthority = 22;  // S-1-22-1-uid users, S-1-22-2-gid groups
constexpr DWORD kUnixUsers = 1;
constexpr DWORD kUnixGroups = 2;
constexpr SECURITY_INFORMATION kLabelAndAttributes =
    LABEL_SECURITY_INFORMATION | ATTRIBUTE_SECURITY_INFORMATION | BACKUP_SECURITY_INFORMATION;
constexpr BYTE kResourceAttributeAceType = 0x12;

SidBytes UserSid(uid_t uid) { return MakeSid(kUnixAuthority, {kUnixUsers, static_cast<DWORD>(uid)}); }
SidBytes GroupSid(gid_t gid) { return MakeSid(kUnixAuthority, {kUnixGroups, static_cast<DWORD>(gid)}); }

// The id inside an S-1-22-<kind>-<id> SID; false for any other SID.
bool UnixId(const SidBytes& sid, DWORD kind, DWORD& id) {
    if (SidAuthority(sid) != kUnixAuthority) return false;
    const std::vector<DWORD> subs = SidSubAuthorities(sid);
    if (subs.size() != 2 || subs[0] != kind) return false;
    id = subs[1];
    return true;
}

// Read, write and execute of one class of the mode (bits 4, 2, 1) as file rights.
ACCESS_MASK RightsFromBits(mode_t bits, bool folder) {
    ACCESS_MASK rights = 0;
    if (bits & 4) rights |= FILE_GENERIC_READ;
    if (bits & 2) rights |= FILE_GENERIC_WRITE | (folder ? FILE_DELETE_CHILD : 0);
    if (bits & 1) rights |= FILE_GENERIC_EXECUTE;
    return rights;
}

mode_t BitsFromRights(ACCESS_MASK rights) {
    mode_t bits = 0;
    if (rights & (FILE_READ_DATA | GENERIC_READ | GENERIC_ALL)) bits |= 4;
    if (rights & (FILE_WRITE_DATA | GENERIC_WRITE | GENERIC_ALL)) bits |= 2;
    if (rights & (FILE_EXECUTE | GENERIC_EXECUTE | GENERIC_ALL)) bits |= 1;
    return bits;
}

// ---- POSIX access ACLs, in the kernel's extended-attribute form: a version word, then entries of tag,
// permission bits and id, sorted by tag and then id.
constexpr char kAccessAcl[] = "system.posix_acl_access";
constexpr uint32_t kPosixAclVersion = 2;
enum PosixAclTag : uint16_t { kUserObj = 0x01, kUser = 0x02, kGroupObj = 0x04, kGroup = 0x08, kMask = 0x10, kOther = 0x20 };
#pragma pack(push, 1)
struct PosixAclEntry {
    uint16_t tag;
    uint16_t perm;
    uint32_t id;
};
#pragma pack(pop)

// What a file's access ACL adds to its mode: the named users and groups (id -> bits, before the mask),
// the owning group's own bits, and the mask. Absent when the file has none or its file system keeps none.
struct NamedEntries {
    bool present = false;
    std::map<uint32_t, mode_t> users, groups;
    mode_t groupObject = 0, mask = 7;
};

NamedEntries ReadAccessAcl(const std::string& host) {
    NamedEntries named;
    std::vector<BYTE> bytes(4 + 32 * sizeof(PosixAclEntry));
    ssize_t size = getxattr(host.c_str(), kAccessAcl, bytes.data(), bytes.size());
    if (size < 0 && errno == ERANGE) {
        const ssize_t needed = getxattr(host.c_str(), kAccessAcl, nullptr, 0);
        if (needed <= 0) return named;
        bytes.resize(static_cast<size_t>(needed));
        size = getxattr(host.c_str(), kAccessAcl, bytes.data(), bytes.size());
    }
    uint32_t version = 0;
    if (size < 4 || (size - 4) % sizeof(PosixAclEntry) != 0) return named;
    std::memcpy(&version, bytes.data(), 4);
    if (version != kPosixAclVersion) return named;
    named.present = true;
    for (size_t at = 4; at < static_cast<size_t>(size); at += sizeof(PosixAclEntry)) {
        PosixAclEntry entry;
        std::memcpy(&entry, bytes.data() + at, sizeof entry);
        const mode_t bits = entry.perm & 7;
        if (entry.tag == kUser) named.users[entry.id] = bits;
        else if (entry.tag == kGroup) named.groups[entry.id] = bits;
        else if (entry.tag == kGroupObj) named.groupObject = bits;
        else if (entry.tag == kMask) named.mask = bits;
    }
    return named;
}

// Writes an access ACL with the named entries, or removes the file's ACL when there are none. The mode's
// owner, mask (group) and other bits go into the ACL as they will be after the call, so the two agree.
bool WriteAccessAcl(const std::string& host, mode_t mode, mode_t groupBits, const std::map<uint32_t, mode_t>& users,
                    const std::map<uint32_t, mode_t>& groups) {
    if (users.empty() && groups.empty()) {
        if (removexattr(host.c_str(), kAccessAcl) != 0 && errno != ENODATA && errno != ENOTSUP)
            return Fail(Win32ErrorFromErrno(errno), false);
        return true;
    }
    const mode_t mask = (mode >> 3) & 7;
    std::vector<PosixAclEntry> entries;
    entries.push_back({kUserObj, static_cast<uint16_t>((mode >> 6) & 7), static_cast<uint32_t>(-1)});
    for (const auto& [id, bits] : users) entries.push_back({kUser, static_cast<uint16_t>(bits), id});
    entries.push_back({kGroupObj, static_cast<uint16_t>(groupBits), static_cast<uint32_t>(-1)});
    for (const auto& [id, bits] : groups) entries.push_back({kGroup, static_cast<uint16_t>(bits), id});
    entries.push_back({kMask, static_cast<uint16_t>(mask), static_cast<uint32_t>(-1)});
    entries.push_back({kOther, static_cast<uint16_t>(mode & 7), static_cast<uint32_t>(-1)});
    std::vector<BYTE> bytes(4 + entries.size() * sizeof(PosixAclEntry));
    std::memcpy(bytes.data(), &kPosixAclVersion, 4);
    std::memcpy(bytes.data() + 4, entries.data(), entries.size() * sizeof(PosixAclEntry));
    if (setxattr(host.c_str(), kAccessAcl, bytes.data(), bytes.size(), 0) != 0)
        return Fail(errno == ENOTSUP ? static_cast<DWORD>(ERROR_NOT_SUPPORTED) : Win32ErrorFromErrno(errno), false);
    return true;
}

Descriptor HostDescriptor(const std::string& host, const struct stat& status, SECURITY_INFORMATION requested) {
    Descriptor out;
    if (requested & OWNER_SECURITY_INFORMATION) out.owner = UserSid(status.st_uid);
    if (requested & GROUP_SECURITY_INFORMATION) out.group = GroupSid(status.st_gid);
    if (requested & DACL_SECURITY_INFORMATION) {
        const bool folder = S_ISDIR(status.st_mode);
        const NamedEntries named = ReadAccessAcl(host);
        Acl acl;
        auto add = [&](SidBytes sid, ACCESS_MASK rights) {
            if (rights == 0) return;
            Ace ace;
            ace.mask = rights;
            ace.sid = std::move(sid);
            acl.aces.push_back(std::move(ace));
        };
        add(UserSid(status.st_uid), RightsFromBits((status.st_mode >> 6) & 7, folder) | READ_CONTROL | WRITE_DAC);
        for (const auto& [uid, bits] : named.users) add(UserSid(uid), RightsFromBits(bits & named.mask, folder));
        // With an ACL the mode's group bits are its mask; the owning group's own bits are in the ACL.
        add(GroupSid(status.st_gid), RightsFromBits(named.present ? named.groupObject & named.mask : (status.st_mode >> 3) & 7, folder));
        for (const auto& [gid, bits] : named.groups) add(GroupSid(gid), RightsFromBits(bits & named.mask, folder));
        add(EveryoneSid(), RightsFromBits(status.st_mode & 7, folder));
        out.daclPresent = true;
        out.dacl = std::move(acl);
        out.control |= SE_DACL_PROTECTED;
    }
    // No audit list, label or resource attribute is ever kept, so asking for them adds nothing.
    return out;
}

bool StatFollowing(LPCWSTR path, ResolvedPath& resolved, struct stat& status) {
    if (!Resolve(path, resolved)) return false;
    if (!resolved.exists) return Fail(ERROR_FILE_NOT_FOUND, false);
    if (stat(resolved.hostPath.c_str(), &status) != 0) return Fail(Win32ErrorFromErrno(errno), false);
    return true;
}

bool HostRead(LPCWSTR path, SECURITY_INFORMATION requested, std::vector<BYTE>& out) {
    ResolvedPath resolved;
    struct stat status {};
    if (!StatFollowing(path, resolved, status)) return false;
    out = SelfRelative(HostDescriptor(resolved.hostPath, status, requested));
    return true;
}

// What the access list makes of the file: its new mode and the named entries of its POSIX ACL. False with
// ERROR_NOT_SUPPORTED when the list holds what neither can.
struct ModeAndNames {
    mode_t mode = 0;        // with an ACL, the group bits are its mask
    mode_t groupBits = 0;   // the owning group's own
    std::map<uint32_t, mode_t> users, groups;
};

bool FromAccessList(const Descriptor& descriptor, const SidBytes& owner, const SidBytes& group, mode_t oldMode,
                    ModeAndNames& out) {
    out.mode = oldMode & (S_ISUID | S_ISGID | S_ISVTX);
    if (!descriptor.daclPresent || !descriptor.dacl) {
        out.mode |= 0777;  // a null list: everyone may do everything
        return true;
    }
    const SidBytes everyone = EveryoneSid();
    for (const Ace& ace : descriptor.dacl->aces) {
        if (ace.flags & INHERIT_ONLY_ACE) continue;  // for children only, and a host folder hands nothing down
        if (ace.type != ACCESS_ALLOWED_ACE_TYPE) return Fail(ERROR_NOT_SUPPORTED, false);
        const mode_t bits = BitsFromRights(ace.mask);
        DWORD id = 0;
        if (ace.sid == owner) out.mode |= bits << 6;
        else if (ace.sid == group) out.mode |= bits << 3;
        else if (ace.sid == everyone) out.mode |= bits;
        else if (UnixId(ace.sid, kUnixUsers, id)) out.users[id] |= bits;
        else if (UnixId(ace.sid, kUnixGroups, id)) out.groups[id] |= bits;
        else return Fail(ERROR_NOT_SUPPORTED, false);
    }
    // With named entries the mode's group bits become the ACL's mask, wide enough for every entry of the
    // group class, so that each may do what its own entry says.
    out.groupBits = (out.mode >> 3) & 7;
    mode_t mask = out.groupBits;
    for (const auto& [id, bits] : out.users) mask |= bits;
    for (const auto& [id, bits] : out.groups) mask |= bits;
    out.mode = (out.mode & ~static_cast<mode_t>(070)) | mask << 3;
    return true;
}

bool SaclKeepsNothing(const Descriptor& descriptor, SECURITY_INFORMATION parts) {
    if (!descriptor.saclPresent || !descriptor.sacl) return true;
    for (const Ace& ace : descriptor.sacl->aces) {
        const bool label = ace.type == SYSTEM_MANDATORY_LABEL_ACE_TYPE;
        const bool attribute = ace.type == kResourceAttributeAceType;
        const bool audit = !label && !attribute;
        if ((audit && (parts & SACL_SECURITY_INFORMATION)) || (label && (parts & (LABEL_SECURITY_INFORMATION | BACKUP_SECURITY_INFORMATION))) ||
            (attribute && (parts & (ATTRIBUTE_SECURITY_INFORMATION | BACKUP_SECURITY_INFORMATION))))
            return false;
    }
    return true;
}

bool HostWrite(LPCWSTR path, SECURITY_INFORMATION parts, const Descriptor& descriptor) {
    ResolvedPath resolved;
    struct stat status {};
    if (!StatFollowing(path, resolved, status)) return false;
    const bool withOwner = parts & (OWNER_SECURITY_INFORMATION | BACKUP_SECURITY_INFORMATION);
    const bool withGroup = parts & (GROUP_SECURITY_INFORMATION | BACKUP_SECURITY_INFORMATION);
    const bool withDacl = parts & (DACL_SECURITY_INFORMATION | BACKUP_SECURITY_INFORMATION);

    // Everything is checked before anything changes, so a refused part leaves the file as it was.
    uid_t uid = static_cast<uid_t>(-1);
    gid_t gid = static_cast<gid_t>(-1);
    DWORD id = 0;
    if (withOwner) {
        if (!descriptor.owner || !UnixId(*descriptor.owner, kUnixUsers, id)) return Fail(ERROR_INVALID_OWNER, false);
        uid = static_cast<uid_t>(id);
    }
    if (withGroup) {
        if (!descriptor.group || !UnixId(*descriptor.group, kUnixGroups, id)) return Fail(ERROR_INVALID_PRIMARY_GROUP, false);
        gid = static_cast<gid_t>(id);
    }
    if ((parts & kLabelAndAttributes) || (parts & SACL_SECURITY_INFORMATION)) {
        if (!SaclKeepsNothing(descriptor, parts)) return Fail(ERROR_NOT_SUPPORTED, false);
    }
    ModeAndNames access;
    if (withDacl) {
        // Entries name the owner and group the file will have once this call is done.
        const SidBytes owner = UserSid(withOwner ? uid : status.st_uid);
        const SidBytes group = GroupSid(withGroup ? gid : status.st_gid);
        if (!FromAccessList(descriptor, owner, group, status.st_mode, access)) return false;
    }
    // Only root gives a file away; asking the host would change the ACL first.
    const bool newOwner = withOwner && uid != status.st_uid;
    if (newOwner && geteuid() != 0) return Fail(ERROR_INVALID_OWNER, false);

    // The ACL goes first: on a file system without ACLs it is refused before anything else has changed.
    const char* host = resolved.hostPath.c_str();
    if (withDacl && !WriteAccessAcl(resolved.hostPath, access.mode, access.groupBits, access.users, access.groups)) return false;
    if (newOwner || (withGroup && gid != status.st_gid)) {
        if (chown(host, uid, gid) != 0) return Fail(Win32ErrorFromErrno(errno), false);
    }
    // After a change of owner too: the host clears set-user-ID and set-group-ID on chown.
    if (withDacl || newOwner) {
        struct stat now {};
        const mode_t mode = withDacl ? access.mode : status.st_mode & 07777;
        if (stat(host, &now) == 0 && (now.st_mode & 07777) != (mode & 07777) && chmod(host, mode) != 0)
            return Fail(Win32ErrorFromErrno(errno), false);
    }
    return true;
}

}  // namespace

bool HostKind::GetSecurity(LPCWSTR path, SECURITY_INFORMATION selection, std::vector<BYTE>& block) {
    return HostRead(path, selection, block);
}

bool HostKind::SetSecurity(LPCWSTR path, SECURITY_INFORMATION selection, const Descriptor& descriptor) {
    return HostWrite(path, selection, descriptor);
}

}  // namespace vlx
