// SPDX-License-Identifier: Apache-2.0
// A board's clock that goes with the real one, for those who serve the board to others.
#ifndef SIDEBAND_SIM_BOARD_REAL_TIME_H
#define SIDEBAND_SIM_BOARD_REAL_TIME_H

#include <time.h>

#include <cstdint>
#include <initializer_list>
#include <optional>

#include "sim/board/clock.h"

namespace sim {

/// A length of time as the kernel takes it.
timespec timespec_of(uint64_t nanoseconds);

class RealTime {
public:
    /// From now on, and from where the board's clock is.
    explicit RealTime(Clock& clock);

    /// Brings the clock up to the real one.
    /// @return whether it is time for the devices to act by themselves: ten times a second
    bool follow();

    /// Nanoseconds until something is due on the clock, at one of the given times, or for the
    /// devices; a tenth of a second at most.
    uint64_t time_to_wait(std::initializer_list<std::optional<uint64_t>> others = {}) const;

private:
    static uint64_t real_ns();

    Clock& clock_;
    uint64_t ahead_ns_;          ///< the board's clock less the real one
    uint64_t next_turn_ns_ = 0;  ///< when the devices act by themselves again
};

}  // namespace sim

#endif
