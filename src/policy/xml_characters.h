#pragma once

#include <cstddef>
#include <string_view>

namespace sentrel {

// The character classes of XML 1.0 (fifth edition) over UTF-16 text.

struct DecodedCharacter {
    char32_t codePoint = 0;  // an unpaired surrogate stands for itself, which no class accepts
    std::size_t units = 0;   // 0 when the text ends inside a surrogate pair
};

// The code point that starts text, which must not be empty.
DecodedCharacter DecodeUtf16(std::u16string_view text);

constexpr bool IsXmlWhiteSpace(char16_t ch) {
    return ch == u' ' || ch == u'\t' || ch == u'\n' || ch == u'\r';
}

// The ASCII part of the name classes, where nearly every name lies.
constexpr bool IsAsciiXmlNameStartChar(char32_t ch) {
    return (ch >= U'a' && ch <= U'z') || (ch >= U'A' && ch <= U'Z') || ch == U'_' || ch == U':';
}
constexpr bool IsAsciiXmlNameChar(char32_t ch) {
    return IsAsciiXmlNameStartChar(ch) || (ch >= U'0' && ch <= U'9') || ch == U'-' || ch == U'.';
}

// Whether XML can carry the character at all (Char).
bool IsXmlChar(char32_t ch);
// Whether XML can carry every character of the text.
bool IsXmlText(std::u16string_view text);
bool IsXmlNameStartChar(char32_t ch);
bool IsXmlNameChar(char32_t ch);

// A name without a colon, as elements are written (NCName).
bool IsXmlNcName(std::u16string_view name);

}  // namespace sentrel
