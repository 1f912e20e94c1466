#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string_view>
#include <vector>

#include "list_lines.h"
#include "policy/text_arena.h"

namespace sentrel::cli {

// The entries of lists that go into one index, gathered so that each is written once and no entry
// changes what the others mean. The decision walks from a URL's host to the longest listed
// suffix and lets that host decide alone, so:
// - an entry that a broader one on the same host already answers (the same port or port 0, and
//   every path or a segment prefix of its path) is dropped;
// - a subdomain that keeps entries of its own also carries those of its nearest listed parent,
//   which it would otherwise hide;
// - a subdomain whose entries all say what its parent's say is dropped whole.
// Lists run to millions of lines, so texts lie side by side in an arena and hosts are found
// through an open-addressing table of their keys' hashes: std::unordered_map would allocate a
// node per host, and Debian packages no header-only hash table that the Windows build could take.
class ImportedEntries {
  public:
    // Adds an entry that a line of the list (by number) gave.
    void Add(std::uint32_t list, const ListEntry& entry);

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
        std::uint32_t text;  // the path key, and the name after it
        std::uint32_t nameLength;
        std::uint32_t list;
        std::uint16_t pathLength;
        std::uint16_t port;
        bool copy;  // carried down from a parent
    };
    struct Host {
        std::uint32_t name;  // the host as written
        std::uint16_t nameLength;
        std::uint16_t keyStart;  // past a leading "www."
        // Once settled, the host whose items answer for this one when it keeps none of its own.
        const Host* effective = nullptr;
        std::vector<Item> items;
    };
    struct Slot {
        std::uint32_t hash;
        std::uint32_t host;  // its place in hosts_ plus one; 0 for an empty slot
    };

    std::u16string_view KeyOf(const Host& host) const;
    std::u16string_view PathOf(const Item& item) const;
    // The slot of the host with the key, or the empty slot where it belongs.
    Slot& SlotOf(std::u16string_view key, std::uint32_t hash);
    // The host's own and carried items without duplicates or covered ones; whether the host still
    // says anything its parent does not.
    bool Settle(Host& host, Counts& counts);

    TextArena text_;
    std::deque<Host> hosts_;
    std::vector<Slot> slots_;
};

}  // namespace sentrel::cli
