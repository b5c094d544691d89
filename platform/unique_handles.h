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

// ---- COM: a reference to an interface (Release), a string (SysFreeString), a VARIANT (VariantClear).

// One reference to a COM interface, released when the owner goes or is reset. put() hands the address to a
// call that gives a new reference (CoCreateInstance, QueryInterface, NameSpace).
template <class Interface>
class UniqueComPtr {
public:
    UniqueComPtr() = default;
    ~UniqueComPtr() { reset(); }
    UniqueComPtr(const UniqueComPtr&) = delete;
    UniqueComPtr& operator=(const UniqueComPtr&) = delete;

    explicit operator bool() const noexcept { return pointer_ != nullptr; }
    Interface* get() const noexcept { return pointer_; }
    Interface* operator->() const noexcept { return pointer_; }
    Interface** put() noexcept {
        reset();
        return &pointer_;
    }
    void** put_void() noexcept { return reinterpret_cast<void**>(put()); }
    void reset() noexcept {
        if (pointer_ != nullptr) std::exchange(pointer_, nullptr)->Release();
    }

private:
    Interface* pointer_ = nullptr;
};

// A VARIANT that the holder owns: cleared through the table when it goes.
class UniqueVariant {
public:
    UniqueVariant() { sys().VariantInit(&value_); }
    ~UniqueVariant() { sys().VariantClear(&value_); }
    UniqueVariant(const UniqueVariant&) = delete;
    UniqueVariant& operator=(const UniqueVariant&) = delete;

    VARIANT& get() noexcept { return value_; }

private:
    VARIANT value_;
};

// The calling thread's COM apartment, entered with CoInitialize whatever it answers (as the shell exports
// do) and left once with CoUninitialize: at Leave(), where the order of release is written out, or at the
// end of the scope on a way out that does not reach it.
class UniqueApartment {
public:
    UniqueApartment() { sys().CoInitialize(nullptr); }
    ~UniqueApartment() { Leave(); }
    UniqueApartment(const UniqueApartment&) = delete;
    UniqueApartment& operator=(const UniqueApartment&) = delete;

    void Leave() noexcept {
        if (std::exchange(entered_, false)) sys().CoUninitialize();
    }

private:
    bool entered_ = true;
};
