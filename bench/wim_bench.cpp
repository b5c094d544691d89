// Image capture and apply against wimlib-imagex on the same data, in one run, for each compression type:
// a mixed tree (10,000 small files and four large ones, 1 GiB in all) captured by CompressToWim and by
// wimlib-imagex capture, then applied by ExtractFromWim and by wimlib-imagex apply, and the ratios of
// their times printed. The exports run with both progress targets, so that the message callback and the
// message pump are part of what is timed. The goal is at most 1.05 times wimlib-imagex's time.
//
//     velmora_wim_bench [--small-files N] [--big-mib M] [--compress none,xpress,lzx,lzms] [--dir DIR]
//
// The data goes under DIR (default: the system's temporary folder) and is removed afterwards. Image files
// and applied trees are removed outside the timed part. wimlib-imagex is given --unix-data, as the
// platform's imaging library keeps UNIX data too, so both do the same work.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>

#include <velmora/velmora.h>

#include "../platform/api.h"
#include "../platform/linux/host.h"
#include "ratio_reporter.h"
#include "../platform/wimgapi.h"

namespace {

namespace fs = std::filesystem;

struct Settings {
    long smallFiles = 10000;
    long bigMiB = 1024 - 40;  // the small files bring the total to about 1 GiB
    std::string compressions = "none,xpress,lzx,lzms";
    std::string dir = fs::temp_directory_path();
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

void CaptureWithVelmora(benchmark::State& state, Compression compression) {
    const std::string image = std::string("velmora-") + compression.name + ".wim";
    for (auto _ : state) {
        state.PauseTiming();
        Remove(image);
        state.ResumeTiming();
        DWORD percent = 0;
        if (!CompressToWim(OnB(image), OnB("src"), _T(""), compression.type, &percent, &TextWindow()) || percent != 100)
            state.SkipWithError("CompressToWim failed");
    }
}

void CaptureWithWimlib(benchmark::State& state, Compression compression) {
    const std::string image = g_root + "/wimlib-" + compression.name + ".wim";
    const std::string command = "wimlib-imagex capture '" + g_root + "/src' '" + image + "' --compress=" + compression.name +
                                " --unix-data >/dev/null 2>&1";
    for (auto _ : state) {
        state.PauseTiming();
        fs::remove(image);
        state.ResumeTiming();
        if (std::system(command.c_str()) != 0) state.SkipWithError("wimlib-imagex capture failed");
    }
}

// Both apply the image wimlib-imagex made, so that they read the same file.
void ApplyWithVelmora(benchmark::State& state, Compression compression) {
    const std::string image = std::string("wimlib-") + compression.name + ".wim";
    for (auto _ : state) {
        state.PauseTiming();
        Remove("out-velmora");
        state.ResumeTiming();
        DWORD percent = 0;
        if (!ExtractFromWim(OnB(image), OnB("out-velmora"), _T(""), 1, &percent, &TextWindow()) || percent != 100)
            state.SkipWithError("ExtractFromWim failed");
    }
    Remove("out-velmora");
}

void ApplyWithWimlib(benchmark::State& state, Compression compression) {
    const std::string command = "wimlib-imagex apply '" + g_root + "/wimlib-" + compression.name + ".wim' 1 '" + g_root +
                                "/out-wimlib' --unix-data >/dev/null 2>&1";
    for (auto _ : state) {
        state.PauseTiming();
        Remove("out-wimlib");
        state.ResumeTiming();
        if (std::system(command.c_str()) != 0) state.SkipWithError("wimlib-imagex apply failed");
    }
    Remove("out-wimlib");
}

void PrintRatio(const RatioReporter& reporter, const std::string& what, const std::string& ours, const std::string& theirs) {
    const double a = reporter.Seconds(ours), b = reporter.Seconds(theirs);
    if (a <= 0 || b <= 0) return;
    std::printf("%-14s exports %8.3f s   wimlib-imagex %8.3f s   ratio %.3f (goal <= 1.05)\n", what.c_str(), a, b, a / b);
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

    struct Pair {
        std::string what, ours, theirs;
    };
    std::vector<Pair> pairs;  // in the order printed
    for (const Compression& compression : kCompressions) {
        if (("," + g_settings.compressions + ",").find(std::string(",") + compression.name + ",") == std::string::npos) continue;
        const std::string suffix = std::string("/") + compression.name;
        // wimlib-imagex's capture first: its image is the one both applies read. Alternating otherwise, so
        // that neither tool always runs on a cache the other warmed.
        benchmark::RegisterBenchmark(("capture wimlib-imagex" + suffix).c_str(), CaptureWithWimlib, compression)
            ->Iterations(2)->Unit(benchmark::kMillisecond)->UseRealTime();
        benchmark::RegisterBenchmark(("capture exports" + suffix).c_str(), CaptureWithVelmora, compression)
            ->Iterations(2)->Unit(benchmark::kMillisecond)->UseRealTime();
        benchmark::RegisterBenchmark(("apply wimlib-imagex" + suffix).c_str(), ApplyWithWimlib, compression)
            ->Iterations(2)->Unit(benchmark::kMillisecond)->UseRealTime();
        benchmark::RegisterBenchmark(("apply exports" + suffix).c_str(), ApplyWithVelmora, compression)
            ->Iterations(2)->Unit(benchmark::kMillisecond)->UseRealTime();
        pairs.push_back({"capture" + suffix, "capture exports" + suffix, "capture wimlib-imagex" + suffix});
        pairs.push_back({"apply" + suffix, "apply exports" + suffix, "apply wimlib-imagex" + suffix});
    }

    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    std::printf("\n");
    for (const Pair& pair : pairs) PrintRatio(reporter, pair.what, pair.ours, pair.theirs);

    TextWindow().DestroyWindow();
    vlx::UnmapDrive('B');
    fs::remove_all(g_root);
    return 0;
}
