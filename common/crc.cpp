// SPDX-License-Identifier: Apache-2.0
// Table-driven CRC-8, CRC-32C and CRC-32.
#include "common/crc.h"

#include <sideband/mctp.h>

#include <array>

#include "common/wire.h"

namespace sideband {
namespace {

using Table = std::array<uint32_t, 256>;

constexpr Table make_table(uint32_t reflected_polynomial) {
    Table table{};
    for (uint32_t byte = 0; byte < table.size(); ++byte) {
        uint32_t crc = byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ ((crc & 1u) != 0 ? reflected_polynomial : 0u);
        }
        table[byte] = crc;
    }
    return table;
}

constexpr Table kCrc32cTable = make_table(0x82F63B78u);
constexpr Table kCrc32Table = make_table(0xEDB88320u);

constexpr uint32_t step(const Table& table, uint32_t crc, uint8_t byte) {
    return (crc >> 8) ^ table[(crc ^ byte) & 0xFFu];
}

/// Four bytes a round, which are taken in at once, and the rest one by one.
uint32_t update(const Table& table, uint32_t crc, std::span<const uint8_t> bytes) {
    constexpr size_t kWord = sizeof crc;
    const uint8_t* from = bytes.data();
    for (size_t words = bytes.size() / kWord; words != 0; --words, from += kWord) {
        crc ^= le32(std::span<const uint8_t, kWord>(from, kWord));
        for (size_t i = 0; i < kWord; ++i) {
            crc = step(table, crc, 0);
        }
    }
    for (size_t rest = bytes.size() % kWord; rest != 0; --rest) {
        crc = step(table, crc, *from++);
    }
    return crc;
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
    return update(kCrc32cTable, crc, bytes);
}

uint32_t crc32(uint32_t crc, std::span<const uint8_t> bytes) {
    return ~update(kCrc32Table, ~crc, bytes);
}

}  // namespace sideband
