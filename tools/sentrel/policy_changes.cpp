#include "policy_changes.h"

#include <algorithm>
#include <span>
#include <string>
#include <tuple>
#include <vector>

#include "entry_keys.h"
#include "utf8.h"

namespace sentrel::cli {

namespace {

// The index entries of a policy in order, each once, and what the indexes make of them.
struct IndexListing {
    std::vector<IndexEntry> entries;
    // The entries on hosts, less the path entries of a port that has an entry for every path
    // (it swallows them): what decides for each host.
    std::vector<IndexEntry> deciding;
    bool white = false;  // the white index is not empty
    bool black = false;
};

IndexListing ListingOf(const WebFilterPolicy& policy) {
    IndexListing listing;
    ForEachIndexEntry(policy, [&listing](IndexEntry&& entry, const EntrySource&) {
        listing.entries.push_back(std::move(entry));
    });
    std::sort(listing.entries.begin(), listing.entries.end());
    listing.entries.erase(std::unique(listing.entries.begin(), listing.entries.end()),
                          listing.entries.end());
    for (const IndexEntry& entry : listing.entries) {
        (entry.white ? listing.white : listing.black) = true;
        // An entry for every path sorts first among those of its port.
        const auto& last = listing.deciding;
        const bool swallowed = !last.empty() && last.back().white == entry.white &&
                               last.back().keys.schemeKey == entry.keys.schemeKey &&
                               last.back().keys.hostKey == entry.keys.hostKey &&
                               last.back().keys.port == entry.keys.port &&
                               last.back().keys.pathKey.empty();
        if (entry.keys.hasHost && !swallowed) {
            listing.deciding.push_back(entry);
        }
    }
    return listing;
}

bool SameHost(const IndexEntry& a, const IndexEntry& b) {
    return a.white == b.white && a.keys.schemeKey == b.keys.schemeKey &&
           a.keys.hostKey == b.keys.hostKey;
}

// The deciding entries of one host after another, in order.
std::vector<std::span<const IndexEntry>> Hosts(const std::vector<IndexEntry>& deciding) {
    std::vector<std::span<const IndexEntry>> hosts;
    for (auto begin = deciding.begin(); begin != deciding.end();) {
        const auto end = std::find_if(begin, deciding.end(),
                                      [&](const IndexEntry& e) { return !SameHost(e, *begin); });
        hosts.emplace_back(begin, end);
        begin = end;
    }
    return hosts;
}

std::string_view Kind(bool white) {
    return white ? "white" : "black";
}

// The entries of one side that the other lacks, in the order of the entries.
void WriteEntryChanges(const IndexListing& before, const IndexListing& after, std::ostream& out) {
    auto old = before.entries.begin();
    auto now = after.entries.begin();
    while (old != before.entries.end() || now != after.entries.end()) {
        const bool removed =
            now == after.entries.end() || (old != before.entries.end() && *old < *now);
        const bool added = !removed && (old == before.entries.end() || *now < *old);
        if (removed || added) {
            const IndexEntry& entry = removed ? *old++ : *now++;
            out << (added ? "added\t" : "removed\t") << Kind(entry.white) << "\t"
                << KeysAsUrl(entry.keys) << "\n";
        } else {
            ++old;
            ++now;
        }
    }
}

// The hosts of one index whose deciding entries differ; true when there is one.
bool WriteHostChanges(const IndexListing& before, const IndexListing& after, bool white,
                      std::ostream& out) {
    const auto old = Hosts(before.deciding);
    const auto now = Hosts(after.deciding);
    const auto first = [](std::span<const IndexEntry> host) -> const IndexEntry& {
        return host.front();
    };
    bool changes = false;
    auto o = old.begin();
    auto n = now.begin();
    while (o != old.end() || n != now.end()) {
        // Hosts are ordered as their first entries, whose ports and paths come after the host.
        const auto hostOrder = [](const IndexEntry& a, const IndexEntry& b) {
            return std::tie(a.white, a.keys.schemeKey, a.keys.hostKey) <
                   std::tie(b.white, b.keys.schemeKey, b.keys.hostKey);
        };
        const bool onlyOld = n == now.end() || (o != old.end() && hostOrder(first(*o), first(*n)));
        const bool onlyNew = !onlyOld && (o == old.end() || hostOrder(first(*n), first(*o)));
        const IndexEntry& host = first(onlyOld ? *o : *n);
        const bool differ =
            onlyOld || onlyNew || !std::equal(o->begin(), o->end(), n->begin(), n->end());
        o += onlyNew ? 0 : 1;
        n += onlyOld ? 0 : 1;
        if (differ && host.white == white) {
            out << "host\t" << Kind(white) << "\t" << Utf16ToUtf8(host.keys.schemeKey) << "://"
                << Utf16ToUtf8(host.keys.hostKey) << "\n";
            changes = true;
        }
    }
    return changes;
}

}  // namespace

bool WriteIndexChanges(const WebFilterPolicy& before, const WebFilterPolicy& after,
                       WebFilterType type, std::ostream& out) {
    const IndexListing old = ListingOf(before);
    const IndexListing now = ListingOf(after);
    WriteEntryChanges(old, now, out);
    // Only a policy decides by the indexes; every other type decides without them.
    if (type != WebFilterBlockPolicy) {
        return false;
    }
    if (old.white != now.white) {
        out << "every\tthe white index becomes " << (now.white ? "non-empty" : "empty")
            << ": the black index is switched " << (now.white ? "off" : "on")
            << " and every host can change\n";
        return true;
    }
    if (old.white) {
        return WriteHostChanges(old, now, true, out);
    }
    bool changes = false;
    if (old.black != now.black) {
        out << "every\tthe indexes become " << (now.black ? "non-empty" : "empty")
            << ": URLs that cannot be cracked are now " << (now.black ? "denied" : "allowed")
            << "\n";
        changes = true;
    }
    return WriteHostChanges(old, now, false, out) || changes;
}

}  // namespace sentrel::cli
