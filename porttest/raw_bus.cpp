// SPDX-License-Identifier: Apache-2.0
// MCTP control on an I2C bus by the port's own calls, without the library.
#include "porttest/raw_bus.h"

#include <unistd.h>

#include <algorithm>

namespace porttest {

namespace {

constexpr uint8_t kCommandCode = 0x0F;   // DSP0237, table 1
constexpr uint8_t kRequestFlags = 0xC8;  // SOM, EOM, tag owner; DSP0236, clause 8.1
constexpr uint8_t kAnswerFlags = 0xC0;   // SOM, EOM
constexpr uint8_t kRequestBit = 0x80;    // DSP0236, clause 12
constexpr int kForeignMax = 32;          // blocks of others that are passed over
constexpr size_t kGuard = 64;
constexpr uint8_t kGuardByte = 0xA5;
// Places in a block as a slave read stores it.
constexpr size_t kFlagsAt = 6;
constexpr size_t kTypeAt = 7;
constexpr size_t kInstanceAt = 8;
constexpr size_t kDataAt = 11;

uint8_t tag_of(int number) {
    return static_cast<uint8_t>(number & 0x07);
}

uint8_t instance_of(int number) {
    return static_cast<uint8_t>(number & 0x1F);
}

}  // namespace

uint8_t smbus_crc8(const uint8_t* data, size_t length) {
    unsigned crc = 0;
    for (size_t i = 0; i < length; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x80) != 0 ? (crc << 1 ^ 0x07) & 0xFF : crc << 1;
        }
    }
    return static_cast<uint8_t>(crc);
}

int Block::length() const {
    return std::clamp(result, 0, PLT_I2C_READ_BUFFER_SIZE);
}

/// Requests are counted on from the process ID, so that what an earlier process left behind is not
/// taken for an answer.
RawBus::RawBus(const Subject& subject, uint8_t bus) : subject_(subject), count_(getpid()) {
    where_.bus = bus;
    subject.port.mutex_get(&subject.global_var().bus_mutex[bus], LX_MUTEX_WAIT_FOREVER);
}

RawBus::~RawBus() {
    subject_.port.mutex_put(&subject_.global_var().bus_mutex[where_.bus]);
}

int RawBus::request(const Place& place, Pec pec, uint8_t command) {
    ++count_;
    uint8_t bmc_address = 0x20;
    subject_.port.bmc_address(&bmc_address);
    constexpr uint8_t kVersion = 1;
    constexpr uint8_t kControl = 0;
    constexpr uint8_t kNullEid = 0;
    Bytes frame{place.address,
                kCommandCode,
                0,
                static_cast<uint8_t>(bmc_address | 1),
                kVersion,
                kNullEid,
                subject_.eid(),
                static_cast<uint8_t>(kRequestFlags | tag_of(count_)),
                kControl,
                static_cast<uint8_t>(kRequestBit | instance_of(count_)),
                command};
    constexpr size_t kBeforeCount = 3;
    frame[2] = static_cast<uint8_t>(frame.size() - kBeforeCount);
    if (pec == Pec::kAsGiven) {
        frame.push_back(smbus_crc8(frame.data(), frame.size()));
    }
    where_.slave_addr = place.address;
    where_.write_length = static_cast<uint8_t>(frame.size());
    where_.write_data = frame.data();
    where_.read_length = 0;
    where_.read_buffer = nullptr;
    subject_.port.set_mux(&where_, place.mux.data());
    return pec == Pec::kByPort ? subject_.port.write_with_pec(where_)
                               : subject_.port.write_as_given(where_);
}

Block RawBus::read(uint8_t read_length) {
    Block block;
    block.bytes.assign(PLT_I2C_READ_BUFFER_SIZE, 0);
    block.bytes.insert(block.bytes.end(), kGuard, kGuardByte);
    where_.write_length = 0;
    where_.write_data = nullptr;
    where_.read_length = read_length;
    where_.read_buffer = block.bytes.data();
    block.result = subject_.port.slave_read(where_, 0);
    block.overrun = std::any_of(block.bytes.end() - kGuard, block.bytes.end(),
                                [](uint8_t byte) { return byte != kGuardByte; });
    block.bytes.resize(PLT_I2C_READ_BUFFER_SIZE);
    return block;
}

std::optional<Block> RawBus::answer_block(int before, uint8_t read_length) {
    const int number = count_ - before;
    for (int i = 0; i < kForeignMax; ++i) {
        Block block = read(read_length);
        if (block.result < 0) {
            return std::nullopt;
        }
        // Wherever it is in the block: what a block looks like is another rule's.
        for (const size_t shift : {0, 1}) {
            const uint8_t* const at = block.bytes.data() + shift;
            if (at[kFlagsAt] == (kAnswerFlags | tag_of(number)) && at[kTypeAt] == 0 &&
                at[kInstanceAt] == instance_of(number)) {
                return block;
            }
        }
    }
    return std::nullopt;
}

std::optional<Bytes> RawBus::answer(int before) {
    const std::optional<Block> block = answer_block(before);
    if (!block) {
        return std::nullopt;
    }
    const int last = std::max(block->length() - 1, static_cast<int>(kDataAt));
    return Bytes(block->bytes.begin() + kDataAt, block->bytes.begin() + last);
}

}  // namespace porttest
