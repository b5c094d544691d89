// Test support: a file held open by another process of the platform (tests/helpers/share_holder), for
// the cases where a file is in use elsewhere. The helper is started with pipes, answers once it holds
// the file, and lets go when its input is closed; nothing waits on the clock.
#pragma once

#include <gtest/gtest.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "../../platform/win32.h"

extern char** environ;

namespace testing_support {

class HeldElsewhere {
public:
    // Opens winPath (a path on T:, which the helper maps to hostFolder) in the helper process.
    HeldElsewhere(const std::string& hostFolder, const std::string& winPath, DWORD access, DWORD share,
                  DWORD flags = FILE_ATTRIBUTE_NORMAL) {
        const std::string helper =
            (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "velmora_share_holder").string();
        int toHelper[2], fromHelper[2];
        if (pipe2(toHelper, O_CLOEXEC) != 0 || pipe2(fromHelper, O_CLOEXEC) != 0) {
            ADD_FAILURE() << "no pipes";
            return;
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, toHelper[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, fromHelper[1], STDOUT_FILENO);
        const std::string numbers[] = {std::to_string(access), std::to_string(share), std::to_string(flags)};
        const char* args[] = {helper.c_str(), hostFolder.c_str(), winPath.c_str(), numbers[0].c_str(),
                              numbers[1].c_str(), numbers[2].c_str(), nullptr};
        const int spawned = posix_spawn(&pid_, helper.c_str(), &actions, nullptr, const_cast<char**>(args), environ);
        posix_spawn_file_actions_destroy(&actions);
        close(toHelper[0]);
        close(fromHelper[1]);
        input_ = toHelper[1];
        if (spawned != 0) {
            pid_ = -1;
            close(fromHelper[0]);
            ADD_FAILURE() << "cannot start " << helper;
            return;
        }
        // The helper's one line comes once its open is done: from then on the file is held.
        std::string line;
        char c;
        while (read(fromHelper[0], &c, 1) == 1 && c != '\n') line += c;
        close(fromHelper[0]);
        openError_ = line.empty() ? ~0u : static_cast<DWORD>(std::strtoul(line.c_str(), nullptr, 10));
    }
    ~HeldElsewhere() { Release(); }
    HeldElsewhere(const HeldElsewhere&) = delete;
    HeldElsewhere& operator=(const HeldElsewhere&) = delete;

    // The helper's open: ERROR_SUCCESS when it holds the file.
    DWORD openError() const { return openError_; }

    // Closes the helper's input and waits for it to end, so that its handle is gone.
    void Release() {
        if (input_ >= 0) close(input_);
        input_ = -1;
        if (pid_ > 0) {
            int status = 0;
            waitpid(pid_, &status, 0);
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the helper failed";
        }
        pid_ = -1;
    }

private:
    pid_t pid_ = -1;
    int input_ = -1;
    DWORD openError_ = ~0u;
};

}  // namespace testing_support
