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

// The hash table and the ordered map beside it must always hold the same keys and entries.
TEST(HostTable, FindsExactlyTheKeysOfTheOrderedMap) {
    HostToInfoMapTypeStruct hosts;
    std::vector<const PortToPathsMapTypeStruct*> added;
    constexpr std::size_t kHosts = 20000;
    for (std::size_t i = 0; i < kHosts; ++i) {
        added.push_back(&hosts.FindOrAdd(HostNumber(i)));
    }
    ASSERT_EQ(hosts.hosts().size(), kHosts);
    for (std::size_t i = 0; i < kHosts; ++i) {
        const std::u16string key = HostNumber(i);
        ASSERT_EQ(hosts.Find(key), added[i]) << i;
        ASSERT_EQ(hosts.hosts().find(std::u16string_view(key))->second.get(), added[i]) << i;
        // Adding a key again finds its entry and adds nothing.
        ASSERT_EQ(&hosts.FindOrAdd(key), added[i]) << i;
        // Near misses: a prefix, an extension, a suffix.
        ASSERT_EQ(hosts.Find(key.substr(0, key.size() - 1)), nullptr) << i;
        ASSERT_EQ(hosts.Find(key + u"x"), nullptr) << i;
        ASSERT_EQ(hosts.Find(key.substr(1)), nullptr) << i;
    }
    EXPECT_EQ(hosts.hosts().size(), kHosts);
    EXPECT_EQ(std::set<const PortToPathsMapTypeStruct*>(added.begin(), added.end()).size(), kHosts);
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
