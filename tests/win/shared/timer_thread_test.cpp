#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <utility>

#include "com/unique_resource.h"
#include "shared/timer_thread.h"
#include "thread_test_support.h"

namespace sentrel::test {
namespace {

// Counts its calls, and does what it is given at each.
struct Subscriber : ITimerSubscriber {
    explicit Subscriber(std::function<void()> what = [] {}) : action(std::move(what)) {}
    void OnTimeElapsed() override {
        ++calls;
        action();
    }
    std::function<void()> action;
    std::atomic<int> calls{0};
};

TEST(TimerThread, RealTimerTicksOnlyWhileSwitchedOnByOne) {
    Subscriber subscriber;
    TimerThread timer(20);
    timer.Subscribe(&subscriber);
    timer.Subscribe(nullptr);  // ignored
    timer.SetActive(1);        // refused without a thread, but remembered
    ASSERT_TRUE(timer.Begin(0, 0));
    EXPECT_FALSE(timer.Begin(0, 0));
    timer.SetActive(1);  // the value it has: no switch, so no tick
    Sleep(100);
    EXPECT_EQ(subscriber.calls, 0);
    timer.SetActive(0);
    timer.SetActive(1);
    ASSERT_TRUE(WaitUntil([&] { return subscriber.calls >= 3; }));
    timer.SetActive(2);  // any value but 1 stops it: then no tick comes for 100 ms
    int seen = -1;
    EXPECT_TRUE(WaitUntil([&] {
        Sleep(100);
        return std::exchange(seen, subscriber.calls) == seen;
    }));
    timer.SetActive(1);
    EXPECT_TRUE(WaitUntil([&] { return subscriber.calls >= seen + 2; }));
    EXPECT_TRUE(timer.End(1000));
}

// Once Unsubscribe returns no call reaches the subscriber: it waits for a call on another thread,
// and the walk skips one removed after it began. From inside its own call it leaves at once.
TEST(TimerThread, UnsubscribedIsNeverCalledOnceUnsubscribeReturns) {
    TimerThread timer(20);
    std::atomic<int> step{0};  // 1: the blocking call has begun; 2: it may end
    const auto block = [&] {
        step = 1;
        WaitUntil([&] { return step == 2; });
    };
    struct {  // called in address order
        Subscriber leaving, blocking, skipped{}, staying{};
    } s{Subscriber([&] { timer.Unsubscribe(&s.leaving); }), Subscriber(block)};
    for (Subscriber* subscriber : {&s.leaving, &s.blocking, &s.skipped, &s.staying}) {
        timer.Subscribe(subscriber);
    }
    ASSERT_TRUE(timer.Begin(0, 0));
    // A tick by hand: the loop takes a posted WM_TIMER as a tick of its own.
    ASSERT_TRUE(timer.PostToThread(WM_TIMER, 0, 0, CThreadBase::kPostTries));
    ASSERT_TRUE(WaitUntil([&] { return step == 1; }));
    timer.Unsubscribe(&s.skipped);
    std::thread opener([&] {
        Sleep(50);
        step = 2;
    });
    timer.Unsubscribe(&s.blocking);
    EXPECT_EQ(step, 2);  // not before the call ended
    opener.join();
    EXPECT_TRUE(timer.End(1000));
    EXPECT_EQ(s.skipped.calls, 0);
}

}  // namespace
}  // namespace sentrel::test
