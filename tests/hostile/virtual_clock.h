// SPDX-License-Identifier: Apache-2.0
// The library's clocks go with a simulated board's.
#ifndef SIDEBAND_TESTS_HOSTILE_VIRTUAL_CLOCK_H
#define SIDEBAND_TESTS_HOSTILE_VIRTUAL_CLOCK_H

#include "sim/board/clock.h"

namespace hostile {

/// From now on clock_gettime() tells the library the time of a board, whatever clock it asks for:
/// otherwise how long the machine takes would have a say in what a case does. Once for a process.
void tell_time_of(const sim::Clock& clock);

}  // namespace hostile

#endif
