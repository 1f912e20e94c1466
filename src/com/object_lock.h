#pragma once

#include <windows.h>

namespace sentrel {

// An object's lock: a critical section, taken through std::lock_guard or std::unique_lock (hence
// the standard lock()/unlock() names). The thread that holds it may take it again.
class ObjectLock {
  public:
    ObjectLock() noexcept = default;
    ObjectLock(const ObjectLock&) = delete;
    ObjectLock& operator=(const ObjectLock&) = delete;
    ~ObjectLock();

    // Must succeed before the first lock(). Spin count 0; on failure the HRESULT made from the
    // system error code.
    HRESULT Initialize() noexcept;

    void lock() noexcept { EnterCriticalSection(&section_); }
    void unlock() noexcept { LeaveCriticalSection(&section_); }

  private:
    CRITICAL_SECTION section_{};
    bool initialized_ = false;
};

}  // namespace sentrel
