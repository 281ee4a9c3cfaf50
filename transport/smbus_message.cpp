// SPDX-License-Identifier: Apache-2.0
// MCTP messages over SMBus packets: framing, reassembly and the exchanges (DSP0236, clause 8).
#include <sideband/debug_log.h>
#include <sideband/platform.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "common/crc.h"
#include "common/lock.h"
#include "transport/transport.h"

namespace sideband {
namespace {

/// Room in front of a packet for the binding's own header.
constexpr int32_t kPhysicalHeaderSize = 4;
/// 4 physical header, 4 transport header, payload, and the byte in which the software-PEC binding
/// stores its PEC.
constexpr size_t kSendBufferSize =
    kPhysicalHeaderSize + kTransportHeaderSize + MCTP_UNIT_SIZE_MAX + 1;
/// The most that is ever asked for is 4 + 1 + MCTP_UNIT_SIZE_MAX = 125 bytes.
constexpr size_t kReceiveBufferSize = 128;
/// A device that sends nothing but packets to be dropped must not hold the bus for ever. There are
/// eight tags and four sequence numbers: no honest exchange leaves as many stale packets.
constexpr int kDroppedPacketsMax = 1024;

constexpr size_t kIntegrityCheckSize = 4;

bool unit_size_usable(const mctp_ctx& ctx) {
    return ctx.unit_size != 0 && ctx.unit_size <= MCTP_UNIT_SIZE_MAX;
}

lx_mutex& bus_mutex(const mctp_ctx& ctx) {
    return at_p_St_GlobalVar->bus_mutex[ctx.bus];
}

/// The bytes of an outgoing message in wire order: type byte, body, integrity check.
class OutgoingMessage {
public:
    OutgoingMessage(uint8_t type, const uint8_t* body, size_t length, bool integrity_check)
        : type_(type), body_(body), length_(length), total_(1 + length) {
        if (integrity_check) {
            uint32_t crc = crc32c_update(kCrc32cInitial, {&type_, 1});
            crc = crc32c_final(crc32c_update(crc, {body, length}));
            for (size_t i = 0; i < kIntegrityCheckSize; ++i) {
                check_[i] = static_cast<uint8_t>(crc >> (8 * i));
            }
            total_ += kIntegrityCheckSize;
        }
    }

    size_t remaining() const { return total_ - position_; }

    /// Copies the next count bytes, count being at most remaining().
    void take(uint8_t* to, size_t count) {
        const size_t end = position_ + count;
        if (position_ == 0) {
            *to++ = type_;
            ++position_;
        }
        if (position_ <= length_ && position_ < end) {
            const size_t part = std::min(end, 1 + length_) - position_;
            std::memcpy(to, body_ + position_ - 1, part);
            to += part;
            position_ += part;
        }
        while (position_ < end) {
            *to++ = check_[position_ - 1 - length_];
            ++position_;
        }
    }

private:
    uint8_t type_;
    const uint8_t* body_;
    size_t length_;
    size_t total_;
    size_t position_ = 0;
    std::array<uint8_t, kIntegrityCheckSize> check_{};
};

/// The reassembly of one message (DSP0236, clause 8.4), as deployed firmware expects it.
class Reassembly {
public:
    Reassembly(mctp_ctx& ctx, int32_t capacity, uint8_t* buffer, TypeByte type_byte)
        : ctx_(ctx), buffer_(buffer), capacity_(capacity), type_byte_(type_byte) {}

    /// Reads packets until the message is complete or the buffer full.
    /// @return body bytes stored, or -1
    int32_t run() {
        int dropped = 0;
        while (dropped < kDroppedPacketsMax) {
            std::array<uint8_t, kReceiveBufferSize> packet{};
            const int32_t wanted =
                header_length_ + std::min<int32_t>(ctx_.unit_size, capacity_ - stored_);
            const int32_t length = ctx_.binding->read(&ctx_.section, wanted, packet.data());
            if (length < 0) {
                return -1;
            }
            if (!accept(packet.data(), length) || !check_length(packet.data(), length, wanted) ||
                !store(packet.data(), length)) {
                ++dropped;
            }
            if (complete_) {
                return stored_;
            }
        }
        debug_log("[%s] gave up after %d packets that had to be dropped\n", "mctp recv",
                  kDroppedPacketsMax);
        return -1;
    }

private:
    enum class State { first, continuing };

    /// Checks length, tag, sequence and start flag. A packet that is not accepted is gone, with a
    /// trace.
    bool accept(const uint8_t* packet, int32_t length);

    bool is_expected(uint8_t flags) const {
        const bool same_tag = (flags & kTagMask) == message_tag_;
        if ((flags & kFlagEom) != 0) {
            return same_tag;  // The sequence of an end packet is deliberately not checked.
        }
        return same_tag && ((flags >> kSequenceShift) & kSequenceMask) == expected_sequence_;
    }

    bool check_length(const uint8_t* packet, int32_t length, int32_t wanted);
    bool store(const uint8_t* packet, int32_t length);
    void dump(const uint8_t* packet, int32_t length) const {
        dump_packets(std::min<int32_t>(length, kReceiveBufferSize), packet);
    }

    mctp_ctx& ctx_;
    uint8_t* buffer_;
    int32_t capacity_;
    TypeByte type_byte_;
    int32_t stored_ = 0;
    /// The first packet carries the message type byte as well.
    int32_t header_length_ = kTransportHeaderSize + 1;
    State state_ = State::first;
    uint8_t expected_sequence_ = 0;
    uint8_t message_tag_ = 0;
    bool complete_ = false;
};

bool Reassembly::accept(const uint8_t* packet, int32_t length) {
    if (length < header_length_) {
        dump(packet, length);
        return false;
    }
    const uint8_t flags = packet[3];
    const uint8_t tag = flags & kTagMask;
    const bool starts = (flags & kFlagSom) != 0;
    if (state_ == State::first && !starts) {
        dump(packet, length);
        return false;
    }
    // A packet with TO set belongs to an endpoint's own request and is taken whatever its tag.
    if ((flags & kFlagTagOwner) == 0 && tag != (ctx_.tag & kTagMask)) {
        debug_log("MCTP request tag is %d but response tag is %d\n", ctx_.tag, tag);
        dump(packet, length);
        return false;
    }
    if (starts) {
        // In the middle of a message too: what was stored stays, and the payload, type byte
        // included, goes behind it.
        ctx_.binding_eids[0] = packet[2];
        message_tag_ = tag;
    } else if (!is_expected(flags)) {
        dump(packet, length);
        return false;
    }
    return true;
}

bool Reassembly::check_length(const uint8_t* packet, int32_t length, int32_t wanted) {
    if (length <= wanted) {
        return true;
    }
    console_log("MCTP buffer space is not enough due to the length(%d ,%d)!\n", wanted, length);
    dump(packet, length);
    state_ = State::continuing;
    header_length_ = kTransportHeaderSize;
    return false;
}

bool Reassembly::store(const uint8_t* packet, int32_t length) {
    ctx_.tag = message_tag_;
    const int32_t header = type_byte_ == TypeByte::deliver ? kTransportHeaderSize : header_length_;
    state_ = State::continuing;
    header_length_ = kTransportHeaderSize;
    if (length == header) {
        dump(packet, length);
        return false;
    }
    const int32_t payload = std::min(length - header, capacity_ - stored_);
    std::memcpy(buffer_ + stored_, packet + header, static_cast<size_t>(payload));
    stored_ += payload;
    const uint8_t flags = packet[3];
    expected_sequence_ = ((flags >> kSequenceShift) + 1) & kSequenceMask;
    complete_ = (flags & kFlagEom) != 0 || stored_ == capacity_;
    return true;
}

}  // namespace

int32_t send_message(mctp_ctx& ctx, size_t length, const uint8_t* body, uint8_t tag_owner,
                     bool integrity_check) {
    if (!unit_size_usable(ctx) || ctx.binding == nullptr || ctx.binding->write == nullptr ||
        (body == nullptr && length != 0)) {
        return -1;
    }
    OutgoingMessage message(ctx.msg_type, body, length, integrity_check);
    const size_t unit = ctx.unit_size;
    uint8_t flags = kFlagSom;
    flags |= tag_owner != 0 ? kFlagTagOwner : uint8_t{0};
    flags |= unit >= message.remaining() ? kFlagEom : uint8_t{0};

    std::array<uint8_t, kSendBufferSize> frame{};
    uint8_t* packet = frame.data() + kPhysicalHeaderSize;
    packet[0] = kHeaderVersion;
    packet[1] = ctx.dest_eid;
    packet[2] = ctx.src_eid;
    ctx.tx_seq = 0;
    while (message.remaining() != 0) {
        // Strictly greater: a last packet of exactly unit_size bytes goes out without EOM, unless
        // it is the only one. Deployed devices rely on it.
        if (unit > message.remaining()) {
            flags |= kFlagEom;
        }
        const size_t chunk = std::min(unit, message.remaining());
        packet[3] = static_cast<uint8_t>(flags | (ctx.tx_seq & kSequenceMask) << kSequenceShift |
                                         (ctx.tag & kTagMask));
        message.take(packet + kTransportHeaderSize, chunk);
        const int32_t result = ctx.binding->write(
            &ctx.section, static_cast<int32_t>(chunk) + kTransportHeaderSize, frame.data());
        // Only the end packet's failure counts: a device that lost an earlier one does not answer.
        if (result < 0 && (flags & kFlagEom) != 0) {
            return -1;
        }
        flags &= static_cast<uint8_t>(~kFlagSom);
        ++ctx.tx_seq;
    }
    return 0;
}

int32_t receive_message(mctp_ctx& ctx, int32_t capacity, uint8_t* buffer, TypeByte type_byte) {
    if (buffer == nullptr || capacity <= 0) {
        return 0;
    }
    if (!unit_size_usable(ctx) || ctx.binding == nullptr || ctx.binding->read == nullptr) {
        return -1;
    }
    return Reassembly(ctx, capacity, buffer, type_byte).run();
}

int32_t smbus_send_locked(mctp_ctx* ctx, uint32_t length, const uint8_t* body, uint8_t tag_owner) {
    MutexGuard bus(bus_mutex(*ctx));
    if (!bus) {
        return -1;
    }
    return send_message(*ctx, length, body, tag_owner,
                        (ctx->msg_type & MCTP_MSG_TYPE_INTEGRITY_CHECK) != 0);
}

int32_t smbus_recv_locked(mctp_ctx* ctx, int32_t length, uint8_t* buffer) {
    MutexGuard bus(bus_mutex(*ctx));
    return bus ? receive_message(*ctx, length, buffer) : -1;
}

int32_t smbus_xfer(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                   const uint8_t* request, uint8_t* response) {
    MutexGuard bus(bus_mutex(*ctx));
    if (!bus) {
        return -1;
    }
    ctx->tag = next_tag(ctx->tag);
    if (send_message(*ctx, request_length, request, 1,
                     (ctx->msg_type & MCTP_MSG_TYPE_INTEGRITY_CHECK) != 0) < 0) {
        return -1;
    }
    if (response_length < 1) {
        return 0;
    }
    if (ctx->i2c_delay_us != 0) {
        sleep_us(ctx->i2c_delay_us);
    }
    return receive_message(*ctx, response_length, response);
}

int32_t smbus_xfer_delayed(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                           const uint8_t* request, uint8_t* response) {
    constexpr uint32_t kSettleUs = 100000;
    if (ctx->send == nullptr || ctx->recv == nullptr) {
        return -1;
    }
    ctx->tag = next_tag(ctx->tag);
    if (ctx->send(ctx, request_length, request, 1) < 0) {
        return -1;
    }
    if (ctx->i2c_delay_us != 0) {
        sleep_us(ctx->i2c_delay_us);
    }
    const int32_t result = ctx->recv(ctx, response_length, response);
    sleep_us(kSettleUs);
    return result;
}

int32_t sl8_smbus_send(mctp_ctx* ctx, uint32_t length, const uint8_t* body, uint8_t tag_owner) {
    return send_message(*ctx, length, body, tag_owner, false);
}

int32_t sl8_smbus_recv(mctp_ctx* ctx, int32_t length, uint8_t* buffer) {
    return receive_message(*ctx, length, buffer);
}

int32_t sl8_smbus_xfer(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                       const uint8_t* request, uint8_t* response) {
    if (ctx->send == nullptr || ctx->recv == nullptr) {
        return -1;
    }
    MutexGuard bus(bus_mutex(*ctx));
    if (!bus) {
        return -1;
    }
    ctx->tag = next_tag(ctx->tag);
    if (ctx->send(ctx, request_length, request, 1) < 0) {
        debug_log("Failed to write %d bytes\n", static_cast<int>(request_length));
        return -1;
    }
    if (response_length < 1) {
        return 0;
    }
    if (ctx->i2c_delay_us != 0) {
        sleep_us(ctx->i2c_delay_us);
    }
    return ctx->recv(ctx, response_length, response);
}

}  // namespace sideband

int32_t mctp_smbus_recv_with_type(mctp_ctx* ctx, int32_t length, uint8_t* buffer) {
    using namespace sideband;
    // Like the stock receive: the software-PEC binding's own operations do not lock.
    if (ctx->binding_kind == MCTP_BINDING_KIND_SL8_SMBUS) {
        return receive_message(*ctx, length, buffer, TypeByte::deliver);
    }
    const MutexGuard bus(bus_mutex(*ctx));
    return bus ? receive_message(*ctx, length, buffer, TypeByte::deliver) : -1;
}
