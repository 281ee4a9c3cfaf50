// SPDX-License-Identifier: Apache-2.0
// Waiting for a descriptor until a point in time.
#include "platform/linux/wait.h"

#include <poll.h>

#include <cerrno>
#include <ctime>

namespace machine {

int64_t now_ms() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
}

short wait_for(int descriptor, short events, int64_t deadline_ms) {
    for (;;) {
        const int64_t left = deadline_ms - now_ms();
        pollfd waited{.fd = descriptor, .events = events, .revents = 0};
        const int ready = poll(&waited, 1, left > 0 ? static_cast<int>(left) : 0);
        if (ready > 0) {
            return waited.revents;
        }
        if (ready == 0 || errno != EINTR) {
            return 0;
        }
    }
}

void pause_ms(int milliseconds) {
    if (milliseconds > 0) {
        wait_for(-1, 0, now_ms() + milliseconds);
    }
}

}  // namespace machine
