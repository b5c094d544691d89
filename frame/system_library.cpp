// Loading a system library by file name from the system folder.
#include "system_library.h"

#include <cstring>

HMODULE LoadSystemLibrary(LPCWSTR fileName) {
    WCHAR systemFolder[MAX_PATH];
    std::memset(systemFolder, 0, sizeof systemFolder);
    sys().GetSystemDirectoryW(systemFolder, MAX_PATH);
    CString path;
    path.Format(_T("%s\\%s"), systemFolder, fileName);
    return sys().LoadLibraryW(path);
}
