// SPDX-License-Identifier: Apache-2.0
// Command lines, run by the machine's shell.
#ifndef SIDEBAND_LINUX_SHELL_H
#define SIDEBAND_LINUX_SHELL_H

#include <chrono>
#include <string>

namespace machine {

/// Runs a command line that neither reads nor prints, and waits for its end.
/// @param limit  behind it the command and what it has started are killed
/// @return its exit status; 128 and the signal's number where a signal ended it; -1 where it could
///         not be started
int run_quietly(const std::string& command, std::chrono::milliseconds limit);

}  // namespace machine

#endif
