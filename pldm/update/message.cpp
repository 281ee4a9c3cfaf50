// SPDX-License-Identifier: Apache-2.0
// Small steps that the files of the firmware update agent share.
#include "pldm/update/message.h"

#include <sideband/platform.h>

namespace sideband {

Component::Component(const uint8_t* entry)
    : version(reinterpret_cast<const char*>(entry + PLDM_COMPONENT_IMAGE_SIZE)) {
    WireReader reader({entry, PLDM_COMPONENT_IMAGE_SIZE});
    classification = reader.le16();
    identifier = reader.le16();
    comparison_stamp = reader.le32();
    options = static_cast<uint8_t>(reader.le16());
    activation_method = static_cast<uint8_t>(reader.le16());
    location_offset = reader.le32();
    size = reader.le32();
    version_type = reader.u8();
    version_length = reader.u8();
}

uint8_t transfer_flag(bool first, bool last) {
    if (first) {
        return last ? kTransferStartAndEnd : kTransferStart;
    }
    return last ? kTransferEnd : kTransferMiddle;
}

void note_update_failure(pldm_fw_update_ctx& ctx, uint8_t otherwise) {
    if (ctx.last_error.cause == SIDEBAND_CAUSE_NONE) {
        ctx.last_error = ctx.pldm.last_error;
    }
    fail(ctx.last_error, otherwise);
    record_step(ctx.last_error, SIDEBAND_STEP_FW_UPDATE, ctx.pldm.last_command);
}

void leave_mark(pldm_fw_update_ctx& ctx, uint8_t mark, uint8_t otherwise) {
    ctx.pldm.completion_code = mark;
    note_update_failure(ctx, otherwise);
}

int32_t fail_request(pldm_fw_update_ctx& ctx, FwCommand command, uint8_t cause) {
    ctx.pldm.last_error = error_of(cause, SIDEBAND_STEP_FW_UPDATE, command);
    return -1;
}

void report_percentage(pldm_fw_update_ctx& ctx, uint8_t percentage) {
    ctx.last_percentage = percentage;
    TaskServiceUpdateTaskPercentage(ctx.task_id, percentage);
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
