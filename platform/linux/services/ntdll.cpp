// The native layer, ntdll.dll, built into the platform: the two entry points that the master file table
// walk reaches by name, NtCreateFile opening a file by its file id relative to an open volume, and
// NtQueryInformationFile answering FileNameInformation with the path from the volume's root.
//
// ntdll is resident from the start of the process, as on Windows: GetModuleHandleW finds it without a
// LoadLibraryW. Only what the library asks of it is here; every other open or class answers with the
// status Windows gives for a request it does not take. Native calls leave the last-error value alone.
#include <cstring>

#include "../core/internal.h"
#include "../volumes/device_object.h"

namespace vlx {

namespace {

constexpr ULONG_PTR kFileOpened = 1;  // IO_STATUS_BLOCK.Information after an open of an existing file
constexpr USHORT kFileIdBytes = sizeof(ULONGLONG);

NTSTATUS StatusFromError(DWORD error) {
    switch (error) {
        case ERROR_INVALID_PARAMETER: return STATUS_INVALID_PARAMETER;
        case ERROR_INVALID_HANDLE: return STATUS_INVALID_HANDLE;
        case ERROR_ACCESS_DENIED: return STATUS_ACCESS_DENIED;
        case ERROR_SHARING_VIOLATION: return STATUS_SHARING_VIOLATION;
        case ERROR_FILE_NOT_FOUND: return STATUS_OBJECT_NAME_NOT_FOUND;
        case ERROR_DEVICE_NOT_CONNECTED: return STATUS_DEVICE_NOT_CONNECTED;
    }
    return STATUS_UNSUCCESSFUL;
}

// Keeps the caller's last-error value across the platform calls that a native call makes.
class KeepLastError {
public:
    KeepLastError() : saved_(LastError()) {}
    ~KeepLastError() { SetLastErrorCode(saved_); }
    KeepLastError(const KeepLastError&) = delete;
    KeepLastError& operator=(const KeepLastError&) = delete;

private:
    DWORD saved_;
};

NTSTATUS Complete(PIO_STATUS_BLOCK status, NTSTATUS result, ULONG_PTR information) {
    if (status != nullptr) {
        status->Status = result;
        status->Information = information;
    }
    return result;
}

// The path of an open file from its volume's root, with the drive left out.
bool NameOfOpenFile(HANDLE file, WString& relative) {
    auto object = LookupHandleAs<OpenObject>(file);
    if (!object) return Fail(ERROR_INVALID_HANDLE, false);
    return object->VolumeRelativeName(relative);
}

}  // namespace

NTSTATUS NTAPI NtCreateFile(PHANDLE file, ACCESS_MASK access, POBJECT_ATTRIBUTES attributes, PIO_STATUS_BLOCK status,
                            PLARGE_INTEGER /*allocationSize*/, ULONG /*fileAttributes*/, ULONG share, ULONG disposition,
                            ULONG options, PVOID /*eaBuffer*/, ULONG /*eaLength*/) {
    if (file == nullptr || attributes == nullptr || status == nullptr) return STATUS_INVALID_PARAMETER;
    *file = nullptr;
    // Opens by name are not part of this layer: the library opens by file id alone.
    if ((options & FILE_OPEN_BY_FILE_ID) == 0) return Complete(status, STATUS_NOT_IMPLEMENTED, 0);
    const UNICODE_STRING* name = attributes->ObjectName;
    // An 8-byte file reference; the 16-byte ids of ReFS are not NTFS's.
    if (attributes->Length != sizeof(OBJECT_ATTRIBUTES) || name == nullptr || name->Buffer == nullptr ||
        name->Length != kFileIdBytes || disposition != FILE_OPEN)
        return Complete(status, STATUS_INVALID_PARAMETER, 0);
    if (attributes->RootDirectory == nullptr) return Complete(status, STATUS_INVALID_PARAMETER, 0);
    ULONGLONG reference = 0;
    std::memcpy(&reference, name->Buffer, sizeof reference);

    KeepLastError keep;
    const HANDLE opened = ImageOpenByIndex(attributes->RootDirectory, reference, access, share);
    if (opened == INVALID_HANDLE_VALUE) return Complete(status, StatusFromError(LastError()), 0);
    *file = opened;
    return Complete(status, STATUS_SUCCESS, kFileOpened);
}

NTSTATUS NTAPI NtQueryInformationFile(HANDLE file, PIO_STATUS_BLOCK status, PVOID information, ULONG length,
                                      FILE_INFORMATION_CLASS kind) {
    if (status == nullptr) return STATUS_INVALID_PARAMETER;
    if (kind != FileNameInformation) return Complete(status, STATUS_INVALID_INFO_CLASS, 0);
    if (information == nullptr || length < sizeof(FILE_NAME_INFORMATION)) return Complete(status, STATUS_INFO_LENGTH_MISMATCH, 0);

    KeepLastError keep;
    WString relative;
    if (!NameOfOpenFile(file, relative)) return Complete(status, StatusFromError(LastError()), 0);
    // The whole length goes into the answer; a name that does not fit is cut with STATUS_BUFFER_OVERFLOW.
    const ULONG nameBytes = static_cast<ULONG>(relative.size() * sizeof(WCHAR));
    const ULONG room = length - static_cast<ULONG>(offsetof(FILE_NAME_INFORMATION, FileName));
    const ULONG copied = nameBytes <= room ? nameBytes : room / sizeof(WCHAR) * sizeof(WCHAR);
    auto* answer = static_cast<BYTE*>(information);
    std::memcpy(answer + offsetof(FILE_NAME_INFORMATION, FileNameLength), &nameBytes, sizeof nameBytes);
    std::memcpy(answer + offsetof(FILE_NAME_INFORMATION, FileName), relative.data(), copied);
    const ULONG_PTR written = offsetof(FILE_NAME_INFORMATION, FileName) + copied;
    return Complete(status, copied == nameBytes ? STATUS_SUCCESS : STATUS_BUFFER_OVERFLOW, written);
}

namespace {

ModuleDefinition NtdllDefinition() {
    ModuleDefinition definition;
    definition.entryPoints = {
        {"NtCreateFile", EntryPoint(NtCreateFile)},
        {"NtQueryInformationFile", EntryPoint(NtQueryInformationFile)},
    };
    definition.resident = true;
    return definition;
}

const SystemModule g_ntdll(u"ntdll.dll", NtdllDefinition());

}  // namespace

}  // namespace vlx
