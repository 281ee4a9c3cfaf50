// SPDX-License-Identifier: Apache-2.0
// The simulated server board: what the tool and the tests see of it.
#ifndef SIDEBAND_SIM_BOARD_BOARD_H
#define SIDEBAND_SIM_BOARD_BOARD_H

#include <sideband/platform.h>

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/board_file/file.h"

namespace sim {

using board_file::BoardError;

/// A serial line leads to a bridge that stands before the whole board; no device is on one.
enum class Transport { kI2c, kPcie, kSerial };

struct SensorInfo {
    uint16_t id = 0;
    enum class Kind { kNumeric, kState } kind = Kind::kNumeric;
    std::string name;
    std::string unit;             ///< numeric: e.g. "degC"; empty if the board file has none
    uint8_t composite_count = 1;  ///< state: composite sensors
    uint16_t state_set = 0;       ///< state: state set of the first composite sensor (DSP0249)
    double resolution = 1.0;      ///< numeric: units a count, until PDRs are read
    bool is_signed = false;       ///< numeric: the reading is signed
    uint8_t data_size = 4;        ///< numeric: reading width in bytes: 1, 2 or 4
};

/// Where a device is and how to reach it: what a caller of the library fills into its context.
struct EndpointInfo {
    std::string name;
    std::string type;
    Transport transport = Transport::kI2c;
    uint8_t binding_kind = 0;  ///< 0 SMBus, 2 PCIe, 3 SMBus with software PEC
    uint8_t bus = 0;
    uint8_t address = 0;  ///< 8-bit slave address
    std::array<uint8_t, 48> mux{};
    std::array<uint8_t, 3> bdf{};  ///< PCIe bus, device, function
    uint32_t route = 0;
    uint32_t pcie_param = 0;
    uint16_t unit_size = 0;  ///< 0: the library's default
    uint32_t i2c_delay_us = 0;
    std::vector<SensorInfo> sensors;
};

/// What passed over one I2C bus.
struct BusStatistics {
    uint8_t bus = 0;
    uint32_t clock_hz = 100000;
    uint64_t packets = 0;        ///< MCTP packets, both directions
    uint64_t bytes = 0;          ///< bytes on the wire, addresses and PECs included
    uint64_t payload_bytes = 0;  ///< MCTP message bytes among them
    uint64_t busy_ns = 0;        ///< 9 bit times a byte
    uint64_t missing_ends = 0;   ///< requests whose last packet came without EOM
};

/// What passed over PCIe.
struct PcieStatistics {
    uint64_t messages = 0;       ///< whole messages, both directions
    uint64_t packets = 0;        ///< vendor-defined messages of one packet each
    uint64_t payload_bytes = 0;  ///< MCTP message bytes in them
};

/// The PCIe MCTP sessions of the services.
struct PcieSessions {
    uint64_t open = 0;          ///< now
    uint64_t opened = 0;        ///< ever
    uint64_t refused = 0;       ///< attempts that failed
    uint64_t stray_closes = 0;  ///< of what was not an open session of this board
};

/// One request of a bus owner to the BMC, and what came of it.
struct OwnerStep {
    std::string name;
    std::string request;    ///< message body in hex
    std::string answer;     ///< likewise; empty if none came
    std::string complaint;  ///< what is wrong with the answer; empty if nothing is
};

/// What a bus owner saw of the BMC since the last Discovery Notify.
struct OwnerReport {
    bool notified = false;
    std::vector<OwnerStep> steps;  ///< those that were taken
    bool complete = false;         ///< all were taken and the last one was answered
    uint8_t assigned_eid = 0;      ///< what the BMC accepted, 0 = nothing yet

    bool faultless() const;
};

/// Counts that tests look at.
struct LockReport {
    std::vector<std::string> violations;  ///< wrong order, double take, release by a stranger
    std::vector<std::string> held;        ///< names of the locks held now
};

class BoardState;
class PldmFirmware;
class NcsiController;
class NvmeDrive;
struct Passing;

/// Is told of every packet on the buses, see passing.h. The board is locked meanwhile: nothing of
/// it may be called.
using PacketObserver = std::function<void(const Passing&)>;

/// A board. One board at a time stands under the platform interface of the process: use().
class Board {
public:
    /// The board file that is compiled in.
    static std::string_view built_in_file();

    /// @return null, with error filled, if the text is malformed
    static std::unique_ptr<Board> parse(std::string_view text, BoardError& error);

    /// The longest board file, in bytes.
    static constexpr size_t kLongestFile = board_file::kLongestFile;

    /// Reads and parses a file. One that cannot be read, is too long or no regular file is an error
    /// with line 0; nothing is waited for.
    static std::unique_ptr<Board> load(const std::string& path, BoardError& error);

    ~Board();
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    /// Puts a board under the platform interface; null takes it away. The board stays the caller's.
    static void use(Board* board);
    static Board* current();

    std::string name() const;
    const std::vector<EndpointInfo>& endpoints() const;

    /// Virtual time since the board was made.
    uint64_t now_us() const;
    void advance_us(uint64_t microseconds);

    std::vector<BusStatistics> bus_statistics() const;
    PcieStatistics pcie_statistics() const;
    LockReport lock_report() const;

    /// Sessions that libmctp_pcie_open() has given out, and whether it fails from now on.
    PcieSessions pcie_sessions() const;
    void set_pcie_open_fails(bool fails);

    /// The firmware device of a PLDM terminus, see pldm_firmware.h; null if the device has none.
    PldmFirmware* firmware(const std::string& device);
    /// The network controller that a device is, see ncsi/controller.h; null if it is none.
    NcsiController* ncsi(const std::string& device);
    /// The NVMe drive that a device is, see nvme/drive.h; null if it is none.
    NvmeDrive* nvme(const std::string& device);
    /// What a service knows of a device that is an add-in card: all but the route, which
    /// PCIEDeviceMux() fills in. Nothing for any other device.
    std::optional<plt_card_info> card(const std::string& device) const;

    /// What a device of type bus_owner saw; an empty report for any other device.
    OwnerReport owner_report(const std::string& device) const;

    /// The state word of the MPIO, and whether a file exists below the board's own /nv.
    uint32_t mpio_state() const;
    bool has_file(const std::string& path) const;

    /// Host main power, and the three values that allow access in standby.
    void set_main_power(bool on);
    void set_standby(uint8_t option, uint8_t override_byte, bool policy_off);

    /// Lines that reached ipmi_syslog() and console_log(), oldest first, at most the last 1000.
    std::vector<std::string> syslog() const;
    std::vector<std::string> console() const;
    /// Shell command lines that were run through run_shellcmd().
    std::vector<std::string> shell_commands() const;
    /// The last percentage that each task reported.
    std::map<uint32_t, uint8_t> task_percent() const;

    /// Adds a fault to a device by name. The text is one object of a device's "faults" array.
    bool add_fault(const std::string& device, std::string_view fault_json, BoardError& error);
    void clear_faults(const std::string& device);

    /// Starts a pcapng capture of all that passes. @return false with error filled on failure
    bool start_capture(const std::string& path, std::string& error);
    /// Ends it. @return false if a write had failed
    bool stop_capture();

    /// Tells somebody of every packet from now on, also of one that nobody takes; null for nobody.
    void observe_packets(PacketObserver observer);

    BoardState& state() { return *state_; }

private:
    explicit Board(std::unique_ptr<BoardState> state);
    std::unique_ptr<BoardState> state_;
};

}  // namespace sim

#endif
