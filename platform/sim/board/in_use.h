// SPDX-License-Identifier: Apache-2.0
// The board that stands under the platform interface of the process.
#ifndef SIDEBAND_SIM_BOARD_IN_USE_H
#define SIDEBAND_SIM_BOARD_IN_USE_H

#include "sim/board/board.h"
#include "sim/board/state.h"

namespace sim {

/// The board in use; null if there is none.
BoardState* in_use();

/// Copies a board's platform record out if that board is the one in use.
void publish_records(const Board& board);

}  // namespace sim

#endif
