// EnableUpdate as clients use it: the timer is off until a client switches it on; any non-zero
// value refreshes at once (announcing nothing) and starts the ticks; zero stops them.

#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "manager_fixture.h"

namespace sentrel::test {
namespace {

const std::u16string kFirst = ListDocument(0, ListKind::Black, {u"http://first.example/"});
const std::u16string kSecond = ListDocument(0, ListKind::Black, {u"http://second.example/"});
const std::u16string kThird = ListDocument(0, ListKind::Black, {u"http://third.example/"});

using UpdateTest = EventsTest;

TEST_F(UpdateTest, ANewObjectDoesNotLookAtTheSectionOnItsOwn) {
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kFirst), S_OK);
    const ComPtr<IWebFilterManager> reader = CreateManager();
    ASSERT_TRUE(reader);
    SleepFor(kSeveralTicks);
    EXPECT_EQ(ContentOf(*reader.Get()).type, WebFilterBlockNone);
    EXPECT_EQ(Allowed(*reader.Get(), u"http://first.example/"), 1);
}

TEST_F(UpdateTest, WithoutASectionEnablingChangesNothing) {
    EXPECT_EQ(Manager().EnableUpdate(1), S_OK);
    const FilterContent content = ContentOf(Manager());
    EXPECT_EQ(content.type, WebFilterBlockNone);
    EXPECT_EQ(content.text, kByteOrderMark + EmptyDocument(0));
}

TEST_F(UpdateTest, AnyNonZeroValueRefreshesAtOnceAndStartsTheTicks) {
    TestSink& sink = MakeSink();
    const ComPtr<IWebFilterManager> reader = CreateManager();
    ASSERT_TRUE(reader);
    Advise(*reader.Get(), sink);
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kFirst), S_OK);
    EXPECT_EQ(reader->EnableUpdate(7), S_OK);
    EXPECT_EQ(Allowed(*reader.Get(), u"http://first.example/"), 0);
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kSecond), S_OK);
    ASSERT_TRUE(WaitForEvents(sink, 1));
    EXPECT_EQ(Allowed(*reader.Get(), u"http://second.example/"), 0);

    // Another non-zero value refreshes again and leaves the ticks on.
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kThird), S_OK);
    EXPECT_EQ(reader->EnableUpdate(-3), S_OK);
    EXPECT_EQ(Allowed(*reader.Get(), u"http://third.example/"), 0);
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockAll, u""), S_OK);
    ASSERT_TRUE(WaitForEvents(sink, 2));
    // The refreshes of EnableUpdate announced nothing, and a change they loaded is not
    // announced later either.
    SleepFor(kSeveralTicks);
    EXPECT_EQ(sink.Types(),
              (std::vector<::WebFilterType>{WebFilterBlockPolicy, WebFilterBlockAll}));
}

TEST_F(UpdateTest, ZeroStopsTheTicks) {
    TestSink& sink = MakeSink();
    const ComPtr<IWebFilterManager> reader = Listener(sink);
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->EnableUpdate(0), S_OK);
    EXPECT_EQ(reader->EnableUpdate(0), S_OK);
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kFirst), S_OK);
    SleepFor(kSeveralTicks);
    EXPECT_TRUE(sink.Events().empty());
    EXPECT_EQ(Allowed(*reader.Get(), u"http://first.example/"), 1);
    // Switched on again, it loads what it missed at once, silently.
    EXPECT_EQ(reader->EnableUpdate(1), S_OK);
    EXPECT_EQ(Allowed(*reader.Get(), u"http://first.example/"), 0);
    SleepFor(kSeveralTicks);
    EXPECT_TRUE(sink.Events().empty());
}

}  // namespace
}  // namespace sentrel::test
