// SPDX-License-Identifier: Apache-2.0
// The reassembly of a message from SMBus packets (DSP0236, clause 8.4).
#include "transport/reassembly.h"

#include <sideband/debug_log.h>
#include <sideband/platform.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <span>

#include "common/memory.h"
#include "common/wire.h"
#include "transport/packet.h"
#include "transport/smbus_binding.h"

namespace sideband {
namespace {

/// Room for a packet: the most that is ever asked for is 4 + 1 + MCTP_UNIT_SIZE_MAX = 125 bytes.
constexpr int32_t kPacketRoom = 128;
/// A device that sends nothing but packets to be dropped must not hold the bus for ever. There are
/// eight tags and four sequence numbers: no honest exchange leaves as many stale packets in a row.
constexpr int kDroppedPacketsMax = 1024;
/// Dropped packets of one receive that are reported each by itself: one for each tag and sequence
/// number. More would only wash the logs out: a dump has half a kilobyte.
constexpr uint32_t kReportedPacketsMax = 32;
constexpr char kReceiveName[] = "mctp recv";

/// The reassembly of one message (DSP0236, clause 8.4), as deployed firmware expects it.
class Reassembly {
public:
    Reassembly(mctp_ctx& ctx, int32_t capacity, uint8_t* buffer, TypeByte type_byte)
        : ctx_(ctx),
          in_place_(ctx.binding->read == smbus_block_read ||
                    ctx.binding->read == sl8_smbus_block_read),
          next_(buffer),
          room_(capacity),
          capacity_(capacity),
          payload_offset_(PacketHeader::kSize + (type_byte == TypeByte::kDeliver ? 0 : 1)) {}

    /// Reads packets until the message is complete or the buffer full.
    /// @return body bytes stored, or -1
    int32_t run() {
        const int32_t result = assemble();
        if (dropped_ > kReportedPacketsMax) {
            report_rest();
        }
        return result;
    }

private:
    int32_t assemble() {
        int dropped_in_a_row = 0;
        while (dropped_in_a_row < kDroppedPacketsMax) {
            const int32_t wanted = header_length_ + std::min<int32_t>(ctx_.unit_size, room_);
            const int32_t length = read(wanted);
            if (length < 0) {
                return -1;
            }
            WireReader reader({packet(), PacketHeader::kSize});
            const PacketHeader header = PacketHeader::read(reader);
            if (!accept(header, length, wanted) || !store(header, length)) {
                ++dropped_in_a_row;
            } else if (header.eom() || room_ == 0) {
                return capacity_ - room_;
            } else {
                dropped_in_a_row = 0;  // There is progress: at least one byte has been stored.
            }
        }
        debug_log("[%s] gave up after %d packets that had to be dropped\n", kReceiveName,
                  kDroppedPacketsMax);
        return -1;
    }

    /// Reads the next packet.
    /// @return its length as the binding delivers it; negative on failure
    int32_t read(int32_t wanted);
    const uint8_t* packet() const { return block_.data() + (in_place_ ? kBlockHeaderSize : 0); }

    bool is_first() const { return header_length_ != PacketHeader::kSize; }

    /// Whether a packet continues the message.
    bool is_expected(PacketHeader header) const {
        const int difference = header.flags ^ expected_.flags;
        // The sequence of an end packet is deliberately not checked.
        return (difference & (PacketHeader::kTagMask | PacketHeader::kSequenceMask)) == 0 ||
               (header.eom() && (difference & PacketHeader::kTagMask) == 0);
    }

    /// Checks length, tag, sequence and start flag. A packet that is not accepted is gone, with a
    /// trace.
    bool accept(PacketHeader header, int32_t length, int32_t wanted);
    bool store(PacketHeader header, int32_t length);

    bool refuse_tag(PacketHeader header, int32_t length);
    bool refuse_length(int32_t length, int32_t wanted);

    /// Whether the next dropped packet leaves more of a trace than its count.
    bool reports() const { return dropped_ < kReportedPacketsMax; }

    /// @return false
    bool drop(int32_t length) {
        if (reports()) {
            dump_packets(std::min(length, kPacketRoom), packet());
        }
        ++dropped_;
        return false;
    }

    void report_rest() const {
        const uint32_t rest = dropped_ - kReportedPacketsMax;
        std::printf("\n[%s] %u more packets dropped\n", kReceiveName, rest);
        debug_log("[%s] %u more packets dropped\n", kReceiveName, rest);
    }

    /// What follows is no first packet any more: its header has no type byte.
    void go_on() {
        header_length_ = PacketHeader::kSize;
        payload_offset_ = PacketHeader::kSize;
    }

    mctp_ctx& ctx_;
    /// Whether the packets stay where the platform stores them, behind the header of their block.
    bool in_place_;
    uint8_t* next_;  ///< where the next payload goes
    int32_t room_;   ///< bytes left there
    int32_t capacity_;
    /// The first packet carries the message type byte as well.
    int32_t header_length_ = PacketHeader::kSize + 1;
    /// Where the bytes to be delivered begin: behind the type byte, unless that is wanted too.
    int32_t payload_offset_;
    PacketHeader expected_;  ///< tag and sequence of the next packet

    uint32_t dropped_ = 0;  ///< packets of the whole receive

    /// One for the whole message: the next packet takes the place of the last one.
    SlaveBlock block_;
    size_t filled_ = block_.size();  ///< bytes of it that may not be zero
};

int32_t Reassembly::read(int32_t wanted) {
    // The binding is promised zeros: only what the last packet filled has to be cleared again.
    zero(std::span(block_).first(filled_));
    if (!in_place_) {
        filled_ = kPacketRoom;
        return ctx_.binding->read(&ctx_.section, wanted, block_.data());
    }
    const int32_t length = read_block(ctx_.section, wanted, block_);
    if (length < 0) {
        return length;
    }
    filled_ = kBlockHeaderSize + static_cast<size_t>(length) + kPecSize;
    return std::min(length, wanted);
}

bool Reassembly::accept(PacketHeader header, int32_t length, int32_t wanted) {
    if (length < header_length_ || (is_first() && !header.som())) {
        return drop(length);
    }
    // A packet with TO set belongs to an endpoint's own request and is taken whatever its tag.
    if (header.tag() != (ctx_.tag & PacketHeader::kTagMask) && !header.tag_owner()) {
        return refuse_tag(header, length);
    }
    if (header.som()) {
        // In the middle of a message too: what was stored stays, and the payload, type byte
        // included, goes behind it.
        ctx_.binding_eids[0] = header.source;
        expected_.flags = (expected_.flags & PacketHeader::kSequenceMask) | header.tag();
    } else if (!is_expected(header)) {
        return drop(length);
    }
    return length <= wanted || refuse_length(length, wanted);
}

bool Reassembly::refuse_tag(PacketHeader header, int32_t length) {
    if (reports()) {
        debug_log("MCTP request tag is %d but response tag is %d\n", ctx_.tag, header.tag());
    }
    return drop(length);
}

bool Reassembly::refuse_length(int32_t length, int32_t wanted) {
    if (reports()) {
        console_log("MCTP buffer space is not enough due to the length(%d ,%d)!\n", wanted, length);
    }
    go_on();
    return drop(length);
}

bool Reassembly::store(PacketHeader header, int32_t length) {
    const int32_t offset = payload_offset_;
    go_on();
    ctx_.tag = header.tag();
    if (length == offset) {
        return drop(length);
    }
    expected_.flags = header.flags;
    expected_.advance();
    const int32_t payload = std::min(length - offset, room_);
    std::memcpy(next_, packet() + offset, static_cast<size_t>(payload));
    next_ += payload;
    room_ -= payload;
    return true;
}

}  // namespace

int32_t receive_message(mctp_ctx& ctx, int32_t capacity, uint8_t* buffer, TypeByte type_byte) {
    if (buffer == nullptr || capacity <= 0) {
        return 0;
    }
    if (!unit_size_usable(ctx) || ctx.binding == nullptr || ctx.binding->read == nullptr) {
        return -1;
    }
    return Reassembly(ctx, capacity, buffer, type_byte).run();
}

}  // namespace sideband
