#include "policy/web_filter_policy.h"

#include <utility>

namespace sentrel {

FilterEntry::FilterEntry(std::u16string entryName, std::u16string entryUrl)
    : name(std::move(entryName)), url(std::move(entryUrl)), id(NewGuid()) {}

void FilterEntry::Clear() {
    name.clear();
    url.clear();
    id = Guid{};
}

void FilterEntrySequence::Add(const FilterEntry& entry) {
    const auto [position, inserted] = positions_.try_emplace(entry.id, entries_.size());
    if (!inserted) {
        entries_[position->second] = entry;
        return;
    }
    try {
        entries_.push_back(entry);
    } catch (...) {
        positions_.erase(position);
        throw;
    }
}

void FilterEntrySequence::Clear() {
    entries_.clear();
    positions_.clear();
}

FilterList::FilterList(std::u16string listName) : name(std::move(listName)), id(NewGuid()) {}

void FilterList::Clear() {
    name.clear();
    id = Guid{};
    mainEntries.Clear();
    exceptionEntries.Clear();
}

void WebFilterPolicy::AddList(const FilterList& list) {
    AddList(FilterList(list));
}

void WebFilterPolicy::AddList(FilterList&& list) {
    if (list.id.IsZero()) {
        const Guid key = NewGuid();
        // A fresh id cannot collide; should it, the list already there stays.
        const auto [position, inserted] = lists.try_emplace(key, std::move(list));
        if (inserted) {
            position->second.id = key;
        }
        return;
    }
    const Guid key = list.id;
    lists.insert_or_assign(key, std::move(list));
}

}  // namespace sentrel
