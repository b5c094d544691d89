// What the NTFS engine's sources share: the attached volume's state, the cache of loaded records with
// their holders counted, the engine's one lock, and the helpers that read records in Win32 units.
// Include ntfs3g.h before this (it must come before win32.h).
#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "ntfs_block_cache.h"
#include "ntfs_engine.h"

namespace vlx::ntfs {

// libntfs-3g keeps no lock of its own, and some of its state is not per volume: every call of the engine
// holds this one lock for its whole length.
std::recursive_mutex& EngineLock();

// The partition inside the image file, as libntfs-3g's device operations see it.
struct ImageDevice {
    ImageDevice() = default;
    ImageDevice(const ImageDevice&) = delete;
    ImageDevice& operator=(const ImageDevice&) = delete;
    ~ImageDevice() {
        if (fd >= 0) close(fd);
    }
    int fd = -1;  // the engine's own descriptor of the image
    ULONGLONG offset = 0;  // first byte of the file system in the image
    ULONGLONG length = 0;  // bytes of the file system; nothing past it is read or written
    LONGLONG position = 0;
    bool written = false;
    // A shadow copy's attachment reads here instead of fd (which is then -1).
    std::shared_ptr<ByteSource> source;
    // The shadow copies of a live volume, told of each write before it is made.
    std::vector<std::weak_ptr<WriteObserver>> observers;
    // Every read of the volume's bytes goes through it, every write through it to the image.
    BlockCache cache;
};

// One loaded record. Nothing else in the engine calls ntfs_inode_open, so one record has one inode
// object however many files, listings and lookups hold it at once.
struct Node {
    u64 record = 0;
    ntfs_inode* ni = nullptr;  // null only when a folder could not be reloaded after a removal in it
    ntfs_attr* data = nullptr;  // the unnamed data stream, opened on first use and shared by every holder
    int holders = 0;
    bool borrowed = false;      // one of the records the mounted volume keeps loaded itself: never closed here
};

struct VolumeState {
    ntfs_volume* vol = nullptr;
    ImageDevice device;
    bool readOnly = true;
    std::unordered_map<u64, std::unique_ptr<Node>> nodes;  // by record number
    // Per folder record: the folded long names of its entries with their references and names on disk,
    // read when a name is not found as typed or the folder has been searched often, added to as names are
    // added and dropped when one goes; those of the least recently searched folders go when too many names
    // are held.
    std::unordered_map<u64, std::unordered_map<std::u16string, std::pair<u64, std::u16string>>> folded;
    std::unordered_map<u64, u64> foldedUse;  // per folder in folded: the search count when last searched
    u64 foldedSearches = 0;
    size_t foldedNames = 0;                  // names in folded, all folders together
    // Per folder record: its reference (sequence number and all) and its volume-relative path, as the
    // name queries found it; let go whenever a folder moves.
    std::unordered_map<u64, std::pair<u64, WString>> folderPaths;
    // Per folder record whose names are not read: searches since it last changed.
    std::unordered_map<u64, unsigned> searches;
};

// A counted hold on a loaded record, released when it goes out of scope.
class NodeRef {
public:
    NodeRef() = default;
    NodeRef(VolumeState* state, Node* node) : state_(state), node_(node) {}
    NodeRef(NodeRef&& other) noexcept : state_(other.state_), node_(other.node_) { other.node_ = nullptr; }
    NodeRef& operator=(NodeRef&& other) noexcept;
    NodeRef(const NodeRef&) = delete;
    NodeRef& operator=(const NodeRef&) = delete;
    ~NodeRef() { reset(); }

    void reset();
    Node* release() {
        Node* node = node_;
        node_ = nullptr;
        return node;
    }
    explicit operator bool() const { return node_ != nullptr; }
    Node* get() const { return node_; }
    ntfs_inode* ni() const { return node_->ni; }

private:
    VolumeState* state_ = nullptr;
    Node* node_ = nullptr;
};

// Loads (or finds loaded) the record of a reference. A non-zero sequence number must match the record's.
DWORD AcquireNode(VolumeState& state, u64 reference, NodeRef& out);
// Lets go of one hold; the record is written back and unloaded with its last holder.
void ReleaseNode(VolumeState& state, Node* node);
// Takes a record out of the cache without closing it, for the libntfs-3g calls that close it themselves.
// False when someone else still holds it.
bool DetachNode(VolumeState& state, Node* node);
// Lets go of what the lookups keep of a folder's names, when a name in it goes or it changes otherwise.
void ForgetNames(VolumeState& state, u64 folderRecord);
// Opens the unnamed data stream of a held record once; the last libntfs-3g error becomes the result.
DWORD OpenData(Node& node);

DWORD ErrorFromErrno(int error);
// ERROR_INVALID_HANDLE once the volume is detached, ERROR_WRITE_PROTECT on a read-only attachment.
DWORD CheckWritable(const VolumeState& state);
bool IsMetadataRecord(u64 record);
constexpr WCHAR kSeparator = u'\\';
bool IsFolder(const ntfs_inode* ni);
u64 ReferenceOf(const ntfs_inode* ni);
DWORD AttributesOf(const ntfs_inode* ni);
// Volume-relative path of a reference through each record's first long name ("\\" for the root).
DWORD PathOf(VolumeState& state, u64 fileReference, WString& path);
// Fills everything but the name.
void FillInfo(Node& node, EntryInfo& info);

// Unaligned little-endian fields of the Win32 structures the engine reads and writes as bytes.
template <class T>
void Put(BYTE* out, DWORD offset, T value) {
    std::memcpy(out + offset, &value, sizeof(value));
}
template <class T>
T Take(const BYTE* in, DWORD offset) {
    T value;
    std::memcpy(&value, in + offset, sizeof(value));
    return value;
}

// An attribute search over one record (and its extents), closed on scope exit.
class SearchContext {
public:
    explicit SearchContext(ntfs_inode* ni) : ctx_(ntfs_attr_get_search_ctx(ni, nullptr)) {}
    ~SearchContext() {
        if (ctx_) ntfs_attr_put_search_ctx(ctx_);
    }
    SearchContext(const SearchContext&) = delete;
    SearchContext& operator=(const SearchContext&) = delete;
    ntfs_attr_search_ctx* get() const { return ctx_; }
    // The next attribute of a type, or null.
    ATTR_RECORD* Next(ATTR_TYPES type);

private:
    ntfs_attr_search_ctx* ctx_;
};

// Calls visit for every FILE_NAME attribute of a record until it returns false.
template <class Visit>
void ForEachFileName(ntfs_inode* ni, Visit visit) {
    SearchContext search(ni);
    if (!search.get()) return;
    while (ATTR_RECORD* attr = search.Next(AT_FILE_NAME)) {
        const auto* name = reinterpret_cast<const FILE_NAME_ATTR*>(reinterpret_cast<const u8*>(attr) +
                                                                   le16_to_cpu(attr->value_offset));
        if (!visit(*name)) break;
    }
}

inline WString NameOf(const FILE_NAME_ATTR& name) {
    WString text(name.file_name_length, u'\0');
    std::memcpy(text.data(), reinterpret_cast<const u8*>(&name) + offsetof(FILE_NAME_ATTR, file_name),
                text.size() * sizeof(WCHAR));
    return text;
}
// The on-disk flag word from Win32 attribute bits (the same bits).
inline FILE_ATTR_FLAGS FlagsOf(DWORD attributes) { return static_cast<FILE_ATTR_FLAGS>(cpu_to_le32(attributes)); }

}  // namespace vlx::ntfs
