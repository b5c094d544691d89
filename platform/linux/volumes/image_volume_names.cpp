// Volumes of attached disk images at drive letters, for the mount manager: each partition's name is the
// \\?\Volume{GUID}\ it got at attach, and it keeps that name while its letter comes and goes, so a volume
// whose letter was taken away can be given one again for as long as its disk stays attached.
#include "../core/mount_manager.h"
#include "image_table.h"

namespace vlx {

namespace {

// The table keeps names without the trailing backslash that mount-point calls use.
WString WithoutTrailingSeparator(const WString& name) {
    return !name.empty() && name.back() == '\\' ? name.substr(0, name.size() - 1) : name;
}

class ImageVolumeLetters : public VolumeLetters {
public:
    bool NameAt(WCHAR letter, WString& volumeName) override {
        const std::shared_ptr<ImageVolume> volume = VolumeByLetter(letter);
        if (!volume) return false;
        volumeName = volume->guidName + _T("\\");
        return true;
    }
    bool Remove(WCHAR letter) override {
        const std::shared_ptr<ImageVolume> volume = VolumeByLetter(letter);
        if (!volume) return Fail(ERROR_FILE_NOT_FOUND, false);
        return AssignLetter(volume, 0) ? true : Fail(ERROR_FILE_NOT_FOUND, false);
    }
    bool Knows(const WString& volumeName) override { return VolumeByName(WithoutTrailingSeparator(volumeName)) != nullptr; }
    bool Place(const WString& volumeName, WCHAR letter) override {
        const std::shared_ptr<ImageVolume> volume = VolumeByName(WithoutTrailingSeparator(volumeName));
        if (!volume) return Fail(ERROR_FILE_NOT_FOUND, false);
        // The mount manager has seen the letter free; another thread may have taken it since.
        return AssignLetter(volume, letter) ? true : Fail(ERROR_DIR_NOT_EMPTY, false);
    }
};

ImageVolumeLetters g_imageVolumeLetters;
const bool g_registered = (RegisterVolumeLetters(&g_imageVolumeLetters), true);

}  // namespace

}  // namespace vlx
