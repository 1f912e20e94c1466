#include "text/url_text.h"

#include <array>
#include <cstring>
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

// Four UTF-16 code units at once in a 64-bit word, one in each 16-bit lane; no operation below
// carries or borrows across lanes except where noted.
constexpr std::uint64_t kLaneOnes = 0x0001000100010001u;
constexpr std::uint64_t kLaneHighBits = 0x8000800080008000u;

// True when a lane is zero (a borrow may also mark lanes above a zero lane, never without one).
bool HasZeroLane(std::uint64_t block) {
    return ((block - kLaneOnes) & ~block & kLaneHighBits) != 0;
}

std::uint64_t LowerAsciiCapitals(std::uint64_t block) {
    const std::uint64_t low = block & ~kLaneHighBits;                   // each lane below 0x8000
    const std::uint64_t atLeastA = low + (0x8000u - u'A') * kLaneOnes;  // high bit: low >= 'A'
    const std::uint64_t atMostZ = (0x8000u + u'Z') * kLaneOnes - low;   // high bit: low <= 'Z'
    const std::uint64_t capitals = atLeastA & atMostZ & ~block & kLaneHighBits;
    return block | (capitals >> 10);  // 0x8000 >> 10 is the 0x20 that lowers a capital
}

// Normalises text into out, which has room for text.size() characters, and gives the length of
// the result.
std::size_t NormalizeInto(std::u16string_view text, char16_t* out) {
    std::size_t begin = 0;
    while (begin < text.size() && text[begin] != u'\0' && IsUrlWhiteSpace(text[begin])) {
        ++begin;
    }
    text.remove_prefix(begin);
    // Copy and lower up to the first NUL, a block at a time while no block holds one.
    std::size_t end = 0;
    for (std::uint64_t block = 0; end + 4 <= text.size(); end += 4) {
        std::memcpy(&block, text.data() + end, sizeof(block));
        if (HasZeroLane(block)) {
            break;
        }
        block = LowerAsciiCapitals(block);
        std::memcpy(out + end, &block, sizeof(block));
    }
    for (; end < text.size() && text[end] != u'\0'; ++end) {
        out[end] = LowerAscii(text[end]);
    }
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
