// SPDX-License-Identifier: Apache-2.0
// The I2C buses of a board as devices of this machine, in real time.
#ifndef SIDEBAND_SIM_CUSE_SERVICE_H
#define SIDEBAND_SIM_CUSE_SERVICE_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sim/board/board.h"
#include "sim/board/real_time.h"
#include "sim/cuse/adapter.h"
#include "sim/cuse/device.h"

namespace sim {

/// A bus as programs find it.
struct ServedBus {
    uint8_t bus = 0;
    std::string device;       ///< path of the adapter
    std::string slave_queue;  ///< path of the queue
};

class BusService {
public:
    /// @return null with error filled on failure
    static std::unique_ptr<BusService> open(Board& board, std::string& error);

    const std::vector<ServedBus>& buses() const { return paths_; }
    /// What passed, over all buses.
    BusTraffic traffic() const;

    /// Does what there is to do, and waits for it a tenth of a second at most. A signal ends the
    /// wait. The board's clock goes with the real one, from where it was at the beginning.
    /// @return false if the kernel has taken a device away
    bool serve_a_while();

private:
    /// The two devices of a bus. A node stays where it is: its device refers to it.
    struct Served {
        explicit Served(I2cBus& of) : bus(of) {}
        I2cBus& bus;
        BusTraffic traffic;
        I2cAdapter adapter{bus, traffic};
        SlaveQueue queue{bus, traffic};
        std::unique_ptr<CuseDevice> adapter_device;
        std::unique_ptr<CuseDevice> queue_device;
    };

    explicit BusService(BoardState& board);
    bool add(I2cBus& bus, std::string& error);
    void wait() const;

    BoardState& board_;
    RealTime time_;
    std::vector<std::unique_ptr<Served>> served_;
    std::vector<ServedBus> paths_;
};

}  // namespace sim

#endif
