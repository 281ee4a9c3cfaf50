// SPDX-License-Identifier: Apache-2.0
// What passes between a rule and the device that it judges.
#ifndef SIDEBAND_TOOLS_CHECK_EXCHANGE_H
#define SIDEBAND_TOOLS_CHECK_EXCHANGE_H

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace tool::check {

using Bytes = std::vector<uint8_t>;

/// A packet as it passed, from the MCTP transport header on.
struct SeenPacket {
    bool sent = false;  ///< by the BMC
    bool on_smbus = false;
    bool pec_good = true;
    Bytes bytes;
};

/// One message body out, and what came back: both without their type byte.
struct Exchange {
    uint8_t type = 0;
    Bytes request;
    std::optional<Bytes> response;    ///< empty if none came
    std::vector<SeenPacket> packets;  ///< none if the platform does not show them
};

/// The way to a device.
class Channel {
public:
    Channel() = default;
    virtual ~Channel() = default;
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    virtual Exchange exchange(uint8_t type, std::span<const uint8_t> body) = 0;

    /// The clock by which the device lives, in microseconds.
    virtual uint64_t now_us() const = 0;

    /// The EID at which the device is reached.
    virtual uint8_t eid() const = 0;

    /// Whether the integrity check of an NVMe-MI request is put behind it below this interface,
    /// where no rule can make it wrong.
    virtual bool appends_check() const = 0;
};

}  // namespace tool::check

#endif
