// SPDX-License-Identifier: Apache-2.0
// The firmware device of a terminus: every command of an update, byte by byte (DSP0267).
#include "firmware_test.h"

#include <cstdio>
#include <fstream>

namespace {

using namespace sim_test;
using sim::FirmwareState;

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
    EXPECT_EQ(device->state(), FirmwareState::kIdle);
    EXPECT_EQ(pldm(kRequestUpdate), "00 05 10 00 00 00 00");
    EXPECT_EQ(device->state(), FirmwareState::kLearnComponents);
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
    EXPECT_EQ(device->state(), FirmwareState::kIdle);
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
    EXPECT_EQ(device->state(), FirmwareState::kReadyXfer);
    EXPECT_EQ(pldm(kPassLast), "00 05 13 84");
    EXPECT_TRUE(device->transfer(0).passed);
}

TEST_F(FirmwareCommands, TableOfOneComponent) {
    open_device();
    pldm(kRequestUpdate);
    EXPECT_EQ(pldm("80 05 13 05 0a00 0100 07 11000000 01 00"), "00 05 13 00 00 00");
    EXPECT_EQ(device->state(), FirmwareState::kReadyXfer);
    EXPECT_EQ(pldm(kUpdateSecond), "00 05 14 00 01 09 00 00 00 00 00 00") << "was not passed";
    EXPECT_EQ(pldm("80 05 14 0a00 0900 00 11000000 50000000 00000000 01 00"),
              "00 05 14 00 01 06 00 00 00 00 00 00");
    EXPECT_EQ(pldm("80 05 14 0a00 0100 07 11000000 50000000 00000000 01 01"), "00 05 14 03");
    EXPECT_EQ(device->state(), FirmwareState::kReadyXfer);
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
    EXPECT_EQ(device->state(), FirmwareState::kDownload);
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
    EXPECT_EQ(device->state(), FirmwareState::kVerify);
    EXPECT_EQ(asked(), "84 05 17 00");
    answer("17 00");
    EXPECT_EQ(device->state(), FirmwareState::kApply);
    EXPECT_EQ(asked(), "85 05 18 00 00 00");
    answer("18 00");
    EXPECT_EQ(device->state(), FirmwareState::kReadyXfer);
    EXPECT_EQ(asked().substr(0, 5), "error");
    EXPECT_EQ(pldm(kActivate), "00 05 1a 85") << "the other component is missing";
    EXPECT_EQ(pldm(kUpdateSecond), "00 05 14 00 00 00 00 00 00 00 00 00");
    EXPECT_EQ(serve(image_of(33)), "0+32 32+32 16 00 17 00 18 00 00 00");
    EXPECT_EQ(device->active().text, "OLD-1");
    EXPECT_EQ(device->pending()->text, "NEW-2");
    EXPECT_EQ(pldm(kActivate), "00 05 1a 00 05 00");
    EXPECT_EQ(device->state(), FirmwareState::kIdle);
    EXPECT_EQ(device->previous_state(), FirmwareState::kActivate);
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
    EXPECT_EQ(device->state(), FirmwareState::kReadyXfer);
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

// ---- Pieces -------------------------------------------------------------------------------------

/// One component of 200 bytes in pieces of 48, in some order.
class FirmwarePieces : public FirmwareTest {
protected:
    std::string pieces(const std::string& keys) {
        open_device(kTwoComponents + ", " + keys);
        pldm("80 05 10  40000000 0200 01 0000 01 05 4e45572d32");
        pldm("80 05 13 05 0a00 0100 07 11000000 01 00");
        pldm("80 05 14 0a00 0100 07 11000000 c8000000 00000000 01 00");
        std::string log = serve(image_of(200));
        const std::string end = " 16 00 17 00 18 00 00 00";
        EXPECT_TRUE(log.ends_with(end)) << log;
        EXPECT_TRUE(std::ranges::equal(device->image(0), image_of(200)));
        return log.substr(0, log.size() - std::min(log.size(), end.size()));
    }
};

TEST_F(FirmwarePieces, ComeInEveryOrder) {
    EXPECT_EQ(pieces(R"("order": "ascending")"), "0+64 64+64 128+64 192+32");
    EXPECT_EQ(pieces(R"("transfer_size": 48)"), "0+48 48+48 96+48 144+48 192+32");
    EXPECT_EQ(pieces(R"("transfer_size": 48, "order": "descending")"),
              "192+32 144+48 96+48 48+48 0+48");
    EXPECT_EQ(pieces(R"("transfer_size": 48, "order": "interleaved")"),
              "0+48 96+48 192+32 48+48 144+48");
    const std::string random = pieces(R"("transfer_size": 32, "order": "random", "seed": 3)");
    EXPECT_EQ(random, pieces(R"("transfer_size": 32, "order": "random", "seed": 3)"));
    EXPECT_NE(random, pieces(R"("transfer_size": 32, "order": "random", "seed": 4)"));
}

TEST_F(FirmwarePieces, LastOneMayBeAsLongAsTheOthers) {
    EXPECT_EQ(pieces(R"("transfer_size": 48, "last_piece": "full")"),
              "0+48 48+48 96+48 144+48 192+48");
    EXPECT_EQ(pieces(R"("transfer_size": 40)"), "0+40 40+40 80+40 120+40 160+40");
}

TEST_F(FirmwarePieces, AreNeverLongerThanTheAgentAllowsNorShorterThanTheBaseline) {
    EXPECT_EQ(pieces(R"("transfer_size": 100)"), "0+64 64+64 128+64 192+32");
    EXPECT_EQ(pieces(R"("transfer_size": 1)"), "0+32 32+32 64+32 96+32 128+32 160+32 192+32");
}

TEST(FirmwarePlan, NamesEveryPieceOfALargeImageOnce) {
    for (const sim::PieceOrder order : {sim::PieceOrder::kAscending, sim::PieceOrder::kDescending,
                                        sim::PieceOrder::kInterleaved, sim::PieceOrder::kRandom}) {
        for (const uint32_t size : {1u, 31u, 33u, 6400u, 0xFFFFu}) {
            const sim::PiecePlan plan(size, 32, order, 12, false);
            std::vector<bool> seen(plan.count());
            for (uint32_t turn = 0; turn < plan.count(); ++turn) {
                const uint32_t offset = plan.at(turn).offset;
                ASSERT_EQ(offset % 32, 0u);
                ASSERT_FALSE(seen.at(offset / 32));
                seen[offset / 32] = true;
            }
            EXPECT_EQ(plan.count(), (size + 31) / 32);
        }
    }
    const sim::PiecePlan largest(0xFFFFFFFF, 32, sim::PieceOrder::kDescending, 0, true);
    EXPECT_EQ(largest.count(), 0x08000000u);
    EXPECT_EQ(largest.at(0).offset, 0xFFFFFFE0u);
    EXPECT_EQ(sim::PiecePlan(0, 32, sim::PieceOrder::kRandom, 0, false).count(), 0u);
}

// ---- What the image should be -------------------------------------------------------------------

class FirmwareImage : public FirmwareTest {
protected:
    /// Downloads the first component of 80 bytes. @return what followed the pieces
    std::string results(const sim::Bytes& image) {
        start_download();
        return serve(image).substr(17);
    }
};

TEST_F(FirmwareImage, IsComparedByteForByte) {
    open_device();
    device->expect(0, sim::ExpectedImage(image_of(80)));
    EXPECT_EQ(results(image_of(80)), "16 00 17 00 18 00 00 00");
    EXPECT_EQ(device->first_difference(0), std::nullopt);
    pldm(kCancelUpdate);
    sim::Bytes other = image_of(80);
    other[79] ^= 0x01;
    EXPECT_EQ(results(other), "16 00 17 01") << "the last byte";
    EXPECT_EQ(device->first_difference(0), 79u);
    EXPECT_EQ(device->transfer(0).verify_result, 1);
    EXPECT_EQ(device->transfer(0).apply_result, std::nullopt);
    EXPECT_EQ(pldm(kGetStatus), "00 05 1b 00 04 03 02 0a 65 02 00 00 00 00") << "failed";
    EXPECT_EQ(pldm(kCancelComponent), "00 05 1c 00");
}

TEST_F(FirmwareImage, OfAnotherSizeIsRefused) {
    open_device();
    device->expect(0, sim::ExpectedImage(image_of(81)));
    EXPECT_EQ(results(image_of(80)), "16 00 17 01");
    pldm(kCancelUpdate);
    device->expect(0, sim::ExpectedImage(image_of(79)));
    EXPECT_EQ(results(image_of(80)), "16 00 17 01");
    EXPECT_EQ(device->first_difference(0), 79u);
}

TEST_F(FirmwareImage, NeedNotBeKept) {
    open_device(kTwoComponents + R"(, "keep_image": false)");
    device->expect(0, sim::ExpectedImage(image_of(80)));
    EXPECT_EQ(results(image_of(80)), "16 00 17 00 18 00 00 00");
    EXPECT_EQ(device->image(0).size(), 0u);
    pldm(kCancelUpdate);
    sim::Bytes other = image_of(80);
    other[0] = 1;
    EXPECT_EQ(results(other), "16 00 17 01");
}

TEST_F(FirmwareImage, CanBeAPartOfAFile) {
    const std::string path = ::testing::TempDir() + "sim-firmware-" + std::to_string(getpid());
    const sim::Bytes content = image_of(70'000);
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(content.data()), 70'000);
    sim::ExpectedImage whole = sim::ExpectedImage::file(path, 0, 0);
    EXPECT_EQ(whole.size(), 70'000u);
    EXPECT_EQ(whole.difference(0, content), std::nullopt);
    EXPECT_EQ(whole.difference(1, content), 0u);
    EXPECT_EQ(whole.difference(69'999, {content.data() + 69'999, 1}), std::nullopt);
    EXPECT_EQ(whole.difference(70'000, content), 0u) << "behind the end";
    EXPECT_EQ(whole.difference(10, {content.data() + 10, 20}), std::nullopt) << "and back";
    sim::ExpectedImage part = sim::ExpectedImage::file(path, 60'000, 5);
    EXPECT_EQ(part.size(), 5u);
    EXPECT_EQ(part.difference(2, {content.data() + 60'002, 3}), std::nullopt);
    EXPECT_EQ(sim::ExpectedImage::file(path, 69'990, 0).size(), 10u);
    EXPECT_EQ(sim::ExpectedImage::file(path, 80'000, 0).size(), 0u);
    std::remove(path.c_str());
    sim::ExpectedImage gone = sim::ExpectedImage::file(path, 0, 0);
    EXPECT_EQ(gone.size(), 0u);
    EXPECT_EQ(gone.difference(0, content), 0u);
}

TEST_F(FirmwareImage, OfTheBoardFile) {
    open_device(R"("components": [{"identifier": 1, "index": 7, "active": "1",
        "expect_hex": ")" +
                std::string(160, '0') + R"("}])");
    pldm(kRequestUpdate);
    pldm("80 05 13 05 0a00 0100 07 11000000 01 00");
    pldm(kUpdateFirst);
    EXPECT_EQ(serve(sim::Bytes(80)), "0+32 32+32 64+32 16 00 17 00 18 00 00 00");
}

}  // namespace
