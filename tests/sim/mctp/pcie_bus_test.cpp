// SPDX-License-Identifier: Apache-2.0
// PCIe VDM on the simulated board: the request record, routing, tags, packets, time limits.
#include "pcie_fixture.h"
#include "sim/board/passing.h"

namespace {

using namespace sim_test;

const char* const kTerminus = R"({"name": "gpu0", "type": "pldm", "transport": "pcie",
    "bdf": "47:1f.7", "eid": 20, "tid": 5})";
const char* const kMpio = R"({"name": "mpio0", "type": "mpio", "transport": "pcie",
    "bdf": "00:00.0", "eid": 33})";
const std::string kBoth = std::string(kMpio) + "," + kTerminus;

using Pcie = PcieBoard;

TEST_F(Pcie, AnswerComesBackInTheRecordWithItsAddressing) {
    open(board_with(kTerminus));
    plt_pcie_request request = to(0x47, 0x1F, 7, "01 800002");
    request.dest_eid = 20;
    request.src_eid = 8;
    request.tag = 5;
    ASSERT_EQ(PltMCTP_WriteRead(&request), 1);
    EXPECT_EQ(message_of(request), "01 00 00 02 00 05");
    EXPECT_EQ(request.src_eid, 20);
    EXPECT_EQ(request.dest_eid, 8u);
    EXPECT_EQ(request.bus, 0x47u);
    EXPECT_EQ(request.device, 0x1Fu);
    EXPECT_EQ(request.function, 7u);
    EXPECT_EQ(request.tag, 5);
}

TEST_F(Pcie, LowThreeBitsOfTheTagGoOnTheWire) {
    open(board_with(kTerminus));
    plt_pcie_request request = to(0x47, 0x1F, 7, "01 800002");
    request.tag = 0x8A;
    ASSERT_EQ(PltMCTP_WriteRead(&request), 1);
    EXPECT_EQ(request.tag, 2);
}

TEST_F(Pcie, RoutedToTheRootComplexTheFunctionDoesNotMatter) {
    open(board_with(kBoth));
    plt_pcie_request request = to(0x47, 0x1F, 7, "00 8002");
    request.routing = PLT_PCIE_ROUTE_TO_ROOT_COMPLEX;
    ASSERT_EQ(PltMCTP_WriteRead(&request), 1);
    EXPECT_EQ(message_of(request), "00 00 02 00 21 12 00") << "a bus owner with a static EID";
    EXPECT_EQ(request.bus, 0u);
    EXPECT_EQ(request.src_eid, 33);
}

TEST_F(Pcie, TellsAnObserverOfEveryPacketAndOfTheOnesThatAreLost) {
    open(board_with(kTerminus));
    std::vector<std::string> seen;
    board->observe_packets([&seen](const sim::Passing& passing) {
        seen.push_back((passing.direction == sim::Direction::kFromBmc ? "> " : "< ") +
                       hex({passing.bdf.begin(), passing.bdf.end()}) +
                       (passing.taken ? ": " : " lost: ") +
                       hex({passing.packet.begin(), passing.packet.end()}));
    });
    plt_pcie_request request = to(0x47, 0x1F, 7, "01 800002");
    ASSERT_EQ(PltMCTP_WriteRead(&request), 1);
    request = to(0x47, 0x1F, 6, "01 800002");
    ASSERT_EQ(PltMCTP_WriteRead(&request), 0);
    const std::vector<std::string> wanted = {"> 47 1f 07: 01 00 00 c8 01 80 00 02",
                                             "< 47 1f 07: 01 00 14 c0 01 00 00 02 00 05",
                                             "> 47 1f 06 lost: 01 00 00 c8 01 80 00 02"};
    EXPECT_EQ(seen, wanted);
    EXPECT_EQ(board->pcie_statistics().packets, 2u);
}

TEST_F(Pcie, NobodyThereIsATimeOutOfASecondOrOfTheParameter) {
    open(board_with(kTerminus));
    plt_pcie_request request = to(0x47, 0x1F, 6, "01 800002");
    EXPECT_EQ(PltMCTP_WriteRead(&request), 0);
    EXPECT_EQ(board->now_us(), 1'000'000u);
    EXPECT_EQ(request.length, 4u) << "the record stays as it was";
    request.param = 20;
    EXPECT_EQ(PltMCTP_WriteRead(&request), 0);
    EXPECT_EQ(board->now_us(), 1'020'000u);
}

TEST_F(Pcie, WriteAndReadApart) {
    open(board_with(kTerminus));
    plt_pcie_request request = to(0x47, 0x1F, 7, "01 800002");
    request.operation = PLT_PCIE_WRITE;
    EXPECT_EQ(PltMCTP_WriteRead(&request), 1);
    plt_pcie_request received = reading();
    ASSERT_EQ(PltMCTP_WriteRead(&received), 1);
    EXPECT_EQ(message_of(received), "01 00 00 02 00 05");
    EXPECT_EQ(received.device, 0x1Fu);
    EXPECT_EQ(PltMCTP_WriteRead(&received), 0) << "there is only one";
}

TEST_F(Pcie, AnswerThatCameTooLateIsNotTakenForTheNextOne) {
    open(board_with(kTerminus));
    add_fault("gpu0", R"({"kind": "late", "delay_us": 1500000, "count": 1})");
    plt_pcie_request request = to(0x47, 0x1F, 7, "01 800002");
    EXPECT_EQ(PltMCTP_WriteRead(&request), 0);
    board->advance_us(2'000'000);
    plt_pcie_request next = to(0x47, 0x1F, 7, "01 800004");
    ASSERT_EQ(PltMCTP_WriteRead(&next), 1);
    EXPECT_EQ(message_of(next).substr(0, 17), "01 00 00 04 00 05");
}

TEST_F(Pcie, WrongTagIsNoAnswer) {
    open(board_with(kTerminus));
    add_fault("gpu0", R"({"kind": "wrong_tag", "count": 1})");
    plt_pcie_request request = to(0x47, 0x1F, 7, "01 800002");
    EXPECT_EQ(PltMCTP_WriteRead(&request), 0);
}

TEST_F(Pcie, MessagesTravelInPacketsOf64Bytes) {
    open(board_with(kTerminus));
    std::string hex_text = "01 800002";
    for (int i = 0; i < 124; ++i) {
        hex_text += " 00";
    }
    plt_pcie_request request = to(0x47, 0x1F, 7, hex_text);
    ASSERT_EQ(PltMCTP_WriteRead(&request), 1);
    EXPECT_EQ(message_of(request), "01 00 00 02 03") << "128 bytes: invalid length, but whole";
    const sim::PcieStatistics use = board->pcie_statistics();
    EXPECT_EQ(use.messages, 2u);
    EXPECT_EQ(use.packets, 3u);
    EXPECT_EQ(use.payload_bytes, 128u + 5u);
}

TEST_F(Pcie, RecordsThatMakeNoSenseAreRefused) {
    open(board_with(kTerminus));
    const plt_pcie_request good = to(0x47, 0x1F, 7, "01 800002");
    auto refused = [&](auto change) {
        plt_pcie_request request = good;
        change(request);
        return PltMCTP_WriteRead(&request) == 0 && board->pcie_statistics().packets == 0;
    };
    EXPECT_TRUE(refused([](auto& request) { request.length = 0; }));
    EXPECT_TRUE(refused([](auto& request) { request.length = 1037; }));
    EXPECT_TRUE(refused([](auto& request) { request.routing = 1; }));
    EXPECT_TRUE(refused([](auto& request) { request.bus = 256; }));
    EXPECT_TRUE(refused([](auto& request) { request.device = 32; }));
    EXPECT_TRUE(refused([](auto& request) { request.function = 8; }));
    EXPECT_TRUE(refused([](auto& request) { request.operation = 0; }));
    EXPECT_TRUE(refused([](auto& request) { request.session = &request; }));
    EXPECT_EQ(PltMCTP_WriteRead(nullptr), 0);
}

TEST_F(Pcie, SessionIsOpenedAndClosed) {
    open(board_with(kTerminus));
    plt_pcie_session session{};
    ASSERT_EQ(libmctp_pcie_open(&session), 0);
    ASSERT_NE(session.handle, nullptr);
    plt_pcie_request request = to(0x47, 0x1F, 7, "01 800002");
    request.session = session.handle;
    EXPECT_EQ(PltMCTP_WriteRead(&request), 1);
    libmctp_pcie_close(&session);
    EXPECT_EQ(session.handle, nullptr);
    EXPECT_NE(libmctp_pcie_open(nullptr), 0);
}

TEST_F(Pcie, FunctionWithoutPowerKeepsSilent) {
    open(board_with(R"({"name": "gpu0", "type": "pldm", "transport": "pcie", "bdf": "47:00.0",
                        "standby": false})"));
    board->set_main_power(false);
    plt_pcie_request request = to(0x47, 0, 0, "01 800002");
    EXPECT_EQ(PltMCTP_WriteRead(&request), 0);
    EXPECT_EQ(board->pcie_statistics().packets, 0u);
    board->set_main_power(true);
    EXPECT_EQ(PltMCTP_WriteRead(&request), 1);
}

TEST_F(Pcie, WhatWasOnItsWayWhenPowerWentNeverComes) {
    open(board_with(R"({"name": "gpu0", "type": "pldm", "transport": "pcie", "bdf": "47:00.0",
                        "standby": false, "response_us": 2000000})"));
    plt_pcie_request request = to(0x47, 0, 0, "01 800002");
    EXPECT_EQ(PltMCTP_WriteRead(&request), 0) << "too late";
    board->set_main_power(false);
    board->set_main_power(true);
    board->advance_us(3'000'000);
    EXPECT_EQ(board->pcie_statistics().packets, 1u) << "the request";
}

TEST_F(Pcie, BoardFileNamesWhatIsWrong) {
    const std::string head = R"({"name": "a", "type": "pldm", "transport": "pcie", )";
    for (const char* bdf : {"4:00.0", "47:20.0", "47:00.8", "47:0g.0", "47-00.0", ""}) {
        EXPECT_EQ(error_of(head + "\"bdf\": \"" + bdf + "\"}"),
                  "devices[0].bdf: must be bus, device and function in hex, such as 47:00.0");
    }
    EXPECT_EQ(error_of(head + R"("bdf": "47:00.0", "bus": 2})"), "devices[0].bus: no such key");
    EXPECT_EQ(error_of(std::string(kTerminus) + "," + head + R"("bdf": "47:1f.7"})"),
              "devices[1].bdf: is in use by gpu0");
    EXPECT_EQ(error_of(R"({"name": "m", "type": "mpio", "bus": 2, "address": "0x30"})"),
              "devices[0].transport: must be pcie for an mpio");
    EXPECT_EQ(error_of(R"({"name": "m", "type": "mpio", "transport": "pcie", "bdf": "01:00.0"})"),
              "devices[0].bdf: must be 00:00.0 for an mpio");
    EXPECT_EQ(error_of(R"({"name": "o", "type": "bus_owner", "transport": "pcie",
                           "bdf": "01:00.0", "assign": 9})"),
              "devices[0].eid: must not be 0 for a bus_owner");
}

}  // namespace
