// SPDX-License-Identifier: Apache-2.0
// The platform functions that an exchange calls, each reduced to a few instructions.
#include "bench/memory_platform.h"

#include <sideband/platform.h>

#include <algorithm>
#include <cstring>

namespace {

/// A block as a slave read delivers it: command code, byte count, source address, packet, PEC.
constexpr size_t kFlags = 6;
constexpr size_t kInstanceId = 8;
constexpr size_t kBlockRoom = 128;
/// The same places in a written frame, which has the destination address in front.
constexpr size_t kFrameFlags = kFlags + 1;
constexpr size_t kFrameInstanceId = kInstanceId + 1;

constexpr uint8_t kSom = 0x80;
constexpr uint8_t kEom = 0x40;
constexpr uint8_t kTagMask = 0x07;
constexpr uint8_t kInstanceIdMask = 0x1F;

struct Block {
    alignas(16) uint8_t bytes[kBlockRoom];
    int length;
};

Block answer[bench::kPacketsMax];
size_t answer_count;
size_t next_block;
uint64_t written;
uint8_t tag;
uint8_t instance_id;

/// Copies in the program itself, so that the instruction count can tell it from the library's
/// copies, which are libc's.
inline void copy_block(uint8_t* to, const uint8_t* from) {
    using Words = uint64_t __attribute__((vector_size(16), aligned(1), may_alias));
    for (size_t i = 0; i < kBlockRoom; i += sizeof(Words)) {
        *reinterpret_cast<Words*>(to + i) = *reinterpret_cast<const Words*>(from + i);
    }
}

inline int note_request(const plt_i2c_request& request) {
    ++written;
    if ((request.write_data[kFrameFlags] & kSom) != 0) {
        tag = request.write_data[kFrameFlags] & kTagMask;
        instance_id = request.write_data[kFrameInstanceId] & kInstanceIdMask;
    }
    return 0;
}

}  // namespace

void bench::prepare_answer(uint8_t type, const uint8_t* body, size_t length, size_t unit_size) {
    answer_count = 0;
    next_block = 0;
    written = 0;
    tag = 0;
    instance_id = 0;
    const size_t total = length + 1;
    for (size_t position = 0; position < total && answer_count < kPacketsMax; ++answer_count) {
        const size_t payload = std::min(unit_size, total - position);
        Block& block = answer[answer_count];
        block = Block{};
        const uint8_t header[] = {0x0F, static_cast<uint8_t>(payload + 5), 0x65, 0x01, 0x08, 0x1D};
        std::memcpy(block.bytes, header, sizeof header);
        const bool first = position == 0;
        const bool last = position + payload == total;
        block.bytes[kFlags] =
            static_cast<uint8_t>((first ? kSom : 0) | (last ? kEom : 0) | (answer_count & 3) << 4);
        uint8_t* to = block.bytes + kFlags + 1;
        if (first) {
            *to = type;
            std::memcpy(to + 1, body, payload - 1);
        } else {
            std::memcpy(to, body + position - 1, payload);
        }
        block.length = static_cast<int>(kFlags + 1 + payload + 1);
        position += payload;
    }
}

uint64_t bench::packets_written() {
    return written;
}

int lx_mutex_get(lx_mutex* /*mutex*/, int /*wait_ms*/) {
    return 0;
}

int lx_mutex_put(lx_mutex* /*mutex*/) {
    return 0;
}

int _PltGPIO_RegRead(uint32_t /*base*/, uint32_t /*group*/, uint32_t /*offset*/, uint8_t* value) {
    *value = 1;
    return 0;
}

int GetS5stByPwrConfig() {
    return 0;
}

int PltMCTPI2C_MasterWriteWithPEC_NoMutex(plt_i2c_request request) {
    return note_request(request);
}

int PltMCTPI2C_MasterWrite_NoMutex(plt_i2c_request request) {
    return note_request(request);
}

int PltMCTPI2C_SlaveReadWithPEC_NoMutex(plt_i2c_request request, uint32_t /*param*/) {
    const Block& block = answer[next_block];
    copy_block(request.read_buffer, block.bytes);
    request.read_buffer[kFlags] |= tag;
    if ((request.read_buffer[kFlags] & kSom) != 0) {
        request.read_buffer[kInstanceId] |= instance_id;
    }
    ++next_block;
    if (next_block == answer_count) {
        next_block = 0;
    }
    return block.length;
}

/// Not the CRC-8: nobody checks it here, and a port's real one would only blur the figures.
uint8_t CRC8Gen(const uint8_t* data, uint8_t length) {
    return static_cast<uint8_t>(data[0] ^ length);
}

int PltMCTP_WriteRead(plt_pcie_request* /*request*/) {
    return 0;
}
