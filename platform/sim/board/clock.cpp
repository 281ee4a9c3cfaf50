// SPDX-License-Identifier: Apache-2.0
// Virtual time: a clock that moves only when somebody waits, and what is due on it.
#include "sim/board/clock.h"

#include <algorithm>
#include <utility>

namespace sim {

void Clock::schedule(uint64_t at_ns, std::function<void()> action) {
    due_.emplace(std::max(at_ns, now_ns_), std::move(action));
}

std::optional<uint64_t> Clock::next_due() const {
    if (due_.empty()) {
        return std::nullopt;
    }
    return due_.begin()->first;
}

void Clock::advance_to(uint64_t at_ns) {
    while (!due_.empty() && due_.begin()->first <= at_ns) {
        auto node = due_.extract(due_.begin());
        now_ns_ = std::max(now_ns_, node.key());
        node.mapped()();
    }
    now_ns_ = std::max(now_ns_, at_ns);
}

}  // namespace sim
