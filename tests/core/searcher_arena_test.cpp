#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "search/index_arena.h"
#include "search/search_index.h"

namespace sentrel {
namespace {

struct Block {
    std::byte* data;
    std::size_t size;
};

// Every block is aligned as asked, and no two overlap: each keeps the pattern written into it.
void ExpectDistinctAlignedBlocks(const std::vector<Block>& blocks,
                                 const std::vector<std::size_t>& alignments) {
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(blocks[i].data) % alignments[i], 0u) << i;
        std::memset(blocks[i].data, static_cast<int>(i % 251), blocks[i].size);
    }
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        const auto expected = static_cast<std::byte>(i % 251);
        EXPECT_TRUE(std::all_of(blocks[i].data, blocks[i].data + blocks[i].size,
                                [expected](std::byte b) { return b == expected; }))
            << i;
    }
}

TEST(IndexArena, HandsOutAlignedDisjointBlocksOfEverySize) {
    IndexArena arena;
    std::vector<Block> blocks;
    std::vector<std::size_t> alignments;
    const std::size_t sizes[] = {1,
                                 2,
                                 3,
                                 8,
                                 24,
                                 40,
                                 100,
                                 1000,
                                 IndexArena::kChunkSize / 4,
                                 IndexArena::kChunkSize,
                                 3 * IndexArena::kChunkSize};
    const std::size_t aligns[] = {1, 2, 8, 16, 64};
    for (int round = 0; round < 40; ++round) {
        for (const std::size_t size : sizes) {
            const std::size_t alignment = aligns[(blocks.size() * 7) % std::size(aligns)];
            blocks.push_back({static_cast<std::byte*>(arena.allocate(size, alignment)), size});
            alignments.push_back(alignment);
        }
    }
    ExpectDistinctAlignedBlocks(blocks, alignments);
}

TEST(IndexArena, SmallBlocksFollowEachOtherAcrossALargeOne) {
    IndexArena arena;
    auto* first = static_cast<std::byte*>(arena.allocate(32, 8));
    EXPECT_NE(arena.allocate(IndexArena::kChunkSize, 8), nullptr);
    auto* second = static_cast<std::byte*>(arena.allocate(32, 8));
    EXPECT_EQ(second, first + 32);
}

TEST(IndexArena, ReleasedArenaServesAgain) {
    IndexArena arena;
    for (int load = 0; load < 3; ++load) {
        std::vector<Block> blocks;
        for (std::size_t i = 0; i < 5000; ++i) {
            blocks.push_back({static_cast<std::byte*>(arena.allocate(48, 16)), 48});
        }
        ExpectDistinctAlignedBlocks(blocks, std::vector<std::size_t>(blocks.size(), 16));
        arena.Release();
    }
}

TEST(IndexArena, IndexBuiltInItHoldsItsKeys) {
    IndexArena arena;
    HostToInfoMapTypeStruct hosts{IndexAllocator(&arena)};
    // Keys long enough to live outside the strings, so that they too come from the arena.
    for (std::size_t i = 0; i < 3000; ++i) {
        hosts.FindOrAdd(u"host" + std::u16string(i % 40, u'x') +
                        static_cast<char16_t>(u'a' + (i / 40) % 26) + u".example");
    }
    EXPECT_EQ(hosts.size(), 40u * 26u);
    EXPECT_EQ(hosts.hosts().get_allocator().resource(), &arena);
    EXPECT_NE(hosts.Find(u"hostxxxb.example"), nullptr);
    EXPECT_EQ(hosts.Find(u"hostxxx1.example"), nullptr);
}

}  // namespace
}  // namespace sentrel
