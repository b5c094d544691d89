// Attribute words and time stamps of host entries. Hidden, system and archive live in the
// user.DOSATTRIB extended attribute as "0x<hex>", the convention Samba and Wine share.
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <fcntl.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <ctime>

#include "../core/internal.h"

namespace vlx {

namespace {

constexpr const char* kDosAttributeName = "user.DOSATTRIB";
constexpr DWORD kStoredBits = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE;
// A folder's read-only bit is stored too: Windows does not stop anything being made in a read-only
// folder, so it must not take the folder's write permission away.
constexpr DWORD kStoredFolderBits = kStoredBits | FILE_ATTRIBUTE_READONLY;
constexpr LONGLONG kTicksAt1970 = 116444736000000000;
constexpr LONGLONG kTicksPerSecond = 10000000;

DWORD StoredBitsFor(bool isFolder) { return isFolder ? kStoredFolderBits : kStoredBits; }

// The stored words read lately, by file and change time, so that reading an entry's attributes right
// after listing it (as every walk does: find, then the file's length and times) costs no second call.
// Setting an extended attribute moves the file's change time to the clock's present tick, so a word
// remembered under the change time the file still has is the word stored now, provided that time was
// already past when the word was read: a file changed within the present tick is never remembered, since
// a second change in the same tick would leave its change time as it was. What this process writes is
// forgotten at once besides. One slot per file index, overwritten by the next file that falls on it: the
// memory stays small and lookups cost no allocation.
class StoredWordMemory {
public:
    bool Find(const struct stat& status, long& word) {
        std::lock_guard guard(lock_);
        const Slot& slot = slots_[IndexOf(status)];
        if (!slot.used || !Same(slot, status)) return false;
        word = slot.word;
        return true;
    }
    void Keep(const struct stat& status, long word) {
        std::lock_guard guard(lock_);
        slots_[IndexOf(status)] = Slot{true, status.st_dev, status.st_ino, status.st_ctim, word};
    }
    void Forget(const struct stat& status) {
        std::lock_guard guard(lock_);
        Slot& slot = slots_[IndexOf(status)];
        if (slot.device == status.st_dev && slot.inode == status.st_ino) slot.used = false;
    }

private:
    struct Slot {
        bool used = false;
        dev_t device = 0;
        ino_t inode = 0;
        struct timespec changed {};
        long word = -1;
    };
    static constexpr size_t kSlots = size_t(1) << 16;
    static size_t IndexOf(const struct stat& status) {
        return (std::hash<ino_t>()(status.st_ino) ^ (std::hash<dev_t>()(status.st_dev) * 31)) & (kSlots - 1);
    }
    static bool Same(const Slot& slot, const struct stat& status) {
        return slot.device == status.st_dev && slot.inode == status.st_ino && slot.changed.tv_sec == status.st_ctim.tv_sec &&
               slot.changed.tv_nsec == status.st_ctim.tv_nsec;
    }
    std::mutex lock_;
    std::array<Slot, kSlots> slots_{};
};

// Whether the entry's last change lies before the present tick of the clock that stamps changes, by a
// margin that leaves room for the file system's own rounding.
struct timespec CoarseNow() {
    struct timespec now {};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return now;
}

std::atomic<PresentClock> g_present{&CoarseNow};

bool ChangedBeforeNow(const struct stat& status) {
    constexpr long kMarginNanoseconds = 50 * 1000 * 1000;
    const struct timespec now = g_present.load()();
    const long long nowNs = static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec;
    const long long changedNs = static_cast<long long>(status.st_ctim.tv_sec) * 1000000000LL + status.st_ctim.tv_nsec;
    return changedNs < nowNs - kMarginNanoseconds;
}

StoredWordMemory& Remembered() {
    static StoredWordMemory memory;
    return memory;
}

// The raw stored word, or -1 when the entry has none stored.
long ReadStoredWord(const std::string& hostPath) {
    char text[64] = {};
    const ssize_t length = lgetxattr(hostPath.c_str(), kDosAttributeName, text, sizeof text - 1);
    if (length <= 0) return -1;
    text[length] = 0;
    char* end = nullptr;
    const unsigned long value = std::strtoul(text, &end, 0);
    if (end == text) return -1;
    return static_cast<long>(value & kStoredFolderBits);
}

// What an entry with nothing stored reads as: a file nobody marked is new, to be backed up.
DWORD ImpliedStoredBits(bool isFolder) { return isFolder ? 0 : FILE_ATTRIBUTE_ARCHIVE; }

bool IsFolderEntry(const std::string& hostPath, const struct stat& status) {
    if (S_ISDIR(status.st_mode)) return true;
    struct stat target {};
    return S_ISLNK(status.st_mode) && stat(hostPath.c_str(), &target) == 0 && S_ISDIR(target.st_mode);
}

bool WriteStoredWord(const std::string& hostPath, DWORD word) {
    char text[32];
    const int length = std::snprintf(text, sizeof text, "0x%x", static_cast<unsigned>(word));
    return lsetxattr(hostPath.c_str(), kDosAttributeName, text, static_cast<size_t>(length), 0) == 0;
}

// Puts the stored word back as it was before a failed change: the old text, or none at all.
void RestoreStoredWord(const std::string& hostPath, long previous) {
    if (previous < 0) lremovexattr(hostPath.c_str(), kDosAttributeName);
    else WriteStoredWord(hostPath, static_cast<DWORD>(previous));
}

}  // namespace

void SetPresentClock(PresentClock clock) { g_present = clock != nullptr ? clock : &CoarseNow; }

FILETIME FileTimeFromTimespec(const struct timespec& time) {
    const LONGLONG ticks = static_cast<LONGLONG>(time.tv_sec) * kTicksPerSecond + time.tv_nsec / 100 + kTicksAt1970;
    const ULONGLONG value = ticks < 0 ? 0 : static_cast<ULONGLONG>(ticks);
    return FILETIME{static_cast<DWORD>(value), static_cast<DWORD>(value >> 32)};
}

struct timespec TimespecFromFileTime(const FILETIME& time) {
    const LONGLONG ticks = static_cast<LONGLONG>((static_cast<ULONGLONG>(time.dwHighDateTime) << 32) | time.dwLowDateTime);
    LONGLONG since = ticks - kTicksAt1970;
    LONGLONG seconds = since / kTicksPerSecond;
    LONGLONG rest = since % kTicksPerSecond;
    if (rest < 0) {
        rest += kTicksPerSecond;
        --seconds;
    }
    struct timespec result {};
    result.tv_sec = static_cast<time_t>(seconds);
    result.tv_nsec = static_cast<long>(rest * 100);
    return result;
}

DWORD HostAttributes(const std::string& hostPath, const struct stat& status, bool isVolumeRoot) {
    const bool isLink = S_ISLNK(status.st_mode);
    const bool isFolder = IsFolderEntry(hostPath, status);
    DWORD attributes = 0;
    // A link appears as a reparse point; one that leads to a folder is a folder, as a junction is.
    if (isLink) attributes |= FILE_ATTRIBUTE_REPARSE_POINT;
    if (isFolder) attributes |= FILE_ATTRIBUTE_DIRECTORY;
    // A folder nobody may write into reads as read-only, whatever is stored; a link has no permissions.
    if (!isLink && (status.st_mode & S_IWUSR) == 0) attributes |= FILE_ATTRIBUTE_READONLY;
    long stored = -1;
    if (!Remembered().Find(status, stored)) {
        const bool settled = ChangedBeforeNow(status);  // the clock read before the word is
        stored = ReadStoredWord(hostPath);
        if (settled) Remembered().Keep(status, stored);
    }
    attributes |= stored >= 0 ? static_cast<DWORD>(stored) & StoredBitsFor(isFolder) : ImpliedStoredBits(isFolder);
    if (isVolumeRoot) attributes |= FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;  // as NTFS roots report
    return attributes == 0 ? FILE_ATTRIBUTE_NORMAL : attributes;
}

// Either the whole word is written or nothing changes. The user.DOSATTRIB write needs the entry to be
// writable by its owner, so an entry that is not is made writable for the write and the permission
// put back after it; each later step that fails undoes the earlier ones. Links carry no permissions
// and no user attributes on Linux, so a link keeps what it reads as and any other word is refused.
bool WriteHostAttributes(const std::string& hostPath, const struct stat& status, DWORD attributes) {
    const bool isFolder = IsFolderEntry(hostPath, status);
    const DWORD storedMask = StoredBitsFor(isFolder);
    // Whatever happens below, the word read before it is no longer to be trusted.
    Remembered().Forget(status);
    const long previous = ReadStoredWord(hostPath);
    const DWORD current = previous >= 0 ? static_cast<DWORD>(previous) & storedMask : ImpliedStoredBits(isFolder);
    const DWORD wanted = attributes & storedMask;
    const bool storeChanges = wanted != current;

    if (S_ISLNK(status.st_mode)) {
        const bool asksReadOnly = (attributes & FILE_ATTRIBUTE_READONLY) != 0;
        if (storeChanges || asksReadOnly) return Fail(ERROR_NOT_SUPPORTED, false);
        return true;
    }

    const mode_t before = status.st_mode & 07777;
    mode_t after = before;
    const bool readOnly = (attributes & FILE_ATTRIBUTE_READONLY) != 0;
    if (!readOnly) after |= S_IWUSR;                 // a writable entry, file or folder, is not read-only
    else if (!isFolder) after &= static_cast<mode_t>(~S_IWUSR);  // a folder keeps its write permission
    const bool needsWritable = storeChanges && (before & S_IWUSR) == 0;

    if (needsWritable && chmod(hostPath.c_str(), before | S_IWUSR) != 0) return Fail(Win32ErrorFromErrno(errno), false);
    if (storeChanges && !WriteStoredWord(hostPath, wanted)) {
        const int error = errno;
        if (needsWritable) chmod(hostPath.c_str(), before);
        return Fail(Win32ErrorFromErrno(error), false);
    }
    const mode_t nowMode = needsWritable ? (before | S_IWUSR) : before;
    if (after != nowMode && chmod(hostPath.c_str(), after) != 0) {
        const int error = errno;
        if (storeChanges) RestoreStoredWord(hostPath, previous);
        if (nowMode != before) chmod(hostPath.c_str(), before);
        return Fail(Win32ErrorFromErrno(error), false);
    }
    return true;
}

namespace {

struct timespec FromStatx(const struct statx_timestamp& time) {
    struct timespec result {};
    result.tv_sec = time.tv_sec;
    result.tv_nsec = time.tv_nsec;
    return result;
}

}  // namespace

bool StatHost(const std::string& hostPath, HostStatus& out) { return StatHostAt(AT_FDCWD, hostPath.c_str(), out); }

bool StatHostAt(int folder, const char* name, HostStatus& out) {
    struct statx x {};
    if (statx(folder, name, AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME, &x) != 0) return false;
    struct stat& st = out.status;
    st = {};
    st.st_dev = makedev(x.stx_dev_major, x.stx_dev_minor);
    st.st_ino = x.stx_ino;
    st.st_mode = x.stx_mode;
    st.st_nlink = x.stx_nlink;
    st.st_uid = x.stx_uid;
    st.st_gid = x.stx_gid;
    st.st_rdev = makedev(x.stx_rdev_major, x.stx_rdev_minor);
    st.st_size = static_cast<off_t>(x.stx_size);
    st.st_blksize = static_cast<blksize_t>(x.stx_blksize);
    st.st_blocks = static_cast<blkcnt_t>(x.stx_blocks);
    st.st_atim = FromStatx(x.stx_atime);
    st.st_mtim = FromStatx(x.stx_mtime);
    st.st_ctim = FromStatx(x.stx_ctime);
    out.hasBirth = (x.stx_mask & STATX_BTIME) != 0;
    out.birth = out.hasBirth ? FromStatx(x.stx_btime) : st.st_mtim;
    return true;
}

FileTimes HostTimes(const HostStatus& entry) {
    FileTimes times{};
    times.accessed = FileTimeFromTimespec(entry.status.st_atim);
    times.written = FileTimeFromTimespec(entry.status.st_mtim);
    times.created = entry.hasBirth ? FileTimeFromTimespec(entry.birth) : times.written;
    return times;
}

FileTimes HostTimes(const std::string& hostPath, const struct stat& status) {
    HostStatus entry;
    entry.status = status;
    HostStatus fresh;
    if (StatHost(hostPath, fresh) && fresh.hasBirth) {
        entry.hasBirth = true;
        entry.birth = fresh.birth;
    }
    return HostTimes(entry);
}

}  // namespace vlx
