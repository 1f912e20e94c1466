#pragma once

#include <cstddef>

namespace sentrel::bench {

// Heap use of the whole benchmark program, through its replaced global operator new and delete.
// Sizes are what the allocator really hands out for each block.
struct HeapCounters {
    std::size_t liveBytes;
    std::size_t allocations;
};

HeapCounters ReadHeapCounters();

}  // namespace sentrel::bench
