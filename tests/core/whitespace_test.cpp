#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

#include "text/url_text.h"

#ifdef _WIN32
#include <cstdlib>
#include <cwctype>
#endif

namespace sentrel {
namespace {

// The white space of the Windows C runtime's iswspace in the "C" locale.
bool InListedWhiteSpace(std::uint32_t code) {
    return (code >= 0x09 && code <= 0x0D) || code == 0x20 || code == 0xA0 || code == 0x1680 ||
           (code >= 0x2000 && code <= 0x200A) || code == 0x2028 || code == 0x2029 ||
           code == 0x202F || code == 0x205F || code == 0x3000;
}

TEST(UrlWhiteSpace, IsExactlyTheListedSet) {
    int count = 0;
    for (std::uint32_t code = 0; code <= 0xFFFF; ++code) {
        const bool white = IsUrlWhiteSpace(static_cast<char16_t>(code));
        EXPECT_EQ(white, InListedWhiteSpace(code)) << code;
        count += white ? 1 : 0;
    }
    EXPECT_EQ(count, 24);
}

#ifdef _WIN32

// The set in the core must be the runtime's, character for character.
TEST(UrlWhiteSpace, MatchesTheWindowsRuntimeForEveryCodeUnit) {
    for (std::uint32_t code = 0; code <= 0xFFFF; ++code) {
        const bool runtime = std::iswspace(static_cast<wint_t>(code)) != 0;
        EXPECT_EQ(IsUrlWhiteSpace(static_cast<char16_t>(code)), runtime) << code;
    }
}

int Wtoi(const std::u16string& text) {
    return _wtoi(reinterpret_cast<const wchar_t*>(text.c_str()));
}

// A digit is read as the runtime reads it, alone and in front of another digit.
TEST(UrlDigitValue, MatchesTheWindowsRuntimeForEveryCodeUnit) {
    for (std::uint32_t code = 1; code <= 0xFFFF; ++code) {
        const auto ch = static_cast<char16_t>(code);
        const int digit = UrlDigitValue(ch);
        if (digit >= 0) {
            EXPECT_EQ(Wtoi(std::u16string{ch, u'7'}), digit * 10 + 7) << code;
        } else if (!IsUrlWhiteSpace(ch) && ch != u'+' && ch != u'-') {
            EXPECT_EQ(Wtoi(std::u16string{ch, u'7'}), 0) << code;
        }
    }
}

TEST(UrlTextToInt32, MatchesTheWindowsRuntimeOnRandomTexts) {
    // Texts made of the characters _wtoi treats specially, and a few it does not.
    const std::u16string alphabet =
        u"0123456789+- \t\u00A0\u3000\uFF10\uFF15\u0669\u1810x?/:\u0085";
    std::mt19937 random(20240229);
    std::uniform_int_distribution<std::size_t> pick(0, alphabet.size() - 1);
    std::uniform_int_distribution<std::size_t> length(0, 14);
    for (int i = 0; i < 20000; ++i) {
        std::u16string text;
        for (std::size_t n = length(random); n > 0; --n) {
            text.push_back(alphabet[pick(random)]);
        }
        ASSERT_EQ(UrlTextToInt32(text), Wtoi(text)) << i;
    }
    for (const char16_t* text : {u"2147483647", u"2147483648", u"-2147483648", u"-2147483649",
                                 u"99999999999999999999", u"-99999999999999999999"}) {
        EXPECT_EQ(UrlTextToInt32(text), Wtoi(text));
    }
}

#endif

}  // namespace
}  // namespace sentrel
