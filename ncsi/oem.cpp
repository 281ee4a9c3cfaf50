// SPDX-License-Identifier: Apache-2.0
// OEM commands of two makers of network controllers, and the tables that they are found in.
#include <sideband/ncsi.h>

#include <iterator>

#include "common/output.h"
#include "ncsi/message.h"

using namespace sideband;

namespace {

/// Says that a "get" failed.
void report_failure(const char* function, const char* what, bool unsupported) {
    print_formatted("[%s] %s command %s\n", function, what,
                    unsupported ? "unsupported!" : "failed.");
}

// ---- Broadcom ----

constexpr const char* kGetPreboot = "get preboot server config";

/// What the set command carries over, and the setting with what stands beside it.
struct Preboot {
    uint8_t carried;
    uint16_t setting;
};

constexpr unsigned kPrebootFlagShift = 15;
/// These bits beside flag and value belong to the controller.
constexpr uint16_t kPrebootForeign = 0x7000;
constexpr uint16_t kPrebootValue = 0x0FFF;

int32_t get_preboot(ncsi_channel& channel, const char* function, Preboot& preboot) {
    ncsi::Request request(NCSI_OEM_COMMAND, channel.channel_id, 16);
    request.payload().be32(NCSI_MANUFACTURER_BROADCOM).be16(0x001C).be16(0x0004).skip(7).u8(0x05);
    ncsi::Answer answer = exchange(channel, request, 40);
    answer.body.skip(12);
    preboot.carried = answer.body.u8();
    answer.body.skip(1);
    preboot.setting = answer.body.be16();
    const int32_t result = finish(answer);
    if (result < 0) {
        report_failure(function, kGetPreboot, answer.unsupported);
        channel.oem_valid = answer.unsupported ? 0 : channel.oem_valid;
    }
    return result;
}

// ---- Mellanox ----

constexpr const char* kGetTlv = "get card tlv information";

/// What the set command carries over, and the setting with what stands beside it.
struct Tlv {
    uint8_t carried;
    uint8_t flags;
    uint8_t foreign;
    uint16_t value;
};

constexpr uint8_t kTlvCarriedMask = 0xF1;
constexpr uint8_t kTlvFlag = 0x40;
constexpr unsigned kTlvFlagShift = 6;
/// These bits beside the flag belong to the controller.
constexpr uint8_t kTlvForeign = 0x27;

uint8_t package_of(const ncsi_channel& channel) {
    return channel.channel_id | ncsi::kWholePackage;
}

/// @param unsupported  receives whether the controller says so
int32_t get_tlv(ncsi_channel& channel, Tlv& tlv, bool& unsupported) {
    ncsi::Request request(NCSI_OEM_COMMAND, package_of(channel), 16);
    request.payload().be32(NCSI_MANUFACTURER_MELLANOX).be32(0x00002300).be32(0).be32(0x03000221);
    ncsi::Answer answer = exchange(channel, request, 44);
    answer.body.skip(10);
    tlv.carried = answer.body.u8();
    answer.body.skip(5);
    tlv.flags = answer.body.u8();
    tlv.foreign = answer.body.u8();
    tlv.value = answer.body.be16();
    unsupported = answer.unsupported;
    return finish(answer);
}

void print_bytes(std::span<const uint8_t> bytes) {
    for (const uint8_t byte : bytes) {
        print_formatted(" %x", byte);
    }
    print_line("");
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
    ncsi::begin(channel);
    return -1;
}

int32_t ncsi_oem_mx_entry(ncsi_channel* channel, uint32_t command) {
    for (const ncsi_oem_cmd& entry : ncsi_oem_mx_cmd_tbl) {
        // The low byte alone: callers keep flags of their own above it.
        if (static_cast<uint8_t>(entry.command) == static_cast<uint8_t>(command)) {
            return entry.handler(channel);
        }
    }
    ncsi::begin(channel);
    return -1;
}

int32_t ncsi_oem_brcm_get_preboot_server_config(ncsi_channel* channel) {
    if (!ncsi::begin(channel)) {
        return -1;
    }
    Preboot preboot;
    const int32_t result =
        get_preboot(*channel, "ncsi_oem_brcm_get_preboot_server_config", preboot);
    if (result >= 0) {
        channel->oem_valid = 1;
        channel->oem_flag = static_cast<uint8_t>(preboot.setting >> kPrebootFlagShift);
        channel->oem_value = preboot.setting & kPrebootValue;
    }
    return result;
}

int32_t ncsi_oem_brcm_set_preboot_server_config(ncsi_channel* channel) {
    constexpr const char* kFunction = "ncsi_oem_brcm_set_preboot_server_config";
    if (!ncsi::begin(channel)) {
        return -1;
    }
    Preboot preboot;
    int32_t result = get_preboot(*channel, kFunction, preboot);
    if (result < 0) {
        return result;
    }
    const auto setting = static_cast<uint16_t>(channel->oem_flag << kPrebootFlagShift |
                                               (preboot.setting & kPrebootForeign) |
                                               (channel->oem_value & kPrebootValue));
    ncsi::Request request(NCSI_OEM_COMMAND, channel->channel_id, 20);
    request.payload()
        .be32(NCSI_MANUFACTURER_BROADCOM)
        .be16(0x001D)
        .be16(0x0004)
        .skip(7)
        .u8(0x01)
        .u8(preboot.carried)
        .u8(0)
        .be16(setting);
    result = finish(exchange(*channel, request, 36));
    if (result < 0) {
        print_formatted("[%s] set preboot server config command failed.\n", kFunction);
    }
    return result;
}

int32_t ncsi_oem_mx_get_card_tlv_info(ncsi_channel* channel) {
    if (!ncsi::begin(channel)) {
        return -1;
    }
    Tlv tlv;
    bool unsupported = false;
    const int32_t result = get_tlv(*channel, tlv, unsupported);
    if (result < 0) {
        report_failure("ncsi_oem_mx_get_card_tlv_info", kGetTlv, unsupported);
        channel->oem_valid = unsupported ? 0 : channel->oem_valid;
        return result;
    }
    channel->oem_valid = 1;
    channel->oem_flag = (tlv.flags & kTlvFlag) != 0 ? 1 : 0;
    channel->oem_value = tlv.value;
    return result;
}

int32_t ncsi_oem_mx_set_card_tlv_info(ncsi_channel* channel) {
    constexpr const char* kFunction = "ncsi_oem_mx_set_card_tlv_info";
    if (!ncsi::begin(channel)) {
        return -1;
    }
    Tlv tlv;
    bool unsupported = false;
    int32_t result = get_tlv(*channel, tlv, unsupported);
    if (result < 0) {
        print_formatted("[%s] %s command failed.\n", kFunction, kGetTlv);
        return result;
    }
    const auto flags = static_cast<uint8_t>((tlv.flags & kTlvForeign) |
                                            (channel->oem_flag << kTlvFlagShift & kTlvFlag));
    ncsi::Request request(NCSI_OEM_COMMAND, package_of(*channel), 20);
    request.payload()
        .be32(NCSI_MANUFACTURER_MELLANOX)
        .be32(0x00012300)
        .be16(0)
        .u8(tlv.carried & kTlvCarriedMask)
        .u8(0)
        .be32(0x03000221)
        .u8(flags)
        .u8(tlv.foreign)
        .be16(channel->oem_value);
    result = finish(exchange(*channel, request, 32));
    if (result < 0) {
        print_formatted("[%s] set card tlv information command failed.\n", kFunction);
    }
    return result;
}

int32_t ncsi_oem_mx_get_pf_mac_address(ncsi_channel* channel) {
    constexpr const char* kFunction = "ncsi_oem_mx_get_pf_mac_address";
    constexpr size_t kShown = 16;
    constexpr size_t kMac = 8;
    constexpr size_t kMacSize = 6;
    if (!ncsi::begin(channel)) {
        return -1;
    }
    ncsi::Request request(NCSI_OEM_COMMAND, channel->channel_id, 8);
    request.payload().be32(NCSI_MANUFACTURER_MELLANOX);
    ncsi::Answer answer = exchange(*channel, request, 40);
    const auto shown = answer.body.bytes(kShown);
    const int32_t result = finish(answer);
    if (result < 0) {
        report_failure(kFunction, "get pf mac address", answer.unsupported);
        return result;
    }
    print_formatted("[%s] get pf mac address resp:\n", kFunction);
    print_bytes(shown);
    print_formatted("[%s] mac address:\n", kFunction);
    print_bytes(shown.subspan(kMac, kMacSize));
    return result;
}

int32_t ncsi_oem_mx_get_temperature(ncsi_channel* channel) {
    constexpr size_t kInFront = 11;
    if (!ncsi::begin(channel)) {
        return -1;
    }
    ncsi::Request request(NCSI_OEM_COMMAND, channel->channel_id, 8);
    request.payload()
        .be32(NCSI_MANUFACTURER_MELLANOX)
        .be16(0x0013)
        .u8(0x02)
        .u8(channel->sensor_index);
    ncsi::Answer answer = exchange(*channel, request, 36);
    answer.body.skip(kInFront);
    const uint8_t temperature = answer.body.u8();
    const int32_t result = finish(answer);
    return result < 0 ? result : temperature;
}
