#include <gtest/gtest.h>

#include <string>

#include "policy/hresult_error.h"
#include "policy/web_filter_xml_processor.h"
#include "xml_test_support.h"

namespace sentrel {
namespace {

using testing::TemporaryFile;

TEST(WebFilterXmlProcessor, WritesToAndReadsFromAFile) {
    const TemporaryFile file(u"sentrel-processor-\u00E9.xml");
    const std::u16string path = file.Path();
    {
        WebFilterXmlProcessor writer;
        ASSERT_TRUE(writer.OpenWriter(path));
        ASSERT_TRUE(writer.StartElement(u"WebFilters"));
        ASSERT_TRUE(writer.WriteNumberElement(u"WFVersion", 4294967295u));
        ASSERT_TRUE(writer.StartElement(u"BlackList"));
        ASSERT_TRUE(writer.WriteTextElement(u"BLName", u"from a file"));
        ASSERT_TRUE(writer.EndElement());
        ASSERT_TRUE(writer.EndElement());
        ASSERT_TRUE(writer.Flush());
        // A file opened for writing cannot be read back.
        EXPECT_EQ(writer.GetText(), u"");
    }
    WebFilterPolicy policy;
    WebFilterXmlProcessor reader(&policy);
    ASSERT_TRUE(reader.OpenReader(path));
    EXPECT_TRUE(reader.ReadDocument(u""));
    EXPECT_EQ(policy.version, 2147483647u);
    ASSERT_EQ(policy.lists.size(), 1u);
    EXPECT_EQ(policy.lists.begin()->second.name, u"from a file");
    EXPECT_EQ(policy.lists.begin()->second.type, FilterListBlack);
}

TEST(WebFilterXmlProcessor, ReadingNeedsAReaderAStreamAndAPolicy) {
    WebFilterPolicy policy;
    WebFilterXmlProcessor processor(&policy);
    EXPECT_FALSE(processor.ReadDocument(u""));
    // Nothing staged: no stream to read.
    EXPECT_FALSE(processor.OpenReader(u""));
    const TemporaryFile missing(u"sentrel-processor-missing.xml");
    EXPECT_FALSE(processor.OpenReader(missing.Path()));
    EXPECT_FALSE(processor.ReadDocument(u""));

    ASSERT_TRUE(processor.Storage().WriteText(u"<r><WFVersion>5</WFVersion></r>"));
    ASSERT_TRUE(processor.OpenReader(u""));
    processor.Close();
    EXPECT_FALSE(processor.ReadDocument(u""));
    EXPECT_EQ(policy.version, 1u);

    WebFilterXmlProcessor withoutPolicy;
    ASSERT_TRUE(withoutPolicy.Storage().WriteText(u"<r/>"));
    ASSERT_TRUE(withoutPolicy.OpenReader(u""));
    EXPECT_FALSE(withoutPolicy.ReadDocument(u""));
}

TEST(WebFilterXmlProcessor, ReadingStartsWithTheNamedElementCurrent) {
    WebFilterPolicy policy;
    WebFilterXmlProcessor processor(&policy);
    ASSERT_TRUE(processor.Storage().WriteText(u"<r>42<WFRefreshMode>3</WFRefreshMode>7</r>"));
    ASSERT_TRUE(processor.OpenReader(u""));
    EXPECT_TRUE(processor.ReadDocument(u"wfversion"));
    EXPECT_EQ(policy.version, 42u);
    EXPECT_EQ(policy.refreshMode, 3u);
}

TEST(WebFilterXmlProcessor, WritingNeedsAWriter) {
    WebFilterXmlProcessor processor;
    EXPECT_FALSE(processor.StartElement(u"WebFilters"));
    EXPECT_FALSE(processor.WriteTextElement(u"WLName", u"x"));
    EXPECT_FALSE(processor.WriteNumberElement(u"WFVersion", 1));
    EXPECT_FALSE(processor.EndElement());
    EXPECT_FALSE(processor.Flush());
    const TemporaryFile missing(u"sentrel-processor-missing.xml");
    EXPECT_FALSE(processor.OpenWriter(missing.Path() + u"/x.xml"));
    EXPECT_FALSE(processor.StartElement(u"WebFilters"));
}

TEST(WebFilterXmlProcessor, WriterFailureCarriesEFailInItsMessageToo) {
    const HResultError error(kHResultFail);
    EXPECT_EQ(error.Result(), static_cast<HResult>(0x80004005u));
    EXPECT_NE(std::string(error.what()).find("0x80004005"), std::string::npos);
    EXPECT_NE(std::string(HResultError(kHResultOutOfMemory).what()).find("0x8007000E"),
              std::string::npos);
}

}  // namespace
}  // namespace sentrel
