// Whole-volume counting and listing from the master file table: GetFileCountInFolderFromMFT and
// GetFileListFromMFT on NTFS images of 10,000 and 100,000 entries, beside `ntfsls -R -l` listing the same
// image and a raw scan of the table through libntfs-3g (every in-use record read, nothing opened: the
// physical limit here). Prints entries per second, the ratios against ntfsls, and the cost of ten times
// the entries. The images are made at bench time with the engine, their change journal active.
//
//     mft_bench [--dir DIR]
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <velmora/velmora.h>

#include "../platform/linux/host.h"
#include "../platform/linux/volumes/ntfs/ntfs_engine.h"
#include "ratio_reporter.h"

namespace {

std::string g_folder = "/tmp/velmora-mft-bench";
constexpr int kFilesPerFolder = 999;  // with its folder, a thousand entries per folder

int Run(const std::string& command) { return std::system(("(" + command + ") >/dev/null 2>&1").c_str()); }

std::string ImageOf(int entries) { return g_folder + "/mft" + std::to_string(entries) + ".img"; }

// A bare NTFS image of `entries` entries (folders of 999 empty-ish files), made once per folder.
void MakeImage(int entries) {
    const std::string image = ImageOf(entries);
    if (std::filesystem::exists(image + ".done")) return;
    Run("mkdir -p '" + g_folder + "' && rm -f '" + image + "' && truncate -s " + std::to_string(entries / 100 + 64) + "M '" + image +
        "' && mkntfs -F -Q -q '" + image + "'");
    std::unique_ptr<vlx::ntfs::Volume> volume;
    if (vlx::ntfs::Volume::Attach(image, 0, std::filesystem::file_size(image), false, volume) != ERROR_SUCCESS) {
        std::fprintf(stderr, "cannot attach %s\n", image.c_str());
        std::exit(1);
    }
    volume->CreateUsnJournal(32 << 20, 4 << 20);
    for (int folder = 0; folder < entries / (kFilesPerFolder + 1); ++folder) {
        const WString name = WStrFormat(_T("\\d%04d"), folder);
        volume->CreateFolder(name);
        for (int index = 0; index < kFilesPerFolder; ++index) {
            std::shared_ptr<vlx::ntfs::File> file;
            volume->CreateFile(WStrFormat(_T("%s\\file%04d.txt"), name.c_str(), index), FILE_ATTRIBUTE_ARCHIVE, file);
            DWORD done = 0;
            if (file) file->Write(0, "entry", 5, done);
        }
    }
    volume->Detach();
    Run("touch '" + image + ".done'");
}

// Attaches the image as E: for one timed run and detaches it afterwards, outside the time.
class AttachedFor {
public:
    explicit AttachedFor(int entries) {
        vlx::DiskAttachOptions options;
        options.letters = _T("E");
        number_ = vlx::AttachDiskImage(ImageOf(entries), options);
        vlx::SetProcessToken(vlx::TokenKind::Elevated);
    }
    ~AttachedFor() {
        vlx::SetProcessToken(vlx::TokenKind::AsProcessRuns);
        if (number_ >= 0) vlx::DetachDisk(number_);
    }

private:
    int number_;
};

void Count(benchmark::State& state, int entries) {
    MakeImage(entries);
    ULONGLONG files = 0, folders = 0, bytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        {
            AttachedFor disk(entries);
            files = folders = bytes = 0;
            state.ResumeTiming();
            GetFileCountInFolderFromMFT(CString(_T("E:")), &files, &folders, &bytes, nullptr, CString());
            state.PauseTiming();
        }
        state.ResumeTiming();
    }
    if (files + folders != static_cast<ULONGLONG>(entries)) state.SkipWithError("the count missed entries");
    state.counters["entries_per_s"] = benchmark::Counter(static_cast<double>(entries), benchmark::Counter::kIsIterationInvariantRate);
}

void List(benchmark::State& state, int entries) {
    MakeImage(entries);
    size_t listed = 0;
    for (auto _ : state) {
        state.PauseTiming();
        {
            AttachedFor disk(entries);
            std::vector<std::basic_string<WCHAR>> paths;
            state.ResumeTiming();
            GetFileListFromMFT(CString(_T("E:")), &paths);
            listed = paths.size();
            state.PauseTiming();
        }
        state.ResumeTiming();
    }
    if (listed != static_cast<size_t>(entries)) state.SkipWithError("the list missed entries");
    state.counters["entries_per_s"] = benchmark::Counter(static_cast<double>(entries), benchmark::Counter::kIsIterationInvariantRate);
}

void Ntfsls(benchmark::State& state, int entries) {
    MakeImage(entries);
    for (auto _ : state) {
        // Without a long listing ntfsls -R prints the root alone; -l makes it descend into every folder.
        if (Run("ntfsls -R -l '" + ImageOf(entries) + "'") != 0) state.SkipWithError("ntfsls failed");
    }
    state.counters["entries_per_s"] = benchmark::Counter(static_cast<double>(entries), benchmark::Counter::kIsIterationInvariantRate);
}

void RawScan(benchmark::State& state, int entries) {
    MakeImage(entries);
    size_t records = 0;
    for (auto _ : state) {
        state.PauseTiming();
        std::unique_ptr<vlx::ntfs::Volume> volume;
        vlx::ntfs::Volume::Attach(ImageOf(entries), 0, std::filesystem::file_size(ImageOf(entries)), true, volume);
        state.ResumeTiming();
        records = 0;
        volume->EnumerateRecords(0, [&](const vlx::ntfs::MftRecord&) { return ++records, true; });
        state.PauseTiming();
        volume.reset();
        state.ResumeTiming();
    }
    state.counters["entries_per_s"] = benchmark::Counter(static_cast<double>(entries), benchmark::Counter::kIsIterationInvariantRate);
}

void PrintRatio(const char* what, double numerator, double denominator) {
    if (numerator > 0 && denominator > 0) std::printf("%-46s %.2f\n", what, numerator / denominator);
}

}  // namespace

int main(int argc, char** argv) {
    for (int at = 1; at + 1 < argc; ++at) {
        if (std::strcmp(argv[at], "--dir") == 0) g_folder = argv[at + 1];
    }
    for (const int entries : {10000, 100000}) {
        const std::string size = entries == 10000 ? "10k" : "100k";
        const int iterations = entries == 10000 ? 5 : 2;
        benchmark::RegisterBenchmark(("Count_" + size).c_str(), Count, entries)->Iterations(iterations)->UseRealTime()->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("List_" + size).c_str(), List, entries)->Iterations(iterations)->UseRealTime()->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("Ntfsls_" + size).c_str(), Ntfsls, entries)->Iterations(iterations)->UseRealTime()->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("RawScan_" + size).c_str(), RawScan, entries)->Iterations(iterations)->UseRealTime()->Unit(benchmark::kMillisecond);
    }
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    std::printf("\n");
    PrintRatio("ntfsls -R / count, 100k (goal >= 1)", reporter.Seconds("Ntfsls_100k"), reporter.Seconds("Count_100k"));
    PrintRatio("ntfsls -R / list, 100k (goal >= 1)", reporter.Seconds("Ntfsls_100k"), reporter.Seconds("List_100k"));
    PrintRatio("raw scan / count, 100k (share of the limit)", reporter.Seconds("RawScan_100k"), reporter.Seconds("Count_100k"));
    PrintRatio("raw scan / list, 100k (share of the limit)", reporter.Seconds("RawScan_100k"), reporter.Seconds("List_100k"));
    PrintRatio("count 100k / count 10k (goal <= 11)", reporter.Seconds("Count_100k"), reporter.Seconds("Count_10k"));
    PrintRatio("list 100k / list 10k (goal <= 11)", reporter.Seconds("List_100k"), reporter.Seconds("List_10k"));
    return 0;
}
