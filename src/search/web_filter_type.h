#pragma once

#include <cstdint>

namespace sentrel {

// The filter in force. A plain 32-bit enumeration so that any other value a client sends can be
// stored as it is; the decision treats such values like WebFilterBlockPolicy.
enum WebFilterType : std::int32_t {
    WebFilterBlockNone = 0,
    WebFilterBlockPolicy = 1,
    WebFilterBlockAll = 2,
};

}  // namespace sentrel
