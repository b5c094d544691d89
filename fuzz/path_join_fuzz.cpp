// Fuzzes path joining: a listed name joined to its folder always names an entry directly inside that
// folder (never its parent, never deeper), and full paths are canonical: "X:\" followed by names with no
// empty, "." or ".." ones, and unchanged when made full again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "../platform/linux/core/internal.h"
#include "../platform/linux/volumes/host_names.h"

namespace {

const std::string& FuzzRoot() {
    static const std::string root = [] {
        char pattern[] = "/tmp/velmora-fuzz-XXXXXX";
        if (mkdtemp(pattern) == nullptr) std::abort();
        const std::string made = pattern;
        if (mkdir((made + "/Dir").c_str(), 0700) != 0 || !vlx::MapDrive('T', made)) std::abort();
        return made;
    }();
    return root;
}

void CheckListedNameStaysInItsFolder(const std::string& host) {
    if (host.empty() || host == "." || host == "..") return;
    const WString name = vlx::WindowsNameOfHost(host);
    const WString folder = _T("\\\\?\\T:\\Dir");
    const WString joined = folder + _T("\\") + name;
    WString full;
    if (!vlx::FullWin32Path(joined.c_str(), full)) std::abort();
    if (full != joined.substr(4)) std::abort();
    vlx::ResolvedPath resolved;
    if (!vlx::Resolve(joined.c_str(), resolved)) std::abort();
    if (resolved.hostPath != FuzzRoot() + "/Dir/" + host) std::abort();
    if (resolved.components.size() != 2 || resolved.components.back() != name) std::abort();
}

void CheckFullPathIsCanonical(const WString& text) {
    WString full;
    if (!vlx::FullWin32Path(text.c_str(), full)) return;
    if (full.size() < 3 || full[1] != ':' || full[2] != '\\') std::abort();
    for (size_t at = 3; at < full.size();) {
        size_t end = full.find('\\', at);
        if (end == WString::npos) end = full.size();
        const WString name = full.substr(at, end - at);
        if (name.empty()) std::abort();
        if (name == _T(".") || name == _T("..") || name.find('/') != WString::npos) std::abort();
        at = end + 1;
    }
    if (full.size() < MAX_PATH) {
        WString again;
        if (!vlx::FullWin32Path(full.c_str(), again) || again != full) std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzRoot();
    std::string host(reinterpret_cast<const char*>(data), size);
    for (char& c : host) {
        if (c == '/' || c == 0) c = '\\';
    }
    if (host.size() <= 255) CheckListedNameStaysInItsFolder(host);

    WString text;
    for (size_t i = 0; i + 1 < size; i += 2) text += static_cast<WCHAR>(data[i] | (data[i + 1] << 8));
    CheckFullPathIsCanonical(text);
    CheckFullPathIsCanonical(_T("T:\\Dir\\") + text);
    CheckFullPathIsCanonical(_T("\\\\?\\") + text);
    return 0;
}
