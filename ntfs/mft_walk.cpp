// The master file table walk: the volume gates, the change journal's enumeration of every in-use record in
// 4096-byte batches, and the path of a record by opening it by file reference relative to the volume.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "ntfs_internal.h"

namespace {

constexpr DWORD kVolumeAccess = GENERIC_READ | GENERIC_WRITE;
constexpr DWORD kVolumeShare = FILE_SHARE_READ | FILE_SHARE_WRITE;
constexpr size_t kVolumePathUnits = MAX_PATH;

// Answers of the volume gates: NTFS_VOLUME_DATA_BUFFER and USN_JOURNAL_DATA_V1.
constexpr DWORD kVolumeDataBytes = 96;
constexpr DWORD kJournalDataBytes = 64;
constexpr size_t kNextUsnOffset = 16;

// MFT_ENUM_DATA_V1: start reference, low and high USN, then the range of record versions asked for.
constexpr DWORD kEnumRequestBytes = 32;
constexpr size_t kStartReferenceOffset = 0;
constexpr size_t kLowUsnOffset = 8;
constexpr size_t kHighUsnOffset = 16;
constexpr size_t kMinMajorVersionOffset = 24;
constexpr size_t kMaxMajorVersionOffset = 26;
constexpr WORD kMaxMajorVersion = 2;

// A batch: the reference to start the next batch from, then USN_RECORD_V2 records back to back.
constexpr DWORD kBatchBytes = 4096;
constexpr DWORD kNextStartBytes = sizeof(ULONGLONG);
constexpr size_t kRecordLengthOffset = 0;
constexpr size_t kFileReferenceOffset = 8;
constexpr DWORD kRecordHeadBytes = kFileReferenceOffset + sizeof(ULONGLONG);

// The name answer: FILE_NAME_INFORMATION, its length in bytes and then the name without terminator.
constexpr ULONG kNameAnswerBytes = 4096;
constexpr size_t kNameLengthOffset = 0;
constexpr size_t kNameOffset = sizeof(ULONG);

constexpr ACCESS_MASK kLookupAccess = FILE_GENERIC_READ;
constexpr ULONG kLookupShare = FILE_SHARE_READ | FILE_SHARE_WRITE;
constexpr ULONG kLookupOptions = FILE_OPEN_BY_FILE_ID | FILE_OPEN_FOR_BACKUP_INTENT;
constexpr USHORT kFileIdBytes = sizeof(ULONGLONG);

// The two library-wide entry points; written before every walk, never cleared.
NtCreateFileFunction g_NtCreateFile = nullptr;
NtQueryInformationFileFunction g_NtQueryInformationFile = nullptr;

template <class T>
T ReadAt(const BYTE* buffer, size_t offset) {
    T value;
    std::memcpy(&value, buffer + offset, sizeof value);
    return value;
}

template <class T>
void WriteAt(BYTE* buffer, size_t offset, T value) {
    std::memcpy(buffer + offset, &value, sizeof value);
}

struct FreeBlock {
    void operator()(BYTE* block) const { std::free(block); }
};

}  // namespace

void BindNtFileFunctions() {
    const HMODULE ntdll = sys().GetModuleHandleW(_T("ntdll.dll"));
    g_NtCreateFile = reinterpret_cast<NtCreateFileFunction>(
        reinterpret_cast<void (*)()>(sys().GetProcAddress(ntdll, "NtCreateFile")));
    g_NtQueryInformationFile = reinterpret_cast<NtQueryInformationFileFunction>(
        reinterpret_cast<void (*)()>(sys().GetProcAddress(ntdll, "NtQueryInformationFile")));
}

bool OpenJournalVolume(WCHAR letter, JournalVolume& out) {
    WCHAR path[kVolumePathUnits];
    if (WStrFormatBuffer(path, kVolumePathUnits, _T("\\\\.\\%c:"), letter) < 0) return false;
    UniqueHandle volume(sys().CreateFileW(path, kVolumeAccess, kVolumeShare, nullptr, OPEN_EXISTING, 0, nullptr));
    if (!volume) return false;
    DWORD returned = 0;
    // Only NTFS answers this; its contents are not needed.
    BYTE volumeData[kVolumeDataBytes];
    std::memset(volumeData, 0, sizeof volumeData);
    if (!sys().DeviceIoControl(volume.get(), FSCTL_GET_NTFS_VOLUME_DATA, nullptr, 0, volumeData, sizeof volumeData,
                               &returned, nullptr))
        return false;
    alignas(8) BYTE journal[kJournalDataBytes];
    std::memset(journal, 0, sizeof journal);
    if (!sys().DeviceIoControl(volume.get(), FSCTL_QUERY_USN_JOURNAL, nullptr, 0, journal, sizeof journal, &returned,
                               nullptr))
        return false;
    out.nextUsn = ReadAt<LONGLONG>(journal, kNextUsnOffset);
    out.volume = std::move(volume);
    return true;
}

// A batch is trusted only as far as it is well formed: the walk ends at a record shorter than its own
// head, at one that runs past the bytes returned, and at a next start that does not move forward, since
// each of these would otherwise read past the batch or ask for the same batch for ever. Records before
// the fault have already been handed on.
void EnumerateMftRecords(HANDLE volume, LONGLONG nextUsn, const std::function<void(ULONGLONG reference)>& visit) {
    alignas(8) BYTE request[kEnumRequestBytes];
    std::memset(request, 0, sizeof request);
    WriteAt<ULONGLONG>(request, kStartReferenceOffset, 0);
    WriteAt<LONGLONG>(request, kLowUsnOffset, 0);
    WriteAt<LONGLONG>(request, kHighUsnOffset, nextUsn);
    WriteAt<WORD>(request, kMinMajorVersionOffset, 0);
    WriteAt<WORD>(request, kMaxMajorVersionOffset, kMaxMajorVersion);
    std::vector<BYTE> batch(kBatchBytes);
    for (;;) {
        std::memset(batch.data(), 0, sizeof(DWORD));
        DWORD returned = 0;
        // The platform reports the end of the table by failing, like any other failure.
        if (!sys().DeviceIoControl(volume, FSCTL_ENUM_USN_DATA, request, sizeof request, batch.data(), kBatchBytes,
                                   &returned, nullptr))
            return;
        if (returned <= kNextStartBytes || returned > kBatchBytes) return;
        DWORD offset = kNextStartBytes;
        DWORD remaining = returned - kNextStartBytes;
        while (remaining > 0) {
            const DWORD length = remaining >= sizeof(DWORD) ? ReadAt<DWORD>(batch.data(), offset + kRecordLengthOffset) : 0;
            if (length < kRecordHeadBytes || length > remaining) return;
            visit(ReadAt<ULONGLONG>(batch.data(), offset + kFileReferenceOffset));
            offset += length;
            remaining -= length;
        }
        const ULONGLONG start = ReadAt<ULONGLONG>(request, kStartReferenceOffset);
        const ULONGLONG next = ReadAt<ULONGLONG>(batch.data(), 0);
        if (next <= start) return;
        WriteAt<ULONGLONG>(request, kStartReferenceOffset, next);
    }
}

int LookupPathByReference(HANDLE volume, ULONGLONG reference, LPWSTR buffer, DWORD bufferBytes) {
    // Without ntdll's entry points no file can be opened by reference.
    if (g_NtCreateFile == nullptr || g_NtQueryInformationFile == nullptr) return 0;
    UNICODE_STRING fileId;
    fileId.Length = kFileIdBytes;
    fileId.MaximumLength = kFileIdBytes;
    fileId.Buffer = reinterpret_cast<PWSTR>(&reference);
    OBJECT_ATTRIBUTES attributes;
    std::memset(&attributes, 0, sizeof attributes);
    attributes.Length = sizeof attributes;
    attributes.RootDirectory = volume;
    attributes.ObjectName = &fileId;
    attributes.Attributes = OBJ_CASE_INSENSITIVE;
    attributes.SecurityDescriptor = nullptr;
    attributes.SecurityQualityOfService = nullptr;
    IO_STATUS_BLOCK status;
    std::memset(&status, 0, sizeof status);
    HANDLE opened = nullptr;
    if (g_NtCreateFile(&opened, kLookupAccess, &attributes, &status, nullptr, FILE_ATTRIBUTE_READONLY, kLookupShare,
                       FILE_OPEN, kLookupOptions, nullptr, 0) != STATUS_SUCCESS)
        return 0;
    UniqueHandle file(opened);

    std::unique_ptr<BYTE, FreeBlock> answer(static_cast<BYTE*>(std::malloc(kNameAnswerBytes)));
    if (!answer) return 0;
    std::memset(answer.get(), 0, kNameAnswerBytes);
    if (g_NtQueryInformationFile(file.get(), &status, answer.get(), kNameAnswerBytes,
                                 static_cast<FILE_INFORMATION_CLASS>(FileNameInformation)) != STATUS_SUCCESS)
        return 0;
    const ULONG nameBytes = ReadAt<ULONG>(answer.get(), kNameLengthOffset);
    // The name must lie inside the answer and fit the caller's buffer with a terminating NUL unit; a name
    // that does not fit is not cut, since a cut path would name another entry.
    if (nameBytes > kNameAnswerBytes - kNameOffset || bufferBytes < sizeof(WCHAR) || nameBytes > bufferBytes - sizeof(WCHAR))
        return 0;
    std::memset(buffer, 0, bufferBytes);
    std::memcpy(buffer, answer.get() + kNameOffset, nameBytes);
    // The answer buffer is released, then the file handle is closed.
    answer.reset();
    file.reset();
    return 1;
}

CString MakeFullPath(WCHAR letter, LPCWSTR relative) {
    return CString(WStrFormat(_T("%c:%s"), letter, relative).c_str());
}
