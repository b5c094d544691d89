// The one handle table of the process, and share modes: a registry between the process's own open files
// and open file description locks between processes.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <limits>
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

bool TakesPartInSharing(DWORD access) { return (access & (kReadLike | kWriteLike | DELETE)) != 0; }

bool Conflicts(DWORD access, DWORD share, const OpenRecord& other) {
    // An open for attributes alone neither is refused nor refuses anyone, as on Windows.
    if (!TakesPartInSharing(other.access)) return false;
    if ((access & kReadLike) && !(other.share & FILE_SHARE_READ)) return true;
    if ((access & kWriteLike) && !(other.share & FILE_SHARE_WRITE)) return true;
    if ((access & DELETE) && !(other.share & FILE_SHARE_DELETE)) return true;
    if ((other.access & kReadLike) && !(share & FILE_SHARE_READ)) return true;
    if ((other.access & kWriteLike) && !(share & FILE_SHARE_WRITE)) return true;
    if ((other.access & DELETE) && !(share & FILE_SHARE_DELETE)) return true;
    return false;
}

bool CheckShareLocked(dev_t device, ino_t inode, DWORD access, DWORD share) {
    if (!TakesPartInSharing(access)) return true;
    for (const OpenRecord* other : g_opens) {
        if (other->device == device && other->inode == inode && Conflicts(access, share, *other))
            return Fail(ERROR_SHARING_VIOLATION, false);
    }
    return true;
}

// Share modes between processes. Every open that takes part in sharing holds shared open file description
// locks on single bytes far past any real data: one byte for each right it holds (reading, writing,
// deleting) and one for each right it denies to others. An open first takes its own bytes, then asks
// whether another description holds a byte that stands against it (a denial of a right it wants, or a
// right it denies); when one does, it lets its bytes go and fails with ERROR_SHARING_VIOLATION. Taking
// before asking means two opens racing each other may both fail, never both succeed. The locks belong to
// the open file description, so they leave with the handle and with a process that dies, and the same
// scheme meets the process's own handles as well (the registry above answers those first).
// Limits: a read lock needs a description open for reading, so a handle on a file its user may only
// write (or open for attributes only) takes part in sharing within its process alone; any user who may
// read a file can deny others sharing it, as any reader can on Windows; a file system without such
// locks (some network and FUSE file systems) leaves sharing to the process's own registry; programs that
// do not use these bytes are not stopped by them.
constexpr off_t kShareBytes = std::numeric_limits<off_t>::max() - 64;

struct ShareRight {
    DWORD rights;      // the specific rights that count as this one
    DWORD shareFlag;   // the share flag that lets others hold it
    off_t holdsByte;   // held by every open with this right
    off_t deniesByte;  // held by every open that does not share it
};
constexpr ShareRight kShareRights[] = {
    {kReadLike, FILE_SHARE_READ, kShareBytes + 0, kShareBytes + 3},
    {kWriteLike, FILE_SHARE_WRITE, kShareBytes + 1, kShareBytes + 4},
    {DELETE, FILE_SHARE_DELETE, kShareBytes + 2, kShareBytes + 5},
};
constexpr off_t kShareByteCount = 6;

struct flock LockRange(short type, off_t start, off_t count) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = start;
    lock.l_len = count;
    return lock;
}

int LockBytes(int fd, short type, off_t start, off_t count) {
    struct flock lock = LockRange(type, start, count);
    return fcntl(fd, F_OFD_SETLK, &lock) == 0 ? 0 : errno;
}

// True when a description other than fd's holds a byte of the range.
bool HeldElsewhere(int fd, off_t start, off_t count) {
    struct flock lock = LockRange(F_WRLCK, start, count);
    return fcntl(fd, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

// A set of the share bytes, bit i standing for byte kShareBytes + i.
using ShareByteSet = unsigned;
ShareByteSet ByteBit(off_t byte) { return 1u << (byte - kShareBytes); }

// Calls visit(start, count) for each run of adjacent bytes in the set, lowest first, while it returns
// true: one lock call then covers a run, not a byte. False when visit stopped it.
template <class Visit>
bool ForEachRun(ShareByteSet bytes, Visit&& visit) {
    for (off_t at = 0; at < kShareByteCount;) {
        if (!(bytes & (1u << at))) {
            ++at;
            continue;
        }
        off_t end = at;
        while (end < kShareByteCount && (bytes & (1u << end))) ++end;
        if (!visit(kShareBytes + at, end - at)) return false;
        at = end;
    }
    return true;
}

// The bytes an open holds (one for each right it has, one for each right it denies others), and the
// bytes whose holders it conflicts with (a denial of a right it wants, a right it denies).
struct ShareBytes {
    ShareByteSet held = 0;
    ShareByteSet against = 0;
};
ShareBytes ShareBytesOf(DWORD access, DWORD share) {
    ShareBytes bytes;
    for (const ShareRight& right : kShareRights) {
        if (access & right.rights) {
            bytes.held |= ByteBit(right.holdsByte);
            bytes.against |= ByteBit(right.deniesByte);
        }
        if (!(share & right.shareFlag)) {
            bytes.held |= ByteBit(right.deniesByte);
            bytes.against |= ByteBit(right.holdsByte);
        }
    }
    return bytes;
}

bool StandsAgainstOthers(int fd, DWORD access, DWORD share) {
    return !ForEachRun(ShareBytesOf(access, share).against, [fd](off_t start, off_t count) { return !HeldElsewhere(fd, start, count); });
}

// A description that can carry read locks on the file open as fd: fd itself when it was opened for
// reading, else a new one opened through the process's view of fd (so it is the same file even if
// the name has moved on), or -1 when there is none.
int LockableDescription(int fd, bool& owned) {
    owned = false;
    const int status = fcntl(fd, F_GETFL);
    if (status < 0) return -1;
    if ((status & O_PATH) == 0 && (status & O_ACCMODE) != O_WRONLY) return fd;
    char self[64];
    std::snprintf(self, sizeof self, "/proc/self/fd/%d", fd);
    // Non-blocking, so that a named pipe is not waited on.
    const int reopened = open(self, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    owned = reopened >= 0;
    return reopened;
}

void ReleaseShareLocks(OpenRecord& record) {
    if (record.lockFd < 0) return;
    LockBytes(record.lockFd, F_UNLCK, kShareBytes, kShareByteCount);
    if (record.ownsLockFd) close(record.lockFd);
    record.lockFd = -1;
    record.ownsLockFd = false;
}

// Takes the record's bytes through fd and checks them against other descriptions; false with
// ERROR_SHARING_VIOLATION on a conflict. Where no lock can be taken the open stays process-local.
bool TakeShareLocks(OpenRecord& record, int fd) {
    // A file inside an image has no descriptor of its own: it shares within this process alone.
    if (fd < 0 || !TakesPartInSharing(record.access)) return true;
    bool owned = false;
    const int lockFd = LockableDescription(fd, owned);
    if (lockFd < 0) return true;
    record.lockFd = lockFd;
    record.ownsLockFd = owned;
    int error = 0;
    ForEachRun(ShareBytesOf(record.access, record.share).held, [&](off_t start, off_t count) {
        error = LockBytes(lockFd, F_RDLCK, start, count);
        return error == 0;
    });
    if (error != 0) {
        ReleaseShareLocks(record);
        // Another program's write lock on our bytes is a refusal; no locks on this file system is not.
        if (error == EAGAIN || error == EACCES) return Fail(ERROR_SHARING_VIOLATION, false);
        return true;
    }
    if (StandsAgainstOthers(lockFd, record.access, record.share)) {
        ReleaseShareLocks(record);
        return Fail(ERROR_SHARING_VIOLATION, false);
    }
    return true;
}

}  // namespace

bool CheckShare(dev_t device, ino_t inode, DWORD access, DWORD share) {
    std::lock_guard lock(g_sharesLock);
    return CheckShareLocked(device, inode, access, share);
}

bool CheckShareOfPath(const std::string& hostPath, const struct stat& status, DWORD access, DWORD share) {
    return CheckShareAt(AT_FDCWD, hostPath, status, access, share);
}

bool CheckShareAt(int folderFd, const std::string& name, const struct stat& status, DWORD access, DWORD share) {
    if (!CheckShare(status.st_dev, status.st_ino, access, share)) return false;
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) return true;
    const int fd = openat(folderFd, name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) return true;  // a file we cannot read carries no locks we could see
    const bool refused = StandsAgainstOthers(fd, access, share);
    close(fd);
    return refused ? Fail(ERROR_SHARING_VIOLATION, false) : true;
}

bool RegisterOpen(OpenRecord* record, int fd) {
    std::lock_guard lock(g_sharesLock);
    if (!CheckShareLocked(record->device, record->inode, record->access, record->share)) return false;
    if (!TakeShareLocks(*record, fd)) return false;
    g_opens.push_back(record);
    return true;
}

void UnregisterOpen(OpenRecord* record) {
    std::lock_guard lock(g_sharesLock);
    ReleaseShareLocks(*record);
    g_opens.erase(std::remove(g_opens.begin(), g_opens.end(), record), g_opens.end());
}

}  // namespace vlx
