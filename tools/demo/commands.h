// SPDX-License-Identifier: Apache-2.0
// The command demo.
#ifndef SIDEBAND_TOOLS_DEMO_COMMANDS_H
#define SIDEBAND_TOOLS_DEMO_COMMANDS_H

#include "tools/shell/command.h"

namespace tool {

class Commands;

void add_demo_commands(const Commands& commands);

void run_demo(Context& context);

}  // namespace tool

#endif
