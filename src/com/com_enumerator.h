#pragma once

#include <windows.h>

#include <unknwn.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "com/com_boundary.h"
#include "com/com_object.h"
#include "com/com_object_root.h"
#include "com/interface_table.h"

namespace sentrel {

// A COM enumerator (IEnumConnections, IEnumConnectionPoints, ...) over a snapshot of items taken
// when it was made. Clones share the snapshot, each with a position of its own. Each element
// handed out by Next carries a reference of its own, made by the HandOut overload for Item,
// found next to Item's type:
//   void HandOut(const Item& item, Element* element) noexcept;
template <class EnumInterface, class Element, class Item>
class ComEnumerator : public ComObjectRoot, public EnumInterface {
  public:
    using Items = std::vector<Item>;

    // Makes an enumerator over items; E_OUTOFMEMORY when it cannot.
    static HRESULT Create(Items items, EnumInterface** out) noexcept {
        return ComBoundary(E_OUTOFMEMORY, E_FAIL, [&] {
            return Create(std::make_shared<const Items>(std::move(items)), 0, out);
        });
    }

    // Copies up to count elements; S_FALSE when fewer were left. fetched may be null only when
    // count is 1.
    HRESULT STDMETHODCALLTYPE Next(ULONG count, Element* elements, ULONG* fetched) override {
        if (fetched != nullptr) {
            *fetched = 0;
        }
        if (elements == nullptr || (count > 1 && fetched == nullptr)) {
            return E_POINTER;
        }
        const std::lock_guard guard(GetLock());
        const std::size_t handed = std::min<std::size_t>(count, items_->size() - position_);
        for (std::size_t index = 0; index < handed; ++index) {
            HandOut((*items_)[position_ + index], &elements[index]);
        }
        position_ += handed;
        if (fetched != nullptr) {
            *fetched = static_cast<ULONG>(handed);
        }
        return handed == count ? S_OK : S_FALSE;
    }

    // S_FALSE, with the position at the end, when fewer than count were left.
    HRESULT STDMETHODCALLTYPE Skip(ULONG count) override {
        const std::lock_guard guard(GetLock());
        const std::size_t left = items_->size() - position_;
        position_ += std::min<std::size_t>(count, left);
        return count <= left ? S_OK : S_FALSE;
    }

    HRESULT STDMETHODCALLTYPE Reset() override {
        const std::lock_guard guard(GetLock());
        position_ = 0;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Clone(EnumInterface** out) override {
        if (out == nullptr) {
            return E_POINTER;
        }
        std::size_t position = 0;
        {
            const std::lock_guard guard(GetLock());
            position = position_;
        }
        return Create(items_, position, out);
    }

  protected:
    ComEnumerator(std::shared_ptr<const Items> items, std::size_t position) noexcept
        : items_(std::move(items)), position_(position) {}
    ~ComEnumerator() = default;

    IUnknown* FindInterface(REFIID iid) noexcept {
        return FindInterfaceIn<EnumInterface>(this, iid);
    }

  private:
    static HRESULT Create(std::shared_ptr<const Items> items, std::size_t position,
                          EnumInterface** out) noexcept {
        return ComObject<ComEnumerator>::Create(nullptr, __uuidof(EnumInterface),
                                                reinterpret_cast<void**>(out), std::move(items),
                                                position);
    }

    const std::shared_ptr<const Items> items_;
    std::size_t position_;
};

}  // namespace sentrel
