// SPDX-License-Identifier: Apache-2.0
// Little-endian numbers in messages and records that tests write and read.
#ifndef SIDEBAND_TESTS_SUPPORT_NUMBERS_H
#define SIDEBAND_TESTS_SUPPORT_NUMBERS_H

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "support/bytes.h"

namespace test {

inline Bytes le32(uint32_t value) {
    return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8),
            static_cast<uint8_t>(value >> 16), static_cast<uint8_t>(value >> 24)};
}

inline uint32_t le32_at(const Bytes& bytes, size_t offset) {
    uint32_t value = 0;
    for (size_t i = 4; i-- > 0;) {
        value = value << 8 | bytes.at(offset + i);
    }
    return value;
}

/// A number between this machine's order and that of a decoded record, whose bytes are those of the
/// wire. Both are the same on a little-endian machine.
template <typename Number>
Number wire_order(Number number) {
    if constexpr (std::endian::native == std::endian::little) {
        return number;
    } else {
        auto bytes = std::bit_cast<std::array<uint8_t, sizeof number>>(number);
        std::ranges::reverse(bytes);
        return std::bit_cast<Number>(bytes);
    }
}

}  // namespace test

#endif
