// Zip through the shell exports against zip -r -6 and unzip on the same data, in one run: a mixed tree of
// 10,000 small files and four large ones (1 GiB in all), compressed by CompressToZip (silent) and by
// zip -r -6, then extracted by ExtractFromZip and by unzip, each pair taken in turn, and the ratios of their
// median times. The goal is at most 1.2 times the standard tool's time.
//
//     zip_bench [--small-files N] [--big-mib M] [--rounds R] [--dir DIR]
//
// The export's own waits are kept out of its time: its pauses wait for the shell's thread instead of the
// clock, so what is measured is the compression itself. Outputs are removed outside the timed part.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>

#include <velmora/velmora.h>

#include "../platform/api_patch.h"
#include "../platform/linux/host.h"
#include "ratio_reporter.h"

namespace {

namespace fs = std::filesystem;

TreeBenchOptions g_settings{10000, 1024};  // bigMiB: the whole tree; the large files get what the small ones leave
std::string g_root;

// Text-like small files and large files of mixed runs and noise, so that deflate has work of both kinds.
void MakeData() {
    std::mt19937 random(4242);
    const long perFolder = 500;
    std::string content;
    uint64_t smallBytes = 0;
    const char* words[] = {"velmora ", "archive ", "folder ", "zip ", "shell ", "日本語 ", "data\n"};
    for (long i = 0; i < g_settings.smallFiles; ++i) {
        const fs::path folder = fs::path(g_root) / "tree" / "small" / std::string("d").append(std::to_string(i / perFolder));
        if (i % perFolder == 0) fs::create_directories(folder);
        content.clear();
        const size_t length = 200 + random() % 8000;
        while (content.size() < length) content += words[random() % 7];
        smallBytes += content.size();
        std::ofstream(folder / std::string("f").append(std::to_string(i)).append(".txt"), std::ios::binary) << content;
    }
    const uint64_t total = static_cast<uint64_t>(g_settings.bigMiB) << 20;
    const uint64_t eachBig = total > smallBytes ? (total - smallBytes) / 4 : 0;
    fs::create_directories(fs::path(g_root) / "tree" / "big");
    std::string block(1 << 20, 0);
    for (int file = 0; file < 4; ++file) {
        std::ofstream big(fs::path(g_root) / "tree" / "big" / std::string("large").append(std::to_string(file)).append(".bin"), std::ios::binary);
        for (uint64_t done = 0; done < eachBig; done += block.size()) {
            for (size_t j = 0; j < block.size(); ++j) block[j] = (j / 4096) % 2 ? static_cast<char>(random()) : static_cast<char>('a' + j % 7);
            big.write(block.data(), static_cast<std::streamsize>(std::min<uint64_t>(block.size(), eachBig - done)));
        }
    }
}

void Remove(const std::string& name) { fs::remove_all(fs::path(g_root) / name); }

int Shell(const std::string& command) {
    std::string line = "cd '";
    line.append(g_root).append("' && ").append(command).append(" >/dev/null 2>&1");
    return std::system(line.c_str());
}

// The export's pauses wait for the shell's thread instead of the clock while a round runs.
BenchSide CompressWithVelmora() {
    return {"CompressToZip",
            [] {
                ApiPatch<&Win32Api::Sleep> pause([](DWORD) { vlx::WaitForShellCopies(); });
                int code = 0;
                if (CompressToZip(_T("B:\\tree"), _T("B:\\velmora.zip"), 1, &code)) return true;
                std::fprintf(stderr, "CompressToZip detail code %d\n", code);
                return false;
            },
            [] { Remove("velmora.zip"); }};
}

BenchSide CompressWithZip() {
    return {"zip -r -6", [] { return Shell("zip -qr -6 zip.zip tree") == 0; }, [] { Remove("zip.zip"); }};
}

// Both extract the archive zip made, which the compression rounds leave behind.
BenchSide ExtractWithVelmora() {
    return {"ExtractFromZip", [] { return ExtractFromZip(_T("B:\\zip.zip"), _T("B:\\out-velmora"), 1) != 0; },
            [] { Remove("out-velmora"); }};
}

BenchSide ExtractWithUnzip() {
    return {"unzip", [] { return Shell("unzip -q zip.zip -d out-unzip") == 0; }, [] { Remove("out-unzip"); }};
}

}  // namespace

int main(int argc, char** argv) {
    if (!ParseTreeBenchOptions(argc, argv, "zip_bench", g_settings)) return 2;
    g_root = MakeBenchRoot(g_settings.dir, "zip");
    if (g_root.empty()) return 1;
    std::printf("making %ld small files and four large ones, %ld MiB in all, under %s\n", g_settings.smallFiles, g_settings.bigMiB,
                g_root.c_str());
    std::fflush(stdout);
    MakeData();
    vlx::MapDrive('B', g_root);

    const PairTimes compressed = ComparePair("zip, compress", CompressWithVelmora(), CompressWithZip(), g_settings.rounds, 1.2);
    if (compressed.Valid()) ComparePair("zip, extract", ExtractWithVelmora(), ExtractWithUnzip(), g_settings.rounds, 1.2);
    std::printf("archive sizes: CompressToZip %llu bytes, zip -r -6 %llu bytes\n",
                static_cast<unsigned long long>(fs::exists(fs::path(g_root) / "velmora.zip") ? fs::file_size(fs::path(g_root) / "velmora.zip") : 0),
                static_cast<unsigned long long>(fs::exists(fs::path(g_root) / "zip.zip") ? fs::file_size(fs::path(g_root) / "zip.zip") : 0));

    vlx::UnmapDrive('B');
    fs::remove_all(g_root);
    return 0;
}
