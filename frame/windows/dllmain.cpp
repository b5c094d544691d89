// The DLL entry Windows calls at load, unload and thread exit.
#include "../frame_internal.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID /*reserved*/) {
    return VelmoraLibraryEntry(instance, reason);
}
