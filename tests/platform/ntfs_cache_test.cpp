// The NTFS engine's caches stay true to the image: the block cache in front of the image against a byte
// array it mirrors (block edges, short tails, eviction, failures), and on real images made with mkntfs:
// bytes written read back the same through every way in, shadow copies keep what was there before, a
// record deleted and reused answers with its new name, and a folder held open while a file in it changes
// keeps one object of its record.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "../../platform/linux/volumes/ntfs/ntfs_block_cache.h"
#include "../../platform/linux/volumes/ntfs/ntfs_engine.h"
#include "../../platform/linux/volumes/shadow_copy.h"
#include "../support/disk_images.h"

namespace {

namespace fs = std::filesystem;
using testing_support::PatternBytes;
using vlx::ntfs::BlockCache;
using vlx::ntfs::EntryInfo;
using vlx::ntfs::File;
using vlx::ntfs::Volume;

constexpr size_t kBlock = BlockCache::kBlockBytes;

// A byte array standing for the image, counting the reads that reach it.
struct Backing {
    std::string bytes;
    int reads = 0;
    bool failing = false;
    BlockCache::Backing Reader() {
        return [this](ULONGLONG offset, void* buffer, size_t count) -> long long {
            ++reads;
            if (failing) {
                errno = EIO;
                return -1;
            }
            if (offset >= bytes.size()) return 0;
            const size_t take = std::min<size_t>(count, bytes.size() - offset);
            std::memcpy(buffer, bytes.data() + offset, take);
            return static_cast<long long>(take);
        };
    }
};

std::string ReadThrough(BlockCache& cache, Backing& backing, ULONGLONG offset, size_t count) {
    std::string out(count, '\0');
    const long long got = cache.Read(offset, out.data(), count, backing.Reader());
    out.resize(got < 0 ? 0 : static_cast<size_t>(got));
    return out;
}

TEST(NtfsBlockCache, ReadsAcrossBlockEdgesAndAtTheShortTailGiveTheBackingsBytes) {
    Backing backing{PatternBytes(3 * kBlock + 1000, 7)};
    BlockCache cache(8);
    struct Case {
        ULONGLONG offset;
        size_t count;
    };
    for (const Case& read : {Case{0, 512}, Case{kBlock - 100, 300}, Case{2 * kBlock - 1, 2}, Case{3 * kBlock + 900, 512},
                             Case{3 * kBlock + 1000, 16}, Case{kBlock / 2, kBlock + 10}}) {
        const size_t expected = read.offset >= backing.bytes.size() ? 0 : std::min(read.count, backing.bytes.size() - read.offset);
        EXPECT_EQ(ReadThrough(cache, backing, read.offset, read.count), backing.bytes.substr(read.offset, expected))
            << read.offset << "+" << read.count;
    }
    // Small reads inside blocks already held cost nothing more.
    const int before = backing.reads;
    EXPECT_EQ(ReadThrough(cache, backing, kBlock + 5, 100), backing.bytes.substr(kBlock + 5, 100));
    EXPECT_EQ(backing.reads, before);
}

TEST(NtfsBlockCache, WritesReachHeldBlocksAndFailedWritesDropThem) {
    Backing backing{PatternBytes(4 * kBlock, 11)};
    BlockCache cache(8);
    ReadThrough(cache, backing, 0, 16);
    ReadThrough(cache, backing, kBlock, 16);
    // A write across the edge of two held blocks, made to the backing as the engine makes it.
    const std::string written = PatternBytes(600, 12);
    backing.bytes.replace(kBlock - 300, written.size(), written);
    cache.Wrote(kBlock - 300, written.data(), written.size());
    const int before = backing.reads;
    EXPECT_EQ(ReadThrough(cache, backing, kBlock - 400, 800), backing.bytes.substr(kBlock - 400, 800));
    EXPECT_EQ(backing.reads, before);
    // A write that may have landed in part leaves nothing of its range cached.
    backing.bytes.replace(10, 4, "ABCD");
    cache.Forget(8, 8);
    EXPECT_EQ(ReadThrough(cache, backing, 0, 32), backing.bytes.substr(0, 32));
    EXPECT_EQ(backing.reads, before + 1);
}

TEST(NtfsBlockCache, TheLeastRecentlyUsedBlockGoesAndFailuresAreReported) {
    Backing backing{PatternBytes(8 * kBlock, 3)};
    BlockCache cache(2);
    ReadThrough(cache, backing, 0, 1);
    ReadThrough(cache, backing, kBlock, 1);
    ReadThrough(cache, backing, 0, 1);          // block 0 used last
    ReadThrough(cache, backing, 2 * kBlock, 1);  // pushes out block 1
    EXPECT_EQ(cache.CachedBlocks(), 2u);
    const int before = backing.reads;
    ReadThrough(cache, backing, 0, 1);
    EXPECT_EQ(backing.reads, before);
    ReadThrough(cache, backing, kBlock, 1);
    EXPECT_EQ(backing.reads, before + 1);

    backing.failing = true;
    char buffer[16];
    errno = 0;
    EXPECT_EQ(cache.Read(5 * kBlock, buffer, sizeof buffer, backing.Reader()), -1);
    EXPECT_EQ(errno, EIO);
    // What was read before a failure in a later block is handed back.
    std::string out(kBlock / 2, '\0');
    EXPECT_EQ(cache.Read(kBlock + kBlock / 2 + 8, out.data(), out.size(), backing.Reader()), static_cast<long long>(kBlock / 2 - 8));
}

class NtfsCaches : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/velmora-ntfs-cache-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        root_ = pattern;
        image_ = root_ + "/volume.img";
        { std::ofstream(image_, std::ios::binary); }
        fs::resize_file(image_, 16 << 20);
        ASSERT_EQ(testing_support::Run("mkntfs -F -f -q -c 4096 '" + image_ + "' || /usr/sbin/mkntfs -F -f -q -c 4096 '" + image_ + "'"), 0);
        Attach();
    }
    void TearDown() override {
        volume_.reset();
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }
    void Attach(bool readOnly = false) {
        volume_.reset();
        ASSERT_EQ(Volume::Attach(image_, 0, fs::file_size(image_), readOnly, volume_), ERROR_SUCCESS);
    }
    std::shared_ptr<File> Create(const std::string& path, const std::string& data) {
        std::shared_ptr<File> file;
        EXPECT_EQ(volume_->CreateFile(WStrFromUtf8(path), 0, file), ERROR_SUCCESS) << path;
        if (!file) return file;
        DWORD done = 0;
        EXPECT_EQ(file->Write(0, data.data(), static_cast<DWORD>(data.size()), done), ERROR_SUCCESS);
        return file;
    }
    static std::string ReadAll(File& file, ULONGLONG offset = 0, size_t count = 0) {
        EntryInfo info;
        file.Info(info);
        if (count == 0) count = static_cast<size_t>(info.size - offset);
        std::string data(count, '\0');
        DWORD done = 0;
        EXPECT_EQ(file.Read(offset, data.data(), static_cast<DWORD>(count), done), ERROR_SUCCESS);
        data.resize(done);
        return data;
    }
    std::string ReadPath(const std::string& path) {
        std::shared_ptr<File> file;
        if (volume_->Open(WStrFromUtf8(path), file) != ERROR_SUCCESS) return "<missing>";
        return ReadAll(*file);
    }
    std::string root_, image_;
    std::unique_ptr<Volume> volume_;
};

TEST_F(NtfsCaches, BytesWrittenReadBackTheSameThroughEveryWayIn) {
    // Larger than a cache block, so that small reads and writes fall on both sides of its edges.
    const std::string first = PatternBytes(3 * kBlock + 777, 1);
    std::shared_ptr<File> writer = Create("\\data.bin", first);
    ASSERT_TRUE(writer);
    EXPECT_EQ(ReadAll(*writer), first);  // every block of the file now cached

    // Small overwrites across block edges of the file, read back through the same handle and another.
    std::string expected = first;
    for (const ULONGLONG at : {kBlock - 3, 2 * kBlock - 700, 3 * kBlock + 1}) {
        const std::string patch = PatternBytes(1024, static_cast<unsigned>(at));
        DWORD done = 0;
        ASSERT_EQ(writer->Write(at, patch.data(), static_cast<DWORD>(patch.size()), done), ERROR_SUCCESS);
        expected.replace(at, patch.size(), patch);
        EXPECT_EQ(ReadAll(*writer, at - 10, 1044), expected.substr(at - 10, 1044));
    }
    std::shared_ptr<File> reader;
    ASSERT_EQ(volume_->Open(u"\\DATA.BIN", reader), ERROR_SUCCESS);
    EXPECT_EQ(ReadAll(*reader), expected);
    // A file that grows and one that is cut read back whole.
    Create("\\small.txt", "tiny");
    std::shared_ptr<File> small;
    ASSERT_EQ(volume_->Open(u"\\small.txt", small), ERROR_SUCCESS);
    const std::string grown = PatternBytes(kBlock + 5, 9);
    DWORD done = 0;
    ASSERT_EQ(small->Write(0, grown.data(), static_cast<DWORD>(grown.size()), done), ERROR_SUCCESS);
    ASSERT_EQ(writer->SetSize(kBlock + 1), ERROR_SUCCESS);
    expected.resize(kBlock + 1);
    writer.reset();
    reader.reset();
    small.reset();

    ASSERT_EQ(volume_->Detach(), ERROR_SUCCESS);
    Attach(true);
    EXPECT_EQ(ReadPath("\\data.bin"), expected);
    EXPECT_EQ(ReadPath("\\small.txt"), grown);
}

TEST_F(NtfsCaches, AShadowCopyReadsWhatWasThereBeforeTheLiveVolumeWroteOverIt) {
    const std::string before = PatternBytes(2 * kBlock + 300, 21);
    Create("\\kept.bin", before);
    ASSERT_EQ(ReadPath("\\kept.bin"), before);  // the live cache holds the old bytes too

    ASSERT_EQ(volume_->Sync(), ERROR_SUCCESS);
    const int fd = open(image_.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    auto store = std::make_shared<vlx::ShadowStore>(std::make_shared<vlx::ImageFile>(fd), 0, fs::file_size(image_));
    ASSERT_TRUE(store->Ready());
    volume_->AddWriteObserver(store);
    std::unique_ptr<Volume> copy;
    ASSERT_EQ(Volume::AttachSource(store, copy), ERROR_SUCCESS);
    auto readCopy = [&](const char16_t* path) {
        std::shared_ptr<File> file;
        return copy->Open(path, file) == ERROR_SUCCESS ? ReadAll(*file) : std::string("<missing>");
    };
    EXPECT_EQ(readCopy(u"\\kept.bin"), before);  // cached in the copy's engine from here on

    std::shared_ptr<File> live;
    ASSERT_EQ(volume_->Open(u"\\kept.bin", live), ERROR_SUCCESS);
    const std::string after = PatternBytes(2 * kBlock + 300, 22);
    DWORD done = 0;
    ASSERT_EQ(live->Write(0, after.data(), static_cast<DWORD>(after.size()), done), ERROR_SUCCESS);
    live.reset();
    Create("\\new.txt", "written after the copy");
    ASSERT_EQ(volume_->Sync(), ERROR_SUCCESS);

    EXPECT_EQ(ReadPath("\\kept.bin"), after);
    EXPECT_EQ(readCopy(u"\\kept.bin"), before);
    EXPECT_EQ(readCopy(u"\\new.txt"), "<missing>");
    EXPECT_GT(store->SavedBytes(), 0u);
    copy.reset();
    store->Release();
}

TEST_F(NtfsCaches, NameQueriesFollowMovedFoldersAndRecordsDeletedAndReused) {
    ASSERT_EQ(volume_->CreateFolder(u"\\first"), ERROR_SUCCESS);
    ASSERT_EQ(volume_->CreateFolder(u"\\first\\inner"), ERROR_SUCCESS);
    std::shared_ptr<File> file = Create("\\first\\inner\\old.txt", "old");
    EntryInfo old;
    file->Info(old);
    file.reset();
    WString path;
    ASSERT_EQ(volume_->PathOfReference(old.fileReference, path), ERROR_SUCCESS);
    EXPECT_EQ(WStrToUtf8(path), "\\first\\inner\\old.txt");
    // A folder moved above the file, then the file's own folder renamed.
    ASSERT_EQ(volume_->CreateFolder(u"\\second"), ERROR_SUCCESS);
    ASSERT_EQ(volume_->Move(u"\\first\\inner", u"\\second\\inner", false), ERROR_SUCCESS);
    ASSERT_EQ(volume_->PathOfReference(old.fileReference, path), ERROR_SUCCESS);
    EXPECT_EQ(WStrToUtf8(path), "\\second\\inner\\old.txt");
    ASSERT_EQ(volume_->Move(u"\\second\\inner", u"\\second\\old folder", false), ERROR_SUCCESS);
    ASSERT_EQ(volume_->Move(u"\\second\\old folder", u"\\old folder", false), ERROR_SUCCESS);
    ASSERT_EQ(volume_->PathOfReference(old.fileReference, path), ERROR_SUCCESS);
    EXPECT_EQ(WStrToUtf8(path), "\\old folder\\old.txt");

    // New records are taken on from the last one taken until the volume is attached again; in the new
    // attachment the old names are read once more before their records go.
    Attach();
    ASSERT_EQ(volume_->PathOfReference(old.fileReference, path), ERROR_SUCCESS);
    EntryInfo info;
    ASSERT_EQ(volume_->Query(u"\\old folder\\old.txt", info), ERROR_SUCCESS);
    ASSERT_EQ(volume_->DeleteFile(u"\\old folder\\old.txt"), ERROR_SUCCESS);
    ASSERT_EQ(volume_->RemoveFolder(u"\\old folder"), ERROR_SUCCESS);
    ASSERT_EQ(volume_->CreateFolder(u"\\new folder"), ERROR_SUCCESS);
    file = Create("\\new folder\\new.txt", "new");
    EntryInfo reused;
    file->Info(reused);
    file.reset();
    // The first free record is taken again, under a new sequence number.
    ASSERT_EQ(reused.fileReference & 0xFFFFFFFFFFFFull, old.fileReference & 0xFFFFFFFFFFFFull);
    ASSERT_NE(reused.fileReference, old.fileReference);

    ASSERT_EQ(volume_->PathOfReference(reused.fileReference, path), ERROR_SUCCESS);
    EXPECT_EQ(WStrToUtf8(path), "\\new folder\\new.txt");
    EXPECT_EQ(volume_->PathOfReference(old.fileReference, path), ERROR_INVALID_PARAMETER);
    std::shared_ptr<File> stale;
    EXPECT_EQ(volume_->OpenByReference(old.fileReference, stale), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(volume_->Query(u"\\old folder\\old.txt", info), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(volume_->Query(u"\\NEW FOLDER\\NEW.TXT", info), ERROR_SUCCESS);
    EXPECT_EQ(WStrToUtf8(info.name), "new.txt");
}

TEST_F(NtfsCaches, AFolderHeldOpenWhileAFileInItChangesKeepsEveryEntry) {
    ASSERT_EQ(volume_->CreateFolder(u"\\held"), ERROR_SUCCESS);
    std::shared_ptr<File> folder;
    ASSERT_EQ(volume_->Open(u"\\held", folder), ERROR_SUCCESS);
    // A file whose size changes updates its entry in the folder's index when written back, both when it
    // is written back in passing and when it is let go.
    std::shared_ptr<File> grown = Create("\\held\\grown.bin", PatternBytes(9000, 4));
    ASSERT_EQ(volume_->Sync(), ERROR_SUCCESS);
    Create("\\held\\after sync.txt", "one");
    grown.reset();
    Create("\\held\\after close.txt", "two");
    std::vector<EntryInfo> entries;
    ASSERT_EQ(volume_->List(u"\\held", u"*", entries), ERROR_SUCCESS);
    EXPECT_EQ(entries.size(), 3u);
    folder.reset();

    ASSERT_EQ(volume_->Detach(), ERROR_SUCCESS);
    Attach(true);
    entries.clear();
    ASSERT_EQ(volume_->List(u"\\held", u"*", entries), ERROR_SUCCESS);
    std::vector<std::string> names;
    for (const EntryInfo& entry : entries) names.push_back(WStrToUtf8(entry.name));
    EXPECT_EQ(names, (std::vector<std::string>{"after close.txt", "after sync.txt", "grown.bin"}));
    EXPECT_EQ(ReadPath("\\held\\grown.bin"), PatternBytes(9000, 4));
}

}  // namespace
