// The security a volume answers with when its file system keeps none (FAT), as Windows' I/O manager answers
// for such a file system: reads give a descriptor granting everyone everything (owner and group Everyone, a
// null access list) and writes succeed and keep nothing. NTFS keeps a descriptor per file and overrides both.
#include "../services/security_descriptor.h"
#include "volume.h"

namespace vlx {

bool Volume::GetSecurity(const VolumePath& path, SECURITY_INFORMATION selection, std::vector<BYTE>& selfRelative) {
    VolumeEntry entry;
    if (!Lookup(path, entry)) return false;
    const SidBytes world = EveryoneSid();
    Descriptor descriptor;
    if (selection & OWNER_SECURITY_INFORMATION) descriptor.owner = world;
    if (selection & GROUP_SECURITY_INFORMATION) descriptor.group = world;
    descriptor.daclPresent = (selection & DACL_SECURITY_INFORMATION) != 0;
    selfRelative = SelfRelative(descriptor);
    return true;
}

bool Volume::SetSecurity(const VolumePath& path, SECURITY_INFORMATION /*selection*/, const std::vector<BYTE>& /*selfRelative*/) {
    VolumeEntry entry;
    return Lookup(path, entry);
}

}  // namespace vlx
