#include <gtest/gtest.h>

#include <string>

#include "search/web_filter_searcher.h"
#include "searcher_test_support.h"

namespace sentrel {
namespace {

using searcher_test::PolicyOf;

struct TraceRow {
    std::u16string url;
    bool allowed;
    IndexOutcome outcome;
    std::u16string schemeKey;
    std::u16string hostKey;
    std::uint16_t port;
    bool everyPath;
    std::u16string pathKey;
};

TEST(DecisionTrace, NamesTheEntryThatMatchedOrWhyNoneDid) {
    WebFilterSearcher searcher;
    searcher.filterType = WebFilterBlockPolicy;
    searcher.LoadPolicy(
        PolicyOf({u"http://a.b/x", u"http://c.d:8080/p/q", u"http://e.f", u"http://g.h:81/"}, {}));
    using enum IndexOutcome;
    const TraceRow rows[] = {
        {u"https://www.x.a.b:8080/x/y?z", true, Matched, u"http", u"a.b", 0, false, u"x"},
        {u"http://c.d:8080/p/q/r", true, Matched, u"http", u"c.d", 8080, false, u"p/q"},
        {u"http://sub.e.f/any", true, Matched, u"http", u"e.f", 0, true, u""},
        {u"ftp://a.b/x", false, NoSchemeEntry, u"ftp", u"", 0, false, u""},
        {u"http:///x", false, NoHost, u"http", u"", 0, false, u""},
        {u"http://x.y.z/x", false, HostWalkExhausted, u"http", u"", 0, false, u""},
        {u"http://c.d/p/q", false, NoPortEntry, u"http", u"c.d", 0, false, u""},
        {u"http://g.h:82/", false, NoPortEntry, u"http", u"g.h", 0, false, u""},
        {u"http://c.d:8080/p", false, PathMismatch, u"http", u"c.d", 0, false, u""},
        {u"http://a.b:9/y", false, PathMismatch, u"http", u"a.b", 0, false, u""},
    };
    for (const TraceRow& row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << (&row - rows));
        DecisionTrace trace;
        EXPECT_EQ(searcher.IsUrlAllowed(row.url, &trace), row.allowed);
        EXPECT_EQ(trace.step, DecisionStep::WhiteIndex);
        EXPECT_EQ(trace.index.outcome, row.outcome);
        EXPECT_EQ(trace.index.schemeKey, row.schemeKey);
        EXPECT_EQ(trace.index.hostKey, row.hostKey);
        EXPECT_EQ(trace.index.port, row.port);
        EXPECT_EQ(trace.index.everyPath, row.everyPath);
        EXPECT_EQ(trace.index.pathKey, row.pathKey);
    }
}

TEST(DecisionTrace, BlackIndexTraceIsTheMatchThatDenied) {
    WebFilterSearcher searcher;
    searcher.filterType = WebFilterBlockPolicy;
    searcher.LoadPolicy(PolicyOf({}, {u"http://a.b/x"}));
    DecisionTrace trace;
    EXPECT_FALSE(searcher.IsUrlAllowed(u"http://a.b/x/y", &trace));
    EXPECT_EQ(trace.step, DecisionStep::BlackIndex);
    EXPECT_EQ(trace.index.outcome, IndexOutcome::Matched);
    EXPECT_EQ(trace.index.pathKey, u"x");
}

TEST(DecisionTrace, IsResetByEveryDecision) {
    WebFilterSearcher searcher;
    searcher.filterType = WebFilterBlockPolicy;
    searcher.LoadPolicy(PolicyOf({u"http://a.b/x"}, {}));
    DecisionTrace trace;
    ASSERT_TRUE(searcher.IsUrlAllowed(u"http://a.b/x", &trace));
    ASSERT_EQ(trace.index.hostKey, u"a.b");

    EXPECT_FALSE(searcher.IsUrlAllowed(u"http://c.d/x", &trace));
    EXPECT_EQ(trace.index.outcome, IndexOutcome::HostWalkExhausted);
    EXPECT_EQ(trace.index.hostKey, u"");
    EXPECT_EQ(trace.index.pathKey, u"");

    searcher.filterType = WebFilterBlockNone;
    EXPECT_TRUE(searcher.IsUrlAllowed(u"http://c.d/x", &trace));
    EXPECT_EQ(trace.step, DecisionStep::FilterNone);
    EXPECT_EQ(trace.index.schemeKey, u"");
}

}  // namespace
}  // namespace sentrel
