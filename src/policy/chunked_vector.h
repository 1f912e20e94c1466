#pragma once

#include <bit>
#include <cstddef>
#include <vector>

namespace sentrel {

// A sequence that grows a block of about 64 KB at a time: growing copies no elements, and the heap
// sees a few large blocks rather than many small ones. (The heap of the Windows build, once
// fragmented by its host, hands out many small blocks slowly: std::deque's 512-byte blocks made
// reading a large policy there twenty times slower.)
template <class T>
class ChunkedVector {
  public:
    static constexpr std::size_t kChunk = std::bit_floor(std::size_t{65536} / sizeof(T));

    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    T& operator[](std::size_t i) { return chunks_[i / kChunk][i % kChunk]; }
    const T& operator[](std::size_t i) const { return chunks_[i / kChunk][i % kChunk]; }
    T& back() { return (*this)[size_ - 1]; }

    void push_back(const T& value) {
        if (size_ / kChunk == chunks_.size()) {
            chunks_.emplace_back().reserve(kChunk);
        }
        chunks_[size_ / kChunk].push_back(value);
        ++size_;
    }
    void pop_back() {
        --size_;
        chunks_[size_ / kChunk].pop_back();
    }
    void clear() {
        chunks_.clear();
        size_ = 0;
    }
    // Gives back the blocks beyond the last element, and the last block's unused room.
    void shrink_to_fit() {
        chunks_.resize((size_ + kChunk - 1) / kChunk);
        chunks_.shrink_to_fit();
        if (!chunks_.empty()) {
            chunks_.back().shrink_to_fit();
        }
    }

  private:
    std::vector<std::vector<T>> chunks_;
    std::size_t size_ = 0;
};

}  // namespace sentrel
