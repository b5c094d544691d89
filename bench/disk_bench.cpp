// Disk images through the platform, beside ntfscat on the same image, in one run with the sides alternating
// round by round (the median of the rounds is reported with the load average):
// - every file of an NTFS image of 10,000 files opened, read and closed through CreateFileW, ReadFile and
//   CloseHandle in one attachment, per file;
// - a sample of the same files (every 50th) read both ways one file at a time: ntfscat takes one file per
//   run, so it pays a process and a mount for each, and our side pays the attachment for each too (attach,
//   open, read, close, detach), which is the like-for-like figure; the ratio is printed for both;
// - attaching a 4 GiB image, with the bytes read from the image while attaching, which must be the
//   metadata alone.
//
//     disk_bench [--dir DIR] [--rounds N]
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "../platform/linux/host.h"
#include "../platform/unique_handles.h"

namespace {

constexpr int kFiles = 10000;
constexpr int kFolders = 50;
constexpr int kSampleStep = 50;
constexpr DWORD kFileBytes = 1500;
std::string g_folder = "/tmp/velmora-disk-bench";

int Run(const std::string& command) { return std::system(("(" + command + ") >/dev/null 2>&1").c_str()); }

std::string Tool(const std::string& name) {
    for (const char* folder : {"/usr/sbin/", "/sbin/", "/usr/bin/", "/bin/"}) {
        if (access((folder + name).c_str(), X_OK) == 0) return folder + name;
    }
    return name;
}

std::string SmallImage() { return g_folder + "/files.img"; }
std::string LargeImage() { return g_folder + "/large.img"; }

WString FileName(int index) { return WStrFormat(_T("E:\\d%02d\\file%05d.txt"), index % kFolders, index); }

int Attach(const std::string& image, const WCHAR* letter) {
    vlx::DiskAttachOptions options;
    options.letters = letter;
    return vlx::AttachDiskImage(image, options);
}

// Made once per folder: bare NTFS images, the small one filled through the platform and detached so that
// it is all on disk.
bool MakeImages() {
    if (access((SmallImage() + ".done").c_str(), F_OK) == 0) return true;
    Run("rm -rf '" + g_folder + "' && mkdir -p '" + g_folder + "'");
    Run("truncate -s 256M '" + SmallImage() + "' && " + Tool("mkntfs") + " -F -Q -q '" + SmallImage() + "'");
    Run("truncate -s 4G '" + LargeImage() + "' && " + Tool("mkntfs") + " -F -Q -q '" + LargeImage() + "'");
    const int disk = Attach(SmallImage(), _T("E"));
    if (disk < 0) return false;
    for (int folder = 0; folder < kFolders; ++folder) sys().CreateDirectoryW(WStrFormat(_T("E:\\d%02d"), folder).c_str(), nullptr);
    const std::string content(kFileBytes, 'x');
    for (int index = 0; index < kFiles; ++index) {
        UniqueHandle file(sys().CreateFileW(FileName(index).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
        DWORD written = 0;
        if (!file || !sys().WriteFile(file.get(), content.data(), kFileBytes, &written, nullptr)) return false;
    }
    vlx::DetachDisk(disk);
    Run("touch '" + SmallImage() + ".done'");
    return true;
}

// Opens, reads to the end and closes one file; the bytes read.
DWORD ReadWhole(int index) {
    char buffer[4096];
    UniqueHandle file(sys().CreateFileW(FileName(index).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    DWORD total = 0, read = 0;
    while (file && sys().ReadFile(file.get(), buffer, sizeof buffer, &read, nullptr) && read > 0) total += read;
    return total;
}

bool ReadEveryFileInOneAttachment() {
    const int disk = Attach(SmallImage(), _T("E"));
    bool whole = disk >= 0;
    for (int index = 0; index < kFiles && whole; ++index) whole = ReadWhole(index) == kFileBytes;
    vlx::DetachDisk(disk);
    return whole;
}

bool ReadSampleAttachingForEachFile() {
    bool whole = true;
    for (int index = 0; index < kFiles && whole; index += kSampleStep) {
        const int disk = Attach(SmallImage(), _T("E"));
        whole = disk >= 0 && ReadWhole(index) == kFileBytes;
        vlx::DetachDisk(disk);
    }
    return whole;
}

bool ReadSampleThroughNtfscat() {
    bool whole = true;
    for (int index = 0; index < kFiles && whole; index += kSampleStep) {
        char path[64];
        std::snprintf(path, sizeof path, "/d%02d/file%05d.txt", index % kFolders, index);
        whole = Run(Tool("ntfscat") + " '" + SmallImage() + "' " + path) == 0;
    }
    return whole;
}

// Bytes this process has read from files so far, as the kernel counts them.
long long BytesReadByProcess() {
    std::ifstream io("/proc/self/io");
    std::string key;
    long long value = 0;
    while (io >> key >> value) {
        if (key == "rchar:") return value;
    }
    return -1;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

template <class Body>
double Seconds(Body&& body, bool& ok) {
    const auto start = std::chrono::steady_clock::now();
    ok = body() && ok;
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double LoadAverage() {
    double load[1] = {0};
    return getloadavg(load, 1) == 1 ? load[0] : -1;
}

}  // namespace

int main(int argc, char** argv) {
    int rounds = 5;
    for (int at = 1; at + 1 < argc; ++at) {
        if (std::strcmp(argv[at], "--dir") == 0) g_folder = argv[at + 1];
        if (std::strcmp(argv[at], "--rounds") == 0) rounds = std::max(1, std::atoi(argv[at + 1]));
    }
    if (!MakeImages()) {
        std::fprintf(stderr, "cannot make the images in %s\n", g_folder.c_str());
        return 1;
    }
    constexpr int kSample = kFiles / kSampleStep;
    std::vector<double> every, sample, ntfscat, attach;
    std::vector<long long> attachBytes;
    bool ok = true;
    const double loadBefore = LoadAverage();
    for (int round = 0; round < rounds; ++round) {
        every.push_back(Seconds(ReadEveryFileInOneAttachment, ok) / kFiles);
        sample.push_back(Seconds(ReadSampleAttachingForEachFile, ok) / kSample);
        ntfscat.push_back(Seconds(ReadSampleThroughNtfscat, ok) / kSample);
        const long long before = BytesReadByProcess();
        int disk = -1;
        attach.push_back(Seconds([&] { return (disk = Attach(LargeImage(), _T("F"))) >= 0; }, ok));
        attachBytes.push_back(BytesReadByProcess() - before);
        vlx::DetachDisk(disk);
    }
    std::printf("%d alternating rounds, load average %.2f before, %.2f after\n", rounds, loadBefore, LoadAverage());
    std::printf("%-58s %10.1f us\n", "platform, all 10,000 files in one attachment, per file", Median(every) * 1e6);
    std::printf("%-58s %10.1f us\n", "platform, sample of 200, attaching for each file, per file", Median(sample) * 1e6);
    std::printf("%-58s %10.1f us\n", "ntfscat, same sample, one run per file, per file", Median(ntfscat) * 1e6);
    std::printf("%-58s %10.2f\n", "ntfscat / platform per file, one attachment (goal >= 1)", Median(ntfscat) / Median(every));
    std::printf("%-58s %10.2f\n", "ntfscat / platform per file, attach for each (goal >= 1)", Median(ntfscat) / Median(sample));
    std::sort(attachBytes.begin(), attachBytes.end());
    std::printf("%-58s %10.3f ms\n", "attaching a 4 GiB image (goal < 100 ms)", Median(attach) * 1e3);
    std::printf("%-58s %10lld bytes\n", "read from the image while attaching it (median)", attachBytes[attachBytes.size() / 2]);
    if (!ok) std::fprintf(stderr, "a read came back short or a run failed\n");
    return ok ? 0 : 1;
}
