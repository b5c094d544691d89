// velmora sectors, and the --disk option that attaches disk images for a run.
#include <cinttypes>
#include <cstdio>

#include "../platform/linux/host.h"
#include "command.h"

namespace cli {

AttachedDisks::~AttachedDisks() {
    for (int number : numbers_) vlx::DetachDisk(number);
}

bool AttachedDisks::TakeOptions(std::vector<std::string>& args) {
    for (size_t at = 0; at < args.size();) {
        if (args[at] != "--disk") {
            ++at;
            continue;
        }
        if (at + 1 >= args.size()) {
            std::fprintf(stderr, "velmora: --disk needs an image, as disk.img:EF\n");
            return false;
        }
        std::string image = args[at + 1];
        args.erase(args.begin() + static_cast<std::ptrdiff_t>(at), args.begin() + static_cast<std::ptrdiff_t>(at) + 2);
        vlx::DiskAttachOptions options;
        // The letters follow the last colon, when all that follows it are letters or '-'.
        const size_t colon = image.rfind(':');
        if (colon != std::string::npos && colon + 1 < image.size() &&
            image.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz-", colon + 1) == std::string::npos) {
            options.letters = WStrFromUtf8(image.substr(colon + 1));
            image.resize(colon);
        }
        std::string error;
        const int number = vlx::AttachDiskImage(image, options, &error);
        if (number < 0) {
            std::fprintf(stderr, "velmora: cannot attach '%s': %s\n", image.c_str(), error.c_str());
            return false;
        }
        numbers_.push_back(number);
    }
    return true;
}

namespace {

int RunSectors(const std::vector<std::string>& args);

const Command kSectors = {
    "sectors",
    "show where a file lies on its physical disk, as runs of absolute sectors",
    "sectors PATH\n"
    "  Prints each run (first sector and length), the first sector, the last sector holding file data and\n"
    "  the last sector of the last cluster. NTFS and FAT32 volumes of attached disk images (--disk), as\n"
    "  root. Exit 1 when the file cannot be measured.",
    RunSectors,
};

int RunSectors(const std::vector<std::string>& args) {
    if (args.size() != 1) return UsageError(kSectors, "one path is needed");
    std::vector<SectorExtent> runs;
    ULONGLONG first = 0, lastData = 0, last = 0;
    if (!GetFileSectorPos(LibraryPath(args[0]), &runs, &first, &lastData, &last))
        return Fail(kSectors, "cannot measure " + args[0] + " (not on an NTFS or FAT32 disk volume, or not root)");
    std::printf("runs: %zu\n", runs.size());
    for (const SectorExtent& run : runs)
        std::printf("  %" PRIu64 " +%" PRIu64 "\n", static_cast<uint64_t>(run.startSector), static_cast<uint64_t>(run.sectorCount));
    std::printf("first sector: %" PRIu64 "\n", static_cast<uint64_t>(first));
    if (!runs.empty()) std::printf("last data sector: %" PRIu64 "\n", static_cast<uint64_t>(lastData));
    std::printf("last sector: %" PRIu64 "\n", static_cast<uint64_t>(last));
    return kExitOk;
}

const CommandRegistration kRegistration(kSectors);

}  // namespace

}  // namespace cli
