// SPDX-License-Identifier: Apache-2.0
// The rooms of the tool that have commands.
#ifndef SIDEBAND_TOOLS_ROOMS_H
#define SIDEBAND_TOOLS_ROOMS_H

#include <span>

#include "tools/shell/command_line.h"

namespace tool {

/// What each room puts on the command line, in the order in which help shows it.
std::span<const AddCommands> rooms();

}  // namespace tool

#endif
