// SPDX-License-Identifier: Apache-2.0
// Platform interface: locks, power, shell, logs, task progress.
#include <sideband/platform.h>

#include <array>
#include <cstdarg>
#include <cstdio>

#include "sim/board/in_use.h"

namespace {

constexpr std::string_view kTouch = "touch ";

/// printf into a string.
std::string format_line(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    std::string line(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    std::vsnprintf(line.data(), line.size() + 1, format, again);
    va_end(again);
    return line;
}

void log_line(sim::LineLog sim::BoardState::*log, const char* format, va_list arguments) {
    sim::BoardState* board = sim::in_use();
    if (board == nullptr || format == nullptr) {
        return;
    }
    std::string line = format_line(format, arguments);
    std::lock_guard guard(board->mutex);
    (board->*log).add(std::move(line));
}

sim::LockName channel_lock(uint8_t channel) {
    static const std::array<char, 256> kKeys{};
    return {&kKeys[channel], sim::LockRank::kI2cChannel,
            "I2C channel mutex " + std::to_string(channel)};
}

}  // namespace

int lx_mutex_get(lx_mutex* mutex, int wait_ms) {
    sim::BoardState* board = sim::in_use();
    if (board == nullptr || mutex == nullptr) {
        return -1;
    }
    return board->locks.take(board->name_lock(mutex), wait_ms) ? 0 : -1;
}

int lx_mutex_put(lx_mutex* mutex) {
    sim::BoardState* board = sim::in_use();
    if (board == nullptr || mutex == nullptr) {
        return -1;
    }
    return board->locks.release(board->name_lock(mutex)) ? 0 : -1;
}

int i2c_chnl_mutex_get(uint8_t channel, int wait_ms) {
    sim::BoardState* board = sim::in_use();
    return board != nullptr && board->locks.take(channel_lock(channel), wait_ms) ? 0 : -1;
}

int i2c_chnl_mutex_put(uint8_t channel) {
    sim::BoardState* board = sim::in_use();
    return board != nullptr && board->locks.release(channel_lock(channel)) ? 0 : -1;
}

int PltCHASSIS_PowerStatus(void) {
    sim::BoardState* board = sim::in_use();
    if (board == nullptr) {
        return 0;
    }
    std::lock_guard guard(board->mutex);
    return board->main_power ? 1 : 0;
}

int GetS5stByPwrConfig(void) {
    sim::BoardState* board = sim::in_use();
    if (board == nullptr) {
        return 1;
    }
    std::lock_guard guard(board->mutex);
    return board->policy_off ? 1 : 0;
}

int _PltGPIO_RegRead(uint32_t base, uint32_t group, uint32_t offset, uint8_t* value) {
    if (value == nullptr || base != PLT_MAIN_POWER_REGISTER || group != 0 || offset != 0) {
        return -1;
    }
    if (sim::in_use() == nullptr) {
        return -1;
    }
    *value = PltCHASSIS_PowerStatus() == 1 ? 1 : 0;
    return 0;
}

int run_shellcmd(const char* command) {
    sim::BoardState* board = sim::in_use();
    if (board == nullptr || command == nullptr) {
        return -1;
    }
    std::lock_guard guard(board->mutex);
    board->shell_commands.add(command);
    const std::string_view line = command;
    if (line.starts_with(kTouch) && line.substr(kTouch.size()).starts_with(sim::kOwnFiles)) {
        board->files.emplace(line.substr(kTouch.size()));
    }
    return 0;
}

void ipmi_syslog(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    log_line(&sim::BoardState::syslog, format, arguments);
    va_end(arguments);
}

void console_log(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    log_line(&sim::BoardState::console, format, arguments);
    va_end(arguments);
}

void TaskServiceUpdateTaskPercentage(uint32_t task_id, uint8_t percent) {
    sim::BoardState* board = sim::in_use();
    if (board == nullptr) {
        return;
    }
    std::lock_guard guard(board->mutex);
    board->task_percent[task_id] = percent;
}
