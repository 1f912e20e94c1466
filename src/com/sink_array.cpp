#include "com/sink_array.h"

#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>

namespace sentrel {

DWORD SinkArray::Add(ComPtr<IUnknown>&& sink) noexcept {
    auto slot = std::find(slots_.begin(), slots_.end(), nullptr);
    if (slot == slots_.end()) {
        const std::size_t used = slots_.size();
        const std::size_t grown = used == 0 ? kInitialSlots : used * 2;
        if (grown > std::numeric_limits<DWORD>::max()) {
            return 0;
        }
        try {
            slots_.resize(grown);
        } catch (const std::bad_alloc&) {
            return 0;
        } catch (const std::length_error&) {
            return 0;
        }
        slot = slots_.begin() + static_cast<std::ptrdiff_t>(used);
    }
    *slot = std::move(sink);
    return static_cast<DWORD>(slot - slots_.begin()) + 1;
}

ComPtr<IUnknown> SinkArray::Remove(DWORD cookie) noexcept {
    if (cookie == 0 || cookie > slots_.size()) {
        return nullptr;
    }
    ComPtr<IUnknown> removed;
    std::swap(removed, slots_[cookie - 1]);
    return removed;
}

}  // namespace sentrel
