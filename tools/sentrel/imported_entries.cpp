#include "imported_entries.h"

#include <algorithm>
#include <string>
#include <tuple>

#include "entry_keys.h"
#include "search/cracked_url.h"
#include "search/match_rules.h"
#include "search/url_keys.h"

namespace sentrel::cli {

namespace {

std::uint32_t HashOf(std::u16string_view key) {
    const std::size_t hash = std::hash<std::u16string_view>{}(key);
    return static_cast<std::uint32_t>(hash ^ (hash >> 32));
}

}  // namespace

std::u16string_view ImportedEntries::KeyOf(const Host& host) const {
    return std::u16string_view(text_.At(host.name), host.nameLength).substr(host.keyStart);
}

std::u16string_view ImportedEntries::PathOf(const Item& item) const {
    return {text_.At(item.text), item.pathLength};
}

ImportedEntries::Slot& ImportedEntries::SlotOf(std::u16string_view key, std::uint32_t hash) {
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
        Slot& found = slots_[slot];
        if (found.host == 0 || (found.hash == hash && KeyOf(hosts_[found.host - 1]) == key)) {
            return found;
        }
    }
}

void ImportedEntries::Add(std::uint32_t list, const ListEntry& entry) {
    // At most half the slots are taken, so that probes stay short.
    if (2 * (hosts_.size() + 1) > slots_.size()) {
        std::vector<Slot> old(std::max<std::size_t>(64, 2 * slots_.size()));
        old.swap(slots_);
        for (const Slot& slot : old) {
            if (slot.host != 0) {
                for (std::size_t i = slot.hash & (slots_.size() - 1);;
                     i = (i + 1) & (slots_.size() - 1)) {
                    if (slots_[i].host == 0) {
                        slots_[i] = slot;
                        break;
                    }
                }
            }
        }
    }
    CrackedUrl cracked;
    cracked.host = entry.host;
    const std::u16string_view key = HostKey(cracked);
    const std::uint32_t hash = HashOf(key);
    Slot& slot = SlotOf(key, hash);
    if (slot.host == 0) {
        hosts_.push_back({text_.Append(entry.host, {}),
                          static_cast<std::uint16_t>(entry.host.size()),
                          static_cast<std::uint16_t>(entry.host.size() - key.size()),
                          nullptr,
                          {}});
        slot = {hash, static_cast<std::uint32_t>(hosts_.size())};
    }
    hosts_[slot.host - 1].items.push_back(
        {text_.Append(entry.pathKey, entry.name), static_cast<std::uint32_t>(entry.name.size()),
         list, static_cast<std::uint16_t>(entry.pathKey.size()), entry.port, false});
}

bool ImportedEntries::Settle(Host& host, Counts& counts) {
    std::vector<Item>& items = host.items;
    const auto keys = [this](const Item& item) { return std::tuple(item.port, PathOf(item)); };
    // Of items with the same keys the first stays, a carried one before the host's own, so that
    // the host keeps only what its parent does not say.
    std::stable_sort(items.begin(), items.end(), [&keys](const Item& a, const Item& b) {
        return std::tuple_cat(keys(a), std::tuple(!a.copy)) <
               std::tuple_cat(keys(b), std::tuple(!b.copy));
    });
    std::size_t kept = 0;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (kept > 0 && keys(items[kept - 1]) == keys(items[i])) {
            if (!items[i].copy) {
                ++(items[kept - 1].copy ? counts.covered : counts.duplicates);
            }
            continue;
        }
        items[kept++] = items[i];
    }
    items.resize(kept);

    // An item goes when another one answers every URL that it answers.
    const auto listed = [&](std::uint16_t port, std::u16string_view pathKey) {
        const auto found = std::lower_bound(
            items.begin(), items.end(), std::tuple(port, pathKey),
            [&keys](const Item& item, const auto& wanted) { return keys(item) < wanted; });
        return found != items.end() && keys(*found) == std::tuple(port, pathKey);
    };
    std::vector<bool> covered(items.size());
    for (std::size_t i = 0; i < items.size(); ++i) {
        covered[i] = WalkCoveringKeys(
            items[i].port, PathOf(items[i]), [&](std::uint16_t port, std::u16string_view pathKey) {
                return std::tuple(port, pathKey) != keys(items[i]) && listed(port, pathKey);
            });
    }
    bool ownKept = false;
    kept = 0;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (covered[i]) {
            counts.covered += !items[i].copy;
            continue;
        }
        ownKept = ownKept || !items[i].copy;
        items[kept++] = items[i];
    }
    items.resize(kept);
    return ownKept;
}

ImportedEntries::Counts ImportedEntries::Write(const Writer& write) {
    Counts counts;
    // A parent's key is a suffix of its subdomain's, so shorter keys settle first: the hosts in
    // order of their keys' lengths, which are limited, counted rather than compared.
    std::vector<std::size_t> starts(kHostLimit + 2);
    for (const Host& host : hosts_) {
        ++starts[KeyOf(host).size() + 1];
    }
    for (std::size_t i = 1; i < starts.size(); ++i) {
        starts[i] += starts[i - 1];
    }
    std::vector<std::size_t> order(hosts_.size());
    for (std::size_t i = 0; i < hosts_.size(); ++i) {
        order[starts[KeyOf(hosts_[i]).size()]++] = i;
    }
    for (const std::size_t index : order) {
        Host& host = hosts_[index];
        const std::u16string_view key = KeyOf(host);
        const Host* parent = nullptr;
        WalkHostCandidates(key, [&](std::size_t start) {
            if (start == 0) {
                return false;
            }
            const std::u16string_view suffix = key.substr(start);
            const Slot& slot = SlotOf(suffix, HashOf(suffix));
            if (slot.host == 0) {
                return false;
            }
            const Host& listed = hosts_[slot.host - 1];
            parent = listed.effective != nullptr ? listed.effective : &listed;
            return true;
        });
        if (parent != nullptr) {
            for (Item item : parent->items) {
                item.copy = true;
                host.items.push_back(item);
            }
        }
        if (!Settle(host, counts)) {
            host.effective = parent;
            host.items = {};
        }
    }
    for (const Host& host : hosts_) {
        const std::u16string_view name(text_.At(host.name), host.nameLength);
        for (const Item& item : host.items) {
            counts.copied += item.copy;
            write(item.list, {text_.At(item.text) + item.pathLength, item.nameLength},
                  EntryUrl(name, item.port, PathOf(item)));
        }
    }
    hosts_.clear();
    slots_.clear();
    text_.Clear();
    return counts;
}

}  // namespace sentrel::cli
