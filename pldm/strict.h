// SPDX-License-Identifier: Apache-2.0
// What MCTP_STRICT_PLDM makes of an exchange (DSP0240, clause 8).
#ifndef SIDEBAND_PLDM_STRICT_H
#define SIDEBAND_PLDM_STRICT_H

#include <sideband/pldm.h>

#include <cstdint>
#include <span>

namespace sideband {

/// Whether MCTP_STRICT_PLDM is set for the endpoint of a context; one without endpoint has no bits.
inline bool is_strict(const pldm_ctx& ctx) {
    return ctx.mctp != nullptr && (ctx.mctp->strict & MCTP_STRICT_PLDM) != 0;
}

/// mctp_ctx.xfer, and then mctp_ctx.recv as long as what comes does not answer the request.
/// @param request  at least PLDM_HEADER_SIZE bytes
/// @return bytes of the answer; negative if none came within the time limit
int32_t exchange_strictly(mctp_ctx& mctp, std::span<const uint8_t> request,
                          std::span<uint8_t> response);

/// Whether a message is a request of a PLDM type.
/// @param message  at least PLDM_HEADER_SIZE bytes
bool is_request(const uint8_t* message, uint8_t type);

}  // namespace sideband

#endif
