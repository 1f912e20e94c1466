#include "com/sink_array.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "test_doubles.h"

namespace sentrel::test {
namespace {

ComPtr<IUnknown> Reference(TestSink& sink) {
    return ComPtr<IUnknown>(static_cast<IUnknown*>(&sink));
}

TEST(SinkArray, HasNoSlotsUntilTheFirstSink) {
    SinkArray sinks;
    EXPECT_EQ(sinks.SlotCount(), 0u);
    EXPECT_EQ(sinks.At(0), nullptr);
    TestSink sink;
    EXPECT_EQ(sinks.Add(Reference(sink)), 1u);
    EXPECT_EQ(sinks.SlotCount(), 4u);
}

struct GrowthCase {
    std::size_t sinks;
    std::size_t slots;
};

class SinkArrayGrowth : public testing::TestWithParam<GrowthCase> {};

TEST_P(SinkArrayGrowth, DoublesWhenFullAndNumbersCookiesBySlot) {
    std::vector<TestSink> sinks(GetParam().sinks);
    SinkArray array;
    for (std::size_t index = 0; index < sinks.size(); ++index) {
        EXPECT_EQ(array.Add(Reference(sinks[index])), index + 1);
    }
    EXPECT_EQ(array.SlotCount(), GetParam().slots);
    for (std::size_t index = 0; index < sinks.size(); ++index) {
        EXPECT_EQ(array.At(index), static_cast<IUnknown*>(&sinks[index]));
        EXPECT_EQ(sinks[index].References(), 1);
    }
    EXPECT_EQ(array.At(sinks.size()), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Counts, SinkArrayGrowth,
                         testing::Values(GrowthCase{1, 4}, GrowthCase{4, 4}, GrowthCase{5, 8},
                                         GrowthCase{8, 8}, GrowthCase{9, 16}, GrowthCase{17, 32}));

TEST(SinkArray, RemoveHandsTheSinkOverAndTheSlotIsReused) {
    TestSink first;
    TestSink second;
    TestSink third;
    SinkArray sinks;
    ASSERT_EQ(sinks.Add(Reference(first)), 1u);
    ASSERT_EQ(sinks.Add(Reference(second)), 2u);
    ComPtr<IUnknown> removed = sinks.Remove(1);
    EXPECT_EQ(removed.Get(), static_cast<IUnknown*>(&first));
    EXPECT_EQ(first.References(), 1);
    removed.Reset();
    EXPECT_EQ(first.References(), 0);
    EXPECT_EQ(sinks.At(0), nullptr);
    EXPECT_EQ(sinks.At(1), static_cast<IUnknown*>(&second));
    EXPECT_EQ(sinks.Add(Reference(third)), 1u);
}

TEST(SinkArray, RemovingWithoutAConnectionGivesNothing) {
    TestSink sink;
    SinkArray sinks;
    EXPECT_FALSE(sinks.Remove(1));
    ASSERT_EQ(sinks.Add(Reference(sink)), 1u);
    for (const DWORD cookie : {0ul, 2ul, 4ul, 5ul, 0xFFFFFFFFul}) {
        EXPECT_FALSE(sinks.Remove(cookie)) << cookie;
    }
    EXPECT_TRUE(sinks.Remove(1));
    EXPECT_FALSE(sinks.Remove(1));
}

TEST(SinkArray, ReleasesItsSinksWhenDestroyed) {
    TestSink sink;
    {
        SinkArray sinks;
        sinks.Add(Reference(sink));
        sinks.Add(Reference(sink));
        EXPECT_EQ(sink.References(), 2);
    }
    EXPECT_EQ(sink.References(), 0);
}

}  // namespace
}  // namespace sentrel::test
