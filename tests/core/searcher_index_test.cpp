#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "search/web_filter_searcher.h"
#include "searcher_test_support.h"
#include "text/url_text.h"

namespace sentrel {
namespace {

using searcher_test::ListOf;
using searcher_test::PolicyOf;

// One line per leaf: "scheme host port path", "*" for every path, "-" for a scheme without hosts.
std::vector<std::u16string> Lines(const SchemeToInfoMapType& index) {
    std::vector<std::u16string> lines;
    WalkIndex(index, [&lines](const IndexEntryView& entry) {
        std::u16string line(entry.schemeKey);
        if (!entry.hasHost) {
            lines.push_back(line + u" -");
            return;
        }
        line += u' ';
        line += entry.hostKey;
        line += u' ';
        for (const char ch : std::to_string(entry.port)) {
            line += static_cast<char16_t>(ch);
        }
        line += u' ';
        line += entry.everyPath ? std::u16string_view(u"*") : entry.pathKey;
        lines.push_back(line);
    });
    return lines;
}

using Lines16 = std::vector<std::u16string>;

Lines16 WhiteLines(const std::vector<std::u16string>& entries) {
    WebFilterSearcher searcher;
    searcher.LoadPolicy(PolicyOf(entries, {}));
    EXPECT_TRUE(searcher.BlackIndex().empty());
    return Lines(searcher.WhiteIndex());
}

TEST(SearcherIndex, EntriesThatDifferOnlyInWhatKeysDropMeet) {
    EXPECT_EQ(WhiteLines({u"http://www.A.b/X/", u"https://a.b/x"}), Lines16{u"http a.b 0 x"});
    EXPECT_EQ(WhiteLines({u"  HTTP://A.B/x  ", u"http://a.b/x?q#f", u"http://u:p@a.b/x/"}),
              Lines16{u"http a.b 0 x"});
    EXPECT_EQ(WhiteLines({u"http://a.b/x/", u"http://a.b/x"}), Lines16{u"http a.b 0 x"});
}

TEST(SearcherIndex, AnEntryWithoutPathCoversEveryPathWhateverTheOrder) {
    EXPECT_EQ(WhiteLines({u"http://a.b", u"http://a.b/x"}), Lines16{u"http a.b 0 *"});
    EXPECT_EQ(WhiteLines({u"http://a.b/x", u"http://a.b", u"http://a.b/y"}),
              Lines16{u"http a.b 0 *"});
    EXPECT_EQ(WhiteLines({u"http://a.b/x", u"http://a.b/"}), Lines16{u"http a.b 0 *"});
}

TEST(SearcherIndex, PortsAreSeparateEntries) {
    EXPECT_EQ(WhiteLines({u"http://a.b:8080/x", u"http://a.b/y"}),
              (Lines16{u"http a.b 0 y", u"http a.b 8080 x"}));
    // An explicit port 0 is the same as none; only the low 16 bits of a port count.
    EXPECT_EQ(WhiteLines({u"http://a.b:0/x", u"http://a.b/y", u"http://a.b:65616/z"}),
              (Lines16{u"http a.b 0 x", u"http a.b 0 y", u"http a.b 80 z"}));
}

TEST(SearcherIndex, UncrackableEntriesAddNothing) {
    WebFilterSearcher searcher;
    searcher.LoadPolicy(PolicyOf({u"a.b/x", u"www.a.b", u"mailto://x"}, {u"", u"   "}));
    EXPECT_TRUE(searcher.WhiteIndex().empty());
    EXPECT_TRUE(searcher.BlackIndex().empty());
}

TEST(SearcherIndex, EntryWithEmptyHostMakesOnlyTheSchemeEntry) {
    WebFilterSearcher searcher;
    searcher.LoadPolicy(PolicyOf({u"http:///x"}, {}));
    EXPECT_EQ(Lines(searcher.WhiteIndex()), Lines16{u"http -"});
    EXPECT_EQ(searcher.WhiteIndex().size(), 1u);
    EXPECT_EQ(WhiteLines({u"http:///x", u"http://a.b"}), Lines16{u"http a.b 0 *"});
}

TEST(SearcherIndex, OnlyMainEntriesAreIndexed) {
    WebFilterSearcher searcher;
    searcher.LoadPolicy(PolicyOf({ListOf(FilterListWhite, {}, {u"http://a.b"}),
                                  ListOf(FilterListBlack, {}, {u"http://c.d"})}));
    EXPECT_TRUE(searcher.WhiteIndex().empty());
    EXPECT_TRUE(searcher.BlackIndex().empty());
}

TEST(SearcherIndex, AboutAndFileEntriesAreIndexedLikeAnyOther) {
    EXPECT_EQ(WhiteLines({u"about:blank", u"file:///c:/x"}),
              (Lines16{u"about blank 0 *", u"file -"}));
}

TEST(SearcherIndex, ListsMergeByTypeAndEveryOtherTypeIsBlack) {
    WebFilterSearcher searcher;
    searcher.LoadPolicy(PolicyOf({
        ListOf(FilterListWhite, {u"http://a.b"}),
        ListOf(FilterListWhite, {u"http://c.d/x"}),
        ListOf(FilterListBlack, {u"http://e.f"}),
        ListOf(static_cast<FilterListType>(7), {u"ftp://g.h"}),
    }));
    EXPECT_EQ(Lines(searcher.WhiteIndex()), (Lines16{u"http a.b 0 *", u"http c.d 0 x"}));
    EXPECT_EQ(Lines(searcher.BlackIndex()), (Lines16{u"ftp g.h 0 *", u"http e.f 0 *"}));
}

TEST(SearcherIndex, LoadingReplacesThePreviousIndexesAndKeepsTheFilterType) {
    WebFilterSearcher searcher;
    searcher.filterType = WebFilterBlockAll;
    searcher.LoadPolicy(PolicyOf({u"http://a.b"}, {u"http://c.d"}));
    searcher.LoadPolicy(PolicyOf({u"http://e.f"}, {}));
    EXPECT_EQ(Lines(searcher.WhiteIndex()), Lines16{u"http e.f 0 *"});
    EXPECT_TRUE(searcher.BlackIndex().empty());
    EXPECT_EQ(searcher.filterType, WebFilterBlockAll);
    searcher.LoadPolicy(WebFilterPolicy{});
    EXPECT_TRUE(searcher.WhiteIndex().empty());
}

TEST(SearcherIndex, EveryNestedLevelHasExactlyOneHolder) {
    WebFilterSearcher searcher;
    searcher.LoadPolicy(PolicyOf({u"http://a.b/x", u"http://a.b:81/y", u"http://c.d"}, {}));
    for (const auto& [scheme, hosts] : searcher.WhiteIndex()) {
        EXPECT_EQ(hosts.use_count(), 1);
        for (const auto& [host, ports] : hosts->hosts()) {
            EXPECT_EQ(ports.use_count(), 1);
            EXPECT_FALSE(ports->ports.empty());
            for (const auto& [port, paths] : ports->ports) {
                EXPECT_EQ(paths.use_count(), 1);
            }
        }
    }
}

TEST(SearcherIndex, TextKeysAreInCodeUnitOrder) {
    EXPECT_EQ(WhiteLines({u"http://\uFF41", u"http://z", u"http://\U0001F600", u"http://ab",
                          u"http://a.b", u"http://a"}),
              (Lines16{u"http a 0 *", u"http a.b 0 *", u"http ab 0 *", u"http z 0 *",
                       u"http \U0001F600 0 *", u"http \uFF41 0 *"}));
}

// The finished index must not depend on the order of the entries.
TEST(SearcherIndex, EveryOrderOfEntriesGivesTheSameIndex) {
    const std::vector<std::u16string> entries = {
        u"http://a.b/x",        u"https://www.a.b/y/", u"http://a.b",    u"http://a.b:8080/x",
        u"http://a.b:8080/x/z", u"http:///q",          u"ftp://c.a.b/x",
    };
    std::vector<std::size_t> order(entries.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    const Lines16 expected = {u"ftp c.a.b 0 x", u"http a.b 0 *", u"http a.b 8080 x",
                              u"http a.b 8080 x/z"};
    int permutations = 0;
    do {
        SchemeToInfoMapType index;
        for (const std::size_t i : order) {
            WebFilterSearcher::InsertUrl(NormalizeUrlText(entries[i]), index);
        }
        ASSERT_EQ(Lines(index), expected) << permutations;
        ++permutations;
    } while (std::next_permutation(order.begin(), order.end()));
    EXPECT_EQ(permutations, 5040);
}

TEST(SearcherIndex, PortMapTransitions) {
    struct Row {
        std::vector<std::u16string> existing;
        std::u16string added;
        Lines16 expected;
    };
    const Row rows[] = {
        {{}, u"http://h/x", {u"http h 0 x"}},
        {{}, u"http://h", {u"http h 0 *"}},
        {{u"http://h"}, u"http://h/x", {u"http h 0 *"}},
        {{u"http://h/x"}, u"http://h", {u"http h 0 *"}},
        {{u"http://h/x"}, u"http://h/y", {u"http h 0 x", u"http h 0 y"}},
        {{u"http://h/x"}, u"http://h/x", {u"http h 0 x"}},
        {{u"http://h/x"}, u"http://h:1/", {u"http h 0 x", u"http h 1 *"}},
    };
    for (const Row& row : rows) {
        SchemeToInfoMapType index;
        for (const std::u16string& url : row.existing) {
            WebFilterSearcher::InsertUrl(url, index);
        }
        WebFilterSearcher::InsertUrl(row.added, index);
        EXPECT_EQ(Lines(index), row.expected) << "row " << (&row - rows);
    }
}

TEST(SearcherIndex, HostMapIgnoresAnEmptyHost) {
    HostToInfoMapTypeStruct hosts;
    auto cracked = std::make_unique<CrackedUrl>();
    ASSERT_TRUE(CrackUrl(u"http://:80/x", *cracked));
    WebFilterSearcher::InsertIntoHostMap(*cracked, hosts);
    EXPECT_TRUE(hosts.empty());
    ASSERT_TRUE(CrackUrl(u"http://www./x", *cracked));
    WebFilterSearcher::InsertIntoHostMap(*cracked, hosts);
    ASSERT_EQ(hosts.size(), 1u);
    EXPECT_EQ(hosts.hosts().begin()->first, u"");
}

}  // namespace
}  // namespace sentrel
