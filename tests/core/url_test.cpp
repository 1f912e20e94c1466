#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "core_test_support.h"
#include "search/cracked_url.h"
#include "text/url_text.h"

#ifdef _WIN32
#include <cstdlib>
#include <cwctype>
#endif

namespace sentrel {
namespace {

std::string PartsOf(const CrackedUrl& cracked) {
    std::string parts;
    for (const std::string& part :
         {test::Readable(cracked.scheme), std::to_string(static_cast<int>(cracked.schemeId)),
          test::Readable(cracked.host), std::to_string(cracked.port), test::Readable(cracked.path),
          test::Readable(cracked.tail), test::Readable(cracked.userName),
          test::Readable(cracked.password)}) {
        parts += part + "|";
    }
    return parts.substr(0, parts.find_last_not_of('|') + 1);
}

// The parts of the text's crack as "scheme|schemeId|host|port|path|tail|userName|password",
// trailing empty parts left out; when it cannot be cracked, "fails: " and why, which must leave
// the record cleared of the long crack it held before.
std::string Crack(std::u16string_view text) {
    static constexpr const char* kFailures[] = {
        "",        "no scheme",    "long scheme", "mailto //", "long host", "long user",
        "no user", "long after :", "second @",    "long path", "long tail", "long segment"};
    auto cracked = std::make_unique<CrackedUrl>();
    CrackUrl(u"https://u:p@www.a.b:8080/some/path?q=1#f", *cracked);
    CrackFailure why = CrackFailure::None;
    if (CrackUrl(text, *cracked, &why)) {
        return PartsOf(*cracked);
    }
    return std::string("fails: ") + kFailures[static_cast<int>(why)] +
           (PartsOf(*cracked) == "|-1||0" ? "" : ", keeping " + PartsOf(*cracked));
}

TEST(CrackUrl, Table) {
    const std::pair<std::u16string, const char*> cases[] = {
        // Common shapes.
        {u"http://a.b/x/y?k=1#f", "http|2|a.b|0|/x/y|?k=1#f"},
        {u"http://a.b:8080/x", "http|2|a.b|8080|/x"},
        {u"http://:8080/x", "http|2||8080|/x"},
        {u"a.b:8080/x", "a.b|-1|8080|0|/x"},
        {u"://a.b/", "|-1|a.b|0|/"},
        {u"file://c:/d/x?y#z", "file|4||0|c:/d/x?y#z"},
        {u"http://a.b#frag", "http|2|a.b#frag|0"},
        {u"news:group.name:119", "news|5|group.name|0"},

        // The scheme table: looked up without ASCII case, and the scheme kept as written.
        {u"ftp://h", "ftp|0|h|0"},
        {u"gopher://h", "gopher|1|h|0"},
        {u"hTtPs://h", "hTtPs|3|h|0"},
        {u"FILE://X", "FILE|4||0|X"},
        {u"socks://h", "socks|7|h|0"},
        {u"f\u0130le://h", "f\\u0130le|-1|h|0"},
        {u"soc\u212As://h", "soc\\u212As|-1|h|0"},
        {u"gophex://h", "gophex|-1|h|0"},

        // What follows the scheme's colon.
        {u"http:", "http|2||0"},
        {u"http:/u@h:80/x", "http|2||0|/u@h:80/x"},
        {u"http:h/x", "http|2|h|0|/x"},
        {u"http:?q", "http|2||0||?q"},

        // User info.
        {u"http://u:p@h:81/x", "http|2|h|81|/x||u|p"},
        {u"http://:@h/x", "http|2|h|0|/x"},
        {u"http://h:80@x/", "http|2|x|0|/||h|80"},
        {u"mailto:u@h:25", "mailto|6|h|0|||u"},
        {u"u@h:80/x", "h|-1|80|0|/x||u"},
        {u"http://u:p?#@h", "http|2|h|0|||u|p?#"},

        // Port text: read as _wtoi reads it and cut to 16 bits; some schemes keep none.
        {u"http://h:65616/", "http|2|h|80|/"},
        {u"http://h:-1/", "http|2|h|65535|/"},
        {u"http://h: \t+80x9/", "http|2|h|80|/"},
        {u"http://h:80:90/", "http|2|h|80|/"},
        {u"news:h:119/x", "news|5|h|0|/x"},

        // Brackets, and characters that end nothing.
        {u"http://u@[::1]:8080/", "http|2|[::1]|8080|/||u"},
        {u"http://[a@b:80/", "http|2|b|80|/||[a"},
        {u"http://[a:b@c]:9/", "http|2|c]|9|/||[a:b"},
        {u"http://a[:80/", "http|2|a[:80|0|/"},
        {u"http://a/b#c?d", "http|2|a|0|/b|#c?d"},

        // The text ends at its first NUL.
        {std::u16string(u"http://a/b\0c/d", 14), "http|2|a|0|/b"},
        {std::u16string(u"http://ab\0/x", 12), "http|2|ab|0"},
        {std::u16string(u"http://a/b?c\0d", 14), "http|2|a|0|/b|?c"},
        {std::u16string(u"http\0://a", 9), "fails: no scheme"},
        // Failures.
        {u"", "fails: no scheme"},
        {u"www.a.b", "fails: no scheme"},
        {u"mailto://x", "fails: mailto //"},
        {u"http://:p@h", "fails: no user"},
        {u"http://a@b@c", "fails: second @"},
        {u"http://u@h:p@x", "fails: second @"},
        // One character over a limit.
        {std::u16string(33, u's') + u"://h/", "fails: long scheme"},
        {u"http://" + std::u16string(257, u'h'), "fails: long host"},
        {u"http://" + std::u16string(257, u'h') + u"/x", "fails: long host"},
        {u"http://" + std::u16string(257, u'h') + u":80/", "fails: long host"},
        {u"http://" + std::u16string(129, u'u') + u"@h", "fails: long user"},
        {u"http://" + std::u16string(129, u'u') + u":p@h", "fails: long user"},
        {u"http://u:" + std::u16string(129, u'p') + u"@h", "fails: long after :"},
        {u"http://h:" + std::u16string(129, u'0') + u"/", "fails: long after :"},
        {u"http://h:8" + std::u16string(128, u'?'), "fails: long after :"},
        {u"http://h/" + std::u16string(2048, u'x'), "fails: long path"},
        {u"file:" + std::u16string(2049, u'x'), "fails: long path"},
        {u"http://h/x?" + std::u16string(2048, u'q'), "fails: long tail"},
        {u"http://" + std::u16string(kCrackSegmentLimit + 1, u'h'), "fails: long segment"},
        {u"http://[" + std::u16string(kCrackSegmentLimit, u'h') + u"@/", "fails: long segment"},
        {u"http://[" + std::u16string(2088, u'h') + u"@/", "fails: long user"},
    };
    for (const auto& [url, parts] : cases) {
        EXPECT_EQ(Crack(url), parts) << test::Readable(url);
    }
}

// Every part at its limit together: far longer than the working buffer, which limits a segment
// rather than the text.
TEST(CrackUrl, EveryPartAtItsLimit) {
    const std::string user(128, 'u'), password(128, 'p'), host(256, 'h');
    const std::string path = "/" + std::string(2047, 'x'), tail = "?" + std::string(2047, 'q');
    const std::string text =
        std::string(32, 's') + "://" + user + ":" + password + "@" + host + ":8080" + path + tail;
    EXPECT_EQ(Crack(std::u16string(text.begin(), text.end())),
              std::string(32, 's') + "|-1|" + host + "|8080|" + path + "|" + tail + "|" + user +
                  "|" + password);
}

// Every code unit at every place of a text over two blocks of four: a capital lowered, NUL the
// end of the text, white space trimmed at either end, anything else kept.
TEST(NormalizeUrlText, EachCodeUnitAtEachPlace) {
    constexpr std::size_t kLength = 9;
    for (std::uint32_t code = 0; code <= 0xFFFF; ++code) {
        const auto ch = static_cast<char16_t>(code);
        const char16_t lowered = ch >= u'A' && ch <= u'Z' ? static_cast<char16_t>(ch + 32) : ch;
        for (std::size_t place = 0; place < kLength; ++place) {
            std::u16string text(kLength, u'x');
            text[place] = ch;
            std::u16string expected = text;
            expected[place] = lowered;
            if (ch == u'\0') {
                expected.resize(place);
            } else if (IsUrlWhiteSpace(ch) && (place == 0 || place == kLength - 1)) {
                expected.erase(place, 1);
            }
            ASSERT_EQ(NormalizeUrlText(text), expected) << code << " at " << place;
            ASSERT_EQ(NormalizedUrlText(text).view(), expected) << code << " at " << place;
        }
    }
}

TEST(UrlTextToInt32, ReadsAsWtoiDoes) {
    const std::pair<std::u16string, std::int32_t> rows[] = {
        {u"", 0},
        {u" \t\u3000 +80", 80},
        {u"-80", -80},
        {u"+-80", 0},
        {u"\u0668\u0660", 80},
        {u"8\u0E50", 80},
        {u"2147483647", INT32_MAX},
        {u"2147483648", INT32_MAX},
        {u"99999999999999999999999999", INT32_MAX},
        {u"-2147483648", INT32_MIN},
        {u"00000000000000000000000000000007", 7},
        {std::u16string{u'1', u'\0', u'2'}, 1},
    };
    for (const auto& [text, value] : rows) {
        EXPECT_EQ(UrlTextToInt32(text), value) << test::Readable(text);
    }
}

// Digits come in eighteen blocks of ten, each from its zero.
TEST(UrlText, WhiteSpaceAndDigitsAreTheRuntimesSets) {
    const auto listed = [](std::uint32_t code) {
        return (code >= 0x09 && code <= 0x0D) || code == 0x20 || code == 0xA0 || code == 0x1680 ||
               (code >= 0x2000 && code <= 0x200A) || code == 0x2028 || code == 0x2029 ||
               code == 0x202F || code == 0x205F || code == 0x3000;
    };
    std::u16string zeros;
    for (std::uint32_t code = 0; code <= 0xFFFF; ++code) {
        const auto ch = static_cast<char16_t>(code);
        EXPECT_EQ(IsUrlWhiteSpace(ch), listed(code)) << code;
        zeros += UrlDigitValue(ch) == 0 ? std::u16string(1, ch) : u"";
        const bool inBlock = !zeros.empty() && ch - zeros.back() <= 9;
        ASSERT_EQ(UrlDigitValue(ch), inBlock ? ch - zeros.back() : -1) << code;
    }
    EXPECT_EQ(zeros.size(), 18u);
}

#ifdef _WIN32

// White space, signs and digits are the runtime's, character for character.
TEST(UrlText, MatchesTheWindowsRuntime) {
    for (std::uint32_t code = 1; code <= 0xFFFF; ++code) {
        const std::u16string text{static_cast<char16_t>(code), u'7'};
        EXPECT_EQ(IsUrlWhiteSpace(text[0]), std::iswspace(static_cast<wint_t>(code)) != 0) << code;
        EXPECT_EQ(UrlTextToInt32(text), _wtoi(reinterpret_cast<const wchar_t*>(text.c_str())))
            << code;
    }
}

#endif

}  // namespace
}  // namespace sentrel
