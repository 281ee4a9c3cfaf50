// SPDX-License-Identifier: Apache-2.0
// Table-driven CRC-32C.
#include "common/crc.h"

#include <array>

namespace sideband {
namespace {

constexpr std::array<uint32_t, 256> make_crc32c_table() {
    std::array<uint32_t, 256> table{};
    for (uint32_t byte = 0; byte < table.size(); ++byte) {
        uint32_t crc = byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ ((crc & 1u) != 0 ? 0x82F63B78u : 0u);
        }
        table[byte] = crc;
    }
    return table;
}

constexpr std::array<uint32_t, 256> kCrc32cTable = make_crc32c_table();

}  // namespace

uint32_t crc32c_update(uint32_t crc, std::span<const uint8_t> bytes) {
    for (const uint8_t byte : bytes) {
        crc = (crc >> 8) ^ kCrc32cTable[(crc ^ byte) & 0xFFu];
    }
    return crc;
}

}  // namespace sideband
