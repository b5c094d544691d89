// Test support: a caller's other thread that sets a cancel flag while a call runs. The thread is started
// before the call and waits; the call's own thread, at a chosen point (a progress callback, a patched
// table entry), calls Fire(), which wakes the other thread and returns once the flag reads as set. No
// sleeping: the wait is on the flag itself, read without ordering, so nothing the other thread did
// becomes ordered before the call's next steps and a thread sanitizer still sees a non-atomic read of
// the flag by the call as the race it is.
#pragma once

#include <atomic>
#include <semaphore>
#include <thread>

#include "../../platform/win32.h"

namespace testing_support {

class Canceller {
public:
    explicit Canceller(BOOL& flag, BOOL value = TRUE) : flag_(flag), value_(value), thread_([this] { Run(); }) {}
    ~Canceller() {
        if (!fired_) {
            abandoned_.store(true);
            go_.release();
        }
        thread_.join();
    }
    Canceller(const Canceller&) = delete;
    Canceller& operator=(const Canceller&) = delete;

    // From the call's thread: has the other thread set the flag, and wait until the flag shows it.
    void Fire() {
        if (fired_) return;
        fired_ = true;
        go_.release();
        while (std::atomic_ref<BOOL>(flag_).load(std::memory_order_relaxed) != value_) std::this_thread::yield();
    }
    bool fired() const { return fired_; }

private:
    void Run() {
        go_.acquire();
        if (!abandoned_.load()) std::atomic_ref<BOOL>(flag_).store(value_, std::memory_order_relaxed);
    }

    BOOL& flag_;
    const BOOL value_;
    bool fired_ = false;  // touched by the call's thread only
    std::atomic<bool> abandoned_{false};
    std::binary_semaphore go_{0};
    std::thread thread_;
};

}  // namespace testing_support
