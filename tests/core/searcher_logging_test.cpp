#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "search/web_filter_searcher.h"
#include "searcher_test_support.h"

namespace sentrel {
namespace {

using searcher_test::ListOf;
using searcher_test::LoggedMessage;
using searcher_test::PolicyOf;

using SearcherLogging = searcher_test::LogCaptureTest;
using Messages = std::vector<LoggedMessage>;

constexpr char16_t kInsertMessage[] = u"WebFilterSearcher::InsertUrl - Could not crack url: ";
constexpr char16_t kDecisionMessage[] = u"WebFilterSearcher::IsUrlAllowed - Could not crack url: ";

TEST_F(SearcherLogging, UncrackableEntryIsLoggedNormalisedAndTheRestLoads) {
    WebFilterSearcher searcher;
    searcher.LoadPolicy(PolicyOf({ListOf(
        FilterListWhite, {u"  A.B/X  ", u"http://ok", u"MAILTO://Y"}, {u"bad exception"})}));
    EXPECT_EQ(Logged(),
              (Messages{{LogLevelError, std::u16string(kInsertMessage) + u"a.b/x"},
                        {LogLevelError, std::u16string(kInsertMessage) + u"mailto://y"}}));
    EXPECT_EQ(searcher.WhiteIndex().size(), 1u);
}

TEST_F(SearcherLogging, UncrackableUrlIsLoggedAsGiven) {
    WebFilterSearcher searcher;
    searcher.filterType = WebFilterBlockAll;
    EXPECT_FALSE(searcher.IsUrlAllowed(u"  A.B  "));
    searcher.filterType = WebFilterBlockPolicy;
    searcher.LoadPolicy(PolicyOf({}, {u"http://c.d"}));
    EXPECT_FALSE(searcher.IsUrlAllowed(u"\tMailto://X"));
    EXPECT_EQ(Logged(),
              (Messages{{LogLevelError, std::u16string(kDecisionMessage) + u"  A.B  "},
                        {LogLevelError, std::u16string(kDecisionMessage) + u"\tMailto://X"}}));
}

TEST_F(SearcherLogging, NothingIsLoggedWhenNoCrackIsNeededOrItSucceeds) {
    WebFilterSearcher searcher;
    EXPECT_TRUE(searcher.IsUrlAllowed(u"a.b"));
    searcher.filterType = WebFilterBlockPolicy;
    EXPECT_TRUE(searcher.IsUrlAllowed(u"a.b"));
    searcher.LoadPolicy(PolicyOf({u"http://a.b"}, {u"http://c.d"}));
    EXPECT_TRUE(searcher.IsUrlAllowed(u"http://a.b/x"));
    EXPECT_FALSE(searcher.IsUrlAllowed(u"http://c.d/x"));
    searcher.filterType = WebFilterBlockAll;
    EXPECT_FALSE(searcher.IsUrlAllowed(u"http://a.b/x"));
    EXPECT_TRUE(Logged().empty());
}

}  // namespace
}  // namespace sentrel
