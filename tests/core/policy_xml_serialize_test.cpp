#include <gtest/gtest.h>

#include <string>

#include "policy/hresult_error.h"
#include "policy/web_filter_xml_processor.h"
#include "xml_test_support.h"

namespace sentrel {
namespace {

Guid IdWithFirstField(std::uint32_t data1) {
    return Guid::FromFields(data1, 0, 0, {});
}

FilterList MakeList(FilterListType type, const Guid& id, std::u16string name) {
    FilterList list(std::move(name));
    list.type = type;
    list.id = id;
    return list;
}

// A white list School (id first field 0x1) and a black list Games (id first field 0x100).
WebFilterPolicy ExamplePolicy() {
    WebFilterPolicy policy;
    policy.version = 3;
    policy.refreshMode = 1;
    FilterList white = MakeList(FilterListWhite, IdWithFirstField(0x1), u"School");
    white.AddEntry(FilterEntry(u"Encyclopedia", u"http://encyclopedia.example.org/"));
    white.AddException(FilterEntry(u"Chat", u"http://chat.example.org/"));
    policy.AddList(white);
    FilterList black = MakeList(FilterListBlack, IdWithFirstField(0x100), u"Games");
    black.AddEntry(FilterEntry(u"Arcade", u"http://arcade.example.com/"));
    policy.AddList(black);
    return policy;
}

TEST(SerializePolicy, EmptyPolicyIsRootWithVersionAndRefreshMode) {
    EXPECT_EQ(WebFilterXmlProcessor::SerializePolicy(WebFilterPolicy()),
              u"\uFEFF<WebFilters><WFVersion>1</WFVersion><WFRefreshMode>0</WFRefreshMode>"
              u"</WebFilters>");
}

TEST(SerializePolicy, WorkedExampleGivesItsDocumentElementByElement) {
    // The black list comes first: its id's bytes (00 01 00 00 ...) sort before 01 00 00 00.
    EXPECT_EQ(WebFilterXmlProcessor::SerializePolicy(ExamplePolicy()),
              u"\uFEFF<WebFilters>"
              u"<WFVersion>3</WFVersion>"
              u"<WFRefreshMode>1</WFRefreshMode>"
              u"<BlackList>"
              u"<BLId>{00000100-0000-0000-0000-000000000000}</BLId>"
              u"<BLName>Games</BLName>"
              u"<BLDenied>"
              u"<BLDEntry>"
              u"<BLDEntryName>Arcade</BLDEntryName>"
              u"<BLDEntryUrl>http://arcade.example.com/</BLDEntryUrl>"
              u"</BLDEntry>"
              u"</BLDenied>"
              u"<BLExceptions></BLExceptions>"
              u"</BlackList>"
              u"<WhiteList>"
              u"<WLId>{00000001-0000-0000-0000-000000000000}</WLId>"
              u"<WLName>School</WLName>"
              u"<WLAccepted>"
              u"<WLAEntry>"
              u"<WLAEntryName>Encyclopedia</WLAEntryName>"
              u"<WLAEntryUrl>http://encyclopedia.example.org/</WLAEntryUrl>"
              u"</WLAEntry>"
              u"</WLAccepted>"
              u"<WLExceptions>"
              u"<WLEEntry>"
              u"<WLEEntryName>Chat</WLEEntryName>"
              u"<WLEEntryUrl>http://chat.example.org/</WLEEntryUrl>"
              u"</WLEEntry>"
              u"</WLExceptions>"
              u"</WhiteList>"
              u"</WebFilters>");
}

TEST(SerializePolicy, WorkedExampleReadsBackWithItsListsAndFreshEntryIds) {
    const WebFilterPolicy original = ExamplePolicy();
    WebFilterPolicy read;
    ASSERT_TRUE(WebFilterXmlProcessor::DeserializePolicy(
        read, WebFilterXmlProcessor::SerializePolicy(original)));
    EXPECT_EQ(testing::DescribePolicy(read), testing::DescribePolicy(original));
    const FilterList& white = read.lists.at(IdWithFirstField(0x1));
    EXPECT_NE(white.mainEntries[0].id, original.lists.at(IdWithFirstField(0x1)).mainEntries[0].id);
    EXPECT_NE(white.mainEntries[0].id, white.exceptionEntries[0].id);
}

TEST(SerializePolicy, LargestNumbersAreWrittenUnsigned) {
    WebFilterPolicy policy;
    policy.version = 4294967295u;
    policy.refreshMode = 2147483648u;
    EXPECT_EQ(WebFilterXmlProcessor::SerializePolicy(policy),
              u"\uFEFF<WebFilters><WFVersion>4294967295</WFVersion>"
              u"<WFRefreshMode>2147483648</WFRefreshMode></WebFilters>");
}

TEST(SerializePolicy, ListOfUnknownTypeGivesEmptyText) {
    WebFilterPolicy policy = ExamplePolicy();
    // Sorted after both example lists, so that the writer has written them already.
    policy.AddList(MakeList(static_cast<FilterListType>(2), IdWithFirstField(0xFF), u"odd"));
    EXPECT_EQ(WebFilterXmlProcessor::SerializePolicy(policy), u"");
    policy.lists.begin()->second.type = static_cast<FilterListType>(-1);
    EXPECT_EQ(WebFilterXmlProcessor::SerializePolicy(policy), u"");
}

TEST(SerializePolicy, TextXmlCannotCarryFailsWithEFail) {
    const std::vector<std::u16string> refused = {u"\u0001", u"a\xD800", u"\xDC00z", u"\uFFFF",
                                                 std::u16string(1, u'\0')};
    for (const std::u16string& text : refused) {
        for (int field = 0; field < 3; ++field) {
            WebFilterPolicy policy = ExamplePolicy();
            FilterList list = MakeList(FilterListBlack, IdWithFirstField(0x7), u"fine");
            FilterEntry entry(u"name", u"http://example.com/");
            (field == 0 ? list.name : field == 1 ? entry.name : entry.url) = text;
            list.AddException(entry);
            policy.AddList(list);
            try {
                WebFilterXmlProcessor::SerializePolicy(policy);
                ADD_FAILURE() << "no failure for " << testing::Readable(text) << " in field "
                              << field;
            } catch (const HResultError& error) {
                EXPECT_EQ(error.Result(), kHResultFail);
                EXPECT_EQ(static_cast<std::uint32_t>(error.Result()), 0x80004005u);
            }
        }
    }
}

TEST(SerializePolicy, SerializeDeserializeSerializeGivesTheSameText) {
    WebFilterPolicy policy = ExamplePolicy();
    policy.version = 2147483647;
    FilterList tricky = MakeList(FilterListWhite, IdWithFirstField(0xABCDEF01), u" \t");
    tricky.AddEntry(FilterEntry(u"a&b <c> \"d\" 'e'", u"http://x/?a=1&b=<2>]]>"));
    tricky.AddEntry(FilterEntry(u"line\r\nends\rand\ttabs\n", u"\U0001F600\u00E9\uFFFD"));
    tricky.AddEntry(FilterEntry(u"", u""));
    tricky.AddEntry(FilterEntry(u"\n", u"  "));
    tricky.AddException(FilterEntry(u"same", u"same"));
    tricky.AddException(FilterEntry(u"same", u"same"));
    policy.AddList(tricky);
    policy.AddList(MakeList(FilterListBlack, IdWithFirstField(0x2), u""));

    const std::u16string first = WebFilterXmlProcessor::SerializePolicy(policy);
    WebFilterPolicy read;
    ASSERT_TRUE(WebFilterXmlProcessor::DeserializePolicy(read, first));
    EXPECT_EQ(testing::DescribePolicy(read), testing::DescribePolicy(policy));
    EXPECT_EQ(WebFilterXmlProcessor::SerializePolicy(read), first);
}

}  // namespace
}  // namespace sentrel
