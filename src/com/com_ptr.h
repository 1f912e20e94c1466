#pragma once

#include <windows.h>

#include <unknwn.h>

#include <cstddef>
#include <utility>

namespace sentrel {

// Owns one reference to a COM interface and releases it on every way out.
template <class T>
class ComPtr {
  public:
    ComPtr() noexcept = default;
    ComPtr(std::nullptr_t) noexcept {}
    // Adds a reference of its own to pointer.
    explicit ComPtr(T* pointer) noexcept : pointer_(pointer) {
        if (pointer_ != nullptr) {
            pointer_->AddRef();
        }
    }
    ComPtr(const ComPtr& other) noexcept : ComPtr(other.pointer_) {}
    ComPtr(ComPtr&& other) noexcept : pointer_(std::exchange(other.pointer_, nullptr)) {}
    ~ComPtr() { Reset(); }

    // The old reference is released after the new one is in place, so assigning a pointer to
    // itself, or to one that the old object owns, is safe.
    ComPtr& operator=(ComPtr other) noexcept {
        std::swap(pointer_, other.pointer_);
        return *this;
    }

    // Takes over a reference that the caller already holds.
    static ComPtr Adopt(T* pointer) noexcept {
        ComPtr adopted;
        adopted.pointer_ = pointer;
        return adopted;
    }

    T* Get() const noexcept { return pointer_; }
    T* operator->() const noexcept { return pointer_; }
    explicit operator bool() const noexcept { return pointer_ != nullptr; }

    // Releases the reference; the pointer is cleared before the release runs, so code that the
    // release calls back into sees it cleared.
    void Reset() noexcept {
        if (T* released = std::exchange(pointer_, nullptr)) {
            released->Release();
        }
    }

    // Gives up the reference without releasing it.
    T* Detach() noexcept { return std::exchange(pointer_, nullptr); }

    // For an out-parameter that receives a reference: the current one is released first.
    T** Put() noexcept {
        Reset();
        return &pointer_;
    }
    void** PutVoid() noexcept { return reinterpret_cast<void**>(Put()); }

    // Hands a new reference out through an out-parameter.
    void CopyTo(T** out) const noexcept {
        *out = pointer_;
        if (pointer_ != nullptr) {
            pointer_->AddRef();
        }
    }

    // Asks the object for another of its interfaces.
    template <class U>
    HRESULT As(ComPtr<U>& out) const noexcept {
        return pointer_->QueryInterface(__uuidof(U), out.PutVoid());
    }

    friend bool operator==(const ComPtr& left, const ComPtr& right) noexcept {
        return left.pointer_ == right.pointer_;
    }

  private:
    T* pointer_ = nullptr;
};

}  // namespace sentrel
