// SPDX-License-Identifier: Apache-2.0
// A board's clock that goes with the real one, for those who serve the board to others.
#include "sim/board/real_time.h"

#include <algorithm>
#include <chrono>

namespace sim {

namespace {

constexpr uint64_t kTurnNs = 100'000'000;

}  // namespace

timespec timespec_of(uint64_t nanoseconds) {
    constexpr uint64_t kNsPerSecond = 1'000'000'000;
    return {static_cast<time_t>(nanoseconds / kNsPerSecond),
            static_cast<long>(nanoseconds % kNsPerSecond)};
}

// The clock never goes backwards, so that the difference may wrap: it is only ever added.
RealTime::RealTime(Clock& clock) : clock_(clock), ahead_ns_(clock.now_ns() - real_ns()) {}

uint64_t RealTime::real_ns() {
    using std::chrono::nanoseconds;
    const auto since = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<nanoseconds>(since).count());
}

bool RealTime::follow() {
    clock_.advance_to(real_ns() + ahead_ns_);
    if (clock_.now_ns() < next_turn_ns_) {
        return false;
    }
    next_turn_ns_ = clock_.now_ns() + kTurnNs;
    return true;
}

uint64_t RealTime::time_to_wait(std::initializer_list<std::optional<uint64_t>> others) const {
    const uint64_t now = real_ns() + ahead_ns_;
    uint64_t until = std::min(next_turn_ns_, clock_.next_due().value_or(next_turn_ns_));
    for (const std::optional<uint64_t>& due : others) {
        until = std::min(until, due.value_or(until));
    }
    return until > now ? std::min(until - now, kTurnNs) : 0;
}

}  // namespace sim
