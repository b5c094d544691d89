// What the library's families share from the frame: the public interface and the library's module state.
#pragma once

#include <velmora/velmora.h>

#include "../platform/api.h"

// The library's own MFC module state, constructed at load and destroyed at unload.
AFX_MODULE_STATE* VelmoraModuleState();

// The library entry's work, the same on every platform: the Windows DllMain forwards to it.
BOOL VelmoraLibraryEntry(HINSTANCE instance, DWORD reason);

// The guard that the user-interface exports construct first: the library's module state is current for
// the whole call and the caller's is back on every return path.
#define VELMORA_MANAGE_STATE() AFX_MAINTAIN_STATE2 velmoraModuleStateGuard(VelmoraModuleState())
