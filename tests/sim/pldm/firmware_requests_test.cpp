// SPDX-License-Identifier: Apache-2.0
// What a firmware device does if the agent is not ready, answers wrongly or falls silent; PCIe.
#include <algorithm>

#include "firmware_fixture.h"
#include "sim/mctp/pcie_fixture.h"

namespace {

using namespace sim_test;
using sim::PldmFirmwareState;

class FirmwareRequests : public FirmwareTest {
protected:
    void SetUp() override { open_with_metadata(); }
};

TEST_F(FirmwareRequests, PieceIsAskedForAgainWhereTheAgentIsNotReady) {
    start_download();
    asked();
    answer("15 89");
    EXPECT_EQ(asked(), "81 05 15 00 00 00 00 20 00 00 00");
    answer("15 00 0102");  // a piece of the wrong length
    EXPECT_EQ(asked(), "82 05 15 00 00 00 00 20 00 00 00");
    for (int i = 0; i < 7; ++i) {
        answer("15 89");
        EXPECT_EQ(asked().substr(6, 5), "15 00");
    }
    answer("15 89");
    EXPECT_EQ(asked().substr(6), "16 0a") << "that was the tenth time";
}

TEST_F(FirmwareRequests, AnswersThatFitNoRequestAreIgnored) {
    start_download();
    asked();
    const int right = instance;
    instance = right + 1;
    answer("15 00 " + hex(image_of(32)));
    instance = right;
    answer("16 00");
    tag = tag + 1;
    answer("15 00 " + hex(image_of(32)));
    tag = tag - 1;
    const std::string whole = hex_byte(instance) + " 05 15 00 " + hex(image_of(32));
    ASSERT_EQ(send(3, 0x64, "01 09 0a " + hex_byte(0xC0 | tag) + " 01 " + whole), 0)
        << "of another EID";
    board->advance_us(5'000'000);
    EXPECT_EQ(asked(), "80 05 15 00 00 00 00 20 00 00 00") << "repeated after a time";
    EXPECT_EQ(device->repeated(), 1u);
    answer("15 00 " + hex(image_of(32)));
    EXPECT_EQ(asked(), "81 05 15 20 00 00 00 20 00 00 00");
}

TEST_F(FirmwareRequests, UnansweredRequestIsRepeatedThreeTimesAndThenTheUpdateEnds) {
    start_download();
    const uint64_t start_us = board->now_us();
    std::string first = asked();
    for (int i = 0; i < 3; ++i) {
        std::string again = kSilence;
        while (again == kSilence) {
            again = asked();
        }
        EXPECT_EQ(again, first);
        EXPECT_GE(board->now_us() - start_us, 5'000'000u * static_cast<unsigned>(i + 1));
    }
    while (board->now_us() - start_us < 110'000'000) {
        ASSERT_EQ(asked(), kSilence);
    }
    EXPECT_EQ(device->state(), PldmFirmwareState::kDownload);
    board->advance_us(20'000'000);
    EXPECT_EQ(pldm(kCancelUpdate), "00 05 1d 80");
    EXPECT_EQ(pldm(kGetStatus), "00 05 1b 00 00 03 03 00 65 05 00 00 00 00") << "time-out";
    EXPECT_EQ(device->repeated(), 3u);
}

TEST_F(FirmwareRequests, EveryStateTimesOutUnderItsOwnReason) {
    start_ready();
    board->advance_us(119'000'000);
    EXPECT_EQ(pldm(kUpdateFirst).substr(0, 11), "00 05 14 00");
    asked();
    pldm(kCancelUpdate);
    pldm(kRequestUpdate);
    board->advance_us(120'000'000);
    EXPECT_EQ(pldm(kGetStatus), "00 05 1b 00 00 01 03 00 65 03 00 00 00 00");
    start_ready();
    board->advance_us(120'000'000);
    EXPECT_EQ(pldm(kGetStatus), "00 05 1b 00 00 02 03 00 65 04 00 00 00 00");
    device->settings().idle_us = 0;
    start_ready();
    board->advance_us(3'600'000'000);
    EXPECT_EQ(device->state(), PldmFirmwareState::kReadyXfer);
    EXPECT_EQ(pldm(kUpdateFirst).substr(0, 11), "00 05 14 00");
}

TEST_F(FirmwareRequests, LostPacketsAreMadeUpForByRepetition) {
    start_download();
    add_fault("p", R"({"kind": "lost", "after": 1, "every": 2, "count": 4})");
    EXPECT_EQ(asked(), "80 05 15 00 00 00 00 20 00 00 00");
    answer("15 00 " + hex(image_of(32)));
    std::string log;
    for (int waits = 0; waits < 100 && device->state() == PldmFirmwareState::kDownload; ++waits) {
        const std::string request = asked();
        if (request == kSilence) {
            continue;
        }
        log += request.substr(6, 5) + " ";
        answer(request.substr(6, 2) + " 00 " +
               (request.substr(6, 2) == "15" ? hex(sim::Bytes(32)) : ""));
    }
    EXPECT_EQ(log, "15 20 15 40 16 00 ");
    EXPECT_GE(device->repeated(), 2u);
}

// ---- PCIe ----

class FirmwareOnPcie : public PcieBoard {};

TEST_F(FirmwareOnPcie, DeviceAsksAndIsAnswered) {
    open(board_with(R"({"name": "p", "type": "pldm", "transport": "pcie", "bdf": "47:1f.0",
        "firmware": {"components": [{"identifier": 1, "active": "1"}]}})"));
    const auto ask = [&](const std::string& message) {
        plt_pcie_request request = to(0x47, 0x1F, 0, "01 " + message);
        return PltMCTP_WriteRead(&request) == 1 ? message_of(request).substr(3) : "nothing";
    };
    EXPECT_EQ(ask("80 05 10 80000000 0100 01 0000 01 00"), "00 05 10 00 00 00 00");
    EXPECT_EQ(ask("80 05 13 05 0a00 0100 00 00000000 01 00"), "00 05 13 00 00 00");
    EXPECT_EQ(ask("80 05 14 0a00 0100 00 00000000 c8000000 00000000 01 00"),
              "00 05 14 00 00 00 00 00 00 00 00 00");
    const sim::Bytes image = image_of(200);
    std::string log;
    plt_pcie_request request = reading();
    while (PltMCTP_WriteRead(&request) == 1) {
        const std::string asked = message_of(request).substr(3);
        log += asked.substr(6) + "; ";
        const std::vector<uint8_t> data = bytes(asked);
        std::string data_part;
        if (data[2] == 0x15) {
            sim::Bytes piece(sim::le32(data, 7));
            const uint32_t offset = sim::le32(data, 3);
            std::copy_n(image.begin() + offset, std::min<size_t>(piece.size(), 200 - offset),
                        piece.begin());
            data_part = hex(piece);
        }
        plt_pcie_request reply = to(
            0x47, 0x1F, 0,
            "01 " + hex({static_cast<uint8_t>(data[0] & 0x1F), 5, data[2]}) + " 00 " + data_part);
        reply.operation = PLT_PCIE_WRITE;
        reply.tag = request.tag;
        EXPECT_EQ(PltMCTP_WriteRead(&reply), 1);
        request = reading();
    }
    EXPECT_EQ(
        log, "15 00 00 00 00 80 00 00 00; 15 80 00 00 00 48 00 00 00; 16 00; 17 00; 18 00 00 00; ");
    EXPECT_TRUE(std::ranges::equal(board->firmware("p")->image(0), image));
    EXPECT_EQ(ask("80 05 1a 00"), "00 05 1a 00 00 00");
}

TEST_F(FirmwareOnPcie, AnswerGoesToTheEidThatItNames) {
    open(board_with(R"({"name": "p", "type": "pldm", "transport": "pcie", "bdf": "47:1f.0",
        "eid": 20, "firmware": {"get_package_data": true}})"));
    plt_pcie_request request = to(0x47, 0x1F, 0, "01 80 05 10 80000000 0100 01 0100 01 00");
    request.src_eid = 8;
    request.dest_eid = 20;
    ASSERT_EQ(PltMCTP_WriteRead(&request), 1);
    const auto answer_with = [&](uint8_t source, uint8_t destination) {
        plt_pcie_request asked = reading();
        ASSERT_EQ(PltMCTP_WriteRead(&asked), 1);
        EXPECT_EQ(asked.src_eid, 20);
        EXPECT_EQ(asked.dest_eid, 8u);
        plt_pcie_request reply = to(0x47, 0x1F, 0, "01 00 05 11 00 00000000 02 77");
        reply.message[1] = asked.message[1] & 0x1F;
        reply.operation = PLT_PCIE_WRITE;
        reply.tag = asked.tag;
        reply.src_eid = source;
        reply.dest_eid = destination;
        EXPECT_EQ(PltMCTP_WriteRead(&reply), 1);
    };
    answer_with(8, 20);
    EXPECT_EQ(board->firmware("p")->package_data().size(), 1u);
    answer_with(20, 8);
    EXPECT_EQ(board->firmware("p")->package_data().size(), 1u) << "as they were read: for nobody";
}

TEST_F(FirmwareOnPcie, UnansweredRequestIsRepeated) {
    open(board_with(R"({"name": "p", "type": "pldm", "transport": "pcie", "bdf": "47:1f.0",
        "firmware": {"get_package_data": true}})"));
    plt_pcie_request request = to(0x47, 0x1F, 0, "01 80 05 10 80000000 0100 01 0100 01 00");
    ASSERT_EQ(PltMCTP_WriteRead(&request), 1);
    request = reading();
    ASSERT_EQ(PltMCTP_WriteRead(&request), 1);
    const std::string first = message_of(request);
    EXPECT_EQ(first, "01 80 05 11 00 00 00 00 01");
    int waits = 0;
    for (request = reading(); PltMCTP_WriteRead(&request) != 1; request = reading()) {
        ASSERT_LT(++waits, 20);
    }
    EXPECT_EQ(message_of(request), first);
    EXPECT_EQ(waits, 5);
}

}  // namespace
