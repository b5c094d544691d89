// The Win32 file calls: what every volume shares (argument checks, the handle table, device names, the
// current folder), then the work handed to the kind of volume behind the path or to the object behind the
// handle.
#include <cstring>
#include <vector>

#include "../core/scoped_handle.h"
#include "../core/table.h"
#include "../services/security_descriptor.h"
#include "../services/token.h"
#include "device_object.h"
#include "host_names.h"
#include "image_table.h"

namespace vlx {

namespace {

// Whether the path names this process's current folder (an open folder on Windows).
bool IsCurrentDirectory(LPCWSTR path) {
    WString full;
    const DWORD kept = LastError();
    const bool valid = FullWin32Path(path, full);
    SetLastErrorCode(kept);
    if (!valid) return false;
    WString current = CurrentDirectory();
    for (WString* text : {&full, &current}) {
        if (text->size() > 3 && text->back() == '\\') text->pop_back();
    }
    return NamesEqualNoCase(full, current);
}

// Whether the path is in the device namespace (\\.\name).
bool IsDeviceNamespace(LPCWSTR path) {
    return path != nullptr && path[0] == '\\' && path[1] == '\\' && path[2] == '.' && path[3] == '\\';
}

// The search of a device name (NUL, COM1, ...): the one entry is handed out by FindFirstFileW.
class DeviceNameSearch : public SearchObject {
public:
    bool Next(WIN32_FIND_DATAW&) override { return Fail(ERROR_NO_MORE_FILES, false); }
};

// Copies a name into a caller's buffer of size units; false with ERROR_BAD_LENGTH when it does not fit.
bool CopyOut(const WString& text, LPWSTR buffer, DWORD size) {
    if (buffer == nullptr) return true;
    if (text.size() + 1 > size) return Fail(ERROR_BAD_LENGTH, false);
    text.copy(buffer, text.size());
    buffer[text.size()] = 0;
    return true;
}

template <class Call>
auto OnHandle(HANDLE handle, Call&& call) -> decltype(call(std::declval<OpenObject&>())) {
    auto object = LookupHandleAs<OpenObject>(handle);
    if (!object) return Fail(ERROR_INVALID_HANDLE, FALSE);
    return call(*object);
}

}  // namespace

// ---- Choosing the volume

VolumeKind& KindOfPath(LPCWSTR path) {
    // The image table knows its letters and names; every other drive letter is a host folder's.
    return OnImageVolume(path) ? ImageVolumeKind() : HostFolderKind();
}

// ---- Opening and the handle calls

HANDLE WINAPI CreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES /*security*/, DWORD disposition,
                          DWORD flags, HANDLE /*templateFile*/) {
    // Truncating is asked for with the generic write right itself, on every volume, before any lookup.
    if (disposition == TRUNCATE_EXISTING && (access & GENERIC_WRITE) == 0) return Fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
    if (auto device = OpenDevice(path, access, flags)) return *device;
    if (disposition < CREATE_NEW || disposition > TRUNCATE_EXISTING) return Fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
    // A device name that no attached disk or volume answers to names nothing.
    if (IsDeviceNamespace(path)) return Fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
    return KindOfPath(path).CreateFile(path, access, share, disposition, flags);
}

BOOL WINAPI CloseHandle(HANDLE object) {
    if (!RemoveHandleIf(object, [](KernelObject& candidate) { return !candidate.IsSearch(); }))
        return Fail(ERROR_INVALID_HANDLE, FALSE);
    return TRUE;
}

BOOL WINAPI ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED overlapped) {
    if (read != nullptr) *read = 0;
    return OnHandle(file, [&](OpenObject& object) { return object.Read(buffer, toRead, read, overlapped); });
}

BOOL WINAPI WriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written, LPOVERLAPPED overlapped) {
    if (written != nullptr) *written = 0;
    return OnHandle(file, [&](OpenObject& object) { return object.Write(buffer, toWrite, written, overlapped); });
}

BOOL WINAPI GetFileSizeEx(HANDLE file, PLARGE_INTEGER size) {
    return OnHandle(file, [&](OpenObject& object) { return object.GetSize(size); });
}

DWORD WINAPI GetFileSize(HANDLE file, LPDWORD sizeHigh) {
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file, &size)) return INVALID_FILE_SIZE;
    if (sizeHigh != nullptr) *sizeHigh = static_cast<DWORD>(static_cast<ULONGLONG>(size.QuadPart) >> 32);
    // A low part that reads as INVALID_FILE_SIZE is told apart from failure by a last error of 0.
    SetLastErrorCode(ERROR_SUCCESS);
    return static_cast<DWORD>(size.QuadPart);
}

BOOL WINAPI SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER newPosition, DWORD method) {
    return OnHandle(file, [&](OpenObject& object) { return object.SetPointer(distance, newPosition, method); });
}

BOOL WINAPI SetEndOfFile(HANDLE file) {
    return OnHandle(file, [&](OpenObject& object) { return object.SetEnd(); });
}

BOOL WINAPI GetFileTime(HANDLE file, LPFILETIME created, LPFILETIME accessed, LPFILETIME written) {
    return OnHandle(file, [&](OpenObject& object) { return object.GetTimes(created, accessed, written); });
}

const FILETIME* TimeToSet(const FILETIME* time) {
    if (time == nullptr) return nullptr;
    const bool zero = (time->dwLowDateTime | time->dwHighDateTime) == 0;
    // All ones asks Windows to stop updating the time through this handle; the host has no such switch,
    // so the time is at least not changed by the call.
    const bool allOnes = time->dwLowDateTime == ~DWORD(0) && time->dwHighDateTime == ~DWORD(0);
    return zero || allOnes ? nullptr : time;
}

BOOL WINAPI SetFileTime(HANDLE file, const FILETIME* created, const FILETIME* accessed, const FILETIME* written) {
    return OnHandle(file, [&](OpenObject& object) {
        return object.SetTimes(TimeToSet(created), TimeToSet(accessed), TimeToSet(written));
    });
}

BOOL WINAPI GetFileInformationByHandle(HANDLE file, LPBY_HANDLE_FILE_INFORMATION info) {
    return OnHandle(file, [&](OpenObject& object) { return object.GetInformation(info); });
}

BOOL WINAPI DeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize,
                            LPDWORD returned, LPOVERLAPPED /*overlapped*/) {
    if (returned != nullptr) *returned = 0;
    return OnHandle(device, [&](OpenObject& object) { return object.Control(code, in, inSize, out, outSize, returned); });
}

// ---- Calls that name a path

DWORD WINAPI GetFileAttributesW(LPCWSTR path) { return KindOfPath(path).GetAttributes(path); }

BOOL WINAPI SetFileAttributesW(LPCWSTR path, DWORD attributes) { return KindOfPath(path).SetAttributes(path, attributes); }

BOOL WINAPI DeleteFileW(LPCWSTR path) { return KindOfPath(path).DeleteFile(path); }

BOOL WINAPI CreateDirectoryW(LPCWSTR path, LPSECURITY_ATTRIBUTES /*security*/) { return KindOfPath(path).CreateFolder(path); }

BOOL WINAPI RemoveDirectoryW(LPCWSTR path) {
    // The process holds its current folder open without sharing deletion, on every volume.
    if (IsCurrentDirectory(path)) return Fail(ERROR_SHARING_VIOLATION, FALSE);
    return KindOfPath(path).RemoveFolder(path);
}

BOOL WINAPI CreateHardLinkW(LPCWSTR newName, LPCWSTR existing, LPSECURITY_ATTRIBUTES /*security*/) {
    VolumeKind& kind = KindOfPath(existing);
    // A hard link never leaves its volume, let alone its kind of volume.
    if (&KindOfPath(newName) != &kind) return Fail(ERROR_NOT_SAME_DEVICE, FALSE);
    return kind.CreateHardLink(newName, existing);
}

DWORD WINAPI GetCurrentDirectoryW(DWORD length, LPWSTR buffer) {
    const WString current = CurrentDirectory();
    if (buffer == nullptr || length < current.size() + 1) return static_cast<DWORD>(current.size() + 1);
    current.copy(buffer, current.size());
    buffer[current.size()] = 0;
    return static_cast<DWORD>(current.size());
}

BOOL WINAPI SetCurrentDirectoryW(LPCWSTR path) { return KindOfPath(path).SetCurrentFolder(path); }

DWORD WINAPI GetFullPathNameW(LPCWSTR path, DWORD length, LPWSTR buffer, LPWSTR* filePart) {
    // No path at all is answered with 0 and the last error as it was.
    if (path == nullptr || *path == 0) return 0;
    WString full;
    if (!FullWin32Path(path, full)) return 0;
    if (buffer == nullptr || length < full.size() + 1) return static_cast<DWORD>(full.size() + 1);
    full.copy(buffer, full.size());
    buffer[full.size()] = 0;
    if (filePart != nullptr) {
        const size_t slash = full.rfind('\\');
        *filePart = (slash == WString::npos || slash + 1 == full.size()) ? nullptr : buffer + slash + 1;
    }
    return static_cast<DWORD>(full.size());
}

BOOL WINAPI PathFileExistsW(LPCWSTR path) {
    if (path == nullptr) return FALSE;
    return GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES;
}

BOOL WINAPI PathIsDirectoryW(LPCWSTR path) {
    if (path == nullptr) return FALSE;
    const DWORD attributes = GetFileAttributesW(path);
    if (attributes == INVALID_FILE_ATTRIBUTES) return FALSE;
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? FILE_ATTRIBUTE_DIRECTORY : FALSE;
}

BOOL WINAPI GetVolumeInformationW(LPCWSTR root, LPWSTR volumeName, DWORD volumeNameSize, LPDWORD serial,
                                  LPDWORD maxComponentLength, LPDWORD flags, LPWSTR fileSystemName,
                                  DWORD fileSystemNameSize) {
    if (root == nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    const WString text = root;
    // Only a volume's root, written with its backslash, names a volume.
    if (text.empty() || text.back() != '\\') return Fail(ERROR_DIR_NOT_ROOT, FALSE);
    VolumeFacts facts;
    if (!KindOfPath(root).Facts(root, facts)) return FALSE;
    if (!CopyOut(facts.label, volumeName, volumeNameSize) || !CopyOut(facts.fileSystem, fileSystemName, fileSystemNameSize))
        return FALSE;
    if (serial != nullptr) *serial = facts.serial;
    if (maxComponentLength != nullptr) *maxComponentLength = facts.maxComponentLength;
    if (flags != nullptr) *flags = facts.flags;
    SetLastErrorCode(ERROR_SUCCESS);
    return TRUE;
}

// ---- Searches

HANDLE WINAPI FindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
    // A device name is found wherever it is looked for, as one entry that stands for the device, on
    // every volume and whether or not the folder exists.
    const WString device = ReservedDeviceOf(LastNameOf(pattern));
    if (!device.empty() && data != nullptr) {
        std::memset(data, 0, sizeof *data);
        data->dwFileAttributes = FILE_ATTRIBUTE_ARCHIVE;
        WStrCopy(data->cFileName, MAX_PATH, device.c_str());
        HANDLE handle = InsertHandle(std::make_shared<DeviceNameSearch>());
        SetLastErrorCode(ERROR_SUCCESS);
        return handle;
    }
    if (data == nullptr) return Fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
    return KindOfPath(pattern).FindFirst(pattern, data);
}

BOOL WINAPI FindNextFileW(HANDLE handle, LPWIN32_FIND_DATAW data) {
    auto search = LookupHandleAs<SearchObject>(handle);
    if (!search) return Fail(ERROR_INVALID_HANDLE, FALSE);
    if (data == nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    return search->Next(*data) ? TRUE : FALSE;
}

BOOL WINAPI FindClose(HANDLE handle) {
    if (!RemoveHandleIf(handle, [](KernelObject& object) { return object.IsSearch(); })) return Fail(ERROR_INVALID_HANDLE, FALSE);
    return TRUE;
}

bool LinkNameSearch::Next(LPDWORD length, PWSTR buffer) {
    std::lock_guard guard(lock_);
    if (next_ >= names_.size()) return Fail(ERROR_HANDLE_EOF, false);
    const WString& name = names_[next_];
    const DWORD needed = static_cast<DWORD>(name.size() + 1);
    const bool fits = buffer != nullptr && *length >= needed;
    *length = needed;
    if (!fits) return Fail(ERROR_MORE_DATA, false);
    name.copy(buffer, name.size());
    buffer[name.size()] = 0;
    ++next_;
    return true;
}

HANDLE StartLinkNameSearch(std::vector<WString> names, LPDWORD length, PWSTR buffer) {
    auto search = std::make_shared<LinkNameSearch>(std::move(names));
    if (!search->Next(length, buffer)) return INVALID_HANDLE_VALUE;
    return InsertHandle(std::move(search));
}

HANDLE WINAPI FindFirstFileNameW(LPCWSTR path, DWORD flags, LPDWORD length, PWSTR name) {
    if (flags != 0 || length == nullptr) return Fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
    return KindOfPath(path).FindFirstLinkName(path, length, name);
}

BOOL WINAPI FindNextFileNameW(HANDLE handle, LPDWORD length, PWSTR name) {
    auto search = LookupHandleAs<LinkNameSearch>(handle);
    if (!search) return Fail(ERROR_INVALID_HANDLE, FALSE);
    if (length == nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    return search->Next(length, name) ? TRUE : FALSE;
}

// ---- Copies

HANDLE OpenCopySource(LPCWSTR existing) {
    HANDLE source = CreateFileW(existing, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    if (source != INVALID_HANDLE_VALUE || LastError() != ERROR_SHARING_VIOLATION) return source;
    return CreateFileW(existing, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                       FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
}

BOOL CopyThroughHandles(LPCWSTR existing, LPCWSTR newName, LPPROGRESS_ROUTINE progress, LPVOID data, LPBOOL cancel,
                        DWORD flags) {
    auto cancelled = [&] { return cancel != nullptr && *cancel != FALSE; };
    if (cancelled()) return Fail(ERROR_REQUEST_ABORTED, FALSE);
    ScopedHandle source(OpenCopySource(existing));
    if (!source) return FALSE;
    BY_HANDLE_FILE_INFORMATION info{};
    if (!GetFileInformationByHandle(source.get(), &info)) return FALSE;
    const DWORD carried = info.dwFileAttributes & (FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
    ScopedHandle target(CreateFileW(newName, GENERIC_WRITE, kCopyTargetShare, nullptr,
                                    (flags & COPY_FILE_FAIL_IF_EXISTS) ? CREATE_NEW : CREATE_ALWAYS, carried, nullptr));
    if (!target) return FALSE;
    auto abandon = [&](DWORD error) {
        target.reset();
        DeleteFileW(newName);
        return Fail(error, FALSE);
    };
    LARGE_INTEGER total{}, done{};
    total.QuadPart = static_cast<LONGLONG>((static_cast<ULONGLONG>(info.nFileSizeHigh) << 32) | info.nFileSizeLow);
    bool quiet = progress == nullptr;
    auto report = [&](DWORD reason) {
        if (quiet) return true;
        const DWORD answer = progress(total, done, total, done, 1, reason, source.get(), target.get(), data);
        if (answer == PROGRESS_QUIET) quiet = true;
        return answer != PROGRESS_CANCEL && answer != PROGRESS_STOP;
    };
    if (!report(CALLBACK_STREAM_SWITCH)) return abandon(ERROR_REQUEST_ABORTED);
    std::vector<char> buffer(1 << 20);
    for (;;) {
        if (cancelled()) return abandon(ERROR_REQUEST_ABORTED);
        DWORD read = 0, written = 0;
        if (!ReadFile(source.get(), buffer.data(), static_cast<DWORD>(buffer.size()), &read, nullptr)) return abandon(LastError());
        if (read == 0) break;
        if (!WriteFile(target.get(), buffer.data(), read, &written, nullptr)) return abandon(LastError());
        done.QuadPart += read;
        if (!report(CALLBACK_CHUNK_FINISHED)) return abandon(ERROR_REQUEST_ABORTED);
    }
    SetFileTime(target.get(), nullptr, nullptr, &info.ftLastWriteTime);
    target.reset();
    source.reset();
    const DWORD wanted = info.dwFileAttributes & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM |
                                                  FILE_ATTRIBUTE_ARCHIVE);
    if (!SetFileAttributesW(newName, wanted == 0 ? FILE_ATTRIBUTE_NORMAL : wanted)) return FALSE;
    SetLastErrorCode(ERROR_SUCCESS);
    return TRUE;
}

BOOL WINAPI CopyFileExW(LPCWSTR existing, LPCWSTR newName, LPPROGRESS_ROUTINE progress, LPVOID data, LPBOOL cancel,
                        DWORD flags) {
    if (existing == nullptr || newName == nullptr) return Fail(ERROR_PATH_NOT_FOUND, FALSE);
    VolumeKind& from = KindOfPath(existing);
    if (&KindOfPath(newName) != &from) return CopyThroughHandles(existing, newName, progress, data, cancel, flags);
    return from.CopyFile(existing, newName, progress, data, cancel, flags);
}

BOOL WINAPI CopyFileW(LPCWSTR existing, LPCWSTR newName, BOOL failIfExists) {
    return CopyFileExW(existing, newName, nullptr, nullptr, nullptr, failIfExists ? COPY_FILE_FAIL_IF_EXISTS : 0);
}

// ---- Security

BOOL WINAPI GetFileSecurityW(LPCWSTR path, SECURITY_INFORMATION requested, PSECURITY_DESCRIPTOR descriptor, DWORD length,
                             LPDWORD needed) {
    if (path == nullptr || needed == nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    if ((requested & SACL_SECURITY_INFORMATION) && !PrivilegeEnabled(SE_SECURITY_NAME))
        return Fail(ERROR_PRIVILEGE_NOT_HELD, FALSE);
    std::vector<BYTE> block;
    if (!KindOfPath(path).GetSecurity(path, requested, block)) return FALSE;
    *needed = static_cast<DWORD>(block.size());
    if (descriptor == nullptr || length < block.size()) return Fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
    std::memcpy(descriptor, block.data(), block.size());
    return TRUE;
}

BOOL WINAPI SetFileSecurityW(LPCWSTR path, SECURITY_INFORMATION parts, PSECURITY_DESCRIPTOR descriptor) {
    if (path == nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    if ((parts & SACL_SECURITY_INFORMATION) && !PrivilegeEnabled(SE_SECURITY_NAME)) return Fail(ERROR_PRIVILEGE_NOT_HELD, FALSE);
    Descriptor parsed;
    if (!ParseDescriptor(descriptor, parsed)) return Fail(ERROR_INVALID_SECURITY_DESCR, FALSE);
    return KindOfPath(path).SetSecurity(path, parts, parsed) ? TRUE : FALSE;
}

}  // namespace vlx
