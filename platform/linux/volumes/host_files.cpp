// The host-folder kind of volume: files, folders, attributes and links in a Linux folder behind a drive
// letter, failing with the codes Windows gives.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "file_object.h"
#include "host_kind.h"
#include "../core/table.h"

namespace vlx {

FileObject::FileObject(int fd_, std::string hostPath_, WString win32Path_, DWORD access_, DWORD share_, bool isFolder_,
                       bool deleteOnClose_, const struct stat& status)
    : fd(fd_), hostPath(std::move(hostPath_)), win32Path(std::move(win32Path_)), access(access_), isFolder(isFolder_),
      deleteOnClose(deleteOnClose_), shortReadIsEnd_(S_ISREG(status.st_mode) && status.st_size > 0) {
    record.device = status.st_dev;
    record.inode = status.st_ino;
    record.access = access_;
    record.share = share_;
}

bool FileObject::Register() {
    registered_ = RegisterOpen(&record, fd);
    return registered_;
}

FileObject::~FileObject() {
    if (registered_) UnregisterOpen(&record);
    if (deleteOnClose) {
        if (isFolder) rmdir(hostPath.c_str());
        else unlink(hostPath.c_str());
    }
    if (fd >= 0) close(fd);
}

namespace {

constexpr DWORD kWriteRights = FILE_WRITE_DATA | FILE_APPEND_DATA;
constexpr DWORD kReadRights = FILE_READ_DATA;

bool IsLinkToFolder(const ResolvedPath& path) {
    struct stat target {};
    return S_ISLNK(path.status.st_mode) && stat(path.hostPath.c_str(), &target) == 0 && S_ISDIR(target.st_mode);
}

bool IsFolder(const ResolvedPath& path) { return S_ISDIR(path.status.st_mode) || IsLinkToFolder(path); }

// Whether an existing entry that is not a folder is a regular file (through a link, what it leads to).
// Pipes, sockets and devices have no data Windows could read as a file's: a read may wait for a writer
// or never end.
bool IsOpenableFile(const ResolvedPath& path) {
    if (!S_ISLNK(path.status.st_mode)) return S_ISREG(path.status.st_mode);
    struct stat target {};
    return stat(path.hostPath.c_str(), &target) != 0 || S_ISREG(target.st_mode);  // a dangling link fails to open
}

// After a non-blocking open: true, back in blocking mode, for a regular file.
bool RegularAfterOpen(int fd) {
    struct stat status {};
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return false;
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    return true;
}

DWORD AttributesOf(const ResolvedPath& path) { return HostAttributes(path.hostPath, path.status, path.isRoot()); }

// Whether a folder of a host volume is the current folder itself, reached by whatever name: Windows holds
// the folder open, not its path.
bool IsCurrentFolderObject(const struct stat& status) {
    const DWORD kept = LastError();
    const WString current = CurrentDirectory();
    ResolvedPath resolved;
    struct stat folder {};
    const bool found = Resolve(current.c_str(), resolved) && resolved.exists && stat(resolved.hostPath.c_str(), &folder) == 0;
    SetLastErrorCode(kept);
    return found && folder.st_dev == status.st_dev && folder.st_ino == status.st_ino;
}

// The error for a missing entry: the last name is missing, so the file is not found.
DWORD MissingError(const ResolvedPath& path) { return path.trailingSeparator ? ERROR_PATH_NOT_FOUND : ERROR_FILE_NOT_FOUND; }

HANDLE OpenFolder(const ResolvedPath& path, DWORD access, DWORD share, DWORD flags) {
    const int fd = open(path.hostPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return Fail(Win32ErrorFromErrno(errno), INVALID_HANDLE_VALUE);
    struct stat status {};
    fstat(fd, &status);
    auto object = std::make_shared<FileObject>(fd, path.hostPath, path.win32Path(), access, share, true,
                                               (flags & FILE_FLAG_DELETE_ON_CLOSE) != 0, status);
    object->anchor = path.anchor;
    if (!object->Register()) return INVALID_HANDLE_VALUE;
    return InsertHandle(std::move(object));
}

}  // namespace

HANDLE HostKind::CreateFile(LPCWSTR path, DWORD access, DWORD share, DWORD disposition, DWORD flags) {
    ResolvedPath resolved;
    if (!Resolve(path, resolved)) return INVALID_HANDLE_VALUE;
    const DWORD rights = ExpandAccess(access);

    if (resolved.exists && IsFolder(resolved)) {
        if ((flags & FILE_FLAG_BACKUP_SEMANTICS) == 0) return Fail(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE);
        if (disposition == CREATE_NEW) return Fail(ERROR_FILE_EXISTS, INVALID_HANDLE_VALUE);
        if (disposition != OPEN_EXISTING && disposition != OPEN_ALWAYS) return Fail(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE);
        HANDLE handle = OpenFolder(resolved, rights, share, flags);
        if (handle != INVALID_HANDLE_VALUE) SetLastErrorCode(disposition == OPEN_ALWAYS ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
        return handle;
    }
    if (resolved.trailingSeparator) return Fail(resolved.exists ? ERROR_INVALID_NAME : ERROR_PATH_NOT_FOUND, INVALID_HANDLE_VALUE);

    int openFlags = O_CLOEXEC | O_NOFOLLOW;
    if ((rights & kWriteRights) && (rights & kReadRights)) openFlags |= O_RDWR;
    else if (rights & kWriteRights) openFlags |= O_WRONLY;
    else openFlags |= O_RDONLY;

    DWORD successCode = ERROR_SUCCESS;
    bool created = false;
    const bool truncates = resolved.exists && (disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING);
    if (resolved.exists) {
        if (S_ISLNK(resolved.status.st_mode)) openFlags &= ~O_NOFOLLOW;  // a link to a file opens its target
        if (!IsOpenableFile(resolved) && ((rights & (kReadRights | kWriteRights)) != 0 || disposition != OPEN_EXISTING))
            return Fail(ERROR_CANT_ACCESS_FILE, INVALID_HANDLE_VALUE);
        const DWORD attributes = AttributesOf(resolved);
        if (disposition == CREATE_NEW) return Fail(ERROR_FILE_EXISTS, INVALID_HANDLE_VALUE);
        // A read-only file may be opened for deletion (to be renamed, say), but not deleted by closing it.
        if ((attributes & FILE_ATTRIBUTE_READONLY) && ((rights & kWriteRights) || truncates || (flags & FILE_FLAG_DELETE_ON_CLOSE)))
            return Fail(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE);
        // Replacing a hidden or system file needs the same attribute asked for again.
        if (disposition == CREATE_ALWAYS &&
            (attributes & (FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM)) & ~(flags & (FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM)))
            return Fail(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE);
        if (!CheckShare(resolved.status.st_dev, resolved.status.st_ino, rights | (truncates ? FILE_WRITE_DATA : 0), share))
            return INVALID_HANDLE_VALUE;
        if (disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS) successCode = ERROR_ALREADY_EXISTS;
        if (truncates && (openFlags & O_ACCMODE) == O_RDONLY) openFlags = (openFlags & ~O_ACCMODE) | O_WRONLY;
    } else {
        if (disposition == OPEN_EXISTING || disposition == TRUNCATE_EXISTING) return Fail(MissingError(resolved), INVALID_HANDLE_VALUE);
        openFlags |= O_CREAT | O_EXCL;
        if ((openFlags & O_ACCMODE) == O_RDONLY && (rights & kReadRights) == 0) openFlags = (openFlags & ~O_ACCMODE) | O_RDWR;
        created = true;
    }

    int fd;
    if (resolved.exists && !IsOpenableFile(resolved)) {
        // A pipe, socket or device is looked at, never opened: opening one can wait for a writer.
        fd = open(resolved.hostPath.c_str(), O_PATH | O_CLOEXEC);
    } else {
        // Non-blocking only until the file is known to be a file: a pipe put in its place since it was
        // looked up must not hold the open.
        fd = open(resolved.hostPath.c_str(), openFlags | O_NONBLOCK, 0666);
        if (fd < 0 && errno == EACCES && (openFlags & O_ACCMODE) == O_RDONLY && (rights & kReadRights) == 0) {
            // An open for attributes only needs no permission to read the data.
            fd = open(resolved.hostPath.c_str(), O_PATH | O_CLOEXEC);
        } else if (fd >= 0 && !RegularAfterOpen(fd)) {
            close(fd);
            return Fail(ERROR_CANT_ACCESS_FILE, INVALID_HANDLE_VALUE);
        }
    }
    if (fd < 0) return Fail(errno == ELOOP ? ERROR_CANT_RESOLVE_FILENAME : Win32ErrorFromErrno(errno), INVALID_HANDLE_VALUE);
    // The open file is the one resolved unless the name was a link or a new file; only the identity of
    // the file (device and inode) is kept, for the share registry.
    struct stat status = resolved.status;
    if (created || S_ISLNK(resolved.status.st_mode)) fstat(fd, &status);
    if (created) {
        // A new file reads as archive with nothing stored, so only other attributes need a write.
        const DWORD wanted = (flags & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM)) | FILE_ATTRIBUTE_ARCHIVE;
        if (wanted != FILE_ATTRIBUTE_ARCHIVE) WriteHostAttributes(resolved.hostPath, status, wanted);
    }
    auto object = std::make_shared<FileObject>(fd, resolved.hostPath, resolved.win32Path(), rights, share, false,
                                               (flags & FILE_FLAG_DELETE_ON_CLOSE) != 0, status);
    object->anchor = resolved.anchor;
    // A replaced file is cut only once the open has passed every share check, other processes' included:
    // a file another process holds without sharing writes keeps its data.
    if (truncates) object->record.access |= FILE_WRITE_DATA;
    if (!object->Register()) {
        if (created) unlink(resolved.hostPath.c_str());
        return INVALID_HANDLE_VALUE;
    }
    if (truncates && ftruncate(object->fd, 0) != 0) return Fail(Win32ErrorFromErrno(errno), INVALID_HANDLE_VALUE);
    HANDLE handle = InsertHandle(std::move(object));
    SetLastErrorCode(successCode);
    return handle;
}

BOOL FileObject::Read(LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED overlapped) {
    if (isFolder) return Fail(ERROR_INVALID_FUNCTION, FALSE);
    if ((access & FILE_READ_DATA) == 0) return Fail(ERROR_ACCESS_DENIED, FALSE);
    if (buffer == nullptr && toRead > 0) return Fail(ERROR_NOACCESS, FALSE);
    off_t offset = overlapped != nullptr
                       ? static_cast<off_t>((static_cast<ULONGLONG>(overlapped->u.s.OffsetHigh) << 32) | overlapped->u.s.Offset)
                       : -1;
    DWORD done = 0;
    while (done < toRead) {
        char* at = static_cast<char*>(buffer) + done;
        const ssize_t count = offset >= 0 ? pread(fd, at, toRead - done, offset + done) : ::read(fd, at, toRead - done);
        if (count < 0) {
            if (errno == EINTR) continue;
            return Fail(Win32ErrorFromErrno(errno), FALSE);
        }
        if (count == 0) break;
        done += static_cast<DWORD>(count);
        // A file's short read is its end: asking again would only read nothing.
        if (shortReadIsEnd_ && done < toRead) break;
    }
    if (read != nullptr) *read = done;
    if (done == 0 && overlapped != nullptr && toRead > 0) return Fail(ERROR_HANDLE_EOF, FALSE);
    // Success leaves the last error as it was, at the end of the file as well.
    return TRUE;
}

BOOL FileObject::Write(LPCVOID buffer, DWORD toWrite, LPDWORD written, LPOVERLAPPED overlapped) {
    if (isFolder) return Fail(ERROR_INVALID_FUNCTION, FALSE);
    if ((access & (FILE_WRITE_DATA | FILE_APPEND_DATA)) == 0) return Fail(ERROR_ACCESS_DENIED, FALSE);
    if (buffer == nullptr && toWrite > 0) return Fail(ERROR_INVALID_USER_BUFFER, FALSE);
    off_t offset = overlapped != nullptr
                       ? static_cast<off_t>((static_cast<ULONGLONG>(overlapped->u.s.OffsetHigh) << 32) | overlapped->u.s.Offset)
                       : -1;
    DWORD done = 0;
    while (done < toWrite) {
        const char* at = static_cast<const char*>(buffer) + done;
        const ssize_t count = offset >= 0 ? pwrite(fd, at, toWrite - done, offset + done) : ::write(fd, at, toWrite - done);
        if (count < 0) {
            if (errno == EINTR) continue;
            if (written != nullptr) *written = done;
            return Fail(Win32ErrorFromErrno(errno), FALSE);
        }
        done += static_cast<DWORD>(count);
    }
    if (written != nullptr) *written = done;
    return TRUE;  // the last error untouched, as for a read
}

BOOL FileObject::GetSize(PLARGE_INTEGER size) {
    struct stat status {};
    if (fstat(fd, &status) != 0) return Fail(Win32ErrorFromErrno(errno), FALSE);
    size->QuadPart = isFolder ? 0 : static_cast<LONGLONG>(status.st_size);
    return TRUE;
}

BOOL FileObject::SetPointer(LARGE_INTEGER distance, PLARGE_INTEGER newPosition, DWORD method) {
    const int whence = method == FILE_BEGIN ? SEEK_SET : method == FILE_CURRENT ? SEEK_CUR : method == FILE_END ? SEEK_END : -1;
    if (whence < 0) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    const off_t position = lseek(fd, static_cast<off_t>(distance.QuadPart), whence);
    if (position < 0) return Fail(errno == EINVAL ? ERROR_NEGATIVE_SEEK : Win32ErrorFromErrno(errno), FALSE);
    if (newPosition != nullptr) newPosition->QuadPart = position;
    return TRUE;
}

BOOL FileObject::SetEnd() {
    if ((access & FILE_WRITE_DATA) == 0) return Fail(ERROR_ACCESS_DENIED, FALSE);
    const off_t position = lseek(fd, 0, SEEK_CUR);
    if (position < 0 || ftruncate(fd, position) != 0) return Fail(Win32ErrorFromErrno(errno), FALSE);
    return TRUE;
}

BOOL FileObject::GetTimes(LPFILETIME created, LPFILETIME accessed, LPFILETIME written) {
    struct stat status {};
    if (fstat(fd, &status) != 0) return Fail(Win32ErrorFromErrno(errno), FALSE);
    const FileTimes times = HostTimes(hostPath, status);
    if (created != nullptr) *created = times.created;
    if (accessed != nullptr) *accessed = times.accessed;
    if (written != nullptr) *written = times.written;
    return TRUE;
}

BOOL FileObject::SetTimes(const FILETIME* /*created*/, const FILETIME* accessed, const FILETIME* written) {
    if ((access & FILE_WRITE_ATTRIBUTES) == 0) return Fail(ERROR_ACCESS_DENIED, FALSE);
    // Host file systems keep no settable creation time; it is left as it is.
    struct timespec times[2];
    times[0].tv_nsec = UTIME_OMIT;
    times[1].tv_nsec = UTIME_OMIT;
    if (accessed != nullptr) times[0] = TimespecFromFileTime(*accessed);
    if (written != nullptr) times[1] = TimespecFromFileTime(*written);
    if (futimens(fd, times) != 0) return Fail(Win32ErrorFromErrno(errno), FALSE);
    return TRUE;
}

BOOL FileObject::GetInformation(LPBY_HANDLE_FILE_INFORMATION info) {
    struct stat status {};
    if (fstat(fd, &status) != 0) return Fail(Win32ErrorFromErrno(errno), FALSE);
    const bool isRoot = win32Path.size() <= 3;
    const FileTimes times = HostTimes(hostPath, status);
    std::memset(info, 0, sizeof *info);
    info->dwFileAttributes = HostAttributes(hostPath, status, isRoot);
    info->ftCreationTime = times.created;
    info->ftLastAccessTime = times.accessed;
    info->ftLastWriteTime = times.written;
    info->dwVolumeSerialNumber = static_cast<DWORD>(status.st_dev);
    const ULONGLONG size = isFolder ? 0 : static_cast<ULONGLONG>(status.st_size);
    info->nFileSizeHigh = static_cast<DWORD>(size >> 32);
    info->nFileSizeLow = static_cast<DWORD>(size);
    // A folder has one name on NTFS whatever the host counts for its subfolders.
    info->nNumberOfLinks = isFolder ? 1 : static_cast<DWORD>(status.st_nlink);
    const ULONGLONG index = static_cast<ULONGLONG>(status.st_ino);
    info->nFileIndexHigh = static_cast<DWORD>(index >> 32);
    info->nFileIndexLow = static_cast<DWORD>(index);
    return TRUE;
}

DWORD HostKind::GetAttributes(LPCWSTR path) {
    ResolvedPath resolved;
    if (!Resolve(path, resolved)) return INVALID_FILE_ATTRIBUTES;
    if (!resolved.exists) return Fail(MissingError(resolved), INVALID_FILE_ATTRIBUTES);
    return AttributesOf(resolved);
}

BOOL HostKind::SetAttributes(LPCWSTR path, DWORD attributes) {
    ResolvedPath resolved;
    if (!Resolve(path, resolved)) return FALSE;
    if (!resolved.exists) return Fail(MissingError(resolved), FALSE);
    return WriteHostAttributes(resolved.hostPath, resolved.status, attributes) ? TRUE : FALSE;
}

BOOL HostKind::DeleteFile(LPCWSTR path) {
    ResolvedPath resolved;
    if (!Resolve(path, resolved)) return FALSE;
    if (!resolved.exists) return Fail(MissingError(resolved), FALSE);
    if (IsFolder(resolved) && !S_ISLNK(resolved.status.st_mode)) return Fail(ERROR_ACCESS_DENIED, FALSE);
    if (AttributesOf(resolved) & FILE_ATTRIBUTE_READONLY) return Fail(ERROR_ACCESS_DENIED, FALSE);
    if (!CheckShareOfPath(resolved.hostPath, resolved.status, DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE))
        return FALSE;
    if (unlink(resolved.hostPath.c_str()) != 0) return Fail(Win32ErrorFromErrno(errno), FALSE);
    return TRUE;
}

BOOL HostKind::CreateFolder(LPCWSTR path) {
    ResolvedPath resolved;
    if (!Resolve(path, resolved)) return FALSE;
    if (resolved.exists || resolved.isRoot()) return Fail(ERROR_ALREADY_EXISTS, FALSE);
    if (mkdir(resolved.hostPath.c_str(), 0777) != 0) return Fail(Win32ErrorFromErrno(errno), FALSE);
    return TRUE;
}

BOOL HostKind::RemoveFolder(LPCWSTR path) {
    ResolvedPath resolved;
    if (!Resolve(path, resolved)) return FALSE;
    if (!resolved.exists) return Fail(MissingError(resolved), FALSE);
    if (!IsFolder(resolved)) return Fail(ERROR_DIRECTORY, FALSE);
    if (resolved.isRoot()) return Fail(ERROR_ACCESS_DENIED, FALSE);
    // Removing a link to a folder removes the link alone, as removing a junction does.
    if (S_ISLNK(resolved.status.st_mode)) {
        if (unlink(resolved.hostPath.c_str()) != 0) return Fail(Win32ErrorFromErrno(errno), FALSE);
        return TRUE;
    }
    if (IsCurrentFolderObject(resolved.status)) return Fail(ERROR_SHARING_VIOLATION, FALSE);
    if (AttributesOf(resolved) & FILE_ATTRIBUTE_READONLY) return Fail(ERROR_ACCESS_DENIED, FALSE);
    if (!CheckShareOfPath(resolved.hostPath, resolved.status, DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE))
        return FALSE;
    if (rmdir(resolved.hostPath.c_str()) != 0) return Fail(errno == EEXIST ? ERROR_DIR_NOT_EMPTY : Win32ErrorFromErrno(errno), FALSE);
    return TRUE;
}

BOOL HostKind::CreateHardLink(LPCWSTR newName, LPCWSTR existing) {
    ResolvedPath target;
    if (!Resolve(existing, target)) return FALSE;
    if (!target.exists) return Fail(MissingError(target), FALSE);
    if (IsFolder(target)) return Fail(ERROR_ACCESS_DENIED, FALSE);
    ResolvedPath link;
    if (!Resolve(newName, link)) return FALSE;
    if (link.exists) return Fail(ERROR_ALREADY_EXISTS, FALSE);
    if (link.drive != target.drive) return Fail(ERROR_NOT_SAME_DEVICE, FALSE);
    if (::link(target.hostPath.c_str(), link.hostPath.c_str()) != 0) return Fail(Win32ErrorFromErrno(errno), FALSE);
    return TRUE;
}

BOOL HostKind::SetCurrentFolder(LPCWSTR path) {
    ResolvedPath resolved;
    if (!Resolve(path, resolved)) return FALSE;
    if (!resolved.exists) return Fail(MissingError(resolved), FALSE);
    if (!IsFolder(resolved)) return Fail(ERROR_DIRECTORY, FALSE);
    SetCurrentDirectoryPath(resolved.win32Path());
    return TRUE;
}

BOOL FileObject::Control(DWORD code, LPVOID in, DWORD inSize, LPVOID /*out*/, DWORD /*outSize*/, LPDWORD /*returned*/) {
    if (code == FSCTL_SET_COMPRESSION) {
        if (in == nullptr || inSize < sizeof(USHORT)) return Fail(ERROR_INVALID_PARAMETER, FALSE);
        // A host folder answers as a FAT volume does: it has no compression.
        return Fail(ERROR_INVALID_FUNCTION, FALSE);
    }
    return Fail(ERROR_INVALID_FUNCTION, FALSE);
}

bool FileObject::VolumeRelativeName(WString& relative) {
    // A host file keeps the path it was opened by, "X:\a\b".
    relative = win32Path.size() > 2 ? win32Path.substr(2) : WString(_T("\\"));
    return true;
}

bool HostKind::Facts(LPCWSTR root, VolumeFacts& facts) {
    ResolvedPath resolved;
    if (!Resolve(root, resolved)) return false;
    if (!resolved.isRoot()) return Fail(ERROR_DIR_NOT_ROOT, false);
    struct stat status {};
    if (stat(resolved.volumeRoot.c_str(), &status) != 0) return Fail(ERROR_PATH_NOT_FOUND, false);
    // A host folder has neither compression, nor security descriptors, nor a master file table: it is
    // named as the FAT volume it answers like.
    facts.fileSystem = _T("FAT32");
    facts.serial = static_cast<DWORD>(status.st_dev);
    facts.flags = FILE_CASE_PRESERVED_NAMES | FILE_UNICODE_ON_DISK | FILE_SUPPORTS_HARD_LINKS;
    return true;
}

VolumeKind& HostFolderKind() {
    static HostKind kind;
    return kind;
}

}  // namespace vlx
