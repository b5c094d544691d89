// What a host program (the command-line host, a test) tells the Linux platform about its world, and what
// it may ask of it: drive letters for host folders, and the count of open handles.
#pragma once

#include <string>

#include "../../afx/wstr.h"

namespace vlx {

// Maps a drive letter to a host folder, which becomes a host-folder volume. C: is the host root "/" unless
// remapped. False when the letter is not A-Z or the folder does not exist.
bool MapDrive(WCHAR letter, const std::string& hostFolder);
// Forgets a mapping; C: goes back to "/".
void UnmapDrive(WCHAR letter);
// The host folder behind a letter, empty when the letter is not mapped.
std::string DriveRoot(WCHAR letter);

// The Win32 path that names a host path: under the mapped folder with the longest match, else under C:.
WString HostToWin32Path(const std::string& hostPath);
// The host path a Win32 path stands for, matching existing components without regard to case; empty when
// the path cannot be resolved (bad drive, invalid name).
std::string Win32ToHostPath(LPCWSTR path);

// Every object open in the handle table: files, searches, devices, modules and the rest.
size_t OpenHandleCount();

}  // namespace vlx
