// SPDX-License-Identifier: Apache-2.0
// All that a board consists of, as the functions of the platform interface find it.
#ifndef SIDEBAND_SIM_BOARD_STATE_H
#define SIDEBAND_SIM_BOARD_STATE_H

#include <sideband/platform.h>

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "sim/board/board.h"
#include "sim/board/clock.h"
#include "sim/board/locks.h"
#include "sim/board/tap.h"
#include "sim/device/device.h"
#include "sim/mctp/i2c_bus.h"
#include "sim/mctp/pcie_bus.h"

namespace sim {

/// The last lines of a log.
class LineLog {
public:
    void add(std::string line);
    std::vector<std::string> lines() const { return {lines_.begin(), lines_.end()}; }

private:
    std::deque<std::string> lines_;
};

/// Where the files of a board lie, instead of the machine's.
constexpr std::string_view kOwnFiles = "/nv/";

class BoardState {
public:
    BoardState() = default;
    BoardState(const BoardState&) = delete;
    BoardState& operator=(const BoardState&) = delete;

    /// Held around every access to the members below, except for the locks, which wait.
    std::mutex mutex;
    LockTable locks;

    std::string name;
    Clock clock;
    Tap tap;
    bool main_power = true;
    bool policy_off = false;
    uint8_t bmc_eid = 8;
    uint8_t bmc_address = 0x20;
    std::vector<std::unique_ptr<I2cBus>> buses;
    bool buses_whole = true;  ///< all of the file's buses could be read
    PcieBus pcie{clock, tap, main_power};
    bool pcie_open_fails = false;
    PcieSessions pcie_sessions;
    std::vector<std::unique_ptr<Device>> devices;
    std::vector<EndpointInfo> endpoints;

    plt_platform platform_record{};
    plt_global_var global_var{};
    plt_global_sec_var global_sec_var{};

    LineLog syslog;
    LineLog console;
    LineLog shell_commands;
    std::map<uint32_t, uint8_t> task_percent;
    std::set<std::string, std::less<>> files;  ///< below /nv, which is never the machine's own

    I2cBus* find_bus(uint8_t number) const;
    Device* find_device(std::string_view device_name) const;
    /// The device that is the add-in card at a place on PCIe.
    const Device* find_card(uint8_t bus, uint8_t device) const;
    /// What one of the platform interface's mutexes is called, and where it stands in the order.
    LockName name_lock(const lx_mutex* mutex) const;
};

/// Longest path that fits the 48-byte setting.
constexpr size_t kLongestMuxPath = 4;

/// The multiplexer setting: number of hops, then address and channel of each, from the bus on.
std::array<uint8_t, 48> encode_mux(const MuxPath& path);
/// @return nothing for bytes that are no such setting
std::optional<MuxPath> decode_mux(const uint8_t* setting);

/// Makes a board from a parsed file. If the place's errors have something, it is not one to use.
/// @throws FileError
std::unique_ptr<BoardState> read_board(const Place& root);

}  // namespace sim

#endif
