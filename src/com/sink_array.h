#pragma once

#include <windows.h>

#include <unknwn.h>

#include <cstddef>
#include <vector>

#include "com/com_ptr.h"

namespace sentrel {

// The advised sinks of one connection point, each slot empty or holding one reference. The array
// has no slots until the first sink comes, which gets 4; when every slot is full the array
// doubles. A sink's cookie is its slot's index plus 1, and an emptied slot is reused by the next
// sink. It has no lock of its own: its owner's lock guards it.
class SinkArray {
  public:
    static constexpr std::size_t kInitialSlots = 4;

    // Takes sink into the first empty slot and returns its cookie; 0 when the array cannot grow,
    // and then sink stays with the caller, to be released outside its lock.
    DWORD Add(ComPtr<IUnknown>&& sink) noexcept;
    // Empties the slot that cookie names and hands its sink over, for the caller to release
    // outside its lock; none for cookie 0, a cookie beyond the array or an empty slot.
    ComPtr<IUnknown> Remove(DWORD cookie) noexcept;

    std::size_t SlotCount() const noexcept { return slots_.size(); }
    // The sink in a slot; null for an empty slot or an index beyond the array.
    IUnknown* At(std::size_t slot) const noexcept {
        return slot < slots_.size() ? slots_[slot].Get() : nullptr;
    }

  private:
    std::vector<ComPtr<IUnknown>> slots_;
};

}  // namespace sentrel
