// SPDX-License-Identifier: Apache-2.0
// What the files of the firmware update agent share: codes and small steps.
#ifndef SIDEBAND_PLDM_UPDATE_MESSAGE_H
#define SIDEBAND_PLDM_UPDATE_MESSAGE_H

#include <sideband/pldm_fw_update.h>

#include <cstddef>
#include <cstdint>
#include <span>

#include "common/wire.h"
#include "pldm/message.h"

namespace sideband {

/// Command codes (DSP0267, PLDM for firmware update command codes).
enum FwCommand : uint8_t {
    kQueryDeviceIdentifiers = 0x01,
    kGetFirmwareParameters = 0x02,
    kRequestUpdate = 0x10,
    kGetPackageData = 0x11,
    kGetDeviceMetaData = 0x12,
    kPassComponentTable = 0x13,
    kUpdateComponent = 0x14,
    kRequestFirmwareData = 0x15,
    kTransferComplete = 0x16,
    kVerifyComplete = 0x17,
    kApplyComplete = 0x18,
    kGetMetaData = 0x19,
    kActivateFirmware = 0x1A,
    kGetStatus = 0x1B,
    kCancelUpdateComponent = 0x1C,
    kCancelUpdate = 0x1D,
};

/// Completion codes (DSP0267, PLDM for firmware update completion codes).
enum FwCompletion : uint8_t {
    kNotInUpdateMode = 0x80,
    kAlreadyInUpdateMode = 0x81,
    kDataOutOfRange = 0x82,
    kInvalidTransferLength = 0x83,
    kInvalidStateForCommand = 0x84,
    kIncompleteUpdate = 0x85,
    kBusyInBackground = 0x86,
    kCommandNotExpected = 0x88,
    kUnableToInitiateUpdate = 0x8A,
    kActivationNotRequired = 0x8B,
    kSelfContainedActivationNotPermitted = 0x8C,
    kNoDeviceMetaData = 0x8D,
    kRetryRequestUpdate = 0x8E,
    kNoPackageData = 0x8F,
    kInvalidTransferHandle = 0x90,
    kInvalidTransferOperation = 0x91,
};

/// pldm_fw_update_ctx.state.
enum FwState : uint8_t {
    kStateIdle = 0,
    kStateLearnComponents = 1,
    kStateReadyToTransfer = 2,
    kStateDownload = 3,
    kStateVerify = 4,
    kStateApply = 5,
    kStateActivate = 6,
};

/// What RequestFirmwareData may ask for at least (DSP0267, baseline transfer size).
inline constexpr uint32_t kTransferSizeMin = 32;

inline constexpr uint32_t kFwPauseUs = 1000000;

/// A component image information entry.
struct Component {
    uint16_t classification;
    uint16_t identifier;
    uint32_t comparison_stamp;
    uint8_t options;
    uint8_t activation_method;
    uint32_t location_offset;  ///< of its image in the package file
    uint32_t size;
    uint8_t version_type;
    uint8_t version_length;
    const char* version;

    explicit Component(const uint8_t* entry);
};

/// Begins a command to the device, as begin(pldm_ctx*).
inline bool begin(pldm_fw_update_ctx* ctx) {
    return ctx != nullptr && begin(&ctx->pldm);
}

/// TransferFlag of a part.
uint8_t transfer_flag(bool first, bool last);

/// Keeps why an update goes wrong, if nothing has done so before: the failure of the last command,
/// or a cause if that has not failed.
[[gnu::cold]] void note_update_failure(pldm_fw_update_ctx& ctx, uint8_t otherwise);

/// Leaves a mark of the update agent's own in the completion code.
/// @param mark       PLDM_FW_MARK_...
/// @param otherwise  as note_update_failure()
[[gnu::cold]] void leave_mark(pldm_fw_update_ctx& ctx, uint8_t mark, uint8_t otherwise);

/// Records why a request of the device is not served. @return -1
[[gnu::cold]] int32_t fail_request(pldm_fw_update_ctx& ctx, FwCommand command, uint8_t cause);

/// Tells the platform how far the update is.
void report_percentage(pldm_fw_update_ctx& ctx, uint8_t percentage);

/// Fills the update list with what the matched record marks as applicable, in the order in which
/// the device is to get it.
/// @return false if there is nothing to update, or the device does not know a component
bool build_update_list(pldm_fw_update_ctx& ctx);

/// Sends PassComponentTable for the components of the update list.
/// @return whether the device has accepted one
bool pass_component_table(pldm_fw_update_ctx& ctx);

/// Moves on to the next component.
/// @return false if the current one is the last that an index counts
bool advance_component(pldm_fw_update_ctx& ctx);

/// Sends CancelUpdateComponent.
int32_t exchange_cancel_component(pldm_fw_update_ctx& ctx);

/// Goes on with the component behind the one that was cancelled.
void skip_component(pldm_fw_update_ctx& ctx);

/// The element of the update list; null if the list has none at this index or it carries no
/// component for the device.
const pldm_update_component* update_element(const pldm_fw_update_ctx& ctx, size_t index);

}  // namespace sideband

#endif
