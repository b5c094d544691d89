// Folder content test: IsFileExistsInFolder stops at the first entry that is not "." or "..".
#include "../platform/unique_handles.h"
#include "enum_internal.h"

VELMORA_EXPORT int IsFileExistsInFolder(CString path) {
    return VelmoraGuardedCall(0, [&] {
        const CString pattern = WithTrailingBackslash(path) + _T("*.*");
        WIN32_FIND_DATAW entry{};
        UniqueFindHandle find(sys().FindFirstFileW(pattern, &entry));
        if (!find) return 0;
        do {
            if (!IsDotsEntry(entry)) return 1;
        } while (sys().FindNextFileW(find.get(), &entry));
        return 0;
    });
}
