#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "list_lines.h"

namespace sentrel::cli {

// The entries of lists that go into one index, gathered so that each is written once and no entry
// changes what the others mean. The decision walks from a URL's host to the longest listed
// suffix and lets that host decide alone, so:
// - an entry that a broader one on the same host already answers (the same port or port 0, and
//   every path or a segment prefix of its path) is dropped;
// - a subdomain that keeps entries of its own also carries those of its nearest listed parent,
//   which it would otherwise hide;
// - a subdomain whose entries all say what its parent's say is dropped whole.
class ImportedEntries {
  public:
    // Adds an entry that the line of the list (by number) gave.
    void Add(std::uint32_t list, ListEntry entry);

    struct Counts {
        std::size_t duplicates = 0;  // the same keys again
        std::size_t covered = 0;     // answered by a broader entry
        std::size_t copied = 0;      // a parent's entries carried by a subdomain
    };

    // Hands every entry to keep to write, in the order in which the hosts first came, and counts
    // what was dropped or added. The entries are gone afterwards.
    using Writer =
        std::function<void(std::uint32_t list, std::u16string_view name, std::u16string_view url)>;
    Counts Write(const Writer& write);

  private:
    struct Item {
        std::uint16_t port;
        bool copy;  // carried down from a parent
        std::uint32_t list;
        std::u16string pathKey;
        std::u16string name;
    };
    struct Host {
        std::u16string name;  // as written; the key drops a leading "www."
        std::vector<Item> items;
        const Host* effective = nullptr;  // once settled: whose items answer for it, none: its own
    };

    static std::u16string_view KeyOf(const Host& host);
    // The host's own and carried items without duplicates or covered ones; whether the host still
    // says anything its parent does not.
    bool Settle(Host& host, Counts& counts);

    std::deque<Host> hosts_;
    std::unordered_map<std::u16string_view, std::size_t> byKey_;
};

}  // namespace sentrel::cli
