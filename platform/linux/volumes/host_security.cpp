// GetFileSecurityW and SetFileSecurityW, and the security of host-folder volumes: a mapping between a
// Linux file's owner, group and mode bits and a Windows descriptor that Windows callers can read, change
// and copy.
//
// Mapping. The owner is S-1-22-1-<uid> and the group S-1-22-2-<gid> (the SIDs Samba gives Unix users and
// groups). The access list holds, in this order, an allow entry for the owner SID with the owner's mode
// bits, one for the group SID with the group's and one for Everyone (S-1-1-0) with the others', each bit
// as a file right: read as FILE_GENERIC_READ, write as FILE_GENERIC_WRITE (with FILE_DELETE_CHILD on a
// folder), execute as FILE_GENERIC_EXECUTE. The owner may always read and change the access list
// (READ_CONTROL, WRITE_DAC), so the owner's entry is there even with no bits; empty group and other
// entries are left out. The list is marked protected: nothing is inherited. Writing maps back the same
// way, each entry to its own class (a right among FILE_READ_DATA, FILE_WRITE_DATA, FILE_EXECUTE or a
// generic right sets the bit; other rights have no bit and are dropped) and keeps the set-user-ID,
// set-group-ID and sticky bits. A null access list gives everyone everything (mode 777).
//
// What a host folder cannot keep fails the whole call with ERROR_NOT_SUPPORTED before anything changes:
// deny entries, allow entries for any SID other than the owner, the group or Everyone, audit entries,
// mandatory labels and resource attributes. Inherit-only entries are dropped, since a host folder hands
// nothing down. An owner or group SID that names no Linux user or group fails with ERROR_INVALID_OWNER or
// ERROR_INVALID_PRIMARY_GROUP; an owner the host refuses to give (not root) with ERROR_INVALID_OWNER.
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <mutex>

#include "../core/internal.h"
#include "../core/table.h"
#include "../services/token.h"
#include "volume_security.h"

namespace vlx {

namespace {

constexpr ULONGLONG kUnixAuthority = 22;  // S-1-22-1-uid users, S-1-22-2-gid groups
constexpr DWORD kUnixUsers = 1;
constexpr DWORD kUnixGroups = 2;
constexpr ULONGLONG kWorldAuthority = 1;  // S-1-1-0 Everyone
constexpr SECURITY_INFORMATION kLabelAndAttributes =
    LABEL_SECURITY_INFORMATION | ATTRIBUTE_SECURITY_INFORMATION | BACKUP_SECURITY_INFORMATION;
constexpr BYTE kResourceAttributeAceType = 0x12;

std::mutex g_kindsLock;
std::vector<VolumeSecurity*>& Kinds() {
    static std::vector<VolumeSecurity*> kinds;
    return kinds;
}

VolumeSecurity* KindFor(LPCWSTR path) {
    std::lock_guard lock(g_kindsLock);
    for (VolumeSecurity* kind : Kinds()) {
        if (kind->Covers(path)) return kind;
    }
    return nullptr;
}

SidBytes UserSid(uid_t uid) { return MakeSid(kUnixAuthority, {kUnixUsers, static_cast<DWORD>(uid)}); }
SidBytes GroupSid(gid_t gid) { return MakeSid(kUnixAuthority, {kUnixGroups, static_cast<DWORD>(gid)}); }
SidBytes Everyone() { return MakeSid(kWorldAuthority, {0}); }

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

Descriptor HostDescriptor(const struct stat& status, SECURITY_INFORMATION requested) {
    Descriptor out;
    if (requested & OWNER_SECURITY_INFORMATION) out.owner = UserSid(status.st_uid);
    if (requested & GROUP_SECURITY_INFORMATION) out.group = GroupSid(status.st_gid);
    if (requested & DACL_SECURITY_INFORMATION) {
        const bool folder = S_ISDIR(status.st_mode);
        Acl acl;
        auto add = [&](SidBytes sid, ACCESS_MASK rights) {
            Ace ace;
            ace.mask = rights;
            ace.sid = std::move(sid);
            acl.aces.push_back(std::move(ace));
        };
        add(UserSid(status.st_uid), RightsFromBits((status.st_mode >> 6) & 7, folder) | READ_CONTROL | WRITE_DAC);
        if (const ACCESS_MASK group = RightsFromBits((status.st_mode >> 3) & 7, folder)) add(GroupSid(status.st_gid), group);
        if (const ACCESS_MASK other = RightsFromBits(status.st_mode & 7, folder)) add(Everyone(), other);
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
    out = SelfRelative(HostDescriptor(status, requested));
    return true;
}

// What the new mode of a file becomes under the access list; false with ERROR_NOT_SUPPORTED when the
// list holds what mode bits cannot.
bool ModeFromAcl(const Descriptor& descriptor, const SidBytes& owner, const SidBytes& group, mode_t oldMode, mode_t& mode) {
    mode = oldMode & (S_ISUID | S_ISGID | S_ISVTX);
    if (!descriptor.daclPresent || !descriptor.dacl) {
        mode |= 0777;  // a null list: everyone may do everything
        return true;
    }
    const SidBytes everyone = Everyone();
    for (const Ace& ace : descriptor.dacl->aces) {
        if (ace.flags & INHERIT_ONLY_ACE) continue;  // for children only, and a host folder hands nothing down
        if (ace.type != ACCESS_ALLOWED_ACE_TYPE) return Fail(ERROR_NOT_SUPPORTED, false);
        const mode_t bits = BitsFromRights(ace.mask);
        if (ace.sid == owner) mode |= bits << 6;
        else if (ace.sid == group) mode |= bits << 3;
        else if (ace.sid == everyone) mode |= bits;
        else return Fail(ERROR_NOT_SUPPORTED, false);
    }
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
    mode_t mode = 0;
    if (withDacl) {
        // Entries name the owner and group the file will have once this call is done.
        const SidBytes owner = UserSid(withOwner ? uid : status.st_uid);
        const SidBytes group = GroupSid(withGroup ? gid : status.st_gid);
        if (!ModeFromAcl(descriptor, owner, group, status.st_mode, mode)) return false;
    }

    const char* host = resolved.hostPath.c_str();
    if ((withOwner && uid != status.st_uid) || (withGroup && gid != status.st_gid)) {
        if (chown(host, uid, gid) != 0) {
            const int error = errno;
            return Fail(error == EPERM && withOwner && uid != status.st_uid ? ERROR_INVALID_OWNER : Win32ErrorFromErrno(error),
                        false);
        }
    }
    if (withDacl && (mode & 07777) != (status.st_mode & 07777)) {
        if (chmod(host, mode) != 0) return Fail(Win32ErrorFromErrno(errno), false);
    }
    return true;
}

}  // namespace

void RegisterVolumeSecurity(VolumeSecurity* kind) {
    std::lock_guard lock(g_kindsLock);
    Kinds().push_back(kind);
}

BOOL WINAPI GetFileSecurityW(LPCWSTR path, SECURITY_INFORMATION requested, PSECURITY_DESCRIPTOR descriptor, DWORD length,
                             LPDWORD needed) {
    if (path == nullptr || needed == nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    if ((requested & SACL_SECURITY_INFORMATION) && !PrivilegeEnabled(SE_SECURITY_NAME))
        return Fail(ERROR_PRIVILEGE_NOT_HELD, FALSE);
    std::vector<BYTE> block;
    VolumeSecurity* kind = KindFor(path);
    if (!(kind != nullptr ? kind->Read(path, requested, block) : HostRead(path, requested, block))) return FALSE;
    *needed = static_cast<DWORD>(block.size());
    if (descriptor == nullptr || length < block.size()) return Fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
    std::memcpy(descriptor, block.data(), block.size());
    return TRUE;
}

BOOL WINAPI SetFileSecurityW(LPCWSTR path, SECURITY_INFORMATION parts, PSECURITY_DESCRIPTOR descriptor) {
    if (path == nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    if ((parts & SACL_SECURITY_INFORMATION) && !PrivilegeEnabled(SE_SECURITY_NAME)) return Fail(ERROR_PRIVILEGE_NOT_HELD, FALSE);
    Descriptor parsed;
    if (!ParseDescriptor(descriptor, parsed)) return Fail(ERROR_INVALID_SECURITY_DESCR, FALSE);
    VolumeSecurity* kind = KindFor(path);
    return (kind != nullptr ? kind->Write(path, parts, parsed) : HostWrite(path, parts, parsed)) ? TRUE : FALSE;
}

}  // namespace vlx
