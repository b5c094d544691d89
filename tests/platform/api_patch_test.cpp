// ApiPatch: patches of one table entry nest, and each reaches the one it replaced.
#include <gtest/gtest.h>

#include "../../platform/api_patch.h"

TEST(ApiPatch, InnerPatchGivesTheOuterOneBackAndReachesItAsOriginal) {
    const auto real = sys().GetFileAttributesW;
    {
        ApiPatch<&Win32Api::GetFileAttributesW> outer([](LPCWSTR) -> DWORD { return 1; });
        {
            ApiPatch<&Win32Api::GetFileAttributesW> inner([&](LPCWSTR path) -> DWORD { return inner.Original()(path) + 10; });
            EXPECT_EQ(sys().GetFileAttributesW(u"C:\\x"), 11u);
        }
        EXPECT_EQ(sys().GetFileAttributesW(u"C:\\x"), 1u);
    }
    EXPECT_EQ(sys().GetFileAttributesW, real);
}
