// CryptoAPI hashing on OpenSSL: digests of known inputs, and the failures Windows gives.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "../../platform/api.h"
#include "../../platform/linux/host.h"
#include "../support/thread_count.h"

namespace {

constexpr DWORD kJunk = 0xdeadbeef;
const BYTE kAbc[] = {'a', 'b', 'c'};

std::string Hex(const BYTE* data, DWORD length) {
    std::string text;
    for (DWORD i = 0; i < length; ++i) text += "0123456789abcdef"[data[i] >> 4], text += "0123456789abcdef"[data[i] & 15];
    return text;
}

// The call fails and sets exactly the last error given.
void ExpectFails(const std::function<BOOL()>& call, DWORD error, const char* what) {
    sys().SetLastError(kJunk);
    EXPECT_FALSE(call()) << what;
    EXPECT_EQ(sys().GetLastError(), error) << what;
}

class CryptoApi : public ::testing::Test {
protected:
    void SetUp() override { handlesBefore_ = vlx::OpenHandleCount(); }
    void TearDown() override { EXPECT_EQ(vlx::OpenHandleCount(), handlesBefore_) << "a crypto handle was left open"; }

    // The hex digest of text, or the last error as text when a step fails.
    std::string Digest(DWORD providerType, ALG_ID algorithm, const std::string& text) {
        HCRYPTPROV provider = 0;
        if (!sys().CryptAcquireContextW(&provider, nullptr, nullptr, providerType, CRYPT_VERIFYCONTEXT)) return "acquire failed";
        HCRYPTHASH hash = 0;
        std::string result;
        if (!sys().CryptCreateHash(provider, algorithm, 0, 0, &hash)) {
            result = "create failed " + std::to_string(sys().GetLastError());
        } else {
            BYTE value[64] = {};
            DWORD length = sizeof value;
            sys().CryptHashData(hash, reinterpret_cast<const BYTE*>(text.data()), static_cast<DWORD>(text.size()), 0);
            result = sys().CryptGetHashParam(hash, HP_HASHVAL, value, &length, 0) ? Hex(value, length) : "value failed";
            EXPECT_TRUE(sys().CryptDestroyHash(hash));
        }
        EXPECT_TRUE(sys().CryptReleaseContext(provider, 0));
        return result;
    }

    size_t handlesBefore_ = 0;
};

// Bytes 0, 1, ... 250, 0, 1, ...: a piece handed over twice or out of order changes the digest.
std::vector<BYTE> Pattern(size_t length) {
    std::vector<BYTE> bytes(length);
    for (size_t i = 0; i < length; ++i) bytes[i] = static_cast<BYTE>(i % 251);
    return bytes;
}

// A hash object fed in pieces of the given sizes, repeated until the data runs out.
class FedHash {
public:
    FedHash() {
        EXPECT_TRUE(sys().CryptAcquireContextW(&provider_, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
        EXPECT_TRUE(sys().CryptCreateHash(provider_, CALG_MD5, 0, 0, &hash_));
    }
    ~FedHash() {
        if (hash_ != 0) {
            EXPECT_TRUE(sys().CryptDestroyHash(hash_));
        }
        EXPECT_TRUE(sys().CryptReleaseContext(provider_, 0));
    }
    FedHash(const FedHash&) = delete;
    FedHash& operator=(const FedHash&) = delete;

    void Feed(const std::vector<BYTE>& data, const std::vector<DWORD>& pieces) {
        for (size_t at = 0, piece = 0; at < data.size(); piece = (piece + 1) % pieces.size()) {
            const DWORD length = static_cast<DWORD>(std::min<size_t>(pieces[piece], data.size() - at));
            ASSERT_TRUE(sys().CryptHashData(hash_, data.data() + at, length, 0));
            at += length;
        }
    }
    std::string Value() {
        BYTE value[16] = {};
        DWORD length = sizeof value;
        return sys().CryptGetHashParam(hash_, HP_HASHVAL, value, &length, 0) ? Hex(value, length) : "value failed";
    }
    void Destroy() {
        EXPECT_TRUE(sys().CryptDestroyHash(hash_));
        hash_ = 0;
    }
    HCRYPTHASH get() const { return hash_; }

private:
    HCRYPTPROV provider_ = 0;
    HCRYPTHASH hash_ = 0;
};

TEST_F(CryptoApi, HashesKnownInputsWithEachProvidersAlgorithms) {
    const std::string badAlgorithm = "create failed " + std::to_string(NTE_BAD_ALGID);
    struct Case {
        DWORD provider;
        ALG_ID algorithm;
        std::string input, expected;
    } cases[] = {
        {PROV_RSA_FULL, CALG_MD5, "", "d41d8cd98f00b204e9800998ecf8427e"},
        {PROV_RSA_FULL, CALG_MD5, "abc", "900150983cd24fb0d6963f7d28e17f72"},
        {PROV_RSA_FULL, CALG_SHA1, "abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {PROV_RSA_AES, CALG_SHA_256, "abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {PROV_RSA_FULL, CALG_SHA_256, "abc", badAlgorithm},  // the base provider has no SHA-2, as on Windows
        {PROV_RSA_FULL, 0x1234, "abc", badAlgorithm},
    };
    for (const Case& c : cases) EXPECT_EQ(Digest(c.provider, c.algorithm, c.input), c.expected) << c.algorithm;
}

TEST_F(CryptoApi, ShortBufferFailsUntouchedAndTheHashClosesOnceItsValueIsRead) {
    HCRYPTPROV provider = 0;
    ASSERT_TRUE(sys().CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
    HCRYPTHASH hash = 0;
    ASSERT_TRUE(sys().CryptCreateHash(provider, CALG_SHA1, 0, 0, &hash));
    DWORD size = 0, length = sizeof size;
    EXPECT_TRUE(sys().CryptGetHashParam(hash, HP_HASHSIZE, reinterpret_cast<BYTE*>(&size), &length, 0) && size == 20u);
    // A null buffer asks for the length; a short one fails with the length needed and stays untouched.
    length = 0;
    EXPECT_TRUE(sys().CryptGetHashParam(hash, HP_HASHVAL, nullptr, &length, 0) && length == 20u);
    BYTE value[20] = {};
    length = 16;
    ExpectFails([&] { return sys().CryptGetHashParam(hash, HP_HASHVAL, value, &length, 0); }, ERROR_MORE_DATA, "short");
    EXPECT_EQ(length, 20u);
    EXPECT_EQ(Hex(value, 20), std::string(40, '0'));
    // The hash is still open after a short buffer, and closed once its value was read.
    EXPECT_TRUE(sys().CryptHashData(hash, kAbc, 3, 0));
    EXPECT_TRUE(sys().CryptGetHashParam(hash, HP_HASHVAL, value, &length, 0));
    EXPECT_EQ(Hex(value, length), "a9993e364706816aba3e25717850c26c9cd0d89d");
    ExpectFails([&] { return sys().CryptHashData(hash, kAbc, 1, 0); }, NTE_BAD_HASH_STATE, "after value");
    EXPECT_TRUE(sys().CryptDestroyHash(hash));
    EXPECT_TRUE(sys().CryptReleaseContext(provider, 0));
}

TEST_F(CryptoApi, RefusesWhatWindowsRefusesWithItsCodes) {
    HCRYPTPROV provider = 0;
    HCRYPTHASH hash = 0;
    auto acquire = [&](DWORD type, DWORD flags) { return sys().CryptAcquireContextW(&provider, nullptr, nullptr, type, flags); };
    ExpectFails([&] { return acquire(PROV_RSA_FULL, 0); }, NTE_BAD_KEYSET, "key containers are not kept");
    ExpectFails([&] { return acquire(99, CRYPT_VERIFYCONTEXT); }, NTE_PROV_TYPE_NOT_DEF, "provider type");
    ExpectFails([&] { return acquire(PROV_RSA_FULL, CRYPT_VERIFYCONTEXT | 0x1000); }, NTE_BAD_FLAGS, "acquire flags");
    ExpectFails([&] { return sys().CryptCreateHash(0x4711, CALG_MD5, 0, 0, &hash); }, NTE_BAD_UID, "create, bad provider");
    ExpectFails([&] { return sys().CryptHashData(0x4711, kAbc, 1, 0); }, NTE_BAD_HASH, "data, bad hash");
    ExpectFails([&] { return sys().CryptDestroyHash(0x4711); }, NTE_BAD_HASH, "destroy, bad hash");
    ASSERT_TRUE(acquire(PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
    ExpectFails([&] { return sys().CryptCreateHash(provider, CALG_MD5, 0, 1, &hash); }, NTE_BAD_FLAGS, "create flags");
    // A provider handle is not a hash handle, and a released one is gone.
    ExpectFails([&] { return sys().CryptDestroyHash(provider); }, NTE_BAD_HASH, "provider as hash");
    EXPECT_TRUE(sys().CryptReleaseContext(provider, 0));
    ExpectFails([&] { return sys().CryptReleaseContext(provider, 0); }, NTE_BAD_UID, "released twice");
}

}  // namespace

namespace {

// Past the first MiB a hash object hands its data to a thread of its own. Whatever the pieces, the digest
// is that of the bytes in order, as one call (hashed on the caller's thread alone) gives it.
TEST_F(CryptoApi, LongInputsGiveTheSameDigestInAnyPiecesAndLeaveNoThreadBehind) {
    const size_t threadsBefore = testing_support::ThreadCount();
    const std::vector<BYTE> data = Pattern((3u << 20) + 65537);
    std::string whole;
    {
        FedHash once;
        once.Feed(data, {static_cast<DWORD>(data.size())});
        whole = once.Value();
    }
    const std::vector<std::vector<DWORD>> feeds = {
        {65536},               // a file read in blocks
        {65535, 1},            // blocks that straddle every edge
        {1, 3, 7, 65521},      // small pieces that are gathered, between full blocks
        {300000},              // pieces larger than a block and than half the queue
        {(1u << 20) - 1, 2},   // the move to the thread in the middle of a piece's pair
    };
    for (const auto& pieces : feeds) {
        FedHash fed;
        fed.Feed(data, pieces);
        EXPECT_EQ(fed.Value(), whole) << pieces.front();
        // The value closes the hash, and its thread with it, before the handle is destroyed.
        EXPECT_EQ(testing_support::ThreadCount(), threadsBefore) << pieces.front();
        ExpectFails([&] { return sys().CryptHashData(fed.get(), data.data(), 1, 0); }, NTE_BAD_HASH_STATE, "after value");
    }
}

TEST_F(CryptoApi, HashDestroyedWithDataStillQueuedEndsItsThread) {
    const size_t threadsBefore = testing_support::ThreadCount();
    const std::vector<BYTE> data = Pattern(4u << 20);
    FedHash fed;
    fed.Feed(data, {65536});
    fed.Destroy();
    EXPECT_EQ(testing_support::ThreadCount(), threadsBefore);
}

}  // namespace
