// The extension filter shared by the direct copy and the folder walks.
#include "extension_filter.h"

#include "../platform/wstr.h"

namespace {

// Whether text ends in suffix, folding case as the CRT does in the "C" locale.
bool EndsWithNoCase(LPCWSTR text, size_t textLength, const WString& suffix) {
    if (suffix.size() > textLength) return false;
    return WStrICmp(text + (textLength - suffix.size()), suffix.c_str()) == 0;
}

}  // namespace

bool MatchesExtensionFilter(LPCWSTR path, LPCWSTR filter) {
    if (path == nullptr || filter == nullptr) return false;
    const size_t pathLength = WStrLen(path);
    // Every round drops at least one dot from the remaining text, so the loop ends.
    LPCWSTR remaining = filter;
    for (;;) {
        LPCWSTR dot = remaining;
        while (*dot != 0 && *dot != '.') ++dot;
        if (*dot == 0) return false;
        remaining = dot + 1;
        LPCWSTR end = remaining;
        while (*end != 0 && *end != '.') ++end;
        WString candidate(1, _T('.'));
        candidate.append(remaining, static_cast<size_t>(end - remaining));
        if (EndsWithNoCase(path, pathLength, candidate)) return true;
    }
}
