// SPDX-License-Identifier: Apache-2.0
// What the board file of a Linux machine says: power, records, devices and the ways to them.
#ifndef SIDEBAND_LINUX_BOARD_H
#define SIDEBAND_LINUX_BOARD_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/board_file/error_list.h"
#include "platform/board_file/fields.h"

namespace machine {

/// Where the machine's own board file is, if it has one.
inline constexpr const char* kOwnBoardFile = "/etc/sideband/board.json";

/// By what one sees that the host's main power is on.
struct PowerSource {
    enum class Kind : uint8_t { kOn, kFile, kCommand };
    Kind kind = Kind::kOn;
    std::string text;  ///< path of the file, or command line
    std::string on;    ///< what the file holds while power is on
};

/// An add-in card, as PCIEDeviceMux() finds it.
struct Card {
    uint8_t bus = 0;
    uint8_t device = 0;
    uint16_t vendor_id = 0;
    uint32_t flags = 0;
    uint8_t slot = 0;
};

struct Device {
    enum class Way : uint8_t { kI2c, kMctp };
    std::string name;
    Way way = Way::kI2c;

    // On a bus of the BMC's own.
    uint8_t bus = 0;
    uint8_t address = 0;  ///< 8-bit form
    bool software_pec = false;
    uint16_t unit_size = 0;
    uint32_t i2c_delay_us = 0;

    // Through the kernel's MCTP.
    uint32_t net = 0;
    uint8_t eid = 0;

    uint16_t read_timeout_ms = 0;  ///< 0: the default of the way
    std::optional<Card> card = std::nullopt;
};

struct Board {
    bool described = false;  ///< by a board file
    std::string name = "linux";
    std::string run_folder = "/run/sideband";
    uint8_t bmc_eid = 8;
    uint8_t bmc_address = 0x20;
    PowerSource power;
    uint8_t standby_option = 0;
    uint8_t standby_override = 0;
    bool standby_devices = false;
    bool policy_off = false;
    uint16_t identifier = 0;
    uint8_t mpio_state = 0;
    uint32_t pcie_net = 1;
    std::vector<Device> devices;
};

/// @return nothing, with error filled, for a text that is no board file
std::optional<Board> parse_board(std::string_view text, board_file::BoardError& error);

/// @param path  empty for the machine's own board file; where it has none, a board without devices
/// @return nothing, with error filled, for a file that cannot be read or is malformed
std::optional<Board> load_board(const std::string& path, board_file::BoardError& error);

}  // namespace machine

#endif
