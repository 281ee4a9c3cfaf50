// SPDX-License-Identifier: Apache-2.0
// What a firmware device does wrong: every kind of fault, at every step.
#include <algorithm>

#include "firmware_fixture.h"

namespace {

using namespace sim_test;
using sim::PldmFirmwareState;
using Kind = sim::PldmFirmwareFault::Kind;

class FirmwareFaults : public FirmwareTest {
protected:
    void SetUp() override { open_with_metadata(); }
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
        const PldmFirmwareState state = device->state();
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
    EXPECT_EQ(device->state(), PldmFirmwareState::kIdle);
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
    EXPECT_EQ(device->state(), PldmFirmwareState::kReadyXfer);
    EXPECT_EQ(pldm(kUpdateSecond), "00 05 14 00 00 00 00 00 00 00 00 00");
}

TEST_F(FirmwareFaults, ResultsOfTheThreeSteps) {
    const char* const logs[] = {"16 0b", "16 00 17 03", "16 00 17 00 18 02 00 00"};
    for (uint8_t step = 0; step < 3; ++step) {
        const auto command = static_cast<uint8_t>(sim::kFwTransferComplete + step);
        const uint8_t results[] = {0x0B, 0x03, 0x02};
        set_fault({Kind::kResult, command, 1, 1, results[step]});
        start_download();
        EXPECT_EQ(serve(image_of(80)).substr(17), logs[step]);
        EXPECT_EQ(pldm(kCancelComponent), "00 05 1c 00") << "it waits for that";
        EXPECT_EQ(pldm(kCancelUpdate).substr(0, 11), "00 05 1d 00");
    }
    set_fault({Kind::kResult, sim::kFwApplyComplete, 1, 1, 1});
    start_download();
    serve(image_of(80));
    EXPECT_EQ(device->state(), PldmFirmwareState::kReadyXfer) << "success with a remark";
    EXPECT_EQ(device->transfer(0).apply_result, 1);
}

TEST_F(FirmwareFaults, StallsAtEachRequestOfItsOwn) {
    struct Case {
        uint8_t command;
        uint32_t at;
        std::string log;
        PldmFirmwareState state;
    };
    const Case cases[] = {
        {sim::kFwRequestFirmwareData, 1, "", PldmFirmwareState::kDownload},
        {sim::kFwRequestFirmwareData, 3, "0+32 32+32", PldmFirmwareState::kDownload},
        {sim::kFwTransferComplete, 1, "0+32 32+32 64+32", PldmFirmwareState::kDownload},
        {sim::kFwVerifyComplete, 1, "0+32 32+32 64+32 16 00", PldmFirmwareState::kVerify},
        {sim::kFwApplyComplete, 1, "0+32 32+32 64+32 16 00 17 00", PldmFirmwareState::kApply},
    };
    for (const Case& each : cases) {
        for (const Kind kind : {Kind::kStall, Kind::kDead}) {
            set_fault({kind, each.command, each.at});
            start_download();
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
    start_download();
    EXPECT_EQ(serve(image_of(80)), "0+32");
    EXPECT_EQ(device->state(), PldmFirmwareState::kIdle);
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
    start_download();
    EXPECT_EQ(serve(image_of(80)),
              "0+32 4294967280+32 4294967280+32 32+32 64+32 16 00 17 00 18 00 00 00");
    EXPECT_TRUE(std::ranges::equal(device->image(0), image_of(80)));
    EXPECT_EQ(device->transfer(0).pieces, 3u);
}

TEST_F(FirmwareFaults, RepeatsAPieceOnceOrForEver) {
    set_fault({Kind::kRepeat, sim::kFwRequestFirmwareData, 2});
    start_download();
    EXPECT_EQ(serve(image_of(80)), "0+32 32+32 32+32 64+32 16 00 17 00 18 00 00 00");
    EXPECT_EQ(device->transfer(0).bytes, 80u);
    pldm(kCancelUpdate);
    set_fault({Kind::kRepeat, sim::kFwRequestFirmwareData, 1, 0});
    start_download();
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(asked().substr(6), "15 00 00 00 00 20 00 00 00");
        answer("15 00 " + hex(sim::Bytes(32)));
    }
}

TEST_F(FirmwareFaults, NeverFinishesTheDownload) {
    set_fault({Kind::kEndless, sim::kFwRequestFirmwareData, 1, 0});
    start_download();
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
    start_download();
    EXPECT_EQ(serve(image_of(80)), "0+32 18 00 00 00 32+32 64+32 17 00 16 00 17 00 18 00 00 00");
}

TEST_F(FirmwareFaults, RequestCutShort) {
    device->set_faults(
        {{.kind = Kind::kTruncate, .command = sim::kFwRequestFirmwareData, .length = 5}});
    start_download();
    EXPECT_EQ(asked(), "80 05 15 00 00");
    answer("15 83");
    EXPECT_EQ(asked(), "81 05 16 0a") << "the agent has refused the piece";
}

}  // namespace
