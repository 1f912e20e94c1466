#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "search/cracked_url.h"
#include "search/key_arena.h"

namespace sentrel {

// The hash of a key, read from its end in blocks of four characters, the 0 to 3 characters
// before the last whole block and the length last. Every suffix of a text thus shares the blocks
// it wholly holds with the longer ones: one pass from the right over a host key gives the hashes
// of all the suffixes that a decision looks up.
std::uint64_t KeyHashOf(std::u16string_view key);

// The KeyHashOf every suffix of one host key.
class HostSuffixHashes {
  public:
    explicit HostSuffixHashes(std::u16string_view hostKey);
    std::uint64_t Of(std::size_t start) const;

  private:
    std::u16string_view key_;
    std::array<std::uint64_t, kHostLimit / 4 + 1> blocks_;  // the hash after each whole block
};

class SchemeToInfoMapType;

// The path keys listed for one host and port, in key order; empty means every path.
class StringSetTypeStruct {
  public:
    bool empty() const { return begin_ == end_; }
    bool contains(std::u16string_view pathKey) const;

  private:
    friend class PortToPathsMapTypeStruct;
    StringSetTypeStruct(const KeyArena& keys, const KeyArena::Ref* begin, const KeyArena::Ref* end)
        : keys_(&keys), begin_(begin), end_(end) {}
    // The first key of the set that is not before the path key.
    const KeyArena::Ref* LowerBound(std::u16string_view pathKey) const;

    const KeyArena* keys_;
    const KeyArena::Ref* begin_;
    const KeyArena::Ref* end_;
};

// One port listed for a host. Its path keys run up to those of the next port.
struct IndexPort {
    std::uint16_t port;
    std::uint32_t firstPath;
};

// What one entry of an index matches: a path key, or every path when it is empty.
struct ListedEntry {
    std::u16string schemeKey;
    std::u16string hostKey;
    std::uint16_t port = 0;
    std::u16string pathKey;
};

// The ports listed for one host, in ascending order; port 0 holds the entries that named none.
class PortToPathsMapTypeStruct {
  public:
    std::optional<StringSetTypeStruct> Find(std::uint16_t port) const;
    // The number of the index entry of a listed port and one of its listed path keys, or of its
    // every-path entry when the key is empty. Numbers are below the index's EntryCount, so that
    // matches can be counted without their keys.
    std::uint32_t EntryNumber(std::uint16_t port, std::u16string_view pathKey) const;

  private:
    friend class HostToInfoMapTypeStruct;
    // The first listed port that is not below the port, and the path keys of a listed port.
    const IndexPort* LowerBound(std::uint16_t port) const;
    StringSetTypeStruct PathsOf(const IndexPort* at) const;
    PortToPathsMapTypeStruct(const SchemeToInfoMapType& index, const IndexPort* begin,
                             const IndexPort* end)
        : index_(&index), begin_(begin), end_(end) {}

    const SchemeToInfoMapType* index_;
    const IndexPort* begin_;
    const IndexPort* end_;
};

// The host keys listed under one scheme key.
class HostToInfoMapTypeStruct {
  public:
    // Where a host key, whose KeyHashOf is given, is looked for under this scheme.
    inline std::uint32_t HashOf(std::uint64_t keyHash) const;
    // The ports of a host key, whose HashOf is given.
    std::optional<PortToPathsMapTypeStruct> Find(std::u16string_view hostKey,
                                                 std::uint32_t hash) const;

  private:
    friend class SchemeToInfoMapType;
    HostToInfoMapTypeStruct(const SchemeToInfoMapType& index, std::uint32_t scheme)
        : index_(&index), scheme_(scheme) {}

    const SchemeToInfoMapType* index_;
    std::uint32_t scheme_;
};

// One index: scheme keys, the host keys under each, the ports of each host and the path keys of
// each port, in a few flat arrays. One open-addressing table of records finds scheme keys and,
// under a scheme, host keys; a host's record holds its key and its run of ports, so that a hit
// reads its tag, its record, its key and its ports, and a port holds the start of its run of
// path keys, which ends where the next port's begins. An
// index is built once (Reserve, the Add functions, then Seal) and then only read. Host keys are
// only listed while adding; Seal sorts the listings by hash and then fills the table, the records
// and the runs in order, so that building touches memory in order however large the index is.
class SchemeToInfoMapType {
  public:
    // A scheme key's number, in the order the keys were added.
    using RecordId = std::uint32_t;

    // An index is empty when it has no scheme key; a scheme key may hold no host.
    bool empty() const { return schemes_.empty(); }
    std::size_t size() const { return schemes_.size(); }
    std::optional<HostToInfoMapTypeStruct> Find(std::u16string_view schemeKey) const;
    // How many numbers PortToPathsMapTypeStruct::EntryNumber can give, and what the entries of
    // some of them match (one pass through the whole index: for reports).
    std::size_t EntryCount() const { return ports_.size() + paths_.size(); }
    std::vector<ListedEntry> EntriesOf(std::span<const std::uint32_t> numbers) const;

    // Empties the index and gives its memory back.
    void Clear() { *this = SchemeToInfoMapType(); }
    // Makes room for this many entries, whose keys take about this many characters.
    void Reserve(std::size_t entries, std::size_t keyChars);
    RecordId FindOrAddScheme(std::u16string_view schemeKey);
    // Lists a host key under a scheme, with a port and a path key; an empty path key lists every
    // path.
    void AddPath(RecordId scheme, std::u16string_view hostKey, std::uint16_t port,
                 std::u16string_view pathKey);
    // Puts the listed hosts and paths in place; nothing is added after, and no host is found
    // before.
    void Seal();

  private:
    friend class HostToInfoMapTypeStruct;
    friend class PortToPathsMapTypeStruct;

    static constexpr std::uint32_t kNone = UINT32_MAX;

    // A scheme key (parent kNone; first is its number) or a host key under the scheme numbered
    // parent (its ports are the run of portCount from first).
    struct Record {
        KeyArena::Ref key;
        RecordId parent;
        std::uint32_t first;
        std::uint32_t portCount;
    };
    struct Scheme {
        KeyArena::Ref key;
        std::uint32_t hash;
    };
    // What AddPath lists, kept until Seal groups it; path kNone lists every path.
    struct Listing {
        std::uint32_t hash;  // the host key's hash under its scheme
        RecordId scheme;
        KeyArena::Ref host;
        KeyArena::Ref path;
        std::uint16_t port;
    };

    // A slot's tag: 0 when it is free, else the top bit and seven low bits of its key's hash.
    // Tags sit in their own array, a sixteenth the size of the records, so that they mostly stay
    // in cache and most probes for a key that is not listed end there.
    static std::uint8_t TagOf(std::uint32_t hash) { return static_cast<std::uint8_t>(0x80 | hash); }
    static std::uint32_t HashUnder(std::uint64_t keyHash, RecordId parent) {
        // One fold and one multiply: the high half of the product depends on every bit of the
        // folded low half, which holds every bit of the key's hash and its parent. The key's hash
        // is already mixed block by block, so more rounds buy nothing but time on every candidate.
        std::uint64_t mixed = keyHash ^ (std::uint64_t{parent} * 0x9E3779B97F4A7C15u);
        mixed ^= mixed >> 32;
        mixed *= 0xFF51AFD7ED558CCDu;
        return static_cast<std::uint32_t>(mixed >> 32);
    }
    // The record of a key under its parent, or null: a pointer comes back in a register, where
    // an optional would pass through memory.
    const Record* FindRecord(RecordId parent, std::u16string_view key, std::uint32_t hash) const;
    // Empties the table into this many slots and puts the scheme records back.
    void Rehash(std::size_t slots);
    std::size_t SlotOf(std::uint32_t hash) const {
        // The hash scaled to the table's size, which need not be a power of two.
        return static_cast<std::size_t>((std::uint64_t{hash} * slots_.size()) >> 32);
    }
    void Place(const Record& record, std::uint32_t hash);
    void PlaceScheme(RecordId number);
    bool SameHost(const Listing& a, const Listing& b) const;
    void SealPortsOf(std::vector<Listing>::const_iterator begin,
                     std::vector<Listing>::const_iterator end);

    KeyArena keys_;
    std::vector<Record> slots_;       // at most half of them in use
    std::vector<std::uint8_t> tags_;  // the TagOf each slot
    std::vector<Scheme> schemes_;     // by number
    std::vector<IndexPort> ports_;    // once sealed, one more whose firstPath ends the last run
    std::vector<KeyArena::Ref> paths_;
    std::vector<Listing> listings_;
};

std::uint32_t HostToInfoMapTypeStruct::HashOf(std::uint64_t keyHash) const {
    return SchemeToInfoMapType::HashUnder(keyHash, scheme_);
}

}  // namespace sentrel
