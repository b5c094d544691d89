// Drive letters and Win32 path rules on host folders: separators, case-insensitive lookup with the case
// kept, MAX_PATH, relative paths, wildcards and NTFS name order.
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <string_view>

#include "internal.h"
#include "scoped_handle.h"
#include "../volumes/host_folder_cache.h"
#include "../volumes/host_names.h"

namespace vlx {

namespace {

std::shared_mutex g_drivesLock;
std::map<WCHAR, std::string> g_drives;  // letters other than the default C:

std::mutex g_currentLock;
WString g_current;  // empty until first asked: then the host's working folder

WCHAR UpperLetter(WCHAR letter) { return (letter >= 'a' && letter <= 'z') ? static_cast<WCHAR>(letter - 'a' + 'A') : letter; }
bool IsLetter(WCHAR unit) { return (unit >= 'a' && unit <= 'z') || (unit >= 'A' && unit <= 'Z'); }
bool IsSeparator(WCHAR unit) { return unit == '\\' || unit == '/'; }

// The longest path Windows takes with the \\?\ prefix.
constexpr size_t kMaxVerbatimPath = 32767;

// Paths with more names than this, or too long for the host to take whole, are reached from the deepest
// folder of theirs held open: the host's own walk costs each call time in every level above.
constexpr size_t kDirectWalkNames = 24;

// Characters no Win32 file name may hold; wildcards are judged separately.
bool IsInvalidNameUnit(WCHAR unit) {
    return unit < 0x20 || unit == '<' || unit == '>' || unit == ':' || unit == '"' || unit == '|';
}

std::string JoinHost(const std::string& folder, const std::string& name) {
    if (folder.empty() || folder.back() == '/') return folder + name;
    return folder + "/" + name;
}

// Finds the entry of a host folder (open as folderFd, at the host path folder) whose name equals name
// without regard to case, preferring an exact match, with its status. Empty when there is none.
std::string FindEntryNoCase(int folderFd, const std::string& folder, const std::string& exact, const WString& name,
                            HostStatus& status, bool exactKnownMissing) {
    if (!exactKnownMissing && StatHostAt(folderFd, exact.c_str(), status)) return exact;
    const std::string found = FindFoldedEntry(folder, exact, name);
    if (!found.empty() && !StatHostAt(folderFd, found.c_str(), status)) return {};
    return found;
}

// A folder on the way may be a link to a folder, as a junction is on Windows.
bool LeadsToFolder(const std::string& hostPath, const struct stat& status) {
    if (S_ISDIR(status.st_mode)) return true;
    struct stat target {};
    return S_ISLNK(status.st_mode) && stat(hostPath.c_str(), &target) == 0 && S_ISDIR(target.st_mode);
}

}  // namespace

// ---- Names

WCHAR FoldUnit(WCHAR unit) {
    if (unit < 'a') return unit;
    if (unit <= 'z') return static_cast<WCHAR>(unit - 0x20);
    if (unit >= 0xE0 && unit <= 0xFE && unit != 0xF7) return static_cast<WCHAR>(unit - 0x20);  // Latin-1
    if (unit == 0xFF) return 0x178;
    if (unit >= 0x100 && unit <= 0x17F && unit != 0x130 && unit != 0x131 && unit != 0x138 && unit != 0x149 &&
        unit != 0x17F) {
        // Latin Extended-A pairs an upper-case letter with the lower-case one after it; the run from
        // U+0139 to U+0148 and from U+0179 on is shifted by one.
        const bool oddUpper = (unit >= 0x139 && unit <= 0x148) || unit >= 0x179;
        const bool isLower = oddUpper ? (unit % 2 == 0) : (unit % 2 == 1);
        return isLower ? static_cast<WCHAR>(unit - 1) : unit;
    }
    if (unit >= 0x3B1 && unit <= 0x3C9 && unit != 0x3C2) return static_cast<WCHAR>(unit - 0x20);  // Greek
    if (unit >= 0x430 && unit <= 0x44F) return static_cast<WCHAR>(unit - 0x20);                   // Cyrillic
    if (unit >= 0x450 && unit <= 0x45F) return static_cast<WCHAR>(unit - 0x50);
    if (unit >= 0xFF41 && unit <= 0xFF5A) return static_cast<WCHAR>(unit - 0x20);  // full-width Latin
    return unit;
}

bool NamesEqualNoCase(const WString& a, const WString& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (FoldUnit(a[i]) != FoldUnit(b[i])) return false;
    }
    return true;
}

bool NameLessNtfs(const WString& a, const WString& b) {
    const size_t common = std::min(a.size(), b.size());
    for (size_t i = 0; i < common; ++i) {
        const WCHAR x = FoldUnit(a[i]);
        const WCHAR y = FoldUnit(b[i]);
        if (x != y) return x < y;
    }
    return a.size() < b.size();
}

// ---- Drives

bool MapDrive(WCHAR letter, const std::string& hostFolder) {
    if (!IsLetter(letter)) return false;
    struct stat status {};
    if (stat(hostFolder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return false;
    char* real = realpath(hostFolder.c_str(), nullptr);
    if (real == nullptr) return false;
    std::string root = real;
    free(real);
    std::unique_lock lock(g_drivesLock);
    g_drives[UpperLetter(letter)] = root;
    return true;
}

void UnmapDrive(WCHAR letter) {
    std::unique_lock lock(g_drivesLock);
    g_drives.erase(UpperLetter(letter));
}

std::string DriveRoot(WCHAR letter) {
    letter = UpperLetter(letter);
    std::shared_lock lock(g_drivesLock);
    auto it = g_drives.find(letter);
    if (it != g_drives.end()) return it->second;
    return letter == 'C' ? std::string("/") : std::string();
}

WString HostToWin32Path(const std::string& hostPath) {
    std::string absolute = hostPath;
    if (absolute.empty() || absolute[0] != '/') {
        char cwd[4096];
        if (getcwd(cwd, sizeof cwd) != nullptr) absolute = JoinHost(cwd, absolute);
    }
    WCHAR bestLetter = 'C';
    std::string bestRoot = "/";
    {
        std::shared_lock lock(g_drivesLock);
        for (const auto& [letter, root] : g_drives) {
            const bool inside = absolute == root || (absolute.size() > root.size() && absolute.compare(0, root.size(), root) == 0 &&
                                                     (root.back() == '/' || absolute[root.size()] == '/'));
            if (inside && root.size() >= bestRoot.size() && (letter != 'C' || bestRoot == "/")) {
                bestLetter = letter;
                bestRoot = root;
            }
        }
    }
    const std::string rest = absolute.substr(std::min(absolute.size(), bestRoot.size()));
    WString result;
    result += bestLetter;
    result += _T(":\\");
    for (size_t at = 0; at < rest.size();) {
        size_t end = rest.find('/', at);
        if (end == std::string::npos) end = rest.size();
        if (end > at) {
            if (result.back() != '\\') result += '\\';
            result += WindowsNameOfHost(rest.substr(at, end - at));
        }
        at = end + 1;
    }
    return result;
}

std::string Win32ToHostPath(LPCWSTR path) {
    ResolvedPath resolved;
    if (!Resolve(path, resolved)) return {};
    if (!resolved.anchor) return resolved.hostPath;
    // A held folder's path means nothing once the call is over.
    std::string whole;
    return WholeHostPath(resolved, whole) ? whole : std::string();
}

// ---- Current folder

WString CurrentDirectory() {
    std::lock_guard lock(g_currentLock);
    if (g_current.empty()) {
        char cwd[4096];
        g_current = getcwd(cwd, sizeof cwd) != nullptr ? HostToWin32Path(cwd) : WString(_T("C:\\"));
    }
    return g_current;
}

void SetCurrentDirectoryPath(const WString& path) {
    std::lock_guard lock(g_currentLock);
    g_current = path;
}

// ---- Resolution

bool FullWin32Path(LPCWSTR path, WString& full) {
    // No path at all is a path that cannot be found, as an empty one is.
    if (path == nullptr) return Fail(ERROR_PATH_NOT_FOUND, false);
    // Read in place, without copies, so that a long path costs one pass.
    using View = std::basic_string_view<WCHAR>;
    View text(path, WStrLen(path));
    if (text.empty()) return Fail(ERROR_PATH_NOT_FOUND, false);
    // The \\?\ prefix turns off the parsing rules and the MAX_PATH limit (for the 32,767 units Windows
    // allows): what follows must be a whole drive path, taken as written ("." and ".." are no names there,
    // and trailing dots and spaces stay).
    const bool verbatim = text.size() >= 4 && text[0] == '\\' && text[1] == '\\' && text[2] == '?' && text[3] == '\\';
    if (verbatim) {
        if (text.size() > kMaxVerbatimPath) return Fail(ERROR_FILENAME_EXCED_RANGE, false);
        text.remove_prefix(4);
        if (text.size() < 3 || !IsLetter(text[0]) || text[1] != ':' || text[2] != '\\') return Fail(ERROR_INVALID_NAME, false);
    } else if (text.size() >= MAX_PATH) {
        return Fail(ERROR_FILENAME_EXCED_RANGE, false);
    }

    WCHAR drive = 0;
    WString relativeBase;  // for a relative path: the folder it is relative to, without its drive
    View rest;
    if (text.size() >= 2 && IsLetter(text[0]) && text[1] == ':') {
        drive = UpperLetter(text[0]);
        rest = text.substr(2);
        if (rest.empty() || !IsSeparator(rest[0])) {
            // "X:name" is relative to the current folder when that is on X:, else to X:'s root.
            const WString current = CurrentDirectory();
            relativeBase = UpperLetter(current[0]) == drive ? current.substr(2) : WString();
        }
    } else if (text.size() >= 2 && IsSeparator(text[0]) && IsSeparator(text[1])) {
        // UNC and device paths name no host-folder volume.
        return Fail(ERROR_BAD_PATHNAME, false);
    } else {
        const WString current = CurrentDirectory();
        drive = UpperLetter(current[0]);
        rest = text;
        if (!IsSeparator(text[0])) relativeBase = current.substr(2);
    }
    const WString joined = relativeBase.empty() && !rest.empty() && IsSeparator(rest[0]) ? WString()
                                                                                        : relativeBase + _T("\\") + WString(rest);
    if (!joined.empty()) rest = joined;

    // One pass that appends each name as it ends; ".." takes the last one off again.
    full.clear();
    full += drive;
    full += _T(":");
    full.reserve(rest.size() + 3);
    std::vector<size_t> starts;  // where each kept name begins in full (at its backslash)
    size_t at = 0;
    const size_t length = rest.size();
    while (at < length) {
        while (at < length && IsSeparator(rest[at])) ++at;
        size_t end = at;
        while (end < length && !IsSeparator(rest[end])) ++end;
        if (end == at) break;
        const WCHAR* name = rest.data() + at;
        const size_t size = end - at;
        const bool dot = size == 1 && name[0] == '.';
        const bool dotDot = size == 2 && name[0] == '.' && name[1] == '.';
        if (verbatim && (dot || dotDot)) return Fail(ERROR_INVALID_NAME, false);
        if (dotDot) {
            if (!starts.empty()) {
                full.resize(starts.back());
                starts.pop_back();
            }
        } else if (!dot) {
            // Windows drops trailing spaces and dots from a name, unless that would leave nothing.
            size_t kept = size;
            if (!verbatim) {
                while (kept > 0 && (name[kept - 1] == ' ' || name[kept - 1] == '.')) --kept;
                if (kept == 0) kept = size;
            }
            starts.push_back(full.size());
            full += '\\';
            full.append(name, kept);
        }
        at = end;
    }
    if (starts.empty()) full += _T("\\");
    else if (IsSeparator(text.back())) full += _T("\\");
    return true;
}

WString ResolvedPath::win32Path() const {
    WString path;
    path += drive;
    path += _T(":");
    path += volumeRelative();
    return path;
}

WString ResolvedPath::volumeRelative() const { return components.empty() ? WString(_T("\\")) : components.text(); }

WString PathNames::operator[](size_t index) const {
    const size_t end = index + 1 < starts_.size() ? starts_[index + 1] - 1 : text_.size();
    return text_.substr(starts_[index], end - starts_[index]);
}

void PathNames::push_back(const WString& name) {
    text_ += '\\';
    starts_.push_back(static_cast<uint32_t>(text_.size()));
    text_ += name;
}

void PathNames::AssignPrefix(const WString& text, size_t from, size_t to, const std::vector<uint32_t>& starts, size_t count) {
    text_.assign(text, from, count == 0 ? 0 : to - from);
    starts_.clear();
    starts_.reserve(count);
    for (size_t i = 0; i < count; ++i) starts_.push_back(static_cast<uint32_t>(starts[i] - from));
}

namespace {

// A full path taken apart into names, each with its host name and what is known of it. Paths resolved
// one after another mostly share their leading names (the levels of a folder being made, the entries of
// a folder being walked), so each thread keeps the last one and takes apart only what follows the text
// it shares with it: a path thousands of names deep then costs a comparison of its text, not the work
// of every name again.
struct SplitPath {
    WString full;                        // as FullWin32Path gives it: "X:\a\b"
    std::vector<uint32_t> starts;        // where each name starts in full
    std::vector<uint32_t> ends;          // where it ends
    std::vector<WString> names;
    std::vector<std::string> hostNames;  // a pattern's as its UTF-8, for matching only
    std::vector<uint8_t> plain;          // neither characters no name may hold nor wildcards
    std::vector<uint8_t> mapped;         // a pattern, or a name some host name lists under
};

SplitPath& SplitOf(const WString& full) {
    thread_local SplitPath split;
    const size_t common = static_cast<size_t>(
        std::mismatch(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(std::min(full.size(), split.full.size())),
                      split.full.begin())
            .first -
        full.begin());
    // A name is kept when its text and the separator or end after it are shared.
    size_t keep = 0;
    while (keep < split.names.size() && split.ends[keep] <= common &&
           (split.ends[keep] == full.size() || full[split.ends[keep]] == '\\'))
        ++keep;
    split.starts.resize(keep);
    split.ends.resize(keep);
    split.names.resize(keep);
    split.hostNames.resize(keep);
    split.plain.resize(keep);
    split.mapped.resize(keep);
    for (size_t at = keep == 0 ? 3 : split.ends.back() + 1; at < full.size();) {
        size_t end = full.find('\\', at);
        if (end == WString::npos) end = full.size();
        if (end > at) {
            WString name = full.substr(at, end - at);
            const bool wildcard = HasWildcard(name);
            bool plain = !wildcard;
            for (WCHAR unit : name) plain = plain && !IsInvalidNameUnit(unit);
            std::string hostName;
            // A pattern is matched against listed names and never names a host entry itself.
            const bool mapped = wildcard ? (hostName = WStrToUtf8(name), true) : HostNameOfWindows(name, hostName);
            split.starts.push_back(static_cast<uint32_t>(at));
            split.ends.push_back(static_cast<uint32_t>(end));
            split.names.push_back(std::move(name));
            split.hostNames.push_back(std::move(hostName));
            split.plain.push_back(plain);
            split.mapped.push_back(mapped);
        }
        at = end + 1;
    }
    split.full = full;
    return split;
}

}  // namespace

bool WholeHostPath(const ResolvedPath& path, std::string& hostPath) {
    hostPath = path.volumeRoot;
    for (size_t i = 0; i < path.components.size(); ++i) {
        std::string hostName;
        if (!HostNameOfWindows(path.components[i], hostName)) return false;
        if (hostPath.back() != '/') hostPath += '/';
        hostPath += hostName;
    }
    return hostPath.size() < PATH_MAX;
}

bool Resolve(LPCWSTR path, ResolvedPath& out, Wildcards wildcards) {
    out = ResolvedPath();
    WString full;
    if (!FullWin32Path(path, full)) return false;
    out.drive = full[0];
    out.trailingSeparator = full.size() > 3 && full.back() == '\\';
    out.volumeRoot = DriveRoot(out.drive);
    if (out.volumeRoot.empty()) return Fail(ERROR_PATH_NOT_FOUND, false);

    SplitPath& split = SplitOf(full);
    const std::vector<WString>& names = split.names;
    const std::vector<std::string>& hostNames = split.hostNames;
    for (size_t i = 0; i < names.size(); ++i) {
        const bool last = i + 1 == names.size();
        if (split.plain[i]) continue;
        if (!last || wildcards != Wildcards::AllowInLast) return Fail(ERROR_INVALID_NAME, false);
        // A find pattern may hold the DOS wildcards, which no name can.
        for (WCHAR unit : names[i]) {
            if (IsInvalidNameUnit(unit) && !IsDosWildcard(unit)) return Fail(ERROR_INVALID_NAME, false);
        }
    }
    for (size_t i = 0; i < names.size(); ++i) {
        if (!split.mapped[i]) return Fail(ERROR_INVALID_NAME, false);
    }
    // The names' text with the case as written, for the names found as written.
    auto assignNames = [&](size_t count) {
        out.components.AssignPrefix(full, 2, count == 0 ? 2 : split.ends[count - 1], split.starts, count);
    };

    std::string host = out.volumeRoot;
    const bool lastHasWildcard = !names.empty() && HasWildcard(names.back());
    size_t hostLength = out.volumeRoot.size();
    for (const std::string& hostName : hostNames) hostLength += hostName.size() + 1;
    auto joinAll = [&](size_t count) {
        std::string joined = out.volumeRoot;
        joined.reserve(hostLength);
        for (size_t i = 0; i < count; ++i) {
            if (joined.back() != '/') joined += '/';
            joined += hostNames[i];
        }
        return joined;
    };

    HostStatus entry;
    size_t resolvedCount = 0;
    bool lastExactMissing = false;
    int wholeError = 0;
    bool deep = names.size() > kDirectWalkNames || hostLength >= PATH_MAX;
    size_t reached = 0;
    AnchorRef anchor;
    if (deep) {
        // The folder of the last name, from the deepest of its folders held, as far as its names are
        // written as on disk; the rest is looked up one name at a time below, as for any path.
        anchor = ReachHostFolder(joinAll(names.size() - 1), reached);
        // Without a held folder (no inotify, say) a path the host can take whole is walked the usual way.
        if (!anchor || reached < out.volumeRoot.size()) {
            if (hostLength >= PATH_MAX) return Fail(ERROR_FILENAME_EXCED_RANGE, false);
            deep = false;
        }
    }
    if (deep) {
        size_t length = out.volumeRoot.size();
        for (size_t i = 0; i + 1 < names.size(); ++i) {
            length += (i == 0 && out.volumeRoot == "/" ? 0 : 1) + hostNames[i].size();
            if (length > reached) break;
            resolvedCount = i + 1;
        }
        host = anchor->path();
        out.anchor = std::move(anchor);
        assignNames(resolvedCount);
    }

    // Most paths are written with the case they have on disk: one look at the whole path, or at its
    // folder, settles them without walking the components one by one.
    if (!deep && !names.empty() && !lastHasWildcard && (StatHost(joinAll(names.size()), entry) || ((wholeError = errno), false))) {
        resolvedCount = names.size();
        host = joinAll(names.size());
        out.hostParent = joinAll(names.size() - 1);
        assignNames(names.size());
    } else if (!deep && names.size() > 1) {
        HostStatus folder;
        const std::string parent = joinAll(names.size() - 1);
        if (StatHost(parent, folder) && LeadsToFolder(parent, folder.status)) {
            lastExactMissing = !lastHasWildcard;
            resolvedCount = names.size() - 1;
            host = parent;
            assignNames(names.size() - 1);
        }
    }

    // A new name in a folder that exists (the target of a copy, a folder being made): the folder's listing
    // says whether the name is there in another case, without opening the folder; a lookup that met no
    // refusal on the way (ENOENT) shows the folder can be entered.
    if (lastExactMissing && resolvedCount + 1 == names.size() && wholeError == ENOENT &&
        FindFoldedEntry(host, hostNames.back(), names.back()).empty()) {
        out.components.push_back(names.back());
        out.hostParent = host;
        out.hostPath = JoinHost(host, hostNames.back());
        return true;
    }

    // The rest, one component at a time, each looked up in the folder reached so far through a descriptor
    // of it, so that every step costs the same however deep it is.
    if (resolvedCount < names.size()) {
        // A held folder is looked in through its own descriptor; any other is opened.
        HostFd opened(out.anchor ? -1 : open(host.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        int folder = out.anchor ? out.anchor->fd() : opened.get();
        if (folder < 0) return Fail(errno == EACCES ? ERROR_ACCESS_DENIED : ERROR_PATH_NOT_FOUND, false);
        for (size_t i = resolvedCount; i < names.size(); ++i) {
            const bool last = i + 1 == names.size();
            const std::string hostName = HasWildcard(names[i]) ? std::string()
                                                               : FindEntryNoCase(folder, host, hostNames[i], names[i], entry,
                                                                                 last && lastExactMissing);
            if (hostName.empty()) {
                // A folder the user may not enter hides what is in it: that is a refusal, not a missing name.
                if (faccessat(AT_FDCWD, host.c_str(), X_OK, AT_EACCESS) != 0 && errno == EACCES)
                    return Fail(ERROR_ACCESS_DENIED, false);
                if (!last) return Fail(ERROR_PATH_NOT_FOUND, false);
                out.components.push_back(names[i]);
                out.hostParent = host;
                out.hostPath = JoinHost(host, hostNames[i]);
                return true;
            }
            if (last) out.hostParent = host;
            if (host.back() != '/') host += '/';
            host += hostName;
            out.components.push_back(WindowsNameOfHost(hostName));
            if (!last) {
                // A folder on the way may be a link to a folder, as a junction is on Windows.
                opened.reset(openat(folder, hostName.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
                if (!opened) return Fail(errno == EACCES ? ERROR_ACCESS_DENIED : ERROR_PATH_NOT_FOUND, false);
                folder = opened.get();
            }
        }
    }
    if (names.empty()) {
        out.hostParent = host;
        if (!StatHost(host, entry)) return true;
    }
    out.status = entry.status;
    out.hasBirth = entry.hasBirth;
    out.birth = entry.birth;
    out.hostPath = host;
    out.exists = true;
    // "file.txt\" names no folder.
    if (out.trailingSeparator && !S_ISDIR(out.status.st_mode)) {
        struct stat target {};
        if (!(S_ISLNK(out.status.st_mode) && stat(host.c_str(), &target) == 0 && S_ISDIR(target.st_mode)))
            return Fail(ERROR_INVALID_NAME, false);
    }
    return true;
}

}  // namespace vlx
