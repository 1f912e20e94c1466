#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "entry_keys.h"
#include "loaded_policy.h"
#include "search/cracked_url.h"
#include "search/decision_trace.h"

namespace sentrel::cli {

// Why a policy allows or denies one URL: what the text and JSON forms of explain show.
struct Explanation {
    std::u16string url;
    std::u16string normalised;
    bool crackedWell = false;
    CrackedUrl cracked;  // views into normalised, when crackedWell
    CrackFailure crackFailure = CrackFailure::None;
    DecisionTrace trace;
    std::vector<EntrySource> entries;  // the main entries behind the index entry that matched

    Explanation() = default;
    Explanation(const Explanation&) = delete;  // cracked views into normalised
    Explanation& operator=(const Explanation&) = delete;
};

// Whether an index decided, and whether it found an entry; only then is the trace's index filled.
inline bool ByIndex(DecisionStep step) {
    return step == DecisionStep::WhiteIndex || step == DecisionStep::BlackIndex;
}

inline bool IndexMatched(const DecisionTrace& trace) {
    return ByIndex(trace.step) && trace.index.outcome == IndexOutcome::Matched;
}

void Explain(const LoadedPolicy& loaded, std::u16string_view url, Explanation& explanation);

// What a step of the decision is called: a name for scripts (in the camelCase of the JSON
// fields), a few words for a column and the start of a sentence. An index step's words and
// sentence go on with what the index found.
struct StepTexts {
    std::string_view name;
    std::string_view words;
    std::string_view sentence;
};
const StepTexts& TextsOf(DecisionStep step);

// The decision's rule in words, as in "the white index does not match: ...".
std::string DecisionReason(const Explanation& explanation);

std::string_view OutcomeName(IndexOutcome outcome);

}  // namespace sentrel::cli
