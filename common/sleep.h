// SPDX-License-Identifier: Apache-2.0
// Pauses.
#ifndef SIDEBAND_COMMON_SLEEP_H
#define SIDEBAND_COMMON_SLEEP_H

#include <unistd.h>

#include <cstdint>

namespace sideband {

/// Pauses the calling thread.
inline void sleep_us(uint32_t microseconds) {
    usleep(microseconds);
}

}  // namespace sideband

#endif
