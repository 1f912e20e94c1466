#pragma once

#include <emmintrin.h>

#include <bit>
#include <cstddef>
#include <string_view>

// SSE2 is part of every x86-64 processor, and x86-64 is the only target the component has.
#ifndef __SSE2__
#error "the URL scanners need SSE2"
#endif

namespace sentrel {

// Which of the eight characters at at are one of Set: two bits of the mask per character.
template <char16_t... Set>
unsigned MatchBlock(const char16_t* at) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    __m128i hits = _mm_setzero_si128();
    ((hits = _mm_or_si128(hits, _mm_cmpeq_epi16(block, _mm_set1_epi16(static_cast<short>(Set))))),
     ...);
    return static_cast<unsigned>(_mm_movemask_epi8(hits));
}

// The position of the first character at or after from that is one of Set, or text.size(). A URL
// is mostly long runs of ordinary characters between a few delimiters, so eight characters are
// compared with every delimiter at once.
template <char16_t... Set>
std::size_t FindFirstOf(std::u16string_view text, std::size_t from) {
    const auto first = [](std::size_t at, unsigned mask) {
        return at + static_cast<std::size_t>(std::countr_zero(mask)) / 2;
    };
    std::size_t i = from;
    for (; i + 8 <= text.size(); i += 8) {
        if (const unsigned mask = MatchBlock<Set...>(text.data() + i); mask != 0) {
            return first(i, mask);
        }
    }
    if (i == text.size()) {
        return i;
    }
    if (text.size() >= 8) {
        // The last characters as the end of a block that overlaps what came before; the
        // characters before i do not count. No loop, whose end would be hard to predict.
        const std::size_t at = text.size() - 8;
        const unsigned mask = MatchBlock<Set...>(text.data() + at) & (0xFFFFU << (2 * (i - at)));
        return mask != 0 ? first(at, mask) : text.size();
    }
    for (; i < text.size(); ++i) {
        if (((text[i] == Set) || ...)) {
            return i;
        }
    }
    return text.size();
}

}  // namespace sentrel
