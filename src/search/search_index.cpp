#include "search/search_index.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace sentrel {

namespace {

constexpr std::uint64_t kKeyHashStart = 0xCBF29CE484222325u;

// Four characters as one number.
std::uint64_t BlockOf(const char16_t* chars) {
    std::uint64_t block;
    std::memcpy(&block, chars, sizeof(block));
    return block;
}

// The first count (at most three) characters of text from start as one number, the rest 0.
std::uint64_t PartialBlockOf(std::u16string_view text, std::size_t start, std::size_t count) {
    const std::uint64_t mask = (std::uint64_t{1} << (16 * count)) - 1;
    if (text.size() - start >= 4) {
        // One load and a mask: a copy of a varying length would go through memory.
        return BlockOf(text.data() + start) & mask;
    }
    std::uint64_t block = 0;
    for (std::size_t i = 0; i < count; ++i) {
        block |= std::uint64_t{text[start + i]} << (16 * i);
    }
    return block;
}

std::uint64_t AddBlock(std::uint64_t hash, std::uint64_t block) {
    return std::rotl((hash ^ block) * 0x9E3779B97F4A7C15u, 29);
}

// The hash of the text from start, given the hash after its whole blocks from the end.
std::uint64_t FinishKeyHash(std::uint64_t wholeBlocks, std::u16string_view text,
                            std::size_t start) {
    const std::size_t length = text.size() - start;
    // Keys are far shorter than 2^16 characters, and at most three characters take 48 bits.
    return AddBlock(wholeBlocks,
                    PartialBlockOf(text, start, length % 4) | std::uint64_t{length} << 48);
}

}  // namespace

std::uint64_t KeyHashOf(std::u16string_view key) {
    std::uint64_t hash = kKeyHashStart;
    std::size_t end = key.size();
    for (; end >= 4; end -= 4) {
        hash = AddBlock(hash, BlockOf(key.data() + end - 4));
    }
    return FinishKeyHash(hash, key, 0);
}

HostSuffixHashes::HostSuffixHashes(std::u16string_view hostKey) : key_(hostKey) {
    blocks_[0] = kKeyHashStart;
    for (std::size_t i = 1; i <= key_.size() / 4; ++i) {
        blocks_[i] = AddBlock(blocks_[i - 1], BlockOf(key_.data() + key_.size() - 4 * i));
    }
}

std::uint64_t HostSuffixHashes::Of(std::size_t start) const {
    return FinishKeyHash(blocks_[(key_.size() - start) / 4], key_, start);
}

bool StringSetTypeStruct::contains(std::u16string_view pathKey) const {
    const KeyArena::Ref* const at = std::lower_bound(
        begin_, end_, pathKey, [this](KeyArena::Ref key, std::u16string_view text) {
            return keys_->Compare(key, text) < 0;
        });
    return at != end_ && keys_->Compare(*at, pathKey) == 0;
}

std::optional<StringSetTypeStruct> PortToPathsMapTypeStruct::Find(std::uint16_t port) const {
    const IndexPort* const at =
        std::lower_bound(begin_, end_, port,
                         [](const IndexPort& listed, std::uint16_t p) { return listed.port < p; });
    if (at == end_ || at->port != port) {
        return std::nullopt;
    }
    const KeyArena::Ref* const paths = index_->paths_.data();
    return StringSetTypeStruct(index_->keys_, paths + at->firstPath, paths + at[1].firstPath);
}

std::optional<PortToPathsMapTypeStruct> HostToInfoMapTypeStruct::Find(std::u16string_view hostKey,
                                                                      std::uint32_t hash) const {
    const std::optional<SchemeToInfoMapType::RecordId> host =
        index_->FindRecord(scheme_, hostKey, hash);
    if (!host) {
        return std::nullopt;
    }
    const IndexPort* const ports = index_->ports_.data();
    const auto& records = index_->records_;
    return PortToPathsMapTypeStruct(*index_, ports + records[*host].firstPort,
                                    ports + records[*host + 1].firstPort);
}

std::optional<HostToInfoMapTypeStruct> SchemeToInfoMapType::Find(
    std::u16string_view schemeKey) const {
    const std::optional<RecordId> scheme =
        FindRecord(kNone, schemeKey, HashUnder(KeyHashOf(schemeKey), kNone));
    if (!scheme) {
        return std::nullopt;
    }
    return HostToInfoMapTypeStruct(*this, *scheme);
}

std::optional<SchemeToInfoMapType::RecordId> SchemeToInfoMapType::FindRecord(
    RecordId parent, std::u16string_view key, std::uint32_t hash) const {
    if (slots_.empty()) {
        return std::nullopt;
    }
    for (std::size_t i = SlotOf(hash);; i = i + 1 == slots_.size() ? 0 : i + 1) {
        const Slot& slot = slots_[i];
        if (slot.record == kNone) {
            return std::nullopt;
        }
        if (slot.hash == hash) {
            const Record& record = records_[slot.record];
            if (record.parent == parent && keys_.Compare(record.key, key) == 0) {
                return slot.record;
            }
        }
    }
}

void SchemeToInfoMapType::Place(const Slot& slot) {
    std::size_t i = SlotOf(slot.hash);
    while (slots_[i].record != kNone) {
        i = i + 1 == slots_.size() ? 0 : i + 1;
    }
    slots_[i] = slot;
}

void SchemeToInfoMapType::Reserve(std::size_t entries) {
    if (entries == 0) {
        return;
    }
    // Each entry adds at most one host key; the scheme keys are few.
    constexpr std::size_t kSchemes = 16;
    slots_.assign(2 * (entries + kSchemes), Slot{});
    records_.reserve(entries + kSchemes);
    listings_.reserve(entries);
}

SchemeToInfoMapType::RecordId SchemeToInfoMapType::FindOrAdd(RecordId parent,
                                                             std::u16string_view key) {
    const std::uint32_t hash = HashUnder(KeyHashOf(key), parent);
    if (const std::optional<RecordId> found = FindRecord(parent, key, hash)) {
        return *found;
    }
    if (2 * (records_.size() + 1) > slots_.size()) {
        // Only a policy of far more scheme keys than usual, or one not reserved for, gets here.
        std::vector<Slot> old(std::max<std::size_t>(32, 2 * slots_.size()));
        old.swap(slots_);
        for (const Slot& slot : old) {
            if (slot.record != kNone) {
                Place(slot);
            }
        }
    }
    const auto record = static_cast<RecordId>(records_.size());
    records_.push_back({keys_.Add(key), parent, 0});
    Place({hash, record});
    return record;
}

SchemeToInfoMapType::RecordId SchemeToInfoMapType::FindOrAddScheme(std::u16string_view schemeKey) {
    const std::size_t before = records_.size();
    const RecordId scheme = FindOrAdd(kNone, schemeKey);
    schemeCount_ += records_.size() - before;
    return scheme;
}

SchemeToInfoMapType::RecordId SchemeToInfoMapType::FindOrAddHost(RecordId scheme,
                                                                 std::u16string_view hostKey) {
    return FindOrAdd(scheme, hostKey);
}

void SchemeToInfoMapType::AddPath(RecordId host, std::uint16_t port, std::u16string_view pathKey) {
    listings_.push_back({host, port, pathKey.empty() ? kNone : keys_.Add(pathKey)});
}

void SchemeToInfoMapType::Seal() {
    // The listings grouped by host in one counting pass: ends[r] is where the listings of
    // record r end once they are in place.
    std::vector<std::uint32_t> ends(records_.size() + 1, 0);
    for (const Listing& listing : listings_) {
        ++ends[listing.host + 1];
    }
    for (std::size_t r = 1; r < ends.size(); ++r) {
        ends[r] += ends[r - 1];
    }
    std::vector<Listing> grouped(listings_.size());
    for (const Listing& listing : listings_) {
        grouped[ends[listing.host]++] = listing;
    }
    listings_ = {};

    ports_.reserve(grouped.size() + 1);
    paths_.reserve(grouped.size());
    for (RecordId r = 0; r < records_.size(); ++r) {
        const auto begin = grouped.begin() + (r == 0 ? 0 : ends[r - 1]);
        SealPortsOf(r, begin, grouped.begin() + ends[r]);
    }
    records_.push_back({0, kNone, static_cast<std::uint32_t>(ports_.size())});
    ports_.push_back({0, static_cast<std::uint32_t>(paths_.size())});
    records_.shrink_to_fit();
    ports_.shrink_to_fit();
    paths_.shrink_to_fit();
    keys_.ShrinkToFit();
}

void SchemeToInfoMapType::SealPortsOf(RecordId host, std::vector<Listing>::iterator begin,
                                      std::vector<Listing>::iterator end) {
    records_[host].firstPort = static_cast<std::uint32_t>(ports_.size());
    // By port, and within a port a listing of every path first, then the path keys in order.
    std::sort(begin, end, [this](const Listing& a, const Listing& b) {
        if (a.port != b.port || a.path == kNone || b.path == kNone) {
            return a.port != b.port ? a.port < b.port : a.path == kNone && b.path != kNone;
        }
        return keys_.Compare(a.path, b.path) < 0;
    });
    for (auto listing = begin; listing != end;) {
        const std::uint16_t port = listing->port;
        ports_.push_back({port, static_cast<std::uint32_t>(paths_.size())});
        // A listing without a path leaves the set empty: every path. Otherwise each key once.
        const bool everyPath = listing->path == kNone;
        for (; listing != end && listing->port == port; ++listing) {
            if (!everyPath && (paths_.size() == ports_.back().firstPath ||
                               keys_.Compare(paths_.back(), listing->path) != 0)) {
                paths_.push_back(listing->path);
            }
        }
    }
}

}  // namespace sentrel
