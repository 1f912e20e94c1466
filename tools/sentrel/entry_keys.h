#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "policy/web_filter_policy.h"
#include "search/cracked_url.h"
#include "search/match_rules.h"

namespace sentrel::cli {

// The index keys a list entry is filed under, as the searcher takes them.
struct EntryKeys {
    std::u16string schemeKey;
    bool hasHost = false;  // an entry without host adds only its scheme
    std::u16string hostKey;
    std::uint16_t port = 0;
    std::u16string pathKey;  // empty: every path
};

// The keys of an entry's url, or none when it cannot be cracked (why then says why).
std::optional<EntryKeys> KeysOfEntry(const FilterEntryView& entry, CrackFailure* why = nullptr);

// Why a text could not be cracked, in words.
std::string_view DescribeCrackFailure(CrackFailure why);

// Visits the port and path keys of every entry that, on the same host, answers each URL that an
// entry with the given keys answers (such an entry itself included), until visit returns true:
// the URL's own walks over ports and paths reach them.
template <class Visit>
bool WalkCoveringKeys(std::uint16_t port, std::u16string_view pathKey, Visit&& visit) {
    return WalkPortCandidates(port, [&](std::uint16_t candidate) {
        return visit(candidate, std::u16string_view()) ||
               (!pathKey.empty() && WalkPathCandidates(pathKey, [&](std::u16string_view path) {
                   return visit(candidate, path);
               }));
    });
}

// Whether a list feeds the white index (every other type feeds the black one).
inline bool FeedsWhiteIndex(const FilterList& list) {
    return list.type == FilterListWhite;
}

struct EntrySource {
    const FilterList* list;
    FilterEntryView entry;
};

// The main entries of the white (or black) lists whose keys are the given ones.
std::vector<EntrySource> EntriesWithKeys(const WebFilterPolicy& policy, bool white,
                                         const EntryKeys& keys);

}  // namespace sentrel::cli
