#include <gtest/gtest.h>

#include "utf8.h"

namespace sentrel::cli {
namespace {

TEST(Utf8, WellFormedTextRoundTripsThroughEveryEncodingLength) {
    const std::u16string text = u"a\u00E9\u20AC\U0001F600z";  // 1, 2, 3 and 4 byte sequences
    const std::string utf8 = Utf16ToUtf8(text);
    EXPECT_EQ(utf8, "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z");
    EXPECT_EQ(Utf8ToUtf16(utf8), text);
}

TEST(Utf8, IllFormedSequencesBecomeReplacementCharacters) {
    struct Case {
        std::string bytes;
        std::u16string expected;
    };
    const Case cases[] = {
        {"\x80", u"\uFFFD"},                                // lone continuation byte
        {"a\x80", u"a\uFFFD"},                              // one that ends a run of ASCII
        {"\xC0\xAF", u"\uFFFD\uFFFD"},                      // overlong form of '/'
        {"\xE0\x80\xAF", u"\uFFFD\uFFFD\uFFFD"},            // overlong three-byte form
        {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},            // an encoded surrogate
        {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},  // beyond U+10FFFF
        {"\xE2\x82", u"\uFFFD"},                            // truncated at the end
        {"\xE2\x82x", u"\uFFFDx"},  // broken by an ASCII byte, which is kept
        {"\xFF", u"\uFFFD"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Utf8ToUtf16(c.bytes), c.expected) << c.bytes.size();
    }
}

TEST(Utf8, UnpairedSurrogatesBecomeReplacementCharacters) {
    const std::string replacement = "\xEF\xBF\xBD";
    EXPECT_EQ(Utf16ToUtf8(std::u16string{char16_t{0xD800}}), replacement);
    EXPECT_EQ(Utf16ToUtf8(std::u16string{char16_t{0xDC00}, u'a'}), replacement + "a");
    EXPECT_EQ(Utf16ToUtf8(std::u16string{u'a', char16_t{0xDBFF}}), "a" + replacement);
}

}  // namespace
}  // namespace sentrel::cli
