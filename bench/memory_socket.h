// SPDX-License-Identifier: Apache-2.0
// An MCTP socket in memory, next to free: what is measured over it is the library's own work.
#ifndef SIDEBAND_BENCH_MEMORY_SOCKET_H
#define SIDEBAND_BENCH_MEMORY_SOCKET_H

#include <cstddef>
#include <cstdint>

namespace bench {

/**
 * Prepares the answer that comes to every request from now on: a message body, which has to stay
 * where it is. Only the PLDM instance ID of the latest request is put in.
 */
void prepare_socket_answer(const uint8_t* body, size_t length);

}  // namespace bench

#endif
