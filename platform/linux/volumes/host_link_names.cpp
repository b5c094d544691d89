// Hard-link names on host-folder volumes, searched from the file's own folder outward.
#include "host_link_names.h"

#include <dirent.h>

#include <algorithm>

#include "host_names.h"

namespace vlx {

namespace {

// Deeper than any tree a user keeps; it bounds the recursion when a loop slips in through a bind mount.
constexpr int kMaxDepth = 256;

struct LinkSearch {
    dev_t device;
    ino_t inode;
    size_t wanted;
    std::vector<WString>& names;

    bool Done() const { return names.size() >= wanted; }

    static std::string Join(const std::string& folder, const std::string& name) {
        return folder.back() == '/' ? folder + name : folder + "/" + name;
    }

    void Add(const WString& name) {
        if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    }

    // One folder and everything below it but skip (a host name, or empty): the folder's own entries
    // first, then its subfolders, so that a name next to the file is found before one deep in a sibling.
    void SearchFolder(const std::string& folder, const WString& relative, const std::string& skip, int depth) {
        if (depth > kMaxDepth || Done()) return;
        std::vector<std::string> children;
        if (DIR* dir = opendir(folder.c_str())) {
            while (dirent* entry = readdir(dir)) {
                const std::string name = entry->d_name;
                if (name != "." && name != ".." && name != skip) children.push_back(name);
            }
            closedir(dir);
        }
        std::sort(children.begin(), children.end());
        std::vector<std::string> subfolders;
        for (const std::string& child : children) {
            if (Done()) return;
            const std::string hostPath = Join(folder, child);
            struct stat status {};
            if (lstat(hostPath.c_str(), &status) != 0 || status.st_dev != device) continue;
            if (S_ISDIR(status.st_mode)) subfolders.push_back(child);
            else if (status.st_ino == inode) Add(relative + _T("\\") + WindowsNameOfHost(child));
        }
        for (const std::string& child : subfolders)
            SearchFolder(Join(folder, child), relative + _T("\\") + WindowsNameOfHost(child), std::string(), depth + 1);
    }
};

}  // namespace

void CollectHostLinkNames(const ResolvedPath& resolved, const struct stat& status, std::vector<WString>& names) {
    if (resolved.components.empty()) return;
    LinkSearch search{status.st_dev, status.st_ino, static_cast<size_t>(status.st_nlink), names};
    // The folders from the file's own up to the volume root, as host paths and volume-relative names;
    // the host path has one component per Windows component below the root.
    std::string folder = resolved.hostPath.substr(0, resolved.hostPath.find_last_of('/'));
    if (folder.empty()) folder = "/";
    std::string cameFrom;  // the subfolder already searched, skipped when its parent is
    for (size_t level = resolved.components.size() - 1;; --level) {
        struct stat folderStatus {};
        if (stat(folder.c_str(), &folderStatus) != 0 || folderStatus.st_dev != status.st_dev) return;
        WString relative;
        for (size_t i = 0; i < level; ++i) relative += _T("\\") + resolved.components[i];
        search.SearchFolder(folder, relative, cameFrom, 0);
        if (level == 0 || search.Done()) return;
        const size_t slash = folder.find_last_of('/');
        cameFrom = folder.substr(slash + 1);
        folder = slash == 0 ? "/" : folder.substr(0, slash);
    }
}

}  // namespace vlx
