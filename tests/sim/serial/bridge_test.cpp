// SPDX-License-Identifier: Apache-2.0
// The bridge of a serial line: its own control answers, routes by EID, what devices send through
// it.
#include "bridge_fixture.h"

namespace {

using namespace sim_test;

/// Devices of two buses and of PCIe: EIDs 9 to 13 behind a bridge that has 8.
const std::string kDevices = R"(
    {"name": "a", "type": "pldm", "bus": 2, "address": "0x64", "mux": {"address": "0xe0",
     "channel": 1}, "tid": 1, "eid": 100, "response_us": 500},
    {"name": "b", "type": "pldm", "bus": 3, "address": "0x66", "tid": 2, "response_us": 0},
    {"name": "c", "type": "pldm", "transport": "pcie", "bdf": "47:1f.7", "tid": 3},
    {"name": "o", "type": "bus_owner", "bus": 5, "address": "0x42", "eid": 64, "assign": 40},
    {"name": "s", "type": "pldm", "bus": 3, "address": "0x68", "standby": false, "tid": 5})";

class SerialBridge : public SerialBridgeTest {
protected:
    void SetUp() override { open_bridge(kDevices); }
};

TEST_F(SerialBridge, AnswersControlMessagesForItself) {
    EXPECT_EQ(control("80 02"), "00 02 00 08 10 00") << "a bridge, dynamic EID";
    EXPECT_EQ(control("81 03"), "01 03 00 73 65 72 69 61 6c 4d 43 94 50 00 00 00 00 00 01");
    EXPECT_EQ(control("82 04 00"), "02 04 00 01 f1 f3 f1 00");
    EXPECT_EQ(control("83 04 01"), "03 04 80") << "no PLDM of its own";
    EXPECT_EQ(control("84 05"), "04 05 00 00");
    EXPECT_EQ(control("9f 06 00"), "1f 06 05") << "it has no vendor-defined messages";
    EXPECT_EQ(control("80 7f"), "00 7f 05");
    EXPECT_EQ(control("80 02 00"), "00 02 03");
}

TEST_F(SerialBridge, KeepsSilentOnWhatIsNoRequestToIt) {
    EXPECT_EQ(control("00 02"), "") << "a response";
    EXPECT_EQ(control("c0 0a 00"), "") << "a datagram";
    EXPECT_EQ(control("40 08 00 05 40"), "");
    EXPECT_EQ(ask("01 08 50 c2 00 80 02"), "") << "no tag owner";
    EXPECT_EQ(ask("01 08 50 ca 01 80 00 02"), "") << "PLDM";
    EXPECT_EQ(ask("01 08 50 ca 00"), "");
    EXPECT_EQ(ask("01 08 50 ca 00 80"), "");
    EXPECT_EQ(ask("01 08 50 ca"), "");
    EXPECT_EQ(ask("01 08"), "");
    EXPECT_EQ(ask("02 08 50 ca 00 80 02"), "") << "another header version";
}

TEST_F(SerialBridge, IsMeantWhereNoEidIsNamedAndByABroadcast) {
    EXPECT_EQ(ask("01 00 50 cb 00 80 02"), "[01 50 08 c3 00 00 02 00 08 10 00]");
    EXPECT_EQ(ask("01 ff 50 cb 00 80 02"), "[01 50 08 c3 00 00 02 00 08 10 00]");
    EXPECT_EQ(ask("01 00 00 cf 00 80 02"), "[01 00 08 c7 00 00 02 00 08 10 00]")
        << "a client without an EID";
}

TEST_F(SerialBridge, RoutingTableHasTheBridgeAndEachEndpoint) {
    EXPECT_EQ(control("80 0a 00"),
              "00 0a 00 ff 06 "
              "01 08 80 05 24 00 "        // on the line
              "01 09 01 01 03 01 64 "     // 100 kHz
              "01 0a 01 01 04 01 66 "     // 400 kHz
              "01 0b 02 02 0c 02 47 ff "  // PCIe
              "01 0c 81 01 05 01 42 "     // 1 MHz, a bus owner
              "01 0d 01 01 04 01 68");
    EXPECT_EQ(control("80 0a 06"), "00 0a 02");
    EXPECT_EQ(control("80 0a"), "00 0a 03");
}

TEST_F(SerialBridge, LongRoutingTableComesInPartsOfOnePacket) {
    std::string devices;
    for (int i = 0; i < 14; ++i) {
        devices += std::string(i == 0 ? "" : ",") + R"({"name": "d)" + std::to_string(i) +
                   R"(", "type": "pldm", "transport": "pcie", "bdf": "40:)" + hex({uint8_t(i)}) +
                   R"(.0"})";
    }
    open_bridge(devices);
    const std::string first = control("80 0a 00");
    EXPECT_EQ(first.substr(0, 32), "00 0a 00 07 07 01 08 80 05 24 00");
    EXPECT_EQ(bytes(first).size(), 5u + 6 + 6 * 8);
    EXPECT_EQ(control("80 0a 07").substr(0, 23), "00 0a 00 0e 07 01 0f 02");
    EXPECT_EQ(control("80 0a 0e"), "00 0a 00 ff 01 01 16 02 02 0c 02 40 68");
}

TEST_F(SerialBridge, TakesAnEidAndWantsAPool) {
    EXPECT_EQ(control("80 01 00 20"), "[01 50 20 c2 00 00 01 00 01 20 05]") << "from the new EID";
    EXPECT_EQ(control("80 02"), "") << "nobody has the old one";
    EXPECT_EQ(ask("01 20 50 ca 00 80 02"), "[01 50 20 c2 00 00 02 00 20 10 00]");
    EXPECT_EQ(ask("01 20 50 ca 00 80 01 00 07"), "[01 50 20 c2 00 00 01 02]") << "reserved";
    EXPECT_EQ(ask("01 20 50 ca 00 80 01 02 00"), "[01 50 20 c2 00 00 01 02]") << "no static EID";
}

TEST_F(SerialBridge, HandsOutThePoolThatItIsGiven) {
    EXPECT_EQ(control("80 08 02 00 00"), "00 08 00 00 00 00") << "what is allocated";
    EXPECT_EQ(control("80 08 00 05 28"), "00 08 00 00 05 28");
    EXPECT_EQ(control("80 08 02 00 00"), "00 08 00 00 05 28");
    EXPECT_EQ(control("80 01 00 08"), "00 01 00 02 08 05") << "it has its pool";
    EXPECT_EQ(ask("01 09 50 c8 01 80 00 02"), "");
    EXPECT_EQ(ask("01 28 50 c8 01 80 00 02"), "[01 50 28 c0 01 00 00 02 00 01]");
    EXPECT_EQ(ask("01 2a 50 c8 01 80 00 02"), "[01 50 2a c0 01 00 00 02 00 03]");
    EXPECT_EQ(ask("01 29 50 c8 00 80 02"), "[01 50 29 c0 00 00 02 00 29 00 00]");
}

TEST_F(SerialBridge, PoolMayBeTooSmallOrHaveTheBridgesOwnEid) {
    EXPECT_EQ(control("80 08 01 03 07"), "00 08 02");
    EXPECT_EQ(control("80 08 01 03 08"), "00 08 00 00 03 08");
    EXPECT_EQ(control("80 0a 00"),
              "00 0a 00 ff 03 01 08 80 05 24 00 01 09 01 01 03 01 64 01 0a 01 01 04 01 66");
    EXPECT_EQ(ask("01 0b 50 c8 01 80 00 02"), "");
}

TEST_F(SerialBridge, EndpointsAnswerAsThemselvesWhoeverAsks) {
    EXPECT_EQ(ask("01 09 50 c8 01 80 00 02"), "[01 50 09 c0 01 00 00 02 00 01]");
    EXPECT_EQ(ask("01 0a 51 cf 01 80 00 02"), "[01 51 0a c7 01 00 00 02 00 02]");
    EXPECT_EQ(ask("01 0b 00 c9 01 80 00 02"), "[01 00 0b c1 01 00 00 02 00 03]");
    EXPECT_EQ(ask("01 09 50 c8 00 80 02"), "[01 50 09 c0 00 00 02 00 09 03 00]")
        << "its static EID has been replaced";
    EXPECT_EQ(ask("01 09 50 c8 00 80 0a 00"), "[01 50 09 c0 00 00 0a 05]");
}

TEST_F(SerialBridge, AnswersTakeTheDevicesTime) {
    send("01 09 50 c8 01 80 00 02");
    EXPECT_EQ(bridge->next_due(), board->now_us() * 1000 + 500'000);
    EXPECT_EQ(sent_within(400), "");
    EXPECT_EQ(sent_within(100), "[01 50 09 c0 01 00 00 02 00 01]");
    EXPECT_EQ(bridge->next_due(), std::nullopt);
}

TEST_F(SerialBridge, NobodyHasAnUnknownEid) {
    EXPECT_EQ(ask("01 0e 50 c8 01 80 00 02"), "");
    EXPECT_EQ(ask("01 fe 50 c8 01 80 00 02"), "");
}

TEST_F(SerialBridge, FollowsAnEndpointToAnEidThatAClientGaveIt) {
    EXPECT_EQ(ask("01 0a 50 c8 00 80 01 00 30"), "[01 50 30 c0 00 00 01 00 00 30 00]");
    EXPECT_EQ(ask("01 0a 50 c8 01 80 00 02"), "");
    EXPECT_EQ(ask("01 30 50 c8 01 80 00 02"), "[01 50 30 c0 01 00 00 02 00 02]");
}

TEST_F(SerialBridge, TwoRequestersAtOnceHaveTheirOwnAssemblies) {
    // GetPLDMVersion in two packets each, interleaved.
    const std::string first = " 01 80 00 03";
    const std::string second = " 00 00 00 00 ";
    send("01 09 50 88" + first);
    send("01 09 51 88" + first);
    send("01 09 50 89 01 80 00 02");
    send("01 09 51 58" + second.substr(0, 12));
    EXPECT_EQ(sent_within(2000), "[01 51 09 c0 01 00 00 03 03]") << "too short a request";
    send("01 09 50 58" + second.substr(0, 12));
    EXPECT_EQ(sent_within(2000), "[01 50 09 c0 01 00 00 03 03]");
}

TEST_F(SerialBridge, WithoutPowerNobodyAnswersButTheBridge) {
    board->set_main_power(false);
    EXPECT_EQ(ask("01 0d 50 c8 01 80 00 02"), "");
    EXPECT_EQ(ask("01 0a 50 c8 01 80 00 02"), "[01 50 0a c0 01 00 00 02 00 02]") << "in standby";
    EXPECT_EQ(control("80 02"), "00 02 00 08 10 00");
}

TEST_F(SerialBridge, FaultsOfTheDevicesCount) {
    for (const char* kind : {"no_ack", "lost", "bad_pec"}) {
        add_fault("b", R"({"kind": ")" + std::string(kind) + R"("})");
        EXPECT_EQ(ask("01 0a 50 c8 01 80 00 02"), "") << kind;
        board->clear_faults("b");
    }
    add_fault("b", R"({"kind": "duplicate"})");
    EXPECT_EQ(ask("01 0a 50 c8 01 80 00 02"),
              "[01 50 0a c0 01 00 00 02 00 02][01 50 0a c0 01 00 00 02 00 02]");
    board->clear_faults("b");
    add_fault("c", R"({"kind": "bad_pec"})");
    EXPECT_EQ(ask("01 0b 50 c8 01 80 00 02"), "[01 50 0b c0 01 00 00 02 00 03]")
        << "PCIe has no PEC";
}

TEST_F(SerialBridge, OwnerAsksWhoeverIsOnTheLine) {
    EXPECT_EQ(ask("01 0c 50 c8 00 80 0d"), "[01 50 0c c0 00 00 0d 00][01 00 0c c8 00 80 0b]");
}

TEST_F(SerialBridge, EidsFollowTheBridgesAsFarAsThereAreAny) {
    open_bridge(kDevices, 252);
    EXPECT_EQ(ask("01 fd 50 c8 01 80 00 02"), "[01 50 fd c0 01 00 00 02 00 01]");
    EXPECT_EQ(ask("01 fe 50 c8 01 80 00 02"), "[01 50 fe c0 01 00 00 02 00 02]");
    EXPECT_EQ(ask("01 fc 50 ca 00 80 0a 00"),
              "[01 50 fc c2 00 00 0a 00 ff 03 01 fc 80 05 24 00 01 fd 01 01 03 01 64 "
              "01 fe 01 01 04 01 66]");
}

TEST_F(SerialBridge, AFloodIsLostWhereItIsNotSent) {
    for (int i = 0; i < 20'000; ++i) {
        send("01 09 50 c8 01 80 00 02");
    }
    sent_within(1000);
    EXPECT_EQ(ask("01 09 50 c8 01 80 00 02"), "[01 50 09 c0 01 00 00 02 00 01]");
}

TEST_F(SerialBridge, FloodIsBounded) {
    for (int i = 0; i < 20'000; ++i) {
        send("01 09 50 c8 01 80 00 02");
    }
    board->advance_us(1000);
    bridge->send_due();
    EXPECT_EQ(sent.size(), 16'384u);
}

}  // namespace
