#include "explanation.h"

#include <array>

#include "text/url_text.h"
#include "utf8.h"

namespace sentrel::cli {

namespace {

std::string Miss(const IndexTrace& trace) {
    switch (trace.outcome) {
        case IndexOutcome::NoSchemeEntry:
            return "no entry for the scheme key " + Quoted(trace.schemeKey);
        case IndexOutcome::NoHost:
            return "the URL has no host, which no entry matches";
        case IndexOutcome::HostWalkExhausted:
            return "no entry for the host key or any shorter suffix of it";
        case IndexOutcome::NoPortEntry:
            return "host " + Quoted(trace.hostKey) +
                   " is listed, but neither for the URL's port nor without a port";
        case IndexOutcome::PathMismatch:
            return "host " + Quoted(trace.hostKey) +
                   " is listed, but none of its paths is the URL's path or a prefix of it";
        case IndexOutcome::Matched:
            break;
    }
    return "matched";
}

}  // namespace

void Explain(const LoadedPolicy& loaded, std::u16string_view url, Explanation& explanation) {
    explanation.url = url;
    loaded.searcher.IsUrlAllowed(explanation.url, &explanation.trace);
    explanation.normalised = NormalizeUrlText(explanation.url);
    explanation.crackedWell =
        CrackUrl(explanation.normalised, explanation.cracked, &explanation.crackFailure);
    const IndexTrace& index = explanation.trace.index;
    if (IndexMatched(explanation.trace)) {
        explanation.entries = EntriesWithKeys(
            loaded.policy, explanation.trace.step == DecisionStep::WhiteIndex, KeysOfMatch(index));
    }
}

const StepTexts& TextsOf(DecisionStep step) {
    // In the order of the steps.
    static constexpr std::array<StepTexts, 7> kTexts = {{
        {"filterNone", "filter type none", "the filter type is none, which allows everything"},
        {"noIndexedEntries", "no indexed entries",
         "the policy has no indexed entries, which allows everything"},
        {"couldNotCrack", "not crackable", "the URL could not be cracked"},
        {"aboutOrFileScheme", "about or file URL", "about and file URLs are always allowed"},
        {"blockAll", "filter type all",
         "the filter type is all, which denies everything but about and file URLs"},
        {"whiteIndex", "white", "the white index"},
        {"blackIndex", "black", "the black index"},
    }};
    return kTexts.at(static_cast<std::size_t>(step));
}

std::string DecisionReason(const Explanation& explanation) {
    const DecisionTrace& trace = explanation.trace;
    std::string reason(TextsOf(trace.step).sentence);
    if (ByIndex(trace.step)) {
        reason += trace.index.outcome == IndexOutcome::Matched
                      ? " matches"
                      : " does not match: " + Miss(trace.index);
    }
    return reason;
}

std::string_view OutcomeName(IndexOutcome outcome) {
    switch (outcome) {
        case IndexOutcome::NoSchemeEntry:
            return "noSchemeEntry";
        case IndexOutcome::NoHost:
            return "noHost";
        case IndexOutcome::HostWalkExhausted:
            return "hostWalkExhausted";
        case IndexOutcome::NoPortEntry:
            return "noPortEntry";
        case IndexOutcome::PathMismatch:
            return "pathMismatch";
        case IndexOutcome::Matched:
            break;
    }
    return "matched";
}

}  // namespace sentrel::cli
