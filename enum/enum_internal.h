// What the enumeration family's sources share: folder-path forms and the chaining of FileListNode records.
#pragma once

#include "../frame/frame_internal.h"
#include <cstdlib>
#include <memory>

#include "../frame/file_list.h"
#include "../frame/walk_guard.h"
#include "../platform/unique_handles.h"

// The folder path with one backslash at its end, appended when it has none (an empty path becomes "\").
CString WithTrailingBackslash(const CString& folder);

// "." and "..", which every folder but a root lists and no walk descends into.
bool IsDotsEntry(const WIN32_FIND_DATAW& entry);


// The cancel flag as another thread may have just set it: read afresh at every check, 1 alone cancels.
bool CancelRequested(const BOOL* pCancel);

// One level of the walk that both counting exports share. It reads the cancel flag at the start and
// before every entry, skips "." and "..", counts and chains each subfolder when countFolders is set,
// has descend(folderPath, tail) walk it (with its trailing backslash), then moves the tail past whatever
// that walk chained; every other entry goes to handleFile(fullPath, entry, tail). The enumeration is
// closed on every way out.
//
// A subfolder that is a reparse point (a junction, a link to a folder) is walked like any folder unless
// it leads back into a folder of this walk: that one is counted and listed but not entered, since it
// would otherwise be walked again at every level until the path outgrew MAX_PATH, and two such links in
// one folder make that exponential.
template <class Descend, class HandleFile>
void WalkOneLevel(const CString& folder, FileListNode* pListTail, bool countFolders, ULONGLONG* pFolderCount,
                  const BOOL* pCancel, Descend&& descend, HandleFile&& handleFile) {
    if (CancelRequested(pCancel)) return;
    const CString path = WithTrailingBackslash(folder);
    WIN32_FIND_DATAW entry{};
    UniqueFindHandle find(sys().FindFirstFileW(path + _T("*.*"), &entry));
    if (!find) return;  // nothing is counted for a folder that cannot be listed
    const WalkLevel level(path);
    FileListNode* tail = pListTail;
    do {
        if (CancelRequested(pCancel)) return;
        if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
            if (IsDotsEntry(entry)) continue;
            const CString subfolder = path + entry.cFileName + _T('\\');
            if (countFolders) {
                if (pFolderCount != nullptr) ++*pFolderCount;
                if (tail != nullptr) AppendNode(tail, subfolder);
            }
            if ((entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) && LeadsBackIntoWalk(subfolder)) continue;
            descend(subfolder, tail);
            if (tail != nullptr) {
                while (tail->next != nullptr) tail = tail->next;
            }
        } else {
            handleFile(path + entry.cFileName, entry, tail);
        }
    } while (sys().FindNextFileW(find.get(), &entry));
}
