// The environment-string expansion and the CRT's bounded append, as Windows does them.
#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "../core/internal.h"
#include "../core/table.h"

extern char** environ;

namespace vlx {

namespace {

// The value of an environment variable, its name compared without regard to case as on Windows.
bool LookupVariable(const WString& name, WString& value) {
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const size_t equals = text.find('=');
        if (equals == std::string::npos || equals == 0) continue;
        if (!NamesEqualNoCase(WStrFromUtf8(text.substr(0, equals)), name)) continue;
        value = WStrFromUtf8(text.substr(equals + 1));
        return true;
    }
    return false;
}

}  // namespace

DWORD WINAPI ExpandEnvironmentStringsW(LPCWSTR source, LPWSTR destination, DWORD capacity) {
    if (source == nullptr) return Fail(ERROR_INVALID_PARAMETER, static_cast<DWORD>(0));
    WString result;
    const WString text = source;
    size_t at = 0;
    while (at < text.size()) {
        const size_t open = text.find(u'%', at);
        if (open == WString::npos) {
            result += text.substr(at);
            break;
        }
        result += text.substr(at, open - at);
        const size_t close = text.find(u'%', open + 1);
        WString value;
        if (close != WString::npos && close > open + 1 && LookupVariable(text.substr(open + 1, close - open - 1), value)) {
            result += value;
            at = close + 1;
        } else if (close == WString::npos) {
            result += text.substr(open);
            break;
        } else {
            // An unknown name stays as written; its closing % may open the next name.
            result += text.substr(open, close - open);
            at = close;
        }
    }
    const DWORD needed = static_cast<DWORD>(result.size() + 1);
    if (destination != nullptr && capacity > 0) {
        const size_t copied = std::min<size_t>(result.size(), capacity - 1);
        result.copy(destination, copied);
        destination[copied] = 0;
    }
    return needed;
}

errno_t WINAPI wcscat_s(WCHAR* destination, size_t capacity, const WCHAR* source) {
    if (destination == nullptr || capacity == 0) return EINVAL;
    if (source == nullptr) {
        destination[0] = 0;
        return EINVAL;
    }
    size_t used = 0;
    while (used < capacity && destination[used] != 0) ++used;
    if (used == capacity) {
        destination[0] = 0;
        return EINVAL;
    }
    const size_t added = WStrLen(source);
    if (used + added + 1 > capacity) {
        destination[0] = 0;
        return ERANGE;
    }
    for (size_t at = 0; at <= added; ++at) destination[used + at] = source[at];
    return 0;
}

}  // namespace vlx
