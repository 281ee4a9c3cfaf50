// SPDX-License-Identifier: Apache-2.0
// Zeroing out of the compiler's sight, by libc.
#include "common/memory.h"

#include <cstring>

void sideband::zero(std::span<uint8_t> bytes) {
    std::memset(bytes.data(), 0, bytes.size());
}
