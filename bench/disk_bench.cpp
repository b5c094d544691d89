// Disk images through the platform: every file of an NTFS image of 10,000 files opened, read and closed
// through the Win32 calls, beside ntfscat reading a sample of the same files from the same image (one
// process per file, as a script would use it), with the ratio per file; and attaching a 4 GiB image, of
// which only the metadata may be read.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "../platform/linux/host.h"
#include "../platform/unique_handles.h"

namespace {

constexpr int kFiles = 10000;
constexpr int kNtfscatSample = 200;
const std::string kFolder = "/tmp/velmora-disk-bench";
const std::string kSmallImage = kFolder + "/files.img";
const std::string kLargeImage = kFolder + "/large.img";

int Run(const std::string& command) { return std::system(("(" + command + ") >/dev/null 2>&1").c_str()); }

WString FileName(int index) { return WStrFormat(_T("E:\\d%02d\\file%05d.txt"), index % 50, index); }

// Made once: a bare NTFS image filled through the platform, detached so that it is all on disk.
void MakeImages() {
    static bool made = false;
    if (made) return;
    made = true;
    Run("rm -rf " + kFolder + " && mkdir -p " + kFolder);
    Run("truncate -s 256M " + kSmallImage + " && mkntfs -F -Q -q " + kSmallImage);
    Run("truncate -s 4G " + kLargeImage + " && mkntfs -F -Q -q " + kLargeImage);
    vlx::DiskAttachOptions options;
    options.letters = _T("E");
    const int disk = vlx::AttachDiskImage(kSmallImage, options);
    for (int folder = 0; folder < 50; ++folder) sys().CreateDirectoryW(WStrFormat(_T("E:\\d%02d"), folder).c_str(), nullptr);
    const std::string content(1500, 'x');
    for (int index = 0; index < kFiles; ++index) {
        UniqueHandle file(sys().CreateFileW(FileName(index).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
        DWORD written = 0;
        sys().WriteFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &written, nullptr);
    }
    vlx::DetachDisk(disk);
}

double SecondsPerFileThroughPlatform() {
    vlx::DiskAttachOptions options;
    options.letters = _T("E");
    const int disk = vlx::AttachDiskImage(kSmallImage, options);
    char buffer[4096];
    const auto start = std::chrono::steady_clock::now();
    for (int index = 0; index < kFiles; ++index) {
        UniqueHandle file(sys().CreateFileW(FileName(index).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
        DWORD read = 0;
        while (sys().ReadFile(file.get(), buffer, sizeof buffer, &read, nullptr) && read > 0) benchmark::DoNotOptimize(buffer);
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    vlx::DetachDisk(disk);
    return seconds / kFiles;
}

double SecondsPerFileThroughNtfscat() {
    const auto start = std::chrono::steady_clock::now();
    for (int index = 0; index < kFiles; index += kFiles / kNtfscatSample) {
        char path[64];
        std::snprintf(path, sizeof path, "/d%02d/file%05d.txt", index % 50, index);
        Run("ntfscat " + kSmallImage + " " + path);
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() / kNtfscatSample;
}

void ReadEveryFileOfATenThousandFileImage(benchmark::State& state) {
    MakeImages();
    double platform = 0, ntfscat = 0;
    for (auto _ : state) {
        platform = SecondsPerFileThroughPlatform();
        ntfscat = SecondsPerFileThroughNtfscat();
    }
    state.counters["platform_us_per_file"] = platform * 1e6;
    state.counters["ntfscat_us_per_file"] = ntfscat * 1e6;
    state.counters["ntfscat_over_platform"] = ntfscat / platform;
}
BENCHMARK(ReadEveryFileOfATenThousandFileImage)->Iterations(1)->Unit(benchmark::kSecond);

void AttachAFourGiBImage(benchmark::State& state) {
    MakeImages();
    vlx::DiskAttachOptions options;
    options.letters = _T("F");
    for (auto _ : state) {
        const int disk = vlx::AttachDiskImage(kLargeImage, options);
        state.PauseTiming();
        vlx::DetachDisk(disk);
        state.ResumeTiming();
    }
}
BENCHMARK(AttachAFourGiBImage)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
