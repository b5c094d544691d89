// velmora count, hash, compare and isempty: folder walks, MD5 digests, tree comparison and the content test.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "../platform/api_patch.h"
#include "command.h"
#include "json.h"
#include "progress.h"
#include "report.h"

namespace cli {

namespace {

// ---- shared

bool IsFolder(const CString& path) { return GetPathIsFileOrFolder(path) == 2; }

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
    "                    [--min-size BYTES | --max-size BYTES | --kb KB] [--json] [--quiet]\n"
    "  Walks DIR and every folder below it and prints the number of files, folders and bytes. While it\n"
    "  walks, standard error shows the folder at hand and the counts so far (--quiet: nothing).\n"
    "  --json     print one JSON document: the counts, the listed files and what could not be listed\n"
    "  --ext      count only files ending in one of the extensions, as .jpg.png (folders are then not counted)\n"
    "  --list     also print every counted file as a table, row by row while the walk goes on: last\n"
    "             write (UTC), size and path\n"
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
    bool json = false;
    bool quiet = false;
};

bool ParseCount(const std::vector<std::string>& args, CountOptions& options, std::string& error) {
    bool haveFolder = false;
    for (size_t at = 0; at < args.size(); ++at) {
        const std::string& arg = args[at];
        const bool hasValue = at + 1 < args.size();
        if (arg == "--list") {
            options.list = true;
        } else if (arg == "--json") {
            options.json = true;
        } else if (arg == "--quiet" || arg == "-q") {
            options.quiet = true;
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

// The list report's rows as the walk makes them, each handed on at once, so that the rows of a large tree
// are never held: the control the library reports into keeps none. The library appends each row at the
// item count it reads and then fills that row's other columns; the control's procedure is replaced by one
// that counts rows, holds the row being filled and hands it on when the next one starts or the walk ends.
// Column messages still reach the control's own procedure.
class StreamedReport {
public:
    static constexpr int kColumns = 3;  // path, last write, size: the columns the library fills
    using Cells = WString[kColumns];

    StreamedReport(CListCtrl& list, std::function<void(const Cells&)> handOn) : list_(list), handOn_(std::move(handOn)) {
        const HWND window = list_.GetSafeHwnd();
        sys().SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
        original_ = reinterpret_cast<WNDPROC>(sys().SetWindowLongPtrW(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(Procedure)));
    }
    ~StreamedReport() {
        sys().SetWindowLongPtrW(list_.GetSafeHwnd(), GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(original_));
        sys().SetWindowLongPtrW(list_.GetSafeHwnd(), GWLP_USERDATA, 0);
    }
    StreamedReport(const StreamedReport&) = delete;
    StreamedReport& operator=(const StreamedReport&) = delete;

    // Hands on the last row; the walk is over.
    void Finish() {
        if (!filling_) return;
        filling_ = false;
        handOn_(cells_);
    }

private:
    static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
        auto* self = reinterpret_cast<StreamedReport*>(sys().GetWindowLongPtrW(window, GWLP_USERDATA));
        const auto* item = reinterpret_cast<const LVITEMW*>(lParam);
        switch (message) {
            case LVM_GETITEMCOUNT: return static_cast<LRESULT>(self->rows_);
            case LVM_INSERTITEMW:
                if (item == nullptr || item->iSubItem != 0) return -1;
                self->Finish();
                for (WString& cell : self->cells_) cell.clear();
                if ((item->mask & LVIF_TEXT) != 0) self->SetCell(0, item->pszText);
                self->filling_ = true;
                return static_cast<LRESULT>(self->rows_++);
            case LVM_SETITEMTEXTW:
                // Only the row being filled is still here; earlier ones were handed on.
                if (item == nullptr || !self->filling_ || wParam + 1 != self->rows_ || item->iSubItem < 0 || item->iSubItem >= kColumns)
                    return FALSE;
                self->SetCell(item->iSubItem, item->pszText);
                return TRUE;
            default:
                // The control's own procedure, a function of ours, is called directly.
                return self->original_(window, message, wParam, lParam);
        }
    }
    void SetCell(int column, LPCWSTR text) {
        // assign keeps each cell's room from row to row.
        if (text != nullptr && text != LPSTR_TEXTCALLBACKW) cells_[column].assign(text);
        else cells_[column].clear();
    }

    CListCtrl& list_;
    std::function<void(const Cells&)> handOn_;
    WNDPROC original_ = nullptr;
    Cells cells_;
    size_t rows_ = 0;
    bool filling_ = false;
};

const LPCWSTR kReportHeadings[StreamedReport::kColumns] = {_T("パス"), _T("更新日時 (UTC)"), _T("サイズ")};

// The report as a table printed row by row: last write and size first, in columns of a fixed width, the
// path last, since no row can wait for the widest path of the tree. Wide characters take two columns.
// Each row is made in one reused line, straight from the control's UTF-16 texts, and goes to standard
// output's buffer; a large tree makes no allocation per row.
class TablePrinter {
public:
    TablePrinter() {
        StreamedReport::Cells rules;
        for (int column = 0; column < StreamedReport::kColumns; ++column) {
            headings_[column] = kReportHeadings[column];
            widths_[column] = std::max(DisplayWidth(headings_[column].data(), headings_[column].size()), kWidths[column]);
            rules[column].assign(widths_[column], _T('-'));
        }
        Row(headings_);
        Row(rules);
    }
    void Row(const StreamedReport::Cells& cells) {
        line_.clear();
        AppendPadded(cells[1], widths_[1], false);
        line_ += "  ";
        AppendPadded(cells[2], widths_[2], true);  // sizes right-aligned, as numbers are
        line_ += "  ";
        WStrAppendUtf8(line_, cells[0].data(), cells[0].size());
        line_ += '\n';
        std::fwrite(line_.data(), 1, line_.size(), stdout);
    }

private:
    // "YYYY/MM/DD hh:mm", and sizes up to 99,999,999,999 KB; a larger one pushes its path along.
    static constexpr size_t kWidths[StreamedReport::kColumns] = {0, 16, 14};

    void AppendPadded(const WString& text, size_t width, bool right) {
        const size_t used = DisplayWidth(text.data(), text.size());
        const size_t fill = used < width ? width - used : 0;
        if (right) line_.append(fill, ' ');
        WStrAppendUtf8(line_, text.data(), text.size());
        if (!right) line_.append(fill, ' ');
    }

    StreamedReport::Cells headings_;
    size_t widths_[StreamedReport::kColumns] = {};
    std::string line_;
};

// The report as the "list" array of the JSON document, printed as it grows. Each entry's exact size (the
// report's size column is rounded to KB) is the one the library's own lookup found for the file just
// before adding its row. A row is handed on once the next one starts, after that one's lookup, so the
// last two lookups by plain path are kept; a row whose lookup is gone by then (files left out by a size
// filter came between) or failed has its size read again.
class JsonListPrinter {
public:
    explicit JsonListPrinter(JsonWriter& json)
        : json_(json), patch_([this](LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
              HANDLE find = patch_.Original()(pattern, data);
              if (!ListsFolder(pattern)) {
                  latest_ ^= 1;
                  Lookup& kept = lookups_[latest_];
                  kept.path.assign(pattern);  // keeps its room from file to file
                  kept.found = find != INVALID_HANDLE_VALUE;
                  if (kept.found) kept.size = (static_cast<ULONGLONG>(data->nFileSizeHigh) << 32) | data->nFileSizeLow;
              }
              return find;
          }) {
        json_.Key("list").BeginArray();
    }
    void Row(const StreamedReport::Cells& cells) {
        json_.BeginObject().Key("path").String(WStrToUtf8(cells[0])).Key("written").String(WStrToUtf8(cells[1]));
        json_.Key("size_text").String(WStrToUtf8(cells[2]));
        ULONGLONG size = 0;
        if (FoundSize(cells[0], size) || GetFileLength(CString(cells[0].c_str()), &size) == 1) json_.Key("size").Number(size);
        else json_.Key("size").Null();
        json_.EndObject();
        if (json_.text().size() >= kPrintEvery) json_.PrintSoFar();
    }
    void End() { json_.EndArray(); }

private:
    static constexpr size_t kPrintEvery = 64 * 1024;
    struct Lookup {
        WString path;
        bool found = false;
        ULONGLONG size = 0;
    };

    bool FoundSize(const WString& path, ULONGLONG& size) const {
        for (const Lookup& kept : lookups_) {
            if (kept.found && kept.path == path) {
                size = kept.size;
                return true;
            }
        }
        return false;
    }

    JsonWriter& json_;
    Lookup lookups_[2];
    size_t latest_ = 0;
    ApiPatch<&Win32Api::FindFirstFileW> patch_;
};

// The walk's progress: each folder it lists names the folder at hand, and the counters the walk adds to
// are read there, on the walk's own thread. The lookup of each file's size passes here too and updates
// the counts, so that a folder of many files shows its progress, but it names the same folder again and
// is not copied.
class WalkFeed {
public:
    WalkFeed(ProgressLine& line, const ULONGLONG& files, const ULONGLONG& folders, const ULONGLONG& bytes)
        : patch_([&line, &files, &folders, &bytes, this](LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
              if (ListsFolder(pattern)) {
                  // The folder is the pattern up to its last backslash.
                  const size_t length = WStrLen(pattern);
                  size_t folderLength = length;
                  while (folderLength > 0 && pattern[folderLength - 1] != _T('\\')) --folderLength;
                  line.SetCurrent(pattern, folderLength > 0 ? folderLength : length);
                  line.AddFolders(folders);
              }
              line.Update(files, bytes);
              return patch_.Original()(pattern, data);
          }) {}

private:
    ApiPatch<&Win32Api::FindFirstFileW> patch_;
};

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
    // The document's list, and the table, are printed while the walk makes them; the counts follow.
    JsonWriter json;
    if (options.json) json.BeginObject().Key("folder").String(Printable(options.folder));
    {
        ProgressLine line(ProgressLine::ModeFor(options.quiet), "counted");
        WalkFeed feed(line, files, folders, bytes);
        if (!options.list && dateMode == 0 && options.sizeMode == 0) {
            GetFileCountInFolder(options.folder, &files, &folders, &bytes, nullptr, options.filter, &g_cancel);
        } else {
            // The report goes into a list-view control, as it does in an application's window.
            CListCtrl list;
            if (!list.Create(LVS_REPORT, RECT{0, 0, 800, 600}, nullptr, 1)) return Fail(kCount, "cannot make the list control");
            list.InsertColumn(0, kReportHeadings[0]);
            list.InsertColumn(1, kReportHeadings[1]);
            list.InsertColumn(2, kReportHeadings[2], LVCFMT_RIGHT);
            std::optional<TablePrinter> table;
            std::optional<JsonListPrinter> jsonList;
            if (options.list && options.json) jsonList.emplace(json);
            else if (options.list) table.emplace();
            // Rows and the progress line share a terminal: the line is taken off before each row and
            // drawn again below it.
            const bool rowsOnTerminal = isatty(STDOUT_FILENO) != 0;
            StreamedReport report(list, [&](const StreamedReport::Cells& cells) {
                if (rowsOnTerminal) line.Clear();
                if (table) table->Row(cells);
                if (jsonList) jsonList->Row(cells);
            });
            GetFileCountInFolderEx(options.folder, &files, &folders, &bytes, nullptr, options.filter, &g_cancel, options.from,
                                   options.to, dateMode, options.sizeLimit, options.sizeMode, options.list ? &list : nullptr);
            report.Finish();
            if (jsonList) jsonList->End();
            if (table) std::printf("\n");
        }
        line.Finish(false);
    }
    std::signal(SIGINT, SIG_DFL);
    const bool interrupted = std::atomic_ref<BOOL>(g_cancel).load() == 1;
    if (options.json) {
        json.Key("files").Number(files).Key("folders").Number(folders).Key("bytes").Number(bytes);
        json.Key("interrupted").Bool(interrupted).Key("complete").Bool(!interrupted && watch.failures().empty());
        json.Key("failures");
        watch.WriteJson(json);
        json.EndObject().Print();
    } else {
        std::printf("files    %llu\nfolders  %llu\nbytes    %llu\n", static_cast<unsigned long long>(files),
                    static_cast<unsigned long long>(folders), static_cast<unsigned long long>(bytes));
    }
    if (interrupted) return Fail(kCount, "interrupted: the counts are those of the part walked");
    if (!watch.Report(kCount)) return Fail(kCount, "incomplete: what the folders above hold is not counted");
    return kExitOk;
}

const CommandRegistration kCountRegistration(kCount);

// ---- hash

int RunHash(const std::vector<std::string>& args);

const Command kHash = {
    "hash",
    "print the MD5 digest of files in the md5sum format",
    "hash [--json] [--quiet] FILE...\n"
    "  One line per file, \"DIGEST  NAME\" with the name as given, so that md5sum -c can check the list.\n"
    "  With several files, standard error shows the file at hand, files and bytes done of the total, the\n"
    "  rate and the time left (--quiet: nothing). --json prints one JSON document instead of the lines.\n"
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

// The bytes a hash has read so far, counted at the reads it makes.
class ReadFeed {
public:
    explicit ReadFeed(uint64_t& bytes)
        : patch_([&bytes, this](HANDLE file, LPVOID buffer, DWORD size, LPDWORD read, LPOVERLAPPED overlapped) {
              const BOOL done = patch_.Original()(file, buffer, size, read, overlapped);
              if (done && read != nullptr) bytes += *read;
              return done;
          }) {}

private:
    ApiPatch<&Win32Api::ReadFile> patch_;
};

int RunHash(const std::vector<std::string>& args) {
    std::vector<std::string> names;
    bool json = false, quiet = false;
    for (const std::string& arg : args) {
        if (arg == "--json") json = true;
        else if (arg == "--quiet" || arg == "-q") quiet = true;
        else if (arg.size() > 1 && arg[0] == '-' && arg[1] == '-') return UsageError(kHash, "unknown option '" + arg + "'");
        else names.push_back(arg);
    }
    if (names.empty()) return UsageError(kHash, "a file is needed");
    // One file needs no progress: its line comes when it is done.
    ProgressLine line(ProgressLine::ModeFor(quiet || names.size() == 1), "hashed");
    uint64_t totalBytes = 0;
    for (const std::string& name : names) {
        ULONGLONG length = 0;
        if (GetFileLength(LibraryPath(name), &length) == 1) totalBytes += length;
    }
    line.SetTotals(names.size(), totalBytes);
    JsonWriter document;
    document.BeginObject().Key("files").BeginArray();
    std::vector<std::pair<std::string, std::string>> failed;  // name, reason
    std::vector<DWORD> failedCodes;
    uint64_t done = 0, bytes = 0;
    for (const std::string& name : names) {
        BYTE digest[16] = {};
        line.SetCurrent(name);
        line.Update(done, bytes, true);
        FailureWatch watch(FailureWatch::kReading);
        int hashed = 0;
        {
            ReadFeed feed(bytes);
            hashed = GetFileHash(LibraryPath(name), digest, CALG_MD5);
        }
        ++done;
        line.Update(done, bytes);
        if (hashed != 1) {
            // Opened, but not read as it was measured: another program changed it meanwhile.
            const DWORD code = watch.failures().empty() ? ERROR_SUCCESS : watch.failures().back().code;
            failed.emplace_back(name, code == ERROR_SUCCESS ? "it changed while it was read" : ErrorWords(code));
            failedCodes.push_back(code);
            line.Clear();
            Fail(kHash, "cannot hash " + name + ": " + failed.back().second);
            continue;
        }
        std::string hex;
        static const char kDigits[] = "0123456789abcdef";
        for (BYTE b : digest) hex += {kDigits[b >> 4], kDigits[b & 15]};
        if (json) {
            document.BeginObject().Key("name").String(name).Key("md5").String(hex).EndObject();
        } else {
            line.Clear();  // drawn again below the result at the next file
            std::printf("%s\n", ChecksumLine(hex, name).c_str());
            std::fflush(stdout);
        }
    }
    line.Finish(false);
    if (json) {
        document.EndArray().Key("failures").BeginArray();
        for (size_t i = 0; i < failed.size(); ++i)
            document.BeginObject().Key("name").String(failed[i].first).Key("code").Number(failedCodes[i]).Key("reason").String(failed[i].second).EndObject();
        document.EndArray().EndObject().Print();
    }
    return failed.empty() ? kExitOk : kExitFailed;
}

const CommandRegistration kHashRegistration(kHash);

// ---- compare

int RunCompare(const std::vector<std::string>& args);

const Command kCompare = {
    "compare",
    "compare two folder trees entry by entry",
    "compare A B [--both] [--hash] [--json]\n"
    "  One line per entry that differs: what differs, then its path relative to the folders.\n"
    "  only-in-A, newer-in-A, newer-in-B, size-differs; with --hash also content-differs (MD5);\n"
    "  with --both also only-in-B, listed after all others. Times are compared in whole seconds.\n"
    "  Folders that cannot be listed and files that cannot be hashed are named with the reason.\n"
    "  --json prints one JSON document: each difference with its path and what differs, and the failures.\n"
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
    bool json = false;
    for (const std::string& arg : args) {
        if (arg == "--both") bothWays = 1;
        else if (arg == "--json") json = true;
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
    // The chain is the library's to build and ours to free once the call is over: each node is printed
    // and freed in one pass, so that its text is never held twice.
    const bool same = head.next == nullptr;
    const auto printAndFree = [&head](const std::function<void(const FileListNode&)>& print) {
        for (FileListNode* node = head.next; node != nullptr;) {
            FileListNode* next = node->next;
            print(*node);
            std::free(node);
            node = next;
        }
        head.next = nullptr;
    };
    if (json) {
        JsonWriter document;
        document.BeginObject().Key("a").String(Printable(folders[0])).Key("b").String(Printable(folders[1]));
        document.Key("same").Bool(same && watch.failures().empty()).Key("differences").BeginArray();
        printAndFree([&document](const FileListNode& node) {
            document.BeginObject().Key("path").String(Printable(node.filePath)).Key("differs").BeginArray();
            const std::string names = DifferenceNames(node.flags);
            for (size_t from = 0; from < names.size();) {
                const size_t comma = std::min(names.find(',', from), names.size());
                document.String(names.substr(from, comma - from));
                from = comma + 1;
            }
            document.EndArray().EndObject();
            if (document.text().size() >= 64 * 1024) document.PrintSoFar();
        });
        document.EndArray().Key("failures");
        watch.WriteJson(document);
        document.EndObject().Print();
    } else {
        // The first column's width comes from the flags alone, read in a pass that copies nothing.
        size_t width = 0;
        for (const FileListNode* node = head.next; node != nullptr; node = node->next) width = std::max(width, DifferenceNames(node->flags).size());
        printAndFree([width](const FileListNode& node) {
            std::printf("%s  %s\n", Pad(DifferenceNames(node.flags), width).c_str(), Printable(node.filePath).c_str());
        });
    }
    if (!watch.Report(kCompare)) return Fail(kCompare, "incomplete: the entries above were not compared in full");
    return same ? kExitOk : kExitFailed;
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
