// The chaining of FileListNode records handed to callers.
#include "file_list.h"

#include <cstring>

void AppendNode(FileListNode*& tail, LPCWSTR path, DWORD flags) {
    // The caller owns every node that reaches the chain and frees it with free, so it comes from malloc.
    UniqueListNode node(static_cast<FileListNode*>(std::malloc(sizeof(FileListNode))));
    if (!node) return;
    std::memset(node.get(), 0, sizeof(FileListNode));
    if (WStrFormatBuffer(node->filePath, MAX_PATH, _T("%s"), path) < 0) return;
    node->flags = flags;
    tail->next = node.release();
    tail = tail->next;
}
