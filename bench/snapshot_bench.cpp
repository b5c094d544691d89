// Shadow copies of NTFS image volumes through the library's snapshot exports: making a copy of a 100 MiB
// and of a 10 GiB (sparse) volume, which copy-on-write makes cost the same; and reading a 1 GiB file
// through the copy beside reading it from the live volume, with their ratio (goal: at least 0.9).
// Run by hand (it writes 1 GiB into the large image once): build/bench/snapshot_bench
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <velmora/velmora.h>

#include "../platform/linux/host.h"
#include "../platform/unique_handles.h"
#include "../platform/vssapi.h"
#include "ratio_reporter.h"

namespace {

const std::string kFolder = "/tmp/velmora-snapshot-bench";
const std::string kSmallImage = kFolder + "/small.img";
const std::string kLargeImage = kFolder + "/large.img";
constexpr size_t kChunk = 1 << 20;
constexpr size_t kBigFileChunks = 1024;  // 1 GiB

int Run(const std::string& command) { return std::system(("(" + command + ") >/dev/null 2>&1").c_str()); }

// Made once: both images, the large one holding the 1 GiB file written through the platform.
void MakeImages() {
    static bool made = false;
    if (made) return;
    made = true;
    vlx::SetProcessToken(vlx::TokenKind::Elevated);
    sys().CoInitialize(nullptr);
    Run("rm -rf " + kFolder + " && mkdir -p " + kFolder);
    Run("truncate -s 100M " + kSmallImage + " && mkntfs -F -Q -q " + kSmallImage);
    Run("truncate -s 10G " + kLargeImage + " && mkntfs -F -Q -q " + kLargeImage);
    vlx::DiskAttachOptions options;
    options.letters = _T("L");
    const int disk = vlx::AttachDiskImage(kLargeImage, options);
    UniqueHandle file(sys().CreateFileW(_T("L:\\big.bin"), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    std::vector<char> chunk(kChunk);
    for (size_t index = 0; index < kBigFileChunks; ++index) {
        for (size_t at = 0; at < kChunk; at += 4096) chunk[at] = static_cast<char>(index + at);
        DWORD written = 0;
        sys().WriteFile(file.get(), chunk.data(), static_cast<DWORD>(kChunk), &written, nullptr);
    }
    file.reset();
    vlx::DetachDisk(disk);
}

// The time of InitializeVssBackUp alone: loading, the components object, the copy and its properties.
void MakeCopy(benchmark::State& state, const std::string& image) {
    MakeImages();
    vlx::DiskAttachOptions options;
    options.letters = _T("S");
    const int disk = vlx::AttachDiskImage(image, options);
    for (auto _ : state) {
        if (!InitializeVssBackUp(_T("S:"), VSS_BT_COPY, nullptr, nullptr)) state.SkipWithError("no shadow copy");
        state.PauseTiming();
        CloseVssBackUp();
        state.ResumeTiming();
    }
    vlx::DetachDisk(disk);
}
void MakeCopyOf100MiBVolume(benchmark::State& state) { MakeCopy(state, kSmallImage); }
void MakeCopyOf10GiBVolume(benchmark::State& state) { MakeCopy(state, kLargeImage); }
BENCHMARK(MakeCopyOf100MiBVolume)->Unit(benchmark::kMillisecond);
BENCHMARK(MakeCopyOf10GiBVolume)->Unit(benchmark::kMillisecond);

ULONGLONG ReadWhole(HANDLE file) {
    std::vector<char> buffer(kChunk);
    ULONGLONG total = 0;
    DWORD read = 0;
    while (sys().ReadFile(file, buffer.data(), static_cast<DWORD>(kChunk), &read, nullptr) && read > 0) total += read;
    return total;
}

// The large volume with a copy alive beside it; files are opened live by letter, in the copy by name.
struct CopiedVolume {
    CopiedVolume() {
        MakeImages();
        vlx::DiskAttachOptions options;
        options.letters = _T("L");
        disk = vlx::AttachDiskImage(kLargeImage, options);
        ready = InitializeVssBackUp(_T("L:"), VSS_BT_COPY, nullptr, nullptr) != FALSE;
        WCHAR name[MAX_PATH] = {};
        sys().GetVolumeNameForVolumeMountPointW(_T("L:\\"), name, MAX_PATH);
        volumeName = name;
    }
    ~CopiedVolume() {
        CloseVssBackUp();
        vlx::DetachDisk(disk);
    }
    int disk = -1;
    bool ready = false;
    WString volumeName;
};

void ReadOneGiBFromLiveVolume(benchmark::State& state) {
    CopiedVolume volume;
    for (auto _ : state) {
        UniqueHandle file(sys().CreateFileW(_T("L:\\big.bin"), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
        if (ReadWhole(file.get()) != kBigFileChunks * kChunk) state.SkipWithError("short read");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBigFileChunks * kChunk));
}
void ReadOneGiBThroughCopy(benchmark::State& state) {
    CopiedVolume volume;
    if (!volume.ready) state.SkipWithError("no shadow copy");
    for (auto _ : state) {
        UniqueHandle file(VssOpenFile((volume.volumeName + _T("big.bin")).c_str()));
        if (ReadWhole(file.get()) != kBigFileChunks * kChunk) state.SkipWithError("short read");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBigFileChunks * kChunk));
}
BENCHMARK(ReadOneGiBFromLiveVolume)->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadOneGiBThroughCopy)->Iterations(3)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    auto& seconds = reporter.seconds;
    if (seconds.count("MakeCopyOf100MiBVolume") && seconds.count("MakeCopyOf10GiBVolume"))
        std::printf("copy of 10 GiB over copy of 100 MiB: %.2f (goal: about 1)\n",
                    seconds["MakeCopyOf10GiBVolume"] / seconds["MakeCopyOf100MiBVolume"]);
    if (seconds.count("ReadOneGiBFromLiveVolume") && seconds.count("ReadOneGiBThroughCopy"))
        std::printf("speed through the copy over live speed: %.2f (goal: at least 0.9)\n",
                    seconds["ReadOneGiBFromLiveVolume"] / seconds["ReadOneGiBThroughCopy"]);
    benchmark::Shutdown();
    return 0;
}
