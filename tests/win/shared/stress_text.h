#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <string_view>

namespace sentrel::test {

// A published text that says which stamp and type it was published with, how long its payload
// is and what its payload's checksum is, so that a reader can tell a torn or mismatched text.
std::u16string MakeStressText(std::uint32_t writer, std::uint32_t stamp, std::uint32_t type,
                              std::size_t payloadLength, std::mt19937& random);

// True when the text is whole and was published with this stamp and type.
bool IsWholeStressText(std::u16string_view text, std::uint32_t stamp, std::uint32_t type);

}  // namespace sentrel::test
