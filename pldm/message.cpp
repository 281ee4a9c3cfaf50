// SPDX-License-Identifier: Apache-2.0
// The PLDM header and the three message operations with their retries (DSP0240, clause 8).
#include <sideband/debug_log.h>
#include <sideband/pldm.h>

#include <algorithm>

#include "common/error.h"
#include "common/output.h"
#include "common/sleep.h"
#include "pldm/message.h"
#include "pldm/strict.h"
#include "transport/deadline.h"

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

void write_header(uint8_t* to, uint8_t first, uint8_t type, uint8_t command) {
    WireWriter({to, PLDM_HEADER_SIZE}).u8(first).u8(type).u8(command);
}

int32_t start_request(uint8_t* request, uint8_t type) {
    write_header(request, kRequestBit, type, 0);
    return 0;
}

void stamp_instance_id(uint8_t& first_byte, uint8_t instance_id) {
    first_byte =
        static_cast<uint8_t>((first_byte & ~kInstanceIdMask) | (instance_id & kInstanceIdMask));
}

uint8_t command_of(const uint8_t* message, uint32_t length) {
    return byte_at({message, length}, 2);
}

/// The completion code, also of an answer that did not come: the buffer is looked at as it is.
uint8_t completion_code(const uint8_t* response, int32_t capacity) {
    return byte_at({response, static_cast<size_t>(std::max(capacity, 0))}, PLDM_HEADER_SIZE);
}

/// Records why an exchange has failed, as far as the endpoint knows.
[[gnu::cold]] void note_failure(pldm_ctx& ctx, uint8_t command, uint8_t otherwise) {
    if (ctx.mctp != nullptr && ctx.last_error.cause == SIDEBAND_CAUSE_NONE) {
        ctx.last_error = ctx.mctp->last_error;
    }
    fail(ctx.last_error, otherwise);
    record_step(ctx.last_error, SIDEBAND_STEP_PLDM, command);
}

[[gnu::cold]] void note_code(pldm_ctx& ctx, uint8_t command, uint8_t completion) {
    record_code(ctx.last_error, SIDEBAND_CODE_PLDM, completion);
    record_step(ctx.last_error, SIDEBAND_STEP_PLDM, command);
}

int32_t judge(pldm_ctx& ctx, uint8_t command, int32_t length, uint8_t completion) {
    if (length < PLDM_RESPONSE_HEADER_SIZE) {
        print_formatted("return size(%d) is too small\n", length);
        ctx.completion_code = completion;
        note_failure(ctx, command, SIDEBAND_CAUSE_MALFORMED);
        return -1;
    }
    if (completion == PLDM_CC_SUCCESS) {
        return 0;
    }
    print_formatted("command:0x%x is not successful, completion code:0x%x\n", command, completion);
    ctx.completion_code = completion;
    note_code(ctx, command, completion);
    return -1;
}

/// Of an operation that is not pldm_transfer() too, which has recorded nothing.
[[gnu::cold]] void note_result(pldm_ctx& ctx, uint8_t command, const PldmAnswer& answer) {
    if (answer.result >= 0) {
        note_code(ctx, command, answer.header.completion);
    } else {
        fail(ctx.last_error, SIDEBAND_CAUSE_NO_ANSWER);
        record_step(ctx.last_error, SIDEBAND_STEP_PLDM, command);
    }
}

}  // namespace

namespace sideband {

PldmHeader header_of(std::span<const uint8_t> message) {
    WireReader reader(message);
    PldmHeader header;
    header.instance_id = reader.u8() & kInstanceIdMask;
    reader.skip(1);  // the PLDM type
    header.command = reader.u8();
    header.completion = reader.u8();
    return header;
}

PldmRequest::PldmRequest(uint8_t type, uint8_t command) {
    write_header(room_.data(), kRequestBit, type, command);
    fields.skip(PLDM_HEADER_SIZE);
}

void PldmRequest::add_string(uint8_t type, uint8_t length, const char* characters) {
    fields.u8(type).u8(length).bytes({reinterpret_cast<const uint8_t*>(characters), length});
}

WireWriter& PldmRequest::clear_fields() {
    fields = WireWriter(room_);
    return fields.skip(PLDM_HEADER_SIZE);
}

PldmAnswer exchange(pldm_ctx& ctx, std::span<uint8_t> request, std::span<uint8_t> room) {
    const auto capacity = static_cast<int32_t>(room.size());
    // An operation other than pldm_transfer that does not know better has filled the response.
    ctx.response_length = capacity;
    ctx.last_error = kNoError;
    const int32_t result = ctx.transfer_op(&ctx, static_cast<uint32_t>(request.size()), capacity,
                                           request.data(), room.data());
    const int32_t length = ctx.response_length;
    PldmAnswer answer;
    answer.result = result;
    answer.ctx = &ctx;
    answer.length = length;
    answer.length_known = ctx.transfer_op == pldm_transfer || length < capacity;
    const auto came = room.first(static_cast<size_t>(std::clamp(length, 0, capacity)));
    answer.header = header_of(came);
    answer.body = WireReader(came);
    answer.body.skip(PLDM_RESPONSE_HEADER_SIZE);
    if (result < 0 || answer.header.completion != PLDM_CC_SUCCESS) {
        note_result(ctx, command_of(request.data(), static_cast<uint32_t>(request.size())), answer);
    }
    return answer;
}

PldmAnswer exchange(pldm_ctx& ctx, PldmRequest& request, std::span<uint8_t> room) {
    return exchange(ctx, request.bytes(), room);
}

int32_t finish(const PldmAnswer& answer, const char* function) {
    if (answer.result < 0) {
        return answer.result;
    }
    if (answer.body.ok()) {
        return 0;
    }
    if (answer.ctx != nullptr) {
        note_failure(*answer.ctx, answer.ctx->last_command, SIDEBAND_CAUSE_MALFORMED);
    }
    debug_log("%s, response of %d bytes is too short\n", function, answer.length);
    return -1;
}

int32_t fail_command(pldm_ctx& ctx, uint8_t cause) {
    ctx.last_error = error_of(cause, SIDEBAND_STEP_PLDM, ctx.last_command);
    return -1;
}

void print_framed(const char* first_line, std::span<const uint8_t> bytes, const char* last_line) {
    Output out;
    out.print_line(first_line);
    out.print_rows(bytes);
    out.print_line(last_line);
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
    const PldmHeader asked = header_of({request, PLDM_HEADER_SIZE});
    write_header(response, asked.instance_id, PLDM_TYPE_FW_UPDATE, asked.command);
}

int32_t pldm_recv(pldm_ctx* ctx, int32_t capacity, uint8_t* buffer) {
    if (ctx == nullptr) {
        return -1;
    }
    ctx->last_error = kNoError;
    if (buffer == nullptr || ctx->mctp == nullptr || ctx->mctp->recv == nullptr) {
        return fail(ctx->last_error, SIDEBAND_CAUSE_ARGUMENT);
    }
    if (capacity > 0) {
        buffer[0] = MCTP_MSG_TYPE_PLDM;
    }
    ctx->mctp->last_error = kNoError;
    if (ctx->mctp->recv(ctx->mctp, capacity, buffer) < 0) {
        ctx->last_error = ctx->mctp->last_error;
        return fail(ctx->last_error, SIDEBAND_CAUSE_NO_ANSWER);
    }
    return 0;
}

int32_t pldm_send(pldm_ctx* ctx, uint32_t length, const uint8_t* message, uint8_t tag_owner) {
    if (ctx == nullptr) {
        return -1;
    }
    ctx->last_error = kNoError;
    if (message == nullptr || length < PLDM_HEADER_SIZE) {
        return fail(ctx->last_error, SIDEBAND_CAUSE_ARGUMENT);
    }
    const uint8_t command = command_of(message, length);
    const int limit = attempts_for(command);
    for (int attempt = 0; attempt < limit; ++attempt) {
        // Read anew each time: another layer may have put another endpoint in place meanwhile.
        mctp_ctx* mctp = ctx->mctp;
        if (mctp == nullptr || mctp->send == nullptr) {
            return fail(ctx->last_error, SIDEBAND_CAUSE_ARGUMENT);
        }
        ctx->last_command = command;
        mctp->last_error = kNoError;
        if (mctp->send(mctp, length, message, tag_owner) >= 0) {
            return 0;
        }
        if (ctx->mctp != nullptr && is_over(*ctx->mctp)) {
            break;
        }
        sleep_us(kRetryPauseUs);
        print_formatted("do retrying to send PLDM messages %d - %d\n", command, attempt);
    }
    ctx->completion_code = PLDM_CC_RETRIES_EXHAUSTED;
    print_formatted("failed to send PLDM messages\n");
    note_failure(*ctx, command, SIDEBAND_CAUSE_NOT_ACKNOWLEDGED);
    return -1;
}

int32_t pldm_transfer(pldm_ctx* ctx, uint32_t request_length, int32_t response_capacity,
                      uint8_t* request, uint8_t* response) {
    if (ctx == nullptr || response == nullptr || request == nullptr) {
        print_formatted("[%s] Null ptr error.\n", "pldm_transfer");
        if (ctx != nullptr) {
            ctx->last_error = kArgumentError;
        }
        return -1;
    }
    ctx->last_error = kNoError;
    if (ctx->mctp == nullptr || ctx->mctp->xfer == nullptr || request_length < PLDM_HEADER_SIZE) {
        return fail(ctx->last_error, SIDEBAND_CAUSE_ARGUMENT);
    }
    stamp_instance_id(*request, ctx->instance_id);
    const int limit = attempts_for(command_of(request, request_length));
    bool came_not_ready = false;
    for (int attempt = 0; attempt < limit; ++attempt) {
        mctp_ctx* mctp = ctx->mctp;
        if (mctp == nullptr || mctp->xfer == nullptr) {
            return fail(ctx->last_error, SIDEBAND_CAUSE_ARGUMENT);
        }
        const uint8_t command = command_of(request, request_length);
        ctx->last_command = command;
        mctp->last_error = kNoError;
        const int32_t length =
            is_strict(*ctx)
                ? exchange_strictly(*mctp, {request, request_length},
                                    {response, static_cast<size_t>(std::max(response_capacity, 0))})
                : mctp->xfer(mctp, request_length, response_capacity, request, response);
        ctx->response_length = length;
        // Looked at even when nothing came: a stale "not ready" in the buffer counts as well.
        const uint8_t completion = completion_code(response, response_capacity);
        if (length >= 0 && completion != PLDM_CC_NOT_READY) {
            ++ctx->instance_id;
            return judge(*ctx, command, length, completion);
        }
        came_not_ready = length >= PLDM_RESPONSE_HEADER_SIZE;
        if (ctx->mctp != nullptr && is_over(*ctx->mctp)) {
            break;
        }
        sleep_us(kRetryPauseUs);
        print_formatted("do retrying to xfer PLDM messages - %d\n", attempt);
    }
    ++ctx->instance_id;
    if (came_not_ready) {
        note_code(*ctx, ctx->last_command, PLDM_CC_NOT_READY);
    } else {
        note_failure(*ctx, ctx->last_command, SIDEBAND_CAUSE_NO_ANSWER);
    }
    print_formatted("failed to xfer PLDM messages\n");
    ctx->completion_code = PLDM_CC_RETRIES_EXHAUSTED;
    return -1;
}

const sideband_error* pldm_last_error(const pldm_ctx* ctx) {
    return ctx != nullptr ? &ctx->last_error : null_context_error();
}
