#include "policy/guid.h"

#include <bit>
#include <cstring>
#include <optional>

namespace sentrel {

// Provided by the platform's source of random identifiers (one file per platform).
Guid GenerateRandomGuid();

namespace {

constexpr std::size_t kGuidTextLength = 38;
// Text positions of the hexadecimal digit pairs of each byte, in the order the text shows them.
constexpr std::array<std::size_t, 16> kDigitPairPositions = {1,  3,  5,  7,  10, 12, 15, 17,
                                                             20, 22, 25, 27, 29, 31, 33, 35};
// Which in-memory byte each text digit pair describes (the first three fields are little-endian).
constexpr std::array<std::size_t, 16> kByteOfPair = {3, 2, 1,  0,  5,  4,  7,  6,
                                                     8, 9, 10, 11, 12, 13, 14, 15};

std::optional<std::uint8_t> HexValue(char16_t ch) {
    if (ch >= u'0' && ch <= u'9') {
        return static_cast<std::uint8_t>(ch - u'0');
    }
    if (ch >= u'a' && ch <= u'f') {
        return static_cast<std::uint8_t>(ch - u'a' + 10);
    }
    if (ch >= u'A' && ch <= u'F') {
        return static_cast<std::uint8_t>(ch - u'A' + 10);
    }
    return std::nullopt;
}

}  // namespace

Guid Guid::FromFields(std::uint32_t data1, std::uint16_t data2, std::uint16_t data3,
                      const std::array<std::uint8_t, 8>& data4) {
    Guid guid;
    for (std::size_t i = 0; i < 4; ++i) {
        guid.bytes[i] = static_cast<std::uint8_t>(data1 >> (8 * i));
    }
    for (std::size_t i = 0; i < 2; ++i) {
        guid.bytes[4 + i] = static_cast<std::uint8_t>(data2 >> (8 * i));
        guid.bytes[6 + i] = static_cast<std::uint8_t>(data3 >> (8 * i));
    }
    std::memcpy(guid.bytes.data() + 8, data4.data(), data4.size());
    return guid;
}

std::uint32_t Guid::Data1() const {
    return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
           static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

std::uint16_t Guid::Data2() const {
    return static_cast<std::uint16_t>(bytes[4] | bytes[5] << 8);
}

std::uint16_t Guid::Data3() const {
    return static_cast<std::uint16_t>(bytes[6] | bytes[7] << 8);
}

std::uint64_t GuidHash::operator()(const Guid& guid) const noexcept {
    // Random ids need little mixing, but ids set by hand differ in a few bytes only: the
    // multiplication spreads them over the high bits, the shift brings those down again.
    std::uint64_t low = 0;
    std::uint64_t high = 0;
    std::memcpy(&low, guid.bytes.data(), 8);
    std::memcpy(&high, guid.bytes.data() + 8, 8);
    const std::uint64_t mixed = (low ^ std::rotl(high, 32)) * 0x9E3779B97F4A7C15ull;
    return mixed ^ (mixed >> 29);
}

std::u16string GuidToText(const Guid& guid) {
    static constexpr char16_t kDigits[] = u"0123456789ABCDEF";
    std::u16string text(u"{00000000-0000-0000-0000-000000000000}");
    for (std::size_t pair = 0; pair < kDigitPairPositions.size(); ++pair) {
        const std::uint8_t value = guid.bytes[kByteOfPair[pair]];
        text[kDigitPairPositions[pair]] = kDigits[value >> 4];
        text[kDigitPairPositions[pair] + 1] = kDigits[value & 0xF];
    }
    return text;
}

Guid GuidFromText(std::u16string_view text) {
    if (text.size() != kGuidTextLength || text.front() != u'{' || text.back() != u'}' ||
        text[9] != u'-' || text[14] != u'-' || text[19] != u'-' || text[24] != u'-') {
        return {};
    }
    Guid guid;
    for (std::size_t pair = 0; pair < kDigitPairPositions.size(); ++pair) {
        const auto high = HexValue(text[kDigitPairPositions[pair]]);
        const auto low = HexValue(text[kDigitPairPositions[pair] + 1]);
        if (!high || !low) {
            return {};
        }
        guid.bytes[kByteOfPair[pair]] = static_cast<std::uint8_t>(*high << 4 | *low);
    }
    return guid;
}

Guid NewGuid() {
    Guid guid;
    do {
        guid = GenerateRandomGuid();
    } while (guid.IsZero());
    return guid;
}

}  // namespace sentrel
