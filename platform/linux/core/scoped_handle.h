// Owners of the Linux platform's own handles, for platform code that opens objects through the Win32
// operations it implements: one type per way of releasing.
#pragma once

#include <unistd.h>

#include "table.h"

namespace vlx {

template <BOOL(WINAPI* Release)(HANDLE)>
class ScopedObject {
public:
    explicit ScopedObject(HANDLE handle = INVALID_HANDLE_VALUE) : handle_(handle) {}
    ~ScopedObject() { reset(); }
    ScopedObject(const ScopedObject&) = delete;
    ScopedObject& operator=(const ScopedObject&) = delete;

    explicit operator bool() const { return handle_ != INVALID_HANDLE_VALUE && handle_ != nullptr; }
    HANDLE get() const { return handle_; }
    void reset(HANDLE handle = INVALID_HANDLE_VALUE) {
        if (*this) Release(handle_);
        handle_ = handle;
    }

private:
    HANDLE handle_;
};

using ScopedHandle = ScopedObject<&CloseHandle>;
using ScopedFind = ScopedObject<&FindClose>;

// A host file descriptor, closed when it goes out of scope.
class HostFd {
public:
    explicit HostFd(int fd = -1) : fd_(fd) {}
    ~HostFd() { reset(); }
    HostFd(const HostFd&) = delete;
    HostFd& operator=(const HostFd&) = delete;
    explicit operator bool() const { return fd_ >= 0; }
    int get() const { return fd_; }
    void reset(int fd = -1);
    int release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

private:
    int fd_;
};

inline void HostFd::reset(int fd) {
    if (fd_ >= 0) close(fd_);
    fd_ = fd;
}

}  // namespace vlx
