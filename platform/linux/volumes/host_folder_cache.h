// Host folders held open so that a deep path is reached from the deepest of them the host still names
// the same way, instead of being walked from the root by every call: Windows takes paths of 32,767 units,
// Linux walks at most PATH_MAX bytes at a time, and a walk from the root makes building a deep tree
// level by level cost the square of its depth.
#pragma once

#include <memory>
#include <string>

namespace vlx {

// An open host folder. A path below it is handed to the host as "/proc/self/fd/N/rest", which the host
// walks from the folder itself; whoever keeps such a path keeps the anchor too, since the number N means
// another file once the descriptor is closed.
class FolderAnchor {
public:
    explicit FolderAnchor(int fd);
    ~FolderAnchor();
    FolderAnchor(const FolderAnchor&) = delete;
    FolderAnchor& operator=(const FolderAnchor&) = delete;

    int fd() const { return fd_; }
    // "/proc/self/fd/N": the folder, as a path the host can take.
    const std::string& path() const { return path_; }

private:
    int fd_;
    std::string path_;
};

using AnchorRef = std::shared_ptr<const FolderAnchor>;

// The prefix of folder (an absolute host path, names joined by single '/', no trailing '/') that the host
// reaches as written, folder by folder: no name on the way a link or a file. Returns the anchor of the
// deepest folder reached with reached set to the length of folder it stands for, or null when not even
// the root could be opened. A folder is held only while every folder above it is watched for a change
// that could make its path mean another folder (a move, a deletion, a new entry of its name, a change of
// permissions), so that what is held always is what the path names now.
AnchorRef ReachHostFolder(const std::string& folder, size_t& reached);

// A path made of an anchor's path: such a path is only good while its anchor is held, and a folder's
// listing must never be remembered under it.
bool IsAnchoredPath(const std::string& hostPath);

}  // namespace vlx
