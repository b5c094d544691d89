// Security descriptors: reading a path's whole descriptor for the caller, writing one back, and copying
// chosen parts from one path to another with the privileges that the audit list and the owner need.
#include <cstdlib>
#include <memory>

#include "../frame/frame_internal.h"
#include "../platform/unique_handles.h"

namespace {

// Owner, group, access list, audit list, mandatory label, resource attributes, and the backup form that
// asks for all of them at once.
constexpr SECURITY_INFORMATION kFullInformation =
    OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION | SACL_SECURITY_INFORMATION |
    LABEL_SECURITY_INFORMATION | ATTRIBUTE_SECURITY_INFORMATION | BACKUP_SECURITY_INFORMATION;
static_assert(kFullInformation == 0x1003F, "the full information set");

struct FreeDeleter {
    void operator()(void* block) const noexcept { std::free(block); }
};

// Turns one privilege on in the token. The adjustment succeeds even when the token does not hold the
// privilege; only the last error (ERROR_NOT_ALL_ASSIGNED) tells, so it is read whatever the result was.
bool EnablePrivilege(HANDLE token, LPCWSTR name) {
    TOKEN_PRIVILEGES privileges{};
    if (!sys().LookupPrivilegeValueW(nullptr, name, &privileges.Privileges[0].Luid)) return false;
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    sys().AdjustTokenPrivileges(token, FALSE, &privileges, sizeof privileges, nullptr, nullptr);
    return sys().GetLastError() == ERROR_SUCCESS;
}

SECURITY_INFORMATION CopyMask(int copyOwner, int copyGroup, int copyDacl, int copySacl) {
    SECURITY_INFORMATION mask = 0;
    if (copyOwner == 1) mask |= OWNER_SECURITY_INFORMATION;
    if (copyGroup == 1) mask |= GROUP_SECURITY_INFORMATION;
    if (copyDacl == 1) mask |= DACL_SECURITY_INFORMATION;
    if (copySacl == 1) mask |= SACL_SECURITY_INFORMATION;
    return mask;
}

}  // namespace

VELMORA_EXPORT int GetAccessInfo(CString path, PSECURITY_DESCRIPTOR* descriptor, DWORD* reserved) {
    return VelmoraGuardedCall(0, [&] {
        if (descriptor == nullptr || reserved == nullptr) return 0;
        DWORD needed = 0;
        if (!sys().GetFileSecurityW(path, kFullInformation, nullptr, 0, &needed) && needed == 0) return 0;
        std::unique_ptr<void, FreeDeleter> block(std::malloc(needed));
        *descriptor = block.get();
        if (!block) return 0;
        if (!sys().GetFileSecurityW(path, kFullInformation, block.get(), needed, &needed)) {
            // The block is freed on the way out; a null left behind cannot be used or freed by mistake.
            *descriptor = nullptr;
            return 0;
        }
        block.release();  // the caller's now, to free with free
        return 1;
    });
}

VELMORA_EXPORT int SetAccessInfo(CString path, PSECURITY_DESCRIPTOR descriptor) {
    return VelmoraGuardedCall(0, [&] { return sys().SetFileSecurityW(path, kFullInformation, descriptor); });
}

VELMORA_EXPORT int CopySecurityInfo(CString source, CString target, int copyOwner, int copyGroup, int copyDacl,
                                    int copySacl) {
    return VelmoraGuardedCall(0, [&] {
        // Only all four at 0 stops here: a flag of 2 goes on and merely adds nothing to the mask.
        if (copyOwner == 0 && copyGroup == 0 && copyDacl == 0 && copySacl == 0) return 0;
        HANDLE opened = nullptr;
        if (!sys().OpenProcessToken(sys().GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &opened)) return 0;
        UniqueHandle token(opened);
        // The audit list is read and written only under the security privilege, and an owner other than
        // the caller is set only under take-ownership. Neither is disabled again afterwards.
        if (!EnablePrivilege(token.get(), SE_SECURITY_NAME)) return 0;
        if (!EnablePrivilege(token.get(), SE_TAKE_OWNERSHIP_NAME)) return 0;

        const SECURITY_INFORMATION mask = CopyMask(copyOwner, copyGroup, copyDacl, copySacl);
        DWORD needed = 0;
        if (!sys().GetFileSecurityW(source, mask, nullptr, 0, &needed) && needed == 0) return 0;
        UniqueLocal block(sys().LocalAlloc(LMEM_ZEROINIT, needed));
        if (!block) return 0;
        if (!sys().GetFileSecurityW(source, mask, block.get(), needed, &needed)) return 0;
        const BOOL written = sys().SetFileSecurityW(target, mask, block.get());
        // The block goes first, then the token.
        block.reset();
        token.reset();
        return written ? 1 : 0;
    });
}
