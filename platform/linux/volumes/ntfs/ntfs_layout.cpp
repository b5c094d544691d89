// Where things lie on an NTFS volume: a file's data runs as retrieval pointers, the volume's facts
// (clusters, sectors, the master file table), and a walk over the table's in-use records.
#include "ntfs3g.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "../../core/internal.h"
#include "ntfs_internal.h"

namespace vlx::ntfs {

namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

// RETRIEVAL_POINTERS_BUFFER as the control code lays it out: a 16-byte head, then 16 bytes per run.
constexpr DWORD kPointersHead = 16;
constexpr DWORD kPointersExtent = 16;

template <class T>
void Put(BYTE* out, DWORD offset, T value) {
    std::memcpy(out + offset, &value, sizeof(value));
}

// A compressed stream packs its last block only when asked; its runs are final after that.
void FinishPendingCompression(Node& node) {
    if (node.data && (node.data->data_flags & ATTR_COMPRESSION_MASK)) ntfs_attr_pclose(node.data);
}

// The attributes of a record read straight from the table, with bounds checked: a record that does not
// hold together yields what was read before the fault.
void ReadRawRecord(const MFT_RECORD& record, u32 recordSize, MftRecord& out, bool& sawAttributeList) {
    const u8* base = reinterpret_cast<const u8*>(&record);
    u32 offset = le16_to_cpu(record.attrs_offset);
    DWORD attributes = 0;
    while (offset + sizeof(u32) * 2 <= recordSize) {
        const auto* attr = reinterpret_cast<const ATTR_RECORD*>(base + offset);
        if (attr->type == AT_END) break;
        const u32 length = le32_to_cpu(attr->length);
        if (length < offsetof(ATTR_RECORD, resident_end) || offset + length > recordSize) break;
        if (attr->type == AT_ATTRIBUTE_LIST) sawAttributeList = true;
        if (!attr->non_resident) {
            const u32 valueOffset = le16_to_cpu(attr->value_offset);
            const u32 valueLength = le32_to_cpu(attr->value_length);
            if (valueOffset + valueLength <= length) {
                const u8* value = base + offset + valueOffset;
                if (attr->type == AT_STANDARD_INFORMATION && valueLength >= offsetof(STANDARD_INFORMATION, maximum_versions)) {
                    attributes = le32_to_cpu(reinterpret_cast<const STANDARD_INFORMATION*>(value)->file_attributes);
                } else if (attr->type == AT_FILE_NAME && valueLength >= sizeof(FILE_NAME_ATTR)) {
                    const auto* name = reinterpret_cast<const FILE_NAME_ATTR*>(value);
                    if (name->file_name_type != FILE_NAME_DOS &&
                        sizeof(FILE_NAME_ATTR) + name->file_name_length * sizeof(ntfschar) <= valueLength) {
                        out.names.push_back({le64_to_cpu(name->parent_directory), NameOf(*name)});
                    }
                }
            }
        }
        offset += length;
    }
    attributes &= 0xFFFF & ~static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY);
    if (record.flags & MFT_RECORD_IS_DIRECTORY) attributes |= FILE_ATTRIBUTE_DIRECTORY;
    if (attributes != FILE_ATTRIBUTE_NORMAL) attributes &= ~static_cast<DWORD>(FILE_ATTRIBUTE_NORMAL);
    out.attributes = attributes ? attributes : FILE_ATTRIBUTE_NORMAL;
}

}  // namespace

DWORD File::Extents(LONGLONG startingVcn, LONGLONG& firstVcn, std::vector<Extent>& extents) {
    Lock lock(EngineLock());
    if (!state_->vol) return ERROR_INVALID_HANDLE;
    if (startingVcn < 0) return ERROR_INVALID_PARAMETER;
    if (DWORD error = OpenData(*node_)) return error == ERROR_INVALID_FUNCTION ? ERROR_INVALID_PARAMETER : error;
    FinishPendingCompression(*node_);
    ntfs_attr* data = node_->data;
    // Data kept inside the file record has no clusters: Windows answers end of file.
    if (!NAttrNonResident(data)) return ERROR_HANDLE_EOF;
    if (ntfs_attr_map_whole_runlist(data) != 0) return ErrorFromErrno(errno);
    const runlist_element* run = data->rl;
    while (run && run->length && run->vcn + run->length <= startingVcn) ++run;
    if (!run || !run->length) return ERROR_HANDLE_EOF;
    firstVcn = run->vcn;
    for (; run->length; ++run) {
        extents.push_back({run->vcn + run->length, run->lcn < 0 ? -1 : run->lcn});
    }
    return ERROR_SUCCESS;
}

DWORD File::RetrievalPointers(LONGLONG startingVcn, void* out, DWORD outSize, DWORD& returned) {
    returned = 0;
    if (!out || outSize < kPointersHead + kPointersExtent) return ERROR_INSUFFICIENT_BUFFER;
    LONGLONG firstVcn = 0;
    std::vector<Extent> extents;
    if (DWORD error = Extents(startingVcn, firstVcn, extents)) return error;
    const size_t fits = std::min<size_t>(extents.size(), (outSize - kPointersHead) / kPointersExtent);
    auto* bytes = static_cast<BYTE*>(out);
    std::memset(bytes, 0, kPointersHead);
    Put(bytes, 0, static_cast<DWORD>(fits));
    Put(bytes, 8, firstVcn);
    for (size_t i = 0; i < fits; ++i) {
        Put(bytes, static_cast<DWORD>(kPointersHead + i * kPointersExtent), extents[i].nextVcn);
        Put(bytes, static_cast<DWORD>(kPointersHead + i * kPointersExtent + 8), extents[i].lcn);
    }
    returned = static_cast<DWORD>(kPointersHead + fits * kPointersExtent);
    return fits < extents.size() ? ERROR_MORE_DATA : ERROR_SUCCESS;
}

DWORD Volume::Facts(VolumeFacts& facts) {
    Lock lock(EngineLock());
    ntfs_volume* vol = state_->vol;
    if (!vol) return ERROR_INVALID_HANDLE;
    NTFS_BOOT_SECTOR boot{};
    if (ntfs_pread(vol->dev, 0, sizeof(boot), &boot) != static_cast<s64>(sizeof(boot))) return ErrorFromErrno(errno);
    if (ntfs_volume_get_free_space(vol) != 0) return ErrorFromErrno(errno);
    facts.serialNumber = le64_to_cpu(boot.volume_serial_number);
    facts.numberSectors = sle64_to_cpu(boot.number_of_sectors);
    facts.totalClusters = vol->nr_clusters;
    facts.freeClusters = vol->free_clusters;
    facts.bytesPerSector = vol->sector_size;
    facts.bytesPerCluster = vol->cluster_size;
    facts.bytesPerFileRecordSegment = vol->mft_record_size;
    facts.mftValidDataLength = vol->mft_na->initialized_size;
    facts.mftStartLcn = vol->mft_lcn;
    facts.mft2StartLcn = vol->mftmirr_lcn;
    facts.mftZoneStart = vol->mft_zone_start;
    facts.mftZoneEnd = vol->mft_zone_end;
    facts.majorVersion = vol->major_ver;
    facts.minorVersion = vol->minor_ver;
    facts.label = vol->vol_name ? WStrFromUtf8(vol->vol_name) : WString();
    return ERROR_SUCCESS;
}

DWORD Volume::EnumerateRecords(ULONGLONG startRecord, const std::function<bool(const MftRecord&)>& visit) {
    Lock lock(EngineLock());
    VolumeState& state = *state_;
    ntfs_volume* vol = state.vol;
    if (!vol) return ERROR_INVALID_HANDLE;
    const u64 records = static_cast<u64>(vol->mft_na->initialized_size) >> vol->mft_record_size_bits;
    std::vector<u8> bitmap(4096);
    std::vector<u8> raw(vol->mft_record_size);
    auto* record = reinterpret_cast<MFT_RECORD*>(raw.data());
    for (u64 chunk = startRecord / 8 * 8; chunk < records; chunk += bitmap.size() * 8) {
        const s64 got = ntfs_attr_pread(vol->mftbmp_na, static_cast<s64>(chunk / 8), static_cast<s64>(bitmap.size()), bitmap.data());
        if (got <= 0) return got == 0 ? ERROR_SUCCESS : ErrorFromErrno(errno);
        const u64 end = std::min<u64>(records, chunk + static_cast<u64>(got) * 8);
        for (u64 number = std::max<u64>(chunk, startRecord); number < end; ++number) {
            if (!(bitmap[(number - chunk) / 8] & (1u << (number % 8)))) continue;
            MftRecord entry;
            auto loaded = state.nodes.find(number);
            if (loaded != state.nodes.end()) {
                // A loaded record may hold changes not yet written to the table: read it from memory.
                ntfs_inode* ni = loaded->second->ni;
                entry.fileReference = ReferenceOf(ni);
                entry.attributes = AttributesOf(ni);
                ForEachFileName(ni, [&](const FILE_NAME_ATTR& name) {
                    if (name.file_name_type != FILE_NAME_DOS) entry.names.push_back({le64_to_cpu(name.parent_directory), NameOf(name)});
                    return true;
                });
            } else {
                if (ntfs_mft_record_read(vol, number, record) != 0) continue;  // unreadable: skipped
                if (!(record->flags & MFT_RECORD_IN_USE) || record->base_mft_record) continue;
                entry.fileReference = MK_MREF(number, le16_to_cpu(record->sequence_number));
                bool attributeList = false;
                ReadRawRecord(*record, vol->mft_record_size, entry, attributeList);
                if (entry.names.empty() && attributeList) {
                    // Names moved to extension records: the loaded record reads them through its list.
                    NodeRef node;
                    if (AcquireNode(state, number, node) == ERROR_SUCCESS) {
                        ForEachFileName(node.ni(), [&](const FILE_NAME_ATTR& name) {
                            if (name.file_name_type != FILE_NAME_DOS) entry.names.push_back({le64_to_cpu(name.parent_directory), NameOf(name)});
                            return true;
                        });
                    }
                }
            }
            if (!visit(entry)) return ERROR_SUCCESS;
        }
    }
    return ERROR_SUCCESS;
}

}  // namespace vlx::ntfs
