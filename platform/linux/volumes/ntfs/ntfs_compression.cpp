// NTFS compression switched on and off for a file or folder, as FSCTL_SET_COMPRESSION does it.
#include "ntfs3g.h"

#include "ntfs_internal.h"

namespace vlx::ntfs {

DWORD File::GetCompression(USHORT&) { return ERROR_NOT_SUPPORTED; }
DWORD File::SetCompression(USHORT) { return ERROR_NOT_SUPPORTED; }

}  // namespace vlx::ntfs
