#include "allocation_failure.h"

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace sentrel::test {

namespace {

constexpr std::size_t kNoFailure = std::numeric_limits<std::size_t>::max();

std::atomic<std::size_t> failingFrom{kNoFailure};
std::atomic<std::size_t> refused{0};

// Null when the allocation is to fail or memory is out.
void* Allocate(std::size_t bytes) noexcept {
    if (bytes >= failingFrom.load(std::memory_order_relaxed)) {
        ++refused;
        return nullptr;
    }
    return std::malloc(bytes == 0 ? 1 : bytes);
}

void* AllocateOrThrow(std::size_t bytes) {
    void* memory = Allocate(bytes);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

AllocationFailure::AllocationFailure(std::size_t minimumBytes) {
    refused = 0;
    failingFrom = minimumBytes;
}

AllocationFailure::~AllocationFailure() {
    failingFrom = kNoFailure;
}

std::size_t AllocationFailure::Refused() const {
    return refused.load();
}

}  // namespace sentrel::test

// The program's allocation functions, replaced for the whole test program. The aligned forms are
// left to the library: nothing under test uses them.
void* operator new(std::size_t bytes) {
    return sentrel::test::AllocateOrThrow(bytes);
}
void* operator new[](std::size_t bytes) {
    return sentrel::test::AllocateOrThrow(bytes);
}
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
    return sentrel::test::Allocate(bytes);
}
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
    return sentrel::test::Allocate(bytes);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
