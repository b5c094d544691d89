// On Linux the shared object's constructor and destructor stand in for DllMain's process attach and detach.
#include "../frame_internal.h"

namespace {

__attribute__((constructor)) void VelmoraProcessAttach() { VelmoraLibraryEntry(nullptr, DLL_PROCESS_ATTACH); }

__attribute__((destructor)) void VelmoraProcessDetach() { VelmoraLibraryEntry(nullptr, DLL_PROCESS_DETACH); }

}  // namespace
