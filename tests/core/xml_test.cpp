#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core_test_support.h"
#include "policy/web_filter_storage_data_stream.h"
#include "policy/xml_reader.h"
#include "policy/xml_writer.h"

namespace sentrel {
namespace {

using namespace std::string_view_literals;

// The nodes a reader reports, one word each: <a> and <a/> for element starts, </a> for ends,
// T[value] for text, W for white space, C[value] for CDATA, ! for comments, ? for processing
// instructions, D for the declaration; then $ for a well-formed end or X for malformed input.
std::string Trace(XmlReader& reader) {
    static constexpr const char* kWords[] = {"<", "</", "T[", "W", "C[", "!", "?", "D"};
    std::string trace;
    XmlReadResult result;
    while ((result = reader.Read()) == XmlReadResult::Node) {
        const XmlNodeType type = reader.NodeType();
        trace += kWords[static_cast<int>(type)];
        if (type == XmlNodeType::StartElement || type == XmlNodeType::EndElement) {
            trace += test::Readable(reader.LocalName()) + (reader.IsEmptyElement() ? "/>" : ">");
        } else if (type == XmlNodeType::Text || type == XmlNodeType::CData) {
            trace += test::Readable(reader.Value()) + "]";
        }
        trace += " ";
    }
    return trace + (result == XmlReadResult::EndOfInput ? "$" : "X");
}

std::string Trace(std::u16string_view document) {
    XmlReader reader(test::StreamOf(document));
    return Trace(reader);
}

using TraceCase = std::pair<std::u16string, std::string>;  // a document and its trace

TEST(XmlReader, ReportsTheNodesBeforeTheEndOrTheFirstFault) {
    const TraceCase cases[] = {
        // Well-formed documents.
        {u"<a>x</a>", "<a> T[x] </a> $"},
        {u"\uFEFF<a/>", "<a/> $"},
        {u"<a\n x = '1'\ty=\"2\" ></a  >", "<a> </a> $"},
        {u"<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<a/>\n", "D W <a/> W $"},
        {u"<?xml version=\"1.1\" encoding = 'Latin_1.x-2' standalone=\"no\" ?><a/>", "D <a/> $"},
        {u"<!-- c --><?pi data?><a/><!--e--><?p?>", "! ? <a/> ! ? $"},
        {u"<a><![CDATA[<&]]]>]]</a>", "<a> C[<&]] T[]]] </a> $"},
        {u"<a>x<!--c-->y&amp;z<?p?>w</a>", "<a> T[x] ! T[y&z] ? T[w] </a> $"},
        {u"<a> \n\t<b/>\r\n</a>", "<a> W <b/> W </a> $"},
        {u"<p:a xmlns:p='urn:p'><p:b/></p:a>", "<a> <b/> </a> $"},
        {u"<a\u00B7\u0300-.9 \u00E9:b='1'/>", "<a\\u00B7\\u0300-.9/> $"},
        {u"<\U00010000/>", "<\\uD800\\uDC00/> $"},
        // References and line ends; text made of a reference to white space is text.
        {u"<a>&lt;&gt;&amp;&apos;&quot;</a>", "<a> T[<>&'\"] </a> $"},
        {u"<a>&#65;&#x42;&#x00063;&#x1F600;</a>", "<a> T[ABc\\uD83D\\uDE00] </a> $"},
        {u"<a>x\r\ny\rz\r\r\n</a>", "<a> T[x\\u000Ay\\u000Az\\u000A\\u000A] </a> $"},
        // The encoding a declaration names does not change how the bytes are read.
        {u"<?xml version='1.0' encoding='utf-8'?><a>\u00E9</a>", "D <a> T[\\u00E9] </a> $"},
        // Truncated input.
        {u"  ", "W X"},
        {u"<a>", "<a> X"},
        {u"<a>x<", "<a> T[x] X"},
        {u"<a><!-- c -", "<a> X"},
        {u"<a>\r", "<a> X"},
        {u"<a>\xD83D", "<a> X"},
        // Nesting, the one root element, and what may stand outside it.
        {u"<a><b></a></b>", "<a> <b> X"},
        {u"<a/><b/>", "<a/> X"},
        {u"<a>x < y</a>", "<a> T[x ] X"},
        {u" <?xml version='1.0'?><a/>", "W X"},
        {u"<!--c--><?xml version='1.0'?><a/>", "! X"},
    };
    for (const auto& [document, trace] : cases) {
        EXPECT_EQ(Trace(document), trace) << test::Readable(document);
    }
}

// Content of the root element that is not well-formed: reading ends after the root's start.
TEST(XmlReader, MalformedContentEndsReadingInTheRoot) {
    const std::u16string_view fragments[] = {
        // Markup and character data out of place.
        u"</b>", u"x ]]> y", u"]]>", u"<!ELEMENT a ANY>", u"<!-- x -- y -->", u"<!-- x --->",
        u"<?p?x?>", u"<?xml version='1.0'?>", u"<?XmL x?>",
        // References.
        u"&nbsp;", u"&lt", u"& ", u"&;", u"&LT;", u"&#0;", u"&#x1;", u"&#xD800;", u"&#xDFFF;",
        u"&#xFFFE;", u"&#x110000;", u"&#99999999999999999999;", u"&#;", u"&#x;", u"&#X41;",
        u"&#12a;",
        // Characters XML cannot carry.
        u"\u0001", u"\0"sv, u"\uFFFF", u"\xD800x", u"\xDC00", u"<!--\u0001-->",
        u"<![CDATA[\xDC00]]>"};
    for (const std::u16string_view fragment : fragments) {
        EXPECT_EQ(Trace(u"<a>" + std::u16string(fragment) + u"</a>"), "<a> X")
            << test::Readable(fragment);
    }
}

TEST(XmlReader, MalformedFromTheStart) {
    const std::u16string_view documents[] = {
        // Empty input, or no root element first.
        u"", u"\uFEFF", u"<", u"<a", u"</a>", u"x<a/>", u"<![CDATA[x]]><a/>", u"\uFEFF\uFEFF<a/>",
        // Document type declarations.
        u"<!DOCTYPE a><a/>", u"<!DOCTYPE a [<!ENTITY e 'x'>]><a>&e;</a>",
        // Names.
        u"<1a/>", u"< a/>", u"<>", u"<:a/>", u"<a:/>", u"<a:b:c/>", u"<\u00B7a/>", u"<a\u00D7/>",
        u"<a\xD800/>", u"<a/ >",
        // Attributes.
        u"<a x=1/>", u"<a x/>", u"<a x='<'/>", u"<a x='1'y='2'/>", u"<a x='1' x=\"2\"/>",
        u"<a x='&bad;'/>", u"<a x='\u0001'/>", u"<a x='1\"/>", u"<a x='1",
        // Declarations.
        u"<?xml?><a/>", u"<?xml encoding='utf-8'?><a/>", u"<?xml version='1.0' version='1.0'?><a/>",
        u"<?xml version='1.0'><a/>", u"<?xml version='1.0' bogus='x'?><a/>",
        u"<?xml version='1.0' standalone='maybe'?><a/>",
        u"<?xml version='1.0' standalone='no' encoding='utf-8'?><a/>",
        u"<?xml version='1.0' encoding='!!'?><a/>", u"<?xml version=''?><a/>",
        u"<?xml version='1.'?><a/>", u"<?xml version='1&#46;0'?><a/>"};
    for (const std::u16string_view document : documents) {
        EXPECT_EQ(Trace(document), "X") << test::Readable(document);
    }
}

TEST(XmlReader, InputThatIsNotUtf16TextIsMalformed) {
    EXPECT_EQ(XmlReader(nullptr).Read(), XmlReadResult::Malformed);
    const auto stream = CreateMemoryStream();
    const std::uint8_t bytes[] = {'<', 0, 'a', 0, '/', 0, '>', 0, ' '};
    ASSERT_TRUE(stream->Write(bytes) && stream->SeekToStart());
    XmlReader reader(stream);
    EXPECT_EQ(Trace(reader), "<a/> X");
    EXPECT_EQ(reader.Read(), XmlReadResult::Malformed);  // and stays so, as an ended one stays
    XmlReader ended(test::StreamOf(u"<a/>"));
    EXPECT_EQ(Trace(ended), "<a/> $");
    EXPECT_EQ(ended.Read(), XmlReadResult::EndOfInput);
}

// A node cut by the end of a piece of input reads as one inside a piece: a comment of varying
// length moves each construct across the first piece's end, one code unit at a time.
TEST(XmlReader, NodesAcrossTheEndOfAPieceReadAlike) {
    const TraceCase constructs[] = {
        {u"<b x='1' y=\"&amp;\">t</b>", "<b> T[t] </b> "},
        {u"&#x1F600;", "T[\\uD83D\\uDE00] "},
        {u"x\U0001F600", "T[x\\uD83D\\uDE00] "},
        {u"x\r\ny", "T[x\\u000Ay] "},
        {u"<!--c-->", "! "},
        {u"<![CDATA[a]]b]]>", "C[a]]b] "},
        {u"<?pi x?><b/>", "? <b/> "},
    };
    constexpr std::size_t kPiece = 32 * 1024;
    for (const auto& [construct, trace] : constructs) {
        for (std::size_t shift = 0; shift < 16; ++shift) {
            // <a><!--...--> puts the construct at kPiece - 12 + shift.
            const std::size_t fill = kPiece - 12 + shift - 10;
            const std::u16string document =
                u"<a><!--" + std::u16string(fill, u'.') + u"-->" + construct + u"</a>";
            EXPECT_EQ(Trace(document), "<a> ! " + trace + "</a> $")
                << test::Readable(construct) << " at shift " << shift;
        }
    }
}

template <class Char>
std::basic_string<Char> Repeat(const Char* text, std::size_t count) {
    std::basic_string<Char> repeated;
    for (std::size_t i = 0; i < count; ++i) {
        repeated += text;
    }
    return repeated;
}

TEST(XmlReader, LongNodesGrowTheBufferAndNestingStopsAt256) {
    const std::u16string text(300000, u'y');
    const std::u16string name(70000, u'n');
    XmlReader reader(test::StreamOf(u"<" + name + u">&amp;" + text + u"</" + name + u">"));
    ASSERT_EQ(reader.Read(), XmlReadResult::Node);
    EXPECT_EQ(reader.LocalName(), name);
    ASSERT_EQ(reader.Read(), XmlReadResult::Node);
    EXPECT_EQ(reader.Value(), u"&" + text);
    EXPECT_EQ(Trace(reader), "</" + std::string(70000, 'n') + "> $");
    const auto nested = [](std::size_t depth, std::u16string_view inner) {
        return Trace(Repeat(u"<a>", depth) + std::u16string(inner) + Repeat(u"</a>", depth));
    };
    EXPECT_EQ(nested(255, u"<b/>"), Repeat("<a> ", 255) + "<b/> " + Repeat("</a> ", 255) + "$");
    EXPECT_EQ(nested(256, u"x"), Repeat("<a> ", 256) + "T[x] " + Repeat("</a> ", 256) + "$");
    EXPECT_EQ(nested(256, u"<b/>"), Repeat("<a> ", 256) + "X");
    // However deep the input, the reader's own depth stays flat.
    EXPECT_EQ(nested(1000000, u""), Repeat("<a> ", 256) + "X");
}

// A writer over a fresh in-memory storage, whose content can be taken as text.
struct WriterOverStorage {
    CWebFilterStorageDataStream storage;
    XmlWriter writer{[this] {
        storage.OpenWrite(u"");
        return storage.GetStream();
    }()};
};

TEST(XmlWriter, EscapesWhatMarkupWouldTakeAndKeepsTheRest) {
    const std::pair<std::u16string, std::u16string> cases[] = {
        {u"a&b<c>d", u"a&amp;b&lt;c&gt;d"},
        {u"]]>", u"]]&gt;"},
        {u"x\r\ny\tz\n", u"x&#xD;\ny\tz\n"},
        {u" ", u"&#x20;"},
        {u"\n", u"&#xA;"},
        {u"\t\n ", u"&#x9;\n "},
        {u" x ", u" x "},
        {u"\U0001F600\uFFFD\uE000\uD7FF", u"\U0001F600\uFFFD\uE000\uD7FF"},
    };
    for (const auto& [value, escaped] : cases) {
        WriterOverStorage output;
        ASSERT_TRUE(output.writer.WriteElementString(u"v", value) && output.writer.Flush());
        EXPECT_EQ(output.storage.ReadText(), u"\uFEFF<v>" + escaped + u"</v>")
            << test::Readable(value);
    }
}

TEST(XmlWriter, RefusesWhatXmlCannotCarryAndStaysFailed) {
    const std::u16string_view values[] = {u"\u0001", u"\0"sv,     u"a\u0008",      u"\u000B",
                                          u"\u001F", u"\uFFFE",   u"\uFFFF",       u"\xD800",
                                          u"\xDBFF", u"x\xDC00y", u"\xDC00\xD800", u"ok\xD83D"};
    for (const std::u16string_view value : values) {
        WriterOverStorage output;
        XmlWriter& writer = output.writer;
        ASSERT_TRUE(writer.WriteStartElement(u"a"));
        EXPECT_FALSE(writer.WriteElementString(u"v", value)) << test::Readable(value);
        EXPECT_FALSE(writer.WriteElementString(u"v", u"fine"));
        EXPECT_FALSE(writer.WriteFullEndElement() || writer.Flush());
        EXPECT_EQ(output.storage.ReadText(), u"");
    }
    for (const std::u16string_view name :
         {u"", u"1a", u"-a", u"a b", u"a:b", u"a<", u"a\u0001", u"\u00B7a", u"a\xD800"}) {
        EXPECT_FALSE(WriterOverStorage().writer.WriteStartElement(name)) << test::Readable(name);
        EXPECT_FALSE(WriterOverStorage().writer.WriteElementString(name, u"x"))
            << test::Readable(name);
    }
    EXPECT_TRUE(WriterOverStorage().writer.WriteElementString(u"_a.b-c9\u00E9\U00010000", u""));
    // So does an end without an open element, and a writer without output.
    EXPECT_FALSE(WriterOverStorage().writer.WriteFullEndElement());
    EXPECT_FALSE(XmlWriter(nullptr).WriteStartElement(u"a"));
}

}  // namespace
}  // namespace sentrel
