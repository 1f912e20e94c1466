#pragma once

#include <windows.h>

#include <atomic>

namespace sentrel {

// The module's lock count: live objects, server locks and client references to class objects.
// The module may be unloaded only while it is 0.
class ModuleLockCount {
  public:
    constexpr ModuleLockCount() noexcept = default;
    ModuleLockCount(const ModuleLockCount&) = delete;
    ModuleLockCount& operator=(const ModuleLockCount&) = delete;

    // Both return the count after the change.
    LONG Lock() noexcept { return count_.fetch_add(1) + 1; }
    LONG Unlock() noexcept { return count_.fetch_sub(1) - 1; }
    LONG GetLockCount() const noexcept { return count_.load(); }

  private:
    std::atomic<LONG> count_{0};
};

extern constinit ModuleLockCount TheModuleLockCount;

// Holds one module lock for its own lifetime.
class ModuleLock {
  public:
    ModuleLock() noexcept { TheModuleLockCount.Lock(); }
    ~ModuleLock() { TheModuleLockCount.Unlock(); }
    ModuleLock(const ModuleLock&) = delete;
    ModuleLock& operator=(const ModuleLock&) = delete;
};

}  // namespace sentrel
