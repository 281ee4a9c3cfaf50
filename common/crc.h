// SPDX-License-Identifier: Apache-2.0
// CRC-32C, the message integrity check of MCTP messages, and the CRC-32 of package files.
#ifndef SIDEBAND_COMMON_CRC_H
#define SIDEBAND_COMMON_CRC_H

#include <cstddef>
#include <cstdint>
#include <span>

namespace sideband {

/// Bytes of a message's integrity check, the CRC-32C of what is in front of it, little-endian.
inline constexpr size_t kIntegrityCheckSize = 4;

/// Value to start crc32c_update() with.
inline constexpr uint32_t kCrc32cInitial = 0xFFFFFFFFu;
/// What crc32c_update() gives for a message with its integrity check behind it.
inline constexpr uint32_t kCrc32cResidue = 0xB798B438u;

/// Takes in more bytes (Castagnoli polynomial, reflected: 0x82F63B78).
uint32_t crc32c_update(uint32_t crc, std::span<const uint8_t> bytes);

/// The check value once all bytes are in.
inline uint32_t crc32c_final(uint32_t crc) {
    return ~crc;
}

/// The integrity check of a message (DSP0236, message type; NVMe-MI over MCTP): over type byte and
/// body.
inline uint32_t integrity_check(uint8_t type, std::span<const uint8_t> body) {
    return crc32c_final(crc32c_update(crc32c_update(kCrc32cInitial, {&type, 1}), body));
}

/// The CRC-32 of ISO-HDLC and IEEE 802.3 (reflected: 0xEDB88320), continued from crc; 0 to start.
uint32_t crc32(uint32_t crc, std::span<const uint8_t> bytes);

/// The CRC-8 of the SMBus PEC: polynomial 0x07, initial value 0.
uint8_t crc8(std::span<const uint8_t> bytes);

}  // namespace sideband

#endif
