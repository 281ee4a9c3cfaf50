// SPDX-License-Identifier: Apache-2.0
// The command batch.
#ifndef SIDEBAND_TOOLS_BATCH_COMMANDS_H
#define SIDEBAND_TOOLS_BATCH_COMMANDS_H

#include <string>

#include "tools/shell/command.h"

namespace tool {

class Commands;

void add_batch_commands(const Commands& commands);

/// Where the commands are, and what becomes of those behind one that fails.
struct BatchWish {
    std::string file;  ///< "-" for standard input
    bool keep_going = false;
};

void run_batch(Context& context, const BatchWish& wish);

}  // namespace tool

#endif
