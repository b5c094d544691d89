// velmora copy, mkdir and rmdir: the copy engine on the terminal, with a progress line fed by the file
// copies the library makes, the overwrite questions asked on the terminal and Ctrl-C as the cancel flag.
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "../platform/api.h"
#include "../platform/api_patch.h"
#include "../platform/linux/host.h"
#include "command.h"
#include "progress.h"
#include "report.h"

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

// One line from the terminal; false at the end of input, which closes a dialog as Esc would. The
// question goes to standard error with the progress line, which it interrupts.
bool ReadAnswer(std::string& line) {
    std::fflush(stdout);
    std::fflush(stderr);
    if (!std::getline(std::cin, line)) return false;
    while (!line.empty() && std::isspace(static_cast<unsigned char>(line.back()))) line.pop_back();
    // Typed answers echo themselves; piped ones are shown, so that a log reads as a conversation.
    if (!isatty(STDIN_FILENO)) std::fprintf(stderr, "%s\n", line.c_str());
    return true;
}

int AskTaskDialog(const TASKDIALOGCONFIG& config) {
    std::fprintf(stderr, "\n== %s\n", config.pszWindowTitle ? Printable(config.pszWindowTitle).c_str() : "");
    if (config.pszMainInstruction && *config.pszMainInstruction) std::fprintf(stderr, "%s\n", Printable(config.pszMainInstruction).c_str());
    if (config.pszContent) std::fprintf(stderr, "%s\n", Printable(config.pszContent).c_str());
    std::vector<char> keys(config.cButtons);
    for (UINT i = 0; i < config.cButtons; ++i) {
        const std::string label = ButtonLabel(config.pButtons[i].pszButtonText, keys[i]);
        const bool isDefault = config.nDefaultButton == config.pButtons[i].nButtonID || (config.nDefaultButton == 0 && i == 0);
        std::fprintf(stderr, "  %u) %s%s\n", i + 1, label.c_str(), isDefault ? "  (default)" : "");
    }
    for (;;) {
        std::fprintf(stderr, "choose 1-%u, a key, Enter for the default, or end the input to close: ", config.cButtons);
        std::string line;
        if (!ReadAnswer(line)) {
            std::fprintf(stderr, "\n");
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

// What the user said for every file to come, as the shell's own replace dialog offers: 0 until then.
int g_replaceForAll = 0;
// Files the user chose to keep at the shell's question, for the summary.
size_t g_keptTargets = 0;

int AskReplace(const std::string& question) {
    if (g_replaceForAll != 0) {
        if (g_replaceForAll == IDNO) ++g_keptTargets;
        return g_replaceForAll;
    }
    for (;;) {
        std::fprintf(stderr, "%s\n  [y]es, [n]o, yes to [a]ll, no to all ([s]kip all), [c]ancel: ", question.c_str());
        std::string line;
        if (!ReadAnswer(line)) {
            std::fprintf(stderr, "\n");
            return IDCANCEL;
        }
        if (line == "y" || line == "yes") return IDYES;
        if (line == "a" || line == "all" || line == "yes to all") return g_replaceForAll = IDYES;
        if (line == "n" || line == "no" || line == "s" || line == "skip all" || line == "no to all") {
            if (line != "n" && line != "no") g_replaceForAll = IDNO;
            ++g_keptTargets;
            return IDNO;
        }
        if (line == "c" || line == "cancel") return IDCANCEL;
    }
}

int AskYesNo(const std::string& question) {
    for (;;) {
        std::fprintf(stderr, "%s [y]es / [n]o: ", question.c_str());
        std::string line;
        if (!ReadAnswer(line)) {
            std::fprintf(stderr, "\n");
            return IDCANCEL;
        }
        if (line == "y" || line == "yes") return IDYES;
        if (line == "n" || line == "no") return IDCANCEL;
    }
}

void InstallTerminalResponder() {
    vlx::SetDialogResponder([](const vlx::DialogRequest& request) {
        switch (request.kind) {
            case vlx::DialogKind::TaskDialog: return AskTaskDialog(*request.taskDialog);
            case vlx::DialogKind::ShellReplaceFile:
                return AskReplace("\n" + Printable(request.target.c_str()) + " exists. Replace it with " +
                                  Printable(request.source.c_str()) + "?");
            case vlx::DialogKind::ShellDelete: {
                std::string question = "Delete ";
                question += Printable(request.target.c_str());
                if (request.itemCount > 1) question += " and " + std::to_string(request.itemCount - 1) + " more";
                question += " for good?";
                return AskYesNo(question);
            }
            case vlx::DialogKind::ShellCopyError:
                std::fprintf(stderr, "velmora copy: cannot copy %s to %s: %s\n", Printable(request.source.c_str()).c_str(),
                             Printable(request.target.c_str()).c_str(), ErrorWords(request.error).c_str());
                return IDOK;
        }
        return vlx::kDialogCannotBeShown;
    });
}

// ---- What a copy has done so far, fed by the file copies under it and drawn as the progress line.

// A tree of many small files calls these for every file: what they do for a drawing that does not fall
// due is kept to a clock reading, and the name becomes text only when a drawing shows it.
struct CopyTally {
    explicit CopyTally(ProgressLine::Mode mode) : line(mode, "copied") {}
    ProgressLine line;
    uint64_t files = 0;     // files copied in full
    uint64_t bytes = 0;     // their bytes

    void Start(LPCWSTR name) { line.SetCurrent(name, WStrLen(name)); }
    void Chunk(uint64_t done) { line.Update(files, bytes + done); }
    void Done(uint64_t size) {
        ++files;
        bytes += size;
        line.Update(files, bytes);
    }
};

// Files and bytes under the sources, for the totals of the progress line; a filter leaves files out as
// the copy does.
void MeasureSources(const std::vector<CString>& sources, const CString& filter, CopyTally& tally) {
    ULONGLONG files = 0, folders = 0, bytes = 0;
    for (const CString& source : sources) {
        if (GetPathIsFileOrFolder(source) == 2) {
            GetFileCountInFolder(source, &files, &folders, &bytes, nullptr, filter, nullptr);
        } else {
            ULONGLONG length = 0;
            if (GetFileLength(source, &length) == 1) {
                ++files;
                bytes += length;
            }
        }
    }
    tally.line.SetTotals(files, bytes);
}

// The direct copy's file copies, watched: each one's name and bytes go to the tally and the library's own
// progress routine still gets every call.
class DirectCopyFeed {
public:
    explicit DirectCopyFeed(CopyTally& tally)
        : tally_(tally),
          patch_([this](LPCWSTR existing, LPCWSTR newName, LPPROGRESS_ROUTINE progress, LPVOID data, LPBOOL cancel, DWORD flags) {
              Relay relay{progress, data, &tally_};
              tally_.Start(existing);
              const BOOL copied = patch_.Original()(existing, newName, RelayChunk, &relay, cancel, flags);
              const DWORD code = sys().GetLastError();
              if (copied) tally_.Done(relay.size);
              sys().SetLastError(code);
              return copied;
          }) {}

private:
    struct Relay {
        LPPROGRESS_ROUTINE routine;
        LPVOID data;
        CopyTally* tally;
        uint64_t size = 0;
    };
    static DWORD CALLBACK RelayChunk(LARGE_INTEGER total, LARGE_INTEGER transferred, LARGE_INTEGER streamSize,
                                     LARGE_INTEGER streamTransferred, DWORD stream, DWORD reason, HANDLE from, HANDLE to,
                                     LPVOID data) {
        Relay& relay = *static_cast<Relay*>(data);
        relay.size = static_cast<uint64_t>(total.QuadPart);
        relay.tally->Chunk(static_cast<uint64_t>(transferred.QuadPart));
        if (relay.routine == nullptr) return PROGRESS_CONTINUE;
        return relay.routine(total, transferred, streamSize, streamTransferred, stream, reason, from, to, relay.data);
    }

    CopyTally& tally_;
    ApiPatch<&Win32Api::CopyFileExW> patch_;
};

// The shell's progress window for the length of a shell copy, drawn as the progress line.
class ShellCopyFeed {
public:
    explicit ShellCopyFeed(CopyTally& tally) : tally_(&tally) {
        vlx::SetShellProgressObserver([&tally, this](const vlx::ShellCopyProgress& progress) {
            if (progress.source != source_) {
                if (!source_.empty() && pendingSize_ == pendingDone_) tally.Done(pendingSize_);
                source_ = progress.source;
                tally.Start(progress.source.c_str());
            }
            pendingSize_ = progress.fileBytes;
            pendingDone_ = progress.fileDone;
            tally.Chunk(progress.fileDone);
        });
    }
    ~ShellCopyFeed() {
        vlx::SetShellProgressObserver(nullptr);
        if (!source_.empty() && pendingSize_ == pendingDone_) tally_->Done(pendingSize_);
    }
    ShellCopyFeed(const ShellCopyFeed&) = delete;
    ShellCopyFeed& operator=(const ShellCopyFeed&) = delete;

private:
    CopyTally* tally_ = nullptr;
    WString source_;
    ULONGLONG pendingSize_ = 0, pendingDone_ = 0;
};

// The window the library draws each file's percentage into, wrapped as the CProgressCtrl it takes; the
// progress line is drawn from the copies themselves, which also tell the file and the bytes.
class QuietBar {
public:
    QuietBar() { control_.Attach(sys().CreateWindowExW(0, PROGRESS_CLASSW, _T(""), 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr)); }
    ~QuietBar() { control_.DestroyWindow(); }
    QuietBar(const QuietBar&) = delete;
    QuietBar& operator=(const QuietBar&) = delete;
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
    "copy files and folder trees, directly or through the shell, showing the progress",
    "copy [--quiet] [--filter .EXT.EXT] SRC DST\n"
    "       copy --shell [--quiet] [--with-folder-name] [--full-path] [--direct-limit BYTES] [--silent] SRC DST\n"
    "       copy [--quiet] [--with-folder-name] [--full-path] [--silent] SRC SRC... DST\n"
    "  One source is copied file by file into the folder DST; Ctrl-C cancels the file being copied and the\n"
    "  ones after it. --filter copies only files ending in one of the extensions. --shell hands the copy to\n"
    "  the shell: folders are copied with their contents, --with-folder-name into DST\\NAME, --full-path\n"
    "  into DST\\ the source's whole path; single files up to --direct-limit bytes (default 0) are copied\n"
    "  directly, asking before replacing one; --silent asks nothing, replaces and shows no progress.\n"
    "  Several sources go to the shell in one operation. When the shell asks before replacing a file, it\n"
    "  offers yes, no, yes to all, no to all and cancel; files kept at the question are no failure.\n"
    "  The progress line on standard error shows the current file, files and bytes done of the total, the\n"
    "  rate and the time left; plain lines when standard error is no terminal; nothing with --quiet.\n"
    "  A folder is never copied into itself or into a folder inside it. Every entry the copy could not\n"
    "  list or copy is named with the reason, and the exit status is then 1.",
    RunCopy,
};

// The end of a shell copy in words: done (files kept at the question are no failure), or why it stopped.
int ReportShellCopy(BOOL copied, int code, CodeSource source, const CString& firstSource) {
    if (g_keptTargets > 0)
        std::printf("kept %zu existing %s, as answered\n", g_keptTargets, g_keptTargets == 1 ? "file" : "files");
    if (copied) return kExitOk;
    // The direct way of one file: the user chose skip, or closed the question.
    if (source == CodeSource::CopyFilesEx && code == ERROR_ALREADY_EXISTS) {
        std::printf("kept the existing copy of %s, as answered\n", Printable(firstSource).c_str());
        return kExitOk;
    }
    if (code == ERROR_CANCELLED || (source == CodeSource::CopyFilesEx && code == -1)) return Fail(kCopy, "cancelled: the files after that point were not copied");
    return Fail(kCopy, "the copy stopped: " + CodeWords(source, code));
}

int RunCopy(const std::vector<std::string>& args) {
    std::vector<std::string> paths;
    std::string filter;
    bool shell = false, withFolderName = false, fullPath = false, silent = false, haveFilter = false, haveLimit = false, quiet = false;
    ULONGLONG directLimit = 0;
    for (size_t at = 0; at < args.size(); ++at) {
        const std::string& arg = args[at];
        const bool hasValue = at + 1 < args.size();
        if (arg == "--filter" || arg == "--direct-limit") {
            if (!hasValue) return UsageError(kCopy, arg + " needs a value");
            if (arg == "--filter") {
                filter = args[++at];
                haveFilter = true;
                continue;
            }
            char* end = nullptr;
            directLimit = std::strtoull(args[++at].c_str(), &end, 10);
            if (end == nullptr || *end != 0 || args[at].empty() || args[at][0] == '-') return UsageError(kCopy, "--direct-limit needs a byte count");
            haveLimit = true;
        } else if (arg == "--shell") {
            shell = true;
        } else if (arg == "--with-folder-name") {
            withFolderName = true;
        } else if (arg == "--full-path") {
            fullPath = true;
        } else if (arg == "--silent") {
            silent = true;
        } else if (arg == "--quiet" || arg == "-q") {
            quiet = true;
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
    std::vector<CString> sources;
    for (size_t i = 0; i + 1 < paths.size(); ++i) sources.push_back(LibraryPath(paths[i]));
    // Refused before anything is written, as cp refuses: a folder copied into itself would take in its
    // own copy, level after level, until the paths grew too long.
    for (const CString& source : sources) {
        const DWORD attributes = sys().GetFileAttributesW(source);
        if (attributes == INVALID_FILE_ATTRIBUTES) return Fail(kCopy, "cannot copy " + Printable(source) + ": " + ErrorWords(sys().GetLastError()));
        if ((attributes & FILE_ATTRIBUTE_DIRECTORY) && InsideSource(source, destination))
            return Fail(kCopy, "cannot copy " + Printable(source) + " into " + Printable(destination) + ", inside itself");
    }
    // Every way copies into a folder: a file there would fail each in its own words, none of them clear.
    const DWORD destinationAttributes = sys().GetFileAttributesW(destination);
    if (destinationAttributes != INVALID_FILE_ATTRIBUTES && (destinationAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
        return Fail(kCopy, "cannot copy into " + Printable(destination) + ": it is a file, and the destination must be a folder");

    const ProgressLine::Mode mode = ProgressLine::ModeFor(quiet || (silent && (shell || multiple)));
    CopyTally tally(mode);
    if (mode != ProgressLine::Mode::Quiet) MeasureSources(sources, CString(WStrFromUtf8(filter).c_str()), tally);
    if (multiple) {
        CStringArray array;
        for (const CString& source : sources) array.Add(source);
        int code = 0;
        BOOL copied = FALSE;
        {
            ShellCopyFeed feed(tally);
            copied = CopyFilesMultiEx(&array, destination, silent ? 1 : 0, 0, withFolderName ? 1 : 0, fullPath ? 1 : 0, &code, nullptr);
        }
        tally.line.Finish();
        return ReportShellCopy(copied, code, CodeSource::CopyFilesMultiEx, sources[0]);
    }
    const CString& source = sources[0];
    if (shell) {
        int code = 0;
        BOOL copied = FALSE;
        {
            ShellCopyFeed feed(tally);
            copied = CopyFilesEx(source, destination, silent ? 1 : 0, 0, withFolderName ? 1 : 0, fullPath ? 1 : 0, directLimit, &code, nullptr);
        }
        tally.line.Finish();
        return ReportShellCopy(copied, code, CodeSource::CopyFilesEx, source);
    }

    CatchInterrupt();
    BOOL copied = FALSE;
    // The copy passes over what it cannot list or copy and goes on; the watch names each such entry.
    FailureWatch watch(FailureWatch::kListing | FailureWatch::kCopying);
    {
        DirectCopyFeed feed(tally);
        QuietBar bar;
        copied = CopyFilesNoneShell(source, destination, &g_cancel, bar.control(), CString(WStrFromUtf8(filter).c_str()));
    }
    tally.line.Finish();
    signal(SIGINT, SIG_DFL);
    if (__atomic_load_n(&g_cancel, __ATOMIC_RELAXED)) return Fail(kCopy, "cancelled: the files after that point were not copied");
    const bool complete = watch.Report(kCopy);
    if (!complete) return Fail(kCopy, "the copy is incomplete: " + std::to_string(watch.failures().size()) + " entries above were not copied");
    // The export's own result is that of the last file copied straight into the top folder; with nothing
    // failed on the way it only matters for a single file.
    const bool sourceIsFolder = (sys().GetFileAttributesW(source) & FILE_ATTRIBUTE_DIRECTORY) != 0;
    if (!copied && !sourceIsFolder) return Fail(kCopy, "cannot copy " + Printable(source) + ": " + ErrorWords(sys().GetLastError()));
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
    // The export's result says only that a level could not be made; the reason is that of the folder
    // creation that failed.
    DWORD error = ERROR_SUCCESS;
    BOOL made = FALSE;
    {
        ApiPatch<&Win32Api::CreateDirectoryW> watch([&error, &watch](LPCWSTR folder, LPSECURITY_ATTRIBUTES security) {
            const BOOL created = watch.Original()(folder, security);
            const DWORD code = sys().GetLastError();
            if (!created && code != ERROR_ALREADY_EXISTS) error = code;
            sys().SetLastError(code);
            return created;
        });
        made = CreateFolders(path);
    }
    const DWORD attributes = sys().GetFileAttributesW(path);
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
        return Fail(kMkdir, "cannot make " + Printable(path) + ": a file of that name is in the way");
    if (!made || attributes == INVALID_FILE_ATTRIBUTES)
        return Fail(kMkdir, "cannot make " + Printable(path) + ": " + ErrorWords(error == ERROR_SUCCESS ? ERROR_PATH_NOT_FOUND : error));
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
    // Room for the longest path Windows takes, with its \\?\ prefix.
    std::vector<WCHAR> full(32768);
    const DWORD length = sys().GetFullPathNameW(typed, static_cast<DWORD>(full.size()), full.data(), nullptr);
    if (length == 0 || length >= full.size()) return Fail(kRmdir, "not a usable path: " + Printable(typed));
    CString path = full.data();
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
    // A full path past MAX_PATH reaches the library only with the long-path prefix.
    if (path.GetLength() >= MAX_PATH) path = CString(_T("\\\\?\\")) + path;
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
