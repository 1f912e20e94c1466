#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "manager/com_ptr.h"
#include "manager_client.h"
#include "module/module_lock.h"
#include "section_probe.h"
#include "sentrel_h.h"
#include "thread_test_support.h"

namespace sentrel::test {

// Long enough for several ticks of a manager's 500 ms timer, for tests that make sure something
// does NOT happen.
inline constexpr std::chrono::milliseconds kSeveralTicks{1600};

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

inline void SleepFor(std::chrono::milliseconds time) {
    std::this_thread::sleep_for(time);
}

}  // namespace sentrel::test
