// The console reporter of the benchmarks that compare the library with a standard tool: it keeps each
// benchmark's time per iteration, by name, so that the program can print the ratios after the run.
#pragma once

#include <benchmark/benchmark.h>

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
    std::map<std::string, double> seconds;
};
