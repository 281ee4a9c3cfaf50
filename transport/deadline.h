// SPDX-License-Identifier: Apache-2.0
// The time limit of a context, for an operation as a whole.
#ifndef SIDEBAND_TRANSPORT_DEADLINE_H
#define SIDEBAND_TRANSPORT_DEADLINE_H

#include <sideband/mctp.h>

#include <cstdint>

namespace sideband {

/// Milliseconds until the time limit of a context that has one; 0: it has passed.
[[gnu::cold]] uint32_t time_left_ms(const mctp_section& section);

/// Whether the time limit has passed. Most contexts have none.
inline bool is_over(const mctp_section& section) {
    return section.deadline_s != 0 && time_left_ms(section) == 0;
}
inline bool is_over(const mctp_ctx& ctx) {
    return is_over(ctx.section);
}

}  // namespace sideband

#endif
