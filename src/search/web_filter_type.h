#pragma once

#include <cstdint>

namespace sentrel {

// The filter in force. A plain 32-bit enumeration so that any other value a client sends can be
// stored as it is. The decision treats such values like WebFilterBlockPolicy once the URL is
// cracked; unlike it, they do not allow every URL unread when both indexes are empty.
enum WebFilterType : std::int32_t {
    WebFilterBlockNone = 0,
    WebFilterBlockPolicy = 1,
    WebFilterBlockAll = 2,
};

}  // namespace sentrel
