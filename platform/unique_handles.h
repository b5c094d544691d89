// Owners of platform handles, one type per way of releasing them, so that no function body calls a
// release function by hand and every early return is safe.
//
//     UniqueHandle file(sys().CreateFileW(...));
//     if (!file) return 0;                     // nothing to close
//     sys().DeviceIoControl(file.get(), ...);  // closed on every way out
#pragma once

#include <utility>

#include "api.h"

// A handle released through one entry of the platform table. Both null and INVALID_HANDLE_VALUE mean "no
// handle": Win32 uses one or the other for failure depending on the function, and neither is ever valid.
// The release goes through the table when it happens, so a test that patches the entry sees it.
template <BOOL(WINAPI* Win32Api::*Release)(HANDLE)>
class UniqueSysHandle {
public:
    UniqueSysHandle() = default;
    explicit UniqueSysHandle(HANDLE handle) noexcept : handle_(handle) {}
    ~UniqueSysHandle() { reset(); }
    UniqueSysHandle(UniqueSysHandle&& other) noexcept : handle_(other.release()) {}
    UniqueSysHandle& operator=(UniqueSysHandle&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    UniqueSysHandle(const UniqueSysHandle&) = delete;
    UniqueSysHandle& operator=(const UniqueSysHandle&) = delete;

    explicit operator bool() const noexcept { return handle_ != nullptr && handle_ != INVALID_HANDLE_VALUE; }
    HANDLE get() const noexcept { return handle_; }

    // Releases the handle held now, if any, and takes the one given.
    void reset(HANDLE handle = nullptr) noexcept {
        if (*this) (sys().*Release)(handle_);
        handle_ = handle;
    }
    HANDLE release() noexcept { return std::exchange(handle_, nullptr); }

private:
    HANDLE handle_ = nullptr;
};

// Files, folders, devices and every other kernel object: CloseHandle.
using UniqueHandle = UniqueSysHandle<&Win32Api::CloseHandle>;
// Searches (FindFirstFileW, FindFirstFileNameW): FindClose.
using UniqueFindHandle = UniqueSysHandle<&Win32Api::FindClose>;

// Local memory (LocalAlloc): LocalFree, through the table like the handles above.
class UniqueLocal {
public:
    UniqueLocal() = default;
    explicit UniqueLocal(HLOCAL memory) noexcept : memory_(memory) {}
    ~UniqueLocal() { reset(); }
    UniqueLocal(const UniqueLocal&) = delete;
    UniqueLocal& operator=(const UniqueLocal&) = delete;

    explicit operator bool() const noexcept { return memory_ != nullptr; }
    HLOCAL get() const noexcept { return memory_; }
    void reset(HLOCAL memory = nullptr) noexcept {
        if (memory_ != nullptr) sys().LocalFree(memory_);
        memory_ = memory;
    }

private:
    HLOCAL memory_ = nullptr;
};
