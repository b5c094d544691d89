// The direct copy against cp -r on the same data, in one run: a tree of 100,000 small files and one
// 1 GiB file, each copied by CopyFilesNoneShell and by cp -r into a fresh destination, the two taken in
// turn, and the ratio of their median times. The goal is at most 1.1 times cp's time.
//
//     copy_bench [--small-files N] [--big-mib M] [--rounds R] [--dir DIR]
//
// Run by hand on a Release build. The data goes under DIR (default: the system's temporary folder) and
// is removed afterwards. Both tools read the source from the page cache after it was written, and every
// destination is removed outside the timed part, so the two see the same conditions.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>

#include <velmora/velmora.h>

#include "../platform/linux/host.h"
#include "ratio_reporter.h"

namespace {

namespace fs = std::filesystem;

TreeBenchOptions g_settings{100000, 1024};
std::string g_root;

void MakeData() {
    std::mt19937 random(12345);
    const long perFolder = 1000;
    std::string content;
    for (long i = 0; i < g_settings.smallFiles; ++i) {
        const fs::path folder = fs::path(g_root) / "small" / std::string("d").append(std::to_string(i / perFolder));
        if (i % perFolder == 0) fs::create_directories(folder);
        content.assign(64 + random() % 4032, static_cast<char>('a' + i % 26));
        std::ofstream(folder / std::string("f").append(std::to_string(i)).append(".dat"), std::ios::binary) << content;
    }
    fs::create_directories(fs::path(g_root) / "big");
    std::ofstream big(fs::path(g_root) / "big" / "one.bin", std::ios::binary);
    std::string block(1 << 20, 0);
    for (long i = 0; i < g_settings.bigMiB; ++i) {
        for (size_t j = 0; j < block.size(); j += 64) block[j] = static_cast<char>(random());
        big.write(block.data(), static_cast<std::streamsize>(block.size()));
    }
}

void RemoveTarget(const std::string& name) { fs::remove_all(fs::path(g_root) / name); }

BenchSide CopyWithVelmora(const std::string& source) {
    return {"CopyFilesNoneShell",
            [source] {
                const CString from = CString((u"B:\\" + WStrFromUtf8(source)).c_str());
                // A folder with subfolders reports 0 by design; that the copy arrived is the check.
                return CopyFilesNoneShell(from, _T("B:\\out-velmora"), nullptr, nullptr, _T("")) ||
                       fs::exists(fs::path(g_root) / "out-velmora");
            },
            [] { RemoveTarget("out-velmora"); }};
}

BenchSide CopyWithCp(const std::string& source) {
    return {"cp -r", [source] { return RunTool({"cp", "-r", g_root + "/" + source, g_root + "/out-cp"}) == 0; },
            [] { RemoveTarget("out-cp"); }};
}

}  // namespace

int main(int argc, char** argv) {
    if (!ParseTreeBenchOptions(argc, argv, "copy_bench", g_settings)) return 2;
    g_root = MakeBenchRoot(g_settings.dir, "copy");
    if (g_root.empty()) return 1;
    std::printf("making %ld small files and a %ld MiB file under %s\n", g_settings.smallFiles, g_settings.bigMiB, g_root.c_str());
    std::fflush(stdout);
    MakeData();
    vlx::MapDrive('B', g_root);

    const std::string small = std::to_string(g_settings.smallFiles) + " small files";
    const std::string big = std::to_string(g_settings.bigMiB) + " MiB file";
    ComparePair("copy, " + small, CopyWithVelmora("small"), CopyWithCp("small"), g_settings.rounds, 1.1);
    ComparePair("copy, " + big, CopyWithVelmora("big"), CopyWithCp("big"), g_settings.rounds, 1.1);
    RemoveTarget("out-velmora");
    RemoveTarget("out-cp");

    vlx::UnmapDrive('B');
    fs::remove_all(g_root);
    return 0;
}
