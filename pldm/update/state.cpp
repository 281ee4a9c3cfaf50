// SPDX-License-Identifier: Apache-2.0
// The state machine of a firmware update, and the loop that serves the device while it loads a
// component (DSP0267, update agent and firmware device states).
#include <sideband/debug_log.h>

#include <algorithm>
#include <cstring>
#include <ctime>

#include "common/memory.h"
#include "common/output.h"
#include "pldm/strict.h"
#include "pldm/update/message.h"
#include "transport/deadline.h"

using namespace sideband;

namespace {

// ---- The loop ----

constexpr size_t kMessageSize = 1024;
/// After the first message of the device, in seconds; six times as long is waited.
constexpr uint16_t kDataWait = 90;
constexpr int kWaits = 6;

/// Most messages that the device gets to send in one loop: four times those that the data takes in
/// its smallest pieces, and some more. What a component claims to have behind the end of the file
/// does not count if the file's size is known.
uint64_t messages_max(const pldm_fw_update_ctx& ctx) {
    constexpr uint64_t kSpare = 4096;
    constexpr uint64_t kTries = 4;
    const pldm_update_component* element = update_element(ctx, ctx.component_index);
    if (ctx.state != kStateDownload || element == nullptr) {
        return kSpare + kTries * ctx.package_data_len;
    }
    uint64_t size = Component(element->image).size;
    if (ctx.package_size != 0) {
        size = std::min<uint64_t>(size, ctx.package_size);
    }
    return kSpare + kTries * (size / kTransferSizeMin);
}

/// Whether the device may send a report in this state.
bool is_in_turn(pldm_fw_update_ctx& ctx, FwState state, FwCommand command) {
    if (ctx.state == state) {
        return true;
    }
    fail_request(ctx, command, SIDEBAND_CAUSE_MALFORMED);
    note_update_failure(ctx, SIDEBAND_CAUSE_MALFORMED);
    return false;
}

/// Answers a request.
/// @return whether another one is waited for
bool serve(pldm_fw_update_ctx& ctx, uint8_t command, const uint8_t* request) {
    switch (command) {
        case kGetPackageData: {
            print_line("------------PLDM_FW_UPDATE_GET_PACKAGE_DATA ---------------");
            const int32_t result = pldm_get_package_data(&ctx, request);
            if (result < 0) {
                print_line("pldm_get_package_data fail");
            } else if (result == 1) {
                print_line("last GetPackageData cmd");
            }
            return result >= 0 && result != 1;
        }
        case kRequestFirmwareData:
            if (pldm_request_fw_data(&ctx, request) < 0) {
                note_update_failure(ctx, SIDEBAND_CAUSE_REFUSED);
                advance_component(ctx);
                return false;
            }
            return true;
        case kTransferComplete:
            print_line("------------PLDM_FW_UPDATE_TRANSFER_COMPLETE ---------------");
            return pldm_transfer_complete(&ctx, request) >= 0;
        case kVerifyComplete:
            print_line("------------PLDM_FW_UPDATE_VERIFY_COMPLETE---------------");
            return is_in_turn(ctx, kStateVerify, kVerifyComplete) &&
                   pldm_verify_complete(&ctx, request) >= 0;
        case kApplyComplete:
            print_line("---------------PLDM_FW_UPDATE_APPLY_COMPLETE--------");
            if (is_in_turn(ctx, kStateApply, kApplyComplete)) {
                pldm_apply_complete(&ctx, request);
            }
            return false;
        default:
            return true;
    }
}

/// Whether the device has been silent for too long.
/// @param last  time of its last message; set back if the clock was
bool is_silent(const pldm_fw_update_ctx& ctx, time_t& last) {
    const time_t now = time(nullptr);
    if (now < last) {
        last = now;
    }
    return difftime(now, last) > kWaits * ctx.req_fw_data_wait;
}

void serve_device(pldm_fw_update_ctx& ctx) {
    const auto message = allocate_bytes(kMessageSize);
    if (message == nullptr || ctx.pldm.recv_op == nullptr) {
        note_update_failure(ctx,
                            message == nullptr ? SIDEBAND_CAUSE_MEMORY : SIDEBAND_CAUSE_ARGUMENT);
        return;
    }
    time_t last = time(nullptr);
    for (uint64_t left = messages_max(ctx); left > 0;) {
        // A short request has zeros for what it lacks, not what the last one left.
        std::memset(message.get(), 0, PLDM_FW_UPDATE_REQUEST_SIZE);
        if (ctx.pldm.recv_op(&ctx.pldm, kMessageSize, message.get()) < 0) {
            // Asked again at once: the wait is in the operation.
            const bool is_late = ctx.pldm.mctp != nullptr && is_over(*ctx.pldm.mctp);
            if (is_late) {
                ctx.pldm.last_error = error_of(SIDEBAND_CAUSE_DEADLINE);
            }
            if (is_late || is_silent(ctx, last)) {
                leave_mark(ctx, PLDM_FW_MARK_TIMEOUT, SIDEBAND_CAUSE_NO_ANSWER);
                return;
            }
            continue;
        }
        --left;
        last = time(nullptr);
        if (is_strict(ctx.pldm) && !is_request(message.get(), PLDM_TYPE_FW_UPDATE)) {
            continue;  // an answer that comes too late, or what is for nobody here
        }
        const uint8_t command = header_of({message.get(), kMessageSize}).command;
        ctx.pldm.last_command = command;
        ctx.req_fw_data_wait = kDataWait;
        if (!serve(ctx, command, message.get())) {
            return;
        }
    }
    debug_log("%s, the device asks without an end\n", "fw_update_state_fn");
    leave_mark(ctx, PLDM_FW_MARK_TIMEOUT, SIDEBAND_CAUSE_MALFORMED);
}

// ---- The states ----

void go_on(pldm_fw_update_ctx& ctx, FwState state) {
    ctx.state = state;
    fw_update_state_fn(&ctx);
}

void learn_components(pldm_fw_update_ctx& ctx) {
    print_line("PLDM_FW_UPDATE_STATE_LEARN_COMPONENTS ");
    if (ctx.fd_will_send_pkg_data != 0) {
        print_line("FD will send get package data cmd");
        serve_device(ctx);
    }
    if (ctx.fd_metadata_len != 0) {
        pldm_get_device_metadata(&ctx, ctx.fd_metadata_len);
    }
    if (build_update_list(ctx) && pass_component_table(ctx)) {
        go_on(ctx, kStateReadyToTransfer);
    } else {
        note_update_failure(ctx, SIDEBAND_CAUSE_NOT_FOUND);
    }
}

void transfer_components(pldm_fw_update_ctx& ctx) {
    print_formatted("PLDM_FW_UPDATE_STATE_READY_XFER s ctx->component_index = %d\n",
                    ctx.component_index);
    if (ctx.component_num > PLDM_FW_COMPONENTS_MAX) {
        debug_log("%s, %d components are more than %d\n", "fw_update_state_fn", ctx.component_num,
                  PLDM_FW_COMPONENTS_MAX);
        note_update_failure(ctx, SIDEBAND_CAUSE_FILE);
        return;
    }
    while (ctx.component_index < ctx.component_num) {
        if (pldm_update_component_table(&ctx, ctx.component_index) == 0) {
            print_formatted("PLDM_FW_UPDATE_STATE_READY_XFER e, ctx->component_index = %d\n",
                            ctx.component_index);
            return;
        }
        print_formatted("PLDM_FW_UPDATE_STATE_READY_XFER err, ctx->component_index = %d\n",
                        ctx.component_index);
        advance_component(ctx);  // at most to component_num
        go_on(ctx, kStateApply);
    }
}

void next_component(pldm_fw_update_ctx& ctx) {
    constexpr uint8_t kAllApplied = 97;
    print_formatted("ctx->component_index = %d, ctx->components_num =%d\n", ctx.component_index,
                    ctx.component_num);
    if (ctx.component_index == ctx.component_num) {
        report_percentage(ctx, kAllApplied);
        go_on(ctx, kStateActivate);
    } else {
        go_on(ctx, kStateReadyToTransfer);
    }
}

void activate(pldm_fw_update_ctx& ctx) {
    constexpr uint8_t kActivating = 98;
    report_percentage(ctx, kActivating);
    if (pldm_activate_firmware(&ctx) < 0) {
        note_update_failure(ctx, SIDEBAND_CAUSE_REFUSED);
    }
}

}  // namespace

int32_t fw_update_state_fn(pldm_fw_update_ctx* ctx) {
    if (ctx == nullptr) {
        return -1;
    }
    print_formatted("ctx->state = 0x%x\n", ctx->state);
    switch (ctx->state) {
        case kStateLearnComponents:
            learn_components(*ctx);
            break;
        case kStateReadyToTransfer:
            transfer_components(*ctx);
            break;
        case kStateDownload:
            serve_device(*ctx);
            break;
        case kStateApply:
            next_component(*ctx);
            break;
        case kStateActivate:
            activate(*ctx);
            break;
        default:
            break;  // idle; verify, whose request the loop serves; what is no state
    }
    return 0;
}
