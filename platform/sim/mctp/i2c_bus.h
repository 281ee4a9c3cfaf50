// SPDX-License-Identifier: Apache-2.0
// An I2C bus with its multiplexers, its devices and the BMC's slave queue.
#ifndef SIDEBAND_SIM_MCTP_I2C_BUS_H
#define SIDEBAND_SIM_MCTP_I2C_BUS_H

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "sim/board/board.h"
#include "sim/board/bytes.h"
#include "sim/board/clock.h"
#include "sim/board/tap.h"
#include "sim/device/device.h"

namespace sim {

/// A multiplexer on a bus, with the one in front of it if there is one.
struct Mux {
    uint8_t address = 0;
    uint8_t channels = 0;
    std::optional<MuxHop> behind;
};

/// What the buses of a board share.
struct BusSurroundings {
    Clock& clock;
    Tap& tap;
    const bool& main_power;
    uint8_t bmc_address;
};

class I2cBus {
public:
    I2cBus(uint8_t number, uint32_t clock_hz, BusSurroundings around);

    uint8_t number() const { return statistics_.bus; }
    const BusStatistics& statistics() const { return statistics_; }

    void add_mux(const Mux& mux) { muxes_.push_back({mux, {}}); }
    const Mux* find_mux(uint8_t address) const;
    /// The hops to a multiplexer channel, from the bus itself on.
    MuxPath path_to(const MuxHop& hop) const;

    void attach(Device& device) { devices_.push_back(&device); }
    const std::vector<Device*>& devices() const { return devices_; }

    /// Connects exactly the given channels. @return false if the path does not exist
    bool select(const MuxPath& path);

    /// Writes a block to a device.
    /// @param frame  from the destination address to the PEC
    /// @return 0, or a negative errno value if an acknowledge was missing
    int write(uint8_t address, ByteView frame);

    /// Waits for a block that a device writes to the BMC.
    /// @param block  receives what follows the BMC's address, the PEC included
    /// @return 0; -ETIMEDOUT when the limit has passed, -EBADMSG for a wrong PEC
    int read(Bytes& block, uint64_t limit_ns);

    /// Empties the BMC's slave queue.
    void drain() { queue_.clear(); }

    // What a controller does for whoever drives the bus byte by byte.

    /// Writes bytes to a device, or to a multiplexer, whose channels are then those whose bits the
    /// last byte has set.
    /// @param data  what follows the address, for a device up to the PEC; empty for the address
    /// alone
    /// @return 0, or a negative errno value as write() has it
    int master_write(uint8_t address, ByteView data);

    /// Reads so many bytes: a multiplexer's channels; of a device, which writes to the BMC whatever
    /// it has to say, a bus that nobody pulls down.
    /// @return 0, or a negative errno value if an acknowledge was missing
    int master_read(uint8_t address, size_t size, Bytes& data);

    /// Whether a block waits in the BMC's slave queue.
    bool has_block() const { return !queue_.empty(); }
    /// Takes the oldest one, from the BMC's address to the PEC, right or wrong.
    std::optional<Bytes> take_block();
    /// The BMC has begun to wait for a block.
    void bmc_waits();
    /// Time has passed in which the BMC has asked nothing.
    void let_devices_act();

private:
    struct MuxState {
        Mux mux;
        uint8_t connected = 0;  ///< its channels, a bit each
    };

    bool connected(const MuxPath& path) const;
    bool powered(const Device& device) const;
    Device* find_device(uint8_t address) const;
    MuxState* find_chip(uint8_t address);
    bool answers(uint8_t address) const;
    uint64_t wire_ns(size_t bytes) const;
    void tell_refused(uint8_t address, ByteView frame);
    void charge(size_t bytes);
    void occupy(size_t bytes);
    void count_packet(size_t packet_size);
    void schedule(Device& device, const std::vector<Outgoing>& outgoing);
    void transmit(Device& device, const Bytes& frame, uint32_t losses);
    void arrive(const Device& device, const Bytes& frame, uint32_t losses);

    BusStatistics statistics_;
    BusSurroundings around_;
    std::vector<MuxState> muxes_;
    std::vector<Device*> devices_;
    std::deque<Bytes> queue_;  ///< frames at the BMC's slave address
    uint64_t free_at_ns_ = 0;  ///< end of the transfer on the wire
};

}  // namespace sim

#endif
