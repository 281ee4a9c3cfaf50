// SPDX-License-Identifier: Apache-2.0
// Random numbers of one case of the campaign: the same on every machine.
#ifndef SIDEBAND_TESTS_HOSTILE_RANDOM_H
#define SIDEBAND_TESTS_HOSTILE_RANDOM_H

#include <cstdint>

namespace hostile {

class Random {
public:
    Random(uint64_t seed, uint64_t index) : state_(seed * 0x9E3779B97F4A7C15u ^ index) { next(); }

    uint64_t next() {
        uint64_t z = state_ += 0x9E3779B97F4A7C15u;
        z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9u;
        z = (z ^ z >> 27) * 0x94D049BB133111EBu;
        return z ^ z >> 31;
    }
    /// @return 0 to end - 1
    uint32_t below(uint32_t end) { return static_cast<uint32_t>((next() >> 16) % end); }
    bool one_of(uint32_t times) { return below(times) == 0; }
    uint8_t byte() { return static_cast<uint8_t>(next() >> 8); }
    uint32_t word() { return static_cast<uint32_t>(next() >> 8); }

private:
    uint64_t state_;
};

}  // namespace hostile

#endif
