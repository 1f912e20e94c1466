#include <objbase.h>

#include <cstring>

#include "policy/guid.h"

namespace sentrel {

// CoCreateGuid fails only when the system's random source does; the caller then tries again.
Guid GenerateRandomGuid() {
    GUID raw{};
    Guid guid;
    if (SUCCEEDED(CoCreateGuid(&raw))) {
        static_assert(sizeof(raw) == sizeof(guid.bytes));
        std::memcpy(guid.bytes.data(), &raw, sizeof(raw));
    }
    return guid;
}

}  // namespace sentrel
