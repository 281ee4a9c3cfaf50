// SPDX-License-Identifier: Apache-2.0
// The network controller: control packets, packages and channels, faults (DSP0222).
#include "controller_fixture.h"
#include "sim/mctp/pcie_fixture.h"

namespace {

using namespace sim_test;
using sim::NcsiCommand;
using Kind = sim::NcsiFault::Kind;

// ---- Control packets ----

using NcsiPackets = Ncsi;

TEST_F(NcsiPackets, HeaderIsEchoedAndChecksumIsRight) {
    open_controller();
    // a501 + 002c + 8000 + 0004 = 0x00012531
    EXPECT_EQ(packet("a5 01 00 2c 00 00 00 00 00000000 00000000 00000000"),
              "a5 01 00 2c 80 00 00 04 00 00 00 00 00 00 00 00 00 00 00 00 ff fe da cf");
    EXPECT_EQ(device->malformed(), 0u);
}

TEST_F(NcsiPackets, AnswersWithoutChecksumOnRequest) {
    open_controller(kPackages, R"("checksums": false)");
    EXPECT_EQ(packet("00 01 00 01 00 00 00 00 00000000 00000000 00000000"),
              "00 01 00 01 80 00 00 04 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    device->settings().checksums = true;
    EXPECT_EQ(packet("00 01 00 01 00 00 00 00 00000000 00000000 00000000"),
              "00 01 00 01 80 00 00 04 00 00 00 00 00 00 00 00 00 00 00 00 ff ff 7f fa");
}

TEST_F(NcsiPackets, ChecksumOfARequestIsVerifiedWhereThereIsOne) {
    open_controller();
    // 0001 + 0001 + 0003 = 0x0005
    EXPECT_EQ(packet("00 01 00 01 00 03 00 00 00000000 00000000 fffffffb").substr(0, 5), "00 01");
    EXPECT_FALSE(channel(0, 3).initial_state);
    channel(0, 3).initial_state = true;
    EXPECT_EQ(packet("00 01 00 01 00 03 00 00 00000000 00000000 fffffffa"), kSilence);
    EXPECT_EQ(packet("00 01 00 01 00 03 00 00 00000000 00000000 00000001"), kSilence);
    EXPECT_EQ(device->bad_checksums(), 2u);
    EXPECT_TRUE(channel(0, 3).initial_state);
    EXPECT_EQ(device->count(NcsiCommand::kClearInitialState), 1u);
}

TEST_F(NcsiPackets, MalformedOnesAreDropped) {
    open_controller();
    const std::string whole = "00 01 00 01 00 00 00 00 00000000 00000000 00000000";
    const std::vector<uint8_t> all = bytes(whole);
    for (size_t length = 0; length < all.size(); ++length) {
        EXPECT_EQ(packet(hex({all.begin(), all.begin() + static_cast<std::ptrdiff_t>(length)})),
                  kSilence)
            << length;
    }
    EXPECT_EQ(packet("00 02 00 01 00 00 00 00 00000000 00000000 00000000"), kSilence) << "revision";
    EXPECT_EQ(packet("00 01 00 01 80 00 00 00 00000000 00000000 00000000"), kSilence) << "response";
    EXPECT_EQ(packet("00 01 00 01 00 00 00 01 00000000 00000000 00000000"), kSilence) << "length";
    EXPECT_EQ(packet("00 01 00 01 00 00 01 00 00000000 00000000 00000000"), kSilence) << "length";
    EXPECT_EQ(device->malformed(), 24u);
    EXPECT_TRUE(channel(0, 0).initial_state);
    EXPECT_NE(packet(whole + "0000"), kSilence) << "what follows the checksum does not matter";
}

TEST_F(NcsiPackets, OtherMessageTypesGetNoAnswer) {
    open_controller();
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 01 80 00 02"), kSilence);
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 05"), "01 08 09 c1 00 00 05 00 01 02");
}

// ---- Packages and channels ----

using NcsiChannels = Ncsi;

TEST_F(NcsiChannels, OnlyThoseThatAreThereAnswer) {
    open_controller();
    for (unsigned id = 0; id <= 0xFF; ++id) {
        const bool there = id == 0x00 || id == 0x03 || id == 0xA7;
        const bool package = id == 0x1F || id == 0xBF;
        EXPECT_EQ(clear(static_cast<uint8_t>(id)), there     ? kDone
                                                   : package ? kInvalidParameter
                                                             : kSilence)
            << id;
    }
}

TEST_F(NcsiChannels, EightPackagesOfEight) {
    std::string packages;
    for (int package = 0; package < 8; ++package) {
        packages += package == 0 ? "" : ",\n";
        packages += "{\"id\": " + std::to_string(package) + ", \"channels\": [";
        for (int number = 0; number < 8; ++number) {
            packages += (number == 0 ? "{\"id\": " : ", {\"id\": ") + std::to_string(number) + "}";
        }
        packages += "]}";
    }
    open_controller(packages);
    for (unsigned package = 0; package < 8; ++package) {
        for (unsigned number = 0; number < 8; ++number) {
            EXPECT_EQ(clear(static_cast<uint8_t>(package << 5 | number)), kDone);
        }
    }
    EXPECT_EQ(device->count(NcsiCommand::kClearInitialState), 64u);
}

TEST_F(NcsiChannels, NothingElseBeforeClearInitialState) {
    open_controller();
    EXPECT_EQ(command(0x0A, 0x00), kUninitialised);
    EXPECT_EQ(command(0x50, 0x00, kGetPreboot), kUninitialised);
    EXPECT_EQ(command(0x50, 0x1F, kGetTlv), kUninitialised) << "no channel of the package";
    EXPECT_EQ(command(0x03, 0x00), kUninitialised);
    EXPECT_EQ(clear(0x03), kDone);
    EXPECT_EQ(command(0x0A, 0x00), kUninitialised) << "another channel";
    EXPECT_EQ(command(0x50, 0x1F, kGetTlv).substr(0, 11), kDone);
    EXPECT_EQ(clear(0x00), kDone);
    EXPECT_EQ(command(0x0A, 0x00).substr(0, 11), kDone);
    EXPECT_EQ(command(0x0A, 0xA7), kUninitialised);
}

TEST_F(NcsiChannels, LossOfPowerBringsTheInitialStateBack) {
    open(board_with(R"({"name": "n", "type": "ncsi", "bus": 3, "address": "0x64", "eid": 9,
        "standby": false, "controller": {"packages": [{"id": 0, "card_tlv": "0000000000",
        "channels": [{"id": 0}]}]}})"));
    device = board->ncsi("n");
    EXPECT_EQ(clear(0x00), kDone);
    EXPECT_EQ(command(0x01, 0x1F), kDone);
    EXPECT_EQ(command(0x50, 0x1F, kSetTlv + "00 00 03000221 40 00 1234"),
              kDone + " 00 00 81 19 00 01 23 00");
    board->set_main_power(false);
    board->set_main_power(true);
    EXPECT_TRUE(channel(0, 0).initial_state);
    EXPECT_FALSE(device->package(0)->selected);
    EXPECT_EQ(device->package(0)->card_tlv, (sim::CardTlv{0x00, 0x40, 0x00, 0x12, 0x34}))
        << "kept if it outlasts power";
}

TEST_F(NcsiChannels, SelectAndDeselectPackage) {
    open_controller();
    EXPECT_EQ(command(0x01, 0x1F), kDone);
    EXPECT_TRUE(device->package(0)->selected);
    EXPECT_EQ(command(0x01, 0xBF, "00000001"), kDone) << "hardware arbitration off";
    EXPECT_FALSE(device->package(0)->selected);
    EXPECT_TRUE(device->package(5)->selected);
    EXPECT_EQ(command(0x02, 0xBF), kDone);
    EXPECT_FALSE(device->package(5)->selected);
    EXPECT_EQ(command(0x01, 0x5F), kSilence);
    EXPECT_EQ(command(0x01, 0x00), kInvalidParameter);
    EXPECT_EQ(command(0x02, 0x03), kInvalidParameter);
    EXPECT_EQ(command(0x01, 0x1F, "0000"), kInvalidLength);
    EXPECT_EQ(command(0x02, 0x1F, "00000000"), kInvalidLength);
    EXPECT_FALSE(device->package(0)->selected);
}

TEST_F(NcsiChannels, LinkStatus) {
    open_controller();
    clear(0x00);
    clear(0x03);
    // Up, 1000BASE-T full duplex, auto-negotiation enabled and complete.
    EXPECT_EQ(command(0x0A, 0x00), "00 00 00 00 00 00 00 6f 00 00 00 00 00 00 00 00");
    EXPECT_EQ(command(0x0A, 0x03), "00 00 00 00 11 10 00 1e 00 00 00 00 00 00 00 00");
    channel(0, 3).link_up = true;
    channel(0, 3).extended_speed = 0xFF;
    EXPECT_EQ(command(0x0A, 0x03), "00 00 00 00 ff 10 00 1f 00 00 00 00 00 00 00 00");
    EXPECT_EQ(command(0x0A, 0x00, "00"), kInvalidLength);
    EXPECT_EQ(command(0x0A, 0x1F), kInvalidParameter);
    EXPECT_EQ(command(0x00, 0x00, "00000000"), kInvalidLength);
}

TEST_F(NcsiChannels, OtherCommandsAreUnsupported) {
    open_controller();
    clear(0x00);
    for (unsigned type = 0x03; type < 0x80; ++type) {
        if (type != 0x0A) {
            EXPECT_EQ(command(static_cast<uint8_t>(type), 0x00), kUnsupported) << type;
        }
    }
    device->settings().unsupported = {NcsiCommand::kGetLinkStatus, NcsiCommand::kClearInitialState};
    EXPECT_EQ(command(0x0A, 0x00), kUnsupported);
    EXPECT_EQ(clear(0x00), kUnsupported);
}

// ---- Faults ----

using NcsiFaults = Ncsi;

TEST_F(NcsiFaults, CodesAtOneOccurrence) {
    open_controller();
    device->set_faults({{Kind::kCodes, NcsiCommand::kClearInitialState, 2, 2, 0, 0x0002, 0x8001}});
    EXPECT_EQ(clear(0x00), kDone);
    EXPECT_EQ(clear(0x03), "00 02 80 01");
    EXPECT_TRUE(channel(0, 3).initial_state) << "not acted upon";
    EXPECT_EQ(clear(0x03), "00 02 80 01");
    EXPECT_EQ(clear(0x03), kDone);
    EXPECT_EQ(command(0x0A, 0x03).substr(0, 11), kDone) << "no fault of this command";
}

TEST_F(NcsiFaults, NoAnswer) {
    open_controller();
    device->set_faults({{Kind::kNoAnswer, NcsiCommand::kClearInitialState, 1, 0}});
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(clear(0x00), kSilence);
    }
    EXPECT_TRUE(channel(0, 0).initial_state);
    EXPECT_EQ(device->count(NcsiCommand::kClearInitialState), 3u);
    device->set_faults({});
    EXPECT_EQ(clear(0x00), kDone);
    EXPECT_EQ(device->count(NcsiCommand::kClearInitialState), 1u) << "counted anew";
}

TEST_F(NcsiFaults, AnswersThatAreNotAsTheyShouldBe) {
    open_controller();
    const std::string request = "00 01 00 01 00 00 00 00 00000000 00000000 00000000";
    const std::string good =
        "00 01 00 01 80 00 00 04 00 00 00 00 00 00 00 00 00 00 00 00 ff ff 7f fa";
    auto with = [&](Kind kind, uint32_t value) {
        device->set_faults({{kind, NcsiCommand::kClearInitialState, 1, 1, value}});
        return packet(request);
    };
    EXPECT_EQ(with(Kind::kOtherCommand, 0x8A),
              "00 01 00 01 8a 00 00 04 00 00 00 00 00 00 00 00 00 00 00 00 ff ff 7f fa");
    EXPECT_EQ(with(Kind::kOtherChannel, 0x1F),
              "00 01 00 01 80 1f 00 04 00 00 00 00 00 00 00 00 00 00 00 00 ff ff 7f fa");
    EXPECT_EQ(with(Kind::kTruncate, 19), good.substr(0, 19 * 3 - 1));
    EXPECT_EQ(with(Kind::kTruncate, 100), good);
    EXPECT_EQ(with(Kind::kTruncate, 0), "01 08 09 c1 02") << "the message type alone";
    EXPECT_EQ(with(Kind::kOverLong, 3), good + " ee ee ee");
    EXPECT_EQ(packet(request), good);
}

// ---- PCIe ----

class NcsiOnPcie : public PcieBoard {};

TEST_F(NcsiOnPcie, SpeaksNcsiThere) {
    open(board_with(R"({"name": "n", "type": "ncsi", "transport": "pcie", "bdf": "47:00.0",
        "controller": {"packages": [{"id": 7, "channels": [{"id": 7}]}]}})"));
    plt_pcie_request request =
        to(0x47, 0, 0, "02 00 01 00 01 00 e7 00 00 00000000 00000000 00000000");
    ASSERT_EQ(PltMCTP_WriteRead(&request), 1);
    EXPECT_EQ(message_of(request).substr(0, 3 * 17),
              "02 00 01 00 01 80 e7 00 04 00 00 00 00 00 00 00 00 ");
}

}  // namespace
