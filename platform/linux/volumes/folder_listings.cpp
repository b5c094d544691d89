// Looking a name up in a host folder without regard to case when it is not there as typed. Doing that
// by reading the whole folder each time makes filling a folder with new names quadratic, so the folders
// asked about keep a listing, and inotify keeps every listing exact: each change to a watched folder is
// applied to its listing before the listing is read again.
#include <dirent.h>
#include <strings.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <mutex>
#include <unordered_map>
#include <unordered_set>

#include "../core/internal.h"
#include "host_folder_cache.h"
#include "host_names.h"

namespace vlx {

namespace {

// Enough for the folders one copy or walk works in at a time; the least recently used goes first.
constexpr size_t kMaxListings = 64;

bool IsAscii(const std::string& name) {
    return std::all_of(name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// Folding keeps ASCII inside ASCII and everything else outside it, so an ASCII name can only match an ASCII
// entry: those are keyed by their lower-case form.
std::string AsciiKey(const std::string& name) {
    std::string key = name;
    for (char& c : key) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return key;
}

struct Listing {
    std::unordered_map<std::string, std::string> ascii;  // lower-case key -> name on disk
    std::unordered_set<std::string> others;               // names with other characters, as on disk
    uint64_t lastUse = 0;

    void Add(const std::string& name) {
        if (IsAscii(name)) ascii[AsciiKey(name)] = name;
        else others.insert(name);
    }
    void Remove(const std::string& name) {
        if (!IsAscii(name)) {
            others.erase(name);
            return;
        }
        auto it = ascii.find(AsciiKey(name));
        if (it != ascii.end() && it->second == name) ascii.erase(it);
    }
};

class ListingCache {
public:
    // True with found set (empty when nothing matches) when a listing answered; false when none can be kept.
    bool Find(const std::string& folder, const std::string& exact, const WString& name, std::string& found) {
        std::lock_guard guard(lock_);
        if (inotify_ < 0) inotify_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        if (inotify_ < 0) return false;
        ApplyChanges();
        Listing* listing = ListingOf(folder);
        if (listing == nullptr) return false;
        listing->lastUse = ++clock_;
        found.clear();
        if (IsAscii(exact)) {
            auto it = listing->ascii.find(AsciiKey(exact));
            if (it != listing->ascii.end()) found = it->second;
            return true;
        }
        for (const std::string& other : listing->others) {
            if (NamesEqualNoCase(WindowsNameOfHost(other), name)) {
                found = other;
                break;
            }
        }
        return true;
    }

private:
    Listing* ListingOf(const std::string& folder) {
        auto known = byFolder_.find(folder);
        if (known != byFolder_.end()) return &byWatch_[known->second];
        // Watched before it is read, so that no change between the two is lost; a change seen both ways
        // is applied twice to the same effect.
        const int watch = inotify_add_watch(inotify_, folder.c_str(),
                                            IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF |
                                                IN_MOVE_SELF | IN_ONLYDIR);
        if (watch < 0) return nullptr;
        byFolder_[folder] = watch;
        auto existing = byWatch_.find(watch);
        if (existing != byWatch_.end()) return &existing->second;  // the same folder by another path
        DIR* dir = opendir(folder.c_str());
        if (dir == nullptr) {
            Forget(watch);
            return nullptr;
        }
        Listing& listing = byWatch_[watch];
        while (dirent* entry = readdir(dir)) {
            if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) listing.Add(entry->d_name);
        }
        closedir(dir);
        if (byWatch_.size() > kMaxListings) EvictOldest(watch);
        return &byWatch_[watch];
    }

    void ApplyChanges() {
        alignas(inotify_event) char buffer[16384];
        for (;;) {
            const ssize_t length = read(inotify_, buffer, sizeof buffer);
            if (length <= 0) return;
            // A read that left room for another event took every event there was.
            const bool drained = static_cast<size_t>(length) + sizeof(inotify_event) + NAME_MAX + 1 <= sizeof buffer;
            for (ssize_t at = 0; at < length;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
                at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
                if (event->mask & IN_Q_OVERFLOW) {
                    // Changes were lost: no listing can be trusted any more.
                    while (!byWatch_.empty()) Forget(byWatch_.begin()->first);
                    continue;
                }
                auto it = byWatch_.find(event->wd);
                if (it == byWatch_.end()) continue;
                if (event->mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) {
                    Forget(event->wd);
                } else if (event->len > 0) {
                    const std::string entry = event->name;
                    if (event->mask & (IN_CREATE | IN_MOVED_TO)) it->second.Add(entry);
                    else if (event->mask & (IN_DELETE | IN_MOVED_FROM)) it->second.Remove(entry);
                }
            }
            if (drained) return;
        }
    }

    void EvictOldest(int keep) {
        int oldest = -1;
        uint64_t oldestUse = UINT64_MAX;
        for (const auto& [watch, listing] : byWatch_) {
            if (watch != keep && listing.lastUse < oldestUse) {
                oldest = watch;
                oldestUse = listing.lastUse;
            }
        }
        if (oldest >= 0) Forget(oldest);
    }

    void Forget(int watch) {
        inotify_rm_watch(inotify_, watch);
        byWatch_.erase(watch);
        for (auto it = byFolder_.begin(); it != byFolder_.end();) {
            if (it->second == watch) it = byFolder_.erase(it);
            else ++it;
        }
    }

    std::mutex lock_;
    int inotify_ = -1;
    uint64_t clock_ = 0;
    std::unordered_map<int, Listing> byWatch_;
    std::unordered_map<std::string, int> byFolder_;
};

ListingCache& Listings() {
    static ListingCache cache;
    return cache;
}

// Reads the folder through, for when no listing can be kept.
std::string ScanFolder(const std::string& folder, const std::string& exact, const WString& name) {
    DIR* dir = opendir(folder.c_str());
    if (dir == nullptr) return {};
    const bool ascii = IsAscii(exact);
    std::string found;
    while (dirent* entry = readdir(dir)) {
        const char* hostName = entry->d_name;
        if (std::strcmp(hostName, ".") == 0 || std::strcmp(hostName, "..") == 0) continue;
        const bool same = ascii ? std::strlen(hostName) == exact.size() && strcasecmp(hostName, exact.c_str()) == 0
                                : NamesEqualNoCase(WindowsNameOfHost(hostName), name);
        if (same) {
            found = hostName;
            break;
        }
    }
    closedir(dir);
    return found;
}

}  // namespace

std::string FindFoldedEntry(const std::string& folder, const std::string& exact, const WString& name) {
    std::string found;
    // A held folder's number names another folder once it is let go: no listing is kept under it.
    if (!IsAnchoredPath(folder) && Listings().Find(folder, exact, name, found)) return found;
    return ScanFolder(folder, exact, name);
}

}  // namespace vlx
