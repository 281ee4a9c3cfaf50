// SPDX-License-Identifier: Apache-2.0
// The question before a command destroys something.
#ifndef SIDEBAND_TOOLS_SHELL_CONFIRM_H
#define SIDEBAND_TOOLS_SHELL_CONFIRM_H

#include <string>

#include "tools/shell/output.h"

namespace tool {

/// Asks on the terminal whether a command shall go on. Throws Failure, usage, if the answer is
/// not yes, and if there is nobody to ask.
/// @param yes   the user has agreed on the command line
/// @param what  it destroys, as the beginning of a sentence
void confirm(const Output& output, bool yes, const std::string& what);

}  // namespace tool

#endif
