#include "policy/web_filter_policy.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

namespace sentrel {

namespace {

// A slot holds the entry's position + 1 in its low bits and the top bits of the id's hash above
// them, so that a probe rarely has to look at an entry whose id only shares the slot.
constexpr unsigned kPositionBits = 27;
constexpr std::uint32_t kPositionMask = (std::uint32_t{1} << kPositionBits) - 1;
constexpr std::size_t kMaxEntries = kPositionMask - 1;
// Texts are found by 32-bit offsets.
constexpr std::size_t kMaxText = std::numeric_limits<std::uint32_t>::max();
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
        const std::uint32_t text = AppendText(entry);
        unusedText_ += std::size_t{record.nameLength} + record.urlLength;
        record = {entry.id, text, Length(entry.name), Length(entry.url)};
        return;
    }
    if (records_.size() >= kMaxEntries) {
        throw std::bad_alloc();
    }
    // Room first, so that nothing can fail once the text is appended.
    if (records_.size() == records_.capacity()) {
        records_.reserve(std::max<std::size_t>(4, records_.size() * 2));
    }
    const std::uint32_t text = AppendText(entry);
    records_.push_back({entry.id, text, Length(entry.name), Length(entry.url)});
    slot = TagOf(hash) | static_cast<std::uint32_t>(records_.size());
}

void FilterEntrySequence::Clear() {
    records_.clear();
    text_.clear();
    unusedText_ = 0;
    slots_.clear();
}

void FilterEntrySequence::ShrinkToFit() {
    const std::size_t live = text_.size() - unusedText_;
    if (text_.capacity() > live) {
        text_ = PackText(live);
    }
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

std::uint32_t FilterEntrySequence::AppendText(const FilterEntryView& entry) {
    const std::size_t length = entry.name.size() + entry.url.size();
    const std::size_t start = text_.size();
    if (start + length <= text_.capacity() && start + length <= kMaxText) {
        text_.append(entry.name).append(entry.url);
        return static_cast<std::uint32_t>(start);
    }
    const std::size_t live = text_.size() - unusedText_;
    if (live + length > kMaxText) {
        throw std::bad_alloc();
    }
    // The entry's texts may lie in the old buffer, so it goes only once they are copied.
    std::u16string packed = PackText(std::max(live + length, live * 2));
    const std::size_t packedStart = packed.size();
    packed.append(entry.name).append(entry.url);
    text_.swap(packed);
    return static_cast<std::uint32_t>(packedStart);
}

std::u16string FilterEntrySequence::PackText(std::size_t capacity) {
    std::u16string packed;
    packed.reserve(capacity);
    if (unusedText_ == 0) {
        packed.append(text_);  // nothing to drop: every text keeps its place
        return packed;
    }
    for (Record& record : records_) {
        const std::size_t start = packed.size();
        packed.append(text_, record.text, std::size_t{record.nameLength} + record.urlLength);
        record.text = static_cast<std::uint32_t>(start);
    }
    unusedText_ = 0;
    return packed;
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
