// Zip archives on libzip: listing, compression in place through the caller's open file, and extraction
// through a staging folder.
#include "zip_archive.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <vector>

#include "../core/internal.h"

namespace vlx {

namespace {

constexpr size_t kCopyBlock = 1 << 20;
const BYTE kEmptyArchive[22] = {0x50, 0x4B, 0x05, 0x06};

DWORD ErrorFromZip(const zip_error_t* error) {
    switch (zip_error_code_zip(error)) {
        case ZIP_ER_NOENT: return ERROR_FILE_NOT_FOUND;
        case ZIP_ER_MEMORY: return ERROR_NOT_ENOUGH_MEMORY;
        case ZIP_ER_READ:
        case ZIP_ER_WRITE:
        case ZIP_ER_OPEN:
        case ZIP_ER_TMPOPEN:
        case ZIP_ER_SEEK:
        case ZIP_ER_CLOSE:
            return zip_error_code_system(error) != 0 ? Win32ErrorFromErrno(zip_error_code_system(error)) : ERROR_GEN_FAILURE;
        case ZIP_ER_CANCELLED: return ERROR_CANCELLED;
        default: return ERROR_FILE_CORRUPT;
    }
}

// ---- The archive as a libzip source over the caller's open file.
//
// libzip's own file source writes a new file and renames it over the old one on close, which would end the
// caller's exclusive hold and break hard links to the archive. This source reads the old archive through
// the caller's descriptor and keeps what libzip writes in a temporary file until commit, then copies it
// over the old bytes through the same descriptor. With cloning, libzip keeps the unchanged head of the
// archive, so adding to a large archive rewrites only its tail.
class HandleSource {
public:
    HandleSource(int fd, std::string folder) : fd_(fd), folder_(std::move(folder)) { zip_error_init(&error_); }
    ~HandleSource() {
        CloseTemporary();
        zip_error_fini(&error_);
    }
    HandleSource(const HandleSource&) = delete;
    HandleSource& operator=(const HandleSource&) = delete;

    static zip_int64_t Callback(void* state, void* data, zip_uint64_t length, zip_source_cmd_t command) {
        return static_cast<HandleSource*>(state)->Serve(data, length, command);
    }

private:
    zip_int64_t Failed(int zipError, int systemError) {
        zip_error_set(&error_, zipError, systemError);
        return -1;
    }

    zip_uint64_t Size() const {
        struct stat status {};
        return fstat(fd_, &status) == 0 ? static_cast<zip_uint64_t>(status.st_size) : 0;
    }

    bool OpenTemporary() {
        CloseTemporary();
        temporary_ = open(folder_.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
        if (temporary_ < 0) temporary_ = open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
        writePosition_ = writeEnd_ = 0;
        return temporary_ >= 0;
    }
    void CloseTemporary() {
        if (temporary_ >= 0) close(temporary_);
        temporary_ = -1;
    }

    zip_int64_t Commit() {
        std::vector<BYTE> block(kCopyBlock);
        for (zip_uint64_t done = 0; done < writeEnd_;) {
            const size_t want = static_cast<size_t>(std::min<zip_uint64_t>(block.size(), writeEnd_ - done));
            const ssize_t got = pread(temporary_, block.data(), want, static_cast<off_t>(done));
            if (got <= 0) return Failed(ZIP_ER_READ, got < 0 ? errno : EIO);
            if (pwrite(fd_, block.data(), static_cast<size_t>(got), static_cast<off_t>(writeBase_ + done)) != got)
                return Failed(ZIP_ER_WRITE, errno);
            done += static_cast<zip_uint64_t>(got);
        }
        if (ftruncate(fd_, static_cast<off_t>(writeBase_ + writeEnd_)) != 0) return Failed(ZIP_ER_WRITE, errno);
        CloseTemporary();
        return 0;
    }

    zip_int64_t Serve(void* data, zip_uint64_t length, zip_source_cmd_t command) {
        switch (command) {
            case ZIP_SOURCE_OPEN: readPosition_ = 0; return 0;
            case ZIP_SOURCE_READ: {
                const ssize_t got = pread(fd_, data, static_cast<size_t>(length), static_cast<off_t>(readPosition_));
                if (got < 0) return Failed(ZIP_ER_READ, errno);
                readPosition_ += static_cast<zip_uint64_t>(got);
                return got;
            }
            case ZIP_SOURCE_CLOSE: return 0;
            case ZIP_SOURCE_STAT: {
                auto* status = static_cast<zip_stat_t*>(data);
                zip_stat_init(status);
                status->size = Size();
                status->valid |= ZIP_STAT_SIZE;
                return sizeof(zip_stat_t);
            }
            case ZIP_SOURCE_SEEK: {
                const zip_int64_t target = zip_source_seek_compute_offset(readPosition_, Size(), data, length, &error_);
                if (target < 0) return -1;
                readPosition_ = static_cast<zip_uint64_t>(target);
                return 0;
            }
            case ZIP_SOURCE_TELL: return static_cast<zip_int64_t>(readPosition_);
            case ZIP_SOURCE_ERROR: return zip_error_to_data(&error_, data, length);
            case ZIP_SOURCE_FREE: return 0;
            case ZIP_SOURCE_ACCEPT_EMPTY: return 1;
            case ZIP_SOURCE_BEGIN_WRITE:
            case ZIP_SOURCE_BEGIN_WRITE_CLONING:
                // For cloning, length is how much of the old archive stays as it is.
                writeBase_ = command == ZIP_SOURCE_BEGIN_WRITE_CLONING ? length : 0;
                return OpenTemporary() ? 0 : Failed(ZIP_ER_TMPOPEN, errno);
            case ZIP_SOURCE_WRITE: {
                const ssize_t put = pwrite(temporary_, data, static_cast<size_t>(length), static_cast<off_t>(writePosition_));
                if (put < 0) return Failed(ZIP_ER_WRITE, errno);
                writePosition_ += static_cast<zip_uint64_t>(put);
                writeEnd_ = std::max(writeEnd_, writePosition_);
                return put;
            }
            case ZIP_SOURCE_SEEK_WRITE: {
                const zip_int64_t target =
                    zip_source_seek_compute_offset(writeBase_ + writePosition_, writeBase_ + writeEnd_, data, length, &error_);
                if (target < 0) return -1;
                if (static_cast<zip_uint64_t>(target) < writeBase_) return Failed(ZIP_ER_INVAL, 0);
                writePosition_ = static_cast<zip_uint64_t>(target) - writeBase_;
                return 0;
            }
            case ZIP_SOURCE_TELL_WRITE: return static_cast<zip_int64_t>(writeBase_ + writePosition_);
            case ZIP_SOURCE_COMMIT_WRITE: return Commit();
            case ZIP_SOURCE_ROLLBACK_WRITE: CloseTemporary(); return 0;
            case ZIP_SOURCE_REMOVE:
                // An archive left without entries stays as the empty archive it started as.
                if (ftruncate(fd_, 0) != 0 || pwrite(fd_, kEmptyArchive, sizeof kEmptyArchive, 0) != sizeof kEmptyArchive)
                    return Failed(ZIP_ER_WRITE, errno);
                return 0;
            case ZIP_SOURCE_SUPPORTS:
                return zip_source_make_command_bitmap(
                    ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE, ZIP_SOURCE_STAT, ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE,
                    ZIP_SOURCE_SEEK, ZIP_SOURCE_TELL, ZIP_SOURCE_SUPPORTS, ZIP_SOURCE_ACCEPT_EMPTY, ZIP_SOURCE_BEGIN_WRITE,
                    ZIP_SOURCE_BEGIN_WRITE_CLONING, ZIP_SOURCE_WRITE, ZIP_SOURCE_SEEK_WRITE, ZIP_SOURCE_TELL_WRITE,
                    ZIP_SOURCE_COMMIT_WRITE, ZIP_SOURCE_ROLLBACK_WRITE, ZIP_SOURCE_REMOVE, -1);
            default: return Failed(ZIP_ER_OPNOTSUPP, 0);
        }
    }

    int fd_;
    std::string folder_;
    zip_error_t error_;
    zip_uint64_t readPosition_ = 0;
    int temporary_ = -1;
    zip_uint64_t writeBase_ = 0, writePosition_ = 0, writeEnd_ = 0;
};

struct ZipCloser {
    void operator()(zip_t* archive) const { zip_discard(archive); }
};
using OpenArchive = std::unique_ptr<zip_t, ZipCloser>;

// ---- Compression

class Compression {
public:
    Compression(zip_t* archive, const ReplaceQuestion& askReplace) : archive_(archive), askReplace_(askReplace) {}

    // ERROR_SUCCESS, ERROR_CANCELLED when the user stopped, or the error of a source that cannot be read.
    DWORD Add(const std::string& hostPath, const std::string& name) {
        struct stat status {};
        if (stat(hostPath.c_str(), &status) != 0) return Win32ErrorFromErrno(errno);
        if (!S_ISDIR(status.st_mode)) return AddFile(hostPath, name);
        // Every folder gets its own entry, so empty ones come back out and other tools recreate the tree.
        const std::string folderName = name + "/";
        if (zip_name_locate(archive_, folderName.c_str(), 0) < 0 &&
            zip_dir_add(archive_, folderName.c_str(), ZIP_FL_ENC_UTF_8) < 0)
            return ErrorFromZip(zip_get_error(archive_));
        struct stat link {};
        if (lstat(hostPath.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) return ERROR_SUCCESS;  // a link to a folder is not entered
        std::vector<std::string> names;
        if (!HostFolderNames(hostPath, names)) return Win32ErrorFromErrno(errno);
        for (const std::string& entryName : names) {
            if (const DWORD error = Add(hostPath + "/" + entryName, folderName + entryName); error != ERROR_SUCCESS) return error;
        }
        return ERROR_SUCCESS;
    }

private:
    DWORD AddFile(const std::string& hostPath, const std::string& name) {
        const zip_int64_t existing = zip_name_locate(archive_, name.c_str(), 0);
        if (existing >= 0) {
            const int answer = askReplace_(WStrFromUtf8(name));
            if (answer == IDNO) return ERROR_SUCCESS;
            if (answer != IDYES) return ERROR_CANCELLED;
        }
        zip_error_t error;
        zip_error_init(&error);
        zip_source_t* data = zip_source_file_create(hostPath.c_str(), 0, -1, &error);
        if (data == nullptr) {
            const DWORD code = ErrorFromZip(&error);
            zip_error_fini(&error);
            return code;
        }
        zip_error_fini(&error);
        const zip_int64_t placed = existing >= 0 ? (zip_file_replace(archive_, static_cast<zip_uint64_t>(existing), data, 0) == 0 ? existing : -1)
                                                 : zip_file_add(archive_, name.c_str(), data, ZIP_FL_ENC_UTF_8);
        if (placed < 0) {
            zip_source_free(data);
            return ErrorFromZip(zip_get_error(archive_));
        }
        return ERROR_SUCCESS;
    }

    zip_t* archive_;
    const ReplaceQuestion& askReplace_;
};

void ReportProgress(zip_t*, double done, void* state) {
    (*static_cast<const std::function<void(int)>*>(state))(static_cast<int>(done * 100));
}

// ---- Extraction

bool IsBadComponent(const std::string& part) {
    if (part == "..") return true;
    for (const char c : part) {
        const auto unit = static_cast<unsigned char>(c);
        if (unit < 0x20 || c == ':' || c == '<' || c == '>' || c == '"' || c == '|' || c == '?' || c == '*') return true;
    }
    return false;
}

// The parts of an entry's name, or false for a name that would leave the destination or that Windows
// could not hold. Backslashes count as separators, as archives made on Windows may use them.
bool SplitEntryName(std::string name, std::vector<std::string>& parts) {
    std::replace(name.begin(), name.end(), '\\', '/');
    if (name.empty() || name[0] == '/') return false;
    size_t start = 0;
    while (start <= name.size()) {
        size_t end = name.find('/', start);
        if (end == std::string::npos) end = name.size();
        const std::string part = name.substr(start, end - start);
        if (!part.empty() && part != ".") {
            if (IsBadComponent(part)) return false;
            parts.push_back(part);
        }
        start = end + 1;
    }
    return !parts.empty();
}

std::string Join(const std::vector<std::string>& parts, size_t count) {
    std::string path;
    for (size_t at = 0; at < count; ++at) path += (at == 0 ? "" : "/") + parts[at];
    return path;
}

// The name on disk of the entry of a host folder that equals name without regard to case, or name itself.
std::string DiskName(const std::string& folder, const std::string& name) {
    const std::string found = FindFoldedEntry(folder, name, WStrFromUtf8(name));
    return found.empty() ? name : found;
}

DWORD WriteEntry(zip_t* archive, zip_uint64_t index, const std::string& target) {
    zip_file_t* entry = zip_fopen_index(archive, index, 0);
    if (entry == nullptr) return ErrorFromZip(zip_get_error(archive));
    const int out = open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (out < 0) {
        const int error = errno;
        zip_fclose(entry);
        return Win32ErrorFromErrno(error);
    }
    std::vector<char> block(kCopyBlock);
    DWORD result = ERROR_SUCCESS;
    for (;;) {
        // libzip checks the entry's CRC when the last byte has been read, and fails that read.
        const zip_int64_t got = zip_fread(entry, block.data(), block.size());
        if (got < 0) {
            result = ErrorFromZip(zip_file_get_error(entry));
            break;
        }
        if (got == 0) break;
        if (write(out, block.data(), static_cast<size_t>(got)) != got) {
            result = Win32ErrorFromErrno(errno);
            break;
        }
    }
    zip_fclose(entry);
    zip_stat_t status;
    if (result == ERROR_SUCCESS && zip_stat_index(archive, index, 0, &status) == 0 && (status.valid & ZIP_STAT_MTIME)) {
        const struct timespec times[2] = {{status.mtime, 0}, {status.mtime, 0}};
        futimens(out, times);
    }
    close(out);
    return result;
}

// Moves the staged tree into the destination, folder into folder, asking before a file replaces another.
DWORD MoveIntoPlace(const std::string& staged, const std::string& destination, const std::string& relative,
                    const ReplaceQuestion& askReplace) {
    std::vector<std::string> names;
    if (!HostFolderNames(staged, names)) return Win32ErrorFromErrno(errno);
    for (const std::string& name : names) {
        const std::string from = staged + "/" + name;
        const std::string to = destination + "/" + DiskName(destination, name);
        const std::string shown = relative.empty() ? name : relative + "/" + name;
        struct stat source {}, target {};
        lstat(from.c_str(), &source);
        const bool targetExists = lstat(to.c_str(), &target) == 0;
        if (S_ISDIR(source.st_mode)) {
            if (!targetExists) {
                if (rename(from.c_str(), to.c_str()) != 0) return Win32ErrorFromErrno(errno);
                continue;
            }
            if (!S_ISDIR(target.st_mode)) return ERROR_ALREADY_EXISTS;
            if (const DWORD error = MoveIntoPlace(from, to, shown, askReplace); error != ERROR_SUCCESS) return error;
            continue;
        }
        if (targetExists) {
            if (S_ISDIR(target.st_mode)) return ERROR_ALREADY_EXISTS;
            const int answer = askReplace(WStrFromUtf8(shown));
            if (answer == IDNO) continue;
            if (answer != IDYES) return ERROR_CANCELLED;
        }
        if (rename(from.c_str(), to.c_str()) != 0) return Win32ErrorFromErrno(errno);
    }
    return ERROR_SUCCESS;
}

}  // namespace

bool HostFolderNames(const std::string& folder, std::vector<std::string>& names) {
    DIR* listing = opendir(folder.c_str());
    if (listing == nullptr) return false;
    while (const dirent* entry = readdir(listing)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    closedir(listing);
    std::sort(names.begin(), names.end());
    return true;
}

bool ListZipTop(const std::string& archiveHostPath, std::vector<ZipTopItem>& items) {
    int error = 0;
    zip_t* opened = zip_open(archiveHostPath.c_str(), ZIP_RDONLY, &error);
    if (opened == nullptr) return false;
    OpenArchive archive(opened);
    const zip_int64_t count = zip_get_num_entries(archive.get(), 0);
    for (zip_int64_t index = 0; index < count; ++index) {
        const char* raw = zip_get_name(archive.get(), static_cast<zip_uint64_t>(index), ZIP_FL_ENC_GUESS);
        if (raw == nullptr) continue;
        std::vector<std::string> parts;
        const std::string name = raw;
        if (!SplitEntryName(name, parts)) continue;
        const bool folder = parts.size() > 1 || name.back() == '/' || name.back() == '\\';
        const WString top = WStrFromUtf8(parts[0]);
        const auto same = std::find_if(items.begin(), items.end(), [&](const ZipTopItem& item) { return NamesEqualNoCase(item.name, top); });
        if (same == items.end()) items.push_back({top, folder});
        else same->folder = same->folder || folder;
    }
    return true;
}

DWORD CompressIntoZip(int fd, const std::string& archiveHostPath, const std::vector<ZipSource>& sources,
                      const ReplaceQuestion& askReplace, const std::function<void(int percent)>& progress) {
    HandleSource state(fd, std::filesystem::path(archiveHostPath).parent_path().string());
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* source = zip_source_function_create(&HandleSource::Callback, &state, &error);
    if (source == nullptr) {
        zip_error_fini(&error);
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    zip_t* opened = zip_open_from_source(source, ZIP_CREATE, &error);
    if (opened == nullptr) {
        zip_source_free(source);
        const DWORD code = ErrorFromZip(&error);
        zip_error_fini(&error);
        return code;
    }
    zip_error_fini(&error);
    OpenArchive archive(opened);
    Compression compression(archive.get(), askReplace);
    for (const ZipSource& item : sources) {
        if (const DWORD failed = compression.Add(item.hostPath, WStrToUtf8(item.name)); failed != ERROR_SUCCESS) return failed;
    }
    if (progress) zip_register_progress_callback_with_state(archive.get(), 0.01, ReportProgress, nullptr,
                                                            const_cast<std::function<void(int)>*>(&progress));
    if (zip_close(archive.get()) != 0) return ErrorFromZip(zip_get_error(archive.get()));
    archive.release();
    return ERROR_SUCCESS;
}

DWORD ExtractFromZipArchive(const std::string& archiveHostPath, const std::vector<WString>& names,
                            const std::string& destinationHost, const ReplaceQuestion& askReplace) {
    int openError = 0;
    zip_t* opened = zip_open(archiveHostPath.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &openError);
    if (opened == nullptr) return openError == ZIP_ER_NOENT || openError == ZIP_ER_OPEN ? ERROR_FILE_NOT_FOUND : ERROR_FILE_CORRUPT;
    OpenArchive archive(opened);

    struct Planned {
        zip_uint64_t index;
        std::vector<std::string> parts;
        bool folder;
    };
    std::vector<Planned> plan;
    const zip_int64_t count = zip_get_num_entries(archive.get(), 0);
    for (zip_int64_t index = 0; index < count; ++index) {
        const char* raw = zip_get_name(archive.get(), static_cast<zip_uint64_t>(index), ZIP_FL_ENC_GUESS);
        if (raw == nullptr) return ERROR_FILE_CORRUPT;
        const std::string name = raw;
        Planned entry{static_cast<zip_uint64_t>(index), {}, name.back() == '/' || name.back() == '\\'};
        if (!SplitEntryName(name, entry.parts)) return ERROR_BAD_PATHNAME;
        if (!names.empty() && std::none_of(names.begin(), names.end(), [&](const WString& wanted) {
                return NamesEqualNoCase(wanted, WStrFromUtf8(entry.parts[0]));
            }))
            continue;
        plan.push_back(std::move(entry));
    }

    std::string stagingPattern = destinationHost + "/.velmora-unzip-XXXXXX";
    if (mkdtemp(stagingPattern.data()) == nullptr) return Win32ErrorFromErrno(errno);
    const std::string staging = stagingPattern;
    struct RemoveStaging {
        const std::string& path;
        ~RemoveStaging() {
            std::error_code ignored;
            std::filesystem::remove_all(path, ignored);
        }
    } removeStaging{staging};

    for (const Planned& entry : plan) {
        const size_t folders = entry.folder ? entry.parts.size() : entry.parts.size() - 1;
        std::error_code made;
        std::filesystem::create_directories(staging + "/" + Join(entry.parts, folders), made);
        if (made) return Win32ErrorFromErrno(made.value());
        if (entry.folder) continue;
        const std::string target = staging + "/" + Join(entry.parts, entry.parts.size());
        struct stat existing {};
        if (lstat(target.c_str(), &existing) == 0 && S_ISDIR(existing.st_mode)) return ERROR_FILE_CORRUPT;
        if (const DWORD error = WriteEntry(archive.get(), entry.index, target); error != ERROR_SUCCESS) return error;
    }
    return MoveIntoPlace(staging, destinationHost, "", askReplace);
}

}  // namespace vlx
