// velmora attrib and velmora stat: the attribute flags and the facts of one path.
#include <cctype>
#include <cinttypes>
#include <cstdio>

#include "command.h"

namespace cli {

namespace {

// ---- attrib

struct FlagChange {
    const char* token;  // as typed, upper case
    int (*apply)(CString path, int value);
    int value;
    const char* failure;
};

const FlagChange kFlagChanges[] = {
    {"+R", SetReadOnlyFlag, 1, "cannot set the read-only flag"},
    {"-R", SetReadOnlyFlag, 0, "cannot clear the read-only flag"},
    {"+H", SetHiddenFlag, 1, "cannot set the hidden flag"},
    {"-H", SetHiddenFlag, 0, "cannot clear the hidden flag"},
    {"+S", SetSystemFlag, 1, "cannot set the system flag"},
    {"-S", SetSystemFlag, 0, "cannot clear the system flag"},
    {"+C", SetCompressNtfs, 1, "cannot compress (the volume may have no compression)"},
    {"-C", SetCompressNtfs, 0, "cannot decompress (the volume may have no compression)"},
};

const FlagChange* FindChange(const std::string& token) {
    if (token.size() != 2) return nullptr;
    const std::string upper{token[0], static_cast<char>(std::toupper(static_cast<unsigned char>(token[1])))};
    for (const FlagChange& change : kFlagChanges) {
        if (upper == change.token) return &change;
    }
    return nullptr;
}

const char* YesNo(int flag) { return flag == 1 ? "yes" : "no"; }

int RunAttrib(const std::vector<std::string>& args);

const Command kAttrib = {
    "attrib",
    "show the attribute flags of a path; change read-only, hidden, system and compression",
    "attrib PATH [+R|-R|+H|-H|+S|-S|+C|-C ...]\n"
    "  Applies the changes in the order given, then prints the read-only, compressed, hidden, system and\n"
    "  encrypted flags. Exit 1 when the path cannot be read or a change fails.",
    RunAttrib,
};

int RunAttrib(const std::vector<std::string>& args) {
    if (args.empty()) return UsageError(kAttrib, "a path is needed");
    std::vector<const FlagChange*> changes;
    for (size_t at = 1; at < args.size(); ++at) {
        const FlagChange* change = FindChange(args[at]);
        if (change == nullptr) return UsageError(kAttrib, "unknown change '" + args[at] + "'");
        changes.push_back(change);
    }
    const CString path = LibraryPath(args[0]);
    if (!GetFileProperty(path, nullptr, nullptr, nullptr, nullptr, nullptr))
        return Fail(kAttrib, "cannot read the attributes of " + Printable(path));
    int result = kExitOk;
    for (const FlagChange* change : changes) {
        if (change->apply(path, change->value) != 1) result = Fail(kAttrib, std::string(change->failure) + ": " + Printable(path));
    }
    int readOnly = 0, compressed = 0, hidden = 0, system = 0, encrypted = 0;
    if (!GetFileProperty(path, &readOnly, &compressed, &hidden, &system, &encrypted))
        return Fail(kAttrib, "cannot read the attributes of " + Printable(path));
    std::printf("%s\n", Printable(path).c_str());
    std::printf("  read-only   %s\n  compressed  %s\n  hidden      %s\n  system      %s\n  encrypted   %s\n", YesNo(readOnly),
                YesNo(compressed), YesNo(hidden), YesNo(system), YesNo(encrypted));
    return result;
}

const CommandRegistration kAttribRegistration(kAttrib);

// ---- stat

std::string FormatUtc(__time64_t time) {
    const CTime value(time);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d UTC", value.GetYear(), value.GetMonth(), value.GetDay(),
                  value.GetHour(), value.GetMinute(), value.GetSecond());
    return text;
}

int RunStat(const std::vector<std::string>& args);

const Command kStat = {
    "stat",
    "show the kind, size, time stamps and hard links of a path",
    "stat PATH\n"
    "  Prints the kind (file or folder), the size in bytes, the creation, last-write and last-access\n"
    "  times in UTC, and for a file its number of names with each name. A pattern (D:\\logs\\*.log) shows\n"
    "  its first match's size and times. A drive root has no directory entry of its own, so its size and\n"
    "  times are shown as unknown. Exit 1 when the path does not exist.",
    RunStat,
};

int RunStat(const std::vector<std::string>& args) {
    if (args.size() != 1) return UsageError(kStat, "give exactly one path");
    const CString path = LibraryPath(args[0]);
    // A pattern is no path of its own: its first match answers for the size and the times.
    const bool isPattern = Printable(path).find_first_of("*?") != std::string::npos;
    ULONGLONG length = 0;
    const bool hasEntry = GetFileLength(path, &length) == 1;
    const int kind = isPattern ? 0 : GetPathIsFileOrFolder(path);
    if (isPattern ? !hasEntry : kind == -1) return Fail(kStat, "no such file or folder: " + Printable(path));

    std::printf("path      %s\n", Printable(path).c_str());
    std::printf("kind      %s\n", isPattern ? "pattern (its first match is shown)" : kind == 2 ? "folder" : "file");
    if (hasEntry) std::printf("size      %" PRIu64 " bytes\n", static_cast<uint64_t>(length));
    else std::printf("size      unknown\n");
    __time64_t created = 0, written = 0, accessed = 0;
    if (GetFileDate(path, &created, &written, &accessed)) {
        std::printf("created   %s\nwritten   %s\naccessed  %s\n", FormatUtc(created).c_str(), FormatUtc(written).c_str(),
                    FormatUtc(accessed).c_str());
    } else {
        std::printf("created   unknown\nwritten   unknown\naccessed  unknown\n");
    }
    if (isPattern) return kExitOk;
    if (kind == 2) {
        std::printf("links     (a folder has one name)\n");
        return kExitOk;
    }
    CStringArray names;
    const int links = GetFileIsHardlink(path, &names);
    if (links == -1) {
        std::printf("links     unknown (the file is in use or cannot be opened)\n");
    } else {
        std::printf("links     %d\n", links == 0 ? 1 : links);
        for (INT_PTR at = 0; at < names.GetSize(); ++at) std::printf("          %s\n", Printable(names[at]).c_str());
    }
    return kExitOk;
}

const CommandRegistration kStatRegistration(kStat);

}  // namespace

}  // namespace cli
