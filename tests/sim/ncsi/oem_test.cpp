// SPDX-License-Identifier: Apache-2.0
// The network controller's OEM commands: settings read and written whole, addresses, temperatures.
#include <algorithm>

#include "controller_fixture.h"

namespace {

using namespace sim_test;
using sim::NcsiCommand;

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

}  // namespace
