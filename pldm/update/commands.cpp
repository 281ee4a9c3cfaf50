// SPDX-License-Identifier: Apache-2.0
// The update agent's requests to a firmware device, in the order of their codes (DSP0267).
#include <sideband/debug_log.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "common/memory.h"
#include "common/output.h"
#include "common/printable.h"
#include "common/sleep.h"
#include "pldm/strict.h"
#include "pldm/update/message.h"

using namespace sideband;

namespace {

// ---- RequestUpdate ----

constexpr uint8_t kOutstandingTransferRequests = 1;

void warn_of_record(unsigned index, const pldm_device_record& record) {
    print_formatted("Warning. record[%u] component image has something wrong\n", index);
    print_formatted("component_image_string_type = %d\n",
                    record.component_image_set_ver_string_type);
    print_formatted("component_image_string_len  = %d\n",
                    record.component_image_set_ver_string_len);
    print_formatted("component_image_set_ver_string = %s\n",
                    Printable(record.image_version_string).text());
}

PldmAnswer exchange_request_update(pldm_fw_update_ctx& ctx, const pldm_device_record& record,
                                   std::span<uint8_t> room) {
    PldmRequest request(PLDM_TYPE_FW_UPDATE, kRequestUpdate);
    request.fields.le32(ctx.max_transfer_size)
        .le16(ctx.component_num)
        .u8(kOutstandingTransferRequests)
        .le16(ctx.package_data_len);
    request.add_string(record.component_image_set_ver_string_type,
                       record.component_image_set_ver_string_len, record.image_version_string);
    return exchange(ctx.pldm, request, room);
}

int32_t start_update(pldm_fw_update_ctx& ctx, PldmAnswer& answer) {
    const uint16_t metadata_length = answer.body.le16();
    const uint8_t will_ask_for_package_data = answer.body.u8();
    const int32_t result = finish(answer, "pldm_request_firmware_update");
    if (result < 0) {
        note_update_failure(ctx, SIDEBAND_CAUSE_MALFORMED);
        return result;
    }
    ctx.fd_metadata_len = metadata_length;
    ctx.fd_will_send_pkg_data = will_ask_for_package_data;
    ctx.state = kStateLearnComponents;
    fw_update_state_fn(&ctx);
    return 0;
}

// ---- GetDeviceMetaData ----

/// GetDeviceMetaData response in front of its data.
constexpr size_t kMetaDataHeaderSize = PLDM_RESPONSE_HEADER_SIZE + 5;

PldmAnswer exchange_multipart(pldm_fw_update_ctx& ctx, FwCommand command, uint32_t handle,
                              uint8_t operation, std::span<uint8_t> room) {
    PldmRequest request(PLDM_TYPE_FW_UPDATE, command);
    request.fields.le32(handle).u8(operation);
    return exchange(ctx.pldm, request, room);
}

bool ends_metadata(uint8_t completion) {
    switch (completion) {
        case kInvalidTransferHandle:
            print_line("invlaid data transfer handle");
            return true;
        case kInvalidTransferOperation:
            print_line("invlaid transfer operation flag");
            return true;
        default:
            return completion == kNoDeviceMetaData || completion == kInvalidStateForCommand;
    }
}

/// One round.
/// @param handle  of this part; receives that of the next one
/// @return whether there is a next one
bool get_metadata_part(pldm_fw_update_ctx& ctx, uint32_t& handle, uint8_t operation,
                       std::span<uint8_t> room) {
    std::memset(room.data(), 0, room.size());
    PldmAnswer answer = exchange_multipart(ctx, kGetDeviceMetaData, handle, operation, room);
    if (ends_metadata(answer.header.completion)) {
        return false;
    }
    handle = answer.body.le32();
    const bool last = is_last_part(answer.body.u8());
    return finish(answer, "pldm_get_device_metadata") == 0 && !last;
}

// ---- UpdateComponent ----

constexpr uint16_t kDefaultDataWait = 90;

PldmAnswer exchange_update_component(pldm_fw_update_ctx& ctx, const pldm_update_component& element,
                                     std::span<uint8_t> room) {
    constexpr uint8_t kForceUpdate = 1;
    const Component component(element.image);
    const auto index = static_cast<uint8_t>(element.classification_index);
    uint32_t options = component.options & kForceUpdate;
    if (pldm_force_update_flag != 0) {
        options |= kForceUpdate;
    }
    print_formatted(
        "classification : %x,\nidentifier : %x,\nclassification_index : %x,\n"
        "component_comparison_stamp : %x,\ncomponent_size : %x,\n",
        component.classification, component.identifier, index, component.comparison_stamp,
        component.size);
    PldmRequest request(PLDM_TYPE_FW_UPDATE, kUpdateComponent);
    request.fields.le16(component.classification)
        .le16(component.identifier)
        .u8(index)
        .le32(component.comparison_stamp)
        .le32(component.size)
        .le32(options);
    request.add_string(component.version_type, component.version_length, component.version);
    return exchange(ctx.pldm, request, room);
}

/// Acts on what the device thinks of a component.
int32_t judge_component(pldm_fw_update_ctx& ctx, unsigned index, PldmAnswer& answer) {
    constexpr uint8_t kCanBeUpdated = 0;
    constexpr uint8_t kWillNotBeUpdated = 1;
    const uint8_t compatibility = answer.body.u8();
    const uint8_t code = answer.body.u8();
    answer.body.skip(4);  // update options that the device has enabled
    const uint16_t wait = answer.body.le16();
    const int32_t result = finish(answer, "pldm_update_component_table");
    if (result < 0) {
        leave_mark(ctx, PLDM_FW_MARK_UPDATE_COMPONENT, SIDEBAND_CAUSE_MALFORMED);
        return result;
    }
    if (compatibility == kCanBeUpdated) {
        ctx.req_fw_data_wait = wait != 0 ? wait : kDefaultDataWait;
        ctx.state = kStateDownload;
        fw_update_state_fn(&ctx);
        return 0;
    }
    if (compatibility == kWillNotBeUpdated) {
        print_formatted("Component will no be updated, response code: 0x%x,\n", code);
        print_formatted("Give up component image index = %u\n", index);
    } else {
        debug_log("%s, unknown compatibility response 0x%x\n", "pldm_update_component_table",
                  compatibility);
    }
    fail_command(ctx.pldm, SIDEBAND_CAUSE_REFUSED);
    note_update_failure(ctx, SIDEBAND_CAUSE_REFUSED);
    return -1;
}

// ---- ActivateFirmware ----

/// The first component of the update that is for the device; null if none is.
const pldm_update_component* first_component(const pldm_fw_update_ctx& ctx) {
    for (size_t i = 0; i < ctx.component_num; ++i) {
        if (const auto* element = update_element(ctx, i)) {
            return element;
        }
    }
    return nullptr;
}

/// SelfContainedActivationRequest. Goes out as the bit that it is in the activation methods, 0 or
/// 2: the devices that deployed agents update know it like that, though the standard has 0 or 1.
uint8_t self_contained_flag(const pldm_ctx& ctx, const Component& component) {
    constexpr uint8_t kSelfContained = 0x02;
    const uint8_t bit = component.activation_method & kSelfContained;
    return is_strict(ctx) && bit != 0 ? 1 : bit;
}

bool refuses_activation(uint8_t completion) {
    switch (completion) {
        case kNotInUpdateMode:
        case kInvalidStateForCommand:
        case kIncompleteUpdate:
        case kActivationNotRequired:
        case kSelfContainedActivationNotPermitted:
            return true;
        default:
            return false;
    }
}

// ---- CancelUpdateComponent, CancelUpdate ----

/// Sends a cancel command until the device is not busy in background, three times at most.
int32_t cancel(pldm_fw_update_ctx& ctx, FwCommand command, std::span<uint8_t> room) {
    constexpr int kAttempts = 3;
    for (int attempt = 1; attempt <= kAttempts; ++attempt) {
        std::memset(room.data(), 0, room.size());
        PldmRequest request(PLDM_TYPE_FW_UPDATE, command);
        const PldmAnswer answer = exchange(ctx.pldm, request, room);
        if (answer.header.completion == kNotInUpdateMode) {
            return -1;
        }
        if (answer.header.completion != kBusyInBackground) {
            return answer.result;
        }
        if (attempt < kAttempts) {
            sleep_us(kFwPauseUs);
        }
    }
    return -1;
}

}  // namespace

int32_t sideband::exchange_cancel_component(pldm_fw_update_ctx& ctx) {
    std::array<uint8_t, PLDM_RESPONSE_HEADER_SIZE> room;
    return cancel(ctx, kCancelUpdateComponent, room);
}

void sideband::skip_component(pldm_fw_update_ctx& ctx) {
    ctx.state = kStateReadyToTransfer;
    if (advance_component(ctx)) {
        fw_update_state_fn(&ctx);
    }
}

int32_t pldm_request_firmware_update(pldm_fw_update_ctx* ctx) {
    if (!begin(ctx)) {
        return -1;
    }
    ctx->last_error = kNoError;
    if (ctx->records == nullptr || ctx->record_index >= ctx->device_record_num ||
        ctx->records[ctx->record_index].image_version_string == nullptr) {
        debug_log("%s, no device record %d\n", "pldm_request_firmware_update", ctx->record_index);
        return -1;
    }
    const pldm_device_record& record = ctx->records[ctx->record_index];
    if (ctx->record_index != 0) {
        // Deployed consoles show this for every record but the first, right or wrong.
        warn_of_record(ctx->record_index, record);
    }
    std::array<uint8_t, 7> room{};
    PldmAnswer answer = exchange_request_update(*ctx, record, room);
    switch (answer.header.completion) {
        case kAlreadyInUpdateMode:
            print_line("in update mode!");
            note_update_failure(*ctx, SIDEBAND_CAUSE_REFUSED);
            pldm_cancel_update(ctx);
            return -2;
        case kUnableToInitiateUpdate:
            print_line("unable initiate update");
            leave_mark(*ctx, PLDM_FW_MARK_REQUEST_UPDATE, SIDEBAND_CAUSE_REFUSED);
            return -1;
        case kRetryRequestUpdate:
            sleep_us(kFwPauseUs);
            fw_update_state_fn(ctx);
            return 0;
        default:
            return start_update(*ctx, answer);
    }
}

int32_t pldm_get_device_metadata(pldm_fw_update_ctx* ctx, uint16_t len) {
    constexpr int kRoundsMax = 7;
    if (!begin(ctx)) {
        return -1;
    }
    const size_t size = kMetaDataHeaderSize + len;
    const auto room = allocate_bytes(size);
    if (room == nullptr) {
        return fail_command(ctx->pldm, SIDEBAND_CAUSE_MEMORY);
    }
    uint32_t handle = 0;
    uint8_t operation = kGetFirstPart;
    for (int round = 0; round < kRoundsMax; ++round) {
        if (!get_metadata_part(*ctx, handle, operation, {room.get(), size})) {
            return 0;
        }
        operation = kGetNextPart;
    }
    print_line("Get Device Metadata Timeout");
    return 0;
}

int32_t pldm_update_component_table(pldm_fw_update_ctx* ctx, uint8_t index) {
    if (!begin(ctx)) {
        return -1;
    }
    const pldm_update_component* element = update_element(*ctx, index);
    if (element == nullptr) {
        debug_log("%s, no component %d\n", "pldm_update_component_table", index);
        return fail_command(ctx->pldm, SIDEBAND_CAUSE_NOT_FOUND);
    }
    std::array<uint8_t, 12> room{};
    PldmAnswer answer = exchange_update_component(*ctx, *element, room);
    if (answer.header.completion == kNotInUpdateMode) {
        note_update_failure(*ctx, SIDEBAND_CAUSE_REFUSED);
        return -1;
    }
    return judge_component(*ctx, index, answer);
}

int32_t pldm_get_meta_data(pldm_fw_update_ctx* ctx, uint8_t* buf, uint16_t len) {
    if (!begin(ctx) || buf == nullptr) {
        return -1;
    }
    const PldmAnswer answer = exchange_multipart(*ctx, kGetMetaData, 0, kGetNextPart, {buf, len});
    return std::min(answer.result, 0);
}

int32_t pldm_activate_firmware(pldm_fw_update_ctx* ctx) {
    if (!begin(ctx)) {
        return -1;
    }
    const pldm_update_component* element = first_component(*ctx);
    if (element == nullptr) {
        debug_log("%s, no component\n", "pldm_activate_firmware");
        return fail_command(ctx->pldm, SIDEBAND_CAUSE_NOT_FOUND);
    }
    PldmRequest request(PLDM_TYPE_FW_UPDATE, kActivateFirmware);
    request.fields.u8(self_contained_flag(ctx->pldm, Component(element->image)));
    std::array<uint8_t, 6> room{};
    PldmAnswer answer = exchange(ctx->pldm, request, room);
    const uint8_t completion = answer.header.completion;
    print_formatted("activate fw completion code: %x\n", completion);
    if (refuses_activation(completion)) {
        return -1;
    }
    const uint16_t activation_time = answer.body.le16();
    const int32_t result = finish(answer, "pldm_activate_firmware");
    if (result == 0) {
        print_formatted("activation time: %x\n", activation_time);
    }
    return result;
}

int32_t pldm_get_status(pldm_fw_update_ctx* ctx) {
    static constexpr char kLabels[][20] = {
        "state:",      "pre state:",    "aux state:",          "aux state status:",
        "percentage:", "reason_code :", "update option flags",
    };
    if (!begin(ctx)) {
        return -1;
    }
    PldmRequest request(PLDM_TYPE_FW_UPDATE, kGetStatus);
    std::array<uint8_t, 14> room{};
    PldmAnswer answer = exchange(ctx->pldm, request, room);
    WireReader fields(answer.body.bytes(room.size() - PLDM_RESPONSE_HEADER_SIZE));
    const int32_t result = finish(answer, "pldm_get_status");
    if (result < 0) {
        return result;
    }
    for (const auto& label : kLabels) {
        print_formatted("%s %d\n", label, fields.u8());
    }
    return 0;
}

int32_t pldm_cancel_update_component(pldm_fw_update_ctx* ctx) {
    if (!begin(ctx)) {
        return -1;
    }
    const int32_t result = exchange_cancel_component(*ctx);
    if (result < 0) {
        return result;
    }
    skip_component(*ctx);
    return 0;
}

int32_t pldm_cancel_update(pldm_fw_update_ctx* ctx) {
    if (!begin(ctx)) {
        return -1;
    }
    std::array<uint8_t, 13> room;
    const int32_t result = cancel(*ctx, kCancelUpdate, room);
    if (result < 0) {
        return result;
    }
    ctx->state = kStateIdle;
    return 0;
}
