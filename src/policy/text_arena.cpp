#include "policy/text_arena.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

namespace sentrel {

namespace {

// A small list takes little more than its texts.
constexpr std::size_t kFirstUnits = 64;
constexpr std::size_t kMaxChunks =
    (std::size_t{std::numeric_limits<std::uint32_t>::max()} + 1) >> TextArena::kChunkBits;

}  // namespace

TextArena::TextArena(const TextArena& other) : size_(other.size_) {
    chunks_.reserve(other.chunks_.size());
    for (const Chunk& from : other.chunks_) {
        Chunk& chunk = chunks_.emplace_back();
        chunk.units = std::make_unique_for_overwrite<char16_t[]>(from.used);
        std::copy_n(from.units.get(), from.used, chunk.units.get());
        chunk.used = from.used;
        chunk.capacity = from.used;
    }
}

TextArena& TextArena::operator=(const TextArena& other) {
    if (this != &other) {
        *this = TextArena(other);
    }
    return *this;
}

std::uint32_t TextArena::Append(std::u16string_view first, std::u16string_view second) {
    const std::size_t length = first.size() + second.size();
    // The parts may lie in memory that growing lets go; it goes once they are copied.
    std::unique_ptr<char16_t[]> released;
    // A text starts at a place below kChunkUnits, and only a text of its own goes beyond it.
    if (chunks_.empty() || chunks_.back().used >= kChunkUnits ||
        length > kChunkUnits - chunks_.back().used) {
        AddChunk(std::max(length, chunks_.empty() ? kFirstUnits : kChunkUnits));
    } else if (Chunk& last = chunks_.back(); last.used + length > last.capacity) {
        released =
            Reallocate(std::min(kChunkUnits, std::max(last.used + length, last.capacity * 2)));
    }
    Chunk& last = chunks_.back();
    char16_t* place = last.units.get() + last.used;
    std::copy(second.begin(), second.end(), std::copy(first.begin(), first.end(), place));
    const std::size_t offset = (chunks_.size() - 1) << kChunkBits | last.used;
    last.used += length;
    size_ += length;
    return static_cast<std::uint32_t>(offset);
}

void TextArena::Clear() {
    chunks_.clear();
    size_ = 0;
    released_ = 0;
}

void TextArena::ReleaseBefore(std::uint32_t offset) {
    // The last chunk stays, for appending.
    const std::size_t end = std::min<std::size_t>(offset >> kChunkBits, chunks_.size() - 1);
    for (; released_ < end; ++released_) {
        chunks_[released_] = {};
    }
}

void TextArena::ShrinkToFit() {
    if (!chunks_.empty() && chunks_.back().capacity > chunks_.back().used) {
        Reallocate(chunks_.back().used);
    }
    chunks_.shrink_to_fit();
}

std::unique_ptr<char16_t[]> TextArena::Reallocate(std::size_t capacity) {
    Chunk& last = chunks_.back();
    auto units = std::make_unique_for_overwrite<char16_t[]>(capacity);
    std::copy_n(last.units.get(), last.used, units.get());
    last.capacity = capacity;
    std::swap(last.units, units);
    return units;
}

void TextArena::AddChunk(std::size_t capacity) {
    if (chunks_.size() == kMaxChunks) {
        throw std::bad_alloc();
    }
    chunks_.push_back({std::make_unique_for_overwrite<char16_t[]>(capacity), 0, capacity});
}

}  // namespace sentrel
