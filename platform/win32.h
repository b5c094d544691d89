// Win32 types, constants and structures the library uses: the real headers on Windows, our own elsewhere.
#pragma once

#ifdef _WIN32
#include "windows/win32_native.h"
#else
#include "linux/win32_defs.h"
#endif
