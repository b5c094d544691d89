// Fuzzes the mapping between host names and Windows names: every host name maps to a Windows name that
// Windows could hold and that maps back to exactly it, and a Windows name is accepted only when it is the
// image of the host name it gives.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "../platform/linux/volumes/host_names.h"

namespace {

bool IsForbidden(WCHAR unit) {
    return unit < 0x20 || unit == '\\' || unit == '/' || unit == ':' || unit == '*' || unit == '?' || unit == '"' ||
           unit == '<' || unit == '>' || unit == '|';
}

void CheckHostName(const std::string& host) {
    if (host.empty()) return;
    const WString name = vlx::WindowsNameOfHost(host);
    for (WCHAR unit : name) {
        if (IsForbidden(unit)) std::abort();
    }
    if (name.back() == '.' || name.back() == ' ') std::abort();
    std::string back;
    if (!vlx::HostNameOfWindows(name, back)) {
        // Only "." and ".." have no way back: they are never names of entries.
        if (host != "." && host != "..") std::abort();
        return;
    }
    if (back != host) std::abort();
}

void CheckWindowsName(const WString& name) {
    std::string host;
    if (!vlx::HostNameOfWindows(name, host)) return;
    if (host.empty() || host == "." || host == ".." || host.find('/') != std::string::npos || host.find('\0') != std::string::npos)
        std::abort();
    if (vlx::WindowsNameOfHost(host) != name) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // As a host name: every byte but '/' and NUL may appear.
    std::string host(reinterpret_cast<const char*>(data), size);
    for (char& c : host) {
        if (c == '/' || c == 0) c = '_';
    }
    CheckHostName(host);
    // As a Windows name of little-endian units, biased half the time into the mapped range.
    WString name;
    const bool mapped = size > 0 && (data[0] & 1) != 0;
    for (size_t i = 1; i + 1 < size; i += 2) {
        WCHAR unit = static_cast<WCHAR>(data[i] | (data[i + 1] << 8));
        if (mapped && (data[i + 1] & 0x80) != 0) unit = static_cast<WCHAR>(0xF000 + data[i]);
        name += unit;
    }
    CheckWindowsName(name);
    return 0;
}
