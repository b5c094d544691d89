// CopyFileExW between host folders: one file copied in chunks beside its target and put in place only when
// it is whole, with the progress routine called as Windows calls it and a cancel flag another thread may set.
//
// The copy is written to a file of its own in the target's folder (nameless where the file system allows
// it) and renamed over the target at the end, so a copy that fails, is cancelled or runs out of disk
// leaves an existing target exactly as it was and nothing else behind. Data moves by the host's fastest
// route: a reflink clone where the file system shares blocks, else copy_file_range in the kernel, else
// read and write; holes of a sparse source are skipped, so the copy stays sparse.
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "file_object.h"
#include "host_kind.h"
#include "../core/scoped_handle.h"

namespace vlx {

namespace {

// Large enough that the progress routine is not called too often, small enough that a cancel is seen
// within a fraction of a second on a slow disk. A multiple of every block size, as a clone needs.
constexpr LONGLONG kChunkSize = 1 << 20;

bool IsCancelled(const BOOL* cancel) {
    // Another thread may set the flag while we copy: read it afresh, as memory shared with that thread.
    return cancel != nullptr && __atomic_load_n(cancel, __ATOMIC_RELAXED) != 0;
}

LARGE_INTEGER Large(LONGLONG value) {
    LARGE_INTEGER result;
    result.QuadPart = value;
    return result;
}

std::string FolderOf(const std::string& hostPath) {
    const size_t slash = hostPath.find_last_of('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? std::string("/") : hostPath.substr(0, slash);
}

// A name for the finished copy to wait under until it is renamed over its target, unlikely to meet
// anything the user keeps.
std::string PendingName(const std::string& folder) {
    static std::atomic<unsigned> counter{0};
    char name[64];
    std::snprintf(name, sizeof name, "/.~velmora-copy-%d-%u.tmp", static_cast<int>(getpid()), counter++);
    return (folder == "/" ? std::string() : folder) + name;
}

// The copy in the making. A copy that replaces a file is written beside it, in a nameless file of the
// target's folder where the file system makes one, else a named one, so that the old file stays whole
// until the new one is. A copy to a new name is made under that name at once, as Windows makes it: there
// is nothing to keep, and a nameless file costs the file system a journal entry per file. Either way it
// goes away on every way out that does not put it in place.
class PendingCopy {
public:
    // Makes the copy under target itself, which must not exist; false with errno (EEXIST when it does).
    bool CreateNew(const std::string& target) {
        fd_ = open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
        if (fd_ < 0) return false;
        name_ = target;
        inPlace_ = true;
        return true;
    }

    ~PendingCopy() {
        if (fd_ >= 0) close(fd_);
        if (!name_.empty()) unlink(name_.c_str());
    }

    bool Create(const std::string& folder) {
        folder_ = folder;
        // A nameless file is linked in through /proc, which needs no privilege; without /proc it is of no use.
        if (access("/proc/self/fd", X_OK) == 0) {
            fd_ = open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
            if (fd_ >= 0) return true;
            if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) return false;
        }
        for (int attempt = 0; attempt < 100; ++attempt) {
            const std::string name = PendingName(folder);
            fd_ = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
            if (fd_ >= 0) {
                name_ = name;
                return true;
            }
            if (errno != EEXIST) return false;
        }
        return false;
    }

    int fd() const { return fd_; }

    // Gives the finished copy a name of its own in the folder, for its attributes to be written; false
    // with errno.
    bool Name() {
        if (!name_.empty()) return true;
        char fdPath[64];
        std::snprintf(fdPath, sizeof fdPath, "/proc/self/fd/%d", fd_);
        for (int attempt = 0; attempt < 100; ++attempt) {
            const std::string name = PendingName(folder_);
            if (linkat(AT_FDCWD, fdPath, AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0) {
                name_ = name;
                return true;
            }
            if (errno != EEXIST) return false;
        }
        return false;
    }

    const std::string& name() const { return name_; }

    // Renames the copy over target (or, with noReplace, only where there is none); false with errno.
    bool PutInPlace(const std::string& target, bool noReplace) {
        close(fd_);
        fd_ = -1;
        if (inPlace_) {
        } else if (!noReplace) {
            if (rename(name_.c_str(), target.c_str()) != 0) return false;
        } else if (renameat2(AT_FDCWD, name_.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) != 0) {
            // A file system without the no-replace rename: a hard link fails just as well on an existing name.
            if (errno != EINVAL || link(name_.c_str(), target.c_str()) != 0) return false;
            unlink(name_.c_str());
        }
        name_.clear();
        return true;
    }

private:
    int fd_ = -1;
    std::string folder_;
    std::string name_;
    bool inPlace_ = false;  // name_ is the target's own
};

// Copies bytes [offset, end) of from into to at the same offsets, by the kernel where it can; false with
// errno. A source that ends early ends the copy there.
bool CopyData(int from, int to, off_t offset, off_t end, bool& kernelCopies, std::vector<char>& buffer) {
    while (offset < end) {
        const size_t count = static_cast<size_t>(end - offset);
        ssize_t copied;
        if (kernelCopies) {
            off_t in = offset;
            off_t out = offset;
            copied = copy_file_range(from, &in, to, &out, count, 0);
            if (copied < 0 && (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP)) {
                kernelCopies = false;  // the kernel cannot copy between these two files: read and write
                continue;
            }
        } else {
            buffer.resize(static_cast<size_t>(kChunkSize));
            copied = pread(from, buffer.data(), std::min(count, buffer.size()), offset);
            for (ssize_t written = 0; copied > 0 && written < copied;) {
                const ssize_t put = pwrite(to, buffer.data() + written, static_cast<size_t>(copied - written), offset + written);
                if (put < 0 && errno != EINTR) return false;
                if (put > 0) written += put;
            }
        }
        if (copied < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (copied == 0) return true;
        offset += copied;
    }
    return true;
}

// One chunk [offset, end) of the file. A clone shares the blocks, holes included; otherwise only the
// stretches that hold data are copied and the holes stay holes. False with errno.
struct Route {
    bool clones = true;
    bool kernelCopies = true;
    bool seeksData = true;
};

// The last file system that refused to share blocks, so that a tree of small files copied onto it does
// not ask again for every file.
std::atomic<dev_t> g_refusesClones{static_cast<dev_t>(-1)};

// The route for a source of this status to a copy on the device target: a file with as many blocks as
// bytes has no holes to look for.
Route RouteFor(const struct stat& source, dev_t target) {
    Route route;
    route.clones = g_refusesClones.load() != target;
    route.seeksData = static_cast<LONGLONG>(source.st_blocks) * 512 < static_cast<LONGLONG>(source.st_size);
    return route;
}

bool CopyChunk(int from, int to, off_t offset, off_t end, Route& route, std::vector<char>& buffer) {
    if (route.clones) {
        file_clone_range range{};
        range.src_fd = from;
        range.src_offset = static_cast<__u64>(offset);
        range.src_length = static_cast<__u64>(end - offset);
        range.dest_offset = static_cast<__u64>(offset);
        if (ioctl(to, FICLONERANGE, &range) == 0) return true;
        // Not a file system that shares blocks, or not between these two files.
        route.clones = false;
        struct stat target {};
        if ((errno == EOPNOTSUPP || errno == ENOTTY) && fstat(to, &target) == 0) g_refusesClones = target.st_dev;
    }
    if (!route.seeksData) return CopyData(from, to, offset, end, route.kernelCopies, buffer);
    while (offset < end) {
        const off_t data = lseek(from, offset, SEEK_DATA);
        if (data < 0) {
            if (errno == ENXIO) return true;  // a hole up to the end of the file
            route.seeksData = false;          // the file system cannot tell holes: copy it all
            return CopyData(from, to, offset, end, route.kernelCopies, buffer);
        }
        if (data >= end) return true;
        off_t hole = lseek(from, data, SEEK_HOLE);
        if (hole < 0 || hole > end) hole = end;
        if (!CopyData(from, to, data, hole, route.kernelCopies, buffer)) return false;
        offset = hole;
    }
    return true;
}

}  // namespace

BOOL HostKind::CopyFile(LPCWSTR existing, LPCWSTR newName, LPPROGRESS_ROUTINE progress, LPVOID data, LPBOOL cancel,
                        DWORD flags) {
    if (IsCancelled(cancel)) return Fail(ERROR_REQUEST_ABORTED, FALSE);

    // A folder cannot be opened without backup semantics, so a folder source fails with
    // ERROR_ACCESS_DENIED here, as CopyFileExW fails for one.
    ScopedHandle source(OpenCopySource(existing));
    if (!source) return FALSE;
    const auto from = LookupHandleAs<FileObject>(source.get());
    struct stat sourceStatus {};
    if (fstat(from->fd, &sourceStatus) != 0) return Fail(Win32ErrorFromErrno(errno), FALSE);
    const DWORD attributes = HostAttributes(from->hostPath, sourceStatus, false);

    ResolvedPath resolved;
    if (!Resolve(newName, resolved)) return FALSE;
    // An existing target is held open for writing until the copy replaces it: that fails for a folder, a
    // read-only file or one another handle forbids, and for the source itself, before anything is written.
    const bool replacing = resolved.exists;
    ScopedHandle held;
    std::string targetHostPath = resolved.hostPath;
    mode_t keptMode = 0;
    if (replacing || resolved.trailingSeparator) {
        if (replacing && (flags & COPY_FILE_FAIL_IF_EXISTS)) return Fail(ERROR_FILE_EXISTS, FALSE);
        held.reset(CreateFileW(newName, GENERIC_WRITE, kCopyTargetShare, nullptr, OPEN_EXISTING, 0, nullptr));
        if (!held) return FALSE;
        const auto old = LookupHandleAs<FileObject>(held.get());
        struct stat oldStatus {};
        if (fstat(old->fd, &oldStatus) != 0) return Fail(Win32ErrorFromErrno(errno), FALSE);
        // A hidden or system target may only be replaced by a file that is hidden or system as well.
        const DWORD oldAttributes = HostAttributes(old->hostPath, oldStatus, false);
        if ((oldAttributes & (FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM)) & ~attributes) return Fail(ERROR_ACCESS_DENIED, FALSE);
        keptMode = oldStatus.st_mode & 07777;
        // A link to a file is written through, as opening it would: the file it leads to is replaced.
        if (S_ISLNK(resolved.status.st_mode)) {
            char* real = realpath(resolved.hostPath.c_str(), nullptr);
            if (real == nullptr) return Fail(Win32ErrorFromErrno(errno), FALSE);
            targetHostPath = real;
            std::free(real);
        }
    }

    PendingCopy copy;
    if (!replacing && !copy.CreateNew(targetHostPath)) {
        // A file that appeared since the target was looked at passed none of the checks above: it is
        // kept, as an existing file is kept when the caller asks so.
        return Fail(errno == EEXIST ? ERROR_FILE_EXISTS : Win32ErrorFromErrno(errno), FALSE);
    }
    if (replacing && !copy.Create(FolderOf(targetHostPath))) return Fail(Win32ErrorFromErrno(errno), FALSE);
    // The replaced file's permissions stay with its name.
    if (replacing && fchmod(copy.fd(), keptMode) != 0) return Fail(Win32ErrorFromErrno(errno), FALSE);
    // The routine is handed the copy being written as the target, as Windows hands it the new file.
    struct stat copyStatus {};
    fstat(copy.fd(), &copyStatus);
    auto targetObject = std::make_shared<FileObject>(fcntl(copy.fd(), F_DUPFD_CLOEXEC, 0), targetHostPath, resolved.win32Path(),
                                                     ExpandAccess(GENERIC_WRITE), 0, false, false, copyStatus);
    targetObject->anchor = resolved.anchor;
    ScopedHandle target(InsertHandle(std::move(targetObject)));

    const LONGLONG total = sourceStatus.st_size;
    bool quiet = progress == nullptr;
    // Puts what was copied so far under the target's name, for a copy the routine stopped to be taken up
    // again later; a file that was there before is kept instead.
    auto keepPartial = [&]() {
        if (!replacing && copy.Name()) copy.PutInPlace(targetHostPath, true);
        return Fail(ERROR_REQUEST_ABORTED, FALSE);
    };
    // The answer of the routine: true to go on.
    auto report = [&](DWORD reason, LONGLONG done, bool& stopped) {
        if (quiet) return true;
        const DWORD answer = progress(Large(total), Large(done), Large(total), Large(done), 1, reason, source.get(),
                                      target.get(), data);
        if (answer == PROGRESS_QUIET) quiet = true;
        stopped = answer == PROGRESS_STOP;
        return answer != PROGRESS_CANCEL && answer != PROGRESS_STOP;
    };

    bool stopped = false;
    if (!report(CALLBACK_STREAM_SWITCH, 0, stopped)) return stopped ? keepPartial() : Fail(ERROR_REQUEST_ABORTED, FALSE);
    Route route = RouteFor(sourceStatus, copyStatus.st_dev);
    std::vector<char> buffer;
    LONGLONG done = 0;
    while (done < total) {
        if (IsCancelled(cancel)) return Fail(ERROR_REQUEST_ABORTED, FALSE);
        const LONGLONG end = std::min(total, done + kChunkSize);
        if (!CopyChunk(from->fd, copy.fd(), static_cast<off_t>(done), static_cast<off_t>(end), route, buffer))
            return Fail(Win32ErrorFromErrno(errno), FALSE);
        done = end;
        if (!report(CALLBACK_CHUNK_FINISHED, done, stopped)) return stopped ? keepPartial() : Fail(ERROR_REQUEST_ABORTED, FALSE);
    }
    // Holes at the end of the source, and a source that got shorter while we copied: the copy ends where
    // the source ended, never past the size it had when the copy began.
    struct stat now {};
    const off_t length = fstat(from->fd, &now) == 0 ? std::min<off_t>(now.st_size, total) : total;
    if (ftruncate(copy.fd(), length) != 0) return Fail(Win32ErrorFromErrno(errno), FALSE);

    // The last-write time goes over as it is; the access time is the copy's own.
    const struct timespec times[2] = {{0, UTIME_OMIT}, sourceStatus.st_mtim};
    if (futimens(copy.fd(), times) != 0) return Fail(Win32ErrorFromErrno(errno), FALSE);
    if (!copy.Name()) return Fail(Win32ErrorFromErrno(errno), FALSE);
    // A fresh file reads as archive and nothing else; anything more goes into it before it takes the
    // target's place, read-only last of all.
    const DWORD wanted = attributes & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE);
    if (wanted != FILE_ATTRIBUTE_ARCHIVE) {
        struct stat copyStatus {};
        if (fstat(copy.fd(), &copyStatus) != 0) return Fail(Win32ErrorFromErrno(errno), FALSE);
        if (!WriteHostAttributes(copy.name(), copyStatus, wanted)) return FALSE;
    }
    if (!copy.PutInPlace(targetHostPath, !replacing && (flags & COPY_FILE_FAIL_IF_EXISTS)))
        return Fail(errno == EEXIST ? ERROR_FILE_EXISTS : Win32ErrorFromErrno(errno), FALSE);
    SetLastErrorCode(ERROR_SUCCESS);
    return TRUE;
}

}  // namespace vlx
