// libntfs-3g's C headers, made includable beside our Win32 definitions: the library has its own BOOL,
// TRUE and FALSE, GUID, security-information names and security structures, so those are renamed or set
// aside while it is read.
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
#define SID NtfsSid
#define SID_IDENTIFIER_AUTHORITY NtfsSidIdentifierAuthority
#define ACL NtfsAcl
#define ACE_HEADER NtfsAceHeader
#define ACCESS_MASK NtfsAccessMask
#define GENERIC_MAPPING NtfsGenericMapping
#define ACCESS_ALLOWED_ACE NtfsAccessAllowedAce
#define ACCESS_DENIED_ACE NtfsAccessDeniedAce
#define SYSTEM_AUDIT_ACE NtfsSystemAuditAce
#define SYSTEM_ALARM_ACE NtfsSystemAlarmAce
#define ACCESS_ALLOWED_OBJECT_ACE NtfsAccessAllowedObjectAce
#define ACCESS_DENIED_OBJECT_ACE NtfsAccessDeniedObjectAce
#define SYSTEM_AUDIT_OBJECT_ACE NtfsSystemAuditObjectAce
#define SYSTEM_ALARM_OBJECT_ACE NtfsSystemAlarmObjectAce
#define SECURITY_DESCRIPTOR NtfsSecurityDescriptor
#define SECURITY_DESCRIPTOR_RELATIVE NtfsSecurityDescriptorRelative
#define SECURITY_DESCRIPTOR_CONTROL NtfsSecurityDescriptorControl
#define OWNER_SECURITY_INFORMATION NTFS_OWNER_SECURITY_INFORMATION
#define GROUP_SECURITY_INFORMATION NTFS_GROUP_SECURITY_INFORMATION
#define DACL_SECURITY_INFORMATION NTFS_DACL_SECURITY_INFORMATION
#define SACL_SECURITY_INFORMATION NTFS_SACL_SECURITY_INFORMATION
// Its security structures have the Win32 names too (with the same layouts); ours keep the names.
#define ACCESS_MASK NtfsAccessMask
#define SECURITY_DESCRIPTOR_CONTROL NtfsSecurityDescriptorControl
#define SID_IDENTIFIER_AUTHORITY NtfsSidIdentifierAuthority
#define SID NtfsSid
#define ACL NtfsAcl
#define ACE_HEADER NtfsAceHeader
#define ACCESS_ALLOWED_ACE NtfsAccessAllowedAce
#define ACCESS_DENIED_ACE NtfsAccessDeniedAce
#define SYSTEM_AUDIT_ACE NtfsSystemAuditAce
#define SECURITY_DESCRIPTOR_RELATIVE NtfsSecurityDescriptorRelative
#define SECURITY_DESCRIPTOR NtfsSecurityDescriptor

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
#include <ntfs-3g/cache.h>
}

#undef BOOL
#undef GUID
#undef SID
#undef SID_IDENTIFIER_AUTHORITY
#undef ACL
#undef ACE_HEADER
#undef ACCESS_MASK
#undef GENERIC_MAPPING
#undef ACCESS_ALLOWED_ACE
#undef ACCESS_DENIED_ACE
#undef SYSTEM_AUDIT_ACE
#undef SYSTEM_ALARM_ACE
#undef ACCESS_ALLOWED_OBJECT_ACE
#undef ACCESS_DENIED_OBJECT_ACE
#undef SYSTEM_AUDIT_OBJECT_ACE
#undef SYSTEM_ALARM_OBJECT_ACE
#undef SECURITY_DESCRIPTOR
#undef SECURITY_DESCRIPTOR_RELATIVE
#undef SECURITY_DESCRIPTOR_CONTROL
#undef OWNER_SECURITY_INFORMATION
#undef GROUP_SECURITY_INFORMATION
#undef DACL_SECURITY_INFORMATION
#undef SACL_SECURITY_INFORMATION
#undef ACCESS_MASK
#undef SECURITY_DESCRIPTOR_CONTROL
#undef SID_IDENTIFIER_AUTHORITY
#undef SID
#undef ACL
#undef ACE_HEADER
#undef ACCESS_ALLOWED_ACE
#undef ACCESS_DENIED_ACE
#undef SYSTEM_AUDIT_ACE
#undef SECURITY_DESCRIPTOR_RELATIVE
#undef SECURITY_DESCRIPTOR
#pragma pop_macro("TRUE")
#pragma pop_macro("FALSE")
#pragma pop_macro("OWNER_SECURITY_INFORMATION")
#pragma pop_macro("GROUP_SECURITY_INFORMATION")
#pragma pop_macro("DACL_SECURITY_INFORMATION")
#pragma pop_macro("SACL_SECURITY_INFORMATION")

// libntfs-3g's truth values under the name its headers were read with.
constexpr NtfsBool kNtfsFalse = static_cast<NtfsBool>(0);
constexpr NtfsBool kNtfsTrue = static_cast<NtfsBool>(1);
