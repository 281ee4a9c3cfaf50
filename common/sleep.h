// SPDX-License-Identifier: Apache-2.0
// Pauses.
#ifndef SIDEBAND_COMMON_SLEEP_H
#define SIDEBAND_COMMON_SLEEP_H

#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "common/clock.h"

namespace sideband {

/// Pauses the calling thread. A signal that the program handles does not end the pause.
[[gnu::noinline]] inline void sleep_us(uint32_t microseconds) {
    constexpr uint32_t kUsPerMs = 1000;
    // The millisecond that has begun counts as a whole: the pause is never too short.
    const int64_t end = monotonic_ms() + microseconds / kUsPerMs + 1;
    while (usleep(microseconds) != 0 && errno == EINTR) {
        const int64_t left_ms = end - monotonic_ms();
        if (left_ms <= 0) {
            break;
        }
        microseconds = static_cast<uint32_t>(left_ms) * kUsPerMs;
    }
}

}  // namespace sideband

#endif
