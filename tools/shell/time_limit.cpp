// SPDX-License-Identifier: Apache-2.0
// The time limit of a command: --timeout.
#include "tools/shell/time_limit.h"

#include <algorithm>
#include <cmath>

#include "tools/shell/cause.h"

namespace tool {
namespace {

constexpr uint64_t kUsPerMs = 1000;

/// What the library keeps of a call that came too late.
sideband_error deadline_error() {
    sideband_error error{};
    error.cause = SIDEBAND_CAUSE_DEADLINE;
    return error;
}

}  // namespace

TimeLimit::TimeLimit(const Port& port, std::optional<double> seconds)
    : port_(port), outer_(innermost_) {
    if (seconds) {
        length_us_ = static_cast<uint64_t>(std::llround(*seconds * 1e6));
        end_us_ = port.now_us() + *length_us_;
    }
    innermost_ = this;
}

TimeLimit::~TimeLimit() {
    innermost_ = outer_;
}

void TimeLimit::begin_again() {
    if (innermost_ != nullptr && innermost_->length_us_) {
        innermost_->end_us_ = innermost_->port_.now_us() + *innermost_->length_us_;
        innermost_->told_ = false;
    }
}

std::optional<uint64_t> TimeLimit::left_us() {
    std::optional<uint64_t> least;
    for (const TimeLimit* limit = innermost_; limit != nullptr && !lifted_; limit = limit->outer_) {
        if (limit->length_us_) {
            const uint64_t now = limit->port_.now_us();
            const uint64_t left = limit->end_us_ - std::min(limit->end_us_, now);
            least = std::min(least.value_or(left), left);
        }
    }
    return least;
}

bool TimeLimit::passed() {
    return left_us() == 0;
}

void TimeLimit::check(const std::string& endpoint, const std::string& operation) {
    if (passed()) {
        throw out_of_time(endpoint, operation);
    }
}

/// The library counts milliseconds: by its clock a limit can be over a moment before it is by the
/// port's. The one that ends first is over as soon as anything has failed of it.
bool TimeLimit::is_news() {
    uint64_t first_end_us = UINT64_MAX;
    for (const TimeLimit* limit = innermost_; limit != nullptr; limit = limit->outer_) {
        first_end_us = limit->length_us_ ? std::min(first_end_us, limit->end_us_) : first_end_us;
    }
    bool news = false;
    for (TimeLimit* limit = innermost_; limit != nullptr; limit = limit->outer_) {
        const bool over =
            limit->length_us_ && limit->end_us_ <= std::max(first_end_us, limit->port_.now_us());
        news |= over && !limit->told_;
        limit->told_ |= over;
    }
    return news;
}

void TimeLimit::put_on(mctp_ctx& mctp) {
    const std::optional<uint64_t> left = left_us();
    if (left == 0) {
        // A moment that is over by the library's clock, not only when that ticks next.
        mctp.deadline_s = 1;
        mctp.deadline_ms = 0;
        return;
    }
    // A simulated board's time is not the library's: there the limit is looked at here alone.
    const uint64_t ms = Port::is_simulated() ? 0 : (left.value_or(0) + kUsPerMs - 1) / kUsPerMs;
    mctp_set_deadline(&mctp, static_cast<uint32_t>(ms));
}

void TimeLimit::wait_us(Port& port, uint64_t microseconds) {
    port.wait_us(std::min(microseconds, left_us().value_or(microseconds)));
}

Failure out_of_time(const std::string& endpoint, const std::string& operation,
                    const std::string& addition) {
    const sideband_error error = deadline_error();
    return {endpoint, operation, silence(error) + addition, std::nullopt, cause_name(error)};
}

bool is_out_of_time(const Failure& failure) {
    return failure.cause() == cause_name(deadline_error());
}

}  // namespace tool
