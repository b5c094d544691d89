// velmora copy, mkdir and rmdir: the copy engine on the terminal, with a progress bar drawn from the
// library's progress messages, the overwrite question asked on the terminal and Ctrl-C as the cancel flag.
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "../platform/api.h"
#include "../platform/linux/host.h"
#include "command.h"

namespace cli {

namespace {

// ---- The terminal user: the answers to the library's and the shell's questions.

// A button text without its access-key marker, and the key it marks (0 when none).
std::string ButtonLabel(LPCWSTR text, char& key) {
    WString label;
    key = 0;
    for (LPCWSTR at = text; *at != 0; ++at) {
        if (*at == '&' && at[1] != 0) {
            if (at[1] < 0x80) key = static_cast<char>(std::tolower(static_cast<int>(at[1])));
            continue;
        }
        label += *at;
    }
    return WStrToUtf8(label);
}

// One line from the terminal; false at the end of input, which closes a dialog as Esc would.
bool ReadAnswer(std::string& line) {
    std::fflush(stdout);
    if (!std::getline(std::cin, line)) return false;
    while (!line.empty() && std::isspace(static_cast<unsigned char>(line.back()))) line.pop_back();
    return true;
}

int AskTaskDialog(const TASKDIALOGCONFIG& config) {
    std::printf("\n== %s\n", config.pszWindowTitle ? Printable(config.pszWindowTitle).c_str() : "");
    if (config.pszMainInstruction && *config.pszMainInstruction) std::printf("%s\n", Printable(config.pszMainInstruction).c_str());
    if (config.pszContent) std::printf("%s\n", Printable(config.pszContent).c_str());
    std::vector<char> keys(config.cButtons);
    for (UINT i = 0; i < config.cButtons; ++i) {
        const std::string label = ButtonLabel(config.pButtons[i].pszButtonText, keys[i]);
        const bool isDefault = config.nDefaultButton == config.pButtons[i].nButtonID || (config.nDefaultButton == 0 && i == 0);
        std::printf("  %u) %s%s\n", i + 1, label.c_str(), isDefault ? "  (default)" : "");
    }
    for (;;) {
        std::printf("choose 1-%u, a key, Enter for the default, or end the input to close: ", config.cButtons);
        std::string line;
        if (!ReadAnswer(line)) {
            std::printf("\n");
            return IDCANCEL;
        }
        if (line.empty() && config.cButtons > 0) {
            for (UINT i = 0; i < config.cButtons; ++i) {
                if (config.pButtons[i].nButtonID == config.nDefaultButton) return config.nDefaultButton;
            }
            return config.pButtons[0].nButtonID;
        }
        const char typed = static_cast<char>(std::tolower(static_cast<unsigned char>(line[0])));
        for (UINT i = 0; i < config.cButtons; ++i) {
            if ((line.size() == 1 && typed == keys[i]) || line == std::to_string(i + 1)) return config.pButtons[i].nButtonID;
        }
    }
}

int AskYesNoCancel(const std::string& question, bool offerCancel) {
    for (;;) {
        std::printf("%s %s ", question.c_str(), offerCancel ? "[y]es / [n]o / [c]ancel:" : "[y]es / [n]o:");
        std::string line;
        if (!ReadAnswer(line)) {
            std::printf("\n");
            return IDCANCEL;
        }
        if (line == "y" || line == "yes") return IDYES;
        if (line == "n" || line == "no") return offerCancel ? IDNO : IDCANCEL;
        if (offerCancel && (line == "c" || line == "cancel")) return IDCANCEL;
    }
}

void InstallTerminalResponder() {
    vlx::SetDialogResponder([](const vlx::DialogRequest& request) {
        switch (request.kind) {
            case vlx::DialogKind::TaskDialog: return AskTaskDialog(*request.taskDialog);
            case vlx::DialogKind::ShellReplaceFile:
            {
                std::string question = "\n";
                question += Printable(request.target.c_str());
                question += " exists. Replace it with ";
                question += Printable(request.source.c_str());
                question += "?";
                return AskYesNoCancel(question, true);
            }
            case vlx::DialogKind::ShellDelete: {
                std::string question = "Delete ";
                question += Printable(request.target.c_str());
                if (request.itemCount > 1) question += " and " + std::to_string(request.itemCount - 1) + " more";
                question += " for good?";
                return AskYesNoCancel(question, false);
            }
        }
        return vlx::kDialogCannotBeShown;
    });
}

// ---- The progress bar: a window of our own that draws what the library sends it.

constexpr LPCWSTR kBarClass = _T("VelmoraTerminalProgress");
constexpr int kBarWidth = 40;

struct BarState {
    int low = 0;
    int high = 100;
    int position = 0;
    bool lineOpen = false;  // a bar is drawn on the current line
    bool full = false;      // the bar on the line reached the top: the file is done
    int filesDone = 0;
};
BarState g_bar;

// One line per file: redrawn in place as the position moves, ended when it reaches the top (the library
// sends the top twice for a file, once from the copy's last chunk and once when the copy returned).
void DrawBar() {
    const int span = g_bar.high > g_bar.low ? g_bar.high - g_bar.low : 1;
    const int percent = (g_bar.position - g_bar.low) * 100 / span;
    if (g_bar.full && percent >= 100) return;
    g_bar.full = percent >= 100;
    const int filled = (percent < 0 ? 0 : percent > 100 ? 100 : percent) * kBarWidth / 100;
    std::printf("\r  [%s%s] %3d%%", std::string(static_cast<size_t>(filled), '#').c_str(),
                std::string(static_cast<size_t>(kBarWidth - filled), ' ').c_str(), percent);
    g_bar.lineOpen = true;
    if (g_bar.full) {
        ++g_bar.filesDone;
        std::printf("  file %d\n", g_bar.filesDone);
        g_bar.lineOpen = false;
    }
    std::fflush(stdout);
}

LRESULT CALLBACK BarProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case PBM_SETRANGE:
            g_bar.low = LOWORD(lParam);
            g_bar.high = HIWORD(lParam);
            return 0;
        case PBM_SETPOS: {
            const int previous = g_bar.position;
            g_bar.position = static_cast<int>(wParam);
            DrawBar();
            return previous;
        }
        case PBM_GETPOS:
            return g_bar.position;
        default:
            return sys().DefWindowProcW(window, message, wParam, lParam);
    }
}

// The bar window for the length of one command, wrapped as the CProgressCtrl the library draws into.
class TerminalBar {
public:
    TerminalBar() {
        WNDCLASSW windowClass{};
        windowClass.lpfnWndProc = BarProc;
        windowClass.lpszClassName = kBarClass;
        sys().RegisterClassW(&windowClass);
        control_.Attach(sys().CreateWindowExW(0, kBarClass, _T(""), 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr));
    }
    ~TerminalBar() {
        if (g_bar.lineOpen) std::printf("\n");
        control_.DestroyWindow();
        sys().UnregisterClassW(kBarClass, nullptr);
    }
    TerminalBar(const TerminalBar&) = delete;
    TerminalBar& operator=(const TerminalBar&) = delete;
    CProgressCtrl* control() { return control_.GetSafeHwnd() != nullptr ? &control_ : nullptr; }

private:
    CProgressCtrl control_;
};

// ---- Ctrl-C: the first sets the cancel flag, a second ends the program as usual.

BOOL g_cancel = FALSE;

void OnInterrupt(int) { __atomic_store_n(&g_cancel, TRUE, __ATOMIC_RELAXED); }

void CatchInterrupt() {
    struct sigaction action {};
    action.sa_handler = OnInterrupt;
    action.sa_flags = SA_RESETHAND;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
}

// ---- copy

int RunCopy(const std::vector<std::string>& args);

const Command kCopy = {
    "copy",
    "copy files and folder trees, directly with a progress bar or through the shell",
    "copy [--filter .EXT.EXT] SRC DST\n"
    "       copy --shell [--with-folder-name] [--full-path] [--direct-limit BYTES] [--silent] SRC DST\n"
    "       copy [--with-folder-name] [--full-path] [--silent] SRC SRC... DST\n"
    "  One source is copied file by file into the folder DST, each file's progress drawn as a bar; Ctrl-C\n"
    "  cancels the file being copied and the ones after it. --filter copies only files ending in one of\n"
    "  the extensions. --shell hands the copy to the shell: folders are copied with their contents,\n"
    "  --with-folder-name into DST\\NAME, --full-path into DST\\ the source's whole path; single files up to\n"
    "  --direct-limit bytes (default 0) are copied directly, asking before replacing one; --silent asks\n"
    "  nothing and replaces. Several sources go to the shell in one operation.",
    RunCopy,
};

int RunCopy(const std::vector<std::string>& args) {
    std::vector<std::string> paths;
    std::string filter;
    bool shell = false, withFolderName = false, fullPath = false, silent = false, haveFilter = false, haveLimit = false;
    ULONGLONG directLimit = 0;
    for (size_t at = 0; at < args.size(); ++at) {
        const std::string& arg = args[at];
        if (arg == "--filter" && at + 1 < args.size()) {
            filter = args[++at];
            haveFilter = true;
        } else if (arg == "--direct-limit" && at + 1 < args.size()) {
            char* end = nullptr;
            directLimit = std::strtoull(args[++at].c_str(), &end, 10);
            if (end == nullptr || *end != 0 || args[at].empty()) return UsageError(kCopy, "--direct-limit needs a byte count");
            haveLimit = true;
        } else if (arg == "--shell") {
            shell = true;
        } else if (arg == "--with-folder-name") {
            withFolderName = true;
        } else if (arg == "--full-path") {
            fullPath = true;
        } else if (arg == "--silent") {
            silent = true;
        } else if (arg.size() > 1 && arg[0] == '-' && arg[1] == '-') {
            return UsageError(kCopy, "unknown option '" + arg + "'");
        } else {
            paths.push_back(arg);
        }
    }
    if (paths.size() < 2) return UsageError(kCopy, "a source and a destination are needed");
    const bool multiple = paths.size() > 2;
    if (haveFilter && (shell || multiple)) return UsageError(kCopy, "--filter belongs to the direct copy of one source");
    if (!shell && !multiple && (withFolderName || fullPath || haveLimit || silent))
        return UsageError(kCopy, "--with-folder-name, --full-path, --direct-limit and --silent need --shell");
    if (multiple && haveLimit) return UsageError(kCopy, "--direct-limit takes one source");

    InstallTerminalResponder();
    const CString destination = LibraryPath(paths.back());
    if (multiple) {
        CStringArray sources;
        for (size_t i = 0; i + 1 < paths.size(); ++i) sources.Add(LibraryPath(paths[i]));
        int code = 0;
        if (!CopyFilesMultiEx(&sources, destination, silent ? 1 : 0, 0, withFolderName ? 1 : 0, fullPath ? 1 : 0, &code, nullptr))
            return Fail(kCopy, "the copy failed (detail code " + std::to_string(code) + ")");
        return kExitOk;
    }
    const CString source = LibraryPath(paths[0]);
    if (shell) {
        int code = 0;
        if (!CopyFilesEx(source, destination, silent ? 1 : 0, 0, withFolderName ? 1 : 0, fullPath ? 1 : 0, directLimit, &code, nullptr)) {
            if (code == ERROR_ALREADY_EXISTS) return Fail(kCopy, "skipped: the target exists");
            if (code == -1) return Fail(kCopy, "cancelled");
            return Fail(kCopy, "the copy failed (detail code " + std::to_string(code) + ")");
        }
        return kExitOk;
    }

    CatchInterrupt();
    BOOL copied = FALSE;
    {
        TerminalBar bar;
        copied = CopyFilesNoneShell(source, destination, &g_cancel, bar.control(), CString(WStrFromUtf8(filter).c_str()));
    }
    signal(SIGINT, SIG_DFL);
    if (__atomic_load_n(&g_cancel, __ATOMIC_RELAXED)) return Fail(kCopy, "cancelled");
    // The result is that of the last file copied straight into the top folder.
    if (!copied) return Fail(kCopy, "no file was copied straight into the top folder, or the last one failed");
    return kExitOk;
}

// ---- mkdir and rmdir

int RunMkdir(const std::vector<std::string>& args);
int RunRmdir(const std::vector<std::string>& args);

const Command kMkdir = {
    "mkdir",
    "make a folder with every missing folder above it",
    "mkdir PATH\n"
    "  Exit 1 when the folder is not there afterwards.",
    RunMkdir,
};

const Command kRmdir = {
    "rmdir",
    "delete a folder with everything in it, for good",
    "rmdir [--silent] PATH\n"
    "  Without --silent the shell asks before deleting. Links inside are deleted, never followed; a drive's\n"
    "  root and the current folder are refused. What could not be deleted is listed by name.",
    RunRmdir,
};

int RunMkdir(const std::vector<std::string>& args) {
    if (args.size() != 1) return UsageError(kMkdir, "one path is needed");
    const CString path = LibraryPath(args[0]);
    if (!CreateFolders(path)) return Fail(kMkdir, "cannot make " + Printable(path));
    const DWORD attributes = sys().GetFileAttributesW(path);
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
        return Fail(kMkdir, "the parent exists but " + Printable(path) + " is no folder");
    return kExitOk;
}

// What is left under a folder whose deletion failed, for the user to see by name; links are listed, not
// entered. At most kShownLeft names are printed.
constexpr size_t kShownLeft = 50;

void ListLeft(const CString& folder, size_t& shown, size_t& total) {
    WIN32_FIND_DATAW data{};
    const CString pattern = folder + _T("\\*");
    HANDLE find = sys().FindFirstFileW(pattern, &data);
    if (find == INVALID_HANDLE_VALUE) return;
    do {
        const CString name = data.cFileName;
        if (name == _T(".") || name == _T("..")) continue;
        const CString path = folder + _T("\\") + name;
        if (++total <= kShownLeft) {
            std::fprintf(stderr, "  left: %s\n", Printable(path).c_str());
            ++shown;
        }
        const DWORD attributes = data.dwFileAttributes;
        if ((attributes & FILE_ATTRIBUTE_DIRECTORY) && !(attributes & FILE_ATTRIBUTE_REPARSE_POINT)) ListLeft(path, shown, total);
    } while (sys().FindNextFileW(find, &data));
    sys().FindClose(find);
}

int RunRmdir(const std::vector<std::string>& args) {
    bool silent = false;
    std::vector<std::string> paths;
    for (const std::string& arg : args) {
        if (arg == "--silent") silent = true;
        else paths.push_back(arg);
    }
    if (paths.size() != 1) return UsageError(kRmdir, "one path is needed");
    // An empty argument would name the current folder; nobody means that by it.
    if (paths[0].empty()) return UsageError(kRmdir, "the path is empty");
    // The full path, so that "C:" and "x\\.." are judged (and reported) as the folders they stand for.
    const CString typed = LibraryPath(paths[0]);
    WCHAR full[MAX_PATH];
    const DWORD length = sys().GetFullPathNameW(typed, MAX_PATH, full, nullptr);
    if (length == 0 || length >= MAX_PATH) return Fail(kRmdir, "not a usable path: " + Printable(typed));
    CString path = full;
    if (path.GetLength() > 3) path.TrimRight(_T('\\'));
    if (path.GetLength() <= 3) return Fail(kRmdir, "refused: " + Printable(path) + " is a drive's root");
    WCHAR current[MAX_PATH];
    const DWORD currentLength = sys().GetCurrentDirectoryW(MAX_PATH, current);
    if (currentLength > 0 && currentLength < MAX_PATH) {
        const CString here = current;
        if (here.CompareNoCase(path) == 0 || (here.GetLength() > path.GetLength() && here[path.GetLength()] == _T('\\') &&
                                              here.Left(path.GetLength()).CompareNoCase(path) == 0))
            return Fail(kRmdir, "refused: " + Printable(path) + " is the current folder or holds it");
    }
    InstallTerminalResponder();
    if (DeleteFolders(path, silent ? 1 : 0, nullptr)) return kExitOk;
    const DWORD attributes = sys().GetFileAttributesW(path);
    if (attributes == INVALID_FILE_ATTRIBUTES) return Fail(kRmdir, "not deleted: " + Printable(path) + " (no such folder)");
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return Fail(kRmdir, "not deleted: " + Printable(path) + " is a file");
    const int result = Fail(kRmdir, "not deleted: " + Printable(path) + " (the question declined, or entries that could not be deleted)");
    size_t shown = 0, total = 0;
    ListLeft(path, shown, total);
    if (total > shown) std::fprintf(stderr, "  and %zu more\n", total - shown);
    return result;
}

const CommandRegistration kCopyRegistration(kCopy);
const CommandRegistration kMkdirRegistration(kMkdir);
const CommandRegistration kRmdirRegistration(kRmdir);

}  // namespace

}  // namespace cli
