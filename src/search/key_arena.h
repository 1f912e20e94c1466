#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sentrel {

// The text keys of an index, one after another in one block. A key whose characters are all below
// 256 (host names and paths nearly always are) takes one byte a character, any other key two;
// before the characters stand two bytes that hold the length and which of the two it is. A key
// is named by its offset.
class KeyArena {
  public:
    using Ref = std::uint32_t;

    // Keys are at most 32,767 characters long; the longest part a URL may have is far shorter.
    Ref Add(std::u16string_view key);

    // Keys are ordered by length, then by their characters as unsigned values. Equal is 0.
    int Compare(Ref key, std::u16string_view text) const;
    int Compare(Ref a, Ref b) const;
    // Compare(key, text) == 0, without the order: the look-ups need only this, on every hit.
    bool Equals(Ref key, std::u16string_view text) const;
    // A copy of a key's text.
    std::u16string Copy(Ref key) const;

    void Clear() { bytes_.clear(); }
    void Reserve(std::size_t bytes) { bytes_.reserve(bytes); }
    void ShrinkToFit() { bytes_.shrink_to_fit(); }

    static constexpr std::size_t kHeaderBytes = 2;

  private:
    // A stored key read in place.
    struct Stored {
        const std::uint8_t* chars;
        std::size_t length;
        bool wide;

        char16_t operator[](std::size_t i) const;
    };
    Stored Read(Ref key) const;
    template <class Text>
    static int CompareStored(const Stored& key, const Text& text, std::size_t length);

    std::vector<std::uint8_t> bytes_;
};

}  // namespace sentrel
