// File hashing: digests of known inputs against independently computed ones, the 64 KiB read loop, and
// every failure leaving the buffer zeroed and no handle open.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "../platform/api_patch.h"
#include "support/host_fixture.h"
#include "support/share_holder.h"

namespace {

using testing_support::HeldElsewhere;
using testing_support::HostFolderTest;
using testing_support::U;

const std::string kFailed = "failed " + std::string(32, '0');

// Bytes 0, 1, ... 250, 0, 1, ...: no block repeats at the 64 KiB boundary.
std::string Pattern(size_t length) {
    std::string bytes(length, '\0');
    for (size_t i = 0; i < length; ++i) bytes[i] = static_cast<char>(i % 251);
    return bytes;
}

class FileHash : public HostFolderTest {
protected:
    // The digest as hex, or "failed" followed by the buffer's state.
    std::string HashOf(const CString& path, ALG_ID algorithm = CALG_MD5) {
        BYTE digest[16];
        std::memset(digest, 0xAB, sizeof digest);
        const int result = GetFileHash(path, digest, algorithm);
        std::string hex;
        for (BYTE b : digest) hex += "0123456789abcdef"[b >> 4], hex += "0123456789abcdef"[b & 15];
        return result == 1 ? hex : "failed " + hex;
    }
};

TEST_F(FileHash, Md5OfKnownInputsMatchesAnIndependentDigestReadIn64KiBBlocksOfZeroedBuffer) {
    // Digests from coreutils md5sum of the same bytes.
    struct Case {
        size_t length;
        const char* md5;
        std::vector<DWORD> reads;
    } cases[] = {
        {0, "d41d8cd98f00b204e9800998ecf8427e", {0}},
        {65536, "9cc60713923528a1dd94e1c1ab0ebc9e", {65536}},
        {65537, "4c2641c7fe5c93d3aed7c406629ff0ab", {65536, 1}},
        {200000, "415d6e662118c229c6ad3f950c24702a", {65536, 65536, 65536, 3392}},
    };
    for (const Case& c : cases) {
        WriteFile("f", Pattern(c.length));
        std::vector<DWORD> reads;
        ApiPatch<&Win32Api::ReadFile> patch([&](HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED overlapped) {
            // Every block is zeroed before the read, so stale bytes never reach the hash.
            const BYTE* bytes = static_cast<const BYTE*>(buffer);
            EXPECT_TRUE(toRead == 65536u && std::all_of(bytes, bytes + toRead, [](BYTE b) { return b == 0; }));
            const BOOL result = patch.Original()(file, buffer, toRead, read, overlapped);
            reads.push_back(*read);
            return result;
        });
        EXPECT_EQ(HashOf(Win("f")), c.md5) << c.length;
        EXPECT_EQ(reads, c.reads) << c.length;
    }
}

TEST_F(FileHash, FileOverFourGiBIsHashedWhole) {
    // Sparse: 4 GiB of zeros then one byte, so the size's high half and the 64-bit total both matter.
    WriteFile("big", "");
    ASSERT_EQ(truncate(Host("big").c_str(), 4294967296LL), 0);
    std::ofstream(Host("big"), std::ios::binary | std::ios::app).put('x');
    EXPECT_EQ(HashOf(Win("big")), "946005287ba386e1aa04031fcb20051d");  // md5sum of the same file
}

TEST_F(FileHash, FailuresLeaveTheBufferZeroedAndReturnZero) {
    WriteFile("a.txt", "abc");
    MakeFolder("dir");
    EXPECT_EQ(HashOf(Win("missing.txt")), kFailed);
    EXPECT_EQ(HashOf(Win("dir")), kFailed);
    EXPECT_EQ(HashOf(Win("a.txt"), 0x1234), kFailed);  // unknown algorithm
    // A digest longer than the 16-byte buffer is refused rather than reported as sixteen zeros.
    EXPECT_EQ(HashOf(Win("a.txt"), CALG_SHA1), kFailed);
    EXPECT_EQ(GetFileHash(Win("a.txt"), nullptr, CALG_MD5), 0);
    // A file another process is writing cannot be hashed, nor compared, until that process lets go.
    HeldElsewhere other(root_, "T:\\a.txt", GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE);
    ASSERT_EQ(other.openError(), DWORD(ERROR_SUCCESS));
    EXPECT_EQ(HashOf(Win("a.txt")), kFailed);
    EXPECT_EQ(CompareFileHash(Win("a.txt"), Win("a.txt"), CALG_MD5), -1);
    other.Release();
    EXPECT_EQ(HashOf(Win("a.txt")), "900150983cd24fb0d6963f7d28e17f72");
}

TEST_F(FileHash, EachFailingStepReleasesWhatWasAcquiredInReverseOrder) {
    WriteFile("a.txt", Pattern(70000));
    std::vector<std::string> released;
    ApiPatch<&Win32Api::CloseHandle> close([&](HANDLE h) { return released.push_back("file"), close.Original()(h); });
    ApiPatch<&Win32Api::CryptReleaseContext> release([&](HCRYPTPROV p, DWORD f) {
        EXPECT_EQ(f, 0u);
        return released.push_back("provider"), release.Original()(p, f);
    });
    ApiPatch<&Win32Api::CryptDestroyHash> destroy([&](HCRYPTHASH h) { return released.push_back("hash"), destroy.Original()(h); });
    using Steps = std::vector<std::string>;
    const Steps all = {"hash", "provider", "file"};
    int calls = 0;  // of a step patched to fail at its second call
    const auto failing = [&] {
        released.clear(), calls = 0;
        EXPECT_EQ(HashOf(Win("a.txt")), kFailed);
        return released;
    };
    EXPECT_NE(HashOf(Win("a.txt")), kFailed);
    EXPECT_EQ(released, all);
    {
        ApiPatch<&Win32Api::CryptAcquireContextW> fail([](HCRYPTPROV*, LPCWSTR, LPCWSTR, DWORD, DWORD) { return FALSE; });
        EXPECT_EQ(failing(), Steps{"file"});
    }
    {
        ApiPatch<&Win32Api::CryptCreateHash> fail([](HCRYPTPROV, ALG_ID, HCRYPTKEY, DWORD, HCRYPTHASH*) { return FALSE; });
        EXPECT_EQ(failing(), (Steps{"provider", "file"}));
    }
    {
        ApiPatch<&Win32Api::ReadFile> read([&](HANDLE f, LPVOID b, DWORD n, LPDWORD r, LPOVERLAPPED o) {
            return ++calls == 2 ? FALSE : read.Original()(f, b, n, r, o);
        });
        EXPECT_EQ(failing(), all);
    }
    ApiPatch<&Win32Api::CryptHashData> data([&](HCRYPTHASH h, const BYTE* d, DWORD n, DWORD f) {
        return ++calls == 2 ? FALSE : data.Original()(h, d, n, f);
    });
    EXPECT_EQ(failing(), all);
}

TEST_F(FileHash, ReadThatDoesNotEndAtTheSizeTakenAtTheStartFailsInsteadOfLooping) {
    // The file claims another size than what can be read: it shrank, or grew (a host program appending,
    // a device that never ends) although the open shares no writing.
    const struct Case {
        size_t written;
        DWORD claimed;
        int reads;
    } cases[] = {
        {1000, 5000, 2},         // 1000 bytes, then the end of the file
        {200000, 70000, 2},      // past the size with the second block: stops there
        {200000, 100, 1},        // past it with the first
    };
    for (const Case& c : cases) {
        WriteFile("a.txt", Pattern(c.written));
        ApiPatch<&Win32Api::GetFileSize> size([&](HANDLE, LPDWORD high) { return *high = 0, c.claimed; });
        int reads = 0;
        ApiPatch<&Win32Api::ReadFile> read([&](HANDLE f, LPVOID b, DWORD n, LPDWORD r, LPOVERLAPPED o) {
            return ++reads, read.Original()(f, b, n, r, o);
        });
        EXPECT_EQ(HashOf(Win("a.txt")), kFailed) << c.claimed;
        EXPECT_EQ(reads, c.reads) << c.claimed;
    }
}

TEST_F(FileHash, OpensTheFileForItselfAloneAndAsksForAProviderWithoutKeys) {
    WriteFile("a.txt", "abc");
    std::vector<std::string> calls;
    ApiPatch<&Win32Api::CreateFileW> open([&](LPCWSTR path, DWORD a, DWORD s, LPSECURITY_ATTRIBUTES sa, DWORD d, DWORD f, HANDLE t) {
        std::ostringstream call;
        call << std::hex << "CreateFileW " << U(path) << " " << a << " " << s << " " << sa << " " << d << " " << f << " " << t;
        calls.push_back(call.str());
        return open.Original()(path, a, s, sa, d, f, t);
    });
    ApiPatch<&Win32Api::CryptAcquireContextW> acquire([&](HCRYPTPROV* provider, LPCWSTR container, LPCWSTR name, DWORD type, DWORD flags) {
        std::ostringstream call;
        call << std::hex << "CryptAcquireContextW " << (container == nullptr) << (name == nullptr) << " " << type << " " << flags;
        calls.push_back(call.str());
        return acquire.Original()(provider, container, name, type, flags);
    });
    EXPECT_EQ(HashOf(Win("a.txt")), "900150983cd24fb0d6963f7d28e17f72");
    std::ostringstream expected[2];
    expected[0] << std::hex << "CreateFileW T:\\a.txt " << GENERIC_READ << " 0 0 " << OPEN_EXISTING << " " << FILE_ATTRIBUTE_NORMAL << " 0";
    expected[1] << std::hex << "CryptAcquireContextW 11 " << PROV_RSA_FULL << " " << (CRYPT_VERIFYCONTEXT | CRYPT_MACHINE_KEYSET);
    EXPECT_EQ(calls, (std::vector<std::string>{expected[0].str(), expected[1].str()}));

    // No sharing at all: a file another handle holds, even one that shares reading, is not hashed.
    HANDLE reader = sys().CreateFileW(Win("a.txt"), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(reader, INVALID_HANDLE_VALUE);
    EXPECT_EQ(HashOf(Win("a.txt")), kFailed);
    sys().CloseHandle(reader);
}

TEST_F(FileHash, CompareFileHashTellsEqualDifferentAndUnreadable) {
    std::string changed = Pattern(70000);
    changed[69999] ^= 1;
    WriteFile("one.bin", Pattern(70000));
    WriteFile("same.bin", Pattern(70000));
    WriteFile("changed.bin", changed);
    EXPECT_EQ(CompareFileHash(Win("one.bin"), Win("same.bin"), CALG_MD5), 0);
    EXPECT_EQ(CompareFileHash(Win("one.bin"), Win("changed.bin"), CALG_MD5), 1);
    EXPECT_EQ(CompareFileHash(Win("one.bin"), Win("missing"), CALG_MD5), -1);
    EXPECT_EQ(CompareFileHash(Win("one.bin"), Win("same.bin"), CALG_SHA1), -1);
    // A first file that cannot be hashed ends the comparison before the second is opened.
    std::vector<std::string> opened;
    ApiPatch<&Win32Api::CreateFileW> open([&](LPCWSTR path, DWORD a, DWORD s, LPSECURITY_ATTRIBUTES sa, DWORD d, DWORD f, HANDLE t) {
        return opened.push_back(U(path)), open.Original()(path, a, s, sa, d, f, t);
    });
    EXPECT_EQ(CompareFileHash(Win("missing"), Win("one.bin"), CALG_MD5), -1);
    EXPECT_EQ(opened, std::vector<std::string>{"T:\\missing"});
}

}  // namespace
