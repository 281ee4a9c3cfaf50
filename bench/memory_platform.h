// SPDX-License-Identifier: Apache-2.0
// A platform library in memory, next to free: what is measured over it is the library's own work.
#ifndef SIDEBAND_BENCH_MEMORY_PLATFORM_H
#define SIDEBAND_BENCH_MEMORY_PLATFORM_H

#include <cstddef>
#include <cstdint>

namespace bench {

/// Room for the longest answer: 4096 bytes and a header in packets of 64, and some.
inline constexpr size_t kPacketsMax = 80;

/**
 * Prepares the answer that the device on every bus gives from now on, over and over: a message of
 * the given type and body, in packets of unit_size bytes. Slave reads hand the packets out in turn;
 * only the message tag and the PLDM instance ID of the latest request are put in as they go.
 */
void prepare_answer(uint8_t type, const uint8_t* body, size_t length, size_t unit_size);

/// Packets written since prepare_answer().
uint64_t packets_written();

}  // namespace bench

#endif
