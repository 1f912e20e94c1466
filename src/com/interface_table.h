#pragma once

#include <windows.h>

#include <unknwn.h>

namespace sentrel {

// The interface of object that iid names among the interfaces listed, as an IUnknown pointer of
// that interface; IID_IUnknown gives the object's identity, the IUnknown of the first interface
// listed. Null for any other id. A class lists its interfaces in its FindInterface:
//   IUnknown* FindInterface(REFIID iid) noexcept { return FindInterfaceIn<IA, IB>(this, iid); }
template <class First, class... Rest, class Object>
IUnknown* FindInterfaceIn(Object* object, REFIID iid) noexcept {
    if (InlineIsEqualGUID(iid, IID_IUnknown) || InlineIsEqualGUID(iid, __uuidof(First))) {
        return static_cast<First*>(object);
    }
    IUnknown* found = nullptr;
    static_cast<void>(
        ((InlineIsEqualGUID(iid, __uuidof(Rest)) && (found = static_cast<Rest*>(object))) || ...));
    return found;
}

// QueryInterface's answer once the interface was looked up (found is null when the object lacks
// it): E_POINTER without an out-parameter; E_NOINTERFACE with *object null; else S_OK with a
// reference added through the interface itself.
inline HRESULT AnswerQueryInterface(IUnknown* found, void** object) noexcept {
    if (object == nullptr) {
        return E_POINTER;
    }
    if (found == nullptr) {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    found->AddRef();
    *object = found;
    return S_OK;
}

}  // namespace sentrel
