#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace sentrel {

// A 16-byte identifier held exactly as a Windows GUID lies in memory: the 32-bit and two 16-bit
// fields little-endian, then the final eight bytes. Ordering compares these bytes as unsigned
// values, which is the order the policy's lists are kept and written in.
struct Guid {
    std::array<std::uint8_t, 16> bytes{};

    static Guid FromFields(std::uint32_t data1, std::uint16_t data2, std::uint16_t data3,
                           const std::array<std::uint8_t, 8>& data4);
    std::uint32_t Data1() const;
    std::uint16_t Data2() const;
    std::uint16_t Data3() const;

    bool IsZero() const { return *this == Guid{}; }
    friend auto operator<=>(const Guid&, const Guid&) = default;
    friend bool operator==(const Guid&, const Guid&) = default;
};

// A hash of the id with every one of its 64 bits mixed: tables take both low and high bits.
struct GuidHash {
    std::uint64_t operator()(const Guid& guid) const noexcept;
};

// The braced registry form, 38 characters, upper-case hexadecimal:
// {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}.
std::u16string GuidToText(const Guid& guid);

// Parses the braced form with hexadecimal digits of either case, as CLSIDFromString does for a
// braced GUID; any other text gives the all-zero GUID.
Guid GuidFromText(std::u16string_view text);

// A fresh random GUID from the platform's generator; never all-zero.
Guid NewGuid();

}  // namespace sentrel
