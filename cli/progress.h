// The progress line of long commands (copy, hash, count): the current entry, files and bytes done of the
// total, the rate and the time left. On a terminal it is one line redrawn in place; otherwise it is plain
// lines, at most one a second and one at the end; with --quiet it is nothing. It goes to standard error,
// so that what a command prints on standard output stays clean for pipes.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include <velmora/velmora.h>

namespace cli {

// "1.5 MiB": a byte count for people, in binary units.
std::string HumanBytes(uint64_t bytes);
// "1:02:03" or "2:03": a duration in whole seconds.
std::string HumanDuration(uint64_t seconds);

class ProgressLine {
public:
    enum class Mode { Terminal, Lines, Quiet };
    // Terminal when standard error is one, plain lines otherwise, nothing when quiet.
    static Mode ModeFor(bool quiet);

    ProgressLine(Mode mode, const char* verb);  // verb: what is being done, "copied", "hashed", "counted"
    ~ProgressLine();                            // ends a line drawn in place
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    // Totals known beforehand; 0 files means unknown (no percentage, no time left).
    void SetTotals(uint64_t files, uint64_t bytes);
    void SetCurrent(const std::string& name);
    // The entry at hand as the library names it, its first length units: kept as it is and turned into
    // text only when a drawing shows it, so that a walk or a copy of many entries formats nothing for the
    // entries no drawing falls on.
    void SetCurrent(LPCWSTR name, size_t length);
    // Counts so far. Drawn when enough time has passed since the last drawing, or on a terminal when
    // force is set.
    void Update(uint64_t files, uint64_t bytes, bool force = false);
    // Takes a line drawn in place off the terminal, so that other output can follow; the next drawing
    // starts a new one.
    void Clear();
    void AddFolders(uint64_t folders) { folders_ = folders; }
    // The last drawing, with the final counts, then the line is ended. Without summary, plain lines get
    // no last line: the command prints its results itself.
    void Finish(bool summary = true);

    // The text of one drawing: counts, rate and time left, then the current entry.
    static std::string Compose(const char* verb, uint64_t files, uint64_t totalFiles, uint64_t bytes, uint64_t totalBytes,
                               uint64_t folders, double seconds, const std::string& current);

private:
    void Draw();

    Mode mode_;
    const char* verb_;
    uint64_t totalFiles_ = 0, totalBytes_ = 0;
    uint64_t files_ = 0, bytes_ = 0, folders_ = 0;
    std::string current_;
    WString currentUnits_;      // the entry at hand as the library named it, when it came so
    bool currentIsUnits_ = false;
    std::chrono::steady_clock::time_point start_, lastDrawn_;
    bool drawnOnce_ = false;
    bool lineOpen_ = false;
    bool finished_ = false;
};

}  // namespace cli
