#include "search/key_arena.h"

#include <algorithm>
#include <cstring>

namespace sentrel {

KeyArena::Ref KeyArena::Add(std::u16string_view key) {
    const auto ref = static_cast<Ref>(bytes_.size());
    const bool wide = std::any_of(key.begin(), key.end(), [](char16_t ch) { return ch > 0xFF; });
    const auto header = static_cast<std::uint16_t>(key.size() << 1 | (wide ? 1u : 0u));
    bytes_.resize(bytes_.size() + kHeaderBytes + key.size() * (wide ? sizeof(char16_t) : 1));
    std::uint8_t* const out = bytes_.data() + ref;
    std::memcpy(out, &header, kHeaderBytes);
    if (wide) {
        std::memcpy(out + kHeaderBytes, key.data(), key.size() * sizeof(char16_t));
    } else {
        std::transform(key.begin(), key.end(), out + kHeaderBytes,
                       [](char16_t ch) { return static_cast<std::uint8_t>(ch); });
    }
    return ref;
}

char16_t KeyArena::Stored::operator[](std::size_t i) const {
    if (!wide) {
        return chars[i];
    }
    char16_t ch;
    std::memcpy(&ch, chars + i * sizeof(char16_t), sizeof(ch));
    return ch;
}

KeyArena::Stored KeyArena::Read(Ref key) const {
    std::uint16_t header;
    std::memcpy(&header, bytes_.data() + key, kHeaderBytes);
    return {bytes_.data() + key + kHeaderBytes, std::size_t{header} >> 1, (header & 1) != 0};
}

template <class Text>
int KeyArena::CompareStored(const Stored& key, const Text& text, std::size_t length) {
    if (key.length != length) {
        return key.length < length ? -1 : 1;
    }
    for (std::size_t i = 0; i < length; ++i) {
        const char16_t ours = key[i];
        const char16_t theirs = text[i];
        if (ours != theirs) {
            return ours < theirs ? -1 : 1;
        }
    }
    return 0;
}

int KeyArena::Compare(Ref key, std::u16string_view text) const {
    return CompareStored(Read(key), text, text.size());
}

std::u16string KeyArena::Copy(Ref key) const {
    const Stored stored = Read(key);
    std::u16string text(stored.length, u'\0');
    for (std::size_t i = 0; i < stored.length; ++i) {
        text[i] = stored[i];
    }
    return text;
}

bool KeyArena::Equals(Ref key, std::u16string_view text) const {
    const Stored stored = Read(key);
    if (stored.length != text.size()) {
        return false;
    }
    if (stored.wide) {
        return std::memcmp(stored.chars, text.data(), text.size() * sizeof(char16_t)) == 0;
    }
    // No early exit: the loop then runs many characters at a time.
    unsigned differ = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        differ |= stored.chars[i] ^ static_cast<unsigned>(text[i]);
    }
    return differ == 0;
}

int KeyArena::Compare(Ref a, Ref b) const {
    const Stored other = Read(b);
    return CompareStored(Read(a), other, other.length);
}

}  // namespace sentrel
