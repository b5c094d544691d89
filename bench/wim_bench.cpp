// Image capture and apply against wimlib-imagex on the same data, for each compression type: a mixed tree
// (10,000 small files and four large ones, 1 GiB in all) captured by CompressToWim and by wimlib-imagex
// capture, then applied by ExtractFromWim and by wimlib-imagex apply. Each pair runs in turns, the side
// that starts changing every round, and the medians of its runs and their ratio are printed with the load
// average. The exports run with both progress targets, so that the message callback and the message pump
// are part of what is timed. The goal is at most 1.05 times wimlib-imagex's time on every row. Each row
// also gives the medians of the processor time both spent, which a shared machine's load disturbs less.
//
//     velmora_wim_bench [--small-files N] [--big-mib M] [--compress none,xpress,lzx,lzms] [--runs N] [--dir DIR]
//
// The data goes under DIR (default: the system's temporary folder) and is removed afterwards. Image files
// and applied trees are removed outside the timed part. wimlib-imagex is given --unix-data, as the
// platform's imaging library keeps UNIX data too, so both do the same work. Neither side names a thread
// count: both compress with wimlib's default of one thread per online processor (printed at the start),
// and both decompress on the calling thread, as wimlib always does.
#include <benchmark/benchmark.h>

#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <velmora/velmora.h>

#include "../platform/api.h"
#include "../platform/linux/host.h"
#include "../platform/wimgapi.h"
#include "ratio_reporter.h"

namespace {

namespace fs = std::filesystem;

struct Settings {
    long smallFiles = 10000;
    long bigMiB = 1024 - 40;  // the small files bring the total to about 1 GiB
    std::string compressions = "none,xpress,lzx,lzms";
    std::string dir = fs::temp_directory_path();
    long runs = 5;  // per side and pair; never fewer
};
Settings g_settings;
std::string g_root;

struct Compression {
    const char* name;
    DWORD type;
};
constexpr Compression kCompressions[] = {
    {"none", WIM_COMPRESS_NONE}, {"xpress", WIM_COMPRESS_XPRESS}, {"lzx", WIM_COMPRESS_LZX}, {"lzms", WIM_COMPRESS_LZMS}};

// Small files of text-like content, and large ones half random and half repeated, so that every
// compression has work to do.
void MakeData() {
    std::mt19937 random(4242);
    const long perFolder = 500;
    std::string content;
    for (long i = 0; i < g_settings.smallFiles; ++i) {
        const fs::path folder = fs::path(g_root) / "src" / "small" / std::string("d").append(std::to_string(i / perFolder));
        if (i % perFolder == 0) fs::create_directories(folder);
        content.assign(64 + random() % 8000, static_cast<char>('a' + i % 26));
        for (size_t j = 0; j < content.size(); j += 7) content[j] = static_cast<char>('a' + random() % 26);
        std::ofstream(folder / std::string("f").append(std::to_string(i)).append(".txt"), std::ios::binary) << content;
    }
    fs::create_directories(fs::path(g_root) / "src" / "big");
    const long perFile = g_settings.bigMiB / 4;
    std::string block(1 << 20, 0);
    for (int file = 0; file < 4; ++file) {
        std::ofstream big(fs::path(g_root) / "src" / "big" / std::string("part").append(std::to_string(file)).append(".bin"), std::ios::binary);
        for (long mib = 0; mib < perFile; ++mib) {
            for (size_t j = 0; j < block.size(); ++j) block[j] = j < block.size() / 2 ? static_cast<char>(random()) : 'z';
            big.write(block.data(), static_cast<std::streamsize>(block.size()));
        }
    }
}

void Remove(const std::string& name) { fs::remove_all(fs::path(g_root) / name); }
CString OnB(const std::string& name) { return CString((u"B:\\" + WStrFromUtf8(name)).c_str()); }

// The caller's window whose text the library sets, for the length of the program.
CWnd& TextWindow() {
    static CWnd window;
    if (window.GetSafeHwnd() == nullptr) window.CreateEx(0, WC_STATICW, _T(""), 0, 0, 0, 0, 0, nullptr, nullptr);
    return window;
}

// One side of a pair: what is cleared before each run, outside the timing, the timed run itself, and
// whose processor time it spends (the bench's own process, or the children it waits for).
struct Side {
    std::function<void()> clear;
    std::function<bool()> run;
    int cpuOf;
};

// User and system time of every thread of the process, or of its waited-for children.
double CpuSeconds(int who) {
    struct rusage usage {};
    getrusage(who, &usage);
    const auto seconds = [](const struct timeval& time) { return static_cast<double>(time.tv_sec) + time.tv_usec / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double LoadAverage() {
    double load[1] = {0};
    return getloadavg(load, 1) == 1 ? load[0] : -1;
}

struct Row {
    std::string what;
    double ours = 0, theirs = 0, oursCpu = 0, theirsCpu = 0, load = 0;
};
std::vector<Row> g_rows;  // in the order run

// The exports and wimlib-imagex in turns, the one that goes first changing each round, so that neither
// always finds the cache the other warmed or the machine the other loaded; the medians are what count.
void RunPair(benchmark::State& state, const std::string& what, const Side& ours, const Side& theirs) {
    for (auto _ : state) {
        std::vector<double> oursSeconds, theirsSeconds, oursCpu, theirsCpu;
        for (long round = 0; round < g_settings.runs; ++round) {
            for (int turn = 0; turn < 2; ++turn) {
                const bool oursNow = (turn == 0) == (round % 2 == 0);
                const Side& side = oursNow ? ours : theirs;
                side.clear();
                const double cpuBefore = CpuSeconds(side.cpuOf);
                const auto started = std::chrono::steady_clock::now();
                if (!side.run()) {
                    state.SkipWithError((what + (oursNow ? ": the exports failed" : ": wimlib-imagex failed")).c_str());
                    return;
                }
                const std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;
                (oursNow ? oursSeconds : theirsSeconds).push_back(took.count());
                (oursNow ? oursCpu : theirsCpu).push_back(CpuSeconds(side.cpuOf) - cpuBefore);
            }
        }
        const Row row{what, Median(oursSeconds), Median(theirsSeconds), Median(oursCpu), Median(theirsCpu), LoadAverage()};
        state.SetIterationTime(row.ours);
        state.counters["exports_s"] = row.ours;
        state.counters["wimlib_s"] = row.theirs;
        state.counters["ratio"] = row.ours / row.theirs;
        state.counters["cpu_ratio"] = row.oursCpu / row.theirsCpu;
        state.counters["load"] = row.load;
        g_rows.push_back(row);
    }
}

bool Shell(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

void Capture(benchmark::State& state, Compression compression) {
    const std::string ours = std::string("velmora-") + compression.name + ".wim";
    const std::string theirs = std::string("wimlib-") + compression.name + ".wim";
    const Side exports{[=] { Remove(ours); },
                       [=] {
                           DWORD percent = 0;
                           return CompressToWim(OnB(ours), OnB("src"), _T(""), compression.type, &percent, &TextWindow()) &&
                                  percent == 100;
                       },
                       RUSAGE_SELF};
    // Its last image stays for the applies of this compression.
    const Side imagex{[=] { Remove(theirs); },
                      [=] {
                          return Shell("wimlib-imagex capture '" + g_root + "/src' '" + g_root + "/" + theirs +
                                       "' --compress=" + compression.name + " --unix-data");
                      },
                      RUSAGE_CHILDREN};
    RunPair(state, std::string("capture/") + compression.name, exports, imagex);
    Remove(ours);
}

// Both apply the image wimlib-imagex made, so that they read the same file.
void Apply(benchmark::State& state, Compression compression) {
    const std::string image = std::string("wimlib-") + compression.name + ".wim";
    const Side exports{[] { Remove("out-velmora"); },
                       [=] {
                           DWORD percent = 0;
                           return ExtractFromWim(OnB(image), OnB("out-velmora"), _T(""), 1, &percent, &TextWindow()) &&
                                  percent == 100;
                       },
                       RUSAGE_SELF};
    const Side imagex{[] { Remove("out-wimlib"); },
                      [=] {
                          return Shell("wimlib-imagex apply '" + g_root + "/" + image + "' 1 '" + g_root +
                                       "/out-wimlib' --unix-data");
                      },
                      RUSAGE_CHILDREN};
    RunPair(state, std::string("apply/") + compression.name, exports, imagex);
    Remove("out-velmora");
    Remove("out-wimlib");
    Remove(image);
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<char*> rest{argv[0]};
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--small-files" && i + 1 < argc) g_settings.smallFiles = std::atol(argv[++i]);
        else if (arg == "--big-mib" && i + 1 < argc) g_settings.bigMiB = std::atol(argv[++i]);
        else if (arg == "--compress" && i + 1 < argc) g_settings.compressions = argv[++i];
        else if (arg == "--dir" && i + 1 < argc) g_settings.dir = argv[++i];
        else if (arg == "--runs" && i + 1 < argc) g_settings.runs = std::max(5L, std::atol(argv[++i]));
        else rest.push_back(argv[i]);
    }
    int restCount = static_cast<int>(rest.size());
    benchmark::Initialize(&restCount, rest.data());

    g_root = MakeBenchRoot(g_settings.dir, "wim");
    if (g_root.empty()) return 1;
    std::printf("making %ld small files and %ld MiB in four large ones under %s\n", g_settings.smallFiles,
                g_settings.bigMiB, g_root.c_str());
    std::fflush(stdout);
    MakeData();
    vlx::MapDrive('B', g_root);

    std::printf("compressor threads: wimlib's default on both sides, one per online processor (%ld here)\n",
                sysconf(_SC_NPROCESSORS_ONLN));
    for (const Compression& compression : kCompressions) {
        if (("," + g_settings.compressions + ",").find(std::string(",") + compression.name + ",") == std::string::npos) continue;
        // The capture first: wimlib-imagex's image from it is the one both applies read.
        benchmark::RegisterBenchmark((std::string("capture/") + compression.name).c_str(), Capture, compression)
            ->Iterations(1)->Unit(benchmark::kMillisecond)->UseManualTime();
        benchmark::RegisterBenchmark((std::string("apply/") + compression.name).c_str(), Apply, compression)
            ->Iterations(1)->Unit(benchmark::kMillisecond)->UseManualTime();
    }

    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::printf("\nmedians of %ld alternating runs each\n", g_settings.runs);
    for (const Row& row : g_rows) {
        std::printf("%-14s exports %8.3f s   wimlib-imagex %8.3f s   ratio %.3f (goal <= 1.05)   "
                    "processor time %.3f s / %.3f s = %.3f   load %.2f\n",
                    row.what.c_str(), row.ours, row.theirs, row.ours / row.theirs, row.oursCpu, row.theirsCpu,
                    row.oursCpu / row.theirsCpu, row.load);
    }

    TextWindow().DestroyWindow();
    vlx::UnmapDrive('B');
    fs::remove_all(g_root);
    return 0;
}
