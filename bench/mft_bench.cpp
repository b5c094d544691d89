// Whole-volume counting and listing from the master file table: GetFileCountInFolderFromMFT and
// GetFileListFromMFT on NTFS images of 10,000 and 100,000 entries, beside `ntfsls -R -l` listing the same
// image and a raw scan of the table through libntfs-3g (every in-use record read, nothing opened: the
// physical limit here). The sides alternate within each round, so that the load of a shared machine falls
// on all of them alike; the median of the rounds is reported with the load average, then the ratios
// against ntfsls and the cost of ten times the entries. Our times include attaching and detaching the
// image, as ntfsls's include mounting it. The images are made once per folder with the engine, their
// change journal active.
//
//     mft_bench [--dir DIR] [--rounds N] [--sizes 10000,100000] [--only count|list|ntfsls|raw]
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <velmora/velmora.h>

#include "../platform/linux/host.h"
#include "../platform/linux/volumes/ntfs/ntfs_engine.h"

namespace {

std::string g_folder = "/tmp/velmora-mft-bench";
constexpr int kFilesPerFolder = 999;  // with its folder, a thousand entries per folder

int Run(const std::string& command) { return std::system(("(" + command + ") >/dev/null 2>&1").c_str()); }

// ntfs-3g's tools live in sbin, which an unprivileged user's PATH often lacks.
std::string Tool(const std::string& name) {
    for (const char* folder : {"/usr/sbin/", "/sbin/", "/usr/bin/", "/bin/"}) {
        if (access((folder + name).c_str(), X_OK) == 0) return folder + name;
    }
    return name;
}

std::string ImageOf(int entries) { return g_folder + "/mft" + std::to_string(entries) + ".img"; }

// A bare NTFS image of `entries` entries (folders of 999 small files), made once per folder.
bool MakeImage(int entries) {
    const std::string image = ImageOf(entries);
    if (std::filesystem::exists(image + ".done")) return true;
    Run("mkdir -p '" + g_folder + "' && rm -f '" + image + "' && truncate -s " + std::to_string(entries / 100 + 64) + "M '" + image +
        "' && " + Tool("mkntfs") + " -F -Q -q '" + image + "'");
    std::unique_ptr<vlx::ntfs::Volume> volume;
    if (vlx::ntfs::Volume::Attach(image, 0, std::filesystem::file_size(image), false, volume) != ERROR_SUCCESS) {
        std::fprintf(stderr, "cannot attach %s\n", image.c_str());
        return false;
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
    return true;
}

// The image attached as E: for one run, elevated as the table walk needs.
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

// Each side returns how many entries it saw, or -1 when it failed.
long long Count(int entries) {
    AttachedFor disk(entries);
    ULONGLONG files = 0, folders = 0, bytes = 0;
    GetFileCountInFolderFromMFT(CString(_T("E:")), &files, &folders, &bytes, nullptr, CString());
    return static_cast<long long>(files + folders);
}

long long List(int entries) {
    AttachedFor disk(entries);
    std::vector<std::basic_string<WCHAR>> paths;
    GetFileListFromMFT(CString(_T("E:")), &paths);
    return static_cast<long long>(paths.size());
}

long long Ntfsls(int entries) {
    // Without a long listing ntfsls -R prints the root alone; -l makes it descend into every folder.
    return Run(Tool("ntfsls") + " -R -l '" + ImageOf(entries) + "'") == 0 ? entries : -1;
}

long long RawScan(int entries) {
    std::unique_ptr<vlx::ntfs::Volume> volume;
    if (vlx::ntfs::Volume::Attach(ImageOf(entries), 0, std::filesystem::file_size(ImageOf(entries)), true, volume) != ERROR_SUCCESS) return -1;
    long long records = 0;
    volume->EnumerateRecords(0, [&](const vlx::ntfs::MftRecord&) { return ++records, true; });
    return records;
}

double Median(std::vector<double> values) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double LoadAverage() {
    double load[1] = {0};
    return getloadavg(load, 1) == 1 ? load[0] : -1;
}

void PrintRatio(const char* what, double numerator, double denominator) {
    if (numerator > 0 && denominator > 0) std::printf("%-48s %8.2f\n", what, numerator / denominator);
}

}  // namespace

int main(int argc, char** argv) {
    int rounds = 5;
    std::vector<int> sizes = {10000, 100000};
    std::string only;
    for (int at = 1; at + 1 < argc; ++at) {
        if (std::strcmp(argv[at], "--dir") == 0) g_folder = argv[at + 1];
        if (std::strcmp(argv[at], "--only") == 0) only = argv[at + 1];
        if (std::strcmp(argv[at], "--rounds") == 0) rounds = std::max(1, std::atoi(argv[at + 1]));
        if (std::strcmp(argv[at], "--sizes") == 0) {
            sizes.clear();
            for (char* part = std::strtok(argv[at + 1], ","); part; part = std::strtok(nullptr, ",")) sizes.push_back(std::atoi(part));
        }
    }
    for (const int entries : sizes) {
        if (!MakeImage(entries)) return 1;
    }

    struct Side {
        const char* name;
        std::function<long long(int)> run;
        long long expected;  // entries seen, as a share of the image's: every entry, or every record
    };
    std::vector<Side> sides = {{"count", Count, 1}, {"list", List, 1}, {"ntfsls -R -l", Ntfsls, 1}, {"raw scan", RawScan, 0}};
    // One side alone, to profile it.
    if (!only.empty()) std::erase_if(sides, [&](const Side& side) { return std::strncmp(side.name, only.c_str(), only.size()) != 0; });
    std::map<std::pair<int, std::string>, std::vector<double>> seconds;
    std::vector<double> loads;
    bool complete = true;
    for (int round = 0; round < rounds; ++round) {
        loads.push_back(LoadAverage());
        for (const int entries : sizes) {
            for (const Side& side : sides) {
                const auto start = std::chrono::steady_clock::now();
                const long long seen = side.run(entries);
                const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
                if (seen < 0 || (side.expected && seen != entries)) {
                    std::fprintf(stderr, "%s of %d entries saw %lld\n", side.name, entries, seen);
                    complete = false;
                }
                seconds[{entries, side.name}].push_back(elapsed);
            }
        }
    }

    std::printf("%d alternating rounds, load average %.2f at the start, %.2f at the last round\n", rounds, loads.front(), loads.back());
    std::printf("%-14s %10s %12s %14s\n", "side", "entries", "median ms", "entries/s");
    for (const int entries : sizes) {
        for (const Side& side : sides) {
            const double median = Median(seconds[{entries, side.name}]);
            std::printf("%-14s %10d %12.1f %14.0f\n", side.name, entries, median * 1e3, median > 0 ? entries / median : 0);
        }
    }
    std::printf("\n");
    auto median = [&](int entries, const char* side) { return Median(seconds[{entries, side}]); };
    for (const int entries : sizes) {
        const std::string tag = " at " + std::to_string(entries);
        PrintRatio(("ntfsls / count" + tag + " (goal >= 1)").c_str(), median(entries, "ntfsls -R -l"), median(entries, "count"));
        PrintRatio(("ntfsls / list" + tag + " (goal >= 1)").c_str(), median(entries, "ntfsls -R -l"), median(entries, "list"));
        PrintRatio(("raw scan / count" + tag).c_str(), median(entries, "raw scan"), median(entries, "count"));
    }
    if (sizes.size() >= 2) {
        const int small = sizes.front(), large = sizes.back();
        const std::string growth = " " + std::to_string(large) + " / " + std::to_string(small) + " (goal <= " +
                                   std::to_string(large / small + large / small / 10) + ")";
        PrintRatio(("count" + growth).c_str(), median(large, "count"), median(small, "count"));
        PrintRatio(("list" + growth).c_str(), median(large, "list"), median(small, "list"));
    }
    return complete ? 0 : 1;
}
