#include "module/module_lock.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace sentrel {
namespace {

TEST(ModuleLockCount, LockAndUnlockReturnTheNewCount) {
    ModuleLockCount count;
    EXPECT_EQ(count.GetLockCount(), 0);
    EXPECT_EQ(count.Lock(), 1);
    EXPECT_EQ(count.Lock(), 2);
    EXPECT_EQ(count.Unlock(), 1);
    EXPECT_EQ(count.GetLockCount(), 1);
    EXPECT_EQ(count.Unlock(), 0);
}

TEST(ModuleLockCount, ConcurrentChangesAreNotLost) {
    ModuleLockCount count;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&count] {
            for (int round = 0; round < 50000; ++round) {
                count.Lock();
            }
            for (int round = 0; round < 49000; ++round) {
                count.Unlock();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count.GetLockCount(), 4 * 1000);
}

TEST(ModuleLock, HoldsTheModuleForItsLifetime) {
    const LONG before = TheModuleLockCount.GetLockCount();
    {
        const ModuleLock lock;
        EXPECT_EQ(TheModuleLockCount.GetLockCount(), before + 1);
    }
    EXPECT_EQ(TheModuleLockCount.GetLockCount(), before);
}

}  // namespace
}  // namespace sentrel
