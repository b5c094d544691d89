// Fuzzes Win32 path handling on a host-folder volume: resolution, full paths into small buffers, finding
// with wildcards. Every call must fail cleanly or succeed; no buffer may be overrun and no handle leaked.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "../platform/api.h"
#include "../platform/linux/host.h"

namespace {

void MapFuzzDrive() {
    static bool mapped = [] {
        char pattern[] = "/tmp/velmora-fuzz-XXXXXX";
        if (mkdtemp(pattern) == nullptr) std::abort();
        const std::string root = pattern;
        std::system(("mkdir -p " + root + "/Dir/Sub && touch " + root + "/Dir/a.txt " + root + "/Dir/B.TXT").c_str());
        return vlx::MapDrive('T', root);
    }();
    if (!mapped) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    MapFuzzDrive();
    WString path;
    if (size > 0 && data[0] % 2 == 0) path = _T("T:\\");
    for (size_t i = 1; i + 1 < size; i += 2) path += static_cast<WCHAR>(data[i] | (data[i + 1] << 8));
    const size_t before = vlx::OpenHandleCount();

    sys().GetFileAttributesW(path.c_str());
    WCHAR small[8];
    const DWORD needed = sys().GetFullPathNameW(path.c_str(), 8, small, nullptr);
    if (needed > 0 && needed < 8 && small[needed] != 0) std::abort();

    WIN32_FIND_DATAW found{};
    HANDLE find = sys().FindFirstFileW(path.c_str(), &found);
    if (find != INVALID_HANDLE_VALUE) {
        int count = 0;
        while (sys().FindNextFileW(find, &found) && ++count < 64) {
        }
        sys().FindClose(find);
    }
    if (vlx::OpenHandleCount() != before) std::abort();
    return 0;
}
