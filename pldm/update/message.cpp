// SPDX-License-Identifier: Apache-2.0
// Small steps that the files of the firmware update agent share.
#include "pldm/update/message.h"

#include <sideband/platform.h>

#include <array>
#include <cstring>

namespace sideband {

WireWriter start_fw_request(std::span<uint8_t> request, FwCommand command) {
    pldm_fw_update_request_init(request.data());
    request[kPldmCommand] = command;
    WireWriter writer(request);
    writer.skip(PLDM_HEADER_SIZE);
    return writer;
}

std::span<uint8_t> add_string(std::span<uint8_t> request, WireWriter& writer, uint8_t type,
                              uint8_t length, const void* characters) {
    writer.u8(type).u8(length);
    std::memcpy(request.data() + writer.written(), characters, length);
    return request.first(writer.written() + length);
}

uint8_t transfer_flag(bool first, bool last) {
    if (first) {
        return last ? kTransferStartAndEnd : kTransferStart;
    }
    return last ? kTransferEnd : kTransferMiddle;
}

void report_percentage(pldm_fw_update_ctx& ctx, uint8_t percentage) {
    ctx.last_percentage = percentage;
    TaskServiceUpdateTaskPercentage(ctx.task_id, percentage);
}

int32_t exchange_fw_command(pldm_fw_update_ctx& ctx, FwCommand command,
                            std::span<uint8_t> response) {
    std::array<uint8_t, PLDM_HEADER_SIZE> request;
    start_fw_request(request, command);
    return pldm_exchange(ctx.pldm, request, response);
}

uint8_t fw_completion(const pldm_fw_update_ctx& ctx, std::span<const uint8_t> response) {
    return pldm_response_has(ctx.pldm, PLDM_RESPONSE_HEADER_SIZE) ? response[kPldmCompletionCode]
                                                                  : uint8_t{PLDM_CC_SUCCESS};
}

bool advance_component(pldm_fw_update_ctx& ctx) {
    // An index that went round would begin the update again, for ever.
    if (ctx.component_index == UINT8_MAX) {
        return false;
    }
    ++ctx.component_index;
    return true;
}

const pldm_update_component* update_element(const pldm_fw_update_ctx& ctx, size_t index) {
    if (ctx.update_list == nullptr || index >= ctx.component_num ||
        ctx.update_list[index].image == nullptr) {
        return nullptr;
    }
    return &ctx.update_list[index];
}

}  // namespace sideband
