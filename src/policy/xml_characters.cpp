#include "policy/xml_characters.h"

namespace sentrel {

DecodedCharacter DecodeUtf16(std::u16string_view text) {
    const char16_t first = text.front();
    if (first < 0xD800 || first > 0xDBFF) {
        return {first, 1};
    }
    if (text.size() < 2) {
        return {first, 0};
    }
    const char16_t second = text[1];
    if (second < 0xDC00 || second > 0xDFFF) {
        return {first, 1};
    }
    return {0x10000 + ((char32_t{first} - 0xD800) << 10) + (char32_t{second} - 0xDC00), 2};
}

bool IsXmlChar(char32_t ch) {
    if (ch < 0x20) {
        return ch == 0x9 || ch == 0xA || ch == 0xD;
    }
    return ch <= 0xD7FF || (ch >= 0xE000 && ch <= 0xFFFD) || (ch >= 0x10000 && ch <= 0x10FFFF);
}

bool IsXmlText(std::u16string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const DecodedCharacter decoded = DecodeUtf16(text.substr(i));
        if (decoded.units == 0 || !IsXmlChar(decoded.codePoint)) {
            return false;
        }
        i += decoded.units;
    }
    return true;
}

bool IsXmlNameStartChar(char32_t ch) {
    if (ch < 0x80) {
        return IsAsciiXmlNameStartChar(ch);
    }
    return (ch >= 0xC0 && ch <= 0xD6) || (ch >= 0xD8 && ch <= 0xF6) ||
           (ch >= 0xF8 && ch <= 0x2FF) || (ch >= 0x370 && ch <= 0x37D) ||
           (ch >= 0x37F && ch <= 0x1FFF) || (ch >= 0x200C && ch <= 0x200D) ||
           (ch >= 0x2070 && ch <= 0x218F) || (ch >= 0x2C00 && ch <= 0x2FEF) ||
           (ch >= 0x3001 && ch <= 0xD7FF) || (ch >= 0xF900 && ch <= 0xFDCF) ||
           (ch >= 0xFDF0 && ch <= 0xFFFD) || (ch >= 0x10000 && ch <= 0xEFFFF);
}

bool IsXmlNameChar(char32_t ch) {
    if (ch < 0x80) {
        return IsAsciiXmlNameChar(ch);
    }
    return IsXmlNameStartChar(ch) || ch == 0xB7 || (ch >= 0x300 && ch <= 0x36F) ||
           (ch >= 0x203F && ch <= 0x2040);
}

bool IsXmlNcName(std::u16string_view name) {
    for (std::size_t i = 0; i < name.size();) {
        const DecodedCharacter decoded =
            name[i] < 0x80 ? DecodedCharacter{name[i], 1} : DecodeUtf16(name.substr(i));
        const bool fits =
            i == 0 ? IsXmlNameStartChar(decoded.codePoint) : IsXmlNameChar(decoded.codePoint);
        if (decoded.units == 0 || !fits || decoded.codePoint == U':') {
            return false;
        }
        i += decoded.units;
    }
    return !name.empty();
}

}  // namespace sentrel
