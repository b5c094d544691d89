// Security descriptors taken apart and put together (security_descriptor.h).
#include "security_descriptor.h"

#include <cstring>

namespace vlx {

namespace {

constexpr size_t kSidHeader = 8;  // revision, count, six bytes of authority

size_t SidLength(const BYTE* sid) { return kSidHeader + 4 * static_cast<size_t>(sid[1]); }

bool ReadSid(const BYTE* sid, SidBytes& out) {
    if (sid[0] != SID_REVISION || sid[1] > SID_MAX_SUB_AUTHORITIES) return false;
    out.assign(sid, sid + SidLength(sid));
    return true;
}

template <class T>
T Load(const BYTE* at) {
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}
template <class T>
void Store(std::vector<BYTE>& out, size_t at, T value) {
    std::memcpy(out.data() + at, &value, sizeof value);
}

bool ReadAcl(const BYTE* acl, Acl& out) {
    const ACL header = Load<ACL>(acl);
    if (header.AclRevision < ACL_REVISION || header.AclRevision > ACL_REVISION_DS || header.AclSize < sizeof(ACL))
        return false;
    out.revision = header.AclRevision;
    out.aces.clear();
    size_t at = sizeof(ACL);
    for (WORD index = 0; index < header.AceCount; ++index) {
        if (at + sizeof(ACE_HEADER) > header.AclSize) return false;
        const ACE_HEADER ace = Load<ACE_HEADER>(acl + at);
        if (ace.AceSize < sizeof(ACE_HEADER) + 4 + kSidHeader || at + ace.AceSize > header.AclSize) return false;
        Ace entry;
        entry.type = ace.AceType;
        entry.flags = ace.AceFlags;
        entry.mask = Load<ACCESS_MASK>(acl + at + sizeof(ACE_HEADER));
        const BYTE* sid = acl + at + sizeof(ACE_HEADER) + 4;
        const size_t room = ace.AceSize - sizeof(ACE_HEADER) - 4;
        if (room < kSidHeader || SidLength(sid) > room || !ReadSid(sid, entry.sid)) return false;
        entry.extra.assign(sid + SidLength(sid), sid + room);
        out.aces.push_back(std::move(entry));
        at += ace.AceSize;
    }
    return true;
}

size_t AclLength(const Acl& acl) {
    size_t length = sizeof(ACL);
    for (const Ace& ace : acl.aces) length += sizeof(ACE_HEADER) + 4 + ace.sid.size() + ace.extra.size();
    return length;
}

void WriteAcl(const Acl& acl, std::vector<BYTE>& out, size_t at) {
    ACL header{};
    header.AclRevision = acl.revision;
    header.AclSize = static_cast<WORD>(AclLength(acl));
    header.AceCount = static_cast<WORD>(acl.aces.size());
    Store(out, at, header);
    at += sizeof(ACL);
    for (const Ace& ace : acl.aces) {
        ACE_HEADER entry{ace.type, ace.flags, static_cast<WORD>(sizeof(ACE_HEADER) + 4 + ace.sid.size() + ace.extra.size())};
        Store(out, at, entry);
        Store(out, at + sizeof(ACE_HEADER), ace.mask);
        std::memcpy(out.data() + at + sizeof(ACE_HEADER) + 4, ace.sid.data(), ace.sid.size());
        if (!ace.extra.empty())
            std::memcpy(out.data() + at + sizeof(ACE_HEADER) + 4 + ace.sid.size(), ace.extra.data(), ace.extra.size());
        at += entry.AceSize;
    }
}

}  // namespace

SidBytes MakeSid(ULONGLONG authority, const std::vector<DWORD>& subAuthorities) {
    SidBytes sid(kSidHeader + 4 * subAuthorities.size());
    sid[0] = SID_REVISION;
    sid[1] = static_cast<BYTE>(subAuthorities.size());
    for (int at = 0; at < 6; ++at) sid[2 + at] = static_cast<BYTE>(authority >> (8 * (5 - at)));  // big-endian
    for (size_t at = 0; at < subAuthorities.size(); ++at) Store(sid, kSidHeader + 4 * at, subAuthorities[at]);
    return sid;
}

ULONGLONG SidAuthority(const SidBytes& sid) {
    ULONGLONG authority = 0;
    for (int at = 0; at < 6; ++at) authority = (authority << 8) | sid[2 + at];
    return authority;
}

SidBytes EveryoneSid() {
    const SID_IDENTIFIER_AUTHORITY world = {SECURITY_WORLD_SID_AUTHORITY};
    ULONGLONG authority = 0;
    for (BYTE byte : world.Value) authority = (authority << 8) | byte;
    return MakeSid(authority, {SECURITY_WORLD_RID});
}

std::vector<DWORD> SidSubAuthorities(const SidBytes& sid) {
    std::vector<DWORD> subs(sid[1]);
    for (size_t at = 0; at < subs.size(); ++at) subs[at] = Load<DWORD>(sid.data() + kSidHeader + 4 * at);
    return subs;
}

std::string SidToText(const SidBytes& sid) {
    std::string text = "S-" + std::to_string(sid[0]) + "-";
    const ULONGLONG authority = SidAuthority(sid);
    if (authority >> 32) {
        char hex[24];
        std::snprintf(hex, sizeof hex, "0x%012llX", static_cast<unsigned long long>(authority));
        text += hex;
    } else {
        text += std::to_string(authority);
    }
    for (DWORD sub : SidSubAuthorities(sid)) text += "-" + std::to_string(sub);
    return text;
}

SidBytes SidFromText(const std::string& text) {
    if (text.size() < 4 || (text[0] != 'S' && text[0] != 's') || text[1] != '-' || text[2] != '1' || text[3] != '-') return {};
    std::vector<ULONGLONG> numbers;
    size_t at = 4;
    while (at <= text.size()) {
        const size_t end = text.find('-', at);
        const std::string part = text.substr(at, end == std::string::npos ? std::string::npos : end - at);
        if (part.empty() || part.find_first_not_of("0123456789") != std::string::npos || part.size() > 15) return {};
        numbers.push_back(std::stoull(part));
        if (end == std::string::npos) break;
        at = end + 1;
    }
    if (numbers.empty() || numbers.size() > SID_MAX_SUB_AUTHORITIES + 1 || numbers[0] >> 48) return {};
    std::vector<DWORD> subs;
    for (size_t index = 1; index < numbers.size(); ++index) {
        if (numbers[index] > 0xFFFFFFFFull) return {};
        subs.push_back(static_cast<DWORD>(numbers[index]));
    }
    return MakeSid(numbers[0], subs);
}

bool ParseDescriptor(const void* descriptor, Descriptor& out) {
    if (descriptor == nullptr) return false;
    const auto* bytes = static_cast<const BYTE*>(descriptor);
    const SECURITY_DESCRIPTOR_RELATIVE header = Load<SECURITY_DESCRIPTOR_RELATIVE>(bytes);
    if (header.Revision != SECURITY_DESCRIPTOR_REVISION) return false;
    const bool selfRelative = (header.Control & SE_SELF_RELATIVE) != 0;
    // Where each part lies: an offset from the start in the self-relative form, a pointer in the other.
    auto part = [&](DWORD offset, size_t pointerAt) -> const BYTE* {
        if (selfRelative) return offset == 0 ? nullptr : bytes + offset;
        return Load<const BYTE*>(bytes + pointerAt);
    };
    const BYTE* owner = part(header.Owner, offsetof(SECURITY_DESCRIPTOR, Owner));
    const BYTE* group = part(header.Group, offsetof(SECURITY_DESCRIPTOR, Group));
    const BYTE* sacl = part(header.Sacl, offsetof(SECURITY_DESCRIPTOR, Sacl));
    const BYTE* dacl = part(header.Dacl, offsetof(SECURITY_DESCRIPTOR, Dacl));

    Descriptor result;
    result.control = static_cast<SECURITY_DESCRIPTOR_CONTROL>(header.Control & ~SE_SELF_RELATIVE);
    if (owner != nullptr) {
        if (!ReadSid(owner, result.owner.emplace())) return false;
    }
    if (group != nullptr) {
        if (!ReadSid(group, result.group.emplace())) return false;
    }
    result.daclPresent = (header.Control & SE_DACL_PRESENT) != 0;
    result.saclPresent = (header.Control & SE_SACL_PRESENT) != 0;
    if (result.daclPresent && dacl != nullptr && !ReadAcl(dacl, result.dacl.emplace())) return false;
    if (result.saclPresent && sacl != nullptr && !ReadAcl(sacl, result.sacl.emplace())) return false;
    out = std::move(result);
    return true;
}

std::vector<BYTE> SelfRelative(const Descriptor& descriptor) {
    const bool withSacl = descriptor.saclPresent && descriptor.sacl.has_value();
    const bool withDacl = descriptor.daclPresent && descriptor.dacl.has_value();
    size_t length = sizeof(SECURITY_DESCRIPTOR_RELATIVE);
    if (withSacl) length += AclLength(*descriptor.sacl);
    if (withDacl) length += AclLength(*descriptor.dacl);
    if (descriptor.owner) length += descriptor.owner->size();
    if (descriptor.group) length += descriptor.group->size();
    std::vector<BYTE> out(length);

    SECURITY_DESCRIPTOR_RELATIVE header{};
    header.Revision = SECURITY_DESCRIPTOR_REVISION;
    header.Control = static_cast<SECURITY_DESCRIPTOR_CONTROL>(
        (descriptor.control & ~(SE_DACL_PRESENT | SE_SACL_PRESENT)) | SE_SELF_RELATIVE |
        (descriptor.daclPresent ? SE_DACL_PRESENT : 0) | (descriptor.saclPresent ? SE_SACL_PRESENT : 0));
    size_t at = sizeof(SECURITY_DESCRIPTOR_RELATIVE);
    if (withSacl) {
        header.Sacl = static_cast<DWORD>(at);
        WriteAcl(*descriptor.sacl, out, at);
        at += AclLength(*descriptor.sacl);
    }
    if (withDacl) {
        header.Dacl = static_cast<DWORD>(at);
        WriteAcl(*descriptor.dacl, out, at);
        at += AclLength(*descriptor.dacl);
    }
    if (descriptor.owner) {
        header.Owner = static_cast<DWORD>(at);
        std::memcpy(out.data() + at, descriptor.owner->data(), descriptor.owner->size());
        at += descriptor.owner->size();
    }
    if (descriptor.group) {
        header.Group = static_cast<DWORD>(at);
        std::memcpy(out.data() + at, descriptor.group->data(), descriptor.group->size());
    }
    Store(out, 0, header);
    return out;
}

}  // namespace vlx
