// Disk images made at test time with Debian's own tools (fdisk, mkfs.fat, mkfs.exfat, mkntfs, mtools):
// sparse files with an MBR or GPT table and 512- or 4096-byte sectors, each partition formatted, and files
// put into FAT volumes by mtools, so that what our platform reads was written by someone else.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "host_fixture.h"

namespace testing_support {

inline int Run(const std::string& command) { return std::system(("(" + command + ") >/dev/null 2>&1").c_str()); }

// What a partition holds: "fat32", "fat16", "exfat", "ntfs" or "" (left unformatted).
struct PartitionSpec {
    std::string fileSystem;
    unsigned sizeMiB;
};

struct MadeDisk {
    DWORD sectorSize = 512;
    std::vector<ULONGLONG> offsets;  // byte offset of each partition on the disk
};

// A sparse image of totalMiB with a "dos" or "gpt" table holding the partitions one after the other from
// 1 MiB on; each is formatted as asked. Fails the test when a tool fails.
inline MadeDisk MakeDiskImage(const std::string& path, DWORD sectorSize, const std::string& label, unsigned totalMiB,
                              const std::vector<PartitionSpec>& partitions) {
    MadeDisk disk;
    disk.sectorSize = sectorSize;
    EXPECT_EQ(Run("rm -f '" + path + "' && truncate -s " + std::to_string(totalMiB) + "M '" + path + "'"), 0);
    const ULONGLONG perMiB = (1ULL << 20) / sectorSize;
    std::string script = label == "gpt" ? "g\n" : "o\n";
    ULONGLONG start = perMiB;
    for (size_t index = 0; index < partitions.size(); ++index) {
        script += label == "gpt" ? "n\n" : "n\np\n";
        script += std::to_string(index + 1) + "\n" + std::to_string(start) + "\n+" + std::to_string(partitions[index].sizeMiB) + "M\n";
        disk.offsets.push_back(start * sectorSize);
        start += partitions[index].sizeMiB * perMiB;
    }
    script += "w\n";
    EXPECT_EQ(Run("printf '" + script + "' | fdisk -b " + std::to_string(sectorSize) + " '" + path + "'"), 0);
    for (size_t index = 0; index < partitions.size(); ++index) {
        const std::string& type = partitions[index].fileSystem;
        const ULONGLONG firstSector = disk.offsets[index] / sectorSize;
        const std::string kib = std::to_string(partitions[index].sizeMiB * 1024);
        const std::string ss = std::to_string(sectorSize);
        if (type == "fat32" || type == "fat16") {
            EXPECT_EQ(Run("mkfs.fat -F " + type.substr(3) + " -S " + ss + " -s 1 -n VELMORA --offset=" + std::to_string(firstSector) +
                          " '" + path + "' " + kib),
                      0);
        } else if (type == "ntfs" || type == "exfat") {
            const std::string part = path + ".part";
            const std::string bytes = std::to_string(partitions[index].sizeMiB) + "M";
            const std::string make =
                type == "ntfs" ? "mkntfs -F -Q -q -s " + ss + " -p " + std::to_string(firstSector) + " -H 255 -S 63 '" + part + "'"
                               : "mkfs.exfat '" + part + "'";
            EXPECT_EQ(Run("rm -f '" + part + "' && truncate -s " + bytes + " '" + part + "' && " + make + " && dd if='" + part +
                          "' of='" + path + "' bs=1M seek=" + std::to_string(disk.offsets[index] >> 20) +
                          " conv=notrunc,sparse && rm -f '" + part + "'"),
                      0);
        }
    }
    return disk;
}

// Puts a host file into a FAT volume of an image, at a path such as "/dir/Name.txt", through mtools.
inline void CopyIntoFat(const std::string& image, ULONGLONG offset, const std::string& hostFile, const std::string& fatPath) {
    EXPECT_EQ(Run("MTOOLS_SKIP_CHECK=1 mcopy -o -i '" + image + "@@" + std::to_string(offset) + "' '" + hostFile + "' '::" +
                  fatPath + "'"),
              0)
        << fatPath;
}
inline void MakeFatFolder(const std::string& image, ULONGLONG offset, const std::string& fatPath) {
    EXPECT_EQ(Run("MTOOLS_SKIP_CHECK=1 mmd -i '" + image + "@@" + std::to_string(offset) + "' '::" + fatPath + "'"), 0) << fatPath;
}
inline void DeleteFromFat(const std::string& image, ULONGLONG offset, const std::string& fatPath) {
    EXPECT_EQ(Run("MTOOLS_SKIP_CHECK=1 mdel -i '" + image + "@@" + std::to_string(offset) + "' '::" + fatPath + "'"), 0) << fatPath;
}

// Bytes that differ from one position to the next, so that a run read from the wrong place shows.
inline std::string PatternBytes(size_t size, unsigned seed) {
    std::mt19937 generator(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(generator());
    return bytes;
}

inline std::string ReadImageBytes(const std::string& image, ULONGLONG offset, size_t size) {
    std::ifstream in(image, std::ios::binary);
    in.seekg(static_cast<std::streamoff>(offset));
    std::string bytes(size, '\0');
    in.read(bytes.data(), static_cast<std::streamsize>(size));
    bytes.resize(static_cast<size_t>(in.gcount()));
    return bytes;
}

inline void WriteImageBytes(const std::string& image, ULONGLONG offset, const std::string& bytes) {
    std::fstream out(image, std::ios::binary | std::ios::in | std::ios::out);
    out.seekp(static_cast<std::streamoff>(offset));
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// Attaches an image for the length of a scope, and plays an elevated process meanwhile, so that the
// tests see the same devices as root and as an unprivileged user.
class AttachedImage {
public:
    AttachedImage(const std::string& image, const std::string& letters, int diskNumber = -1, DWORD sectorSize = 0,
                  bool activateJournal = false) {
        vlx::DiskAttachOptions options;
        options.diskNumber = diskNumber;
        options.sectorSize = sectorSize;
        options.activateJournal = activateJournal;
        options.letters = WStrFromUtf8(letters);
        number_ = vlx::AttachDiskImage(image, options, &error_);
        vlx::SetProcessToken(vlx::TokenKind::Elevated);
    }
    ~AttachedImage() {
        vlx::SetProcessToken(vlx::TokenKind::AsProcessRuns);
        if (number_ >= 0) vlx::DetachDisk(number_);
    }
    AttachedImage(const AttachedImage&) = delete;
    AttachedImage& operator=(const AttachedImage&) = delete;
    int Number() const { return number_; }
    const std::string& Error() const { return error_; }
    void Detach() {
        if (number_ >= 0) vlx::DetachDisk(number_);
        number_ = -1;
    }

private:
    int number_ = -1;
    std::string error_;
};

}  // namespace testing_support
