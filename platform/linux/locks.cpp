// SPDX-License-Identifier: Apache-2.0
// Platform interface: locks. They are mutexes in a file that all services map, and outlive whoever
// holds them.
#include <pthread.h>
#include <sideband/platform.h>

#include <cerrno>
#include <ctime>

#include "platform/linux/state.h"

namespace {

constexpr long kNsPerMs = 1'000'000;
constexpr long kNsPerS = 1'000'000'000;
constexpr int kMsPerS = 1000;

timespec deadline_in(int wait_ms) {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    time.tv_sec += wait_ms / kMsPerS;
    time.tv_nsec += wait_ms % kMsPerS * kNsPerMs;
    if (time.tv_nsec >= kNsPerS) {
        time.tv_nsec -= kNsPerS;
        ++time.tv_sec;
    }
    return time;
}

int lock(pthread_mutex_t* mutex, int wait_ms) {
    if (wait_ms < 0) {
        return pthread_mutex_lock(mutex);
    }
    const timespec deadline = deadline_in(wait_ms);
    return pthread_mutex_clocklock(mutex, CLOCK_MONOTONIC, &deadline);
}

/// Nothing but memory of this process stands where the lock file could not be used: it is no lock.
bool usable(machine::State& state, const lx_mutex* mutex) {
    if (state.records.has(mutex)) {
        return true;
    }
    if (!state.records.shared() && !state.lock_trouble_told.exchange(true)) {
        console_log("locks: %s\n", state.records.trouble().c_str());
    }
    return false;
}

int take(lx_mutex* mutex, int wait_ms) {
    machine::State* const state = machine::in_use();
    if (state == nullptr || !usable(*state, mutex)) {
        return -1;
    }
    auto* const own = reinterpret_cast<pthread_mutex_t*>(mutex);
    const int result = lock(own, wait_ms);
    if (result != EOWNERDEAD) {
        return result == 0 ? 0 : -1;
    }
    // What it guards is one exchange on a bus, which its next owner begins from the start anyway.
    ipmi_syslog("locks: a process ended while it held one; it is free again\n");
    return pthread_mutex_consistent(own) == 0 ? 0 : -1;
}

int release(lx_mutex* mutex) {
    const machine::State* const state = machine::in_use();
    if (state == nullptr || !state->records.has(mutex)) {
        return -1;
    }
    return pthread_mutex_unlock(reinterpret_cast<pthread_mutex_t*>(mutex)) == 0 ? 0 : -1;
}

lx_mutex* channel_mutex(uint8_t channel) {
    machine::State* const state = machine::in_use();
    return state != nullptr ? &state->records.get().i2c_channel[channel] : nullptr;
}

}  // namespace

int lx_mutex_get(lx_mutex* mutex, int wait_ms) {
    return take(mutex, wait_ms);
}

int lx_mutex_put(lx_mutex* mutex) {
    return release(mutex);
}

int i2c_chnl_mutex_get(uint8_t channel, int wait_ms) {
    return take(channel_mutex(channel), wait_ms);
}

int i2c_chnl_mutex_put(uint8_t channel) {
    return release(channel_mutex(channel));
}
