#include "com/connection_point.h"

#include <mutex>
#include <shared_mutex>
#include <vector>

#include "com/com_boundary.h"
#include "com/com_enumerator.h"
#include "com/interface_table.h"

namespace sentrel {

HRESULT STDMETHODCALLTYPE ConnectionPoint::QueryInterface(REFIID iid, void** object) {
    return AnswerQueryInterface(FindInterfaceIn<IConnectionPoint>(this, iid), object);
}

HRESULT STDMETHODCALLTYPE ConnectionPoint::GetConnectionInterface(IID* iid) {
    if (iid == nullptr) {
        return E_POINTER;
    }
    *iid = sinkInterface_;
    return S_OK;
}

HRESULT STDMETHODCALLTYPE
ConnectionPoint::GetConnectionPointContainer(IConnectionPointContainer** container) {
    if (container == nullptr) {
        return E_POINTER;
    }
    container_.AddRef();
    *container = &container_;
    return S_OK;
}

HRESULT STDMETHODCALLTYPE ConnectionPoint::Advise(IUnknown* sink, DWORD* cookie) {
    if (cookie != nullptr) {
        *cookie = 0;
    }
    if (sink == nullptr || cookie == nullptr) {
        return E_POINTER;
    }
    ComPtr<IUnknown> events;
    const HRESULT asked = sink->QueryInterface(sinkInterface_, events.PutVoid());
    if (asked == E_NOINTERFACE) {
        return CONNECT_E_CANNOTCONNECT;
    }
    if (FAILED(asked)) {
        return asked;
    }
    DWORD added = 0;
    {
        const std::lock_guard guard(lock_);
        added = sinks_.Add(std::move(events));
    }
    if (added == 0) {
        return CONNECT_E_ADVISELIMIT;  // events, still ours, is released on the way out
    }
    *cookie = added;
    return S_OK;
}

HRESULT STDMETHODCALLTYPE ConnectionPoint::Unadvise(DWORD cookie) {
    ComPtr<IUnknown> removed;
    {
        const std::lock_guard guard(lock_);
        removed = sinks_.Remove(cookie);
    }
    return removed ? S_OK : CONNECT_E_NOCONNECTION;
}

HRESULT STDMETHODCALLTYPE ConnectionPoint::EnumConnections(IEnumConnections** connections) {
    if (connections == nullptr) {
        return E_POINTER;
    }
    *connections = nullptr;
    return ComBoundary(E_OUTOFMEMORY, E_FAIL, [&] {
        // Declared first, so that after a failure the sinks are released with the lock free.
        std::vector<Connection> copy;
        {
            const std::shared_lock guard(lock_);
            for (std::size_t slot = 0; slot < sinks_.SlotCount(); ++slot) {
                if (IUnknown* sink = sinks_.At(slot)) {
                    copy.push_back({ComPtr<IUnknown>(sink), static_cast<DWORD>(slot + 1)});
                }
            }
        }
        return ComEnumerator<IEnumConnections, CONNECTDATA, Connection>::Create(std::move(copy),
                                                                                connections);
    });
}

std::size_t ConnectionPoint::SlotCount() noexcept {
    const std::shared_lock guard(lock_);
    return sinks_.SlotCount();
}

ComPtr<IUnknown> ConnectionPoint::SinkAt(std::size_t slot) noexcept {
    const std::shared_lock guard(lock_);
    return ComPtr<IUnknown>(sinks_.At(slot));
}

}  // namespace sentrel
