// SPDX-License-Identifier: Apache-2.0
// What the tool needs from the platform library that it is linked with, beyond sideband/platform.h.
#ifndef SIDEBAND_TOOLS_SHELL_PORT_H
#define SIDEBAND_TOOLS_SHELL_PORT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

/// No endpoint is on a serial line; it is what a board is served over. MCTP is the kernel's.
enum class Transport { kI2c, kPcie, kMctp, kSerial };

/// What is known of a sensor, from the board's description or from the sensor's PDR.
struct Sensor {
    uint16_t id = 0;
    bool numeric = true;
    std::string name;
    std::string entity;  ///< what it is a sensor of
    std::string unit;
    double resolution = 1.0;  ///< numeric: units a count
    double offset = 0.0;      ///< numeric: units
    /// Numeric, in units: upper warning, critical, fatal, then the lower ones.
    std::array<std::optional<double>, 6> thresholds;
    /// State: state sets of the composite sensors (DSP0249), as far as they are known.
    std::vector<uint16_t> state_sets;
};

/// An endpoint and how to reach it: what goes into an mctp_ctx.
struct Endpoint {
    std::string name;
    std::string type;  ///< the board's word; "bus_owner" gives the BMC an EID
    Transport transport = Transport::kI2c;
    uint8_t binding_kind = 0;
    uint8_t bus = 0;
    uint8_t address = 0;  ///< 8-bit form
    std::array<uint8_t, 48> mux{};
    std::array<uint8_t, 3> bdf{};
    uint32_t net = 0;  ///< mctp: the kernel's MCTP network
    uint8_t eid = 0;   ///< mctp: whoever owns the bus has given it
    uint32_t route = 0;
    uint16_t unit_size = 0;
    uint32_t i2c_delay_us = 0;
    uint32_t pcie_param = 0;
    std::vector<Sensor> sensors;
    std::string hint = {};  ///< what may be wrong with the name, if nobody answers
};

/// An MCTP packet on a bus.
struct Packet {
    Transport transport = Transport::kI2c;
    uint8_t bus = 0;
    uint8_t address = 0;  ///< 8-bit form
    std::array<uint8_t, 3> bdf{};
    bool sent = true;                ///< by the BMC
    uint64_t at_ns = 0;              ///< by the clock of the board
    std::span<const uint8_t> bytes;  ///< from the MCTP transport header on
    bool pec_good = true;
    bool taken = true;  ///< false: on I2C nobody acknowledged it, elsewhere nobody is there
};

/// Sees the packets on the buses.
class PacketObserver {
public:
    virtual ~PacketObserver() = default;
    /// Called in the middle of the exchange, with the board's locks held: no place to call the
    /// board or the library from.
    virtual void passed(const Packet& packet) = 0;
};

/// What passed over one bus.
struct BusUse {
    uint8_t bus = 0;
    uint32_t clock_hz = 0;
    uint64_t packets = 0;
    uint64_t bytes = 0;          ///< on the wire
    uint64_t payload_bytes = 0;  ///< MCTP message bytes among them
    uint64_t busy_ns = 0;
};

/// What passed over PCIe.
struct PcieUse {
    uint64_t messages = 0;
    uint64_t packets = 0;
    uint64_t payload_bytes = 0;  ///< MCTP message bytes
};

/// What a bus owner asked the BMC, and what it made of the answer.
struct OwnerQuestion {
    std::string name;
    std::string answer;     ///< message body in hex; empty if none came
    std::string complaint;  ///< empty if the answer is right
};

/// An endpoint of a board that is served, as those find it who attach the line.
struct ServedEndpoint {
    uint8_t eid = 0;
    Endpoint endpoint;
    std::vector<uint8_t> message_types;  ///< besides control
};

/// What passed over the line of a board that is served.
struct ServiceUse {
    uint64_t received = 0;   ///< frames
    uint64_t refused = 0;    ///< what came and was no whole frame
    uint64_t sent = 0;       ///< frames
    uint64_t discarded = 0;  ///< frames that nobody took
};

/// A board as a device for other software: behind a bridge at the end of a serial line (DSP0253).
class Service {
public:
    Service() = default;
    virtual ~Service() = default;
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    /// What to attach: the pseudo-terminal that was made, or the tty that was given.
    virtual const std::string& tty() const = 0;
    /// The bridge's own EID.
    virtual uint8_t eid() const = 0;
    virtual std::vector<ServedEndpoint> endpoints() const = 0;
    virtual ServiceUse use() const = 0;

    /// Serves for a moment, and ends early if a signal comes. Throws Failure if the line is
    /// lost.
    virtual void serve_a_while() = 0;
};

/// An I2C bus of a board that is served, as the machine's programs find it.
struct ServedBus {
    uint8_t bus = 0;
    std::string device;       ///< path of the adapter
    std::string slave_queue;  ///< path of the queue of what devices write to the BMC
};

/// What passed over the buses of a board that is served.
struct BusTraffic {
    uint64_t written = 0;  ///< messages that were acknowledged
    uint64_t refused = 0;  ///< those that were not
    uint64_t read = 0;     ///< blocks that somebody took from a queue
    uint64_t dropped = 0;  ///< blocks that were longer than their reader's room
};

/// The I2C buses of a board as devices of this machine.
class BusService {
public:
    BusService() = default;
    virtual ~BusService() = default;
    BusService(const BusService&) = delete;
    BusService& operator=(const BusService&) = delete;

    virtual std::vector<ServedBus> buses() const = 0;
    virtual BusTraffic traffic() const = 0;

    /// Serves for a moment, and ends early if a signal comes. Throws Failure if the kernel has
    /// taken a device away.
    virtual void serve_a_while() = 0;
};

/// What there is to say of a board file that is right.
struct BoardSummary {
    std::string name;
    size_t devices = 0;
};

/// The board under the platform interface. One file, port_NAME.cpp, implements it for a platform.
class Port {
public:
    /// Opens the board; an empty name stands for the platform's own. Throws Failure.
    static std::unique_ptr<Port> open(const std::string& board_file);

    /// The name by which the tool linked with this platform goes.
    static std::string_view program_name();

    /// What is opened if no board file is named, in a word or two.
    static std::string_view own_board();

    /// Whether the board is a simulated one, which bears faults and can be served, see
    /// start_service(): commands that need such a board are offered then only.
    static bool is_simulated();

    /// Whether devices are held to the standards unless --lax says otherwise.
    static bool is_strict();

    /// Reads a file that describes a simulated board, and leaves the board that is there alone.
    /// Throws Failure, with a line for each error.
    static BoardSummary check_board(const std::string& board_file);

    Port() = default;
    virtual ~Port() = default;
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;

    virtual std::string board_name() const = 0;
    /// The board file of a simulated board; empty on another platform.
    virtual std::string board_text() const { return {}; }
    virtual const std::vector<Endpoint>& endpoints() const = 0;

    /// The endpoints of the board or, where nobody has described it, those that the platform finds.
    /// Throws Failure.
    virtual std::vector<Endpoint> present_endpoints() const { return endpoints(); }

    /// Why this platform has no way to an endpoint, whatever is there; empty where it has.
    virtual std::string objection(const Endpoint& endpoint) const = 0;

    /// What the platform itself had to say about the last exchange; empty for nothing.
    virtual std::string complaint() const { return {}; }
    virtual void forget_complaint() {}

    /// The clock by which the board lives, and a pause in it.
    virtual uint64_t now_us() const = 0;
    virtual void wait_us(uint64_t microseconds) = 0;

    virtual std::vector<BusUse> bus_use() const = 0;
    virtual PcieUse pcie_use() const = 0;

    /// What a bus owner asked since the BMC last announced itself; empty if nobody can tell.
    virtual std::vector<OwnerQuestion> owner_questions(const std::string& endpoint) const = 0;

    /// Writes all that passes to a file, from now until finish_capture(). Both throw Failure.
    virtual void start_capture(const std::string& path) = 0;
    virtual void finish_capture() = 0;

    /// Tells somebody of every packet from now on; null for nobody. A platform that does not see
    /// its packets tells of none.
    virtual void observe(PacketObserver* observer) = 0;

    /// Host main power; off means that devices are not powered in standby either.
    /// @return false if the platform cannot switch it
    virtual bool set_main_power(bool on) = 0;

    /// Makes an endpoint misbehave, by one object of a board file's "faults".
    /// @return false if the platform cannot
    virtual bool add_fault(const std::string& endpoint, std::string_view fault_json) = 0;
    virtual void clear_faults(const std::string& endpoint) = 0;

    /// The percentage that the library last reported for a task of the platform; 0 before the
    /// first.
    virtual uint8_t task_percentage(uint32_t task_id) const = 0;

    /// A firmware image that a drive of the board takes.
    /// @param revision  what the drive calls it then, at most eight characters
    /// @return empty if nobody can tell what such an image is
    virtual std::vector<uint8_t> drive_image(const std::string& revision, size_t size) const = 0;

    /// Puts the board behind a serial line. Nothing else talks to it meanwhile. Throws Failure.
    /// @param tty  a serial line; empty for a new pseudo-terminal
    /// @param eid  of the bridge; the endpoints' follow it
    /// @return null if the platform cannot
    virtual std::unique_ptr<Service> start_service(const std::string& tty, uint8_t eid) = 0;

    /// Makes the board's I2C buses devices of this machine. Nothing else talks to it meanwhile.
    /// Throws Failure.
    /// @return null if the platform cannot
    virtual std::unique_ptr<BusService> start_bus_service() { return nullptr; }

    /// Names of platform locks that are held now, and misuse of locks seen so far.
    virtual std::vector<std::string> lock_complaints() const = 0;

    /// Lines that the library logged through the platform, oldest first.
    virtual std::vector<std::string> log_lines() const = 0;
};

}  // namespace tool

#endif
