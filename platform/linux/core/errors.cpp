// The per-thread last error and the one mapping from host errno values to Win32 codes.
#include <cerrno>

#include "internal.h"

namespace vlx {

namespace {
thread_local DWORD t_lastError = ERROR_SUCCESS;
}

DWORD LastError() { return t_lastError; }
void SetLastErrorCode(DWORD code) { t_lastError = code; }

DWORD Win32ErrorFromErrno(int error) {
    switch (error) {
        case 0: return ERROR_SUCCESS;
        case ENOENT: return ERROR_FILE_NOT_FOUND;
        case ENOTDIR: return ERROR_PATH_NOT_FOUND;
        case EACCES:
        case EPERM:
        case EISDIR: return ERROR_ACCESS_DENIED;
        case EEXIST: return ERROR_ALREADY_EXISTS;
        case ENOTEMPTY: return ERROR_DIR_NOT_EMPTY;
        case EXDEV: return ERROR_NOT_SAME_DEVICE;
        case ENOSPC:
        case EDQUOT: return ERROR_DISK_FULL;
        case EMFILE:
        case ENFILE: return ERROR_TOO_MANY_OPEN_FILES;
        case EBUSY: return ERROR_BUSY;
        case EROFS: return ERROR_WRITE_PROTECT;
        case ENAMETOOLONG: return ERROR_FILENAME_EXCED_RANGE;
        case EINVAL: return ERROR_INVALID_PARAMETER;
        case ENOMEM: return ERROR_NOT_ENOUGH_MEMORY;
        case ELOOP: return ERROR_CANT_RESOLVE_FILENAME;
        case EMLINK: return ERROR_TOO_MANY_LINKS;
        case EBADF: return ERROR_INVALID_HANDLE;
        case ENOTSUP: return ERROR_NOT_SUPPORTED;
        case EIO: return ERROR_IO_DEVICE;
        default: return ERROR_GEN_FAILURE;
    }
}

}  // namespace vlx
