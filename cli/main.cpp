// velmora: the command-line host of the library. Global options, then a subcommand and its arguments.
#include <malloc.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstring>

#include "../frame/version.h"
#include "../platform/linux/host.h"
#include "command.h"

namespace cli {

namespace {

std::vector<Command>& Registry() {
    static std::vector<Command> commands;
    return commands;
}

void PrintHelp() {
    std::printf(
        "usage: velmora [--map X=DIR]... COMMAND [ARGS]\n"
        "\n"
        "File, folder and volume operations of the Velmora library, run over its Linux platform.\n"
        "Paths may be host paths (/tmp/x) or Windows paths (C:\\tmp\\x); C: is the host root.\n"
        "\n"
        "options:\n"
        "  --map X=DIR   make drive X: the host folder DIR\n"
        "  --disk IMAGE[:LETTERS]  attach a disk image; its volumes get the letters in order ('-' skips one)\n"
        "  --help        show this text; COMMAND --help shows a command's own\n"
        "  --version     show the library's version\n"
        "\n"
        "commands:\n");
    for (const Command& command : Commands()) std::printf("  %-10s %s\n", command.name, command.summary);
    std::printf(
        "\n"
        "Long work (copy, hash, count) shows its progress on standard error: one line redrawn on a terminal,\n"
        "plain lines otherwise, nothing with --quiet. count, compare, stat and hash take --json.\n"
        "A command that could not do everything names each entry it left out, with the reason.\n"
        "\n"
        "exit status:\n"
        "  0  all done (files kept because the user said so included)\n"
        "  1  something failed or was left out, or was cancelled; compare: the trees differ\n"
        "  2  bad usage: an unknown command or option, a missing value or path\n");
}

bool IsWindowsPath(const std::string& text) {
    if (text.size() >= 2 && std::isalpha(static_cast<unsigned char>(text[0])) && text[1] == ':') return true;
    return text.find('\\') != std::string::npos;
}

}  // namespace

CommandRegistration::CommandRegistration(const Command& command) { Registry().push_back(command); }

const std::vector<Command>& Commands() { return Registry(); }

CString LibraryPath(const std::string& argument) {
    if (IsWindowsPath(argument)) return CString(WStrFromUtf8(argument).c_str());
    WString path = vlx::HostToWin32Path(argument);
    // Keep a trailing separator the user typed: it means "this folder" to several commands.
    if (argument.size() > 1 && argument.back() == '/' && path.back() != '\\') path += _T('\\');
    return CString(path.c_str());
}

std::string Printable(LPCWSTR text) { return WStrToUtf8(text); }

int Fail(const Command& command, const std::string& message, int code) {
    std::fflush(stdout);  // what the command printed so far comes first when both streams go to one place
    std::fprintf(stderr, "velmora %s: %s\n", command.name, message.c_str());
    return code;
}

int UsageError(const Command& command, const std::string& message) {
    std::fflush(stdout);
    std::fprintf(stderr, "velmora %s: %s\nusage: velmora %s\n", command.name, message.c_str(), command.usage);
    return kExitUsage;
}

}  // namespace cli

// Deep paths are copied whole at every level of a walk or a build, tens or hundreds of kilobytes a
// time: a heap that handed its top back to the host after each (or mapped each large block afresh)
// would ask for the memory again, and have it zeroed, at the next level. A few megabytes kept spare cost
// nothing next to that. Setting either limit turns off the heap's own adjustment of the other, so both
// are set.
constexpr int kSpareHeapTop = 16 << 20;
constexpr int kSmallestMappedBlock = 4 << 20;

int main(int argc, char** argv) {
    mallopt(M_TRIM_THRESHOLD, kSpareHeapTop);
    mallopt(M_MMAP_THRESHOLD, kSmallestMappedBlock);
    // Into a file or a pipe, a command's output (the list report's rows, thousands of them) leaves in
    // large writes rather than one per page; a terminal keeps the line buffering that shows each row.
    static char outputBuffer[1 << 16];
    if (!isatty(STDOUT_FILENO)) std::setvbuf(stdout, outputBuffer, _IOFBF, sizeof outputBuffer);
    std::vector<std::string> args(argv + 1, argv + argc);
    // --disk IMAGE[:LETTERS] may stand anywhere, so that it can follow any command; its images stay
    // attached for the run and are detached (and so flushed) at the end.
    cli::AttachedDisks disks;
    if (!disks.TakeOptions(args)) return cli::kExitUsage;
    size_t at = 0;
    for (; at < args.size(); ++at) {
        const std::string& arg = args[at];
        if (arg == "--help" || arg == "-h") {
            cli::PrintHelp();
            return cli::kExitOk;
        }
        if (arg == "--version" || arg == "-V") {
            std::printf("velmora %s\n", VELMORA_VERSION_TEXT);
            return cli::kExitOk;
        }
        if (arg == "--map" && at + 1 >= args.size()) {
            std::fprintf(stderr, "velmora: --map needs a value, as T=/tmp/data\n");
            return cli::kExitUsage;
        }
        if (arg == "--map") {
            const std::string mapping = args[++at];
            if (mapping.size() < 3 || mapping[1] != '=' || !vlx::MapDrive(static_cast<WCHAR>(mapping[0]), mapping.substr(2))) {
                std::fprintf(stderr, "velmora: cannot map '%s': give a letter and an existing folder, as T=/tmp/data\n",
                             mapping.c_str());
                return cli::kExitUsage;
            }
            continue;
        }
        break;
    }
    if (at >= args.size()) {
        cli::PrintHelp();
        return cli::kExitUsage;
    }
    for (const cli::Command& command : cli::Commands()) {
        if (args[at] != command.name) continue;
        std::vector<std::string> rest(args.begin() + static_cast<std::ptrdiff_t>(at) + 1, args.end());
        for (const std::string& arg : rest) {
            if (arg == "--help" || arg == "-h") {
                std::printf("usage: velmora %s\n", command.usage);
                return cli::kExitOk;
            }
        }
        return command.run(rest);
    }
    if (!args[at].empty() && args[at][0] == '-')
        std::fprintf(stderr, "velmora: unknown option '%s' (velmora --help lists them)\n", args[at].c_str());
    else
        std::fprintf(stderr, "velmora: unknown command '%s' (velmora --help lists them)\n", args[at].c_str());
    return cli::kExitUsage;
}
