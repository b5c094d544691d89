// File hashing: GetFileHash reads a file in 64 KiB blocks through CryptoAPI, CompareFileHash compares two.
#include <cstring>
#include <memory>

#include "../platform/unique_handles.h"
#include "enum_internal.h"

namespace {

constexpr DWORD kReadBlockBytes = 65536;
// The caller's buffer: exactly one MD5 digest.
constexpr DWORD kDigestBytes = 16;
constexpr DWORD kProviderFlags = CRYPT_VERIFYCONTEXT | CRYPT_MACHINE_KEYSET;

// Owners of the two CryptoAPI handle kinds, which are not kernel handles and each have their own release.
template <class Releaser>
class UniqueCryptValue {
public:
    UniqueCryptValue() = default;
    ~UniqueCryptValue() {
        if (value_ != 0) Releaser{}(value_);
    }
    UniqueCryptValue(const UniqueCryptValue&) = delete;
    UniqueCryptValue& operator=(const UniqueCryptValue&) = delete;

    ULONG_PTR get() const { return value_; }
    // For the acquiring call, which writes the new value only when it succeeds.
    ULONG_PTR* put() { return &value_; }

private:
    ULONG_PTR value_ = 0;
};
struct ReleaseProvider {
    void operator()(HCRYPTPROV provider) const { sys().CryptReleaseContext(provider, 0); }
};
struct DestroyHash {
    void operator()(HCRYPTHASH hash) const { sys().CryptDestroyHash(hash); }
};
using UniqueCryptProvider = UniqueCryptValue<ReleaseProvider>;
using UniqueCryptHash = UniqueCryptValue<DestroyHash>;

// True when the hash object's digest fits the caller's buffer. A longer one (SHA-1 and up) could not be
// copied out, which would leave every file with the same all-zero "digest" and every pair equal.
bool DigestFits(HCRYPTHASH hash) {
    DWORD digestBytes = 0;
    DWORD length = sizeof digestBytes;
    return sys().CryptGetHashParam(hash, HP_HASHSIZE, reinterpret_cast<BYTE*>(&digestBytes), &length, 0) &&
           digestBytes <= kDigestBytes;
}

int HashFile(LPCWSTR path, BYTE* pHash, ALG_ID algId) {
    std::memset(pHash, 0, kDigestBytes);
    // Declared in the order of acquisition, so they are released as the API wants: the hash object, then
    // its provider, then the file.
    UniqueHandle file(sys().CreateFileW(path, GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return 0;
    // No sharing: nobody can write the file while it is read, so this size holds for the whole loop.
    DWORD sizeHigh = 0;
    const DWORD sizeLow = sys().GetFileSize(file.get(), &sizeHigh);
    const ULONGLONG size = (static_cast<ULONGLONG>(sizeHigh) << 32) | sizeLow;

    UniqueCryptProvider provider;
    if (!sys().CryptAcquireContextW(provider.put(), nullptr, nullptr, PROV_RSA_FULL, kProviderFlags)) return 0;
    UniqueCryptHash hash;
    if (!sys().CryptCreateHash(provider.get(), algId, 0, 0, hash.put())) return 0;
    if (!DigestFits(hash.get())) return 0;

    // Left as allocated: it is zeroed before every read, the first one included.
    const std::unique_ptr<BYTE[]> block(new BYTE[kReadBlockBytes]);
    ULONGLONG total = 0;
    bool complete = false;
    for (;;) {
        std::memset(block.get(), 0, kReadBlockBytes);
        DWORD read = 0;
        if (!sys().ReadFile(file.get(), block.get(), kReadBlockBytes, &read, nullptr)) break;
        total += read;
        if (!sys().CryptHashData(hash.get(), block.get(), read, 0)) break;
        // The end of the file before the size taken at the start, or more than that size: what was read is
        // not the file that was measured, so there is no digest to give. Windows keeps every writer out
        // while the file is open without sharing, but a host may not (another program appending to it, a
        // device that never ends), and without these stops the loop would never end.
        if (total >= size || read == 0) {
            complete = total == size;
            break;
        }
    }
    if (!complete) return 0;
    DWORD length = kDigestBytes;
    sys().CryptGetHashParam(hash.get(), HP_HASHVAL, pHash, &length, 0);
    return 1;
}

}  // namespace

VELMORA_EXPORT int GetFileHash(CString path, BYTE* pHash, ALG_ID algId) {
    if (pHash == nullptr) return 0;
    return VelmoraGuardedCall(0, [&] { return HashFile(path, pHash, algId); });
}

VELMORA_EXPORT int CompareFileHash(CString pathA, CString pathB, ALG_ID algId) {
    return VelmoraGuardedCall(-1, [&] {
        BYTE digestA[kDigestBytes] = {};
        if (!GetFileHash(CString(pathA), digestA, algId)) return -1;
        BYTE digestB[kDigestBytes] = {};
        if (!GetFileHash(CString(pathB), digestB, algId)) return -1;
        return std::memcmp(digestA, digestB, kDigestBytes) == 0 ? 0 : 1;
    });
}
