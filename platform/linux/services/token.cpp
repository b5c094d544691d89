// The process token: the privileges the process holds and which of them are enabled, opened as a handle
// with OpenProcessToken and changed with AdjustTokenPrivileges, as advapi32 does.
//
// There is one token per process. An elevated process (root, unless the host says otherwise) holds what an
// elevated administrator holds, backup, restore, security and take-ownership among them, all disabled but
// the few Windows enables by default; any other process holds a standard user's few. Changes stay in the
// token for the life of the process, or until the host resets it.
#include <unistd.h>

#include <cstring>
#include <map>
#include <mutex>

#include "../core/internal.h"
#include "../core/table.h"
#include "../host.h"
#include "token.h"

namespace vlx {

namespace {

// The privileges this platform knows, with the locally unique identifiers Windows gives them.
struct KnownPrivilege {
    LPCWSTR name;
    DWORD luid;
    bool standardUser;      // held by a process that is not elevated
    bool enabledByDefault;  // enabled when the token is made
};

const KnownPrivilege kPrivileges[] = {
    {SE_SECURITY_NAME, 8, false, false},
    {SE_TAKE_OWNERSHIP_NAME, 9, false, false},
    {SE_LOAD_DRIVER_NAME, 10, false, false},
    {SE_BACKUP_NAME, 17, false, false},
    {SE_RESTORE_NAME, 18, false, false},
    {SE_SHUTDOWN_NAME, 19, true, false},
    {SE_DEBUG_NAME, 20, false, false},
    {SE_SYSTEM_ENVIRONMENT_NAME, 22, false, false},
    {SE_CHANGE_NOTIFY_NAME, 23, true, true},
    {SE_UNDOCK_NAME, 25, true, false},
    {SE_MANAGE_VOLUME_NAME, 28, false, false},
    {SE_IMPERSONATE_NAME, 29, false, true},
    {SE_CREATE_GLOBAL_NAME, 30, false, true},
    {SE_INC_WORKING_SET_NAME, 33, true, false},
    {SE_TIME_ZONE_NAME, 34, true, false},
    {SE_CREATE_SYMBOLIC_LINK_NAME, 35, false, false},
};

const KnownPrivilege* FindPrivilege(LPCWSTR name) {
    for (const KnownPrivilege& known : kPrivileges) {
        if (NamesEqualNoCase(name, known.name)) return &known;
    }
    return nullptr;
}

// The pseudo-handle of the current process, as Windows gives it.
const HANDLE kCurrentProcess = reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1));

struct ProcessToken {
    std::mutex lock;
    bool made = false;
    bool elevated = false;
    std::map<DWORD, DWORD> held;  // LUID low part -> SE_PRIVILEGE_* attributes

    void MakeLocked(bool asElevated) {
        elevated = asElevated;
        held.clear();
        for (const KnownPrivilege& known : kPrivileges) {
            if (!elevated && !known.standardUser) continue;
            held[known.luid] = known.enabledByDefault ? SE_PRIVILEGE_ENABLED | SE_PRIVILEGE_ENABLED_BY_DEFAULT : 0;
        }
        made = true;
    }
    void EnsureLocked() {
        if (!made) MakeLocked(geteuid() == 0);
    }
};

ProcessToken& Token() {
    static ProcessToken token;
    return token;
}

class TokenObject : public KernelObject {
public:
    explicit TokenObject(DWORD access) : access(access) {}
    const DWORD access;
};

DWORD PrivilegesLength(size_t count) {
    return static_cast<DWORD>(offsetof(TOKEN_PRIVILEGES, Privileges) + count * sizeof(LUID_AND_ATTRIBUTES));
}

}  // namespace

bool PrivilegeEnabled(LPCWSTR name) {
    const KnownPrivilege* known = FindPrivilege(name);
    if (known == nullptr) return false;
    ProcessToken& token = Token();
    std::lock_guard lock(token.lock);
    token.EnsureLocked();
    auto it = token.held.find(known->luid);
    return it != token.held.end() && (it->second & SE_PRIVILEGE_ENABLED) != 0;
}

bool ProcessIsElevated() {
    ProcessToken& token = Token();
    std::lock_guard lock(token.lock);
    token.EnsureLocked();
    return token.elevated;
}

void SetProcessToken(TokenKind kind) {
    ProcessToken& token = Token();
    std::lock_guard lock(token.lock);
    switch (kind) {
        case TokenKind::Elevated: token.MakeLocked(true); break;
        case TokenKind::StandardUser: token.MakeLocked(false); break;
        case TokenKind::AsProcessRuns: token.MakeLocked(geteuid() == 0); break;
    }
}

HANDLE WINAPI GetCurrentProcess() { return kCurrentProcess; }

BOOL WINAPI OpenProcessToken(HANDLE process, DWORD access, PHANDLE token) {
    if (token == nullptr) return Fail(ERROR_NOACCESS, FALSE);
    if (process != kCurrentProcess) return Fail(ERROR_INVALID_HANDLE, FALSE);
    if (access & MAXIMUM_ALLOWED) access = TOKEN_ALL_ACCESS;
    *token = InsertHandle(std::make_shared<TokenObject>(access));
    return TRUE;
}

BOOL WINAPI LookupPrivilegeValueW(LPCWSTR systemName, LPCWSTR name, PLUID luid) {
    // Only the local system is known here.
    if (systemName != nullptr && systemName[0] != 0) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    if (name == nullptr || luid == nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    const KnownPrivilege* known = FindPrivilege(name);
    if (known == nullptr) return Fail(ERROR_NO_SUCH_PRIVILEGE, FALSE);
    luid->LowPart = known->luid;
    luid->HighPart = 0;
    return TRUE;
}

BOOL WINAPI AdjustTokenPrivileges(HANDLE token, BOOL disableAll, PTOKEN_PRIVILEGES newState, DWORD length,
                                  PTOKEN_PRIVILEGES previousState, PDWORD returnLength) {
    auto object = LookupHandleAs<TokenObject>(token);
    if (!object) return Fail(ERROR_INVALID_HANDLE, FALSE);
    if (!(object->access & TOKEN_ADJUST_PRIVILEGES)) return Fail(ERROR_ACCESS_DENIED, FALSE);
    if (previousState != nullptr && !(object->access & TOKEN_QUERY)) return Fail(ERROR_ACCESS_DENIED, FALSE);
    if (previousState != nullptr && returnLength == nullptr) return Fail(ERROR_NOACCESS, FALSE);
    if (!disableAll && newState == nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);

    ProcessToken& process = Token();
    std::lock_guard lock(process.lock);
    process.EnsureLocked();

    // Work out every change first, so that a previous-state buffer that is too short changes nothing.
    std::map<DWORD, DWORD> changed = process.held;
    std::vector<LUID_AND_ATTRIBUTES> before;
    bool notAllAssigned = false;
    auto apply = [&](DWORD luid, DWORD attributes) {
        auto it = changed.find(luid);
        const DWORD old = it->second;
        DWORD now = old;
        if (attributes & SE_PRIVILEGE_REMOVED) {
            changed.erase(it);
        } else {
            now = (attributes & SE_PRIVILEGE_ENABLED) ? (old | SE_PRIVILEGE_ENABLED) : (old & ~SE_PRIVILEGE_ENABLED);
            it->second = now;
        }
        if (now != old || (attributes & SE_PRIVILEGE_REMOVED)) before.push_back({{luid, 0}, old});
    };
    if (disableAll) {
        for (const auto& [luid, attributes] : process.held) apply(luid, 0);
    } else {
        for (DWORD at = 0; at < newState->PrivilegeCount; ++at) {
            const LUID_AND_ATTRIBUTES& entry = newState->Privileges[at];
            if (entry.Luid.HighPart != 0 || changed.count(entry.Luid.LowPart) == 0) {
                notAllAssigned = true;  // not held: left alone, the call still succeeds
                continue;
            }
            apply(entry.Luid.LowPart, entry.Attributes);
        }
    }
    if (previousState != nullptr) {
        const DWORD needed = PrivilegesLength(before.size());
        *returnLength = needed;
        if (length < needed) return Fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
        previousState->PrivilegeCount = static_cast<DWORD>(before.size());
        std::memcpy(previousState->Privileges, before.data(), before.size() * sizeof(LUID_AND_ATTRIBUTES));
    }
    process.held = std::move(changed);
    SetLastErrorCode(notAllAssigned ? ERROR_NOT_ALL_ASSIGNED : ERROR_SUCCESS);
    return TRUE;
}

BOOL WINAPI GetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS kind, LPVOID information, DWORD length,
                                PDWORD returnLength) {
    auto object = LookupHandleAs<TokenObject>(token);
    if (!object) return Fail(ERROR_INVALID_HANDLE, FALSE);
    if (!(object->access & TOKEN_QUERY)) return Fail(ERROR_ACCESS_DENIED, FALSE);
    if (returnLength == nullptr) return Fail(ERROR_NOACCESS, FALSE);
    ProcessToken& process = Token();
    std::lock_guard lock(process.lock);
    process.EnsureLocked();
    switch (kind) {
        case TokenPrivileges: {
            *returnLength = PrivilegesLength(process.held.size());
            if (information == nullptr || length < *returnLength) return Fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
            auto* out = static_cast<PTOKEN_PRIVILEGES>(information);
            out->PrivilegeCount = static_cast<DWORD>(process.held.size());
            LUID_AND_ATTRIBUTES* slot = out->Privileges;
            for (const auto& [luid, attributes] : process.held) *slot++ = {{luid, 0}, attributes};
            return TRUE;
        }
        case TokenElevation: {
            *returnLength = sizeof(TOKEN_ELEVATION);
            if (information == nullptr || length < *returnLength) return Fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
            static_cast<PTOKEN_ELEVATION>(information)->TokenIsElevated = process.elevated ? 1 : 0;
            return TRUE;
        }
        default:
            return Fail(ERROR_INVALID_PARAMETER, FALSE);
    }
}

}  // namespace vlx
