#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "policy/web_filter_policy.h"
#include "search/cracked_url.h"
#include "search/decision_trace.h"
#include "search/match_rules.h"

namespace sentrel::cli {

// The index keys a list entry is filed under, as the searcher takes them.
struct EntryKeys {
    std::u16string schemeKey;
    bool hasHost = false;  // an entry without host adds only its scheme
    std::u16string hostKey;
    std::uint16_t port = 0;
    std::u16string pathKey;  // empty: every path

    auto operator<=>(const EntryKeys&) const = default;
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

// One entry of the white or the black index: what a list entry that can be cracked adds.
struct IndexEntry {
    bool white = false;
    EntryKeys keys;

    auto operator<=>(const IndexEntry&) const = default;
};

// The keys of the index entry that a decision's index matched.
EntryKeys KeysOfMatch(const IndexTrace& trace);

// Visits the index entry of each main entry of the policy that can be cracked, with the entry.
void ForEachIndexEntry(const WebFilterPolicy& policy,
                       const std::function<void(IndexEntry&&, const EntrySource&)>& visit);

// The index entries of a policy and the main entries behind each, in list and entry order; with
// wanted, only the wanted index entries.
using IndexEntrySources = std::map<IndexEntry, std::vector<EntrySource>>;
IndexEntrySources SourcesOfIndexEntries(const WebFilterPolicy& policy,
                                        const std::set<IndexEntry>* wanted = nullptr);

// The main entries of the white (or black) lists whose keys are the given ones.
std::vector<EntrySource> EntriesWithKeys(const WebFilterPolicy& policy, bool white,
                                         const EntryKeys& keys);

// The entries behind an index entry, for one line: the kind, list and entry of the first, its
// URL, and how many more there are.
std::string NameSources(std::span<const EntrySource> sources);

// An index entry's keys written as a URL: "scheme://host:port/path", the port left out when it
// is 0 (any port), "/" alone for every path, and "scheme:" alone for an entry without host.
std::string KeysAsUrl(const EntryKeys& keys);

}  // namespace sentrel::cli
