#include "com/connection_point_container.h"

#include <vector>

#include "com/com_boundary.h"
#include "com/com_enumerator.h"

namespace sentrel {

// For ComEnumerator: the caller of Next receives a reference of its own on the point.
static void HandOut(const ComPtr<IConnectionPoint>& point, IConnectionPoint** element) noexcept {
    point.CopyTo(element);
}

HRESULT STDMETHODCALLTYPE ConnectionPointContainer::FindConnectionPoint(REFIID iid,
                                                                        IConnectionPoint** point) {
    if (point == nullptr) {
        return E_POINTER;
    }
    *point = nullptr;
    for (std::size_t index = 0; ConnectionPoint* found = ConnectionPointAt(index); ++index) {
        if (InlineIsEqualGUID(iid, found->SinkInterface())) {
            found->AddRef();
            *point = found;
            return S_OK;
        }
    }
    return CONNECT_E_NOCONNECTION;
}

HRESULT STDMETHODCALLTYPE
ConnectionPointContainer::EnumConnectionPoints(IEnumConnectionPoints** points) {
    if (points == nullptr) {
        return E_POINTER;
    }
    *points = nullptr;
    return ComBoundary(E_OUTOFMEMORY, E_FAIL, [&] {
        std::vector<ComPtr<IConnectionPoint>> copy;
        for (std::size_t index = 0; ConnectionPoint* found = ConnectionPointAt(index); ++index) {
            copy.emplace_back(found);
        }
        return ComEnumerator<IEnumConnectionPoints, IConnectionPoint*,
                             ComPtr<IConnectionPoint>>::Create(std::move(copy), points);
    });
}

}  // namespace sentrel
