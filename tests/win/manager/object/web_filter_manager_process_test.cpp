// A manager object in a second process and one in this process, meeting through the shared
// section: whichever created the section publishes, the other follows.

#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "helper_process.h"
#include "manager_fixture.h"

namespace sentrel::test {
namespace {

// The second process, built from manager_helper.cpp.
constexpr wchar_t kManagerHelper[] = L"manager_helper.exe";

using ProcessTest = EventsTest;

TEST_F(ProcessTest, APublicationOfAnotherProcessIsPickedUpAndAnnounced) {
    TestSink& sink = MakeSink();
    Advise(Manager(), sink);
    ASSERT_EQ(Manager().EnableUpdate(1), S_OK);

    HoldingHelper publisher(kManagerHelper, L"publish 1 0 remote.example");
    ASSERT_TRUE(publisher.WaitReady(kHelperWaitMs));
    ASSERT_TRUE(WaitForEvents(sink, 1));
    EXPECT_EQ(sink.Types(), std::vector<::WebFilterType>{WebFilterBlockPolicy});
    EXPECT_EQ(Allowed(Manager(), u"http://remote.example/page"), 0);
    EXPECT_EQ(Allowed(Manager(), u"http://local.example/"), 1);
    EXPECT_EQ(ContentOf(Manager()).text,
              kByteOrderMark + ListDocument(0, ListKind::Black, {u"http://remote.example/"}));

    // The other process created the section: this one may not publish while it lives.
    EXPECT_EQ(SetContent(Manager(), WebFilterBlockAll, u""), E_FAIL);
    EXPECT_EQ(publisher.Release(kHelperWaitMs), 0u);

    // With that process gone, so is its section, and this object may publish again.
    ASSERT_TRUE(WaitUntil([] { return !ProbeSection().has_value(); }));
    EXPECT_EQ(SetContent(Manager(), WebFilterBlockAll, u""), S_OK);
}

TEST_F(ProcessTest, AnotherProcessFollowsThisOnesPublicationsAndMayNotPublish) {
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy,
                         ListDocument(0, ListKind::Black, {u"http://early.example/"})),
              S_OK);
    HoldingHelper refused(kManagerHelper, L"publish 1 0 other.example");
    ASSERT_TRUE(refused.WaitReady(kHelperWaitMs));
    EXPECT_EQ(refused.Release(kHelperWaitMs), 1u);

    HoldingHelper listener(kManagerHelper, L"listen late.example");
    ASSERT_TRUE(listener.WaitReady(kHelperWaitMs));
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy,
                         ListDocument(0, ListKind::Black, {u"http://late.example/"})),
              S_OK);
    EXPECT_EQ(listener.Release(kHelperWaitMs), 0u);
}

}  // namespace
}  // namespace sentrel::test
