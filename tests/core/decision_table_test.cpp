#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "search/web_filter_searcher.h"
#include "searcher_test_support.h"

namespace sentrel {
namespace {

using searcher_test::ListOf;
using searcher_test::PolicyOf;

struct UrlCase {
    std::u16string url;
    bool allowed;
    DecisionStep step;
};

struct DecisionGroup {
    const char* name;
    WebFilterType filterType;
    std::vector<std::u16string> white;
    std::vector<std::u16string> black;
    std::vector<UrlCase> cases;
};

constexpr bool kAllowed = true;
constexpr bool kDenied = false;
constexpr auto kNone = DecisionStep::FilterNone;
constexpr auto kNoEntries = DecisionStep::NoIndexedEntries;
constexpr auto kNoCrack = DecisionStep::CouldNotCrack;
constexpr auto kAboutFile = DecisionStep::AboutOrFileScheme;
constexpr auto kAll = DecisionStep::BlockAll;
constexpr auto kWhite = DecisionStep::WhiteIndex;
constexpr auto kBlack = DecisionStep::BlackIndex;

const std::vector<DecisionGroup>& Groups() {
    static const std::vector<DecisionGroup> groups = {
        {"no filter allows anything",
         WebFilterBlockNone,
         {u"http://a.b"},
         {u"http://c.d"},
         {{u"", kAllowed, kNone},
          {u"a.b", kAllowed, kNone},
          {u"http://c.d/", kAllowed, kNone},
          {u"http://x.y/", kAllowed, kNone}}},
        {"policy without indexed entries allows anything",
         WebFilterBlockPolicy,
         {u"a.b/x", u"http"},
         {u"www.c.d"},
         {{u"http://a.b/x", kAllowed, kNoEntries},
          {u"a.b", kAllowed, kNoEntries},
          {u"", kAllowed, kNoEntries}}},
        {"block all allows only about and file",
         WebFilterBlockAll,
         {u"http://a.b"},
         {},
         {{u"http://a.b/", kDenied, kAll},
          {u"about:blank", kAllowed, kAboutFile},
          {u" ABOUT:blank ", kAllowed, kAboutFile},
          {u"file:///c:/x", kAllowed, kAboutFile},
          {u"FILE://x", kAllowed, kAboutFile},
          {u"abouts:x", kDenied, kAll},
          {u"a.b", kDenied, kNoCrack},
          {u"", kDenied, kNoCrack}}},
        {"block all with empty indexes still blocks",
         WebFilterBlockAll,
         {},
         {},
         {{u"http://a.b/", kDenied, kAll}, {u"a.b", kDenied, kNoCrack}}},
        {"white host",
         WebFilterBlockPolicy,
         {u"http://a.b"},
         {},
         {{u"http://a.b", kAllowed, kWhite},
          {u"https://www.a.b/x?y=1", kAllowed, kWhite},
          {u"http://x.a.b:8080/z", kAllowed, kWhite},
          {u"  HTTP://A.B/  ", kAllowed, kWhite},
          {u"http://u:p@a.b/", kAllowed, kWhite},
          {u"ftp://a.b/", kDenied, kWhite},
          {u"http://xa.b/", kDenied, kWhite},
          {u"http://c.d/", kDenied, kWhite},
          {u"http:///x", kDenied, kWhite},
          {u"http://www./", kDenied, kWhite},
          {u"http://.a.b/", kDenied, kWhite},
          {u"http://a.b./", kDenied, kWhite},
          {u"about:blank", kAllowed, kAboutFile},
          {u"a.b", kDenied, kNoCrack}}},
        {"white path",
         WebFilterBlockPolicy,
         {u"http://a.b/x"},
         {},
         {{u"http://a.b/x", kAllowed, kWhite},
          {u"http://a.b/x/", kAllowed, kWhite},
          {u"http://a.b/x/y?q", kAllowed, kWhite},
          {u"http://a.b/X#f", kAllowed, kWhite},
          {u"http://a.b/xy", kDenied, kWhite},
          {u"http://a.b/", kDenied, kWhite},
          {u"http://a.b", kDenied, kWhite},
          {u"http://a.b//x", kDenied, kWhite},
          {u"http://a.b?/x", kDenied, kWhite}}},
        {"white deep path",
         WebFilterBlockPolicy,
         {u"http://a.b/x/y/"},
         {},
         {{u"http://a.b/x/y", kAllowed, kWhite},
          {u"http://a.b/x/y/z/w", kAllowed, kWhite},
          {u"http://a.b/x/yz", kDenied, kWhite},
          {u"http://a.b/x", kDenied, kWhite},
          {u"http://a.b/x//y", kDenied, kWhite}}},
        {"white port",
         WebFilterBlockPolicy,
         {u"http://a.b:8080/"},
         {},
         {{u"http://a.b:8080/z", kAllowed, kWhite},
          {u"http://a.b:73616/z", kAllowed, kWhite},
          {u"http://a.b/", kDenied, kWhite},
          {u"http://a.b:80/", kDenied, kWhite},
          {u"http://a.b:0/", kDenied, kWhite}}},
        {"first host found decides",
         WebFilterBlockPolicy,
         {u"http://a.b/x", u"http://c.a.b/y"},
         {},
         {{u"http://c.a.b/x", kDenied, kWhite},
          {u"http://c.a.b/y", kAllowed, kWhite},
          {u"http://d.a.b/x", kAllowed, kWhite},
          {u"http://e.c.a.b/y", kAllowed, kWhite}}},
        {"port 0 acts for every port",
         WebFilterBlockPolicy,
         {u"http://a.b/x", u"http://a.b:8080/y"},
         {},
         {{u"http://a.b:8080/x", kAllowed, kWhite},
          {u"http://a.b:8080/y", kAllowed, kWhite},
          {u"http://a.b:8080/z", kDenied, kWhite},
          {u"http://a.b/y", kDenied, kWhite},
          {u"http://a.b:0/x", kAllowed, kWhite}}},
        {"single label matches every host under it",
         WebFilterBlockPolicy,
         {u"http://b"},
         {},
         {{u"http://b", kAllowed, kWhite},
          {u"http://x.y.b", kAllowed, kWhite},
          {u"http://.a.b", kAllowed, kWhite},
          {u"http://a..b", kDenied, kWhite},
          {u"http://xb", kDenied, kWhite},
          {u"http://.b", kDenied, kWhite},
          {u"http://b.", kDenied, kWhite}}},
        {"host www. is the empty key",
         WebFilterBlockPolicy,
         {u"http://www./"},
         {},
         {{u"http://www./", kAllowed, kWhite},
          {u"http://www.www./", kDenied, kWhite},
          {u"http://a.b/", kDenied, kWhite}}},
        {"black host",
         WebFilterBlockPolicy,
         {},
         {u"http://a.b"},
         {{u"http://a.b/anything", kDenied, kBlack},
          {u"http://x.a.b", kDenied, kBlack},
          {u"https://a.b", kDenied, kBlack},
          {u"http://c.d/", kAllowed, kBlack},
          {u"ftp://a.b/", kAllowed, kBlack},
          {u"about:blank", kAllowed, kAboutFile},
          {u"a.b", kDenied, kNoCrack}}},
        {"white index hides the black one",
         WebFilterBlockPolicy,
         {u"http://a.b"},
         {u"http://a.b/x"},
         {{u"http://a.b/x", kAllowed, kWhite}, {u"http://c.d/", kDenied, kWhite}}},
        {"white entry with empty host matches nothing",
         WebFilterBlockPolicy,
         {u"http:///x"},
         {},
         {{u"http://a.b/", kDenied, kWhite},
          {u"http:///x", kDenied, kWhite},
          {u"about:blank", kAllowed, kAboutFile},
          {u"file:///x", kAllowed, kAboutFile}}},
        {"unknown filter type with empty indexes",
         static_cast<WebFilterType>(3),
         {},
         {},
         {{u"http://a.b/", kAllowed, kNoEntries}, {u"a.b", kDenied, kNoCrack}}},
        {"unknown filter type acts as a policy",
         static_cast<WebFilterType>(-1),
         {u"http://a.b"},
         {},
         {{u"http://a.b/", kAllowed, kWhite},
          {u"http://c.d/", kDenied, kWhite},
          {u"about:x", kAllowed, kAboutFile}}},
    };
    return groups;
}

TEST(Decision, Table) {
    for (const DecisionGroup& group : Groups()) {
        SCOPED_TRACE(group.name);
        WebFilterSearcher searcher;
        searcher.filterType = group.filterType;
        searcher.LoadPolicy(PolicyOf(group.white, group.black));
        for (const UrlCase& urlCase : group.cases) {
            SCOPED_TRACE(testing::Message() << "case " << (&urlCase - group.cases.data()));
            DecisionTrace trace;
            EXPECT_EQ(searcher.IsUrlAllowed(urlCase.url), urlCase.allowed);
            // Explaining a decision gives the same answer and names the rule that gave it.
            EXPECT_EQ(searcher.IsUrlAllowed(urlCase.url, &trace), urlCase.allowed);
            EXPECT_EQ(trace.allowed, urlCase.allowed);
            EXPECT_EQ(trace.step, urlCase.step);
        }
    }
}

TEST(Decision, ExceptionEntriesPlayNoPart) {
    WebFilterSearcher searcher;
    searcher.filterType = WebFilterBlockPolicy;
    searcher.LoadPolicy(PolicyOf({ListOf(FilterListWhite, {u"http://a.b"}, {u"http://a.b/x"})}));
    EXPECT_TRUE(searcher.IsUrlAllowed(u"http://a.b/x"));

    searcher.LoadPolicy(PolicyOf({ListOf(FilterListBlack, {u"http://c.d"}, {u"http://c.d/x"})}));
    EXPECT_FALSE(searcher.IsUrlAllowed(u"http://c.d/x"));

    // Exceptions alone leave the indexes empty: everything is allowed.
    searcher.LoadPolicy(PolicyOf({ListOf(FilterListBlack, {}, {u"http://c.d"})}));
    EXPECT_TRUE(searcher.IsUrlAllowed(u"http://c.d/"));
}

TEST(Decision, NewSearcherAllowsEverything) {
    const WebFilterSearcher searcher;
    EXPECT_EQ(searcher.filterType, WebFilterBlockNone);
    EXPECT_TRUE(searcher.IsUrlAllowed(u"http://a.b/"));
    EXPECT_TRUE(searcher.IsUrlAllowed(u"not a url"));
}

TEST(Decision, PathSetWalk) {
    StringSetTypeStruct paths;
    EXPECT_TRUE(WebFilterSearcher::IsPathInSet(u"", paths));
    EXPECT_TRUE(WebFilterSearcher::IsPathInSet(u"any/thing", paths));
    paths.paths = {u"x/y", u"a"};
    struct Row {
        const char16_t* pathKey;
        bool listed;
    };
    const Row rows[] = {
        {u"x/y", true},   {u"x/y/z", true}, {u"x/y//", true}, {u"a/b/c/d", true},
        {u"x/yz", false}, {u"x", false},    {u"", false},     {u"x//y", false},
        {u"/x/y", false}, {u"ab", false},   {u"b/a", false},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(WebFilterSearcher::IsPathInSet(row.pathKey, paths), row.listed)
            << "row " << (&row - rows);
    }
}

}  // namespace
}  // namespace sentrel
