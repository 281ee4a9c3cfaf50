// SPDX-License-Identifier: Apache-2.0
// Ctrl-C as a wish that a command looks at, instead of the end of the process.
#ifndef SIDEBAND_TOOLS_INTERRUPT_H
#define SIDEBAND_TOOLS_INTERRUPT_H

#include <csignal>

namespace tool {

/// While one stands, the first SIGINT or SIGTERM is noted. The second one ends the process as ever,
/// for those who do not want to wait. One stands at a time.
class InterruptGuard {
public:
    InterruptGuard();
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

    /// Whether one has come.
    static bool pending();

private:
    struct sigaction interrupt_ {};
    struct sigaction terminate_ {};
};

}  // namespace tool

#endif
