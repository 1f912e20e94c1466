#pragma once

#include <cstddef>
#include <cstdint>
#include <forward_list>
#include <functional>
#include <map>
#include <memory>
#include <memory_resource>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace sentrel {

// The four levels of an index: scheme key, host key, port, path key. Text keys are ordered by
// their UTF-16 code units as unsigned values (the strings' own order), and every level keyed by
// text is looked up with views of the keys, without building strings. Each nested level has
// exactly one holder, the entry above it.
//
// Every level takes its memory from the resource of the map it hangs under, so that an index
// built in one arena keeps the parts of an entry close together and is released at once; an
// index made without a resource uses the default heap.
using IndexAllocator = std::pmr::polymorphic_allocator<std::byte>;
using IndexKey = std::pmr::u16string;

// The path keys listed for one host and port; empty means every path.
struct StringSetTypeStruct {
    using allocator_type = IndexAllocator;
    explicit StringSetTypeStruct(const allocator_type& allocator = {}) : paths(allocator) {}

    std::pmr::set<IndexKey, std::less<>> paths;
};

// Port 0 holds the entries that named no port.
struct PortToPathsMapTypeStruct {
    using allocator_type = IndexAllocator;
    explicit PortToPathsMapTypeStruct(const allocator_type& allocator = {}) : ports(allocator) {}

    std::pmr::map<std::uint16_t, std::shared_ptr<StringSetTypeStruct>> ports;
};

// One host key and its ports. Each entry is a node of its own, made right after its ports
// level in the same memory, so that a decision that finds the entry finds its ports near it.
using HostEntry = std::pair<const IndexKey, std::shared_ptr<PortToPathsMapTypeStruct>>;
using HostEntries = std::pmr::forward_list<HostEntry>;

// The hash of a host key, taken from its last character back to its first: one pass from the
// right passes the hash of every suffix on its way, and a decision looks up suffixes of one key.
class HostKeyHash {
  public:
    static std::uint64_t Of(std::u16string_view key);

    void Prepend(char16_t ch) { state_ = (state_ ^ ch) * 0x100000001B3u; }
    // The hash of the characters prepended so far.
    std::uint64_t Value() const;

  private:
    std::uint64_t state_ = 0xCBF29CE484222325u;
};

// Finds the entries of a host level by a hash of their keys. A decision looks up one candidate
// host key per label of the URL's host, and most are not listed: here that costs one probe of a
// compact table rather than a walk down a tree of every host. Each slot holds a key's hash and
// its entry in the map, whose key confirms a match.
class HostHashTable {
  public:
    // The entry of the key, whose HostKeyHash is given.
    const HostEntry* Find(std::u16string_view key, std::uint64_t hash) const;
    // The entry's key, whose hash is given, must not be in the table yet.
    void Insert(const HostEntry& entry, std::uint64_t hash);
    std::size_t size() const { return count_; }

  private:
    struct Slot {
        std::uint64_t hash = 0;
        const HostEntry* entry = nullptr;
    };

    void Place(const Slot& slot);
    // Two bits chosen by the hash in a bit array small enough to stay in a near cache: a key
    // that is not listed is almost always turned away there, without a probe of the slots.
    bool MayHold(std::uint64_t hash) const;
    void Mark(std::uint64_t hash);

    std::vector<Slot> slots_;            // a power of two in size, at most half full
    std::vector<std::uint64_t> filter_;  // four bits for every slot
    std::size_t count_ = 0;
};

// The host keys of one scheme with their ports: a map whose look-ups go through the hash table.
// The entries are in no particular order, which no decision depends on. Entries and table change
// only through FindOrAdd, so they always hold the same keys.
class HostToInfoMapTypeStruct {
  public:
    using allocator_type = IndexAllocator;
    explicit HostToInfoMapTypeStruct(const allocator_type& allocator = {}) : hosts_(allocator) {}
    HostToInfoMapTypeStruct(const HostToInfoMapTypeStruct&) = delete;
    HostToInfoMapTypeStruct& operator=(const HostToInfoMapTypeStruct&) = delete;

    const HostEntries& hosts() const { return hosts_; }
    std::size_t size() const { return table_.size(); }
    bool empty() const { return table_.size() == 0; }
    const PortToPathsMapTypeStruct* Find(std::u16string_view hostKey) const {
        return Find(hostKey, HostKeyHash::Of(hostKey));
    }
    // The same, with the key's HostKeyHash given.
    const PortToPathsMapTypeStruct* Find(std::u16string_view hostKey, std::uint64_t hash) const;
    // The ports of the host key, added empty when the key is new.
    PortToPathsMapTypeStruct& FindOrAdd(std::u16string_view hostKey);

  private:
    HostEntries hosts_;
    HostHashTable table_;
};

// An index is empty when it has no scheme entry; a scheme entry may hold no host.
using SchemeToInfoMapType =
    std::pmr::map<IndexKey, std::shared_ptr<HostToInfoMapTypeStruct>, std::less<>>;

// A new, empty level to hang under a map, made from that map's memory (the allocator hands
// itself on to the level's own map).
template <class Level, class Map>
std::shared_ptr<Level> MakeIndexLevel(const Map& parent) {
    return std::allocate_shared<Level>(IndexAllocator(parent.get_allocator()));
}

// One leaf of an index, as a walk hands it out.
struct IndexEntryView {
    std::u16string_view schemeKey;
    bool hasHost = false;  // false for a scheme entry that holds no host
    std::u16string_view hostKey;
    std::uint16_t port = 0;
    bool everyPath = false;  // the host and port were listed without a path
    std::u16string_view pathKey;
};

// Calls visit(const IndexEntryView&) for every leaf, hosts in no particular order: a scheme
// without hosts, a port listed for every path, or one listed path.
template <class Visitor>
void WalkIndex(const SchemeToInfoMapType& index, Visitor&& visit) {
    for (const auto& [schemeKey, hosts] : index) {
        IndexEntryView entry;
        entry.schemeKey = schemeKey;
        if (hosts->empty()) {
            visit(static_cast<const IndexEntryView&>(entry));
            continue;
        }
        entry.hasHost = true;
        for (const auto& [hostKey, ports] : hosts->hosts()) {
            entry.hostKey = hostKey;
            for (const auto& [port, paths] : ports->ports) {
                entry.port = port;
                entry.everyPath = paths->paths.empty();
                entry.pathKey = {};
                if (entry.everyPath) {
                    visit(static_cast<const IndexEntryView&>(entry));
                }
                for (const IndexKey& pathKey : paths->paths) {
                    entry.pathKey = pathKey;
                    visit(static_cast<const IndexEntryView&>(entry));
                }
            }
        }
    }
}

}  // namespace sentrel
