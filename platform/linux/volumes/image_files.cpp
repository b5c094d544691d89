// The Win32 file calls on image volumes and devices: each call finds the volume behind its path or handle
// and hands the work to that volume's engine, under the engine's lock; share modes are kept between the
// process's handles as on host folders.
#include <algorithm>
#include <cstring>

#include "../core/scoped_handle.h"
#include "../core/table.h"
#include "device_object.h"
#include "image_calls.h"

namespace vlx {

namespace {

class ImageNameFindObject : public KernelObject {
public:
    bool IsSearch() const override { return true; }
    std::mutex lock;
    std::vector<WString> names;
    size_t next = 0;
};

// As FindFirstFileNameW hands a name out: the length goes in as the buffer's size and comes out as the
// name's size with its terminator, with ERROR_MORE_DATA when it does not fit.
bool GiveLinkName(const WString& name, LPDWORD length, PWSTR buffer) {
    const DWORD needed = static_cast<DWORD>(name.size() + 1);
    const bool fits = buffer != nullptr && *length >= needed;
    if (fits) {
        name.copy(buffer, name.size());
        buffer[name.size()] = 0;
    }
    *length = needed;
    return fits ? true : Fail(ERROR_MORE_DATA, false);
}

class ImageFindObject : public KernelObject {
public:
    bool IsSearch() const override { return true; }
    std::mutex lock;
    std::vector<WIN32_FIND_DATAW> entries;
    size_t next = 0;
};

// Opens on different volumes never share a file, so each volume is a device of its own for the share
// registry, and the engine's file index is the inode.
dev_t ShareDevice(const ImageVolume& volume) { return static_cast<dev_t>(reinterpret_cast<uintptr_t>(&volume)); }

// The volume and the path below it, or an answer for the caller when the path cannot be used.
struct Target {
    ImagePath path;
    bool usable = false;
};
Target Reach(LPCWSTR text) {
    Target target;
    target.path = ResolveImagePath(text);
    if (!target.path.volume || !target.path.valid) return target;
    if (target.path.hasWildcard) return Fail(ERROR_INVALID_NAME, target);
    if (target.path.volume->detached) return Fail(ERROR_DEVICE_NOT_CONNECTED, target);
    if (!target.path.volume->engine) return Fail(ERROR_UNRECOGNIZED_VOLUME, target);
    target.usable = true;
    return target;
}

ULONGLONG OffsetOf(ImageFileObject& object, LPOVERLAPPED overlapped) {
    if (overlapped == nullptr) return object.position;
    return (static_cast<ULONGLONG>(overlapped->u.s.OffsetHigh) << 32) | overlapped->u.s.Offset;
}

void FillFindData(const VolumeEntry& entry, const WString& name, WIN32_FIND_DATAW& data) {
    std::memset(&data, 0, sizeof data);
    data.dwFileAttributes = entry.attributes;
    data.ftCreationTime = entry.created;
    data.ftLastAccessTime = entry.accessed;
    data.ftLastWriteTime = entry.written;
    data.nFileSizeHigh = static_cast<DWORD>(entry.size >> 32);
    data.nFileSizeLow = static_cast<DWORD>(entry.size);
    const size_t length = std::min<size_t>(name.size(), MAX_PATH - 1);
    name.copy(data.cFileName, length);
    data.cFileName[length] = 0;
}

// Runs one engine call on a handle's file under the engine's lock; ERROR_DEVICE_NOT_CONNECTED once the
// disk is detached.
template <class Body>
BOOL OnFile(ImageFileObject& object, Body&& body) {
    std::lock_guard lock(object.volume->engineLock);
    if (object.volume->detached) return Fail(ERROR_DEVICE_NOT_CONNECTED, FALSE);
    return body(*object.file) ? TRUE : FALSE;
}

template <class Body>
std::optional<BOOL> OnPath(LPCWSTR path, Body&& body) {
    Target target = Reach(path);
    if (!target.path.volume) return std::nullopt;
    if (!target.usable) return FALSE;
    std::lock_guard lock(target.path.volume->engineLock);
    return body(*target.path.volume->engine, target.path.components) ? TRUE : FALSE;
}

// Takes part in the share modes and enters the handle table, for an open file whose entry is status.
HANDLE InsertOpenFile(std::shared_ptr<ImageFileObject> object, const VolumeEntry& status, DWORD share) {
    object->isFolder = (status.attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    object->record.device = ShareDevice(*object->volume);
    object->record.inode = static_cast<ino_t>(status.fileIndex);
    object->record.access = object->access;
    object->record.share = share;
    // A file inside an image has no host descriptor of its own to lock: it shares within this process.
    if (!RegisterOpen(&object->record, -1)) return INVALID_HANDLE_VALUE;
    object->registered = true;
    HANDLE handle = InsertHandle(std::move(object));
    SetLastErrorCode(ERROR_SUCCESS);
    return handle;
}

}  // namespace

ImageFileObject::~ImageFileObject() {
    if (registered) UnregisterOpen(&record);
    if (file) {
        std::lock_guard guard(volume->engineLock);
        file.reset();
    }
}

std::optional<HANDLE> ImageCreateFile(LPCWSTR path, DWORD access, DWORD share, DWORD disposition, DWORD flags) {
    if (auto device = OpenDevice(path, access, flags)) return device;
    Target target = Reach(path);
    if (!target.path.volume) return std::nullopt;
    if (!target.usable) return INVALID_HANDLE_VALUE;
    if (disposition < CREATE_NEW || disposition > TRUNCATE_EXISTING) return Fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
    auto object = std::make_shared<ImageFileObject>();
    object->volume = target.path.volume;
    object->access = ExpandAccess(access);
    VolumeEntry status;
    {
        std::lock_guard lock(object->volume->engineLock);
        object->file = object->volume->engine->Open(target.path.components, object->access, share, disposition, flags);
        if (!object->file) return INVALID_HANDLE_VALUE;
        if (!object->file->Stat(status)) return INVALID_HANDLE_VALUE;
    }
    return InsertOpenFile(std::move(object), status, share);
}

std::optional<BOOL> ImageReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED overlapped) {
    if (auto device = LookupHandleAs<DeviceObject>(file)) {
        if (read != nullptr) *read = 0;
        return ReadDevice(*device, buffer, toRead, read, overlapped);
    }
    auto object = LookupHandleAs<ImageFileObject>(file);
    if (!object) return std::nullopt;
    if (read != nullptr) *read = 0;
    if (object->isFolder) return Fail(ERROR_INVALID_FUNCTION, FALSE);
    if ((object->access & FILE_READ_DATA) == 0) return Fail(ERROR_ACCESS_DENIED, FALSE);
    if (buffer == nullptr && toRead > 0) return Fail(ERROR_NOACCESS, FALSE);
    std::lock_guard lock(object->lock);
    const ULONGLONG offset = OffsetOf(*object, overlapped);
    DWORD done = 0;
    if (!OnFile(*object, [&](VolumeFile& handle) { return handle.Read(offset, buffer, toRead, done); })) return FALSE;
    object->position = offset + done;
    if (read != nullptr) *read = done;
    if (done == 0 && overlapped != nullptr && toRead > 0) return Fail(ERROR_HANDLE_EOF, FALSE);
    return TRUE;  // success leaves the last error as it was
}

std::optional<BOOL> ImageWriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written, LPOVERLAPPED overlapped) {
    if (LookupHandleAs<DeviceObject>(file)) {
        if (written != nullptr) *written = 0;
        // Raw writes would go behind the file system's back; the devices here are read-only.
        return Fail(ERROR_WRITE_PROTECT, FALSE);
    }
    auto object = LookupHandleAs<ImageFileObject>(file);
    if (!object) return std::nullopt;
    if (written != nullptr) *written = 0;
    if (object->isFolder) return Fail(ERROR_INVALID_FUNCTION, FALSE);
    if ((object->access & (FILE_WRITE_DATA | FILE_APPEND_DATA)) == 0) return Fail(ERROR_ACCESS_DENIED, FALSE);
    if (buffer == nullptr && toWrite > 0) return Fail(ERROR_INVALID_USER_BUFFER, FALSE);
    std::lock_guard lock(object->lock);
    const ULONGLONG offset = OffsetOf(*object, overlapped);
    DWORD done = 0;
    if (!OnFile(*object, [&](VolumeFile& handle) { return handle.Write(offset, buffer, toWrite, done); })) return FALSE;
    object->position = offset + done;
    if (written != nullptr) *written = done;
    return TRUE;
}

std::optional<BOOL> ImageGetFileSizeEx(HANDLE file, PLARGE_INTEGER size) {
    if (LookupHandleAs<DeviceObject>(file)) return Fail(ERROR_INVALID_FUNCTION, FALSE);
    auto object = LookupHandleAs<ImageFileObject>(file);
    if (!object) return std::nullopt;
    VolumeEntry status;
    if (!OnFile(*object, [&](VolumeFile& handle) { return handle.Stat(status); })) return FALSE;
    size->QuadPart = static_cast<LONGLONG>(status.size);
    return TRUE;
}

std::optional<BOOL> ImageSetFilePointerEx(HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER newPosition, DWORD method) {
    ULONGLONG* position = nullptr;
    std::mutex* positionLock = nullptr;
    ULONGLONG end = 0;
    if (auto device = LookupHandleAs<DeviceObject>(file)) {
        position = &device->position;
        positionLock = &device->lock;
        end = device->Length();
    } else if (auto object = LookupHandleAs<ImageFileObject>(file)) {
        VolumeEntry status;
        if (!OnFile(*object, [&](VolumeFile& handle) { return handle.Stat(status); })) return FALSE;
        position = &object->position;
        positionLock = &object->lock;
        end = status.size;
    } else {
        return std::nullopt;
    }
    std::lock_guard lock(*positionLock);
    const LONGLONG base = method == FILE_BEGIN ? 0 : method == FILE_CURRENT ? static_cast<LONGLONG>(*position)
                                                 : method == FILE_END       ? static_cast<LONGLONG>(end)
                                                                            : -1;
    if (method != FILE_BEGIN && method != FILE_CURRENT && method != FILE_END) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    const LONGLONG target = base + distance.QuadPart;
    if (target < 0) return Fail(ERROR_NEGATIVE_SEEK, FALSE);
    *position = static_cast<ULONGLONG>(target);
    if (newPosition != nullptr) newPosition->QuadPart = target;
    return TRUE;
}

std::optional<BOOL> ImageSetEndOfFile(HANDLE file) {
    auto object = LookupHandleAs<ImageFileObject>(file);
    if (!object) return std::nullopt;
    if ((object->access & FILE_WRITE_DATA) == 0) return Fail(ERROR_ACCESS_DENIED, FALSE);
    std::lock_guard lock(object->lock);
    return OnFile(*object, [&](VolumeFile& handle) { return handle.SetSize(object->position); });
}

std::optional<BOOL> ImageGetFileTime(HANDLE file, LPFILETIME created, LPFILETIME accessed, LPFILETIME written) {
    auto object = LookupHandleAs<ImageFileObject>(file);
    if (!object) return std::nullopt;
    VolumeEntry status;
    if (!OnFile(*object, [&](VolumeFile& handle) { return handle.Stat(status); })) return FALSE;
    if (created != nullptr) *created = status.created;
    if (accessed != nullptr) *accessed = status.accessed;
    if (written != nullptr) *written = status.written;
    return TRUE;
}

std::optional<BOOL> ImageSetFileTime(HANDLE file, const FILETIME* created, const FILETIME* accessed, const FILETIME* written) {
    auto object = LookupHandleAs<ImageFileObject>(file);
    if (!object) return std::nullopt;
    if ((object->access & FILE_WRITE_ATTRIBUTES) == 0) return Fail(ERROR_ACCESS_DENIED, FALSE);
    return OnFile(*object, [&](VolumeFile& handle) { return handle.SetTimes(TimeToSet(created), TimeToSet(accessed), TimeToSet(written)); });
}

std::optional<BOOL> ImageGetFileInformationByHandle(HANDLE file, LPBY_HANDLE_FILE_INFORMATION info) {
    auto object = LookupHandleAs<ImageFileObject>(file);
    if (!object) return std::nullopt;
    VolumeEntry status;
    if (!OnFile(*object, [&](VolumeFile& handle) { return handle.Stat(status); })) return FALSE;
    std::memset(info, 0, sizeof *info);
    info->dwFileAttributes = status.attributes;
    info->ftCreationTime = status.created;
    info->ftLastAccessTime = status.accessed;
    info->ftLastWriteTime = status.written;
    info->dwVolumeSerialNumber = object->volume->facts.serial;
    info->nFileSizeHigh = static_cast<DWORD>(status.size >> 32);
    info->nFileSizeLow = static_cast<DWORD>(status.size);
    info->nNumberOfLinks = status.links;
    info->nFileIndexHigh = static_cast<DWORD>(status.fileIndex >> 32);
    info->nFileIndexLow = static_cast<DWORD>(status.fileIndex);
    return TRUE;
}

std::optional<BOOL> ImageDeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize,
                                         LPDWORD returned) {
    if (auto object = LookupHandleAs<DeviceObject>(device)) return DeviceControl(*object, code, in, inSize, out, outSize, returned);
    auto object = LookupHandleAs<ImageFileObject>(device);
    if (!object) return std::nullopt;
    DWORD count = 0;
    const BOOL done = OnFile(*object, [&](VolumeFile& handle) { return handle.Control(code, in, inSize, out, outSize, count); });
    if (returned != nullptr) *returned = count;
    return done;
}

std::optional<DWORD> ImageGetFileAttributes(LPCWSTR path) {
    Target target = Reach(path);
    if (!target.path.volume) return std::nullopt;
    if (!target.usable) return INVALID_FILE_ATTRIBUTES;
    std::lock_guard lock(target.path.volume->engineLock);
    VolumeEntry entry;
    if (!target.path.volume->engine->Lookup(target.path.components, entry)) return INVALID_FILE_ATTRIBUTES;
    return entry.attributes;
}

std::optional<BOOL> ImageSetFileAttributes(LPCWSTR path, DWORD attributes) {
    return OnPath(path, [&](Volume& volume, const VolumePath& components) { return volume.SetAttributes(components, attributes); });
}

std::optional<BOOL> ImageDeleteFile(LPCWSTR path) {
    return OnPath(path, [&](Volume& volume, const VolumePath& components) { return volume.Delete(components); });
}

std::optional<BOOL> ImageCreateDirectory(LPCWSTR path) {
    return OnPath(path, [&](Volume& volume, const VolumePath& components) { return volume.CreateFolder(components); });
}

std::optional<BOOL> ImageRemoveDirectory(LPCWSTR path) {
    return OnPath(path, [&](Volume& volume, const VolumePath& components) { return volume.RemoveFolder(components); });
}

std::optional<HANDLE> ImageFindFirstFile(LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
    ImagePath path = ResolveImagePath(pattern);
    if (!path.volume) return std::nullopt;
    if (!path.valid) return INVALID_HANDLE_VALUE;
    if (data == nullptr) return Fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
    if (path.volume->detached) return Fail(ERROR_DEVICE_NOT_CONNECTED, INVALID_HANDLE_VALUE);
    if (!path.volume->engine) return Fail(ERROR_UNRECOGNIZED_VOLUME, INVALID_HANDLE_VALUE);
    // A pattern that ends in a separator, or names a volume root, has no name part to match.
    if (path.components.empty()) return Fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
    const WString namePattern = FindPatternOf(pattern, path.components.back());
    VolumePath folder = path.components;
    folder.pop_back();

    auto find = std::make_shared<ImageFindObject>();
    {
        std::lock_guard lock(path.volume->engineLock);
        Volume& volume = *path.volume->engine;
        if (path.trailingSeparator) {
            // A pattern that ends in a separator has no name part: the folder is missing or holds no such name.
            VolumeEntry entry;
            return Fail(volume.Lookup(path.components, entry) ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND, INVALID_HANDLE_VALUE);
        }
        if (!path.hasWildcard) {
            VolumeEntry entry;
            if (!volume.Lookup(path.components, entry)) return INVALID_HANDLE_VALUE;
            find->entries.emplace_back();
            FillFindData(entry, entry.name, find->entries.back());
        } else {
            std::vector<VolumeEntry> entries;
            VolumeEntry self;
            if (!volume.Lookup(folder, self)) return Fail(ERROR_PATH_NOT_FOUND, INVALID_HANDLE_VALUE);
            if (!volume.List(folder, entries)) return Fail(ERROR_PATH_NOT_FOUND, INVALID_HANDLE_VALUE);
            std::sort(entries.begin(), entries.end(), [](const VolumeEntry& a, const VolumeEntry& b) { return NameLessNtfs(a.name, b.name); });
            if (!folder.empty()) {
                // "." and ".." lead every folder's listing but the root's.
                VolumeEntry parent;
                VolumePath above = folder;
                above.pop_back();
                if (!volume.Lookup(above, parent)) parent = self;
                for (const auto& [entry, name] : {std::pair(self, WString(_T("."))), std::pair(parent, WString(_T("..")))})
                    if (MatchesPattern(namePattern, name)) {
                        find->entries.emplace_back();
                        FillFindData(entry, name, find->entries.back());
                    }
            }
            for (const VolumeEntry& entry : entries) {
                if (!MatchesPattern(namePattern, entry.name)) continue;
                find->entries.emplace_back();
                FillFindData(entry, entry.name, find->entries.back());
            }
        }
    }
    if (find->entries.empty()) return Fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
    *data = find->entries[0];
    find->next = 1;
    HANDLE handle = InsertHandle(std::move(find));
    SetLastErrorCode(ERROR_SUCCESS);
    return handle;
}

std::optional<BOOL> ImageFindNextFile(HANDLE handle, LPWIN32_FIND_DATAW data) {
    auto find = LookupHandleAs<ImageFindObject>(handle);
    if (!find) return std::nullopt;
    if (data == nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    std::lock_guard lock(find->lock);
    if (find->next >= find->entries.size()) return Fail(ERROR_NO_MORE_FILES, FALSE);
    *data = find->entries[find->next++];
    return TRUE;
}

std::optional<BOOL> ImageSetCurrentDirectory(LPCWSTR path) {
    Target target = Reach(path);
    if (!target.path.volume) return std::nullopt;
    if (!target.usable) return FALSE;
    // Paths relative to it are made full by their drive letter; a volume without one has no such form.
    if (target.path.volume->letter == 0) return Fail(ERROR_NOT_SUPPORTED, FALSE);
    VolumeEntry entry;
    {
        std::lock_guard lock(target.path.volume->engineLock);
        if (!target.path.volume->engine->Lookup(target.path.components, entry)) return FALSE;
    }
    if ((entry.attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return Fail(ERROR_DIRECTORY, FALSE);
    WString full{target.path.volume->letter, ':'};
    for (const WString& name : target.path.components) full += _T("\\") + name;
    if (target.path.components.empty()) full += _T("\\");
    SetCurrentDirectoryPath(full);
    return TRUE;
}

std::optional<BOOL> ImageCreateHardLink(LPCWSTR newName, LPCWSTR existing) {
    Target from = Reach(existing);
    Target to = Reach(newName);
    if (!from.path.volume && !to.path.volume) return std::nullopt;
    if (!from.usable || !to.usable) return FALSE;
    // A hard link never leaves its volume.
    if (from.path.volume != to.path.volume) return Fail(ERROR_NOT_SAME_DEVICE, FALSE);
    std::lock_guard lock(from.path.volume->engineLock);
    return from.path.volume->engine->CreateHardLink(to.path.components, from.path.components) ? TRUE : FALSE;
}

std::optional<HANDLE> ImageFindFirstFileName(LPCWSTR path, DWORD flags, LPDWORD length, PWSTR name) {
    Target target = Reach(path);
    if (!target.path.volume) return std::nullopt;
    if (!target.usable) return INVALID_HANDLE_VALUE;
    if (length == nullptr || flags != 0) return Fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
    auto find = std::make_shared<ImageNameFindObject>();
    {
        std::lock_guard lock(target.path.volume->engineLock);
        if (!target.path.volume->engine->LinkNames(target.path.components, find->names)) return INVALID_HANDLE_VALUE;
    }
    if (find->names.empty()) return Fail(ERROR_HANDLE_EOF, INVALID_HANDLE_VALUE);
    if (!GiveLinkName(find->names[0], length, name)) return INVALID_HANDLE_VALUE;
    find->next = 1;
    return InsertHandle(std::move(find));
}

std::optional<BOOL> ImageFindNextFileName(HANDLE handle, LPDWORD length, PWSTR name) {
    auto find = LookupHandleAs<ImageNameFindObject>(handle);
    if (!find) return std::nullopt;
    if (length == nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    std::lock_guard lock(find->lock);
    if (find->next >= find->names.size()) return Fail(ERROR_HANDLE_EOF, FALSE);
    if (!GiveLinkName(find->names[find->next], length, name)) return FALSE;
    ++find->next;
    return TRUE;
}

std::optional<BOOL> ImageCopyFile(LPCWSTR existing, LPCWSTR newName, LPPROGRESS_ROUTINE progress, LPVOID data, LPBOOL cancel,
                                  DWORD flags) {
    if (existing == nullptr || newName == nullptr) return std::nullopt;
    if (!ResolveImagePath(existing).volume && !ResolveImagePath(newName).volume) return std::nullopt;
    // At least one end is on an image volume: the copy goes through the file calls, which reach either
    // kind of volume, with the same progress, cancel and clean-up as between host folders.
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

// ---- ntdll's open by file id and name query on image volumes.

HANDLE ImageOpenByIndex(HANDLE volumeDevice, ULONGLONG fileIndex, DWORD access, DWORD share) {
    auto device = LookupHandleAs<DeviceObject>(volumeDevice);
    if (!device) return Fail(ERROR_INVALID_HANDLE, INVALID_HANDLE_VALUE);
    // A physical disk, or a volume holding no file system we know, has no files to open.
    if (!device->volume || !device->volume->engine) return Fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
    if (device->Gone()) return Fail(ERROR_DEVICE_NOT_CONNECTED, INVALID_HANDLE_VALUE);
    auto object = std::make_shared<ImageFileObject>();
    object->volume = device->volume;
    object->access = ExpandAccess(access);
    VolumeEntry status;
    {
        std::lock_guard lock(object->volume->engineLock);
        object->file = object->volume->engine->OpenByIndex(fileIndex, object->access, share);
        if (!object->file) return INVALID_HANDLE_VALUE;
        if (!object->file->Stat(status)) return INVALID_HANDLE_VALUE;
    }
    return InsertOpenFile(std::move(object), status, share);
}

std::optional<BOOL> ImageFileName(HANDLE file, WString& relative) {
    auto object = LookupHandleAs<ImageFileObject>(file);
    if (!object) return std::nullopt;
    VolumeEntry status;
    return OnFile(*object, [&](VolumeFile& handle) {
        return handle.Stat(status) && object->volume->engine->NameOfIndex(status.fileIndex, relative);
    });
}

}  // namespace vlx
