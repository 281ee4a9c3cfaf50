// SPDX-License-Identifier: Apache-2.0
// The MPIO: discovery, its EID pool, the routing table in parts, refusals and delays.
#include "pcie_fixture.h"

namespace {

using namespace sim_test;

/// An MPIO with keys of its own, two functions without an EID, one with, and a bus owner.
std::string board_of(const std::string& keys) {
    return board_with(R"({"name": "mpio0", "type": "mpio", "transport": "pcie",
                          "bdf": "00:00.0")" +
                      keys + R"(},
        {"name": "a", "type": "pldm", "transport": "pcie", "bdf": "47:00.0"},
        {"name": "b", "type": "pldm", "transport": "pcie", "bdf": "47:1f.7"},
        {"name": "c", "type": "pldm", "transport": "pcie", "bdf": "c1:00.1", "eid": 100},
        {"name": "own0", "type": "bus_owner", "transport": "pcie", "bdf": "80:00.0", "eid": 64,
         "assign": 40})");
}

class MpioDevice : public PcieBoard {};

TEST_F(MpioDevice, AnswersTheBringUpInOrder) {
    open(board_of(""));
    EXPECT_EQ(ask_root_complex("80 0b"), "00 0b 00");
    EXPECT_EQ(ask_root_complex("81 0c"), "01 0c 00");
    EXPECT_EQ(ask_root_complex("82 01 00 10"), "02 01 00 01 10 03") << "wants a pool, for three";
    EXPECT_EQ(ask_root_complex("83 08 00 20 40"), "03 08 00 00 20 40");
    EXPECT_EQ(ask_root_complex("84 02"), "04 02 00 10 10 00") << "a bridge, dynamic EID";
    EXPECT_EQ(ask_root_complex("85 08 02 00 00"), "05 08 00 00 20 40") << "what is allocated";
}

TEST_F(MpioDevice, WantsNoLargerPoolThanThereCanBe) {
    std::string functions;
    for (int i = 0; i < 300; ++i) {
        functions += std::string(i != 0 ? "," : "") + R"({"name": "f)" + std::to_string(i) +
                     R"(", "type": "pldm", "transport": "pcie", "bdf": ")" +
                     hex({static_cast<uint8_t>(1 + i / 32)}) + ":" +
                     hex({static_cast<uint8_t>(i % 32)}) + R"(.0"})";
    }
    open(board_with(R"({"name": "m", "type": "mpio", "transport": "pcie", "bdf": "00:00.0"},)" +
                    functions));
    EXPECT_EQ(ask_root_complex("82 01 00 10"), "02 01 00 01 10 f7") << "EIDs 8 to 254";
    open(board_with(R"({"name": "m", "type": "mpio", "transport": "pcie", "bdf": "00:00.0"})"));
    EXPECT_EQ(ask_root_complex("82 01 00 10"), "02 01 00 00 10 00") << "none";
}

TEST_F(MpioDevice, KeepsSilentOnceItIsDiscovered) {
    open(board_of(""));
    EXPECT_EQ(ask_root_complex("80 01 00 10"), "00 01 00 01 10 03");
    EXPECT_EQ(ask_root_complex("81 0c"), "nothing");
    EXPECT_EQ(ask_root_complex("82 0b"), "02 0b 00");
    EXPECT_EQ(ask_root_complex("83 0c"), "03 0c 00");
}

TEST_F(MpioDevice, TableHasTheBridgeAndThenEachFunctionWithAnEid) {
    open(board_of(""));
    EXPECT_EQ(ask_root_complex("80 0a 00"), "00 0a 00 ff 01 01 64 00 02 0c 02 c1 01");
    ask_root_complex("80 01 00 10");
    ask_root_complex("80 08 00 20 40");
    EXPECT_EQ(ask_root_complex("80 0a 00"),
              "00 0a 00 ff 04 "
              "01 10 80 02 0c 02 00 00 "
              "01 41 00 02 0c 02 47 00 "
              "01 42 00 02 0c 02 47 ff "
              "01 64 00 02 0c 02 c1 01")
        << "64 is the EID of the owner";
}

TEST_F(MpioDevice, TableComesInParts) {
    open(board_of(R"(, "eid": 33, "entries_per_part": 2)"));
    ask_root_complex("80 08 00 20 48");
    EXPECT_EQ(ask_root_complex("80 0a 00"),
              "00 0a 00 02 02 01 21 80 02 0c 02 00 00 01 48 00 02 0c 02 47 00");
    EXPECT_EQ(ask_root_complex("80 0a 02"),
              "00 0a 00 ff 02 01 49 00 02 0c 02 47 ff 01 64 00 02 0c 02 c1 01");
    EXPECT_EQ(ask_root_complex("80 0a 04"), "00 0a 02") << "no such handle";
}

TEST_F(MpioDevice, SecondAllocationMovesThePool) {
    open(board_of(""));
    ask_root_complex("80 08 00 20 48");
    EXPECT_EQ(ask_root_complex("80 08 01 20 60"), "00 08 00 00 20 60");
    EXPECT_EQ(ask_root_complex("80 0a 00").substr(0, 38), "00 0a 00 ff 03 01 60 00 02 0c 02 47 00");
}

TEST_F(MpioDevice, PoolThatIsTooSmallLeavesFunctionsOut) {
    open(board_of(""));
    EXPECT_EQ(ask_root_complex("80 08 00 01 48"), "00 08 00 00 01 48");
    EXPECT_EQ(ask_root_complex("80 0a 00"),
              "00 0a 00 ff 02 01 48 00 02 0c 02 47 00 01 64 00 02 0c 02 c1 01");
}

TEST_F(MpioDevice, RefusesPoolsThatCannotBe) {
    open(board_of(""));
    EXPECT_EQ(ask_root_complex("80 08 00 00 40"), "00 08 02") << "empty";
    EXPECT_EQ(ask_root_complex("80 08 00 20 07"), "00 08 02") << "reserved EIDs";
    EXPECT_EQ(ask_root_complex("80 08 00 20 f0"), "00 08 02") << "past 254";
    EXPECT_EQ(ask_root_complex("80 08 03 20 40"), "00 08 02") << "reserved operation";
    EXPECT_EQ(ask_root_complex("80 08 00 20"), "00 08 03");
    EXPECT_EQ(ask_root_complex("80 0a"), "00 0a 03");
}

TEST_F(MpioDevice, StepsAreRefusedDelayedOrLeftUnanswered) {
    open(board_of(R"(, "steps": [
        {"command": "prepare_for_endpoint_discovery", "outcome": "refused",
         "completion_code": 5, "count": 1},
        {"command": "endpoint_discovery", "outcome": "not_ready", "after": 1, "count": 2},
        {"command": "get_endpoint_id", "outcome": "no_answer"},
        {"command": "allocate_endpoint_ids", "delay_us": 700000}])"));
    EXPECT_EQ(ask_root_complex("80 0b"), "00 0b 05");
    EXPECT_EQ(ask_root_complex("80 0b"), "00 0b 00");
    EXPECT_EQ(ask_root_complex("80 0c"), "00 0c 00");
    EXPECT_EQ(ask_root_complex("80 0c"), "00 0c 04");
    EXPECT_EQ(ask_root_complex("80 0c"), "00 0c 04");
    EXPECT_EQ(ask_root_complex("80 0c"), "00 0c 00");
    EXPECT_EQ(ask_root_complex("80 02"), "nothing");
    const uint64_t begin = board->now_us();
    EXPECT_EQ(ask_root_complex("80 08 00 20 40"), "00 08 00 00 20 40");
    EXPECT_GE(board->now_us() - begin, 700'000u);
}

TEST_F(MpioDevice, PlatformKeysSetTheRecords) {
    std::string text = board_of("");
    text.insert(1,
                R"("platform": {"identifier": "0x1d43", "mpio_state": 33, "mpio_ready": true},)");
    open(text);
    EXPECT_EQ(platform.identifier, PLT_IDENTIFIER_TURIN);
    EXPECT_EQ(board->mpio_state(), 33u);
    EXPECT_EQ(access("/nv/mpio.ready", F_OK), 0);
    sim::Board::use(nullptr);
    text.replace(text.find("33, \"mpio_ready\": true"), 22, "\"wanted\"");
    open(text);
    EXPECT_EQ(board->mpio_state(), PLT_MPIO_WANTED);
    EXPECT_EQ(at_p_St_GlobalVar->mpio_bringup_pending, 1);
    EXPECT_NE(access("/nv/mpio.ready", F_OK), 0);
}

}  // namespace
