#pragma once

#include <cstddef>
#include <memory>
#include <memory_resource>
#include <vector>

namespace sentrel {

// The memory of a searcher's indexes. Blocks are carved in order from fixed-size chunks (a
// block too large to share one gets a chunk of its own) and given back only all at once: an index
// is built once and then only read, so the parts of an entry lie side by side, and a reload
// releases the old index in one go. Fixed chunks keep the unused tail to less than one chunk,
// however large the index grows.
class IndexArena final : public std::pmr::memory_resource {
  public:
    static constexpr std::size_t kChunkSize = 64 * 1024;

    IndexArena() = default;
    IndexArena(const IndexArena&) = delete;
    IndexArena& operator=(const IndexArena&) = delete;

    // Every block handed out so far becomes invalid.
    void Release();

  private:
    void* do_allocate(std::size_t bytes, std::size_t alignment) override;
    void do_deallocate(void*, std::size_t, std::size_t) override {}
    bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override {
        return this == &other;
    }

    std::byte* NewChunk(std::size_t bytes);

    std::vector<std::unique_ptr<std::byte[]>> chunks_;
    std::byte* next_ = nullptr;
    std::size_t left_ = 0;
};

}  // namespace sentrel
