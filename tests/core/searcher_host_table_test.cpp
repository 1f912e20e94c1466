#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "search/search_index.h"

namespace sentrel {
namespace {

std::u16string HostNumber(std::size_t i) {
    std::u16string host;
    for (std::size_t n = i; n != 0 || host.empty(); n /= 10) {
        host.insert(host.begin(), static_cast<char16_t>(u'0' + n % 10));
    }
    return u"h" + host + u".example";
}

// The hash table finds exactly the keys of the entries, each at its own entry.
TEST(HostTable, FindsExactlyTheKeysOfTheEntries) {
    HostToInfoMapTypeStruct hosts;
    std::vector<const PortToPathsMapTypeStruct*> added;
    constexpr std::size_t kHosts = 20000;
    for (std::size_t i = 0; i < kHosts; ++i) {
        added.push_back(&hosts.FindOrAdd(HostNumber(i)));
    }
    ASSERT_EQ(hosts.size(), kHosts);
    for (std::size_t i = 0; i < kHosts; ++i) {
        const std::u16string key = HostNumber(i);
        ASSERT_EQ(hosts.Find(key), added[i]) << i;
        // Adding a key again finds its entry and adds nothing.
        ASSERT_EQ(&hosts.FindOrAdd(key), added[i]) << i;
        // Near misses: a prefix, an extension, a suffix.
        ASSERT_EQ(hosts.Find(key.substr(0, key.size() - 1)), nullptr) << i;
        ASSERT_EQ(hosts.Find(key + u"x"), nullptr) << i;
        ASSERT_EQ(hosts.Find(key.substr(1)), nullptr) << i;
    }
    EXPECT_EQ(hosts.size(), kHosts);
    EXPECT_EQ(std::set<const PortToPathsMapTypeStruct*>(added.begin(), added.end()).size(), kHosts);
    // The entries are the keys added, each with the ports the table finds for it.
    std::size_t entries = 0;
    for (const auto& [key, ports] : hosts.hosts()) {
        ASSERT_EQ(hosts.Find(key), ports.get());
        ++entries;
    }
    EXPECT_EQ(entries, kHosts);
}

TEST(HostTable, SortedHostsAreInTheOrdinalOrderOfTheKeys) {
    HostToInfoMapTypeStruct hosts;
    // Code units compare as unsigned values, and a key comes before its own extensions.
    const std::u16string keys[] = {u"b", u"\uFFFFa", u"a.b", u"a", u"", u"\u00E9", u"B", u"ab"};
    for (const std::u16string& key : keys) {
        hosts.FindOrAdd(key);
    }
    std::vector<std::u16string> sorted;
    for (const HostEntry* entry : hosts.SortedHosts()) {
        sorted.emplace_back(entry->first);
    }
    EXPECT_EQ(sorted, (std::vector<std::u16string>{u"", u"B", u"a", u"a.b", u"ab", u"b", u"\u00E9",
                                                   u"\uFFFFa"}));
}

TEST(HostTable, EmptyTableAndEmptyKey) {
    HostToInfoMapTypeStruct hosts;
    EXPECT_EQ(hosts.Find(u""), nullptr);
    EXPECT_EQ(hosts.Find(u"a"), nullptr);
    PortToPathsMapTypeStruct& empty = hosts.FindOrAdd(u"");
    EXPECT_EQ(hosts.Find(u""), &empty);
    EXPECT_EQ(hosts.Find(u"a"), nullptr);
    EXPECT_TRUE(empty.ports.empty());
}

}  // namespace
}  // namespace sentrel
