// SPDX-License-Identifier: Apache-2.0
// The command serve.
#ifndef SIDEBAND_TOOLS_SERVE_COMMANDS_H
#define SIDEBAND_TOOLS_SERVE_COMMANDS_H

#include <cstdint>
#include <string>

#include "tools/shell/command.h"

namespace tool {

class Commands;

/// None on a platform whose boards cannot be served.
void add_serve_commands(const Commands& commands);

/// How a board is served.
struct ServeWish {
    std::string tty;   ///< empty for a new pseudo-terminal
    uint8_t eid = 8;   ///< of the bridge
    bool i2c = false;  ///< its buses, instead of a line
};

void run_serve(Context& context, const ServeWish& wish);
void run_serve_buses(Context& context, const ServeWish& wish);

}  // namespace tool

#endif
