#include <objbase.h>

#include <cstring>

#include "policy/random_seed.h"

namespace sentrel {

// The system's GUID generator seeds the ids' generator: calling it for every id of a large list
// would cost about a microsecond each under Wine. Should it fail, the seed still differs from
// thread to thread and from run to run.
std::uint64_t RandomSeed() {
    GUID raw{};
    std::uint64_t halves[2] = {};
    if (SUCCEEDED(CoCreateGuid(&raw))) {
        static_assert(sizeof(raw) == sizeof(halves));
        std::memcpy(halves, &raw, sizeof(raw));
    }
    return halves[0] ^ halves[1] ^ GetTickCount64() ^ (std::uint64_t{GetCurrentThreadId()} << 32);
}

}  // namespace sentrel
