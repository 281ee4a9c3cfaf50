// SPDX-License-Identifier: Apache-2.0
// CRC-32C, the message integrity check of MCTP messages.
#ifndef SIDEBAND_COMMON_CRC_H
#define SIDEBAND_COMMON_CRC_H

#include <cstdint>
#include <span>

namespace sideband {

/// Value to start crc32c_update() with.
inline constexpr uint32_t kCrc32cInitial = 0xFFFFFFFFu;

/// Takes in more bytes (Castagnoli polynomial, reflected: 0x82F63B78).
uint32_t crc32c_update(uint32_t crc, std::span<const uint8_t> bytes);

/// The check value once all bytes are in.
inline uint32_t crc32c_final(uint32_t crc) {
    return ~crc;
}

}  // namespace sideband

#endif
