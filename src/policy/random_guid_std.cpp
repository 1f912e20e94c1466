#include <random>

#include "policy/guid.h"

namespace sentrel {

// A version-4 GUID from a per-thread generator seeded by the system's entropy source.
Guid GenerateRandomGuid() {
    thread_local std::mt19937_64 engine{[] {
        std::random_device device;
        std::seed_seq seed{device(), device(), device(), device(), device(), device()};
        return std::mt19937_64(seed);
    }()};
    Guid guid;
    for (std::size_t i = 0; i < guid.bytes.size(); i += 8) {
        const std::uint64_t value = engine();
        for (std::size_t j = 0; j < 8; ++j) {
            guid.bytes[i + j] = static_cast<std::uint8_t>(value >> (8 * j));
        }
    }
    guid.bytes[7] = static_cast<std::uint8_t>((guid.bytes[7] & 0x0F) | 0x40);
    guid.bytes[8] = static_cast<std::uint8_t>((guid.bytes[8] & 0x3F) | 0x80);
    return guid;
}

}  // namespace sentrel
