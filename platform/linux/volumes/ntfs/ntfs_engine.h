// The NTFS engine: an NTFS file system inside an image file, at a byte offset, served in-process by
// libntfs-3g with no mount. Callers see Win32 units (WCHAR names, FILE_ATTRIBUTE_* words, FILETIME,
// Win32 error codes as results) so that a volume adapter over it stays thin. Paths are volume-relative,
// "\" for the root and "\a\b" below it, looked up without regard to case (the volume's own $UpCase
// table) with the case on disk kept. Every call takes one process-wide lock, since libntfs-3g has none,
// and every record is loaded at most once however many callers hold it. Methods return ERROR_SUCCESS or
// the code Windows gives for the same failure.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "../../../wstr.h"
#include "../../../win32.h"

#ifndef ERROR_UNRECOGNIZED_VOLUME
#define ERROR_UNRECOGNIZED_VOLUME 1005L
#endif
#ifndef ERROR_FILE_CORRUPT
#define ERROR_FILE_CORRUPT 1392L
#endif
#ifndef ERROR_INVALID_SECURITY_DESCR
#define ERROR_INVALID_SECURITY_DESCR 1338L
#endif
#ifndef ERROR_JOURNAL_NOT_ACTIVE
#define ERROR_JOURNAL_NOT_ACTIVE 1179L
#endif
#ifndef ERROR_DISK_CORRUPT
#define ERROR_DISK_CORRUPT 1393L
#endif

namespace vlx::ntfs {

// What an entry says of itself, as FindFirstFileW and GetFileInformationByHandle report it.
struct EntryInfo {
    WString name;                 // the long name the entry was reached by, with its case on disk
    DWORD attributes = 0;         // FILE_ATTRIBUTE_*; FILE_ATTRIBUTE_NORMAL when no other bit is set
    FILETIME created{}, accessed{}, written{}, changed{};
    ULONGLONG size = 0;           // bytes of the unnamed data stream; 0 for folders
    ULONGLONG allocated = 0;      // bytes the stream holds on disk (compressed or sparse: what is stored)
    ULONGLONG fileReference = 0;  // record number in the low 48 bits, sequence number in the high 16
    DWORD links = 0;              // names the file has (hard links); an 8.3 alias is not a name of its own
};

// What NTFS_VOLUME_DATA_BUFFER and GetVolumeInformationW need.
struct VolumeFacts {
    ULONGLONG serialNumber = 0;   // the boot sector's 64-bit number; Windows shows its low 32 bits
    LONGLONG numberSectors = 0;
    LONGLONG totalClusters = 0;
    LONGLONG freeClusters = 0;
    DWORD bytesPerSector = 0;
    DWORD bytesPerCluster = 0;
    DWORD bytesPerFileRecordSegment = 0;
    LONGLONG mftValidDataLength = 0;
    LONGLONG mftStartLcn = 0;
    LONGLONG mft2StartLcn = 0;
    LONGLONG mftZoneStart = 0;
    LONGLONG mftZoneEnd = 0;
    BYTE majorVersion = 0, minorVersion = 0;
    WString label;
};

// One in-use file record of the master file table, for the change journal's enumeration.
struct MftRecord {
    struct Name {
        ULONGLONG parentReference = 0;
        WString name;
    };
    ULONGLONG fileReference = 0;
    LONGLONG usn = 0;             // the record's last change in the journal; 0 when it has none
    DWORD attributes = 0;         // as EntryInfo::attributes
    std::vector<Name> names;      // every long name (hard links), in record order; 8.3 aliases left out
};

// The change journal's state, as USN_JOURNAL_DATA_V1 reports it.
struct UsnJournal {
    ULONGLONG journalId = 0;
    LONGLONG firstUsn = 0;
    LONGLONG nextUsn = 0;         // the journal stream's length: where the next change would be written
    LONGLONG lowestValidUsn = 0;
    LONGLONG maxUsn = 0;
    ULONGLONG maximumSize = 0;
    ULONGLONG allocationDelta = 0;
};

// One run of a file's data as FSCTL_GET_RETRIEVAL_POINTERS reports it.
struct Extent {
    LONGLONG nextVcn = 0;
    LONGLONG lcn = 0;             // -1 for a run with no clusters on disk (a hole)
};

// ---- Shadow copies: copy-on-write at the device.
// Told of every write to a volume's bytes before it reaches the image, so that it can first save what the
// write is about to overwrite. False fails the write, and nothing of it is written.
class WriteObserver {
public:
    virtual ~WriteObserver() = default;
    virtual bool BeforeWrite(ULONGLONG offset, ULONGLONG count) = 0;
};
// Bytes that a read-only attachment reads in place of an image file.
class ByteSource {
public:
    virtual ~ByteSource() = default;
    virtual ULONGLONG Length() const = 0;
    // Exactly count bytes at offset (within Length()), or false.
    virtual bool Read(ULONGLONG offset, void* buffer, size_t count) = 0;
};

struct VolumeState;
struct Node;

// An open file or folder. It keeps its record loaded until the last holder lets go.
class File {
public:
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    DWORD Info(EntryInfo& info);
    bool IsFolder();
    // Reads up to count bytes at offset; done is 0 at or past the end.
    DWORD Read(ULONGLONG offset, void* buffer, DWORD count, DWORD& done);
    DWORD Write(ULONGLONG offset, const void* buffer, DWORD count, DWORD& done);
    DWORD SetSize(ULONGLONG size);
    // A null time is left as it is.
    DWORD SetTimes(const FILETIME* created, const FILETIME* accessed, const FILETIME* written);
    DWORD SetAttributes(DWORD attributes);
    // Every long name as a volume-relative path, in the order the record holds them.
    DWORD LinkNames(std::vector<WString>& paths);
    // COMPRESSION_FORMAT_NONE or COMPRESSION_FORMAT_LZNT1.
    DWORD GetCompression(USHORT& format);
    // COMPRESSION_FORMAT_NONE decompresses, DEFAULT or LZNT1 compresses; the data is rewritten either way,
    // as FSCTL_SET_COMPRESSION does. A folder only changes what new files in it get.
    DWORD SetCompression(USHORT format);
    // The data runs from the run holding startingVcn on. Fails with ERROR_HANDLE_EOF when the data lives in
    // the file record, the stream is empty or startingVcn lies past its end.
    DWORD Extents(LONGLONG startingVcn, LONGLONG& firstVcn, std::vector<Extent>& extents);
    // FSCTL_GET_RETRIEVAL_POINTERS into the caller's RETRIEVAL_POINTERS_BUFFER bytes: ERROR_MORE_DATA with
    // the runs that fit when there are more.
    DWORD RetrievalPointers(LONGLONG startingVcn, void* out, DWORD outSize, DWORD& returned);
    // The self-relative security descriptor holding the parts that selection (OWNER_, GROUP_, DACL_ and
    // SACL_SECURITY_INFORMATION) asks for.
    DWORD GetSecurity(DWORD selection, std::vector<BYTE>& descriptor);
    // Replaces the parts that selection names with those of a self-relative descriptor.
    DWORD SetSecurity(DWORD selection, const void* descriptor, DWORD length);

private:
    friend class Volume;
    File(std::shared_ptr<VolumeState> state, Node* node, WString name);
    std::shared_ptr<VolumeState> state_;
    Node* node_;
    WString name_;
};

class Volume {
public:
    // Attaches the file system that lies at offset in the image, length bytes long. Fails with
    // ERROR_UNRECOGNIZED_VOLUME when the first sector is not an NTFS boot sector, ERROR_FILE_CORRUPT when
    // the image ends before offset + length or the file system's own records cannot be read.
    static DWORD Attach(const std::string& imagePath, ULONGLONG offset, ULONGLONG length, bool readOnly,
                        std::unique_ptr<Volume>& out);
    // The same on an image the caller has open (read-write unless readOnly); the engine keeps a duplicate
    // of the descriptor, so the caller may close its own at once.
    static DWORD AttachImage(int fd, ULONGLONG offset, ULONGLONG length, bool readOnly, std::unique_ptr<Volume>& out);
    // Read-only, over a source of bytes instead of an image file (a shadow copy's).
    static DWORD AttachSource(std::shared_ptr<ByteSource> source, std::unique_ptr<Volume>& out);
    // Detaches, writing everything back; files still open fail with ERROR_INVALID_HANDLE afterwards.
    ~Volume();
    DWORD Detach();

    bool ReadOnly() const;
    DWORD Facts(VolumeFacts& facts);

    DWORD Open(const WString& path, std::shared_ptr<File>& out);
    // Opens by file reference; a sequence number that is not the record's fails with
    // ERROR_INVALID_PARAMETER as a stale id does on Windows (0 accepts any).
    DWORD OpenByReference(ULONGLONG fileReference, std::shared_ptr<File>& out);
    DWORD Query(const WString& path, EntryInfo& info);
    // The entries of a folder whose names match pattern (* and ?), in the volume's name order, without
    // 8.3 aliases, "." or ".." or the file system's own files. ERROR_FILE_NOT_FOUND when none match.
    DWORD List(const WString& folder, const WString& pattern, std::vector<EntryInfo>& entries);
    // New entries; ERROR_FILE_EXISTS or ERROR_ALREADY_EXISTS when the name is taken, as CreateFileW and
    // CreateDirectoryW report it.
    DWORD CreateFile(const WString& path, DWORD attributes, std::shared_ptr<File>& out);
    DWORD CreateFolder(const WString& path);
    // Removes one name; the file goes with its last name. Fails with ERROR_SHARING_VIOLATION while open.
    DWORD DeleteFile(const WString& path);
    DWORD RemoveFolder(const WString& path);
    DWORD Move(const WString& from, const WString& to, bool replaceExisting);
    DWORD CreateHardLink(const WString& newPath, const WString& existingPath);
    // Each in-use base record from the record number startRecord on, until visit returns false.
    DWORD EnumerateRecords(ULONGLONG startRecord, const std::function<bool(const MftRecord&)>& visit);
    // The change journal ($Extend\$UsnJrnl); ERROR_JOURNAL_NOT_ACTIVE when the volume has none.
    DWORD QueryUsnJournal(UsnJournal& journal);
    // Makes the journal active, as `fsutil usn createjournal` does; an active journal is left as it is.
    DWORD CreateUsnJournal(ULONGLONG maximumSize, ULONGLONG allocationDelta);
    // The volume controls, answered into the caller's buffer with the layouts Windows gives; returned is
    // the count of bytes written.
    // FSCTL_GET_NTFS_VOLUME_DATA: NTFS_VOLUME_DATA_BUFFER, and NTFS_EXTENDED_VOLUME_DATA's head if it fits.
    DWORD NtfsVolumeData(void* out, DWORD outSize, DWORD& returned);
    // FSCTL_QUERY_USN_JOURNAL: USN_JOURNAL_DATA_V1 (V0 in a 56-byte buffer).
    DWORD UsnJournalData(void* out, DWORD outSize, DWORD& returned);
    // FSCTL_ENUM_USN_DATA: MFT_ENUM_DATA_V0 or V1 in; out, the record number to continue from and then one
    // USN_RECORD_V2 per in-use file from the start record on (first long name, its parent, the record's
    // USN within [LowUsn, HighUsn]), lengths rounded to 8. The file system's own files and the root are
    // left out. ERROR_HANDLE_EOF when no record is left.
    DWORD EnumUsnData(const void* in, DWORD inSize, void* out, DWORD outSize, DWORD& returned);
    // Volume-relative path of a file reference ("\" for the root).
    DWORD PathOfReference(ULONGLONG fileReference, WString& path);
    // Writes every record held in memory back to the image, files staying open, so that the image's bytes
    // hold a whole file system from here until the next change.
    DWORD Sync();
    // From now on each write to the image is announced to the observer first, for as long as it lives.
    void AddWriteObserver(std::weak_ptr<WriteObserver> observer);

private:
    explicit Volume(std::shared_ptr<VolumeState> state);
    // libntfs-3g's mount over the device that state describes.
    static DWORD Mount(std::shared_ptr<VolumeState> state, std::unique_ptr<Volume>& out);
    std::shared_ptr<VolumeState> state_;
};

}  // namespace vlx::ntfs
