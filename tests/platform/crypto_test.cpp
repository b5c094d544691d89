// CryptoAPI hashing on OpenSSL: digests of known inputs, and the failures Windows gives.
#include <gtest/gtest.h>

#include <string>

#include "../../platform/api.h"
#include "../../platform/linux/host.h"

namespace {

constexpr DWORD kJunk = 0xdeadbeef;

std::string Hex(const BYTE* data, DWORD length) {
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    for (DWORD i = 0; i < length; ++i) {
        text += kDigits[data[i] >> 4];
        text += kDigits[data[i] & 15];
    }
    return text;
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
    struct Case {
        DWORD provider;
        ALG_ID algorithm;
        std::string input, expected;
    } cases[] = {
        {PROV_RSA_FULL, CALG_MD5, "", "d41d8cd98f00b204e9800998ecf8427e"},
        {PROV_RSA_FULL, CALG_MD5, "abc", "900150983cd24fb0d6963f7d28e17f72"},
        {PROV_RSA_FULL, CALG_SHA1, "abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {PROV_RSA_AES, CALG_SHA_256, "abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        // The base provider has no SHA-2, as on Windows.
        {PROV_RSA_FULL, CALG_SHA_256, "abc", "create failed " + std::to_string(NTE_BAD_ALGID)},
        {PROV_RSA_FULL, 0x1234, "abc", "create failed " + std::to_string(NTE_BAD_ALGID)},
    };
    for (const Case& c : cases) EXPECT_EQ(Digest(c.provider, c.algorithm, c.input), c.expected) << c.algorithm;
}

TEST_F(CryptoApi, HashValueBufferRulesAreThoseOfWindows) {
    HCRYPTPROV provider = 0;
    ASSERT_TRUE(sys().CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
    HCRYPTHASH hash = 0;
    ASSERT_TRUE(sys().CryptCreateHash(provider, CALG_SHA1, 0, 0, &hash));

    DWORD size = 0;
    DWORD length = sizeof size;
    EXPECT_TRUE(sys().CryptGetHashParam(hash, HP_HASHSIZE, reinterpret_cast<BYTE*>(&size), &length, 0));
    EXPECT_EQ(size, 20u);

    // A null buffer asks for the length; a short one fails with the length needed and stays untouched.
    length = 0;
    EXPECT_TRUE(sys().CryptGetHashParam(hash, HP_HASHVAL, nullptr, &length, 0));
    EXPECT_EQ(length, 20u);
    BYTE shortBuffer[16] = {};
    length = sizeof shortBuffer;
    sys().SetLastError(kJunk);
    EXPECT_FALSE(sys().CryptGetHashParam(hash, HP_HASHVAL, shortBuffer, &length, 0));
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_MORE_DATA));
    EXPECT_EQ(length, 20u);
    EXPECT_EQ(Hex(shortBuffer, 16), std::string(32, '0'));
    // The hash is still open after a short buffer, and closed once its value was read.
    EXPECT_TRUE(sys().CryptHashData(hash, reinterpret_cast<const BYTE*>("abc"), 3, 0));
    BYTE value[20] = {};
    length = sizeof value;
    EXPECT_TRUE(sys().CryptGetHashParam(hash, HP_HASHVAL, value, &length, 0));
    EXPECT_EQ(Hex(value, length), "a9993e364706816aba3e25717850c26c9cd0d89d");
    sys().SetLastError(kJunk);
    EXPECT_FALSE(sys().CryptHashData(hash, reinterpret_cast<const BYTE*>("x"), 1, 0));
    EXPECT_EQ(sys().GetLastError(), NTE_BAD_HASH_STATE);

    EXPECT_TRUE(sys().CryptDestroyHash(hash));
    EXPECT_TRUE(sys().CryptReleaseContext(provider, 0));
}

TEST_F(CryptoApi, RefusesWhatWindowsRefusesWithItsCodes) {
    HCRYPTPROV provider = 0;
    struct Acquire {
        DWORD type, flags;
        LPCWSTR container;
        DWORD error;
    } acquires[] = {
        {PROV_RSA_FULL, 0, nullptr, NTE_BAD_KEYSET},  // key containers are not kept
        {99, CRYPT_VERIFYCONTEXT, nullptr, NTE_PROV_TYPE_NOT_DEF},
        {PROV_RSA_FULL, CRYPT_VERIFYCONTEXT | 0x1000, nullptr, NTE_BAD_FLAGS},
    };
    for (const Acquire& a : acquires) {
        sys().SetLastError(kJunk);
        EXPECT_FALSE(sys().CryptAcquireContextW(&provider, a.container, nullptr, a.type, a.flags));
        EXPECT_EQ(sys().GetLastError(), a.error) << a.type << " " << a.flags;
    }

    HCRYPTHASH hash = 0;
    sys().SetLastError(kJunk);
    EXPECT_FALSE(sys().CryptCreateHash(0x4711, CALG_MD5, 0, 0, &hash));
    EXPECT_EQ(sys().GetLastError(), NTE_BAD_UID);
    sys().SetLastError(kJunk);
    EXPECT_FALSE(sys().CryptHashData(0x4711, reinterpret_cast<const BYTE*>("x"), 1, 0));
    EXPECT_EQ(sys().GetLastError(), NTE_BAD_HASH);
    sys().SetLastError(kJunk);
    EXPECT_FALSE(sys().CryptDestroyHash(0x4711));
    EXPECT_EQ(sys().GetLastError(), NTE_BAD_HASH);

    ASSERT_TRUE(sys().CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
    sys().SetLastError(kJunk);
    EXPECT_FALSE(sys().CryptCreateHash(provider, CALG_MD5, 0, 1, &hash));
    EXPECT_EQ(sys().GetLastError(), NTE_BAD_FLAGS);
    // A provider handle is not a hash handle, nor the other way round.
    sys().SetLastError(kJunk);
    EXPECT_FALSE(sys().CryptDestroyHash(provider));
    EXPECT_EQ(sys().GetLastError(), NTE_BAD_HASH);
    EXPECT_TRUE(sys().CryptReleaseContext(provider, 0));
    sys().SetLastError(kJunk);
    EXPECT_FALSE(sys().CryptReleaseContext(provider, 0));
    EXPECT_EQ(sys().GetLastError(), NTE_BAD_UID);
}

}  // namespace
