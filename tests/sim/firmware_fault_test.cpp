// SPDX-License-Identifier: Apache-2.0
// What a firmware device does wrong, and what it does when the agent falls silent.
#include "firmware_test.h"
#include "pcie_test.h"

namespace {

using namespace sim_test;
using sim::FirmwareState;
using Kind = sim::FirmwareFault::Kind;

const std::string kSilence = "error -110";

class FirmwareFaults : public FirmwareTest {
protected:
    void SetUp() override { open_device(kTwoComponents + R"(, "metadata": "010203")"); }

    void start_ready() {
        pldm(kRequestUpdate);
        pldm(kPassFirst);
        pldm(kPassLast);
    }
    void start_transfer() {
        start_ready();
        pldm(kUpdateFirst);
    }
};

TEST_F(FirmwareFaults, AnyCompletionCodeForAnyCommandAtAnyTime) {
    struct Case {
        uint8_t command;
        std::string request;
    };
    const Case cases[] = {
        {sim::kFwQueryDeviceIdentifiers, "80 05 01"},
        {sim::kFwGetFirmwareParameters, "80 05 02"},
        {sim::kFwRequestUpdate, kRequestUpdate},
        {sim::kFwGetDeviceMetaData, "80 05 12 00000000 01"},
        {sim::kFwPassComponentTable, kPassFirst},
        {sim::kFwUpdateComponent, kUpdateFirst},
        {sim::kFwGetMetaData, "80 05 19 00000000 00"},
        {sim::kFwActivateFirmware, kActivate},
        {sim::kFwGetStatus, kGetStatus},
        {sim::kFwCancelUpdateComponent, kCancelComponent},
        {sim::kFwCancelUpdate, kCancelUpdate},
    };
    for (const Case& each : cases) {
        set_fault({Kind::kCompletionCode, each.command, 2, 2, 0x86});
        const std::string busy = "00 05 " + hex_byte(each.command) + " 86";
        EXPECT_NE(pldm(each.request), busy) << each.request;
        const FirmwareState state = device->state();
        EXPECT_EQ(pldm(each.request), busy);
        EXPECT_EQ(pldm(each.request), busy);
        EXPECT_EQ(device->state(), state) << "not acted upon";
        EXPECT_NE(pldm(each.request), busy);
    }
}

TEST_F(FirmwareFaults, CountOfZeroGoesOnForEver) {
    set_fault({Kind::kCompletionCode, sim::kFwRequestUpdate, 1, 0, 0x8E});
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(pldm(kRequestUpdate), "00 05 10 8e");
    }
    device->set_faults({});
    EXPECT_EQ(pldm(kRequestUpdate), "00 05 10 00 03 00 00");
}

TEST_F(FirmwareFaults, CommandWithoutAnAnswer) {
    set_fault({Kind::kNoAnswer, sim::kFwRequestUpdate});
    EXPECT_EQ(pldm(kRequestUpdate), kSilence);
    EXPECT_EQ(device->state(), FirmwareState::kIdle);
    EXPECT_EQ(pldm(kRequestUpdate), "00 05 10 00 03 00 00");
}

TEST_F(FirmwareFaults, AnswerOfAnotherCommandAndCutOne) {
    set_fault({Kind::kOtherCommand, sim::kFwGetFirmwareParameters, 1, 1, 0x01});
    EXPECT_EQ(pldm("80 05 02").substr(0, 11), "00 05 01 00");
    device->set_faults({{.kind = Kind::kTruncate, .command = sim::kFwGetStatus, .length = 6}});
    EXPECT_EQ(pldm(kGetStatus), "00 05 1b 00 00 00");
    EXPECT_EQ(pldm(kGetStatus), "00 05 1b 00 00 00 03 00 65 00 00 00 00 00");
}

TEST_F(FirmwareFaults, ComponentsRefused) {
    device->set_faults({{Kind::kRefuseComponent, sim::kFwPassComponentTable, 2, 1, 0x07},
                        {Kind::kRefuseComponent, sim::kFwUpdateComponent, 1, 1, 0xD0}});
    pldm(kRequestUpdate);
    EXPECT_EQ(pldm(kPassFirst), "00 05 13 00 00 00");
    EXPECT_EQ(pldm(kPassLast), "00 05 13 00 01 07");
    EXPECT_EQ(pldm(kUpdateFirst), "00 05 14 00 01 d0 00 00 00 00 00 00");
    EXPECT_EQ(device->state(), FirmwareState::kReadyXfer);
    EXPECT_EQ(pldm(kUpdateSecond), "00 05 14 00 00 00 00 00 00 00 00 00");
}

TEST_F(FirmwareFaults, ResultsOfTheThreeSteps) {
    const char* const logs[] = {"16 0b", "16 00 17 03", "16 00 17 00 18 02 00 00"};
    for (uint8_t step = 0; step < 3; ++step) {
        const auto command = static_cast<uint8_t>(sim::kFwTransferComplete + step);
        const uint8_t results[] = {0x0B, 0x03, 0x02};
        set_fault({Kind::kResult, command, 1, 1, results[step]});
        start_transfer();
        EXPECT_EQ(serve(image_of(80)).substr(17), logs[step]);
        EXPECT_EQ(pldm(kCancelComponent), "00 05 1c 00") << "it waits for that";
        EXPECT_EQ(pldm(kCancelUpdate).substr(0, 11), "00 05 1d 00");
    }
    set_fault({Kind::kResult, sim::kFwApplyComplete, 1, 1, 1});
    start_transfer();
    serve(image_of(80));
    EXPECT_EQ(device->state(), FirmwareState::kReadyXfer) << "success with a remark";
    EXPECT_EQ(device->transfer(0).apply_result, 1);
}

TEST_F(FirmwareFaults, StallsAtEachRequestOfItsOwn) {
    struct Case {
        uint8_t command;
        uint32_t at;
        std::string log;
        FirmwareState state;
    };
    const Case cases[] = {
        {sim::kFwRequestFirmwareData, 1, "", FirmwareState::kDownload},
        {sim::kFwRequestFirmwareData, 3, "0+32 32+32", FirmwareState::kDownload},
        {sim::kFwTransferComplete, 1, "0+32 32+32 64+32", FirmwareState::kDownload},
        {sim::kFwVerifyComplete, 1, "0+32 32+32 64+32 16 00", FirmwareState::kVerify},
        {sim::kFwApplyComplete, 1, "0+32 32+32 64+32 16 00 17 00", FirmwareState::kApply},
    };
    for (const Case& each : cases) {
        for (const Kind kind : {Kind::kStall, Kind::kDead}) {
            set_fault({kind, each.command, each.at});
            start_transfer();
            EXPECT_EQ(serve(image_of(80)), each.log);
            EXPECT_EQ(device->state(), each.state);
            if (kind == Kind::kStall) {
                EXPECT_EQ(pldm(kCancelUpdate).substr(0, 11), "00 05 1d 00");
                EXPECT_EQ(device->count(each.command), each.at);
            } else {
                EXPECT_EQ(pldm(kCancelUpdate), kSilence);
                EXPECT_EQ(pldm("80 00 02"), "00 00 02 00 01") << "the terminus lives on";
            }
            SetUp();
        }
    }
}

TEST_F(FirmwareFaults, DeadFromARequestOfTheAgentOn) {
    for (const uint8_t command :
         {sim::kFwRequestUpdate, sim::kFwPassComponentTable, sim::kFwUpdateComponent}) {
        SetUp();
        set_fault({Kind::kDead, command});
        pldm(kRequestUpdate);
        pldm(kPassFirst);
        pldm(kPassLast);
        EXPECT_EQ(pldm(kUpdateFirst), kSilence);
        EXPECT_EQ(pldm(kGetStatus), kSilence);
    }
}

TEST_F(FirmwareFaults, PowerCycleWakesADeadDevice) {
    open_terminus("\"standby\": false, \"firmware\": {" + kTwoComponents + "}");
    device = board->firmware("p");
    set_fault({Kind::kDead, sim::kFwGetStatus});
    EXPECT_EQ(pldm(kGetStatus), kSilence);
    board->set_main_power(false);
    board->set_main_power(true);
    EXPECT_EQ(pldm(kGetStatus), "00 05 1b 00 00 00 03 00 65 00 00 00 00 00");
}

TEST_F(FirmwareFaults, ResetForgetsTheUpdate) {
    set_fault({Kind::kReset, sim::kFwRequestFirmwareData, 2});
    start_transfer();
    EXPECT_EQ(serve(image_of(80)), "0+32");
    EXPECT_EQ(device->state(), FirmwareState::kIdle);
    EXPECT_EQ(pldm(kCancelComponent), "00 05 1c 80");
    EXPECT_EQ(pldm(kActivate), "00 05 1a 80");
    set_fault({Kind::kReset, sim::kFwUpdateComponent});
    start_ready();
    EXPECT_EQ(pldm(kUpdateFirst), "00 05 14 80");
}

TEST_F(FirmwareFaults, AsksForSomethingElseInBetween) {
    device->set_faults({{.kind = Kind::kAsk,
                         .command = sim::kFwRequestFirmwareData,
                         .at = 2,
                         .count = 2,
                         .offset = 0xFFFFFFF0,
                         .length = 32}});
    start_transfer();
    EXPECT_EQ(serve(image_of(80)),
              "0+32 4294967280+32 4294967280+32 32+32 64+32 16 00 17 00 18 00 00 00");
    EXPECT_TRUE(std::ranges::equal(device->image(0), image_of(80)));
    EXPECT_EQ(device->transfer(0).pieces, 3u);
}

TEST_F(FirmwareFaults, RepeatsAPieceOnceOrForEver) {
    set_fault({Kind::kRepeat, sim::kFwRequestFirmwareData, 2});
    start_transfer();
    EXPECT_EQ(serve(image_of(80)), "0+32 32+32 32+32 64+32 16 00 17 00 18 00 00 00");
    EXPECT_EQ(device->transfer(0).bytes, 80u);
    pldm(kCancelUpdate);
    set_fault({Kind::kRepeat, sim::kFwRequestFirmwareData, 1, 0});
    start_transfer();
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(asked().substr(6), "15 00 00 00 00 20 00 00 00");
        answer("15 00 " + hex(sim::Bytes(32)));
    }
}

TEST_F(FirmwareFaults, NeverFinishesTheDownload) {
    set_fault({Kind::kEndless, sim::kFwRequestFirmwareData, 1, 0});
    start_transfer();
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(asked().substr(6, 5), i % 3 == 0 ? "15 00" : i % 3 == 1 ? "15 20" : "15 40");
        answer("15 00 " + hex(sim::Bytes(32)));
    }
    EXPECT_EQ(device->transfer(0).pieces, 3u);
}

TEST_F(FirmwareFaults, EndlessMetadata) {
    set_fault({Kind::kEndless, sim::kFwGetDeviceMetaData, 1, 0});
    pldm(kRequestUpdate);
    EXPECT_EQ(pldm("80 05 12 00000000 01"), "00 05 12 00 03 00 00 00 01 01 02 03");
    EXPECT_EQ(pldm("80 05 12 03000000 00"), "00 05 12 00 06 00 00 00 02 01 02 03");
    EXPECT_EQ(pldm("80 05 12 06000000 00"), "00 05 12 00 09 00 00 00 02 01 02 03");
}

TEST_F(FirmwareFaults, PackageDataAskedForWrongly) {
    open_device(R"("get_package_data": true)");
    const std::string request = "80 05 10 20000000 0100 01 0600 01 01 41";
    device->set_faults({{Kind::kHandle, sim::kFwGetPackageData, 2, 1, 0xDEADBEEF},
                        {Kind::kFlag, sim::kFwGetPackageData, 1, 1, 0},
                        {Kind::kEndless, sim::kFwGetPackageData, 2, 2}});
    pldm(request);
    EXPECT_EQ(asked(), "80 05 11 00 00 00 00 00");
    answer("11 00 01000000 01 11");
    EXPECT_EQ(asked(), "81 05 11 ef be ad de 00");
    answer("11 00 02000000 05 22");
    EXPECT_EQ(asked(), "82 05 11 02 00 00 00 00") << "although that was the end";
    answer("11 00 03000000 05 33");
    EXPECT_EQ(asked(), "83 05 11 03 00 00 00 00");
    answer("11 00 03000000 05 44");
    EXPECT_EQ(asked(), kSilence);
}

TEST_F(FirmwareFaults, StepsOutOfOrder) {
    device->set_faults({{Kind::kSendInstead, sim::kFwRequestFirmwareData, 2, 1, 0x18},
                        {Kind::kSendInstead, sim::kFwTransferComplete, 1, 1, 0x17}});
    start_transfer();
    EXPECT_EQ(serve(image_of(80)), "0+32 18 00 00 00 32+32 64+32 17 00 16 00 17 00 18 00 00 00");
}

TEST_F(FirmwareFaults, RequestCutShort) {
    device->set_faults(
        {{.kind = Kind::kTruncate, .command = sim::kFwRequestFirmwareData, .length = 5}});
    start_transfer();
    EXPECT_EQ(asked(), "80 05 15 00 00");
    answer("15 83");
    EXPECT_EQ(asked(), "81 05 16 0a") << "the agent has refused the piece";
}

// ---- The agent's side goes wrong ----------------------------------------------------------------

TEST_F(FirmwareFaults, PieceIsAskedForAgainWhereTheAgentIsNotReady) {
    start_transfer();
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

TEST_F(FirmwareFaults, AnswersThatFitNoRequestAreIgnored) {
    start_transfer();
    asked();
    const int right = instance;
    instance = right + 1;
    answer("15 00 " + hex(image_of(32)));
    instance = right;
    answer("16 00");
    board->advance_us(5'000'000);
    EXPECT_EQ(asked(), "80 05 15 00 00 00 00 20 00 00 00") << "repeated after a time";
    EXPECT_EQ(device->repeated(), 1u);
    answer("15 00 " + hex(image_of(32)));
    EXPECT_EQ(asked(), "81 05 15 20 00 00 00 20 00 00 00");
}

TEST_F(FirmwareFaults, UnansweredRequestIsRepeatedThreeTimesAndThenTheUpdateEnds) {
    start_transfer();
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
    EXPECT_EQ(device->state(), FirmwareState::kDownload);
    board->advance_us(20'000'000);
    EXPECT_EQ(pldm(kCancelUpdate), "00 05 1d 80");
    EXPECT_EQ(pldm(kGetStatus), "00 05 1b 00 00 03 03 00 65 05 00 00 00 00") << "time-out";
    EXPECT_EQ(device->repeated(), 3u);
}

TEST_F(FirmwareFaults, EveryStateTimesOutUnderItsOwnReason) {
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
    EXPECT_EQ(device->state(), FirmwareState::kReadyXfer);
    EXPECT_EQ(pldm(kUpdateFirst).substr(0, 11), "00 05 14 00");
}

TEST_F(FirmwareFaults, LostPacketsAreMadeUpForByRepetition) {
    start_transfer();
    add_fault("p", R"({"kind": "lost", "after": 1, "every": 2, "count": 4})");
    EXPECT_EQ(asked(), "80 05 15 00 00 00 00 20 00 00 00");
    answer("15 00 " + hex(image_of(32)));
    std::string log;
    for (int waits = 0; waits < 100 && device->state() == FirmwareState::kDownload; ++waits) {
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

// ---- Board files --------------------------------------------------------------------------------

/// What is wrong with a "firmware" object: line within it, key, text.
std::string firmware_refusal(const std::string& keys) {
    const std::string text = refusal_of(terminus_with("\"firmware\": {" + keys + "}"));
    const std::string path = "devices[0].firmware";
    const size_t at = text.find(path);
    return at == std::string::npos ? text : text.substr(at + path.size());
}

std::string fault_refusal(const std::string& keys) {
    return firmware_refusal("\"faults\": [{" + keys + "}]");
}

TEST(FirmwareFile, FaultsAreRead) {
    sim::BoardError error;
    auto board = sim::Board::parse(terminus_with(R"("firmware": {"faults": [
        {"kind": "completion_code", "command": "request_update", "value": "0x8e"},
        {"kind": "ask", "command": 21, "at": 2, "count": 0, "offset": 7, "length": 9},
        {"kind": "send_instead", "command": "transfer_complete", "value": "apply_complete"}]})"),
                                   error);
    ASSERT_TRUE(board) << error.message("board");
    const std::vector<sim::FirmwareFault>& faults = board->firmware("p")->settings().faults;
    ASSERT_EQ(faults.size(), 3u);
    EXPECT_EQ(faults[0].kind, Kind::kCompletionCode);
    EXPECT_EQ(faults[0].command, 0x10);
    EXPECT_EQ(faults[0].at, 1u);
    EXPECT_EQ(faults[0].count, 1u);
    EXPECT_EQ(faults[0].value, 0x8Eu);
    EXPECT_EQ(faults[1].kind, Kind::kAsk);
    EXPECT_EQ(faults[1].command, 0x15);
    EXPECT_EQ(faults[1].at, 2u);
    EXPECT_EQ(faults[1].count, 0u);
    EXPECT_EQ(faults[1].offset, 7u);
    EXPECT_EQ(faults[1].length, 9u);
    EXPECT_EQ(faults[2].kind, Kind::kSendInstead);
    EXPECT_EQ(faults[2].value, 0x18u);
}

TEST(FirmwareFile, MistakesAreNamed) {
    EXPECT_EQ(firmware_refusal(R"("size": 1)"), ".size: no such key");
    EXPECT_EQ(firmware_refusal(R"("active": 5)"), ".active: must be an object");
    EXPECT_EQ(firmware_refusal(R"("active": ")" + std::string(256, 'x') + "\""),
              ".active: must have at most 255 bytes of text");
    EXPECT_EQ(firmware_refusal(R"("active": {"text": "1", "date": "2024"})"),
              ".active.date: must have 8 characters");
    EXPECT_EQ(firmware_refusal(R"("identifiers_hex": "00", "descriptors": [])"),
              ".descriptors: cannot stand beside identifiers_hex");
    EXPECT_EQ(firmware_refusal(R"("descriptors": [{"type": "isbn", "hex": ""}])"),
              ".descriptors[0].type: must be a whole number from 0 to 65535");
    EXPECT_EQ(firmware_refusal(R"("components": [{"identifier": 1}])"),
              ".components[0].active: is missing");
    EXPECT_EQ(firmware_refusal(R"("components": [{"identifier": 1, "active": "1",
        "expect_hex": "00", "expect_file": "x"}])"),
              ".components[0].expect_file: cannot stand beside expect_hex");
    EXPECT_EQ(firmware_refusal(R"("order": "sorted")"),
              ".order: must be one of ascending, descending, interleaved, random");
    EXPECT_EQ(fault_refusal(R"("kind": "dead")"), ".faults[0].command: is missing");
    EXPECT_EQ(fault_refusal(R"("kind": "ask", "command": "get_status")"),
              ".faults[0].command: does not go with that kind");
    EXPECT_EQ(fault_refusal(R"("kind": "result", "command": 22)"), ".faults[0].value: is missing");
    EXPECT_EQ(fault_refusal(R"("kind": "stall", "command": 22, "at": 0)"),
              ".faults[0].at: must be a whole number from 1 to 1000000000");
    EXPECT_EQ(fault_refusal(R"("kind": "stall", "command": 22, "value": 1)"),
              ".faults[0].value: no such key");
}

// ---- PCIe, cards, sessions ----------------------------------------------------------------------

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
