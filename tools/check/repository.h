// SPDX-License-Identifier: Apache-2.0
// The PDR repository of a device, read as the rules need it: part by part, with an end in any case.
#ifndef SIDEBAND_TOOLS_CHECK_REPOSITORY_H
#define SIDEBAND_TOOLS_CHECK_REPOSITORY_H

#include <string>

#include "tools/check/messages.h"

namespace tool::check {

/// Commands of monitoring and control (DSP0248).
enum MonitorCommand : uint8_t {
    kSetNumericSensorEnable = 0x10,
    kGetSensorReading = 0x11,
    kGetSensorThresholds = 0x12,
    kSetStateSensorEnables = 0x20,
    kGetStateSensorReadings = 0x21,
    kGetPdrRepositoryInfo = 0x50,
    kGetPdr = 0x51,
    kGetPdrRepositorySignature = 0x53,
};

/// A PDR begins with this: record handle, header version, type, change number, data length.
inline constexpr size_t kPdrHeader = 10;

/// What one GetPDR asks for.
struct PdrPart {
    uint32_t record = 0;
    uint32_t transfer = 0;
    uint8_t operation = kGetFirstPart;
    uint16_t count = 0;
    uint16_t change = 0;
};

Exchange ask_pdr(Device& device, const PdrPart& part);

/// One answer of GetPDR.
struct PdrAnswer {
    uint32_t next_record = 0;
    uint32_t next_transfer = 0;
    uint8_t flag = 0;
    uint16_t count = 0;
    std::span<const uint8_t> data;
    std::optional<uint8_t> checksum;

    bool last() const { return (flag & kLastPart) != 0; }
};

/// Takes an answer apart. Empty if it does not succeed or does not hold what it says.
std::optional<PdrAnswer> read_answer(const Exchange& exchange);

/// A record as it was read.
struct Record {
    uint32_t asked = 0;  ///< by this handle
    uint32_t next = 0;
    Bytes bytes;
    size_t parts = 0;
    bool counts_right = true;         ///< no part is longer than was asked for
    std::optional<uint8_t> checksum;  ///< of the last part
    Exchange first;                   ///< how it was asked for
    Exchange last;                    ///< how it ended

    uint32_t handle() const;
    uint8_t version() const;
    uint8_t type() const;
    uint16_t data_length() const;
};

/// A record, in parts of so many bytes. @param trouble  what was wrong, empty for nothing
Record read_record(Device& device, uint32_t handle, uint16_t part, std::string& trouble);

/// All records, or those in front of the trouble.
struct Repository {
    std::vector<Record> records;
    std::string trouble;
    Exchange where;  ///< the trouble was
    size_t bytes = 0;
    size_t largest = 0;
};

/// @return the repository, read once; the rule ends if the device has none or it cannot be read
const Repository& whole_repository(Device& device);

/// As it was found, trouble and all.
const Repository& repository(Device& device);

}  // namespace tool::check

#endif
