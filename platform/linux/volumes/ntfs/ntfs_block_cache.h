// A read cache of the volume's bytes in front of the image, for the small scattered reads libntfs-3g
// makes (a file record, an index block, a page of a bitmap), each of which would otherwise be a system
// call of its own. It is write-through: every write reaches the image before the call returns, and the
// cached blocks the write covers take its bytes, so whoever reads the image itself (a shadow copy saving
// what a write is about to overwrite, raw sector reads through the disk) and whoever reads through the
// cache see the same bytes. It is used under the engine's lock only.
#pragma once

#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <unordered_map>
#include <vector>

#include "../../../win32.h"

namespace vlx::ntfs {

class BlockCache {
public:
    // Reads up to count bytes at offset from where the cache fills from; the count read, fewer only at the
    // end of the bytes, or -1 with errno set.
    using Backing = std::function<long long(ULONGLONG offset, void* buffer, size_t count)>;

    // Reading a table record by record costs one system call per 64 records. The cache stays small:
    // what it serves is the table being walked and the few folders' indexes being searched, and fresh
    // memory is dear (a page fault per page on first use, dearer than the copy that fills it), so its
    // blocks also outlive the cache in a pool the next attachment takes them from.
    static constexpr size_t kBlockBytes = 64 * 1024;
    static constexpr size_t kDefaultBlocks = 64;

    explicit BlockCache(size_t capacityBlocks = kDefaultBlocks) : capacity_(capacityBlocks) {}
    ~BlockCache() { Clear(); }
    BlockCache(const BlockCache&) = delete;
    BlockCache& operator=(const BlockCache&) = delete;

    // As Backing, through the cache. A read of a whole block or more goes to the backing directly: it
    // gains nothing from the cache and would push out what does.
    long long Read(ULONGLONG offset, void* buffer, size_t count, const Backing& backing);
    // A write of these bytes reached the image: the blocks it covers take them.
    void Wrote(ULONGLONG offset, const void* data, size_t count);
    // A write that may have reached the image only in part: the blocks it covers are dropped.
    void Forget(ULONGLONG offset, size_t count);
    void Clear();

    size_t CachedBlocks() const { return blocks_.size(); }

private:
    struct Block {
        ULONGLONG number = 0;
        size_t valid = 0;  // bytes that the backing held; a block at the end of the bytes is short
        std::unique_ptr<BYTE[]> bytes;
    };
    using Order = std::list<Block>;  // most recently used first

    Block* Find(ULONGLONG number);
    void Drop(Order::iterator block);
    Block* Load(ULONGLONG number, const Backing& backing);

    size_t capacity_;
    Order order_;
    std::unordered_map<ULONGLONG, Order::iterator> blocks_;
};

}  // namespace vlx::ntfs
