// SPDX-License-Identifier: Apache-2.0
// The exchange of one NC-SI control packet and its response (DSP0222, DSP0261).
#include "ncsi/message.h"

#include <sideband/debug_log.h>
#include <sideband/platform.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "common/lock.h"

namespace sideband::ncsi {
namespace {

constexpr uint32_t kAlignment = 4;
constexpr uint32_t kChecksumSize = 4;
/// A request that with its padding and checksum is still a length for the MCTP layer.
constexpr uint32_t kRequestLengthMax = INT32_MAX - 2 * kAlignment;
constexpr uint8_t kManagementController = 0;
constexpr uint8_t kRevision = 1;
constexpr size_t kIidOffset = 3;
/// Waiting time of the platform's slave read, in milliseconds: the controller takes its time.
constexpr uint32_t kClearInitialStateWait = 500;

template <typename T>
T padded(T length) {
    return (length + (kAlignment - 1)) / kAlignment * kAlignment;
}

bool is_usable(const ncsi_ctx* ctx, const uint8_t* request, const uint8_t* response) {
    return ctx != nullptr && ctx->mctp != nullptr && ctx->mctp->xfer != nullptr &&
           request != nullptr && response != nullptr;
}

/// Completes a request in its place.
/// @return bytes to send; 0 if it has no header
uint32_t complete(ncsi_ctx& ctx, uint32_t length, uint8_t* request) {
    if (length < NCSI_HEADER_SIZE) {
        std::puts("the length of ncsi request is not enough!");
        return 0;
    }
    if (length > kRequestLengthMax) {
        return 0;
    }
    if (ctx.iid == 0) {
        ctx.iid = 1;
    }
    request[kIidOffset] = ctx.iid;
    // Between payload and checksum stands what the caller left there; a checksum of 0 means that
    // none was computed (DSP0222, checksum).
    std::memset(request + padded(length), 0, kChecksumSize);
    return padded(length) + kChecksumSize;
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
    return std::min(mctp.xfer(&mctp, length, room, request, response), room);
}

uint8_t type_of(const uint8_t* packet) {
    return Header::read({packet, NCSI_HEADER_SIZE}).type;
}

/// Looks at the response to a request of a type. What did not come of it counts as zero. Its
/// channel ID is not asked for: there are controllers that answer the command of a package with
/// that of a channel.
int32_t judge(uint8_t sent, const uint8_t* response, int32_t length) {
    std::array<uint8_t, kResponseSize> head{};
    const size_t received = std::min(static_cast<size_t>(length), head.size());
    std::memcpy(head.data(), response, received);
    const uint8_t type = type_of(head.data());
    if (type != (sent | kResponseBit)) {
        std::printf("the command code in the response(%x) is not right.", type);
        return -1;
    }
    WireReader codes{std::span(head).subspan(NCSI_HEADER_SIZE)};
    const uint16_t code = codes.be16();
    const uint16_t reason = codes.be16();
    if (code == 0 && reason == 0 && received == head.size()) {
        return 0;
    }
    std::printf("compleition is not successful(%x,%x) or return size(%x) is too small\n", code,
                reason, static_cast<unsigned>(length));
    return -1;
}

}  // namespace

Header Header::read(std::span<const uint8_t> packet) {
    WireReader reader(packet);
    reader.skip(kIidOffset);
    // In this order: members of a braced list are evaluated as they stand.
    return {reader.u8(), reader.u8(), reader.u8(), reader.be16()};
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

Answer exchange(ncsi_channel& channel, Request& request, int32_t capacity) {
    ncsi_ctx& ctx = *channel.ctx;
    const auto room = request.room();
    // An operation that does not know better has filled the response.
    ctx.response_length = capacity;
    const int32_t result =
        ctx.transfer(&channel, request.size(), capacity, request.data(), room.data());
    // Of a failed exchange too, whatever has come of it.
    WireReader codes(room.subspan(NCSI_HEADER_SIZE));
    const bool unsupported =
        codes.be16() == NCSI_RESPONSE_UNSUPPORTED && codes.be16() == NCSI_REASON_UNSUPPORTED;
    const int32_t length = std::clamp(ctx.response_length, 0, capacity);
    WireReader body(room.first(static_cast<size_t>(length)));
    body.skip(kResponseSize);
    return {result, ctx.response_length, unsupported, body};
}

int32_t finish(const Answer& answer) {
    if (answer.result >= 0 && !answer.body.ok()) {
        debug_log("%s, response of %d bytes is too short\n", "ncsi", answer.length);
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
        return -1;
    }
    mctp_ctx& mctp = *ctx.mctp;
    const uint8_t type = type_of(request);
    if (type == NCSI_CLEAR_INITIAL_STATE) {
        mctp.route = kClearInitialStateWait;
    }
    ctx.response_length = transfer_over(mctp, length, response_capacity, request, response);
    mctp.route = 0;
    ++ctx.iid;
    return ctx.response_length < 1 ? -1 : judge(type, response, ctx.response_length);
}

int32_t transfer_locked(ncsi_ctx* ctx, uint32_t request_length, int32_t response_capacity,
                        uint8_t* request, uint8_t* response) {
    if (!is_usable(ctx, request, response)) {
        return -1;
    }
    const uint32_t length = complete(*ctx, request_length, request);
    if (length == 0) {
        return -1;
    }
    mctp_ctx& mctp = *ctx->mctp;
    {
        const ChannelGuard channel(mctp.bus != 0 ? mctp.bus : platform.default_i2c_channel);
        if (!channel) {
            return -1;
        }
        const MutexGuard global(at_p_St_GlobalVar->ncsi_lock);
        if (!global) {
            return -1;
        }
        ctx->response_length = transfer_over(mctp, length, response_capacity, request, response);
    }
    return ctx->response_length < 1 ? -1 : judge(type_of(request), response, ctx->response_length);
}

int32_t transfer_by_oem(ncsi_channel* channel, uint32_t request_length, int32_t response_capacity,
                        uint8_t* request, uint8_t* response) {
    if (channel == nullptr || channel->ctx == nullptr || channel->ctx->oem_transfer == nullptr) {
        return -1;
    }
    ncsi_ctx* const ctx = channel->ctx;
    return ctx->oem_transfer(ctx, request_length, response_capacity, request, response);
}

}  // namespace sideband::ncsi
