// SPDX-License-Identifier: Apache-2.0
// Ctrl-C, SIGTERM and SIGHUP as a wish that the tool looks at, instead of the end of the process.
#include "tools/shell/interrupt.h"

#include <poll.h>

#include <iterator>

namespace tool {
namespace {

volatile std::sig_atomic_t noted = 0;
bool guarded = false;

void note(int signal) {
    noted = signal;
}

void install(int signal) {
    struct sigaction action {};
    action.sa_handler = note;
    sigemptyset(&action.sa_mask);
    // Restarted: what the tool and the library write must not come out cut.
    action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
    sigaction(signal, &action, nullptr);
}

}  // namespace

SignalWatch::SignalWatch() {
    for (size_t i = 0; i < std::size(kSignals); ++i) {
        sigaction(kSignals[i], nullptr, &before_[i]);
        if (before_[i].sa_handler != SIG_IGN) {
            install(kSignals[i]);
        }
    }
}

SignalWatch::~SignalWatch() {
    for (size_t i = 0; i < std::size(kSignals); ++i) {
        sigaction(kSignals[i], &before_[i], nullptr);
    }
}

int SignalWatch::signal() {
    return guarded ? 0 : noted;
}

void SignalWatch::check() {
    if (signal() != 0) {
        throw Interrupted{};
    }
}

bool SignalWatch::poll(int descriptor, short events, const timespec* limit) {
    sigset_t held;
    sigset_t before;
    sigemptyset(&held);
    for (const int signal : kSignals) {
        sigaddset(&held, signal);
    }
    pollfd waiting{.fd = descriptor, .events = events, .revents = 0};
    // Held until the wait has begun: one that came just before would not end it.
    sigprocmask(SIG_BLOCK, &held, &before);
    const bool ready = noted == 0 && ppoll(&waiting, 1, limit, &before) > 0;
    sigprocmask(SIG_SETMASK, &before, nullptr);
    return ready;
}

void SignalWatch::wait_for_input(int descriptor) {
    poll(descriptor, POLLIN, nullptr);
    check();
}

InterruptGuard::InterruptGuard() {
    guarded = true;
}

/// The command has made of the signal what was to be made of it; the next one is another.
InterruptGuard::~InterruptGuard() {
    guarded = false;
    if (noted != 0) {
        install(noted);
        noted = 0;
    }
}

bool InterruptGuard::pending() {
    return noted != 0;
}

bool InterruptGuard::wait_until_ready(int descriptor, short events, int milliseconds) {
    constexpr int kMilli = 1000;
    const timespec limit{.tv_sec = milliseconds / kMilli,
                         .tv_nsec = milliseconds % kMilli * 1000000L};
    return SignalWatch::poll(descriptor, events, &limit);
}

}  // namespace tool
