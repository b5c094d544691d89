// velmora count, hash, compare and isempty: folder walks, MD5 digests, tree comparison and the content test.
#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "command.h"
#include "report.h"

namespace cli {

namespace {

// ---- shared

bool IsFolder(const CString& path) { return GetPathIsFileOrFolder(path) == 2; }

// Columns on a terminal: CJK and full-width forms take two.
size_t DisplayWidth(const std::string& utf8) {
    const WString text = WStrFromUtf8(utf8);
    size_t width = 0;
    for (WCHAR unit : text) {
        if (unit >= 0xDC00 && unit <= 0xDFFF) continue;  // second half of a pair: counted with the first
        const bool wide = (unit >= 0x1100 && unit <= 0x115F) || (unit >= 0x2E80 && unit <= 0xA4CF) ||
                          (unit >= 0xAC00 && unit <= 0xD7A3) || (unit >= 0xF900 && unit <= 0xFAFF) ||
                          (unit >= 0xFF00 && unit <= 0xFF60) || (unit >= 0xFFE0 && unit <= 0xFFE6);
        width += wide ? 2 : 1;
    }
    return width;
}

std::string Pad(const std::string& text, size_t width, bool right = false) {
    const size_t used = DisplayWidth(text);
    const std::string fill(used < width ? width - used : 0, ' ');
    return right ? fill + text : text + fill;
}

bool ParseNumber(const std::string& text, ULONGLONG& value) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos || text.size() > 19) return false;
    value = std::strtoull(text.c_str(), nullptr, 10);
    return true;
}

bool ParseDate(const std::string& text, COleDateTime& date) {
    int year = 0, month = 0, day = 0;
    char rest = 0;
    if (std::sscanf(text.c_str(), "%d-%d-%d%c", &year, &month, &day, &rest) != 3) return false;
    return date.SetDate(year, month, day) == 0;
}

// ---- count

BOOL g_cancel = 0;

void CancelOnInterrupt(int) {
    // The walk reads the flag afresh before every entry; 1 alone cancels.
    std::atomic_ref<BOOL>(g_cancel).store(1);
}

int RunCount(const std::vector<std::string>& args);

const Command kCount = {
    "count",
    "count, sum and list the files and folders of a tree, with extension, date and size filters",
    "count DIR [--ext FILTER] [--list] [--from YYYY-MM-DD] [--to YYYY-MM-DD]\n"
    "                    [--min-size BYTES | --max-size BYTES | --kb KB]\n"
    "  Walks DIR and every folder below it and prints the number of files, folders and bytes.\n"
    "  --ext      count only files ending in one of the extensions, as .jpg.png (folders are then not counted)\n"
    "  --list     also print every counted file as a table: path, last write (UTC) and size\n"
    "  --from, --to   keep files last written on or after / on or before that day (UTC)\n"
    "  --min-size, --max-size   keep files of at least / at most that many bytes\n"
    "  --kb       keep files whose size in whole KB is KB\n"
    "  Files left out by a size filter still add to the bytes, as the library counts them.\n"
    "  Ctrl-C stops the walk; what was counted so far is printed. Exit 1 when interrupted, or when a\n"
    "  folder could not be listed (each is named with the reason).",
    RunCount,
};

struct CountOptions {
    CString folder;
    CString filter;
    bool list = false;
    COleDateTime from, to;
    bool hasFrom = false, hasTo = false;
    int sizeMode = 0;
    ULONGLONG sizeLimit = 0;
};

bool ParseCount(const std::vector<std::string>& args, CountOptions& options, std::string& error) {
    bool haveFolder = false;
    for (size_t at = 0; at < args.size(); ++at) {
        const std::string& arg = args[at];
        const bool hasValue = at + 1 < args.size();
        if (arg == "--list") {
            options.list = true;
        } else if (arg == "--ext" && hasValue) {
            options.filter = CString(WStrFromUtf8(args[++at]).c_str());
        } else if ((arg == "--from" || arg == "--to") && hasValue) {
            COleDateTime& date = arg == "--from" ? options.from : options.to;
            if (!ParseDate(args[++at], date)) return error = "not a date between 0100-01-01 and 9999-12-31: " + args[at], false;
            (arg == "--from" ? options.hasFrom : options.hasTo) = true;
        } else if ((arg == "--min-size" || arg == "--max-size" || arg == "--kb") && hasValue) {
            if (options.sizeMode != 0) return error = "give one size filter only", false;
            if (!ParseNumber(args[++at], options.sizeLimit)) return error = "not a number: " + args[at], false;
            if (arg == "--kb") {
                if (options.sizeLimit > ~0ULL / 1024) return error = "too large: " + args[at], false;
                options.sizeLimit *= 1024;
            }
            options.sizeMode = arg == "--kb" ? 1 : arg == "--min-size" ? 2 : 3;
        } else if (!arg.empty() && arg[0] == '-') {
            return error = "unknown or incomplete option '" + arg + "'", false;
        } else if (!haveFolder) {
            options.folder = LibraryPath(arg);
            haveFolder = true;
        } else {
            return error = "one folder only", false;
        }
    }
    if (!haveFolder) return error = "a folder is needed", false;
    return true;
}

// The report as a table, read back from the list-view control's rows and columns.
void PrintTable(const CListCtrl& list) {
    std::vector<std::string> headings;
    for (int column = 0;; ++column) {
        WCHAR heading[64] = {};
        LVCOLUMNW info{};
        info.mask = LVCF_TEXT;
        info.pszText = heading;
        info.cchTextMax = 64;
        if (!list.GetColumn(column, &info)) break;
        headings.push_back(Printable(heading));
    }
    std::vector<std::vector<std::string>> rows;
    for (int row = 0; row < list.GetItemCount(); ++row) {
        rows.emplace_back();
        for (size_t column = 0; column < headings.size(); ++column)
            rows.back().push_back(Printable(list.GetItemText(row, static_cast<int>(column))));
    }
    std::vector<size_t> widths;
    for (size_t column = 0; column < headings.size(); ++column) {
        size_t width = DisplayWidth(headings[column]);
        for (const auto& row : rows) width = std::max(width, DisplayWidth(row[column]));
        widths.push_back(width);
    }
    const auto printRow = [&](const std::vector<std::string>& cells) {
        std::string line;
        for (size_t column = 0; column < cells.size(); ++column) {
            // The size column is right-aligned, as numbers are.
            line += Pad(cells[column], widths[column], column + 1 == cells.size() && column > 0);
            if (column + 1 < cells.size()) line += "  ";
        }
        std::printf("%s\n", line.c_str());
    };
    printRow(headings);
    std::string rule;
    for (size_t column = 0; column < widths.size(); ++column) rule += std::string(widths[column], '-') + (column + 1 < widths.size() ? "  " : "");
    std::printf("%s\n", rule.c_str());
    for (const auto& row : rows) printRow(row);
    std::printf("\n");
}

int RunCount(const std::vector<std::string>& args) {
    CountOptions options;
    std::string error;
    if (!ParseCount(args, options, error)) return UsageError(kCount, error);
    if (!IsFolder(options.folder)) return Fail(kCount, "not a folder: " + Printable(options.folder));

    std::signal(SIGINT, CancelOnInterrupt);
    // A folder the walk cannot list adds nothing and the walk goes on; the watch names it.
    FailureWatch watch(FailureWatch::kListing);
    ULONGLONG files = 0, folders = 0, bytes = 0;
    const int dateMode = options.hasFrom && options.hasTo ? 1 : options.hasFrom ? 2 : options.hasTo ? 3 : 0;
    if (!options.list && dateMode == 0 && options.sizeMode == 0) {
        GetFileCountInFolder(options.folder, &files, &folders, &bytes, nullptr, options.filter, &g_cancel);
    } else {
        // The report goes into a list-view control, as it does in an application's window.
        CListCtrl list;
        if (!list.Create(LVS_REPORT, RECT{0, 0, 800, 600}, nullptr, 1)) return Fail(kCount, "cannot make the list control");
        list.InsertColumn(0, _T("パス"));
        list.InsertColumn(1, _T("更新日時 (UTC)"));
        list.InsertColumn(2, _T("サイズ"), LVCFMT_RIGHT);
        GetFileCountInFolderEx(options.folder, &files, &folders, &bytes, nullptr, options.filter, &g_cancel, options.from,
                               options.to, dateMode, options.sizeLimit, options.sizeMode, options.list ? &list : nullptr);
        if (options.list) PrintTable(list);
    }
    std::signal(SIGINT, SIG_DFL);
    std::printf("files    %llu\nfolders  %llu\nbytes    %llu\n", static_cast<unsigned long long>(files),
                static_cast<unsigned long long>(folders), static_cast<unsigned long long>(bytes));
    if (std::atomic_ref<BOOL>(g_cancel).load() == 1) return Fail(kCount, "interrupted: the counts are those of the part walked");
    if (!watch.Report(kCount)) return Fail(kCount, "incomplete: what the folders above hold is not counted");
    return kExitOk;
}

const CommandRegistration kCountRegistration(kCount);

// ---- hash

int RunHash(const std::vector<std::string>& args);

const Command kHash = {
    "hash",
    "print the MD5 digest of files in the md5sum format",
    "hash FILE...\n"
    "  One line per file, \"DIGEST  NAME\" with the name as given, so that md5sum -c can check the list.\n"
    "  Each file is read without sharing: one that another program holds open cannot be hashed, nor can\n"
    "  a pipe, socket or device. Each file that cannot be hashed is named with the reason.\n"
    "  Exit 1 when any file cannot be hashed.",
    RunHash,
};

// A name as md5sum writes it: a line holding a backslash or a newline starts with a backslash and has
// them escaped.
std::string ChecksumLine(const std::string& digest, const std::string& name) {
    if (name.find_first_of("\\\n") == std::string::npos) return digest + "  " + name;
    std::string escaped;
    for (char c : name) {
        if (c == '\\') escaped += "\\\\";
        else if (c == '\n') escaped += "\\n";
        else escaped += c;
    }
    return "\\" + digest + "  " + escaped;
}

int RunHash(const std::vector<std::string>& args) {
    if (args.empty()) return UsageError(kHash, "a file is needed");
    int result = kExitOk;
    for (const std::string& name : args) {
        BYTE digest[16] = {};
        FailureWatch watch(FailureWatch::kReading);
        if (GetFileHash(LibraryPath(name), digest, CALG_MD5) != 1) {
            // Opened, but not read as it was measured: another program changed it meanwhile.
            const std::string reason = watch.failures().empty() ? "it changed while it was read" : ErrorWords(watch.failures().back().code);
            result = Fail(kHash, "cannot hash " + name + ": " + reason);
            continue;
        }
        std::string hex;
        static const char kDigits[] = "0123456789abcdef";
        for (BYTE b : digest) hex += {kDigits[b >> 4], kDigits[b & 15]};
        std::printf("%s\n", ChecksumLine(hex, name).c_str());
    }
    return result;
}

const CommandRegistration kHashRegistration(kHash);

// ---- compare

int RunCompare(const std::vector<std::string>& args);

const Command kCompare = {
    "compare",
    "compare two folder trees entry by entry",
    "compare A B [--both] [--hash]\n"
    "  One line per entry that differs: what differs, then its path relative to the folders.\n"
    "  only-in-A, newer-in-A, newer-in-B, size-differs; with --hash also content-differs (MD5);\n"
    "  with --both also only-in-B, listed after all others. Times are compared in whole seconds.\n"
    "  Folders that cannot be listed and files that cannot be hashed are named with the reason.\n"
    "  Exit 0 when the trees are the same, 1 when anything differs or could not be compared.",
    RunCompare,
};

std::string DifferenceNames(DWORD flags) {
    static const struct {
        DWORD bit;
        const char* name;
    } kNames[] = {{OnlyInA, "only-in-A"},     {OnlyInB, "only-in-B"},       {NewerInA, "newer-in-A"},
                  {NewerInB, "newer-in-B"},   {SizeDiffers, "size-differs"}, {ContentDiffers, "content-differs"}};
    std::string names;
    for (const auto& entry : kNames) {
        if ((flags & entry.bit) == 0) continue;
        if (!names.empty()) names += ',';
        names += entry.name;
    }
    return names;
}

// The library joins A's relative paths to B as they stand, so both folders are put in one form: with a
// trailing backslash when either is a root, without one otherwise.
void SameForm(CString& a, CString& b) {
    const auto isRoot = [](const CString& path) { return path.GetLength() == 3 && path[1] == _T(':'); };
    const bool withSlash = isRoot(a) || isRoot(b);
    for (CString* path : {&a, &b}) {
        if (!isRoot(*path)) path->TrimRight(_T('\\'));
        if (withSlash && !isRoot(*path)) *path += _T('\\');
    }
}

int RunCompare(const std::vector<std::string>& args) {
    std::vector<CString> folders;
    int bothWays = 0, useHash = 0;
    for (const std::string& arg : args) {
        if (arg == "--both") bothWays = 1;
        else if (arg == "--hash") useHash = 1;
        else if (!arg.empty() && arg[0] == '-') return UsageError(kCompare, "unknown option '" + arg + "'");
        else folders.push_back(LibraryPath(arg));
    }
    if (folders.size() != 2) return UsageError(kCompare, "two folders are needed");
    SameForm(folders[0], folders[1]);
    for (const CString& folder : folders) {
        if (!IsFolder(folder)) return Fail(kCompare, "not a folder: " + Printable(folder), kExitUsage);
    }
    FileListNode head{};
    // The comparison passes over folders it cannot list and files it cannot hash; the watch names them.
    FailureWatch watch(FailureWatch::kListing | FailureWatch::kReading);
    CompareFolder(folders[0], folders[1], &head, bothWays, useHash);
    std::vector<std::pair<std::string, std::string>> lines;
    for (FileListNode* node = head.next; node != nullptr;) {
        FileListNode* next = node->next;
        lines.emplace_back(DifferenceNames(node->flags), Printable(node->filePath));
        std::free(node);
        node = next;
    }
    size_t width = 0;
    for (const auto& line : lines) width = std::max(width, line.first.size());
    for (const auto& line : lines) std::printf("%s  %s\n", Pad(line.first, width).c_str(), line.second.c_str());
    if (!watch.Report(kCompare)) return Fail(kCompare, "incomplete: the entries above were not compared in full");
    return lines.empty() ? kExitOk : kExitFailed;
}

const CommandRegistration kCompareRegistration(kCompare);

// ---- isempty

int RunIsEmpty(const std::vector<std::string>& args);

const Command kIsEmpty = {
    "isempty",
    "tell whether a folder holds anything at all",
    "isempty DIR\n"
    "  Prints \"empty\" or \"not empty\" (hidden and system entries count). Exit 0 when empty, 1 when\n"
    "  not, 2 when DIR is not a folder.",
    RunIsEmpty,
};

int RunIsEmpty(const std::vector<std::string>& args) {
    if (args.size() != 1) return UsageError(kIsEmpty, "one folder is needed");
    const CString folder = LibraryPath(args[0]);
    if (!IsFolder(folder)) return Fail(kIsEmpty, "not a folder: " + Printable(folder), kExitUsage);
    const bool holdsEntries = IsFileExistsInFolder(folder) == 1;
    std::printf("%s: %s\n", Printable(folder).c_str(), holdsEntries ? "not empty" : "empty");
    return holdsEntries ? kExitFailed : kExitOk;
}

const CommandRegistration kIsEmptyRegistration(kIsEmpty);

}  // namespace

}  // namespace cli
