#pragma once

#include <cstddef>

namespace sentrel::test {

// While an object of this class lives, every allocation through operator new of at least
// minimumBytes fails as memory running out does (std::bad_alloc, or null for the nothrow forms),
// on every thread. Smaller allocations go on as usual, so a test makes the one copy it aims at
// large and lets everything else through. One at a time.
class AllocationFailure {
  public:
    explicit AllocationFailure(std::size_t minimumBytes);
    ~AllocationFailure();
    AllocationFailure(const AllocationFailure&) = delete;
    AllocationFailure& operator=(const AllocationFailure&) = delete;

    // Allocations refused so far.
    std::size_t Refused() const;
};

}  // namespace sentrel::test
