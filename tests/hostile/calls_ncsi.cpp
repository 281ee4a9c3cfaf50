// SPDX-License-Identifier: Apache-2.0
// The calls of NC-SI: the standard commands, and those of two makers.
#include "case.h"

namespace hostile {

namespace {

constexpr uint32_t kEverybody = NCSI_PACKAGES * 32;

ncsi_channel* channel_of(Case& at) {
    ncsi_channel& channel = at.ncsi.channels[at.random.below(2)];
    channel.ctx = &at.ncsi;
    channel.sensor_index = at.random.byte() & 3;
    return &channel;
}

int32_t init(Case& at) {
    ncsi_ctx made{};
    const int32_t result = ncsi_init(&made, &at.config);
    at.error = made.last_error;
    ncsi_deinit(&made);
    return result;
}

int32_t discovery(Case& at) {
    return at.ncsi.transfer != nullptr ? ncsi_discovery(&at.ncsi) : 0;
}

int32_t oem_discovery(Case& at) {
    return at.ncsi.oem_transfer != nullptr ? ncsi_oem_discovery(&at.ncsi) : 0;
}

int32_t link(Case& at) {
    ncsi_channel* const channel = channel_of(at);
    const ncsi_channel before = *channel;
    const int32_t result = ncsi_get_link_status(channel);
    at.expect(
        result == 0 || (before.link_up == channel->link_up && before.speed == channel->speed &&
                        before.autoneg_done == channel->autoneg_done),
        "a link status of an answer that was refused");
    return result;
}

/// Mostly the one that is there; the last is none.
uint32_t package_of(Case& at) {
    return at.random.one_of(4) ? at.random.below(NCSI_PACKAGES + 1) : 0;
}

int32_t select(Case& at) {
    return ncsi_select_package(channel_of(at), package_of(at));
}

int32_t deselect(Case& at) {
    return ncsi_deselect_package(channel_of(at), package_of(at));
}

int32_t broadcom_get(Case& at) {
    return ncsi_oem_brcm_entry(channel_of(at), 0);
}

int32_t broadcom_set(Case& at) {
    return ncsi_oem_brcm_entry(channel_of(at), 1);
}

int32_t mellanox_get(Case& at) {
    return ncsi_oem_mx_entry(channel_of(at), 0);
}

int32_t mellanox_set(Case& at) {
    return ncsi_oem_mx_entry(channel_of(at), 1);
}

int32_t mac(Case& at) {
    return ncsi_oem_mx_entry(channel_of(at), 2);
}

int32_t temperature(Case& at) {
    const int32_t result = ncsi_oem_mx_get_temperature(channel_of(at));
    at.expect(result >= -1 && result <= 255, "a temperature of more than a byte");
    return result < 0 ? result : 0;
}

constexpr Call kCalls[] = {
    {"ncsi_init", 2, kEverybody + 800, init},
    {"ncsi_discovery", 2, kEverybody, discovery},
    {"ncsi_oem_discovery", 2, 32, oem_discovery},
    {"ncsi_get_link_status", 10, 1, link},
    {"ncsi_select_package", 8, 1, select},
    {"ncsi_deselect_package", 8, 1, deselect},
    {"ncsi_oem_brcm_get_preboot_server_config", 8, 1, broadcom_get},
    {"ncsi_oem_brcm_set_preboot_server_config", 8, 2, broadcom_set},
    {"ncsi_oem_mx_get_card_tlv_info", 8, 1, mellanox_get},
    {"ncsi_oem_mx_set_card_tlv_info", 8, 2, mellanox_set},
    {"ncsi_oem_mx_get_pf_mac_address", 8, 1, mac},
    {"ncsi_oem_mx_get_temperature", 8, 1, temperature},
};

/// By an endpoint of its own, or by one that is lent.
bool begin(Case& at) {
    if (at.random.one_of(2)) {
        ncsi_init(&at.ncsi, &at.config);
        return at.ncsi.mctp != nullptr;
    }
    at.endpoint = at.config;
    at.endpoint.skip_discovery = 1;
    at.endpoint.msg_type = MCTP_MSG_TYPE_NCSI;
    return ncsi_oem_init(&at.ncsi, &at.endpoint) == 0;
}

void end(Case& at) {
    if (at.ncsi.mctp == &at.endpoint) {
        at.ncsi.mctp = nullptr;
    }
    ncsi_deinit(&at.ncsi);
}

const sideband_error& error_of_ncsi(const Case& at) {
    return at.error.cause != SIDEBAND_CAUSE_NONE ? at.error : *ncsi_last_error(&at.ncsi);
}

}  // namespace

const Protocol kNcsiProtocol{"ncsi", "ncsi", kCalls, begin, end, error_of_ncsi};

}  // namespace hostile
