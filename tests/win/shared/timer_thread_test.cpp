#include <gtest/gtest.h>

#include <windows.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "com/unique_resource.h"
#include "shared/timer_thread.h"
#include "thread_test_support.h"

namespace sentrel {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using test::WaitUntil;

// Counts its ticks and remembers when they came.
class CountingSubscriber : public ITimerSubscriber {
  public:
    void OnTimeElapsed() override {
        const std::lock_guard<std::mutex> guard(lock_);
        times_.push_back(Clock::now());
    }
    std::size_t Count() {
        const std::lock_guard<std::mutex> guard(lock_);
        return times_.size();
    }
    std::vector<Clock::time_point> Times() {
        const std::lock_guard<std::mutex> guard(lock_);
        return times_;
    }

  private:
    std::mutex lock_;
    std::vector<Clock::time_point> times_;
};

// Counts the switch messages it posts.
class CountingTimerThread : public TimerThread {
  public:
    explicit CountingTimerThread(std::uint32_t periodMs) : TimerThread(periodMs) {}
    bool PostToThread(UINT message, WPARAM wParam, LPARAM lParam, std::uint32_t tries) override {
        if (message == WM_ENABLE_TIMER) {
            ++switches;
        }
        return TimerThread::PostToThread(message, wParam, lParam, tries);
    }
    std::atomic<int> switches{0};
};

// The count once no tick has come for two periods; nothing when ticks keep coming.
std::optional<std::size_t> SettledCount(CountingSubscriber& subscriber, milliseconds period) {
    std::size_t count = subscriber.Count();
    for (int round = 0; round < 5; ++round) {
        std::this_thread::sleep_for(period * 2);
        const std::size_t now = subscriber.Count();
        if (now == count) {
            return count;
        }
        count = now;
    }
    return std::nullopt;
}

TEST(TimerThread, TicksEveryPeriodWhileActiveAndStopsWhenSwitchedOff) {
    CountingSubscriber subscriber;
    TimerThread timer(500);
    timer.Subscribe(&subscriber);
    ASSERT_TRUE(timer.Begin(0, 0));
    std::this_thread::sleep_for(milliseconds(700));
    EXPECT_EQ(subscriber.Count(), 0u);  // the thread starts with its timer off

    timer.SetActive(1);
    ASSERT_TRUE(WaitUntil([&] { return subscriber.Count() >= 5; }));
    timer.SetActive(0);
    const std::size_t atSwitch = subscriber.Count();
    const auto stopped = SettledCount(subscriber, milliseconds(500));
    ASSERT_TRUE(stopped.has_value());
    EXPECT_LE(*stopped, atSwitch + 1);  // at most a tick already under way

    // Never early; on average near the period (generous: the machine is shared).
    const auto times = subscriber.Times();
    for (std::size_t i = 1; i < 5; ++i) {
        EXPECT_GE(times[i] - times[i - 1], milliseconds(400));
    }
    EXPECT_LE((times[4] - times[0]) / 4, milliseconds(1500));
    timer.Unsubscribe(&subscriber);
    EXPECT_TRUE(timer.End(1000));
}

TEST(TimerThread, SwitchingOnTwiceMakesOneTimer) {
    constexpr milliseconds kPeriod(100);
    CountingSubscriber subscriber;
    CountingTimerThread timer(kPeriod.count());
    timer.Subscribe(&subscriber);
    ASSERT_TRUE(timer.Begin(0, 0));
    timer.SetActive(1);
    timer.SetActive(1);
    EXPECT_EQ(timer.switches, 1);

    const auto start = Clock::now();
    ASSERT_TRUE(WaitUntil([&] { return subscriber.Count() >= 8; }));
    // Two timers would tick twice per period: eight ticks take at least seven periods with one.
    EXPECT_GE(Clock::now() - start, kPeriod * 7);

    timer.SetActive(2);  // any value but 1 switches off
    EXPECT_EQ(timer.switches, 2);
    const std::size_t atSwitch = subscriber.Count();
    const auto stopped = SettledCount(subscriber, kPeriod);
    ASSERT_TRUE(stopped.has_value());
    EXPECT_LE(*stopped, atSwitch + 1);

    timer.SetActive(1);  // and on again
    ASSERT_TRUE(WaitUntil([&] { return subscriber.Count() >= *stopped + 2; }));
    EXPECT_TRUE(timer.End(1000));
}

TEST(TimerThread, SwitchBeforeBeginIsRefusedButRemembered) {
    CountingTimerThread timer(50);
    timer.SetActive(1);
    EXPECT_EQ(timer.switches, 1);
    timer.SetActive(1);
    EXPECT_EQ(timer.switches, 1);
}

TEST(TimerThread, SubscriberIsCalledOnceEachTickHoweverOftenSubscribed) {
    CountingSubscriber twice;
    CountingSubscriber once;
    TimerThread timer(20);
    timer.Subscribe(&twice);
    timer.Subscribe(&twice);
    timer.Subscribe(&once);
    timer.Subscribe(nullptr);
    ASSERT_TRUE(timer.Begin(0, 0));
    timer.SetActive(1);
    ASSERT_TRUE(WaitUntil([&] { return once.Count() >= 10; }));
    EXPECT_TRUE(timer.End(1000));
    EXPECT_EQ(twice.Count(), once.Count());

    // One Unsubscribe removes it, however often it was subscribed.
    timer.Unsubscribe(&twice);
    ASSERT_TRUE(timer.Begin(0, 0));
    timer.SetActive(1);
    const std::size_t before = twice.Count();
    ASSERT_TRUE(WaitUntil([&] { return once.Count() >= before + 5; }));
    EXPECT_EQ(twice.Count(), before);
}

// Unsubscribes itself from inside its own call, on its n-th tick.
class LeavingSubscriber : public ITimerSubscriber {
  public:
    LeavingSubscriber(TimerThread& timer, int leaveAt) : timer_(timer), leaveAt_(leaveAt) {}
    void OnTimeElapsed() override {
        if (++calls == leaveAt_) {
            timer_.Unsubscribe(this);
        }
    }
    std::atomic<int> calls{0};

  private:
    TimerThread& timer_;
    const int leaveAt_;
};

TEST(TimerThread, SubscriberMayUnsubscribeFromInsideItsTick) {
    TimerThread timer(20);
    LeavingSubscriber leaving(timer, 2);
    CountingSubscriber staying;
    timer.Subscribe(&leaving);
    timer.Subscribe(&staying);
    ASSERT_TRUE(timer.Begin(0, 0));
    timer.SetActive(1);
    ASSERT_TRUE(WaitUntil([&] { return leaving.calls == 2; }));
    const std::size_t after = staying.Count();
    ASSERT_TRUE(WaitUntil([&] { return staying.Count() >= after + 10; }));
    EXPECT_EQ(leaving.calls, 2);
    EXPECT_TRUE(timer.End(1000));
}

// Takes a while in each call and tells whether a call is running.
class SlowSubscriber : public ITimerSubscriber {
  public:
    void OnTimeElapsed() override {
        inside = true;
        Sleep(3);
        ++calls;
        inside = false;
    }
    std::atomic<bool> inside{false};
    std::atomic<int> calls{0};
};

TEST(TimerThread, UnsubscribedFromAnotherThreadIsNeverCalledAgain) {
    TimerThread timer(10);
    ASSERT_TRUE(timer.Begin(0, 0));
    timer.SetActive(1);
    // Others come and go meanwhile, so that the set changes under the walk.
    std::atomic<bool> churning{true};
    std::thread churn([&] {
        std::vector<std::unique_ptr<SlowSubscriber>> others(4);
        for (auto& other : others) {
            other = std::make_unique<SlowSubscriber>();
        }
        for (unsigned round = 0; churning; ++round) {
            SlowSubscriber* other = others[round % others.size()].get();
            timer.Subscribe(other);
            Sleep(round % 7);
            timer.Unsubscribe(other);
        }
    });

    for (int round = 0; round < 25; ++round) {
        SlowSubscriber subscriber;
        timer.Subscribe(&subscriber);
        ASSERT_TRUE(WaitUntil([&] { return subscriber.calls > round % 3; }));
        Sleep(static_cast<DWORD>(round % 5));
        timer.Unsubscribe(&subscriber);
        EXPECT_FALSE(subscriber.inside);
        const int calls = subscriber.calls;
        Sleep(25);
        EXPECT_EQ(subscriber.calls, calls) << round;
    }
    churning = false;
    churn.join();
    EXPECT_TRUE(timer.End(1000));
}

// Blocks in its call until released.
class BlockingSubscriber : public ITimerSubscriber {
  public:
    BlockingSubscriber()
        : entered_(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
          release_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
    void OnTimeElapsed() override {
        SetEvent(entered_.Get());
        WaitForSingleObject(release_.Get(), INFINITE);
        finished = true;
    }
    bool WaitEntered() { return WaitForSingleObject(entered_.Get(), 10000) == 0; }
    void Release() { SetEvent(release_.Get()); }
    std::atomic<bool> finished{false};

  private:
    UniqueHandle entered_;
    UniqueHandle release_;
};

TEST(TimerThread, DestructionWaitsForAThreadThatOutlivedItsEnd) {
    BlockingSubscriber subscriber;
    auto timer = std::make_unique<TimerThread>(20);
    timer->Subscribe(&subscriber);
    ASSERT_TRUE(timer->Begin(0, 0));
    timer->SetActive(1);
    ASSERT_TRUE(subscriber.WaitEntered());

    EXPECT_TRUE(timer->End(50));  // times out: the subscriber still blocks the thread
    EXPECT_FALSE(timer->Begin(0, 0));

    std::atomic<bool> destroyed{false};
    std::atomic<bool> finishedFirst{false};
    std::thread destroyer([&] {
        timer.reset();
        finishedFirst = subscriber.finished.load();
        destroyed = true;
    });
    Sleep(200);
    EXPECT_FALSE(destroyed);
    subscriber.Release();
    destroyer.join();
    EXPECT_TRUE(destroyed);
    EXPECT_TRUE(finishedFirst);
}

// Stops its own timer thread from inside a tick.
class StoppingSubscriber : public ITimerSubscriber {
  public:
    explicit StoppingSubscriber(TimerThread& timer) : timer_(timer) {}
    void OnTimeElapsed() override {
        ++calls;
        ended = timer_.End(INFINITE);
    }
    std::atomic<int> calls{0};
    std::atomic<bool> ended{false};

  private:
    TimerThread& timer_;
};

TEST(TimerThread, ThreadMayBeEndedFromInsideItsOwnTick) {
    TimerThread timer(20);
    StoppingSubscriber subscriber(timer);
    timer.Subscribe(&subscriber);
    ASSERT_TRUE(timer.Begin(0, 0));
    timer.SetActive(1);
    ASSERT_TRUE(WaitUntil([&] { return subscriber.ended.load(); }));
    Sleep(200);
    EXPECT_EQ(subscriber.calls, 1);
    // The thread has left its loop: a new one can start.
    ASSERT_TRUE(WaitUntil([&] { return timer.Begin(0, 0); }));
    timer.Unsubscribe(&subscriber);
    EXPECT_TRUE(timer.End(1000));
}

}  // namespace
}  // namespace sentrel
