// SPDX-License-Identifier: Apache-2.0
// The admin tunnel of an NVMe drive: requests, what they may do, what they come to (NVMe-MI, NVM
// Express Admin command set).
#include <algorithm>

#include "sim/nvme/drive.h"

namespace sim {

namespace {

// A request, from behind the MCTP message type on.
constexpr size_t kOpcode = 3;
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
    get_log_page_command = 0x02,
    identify_command = 0x06,
    set_features_command = 0x09,
    get_features_command = 0x0A,
    namespace_management_command = 0x0D,
    firmware_commit_command = 0x10,
    firmware_download_command = 0x11,
    namespace_attachment_command = 0x15,
    lockdown_command = 0x24,
    format_command = 0x80,
    sanitize_command = 0x84,
    passthrough_command = 0xC2,
};

constexpr std::array<uint8_t, 12> kOpcodes = {get_log_page_command,
                                              identify_command,
                                              set_features_command,
                                              get_features_command,
                                              namespace_management_command,
                                              firmware_commit_command,
                                              firmware_download_command,
                                              namespace_attachment_command,
                                              lockdown_command,
                                              format_command,
                                              sanitize_command,
                                              passthrough_command};

bool takes_data(uint8_t opcode) {
    return opcode == set_features_command || opcode == namespace_management_command ||
           opcode == firmware_download_command || opcode == namespace_attachment_command;
}

/// Whether a command has to wait until a sanitize operation has ended well.
bool waits_for_sanitize(uint8_t opcode) {
    return opcode == namespace_management_command || opcode == firmware_commit_command ||
           opcode == firmware_download_command || opcode == namespace_attachment_command ||
           opcode == format_command;
}

NvmeAdminCommand decode(ByteView body) {
    NvmeAdminCommand command;
    command.opcode = body[kOpcode];
    command.controller = le16(body, kController);
    for (size_t i = 0; i < 5; ++i)
        command.dwords[1 + i] = le32(body, kFirstDwords + 4 * i);
    for (size_t i = 0; i < 2; ++i)
        command.dwords[8 + i] = le32(body, kMiddleDwords + 4 * i);
    for (size_t i = 0; i < 6; ++i)
        command.dwords[10 + i] = le32(body, kLastDwords + 4 * i);
    if ((body[kFlags] & kOffsetValid) != 0)
        command.offset = le32(body, kOffset);
    if ((body[kFlags] & kLengthValid) != 0)
        command.length = le32(body, kLength);
    command.data = body.subspan(kRequestSize);
    return command;
}

/// Completion queue entry dword 3: status code, its type, and the bits "more" and "do not retry".
uint32_t completion_dword(NvmeStatus status) {
    if (status == NvmeStatus::success)
        return 0;
    constexpr uint32_t kMore = 1u << 30;
    constexpr uint32_t kDoNotRetry = 1u << 31;
    const bool later = status == NvmeStatus::sanitize_in_progress;
    return static_cast<uint32_t>(status) << 17 | kMore | (later ? 0 : kDoNotRetry);
}

/// The part of what a command read that was asked for.
Bytes part_of(const NvmeCompletion& completion, uint32_t offset, uint32_t length) {
    Bytes out(length);
    for (size_t i = 0; i < length; ++i) {
        const uint64_t at = uint64_t{offset} + i;
        if (at < completion.data.size())
            out[i] = completion.data[static_cast<size_t>(at)];
    }
    return out;
}

}  // namespace

NvmeDrive::Response NvmeDrive::admin(ByteView body) {
    if (body.size() < kRequestSize)
        return {nvme_invalid_command_size, 0, {}};
    const NvmeAdminCommand command = decode(body);
    if (!config_.controllers.contains(command.controller))
        return invalid_parameter(kControllerByte);
    if (command.offset % 4 != 0)
        return invalid_parameter(kOffsetByte);
    if (command.length % 4 != 0 || command.length > kMostData)
        return invalid_parameter(kLengthByte);
    const bool sized = (body[kFlags] & kLengthValid) != 0;
    if (takes_data(command.opcode) ? sized && command.data.size() != command.length
                                   : !command.data.empty())
        return {nvme_invalid_data_size, 0, {}};

    NvmeCompletion completion = execute(command);
    if (completion.status != NvmeStatus::success) {
        note_error(command, completion.status);
        completion.data.clear();
    }
    const bool reads = completion.status == NvmeStatus::success && !takes_data(command.opcode) &&
                       command.length != 0;
    if (reads && command.offset > completion.total)
        return invalid_parameter(kOffsetByte);
    if (reads && command.length > completion.total - command.offset)
        return invalid_parameter(kLengthByte);
    Response response;
    append_le32(response.data, completion.dword0);
    append_le32(response.data, 0);
    append_le32(response.data, completion_dword(completion.status));
    if (reads)
        append(response.data, part_of(completion, command.offset, command.length));
    return response;
}

/// Whether a command may be executed now.
NvmeStatus NvmeDrive::gate(const NvmeAdminCommand& command) const {
    const bool feature_locked =
        command.opcode == set_features_command &&
        lockdown_.features.contains(static_cast<uint8_t>(command.dwords[10]));
    if (feature_locked || lockdown_.admin.contains(command.opcode))
        return NvmeStatus::prohibited_by_lockdown;
    return waits_for_sanitize(command.opcode) ? media_.gate(now_) : NvmeStatus::success;
}

NvmeCompletion NvmeDrive::execute(const NvmeAdminCommand& command) {
    constexpr uint64_t kDwordSize = 4;
    if (const NvmeStatus status = gate(command); status != NvmeStatus::success)
        return status;
    switch (command.opcode) {
        case get_log_page_command:
            return get_log_page(command);
        case identify_command:
            return identify(command);
        case set_features_command:
            return set_features(command);
        case get_features_command:
            return get_features(command);
        case namespace_management_command:
            return namespaces_.manage(command);
        case firmware_commit_command:
            return firmware_.commit(command.dwords[10] & 7, command.dwords[10] >> 3 & 7);
        case firmware_download_command:
            if (command.data.size() != (command.dwords[10] + uint64_t{1}) * kDwordSize)
                return NvmeStatus::invalid_field;
            return firmware_.download(command.dwords[11] * kDwordSize, command.data);
        case namespace_attachment_command:
            return namespaces_.attach(command);
        case lockdown_command:
            return lockdown(command);
        case format_command:
            return namespaces_.format(command);
        case sanitize_command:
            return sanitize(command);
        case passthrough_command:
            return passthrough(command);
        default:
            break;
    }
    const auto vendor = settings_.vendor.find(command.opcode);
    if (vendor == settings_.vendor.end())
        return NvmeStatus::invalid_opcode;
    return {vendor->second, std::max<uint64_t>(kMostData, vendor->second.size())};
}

/// Identify or Get Log Page in the disguise of a vendor's own command. What they look like alike is
/// told apart by the number of dwords that Get Log Page has in the upper half of dword 10.
NvmeCompletion NvmeDrive::passthrough(NvmeAdminCommand command) {
    if (command.dwords[9] != command.length)
        return NvmeStatus::invalid_field;
    const bool log = command.dwords[10] >> 16 != 0;
    command.opcode = log ? get_log_page_command : identify_command;
    if (log)
        command.dwords[1] = command.dwords[15];
    if (const NvmeStatus status = gate(command); status != NvmeStatus::success)
        return status;
    return log ? get_log_page(command) : identify(command);
}

NvmeCompletion NvmeDrive::lockdown(const NvmeAdminCommand& command) {
    enum Scope : uint32_t { admin_opcodes = 0, feature_ids = 2, management_opcodes = 3 };
    enum Interface : uint32_t { host_only = 0, host_and_management = 1, management_only = 2 };
    constexpr uint8_t kLastManagement = 0x07;
    const uint32_t settings = command.dwords[10];
    const uint32_t scope = settings & 0x0F;
    const bool prohibit = (settings >> 4 & 1) != 0;
    const uint32_t interface = settings >> 5 & 3;
    const auto id = static_cast<uint8_t>(settings >> 8);
    if (interface > management_only || (command.dwords[14] & 0x7F) != 0)
        return NvmeStatus::invalid_field;
    std::set<uint8_t>* list = nullptr;
    bool possible = false;
    if (scope == admin_opcodes) {
        list = &lockdown_.admin;
        possible = id != lockdown_command && (std::ranges::find(kOpcodes, id) != kOpcodes.end() ||
                                              settings_.vendor.contains(id));
    } else if (scope == feature_ids) {
        list = &lockdown_.features;
        possible = config_.features.contains(id);
    } else if (scope == management_opcodes) {
        list = &lockdown_.management;
        possible = id <= kLastManagement;
    } else {
        return NvmeStatus::invalid_field;
    }
    if (!possible)
        return NvmeStatus::prohibition_not_supported;
    // What only binds the host is not seen from here.
    if (interface != host_only) {
        if (prohibit)
            list->insert(id);
        else
            list->erase(id);
    }
    return {};
}

NvmeCompletion NvmeDrive::sanitize(const NvmeAdminCommand& command) {
    constexpr uint32_t kExitFailure = 1;
    const NvmeStatus status =
        media_.sanitize(command, now_, settings_.sanitize_seconds, settings_.sanitize_fails);
    if (status == NvmeStatus::success && (command.dwords[10] & 7) != kExitFailure)
        namespaces_.erase();
    return status;
}

}  // namespace sim
