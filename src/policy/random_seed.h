#pragma once

#include <cstdint>

namespace sentrel {

// 64 bits from the platform's source of random identifiers, drawn once per thread to seed the
// generator of list and entry ids.
std::uint64_t RandomSeed();

}  // namespace sentrel
