// velmora attrib and velmora stat: the attribute flags and the facts of one path.
#include <cctype>
#include <cinttypes>
#include <cstdio>

#include "command.h"
#include "json.h"

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
    "stat [--json] PATH\n"
    "  Prints the kind (file or folder), the size in bytes, the creation, last-write and last-access\n"
    "  times in UTC, and for a file its number of names with each name, nearest first. A pattern\n"
    "  (D:\\logs\\*.log) shows its first match's size and times. A drive root has no directory entry of its\n"
    "  own, so its size and times are shown as unknown. --json prints the same facts as one JSON document\n"
    "  (times as seconds since 1970 and as text, unknown ones as null). Exit 1 when the path does not exist.",
    RunStat,
};

// What stat finds out about a path, printed as text or as JSON.
struct StatFacts {
    std::string path;
    std::string kind;  // "file", "folder", "pattern"
    bool hasSize = false;
    ULONGLONG size = 0;
    bool hasTimes = false;
    __time64_t created = 0, written = 0, accessed = 0;
    int links = 0;  // -1 unknown, 0 for folders and patterns (no link count shown)
    std::vector<std::string> names;
};

void PrintStatText(const StatFacts& facts) {
    std::printf("path      %s\n", facts.path.c_str());
    std::printf("kind      %s\n", facts.kind == "pattern" ? "pattern (its first match is shown)" : facts.kind.c_str());
    if (facts.hasSize) std::printf("size      %" PRIu64 " bytes\n", static_cast<uint64_t>(facts.size));
    else std::printf("size      unknown\n");
    if (facts.hasTimes) {
        std::printf("created   %s\nwritten   %s\naccessed  %s\n", FormatUtc(facts.created).c_str(), FormatUtc(facts.written).c_str(),
                    FormatUtc(facts.accessed).c_str());
    } else {
        std::printf("created   unknown\nwritten   unknown\naccessed  unknown\n");
    }
    if (facts.kind == "pattern") return;
    if (facts.kind == "folder") {
        std::printf("links     (a folder has one name)\n");
    } else if (facts.links == -1) {
        std::printf("links     unknown (the file is in use or cannot be opened)\n");
    } else {
        std::printf("links     %d\n", facts.links);
        for (const std::string& name : facts.names) std::printf("          %s\n", name.c_str());
    }
}

void PrintStatJson(const StatFacts& facts) {
    JsonWriter json;
    json.BeginObject().Key("path").String(facts.path).Key("kind").String(facts.kind).Key("size");
    if (facts.hasSize) json.Number(facts.size);
    else json.Null();
    const std::pair<const char*, __time64_t> times[] = {{"created", facts.created}, {"written", facts.written}, {"accessed", facts.accessed}};
    for (const auto& [key, value] : times) {
        json.Key(key);
        if (facts.hasTimes) json.BeginObject().Key("seconds").Integer(value).Key("utc").String(FormatUtc(value)).EndObject();
        else json.Null();
    }
    if (facts.kind == "file") {
        json.Key("links");
        if (facts.links == -1) json.Null();
        else json.Integer(facts.links);
        json.Key("names").BeginArray();
        for (const std::string& name : facts.names) json.String(name);
        json.EndArray();
    }
    json.EndObject().Print();
}

int RunStat(const std::vector<std::string>& args) {
    std::vector<std::string> paths;
    bool json = false;
    for (const std::string& arg : args) {
        if (arg == "--json") json = true;
        else if (arg.size() > 1 && arg[0] == '-' && arg[1] == '-') return UsageError(kStat, "unknown option '" + arg + "'");
        else paths.push_back(arg);
    }
    if (paths.size() != 1) return UsageError(kStat, "give exactly one path");
    const CString path = LibraryPath(paths[0]);
    // A pattern is no path of its own: its first match answers for the size and the times.
    const bool isPattern = Printable(path).find_first_of("*?") != std::string::npos;
    StatFacts facts;
    facts.path = Printable(path);
    facts.hasSize = GetFileLength(path, &facts.size) == 1;
    const int kind = isPattern ? 0 : GetPathIsFileOrFolder(path);
    if (isPattern ? !facts.hasSize : kind == -1) return Fail(kStat, "no such file or folder: " + Printable(path));
    facts.kind = isPattern ? "pattern" : kind == 2 ? "folder" : "file";
    facts.hasTimes = GetFileDate(path, &facts.created, &facts.written, &facts.accessed) != 0;
    if (facts.kind == "file") {
        CStringArray names;
        const int links = GetFileIsHardlink(path, &names);
        facts.links = links == 0 ? 1 : links;
        for (INT_PTR at = 0; at < names.GetSize(); ++at) facts.names.push_back(Printable(names[at]));
    }
    if (json) PrintStatJson(facts);
    else PrintStatText(facts);
    return kExitOk;
}

const CommandRegistration kStatRegistration(kStat);

}  // namespace

}  // namespace cli
