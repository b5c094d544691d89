// The library frame: the exported class, the public layouts and the module-state guard.
#include <gtest/gtest.h>

#include <thread>

#include "../frame/frame_internal.h"

TEST(Frame, FileListNodeLayoutIsTheExportedOne) {
    EXPECT_EQ(sizeof(FileListNode), 532u);
    EXPECT_EQ(offsetof(FileListNode, flags), 520u);
    EXPECT_EQ(offsetof(FileListNode, next), 524u);
    EXPECT_EQ(sizeof(SectorExtent), 16u);
}
