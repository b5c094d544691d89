// The answers of an NTFS volume to the file-system controls that read its master file table and change
// journal (FSCTL_GET_NTFS_VOLUME_DATA, FSCTL_QUERY_USN_JOURNAL, FSCTL_ENUM_USN_DATA), written into the
// caller's buffer in the byte layouts Windows gives.
#include "ntfs3g.h"

#include <cstring>

#include "ntfs_internal.h"

namespace vlx::ntfs {

namespace {

// NTFS_VOLUME_DATA_BUFFER, then NTFS_EXTENDED_VOLUME_DATA's first three fields when there is room.
constexpr DWORD kVolumeDataSize = 96;
constexpr DWORD kExtendedVolumeDataSize = 8;
// USN_JOURNAL_DATA_V0 and V1 (V1 adds the range of record versions the journal writes).
constexpr DWORD kJournalDataV0Size = 56;
constexpr DWORD kJournalDataV1Size = 64;
constexpr WORD kUsnRecordMajorVersion = 2;
constexpr WORD kNewestUsnMajorVersion = 3;
// MFT_ENUM_DATA_V0 and V1 in; USN_RECORD_V2 out, behind the 8-byte reference to continue from.
constexpr DWORD kEnumDataV0Size = 24;
constexpr DWORD kEnumDataV1Size = 32;
constexpr DWORD kNextReferenceSize = 8;
constexpr DWORD kUsnRecordNameOffset = 60;

DWORD UsnRecordLength(const WString& name) {
    return (kUsnRecordNameOffset + static_cast<DWORD>(name.size() * sizeof(WCHAR)) + 7) & ~7u;
}

// The file system's own files (the first sixteen records and what lives in $Extend) and the root itself
// are not entries of the volume's tree; the enumeration leaves them out.
bool IsVolumeEntry(const MftRecord& record) {
    if (MREF(record.fileReference) < FILE_first_user || record.names.empty()) return false;
    return MREF(record.names.front().parentReference) != FILE_Extend;
}

}  // namespace

DWORD Volume::NtfsVolumeData(void* out, DWORD outSize, DWORD& returned) {
    returned = 0;
    if (!out || outSize < kVolumeDataSize) return ERROR_INSUFFICIENT_BUFFER;
    VolumeFacts facts;
    if (DWORD error = Facts(facts)) return error;
    auto* bytes = static_cast<BYTE*>(out);
    std::memset(bytes, 0, kVolumeDataSize);
    Put(bytes, 0, facts.serialNumber);
    Put(bytes, 8, facts.numberSectors);
    Put(bytes, 16, facts.totalClusters);
    Put(bytes, 24, facts.freeClusters);
    Put(bytes, 40, facts.bytesPerSector);
    Put(bytes, 44, facts.bytesPerCluster);
    Put(bytes, 48, facts.bytesPerFileRecordSegment);
    // Zero when a record is smaller than a cluster, as Windows reports it.
    Put(bytes, 52, facts.bytesPerFileRecordSegment / facts.bytesPerCluster);
    Put(bytes, 56, facts.mftValidDataLength);
    Put(bytes, 64, facts.mftStartLcn);
    Put(bytes, 72, facts.mft2StartLcn);
    Put(bytes, 80, facts.mftZoneStart);
    Put(bytes, 88, facts.mftZoneEnd);
    returned = kVolumeDataSize;
    if (outSize >= kVolumeDataSize + kExtendedVolumeDataSize) {
        Put(bytes, kVolumeDataSize, kExtendedVolumeDataSize);
        Put(bytes, kVolumeDataSize + 4, static_cast<WORD>(facts.majorVersion));
        Put(bytes, kVolumeDataSize + 6, static_cast<WORD>(facts.minorVersion));
        returned += kExtendedVolumeDataSize;
    }
    return ERROR_SUCCESS;
}

DWORD Volume::UsnJournalData(void* out, DWORD outSize, DWORD& returned) {
    returned = 0;
    if (!out || outSize < kJournalDataV0Size) return ERROR_INSUFFICIENT_BUFFER;
    UsnJournal journal;
    if (DWORD error = QueryUsnJournal(journal)) return error;
    auto* bytes = static_cast<BYTE*>(out);
    const DWORD size = outSize >= kJournalDataV1Size ? kJournalDataV1Size : kJournalDataV0Size;
    std::memset(bytes, 0, size);
    Put(bytes, 0, journal.journalId);
    Put(bytes, 8, journal.firstUsn);
    Put(bytes, 16, journal.nextUsn);
    Put(bytes, 24, journal.lowestValidUsn);
    Put(bytes, 32, journal.maxUsn);
    Put(bytes, 40, journal.maximumSize);
    Put(bytes, 48, journal.allocationDelta);
    if (size == kJournalDataV1Size) {
        Put(bytes, 56, kUsnRecordMajorVersion);
        Put(bytes, 58, kNewestUsnMajorVersion);
    }
    returned = size;
    return ERROR_SUCCESS;
}

DWORD Volume::EnumUsnData(const void* in, DWORD inSize, void* out, DWORD outSize, DWORD& returned) {
    returned = 0;
    if (!in || (inSize != kEnumDataV0Size && inSize != kEnumDataV1Size)) return ERROR_INVALID_PARAMETER;
    const auto* request = static_cast<const BYTE*>(in);
    const ULONGLONG start = Take<ULONGLONG>(request, 0);
    const LONGLONG lowUsn = Take<LONGLONG>(request, 8), highUsn = Take<LONGLONG>(request, 16);
    if (inSize == kEnumDataV1Size) {
        const WORD minMajor = Take<WORD>(request, 24), maxMajor = Take<WORD>(request, 26);
        if (minMajor > kUsnRecordMajorVersion || maxMajor < kUsnRecordMajorVersion) return ERROR_INVALID_PARAMETER;
    }
    if (!out || outSize < kNextReferenceSize) return ERROR_INSUFFICIENT_BUFFER;
    auto* bytes = static_cast<BYTE*>(out);
    DWORD used = kNextReferenceSize;
    ULONGLONG next = MREF(start);
    bool any = false, tooSmall = false;
    const DWORD error = EnumerateRecords(MREF(start), [&](const MftRecord& record) {
        next = MREF(record.fileReference) + 1;
        if (!IsVolumeEntry(record) || record.usn < lowUsn || record.usn > highUsn) return true;
        const MftRecord::Name& name = record.names.front();
        const DWORD length = UsnRecordLength(name.name);
        if (length > outSize - used) {
            // The record waits for the next call; a buffer that cannot hold even one is too small.
            next = MREF(record.fileReference);
            tooSmall = !any;
            return false;
        }
        BYTE* entry = bytes + used;
        std::memset(entry, 0, length);
        Put(entry, 0, length);
        Put(entry, 4, kUsnRecordMajorVersion);
        Put(entry, 8, record.fileReference);
        Put(entry, 16, name.parentReference);
        Put(entry, 24, record.usn);
        Put(entry, 52, record.attributes);
        Put(entry, 56, static_cast<WORD>(name.name.size() * sizeof(WCHAR)));
        Put(entry, 58, static_cast<WORD>(kUsnRecordNameOffset));
        std::memcpy(entry + kUsnRecordNameOffset, name.name.data(), name.name.size() * sizeof(WCHAR));
        used += length;
        any = true;
        return true;
    });
    if (error) return error;
    if (tooSmall) return ERROR_INSUFFICIENT_BUFFER;
    if (!any) return ERROR_HANDLE_EOF;  // the end of the table
    Put(bytes, 0, next);
    returned = used;
    return ERROR_SUCCESS;
}

}  // namespace vlx::ntfs
