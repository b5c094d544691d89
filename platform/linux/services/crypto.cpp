// CryptoAPI hashing on OpenSSL: verify-context providers and hash objects in the handle table.
//
// A hash object that has taken a file's worth of data hands every further block to a thread of its own,
// so that a caller that reads and feeds block by block reads the next block while this one is hashed: a
// long file then costs what its digest costs, not that plus its reads. Blocks are hashed in the order
// they were given; the value, the object's destruction and a failure that the thread met are all told
// to the caller only after every block given before has been hashed, so no caller can tell the thread is
// there but by the time it takes. The thread ends with the object's value or with the object.
#include <openssl/evp.h>

#include <condition_variable>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "../core/internal.h"
#include "../core/table.h"

namespace vlx {

namespace {

// Each digest's implementation, looked up once for the process: given OpenSSL's own EVP_md5() and the
// like, every hash object's start would look the implementation up again, which costs more than
// hashing a small file.
constexpr char kMd5[] = "MD5";
constexpr char kSha1[] = "SHA1";
constexpr char kSha256[] = "SHA256";
constexpr char kSha384[] = "SHA384";
constexpr char kSha512[] = "SHA512";
struct FreeDigest {
    void operator()(EVP_MD* digest) const { EVP_MD_free(digest); }
};
template <const char* Name>
const EVP_MD* Fetched() {
    static const std::unique_ptr<EVP_MD, FreeDigest> digest(EVP_MD_fetch(nullptr, Name, nullptr));
    return digest.get();
}

class CryptProvider : public KernelObject {
public:
    explicit CryptProvider(DWORD type_) : type(type_) {}
    const DWORD type;
};

// Data hashed on the caller's thread before a thread of the object's own takes over. Starting a thread
// costs what hashing some 50 KiB does, and the thread wins back only the caller's reads beside the hash:
// a file below this is done before the thread would pay for itself.
constexpr size_t kInlineBytes = 1 << 20;
// Data given to the worker and not yet hashed. A caller that is ahead waits when this much is queued and
// goes on once half of it is hashed, so that both sides run for many blocks between two waits instead of
// waking each other at every block.
constexpr size_t kQueuedBytesHigh = 1 << 20;
constexpr size_t kQueuedBytesLow = kQueuedBytesHigh / 2;
// Small pieces given one after another are gathered into blocks of up to this size, so that a caller
// that feeds a byte at a time queues a few blocks, not a million of them.
constexpr size_t kGatheredBytes = 65536;

class CryptHash : public KernelObject {
public:
    CryptHash(ALG_ID algorithm_, EVP_MD_CTX* context)
        : algorithm(algorithm_), digestSize(static_cast<DWORD>(EVP_MD_CTX_get_size(context))), context_(context) {}
    ~CryptHash() override {
        StopWorker();
        EVP_MD_CTX_free(context_);
    }
    CryptHash(const CryptHash&) = delete;
    CryptHash& operator=(const CryptHash&) = delete;

    const ALG_ID algorithm;
    const DWORD digestSize;

    // Takes length bytes, hashed now or queued for the worker; false with the last error set.
    BOOL Add(const BYTE* data, DWORD length);
    // Finishes the digest once (HP_HASHVAL) and copies it out; false with the last error set.
    BOOL Value(BYTE* data, DWORD* length);

private:
    bool StartWorker();
    void StopWorker();
    void Work();

    std::mutex lock_;
    EVP_MD_CTX* const context_;  // the worker's alone while it hashes a block, the lock holder's otherwise
    size_t inlineBytes_ = 0;
    bool finished_ = false;  // HP_HASHVAL was read: the value is kept and no more data is taken
    bool failed_ = false;    // the worker could not hash a block: the object takes nothing more
    unsigned char value_[EVP_MAX_MD_SIZE] = {};
    unsigned int valueLength_ = 0;

    std::thread worker_;
    bool workerRefused_ = false;  // no thread could be had: the caller's thread hashes everything
    std::condition_variable workReady_;  // to the worker: a block came, or the object is going away
    std::condition_variable roomMade_;   // to callers: the queue went down to its low mark, or ran dry
    std::deque<std::vector<BYTE>> queue_;  // oldest first
    std::vector<std::vector<BYTE>> spare_;  // the buffers of hashed blocks, for the next ones
    size_t queuedBytes_ = 0;
    bool busy_ = false;  // the worker hashes a block it took off the queue
    bool stopping_ = false;
};

bool CryptHash::StartWorker() {
    // With a single processor the two threads would only take turns.
    static const bool secondProcessor = std::thread::hardware_concurrency() > 1;
    if (secondProcessor) {
        try {
            worker_ = std::thread([this] { Work(); });
            return true;
        } catch (const std::system_error&) {
            // none to be had: the caller's thread hashes on alone
        }
    }
    workerRefused_ = true;
    return false;
}

void CryptHash::StopWorker() {
    std::thread ending;
    {
        std::lock_guard guard(lock_);
        stopping_ = true;
        ending = std::move(worker_);  // taken under the lock, so that two callers never join it both
    }
    workReady_.notify_all();
    if (ending.joinable()) ending.join();
}

void CryptHash::Work() {
    std::unique_lock held(lock_);
    for (;;) {
        workReady_.wait(held, [this] { return !queue_.empty() || stopping_; });
        // An object going away drops what it was given; one giving its value was drained before.
        if (stopping_) return;
        std::vector<BYTE> block = std::move(queue_.front());
        queue_.pop_front();
        queuedBytes_ -= block.size();
        busy_ = true;
        if (queuedBytes_ <= kQueuedBytesLow) roomMade_.notify_all();
        held.unlock();
        const bool hashed = EVP_DigestUpdate(context_, block.data(), block.size()) == 1;
        held.lock();
        busy_ = false;
        if (!hashed) failed_ = true;
        spare_.push_back(std::move(block));
        if (queue_.empty()) roomMade_.notify_all();
    }
}

BOOL CryptHash::Add(const BYTE* data, DWORD length) {
    std::unique_lock held(lock_);
    if (finished_) return Fail(NTE_BAD_HASH_STATE, FALSE);
    if (failed_) return Fail(NTE_FAIL, FALSE);
    if (length == 0) return TRUE;
    if (!worker_.joinable() && (inlineBytes_ < kInlineBytes || workerRefused_ || !StartWorker())) {
        inlineBytes_ += length;
        if (EVP_DigestUpdate(context_, data, length) != 1) return Fail(NTE_FAIL, FALSE);
        return TRUE;
    }
    if (queuedBytes_ >= kQueuedBytesHigh) {
        roomMade_.wait(held, [this] { return queuedBytes_ <= kQueuedBytesLow; });
        // Another thread may have read the value, or the worker failed, while this one waited.
        if (finished_) return Fail(NTE_BAD_HASH_STATE, FALSE);
        if (failed_) return Fail(NTE_FAIL, FALSE);
    }
    const bool wasEmpty = queue_.empty();
    if (!wasEmpty && queue_.back().size() + length <= kGatheredBytes) {
        // Not yet taken by the worker, which moves a block off the queue before it hashes it.
        queue_.back().insert(queue_.back().end(), data, data + length);
    } else {
        std::vector<BYTE> block;
        if (!spare_.empty()) {
            block = std::move(spare_.back());
            spare_.pop_back();
        }
        block.assign(data, data + length);
        queue_.push_back(std::move(block));
    }
    queuedBytes_ += length;
    held.unlock();
    if (wasEmpty) workReady_.notify_one();  // the worker waits only for an empty queue
    return TRUE;
}

BOOL CryptHash::Value(BYTE* data, DWORD* length) {
    {
        std::unique_lock held(lock_);
        if (!finished_) {
            roomMade_.wait(held, [this] { return queue_.empty() && !busy_; });
            if (failed_) return Fail(NTE_FAIL, FALSE);
            if (EVP_DigestFinal_ex(context_, value_, &valueLength_) != 1) return Fail(NTE_FAIL, FALSE);
            finished_ = true;
        }
        std::memcpy(data, value_, valueLength_);
        *length = valueLength_;
    }
    StopWorker();  // nothing more can come for it
    return TRUE;
}

// The algorithms each provider type hashes, as the Microsoft base and AES providers do.
const EVP_MD* DigestFor(DWORD providerType, ALG_ID algorithm) {
    switch (algorithm) {
        case CALG_MD5: return Fetched<kMd5>();
        case CALG_SHA1: return Fetched<kSha1>();
        case CALG_SHA_256: return providerType == PROV_RSA_AES ? Fetched<kSha256>() : nullptr;
        case CALG_SHA_384: return providerType == PROV_RSA_AES ? Fetched<kSha384>() : nullptr;
        case CALG_SHA_512: return providerType == PROV_RSA_AES ? Fetched<kSha512>() : nullptr;
        default: return nullptr;
    }
}

HANDLE AsHandle(ULONG_PTR value) { return reinterpret_cast<HANDLE>(value); }
ULONG_PTR AsValue(HANDLE handle) { return reinterpret_cast<ULONG_PTR>(handle); }

// Copies a DWORD-sized parameter out the way CryptGetHashParam does: a null buffer asks for the length.
BOOL CopyParam(const void* value, DWORD size, BYTE* data, DWORD* length) {
    if (data == nullptr) {
        *length = size;
        return TRUE;
    }
    if (*length < size) {
        *length = size;
        return Fail(ERROR_MORE_DATA, FALSE);
    }
    std::memcpy(data, value, size);
    *length = size;
    return TRUE;
}

}  // namespace

BOOL WINAPI CryptAcquireContextW(HCRYPTPROV* provider, LPCWSTR container, LPCWSTR /*providerName*/, DWORD type,
                                 DWORD flags) {
    if (provider == nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    constexpr DWORD kKnownFlags = CRYPT_VERIFYCONTEXT | CRYPT_NEWKEYSET | CRYPT_DELETEKEYSET | CRYPT_MACHINE_KEYSET | CRYPT_SILENT;
    if (flags & ~kKnownFlags) return Fail(NTE_BAD_FLAGS, FALSE);
    if (type != PROV_RSA_FULL && type != PROV_RSA_AES) return Fail(NTE_PROV_TYPE_NOT_DEF, FALSE);
    // Key containers are never kept: only the ephemeral verify context exists here.
    if ((flags & CRYPT_VERIFYCONTEXT) != CRYPT_VERIFYCONTEXT) return Fail(NTE_BAD_KEYSET, FALSE);
    if (container != nullptr && container[0] != 0) return Fail(NTE_BAD_KEYSET_PARAM, FALSE);
    *provider = AsValue(InsertHandle(std::make_shared<CryptProvider>(type)));
    SetLastErrorCode(ERROR_SUCCESS);
    return TRUE;
}

BOOL WINAPI CryptCreateHash(HCRYPTPROV provider, ALG_ID algorithm, HCRYPTKEY key, DWORD flags, HCRYPTHASH* hash) {
    auto owner = LookupHandleAs<CryptProvider>(AsHandle(provider));
    if (!owner) return Fail(NTE_BAD_UID, FALSE);
    if (hash == nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    if (flags != 0) return Fail(NTE_BAD_FLAGS, FALSE);
    const EVP_MD* digest = DigestFor(owner->type, algorithm);
    if (digest == nullptr) return Fail(NTE_BAD_ALGID, FALSE);
    if (key != 0) return Fail(NTE_BAD_KEY, FALSE);  // none of these hashes is keyed
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    if (context == nullptr) return Fail(NTE_FAIL, FALSE);
    if (EVP_DigestInit_ex(context, digest, nullptr) != 1) {
        EVP_MD_CTX_free(context);
        return Fail(NTE_FAIL, FALSE);
    }
    *hash = AsValue(InsertHandle(std::make_shared<CryptHash>(algorithm, context)));
    return TRUE;
}

BOOL WINAPI CryptHashData(HCRYPTHASH hash, const BYTE* data, DWORD length, DWORD flags) {
    auto object = LookupHandleAs<CryptHash>(AsHandle(hash));
    if (!object) return Fail(NTE_BAD_HASH, FALSE);
    if (flags != 0) return Fail(NTE_BAD_FLAGS, FALSE);
    if (data == nullptr && length != 0) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    return object->Add(data, length);
}

BOOL WINAPI CryptGetHashParam(HCRYPTHASH hash, DWORD param, BYTE* data, DWORD* length, DWORD flags) {
    auto object = LookupHandleAs<CryptHash>(AsHandle(hash));
    if (!object) return Fail(NTE_BAD_HASH, FALSE);
    if (length == nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    if (flags != 0) return Fail(NTE_BAD_FLAGS, FALSE);
    switch (param) {
        case HP_ALGID: {
            const DWORD algorithm = object->algorithm;
            return CopyParam(&algorithm, sizeof algorithm, data, length);
        }
        case HP_HASHSIZE: return CopyParam(&object->digestSize, sizeof object->digestSize, data, length);
        case HP_HASHVAL:
            // Asking for the length, or offering too short a buffer, leaves the hash open as Windows does.
            if (data == nullptr) {
                *length = object->digestSize;
                return TRUE;
            }
            if (*length < object->digestSize) {
                *length = object->digestSize;
                return Fail(ERROR_MORE_DATA, FALSE);
            }
            return object->Value(data, length);
        default: return Fail(NTE_BAD_TYPE, FALSE);
    }
}

BOOL WINAPI CryptDestroyHash(HCRYPTHASH hash) {
    if (!RemoveHandleOf<CryptHash>(AsHandle(hash))) return Fail(NTE_BAD_HASH, FALSE);
    return TRUE;
}

BOOL WINAPI CryptReleaseContext(HCRYPTPROV provider, DWORD flags) {
    if (flags != 0) return Fail(NTE_BAD_FLAGS, FALSE);
    if (!RemoveHandleOf<CryptProvider>(AsHandle(provider))) return Fail(NTE_BAD_UID, FALSE);
    return TRUE;
}

}  // namespace vlx
