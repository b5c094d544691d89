// CopyFileW and CopyFileExW: one file copied in chunks, with the progress routine called as Windows calls
// it, a cancel flag another thread may set, and no partial target left behind when the copy stops.
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "file_object.h"
#include "image_calls.h"
#include "../core/scoped_handle.h"

namespace vlx {

namespace {

// Large enough that the progress routine is not called too often, small enough that a cancel is seen
// within a fraction of a second on a slow disk.
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

// Copies up to count bytes from offset; the count copied (0 at the end of the source), or -1 with errno.
ssize_t CopyRange(int from, int to, off_t offset, size_t count, std::vector<char>& buffer) {
    off_t in = offset;
    off_t out = offset;
    const ssize_t copied = copy_file_range(from, &in, to, &out, count, 0);
    if (copied >= 0) return copied;
    if (errno != EXDEV && errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP) return -1;
    // The kernel cannot copy between these two files: read and write through a buffer.
    buffer.resize(count);
    ssize_t got;
    do got = pread(from, buffer.data(), count, offset);
    while (got < 0 && errno == EINTR);
    if (got <= 0) return got;
    for (ssize_t written = 0; written < got;) {
        const ssize_t put = pwrite(to, buffer.data() + written, static_cast<size_t>(got - written), offset + written);
        if (put < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        written += put;
    }
    return got;
}

}  // namespace

BOOL WINAPI CopyFileExW(LPCWSTR existing, LPCWSTR newName, LPPROGRESS_ROUTINE progress, LPVOID data, LPBOOL cancel,
                        DWORD flags) {
    if (auto answer = ImageCopyFile(existing, newName, progress, data, cancel, flags)) return *answer;
    if (existing == nullptr || newName == nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    if (IsCancelled(cancel)) return Fail(ERROR_REQUEST_ABORTED, FALSE);

    // A folder cannot be opened without backup semantics, so a folder source fails with
    // ERROR_ACCESS_DENIED here, as CopyFileExW fails for one.
    ScopedHandle source(CreateFileW(existing, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (!source) return FALSE;
    const auto from = LookupHandleAs<FileObject>(source.get());
    struct stat sourceStatus {};
    if (fstat(from->fd, &sourceStatus) != 0) return Fail(Win32ErrorFromErrno(errno), FALSE);
    const DWORD attributes = HostAttributes(from->hostPath, sourceStatus, false);

    // Opened for writing while the source is open without write sharing, so copying a file onto itself
    // fails with ERROR_SHARING_VIOLATION before anything is truncated. A hidden or system target may
    // only be replaced by a file that is hidden or system as well.
    const DWORD disposition = (flags & COPY_FILE_FAIL_IF_EXISTS) ? CREATE_NEW : CREATE_ALWAYS;
    ScopedHandle target(CreateFileW(newName, GENERIC_WRITE, 0, nullptr, disposition,
                                    attributes & (FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM), nullptr));
    if (!target) return FALSE;
    const bool replacing = LastError() == ERROR_ALREADY_EXISTS;
    const auto to = LookupHandleAs<FileObject>(target.get());
    const std::string targetHostPath = to->hostPath;

    // Every way out from here on that is not a finished copy takes the partial target away.
    auto abandon = [&](DWORD error) {
        target.reset();
        unlink(targetHostPath.c_str());
        return Fail(error, FALSE);
    };

    const LONGLONG total = sourceStatus.st_size;
    bool quiet = progress == nullptr;
    // The answer of the routine: true to go on.
    auto report = [&](DWORD reason, LONGLONG done, bool& keepPartial) {
        if (quiet) return true;
        const DWORD answer = progress(Large(total), Large(done), Large(total), Large(done), 1, reason, source.get(),
                                      target.get(), data);
        if (answer == PROGRESS_QUIET) quiet = true;
        keepPartial = answer == PROGRESS_STOP;
        return answer != PROGRESS_CANCEL && answer != PROGRESS_STOP;
    };

    bool keepPartial = false;
    if (!report(CALLBACK_STREAM_SWITCH, 0, keepPartial)) {
        if (keepPartial) return Fail(ERROR_REQUEST_ABORTED, FALSE);
        return abandon(ERROR_REQUEST_ABORTED);
    }
    std::vector<char> buffer;
    LONGLONG done = 0;
    while (done < total) {
        if (IsCancelled(cancel)) return abandon(ERROR_REQUEST_ABORTED);
        const size_t count = static_cast<size_t>(std::min(kChunkSize, total - done));
        const ssize_t copied = CopyRange(from->fd, to->fd, static_cast<off_t>(done), count, buffer);
        if (copied < 0) return abandon(Win32ErrorFromErrno(errno));
        if (copied == 0) break;  // the source got shorter while we copied: what there was is copied
        done += copied;
        if (!report(CALLBACK_CHUNK_FINISHED, done, keepPartial)) {
            if (keepPartial) return Fail(ERROR_REQUEST_ABORTED, FALSE);
            return abandon(ERROR_REQUEST_ABORTED);
        }
    }

    // The last-write time goes over as it is; the access time is the copy's own.
    const struct timespec times[2] = {{0, UTIME_OMIT}, sourceStatus.st_mtim};
    if (futimens(to->fd, times) != 0) return abandon(Win32ErrorFromErrno(errno));
    // Read-only comes last, once nothing more is written to the copy. A new copy already holds what its
    // creation wrote (hidden, system and archive) and needs no second write when that is all there is.
    const DWORD written = (attributes & (FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM)) | FILE_ATTRIBUTE_ARCHIVE;
    const DWORD wanted = attributes & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE);
    const bool writeAttributes = replacing || wanted != written;
    struct stat targetStatus {};
    if (writeAttributes && fstat(to->fd, &targetStatus) != 0) return abandon(Win32ErrorFromErrno(errno));
    target.reset();
    source.reset();
    if (writeAttributes && !WriteHostAttributes(targetHostPath, targetStatus, attributes)) return FALSE;
    SetLastErrorCode(ERROR_SUCCESS);
    return TRUE;
}

BOOL WINAPI CopyFileW(LPCWSTR existing, LPCWSTR newName, BOOL failIfExists) {
    return CopyFileExW(existing, newName, nullptr, nullptr, nullptr, failIfExists ? COPY_FILE_FAIL_IF_EXISTS : 0);
}

}  // namespace vlx
