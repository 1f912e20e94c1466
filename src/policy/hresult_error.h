#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace sentrel {

using HResult = std::int32_t;

inline constexpr HResult kHResultFail = static_cast<HResult>(0x80004005u);
inline constexpr HResult kHResultOutOfMemory = static_cast<HResult>(0x8007000Eu);

// A raised failure with the HRESULT that describes it. A COM method returns, for any failure raised
// in it, the HRESULT that the method names (see ComBoundary), not necessarily this one.
class HResultError : public std::runtime_error {
  public:
    explicit HResultError(HResult result) : std::runtime_error(Describe(result)), result_(result) {}

    HResult Result() const noexcept { return result_; }

  private:
    static std::string Describe(HResult result) {
        static constexpr char kDigits[] = "0123456789ABCDEF";
        std::string text = "failed with HRESULT 0x00000000";
        const auto bits = static_cast<std::uint32_t>(result);
        for (std::size_t i = 0; i < 8; ++i) {
            text[text.size() - 1 - i] = kDigits[(bits >> (4 * i)) & 0xF];
        }
        return text;
    }

    HResult result_;
};

}  // namespace sentrel
