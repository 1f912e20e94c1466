#include "allocation_counter.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace sentrel::bench {

namespace {

std::atomic<std::size_t> liveBytes{0};
std::atomic<std::size_t> allocations{0};

}  // namespace

HeapCounters ReadHeapCounters() {
    return {liveBytes.load(std::memory_order_relaxed), allocations.load(std::memory_order_relaxed)};
}

}  // namespace sentrel::bench

void* operator new(std::size_t size) {
    void* block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    sentrel::bench::liveBytes.fetch_add(malloc_usable_size(block), std::memory_order_relaxed);
    sentrel::bench::allocations.fetch_add(1, std::memory_order_relaxed);
    return block;
}

void operator delete(void* block) noexcept {
    if (block != nullptr) {
        sentrel::bench::liveBytes.fetch_sub(malloc_usable_size(block), std::memory_order_relaxed);
        std::free(block);
    }
}

void operator delete(void* block, std::size_t) noexcept {
    operator delete(block);
}

void* operator new(std::size_t size, std::align_val_t alignment) {
    const auto align = static_cast<std::size_t>(alignment);
    void* block = std::aligned_alloc(align, (size + align - 1) / align * align);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    sentrel::bench::liveBytes.fetch_add(malloc_usable_size(block), std::memory_order_relaxed);
    sentrel::bench::allocations.fetch_add(1, std::memory_order_relaxed);
    return block;
}

void operator delete(void* block, std::align_val_t) noexcept {
    operator delete(block);
}

void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    operator delete(block);
}
