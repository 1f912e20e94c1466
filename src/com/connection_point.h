#pragma once

#include <windows.h>

#include <ocidl.h>
#include <olectl.h>

#include <cstddef>

#include "com/com_ptr.h"
#include "com/object_lock.h"
#include "com/sink_array.h"

namespace sentrel {

// One advised connection as IEnumConnections hands it out.
struct Connection {
    ComPtr<IUnknown> sink;
    DWORD cookie = 0;
};

// For ComEnumerator: the caller of Next receives a reference of its own on the sink.
inline void HandOut(const Connection& connection, CONNECTDATA* element) noexcept {
    connection.sink.CopyTo(&element->pUnk);
    element->dwCookie = connection.cookie;
}

// The connection point for one outgoing interface, a part of the object that owns it: its
// reference count and its container are the owner's, and the owner's object lock guards its sink
// list (shared to read it, alone to change it). Sinks are never called, nor released, with that
// lock held.
class ConnectionPoint final : public IConnectionPoint {
  public:
    ConnectionPoint(IConnectionPointContainer& container, ObjectLock& lock,
                    REFIID sinkInterface) noexcept
        : container_(container), lock_(lock), sinkInterface_(sinkInterface) {}
    ConnectionPoint(const ConnectionPoint&) = delete;
    ConnectionPoint& operator=(const ConnectionPoint&) = delete;

    // Answers for IUnknown and IConnectionPoint only; AddRef and Release are the owner's.
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return container_.AddRef(); }
    ULONG STDMETHODCALLTYPE Release() override { return container_.Release(); }

    HRESULT STDMETHODCALLTYPE GetConnectionInterface(IID* iid) override;
    HRESULT STDMETHODCALLTYPE
    GetConnectionPointContainer(IConnectionPointContainer** container) override;
    HRESULT STDMETHODCALLTYPE Advise(IUnknown* sink, DWORD* cookie) override;
    HRESULT STDMETHODCALLTYPE Unadvise(DWORD cookie) override;
    HRESULT STDMETHODCALLTYPE EnumConnections(IEnumConnections** connections) override;

    const IID& SinkInterface() const noexcept { return sinkInterface_; }

    // For firing: the number of slots, and the sink in one slot (the sink interface, as an
    // IUnknown pointer) with a reference of the caller's own, or none. Each takes the lock.
    std::size_t SlotCount() noexcept;
    ComPtr<IUnknown> SinkAt(std::size_t slot) noexcept;

  private:
    IConnectionPointContainer& container_;
    ObjectLock& lock_;
    const IID sinkInterface_;
    SinkArray sinks_;
};

}  // namespace sentrel
