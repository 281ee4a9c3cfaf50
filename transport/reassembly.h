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

/// Which message a receive waits for. The last two are looked at by strict contexts alone. As a
/// word it travels in a register.
struct alignas(uint32_t) Wanted {
    bool type_byte = false;    ///< deliver it too; it may be any then
    bool answer_only = false;  ///< no request of the endpoint's own
    uint8_t also_from = 0;     ///< an EID that the endpoint may have beside dest_eid; 0: none
};

/// Receives one message, as mctp_recv_op has it. Locks nothing.
/// @return bytes stored; 0 without a buffer; -1
int32_t receive_message(mctp_ctx& ctx, int32_t capacity, uint8_t* buffer, Wanted wanted = {});

}  // namespace sideband

#endif
