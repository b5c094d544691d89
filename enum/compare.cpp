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
// it; null for a path that does not start with it or adds nothing. A NUL inside the folder's text
// matches no listed path, which ends at its first NUL.
LPCWSTR RelativePart(LPCWSTR listed, const CString& folder) {
    const LPCWSTR text = folder.GetString();
    const int length = folder.GetLength();
    for (int i = 0; i < length; ++i) {
        if (listed[i] == 0 || listed[i] != text[i]) return nullptr;
    }
    return listed[length] != 0 ? listed + length : nullptr;
}

// The last-write time stamp of an entry, 0 when it cannot be read. A listed folder ends in a backslash,
// which a search by name refuses, so the folder's own entry is asked for without it.
__time64_t WrittenTime(LPCWSTR path, size_t length) {
    if (length > 1 && path[length - 1] == _T('\\')) --length;
    __time64_t written = 0;
    GetFileDate(CString(path, static_cast<int>(length)), nullptr, &written, nullptr);
    return written;
}

// Each export below gets its own copy of a path, made straight into its argument.
DWORD Differences(LPCWSTR pathA, const CString& pathB, int useHash) {
    const DWORD attributesB = sys().GetFileAttributesW(pathB);
    if (attributesB == INVALID_FILE_ATTRIBUTES) return OnlyInA;

    DWORD bits = 0;
    const __time64_t writtenA = WrittenTime(pathA, WStrLen(pathA));
    const __time64_t writtenB = WrittenTime(pathB, static_cast<size_t>(pathB.GetLength()));
    if (writtenA > writtenB) bits |= NewerInA;
    else if (writtenA < writtenB) bits |= NewerInB;

    // A folder on the B side is compared by its time alone.
    if ((attributesB & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        ULONGLONG sizeA = 0;
        ULONGLONG sizeB = 0;
        GetFileLength(pathA, &sizeA);  // a size that cannot be read stays 0
        GetFileLength(pathB, &sizeB);
        if (sizeA != sizeB) bits |= SizeDiffers;
        if (useHash == 1 && CompareFileHash(pathA, pathB, CALG_MD5) == 1) bits |= ContentDiffers;
    }
    return bits;
}

// folder followed by relative, in a buffer that keeps its room from one entry to the next.
void JoinInto(CString& joined, const CString& folder, LPCWSTR relative) {
    joined = folder;
    joined += relative;
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
        CString counterpart;
        while (UniqueListNode node{listA.TakeFront()}) {
            const LPCWSTR relative = RelativePart(node->filePath, folderA);
            if (relative == nullptr) continue;
            JoinInto(counterpart, folderB, relative);
            const DWORD bits = Differences(node->filePath, counterpart, useHash);
            if (bits != 0) AppendNode(resultTail, relative, bits);
        }
        if (bothWays != 1) return;
        while (UniqueListNode node{listB.TakeFront()}) {
            const LPCWSTR relative = RelativePart(node->filePath, folderB);
            if (relative == nullptr) continue;
            JoinInto(counterpart, folderA, relative);
            if (sys().GetFileAttributesW(counterpart) == INVALID_FILE_ATTRIBUTES) AppendNode(resultTail, relative, OnlyInB);
        }
    });
}
