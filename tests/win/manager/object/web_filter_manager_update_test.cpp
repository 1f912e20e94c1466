// EnableUpdate as clients use it: the timer is off until a client switches it on; any non-zero
// value refreshes at once (announcing nothing) and starts the ticks; zero stops them.

#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "com/unique_resource.h"
#include "log_capture.h"
#include "manager_fixture.h"
#include "module/log/logger.h"
#include "shared/mutex_lock.h"
#include "shared/web_filter_file_mapper.h"

namespace sentrel::test {
namespace {

const std::u16string kFirst = ListDocument(0, ListKind::Black, {u"http://first.example/"});
const std::u16string kSecond = ListDocument(0, ListKind::Black, {u"http://second.example/"});
// Taken silently: a tick that ended just after the ticks were switched off could load it too.
const std::u16string kThird = ListDocument(2, ListKind::Black, {u"http://third.example/"});

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

    // With the ticks off again, another non-zero value refreshes at once and switches them on.
    EXPECT_EQ(reader->EnableUpdate(0), S_OK);
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

TEST_F(UpdateTest, WhileTheSectionIsLockedElsewhereNothingIsPublishedOrLoaded) {
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kFirst), S_OK);
    TestSink& sink = MakeSink();
    const ComPtr<IWebFilterManager> reader = Listener(sink);
    ASSERT_TRUE(reader);

    // Another holder of the section's mutex, longer than a publication or a refresh waits.
    std::atomic<bool> held{false};
    std::atomic<bool> release{false};
    std::thread holder([&] {
        const UniqueHandle mutex = WebFilterFileMapper::OpenAccessMutex();
        const MutexLock lock(mutex.Get(), WebFilterFileMapper::kLockTimeoutMs);
        held = lock.Held();
        WaitUntil([&] { return release.load(); }, std::chrono::milliseconds(30000));
    });
    ASSERT_TRUE(WaitUntil([&] { return held.load(); }));
    {
        const LogCapture log;
        EXPECT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kSecond), E_FAIL);
        EXPECT_EQ(log.Count(LogLevelError,
                            u"WebFilterFileMapper::WriteContent - Could not lock "
                            u"on mutex"),
                  1u);
        EXPECT_EQ(log.Count(LogLevelError,
                            u"CWebFilterManager::SetFilterContent - Could not "
                            u"write content to file mapper"),
                  1u);
    }
    // In force here all the same; the section keeps what it had.
    EXPECT_EQ(Allowed(Manager(), u"http://second.example/"), 0);
    EXPECT_EQ(ProbeSection()->text, kFirst);
    EXPECT_EQ(reader->EnableUpdate(1), S_OK);
    EXPECT_EQ(Allowed(*reader.Get(), u"http://first.example/"), 0);
    release = true;
    holder.join();

    // Once the lock is free again, the same call publishes, and the reader follows.
    EXPECT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kSecond), S_OK);
    ASSERT_TRUE(WaitForEvents(sink, 1));
    EXPECT_EQ(Allowed(*reader.Get(), u"http://second.example/"), 0);
}

}  // namespace
}  // namespace sentrel::test
