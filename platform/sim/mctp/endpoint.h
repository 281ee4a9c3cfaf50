// SPDX-License-Identifier: Apache-2.0
// A device's MCTP packet layer: reassembly of what it gets, splitting of what it sends (DSP0236).
#ifndef SIDEBAND_SIM_MCTP_ENDPOINT_H
#define SIDEBAND_SIM_MCTP_ENDPOINT_H

#include <cstdint>
#include <optional>
#include <vector>

#include "sim/board/bytes.h"

namespace sim {

/// An MCTP message with its addressing.
struct Message {
    uint8_t type = 0;  ///< message type byte, the integrity check bit included
    Bytes body;        ///< what follows the type byte
    uint8_t source_eid = 0;
    uint8_t destination_eid = 0;
    uint8_t tag = 0;
    bool tag_owner = false;
};

class MctpEndpoint {
public:
    static constexpr size_t kHeaderSize = 4;

    /// @param eid             own EID, 0 = none yet
    /// @param unit            message bytes in each packet sent
    /// @param lenient_ending  take a message that fell silent on a full packet for complete
    MctpEndpoint(uint8_t eid, size_t unit, bool lenient_ending);

    /// Takes packets for every destination: the BMC's side of a medium, which has many EIDs.
    void accept_all() { accepts_all_ = true; }

    uint8_t eid() const { return eid_; }
    void set_eid(uint8_t eid) { eid_ = eid; }
    /// @param unit  message bytes in each packet sent from now on
    void set_unit(size_t unit) { unit_ = unit; }
    /// @param unit  the most message bytes in each packet sent, whatever the unit is
    void limit_unit(size_t unit) { unit_limit_ = unit; }

    /// Takes one packet, from its transport header on.
    /// @return the message that it completed
    std::optional<Message> receive(ByteView packet);

    /// The sender waits for an answer now. A message of two or more equal packets without an end
    /// is complete then, because some senders leave the end mark off a last packet that is full.
    std::optional<Message> sender_waits();

    /// Packets that carry a message.
    std::vector<Bytes> split(const Message& message) const;

    /// Forgets what is half received.
    void reset();

private:
    /// A message on its way in. One at a time for each source EID, tag and tag owner bit.
    struct Assembly {
        uint8_t source_eid = 0;
        uint8_t destination_eid = 0;
        uint8_t tag_bits = 0;  ///< TO and tag
        uint8_t sequence = 0;
        size_t packets = 0;
        size_t unit = 0;  ///< message bytes in the first packet
        size_t last = 0;  ///< and in the last
        Bytes bytes;
    };

    Assembly* find(uint8_t source_eid, uint8_t tag_bits);
    void drop(const Assembly* assembly);
    /// Begins the message of a first packet, in the place of an unfinished one of its tag.
    Assembly* begin(ByteView packet);
    std::optional<Message> finish(Assembly* assembly);

    uint8_t eid_;
    size_t unit_;
    size_t unit_limit_ = SIZE_MAX;
    bool lenient_ending_;
    bool accepts_all_ = false;
    std::vector<Assembly> assemblies_;
};

}  // namespace sim

#endif
