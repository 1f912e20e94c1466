#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace sentrel {

// Documents and streams hold UTF-16 little-endian, which is also how the component's platforms
// keep char16_t in memory: text moves to and from bytes without conversion.
static_assert(std::endian::native == std::endian::little, "char16_t must be little-endian");

inline std::span<const std::uint8_t> AsUtf16LeBytes(std::u16string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size() * sizeof(char16_t)};
}

// The bytes of count code units, to be filled with UTF-16LE text.
inline std::span<std::uint8_t> AsWritableUtf16LeBytes(char16_t* units, std::size_t count) {
    return {reinterpret_cast<std::uint8_t*>(units), count * sizeof(char16_t)};
}

}  // namespace sentrel
