// SPDX-License-Identifier: Apache-2.0
// NVMe admin commands tunnelled through NVMe-MI (NVMe base specification; NVMe-MI).
#include <sideband/nvme_mi.h>
#include <sideband/platform.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "NVMeMI/message.h"
#include "common/output.h"

using namespace sideband;

namespace {

constexpr uint8_t kGetLogPage = 0x02;
constexpr uint8_t kIdentify = 0x06;
constexpr uint8_t kSetFeatures = 0x09;
constexpr uint8_t kGetFeatures = 0x0A;
constexpr uint8_t kNamespaceManagement = 0x0D;
constexpr uint8_t kFirmwareCommit = 0x10;
constexpr uint8_t kNamespaceAttachment = 0x15;
constexpr uint8_t kLockdown = 0x24;
constexpr uint8_t kFormatNvm = 0x80;
constexpr uint8_t kSanitize = 0x84;
constexpr uint8_t kMarvellPassthrough = 0xC2;

constexpr uint32_t kNamespaceDelete = 1;

/// The file that log readers know the commands by.
constexpr char kSource[] = "NVMeMI/nvme";

/// Room for a response with so many data. More than there can be is not asked for.
nvme::Room room_for(nvme::Area& area, uint32_t length) {
    return {area, NVME_ADMIN_RESPONSE_SIZE + std::min<uint32_t>(length, NVME_ADMIN_DATA_MAX)};
}

/// A command that moves no data at all.
int32_t plain_command(nvmemi_ctx* ctx, const nvme::AdminCommand& command) {
    std::array<uint8_t, NVME_ADMIN_RESPONSE_SIZE> room{};
    return finish(nvme::exchange(ctx, command, room));
}

/// A request with as many data as one can have.
using DataRequest = std::array<uint8_t, NVME_ADMIN_REQUEST_SIZE + NVME_ADMIN_DATA_MAX>;

std::span<uint8_t> data_of(DataRequest& bytes) {
    return std::span(bytes).subspan(NVME_ADMIN_REQUEST_SIZE);
}

/// Namespace Attachment with its data, a list of one controller (NVMe, Controller List).
int32_t attach_listed(nvmemi_ctx* ctx, nvme::AdminCommand command) {
    DataRequest bytes{};
    WireWriter(data_of(bytes)).le16(1).le16(command.cntlid);
    command.dlen = NVME_ADMIN_DATA_MAX;
    std::array<uint8_t, NVME_ADMIN_RESPONSE_SIZE> room{};
    return finish(nvme::exchange(ctx, nvme::encode(command, bytes), room));
}

/// Copies the data of a response. What there is no room for is lost.
/// @return bytes copied
uint32_t copy_data(const nvme::AdminAnswer& answer, uint8_t* data, uint32_t room) {
    const auto bytes = answer.body.rest().first(std::min<size_t>(answer.body.remaining(), room));
    if (data != nullptr && !bytes.empty()) {
        std::memcpy(data, bytes.data(), bytes.size());
    }
    return static_cast<uint32_t>(bytes.size());
}

/// What all commands take from a record. One copy: it is longer than the call.
[[gnu::noinline]] nvme::AdminCommand command_of(const nvme_admin_req& req, uint8_t opcode,
                                                uint32_t length) {
    return {.opcode = opcode,
            .cntlid = req.cntlid,
            .nsid = req.nsid,
            .dofst = req.dofst,
            .dlen = length,
            .cdw10 = req.cdw10};
}

void copy_dwords_11_to_14(nvme::AdminCommand& command, const nvme_admin_req& req) {
    command.cdw11 = req.cdw11;
    command.cdw12 = req.cdw12;
    command.cdw13 = req.cdw13;
    command.cdw14 = req.cdw14;
}

/// The end of a command that reads data.
int32_t finish_read(const nvme::AdminAnswer& answer, uint8_t* data, uint32_t room,
                    uint32_t* received) {
    const int32_t result = finish(answer);
    if (result == 0) {
        const uint32_t copied = copy_data(answer, data, room);
        if (received != nullptr) {
            *received = copied;
        }
    }
    return result;
}

/// Whether the controller has completed the command, successfully or not.
bool is_completed(const nvme::AdminAnswer& answer) {
    return answer.stage == nvme::Stage::kFailed || answer.stage == nvme::Stage::kDone;
}

}  // namespace

int32_t nvme_get_log_page(nvme_admin_req* req, uint16_t cntlid, uint32_t length,
                          uint8_t passthrough, uint8_t* data, uint32_t* received) {
    if (req == nullptr) {
        return -1;
    }
    nvme::AdminCommand command = command_of(*req, kGetLogPage, length);
    command.cntlid = cntlid;
    copy_dwords_11_to_14(command, *req);
    if (passthrough != 0) {
        command.opcode = kMarvellPassthrough;
        command.cdw9 = length;
        command.cdw15 = req->nsid;
    }
    nvme::Area area;
    const nvme::AdminAnswer answer =
        nvme::exchange(req->ctx, command, room_for(area, NVME_ADMIN_DATA_MAX));
    const int32_t result = finish_read(answer, data, length, received);
    if (is_completed(answer)) {
        print_formatted("MORE=%d\n", static_cast<int>(NVME_COMPLETION_MORE(answer.dword3)));
    }
    return result;
}

int32_t nvme_identify(nvme_admin_req* req, uint32_t length, uint8_t passthrough, uint8_t* data,
                      uint32_t* received) {
    if (req == nullptr) {
        return -1;
    }
    nvme::AdminCommand command = command_of(*req, kIdentify, length);
    if (passthrough != 0) {
        command.opcode = kMarvellPassthrough;
        command.cdw9 = length;
        print_on_console("[%s:%d] Doing Marvell passthrough: DW9=%d\n", kSource, __LINE__,
                         static_cast<int>(length));
    } else {
        print_on_console("[%s:%d] Doing Direct NVMe-MI\n", kSource, __LINE__);
    }
    nvme::Area area;
    const nvme::AdminAnswer answer = nvme::exchange(req->ctx, command, room_for(area, length));
    const int32_t result = finish_read(answer, data, length, received);
    if (is_completed(answer)) {
        const size_t arrived = answer.body.remaining();
        print_formatted("M:%d, read_len=%d\n",
                        static_cast<int>(NVME_COMPLETION_MORE(answer.dword3)),
                        static_cast<int>(arrived));
        if (arrived == 0) {
            print_line("no NVMe-MI payload received");
        }
    }
    return result;
}

int32_t nvme_admin_set_feature(nvme_admin_req* req, uint8_t fid, uint8_t save,
                               nvme_feature_result* result) {
    constexpr unsigned kSaveShift = 31;
    if (req == nullptr) {
        return -1;
    }
    if (save > 1) {
        print_on_console("Wrong save flag (%x)\n", save);
        return nvme::fail_call(req->ctx, SIDEBAND_CAUSE_ARGUMENT);
    }
    req->cdw10 = uint32_t{save} << kSaveShift | fid;
    return nvme_admin_get_set_feature(req, kSetFeatures, result);
}

int32_t nvme_admin_get_feature(nvme_admin_req* req, uint8_t fid, uint8_t sel,
                               nvme_feature_result* result) {
    constexpr unsigned kSelectShift = 8;
    constexpr uint32_t kSelectMask = 0x7;
    if (req == nullptr) {
        return -1;
    }
    req->cdw10 = (sel & kSelectMask) << kSelectShift | fid;
    if (sel > NVME_FEATURE_CAPABILITIES) {
        print_on_console("Unsupported SEL (%x)\n", sel);
        return nvme::fail_call(req->ctx, SIDEBAND_CAUSE_ARGUMENT);
    }
    return nvme_admin_get_set_feature(req, kGetFeatures, result);
}

int32_t nvme_admin_get_set_feature(nvme_admin_req* req, uint8_t opcode,
                                   nvme_feature_result* result) {
    if (req == nullptr) {
        return -1;
    }
    nvme::AdminCommand command = command_of(*req, opcode, req->dlen);
    copy_dwords_11_to_14(command, *req);
    command.cdw15 = req->cdw15;
    nvme::Area area;
    const nvme::AdminAnswer answer =
        nvme::exchange(req->ctx, command, room_for(area, NVME_ADMIN_DATA_MAX));
    const int32_t status = finish(answer);
    if (status == 0 && result != nullptr) {
        result->dword0 = answer.dword0;
        copy_data(answer, result->data, result->data_length);
    }
    return status;
}

int32_t nvme_namespace_mgmt_create(nvmemi_ctx* ctx, uint16_t cntlid, const uint8_t* data,
                                   uint32_t* nsid) {
    if (data == nullptr) {
        return nvme::fail_call(ctx, SIDEBAND_CAUSE_ARGUMENT);
    }
    DataRequest bytes;
    std::memcpy(data_of(bytes).data(), data, NVME_ADMIN_DATA_MAX);
    const nvme::AdminCommand command{
        .opcode = kNamespaceManagement, .cntlid = cntlid, .dlen = NVME_ADMIN_DATA_MAX};
    std::array<uint8_t, NVME_ADMIN_RESPONSE_SIZE> room{};
    const nvme::AdminAnswer answer = nvme::exchange(ctx, nvme::encode(command, bytes), room);
    const int32_t result = finish(answer);
    if (result == 0 && nsid != nullptr) {
        *nsid = answer.dword0;
    }
    return result;
}

int32_t nvme_namespace_mgmt_delete(nvmemi_ctx* ctx, uint16_t cntlid, uint32_t nsid) {
    return plain_command(ctx, {.opcode = kNamespaceManagement,
                               .cntlid = cntlid,
                               .nsid = nsid,
                               .cdw10 = kNamespaceDelete});
}

int32_t nvme_fw_image_commit(nvmemi_ctx* ctx, uint16_t cntlid, uint8_t slot, uint8_t action) {
    constexpr uint32_t kMask = 0x7;
    constexpr unsigned kActionShift = 3;
    return plain_command(ctx, {.opcode = kFirmwareCommit,
                               .cntlid = cntlid,
                               .cdw10 = (action & kMask) << kActionShift | (slot & kMask)});
}

int32_t nvme_namespace_mgmt_attachment(nvmemi_ctx* ctx, uint16_t cntlid, uint32_t nsid,
                                       uint8_t select) {
    constexpr uint32_t kSelectMask = 0x0F;
    const nvme::AdminCommand command{.opcode = kNamespaceAttachment,
                                     .cntlid = cntlid,
                                     .nsid = nsid,
                                     .cdw10 = select & kSelectMask};
    const bool strict =
        ctx != nullptr && ctx->mctp != nullptr && (ctx->mctp->strict & MCTP_STRICT_NVME_MI) != 0;
    // Without the list, as deployed firmware sends it, the controller that gets the command is
    // meant.
    return strict ? attach_listed(ctx, command) : plain_command(ctx, command);
}

int32_t nvme_lockdown_set(const nvme_lockdown_param* param) {
    if (param == nullptr) {
        return -1;
    }
    return plain_command(param->ctx, {.opcode = kLockdown,
                                      .cntlid = param->cntlid,
                                      .nsid = param->nsid,
                                      .cdw10 = param->cdw10,
                                      .cdw14 = param->cdw14});
}

int32_t nvme_format_nvm(nvmemi_ctx* ctx, uint16_t cntlid, uint32_t nsid, const uint32_t* cdw10) {
    if (cdw10 == nullptr) {
        return nvme::fail_call(ctx, SIDEBAND_CAUSE_ARGUMENT);
    }
    return plain_command(ctx,
                         {.opcode = kFormatNvm, .cntlid = cntlid, .nsid = nsid, .cdw10 = *cdw10});
}

int32_t nvme_sanitize_set(const nvme_sanitize_param* param) {
    if (param == nullptr) {
        return -1;
    }
    return plain_command(param->ctx, {.opcode = kSanitize,
                                      .cntlid = param->cntlid,
                                      .nsid = param->nsid,
                                      .cdw10 = param->cdw10,
                                      .cdw11 = param->cdw11});
}

int32_t nvme_get_pd_info(nvme_admin_req* req, uint32_t length, uint8_t* data, uint32_t* received) {
    if (req == nullptr) {
        return -1;
    }
    nvme::AdminCommand command = command_of(*req, req->opcode, length);
    command.cdw12 = req->cdw12;
    command.cdw14 = req->cdw14;
    nvme::Area area;
    const nvme::AdminAnswer answer = nvme::exchange(req->ctx, command, room_for(area, length));
    return finish_read(answer, data, length, received);
}

int32_t nvme_mrvl_read_cmd(nvme_admin_req* req, uint32_t length, uint8_t* data,
                           uint32_t* received) {
    if (req == nullptr) {
        return -1;
    }
    nvme::AdminCommand command = command_of(*req, req->opcode, length);
    command.cdw12 = req->cdw12;
    command.cdw13 = req->cdw13;
    command.cdw14 = req->cdw14;
    nvme::Area area;
    const nvme::AdminAnswer answer = nvme::exchange(req->ctx, command, room_for(area, length));
    const int32_t result = finish_read(answer, data, length, received);
    if (answer.stage == nvme::Stage::kFailed) {
        print_formatted("Command error (SCT:%#x, SC:%#x)\n", NVME_COMPLETION_SCT(answer.dword3),
                        NVME_COMPLETION_SC(answer.dword3));
    } else if (result < 0) {
        print_line("fail to nvme_admin_cmd");
    }
    return result;
}
