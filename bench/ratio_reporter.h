// What the benchmarks that compare the library with a standard tool share: a console reporter that keeps
// each benchmark's time per iteration, by name, so that the program can print the ratios after the run,
// and the fresh folder each makes its data in.
#pragma once

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

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
