// velmora wim: capture folders into image files, apply, mount and unmount images. While an image is
// captured or applied, a window of the command's own receives the library's messages: its text is the
// file at hand, and a timer on it redraws the percentage as a bar beside that file.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "../platform/api.h"
#include "../platform/wimgapi.h"
#include "command.h"
#include "messages.h"

namespace cli {

namespace {

constexpr LPCWSTR kWindowClass = _T("VelmoraWimProgress");
constexpr UINT_PTR kRedrawTimer = 1;
constexpr UINT kRedrawMilliseconds = 100;
constexpr int kBarWidth = 30;
constexpr size_t kNameWidth = 44;

struct ProgressState {
    DWORD percent = 0;  // written by the library through the pointer it is given
    std::string file;
    bool terminal = false;
    bool lineOpen = false;
};
ProgressState g_progress;

// The tail of a path that fits the line: the file's own name matters more than its folders.
std::string Tail(const std::string& path) {
    if (path.size() <= kNameWidth) return path;
    size_t start = path.size() - (kNameWidth - 3);
    while (start < path.size() && (static_cast<unsigned char>(path[start]) & 0xC0) == 0x80) ++start;  // whole characters
    return "..." + path.substr(start);
}

void Redraw() {
    if (!g_progress.terminal) return;
    const DWORD percent = g_progress.percent > 100 ? 100 : g_progress.percent;
    const int filled = static_cast<int>(percent) * kBarWidth / 100;
    std::printf("\r\033[K  [%s%s] %3u%%  %s", std::string(static_cast<size_t>(filled), '#').c_str(),
                std::string(static_cast<size_t>(kBarWidth - filled), ' ').c_str(), percent, Tail(g_progress.file).c_str());
    std::fflush(stdout);
    g_progress.lineOpen = true;
}

LRESULT CALLBACK ProgressProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_SETTEXT) {
        const LRESULT result = sys().DefWindowProcW(window, message, wParam, lParam);
        g_progress.file = Printable(reinterpret_cast<LPCWSTR>(lParam));
        return result;
    }
    if (message == WM_TIMER && wParam == kRedrawTimer) {
        Redraw();
        return 0;
    }
    return sys().DefWindowProcW(window, message, wParam, lParam);
}

// The command's window for the length of one capture or apply, with its redraw timer.
class ProgressWindow {
public:
    ProgressWindow() {
        g_progress = ProgressState{};
        g_progress.terminal = isatty(STDOUT_FILENO) != 0;
        WNDCLASSW windowClass{};
        windowClass.lpfnWndProc = ProgressProc;
        windowClass.lpszClassName = kWindowClass;
        sys().RegisterClassW(&windowClass);
        window_.CreateEx(0, kWindowClass, _T(""), 0, 0, 0, 0, 0, nullptr, nullptr);
        if (window_.GetSafeHwnd() != nullptr) sys().SetTimer(window_.GetSafeHwnd(), kRedrawTimer, kRedrawMilliseconds, nullptr);
    }
    ~ProgressWindow() {
        if (g_progress.lineOpen) {
            Redraw();
            std::printf("\n");
        }
        if (window_.GetSafeHwnd() != nullptr) sys().KillTimer(window_.GetSafeHwnd(), kRedrawTimer);
        window_.DestroyWindow();
        sys().UnregisterClassW(kWindowClass, nullptr);
    }
    ProgressWindow(const ProgressWindow&) = delete;
    ProgressWindow& operator=(const ProgressWindow&) = delete;

    CWnd* window() { return window_.GetSafeHwnd() != nullptr ? &window_ : nullptr; }
    DWORD* percent() { return &g_progress.percent; }

private:
    CWnd window_;
};

int RunWim(const std::vector<std::string>& args);

const Command kWim = {
    "wim",
    "capture folders into WIM images, apply, mount and unmount images",
    "wim capture DIR IMAGE [--compress none|xpress|lzx|lzms] [--temp DIR]\n"
    "       wim apply IMAGE INDEX DIR [--temp DIR]\n"
    "       wim mount IMAGE INDEX DIR [--temp DIR]\n"
    "       wim unmount IMAGE INDEX DIR [--commit]\n"
    "  capture adds an image of DIR to IMAGE, making the file (LZX unless --compress says otherwise) when\n"
    "  it does not exist; apply writes image INDEX (from 1) into DIR. Both show the percentage as a bar and\n"
    "  the file at hand beside it. mount shows image INDEX under the empty folder DIR, for changing when a\n"
    "  --temp folder is given and for reading otherwise; unmount takes it away, writing the changes back\n"
    "  into the image with --commit.",
    RunWim,
};

// The failure message with the last error the library left.
int Failed(const std::string& what) {
    const DWORD error = sys().GetLastError();
    return Fail(kWim, what + ": " + ErrorWords(error));
}

bool ParseIndex(const std::string& text, DWORD& index) {
    char* end = nullptr;
    const unsigned long value = std::strtoul(text.c_str(), &end, 10);
    if (text.empty() || *end != 0 || value == 0 || value > 0xFFFFFFFFUL) return false;
    index = static_cast<DWORD>(value);
    return true;
}

int RunWim(const std::vector<std::string>& args) {
    if (args.empty()) return UsageError(kWim, "capture, apply, mount or unmount is needed");
    const std::string action = args[0];
    std::vector<std::string> positional;
    std::string compression = "lzx", temporary;
    bool commit = false;
    for (size_t at = 1; at < args.size(); ++at) {
        const std::string& arg = args[at];
        if ((arg == "--compress" || arg == "--temp") && at + 1 < args.size()) {
            (arg == "--compress" ? compression : temporary) = args[++at];
        } else if (arg == "--commit") {
            commit = true;
        } else if (arg.starts_with("--")) {
            return UsageError(kWim, "unknown option " + arg);
        } else {
            positional.push_back(arg);
        }
    }
    const CString temporaryFolder = temporary.empty() ? CString() : LibraryPath(temporary);

    if (action == "capture") {
        if (positional.size() != 2) return UsageError(kWim, "capture takes DIR and IMAGE");
        const std::pair<const char*, DWORD> kinds[] = {
            {"none", WIM_COMPRESS_NONE}, {"xpress", WIM_COMPRESS_XPRESS}, {"lzx", WIM_COMPRESS_LZX}, {"lzms", WIM_COMPRESS_LZMS}};
        DWORD type = WIM_COMPRESS_LZX;
        bool known = false;
        for (const auto& [name, value] : kinds) {
            if (compression == name) type = value, known = true;
        }
        if (!known) return UsageError(kWim, "--compress takes none, xpress, lzx or lzms");
        const CString image = LibraryPath(positional[1]);
        BOOL captured = FALSE;
        {
            ProgressWindow progress;
            captured = CompressToWim(image, LibraryPath(positional[0]), temporaryFolder, type, progress.percent(), progress.window());
        }
        if (!captured) return Failed("cannot capture " + positional[0] + " into " + Printable(image));
        std::printf("captured %s into %s\n", positional[0].c_str(), Printable(image).c_str());
        return kExitOk;
    }

    if (positional.size() != 3) return UsageError(kWim, action + " takes IMAGE, INDEX and DIR");
    DWORD index = 0;
    if (!ParseIndex(positional[1], index)) return UsageError(kWim, "INDEX is a number from 1");
    const CString image = LibraryPath(positional[0]);
    const CString folder = LibraryPath(positional[2]);
    if (action == "apply") {
        BOOL applied = FALSE;
        {
            ProgressWindow progress;
            applied = ExtractFromWim(image, folder, temporaryFolder, index, progress.percent(), progress.window());
        }
        if (!applied) return Failed("cannot apply image " + positional[1] + " of " + Printable(image));
        std::printf("applied image %u into %s\n", index, Printable(folder).c_str());
        return kExitOk;
    }
    if (action == "mount") {
        if (!MountWim(image, folder, temporaryFolder, index)) return Failed("cannot mount image " + positional[1]);
        std::printf("image %u mounted at %s%s\n", index, Printable(folder).c_str(), temporary.empty() ? " (read-only)" : "");
        return kExitOk;
    }
    if (action == "unmount") {
        if (!UnMountWim(image, folder, index, commit ? TRUE : FALSE)) return Failed("cannot unmount " + Printable(folder));
        std::printf("unmounted %s%s\n", Printable(folder).c_str(), commit ? ", changes written to the image" : "");
        return kExitOk;
    }
    return UsageError(kWim, "unknown action " + action);
}

const CommandRegistration kWimRegistration(kWim);

}  // namespace

}  // namespace cli
