#pragma once

#include <cstdint>
#include <string_view>

#include "policy/web_filter_policy.h"
#include "search/cracked_url.h"
#include "search/decision_trace.h"
#include "search/search_index.h"
#include "search/web_filter_type.h"

namespace sentrel {

// Decides whether a URL may be opened, from the filter type and the white and black indexes
// built from a policy's main entries. It has no lock of its own: its owner serialises loads and
// decisions. Every decision function takes an optional trace; without one nothing but the
// answer is produced, so explaining a decision runs the very code that makes it.
class WebFilterSearcher {
  public:
    // Set by the owner immediately before each LoadPolicy; LoadPolicy leaves it alone.
    WebFilterType filterType = WebFilterBlockNone;

    WebFilterSearcher() = default;
    WebFilterSearcher(const WebFilterSearcher&) = delete;
    WebFilterSearcher& operator=(const WebFilterSearcher&) = delete;

    // Replaces both indexes by indexes of the policy's main entries: white lists feed the white
    // index, lists of every other type the black one. Entries that cannot be cracked are logged
    // and skipped.
    void LoadPolicy(const WebFilterPolicy& policy);

    bool IsUrlAllowed(std::u16string_view url, DecisionTrace* trace = nullptr) const;

    const SchemeToInfoMapType& WhiteIndex() const { return whiteIndex_; }
    const SchemeToInfoMapType& BlackIndex() const { return blackIndex_; }

    // Adds one normalised URL to an index; a URL that cannot be cracked is logged and adds
    // nothing. The index is sealed after the last one.
    static void InsertUrl(std::u16string_view url, SchemeToInfoMapType& index);
    // The host level under a scheme record of the index, and the port level under a host record.
    static void InsertIntoHostMap(const CrackedUrl& cracked, SchemeToInfoMapType& index,
                                  SchemeToInfoMapType::RecordId scheme);
    static void InsertIntoPortMap(const CrackedUrl& cracked, SchemeToInfoMapType& index,
                                  SchemeToInfoMapType::RecordId scheme);

    static bool IsUrlInIndex(const CrackedUrl& cracked, const SchemeToInfoMapType& index,
                             IndexTrace* trace = nullptr);
    static bool IsUrlInPortMap(const CrackedUrl& cracked, const PortToPathsMapTypeStruct& ports,
                               IndexTrace* trace = nullptr);
    // Whether the path key or one of its '/'-bounded prefixes is listed; an empty set lists all.
    static bool IsPathInSet(std::u16string_view pathKey, const StringSetTypeStruct& paths,
                            IndexTrace* trace = nullptr);

  private:
    SchemeToInfoMapType whiteIndex_;
    SchemeToInfoMapType blackIndex_;
};

}  // namespace sentrel
