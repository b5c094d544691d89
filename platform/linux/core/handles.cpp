// The one handle table of the process, and the share-mode registry between open files.
#include <algorithm>
#include <map>
#include <mutex>

#include "internal.h"

namespace vlx {

namespace {

std::mutex g_handlesLock;
std::map<uintptr_t, std::shared_ptr<KernelObject>> g_handles;
// Values are never reused, so a handle closed twice or used after close fails as invalid.
uintptr_t g_nextHandle = 0x100;

std::mutex g_sharesLock;
std::vector<OpenRecord*> g_opens;

}  // namespace

HANDLE InsertHandle(std::shared_ptr<KernelObject> object) {
    std::lock_guard lock(g_handlesLock);
    const uintptr_t value = g_nextHandle;
    g_nextHandle += 4;
    g_handles.emplace(value, std::move(object));
    return reinterpret_cast<HANDLE>(value);
}

std::shared_ptr<KernelObject> LookupHandle(HANDLE handle) {
    std::lock_guard lock(g_handlesLock);
    auto it = g_handles.find(reinterpret_cast<uintptr_t>(handle));
    return it == g_handles.end() ? nullptr : it->second;
}

bool RemoveHandleIf(HANDLE handle, bool (*accept)(KernelObject&)) {
    std::shared_ptr<KernelObject> removed;  // released outside the lock: its destructor may call back in
    {
        std::lock_guard lock(g_handlesLock);
        auto it = g_handles.find(reinterpret_cast<uintptr_t>(handle));
        if (it == g_handles.end() || !accept(*it->second)) return false;
        removed = std::move(it->second);
        g_handles.erase(it);
    }
    return true;
}

size_t OpenHandleCount() {
    std::lock_guard lock(g_handlesLock);
    return g_handles.size();
}

DWORD ExpandAccess(DWORD access) {
    DWORD expanded = access & ~(GENERIC_READ | GENERIC_WRITE | GENERIC_EXECUTE | GENERIC_ALL);
    if (access & (GENERIC_READ | GENERIC_ALL)) expanded |= FILE_READ_DATA | FILE_READ_ATTRIBUTES | FILE_READ_EA | READ_CONTROL | SYNCHRONIZE;
    if (access & (GENERIC_WRITE | GENERIC_ALL))
        expanded |= FILE_WRITE_DATA | FILE_APPEND_DATA | FILE_WRITE_ATTRIBUTES | FILE_WRITE_EA | READ_CONTROL | SYNCHRONIZE;
    if (access & (GENERIC_EXECUTE | GENERIC_ALL)) expanded |= FILE_EXECUTE | FILE_READ_ATTRIBUTES | READ_CONTROL | SYNCHRONIZE;
    if (access & GENERIC_ALL) expanded |= DELETE | WRITE_DAC | WRITE_OWNER;
    return expanded;
}

namespace {

// Only data and delete access take part in sharing; attribute-only opens never conflict.
constexpr DWORD kReadLike = FILE_READ_DATA | FILE_EXECUTE;
constexpr DWORD kWriteLike = FILE_WRITE_DATA | FILE_APPEND_DATA;

bool Conflicts(DWORD access, DWORD share, const OpenRecord& other) {
    if ((access & kReadLike) && !(other.share & FILE_SHARE_READ)) return true;
    if ((access & kWriteLike) && !(other.share & FILE_SHARE_WRITE)) return true;
    if ((access & DELETE) && !(other.share & FILE_SHARE_DELETE)) return true;
    if ((other.access & kReadLike) && !(share & FILE_SHARE_READ)) return true;
    if ((other.access & kWriteLike) && !(share & FILE_SHARE_WRITE)) return true;
    if ((other.access & DELETE) && !(share & FILE_SHARE_DELETE)) return true;
    return false;
}

bool CheckShareLocked(dev_t device, ino_t inode, DWORD access, DWORD share) {
    if ((access & (kReadLike | kWriteLike | DELETE)) == 0) return true;
    for (const OpenRecord* other : g_opens) {
        if (other->device == device && other->inode == inode && Conflicts(access, share, *other))
            return Fail(ERROR_SHARING_VIOLATION, false);
    }
    return true;
}

}  // namespace

bool CheckShare(dev_t device, ino_t inode, DWORD access, DWORD share) {
    std::lock_guard lock(g_sharesLock);
    return CheckShareLocked(device, inode, access, share);
}

bool RegisterOpen(OpenRecord* record) {
    std::lock_guard lock(g_sharesLock);
    if (!CheckShareLocked(record->device, record->inode, record->access, record->share)) return false;
    g_opens.push_back(record);
    return true;
}

void UnregisterOpen(OpenRecord* record) {
    std::lock_guard lock(g_sharesLock);
    g_opens.erase(std::remove(g_opens.begin(), g_opens.end(), record), g_opens.end());
}

}  // namespace vlx
