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

// The position of the first character at or after from that is one of Set, or text.size(). A URL
// is mostly long runs of ordinary characters between a few delimiters, so eight characters are
// compared with every delimiter at once.
template <char16_t... Set>
std::size_t FindFirstOf(std::u16string_view text, std::size_t from) {
    std::size_t i = from;
    for (; i + 8 <= text.size(); i += 8) {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + i));
        __m128i hits = _mm_setzero_si128();
        ((hits =
              _mm_or_si128(hits, _mm_cmpeq_epi16(block, _mm_set1_epi16(static_cast<short>(Set))))),
         ...);
        if (const auto mask = static_cast<unsigned>(_mm_movemask_epi8(hits)); mask != 0) {
            return i + static_cast<std::size_t>(std::countr_zero(mask)) / 2;
        }
    }
    for (; i < text.size(); ++i) {
        if (((text[i] == Set) || ...)) {
            return i;
        }
    }
    return text.size();
}

}  // namespace sentrel
