// SPDX-License-Identifier: Apache-2.0
// The EIDs that this process knows to be in use, and the choice of one that is not.
#ifndef SIDEBAND_TRANSPORT_EID_POOL_H
#define SIDEBAND_TRANSPORT_EID_POOL_H

#include <sideband/mctp.h>

#include <cstdint>

namespace sideband::eid_pool {

/// EIDs 0 to 7 are null and reserved (DSP0236, table 2): an endpoint that reports one has none.
inline constexpr uint8_t kLastReservedEid = 7;
inline constexpr uint8_t kFirstEid = 16;

// What is noted never keeps a context that is not strict from anything. Threads may note at once.

/// EIDs are in use: the BMC has them, an endpoint says so, a caller or a routing table.
void note(uint8_t first, unsigned count = 1);

/// The pool has given an EID to the endpoint at a context's address. It is the endpoint's for as
/// long as the process lives, or until the pool gives it another one.
void note_given(const mctp_ctx& ctx, uint8_t eid);

/// What the pool gives to an endpoint.
struct Choice {
    uint8_t eid;   ///< 0: there is none left
    uint8_t next;  ///< where the pool goes on once the endpoint has it
};

/// Chooses for a strict context: the EID that the endpoint at this address was given before, since
/// it has lost it; or else the first one, from next on and round again, that is not in use, not one
/// of the BMC's, and not the MPIO's or in its range.
Choice choose(const mctp_ctx& ctx, uint8_t next);

}  // namespace sideband::eid_pool

#endif
