// SPDX-License-Identifier: Apache-2.0
// Whether the host's main power is on, by the source that the board file names.
#ifndef SIDEBAND_LINUX_POWER_H
#define SIDEBAND_LINUX_POWER_H

#include <chrono>
#include <mutex>
#include <optional>

#include "platform/linux/board.h"

namespace machine {

class Power {
public:
    /// A command's result holds for so long: power is asked for before every packet.
    static constexpr std::chrono::milliseconds kCommandHolds{1000};
    /// One that takes longer is killed: who asks holds the mutex of a bus.
    static constexpr std::chrono::milliseconds kCommandLimit{3000};

    explicit Power(PowerSource source) : source_(std::move(source)) {}

    /// A file that cannot be read, and a command that does not end with 0, stand for off.
    bool is_on();

private:
    PowerSource source_;
    std::mutex mutex_;
    bool last_ = false;
    std::optional<std::chrono::steady_clock::time_point> asked_;
};

}  // namespace machine

#endif
