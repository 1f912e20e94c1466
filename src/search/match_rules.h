#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace sentrel {

// The three walks by which index entries answer a URL. The decision, its explanation and the
// policy checks of the tools all walk through these, so that they cannot drift apart. Each walk
// hands its candidates, most specific first, to visit until visit returns true, and returns
// whether one did.

// The host-suffix walk over a host key: the key itself, then each suffix that starts after the
// first '.' past the previous candidate's first character, as long as something follows that
// '.'. Candidates are given by their start in the key.
template <class Visit>
bool WalkHostCandidates(std::u16string_view hostKey, Visit&& visit) {
    for (std::size_t start = 0;;) {
        if (visit(start)) {
            return true;
        }
        const std::size_t dot = hostKey.find(u'.', start + 1);
        if (dot == hostKey.npos || dot + 1 == hostKey.size()) {
            return false;
        }
        start = dot + 1;
    }
}

// The port rule: the URL's own port, then port 0, which holds the entries that named no port.
template <class Visit>
bool WalkPortCandidates(std::uint16_t port, Visit&& visit) {
    return visit(port) || (port != 0 && visit(std::uint16_t{0}));
}

// The path-prefix walk over a path key: the key, then each prefix that ends before a '/', from
// the longest.
template <class Visit>
bool WalkPathCandidates(std::u16string_view pathKey, Visit&& visit) {
    for (std::u16string_view candidate = pathKey;;) {
        if (visit(candidate)) {
            return true;
        }
        const std::size_t slash = candidate.rfind(u'/');
        if (slash == candidate.npos) {
            return false;
        }
        candidate = candidate.substr(0, slash);
    }
}

}  // namespace sentrel
