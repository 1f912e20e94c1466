#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "policy/utf16le.h"
#include "policy/xml_reader.h"
#include "xml_test_support.h"

namespace sentrel {
namespace {

using testing::StreamOf;
using testing::Trace;

struct TraceCase {
    std::u16string document;
    std::string trace;
};

void ExpectTraces(const std::vector<TraceCase>& cases) {
    for (const TraceCase& c : cases) {
        EXPECT_EQ(Trace(c.document), c.trace) << testing::Readable(c.document);
    }
}

TEST(XmlReader, ReportsNodesOfWellFormedDocuments) {
    ExpectTraces({
        {u"<a>x</a>", "<a> T[x] </a> $"},
        {u"<a/>", "<a/> $"},
        {u"\uFEFF<a/>", "<a/> $"},
        {u"<a><b/><c></c></a>", "<a> <b/> <c> </c> </a> $"},
        {u"<a></a  >", "<a> </a> $"},
        {u"<a\n x = '1'\ty=\"2\" />", "<a/> $"},
        {u"<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<a/>\n", "D W <a/> W $"},
        {u"\uFEFF<?xml version='1.0' standalone='yes'?><a/>", "D <a/> $"},
        {u"<!-- c --><?pi data?><a/><!--e--><?p?>", "! ? <a/> ! ? $"},
        {u"<?xml-stylesheet href='s'?><a/>", "? <a/> $"},
        {u"<a><![CDATA[<&]]]>]]</a>", "<a> C[<&]] T[]]] </a> $"},
        {u"<a>x<!--c-->y&amp;z<?p?>w</a>", "<a> T[x] ! T[y&z] ? T[w] </a> $"},
        {u"<a> \n\t<b/>\r\n</a>", "<a> W <b/> W </a> $"},
        {u"<p:a xmlns:p='urn:p'><p:b/></p:a>", "<a> <b/> </a> $"},
        {u"<a\u00B7\u0300-.9 \u00E9:b='1'/>", "<a\\u00B7\\u0300-.9/> $"},
        {u"<\U00010000/>", "<\\uD800\\uDC00/> $"},
        {u"<a x='&lt;&#10;'/>", "<a/> $"},
    });
}

TEST(XmlReader, ExpandsReferencesAndNormalizesLineEnds) {
    ExpectTraces({
        {u"<a>&lt;&gt;&amp;&apos;&quot;</a>", "<a> T[<>&'\"] </a> $"},
        {u"<a>&#65;&#x42;&#x00063;&#x1F600;</a>", "<a> T[ABc\\uD83D\\uDE00] </a> $"},
        {u"<a>x\r\ny\rz\r\r\n</a>", "<a> T[x\\u000Ay\\u000Az\\u000A\\u000A] </a> $"},
        {u"<a>&#xD;&#13;</a>", "<a> T[\\u000D\\u000D] </a> $"},
        {u"<a>\U0001F600\uFFFD\uE000</a>", "<a> T[\\uD83D\\uDE00\\uFFFD\\uE000] </a> $"},
        // Text made of a reference to white space is text, not white space.
        {u"<a>&#32;</a>", "<a> T[ ] </a> $"},
        // The encoding a declaration names does not change how the bytes are read.
        {u"<?xml version='1.0' encoding='utf-8'?><a>\u00E9</a>", "D <a> T[\\u00E9] </a> $"},
    });
}

TEST(XmlReader, StopsAtMalformedInputAfterTheNodesBeforeIt) {
    ExpectTraces({
        // Empty or truncated input.
        {u"", "X"},
        {u"\uFEFF", "X"},
        {u"  ", "W X"},
        {u"<", "X"},
        {u"<a", "X"},
        {u"<a>", "<a> X"},
        {u"<a>x", "<a> X"},
        {u"<a>x<", "<a> T[x] X"},
        {u"<a></a", "<a> X"},
        {u"<a><!-- c -", "<a> X"},
        {u"<a><![CDATA[x]]", "<a> X"},
        {u"<a x='1", "X"},
        {u"<a>&amp", "<a> X"},
        {u"<a>\r", "<a> X"},
        {u"<a>\xD83D", "<a> X"},
        // Nesting and the one root element.
        {u"<a></b>", "<a> X"},
        {u"<a><b></a></b>", "<a> <b> X"},
        {u"</a>", "X"},
        {u"<a/><b/>", "<a/> X"},
        {u"<a></a><a></a>", "<a> </a> X"},
        {u"<a/>x", "<a/> X"},
        {u"x<a/>", "X"},
        {u"<a/>&amp;", "<a/> X"},
        {u"<![CDATA[x]]><a/>", "X"},
        {u"<p:a></a>", "<a> X"},
        // Document type declarations.
        {u"<!DOCTYPE a><a/>", "X"},
        {u"<!DOCTYPE a [<!ENTITY e 'x'>]><a>&e;</a>", "X"},
        {u"<a><!ELEMENT a ANY></a>", "<a> X"},
        // Character data that markup owns.
        {u"<a>x < y</a>", "<a> T[x ] X"},
        {u"<a>x ]]> y</a>", "<a> X"},
        {u"<a>]]></a>", "<a> X"},
        // References.
        {u"<a>&nbsp;</a>", "<a> X"},
        {u"<a>&lt</a>", "<a> X"},
        {u"<a>& </a>", "<a> X"},
        {u"<a>&;</a>", "<a> X"},
        {u"<a>&LT;</a>", "<a> X"},
        {u"<a>&#0;</a>", "<a> X"},
        {u"<a>&#x1;</a>", "<a> X"},
        {u"<a>&#xD800;</a>", "<a> X"},
        {u"<a>&#xDFFF;</a>", "<a> X"},
        {u"<a>&#xFFFE;</a>", "<a> X"},
        {u"<a>&#x110000;</a>", "<a> X"},
        {u"<a>&#99999999999999999999;</a>", "<a> X"},
        {u"<a>&#;</a>", "<a> X"},
        {u"<a>&#x;</a>", "<a> X"},
        {u"<a>&#X41;</a>", "<a> X"},
        {u"<a>&#12a;</a>", "<a> X"},
        // Characters XML cannot carry.
        {u"<a>\u0001</a>", "<a> X"},
        {std::u16string(u"<a>\0</a>", 8), "<a> X"},
        {u"<a>\uFFFF</a>", "<a> X"},
        {u"<a>\xD800x</a>", "<a> X"},
        {u"<a>\xDC00</a>", "<a> X"},
        {u"<a><!--\u0001--></a>", "<a> X"},
        {u"<a><![CDATA[\xDC00]]></a>", "<a> X"},
        // Names.
        {u"<1a/>", "X"},
        {u"< a/>", "X"},
        {u"<>", "X"},
        {u"<:a/>", "X"},
        {u"<a:/>", "X"},
        {u"<a:b:c/>", "X"},
        {u"<\u00B7a/>", "X"},
        {u"<a\u00D7/>", "X"},
        {u"<a\xD800/>", "X"},
        {u"<a/ >", "X"},
        // Attributes.
        {u"<a x=1/>", "X"},
        {u"<a x/>", "X"},
        {u"<a x='<'/>", "X"},
        {u"<a x='1'y='2'/>", "X"},
        {u"<a x='1' x=\"2\"/>", "X"},
        {u"<a x='&bad;'/>", "X"},
        {u"<a x='\u0001'/>", "X"},
        {u"<a x='1\"/>", "X"},
        // Comments and processing instructions.
        {u"<a><!-- x -- y --></a>", "<a> X"},
        {u"<a><!-- x ---></a>", "<a> X"},
        {u"<a><?p?x?></a>", "<a> X"},
        {u"<a><?xml version='1.0'?></a>", "<a> X"},
        {u"<a><?XmL x?></a>", "<a> X"},
        {u" <?xml version='1.0'?><a/>", "W X"},
        {u"<!--c--><?xml version='1.0'?><a/>", "! X"},
        {u"<?xml?><a/>", "X"},
        {u"<?xml encoding='utf-8'?><a/>", "X"},
        {u"<?xml version='1.0' version='1.0'?><a/>", "X"},
        {u"<?xml version='1.0'><a/>", "X"},
        {u"\uFEFF\uFEFF<a/>", "X"},
    });
}

TEST(XmlReader, StaysAtItsEndOnceReached) {
    XmlReader ended(StreamOf(u"<a/>"));
    EXPECT_EQ(Trace(ended), "<a/> $");
    EXPECT_EQ(ended.Read(), XmlReadResult::EndOfInput);
    XmlReader failed(StreamOf(u"<a><b></a>"));
    EXPECT_EQ(Trace(failed), "<a> <b> X");
    EXPECT_EQ(failed.Read(), XmlReadResult::Malformed);
}

TEST(XmlReader, WithoutInputEverythingIsMalformed) {
    XmlReader reader(nullptr);
    EXPECT_EQ(reader.Read(), XmlReadResult::Malformed);
}

TEST(XmlReader, StrayByteAfterTheLastCodeUnitIsMalformed) {
    auto stream = CreateMemoryStream();
    stream->Write(AsUtf16LeBytes(u"<a/>"));
    const std::uint8_t stray = 0x20;
    stream->Write(std::span(&stray, 1));
    stream->SeekToStart();
    XmlReader reader(stream);
    EXPECT_EQ(testing::Trace(reader), "<a/> X");
}

// The reader takes its input in pieces; a node cut by the end of a piece must read exactly as
// a node inside one. A comment of varying length moves each construct across the first
// piece's end, one code unit at a time.
TEST(XmlReader, NodesAcrossTheEndOfAPieceReadAlike) {
    const std::vector<TraceCase> constructs = {
        {u"<b x='1' y=\"&amp;\">t</b>", "<b> T[t] </b> "},
        {u"x&amp;y", "T[x&y] "},
        {u"&#x1F600;", "T[\\uD83D\\uDE00] "},
        {u"x\U0001F600", "T[x\\uD83D\\uDE00] "},
        {u"x\r\ny", "T[x\\u000Ay] "},
        {u"<!--c-->", "! "},
        {u"<![CDATA[a]]b]]>", "C[a]]b] "},
        {u"<?pi x?>", "? "},
        {u"<b/>", "<b/> "},
        {u"\U00010000", "T[\\uD800\\uDC00] "},
    };
    constexpr std::size_t kPiece = 32 * 1024;
    for (const TraceCase& construct : constructs) {
        for (std::size_t shift = 0; shift < 16; ++shift) {
            // <a><!--...--> puts the construct at kPiece - 12 + shift.
            const std::size_t fill = kPiece - 12 + shift - 10;
            const std::u16string document =
                u"<a><!--" + std::u16string(fill, u'.') + u"-->" + construct.document + u"</a>";
            EXPECT_EQ(Trace(document), "<a> ! " + construct.trace + "</a> $")
                << testing::Readable(construct.document) << " at shift " << shift;
        }
    }
}

TEST(XmlReader, LongNodesGrowTheBuffer) {
    const std::u16string text(300000, u'y');
    const std::u16string name(70000, u'n');
    XmlReader reader(StreamOf(u"<a>" + text + u"</a><!--" + text + u"--><" + name + u"/>"));
    ASSERT_EQ(reader.Read(), XmlReadResult::Node);
    ASSERT_EQ(reader.Read(), XmlReadResult::Node);
    EXPECT_EQ(reader.Value(), text);
    EXPECT_EQ(testing::Trace(reader), "</a> ! X");

    XmlReader named(StreamOf(u"<" + name + u">&amp;" + text + u"</" + name + u">"));
    ASSERT_EQ(named.Read(), XmlReadResult::Node);
    EXPECT_EQ(named.LocalName(), name);
    ASSERT_EQ(named.Read(), XmlReadResult::Node);
    EXPECT_EQ(named.Value(), u"&" + text);
    ASSERT_EQ(named.Read(), XmlReadResult::Node);
    EXPECT_EQ(named.NodeType(), XmlNodeType::EndElement);
    EXPECT_EQ(named.Read(), XmlReadResult::EndOfInput);
}

TEST(XmlReader, ManySmallNodesAcrossManyPieces) {
    std::u16string document = u"<r>";
    constexpr int kCount = 50000;
    for (int i = 0; i < kCount; ++i) {
        document += u"<e>v&lt;</e>";
    }
    document += u"</r>";
    XmlReader reader(StreamOf(document));
    int texts = 0;
    XmlReadResult result;
    while ((result = reader.Read()) == XmlReadResult::Node) {
        if (reader.NodeType() == XmlNodeType::Text) {
            EXPECT_EQ(reader.Value(), u"v<");
            ++texts;
        }
    }
    EXPECT_EQ(result, XmlReadResult::EndOfInput);
    EXPECT_EQ(texts, kCount);
}

std::u16string Nested(std::size_t depth, std::u16string_view inner) {
    std::u16string document;
    document.reserve(depth * 7 + inner.size());
    for (std::size_t i = 0; i < depth; ++i) {
        document += u"<a>";
    }
    document += inner;
    for (std::size_t i = 0; i < depth; ++i) {
        document += u"</a>";
    }
    return document;
}

// Counts the element starts and ends up to the end of reading, and how reading ended.
std::string CountNodes(const std::u16string& document) {
    XmlReader reader(StreamOf(document));
    std::size_t starts = 0;
    std::size_t ends = 0;
    XmlReadResult result;
    while ((result = reader.Read()) == XmlReadResult::Node) {
        starts += reader.NodeType() == XmlNodeType::StartElement ? 1u : 0u;
        ends += reader.NodeType() == XmlNodeType::EndElement ? 1u : 0u;
    }
    return std::to_string(starts) + " starts " + std::to_string(ends) + " ends " +
           (result == XmlReadResult::EndOfInput ? "$" : "X");
}

TEST(XmlReader, ElementsNestUpTo256Deep) {
    EXPECT_EQ(CountNodes(Nested(256, u"x")), "256 starts 256 ends $");
    EXPECT_EQ(CountNodes(Nested(255, u"<b/>")), "256 starts 255 ends $");
    EXPECT_EQ(CountNodes(Nested(256, u"<b/>")), "256 starts 0 ends X");
    EXPECT_EQ(CountNodes(Nested(257, u"")), "256 starts 0 ends X");
    // However deep the input, the reader's own depth stays flat.
    EXPECT_EQ(CountNodes(Nested(1000000, u"")), "256 starts 0 ends X");
}

}  // namespace
}  // namespace sentrel
