// SPDX-License-Identifier: Apache-2.0
// The rest of the platform interface: records, power, logs, cards, time, and no board at all.
#include <sideband-sim/sim.h>
#include <sideband/mctp.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <ctime>

#include "board_test.h"

namespace {

using Texts = std::vector<std::string>;

class Port : public BoardTest {
protected:
    void SetUp() override {
        open(board_with(R"(
            {"name": "s", "type": "pldm", "bus": 3, "address": "0x64"},
            {"name": "m", "type": "pldm", "bus": 3, "address": "0x66", "standby": false})"));
    }
};

TEST_F(Port, SleepPassesInVirtualTimeOnly) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(usleep(30'000'000), 0);
    EXPECT_EQ(board->now_us(), 30'000'000u);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST_F(Port, TimeOfDayIsVirtual) {
    constexpr time_t kStart = 1'735'689'600;  // 2025-01-01 00:00:00 UTC
    EXPECT_EQ(time(nullptr), kStart);
    board->advance_us(61'900'000);
    time_t now = 0;
    EXPECT_EQ(time(&now), kStart + 61);
    EXPECT_EQ(now, kStart + 61);
    sim::Board::use(nullptr);
    const auto real = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    EXPECT_LE(real - 5, time(nullptr));
    EXPECT_GE(real + 5, time(nullptr));
}

TEST_F(Port, MainPowerIsSeenEverywhere) {
    uint8_t value = 0;
    _PltGPIO_RegRead(PLT_MAIN_POWER_REGISTER, 0, 0, &value);
    EXPECT_EQ(value, 1);
    EXPECT_EQ(PltCHASSIS_PowerStatus(), 1);
    board->set_main_power(false);
    _PltGPIO_RegRead(PLT_MAIN_POWER_REGISTER, 0, 0, &value);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(PltCHASSIS_PowerStatus(), 0);
}

TEST_F(Port, OtherRegistersAreLeftAlone) {
    uint8_t value = 0x55;
    EXPECT_NE(_PltGPIO_RegRead(0x9500000, 0, 0, &value), 0);
    EXPECT_NE(_PltGPIO_RegRead(PLT_MAIN_POWER_REGISTER, 1, 0, &value), 0);
    EXPECT_NE(_PltGPIO_RegRead(PLT_MAIN_POWER_REGISTER, 0, 0, nullptr), 0);
    EXPECT_EQ(value, 0x55);
}

TEST_F(Port, StandbyValuesReachTheRecords) {
    EXPECT_EQ(platform.standby_option, 0);
    EXPECT_EQ(GetS5stByPwrConfig(), 0);
    board->set_standby(1, 7, true);
    EXPECT_EQ(platform.standby_option, 1);
    EXPECT_EQ(at_p_St_GlobalVar->standby_override, 7);
    EXPECT_NE(GetS5stByPwrConfig(), 0);
}

TEST_F(Port, PowerKeysOfTheBoardFileReachTheRecords) {
    open(R"({"name": "off", "buses": [{"bus": 7}], "bmc": {"eid": 9, "address": "0x24"},
             "power": {"main": false, "standby_option": 1, "standby_override": 2,
                       "policy_off": true, "standby_devices": true}})");
    EXPECT_EQ(PltCHASSIS_PowerStatus(), 0);
    EXPECT_EQ(platform.standby_option, 1);
    EXPECT_EQ(at_p_St_GlobalVar->standby_override, 2);
    EXPECT_NE(GetS5stByPwrConfig(), 0);
    EXPECT_EQ(platform.flags, PLT_FLAG_STANDBY_DEVICES);
    EXPECT_EQ(platform.default_i2c_channel, 7);
    uint8_t address = 0;
    GetBMCCtrAdd(&address);
    EXPECT_EQ(address, 0x24);
    plt_parameters parameters{};
    EXPECT_NE(GlobalParaInit(&parameters), 0);
    EXPECT_EQ(parameters.bmc_eid, 9);
    EXPECT_EQ(parameters.i2c_channel, 0);
    EXPECT_EQ(GlobalParaInit(nullptr), 0);
}

TEST_F(Port, DeviceOnMainPowerVanishesWithItAndForgetsItsEid) {
    EXPECT_EQ(exchange(3, 0x66, "01 00 08 c9 00 80 01 00 10"), "01 08 10 c1 00 00 01 00 00 10 00");
    EXPECT_EQ(exchange(3, 0x64, "01 00 08 c9 00 80 01 00 11"), "01 08 11 c1 00 00 01 00 00 11 00");
    board->set_main_power(false);
    EXPECT_EQ(exchange(3, 0x66, "01 00 08 c9 00 80 02").substr(0, 5), "write");
    EXPECT_EQ(exchange(3, 0x64, "01 00 08 c9 00 80 02"), "01 08 11 c1 00 00 02 00 11 00 00");
    board->set_main_power(true);
    EXPECT_EQ(exchange(3, 0x66, "01 00 08 c9 00 80 02"), "01 08 00 c1 00 00 02 00 00 00 00");
}

TEST_F(Port, LogsKeepTheLastThousandLines) {
    ipmi_syslog("one %d\n", 1);
    console_log("two %s", "2");
    EXPECT_EQ(board->syslog(), Texts{"one 1"});
    EXPECT_EQ(board->console(), Texts{"two 2"});
    for (int i = 0; i < 1500; ++i) {
        console_log("line %d\n", i);
    }
    EXPECT_EQ(board->console().size(), 1000u);
    EXPECT_EQ(board->console().front(), "line 500");
    const std::string text(5000, 'x');
    ipmi_syslog("%s", text.c_str());
    EXPECT_EQ(board->syslog().back(), text);
}

TEST_F(Port, ShellCommandsAndProgressAreRecorded) {
    EXPECT_EQ(run_shellcmd("touch /nv/x"), 0);
    EXPECT_EQ(board->shell_commands(), Texts{"touch /nv/x"});
    TaskServiceUpdateTaskPercentage(5, 10);
    TaskServiceUpdateTaskPercentage(5, 90);
    EXPECT_EQ(board->task_percent(), (std::map<uint32_t, uint8_t>{{5, 90}}));
}

TEST_F(Port, BoardWithoutPcieFailsPcieCalls) {
    plt_pcie_request request{};
    request.operation = PLT_PCIE_WRITE_READ;
    request.length = 3;
    EXPECT_EQ(PltMCTP_WriteRead(&request), 0);
    EXPECT_EQ(request.length, 3u);
    // The driver is there all the same: services open a session for any update.
    plt_pcie_session session{};
    EXPECT_EQ(libmctp_pcie_open(&session), 0);
    request.session = session.handle;
    EXPECT_EQ(PltMCTP_WriteRead(&request), 0);
    libmctp_pcie_close(&session);
}

TEST_F(Port, SessionsAreCounted) {
    plt_pcie_session first{};
    plt_pcie_session second{};
    EXPECT_EQ(libmctp_pcie_open(&first), 0);
    EXPECT_EQ(libmctp_pcie_open(&second), 0);
    EXPECT_NE(second.handle, nullptr);
    EXPECT_EQ(board->pcie_sessions().open, 2u);
    libmctp_pcie_close(&second);
    EXPECT_EQ(second.handle, nullptr);
    libmctp_pcie_close(&second);
    EXPECT_EQ(board->pcie_sessions().open, 1u);
    EXPECT_EQ(board->pcie_sessions().stray_closes, 1u);
    libmctp_pcie_close(&first);
    libmctp_pcie_close(nullptr);
    EXPECT_EQ(board->pcie_sessions().open, 0u);
    EXPECT_EQ(board->pcie_sessions().opened, 2u);
}

TEST_F(Port, SessionCanBeRefused) {
    plt_pcie_session session{&session};
    board->set_pcie_open_fails(true);
    EXPECT_NE(libmctp_pcie_open(&session), 0);
    EXPECT_EQ(session.handle, nullptr);
    EXPECT_EQ(board->pcie_sessions().refused, 1u);
    board->set_pcie_open_fails(false);
    EXPECT_EQ(libmctp_pcie_open(&session), 0);
    libmctp_pcie_close(&session);
    open(R"({"name": "t", "buses": [{"bus": 7}], "platform": {"pcie_open_fails": true}})");
    EXPECT_NE(libmctp_pcie_open(&session), 0);
}

TEST_F(Port, CardsAreFoundByTheirPlaceOnPcie) {
    open(board_with(R"(
        {"name": "nic", "type": "pldm", "bus": 2, "address": "0x66",
         "mux": {"address": "0xe2", "channel": 5},
         "card": {"bdf": "41:02.0", "vendor_id": "0x15b3", "flags": "0x10000", "slot": 3}},
        {"name": "vdm", "type": "pldm", "transport": "pcie", "bdf": "42:00.0",
         "card": {"vendor_id": "0x14e4", "flags": "0x20000"}},
        {"name": "bare", "type": "pldm", "bus": 3, "address": "0x66"})"));
    std::optional<plt_card_info> nic = board->card("nic");
    ASSERT_TRUE(nic);
    EXPECT_EQ(nic->vendor_id, 0x15B3);
    EXPECT_EQ(nic->flags, PLT_CARD_NIC_SMBUS);
    EXPECT_EQ(nic->slot, 3);
    EXPECT_EQ(nic->slave_addr, 0);
    ASSERT_EQ(PCIEDeviceMux(nic->bus, nic->device, &*nic), 0);
    EXPECT_EQ(nic->i2c_channel, 2);
    EXPECT_EQ(nic->slave_addr, 0x66);
    EXPECT_EQ(hex({nic->mux, nic->mux + 6}), "02 e0 03 e2 05 00");
    std::optional<plt_card_info> vdm = board->card("vdm");
    ASSERT_TRUE(vdm);
    EXPECT_EQ(vdm->bus, 0x42);
    EXPECT_EQ(vdm->flags, PLT_CARD_NIC_PCIE);
    EXPECT_EQ(PCIEDeviceMux(0x42, 0, &*vdm), 0);
    EXPECT_EQ(vdm->slave_addr, 0);
    EXPECT_FALSE(board->card("bare"));
    EXPECT_FALSE(board->card("none"));
    EXPECT_NE(PCIEDeviceMux(0x41, 3, &*nic), 0);
    EXPECT_NE(PCIEDeviceMux(0x41, 2, nullptr), 0);
}

TEST_F(Port, BindingSetUpTakesTheCardsAddress) {
    plt_card_info card{};
    card.bus = 0x41;
    card.device = 3;
    card.slave_addr = 0x64;
    card.mux[0] = 1;
    card.mux[47] = 9;
    mctp_ctx ctx{};
    MCTP_binding_SMBUS(&ctx, 100, &card);
    EXPECT_EQ(ctx.binding_kind, MCTP_BINDING_KIND_SMBUS);
    EXPECT_EQ(ctx.bus, 2);  // channel 0 means the board's first bus
    EXPECT_EQ(ctx.slave_addr, 0x64);
    EXPECT_EQ(ctx.mux[0], 1);
    EXPECT_EQ(ctx.mux[47], 9);
    card.i2c_channel = 5;
    MCTP_binding_PCIE(&ctx, 100, &card);
    EXPECT_EQ(ctx.binding_kind, MCTP_BINDING_KIND_PCIE);
    EXPECT_EQ(ctx.bus, 5);
    EXPECT_EQ(ctx.pcie_bdf[0], 0x41);
    EXPECT_EQ(ctx.pcie_bdf[1], 3);
    EXPECT_EQ(ctx.pcie_bdf[2], 0);
}

TEST_F(Port, BoardsHaveRecordsOfTheirOwn) {
    at_p_St_GlobalVar->next_eid = 0x33;
    sim::BoardError error;
    std::unique_ptr<sim::Board> other = sim::Board::parse(board_with(""), error);
    ASSERT_TRUE(other);
    sim::Board::use(other.get());
    EXPECT_EQ(sim::Board::current(), other.get());
    EXPECT_EQ(at_p_St_GlobalVar->next_eid, 0);
    sim::Board::use(board.get());
    EXPECT_EQ(at_p_St_GlobalVar->next_eid, 0x33);
}

TEST(NoBoard, EveryCallFailsCleanly) {
    ASSERT_EQ(sim::Board::current(), nullptr);
    ASSERT_NE(at_p_St_GlobalVar, nullptr);
    ASSERT_NE(at_p_St_GlobalSecVar, nullptr);
    uint8_t byte = 0x20;
    std::vector<uint8_t> buffer(PLT_I2C_READ_BUFFER_SIZE);
    plt_i2c_request request{};
    request.write_data = buffer.data();
    EXPECT_NE(PltMCTPI2C_MasterWriteWithPEC_NoMutex(request), 0);
    EXPECT_NE(PltMCTPI2C_MasterWrite_NoMutex(request), 0);
    request.read_buffer = buffer.data();
    EXPECT_LT(PltMCTPI2C_SlaveReadWithPEC_NoMutex(request, 0), 0);
    EXPECT_NE(SetI2CMux(&request, buffer.data()), 0);
    EXPECT_NE(GetBMCCtrAdd(&byte), 0);
    EXPECT_EQ(byte, 0x20);
    EXPECT_NE(lx_mutex_get(&at_p_St_GlobalVar->global_lock, 0), 0);
    EXPECT_NE(lx_mutex_put(&at_p_St_GlobalVar->global_lock), 0);
    EXPECT_NE(i2c_chnl_mutex_get(2, 0), 0);
    EXPECT_NE(i2c_chnl_mutex_put(2), 0);
    plt_parameters parameters{};
    EXPECT_EQ(GlobalParaInit(&parameters), 0);
    EXPECT_NE(PltCHASSIS_PowerStatus(), 1);
    EXPECT_NE(GetS5stByPwrConfig(), 0);
    EXPECT_NE(_PltGPIO_RegRead(PLT_MAIN_POWER_REGISTER, 0, 0, &byte), 0);
    EXPECT_NE(run_shellcmd("true"), 0);
    ipmi_syslog("nobody %d", 1);
    console_log("nobody %d", 2);
    TaskServiceUpdateTaskPercentage(1, 2);
}

TEST(NoBoard, LibcIsItselfAgain) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(usleep(2'000), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2));
    EXPECT_NE(access("/sys/bus/i2c/devices/2-0010/mctp-slave-mqueue", F_OK), 0);
    EXPECT_EQ(system("exit 0"), 0);
}

TEST(SimC, OpensTheBuiltInBoard) {
    ASSERT_EQ(sideband_sim_open(nullptr), 0);
    ASSERT_NE(sim::Board::current(), nullptr);
    EXPECT_EQ(sim::Board::current()->endpoints().size(), 11u);
    sideband_sim_advance(1234);
    EXPECT_EQ(sim::Board::current()->now_us(), 1234u);
    ASSERT_EQ(sideband_sim_open(nullptr), 0);  // a fresh one
    EXPECT_EQ(sim::Board::current()->now_us(), 0u);
    sideband_sim_close();
    EXPECT_EQ(sim::Board::current(), nullptr);
    sideband_sim_advance(1);
    sideband_sim_close();
}

TEST(SimC, FileThatCannotBeReadIsOneLineOnStandardError) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(sideband_sim_open("/nonexistent/board.json"), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "/nonexistent/board.json: No such file or directory\n");
    EXPECT_EQ(sim::Board::current(), nullptr);
}

}  // namespace
