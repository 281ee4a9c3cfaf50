// SPDX-License-Identifier: Apache-2.0
// Ctrl-C as a wish that a command looks at, instead of the end of the process.
#include "tools/interrupt.h"

namespace tool {
namespace {

volatile std::sig_atomic_t noted = 0;

void note(int) {
    noted = 1;
}

}  // namespace

InterruptGuard::InterruptGuard() {
    noted = 0;
    struct sigaction action {};
    action.sa_handler = note;
    sigemptyset(&action.sa_mask);
    // Restarted: what the tool and the library write must not come out cut.
    action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
    sigaction(SIGINT, &action, &interrupt_);
    sigaction(SIGTERM, &action, &terminate_);
}

InterruptGuard::~InterruptGuard() {
    sigaction(SIGINT, &interrupt_, nullptr);
    sigaction(SIGTERM, &terminate_, nullptr);
}

bool InterruptGuard::pending() {
    return noted != 0;
}

}  // namespace tool
