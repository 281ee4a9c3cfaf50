// SPDX-License-Identifier: Apache-2.0
// A packet on a bus, as those who watch the buses are told of it.
#ifndef SIDEBAND_SIM_BOARD_PASSING_H
#define SIDEBAND_SIM_BOARD_PASSING_H

#include <array>
#include <cstdint>
#include <string>

#include "sim/board/board.h"
#include "sim/board/bytes.h"

namespace sim {

enum class Direction { kFromBmc, kToBmc };

/// A packet as it passed.
struct Passing {
    uint8_t bus = 0;
    uint8_t address = 0;  ///< 8-bit slave address of the device
    std::string device;   ///< on a serial line the one behind the bridge, or the bridge
    Direction direction = Direction::kFromBmc;
    ByteView packet;  ///< from the MCTP transport header on
    uint64_t at_ns = 0;
    bool pec_good = true;
    Transport transport = Transport::kI2c;
    std::array<uint8_t, 3> bdf{};  ///< of the device, on PCIe
    bool taken = true;  ///< false: on I2C nobody acknowledged it, elsewhere nobody is there
};

}  // namespace sim

#endif
