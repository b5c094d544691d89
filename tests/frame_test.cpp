// The library frame: the exported class, the entry and the module-state guard.
#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

#include "../frame/frame_internal.h"

namespace {

TEST(Frame, CVelmoraAssignmentsReturnTheObjectAssignedTo) {
    CVelmora a, b;
    EXPECT_EQ(&(a = b), &a);
    EXPECT_EQ(&(a = CVelmora()), &a);
}

// Stands in for a user-interface export: it takes the guard first and leaves by every kind of path.
int GuardedCall(int how, AFX_MODULE_STATE** seenInside) {
    VELMORA_MANAGE_STATE();
    *seenInside = AfxGetModuleState();
    if (how == 0) return 0;
    if (how == 1) throw std::runtime_error("unwinds through the guard");
    return 1;
}

TEST(Frame, GuardMakesTheLibraryStateCurrentAndGivesTheCallersBackOnEveryPath) {
    std::thread([] {
        AFX_MODULE_STATE callerState(FALSE);
        AFX_MANAGE_STATE(&callerState);
        ASSERT_EQ(AfxGetModuleState(), &callerState);
        for (int how : {0, 1, 2}) {
            AFX_MODULE_STATE* inside = nullptr;
            try {
                GuardedCall(how, &inside);
            } catch (const std::runtime_error&) {
            }
            EXPECT_EQ(inside, VelmoraModuleState()) << how;
            EXPECT_EQ(AfxGetModuleState(), &callerState) << "after path " << how;
        }
    }).join();
    // Another thread never saw the switch.
    EXPECT_EQ(AfxGetModuleState(), AfxGetAppModuleState());
}

TEST(Frame, LoadingInitialisedTheLibrarysModuleStateAndJoinedTheResourceChain) {
    AFX_MODULE_STATE* state = VelmoraModuleState();
    EXPECT_TRUE(state->m_bDLL);
    EXPECT_TRUE(state->m_bCoreInitialized);
    EXPECT_TRUE(state->m_bInitialized);
    EXPECT_EQ(state->m_libraryList.size(), 1u);
    // The entry ran with the library's state current and left the loading thread's as it was.
    EXPECT_EQ(AfxGetModuleState(), AfxGetAppModuleState());
}

TEST(Frame, ThreadDetachRunsWithTheLibraryStateAndRestoresTheThreads) {
    std::thread([] {
        AFX_MODULE_STATE callerState(FALSE);
        AFX_MANAGE_STATE(&callerState);
        EXPECT_TRUE(VelmoraLibraryEntry(nullptr, DLL_THREAD_DETACH));
        EXPECT_EQ(AfxGetModuleState(), &callerState);
    }).join();
}

}  // namespace
