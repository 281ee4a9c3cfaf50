// SPDX-License-Identifier: Apache-2.0
// What the board file of a Linux machine says of I2C buses and multiplexers.
#ifndef SIDEBAND_LINUX_BOARD_BUSES_H
#define SIDEBAND_LINUX_BOARD_BUSES_H

#include <string>

#include "platform/linux/board.h"

namespace machine {

/// A path from the root on.
std::string read_path(board_file::ObjectReader& reader, const std::string& key);

/// Paths of buses that are not described.
void read_i2c(Board& board, const board_file::Place& place);
void read_bus(Board& board, const board_file::Place& place);

/// The multiplexers in front of a device, by its key "mux", and those that lead elsewhere.
MuxSetting read_mux_setting(const Board& board, uint8_t bus, board_file::ObjectReader& reader);

}  // namespace machine

#endif
