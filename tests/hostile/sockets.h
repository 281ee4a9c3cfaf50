// SPDX-License-Identifier: Apache-2.0
// The kernel's MCTP sockets underneath the library, with a simulated board behind them.
#ifndef SIDEBAND_TESTS_HOSTILE_SOCKETS_H
#define SIDEBAND_TESTS_HOSTILE_SOCKETS_H

#include <cstddef>

#include "sim/board/state.h"

namespace hostile {

/// From now on the library's socket calls end here, and wait by the board's clock: what it sends
/// goes to the board as the bridge of a serial line has it, and what devices send comes back
/// through a reassembly of its own. Once for a process. The bridge has EID 8, the devices those
/// behind it.
void put_sockets_before(sim::BoardState& board);

/// Sockets that are open.
size_t open_sockets();

}  // namespace hostile

#endif
