#pragma once

#include <cstdint>
#include <string>

namespace sentrel {

// How one index answered a URL. The keys are copies, so a trace outlives the decision.
enum class IndexOutcome {
    Matched,
    NoSchemeEntry,      // the URL's scheme key has no entry
    NoHost,             // the URL has an empty host, which nothing matches
    HostWalkExhausted,  // neither the host key nor any shorter suffix of it has an entry
    NoPortEntry,        // a host entry was found, but neither the URL's port nor port 0 is listed
    PathMismatch,       // a port entry was found, but no prefix of the path key is listed
};

struct IndexTrace {
    // Set by the caller: false leaves the scheme and host keys out, for a caller that names the
    // matched entry by its number alone and would only pay for their copies.
    bool keys = true;
    IndexOutcome outcome = IndexOutcome::NoSchemeEntry;
    std::u16string schemeKey;  // the scheme key looked up
    std::u16string hostKey;    // the host entry that decided, once one was found
    std::uint16_t port = 0;    // the port entry that matched: the URL's port or 0
    bool everyPath = false;    // that port entry lists no path, so every path matched
    std::u16string pathKey;    // the listed path key that matched
    std::uint32_t entry = 0;   // the matched entry's number in its index (EntryNumber)
};

// Which rule of the decision answered.
enum class DecisionStep {
    FilterNone,         // WebFilterBlockNone: allowed without reading the URL
    NoIndexedEntries,   // a policy whose indexes are both empty: allowed
    CouldNotCrack,      // denied and logged
    AboutOrFileScheme,  // allowed under every filter
    BlockAll,           // WebFilterBlockAll: denied
    WhiteIndex,         // allowed exactly when the white index matched
    BlackIndex,         // denied exactly when the black index matched
};

struct DecisionTrace {
    DecisionStep step = DecisionStep::FilterNone;
    bool allowed = true;
    IndexTrace index;  // filled for the WhiteIndex and BlackIndex steps
};

}  // namespace sentrel
