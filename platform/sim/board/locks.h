// SPDX-License-Identifier: Apache-2.0
// Locks of the platform interface: real waits, and a record of every misuse.
#ifndef SIDEBAND_SIM_BOARD_LOCKS_H
#define SIDEBAND_SIM_BOARD_LOCKS_H

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "sim/board/board.h"

namespace sim {

/// The order in which locks are to be taken; equal ranks are not taken together.
enum class LockRank { kI2cChannel, kGlobal, kMpio, kEidPool, kBus, kOther };

struct LockName {
    const void* key = nullptr;  ///< tells locks apart
    LockRank rank = LockRank::kOther;
    std::string name;
};

class LockTable {
public:
    /// Waits for a lock; wait_ms below 0 means for ever.
    /// @return false on time-out, and at once if the thread holds the lock already
    bool take(const LockName& lock, int wait_ms);
    /// @return false if the thread does not hold the lock
    bool release(const LockName& lock);

    LockReport report() const;

private:
    struct Held {
        LockName lock;
        std::thread::id owner;
    };

    const Held* find(const void* key) const;
    void check_order(const LockName& lock);
    void violation(std::string text);

    mutable std::mutex mutex_;
    std::condition_variable released_;
    std::vector<Held> held_;  ///< in the order in which they were taken
    std::vector<std::string> violations_;
};

}  // namespace sim

#endif
