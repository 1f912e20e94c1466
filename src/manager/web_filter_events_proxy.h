#pragma once

#include <windows.h>

#include <ocidl.h>

#include "com/com_object_root.h"
#include "com/connection_point.h"
#include "sentrel_h.h"

namespace sentrel {

// The connection point for IWebFilterEvents, a base of the object that fires the events: it
// holds the advised sinks and calls them.
class CProxy_IWebFilterEvents {
  public:
    CProxy_IWebFilterEvents(const CProxy_IWebFilterEvents&) = delete;
    CProxy_IWebFilterEvents& operator=(const CProxy_IWebFilterEvents&) = delete;

    // Calls OnFilterContentChanged(type) on every advised sink, slot by slot. Each sink is taken,
    // with a reference of its own, under the lock and called with no lock held, so a sink may
    // call back into the object, advise or unadvise (itself too) from inside the event. The
    // sinks' results are not looked at: one failing sink does not keep the others from the
    // event. The object holds a reference on itself meanwhile, so a sink may release the last
    // reference of its own: the object then goes when the event has reached every sink. An
    // object whose last reference has already gone announces nothing.
    void Fire_OnFilterContentChanged(::WebFilterType type) noexcept;

  protected:
    // owner is the object that fires, with its lock; container is its connection-point container.
    CProxy_IWebFilterEvents(ComObjectRoot& owner, IConnectionPointContainer& container) noexcept
        : owner_(owner), point_(container, owner.GetLock(), IID_IWebFilterEvents) {}
    ~CProxy_IWebFilterEvents() = default;

    ConnectionPoint& EventsConnectionPoint() noexcept { return point_; }

  private:
    ComObjectRoot& owner_;
    ConnectionPoint point_;
};

}  // namespace sentrel
