#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "policy/web_filter_xml_processor.h"
#include "xml_test_support.h"

namespace sentrel {
namespace {

// Two lists, the white one first in key order, each with main and exception entries.
WebFilterPolicy TwoListPolicy() {
    WebFilterPolicy policy;
    policy.version = 123;
    policy.refreshMode = 45;
    FilterList white(u"School & co");
    white.id = Guid::FromFields(0x10, 0x20, 0x30, {1, 2, 3, 4, 5, 6, 7, 8});
    white.AddEntry(FilterEntry(u"Encyclopedia", u"http://encyclopedia.example.org/wiki"));
    white.AddEntry(FilterEntry(u"Dictionary", u"https://dict.example.org:8443/"));
    white.AddException(FilterEntry(u"Chat", u"http://chat.example.org/"));
    policy.AddList(white);
    FilterList black(u"Games");
    black.type = FilterListBlack;
    black.id = Guid::FromFields(0x11, 0, 0, {});
    black.AddEntry(FilterEntry(u"Arcade \U0001F3AE", u"http://arcade.example.com/"));
    black.AddException(FilterEntry(u"Chess", u"http://arcade.example.com/chess"));
    policy.AddList(black);
    return policy;
}

WebFilterPolicy OnlyFirstListOf(const WebFilterPolicy& policy) {
    WebFilterPolicy first = policy;
    first.lists.erase(std::next(first.lists.begin()), first.lists.end());
    return first;
}

WebFilterPolicy Read(const std::u16string& document) {
    WebFilterPolicy policy;
    EXPECT_TRUE(WebFilterXmlProcessor::DeserializePolicy(policy, document));
    return policy;
}

// Where the node ends that the reader can report once the input reaches that far.
std::size_t EndOf(const std::u16string& document, std::u16string_view text) {
    const std::size_t at = document.find(text);
    EXPECT_NE(at, std::u16string::npos);
    return at + text.size();
}

TEST(DeserializePolicyTruncated, EveryCutKeepsExactlyTheListsClosedBeforeIt) {
    const WebFilterPolicy full = TwoListPolicy();
    const std::u16string document = WebFilterXmlProcessor::SerializePolicy(full);
    const std::string fullDescription = testing::DescribePolicy(full);
    const std::string firstDescription = testing::DescribePolicy(OnlyFirstListOf(full));
    const std::size_t firstEnd = EndOf(document, u"</WhiteList>");
    const std::size_t secondEnd = EndOf(document, u"</BlackList>");
    // A text counts once the markup after it has begun: the number is never taken in part.
    const std::size_t versionEnd = EndOf(document, u">123<");
    const std::size_t refreshModeEnd = EndOf(document, u">45<");
    for (std::size_t cut = 0; cut <= document.size(); ++cut) {
        const WebFilterPolicy policy = Read(document.substr(0, cut));
        EXPECT_EQ(policy.version, cut >= versionEnd ? 123u : 1u) << "cut at " << cut;
        EXPECT_EQ(policy.refreshMode, cut >= refreshModeEnd ? 45u : 0u) << "cut at " << cut;
        if (cut >= secondEnd) {
            EXPECT_EQ(testing::DescribePolicy(policy), fullDescription) << "cut at " << cut;
        } else if (cut >= firstEnd) {
            EXPECT_EQ(testing::DescribePolicy(policy), firstDescription) << "cut at " << cut;
        } else {
            EXPECT_TRUE(policy.lists.empty()) << "cut at " << cut;
        }
    }
}

TEST(DeserializePolicyTruncated, MalformedInputKeepsWhatWasReadBeforeIt) {
    const WebFilterPolicy full = TwoListPolicy();
    const std::u16string document = WebFilterXmlProcessor::SerializePolicy(full);
    const std::string firstDescription = testing::DescribePolicy(OnlyFirstListOf(full));
    const std::vector<std::u16string> faults = {
        u"<!DOCTYPE x>",
        u"&bogus;",
        u"</Mismatch>",
        u"<",
        u"x]]>y",
        u"\u0001",
        u"<a b>",
        u"<a x='1' x='2'/>",
        u"&#0;",
        u"\xD800",
        u"&#xDC00;",
        u"<?xml version='1.0'?>",
        u"<:x/>",
        u"<a:b:c/>",
        u"<![CDATA[x]]",
        u"<!-- x -- y -->",
        u"</WebFilters><x/>",
        std::u16string(1, u'\0'),
    };
    // Between the lists, and inside the second list just before its end tag.
    const std::vector<std::size_t> places = {EndOf(document, u"</WhiteList>"),
                                             document.find(u"</BlackList>")};
    for (const std::u16string& fault : faults) {
        for (const std::size_t place : places) {
            std::u16string broken = document;
            broken.insert(place, fault);
            const WebFilterPolicy policy = Read(broken);
            EXPECT_EQ(testing::DescribePolicy(policy), firstDescription)
                << testing::Readable(fault) << " at " << place;
        }
    }
}

TEST(DeserializePolicyTruncated, NestingBeyondTheReadersDepthEndsReading) {
    const WebFilterPolicy full = TwoListPolicy();
    const std::u16string document = WebFilterXmlProcessor::SerializePolicy(full);
    const std::size_t rootEnd = document.rfind(u"</WebFilters>");
    // The root is one level: a version 255 levels below it is the deepest an element may stand.
    for (const std::size_t depth : {std::size_t{254}, std::size_t{255}, std::size_t{1000000}}) {
        std::u16string nesting;
        nesting.reserve(depth * 7 + 32);
        for (std::size_t i = 0; i < depth; ++i) {
            nesting += u"<x>";
        }
        nesting += u"<WFVersion>9</WFVersion>";
        for (std::size_t i = 0; i < depth; ++i) {
            nesting += u"</x>";
        }
        std::u16string nested = document;
        nested.insert(rootEnd, nesting);
        WebFilterPolicy expected = full;
        expected.version = depth < 255 ? 9 : full.version;
        EXPECT_EQ(testing::DescribePolicy(Read(nested)), testing::DescribePolicy(expected))
            << "depth " << depth;
    }
}

}  // namespace
}  // namespace sentrel
