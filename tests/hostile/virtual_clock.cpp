// SPDX-License-Identifier: Apache-2.0
// The library's clocks go with a simulated board's.
#include "virtual_clock.h"

#include <time.h>

#include <cstdint>

#include "support/offset_table.h"

namespace hostile {

namespace {

const sim::Clock* told = nullptr;

int tell_time(clockid_t /*clock*/, timespec* now) {
    constexpr uint64_t kNsPerS = 1'000'000'000;
    constexpr uint64_t kUptimeS = 100;
    const uint64_t ns = told->now_ns();
    now->tv_sec = static_cast<time_t>(kUptimeS + ns / kNsPerS);
    now->tv_nsec = static_cast<long>(ns % kNsPerS);
    return 0;
}

}  // namespace

void tell_time_of(const sim::Clock& clock) {
    static test::Substitute substitutes[] = {
        {"clock_gettime", test::address_of(tell_time)},
        {"__clock_gettime64", test::address_of(tell_time)},
    };
    told = &clock;
    test::patch_offsets(substitutes);
}

}  // namespace hostile
