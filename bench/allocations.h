// SPDX-License-Identifier: Apache-2.0
// Counts what the process takes from the heap.
#ifndef SIDEBAND_BENCH_ALLOCATIONS_H
#define SIDEBAND_BENCH_ALLOCATIONS_H

#include <cstdint>

namespace bench {

/// Calls of malloc(), calloc(), realloc() and the aligned variants so far, from anywhere.
uint64_t allocations();

}  // namespace bench

#endif
