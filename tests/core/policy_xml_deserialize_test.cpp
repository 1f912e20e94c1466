#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "policy/web_filter_xml_processor.h"
#include "xml_test_support.h"

namespace sentrel {
namespace {

WebFilterPolicy Read(const std::u16string& document) {
    WebFilterPolicy policy;
    EXPECT_TRUE(WebFilterXmlProcessor::DeserializePolicy(policy, document));
    return policy;
}

std::string Describe(const std::u16string& document) {
    return testing::DescribePolicy(Read(document));
}

const std::u16string kCompact =
    u"<WebFilters><WFVersion>3</WFVersion><WFRefreshMode>1</WFRefreshMode>"
    u"<WhiteList><WLId>{00000001-0000-0000-0000-000000000000}</WLId><WLName>School</WLName>"
    u"<WLAccepted><WLAEntry><WLAEntryName>Encyclopedia</WLAEntryName>"
    u"<WLAEntryUrl>http://e/</WLAEntryUrl></WLAEntry></WLAccepted>"
    u"<WLExceptions><WLEEntry><WLEEntryName>Chat</WLEEntryName><WLEEntryUrl>http://c/"
    u"</WLEEntryUrl></WLEEntry></WLExceptions></WhiteList>"
    u"<BlackList><BLId>{00000100-0000-0000-0000-000000000000}</BLId><BLName>Games</BLName>"
    u"<BLDenied><BLDEntry><BLDEntryName>Arcade</BLDEntryName><BLDEntryUrl>http://a/"
    u"</BLDEntryUrl></BLDEntry></BLDenied><BLExceptions/></BlackList></WebFilters>";

const std::string kCompactDescription =
    "v3 r1 | B {00000100-0000-0000-0000-000000000000} Games [ Arcade=http://a/ ][ ]"
    " | W {00000001-0000-0000-0000-000000000000} School [ Encyclopedia=http://e/ ]"
    "[ Chat=http://c/ ]";

TEST(DeserializePolicy, ReadsListsVersionAndRefreshMode) {
    EXPECT_EQ(Describe(kCompact), kCompactDescription);
}

TEST(DeserializePolicy, IndentationAndLineBreaksChangeNothing) {
    const std::u16string indented =
        u"\uFEFF<?xml version=\"1.0\" encoding=\"utf-16\"?>\r\n"
        u"<WebFilters>\r\n"
        u"  <WFVersion>3</WFVersion>\r\n  <WFRefreshMode>1</WFRefreshMode>\r\n"
        u"  <WhiteList>\n    <WLId>{00000001-0000-0000-0000-000000000000}</WLId>\n"
        u"    <WLName>School</WLName>\n    <WLAccepted>\n      <WLAEntry>\n"
        u"        <WLAEntryName>Encyclopedia</WLAEntryName>\n"
        u"        <WLAEntryUrl>http://e/</WLAEntryUrl>\n      </WLAEntry>\n    </WLAccepted>\n"
        u"    <WLExceptions>\n\t<WLEEntry>\n\t\t<WLEEntryName>Chat</WLEEntryName>\n"
        u"\t\t<WLEEntryUrl>http://c/</WLEEntryUrl>\n\t</WLEEntry>\n    </WLExceptions>\n"
        u"  </WhiteList>\n  <!-- the games -->\n  <BlackList>\n"
        u"    <BLId>{00000100-0000-0000-0000-000000000000}</BLId>\n"
        u"    <BLName>Games</BLName>\n    <BLDenied>\n      <BLDEntry>\n"
        u"        <BLDEntryName>Arcade</BLDEntryName>\n        "
        u"<BLDEntryUrl>http://a/</BLDEntryUrl>\n"
        u"      </BLDEntry>\n    </BLDenied>\n    <BLExceptions>\n    </BLExceptions>\n"
        u"  </BlackList>\n</WebFilters>\n";
    EXPECT_EQ(Describe(indented), kCompactDescription);
}

std::u16string Replace(std::u16string text, std::u16string_view from, std::u16string_view to) {
    for (std::size_t at = text.find(from); at != std::u16string::npos;
         at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

std::u16string MapElementNames(const std::u16string& document, char16_t (*map)(char16_t)) {
    std::u16string mapped = document;
    bool inTag = false;
    for (char16_t& ch : mapped) {
        if (ch == u'<' || ch == u'>') {
            inTag = ch == u'<';
        } else if (inTag) {
            ch = map(ch);
        }
    }
    return mapped;
}

TEST(DeserializePolicy, NamesInAnyAsciiLetterCaseAndWithPrefixesAreRecognized) {
    const auto lower = [](char16_t ch) {
        return ch >= u'A' && ch <= u'Z' ? static_cast<char16_t>(ch + 32) : ch;
    };
    const auto upper = [](char16_t ch) {
        return ch >= u'a' && ch <= u'z' ? static_cast<char16_t>(ch - 32) : ch;
    };
    EXPECT_EQ(Describe(MapElementNames(kCompact, lower)), kCompactDescription);
    // Ids are text, not names: upper-case hexadecimal stays as it is.
    EXPECT_EQ(Describe(MapElementNames(kCompact, upper)), kCompactDescription);

    std::u16string prefixed = Replace(Replace(kCompact, u"</", u"</p:"), u"<W", u"<p:W");
    prefixed = Replace(prefixed, u"<B", u"<p:B");
    prefixed = Replace(prefixed, u"<p:WebFilters>", u"<p:WebFilters xmlns:p='urn:sentrel'>");
    EXPECT_EQ(Describe(prefixed), kCompactDescription);
}

TEST(DeserializePolicy, OnlyAsciiLettersFoldTheirCase) {
    // A dotless i and a Kelvin sign fold to i and k under Unicode rules, but not here.
    const std::u16string dotless = Replace(kCompact, u"WhiteList", u"Wh\u0131teList");
    const std::u16string kelvin = Replace(kCompact, u"BlackList", u"Blac\u212AList");
    EXPECT_EQ(Read(dotless).lists.size(), 1u);
    EXPECT_EQ(Read(kelvin).lists.size(), 1u);
}

TEST(DeserializePolicy, RootNameAndAttributesAreNotLookedAt) {
    std::u16string renamed = Replace(kCompact, u"WebFilters>", u"Anything>");
    renamed = Replace(renamed, u"<WhiteList>", u"<WhiteList type=\"black\" id='x'>");
    EXPECT_EQ(Describe(renamed), kCompactDescription);
}

TEST(DeserializePolicy, ListWithoutIdGetsFreshIdAndRepeatedIdKeepsTheLaterList) {
    const WebFilterPolicy policy = Read(
        u"<r><WhiteList><WLName>first</WLName></WhiteList>"
        u"<WhiteList><WLName>second</WLName><WLId>{not a guid}</WLId></WhiteList>"
        u"<WhiteList><WLId>{0000000a-0000-0000-0000-000000000000}</WLId><WLName>a</WLName>"
        u"</WhiteList>"
        u"<BlackList><BLId>{0000000A-0000-0000-0000-000000000000}</BLId><BLName>b</BLName>"
        u"</BlackList></r>");
    ASSERT_EQ(policy.lists.size(), 3u);
    const Guid ten = Guid::FromFields(10, 0, 0, {});
    ASSERT_EQ(policy.lists.count(ten), 1u);
    EXPECT_EQ(policy.lists.at(ten).type, FilterListBlack);
    EXPECT_EQ(policy.lists.at(ten).name, u"b");
    for (const auto& [key, list] : policy.lists) {
        EXPECT_FALSE(key.IsZero());
        EXPECT_EQ(list.id, key);
    }
}

TEST(DeserializePolicy, ElementsOfTheOtherFamilyAddNothing) {
    EXPECT_EQ(Describe(u"<r><BlackList><BLId>{00000100-0000-0000-0000-000000000000}</BLId>"
                       u"<WLName>white name</WLName><BLName>Games</BLName>"
                       u"<BLDenied><WLAEntry><WLAEntryUrl>http://w/</WLAEntryUrl></WLAEntry>"
                       u"</BLDenied></BlackList></r>"),
              "v1 r0 | B {00000100-0000-0000-0000-000000000000} Games [ ][ ]");
    EXPECT_EQ(Describe(u"<r><WhiteList><WLId>{00000001-0000-0000-0000-000000000000}</WLId>"
                       u"<BLDEntryName>black name</BLDEntryName>"
                       u"<WLAEntry><WLAEntryName>kept</WLAEntryName></WLAEntry>"
                       u"</WhiteList></r>"),
              "v1 r0 | W {00000001-0000-0000-0000-000000000000}  [ kept= ][ ]");
}

TEST(DeserializePolicy, WrongFamilyEntryEndLeavesTheEntryToTheNextOne) {
    EXPECT_EQ(Describe(u"<r><WhiteList><WLId>{00000001-0000-0000-0000-000000000000}</WLId>"
                       u"<BLDEntry><WLAEntryName>n</WLAEntryName><WLAEntryUrl>u</WLAEntryUrl>"
                       u"</BLDEntry><WLAEntry></WLAEntry>"
                       u"<WLAEntry><WLAEntryName>m</WLAEntryName></WLAEntry></WhiteList></r>"),
              "v1 r0 | W {00000001-0000-0000-0000-000000000000}  [ n=u m= ][ ]");
}

TEST(DeserializePolicy, EntryElementNameNotContainerDecidesMainOrException) {
    EXPECT_EQ(Describe(u"<r><WhiteList><WLId>{00000001-0000-0000-0000-000000000000}</WLId>"
                       u"<WLAccepted><WLEEntry><WLEEntryUrl>x</WLEEntryUrl></WLEEntry>"
                       u"</WLAccepted><WLExceptions><WLAEntry><WLAEntryUrl>y</WLAEntryUrl>"
                       u"</WLAEntry></WLExceptions></WhiteList></r>"),
              "v1 r0 | W {00000001-0000-0000-0000-000000000000}  [ =y ][ =x ]");
}

TEST(DeserializePolicy, SelfClosingListOrEntryAddsNothing) {
    const WebFilterPolicy policy = Read(
        u"<r><WhiteList/><BlackList><BLDEntry/><BLDEntryUrl>u</BLDEntryUrl><BLEEntry/>"
        u"</BlackList></r>");
    ASSERT_EQ(policy.lists.size(), 1u);
    EXPECT_EQ(policy.lists.begin()->second.type, FilterListBlack);
    EXPECT_TRUE(policy.lists.begin()->second.mainEntries.empty());
}

TEST(DeserializePolicy, CDataIsNotTaken) {
    EXPECT_EQ(Describe(u"<r><WhiteList><WLId>{00000001-0000-0000-0000-000000000000}</WLId>"
                       u"<WLAEntry><WLAEntryName>n</WLAEntryName>"
                       u"<WLAEntryUrl><![CDATA[http://cdata/]]></WLAEntryUrl></WLAEntry>"
                       u"</WhiteList></r>"),
              "v1 r0 | W {00000001-0000-0000-0000-000000000000}  [ n= ][ ]");
}

TEST(DeserializePolicy, OnlyTheFirstTextAfterARecognizedStartIsTaken) {
    EXPECT_EQ(Describe(u"<r><WhiteList><WLId>{00000001-0000-0000-0000-000000000000}</WLId>"
                       u"<WLName>a&amp;b<!-- c -->more</WLName>after</WhiteList></r>"),
              "v1 r0 | W {00000001-0000-0000-0000-000000000000} a&b [ ][ ]");
}

TEST(DeserializePolicy, WhiteSpaceOnlyTextLeavesTheElementWaitingForText) {
    // The name stays current through its end tag and takes the next text, wherever it stands.
    EXPECT_EQ(Describe(u"<r><WhiteList><WLId>{00000001-0000-0000-0000-000000000000}</WLId>"
                       u"<WLName>  \n </WLName>School<WLAEntry><WLAEntryUrl> </WLAEntryUrl>"
                       u"<WLAEntryName>\t</WLAEntryName></WLAEntry></WhiteList></r>"),
              "v1 r0 | W {00000001-0000-0000-0000-000000000000} School [ = ][ ]");
    // Another recognized start takes over.
    EXPECT_EQ(Describe(u"<r><WhiteList><WLId>{00000001-0000-0000-0000-000000000000}</WLId>"
                       u"<WLName> </WLName><WLAEntry><WLAEntryUrl>u</WLAEntryUrl>"
                       u"</WLAEntry></WhiteList></r>"),
              "v1 r0 | W {00000001-0000-0000-0000-000000000000}  [ =u ][ ]");
}

TEST(DeserializePolicy, NumbersReadAsTheRuntimeConvertsThem) {
    const std::vector<std::pair<std::u16string, std::uint32_t>> cases = {
        {u"0", 0},
        {u"7", 7},
        {u"007", 7},
        {u"-1", 4294967295u},
        {u"2147483647", 2147483647u},
        {u"2147483648", 2147483647u},
        {u"99999999999", 2147483647u},
        {u"99999999999999999999999999", 2147483647u},
        {u"-2147483648", 2147483648u},
        {u"-2147483649", 2147483648u},
        {u"-99999999999", 2147483648u},
        {u"12abc", 12},
        {u"  +7", 7},
        {u"\t\n\r 5", 5},
        {u"+-5", 0},
        {u"- 5", 0},
        {u"abc", 0},
        {u"&#32;", 0},
        {u"1 2", 1},
        {u"4294967295", 2147483647u},
    };
    for (const auto& [text, number] : cases) {
        const WebFilterPolicy policy =
            Read(u"<r><WFVersion>" + text + u"</WFVersion><WFRefreshMode>" + text +
                 u"</WFRefreshMode></r>");
        EXPECT_EQ(policy.version, number) << testing::Readable(text);
        EXPECT_EQ(policy.refreshMode, number) << testing::Readable(text);
    }
}

TEST(DeserializePolicy, NumbersWithoutTextKeepTheDefaultsAndTheLastNumberWins) {
    const WebFilterPolicy empty = Read(u"<r><WFVersion></WFVersion><WFRefreshMode/></r>");
    EXPECT_EQ(empty.version, 1u);
    EXPECT_EQ(empty.refreshMode, 0u);
    const WebFilterPolicy repeated =
        Read(u"<r><WFVersion>5</WFVersion><x><WFVersion>6</WFVersion></x></r>");
    EXPECT_EQ(repeated.version, 6u);
}

TEST(DeserializePolicy, AddsToThePolicyItIsGiven) {
    WebFilterPolicy policy;
    ASSERT_TRUE(WebFilterXmlProcessor::DeserializePolicy(policy, kCompact));
    ASSERT_TRUE(WebFilterXmlProcessor::DeserializePolicy(
        policy,
        u"<r><BlackList><BLId>{00000200-0000-0000-0000-000000000000}</BLId></BlackList>"
        u"</r>"));
    EXPECT_EQ(policy.lists.size(), 3u);
    EXPECT_EQ(policy.version, 3u);
}

TEST(DeserializePolicy, EmptyOrNonXmlTextReadsNothing) {
    for (const std::u16string text : {u"", u"\uFEFF", u"not xml", u"<", u"<!DOCTYPE r><r/>"}) {
        EXPECT_EQ(Describe(text), "v1 r0") << testing::Readable(text);
    }
}

}  // namespace
}  // namespace sentrel
