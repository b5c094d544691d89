// Owners of the Linux platform's own handles, for platform code that opens objects through the Win32
// operations it implements: one type per way of releasing.
#pragma once

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

}  // namespace vlx
