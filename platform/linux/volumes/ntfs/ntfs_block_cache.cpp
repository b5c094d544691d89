// The engine's read cache of the volume's bytes: fixed blocks kept in the order they were last used.
#include "ntfs_block_cache.h"

#include <algorithm>
#include <cstring>
#include <mutex>

namespace vlx::ntfs {

namespace {

// Block buffers given back by caches, for the next cache to take; as many as one cache holds at most.
class BufferPool {
public:
    std::unique_ptr<BYTE[]> Take() {
        {
            std::lock_guard guard(lock_);
            if (!free_.empty()) {
                std::unique_ptr<BYTE[]> buffer = std::move(free_.back());
                free_.pop_back();
                return buffer;
            }
        }
        return std::unique_ptr<BYTE[]>(new BYTE[BlockCache::kBlockBytes]);
    }
    void Give(std::unique_ptr<BYTE[]> buffer) {
        std::lock_guard guard(lock_);
        if (buffer && free_.size() < BlockCache::kDefaultBlocks) free_.push_back(std::move(buffer));
    }

private:
    std::mutex lock_;
    std::vector<std::unique_ptr<BYTE[]>> free_;
};

BufferPool& Pool() {
    static BufferPool* pool = new BufferPool;  // never destroyed: caches may outlive static destruction
    return *pool;
}

}  // namespace

BlockCache::Block* BlockCache::Find(ULONGLONG number) {
    const auto found = blocks_.find(number);
    if (found == blocks_.end()) return nullptr;
    order_.splice(order_.begin(), order_, found->second);
    return &*found->second;
}

BlockCache::Block* BlockCache::Load(ULONGLONG number, const Backing& backing) {
    Block block;
    if (blocks_.size() >= capacity_) {
        // The least recently used block gives its room to the new one.
        block = std::move(order_.back());
        order_.pop_back();
        blocks_.erase(block.number);
    } else {
        block.bytes = Pool().Take();
    }
    const long long got = backing(number * kBlockBytes, block.bytes.get(), kBlockBytes);
    if (got < 0) {
        Pool().Give(std::move(block.bytes));
        return nullptr;
    }
    block.number = number;
    block.valid = static_cast<size_t>(got);
    order_.push_front(std::move(block));
    blocks_[number] = order_.begin();
    return &order_.front();
}

long long BlockCache::Read(ULONGLONG offset, void* buffer, size_t count, const Backing& backing) {
    if (count >= kBlockBytes || capacity_ == 0) return backing(offset, buffer, count);
    auto* out = static_cast<BYTE*>(buffer);
    size_t done = 0;
    while (done < count) {
        const ULONGLONG at = offset + done;
        const size_t within = static_cast<size_t>(at % kBlockBytes);
        Block* block = Find(at / kBlockBytes);
        if (block == nullptr) block = Load(at / kBlockBytes, backing);
        if (block == nullptr) return done > 0 ? static_cast<long long>(done) : -1;
        if (within >= block->valid) break;  // the bytes end inside this block
        const size_t take = std::min(count - done, block->valid - within);
        std::memcpy(out + done, block->bytes.get() + within, take);
        done += take;
        if (block->valid < kBlockBytes && within + take == block->valid) break;
    }
    return static_cast<long long>(done);
}

void BlockCache::Wrote(ULONGLONG offset, const void* data, size_t count) {
    const auto* in = static_cast<const BYTE*>(data);
    for (size_t done = 0; done < count;) {
        const ULONGLONG at = offset + done;
        const size_t within = static_cast<size_t>(at % kBlockBytes);
        const size_t take = std::min(count - done, kBlockBytes - within);
        const auto found = blocks_.find(at / kBlockBytes);
        if (found != blocks_.end()) {
            Block& block = *found->second;
            if (within <= block.valid) {
                std::memcpy(block.bytes.get() + within, in + done, take);
                block.valid = std::max(block.valid, within + take);
            } else {
                Drop(found->second);  // a gap would open between what the block holds and what was written
            }
        }
        done += take;
    }
}

void BlockCache::Forget(ULONGLONG offset, size_t count) {
    if (count == 0) return;
    const ULONGLONG last = (offset + count - 1) / kBlockBytes;
    for (ULONGLONG number = offset / kBlockBytes; number <= last; ++number) {
        const auto found = blocks_.find(number);
        if (found != blocks_.end()) Drop(found->second);
    }
}

void BlockCache::Drop(Order::iterator block) {
    blocks_.erase(block->number);
    Pool().Give(std::move(block->bytes));
    order_.erase(block);
}

void BlockCache::Clear() {
    while (!order_.empty()) Drop(order_.begin());
}

}  // namespace vlx::ntfs
