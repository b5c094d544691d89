// Security descriptors taken apart and put together: the parts (owner, group, access list, audit list)
// as values, read from a descriptor in either form (self-relative, or absolute with pointers) and written
// out as one self-relative block, the form files keep and GetFileSecurityW hands out.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "../../wstr.h"
#include "../../win32.h"

namespace vlx {

// A SID as its bytes (revision, count, authority, sub-authorities).
using SidBytes = std::vector<BYTE>;

SidBytes MakeSid(ULONGLONG authority, const std::vector<DWORD>& subAuthorities);
// S-1-1-0, Everyone.
SidBytes EveryoneSid();
// "S-1-5-32-544" and back; the parse gives an empty result for text that is not a SID.
std::string SidToText(const SidBytes& sid);
SidBytes SidFromText(const std::string& text);
ULONGLONG SidAuthority(const SidBytes& sid);
std::vector<DWORD> SidSubAuthorities(const SidBytes& sid);

struct Ace {
    BYTE type = ACCESS_ALLOWED_ACE_TYPE;
    BYTE flags = 0;
    ACCESS_MASK mask = 0;
    SidBytes sid;
    std::vector<BYTE> extra;  // what follows the SID (object and callback ACEs), kept as it was
};

struct Acl {
    BYTE revision = ACL_REVISION;
    std::vector<Ace> aces;
};

struct Descriptor {
    SECURITY_DESCRIPTOR_CONTROL control = 0;  // without SE_SELF_RELATIVE; PRESENT bits follow the lists below
    std::optional<SidBytes> owner, group;
    // Present without a list is a null access list (everyone may do everything); absent is no list at all.
    bool daclPresent = false, saclPresent = false;
    std::optional<Acl> dacl, sacl;
};

// Reads a descriptor in either form. False when it is not a valid descriptor (bad revision, a part that
// lies outside the block's stated sizes, a SID or ACL that does not parse).
bool ParseDescriptor(const void* descriptor, Descriptor& out);
// The descriptor as one self-relative block: header, audit list, access list, owner, group.
std::vector<BYTE> SelfRelative(const Descriptor& descriptor);

}  // namespace vlx
