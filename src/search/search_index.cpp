#include "search/search_index.h"

#include <algorithm>
#include <array>
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

const KeyArena::Ref* StringSetTypeStruct::LowerBound(std::u16string_view pathKey) const {
    return std::lower_bound(begin_, end_, pathKey,
                            [this](KeyArena::Ref key, std::u16string_view text) {
                                return keys_->Compare(key, text) < 0;
                            });
}

bool StringSetTypeStruct::contains(std::u16string_view pathKey) const {
    const KeyArena::Ref* const at = LowerBound(pathKey);
    return at != end_ && keys_->Compare(*at, pathKey) == 0;
}

const IndexPort* PortToPathsMapTypeStruct::LowerBound(std::uint16_t port) const {
    return std::lower_bound(begin_, end_, port, [](const IndexPort& listed, std::uint16_t p) {
        return listed.port < p;
    });
}

StringSetTypeStruct PortToPathsMapTypeStruct::PathsOf(const IndexPort* at) const {
    const KeyArena::Ref* const paths = index_->paths_.data();
    return StringSetTypeStruct(index_->keys_, paths + at->firstPath, paths + at[1].firstPath);
}

std::optional<StringSetTypeStruct> PortToPathsMapTypeStruct::Find(std::uint16_t port) const {
    const IndexPort* const at = LowerBound(port);
    if (at == end_ || at->port != port) {
        return std::nullopt;
    }
    return PathsOf(at);
}

std::uint32_t PortToPathsMapTypeStruct::EntryNumber(std::uint16_t port,
                                                    std::u16string_view pathKey) const {
    const IndexPort* const at = LowerBound(port);
    const std::size_t ports = index_->ports_.size();
    if (pathKey.empty()) {
        return static_cast<std::uint32_t>(at - index_->ports_.data());
    }
    const KeyArena::Ref* const path = PathsOf(at).LowerBound(pathKey);
    return static_cast<std::uint32_t>(ports +
                                      static_cast<std::size_t>(path - index_->paths_.data()));
}

std::vector<ListedEntry> SchemeToInfoMapType::EntriesOf(
    std::span<const std::uint32_t> numbers) const {
    std::vector<ListedEntry> entries(numbers.size());
    std::vector<std::size_t> ports(numbers.size());
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        ports[i] = numbers[i];
        if (numbers[i] >= ports_.size()) {
            // The last port whose run of paths starts at or before the path.
            const std::uint32_t path = numbers[i] - static_cast<std::uint32_t>(ports_.size());
            const auto after = std::upper_bound(
                ports_.begin(), ports_.end(), path,
                [](std::uint32_t p, const IndexPort& listed) { return p < listed.firstPath; });
            ports[i] = static_cast<std::size_t>(after - ports_.begin()) - 1;
            entries[i].pathKey = keys_.Copy(paths_[path]);
        }
        entries[i].port = ports_[ports[i]].port;
    }
    // Records do not lead back to their hosts: the hosts are found among all records, each
    // looking for the wanted ports in its run, in port order.
    std::vector<std::pair<std::size_t, std::size_t>> wanted;  // port, entry
    for (std::size_t i = 0; i < ports.size(); ++i) {
        wanted.emplace_back(ports[i], i);
    }
    std::sort(wanted.begin(), wanted.end());
    for (std::size_t slot = 0; slot < slots_.size(); ++slot) {
        const Record& host = slots_[slot];
        if (tags_[slot] == 0 || host.parent == kNone) {
            continue;
        }
        for (auto at = std::lower_bound(wanted.begin(), wanted.end(),
                                        std::pair<std::size_t, std::size_t>(host.first, 0));
             at != wanted.end() && at->first < host.first + host.portCount; ++at) {
            entries[at->second].hostKey = keys_.Copy(host.key);
            entries[at->second].schemeKey = keys_.Copy(schemes_[host.parent].key);
        }
    }
    return entries;
}

std::optional<PortToPathsMapTypeStruct> HostToInfoMapTypeStruct::Find(std::u16string_view hostKey,
                                                                      std::uint32_t hash) const {
    const SchemeToInfoMapType::Record* const host = index_->FindRecord(scheme_, hostKey, hash);
    if (host == nullptr) {
        return std::nullopt;
    }
    const IndexPort* const ports = index_->ports_.data() + host->first;
    return PortToPathsMapTypeStruct(*index_, ports, ports + host->portCount);
}

std::optional<HostToInfoMapTypeStruct> SchemeToInfoMapType::Find(
    std::u16string_view schemeKey) const {
    const Record* const scheme =
        FindRecord(kNone, schemeKey, HashUnder(KeyHashOf(schemeKey), kNone));
    if (scheme == nullptr) {
        return std::nullopt;
    }
    return HostToInfoMapTypeStruct(*this, scheme->first);
}

const SchemeToInfoMapType::Record* SchemeToInfoMapType::FindRecord(RecordId parent,
                                                                   std::u16string_view key,
                                                                   std::uint32_t hash) const {
    if (slots_.empty()) {
        return nullptr;
    }
    const std::uint8_t tag = TagOf(hash);
    for (std::size_t i = SlotOf(hash);; i = i + 1 == slots_.size() ? 0 : i + 1) {
        if (tags_[i] == 0) {
            return nullptr;
        }
        if (tags_[i] != tag) {
            continue;
        }
        const Record& record = slots_[i];
        if (record.parent == parent && keys_.Equals(record.key, key)) {
            return &record;
        }
    }
}

void SchemeToInfoMapType::Place(const Record& record, std::uint32_t hash) {
    std::size_t i = SlotOf(hash);
    while (tags_[i] != 0) {
        i = i + 1 == slots_.size() ? 0 : i + 1;
    }
    slots_[i] = record;
    tags_[i] = TagOf(hash);
}

void SchemeToInfoMapType::PlaceScheme(RecordId number) {
    Place({schemes_[number].key, kNone, number, 0}, schemes_[number].hash);
}

void SchemeToInfoMapType::Reserve(std::size_t entries, std::size_t keyChars) {
    listings_.reserve(entries);
    // A host key and a path key an entry, each behind its header.
    keys_.Reserve(keyChars + 2 * KeyArena::kHeaderBytes * entries);
}

void SchemeToInfoMapType::Rehash(std::size_t slots) {
    slots_.assign(slots, Record{});
    tags_.assign(slots, 0);
    for (std::size_t number = 0; number < schemes_.size(); ++number) {
        PlaceScheme(static_cast<RecordId>(number));
    }
}

SchemeToInfoMapType::RecordId SchemeToInfoMapType::FindOrAddScheme(std::u16string_view schemeKey) {
    const std::uint32_t hash = HashUnder(KeyHashOf(schemeKey), kNone);
    if (const Record* const found = FindRecord(kNone, schemeKey, hash); found != nullptr) {
        return found->first;
    }
    const auto number = static_cast<RecordId>(schemes_.size());
    schemes_.push_back({keys_.Add(schemeKey), hash});
    if (2 * schemes_.size() > slots_.size()) {
        Rehash(std::max<std::size_t>(32, 2 * slots_.size()));
    } else {
        PlaceScheme(number);
    }
    return number;
}

void SchemeToInfoMapType::AddPath(RecordId scheme, std::u16string_view hostKey, std::uint16_t port,
                                  std::u16string_view pathKey) {
    // Entries of one host usually stand together: they share its key.
    const bool sameAsLast = !listings_.empty() && listings_.back().scheme == scheme &&
                            keys_.Compare(listings_.back().host, hostKey) == 0;
    const KeyArena::Ref host = sameAsLast ? listings_.back().host : keys_.Add(hostKey);
    listings_.push_back({HashUnder(KeyHashOf(hostKey), scheme), scheme, host,
                         pathKey.empty() ? kNone : keys_.Add(pathKey), port});
}

namespace {

// Sorts items by their hash a byte at a time from the lowest. Each pass reads and writes the
// items in order, so the time an item takes stays the same however many there are.
template <class Item>
void SortByHash(std::vector<Item>& items) {
    std::vector<Item> sorted(items.size());
    for (unsigned shift = 0; shift < 32; shift += 8) {
        std::array<std::size_t, 257> starts{};
        for (const Item& item : items) {
            ++starts[(item.hash >> shift & 0xFF) + 1];
        }
        for (std::size_t b = 1; b < starts.size(); ++b) {
            starts[b] += starts[b - 1];
        }
        for (const Item& item : items) {
            sorted[starts[item.hash >> shift & 0xFF]++] = item;
        }
        items.swap(sorted);
    }
}

}  // namespace

bool SchemeToInfoMapType::SameHost(const Listing& a, const Listing& b) const {
    return a.hash == b.hash && a.scheme == b.scheme &&
           (a.host == b.host || keys_.Compare(a.host, b.host) == 0);
}

void SchemeToInfoMapType::Seal() {
    SortByHash(listings_);
    // Within a run of one hash: by scheme and host key, so that the listings of a host stand
    // together, then by port, and within a port a listing of every path first, then the path
    // keys in order.
    const auto before = [this](const Listing& a, const Listing& b) {
        if (a.scheme != b.scheme) {
            return a.scheme < b.scheme;
        }
        if (a.host != b.host) {
            if (const int order = keys_.Compare(a.host, b.host); order != 0) {
                return order < 0;
            }
        }
        if (a.port != b.port || a.path == kNone || b.path == kNone) {
            return a.port != b.port ? a.port < b.port : a.path == kNone && b.path != kNone;
        }
        return keys_.Compare(a.path, b.path) < 0;
    };
    for (auto run = listings_.begin(); run != listings_.end();) {
        const auto end = std::find_if(run + 1, listings_.end(),
                                      [run](const Listing& l) { return l.hash != run->hash; });
        if (end - run > 1) {
            std::sort(run, end, before);
        }
        run = end;
    }

    // Hosts come in the order of their slots, so the table too is filled front to back.
    Rehash(2 * (schemes_.size() + listings_.size()));
    ports_.reserve(listings_.size() + 1);
    paths_.reserve(listings_.size());
    for (auto host = listings_.cbegin(); host != listings_.cend();) {
        const auto end = std::find_if(host + 1, listings_.cend(), [this, host](const Listing& l) {
            return !SameHost(*host, l);
        });
        const auto first = static_cast<std::uint32_t>(ports_.size());
        SealPortsOf(host, end);
        Place({host->host, host->scheme, first, static_cast<std::uint32_t>(ports_.size()) - first},
              host->hash);
        host = end;
    }
    listings_ = {};
    ports_.push_back({0, static_cast<std::uint32_t>(paths_.size())});
    ports_.shrink_to_fit();
    paths_.shrink_to_fit();
    keys_.ShrinkToFit();
}

void SchemeToInfoMapType::SealPortsOf(std::vector<Listing>::const_iterator begin,
                                      std::vector<Listing>::const_iterator end) {
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
