// SPDX-License-Identifier: Apache-2.0
// The command line of the command demo.
#include "tools/demo/commands.h"

#include "tools/shell/commands.h"

namespace tool {

void add_demo_commands(const Commands& commands) {
    if (Port::is_simulated()) {
        commands.add(commands.top(), "demo", "a tour of the whole board", run_demo);
    }
}

}  // namespace tool
