// Folder comparison: CompareFolder lists both trees, then judges every entry of the first against its
// counterpart in the second (and, when asked, every entry of the second against the first).
#include "enum_internal.h"

namespace {

// A walk's list, behind a zeroed head of our own. Nodes are taken off the front one at a time and freed
// once judged; whatever is left is freed on every way out.
class OwnedList {
public:
    OwnedList() = default;
    ~OwnedList() {
        while (FileListNode* node = TakeFront()) std::free(node);
    }
    OwnedList(const OwnedList&) = delete;
    OwnedList& operator=(const OwnedList&) = delete;

    FileListNode* head() { return &head_; }
    FileListNode* TakeFront() {
        FileListNode* node = head_.next;
        if (node != nullptr) head_.next = node->next;
        return node;
    }

private:
    FileListNode head_{};
};

void ListTree(const CString& folder, OwnedList& list) {
    GetFileCountInFolder(CString(folder), nullptr, nullptr, nullptr, list.head(), CString(), nullptr);
}

// The part of a listed path after the compared folder's own text, compared exactly as the caller wrote
// it; false for a path that does not start with it or adds nothing.
bool RelativePath(const CString& listed, const CString& folder, CString& relative) {
    if (listed.GetLength() <= folder.GetLength() || listed.Left(folder.GetLength()) != folder) return false;
    relative = listed.Mid(folder.GetLength());
    return true;
}

// The last-write time stamp of an entry, 0 when it cannot be read. A listed folder ends in a backslash,
// which a search by name refuses, so the folder's own entry is asked for without it.
__time64_t WrittenTime(const CString& path) {
    CString entry = path;
    if (entry.GetLength() > 1 && entry[entry.GetLength() - 1] == _T('\\')) entry = entry.Left(entry.GetLength() - 1);
    __time64_t written = 0;
    GetFileDate(entry, nullptr, &written, nullptr);
    return written;
}

DWORD Differences(const CString& pathA, const CString& pathB, int useHash) {
    const DWORD attributesB = sys().GetFileAttributesW(pathB);
    if (attributesB == INVALID_FILE_ATTRIBUTES) return OnlyInA;

    DWORD bits = 0;
    const __time64_t writtenA = WrittenTime(pathA);
    const __time64_t writtenB = WrittenTime(pathB);
    if (writtenA > writtenB) bits |= NewerInA;
    else if (writtenA < writtenB) bits |= NewerInB;

    // A folder on the B side is compared by its time alone.
    if ((attributesB & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        ULONGLONG sizeA = 0;
        ULONGLONG sizeB = 0;
        GetFileLength(CString(pathA), &sizeA);  // a size that cannot be read stays 0
        GetFileLength(CString(pathB), &sizeB);
        if (sizeA != sizeB) bits |= SizeDiffers;
        if (useHash == 1 && CompareFileHash(CString(pathA), CString(pathB), CALG_MD5) == 1) bits |= ContentDiffers;
    }
    return bits;
}

}  // namespace

VELMORA_EXPORT void CompareFolder(CString folderA, CString folderB, FileListNode* pResultTail, int bothWays, int useHash) {
    VelmoraGuardedVoidCall([&] {
        if (pResultTail == nullptr) return;
        // An unreadable path answers with every bit set, so only an existing non-folder stops here; a
        // missing folder goes on and lists nothing.
        if ((sys().GetFileAttributesW(folderA) & FILE_ATTRIBUTE_DIRECTORY) == 0) return;
        if ((sys().GetFileAttributesW(folderB) & FILE_ATTRIBUTE_DIRECTORY) == 0) return;

        OwnedList listA;
        ListTree(folderA, listA);
        OwnedList listB;
        ListTree(folderB, listB);

        FileListNode* resultTail = pResultTail;
        while (UniqueListNode node{listA.TakeFront()}) {
            CString relative;
            if (!RelativePath(node->filePath, folderA, relative)) continue;
            const DWORD bits = Differences(node->filePath, folderB + relative, useHash);
            if (bits != 0) AppendNode(resultTail, relative, bits);
        }
        if (bothWays != 1) return;
        while (UniqueListNode node{listB.TakeFront()}) {
            CString relative;
            if (!RelativePath(node->filePath, folderB, relative)) continue;
            if (sys().GetFileAttributesW(folderA + relative) == INVALID_FILE_ATTRIBUTES) AppendNode(resultTail, relative, OnlyInB);
        }
    });
}
