// The mount manager: volume names behind drive roots, and drive letters taken from and given to volumes,
// over every kind of volume that stands at letters (mount_manager.h).
//
// Only drive roots ("E:\") are mount points here; folder mount points are not offered. Changing a letter
// needs an elevated process, as it does on Windows, and the system volume C: keeps its letter.
#include <algorithm>
#include <mutex>
#include <vector>

#include "../services/token.h"
#include "internal.h"
#include "mount_manager.h"
#include "table.h"

namespace vlx {

namespace {

// "\\?\Volume{" + 36 + "}\" and the terminator.
constexpr DWORD kVolumeNameLength = 50;

std::mutex g_kindsLock;
std::vector<VolumeLetters*>& Kinds() {
    static std::vector<VolumeLetters*> kinds;
    return kinds;
}
// Kinds register from static initialisers of other files, so the lists are made on first use.
std::vector<VolumeLetters*>& Fallbacks() {
    static std::vector<VolumeLetters*> fallbacks;
    return fallbacks;
}
std::vector<VolumeLetters*> KindsNow() {
    std::lock_guard lock(g_kindsLock);
    return Kinds();
}

// The upper-case letter of a drive root "X:\", or 0 with the last error set.
WCHAR DriveRootLetter(LPCWSTR mountPoint) {
    if (mountPoint == nullptr) return Fail(ERROR_INVALID_PARAMETER, WCHAR(0));
    const WString text(mountPoint);
    // Windows insists on the trailing backslash of a mount point.
    if (text.size() != 3 || text[1] != ':' || text[2] != '\\') return Fail(ERROR_INVALID_NAME, WCHAR(0));
    WCHAR letter = text[0];
    if (letter >= 'a' && letter <= 'z') letter = static_cast<WCHAR>(letter - 'a' + 'A');
    if (letter < 'A' || letter > 'Z') return Fail(ERROR_INVALID_NAME, WCHAR(0));
    return letter;
}

bool IsVolumeName(const WString& name) {
    const WString prefix = _T("\\\\?\\Volume{");
    if (name.size() != kVolumeNameLength - 1 || name.compare(0, prefix.size(), prefix) != 0) return false;
    return name.compare(name.size() - 2, 2, _T("}\\")) == 0;
}

VolumeLetters* KindAt(WCHAR letter, WString& volumeName) {
    for (VolumeLetters* kind : KindsNow()) {
        if (kind->NameAt(letter, volumeName)) return kind;
    }
    return nullptr;
}

}  // namespace

void RegisterVolumeLetters(VolumeLetters* kind, bool fallback) {
    std::lock_guard lock(g_kindsLock);
    std::vector<VolumeLetters*>& kinds = Kinds();
    if (fallback) {
        kinds.push_back(kind);
        Fallbacks().push_back(kind);
        return;
    }
    // In front of the first fallback, behind the other kinds.
    auto at = kinds.begin();
    while (at != kinds.end() && std::find(Fallbacks().begin(), Fallbacks().end(), *at) == Fallbacks().end()) ++at;
    kinds.insert(at, kind);
}

BOOL WINAPI GetVolumeNameForVolumeMountPointW(LPCWSTR mountPoint, LPWSTR volumeName, DWORD length) {
    const WCHAR letter = DriveRootLetter(mountPoint);
    if (letter == 0) return FALSE;
    if (volumeName == nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    WString name;
    if (KindAt(letter, name) == nullptr) return Fail(ERROR_FILE_NOT_FOUND, FALSE);
    if (length < name.size() + 1) return Fail(ERROR_FILENAME_EXCED_RANGE, FALSE);
    name.copy(volumeName, name.size());
    volumeName[name.size()] = 0;
    return TRUE;
}

BOOL WINAPI DeleteVolumeMountPointW(LPCWSTR mountPoint) {
    const WCHAR letter = DriveRootLetter(mountPoint);
    if (letter == 0) return FALSE;
    if (!ProcessIsElevated()) return Fail(ERROR_ACCESS_DENIED, FALSE);
    WString name;
    VolumeLetters* kind = KindAt(letter, name);
    if (kind == nullptr) return Fail(ERROR_FILE_NOT_FOUND, FALSE);
    return kind->Remove(letter) ? TRUE : FALSE;
}

BOOL WINAPI SetVolumeMountPointW(LPCWSTR mountPoint, LPCWSTR volumeName) {
    const WCHAR letter = DriveRootLetter(mountPoint);
    if (letter == 0) return FALSE;
    if (volumeName == nullptr || !IsVolumeName(volumeName)) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    if (!ProcessIsElevated()) return Fail(ERROR_ACCESS_DENIED, FALSE);
    WString taken;
    if (KindAt(letter, taken) != nullptr) return Fail(ERROR_DIR_NOT_EMPTY, FALSE);
    for (VolumeLetters* kind : KindsNow()) {
        if (kind->Knows(volumeName)) return kind->Place(volumeName, letter) ? TRUE : FALSE;
    }
    return Fail(ERROR_FILE_NOT_FOUND, FALSE);
}

}  // namespace vlx
