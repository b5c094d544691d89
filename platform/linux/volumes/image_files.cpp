// The image-volume kind: the Win32 file calls on the volumes of attached disk images. Each call finds the
// volume behind its path or handle and hands the work to that volume's file-system engine (NTFS, FAT, a
// shadow copy), under the engine's lock; share modes are kept between the process's handles as on host
// folders.
#include <algorithm>
#include <cstring>

#include "../core/scoped_handle.h"
#include "../core/table.h"
#include "device_object.h"
#include "../services/security_descriptor.h"

namespace vlx {

namespace {

class ImageFindObject : public SearchObject {
public:
    bool Next(WIN32_FIND_DATAW& data) override {
        std::lock_guard guard(lock);
        if (next >= entries.size()) return Fail(ERROR_NO_MORE_FILES, false);
        data = entries[next++];
        return true;
    }
    std::mutex lock;
    std::vector<WIN32_FIND_DATAW> entries;
    size_t next = 0;
};

// Opens on different volumes never share a file, so each volume is a device of its own for the share
// registry, and the engine's file index is the inode.
dev_t ShareDevice(const ImageVolume& volume) { return static_cast<dev_t>(reinterpret_cast<uintptr_t>(&volume)); }

// The volume and the path below it; usable is false, with the last error set, when the path cannot be used.
struct Target {
    ImagePath path;
    bool usable = false;
};
Target Reach(LPCWSTR text) {
    Target target;
    target.path = ResolveImagePath(text);
    // A path that left its volume ("X:\..\..") or reached none is not found there.
    if (!target.path.volume) return Fail(ERROR_PATH_NOT_FOUND, target);
    if (!target.path.valid) return target;
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

// Runs one engine call on a handle's file under the engine's lock; ERROR_DEVICE_NOT_CONNECTED once the
// disk is detached.
template <class Body>
BOOL OnFile(ImageFileObject& object, Body&& body) {
    std::lock_guard lock(object.volume->engineLock);
    if (object.volume->detached) return Fail(ERROR_DEVICE_NOT_CONNECTED, FALSE);
    return body(*object.file) ? TRUE : FALSE;
}

template <class Body>
BOOL OnPath(LPCWSTR path, Body&& body) {
    Target target = Reach(path);
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


class ImageKind final : public VolumeKind {
public:
    HANDLE CreateFile(LPCWSTR path, DWORD access, DWORD share, DWORD disposition, DWORD flags) override;
    DWORD GetAttributes(LPCWSTR path) override;
    BOOL SetAttributes(LPCWSTR path, DWORD attributes) override {
        return OnPath(path, [&](Volume& volume, const VolumePath& components) { return volume.SetAttributes(components, attributes); });
    }
    BOOL DeleteFile(LPCWSTR path) override {
        return OnPath(path, [&](Volume& volume, const VolumePath& components) { return volume.Delete(components); });
    }
    BOOL CreateFolder(LPCWSTR path) override {
        return OnPath(path, [&](Volume& volume, const VolumePath& components) { return volume.CreateFolder(components); });
    }
    BOOL RemoveFolder(LPCWSTR path) override {
        return OnPath(path, [&](Volume& volume, const VolumePath& components) { return volume.RemoveFolder(components); });
    }
    BOOL CreateHardLink(LPCWSTR newName, LPCWSTR existing) override;
    BOOL SetCurrentFolder(LPCWSTR path) override;
    HANDLE FindFirst(LPCWSTR pattern, LPWIN32_FIND_DATAW data) override;
    HANDLE FindFirstLinkName(LPCWSTR path, LPDWORD length, PWSTR name) override;
    BOOL CopyFile(LPCWSTR existing, LPCWSTR newName, LPPROGRESS_ROUTINE progress, LPVOID data, LPBOOL cancel,
                  DWORD flags) override {
        return CopyThroughHandles(existing, newName, progress, data, cancel, flags);
    }
    bool GetSecurity(LPCWSTR path, SECURITY_INFORMATION selection, std::vector<BYTE>& block) override {
        return OnPath(path, [&](Volume& volume, const VolumePath& components) {
            return volume.GetSecurity(components, selection, block);
        }) != FALSE;
    }
    bool SetSecurity(LPCWSTR path, SECURITY_INFORMATION selection, const Descriptor& descriptor) override {
        const std::vector<BYTE> block = SelfRelative(descriptor);
        return OnPath(path, [&](Volume& volume, const VolumePath& components) {
            return volume.SetSecurity(components, selection, block);
        }) != FALSE;
    }
    bool Facts(LPCWSTR root, VolumeFacts& facts) override;
};

}  // namespace

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

ImageFileObject::~ImageFileObject() {
    if (registered) UnregisterOpen(&record);
    if (file) {
        std::lock_guard guard(volume->engineLock);
        file.reset();
    }
}

HANDLE ImageKind::CreateFile(LPCWSTR path, DWORD access, DWORD share, DWORD disposition, DWORD flags) {
    Target target = Reach(path);
    if (!target.usable) return INVALID_HANDLE_VALUE;
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

BOOL ImageFileObject::Read(LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED overlapped) {
    if (isFolder) return Fail(ERROR_INVALID_FUNCTION, FALSE);
    if ((access & FILE_READ_DATA) == 0) return Fail(ERROR_ACCESS_DENIED, FALSE);
    if (buffer == nullptr && toRead > 0) return Fail(ERROR_NOACCESS, FALSE);
    std::lock_guard guard(lock);
    const ULONGLONG offset = OffsetOf(*this, overlapped);
    DWORD done = 0;
    if (!OnFile(*this, [&](VolumeFile& handle) { return handle.Read(offset, buffer, toRead, done); })) return FALSE;
    position = offset + done;
    if (read != nullptr) *read = done;
    if (done == 0 && overlapped != nullptr && toRead > 0) return Fail(ERROR_HANDLE_EOF, FALSE);
    return TRUE;  // success leaves the last error as it was
}

BOOL ImageFileObject::Write(LPCVOID buffer, DWORD toWrite, LPDWORD written, LPOVERLAPPED overlapped) {
    if (isFolder) return Fail(ERROR_INVALID_FUNCTION, FALSE);
    if ((access & (FILE_WRITE_DATA | FILE_APPEND_DATA)) == 0) return Fail(ERROR_ACCESS_DENIED, FALSE);
    if (buffer == nullptr && toWrite > 0) return Fail(ERROR_INVALID_USER_BUFFER, FALSE);
    std::lock_guard guard(lock);
    const ULONGLONG offset = OffsetOf(*this, overlapped);
    DWORD done = 0;
    if (!OnFile(*this, [&](VolumeFile& handle) { return handle.Write(offset, buffer, toWrite, done); })) return FALSE;
    position = offset + done;
    if (written != nullptr) *written = done;
    return TRUE;
}

BOOL ImageFileObject::GetSize(PLARGE_INTEGER size) {
    VolumeEntry status;
    if (!OnFile(*this, [&](VolumeFile& handle) { return handle.Stat(status); })) return FALSE;
    size->QuadPart = static_cast<LONGLONG>(status.size);
    return TRUE;
}

BOOL MovePointer(ULONGLONG& position, ULONGLONG end, LARGE_INTEGER distance, PLARGE_INTEGER newPosition, DWORD method) {
    if (method != FILE_BEGIN && method != FILE_CURRENT && method != FILE_END) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    const LONGLONG base = method == FILE_BEGIN ? 0 : static_cast<LONGLONG>(method == FILE_CURRENT ? position : end);
    const LONGLONG target = base + distance.QuadPart;
    if (target < 0) return Fail(ERROR_NEGATIVE_SEEK, FALSE);
    position = static_cast<ULONGLONG>(target);
    if (newPosition != nullptr) newPosition->QuadPart = target;
    return TRUE;
}

BOOL ImageFileObject::SetPointer(LARGE_INTEGER distance, PLARGE_INTEGER newPosition, DWORD method) {
    VolumeEntry status;
    if (!OnFile(*this, [&](VolumeFile& handle) { return handle.Stat(status); })) return FALSE;
    std::lock_guard guard(lock);
    return MovePointer(position, status.size, distance, newPosition, method);
}

BOOL ImageFileObject::SetEnd() {
    if ((access & FILE_WRITE_DATA) == 0) return Fail(ERROR_ACCESS_DENIED, FALSE);
    std::lock_guard guard(lock);
    return OnFile(*this, [&](VolumeFile& handle) { return handle.SetSize(position); });
}

BOOL ImageFileObject::GetTimes(LPFILETIME created, LPFILETIME accessed, LPFILETIME written) {
    VolumeEntry status;
    if (!OnFile(*this, [&](VolumeFile& handle) { return handle.Stat(status); })) return FALSE;
    if (created != nullptr) *created = status.created;
    if (accessed != nullptr) *accessed = status.accessed;
    if (written != nullptr) *written = status.written;
    return TRUE;
}

BOOL ImageFileObject::SetTimes(const FILETIME* created, const FILETIME* accessed, const FILETIME* written) {
    if ((access & FILE_WRITE_ATTRIBUTES) == 0) return Fail(ERROR_ACCESS_DENIED, FALSE);
    return OnFile(*this, [&](VolumeFile& handle) { return handle.SetTimes(created, accessed, written); });
}

BOOL ImageFileObject::GetInformation(LPBY_HANDLE_FILE_INFORMATION info) {
    VolumeEntry status;
    if (!OnFile(*this, [&](VolumeFile& handle) { return handle.Stat(status); })) return FALSE;
    std::memset(info, 0, sizeof *info);
    info->dwFileAttributes = status.attributes;
    info->ftCreationTime = status.created;
    info->ftLastAccessTime = status.accessed;
    info->ftLastWriteTime = status.written;
    info->dwVolumeSerialNumber = volume->facts.serial;
    info->nFileSizeHigh = static_cast<DWORD>(status.size >> 32);
    info->nFileSizeLow = static_cast<DWORD>(status.size);
    info->nNumberOfLinks = status.links;
    info->nFileIndexHigh = static_cast<DWORD>(status.fileIndex >> 32);
    info->nFileIndexLow = static_cast<DWORD>(status.fileIndex);
    return TRUE;
}

BOOL ImageFileObject::Control(DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize, LPDWORD returned) {
    DWORD count = 0;
    const BOOL done = OnFile(*this, [&](VolumeFile& handle) { return handle.Control(code, in, inSize, out, outSize, count); });
    if (returned != nullptr) *returned = count;
    return done;
}

bool ImageFileObject::VolumeRelativeName(WString& relative) {
    VolumeEntry status;
    return OnFile(*this, [&](VolumeFile& handle) {
        return handle.Stat(status) && volume->engine->NameOfIndex(status.fileIndex, relative);
    }) != FALSE;
}

DWORD ImageKind::GetAttributes(LPCWSTR path) {
    Target target = Reach(path);
    if (!target.usable) return INVALID_FILE_ATTRIBUTES;
    std::lock_guard lock(target.path.volume->engineLock);
    VolumeEntry entry;
    if (!target.path.volume->engine->Lookup(target.path.components, entry)) return INVALID_FILE_ATTRIBUTES;
    return entry.attributes;
}

HANDLE ImageKind::FindFirst(LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
    ImagePath path = ResolveImagePath(pattern);
    if (!path.volume) return Fail(ERROR_PATH_NOT_FOUND, INVALID_HANDLE_VALUE);
    if (!path.valid) return INVALID_HANDLE_VALUE;
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

BOOL ImageKind::SetCurrentFolder(LPCWSTR path) {
    Target target = Reach(path);
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

BOOL ImageKind::CreateHardLink(LPCWSTR newName, LPCWSTR existing) {
    Target from = Reach(existing);
    if (!from.usable) return FALSE;
    Target to = Reach(newName);
    if (!to.usable) return FALSE;
    // A hard link never leaves its volume.
    if (from.path.volume != to.path.volume) return Fail(ERROR_NOT_SAME_DEVICE, FALSE);
    std::lock_guard lock(from.path.volume->engineLock);
    return from.path.volume->engine->CreateHardLink(to.path.components, from.path.components) ? TRUE : FALSE;
}

HANDLE ImageKind::FindFirstLinkName(LPCWSTR path, LPDWORD length, PWSTR name) {
    Target target = Reach(path);
    if (!target.usable) return INVALID_HANDLE_VALUE;
    std::vector<WString> names;
    {
        std::lock_guard lock(target.path.volume->engineLock);
        if (!target.path.volume->engine->LinkNames(target.path.components, names)) return INVALID_HANDLE_VALUE;
    }
    return StartLinkNameSearch(std::move(names), length, name);
}

bool ImageKind::Facts(LPCWSTR root, VolumeFacts& facts) {
    const ImagePath image = ResolveImagePath(root);
    if (!image.volume) return Fail(ERROR_PATH_NOT_FOUND, false);
    if (!image.valid) return false;
    if (!image.components.empty()) return Fail(ERROR_DIR_NOT_ROOT, false);
    if (image.volume->detached) return Fail(ERROR_DEVICE_NOT_CONNECTED, false);
    // A volume holding no file system we know is RAW: Windows cannot say what it is either.
    if (image.volume->facts.fileSystem.empty()) return Fail(ERROR_UNRECOGNIZED_VOLUME, false);
    facts = image.volume->facts;
    return true;
}

VolumeKind& ImageVolumeKind() {
    static ImageKind kind;
    return kind;
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

}  // namespace vlx
