// libntfs-3g's C headers, made includable beside our Win32 definitions: the library has its own BOOL,
// TRUE and FALSE, GUID and security-information names, so those are renamed or set aside while it is read.
// Include this before anything that brings in win32.h.
#pragma once

#include <stdarg.h>
#include <stdint.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

#pragma push_macro("TRUE")
#pragma push_macro("FALSE")
#pragma push_macro("OWNER_SECURITY_INFORMATION")
#pragma push_macro("GROUP_SECURITY_INFORMATION")
#pragma push_macro("DACL_SECURITY_INFORMATION")
#pragma push_macro("SACL_SECURITY_INFORMATION")
#undef TRUE
#undef FALSE
#undef OWNER_SECURITY_INFORMATION
#undef GROUP_SECURITY_INFORMATION
#undef DACL_SECURITY_INFORMATION
#undef SACL_SECURITY_INFORMATION
#define BOOL NtfsBool
#define GUID NtfsGuid
#define OWNER_SECURITY_INFORMATION NTFS_OWNER_SECURITY_INFORMATION
#define GROUP_SECURITY_INFORMATION NTFS_GROUP_SECURITY_INFORMATION
#define DACL_SECURITY_INFORMATION NTFS_DACL_SECURITY_INFORMATION
#define SACL_SECURITY_INFORMATION NTFS_SACL_SECURITY_INFORMATION

extern "C" {
#include <ntfs-3g/types.h>
#include <ntfs-3g/attrib.h>
#include <ntfs-3g/device.h>
#include <ntfs-3g/dir.h>
#include <ntfs-3g/index.h>
#include <ntfs-3g/inode.h>
#include <ntfs-3g/lcnalloc.h>
#include <ntfs-3g/logging.h>
#include <ntfs-3g/mft.h>
#include <ntfs-3g/runlist.h>
#include <ntfs-3g/security.h>
#include <ntfs-3g/unistr.h>
#include <ntfs-3g/volume.h>
}

#undef BOOL
#undef GUID
#undef OWNER_SECURITY_INFORMATION
#undef GROUP_SECURITY_INFORMATION
#undef DACL_SECURITY_INFORMATION
#undef SACL_SECURITY_INFORMATION
#pragma pop_macro("TRUE")
#pragma pop_macro("FALSE")
#pragma pop_macro("OWNER_SECURITY_INFORMATION")
#pragma pop_macro("GROUP_SECURITY_INFORMATION")
#pragma pop_macro("DACL_SECURITY_INFORMATION")
#pragma pop_macro("SACL_SECURITY_INFORMATION")

// libntfs-3g's truth values under the name its headers were read with.
constexpr NtfsBool kNtfsFalse = static_cast<NtfsBool>(0);
constexpr NtfsBool kNtfsTrue = static_cast<NtfsBool>(1);
