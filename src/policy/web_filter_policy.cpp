#include "policy/web_filter_policy.h"

#include <algorithm>
#include <new>
#include <utility>

namespace sentrel {

namespace {

// A slot holds the entry's position + 1 in its low bits and the top bits of the id's hash above
// them, so that a probe rarely has to look at an entry whose id only shares the slot.
constexpr unsigned kPositionBits = 27;
constexpr std::uint32_t kPositionMask = (std::uint32_t{1} << kPositionBits) - 1;
constexpr std::size_t kMaxEntries = kPositionMask - 1;
constexpr std::size_t kMinSlots = 8;

std::uint32_t TagOf(std::uint64_t hash) {
    return static_cast<std::uint32_t>(hash >> (64 - (32 - kPositionBits))) << kPositionBits;
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
    std::uint32_t& slot = SlotOf(entry.id, hash);
    if (slot != 0) {
        Record& record = records_[(slot & kPositionMask) - 1];
        const std::uint32_t text = text_.Append(entry.name, entry.url);
        unusedText_ += std::size_t{record.nameLength} + record.urlLength;
        record = {entry.id, text, Length(entry.name), Length(entry.url)};
        if (unusedText_ > text_.Size() / 2) {
            DropUnusedText();
        }
        return;
    }
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
    slot = TagOf(hash) | static_cast<std::uint32_t>(records_.size());
}

void FilterEntrySequence::Clear() {
    records_.clear();
    text_.Clear();
    unusedText_ = 0;
    slots_.clear();
}

void FilterEntrySequence::ShrinkToFit() {
    if (unusedText_ != 0) {
        DropUnusedText();
    }
    text_.ShrinkToFit();
    records_.shrink_to_fit();
    std::vector<std::uint32_t>().swap(slots_);
}

std::uint32_t& FilterEntrySequence::SlotOf(const Guid& id, std::uint64_t hash) {
    const std::uint32_t tag = TagOf(hash);
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
        std::uint32_t& slot = slots_[i];
        if (slot == 0 ||
            ((slot & ~kPositionMask) == tag && records_[(slot & kPositionMask) - 1].id == id)) {
            return slot;
        }
    }
}

void FilterEntrySequence::MakeRoomForOneMore() {
    // At most three slots in four taken keeps probe runs short.
    std::size_t capacity = std::max(kMinSlots, slots_.size());
    while ((records_.size() + 1) * 4 > capacity * 3) {
        capacity *= 2;
    }
    if (capacity == slots_.size()) {
        return;
    }
    std::vector<std::uint32_t>(capacity).swap(slots_);
    for (std::size_t position = 0; position < records_.size(); ++position) {
        const std::uint64_t hash = GuidHash{}(records_[position].id);
        SlotOf(records_[position].id, hash) =
            TagOf(hash) | static_cast<std::uint32_t>(position + 1);
    }
}

void FilterEntrySequence::DropUnusedText() {
    // Packing only gives memory back: without memory for it the texts stay where they are.
    try {
        TextArena packed;
        std::vector<std::uint32_t> places;
        places.reserve(records_.size());
        for (const Record& record : records_) {
            const FilterEntryView entry = ViewOf(record);
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
