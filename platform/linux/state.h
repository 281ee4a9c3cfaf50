// SPDX-License-Identifier: Apache-2.0
// The board that is in use, as the functions of the platform interface find it.
#ifndef SIDEBAND_LINUX_STATE_H
#define SIDEBAND_LINUX_STATE_H

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/linux/board.h"
#include "platform/linux/i2c_bus.h"
#include "platform/linux/power.h"
#include "platform/linux/records.h"

namespace machine {

struct State {
    explicit State(Board described) : board(std::move(described)), power(board.power), i2c(board) {}

    const Board board;
    Power power;
    I2cBuses i2c;
    RecordsFile records;
    std::atomic<bool> lock_trouble_told{false};

    std::mutex progress_mutex;
    std::map<uint32_t, uint8_t> task_percent;
};

/// Where the folder of locks and progress is, if the environment says so.
inline constexpr const char* kRunFolderVariable = "SIDEBAND_RUN_FOLDER";

/// Puts a board under the platform interface of this process, in the place of the one before.
void use(Board board);

/// Takes it away again.
void use_none();

/// Null before use().
State* in_use();

/// Has console lines go to somebody instead of standard error; an empty function: back again.
void lead_console(std::function<void(std::string_view line)> sink);

}  // namespace machine

#endif
