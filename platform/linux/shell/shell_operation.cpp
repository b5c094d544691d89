// SHFileOperationW: the shell's copy and delete of files and folder trees, with its questions put to the
// host's dialog responder.
//
// Results, as the shell gives them:
//   0                     everything asked for was done (files the user chose to skip included);
//   ERROR_CANCELLED       the user cancelled at a question, or the question could not be shown;
//                         fAnyOperationsAborted is set;
//   ERROR_FILE_NOT_FOUND  a source without wildcards does not exist (checked before anything is done);
//   DE_SAMEFILE           a file would be copied onto itself;
//   DE_DESTSUBTREE        a folder would be copied into itself;
//   DE_MANYDEST           FOF_MULTIDESTFILES with a to-list of another length than the from-list;
//   DE_FLDDESTISFILE      a folder would be copied onto an existing file;
//   DE_FILEDESTISFLD      a file would be copied onto an existing folder;
//   ERROR_INVALID_PARAMETER  no record, no from-list, no to-list for a copy, an empty list;
//   ERROR_NOT_SUPPORTED   a function other than FO_COPY and FO_DELETE, or FOF_ALLOWUNDO (there is no
//                         recycle bin to move to);
//   DE_ROOTDIR            a delete would take a volume's root folder;
//   ERROR_SHARING_VIOLATION  a delete would take the current folder or a folder holding it (Windows keeps
//                         the current folder open);
//   any other Win32 code  the error of the first copy, folder creation or folder listing that failed,
//                         where the copy stops, as the shell does once its error message is closed; or of
//                         the first entry a delete could not remove, which goes on with the others.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <vector>

#include "../core/internal.h"
#include "../core/scoped_handle.h"

namespace vlx {

namespace {

struct ShellRun {
    HWND owner;
    FILEOP_FLAGS flags;
    bool confirm() const { return (flags & FOF_NOCONFIRMATION) == 0; }
};

// The entries of a double-NUL-terminated list.
std::vector<WString> SplitList(PCZZWSTR list) {
    std::vector<WString> entries;
    for (LPCWSTR at = list; *at != 0; at += WStrLen(at) + 1) entries.emplace_back(at);
    return entries;
}

bool IsSeparator(WCHAR unit) { return unit == '\\' || unit == '/'; }

WString NameOf(const WString& path) {
    size_t end = path.size();
    while (end > 0 && IsSeparator(path[end - 1])) --end;
    size_t start = end;
    while (start > 0 && !IsSeparator(path[start - 1])) --start;
    return path.substr(start, end - start);
}

WString Join(const WString& folder, const WString& name) {
    // A bare drive "C:" stands for the current folder of that drive, as "C:name" does; "C:\name" would
    // be its root.
    const bool bareDrive = folder.size() == 2 && folder[1] == ':';
    if (!folder.empty() && (IsSeparator(folder.back()) || bareDrive)) return folder + name;
    return folder + _T("\\") + name;
}

bool Exists(const WString& path, DWORD& attributes) {
    attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES;
}

// One item of a from-entry: a path, and whether it is a folder.
struct Item {
    WString path;
    bool isFolder;
};

// The items a from-entry stands for: the entries its wildcards match in its folder ("." and ".." never),
// or the one path it names. False with the code to return when a plain path does not exist.
bool Expand(const WString& entry, bool filesOnly, std::vector<Item>& items, bool& wildcard, int& code) {
    const WString name = NameOf(entry);
    wildcard = HasWildcard(name);
    if (!wildcard) {
        DWORD attributes;
        if (!Exists(entry, attributes)) {
            code = ERROR_FILE_NOT_FOUND;
            return false;
        }
        items.push_back({entry, (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0});
        return true;
    }
    const WString folder = entry.substr(0, entry.size() - name.size());
    WIN32_FIND_DATAW data;
    ScopedFind find(FindFirstFileW(entry.c_str(), &data));
    if (!find) {
        // Nothing matches: nothing to do for this entry. A folder that cannot be listed (access denied, a
        // path too long) is a failure, never taken for an empty one.
        if (LastError() == ERROR_FILE_NOT_FOUND) return true;
        code = static_cast<int>(LastError());
        return false;
    }
    do {
        const WString found = data.cFileName;
        if (found == _T(".") || found == _T("..")) continue;
        const bool isFolder = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        if (isFolder && filesOnly) continue;
        items.push_back({folder + found, isFolder});
    } while (FindNextFileW(find.get(), &data));
    return true;
}

// Makes a folder and every missing one above it; 0 or the error.
int MakeFolders(const WString& path) {
    WString full;
    if (!FullWin32Path(path.c_str(), full)) return static_cast<int>(LastError());
    for (size_t at = 3; at <= full.size(); ++at) {
        if (at < full.size() && full[at] != '\\') continue;
        const WString level = full.substr(0, at);
        DWORD attributes;
        if (Exists(level, attributes)) {
            if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return ERROR_PATH_NOT_FOUND;
            continue;
        }
        if (!CreateDirectoryW(level.c_str(), nullptr)) return static_cast<int>(LastError());
    }
    return 0;
}

bool SameEntry(const WString& a, const WString& b) {
    ResolvedPath first, second;
    if (!Resolve(a.c_str(), first) || !Resolve(b.c_str(), second) || !first.exists || !second.exists) return false;
    struct stat x {}, y {};
    return stat(first.hostPath.c_str(), &x) == 0 && stat(second.hostPath.c_str(), &y) == 0 && x.st_dev == y.st_dev &&
           x.st_ino == y.st_ino;
}

// Whether inner is outer itself or lies below it, by their full paths.
bool IsSameOrBelow(const WString& inner, const WString& outer) {
    WString a, b;
    if (!FullWin32Path(inner.c_str(), a) || !FullWin32Path(outer.c_str(), b)) return false;
    while (a.size() > 3 && a.back() == '\\') a.pop_back();
    while (b.size() > 3 && b.back() == '\\') b.pop_back();
    if (a.size() < b.size() || !NamesEqualNoCase(a.substr(0, b.size()), b)) return false;
    return a.size() == b.size() || a[b.size()] == '\\' || b.back() == '\\';
}

// The host's stand-in for the shell's progress window.
std::mutex g_progressLock;
ShellProgressObserver g_progressObserver;

ShellProgressObserver CurrentProgressObserver() {
    std::lock_guard lock(g_progressLock);
    return g_progressObserver;
}

struct ProgressContext {
    const ShellProgressObserver& observer;
    ShellCopyProgress& progress;
};

DWORD CALLBACK ReportChunk(LARGE_INTEGER total, LARGE_INTEGER transferred, LARGE_INTEGER, LARGE_INTEGER, DWORD, DWORD, HANDLE,
                           HANDLE, LPVOID data) {
    auto& context = *static_cast<ProgressContext*>(data);
    context.progress.fileBytes = static_cast<ULONGLONG>(total.QuadPart);
    context.progress.fileDone = static_cast<ULONGLONG>(transferred.QuadPart);
    context.observer(context.progress);
    return PROGRESS_CONTINUE;
}

int CopyFolder(const ShellRun& run, const WString& source, const WString& target);

int CopyOneFile(const ShellRun& run, const WString& source, const WString& target) {
    DWORD attributes;
    if (Exists(target, attributes)) {
        if (attributes & FILE_ATTRIBUTE_DIRECTORY) return DE_FILEDESTISFLD;
        if (SameEntry(source, target)) return DE_SAMEFILE;
        if (run.confirm()) {
            DialogRequest request;
            request.kind = DialogKind::ShellReplaceFile;
            request.owner = run.owner;
            request.source = source;
            request.target = target;
            request.itemCount = 1;
            const int answer = AskDialog(request);
            if (answer == IDNO) return 0;
            if (answer != IDYES) return ERROR_CANCELLED;
        }
        // Once the user (or FOF_NOCONFIRMATION) has agreed, a read-only target is replaced as well.
        if (attributes & FILE_ATTRIBUTE_READONLY) SetFileAttributesW(target.c_str(), attributes & ~FILE_ATTRIBUTE_READONLY);
    } else {
        const WString name = NameOf(target);
        const WString parent = target.substr(0, target.size() - name.size());
        if (const int made = MakeFolders(parent)) return made;
    }
    ShellProgressObserver observer = (run.flags & FOF_SILENT) ? ShellProgressObserver() : CurrentProgressObserver();
    if (!observer) {
        if (!CopyFileExW(source.c_str(), target.c_str(), nullptr, nullptr, nullptr, 0)) return static_cast<int>(LastError());
        return 0;
    }
    ShellCopyProgress progress;
    progress.source = source;
    progress.target = target;
    ProgressContext context{observer, progress};
    observer(progress);
    if (!CopyFileExW(source.c_str(), target.c_str(), ReportChunk, &context, nullptr, 0)) return static_cast<int>(LastError());
    return 0;
}

int CopyItem(const ShellRun& run, const Item& item, const WString& target) {
    return item.isFolder ? CopyFolder(run, item.path, target) : CopyOneFile(run, item.path, target);
}

// Copies the contents of source into target, making target first.
int CopyFolder(const ShellRun& run, const WString& source, const WString& target) {
    if (IsSameOrBelow(target, source)) return DE_DESTSUBTREE;
    DWORD attributes;
    if (Exists(target, attributes)) {
        if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return DE_FLDDESTISFILE;
    } else if (const int made = MakeFolders(target)) {
        return made;
    }
    std::vector<Item> children;
    bool wildcard = false;
    int code = 0;
    // A folder link is followed as the folder it leads to; a loop of links ends when the paths outgrow
    // MAX_PATH and the copy fails with that error, as a folder too deep to list does.
    if (!Expand(Join(source, _T("*")), false, children, wildcard, code)) return code;
    for (const Item& child : children) {
        if (const int result = CopyItem(run, child, Join(target, NameOf(child.path)))) return result;
    }
    return 0;
}

int RunCopy(const ShellRun& run, const std::vector<WString>& from, PCZZWSTR toList) {
    if (toList == nullptr) return ERROR_INVALID_PARAMETER;
    const std::vector<WString> to = SplitList(toList);
    if (to.empty()) return ERROR_INVALID_PARAMETER;
    const bool multiple = (run.flags & FOF_MULTIDESTFILES) != 0;
    if (multiple && to.size() != from.size()) return DE_MANYDEST;

    // Every source is looked at before anything is copied, so a missing one stops the whole operation.
    std::vector<std::vector<Item>> items(from.size());
    std::vector<bool> wildcards(from.size());
    for (size_t i = 0; i < from.size(); ++i) {
        bool wildcard = false;
        int code = 0;
        if (!Expand(from[i], (run.flags & FOF_FILESONLY) != 0, items[i], wildcard, code)) return code;
        wildcards[i] = wildcard;
    }
    for (size_t i = 0; i < from.size(); ++i) {
        const WString& destination = multiple ? to[i] : to[0];
        // The to-entry is a folder to copy into when the source names several items (wildcards, or several
        // sources for one destination) or is an existing folder; otherwise it is the copy's own name.
        const bool intoFolder = wildcards[i] || (!multiple && from.size() > 1);
        if (intoFolder) {
            DWORD attributes;
            if (Exists(destination, attributes) && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return DE_FLDDESTISFILE;
            if (const int made = MakeFolders(destination)) return made;
        }
        for (const Item& item : items[i]) {
            DWORD attributes;
            const bool destinationIsFolder = Exists(destination, attributes) && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
            const bool into = intoFolder || (destinationIsFolder && !(multiple && item.isFolder));
            const WString target = into ? Join(destination, NameOf(item.path)) : destination;
            if (const int result = CopyItem(run, item, target)) return result;
        }
    }
    return 0;
}

// Deleting a tree works on folder descriptors, never on paths rebuilt from names: each entry is looked at
// and removed relative to the open folder that holds it, a folder is entered only through a descriptor
// opened without following links and checked to be the entry just looked at, and the climb back up is
// checked against the folder it came from. So a name, a link or a rename during the deletion can never
// lead it outside the named folder. Links (to folders or anywhere) are removed themselves, never followed.
// The deletion stays on the file system of the named folder: a folder with another file system mounted on
// it is not entered, and its removal fails (as the host refuses to remove a mount point). Entries that
// cannot be deleted are left and the deletion goes on with the rest, so that what remains is exactly what
// could not be deleted (with the folders holding it); the first failure's code is the result.
class TreeDeletion {
public:
    int firstError = 0;

    // Removes one entry of the folder dirFd: a folder with what is inside it, anything else alone.
    void RemoveEntry(int dirFd, const std::string& name, const struct stat& status, dev_t device) {
        if (S_ISDIR(status.st_mode) && status.st_dev == device) EmptyFolder(dirFd, name, status);
        RemoveOne(dirFd, name, status);
    }

private:
    struct Level {
        dev_t device;
        ino_t inode;
        std::string name;                // in the folder above
        std::vector<std::string> names;  // still to delete
        size_t next = 0;
    };

    void Note(DWORD code) {
        if (firstError == 0) firstError = static_cast<int>(code);
    }

    void RemoveOne(int dirFd, const std::string& name, const struct stat& status) {
        // An entry another handle holds without sharing deletion stays, as Windows keeps it, whichever
        // process holds it.
        if (!CheckShareAt(dirFd, name, status, DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE)) {
            Note(ERROR_SHARING_VIOLATION);
            return;
        }
        if (unlinkat(dirFd, name.c_str(), S_ISDIR(status.st_mode) ? AT_REMOVEDIR : 0) != 0 && errno != ENOENT)
            Note(errno == ENOTEMPTY || errno == EEXIST ? ERROR_DIR_NOT_EMPTY : Win32ErrorFromErrno(errno));
    }

    static std::vector<std::string> ListNames(int folderFd) {
        std::vector<std::string> names;
        DIR* dir = fdopendir(dup(folderFd));
        if (dir == nullptr) return names;
        while (dirent* entry = readdir(dir)) {
            if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) names.emplace_back(entry->d_name);
        }
        closedir(dir);
        return names;
    }

    // Opens the folder name of dirFd as the entry status describes it; false when it is not that folder.
    bool Enter(int dirFd, const std::string& name, const struct stat& status, HostFd& folder) {
        folder.reset(openat(dirFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        struct stat opened {};
        if (!folder || fstat(folder.get(), &opened) != 0) {
            Note(Win32ErrorFromErrno(errno));
            return false;
        }
        if (opened.st_dev != status.st_dev || opened.st_ino != status.st_ino) {
            Note(ERROR_ACCESS_DENIED);
            return false;
        }
        // The shell deletes read-only entries too; on the host a folder needs write permission for that.
        if ((opened.st_mode & S_IWUSR) == 0) fchmod(folder.get(), opened.st_mode | S_IWUSR);
        return true;
    }

    // Deletes what is inside the folder name of dirFd. Depth-first with one folder open at a time, so
    // that a tree of any depth needs two descriptors; going back up opens ".." and checks that it is
    // the folder that was left.
    void EmptyFolder(int dirFd, const std::string& name, const struct stat& status) {
        HostFd current;
        if (!Enter(dirFd, name, status, current)) return;
        std::vector<Level> levels;
        levels.push_back({status.st_dev, status.st_ino, name, ListNames(current.get())});
        while (!levels.empty()) {
            Level& level = levels.back();
            if (level.next < level.names.size()) {
                const std::string child = level.names[level.next++];
                struct stat childStatus {};
                if (fstatat(current.get(), child.c_str(), &childStatus, AT_SYMLINK_NOFOLLOW) != 0) {
                    if (errno != ENOENT) Note(Win32ErrorFromErrno(errno));
                    continue;
                }
                if (!S_ISDIR(childStatus.st_mode) || childStatus.st_dev != levels.front().device) {
                    RemoveOne(current.get(), child, childStatus);
                    continue;
                }
                HostFd inner;
                if (!Enter(current.get(), child, childStatus, inner)) continue;
                current.reset(inner.release());
                levels.push_back({childStatus.st_dev, childStatus.st_ino, child, ListNames(current.get())});
                continue;
            }
            // This level is as empty as it can be made: back up to its folder and remove it there.
            const Level done = std::move(levels.back());
            levels.pop_back();
            if (levels.empty()) return;  // the named folder itself is removed by the caller
            HostFd parent(openat(current.get(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
            struct stat parentStatus {};
            if (!parent || fstat(parent.get(), &parentStatus) != 0 || parentStatus.st_dev != levels.back().device ||
                parentStatus.st_ino != levels.back().inode) {
                // The tree was moved while it was deleted: stop rather than delete somewhere else.
                Note(ERROR_ACCESS_DENIED);
                return;
            }
            current.reset(parent.release());
            struct stat doneStatus {};
            if (fstatat(current.get(), done.name.c_str(), &doneStatus, AT_SYMLINK_NOFOLLOW) == 0 &&
                doneStatus.st_ino == done.inode && doneStatus.st_dev == done.device)
                RemoveOne(current.get(), done.name, doneStatus);
        }
    }
};

// Deletes one item of a delete operation: a file or a link alone, a folder with everything in it. A
// volume's root and the current folder (or a folder holding it) are refused before anything is deleted.
int DeleteItem(const WString& path) {
    ResolvedPath resolved;
    if (!Resolve(path.c_str(), resolved)) return static_cast<int>(LastError());
    if (resolved.isRoot()) return DE_ROOTDIR;
    if (!resolved.exists) return 0;  // gone since it was listed
    if (IsSameOrBelow(CurrentDirectory(), resolved.win32Path())) return ERROR_SHARING_VIOLATION;
    const std::string leaf = resolved.hostPath.substr(resolved.hostPath.find_last_of('/') + 1);
    HostFd parent(open(resolved.hostParent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!parent) return static_cast<int>(Win32ErrorFromErrno(errno));
    struct stat status {};
    if (fstatat(parent.get(), leaf.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT ? 0 : static_cast<int>(Win32ErrorFromErrno(errno));
    TreeDeletion deletion;
    deletion.RemoveEntry(parent.get(), leaf, status, status.st_dev);
    return deletion.firstError;
}

int RunDelete(const ShellRun& run, const std::vector<WString>& from) {
    if (run.flags & FOF_ALLOWUNDO) return ERROR_NOT_SUPPORTED;
    std::vector<Item> items;
    for (const WString& entry : from) {
        // A root is refused as it stands, before its wildcards could list the whole volume.
        WString full;
        if (FullWin32Path(entry.c_str(), full) && full.size() == 3) return DE_ROOTDIR;
        bool wildcard = false;
        int code = 0;
        if (!Expand(entry, (run.flags & FOF_FILESONLY) != 0, items, wildcard, code)) return code;
    }
    if (items.empty()) return 0;
    for (const Item& item : items) {
        WString full;
        if (FullWin32Path(item.path.c_str(), full) && full.size() == 3) return DE_ROOTDIR;
    }
    if (run.confirm()) {
        DialogRequest request;
        request.kind = DialogKind::ShellDelete;
        request.owner = run.owner;
        request.target = items.front().path;
        request.itemCount = items.size();
        if (AskDialog(request) != IDYES) return ERROR_CANCELLED;
    }
    int firstError = 0;
    for (const Item& item : items) {
        const int result = DeleteItem(item.path);
        if (firstError == 0) firstError = result;
    }
    return firstError;
}

}  // namespace

int WINAPI SHFileOperationW(LPSHFILEOPSTRUCTW operation) {
    if (operation == nullptr) return ERROR_INVALID_PARAMETER;
    operation->fAnyOperationsAborted = FALSE;
    if (operation->pFrom == nullptr) return ERROR_INVALID_PARAMETER;
    const std::vector<WString> from = SplitList(operation->pFrom);
    if (from.empty()) return ERROR_INVALID_PARAMETER;
    const ShellRun run{operation->hwnd, operation->fFlags};
    int result;
    switch (operation->wFunc) {
        case FO_COPY: result = RunCopy(run, from, operation->pTo); break;
        case FO_DELETE: result = RunDelete(run, from); break;
        default: return ERROR_NOT_SUPPORTED;
    }
    if (result == ERROR_CANCELLED) operation->fAnyOperationsAborted = TRUE;
    return result;
}

void SetShellProgressObserver(ShellProgressObserver observer) {
    std::lock_guard lock(g_progressLock);
    g_progressObserver = std::move(observer);
}

}  // namespace vlx
