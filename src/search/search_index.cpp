#include "search/search_index.h"

namespace sentrel {

std::uint64_t HostKeyHash::Of(std::u16string_view key) {
    HostKeyHash hash;
    for (auto ch = key.rbegin(); ch != key.rend(); ++ch) {
        hash.Prepend(*ch);
    }
    return hash.Value();
}

std::uint64_t HostKeyHash::Value() const {
    // The 64-bit finaliser of MurmurHash3: every bit of the state reaches the high and low bits
    // that pick a slot and the filter's bits.
    std::uint64_t mixed = state_;
    mixed ^= mixed >> 33;
    mixed *= 0xFF51AFD7ED558CCDu;
    mixed ^= mixed >> 33;
    mixed *= 0xC4CEB9FE1A85EC53u;
    mixed ^= mixed >> 33;
    return mixed;
}

bool HostHashTable::MayHold(std::uint64_t hash) const {
    const std::size_t mask = filter_.size() * 64 - 1;
    const std::size_t first = (hash >> 32) & mask;
    const std::size_t second = (hash >> 11) & mask;
    return (filter_[first / 64] >> (first % 64) & filter_[second / 64] >> (second % 64) & 1) != 0;
}

void HostHashTable::Mark(std::uint64_t hash) {
    const std::size_t mask = filter_.size() * 64 - 1;
    const std::size_t first = (hash >> 32) & mask;
    const std::size_t second = (hash >> 11) & mask;
    filter_[first / 64] |= std::uint64_t{1} << (first % 64);
    filter_[second / 64] |= std::uint64_t{1} << (second % 64);
}

const HostEntry* HostHashTable::Find(std::u16string_view key, std::uint64_t hash) const {
    if (count_ == 0 || !MayHold(hash)) {
        return nullptr;
    }
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t i = static_cast<std::size_t>(hash) & mask;; i = (i + 1) & mask) {
        const Slot& slot = slots_[i];
        if (slot.entry == nullptr) {
            return nullptr;
        }
        if (slot.hash == hash && slot.entry->first == key) {
            return slot.entry;
        }
    }
}

void HostHashTable::Insert(const HostEntry& entry, std::uint64_t hash) {
    if ((count_ + 1) * 2 > slots_.size()) {
        std::vector<Slot> old(slots_.empty() ? 16 : slots_.size() * 2);
        old.swap(slots_);
        filter_.assign(slots_.size() / 16, 0);
        for (const Slot& slot : old) {
            if (slot.entry != nullptr) {
                Place(slot);
            }
        }
    }
    Place({hash, &entry});
    ++count_;
}

void HostHashTable::Place(const Slot& slot) {
    Mark(slot.hash);
    const std::size_t mask = slots_.size() - 1;
    std::size_t i = static_cast<std::size_t>(slot.hash) & mask;
    while (slots_[i].entry != nullptr) {
        i = (i + 1) & mask;
    }
    slots_[i] = slot;
}

const PortToPathsMapTypeStruct* HostToInfoMapTypeStruct::Find(std::u16string_view hostKey,
                                                              std::uint64_t hash) const {
    const HostEntry* const entry = table_.Find(hostKey, hash);
    return entry != nullptr ? entry->second.get() : nullptr;
}

PortToPathsMapTypeStruct& HostToInfoMapTypeStruct::FindOrAdd(std::u16string_view hostKey) {
    const std::uint64_t hash = HostKeyHash::Of(hostKey);
    if (const HostEntry* const entry = table_.Find(hostKey, hash)) {
        return *entry->second;
    }
    const HostEntry& added =
        hosts_.emplace_front(hostKey, MakeIndexLevel<PortToPathsMapTypeStruct>(hosts_));
    table_.Insert(added, hash);
    return *added.second;
}

}  // namespace sentrel
