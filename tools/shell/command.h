// SPDX-License-Identifier: Apache-2.0
// What every command is given.
#ifndef SIDEBAND_TOOLS_SHELL_COMMAND_H
#define SIDEBAND_TOOLS_SHELL_COMMAND_H

#include <string>

#include "tools/shell/failure.h"
#include "tools/shell/json.h"
#include "tools/shell/output.h"
#include "tools/shell/port.h"
#include "tools/shell/time_limit.h"

namespace tool {

/// What a command works with. The functions run_...() are the commands; each throws Failure if it
/// cannot go on.
struct Context {
    Port& port;
    Output& output;
    std::string command;  ///< its words, e.g. "pldm info"
    ExitStatus status = ExitStatus::kDone;

    /// Reports a failure after which the command goes on.
    void report(const Failure& failure) {
        status = failure.status();
        if (!is_out_of_time(failure) || TimeLimit::is_news()) {
            output.error(command, failure);
        }
    }
};

/// The arguments of a command for one endpoint. A command that has more of them derives its own.
struct EndpointArguments {
    std::string endpoint;  ///< as find_endpoint() reads it
};

}  // namespace tool

#endif
