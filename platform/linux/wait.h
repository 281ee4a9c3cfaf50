// SPDX-License-Identifier: Apache-2.0
// Waiting for a descriptor until a point in time.
#ifndef SIDEBAND_LINUX_WAIT_H
#define SIDEBAND_LINUX_WAIT_H

#include <cstdint>

namespace machine {

/// Milliseconds of a clock that only runs forward.
int64_t now_ms();

/// Waits until poll() reports something; a signal does not end it.
/// @param events  of poll(), whose errors are reported too
/// @return what was reported; 0 when the time is over
short wait_for(int descriptor, short events, int64_t deadline_ms);

/// Lets so much time pass.
void pause_ms(int milliseconds);

}  // namespace machine

#endif
