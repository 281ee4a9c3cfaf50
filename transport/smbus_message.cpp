// SPDX-License-Identifier: Apache-2.0
// MCTP messages over SMBus packets: framing and the exchanges (DSP0236, clause 8).
#include <sideband/debug_log.h>
#include <sideband/platform.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "common/crc.h"
#include "common/error.h"
#include "common/lock.h"
#include "common/sleep.h"
#include "common/wire.h"
#include "transport/control.h"
#include "transport/deadline.h"
#include "transport/mctp.h"
#include "transport/packet.h"
#include "transport/reassembly.h"
#include "transport/smbus_message.h"

namespace sideband {
namespace {

/// The tag of the next request.
uint8_t next_tag(uint8_t tag) {
    return static_cast<uint8_t>((tag + 1) & PacketHeader::kTagMask);
}

/// Room in front of a packet for the binding's own header.
constexpr int32_t kPhysicalHeaderSize = 4;
constexpr size_t kFlagsPlace = kPhysicalHeaderSize + PacketHeader::kFlagsOffset;
constexpr size_t kPayloadPlace = kPhysicalHeaderSize + PacketHeader::kSize;
/// 4 physical header, 4 transport header, payload, and the byte in which the software-PEC binding
/// stores its PEC.
constexpr size_t kSendBufferSize = kPayloadPlace + MCTP_UNIT_SIZE_MAX + 1;

lx_mutex& bus_mutex(const mctp_ctx& ctx) {
    return at_p_St_GlobalVar->bus_mutex[ctx.bus];
}

/// What follows the type byte of an outgoing message, in wire order: body, integrity check.
class OutgoingBytes {
public:
    OutgoingBytes(uint8_t type, std::span<const uint8_t> body, bool with_check)
        : body_(body), check_length_(with_check ? kIntegrityCheckSize : 0) {
        if (check_length_ != 0) {
            WireWriter(check_).le32(integrity_check(type, body));
        }
    }

    size_t remaining() const { return body_.size() + check_length_ - check_taken_; }

    /// Copies the next count bytes, count being at most remaining().
    void take(uint8_t* to, size_t count) {
        const size_t part = std::min(count, body_.size());
        if (part != 0) {
            std::memcpy(to, body_.data(), part);
            body_ = body_.subspan(part);
        }
        for (size_t i = part; i < count; ++i) {
            to[i] = check_[check_taken_++];
        }
    }

private:
    std::span<const uint8_t> body_;  ///< what has not been taken of it
    size_t check_length_;
    size_t check_taken_ = 0;
    std::array<uint8_t, kIntegrityCheckSize> check_{};
};

bool can_send(const mctp_ctx& ctx, size_t length, const uint8_t* body) {
    return unit_size_usable(ctx) && ctx.binding != nullptr && ctx.binding->write != nullptr &&
           (body != nullptr || length == 0);
}

/// The header of a message's first packet.
PacketHeader first_header(const mctp_ctx& ctx, uint8_t tag_owner, bool is_last) {
    const int flags = PacketHeader::kSom | (is_last ? PacketHeader::kEom : 0) |
                      (tag_owner != 0 ? PacketHeader::kTagOwner : 0) |
                      (ctx.tag & PacketHeader::kTagMask);
    return {
        .destination = ctx.dest_eid, .source = ctx.src_eid, .flags = static_cast<uint8_t>(flags)};
}

int32_t send_message(mctp_ctx& ctx, size_t length, const uint8_t* body, uint8_t tag_owner,
                     bool integrity_check) {
    if (!can_send(ctx, length, body)) {
        return fail(ctx.last_error, SIDEBAND_CAUSE_ARGUMENT);
    }
    if (is_over(ctx)) {
        return fail(ctx.last_error, SIDEBAND_CAUSE_DEADLINE);
    }
    OutgoingBytes bytes(ctx.msg_type, {body, length}, integrity_check);
    const size_t unit = ctx.unit_size;
    const bool strict = is_strict(ctx, MCTP_STRICT_PACKETS);
    // Strictly smaller than unit_size: a last packet of just that size goes out without EOM, unless
    // it is the only one. Deployed devices rely on it.
    const size_t end_size_max = strict ? unit : unit - 1;
    size_t type_size = 1;  // The first packet begins with the type byte.
    size_t remaining = type_size + bytes.remaining();
    PacketHeader header = first_header(ctx, tag_owner, unit >= remaining);
    std::array<uint8_t, kSendBufferSize> frame;
    std::fill_n(frame.begin(), kPhysicalHeaderSize, uint8_t{0});
    header.write(std::span(frame).subspan<kPhysicalHeaderSize, PacketHeader::kSize>());
    frame[kPayloadPlace] = ctx.msg_type;
    ctx.tx_seq = 0;
    while (remaining != 0) {
        if (remaining <= end_size_max) {
            header.flags |= PacketHeader::kEom;
        }
        const size_t chunk = std::min(unit, remaining);
        frame[kFlagsPlace] = header.flags;  // All else of the header stays as it is.
        bytes.take(frame.data() + kPayloadPlace + type_size, chunk - type_size);
        const int32_t result = ctx.binding->write(
            &ctx.section, PacketHeader::kSize + static_cast<int32_t>(chunk), frame.data());
        // Only the end packet's failure counts: a device that lost an earlier one does not answer.
        if (result < 0 && (header.eom() || strict)) {
            return fail(ctx.last_error, SIDEBAND_CAUSE_NOT_ACKNOWLEDGED);
        }
        header.advance();
        ++ctx.tx_seq;
        type_size = 0;
        remaining -= chunk;
    }
    return 0;
}

bool has_check(const mctp_ctx& ctx) {
    return (ctx.msg_type & MCTP_MSG_TYPE_INTEGRITY_CHECK) != 0;
}

/// Takes the bus mutex for a receive.
int32_t receive_locked(mctp_ctx& ctx, int32_t length, uint8_t* buffer, Wanted wanted = {}) {
    const MutexGuard bus(bus_mutex(ctx));
    return bus ? receive_message(ctx, length, buffer, wanted)
               : fail(ctx.last_error, SIDEBAND_CAUSE_LOCK);
}

/// What answers a request.
Wanted answer_to(const mctp_ctx& ctx, uint32_t length, const uint8_t* request) {
    Wanted answer{.answer_only = true};
    if (is_strict(ctx, MCTP_STRICT_ADDRESSES)) {
        answer.also_from = control::assigned_eid(ctx, {request, length});
    }
    return answer;
}

}  // namespace

int32_t smbus_send_locked(mctp_ctx* ctx, uint32_t length, const uint8_t* body, uint8_t tag_owner) {
    ctx->last_error = kNoError;
    MutexGuard bus(bus_mutex(*ctx));
    return bus ? send_message(*ctx, length, body, tag_owner, has_check(*ctx))
               : fail(ctx->last_error, SIDEBAND_CAUSE_LOCK);
}

int32_t smbus_recv_locked(mctp_ctx* ctx, int32_t length, uint8_t* buffer) {
    ctx->last_error = kNoError;
    return receive_locked(*ctx, length, buffer);
}

int32_t smbus_xfer(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                   const uint8_t* request, uint8_t* response) {
    ctx->last_error = kNoError;
    MutexGuard bus(bus_mutex(*ctx));
    if (!bus) {
        return fail(ctx->last_error, SIDEBAND_CAUSE_LOCK);
    }
    ctx->tag = next_tag(ctx->tag);
    if (send_message(*ctx, request_length, request, 1, has_check(*ctx)) < 0) {
        return -1;
    }
    if (response_length < 1) {
        return 0;
    }
    if (ctx->i2c_delay_us != 0) {
        sleep_us(ctx->i2c_delay_us);
    }
    return receive_message(*ctx, response_length, response,
                           answer_to(*ctx, request_length, request));
}

int32_t smbus_xfer_delayed(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                           const uint8_t* request, uint8_t* response) {
    constexpr uint32_t kSettleUs = 100000;
    ctx->last_error = kNoError;
    if (ctx->send == nullptr || ctx->recv == nullptr) {
        return fail(ctx->last_error, SIDEBAND_CAUSE_ARGUMENT);
    }
    ctx->tag = next_tag(ctx->tag);
    if (ctx->send(ctx, request_length, request, 1) < 0) {
        return -1;
    }
    if (ctx->i2c_delay_us != 0) {
        sleep_us(ctx->i2c_delay_us);
    }
    // The stock operation alone can be told that an answer is wanted.
    const int32_t result = ctx->recv == smbus_recv_locked
                               ? receive_locked(*ctx, response_length, response,
                                                answer_to(*ctx, request_length, request))
                               : ctx->recv(ctx, response_length, response);
    sleep_us(kSettleUs);
    return result;
}

int32_t sl8_smbus_send(mctp_ctx* ctx, uint32_t length, const uint8_t* body, uint8_t tag_owner) {
    ctx->last_error = kNoError;
    return send_message(*ctx, length, body, tag_owner,
                        has_check(*ctx) && is_strict(*ctx, MCTP_STRICT_INTEGRITY));
}

int32_t sl8_smbus_recv(mctp_ctx* ctx, int32_t length, uint8_t* buffer) {
    ctx->last_error = kNoError;
    return receive_message(*ctx, length, buffer);
}

int32_t sl8_smbus_xfer(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                       const uint8_t* request, uint8_t* response) {
    ctx->last_error = kNoError;
    if (ctx->send == nullptr || ctx->recv == nullptr) {
        return fail(ctx->last_error, SIDEBAND_CAUSE_ARGUMENT);
    }
    MutexGuard bus(bus_mutex(*ctx));
    if (!bus) {
        return fail(ctx->last_error, SIDEBAND_CAUSE_LOCK);
    }
    ctx->tag = next_tag(ctx->tag);
    if (ctx->send(ctx, request_length, request, 1) < 0) {
        debug_log("Failed to write %d bytes\n", static_cast<int>(request_length));
        return fail(ctx->last_error, SIDEBAND_CAUSE_NOT_ACKNOWLEDGED);
    }
    if (response_length < 1) {
        return 0;
    }
    if (ctx->i2c_delay_us != 0) {
        sleep_us(ctx->i2c_delay_us);
    }
    if (ctx->recv != sl8_smbus_recv) {
        return ctx->recv(ctx, response_length, response);
    }
    return receive_message(*ctx, response_length, response,
                           answer_to(*ctx, request_length, request));
}

}  // namespace sideband

int32_t mctp_smbus_recv_with_type(mctp_ctx* ctx, int32_t length, uint8_t* buffer) {
    using namespace sideband;
    constexpr Wanted kWithType{.type_byte = true};
    ctx->last_error = kNoError;
    // Like the stock receive: the software-PEC binding's own operations do not lock.
    return ctx->binding_kind == MCTP_BINDING_KIND_SL8_SMBUS
               ? receive_message(*ctx, length, buffer, kWithType)
               : receive_locked(*ctx, length, buffer, kWithType);
}
