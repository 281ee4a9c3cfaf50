// SPDX-License-Identifier: Apache-2.0
// Where lengths, counts, handles and flags stand in the messages of devices.
#ifndef SIDEBAND_SIM_DEVICE_HOSTILE_FIELDS_H
#define SIDEBAND_SIM_DEVICE_HOSTILE_FIELDS_H

#include <cstdint>
#include <optional>
#include <span>

#include "sim/board/bytes.h"
#include "sim/mctp/endpoint.h"

namespace sim {

/// What makes a message a certain one: its type, and as far as it says them its own type and
/// command. A message of NVMe-MI does not say its opcode, only whose command it is.
struct MessageKey {
    uint8_t type = 0;  ///< without the integrity check bit
    uint8_t protocol = 0;
    uint8_t command = 0;
    bool request = false;  ///< the device's own
    bool operator==(const MessageKey&) const = default;
};

MessageKey key_of(const Message& message);

/// A whole number in the body of a message.
struct Field {
    uint16_t at = 0;
    uint8_t width = 1;
    bool big_endian = false;
    /// In an answer that is one of several: the value that says that it is not the last one.
    std::optional<uint32_t> goes_on = std::nullopt;
};

/// The fields of a message on which it depends how much is read of it, and what is asked for next.
/// Empty if none are known.
std::span<const Field> fields_of(const MessageKey& key);

/// Bytes in front of what a message is about: header, completion code, status.
size_t header_size(const MessageKey& key);

/// Writes a field as far as the body has it.
void put_field(Bytes& body, const Field& field, uint32_t value);
/// Reads one; 0 of a body that has not all of it.
uint32_t get_field(ByteView body, const Field& field);

/// Makes the checksum inside a body right again if it has one: that of NC-SI, and that of a FRU
/// record table which is all in one part. Others do not stand where one message alone could tell.
void mend_checksum(const MessageKey& key, Bytes& body);

}  // namespace sim

#endif
