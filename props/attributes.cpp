// Attribute flags: the general attribute reader, the single-flag getters and setters, and NTFS compression.
#include <utility>

#include "../frame/frame_internal.h"
#include "../platform/unique_handles.h"

namespace {

void StoreFlag(int* flag, DWORD word, DWORD bit) {
    if (flag != nullptr) *flag = (word & bit) != 0 ? 1 : 0;
}

// The places of the flags among GetFileProperty's outputs.
enum FlagSlot { kReadOnlySlot, kCompressedSlot, kHiddenSlot, kSystemSlot, kEncryptedSlot, kSlotCount };

// The single-flag getters are GetFileProperty with their pointer in its slot and null in the others. The
// flag is required: without it nothing is read.
int GetOneFlag(const CString& path, int* flag, FlagSlot slot) {
    if (flag == nullptr) return 0;
    int* outputs[kSlotCount] = {};
    outputs[slot] = flag;
    return GetFileProperty(CString(path), outputs[kReadOnlySlot], outputs[kCompressedSlot], outputs[kHiddenSlot],
                           outputs[kSystemSlot], outputs[kEncryptedSlot]);
}

// The three setters change one bit and write the whole word back, so that every other bit (folder,
// archive, compressed and the rest) goes back exactly as it was read.
int SetAttributeBit(const CString& path, DWORD bit, int set) {
    DWORD word = sys().GetFileAttributesW(path);
    if (word == INVALID_FILE_ATTRIBUTES) return 0;
    if (set == 1) word |= bit;
    else word &= ~bit;
    return sys().SetFileAttributesW(path, word) ? 1 : 0;
}

// Hands the file system the new compression state of an opened file or folder. A folder can be opened
// only with backup semantics; the call sets the folder's own state and visits nothing inside it.
int ApplyCompressionState(const CString& path, DWORD word, USHORT state) {
    const DWORD flags = (word & FILE_ATTRIBUTE_DIRECTORY) != 0 ? FILE_FLAG_BACKUP_SEMANTICS : FILE_ATTRIBUTE_NORMAL;
    UniqueHandle file(sys().CreateFileW(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                        OPEN_EXISTING, flags, nullptr));
    if (!file) return 0;
    DWORD returned = 0;
    const BOOL changed = sys().DeviceIoControl(file.get(), FSCTL_SET_COMPRESSION, &state, sizeof state, nullptr, 0, &returned, nullptr);
    return changed ? 1 : 0;
}

// Sets the read-only flag again when it leaves scope, whether the change between succeeded, failed or
// threw. The path is copied when the restorer is made, so putting the flag back needs no allocation. The
// caller learns why the change failed, not how the flag went back: the last error is kept.
class ReadOnlyRestorer {
public:
    explicit ReadOnlyRestorer(CString path) noexcept : path_(std::move(path)) {}
    ~ReadOnlyRestorer() {
        const DWORD error = sys().GetLastError();
        SetReadOnlyFlag(std::move(path_), 1);
        sys().SetLastError(error);
    }
    ReadOnlyRestorer(const ReadOnlyRestorer&) = delete;
    ReadOnlyRestorer& operator=(const ReadOnlyRestorer&) = delete;

private:
    CString path_;
};

}  // namespace

VELMORA_EXPORT int GetFileProperty(CString path, int* readOnly, int* compressed, int* hidden, int* system,
                                   int* encrypted) {
    return VelmoraGuardedCall(0, [&] {
        const DWORD word = sys().GetFileAttributesW(path);
        if (word == INVALID_FILE_ATTRIBUTES) return 0;
        StoreFlag(readOnly, word, FILE_ATTRIBUTE_READONLY);
        StoreFlag(compressed, word, FILE_ATTRIBUTE_COMPRESSED);
        StoreFlag(hidden, word, FILE_ATTRIBUTE_HIDDEN);
        StoreFlag(system, word, FILE_ATTRIBUTE_SYSTEM);
        StoreFlag(encrypted, word, FILE_ATTRIBUTE_ENCRYPTED);
        return 1;
    });
}

VELMORA_EXPORT int GetReadOnlyFlag(CString path, int* flag) {
    return VelmoraGuardedCall(0, [&] { return GetOneFlag(path, flag, kReadOnlySlot); });
}

VELMORA_EXPORT int GetCompressNtfs(CString path, int* flag) {
    return VelmoraGuardedCall(0, [&] { return GetOneFlag(path, flag, kCompressedSlot); });
}

VELMORA_EXPORT int GetHiddenFlag(CString path, int* flag) {
    return VelmoraGuardedCall(0, [&] { return GetOneFlag(path, flag, kHiddenSlot); });
}

VELMORA_EXPORT int GetSystemFlag(CString path, int* flag) {
    return VelmoraGuardedCall(0, [&] { return GetOneFlag(path, flag, kSystemSlot); });
}

VELMORA_EXPORT int SetReadOnlyFlag(CString path, int set) {
    return VelmoraGuardedCall(0, [&] { return SetAttributeBit(path, FILE_ATTRIBUTE_READONLY, set); });
}

VELMORA_EXPORT int SetHiddenFlag(CString path, int set) {
    return VelmoraGuardedCall(0, [&] { return SetAttributeBit(path, FILE_ATTRIBUTE_HIDDEN, set); });
}

VELMORA_EXPORT int SetSystemFlag(CString path, int set) {
    return VelmoraGuardedCall(0, [&] { return SetAttributeBit(path, FILE_ATTRIBUTE_SYSTEM, set); });
}

VELMORA_EXPORT int SetCompressNtfs(CString path, int compress) {
    return VelmoraGuardedCall(0, [&] {
        const DWORD word = sys().GetFileAttributesW(path);
        if (word == INVALID_FILE_ATTRIBUTES) return 0;
        const USHORT state = static_cast<USHORT>(compress == 1 ? COMPRESSION_FORMAT_DEFAULT : COMPRESSION_FORMAT_NONE);
        if ((word & FILE_ATTRIBUTE_READONLY) == 0) return ApplyCompressionState(path, word, state);

        // A read-only file cannot be opened for writing, which the change needs, so the flag is lifted for
        // it and put back on every way out.
        ReadOnlyRestorer restorer{CString(path)};
        SetReadOnlyFlag(CString(path), 0);
        return ApplyCompressionState(path, word, state);
    });
}
