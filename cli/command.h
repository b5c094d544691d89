// The command-line host's shape: each subcommand registers itself with a name, a one-line summary, its
// usage text and a function that runs it. Exit codes: 0 done, 1 the operation failed, 2 bad usage.
#pragma once

#include <string>
#include <vector>

#include <velmora/velmora.h>

namespace cli {

enum ExitCode { kExitOk = 0, kExitFailed = 1, kExitUsage = 2 };

struct Command {
    const char* name;
    const char* summary;
    const char* usage;  // printed by --help, after "usage: velmora "
    int (*run)(const std::vector<std::string>& args);
};

// Adds a command at static initialisation; one object per command source file.
struct CommandRegistration {
    explicit CommandRegistration(const Command& command);
};

const std::vector<Command>& Commands();

// A path argument as the library takes it: Windows paths (C:\x, x\y) as they are, host paths (/tmp/x,
// ./x) converted to the drive letter that holds them.
CString LibraryPath(const std::string& argument);
// A library path for printing on the terminal.
std::string Printable(LPCWSTR text);

// Prints "velmora NAME: message" to standard error and returns the exit code given.
int Fail(const Command& command, const std::string& message, int code = kExitFailed);
int UsageError(const Command& command, const std::string& message);

// The disk images of --disk options, attached for the length of a run.
class AttachedDisks {
public:
    AttachedDisks() = default;
    ~AttachedDisks();
    AttachedDisks(const AttachedDisks&) = delete;
    AttachedDisks& operator=(const AttachedDisks&) = delete;
    // Takes every "--disk IMAGE[:LETTERS]" out of args and attaches it; false (with a message printed)
    // when an image cannot be attached.
    bool TakeOptions(std::vector<std::string>& args);

private:
    std::vector<int> numbers_;
};

}  // namespace cli
