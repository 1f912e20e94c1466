#include "policy/web_filter_policy.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

namespace sentrel {

namespace {

constexpr std::size_t kMaxEntries = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t kMinSlots = 8;

// The top bits of the hash, which the slot's place (taken from the low bits) does not tell; a
// probe looks at an entry only when they agree.
std::uint8_t TagOf(std::uint64_t hash) {
    return static_cast<std::uint8_t>(hash >> 57 | 0x80);
}

std::uint32_t Length(std::u16string_view text) {
    return static_cast<std::uint32_t>(text.size());
}

}  // namespace

FilterEntry::FilterEntry(std::u16string entryName, std::u16string entryUrl)
    : name(std::move(entryName)), url(std::move(entryUrl)), id(NewGuid()) {}

FilterEntry::FilterEntry(const FilterEntryView& entry)
    : name(entry.name), url(entry.url), id(entry.id) {}

void FilterEntry::Clear() {
    name.clear();
    url.clear();
    id = Guid{};
}

void FilterEntrySequence::Add(const FilterEntryView& entry) {
    MakeRoomForOneMore();
    const std::uint64_t hash = GuidHash{}(entry.id);
    const std::size_t slot = SlotOf(entry.id, hash);
    if (tags_[slot] != 0) {
        Record& record = records_[positions_[slot]];
        const std::uint32_t text = text_.Append(entry.name, entry.url);
        unusedText_ += std::size_t{record.nameLength} + record.urlLength;
        record = {entry.id, text, Length(entry.name), Length(entry.url)};
        if (unusedText_ > text_.Size() / 2) {
            DropUnusedText();
        }
        return;
    }
    Append(entry);
    tags_[slot] = TagOf(hash);
    positions_[slot] = static_cast<std::uint32_t>(records_.size() - 1);
}

void FilterEntrySequence::AddWithFreshId(const FilterEntryView& entry) {
    Append(entry);
    // The table no longer finds every entry: Add makes it again when an entry comes by id.
    if (!tags_.empty()) {
        tags_ = {};
        positions_ = {};
    }
}

void FilterEntrySequence::Append(const FilterEntryView& entry) {
    if (records_.size() >= kMaxEntries) {
        throw std::bad_alloc();
    }
    records_.push_back({entry.id, 0, Length(entry.name), Length(entry.url)});
    try {
        records_.back().text = text_.Append(entry.name, entry.url);
    } catch (...) {
        records_.pop_back();
        throw;
    }
}

void FilterEntrySequence::Clear() {
    records_.clear();
    text_.Clear();
    unusedText_ = 0;
    tags_.clear();
    positions_.clear();
}

void FilterEntrySequence::ShrinkToFit() {
    if (unusedText_ != 0) {
        DropUnusedText();
    }
    text_.ShrinkToFit();
    records_.shrink_to_fit();
    std::vector<std::uint8_t>().swap(tags_);
    std::vector<std::uint32_t>().swap(positions_);
}

std::size_t FilterEntrySequence::SlotOf(const Guid& id, std::uint64_t hash) const {
    const std::uint8_t tag = TagOf(hash);
    const std::size_t mask = tags_.size() - 1;
    for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
        if (tags_[slot] == 0 || (tags_[slot] == tag && records_[positions_[slot]].id == id)) {
            return slot;
        }
    }
}

void FilterEntrySequence::MakeRoomForOneMore() {
    // At most three slots in four taken keeps probe runs short.
    std::size_t capacity = std::max(kMinSlots, tags_.size());
    while ((records_.size() + 1) * 4 > capacity * 3) {
        capacity *= 2;
    }
    if (capacity == tags_.size()) {
        return;
    }
    std::vector<std::uint32_t> positions(capacity);
    std::vector<std::uint8_t>(capacity).swap(tags_);
    positions_.swap(positions);
    for (std::size_t position = 0; position < records_.size(); ++position) {
        const Guid& id = records_[position].id;
        const std::uint64_t hash = GuidHash{}(id);
        const std::size_t slot = SlotOf(id, hash);
        tags_[slot] = TagOf(hash);
        positions_[slot] = static_cast<std::uint32_t>(position);
    }
}

void FilterEntrySequence::DropUnusedText() {
    // Packing only gives memory back: without memory for it the texts stay where they are.
    try {
        TextArena packed;
        std::vector<std::uint32_t> places;
        places.reserve(records_.size());
        for (std::size_t i = 0; i < records_.size(); ++i) {
            const FilterEntryView entry = ViewOf(records_[i]);
            places.push_back(packed.Append(entry.name, entry.url));
        }
        for (std::size_t i = 0; i < records_.size(); ++i) {
            records_[i].text = places[i];
        }
        text_ = std::move(packed);
        unusedText_ = 0;
    } catch (const std::bad_alloc&) {
    }
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
    list.mainEntries.ShrinkToFit();
    list.exceptionEntries.ShrinkToFit();
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
