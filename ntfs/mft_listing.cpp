// Counting and listing a whole NTFS volume from its master file table: GetFileCountInFolderFromMFT and
// GetFileListFromMFT. Only the path's first character, the drive letter, is read.
#include <algorithm>
#include <string>
#include <vector>

#include "../frame/file_list.h"
#include "ntfs_internal.h"

namespace {

// The count asks for names into the same room as the name answer; the list into a node's worth.
constexpr DWORD kCountNameBytes = 4096;
constexpr DWORD kListNameBytes = 520;

}  // namespace

VELMORA_EXPORT void GetFileCountInFolderFromMFT(CString path, ULONGLONG* pFileCount, ULONGLONG* pFolderCount,
                                                ULONGLONG* pTotalSize, FileListNode* pListTail, CString /*extFilter*/) {
    VelmoraGuardedVoidCall([&] {
        BindNtFileFunctions();
        // An empty path reads as the NUL character, which names no volume.
        const WCHAR letter = path.IsEmpty() ? 0 : path[0];
        JournalVolume journal;
        if (!OpenJournalVolume(letter, journal)) return;

        // Every reference is collected before any lookup, so the walk's batches are not interleaved with
        // opens of the files they name.
        std::vector<ULONGLONG> references;
        EnumerateMftRecords(journal.volume.get(), journal.nextUsn,
                            [&](ULONGLONG reference) { references.push_back(reference); });

        std::vector<WCHAR> name(kCountNameBytes / sizeof(WCHAR));
        FileListNode* tail = pListTail;
        for (const ULONGLONG reference : references) {
            std::fill(name.begin(), name.end(), 0);
            if (LookupPathByReference(journal.volume.get(), reference, name.data(), kCountNameBytes) != 1) continue;
            const CString fullPath = MakeFullPath(letter, name.data());
            // A path too long for a node is counted without one.
            if (tail != nullptr) AppendNode(tail, fullPath);
            // INVALID_FILE_ATTRIBUTES has the directory bit set: an entry that cannot be read counts as a folder.
            const DWORD attributes = sys().GetFileAttributesW(fullPath);
            if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
                if (pFolderCount != nullptr) *pFolderCount += 1;
                continue;
            }
            if (pFileCount != nullptr) *pFileCount += 1;
            if (pTotalSize != nullptr) {
                ULONGLONG size = 0;
                if (GetFileLength(CString(fullPath), &size) == 1) *pTotalSize += size;
            }
        }
    });
}

VELMORA_EXPORT void GetFileListFromMFT(CString path, std::vector<std::basic_string<WCHAR>>* pList) {
    VelmoraGuardedVoidCall([&] {
        BindNtFileFunctions();
        if (pList == nullptr) return;
        const WCHAR letter = path.IsEmpty() ? 0 : path[0];
        JournalVolume journal;
        if (!OpenJournalVolume(letter, journal)) return;
        WCHAR name[kListNameBytes / sizeof(WCHAR)];
        EnumerateMftRecords(journal.volume.get(), journal.nextUsn, [&](ULONGLONG reference) {
            if (LookupPathByReference(journal.volume.get(), reference, name, kListNameBytes) != 1) return;
            pList->push_back(static_cast<LPCWSTR>(MakeFullPath(letter, name)));
        });
    });
}
