// File facts: time stamps, size, kind and hard-link names of one path.
#include <algorithm>
#include <iterator>

#include "../frame/frame_internal.h"
#include "../platform/unique_handles.h"

namespace {

// The lookup that GetFileDate and GetFileLength share: the path is a search pattern, so the entry found is
// the path's own directory entry (a folder's own, not its contents), or a wildcard pattern's first match.
bool FindOwnEntry(const CString& path, CFileFind& finder) {
    if (!finder.FindFile(path)) return false;
    // FindNextFile makes the first match current; it answers 0 with ERROR_NO_MORE_FILES when that match is
    // the only one, which is the usual case for a plain path.
    return finder.FindNextFile() || sys().GetLastError() == ERROR_NO_MORE_FILES;
}

void StoreTime(__time64_t* out, const CFileFind& finder, BOOL (CFileFind::*getTime)(CTime&) const) {
    if (out == nullptr) return;
    CTime time;
    (finder.*getTime)(time);
    *out = time.GetTime();
}

// Appends the names of a file that has `links` of them. The platform gives the first name, then at most
// one further name per link, so a platform that keeps answering cannot hold the call; the first refusal
// (no more names, or a name that does not fit the buffer) ends the list.
void AppendLinkNames(const CString& path, DWORD links, CStringArray& names) {
    WCHAR name[MAX_PATH];
    DWORD length = MAX_PATH;
    std::fill(std::begin(name), std::end(name), WCHAR{0});
    UniqueFindHandle find(sys().FindFirstFileNameW(path, 0, &length, name));
    if (!find) return;
    // The buffer is read only up to its last unit, whatever the platform wrote into it.
    name[MAX_PATH - 1] = 0;
    names.SetAtGrow(names.GetSize(), name);
    for (DWORD further = 0; further < links; ++further) {
        length = MAX_PATH;
        std::fill(std::begin(name), std::end(name), WCHAR{0});
        if (!sys().FindNextFileNameW(find.get(), &length, name)) break;
        name[MAX_PATH - 1] = 0;
        names.SetAtGrow(names.GetSize(), name);
    }
}

}  // namespace

VELMORA_EXPORT int GetFileDate(CString path, __time64_t* created, __time64_t* written, __time64_t* accessed) {
    return VelmoraGuardedCall(0, [&] {
        CFileFind finder;
        if (!FindOwnEntry(path, finder)) return 0;
        StoreTime(created, finder, &CFileFind::GetCreationTime);
        StoreTime(written, finder, &CFileFind::GetLastWriteTime);
        StoreTime(accessed, finder, &CFileFind::GetLastAccessTime);
        finder.Close();
        return 1;
    });
}

VELMORA_EXPORT int GetFileLength(CString path, ULONGLONG* length) {
    return VelmoraGuardedCall(0, [&] {
        if (length == nullptr) return 0;
        CFileFind finder;
        if (!FindOwnEntry(path, finder)) return 0;
        *length = finder.GetLength();
        finder.Close();
        return 1;
    });
}

VELMORA_EXPORT int GetPathIsFileOrFolder(CString path) {
    return VelmoraGuardedCall(-1, [&] {
        if (!sys().PathFileExistsW(path)) return -1;
        if (sys().PathIsDirectoryW(path)) return 2;
        return sys().GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES ? 1 : -1;
    });
}

VELMORA_EXPORT int GetFileIsHardlink(CString path, CStringArray* names) {
    return VelmoraGuardedCall(-1, [&] {
        DWORD links = 0;
        {
            // Without sharing: a file that another handle holds open cannot be asked. A folder does not
            // open without backup semantics, so it cannot be asked either.
            UniqueHandle file(sys().CreateFileW(path, GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
            if (!file) return -1;
            BY_HANDLE_FILE_INFORMATION information{};
            if (!sys().GetFileInformationByHandle(file.get(), &information)) return -1;
            links = information.nNumberOfLinks;
        }  // closed before the names are asked for: that enumeration opens the file itself
        if (links <= 1) return 0;
        if (names != nullptr) AppendLinkNames(path, links, *names);
        return static_cast<int>(links);
    });
}
