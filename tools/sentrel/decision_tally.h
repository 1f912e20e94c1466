#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <unordered_map>

#include "policy/web_filter_policy.h"
#include "search/decision_trace.h"

namespace sentrel::cli {

// Counts decisions: allowed, denied and not crackable, which do not overlap (a URL that could
// not be cracked is denied, and counted as not crackable alone; one that the decision did not
// need to crack counts by its answer), and how often each index entry decided.
class DecisionTally {
  public:
    void Count(const DecisionTrace& trace);
    void Merge(const DecisionTally& other);

    // Writes the counts and the index entries that decided most often, with the main entries
    // behind them, most often first.
    void Print(const WebFilterPolicy& policy, std::ostream& out) const;

  private:
    std::size_t allowed_ = 0;
    std::size_t denied_ = 0;
    std::size_t notCrackable_ = 0;
    // By the index entry packed into one text: kept as the trace's key copies would cost a
    // map of several texts per URL.
    std::unordered_map<std::u16string, std::size_t> decided_;
    std::u16string key_;  // the packed key of the URL at hand, kept for its memory
};

}  // namespace sentrel::cli
