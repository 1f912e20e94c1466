#pragma once

#include <string_view>

#include "search/cracked_url.h"

namespace sentrel {

// The index keys of a cracked URL. Entries and decided URLs pass through the same keys, so they
// meet whenever they differ only in what the keys drop. The views point into the cracked text or
// at the constant texts below.

// The key that "https" is filed under, and the host prefix that HostKey drops: one object each
// in the whole program, so every key taken from them points at the same text.
inline constexpr char16_t kHttpSchemeKey[] = u"http";
inline constexpr char16_t kWwwHostPrefix[] = u"www.";

// "http" for exactly "https", otherwise the scheme as it is (possibly empty).
std::u16string_view SchemeKey(const CrackedUrl& cracked);

// The host without one leading "www.".
std::u16string_view HostKey(const CrackedUrl& cracked);

// The path without one leading and then one trailing '/'.
std::u16string_view PathKey(const CrackedUrl& cracked);

}  // namespace sentrel
