// The NTFS engine on real images made here with mkntfs: round trips with ntfs-3g's own tools in both
// directions, lookup and listing rules, hard links, compression, retrieval pointers checked against the
// image's bytes, and broken images failing cleanly.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

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
    // A file still open when the volume goes is written back with it and answers nothing afterwards.
    std::shared_ptr<File> open;
    ASSERT_EQ(volume_->Open(W("\\small.txt"), open), ERROR_SUCCESS);
    DWORD done = 0;
    ASSERT_EQ(open->Write(5, " world", 6, done), ERROR_SUCCESS);
    Detach();
    char byte = 0;
    EXPECT_EQ(open->Read(0, &byte, 1, done), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(Shell(Tool("ntfscat") + " " + Quote(image_) + " /small.txt"), "hello world");
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

TEST_F(NtfsEngine, AttributesTimesAndSizeAreKeptAsSet) {
    Format(image_);
    Attach();
    Put("\\facts.bin", Pattern(100000, 8));
    std::shared_ptr<File> file;
    ASSERT_EQ(volume_->Open(W("\\facts.bin"), file), ERROR_SUCCESS);
    EntryInfo info;
    file->Info(info);
    EXPECT_EQ(info.attributes, static_cast<DWORD>(FILE_ATTRIBUTE_ARCHIVE));  // new files are marked for backup
    ASSERT_EQ(file->SetAttributes(FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_DIRECTORY), ERROR_SUCCESS);
    const FILETIME created{0x11111111, 0x01D00000}, accessed{0x22222222, 0x01D10000}, written{0x33333333, 0x01D20000};
    ASSERT_EQ(file->SetTimes(&created, &accessed, &written), ERROR_SUCCESS);
    ASSERT_EQ(file->SetSize(1000), ERROR_SUCCESS);
    ASSERT_EQ(file->SetTimes(nullptr, nullptr, &written), ERROR_SUCCESS);  // the truncation moved it
    file.reset();
    Detach();
    Attach();
    ASSERT_EQ(volume_->Query(W("\\FACTS.BIN"), info), ERROR_SUCCESS);
    EXPECT_EQ(info.attributes, static_cast<DWORD>(FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM));
    EXPECT_EQ(info.size, 1000u);
    EXPECT_EQ(info.created.dwLowDateTime, created.dwLowDateTime);
    EXPECT_EQ(info.created.dwHighDateTime, created.dwHighDateTime);
    EXPECT_EQ(info.accessed.dwHighDateTime, accessed.dwHighDateTime);
    EXPECT_EQ(info.written.dwLowDateTime, written.dwLowDateTime);
    EXPECT_TRUE(Get("\\facts.bin") == Pattern(100000, 8).substr(0, 1000));
    // Folders read as folders whatever is set on them, and hidden entries are listed.
    ASSERT_EQ(volume_->CreateFolder(W("\\dir")), ERROR_SUCCESS);
    ASSERT_EQ(volume_->Query(W("\\dir"), info), ERROR_SUCCESS);
    EXPECT_EQ(info.attributes, static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY));
    EXPECT_EQ(Names("\\"), (std::vector<std::string>{"dir", "facts.bin"}));
}

TEST_F(NtfsEngine, EveryHolderOfAFileSeesOneRecordAndCallsFromManyThreadsAreSerialised) {
    Format(image_);
    Attach();
    Put("\\shared.txt", "before");
    std::shared_ptr<File> writer, reader;
    ASSERT_EQ(volume_->Open(W("\\shared.txt"), writer), ERROR_SUCCESS);
    ASSERT_EQ(volume_->Open(W("\\SHARED.TXT"), reader), ERROR_SUCCESS);
    DWORD done = 0;
    ASSERT_EQ(writer->Write(0, "AFTER!!", 7, done), ERROR_SUCCESS);
    char seen[8] = {};
    ASSERT_EQ(reader->Read(0, seen, 7, done), ERROR_SUCCESS);
    EXPECT_STREQ(seen, "AFTER!!");
    writer.reset();
    reader.reset();

    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([this, t] {
            for (int i = 0; i < 10; ++i) {
                const std::string name = "\\t" + std::to_string(t) + "-" + std::to_string(i);
                Put(name, Pattern(5000, static_cast<unsigned>(t * 100 + i)));
                EXPECT_TRUE(Get(name) == Pattern(5000, static_cast<unsigned>(t * 100 + i))) << name;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(Names("\\", "t*").size(), 40u);
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
        {"the file system's own file", volume_->Open(W("\\$MFT"), file), ERROR_ACCESS_DENIED},
        {"the same by reference", volume_->OpenByReference(0, file), ERROR_ACCESS_DENIED},
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

TEST_F(NtfsEngine, AChangeJournalIsMadeWhereNoneIsActiveAndKeptAcrossAttachments) {
    Format(image_);
    Attach();
    vlx::ntfs::UsnJournal journal;
    EXPECT_EQ(volume_->QueryUsnJournal(journal), static_cast<DWORD>(ERROR_JOURNAL_NOT_ACTIVE));
    ASSERT_EQ(volume_->CreateUsnJournal(32 << 20, 4 << 20), ERROR_SUCCESS);
    ASSERT_EQ(volume_->QueryUsnJournal(journal), ERROR_SUCCESS);
    const ULONGLONG id = journal.journalId;
    EXPECT_NE(id, 0u);
    EXPECT_EQ(journal.nextUsn, 0);
    EXPECT_EQ(journal.maximumSize, 32u << 20);
    EXPECT_EQ(journal.allocationDelta, 4u << 20);
    ASSERT_EQ(volume_->CreateUsnJournal(1 << 20, 1 << 20), ERROR_SUCCESS);  // an active journal stays as it is
    Detach();
    Attach(true);
    ASSERT_EQ(volume_->QueryUsnJournal(journal), ERROR_SUCCESS);
    EXPECT_EQ(journal.journalId, id);
    EXPECT_EQ(journal.maximumSize, 32u << 20);
    // The journal is one of the file system's own files: not listed at the root.
    EXPECT_EQ(Names("\\", "$*"), std::vector<std::string>{});
}

TEST_F(NtfsEngine, EnumerationBatchesHoldEveryFileOnceInWindowsRecordLayout) {
    Format(image_);
    Attach();
    ASSERT_EQ(volume_->CreateFolder(W("\\deep")), ERROR_SUCCESS);
    ASSERT_EQ(volume_->CreateFolder(W("\\deep\\er")), ERROR_SUCCESS);
    const std::string japanese = "\xE3\x83\x95\xE3\x82\xA1\xE3\x82\xA4\xE3\x83\xAB";  // ファイル
    std::set<std::string> expected = {"deep", "er"};
    for (int i = 0; i < 30; ++i) {
        const std::string name = japanese + std::to_string(i) + std::string(i, 'x');
        Put("\\deep\\er\\" + name, "x");
        expected.insert(name);
    }
    ASSERT_EQ(volume_->CreateHardLink(W("\\second-name"), W("\\deep\\er\\" + japanese + "0")), ERROR_SUCCESS);
    EntryInfo er;
    ASSERT_EQ(volume_->Query(W("\\deep\\er"), er), ERROR_SUCCESS);

    // Small batches (room for about two records) and large ones give the same records.
    for (DWORD size : {200u, 4096u}) {
        std::vector<BYTE> request(32, 0), batch(size);
        const LONGLONG highUsn = 0x7FFFFFFFFFFFFFFFLL;
        std::memcpy(request.data() + 16, &highUsn, sizeof(highUsn));
        request[26] = 2;  // MaxMajorVersion
        std::multiset<std::string> seen;
        DWORD returned = 0, result;
        int batches = 0;
        while ((result = volume_->EnumUsnData(request.data(), 32, batch.data(), size, returned)) == ERROR_SUCCESS) {
            ASSERT_LT(++batches, 1000);
            for (DWORD at = 8; at < returned;) {
                DWORD length = 0;
                WORD major = 0, nameLength = 0, nameOffset = 0;
                ULONGLONG parent = 0;
                std::memcpy(&length, &batch[at], 4);
                std::memcpy(&major, &batch[at + 4], 2);
                std::memcpy(&parent, &batch[at + 16], 8);
                std::memcpy(&nameLength, &batch[at + 56], 2);
                std::memcpy(&nameOffset, &batch[at + 58], 2);
                ASSERT_EQ(length % 8, 0u);
                ASSERT_LE(at + length, returned);
                EXPECT_EQ(major, 2);
                EXPECT_EQ(nameOffset, 60);
                WString name(nameLength / 2, u'\0');
                std::memcpy(name.data(), &batch[at + 60], nameLength);
                seen.insert(U(name));
                if (U(name).rfind(japanese, 0) == 0) {
                    EXPECT_EQ(parent, er.fileReference);
                }
                at += length;
            }
            std::memcpy(request.data(), batch.data(), 8);  // go on where the batch ended
        }
        EXPECT_EQ(result, static_cast<DWORD>(ERROR_HANDLE_EOF));
        // A file with two names is one record, under either of them.
        EXPECT_EQ(seen.erase("second-name") + seen.erase(japanese + "0"), 1u);
        expected.erase(japanese + "0");
        EXPECT_EQ(seen, std::multiset<std::string>(expected.begin(), expected.end())) << size;
    }

    std::vector<BYTE> request(24, 0), batch(8 + 40);
    DWORD returned = 0;
    EXPECT_EQ(volume_->EnumUsnData(request.data(), 24, batch.data(), static_cast<DWORD>(batch.size()), returned),
              static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(volume_->EnumUsnData(request.data(), 20, batch.data(), static_cast<DWORD>(batch.size()), returned),
              static_cast<DWORD>(ERROR_INVALID_PARAMETER));

    std::array<BYTE, 104> data{};
    ASSERT_EQ(volume_->NtfsVolumeData(data.data(), data.size(), returned), ERROR_SUCCESS);
    EXPECT_EQ(returned, 104u);
    vlx::ntfs::VolumeFacts facts;
    volume_->Facts(facts);
    LONGLONG mftStart = 0;
    DWORD clusterSize = 0;
    std::memcpy(&mftStart, &data[64], 8);
    std::memcpy(&clusterSize, &data[44], 4);
    EXPECT_EQ(mftStart, facts.mftStartLcn);
    EXPECT_EQ(clusterSize, facts.bytesPerCluster);
    EXPECT_EQ(volume_->NtfsVolumeData(data.data(), 95, returned), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(volume_->UsnJournalData(data.data(), 64, returned), static_cast<DWORD>(ERROR_JOURNAL_NOT_ACTIVE));
    ASSERT_EQ(volume_->CreateUsnJournal(1 << 20, 1 << 16), ERROR_SUCCESS);
    ASSERT_EQ(volume_->UsnJournalData(data.data(), 64, returned), ERROR_SUCCESS);
    EXPECT_EQ(returned, 64u);
    ASSERT_EQ(volume_->UsnJournalData(data.data(), 56, returned), ERROR_SUCCESS);
    EXPECT_EQ(returned, 56u);
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

TEST_F(NtfsEngine, AFileWrittenIntoScatteredFreeSpaceHasManyRunsAndNoHoles) {
    Format(image_, 8 << 20, 4096);
    Attach();
    const std::string piece = Pattern(8192, 11);
    for (int i = 0; i < 60; ++i) Put("\\spacer" + std::to_string(i), piece);
    // Whatever is free after the spacers is taken, so that the next file can only go into their gaps.
    std::shared_ptr<File> filler;
    ASSERT_EQ(volume_->CreateFile(W("\\filler"), 0, filler), ERROR_SUCCESS);
    const std::string block = Pattern(4096, 12);
    ULONGLONG at = 0;
    for (DWORD done = 0; filler->Write(at, block.data(), 4096, done) == ERROR_SUCCESS; at += 4096) {
    }
    filler.reset();
    for (int i = 0; i < 60; i += 2) ASSERT_EQ(volume_->DeleteFile(W("\\spacer" + std::to_string(i))), ERROR_SUCCESS);
    const std::string data = Pattern(25 * 8192, 13);
    std::shared_ptr<File> file;
    ASSERT_EQ(volume_->CreateFile(W("\\fragmented"), 0, file), ERROR_SUCCESS);
    for (size_t offset = 0; offset < data.size(); offset += 4096) {
        DWORD done = 0;
        ASSERT_EQ(file->Write(offset, data.data() + offset, 4096, done), ERROR_SUCCESS) << offset;
    }
    file.reset();
    EXPECT_TRUE(BytesThroughRuns("\\fragmented", data.size()) == data);
    ASSERT_EQ(volume_->Open(W("\\fragmented"), file), ERROR_SUCCESS);
    LONGLONG first = -1;
    std::vector<Extent> extents;
    ASSERT_EQ(file->Extents(0, first, extents), ERROR_SUCCESS);
    EXPECT_EQ(first, 0);
    EXPECT_GE(extents.size(), 20u);
    EXPECT_TRUE(std::all_of(extents.begin(), extents.end(), [](const Extent& e) { return e.lcn >= 0; }));
    EXPECT_EQ(extents.back().nextVcn, static_cast<LONGLONG>(data.size() / 4096));
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

TEST_F(NtfsEngine, CompressionIsSwitchedOnAndOffWithTheDataKept) {
    Format(image_);
    Attach();
    std::string text;
    while (text.size() < 256 * 1024) text += "Velmora compresses this line again and again. ";
    Put("\\c.txt", text);
    std::shared_ptr<File> file;
    ASSERT_EQ(volume_->Open(W("\\C.TXT"), file), ERROR_SUCCESS);
    USHORT format = 0xFFFF;
    ASSERT_EQ(file->GetCompression(format), ERROR_SUCCESS);
    EXPECT_EQ(format, COMPRESSION_FORMAT_NONE);
    ASSERT_EQ(file->SetCompression(COMPRESSION_FORMAT_DEFAULT), ERROR_SUCCESS);
    EntryInfo info;
    file->Info(info);
    EXPECT_NE(info.attributes & FILE_ATTRIBUTE_COMPRESSED, 0u);
    EXPECT_EQ(info.size, text.size());
    EXPECT_LT(info.allocated, text.size() / 4);
    // Each compression unit keeps the clusters it needs and leaves the rest as a run without clusters.
    LONGLONG first = 0;
    std::vector<Extent> extents;
    ASSERT_EQ(file->Extents(0, first, extents), ERROR_SUCCESS);
    EXPECT_TRUE(std::any_of(extents.begin(), extents.end(), [](const Extent& e) { return e.lcn == -1; }));
    file.reset();
    EXPECT_TRUE(Get("\\c.txt") == text);
    Detach();
    EXPECT_TRUE(Shell(Tool("ntfscat") + " " + Quote(image_) + " /c.txt") == text);

    Attach();
    ASSERT_EQ(volume_->Open(W("\\c.txt"), file), ERROR_SUCCESS);
    ASSERT_EQ(file->GetCompression(format), ERROR_SUCCESS);
    EXPECT_EQ(format, COMPRESSION_FORMAT_LZNT1);
    ASSERT_EQ(file->SetCompression(COMPRESSION_FORMAT_NONE), ERROR_SUCCESS);
    file->Info(info);
    EXPECT_EQ(info.attributes & FILE_ATTRIBUTE_COMPRESSED, 0u);
    extents.clear();
    ASSERT_EQ(file->Extents(0, first, extents), ERROR_SUCCESS);
    EXPECT_TRUE(std::none_of(extents.begin(), extents.end(), [](const Extent& e) { return e.lcn == -1; }));
    EXPECT_EQ(file->SetCompression(7), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    file.reset();
    EXPECT_TRUE(BytesThroughRuns("\\c.txt", text.size()) == text);

    // A compressed folder makes new files compressed.
    ASSERT_EQ(volume_->CreateFolder(W("\\packed")), ERROR_SUCCESS);
    ASSERT_EQ(volume_->Open(W("\\packed"), file), ERROR_SUCCESS);
    ASSERT_EQ(file->SetCompression(COMPRESSION_FORMAT_LZNT1), ERROR_SUCCESS);
    file.reset();
    ASSERT_EQ(volume_->Query(W("\\packed"), info), ERROR_SUCCESS);
    EXPECT_EQ(info.attributes, static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_COMPRESSED));
    Put("\\packed\\new.txt", text);
    ASSERT_EQ(volume_->Open(W("\\packed\\new.txt"), file), ERROR_SUCCESS);
    ASSERT_EQ(file->GetCompression(format), ERROR_SUCCESS);
    EXPECT_EQ(format, COMPRESSION_FORMAT_LZNT1);
    file.reset();
    Detach();
    EXPECT_TRUE(Shell(Tool("ntfscat") + " " + Quote(image_) + " /packed/new.txt") == text);

    // Clusters above 4 KiB cannot hold compressed data.
    Format(image_, 8 << 20, 8192);
    Attach();
    Put("\\big-clusters.txt", text);
    ASSERT_EQ(volume_->Open(W("\\big-clusters.txt"), file), ERROR_SUCCESS);
    EXPECT_EQ(file->SetCompression(COMPRESSION_FORMAT_DEFAULT), static_cast<DWORD>(ERROR_INVALID_FUNCTION));
}

TEST_F(NtfsEngine, SecurityDescriptorsAreReadAndReplacedPartByPart) {
    constexpr DWORD kOwner = 0x1, kGroup = 0x2, kDacl = 0x4, kSacl = 0x8;
    Format(image_);
    Attach();
    Put("\\guarded.txt", "g");
    std::shared_ptr<File> file;
    ASSERT_EQ(volume_->Open(W("\\guarded.txt"), file), ERROR_SUCCESS);
    std::vector<BYTE> whole, ownerAndGroup;
    ASSERT_EQ(file->GetSecurity(kOwner | kGroup | kDacl | kSacl, whole), ERROR_SUCCESS);
    ASSERT_EQ(file->GetSecurity(kOwner | kGroup, ownerAndGroup), ERROR_SUCCESS);
    ASSERT_GE(whole.size(), 20u);
    EXPECT_EQ(whole[0], 1);
    // Written back as read, the descriptor is the same bytes, also after the image is attached again.
    ASSERT_EQ(file->SetSecurity(kOwner | kGroup | kDacl | kSacl, whole.data(), static_cast<DWORD>(whole.size())), ERROR_SUCCESS);
    file.reset();
    Detach();
    Attach();
    ASSERT_EQ(volume_->Open(W("\\guarded.txt"), file), ERROR_SUCCESS);
    std::vector<BYTE> again;
    ASSERT_EQ(file->GetSecurity(kOwner | kGroup | kDacl | kSacl, again), ERROR_SUCCESS);
    EXPECT_EQ(again, whole);

    // A descriptor holding only an empty access list replaces the access list and nothing else.
    const std::vector<BYTE> emptyDacl = {1, 0, 0x04, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 20, 0, 0, 0,
                                         2, 0, 8, 0, 0, 0, 0, 0};
    ASSERT_EQ(file->SetSecurity(kDacl, emptyDacl.data(), static_cast<DWORD>(emptyDacl.size())), ERROR_SUCCESS);
    std::vector<BYTE> dacl, kept;
    ASSERT_EQ(file->GetSecurity(kDacl, dacl), ERROR_SUCCESS);
    EXPECT_EQ(dacl, emptyDacl);
    ASSERT_EQ(file->GetSecurity(kOwner | kGroup, kept), ERROR_SUCCESS);
    EXPECT_EQ(kept, ownerAndGroup);

    struct Refused {
        const char* what;
        std::vector<BYTE> bytes;
        DWORD selection;
    } refused[] = {
        {"shorter than its head", std::vector<BYTE>(emptyDacl.begin(), emptyDacl.begin() + 12), kDacl},
        {"access list past the end", std::vector<BYTE>(emptyDacl.begin(), emptyDacl.end() - 2), kDacl},
        {"owner asked for but absent", emptyDacl, kOwner},
    };
    for (const Refused& r : refused) {
        EXPECT_EQ(file->SetSecurity(r.selection, r.bytes.data(), static_cast<DWORD>(r.bytes.size())),
                  static_cast<DWORD>(ERROR_INVALID_SECURITY_DESCR)) << r.what;
    }
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
    // An image opened for reading only cannot carry a writable volume.
    const int fd = open(image_.c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(Volume::AttachImage(fd, 0, 8 << 20, false, volume), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    ASSERT_EQ(Volume::AttachImage(fd, 0, 8 << 20, true, volume), ERROR_SUCCESS);
    close(fd);  // the engine keeps its own descriptor
    EntryInfo root;
    EXPECT_EQ(volume->Query(W("\\"), root), ERROR_SUCCESS);
    EXPECT_EQ(root.attributes & FILE_ATTRIBUTE_DIRECTORY, static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY));
}

}  // namespace
