// Security descriptors of NTFS files: read and written whole through libntfs-3g, taken apart into their
// parts (owner, group, audit list, access list) and put together again here, so that a caller can read
// or replace only the parts its selection names, as GetFileSecurityW and SetFileSecurityW do.
#include "ntfs3g.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <cstring>

#include "ntfs_internal.h"

namespace vlx::ntfs {

namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

// The self-relative layout: a 20-byte head (revision, a zero byte, the control word, then the offsets
// of owner, group, audit list and access list), the parts anywhere after it.
constexpr DWORD kHeadSize = 20;
constexpr DWORD kControlOffset = 2;
constexpr DWORD kOwnerOffset = 4, kGroupOffset = 8, kSaclOffset = 12, kDaclOffset = 16;
constexpr DWORD kOwnerBit = 0x1, kGroupBit = 0x2, kDaclBit = 0x4, kSaclBit = 0x8;  // *_SECURITY_INFORMATION
constexpr BYTE kRevision = 1;

// What each part owns of the control word.
constexpr WORD kOwnerControl = SE_OWNER_DEFAULTED;
constexpr WORD kGroupControl = SE_GROUP_DEFAULTED;
constexpr WORD kDaclControl = SE_DACL_PRESENT | SE_DACL_DEFAULTED | SE_DACL_AUTO_INHERIT_REQ | SE_DACL_AUTO_INHERITED |
                              SE_DACL_PROTECTED;
constexpr WORD kSaclControl = SE_SACL_PRESENT | SE_SACL_DEFAULTED | SE_SACL_AUTO_INHERIT_REQ | SE_SACL_AUTO_INHERITED |
                              SE_SACL_PROTECTED;

// A descriptor taken apart: each part's bytes (empty when absent) and the control word.
struct Parts {
    WORD control = 0;
    std::vector<BYTE> owner, group, sacl, dacl;
};

// Length of the SID or ACL at offset, or 0 when it does not fit in length bytes.
DWORD SidLength(const BYTE* bytes, DWORD length, DWORD offset) {
    if (offset < kHeadSize || offset + 8 > length) return 0;
    const DWORD size = 8 + 4 * static_cast<DWORD>(bytes[offset + 1]);
    return offset + size <= length ? size : 0;
}
DWORD AclLength(const BYTE* bytes, DWORD length, DWORD offset) {
    if (offset < kHeadSize || offset + 8 > length) return 0;
    const DWORD size = Take<WORD>(bytes, offset + 2);
    return size >= 8 && offset + size <= length ? size : 0;
}

bool TakeApart(const BYTE* bytes, DWORD length, Parts& parts) {
    if (!bytes || length < kHeadSize || bytes[0] != kRevision) return false;
    parts.control = Take<WORD>(bytes, kControlOffset);
    if (!(parts.control & SE_SELF_RELATIVE)) return false;
    auto take = [&](DWORD headOffset, bool isSid, std::vector<BYTE>& out) {
        const DWORD offset = Take<DWORD>(bytes, headOffset);
        if (offset == 0) return true;
        const DWORD size = isSid ? SidLength(bytes, length, offset) : AclLength(bytes, length, offset);
        if (size == 0) return false;
        out.assign(bytes + offset, bytes + offset + size);
        return true;
    };
    if (!take(kOwnerOffset, true, parts.owner) || !take(kGroupOffset, true, parts.group)) return false;
    if ((parts.control & SE_SACL_PRESENT) && !take(kSaclOffset, false, parts.sacl)) return false;
    if ((parts.control & SE_DACL_PRESENT) && !take(kDaclOffset, false, parts.dacl)) return false;
    return true;
}

// The parts laid out after the head in the order Windows writes them: audit list, access list, owner, group.
std::vector<BYTE> PutTogether(const Parts& parts) {
    const std::vector<BYTE>* order[] = {&parts.sacl, &parts.dacl, &parts.owner, &parts.group};
    const DWORD headOffsets[] = {kSaclOffset, kDaclOffset, kOwnerOffset, kGroupOffset};
    size_t total = kHeadSize;
    for (const std::vector<BYTE>* part : order) total += part->size();
    std::vector<BYTE> out(total, 0);
    out[0] = kRevision;
    const WORD control = static_cast<WORD>(parts.control | SE_SELF_RELATIVE);
    std::memcpy(&out[kControlOffset], &control, sizeof(control));
    DWORD offset = kHeadSize;
    for (size_t i = 0; i < std::size(order); ++i) {
        if (order[i]->empty()) continue;
        std::memcpy(&out[headOffsets[i]], &offset, sizeof(offset));
        std::copy(order[i]->begin(), order[i]->end(), out.begin() + offset);
        offset += static_cast<DWORD>(order[i]->size());
    }
    return out;
}

// Moves the selected parts (and their control bits) from one descriptor to another.
void Select(const Parts& from, DWORD selection, Parts& to) {
    auto move = [&](DWORD bit, WORD controlBits, std::vector<BYTE> Parts::*part) {
        if (!(selection & bit)) return;
        to.*part = from.*part;
        to.control = static_cast<WORD>((to.control & ~controlBits) | (from.control & controlBits));
    };
    move(kOwnerBit, kOwnerControl, &Parts::owner);
    move(kGroupBit, kGroupControl, &Parts::group);
    move(kDaclBit, kDaclControl, &Parts::dacl);
    move(kSaclBit, kSaclControl, &Parts::sacl);
}

// libntfs-3g's calls want a security context; only the volume in it matters for raw descriptors.
struct Context {
    explicit Context(ntfs_volume* vol) {
        std::memset(&scx, 0, sizeof(scx));
        scx.vol = vol;
        scx.pseccache = &cache;
    }
    SECURITY_CONTEXT scx;
    PERMISSIONS_CACHE* cache = nullptr;
};

DWORD ReadWhole(ntfs_volume* vol, ntfs_inode* ni, std::vector<BYTE>& whole) {
    Context context(vol);
    const int size = ntfs_get_ntfs_acl(&context.scx, ni, nullptr, 0);
    if (size <= 0) return ErrorFromErrno(errno);
    whole.resize(static_cast<size_t>(size));
    if (ntfs_get_ntfs_acl(&context.scx, ni, reinterpret_cast<char*>(whole.data()), whole.size()) != size) {
        return ErrorFromErrno(errno);
    }
    return ERROR_SUCCESS;
}

}  // namespace

DWORD File::GetSecurity(DWORD selection, std::vector<BYTE>& descriptor) {
    Lock lock(EngineLock());
    if (!state_->vol) return ERROR_INVALID_HANDLE;
    std::vector<BYTE> whole;
    if (DWORD error = ReadWhole(state_->vol, node_->ni, whole)) return error;
    Parts stored, wanted;
    if (!TakeApart(whole.data(), static_cast<DWORD>(whole.size()), stored)) return ERROR_FILE_CORRUPT;
    Select(stored, selection, wanted);
    descriptor = PutTogether(wanted);
    return ERROR_SUCCESS;
}

DWORD File::SetSecurity(DWORD selection, const void* descriptor, DWORD length) {
    Lock lock(EngineLock());
    VolumeState& state = *state_;
    if (!state.vol) return ERROR_INVALID_HANDLE;
    if (state.readOnly) return ERROR_WRITE_PROTECT;
    Parts given;
    if (!TakeApart(static_cast<const BYTE*>(descriptor), length, given)) return ERROR_INVALID_SECURITY_DESCR;
    if (((selection & kOwnerBit) && given.owner.empty()) || ((selection & kGroupBit) && given.group.empty())) {
        return ERROR_INVALID_SECURITY_DESCR;  // NTFS keeps an owner and a group on every file
    }
    std::vector<BYTE> whole;
    if (DWORD error = ReadWhole(state.vol, node_->ni, whole)) return error;
    Parts stored;
    if (!TakeApart(whole.data(), static_cast<DWORD>(whole.size()), stored)) return ERROR_FILE_CORRUPT;
    Select(given, selection, stored);
    const std::vector<BYTE> merged = PutTogether(stored);
    Context context(state.vol);
    if (ntfs_set_ntfs_acl(&context.scx, node_->ni, reinterpret_cast<const char*>(merged.data()), merged.size(), 0) != 0) {
        return errno == EINVAL ? ERROR_INVALID_SECURITY_DESCR : ErrorFromErrno(errno);
    }
    return ERROR_SUCCESS;
}

}  // namespace vlx::ntfs
