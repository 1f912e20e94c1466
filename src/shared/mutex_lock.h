#pragma once

#include <windows.h>

#include <cstdint>

namespace sentrel {

// Waits for a mutex and holds it for the guard's lifetime. An abandoned mutex (its owner died
// holding it) counts as taken: the wait gives ownership to this thread all the same.
class MutexLock {
  public:
    MutexLock(HANDLE mutex, std::uint32_t timeoutMs);
    ~MutexLock();
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    bool Held() const { return held_ != nullptr; }

  private:
    HANDLE held_ = nullptr;
};

}  // namespace sentrel
