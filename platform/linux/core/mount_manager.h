// The mount manager's view of the volumes that can stand at drive letters. Each kind of volume (host
// folders today, partitions of attached disk images next) registers one VolumeLetters; the mount manager
// asks each in turn, so a new kind joins by registering, without touching the mount-point calls.
#pragma once

#include "../../wstr.h"

namespace vlx {

class VolumeLetters {
public:
    virtual ~VolumeLetters() = default;
    // The volume name ("\\?\Volume{GUID}\") of the volume at the letter (upper case); false when this kind
    // has none there.
    virtual bool NameAt(WCHAR letter, WString& volumeName) = 0;
    // Takes the letter away from the volume standing there. False with the last error set when refused.
    virtual bool Remove(WCHAR letter) = 0;
    // Whether this kind knows a volume of that name (with or without a letter now).
    virtual bool Knows(const WString& volumeName) = 0;
    // Puts a volume this kind knows at a free letter. False with the last error set when refused.
    virtual bool Place(const WString& volumeName, WCHAR letter) = 0;
};

// Adds a kind for the life of the process; called once per kind, before its volumes are asked for. Kinds
// are asked in the order they came, but a fallback kind after all others: host folders are the fallback,
// so that a disk image's volume given a letter stands in front of a host folder mapped to the same one.
void RegisterVolumeLetters(VolumeLetters* kind, bool fallback = false);

}  // namespace vlx
