// SPDX-License-Identifier: Apache-2.0
// NVMe-MI messages: how they are built, exchanged and judged.
#include "NVMeMI/message.h"

#include <sideband/debug_log.h>
#include <sideband/platform.h>

#include <algorithm>
#include <cstdio>

#include "common/crc.h"
#include "common/wire.h"

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

/// Sets the message type of the context and sends a request over it.
/// @return what the operation says; -1 for every failure
int32_t call(nvmemi_ctx* ctx, std::span<uint8_t> request, std::span<uint8_t> response) {
    if (ctx == nullptr || ctx->mctp == nullptr || ctx->mi_request == nullptr) {
        return -1;
    }
    ctx->mctp->msg_type = kMessageType;
    const int32_t result =
        ctx->mi_request(ctx, static_cast<uint32_t>(request.size()),
                        static_cast<uint32_t>(response.size()), request.data(), response.data());
    return std::max(result, -1);
}

/// Reports a status that is not success.
void report_status(std::span<const uint8_t> response, Outlet outlet) {
    // Name and line are part of the texts that log readers match; they are not this call's place.
    static constexpr char kInvalidParameter[] =
        "[%s:%d] Invalid parameter at request byte %#x, bit %d\n";
    static constexpr char kUnsuccess[] = "Response unsuccess (%xh)\n";
    static constexpr char kName[] = "print_resp_error";
    constexpr int kConsoleLine = 58;
    constexpr int kOutputLine = 48;
    WireReader reader(response);
    reader.skip(kStatus);
    const uint8_t status = reader.u8();
    const uint8_t bit = reader.u8() & 0x07;
    const uint8_t byte = reader.u8();
    const bool located = status == NVMEMI_STATUS_INVALID_PARAMETER;
    if (outlet == Outlet::console) {
        located ? console_log(kInvalidParameter, kName, kConsoleLine, byte, bit)
                : console_log(kUnsuccess, status);
    } else if (located) {
        std::printf(kInvalidParameter, kName, kOutputLine, byte, bit);
    } else {
        std::printf(kUnsuccess, status);
    }
}

/// @return 0; the status; -1 where the response has none
int32_t status_of(std::span<const uint8_t> response) {
    if (response.size() <= kStatus) {
        debug_log("%s, response of %zu bytes has no status\n", "nvmemi", response.size());
        return -1;
    }
    return response[kStatus];
}

int32_t judge(AdminResponse& response) {
    const auto bytes = std::span(response.bytes).first(response.length);
    const int32_t status = status_of(bytes);
    if (status != 0) {
        response.stage = status > 0 ? Stage::refused : Stage::no_response;
        return status;
    }
    WireReader reader(bytes);
    reader.skip(NVMEMI_RESPONSE_SIZE);
    response.dword0 = reader.le32();
    reader.skip(sizeof(uint32_t));
    response.dword3 = reader.le32();
    if (!reader.ok()) {
        debug_log("%s, response of %zu bytes has no completion\n", "nvme admin", response.length);
        return -1;
    }
    if (NVME_COMPLETION_SC(response.dword3) != 0) {
        response.stage = Stage::failed;
        return static_cast<int32_t>(response.dword3);
    }
    response.stage = Stage::done;
    return 0;
}

}  // namespace

size_t body_length(std::span<const uint8_t> room, int32_t result) {
    constexpr size_t kCheckSize = 4;
    const auto body = room.first(std::min(static_cast<size_t>(result), room.size()));
    if (body.size() < kCheckSize) {
        return body.size();
    }
    const size_t length = body.size() - kCheckSize;
    const uint32_t crc = crc32c_update(kCrc32cInitial, {&kMessageType, 1});
    const uint32_t check = WireReader(body.last(kCheckSize)).le32();
    return check == crc32c_final(crc32c_update(crc, body.first(length))) ? length : body.size();
}

size_t exchange(nvmemi_ctx* ctx, std::span<uint8_t> request, std::span<uint8_t> response) {
    const int32_t result = call(ctx, request, response);
    return result < 0 ? kNoResponse : body_length(response, result);
}

int32_t judge_status(std::span<const uint8_t> response, Outlet outlet) {
    const int32_t status = status_of(response);
    if (status > NVMEMI_STATUS_SUCCESS) {
        report_status(response, outlet);
    }
    return status;
}

void encode(const Command& command, std::span<uint8_t> request) {
    WireWriter writer(request);
    writer.u8(kManagementCommand).skip(2).u8(command.opcode).skip(3);
    writer.le32(command.nmd0).le32(command.nmd1);
}

void encode(const AdminCommand& command, std::span<uint8_t> request) {
    constexpr size_t kDwords2To5 = 16;
    // Message type bits and command flags are filled in by nvme_admin_cmd().
    WireWriter writer(request);
    writer.skip(3).u8(command.opcode).skip(1).le16(command.cntlid).le32(command.nsid);
    writer.skip(kDwords2To5).le32(command.dofst).le32(command.dlen).skip(4).le32(command.cdw9);
    writer.le32(command.cdw10).le32(command.cdw11).le32(command.cdw12);
    writer.le32(command.cdw13).le32(command.cdw14).le32(command.cdw15);
}

int32_t tunnel(nvmemi_ctx* ctx, std::span<uint8_t> request, size_t data_capacity,
               AdminResponse& response) {
    const auto room = std::span(response.bytes).first(NVME_ADMIN_RESPONSE_SIZE + data_capacity);
    const int32_t result =
        nvme_admin_cmd(ctx, static_cast<uint32_t>(request.size()),
                       static_cast<uint32_t>(room.size()), request.data(), room.data());
    if (result < 0) {
        return -1;
    }
    response.length = body_length(room, result);
    return judge(response);
}

void report(const AdminResponse& response) {
    if (response.stage == Stage::refused) {
        report_status(std::span(response.bytes).first(response.length), Outlet::console);
    } else if (response.stage == Stage::failed) {
        console_log("Command error (SCT:%#x, SC:%#x)\n", NVME_COMPLETION_SCT(response.dword3),
                    NVME_COMPLETION_SC(response.dword3));
    }
}

int32_t exchange(nvmemi_ctx* ctx, std::span<uint8_t> request, size_t data_capacity,
                 AdminResponse& response) {
    const int32_t result = tunnel(ctx, request, data_capacity, response);
    report(response);
    return result;
}

}  // namespace sideband::nvme

int32_t nvme_admin_cmd(nvmemi_ctx* ctx, uint32_t request_length, uint32_t response_capacity,
                       uint8_t* request, uint8_t* response) {
    constexpr size_t kCommandFlags = 4;
    constexpr size_t kDataOffset = 27;
    constexpr uint8_t kLengthValid = 1 << 0;
    constexpr uint8_t kOffsetValid = 1 << 1;
    if (request == nullptr || request_length < NVME_ADMIN_REQUEST_SIZE || response == nullptr) {
        return -1;
    }
    WireReader reader({request, request_length});
    reader.skip(kDataOffset);
    const uint32_t offset = reader.le32();
    const uint32_t length = reader.le32();
    request[kCommandFlags] =
        static_cast<uint8_t>((length != 0 ? kLengthValid : 0) | (offset != 0 ? kOffsetValid : 0));
    request[nvme::kTypeBits] =
        (request[nvme::kTypeBits] & nvme::kAdminTypeMask) | nvme::kAdminCommand;
    return nvme::call(ctx, {request, request_length}, {response, response_capacity});
}
