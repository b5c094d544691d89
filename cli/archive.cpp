// velmora zip, unzip and shortcut: the shell's zip folders and shell links on the terminal, with the
// shell's compression progress window drawn as a bar while the library waits for it.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

#include "../platform/api.h"
#include "command.h"
#include "messages.h"

namespace cli {

namespace {

constexpr int kBarWidth = 40;

void DrawBar(int percent) {
    const int clamped = percent < 0 ? 0 : percent > 100 ? 100 : percent;
    const int filled = clamped * kBarWidth / 100;
    std::printf("\r  [%s%s] %3d%%", std::string(static_cast<size_t>(filled), '#').c_str(),
                std::string(static_cast<size_t>(kBarWidth - filled), ' ').c_str(), clamped);
    std::fflush(stdout);
}


// ---- zip

int RunZip(const std::vector<std::string>& args);

const Command kZip = {
    "zip",
    "put a file or folder into a zip archive through the shell",
    "zip SRC ARCHIVE\n"
    "  Adds SRC (a folder under its own name, with everything in it) to ARCHIVE, made when missing; .zip is\n"
    "  appended when ARCHIVE does not end in it. Entries of the same name are replaced without asking. The\n"
    "  shell's progress window is drawn as a bar.",
    RunZip,
};

int RunZip(const std::vector<std::string>& args) {
    if (args.size() != 2) return UsageError(kZip, "needs SRC and ARCHIVE");
    // The library hides the shell's window at once; its progress bar still moves and is read here.
    std::atomic<bool> finished{false};
    bool drawn = false;
    std::thread watcher([&] {
        while (!finished) {
            const HWND window = sys().FindWindowW(nullptr, _T("圧縮しています..."));
            if (window != nullptr) {
                DrawBar(static_cast<int>(sys().SendMessageW(window, PBM_GETPOS, 0, 0)));
                drawn = true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    });
    int code = 0;
    const BOOL done = CompressToZip(LibraryPath(args[0]), LibraryPath(args[1]), 1, &code);
    finished = true;
    watcher.join();
    if (done) DrawBar(100);
    if (drawn || done) std::printf("\n");
    if (!done) return Fail(kZip, CodeWords(CodeSource::CompressToZip, code));
    return kExitOk;
}

// ---- unzip

int RunUnzip(const std::vector<std::string>& args);

const Command kUnzip = {
    "unzip",
    "unpack a zip archive into a folder through the shell",
    "unzip ARCHIVE DEST\n"
    "  Unpacks every entry of ARCHIVE (its path used as given) into DEST, made when missing, replacing\n"
    "  files of the same name. A damaged archive, or one whose names would land outside DEST, unpacks\n"
    "  nothing.",
    RunUnzip,
};

int RunUnzip(const std::vector<std::string>& args) {
    if (args.size() != 2) return UsageError(kUnzip, "needs ARCHIVE and DEST");
    if (!ExtractFromZip(LibraryPath(args[0]), LibraryPath(args[1]), 1)) return Fail(kUnzip, "the shell could not unpack the archive");
    return kExitOk;
}

// ---- shortcut

int RunShortcut(const std::vector<std::string>& args);

const Command kShortcut = {
    "shortcut",
    "show the command line a shortcut (.lnk) stands for",
    "shortcut LNK\n"
    "  Prints the target with environment variables expanded, one space and the arguments as stored, then\n"
    "  the target's attributes and size as the link records them.",
    RunShortcut,
};

int RunShortcut(const std::vector<std::string>& args) {
    if (args.size() != 1) return UsageError(kShortcut, "needs LNK");
    WCHAR text[MAX_PATH] = {};
    WIN32_FIND_DATAW data{};
    const BOOL read = GetShortCutTargetPath(LibraryPath(args[0]), text, &data);
    if (!read && text[0] == 0) return Fail(kShortcut, "not a readable shortcut, or its command line does not fit 260 characters");
    std::printf("%s\n", Printable(text).c_str());
    std::printf("  name %s, attributes 0x%x, size %llu\n", Printable(data.cFileName).c_str(), static_cast<unsigned>(data.dwFileAttributes),
                static_cast<unsigned long long>(data.nFileSizeHigh) << 32 | data.nFileSizeLow);
    if (!read) return Fail(kShortcut, "the arguments could not be read");
    return kExitOk;
}

const CommandRegistration kZipRegistration(kZip);
const CommandRegistration kUnzipRegistration(kUnzip);
const CommandRegistration kShortcutRegistration(kShortcut);

}  // namespace

}  // namespace cli
