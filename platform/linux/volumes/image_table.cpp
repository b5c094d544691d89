// The table of attached disk images and their volumes, and how Win32 paths reach an image volume: by a
// drive letter given to it or by its volume name.
#include "image_table.h"

#include <algorithm>
#include <map>

#include "shadow_copy.h"

namespace vlx {

namespace {

std::mutex g_tableLock;
std::map<DWORD, std::shared_ptr<AttachedDisk>> g_disks;
std::map<WCHAR, std::weak_ptr<ImageVolume>> g_letters;

WCHAR UpperAscii(WCHAR unit) { return (unit >= 'a' && unit <= 'z') ? static_cast<WCHAR>(unit - 'a' + 'A') : unit; }
bool IsDriveLetter(WCHAR unit) { return UpperAscii(unit) >= 'A' && UpperAscii(unit) <= 'Z'; }
bool IsSeparator(WCHAR unit) { return unit == '\\' || unit == '/'; }
bool IsInvalidNameUnit(WCHAR unit) { return unit < 32 || WString(_T("<>:\"|")).find(unit) != WString::npos; }

std::shared_ptr<ImageVolume> VolumeByLetterLocked(WCHAR letter) {
    auto found = g_letters.find(UpperAscii(letter));
    if (found == g_letters.end()) return nullptr;
    auto volume = found->second.lock();
    return volume && !volume->detached ? volume : nullptr;
}

}  // namespace

bool RegisterDisk(const std::shared_ptr<AttachedDisk>& disk, std::string* error) {
    std::lock_guard lock(g_tableLock);
    if (g_disks.count(disk->number) != 0) {
        if (error != nullptr) *error = "disk number " + std::to_string(disk->number) + " is in use";
        return false;
    }
    for (const auto& volume : disk->volumes) {
        if (volume->letter == 0) continue;
        if (!IsDriveLetter(volume->letter) || VolumeByLetterLocked(volume->letter)) {
            if (error != nullptr) *error = "drive letter " + WStrToUtf8(WString(1, volume->letter)) + " is taken or no letter";
            return false;
        }
    }
    g_disks[disk->number] = disk;
    for (const auto& volume : disk->volumes)
        if (volume->letter != 0) g_letters[UpperAscii(volume->letter)] = volume;
    return true;
}

std::shared_ptr<AttachedDisk> UnregisterDisk(DWORD number) {
    std::lock_guard lock(g_tableLock);
    auto found = g_disks.find(number);
    if (found == g_disks.end()) return nullptr;
    auto disk = found->second;
    g_disks.erase(found);
    for (auto at = g_letters.begin(); at != g_letters.end();) {
        auto volume = at->second.lock();
        if (!volume || volume->disk.lock() == disk) at = g_letters.erase(at);
        else ++at;
    }
    return disk;
}

DWORD FreeDiskNumber() {
    std::lock_guard lock(g_tableLock);
    DWORD number = 0;
    while (g_disks.count(number) != 0) ++number;
    return number;
}

std::shared_ptr<AttachedDisk> DiskByNumber(DWORD number) {
    std::lock_guard lock(g_tableLock);
    auto found = g_disks.find(number);
    return found == g_disks.end() ? nullptr : found->second;
}

std::shared_ptr<ImageVolume> VolumeByLetter(WCHAR letter) {
    std::lock_guard lock(g_tableLock);
    return VolumeByLetterLocked(letter);
}

std::shared_ptr<ImageVolume> VolumeByName(const WString& name) {
    std::lock_guard lock(g_tableLock);
    for (const auto& [number, disk] : g_disks)
        for (const auto& volume : disk->volumes)
            if (WStrICmp(volume->guidName.c_str(), name.c_str()) == 0) return volume;
    return nullptr;
}

bool AssignLetter(const std::shared_ptr<ImageVolume>& volume, WCHAR letter) {
    std::lock_guard lock(g_tableLock);
    if (letter != 0 && (!IsDriveLetter(letter) || VolumeByLetterLocked(letter))) return false;
    if (volume->letter != 0) g_letters.erase(UpperAscii(volume->letter));
    volume->letter = UpperAscii(letter);
    if (letter != 0) g_letters[UpperAscii(letter)] = volume;
    return true;
}

namespace {

// The image volume a path lies on, with the path made full and the text after the volume's name; null
// (the last error untouched) when the path is on no image volume.
std::shared_ptr<ImageVolume> VolumeOfPath(LPCWSTR path, WString& text, WString& rest) {
    std::shared_ptr<ImageVolume> volume;
    if (path == nullptr) return volume;
    text = path;
    // A path relative to the current folder (or to a drive's) reaches an image volume when that folder lies
    // on one: it is made full first, as Windows does before anything else, leaving the last error alone.
    const bool qualified = (text.size() >= 3 && IsDriveLetter(text[0]) && text[1] == ':' && IsSeparator(text[2])) ||
                           (text.size() >= 2 && IsSeparator(text[0]) && IsSeparator(text[1]));
    if (!qualified && !text.empty()) {
        const DWORD kept = LastError();
        WString full;
        const bool made = FullWin32Path(path, full);
        SetLastErrorCode(kept);
        if (!made) return volume;
        text = full;
    }
    static const WString kVolumePrefix = _T("\\\\?\\Volume{");
    static const WString kDevicesPrefix = _T("\\\\?\\GLOBALROOT\\Device\\");
    if (text.size() >= 2 && IsDriveLetter(text[0]) && text[1] == ':') {
        volume = VolumeByLetter(text[0]);
        rest = text.substr(2);
    } else if (text.size() >= 4 && text.compare(0, 4, _T("\\\\?\\")) == 0 && text.size() >= 6 && IsDriveLetter(text[4]) &&
               text[5] == ':') {
        volume = VolumeByLetter(text[4]);
        rest = text.substr(6);
    } else if (text.size() > kVolumePrefix.size() && WStrICmp(text.substr(0, kVolumePrefix.size()).c_str(), kVolumePrefix.c_str()) == 0) {
        const size_t close = text.find('}');
        if (close == WString::npos) return volume;
        volume = VolumeByName(text.substr(0, close + 1));
        rest = text.substr(close + 1);
    } else if (text.size() > kDevicesPrefix.size() &&
               WStrICmp(text.substr(0, kDevicesPrefix.size()).c_str(), kDevicesPrefix.c_str()) == 0) {
        // Shadow copies are the only devices of the object namespace that hold files here.
        const size_t end = std::min(text.find_first_of(_T("\\/"), kDevicesPrefix.size()), text.size());
        volume = ShadowCopyVolume(text.substr(0, end));
        rest = text.substr(end);
    }
    return volume;
}

}  // namespace

bool OnImageVolume(LPCWSTR path) {
    // Most paths start with a drive letter: its volume settles it without copying the path.
    if (path != nullptr && IsDriveLetter(path[0]) && path[1] == ':' && IsSeparator(path[2])) return VolumeByLetter(path[0]) != nullptr;
    WString text, rest;
    return VolumeOfPath(path, text, rest) != nullptr;
}

ImagePath ResolveImagePath(LPCWSTR path) {
    ImagePath out;
    WString text, rest;
    out.volume = VolumeOfPath(path, text, rest);
    if (!out.volume) return out;
    const bool longForm = text.compare(0, 4, _T("\\\\?\\")) == 0;
    if (!longForm && text.size() >= MAX_PATH) {
        out.valid = false;
        return Fail(ERROR_FILENAME_EXCED_RANGE, out);
    }
    out.trailingSeparator = !rest.empty() && IsSeparator(rest.back());
    WString part;
    auto flush = [&]() {
        if (part.empty() || part == _T(".")) {
        } else if (part == _T("..")) {
            if (!out.components.empty()) out.components.pop_back();
        } else {
            // Windows drops trailing spaces and dots from a name.
            WString trimmed = part;
            while (!trimmed.empty() && (trimmed.back() == ' ' || trimmed.back() == '.')) trimmed.pop_back();
            out.components.push_back(trimmed.empty() ? part : trimmed);
        }
        part.clear();
    };
    for (WCHAR unit : rest) {
        if (IsSeparator(unit)) flush();
        else part += unit;
    }
    flush();
    for (size_t index = 0; index < out.components.size(); ++index) {
        const WString& name = out.components[index];
        for (WCHAR unit : name) {
            const bool wildcard = HasWildcard(WString(1, unit));
            if (wildcard && index + 1 == out.components.size()) out.hasWildcard = true;
            else if (wildcard || IsInvalidNameUnit(unit)) {
                out.valid = false;
                return Fail(ERROR_INVALID_NAME, out);
            }
        }
    }
    return out;
}

}  // namespace vlx
