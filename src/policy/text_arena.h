#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace sentrel {

// UTF-16 texts found by 32-bit offsets: the chunk's number above kChunkBits bits of place in it.
// Chunks hold up to kChunkUnits units, so that growing never copies what is there: of all chunks
// only the last one may still grow, and only while it is smaller than that. A longer text gets
// a chunk of its own and starts at its place 0. A copy keeps every offset.
class TextArena {
  public:
    static constexpr unsigned kChunkBits = 15;
    static constexpr std::size_t kChunkUnits = std::size_t{1} << kChunkBits;

    TextArena() = default;
    TextArena(const TextArena& other);
    TextArena& operator=(const TextArena& other);
    TextArena(TextArena&&) noexcept = default;
    TextArena& operator=(TextArena&&) noexcept = default;

    // Appends the two parts one after the other and returns where the first begins. The parts
    // may lie in the arena itself. Throws std::bad_alloc when offsets run out.
    std::uint32_t Append(std::u16string_view first, std::u16string_view second);
    const char16_t* At(std::uint32_t offset) const {
        return chunks_[offset >> kChunkBits].units.get() + (offset & (kChunkUnits - 1));
    }
    // Units appended since the arena was empty.
    std::size_t Size() const { return size_; }
    void Clear();
    // Gives back the room the last chunk kept for growing.
    void ShrinkToFit();
    // Gives back the chunks before the one that holds offset, but for the last one, so that a
    // reader that is done with the texts in them does not keep them; they must not be read again.
    void ReleaseBefore(std::uint32_t offset);

  private:
    struct Chunk {
        std::unique_ptr<char16_t[]> units;
        std::size_t used = 0;
        std::size_t capacity = 0;
    };

    // Puts the last chunk in memory of the capacity, keeping its units; gives back its old memory.
    std::unique_ptr<char16_t[]> Reallocate(std::size_t capacity);
    void AddChunk(std::size_t capacity);

    std::vector<Chunk> chunks_;
    std::size_t size_ = 0;
    std::size_t released_ = 0;  // chunks given back
};

}  // namespace sentrel
