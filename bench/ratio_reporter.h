// What the benchmarks that compare the library with a standard tool share: a console reporter that keeps
// each benchmark's time per iteration, by name, so that the program can print the ratios after the run;
// the fresh folder each makes its data in; and pairs of rounds run in turn (ours, the tool's, ours...),
// whose medians and ratio are printed with the load of the machine beside them.
#pragma once

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

extern char** environ;

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred)
                seconds[run.run_name.function_name] = run.real_accumulated_time / static_cast<double>(run.iterations);
        }
    }
    // The time per iteration of the benchmark of that name; 0 when it did not run or failed.
    double Seconds(const std::string& name) const {
        auto found = seconds.find(name);
        return found == seconds.end() ? 0 : found->second;
    }
    std::map<std::string, double> seconds;
};

// A new folder "velmora-NAME-bench-XXXXXX" under dir; empty (with the reason printed) when none can be made.
inline std::string MakeBenchRoot(const std::string& dir, const std::string& name) {
    std::string pattern = dir + "/velmora-" + name + "-bench-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        std::perror("mkdtemp");
        return {};
    }
    return pattern;
}

// The options of the benchmarks that make a tree of small files and large ones beside it:
//     PROGRAM [--small-files N] [--big-mib M] [--rounds R] [--dir DIR]
struct TreeBenchOptions {
    long smallFiles;
    long bigMiB;
    int rounds = 5;
    std::string dir = std::filesystem::temp_directory_path().string();
};

// False, with the usage printed, on an option it does not know.
inline bool ParseTreeBenchOptions(int argc, char** argv, const char* program, TreeBenchOptions& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool hasValue = i + 1 < argc;
        if (arg == "--small-files" && hasValue) options.smallFiles = std::atol(argv[++i]);
        else if (arg == "--big-mib" && hasValue) options.bigMiB = std::atol(argv[++i]);
        else if (arg == "--rounds" && hasValue) options.rounds = std::atoi(argv[++i]);
        else if (arg == "--dir" && hasValue) options.dir = argv[++i];
        else {
            std::fprintf(stderr, "usage: %s [--small-files N] [--big-mib M] [--rounds R] [--dir DIR]\n", program);
            return false;
        }
    }
    return true;
}

// ---- Standard tools as child processes

// Runs a program found on PATH with its standard output (and error, unless keepErrors) going to
// /dev/null; extraEnvironment ("TZ=UTC") is added to ours. Spawned without a shell, so that a round of
// the tool costs what the tool costs. The exit status, or -1 when it could not be run.
inline int RunTool(const std::vector<std::string>& command, const std::vector<std::string>& extraEnvironment = {},
                   bool keepErrors = false) {
    std::vector<char*> arguments;
    for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    std::vector<char*> environment;
    for (char** entry = environ; *entry != nullptr; ++entry) environment.push_back(*entry);
    for (const std::string& entry : extraEnvironment) environment.push_back(const_cast<char*>(entry.c_str()));
    environment.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    if (!keepErrors) posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int spawned = posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environment.data());
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) return -1;
    int status = 0;
    if (waitpid(child, &status, 0) != child) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Whether a program of that name is on PATH.
inline bool HaveTool(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::string rest = path != nullptr ? path : "";
    for (size_t from = 0; from <= rest.size();) {
        const size_t colon = std::min(rest.find(':', from), rest.size());
        const std::string candidate = rest.substr(from, colon - from) + "/" + name;
        if (access(candidate.c_str(), X_OK) == 0) return true;
        from = colon + 1;
    }
    return false;
}

// ---- Pairs of rounds, run in turn

// One side of a pair: what a round does (false when it failed, which voids the pair) and what must
// happen before each round outside its time, such as removing the last round's output.
struct BenchSide {
    std::string name;
    std::function<bool()> round;
    std::function<void()> prepare = [] {};
};

struct PairTimes {
    double ours = 0;    // median seconds of our rounds; 0 when a round failed
    double anchor = 0;  // the same for the standard tool
    // Median processor seconds (user and system, of this process and the tools it waited for), which a
    // busy machine disturbs less than the time on the clock.
    double oursCpu = 0, anchorCpu = 0;
    bool Valid() const { return ours > 0 && anchor > 0; }
    double Ratio() const { return Valid() ? ours / anchor : 0; }
    double CpuRatio() const { return Valid() && anchorCpu > 0 ? oursCpu / anchorCpu : 0; }
};

// Processor seconds used so far by this process and by the children it has waited for.
inline double ProcessorSeconds() {
    double seconds = 0;
    for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage usage{};
        getrusage(who, &usage);
        for (const timeval& time : {usage.ru_utime, usage.ru_stime})
            seconds += static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    }
    return seconds;
}

inline double MedianOf(std::vector<double> values) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

// The medians of rounds taken in turn, ours first, so that neither side always runs on caches the other
// warmed or in a quieter moment of a shared machine. Fewer than five rounds are not enough for a median
// that one slow round cannot move.
inline PairTimes RunPair(const BenchSide& ours, const BenchSide& anchor, int rounds) {
    rounds = std::max(rounds, 5);
    std::vector<double> seconds[2], processor[2];
    for (int round = 0; round < rounds; ++round) {
        for (const int side : {0, 1}) {
            const BenchSide& running = side == 0 ? ours : anchor;
            running.prepare();
            const double processorBefore = ProcessorSeconds();
            const auto start = std::chrono::steady_clock::now();
            const bool done = running.round();
            seconds[side].push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
            processor[side].push_back(ProcessorSeconds() - processorBefore);
            if (!done) {
                std::fprintf(stderr, "%s failed in round %d\n", running.name.c_str(), round + 1);
                return {};
            }
        }
    }
    return {MedianOf(seconds[0]), MedianOf(seconds[1]), MedianOf(processor[0]), MedianOf(processor[1])};
}

// The one-minute load average, to read beside a figure taken on a shared machine.
inline double LoadAverage() {
    double load[1] = {0};
    return getloadavg(load, 1) == 1 ? load[0] : -1;
}

inline void PrintPair(const std::string& what, const BenchSide& ours, const BenchSide& anchor, const PairTimes& times,
                      double goal) {
    if (!times.Valid()) {
        std::printf("%-34s no figure: a round failed\n", what.c_str());
    } else {
        std::printf("%-34s %-22s %8.3f s   %-22s %8.3f s   ratio %5.2f (goal <= %.2f)   processor ratio %5.2f   load %.2f\n",
                    what.c_str(), ours.name.c_str(), times.ours, anchor.name.c_str(), times.anchor, times.Ratio(), goal,
                    times.CpuRatio(), LoadAverage());
    }
    std::fflush(stdout);
}

// RunPair, then PrintPair.
inline PairTimes ComparePair(const std::string& what, const BenchSide& ours, const BenchSide& anchor, int rounds, double goal) {
    const PairTimes times = RunPair(ours, anchor, rounds);
    PrintPair(what, ours, anchor, times, goal);
    return times;
}
