// Folder walk and counting: GetFileCountInFolder, and the pieces every walk of this family shares.
#include <atomic>
#include <cstring>

#include "../frame/extension_filter.h"
#include "enum_internal.h"

CString WithTrailingBackslash(const CString& folder) {
    if (!folder.IsEmpty() && folder[folder.GetLength() - 1] == _T('\\')) return folder;
    return folder + _T('\\');
}

bool IsDotsEntry(const WIN32_FIND_DATAW& entry) {
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return false;
    return WStrCmp(entry.cFileName, _T(".")) == 0 || WStrCmp(entry.cFileName, _T("..")) == 0;
}

bool CancelRequested(const BOOL* pCancel) {
    if (pCancel == nullptr) return false;
    // Another thread of the caller's may store into the flag while the walk runs.
    return std::atomic_ref<BOOL>(*const_cast<BOOL*>(pCancel)).load(std::memory_order_acquire) == 1;
}

VELMORA_EXPORT void GetFileCountInFolder(CString path, ULONGLONG* pFileCount, ULONGLONG* pFolderCount,
                                         ULONGLONG* pTotalSize, FileListNode* pListTail, CString extFilter,
                                         BOOL* pCancel) {
    VelmoraGuardedVoidCall([&] {
        WalkOneLevel(path, pListTail, extFilter.IsEmpty(), pFolderCount, pCancel,
                     [&](const CString& folder, FileListNode* tail) {
                         GetFileCountInFolder(CString(folder), pFileCount, pFolderCount, pTotalSize, tail,
                                              CString(extFilter), pCancel);
                     },
                     [&](const CString& filePath, const WIN32_FIND_DATAW& /*entry*/, FileListNode*& tail) {
                         if (!extFilter.IsEmpty() && !MatchesExtensionFilter(filePath, extFilter)) return;
                         if (pFileCount != nullptr) ++*pFileCount;
                         if (pTotalSize != nullptr) {
                             ULONGLONG size = 0;
                             if (GetFileLength(CString(filePath), &size) == 1) *pTotalSize += size;
                         }
                         if (tail != nullptr) AppendNode(tail, filePath);
                     });
    });
}
