#include "search/search_index.h"

#include <functional>

namespace sentrel {

std::uint64_t HostHashTable::Hash(std::u16string_view key) {
    return std::hash<std::u16string_view>{}(key);
}

const HostMap::value_type* HostHashTable::Find(std::u16string_view key, std::uint64_t hash) const {
    if (count_ == 0) {
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

void HostHashTable::Insert(const HostMap::value_type& entry, std::uint64_t hash) {
    if ((count_ + 1) * 2 > slots_.size()) {
        std::vector<Slot> old(slots_.empty() ? 16 : slots_.size() * 2);
        old.swap(slots_);
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
    const std::size_t mask = slots_.size() - 1;
    std::size_t i = static_cast<std::size_t>(slot.hash) & mask;
    while (slots_[i].entry != nullptr) {
        i = (i + 1) & mask;
    }
    slots_[i] = slot;
}

const PortToPathsMapTypeStruct* HostToInfoMapTypeStruct::Find(std::u16string_view hostKey) const {
    const HostMap::value_type* const entry = table_.Find(hostKey, HostHashTable::Hash(hostKey));
    return entry != nullptr ? entry->second.get() : nullptr;
}

PortToPathsMapTypeStruct& HostToInfoMapTypeStruct::FindOrAdd(std::u16string_view hostKey) {
    const std::uint64_t hash = HostHashTable::Hash(hostKey);
    if (const HostMap::value_type* const entry = table_.Find(hostKey, hash)) {
        return *entry->second;
    }
    const auto added =
        hosts_.emplace(hostKey, MakeIndexLevel<PortToPathsMapTypeStruct>(hosts_)).first;
    table_.Insert(*added, hash);
    return *added->second;
}

}  // namespace sentrel
