// ApiPatch: replace one entry of the platform table for the life of a scope, then restore it.
//
//     ApiPatch<&Win32Api::GetFileAttributesW> attrs([&](LPCWSTR path) { seen.push_back(path); return 0x20u; });
//
// The replacement may capture state. Original() reaches the entry that was there before, so a patch can
// record the values passed and still let the real operation run. Patches of one entry nest: an inner one
// (a test's own failure injected under a fixture's script) gives the outer one back when it ends. Inside
// an inner patch, Original() is the outer patch's replacement.
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

    explicit ApiPatch(Function replacement) : saved_(sys().*Member), outer_(std::move(Replacement())) {
        Replacement() = std::move(replacement);
        sys().*Member = &Trampoline;
    }
    ~ApiPatch() {
        sys().*Member = saved_;
        Replacement() = std::move(outer_);
    }
    ApiPatch(const ApiPatch&) = delete;
    ApiPatch& operator=(const ApiPatch&) = delete;

    Function Original() const {
        if (saved_ == &Trampoline) return outer_;
        return saved_;
    }

private:
    static Function& Replacement() {
        static Function function;
        return function;
    }
    static R WINAPI Trampoline(A... args) { return Replacement()(args...); }

    Entry saved_;
    Function outer_;  // the replacement of an enclosing patch of the same entry, if any
};
