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
/// @return bytes to send; 0 where it has no header
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
    request[kIid] = ctx.iid;
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
int32_t exchange_over(mctp_ctx& mctp, uint32_t length, int32_t capacity, const uint8_t* request,
                      uint8_t* response) {
    const int32_t room = padded_capacity(capacity);
    return std::min(mctp.xfer(&mctp, length, room, request, response), room);
}

/// Looks at a response. What did not come of it counts as zero. Its channel ID is not asked for:
/// there are controllers that answer the command of a package with that of a channel.
int32_t judge(const uint8_t* request, const uint8_t* response, int32_t length) {
    std::array<uint8_t, kResponsePayload> head{};
    const size_t received = std::min(static_cast<size_t>(length), head.size());
    std::memcpy(head.data(), response, received);
    if (head[kType] != (request[kType] | kResponseBit)) {
        std::printf("the command code in the response(%x) is not right.", head[kType]);
        return -1;
    }
    const uint16_t code = be16_at(head, kResponseCode);
    const uint16_t reason = be16_at(head, kReasonCode);
    if (code == 0 && reason == 0 && received == head.size()) {
        return 0;
    }
    std::printf("compleition is not successful(%x,%x) or return size(%x) is too small\n", code,
                reason, static_cast<unsigned>(length));
    return -1;
}

}  // namespace

int32_t exchange(ncsi_channel* channel, uint32_t request_length, int32_t response_capacity,
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
    if (request[kType] == NCSI_CLEAR_INITIAL_STATE) {
        mctp.route = kClearInitialStateWait;
    }
    ctx.response_length = exchange_over(mctp, length, response_capacity, request, response);
    mctp.route = 0;
    ++ctx.iid;
    return ctx.response_length < 1 ? -1 : judge(request, response, ctx.response_length);
}

int32_t exchange_locked(ncsi_ctx* ctx, uint32_t request_length, int32_t response_capacity,
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
        ctx->response_length = exchange_over(mctp, length, response_capacity, request, response);
    }
    return ctx->response_length < 1 ? -1 : judge(request, response, ctx->response_length);
}

int32_t exchange_by_oem(ncsi_channel* channel, uint32_t request_length, int32_t response_capacity,
                        uint8_t* request, uint8_t* response) {
    if (channel == nullptr || channel->ctx == nullptr || channel->ctx->oem_transfer == nullptr) {
        return -1;
    }
    ncsi_ctx* const ctx = channel->ctx;
    return ctx->oem_transfer(ctx, request_length, response_capacity, request, response);
}

int32_t transfer(ncsi_channel& channel, Request& request, int32_t capacity, Response& response,
                 size_t needed) {
    ncsi_ctx& ctx = *channel.ctx;
    // An operation that does not know better has filled the response.
    ctx.response_length = capacity;
    const int32_t result =
        ctx.transfer(&channel, request.size(), capacity, request.data(), response.data());
    if (result >= 0 && ctx.response_length < static_cast<int32_t>(needed)) {
        debug_log("%s, response of %d bytes is too short\n", "ncsi", ctx.response_length);
        return -1;
    }
    return result;
}

}  // namespace sideband::ncsi
