// The progress line: composition of its text, and when and how it is drawn.
#include "progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

#include "messages.h"

namespace cli {

namespace {

// Redrawing more often than this only costs time; plain lines come far less often, so that a log stays
// readable.
constexpr auto kTerminalInterval = std::chrono::milliseconds(100);
constexpr auto kLinesInterval = std::chrono::seconds(1);

size_t TerminalColumns() {
    winsize size{};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
    return 80;
}

// The tail of a name that fits in width columns, with "..." before it when cut; counted in code points,
// wide characters as two.
std::string FitName(const std::string& name, size_t width) {
    if (DisplayWidth(name) <= width) return name;
    // Whole UTF-8 sequences are dropped from the front until the rest fits beside the dots.
    size_t from = 0;
    while (from < name.size() && DisplayWidth(name.substr(from)) + 3 > width) {
        ++from;
        while (from < name.size() && (static_cast<unsigned char>(name[from]) & 0xC0) == 0x80) ++from;
    }
    return "..." + name.substr(from);
}

}  // namespace

std::string HumanBytes(uint64_t bytes) {
    static const char* const kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    double value = static_cast<double>(bytes);
    size_t unit = 0;
    while (value >= 1024 && unit + 1 < sizeof kUnits / sizeof kUnits[0]) {
        value /= 1024;
        ++unit;
    }
    char text[32];
    if (unit == 0) std::snprintf(text, sizeof text, "%llu B", static_cast<unsigned long long>(bytes));
    else std::snprintf(text, sizeof text, "%.1f %s", value, kUnits[unit]);
    return text;
}

std::string HumanDuration(uint64_t seconds) {
    char text[32];
    if (seconds >= 3600)
        std::snprintf(text, sizeof text, "%llu:%02llu:%02llu", static_cast<unsigned long long>(seconds / 3600),
                      static_cast<unsigned long long>(seconds / 60 % 60), static_cast<unsigned long long>(seconds % 60));
    else
        std::snprintf(text, sizeof text, "%llu:%02llu", static_cast<unsigned long long>(seconds / 60),
                      static_cast<unsigned long long>(seconds % 60));
    return text;
}

ProgressLine::Mode ProgressLine::ModeFor(bool quiet) {
    if (quiet) return Mode::Quiet;
    return isatty(STDERR_FILENO) ? Mode::Terminal : Mode::Lines;
}

ProgressLine::ProgressLine(Mode mode, const char* verb) : mode_(mode), verb_(verb), start_(std::chrono::steady_clock::now()) {}

ProgressLine::~ProgressLine() {
    if (lineOpen_) std::fputs("\n", stderr);
}

void ProgressLine::SetTotals(uint64_t files, uint64_t bytes) {
    totalFiles_ = files;
    totalBytes_ = bytes;
}

void ProgressLine::SetCurrent(const std::string& name) {
    current_ = name;
    currentIsUnits_ = false;
}

void ProgressLine::SetCurrent(LPCWSTR name, size_t length) {
    if (mode_ == Mode::Quiet) return;
    // assign keeps the buffer's room, so that after the first few names no entry allocates.
    currentUnits_.assign(name, length);
    currentIsUnits_ = true;
}

void ProgressLine::Update(uint64_t files, uint64_t bytes, bool force) {
    files_ = files;
    bytes_ = bytes;
    if (mode_ == Mode::Quiet) return;
    const auto now = std::chrono::steady_clock::now();
    const auto interval = mode_ == Mode::Terminal ? kTerminalInterval : kLinesInterval;
    // Plain lines keep their pace even when forced, so that a tree of many small files does not print a
    // line for each; they start only after the first interval, so a short run prints its final line alone.
    const bool paced = !force || mode_ == Mode::Lines;
    if (paced && drawnOnce_ && now - lastDrawn_ < interval) return;
    if (mode_ == Mode::Lines && !drawnOnce_ && now - start_ < interval) return;
    lastDrawn_ = now;
    drawnOnce_ = true;
    Draw();
}

void ProgressLine::Clear() {
    if (!lineOpen_) return;
    std::fputs("\r\x1b[K", stderr);
    std::fflush(stderr);
    lineOpen_ = false;
}

void ProgressLine::Finish(bool summary) {
    if (finished_) return;
    finished_ = true;
    current_.clear();
    currentIsUnits_ = false;
    if (mode_ == Mode::Quiet || (mode_ == Mode::Lines && !summary)) return;
    if (mode_ == Mode::Terminal && !summary) {
        // The results follow on standard output: the line is cleared rather than left standing.
        if (lineOpen_) std::fputs("\r\x1b[K", stderr);
        lineOpen_ = false;
        return;
    }
    Draw();
    if (lineOpen_) std::fputs("\n", stderr);
    lineOpen_ = false;
    std::fflush(stderr);
}

std::string ProgressLine::Compose(const char* verb, uint64_t files, uint64_t totalFiles, uint64_t bytes, uint64_t totalBytes,
                                  uint64_t folders, double seconds, const std::string& current) {
    std::string text = verb;
    text += ' ';
    text += std::to_string(files);
    if (totalFiles > 0) text += "/" + std::to_string(totalFiles);
    text += files == 1 && totalFiles <= 1 ? " file" : " files";
    if (folders > 0) text += ", " + std::to_string(folders) + (folders == 1 ? " folder" : " folders");
    text += ", " + HumanBytes(bytes);
    if (totalFiles > 0) {
        text += "/" + HumanBytes(totalBytes);
        const uint64_t percent = totalBytes > 0 ? bytes * 100 / totalBytes : files * 100 / totalFiles;
        text += " " + std::to_string(percent > 100 ? 100 : percent) + "%";
    }
    if (seconds > 0.05) {
        const double rate = static_cast<double>(bytes) / seconds;
        text += ", " + HumanBytes(static_cast<uint64_t>(rate)) + "/s";
        if (totalFiles > 0 && rate > 0 && totalBytes > bytes && !current.empty())
            text += ", " + HumanDuration(static_cast<uint64_t>(static_cast<double>(totalBytes - bytes) / rate + 0.5)) + " left";
    }
    if (!current.empty()) text += "  " + current;
    return text;
}

void ProgressLine::Draw() {
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    if (currentIsUnits_) {
        current_ = WStrToUtf8(currentUnits_);
        currentIsUnits_ = false;
    }
    if (mode_ == Mode::Terminal) {
        // The counts first, so that a narrow terminal cuts the name rather than them.
        const std::string counts = Compose(verb_, files_, totalFiles_, bytes_, totalBytes_, folders_, seconds, std::string());
        const size_t columns = TerminalColumns();
        std::string line = counts;
        if (!current_.empty() && counts.size() + 4 < columns) line += "  " + FitName(current_, columns - counts.size() - 3);
        std::fprintf(stderr, "\r%s\x1b[K", line.c_str());
        lineOpen_ = true;
    } else {
        std::fprintf(stderr, "%s\n", Compose(verb_, files_, totalFiles_, bytes_, totalBytes_, folders_, seconds, current_).c_str());
    }
    std::fflush(stderr);
}

}  // namespace cli
