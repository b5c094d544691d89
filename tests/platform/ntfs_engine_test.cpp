// The NTFS engine on real images made here with mkntfs: round trips with ntfs-3g's own tools in both
// directions, lookup and listing rules, hard links, compression, retrieval pointers checked against the
// image's bytes, and broken images failing cleanly.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "../../platform/linux/volumes/ntfs/ntfs_engine.h"

namespace {

namespace fs = std::filesystem;
using vlx::ntfs::EntryInfo;
using vlx::ntfs::Extent;
using vlx::ntfs::File;
using vlx::ntfs::Volume;

WString W(const std::string& utf8) { return WStrFromUtf8(utf8); }
std::string U(const WString& text) { return WStrToUtf8(text); }

// ntfs-3g's tools live in sbin, which an unprivileged user's PATH often lacks.
std::string Tool(const std::string& name) {
    for (const char* folder : {"/usr/sbin/", "/sbin/", "/usr/bin/", "/bin/"}) {
        if (access((folder + name).c_str(), X_OK) == 0) return folder + name;
    }
    return name;
}

std::string Quote(const std::string& text) {
    std::string quoted = "'";
    for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

// Runs a command and returns its standard output; the exit status goes to status.
std::string Shell(const std::string& command, int* status = nullptr) {
    std::string output;
    FILE* pipe = popen((command + " 2>/dev/null").c_str(), "r");
    if (!pipe) return output;
    std::array<char, 4096> buffer{};
    size_t got;
    while ((got = fread(buffer.data(), 1, buffer.size(), pipe)) > 0) output.append(buffer.data(), got);
    const int result = pclose(pipe);
    if (status) *status = result;
    return output;
}

std::string Pattern(size_t size, unsigned seed) {
    std::string data(size, '\0');
    unsigned value = seed * 2654435761u + 1;
    for (char& c : data) {
        value = value * 1103515245u + 12345u;
        c = static_cast<char>(value >> 16);
    }
    return data;
}

class NtfsEngine : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/velmora-ntfs-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        root_ = pattern;
        image_ = root_ + "/volume.img";
    }
    void TearDown() override {
        volume_.reset();
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }

    // A fresh file system of size bytes with the given cluster size, quick-formatted.
    void Format(const std::string& path, size_t size = 8 << 20, int cluster = 4096) {
        { std::ofstream(path, std::ios::binary); }
        fs::resize_file(path, size);
        int status = -1;
        Shell(Tool("mkntfs") + " -F -f -q -L Velmora -c " + std::to_string(cluster) + " " + Quote(path), &status);
        ASSERT_EQ(status, 0) << "mkntfs failed";
    }
    void Attach(bool readOnly = false, ULONGLONG offset = 0) {
        volume_.reset();
        ASSERT_EQ(Volume::Attach(image_, offset, fs::file_size(image_) - offset, readOnly, volume_), ERROR_SUCCESS);
    }
    void Detach() {
        ASSERT_EQ(volume_->Detach(), ERROR_SUCCESS);
        volume_.reset();
    }
    void Put(const std::string& path, const std::string& data) {
        std::shared_ptr<File> file;
        ASSERT_EQ(volume_->CreateFile(W(path), 0, file), ERROR_SUCCESS) << path;
        DWORD done = 0;
        ASSERT_EQ(file->Write(0, data.data(), static_cast<DWORD>(data.size()), done), ERROR_SUCCESS);
        ASSERT_EQ(done, data.size());
    }
    std::string Get(const std::string& path) {
        std::shared_ptr<File> file;
        if (volume_->Open(W(path), file) != ERROR_SUCCESS) return "<missing>";
        EntryInfo info;
        file->Info(info);
        std::string data(info.size, '\0');
        DWORD done = 0;
        EXPECT_EQ(file->Read(0, data.data(), static_cast<DWORD>(data.size()), done), ERROR_SUCCESS);
        data.resize(done);
        return data;
    }
    std::vector<std::string> Names(const std::string& folder, const std::string& pattern = "*") {
        std::vector<EntryInfo> entries;
        volume_->List(W(folder), W(pattern), entries);
        std::vector<std::string> names;
        for (const EntryInfo& entry : entries) names.push_back(U(entry.name));
        return names;
    }
    std::string ImageBytes(ULONGLONG offset, size_t count) {
        std::ifstream in(image_, std::ios::binary);
        in.seekg(static_cast<std::streamoff>(offset));
        std::string data(count, '\0');
        in.read(data.data(), static_cast<std::streamsize>(count));
        return data;
    }
    // The file's bytes read straight from the image through its runs; holes read as zeros.
    std::string BytesThroughRuns(const std::string& path, size_t size, size_t* runs = nullptr) {
        std::shared_ptr<File> file;
        EXPECT_EQ(volume_->Open(W(path), file), ERROR_SUCCESS);
        LONGLONG first = 0;
        std::vector<Extent> extents;
        EXPECT_EQ(file->Extents(0, first, extents), ERROR_SUCCESS);
        vlx::ntfs::VolumeFacts facts;
        volume_->Facts(facts);
        std::string data;
        LONGLONG vcn = first;
        for (const Extent& extent : extents) {
            const size_t bytes = static_cast<size_t>(extent.nextVcn - vcn) * facts.bytesPerCluster;
            data += extent.lcn < 0 ? std::string(bytes, '\0') : ImageBytes(static_cast<ULONGLONG>(extent.lcn) * facts.bytesPerCluster, bytes);
            vcn = extent.nextVcn;
        }
        if (runs) *runs = extents.size();
        data.resize(std::min(data.size(), size));
        return data;
    }

    std::string root_, image_;
    std::unique_ptr<Volume> volume_;
};

TEST_F(NtfsEngine, ChangesSurviveDetachAndAreWhatNtfs3gToolsRead) {
    Format(image_);
    Attach();
    const std::string japanese = "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E";  // 日本語
    ASSERT_EQ(volume_->CreateFolder(W("\\Docs")), ERROR_SUCCESS);
    ASSERT_EQ(volume_->CreateFolder(W("\\Docs\\" + japanese)), ERROR_SUCCESS);
    const std::string big = Pattern(300000, 1);
    Put("\\Docs\\" + japanese + "\\Big.bin", big);
    Put("\\small.txt", "hello");
    Detach();

    EXPECT_TRUE(Shell(Tool("ntfscat") + " " + Quote(image_) + " " + Quote("/Docs/" + japanese + "/Big.bin")) == big);
    EXPECT_EQ(Shell(Tool("ntfscat") + " " + Quote(image_) + " /small.txt"), "hello");
    EXPECT_NE(Shell(Tool("ntfsls") + " " + Quote(image_) + " -p /Docs").find(japanese), std::string::npos);

    Attach();
    EXPECT_TRUE(Get("\\docs\\" + japanese + "\\BIG.BIN") == big);
}

TEST_F(NtfsEngine, FilesPutInByNtfscpAreFoundWithoutRegardToCaseUnderTheirOwnCase) {
    Format(image_);
    const std::string source = root_ + "/source.dat";
    const std::string data = Pattern(70000, 2);
    std::ofstream(source, std::ios::binary) << data;
    int status = -1;
    Shell(Tool("ntfscp") + " -f " + Quote(image_) + " " + Quote(source) + " Report.DAT", &status);
    ASSERT_EQ(status, 0);

    Attach(true);
    EntryInfo info;
    ASSERT_EQ(volume_->Query(W("\\REPORT.dat"), info), ERROR_SUCCESS);
    EXPECT_EQ(U(info.name), "Report.DAT");
    EXPECT_EQ(info.size, data.size());
    EXPECT_EQ(info.attributes & FILE_ATTRIBUTE_DIRECTORY, 0u);
    EXPECT_EQ(info.links, 1u);
    EXPECT_TRUE(Get("\\report.DAT") == data);
    // A read-only attachment refuses every change.
    std::shared_ptr<File> file;
    EXPECT_EQ(volume_->CreateFile(W("\\new.txt"), 0, file), ERROR_WRITE_PROTECT);
    EXPECT_EQ(volume_->DeleteFile(W("\\Report.DAT")), ERROR_WRITE_PROTECT);
}

TEST_F(NtfsEngine, ListingsFollowNameOrderAndLeaveOutTheFileSystemsOwnFiles) {
    Format(image_);
    Attach();
    for (const char* name : {"b.txt", "A.txt", "_x", "a.TXT2", "Z", "\xC3\xA9t\xC3\xA9", "10", "9"}) Put(std::string("\\") + name, "x");
    ASSERT_EQ(volume_->CreateFolder(W("\\Sub")), ERROR_SUCCESS);
    // Order by upper-cased units: digits, letters, '_' (0x5F) after 'Z', then non-ASCII.
    EXPECT_EQ(Names("\\"), (std::vector<std::string>{"10", "9", "A.txt", "a.TXT2", "b.txt", "Sub", "Z", "_x",
                                                     "\xC3\xA9t\xC3\xA9"}));
    EXPECT_EQ(Names("\\", "*.txt"), (std::vector<std::string>{"A.txt", "b.txt"}));
    std::vector<EntryInfo> entries;
    EXPECT_EQ(volume_->List(W("\\"), W("*.none"), entries), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(volume_->List(W("\\Sub"), W("*"), entries), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(volume_->List(W("\\b.txt"), W("*"), entries), static_cast<DWORD>(ERROR_DIRECTORY));
}

TEST_F(NtfsEngine, CallsFailWithTheCodesWindowsGives) {
    Format(image_);
    Attach();
    ASSERT_EQ(volume_->CreateFolder(W("\\Full")), ERROR_SUCCESS);
    Put("\\Full\\f.txt", "f");
    std::shared_ptr<File> file;
    EntryInfo info;
    struct Case {
        const char* what;
        DWORD result, expected;
    } cases[] = {
        {"missing file", volume_->Query(W("\\nope.txt"), info), ERROR_FILE_NOT_FOUND},
        {"missing folder on the way", volume_->Query(W("\\nope\\x.txt"), info), ERROR_PATH_NOT_FOUND},
        {"file used as a folder", volume_->Query(W("\\Full\\f.txt\\x"), info), ERROR_PATH_NOT_FOUND},
        {"file made twice", volume_->CreateFile(W("\\FULL\\F.TXT"), 0, file), ERROR_FILE_EXISTS},
        {"folder made twice", volume_->CreateFolder(W("\\full")), ERROR_ALREADY_EXISTS},
        {"bad character", volume_->CreateFile(W("\\a?b"), 0, file), ERROR_INVALID_NAME},
        {"name too long", volume_->CreateFile(W("\\" + std::string(256, 'n')), 0, file), ERROR_FILENAME_EXCED_RANGE},
        {"folder not empty", volume_->RemoveFolder(W("\\Full")), ERROR_DIR_NOT_EMPTY},
        {"folder deleted as a file", volume_->DeleteFile(W("\\Full")), ERROR_ACCESS_DENIED},
        {"file removed as a folder", volume_->RemoveFolder(W("\\Full\\f.txt")), ERROR_DIRECTORY},
        {"move onto an existing name", volume_->Move(W("\\Full\\f.txt"), W("\\Full"), false), ERROR_ALREADY_EXISTS},
        {"folder below itself", volume_->Move(W("\\Full"), W("\\Full\\Inner"), false), ERROR_SHARING_VIOLATION},
    };
    for (const Case& c : cases) EXPECT_EQ(c.result, c.expected) << c.what;

    // An open file keeps its name; read-only files are not deleted.
    ASSERT_EQ(volume_->Open(W("\\full\\f.txt"), file), ERROR_SUCCESS);
    EXPECT_EQ(volume_->DeleteFile(W("\\Full\\f.txt")), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    EXPECT_EQ(file->SetAttributes(FILE_ATTRIBUTE_READONLY), ERROR_SUCCESS);
    file.reset();
    EXPECT_EQ(volume_->DeleteFile(W("\\Full\\f.txt")), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

TEST_F(NtfsEngine, MovesRenameFilesAndFoldersAndReplaceOnlyWhenAsked) {
    Format(image_);
    Attach();
    ASSERT_EQ(volume_->CreateFolder(W("\\Old")), ERROR_SUCCESS);
    Put("\\Old\\a.txt", "a");
    Put("\\b.txt", "b");
    ASSERT_EQ(volume_->Move(W("\\old"), W("\\New"), false), ERROR_SUCCESS);
    EXPECT_EQ(Get("\\New\\A.TXT"), "a");
    ASSERT_EQ(volume_->Move(W("\\New\\a.txt"), W("\\b.txt"), true), ERROR_SUCCESS);
    EXPECT_EQ(Get("\\b.txt"), "a");
    ASSERT_EQ(volume_->Move(W("\\b.txt"), W("\\B.TXT"), false), ERROR_SUCCESS);  // a change of case only
    EXPECT_EQ(Names("\\"), (std::vector<std::string>{"B.TXT", "New"}));
    Detach();
    EXPECT_EQ(Shell(Tool("ntfscat") + " " + Quote(image_) + " /B.TXT"), "a");
}

TEST_F(NtfsEngine, HardLinksShareOneRecordAndEveryNameIsReported) {
    Format(image_);
    Attach();
    ASSERT_EQ(volume_->CreateFolder(W("\\d")), ERROR_SUCCESS);
    Put("\\first.txt", "shared");
    ASSERT_EQ(volume_->CreateHardLink(W("\\d\\second.txt"), W("\\FIRST.txt")), ERROR_SUCCESS);
    ASSERT_EQ(volume_->CreateHardLink(W("\\third.txt"), W("\\d\\second.txt")), ERROR_SUCCESS);
    EXPECT_EQ(volume_->CreateHardLink(W("\\third.txt"), W("\\first.txt")), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    EXPECT_EQ(volume_->CreateHardLink(W("\\dlink"), W("\\d")), static_cast<DWORD>(ERROR_ACCESS_DENIED));

    std::shared_ptr<File> file;
    ASSERT_EQ(volume_->Open(W("\\third.txt"), file), ERROR_SUCCESS);
    std::vector<WString> paths;
    ASSERT_EQ(file->LinkNames(paths), ERROR_SUCCESS);
    std::set<std::string> names;
    for (const WString& path : paths) names.insert(U(path));
    EXPECT_EQ(names, (std::set<std::string>{"\\first.txt", "\\d\\second.txt", "\\third.txt"}));
    EntryInfo viaLink, viaFirst;
    file->Info(viaLink);
    file.reset();
    ASSERT_EQ(volume_->Query(W("\\first.txt"), viaFirst), ERROR_SUCCESS);
    EXPECT_EQ(viaLink.fileReference, viaFirst.fileReference);
    EXPECT_EQ(viaFirst.links, 3u);

    ASSERT_EQ(volume_->DeleteFile(W("\\first.txt")), ERROR_SUCCESS);
    EXPECT_EQ(Get("\\d\\second.txt"), "shared");
    Detach();
    EXPECT_EQ(Shell(Tool("ntfscat") + " " + Quote(image_) + " /third.txt"), "shared");
}

TEST_F(NtfsEngine, FileReferencesOpenTheirRecordOnlyWhileTheSequenceMatches) {
    Format(image_);
    Attach();
    ASSERT_EQ(volume_->CreateFolder(W("\\a")), ERROR_SUCCESS);
    Put("\\a\\gone.txt", "x");
    EntryInfo info;
    ASSERT_EQ(volume_->Query(W("\\a\\gone.txt"), info), ERROR_SUCCESS);
    WString path;
    ASSERT_EQ(volume_->PathOfReference(info.fileReference, path), ERROR_SUCCESS);
    EXPECT_EQ(U(path), "\\a\\gone.txt");
    ASSERT_EQ(volume_->PathOfReference(5, path), ERROR_SUCCESS);
    EXPECT_EQ(U(path), "\\");

    std::vector<std::string> seen;
    ASSERT_EQ(volume_->EnumerateRecords(0, [&](const vlx::ntfs::MftRecord& record) {
        if (record.fileReference == info.fileReference) {
            EXPECT_EQ(record.names.size(), 1u);
            seen.push_back(U(record.names[0].name));
        }
        return true;
    }), ERROR_SUCCESS);
    EXPECT_EQ(seen, std::vector<std::string>{"gone.txt"});

    // The record is reused with a new sequence number: the old reference is stale.
    ASSERT_EQ(volume_->DeleteFile(W("\\a\\gone.txt")), ERROR_SUCCESS);
    Put("\\a\\new.txt", "y");
    std::shared_ptr<File> file;
    EXPECT_EQ(volume_->OpenByReference(info.fileReference, file), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EntryInfo fresh;
    ASSERT_EQ(volume_->Query(W("\\a\\new.txt"), fresh), ERROR_SUCCESS);
    ASSERT_EQ(volume_->OpenByReference(fresh.fileReference, file), ERROR_SUCCESS);
    EXPECT_EQ(file->IsFolder(), false);
}

TEST_F(NtfsEngine, RetrievalPointersMapTheFilesBytesInTheImage) {
    Format(image_, 16 << 20, 4096);
    Attach();
    // One cluster of data every 16 clusters: more runs than one call of the library's walk takes.
    constexpr size_t kStride = 16 * 4096, kPieces = 80;
    std::string scattered(kStride * (kPieces - 1) + 4096, '\0');
    std::shared_ptr<File> pieces;
    ASSERT_EQ(volume_->CreateFile(W("\\scattered"), 0, pieces), ERROR_SUCCESS);
    for (size_t i = 0; i < kPieces; ++i) {
        const std::string piece = Pattern(4096, static_cast<unsigned>(i));
        scattered.replace(i * kStride, piece.size(), piece);
        DWORD done = 0;
        ASSERT_EQ(pieces->Write(i * kStride, piece.data(), 4096, done), ERROR_SUCCESS);
    }
    pieces.reset();
    const std::string large = Pattern(3 << 20, 5);
    Put("\\large.bin", large);
    Put("\\tiny.txt", "resident");
    Detach();
    Attach(true);

    size_t runs = 0;
    EXPECT_TRUE(BytesThroughRuns("\\scattered", scattered.size(), &runs) == scattered);
    EXPECT_GT(runs, 128u);
    EXPECT_TRUE(BytesThroughRuns("\\large.bin", large.size()) == large);

    std::shared_ptr<File> file;
    std::array<BYTE, 1040> buffer{};
    DWORD returned = 0;
    ASSERT_EQ(volume_->Open(W("\\tiny.txt"), file), ERROR_SUCCESS);
    EXPECT_EQ(file->RetrievalPointers(0, buffer.data(), buffer.size(), returned), static_cast<DWORD>(ERROR_HANDLE_EOF));

    // A buffer of 64 runs holds the first 64 and says there are more; the next call starts where it ended.
    ASSERT_EQ(volume_->Open(W("\\scattered"), file), ERROR_SUCCESS);
    ASSERT_EQ(file->RetrievalPointers(0, buffer.data(), buffer.size(), returned), static_cast<DWORD>(ERROR_MORE_DATA));
    DWORD count = 0;
    LONGLONG startingVcn = -1, lastNext = 0;
    std::memcpy(&count, buffer.data(), sizeof(count));
    std::memcpy(&startingVcn, buffer.data() + 8, sizeof(startingVcn));
    std::memcpy(&lastNext, buffer.data() + 16 + 63 * 16, sizeof(lastNext));
    EXPECT_EQ(count, 64u);
    EXPECT_EQ(startingVcn, 0);
    EXPECT_EQ(returned, 16u + 64u * 16u);
    ASSERT_EQ(file->RetrievalPointers(lastNext, buffer.data(), buffer.size(), returned), static_cast<DWORD>(ERROR_MORE_DATA));
    std::memcpy(&startingVcn, buffer.data() + 8, sizeof(startingVcn));
    EXPECT_EQ(startingVcn, lastNext);
    // A start inside a run is moved back to the run's first cluster (here the hole after the first piece).
    ASSERT_EQ(file->RetrievalPointers(3, buffer.data(), buffer.size(), returned), static_cast<DWORD>(ERROR_MORE_DATA));
    std::memcpy(&startingVcn, buffer.data() + 8, sizeof(startingVcn));
    EXPECT_EQ(startingVcn, 1);
    EXPECT_EQ(file->RetrievalPointers(1 << 20, buffer.data(), buffer.size(), returned), static_cast<DWORD>(ERROR_HANDLE_EOF));
    EXPECT_EQ(file->RetrievalPointers(0, buffer.data(), 16, returned), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
}

TEST_F(NtfsEngine, HolesAreRunsWithoutClusters) {
    Format(image_);
    Attach();
    const std::string tail = Pattern(8192, 6);
    std::shared_ptr<File> file;
    ASSERT_EQ(volume_->CreateFile(W("\\sparse.bin"), 0, file), ERROR_SUCCESS);
    DWORD done = 0;
    ASSERT_EQ(file->Write(0, tail.data(), 4096, done), ERROR_SUCCESS);
    ASSERT_EQ(file->Write(1 << 20, tail.data(), static_cast<DWORD>(tail.size()), done), ERROR_SUCCESS);
    LONGLONG first = 0;
    std::vector<Extent> extents;
    ASSERT_EQ(file->Extents(0, first, extents), ERROR_SUCCESS);
    ASSERT_GE(extents.size(), 3u);
    EXPECT_GE(extents[0].lcn, 0);
    EXPECT_EQ(extents[1].lcn, -1);
    EXPECT_GE(extents.back().lcn, 0);
    EntryInfo info;
    file->Info(info);
    EXPECT_EQ(info.size, (1u << 20) + tail.size());
    file.reset();
    const std::string expected = tail.substr(0, 4096) + std::string((1 << 20) - 4096, '\0') + tail;
    EXPECT_TRUE(BytesThroughRuns("\\sparse.bin", expected.size()) == expected);
}

TEST_F(NtfsEngine, VolumeFactsAgreeWithTheBootSector) {
    Format(image_, 8 << 20, 2048);
    Attach();
    vlx::ntfs::VolumeFacts facts;
    ASSERT_EQ(volume_->Facts(facts), ERROR_SUCCESS);
    ULONGLONG serial = 0;
    const std::string boot = ImageBytes(0, 512);
    std::memcpy(&serial, boot.data() + 0x48, sizeof(serial));
    EXPECT_EQ(facts.serialNumber, serial);
    EXPECT_EQ(facts.bytesPerSector, 512u);
    EXPECT_EQ(facts.bytesPerCluster, 2048u);
    EXPECT_EQ(facts.totalClusters, (8 << 20) / 2048 - 1);  // the backup boot sector's cluster is not counted
    EXPECT_GT(facts.freeClusters, 0);
    EXPECT_LT(facts.freeClusters, facts.totalClusters);
    EXPECT_EQ(facts.bytesPerFileRecordSegment, 1024u);
    EXPECT_EQ(U(facts.label), "Velmora");
    // $MFT's first record lies where the facts say, with its signature.
    EXPECT_EQ(ImageBytes(static_cast<ULONGLONG>(facts.mftStartLcn) * facts.bytesPerCluster, 4), "FILE");
}

TEST_F(NtfsEngine, AVolumeInsideALargerImageIsReachedAtItsOffset) {
    const std::string inner = root_ + "/inner.img";
    Format(inner, 4 << 20);
    {
        std::ofstream out(image_, std::ios::binary);
        out << std::string(1 << 20, '\x5A');
        std::ifstream in(inner, std::ios::binary);
        out << in.rdbuf();
        out << std::string(1 << 20, '\x5A');
    }
    volume_.reset();
    ASSERT_EQ(Volume::Attach(image_, 1 << 20, 4 << 20, false, volume_), ERROR_SUCCESS);
    Put("\\at-offset.txt", "offset");
    Detach();
    // The bytes around the partition are untouched, and the partition alone is a volume ntfs-3g reads.
    EXPECT_EQ(ImageBytes(0, 1 << 20), std::string(1 << 20, '\x5A'));
    EXPECT_EQ(ImageBytes(5 << 20, 1 << 20), std::string(1 << 20, '\x5A'));
    std::ofstream(inner, std::ios::binary) << ImageBytes(1 << 20, 4 << 20);
    EXPECT_EQ(Shell(Tool("ntfscat") + " " + Quote(inner) + " /at-offset.txt"), "offset");
}

TEST_F(NtfsEngine, BrokenImagesFailToAttachCleanly) {
    Format(image_);
    const std::string good = ImageBytes(0, 8 << 20);
    struct Broken {
        const char* what;
        std::string bytes;
    } broken[] = {
        {"empty", ""},
        {"zeroed boot sector", std::string(512, '\0') + good.substr(512)},
        {"truncated to the boot sector", good.substr(0, 4096)},
        {"truncated half way", good.substr(0, good.size() / 2)},
        {"noise", Pattern(1 << 20, 7)},
    };
    for (const Broken& b : broken) {
        const std::string path = root_ + "/broken.img";
        std::ofstream(path, std::ios::binary | std::ios::trunc) << b.bytes;
        std::unique_ptr<Volume> volume;
        // The length claimed is the whole file system's, as a partition table would say.
        const DWORD result = Volume::Attach(path, 0, 8 << 20, false, volume);
        EXPECT_NE(result, static_cast<DWORD>(ERROR_SUCCESS)) << b.what;
        EXPECT_EQ(volume, nullptr) << b.what;
    }
    std::unique_ptr<Volume> volume;
    EXPECT_EQ(Volume::Attach(root_ + "/absent.img", 0, 1 << 20, true, volume), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

}  // namespace
