// SPDX-License-Identifier: Apache-2.0
// The header of an MCTP packet (DSP0236, clause 8.1).
#ifndef SIDEBAND_TRANSPORT_PACKET_H
#define SIDEBAND_TRANSPORT_PACKET_H

#include <cstddef>
#include <cstdint>
#include <span>

namespace sideband {

/// The bits of the header's last byte stay together: that is what the cost of a packet hangs on.
struct PacketHeader {
    static constexpr int32_t kSize = 4;
    static constexpr uint8_t kVersion = 1;
    static constexpr size_t kFlagsOffset = 3;
    static constexpr uint8_t kSom = 0x80;
    static constexpr uint8_t kEom = 0x40;
    static constexpr uint8_t kSequenceMask = 0x30;
    static constexpr unsigned kNextSequence = 0x10;
    static constexpr uint8_t kTagOwner = 0x08;
    static constexpr uint8_t kTagMask = 0x07;

    uint8_t version = kVersion;
    uint8_t destination = 0;
    uint8_t source = 0;
    uint8_t flags = 0;

    bool som() const { return (flags & kSom) != 0; }
    bool eom() const { return (flags & kEom) != 0; }
    bool tag_owner() const { return (flags & kTagOwner) != 0; }
    uint8_t tag() const { return flags & kTagMask; }
    /// Makes it the header of the packet behind this one.
    void advance() { flags = (flags + kNextSequence) & (kSequenceMask | kTagOwner | kTagMask); }

    // Spans of its own size in place of cursors: each packet is read and written here.
    static PacketHeader read(std::span<const uint8_t, kSize> from) {
        return {from[0], from[1], from[2], from[3]};
    }

    void write(std::span<uint8_t, kSize> to) const {
        to[0] = version;
        to[1] = destination;
        to[2] = source;
        to[3] = flags;
    }
};

}  // namespace sideband

#endif
