// SPDX-License-Identifier: Apache-2.0
// The command metrics.
#ifndef SIDEBAND_TOOLS_METRICS_COMMANDS_H
#define SIDEBAND_TOOLS_METRICS_COMMANDS_H

#include <string>
#include <vector>

#include "tools/shell/command.h"

namespace tool {

class Commands;

void add_metrics_commands(const Commands& commands);

/// What is to be read, and where it goes.
struct MetricsWish {
    std::vector<std::string> endpoints;  ///< none: all that are present
    std::string listen;                  ///< an address; empty for standard output
};

void run_metrics(Context& context, const MetricsWish& wish);

}  // namespace tool

#endif
