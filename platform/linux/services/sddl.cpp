// Security descriptors in the string form that Windows tools print: "O:owner G:group D:flags(ace)...
// S:flags(ace)...", with the usual two-letter names for well-known SIDs and rights.
#include <cstdio>
#include <cstdint>

#include "../host.h"
#include "security_descriptor.h"

namespace vlx {

namespace {

struct Alias {
    const char* sid;
    const char* name;
};
const Alias kSidAliases[] = {
    {"S-1-1-0", "WD"},         {"S-1-3-0", "CO"},         {"S-1-3-1", "CG"},         {"S-1-5-7", "AN"},
    {"S-1-5-11", "AU"},        {"S-1-5-18", "SY"},        {"S-1-5-19", "LS"},        {"S-1-5-20", "NS"},
    {"S-1-5-32-544", "BA"},    {"S-1-5-32-545", "BU"},    {"S-1-5-32-546", "BG"},    {"S-1-5-32-547", "PU"},
    {"S-1-5-32-551", "BO"},    {"S-1-5-4", "IU"},         {"S-1-5-6", "SU"},         {"S-1-5-2", "NU"},
    {"S-1-16-4096", "LW"},     {"S-1-16-8192", "ME"},     {"S-1-16-12288", "HI"},    {"S-1-16-16384", "SI"},
};

struct RightsName {
    ACCESS_MASK mask;
    const char* name;
};
// Whole masks first (as Windows prints them), then single rights that a mask may be spelled out in.
const RightsName kWholeRights[] = {
    {FILE_ALL_ACCESS, "FA"}, {FILE_GENERIC_READ, "FR"}, {FILE_GENERIC_WRITE, "FW"}, {FILE_GENERIC_EXECUTE, "FX"},
};
const RightsName kSingleRights[] = {
    {GENERIC_ALL, "GA"}, {GENERIC_READ, "GR"}, {GENERIC_WRITE, "GW"}, {GENERIC_EXECUTE, "GX"},
    {READ_CONTROL, "RC"}, {DELETE, "SD"},      {WRITE_DAC, "WD"},     {WRITE_OWNER, "WO"},
};

std::string SidText(const SidBytes& sid) {
    const std::string text = SidToText(sid);
    for (const Alias& alias : kSidAliases) {
        if (text == alias.sid) return alias.name;
    }
    return text;
}

std::string RightsText(ACCESS_MASK mask, BYTE type) {
    if (type == SYSTEM_MANDATORY_LABEL_ACE_TYPE) {
        std::string text;
        if (mask & SYSTEM_MANDATORY_LABEL_NO_READ_UP) text += "NR";
        if (mask & SYSTEM_MANDATORY_LABEL_NO_WRITE_UP) text += "NW";
        if (mask & SYSTEM_MANDATORY_LABEL_NO_EXECUTE_UP) text += "NX";
        if ((mask & ~0x7u) == 0) return text;
    }
    for (const RightsName& whole : kWholeRights) {
        if (mask == whole.mask) return whole.name;
    }
    std::string text;
    ACCESS_MASK left = mask;
    for (const RightsName& single : kSingleRights) {
        if (left & single.mask) {
            text += single.name;
            left &= ~single.mask;
        }
    }
    if (left == 0 && !text.empty()) return text;
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%x", mask);
    return hex;
}

std::string AceText(const Ace& ace) {
    std::string text = "(";
    switch (ace.type) {
        case ACCESS_ALLOWED_ACE_TYPE: text += "A"; break;
        case ACCESS_DENIED_ACE_TYPE: text += "D"; break;
        case SYSTEM_AUDIT_ACE_TYPE: text += "AU"; break;
        case SYSTEM_ALARM_ACE_TYPE: text += "AL"; break;
        case SYSTEM_MANDATORY_LABEL_ACE_TYPE: text += "ML"; break;
        default: {
            char hex[8];
            std::snprintf(hex, sizeof hex, "0x%x", ace.type);
            text += hex;
        }
    }
    text += ";";
    static const std::pair<BYTE, const char*> kFlags[] = {
        {OBJECT_INHERIT_ACE, "OI"},  {CONTAINER_INHERIT_ACE, "CI"},      {NO_PROPAGATE_INHERIT_ACE, "NP"},
        {INHERIT_ONLY_ACE, "IO"},    {INHERITED_ACE, "ID"},              {SUCCESSFUL_ACCESS_ACE_FLAG, "SA"},
        {FAILED_ACCESS_ACE_FLAG, "FA"},
    };
    for (const auto& [flag, name] : kFlags) {
        if (ace.flags & flag) text += name;
    }
    text += ";" + RightsText(ace.mask, ace.type) + ";;;" + SidText(ace.sid) + ")";
    return text;
}

std::string AclText(char letter, bool present, const std::optional<Acl>& acl, SECURITY_DESCRIPTOR_CONTROL control,
                    WORD isProtected, WORD autoInherited, WORD inheritRequired) {
    if (!present) return "";
    std::string text = std::string(1, letter) + ":";
    if (control & isProtected) text += "P";
    if (control & inheritRequired) text += "AR";
    if (control & autoInherited) text += "AI";
    if (!acl) return text + "NO_ACCESS_CONTROL";
    for (const Ace& ace : acl->aces) text += AceText(ace);
    return text;
}

}  // namespace

WString SecurityDescriptorToSddl(const void* descriptor) {
    Descriptor parts;
    if (!ParseDescriptor(descriptor, parts)) return {};
    std::string text;
    if (parts.owner) text += "O:" + SidText(*parts.owner);
    if (parts.group) text += "G:" + SidText(*parts.group);
    text += AclText('D', parts.daclPresent, parts.dacl, parts.control, SE_DACL_PROTECTED, SE_DACL_AUTO_INHERITED,
                    SE_DACL_AUTO_INHERIT_REQ);
    text += AclText('S', parts.saclPresent, parts.sacl, parts.control, SE_SACL_PROTECTED, SE_SACL_AUTO_INHERITED,
                    SE_SACL_AUTO_INHERIT_REQ);
    return WStrFromUtf8(text);
}

}  // namespace vlx
