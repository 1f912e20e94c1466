// Change events as clients receive them: one object publishes, another, with updating switched
// on, loads the publication at its next tick and tells its sinks when the rule says so, on the
// thread that the apartment of its creator calls for.

#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "log_capture.h"
#include "manager_fixture.h"
#include "module/log/logger.h"
#include "shared/unique_resource.h"
#include "test_doubles.h"

namespace sentrel::test {
namespace {

// One publication and whether a listener announces it.
struct AnnouncementCase {
    const char* name;
    // Published first, before the listener switches updating on (empty: nothing).
    std::u16string earlier;
    ::WebFilterType type;
    std::u16string text;
    // What the listener loads.
    std::u16string loaded;
    int loadedRefreshMode;
    bool announced;
};

class Announcement : public EventsTest, public testing::WithParamInterface<AnnouncementCase> {};

TEST_P(Announcement, FollowsTheRefreshModeAndTheType) {
    const AnnouncementCase& test = GetParam();
    if (!test.earlier.empty()) {
        ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, test.earlier), S_OK);
    }
    TestSink& sink = MakeSink();
    const ComPtr<IWebFilterManager> listener = Listener(sink);
    ASSERT_TRUE(listener);
    ASSERT_EQ(SetContent(Manager(), test.type, test.text), S_OK);

    if (test.announced) {
        ASSERT_TRUE(WaitForEvents(sink, 1));
    }
    ASSERT_TRUE(WaitForText(*listener.Get(), test.loaded));
    const FilterContent content = ContentOf(*listener.Get());
    EXPECT_EQ(content.type, test.type);
    EXPECT_EQ(content.refreshMode, test.loadedRefreshMode);
    // Nothing more comes: each publication is loaded and announced once.
    SleepFor(kSeveralTicks);
    EXPECT_EQ(sink.Types(), test.announced ? std::vector<::WebFilterType>{test.type}
                                           : std::vector<::WebFilterType>{});
}

const std::u16string kModeZero = ListDocument(0, ListKind::Black, {u"http://a.example/"});
const std::u16string kModeTwo = ListDocument(2, ListKind::Black, {u"http://a.example/"});
const std::u16string kModeThree = ListDocument(3, ListKind::Black, {u"http://b.example/"});
const std::u16string kModeFive = ListDocument(5, ListKind::White, {u"http://a.example/"});

INSTANTIATE_TEST_SUITE_P(
    Manager, Announcement,
    testing::Values(AnnouncementCase{"PolicyRefreshModeZero", u"", WebFilterBlockPolicy, kModeZero,
                                     kModeZero, 0, true},
                    AnnouncementCase{"PolicyRefreshModeTwo", u"", WebFilterBlockPolicy, kModeTwo,
                                     kModeTwo, 2, false},
                    AnnouncementCase{"BlockAllRefreshModeFive", u"", WebFilterBlockAll, kModeFive,
                                     kModeFive, 5, true},
                    AnnouncementCase{"BlockAllEmptyText", u"", WebFilterBlockAll, u"",
                                     EmptyDocument(0), 0, true},
                    AnnouncementCase{"BlockNoneAfterRefreshModeThree", kModeThree,
                                     WebFilterBlockNone, u"", EmptyDocument(3), 3, false},
                    AnnouncementCase{"BlockNoneAfterRefreshModeZero", kModeZero, WebFilterBlockNone,
                                     u"", EmptyDocument(0), 0, true}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(EventsTest, ASilentChangeIsInForceAllTheSame) {
    TestSink& sink = MakeSink();
    const ComPtr<IWebFilterManager> listener = Listener(sink);
    ASSERT_TRUE(listener);
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kModeTwo), S_OK);
    ASSERT_TRUE(WaitUntil([&] { return Allowed(*listener.Get(), u"http://a.example/") == 0; }));
    EXPECT_EQ(Allowed(*listener.Get(), u"http://other.example/"), 1);
    EXPECT_TRUE(sink.Events().empty());
}

TEST_F(EventsTest, InTheMultiThreadedApartmentEventsArriveOnTheTimerThread) {
    TestSink& sink = MakeSink();
    const ComPtr<IWebFilterManager> listener = Listener(sink);
    ASSERT_TRUE(listener);
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kModeZero), S_OK);
    ASSERT_TRUE(WaitForEvents(sink, 1));
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockAll, u""), S_OK);
    ASSERT_TRUE(WaitForEvents(sink, 2));
    const std::vector<TestSink::Event> events = sink.Events();
    EXPECT_NE(events[0].thread, GetCurrentThreadId());
    EXPECT_EQ(events[1].thread, events[0].thread);
    EXPECT_EQ(sink.Types(),
              (std::vector<::WebFilterType>{WebFilterBlockPolicy, WebFilterBlockAll}));
}

class ApartmentTest : public EventsTest {
  protected:
    // A listener on a single-threaded apartment's thread, which dispatches no message until the
    // test thread has run publish(); then finish runs on the apartment's thread. Returns that
    // thread.
    DWORD RunOnApartmentThread(TestSink& sink, const std::function<void()>& publish,
                               const std::function<void(ComPtr<IWebFilterManager>&)>& finish) {
        std::atomic<bool> ready{false};
        std::atomic<bool> published{false};
        std::atomic<DWORD> apartmentThread{0};
        std::thread apartment([&] {
            const ComInit com(COINIT_APARTMENTTHREADED);
            apartmentThread = GetCurrentThreadId();
            ComPtr<IWebFilterManager> listener = Listener(sink);
            ready = true;
            // The ticks go on meanwhile, but their events wait for this thread's message loop.
            WaitUntil([&] { return published.load(); }, std::chrono::milliseconds(30000));
            finish(listener);
        });
        if (WaitUntil([&] { return ready.load(); })) {
            publish();
        }
        published = true;
        apartment.join();
        return apartmentThread;
    }
};

TEST_F(ApartmentTest, EventsArriveThroughTheCreatingThreadsMessageLoopInOrder) {
    TestSink& sink = MakeSink();
    std::size_t eventsBeforeDispatching = 99;
    const DWORD apartment = RunOnApartmentThread(
        sink,
        [&] {
            EXPECT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kModeZero), S_OK);
            SleepFor(kSeveralTicks);
            EXPECT_EQ(SetContent(Manager(), WebFilterBlockAll, u""), S_OK);
            SleepFor(kSeveralTicks);
        },
        [&](ComPtr<IWebFilterManager>&) {
            eventsBeforeDispatching = sink.Events().size();
            PumpMessagesUntil([&] { return sink.Events().size() >= 2; },
                              std::chrono::milliseconds(10000));
        });
    EXPECT_EQ(eventsBeforeDispatching, 0u);
    const std::vector<TestSink::Event> events = sink.Events();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].type, WebFilterBlockPolicy);
    EXPECT_EQ(events[1].type, WebFilterBlockAll);
    EXPECT_EQ(events[0].thread, apartment);
    EXPECT_EQ(events[1].thread, apartment);
}

TEST_F(ApartmentTest, EventsStillWaitingInTheQueueAreLostWhenTheObjectGoes) {
    TestSink& sink = MakeSink();
    RunOnApartmentThread(
        sink,
        [&] {
            EXPECT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kModeZero), S_OK);
            SleepFor(kSeveralTicks);
        },
        [&](ComPtr<IWebFilterManager>& listener) {
            listener.Reset();
            PumpMessagesUntil([] { return false; }, kSeveralTicks);
        });
    EXPECT_TRUE(sink.Events().empty());
    EXPECT_EQ(sink.References(), 0);
}

TEST_F(ApartmentTest, WithoutItsWindowAnObjectOnAThreadThatProcessesMessagesIsNotMade) {
    HRESULT created = S_OK;
    std::thread([&] {
        const ComInit com(COINIT_APARTMENTTHREADED);
        // Refuses every window that this thread makes.
        const auto refuse = [](int code, WPARAM wParam, LPARAM lParam) -> LRESULT {
            return code == HCBT_CREATEWND ? 1 : CallNextHookEx(nullptr, code, wParam, lParam);
        };
        const UniqueResource<HHOOK, &UnhookWindowsHookEx> hook(
            SetWindowsHookExW(WH_CBT, refuse, nullptr, GetCurrentThreadId()));
        void* object = nullptr;
        created = CreateManagerInstance(nullptr, IID_IWebFilterManager, &object);
    }).join();
    EXPECT_EQ(created, E_FAIL);
}

// Made on a thread outside COM, an object cannot tell the thread's type and says why; a failure
// while it says so ends the query with a note of its own.
TEST(ThreadTypeQuery, SaysWhyItCannotTell) {
    const std::u16string origin = u"CWebFilterManager::GetContextThreadType() - ";
    struct Case {
        bool failFirst;
        std::u16string said;
    };
    for (const Case& test :
         {Case{false, origin + u"CoGetObjectContext returned NULL object, hr = 00000000800401F0"},
          Case{true, origin + u"exception thrown"}}) {
        const LogCapture log(test.failFirst);
        std::thread([] { EXPECT_TRUE(CreateManager()); }).join();
        EXPECT_EQ(log.Messages(), (std::vector<LoggedMessage>{{LogLevelDiagnostic, test.said}}));
    }
}

TEST_F(EventsTest, EnablingUpdateLoadsAtOnceAndAnnouncesNothing) {
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kModeZero), S_OK);
    TestSink& sink = MakeSink();
    const ComPtr<IWebFilterManager> listener = Listener(sink);
    ASSERT_TRUE(listener);
    EXPECT_EQ(ContentOf(*listener.Get()).text, kByteOrderMark + kModeZero);
    EXPECT_EQ(Allowed(*listener.Get(), u"http://a.example/"), 0);
    SleepFor(kSeveralTicks);
    EXPECT_TRUE(sink.Events().empty());
}

TEST_F(EventsTest, AnObjectHearsOfItsOwnPublicationAtItsNextTick) {
    TestSink& sink = MakeSink();
    Advise(Manager(), sink);
    ASSERT_EQ(Manager().EnableUpdate(1), S_OK);
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kModeZero), S_OK);
    ASSERT_TRUE(WaitForEvents(sink, 1));
    // Loaded back from the section, under BlockAll too, lists and all.
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockAll, kModeFive), S_OK);
    ASSERT_TRUE(WaitForEvents(sink, 2));
    EXPECT_EQ(sink.Types(),
              (std::vector<::WebFilterType>{WebFilterBlockPolicy, WebFilterBlockAll}));
    EXPECT_EQ(ContentOf(Manager()).text, kByteOrderMark + kModeFive);
}

TEST_F(EventsTest, ASinkThatUnadvisesItselfInsideTheEventLetsTheOthersHaveIt) {
    TestSink& leaving = MakeSink();
    TestSink& staying = MakeSink();
    const ComPtr<IWebFilterManager> listener = Listener(leaving);
    ASSERT_TRUE(listener);
    const DWORD stayingCookie = Advise(*listener.Get(), staying);
    const ComPtr<IConnectionPoint> point = EventsPoint(*listener.Get());
    std::atomic<HRESULT> unadvised{E_UNEXPECTED};
    std::atomic<long> referencesInside{0};
    leaving.onEvent = [&](::WebFilterType) {
        unadvised = point->Unadvise(1);
        // The event holds a reference of its own until the call returns.
        referencesInside = leaving.References();
    };
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kModeZero), S_OK);
    ASSERT_TRUE(WaitForEvents(staying, 1));
    EXPECT_EQ(unadvised, S_OK);
    EXPECT_EQ(referencesInside, 1);
    EXPECT_TRUE(WaitUntil([&] { return leaving.References() == 0; }));

    ASSERT_EQ(SetContent(Manager(), WebFilterBlockAll, u""), S_OK);
    ASSERT_TRUE(WaitForEvents(staying, 2));
    EXPECT_EQ(leaving.Events().size(), 1u);
    EXPECT_EQ(point->Unadvise(stayingCookie), S_OK);
}

TEST_F(EventsTest, AFailingSinkDoesNotKeepTheOthersFromTheEvent) {
    TestSink& failing = MakeSink(S_OK, E_FAIL);
    TestSink& other = MakeSink();
    const ComPtr<IWebFilterManager> listener = Listener(failing);
    ASSERT_TRUE(listener);
    Advise(*listener.Get(), other);
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kModeZero), S_OK);
    ASSERT_TRUE(WaitForEvents(other, 1));
    EXPECT_EQ(failing.Events().size(), 1u);
}

TEST_F(EventsTest, ASinkMayCallTheObjectFromInsideTheEvent) {
    TestSink& sink = MakeSink();
    const ComPtr<IWebFilterManager> listener = Listener(sink);
    ASSERT_TRUE(listener);
    std::u16string seen;
    std::atomic<long> decision{-1};
    sink.onEvent = [&](::WebFilterType) {
        seen = ContentOf(*listener.Get()).text;
        decision = Allowed(*listener.Get(), u"http://a.example/");
    };
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kModeZero), S_OK);
    ASSERT_TRUE(WaitForEvents(sink, 1));
    // The event is recorded before the sink's own work: wait for that to end too.
    ASSERT_TRUE(WaitUntil([&] { return decision != -1; }));
    EXPECT_EQ(seen, kByteOrderMark + kModeZero);
    EXPECT_EQ(decision, 0);
}

TEST_F(EventsTest, CookiesNameSlotsAndEmptiedSlotsAreReused) {
    const ComPtr<IConnectionPoint> point = EventsPoint(Manager());
    ASSERT_TRUE(point);
    TestSink& first = MakeSink();
    TestSink& second = MakeSink();
    TestSink& third = MakeSink();
    EXPECT_EQ(Advise(Manager(), first), 1u);
    EXPECT_EQ(Advise(Manager(), second), 2u);
    EXPECT_EQ(point->Unadvise(1), S_OK);
    EXPECT_EQ(first.References(), 0);
    EXPECT_EQ(Advise(Manager(), third), 1u);
    EXPECT_EQ(point->Unadvise(2), S_OK);
    EXPECT_EQ(point->Unadvise(2), CONNECT_E_NOCONNECTION);
    EXPECT_EQ(point->Unadvise(0), CONNECT_E_NOCONNECTION);
    EXPECT_EQ(point->Unadvise(99), CONNECT_E_NOCONNECTION);
    EXPECT_EQ(point->Unadvise(1), S_OK);
    EXPECT_EQ(third.References(), 0);
}

TEST_F(EventsTest, ASinkWithoutTheEventInterfaceCannotConnect) {
    const ComPtr<IConnectionPoint> point = EventsPoint(Manager());
    ASSERT_TRUE(point);
    TestSink& lacking = MakeSink(E_NOINTERFACE);
    DWORD cookie = 77;
    EXPECT_EQ(point->Advise(static_cast<IUnknown*>(&lacking), &cookie), CONNECT_E_CANNOTCONNECT);
    EXPECT_EQ(cookie, 0u);
    EXPECT_EQ(lacking.References(), 0);
    EXPECT_EQ(point->Advise(nullptr, &cookie), E_POINTER);
}

TEST_F(EventsTest, ASectionMadeAnewWithAStampAlreadySeenGoesUnnoticed) {
    TestSink& sink = MakeSink();
    const ComPtr<IWebFilterManager> listener = Listener(sink);
    ASSERT_TRUE(listener);
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kModeZero), S_OK);
    ASSERT_TRUE(WaitForEvents(sink, 1));

    // The publisher goes, and its section with it; the next one starts counting at 1 again.
    manager_.Reset();
    ASSERT_TRUE(WaitUntil([] { return !ProbeSection().has_value(); }));
    const ComPtr<IWebFilterManager> next = CreateManager();
    ASSERT_TRUE(next);
    ASSERT_EQ(SetContent(*next.Get(), WebFilterBlockPolicy, kModeThree), S_OK);
    SleepFor(kSeveralTicks);
    EXPECT_EQ(sink.Events().size(), 1u);
    EXPECT_EQ(ContentOf(*listener.Get()).text, kByteOrderMark + kModeZero);

    ASSERT_EQ(SetContent(*next.Get(), WebFilterBlockAll, u""), S_OK);
    ASSERT_TRUE(WaitForEvents(sink, 2));
    EXPECT_EQ(sink.Types().back(), WebFilterBlockAll);
}

}  // namespace
}  // namespace sentrel::test
