// The reversible mapping between host names and Windows names (see host_names.h for the scheme).
#include "host_names.h"

#include <cstdint>

namespace vlx {

namespace {

constexpr WCHAR kMappedBase = 0xF000;
constexpr uint32_t kMappedLast = 0xF0FF;

bool IsMapped(uint32_t unit) { return unit >= kMappedBase && unit <= kMappedLast; }

bool IsForbiddenInWindowsName(uint32_t code) {
    return (code >= 0x01 && code <= 0x1F) || code == '\\' || code == ':' || code == '*' || code == '?' || code == '"' ||
           code == '<' || code == '>' || code == '|';
}

WCHAR Mapped(unsigned char byte) { return static_cast<WCHAR>(kMappedBase + byte); }

WCHAR AsciiUpper(WCHAR unit) { return unit >= 'a' && unit <= 'z' ? static_cast<WCHAR>(unit - 'a' + 'A') : unit; }

}  // namespace

// Windows takes a name for a device when the part before its first dot, trailing spaces dropped, is one
// of the device names.
WString ReservedDeviceOf(const WString& name) {
    size_t stem = name.find('.');
    if (stem == WString::npos) stem = name.size();
    while (stem > 0 && name[stem - 1] == ' ') --stem;
    WString upper;
    for (size_t i = 0; i < stem; ++i) upper += AsciiUpper(name[i]);
    static const char* const kDevices[] = {"CON", "PRN", "AUX", "NUL"};
    for (const char* device : kDevices) {
        if (upper == WString(device, device + 3)) return name.substr(0, stem);
    }
    if (upper.size() == 4 && upper[3] >= '1' && upper[3] <= '9') {
        const WString prefix = upper.substr(0, 3);
        if (prefix == _T("COM") || prefix == _T("LPT")) return name.substr(0, stem);
    }
    return {};
}

WString WindowsNameOfHost(const std::string& hostName) {
    WString name;
    name.reserve(hostName.size());
    for (size_t at = 0; at < hostName.size();) {
        uint32_t code = 0;
        size_t length = 0;
        if (!DecodeUtf8At(hostName, at, code, length)) {
            name += Mapped(static_cast<unsigned char>(hostName[at++]));
            continue;
        }
        if (IsMapped(code)) {
            for (size_t k = 0; k < length; ++k) name += Mapped(static_cast<unsigned char>(hostName[at + k]));
        } else if (IsForbiddenInWindowsName(code)) {
            name += Mapped(static_cast<unsigned char>(code));
        } else {
            AppendUtf16(name, code);
        }
        at += length;
    }
    if (!name.empty() && (name.back() == '.' || name.back() == ' ')) name.back() = Mapped(static_cast<unsigned char>(name.back()));
    if (!ReservedDeviceOf(name).empty()) name[0] = Mapped(static_cast<unsigned char>(name[0]));
    return name;
}

bool HostNameOfWindows(const WString& name, std::string& hostName) {
    hostName.clear();
    WString plain;  // the units that are not mapped, encoded together so surrogate pairs stay whole
    auto flush = [&]() {
        hostName += WStrToUtf8(plain);
        plain.clear();
    };
    for (WCHAR unit : name) {
        if (IsMapped(unit)) {
            flush();
            hostName += static_cast<char>(unit - kMappedBase);
        } else {
            plain += unit;
        }
    }
    flush();
    // "." and ".." spelt with mapped dots would name the folder itself or its parent, never an entry.
    if (hostName.empty() || hostName == "." || hostName == ".." || hostName.find('/') != std::string::npos ||
        hostName.find('\0') != std::string::npos)
        return false;
    // Only the one spelling the host name lists under reaches it; this also refuses lone surrogates (encoded
    // as U+FFFD) and plain device names.
    return WindowsNameOfHost(hostName) == name;
}

}  // namespace vlx
