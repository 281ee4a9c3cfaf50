// SPDX-License-Identifier: Apache-2.0
// NC-SI: contexts, standard commands, the OEM commands of two makers.
#include "scenario.h"

namespace sweep {
namespace {

const std::string kController =
    R"({"name": "dev", "type": "ncsi", "bus": 2, "address": "0x64", "eid": 9, "controller": {
        "packages": [{"id": 0, "card_tlv": "f1250000c8", "channels": [
            {"id": 0, "speed": 10, "preboot_config": "0100b064", "mac": "024e43534900"}]}],
        "temperatures": [{"id": 0, "waveform": {"shape": "constant", "value": 61}}]}})";

ncsi_channel& channel(World& world) {
    return world.ncsi.channels[0];
}

void open(World& world) {
    open_device(world, kController);
}
void ready(World& world) {
    open(world);
    ncsi_init(&world.ncsi, &world.endpoint);
}
void lend(World& world) {
    ready_device(world, kController);
    world.endpoint.msg_type = MCTP_MSG_TYPE_NCSI;
    ncsi_oem_init(&world.ncsi, &world.endpoint);
    ncsi_oem_discovery(&world.ncsi);
    for (ncsi_channel& each : world.ncsi.channels) {
        each.channel_id = 0;
    }
}
void release(World& world) {
    if (world.ncsi.mctp == &world.endpoint) {
        world.ncsi.mctp = nullptr;
    }
    ncsi_deinit(&world.ncsi);
}

const sideband_error& record(const World& world) {
    return *ncsi_last_error(&world.ncsi);
}

std::string stored_channel(const World& world) {
    const ncsi_channel& first = world.ncsi.channels[0];
    return listed(first.link_up, first.speed, first.autoneg_done, first.oem_valid, first.oem_flag,
                  first.oem_value);
}
void forget_channel(World& world) {
    ncsi_channel& first = channel(world);
    first.link_up = first.speed = first.autoneg_done = 0;
    first.oem_valid = first.oem_flag = 0;
    first.oem_value = 0;
}

template <auto kCommand, auto... kArguments>
int64_t command(World& world) {
    return kCommand(&channel(world), kArguments...);
}

std::vector<Scenario> life() {
    return {
        {.function = "ncsi_request_init",
         .call = [](World& world) -> int64_t { return ncsi_request_init(world.room.data()); }},
        {.function = "ncsi_last_error",
         .call = [](World& world) -> int64_t { return ncsi_last_error(&world.ncsi)->cause; }},
        {.function = "ncsi_init",
         .set_up = open,
         .call = [](World& world) -> int64_t { return ncsi_init(&world.ncsi, &world.endpoint); },
         .stored = [](const World& world) { return listed(world.ncsi.channel_num); },
         .again = [](World& world) { world.ncsi.channel_num = 0; },
         .release = release,
         .record = record,
         .failures = {-1},
         .owns = true,
         // A channel that does not answer is one that is not there.
         .does_without = {"lx_mutex_get"}},
        {.function = "ncsi_deinit",
         .set_up = ready,
         .call = [](World& world) -> int64_t { return ncsi_deinit(&world.ncsi); }},
        {.function = "ncsi_oem_init",
         .set_up = [](World& world) { ready_device(world, kController); },
         .call = [](World& world) -> int64_t {
             return ncsi_oem_init(&world.ncsi, &world.endpoint);
         },
         .release = release,
         .record = record},
        {.function = "ncsi_discovery",
         .set_up = ready,
         .call = [](World& world) -> int64_t { return ncsi_discovery(&world.ncsi); },
         .release = release,
         .record = record,
         .failures = {-1},
         // A channel that does not answer is one that is not there.
         .does_without = {"lx_mutex_get"}},
        {.function = "ncsi_oem_discovery",
         .set_up = lend,
         .call = [](World& world) -> int64_t { return ncsi_oem_discovery(&world.ncsi); },
         .release = release,
         .record = record,
         .failures = {-1},
         .does_without = {"lx_mutex_get", "i2c_chnl_mutex_get"}},
    };
}

std::vector<Scenario> commands() {
    std::vector<Scenario> all;
    const struct {
        const char* function;
        int64_t (*call)(World&);
    } functions[] = {
        {"ncsi_get_link_status", command<ncsi_get_link_status>},
        {"ncsi_select_package", command<ncsi_select_package, 0>},
        {"ncsi_deselect_package", command<ncsi_deselect_package, 0>},
        {"ncsi_oem_brcm_entry", command<ncsi_oem_brcm_entry, 0>},
        {"ncsi_oem_mx_entry", command<ncsi_oem_mx_entry, 3>},
        {"ncsi_oem_brcm_get_preboot_server_config",
         command<ncsi_oem_brcm_get_preboot_server_config>},
        {"ncsi_oem_brcm_set_preboot_server_config",
         command<ncsi_oem_brcm_set_preboot_server_config>},
        {"ncsi_oem_mx_get_card_tlv_info", command<ncsi_oem_mx_get_card_tlv_info>},
        {"ncsi_oem_mx_set_card_tlv_info", command<ncsi_oem_mx_set_card_tlv_info>},
        {"ncsi_oem_mx_get_pf_mac_address", command<ncsi_oem_mx_get_pf_mac_address>},
        {"ncsi_oem_mx_get_temperature", command<ncsi_oem_mx_get_temperature>},
    };
    const struct {
        const char* way;
        void (*set_up)(World&);
    } ways[] = {{"", ready}, {"lent", lend}};
    for (const auto& [way, set_up] : ways) {
        for (const auto& [function, call] : functions) {
            all.push_back({.function = function,
                           .way = way,
                           .set_up = set_up,
                           .call = call,
                           .stored = stored_channel,
                           .again = forget_channel,
                           .release = release,
                           .record = record,
                           .failures = {-1}});
        }
    }
    return all;
}

}  // namespace

std::vector<Scenario> ncsi_scenarios() {
    std::vector<Scenario> all = life();
    const std::vector<Scenario> more = commands();
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

}  // namespace sweep
