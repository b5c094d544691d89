// The shell's delete on a host-folder volume: what a from-entry may and may not reach.
#include <filesystem>

#include "../support/host_fixture.h"
#include "../support/share_holder.h"

namespace {

using testing_support::HostFolderTest;
using testing_support::W;
namespace fs = std::filesystem;

class ShellDelete : public HostFolderTest {
protected:
    int Run(UINT function, const CString& from, const CString& to = CString()) {
        const CString fromList = from + CString(_T('\0'));
        const CString toList = to + CString(_T('\0'));
        SHFILEOPSTRUCTW operation{nullptr, function, fromList, toList, FOF_NOCONFIRMATION | FOF_SILENT | FOF_NOERRORUI, FALSE,
                                  nullptr, nullptr};
        return sys().SHFileOperationW(&operation);
    }
    size_t Count() const {
        size_t count = 0;
        for (auto it = fs::recursive_directory_iterator(root_); it != fs::recursive_directory_iterator(); ++it) ++count;
        return count;
    }
};

TEST_F(ShellDelete, NeverTakesAVolumeRootHoweverItIsWritten) {
    WriteFile("a/x.txt", "x");
    WriteFile("b/y.txt", "y");
    const size_t before = Count();
    // (A pattern such as T:\* names the root's entries, not the root, and is the caller's to ask for.)
    for (const char* root : {"T:\\", "T:\\a\\..", "T:\\a\\.\\..\\", "\\\\?\\T:\\", "T:/", "t:\\\\"})
        EXPECT_EQ(Run(FO_DELETE, W(root)), DE_ROOTDIR) << root;
    EXPECT_EQ(Count(), before);
}

TEST_F(ShellDelete, ABareDriveIsTheCurrentFolderOfThatDriveNotItsRoot) {
    WriteFile("a/here/x.txt", "x");
    WriteFile("a/other.txt", "o");
    WCHAR saved[MAX_PATH];
    ASSERT_GT(sys().GetCurrentDirectoryW(MAX_PATH, saved), 0u);
    ASSERT_TRUE(sys().SetCurrentDirectoryW(Win("a\\here")));
    // Copied from "T:", what lands is the current folder's content, not the volume's.
    EXPECT_EQ(Run(FO_COPY, W("T:"), Win("bk")), 0);
    EXPECT_TRUE(fs::exists(Host("bk/x.txt")));
    EXPECT_FALSE(fs::exists(Host("bk/a")));
    // Deleting it would take the current folder, which Windows holds open.
    EXPECT_EQ(Run(FO_DELETE, W("T:")), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(Run(FO_DELETE, Win("a")), ERROR_SHARING_VIOLATION);
    ASSERT_TRUE(sys().SetCurrentDirectoryW(saved));
    EXPECT_TRUE(fs::exists(Host("a/here/x.txt")));
    EXPECT_TRUE(fs::exists(Host("a/other.txt")));
}


TEST_F(ShellDelete, WhatAnotherProcessHoldsWithoutSharingDeletionStaysWithTheFoldersAboveIt) {
    MakeFolder("tree/inner");
    WriteFile("tree/inner/held.txt", "held");
    WriteFile("tree/inner/free.txt", "free");
    WriteFile("tree/other.txt", "other");
    {
        testing_support::HeldElsewhere held(root_, "T:\\tree\\inner\\held.txt", GENERIC_READ, FILE_SHARE_READ);
        EXPECT_EQ(Run(FO_DELETE, Win("tree")), ERROR_SHARING_VIOLATION);
        EXPECT_TRUE(fs::exists(Host("tree/inner/held.txt")));
        EXPECT_FALSE(fs::exists(Host("tree/inner/free.txt")));
        EXPECT_FALSE(fs::exists(Host("tree/other.txt")));
    }
    // Let go, it goes with the rest.
    EXPECT_EQ(Run(FO_DELETE, Win("tree")), 0);
    EXPECT_FALSE(fs::exists(Host("tree")));
}

}  // namespace
