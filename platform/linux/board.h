// SPDX-License-Identifier: Apache-2.0
// What the board file of a Linux machine says: power, records, devices and the ways to them.
#ifndef SIDEBAND_LINUX_BOARD_H
#define SIDEBAND_LINUX_BOARD_H

#include <array>
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

/// Message bytes in a packet: with more, every call of the library fails.
inline constexpr uint16_t kLargestUnit = 120;

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

/// One multiplexer on the way to a device.
struct MuxHop {
    uint8_t address = 0;  ///< 8-bit form
    uint8_t channel = 0;
    bool operator==(const MuxHop&) const = default;
};

/// A multiplexer that is switched by a write to it.
struct Mux {
    uint8_t address = 0;
    uint8_t channels = 0;
    uint8_t enable =
        0;  ///< 0: a bit for each channel is written; else a channel's number with this
    std::optional<MuxHop> behind = std::nullopt;
};

/// Patterns of the paths of a bus, in which {bus} is its number and {address} the 7-bit slave
/// address of the BMC in two hex digits.
struct I2cPaths {
    std::string device = "/dev/i2c-{bus}";
    std::string slave_queue;  ///< empty: where drivers put it
};

struct BusPlace {
    uint8_t bus = 0;
    I2cPaths paths;
    std::vector<Mux> muxes;  ///< each behind the one that it is behind of
};

/// What goes into mctp_ctx.mux: a count, then address and value of each write, in their order.
using MuxSetting = std::array<uint8_t, 48>;

struct MuxWrite {
    uint8_t address = 0;
    uint8_t value = 0;
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
    MuxSetting mux{};

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
    I2cPaths i2c;  ///< of buses that are not described
    std::vector<BusPlace> buses;
    std::vector<Device> devices;

    const I2cPaths& paths_of(uint8_t bus) const;
    const BusPlace* find_bus(uint8_t bus) const;
};

/// The path that a pattern makes.
std::string fill_in(const std::string& pattern, uint8_t bus, uint8_t bmc_address);
/// Where the slave queue of a bus may be.
std::vector<std::string> queue_paths(const I2cPaths& paths, uint8_t bus, uint8_t bmc_address);
/// @return nothing for bytes that are no setting
std::vector<MuxWrite> decode_mux(const MuxSetting& setting);

/// @return nothing, with error filled, for a text that is no board file
std::optional<Board> parse_board(std::string_view text, board_file::BoardError& error);

/// @param path  empty for the machine's own board file; where it has none, a board without devices
/// @return nothing, with error filled, for a file that cannot be read or is malformed
std::optional<Board> load_board(const std::string& path, board_file::BoardError& error);

}  // namespace machine

#endif
