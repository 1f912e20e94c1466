#include "search/url_text.h"

#include <array>
#include <limits>

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

std::u16string NormalizeUrlText(std::u16string_view text) {
    std::size_t begin = 0;
    while (begin < text.size() && text[begin] != u'\0' && IsUrlWhiteSpace(text[begin])) {
        ++begin;
    }
    // One pass over the copy lowers it and finds where it ends: wide-string routines stop at the
    // first NUL, and so does every reader of URL text here.
    std::u16string result(text.substr(begin));
    std::size_t end = result.size();
    for (std::size_t i = 0; i < end; ++i) {
        const char16_t ch = result[i];
        if (static_cast<unsigned>(ch - u'A') < 26u) {
            result[i] = static_cast<char16_t>(ch + (u'a' - u'A'));
        } else if (ch == u'\0') {
            end = i;
        }
    }
    while (end > 0 && IsUrlWhiteSpace(result[end - 1])) {
        --end;
    }
    result.resize(end);
    return result;
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
