// SPDX-License-Identifier: Apache-2.0
// A block that a device has written to the BMC, and the MCTP packet in it (DSP0237, clause 6).
#ifndef SIDEBAND_TRANSPORT_SMBUS_BINDING_H
#define SIDEBAND_TRANSPORT_SMBUS_BINDING_H

#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <array>
#include <cstdint>

namespace sideband {

/// What the platform's slave read stores: command code, byte count, source address, packet, PEC.
using SlaveBlock = std::array<uint8_t, PLT_I2C_READ_BUFFER_SIZE>;
inline constexpr size_t kBlockHeaderSize = 3;
inline constexpr int32_t kPecSize = 1;

/// Waits for a block.
/// @param length  bytes of the packet that are wanted, 0 to 252
/// @param block   zeros, as the platform's read is promised
/// @return bytes of the block, at least those around a packet; negative on failure, as
///         smbus_block_read() has it
int32_t read_block(const mctp_section& section, int32_t length, SlaveBlock& block);

/// Bytes of the packet in a block, behind its header.
inline int32_t packet_length(int32_t received) {
    return received - static_cast<int32_t>(kBlockHeaderSize) - kPecSize;
}

/// Whether a block is what DSP0237 makes of an MCTP packet (clause 6.2): its byte count is that of
/// source address and packet, and bit 0 of the source address is set. MCTP_STRICT_PACKETS takes no
/// other for a packet.
bool is_mctp_block(const SlaveBlock& block, int32_t received);

}  // namespace sideband

#endif
