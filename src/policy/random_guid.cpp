#include "policy/guid.h"
#include "policy/random_seed.h"

namespace sentrel {

namespace {

// SplitMix64: a counter passed through a mixing bijection. Its state is one word, so that drawing
// an id per entry of a large list costs a few instructions and no cache lines.
class IdGenerator {
  public:
    IdGenerator() : state_(RandomSeed()) {}

    std::uint64_t Next() {
        std::uint64_t value = state_ += 0x9E3779B97F4A7C15ull;
        value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9ull;
        value = (value ^ (value >> 27)) * 0x94D049BB133111EBull;
        return value ^ (value >> 31);
    }

  private:
    std::uint64_t state_;
};

}  // namespace

// A version-4 GUID from a per-thread generator seeded from the platform.
Guid GenerateRandomGuid() {
    thread_local IdGenerator generator;
    Guid guid;
    for (std::size_t i = 0; i < guid.bytes.size(); i += 8) {
        const std::uint64_t value = generator.Next();
        for (std::size_t j = 0; j < 8; ++j) {
            guid.bytes[i + j] = static_cast<std::uint8_t>(value >> (8 * j));
        }
    }
    guid.bytes[7] = static_cast<std::uint8_t>((guid.bytes[7] & 0x0F) | 0x40);
    guid.bytes[8] = static_cast<std::uint8_t>((guid.bytes[8] & 0x3F) | 0x80);
    return guid;
}

}  // namespace sentrel
