// The built-in imaging library on real data, through the image exports and its own entry points: trees
// captured and applied whole, images shared with wimlib-imagex both ways, appended images, messages,
// mount and unmount, and broken image files.
#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "../../platform/api_patch.h"
#include "../../platform/wimgapi.h"
#include "../support/host_fixture.h"

namespace {

using namespace testing_support;
namespace fs = std::filesystem;

// A command's exit status and what it printed.
std::pair<int, std::string> Shell(const std::string& command) {
    std::string output;
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) return {-1, ""};
    char buffer[4096];
    while (size_t read = fread(buffer, 1, sizeof buffer, pipe)) output.append(buffer, read);
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

// The library's entry points, for the tests that speak to it directly; loaded for the test's length.
struct ImagingLibrary {
    ImagingLibrary() : module(sys().LoadLibraryW(_T("wimgapi.dll"))) {}
    ~ImagingLibrary() { sys().FreeLibrary(module); }
    template <class Function>
    Function Entry(LPCSTR name) const {
        return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(sys().GetProcAddress(module, name)));
    }
    HMODULE module;
    WIMCreateFileFunction create = Entry<WIMCreateFileFunction>("WIMCreateFile");
    WIMRegisterMessageCallbackFunction registerCallback = Entry<WIMRegisterMessageCallbackFunction>("WIMRegisterMessageCallback");
    WIMCaptureImageFunction capture = Entry<WIMCaptureImageFunction>("WIMCaptureImage");
    WIMLoadImageFunction load = Entry<WIMLoadImageFunction>("WIMLoadImage");
    WIMApplyImageFunction apply = Entry<WIMApplyImageFunction>("WIMApplyImage");
    WIMCloseHandleFunction close = Entry<WIMCloseHandleFunction>("WIMCloseHandle");
};

struct Found {
    DWORD attributes;
    uint64_t size;
    std::string name;
    FILETIME written;
};

struct Heard {
    std::vector<DWORD> percents;
    std::vector<std::string> paths;
    std::map<std::string, Found> found;  // what WIM_MSG_FILEINFO told of each path
    DWORD answer = WIM_MSG_SUCCESS;
    std::string skip;  // a path whose WIM_MSG_PROCESS is answered with FALSE
};

DWORD CALLBACK Listen(DWORD message, WPARAM wParam, LPARAM lParam, PVOID userData) {
    auto* heard = static_cast<Heard*>(userData);
    if (message == WIM_MSG_PROGRESS) heard->percents.push_back(static_cast<DWORD>(wParam));
    if (message == WIM_MSG_PROCESS || message == WIM_MSG_FILEINFO) {
        const std::string path = U(reinterpret_cast<LPCWSTR>(wParam));
        heard->paths.push_back(path);
        if (message == WIM_MSG_FILEINFO) {
            const auto& data = *reinterpret_cast<const WIN32_FIND_DATAW*>(lParam);
            heard->found[path] = {data.dwFileAttributes, (uint64_t{data.nFileSizeHigh} << 32) | data.nFileSizeLow,
                                  U(data.cFileName), data.ftLastWriteTime};
        }
        if (message == WIM_MSG_PROCESS && path == heard->skip) *reinterpret_cast<BOOL*>(lParam) = FALSE;
    }
    return heard->answer;
}

class WimImages : public HostFolderTest {
protected:
    // Contents, times, attributes, a hard link, an empty folder and Japanese names.
    void MakeTree(const std::string& top) {
        WriteFile(top + "/a.txt", "alpha");
        WriteFile(top + "/sub/深い/データ.bin", std::string(300000, 'd') + "end");
        WriteFile(top + "/hidden.ini", "h");
        WriteFile(top + "/readonly.txt", "r");
        MakeFolder(top + "/empty");
        fs::create_hard_link(Host(top + "/a.txt"), Host(top + "/sub/link.txt"));
        sys().SetFileAttributesW(Win(top + "\\hidden.ini"), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
        sys().SetFileAttributesW(Win(top + "\\readonly.txt"), FILE_ATTRIBUTE_READONLY);
        const struct timespec times[2] = {{1000000000, 0}, {1234567890, 500}};
        utimensat(AT_FDCWD, Host(top + "/sub/深い/データ.bin").c_str(), times, 0);
    }
    // The Windows paths of what MakeTree makes, each after prefix.
    static std::set<std::string> TreeEntriesUnder(const std::string& prefix) {
        std::set<std::string> paths;
        for (const char* entry : {"a.txt", "sub", "sub\\深い", "sub\\深い\\データ.bin", "hidden.ini", "readonly.txt", "empty",
                                  "sub\\link.txt"})
            paths.insert(prefix + entry);
        return paths;
    }
    void ExpectSameTree(const std::string& from, const std::string& to) {
        auto [status, output] = Shell("diff -r '" + Host(from) + "' '" + Host(to) + "'");
        EXPECT_EQ(status, 0) << output;
        for (const char* name : {"hidden.ini", "readonly.txt", "a.txt"}) {
            EXPECT_EQ(sys().GetFileAttributesW(Win(to + "\\" + name)), sys().GetFileAttributesW(Win(from + "\\" + name))) << name;
        }
        struct stat original {}, copy {}, link {};
        stat(Host(from + "/sub/深い/データ.bin").c_str(), &original);
        stat(Host(to + "/sub/深い/データ.bin").c_str(), &copy);
        EXPECT_EQ(copy.st_mtim.tv_sec, original.st_mtim.tv_sec);
        EXPECT_EQ(copy.st_mtim.tv_nsec / 100, original.st_mtim.tv_nsec / 100);  // FILETIME keeps 100 ns
        stat(Host(to + "/a.txt").c_str(), &copy);
        stat(Host(to + "/sub/link.txt").c_str(), &link);
        EXPECT_EQ(copy.st_ino, link.st_ino) << "the hard link came apart";
        EXPECT_TRUE(fs::is_directory(Host(to + "/empty")));
    }
    // One field of what wimlib-imagex info says of the whole file ("Image Count", "Compression").
    std::string Info(const std::string& image, const std::string& field) {
        const std::string info = Shell("wimlib-imagex info '" + Host(image) + "'").second;
        const size_t at = info.find("\n" + field + ":");
        if (at == std::string::npos) return "(no " + field + ")";
        const size_t value = info.find_first_not_of(' ', at + field.size() + 2);
        return info.substr(value, info.find('\n', value) - value);
    }
    BOOL Capture(const std::string& image, const std::string& source, DWORD compression = WIM_COMPRESS_LZX) {
        return CompressToWim(Win(image), Win(source), _T(""), compression, nullptr, nullptr);
    }
    BOOL Apply(const std::string& image, DWORD index, const std::string& target) {
        return ExtractFromWim(Win(image), Win(target), _T(""), index, nullptr, nullptr);
    }
};

TEST_F(WimImages, CaptureThenApplyReproducesTheTreeInEveryCompressionAndWimlibAcceptsTheImage) {
    MakeTree("src");
    const std::pair<DWORD, const char*> kinds[] = {{WIM_COMPRESS_NONE, "None"}, {WIM_COMPRESS_XPRESS, "XPRESS"},
                                                   {WIM_COMPRESS_LZX, "LZX"}, {WIM_COMPRESS_LZMS, "LZMS"}};
    for (const auto& [compression, name] : kinds) {
        SCOPED_TRACE(name);
        const std::string image = std::string(name) + ".wim", out = std::string("out-") + name;
        ASSERT_EQ(Capture(image, "src", compression), TRUE);
        EXPECT_EQ(Info(image, "Compression"), name);
        auto [verified, report] = Shell("wimlib-imagex verify '" + Host(image) + "'");
        EXPECT_EQ(verified, 0) << report;
        ASSERT_EQ(Apply(image, 1, out), TRUE);
        ExpectSameTree("src", out);
    }
}

TEST_F(WimImages, AppendingGetsTheNextIndexAndKeepsTheFilesOwnCompression) {
    WriteFile("one/first.txt", "1");
    WriteFile("two/second.txt", "2");
    ASSERT_EQ(Capture("both.wim", "one", WIM_COMPRESS_XPRESS), TRUE);
    ASSERT_EQ(Capture("both.wim", "two", WIM_COMPRESS_LZMS), TRUE);
    EXPECT_EQ(Info("both.wim", "Image Count"), "2");
    EXPECT_EQ(Info("both.wim", "Compression"), "XPRESS");
    ASSERT_EQ(Apply("both.wim", 2, "out"), TRUE);
    EXPECT_TRUE(fs::exists(Host("out/second.txt")));
    EXPECT_FALSE(fs::exists(Host("out/first.txt")));
    sys().SetLastError(kJunkError);
    EXPECT_EQ(Apply("both.wim", 3, "none"), FALSE);
    EXPECT_EQ(sys().GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(WimImages, ImagesCapturedByWimlibImagexApply) {
    MakeTree("src");
    auto [status, output] = Shell("wimlib-imagex capture --unix-data '" + Host("src") + "' '" + Host("theirs.wim") + "'");
    ASSERT_EQ(status, 0) << output;
    ASSERT_EQ(Apply("theirs.wim", 1, "out"), TRUE);
    ExpectSameTree("src", "out");
}

TEST_F(WimImages, FailuresLeaveTheImagingLibrarysCodesAndTheCreatedFileStays) {
    sys().SetLastError(kJunkError);
    EXPECT_EQ(Apply("missing.wim", 1, "out"), FALSE);
    EXPECT_EQ(sys().GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(Capture("made.wim", "no-such-folder"), FALSE);
    EXPECT_EQ(sys().GetLastError(), DWORD{ERROR_PATH_NOT_FOUND});
    EXPECT_TRUE(fs::exists(Host("made.wim")));
    EXPECT_EQ(Capture("odd.wim", "src", 7), FALSE);  // a compression the library does not know
    EXPECT_EQ(sys().GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_FALSE(fs::exists(Host("odd.wim")));
}

TEST_F(WimImages, MessagesNameEveryEntryByItsWindowsPathAndProgressRisesToAHundred) {
    MakeTree("src");
    const ImagingLibrary library;
    const auto under = [&](const std::string& root) { return TreeEntriesUnder(U(Win(root)) + "\\"); };

    Heard heard;
    heard.skip = U(Win("src\\hidden.ini"));
    DWORD created = 9;
    HANDLE file = library.create(Win("img.wim"), WIM_GENERIC_READ | WIM_GENERIC_WRITE, WIM_OPEN_ALWAYS, 0, WIM_COMPRESS_LZX, &created);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(created, DWORD{WIM_CREATED_NEW});
    EXPECT_EQ(library.registerCallback(file, reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(Listen)), &heard), 0u);
    HANDLE image = library.capture(file, Win("src"), 0);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(std::set<std::string>(heard.paths.begin(), heard.paths.end()), under("src"));
    ASSERT_FALSE(heard.percents.empty());
    EXPECT_TRUE(std::is_sorted(heard.percents.begin(), heard.percents.end()));
    EXPECT_EQ(heard.percents.back(), 100u);
    library.close(image);

    heard = Heard{};
    image = library.load(file, 1);
    ASSERT_EQ(library.apply(image, Win("out"), WIM_FLAG_FILEINFO), TRUE);
    std::set<std::string> applied = under("out");
    applied.erase(U(Win("out\\hidden.ini")));  // left out by the capture's answer
    EXPECT_EQ(std::set<std::string>(heard.paths.begin(), heard.paths.end()), applied);
    EXPECT_FALSE(fs::exists(Host("out/hidden.ini")));
    EXPECT_EQ(heard.percents.back(), 100u);
    library.close(image);

    heard = Heard{};
    heard.answer = WIM_MSG_ABORT_IMAGE;
    image = library.load(file, 1);
    sys().SetLastError(kJunkError);
    EXPECT_EQ(library.apply(image, Win("stopped"), WIM_FLAG_FILEINFO), FALSE);
    EXPECT_EQ(sys().GetLastError(), DWORD{ERROR_REQUEST_ABORTED});
    library.close(image);
    library.close(file);
}

// Paths are made in one buffer reused from entry to entry: a long name must not leave its tail on the
// shorter one after it, and a drive's root must not double its separator.
TEST_F(WimImages, MessagesAtADriveRootCarryEachEntrysOwnPathAndFindData) {
    MakeTree("src");
    WriteFile("src/a-much-longer-name-than-the-next.txt", "x");
    ASSERT_TRUE(vlx::MapDrive('Q', Host("src")));
    MakeFolder("out");
    ASSERT_TRUE(vlx::MapDrive('R', Host("out")));
    const ImagingLibrary library;
    const auto under = [&](const std::string& root) {
        std::set<std::string> paths = TreeEntriesUnder(root);
        paths.insert(root + "a-much-longer-name-than-the-next.txt");
        return paths;
    };

    Heard heard;
    HANDLE file = library.create(Win("img.wim"), WIM_GENERIC_READ | WIM_GENERIC_WRITE, WIM_CREATE_NEW, 0, WIM_COMPRESS_XPRESS, nullptr);
    ASSERT_NE(file, nullptr);
    library.registerCallback(file, reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(Listen)), &heard);
    HANDLE image = library.capture(file, _T("Q:\\"), 0);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(std::set<std::string>(heard.paths.begin(), heard.paths.end()), under("Q:\\"));
    EXPECT_EQ(heard.paths.size(), under("Q:\\\\").size());

    heard = Heard{};
    ASSERT_EQ(library.apply(image, _T("R:"), WIM_FLAG_FILEINFO), TRUE);
    EXPECT_EQ(std::set<std::string>(heard.paths.begin(), heard.paths.end()), under("R:\\"));
    const Found& data = heard.found["R:\\sub\\深い\\データ.bin"];
    EXPECT_EQ(data.name, "データ.bin");
    EXPECT_EQ(data.size, 300003u);
    EXPECT_EQ(data.attributes & FILE_ATTRIBUTE_DIRECTORY, 0u);
    WIN32_FIND_DATAW original{};
    const HANDLE find = sys().FindFirstFileW(Win("src\\sub\\深い\\データ.bin"), &original);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    sys().FindClose(find);
    EXPECT_EQ(data.written.dwLowDateTime, original.ftLastWriteTime.dwLowDateTime);
    EXPECT_EQ(data.written.dwHighDateTime, original.ftLastWriteTime.dwHighDateTime);
    EXPECT_EQ(heard.found["R:\\sub\\深い"].name, "深い");
    EXPECT_NE(heard.found["R:\\sub\\深い"].attributes & FILE_ATTRIBUTE_DIRECTORY, 0u);
    EXPECT_EQ(heard.found["R:\\a.txt"].size, 5u);
    library.close(image);
    library.close(file);
    vlx::UnmapDrive('R');
    vlx::UnmapDrive('Q');
}

TEST_F(WimImages, MountShowsTheImageAndUnmountWritesBackOnlyWhenAskedAndAllowed) {
    WriteFile("src/keep.txt", "keep");
    WriteFile("src/gone.txt", "gone");
    ASSERT_EQ(Capture("img.wim", "src"), TRUE);
    ASSERT_EQ(Capture("img.wim", "src"), TRUE);
    MakeFolder("mnt");
    MakeFolder("scratch");
    const auto edit = [&] {
        WriteFile("mnt/new.txt", "new");
        fs::remove(Host("mnt/gone.txt"));
    };

    // Without commit nothing changes.
    ASSERT_EQ(MountWim(Win("img.wim"), Win("mnt"), Win("scratch"), 1), TRUE);
    EXPECT_EQ(fs::file_size(Host("mnt/keep.txt")), 4u);
    edit();
    ASSERT_EQ(UnMountWim(Win("img.wim"), Win("mnt"), 1, FALSE), TRUE);
    EXPECT_TRUE(fs::is_empty(Host("mnt")));
    ASSERT_EQ(Apply("img.wim", 1, "after-discard"), TRUE);
    EXPECT_TRUE(fs::exists(Host("after-discard/gone.txt")));

    // A read-only mount (no temporary folder) never writes back.
    ASSERT_EQ(MountWim(Win("img.wim"), Win("mnt"), _T(""), 1), TRUE);
    edit();
    ASSERT_EQ(UnMountWim(Win("img.wim"), Win("mnt"), 1, TRUE), TRUE);
    ASSERT_EQ(Apply("img.wim", 1, "after-readonly"), TRUE);
    EXPECT_TRUE(fs::exists(Host("after-readonly/gone.txt")));

    // With commit the image changes in place, and the other image with it does not.
    ASSERT_EQ(MountWim(Win("img.wim"), Win("mnt"), Win("scratch"), 1), TRUE);
    edit();
    ASSERT_EQ(UnMountWim(Win("img.wim"), Win("mnt"), 1, 2), TRUE);
    EXPECT_TRUE(fs::is_empty(Host("mnt")));
    ASSERT_EQ(Apply("img.wim", 1, "after-commit"), TRUE);
    EXPECT_TRUE(fs::exists(Host("after-commit/new.txt")));
    EXPECT_FALSE(fs::exists(Host("after-commit/gone.txt")));
    ASSERT_EQ(Apply("img.wim", 2, "other"), TRUE);
    EXPECT_TRUE(fs::exists(Host("other/gone.txt")));
    EXPECT_EQ(Info("img.wim", "Image Count"), "2");
    auto [verified, report] = Shell("wimlib-imagex verify '" + Host("img.wim") + "'");
    EXPECT_EQ(verified, 0) << report;
}

TEST_F(WimImages, MountRefusesABusyFolderAndUnmountTouchesOnlyItsOwnMount) {
    WriteFile("src/a.txt", "a");
    ASSERT_EQ(Capture("img.wim", "src"), TRUE);
    WriteFile("busy/mine.txt", "mine");
    struct Row {
        const char* what;
        std::function<BOOL()> call;
        DWORD error;
    };
    const Row rows[] = {
        {"folder not empty", [&] { return MountWim(Win("img.wim"), Win("busy"), _T(""), 1); }, ERROR_DIR_NOT_EMPTY},
        {"no such folder", [&] { return MountWim(Win("img.wim"), Win("nowhere"), _T(""), 1); }, ERROR_PATH_NOT_FOUND},
        {"no such image", [&] { return MountWim(Win("img.wim"), Win("src"), _T(""), 2); }, ERROR_DIR_NOT_EMPTY},
        {"never mounted", [&] { return UnMountWim(Win("img.wim"), Win("busy"), 1, TRUE); }, ERROR_INVALID_PARAMETER},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        sys().SetLastError(kJunkError);
        EXPECT_EQ(row.call(), FALSE);
        EXPECT_EQ(sys().GetLastError(), row.error);
    }
    MakeFolder("mnt");
    sys().SetLastError(kJunkError);
    EXPECT_EQ(MountWim(Win("img.wim"), Win("mnt"), _T(""), 2), FALSE);
    EXPECT_EQ(sys().GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(fs::file_size(Host("busy/mine.txt")), 4u);
    ASSERT_EQ(MountWim(Win("img.wim"), Win("mnt"), _T(""), 1), TRUE);
    EXPECT_EQ(UnMountWim(Win("img.wim"), Win("mnt"), 2, FALSE), FALSE);  // not the image mounted there
    EXPECT_TRUE(fs::exists(Host("mnt/a.txt")));
    EXPECT_EQ(UnMountWim(Win("img.wim"), Win("mnt"), 1, FALSE), TRUE);
}

TEST_F(WimImages, BrokenImagesFailCleanly) {
    WriteFile("src/big.txt", std::string(200000, 'x') + "tail");
    ASSERT_EQ(Capture("good.wim", "src"), TRUE);
    std::ifstream in(Host("good.wim"), std::ios::binary);
    const std::string good((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const auto write = [&](const std::string& name, std::string bytes) { std::ofstream(Host(name), std::ios::binary) << bytes; };
    std::string header = good, flags = good, data = good;
    header[0] = 'X';                                  // not the image magic
    flags[16] = '\x02', flags[17] = 0, flags[18] = '\x10', flags[19] = 0;  // compressed with no known type
    for (size_t at = 300; at < 900; ++at) data[at] = static_cast<char>(~data[at]);  // file data mangled
    write("truncated.wim", good.substr(0, 100));
    write("header.wim", header);
    write("flags.wim", flags);
    write("data.wim", data);
    write("empty.wim", "");
    for (const char* name : {"truncated.wim", "header.wim", "flags.wim", "data.wim", "empty.wim"}) {
        SCOPED_TRACE(name);
        sys().SetLastError(kJunkError);
        EXPECT_EQ(Apply(name, 1, std::string("out-") + name), FALSE);
        const DWORD error = sys().GetLastError();
        EXPECT_TRUE(error == ERROR_BAD_FORMAT || error == ERROR_FILE_CORRUPT) << error;
        EXPECT_FALSE(fs::exists(Host(std::string("out-") + name + "/big.txt")));
    }
}

}  // namespace
