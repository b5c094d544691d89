// The mount manager's view of the volumes of attached disk images: the volume name behind a letter, and
// letters taken from and given to them. They stand in front of host folders mapped to the same letter,
// as the image table routes paths.
#include "../core/mount_manager.h"
#include "image_table.h"

namespace vlx {

namespace {

std::shared_ptr<ImageVolume> ByVolumeName(const WString& volumeName) {
    WString name = volumeName;
    if (!name.empty() && name.back() == '\\') name.pop_back();
    auto volume = VolumeByName(name);
    return volume && !volume->detached ? volume : nullptr;
}

class ImageVolumeLetters : public VolumeLetters {
public:
    bool NameAt(WCHAR letter, WString& volumeName) override {
        const auto volume = VolumeByLetter(letter);
        if (!volume) return false;
        volumeName = volume->guidName + _T("\\");
        return true;
    }
    bool Remove(WCHAR letter) override {
        const auto volume = VolumeByLetter(letter);
        if (!volume || !AssignLetter(volume, 0)) return Fail(ERROR_FILE_NOT_FOUND, false);
        return true;
    }
    bool Knows(const WString& volumeName) override { return ByVolumeName(volumeName) != nullptr; }
    bool Place(const WString& volumeName, WCHAR letter) override {
        const auto volume = ByVolumeName(volumeName);
        if (!volume) return Fail(ERROR_FILE_NOT_FOUND, false);
        // A volume keeps one letter: the old one goes with the new one's coming.
        if (!AssignLetter(volume, letter)) return Fail(ERROR_DIR_NOT_EMPTY, false);
        return true;
    }
};

ImageVolumeLetters g_imageVolumeLetters;
const bool g_registered = (RegisterVolumeLetters(&g_imageVolumeLetters), true);

}  // namespace

}  // namespace vlx
