// Searches: folder listings by pattern in NTFS name order, and every hard-link name of a file.
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>

#include "../core/internal.h"
#include "../core/table.h"
#include "host_link_names.h"
#include "host_names.h"
#include "image_calls.h"

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

class FindObject : public KernelObject {
public:
    bool IsSearch() const override { return true; }
    std::mutex lock;
    std::vector<Candidate> entries;
    size_t next = 0;
};

class FileNameFindObject : public KernelObject {
public:
    bool IsSearch() const override { return true; }
    std::mutex lock;
    std::vector<WString> names;
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

bool NextFromFind(FindObject& find, WIN32_FIND_DATAW& data) {
    std::lock_guard guard(find.lock);
    while (find.next < find.entries.size()) {
        if (FillFindData(find.entries[find.next++], data)) return true;
    }
    return false;
}

}  // namespace

HANDLE WINAPI FindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
    if (auto answer = ImageFindFirstFile(pattern, data)) return *answer;
    if (data == nullptr) return Fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
    ResolvedPath resolved;
    if (!Resolve(pattern, resolved, Wildcards::AllowInLast)) return INVALID_HANDLE_VALUE;
    // A pattern that ends in a separator, or names a volume root, has no name part to match.
    if (resolved.isRoot() || resolved.trailingSeparator) return Fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);

    const WString& namePattern = resolved.components.back();
    const std::string& folder = resolved.hostParent;
    const bool folderIsRoot = resolved.components.size() == 1;
    auto find = std::make_shared<FindObject>();

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
            if (MatchesPattern(namePattern, name)) listed.push_back({name, JoinHost(folder, hostName), false});
        }
        closedir(dir);
        std::sort(listed.begin(), listed.end(), [](const Candidate& a, const Candidate& b) { return NameLessNtfs(a.name, b.name); });
        // "." and ".." come first in every folder but a root, as NTFS returns them.
        if (!folderIsRoot) {
            if (MatchesPattern(namePattern, _T("."))) find->entries.push_back({_T("."), folder, false});
            if (MatchesPattern(namePattern, _T(".."))) {
                const size_t slash = folder.find_last_of('/');
                const std::string parent = slash == 0 || slash == std::string::npos ? std::string("/") : folder.substr(0, slash);
                find->entries.push_back({_T(".."), parent, resolved.components.size() == 2});
            }
        }
        find->entries.insert(find->entries.end(), std::make_move_iterator(listed.begin()), std::make_move_iterator(listed.end()));
    }
    if (!NextFromFind(*find, *data)) return Fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
    HANDLE handle = InsertHandle(std::move(find));
    SetLastErrorCode(ERROR_SUCCESS);
    return handle;
}

BOOL WINAPI FindNextFileW(HANDLE handle, LPWIN32_FIND_DATAW data) {
    if (auto answer = ImageFindNextFile(handle, data)) return *answer;
    auto find = LookupHandleAs<FindObject>(handle);
    if (!find) return Fail(ERROR_INVALID_HANDLE, FALSE);
    if (data == nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    if (!NextFromFind(*find, *data)) return Fail(ERROR_NO_MORE_FILES, FALSE);
    return TRUE;
}

BOOL WINAPI FindClose(HANDLE handle) {
    if (!RemoveHandleIf(handle, [](KernelObject& object) { return object.IsSearch(); })) return Fail(ERROR_INVALID_HANDLE, FALSE);
    return TRUE;
}

namespace {

// Copies one name out as FindFirstFileNameW does: the length goes in as the buffer size and comes out as
// the needed size when the name does not fit.
bool CopyLinkName(const WString& name, LPDWORD length, PWSTR buffer) {
    const DWORD needed = static_cast<DWORD>(name.size() + 1);
    if (buffer == nullptr || *length < needed) {
        *length = needed;
        return Fail(ERROR_MORE_DATA, false);
    }
    name.copy(buffer, name.size());
    buffer[name.size()] = 0;
    *length = needed;
    return true;
}

}  // namespace

HANDLE WINAPI FindFirstFileNameW(LPCWSTR path, DWORD flags, LPDWORD length, PWSTR name) {
    if (auto answer = ImageFindFirstFileName(path, flags, length, name)) return *answer;
    if (flags != 0 || length == nullptr) return Fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
    ResolvedPath resolved;
    if (!Resolve(path, resolved)) return INVALID_HANDLE_VALUE;
    if (!resolved.exists) return Fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
    struct stat status {};
    if (stat(resolved.hostPath.c_str(), &status) != 0) return Fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);

    auto find = std::make_shared<FileNameFindObject>();
    // The name given comes first; the walk adds the others.
    find->names.push_back(resolved.volumeRelative());
    if (!S_ISDIR(status.st_mode) && status.st_nlink > 1) CollectHostLinkNames(resolved, status, find->names);
    if (!CopyLinkName(find->names[0], length, name)) return INVALID_HANDLE_VALUE;
    find->next = 1;
    return InsertHandle(std::move(find));
}

BOOL WINAPI FindNextFileNameW(HANDLE handle, LPDWORD length, PWSTR name) {
    if (auto answer = ImageFindNextFileName(handle, length, name)) return *answer;
    auto find = LookupHandleAs<FileNameFindObject>(handle);
    if (!find) return Fail(ERROR_INVALID_HANDLE, FALSE);
    if (length == nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    std::lock_guard guard(find->lock);
    if (find->next >= find->names.size()) return Fail(ERROR_HANDLE_EOF, FALSE);
    if (!CopyLinkName(find->names[find->next], length, name)) return FALSE;
    ++find->next;
    return TRUE;
}

}  // namespace vlx
