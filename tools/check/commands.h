// SPDX-License-Identifier: Apache-2.0
// The command check.
#ifndef SIDEBAND_TOOLS_CHECK_COMMANDS_H
#define SIDEBAND_TOOLS_CHECK_COMMANDS_H

#include <string>

#include "tools/shell/command.h"

namespace tool {

class Commands;

void add_check_commands(const Commands& commands);

/// What is to be checked, and how.
struct CheckWish {
    std::string endpoint;  ///< empty only if the rules are listed
    std::string rule;      ///< how the names of those that are tried begin; empty for all
    std::string junit;     ///< a file for the report in XML; empty for none
    bool list = false;
    bool write = false;  ///< rules that change something are tried too
};

void run_check(Context& context, const CheckWish& wish);

}  // namespace tool

#endif
