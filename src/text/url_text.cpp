#include "text/url_text.h"

#include <emmintrin.h>

#include <array>
#include <bit>
#include <limits>

#include "text/ascii_case.h"

namespace sentrel {

bool IsUrlWhiteSpace(char16_t ch) {
    if (ch < 0x80) {
        return ch == u' ' || (ch >= 0x09 && ch <= 0x0D);
    }
    switch (ch) {
        case 0x00A0:
        case 0x1680:
        case 0x2028:
        case 0x2029:
        case 0x202F:
        case 0x205F:
        case 0x3000:
            return true;
        default:
            return ch >= 0x2000 && ch <= 0x200A;
    }
}

int UrlDigitValue(char16_t ch) {
    // The zero of each block of ten digits, in ascending order.
    static constexpr std::array<char16_t, 18> kZeros = {
        0x0030, 0x0660, 0x06F0, 0x0966, 0x09E6, 0x0A66, 0x0AE6, 0x0B66, 0x0C66,
        0x0CE6, 0x0D66, 0x0E50, 0x0ED0, 0x0F20, 0x1040, 0x17E0, 0x1810, 0xFF10,
    };
    for (const char16_t zero : kZeros) {
        if (ch < zero) {
            return -1;
        }
        if (ch <= zero + 9) {
            return ch - zero;
        }
    }
    return -1;
}

namespace {

// Lowers the eight characters at from into to and gives which of them are NUL: two bits of the
// mask per character. The comparisons are signed, so characters from U+8000 up are below 'A' and
// stay as they are.
unsigned LowerBlock(const char16_t* from, char16_t* to) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    const __m128i capitals = _mm_and_si128(_mm_cmpgt_epi16(block, _mm_set1_epi16(u'A' - 1)),
                                           _mm_cmplt_epi16(block, _mm_set1_epi16(u'Z' + 1)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to),
                     _mm_or_si128(block, _mm_and_si128(capitals, _mm_set1_epi16(u'a' - u'A'))));
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi16(block, _mm_setzero_si128())));
}

// Copies and lowers text into out, which has room for text.size() characters, up to the first NUL,
// and gives the length copied.
std::size_t LowerInto(std::u16string_view text, char16_t* out) {
    const auto upToNul = [](std::size_t at, unsigned nul) {
        return at + static_cast<std::size_t>(std::countr_zero(nul)) / 2;
    };
    std::size_t end = 0;
    for (; end + 8 <= text.size(); end += 8) {
        if (const unsigned nul = LowerBlock(text.data() + end, out + end); nul != 0) {
            return upToNul(end, nul);
        }
    }
    if (end == text.size()) {
        return end;
    }
    if (text.size() >= 8) {
        // The last characters as the end of a block that overlaps what came before, which holds no
        // NUL and lowers to what it did. No loop, whose end would be hard to predict.
        const std::size_t at = text.size() - 8;
        const unsigned nul = LowerBlock(text.data() + at, out + at);
        return nul != 0 ? upToNul(at, nul) : text.size();
    }
    for (; end < text.size() && text[end] != u'\0'; ++end) {
        out[end] = LowerAscii(text[end]);
    }
    return end;
}

// Normalises text into out, which has room for text.size() characters, and gives the length of
// the result.
std::size_t NormalizeInto(std::u16string_view text, char16_t* out) {
    std::size_t begin = 0;
    while (begin < text.size() && text[begin] != u'\0' && IsUrlWhiteSpace(text[begin])) {
        ++begin;
    }
    std::size_t end = LowerInto(text.substr(begin), out);
    while (end > 0 && IsUrlWhiteSpace(out[end - 1])) {
        --end;
    }
    return end;
}

}  // namespace

std::u16string NormalizeUrlText(std::u16string_view text) {
    std::u16string result(text.size(), u'\0');
    result.resize(NormalizeInto(text, result.data()));
    return result;
}

NormalizedUrlText::NormalizedUrlText(std::u16string_view text) {
    char16_t* out = local_.data();
    if (text.size() > local_.size()) {
        heap_.resize(text.size());
        out = heap_.data();
    }
    view_ = {out, NormalizeInto(text, out)};
}

std::int32_t UrlTextToInt32(std::u16string_view text) {
    std::size_t i = 0;
    while (i < text.size() && IsUrlWhiteSpace(text[i])) {
        ++i;
    }
    bool negative = false;
    if (i < text.size() && (text[i] == u'-' || text[i] == u'+')) {
        negative = text[i] == u'-';
        ++i;
    }
    // The magnitude stops growing once it is past every value that can be represented.
    constexpr std::int64_t kCap = std::int64_t{std::numeric_limits<std::int32_t>::max()} + 1;
    std::int64_t magnitude = 0;
    for (; i < text.size(); ++i) {
        const int digit = UrlDigitValue(text[i]);
        if (digit < 0) {
            break;
        }
        if (magnitude < kCap) {
            magnitude = magnitude * 10 + digit;
        }
    }
    if (magnitude > kCap) {
        magnitude = kCap;
    }
    if (negative) {
        return static_cast<std::int32_t>(-magnitude);
    }
    return static_cast<std::int32_t>(magnitude < kCap ? magnitude : kCap - 1);
}

}  // namespace sentrel
