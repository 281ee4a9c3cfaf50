// SPDX-License-Identifier: Apache-2.0
// Stands before libc: sleeps, the time of day and of limits are virtual, the MCTP queue file and
// /nv are the board's.
#include <dlfcn.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "sim/board/in_use.h"

namespace {

constexpr std::string_view kDrain = "cat ";

template <typename Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

/// The bus whose slave queue a path names: /sys/bus/i2c/devices/BUS-00AA/mctp-slave-mqueue with
/// the BMC's own 7-bit address.
sim::I2cBus* queue_at(const sim::BoardState& board, std::string_view path) {
    for (const auto& bus : board.buses) {
        char expected[80];
        const int length = std::snprintf(expected, sizeof expected,
                                         "/sys/bus/i2c/devices/%d-00%02x/mctp-slave-mqueue",
                                         bus->number(), board.bmc_address >> 1);
        if (path == std::string_view(expected, static_cast<size_t>(length))) {
            return bus.get();
        }
    }
    return nullptr;
}

}  // namespace

extern "C" int usleep(useconds_t useconds) {
    if (sim::in_use() == nullptr) {
        return next<int (*)(useconds_t)>("usleep")(useconds);
    }
    sim::Board::current()->advance_us(useconds);
    return 0;
}

extern "C" time_t time(time_t* timer) noexcept {
    if (sim::in_use() == nullptr) {
        return next<time_t (*)(time_t*)>("time")(timer);
    }
    constexpr uint64_t kUsPerS = 1'000'000;
    const auto now =
        static_cast<time_t>(sim::Clock::kStartOfTimeS + sim::Board::current()->now_us() / kUsPerS);
    if (timer != nullptr) {
        *timer = now;
    }
    return now;
}

/// The clock of time limits. All others, which the board's users wait by, stay the machine's.
extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept {
    static const auto machine_clock = next<int (*)(clockid_t, timespec*)>("clock_gettime");
    if (clock != CLOCK_MONOTONIC_COARSE || sim::in_use() == nullptr) {
        return machine_clock(clock, now);
    }
    constexpr uint64_t kUsPerS = 1'000'000;
    constexpr uint64_t kNsPerUs = 1'000;
    constexpr uint64_t kUptimeS = 100;
    const uint64_t us = sim::Board::current()->now_us();
    // Of a machine that has been on for a while.
    now->tv_sec = static_cast<time_t>(kUptimeS + us / kUsPerS);
    now->tv_nsec = static_cast<long>(us % kUsPerS * kNsPerUs);
    return 0;
}

extern "C" int access(const char* name, int type) noexcept {
    sim::BoardState* board = sim::in_use();
    if (board != nullptr && std::string_view(name).starts_with(sim::kOwnFiles)) {
        std::lock_guard guard(board->mutex);
        if (board->files.contains(std::string_view(name))) {
            return 0;
        }
        errno = ENOENT;
        return -1;
    }
    if (board != nullptr && queue_at(*board, name) != nullptr) {
        return 0;
    }
    return next<int (*)(const char*, int)>("access")(name, type);
}

extern "C" int system(const char* command) {
    sim::BoardState* board = sim::in_use();
    const std::string_view line = command != nullptr ? command : "";
    if (board != nullptr && line.starts_with(kDrain)) {
        if (sim::I2cBus* bus = queue_at(*board, line.substr(kDrain.size()))) {
            std::lock_guard guard(board->mutex);
            bus->drain();
            return 0;
        }
    }
    return next<int (*)(const char*)>("system")(command);
}
