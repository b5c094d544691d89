// Shared machinery of the Linux platform: the last error, errno mapping, path resolution, the handle
// table, share modes and attribute mapping.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>
#include <vector>

#include "../../wstr.h"
#include "../../win32.h"
#include "../host.h"

#ifndef ERROR_TOO_MANY_LINKS
#define ERROR_TOO_MANY_LINKS 1142L
#endif
#ifndef ERROR_IO_DEVICE
#define ERROR_IO_DEVICE 1117L
#endif

namespace vlx {

// ---- Last error

DWORD LastError();
void SetLastErrorCode(DWORD code);
// The Win32 code that stands for a host errno.
DWORD Win32ErrorFromErrno(int error);
// Sets the last error and returns the given failure value, for one-line failure paths.
template <class T>
T Fail(DWORD code, T result) {
    SetLastErrorCode(code);
    return result;
}

// ---- Names

// Upper-case folding of one UTF-16 unit, as a volume's upcase table does for the scripts we meet.
WCHAR FoldUnit(WCHAR unit);
bool NamesEqualNoCase(const WString& a, const WString& b);
// NTFS order: by folded code units.
bool NameLessNtfs(const WString& a, const WString& b);
// Whether a find pattern's name (as typed, see FindPatternOf) matches a name, by Windows' rules: `*`, `?`
// and the DOS wildcards `<` `>` `"`, a trailing dot for "no extension", `*.*` for every name, `?` never
// taking a dot, without regard to case. Every volume's FindFirstFileW matches with it.
bool MatchesPattern(const WString& pattern, const WString& name);
// The last name of a find pattern as the caller typed it, for MatchesPattern: path rules drop trailing
// dots and spaces, but a dot there still means "no extension". resolvedName is that name after the path
// rules; it is the answer when the typed text does not end in it (a pattern followed by "..", say).
WString FindPatternOf(LPCWSTR typed, const WString& resolvedName);
// The last name of a path as written: what follows its last separator, or its drive ("X:name").
WString LastNameOf(LPCWSTR path);
bool IsDosWildcard(WCHAR unit);
// The name on disk of the entry of a host folder that equals name (exact, its host name) without regard
// to case, or empty when there is none. For names not found as typed: answered from listings kept exact by
// inotify, so that a folder is not read through for every new name made in it.
std::string FindFoldedEntry(const std::string& folder, const std::string& exact, const WString& name);
bool HasWildcard(const WString& text);

// ---- Paths

// What the host says of one entry, in one call: its lstat and, where the file system keeps one, its birth.
struct HostStatus {
    struct stat status {};
    bool hasBirth = false;
    struct timespec birth {};
};
// lstat with the birth time; false with errno set when the entry cannot be reached.
bool StatHost(const std::string& hostPath, HostStatus& out);
// The same for a name (or a relative path) in an open host folder.
bool StatHostAt(int folder, const char* name, HostStatus& out);

class FolderAnchor;

// The names of a resolved path below its volume's root, kept as one text ("\a\b") and where each name
// starts in it, so that a path thousands of names deep is copied in one piece and not name by name.
class PathNames {
public:
    bool empty() const { return starts_.empty(); }
    size_t size() const { return starts_.size(); }
    WString operator[](size_t index) const;
    WString back() const { return (*this)[size() - 1]; }
    void push_back(const WString& name);
    // The first count names of text[from, to), whose names start at starts (indexes in text).
    void AssignPrefix(const WString& text, size_t from, size_t to, const std::vector<uint32_t>& starts, size_t count);
    // "\a\b"; empty for no names.
    const WString& text() const { return text_; }

private:
    WString text_;
    std::vector<uint32_t> starts_;
};

// A Win32 path taken apart and looked up on its volume.
struct ResolvedPath {
    WCHAR drive = 0;                   // upper-case letter
    std::string volumeRoot;            // host folder of the volume
    PathNames components;              // from the volume root, with the case found on disk where it exists
    std::string hostPath;              // host path of the whole (existing components with their disk case)
    std::string hostParent;            // host path of all but the last component
    bool trailingSeparator = false;    // the path ended in a separator
    bool exists = false;               // the whole path names an existing entry
    struct stat status {};             // lstat of hostPath when exists
    bool hasBirth = false;             // birth time of hostPath, when exists and the host keeps one
    struct timespec birth {};
    // For a path too deep to be walked from the root each time: the folder its host paths start from
    // ("/proc/self/fd/N/..."), which they are only good for while it is held.
    std::shared_ptr<const FolderAnchor> anchor;
    bool isRoot() const { return components.empty(); }
    WString win32Path() const;         // "X:\a\b" with the disk case
    WString volumeRelative() const;    // "\a\b"
};

enum class Wildcards { Refuse, AllowInLast };

// Resolves a Win32 path. On failure returns false with the last error set as Windows sets it for a path
// that cannot be reached: ERROR_PATH_NOT_FOUND (missing folder on the way, unknown drive),
// ERROR_INVALID_NAME (bad characters, wildcards where none may be, a name no host name lists under),
// ERROR_FILENAME_EXCED_RANGE (longer than a host path can be). A missing last component is not a
// failure: exists is false. The cost is in proportion to the path's length.
bool Resolve(LPCWSTR path, ResolvedPath& out, Wildcards wildcards = Wildcards::Refuse);

// The host path of a resolved path written out from the root, for a path kept past the call that
// resolved it (a record on disk, an object that outlives its anchor); false when the host cannot take it
// whole.
bool WholeHostPath(const ResolvedPath& path, std::string& hostPath);

// Full Win32 path of a possibly relative one, without touching any volume. False with the last error set
// when the text is not a usable path.
bool FullWin32Path(LPCWSTR path, WString& full);

WString CurrentDirectory();
void SetCurrentDirectoryPath(const WString& path);

// ---- Attributes and times

FILETIME FileTimeFromTimespec(const struct timespec& time);
struct timespec TimespecFromFileTime(const FILETIME& time);
// Attribute word of a host entry: folder bit from the type, read-only from the owner's write permission,
// hidden, system and archive from the user.DOSATTRIB extended attribute.
DWORD HostAttributes(const std::string& hostPath, const struct stat& status, bool isVolumeRoot);
// Writes read-only, hidden, system and archive. False with the last error set on failure.
bool WriteHostAttributes(const std::string& hostPath, const struct stat& status, DWORD attributes);
struct FileTimes {
    FILETIME created, accessed, written;
};
FileTimes HostTimes(const std::string& hostPath, const struct stat& status);
// The same from a status that already carries the birth time, with no further call to the host.
FileTimes HostTimes(const HostStatus& entry);
// The time SetFileTime is to write, or null where the value given leaves the time as it is (null, 0, or
// all ones).
const FILETIME* TimeToSet(const FILETIME* time);

// ---- Handle table

class KernelObject {
public:
    virtual ~KernelObject() = default;
    // Searches are ended by FindClose and refused by CloseHandle; everything else the other way round.
    virtual bool IsSearch() const { return false; }
};

HANDLE InsertHandle(std::shared_ptr<KernelObject> object);
std::shared_ptr<KernelObject> LookupHandle(HANDLE handle);
template <class T>
std::shared_ptr<T> LookupHandleAs(HANDLE handle) {
    return std::dynamic_pointer_cast<T>(LookupHandle(handle));
}
bool RemoveHandleIf(HANDLE handle, bool (*accept)(KernelObject&));
// Removes the handle when it holds a T; the object dies with its last reference.
template <class T>
bool RemoveHandleOf(HANDLE handle) {
    return RemoveHandleIf(handle, [](KernelObject& object) { return dynamic_cast<T*>(&object) != nullptr; });
}

// ---- Share modes

// One open of one file, registered while the handle lives. Share modes hold between the process's own
// handles through a registry, and between processes through open file description locks on bytes far
// past the end of any real file (handles.cpp says how, and where that stops).
struct OpenRecord {
    dev_t device = 0;
    ino_t inode = 0;
    DWORD access = 0;  // generic rights expanded to specific ones
    DWORD share = 0;
    int lockFd = -1;          // the description that holds the record's locks, or -1 for none
    bool ownsLockFd = false;  // opened for the locks alone, closed with them
};
DWORD ExpandAccess(DWORD access);
// False with ERROR_SHARING_VIOLATION when an open with this access and share mode conflicts with another
// of this process.
bool CheckShare(dev_t device, ino_t inode, DWORD access, DWORD share);
// The same against every process, for a change made by name without an open (deletion).
bool CheckShareOfPath(const std::string& hostPath, const struct stat& status, DWORD access, DWORD share);
// The same for the entry name of the folder open as folderFd (AT_FDCWD: name is a path).
bool CheckShareAt(int folderFd, const std::string& name, const struct stat& status, DWORD access, DWORD share);
// Checks the record against every other open, of this process and of others, and registers it, in one
// step so that two opens cannot both pass; false with ERROR_SHARING_VIOLATION on a conflict. fd is the
// handle's own open file; -1 (a file inside a disk image) shares within this process only.
bool RegisterOpen(OpenRecord* record, int fd);
void UnregisterOpen(OpenRecord* record);

}  // namespace vlx
