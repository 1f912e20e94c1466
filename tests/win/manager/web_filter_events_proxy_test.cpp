#include "manager/web_filter_events_proxy.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include "manager/com_ptr.h"
#include "source_fixture.h"
#include "test_doubles.h"

namespace sentrel::test {
namespace {

class FireTest : public SourceTest {
  protected:
    void Fire(WebFilterType type) { Source().Fire_OnFilterContentChanged(type); }
};

TEST_F(FireTest, EverySinkReceivesTheTypeOnceInSlotOrder) {
    std::vector<TestSink*> sinks;
    std::vector<TestSink*> order;
    for (int index = 0; index < 6; ++index) {
        TestSink& sink = MakeSink();
        Advise(sink);
        sink.onEvent = [&order, &sink](WebFilterType) { order.push_back(&sink); };
        sinks.push_back(&sink);
    }
    for (const WebFilterType type :
         {WebFilterBlockAll, WebFilterBlockPolicy, static_cast<WebFilterType>(3)}) {
        order.clear();
        Fire(type);
        ASSERT_EQ(order.size(), sinks.size());
        for (std::size_t index = 0; index < sinks.size(); ++index) {
            EXPECT_EQ(order[index], sinks[index]);
            EXPECT_EQ(sinks[index]->Types().back(), type);
        }
    }
}

TEST_F(FireTest, WithoutSinksNothingHappens) {
    Fire(WebFilterBlockAll);
    TestSink& sink = MakeSink();
    Advise(sink);
    ASSERT_EQ(point_->Unadvise(1), S_OK);
    Fire(WebFilterBlockAll);
    EXPECT_TRUE(sink.Events().empty());
}

TEST_F(FireTest, AFailingSinkDoesNotKeepTheOthersFromTheEvent) {
    TestSink& failing = MakeSink(S_OK, E_FAIL);
    TestSink& disconnected = MakeSink(S_OK, RPC_E_DISCONNECTED);
    TestSink& healthy = MakeSink();
    Advise(failing);
    Advise(disconnected);
    Advise(healthy);
    Fire(WebFilterBlockPolicy);
    EXPECT_EQ(failing.Types().size(), 1u);
    EXPECT_EQ(disconnected.Types().size(), 1u);
    EXPECT_EQ(healthy.Types(), std::vector<WebFilterType>{WebFilterBlockPolicy});
}

TEST_F(FireTest, EmptiedSlotsAreSkipped) {
    TestSink& first = MakeSink();
    TestSink& second = MakeSink();
    TestSink& third = MakeSink();
    Advise(first);
    Advise(second);
    Advise(third);
    ASSERT_EQ(point_->Unadvise(2), S_OK);
    Fire(WebFilterBlockAll);
    EXPECT_EQ(first.Types().size(), 1u);
    EXPECT_TRUE(second.Types().empty());
    EXPECT_EQ(third.Types().size(), 1u);
}

TEST_F(FireTest, ASinkThatUnadvisesItselfIsReleasedAfterItsCallReturns) {
    TestSink& leaving = MakeSink();
    TestSink& staying = MakeSink();
    const DWORD cookie = Advise(leaving);
    Advise(staying);
    long heldInside = -1;
    leaving.onEvent = [&](WebFilterType) {
        EXPECT_EQ(point_->Unadvise(cookie), S_OK);
        heldInside = leaving.References();
    };
    Fire(WebFilterBlockAll);
    EXPECT_EQ(heldInside, 1) << "the event's own reference keeps the sink during its call";
    EXPECT_EQ(leaving.References(), 0);
    EXPECT_EQ(staying.Types().size(), 1u);
    Fire(WebFilterBlockAll);
    EXPECT_EQ(leaving.Types().size(), 1u);
    EXPECT_EQ(staying.Types().size(), 2u);
}

TEST_F(FireTest, SinksAreCalledWithNoLockHeld) {
    TestSink& caller = MakeSink();
    TestSink& added = MakeSink();
    Advise(caller);
    bool lockFree = false;
    caller.onEvent = [&](WebFilterType) {
        lockFree = LockFreeForOtherThreads();
        EXPECT_EQ(Advise(added), 2u);
    };
    Fire(WebFilterBlockAll);
    EXPECT_TRUE(lockFree);
    // Advised during the event into a slot not yet visited: it receives this event too.
    EXPECT_EQ(added.Types().size(), 1u);
}

// The slots are counted as the event begins: with the four first ones full, a sink advised from
// inside the event lands beyond them and waits for the next event.
TEST_F(FireTest, ASinkAdvisedBeyondTheSlotsCountedWaitsForTheNextEvent) {
    TestSink& caller = MakeSink();
    TestSink& added = MakeSink();
    for (TestSink* sink : {&caller, &MakeSink(), &MakeSink(), &MakeSink()}) {
        Advise(*sink);
    }
    DWORD cookie = 0;
    caller.onEvent = [&](WebFilterType) {
        if (cookie == 0) {
            EXPECT_EQ(point_->Advise(static_cast<IUnknown*>(&added), &cookie), S_OK);
        }
    };
    Fire(WebFilterBlockAll);
    EXPECT_EQ(cookie, 5u);
    EXPECT_TRUE(added.Events().empty());
    Fire(WebFilterBlockAll);
    EXPECT_EQ(added.Events().size(), 1u);
}

TEST_F(FireTest, TheEventGoesToTheInterfaceThatTheSinkHandedOut) {
    TestSink& events = MakeSink();
    TestSink& sink = MakeSink();
    sink.tearOff = &events;
    Advise(sink);
    Fire(WebFilterBlockAll);
    EXPECT_EQ(events.Types().size(), 1u);
    EXPECT_TRUE(sink.Events().empty());
    EXPECT_EQ(sink.References(), 0);
}

TEST_F(FireTest, ASinkMayReleaseTheLastReferenceOfTheObject) {
    TestSink& releasing = MakeSink();
    TestSink& later = MakeSink();
    Advise(releasing);
    Advise(later);
    IConnectionPointContainer* const container = container_.Detach();
    point_.Reset();
    int destroyedBeforeLaterSink = -1;
    releasing.onEvent = [container](WebFilterType) { container->Release(); };
    later.onEvent = [&](WebFilterType) { destroyedBeforeLaterSink = probe_.destructions; };
    SourceOf(container).Fire_OnFilterContentChanged(WebFilterBlockAll);
    EXPECT_EQ(destroyedBeforeLaterSink, 0);
    EXPECT_EQ(probe_.destructions, 1);
    EXPECT_EQ(releasing.References(), 0);
    EXPECT_EQ(later.References(), 0);
}

// As the timer thread may, between the last Release and the destruction that it starts.
TEST_F(FireTest, AnObjectWhoseLastReferenceWentFiresNothingAndEndsOnce) {
    TestSink& sink = MakeSink();
    Advise(sink);
    TestSource& source = Source();
    probe_.onEnd = [&source] { source.Fire_OnFilterContentChanged(WebFilterBlockAll); };
    point_.Reset();
    container_.Reset();
    EXPECT_TRUE(sink.Events().empty());
    EXPECT_EQ(probe_.ends, 1);
    EXPECT_EQ(probe_.destructions, 1);
}

TEST_F(FireTest, FiringWhileOtherThreadsAdviseAndUnadviseKeepsEveryReferenceRight) {
    std::array<TestSink, 8> sinks;
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (std::size_t half = 0; half < 2; ++half) {
        threads.emplace_back([&, half] {
            for (int round = 0; round < 300; ++round) {
                std::vector<DWORD> cookies;
                for (std::size_t index = half * 4; index < half * 4 + 4; ++index) {
                    cookies.push_back(Advise(sinks[index]));
                }
                for (const DWORD cookie : cookies) {
                    EXPECT_EQ(point_->Unadvise(cookie), S_OK);
                }
            }
        });
    }
    std::thread firing([&] {
        while (!stop) {
            Fire(WebFilterBlockPolicy);
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    stop = true;
    firing.join();
    for (const TestSink& sink : sinks) {
        EXPECT_EQ(sink.References(), 0);
        for (const WebFilterType type : sink.Types()) {
            EXPECT_EQ(type, WebFilterBlockPolicy);
        }
    }
}

}  // namespace
}  // namespace sentrel::test
