#include "manager/web_filter_events_proxy.h"

#include <cstddef>

namespace sentrel {

void CProxy_IWebFilterEvents::Fire_OnFilterContentChanged(::WebFilterType type) noexcept {
    // A sink may release the object's last reference from inside the event: the object stays
    // until the last sink has returned. Once that reference has gone before the event, the object
    // is ending (on another thread) and must not be held, and released, once more.
    const ComPtr<IUnknown> keepAlive = owner_.KeepAlive();
    if (!keepAlive) {
        return;
    }
    // The slots are counted once: a sink advised into an empty slot below that count is called
    // in this event, one advised beyond it waits for the next; slots that went away read as
    // empty.
    const std::size_t slots = point_.SlotCount();
    for (std::size_t slot = 0; slot < slots; ++slot) {
        if (const ComPtr<IUnknown> sink = point_.SinkAt(slot)) {
            // The slot holds the sink's IWebFilterEvents, which Advise asked it for.
            static_cast<IWebFilterEvents*>(sink.Get())->OnFilterContentChanged(type);
        }
    }
}

}  // namespace sentrel
