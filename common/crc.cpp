// SPDX-License-Identifier: Apache-2.0
// Table-driven CRC-8, CRC-32C and CRC-32.
#include "common/crc.h"

#include <sideband/mctp.h>

#include <array>

#include "common/wire.h"

namespace sideband {
namespace {

/// What a reflected polynomial makes of each value of the lowest bits.
template <size_t kSize>
constexpr std::array<uint32_t, kSize> make_table(uint32_t reflected_polynomial) {
    std::array<uint32_t, kSize> table{};
    for (uint32_t value = 0; value < kSize; ++value) {
        uint32_t crc = value;
        for (size_t values = kSize; values > 1; values /= 2) {
            crc = (crc >> 1) ^ ((crc & 1u) != 0 ? reflected_polynomial : 0u);
        }
        table[value] = crc;
    }
    return table;
}

/// By bytes: every byte of a large message is under it.
constexpr auto kCrc32cTable = make_table<256>(0x82F63B78u);
/// By half bytes, which take twice as long: it is over the headers of packages and FRU tables.
constexpr auto kCrc32Table = make_table<16>(0xEDB88320u);

constexpr uint32_t crc32c_step(uint32_t crc) {
    return (crc >> 8) ^ kCrc32cTable[crc & 0xFFu];
}

constexpr uint32_t crc32_step(uint32_t crc) {
    return (crc >> 4) ^ kCrc32Table[crc & 0x0Fu];
}

}  // namespace

uint8_t crc8(std::span<const uint8_t> bytes) {
    uint8_t crc = 0;
    for (const uint8_t byte : bytes) {
        crc = CRC8_Table[crc ^ byte];
    }
    return crc;
}

uint32_t crc32c_update(uint32_t crc, std::span<const uint8_t> bytes) {
    // Four bytes a round, which are taken in at once, and the rest one by one.
    constexpr size_t kWord = sizeof crc;
    const uint8_t* from = bytes.data();
    for (size_t words = bytes.size() / kWord; words != 0; --words, from += kWord) {
        crc ^= le32(std::span<const uint8_t, kWord>(from, kWord));
        for (size_t i = 0; i < kWord; ++i) {
            crc = crc32c_step(crc);
        }
    }
    for (size_t rest = bytes.size() % kWord; rest != 0; --rest) {
        crc = crc32c_step(crc ^ *from++);
    }
    return crc;
}

uint32_t crc32(uint32_t crc, std::span<const uint8_t> bytes) {
    crc = ~crc;
    for (const uint8_t byte : bytes) {
        crc = crc32_step(crc32_step(crc ^ byte));
    }
    return ~crc;
}

}  // namespace sideband
