// SPDX-License-Identifier: Apache-2.0
// Platform interface: I2C, the BMC's slave address, the SMBus checksum.
#include <sideband/platform.h>

#include <array>
#include <cerrno>

#include "platform/linux/state.h"

namespace {

/// What each byte makes of a checksum of 8 bits: x^8 + x^2 + x + 1 (SMBus 3.2, clause 6.4).
constexpr std::array<uint8_t, 256> pec_table() {
    std::array<uint8_t, 256> table{};
    for (unsigned byte = 0; byte < table.size(); ++byte) {
        unsigned crc = byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x80) != 0 ? (crc << 1 ^ 0x07) & 0xFF : crc << 1;
        }
        table[byte] = static_cast<uint8_t>(crc);
    }
    return table;
}

constexpr std::array<uint8_t, 256> kPecTable = pec_table();

int refuse(uint8_t bus) {
    console_log("I2C bus %u: this platform reaches devices through the kernel's MCTP only\n", bus);
    return -ENOSYS;
}

}  // namespace

int PltMCTPI2C_MasterWriteWithPEC_NoMutex(plt_i2c_request request) {
    return refuse(request.bus);
}

int PltMCTPI2C_MasterWrite_NoMutex(plt_i2c_request request) {
    return refuse(request.bus);
}

int PltMCTPI2C_SlaveReadWithPEC_NoMutex(plt_i2c_request request, uint32_t) {
    return refuse(request.bus);
}

// The kernel's drivers of multiplexers give each channel a bus number of its own.
int SetI2CMux(const plt_i2c_request*, const void*) {
    return 0;
}

int GetBMCCtrAdd(uint8_t* address) {
    const machine::State* const state = machine::in_use();
    if (state == nullptr || address == nullptr) {
        return -ENODEV;
    }
    *address = state->board.bmc_address;
    return 0;
}

uint8_t CRC8Gen(const uint8_t* data, uint8_t length) {
    uint8_t crc = 0;
    for (size_t i = 0; data != nullptr && i < length; ++i) {
        crc = kPecTable[crc ^ data[i]];
    }
    return crc;
}
