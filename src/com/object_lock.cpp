#include "com/object_lock.h"

namespace sentrel {

namespace {

// A writer waits for the readers still inside by spinning first (a reader holds the lock for a
// lookup), then by giving its processor away, and only then by sleeping between looks.
constexpr int kSpins = 64;
constexpr int kYields = 64;

void WaitForReaders(const std::atomic<long>& readers) noexcept {
    for (int round = 0; readers.load() != 0; ++round) {
        if (round < kSpins) {
            YieldProcessor();
        } else if (round < kSpins + kYields) {
            SwitchToThread();
        } else {
            Sleep(1);
        }
    }
}

}  // namespace

std::atomic<long>& ObjectLock::ThreadSlot() noexcept {
    // Thread ids are multiples of 4, mostly handed out in turn: threads that run at the same time
    // rarely share a slot, and when they do they only share its cache line.
    return slots_[GetCurrentThreadId() / 4 % kReaderSlots].readers;
}

void ObjectLock::lock_shared() noexcept {
    std::atomic<long>& readers = ThreadSlot();
    // Counting in before looking for a writer, as the writer announces itself before looking at
    // the counts (both sequentially consistent): one of the two always sees the other.
    for (readers.fetch_add(1); writing_.load(); readers.fetch_add(1)) {
        readers.fetch_sub(1, std::memory_order_release);
        AcquireSRWLockShared(&writers_);
        ReleaseSRWLockShared(&writers_);
    }
}

void ObjectLock::unlock_shared() noexcept {
    ThreadSlot().fetch_sub(1, std::memory_order_release);
}

void ObjectLock::lock() noexcept {
    AcquireSRWLockExclusive(&writers_);
    writing_.store(true);
    for (const ReaderSlot& slot : slots_) {
        WaitForReaders(slot.readers);
    }
}

void ObjectLock::unlock() noexcept {
    writing_.store(false, std::memory_order_release);
    ReleaseSRWLockExclusive(&writers_);
}

}  // namespace sentrel
