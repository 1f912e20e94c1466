#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core_test_support.h"
#include "policy/guid.h"
#include "policy/hresult_error.h"
#include "policy/web_filter_xml_processor.h"

namespace sentrel {
namespace {

// Everything a document carries of a policy, in one line: version, refresh mode, then each list
// in key order with its type, id, name and entries (entry ids are not part of a document).
std::string Describe(const WebFilterPolicy& policy) {
    std::string text =
        'v' + std::to_string(policy.version) + " r" + std::to_string(policy.GetRefreshMode());
    for (const auto& [key, list] : policy.lists) {
        text += (list.type == FilterListWhite ? " | W " : " | B ") +
                test::Readable(GuidToText(key)) + (list.id == key ? " " : " (id differs) ") +
                test::Readable(list.name) + " ";
        for (const FilterEntrySequence* entries : {&list.mainEntries, &list.exceptionEntries}) {
            text += "[";
            for (const FilterEntryView& entry : *entries) {
                text += ' ' + test::Readable(entry.name) + '=' + test::Readable(entry.url);
            }
            text += " ]";
        }
    }
    return text;
}

WebFilterPolicy Read(const std::u16string& document) {
    WebFilterPolicy policy;
    EXPECT_TRUE(WebFilterXmlProcessor::DeserializePolicy(policy, document));
    return policy;
}

Guid IdWithFirstField(std::uint32_t data1) {
    return Guid::FromFields(data1, 0, 0, {});
}

FilterList MakeList(FilterListType type, std::uint32_t idFirstField, std::u16string name) {
    FilterList list(std::move(name));
    list.type = type;
    list.id = IdWithFirstField(idFirstField);
    return list;
}

// A white list School (id first field 0x1) and a black list Games (id first field 0x100).
WebFilterPolicy ExamplePolicy() {
    WebFilterPolicy policy;
    policy.version = 123;
    policy.refreshMode = 45;
    FilterList white = MakeList(FilterListWhite, 0x1, u"School");
    white.AddEntry(FilterEntry(u"Encyclopedia", u"http://encyclopedia.example.org/"));
    white.AddException(FilterEntry(u"Chat", u"http://chat.example.org/"));
    policy.AddList(white);
    FilterList black = MakeList(FilterListBlack, 0x100, u"Games");
    black.AddEntry(FilterEntry(u"Arcade", u"http://arcade.example.com/"));
    policy.AddList(black);
    return policy;
}

TEST(SerializePolicy, WorkedExampleGivesItsDocumentAndReadsBackWithFreshEntryIds) {
    const WebFilterPolicy original = ExamplePolicy();
    const std::u16string document = WebFilterXmlProcessor::SerializePolicy(original);
    // The black list comes first: its id's bytes (00 01 00 00 ...) sort before 01 00 00 00.
    EXPECT_EQ(document,
              u"\uFEFF<WebFilters><WFVersion>123</WFVersion><WFRefreshMode>45</WFRefreshMode>"
              u"<BlackList><BLId>{00000100-0000-0000-0000-000000000000}</BLId>"
              u"<BLName>Games</BLName><BLDenied><BLDEntry><BLDEntryName>Arcade</BLDEntryName>"
              u"<BLDEntryUrl>http://arcade.example.com/</BLDEntryUrl></BLDEntry></BLDenied>"
              u"<BLExceptions></BLExceptions></BlackList>"
              u"<WhiteList><WLId>{00000001-0000-0000-0000-000000000000}</WLId>"
              u"<WLName>School</WLName><WLAccepted><WLAEntry>"
              u"<WLAEntryName>Encyclopedia</WLAEntryName>"
              u"<WLAEntryUrl>http://encyclopedia.example.org/</WLAEntryUrl></WLAEntry>"
              u"</WLAccepted><WLExceptions><WLEEntry><WLEEntryName>Chat</WLEEntryName>"
              u"<WLEEntryUrl>http://chat.example.org/</WLEEntryUrl></WLEEntry></WLExceptions>"
              u"</WhiteList></WebFilters>");
    const WebFilterPolicy read = Read(document);
    EXPECT_EQ(Describe(read), Describe(original));
    const FilterList& white = read.lists.at(IdWithFirstField(0x1));
    EXPECT_NE(white.mainEntries[0].id, original.lists.at(IdWithFirstField(0x1)).mainEntries[0].id);
    EXPECT_NE(white.mainEntries[0].id, white.exceptionEntries[0].id);
}

TEST(SerializePolicy, NumbersAreWrittenUnsignedAndListsOfUnknownTypeGiveEmptyText) {
    WebFilterPolicy policy;
    policy.version = 4294967295u;
    policy.refreshMode = 2147483648u;
    EXPECT_EQ(WebFilterXmlProcessor::SerializePolicy(policy),
              u"\uFEFF<WebFilters><WFVersion>4294967295</WFVersion>"
              u"<WFRefreshMode>2147483648</WFRefreshMode></WebFilters>");
    policy = ExamplePolicy();
    // Sorted after both example lists, so that the writer has written them already.
    policy.AddList(MakeList(static_cast<FilterListType>(2), 0xFF, u"odd"));
    EXPECT_EQ(WebFilterXmlProcessor::SerializePolicy(policy), u"");
}

// The writer refuses what XML cannot carry (its own tests list what); serialising says E_FAIL.
TEST(SerializePolicy, TextXmlCannotCarryFailsWithEFail) {
    WebFilterPolicy policy = ExamplePolicy();
    FilterList& list = policy.lists.begin()->second;
    FilterEntry entry(list.mainEntries[0]);
    entry.url = u"a\xD800";
    list.AddEntry(entry);  // replaces the entry of the same id in place
    ASSERT_EQ(list.mainEntries.size(), 1u);
    try {
        WebFilterXmlProcessor::SerializePolicy(policy);
        ADD_FAILURE() << "no failure";
    } catch (const HResultError& error) {
        EXPECT_EQ(static_cast<std::uint32_t>(error.Result()), 0x80004005u);
        EXPECT_NE(std::string(error.what()).find("0x80004005"), std::string::npos);
    }
}

TEST(SerializePolicy, SerializeDeserializeSerializeGivesTheSameText) {
    WebFilterPolicy policy = ExamplePolicy();
    FilterList tricky = MakeList(FilterListWhite, 0xABCDEF01, u" \t");
    tricky.AddEntry(FilterEntry(u"a&b <c> \"d\" 'e'", u"http://x/?a=1&b=<2>]]>"));
    tricky.AddEntry(FilterEntry(u"line\r\nends\rand\ttabs\n", u"\U0001F600\u00E9\uFFFD"));
    tricky.AddEntry(FilterEntry(u"", u"\r"));
    tricky.AddEntry(FilterEntry(u"\n", u"  "));
    tricky.AddException(FilterEntry(u"same", u"same"));
    tricky.AddException(FilterEntry(u"same", u"same"));
    // Far more than the writer holds before it passes its output on.
    for (char16_t ch = 0x100; ch < 0x2100; ++ch) {
        tricky.AddEntry(FilterEntry(std::u16string(9, ch), u"&"));
    }
    policy.AddList(tricky);
    const std::u16string first = WebFilterXmlProcessor::SerializePolicy(policy);
    const WebFilterPolicy read = Read(first);
    EXPECT_EQ(Describe(read), Describe(policy));
    EXPECT_EQ(WebFilterXmlProcessor::SerializePolicy(read), first);
}

std::u16string Replace(std::u16string text, std::u16string_view from, std::u16string_view to) {
    for (std::size_t at = text.find(from); at != std::u16string::npos;
         at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

std::u16string WhiteList(const std::u16string& content) {
    return u"<r><WhiteList><WLId>{00000001-0000-0000-0000-000000000000}</WLId>" + content +
           u"</WhiteList></r>";
}

TEST(DeserializePolicy, Table) {
    const std::u16string example = WebFilterXmlProcessor::SerializePolicy(ExamplePolicy());
    // Names with prefixes and in another case: only the first letter is lowered here.
    const std::u16string prefixed = Replace(
        Replace(Replace(Replace(example, u"</W", u"</p:w"), u"</B", u"</p:b"), u"<W", u"<p:w"),
        u"<B", u"<p:b");
    const std::string white = "v1 r0 | W {00000001-0000-0000-0000-000000000000} ";
    const struct {
        const char* what;
        std::u16string document;
        std::string description;
    } cases[] = {
        {"white space, comments and a declaration change nothing",
         u"\uFEFF<?xml version=\"1.0\" encoding=\"utf-16\"?>\r\n" +
             Replace(example.substr(1), u"><", u">\r\n  <!-- c -->\n\t<"),
         Describe(ExamplePolicy())},
        {"names in any ASCII case, with prefixes", prefixed, Describe(ExamplePolicy())},
        {"the elements of the other family add nothing",
         u"<r><BlackList><BLId>{00000100-0000-0000-0000-000000000000}</BLId>"
         u"<WLName>white name</WLName><BLName>Games</BLName><BLDenied><WLAEntry><WLAEntryUrl>"
         u"http://w/</WLAEntryUrl></WLAEntry></BLDenied></BlackList></r>",
         "v1 r0 | B {00000100-0000-0000-0000-000000000000} Games [ ][ ]"},
        {"the text of an element of the other family is dropped but counts as taken",
         WhiteList(u"<BLDEntryName>black</BLDEntryName><WLAEntry><WLAEntryName>kept"
                   u"</WLAEntryName></WLAEntry>"),
         white + " [ kept= ][ ]"},
        {"an entry end of the other family leaves the entry to the next one",
         WhiteList(u"<BLDEntry><WLAEntryName>n</WLAEntryName><WLAEntryUrl>u</WLAEntryUrl>"
                   u"</BLDEntry><WLAEntry></WLAEntry><WLAEntry><WLAEntryName>m</WLAEntryName>"
                   u"</WLAEntry>"),
         white + " [ n=u m= ][ ]"},
        {"the entry element's name, not its container, makes it main or exception",
         WhiteList(u"<WLAccepted><WLEEntry><WLEEntryUrl>x</WLEEntryUrl></WLEEntry></WLAccepted>"
                   u"<WLExceptions><WLAEntry><WLAEntryUrl>y</WLAEntryUrl></WLAEntry>"
                   u"</WLExceptions>"),
         white + " [ =y ][ =x ]"},
        {"only the first text after a recognized start is taken",
         WhiteList(u"<WLName>a&amp;b<!-- c -->more</WLName>after"), white + "a&b [ ][ ]"},
        {"white space leaves the element waiting for the next text, wherever it stands",
         WhiteList(u"<WLName>  \n </WLName>School<WLAEntry><WLAEntryUrl> </WLAEntryUrl>"
                   u"<WLAEntryName>\t</WLAEntryName></WLAEntry>"),
         white + "School [ = ][ ]"},
        {"numbers are read as _wtoi reads them, and kept unsigned",
         u"<r><WFVersion>-1</WFVersion><WFRefreshMode>  +12abc</WFRefreshMode></r>",
         "v4294967295 r12"},
        {"lists go in the order of their ids' bytes, the first three fields little-endian",
         u"<r><BlackList><BLId>{00000000-0001-0000-0000-000000000000}</BLId></BlackList>"
         u"<BlackList><BLId>{00000000-0000-0001-0000-000000000000}</BLId></BlackList>"
         u"<BlackList><BLId>{00000000-0100-0000-0000-000000000000}</BLId></BlackList>"
         u"<BlackList><BLId>{00000000-0000-0100-0000-000000000000}</BLId></BlackList></r>",
         "v1 r0 | B {00000000-0000-0100-0000-000000000000}  [ ][ ] | B "
         "{00000000-0000-0001-0000-000000000000}  [ ][ ] | B {00000000-0100-0000-0000-000000000000}"
         "  [ ][ ] | B {00000000-0001-0000-0000-000000000000}  [ ][ ]"},
        {"numbers without text keep the defaults, and the last number wins",
         u"<r><WFRefreshMode/><WFVersion>5</WFVersion><x><WFVersion>6</WFVersion></x></r>",
         "v6 r0"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Describe(Read(c.document)), c.description) << c.what;
    }
    // A dotless i and a Kelvin sign fold to i and k under Unicode rules, but not here.
    EXPECT_EQ(Read(Replace(example, u"WhiteList", u"Wh\u0131teList")).lists.size(), 1u);
    EXPECT_EQ(Read(Replace(example, u"BlackList", u"Blac\u212AList")).lists.size(), 1u);
}

TEST(DeserializePolicy, ListWithoutIdGetsFreshIdAndRepeatedIdKeepsTheLaterList) {
    const WebFilterPolicy policy = Read(
        u"<r><WhiteList><WLName>first</WLName></WhiteList>"
        u"<WhiteList><WLName>second</WLName><WLId>{not a guid}</WLId></WhiteList>"
        u"<WhiteList><WLId>{0000000a-0000-0000-0000-000000000000}</WLId><WLName>a</WLName>"
        u"</WhiteList><BlackList><BLId>{0000000A-0000-0000-0000-000000000000}</BLId>"
        u"<BLName>b</BLName></BlackList></r>");
    ASSERT_EQ(policy.lists.size(), 3u);
    EXPECT_EQ(policy.lists.at(IdWithFirstField(10)).type, FilterListBlack);
    EXPECT_EQ(policy.lists.at(IdWithFirstField(10)).name, u"b");
    for (const auto& [key, list] : policy.lists) {
        EXPECT_FALSE(key.IsZero());
        EXPECT_EQ(list.id, key);
    }
}

std::size_t EndOf(const std::u16string& document, std::u16string_view text) {
    const std::size_t at = document.find(text);
    EXPECT_NE(at, std::u16string::npos);
    return at + text.size();
}

TEST(DeserializePolicy, EveryCutKeepsExactlyTheListsClosedBeforeIt) {
    const WebFilterPolicy full = ExamplePolicy();
    const std::u16string document = WebFilterXmlProcessor::SerializePolicy(full);
    WebFilterPolicy first = full;
    first.lists.erase(IdWithFirstField(0x1));
    const std::size_t firstEnd = EndOf(document, u"</BlackList>");
    const std::size_t secondEnd = EndOf(document, u"</WhiteList>");
    // A text counts once the markup after it has begun: the number is never taken in part.
    const std::size_t versionEnd = EndOf(document, u">123<");
    const std::size_t refreshModeEnd = EndOf(document, u">45<");
    for (std::size_t cut = 0; cut <= document.size(); ++cut) {
        WebFilterPolicy expected = cut >= secondEnd  ? full
                                   : cut >= firstEnd ? first
                                                     : WebFilterPolicy{};
        expected.version = cut >= versionEnd ? 123 : 1;
        expected.refreshMode = cut >= refreshModeEnd ? 45 : 0;
        EXPECT_EQ(Describe(Read(document.substr(0, cut))), Describe(expected)) << "cut at " << cut;
    }
}

TEST(WebFilterXmlProcessor, ReadingAndWritingNeedAStreamAndReadingAPolicy) {
    WebFilterPolicy policy;
    WebFilterXmlProcessor processor(&policy);
    EXPECT_FALSE(processor.ReadDocument(u"") || processor.OpenReader(u"") ||
                 processor.OpenReader(u"/no/such/file") || processor.OpenWriter(u"/no/such/file"));
    WebFilterXmlProcessor withoutPolicy;
    ASSERT_TRUE(withoutPolicy.Storage().WriteText(u"<r/>") && withoutPolicy.OpenReader(u""));
    EXPECT_FALSE(withoutPolicy.ReadDocument(u""));
}

TEST(GuidFromText, AnythingButTheBracedFormGivesZero) {
    for (const char16_t* text :
         {u"", u"0123ABCD-4567-89EF-FEDC-BA9876543210", u"{0123ABCD-4567-89EF-FEDC-BA9876543210",
          u"{0123ABCD-4567-89EF-FEDC-BA9876543210} ", u"(0123ABCD-4567-89EF-FEDC-BA9876543210)",
          u"{0123ABCG-4567-89EF-FEDC-BA9876543210}", u"{+123ABCD-4567-89EF-FEDC-BA9876543210}",
          u"{0123ABCD_4567-89EF-FEDC-BA9876543210}", u"{0123ABCD-4567-89EF-FEDC_BA9876543210}"}) {
        EXPECT_TRUE(GuidFromText(text).IsZero()) << test::Readable(text);
    }
}

}  // namespace
}  // namespace sentrel
