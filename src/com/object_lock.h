#pragma once

#include <windows.h>

#include <atomic>
#include <cstddef>

namespace sentrel {

// An object's lock, shared by readers and held alone by writers: taken through std::lock_guard
// and std::unique_lock (alone) or std::shared_lock (shared), hence the standard names.
//
// Readers on different processors write no common memory: each counts itself in its thread's
// slot, a cache line of its own, so many threads read about as fast as one. A writer shuts new
// readers out, then waits until every slot is empty; a reader that meets a writer steps back and
// waits for it, so a stream of readers cannot starve writers. A thread that holds the lock must
// not take it again, on either side.
class ObjectLock {
  public:
    ObjectLock() noexcept = default;
    ObjectLock(const ObjectLock&) = delete;
    ObjectLock& operator=(const ObjectLock&) = delete;

    void lock() noexcept;
    void unlock() noexcept;
    void lock_shared() noexcept;
    void unlock_shared() noexcept;

  private:
    static constexpr std::size_t kCacheLine = 64;
    static constexpr std::size_t kReaderSlots = 16;

    struct alignas(kCacheLine) ReaderSlot {
        std::atomic<long> readers{0};
    };

    std::atomic<long>& ThreadSlot() noexcept;

    // One writer at a time holds it alone; readers that met a writer wait on its shared side.
    alignas(kCacheLine) SRWLOCK writers_ = SRWLOCK_INIT;
    std::atomic<bool> writing_{false};
    ReaderSlot slots_[kReaderSlots];
};

}  // namespace sentrel
