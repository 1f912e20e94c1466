#include "shared/mutex_lock.h"

namespace sentrel {

MutexLock::MutexLock(HANDLE mutex, std::uint32_t timeoutMs) {
    if (mutex == nullptr) {
        return;
    }
    const DWORD wait = WaitForSingleObject(mutex, timeoutMs);
    if (wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED) {
        held_ = mutex;
    }
}

MutexLock::~MutexLock() {
    if (held_ != nullptr) {
        ReleaseMutex(held_);
    }
}

}  // namespace sentrel
