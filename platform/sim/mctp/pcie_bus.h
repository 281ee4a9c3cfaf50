// SPDX-License-Identifier: Apache-2.0
// PCIe as MCTP sees it: vendor-defined messages between the BMC and functions (DSP0238).
#ifndef SIDEBAND_SIM_MCTP_PCIE_BUS_H
#define SIDEBAND_SIM_MCTP_PCIE_BUS_H

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "platform/board_file/fields.h"
#include "sim/board/board.h"
#include "sim/board/bytes.h"
#include "sim/board/clock.h"
#include "sim/board/tap.h"
#include "sim/device/device.h"
#include "sim/mctp/endpoint.h"

namespace sim {

/// Bus, device and function.
using board_file::Bdf;

/// A whole message and the function at the other end.
struct PcieMessage {
    Bdf bdf{};
    Message message;
};

class PcieBus {
public:
    /// The root complex, which owns the bus.
    static constexpr Bdf kRootComplex{0, 0, 0};

    PcieBus(Clock& clock, Tap& tap, const bool& main_power)
        : clock_(clock), tap_(tap), main_power_(main_power), bmc_(0, kUnit, false) {}
    PcieBus(const PcieBus&) = delete;
    PcieBus& operator=(const PcieBus&) = delete;

    void attach(Device& device);
    const std::vector<Device*>& devices() const { return devices_; }
    const Device* find(const Bdf& bdf) const;
    const PcieStatistics& statistics() const { return statistics_; }

    /// Sends a message of the BMC, in packets. Whether it is a request or an answer follows from
    /// what the BMC has read: a message to a function whose request of that tag waits for one is
    /// its answer. Nobody acknowledges: a message to nobody is lost.
    void write(PcieMessage outgoing);

    /// Waits for the next message to the BMC. @return nothing when the limit has passed
    std::optional<PcieMessage> read(uint64_t limit_ns);

    /// Sends a request and waits for its answer; other messages stay for read().
    std::optional<PcieMessage> exchange(PcieMessage request, uint64_t limit_ns);

private:
    /// Message bytes in a packet (DSP0236, clause 8.3.1: the baseline transmission unit).
    static constexpr size_t kUnit = 64;

    struct Function {
        Device* device;
        MctpEndpoint to_bmc;  ///< what the BMC has received of it so far
    };
    /// A request that the BMC has read and not answered.
    struct Open {
        Bdf bdf;
        uint8_t tag;
        uint64_t since_ns;
    };
    using Wanted = std::function<bool(const PcieMessage&)>;

    Function* find_function(const Bdf& bdf);
    bool powered(const Device& device) const;
    bool answers_open_request(const PcieMessage& outgoing);
    std::optional<PcieMessage> wait(uint64_t limit_ns, const Wanted& wanted);
    void schedule(Function& function, const std::vector<Outgoing>& outgoing);
    void arrive(Function& function, const Bytes& packet, uint32_t losses);
    void record(const Device& device, Direction direction, const Bytes& packet);
    void tell_lost(const PcieMessage& outgoing);

    Clock& clock_;
    Tap& tap_;
    const bool& main_power_;
    MctpEndpoint bmc_;  ///< splits what the BMC sends
    std::vector<std::unique_ptr<Function>> functions_;
    std::vector<Device*> devices_;
    std::deque<PcieMessage> queue_;  ///< messages that the BMC has not read
    std::vector<Open> open_;
    PcieStatistics statistics_;
};

}  // namespace sim

#endif
