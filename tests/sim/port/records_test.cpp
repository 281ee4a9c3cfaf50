// SPDX-License-Identifier: Apache-2.0
// The platform's records: filled from the board file, and each board's own.
#include "port_fixture.h"

namespace {

using namespace sim_test;

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

}  // namespace
