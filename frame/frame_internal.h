// What the library's families share from the frame: the public interface and the library's module state.
#pragma once

#include <velmora/velmora.h>

#include <utility>

#include "../platform/api.h"

// The library's own MFC module state, constructed at load and destroyed at unload.
AFX_MODULE_STATE* VelmoraModuleState();

// The library entry's work, the same on every platform: the Windows DllMain forwards to it.
BOOL VelmoraLibraryEntry(HINSTANCE instance, DWORD reason);

// The guard that the user-interface exports construct first: the library's module state is current for
// the whole call and the caller's is back on every return path.
#define VELMORA_MANAGE_STATE() AFX_MAINTAIN_STATE2 velmoraModuleStateGuard(VelmoraModuleState())

// Every export's body runs inside this: an exception from below (an allocation failing while a string is
// copied or a caller's array grows) ends the call with the export's failure value instead of crossing
// into a caller that cannot catch it. Resources held by the body are released by unwinding first.
template <class Result, class Body>
Result VelmoraGuardedCall(Result failure, Body&& body) noexcept {
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        return failure;
    }
}

// The same for the exports that return nothing.
template <class Body>
void VelmoraGuardedVoidCall(Body&& body) noexcept {
    VelmoraGuardedCall(0, [&] {
        body();
        return 0;
    });
}
