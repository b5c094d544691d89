// The imaging library, wimgapi.dll, built into the platform on wimlib and registered in the system folder.
//
// Image files and images are handles of the process's handle table. Windows paths reach the host through
// the platform's own path resolution, so an image file or folder may sit on any mapped drive. The message
// callbacks registered on an image file hear WIM_MSG_PROCESS for every entry captured (its full Windows
// path; answering FALSE through lParam leaves it out), WIM_MSG_FILEINFO for every entry applied when
// WIM_FLAG_FILEINFO is given, and WIM_MSG_PROGRESS with a percentage that only rises and ends at 100.
// Answering WIM_MSG_ABORT_IMAGE stops the operation with ERROR_REQUEST_ABORTED.
//
// Images keep what the Linux platform keeps of a file: its data, hard links, times, its UNIX mode (the
// read-only bit) and its extended attributes, among them user.DOSATTRIB with the hidden, system and
// archive bits.
//
// Mounting cannot rely on a kernel mount here. WIMMountImage writes the image out into the empty mount
// folder and records the mount in the platform's mount table, a folder of small records under the host's
// temporary folder that outlives the process, as the system's own table does. WIMUnmountImage with commit
// replaces the contents of the image in place (same index, same name, same XML facts otherwise) by what
// the folder holds, then empties the folder and forgets the mount; without commit it only empties the
// folder. A mount that is never unmounted leaves the extracted files in its folder and its record in the
// table; a later WIMUnmountImage, from any process, still finds and ends it. A mount without a temporary
// folder is read-only: its changes are never written back, even when an unmount asks for it.
#include <unistd.h>
#include <wimlib.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <sstream>
#include <string_view>
#include <vector>

#include "../../wimgapi.h"
#include "../core/internal.h"
#include "../core/table.h"
#include "../volumes/volume.h"

namespace vlx {

namespace {

namespace fs = std::filesystem;

void InitialiseWimlib() {
    static std::once_flag once;
    std::call_once(once, [] {
        wimlib_global_init(WIMLIB_INIT_FLAG_ASSUME_UTF8);
        wimlib_set_print_errors(false);  // errors reach callers as last-error codes, never on the terminal
    });
}

// The Win32 code that stands for a wimlib error, errno where wimlib failed in a system call.
DWORD Win32ErrorFromWimlib(int code, int savedErrno) {
    switch (code) {
        case WIMLIB_ERR_SUCCESS: return ERROR_SUCCESS;
        case WIMLIB_ERR_NOMEM: return ERROR_NOT_ENOUGH_MEMORY;
        case WIMLIB_ERR_NOT_A_WIM_FILE:
        case WIMLIB_ERR_INVALID_HEADER:
        case WIMLIB_ERR_UNKNOWN_VERSION:
        case WIMLIB_ERR_IMAGE_COUNT:
        case WIMLIB_ERR_INVALID_CHUNK_SIZE:
        case WIMLIB_ERR_INVALID_COMPRESSION_TYPE:
        case WIMLIB_ERR_INVALID_PART_NUMBER:
        case WIMLIB_ERR_IS_SPLIT_WIM:
        case WIMLIB_ERR_XML: return ERROR_BAD_FORMAT;
        case WIMLIB_ERR_DECOMPRESSION:
        case WIMLIB_ERR_INTEGRITY:
        case WIMLIB_ERR_INVALID_INTEGRITY_TABLE:
        case WIMLIB_ERR_INVALID_LOOKUP_TABLE_ENTRY:
        case WIMLIB_ERR_INVALID_METADATA_RESOURCE:
        case WIMLIB_ERR_INVALID_RESOURCE_HASH:
        case WIMLIB_ERR_METADATA_NOT_FOUND:
        case WIMLIB_ERR_RESOURCE_NOT_FOUND:
        case WIMLIB_ERR_UNEXPECTED_END_OF_FILE:
        case WIMLIB_ERR_WIM_IS_INCOMPLETE: return ERROR_FILE_CORRUPT;
        case WIMLIB_ERR_INVALID_IMAGE:
        case WIMLIB_ERR_INVALID_PARAM: return ERROR_INVALID_PARAMETER;
        case WIMLIB_ERR_WIM_IS_READONLY: return ERROR_ACCESS_DENIED;
        case WIMLIB_ERR_ABORTED_BY_PROGRESS: return ERROR_REQUEST_ABORTED;
        case WIMLIB_ERR_PATH_DOES_NOT_EXIST: return ERROR_PATH_NOT_FOUND;
        case WIMLIB_ERR_NOTDIR: return ERROR_DIRECTORY;
        case WIMLIB_ERR_NOTEMPTY: return ERROR_DIR_NOT_EMPTY;
        case WIMLIB_ERR_UNSUPPORTED:
        case WIMLIB_ERR_UNSUPPORTED_FILE: return ERROR_NOT_SUPPORTED;
        default: {
            const DWORD fromErrno = Win32ErrorFromErrno(savedErrno);
            return fromErrno != ERROR_SUCCESS ? fromErrno : ERROR_GEN_FAILURE;
        }
    }
}

template <class T>
T FailWimlib(int code, T result) {
    return Fail(Win32ErrorFromWimlib(code, errno), result);
}

struct WimDeleter {
    void operator()(WIMStruct* wim) const { wimlib_free(wim); }
};
using WimPointer = std::unique_ptr<WIMStruct, WimDeleter>;

struct RegisteredCallback {
    WimMessageCallbackFunction callback;
    PVOID userData;
};

// An open image file.
class WimFile : public KernelObject {
public:
    WimPointer wim;
    std::string hostPath;
    bool writable = false;
    std::string temporaryFolder;
    std::vector<RegisteredCallback> callbacks;
};

// An image of an open image file; it keeps the file open while it lives.
class WimImage : public KernelObject {
public:
    std::shared_ptr<WimFile> file;
    int index = 0;
};

// A Win32 path resolved to the host; false with the platform's last error when it cannot be reached.
bool HostPathOf(PCWSTR path, ResolvedPath& resolved) {
    if (path == nullptr || *path == 0) return Fail(ERROR_INVALID_PARAMETER, false);
    if (!Resolve(path, resolved)) return false;
    // Image files, their scratch folders and mount folders are named in records and objects that last
    // past this call, so they take the path written out whole.
    if (resolved.anchor) {
        std::string whole;
        if (!WholeHostPath(resolved, whole)) return Fail(ERROR_FILENAME_EXCED_RANGE, false);
        const size_t slash = whole.find_last_of('/');
        resolved.hostParent = slash == 0 ? std::string("/") : whole.substr(0, slash);
        resolved.hostPath = std::move(whole);
        resolved.anchor.reset();
    }
    return true;
}

// The messages one capture or apply sends, and how the callbacks answered.
class Messenger {
public:
    Messenger(const WimFile& file, WString windowsRoot)
        : callbacks_(file.callbacks), path_(std::move(windowsRoot)), started_(std::chrono::steady_clock::now()) {
        while (path_.size() > 3 && path_.back() == u'\\') path_.pop_back();
        if (path_.empty() || path_.back() != u'\\') path_ += u'\\';
        rootLength_ = path_.size();
    }

    bool aborted() const { return aborted_; }
    bool silent() const { return callbacks_.empty(); }

    // Every callback hears every message; any of them may end the operation.
    DWORD Send(DWORD message, WPARAM wParam, LPARAM lParam) {
        DWORD last = WIM_MSG_SUCCESS;
        for (const RegisteredCallback& registered : callbacks_) {
            last = registered.callback(message, wParam, lParam, registered.userData);
            if (last == WIM_MSG_ABORT_IMAGE) aborted_ = true;
        }
        return last;
    }

    // A percentage only ever goes up; 100 is sent once, at the end.
    void Progress(uint64_t done, uint64_t total, bool finished = false) {
        DWORD percent = finished ? 100 : total == 0 ? 0 : static_cast<DWORD>(done * 100 / total);
        if (!finished && percent >= 100) percent = 99;
        if (percent <= percent_ && !(finished && percent_ < 100)) return;
        percent_ = percent;
        const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started_);
        const LPARAM left = percent == 0 ? 0 : static_cast<LPARAM>(elapsed.count() * (100 - percent) / percent);
        Send(WIM_MSG_PROGRESS, percent, left);
    }

    // The Windows path of an entry given by its '/'-separated UTF-8 path under the operation's root, in a
    // buffer that the next call reuses: a message's path only lives while the callbacks hear it.
    LPCWSTR WindowsPath(std::string_view relative) {
        while (!relative.empty() && relative.front() == '/') relative.remove_prefix(1);
        path_.resize(rootLength_);
        path_ += WStrFromUtf8(std::string(relative));
        std::replace(path_.begin() + static_cast<std::ptrdiff_t>(rootLength_), path_.end(), u'/', u'\\');
        return path_.c_str();
    }
    // The last name of the path WindowsPath made last.
    LPCWSTR LastName() const { return path_.c_str() + path_.find_last_of(u'\\') + 1; }

private:
    std::vector<RegisteredCallback> callbacks_;
    WString path_;
    size_t rootLength_ = 0;
    std::chrono::steady_clock::time_point started_;
    DWORD percent_ = 0;
    bool aborted_ = false;
};

// The callbacks' progress function for wimlib, with what the operation at hand does on each message.
using ProgressHandler = std::function<void(enum wimlib_progress_msg, union wimlib_progress_info*)>;
struct ProgressContext {
    Messenger* messenger;
    ProgressHandler handler;
};

enum wimlib_progress_status ForwardProgress(enum wimlib_progress_msg message, union wimlib_progress_info* info, void* context) {
    auto* progress = static_cast<ProgressContext*>(context);
    progress->handler(message, info);
    return progress->messenger->aborted() ? WIMLIB_PROGRESS_STATUS_ABORT : WIMLIB_PROGRESS_STATUS_CONTINUE;
}

// Compression runs on one thread per online processor, wimlib's own choice when given no count, which is
// also what wimlib-imagex does unless told otherwise: an image compresses as fast here as with the tool.
// Decompression always runs on the calling thread.
constexpr unsigned kWimlibsThreadCount = 0;

int CompressionOf(DWORD compression) {
    switch (compression) {
        case WIM_COMPRESS_NONE: return WIMLIB_COMPRESSION_TYPE_NONE;
        case WIM_COMPRESS_XPRESS: return WIMLIB_COMPRESSION_TYPE_XPRESS;
        case WIM_COMPRESS_LZX: return WIMLIB_COMPRESSION_TYPE_LZX;
        case WIM_COMPRESS_LZMS: return WIMLIB_COMPRESSION_TYPE_LZMS;
        default: return -1;
    }
}

// Opens an image file that exists; null with the last error set.
WimPointer OpenWim(const std::string& hostPath, bool writable) {
    WIMStruct* wim = nullptr;
    const int code = wimlib_open_wim(hostPath.c_str(), writable ? WIMLIB_OPEN_FLAG_WRITE_ACCESS : 0, &wim);
    if (code != WIMLIB_ERR_SUCCESS) {
        SetLastErrorCode(Win32ErrorFromWimlib(code, errno));
        return nullptr;
    }
    return WimPointer(wim);
}

// Writes a new image file holding no image, so that the file exists from the moment it is created.
bool WriteEmptyWim(const std::string& hostPath, int compression) {
    WIMStruct* made = nullptr;
    int code = wimlib_create_new_wim(static_cast<enum wimlib_compression_type>(compression), &made);
    if (code != WIMLIB_ERR_SUCCESS) return FailWimlib(code, false);
    WimPointer wim(made);
    code = wimlib_write(wim.get(), hostPath.c_str(), WIMLIB_ALL_IMAGES, 0, kWimlibsThreadCount);
    if (code != WIMLIB_ERR_SUCCESS) return FailWimlib(code, false);
    return true;
}

int ImageCount(WIMStruct* wim) {
    struct wimlib_wim_info info {};
    wimlib_get_wim_info(wim, &info);
    return static_cast<int>(info.image_count);
}

// Empties a folder, leaving the folder itself.
void EmptyFolder(const std::string& hostFolder) {
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(hostFolder, ignored)) fs::remove_all(entry.path(), ignored);
}

// ---- The mount table

struct MountRecord {
    std::string imagePath;
    int index = 0;
    bool writable = false;
};

std::string MountTableFolder() {
    const char* temporary = std::getenv("TMPDIR");
    const std::string base = temporary != nullptr && *temporary == '/' ? temporary : "/tmp";
    return base + "/velmora-wim-mounts-" + std::to_string(geteuid());
}

std::string MountRecordPath(const std::string& hostFolder) {
    std::ostringstream name;
    name << std::hex << std::hash<std::string>()(hostFolder);
    return MountTableFolder() + "/" + name.str();
}

bool ReadMountRecord(const std::string& hostFolder, MountRecord& record) {
    std::ifstream in(MountRecordPath(hostFolder));
    std::string folder;
    if (!std::getline(in, folder) || folder != hostFolder) return false;
    int writable = 0;
    if (!std::getline(in, record.imagePath) || !(in >> record.index >> writable)) return false;
    record.writable = writable != 0;
    return true;
}

bool WriteMountRecord(const std::string& hostFolder, const MountRecord& record) {
    std::error_code error;
    fs::create_directories(MountTableFolder(), error);
    std::ofstream out(MountRecordPath(hostFolder), std::ios::trunc);
    out << hostFolder << "\n" << record.imagePath << "\n" << record.index << " " << (record.writable ? 1 : 0) << "\n";
    return static_cast<bool>(out);
}

// Replaces the whole contents of image index by the tree under hostFolder, keeping its place and name.
int ReplaceImageContents(WIMStruct* wim, int index, const std::string& hostFolder) {
    std::vector<std::string> children;
    int code = wimlib_iterate_dir_tree(
        wim, index, WIMLIB_WIM_ROOT_PATH, WIMLIB_ITERATE_DIR_TREE_FLAG_CHILDREN,
        [](const struct wimlib_dir_entry* entry, void* context) {
            static_cast<std::vector<std::string>*>(context)->push_back(entry->full_path);
            return 0;
        },
        &children);
    if (code != WIMLIB_ERR_SUCCESS) return code;
    std::vector<struct wimlib_update_command> commands(children.size() + 1);
    for (size_t at = 0; at < children.size(); ++at) {
        commands[at].op = WIMLIB_UPDATE_OP_DELETE;
        commands[at].delete_.wim_path = children[at].data();
        commands[at].delete_.delete_flags = WIMLIB_DELETE_FLAG_RECURSIVE;
    }
    std::string source = hostFolder;
    std::string root = WIMLIB_WIM_ROOT_PATH;
    struct wimlib_update_command& add = commands.back();
    add.op = WIMLIB_UPDATE_OP_ADD;
    add.add.fs_source_path = source.data();
    add.add.wim_target_path = root.data();
    add.add.config_file = nullptr;
    add.add.add_flags = WIMLIB_ADD_FLAG_UNIX_DATA;
    code = wimlib_update_image(wim, index, commands.data(), commands.size(), 0);
    if (code != WIMLIB_ERR_SUCCESS) return code;
    return wimlib_overwrite(wim, 0, kWimlibsThreadCount);
}

}  // namespace

HANDLE WINAPI WIMCreateFile(PCWSTR path, DWORD access, DWORD disposition, DWORD flags, DWORD compression, PDWORD creationResult) {
    InitialiseWimlib();
    ResolvedPath resolved;
    if (!HostPathOf(path, resolved)) return nullptr;
    if (resolved.exists && S_ISDIR(resolved.status.st_mode)) return Fail(ERROR_ACCESS_DENIED, static_cast<HANDLE>(nullptr));
    const bool writable = (access & WIM_GENERIC_WRITE) != 0;
    bool create = false;
    switch (disposition) {
        case WIM_CREATE_NEW:
            if (resolved.exists) return Fail(ERROR_FILE_EXISTS, static_cast<HANDLE>(nullptr));
            create = true;
            break;
        case WIM_CREATE_ALWAYS: create = true; break;
        case WIM_OPEN_EXISTING:
            if (!resolved.exists) return Fail(ERROR_FILE_NOT_FOUND, static_cast<HANDLE>(nullptr));
            break;
        case WIM_OPEN_ALWAYS: create = !resolved.exists; break;
        default: return Fail(ERROR_INVALID_PARAMETER, static_cast<HANDLE>(nullptr));
    }
    if (create) {
        // A file is only made by a writer, and in a compression the imaging library knows.
        const int type = CompressionOf(compression);
        if (!writable || type < 0) return Fail(ERROR_INVALID_PARAMETER, static_cast<HANDLE>(nullptr));
        if (!WriteEmptyWim(resolved.hostPath, type)) return nullptr;
    }
    auto file = std::make_shared<WimFile>();
    file->wim = OpenWim(resolved.hostPath, writable);
    if (!file->wim) return nullptr;
    file->hostPath = resolved.hostPath;
    file->writable = writable;
    if (creationResult != nullptr) *creationResult = create ? WIM_CREATED_NEW : WIM_OPENED_EXISTING;
    SetLastErrorCode(create || disposition != WIM_OPEN_ALWAYS ? ERROR_SUCCESS : ERROR_ALREADY_EXISTS);
    return InsertHandle(file);
}

BOOL WINAPI WIMCloseHandle(HANDLE handle) {
    if (RemoveHandleOf<WimImage>(handle) || RemoveHandleOf<WimFile>(handle)) return TRUE;
    return Fail(ERROR_INVALID_HANDLE, FALSE);
}

BOOL WINAPI WIMSetTemporaryPath(HANDLE wim, PCWSTR path) {
    auto file = LookupHandleAs<WimFile>(wim);
    if (!file) return Fail(ERROR_INVALID_HANDLE, FALSE);
    ResolvedPath resolved;
    if (!HostPathOf(path, resolved)) return FALSE;
    if (!resolved.exists) return Fail(ERROR_PATH_NOT_FOUND, FALSE);
    if (!S_ISDIR(resolved.status.st_mode)) return Fail(ERROR_DIRECTORY, FALSE);
    file->temporaryFolder = resolved.hostPath;
    return TRUE;
}

DWORD WINAPI WIMRegisterMessageCallback(HANDLE wim, FARPROC callback, PVOID userData) {
    auto file = LookupHandleAs<WimFile>(wim);
    if (!file) return Fail(ERROR_INVALID_HANDLE, static_cast<DWORD>(INVALID_CALLBACK_VALUE));
    if (callback == nullptr) return Fail(ERROR_INVALID_PARAMETER, static_cast<DWORD>(INVALID_CALLBACK_VALUE));
    file->callbacks.push_back({reinterpret_cast<WimMessageCallbackFunction>(reinterpret_cast<void (*)()>(callback)), userData});
    return static_cast<DWORD>(file->callbacks.size() - 1);
}

BOOL WINAPI WIMUnregisterMessageCallback(HANDLE wim, FARPROC callback) {
    auto file = LookupHandleAs<WimFile>(wim);
    if (!file) return Fail(ERROR_INVALID_HANDLE, FALSE);
    auto& callbacks = file->callbacks;
    const auto function = reinterpret_cast<WimMessageCallbackFunction>(reinterpret_cast<void (*)()>(callback));
    // A null callback takes every one away. One that is not registered is no failure and leaves the last
    // error alone: callers unregister on every way out, registered or not, after the failure they report.
    std::erase_if(callbacks, [&](const RegisteredCallback& registered) { return callback == nullptr || registered.callback == function; });
    return TRUE;
}

HANDLE WINAPI WIMCaptureImage(HANDLE wim, PCWSTR path, DWORD captureFlags) {
    auto file = LookupHandleAs<WimFile>(wim);
    if (!file) return Fail(ERROR_INVALID_HANDLE, static_cast<HANDLE>(nullptr));
    if (!file->writable) return Fail(ERROR_ACCESS_DENIED, static_cast<HANDLE>(nullptr));
    ResolvedPath source;
    if (!HostPathOf(path, source)) return nullptr;
    if (!source.exists) return Fail(ERROR_PATH_NOT_FOUND, static_cast<HANDLE>(nullptr));
    if (!S_ISDIR(source.status.st_mode)) return Fail(ERROR_DIRECTORY, static_cast<HANDLE>(nullptr));

    Messenger messenger(*file, source.win32Path());
    ProgressContext context{&messenger, [&](enum wimlib_progress_msg message, union wimlib_progress_info* info) {
        if (message == WIMLIB_PROGRESS_MSG_TEST_FILE_EXCLUSION) {
            std::string_view entry = info->test_file_exclusion.path;
            if (entry == source.hostPath) return;  // the root is the image itself
            if (entry.starts_with(source.hostPath)) entry.remove_prefix(source.hostPath.size());
            BOOL process = TRUE;
            messenger.Send(WIM_MSG_PROCESS, reinterpret_cast<WPARAM>(messenger.WindowsPath(entry)), reinterpret_cast<LPARAM>(&process));
            info->test_file_exclusion.will_exclude = process == FALSE;
        } else if (message == WIMLIB_PROGRESS_MSG_WRITE_STREAMS) {
            messenger.Progress(info->write_streams.completed_bytes, info->write_streams.total_bytes);
        }
    }};
    wimlib_register_progress_function(file->wim.get(), ForwardProgress, &context);
    const int flags = WIMLIB_ADD_FLAG_UNIX_DATA | (messenger.silent() ? 0 : WIMLIB_ADD_FLAG_TEST_FILE_EXCLUSION);
    int code = wimlib_add_image(file->wim.get(), source.hostPath.c_str(), nullptr, nullptr, flags);
    if (code == WIMLIB_ERR_SUCCESS) {
        code = wimlib_overwrite(file->wim.get(), 0, kWimlibsThreadCount);
        if (code != WIMLIB_ERR_SUCCESS) wimlib_delete_image(file->wim.get(), ImageCount(file->wim.get()));
    }
    wimlib_register_progress_function(file->wim.get(), nullptr, nullptr);
    if (code != WIMLIB_ERR_SUCCESS) return FailWimlib(code, static_cast<HANDLE>(nullptr));
    (void)captureFlags;  // verification and the other capture flags change nothing that is kept here
    messenger.Progress(1, 1, true);
    auto image = std::make_shared<WimImage>();
    image->file = file;
    image->index = ImageCount(file->wim.get());
    SetLastErrorCode(ERROR_SUCCESS);
    return InsertHandle(image);
}

HANDLE WINAPI WIMLoadImage(HANDLE wim, DWORD index) {
    auto file = LookupHandleAs<WimFile>(wim);
    if (!file) return Fail(ERROR_INVALID_HANDLE, static_cast<HANDLE>(nullptr));
    if (index == 0 || index > static_cast<DWORD>(ImageCount(file->wim.get())))
        return Fail(ERROR_INVALID_PARAMETER, static_cast<HANDLE>(nullptr));
    auto image = std::make_shared<WimImage>();
    image->file = file;
    image->index = static_cast<int>(index);
    return InsertHandle(image);
}

BOOL WINAPI WIMApplyImage(HANDLE imageHandle, PCWSTR path, DWORD applyFlags) {
    auto image = LookupHandleAs<WimImage>(imageHandle);
    if (!image) return Fail(ERROR_INVALID_HANDLE, FALSE);
    ResolvedPath target;
    if (!HostPathOf(path, target)) return FALSE;
    if (target.exists && !S_ISDIR(target.status.st_mode)) return Fail(ERROR_DIRECTORY, FALSE);
    if (applyFlags & WIM_FLAG_NO_APPLY) return TRUE;
    WIMStruct* wim = image->file->wim.get();

    // The entries to name, listed before the apply so that each can be named as its turn comes. Only what
    // a message needs is kept, in the image's own UTF-8: the Windows path and the find data are made as
    // the entry is named, so that a large image's listing stays small.
    struct Entry {
        std::string path;
        VolumeEntry facts;
    };
    Messenger messenger(*image->file, target.win32Path());
    std::vector<Entry> entries;
    if ((applyFlags & WIM_FLAG_FILEINFO) && !messenger.silent()) {
        const int code = wimlib_iterate_dir_tree(
            wim, image->index, WIMLIB_WIM_ROOT_PATH, WIMLIB_ITERATE_DIR_TREE_FLAG_RECURSIVE,
            [](const struct wimlib_dir_entry* dentry, void* into) {
                if (dentry->depth == 0) return 0;
                const auto time = [](const struct wimlib_timespec& stamp) {
                    return FileTimeFromTimespec(timespec{static_cast<time_t>(stamp.tv_sec), stamp.tv_nsec});
                };
                Entry entry;
                entry.path = dentry->full_path;
                entry.facts.attributes = dentry->attributes;
                entry.facts.created = time(dentry->creation_time);
                entry.facts.accessed = time(dentry->last_access_time);
                entry.facts.written = time(dentry->last_write_time);
                entry.facts.size = dentry->streams[0].resource.uncompressed_size;
                static_cast<std::vector<Entry>*>(into)->push_back(std::move(entry));
                return 0;
            },
            &entries);
        if (code != WIMLIB_ERR_SUCCESS) return FailWimlib(code, FALSE);
    }
    size_t named = 0;
    WIN32_FIND_DATAW data;
    const auto nameUpTo = [&](size_t count) {
        for (; named < std::min(count, entries.size()) && !messenger.aborted(); ++named) {
            const Entry& entry = entries[named];
            const LPCWSTR windowsPath = messenger.WindowsPath(entry.path);
            FillFindData(entry.facts, messenger.LastName(), data);
            messenger.Send(WIM_MSG_FILEINFO, reinterpret_cast<WPARAM>(windowsPath), reinterpret_cast<LPARAM>(&data));
        }
    };
    ProgressContext context{&messenger, [&](enum wimlib_progress_msg message, union wimlib_progress_info* info) {
        if (message == WIMLIB_PROGRESS_MSG_EXTRACT_FILE_STRUCTURE && info->extract.end_file_count != 0) {
            nameUpTo(static_cast<size_t>(info->extract.current_file_count * entries.size() / info->extract.end_file_count));
        } else if (message == WIMLIB_PROGRESS_MSG_EXTRACT_STREAMS) {
            nameUpTo(entries.size());
            messenger.Progress(info->extract.completed_bytes, info->extract.total_bytes);
        }
    }};
    wimlib_register_progress_function(wim, ForwardProgress, &context);
    const int code = wimlib_extract_image(wim, image->index, target.hostPath.c_str(), WIMLIB_EXTRACT_FLAG_UNIX_DATA);
    wimlib_register_progress_function(wim, nullptr, nullptr);
    if (code != WIMLIB_ERR_SUCCESS) return FailWimlib(code, FALSE);
    nameUpTo(entries.size());
    messenger.Progress(1, 1, true);
    return TRUE;
}

BOOL WINAPI WIMMountImage(PCWSTR mountPath, PCWSTR wimPath, DWORD index, PCWSTR tempPath) {
    InitialiseWimlib();
    ResolvedPath folder, imageFile;
    if (!HostPathOf(mountPath, folder) || !HostPathOf(wimPath, imageFile)) return FALSE;
    if (!folder.exists) return Fail(ERROR_PATH_NOT_FOUND, FALSE);
    if (!S_ISDIR(folder.status.st_mode)) return Fail(ERROR_DIRECTORY, FALSE);
    std::error_code error;
    if (!fs::is_empty(folder.hostPath, error)) return Fail(ERROR_DIR_NOT_EMPTY, FALSE);
    MountRecord record;
    if (ReadMountRecord(folder.hostPath, record)) return Fail(ERROR_ALREADY_EXISTS, FALSE);
    if (tempPath != nullptr) {
        ResolvedPath temporary;
        if (!HostPathOf(tempPath, temporary)) return FALSE;
        if (!temporary.exists || !S_ISDIR(temporary.status.st_mode)) return Fail(ERROR_PATH_NOT_FOUND, FALSE);
    }
    if (!imageFile.exists) return Fail(ERROR_FILE_NOT_FOUND, FALSE);
    WimPointer wim = OpenWim(imageFile.hostPath, false);
    if (!wim) return FALSE;
    if (index == 0 || index > static_cast<DWORD>(ImageCount(wim.get()))) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    const int code = wimlib_extract_image(wim.get(), static_cast<int>(index), folder.hostPath.c_str(), WIMLIB_EXTRACT_FLAG_UNIX_DATA);
    if (code != WIMLIB_ERR_SUCCESS) {
        const DWORD failure = Win32ErrorFromWimlib(code, errno);
        EmptyFolder(folder.hostPath);  // a half-written mount is no mount
        return Fail(failure, FALSE);
    }
    record = MountRecord{imageFile.hostPath, static_cast<int>(index), tempPath != nullptr};
    if (!WriteMountRecord(folder.hostPath, record)) {
        EmptyFolder(folder.hostPath);
        return Fail(ERROR_WRITE_FAULT, FALSE);
    }
    return TRUE;
}

BOOL WINAPI WIMUnmountImage(PCWSTR mountPath, PCWSTR wimPath, DWORD index, BOOL commit) {
    InitialiseWimlib();
    ResolvedPath folder, imageFile;
    if (!HostPathOf(mountPath, folder) || !HostPathOf(wimPath, imageFile)) return FALSE;
    MountRecord record;
    // Only a folder that holds this very mount is emptied: anything else is not ours to touch.
    if (!ReadMountRecord(folder.hostPath, record) || record.imagePath != imageFile.hostPath ||
        record.index != static_cast<int>(index))
        return Fail(ERROR_INVALID_PARAMETER, FALSE);
    if (commit && record.writable) {
        WimPointer wim = OpenWim(imageFile.hostPath, true);
        if (!wim) return FALSE;  // the mount stays, so that the changes are not lost
        const int code = ReplaceImageContents(wim.get(), record.index, folder.hostPath);
        if (code != WIMLIB_ERR_SUCCESS) return FailWimlib(code, FALSE);
    }
    EmptyFolder(folder.hostPath);
    std::error_code ignored;
    fs::remove(MountRecordPath(folder.hostPath), ignored);
    return TRUE;
}

namespace {

const SystemModule g_wimgapi(u"wimgapi.dll", {{
                                                  {"WIMCreateFile", EntryPoint(WIMCreateFile)},
                                                  {"WIMCloseHandle", EntryPoint(WIMCloseHandle)},
                                                  {"WIMSetTemporaryPath", EntryPoint(WIMSetTemporaryPath)},
                                                  {"WIMRegisterMessageCallback", EntryPoint(WIMRegisterMessageCallback)},
                                                  {"WIMUnregisterMessageCallback", EntryPoint(WIMUnregisterMessageCallback)},
                                                  {"WIMCaptureImage", EntryPoint(WIMCaptureImage)},
                                                  {"WIMLoadImage", EntryPoint(WIMLoadImage)},
                                                  {"WIMApplyImage", EntryPoint(WIMApplyImage)},
                                                  {"WIMMountImage", EntryPoint(WIMMountImage)},
                                                  {"WIMUnmountImage", EntryPoint(WIMUnmountImage)},
                                              },
                                              0});

}  // namespace

}  // namespace vlx
