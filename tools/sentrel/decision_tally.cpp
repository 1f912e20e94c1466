#include "decision_tally.h"

#include <algorithm>
#include <cstdint>
#include <set>
#include <utility>

#include "entry_keys.h"

namespace sentrel::cli {

namespace {

// How many index entries the summary names.
constexpr std::size_t kTopEntries = 20;
// How many decisions a batch holds.
constexpr std::size_t kBatch = 1024;

}  // namespace

DecisionTally::DecisionTally(const WebFilterSearcher& searcher)
    : searcher_(searcher),
      whiteCount_(searcher.WhiteIndex().EntryCount()),
      entries_(whiteCount_ + searcher.BlackIndex().EntryCount() + 1) {
    batch_.reserve(kBatch);
}

void DecisionTally::Count(const DecisionTrace& trace) {
    ++answers_[trace.step == DecisionStep::CouldNotCrack ? 2 : trace.allowed ? 1 : 0];
    const std::size_t none = entries_.size() - 1;
    const std::size_t first = trace.step == DecisionStep::WhiteIndex ? 0 : whiteCount_;
    const auto entry = static_cast<std::uint32_t>(
        trace.index.outcome == IndexOutcome::Matched ? first + trace.index.entry : none);
    // The count is wanted when the batch is full: by then its memory is at hand.
    __builtin_prefetch(&entries_[entry], 1);
    batch_.push_back(entry);
    if (batch_.size() == kBatch) {
        Flush();
    }
}

void DecisionTally::Flush() {
    for (const std::uint32_t entry : batch_) {
        // A count stops at its largest value rather than start again.
        entries_[entry] += entries_[entry] != UINT32_MAX ? 1u : 0u;
    }
    batch_.clear();
}

void DecisionTally::Merge(DecisionTally& other) {
    other.Flush();
    for (std::size_t i = 0; i < answers_.size(); ++i) {
        answers_[i] += other.answers_[i];
    }
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        entries_[i] += std::min(other.entries_[i], UINT32_MAX - entries_[i]);
    }
}

void DecisionTally::Print(const WebFilterPolicy& policy, std::ostream& out) {
    Flush();
    out << "allowed\t" << answers_[1] << "\n"
        << "denied\t" << answers_[0] << "\n"
        << "not crackable\t" << answers_[2] << "\n";
    // Most often first; ties white before black, then in the order of the entries' numbers.
    std::vector<std::pair<std::size_t, std::uint32_t>> top;
    for (std::size_t entry = 0; entry + 1 < entries_.size(); ++entry) {
        if (entries_[entry] != 0) {
            top.emplace_back(entries_[entry], static_cast<std::uint32_t>(entry));
        }
    }
    const auto end = top.begin() + static_cast<std::ptrdiff_t>(std::min(kTopEntries, top.size()));
    std::partial_sort(top.begin(), end, top.end(), [](const auto& a, const auto& b) {
        return a.first != b.first ? a.first > b.first : a.second < b.second;
    });
    top.erase(end, top.end());
    std::vector<IndexEntry> entries;
    for (const bool white : {true, false}) {
        std::vector<std::uint32_t> numbers;
        for (const auto& [count, entry] : top) {
            if ((entry < whiteCount_) == white) {
                numbers.push_back(white ? entry : entry - static_cast<std::uint32_t>(whiteCount_));
            }
        }
        const SchemeToInfoMapType& index = white ? searcher_.WhiteIndex() : searcher_.BlackIndex();
        for (ListedEntry& listed : index.EntriesOf(numbers)) {
            entries.push_back({white,
                               {std::move(listed.schemeKey), true, std::move(listed.hostKey),
                                listed.port, std::move(listed.pathKey)}});
        }
    }
    const std::set<IndexEntry> wanted(entries.begin(), entries.end());
    const IndexEntrySources sources = SourcesOfIndexEntries(policy, &wanted);
    // The entries came white ones first, each kind in the order of top.
    std::size_t white = 0;
    std::size_t black = static_cast<std::size_t>(std::count_if(
        top.begin(), top.end(), [this](const auto& t) { return t.second < whiteCount_; }));
    for (const auto& [count, entry] : top) {
        const IndexEntry& named = entries[entry < whiteCount_ ? white++ : black++];
        out << "decided\t" << count << "\t" << KeysAsUrl(named.keys) << "\t"
            << NameSources(sources.at(named)) << "\n";
    }
}

}  // namespace sentrel::cli
