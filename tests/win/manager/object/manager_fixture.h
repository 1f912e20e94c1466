#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <chrono>
#include <list>
#include <thread>

#include "com/com_ptr.h"
#include "com/module_lock.h"
#include "manager_client.h"
#include "section_probe.h"
#include "sentrel_h.h"
#include "test_doubles.h"
#include "thread_test_support.h"

namespace sentrel::test {

// Long enough for several ticks of a manager's 500 ms timer, for tests that make sure something
// does NOT happen.
inline constexpr std::chrono::milliseconds kSeveralTicks{1200};

// A test on a thread of the multi-threaded apartment, with a manager object of its own. Each test
// starts with no shared section, and ends with every object it made destroyed (the module's lock
// count back where it was), so that the section goes with them.
class ManagerTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(com_.Result(), S_OK);
        ASSERT_FALSE(ProbeSection().has_value()) << "a section outlived the previous test";
        manager_ = CreateManager();
        ASSERT_TRUE(manager_);
    }

    void TearDown() override {
        manager_.Reset();
        EXPECT_TRUE(WaitUntil([&] { return TheModuleLockCount.GetLockCount() == startLocks_; }))
            << TheModuleLockCount.GetLockCount() - startLocks_ << " objects outlived the test";
    }

    IWebFilterManager& Manager() { return *manager_.Get(); }

    const ComInit com_{COINIT_MULTITHREADED};
    const LONG startLocks_ = TheModuleLockCount.GetLockCount();
    ComPtr<IWebFilterManager> manager_;
};

// The fixture's object publishes; the tests make the objects that listen.
class EventsTest : public ManagerTest {
  protected:
    // Outlives every object of the test, which may still call or release it until it goes.
    TestSink& MakeSink(HRESULT queryResult = S_OK, HRESULT eventResult = S_OK) {
        return sinks_.emplace_back(queryResult, eventResult);
    }

    static DWORD Advise(IUnknown& object, TestSink& sink) {
        DWORD cookie = 0;
        const ComPtr<IConnectionPoint> point = EventsPoint(object);
        EXPECT_TRUE(point);
        if (point) {
            EXPECT_EQ(point->Advise(static_cast<IUnknown*>(&sink), &cookie), S_OK);
        }
        return cookie;
    }

    // A listening object with one sink advised and updating on.
    ComPtr<IWebFilterManager> Listener(TestSink& sink) {
        ComPtr<IWebFilterManager> listener = CreateManager();
        EXPECT_TRUE(listener);
        if (listener) {
            Advise(*listener.Get(), sink);
            EXPECT_EQ(listener->EnableUpdate(1), S_OK);
        }
        return listener;
    }

    static bool WaitForEvents(const TestSink& sink, std::size_t count) {
        return WaitUntil([&] { return sink.Events().size() >= count; });
    }

    static bool WaitForText(IWebFilterManager& manager, const std::u16string& document) {
        return WaitUntil([&] { return ContentOf(manager).text == kByteOrderMark + document; });
    }

    std::list<TestSink> sinks_;
};

inline void SleepFor(std::chrono::milliseconds time) {
    std::this_thread::sleep_for(time);
}

}  // namespace sentrel::test
