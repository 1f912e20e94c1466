#include <random>

#include "policy/random_seed.h"

namespace sentrel {

std::uint64_t RandomSeed() {
    std::random_device device;
    return std::uint64_t{device()} << 32 | device();
}

}  // namespace sentrel
