// SPDX-License-Identifier: Apache-2.0
// The question before a command destroys something.
#include "tools/shell/confirm.h"

#include <unistd.h>

#include <iostream>

#include "tools/shell/failure.h"
#include "tools/shell/interrupt.h"
#include "tools/shell/text.h"
#include "tools/shell/time_limit.h"

namespace tool {

void confirm(const Output& output, bool yes, const std::string& what) {
    if (yes) {
        return;
    }
    if (output.json() || isatty(STDIN_FILENO) == 0) {
        throw Failure(ExitStatus::kUsage, what + ": this needs --yes");
    }
    // Not on standard output: that may be a file.
    std::cerr << printable(what) << ". Go on? [y/N] " << std::flush;
    // A read begins anew after a signal, this wait does not.
    SignalWatch::wait_for_input(STDIN_FILENO);
    std::string answer;
    std::getline(std::cin, answer);
    TimeLimit::begin_again();
    if (answer != "y" && answer != "Y" && answer != "yes") {
        throw Failure(ExitStatus::kUsage, "not confirmed: nothing was done");
    }
}

}  // namespace tool
