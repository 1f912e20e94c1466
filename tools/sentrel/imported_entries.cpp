#include "imported_entries.h"

#include <algorithm>
#include <tuple>

#include "entry_keys.h"
#include "search/match_rules.h"
#include "search/url_keys.h"

namespace sentrel::cli {

namespace {

auto KeysOf(std::uint16_t port, std::u16string_view pathKey) {
    return std::tuple(port, pathKey);
}

}  // namespace

std::u16string_view ImportedEntries::KeyOf(const Host& host) {
    CrackedUrl cracked;
    cracked.host = host.name;
    return HostKey(cracked);
}

void ImportedEntries::Add(std::uint32_t list, ListEntry entry) {
    CrackedUrl cracked;
    cracked.host = entry.host;
    auto found = byKey_.find(HostKey(cracked));
    if (found == byKey_.end()) {
        hosts_.push_back({std::move(entry.host), {}});
        found = byKey_.emplace(KeyOf(hosts_.back()), hosts_.size() - 1).first;
    }
    hosts_[found->second].items.push_back(
        {entry.port, false, list, std::move(entry.pathKey), std::move(entry.name)});
}

bool ImportedEntries::Settle(Host& host, Counts& counts) {
    std::vector<Item>& items = host.items;
    // Of items with the same keys the first stays, a carried one before the host's own, so that
    // the host keeps only what its parent does not say.
    std::stable_sort(items.begin(), items.end(), [](const Item& a, const Item& b) {
        return std::tuple(a.port, std::u16string_view(a.pathKey), !a.copy) <
               std::tuple(b.port, std::u16string_view(b.pathKey), !b.copy);
    });
    std::size_t kept = 0;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (kept > 0 && KeysOf(items[kept - 1].port, items[kept - 1].pathKey) ==
                            KeysOf(items[i].port, items[i].pathKey)) {
            if (!items[i].copy) {
                ++(items[kept - 1].copy ? counts.covered : counts.duplicates);
            }
            continue;
        }
        if (kept != i) {
            items[kept] = std::move(items[i]);
        }
        ++kept;
    }
    items.resize(kept);

    // An item goes when another one answers every URL that it answers.
    const auto listed = [&items](std::uint16_t port, std::u16string_view pathKey) {
        const auto found = std::lower_bound(
            items.begin(), items.end(), KeysOf(port, pathKey),
            [](const Item& item, auto keys) { return KeysOf(item.port, item.pathKey) < keys; });
        return found != items.end() && KeysOf(found->port, found->pathKey) == KeysOf(port, pathKey);
    };
    std::vector<bool> covered(items.size());
    for (std::size_t i = 0; i < items.size(); ++i) {
        const Item& item = items[i];
        covered[i] = WalkCoveringKeys(
            item.port, item.pathKey, [&](std::uint16_t port, std::u16string_view pathKey) {
                return KeysOf(port, pathKey) != KeysOf(item.port, item.pathKey) &&
                       listed(port, pathKey);
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
        if (kept != i) {
            items[kept] = std::move(items[i]);
        }
        ++kept;
    }
    items.resize(kept);
    return ownKept;
}

ImportedEntries::Counts ImportedEntries::Write(const Writer& write) {
    Counts counts;
    // A parent's key is a suffix of its subdomain's, so shorter keys settle first.
    std::vector<std::size_t> order(hosts_.size());
    for (std::size_t i = 0; i < order.size(); ++i) {
        order[i] = i;
    }
    std::stable_sort(order.begin(), order.end(), [this](std::size_t a, std::size_t b) {
        return KeyOf(hosts_[a]).size() < KeyOf(hosts_[b]).size();
    });
    for (const std::size_t index : order) {
        Host& host = hosts_[index];
        const std::u16string_view key = KeyOf(host);
        const Host* parent = nullptr;
        WalkHostCandidates(key, [&](std::size_t start) {
            const auto found = start == 0 ? byKey_.end() : byKey_.find(key.substr(start));
            if (found == byKey_.end()) {
                return false;
            }
            const Host& listed = hosts_[found->second];
            parent = listed.effective != nullptr ? listed.effective : &listed;
            return true;
        });
        if (parent != nullptr) {
            for (const Item& item : parent->items) {
                host.items.push_back(item);
                host.items.back().copy = true;
            }
        }
        if (!Settle(host, counts)) {
            host.effective = parent;
            host.items = {};
        }
    }
    for (const Host& host : hosts_) {
        for (const Item& item : host.items) {
            counts.copied += item.copy;
            write(item.list, item.name, EntryUrl(host.name, item.port, item.pathKey));
        }
    }
    hosts_.clear();
    byKey_.clear();
    return counts;
}

}  // namespace sentrel::cli
