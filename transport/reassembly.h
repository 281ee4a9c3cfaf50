// SPDX-License-Identifier: Apache-2.0
// The reassembly of a message from SMBus packets (DSP0236, clause 8.4).
#ifndef SIDEBAND_TRANSPORT_REASSEMBLY_H
#define SIDEBAND_TRANSPORT_REASSEMBLY_H

#include <sideband/mctp.h>

#include <cstdint>

namespace sideband {

inline bool unit_size_usable(const mctp_ctx& ctx) {
    return ctx.unit_size != 0 && ctx.unit_size <= MCTP_UNIT_SIZE_MAX;
}

/// What a receive does with the message type byte.
enum class TypeByte { kStrip, kDeliver };

/// Receives one message, as mctp_recv_op has it. Locks nothing.
/// @return bytes stored; 0 without a buffer; -1
int32_t receive_message(mctp_ctx& ctx, int32_t capacity, uint8_t* buffer,
                        TypeByte type_byte = TypeByte::kStrip);

}  // namespace sideband

#endif
