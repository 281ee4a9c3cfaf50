// SPDX-License-Identifier: Apache-2.0
// The reassembly of a message from SMBus packets (DSP0236, clause 8.4).
#include "transport/reassembly.h"

#include <sideband/debug_log.h>
#include <sideband/platform.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "common/crc.h"
#include "common/error.h"
#include "common/output.h"
#include "common/wire.h"
#include "transport/deadline.h"
#include "transport/mctp.h"
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
constexpr uint8_t kNullEid = 0x00;
constexpr uint8_t kBroadcastEid = 0xFF;

using Bytes = std::span<const uint8_t>;

/// Room for what a message brings.
class Room {
public:
    Room(uint8_t* buffer, int32_t capacity)
        : buffer_(buffer), to_(buffer), left_(static_cast<size_t>(capacity)) {}

    bool full() const { return left_ == 0; }
    int32_t left() const { return static_cast<int32_t>(left_); }
    int32_t stored() const { return static_cast<int32_t>(to_ - buffer_); }

    /// Stores what there is room for.
    void append(Bytes bytes) {
        const size_t size = std::min(bytes.size(), left_);
        std::memcpy(to_, bytes.data(), size);
        to_ += size;
        left_ -= size;
    }

    /// What has been stored is void, and must not be taken for data behind a shorter message.
    void clear() {
        const auto size = static_cast<size_t>(stored());
        std::memset(buffer_, 0, size);
        to_ = buffer_;
        left_ += size;
    }

private:
    uint8_t* buffer_;
    uint8_t* to_;
    size_t left_;
};

/// Watches over the integrity check of a message, and keeps it out of what is delivered.
class IntegrityWatch {
public:
    /// A message begins.
    /// @param apart  whether its type byte is not in the payloads
    [[gnu::cold]] void begin(uint8_t type, bool apart) {
        present_ = (type & MCTP_MSG_TYPE_INTEGRITY_CHECK) != 0;
        crc_ = apart ? crc32c_update(kCrc32cInitial, {&type, 1}) : kCrc32cInitial;
        held_ = 0;
    }

    /// Whether the message has a check.
    bool present() const { return present_; }
    bool right() const { return held_ == kIntegrityCheckSize && crc_ == kCrc32cResidue; }

    /// Takes a payload, and stores what cannot be the check any more.
    [[gnu::cold]] void store(Bytes payload, Room& room) {
        crc_ = crc32c_update(crc_, payload);
        const size_t total = held_ + payload.size();
        const size_t ready = total - std::min(total, kIntegrityCheckSize);
        const size_t from_tail = std::min(ready, held_);
        room.append(Bytes(tail_).first(from_tail));
        room.append(payload.first(ready - from_tail));
        std::memmove(tail_.data(), tail_.data() + from_tail, held_ - from_tail);
        held_ -= from_tail;
        const Bytes rest = payload.subspan(ready - from_tail);
        std::copy(rest.begin(), rest.end(), tail_.begin() + static_cast<ptrdiff_t>(held_));
        held_ += rest.size();
    }

private:
    bool present_ = false;
    // begin() sets them: no other message looks at them.
    uint32_t crc_;
    std::array<uint8_t, kIntegrityCheckSize> tail_;  ///< the last bytes so far
    size_t held_;                                    ///< how many of them
};

/// The reassembly of one message (DSP0236, clause 8.4), as deployed firmware expects it, but for
/// what the bits of a strict context add.
class Reassembly {
public:
    Reassembly(mctp_ctx& ctx, int32_t capacity, uint8_t* buffer, Wanted wanted)
        : ctx_(ctx),
          wanted_(wanted),
          in_place_(ctx.binding->read == smbus_block_read ||
                    ctx.binding->read == sl8_smbus_block_read),
          strict_(ctx.strict &
                  (MCTP_STRICT_PACKETS | MCTP_STRICT_INTEGRITY | MCTP_STRICT_ADDRESSES)),
          tag_(ctx.tag),
          room_(buffer, capacity),
          packet_(block_.data() + (in_place_ ? kBlockHeaderSize : 0)) {
        block_.clear();
        start();
    }

    /// Reads packets until the message is complete or the buffer full.
    /// @return body bytes stored, or -1
    int32_t run() {
        const int32_t result = assemble();
        if (dropped_ != 0) {
            conclude(result);
        }
        return result;
    }

private:
    int32_t assemble();
    /// The end of the message. @return body bytes stored; -1 if its integrity check is not right
    int32_t finish() const;
    bool has_right_check() const;

    /// Bytes of the next packet that are wanted.
    int32_t wanted_length() const {
        const int32_t payload = ctx_.unit_size;
        return header_length_ + (strict_ == 0 ? std::min(payload, room_.left()) : payload);
    }
    /// Reads the next packet.
    /// @return its length; negative on failure
    int32_t read(int32_t wanted);

    bool keeps_to(uint32_t bit) const { return (strict_ & bit) != 0; }
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

    // What a strict context looks at besides, in front of accept().
    [[gnu::cold]] bool screen(PacketHeader header, int32_t length);
    bool may_start(PacketHeader header, int32_t length);
    bool may_continue(PacketHeader header, int32_t length);
    bool is_from_peer(PacketHeader header) const;
    bool is_for_bmc(PacketHeader header) const;

    bool refuse_tag(PacketHeader header, int32_t length);
    bool refuse_length(int32_t length, int32_t wanted);

    /// Whether the next dropped packet leaves more of a trace than its count.
    bool reports() const { return dropped_ < kReportedPacketsMax; }

    /// @return false
    /// @param cause  that of a failure if nothing else comes
    [[gnu::cold]] bool drop(int32_t length, uint8_t cause = SIDEBAND_CAUSE_MALFORMED) {
        if (reports()) {
            dump_packets(std::min(length, kPacketRoom), packet_);
        }
        ++dropped_;
        dropped_for_ = cause;
        return false;
    }

    /// Says what has come of packets that were dropped.
    [[gnu::cold]] void conclude(int32_t result) {
        if (result < 0 && ctx_.last_error.cause == SIDEBAND_CAUSE_NO_ANSWER) {
            ctx_.last_error = error_of(dropped_for_);
        }
        if (dropped_ > kReportedPacketsMax) {
            report_rest();
        }
    }

    void report_rest() const {
        const uint32_t rest = dropped_ - kReportedPacketsMax;
        print_formatted("\n[%s] %u more packets dropped\n", kReceiveName, rest);
        debug_log("[%s] %u more packets dropped\n", kReceiveName, rest);
    }

    /// The next packet that counts is a first one: its header has the message type byte as well.
    void start() {
        header_length_ = PacketHeader::kSize + 1;
        payload_offset_ = PacketHeader::kSize + (wanted_.type_byte ? 0 : 1);
    }

    void start_anew() {
        ctx_.tag = tag_;
        room_.clear();
        start();
    }

    /// What follows is no first packet any more: its header has no type byte.
    void go_on() {
        header_length_ = PacketHeader::kSize;
        payload_offset_ = PacketHeader::kSize;
    }

    mctp_ctx& ctx_;
    Wanted wanted_;
    /// Whether the packets stay where the platform stores them, behind the header of their block.
    bool in_place_;
    uint32_t strict_;  ///< the bits that matter here: most contexts have none
    uint8_t tag_;      ///< strict: that of the answer, whatever tag a message had that is void now
    Room room_;
    int32_t header_length_;
    /// Where the bytes to be delivered begin: behind the type byte, unless that is wanted too.
    int32_t payload_offset_;
    PacketHeader expected_;  ///< tag and sequence of the next packet; strict: all of it
    int32_t unit_ = 0;       ///< strict: payload of all packets but the last
    IntegrityWatch integrity_;

    uint32_t dropped_ = 0;                            ///< packets of the whole receive
    uint8_t dropped_for_ = SIDEBAND_CAUSE_WRONG_TAG;  ///< the last of them
    /// Packets that have brought nothing: those in a row; strict: all of them.
    int fruitless_ = 0;

    /// One for the whole message: the next packet takes the place of the last one.
    SlaveBlock block_;
    const uint8_t* packet_;  ///< where the packet is in it
    size_t filled_ = 0;      ///< bytes of it that may not be zero
};

int32_t Reassembly::assemble() {
    while (fruitless_ < kDroppedPacketsMax) {
        if (is_over(ctx_)) {
            return fail(ctx_.last_error, SIDEBAND_CAUSE_DEADLINE);
        }
        const int32_t wanted = wanted_length();
        const int32_t length = read(wanted);
        if (length < 0) {
            return fail(ctx_.last_error, SIDEBAND_CAUSE_NO_ANSWER);
        }
        const PacketHeader header = PacketHeader::read(
            std::span<const uint8_t, PacketHeader::kSize>(packet_, PacketHeader::kSize));
        const bool taken = (strict_ == 0 || screen(header, length)) &&
                           accept(header, length, wanted) && store(header, length);
        if (taken && (header.eom() || (room_.full() && !integrity_.present()))) {
            return finish();
        }
        // There is progress if a byte has been stored, but for a strict context, to which it may
        // yet become void. Behind a full buffer there is none.
        if (!taken || room_.full()) {
            ++fruitless_;
        } else if (strict_ == 0) {
            fruitless_ = 0;
        }
        block_.clear_packet(filled_);
    }
    debug_log("[%s] gave up after %d packets that had to be dropped\n", kReceiveName,
              kDroppedPacketsMax);
    return fail(ctx_.last_error, dropped_for_);
}

bool Reassembly::has_right_check() const {
    const bool wants_check = (ctx_.msg_type & MCTP_MSG_TYPE_INTEGRITY_CHECK) != 0;
    return integrity_.present() ? integrity_.right() : !wants_check;
}

int32_t Reassembly::finish() const {
    if (keeps_to(MCTP_STRICT_INTEGRITY) && !has_right_check()) {
        debug_log("[%s] EID %d: the integrity check is %s\n", kReceiveName, ctx_.dest_eid,
                  integrity_.present() ? "wrong" : "missing");
        return fail(ctx_.last_error, SIDEBAND_CAUSE_WRONG_CHECK);
    }
    return room_.stored();
}

int32_t Reassembly::read(int32_t wanted) {
    if (!in_place_) {
        filled_ = kPacketRoom;
        return ctx_.binding->read(&ctx_.section, wanted, block_.data());
    }
    const int32_t received = read_block(ctx_.section, wanted, block_);
    if (received < 0) {
        return received;
    }
    filled_ = static_cast<size_t>(received);
    if (!keeps_to(MCTP_STRICT_PACKETS)) {
        return std::min(packet_length(received), wanted);
    }
    return is_mctp_block(block_, received) ? packet_length(received) : 0;
}

/// Whether a packet may be looked at by accept(). One that may not is dropped.
bool Reassembly::screen(PacketHeader header, int32_t length) {
    if (length < header_length_) {
        return true;  // accept() drops it.
    }
    if (keeps_to(MCTP_STRICT_ADDRESSES) && !is_from_peer(header)) {
        return drop(length, SIDEBAND_CAUSE_WRONG_TAG);
    }
    if (!keeps_to(MCTP_STRICT_PACKETS)) {
        return true;
    }
    constexpr uint8_t kVersionMask = 0x0F;
    if ((header.version & kVersionMask) != PacketHeader::kVersion || !is_for_bmc(header) ||
        length > PacketHeader::kSize + ctx_.unit_size) {
        return drop(length);
    }
    return header.som() ? may_start(header, length) : may_continue(header, length);
}

bool Reassembly::is_from_peer(PacketHeader header) const {
    return ctx_.dest_eid == kNullEid || header.source == ctx_.dest_eid ||
           (wanted_.also_from != kNullEid && header.source == wanted_.also_from);
}

/// The null EID stands for whoever has the physical address, the broadcast EID for all (DSP0236,
/// table 2). A BMC without an EID cannot tell.
bool Reassembly::is_for_bmc(PacketHeader header) const {
    return ctx_.src_eid == kNullEid || header.destination == ctx_.src_eid ||
           header.destination == kNullEid ||
           (header.destination == kBroadcastEid && header.tag_owner());
}

/// A start packet ends the assembly that it comes into (DSP0236, clause 8.4).
bool Reassembly::may_start(PacketHeader header, int32_t length) {
    if (length <= PacketHeader::kSize) {
        return drop(length);
    }
    const int type_difference = packet_[PacketHeader::kSize] ^ ctx_.msg_type;
    const bool other_type = (type_difference & ~MCTP_MSG_TYPE_INTEGRITY_CHECK) != 0;
    if ((other_type && !wanted_.type_byte) || (header.tag_owner() && wanted_.answer_only)) {
        return drop(length, SIDEBAND_CAUSE_WRONG_TAG);
    }
    if (!header.tag_owner() && header.tag() != (tag_ & PacketHeader::kTagMask)) {
        return refuse_tag(header, length);
    }
    if (!is_first()) {
        ++fruitless_;  // What there was of a message is void.
    }
    start_anew();
    unit_ = length - PacketHeader::kSize;
    expected_ = header;
    return true;
}

/// A packet out of sequence or of another size ends the assembly too, which is void then; one of
/// another message does not.
bool Reassembly::may_continue(PacketHeader header, int32_t length) {
    constexpr int kMessage = PacketHeader::kTagOwner | PacketHeader::kTagMask;
    const int difference = header.flags ^ expected_.flags;
    if (is_first() || (difference & kMessage) != 0 || header.source != expected_.source ||
        header.destination != expected_.destination) {
        return drop(length);
    }
    const int32_t payload = length - PacketHeader::kSize;
    const bool fits = header.eom() ? payload <= unit_ : payload == unit_;
    if ((difference & PacketHeader::kSequenceMask) != 0 || !fits) {
        start_anew();
        return drop(length);
    }
    return true;
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
    return drop(length, SIDEBAND_CAUSE_WRONG_TAG);
}

bool Reassembly::refuse_length(int32_t length, int32_t wanted) {
    if (reports()) {
        print_on_console("MCTP buffer space is not enough due to the length(%d ,%d)!\n", wanted,
                         length);
    }
    go_on();
    return drop(length);
}

bool Reassembly::store(PacketHeader header, int32_t length) {
    const int32_t offset = payload_offset_;
    if (is_first() && keeps_to(MCTP_STRICT_INTEGRITY)) {
        integrity_.begin(packet_[PacketHeader::kSize], !wanted_.type_byte);
    }
    go_on();
    ctx_.tag = header.tag();
    if (length == offset) {
        return drop(length);
    }
    expected_.flags = header.flags;
    expected_.advance();
    const Bytes payload(packet_ + offset, static_cast<size_t>(length - offset));
    if (integrity_.present()) {
        integrity_.store(payload, room_);
    } else {
        room_.append(payload);
    }
    return true;
}

}  // namespace

int32_t receive_message(mctp_ctx& ctx, int32_t capacity, uint8_t* buffer, Wanted wanted) {
    if (buffer == nullptr || capacity <= 0) {
        return 0;
    }
    if (!unit_size_usable(ctx) || ctx.binding == nullptr || ctx.binding->read == nullptr) {
        return fail(ctx.last_error, SIDEBAND_CAUSE_ARGUMENT);
    }
    return Reassembly(ctx, capacity, buffer, wanted).run();
}

}  // namespace sideband
