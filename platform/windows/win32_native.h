// The real Windows SDK headers, with the subset and version the library is written against.
#pragma once

#ifndef UNICODE
#define UNICODE
#endif
#ifndef _UNICODE
#define _UNICODE
#endif
#ifndef _WIN32_WINNT
#define _WIN32_WINNT 0x0A00
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif

#include <windows.h>
#include <winioctl.h>
#include <shlwapi.h>
#include <tchar.h>
// Enumeration and comparison: CryptoAPI hashing and the list-view control.
#include <wincrypt.h>
#include <commctrl.h>
#include <wtypes.h>

#include <shellapi.h>
#include <commctrl.h>

// Shell archives and shortcuts: COM, the shell's automation objects and shell links.
#include <objbase.h>
#include <oleauto.h>
#include <shldisp.h>
#include <shobjidl.h>

// The master file table walk: ntdll's open by file id and name query, reached at run time.
#include <winternl.h>
#ifndef STATUS_SUCCESS
#define STATUS_SUCCESS ((NTSTATUS)0x00000000L)
#endif
