// CryptoAPI hashing on OpenSSL: verify-context providers and hash objects in the handle table.
#include <openssl/evp.h>

#include <cstring>
#include <memory>
#include <mutex>

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

class CryptHash : public KernelObject {
public:
    CryptHash(ALG_ID algorithm_, EVP_MD_CTX* context_) : algorithm(algorithm_), context(context_) {}
    ~CryptHash() override { EVP_MD_CTX_free(context); }
    CryptHash(const CryptHash&) = delete;
    CryptHash& operator=(const CryptHash&) = delete;

    std::mutex lock;
    const ALG_ID algorithm;
    EVP_MD_CTX* context;
    bool finished = false;  // HP_HASHVAL was read: the value is kept and no more data is taken
    unsigned char value[EVP_MAX_MD_SIZE] = {};
    unsigned int valueLength = 0;
};

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

// Hashed on the caller's thread. A thread of the hash object's own, fed copies of the blocks, lets a
// caller read the next block meanwhile, but that pays only where a processor stands idle: on a busy
// machine the copies and the hand-offs between the two threads cost more than the reads they hide.
BOOL WINAPI CryptHashData(HCRYPTHASH hash, const BYTE* data, DWORD length, DWORD flags) {
    auto object = LookupHandleAs<CryptHash>(AsHandle(hash));
    if (!object) return Fail(NTE_BAD_HASH, FALSE);
    if (flags != 0) return Fail(NTE_BAD_FLAGS, FALSE);
    if (data == nullptr && length != 0) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    std::lock_guard guard(object->lock);
    if (object->finished) return Fail(NTE_BAD_HASH_STATE, FALSE);
    if (length != 0 && EVP_DigestUpdate(object->context, data, length) != 1) return Fail(NTE_FAIL, FALSE);
    return TRUE;
}

BOOL WINAPI CryptGetHashParam(HCRYPTHASH hash, DWORD param, BYTE* data, DWORD* length, DWORD flags) {
    auto object = LookupHandleAs<CryptHash>(AsHandle(hash));
    if (!object) return Fail(NTE_BAD_HASH, FALSE);
    if (length == nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    if (flags != 0) return Fail(NTE_BAD_FLAGS, FALSE);
    std::lock_guard guard(object->lock);
    const DWORD size = static_cast<DWORD>(EVP_MD_CTX_get_size(object->context));
    switch (param) {
        case HP_ALGID: {
            const DWORD algorithm = object->algorithm;
            return CopyParam(&algorithm, sizeof algorithm, data, length);
        }
        case HP_HASHSIZE: return CopyParam(&size, sizeof size, data, length);
        case HP_HASHVAL:
            // Asking for the length, or offering too short a buffer, leaves the hash open as Windows does.
            if (data == nullptr) {
                *length = size;
                return TRUE;
            }
            if (*length < size) {
                *length = size;
                return Fail(ERROR_MORE_DATA, FALSE);
            }
            if (!object->finished) {
                if (EVP_DigestFinal_ex(object->context, object->value, &object->valueLength) != 1) return Fail(NTE_FAIL, FALSE);
                object->finished = true;
            }
            return CopyParam(object->value, object->valueLength, data, length);
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
