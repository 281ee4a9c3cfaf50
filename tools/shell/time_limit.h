// SPDX-License-Identifier: Apache-2.0
// The time limit of a command: --timeout.
#ifndef SIDEBAND_TOOLS_SHELL_TIME_LIMIT_H
#define SIDEBAND_TOOLS_SHELL_TIME_LIMIT_H

#include <sideband/mctp.h>

#include <cstdint>
#include <optional>
#include <string>

#include "tools/shell/failure.h"
#include "tools/shell/port.h"

namespace tool {

/// While one stands, what goes over the buses ends with its time, by the clock of the board: the
/// library sends nothing behind it. One may stand within another, which then counts too.
class TimeLimit {
public:
    /// The times that it takes, in seconds.
    static constexpr double kLeast = 0.001;
    static constexpr double kMost = 86400;

    /// @param seconds  from now; none for no limit
    TimeLimit(const Port& port, std::optional<double> seconds);
    ~TimeLimit();
    TimeLimit(const TimeLimit&) = delete;
    TimeLimit& operator=(const TimeLimit&) = delete;

    /// The innermost one begins anew: for work that is done again and again.
    static void begin_again();

    /// Whether the time is over.
    static bool passed();
    /// Throws Failure if it is.
    static void check(const std::string& endpoint, const std::string& operation);

    /// To be asked when something has failed of it: whether this is the first time, as one line
    /// about it is enough, however much fails.
    static bool is_news();

    /// Sets the limit of a context to what is left; comes before every call that sends something.
    static void put_on(mctp_ctx& mctp);

    /// A pause on the board, ended by the limit.
    static void wait_us(Port& port, uint64_t microseconds);

private:
    friend class TimeLimitLifted;
    static std::optional<uint64_t> left_us();

    inline static TimeLimit* innermost_ = nullptr;
    inline static bool lifted_ = false;

    const Port& port_;
    std::optional<uint64_t> length_us_;
    uint64_t end_us_ = 0;
    bool told_ = false;
    TimeLimit* outer_;
};

/// While one stands there is no limit: a device is not left in the middle of something.
class TimeLimitLifted {
public:
    TimeLimitLifted() { TimeLimit::lifted_ = true; }
    ~TimeLimitLifted() { TimeLimit::lifted_ = false; }
    TimeLimitLifted(const TimeLimitLifted&) = delete;
    TimeLimitLifted& operator=(const TimeLimitLifted&) = delete;
};

/// The failure of an operation of an endpoint whose time was over.
/// @param addition  what else there is to say of it
Failure out_of_time(const std::string& endpoint, const std::string& operation,
                    const std::string& addition = {});

/// Whether a failure is of that kind.
bool is_out_of_time(const Failure& failure);

}  // namespace tool

#endif
