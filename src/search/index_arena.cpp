#include "search/index_arena.h"

namespace sentrel {

void IndexArena::Release() {
    chunks_.clear();
    next_ = nullptr;
    left_ = 0;
}

std::byte* IndexArena::NewChunk(std::size_t bytes) {
    chunks_.push_back(std::make_unique_for_overwrite<std::byte[]>(bytes));
    return chunks_.back().get();
}

void* IndexArena::do_allocate(std::size_t bytes, std::size_t alignment) {
    void* block = next_;
    std::size_t space = left_;
    if (block == nullptr || std::align(alignment, bytes, block, space) == nullptr) {
        // A block too large to share a chunk gets one of its own; the current chunk stays open.
        if (bytes + alignment > kChunkSize / 4) {
            void* own = NewChunk(bytes + alignment);
            space = bytes + alignment;
            return std::align(alignment, bytes, own, space);
        }
        block = NewChunk(kChunkSize);
        space = kChunkSize;
        std::align(alignment, bytes, block, space);
    }
    next_ = static_cast<std::byte*>(block) + bytes;
    left_ = space - bytes;
    return block;
}

}  // namespace sentrel
