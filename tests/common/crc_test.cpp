// SPDX-License-Identifier: Apache-2.0
// CRC-8, CRC-32C and CRC-32 against their published check values and against a sum bit by bit.
#include "common/crc.h"

#include <gtest/gtest.h>

#include <string_view>

#include "support/bytes.h"

namespace {

using test::Bytes;

Bytes bytes_of(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

uint32_t crc32c(std::span<const uint8_t> bytes) {
    return sideband::crc32c_final(sideband::crc32c_update(sideband::kCrc32cInitial, bytes));
}

/// CRC-32 bit by bit.
uint32_t slow_crc32(std::span<const uint8_t> bytes) {
    uint32_t crc = 0xFFFFFFFF;
    for (const uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; bit++) {
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
        }
    }
    return ~crc;
}

TEST(Crc, GivesTheCheckValuesOfTheAlgorithms) {
    const Bytes digits = bytes_of("123456789");
    EXPECT_EQ(crc32c(digits), 0xE3069283);
    EXPECT_EQ(sideband::crc32(0, digits), 0xCBF43926);
    EXPECT_EQ(sideband::crc8(digits), 0xF4);
}

TEST(Crc, OfNothingIs0) {
    EXPECT_EQ(crc32c({}), 0u);
    EXPECT_EQ(sideband::crc32(0, {}), 0u);
}

TEST(Crc, OfEveryLengthIsThatOfTheSumBitByBit) {
    const Bytes bytes = test::counting(300, 0x5A);
    for (size_t length = 0; length <= bytes.size(); length++) {
        const auto part = std::span(bytes).first(length);
        EXPECT_EQ(crc32c(part), test::crc32c(part)) << length;
        EXPECT_EQ(sideband::crc32(0, part), slow_crc32(part)) << length;
    }
}

TEST(Crc, GoesOnFromAnyPlaceInTheBytes) {
    const Bytes bytes = test::counting(40, 0xC3);
    for (size_t place = 0; place <= bytes.size(); place++) {
        const auto first = std::span(bytes).first(place);
        const auto rest = std::span(bytes).subspan(place);
        EXPECT_EQ(sideband::crc32(sideband::crc32(0, first), rest), slow_crc32(bytes)) << place;
        const uint32_t halfway = sideband::crc32c_update(sideband::kCrc32cInitial, first);
        EXPECT_EQ(sideband::crc32c_final(sideband::crc32c_update(halfway, rest)),
                  test::crc32c(bytes))
            << place;
    }
}

}  // namespace
