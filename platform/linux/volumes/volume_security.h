// The seam through which a kind of volume that keeps real security descriptors (NTFS inside a disk image)
// answers GetFileSecurityW and SetFileSecurityW for its paths. The calls check their arguments and the
// audit-list privilege once, then ask each registered kind in turn; paths no kind claims are host-folder
// paths, served by the mapping in host_security.cpp.
#pragma once

#include <vector>

#include "../services/security_descriptor.h"

namespace vlx {

class VolumeSecurity {
public:
    virtual ~VolumeSecurity() = default;
    // Whether the path lies on a volume of this kind.
    virtual bool Covers(LPCWSTR path) = 0;
    // The parts the mask selects, as one self-relative descriptor. False with the last error set.
    virtual bool Read(LPCWSTR path, SECURITY_INFORMATION requested, std::vector<BYTE>& selfRelative) = 0;
    // Writes the parts the mask selects and leaves the others alone. False with the last error set.
    virtual bool Write(LPCWSTR path, SECURITY_INFORMATION parts, const Descriptor& descriptor) = 0;
};

// Adds a kind for the life of the process.
void RegisterVolumeSecurity(VolumeSecurity* kind);

}  // namespace vlx
