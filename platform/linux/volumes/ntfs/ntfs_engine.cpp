// The NTFS engine's core: attaching an image through device operations of our own, the cache of loaded
// records, path lookup without regard to case, listings, and the calls that add, remove and move names.
#include "ntfs3g.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "../../core/internal.h"
#include "ntfs_internal.h"

namespace vlx::ntfs {

std::recursive_mutex& EngineLock() {
    static std::recursive_mutex lock;
    return lock;
}

DWORD ErrorFromErrno(int error) {
    switch (error) {
        case ENOSPC: return ERROR_DISK_FULL;
        case ENAMETOOLONG: return ERROR_FILENAME_EXCED_RANGE;
        case EROFS: return ERROR_WRITE_PROTECT;
        case EOVERFLOW:
        case EFBIG: return ERROR_DISK_FULL;
        default: return error ? Win32ErrorFromErrno(error) : ERROR_GEN_FAILURE;
    }
}

namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

constexpr size_t kMaxNameUnits = 255;
// Folder paths kept for the name queries; past this many they are all let go and found again.
constexpr size_t kFolderPathsKept = 4096;
constexpr DWORD kMaxLinks = 1024;

// ---- Device operations: the partition is the byte range [offset, offset + length) of the image file.

ImageDevice& DeviceOf(ntfs_device* dev) { return *static_cast<ImageDevice*>(dev->d_private); }

// The image stays open for the volume's whole life (the engine holds its own duplicate of the caller's
// descriptor); libntfs-3g's open and close only mark the device.
int DeviceOpen(ntfs_device* dev, int flags) {
    ImageDevice& device = DeviceOf(dev);
    device.position = 0;
    NDevSetOpen(dev);
    if ((flags & O_ACCMODE) == O_RDONLY) NDevSetReadOnly(dev);
    return 0;
}

int DeviceClose(ntfs_device* dev) {
    ImageDevice& device = DeviceOf(dev);
    int result = 0;
    if (device.written && device.fd >= 0 && fsync(device.fd) != 0) result = -1;
    NDevClearOpen(dev);
    return result;
}

// The volume's bytes from the image (or the shadow copy's source), cut at the volume's end.
long long ReadBacking(ImageDevice& device, ULONGLONG offset, void* buffer, size_t count) {
    if (offset >= device.length) return 0;
    count = static_cast<size_t>(std::min<ULONGLONG>(count, device.length - offset));
    if (device.source) {
        if (!device.source->Read(offset, buffer, count)) {
            errno = EIO;
            return -1;
        }
        return static_cast<long long>(count);
    }
    size_t done = 0;
    while (done < count) {
        const ssize_t got = pread(device.fd, static_cast<char*>(buffer) + done, count - done,
                                  static_cast<off_t>(device.offset + offset + done));
        if (got < 0) {
            if (errno == EINTR) continue;
            return done ? static_cast<long long>(done) : -1;
        }
        if (got == 0) break;  // the image ends before the partition does
        done += static_cast<size_t>(got);
    }
    return static_cast<long long>(done);
}

s64 DevicePread(ntfs_device* dev, void* buffer, s64 count, s64 offset) {
    ImageDevice& device = DeviceOf(dev);
    if (offset < 0 || count < 0) {
        errno = EINVAL;
        return -1;
    }
    return device.cache.Read(static_cast<ULONGLONG>(offset), buffer, static_cast<size_t>(count),
                             [&device](ULONGLONG at, void* into, size_t size) { return ReadBacking(device, at, into, size); });
}

s64 DevicePwrite(ntfs_device* dev, const void* buffer, s64 count, s64 offset) {
    ImageDevice& device = DeviceOf(dev);
    if (NDevReadOnly(dev)) {
        errno = EROFS;
        return -1;
    }
    if (offset < 0 || count < 0 || static_cast<ULONGLONG>(offset) + count > device.length) {
        errno = ENOSPC;
        return -1;
    }
    // What a shadow copy of the volume still needs is saved before it is overwritten; it reads the image
    // itself, which the cache never runs ahead of.
    for (auto at = device.observers.begin(); at != device.observers.end();) {
        const auto observer = at->lock();
        if (!observer) {
            at = device.observers.erase(at);
            continue;
        }
        if (!observer->BeforeWrite(static_cast<ULONGLONG>(offset), static_cast<ULONGLONG>(count))) {
            errno = EIO;
            return -1;
        }
        ++at;
    }
    s64 done = 0;
    while (done < count) {
        const ssize_t put = pwrite(device.fd, static_cast<const char*>(buffer) + done, count - done,
                                   static_cast<off_t>(device.offset + offset + done));
        if (put < 0) {
            if (errno == EINTR) continue;
            break;
        }
        done += put;
    }
    if (done == count) {
        device.cache.Wrote(static_cast<ULONGLONG>(offset), buffer, static_cast<size_t>(count));
    } else {
        const int error = errno;
        device.cache.Forget(static_cast<ULONGLONG>(offset), static_cast<size_t>(count));
        errno = error;
        if (done == 0) return -1;
    }
    device.written = true;
    NDevSetDirty(dev);
    return done;
}

s64 DeviceSeek(ntfs_device* dev, s64 offset, int whence) {
    ImageDevice& device = DeviceOf(dev);
    s64 base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? device.position : static_cast<s64>(device.length);
    if (whence != SEEK_SET && whence != SEEK_CUR && whence != SEEK_END) {
        errno = EINVAL;
        return -1;
    }
    if (base + offset < 0) {
        errno = EINVAL;
        return -1;
    }
    device.position = base + offset;
    return device.position;
}

s64 DeviceRead(ntfs_device* dev, void* buffer, s64 count) {
    const s64 got = DevicePread(dev, buffer, count, DeviceOf(dev).position);
    if (got > 0) DeviceOf(dev).position += got;
    return got;
}

s64 DeviceWrite(ntfs_device* dev, const void* buffer, s64 count) {
    const s64 put = DevicePwrite(dev, buffer, count, DeviceOf(dev).position);
    if (put > 0) DeviceOf(dev).position += put;
    return put;
}

int DeviceSync(ntfs_device* dev) {
    ImageDevice& device = DeviceOf(dev);
    if (device.fd < 0 || NDevReadOnly(dev)) return 0;
    if (fsync(device.fd) != 0) return -1;
    NDevClearDirty(dev);
    return 0;
}

int DeviceStat(ntfs_device* dev, struct stat* out) {
    std::memset(out, 0, sizeof(*out));
    out->st_mode = S_IFREG | S_IRUSR | S_IWUSR;
    out->st_size = static_cast<off_t>(DeviceOf(dev).length);
    return 0;
}

int DeviceIoctl(ntfs_device*, unsigned long, void*) {
    errno = ENOTTY;  // not a block device: libntfs-3g then measures through reads
    return -1;
}

ntfs_device_operations kImageDeviceOperations = {
    DeviceOpen, DeviceClose, DeviceSeek, DeviceRead, DeviceWrite,
    DevicePread, DevicePwrite, DeviceSync, DeviceStat, DeviceIoctl,
};

// ---- Names

WString Folded(const ntfs_volume* vol, const WString& name) {
    WString folded(name);
    for (WCHAR& unit : folded) {
        if (static_cast<u32>(unit) < vol->upcase_len) unit = static_cast<WCHAR>(le16_to_cpu(vol->upcase[unit]));
    }
    return folded;
}

const ntfschar* Units(const WString& name) { return reinterpret_cast<const ntfschar*>(name.data()); }

bool ValidName(const WString& name) {
    if (name.empty() || name == u"." || name == u"..") return false;
    for (WCHAR unit : name) {
        if (unit < 0x20 || std::u16string_view(u"\\/:*?\"<>|").find(unit) != std::u16string_view::npos) return false;
    }
    return true;
}

std::vector<WString> SplitPath(const WString& path) {
    std::vector<WString> parts;
    WString part;
    for (WCHAR unit : path) {
        if (unit == u'\\' || unit == u'/') {
            if (!part.empty()) parts.push_back(part);
            part.clear();
        } else {
            part.push_back(unit);
        }
    }
    if (!part.empty()) parts.push_back(part);
    return parts;
}

struct DirEntry {
    WString name;
    u64 reference;
};

int CollectEntry(void* context, const ntfschar* name, const int length, const int nameType, const s64,
                 const MFT_REF reference, const unsigned) {
    // 8.3 aliases are second names of entries listed under their long names; "." and ".." are not entries.
    if (nameType == FILE_NAME_DOS) return 0;
    WString text(reinterpret_cast<const WCHAR*>(name), length);
    if (text == u"." || text == u"..") return 0;
    static_cast<std::vector<DirEntry>*>(context)->push_back({std::move(text), reference});
    return 0;
}

// The long names of a folder in index order, which is the volume's name order (its $UpCase table).
DWORD ReadFolder(Node& folder, std::vector<DirEntry>& entries) {
    s64 position = 0;
    if (ntfs_readdir(folder.ni, &position, &entries, CollectEntry) != 0) return ErrorFromErrno(errno);
    if (folder.ni->mft_no == FILE_root) {
        // The file system's own files are not shown at the root, as Windows does not show them.
        std::erase_if(entries, [](const DirEntry& entry) { return MREF(entry.reference) < FILE_first_user; });
    }
    return ERROR_SUCCESS;
}

struct Found {
    u64 reference = 0;
    WString name;         // the long name on disk
    bool known = false;   // found among the folder's long names: name is the entry's name there as stored
};

// How many times a folder is searched before all its names are read at once: a folder searched once or
// twice (a path on the way to one file) is not read whole, one searched name by name (counting the
// volume, filling a folder) is.
constexpr unsigned kSearchesBeforeReadingAll = 8;
// Folders whose searches are counted at once; past that, counting starts again.
constexpr size_t kFoldersCounted = 65536;

using FolderNames = std::unordered_map<std::u16string, std::pair<u64, std::u16string>>;

// Names held at once, in all folders together: enough for the folders a walk of a table or of a tree
// keeps going back to, while a volume of a million entries does not fill memory with them.
constexpr size_t kNamesKnown = 32768;

}  // namespace

void ForgetNames(VolumeState& state, u64 folderRecord) {
    const auto known = state.folded.find(folderRecord);
    if (known != state.folded.end()) {
        state.foldedNames -= known->second.size();
        state.folded.erase(known);
    }
    state.foldedUse.erase(folderRecord);
    state.searches.erase(folderRecord);
}

namespace {

// The folder's names by their folded form, read once and then kept up to date by the calls that add
// names; a call that takes one away forgets them.
DWORD KnownNames(VolumeState& state, Node& folder, FolderNames*& names) {
    auto cached = state.folded.find(folder.ni->mft_no);
    if (cached == state.folded.end()) {
        std::vector<DirEntry> entries;
        if (DWORD error = ReadFolder(folder, entries)) return error;
        while (!state.foldedUse.empty() && state.foldedNames + entries.size() > kNamesKnown) {
            const auto oldest = std::min_element(state.foldedUse.begin(), state.foldedUse.end(),
                                                 [](const auto& a, const auto& b) { return a.second < b.second; });
            ForgetNames(state, oldest->first);
        }
        FolderNames read;
        for (DirEntry& entry : entries) read.emplace(Folded(state.vol, entry.name), std::make_pair(entry.reference, entry.name));
        state.foldedNames += read.size();
        cached = state.folded.emplace(folder.ni->mft_no, std::move(read)).first;
    }
    names = &cached->second;
    state.foldedUse[folder.ni->mft_no] = ++state.foldedSearches;
    return ERROR_SUCCESS;
}

// One name in a folder: as typed first (the index finds it, and 8.3 aliases without regard to case),
// then without regard to case through the folder's folded names. A folder whose names are known answers
// a name typed in its case on disk from them alone; any other case may name a second entry differing in
// case only (POSIX names), which the index tells apart.
DWORD FindInFolder(VolumeState& state, Node& folder, const WString& name, Found& found) {
    if (name.size() > kMaxNameUnits) return ERROR_FILENAME_EXCED_RANGE;
    const u64 record = folder.ni->mft_no;
    FolderNames* names = nullptr;
    auto cached = state.folded.find(record);
    if (cached != state.folded.end()) {
        names = &cached->second;
        state.foldedUse[record] = ++state.foldedSearches;
    } else {
        if (state.searches.size() >= kFoldersCounted) state.searches.clear();
        if (++state.searches[record] >= kSearchesBeforeReadingAll) {
            if (DWORD error = KnownNames(state, folder, names)) return error;
        }
    }
    if (names != nullptr) {
        const auto hit = names->find(Folded(state.vol, name));
        if (hit != names->end() && hit->second.second == name) {
            found.reference = hit->second.first;
            found.name = name;
            found.known = true;
            return ERROR_SUCCESS;
        }
    }
    const u64 reference = ntfs_inode_lookup_by_name(folder.ni, Units(name), static_cast<int>(name.size()));
    if (reference != static_cast<u64>(-1)) {
        found.reference = reference;
        found.name = name;
        return ERROR_SUCCESS;
    }
    if (errno != ENOENT) return ErrorFromErrno(errno);
    if (names == nullptr) {
        if (DWORD error = KnownNames(state, folder, names)) return error;
    }
    const auto hit = names->find(Folded(state.vol, name));
    if (hit == names->end()) return ERROR_FILE_NOT_FOUND;
    found.reference = hit->second.first;
    found.name = hit->second.second;
    found.known = true;
    return ERROR_SUCCESS;
}

// The long name a record has in a folder, preferring the one that equals the name it was reached by:
// an entry reached through its 8.3 alias is known by its long name.
WString LongNameIn(VolumeState& state, ntfs_inode* ni, u64 folderRecord, const WString& typed) {
    WString exact, anyCase, first;
    const WString typedFolded = Folded(state.vol, typed);
    ForEachFileName(ni, [&](const FILE_NAME_ATTR& name) {
        if (name.file_name_type == FILE_NAME_DOS || MREF_LE(name.parent_directory) != folderRecord) return true;
        const WString text = NameOf(name);
        if (text == typed) exact = text;
        if (anyCase.empty() && Folded(state.vol, text) == typedFolded) anyCase = text;
        if (first.empty()) first = text;
        return exact.empty();
    });
    return !exact.empty() ? exact : !anyCase.empty() ? anyCase : !first.empty() ? first : typed;
}

// A path taken apart: its folder held, and the last component found or not.
struct Walk {
    NodeRef parent;  // the folder holding the last component (empty for the root itself)
    NodeRef node;    // the entry itself, when it exists
    WString name;    // the last component, with the case on disk when it exists
};

// Resolves every component but the last as an existing folder (ERROR_PATH_NOT_FOUND otherwise) and looks
// the last one up; a missing last component leaves node empty with ERROR_SUCCESS.
DWORD WalkPath(VolumeState& state, const WString& path, Walk& walk) {
    if (!state.vol) return ERROR_INVALID_HANDLE;
    const std::vector<WString> parts = SplitPath(path);
    NodeRef current;
    if (DWORD error = AcquireNode(state, FILE_root, current)) return error;
    if (parts.empty()) {
        walk.node = std::move(current);
        walk.name.assign(1, kSeparator);
        return ERROR_SUCCESS;
    }
    for (size_t i = 0; i < parts.size(); ++i) {
        const bool last = i + 1 == parts.size();
        if (!IsFolder(current.ni())) return ERROR_PATH_NOT_FOUND;
        Found found;
        DWORD error = FindInFolder(state, *current.get(), parts[i], found);
        if (error == ERROR_FILE_NOT_FOUND) {
            if (!last) return ERROR_PATH_NOT_FOUND;
            walk.parent = std::move(current);
            walk.name = parts[i];
            return ERROR_SUCCESS;
        }
        if (error) return error;
        NodeRef next;
        if ((error = AcquireNode(state, found.reference, next))) return error;
        if (last) {
            walk.name = found.known ? std::move(found.name) : LongNameIn(state, next.ni(), current.ni()->mft_no, found.name);
            walk.parent = std::move(current);
            walk.node = std::move(next);
            return ERROR_SUCCESS;
        }
        current = std::move(next);
    }
    return ERROR_SUCCESS;
}

void ForgetFolder(VolumeState& state, const ntfs_inode* folder) { ForgetNames(state, folder->mft_no); }

// A name just added to a folder's index joins its known names.
void RememberName(VolumeState& state, const ntfs_inode* folder, const WString& name, u64 reference) {
    const auto cached = state.folded.find(folder->mft_no);
    if (cached != state.folded.end() && cached->second.emplace(Folded(state.vol, name), std::make_pair(reference, name)).second) {
        ++state.foldedNames;
    }
}

// Writing back a record whose names changed (a new size, new times) also brings the copies of its names
// in its folders' indexes up to date, and libntfs-3g opens each folder for that. A folder held here must
// not get a second object: that one would read the folder as it was last written, and libntfs-3g's cache
// would later hand it out in place of ours. So a held folder is handed over where libntfs-3g takes one,
// held records are written back without their names around calls that open folders themselves, and the
// copies libntfs-3g made of held records are dropped afterwards.
int SyncRecordOnly(ntfs_inode* ni) {
    const bool names = NInoFileNameDirty(ni);
    NInoFileNameClearDirty(ni);
    const int result = ntfs_inode_sync(ni);
    if (names) NInoFileNameSetDirty(ni);
    return result;
}

// Around a libntfs-3g call that may open folders held here.
class HeldFoldersShown {
public:
    explicit HeldFoldersShown(VolumeState& state) : state_(state) {
        for (auto& [record, node] : state_.nodes) {
            if (node->ni != nullptr && !node->borrowed && IsFolder(node->ni)) SyncRecordOnly(node->ni);
        }
    }
    ~HeldFoldersShown() {
        for (auto& [record, node] : state_.nodes) ntfs_inode_invalidate(state_.vol, record);
    }
    HeldFoldersShown(const HeldFoldersShown&) = delete;
    HeldFoldersShown& operator=(const HeldFoldersShown&) = delete;

private:
    VolumeState& state_;
};

// Removes one name of a held record. libntfs-3g closes both the record and its folder whatever happens:
// the record leaves the cache first (so the caller's hold must be the only one), and the folder, which
// others may hold, gets a fresh inode object in its place once the name is gone.
DWORD RemoveName(VolumeState& state, NodeRef& node, Node& folder, const WString& name) {
    Node* target = node.get();
    if (!DetachNode(state, target)) return ERROR_SHARING_VIOLATION;
    node.release();
    ntfs_inode* ni = target->ni;
    ForgetNames(state, target->record);  // the record may come back as another folder
    delete target;
    ForgetFolder(state, folder.ni);
    const u64 folderRecord = folder.ni->mft_no;
    DWORD result = ERROR_SUCCESS;
    HeldFoldersShown shown(state);
    if (ntfs_delete(state.vol, nullptr, ni, folder.ni, Units(name), static_cast<u8>(name.size())) != 0) {
        result = ErrorFromErrno(errno);
    }
    folder.ni = ntfs_inode_open(state.vol, folderRecord);
    if (!folder.ni) return ERROR_FILE_CORRUPT;  // the folder's holders find it gone (see ReleaseNode)
    return result;
}

DWORD CountLinks(ntfs_inode* ni) {
    DWORD links = 0;
    ForEachFileName(ni, [&](const FILE_NAME_ATTR& name) {
        if (name.file_name_type != FILE_NAME_DOS) ++links;
        return true;
    });
    return links;
}

bool IsAncestor(VolumeState& state, u64 folderRecord, ntfs_inode* start) {
    // Walks the parents of start up to the root; a folder may not move below itself.
    u64 record = start->mft_no;
    for (int depth = 0; depth < 4096 && record != FILE_root; ++depth) {
        if (record == folderRecord) return true;
        NodeRef node;
        if (AcquireNode(state, record, node)) return false;
        u64 parent = FILE_root;
        ForEachFileName(node.ni(), [&](const FILE_NAME_ATTR& name) {
            parent = MREF_LE(name.parent_directory);
            return false;
        });
        record = parent;
    }
    return record == folderRecord;
}

}  // namespace

// The file system's own files ($MFT, $Bitmap and the rest) can be looked at but not opened, as on
// Windows; the root is the one low record that is an ordinary folder.
bool IsMetadataRecord(u64 record) { return record < FILE_first_user && record != FILE_root; }

DWORD CheckWritable(const VolumeState& state) {
    if (!state.vol) return ERROR_INVALID_HANDLE;
    return state.readOnly ? ERROR_WRITE_PROTECT : ERROR_SUCCESS;
}

// ---- The cache of loaded records

NodeRef& NodeRef::operator=(NodeRef&& other) noexcept {
    if (this != &other) {
        reset();
        state_ = other.state_;
        node_ = other.node_;
        other.node_ = nullptr;
    }
    return *this;
}

void NodeRef::reset() {
    if (node_) ReleaseNode(*state_, node_);
    node_ = nullptr;
}

ATTR_RECORD* SearchContext::Next(ATTR_TYPES type) {
    if (ntfs_attr_lookup(type, AT_UNNAMED, 0, CASE_SENSITIVE, 0, nullptr, 0, ctx_) != 0) return nullptr;
    return ctx_->attr;
}

namespace {

// The records the mounted volume keeps loaded for itself; handing out its own objects keeps them single.
ntfs_inode* VolumeOwnInode(const ntfs_volume* vol, u64 record) {
    for (ntfs_inode* ni : {vol->mft_ni, vol->mftmirr_ni, vol->vol_ni, vol->lcnbmp_ni, vol->secure_ni}) {
        if (ni && ni->mft_no == record) return ni;
    }
    return nullptr;
}

void CloseRecord(VolumeState& state, ntfs_inode* ni) {
    if (!NInoFileNameDirty(ni)) {
        ntfs_inode_close(ni);
        return;
    }
    ntfs_inode* heldFolder = nullptr;
    bool otherHeldFolders = false;
    ForEachFileName(ni, [&](const FILE_NAME_ATTR& name) {
        const auto held = state.nodes.find(MREF_LE(name.parent_directory));
        if (held == state.nodes.end() || held->second->ni == nullptr || held->second->ni == ni) return true;
        if (heldFolder == nullptr) {
            heldFolder = held->second->ni;
        } else if (held->second->ni != heldFolder) {
            otherHeldFolders = true;
        }
        return true;
    });
    if (heldFolder == nullptr) {
        ntfs_inode_close(ni);
    } else if (!otherHeldFolders) {
        ntfs_inode_close_in_dir(ni, heldFolder);
    } else {
        HeldFoldersShown shown(state);
        ntfs_inode_close_in_dir(ni, heldFolder);
    }
}

void UnloadNode(VolumeState& state, Node& node) {
    if (node.data) {
        ntfs_attr_pclose(node.data);  // a compressed stream packs its last block here
        ntfs_attr_close(node.data);
        node.data = nullptr;
    }
    if (node.ni && !node.borrowed) CloseRecord(state, node.ni);
    node.ni = nullptr;
}

}  // namespace

DWORD AcquireNode(VolumeState& state, u64 reference, NodeRef& out) {
    const u64 record = MREF(reference);
    auto it = state.nodes.find(record);
    if (it == state.nodes.end()) {
        auto node = std::make_unique<Node>();
        node->record = record;
        if (ntfs_inode* own = VolumeOwnInode(state.vol, record)) {
            node->ni = own;
            node->borrowed = true;
        } else {
            node->ni = ntfs_inode_open(state.vol, record);
            if (!node->ni) return errno == ENOENT ? ERROR_FILE_NOT_FOUND : ErrorFromErrno(errno);
        }
        it = state.nodes.emplace(record, std::move(node)).first;
    }
    Node& node = *it->second;
    ++node.holders;
    out = NodeRef(&state, &node);
    const u16 sequence = MSEQNO(reference);
    if (!(node.ni->mrec->flags & MFT_RECORD_IN_USE) || (sequence && sequence != le16_to_cpu(node.ni->mrec->sequence_number))) {
        out.reset();
        return ERROR_INVALID_PARAMETER;
    }
    return ERROR_SUCCESS;
}

void ReleaseNode(VolumeState& state, Node* node) {
    if (--node->holders > 0) return;
    const u64 record = node->record;
    UnloadNode(state, *node);
    state.nodes.erase(record);
}

bool DetachNode(VolumeState& state, Node* node) {
    if (node->holders != 1 || node->borrowed) return false;
    if (node->data) {
        ntfs_attr_pclose(node->data);
        ntfs_attr_close(node->data);
        node->data = nullptr;
    }
    auto it = state.nodes.find(node->record);
    it->second.release();
    state.nodes.erase(it);
    return true;
}

DWORD OpenData(Node& node) {
    if (node.data) return ERROR_SUCCESS;
    if (IsFolder(node.ni)) return ERROR_INVALID_FUNCTION;
    node.data = ntfs_attr_open(node.ni, AT_DATA, AT_UNNAMED, 0);
    return node.data ? ERROR_SUCCESS : ErrorFromErrno(errno);
}

// ---- Records in Win32 units

bool IsFolder(const ntfs_inode* ni) { return (ni->mrec->flags & MFT_RECORD_IS_DIRECTORY) != 0; }

u64 ReferenceOf(const ntfs_inode* ni) { return MK_MREF(ni->mft_no, le16_to_cpu(ni->mrec->sequence_number)); }

DWORD AttributesOf(const ntfs_inode* ni) {
    // The on-disk flags are Win32's attribute bits; the folder bit lives in the record header instead.
    DWORD attributes = le32_to_cpu(ni->flags) & 0xFFFF & ~static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY);
    if (IsFolder(ni)) attributes |= FILE_ATTRIBUTE_DIRECTORY;
    if (attributes != FILE_ATTRIBUTE_NORMAL) attributes &= ~static_cast<DWORD>(FILE_ATTRIBUTE_NORMAL);
    return attributes ? attributes : FILE_ATTRIBUTE_NORMAL;
}

namespace {
FILETIME FileTimeOf(sle64 time) {
    const ULONGLONG value = static_cast<ULONGLONG>(sle64_to_cpu(time));
    return FILETIME{static_cast<DWORD>(value), static_cast<DWORD>(value >> 32)};
}
}  // namespace

void FillInfo(Node& node, EntryInfo& info) {
    ntfs_inode* ni = node.ni;
    info.attributes = AttributesOf(ni);
    info.created = FileTimeOf(ni->creation_time);
    info.accessed = FileTimeOf(ni->last_access_time);
    info.written = FileTimeOf(ni->last_data_change_time);
    info.changed = FileTimeOf(ni->last_mft_change_time);
    if (IsFolder(ni)) {
        info.size = info.allocated = 0;
    } else if (node.data) {
        info.size = static_cast<ULONGLONG>(node.data->data_size);
        info.allocated = static_cast<ULONGLONG>((node.data->data_flags & (ATTR_COMPRESSION_MASK | ATTR_IS_SPARSE))
                                                    ? node.data->compressed_size
                                                    : node.data->allocated_size);
    } else {
        info.size = static_cast<ULONGLONG>(ni->data_size);
        info.allocated = static_cast<ULONGLONG>(ni->allocated_size);
    }
    info.fileReference = ReferenceOf(ni);
    info.links = CountLinks(ni);
}

// ---- Volume

Volume::Volume(std::shared_ptr<VolumeState> state) : state_(std::move(state)) {}

Volume::~Volume() { Detach(); }

DWORD Volume::Attach(const std::string& imagePath, ULONGLONG offset, ULONGLONG length, bool readOnly,
                     std::unique_ptr<Volume>& out) {
    const int fd = open(imagePath.c_str(), (readOnly ? O_RDONLY : O_RDWR) | O_CLOEXEC);
    if (fd < 0) return Win32ErrorFromErrno(errno);
    const DWORD result = AttachImage(fd, offset, length, readOnly, out);
    close(fd);
    return result;
}

DWORD Volume::AttachImage(int fd, ULONGLONG offset, ULONGLONG length, bool readOnly, std::unique_ptr<Volume>& out) {
    Lock lock(EngineLock());
    if (length == 0 || offset + length < offset) return ERROR_INVALID_PARAMETER;
    const int mode = fcntl(fd, F_GETFL);
    if (mode < 0) return ERROR_INVALID_HANDLE;
    if (!readOnly && (mode & O_ACCMODE) != O_RDWR) return ERROR_ACCESS_DENIED;
    struct stat image {};
    if (fstat(fd, &image) != 0 || static_cast<ULONGLONG>(image.st_size) < offset + length) {
        return ERROR_FILE_CORRUPT;  // the image ends inside the volume: part of it is simply gone
    }
    // Windows recognises NTFS by its boot sector alone; libntfs-3g would also fall back to the backup copy
    // at the end, so a volume whose first sector is gone is refused here, as Windows refuses it.
    NTFS_BOOT_SECTOR boot{};
    if (length < sizeof(boot) || pread(fd, &boot, sizeof(boot), static_cast<off_t>(offset)) != static_cast<ssize_t>(sizeof(boot)) ||
        std::memcmp(&boot.oem_id, "NTFS    ", sizeof(boot.oem_id)) != 0) {
        return ERROR_UNRECOGNIZED_VOLUME;
    }

    auto state = std::make_shared<VolumeState>();
    state->device.fd = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    if (state->device.fd < 0) return Win32ErrorFromErrno(errno);
    state->device.offset = offset;
    state->device.length = length;
    state->readOnly = readOnly;
    return Mount(std::move(state), out);
}

DWORD Volume::AttachSource(std::shared_ptr<ByteSource> source, std::unique_ptr<Volume>& out) {
    Lock lock(EngineLock());
    NTFS_BOOT_SECTOR boot{};
    if (!source || source->Length() < sizeof(boot) || !source->Read(0, &boot, sizeof(boot)) ||
        std::memcmp(&boot.oem_id, "NTFS    ", sizeof(boot.oem_id)) != 0) {
        return ERROR_UNRECOGNIZED_VOLUME;
    }
    auto state = std::make_shared<VolumeState>();
    state->device.length = source->Length();
    state->device.source = std::move(source);
    state->readOnly = true;
    return Mount(std::move(state), out);
}

DWORD Volume::Mount(std::shared_ptr<VolumeState> state, std::unique_ptr<Volume>& out) {
    static const bool quiet = [] {
        ntfs_log_set_handler(ntfs_log_handler_null);  // failures come back as results, never as text
        return true;
    }();
    (void)quiet;
    const bool readOnly = state->readOnly;
    ntfs_device* dev = ntfs_device_alloc("image", 0, &kImageDeviceOperations, &state->device);
    if (!dev) return ERROR_NOT_ENOUGH_MEMORY;
    const auto flags = static_cast<ntfs_mount_flags>(readOnly ? NTFS_MNT_RDONLY : NTFS_MNT_RECOVER);
    state->vol = ntfs_device_mount(dev, flags);
    if (!state->vol) {
        const int error = errno;
        if (NDevOpen(dev)) DeviceClose(dev);
        ntfs_device_free(dev);
        switch (error) {
            case EINVAL: return ERROR_UNRECOGNIZED_VOLUME;
            case ENOMEM: return ERROR_NOT_ENOUGH_MEMORY;
            default: return ERROR_FILE_CORRUPT;
        }
    }
    // Records closed clean stay loaded in libntfs-3g's own cache, so that the next open of the same record
    // (a lookup, then an open, then a name query) neither reads nor parses it again. The cache holds closed
    // records only, and libntfs-3g's own opens go through it too: a record still has one object at a time.
    ntfs_create_lru_caches(state->vol);
    // Hidden entries are listed like any other; the file system's own files are left out by us.
    ntfs_set_shown_files(state->vol, kNtfsFalse, kNtfsTrue, kNtfsFalse);
    if (!readOnly) NVolSetCompression(state->vol);
    out.reset(new Volume(std::move(state)));
    return ERROR_SUCCESS;
}

DWORD Volume::Detach() {
    Lock lock(EngineLock());
    VolumeState& state = *state_;
    if (!state.vol) return ERROR_SUCCESS;
    // Open files lose their records first; libntfs-3g then writes the volume back and closes the image.
    for (auto& [record, node] : state.nodes) UnloadNode(state, *node);
    state.nodes.clear();
    state.folded.clear();
    state.foldedNames = 0;
    state.foldedUse.clear();
    state.searches.clear();
    state.folderPaths.clear();
    ntfs_volume* vol = state.vol;
    state.vol = nullptr;
    const DWORD result = ntfs_umount(vol, kNtfsFalse) != 0 ? ErrorFromErrno(errno) : ERROR_SUCCESS;
    if (state.device.fd >= 0) close(state.device.fd);
    state.device.fd = -1;
    return result;
}

bool Volume::ReadOnly() const { return state_->readOnly; }

DWORD Volume::Sync() {
    Lock lock(EngineLock());
    VolumeState& state = *state_;
    if (!state.vol) return ERROR_INVALID_HANDLE;
    if (state.readOnly) return ERROR_SUCCESS;
    DWORD result = ERROR_SUCCESS;
    // Records held open keep their changes in memory until they are closed; the volume's own files
    // ($MFT, its mirror, the cluster bitmap) are held for the whole attachment.
    // Without their names' copies in the folders' indexes, which follow when each record is let go.
    for (auto& [record, node] : state.nodes) {
        if (node->ni != nullptr && !node->borrowed && SyncRecordOnly(node->ni) != 0) result = ErrorFromErrno(errno);
    }
    ntfs_volume* vol = state.vol;
    for (ntfs_inode* own : {vol->mft_ni, vol->mftmirr_ni, vol->lcnbmp_ni, vol->vol_ni, vol->secure_ni}) {
        if (own != nullptr && ntfs_inode_sync(own) != 0) result = ErrorFromErrno(errno);
    }
    return result;
}

void Volume::AddWriteObserver(std::weak_ptr<WriteObserver> observer) {
    Lock lock(EngineLock());
    state_->device.observers.push_back(std::move(observer));
}

DWORD Volume::Open(const WString& path, std::shared_ptr<File>& out) {
    Lock lock(EngineLock());
    Walk walk;
    if (DWORD error = WalkPath(*state_, path, walk)) return error;
    if (!walk.node) return ERROR_FILE_NOT_FOUND;
    if (IsMetadataRecord(walk.node.get()->record)) return ERROR_ACCESS_DENIED;
    out.reset(new File(state_, walk.node.release(), walk.name));
    return ERROR_SUCCESS;
}

DWORD Volume::OpenByReference(ULONGLONG fileReference, std::shared_ptr<File>& out) {
    Lock lock(EngineLock());
    if (!state_->vol) return ERROR_INVALID_HANDLE;
    NodeRef node;
    if (DWORD error = AcquireNode(*state_, fileReference, node)) {
        return error == ERROR_FILE_NOT_FOUND ? ERROR_INVALID_PARAMETER : error;
    }
    if (IsMetadataRecord(node.get()->record)) return ERROR_ACCESS_DENIED;
    WString name;
    ForEachFileName(node.ni(), [&](const FILE_NAME_ATTR& attr) {
        if (attr.file_name_type == FILE_NAME_DOS) return true;
        name = NameOf(attr);
        return false;
    });
    out.reset(new File(state_, node.release(), name));
    return ERROR_SUCCESS;
}

DWORD Volume::Query(const WString& path, EntryInfo& info) {
    Lock lock(EngineLock());
    Walk walk;
    if (DWORD error = WalkPath(*state_, path, walk)) return error;
    if (!walk.node) return ERROR_FILE_NOT_FOUND;
    FillInfo(*walk.node.get(), info);
    info.name = walk.name;
    return ERROR_SUCCESS;
}

DWORD Volume::List(const WString& folder, const WString& pattern, std::vector<EntryInfo>& entries) {
    Lock lock(EngineLock());
    Walk walk;
    if (DWORD error = WalkPath(*state_, folder, walk)) return error;
    if (!walk.node) return ERROR_PATH_NOT_FOUND;
    if (!IsFolder(walk.node.ni())) return ERROR_DIRECTORY;
    std::vector<DirEntry> names;
    if (DWORD error = ReadFolder(*walk.node.get(), names)) return error;
    for (const DirEntry& entry : names) {
        if (!MatchesPattern(pattern, entry.name)) continue;
        NodeRef node;
        if (AcquireNode(*state_, entry.reference, node)) continue;  // a broken entry is not listed
        EntryInfo info;
        FillInfo(*node.get(), info);
        info.name = entry.name;
        entries.push_back(std::move(info));
    }
    return entries.empty() ? ERROR_FILE_NOT_FOUND : ERROR_SUCCESS;
}

namespace {

DWORD CreateEntry(VolumeState& state, const WString& path, mode_t type, DWORD attributes, NodeRef& made) {
    if (DWORD error = CheckWritable(state)) return error;
    Walk walk;
    if (DWORD error = WalkPath(state, path, walk)) return error;
    if (!walk.parent) return ERROR_ACCESS_DENIED;  // the root
    if (walk.node) return type == S_IFDIR ? ERROR_ALREADY_EXISTS : ERROR_FILE_EXISTS;
    if (!ValidName(walk.name)) return ERROR_INVALID_NAME;
    if (walk.name.size() > kMaxNameUnits) return ERROR_FILENAME_EXCED_RANGE;
    ntfs_inode* ni = ntfs_create(walk.parent.ni(), const_cpu_to_le32(0), Units(walk.name),
                                 static_cast<u8>(walk.name.size()), type);
    if (!ni) {
        const int error = errno;
        ForgetFolder(state, walk.parent.ni());
        return ErrorFromErrno(error);
    }
    RememberName(state, walk.parent.ni(), walk.name, ReferenceOf(ni));
    // New files are marked for backup, as Windows marks them.
    const DWORD settable = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM |
                           FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED | FILE_ATTRIBUTE_TEMPORARY;
    // What libntfs-3g set beyond the settable bits (compression taken from the folder, a folder's index
    // flag) stays.
    DWORD flags = (le32_to_cpu(ni->flags) & ~settable & ~static_cast<DWORD>(FILE_ATTRIBUTE_NORMAL)) |
                  (attributes & settable);
    if (type != S_IFDIR) flags |= FILE_ATTRIBUTE_ARCHIVE;
    ni->flags = FlagsOf(flags);
    NInoSetDirty(ni);
    NInoFileNameSetDirty(ni);
    auto node = std::make_unique<Node>();
    node->ni = ni;
    node->record = ni->mft_no;
    Node* raw = node.get();
    state.nodes[ni->mft_no] = std::move(node);
    ++raw->holders;
    made = NodeRef(&state, raw);
    return ERROR_SUCCESS;
}

}  // namespace

DWORD Volume::CreateFile(const WString& path, DWORD attributes, std::shared_ptr<File>& out) {
    Lock lock(EngineLock());
    NodeRef made;
    if (DWORD error = CreateEntry(*state_, path, S_IFREG, attributes, made)) return error;
    WString name = SplitPath(path).back();
    out.reset(new File(state_, made.release(), name));
    return ERROR_SUCCESS;
}

DWORD Volume::CreateFolder(const WString& path) {
    Lock lock(EngineLock());
    NodeRef made;
    return CreateEntry(*state_, path, S_IFDIR, 0, made);
}

DWORD Volume::DeleteFile(const WString& path) {
    Lock lock(EngineLock());
    if (DWORD error = CheckWritable(*state_)) return error;
    Walk walk;
    if (DWORD error = WalkPath(*state_, path, walk)) return error;
    if (!walk.node) return ERROR_FILE_NOT_FOUND;
    if (!walk.parent || IsFolder(walk.node.ni())) return ERROR_ACCESS_DENIED;
    if (AttributesOf(walk.node.ni()) & FILE_ATTRIBUTE_READONLY) return ERROR_ACCESS_DENIED;
    return RemoveName(*state_, walk.node, *walk.parent.get(), walk.name);
}

DWORD Volume::RemoveFolder(const WString& path) {
    Lock lock(EngineLock());
    if (DWORD error = CheckWritable(*state_)) return error;
    Walk walk;
    if (DWORD error = WalkPath(*state_, path, walk)) return error;
    if (!walk.node) return ERROR_FILE_NOT_FOUND;
    if (!walk.parent) return ERROR_ACCESS_DENIED;
    if (!IsFolder(walk.node.ni())) return ERROR_DIRECTORY;
    // Checked here: libntfs-3g's own refusal of a full folder leaves the parent's record unusable.
    if (ntfs_check_empty_dir(walk.node.ni()) != 0) return ErrorFromErrno(errno);
    return RemoveName(*state_, walk.node, *walk.parent.get(), walk.name);
}

DWORD Volume::Move(const WString& from, const WString& to, bool replaceExisting) {
    Lock lock(EngineLock());
    VolumeState& state = *state_;
    if (DWORD error = CheckWritable(state)) return error;
    Walk source;
    if (DWORD error = WalkPath(state, from, source)) return error;
    if (!source.node) return ERROR_FILE_NOT_FOUND;
    if (!source.parent) return ERROR_ACCESS_DENIED;
    Walk target;
    if (DWORD error = WalkPath(state, to, target)) return error;
    if (!target.parent) return ERROR_ACCESS_DENIED;
    const WString newName = SplitPath(to).back();
    if (!ValidName(newName)) return ERROR_INVALID_NAME;
    if (newName.size() > kMaxNameUnits) return ERROR_FILENAME_EXCED_RANGE;
    const bool sameRecord = target.node && target.node.get() == source.node.get();
    if (sameRecord && target.parent.get() == source.parent.get() && newName == source.name) return ERROR_SUCCESS;
    if (IsFolder(source.node.ni()) && IsAncestor(state, source.node.ni()->mft_no, target.parent.ni())) {
        return ERROR_SHARING_VIOLATION;
    }
    if (target.node && !sameRecord) {
        if (!replaceExisting) return ERROR_ALREADY_EXISTS;
        if (IsFolder(target.node.ni()) || (AttributesOf(target.node.ni()) & FILE_ATTRIBUTE_READONLY)) {
            return ERROR_ACCESS_DENIED;
        }
        if (DWORD error = RemoveName(state, target.node, *target.parent.get(), target.name)) return error;
    }
    if (sameRecord) target.node.reset();  // a new case or a second name of the same file
    state.folderPaths.clear();  // a folder moved takes everything below it along
    // The old name goes last, and it closes the record: only this move may hold it.
    if (source.node.get()->holders != 1) return ERROR_SHARING_VIOLATION;
    if (ntfs_link(source.node.ni(), target.parent.ni(), Units(newName), static_cast<u8>(newName.size())) != 0) {
        const int error = errno;
        ForgetFolder(state, target.parent.ni());
        return ErrorFromErrno(error);
    }
    RememberName(state, target.parent.ni(), newName, ReferenceOf(source.node.ni()));
    return RemoveName(state, source.node, *source.parent.get(), source.name);
}

DWORD Volume::CreateHardLink(const WString& newPath, const WString& existingPath) {
    Lock lock(EngineLock());
    VolumeState& state = *state_;
    if (DWORD error = CheckWritable(state)) return error;
    Walk existing;
    if (DWORD error = WalkPath(state, existingPath, existing)) return error;
    if (!existing.node) return ERROR_FILE_NOT_FOUND;
    if (IsFolder(existing.node.ni())) return ERROR_ACCESS_DENIED;
    Walk made;
    if (DWORD error = WalkPath(state, newPath, made)) return error;
    if (made.node) return ERROR_ALREADY_EXISTS;
    if (!made.parent) return ERROR_ACCESS_DENIED;
    if (!ValidName(made.name)) return ERROR_INVALID_NAME;
    if (made.name.size() > kMaxNameUnits) return ERROR_FILENAME_EXCED_RANGE;
    if (CountLinks(existing.node.ni()) >= kMaxLinks) return ERROR_TOO_MANY_LINKS;
    if (ntfs_link(existing.node.ni(), made.parent.ni(), Units(made.name), static_cast<u8>(made.name.size())) != 0) {
        const int error = errno;
        ForgetFolder(state, made.parent.ni());
        return ErrorFromErrno(error);
    }
    RememberName(state, made.parent.ni(), made.name, ReferenceOf(existing.node.ni()));
    return ERROR_SUCCESS;
}

DWORD PathOf(VolumeState& state, u64 fileReference, WString& path) {
    if (!state.vol) return ERROR_INVALID_HANDLE;
    NodeRef node;
    if (DWORD error = AcquireNode(state, fileReference, node)) {
        return error == ERROR_FILE_NOT_FOUND ? ERROR_INVALID_PARAMETER : error;
    }
    struct Part {
        WString name;
        u64 folder;  // the reference of the record named, when it is a folder; 0 otherwise
    };
    std::vector<Part> parts;
    WString known;  // the path of the folder the climb stopped at, when it stopped short of the root
    // Up the first long name of each record to the root, or to a folder whose path is known; a chain
    // longer than any real path is broken.
    for (int depth = 0; node.ni()->mft_no != FILE_root; ++depth) {
        if (depth > 4096) return ERROR_FILE_CORRUPT;
        u64 parent = 0;
        WString name;
        ForEachFileName(node.ni(), [&](const FILE_NAME_ATTR& attr) {
            if (attr.file_name_type == FILE_NAME_DOS) return true;
            parent = le64_to_cpu(attr.parent_directory);
            name = NameOf(attr);
            return false;
        });
        if (name.empty()) return ERROR_FILE_CORRUPT;
        parts.push_back({std::move(name), IsFolder(node.ni()) ? ReferenceOf(node.ni()) : 0});
        // A folder's reference changes with its record's sequence number when the record is reused.
        const auto cached = state.folderPaths.find(MREF(parent));
        if (cached != state.folderPaths.end() && cached->second.first == parent) {
            known = cached->second.second;
            break;
        }
        NodeRef up;
        if (AcquireNode(state, MREF(parent), up)) return ERROR_FILE_CORRUPT;
        node = std::move(up);
    }
    if (state.folderPaths.size() + parts.size() > kFolderPathsKept) state.folderPaths.clear();
    path = std::move(known);
    for (auto it = parts.rbegin(); it != parts.rend(); ++it) {
        path.push_back(kSeparator);
        path += it->name;
        if (it->folder != 0) state.folderPaths[MREF(it->folder)] = {it->folder, path};
    }
    if (path.empty()) path.assign(1, kSeparator);
    return ERROR_SUCCESS;
}

DWORD Volume::PathOfReference(ULONGLONG fileReference, WString& path) {
    Lock lock(EngineLock());
    return PathOf(*state_, fileReference, path);
}

}  // namespace vlx::ntfs
