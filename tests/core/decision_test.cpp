#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core_test_support.h"
#include "log_capture.h"
#include "search/web_filter_searcher.h"

namespace sentrel {
namespace {

FilterList ListOf(FilterListType type, const std::vector<std::u16string>& urls,
                  const std::vector<std::u16string>& exceptions = {}) {
    FilterList list(u"list");
    list.type = type;
    for (const std::u16string& url : urls) {
        list.AddEntry(FilterEntry(u"entry", url));
    }
    for (const std::u16string& url : exceptions) {
        list.AddException(FilterEntry(u"exception", url));
    }
    return list;
}

template <class... Lists>
WebFilterPolicy PolicyOf(const Lists&... lists) {
    WebFilterPolicy policy;
    (policy.AddList(lists), ...);
    return policy;
}

// Every URL of a group is decided by the same rule; the group names what it shows.
using Urls = std::vector<std::u16string>;
struct DecisionGroup {
    const char* name;
    WebFilterType filterType;
    Urls white, black;
    DecisionStep step;
    Urls allowed, denied;
};

constexpr auto kPolicy = WebFilterBlockPolicy;
constexpr auto kAboutFile = DecisionStep::AboutOrFileScheme;
constexpr auto kWhite = DecisionStep::WhiteIndex;
const Urls kAB = {u"http://a.b"};

DecisionGroup Group(const char* name, WebFilterType filterType, Urls white, Urls black,
                    DecisionStep step, Urls allowed, Urls denied) {
    return {name, filterType,         std::move(white), std::move(black),
            step, std::move(allowed), std::move(denied)};
}

const DecisionGroup kGroups[] = {
    Group("no filter allows anything", WebFilterBlockNone, kAB, {u"http://c.d"},
          DecisionStep::FilterNone, {u"", u"http://c.d/", u"a.b"}, {}),
    Group("a policy without indexed entries allows anything", kPolicy, {u"a.b/x", u"http"},
          {u"www.c.d"}, DecisionStep::NoIndexedEntries, {u"http://a.b/x", u"a.b"}, {}),
    Group("a filter type outside the three, with empty indexes, as a policy",
          static_cast<WebFilterType>(3), {}, {}, DecisionStep::NoIndexedEntries, {u"http://a.b/"},
          {}),
    Group("block all, whatever the indexes", WebFilterBlockAll, {}, {}, DecisionStep::BlockAll, {},
          {u"http://a.b/", u"abouts:x"}),
    Group("about and file under every filter but none", WebFilterBlockAll, kAB, {}, kAboutFile,
          {u" ABOUT:blank ", u"FILE://x"}, {}),
    Group("about and file under a policy", kPolicy, {u"http:///x"}, kAB, kAboutFile,
          {u"about:blank", u"file:///x"}, {}),
    Group("a URL that cannot be cracked", WebFilterBlockAll, {}, {}, DecisionStep::CouldNotCrack,
          {}, {u"", u"a.b"}),
    Group("white host", kPolicy, kAB, {}, kWhite,
          {u"http://a.b", u"https://www.a.b/x?y=1", u"http://x.a.b:8080/z", u"  HTTP://A.B/  ",
           u"http://a.b/" + std::u16string(600, u'x'), u"http://u:p@a.b/"},
          {u"ftp://a.b/", u"http://xa.b/", u"http:///x", u"http://www./", u"http://.a.b/",
           u"http://a.b./", u"http://wwwa.b/", u"httpss://a.b/"}),
    Group("white path and its '/'-bounded extensions", kPolicy,
          {u"http://a.b/x", u"http://c.d/x/y/", u"http://a.b/z"}, {}, kWhite,
          {u"http://a.b/x/", u"http://a.b/x/y?q", u"http://a.b/X#f", u"http://a.b/z/w",
           u"http://c.d/x/y", u"http://c.d/x/y/z/w", u"http://c.d/x/y//"},
          {u"http://a.b/xy", u"http://a.b", u"http://a.b//x", u"http://a.b?/x", u"http://c.d/x/yz",
           u"http://c.d/x", u"http://c.d/x//y"}),
    Group("an entry without path covers every path, before or after others", kPolicy,
          {u"http://a.b/x", u"http://a.b", u"http://c.d", u"http://c.d/y", u"http://e.f/y",
           u"http://e.f/"},
          {}, kWhite, {u"http://a.b/z", u"http://c.d/z", u"http://e.f/z"}, {}),
    Group("white port, and entries without one act for every port", kPolicy,
          {u"http://a.b:8080/", u"http://c.d/x", u"http://c.d:8080/y"}, {}, kWhite,
          {u"http://a.b:8080/z", u"http://a.b:73616/z", u"http://c.d:8080/x", u"http://c.d:8080/y",
           u"http://c.d:0/x"},
          {u"http://a.b/", u"http://a.b:80/", u"http://c.d:8080/z", u"http://c.d/y"}),
    Group("an entry's port 0 is none, and only its low 16 bits count", kPolicy,
          {u"http://a.b:0/x", u"http://a.b:65616/z"}, {}, kWhite,
          {u"http://a.b:9/x", u"http://a.b:80/z"}, {u"http://a.b/z"}),
    Group("the first host found decides", kPolicy, {u"http://a.b/x", u"http://c.a.b/y"}, {}, kWhite,
          {u"http://c.a.b/y", u"http://d.a.b/x", u"http://e.c.a.b/y"}, {u"http://c.a.b/x"}),
    Group("a single label matches every host under it", kPolicy, {u"http://b"}, {}, kWhite,
          {u"http://x.y.b", u"http://.a.b"},
          {u"http://a..b", u"http://xb", u"http://.b", u"http://b."}),
    Group("host www. is the empty key", kPolicy, {u"http://www./"}, {}, kWhite, {u"http://www./"},
          {u"http://www.www./", u"http:///"}),
    Group("black host", kPolicy, {}, kAB, DecisionStep::BlackIndex, {u"http://c.d/", u"ftp://a.b/"},
          {u"http://x.a.b/y", u"https://a.b"}),
    Group("the white index hides the black one", kPolicy, kAB, {u"http://a.b/x"}, kWhite,
          {u"http://a.b/x"}, {u"http://c.d/"}),
    Group("a white entry with empty host matches nothing", kPolicy, {u"http:///x"}, {}, kWhite, {},
          {u"http:///x", u"http://a.b/x"}),
};

TEST(Decision, Table) {
    DecisionTrace trace;  // one for every decision: each must reset it
    for (const DecisionGroup& group : kGroups) {
        WebFilterSearcher searcher;
        searcher.filterType = group.filterType;
        searcher.LoadPolicy(
            PolicyOf(ListOf(FilterListWhite, group.white), ListOf(FilterListBlack, group.black)));
        for (const bool allowed : {true, false}) {
            for (const std::u16string& url : allowed ? group.allowed : group.denied) {
                SCOPED_TRACE(std::string(group.name) + ": " + test::Readable(url));
                EXPECT_EQ(searcher.IsUrlAllowed(url), allowed);
                EXPECT_EQ(searcher.IsUrlAllowed(url, &trace), allowed);
                EXPECT_EQ(trace.step, group.step);
            }
        }
    }
    EXPECT_TRUE(WebFilterSearcher().IsUrlAllowed(u"not a url"));  // a new searcher filters nothing
}

TEST(Decision, UncrackableEntriesAreLoggedNormalisedAndUrlsAsGiven) {
    const test::LogCapture log;
    WebFilterSearcher searcher;
    searcher.filterType = WebFilterBlockPolicy;
    searcher.LoadPolicy(PolicyOf(
        ListOf(FilterListWhite, {u"  A.B/X  ", u"http://ok", u"MAILTO://Y"}, {u"bad exception"})));
    EXPECT_TRUE(searcher.IsUrlAllowed(u"http://ok/") && !searcher.IsUrlAllowed(u"http://a.b/x"));
    EXPECT_FALSE(searcher.IsUrlAllowed(u" A.B ") || searcher.IsUrlAllowed(u"\tMailto://X"));
    const std::u16string failed = u" - Could not crack url: ";
    EXPECT_EQ(log.Messages(),
              (std::vector<test::LoggedMessage>{
                  {2, u"WebFilterSearcher::InsertUrl" + failed + u"a.b/x"},
                  {2, u"WebFilterSearcher::InsertUrl" + failed + u"mailto://y"},
                  {2, u"WebFilterSearcher::IsUrlAllowed" + failed + u" A.B "},
                  {2, u"WebFilterSearcher::IsUrlAllowed" + failed + u"\tMailto://X"}}));
}

TEST(Decision, OnlyMainEntriesAreIndexedAndEveryListTypeButWhiteIsBlack) {
    WebFilterSearcher searcher;
    searcher.filterType = WebFilterBlockPolicy;
    searcher.LoadPolicy(PolicyOf(ListOf(FilterListBlack, {u"http://c.d"}, {u"http://c.d/x"}),
                                 ListOf(static_cast<FilterListType>(7), {u"ftp://g.h"})));
    EXPECT_FALSE(searcher.IsUrlAllowed(u"http://c.d/x") || searcher.IsUrlAllowed(u"ftp://g.h/"));
    EXPECT_TRUE(searcher.IsUrlAllowed(u"http://e.f/"));
    // White lists merge, and exceptions do not narrow them.
    searcher.LoadPolicy(PolicyOf(ListOf(FilterListWhite, {u"http://a.b/x"}, {u"http://a.b/x/y"}),
                                 ListOf(FilterListWhite, {u"http://c.d/x"})));
    EXPECT_TRUE(searcher.IsUrlAllowed(u"http://a.b/x/y") && searcher.IsUrlAllowed(u"http://c.d/x"));
    // Loading replaces both indexes, exceptions alone leave them empty, and the type stays.
    searcher.LoadPolicy(PolicyOf(ListOf(FilterListBlack, {}, {u"http://c.d"})));
    EXPECT_TRUE(searcher.IsUrlAllowed(u"http://e.f/"));
    searcher.filterType = WebFilterBlockAll;
    searcher.LoadPolicy(PolicyOf(ListOf(FilterListWhite, {u"http://a.b"})));
    EXPECT_FALSE(searcher.IsUrlAllowed(u"http://a.b/"));
}

TEST(Decision, EveryHostAmongManyIsFoundAndNoOther) {
    std::vector<std::u16string> urls;
    for (char16_t ch = 0x4E00; ch < 0x5A00; ++ch) {
        urls.push_back(u"http://" + std::u16string(2, ch));
    }
    WebFilterSearcher searcher;
    searcher.filterType = WebFilterBlockPolicy;
    searcher.LoadPolicy(PolicyOf(ListOf(FilterListWhite, urls)));
    for (const std::u16string& url : urls) {
        EXPECT_TRUE(searcher.IsUrlAllowed(url + u"/x") && !searcher.IsUrlAllowed(url + u"h/x") &&
                    !searcher.IsUrlAllowed(url.substr(0, 8)))
            << test::Readable(url);
    }
}

}  // namespace
}  // namespace sentrel
