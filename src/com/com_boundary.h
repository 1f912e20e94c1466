#pragma once

#include <windows.h>

#include <new>
#include <utility>

namespace sentrel {

// The COM boundary: no exception may leave a COM method. Each method runs its body through one
// of these, which states once what a failure raised in the body returns. The body returns the
// method's HRESULT.

// Memory running out returns onOutOfMemory; any other failure raised returns onFailure.
template <class Body>
HRESULT ComBoundary(HRESULT onOutOfMemory, HRESULT onFailure, Body&& body) noexcept {
    try {
        return std::forward<Body>(body)();
    } catch (const std::bad_alloc&) {
        return onOutOfMemory;
    } catch (...) {
        return onFailure;
    }
}

// Every failure raised returns onFailure, whatever its kind or the HRESULT it carries.
template <class Body>
HRESULT ComBoundary(HRESULT onFailure, Body&& body) noexcept {
    return ComBoundary(onFailure, onFailure, std::forward<Body>(body));
}

}  // namespace sentrel
