#pragma once

// One owning wrapper for every platform resource the component opens: handles, mapped
// views, SIDs, LocalAlloc blocks and registry keys. Each is freed exactly once, by its owner.

#include <windows.h>

#include <utility>

namespace sentrel {

template <class T, auto Free>
class UniqueResource {
  public:
    UniqueResource() = default;
    explicit UniqueResource(T value) : value_(value) {}
    UniqueResource(UniqueResource&& other) noexcept : value_(other.Release()) {}
    UniqueResource& operator=(UniqueResource&& other) noexcept {
        Reset(other.Release());
        return *this;
    }
    UniqueResource(const UniqueResource&) = delete;
    UniqueResource& operator=(const UniqueResource&) = delete;
    ~UniqueResource() { Reset(); }

    T Get() const { return value_; }
    explicit operator bool() const { return value_ != T{}; }

    // Gives up ownership without freeing.
    T Release() { return std::exchange(value_, T{}); }

    void Reset(T value = T{}) {
        const T old = std::exchange(value_, value);
        if (old != T{}) {
            Free(old);
        }
    }

  private:
    T value_{};
};

using UniqueHandle = UniqueResource<HANDLE, &::CloseHandle>;
using UniqueView = UniqueResource<LPVOID, &::UnmapViewOfFile>;
using UniqueSid = UniqueResource<PSID, &::FreeSid>;
using UniqueLocal = UniqueResource<HLOCAL, &::LocalFree>;
using UniqueKey = UniqueResource<HKEY, &::RegCloseKey>;

}  // namespace sentrel
