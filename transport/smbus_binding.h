// SPDX-License-Identifier: Apache-2.0
// A block that a device has written to the BMC, and the MCTP packet in it (DSP0237, clause 6).
#ifndef SIDEBAND_TRANSPORT_SMBUS_BINDING_H
#define SIDEBAND_TRANSPORT_SMBUS_BINDING_H

#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <array>
#include <cstdint>

#include "common/error.h"
#include "common/memory.h"

namespace sideband {

/// What the platform's slave read stores: command code, byte count, source address, packet, PEC.
/// It is in words, since it is cleared for each packet.
class SlaveBlock {
public:
    static constexpr size_t kSize = PLT_I2C_READ_BUFFER_SIZE;

    uint8_t* data() { return reinterpret_cast<uint8_t*>(words_.data()); }
    const uint8_t* data() const { return reinterpret_cast<const uint8_t*>(words_.data()); }

    void clear();
    /// Clears the first size bytes, and perhaps some behind them. One round does for the usual
    /// packet of 64 bytes.
    void clear_packet(size_t size) { clear_rounds<128>(size); }

private:
    template <size_t kRound>
    void clear_rounds(size_t size) {
        static_assert(kSize % kRound == 0);
        uint8_t* at = data();
        const uint8_t* const end = at + size;
        do {
            sideband::clear<kRound>(at);
            at += kRound;
        } while (at < end);
    }

    std::array<uint64_t, kSize / sizeof(uint64_t)> words_;
};
/// A received block has no destination address in front.
inline constexpr int32_t kBlockHeaderSize = 3;
inline constexpr int32_t kPecSize = 1;

/// Waits for a block.
/// @param length  bytes of the packet that are wanted, 0 to 252
/// @param block   zeros, as the platform's read is promised
/// @return bytes of the block, at least those around a packet; negative on failure, as
///         smbus_block_read() has it
inline int32_t read_block(mctp_section& section, int32_t length, SlaveBlock& block) {
    plt_i2c_request request;
    clear<sizeof request>(&request);
    request.bus = section.bus;
    request.slave_addr = section.slave_addr;
    request.read_length = static_cast<uint8_t>(length + kBlockHeaderSize);
    request.read_buffer = block.data();
    SetI2CMux(&request, section.mux);
    // The analyzer does not follow clear(), which writes wider words than the members are.
    // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage)
    const int32_t received = PltMCTPI2C_SlaveReadWithPEC_NoMutex(request, section.route);
    if (received < 0) {
        fail_by_platform(section.last_error, received, SIDEBAND_CAUSE_NO_ANSWER);
        return received;
    }
    const bool has_room = received >= kBlockHeaderSize + kPecSize;
    return has_room && received <= PLT_I2C_READ_BUFFER_SIZE
               ? received
               : fail(section.last_error, SIDEBAND_CAUSE_MALFORMED);
}

/// Bytes of the packet in a block, behind its header.
inline int32_t packet_length(int32_t received) {
    return received - kBlockHeaderSize - kPecSize;
}

/// Whether a block is what DSP0237 makes of an MCTP packet (clause 6.2): its byte count is that of
/// source address and packet, and bit 0 of the source address is set. MCTP_STRICT_PACKETS takes no
/// other for a packet.
bool is_mctp_block(const SlaveBlock& block, int32_t received);

}  // namespace sideband

#endif
