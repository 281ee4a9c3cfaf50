// SPDX-License-Identifier: Apache-2.0
// The firmware device of a terminus: every command of an update, byte by byte (DSP0267).
#include <algorithm>

#include "firmware_fixture.h"

namespace {

using namespace sim_test;
using sim::PldmFirmwareState;

class FirmwareCommands : public FirmwareTest {};

TEST_F(FirmwareCommands, TerminusTellsThatItSpeaksTheType) {
    open_device();
    EXPECT_EQ(pldm("80 00 04"), "00 00 04 00 25 00 00 00 00 00 00 00");
    EXPECT_EQ(pldm("80 00 03 00000000 01 05"),
              "00 00 03 00 00 00 00 00 05 00 f0 f0 f1 fb 8f 86 4a");
    EXPECT_EQ(pldm("80 00 05 05 00f0f0f1").substr(0, 24), "00 00 05 00 06 00 1d 3e ");
}

TEST_F(FirmwareCommands, TerminusWithoutFirmwareDoesNot) {
    open_terminus(R"("tid": 1)");
    EXPECT_EQ(board->firmware("p"), nullptr);
    EXPECT_EQ(board->firmware("q"), nullptr);
    EXPECT_EQ(pldm("80 05 01"), "00 05 01 20");
}

TEST_F(FirmwareCommands, DescriptorsOfTheBoardFile) {
    open_device(R"("descriptors": [{"type": "pci_vendor_id", "hex": "b315"},
        {"type": 257, "hex": "0102", "claimed_length": 9}])");
    EXPECT_EQ(pldm("80 05 01"), "00 05 01 00 0c 00 00 00 02 00 00 02 00 b3 15 01 01 09 00 01 02");
    open_device(R"("identifiers_hex": "ffffffff09")");
    EXPECT_EQ(pldm("80 05 01"), "00 05 01 00 ff ff ff ff 09");
    EXPECT_EQ(pldm("80 05 01 00"), "00 05 01 03");
}

TEST_F(FirmwareCommands, ParametersOfTheBoardFile) {
    open_device(kTwoComponents + R"(, "capabilities": 5, "pending": {"text": "P", "type": 2})");
    EXPECT_EQ(pldm("80 05 02"),
              "00 05 02 00 05 00 00 00 02 00 01 05 02 01 4f 4c 44 2d 31 50 "
              "0a 00 01 00 07 10 00 00 00 01 03 00 00 00 00 00 00 00 00 "
              "00 00 00 00 00 00 00 00 00 00 00 00 00 00 02 00 00 00 00 00 31 2e 30 "
              "0a 00 02 00 00 20 00 00 00 01 03 32 30 32 34 30 31 33 31 "
              "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 32 2e 30");
    open_device(R"("parameters_hex": "00")");
    EXPECT_EQ(pldm("80 05 02"), "00 05 02 00 00");
    device->settings().parameters = sim::Bytes{1, 2};
    EXPECT_EQ(pldm("80 05 02"), "00 05 02 00 01 02");
}

TEST_F(FirmwareCommands, EveryCommandOfAnUpdateNeedsOne) {
    open_device();
    EXPECT_EQ(pldm("80 05 12 00000000 01"), "00 05 12 80");
    EXPECT_EQ(pldm(kPassFirst), "00 05 13 80");
    EXPECT_EQ(pldm(kUpdateFirst), "00 05 14 80");
    EXPECT_EQ(pldm("80 05 19 00000000 00"), "00 05 19 80");
    EXPECT_EQ(pldm(kActivate), "00 05 1a 80");
    EXPECT_EQ(pldm(kCancelComponent), "00 05 1c 80");
    EXPECT_EQ(pldm(kCancelUpdate), "00 05 1d 80");
    EXPECT_EQ(pldm(kGetStatus), "00 05 1b 00 00 00 03 00 65 00 00 00 00 00");
    EXPECT_EQ(pldm("80 05 15 00000000 20000000"), "00 05 15 05") << "the device sends this one";
}

TEST_F(FirmwareCommands, RequestUpdateIsChecked) {
    open_device();
    EXPECT_EQ(pldm("80 05 10 1f000000 0100 01 0000 01 01 41"), "00 05 10 02") << "31 bytes";
    EXPECT_EQ(pldm("80 05 10 20000000 0100 00 0000 01 01 41"), "00 05 10 02") << "no request";
    EXPECT_EQ(pldm("80 05 10 20000000 0100 01 0000 01 02 41"), "00 05 10 03");
    EXPECT_EQ(pldm("80 05 10 20000000 0100 01 0000 01"), "00 05 10 03");
    EXPECT_EQ(device->state(), PldmFirmwareState::kIdle);
    EXPECT_EQ(pldm(kRequestUpdate), "00 05 10 00 00 00 00");
    EXPECT_EQ(device->state(), PldmFirmwareState::kLearnComponents);
    EXPECT_EQ(pldm(kRequestUpdate), "00 05 10 81");
}

TEST_F(FirmwareCommands, PackageDataAreFetchedInParts) {
    open_device(R"("get_package_data": true)");
    EXPECT_EQ(pldm("80 05 10 20000000 0100 01 0600 01 01 41"), "00 05 10 00 00 00 01");
    EXPECT_EQ(asked(), "80 05 11 00 00 00 00 01");
    answer("11 00 a1000000 01 1112");
    EXPECT_EQ(asked(), "81 05 11 a1 00 00 00 00");
    answer("11 00 a2000000 02 1314");
    EXPECT_EQ(asked(), "82 05 11 a2 00 00 00 00");
    answer("11 00 00000000 04 1516");
    EXPECT_EQ(asked().substr(0, 5), "error");
    EXPECT_EQ(hex({device->package_data().begin(), device->package_data().end()}),
              "11 12 13 14 15 16");
    EXPECT_EQ(pldm(kCancelUpdate), "00 05 1d 00 00 00 00 00 00 00 00 00 00");
    EXPECT_EQ(device->state(), PldmFirmwareState::kIdle);
    // Without package data there is nothing to fetch.
    EXPECT_EQ(pldm("80 05 10 20000000 0100 01 0000 01 01 41"), "00 05 10 00 00 00 00");
    EXPECT_EQ(asked().substr(0, 5), "error");
}

TEST_F(FirmwareCommands, PackageDataInOnePartAndRefused) {
    open_device(R"("get_package_data": true)");
    pldm("80 05 10 20000000 0100 01 0600 01 01 41");
    asked();
    answer("11 00 00000000 05 99");
    EXPECT_EQ(asked().substr(0, 5), "error");
    EXPECT_EQ(device->package_data().size(), 1u);
    pldm(kCancelUpdate);
    pldm("80 05 10 20000000 0100 01 0600 01 01 41");
    asked();
    answer("11 8f");
    EXPECT_EQ(device->last_answer(), 0x8F);
    EXPECT_EQ(asked().substr(0, 5), "error");
    EXPECT_EQ(device->package_data().size(), 0u);
}

TEST_F(FirmwareCommands, MetadataInParts) {
    open_device(R"("metadata": "0102030405", "metadata_part_size": 2)");
    EXPECT_EQ(pldm(kRequestUpdate), "00 05 10 00 05 00 00");
    EXPECT_EQ(pldm("80 05 12 00000000 02"), "00 05 12 91");
    EXPECT_EQ(pldm("80 05 12 00000000 01"), "00 05 12 00 02 00 00 00 01 01 02");
    EXPECT_EQ(pldm("80 05 12 03000000 00"), "00 05 12 90");
    EXPECT_EQ(pldm("80 05 12 02000000 00"), "00 05 12 00 04 00 00 00 02 03 04");
    EXPECT_EQ(pldm("80 05 12 04000000 00"), "00 05 12 00 00 00 00 00 04 05");
    EXPECT_EQ(pldm("80 05 19 00000000 00"), "00 05 19 00 02 00 00 00 01 01 02");
    device->settings().metadata_part_size = 0;
    EXPECT_EQ(pldm("80 05 12 00000000 01"), "00 05 12 00 00 00 00 00 05 01 02 03 04 05");
}

TEST_F(FirmwareCommands, MetadataThatAreNotThere) {
    open_device(kTwoComponents + R"(, "claimed_metadata_length": 300)");
    EXPECT_EQ(pldm(kRequestUpdate), "00 05 10 00 2c 01 00");
    EXPECT_EQ(pldm("80 05 12 00000000 01"), "00 05 12 8d");
    EXPECT_EQ(pldm("80 05 19 00000000 00"), "00 05 19 8d");
    pldm(kPassFirst);
    pldm(kPassLast);
    EXPECT_EQ(pldm("80 05 12 00000000 01"), "00 05 12 84") << "too late";
}

TEST_F(FirmwareCommands, ComponentTableComesInOrder) {
    open_device();
    pldm(kRequestUpdate);
    EXPECT_EQ(pldm("80 05 13 02 0a00 0100 07 11000000 01 00"), "00 05 13 02") << "no start";
    EXPECT_EQ(pldm("80 05 13 04 0a00 0100 07 11000000 01 00"), "00 05 13 02");
    EXPECT_EQ(pldm("80 05 13 00 0a00 0100 07 11000000 01 00"), "00 05 13 02");
    EXPECT_EQ(pldm("80 05 13 01 0a00 0100 07 11000000 01 05"), "00 05 13 03");
    EXPECT_EQ(pldm(kPassFirst), "00 05 13 00 00 00");
    EXPECT_EQ(pldm(kPassFirst), "00 05 13 02") << "twice";
    EXPECT_EQ(pldm("80 05 13 02 0a00 0900 00 11000000 01 00"), "00 05 13 00 01 06") << "unknown";
    EXPECT_EQ(pldm(kUpdateFirst), "00 05 14 84") << "not yet";
    EXPECT_EQ(pldm(kPassLast), "00 05 13 00 00 00");
    EXPECT_EQ(device->state(), PldmFirmwareState::kReadyXfer);
    EXPECT_EQ(pldm(kPassLast), "00 05 13 84");
    EXPECT_TRUE(device->transfer(0).passed);
}

TEST_F(FirmwareCommands, TableOfOneComponent) {
    open_device();
    pldm(kRequestUpdate);
    EXPECT_EQ(pldm("80 05 13 05 0a00 0100 07 11000000 01 00"), "00 05 13 00 00 00");
    EXPECT_EQ(device->state(), PldmFirmwareState::kReadyXfer);
    EXPECT_EQ(pldm(kUpdateSecond), "00 05 14 00 01 09 00 00 00 00 00 00") << "was not passed";
    EXPECT_EQ(pldm("80 05 14 0a00 0900 00 11000000 50000000 00000000 01 00"),
              "00 05 14 00 01 06 00 00 00 00 00 00");
    EXPECT_EQ(pldm("80 05 14 0a00 0100 07 11000000 50000000 00000000 01 01"), "00 05 14 03");
    EXPECT_EQ(device->state(), PldmFirmwareState::kReadyXfer);
}

TEST_F(FirmwareCommands, ComparisonStampsCountWhereTheDeviceIsParticular) {
    open_device(kTwoComponents + R"(, "only_newer": true, "time_before_request_s": 258)");
    pldm(kRequestUpdate);
    EXPECT_EQ(pldm("80 05 13 01 0a00 0100 07 10000000 01 00"), "00 05 13 00 01 01");
    EXPECT_EQ(pldm("80 05 13 04 0a00 0200 00 1f000000 01 00"), "00 05 13 00 01 02");
    const std::string same = "80 05 14 0a00 0100 07 10000000 50000000 ";
    const std::string older = "80 05 14 0a00 0200 00 1f000000 50000000 ";
    EXPECT_EQ(pldm(same + "00000000 01 00"), "00 05 14 00 01 01 00 00 00 00 00 00");
    EXPECT_EQ(pldm(older + "00000000 01 00"), "00 05 14 00 01 02 00 00 00 00 00 00");
    EXPECT_EQ(pldm(same + "01000000 01 00"), "00 05 14 00 00 00 01 00 00 00 02 01") << "forced";
    EXPECT_EQ(device->state(), PldmFirmwareState::kDownload);
}

TEST_F(FirmwareCommands, WholeUpdateByteByByte) {
    open_device(kTwoComponents + R"(, "activation_time_s": 5)");
    start_download();
    const sim::Bytes image = image_of(80);
    const auto part = [&](size_t from, size_t to) {
        return hex({image.begin() + static_cast<int>(from), image.begin() + static_cast<int>(to)});
    };
    EXPECT_EQ(asked(), "80 05 15 00 00 00 00 20 00 00 00");
    answer("15 00 " + part(0, 32));
    EXPECT_EQ(asked(), "81 05 15 20 00 00 00 20 00 00 00");
    answer("15 00 " + part(32, 64));
    EXPECT_EQ(asked(), "82 05 15 40 00 00 00 20 00 00 00") << "never less than 32 bytes";
    answer("15 00 " + part(64, 80) + " 00000000 00000000 00000000 00000000");
    EXPECT_EQ(asked(), "83 05 16 00");
    answer("16 00");
    EXPECT_EQ(device->state(), PldmFirmwareState::kVerify);
    EXPECT_EQ(asked(), "84 05 17 00");
    answer("17 00");
    EXPECT_EQ(device->state(), PldmFirmwareState::kApply);
    EXPECT_EQ(asked(), "85 05 18 00 00 00");
    answer("18 00");
    EXPECT_EQ(device->state(), PldmFirmwareState::kReadyXfer);
    EXPECT_EQ(asked().substr(0, 5), "error");
    EXPECT_EQ(pldm(kActivate), "00 05 1a 85") << "the other component is missing";
    EXPECT_EQ(pldm(kUpdateSecond), "00 05 14 00 00 00 00 00 00 00 00 00");
    EXPECT_EQ(serve(image_of(33)), "0+32 32+32 16 00 17 00 18 00 00 00");
    EXPECT_EQ(device->active().text, "OLD-1");
    EXPECT_EQ(device->pending()->text, "NEW-2");
    EXPECT_EQ(pldm(kActivate), "00 05 1a 00 05 00");
    EXPECT_EQ(device->state(), PldmFirmwareState::kIdle);
    EXPECT_EQ(device->previous_state(), PldmFirmwareState::kActivate);
    EXPECT_EQ(device->active().text, "NEW-2");
    EXPECT_FALSE(device->pending());
    EXPECT_EQ(device->components()[0].active.text, "1.1");
    EXPECT_EQ(device->components()[0].active.stamp, 0x11u);
    EXPECT_EQ(device->components()[1].active.text, "2.1");
    EXPECT_TRUE(std::ranges::equal(device->image(0), image));
    EXPECT_TRUE(std::ranges::equal(device->image(1), image_of(33)));
    EXPECT_EQ(pldm("80 05 02").substr(0, 62),
              "00 05 02 00 00 00 00 00 02 00 01 05 00 00 4e 45 57 2d 32 0a 00");
    EXPECT_EQ(pldm(kGetStatus), "00 05 1b 00 00 06 03 00 65 01 00 00 00 00");
}

TEST_F(FirmwareCommands, SecondUpdateFollowsTheFirst) {
    open_device();
    for (int round = 0; round < 2; ++round) {
        update_both();
        EXPECT_EQ(pldm(kActivate), "00 05 1a 00 00 00");
        EXPECT_EQ(device->active().text, "NEW-2");
    }
    EXPECT_EQ(device->count(sim::kFwRequestUpdate), 2u);
    EXPECT_EQ(device->count(sim::kFwRequestFirmwareData), 10u);
    EXPECT_EQ(device->transfer(0).pieces, 3u);
    EXPECT_EQ(device->transfer(0).bytes, 80u);
}

TEST_F(FirmwareCommands, ActivationTakesWhatAgentsSend) {
    open_device();
    update_both();
    EXPECT_EQ(pldm("80 05 1a 03"), "00 05 1a 02");
    EXPECT_EQ(pldm("80 05 1a 02"), "00 05 1a 00 00 00");
    EXPECT_EQ(device->active().text, "NEW-2");
    EXPECT_EQ(pldm("80 05 1a 02"), "00 05 1a 80");
    update_both();
    EXPECT_EQ(pldm("80 05 1a 00"), "00 05 1a 00 00 00");
}

TEST_F(FirmwareCommands, ActivationMayHaveToWaitForAPowerCycle) {
    open_terminus("\"standby\": false, \"firmware\": {" + kTwoComponents +
                  R"(, "activation": "reset"})");
    device = board->firmware("p");
    update_both();
    EXPECT_EQ(pldm("80 05 1a 00"), "00 05 1a 00 00 00");
    EXPECT_EQ(device->active().text, "OLD-1");
    EXPECT_EQ(device->pending()->text, "NEW-2");
    board->set_main_power(false);
    board->set_main_power(true);
    EXPECT_EQ(device->active().text, "NEW-2");
    EXPECT_FALSE(device->pending());
}

TEST_F(FirmwareCommands, ActivationThatTheComponentsDoNotPermit) {
    open_device();
    pldm(kRequestUpdate);
    pldm("80 05 13 05 0a00 0200 00 21000000 01 00");
    EXPECT_EQ(pldm(kActivate), "00 05 1a 85");
    EXPECT_EQ(pldm(kUpdateSecond).substr(0, 17), "00 05 14 00 00 00");
    asked();
    EXPECT_EQ(pldm(kActivate), "00 05 1a 84") << "in the middle of the download";
    pldm(kCancelComponent);
    EXPECT_EQ(pldm(kActivate), "00 05 1a 8b") << "nothing was applied";
    pldm(kUpdateSecond);
    serve(image_of(33));
    EXPECT_EQ(pldm(kActivate), "00 05 1a 8c");
    EXPECT_EQ(pldm("80 05 1a 00"), "00 05 1a 00 00 00");
}

TEST_F(FirmwareCommands, StatusFollowsTheUpdate) {
    open_device();
    pldm(kRequestUpdate);
    EXPECT_EQ(pldm(kGetStatus), "00 05 1b 00 01 00 03 00 65 00 00 00 00 00");
    pldm(kPassFirst);
    pldm(kPassLast);
    EXPECT_EQ(pldm(kGetStatus), "00 05 1b 00 02 01 03 00 65 00 00 00 00 00");
    pldm("80 05 14 0a00 0100 07 11000000 80000000 01000000 01 00");
    asked();
    EXPECT_EQ(pldm(kGetStatus), "00 05 1b 00 03 02 00 00 00 00 01 00 00 00");
    answer("15 00 " + hex(image_of(32)));
    asked();
    EXPECT_EQ(pldm(kGetStatus), "00 05 1b 00 03 02 00 00 19 00 01 00 00 00") << "25 percent";
    EXPECT_EQ(pldm(kCancelUpdate), "00 05 1d 00 00 00 00 00 00 00 00 00 00");
    EXPECT_EQ(pldm(kGetStatus), "00 05 1b 00 00 03 03 00 65 02 00 00 00 00");
}

TEST_F(FirmwareCommands, CancelledComponentCanBeTriedAgain) {
    open_device();
    pldm(kRequestUpdate);
    EXPECT_EQ(pldm(kCancelComponent), "00 05 1c 84");
    pldm(kPassFirst);
    pldm(kPassLast);
    pldm(kUpdateFirst);
    asked();
    EXPECT_EQ(pldm(kCancelComponent), "00 05 1c 00");
    EXPECT_EQ(device->state(), PldmFirmwareState::kReadyXfer);
    answer("15 00 " + hex(image_of(32)));
    EXPECT_EQ(asked().substr(0, 5), "error") << "an answer after the end starts nothing";
    pldm(kUpdateFirst);
    EXPECT_EQ(serve(image_of(80)), "0+32 32+32 64+32 16 00 17 00 18 00 00 00");
}

TEST_F(FirmwareCommands, EmptyImageIsCompleteAtOnce) {
    open_device();
    pldm(kRequestUpdate);
    pldm("80 05 13 05 0a00 0100 07 11000000 01 00");
    pldm("80 05 14 0a00 0100 07 11000000 00000000 00000000 01 00");
    EXPECT_EQ(serve({}), "16 00 17 00 18 00 00 00");
}

}  // namespace
