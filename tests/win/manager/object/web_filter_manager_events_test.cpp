// The refresh and the events: a publication loaded at a tick (by hand, save in one test) and told.

#include <windows.h>

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

#include "com/unique_resource.h"
#include "log_capture.h"
#include "manager_fixture.h"

namespace sentrel::test {
namespace {

TEST_F(ManagerTest, AChangeIsLoadedOnceAndAnnouncedByItsRefreshModeAndType) {
    const struct {
        const char* name;
        ::WebFilterType type;
        const std::u16string& text;
        int refreshMode;
        bool announced;
        bool enable;  // EnableUpdate loads it before the ticks
    } cases[] = {{"RefreshModeZero", kPolicy, kModeZero, 0, true, false},
                 {"RefreshModeTwoIsSilent", kPolicy, kModeTwo, 2, false, false},
                 {"BlockAllWhateverItsRefreshModeWithItsLists", kAll, kModeTwo, 2, true, false},
                 {"LoadedByEnableUpdateIsSilent", kPolicy, kModeZero, 0, false, true}};
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        const ComPtr<IWebFilterManager> publisher = CreateManager();
        const ComPtr<IWebFilterManager> listener = CreateManager();
        Advise(*listener.Get(), MakeSink());
        ASSERT_EQ(SetContent(*publisher.Get(), test.type, test.text), S_OK);
        if (test.enable) {
            EXPECT_EQ(listener->EnableUpdate(-3), S_OK);  // any value but 0
            EXPECT_EQ(listener->EnableUpdate(0), S_OK);
        }
        Tick(*listener.Get());
        Tick(*listener.Get());
        EXPECT_EQ(ContentOf(*listener.Get()), Handed(test.type, test.refreshMode, test.text));
        EXPECT_EQ(sinks_.back().Received(),
                  (test.announced ? Events{{test.type, GetCurrentThreadId()}} : Events{}));
    }
}

// Events go to the interface the sink hands out; a refresh leaves the published mode alone.
TEST_F(ManagerTest, EventsGoWhereTheSinkSaysAndARefreshLeavesThePublishedModeAlone) {
    TestSink& handedOut = MakeSink();
    TestSink& advised = MakeSink();
    advised.tearOff = &handedOut;
    Advise(Manager(), advised);
    ASSERT_EQ(SetContent(Manager(), kAll, Document(5)), S_OK);
    Tick(Manager());
    ASSERT_EQ(SetContent(Manager(), kNone, u""), S_OK);
    EXPECT_EQ(
        std::tuple(advised.Received().size(), handedOut.Received().size(), ProbeSection()->text),
        std::tuple(std::size_t{0}, std::size_t{1}, Document(0)));
}

// Whether another thread may call the object now; a lock held fails the test, not hangs it.
bool FreeForOtherThreads(IWebFilterManager& object) {
    std::packaged_task<long()> call([&object] { return Allowed(object, u"http://h/"); });
    std::future<long> answered = call.get_future();
    std::thread(std::move(call)).detach();
    return answered.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
}

// Slot 1 fails and advises a sink, which lands beyond the four slots counted; slot 2 unadvises
// itself. Each is called with no lock held and a reference of its own.
TEST_F(ManagerTest, SinksAreCalledInTurnWithNoLockHeldAndTheSlotsCountedOnce) {
    TestSink& failing = MakeSink(S_OK, E_FAIL);
    TestSink& leaving = MakeSink();
    TestSink& late = MakeSink();
    TestSink& last = MakeSink();
    for (TestSink* sink : {&failing, &leaving, &MakeSink(), &last}) {
        Advise(Manager(), *sink);
    }
    DWORD lateCookie = 0;
    failing.onEvent = [&] { lateCookie = lateCookie != 0 ? lateCookie : Advise(Manager(), late); };
    std::tuple<bool, HRESULT, long> inside;
    leaving.onEvent = [&] {
        std::get<0>(inside) = FreeForOtherThreads(Manager());
        std::get<1>(inside) = EventsPoint(Manager())->Unadvise(2);
        std::get<2>(inside) = leaving.References();
    };
    const ComPtr<IWebFilterManager> publisher = CreateManager();
    for (const ::WebFilterType type : {kPolicy, kAll}) {
        ASSERT_EQ(SetContent(*publisher.Get(), type, type == kAll ? u"" : kModeZero), S_OK);
        Tick(Manager());
    }
    const DWORD here = GetCurrentThreadId();
    EXPECT_EQ(inside, std::tuple(true, S_OK, 1l));
    EXPECT_EQ(std::pair(lateCookie, leaving.References()), std::pair(5ul, 0l));
    EXPECT_EQ(last.Received(), (Events{{kPolicy, here}, {kAll, here}}));
    EXPECT_EQ(leaving.Received(), (Events{{kPolicy, here}}));
    EXPECT_EQ(late.Received(), (Events{{kAll, here}}));
    // The emptied slot goes to the next sink; no other cookie names a connection.
    const ComPtr<IConnectionPoint> point = EventsPoint(Manager());
    EXPECT_EQ(Advise(Manager(), MakeSink()), 2u);
    for (const DWORD cookie : {0ul, 6ul, 9ul}) {
        EXPECT_EQ(point->Unadvise(cookie), CONNECT_E_NOCONNECTION) << cookie;
    }
    DWORD cookie = 7;
    EXPECT_EQ(point->Advise(&MakeSink(E_NOINTERFACE), &cookie), CONNECT_E_CANNOTCONNECT);
    EXPECT_EQ(cookie, 0u);
    // A copy of the connections in slot order; Next says when fewer were left than asked for.
    ComPtr<IEnumConnections> connections;
    ASSERT_EQ(point->EnumConnections(connections.Put()), S_OK);
    CONNECTDATA data[2] = {};
    ULONG fetched = 0;
    EXPECT_EQ(connections->Skip(4), S_OK);
    EXPECT_EQ(connections->Next(2, data, &fetched), S_FALSE);
    const ComPtr<IUnknown> fifth = ComPtr<IUnknown>::Adopt(data[0].pUnk);
    EXPECT_EQ(std::pair(fetched, data[0].dwCookie), std::pair(1ul, 5ul));
}

// The one test of the real timer, on whose thread the sinks are called and may end the object.
TEST_F(ManagerTest, TheTimerRefreshesAndItsThreadMayEndTheObject) {
    IWebFilterManager* listener = CreateManager().Detach();
    TestSink& releasing = MakeSink();
    TestSink& other = MakeSink();
    Advise(*listener, releasing);
    Advise(*listener, other);
    releasing.onEvent = [listener] { listener->Release(); };
    ASSERT_EQ(listener->EnableUpdate(1), S_OK);
    ASSERT_EQ(SetContent(Manager(), kPolicy, kModeZero), S_OK);
    ASSERT_TRUE(WaitUntil([&] { return TheModuleLockCount.GetLockCount() == locks_ + 1; }));
    EXPECT_NE(other.Received().at(0).second, GetCurrentThreadId());
}

// On the creating thread once it dispatches, where a sink may end the object after all had it.
TEST_F(ManagerTest, OnAThreadThatProcessesMessagesEventsWaitForItsMessageLoop) {
    TestSink& releasing = MakeSink();
    TestSink& other = MakeSink();
    std::thread([&] {
        const ComInit com(COINIT_APARTMENTTHREADED);
        IWebFilterManager* listener = CreateManager().Detach();
        Advise(*listener, releasing);
        Advise(*listener, other);
        releasing.onEvent = [listener] { listener->Release(); };
        bool aliveForOther = false;
        other.onEvent = [&] { aliveForOther = TheModuleLockCount.GetLockCount() == locks_ + 2; };
        EXPECT_EQ(SetContent(Manager(), kPolicy, kModeZero), S_OK);
        Tick(*listener);
        EXPECT_EQ(other.Received(), Events{});
        MSG message;
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            DispatchMessageW(&message);
        }
        EXPECT_EQ(other.Received(), (Events{{kPolicy, GetCurrentThreadId()}}));
        EXPECT_TRUE(aliveForOther);
    }).join();
}

// A CBT hook refuses the window; outside COM the thread's type is unknown, and so is said.
TEST(ManagerCreation, NeedsTheWindowOnAThreadOfMessagesAndSaysWhyItCannotTellAThread) {
    HRESULT created = S_OK;
    std::thread([&] {
        const ComInit com(COINIT_APARTMENTTHREADED);
        const auto refuse = [](int code, WPARAM wParam, LPARAM lParam) -> LRESULT {
            return code == HCBT_CREATEWND ? 1 : CallNextHookEx(nullptr, code, wParam, lParam);
        };
        const UniqueResource<HHOOK, &UnhookWindowsHookEx> hook(
            SetWindowsHookExW(WH_CBT, refuse, nullptr, GetCurrentThreadId()));
        void* object = nullptr;
        created = CreateManagerInstance(nullptr, IID_IWebFilterManager, &object);
    }).join();
    EXPECT_EQ(created, E_FAIL);
    const std::u16string origin = u"CWebFilterManager::GetContextThreadType() - ";
    for (const bool failFirst : {false, true}) {
        const LogCapture log(failFirst);
        std::thread([] { EXPECT_TRUE(CreateManager()); }).join();
        EXPECT_EQ(
            log.Messages(),
            (std::vector<LoggedMessage>{
                {LogLevelDiagnostic, origin + (failFirst ? u"exception thrown"
                                                         : u"CoGetObjectContext returned NULL "
                                                           u"object, hr = 00000000800401F0")}}));
    }
}

}  // namespace
}  // namespace sentrel::test
