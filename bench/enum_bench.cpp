// Enumeration and comparison against the standard tools, on the same data in one run:
//   GetFileHash of a 1 GiB file          vs md5sum     (goal: at least as fast)
//   GetFileCountInFolder, 100,000 files  vs du -sb     (goal: at most 3 times as long)
//   CompareFolder with hashing, 2 trees  vs diff -rq   (goal: at most 1.5 times as long)
// Each side runs three times on warm caches; the best time counts. Usage: enum_bench [WORKDIR]
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <velmora/velmora.h>

#include "../platform/linux/host.h"

namespace {

using Clock = std::chrono::steady_clock;

double BestSeconds(const std::function<void()>& run) {
    double best = 1e30;
    for (int round = 0; round < 3; ++round) {
        const auto start = Clock::now();
        run();
        best = std::min(best, std::chrono::duration<double>(Clock::now() - start).count());
    }
    return best;
}

void Tool(const std::string& command) {
    if (std::system((command + " > /dev/null").c_str()) == -1) std::perror(command.c_str());
}

void Report(const char* what, double library, const char* tool, double standard, const char* goal) {
    std::printf("%-44s library %8.3f s   %-10s %8.3f s   ratio %5.2f   (goal: %s)\n", what, library, tool, standard,
                library / standard, goal);
}

void WriteBytes(const std::string& path, size_t size, unsigned seed) {
    std::string block(1 << 20, '\0');
    for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>((i * 2654435761u + seed) >> 13);
    std::ofstream out(path, std::ios::binary);
    for (size_t written = 0; written < size; written += block.size()) out.write(block.data(), static_cast<std::streamsize>(std::min(block.size(), size - written)));
}

}  // namespace

int main(int argc, char** argv) {
    const std::string work = argc > 1 ? argv[1] : "/tmp/velmora-enum-bench";
    std::filesystem::remove_all(work);
    std::filesystem::create_directories(work);
    if (!vlx::MapDrive('B', work)) return 1;

    // 1 GiB file.
    WriteBytes(work + "/big.bin", size_t{1} << 30, 7);
    BYTE digest[16];
    const double hashLibrary = BestSeconds([] {
        BYTE d[16];
        GetFileHash(_T("B:\\big.bin"), d, CALG_MD5);
    });
    const double hashTool = BestSeconds([&] { Tool("md5sum " + work + "/big.bin"); });
    GetFileHash(_T("B:\\big.bin"), digest, CALG_MD5);
    std::filesystem::remove(work + "/big.bin");
    Report("GetFileHash, 1 GiB file", hashLibrary, "md5sum", hashTool, "ratio <= 1");

    // 100,000 small files in 100 folders.
    for (int folder = 0; folder < 100; ++folder) {
        const std::string dir = work + "/tree/d" + std::to_string(folder);
        std::filesystem::create_directories(dir);
        for (int file = 0; file < 1000; ++file) std::ofstream(dir + "/f" + std::to_string(file) + ".dat") << file;
    }
    ULONGLONG files = 0, folders = 0, bytes = 0;
    const double countLibrary = BestSeconds([&] {
        files = folders = bytes = 0;
        GetFileCountInFolder(_T("B:\\tree"), &files, &folders, &bytes, nullptr, CString(), nullptr);
    });
    const double countTool = BestSeconds([&] { Tool("du -sb " + work + "/tree"); });
    std::printf("(counted %llu files, %llu folders, %llu bytes)\n", static_cast<unsigned long long>(files),
                static_cast<unsigned long long>(folders), static_cast<unsigned long long>(bytes));
    std::filesystem::remove_all(work + "/tree");
    Report("GetFileCountInFolder, 100,000 files", countLibrary, "du -sb", countTool, "ratio <= 3");

    // Two equal trees: 2,000 files of 64 KiB in 20 folders each, with the same times.
    for (const char* side : {"A", "B"}) {
        for (int folder = 0; folder < 20; ++folder) {
            const std::string dir = work + "/" + side + "/d" + std::to_string(folder);
            std::filesystem::create_directories(dir);
            for (int file = 0; file < 100; ++file) WriteBytes(dir + "/f" + std::to_string(file), 65536, static_cast<unsigned>(folder * 100 + file));
        }
    }
    Tool("touch -d '2024-01-01 00:00:00' $(find " + work + "/A " + work + "/B)");
    size_t results = 0;
    const double compareLibrary = BestSeconds([&] {
        FileListNode head{};
        CompareFolder(_T("B:\\A"), _T("B:\\B"), &head, 1, 1);
        results = 0;
        for (FileListNode* node = head.next; node != nullptr;) {
            FileListNode* next = node->next;
            std::free(node);
            node = next;
            ++results;
        }
    });
    const double compareTool = BestSeconds([&] { Tool("diff -rq " + work + "/A " + work + "/B"); });
    std::printf("(%zu differences)\n", results);
    Report("CompareFolder with MD5, 2 x 2,000 files", compareLibrary, "diff -rq", compareTool, "ratio <= 1.5");

    vlx::UnmapDrive('B');
    std::filesystem::remove_all(work);
    return 0;
}
