// SPDX-License-Identifier: Apache-2.0
// Locks, power, I2C and PCIe access as the input has them.
#include <sideband/platform.h>

#include <algorithm>
#include <cstring>

#include "fuzz/check.h"
#include "fuzz/world.h"

namespace {

using fuzz::require;
using fuzz::World;
using fuzz::world;

/// A written frame: destination, command code, byte count, source, then the MCTP packet.
constexpr size_t kFramePacket = 4;
/// A read block has no destination in front.
constexpr size_t kBlockPacket = 3;
constexpr size_t kPacketFlags = 3;
constexpr size_t kPacketType = 4;
constexpr uint8_t kSom = 0x80;
constexpr uint8_t kTagOwner = 0x08;
constexpr uint8_t kTagMask = 0x07;

/// What a slave read left behind; said again if the device is endless.
struct Block {
    int result = -1;
    uint8_t bytes[PLT_I2C_READ_BUFFER_SIZE] = {};
    size_t size = 0;
};
Block last_block;

/// Block record flags.
enum : uint8_t {
    kBlockFails = 0x01,     ///< a negative result from the next byte
    kBlockResult = 0x02,    ///< the result is the next 16 bits, whatever was stored
    kBlockFixTag = 0x04,    ///< TO clear and the tag of the request
    kBlockEcho = 0x08,      ///< instance ID and command of the request, behind the type byte
    kBlockWithEnds = 0x10,  ///< SMBus header and PEC are added: the bytes are an MCTP packet
    kBlockLarge = 0x80,     ///< four times the length
};

/// In a packet that starts a message: behind the instance ID, and in PLDM behind the PLDM type.
size_t command_offset(const uint8_t* packet) {
    return kPacketType + (packet[kPacketType] == MCTP_MSG_TYPE_CONTROL ? 2 : 3);
}

int write_packet(const plt_i2c_request& request, size_t pec) {
    World& at = world();
    const uint8_t* const frame = request.write_data;
    require(!at.held.empty(), "a write without a lock");
    require(request.write_length >= kFramePacket + 5 + pec, "a write without a packet");
    require(frame[0] == request.slave_addr && frame[1] == 0x0F, "a write without its header");
    require(frame[2] + 3u + pec == request.write_length, "a wrong byte count");
    uint8_t sum = 0;
    for (size_t i = 0; i < request.write_length; ++i) {
        sum = static_cast<uint8_t>(sum + frame[i]);
    }
    const volatile uint8_t sink = sum;
    (void)sink;
    const uint8_t* const packet = frame + kFramePacket;
    const size_t size = request.write_length - kFramePacket - pec;
    if ((packet[kPacketFlags] & kSom) != 0) {
        const size_t command = command_offset(packet);
        at.last_tag = packet[kPacketFlags] & kTagMask;
        at.last_instance = size > kPacketType + 1 ? packet[kPacketType + 1] & 0x1F : 0;
        at.last_command = size > command ? packet[command] : 0;
    }
    ++at.writes;
    return (at.write_failures >> (at.writes % 8) & 1) != 0 ? -1 : 0;
}

/// Makes the packet in a block an answer to the last request, as far as the flags ask for it.
void fit_to_request(Block& block, uint8_t flags) {
    const World& at = world();
    uint8_t* const packet = block.bytes + kBlockPacket;
    const size_t size = block.size - std::min(block.size, kBlockPacket);
    if ((flags & kBlockFixTag) != 0 && size > kPacketFlags) {
        packet[kPacketFlags] =
            static_cast<uint8_t>((packet[kPacketFlags] & ~(kTagOwner | kTagMask)) | at.last_tag);
    }
    if ((flags & kBlockEcho) != 0 && size > command_offset(packet)) {
        uint8_t& instance = packet[kPacketType + 1];
        instance = static_cast<uint8_t>((instance & 0xE0) | at.last_instance);
        packet[command_offset(packet)] = at.last_command;
    }
}

Block next_block() {
    World& at = world();
    Block block{};
    if (at.input.empty()) {
        return block;
    }
    const uint8_t flags = at.input.u8();
    if ((flags & kBlockFails) != 0) {
        block.result = -1 - at.input.u8();
        return block;
    }
    const uint16_t claimed = (flags & kBlockResult) != 0 ? at.input.u16() : uint16_t{0};
    const size_t length = at.input.u8() * ((flags & kBlockLarge) != 0 ? size_t{4} : size_t{1});
    const size_t ends = (flags & kBlockWithEnds) != 0 ? kBlockPacket : 0;
    const std::span<const uint8_t> bytes = at.input.take(std::min(length, 1000 - ends));
    std::copy(bytes.begin(), bytes.end(), block.bytes + ends);
    block.size = ends + bytes.size() + (ends != 0 ? 1 : 0);
    block.result =
        (flags & kBlockResult) != 0 ? static_cast<int16_t>(claimed) : static_cast<int>(block.size);
    fit_to_request(block, flags);
    return block;
}

}  // namespace

int lx_mutex_get(lx_mutex* mutex, int wait_ms) {
    World& at = world();
    require(wait_ms == LX_MUTEX_WAIT_FOREVER, "a lock with a time limit");
    ++at.lock_calls;
    if (at.lock_calls == at.refuse_lock) {
        return -1;
    }
    require(std::find(at.held.begin(), at.held.end(), mutex) == at.held.end(),
            "a lock was taken twice");
    at.held.push_back(mutex);
    return 0;
}

int lx_mutex_put(lx_mutex* mutex) {
    World& at = world();
    require(!at.held.empty() && at.held.back() == mutex, "a lock was released out of order");
    at.held.pop_back();
    return 0;
}

// A channel's lock is held like every other; the linker routes the calls through here.

static lx_mutex channel_locks[UINT8_MAX + 1];

extern "C" int __wrap_i2c_chnl_mutex_get(uint8_t channel, int wait_ms) {
    return lx_mutex_get(&channel_locks[channel], wait_ms);
}

extern "C" int __wrap_i2c_chnl_mutex_put(uint8_t channel) {
    return lx_mutex_put(&channel_locks[channel]);
}

int _PltGPIO_RegRead(uint32_t base, uint32_t /*group*/, uint32_t /*offset*/, uint8_t* value) {
    require(base == PLT_MAIN_POWER_REGISTER, "an unknown register");
    *value = world().power ? 1 : 0;
    return 0;
}

int GetS5stByPwrConfig() {
    return world().standby_off ? 1 : 0;
}

int PltMCTPI2C_MasterWriteWithPEC_NoMutex(plt_i2c_request request) {
    return write_packet(request, 0);
}

int PltMCTPI2C_MasterWrite_NoMutex(plt_i2c_request request) {
    return write_packet(request, 1);
}

int PltMCTPI2C_SlaveReadWithPEC_NoMutex(plt_i2c_request request, uint32_t /*param*/) {
    World& at = world();
    ++at.reads;
    require(!at.held.empty(), "a read without a lock");
    static constexpr uint8_t kZeros[PLT_I2C_READ_BUFFER_SIZE] = {};
    require(std::memcmp(request.read_buffer, kZeros, sizeof kZeros) == 0,
            "the read buffer is not zeroed");
    const bool repeats = at.endless && at.input.empty() && at.has_spoken;
    if (!repeats) {
        at.has_spoken = !at.input.empty();
        last_block = next_block();
    }
    // A driver may lie about what it stored, but not store more than it tells.
    const auto told = static_cast<size_t>(std::max(last_block.result, 0));
    const size_t stored = last_block.result < 0 ? last_block.size : std::min(told, last_block.size);
    std::memcpy(request.read_buffer, last_block.bytes, std::min(stored, sizeof last_block.bytes));
    return last_block.result;
}

uint8_t CRC8Gen(const uint8_t* data, uint8_t length) {
    uint8_t sum = 0;
    for (size_t i = 0; i < length; ++i) {
        sum = static_cast<uint8_t>(sum * 7 + data[i]);
    }
    return sum;
}

/// PCIe record flags, in the answer's flags byte's place: see next_answer(). The record's fields
/// follow: result, claimed length and the peer's addressing.
int PltMCTP_WriteRead(plt_pcie_request* request) {
    World& at = world();
    ++at.exchanges;
    require(request->length <= PLT_PCIE_MESSAGE_SIZE, "a message that no record holds");
    if (request->operation != PLT_PCIE_READ && request->length >= 3) {
        at.last_instance = request->message[1] & 0x1F;
        at.last_command = request->message[request->message[0] == MCTP_MSG_TYPE_CONTROL ? 2 : 3];
    }
    if (request->operation == PLT_PCIE_WRITE) {
        return 0;
    }
    const bool control = request->message[0] == MCTP_MSG_TYPE_CONTROL;
    const uint8_t how = at.input.u8();
    const fuzz::Answer answer = fuzz::next_answer(control ? 1 : 2);
    if (answer.result < 0) {
        return answer.result;
    }
    const size_t room = sizeof request->message - 1;
    const size_t stored = std::min(answer.bytes.size(), room);
    std::copy_n(answer.bytes.begin(), stored, request->message + 1);
    request->length = static_cast<uint32_t>(stored + 1);
    if ((how & 0x01) != 0) {
        request->length = at.input.u32();
    }
    if ((how & 0x02) != 0) {
        request->dest_eid = at.input.u32();
        request->bus = at.input.u8();
        request->device = at.input.u8();
        request->function = at.input.u8();
        request->tag = at.input.u8();
        request->src_eid = at.input.u8();
    }
    return (how & 0x04) != 0 ? at.input.u8() : 1;
}
