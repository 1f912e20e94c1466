#pragma once

#include <cstddef>
#include <string_view>

#include "search/cracked_url.h"

namespace sentrel {

// The index keys of a cracked URL. Entries and decided URLs pass through the same keys, so they
// meet whenever they differ only in what the keys drop. The views point into the record or at
// the constant texts below.

// The key that "https" is filed under, and the host prefix that HostKey drops: one object each
// in the whole program, so every key taken from them points at the same text.
inline constexpr char16_t kHttpSchemeKey[] = u"http";
inline constexpr char16_t kWwwHostPrefix[] = u"www.";

// "http" for exactly "https", otherwise the scheme as it is (possibly empty).
std::u16string_view SchemeKey(const CrackedUrl& cracked);

// The host without one leading "www.".
std::u16string_view HostKey(const CrackedUrl& cracked);

// The host-suffix walk over a host key: the candidate that follows the one at start begins after
// the first '.' past the candidate's first character; none (npos) when no such '.' stands or
// nothing follows it.
inline std::size_t NextHostCandidate(std::u16string_view hostKey, std::size_t start) {
    const std::size_t dot = hostKey.find(u'.', start + 1);
    return dot == hostKey.npos || dot + 1 == hostKey.size() ? hostKey.npos : dot + 1;
}

// The path without one leading and then one trailing '/'.
std::u16string_view PathKey(const CrackedUrl& cracked);

}  // namespace sentrel
