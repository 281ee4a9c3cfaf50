// SPDX-License-Identifier: Apache-2.0
// The time that nobody sets.
#ifndef SIDEBAND_COMMON_CLOCK_H
#define SIDEBAND_COMMON_CLOCK_H

#include <cstdint>
#include <ctime>

namespace sideband {

/// Milliseconds since some point in the past. Not inline: the library has it once.
[[gnu::noinline]] inline int64_t monotonic_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

}  // namespace sideband

#endif
