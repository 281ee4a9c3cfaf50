// SPDX-License-Identifier: Apache-2.0
// The network controller: control packets, packages and channels, OEM commands, faults (DSP0222).
#include "pcie_test.h"
#include "sim/ncsi/controller.h"
#include "terminus_test.h"

namespace {

using sim::NcsiCommand;
using sim::NcsiController;
using sim::NcsiFault;
using Kind = sim::NcsiFault::Kind;

const std::string kSilence = "error -110";

/// A board file of one network controller with more keys than its packages.
std::string controller_with(const std::string& packages, const std::string& keys = "") {
    return board_with(R"({"name": "n", "type": "ncsi", "bus": 3, "address": "0x64", "eid": 9,
        "response_us": 0, "transmission_unit": 250, "controller": {
        "packages": [)" +
                      packages + "]" + (keys.empty() ? "" : ",\n" + keys) + "}}");
}

/// Package 0 with two channels, package 5 with one, and every setting.
const std::string kPackages = R"(
    {"id": 0, "card_tlv": "ff2100abcd", "channels": [
        {"id": 0, "preboot_config": "5a007abc", "mac": "021122334455"},
        {"id": 3, "link": false, "speed": 15, "extended_speed": 17, "autoneg": false,
         "status_bits": "0x00100000"}]},
    {"id": 5, "channels": [{"id": 7}]})";
const std::string kTemperatures = R"("temperatures": [
    {"id": 1, "waveform": {"shape": "constant", "value": 61.4}},
    {"id": 2, "waveform": {"shape": "steps", "values": [20, 30], "period_s": 20}}])";

class Ncsi : public BoardTest {
protected:
    void open_controller(const std::string& packages = kPackages,
                         const std::string& keys = kTemperatures) {
        open(controller_with(packages, keys));
        ASSERT_TRUE(board);
        device = board->ncsi("n");
        ASSERT_NE(device, nullptr);
    }

    /// A control packet and its answer, both from their header on.
    std::string packet(const std::string& request) {
        const std::string answer = exchange(3, 0x64, "01 09 08 c9 02 " + request);
        const std::string head = "01 08 09 c1 02 ";
        return answer.starts_with(head) ? answer.substr(head.size()) : answer;
    }

    /// A command without a checksum.
    /// @return codes and data of its answer, without padding and checksum
    std::string command(uint8_t type, uint8_t channel, const std::string& payload = "") {
        std::vector<uint8_t> data = bytes(payload);
        const auto length = static_cast<uint8_t>(data.size());
        data.resize((data.size() + 3) / 4 * 4 + 4);
        const std::string answer = packet("00 01 00 07" + hex({type}) + hex({channel, 0, length}) +
                                          "00 00 00 00 00 00 00 00" + hex(data));
        const std::vector<uint8_t> all = bytes(answer);
        if (answer.starts_with("error") || all.size() < 24) {
            return answer;
        }
        EXPECT_EQ(hex({all.begin(), all.begin() + 7}),
                  "00 01 00 07 " + hex({static_cast<uint8_t>(type | 0x80), channel}) + " 00");
        return hex({all.begin() + 16, all.begin() + 16 + all[7]});
    }

    std::string clear(uint8_t channel) { return command(0x00, channel); }

    sim::NcsiChannel& channel(uint8_t package, uint8_t number) {
        sim::NcsiChannel* found = device->channel(package, number);
        EXPECT_NE(found, nullptr);
        return *found;
    }

    NcsiController* device = nullptr;
};

const std::string kDone = "00 00 00 00";
const std::string kUninitialised = "00 01 00 01";
const std::string kInvalidParameter = "00 01 00 02";
const std::string kInvalidLength = "00 01 00 05";
const std::string kUnsupported = "00 03 7f ff";

// Payloads of the OEM commands.
const std::string kGetPreboot = "0000113d 001c0004 00000000 00000005";
const std::string kSetPreboot = "0000113d 001d0004 00000000 00000001 ";
const std::string kGetTlv = "00008119 00002300 00000000 03000221";
const std::string kSetTlv = "00008119 00012300 0000";
const std::string kGetMac = "00008119 00000000";
const std::string kGetTemperature = "00008119 001302";

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
        << "kept where it outlasts power";
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

// ---- OEM commands ----

class NcsiOem : public Ncsi {
protected:
    void SetUp() override {
        open_controller();
        clear(0x00);
        clear(0x03);
        clear(0xA7);
    }
    std::string oem(uint8_t channel, const std::string& payload) {
        return command(0x50, channel, payload);
    }
};

TEST_F(NcsiOem, PrebootConfigIsReadAndWrittenWhole) {
    EXPECT_EQ(oem(0x00, kGetPreboot),
              "00 00 00 00 00 00 11 3d 00 1c 00 04 00 00 00 00 5a 00 7a bc");
    EXPECT_EQ(oem(0x00, kSetPreboot + "5a 00 f1 23"),
              "00 00 00 00 00 00 11 3d 00 1d 00 04 00 00 00 00");
    EXPECT_EQ(oem(0x00, kGetPreboot),
              "00 00 00 00 00 00 11 3d 00 1c 00 04 00 00 00 00 5a 00 f1 23");
    EXPECT_EQ(device->foreign_changes().size(), 0u);
    EXPECT_EQ(oem(0x03, kGetPreboot), kUnsupported) << "this channel has none";
    EXPECT_EQ(oem(0x03, kSetPreboot + "5a 00 f1 23"), kUnsupported);
}

TEST_F(NcsiOem, EveryForeignBitOfThePrebootConfigIsWatched) {
    const std::vector<uint8_t> foreign = bytes("ff 00 70 00");
    size_t changes = 0;
    for (size_t bit = 0; bit < 32; ++bit) {
        channel(0, 0).preboot = {0x5A, 0x00, 0x7A, 0xBC};
        std::vector<uint8_t> setting = bytes("5a007abc");
        setting[bit / 8] = static_cast<uint8_t>(setting[bit / 8] ^ 1u << bit % 8);
        oem(0x00, kSetPreboot + hex(setting));
        changes += foreign[bit / 8] >> bit % 8 & 1;
        ASSERT_EQ(device->foreign_changes().size(), changes) << bit;
    }
    EXPECT_EQ(changes, 11u);
    const sim::NcsiForeignChange& first = device->foreign_changes().front();
    EXPECT_EQ(first.command, NcsiCommand::kSetPrebootConfig);
    EXPECT_EQ(first.channel_id, 0x00);
    EXPECT_EQ(hex(first.before), "5a 00 7a bc");
    EXPECT_EQ(hex(first.after), "5b 00 7a bc");
}

TEST_F(NcsiOem, CardTlvIsReadAndWrittenForThePackage) {
    EXPECT_EQ(oem(0x1F, kGetTlv),
              "00 00 00 00 00 00 81 19 00 00 23 00 00 00 ff 00 03 00 02 21 21 00 ab cd");
    // Bits 1 to 3 of the first byte and 3, 4, 7 of the second are nobody's.
    EXPECT_EQ(oem(0x1F, kSetTlv + "f1 00 03000221 61 00 1234"),
              "00 00 00 00 00 00 81 19 00 01 23 00");
    EXPECT_EQ(oem(0x1F, kGetTlv),
              "00 00 00 00 00 00 81 19 00 00 23 00 00 00 f1 00 03 00 02 21 61 00 12 34");
    EXPECT_EQ(device->foreign_changes().size(), 0u);
    EXPECT_EQ(oem(0xBF, kGetTlv), kUnsupported) << "this package has none";
    EXPECT_EQ(oem(0x00, kGetTlv), kInvalidParameter) << "not of a channel";
}

TEST_F(NcsiOem, EveryForeignBitOfTheCardTlvIsWatched) {
    const std::vector<uint8_t> foreign = bytes("f1 27 ff 00 00");
    size_t changes = 0;
    for (size_t bit = 0; bit < 40; ++bit) {
        device->package(0)->card_tlv = {0xFF, 0x21, 0x00, 0xAB, 0xCD};
        std::vector<uint8_t> setting = bytes("ff2100abcd");
        setting[bit / 8] = static_cast<uint8_t>(setting[bit / 8] ^ 1u << bit % 8);
        const std::string head = hex({setting[0]});
        setting.erase(setting.begin());
        oem(0x1F, kSetTlv + head + "00 03000221" + hex(setting));
        changes += foreign[bit / 8] >> bit % 8 & 1;
        ASSERT_EQ(device->foreign_changes().size(), changes) << bit;
    }
    EXPECT_EQ(changes, 17u);
    EXPECT_EQ(device->foreign_changes().back().command, NcsiCommand::kSetCardTlv);
    EXPECT_EQ(device->foreign_changes().back().channel_id, 0x1F);
}

TEST_F(NcsiOem, MacAddress) {
    EXPECT_EQ(oem(0x00, kGetMac), "00 00 00 00 00 00 81 19 00 00 00 00 02 11 22 33 44 55 00 00");
    EXPECT_EQ(oem(0x03, kGetMac), kUnsupported);
}

TEST_F(NcsiOem, Temperatures) {
    const std::string head = "00 00 00 00 00 00 81 19 00 13 02 ";
    EXPECT_EQ(oem(0x00, kGetTemperature + "01"), head + "01 00 00 00 3d");
    EXPECT_EQ(oem(0xA7, kGetTemperature + "02"), head + "02 00 00 00 14");
    board->advance_us(10'000'000);
    EXPECT_EQ(oem(0x00, kGetTemperature + "02"), head + "02 00 00 00 1e");
    EXPECT_EQ(oem(0x00, kGetTemperature + "00"), kInvalidParameter);
    device->settings().temperatures.clear();
    EXPECT_EQ(oem(0x00, kGetTemperature + "01"), kUnsupported);
}

TEST_F(NcsiOem, EveryByteOfARequestCounts) {
    struct Case {
        uint8_t channel;
        std::string payload;
        std::vector<size_t> free;  ///< bytes that may have any value
    };
    const Case cases[] = {
        {0x00, kGetPreboot, {}}, {0x00, kSetPreboot + "5a007abc", {16, 17, 18, 19}},
        {0x1F, kGetTlv, {}},     {0x1F, kSetTlv + "ff00 03000221 2100abcd", {10, 16, 17, 18, 19}},
        {0x00, kGetMac, {}},     {0x00, kGetTemperature + "01", {7}},
    };
    for (const Case& each : cases) {
        const std::vector<uint8_t> good = bytes(each.payload);
        EXPECT_EQ(oem(each.channel, each.payload).substr(0, 11), kDone) << each.payload;
        for (size_t i = 0; i < good.size(); ++i) {
            if (std::ranges::count(each.free, i) != 0) {
                continue;
            }
            std::vector<uint8_t> bad = good;
            bad[i] ^= 0x80;
            const std::string expected = i < 7 ? kUnsupported : kInvalidParameter;
            EXPECT_EQ(oem(each.channel, hex(bad)), expected) << each.payload << " at " << i;
        }
        for (size_t length = 0; length < good.size(); ++length) {
            EXPECT_EQ(oem(each.channel,
                          hex({good.begin(), good.begin() + static_cast<std::ptrdiff_t>(length)})),
                      length < 7 ? kUnsupported : kInvalidLength)
                << each.payload << " of " << length;
        }
        EXPECT_EQ(oem(each.channel, each.payload + "00"), kInvalidLength);
    }
    EXPECT_EQ(device->foreign_changes().size(), 0u);
}

TEST_F(NcsiOem, AnyOfThemCanBeUnsupported) {
    struct Case {
        NcsiCommand command;
        uint8_t channel;
        std::string payload;
    };
    const Case cases[] = {
        {NcsiCommand::kGetPrebootConfig, 0x00, kGetPreboot},
        {NcsiCommand::kSetPrebootConfig, 0x00, kSetPreboot + "5a007abc"},
        {NcsiCommand::kGetCardTlv, 0x1F, kGetTlv},
        {NcsiCommand::kSetCardTlv, 0x1F, kSetTlv + "ff00 03000221 2100abcd"},
        {NcsiCommand::kGetPfMacAddress, 0x00, kGetMac},
        {NcsiCommand::kGetTemperature, 0x00, kGetTemperature + "01"},
    };
    for (const Case& each : cases) {
        device->settings().unsupported = {each.command};
        for (const Case& other : cases) {
            EXPECT_EQ(oem(other.channel, other.payload).substr(0, 11),
                      other.command == each.command ? kUnsupported : kDone)
                << other.payload;
        }
    }
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

// ---- Board file and PCIe ----

using NcsiBoardFile = Ncsi;

TEST_F(NcsiBoardFile, Faults) {
    open_controller(R"({"id": 0, "channels": [{"id": 0}]})", R"("unsupported": ["get_card_tlv"],
        "faults": [
        {"kind": "codes", "command": "clear_initial_state", "response": 1, "reason": 3},
        {"kind": "no_answer", "command": "clear_initial_state", "at": 2},
        {"kind": "other_command", "command": "get_link_status", "value": "0x81", "count": 0},
        {"kind": "truncate", "command": "select_package", "length": 16},
        {"kind": "over_long", "command": "deselect_package", "bytes": 2},
        {"kind": "other_channel", "command": "other", "value": 5}])");
    EXPECT_EQ(clear(0x00), "00 01 00 03");
    EXPECT_EQ(clear(0x00), kSilence);
    EXPECT_EQ(clear(0x00), kDone);
    const std::string rest = " 00 00000000 00000000 00000000";
    EXPECT_EQ(packet("00 01 00 01 0a 00 00" + rest).substr(12, 5), "81 00");
    EXPECT_EQ(packet("00 01 00 01 01 1f 00" + rest).size(), 16 * 3 - 1u);
    EXPECT_EQ(packet("00 01 00 01 02 1f 00" + rest).size(), 26 * 3 - 1u);
    EXPECT_EQ(packet("00 01 00 01 15 00 00" + rest).substr(12, 5), "95 05");
    EXPECT_EQ(command(0x50, 0x1F, kGetTlv), kUnsupported);
}

TEST_F(NcsiBoardFile, ErrorsNameLineAndKey) {
    const std::string at = "devices[0].controller.";
    auto refused = [](const std::string& packages, const std::string& keys = "") {
        const std::string text = refusal_of(controller_with(packages, keys));
        return text.substr(text.find(' ') + 1);
    };
    EXPECT_EQ(refusal_of(board_with(R"({"name": "n", "type": "ncsi", "bus": 3, "address": 100})")),
              "10: devices[0].controller: is missing");
    EXPECT_EQ(refused(R"({"id": 8, "channels": []})"),
              at + "packages[0].id: must be a whole number from 0 to 7");
    EXPECT_EQ(refused(R"({"id": 1, "channels": []}, {"id": 1, "channels": []})"),
              at + "packages[1].id: appears twice");
    EXPECT_EQ(refused(R"({"id": 1})"), at + "packages[0].channels: is missing");
    EXPECT_EQ(refused(R"({"id": 1, "channels": [{"id": 8}]})"),
              at + "packages[0].channels[0].id: must be a whole number from 0 to 7");
    EXPECT_EQ(refused(R"({"id": 1, "channels": [{"id": 0, "speed": 16}]})"),
              at + "packages[0].channels[0].speed: must be a whole number from 0 to 15");
    EXPECT_EQ(refused(R"({"id": 1, "channels": [{"id": 0, "mac": "00"}]})"),
              at + "packages[0].channels[0].mac: must have 6 bytes");
    EXPECT_EQ(refused("", R"("unsupported": ["reset"])"),
              at + "unsupported[0]: is not a command that is known here");
    EXPECT_EQ(refused("", R"("faults": [{"kind": "codes", "command": "other", "reason": 1}])"),
              at + "faults[0].response: is missing");
    EXPECT_EQ(refused("", R"("temperatures": [{"id": 0, "waveform":
                            {"shape": "constant", "value": 256}}])"),
              at + "temperatures[0].waveform: must stay within 0 to 255");
}

TEST_F(NcsiBoardFile, OtherDevicesAreNoControllers) {
    open(terminus_with("\"tid\": 1"));
    EXPECT_EQ(board->ncsi("p"), nullptr);
    EXPECT_EQ(board->ncsi("q"), nullptr);
}

class NcsiOnPcie : public sim_test::PcieBoard {};

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
