// NTFS compression switched on and off for a file or folder, as FSCTL_SET_COMPRESSION does it: a file's
// data is rewritten in the new form, a folder only changes what files made in it get.
#include "ntfs3g.h"

#include <cerrno>
#include <vector>

#include "ntfs_internal.h"

namespace vlx::ntfs {

namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

// libntfs-3g compresses in units of 16 clusters of at most 4 KiB, as Windows does; larger clusters
// cannot hold compressed data.
constexpr u32 kLargestCompressibleCluster = 4096;

void SetFlag(ntfs_inode* ni, DWORD flag, bool on) {
    const DWORD flags = le32_to_cpu(ni->flags);
    ni->flags = FlagsOf(on ? (flags | flag) : (flags & ~flag));
    NInoSetDirty(ni);
    NInoFileNameSetDirty(ni);
}

// Reads the whole unnamed stream; the rewrite needs it all before the old stream goes.
DWORD ReadAll(ntfs_attr* data, std::vector<u8>& bytes) {
    bytes.resize(static_cast<size_t>(data->data_size));
    s64 done = 0;
    while (done < data->data_size) {
        const s64 got = ntfs_attr_pread(data, done, data->data_size - done, bytes.data() + done);
        if (got <= 0) return got < 0 ? ErrorFromErrno(errno) : ERROR_FILE_CORRUPT;
        done += got;
    }
    return ERROR_SUCCESS;
}

// Replaces the unnamed stream with an empty one of the wanted form and writes the bytes back into it.
DWORD Rewrite(Node& node, const std::vector<u8>& bytes, bool compressed) {
    ntfs_inode* ni = node.ni;
    ntfs_attr_close(node.data);
    node.data = nullptr;
    if (ntfs_attr_remove(ni, AT_DATA, AT_UNNAMED, 0) != 0) return ErrorFromErrno(errno);
    if (ntfs_attr_add(ni, AT_DATA, AT_UNNAMED, 0, nullptr, 0) != 0) return ErrorFromErrno(errno);
    // The stream's form is the attribute record's; the file's attribute word only reports it.
    if (compressed && ntfs_attr_set_flags(ni, AT_DATA, AT_UNNAMED, 0, ATTR_IS_COMPRESSED, ATTR_COMPRESSION_MASK) != 0) {
        return ErrorFromErrno(errno);
    }
    SetFlag(ni, FILE_ATTRIBUTE_COMPRESSED, compressed);
    SetFlag(ni, FILE_ATTRIBUTE_SPARSE_FILE, false);
    if (DWORD error = OpenData(node)) return error;
    s64 done = 0;
    const s64 size = static_cast<s64>(bytes.size());
    while (done < size) {
        const s64 put = ntfs_attr_pwrite(node.data, done, size - done, bytes.data() + done);
        if (put <= 0) return put < 0 ? ErrorFromErrno(errno) : ERROR_DISK_FULL;
        done += put;
    }
    if (compressed && ntfs_attr_pclose(node.data) != 0) return ErrorFromErrno(errno);
    return ERROR_SUCCESS;
}

}  // namespace

DWORD File::GetCompression(USHORT& format) {
    Lock lock(EngineLock());
    if (!state_->vol) return ERROR_INVALID_HANDLE;
    bool compressed;
    if (ntfs::IsFolder(node_->ni)) {
        compressed = (le32_to_cpu(node_->ni->flags) & FILE_ATTRIBUTE_COMPRESSED) != 0;
    } else {
        if (DWORD error = OpenData(*node_)) return error;
        compressed = (node_->data->data_flags & ATTR_IS_COMPRESSED) != 0;
    }
    format = compressed ? COMPRESSION_FORMAT_LZNT1 : COMPRESSION_FORMAT_NONE;
    return ERROR_SUCCESS;
}

DWORD File::SetCompression(USHORT format) {
    Lock lock(EngineLock());
    VolumeState& state = *state_;
    if (!state.vol) return ERROR_INVALID_HANDLE;
    if (format != COMPRESSION_FORMAT_NONE && format != COMPRESSION_FORMAT_DEFAULT && format != COMPRESSION_FORMAT_LZNT1) {
        return ERROR_INVALID_PARAMETER;
    }
    if (state.readOnly) return ERROR_WRITE_PROTECT;
    const bool compress = format != COMPRESSION_FORMAT_NONE;
    if (compress && state.vol->cluster_size > kLargestCompressibleCluster) return ERROR_INVALID_FUNCTION;
    ntfs_inode* ni = node_->ni;
    if (ntfs::IsFolder(ni)) {
        // New files in a compressed folder are made compressed; what the folder holds stays as it is.
        if (ntfs_attr_set_flags(ni, AT_INDEX_ROOT, NTFS_INDEX_I30, 4, compress ? ATTR_IS_COMPRESSED : static_cast<ATTR_FLAGS>(0),
                                ATTR_COMPRESSION_MASK) != 0) {
            return ErrorFromErrno(errno);
        }
        SetFlag(ni, FILE_ATTRIBUTE_COMPRESSED, compress);
        return ERROR_SUCCESS;
    }
    if (DWORD error = OpenData(*node_)) return error;
    if (((node_->data->data_flags & ATTR_IS_COMPRESSED) != 0) == compress) return ERROR_SUCCESS;
    if (node_->data->data_flags & ATTR_IS_ENCRYPTED) return ERROR_ACCESS_DENIED;
    std::vector<u8> bytes;
    if (compress) ntfs_attr_pclose(node_->data);
    if (DWORD error = ReadAll(node_->data, bytes)) return error;
    return Rewrite(*node_, bytes, compress);
}

}  // namespace vlx::ntfs
