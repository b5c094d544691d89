// Searches on host-folder volumes: folder listings by pattern in NTFS name order, and every hard-link name
// of a file.
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>

#include "../core/internal.h"
#include "../core/table.h"
#include "host_folder_cache.h"
#include "host_link_names.h"
#include "host_names.h"
#include "host_kind.h"

namespace vlx {

namespace {

struct Candidate {
    Candidate(WString name_, std::string hostPath_, bool isRootEntry_)
        : name(std::move(name_)), hostPath(std::move(hostPath_)), isRootEntry(isRootEntry_) {}
    WString name;          // as Windows reports it
    std::string hostPath;  // the entry itself; for "." and ".." the folders they stand for
    bool isRootEntry;      // the entry is a volume root (".." of a first-level folder)
    std::unique_ptr<HostStatus> known;  // the status, when it was read already
};

class FindObject : public SearchObject {
public:
    bool Next(WIN32_FIND_DATAW& data) override;
    std::mutex lock;
    AnchorRef anchor;  // what the candidates' paths start from, for a deep folder
    std::vector<Candidate> entries;
    size_t next = 0;
};

std::string JoinHost(const std::string& folder, const std::string& name) {
    if (!folder.empty() && folder.back() == '/') return folder + name;
    return folder + "/" + name;
}

// Fills the find data of one candidate; false when it vanished since the folder was read.
bool FillFindData(const Candidate& entry, WIN32_FIND_DATAW& data) {
    HostStatus fresh;
    if (!entry.known && !StatHost(entry.hostPath, fresh)) return false;
    const HostStatus& host = entry.known ? *entry.known : fresh;
    std::memset(&data, 0, sizeof data);
    data.dwFileAttributes = HostAttributes(entry.hostPath, host.status, entry.isRootEntry);
    const FileTimes times = HostTimes(host);
    data.ftCreationTime = times.created;
    data.ftLastAccessTime = times.accessed;
    data.ftLastWriteTime = times.written;
    if (!(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
        // A reparse point reports no data of its own.
        const ULONGLONG size = S_ISLNK(host.status.st_mode) ? 0 : static_cast<ULONGLONG>(host.status.st_size);
        data.nFileSizeHigh = static_cast<DWORD>(size >> 32);
        data.nFileSizeLow = static_cast<DWORD>(size);
    }
    WStrCopy(data.cFileName, MAX_PATH, entry.name.c_str());
    return true;
}

bool FindObject::Next(WIN32_FIND_DATAW& data) {
    std::lock_guard guard(lock);
    while (next < entries.size()) {
        if (FillFindData(entries[next++], data)) return true;
    }
    return Fail(ERROR_NO_MORE_FILES, false);
}

}  // namespace

HANDLE HostKind::FindFirst(LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
    ResolvedPath resolved;
    if (!Resolve(pattern, resolved, Wildcards::AllowInLast)) return INVALID_HANDLE_VALUE;
    // A pattern that ends in a separator, or names a volume root, has no name part to match; the folder
    // before the separator is missing or found empty of that.
    if (resolved.isRoot()) return Fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
    if (resolved.trailingSeparator) return Fail(resolved.exists ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND, INVALID_HANDLE_VALUE);

    const WString namePattern = FindPatternOf(pattern, resolved.components.back());
    const std::string& folder = resolved.hostParent;
    const bool folderIsRoot = resolved.components.size() == 1;
    auto find = std::make_shared<FindObject>();
    find->anchor = resolved.anchor;

    if (!HasWildcard(namePattern)) {
        if (!resolved.exists) return Fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
        // The name as stored, whatever case the pattern wrote it in.
        Candidate only{resolved.components.back(), resolved.hostPath, false};
        only.known = std::make_unique<HostStatus>();
        only.known->status = resolved.status;
        only.known->hasBirth = resolved.hasBirth;
        only.known->birth = resolved.birth;
        find->entries.push_back(std::move(only));
    } else {
        DIR* dir = opendir(folder.c_str());
        if (dir == nullptr) return Fail(errno == EACCES ? ERROR_ACCESS_DENIED : ERROR_PATH_NOT_FOUND, INVALID_HANDLE_VALUE);
        std::vector<Candidate> listed;
        while (dirent* entry = readdir(dir)) {
            const std::string hostName = entry->d_name;
            if (hostName == "." || hostName == "..") continue;
            const WString name = WindowsNameOfHost(hostName);
            if (!MatchesPattern(namePattern, name)) continue;
            // Each entry is looked at relative to the open folder, as the listing is read, the way NTFS
            // hands out an entry's facts with its name: no walk of the whole path per entry. One that is
            // gone by now is left out.
            auto known = std::make_unique<HostStatus>();
            if (!StatHostAt(dirfd(dir), hostName.c_str(), *known)) continue;
            listed.push_back({name, JoinHost(folder, hostName), false});
            listed.back().known = std::move(known);
        }
        closedir(dir);
        std::sort(listed.begin(), listed.end(), [](const Candidate& a, const Candidate& b) { return NameLessNtfs(a.name, b.name); });
        // "." and ".." come first in every folder but a root, as NTFS returns them.
        if (!folderIsRoot) {
            if (MatchesPattern(namePattern, _T("."))) find->entries.push_back({_T("."), folder, false});
            if (MatchesPattern(namePattern, _T(".."))) {
                const size_t slash = folder.find_last_of('/');
                // A held folder's path says nothing of its parent: the host finds it.
                const std::string parent = IsAnchoredPath(folder) ? folder + "/.."
                                           : slash == 0 || slash == std::string::npos ? std::string("/")
                                                                                     : folder.substr(0, slash);
                find->entries.push_back({_T(".."), parent, resolved.components.size() == 2});
            }
        }
        find->entries.insert(find->entries.end(), std::make_move_iterator(listed.begin()), std::make_move_iterator(listed.end()));
    }
    if (!find->Next(*data)) return Fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
    HANDLE handle = InsertHandle(std::move(find));
    SetLastErrorCode(ERROR_SUCCESS);
    return handle;
}

HANDLE HostKind::FindFirstLinkName(LPCWSTR path, LPDWORD length, PWSTR name) {
    ResolvedPath resolved;
    if (!Resolve(path, resolved)) return INVALID_HANDLE_VALUE;
    if (!resolved.exists) return Fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
    struct stat status {};
    if (stat(resolved.hostPath.c_str(), &status) != 0) return Fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);

    // The name given comes first; the walk adds the others.
    std::vector<WString> names{resolved.volumeRelative()};
    if (!S_ISDIR(status.st_mode) && status.st_nlink > 1) CollectHostLinkNames(resolved, status, names);
    return StartLinkNameSearch(std::move(names), length, name);
}

}  // namespace vlx
