// CryptoAPI hashing on OpenSSL: digests of known inputs, and the failures Windows gives.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "../../platform/api.h"
#include "../../platform/linux/host.h"

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
