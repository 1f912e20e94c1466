// The object's end as clients bring it about: the last reference released from inside an event,
// on the timer thread and through the creating thread's message loop, and objects released while
// their timers run.

#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <list>
#include <thread>
#include <vector>

#include "manager_fixture.h"
#include "test_doubles.h"

namespace sentrel::test {
namespace {

const std::u16string kAnnounced = ListDocument(0, ListKind::Black, {u"http://a.example/"});

// The fixture's object publishes; each test makes a listener that a sink releases.
class LifetimeTest : public ManagerTest {
  protected:
    // A listener with the two sinks advised, in this order, and updating on.
    static ComPtr<IWebFilterManager> Listener(TestSink& first, TestSink& second) {
        ComPtr<IWebFilterManager> listener = CreateManager();
        const ComPtr<IConnectionPoint> point = listener ? EventsPoint(*listener.Get()) : nullptr;
        DWORD cookie = 0;
        if (!point || point->Advise(static_cast<IUnknown*>(&first), &cookie) != S_OK ||
            point->Advise(static_cast<IUnknown*>(&second), &cookie) != S_OK ||
            listener->EnableUpdate(1) != S_OK) {
            listener.Reset();
        }
        return listener;
    }

    // The first sink gives up the only reference to the object it listens to at its first event.
    void ReleaseInsideTheFirstEvent(IWebFilterManager* listener) {
        releasing_.onEvent = [this, listener](::WebFilterType) {
            if (!released_.exchange(true)) {
                listener->Release();
            }
        };
    }

    bool ObjectGone() const {
        // The publisher is the one object left.
        return TheModuleLockCount.GetLockCount() == startLocks_ + 1;
    }

    TestSink releasing_;
    TestSink other_;
    std::atomic<bool> released_{false};
};

TEST_F(LifetimeTest, TheLastReferenceMayGoInsideAnEventOnTheTimerThread) {
    IWebFilterManager* listener = Listener(releasing_, other_).Detach();
    ASSERT_NE(listener, nullptr);
    ReleaseInsideTheFirstEvent(listener);
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kAnnounced), S_OK);
    // Watched without pause: what matters is the moment the count says the object is gone.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!ObjectGone() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    ASSERT_TRUE(ObjectGone());
    // The module may be unloaded from here on: the destruction has ended, and with it the
    // object's hold on its sinks. The event still reached the sink after the releasing one.
    EXPECT_EQ(releasing_.References(), 0);
    EXPECT_EQ(other_.References(), 0);
    EXPECT_EQ(other_.Events().size(), 1u);
}

TEST_F(LifetimeTest, NoTickReachesAnObjectWhoseLastReferenceWentInsideAnEvent) {
    IWebFilterManager* listener = Listener(releasing_, other_).Detach();
    ASSERT_NE(listener, nullptr);
    ReleaseInsideTheFirstEvent(listener);
    // The event outlasts the timer's period, so that the next tick is due when it returns, with
    // another change to load.
    const auto releasing = releasing_.onEvent;
    std::atomic<bool> inside{false};
    releasing_.onEvent = [&](::WebFilterType type) {
        releasing(type);
        inside = true;
        SleepFor(std::chrono::milliseconds(800));
    };
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kAnnounced), S_OK);
    ASSERT_TRUE(WaitUntil([&] { return inside.load(); }));
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockAll, u""), S_OK);
    ASSERT_TRUE(WaitUntil([&] { return ObjectGone(); }));
    SleepFor(kSeveralTicks);
    EXPECT_TRUE(ObjectGone());
    EXPECT_EQ(other_.Events().size(), 1u);
    EXPECT_EQ(releasing_.Events().size(), 1u);
}

TEST_F(LifetimeTest, TheLastReferenceMayGoInsideAnEventFromTheMessageLoop) {
    std::atomic<bool> ready{false};
    std::atomic<bool> gone{false};
    std::thread apartment([&] {
        const ComInit com(COINIT_APARTMENTTHREADED);
        IWebFilterManager* listener = Listener(releasing_, other_).Detach();
        if (listener == nullptr) {
            return;
        }
        ReleaseInsideTheFirstEvent(listener);
        ready = true;
        gone = PumpMessagesUntil([&] { return ObjectGone(); }, std::chrono::milliseconds(10000));
    });
    ASSERT_TRUE(WaitUntil([&] { return ready.load(); }));
    EXPECT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kAnnounced), S_OK);
    apartment.join();
    EXPECT_TRUE(gone);
    EXPECT_EQ(other_.Events().size(), 1u);
    EXPECT_EQ(releasing_.References(), 0);
    EXPECT_EQ(other_.References(), 0);
}

TEST_F(LifetimeTest, ObjectsReleasedWhileTheirTimersRunGoAtOnce) {
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kAnnounced), S_OK);
    std::vector<ComPtr<IWebFilterManager>> listeners;
    for (int i = 0; i < 8; ++i) {
        listeners.push_back(CreateManager());
        ASSERT_TRUE(listeners.back());
        ASSERT_EQ(listeners.back()->EnableUpdate(1), S_OK);
    }
    // Some of them in the middle of a tick that loads a change.
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockAll, u""), S_OK);
    SleepFor(std::chrono::milliseconds(450));
    listeners.clear();
    EXPECT_TRUE(ObjectGone());
}

}  // namespace
}  // namespace sentrel::test
