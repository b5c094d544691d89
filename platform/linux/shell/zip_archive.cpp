// Zip archives on libzip: listing, compression in place through the caller's open file, and extraction
// through a staging folder.
#include "zip_archive.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>
#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
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

// ---- Files deflated side by side
//
// libzip compresses each entry on the thread that closes the archive, one after the other. Here every file
// is deflated ahead on all of the machine's cores and handed to libzip as data already compressed (a
// source that reports the deflate method, both sizes and the CRC), which libzip writes as it stands, in
// the archive's order. Small outputs stay in memory; larger ones go to an unnamed temporary file.
class DeflatePool {
public:
    struct Job {
        std::string hostPath;
        bool done = false;
        int error = 0;  // errno of a file that could not be read
        std::vector<BYTE> data;
        int spill = -1;  // the temporary file holding the output once it outgrew memory
        zip_uint64_t inputSize = 0, outputSize = 0;
        uLong crc = 0;
        time_t mtime = 0;
    };

    explicit DeflatePool(std::string temporaryFolder) : temporaryFolder_(std::move(temporaryFolder)) {}
    ~DeflatePool() {
        {
            std::lock_guard guard(lock_);
            stop_ = true;
        }
        for (std::thread& worker : workers_) worker.join();
        for (const auto& job : jobs_) {
            if (job->spill >= 0) close(job->spill);
        }
    }
    DeflatePool(const DeflatePool&) = delete;
    DeflatePool& operator=(const DeflatePool&) = delete;

    // Before Start only.
    size_t Add(std::string hostPath) {
        jobs_.push_back(std::make_unique<Job>());
        jobs_.back()->hostPath = std::move(hostPath);
        return jobs_.size() - 1;
    }
    void Start() {
        const size_t threads = std::max(1u, std::thread::hardware_concurrency());
        for (size_t at = 0; at < std::min(threads, jobs_.size()); ++at) workers_.emplace_back([this] { Work(); });
    }
    // The job once deflated; its fields are no longer written.
    const Job& Wait(size_t index) {
        std::unique_lock guard(lock_);
        finished_.wait(guard, [&] { return jobs_[index]->done; });
        return *jobs_[index];
    }

private:
    static constexpr size_t kBlock = 1 << 20;
    static constexpr size_t kKeptInMemory = 4 << 20;

    void Work() {
        std::vector<Bytef> input(kBlock), output(kBlock);
        z_stream stream{};
        const bool ready = deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) == Z_OK;
        for (;;) {
            size_t index = 0;
            {
                std::lock_guard guard(lock_);
                if (stop_ || next_ >= jobs_.size()) break;
                index = next_++;
            }
            Job& job = *jobs_[index];
            if (ready) {
                deflateReset(&stream);
                Deflate(job, stream, input, output);
            } else {
                job.error = ENOMEM;
            }
            {
                std::lock_guard guard(lock_);
                job.done = true;
            }
            finished_.notify_all();
        }
        if (ready) deflateEnd(&stream);
    }

    void Deflate(Job& job, z_stream& stream, std::vector<Bytef>& input, std::vector<Bytef>& output) {
        const int file = open(job.hostPath.c_str(), O_RDONLY | O_CLOEXEC);
        if (file < 0) {
            job.error = errno;
            return;
        }
        struct stat status {};
        if (fstat(file, &status) == 0) job.mtime = status.st_mtime;
        job.crc = crc32(0, Z_NULL, 0);
        for (bool last = false; !last && job.error == 0;) {
            const ssize_t got = read(file, input.data(), input.size());
            if (got < 0) {
                job.error = errno;
                break;
            }
            last = got == 0;
            job.crc = crc32(job.crc, input.data(), static_cast<uInt>(got));
            job.inputSize += static_cast<zip_uint64_t>(got);
            stream.next_in = input.data();
            stream.avail_in = static_cast<uInt>(got);
            do {
                stream.next_out = output.data();
                stream.avail_out = static_cast<uInt>(output.size());
                deflate(&stream, last ? Z_FINISH : Z_NO_FLUSH);
                Emit(job, output.data(), output.size() - stream.avail_out);
            } while (stream.avail_out == 0 && job.error == 0);
        }
        close(file);
    }

    void Emit(Job& job, const Bytef* bytes, size_t count) {
        if (count == 0) return;
        if (job.spill < 0 && job.data.size() + count > kKeptInMemory) {
            job.spill = open(temporaryFolder_.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
            if (job.spill < 0) job.spill = open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
            if (job.spill < 0 || write(job.spill, job.data.data(), job.data.size()) != static_cast<ssize_t>(job.data.size())) {
                job.error = errno != 0 ? errno : EIO;
                return;
            }
            std::vector<BYTE>().swap(job.data);
        }
        if (job.spill >= 0) {
            if (write(job.spill, bytes, count) != static_cast<ssize_t>(count)) job.error = errno != 0 ? errno : EIO;
        } else {
            job.data.insert(job.data.end(), bytes, bytes + count);
        }
        job.outputSize += count;
    }

    std::string temporaryFolder_;
    std::vector<std::unique_ptr<Job>> jobs_;  // fixed once started
    std::vector<std::thread> workers_;
    std::mutex lock_;
    std::condition_variable finished_;
    size_t next_ = 0;
    bool stop_ = false;
};

// One file of the pool as a libzip source of already deflated data.
class DeflatedSource {
public:
    DeflatedSource(DeflatePool& pool, size_t index) : pool_(pool), index_(index) { zip_error_init(&error_); }
    ~DeflatedSource() { zip_error_fini(&error_); }
    DeflatedSource(const DeflatedSource&) = delete;
    DeflatedSource& operator=(const DeflatedSource&) = delete;

    static zip_int64_t Callback(void* state, void* data, zip_uint64_t length, zip_source_cmd_t command) {
        auto* self = static_cast<DeflatedSource*>(state);
        if (command == ZIP_SOURCE_FREE) {
            delete self;
            return 0;
        }
        return self->Serve(data, length, command);
    }

private:
    zip_int64_t Serve(void* data, zip_uint64_t length, zip_source_cmd_t command) {
        switch (command) {
            case ZIP_SOURCE_OPEN:
            case ZIP_SOURCE_STAT: {
                const DeflatePool::Job& job = pool_.Wait(index_);
                if (job.error != 0) {
                    zip_error_set(&error_, ZIP_ER_READ, job.error);
                    return -1;
                }
                if (command == ZIP_SOURCE_OPEN) {
                    position_ = 0;
                    return 0;
                }
                auto* status = static_cast<zip_stat_t*>(data);
                zip_stat_init(status);
                status->size = job.inputSize;
                status->comp_size = job.outputSize;
                status->comp_method = ZIP_CM_DEFLATE;
                status->encryption_method = ZIP_EM_NONE;
                status->crc = static_cast<zip_uint32_t>(job.crc);
                status->mtime = job.mtime;
                status->valid |= ZIP_STAT_SIZE | ZIP_STAT_COMP_SIZE | ZIP_STAT_COMP_METHOD | ZIP_STAT_ENCRYPTION_METHOD | ZIP_STAT_CRC |
                                 ZIP_STAT_MTIME;
                return sizeof(zip_stat_t);
            }
            case ZIP_SOURCE_READ: {
                const DeflatePool::Job& job = pool_.Wait(index_);
                const zip_uint64_t count = std::min(length, job.outputSize - position_);
                if (job.spill >= 0) {
                    const ssize_t got = pread(job.spill, data, static_cast<size_t>(count), static_cast<off_t>(position_));
                    if (got < 0) {
                        zip_error_set(&error_, ZIP_ER_READ, errno);
                        return -1;
                    }
                    position_ += static_cast<zip_uint64_t>(got);
                    return got;
                }
                std::memcpy(data, job.data.data() + position_, static_cast<size_t>(count));
                position_ += count;
                return static_cast<zip_int64_t>(count);
            }
            case ZIP_SOURCE_CLOSE: return 0;
            case ZIP_SOURCE_ERROR: return zip_error_to_data(&error_, data, length);
            case ZIP_SOURCE_SUPPORTS:
                return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE, ZIP_SOURCE_STAT,
                                                      ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE, ZIP_SOURCE_SUPPORTS, -1);
            default:
                zip_error_set(&error_, ZIP_ER_OPNOTSUPP, 0);
                return -1;
        }
    }

    DeflatePool& pool_;
    size_t index_;
    zip_uint64_t position_ = 0;
    zip_error_t error_;
};

// ---- Compression

class Compression {
public:
    Compression(zip_t* archive, DeflatePool& pool, const ReplaceQuestion& askReplace)
        : archive_(archive), pool_(pool), askReplace_(askReplace) {}

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
        auto* deflated = new DeflatedSource(pool_, pool_.Add(hostPath));
        zip_source_t* data = zip_source_function(archive_, &DeflatedSource::Callback, deflated);
        if (data == nullptr) {
            delete deflated;
            return ErrorFromZip(zip_get_error(archive_));
        }
        const zip_int64_t placed = existing >= 0 ? (zip_file_replace(archive_, static_cast<zip_uint64_t>(existing), data, 0) == 0 ? existing : -1)
                                                 : zip_file_add(archive_, name.c_str(), data, ZIP_FL_ENC_UTF_8);
        if (placed < 0) {
            zip_source_free(data);
            return ErrorFromZip(zip_get_error(archive_));
        }
        return ERROR_SUCCESS;
    }

    zip_t* archive_;
    DeflatePool& pool_;
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

DWORD WriteEntry(zip_t* archive, zip_uint64_t index, const std::string& target, std::vector<char>& block) {
    zip_file_t* entry = zip_fopen_index(archive, index, 0);
    if (entry == nullptr) return ErrorFromZip(zip_get_error(archive));
    const int out = open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (out < 0) {
        const int error = errno;
        zip_fclose(entry);
        return Win32ErrorFromErrno(error);
    }
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
    const std::string folder = std::filesystem::path(archiveHostPath).parent_path().string();
    HandleSource state(fd, folder);
    // Declared before the archive, so that the archive and its sources go first.
    DeflatePool pool(folder);
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
    Compression compression(archive.get(), pool, askReplace);
    for (const ZipSource& item : sources) {
        if (const DWORD failed = compression.Add(item.hostPath, WStrToUtf8(item.name)); failed != ERROR_SUCCESS) return failed;
    }
    pool.Start();
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

    // Folders first, in the archive's order; then the files, spread over the cores.
    std::vector<std::pair<zip_uint64_t, std::string>> files;  // entry and staged path
    std::map<std::string, size_t> fileAt;                     // a name given twice: the later entry wins
    for (const Planned& entry : plan) {
        const size_t folders = entry.folder ? entry.parts.size() : entry.parts.size() - 1;
        std::error_code made;
        std::filesystem::create_directories(staging + "/" + Join(entry.parts, folders), made);
        if (made) return Win32ErrorFromErrno(made.value());
        if (entry.folder) continue;
        std::string target = staging + "/" + Join(entry.parts, entry.parts.size());
        const auto [at, added] = fileAt.emplace(target, files.size());
        if (added) files.emplace_back(entry.index, std::move(target));
        else files[at->second].first = entry.index;
    }
    for (const auto& [index, target] : files) {
        struct stat existing {};
        if (lstat(target.c_str(), &existing) == 0 && S_ISDIR(existing.st_mode)) return ERROR_FILE_CORRUPT;  // a file and a folder of one name
    }

    // Each worker reads through a handle on the archive of its own: libzip's are not shared between threads.
    std::atomic<size_t> next{0};
    std::atomic<DWORD> failure{ERROR_SUCCESS};
    auto work = [&](zip_t* reader) {
        std::vector<char> block(kCopyBlock);
        for (size_t at = next++; at < files.size() && failure == ERROR_SUCCESS; at = next++) {
            const DWORD error = WriteEntry(reader, files[at].first, files[at].second, block);
            DWORD none = ERROR_SUCCESS;
            if (error != ERROR_SUCCESS) failure.compare_exchange_strong(none, error);
        }
    };
    std::vector<OpenArchive> readers;
    std::vector<std::thread> workers;
    const size_t threads = std::min<size_t>(std::max(1u, std::thread::hardware_concurrency()), files.size());
    for (size_t extra = 1; extra < threads; ++extra) {
        int readerError = 0;
        zip_t* reader = zip_open(archiveHostPath.c_str(), ZIP_RDONLY, &readerError);
        if (reader == nullptr) break;  // the threads that have a handle share the work
        readers.emplace_back(reader);
        workers.emplace_back(work, reader);
    }
    work(archive.get());
    for (std::thread& worker : workers) worker.join();
    if (failure != ERROR_SUCCESS) return failure;
    return MoveIntoPlace(staging, destinationHost, "", askReplace);
}

}  // namespace vlx
