// SPDX-License-Identifier: Apache-2.0
// The bridge between a serial line and a board: it routes packets by EID, and is an endpoint itself
// (DSP0236).
#ifndef SIDEBAND_SIM_SERIAL_BRIDGE_H
#define SIDEBAND_SIM_SERIAL_BRIDGE_H

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/board/bytes.h"
#include "sim/board/state.h"
#include "sim/device/device.h"
#include "sim/mctp/control.h"
#include "sim/mctp/eid_pool.h"
#include "sim/mctp/endpoint.h"

namespace sim {

/// Stands where the BMC would: what the line's client sends reaches the devices at once, and what
/// they send goes to the line when the board's clock has come so far. The buses with their clocks
/// and multiplexers are passed by; power and the devices' faults count.
///
/// The board is locked by the caller.
class Bridge {
public:
    using Send = std::function<void(ByteView packet)>;

    static constexpr uint8_t kFirstEid = 8;
    static constexpr uint8_t kLastEid = 254;

    /// Gives the devices EIDs, in the order of the board file and from the bridge's own on. A board
    /// with more devices than there are EIDs has some that nobody reaches.
    /// @param send  takes the packets for the line
    Bridge(BoardState& board, uint8_t eid, Send send);
    Bridge(const Bridge&) = delete;
    Bridge& operator=(const Bridge&) = delete;

    uint8_t eid() const { return endpoint_.eid(); }

    /// Takes a packet from the line, from the MCTP transport header on.
    void receive(ByteView packet);

    /// Has devices do what they do by themselves.
    void let_devices_act();

    /// When the next packet for the line is due, in nanoseconds of the board's clock.
    std::optional<uint64_t> next_due() const;
    /// Sends what is due now.
    void send_due();

private:
    /// A packet on its way to the line.
    struct Waiting {
        Bytes packet;
        std::string device;
    };

    Device* find_device(uint8_t eid) const;
    bool powered(const Device& device) const;
    void hand_to(Device& device, ByteView packet);
    void collect(const Device& device, const std::vector<Outgoing>& outgoing);
    void wait_to_send(const std::string& device, Bytes packet, uint64_t delay_ns);
    void record(const std::string& device, Direction direction, ByteView packet, bool taken);

    void serve(const Message& request);
    std::optional<Bytes> answer(ByteView request);
    void hand_out_pool();
    std::vector<Bytes> routes() const;
    Bytes route_to(const Device& device) const;

    BoardState& board_;
    Send send_;
    MctpEndpoint endpoint_;
    ControlResponder control_;
    EidPool pool_;
    std::multimap<uint64_t, Waiting> waiting_;  ///< by the time that they are due
};

}  // namespace sim

#endif
