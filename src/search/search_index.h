#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>

namespace sentrel {

// The four levels of an index: scheme key, host key, port, path key. Text keys are ordered by
// their UTF-16 code units as unsigned values (std::u16string's own order), and every map is
// transparent so that look-ups take views of the keys without building strings. Each nested
// level has exactly one holder, the entry above it.

// The path keys listed for one host and port; empty means every path.
struct StringSetTypeStruct {
    std::set<std::u16string, std::less<>> paths;
};

// Port 0 holds the entries that named no port.
struct PortToPathsMapTypeStruct {
    std::map<std::uint16_t, std::shared_ptr<StringSetTypeStruct>> ports;
};

struct HostToInfoMapTypeStruct {
    std::map<std::u16string, std::shared_ptr<PortToPathsMapTypeStruct>, std::less<>> hosts;
};

// An index is empty when it has no scheme entry; a scheme entry may hold no host.
using SchemeToInfoMapType =
    std::map<std::u16string, std::shared_ptr<HostToInfoMapTypeStruct>, std::less<>>;

// One leaf of an index, as a walk hands it out.
struct IndexEntryView {
    std::u16string_view schemeKey;
    bool hasHost = false;  // false for a scheme entry that holds no host
    std::u16string_view hostKey;
    std::uint16_t port = 0;
    bool everyPath = false;  // the host and port were listed without a path
    std::u16string_view pathKey;
};

// Calls visit(const IndexEntryView&) for every leaf in key order: a scheme without hosts, a port
// listed for every path, or one listed path.
template <class Visitor>
void WalkIndex(const SchemeToInfoMapType& index, Visitor&& visit) {
    for (const auto& [schemeKey, hosts] : index) {
        IndexEntryView entry;
        entry.schemeKey = schemeKey;
        if (hosts->hosts.empty()) {
            visit(static_cast<const IndexEntryView&>(entry));
            continue;
        }
        entry.hasHost = true;
        for (const auto& [hostKey, ports] : hosts->hosts) {
            entry.hostKey = hostKey;
            for (const auto& [port, paths] : ports->ports) {
                entry.port = port;
                entry.everyPath = paths->paths.empty();
                entry.pathKey = {};
                if (entry.everyPath) {
                    visit(static_cast<const IndexEntryView&>(entry));
                }
                for (const std::u16string& pathKey : paths->paths) {
                    entry.pathKey = pathKey;
                    visit(static_cast<const IndexEntryView&>(entry));
                }
            }
        }
    }
}

}  // namespace sentrel
