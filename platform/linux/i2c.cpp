// SPDX-License-Identifier: Apache-2.0
// Platform interface: I2C, its multiplexers, the BMC's slave address, the SMBus checksum.
#include <sideband/platform.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/linux/i2c_bus.h"
#include "platform/linux/state.h"

namespace {

constexpr int kDefaultWaitMs = 1000;
constexpr uint32_t kWaitBits = 0xFFFF;

/// The frame of a request that has one: from the destination address on, which is that of the
/// device.
std::span<const uint8_t> frame_of(const plt_i2c_request& request) {
    const bool sound = request.write_data != nullptr && request.write_length > 0 &&
                       request.write_data[0] == request.slave_addr;
    return sound ? std::span(request.write_data, request.write_length) : std::span<const uint8_t>{};
}

}  // namespace

/// The PEC is appended here: I2C_RDWR has none, and the block write of the kernel's SMBus calls
/// ends at 32 bytes. Stale answers go first, as with a queue that the library finds by itself.
int PltMCTPI2C_MasterWriteWithPEC_NoMutex(plt_i2c_request request) {
    machine::State* const state = machine::in_use();
    const std::span<const uint8_t> frame = frame_of(request);
    if (state == nullptr || frame.empty()) {
        return -EINVAL;
    }
    machine::I2cBus& bus = state->i2c.at(request.bus);
    if (const int failed = bus.empty(); failed != 0) {
        return failed;
    }
    std::vector<uint8_t> bytes(frame.begin() + 1, frame.end());
    bytes.push_back(machine::smbus_pec(frame));
    return bus.write(request.slave_addr, bytes);
}

int PltMCTPI2C_MasterWrite_NoMutex(plt_i2c_request request) {
    machine::State* const state = machine::in_use();
    const std::span<const uint8_t> frame = frame_of(request);
    if (state == nullptr || frame.empty()) {
        return -EINVAL;
    }
    return state->i2c.at(request.bus).write(request.slave_addr, frame.subspan(1));
}

int PltMCTPI2C_SlaveReadWithPEC_NoMutex(plt_i2c_request request, uint32_t param) {
    machine::State* const state = machine::in_use();
    if (state == nullptr || request.read_buffer == nullptr) {
        return -EINVAL;
    }
    const uint32_t wait_ms = (param & kWaitBits) != 0 ? param & kWaitBits : kDefaultWaitMs;
    return state->i2c.at(request.bus)
        .receive({request.read_buffer, PLT_I2C_READ_BUFFER_SIZE}, static_cast<int>(wait_ms));
}

/// Before a read there is nothing to switch, unless another process or another device of this one
/// had the bus since: each write to a multiplexer could cost a device the arbitration for its
/// answer.
int SetI2CMux(const plt_i2c_request* request, const void* mux) {
    machine::State* const state = machine::in_use();
    if (state == nullptr || request == nullptr || mux == nullptr) {
        return -EINVAL;
    }
    machine::MuxSetting setting;
    std::memcpy(setting.data(), mux, setting.size());
    machine::I2cBus& bus = state->i2c.at(request->bus);
    uint32_t& router = state->records.get().router[request->bus];
    const auto self = static_cast<uint32_t>(getpid());
    const bool reads = request->write_data == nullptr;
    if (!reads || router != self || bus.setting() != setting) {
        router = self;
        bus.route(setting);
    }
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
    return data != nullptr ? machine::smbus_pec({data, length}) : 0;
}
