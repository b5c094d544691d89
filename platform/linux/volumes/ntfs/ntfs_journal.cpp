// The change journal of an NTFS volume: its state read from $Extend\$UsnJrnl, and a new journal made
// where the volume has none, laid out as Windows lays it out ($Max for the parameters, $J for the entries).
// The engine writes no journal entries, so $J stays empty and resident; libntfs-3g cannot mark a resident
// stream sparse, and Windows makes it sparse itself when it first grows.
#include "ntfs3g.h"

#include <cerrno>
#include <cstring>

#include "ntfs_internal.h"

namespace vlx::ntfs {

namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

const WString kJournalName = u"$UsnJrnl";
const WString kMaxStream = u"$Max";
const WString kEntriesStream = u"$J";
// The highest USN a journal may reach, as Windows reports it.
constexpr LONGLONG kMaxUsn = 0x7FFFFFFFFFFF0000LL;

// $Max: maximum size, allocation delta, journal id, lowest valid USN, 8 bytes each.
struct JournalParameters {
    le64 maximumSize;
    le64 allocationDelta;
    le64 journalId;
    le64 lowestValidUsn;
};

ntfschar* Units(const WString& text) { return reinterpret_cast<ntfschar*>(const_cast<WCHAR*>(text.data())); }

DWORD FindJournal(VolumeState& state, NodeRef& journal) {
    NodeRef extend;
    if (DWORD error = AcquireNode(state, FILE_Extend, extend)) return error;
    const u64 reference = ntfs_inode_lookup_by_name(extend.ni(), Units(kJournalName), static_cast<int>(kJournalName.size()));
    if (reference == static_cast<u64>(-1)) return errno == ENOENT ? ERROR_JOURNAL_NOT_ACTIVE : ErrorFromErrno(errno);
    return AcquireNode(state, reference, journal);
}

// Opens a named stream of the journal, closed on scope exit.
class Stream {
public:
    Stream(ntfs_inode* ni, const WString& name)
        : attr_(ntfs_attr_open(ni, AT_DATA, Units(name), static_cast<u32>(name.size()))) {}
    ~Stream() {
        if (attr_) ntfs_attr_close(attr_);
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    ntfs_attr* get() const { return attr_; }

private:
    ntfs_attr* attr_;
};

}  // namespace

DWORD Volume::QueryUsnJournal(UsnJournal& journal) {
    Lock lock(EngineLock());
    VolumeState& state = *state_;
    if (!state.vol) return ERROR_INVALID_HANDLE;
    NodeRef node;
    if (DWORD error = FindJournal(state, node)) return error;
    Stream max(node.ni(), kMaxStream), entries(node.ni(), kEntriesStream);
    if (!max.get() || !entries.get()) return ERROR_JOURNAL_NOT_ACTIVE;  // a journal half made or half deleted
    JournalParameters parameters{};
    if (ntfs_attr_pread(max.get(), 0, sizeof(parameters), &parameters) != static_cast<s64>(sizeof(parameters))) {
        return ERROR_FILE_CORRUPT;
    }
    journal.journalId = le64_to_cpu(parameters.journalId);
    journal.lowestValidUsn = static_cast<LONGLONG>(le64_to_cpu(parameters.lowestValidUsn));
    journal.firstUsn = journal.lowestValidUsn;
    journal.nextUsn = entries.get()->data_size;
    journal.maxUsn = kMaxUsn;
    journal.maximumSize = le64_to_cpu(parameters.maximumSize);
    journal.allocationDelta = le64_to_cpu(parameters.allocationDelta);
    return ERROR_SUCCESS;
}

DWORD Volume::CreateUsnJournal(ULONGLONG maximumSize, ULONGLONG allocationDelta) {
    Lock lock(EngineLock());
    VolumeState& state = *state_;
    if (!state.vol) return ERROR_INVALID_HANDLE;
    if (state.readOnly) return ERROR_WRITE_PROTECT;
    NodeRef existing;
    const DWORD found = FindJournal(state, existing);
    if (found != ERROR_JOURNAL_NOT_ACTIVE) return found;
    NodeRef extend;
    if (DWORD error = AcquireNode(state, FILE_Extend, extend)) return error;
    ntfs_inode* ni = ntfs_create(extend.ni(), const_cpu_to_le32(0), Units(kJournalName),
                                 static_cast<u8>(kJournalName.size()), S_IFREG);
    ForgetNames(state, FILE_Extend);
    if (!ni) return ErrorFromErrno(errno);
    // The journal has only its two named streams; its id is the time it was made, as Windows makes it.
    const JournalParameters parameters{cpu_to_le64(maximumSize), cpu_to_le64(allocationDelta),
                                       cpu_to_le64(static_cast<u64>(sle64_to_cpu(ntfs_current_time()))), 0};
    DWORD result = ERROR_SUCCESS;
    if (ntfs_attr_remove(ni, AT_DATA, AT_UNNAMED, 0) != 0 ||
        ntfs_attr_add(ni, AT_DATA, Units(kMaxStream), static_cast<u8>(kMaxStream.size()),
                      reinterpret_cast<const u8*>(&parameters), sizeof(parameters)) != 0 ||
        ntfs_attr_add(ni, AT_DATA, Units(kEntriesStream), static_cast<u8>(kEntriesStream.size()), nullptr, 0) != 0) {
        result = ErrorFromErrno(errno);
    }
    ni->flags = FlagsOf(FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE);
    NInoSetDirty(ni);
    if (ntfs_inode_close(ni) != 0 && result == ERROR_SUCCESS) result = ErrorFromErrno(errno);
    return result;
}

}  // namespace vlx::ntfs
