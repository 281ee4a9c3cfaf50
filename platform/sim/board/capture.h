// SPDX-License-Identifier: Apache-2.0
// A pcapng file of the MCTP packets that pass over the I2C buses, PCIe and a serial line.
#ifndef SIDEBAND_SIM_BOARD_CAPTURE_H
#define SIDEBAND_SIM_BOARD_CAPTURE_H

#include <cstdint>
#include <string>
#include <vector>

#include "platform/pcapng/writer.h"
#include "sim/board/board.h"
#include "sim/board/passing.h"

namespace sim {

/// One interface of the capture: an I2C bus, PCIe, or the serial line.
struct CaptureBus {
    uint8_t bus = 0;
    uint32_t clock_hz = 0;
    Transport transport = Transport::kI2c;
};

class Capture {
public:
    /// Opens the file and describes the buses. A FIFO must have its reader already.
    /// @return false with error filled on failure
    bool start(const std::string& path, const std::vector<CaptureBus>& buses, std::string& error);

    /// Appends a packet; does nothing while no capture runs.
    void packet(const Passing& passing);

    /// Brings what was appended so far into the file, for those who read along.
    void flush();

    /// @return false if a write had failed
    bool stop();

private:
    uint32_t interface_of(const Passing& passing);

    pcapng::Writer writer_;
    std::vector<CaptureBus> buses_;
};

}  // namespace sim

#endif
