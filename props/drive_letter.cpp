// Drive letter change: a volume's mount point moved from one drive root to another, put back on failure.
#include "../frame/frame_internal.h"

namespace {

// The mount manager and the programs that watch drive letters learn of a change asynchronously; a second
// after each change lets them catch up before the next one.
constexpr DWORD kSettleMilliseconds = 1000;

}  // namespace

VELMORA_EXPORT int ChangeDriveLetter(WCHAR oldLetter, WCHAR newLetter) {
    return VelmoraGuardedCall(0, [&] {
        WCHAR oldRoot[] = _T("C:\\");
        WCHAR newRoot[] = _T("C:\\");
        oldRoot[0] = oldLetter;
        newRoot[0] = newLetter;

        WCHAR volumeName[MAX_PATH] = {};
        if (!sys().GetVolumeNameForVolumeMountPointW(oldRoot, volumeName, MAX_PATH)) return 0;
        if (!sys().DeleteVolumeMountPointW(oldRoot)) return 0;
        sys().Sleep(kSettleMilliseconds);
        if (sys().SetVolumeMountPointW(newRoot, volumeName)) {
            sys().Sleep(kSettleMilliseconds);
            return 1;
        }
        // The new letter is taken or refused: give the volume its old letter back. If even that fails the
        // volume stays without a letter, and the result is the same.
        sys().SetVolumeMountPointW(oldRoot, volumeName);
        return 0;
    });
}
