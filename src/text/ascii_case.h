#pragma once

#include <string_view>

namespace sentrel {

inline char16_t LowerAscii(char16_t ch) {
    return ch >= u'A' && ch <= u'Z' ? static_cast<char16_t>(ch - u'A' + u'a') : ch;
}

// Equality as the C runtime's _wcsicmp decides it in the "C" locale: A-Z and a-z are folded,
// every other character, non-ASCII letters included, only equals itself.
inline bool EqualsIgnoringAsciiCase(std::u16string_view a, std::u16string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (LowerAscii(a[i]) != LowerAscii(b[i])) {
            return false;
        }
    }
    return true;
}

}  // namespace sentrel
