// SPDX-License-Identifier: Apache-2.0
// The time limit of a context, for an operation as a whole.
#include "transport/deadline.h"

#include <algorithm>
#include <ctime>

namespace {

constexpr uint32_t kMsPerS = 1000;
constexpr long kNsPerMs = 1000000;

/// A clock that nobody sets, in a form that costs next to nothing; to the tick of the system.
timespec now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return time;
}

}  // namespace

uint32_t sideband::time_left_ms(const mctp_section& section) {
    const timespec time = now();
    const int64_t seconds = int64_t{section.deadline_s} - time.tv_sec;
    const int64_t left = seconds * kMsPerS + section.deadline_ms - time.tv_nsec / kNsPerMs;
    return static_cast<uint32_t>(std::clamp<int64_t>(left, 0, UINT32_MAX));
}

void mctp_set_deadline(mctp_ctx* ctx, uint32_t ms_from_now) {
    if (ctx == nullptr) {
        return;
    }
    ctx->deadline_s = 0;
    ctx->deadline_ms = 0;
    if (ms_from_now != 0) {
        const timespec time = now();
        const uint64_t end = static_cast<uint64_t>(time.tv_sec) * kMsPerS +
                             static_cast<uint32_t>(time.tv_nsec / kNsPerMs) + ms_from_now;
        const auto seconds = static_cast<uint32_t>(end / kMsPerS);
        ctx->deadline_s = seconds;
        ctx->deadline_ms = static_cast<uint16_t>(end - uint64_t{seconds} * kMsPerS);
        if (seconds == 0) {
            // In the first second of the machine: 0 would stand for no limit at all.
            ctx->deadline_s = 1;
            ctx->deadline_ms = 0;
        }
    }
}
