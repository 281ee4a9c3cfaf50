// SPDX-License-Identifier: Apache-2.0
// A platform mutex held for the length of a scope.
#ifndef SIDEBAND_COMMON_LOCK_H
#define SIDEBAND_COMMON_LOCK_H

#include <sideband/platform.h>

namespace sideband {

/// Takes the mutex with an infinite wait; false where the platform did not grant it.
class MutexGuard {
public:
    explicit MutexGuard(lx_mutex& mutex)
        : held_(lx_mutex_get(&mutex, LX_MUTEX_WAIT_FOREVER) == 0 ? &mutex : nullptr) {}
    ~MutexGuard() {
        if (held_ != nullptr) {
            lx_mutex_put(held_);
        }
    }
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

    explicit operator bool() const { return held_ != nullptr; }

private:
    lx_mutex* held_;
};

}  // namespace sideband

#endif
