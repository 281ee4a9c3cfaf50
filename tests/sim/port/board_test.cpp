// SPDX-License-Identifier: Apache-2.0
// The rest of the platform interface: power, logs, shell commands, and no board at all.
#include "port_fixture.h"

namespace {

using namespace sim_test;
using Texts = std::vector<std::string>;

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

}  // namespace
