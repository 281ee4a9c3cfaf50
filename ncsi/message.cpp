// SPDX-License-Identifier: Apache-2.0
// The exchange of one NC-SI control packet and its response (DSP0222, DSP0261).
#include "ncsi/message.h"

#include <sideband/debug_log.h>
#include <sideband/platform.h>

#include <algorithm>
#include <cstring>

#include "common/lock.h"
#include "common/output.h"

namespace sideband::ncsi {
namespace {

constexpr uint32_t kAlignment = 4;
constexpr uint32_t kChecksumSize = 4;
/// A request that with its padding and checksum is still a length for the MCTP layer.
constexpr uint32_t kRequestLengthMax = INT32_MAX - 2 * kAlignment;
constexpr uint8_t kManagementController = 0;
constexpr uint8_t kRevision = 1;
constexpr size_t kIidOffset = 3;
constexpr uint16_t kPayloadLengthMask = 0x0FFF;
/// Waiting time of the platform's slave read, in milliseconds: the controller takes its time.
constexpr uint32_t kClearInitialStateWait = 500;

template <typename T>
T padded(T length) {
    return (length + (kAlignment - 1)) / kAlignment * kAlignment;
}

/// Begins a transfer. @return whether there is all that it needs
bool is_usable(ncsi_ctx* ctx, const uint8_t* request, const uint8_t* response) {
    if (ctx == nullptr) {
        return false;
    }
    const bool usable = ctx->mctp != nullptr && ctx->mctp->xfer != nullptr && request != nullptr &&
                        response != nullptr;
    ctx->last_error = usable ? kNoError : kArgumentError;
    return usable;
}

/// The checksum of header, payload and padding (DSP0222, clause 8.2.2.3).
uint32_t checksum_of(std::span<const uint8_t> packet) {
    uint32_t sum = 0;
    for (WireReader reader(packet); reader.remaining() >= sizeof(uint16_t);) {
        sum += reader.be16();
    }
    return 0 - sum;
}

/// Completes a request in its place.
/// @return bytes to send; 0 if it has no header
uint32_t complete(ncsi_ctx& ctx, uint32_t length, uint8_t* request) {
    if (length < NCSI_HEADER_SIZE) {
        print_line("the length of ncsi request is not enough!");
        return 0;
    }
    if (length > kRequestLengthMax) {
        return 0;
    }
    if (ctx.iid == 0) {
        ctx.iid = 1;
    }
    request[kIidOffset] = ctx.iid;
    const uint32_t end = padded(length);
    // Between payload and checksum stands what the caller left there; a checksum of 0 means that
    // none was computed (DSP0222, checksum).
    uint32_t checksum = 0;
    if ((ctx.mctp->strict & MCTP_STRICT_INTEGRITY) != 0) {
        std::memset(request + length, 0, end - length);
        checksum = checksum_of({request, end});
    }
    WireWriter({request + end, kChecksumSize}).be32(checksum);
    return end + kChecksumSize;
}

int32_t padded_capacity(int32_t capacity) {
    const auto wanted = static_cast<uint32_t>(std::clamp(capacity, 0, INT32_MAX - 4));
    return static_cast<int32_t>(padded(wanted));
}

/// Exchanges over the endpoint.
/// @return its result, which never is more than there is room for, whatever the endpoint says
int32_t transfer_over(mctp_ctx& mctp, uint32_t length, int32_t capacity, const uint8_t* request,
                      uint8_t* response) {
    const int32_t room = padded_capacity(capacity);
    mctp.last_error = kNoError;
    return std::min(mctp.xfer(&mctp, length, room, request, response), room);
}

uint8_t type_of(const uint8_t* packet) {
    return Header::read({packet, NCSI_HEADER_SIZE}).type;
}

/// Whether a response has the checksum of what is in front, or none, which is 0.
bool is_unharmed(std::span<const uint8_t> response, size_t end) {
    if (response.size() < end + kChecksumSize) {
        return false;
    }
    const uint32_t checksum = WireReader(response.subspan(end)).be32();
    return checksum == 0 || checksum == checksum_of(response.first(end));
}

/// What is wrong with a response.
struct Fault {
    const char* name = nullptr;  ///< null: nothing
    uint8_t cause = SIDEBAND_CAUSE_NONE;
};

/// What the strict bits of the endpoint find wrong with the response to a request (DSP0222, clauses
/// 8.2.1 and 8.2.2.3). Without them its channel ID is not asked for, among other things: there are
/// controllers that answer the command of a package with that of a channel.
Fault fault_of(const mctp_ctx& mctp, std::span<const uint8_t> request,
               std::span<const uint8_t> response) {
    const Header sent = Header::read(request);
    const Header came = Header::read(response);
    const size_t end = NCSI_HEADER_SIZE + size_t{came.payload_length};
    if ((mctp.strict & MCTP_STRICT_PACKETS) != 0) {
        if (came.type != sent.type + kResponseBit) {
            return {"type", SIDEBAND_CAUSE_WRONG_TAG};
        }
        if (came.iid != sent.iid) {
            return {"instance ID", SIDEBAND_CAUSE_WRONG_TAG};
        }
        if (end < kResponseSize || end > response.size()) {
            return {"length", SIDEBAND_CAUSE_MALFORMED};
        }
    }
    if ((mctp.strict & MCTP_STRICT_ADDRESSES) != 0 && came.channel_id != sent.channel_id) {
        return {"channel ID", SIDEBAND_CAUSE_WRONG_TAG};
    }
    if ((mctp.strict & MCTP_STRICT_INTEGRITY) != 0 && !is_unharmed(response, padded(end))) {
        return {"checksum", SIDEBAND_CAUSE_WRONG_CHECK};
    }
    return {};
}

/// Looks at the response to a request. What did not come of it counts as zero.
int32_t judge(ncsi_ctx& ctx, const uint8_t* request, const uint8_t* response, int32_t length) {
    const mctp_ctx& mctp = *ctx.mctp;
    std::array<uint8_t, kResponseSize> head{};
    const size_t received = std::min(static_cast<size_t>(length), head.size());
    std::memcpy(head.data(), response, received);
    const uint8_t type = type_of(head.data());
    if (type != type_of(request) + kResponseBit) {
        print_formatted("the command code in the response(%x) is not right.", type);
        return fail(ctx.last_error, SIDEBAND_CAUSE_WRONG_TAG);
    }
    const Fault fault = mctp.strict != 0 ? fault_of(mctp, {request, NCSI_HEADER_SIZE},
                                                    {response, static_cast<size_t>(length)})
                                         : Fault{};
    if (fault.name != nullptr) {
        debug_log("%s, response with a wrong %s\n", "ncsi", fault.name);
        return fail(ctx.last_error, fault.cause);
    }
    WireReader codes{std::span(head).subspan(NCSI_HEADER_SIZE)};
    const uint16_t code = codes.be16();
    const uint16_t reason = codes.be16();
    if (code == 0 && reason == 0 && received == head.size()) {
        return 0;
    }
    print_formatted("compleition is not successful(%x,%x) or return size(%x) is too small\n", code,
                    reason, static_cast<unsigned>(length));
    if (code != 0 || reason != 0) {
        record_code(ctx.last_error, SIDEBAND_CODE_NCSI, code, reason);
    }
    return fail(ctx.last_error, SIDEBAND_CAUSE_MALFORMED);
}

/// The end of a transfer whose result is in the context.
int32_t conclude(ncsi_ctx& ctx, const uint8_t* request, const uint8_t* response) {
    int32_t result = -1;
    if (ctx.response_length >= 1) {
        result = judge(ctx, request, response, ctx.response_length);
    } else {
        ctx.last_error = ctx.mctp->last_error;
        fail(ctx.last_error,
             ctx.response_length < 0 ? SIDEBAND_CAUSE_NO_ANSWER : SIDEBAND_CAUSE_MALFORMED);
    }
    if (result < 0) {
        record_step(ctx.last_error, SIDEBAND_STEP_NCSI, type_of(request));
    }
    return result;
}

}  // namespace

Header Header::read(std::span<const uint8_t> packet) {
    WireReader reader(packet);
    reader.skip(kIidOffset);
    // In this order: members of a braced list are evaluated as they stand.
    return {reader.u8(), reader.u8(), reader.u8(),
            static_cast<uint16_t>(reader.be16() & kPayloadLengthMask)};
}

void Header::write(std::span<uint8_t> packet) const {
    WireWriter writer(packet);
    writer.u8(kManagementController).u8(kRevision).skip(1);
    writer.u8(iid).u8(type).u8(channel_id).be16(payload_length);
}

Request::Request(uint8_t type, uint8_t channel_id, uint8_t payload_length)
    : payload_length_(payload_length) {
    Header{.type = type, .channel_id = channel_id, .payload_length = payload_length}.write(bytes_);
}

void note_failed_exchange(ncsi_ctx& ctx, uint8_t type) {
    fail(ctx.last_error, SIDEBAND_CAUSE_NO_ANSWER);
    record_step(ctx.last_error, SIDEBAND_STEP_NCSI, type);
}

Answer exchange(ncsi_channel& channel, Request& request, int32_t capacity) {
    ncsi_ctx& ctx = *channel.ctx;
    const auto room = request.room();
    // An operation that does not know better has filled the response.
    ctx.response_length = capacity;
    ctx.last_error = kNoError;
    const int32_t result =
        ctx.transfer(&channel, request.size(), capacity, request.data(), room.data());
    const int32_t length = std::clamp(ctx.response_length, 0, capacity);
    const auto response = room.first(static_cast<size_t>(length));
    // Of a failed exchange too, whatever has come of it.
    WireReader codes(room.subspan(NCSI_HEADER_SIZE));
    const bool unsupported =
        codes.be16() == NCSI_RESPONSE_UNSUPPORTED && codes.be16() == NCSI_REASON_UNSUPPORTED &&
        (ctx.mctp == nullptr ||
         fault_of(*ctx.mctp, {request.data(), request.size()}, response).name == nullptr);
    WireReader body(response);
    body.skip(kResponseSize);
    if (result < 0) {
        note_failed_exchange(ctx, type_of(request.data()));
    }
    return {result, ctx.response_length, unsupported, body, &ctx, type_of(request.data())};
}

int32_t finish(const Answer& answer) {
    if (answer.result >= 0 && !answer.body.ok()) {
        debug_log("%s, response of %d bytes is too short\n", "ncsi", answer.length);
        fail(answer.ctx->last_error, SIDEBAND_CAUSE_MALFORMED);
        record_step(answer.ctx->last_error, SIDEBAND_STEP_NCSI, answer.type);
        return -1;
    }
    return answer.result;
}

int32_t transfer(ncsi_channel* channel, uint32_t request_length, int32_t response_capacity,
                 uint8_t* request, uint8_t* response) {
    if (channel == nullptr || !is_usable(channel->ctx, request, response)) {
        return -1;
    }
    ncsi_ctx& ctx = *channel->ctx;
    const uint32_t length = complete(ctx, request_length, request);
    if (length == 0) {
        return fail(ctx.last_error, SIDEBAND_CAUSE_ARGUMENT);
    }
    mctp_ctx& mctp = *ctx.mctp;
    if (type_of(request) == NCSI_CLEAR_INITIAL_STATE) {
        mctp.route = kClearInitialStateWait;
    }
    ctx.response_length = transfer_over(mctp, length, response_capacity, request, response);
    mctp.route = 0;
    ++ctx.iid;
    return conclude(ctx, request, response);
}

int32_t transfer_locked(ncsi_ctx* ctx, uint32_t request_length, int32_t response_capacity,
                        uint8_t* request, uint8_t* response) {
    if (!is_usable(ctx, request, response)) {
        return -1;
    }
    const uint32_t length = complete(*ctx, request_length, request);
    if (length == 0) {
        return fail(ctx->last_error, SIDEBAND_CAUSE_ARGUMENT);
    }
    mctp_ctx& mctp = *ctx->mctp;
    {
        const ChannelGuard channel(mctp.bus != 0 ? mctp.bus : platform.default_i2c_channel);
        if (!channel) {
            return fail(ctx->last_error, SIDEBAND_CAUSE_LOCK);
        }
        const MutexGuard global(at_p_St_GlobalVar->ncsi_lock);
        if (!global) {
            return fail(ctx->last_error, SIDEBAND_CAUSE_LOCK);
        }
        ctx->response_length = transfer_over(mctp, length, response_capacity, request, response);
    }
    // Deployed firmware sends one ID for ever, which tells no answer from an earlier one.
    if ((mctp.strict & MCTP_STRICT_PACKETS) != 0) {
        ++ctx->iid;
    }
    return conclude(*ctx, request, response);
}

int32_t transfer_by_oem(ncsi_channel* channel, uint32_t request_length, int32_t response_capacity,
                        uint8_t* request, uint8_t* response) {
    if (channel == nullptr || channel->ctx == nullptr) {
        return -1;
    }
    ncsi_ctx* const ctx = channel->ctx;
    if (ctx->oem_transfer == nullptr) {
        return fail(ctx->last_error, SIDEBAND_CAUSE_ARGUMENT);
    }
    return ctx->oem_transfer(ctx, request_length, response_capacity, request, response);
}

}  // namespace sideband::ncsi
