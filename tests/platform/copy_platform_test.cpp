// The Linux platform's copy services: CopyFileExW, SHFileOperationW, TaskDialogIndirect and the progress bar.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <tuple>

#include "../../platform/linux/desktop/desktop.h"
#include "../support/canceller.h"
#include "../support/copy_support.h"

namespace {

using namespace testing_support;
namespace fs = std::filesystem;

// ---- CopyFileExW

// A call of the progress routine: total, done, stream size, stream done, stream, reason, both handles given.
using ProgressCall = std::tuple<LONGLONG, LONGLONG, LONGLONG, LONGLONG, DWORD, DWORD, bool>;

struct Script {
    std::vector<ProgressCall> calls;
    DWORD answerAt = ~0u;  // the call (counted from 0) that answers with answer
    DWORD answer = PROGRESS_CONTINUE;
};

DWORD CALLBACK RecordProgress(LARGE_INTEGER total, LARGE_INTEGER done, LARGE_INTEGER streamSize, LARGE_INTEGER streamDone,
                              DWORD stream, DWORD reason, HANDLE source, HANDLE target, LPVOID data) {
    auto* script = static_cast<Script*>(data);
    script->calls.emplace_back(total.QuadPart, done.QuadPart, streamSize.QuadPart, streamDone.QuadPart, stream, reason,
                               source != nullptr && target != nullptr);
    return script->calls.size() - 1 == script->answerAt ? script->answer : PROGRESS_CONTINUE;
}

class CopyFilePlatform : public HostFolderTest {
protected:
    BOOL Copy(const std::string& from, const std::string& to, Script* script = nullptr, BOOL* cancel = nullptr, DWORD flags = 0) {
        sys().SetLastError(kJunkError);
        return sys().CopyFileExW(Win(from), Win(to), script ? RecordProgress : nullptr, script, cancel, flags);
    }
};

TEST_F(CopyFilePlatform, ReportsAStreamSwitchThenEveryChunkWithTheFilesTotals) {
    const LONGLONG size = (2 << 20) + 512;
    WriteFile("a.bin", std::string(static_cast<size_t>(size), 'a'));
    Script script;
    EXPECT_EQ(Copy("a.bin", "b.bin", &script), TRUE);
    const LONGLONG mib = 1 << 20;
    EXPECT_EQ(script.calls, (std::vector<ProgressCall>{{size, 0, size, 0, 1, CALLBACK_STREAM_SWITCH, true},
                                                       {size, mib, size, mib, 1, CALLBACK_CHUNK_FINISHED, true},
                                                       {size, 2 * mib, size, 2 * mib, 1, CALLBACK_CHUNK_FINISHED, true},
                                                       {size, size, size, size, 1, CALLBACK_CHUNK_FINISHED, true}}));
    EXPECT_EQ(ReadHostFile(Host("b.bin")), ReadHostFile(Host("a.bin")));
}

TEST_F(CopyFilePlatform, CarriesAttributesAndTheLastWriteTimeOver) {
    WriteFile("a.txt", "a");
    ASSERT_TRUE(sys().SetFileAttributesW(Win("a.txt"), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY));
    struct timespec times[2] = {{0, UTIME_OMIT}, {1000000000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, Host("a.txt").c_str(), times, 0), 0);
    EXPECT_EQ(Copy("a.txt", "b.txt"), TRUE);
    EXPECT_EQ(sys().GetFileAttributesW(Win("b.txt")), static_cast<DWORD>(FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY));
    struct stat status {};
    ASSERT_EQ(stat(Host("b.txt").c_str(), &status), 0);
    EXPECT_EQ(status.st_mtim.tv_sec, 1000000000);
}

TEST_F(CopyFilePlatform, FailsAsWindowsDoesAndReplacesOnlyWhenAllowed) {
    WriteFile("a.txt", "a");
    WriteFile("b.txt", "old");
    MakeFolder("folder");
    WriteFile("ro.txt", "r");
    ASSERT_TRUE(sys().SetFileAttributesW(Win("ro.txt"), FILE_ATTRIBUTE_READONLY));
    const struct Case {
        const char *from, *to;
        DWORD flags, error;
    } cases[] = {
        {"missing.txt", "c.txt", 0, ERROR_FILE_NOT_FOUND},
        {"a.txt", "nowhere\\c.txt", 0, ERROR_PATH_NOT_FOUND},
        {"folder", "c", 0, ERROR_ACCESS_DENIED},
        {"a.txt", "folder", 0, ERROR_ACCESS_DENIED},
        {"a.txt", "ro.txt", 0, ERROR_ACCESS_DENIED},
        {"a.txt", "A.TXT", 0, ERROR_SHARING_VIOLATION},  // onto itself: refused before anything is truncated
        {"a.txt", "b.txt", COPY_FILE_FAIL_IF_EXISTS, ERROR_FILE_EXISTS},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Copy(c.from, c.to, nullptr, nullptr, c.flags), FALSE) << c.from << " -> " << c.to;
        EXPECT_EQ(sys().GetLastError(), c.error) << c.from << " -> " << c.to;
    }
    EXPECT_EQ(ReadHostFile(Host("a.txt")), "a");
    EXPECT_EQ(ReadHostFile(Host("ro.txt")), "r");
    EXPECT_EQ(ReadHostFile(Host("b.txt")), "old");
    EXPECT_EQ(sys().CopyFileW(Win("a.txt"), Win("b.txt"), FALSE), TRUE);
    EXPECT_EQ(ReadHostFile(Host("b.txt")), "a");
}

TEST_F(CopyFilePlatform, StopsWithNoPartialTargetLeft) {
    WriteFile("a.bin", std::string(3 << 20, 'a'));
    const struct Case {
        DWORD answerAt, answer;
        bool keepsPartial;
    } cases[] = {{0, PROGRESS_CANCEL, false}, {1, PROGRESS_CANCEL, false}, {1, PROGRESS_STOP, true}};
    for (const Case& c : cases) {
        Script script{{}, c.answerAt, c.answer};
        EXPECT_EQ(Copy("a.bin", "b.bin", &script), FALSE);
        EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_REQUEST_ABORTED));
        EXPECT_EQ(fs::exists(Host("b.bin")), c.keepsPartial);
        fs::remove(Host("b.bin"));
    }
    BOOL cancel = TRUE;
    EXPECT_EQ(Copy("a.bin", "b.bin", nullptr, &cancel), FALSE);
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_REQUEST_ABORTED));
    EXPECT_FALSE(fs::exists(Host("b.bin")));
}

// Whether two host files hold the same bytes, read in blocks: large files byte by byte are slow under
// the sanitizers.
bool SameBytes(const std::string& a, const std::string& b) {
    std::ifstream first(a, std::ios::binary), second(b, std::ios::binary);
    std::vector<char> x(1 << 20), y(1 << 20);
    while (first && second) {
        first.read(x.data(), static_cast<std::streamsize>(x.size()));
        second.read(y.data(), static_cast<std::streamsize>(y.size()));
        if (first.gcount() != second.gcount() || !std::equal(x.begin(), x.begin() + first.gcount(), y.begin())) return false;
    }
    return first.eof() && second.eof();
}

// The names in the test folder, so that a copy's own working file would show.
std::vector<std::string> FolderNames(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

TEST_F(CopyFilePlatform, AReplacedFileStaysWholeUntilTheCopyIsCompleteAndNothingElseIsLeft) {
    WriteFile("a.bin", std::string(3 << 20, 'n'));
    WriteFile("b.bin", "old");
    // Cancelled between chunks, and failing to write halfway as on a full disk (a file size limit stands
    // in for the disk here).
    Script script{{}, 2, PROGRESS_CANCEL};
    EXPECT_EQ(Copy("a.bin", "b.bin", &script), FALSE);
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_REQUEST_ABORTED));
    EXPECT_EQ(ReadHostFile(Host("b.bin")), "old");

    struct rlimit before {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto oldSignal = signal(SIGXFSZ, SIG_IGN);
    struct rlimit small = before;
    small.rlim_cur = 1 << 20;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const BOOL copied = Copy("a.bin", "b.bin");
    const DWORD error = sys().GetLastError();
    setrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, oldSignal);
    EXPECT_EQ(copied, FALSE);
    EXPECT_NE(error, static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_EQ(ReadHostFile(Host("b.bin")), "old");
    EXPECT_EQ(FolderNames(root_), (std::vector<std::string>{"a.bin", "b.bin"}));

    // Once whole, the copy takes the old file's place and keeps its permissions.
    ASSERT_EQ(chmod(Host("b.bin").c_str(), 0640), 0);
    EXPECT_EQ(Copy("a.bin", "b.bin"), TRUE);
    EXPECT_TRUE(SameBytes(Host("b.bin"), Host("a.bin")));
    struct stat status {};
    ASSERT_EQ(stat(Host("b.bin").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    EXPECT_EQ(FolderNames(root_), (std::vector<std::string>{"a.bin", "b.bin"}));
}

TEST_F(CopyFilePlatform, ReplacesWhatALinkLeadsToAndKeepsTheLink) {
    WriteFile("a.txt", "new");
    WriteFile("real.txt", "old");
    ASSERT_EQ(symlink("real.txt", Host("link.txt").c_str()), 0);
    EXPECT_EQ(Copy("a.txt", "link.txt"), TRUE);
    EXPECT_TRUE(fs::is_symlink(Host("link.txt")));
    EXPECT_EQ(ReadHostFile(Host("real.txt")), "new");
}

TEST_F(CopyFilePlatform, ASparseFileStaysSparse) {
    const off_t size = 16 << 20;
    {
        std::ofstream(Host("sparse.bin"));
    }
    ASSERT_EQ(truncate(Host("sparse.bin").c_str(), size), 0);
    {
        std::fstream file(Host("sparse.bin"), std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(10 << 20);
        file << std::string(8192, 'x');
    }
    EXPECT_EQ(Copy("sparse.bin", "copy.bin"), TRUE);
    struct stat status {};
    ASSERT_EQ(stat(Host("copy.bin").c_str(), &status), 0);
    EXPECT_EQ(status.st_size, size);
    EXPECT_LT(status.st_blocks * 512, 1 << 20) << "the holes were written out";
    EXPECT_TRUE(SameBytes(Host("copy.bin"), Host("sparse.bin")));
}

// ---- Odd files: pipes, sockets and devices in a host folder

class OddFiles : public HostFolderTest {
protected:
    void SetUp() override {
        HostFolderTest::SetUp();
        ASSERT_EQ(mkfifo(Host("pipe").c_str(), 0644), 0);
        ASSERT_EQ(symlink("/dev/zero", Host("zero").c_str()), 0);
        socket_ = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = Host("socket");
        ASSERT_LT(path.size(), sizeof address.sun_path);
        path.copy(address.sun_path, path.size());
        ASSERT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    void TearDown() override {
        close(socket_);
        HostFolderTest::TearDown();
    }
    int socket_ = -1;
};

TEST_F(OddFiles, AreListedAndLookedAtButNeverOpenedForTheirData) {
    for (const char* name : {"pipe", "zero", "socket"}) {
        const DWORD attributes = sys().GetFileAttributesW(Win(name));
        EXPECT_NE(attributes, INVALID_FILE_ATTRIBUTES) << name;
        EXPECT_EQ(attributes & FILE_ATTRIBUTE_DIRECTORY, 0u) << name;

        HANDLE look = sys().CreateFileW(Win(name), 0, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        EXPECT_NE(look, INVALID_HANDLE_VALUE) << name;
        sys().CloseHandle(look);

        for (const DWORD access : {static_cast<DWORD>(GENERIC_READ), static_cast<DWORD>(GENERIC_WRITE)}) {
            sys().SetLastError(kJunkError);
            EXPECT_EQ(sys().CreateFileW(Win(name), access, 0, nullptr, OPEN_EXISTING, 0, nullptr), INVALID_HANDLE_VALUE);
            EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_CANT_ACCESS_FILE)) << name;
        }
        sys().SetLastError(kJunkError);
        EXPECT_EQ(sys().CopyFileExW(Win(name), Win("copy"), nullptr, nullptr, nullptr, 0), FALSE);
        EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_CANT_ACCESS_FILE)) << name;
        // Nor is one replaced by a copy: it may be a device of the host's.
        WriteFile("a.txt", "a");
        sys().SetLastError(kJunkError);
        EXPECT_EQ(sys().CopyFileExW(Win("a.txt"), Win(name), nullptr, nullptr, nullptr, 0), FALSE);
        EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_CANT_ACCESS_FILE)) << name;
    }
    EXPECT_FALSE(fs::exists(Host("copy")));
    EXPECT_TRUE(fs::is_fifo(Host("pipe")));
}

TEST_F(CopyFilePlatform, CancelSetFromAnotherThreadMidwayStopsTheCopyWithNoTargetLeft) {
    WriteFile("a.bin", std::string(3 << 20, 'a'));
    BOOL cancel = FALSE;
    Canceller canceller(cancel);
    const LPPROGRESS_ROUTINE firesOnFirstChunk = [](LARGE_INTEGER, LARGE_INTEGER done, LARGE_INTEGER, LARGE_INTEGER, DWORD,
                                                    DWORD, HANDLE, HANDLE, LPVOID data) -> DWORD {
        if (done.QuadPart > 0) static_cast<Canceller*>(data)->Fire();
        return PROGRESS_CONTINUE;
    };
    sys().SetLastError(kJunkError);
    EXPECT_EQ(sys().CopyFileExW(Win("a.bin"), Win("b.bin"), firesOnFirstChunk, &canceller, &cancel, 0), FALSE);
    EXPECT_TRUE(canceller.fired());
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_REQUEST_ABORTED));
    EXPECT_FALSE(fs::exists(Host("b.bin")));
}

// ---- SHFileOperationW

using Names = std::vector<std::string>;

class ShellPlatform : public HostFolderTest {
protected:
    int Run(UINT function, const Names& from, const Names& to, FILEOP_FLAGS flags, BOOL* aborted = nullptr) {
        const CString fromList = List(from), toList = List(to);
        SHFILEOPSTRUCTW operation{nullptr, function, fromList, toList, flags, FALSE, nullptr, nullptr};
        const int result = sys().SHFileOperationW(&operation);
        if (aborted != nullptr) *aborted = operation.fAnyOperationsAborted;
        return result;
    }
    // The names on drive T:, each ended by a NUL; the string's own terminator ends the list.
    CString List(const Names& names) const {
        CString list;
        for (const std::string& name : names) list += Win(name) + CString(_T('\0'));
        return list;
    }
};

TEST_F(ShellPlatform, CopiesWhereTheToListSays) {
    WriteFile("src/a.txt", "a");
    WriteFile("src/sub/b.txt", "b");
    MakeFolder("src/empty");
    MakeFolder("into");
    const struct Case {
        Names from, to;
        FILEOP_FLAGS flags;
        const char *copy, *content;
    } cases[] = {
        {{"src\\*.*"}, {"new\\bk"}, FOF_NOCONFIRMATION, "new/bk/sub/b.txt", "b"},  // a folder made with its parents
        {{"src\\a.txt"}, {"into"}, 0, "into/a.txt", "a"},                          // an existing folder takes the file
        {{"src\\a.txt"}, {"named\\c.txt"}, 0, "named/c.txt", "a"},                 // otherwise the entry names the copy
        {{"src\\a.txt"}, {"two\\\\a.txt"}, 0, "two/a.txt", "a"},                   // two backslashes are one separator
        {{"src\\a.txt", "src\\sub\\*.*"}, {"m\\first.txt", "m\\data"}, FOF_MULTIDESTFILES, "m/data/b.txt", "b"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Run(FO_COPY, c.from, c.to, c.flags), 0) << c.copy;
        EXPECT_EQ(ReadHostFile(Host(c.copy)), c.content) << c.copy;
    }
    EXPECT_EQ(ReadHostFile(Host("new/bk/a.txt")), "a");
    EXPECT_TRUE(fs::is_directory(Host("new/bk/empty")));
    EXPECT_EQ(ReadHostFile(Host("m/first.txt")), "a");
}

TEST_F(ShellPlatform, AsksBeforeReplacingUnlessToldNotTo) {
    const struct Case {
        int answer;
        FILEOP_FLAGS flags;
        int result;
        BOOL aborted;
        const char* content;
        int asked;
    } cases[] = {
        {IDYES, 0, 0, FALSE, "new", 1},
        {IDNO, 0, 0, FALSE, "old", 1},
        {IDCANCEL, 0, ERROR_CANCELLED, TRUE, "old", 1},
        {vlx::kDialogCannotBeShown, 0, ERROR_CANCELLED, TRUE, "old", 1},
        {IDNO, FOF_NOCONFIRMATION, 0, FALSE, "new", 0},
    };
    for (const Case& c : cases) {
        WriteFile("src/a.txt", "new");
        WriteFile("bk/a.txt", "old");
        int asked = 0;
        ScopedResponder user([&](const vlx::DialogRequest& request) {
            ++asked;
            EXPECT_EQ(request.kind, vlx::DialogKind::ShellReplaceFile);
            EXPECT_EQ(U(request.source.c_str()), "T:\\src\\a.txt");
            EXPECT_EQ(U(request.target.c_str()), "T:\\bk\\a.txt");
            return c.answer;
        });
        BOOL aborted = -1;
        EXPECT_EQ(Run(FO_COPY, {"src\\*.*"}, {"bk"}, c.flags, &aborted), c.result) << c.answer;
        EXPECT_EQ(aborted, c.aborted) << c.answer;
        EXPECT_EQ(ReadHostFile(Host("bk/a.txt")), c.content) << c.answer;
        EXPECT_EQ(asked, c.asked);
    }
}

TEST_F(ShellPlatform, ShowsEachFilesProgressToTheHostUnlessSilent) {
    WriteFile("src/a.txt", "aaa");
    WriteFile("src/sub/b.txt", std::string(200000, 'b'));
    struct Seen {
        std::string source;
        ULONGLONG size, done;
    };
    std::vector<Seen> seen;
    struct RemoveObserver {
        ~RemoveObserver() { vlx::SetShellProgressObserver(nullptr); }
    } removeObserver;  // also when an assertion ends the test early
    vlx::SetShellProgressObserver([&](const vlx::ShellCopyProgress& progress) {
        seen.push_back({U(progress.source.c_str()), progress.fileBytes, progress.fileDone});
    });
    EXPECT_EQ(Run(FO_COPY, {"src\\*.*"}, {"bk"}, FOF_NOCONFIRMATION), 0);
    ASSERT_FALSE(seen.empty());
    // Each file is announced before its first byte, then told chunk by chunk up to its whole size.
    std::vector<std::string> files;
    for (size_t i = 0; i < seen.size(); ++i) {
        if (i == 0 || seen[i].source != seen[i - 1].source) {
            EXPECT_EQ(seen[i].done, 0u) << seen[i].source;
            files.push_back(seen[i].source);
        } else {
            EXPECT_GE(seen[i].done, seen[i - 1].done) << seen[i].source;
        }
        if (i + 1 == seen.size() || seen[i + 1].source != seen[i].source) {
            EXPECT_EQ(seen[i].done, seen[i].size) << seen[i].source;
        }
    }
    EXPECT_EQ(files, (std::vector<std::string>{"T:\\src\\a.txt", "T:\\src\\sub\\b.txt"}));
    EXPECT_EQ(seen.back().size, 200000u);

    seen.clear();
    EXPECT_EQ(Run(FO_COPY, {"src\\*.*"}, {"quiet"}, FOF_NOCONFIRMATION | FOF_SILENT), 0);
    EXPECT_TRUE(seen.empty()) << "a silent operation shows no progress";
}

TEST_F(ShellPlatform, RefusesWhatCannotBeDone) {
    WriteFile("a.txt", "a");
    MakeFolder("src/sub");
    WriteFile("file", "f");
    const struct Case {
        UINT function;
        Names from, to;
        FILEOP_FLAGS flags;
        int result;
    } cases[] = {
        {FO_COPY, {"missing.txt"}, {"bk"}, 0, ERROR_FILE_NOT_FOUND},
        {FO_COPY, {"a.txt", "missing.txt"}, {"bk"}, 0, ERROR_FILE_NOT_FOUND},  // checked before anything is copied
        {FO_COPY, {"a.txt"}, {"a.txt"}, 0, DE_SAMEFILE},
        {FO_COPY, {"src\\*.*"}, {"src\\sub\\deeper"}, 0, DE_DESTSUBTREE},
        {FO_COPY, {"src\\*.*"}, {"file"}, 0, DE_FLDDESTISFILE},
        {FO_COPY, {"a.txt", "src\\*.*"}, {"bk"}, FOF_MULTIDESTFILES, DE_MANYDEST},
        {FO_MOVE, {"a.txt"}, {"bk"}, 0, ERROR_NOT_SUPPORTED},
        {FO_DELETE, {"src"}, {}, FOF_ALLOWUNDO, ERROR_NOT_SUPPORTED},
    };
    for (const Case& c : cases) EXPECT_EQ(Run(c.function, c.from, c.to, FOF_NOCONFIRMATION | c.flags), c.result) << c.from[0];
    EXPECT_FALSE(fs::exists(Host("bk")));
    EXPECT_TRUE(fs::exists(Host("src/sub")));
    EXPECT_EQ(sys().SHFileOperationW(nullptr), ERROR_INVALID_PARAMETER);
}

TEST_F(ShellPlatform, CopyFailsWhenAFolderCannotBeListed) {
    // Deeper than a path may be: the folder past MAX_PATH cannot be listed, which is no empty folder.
    std::string deep = "src";
    for (int level = 0; level < 6; ++level) deep += "/" + std::string(50, 'd');
    WriteFile(deep + "/f.txt", "f");
    const int result = Run(FO_COPY, {"src\\*.*"}, {"dst"}, FOF_NOCONFIRMATION);
    EXPECT_TRUE(result == ERROR_FILENAME_EXCED_RANGE || result == ERROR_PATH_NOT_FOUND) << result;

    // A folder the user may not read; root reads every folder.
    if (geteuid() == 0) return;
    WriteFile("locked/sub/g.txt", "g");
    ASSERT_EQ(chmod(Host("locked/sub").c_str(), 0), 0);
    EXPECT_EQ(Run(FO_COPY, {"locked\\*.*"}, {"dst2"}, FOF_NOCONFIRMATION), ERROR_ACCESS_DENIED);
}

TEST_F(ShellPlatform, DeletesForGoodAfterAskingButNotThroughLinks) {
    WriteFile("tree/a.txt", "a");
    WriteFile("tree/sub/ro.txt", "r");
    chmod(Host("tree/sub/ro.txt").c_str(), 0444);
    WriteFile("kept/k.txt", "k");
    ASSERT_EQ(symlink(Host("kept").c_str(), Host("tree/link").c_str()), 0);
    std::vector<int> answers{IDNO, IDYES};
    ScopedResponder user([&](const vlx::DialogRequest& request) {
        EXPECT_EQ(request.kind, vlx::DialogKind::ShellDelete);
        const int answer = answers.front();
        answers.erase(answers.begin());
        return answer;
    });
    BOOL aborted = FALSE;
    EXPECT_EQ(Run(FO_DELETE, {"tree"}, {}, 0, &aborted), ERROR_CANCELLED);
    EXPECT_EQ(aborted, TRUE);
    EXPECT_TRUE(fs::exists(Host("tree/a.txt")));
    EXPECT_EQ(Run(FO_DELETE, {"tree"}, {}, 0), 0);
    EXPECT_FALSE(fs::exists(Host("tree")));
    EXPECT_EQ(ReadHostFile(Host("kept/k.txt")), "k");
}

// ---- TaskDialogIndirect

TEST(TaskDialogPlatform, FailsWithoutAResponderOrWithABadConfiguration) {
    TASKDIALOG_BUTTON button{100, _T("go")};
    TASKDIALOGCONFIG config{};
    config.cbSize = sizeof config;
    config.cButtons = 1;
    config.pButtons = &button;
    int pressed = 12345;
    EXPECT_EQ(sys().TaskDialogIndirect(&config, &pressed, nullptr, nullptr), E_FAIL);
    EXPECT_EQ(pressed, 0);

    ScopedResponder user([](const vlx::DialogRequest&) { return IDCANCEL; });
    // Esc is no answer for a dialog that may not be cancelled.
    EXPECT_EQ(sys().TaskDialogIndirect(&config, &pressed, nullptr, nullptr), E_FAIL);
    config.dwFlags = TDF_ALLOW_DIALOG_CANCELLATION;
    EXPECT_EQ(sys().TaskDialogIndirect(&config, &pressed, nullptr, nullptr), S_OK);
    EXPECT_EQ(pressed, IDCANCEL);
    config.cbSize = 12;
    EXPECT_EQ(sys().TaskDialogIndirect(&config, &pressed, nullptr, nullptr), E_INVALIDARG);
    EXPECT_EQ(sys().TaskDialogIndirect(nullptr, &pressed, nullptr, nullptr), E_INVALIDARG);
}

// ---- The progress bar

TEST(ProgressBarPlatform, KeepsItsRangeAndClampedPosition) {
    CProgressCtrl bar;
    ASSERT_TRUE(bar.Create(WS_CHILD, RECT{0, 0, 100, 10}, nullptr, 7));
    EXPECT_EQ(vlx::WindowClassName(bar.GetSafeHwnd()), WString(PROGRESS_CLASSW));
    const auto range = [&bar] {
        int low = -1, high = -1;
        bar.GetRange(low, high);
        return std::pair(low, high);
    };
    EXPECT_EQ(range(), std::pair(0, 100));
    EXPECT_EQ(bar.SendMessage(PBM_SETRANGE, 0, MAKELPARAM(10, 50)), MAKELONG(0, 100));
    EXPECT_EQ(range(), std::pair(10, 50));
    EXPECT_EQ(bar.SetPos(30), 10);  // the position was pulled up into the new range
    EXPECT_EQ(bar.GetPos(), 30);
    bar.SetPos(99);
    EXPECT_EQ(bar.GetPos(), 50);
    bar.SetRange(0, 100);
    EXPECT_EQ(bar.SetPos(-5), 50);
    EXPECT_EQ(bar.GetPos(), 0);
    EXPECT_EQ(bar.SendMessage(PBM_GETRANGE, TRUE, 0), 0);
    EXPECT_EQ(bar.SendMessage(PBM_GETRANGE, FALSE, 0), 100);
    bar.SetStep(60);
    bar.StepIt();
    bar.StepIt();  // past the top: starts again from the bottom
    EXPECT_EQ(bar.GetPos(), 20);
}

// ---- Lookups of names not found as typed follow every change to the folder, whoever makes it.

class FolderListings : public HostFolderTest {
protected:
    bool Exists(const std::string& relative) { return sys().GetFileAttributesW(Win(relative)) != INVALID_FILE_ATTRIBUTES; }
};

TEST_F(FolderListings, FollowChangesMadeOutsideThePlatform) {
    MakeFolder("dir");
    EXPECT_FALSE(Exists("dir\\report.txt"));  // the folder is now listed
    WriteFile("dir/REPORT.TXT", "r");
    EXPECT_TRUE(Exists("dir\\report.txt"));
    fs::rename(Host("dir/REPORT.TXT"), Host("dir/Other.txt"));
    EXPECT_FALSE(Exists("dir\\report.txt"));
    EXPECT_TRUE(Exists("dir\\OTHER.TXT"));
    fs::remove(Host("dir/Other.txt"));
    EXPECT_FALSE(Exists("dir\\other.txt"));
    WriteFile("dir/Ünïcode.txt", "u");
    EXPECT_TRUE(Exists("dir\\üNÏCODE.TXT"));
    // The folder replaced by another of the same name is listed afresh.
    fs::remove_all(Host("dir"));
    WriteFile("dir/New.txt", "n");
    EXPECT_TRUE(Exists("dir\\NEW.txt"));
    EXPECT_FALSE(Exists("dir\\report.txt"));
}

TEST_F(FolderListings, ManyFoldersStayCorrectWhenOldListingsAreDropped) {
    for (int i = 0; i < 100; ++i) {
        const std::string folder = std::string("f").append(std::to_string(i));
        MakeFolder(folder);
        EXPECT_FALSE(Exists(folder + "\\x.txt"));
    }
    for (int i = 0; i < 100; ++i) WriteFile(std::string("f").append(std::to_string(i)).append("/X.TXT"), "x");
    for (int i = 0; i < 100; ++i) EXPECT_TRUE(Exists(std::string("f").append(std::to_string(i)).append("\\x.txt"))) << i;
}

}  // namespace
