#pragma once

#include <windows.h>

#include <unknwn.h>

#include "com/com_ptr.h"
#include "com/object_lock.h"

namespace sentrel {

// The base of every COM object of the component: the reference count, changed by interlocked
// increment and decrement, the object lock, and the controlling unknown (the outer object's when
// the object is aggregated). ComObject<T> completes a class derived from it into an object.
class ComObjectRoot {
  public:
    ComObjectRoot(const ComObjectRoot&) = delete;
    ComObjectRoot& operator=(const ComObjectRoot&) = delete;

    // Guards the object's state: readers share it, writers hold it alone.
    ObjectLock& GetLock() noexcept { return lock_; }

    // The unknown that holds the object's identity and reference count: the outer object's when
    // aggregated, else the object's own. AddRef and Release on any interface of the object go to
    // it.
    IUnknown* ControllingUnknown() const noexcept { return controlling_; }
    bool IsAggregated() const noexcept { return controlling_ != own_; }

    // A reference that keeps the object alive while it calls out, taken on the object's own count
    // (the inner object's when aggregated) and only while that count is above 0: once the last
    // reference has gone the object is ending, and a reference taken and released then would end
    // it a second time. Null in that case.
    ComPtr<IUnknown> KeepAlive() noexcept {
        for (LONG seen = 1; seen > 0;) {
            const LONG before = InterlockedCompareExchange(&count_, seen + 1, seen);
            if (before == seen) {
                return ComPtr<IUnknown>::Adopt(own_);
            }
            seen = before;
        }
        return nullptr;
    }

  protected:
    ComObjectRoot() noexcept = default;
    ~ComObjectRoot() = default;

    // Hooks that a derived class hides with its own: FinalConstruct runs once the object is built,
    // with a reference held on it, and a failure ends the creation; FinalRelease runs first when
    // the object is destroyed, also after a failed creation, so it must not count on
    // FinalConstruct having run.
    HRESULT FinalConstruct() noexcept { return S_OK; }
    void FinalRelease() noexcept {}
    // Called when the last reference goes: a class that must not be destroyed on the releasing
    // thread hands destroy(object) to another thread and returns true.
    bool DeferDestruction(void (* /*destroy*/)(void*), void* /*object*/) noexcept { return false; }

    ULONG InternalAddRef() noexcept { return static_cast<ULONG>(InterlockedIncrement(&count_)); }
    ULONG InternalRelease() noexcept { return static_cast<ULONG>(InterlockedDecrement(&count_)); }

    // own answers for the object's identity and lifetime itself; outer, when not null, aggregates
    // the object and takes over its identity.
    void SetUnknowns(IUnknown* own, IUnknown* outer) noexcept {
        own_ = own;
        controlling_ = outer != nullptr ? outer : own;
    }
    // The non-delegating unknown: the object's own, or the inner one when aggregated.
    IUnknown* OwnUnknown() const noexcept { return own_; }

    // From here on AddRef and Release pairs made during destruction (by FinalRelease handing the
    // object to others) never bring the count to 0 again.
    void BeginDestruction() noexcept { count_ = kDestroyingCount; }

  private:
    static constexpr LONG kDestroyingCount = -(0x7FFFFFFF / 2);

    LONG count_ = 0;
    IUnknown* own_ = nullptr;
    IUnknown* controlling_ = nullptr;
    ObjectLock lock_;
};

}  // namespace sentrel
