#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "policy/web_filter_storage_data_stream.h"
#include "policy/xml_writer.h"
#include "xml_test_support.h"

namespace sentrel {
namespace {

// A writer over a fresh in-memory storage, whose content can be taken as text.
class WriterOverStorage {
  public:
    WriterOverStorage() {
        storage_.OpenWrite(u"");
        writer_ = std::make_unique<XmlWriter>(storage_.GetStream());
    }
    XmlWriter& Writer() { return *writer_; }
    std::u16string Text() { return storage_.ReadText(); }

  private:
    CWebFilterStorageDataStream storage_;
    std::unique_ptr<XmlWriter> writer_;
};

TEST(XmlWriter, WritesByteOrderMarkAndElementsWithoutWhiteSpace) {
    WriterOverStorage output;
    XmlWriter& writer = output.Writer();
    ASSERT_TRUE(writer.WriteStartElement(u"a"));
    ASSERT_TRUE(writer.WriteElementString(u"b", u"x"));
    ASSERT_TRUE(writer.WriteElementString(u"c", u""));
    ASSERT_TRUE(writer.WriteStartElement(u"d"));
    ASSERT_TRUE(writer.WriteFullEndElement());
    ASSERT_TRUE(writer.WriteFullEndElement());
    EXPECT_EQ(output.Text(), u"");  // nothing reaches the stream before a flush
    ASSERT_TRUE(writer.Flush());
    EXPECT_EQ(output.Text(), u"\uFEFF<a><b>x</b><c></c><d></d></a>");
}

TEST(XmlWriter, EscapesWhatMarkupWouldTakeAndKeepsTheRest) {
    const std::vector<std::pair<std::u16string, std::u16string>> cases = {
        {u"a&b<c>d", u"a&amp;b&lt;c&gt;d"},
        {u"]]>", u"]]&gt;"},
        {u"x\r\ny\tz\n", u"x&#xD;\ny\tz\n"},
        {u"'\"=/?", u"'\"=/?"},
        {u" ", u"&#x20;"},
        {u"\t\n ", u"&#x9;\n "},
        {u"\n", u"&#xA;"},
        {u" x ", u" x "},
        {u"\U0001F600\uFFFD\uE000\uD7FF", u"\U0001F600\uFFFD\uE000\uD7FF"},
    };
    for (const auto& [value, escaped] : cases) {
        WriterOverStorage output;
        ASSERT_TRUE(output.Writer().WriteElementString(u"v", value));
        ASSERT_TRUE(output.Writer().Flush());
        EXPECT_EQ(output.Text(), u"\uFEFF<v>" + escaped + u"</v>") << testing::Readable(value);
    }
}

TEST(XmlWriter, WrittenTextReadsBackUnchanged) {
    const std::vector<std::u16string> values = {u"plain",
                                                u"a&b<c>d]]>e",
                                                u"\r",
                                                u"x\ry\r\nz",
                                                u" ",
                                                u"\t",
                                                u"\n\n",
                                                u"  lead and trail ",
                                                u"&#xD; &amp; taken literally",
                                                u"<![CDATA[x]]>",
                                                u"\U0001F600",
                                                u"'\""};
    for (const std::u16string& value : values) {
        WriterOverStorage output;
        ASSERT_TRUE(output.Writer().WriteElementString(u"v", value));
        ASSERT_TRUE(output.Writer().Flush());
        XmlReader reader(testing::StreamOf(output.Text()));
        ASSERT_EQ(reader.Read(), XmlReadResult::Node);
        ASSERT_EQ(reader.Read(), XmlReadResult::Node);
        EXPECT_EQ(reader.NodeType(), XmlNodeType::Text);
        EXPECT_EQ(reader.Value(), value) << testing::Readable(value);
    }
}

TEST(XmlWriter, RefusesCharactersXmlCannotCarryAndStaysFailed) {
    const std::vector<std::u16string> values = {u"\u0001",   std::u16string(1, u'\0'),
                                                u"a\u0008",  u"\u000B",
                                                u"\u000C",   u"\u001F",
                                                u"\uFFFE",   u"\uFFFF",
                                                u"\xD800",   u"\xDBFF",
                                                u"x\xDC00y", u"\xDC00\xD800",
                                                u"ok\xD83D"};
    for (const std::u16string& value : values) {
        WriterOverStorage output;
        XmlWriter& writer = output.Writer();
        ASSERT_TRUE(writer.WriteStartElement(u"a"));
        EXPECT_FALSE(writer.WriteElementString(u"v", value)) << testing::Readable(value);
        EXPECT_FALSE(writer.WriteElementString(u"v", u"fine"));
        EXPECT_FALSE(writer.WriteFullEndElement());
        EXPECT_FALSE(writer.Flush());
        EXPECT_EQ(output.Text(), u"");
    }
}

TEST(XmlWriter, RefusesNamesThatAreNotXmlNames) {
    const std::vector<std::u16string> names = {u"",   u"1a",      u"-a",      u"a b",    u"a:b",
                                               u"a<", u"a\u0001", u"\u00B7a", u"a\xD800"};
    for (const std::u16string& name : names) {
        WriterOverStorage start;
        EXPECT_FALSE(start.Writer().WriteStartElement(name)) << testing::Readable(name);
        WriterOverStorage element;
        EXPECT_FALSE(element.Writer().WriteElementString(name, u"x")) << testing::Readable(name);
    }
    WriterOverStorage output;
    EXPECT_TRUE(output.Writer().WriteElementString(u"_a.b-c9\u00E9\U00010000", u""));
}

TEST(XmlWriter, EndWithoutOpenElementFails) {
    WriterOverStorage output;
    EXPECT_FALSE(output.Writer().WriteFullEndElement());
    EXPECT_FALSE(output.Writer().WriteStartElement(u"a"));
}

TEST(XmlWriter, WithoutOutputEveryStepFails) {
    XmlWriter writer(nullptr);
    EXPECT_FALSE(writer.WriteStartElement(u"a"));
    EXPECT_FALSE(writer.Flush());
}

TEST(XmlWriter, LargeOutputArrivesWholeAndInOrder) {
    WriterOverStorage output;
    XmlWriter& writer = output.Writer();
    ASSERT_TRUE(writer.WriteStartElement(u"r"));
    std::u16string expected = u"\uFEFF<r>";
    for (int i = 0; i < 30000; ++i) {
        const std::u16string value = u"v" + std::u16string(static_cast<std::size_t>(i % 7), u'&');
        ASSERT_TRUE(writer.WriteElementString(u"e", value));
        expected += u"<e>v";
        for (int k = 0; k < i % 7; ++k) {
            expected += u"&amp;";
        }
        expected += u"</e>";
    }
    ASSERT_TRUE(writer.WriteFullEndElement());
    ASSERT_TRUE(writer.Flush());
    expected += u"</r>";
    EXPECT_EQ(output.Text(), expected);
}

}  // namespace
}  // namespace sentrel
