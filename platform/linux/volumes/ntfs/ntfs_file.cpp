// Open files of the NTFS engine: their facts, data, times, attributes and every name they have.
#include "ntfs3g.h"

#include <algorithm>
#include <cerrno>

#include "ntfs_internal.h"

namespace vlx::ntfs {

namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

sle64 NtfsTimeOf(const FILETIME& time) {
    return cpu_to_sle64(static_cast<s64>((static_cast<ULONGLONG>(time.dwHighDateTime) << 32) | time.dwLowDateTime));
}

}  // namespace

File::File(std::shared_ptr<VolumeState> state, Node* node, WString name)
    : state_(std::move(state)), node_(node), name_(std::move(name)) {}

File::~File() {
    Lock lock(EngineLock());
    if (state_->vol && node_) ReleaseNode(*state_, node_);
}

bool File::IsFolder() {
    Lock lock(EngineLock());
    return state_->vol && ntfs::IsFolder(node_->ni);
}

DWORD File::Info(EntryInfo& info) {
    Lock lock(EngineLock());
    if (!state_->vol) return ERROR_INVALID_HANDLE;
    FillInfo(*node_, info);
    info.name = name_;
    return ERROR_SUCCESS;
}

DWORD File::Read(ULONGLONG offset, void* buffer, DWORD count, DWORD& done) {
    Lock lock(EngineLock());
    done = 0;
    if (!state_->vol) return ERROR_INVALID_HANDLE;
    if (DWORD error = OpenData(*node_)) return error;
    const s64 size = node_->data->data_size;
    if (offset >= static_cast<ULONGLONG>(size) || count == 0) return ERROR_SUCCESS;
    const s64 wanted = std::min<s64>(count, size - static_cast<s64>(offset));
    const s64 got = ntfs_attr_pread(node_->data, static_cast<s64>(offset), wanted, buffer);
    if (got < 0) return ErrorFromErrno(errno);
    done = static_cast<DWORD>(got);
    return ERROR_SUCCESS;
}

DWORD File::Write(ULONGLONG offset, const void* buffer, DWORD count, DWORD& done) {
    Lock lock(EngineLock());
    done = 0;
    if (DWORD error = CheckWritable(*state_)) return error;
    if (DWORD error = OpenData(*node_)) return error;
    if (count == 0) return ERROR_SUCCESS;
    if (offset > static_cast<ULONGLONG>(INT64_MAX) - count) return ERROR_INVALID_PARAMETER;
    const s64 put = ntfs_attr_pwrite(node_->data, static_cast<s64>(offset), count, buffer);
    if (put < 0) return ErrorFromErrno(errno);
    done = static_cast<DWORD>(put);
    ntfs_inode_update_times(node_->ni, static_cast<ntfs_time_update_flags>(NTFS_UPDATE_MCTIME));
    node_->ni->flags = FlagsOf(le32_to_cpu(node_->ni->flags) | FILE_ATTRIBUTE_ARCHIVE);
    NInoSetDirty(node_->ni);
    NInoFileNameSetDirty(node_->ni);
    return put < count ? ERROR_DISK_FULL : ERROR_SUCCESS;
}

DWORD File::SetSize(ULONGLONG size) {
    Lock lock(EngineLock());
    if (DWORD error = CheckWritable(*state_)) return error;
    if (DWORD error = OpenData(*node_)) return error;
    if (size > static_cast<ULONGLONG>(INT64_MAX)) return ERROR_INVALID_PARAMETER;
    if (static_cast<s64>(size) == node_->data->data_size) return ERROR_SUCCESS;
    if (ntfs_attr_truncate(node_->data, static_cast<s64>(size)) != 0) return ErrorFromErrno(errno);
    ntfs_inode_update_times(node_->ni, static_cast<ntfs_time_update_flags>(NTFS_UPDATE_MCTIME));
    NInoFileNameSetDirty(node_->ni);
    return ERROR_SUCCESS;
}

DWORD File::SetTimes(const FILETIME* created, const FILETIME* accessed, const FILETIME* written) {
    Lock lock(EngineLock());
    if (DWORD error = CheckWritable(*state_)) return error;
    ntfs_inode* ni = node_->ni;
    if (created) ni->creation_time = NtfsTimeOf(*created);
    if (accessed) ni->last_access_time = NtfsTimeOf(*accessed);
    if (written) ni->last_data_change_time = NtfsTimeOf(*written);
    NInoSetDirty(ni);
    NInoFileNameSetDirty(ni);
    return ERROR_SUCCESS;
}

DWORD File::SetAttributes(DWORD attributes) {
    Lock lock(EngineLock());
    if (DWORD error = CheckWritable(*state_)) return error;
    // What SetFileAttributesW may change; compression, sparseness and the folder bit have calls of their own.
    const DWORD settable = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM |
                           FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED | FILE_ATTRIBUTE_TEMPORARY |
                           FILE_ATTRIBUTE_OFFLINE;
    ntfs_inode* ni = node_->ni;
    const DWORD kept = le32_to_cpu(ni->flags) & ~settable & ~static_cast<DWORD>(FILE_ATTRIBUTE_NORMAL);
    ni->flags = FlagsOf(kept | (attributes & settable));
    NInoSetDirty(ni);
    NInoFileNameSetDirty(ni);
    return ERROR_SUCCESS;
}

DWORD File::LinkNames(std::vector<WString>& paths) {
    Lock lock(EngineLock());
    if (!state_->vol) return ERROR_INVALID_HANDLE;
    std::vector<std::pair<u64, WString>> names;
    ForEachFileName(node_->ni, [&](const FILE_NAME_ATTR& attr) {
        if (attr.file_name_type != FILE_NAME_DOS) names.emplace_back(MREF_LE(attr.parent_directory), NameOf(attr));
        return true;
    });
    for (auto& [parent, name] : names) {
        WString folder;
        if (DWORD error = PathOf(*state_, parent, folder)) return error;
        if (folder.size() > 1) folder.push_back(kSeparator);
        paths.push_back(folder + name);
    }
    return ERROR_SUCCESS;
}

}  // namespace vlx::ntfs
