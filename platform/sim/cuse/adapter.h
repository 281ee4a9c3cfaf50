// SPDX-License-Identifier: Apache-2.0
// An I2C bus of the board as Linux shows one to programs: the adapter's device (/dev/i2c-N, with
// the calls of <linux/i2c-dev.h>) and the queue of the blocks that are written to the BMC.
#ifndef SIDEBAND_SIM_CUSE_ADAPTER_H
#define SIDEBAND_SIM_CUSE_ADAPTER_H

#include <cstdint>
#include <map>

#include "sim/cuse/device.h"
#include "sim/mctp/i2c_bus.h"

namespace sim {

/// What passed between programs and a bus.
struct BusTraffic {
    uint64_t written = 0;  ///< messages that were acknowledged
    uint64_t refused = 0;  ///< those that were not
    uint64_t read = 0;     ///< blocks that somebody took from the queue
    uint64_t dropped = 0;  ///< blocks that were longer than their reader's room
};

class I2cAdapter final : public DeviceNode {
public:
    I2cAdapter(I2cBus& bus, BusTraffic& traffic) : bus_(bus), traffic_(traffic) {}

    int write(uint64_t opening, ByteView bytes) override;
    int read(size_t size, Bytes& bytes) override;
    IoctlAnswer ioctl(uint64_t opening, uint32_t command, uint64_t argument,
                      CallerMemory& memory) override;
    void closed(uint64_t opening) override { openings_.erase(opening); }

private:
    /// What a program has set for its own descriptor.
    struct Opening {
        uint8_t address = 0;  ///< 8-bit form
        bool with_pec = false;
    };

    int set_address(Opening& opening, uint64_t argument);
    IoctlAnswer functions(uint64_t argument, CallerMemory& memory) const;
    IoctlAnswer transfer(uint64_t argument, CallerMemory& memory);
    IoctlAnswer smbus(const Opening& opening, uint64_t argument, CallerMemory& memory);
    int send(uint8_t address, ByteView bytes);
    int fetch(uint8_t address, size_t size, Bytes& bytes);
    int count(int result);

    I2cBus& bus_;
    BusTraffic& traffic_;
    std::map<uint64_t, Opening> openings_;
};

/// One block each read(), from the BMC's address to the PEC; none when the queue is empty. There is
/// one queue, whoever reads it.
class SlaveQueue final : public DeviceNode {
public:
    SlaveQueue(I2cBus& bus, BusTraffic& traffic) : bus_(bus), traffic_(traffic) {}

    int read(size_t size, Bytes& bytes) override;
    uint32_t events(bool waits) override;

private:
    I2cBus& bus_;
    BusTraffic& traffic_;
};

}  // namespace sim

#endif
