#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "policy/byte_stream.h"

namespace sentrel {
namespace {

// Bytes in blocks of a fixed size: growing never copies what is written, and blocks this small
// come from the heap, which keeps their pages for the next stream instead of fresh ones.
class MemoryStream final : public ByteStream {
  public:
    std::optional<std::uint64_t> Size() override { return size_; }

    bool SeekToStart() override {
        position_ = 0;
        return true;
    }

    std::size_t Read(std::span<std::uint8_t> buffer) override {
        const std::size_t count = std::min(buffer.size(), size_ - position_);
        Copy(count, [&](std::uint8_t* block, std::size_t done, std::size_t piece) {
            std::memcpy(buffer.data() + done, block, piece);
        });
        return count;
    }

    bool Write(std::span<const std::uint8_t> data) override {
        // Running out of memory is the one way a write can fail; the content then stays as it was.
        try {
            while (blocks_.size() * kBlockSize < position_ + data.size()) {
                blocks_.push_back(std::make_unique_for_overwrite<std::uint8_t[]>(kBlockSize));
            }
        } catch (const std::bad_alloc&) {
            return false;
        }
        Copy(data.size(), [&](std::uint8_t* block, std::size_t done, std::size_t piece) {
            std::memcpy(block, data.data() + done, piece);
        });
        size_ = std::max(size_, position_);
        return true;
    }

  private:
    static constexpr std::size_t kBlockSize = 64 * 1024;

    // Walks count bytes from the position on, block by block, and moves the position past them.
    template <class CopyPiece>
    void Copy(std::size_t count, CopyPiece copyPiece) {
        for (std::size_t done = 0; done < count;) {
            const std::size_t offset = position_ % kBlockSize;
            const std::size_t piece = std::min(count - done, kBlockSize - offset);
            copyPiece(blocks_[position_ / kBlockSize].get() + offset, done, piece);
            done += piece;
            position_ += piece;
        }
    }

    std::vector<std::unique_ptr<std::uint8_t[]>> blocks_;
    std::size_t size_ = 0;
    std::size_t position_ = 0;
};

}  // namespace

std::shared_ptr<ByteStream> CreateMemoryStream() {
    return std::make_shared<MemoryStream>();
}

}  // namespace sentrel
