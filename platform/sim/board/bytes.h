// SPDX-License-Identifier: Apache-2.0
// Byte strings of the simulated board: fields of either byte order, hex text, checksums.
#ifndef SIDEBAND_SIM_BOARD_BYTES_H
#define SIDEBAND_SIM_BOARD_BYTES_H

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/board_file/hex.h"

namespace sim {

using board_file::Bytes;
using board_file::ByteView;
using board_file::from_hex;
using board_file::to_hex;

void append(Bytes& out, ByteView more);
void append_le16(Bytes& out, uint16_t value);
void append_le32(Bytes& out, uint32_t value);
void append_be16(Bytes& out, uint16_t value);
void append_be32(Bytes& out, uint32_t value);
/// The low bytes of a whole number, which may be negative.
void append_whole(Bytes& out, double value, size_t width);
/// real32: the bits of a single-precision number.
void append_real32(Bytes& out, double value);

/// Writes a little-endian field of up to 8 bytes over what stands there; it has to fit.
void put_le(Bytes& out, size_t offset, uint64_t value, size_t width);
/// Writes a text over what stands there, padded with spaces or cut to its width.
void put_text(Bytes& out, size_t offset, std::string_view text, size_t width);

/// Read little-endian fields; the caller has checked the length.
uint16_t le16(ByteView bytes, size_t offset);
uint32_t le32(ByteView bytes, size_t offset);
uint64_t le64(ByteView bytes, size_t offset);

/// Read big-endian fields; likewise.
uint16_t be16(ByteView bytes, size_t offset);
uint32_t be32(ByteView bytes, size_t offset);

/// "0x3a"
std::string hex_byte(uint8_t value);
/// PCIe bus, device and function as "47:00.0"
std::string bdf_text(const std::array<uint8_t, 3>& bdf);

/// SMBus PEC (SMBus 3.2, clause 6.4): polynomial x^8 + x^2 + x + 1.
uint8_t smbus_pec(ByteView bytes);
/// CRC-32 of IEEE 802.3, as DSP0240 asks for after version data.
uint32_t crc32(ByteView bytes);
/// CRC-32C, the message integrity check of NVMe-MI (clause 3.1.1.1).
uint32_t crc32c(ByteView bytes);

}  // namespace sim

#endif
