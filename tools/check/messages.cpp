// SPDX-License-Identifier: Apache-2.0
// Messages as the rules make and take them apart: MCTP control, PLDM, version numbers, checksums.
#include "tools/check/messages.h"

#include <fmt/format.h>
#include <sideband/mctp.h>

#include <algorithm>
#include <cctype>

namespace tool::check {
namespace {

std::optional<uint8_t> code_at(const Exchange& exchange, size_t place) {
    const std::span<const uint8_t> response = response_of(exchange);
    return response.size() > place ? std::optional(response[place]) : std::nullopt;
}

void expect_code(const Exchange& exchange, std::optional<uint8_t> came, uint8_t code,
                 const char* name) {
    if (came != code) {
        fail(exchange, fmt::format("completion code 0x{:02x} ({})", code, name));
    }
}

void expect_length(const Exchange& exchange, size_t length) {
    if (response_of(exchange).size() != length) {
        fail(exchange, fmt::format("an answer of {} bytes", length));
    }
}

std::span<const uint8_t> data_behind(const Exchange& exchange, size_t header, const char* command) {
    const std::span<const uint8_t> response = response_of(exchange);
    if (response.size() <= header || response[header] != kSuccess) {
        not_applicable(fmt::format("{} does not succeed", command));
    }
    return response.subspan(header + 1);
}

uint32_t reflected_crc(std::span<const uint8_t> bytes, uint32_t polynomial) {
    uint32_t crc = 0xFFFFFFFF;
    for (const uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 1) != 0 ? crc >> 1 ^ polynomial : crc >> 1;
        }
    }
    return ~crc;
}

/// The numbers of the bits that are set in the data of an answer.
Bytes bits_of(std::span<const uint8_t> bitmap) {
    Bytes numbers;
    for (size_t bit = 0; bit < bitmap.size() * 8; ++bit) {
        if ((bitmap[bit / 8] >> bit % 8 & 1) != 0) {
            numbers.push_back(static_cast<uint8_t>(bit));
        }
    }
    return numbers;
}

}  // namespace

// ---- MCTP control -------------------------------------------------------------------------------

Bytes control_request(uint8_t command, std::span<const uint8_t> data) {
    return Body().u8(kRequestBit).u8(command).bytes(data);
}

Exchange ask_control(Device& device, uint8_t command, std::span<const uint8_t> data) {
    return device.ask(MCTP_MSG_TYPE_CONTROL, control_request(command, data));
}

Exchange recall_control(Device& device, uint8_t command, std::span<const uint8_t> data) {
    return device.recall(MCTP_MSG_TYPE_CONTROL, control_request(command, data));
}

std::span<const uint8_t> control_data(const Exchange& exchange, const char* command) {
    return data_behind(exchange, kControlHeader, command);
}

std::optional<uint8_t> control_code(const Exchange& exchange) {
    return code_at(exchange, kControlHeader);
}

void expect_control_code(const Exchange& exchange, uint8_t code, const char* name) {
    expect_code(exchange, control_code(exchange), code, name);
}

void expect_control_success(const Exchange& exchange, size_t length) {
    expect_control_code(exchange, kSuccess, "SUCCESS");
    expect_length(exchange, length);
}

Bytes message_types(Device& device) {
    const Exchange exchange = recall_control(device, kGetMessageTypeSupport);
    if (control_code(exchange) != kSuccess) {
        return {};
    }
    sideband::WireReader reader(control_data(exchange, "Get Message Type Support"));
    const size_t count = reader.u8();
    const std::span<const uint8_t> types = reader.rest();
    return {types.begin(), types.begin() + static_cast<ptrdiff_t>(std::min(count, types.size()))};
}

void need_message_type(Device& device, uint8_t type, const char* name) {
    const Bytes types = message_types(device);
    if (std::ranges::find(types, type) == types.end()) {
        not_applicable(fmt::format("the device does not name {} among its message types", name));
    }
}

// ---- PLDM ---------------------------------------------------------------------------------------

Bytes pldm_request(uint8_t type, uint8_t command, std::span<const uint8_t> data) {
    return Body().u8(kRequestBit).u8(type).u8(command).bytes(data);
}

Exchange ask_pldm(Device& device, uint8_t type, uint8_t command, std::span<const uint8_t> data) {
    return device.ask(MCTP_MSG_TYPE_PLDM, pldm_request(type, command, data));
}

Exchange recall_pldm(Device& device, uint8_t type, uint8_t command, std::span<const uint8_t> data) {
    return device.recall(MCTP_MSG_TYPE_PLDM, pldm_request(type, command, data));
}

std::span<const uint8_t> pldm_data(const Exchange& exchange, const char* command) {
    return data_behind(exchange, kPldmHeader, command);
}

std::optional<uint8_t> pldm_code(const Exchange& exchange) {
    return code_at(exchange, kPldmHeader);
}

void expect_pldm_code(const Exchange& exchange, uint8_t code, const char* name) {
    expect_code(exchange, pldm_code(exchange), code, name);
}

void expect_pldm_success(const Exchange& exchange, size_t length) {
    expect_pldm_code(exchange, kSuccess, "SUCCESS");
    expect_length(exchange, length);
}

Bytes pldm_types(Device& device) {
    const Exchange exchange = recall_pldm(device, kBase, kGetPldmTypes);
    if (pldm_code(exchange) != kSuccess) {
        return {};
    }
    return bits_of(pldm_data(exchange, "GetPLDMTypes"));
}

std::optional<Bytes> pldm_version(Device& device, uint8_t type) {
    const Exchange exchange = recall_pldm(device, kBase, kGetPldmVersion,
                                          Bytes(Body().le32(0).u8(kGetFirstPart).u8(type)));
    if (pldm_code(exchange) != kSuccess) {
        return std::nullopt;
    }
    sideband::WireReader reader(pldm_data(exchange, "GetPLDMVersion"));
    reader.skip(5);
    const std::span<const uint8_t> version = reader.bytes(4);
    return reader.ok() ? std::optional(Bytes(version.begin(), version.end())) : std::nullopt;
}

bool has_pldm_command(Device& device, uint8_t type, uint8_t command) {
    const std::optional<Bytes> version = pldm_version(device, type);
    if (!version) {
        return false;
    }
    const Exchange exchange =
        recall_pldm(device, kBase, kGetPldmCommands, Bytes(Body().u8(type).bytes(*version)));
    if (pldm_code(exchange) != kSuccess) {
        return false;
    }
    const Bytes commands = bits_of(pldm_data(exchange, "GetPLDMCommands"));
    return std::ranges::find(commands, command) != commands.end();
}

void need_pldm_type(Device& device, uint8_t type) {
    need_message_type(device, MCTP_MSG_TYPE_PLDM, "PLDM");
    const Bytes types = pldm_types(device);
    if (std::ranges::find(types, type) == types.end()) {
        not_applicable(fmt::format("the device does not name PLDM type {}", type));
    }
}

void need_pldm_command(Device& device, uint8_t type, uint8_t command, const char* name) {
    need_pldm_type(device, type);
    if (!has_pldm_command(device, type, command)) {
        not_applicable(fmt::format("the device does not name {}", name));
    }
}

// ---- NVMe-MI ------------------------------------------------------------------------------------

Bytes nvme_message(Device& device, std::span<const uint8_t> message) {
    if (device.channel().appends_check()) {
        return {message.begin(), message.end()};
    }
    const Bytes checked =
        Body().u8(MCTP_MSG_TYPE_NVME_MI | MCTP_MSG_TYPE_INTEGRITY_CHECK).bytes(message);
    return Body().bytes(message).le32(crc32c_of(checked));
}

Bytes nvme_command(Device& device, uint8_t opcode, uint32_t dword0, uint32_t dword1,
                   std::span<const uint8_t> data) {
    const Bytes message = Body()
                              .u8(kNvmeManagement)
                              .le16(0)
                              .u8(opcode)
                              .le16(0)
                              .u8(0)
                              .le32(dword0)
                              .le32(dword1)
                              .bytes(data);
    return nvme_message(device, message);
}

Exchange ask_nvme(Device& device, const Bytes& message) {
    return device.ask(MCTP_MSG_TYPE_NVME_MI | MCTP_MSG_TYPE_INTEGRITY_CHECK, message);
}

Exchange recall_nvme(Device& device, const Bytes& message) {
    return device.recall(MCTP_MSG_TYPE_NVME_MI | MCTP_MSG_TYPE_INTEGRITY_CHECK, message);
}

// ---- Version numbers, checksums -----------------------------------------------------------------

bool is_version(uint8_t major, uint8_t minor, uint8_t update, uint8_t alpha) {
    const auto is_bcd = [](uint8_t byte) {
        return (byte & 0x0F) <= 9 && (byte >> 4 <= 9 || byte >> 4 == 0x0F);
    };
    constexpr uint8_t kNone = 0xFF;
    return is_bcd(major) && is_bcd(minor) && (update == kNone || is_bcd(update)) &&
           (alpha == 0 || std::isalpha(alpha) != 0);
}

uint32_t crc32_of(std::span<const uint8_t> bytes) {
    return reflected_crc(bytes, 0xEDB88320);
}

uint32_t crc32c_of(std::span<const uint8_t> bytes) {
    return reflected_crc(bytes, 0x82F63B78);
}

uint8_t crc8_of(std::span<const uint8_t> bytes) {
    uint8_t crc = 0;
    for (const uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = static_cast<uint8_t>((crc & 0x80) != 0 ? crc << 1 ^ 0x07 : crc << 1);
        }
    }
    return crc;
}

}  // namespace tool::check
