#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace sentrel {

// The white space of the Windows C runtime's iswspace in the "C" locale: U+0009-U+000D, U+0020,
// U+00A0, U+1680, U+2000-U+200A, U+2028, U+2029, U+202F, U+205F and U+3000. Written down here so
// that every platform trims URLs alike.
bool IsUrlWhiteSpace(char16_t ch);

// The value 0-9 of a decimal digit as the Windows C runtime's _wtoi reads it (ASCII digits and
// the digit blocks of seventeen other scripts, full-width among them), or -1 for any other
// character.
int UrlDigitValue(char16_t ch);

// The text without leading and trailing white space, with A-Z lowered; every other character,
// non-ASCII letters included, stays as it is. The text ends at its first NUL, if any.
std::u16string NormalizeUrlText(std::u16string_view text);

// NormalizeUrlText into storage of its own that needs no heap for URLs of ordinary length: for
// the decision and the index build, which normalise every URL they meet.
class NormalizedUrlText {
  public:
    explicit NormalizedUrlText(std::u16string_view text);
    NormalizedUrlText(const NormalizedUrlText&) = delete;
    NormalizedUrlText& operator=(const NormalizedUrlText&) = delete;

    std::u16string_view view() const { return view_; }

  private:
    std::array<char16_t, 512> local_;
    std::u16string heap_;  // for longer texts
    std::u16string_view view_;
};

// The number _wtoi gives for a text: leading white space skipped, an optional sign, digits up to
// the first non-digit (none give 0); values beyond the signed 32-bit range saturate.
std::int32_t UrlTextToInt32(std::u16string_view text);

}  // namespace sentrel
