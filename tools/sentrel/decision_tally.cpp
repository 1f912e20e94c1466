#include "decision_tally.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "entry_keys.h"

namespace sentrel::cli {

namespace {

// How many index entries the summary names.
constexpr std::size_t kTopEntries = 20;

// An index entry as one text: white or black, the port, the lengths of the scheme and host keys
// (cracking limits both far below 65536), then the three keys.
void Pack(bool white, const IndexTrace& trace, std::u16string& key) {
    key.clear();
    key += white ? u'w' : u'b';
    key += static_cast<char16_t>(trace.port);
    key += static_cast<char16_t>(trace.schemeKey.size());
    key += static_cast<char16_t>(trace.hostKey.size());
    key += trace.schemeKey;
    key += trace.hostKey;
    if (!trace.everyPath) {
        key += trace.pathKey;
    }
}

IndexEntry Unpack(std::u16string_view key) {
    IndexEntry entry;
    entry.white = key[0] == u'w';
    entry.keys.port = key[1];
    entry.keys.hasHost = true;
    std::u16string_view rest = key.substr(4);
    entry.keys.schemeKey = rest.substr(0, key[2]);
    rest.remove_prefix(key[2]);
    entry.keys.hostKey = rest.substr(0, key[3]);
    entry.keys.pathKey = rest.substr(key[3]);
    return entry;
}

}  // namespace

void DecisionTally::Count(const DecisionTrace& trace) {
    if (trace.step == DecisionStep::CouldNotCrack) {
        ++notCrackable_;
    } else if (trace.allowed) {
        ++allowed_;
    } else {
        ++denied_;
    }
    const bool white = trace.step == DecisionStep::WhiteIndex;
    if ((white || trace.step == DecisionStep::BlackIndex) &&
        trace.index.outcome == IndexOutcome::Matched) {
        Pack(white, trace.index, key_);
        if (const auto found = decided_.find(key_); found != decided_.end()) {
            ++found->second;
        } else {
            decided_.emplace(key_, 1);
        }
    }
}

void DecisionTally::Merge(const DecisionTally& other) {
    allowed_ += other.allowed_;
    denied_ += other.denied_;
    notCrackable_ += other.notCrackable_;
    for (const auto& [key, count] : other.decided_) {
        decided_[key] += count;
    }
}

void DecisionTally::Print(const WebFilterPolicy& policy, std::ostream& out) const {
    out << "allowed\t" << allowed_ << "\n"
        << "denied\t" << denied_ << "\n"
        << "not crackable\t" << notCrackable_ << "\n";
    std::vector<std::pair<std::size_t, IndexEntry>> top;
    top.reserve(decided_.size());
    for (const auto& [key, count] : decided_) {
        top.emplace_back(count, Unpack(key));
    }
    // Most often first; ties in the order of the index entries, whatever the map's order.
    const auto first = [](const auto& a, const auto& b) {
        return a.first != b.first ? a.first > b.first : a.second < b.second;
    };
    const auto end = top.begin() + static_cast<std::ptrdiff_t>(std::min(kTopEntries, top.size()));
    std::partial_sort(top.begin(), end, top.end(), first);
    top.erase(end, top.end());
    std::set<IndexEntry> wanted;
    for (const auto& [count, entry] : top) {
        wanted.insert(entry);
    }
    const IndexEntrySources sources = SourcesOfIndexEntries(policy, &wanted);
    for (const auto& [count, entry] : top) {
        out << "decided\t" << count << "\t" << KeysAsUrl(entry.keys) << "\t"
            << NameSources(sources.at(entry)) << "\n";
    }
}

}  // namespace sentrel::cli
