// SPDX-License-Identifier: Apache-2.0
// Platform interface: I2C, its multiplexers, the SMBus checksum.
#include <sideband/platform.h>

#include <algorithm>
#include <cerrno>

#include "sim/board/in_use.h"

namespace {

using sim::Bytes;

constexpr uint64_t kDefaultWaitMs = 1000;

Bytes frame_of(const plt_i2c_request& request) {
    return {request.write_data, request.write_data + request.write_length};
}

int write_frame(const plt_i2c_request& request, const Bytes& frame) {
    sim::BoardState* board = sim::in_use();
    if (board == nullptr) {
        return -ENODEV;
    }
    std::lock_guard guard(board->mutex);
    sim::I2cBus* bus = board->find_bus(request.bus);
    return bus != nullptr ? bus->write(request.slave_addr, frame) : -ENODEV;
}

}  // namespace

int PltMCTPI2C_MasterWriteWithPEC_NoMutex(plt_i2c_request request) {
    if (request.write_data == nullptr) {
        return -EINVAL;
    }
    Bytes frame = frame_of(request);
    frame.push_back(sim::smbus_pec(frame));
    return write_frame(request, frame);
}

int PltMCTPI2C_MasterWrite_NoMutex(plt_i2c_request request) {
    if (request.write_data == nullptr) {
        return -EINVAL;
    }
    return write_frame(request, frame_of(request));
}

int PltMCTPI2C_SlaveReadWithPEC_NoMutex(plt_i2c_request request, uint32_t param) {
    sim::BoardState* board = sim::in_use();
    if (board == nullptr || request.read_buffer == nullptr) {
        return -ENODEV;
    }
    std::lock_guard guard(board->mutex);
    sim::I2cBus* bus = board->find_bus(request.bus);
    if (bus == nullptr) {
        return -ENODEV;
    }
    const uint64_t wait_ms = (param & 0xFFFF) != 0 ? param & 0xFFFF : kDefaultWaitMs;
    Bytes block;
    const int result = bus->read(block, wait_ms * sim::kNsPerMs);
    if (result != 0) {
        return result;
    }
    // A block has at most 255 + 3 bytes, which always fits PLT_I2C_READ_BUFFER_SIZE.
    std::ranges::copy(block, request.read_buffer);
    return static_cast<int>(block.size());
}

int SetI2CMux(const plt_i2c_request* request, const void* mux) {
    sim::BoardState* board = sim::in_use();
    if (board == nullptr || request == nullptr || mux == nullptr) {
        return -ENODEV;
    }
    std::lock_guard guard(board->mutex);
    sim::I2cBus* bus = board->find_bus(request->bus);
    const auto path = sim::decode_mux(static_cast<const uint8_t*>(mux));
    return bus != nullptr && path && bus->select(*path) ? 0 : -EINVAL;
}

int GetBMCCtrAdd(uint8_t* address) {
    const sim::BoardState* board = sim::in_use();
    if (board == nullptr || address == nullptr) {
        return -ENODEV;
    }
    *address = board->bmc_address;
    return 0;
}

uint8_t CRC8Gen(const uint8_t* data, uint8_t length) {
    return data != nullptr ? sim::smbus_pec({data, length}) : 0;
}
