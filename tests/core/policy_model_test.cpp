#include <gtest/gtest.h>

#include "policy/web_filter_policy.h"

namespace sentrel {
namespace {

Guid IdWithFirstField(std::uint32_t data1) {
    return Guid::FromFields(data1, 0, 0, {});
}

FilterList ListWithId(const Guid& id, FilterListType type, std::u16string name) {
    FilterList list(std::move(name));
    list.type = type;
    list.id = id;
    return list;
}

TEST(WebFilterPolicy, StartsEmptyWithVersionOneAndRefreshModeZero) {
    const WebFilterPolicy policy;
    EXPECT_TRUE(policy.lists.empty());
    EXPECT_EQ(policy.version, 1u);
    EXPECT_EQ(policy.GetRefreshMode(), 0u);
}

TEST(WebFilterPolicy, ListWithoutIdIsStoredUnderFreshIdThatBecomesItsId) {
    WebFilterPolicy policy;
    FilterList list(u"School");
    list.id = Guid{};
    policy.AddList(list);
    policy.AddList(list);
    ASSERT_EQ(policy.lists.size(), 2u);
    for (const auto& [key, stored] : policy.lists) {
        EXPECT_FALSE(key.IsZero());
        EXPECT_EQ(stored.id, key);
        EXPECT_EQ(stored.name, u"School");
    }
}

TEST(WebFilterPolicy, SameIdReplacesWholeListWhateverItsType) {
    WebFilterPolicy policy;
    FilterList first = ListWithId(IdWithFirstField(7), FilterListWhite, u"first");
    first.AddEntry(FilterEntry(u"a", u"http://a"));
    policy.AddList(first);
    FilterList second = ListWithId(IdWithFirstField(7), FilterListBlack, u"second");
    policy.AddList(second);
    ASSERT_EQ(policy.lists.size(), 1u);
    const FilterList& stored = policy.lists.begin()->second;
    EXPECT_EQ(stored.type, FilterListBlack);
    EXPECT_EQ(stored.name, u"second");
    EXPECT_TRUE(stored.mainEntries.empty());
}

TEST(WebFilterPolicy, ListsIterateInInMemoryByteOrderOfIds) {
    WebFilterPolicy policy;
    // 0x1 lies in memory as 01 00 00 00, 0x100 as 00 01 00 00: the second sorts first.
    policy.AddList(ListWithId(IdWithFirstField(0x1), FilterListWhite, u"W"));
    policy.AddList(ListWithId(IdWithFirstField(0x100), FilterListBlack, u"B"));
    policy.AddList(
        ListWithId(Guid::FromFields(0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}), FilterListWhite, u"Z"));
    std::u16string order;
    for (const auto& [key, list] : policy.lists) {
        order += list.name;
    }
    EXPECT_EQ(order, u"ZBW");
}

TEST(FilterList, EntryWithKnownIdIsReplacedInPlace) {
    FilterList list;
    const FilterEntry a(u"a", u"http://a");
    const FilterEntry b(u"b", u"http://b");
    list.AddEntry(a);
    list.AddEntry(b);
    FilterEntry changed = a;
    changed.url = u"http://changed";
    list.AddEntry(changed);
    ASSERT_EQ(list.mainEntries.size(), 2u);
    EXPECT_EQ(list.mainEntries[0].url, u"http://changed");
    EXPECT_EQ(list.mainEntries[1].name, u"b");
    EXPECT_TRUE(list.exceptionEntries.empty());

    // After Clear the same id is new again.
    list.Clear();
    list.AddException(a);
    list.AddException(a);
    EXPECT_EQ(list.exceptionEntries.size(), 1u);
}

TEST(FilterList, ClearKeepsTypeOnly) {
    FilterList list(u"Games");
    list.type = FilterListBlack;
    list.AddEntry(FilterEntry(u"x", u"y"));
    list.AddException(FilterEntry(u"x", u"y"));
    list.Clear();
    EXPECT_EQ(list.type, FilterListBlack);
    EXPECT_TRUE(list.name.empty());
    EXPECT_TRUE(list.id.IsZero());
    EXPECT_TRUE(list.mainEntries.empty());
    EXPECT_TRUE(list.exceptionEntries.empty());
}

TEST(FilterEntry, ConstructionDrawsDistinctIdsAndClearZeroesThem) {
    FilterEntry a;
    const FilterEntry b;
    EXPECT_FALSE(a.id.IsZero());
    EXPECT_NE(a.id, b.id);
    a.name = u"n";
    a.url = u"u";
    a.Clear();
    EXPECT_TRUE(a.name.empty() && a.url.empty() && a.id.IsZero());
}

TEST(WebFilterPolicy, CopyIsDeep) {
    WebFilterPolicy source;
    FilterList list(u"L");
    list.AddEntry(FilterEntry(u"e", u"http://e"));
    source.AddList(list);
    source.version = 9;

    WebFilterPolicy copy = source;
    copy.lists.begin()->second.AddEntry(FilterEntry(u"f", u"http://f"));
    copy.lists.begin()->second.name = u"changed";
    copy.version = 2;

    const FilterList& original = source.lists.begin()->second;
    EXPECT_EQ(original.name, u"L");
    EXPECT_EQ(original.mainEntries.size(), 1u);
    EXPECT_EQ(source.version, 9u);
    EXPECT_EQ(copy.lists.begin()->first, source.lists.begin()->first);

    // Assignment replaces the target's lists rather than merging them.
    WebFilterPolicy target;
    target.AddList(FilterList(u"other"));
    target = source;
    ASSERT_EQ(target.lists.size(), 1u);
    EXPECT_EQ(target.lists.begin()->second.name, u"L");
}

}  // namespace
}  // namespace sentrel
