// SPDX-License-Identifier: Apache-2.0
// Little-endian numbers in messages that tests write and read.
#ifndef SIDEBAND_TESTS_SUPPORT_NUMBERS_H
#define SIDEBAND_TESTS_SUPPORT_NUMBERS_H

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

}  // namespace test

#endif
