#include "com/object_lock.h"

namespace sentrel {

ObjectLock::~ObjectLock() {
    if (initialized_) {
        DeleteCriticalSection(&section_);
    }
}

HRESULT ObjectLock::Initialize() noexcept {
    if (!InitializeCriticalSectionAndSpinCount(&section_, 0)) {
        return HRESULT_FROM_WIN32(GetLastError());
    }
    initialized_ = true;
    return S_OK;
}

}  // namespace sentrel
