// SPDX-License-Identifier: Apache-2.0
// Ctrl-C, SIGTERM and SIGHUP as a wish that the tool looks at, instead of the end of the process.
#ifndef SIDEBAND_TOOLS_SHELL_INTERRUPT_H
#define SIDEBAND_TOOLS_SHELL_INTERRUPT_H

#include <csignal>

namespace tool {

/// Ends a command that a signal is to end. No Failure, so that nothing goes on behind it.
struct Interrupted {};

/// While one stands, the first SIGINT, SIGTERM or SIGHUP is noted and begins nothing any more: the
/// exchange on the wire ends as it would have, locks are given back, a capture is completed. The
/// second one ends the process as ever, for those who do not want to wait. A signal that is ignored
/// (nohup) stays so. One stands at a time, for the whole of a command.
class SignalWatch {
public:
    SignalWatch();
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    /// The signal that has come, unless the command ends by itself because of it; 0 for none.
    static int signal();

    /// Throws Interrupted if a signal has come. Not to be called from below the library.
    static void check();

    /// Waits until there is something to read, or throws Interrupted.
    static void wait_for_input(int descriptor);

private:
    friend class InterruptGuard;
    static bool poll(int descriptor, short events, const timespec* limit);

    static constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
    struct sigaction before_[3]{};
};

/// While one stands, the command itself ends properly because of a signal: exchanges go on, and the
/// process is not ended by the signal afterwards. One stands at a time.
class InterruptGuard {
public:
    InterruptGuard();
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

    /// Whether one has come.
    static bool pending();

    /// Waits until a descriptor is ready, the time is over or a signal has come. -1 for none: a
    /// pause.
    /// @param events  POLLIN, POLLOUT
    /// @return whether it is ready
    static bool wait_until_ready(int descriptor, short events, int milliseconds);
};

}  // namespace tool

#endif
