// Test support over the Linux platform: a temporary host folder mapped to a drive letter, removed
// afterwards, and a check that no handle is left open.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <velmora/velmora.h>

#include "../../platform/api.h"
#include "../../platform/linux/host.h"

namespace testing_support {

// A value no call sets by itself, put into the last error before a call so that the code after it is
// known to come from that call.
constexpr DWORD kJunkError = 0xdeadbeef;

inline CString W(const std::string& utf8) { return CString(WStrFromUtf8(utf8).c_str()); }
inline std::string U(LPCWSTR text) { return WStrToUtf8(text); }

// Each test gets its own folder under the system temporary folder, mapped as drive T:.
class HostFolderTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/velmora-test-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        root_ = pattern;
        ASSERT_TRUE(vlx::MapDrive('T', root_));
        handlesBefore_ = vlx::OpenHandleCount();
    }
    void TearDown() override {
        EXPECT_EQ(vlx::OpenHandleCount(), handlesBefore_) << "a handle was left open";
        vlx::UnmapDrive('T');
        std::error_code ignored;
        // Read-only folders cannot be emptied until they are writable again.
        for (auto it = std::filesystem::recursive_directory_iterator(root_, ignored);
             it != std::filesystem::recursive_directory_iterator(); it.increment(ignored)) {
            if (!it->is_symlink()) chmod(it->path().c_str(), 0700);
        }
        chmod(root_.c_str(), 0700);
        std::filesystem::remove_all(root_, ignored);
    }

    // Host path of a name under the test folder.
    std::string Host(const std::string& relative) const { return root_ + "/" + relative; }
    // The same place as the library sees it, on drive T:.
    CString Win(const std::string& relative) const {
        std::string path = "T:\\" + relative;
        for (char& c : path) {
            if (c == '/') c = '\\';
        }
        return W(path);
    }
    void WriteFile(const std::string& relative, const std::string& content) const {
        std::filesystem::create_directories(std::filesystem::path(Host(relative)).parent_path());
        std::ofstream(Host(relative), std::ios::binary) << content;
    }
    void MakeFolder(const std::string& relative) const { std::filesystem::create_directories(Host(relative)); }

    std::string root_;
    size_t handlesBefore_ = 0;
};

}  // namespace testing_support
