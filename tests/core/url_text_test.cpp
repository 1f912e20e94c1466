#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "text/url_text.h"

namespace sentrel {
namespace {

TEST(NormalizeUrlText, TrimsBothEndsAndLowersAsciiCapitalsOnly) {
    struct Row {
        std::u16string input;
        std::u16string expected;
    };
    const Row rows[] = {
        {u"  HTTP://A.B/X  ", u"http://a.b/x"},
        {u"\t\r\n\u3000\u00A0", u""},
        {u"", u""},
        {u"a", u"a"},
        {u" A ", u"a"},
        {u"Http://A B/Q R", u"http://a b/q r"},
        {u"@[\\]^_`{", u"@[\\]^_`{"},
        // Non-ASCII letters keep their case.
        {u"\u00C4\u0130\uFF21\u212A", u"\u00C4\u0130\uFF21\u212A"},
        // Only the listed white space is trimmed.
        {u"\u0085x\u200B\uFEFF\u180E", u"\u0085x\u200B\uFEFF\u180E"},
        {u"\u2000\u200Ax\u2028\u2029\u202F\u205F\u1680", u"x"},
        {std::u16string(u"A\0B", 3), u"a"},
        {std::u16string(u" A \0 B", 6), u"a"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(NormalizeUrlText(row.input), row.expected) << row.input.size();
    }
}

TEST(NormalizeUrlText, TrimsWhiteSpaceAndKeepsEveryOtherCharacter) {
    for (std::uint32_t code = 1; code <= 0xFFFF; ++code) {
        const auto ch = static_cast<char16_t>(code);
        if (ch >= u'A' && ch <= u'Z') {
            continue;
        }
        const std::u16string text{ch, ch, u'x', ch, u'x', ch};
        const std::u16string expected = IsUrlWhiteSpace(ch) ? std::u16string{u'x', ch, u'x'} : text;
        EXPECT_EQ(NormalizeUrlText(text), expected) << code;
    }
}

// Every code unit at every place of a text longer than two blocks of four: lowered when it is a
// capital, the end of the text when it is NUL, else kept.
TEST(NormalizeUrlText, EachCodeUnitAtEachPlace) {
    constexpr std::size_t kLength = 9;
    for (std::uint32_t code = 0; code <= 0xFFFF; ++code) {
        const auto ch = static_cast<char16_t>(code);
        if (IsUrlWhiteSpace(ch)) {
            continue;
        }
        const char16_t lowered = ch >= u'A' && ch <= u'Z' ? static_cast<char16_t>(ch + 32) : ch;
        for (std::size_t place = 0; place < kLength; ++place) {
            std::u16string text(kLength, u'x');
            text[place] = ch;
            std::u16string expected = text;
            expected[place] = lowered;
            if (ch == u'\0') {
                expected.resize(place);
            }
            ASSERT_EQ(NormalizeUrlText(text), expected) << code << " at " << place;
            ASSERT_EQ(NormalizedUrlText(text).view(), expected) << code << " at " << place;
        }
    }
}

// Texts beyond the in-place storage normalise alike.
TEST(NormalizedUrlText, LongTextsAsNormalizeUrlTextGivesThem) {
    for (const std::size_t length : {511u, 512u, 513u, 4096u}) {
        std::u16string text = u" \u3000HTTP://A.B/" + std::u16string(length, u'Q') + u"\t ";
        EXPECT_EQ(NormalizedUrlText(text).view(), NormalizeUrlText(text)) << length;
        text[length / 2] = u'\0';
        EXPECT_EQ(NormalizedUrlText(text).view(), NormalizeUrlText(text)) << length;
        EXPECT_EQ(NormalizeUrlText(text).size(), length / 2 - 2);
    }
}

TEST(UrlTextToInt32, ReadsAsWtoiDoes) {
    struct Row {
        std::u16string text;
        std::int32_t value;
    };
    constexpr std::int32_t kMax = std::numeric_limits<std::int32_t>::max();
    constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();
    const Row rows[] = {
        {u"", 0},
        {u"80", 80},
        {u"0080", 80},
        {u" \t\u3000 80", 80},
        {u"+80", 80},
        {u"-80", -80},
        {u"- 80", 0},
        {u"+-80", 0},
        {u"--80", 0},
        {u"80?q", 80},
        {u"8 0", 8},
        {u"x80", 0},
        {u"0x10", 0},
        {u"\uFF18\uFF10", 80},
        {u"\u0668\u0660", 80},
        {u"8\u0E50", 80},
        {u"2147483647", kMax},
        {u"2147483648", kMax},
        {u"99999999999999999999999999", kMax},
        {u"-2147483648", kMin},
        {u"-2147483649", kMin},
        {u"-99999999999999999999999999", kMin},
        {u"00000000000000000000000000000007", 7},
        {std::u16string(u"1\0"
                        u"2",
                        3),
         1},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(UrlTextToInt32(row.text), row.value) << row.text.size();
    }
}

TEST(UrlDigitValue, EachBlockHoldsTenDigits) {
    int digits = 0;
    for (std::uint32_t code = 0; code <= 0xFFFF; ++code) {
        const int value = UrlDigitValue(static_cast<char16_t>(code));
        ASSERT_GE(value, -1);
        ASSERT_LE(value, 9);
        if (value == 0) {
            // A zero starts a run of ten consecutive digits.
            for (int i = 1; i <= 9; ++i) {
                EXPECT_EQ(UrlDigitValue(static_cast<char16_t>(code + static_cast<unsigned>(i))), i);
            }
        }
        digits += value >= 0 ? 1 : 0;
    }
    EXPECT_EQ(digits, 180);
    EXPECT_EQ(UrlDigitValue(u'0'), 0);
    EXPECT_EQ(UrlDigitValue(u'9'), 9);
    EXPECT_EQ(UrlDigitValue(u'/'), -1);
    EXPECT_EQ(UrlDigitValue(u':'), -1);
    EXPECT_EQ(UrlDigitValue(u'\uFF19'), 9);
}

}  // namespace
}  // namespace sentrel
