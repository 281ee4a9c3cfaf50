// SPDX-License-Identifier: Apache-2.0
// The commands board.
#ifndef SIDEBAND_TOOLS_BOARD_COMMANDS_H
#define SIDEBAND_TOOLS_BOARD_COMMANDS_H

#include <string>

#include "tools/shell/command.h"

namespace tool {

class Commands;

/// None on a platform whose boards are not simulated.
void add_board_commands(const Commands& commands);

/// @param path  a board file
void run_board_check(Context& context, const std::string& path);
void run_board_dump(Context& context);

}  // namespace tool

#endif
