// SPDX-License-Identifier: Apache-2.0
// Platform mutexes held for the length of a scope.
#ifndef SIDEBAND_COMMON_LOCK_H
#define SIDEBAND_COMMON_LOCK_H

#include <sideband/platform.h>

namespace sideband {

/// Takes the mutex with an infinite wait; false if the platform did not grant it.
class MutexGuard {
public:
    explicit MutexGuard(lx_mutex& mutex)
        : mutex_(mutex), held_(lx_mutex_get(&mutex, LX_MUTEX_WAIT_FOREVER) == 0) {}
    ~MutexGuard() {
        if (held_) {
            lx_mutex_put(&mutex_);
        }
    }
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

    explicit operator bool() const { return held_; }

private:
    lx_mutex& mutex_;
    bool held_;
};

/// Takes the mutex of an I2C channel with an infinite wait, if it is wanted; false if the platform
/// did not grant it.
class ChannelGuard {
public:
    explicit ChannelGuard(uint8_t channel, bool wanted = true)
        : channel_(channel),
          wanted_(wanted),
          held_(wanted && i2c_chnl_mutex_get(channel, LX_MUTEX_WAIT_FOREVER) == 0) {}
    ~ChannelGuard() {
        if (held_) {
            i2c_chnl_mutex_put(channel_);
        }
    }
    ChannelGuard(const ChannelGuard&) = delete;
    ChannelGuard& operator=(const ChannelGuard&) = delete;

    explicit operator bool() const { return held_ == wanted_; }

private:
    uint8_t channel_;
    bool wanted_;
    bool held_;
};

}  // namespace sideband

#endif
