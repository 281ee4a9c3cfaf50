// SPDX-License-Identifier: Apache-2.0
// MCTP control on an I2C bus by the port's own calls, without the library.
#ifndef SIDEBAND_PORTTEST_RAW_BUS_H
#define SIDEBAND_PORTTEST_RAW_BUS_H

#include <optional>
#include <vector>

#include "porttest/rule.h"

namespace porttest {

using Bytes = std::vector<uint8_t>;

/// SMBus CRC-8 of bytes, independent of the port's.
uint8_t smbus_crc8(const uint8_t* data, size_t length);

/// What a slave read has stored.
struct Block {
    int result = 0;  ///< of the port
    Bytes bytes;     ///< the whole buffer, PLT_I2C_READ_BUFFER_SIZE bytes
    bool overrun = false;

    int length() const;  ///< stored bytes, at least 0 and at most the buffer
};

/// A bus whose mutex this object holds.
class RawBus {
public:
    RawBus(const Subject& subject, uint8_t bus);
    ~RawBus();
    RawBus(const RawBus&) = delete;
    RawBus& operator=(const RawBus&) = delete;

    enum class Pec { kByPort, kAsGiven };
    static constexpr uint8_t kGetEndpointId = 0x02;
    static constexpr uint8_t kGetEndpointUuid = 0x03;

    /// Writes a control request with a tag and instance ID of its own.
    /// @return what the port returns
    int request(const Place& place, Pec pec, uint8_t command = kGetEndpointId);
    /// Reads one block that somebody writes to the BMC.
    Block read(uint8_t read_length = kReadLength);
    /// Reads until the answer to the last request but `before` comes.
    /// @return its bytes behind the completion code; nothing if none came
    std::optional<Bytes> answer(int before = 0);
    /// As answer(), the whole block.
    std::optional<Block> answer_block(int before = 0, uint8_t read_length = kReadLength);

    static constexpr uint8_t kReadLength = 4 + 64 + 3;

private:
    const Subject& subject_;
    plt_i2c_request where_{};
    int count_;
};

}  // namespace porttest

#endif
