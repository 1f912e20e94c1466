#include <gtest/gtest.h>

#include <set>

#include "policy/guid.h"

namespace sentrel {
namespace {

TEST(Guid, TextFormIsBracedUpperCaseInFieldOrder) {
    const Guid guid = Guid::FromFields(0x0123ABCD, 0x4567, 0x89EF,
                                       {0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x10});
    EXPECT_EQ(GuidToText(guid), u"{0123ABCD-4567-89EF-FEDC-BA9876543210}");
    EXPECT_EQ(guid.bytes[0], 0xCD);  // the first field lies little-endian in memory
    EXPECT_EQ(guid.Data1(), 0x0123ABCDu);
    EXPECT_EQ(guid.Data2(), 0x4567);
    EXPECT_EQ(guid.Data3(), 0x89EF);
}

TEST(Guid, ParsesEitherCaseAndRoundTrips) {
    const Guid guid = GuidFromText(u"{0123abcd-4567-89ef-FEDC-ba9876543210}");
    EXPECT_EQ(GuidToText(guid), u"{0123ABCD-4567-89EF-FEDC-BA9876543210}");
    for (int i = 0; i < 100; ++i) {
        const Guid fresh = NewGuid();
        EXPECT_EQ(GuidFromText(GuidToText(fresh)), fresh);
    }
}

TEST(Guid, AnythingButTheBracedFormGivesZero) {
    const char16_t* const texts[] = {
        u"",
        u"0123ABCD-4567-89EF-FEDC-BA9876543210",
        u"{0123ABCD-4567-89EF-FEDC-BA9876543210",
        u"{0123ABCD-4567-89EF-FEDC-BA9876543210} ",
        u" {0123ABCD-4567-89EF-FEDC-BA9876543210}",
        u"{0123ABCD-4567-89EF-FEDCBA9876543210-}",
        u"{0123ABCG-4567-89EF-FEDC-BA9876543210}",
        u"{0123ABCD_4567-89EF-FEDC-BA9876543210}",
        u"{+123ABCD-4567-89EF-FEDC-BA9876543210}",
        u"(0123ABCD-4567-89EF-FEDC-BA9876543210)",
    };
    for (const char16_t* text : texts) {
        EXPECT_TRUE(GuidFromText(text).IsZero()) << std::u16string_view(text).size();
    }
}

TEST(Guid, NewGuidsAreNonZeroAndDistinct) {
    std::set<Guid> seen;
    for (int i = 0; i < 1000; ++i) {
        const Guid guid = NewGuid();
        EXPECT_FALSE(guid.IsZero());
        EXPECT_TRUE(seen.insert(guid).second);
    }
}

TEST(Guid, OrderIsByteWiseInMemory) {
    const Guid low = Guid::FromFields(0x100, 0, 0, {});
    const Guid high = Guid::FromFields(0x1, 0, 0, {});
    EXPECT_LT(low, high);
    EXPECT_LT(Guid::FromFields(0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0xFF}), low);
    EXPECT_LT(Guid{}, Guid::FromFields(0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}));
}

}  // namespace
}  // namespace sentrel
