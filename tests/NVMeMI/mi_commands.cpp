// SPDX-License-Identifier: Apache-2.0
// Every management command with its bytes, for tests that go through all of them.
#include "NVMeMI/mi_commands.h"

#include "NVMeMI/nvme_fixture.h"

namespace test {

namespace {

constexpr char kConfiguration[] = "fail to get NVMe-MI config\n";

int32_t get_frequency(nvmemi_ctx* ctx, MiRoom::Values& room) {
    return nvmemi_config_get_smbus_freq(ctx, 5, &room.frequency);
}
int32_t set_frequency(nvmemi_ctx* ctx, MiRoom::Values&) {
    return nvmemi_config_set_smbus_freq(ctx, 5, NVMEMI_SMBUS_400_KHZ);
}
int32_t get_health_change(nvmemi_ctx* ctx, MiRoom::Values&) {
    return nvmemi_config_get_health_status_change(ctx);
}
int32_t set_health_change(nvmemi_ctx* ctx, MiRoom::Values&) {
    const uint32_t changes = 0x12345678;
    return nvmemi_config_set_health_status_change(ctx, &changes);
}
int32_t get_unit_size(nvmemi_ctx* ctx, MiRoom::Values& room) {
    return nvmemi_config_get_mctp_tx_unit_size(ctx, 0xFF, &room.size);
}
int32_t set_unit_size(nvmemi_ctx* ctx, MiRoom::Values&) {
    return nvmemi_config_set_mctp_tx_unit_size(ctx, 0xFF, 0xABCD);
}
int32_t poll_subsystem(nvmemi_ctx* ctx, MiRoom::Values& room) {
    const uint32_t nmd1 = NVMEMI_HEALTH_CLEAR_STATUS;
    return nvmemi_nvm_subsystem_health_status_poll(ctx, &nmd1, &room.health);
}
int32_t poll_controllers(nvmemi_ctx* ctx, MiRoom::Values& room) {
    const uint32_t nmd0 = NVMEMI_CONTROLLER_POLL_SCTLID(0x1234) |
                          NVMEMI_CONTROLLER_POLL_MAXRENT(1) | NVMEMI_CONTROLLER_POLL_INCF |
                          NVMEMI_CONTROLLER_POLL_INCPF | NVMEMI_CONTROLLER_POLL_INCVF |
                          NVMEMI_CONTROLLER_POLL_ALL;
    const uint32_t nmd1 = 0x8000001F;
    return nvmemi_controller_health_status_poll(ctx, &nmd0, &nmd1, &room.count, room.controllers);
}
int32_t read_structure(nvmemi_ctx* ctx, MiRoom::Values& room) {
    const uint32_t nmd0 = NVMEMI_DS(NVMEMI_DTYP_CONTROLLER, 5, 0xABCD);
    return nvmemi_read_nvmemi_data_structure(ctx, &nmd0, room.data, sizeof room.data, &room.length);
}
int32_t reset(nvmemi_ctx* ctx, MiRoom::Values&) {
    return nvmemi_reset(ctx);
}
int32_t read_vpd(nvmemi_ctx* ctx, MiRoom::Values& room) {
    return nvmemi_vpd_read(ctx, 0, 32, room.data);
}
int32_t write_vpd(nvmemi_ctx* ctx, MiRoom::Values&) {
    const Bytes data = hex("aa bb cc");
    return nvmemi_vpd_write(ctx, data.data(), 0x0102, 3);
}

std::vector<MiCommand> configuration_commands() {
    return {
        {"GetSmbusFrequency", get_frequency,
         "01 1d 08 c9 84 08 00 00 04 00 00 00 01 00 00 05 00 00 00 00 19 fc a9 53", 7,
         mi_response(hex("32 00 00")), 5, kConfiguration},
        {"SetSmbusFrequency", set_frequency,
         "01 1d 08 c9 84 08 00 00 03 00 00 00 01 02 00 05 00 00 00 00 19 89 fa 15", 7,
         mi_response(), 4, kConfiguration},
        {"GetHealthStatusChange", get_health_change,
         "01 1d 08 c9 84 08 00 00 04 00 00 00 02 00 00 00 00 00 00 00 6c aa b9 50", 7,
         mi_response(), 4, kConfiguration},
        {"SetHealthStatusChange", set_health_change,
         "01 1d 08 c9 84 08 00 00 03 00 00 00 02 00 00 00 78 56 34 12 c8 d0 98 3c", 7,
         mi_response(), 4, kConfiguration},
        {"GetTransmissionUnitSize", get_unit_size,
         "01 1d 08 c9 84 08 00 00 04 00 00 00 03 00 00 ff 00 00 00 00 e8 b9 ed b9", 7,
         mi_response(hex("34 12 00")), 6, kConfiguration},
        {"SetTransmissionUnitSize", set_unit_size,
         "01 1d 08 c9 84 08 00 00 03 00 00 00 03 00 00 ff cd ab 00 00 ec 89 81 3e", 7,
         mi_response(), 4, kConfiguration},
    };
}

std::vector<MiCommand> further_commands() {
    return {
        {"SubsystemHealthPoll", poll_subsystem,
         "01 1d 08 c9 84 08 00 00 01 00 00 00 00 00 00 00 00 00 00 80 aa ef 81 b4", 15,
         mi_response(Bytes(3), hex("38 ff 2a 03 01 80 00 00")), 15,
         "fail to poll NVM subsystem health\n"},
        {"ControllerHealthPoll", poll_controllers,
         "01 1d 08 c9 84 08 00 00 02 00 00 00 34 12 01 87 1f 00 00 80 9c 04 e1 2c", 39,
         mi_response(hex("00 00 02"), hex("01 00 05 80 2c 01 07 64 02 11 11 11 11 11 11 11"
                                          "fe ff 01 40 3f 01 ff 0a 10 22 22 22 22 22 22 22")),
         39, "fail to poll controller health\n"},
        {"ReadDataStructure", read_structure,
         "01 1d 08 c9 84 08 00 00 00 00 00 00 cd ab 05 03 00 00 00 00 fc 4f f6 28", 5120,
         mi_response(hex("20 00 00"), counting(32, 0x40)), 39,
         "fail to send nvmemi data structure command\n"},
        {"Reset", reset, "01 1d 08 c9 84 08 00 00 07 00 00 00 00 00 00 00 00 00 00 00 72 2c 53 91",
         7, mi_response(), 4, "send reset command; no response as expected\n"},
        {"VpdRead", read_vpd,
         "01 1d 08 c9 84 08 00 00 05 00 00 00 00 00 00 00 20 00 00 00 99 90 95 24", 39,
         mi_response(Bytes(3), counting(32, 0x80)), 39, "fail to read VPD\n", 1},
        {"VpdWrite", write_vpd,
         "01 1d 08 c9 84 08 00 00 06 00 00 00 02 01 00 00 03 00 00 00 aa bb cc bf 7f d7 29", 7,
         mi_response(), 4, "fail to write VPD\n", 1},
    };
}

}  // namespace

const std::vector<MiCommand>& mi_commands() {
    static const std::vector<MiCommand> kAll = [] {
        std::vector<MiCommand> commands = configuration_commands();
        for (MiCommand& command : further_commands()) {
            commands.push_back(std::move(command));
        }
        return commands;
    }();
    return kAll;
}

std::string mi_command_name(size_t index) {
    return mi_commands()[index].name;
}

}  // namespace test
