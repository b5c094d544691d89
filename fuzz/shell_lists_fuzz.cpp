// Fuzzes the shell's file operation with from- and to-lists of any shape, copying and deleting inside a
// sandbox that drives C: and T: both stand for: whatever the lists say, nothing outside the sandbox may
// change and no handle may be left open.
#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "../platform/api.h"
#include "../platform/linux/host.h"

namespace {

namespace fs = std::filesystem;

struct Sandbox {
    std::string parent;   // holds the sandbox and the sentinel beside it
    std::string root;     // the sandbox, mapped as C: and T:
    std::string sentinel;
};

const Sandbox& TheSandbox() {
    static const Sandbox box = [] {
        char pattern[] = "/tmp/velmora-fuzz-XXXXXX";
        if (mkdtemp(pattern) == nullptr) std::abort();
        Sandbox made{pattern, std::string(pattern) + "/box", std::string(pattern) + "/sentinel"};
        fs::create_directories(made.root);
        fs::create_directories(made.sentinel + "/inner");
        std::ofstream(made.sentinel + "/inner/keep") << "keep";
        if (!vlx::MapDrive('T', made.root) || !vlx::MapDrive('C', made.root)) std::abort();
        if (!sys().SetCurrentDirectoryW(_T("T:\\"))) std::abort();
        return made;
    }();
    return box;
}

const char* const kTreeEntries[] = {"", "/a", "/a/b", "/d", "/a/x.txt", "/a/b/y.txt", "/d/..\\z", "/d/out"};

// The times and identities of every entry of the tree: any copy or deletion into it changes one of them
// (a new or removed entry changes its folder's modification time).
std::string TreeState(const Sandbox& box) {
    std::string state;
    for (const char* entry : kTreeEntries) {
        struct stat status {};
        if (lstat((box.root + entry).c_str(), &status) != 0) return "missing";
        state += std::to_string(status.st_ino) + ":" + std::to_string(status.st_mtim.tv_sec) + "." +
                 std::to_string(status.st_mtim.tv_nsec) + ";";
    }
    return state;
}

// Puts the sandbox back as it was made, unless nothing changed it since.
void Refill(const Sandbox& box) {
    static std::string lastState;
    if (!lastState.empty() && TreeState(box) == lastState) return;
    std::error_code ignored;
    fs::remove_all(box.root, ignored);
    fs::create_directories(box.root + "/a/b", ignored);
    fs::create_directories(box.root + "/d", ignored);
    std::ofstream(box.root + "/a/x.txt") << "x";
    std::ofstream(box.root + "/a/b/y.txt") << "y";
    std::ofstream(box.root + "/d/..\\z") << "z";
    fs::create_directory_symlink(box.sentinel, box.root + "/d/out", ignored);
    lastState = TreeState(box);
}

bool SentinelIntact(const Sandbox& box) {
    std::ifstream in(box.sentinel + "/inner/keep");
    std::string text;
    std::getline(in, text);
    size_t count = 0;
    for (const auto& entry : fs::directory_iterator(box.parent)) {
        (void)entry;
        ++count;
    }
    return text == "keep" && count == 2 && fs::exists(box.root);
}

// Entries separated by ';' become a double-NUL list; at most a few, each at most MAX_PATH units.
WString MakeList(const WString& text) {
    WString list;
    size_t entries = 0;
    for (size_t at = 0; at <= text.size() && entries < 6;) {
        size_t end = text.find(';', at);
        if (end == WString::npos) end = text.size();
        WString entry = text.substr(at, std::min<size_t>(end - at, MAX_PATH));
        for (WCHAR& unit : entry) {
            if (unit == 0) unit = '_';
        }
        if (!entry.empty()) {
            list += entry;
            list += WCHAR(0);
            ++entries;
        }
        at = end + 1;
    }
    list += WCHAR(0);
    return list;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Sandbox& box = TheSandbox();
    if (size < 2) return 0;
    Refill(box);
    WString text;
    for (size_t i = 2; i + 1 < size; i += 2) text += static_cast<WCHAR>(data[i] | (data[i + 1] << 8));
    const size_t split = text.find('>');
    const WString from = MakeList(text.substr(0, split));
    const WString to = MakeList(split == WString::npos ? WString() : text.substr(split + 1));

    SHFILEOPSTRUCTW operation{};
    operation.wFunc = (data[0] & 1) != 0 ? FO_DELETE : FO_COPY;
    operation.pFrom = from.c_str();
    operation.pTo = to.c_str();
    // Never a question: no one answers them here. The rest of the flags come from the input.
    operation.fFlags = static_cast<FILEOP_FLAGS>((data[1] & (FOF_MULTIDESTFILES | FOF_FILESONLY)) | FOF_NOCONFIRMATION | FOF_SILENT |
                                                 FOF_NOERRORUI | FOF_NOCONFIRMMKDIR);
    const size_t before = vlx::OpenHandleCount();
    sys().SHFileOperationW(&operation);
    if (vlx::OpenHandleCount() != before) std::abort();
    if (!SentinelIntact(box)) std::abort();
    return 0;
}
