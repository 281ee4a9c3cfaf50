// SPDX-License-Identifier: Apache-2.0
// What a firmware device is, how it behaves and what it does wrong: the "firmware" key of a device.
#ifndef SIDEBAND_SIM_PLDM_FIRMWARE_CONFIG_H
#define SIDEBAND_SIM_PLDM_FIRMWARE_CONFIG_H

#include <optional>
#include <string>
#include <vector>

#include "sim/board/bytes.h"
#include "sim/board/file_reader.h"
#include "sim/pldm/firmware_image.h"

namespace sim {

/// Commands of PLDM type 5 (DSP0267, table of commands). The agent sends those without a mark.
enum PldmFirmwareCommand : uint8_t {
    kFwQueryDeviceIdentifiers = 0x01,
    kFwGetFirmwareParameters = 0x02,
    kFwRequestUpdate = 0x10,
    kFwGetPackageData = 0x11,  ///< the device sends it
    kFwGetDeviceMetaData = 0x12,
    kFwPassComponentTable = 0x13,
    kFwUpdateComponent = 0x14,
    kFwRequestFirmwareData = 0x15,  ///< the device sends it
    kFwTransferComplete = 0x16,     ///< the device sends it
    kFwVerifyComplete = 0x17,       ///< the device sends it
    kFwApplyComplete = 0x18,        ///< the device sends it
    kFwGetMetaData = 0x19,
    kFwActivateFirmware = 0x1A,
    kFwGetStatus = 0x1B,
    kFwCancelUpdateComponent = 0x1C,
    kFwCancelUpdate = 0x1D,
};

/// One thing that a firmware device does wrong. The messages of a command are counted from 1, those
/// of the device without its repetitions of an unanswered one.
struct PldmFirmwareFault {
    enum class Kind {
        kCompletionCode,   ///< the request is answered with `value` and not acted upon
        kNoAnswer,         ///< the request is not answered and not acted upon
        kOtherCommand,     ///< the answer carries the command code `value`
        kTruncate,         ///< the message is cut to `length` bytes from its PLDM header on
        kRefuseComponent,  ///< PassComponentTable, UpdateComponent: response 1 with code `value`
        kResult,           ///< Transfer-, Verify-, ApplyComplete: reports the result `value`
        kStall,            ///< the device does not send this request, and none any more
        kDead,             ///< nor does it answer anything of this type from this message on
        kReset,            ///< the device forgets its update before it acts on or sends this
        kAsk,              ///< RequestFirmwareData: asks for `offset` and `length`, in between
        kRepeat,           ///< RequestFirmwareData: asks for the same piece again afterwards
        kEndless,          ///< a sequence of parts or pieces has no end
        kHandle,           ///< GetPackageData: carries the transfer handle `value`
        kFlag,             ///< GetPackageData: carries the operation flag `value`
        kSendInstead,      ///< the device sends its request `value` in between
    };
    Kind kind = Kind::kCompletionCode;
    uint8_t command = 0;
    uint32_t at = 1;     ///< the first message that is hit
    uint32_t count = 1;  ///< that many in a row are hit; 0: all from there on
    uint32_t value = 0;
    uint32_t offset = 0;
    uint32_t length = 0;
};

/// A version as a device or an agent names it.
struct PldmFirmwareVersion {
    uint8_t type = 1;  ///< of the text: 1 ASCII, 2 UTF-8, ...
    std::string text;
    uint32_t stamp = 0;                       ///< comparison stamp; means nothing for an image set
    std::string date = std::string(8, '\0');  ///< release date, YYYYMMDD; likewise
};

struct PldmFirmwareComponent {
    uint16_t classification = 0x000A;
    uint16_t identifier = 0;
    uint8_t index = 0;
    PldmFirmwareVersion active;
    std::optional<PldmFirmwareVersion> pending;
    uint16_t activation_methods = 0x0002;  ///< self-contained
    uint32_t capabilities = 0;
    ExpectedImage expected;
};

/// How a firmware device behaves.
struct PldmFirmwareSettings {
    Bytes identifiers;                ///< answer to QueryDeviceIdentifiers behind its code
    std::optional<Bytes> parameters;  ///< likewise GetFirmwareParameters, instead of the true one
    uint32_t capabilities = 0;        ///< CapabilitiesDuringUpdate
    bool get_package_data = false;    ///< fetch package data if there are any
    Bytes metadata;
    uint32_t metadata_part_size = 0;  ///< 0: as much as MaximumTransferSize allows
    std::optional<uint16_t> claimed_metadata_length;
    uint32_t transfer_size = 0;  ///< of a piece, 0 or too much: MaximumTransferSize
    PieceOrder order = PieceOrder::kAscending;
    uint32_t seed = 0;
    bool full_last_piece = false;
    bool keep_image = true;
    bool only_newer = false;        ///< refuse a comparison stamp that is not higher, unless forced
    bool activates_at_once = true;  ///< false: without self-contained activation, by a power cycle
    uint16_t time_before_request = 0;  ///< seconds, in the answer to UpdateComponent
    uint16_t activation_time = 0;      ///< seconds, in the answer to ActivateFirmware
    uint64_t request_us = 200;         ///< pause between an answer and the next request
    uint64_t retry_us = 5'000'000;     ///< an unanswered request is sent again after this
    uint32_t retries = 3;
    uint64_t idle_us = 120'000'000;  ///< without any message the update ends; 0: never
    std::vector<PldmFirmwareFault> faults;
};

/// All of a "firmware" object.
struct PldmFirmwareConfig {
    PldmFirmwareSettings settings;
    PldmFirmwareVersion active;
    std::optional<PldmFirmwareVersion> pending;
    std::vector<PldmFirmwareComponent> components;
};

PldmFirmwareConfig read_firmware(const Place& place);
/// Reads the keys that say what an image should be.
ExpectedImage read_expected(ObjectReader& reader);
/// Reads one object of the "faults" of a firmware device.
PldmFirmwareFault read_firmware_fault(const Place& place);

}  // namespace sim

#endif
