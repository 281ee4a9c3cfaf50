// SPDX-License-Identifier: Apache-2.0
// The PLDM header and the three message operations with their retries (DSP0240, clause 8).
#include <sideband/debug_log.h>
#include <sideband/pldm.h>

#include <cstdio>

#include "common/sleep.h"
#include "pldm/message.h"

using namespace sideband;

namespace {

constexpr uint8_t kInstanceIdMask = 0x1F;
constexpr uint8_t kRequestBit = 0x80;

constexpr uint32_t kRetryPauseUs = 100000;
/// ActivateFirmware takes long; the code alone decides, whatever the PLDM type.
constexpr uint8_t kPatientCommand = 0x1A;
constexpr int kPatientAttempts = 10;

int attempts_for(uint8_t command) {
    return command == kPatientCommand ? kPatientAttempts : 1;
}

int32_t start_request(uint8_t* request, uint8_t type) {
    request[0] = kRequestBit;
    request[1] = type;
    request[2] = 0;
    return 0;
}

/// The completion code, also of an answer that did not come: the buffer is looked at as it is.
uint8_t completion_code(const uint8_t* response, int32_t capacity) {
    return capacity > static_cast<int32_t>(kPldmCompletionCode) ? response[kPldmCompletionCode] : 0;
}

int32_t judge(pldm_ctx& ctx, uint8_t command, int32_t length, uint8_t completion) {
    if (length < PLDM_RESPONSE_HEADER_SIZE) {
        std::printf("return size(%d) is too small\n", length);
        ctx.completion_code = completion;
        return -1;
    }
    if (completion == PLDM_CC_SUCCESS) {
        return 0;
    }
    std::printf("command:0x%x is not successful, completion code:0x%x\n", command, completion);
    ctx.completion_code = completion;
    return -1;
}

}  // namespace

namespace sideband {

int32_t pldm_exchange(pldm_ctx& ctx, std::span<uint8_t> request, std::span<uint8_t> response) {
    const auto capacity = static_cast<int32_t>(response.size());
    // An operation other than pldm_transfer that does not know better has filled the response.
    ctx.response_length = capacity;
    return ctx.transfer_op(&ctx, static_cast<uint32_t>(request.size()), capacity, request.data(),
                           response.data());
}

bool pldm_response_has(const pldm_ctx& ctx, size_t length) {
    return ctx.response_length >= static_cast<int32_t>(length);
}

bool pldm_response_exceeds(const pldm_ctx& ctx, size_t length, size_t capacity) {
    const bool known = ctx.transfer_op == pldm_transfer || !pldm_response_has(ctx, capacity);
    return known && pldm_response_has(ctx, length + 1);
}

int32_t too_short(const pldm_ctx& ctx, const char* function) {
    debug_log("%s, response of %d bytes is too short\n", function, ctx.response_length);
    return -1;
}

void print_line(const char* text) {
    std::printf("%s\n", text);
}

}  // namespace sideband

int32_t pldm_request_init(uint8_t* request) {
    return request == nullptr ? -1 : start_request(request, PLDM_TYPE_BASE);
}

int32_t pldm_monitor_request_init(uint8_t* request) {
    return request == nullptr ? PLDM_ERROR_ARGUMENT : start_request(request, PLDM_TYPE_MONITOR);
}

int32_t pldm_FRU_request_init(uint8_t* request) {
    return request == nullptr ? -1 : start_request(request, PLDM_TYPE_FRU);
}

int32_t pldm_fw_update_request_init(uint8_t* request) {
    return start_request(request, PLDM_TYPE_FW_UPDATE);
}

void pldm_fw_update_response_init(uint8_t* response, const uint8_t* request) {
    response[0] = request[0] & kInstanceIdMask;
    response[1] = PLDM_TYPE_FW_UPDATE;
    response[2] = request[2];
}

int32_t pldm_recv(pldm_ctx* ctx, int32_t capacity, uint8_t* buffer) {
    if (buffer == nullptr || ctx == nullptr || ctx->mctp == nullptr || ctx->mctp->recv == nullptr) {
        return -1;
    }
    if (capacity > 0) {
        buffer[0] = MCTP_MSG_TYPE_PLDM;
    }
    return ctx->mctp->recv(ctx->mctp, capacity, buffer) < 0 ? -1 : 0;
}

int32_t pldm_send(pldm_ctx* ctx, uint32_t length, const uint8_t* message, uint8_t tag_owner) {
    if (message == nullptr || ctx == nullptr || length < PLDM_HEADER_SIZE) {
        return -1;
    }
    const uint8_t command = message[kPldmCommand];
    const int limit = attempts_for(command);
    for (int attempt = 0; attempt < limit; ++attempt) {
        // Read anew each time: another layer may have put another endpoint in place meanwhile.
        mctp_ctx* mctp = ctx->mctp;
        if (mctp == nullptr || mctp->send == nullptr) {
            return -1;
        }
        ctx->last_command = command;
        if (mctp->send(mctp, length, message, tag_owner) >= 0) {
            return 0;
        }
        sleep_us(kRetryPauseUs);
        std::printf("do retrying to send PLDM messages %d - %d\n", command, attempt);
    }
    ctx->completion_code = PLDM_CC_RETRIES_EXHAUSTED;
    std::printf("failed to send PLDM messages\n");
    return -1;
}

int32_t pldm_transfer(pldm_ctx* ctx, uint32_t request_length, int32_t response_capacity,
                      uint8_t* request, uint8_t* response) {
    if (ctx == nullptr || response == nullptr || request == nullptr) {
        std::printf("[%s] Null ptr error.\n", "pldm_transfer");
        return -1;
    }
    if (ctx->mctp == nullptr || ctx->mctp->xfer == nullptr || request_length < PLDM_HEADER_SIZE) {
        return -1;
    }
    request[0] = static_cast<uint8_t>((request[0] & ~kInstanceIdMask) |
                                      (ctx->instance_id & kInstanceIdMask));
    const int limit = attempts_for(request[kPldmCommand]);
    for (int attempt = 0; attempt < limit; ++attempt) {
        mctp_ctx* mctp = ctx->mctp;
        if (mctp == nullptr || mctp->xfer == nullptr) {
            return -1;
        }
        const uint8_t command = request[kPldmCommand];
        ctx->last_command = command;
        const int32_t length =
            mctp->xfer(mctp, request_length, response_capacity, request, response);
        ctx->response_length = length;
        // Looked at even when nothing came: a stale "not ready" in the buffer counts as well.
        const uint8_t completion = completion_code(response, response_capacity);
        if (length >= 0 && completion != PLDM_CC_NOT_READY) {
            ++ctx->instance_id;
            return judge(*ctx, command, length, completion);
        }
        sleep_us(kRetryPauseUs);
        std::printf("do retrying to xfer PLDM messages - %d\n", attempt);
    }
    ++ctx->instance_id;
    std::printf("failed to xfer PLDM messages\n");
    ctx->completion_code = PLDM_CC_RETRIES_EXHAUSTED;
    return -1;
}
