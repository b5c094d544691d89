// Paths deeper than the host takes whole: made, used, listed and removed level by level through the
// Win32 calls, and kept exact while other programs move, replace and lock folders on the way.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "../support/host_fixture.h"

namespace {

using testing_support::HostFolderTest;
using testing_support::U;
using testing_support::W;

class DeepPath : public HostFolderTest {
protected:
    // "\\?\T:" and `levels` names, each `name`.
    static std::string Chain(int levels, const std::string& name) {
        std::string path = "\\\\?\\T:";
        for (int i = 0; i < levels; ++i) path += "\\" + name;
        return path;
    }
    // Makes the levels after the first `existing`.
    static bool MakeChain(int levels, const std::string& name, int existing = 0) {
        for (int i = existing + 1; i <= levels; ++i) {
            if (!sys().CreateDirectoryW(W(Chain(i, name)), nullptr)) return false;
        }
        return true;
    }
    static bool RemoveChain(int levels, const std::string& name) {
        bool removed = true;
        for (int i = levels; i > 0; --i) removed = sys().RemoveDirectoryW(W(Chain(i, name))) && removed;
        return removed;
    }
    static bool Put(const std::string& path, const std::string& content) {
        HANDLE file = sys().CreateFileW(W(path), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file == INVALID_HANDLE_VALUE) return false;
        DWORD written = 0;
        const bool ok = sys().WriteFile(file, content.data(), static_cast<DWORD>(content.size()), &written, nullptr);
        sys().CloseHandle(file);
        return ok && written == content.size();
    }
    static std::string Get(const std::string& path) {
        HANDLE file = sys().CreateFileW(W(path), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file == INVALID_HANDLE_VALUE) return "<" + std::to_string(sys().GetLastError()) + ">";
        char buffer[64] = {};
        DWORD read = 0;
        sys().ReadFile(file, buffer, sizeof buffer, &read, nullptr);
        sys().CloseHandle(file);
        return std::string(buffer, read);
    }
    // The host path of `levels` names under the test folder, for the host's own calls.
    std::string HostChain(int levels, const std::string& name) const {
        std::string path = root_;
        for (int i = 0; i < levels; ++i) path += "/" + name;
        return path;
    }
};

TEST_F(DeepPath, EveryCallWorksPastWhatTheHostTakesWhole) {
    // 600 names of 9 units: 6,000 units, and as many bytes on the host, past its 4,096.
    const std::string name(9, 'd');
    ASSERT_TRUE(MakeChain(600, name));
    const std::string deepest = Chain(600, name);
    ASSERT_TRUE(Put(deepest + "\\file.txt", "deep"));
    EXPECT_EQ(Get(deepest + "\\file.txt"), "deep");
    EXPECT_EQ(sys().GetFileAttributesW(W(deepest)) & FILE_ATTRIBUTE_DIRECTORY, static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY));
    ASSERT_TRUE(sys().CopyFileW(W(deepest + "\\file.txt"), W(deepest + "\\copy.txt"), TRUE));
    EXPECT_EQ(Get(deepest + "\\copy.txt"), "deep");

    // The listing holds what is there, with ".." the folder above.
    std::vector<std::string> names;
    WIN32_FIND_DATAW data{};
    HANDLE find = sys().FindFirstFileW(W(deepest + "\\*"), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    do {
        names.push_back(U(data.cFileName));
        if (names.back() == "..") {
            EXPECT_TRUE(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY);
        }
    } while (sys().FindNextFileW(find, &data));
    sys().FindClose(find);
    EXPECT_EQ(names, (std::vector<std::string>{".", "..", "copy.txt", "file.txt"}));

    // The host holds the file where the path says, under the test folder and nowhere else.
    int folder = open(root_.c_str(), O_PATH | O_DIRECTORY);
    for (int i = 0; i < 600 && folder >= 0; ++i) {
        const int next = openat(folder, name.c_str(), O_PATH | O_DIRECTORY);
        close(folder);
        folder = next;
    }
    ASSERT_GE(folder, 0);
    struct stat status {};
    EXPECT_EQ(fstatat(folder, "file.txt", &status, 0), 0);
    EXPECT_EQ(status.st_size, 4);
    close(folder);

    EXPECT_TRUE(sys().DeleteFileW(W(deepest + "\\file.txt")));
    EXPECT_TRUE(sys().DeleteFileW(W(deepest + "\\copy.txt")));
    EXPECT_TRUE(RemoveChain(600, name));
    EXPECT_EQ(sys().GetFileAttributesW(W(Chain(1, name))), INVALID_FILE_ATTRIBUTES);
}

TEST_F(DeepPath, APathMeansWhatItNamesNowWhateverOthersDidOnTheWay) {
    ASSERT_TRUE(MakeChain(40, "n"));
    const std::string mark = Chain(40, "n") + "\\mark.txt";
    ASSERT_TRUE(Put(mark, "old"));
    ASSERT_EQ(Get(mark), "old");

    // Another program moves a folder in the middle away and builds the same names anew.
    ASSERT_EQ(rename(HostChain(10, "n").c_str(), Host("moved").c_str()), 0);
    EXPECT_EQ(sys().GetFileAttributesW(W(mark)), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
    ASSERT_TRUE(MakeChain(40, "n", 9));
    ASSERT_TRUE(Put(mark, "new"));
    EXPECT_EQ(Get(mark), "new");

    // ...then puts a link to the moved folder in its place: the path leads through the link.
    ASSERT_EQ(rename(HostChain(10, "n").c_str(), Host("second").c_str()), 0);
    ASSERT_EQ(symlink(Host("moved").c_str(), HostChain(10, "n").c_str()), 0);
    EXPECT_EQ(Get(mark), "old");
    ASSERT_EQ(unlink(HostChain(10, "n").c_str()), 0);
    ASSERT_EQ(symlink(Host("second").c_str(), HostChain(10, "n").c_str()), 0);
    EXPECT_EQ(Get(mark), "new");

    // A folder that may no longer be entered refuses what is below it.
    if (geteuid() != 0) {
        ASSERT_EQ(chmod(HostChain(5, "n").c_str(), 0600), 0);
        EXPECT_EQ(Get(mark), std::to_string(ERROR_ACCESS_DENIED).insert(0, "<") + ">");
        ASSERT_EQ(chmod(HostChain(5, "n").c_str(), 0700), 0);
        EXPECT_EQ(Get(mark), "new");
    }
}

TEST_F(DeepPath, AHandleKeepsItsFolderAfterTheFolderIsLetGo) {
    ASSERT_TRUE(MakeChain(30, "a"));
    const std::string doomed = Chain(30, "a") + "\\x.txt";
    ASSERT_TRUE(Put(doomed, "a"));
    HANDLE held = sys().CreateFileW(W(doomed), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    ASSERT_NE(held, INVALID_HANDLE_VALUE);
    // Far more folders than are held open at once, each with a file of the same name, so that the
    // numbers of let-go folders are taken again by others.
    ASSERT_TRUE(MakeChain(400, "b"));
    for (int level = 30; level <= 400; level += 10) ASSERT_TRUE(Put(Chain(level, "b") + "\\x.txt", "b"));
    sys().CloseHandle(held);
    EXPECT_EQ(sys().GetFileAttributesW(W(doomed)), INVALID_FILE_ATTRIBUTES);
    for (int level = 30; level <= 400; level += 10) EXPECT_EQ(Get(Chain(level, "b") + "\\x.txt"), "b") << level;

    for (int level = 30; level <= 400; level += 10) sys().DeleteFileW(W(Chain(level, "b") + "\\x.txt"));
    EXPECT_TRUE(RemoveChain(400, "b"));
}

TEST_F(DeepPath, ConcurrentThreadsReachTheirOwnDeepFoldersWhileAnotherMovesFolders) {
    // Each thread builds, writes and reads its own chain while the held folders change under another
    // chain being moved to and fro by the host.
    ASSERT_TRUE(MakeChain(30, "m"));
    std::atomic<bool> done{false};
    std::thread mover([&] {
        for (int i = 0; i < 200 && !done.load(); ++i) {
            rename(HostChain(15, "m").c_str(), Host("parked").c_str());
            rename(Host("parked").c_str(), HostChain(15, "m").c_str());
        }
    });
    std::vector<std::thread> workers;
    std::atomic<int> good{0};
    for (int t = 0; t < 4; ++t) {
        workers.emplace_back([&, t] {
            const std::string name = "t" + std::to_string(t);
            if (!MakeChain(30, name)) return;
            for (int round = 0; round < 20; ++round) {
                const std::string file = Chain(30, name) + "\\f" + std::to_string(round);
                if (!Put(file, name) || Get(file) != name) return;
                sys().GetFileAttributesW(W(Chain(30, "m")));  // through the folders being moved
            }
            good.fetch_add(1);
        });
    }
    for (std::thread& worker : workers) worker.join();
    done = true;
    mover.join();
    EXPECT_EQ(good.load(), 4);
    EXPECT_NE(sys().GetFileAttributesW(W(Chain(30, "m"))), INVALID_FILE_ATTRIBUTES);
}

}  // namespace

namespace {

class PathSequence : public testing_support::HostFolderTest {};

// Each path is taken apart only after the text it shares with the path before it: whatever came before,
// a path must resolve as it does after a path sharing nothing with it.
TEST_F(PathSequence, APathResolvesTheSameWhateverWasResolvedBefore) {
    std::string deep = "T:";
    for (int i = 0; i < 30; ++i) deep += "\\d";
    for (const char* file : {"Ab/cd/e.txt", "Ab/c/x", "Ab/cd./y", "Ab/dd/z"}) WriteFile(file, "x");
    std::string deepHost;
    for (int i = 0; i < 30; ++i) deepHost += "d/";
    WriteFile(deepHost + "e", "x");
    WriteFile(deepHost + "dd/f", "x");
    WriteFile(deepHost.substr(0, deepHost.size() - 2) + "dd/h", "x");

    // The 30th level's sibling "ddd" shares its text's start with "d", under which "d\\x" exists too.
    const std::string level29 = deep.substr(0, deep.size() - 2);
    WriteFile(deepHost.substr(0, deepHost.size() - 2) + "ddd/x/h", "x");
    MakeFolder(deepHost + "d/x");

    const std::vector<std::string> paths = {
        "T:\\Ab\\cd\\e.txt", "T:\\Ab\\cd", "T:\\Ab\\c\\x", "T:\\Ab\\cd\\e.txt\\", "T:\\Ab\\c", "T:\\ab\\CD\\E.TXT",
        "T:\\Ab\\cd\\e.tx", "T:\\Ab\\cd\\e.txt.more", "\\\\?\\T:\\Ab\\cd\\e.txt", "T:\\Ab\\c\\x\\..\\x", "T:\\Ab\\cd\\e.txt  ",
        "T:\\Ab\\cd\uF02E\\y", "T:\\Ab\\dd\\z", "T:\\Ab\\d", "T:\\Ab\\cd\\new", "T:\\Ab\\cd\\e.txt\\new", "T:\\Ab\\c*",
        deep, deep + "\\e", deep + "\\dd\\f", level29 + "\\dd", level29 + "\\dd\\h", level29 + "\\ddd\\x\\h",
        deep + "\\E", deep + "\\missing\\f", "\\\\?\\" + deep + "\\e", "T:\\", "T:\\Ab\\..\\..\\Ab"};
    // What a path resolves to: its host path and its attribute word.
    auto resolve = [](const std::string& path) {
        return vlx::Win32ToHostPath(W(path)) + " " + std::to_string(sys().GetFileAttributesW(W(path)));
    };
    // A path on another drive shares no text with any of them.
    std::vector<std::string> expected;
    for (const std::string& path : paths) {
        resolve("C:\\");
        expected.push_back(resolve(path));
    }
    EXPECT_EQ(expected[0], Host("Ab/cd/e.txt") + " " + std::to_string(FILE_ATTRIBUTE_ARCHIVE));
    EXPECT_EQ(expected[5], expected[0]);
    EXPECT_EQ(expected[11].substr(0, Host("Ab/cd./y").size()), Host("Ab/cd./y"));
    EXPECT_EQ(expected[22], Host(deepHost.substr(0, deepHost.size() - 2) + "ddd/x/h") + " " + std::to_string(FILE_ATTRIBUTE_ARCHIVE));
    EXPECT_EQ(expected[18], Host(deepHost + "e") + " " + std::to_string(FILE_ATTRIBUTE_ARCHIVE));
    for (size_t before = 0; before < paths.size(); ++before) {
        for (size_t after = 0; after < paths.size(); ++after) {
            resolve(paths[before]);
            EXPECT_EQ(resolve(paths[after]), expected[after]) << paths[before] << " then " << paths[after];
        }
    }
}

}  // namespace
