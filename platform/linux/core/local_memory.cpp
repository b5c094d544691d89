// Local memory (LocalAlloc, LocalFree) on the C heap, with the live blocks kept so that a block freed
// twice or never allocated is refused as Windows refuses it, and tests can count what is left.
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unordered_set>

#include "internal.h"
#include "table.h"

namespace vlx {

namespace {

std::mutex g_blocksLock;
std::unordered_set<void*> g_blocks;

}  // namespace

HLOCAL WINAPI LocalAlloc(UINT flags, SIZE_T bytes) {
    // Moveable memory needs LocalLock, which nothing here offers: only fixed blocks are served.
    if (flags & ~static_cast<UINT>(LMEM_ZEROINIT)) return Fail(ERROR_INVALID_PARAMETER, static_cast<HLOCAL>(nullptr));
    // A block of 0 bytes is still a block of its own, as on Windows.
    void* block = (flags & LMEM_ZEROINIT) ? std::calloc(bytes == 0 ? 1 : bytes, 1) : std::malloc(bytes == 0 ? 1 : bytes);
    if (block == nullptr) return Fail(ERROR_NOT_ENOUGH_MEMORY, static_cast<HLOCAL>(nullptr));
    std::lock_guard lock(g_blocksLock);
    g_blocks.insert(block);
    return block;
}

HLOCAL WINAPI LocalFree(HLOCAL memory) {
    if (memory == nullptr) return nullptr;
    {
        std::lock_guard lock(g_blocksLock);
        if (g_blocks.erase(memory) == 0) return Fail(ERROR_INVALID_HANDLE, memory);
    }
    std::free(memory);
    return nullptr;
}

size_t LocalBlockCount() {
    std::lock_guard lock(g_blocksLock);
    return g_blocks.size();
}

}  // namespace vlx
