// Shadow copies of image volumes: the copy-on-write diff area, the registry of copies by device name, and
// how a copy is made from a live volume and given back.
#include "shadow_copy.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>

namespace vlx {

namespace {

// The unit of copy-on-write: small enough that a small write saves little, large enough that a long read
// through the copy finds long runs of untouched blocks to read from the live image in one go.
constexpr ULONGLONG kBlockSize = 64 * 1024;

const WString kDevicePrefix = _T("\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy");

std::mutex g_copiesLock;
std::map<DWORD, std::weak_ptr<ImageVolume>> g_copies;
DWORD g_lastCopyNumber = 0;

// An unnamed file in the host's temporary folder: it goes with its last descriptor, whatever happens to
// the process.
int MakeDiffArea() {
    const char* fromEnvironment = std::getenv("TMPDIR");
    const std::string folder = fromEnvironment != nullptr && *fromEnvironment == '/' ? fromEnvironment : "/tmp";
    int fd = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd >= 0) return fd;
    std::string name = folder + "/velmora-diff-XXXXXX";
    fd = mkostemp(name.data(), O_CLOEXEC);
    if (fd >= 0) unlink(name.c_str());
    return fd;
}

bool ReadAll(int fd, ULONGLONG at, void* buffer, size_t count) {
    size_t done = 0;
    while (done < count) {
        const ssize_t got = pread(fd, static_cast<char*>(buffer) + done, count - done, static_cast<off_t>(at + done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        done += static_cast<size_t>(got);
    }
    return true;
}

bool WriteAll(int fd, ULONGLONG at, const void* buffer, size_t count) {
    size_t done = 0;
    while (done < count) {
        const ssize_t put = pwrite(fd, static_cast<const char*>(buffer) + done, count - done, static_cast<off_t>(at + done));
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) return false;
        done += static_cast<size_t>(put);
    }
    return true;
}

}  // namespace

ShadowStore::ShadowStore(std::shared_ptr<ImageFile> image, ULONGLONG offset, ULONGLONG length)
    : image_(std::move(image)), offset_(offset), length_(length), diffFd_(MakeDiffArea()), block_(kBlockSize) {}

ShadowStore::~ShadowStore() { Release(); }

void ShadowStore::Release() {
    std::lock_guard guard(lock_);
    released_ = true;
    if (diffFd_ >= 0) close(diffFd_);
    diffFd_ = -1;
    saved_.clear();
    diffSize_ = 0;
}

ULONGLONG ShadowStore::SavedBytes() {
    std::lock_guard guard(lock_);
    return diffSize_;
}

bool ShadowStore::ReadLive(ULONGLONG offset, void* buffer, size_t count) const {
    return ReadAll(image_->Fd(), offset_ + offset, buffer, count);
}

bool ShadowStore::BeforeWrite(ULONGLONG offset, ULONGLONG count) {
    std::lock_guard guard(lock_);
    if (released_ || count == 0 || offset >= length_) return true;
    const ULONGLONG last = std::min(offset + count, length_) - 1;
    for (ULONGLONG block = offset / kBlockSize; block <= last / kBlockSize; ++block) {
        if (saved_.count(block) != 0) continue;  // the first write after the copy saved it already
        const ULONGLONG start = block * kBlockSize;
        const size_t size = static_cast<size_t>(std::min(kBlockSize, length_ - start));
        if (!ReadLive(start, block_.data(), size) || !WriteAll(diffFd_, diffSize_, block_.data(), size)) return false;
        saved_.emplace(block, diffSize_);
        diffSize_ += kBlockSize;
    }
    return true;
}

bool ShadowStore::Read(ULONGLONG offset, void* buffer, size_t count) {
    std::lock_guard guard(lock_);
    if (released_ || offset > length_ || count > length_ - offset) return false;
    auto* out = static_cast<char*>(buffer);
    // Runs of blocks the live volume has not touched are read from the image in one call each.
    ULONGLONG at = offset;
    const ULONGLONG end = offset + count;
    ULONGLONG liveStart = at;
    auto flushLive = [&](ULONGLONG upTo) {
        if (upTo == liveStart) return true;
        const bool read = ReadLive(liveStart, out + (liveStart - offset), static_cast<size_t>(upTo - liveStart));
        liveStart = upTo;
        return read;
    };
    while (at < end) {
        const ULONGLONG block = at / kBlockSize;
        const ULONGLONG blockEnd = std::min((block + 1) * kBlockSize, end);
        const auto found = saved_.empty() ? saved_.end() : saved_.find(block);
        if (found != saved_.end()) {
            if (!flushLive(at)) return false;
            if (!ReadAll(diffFd_, found->second + (at - block * kBlockSize), out + (at - offset),
                         static_cast<size_t>(blockEnd - at)))
                return false;
            liveStart = blockEnd;
        }
        at = blockEnd;
    }
    return flushLive(end);
}

std::shared_ptr<ShadowCopy> ShadowCopy::Create(const std::shared_ptr<ImageVolume>& original) {
    using Result = std::shared_ptr<ShadowCopy>;
    const auto disk = original->disk.lock();
    if (!disk || original->detached) return Fail(ERROR_DEVICE_NOT_CONNECTED, Result());
    if (!original->engine) return Fail(ERROR_NOT_SUPPORTED, Result());
    auto store = std::make_shared<ShadowStore>(disk->image, original->placement.startingOffset, original->placement.length);
    if (!store->Ready()) return Fail(Win32ErrorFromErrno(errno), Result());

    Result copy(new ShadowCopy());
    copy->store_ = store;
    copy->originalName_ = original->guidName + _T("\\");
    auto volume = std::make_shared<ImageVolume>();
    {
        // The live volume takes no call while the copy is made, so the instant is the same for every byte.
        std::lock_guard lock(original->engineLock);
        volume->engine = original->engine->MakeShadowCopy(store);
        if (!volume->engine) return Result();
    }
    volume->placement = original->placement;
    volume->facts = volume->engine->Facts();
    {
        std::lock_guard guard(g_copiesLock);
        const DWORD number = ++g_lastCopyNumber;
        volume->guidName = kDevicePrefix + WStrFromUtf8(std::to_string(number));
        g_copies[number] = volume;
    }
    copy->volume_ = std::move(volume);
    return copy;
}

ShadowCopy::~ShadowCopy() {
    if (!volume_) return;
    {
        std::lock_guard guard(g_copiesLock);
        for (auto at = g_copies.begin(); at != g_copies.end(); ++at) {
            if (at->second.lock() == volume_) {
                g_copies.erase(at);
                break;
            }
        }
    }
    // Handles still open on the copy fail from now on, as on a disk taken away.
    {
        std::lock_guard lock(volume_->engineLock);
        volume_->detached = true;
        if (volume_->engine) volume_->engine->Flush();
    }
    store_->Release();
}

std::shared_ptr<ImageVolume> ShadowCopyVolume(const WString& deviceName) {
    if (deviceName.size() <= kDevicePrefix.size() ||
        WStrICmp(deviceName.substr(0, kDevicePrefix.size()).c_str(), kDevicePrefix.c_str()) != 0)
        return nullptr;
    if (deviceName[kDevicePrefix.size()] == '0') return nullptr;  // copies count from 1, written without zeros
    DWORD number = 0;
    for (size_t at = kDevicePrefix.size(); at < deviceName.size(); ++at) {
        const WCHAR unit = deviceName[at];
        if (unit < '0' || unit > '9' || number > 100000000) return nullptr;
        number = number * 10 + static_cast<DWORD>(unit - '0');
    }
    std::lock_guard guard(g_copiesLock);
    const auto found = g_copies.find(number);
    return found == g_copies.end() ? nullptr : found->second.lock();
}

size_t ShadowCopyCount() {
    std::lock_guard guard(g_copiesLock);
    return g_copies.size();
}

}  // namespace vlx
