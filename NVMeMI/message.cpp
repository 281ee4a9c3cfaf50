// SPDX-License-Identifier: Apache-2.0
// NVMe-MI messages: how they are built, exchanged and judged.
#include "NVMeMI/message.h"

#include <sideband/debug_log.h>
#include <sideband/platform.h>

#include <algorithm>
#include <array>

#include "common/crc.h"
#include "common/error.h"
#include "common/output.h"

using namespace sideband;

namespace sideband::nvme {
namespace {

constexpr uint8_t kMessageType = MCTP_MSG_TYPE_NVME_MI | MCTP_MSG_TYPE_INTEGRITY_CHECK;
/// NVMe-MI message type 1, an NVMe-MI command, in its place in the first byte.
constexpr uint8_t kManagementCommand = 1 << 3;
/// NVMe-MI message type 2, an NVMe admin command.
constexpr uint8_t kAdminCommand = 2 << 3;
/// What stays of the first byte of a tunnelled command: the message type is replaced, and the
/// command goes to command slot 0.
constexpr uint8_t kAdminTypeMask = 0x86;
/// Of the first byte: whether it is a response, and what that has in common with its request, which
/// are NVMe-MI message type and command slot.
constexpr uint8_t kResponse = 0x80;
constexpr uint8_t kCommonMask = 0x79;

constexpr size_t kOpcode = 3;

/// Says which command a recorded failure is of.
[[gnu::cold]] void note_command(nvmemi_ctx& ctx, std::span<const uint8_t> request) {
    const bool is_admin = (request[0] & (kManagementCommand | kAdminCommand)) == kAdminCommand;
    record_step(ctx.last_error, is_admin ? SIDEBAND_STEP_NVME : SIDEBAND_STEP_NVME_MI,
                request[kOpcode]);
}

[[gnu::cold]] void fail_request(nvmemi_ctx& ctx, std::span<const uint8_t> request, uint8_t cause) {
    fail(ctx.last_error, cause);
    note_command(ctx, request);
}

/// Sets the message type of the context and sends the bytes of a request over it.
/// @return what the operation says; -1 for every failure
int32_t transfer(nvmemi_ctx* ctx, std::span<uint8_t> request, const Room& room) {
    if (ctx == nullptr || ctx->mctp == nullptr || ctx->mi_request == nullptr) {
        return fail_call(ctx, SIDEBAND_CAUSE_ARGUMENT);
    }
    ctx->last_error = kNoError;
    ctx->mctp->msg_type = kMessageType;
    if (room.is_area) {
        std::fill_n(room.bytes.begin(), NVME_ADMIN_RESPONSE_SIZE, uint8_t{0});
    }
    const bool in_area = room.is_area && ctx->mi_request == request_with_retries;
    const nvmemi_request_op operation = in_area ? request_in_area : ctx->mi_request;
    const int32_t result =
        operation(ctx, static_cast<uint32_t>(request.size()),
                  static_cast<uint32_t>(room.bytes.size()), request.data(), room.bytes.data());
    if (result < 0) {
        fail_request(*ctx, request, SIDEBAND_CAUSE_NO_ANSWER);
    }
    return std::max(result, -1);
}

/// Fills in message type and command flags of an admin request.
void complete(std::span<uint8_t> request) {
    constexpr size_t kBeforeData = 26;
    constexpr uint8_t kLengthValid = 1 << 0;
    constexpr uint8_t kOffsetValid = 1 << 1;
    WireReader reader(request);
    const uint8_t type_bits = reader.u8();
    reader.skip(kBeforeData);
    const uint32_t offset = reader.le32();
    const uint32_t length = reader.le32();
    const int flags = (length != 0 ? kLengthValid : 0) | (offset != 0 ? kOffsetValid : 0);
    WireWriter(request)
        .u8((type_bits & kAdminTypeMask) | kAdminCommand)
        .skip(3)
        .u8(static_cast<uint8_t>(flags));
}

/// Where an error is reported: admin commands use the console, management commands the output.
enum class Outlet { kConsole, kOutput };

/// Reports a status that is not success.
void report_status(std::span<const uint8_t> message, Outlet outlet) {
    // Name and line are part of the texts that log readers match; they are not this call's place.
    static constexpr char kInvalidParameter[] =
        "[%s:%d] Invalid parameter at request byte %#x, bit %d\n";
    static constexpr char kUnsuccess[] = "Response unsuccess (%xh)\n";
    static constexpr char kName[] = "print_resp_error";
    constexpr int kConsoleLine = 58;
    constexpr int kOutputLine = 48;
    WireReader reader(message);
    reader.skip(kStatus);
    const uint8_t status = reader.u8();
    const uint8_t bit = reader.u8() & 0x07;
    const uint8_t byte = reader.u8();
    const bool located = status == NVMEMI_STATUS_INVALID_PARAMETER;
    if (outlet == Outlet::kConsole) {
        located ? print_on_console(kInvalidParameter, kName, kConsoleLine, byte, bit)
                : print_on_console(kUnsuccess, status);
    } else if (located) {
        print_formatted(kInvalidParameter, kName, kOutputLine, byte, bit);
    } else {
        print_formatted(kUnsuccess, status);
    }
}

[[gnu::cold]] void note_status(nvmemi_ctx& ctx, std::span<const uint8_t> request,
                               std::span<const uint8_t> message) {
    WireReader reader(message);
    reader.skip(kStatus);
    const uint8_t status = reader.u8();
    const uint8_t bit = reader.u8() & 0x07;
    const bool located = status == NVMEMI_STATUS_INVALID_PARAMETER;
    const int place = reader.u8() << 8 | bit;
    record_code(ctx.last_error, SIDEBAND_CODE_NVME_MI, status,
                static_cast<uint16_t>(located ? place : 0));
    note_command(ctx, request);
}

Answer failed_exchange() {
    return {Stage::kFailedExchange, -1, {}, WireReader({})};
}

/// Exchanges, and looks at the status of what came.
Answer judge(nvmemi_ctx* ctx, std::span<uint8_t> request, const Room& room) {
    const int32_t result = transfer(ctx, request, room);
    if (result < 0) {
        return failed_exchange();
    }
    const auto message = room.bytes.first(body_length(*ctx->mctp, room.bytes, result));
    WireReader reader(message);
    reader.skip(kStatus);
    const uint8_t status = reader.u8();
    if (!reader.ok()) {
        debug_log("%s, response of %zu bytes has no status\n", "nvmemi", message.size());
        fail_request(*ctx, request, SIDEBAND_CAUSE_MALFORMED);
        return {Stage::kMalformed, -1, message, reader};
    }
    if (!is_response(*ctx->mctp, request, message)) {
        debug_log("%s, message %02x is no response to request %02x\n", "nvmemi", message[0],
                  request[0]);
        fail_request(*ctx, request, SIDEBAND_CAUSE_WRONG_TAG);
        return {Stage::kMalformed, -1, message, reader};
    }
    if (status != NVMEMI_STATUS_SUCCESS) {
        note_status(*ctx, request, message);
    }
    return {status == NVMEMI_STATUS_SUCCESS ? Stage::kDone : Stage::kRefused,
            status,
            message,
            reader,
            ctx,
            request[kOpcode]};
}

/// Whether a completion says that the controller has failed the command. Deployed firmware takes a
/// status code of 0 for a success, of whatever type it is.
bool has_failed(const mctp_ctx& mctp, uint32_t dword3) {
    const bool strict = (mctp.strict & MCTP_STRICT_NVME_MI) != 0;
    return NVME_COMPLETION_SC(dword3) != 0 || (strict && NVME_COMPLETION_SCT(dword3) != 0);
}

/// Looks at the completion of a successful response.
void judge_completion(const mctp_ctx& mctp, AdminAnswer& answer) {
    answer.body.skip(NVMEMI_RESPONSE_SIZE - kStatus - 1);
    answer.dword0 = answer.body.le32();
    answer.body.skip(sizeof(uint32_t));
    answer.dword3 = answer.body.le32();
    if (!answer.body.ok()) {
        debug_log("%s, response of %zu bytes has no completion\n", "nvme admin",
                  answer.message.size());
        fail(answer.ctx->last_error, SIDEBAND_CAUSE_MALFORMED);
        answer.stage = Stage::kMalformed;
        answer.result = -1;
    } else if (has_failed(mctp, answer.dword3)) {
        record_code(answer.ctx->last_error, SIDEBAND_CODE_NVME,
                    static_cast<uint16_t>(NVME_COMPLETION_SCT(answer.dword3) << 8 |
                                          NVME_COMPLETION_SC(answer.dword3)));
        answer.stage = Stage::kFailed;
        answer.result = static_cast<int32_t>(answer.dword3);
    }
}

}  // namespace

int32_t fail_answer(const Answer& answer) {
    fail(answer.ctx->last_error, SIDEBAND_CAUSE_MALFORMED);
    record_step(answer.ctx->last_error, SIDEBAND_STEP_NVME_MI, answer.opcode);
    return -1;
}

int32_t fail_call(nvmemi_ctx* ctx, uint8_t cause) {
    if (ctx != nullptr) {
        ctx->last_error = error_of(cause);
    }
    return -1;
}

size_t body_length(const mctp_ctx& mctp, std::span<const uint8_t> room, int32_t result) {
    constexpr size_t kCheckSize = 4;
    const auto body = room.first(std::min(static_cast<size_t>(result), room.size()));
    if (body.size() < kCheckSize || (mctp.strict & MCTP_STRICT_INTEGRITY) != 0) {
        return body.size();
    }
    const size_t length = body.size() - kCheckSize;
    const uint32_t crc = crc32c_update(kCrc32cInitial, {&kMessageType, 1});
    const uint32_t check = WireReader(body.last(kCheckSize)).le32();
    return check == crc32c_final(crc32c_update(crc, body.first(length))) ? length : body.size();
}

bool is_response(const mctp_ctx& mctp, std::span<const uint8_t> request,
                 std::span<const uint8_t> message) {
    if ((mctp.strict & MCTP_STRICT_NVME_MI) == 0) {
        return true;
    }
    const uint8_t wanted = (WireReader(request).u8() & kCommonMask) | kResponse;
    return (WireReader(message).u8() & (kCommonMask | kResponse)) == wanted;
}

Request encode(const Command& command, std::span<uint8_t> bytes) {
    std::fill_n(bytes.begin(), NVMEMI_REQUEST_SIZE, uint8_t{0});
    WireWriter writer(bytes);
    writer.u8(kManagementCommand).skip(2).u8(command.opcode).skip(3);
    writer.le32(command.nmd0).le32(command.nmd1);
    return {bytes};
}

AdminRequest encode(const AdminCommand& command, std::span<uint8_t> bytes) {
    constexpr size_t kDwords2To5 = 16;
    std::fill_n(bytes.begin(), NVME_ADMIN_REQUEST_SIZE, uint8_t{0});
    // Message type bits and command flags are filled in by complete().
    WireWriter writer(bytes);
    writer.skip(3).u8(command.opcode).skip(1).le16(command.cntlid).le32(command.nsid);
    writer.skip(kDwords2To5).le32(command.dofst).le32(command.dlen).skip(4).le32(command.cdw9);
    writer.le32(command.cdw10).le32(command.cdw11).le32(command.cdw12);
    writer.le32(command.cdw13).le32(command.cdw14).le32(command.cdw15);
    return {bytes};
}

Answer exchange(nvmemi_ctx* ctx, Request request, const Room& room) {
    return judge(ctx, request.bytes, room);
}

Answer exchange(nvmemi_ctx* ctx, const Command& command, const Room& room) {
    std::array<uint8_t, NVMEMI_REQUEST_SIZE> bytes;
    return exchange(ctx, encode(command, bytes), room);
}

AdminAnswer exchange(nvmemi_ctx* ctx, AdminRequest request, const Room& room) {
    complete(request.bytes);
    AdminAnswer answer{judge(ctx, request.bytes, room), 0, 0};
    if (answer.stage == Stage::kDone) {
        judge_completion(*ctx->mctp, answer);
        if (answer.stage != Stage::kDone) {
            note_command(*ctx, request.bytes);
        }
    }
    return answer;
}

AdminAnswer exchange(nvmemi_ctx* ctx, const AdminCommand& command, const Room& room) {
    if (command.dlen > NVME_ADMIN_DATA_MAX) {
        debug_log("%s, %u bytes of data are too many\n", "nvme admin", command.dlen);
        fail_call(ctx, SIDEBAND_CAUSE_ARGUMENT);
        return {failed_exchange(), 0, 0};
    }
    std::array<uint8_t, NVME_ADMIN_REQUEST_SIZE> bytes;
    return exchange(ctx, encode(command, bytes), room);
}

int32_t finish(const Answer& answer, const char* failure) {
    if (answer.stage == Stage::kFailedExchange) {
        print_line(failure);
    } else if (answer.stage == Stage::kRefused) {
        report_status(answer.message, Outlet::kOutput);
    } else if (answer.stage == Stage::kDone && !answer.body.ok()) {
        debug_log("%s, response of %zu bytes is too short\n", "nvmemi", answer.message.size());
        return fail_answer(answer);
    }
    return answer.result;
}

int32_t finish(const AdminAnswer& answer) {
    if (answer.stage == Stage::kRefused) {
        report_status(answer.message, Outlet::kConsole);
    } else if (answer.stage == Stage::kFailed) {
        print_on_console("Command error (SCT:%#x, SC:%#x)\n", NVME_COMPLETION_SCT(answer.dword3),
                         NVME_COMPLETION_SC(answer.dword3));
    }
    return answer.result;
}

}  // namespace sideband::nvme

int32_t nvme_admin_cmd(nvmemi_ctx* ctx, uint32_t request_length, uint32_t response_capacity,
                       uint8_t* request, uint8_t* response) {
    if (request == nullptr || request_length < NVME_ADMIN_REQUEST_SIZE || response == nullptr) {
        return nvme::fail_call(ctx, SIDEBAND_CAUSE_ARGUMENT);
    }
    const std::span bytes(request, request_length);
    nvme::complete(bytes);
    return nvme::transfer(ctx, bytes, std::span(response, response_capacity));
}
