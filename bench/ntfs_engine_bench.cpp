// The NTFS engine against ntfs-3g's own tool on the same image: every file of a 10,000-file volume read
// through the engine (one attachment, open, read, close) and through `ntfscat` (one run per file, on a
// sample), and the time to attach a 4 GiB volume, which must read nothing beyond the metadata.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "../platform/linux/volumes/ntfs/ntfs_engine.h"

namespace {

namespace fs = std::filesystem;
using vlx::ntfs::EntryInfo;
using vlx::ntfs::File;
using vlx::ntfs::Volume;

constexpr int kFolders = 100;
constexpr int kFilesPerFolder = 100;
constexpr int kNtfscatSample = 200;

std::string Tool(const std::string& name) {
    for (const char* folder : {"/usr/sbin/", "/sbin/", "/usr/bin/", "/bin/"}) {
        if (access((folder + name).c_str(), X_OK) == 0) return folder + name;
    }
    return name;
}

bool MakeImage(const std::string& path, unsigned long long size) {
    { std::ofstream(path, std::ios::binary); }
    fs::resize_file(path, size);
    return std::system((Tool("mkntfs") + " -F -f -q -c 4096 '" + path + "' >/dev/null 2>&1").c_str()) == 0;
}

// One image of 10,000 small files in 100 folders, made once for every benchmark of the run.
const std::string& FilesImage() {
    static const std::string path = [] {
        const std::string image = fs::temp_directory_path() / ("velmora-ntfs-bench-" + std::to_string(getpid()) + ".img");
        if (!MakeImage(image, 128ull << 20)) std::abort();
        std::unique_ptr<Volume> volume;
        if (Volume::Attach(image, 0, fs::file_size(image), false, volume) != ERROR_SUCCESS) std::abort();
        std::string data(6000, 'v');
        for (int f = 0; f < kFolders; ++f) {
            const WString folder = WStrFromUtf8("\\folder" + std::to_string(f));
            volume->CreateFolder(folder);
            for (int i = 0; i < kFilesPerFolder; ++i) {
                std::shared_ptr<File> file;
                if (volume->CreateFile(folder + WStrFromUtf8("\\file" + std::to_string(i) + ".dat"), 0, file)) std::abort();
                DWORD done = 0;
                file->Write(0, data.data(), static_cast<DWORD>(1000 + (i * 37) % 5000), done);
            }
        }
        volume->Detach();
        return image;
    }();
    return path;
}

void EngineReadsEveryFile(benchmark::State& state) {
    const std::string& image = FilesImage();
    std::vector<char> buffer(64 * 1024);
    for (auto _ : state) {
        std::unique_ptr<Volume> volume;
        if (Volume::Attach(image, 0, fs::file_size(image), true, volume) != ERROR_SUCCESS) state.SkipWithError("attach");
        size_t files = 0;
        std::vector<EntryInfo> folders;
        const WString root(1, u'\\'), all(1, u'*');
        volume->List(root, all, folders);
        for (const EntryInfo& folder : folders) {
            std::vector<EntryInfo> entries;
            const WString folderPath = root + folder.name;
            volume->List(folderPath, all, entries);
            for (const EntryInfo& entry : entries) {
                std::shared_ptr<File> file;
                WString path = folderPath;
                path.push_back(u'\\');
                path += entry.name;
                if (volume->Open(path, file) != ERROR_SUCCESS) continue;
                DWORD done = 0;
                file->Read(0, buffer.data(), static_cast<DWORD>(buffer.size()), done);
                benchmark::DoNotOptimize(done);
                ++files;
            }
        }
        volume->Detach();
        if (files != kFolders * kFilesPerFolder) state.SkipWithError("not every file was read");
    }
    state.SetItemsProcessed(state.iterations() * kFolders * kFilesPerFolder);
}
BENCHMARK(EngineReadsEveryFile)->Unit(benchmark::kMillisecond);

void NtfscatReadsASample(benchmark::State& state) {
    const std::string& image = FilesImage();
    const std::string tool = Tool("ntfscat");
    for (auto _ : state) {
        for (int i = 0; i < kNtfscatSample; ++i) {
            const std::string path = "/folder" + std::to_string(i % kFolders) + "/file" + std::to_string(i / kFolders) + ".dat";
            if (std::system((tool + " '" + image + "' " + path + " >/dev/null 2>&1").c_str()) != 0) {
                state.SkipWithError("ntfscat failed");
            }
        }
    }
    state.SetItemsProcessed(state.iterations() * kNtfscatSample);
}
BENCHMARK(NtfscatReadsASample)->Unit(benchmark::kMillisecond)->Iterations(1);

void AttachesAFourGibVolume(benchmark::State& state) {
    static const std::string image = [] {
        const std::string path = fs::temp_directory_path() / ("velmora-ntfs-4g-" + std::to_string(getpid()) + ".img");
        if (!MakeImage(path, 4ull << 30)) std::abort();
        return path;
    }();
    const bool readOnly = state.range(0) != 0;
    for (auto _ : state) {
        std::unique_ptr<Volume> volume;
        if (Volume::Attach(image, 0, 4ull << 30, readOnly, volume) != ERROR_SUCCESS) state.SkipWithError("attach");
        volume->Detach();
    }
}
BENCHMARK(AttachesAFourGibVolume)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(fs::temp_directory_path(), ignored)) {
        const std::string name = entry.path().filename();
        if (name.find("velmora-ntfs-bench-" + std::to_string(getpid())) == 0 ||
            name.find("velmora-ntfs-4g-" + std::to_string(getpid())) == 0) {
            fs::remove(entry.path(), ignored);
        }
    }
    return 0;
}
