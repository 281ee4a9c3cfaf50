// SPDX-License-Identifier: Apache-2.0
// Names that the standard of PLDM firmware update gives to codes: commands, methods, results.
#include "tools/update/codes.h"

#include "tools/shell/name_table.h"

namespace tool {
namespace {

// Where the values of vendors begin in the results that a firmware device reports.
constexpr uint8_t kFirstVendorTransferResult = 0x70;
constexpr uint8_t kFirstVendorVerifyResult = 0x90;
constexpr uint8_t kFirstVendorApplyResult = 0xB0;

/// Each report has 32 values for vendors.
const char* unnamed_result(uint8_t result, uint8_t first_of_vendors) {
    constexpr unsigned kVendorResults = 0x20;
    const bool vendor = result >= first_of_vendors && result < first_of_vendors + kVendorResults;
    return vendor ? "vendor defined" : "";
}

}  // namespace

std::string pldm_firmware_command_name(uint8_t command) {
    static constexpr Name kNames[] = {
        {0x01, "QueryDeviceIdentifiers"},
        {0x02, "GetFirmwareParameters"},
        {0x03, "QueryDownstreamDevices"},
        {0x04, "QueryDownstreamIdentifiers"},
        {0x05, "GetDownstreamFirmwareParameters"},
        {0x10, "RequestUpdate"},
        {0x11, "GetPackageData"},
        {0x12, "GetDeviceMetaData"},
        {0x13, "PassComponentTable"},
        {0x14, "UpdateComponent"},
        {0x15, "RequestFirmwareData"},
        {0x16, "TransferComplete"},
        {0x17, "VerifyComplete"},
        {0x18, "ApplyComplete"},
        {0x19, "GetMetaData"},
        {0x1A, "ActivateFirmware"},
        {0x1B, "GetStatus"},
        {0x1C, "CancelUpdateComponent"},
        {0x1D, "CancelUpdate"},
        {0x1E, "ActivatePendingComponentImageSet"},
        {0x1F, "ActivatePendingComponentImage"},
        {0x20, "RequestDownstreamDeviceUpdate"},
        {0x21, "GetComponentOpaqueData"},
        {0x22, "UpdateSecurityRevision"},
    };
    return find_name(kNames, command, "unknown");
}

std::string activation_method_name(uint8_t bit) {
    static constexpr Name kNames[] = {
        {0, "automatic"},
        {1, "self-contained"},
        {2, "medium-specific reset"},
        {3, "system reboot"},
        {4, "DC power cycle"},
        {5, "AC power cycle"},
        {6, "supports activate pending image"},
        {7, "supports activate pending component image set"},
    };
    return find_name(kNames, bit, "");
}

std::string component_refusal_text(uint8_t code) {
    static constexpr Name kNames[] = {
        {0x01, "its comparison stamp is that of the firmware in the device"},
        {0x02, "its comparison stamp is lower than that of the firmware in the device"},
        {0x03, "its comparison stamp or its version is invalid"},
        {0x04, "it conflicts with another component"},
        {0x05, "what it needs has not been met"},
        {0x06, "the device does not support it"},
        {0x07, "the device's security does not allow it"},
        {0x08, "the set of components is incomplete"},
        {0x09, "it is not what PassComponentTable announced"},
        {0x0A, "its version is that of the firmware in the device"},
        {0x0B, "its version is lower than that of the firmware in the device"},
    };
    const bool vendor = code >= 0xD0 && code <= 0xEF;
    return find_name(kNames, code, vendor ? "for a reason of its vendor's" : "");
}

std::string transfer_result_name(uint8_t result) {
    static constexpr Name kNames[] = {
        {0x00, "transfer completed without error"},
        {0x01, "image corrupt"},
        {0x02, "version mismatch"},
        {0x03, "FD aborted transfer"},
        {0x09, "time-out"},
        {0x0A, "generic error"},
        {0x0B, "FD aborted transfer: low power state"},
        {0x0C, "FD aborted transfer: reset needed"},
        {0x0D, "FD aborted transfer: storage issue"},
        {0x0E, "FD aborted transfer: invalid component opaque data"},
        {0x0F, "FD aborted transfer: downstream device failure"},
        {0x10, "FD aborted transfer: security revision error"},
    };
    return find_name(kNames, result, unnamed_result(result, kFirstVendorTransferResult));
}

std::string verify_result_name(uint8_t result) {
    static constexpr Name kNames[] = {
        {0x00, "verify completed without error"},
        {0x01, "verification failure"},
        {0x02, "version mismatch"},
        {0x03, "failed FD security checks"},
        {0x04, "image incomplete"},
        {0x09, "time-out"},
        {0x0A, "generic error"},
        {0x10, "security revision error"},
    };
    return find_name(kNames, result, unnamed_result(result, kFirstVendorVerifyResult));
}

std::string apply_result_name(uint8_t result) {
    static constexpr Name kNames[] = {
        {0x00, "apply completed without error"},
        {0x01, "apply completed, activation method modified"},
        {0x02, "memory write issue"},
        {0x09, "time-out"},
        {0x0A, "generic error"},
        {0x10, "security revision error"},
    };
    return find_name(kNames, result, unnamed_result(result, kFirstVendorApplyResult));
}

}  // namespace tool
