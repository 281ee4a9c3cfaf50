// SPDX-License-Identifier: Apache-2.0
// The admin tunnel of an NVMe drive: requests, what they may do, what they come to (NVMe-MI, NVM
// Express Admin command set).
#include <algorithm>

#include "sim/nvme/drive.h"

namespace sim {

namespace {

// A request, from behind the MCTP message type on.
constexpr size_t kFlags = 4;
constexpr size_t kController = 5;
constexpr size_t kFirstDwords = 7;  ///< 1 to 5
constexpr size_t kOffset = 27;
constexpr size_t kLength = 31;
constexpr size_t kMiddleDwords = 35;  ///< 8 and 9, reserved but for what vendors put there
constexpr size_t kLastDwords = 43;    ///< 10 to 15
constexpr size_t kRequestSize = 67;
constexpr uint8_t kLengthValid = 0x01;
constexpr uint8_t kOffsetValid = 0x02;
constexpr uint32_t kMostData = 4096;

// Where the parameters are for an invalid parameter response, which counts the message type.
constexpr uint16_t kControllerByte = kController + 1;
constexpr uint16_t kOffsetByte = kOffset + 1;
constexpr uint16_t kLengthByte = kLength + 1;

enum Opcode : uint8_t {
    kGetLogPageCommand = 0x02,
    kIdentifyCommand = 0x06,
    kSetFeaturesCommand = 0x09,
    kGetFeaturesCommand = 0x0A,
    kNamespaceManagementCommand = 0x0D,
    kFirmwareCommitCommand = 0x10,
    kFirmwareDownloadCommand = 0x11,
    kNamespaceAttachmentCommand = 0x15,
    kLockdownCommand = 0x24,
    kFormatCommand = 0x80,
    kSanitizeCommand = 0x84,
    kPassthroughCommand = kNvmePassthrough,
};

constexpr std::array<uint8_t, 12> kOpcodes = {kGetLogPageCommand,
                                              kIdentifyCommand,
                                              kSetFeaturesCommand,
                                              kGetFeaturesCommand,
                                              kNamespaceManagementCommand,
                                              kFirmwareCommitCommand,
                                              kFirmwareDownloadCommand,
                                              kNamespaceAttachmentCommand,
                                              kLockdownCommand,
                                              kFormatCommand,
                                              kSanitizeCommand,
                                              kPassthroughCommand};

bool takes_data(uint8_t opcode) {
    return opcode == kSetFeaturesCommand || opcode == kNamespaceManagementCommand ||
           opcode == kFirmwareDownloadCommand || opcode == kNamespaceAttachmentCommand;
}

/// Whether a command moves no data in either direction.
bool moves_nothing(uint8_t opcode) {
    return opcode == kFirmwareCommitCommand || opcode == kLockdownCommand ||
           opcode == kFormatCommand || opcode == kSanitizeCommand;
}

/// Whether a command has to wait until a sanitize operation has ended well.
bool waits_for_sanitize(uint8_t opcode) {
    return opcode == kNamespaceManagementCommand || opcode == kFirmwareCommitCommand ||
           opcode == kFirmwareDownloadCommand || opcode == kNamespaceAttachmentCommand ||
           opcode == kFormatCommand;
}

NvmeAdminCommand decode(ByteView body) {
    NvmeAdminCommand command;
    command.opcode = body[kNvmeOpcodePlace];
    command.controller = le16(body, kController);
    for (size_t i = 0; i < 5; ++i) {
        command.dwords[1 + i] = le32(body, kFirstDwords + 4 * i);
    }
    for (size_t i = 0; i < 2; ++i) {
        command.dwords[8 + i] = le32(body, kMiddleDwords + 4 * i);
    }
    for (size_t i = 0; i < 6; ++i) {
        command.dwords[10 + i] = le32(body, kLastDwords + 4 * i);
    }
    if ((body[kFlags] & kOffsetValid) != 0) {
        command.offset = le32(body, kOffset);
    }
    if ((body[kFlags] & kLengthValid) != 0) {
        command.length = le32(body, kLength);
    }
    command.data = body.subspan(kRequestSize);
    return command;
}

/// Completion queue entry dword 3: status code, its type, and the bits "more" and "do not retry".
uint32_t completion_dword(NvmeStatus status) {
    if (status == NvmeStatus::kSuccess) {
        return 0;
    }
    constexpr uint32_t kMore = 1u << 30;
    constexpr uint32_t kDoNotRetry = 1u << 31;
    const bool later = status == NvmeStatus::kSanitizeInProgress;
    return static_cast<uint32_t>(status) << 17 | kMore | (later ? 0 : kDoNotRetry);
}

/// The part of what a command read that was asked for.
Bytes part_of(const NvmeCompletion& completion, uint32_t offset, uint32_t length) {
    Bytes out(length);
    for (size_t i = 0; i < length; ++i) {
        const uint64_t at = uint64_t{offset} + i;
        if (at < completion.data.size()) {
            out[i] = completion.data[static_cast<size_t>(at)];
        }
    }
    return out;
}

}  // namespace

std::optional<NvmeDrive::Response> NvmeDrive::objection(const NvmeAdminCommand& command,
                                                        bool sized) const {
    if (!config_.controllers.contains(command.controller)) {
        return invalid_parameter(kControllerByte);
    }
    if (command.offset % 4 != 0) {
        return invalid_parameter(kOffsetByte);
    }
    // What asks for data of a command that has none must not have been carried out when it is
    // refused.
    const bool asks_in_vain = moves_nothing(command.opcode) && command.length != 0;
    if (command.length % 4 != 0 || command.length > kMostData || asks_in_vain) {
        return invalid_parameter(kLengthByte);
    }
    const bool wrong_size = takes_data(command.opcode)
                                ? sized && command.data.size() != command.length
                                : !command.data.empty();
    // What data a command takes that the drive has not, it cannot know: the opcode alone is
    // refused.
    if (wrong_size && has_command(command.opcode)) {
        return Response{kNvmeInvalidDataSize, 0, {}};
    }
    return std::nullopt;
}

NvmeDrive::Response NvmeDrive::admin(ByteView body) {
    if (body.size() < kRequestSize) {
        return {kNvmeInvalidCommandSize, 0, {}};
    }
    const NvmeAdminCommand command = decode(body);
    const bool sized = (body[kFlags] & kLengthValid) != 0;
    if (std::optional<Response> refusal = objection(command, sized)) {
        return *std::move(refusal);
    }
    NvmeCompletion completion = execute(command);
    if (completion.status != NvmeStatus::kSuccess) {
        note_error(command, completion.status);
        completion.data.clear();
    }
    const bool reads = completion.status == NvmeStatus::kSuccess && !takes_data(command.opcode) &&
                       command.length != 0;
    if (reads && command.offset > completion.total) {
        return invalid_parameter(kOffsetByte);
    }
    if (reads && command.length > completion.total - command.offset) {
        return invalid_parameter(kLengthByte);
    }
    Response response;
    append_le32(response.data, completion.dword0);
    append_le32(response.data, 0);
    append_le32(response.data, completion_dword(completion.status));
    if (reads) {
        append(response.data, part_of(completion, command.offset, command.length));
    }
    return response;
}

bool NvmeDrive::has_command(uint8_t opcode) const {
    return std::ranges::find(kOpcodes, opcode) != kOpcodes.end() ||
           settings_.vendor.contains(opcode);
}

/// Whether a command may be executed now.
NvmeStatus NvmeDrive::gate(const NvmeAdminCommand& command) const {
    const bool feature_locked =
        command.opcode == kSetFeaturesCommand &&
        lockdown_.features.contains(static_cast<uint8_t>(command.dwords[10]));
    if (feature_locked || lockdown_.admin.contains(command.opcode)) {
        return NvmeStatus::kProhibitedByLockdown;
    }
    return waits_for_sanitize(command.opcode) ? media_.gate(now_) : NvmeStatus::kSuccess;
}

NvmeCompletion NvmeDrive::execute(const NvmeAdminCommand& command) {
    if (const NvmeStatus status = gate(command); status != NvmeStatus::kSuccess) {
        return status;
    }
    switch (command.opcode) {
        case kGetLogPageCommand:
            return get_log_page(command);
        case kIdentifyCommand:
            return identify(command);
        case kSetFeaturesCommand:
            return set_features(command);
        case kGetFeaturesCommand:
            return get_features(command);
        case kNamespaceManagementCommand:
            return namespaces_.manage(command);
        case kFirmwareCommitCommand:
            return firmware_.commit(command.dwords[10] & 7, command.dwords[10] >> 3 & 7);
        case kFirmwareDownloadCommand:
            return download(command);
        case kNamespaceAttachmentCommand:
            return namespaces_.attach(command);
        case kLockdownCommand:
            return lockdown(command);
        case kFormatCommand:
            return namespaces_.format(command);
        case kSanitizeCommand:
            return sanitize(command);
        case kPassthroughCommand:
            return passthrough(command);
        default:
            return vendor_command(command.opcode);
    }
}

NvmeCompletion NvmeDrive::download(const NvmeAdminCommand& command) {
    constexpr uint64_t kDwordSize = 4;
    if (command.data.size() != (command.dwords[10] + uint64_t{1}) * kDwordSize) {
        return NvmeStatus::kInvalidField;
    }
    return firmware_.download(command.dwords[11] * kDwordSize, command.data);
}

/// A command that the board file gives the drive.
NvmeCompletion NvmeDrive::vendor_command(uint8_t opcode) const {
    const auto vendor = settings_.vendor.find(opcode);
    if (vendor == settings_.vendor.end()) {
        return NvmeStatus::kInvalidOpcode;
    }
    return {vendor->second, std::max<uint64_t>(kMostData, vendor->second.size())};
}

/// Identify or Get Log Page in the disguise of a vendor's own command. What they look like alike is
/// told apart by the number of dwords that Get Log Page has in the upper half of dword 10.
NvmeCompletion NvmeDrive::passthrough(NvmeAdminCommand command) {
    if (command.dwords[9] != command.length) {
        return NvmeStatus::kInvalidField;
    }
    const bool log = command.dwords[10] >> 16 != 0;
    command.opcode = log ? kGetLogPageCommand : kIdentifyCommand;
    if (log) {
        command.dwords[1] = command.dwords[15];
    }
    if (const NvmeStatus status = gate(command); status != NvmeStatus::kSuccess) {
        return status;
    }
    return log ? get_log_page(command) : identify(command);
}

NvmeCompletion NvmeDrive::lockdown(const NvmeAdminCommand& command) {
    enum Scope : uint32_t { kAdminOpcodes = 0, kFeatureIds = 2, kManagementOpcodes = 3 };
    enum Interface : uint32_t { kHostOnly = 0, kHostAndManagement = 1, kManagementOnly = 2 };
    constexpr uint8_t kLastManagement = 0x07;
    const uint32_t settings = command.dwords[10];
    const uint32_t scope = settings & 0x0F;
    const bool prohibit = (settings >> 4 & 1) != 0;
    const uint32_t interface = settings >> 5 & 3;
    const auto id = static_cast<uint8_t>(settings >> 8);
    if (interface > kManagementOnly || (command.dwords[14] & 0x7F) != 0) {
        return NvmeStatus::kInvalidField;
    }
    std::set<uint8_t>* list = nullptr;
    bool possible = false;
    if (scope == kAdminOpcodes) {
        list = &lockdown_.admin;
        possible = id != kLockdownCommand && has_command(id);
    } else if (scope == kFeatureIds) {
        list = &lockdown_.features;
        possible = config_.features.contains(id);
    } else if (scope == kManagementOpcodes) {
        list = &lockdown_.management;
        possible = id <= kLastManagement;
    } else {
        return NvmeStatus::kInvalidField;
    }
    if (!possible) {
        return NvmeStatus::kProhibitionNotSupported;
    }
    // What only binds the host is not seen from here.
    if (interface != kHostOnly) {
        if (prohibit) {
            list->insert(id);
        } else {
            list->erase(id);
        }
    }
    return {};
}

NvmeCompletion NvmeDrive::sanitize(const NvmeAdminCommand& command) {
    constexpr uint32_t kExitFailure = 1;
    const NvmeStatus status =
        media_.sanitize(command, now_, settings_.sanitize_seconds, settings_.sanitize_fails);
    if (status == NvmeStatus::kSuccess && (command.dwords[10] & 7) != kExitFailure) {
        namespaces_.erase();
    }
    return status;
}

}  // namespace sim
