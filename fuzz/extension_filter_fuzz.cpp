// Fuzzes the extension filter with any path and any filter: it must end and never read past either.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "../frame/extension_filter.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The first half of the units is the path, the rest the filter, each NUL-terminated exactly.
    std::vector<WCHAR> units;
    for (size_t i = 0; i + 1 < size; i += 2) units.push_back(static_cast<WCHAR>(data[i] | (data[i + 1] << 8)));
    const size_t split = units.size() / 2;
    std::vector<WCHAR> path(units.begin(), units.begin() + static_cast<std::ptrdiff_t>(split));
    std::vector<WCHAR> filter(units.begin() + static_cast<std::ptrdiff_t>(split), units.end());
    path.push_back(0);
    filter.push_back(0);
    MatchesExtensionFilter(path.data(), filter.data());
    return 0;
}
