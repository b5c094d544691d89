// Loading a library of the system's by file name from the system folder, as the image and snapshot
// families load wimgapi.dll and vssapi.dll at run time rather than linking them.
#pragma once

#include "frame_internal.h"

// The system folder (fetched into a zero-filled MAX_PATH buffer), one backslash and the file name, handed
// to LoadLibraryW: the module, or null with the loader's last error.
HMODULE LoadSystemLibrary(LPCWSTR fileName);
