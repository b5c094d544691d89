// Security descriptors of files on image volumes. NTFS keeps a descriptor per file and answers for the
// parts a mask selects; a volume without security (FAT) answers as Windows' I/O manager does for a file
// system that has none: reads give a descriptor granting everyone everything (owner and group Everyone, a
// null access list) and writes succeed and keep nothing.
#include <functional>

#include "../services/security_descriptor.h"
#include "image_calls.h"
#include "image_table.h"

namespace vlx {

namespace {

// Reaches the volume behind a path: null when the path is on no image volume; false when it cannot be
// used there (the last error says why).
std::optional<BOOL> OnImagePath(LPCWSTR path, const std::function<bool(Volume&, const VolumePath&)>& body) {
    ImagePath target = ResolveImagePath(path);
    if (!target.volume) return std::nullopt;
    if (!target.valid) return FALSE;
    if (target.hasWildcard) return Fail(ERROR_INVALID_NAME, FALSE);
    if (target.volume->detached) return Fail(ERROR_DEVICE_NOT_CONNECTED, FALSE);
    if (!target.volume->engine) return Fail(ERROR_UNRECOGNIZED_VOLUME, FALSE);
    std::lock_guard lock(target.volume->engineLock);
    return body(*target.volume->engine, target.components) ? TRUE : FALSE;
}

}  // namespace

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

std::optional<BOOL> ImageGetFileSecurity(LPCWSTR path, SECURITY_INFORMATION requested, std::vector<BYTE>& block) {
    return OnImagePath(path, [&](Volume& volume, const VolumePath& components) {
        return volume.GetSecurity(components, requested, block);
    });
}

std::optional<BOOL> ImageSetFileSecurity(LPCWSTR path, SECURITY_INFORMATION parts, const std::vector<BYTE>& selfRelative) {
    return OnImagePath(path, [&](Volume& volume, const VolumePath& components) {
        return volume.SetSecurity(components, parts, selfRelative);
    });
}

}  // namespace vlx
