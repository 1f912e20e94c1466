#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <vector>

#include "policy/web_filter_policy.h"
#include "search/decision_trace.h"
#include "search/web_filter_searcher.h"

namespace sentrel::cli {

// Counts the decisions of one searcher: allowed, denied and not crackable, which do not overlap
// (a URL that could not be cracked is denied, and counted as not crackable alone; one that the
// decision did not need to crack counts by its answer), and how often each index entry decided.
class DecisionTally {
  public:
    explicit DecisionTally(const WebFilterSearcher& searcher);

    void Count(const DecisionTrace& trace);
    void Merge(DecisionTally& other);

    // Writes the counts and the index entries that decided most often, with the main entries
    // of the policy behind them, most often first.
    void Print(const WebFilterPolicy& policy, std::ostream& out);

  private:
    // Counts the entries of the batch at once.
    void Flush();

    const WebFilterSearcher& searcher_;
    std::array<std::size_t, 3> answers_{};  // denied, allowed, not crackable
    // By the number of the index entry, white ones first and a last one for no entry: counting
    // then costs one increment, where the entry's keys would cost a look-up by text.
    std::size_t whiteCount_;
    std::vector<std::uint32_t> entries_;
    // The entries of the last decisions, counted together so that the increments, which land
    // anywhere in a large table, wait for memory at the same time rather than one by one.
    std::vector<std::uint32_t> batch_;
};

}  // namespace sentrel::cli
