#pragma once

#include <windows.h>

#include <ocidl.h>

#include <cstddef>

#include "com/connection_point.h"

namespace sentrel {

// IConnectionPointContainer over the connection points that the deriving object owns.
class ConnectionPointContainer : public IConnectionPointContainer {
  public:
    // The connection point for the outgoing interface iid, with a reference added;
    // CONNECT_E_NOCONNECTION when the object has none.
    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID iid, IConnectionPoint** point) override;
    // An enumerator over the object's connection points, each with a reference held.
    HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** points) override;

  protected:
    ConnectionPointContainer() noexcept = default;
    ~ConnectionPointContainer() = default;

    // The object's connection points in enumeration order; null past the last.
    virtual ConnectionPoint* ConnectionPointAt(std::size_t index) noexcept = 0;
};

}  // namespace sentrel
