// ApiPatch: replace one entry of the platform table for the life of a scope, then restore it.
//
//     ApiPatch<&Win32Api::GetFileAttributesW> attrs([&](LPCWSTR path) { seen.push_back(path); return 0x20u; });
//
// The replacement may capture state. Original() reaches the entry that was there before, so a patch can
// record the values passed and still let the real operation run.
#pragma once

#include <functional>
#include <utility>

#include "api.h"

template <class MemberPointer>
struct ApiEntryTraits;

template <class R, class... A>
struct ApiEntryTraits<R(WINAPI* Win32Api::*)(A...)> {
    using Entry = R(WINAPI*)(A...);
};

template <auto Member, class Entry = typename ApiEntryTraits<decltype(Member)>::Entry>
class ApiPatch;

template <auto Member, class R, class... A>
class ApiPatch<Member, R(WINAPI*)(A...)> {
public:
    using Entry = R(WINAPI*)(A...);
    using Function = std::function<R(A...)>;

    explicit ApiPatch(Function replacement) : saved_(sys().*Member) {
        Replacement() = std::move(replacement);
        sys().*Member = &Trampoline;
    }
    ~ApiPatch() {
        sys().*Member = saved_;
        Replacement() = nullptr;
    }
    ApiPatch(const ApiPatch&) = delete;
    ApiPatch& operator=(const ApiPatch&) = delete;

    Entry Original() const { return saved_; }

private:
    static Function& Replacement() {
        static Function function;
        return function;
    }
    static R WINAPI Trampoline(A... args) { return Replacement()(args...); }

    Entry saved_;
};
