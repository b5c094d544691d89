// The folders of deep paths, held as a tree from the host's root. Every folder in the tree is watched
// with inotify, and each change reported for a folder drops what the change could have given another
// meaning: an entry created, deleted, moved or given other permissions drops the entry's own subtree; the
// folder's own permissions changing, or the folder being moved or deleted, drops everything below it.
// Changes are applied before the tree is read, under the tree's lock, so a path is never reached through
// a folder its text no longer names.
//
// A folder is found by its path's text through a hash of each prefix, computed in one pass over the path,
// so that finding the deepest folder held costs time in proportion to the path's length and not to the
// number of its levels times their lengths. Each hash is two independent 61-bit polynomial sums with
// bases drawn at random once per process, which makes two different paths of up to 100,000 bytes share
// a key with a chance below 1e-28 even for names chosen to collide.
#include "host_folder_cache.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <cstdint>
#include <deque>
#include <mutex>
#include <random>
#include <unordered_map>
#include <vector>

namespace vlx {

FolderAnchor::FolderAnchor(int fd) : fd_(fd), path_("/proc/self/fd/" + std::to_string(fd)) {}

FolderAnchor::~FolderAnchor() { close(fd_); }

bool IsAnchoredPath(const std::string& hostPath) { return hostPath.compare(0, 14, "/proc/self/fd/") == 0; }

namespace {

// Enough for a path of 32,767 one-unit names and the folders around it; past it the tree starts afresh.
constexpr size_t kMaxFolders = 40000;
// Open descriptors count against the process's limit: only the folders used last keep one, and a
// folder without one is reached from the nearest folder above it that has one.
constexpr size_t kMaxAnchors = 256;

constexpr uint32_t kWatched = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ATTRIB | IN_DELETE_SELF |
                              IN_MOVE_SELF | IN_ONLYDIR;

constexpr uint64_t kModulus = (uint64_t{1} << 61) - 1;

uint64_t MulMod(uint64_t a, uint64_t b) {
    const unsigned __int128 product = static_cast<unsigned __int128>(a) * b;
    const uint64_t folded = static_cast<uint64_t>(product & kModulus) + static_cast<uint64_t>(product >> 61);
    return folded >= kModulus ? folded - kModulus : folded;
}

struct Key {
    uint64_t a = 0;
    uint64_t b = 0;
    bool operator==(const Key& other) const { return a == other.a && b == other.b; }
};

struct KeyHash {
    size_t operator()(const Key& key) const { return static_cast<size_t>(key.a ^ (key.b * 0x9E3779B97F4A7C15ull)); }
};

struct Bases {
    uint64_t a;
    uint64_t b;
};

const Bases& HashBases() {
    static const Bases bases = [] {
        std::random_device device;
        std::mt19937_64 generator((static_cast<uint64_t>(device()) << 32) ^ device());
        std::uniform_int_distribution<uint64_t> pick(256, kModulus - 1);
        return Bases{pick(generator), pick(generator)};
    }();
    return bases;
}

Key Extend(Key key, unsigned char byte) {
    const Bases& bases = HashBases();
    key.a = MulMod(key.a, bases.a) + byte + 1;
    if (key.a >= kModulus) key.a -= kModulus;
    key.b = MulMod(key.b, bases.b) + byte + 1;
    if (key.b >= kModulus) key.b -= kModulus;
    return key;
}

Key ExtendByName(Key key, const char* name, size_t length) {
    key = Extend(key, '/');
    for (size_t i = 0; i < length; ++i) key = Extend(key, static_cast<unsigned char>(name[i]));
    return key;
}

struct Node {
    Key key;
    Node* parent = nullptr;
    std::string name;  // the last name of the path; empty for the root
    std::vector<Node*> children;
    int watch = -1;
    AnchorRef anchor;  // null while the folder holds no descriptor
};

class FolderTree {
public:
    AnchorRef Reach(const std::string& folder, size_t& reached) {
        std::lock_guard guard(lock_);
        reached = 0;
        if (folder.empty() || folder[0] != '/') return nullptr;
        if (inotify_ < 0) inotify_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        if (inotify_ < 0) return nullptr;
        ApplyChanges();
        if (nodes_.size() > kMaxFolders) Clear();

        // The key of every folder on the way, the root's first; ends[i] is where folder i's text ends.
        // Kept from the last call for the text this path shares with the last one, since the paths
        // reached one after another are mostly the levels of one deep path.
        std::vector<Key>& keys = keys_;
        std::vector<size_t>& ends = ends_;
        const size_t common = static_cast<size_t>(
            std::mismatch(folder.begin(), folder.begin() + static_cast<std::ptrdiff_t>(std::min(folder.size(), lastFolder_.size())),
                          lastFolder_.begin())
                .first -
            folder.begin());
        size_t keep = 1;  // the root's
        while (keep < ends.size() && ends[keep] <= common && (ends[keep] == folder.size() || folder[ends[keep]] == '/')) ++keep;
        keys.resize(keep);
        ends.resize(keep);
        lastFolder_.clear();
        for (size_t at = ends.back(); folder.size() > 1 && at < folder.size();) {
            const size_t next = std::min(folder.find('/', at + 1), folder.size());
            if (next == at + 1) return nullptr;  // an empty name: no path this takes apart
            Key key = Extend(keys.back(), '/');
            for (size_t i = at + 1; i < next; ++i) key = Extend(key, static_cast<unsigned char>(folder[i]));
            keys.push_back(key);
            ends.push_back(next);
            at = next;
        }
        lastFolder_ = folder;
        Node* node = nullptr;
        size_t level = keys.size();
        while (level > 0) {
            --level;
            auto it = nodes_.find(keys[level]);
            if (it != nodes_.end()) {
                node = it->second.get();
                break;
            }
        }
        if (node == nullptr) {
            node = MakeRoot();
            if (node == nullptr) return nullptr;
            level = 0;
        }
        AnchorRef anchor = AnchorOf(node);
        if (!anchor) return nullptr;
        for (size_t next = level + 1; next < keys.size(); ++next) {
            const size_t start = ends[next - 1] + 1;
            const std::string name = folder.substr(start, ends[next] - start);
            Node* child = MakeChild(node, anchor, name, keys[next]);
            if (child == nullptr) break;
            node = child;
            anchor = child->anchor;
            level = next;
        }
        reached = level == 0 ? 1 : ends[level];
        return anchor;
    }

private:
    Node* MakeRoot() {
        const int fd = open("/", O_PATH | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0) return nullptr;
        auto anchor = std::make_shared<const FolderAnchor>(fd);
        const int watch = inotify_add_watch(inotify_, "/", kWatched);
        if (watch < 0) return nullptr;
        return Insert(nullptr, std::string(), Key{}, watch, std::move(anchor));
    }

    // The folder name inside parent, when it is a folder and not a link to one. Watched before anything
    // below it is looked up, so that no change below it is missed.
    Node* MakeChild(Node* parent, const AnchorRef& parentAnchor, const std::string& name, const Key& key) {
        const int fd = openat(parentAnchor->fd(), name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0) return nullptr;
        auto anchor = std::make_shared<const FolderAnchor>(fd);
        const int watch = inotify_add_watch(inotify_, anchor->path().c_str(), kWatched);
        if (watch < 0) return nullptr;
        return Insert(parent, name, key, watch, std::move(anchor));
    }

    Node* Insert(Node* parent, std::string name, const Key& key, int watch, AnchorRef anchor) {
        auto owned = std::make_unique<Node>();
        Node* node = owned.get();
        node->key = key;
        node->parent = parent;
        node->name = std::move(name);
        node->watch = watch;
        node->anchor = std::move(anchor);
        nodes_[key] = std::move(owned);
        if (parent != nullptr) parent->children.push_back(node);
        byWatch_[watch].push_back(node);
        Anchored(node);
        return node;
    }

    void Anchored(Node* node) {
        anchored_.push_back(node->key);
        while (anchored_.size() > kMaxAnchors) {
            auto it = nodes_.find(anchored_.front());
            anchored_.pop_front();
            if (it != nodes_.end() && it->second->parent != nullptr) it->second->anchor.reset();
        }
    }

    // The node's descriptor, opened again from the nearest folder above it that still has one when it
    // was let go; the folders between are watched, so the names between still lead to it.
    AnchorRef AnchorOf(Node* node) {
        if (node->anchor) return node->anchor;
        std::vector<const Node*> below;
        const Node* above = node;
        while (!above->anchor) {
            below.push_back(above);
            above = above->parent;
        }
        std::string relative;
        for (auto it = below.rbegin(); it != below.rend(); ++it) {
            if (!relative.empty()) relative += '/';
            relative += (*it)->name;
        }
        const int fd = relative.size() < PATH_MAX ? openat(above->anchor->fd(), relative.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)
                                                 : -1;
        if (fd < 0) {
            Drop(node);
            return nullptr;
        }
        node->anchor = std::make_shared<const FolderAnchor>(fd);
        Anchored(node);
        return node->anchor;
    }

    void ApplyChanges() {
        alignas(inotify_event) char buffer[16384];
        for (;;) {
            const ssize_t length = read(inotify_, buffer, sizeof buffer);
            if (length <= 0) return;
            for (ssize_t at = 0; at < length;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
                at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
                if (event->mask & IN_Q_OVERFLOW) {
                    Clear();
                    continue;
                }
                auto it = byWatch_.find(event->wd);
                if (it == byWatch_.end()) continue;
                // By key, since dropping one folder's subtree may take another of these with it.
                std::vector<Key> folders;
                for (const Node* folder : it->second) folders.push_back(folder->key);
                for (const Key& folderKey : folders) {
                    auto found = nodes_.find(folderKey);
                    if (found == nodes_.end()) continue;
                    Node* folder = found->second.get();
                    if (event->mask & (IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT)) {
                        Drop(folder);
                    } else if (event->len == 0) {
                        DropChildren(folder);
                    } else {
                        auto child = nodes_.find(ExtendByName(folder->key, event->name, strnlen(event->name, event->len)));
                        if (child != nodes_.end() && child->second->parent == folder) Drop(child->second.get());
                    }
                }
            }
        }
    }

    void DropChildren(Node* node) {
        while (!node->children.empty()) Drop(node->children.back());
    }

    // Drops the node and everything below it, deepest first, without recursing (a tree may be
    // thousands of folders deep).
    void Drop(Node* top) {
        if (top->parent == nullptr) {
            Clear();
            return;
        }
        Node* node = top;
        for (;;) {
            while (!node->children.empty()) node = node->children.back();
            Node* parent = node->parent;
            const bool last = node == top;
            Unlink(node);
            if (last) return;
            node = parent;
        }
    }

    void Unlink(Node* node) {
        auto& siblings = node->parent->children;
        for (auto it = siblings.begin(); it != siblings.end(); ++it) {
            if (*it == node) {
                *it = siblings.back();
                siblings.pop_back();
                break;
            }
        }
        ForgetWatch(node);
        nodes_.erase(node->key);
    }

    void ForgetWatch(Node* node) {
        auto it = byWatch_.find(node->watch);
        if (it == byWatch_.end()) return;
        auto& sharing = it->second;
        for (auto entry = sharing.begin(); entry != sharing.end(); ++entry) {
            if (*entry == node) {
                sharing.erase(entry);
                break;
            }
        }
        if (sharing.empty()) {
            inotify_rm_watch(inotify_, node->watch);
            byWatch_.erase(it);
        }
    }

    void Clear() {
        for (const auto& [watch, folders] : byWatch_) inotify_rm_watch(inotify_, watch);
        byWatch_.clear();
        nodes_.clear();
        anchored_.clear();
    }

    std::mutex lock_;
    int inotify_ = -1;
    std::unordered_map<Key, std::unique_ptr<Node>, KeyHash> nodes_;
    std::unordered_map<int, std::vector<Node*>> byWatch_;
    std::deque<Key> anchored_;  // in the order the descriptors were opened
    std::vector<Key> keys_{Key{}};
    std::vector<size_t> ends_{0};
    std::string lastFolder_;  // the path keys_ and ends_ were taken from
};

FolderTree& Tree() {
    static FolderTree tree;
    return tree;
}

}  // namespace

AnchorRef ReachHostFolder(const std::string& folder, size_t& reached) { return Tree().Reach(folder, reached); }

}  // namespace vlx
