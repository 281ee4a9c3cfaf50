// SPDX-License-Identifier: Apache-2.0
// OEM commands of two makers of network controllers, and the tables that they are found in.
#include <sideband/ncsi.h>

#include <cstdio>
#include <iterator>

#include "common/wire.h"
#include "ncsi/message.h"

using namespace sideband;

namespace {

bool is_unsupported(const ncsi::Response& response) {
    return ncsi::be16_at(response, ncsi::kResponseCode) == NCSI_RESPONSE_UNSUPPORTED &&
           ncsi::be16_at(response, ncsi::kReasonCode) == NCSI_REASON_UNSUPPORTED;
}

/// Says that a "get" failed. @return whether the controller does not support it
bool report_failure(const char* function, const char* what, const ncsi::Response& response) {
    const bool unsupported = is_unsupported(response);
    std::printf("[%s] %s command %s\n", function, what, unsupported ? "unsupported!" : "failed.");
    return unsupported;
}

// ---- Broadcom ----

constexpr const char* kGetPreboot = "get preboot server config";

/// Bytes of the response that the set command carries over, and that hold the setting.
constexpr size_t kPrebootCarried = 32;
constexpr size_t kPrebootFlags = 34;
constexpr size_t kPrebootValue = 35;
/// Bits 4 to 6 beside flag and value belong to the controller.
constexpr uint8_t kPrebootForeign = 0x70;

int32_t get_preboot(ncsi_channel& channel, const char* function, ncsi::Response& response) {
    constexpr int32_t kCapacity = 40;
    ncsi::Request request(NCSI_OEM_COMMAND, channel.channel_id, 16);
    WireWriter(request.payload())
        .be32(NCSI_MANUFACTURER_BROADCOM)
        .be16(0x001C)
        .be16(0x0004)
        .skip(7)
        .u8(0x05);
    const int32_t result = ncsi::transfer(channel, request, kCapacity, response, kPrebootValue + 1);
    if (result < 0 && report_failure(function, kGetPreboot, response)) {
        channel.oem_valid = 0;
    }
    return result;
}

// ---- Mellanox ----

constexpr const char* kGetTlv = "get card tlv information";

constexpr size_t kTlvCarried = 30;
constexpr uint8_t kTlvCarriedMask = 0xF1;
constexpr size_t kTlvFlags = 36;
constexpr uint8_t kTlvFlag = 0x40;
/// Bits 0 to 2 and 5 beside the flag belong to the controller.
constexpr uint8_t kTlvForeign = 0x27;
constexpr size_t kTlvForeignByte = 37;
constexpr size_t kTlvValue = 38;

uint8_t package_of(const ncsi_channel& channel) {
    return channel.channel_id | ncsi::kWholePackage;
}

int32_t get_tlv(ncsi_channel& channel, ncsi::Response& response) {
    constexpr int32_t kCapacity = 44;
    ncsi::Request request(NCSI_OEM_COMMAND, package_of(channel), 16);
    WireWriter(request.payload())
        .be32(NCSI_MANUFACTURER_MELLANOX)
        .be32(0x00002300)
        .be32(0)
        .be32(0x03000221);
    return ncsi::transfer(channel, request, kCapacity, response, kTlvValue + 2);
}

void print_bytes(const ncsi::Response& response, size_t first, size_t count) {
    for (size_t i = first; i < first + count; ++i) {
        std::printf(" %x", response[i]);
    }
    std::puts("");
}

}  // namespace

const ncsi_oem_cmd ncsi_oem_brcm_cmd_tbl[] = {
    {0, ncsi_oem_brcm_get_preboot_server_config},
    {1, ncsi_oem_brcm_set_preboot_server_config},
};
const uint8_t ncsi_oem_brcm_cmd_tbl_size = std::size(ncsi_oem_brcm_cmd_tbl);

const ncsi_oem_cmd ncsi_oem_mx_cmd_tbl[] = {
    {0, ncsi_oem_mx_get_card_tlv_info},
    {1, ncsi_oem_mx_set_card_tlv_info},
    {2, ncsi_oem_mx_get_pf_mac_address},
    {3, ncsi_oem_mx_get_temperature},
};
const uint8_t ncsi_oem_mx_cmd_tbl_size = std::size(ncsi_oem_mx_cmd_tbl);

int32_t ncsi_oem_brcm_entry(ncsi_channel* channel, uint32_t command) {
    for (const ncsi_oem_cmd& entry : ncsi_oem_brcm_cmd_tbl) {
        if (entry.command == command) {
            return entry.handler(channel);
        }
    }
    return -1;
}

int32_t ncsi_oem_mx_entry(ncsi_channel* channel, uint32_t command) {
    for (const ncsi_oem_cmd& entry : ncsi_oem_mx_cmd_tbl) {
        // The low byte alone: callers keep flags of their own above it.
        if (static_cast<uint8_t>(entry.command) == static_cast<uint8_t>(command)) {
            return entry.handler(channel);
        }
    }
    return -1;
}

int32_t ncsi_oem_brcm_get_preboot_server_config(ncsi_channel* channel) {
    if (!ncsi::can_transfer(channel)) {
        return -1;
    }
    ncsi::Response response{};
    const int32_t result =
        get_preboot(*channel, "ncsi_oem_brcm_get_preboot_server_config", response);
    if (result >= 0) {
        channel->oem_valid = 1;
        channel->oem_flag = response[kPrebootFlags] >> 7;
        channel->oem_value = ncsi::be16_at(response, kPrebootFlags) & 0x0FFF;
    }
    return result;
}

int32_t ncsi_oem_brcm_set_preboot_server_config(ncsi_channel* channel) {
    constexpr const char* kFunction = "ncsi_oem_brcm_set_preboot_server_config";
    constexpr int32_t kCapacity = 36;
    if (!ncsi::can_transfer(channel)) {
        return -1;
    }
    ncsi::Response response{};
    int32_t result = get_preboot(*channel, kFunction, response);
    if (result < 0) {
        return result;
    }
    const auto flags =
        static_cast<uint8_t>(channel->oem_flag << 7 | (response[kPrebootFlags] & kPrebootForeign) |
                             (channel->oem_value >> 8 & 0x0F));
    ncsi::Request request(NCSI_OEM_COMMAND, channel->channel_id, 20);
    WireWriter(request.payload())
        .be32(NCSI_MANUFACTURER_BROADCOM)
        .be16(0x001D)
        .be16(0x0004)
        .skip(7)
        .u8(0x01)
        .u8(response[kPrebootCarried])
        .u8(0)
        .u8(flags)
        .u8(static_cast<uint8_t>(channel->oem_value));
    response = {};
    result = ncsi::transfer(*channel, request, kCapacity, response, ncsi::kResponsePayload);
    if (result < 0) {
        std::printf("[%s] set preboot server config command failed.\n", kFunction);
    }
    return result;
}

int32_t ncsi_oem_mx_get_card_tlv_info(ncsi_channel* channel) {
    if (!ncsi::can_transfer(channel)) {
        return -1;
    }
    ncsi::Response response{};
    const int32_t result = get_tlv(*channel, response);
    if (result < 0) {
        if (report_failure("ncsi_oem_mx_get_card_tlv_info", kGetTlv, response)) {
            channel->oem_valid = 0;
        }
        return result;
    }
    channel->oem_valid = 1;
    channel->oem_flag = (response[kTlvFlags] & kTlvFlag) != 0 ? 1 : 0;
    channel->oem_value = ncsi::be16_at(response, kTlvValue);
    return result;
}

int32_t ncsi_oem_mx_set_card_tlv_info(ncsi_channel* channel) {
    constexpr const char* kFunction = "ncsi_oem_mx_set_card_tlv_info";
    constexpr int32_t kCapacity = 32;
    if (!ncsi::can_transfer(channel)) {
        return -1;
    }
    ncsi::Response response{};
    int32_t result = get_tlv(*channel, response);
    if (result < 0) {
        std::printf("[%s] %s command failed.\n", kFunction, kGetTlv);
        return result;
    }
    const auto flags = static_cast<uint8_t>((response[kTlvFlags] & kTlvForeign) |
                                            (channel->oem_flag << 6 & kTlvFlag));
    ncsi::Request request(NCSI_OEM_COMMAND, package_of(*channel), 20);
    WireWriter(request.payload())
        .be32(NCSI_MANUFACTURER_MELLANOX)
        .be32(0x00012300)
        .be16(0)
        .u8(response[kTlvCarried] & kTlvCarriedMask)
        .u8(0)
        .be32(0x03000221)
        .u8(flags)
        .u8(response[kTlvForeignByte])
        .be16(channel->oem_value);
    response = {};
    result = ncsi::transfer(*channel, request, kCapacity, response, ncsi::kResponsePayload);
    if (result < 0) {
        std::printf("[%s] set card tlv information command failed.\n", kFunction);
    }
    return result;
}

int32_t ncsi_oem_mx_get_pf_mac_address(ncsi_channel* channel) {
    constexpr const char* kFunction = "ncsi_oem_mx_get_pf_mac_address";
    constexpr int32_t kCapacity = 40;
    constexpr size_t kShown = 16;
    constexpr size_t kMac = 28;
    constexpr size_t kMacSize = 6;
    if (!ncsi::can_transfer(channel)) {
        return -1;
    }
    ncsi::Request request(NCSI_OEM_COMMAND, channel->channel_id, 8);
    WireWriter(request.payload()).be32(NCSI_MANUFACTURER_MELLANOX);
    ncsi::Response response{};
    const int32_t result =
        ncsi::transfer(*channel, request, kCapacity, response, ncsi::kResponsePayload + kShown);
    if (result < 0) {
        report_failure(kFunction, "get pf mac address", response);
        return result;
    }
    std::printf("[%s] get pf mac address resp:\n", kFunction);
    print_bytes(response, ncsi::kResponsePayload, kShown);
    std::printf("[%s] mac address:\n", kFunction);
    print_bytes(response, kMac, kMacSize);
    return result;
}

int32_t ncsi_oem_mx_get_temperature(ncsi_channel* channel) {
    constexpr int32_t kCapacity = 36;
    constexpr size_t kTemperature = 31;
    if (!ncsi::can_transfer(channel)) {
        return -1;
    }
    ncsi::Request request(NCSI_OEM_COMMAND, channel->channel_id, 8);
    WireWriter(request.payload())
        .be32(NCSI_MANUFACTURER_MELLANOX)
        .be16(0x0013)
        .u8(0x02)
        .u8(channel->sensor_index);
    ncsi::Response response{};
    const int32_t result = ncsi::transfer(*channel, request, kCapacity, response, kTemperature + 1);
    return result < 0 ? result : response[kTemperature];
}
