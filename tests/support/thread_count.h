// Test support: how many threads the process runs, to prove that a call leaves none of its own behind.
#pragma once

#include <filesystem>

namespace testing_support {

inline size_t ThreadCount() {
    size_t count = 0;
    for ([[maybe_unused]] const auto& task : std::filesystem::directory_iterator("/proc/self/task")) ++count;
    return count;
}

}  // namespace testing_support
