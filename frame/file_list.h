// The chaining of FileListNode records handed to callers, shared by every family that builds such a list.
#pragma once

#include <cstdlib>
#include <memory>

#include "frame_internal.h"

// A node of a list that the library is still holding, freed with free as the caller would.
struct FreeListNode {
    void operator()(FileListNode* node) const { std::free(node); }
};
using UniqueListNode = std::unique_ptr<FileListNode, FreeListNode>;

// Chains a new node for path behind *tail and makes it the tail: malloc'd, zeroed, the path written with
// a bounded format. A path that does not fit filePath, or memory that cannot be had, makes no node: a
// cut path would name another entry.
void AppendNode(FileListNode*& tail, LPCWSTR path, DWORD flags = 0);
