// SPDX-License-Identifier: Apache-2.0
// Virtual time: a clock that moves only when somebody waits, and what is due on it.
#ifndef SIDEBAND_SIM_BOARD_CLOCK_H
#define SIDEBAND_SIM_BOARD_CLOCK_H

#include <cstdint>
#include <functional>
#include <map>
#include <optional>

namespace sim {

inline constexpr uint64_t kNsPerMs = 1'000'000;

class Clock {
public:
    /// What a calendar shows when virtual time begins: 2025-01-01 00:00:00 UTC, in seconds. Fixed,
    /// so that runs can be compared.
    static constexpr uint64_t kStartOfTimeS = 1'735'689'600;

    uint64_t now_ns() const { return now_ns_; }
    uint64_t now_us() const { return now_ns_ / 1000; }
    double now_s() const { return static_cast<double>(now_ns_) * 1e-9; }

    /// Runs an action when the clock reaches a time. Actions due at one time run in the order
    /// in which they were scheduled. A time that has passed counts as now.
    void schedule(uint64_t at_ns, std::function<void()> action);

    /// When the next action is due.
    std::optional<uint64_t> next_due() const;

    /// Moves the clock forward, running what comes due on the way. Never backwards.
    void advance_to(uint64_t at_ns);

private:
    uint64_t now_ns_ = 0;
    std::multimap<uint64_t, std::function<void()>> due_;
};

}  // namespace sim

#endif
