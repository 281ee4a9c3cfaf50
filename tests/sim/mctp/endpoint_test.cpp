// SPDX-License-Identifier: Apache-2.0
// A device's MCTP stack: packets, reassembly, the missing end mark.
#include "sim/board/board_fixture.h"

namespace {

using namespace sim_test;

/// A byte n times over, as a board file has it.
std::string digits(int n, const std::string& byte) {
    std::string out;
    for (int i = 0; i < n; ++i) {
        out += byte;
    }
    return out;
}

/// The same, as wire bytes.
std::string run(int n, const std::string& byte) {
    return digits(n, " " + byte);
}

class MctpStack : public BoardTest {
protected:
    void SetUp() override {
        // "r" knows a request of 8 bytes with its type byte, one of 192 and one with a long answer.
        open(board_with(R"(
            {"name": "p", "type": "pldm", "bus": 3, "address": "0x64", "eid": 9},
            {"name": "r", "type": "replay", "bus": 3, "address": "0x68", "eid": 10, "exchanges": [
                {"message_type": 126, "request": "01020304050607", "response": "aa"},
                {"message_type": 126, "request": ")" +
                        digits(191, "5a") + R"(", "response": "bb"},
                {"message_type": 126, "request": "0f", "response": ")" +
                        digits(140, "c3") + R"("}]},
            {"name": "s", "type": "replay", "bus": 3, "address": "0x6a", "eid": 11,
             "lenient_eom": false, "transmission_unit": 70, "exchanges": [
                {"message_type": 126, "request": "01020304050607", "response": "aa"},
                {"message_type": 126, "request": "0f", "response": ")" +
                        digits(140, "c3") + R"("}]}
        )"));
    }
};

TEST_F(MctpStack, IgnoresOtherHeaderVersionsAndOtherEids) {
    EXPECT_EQ(exchange(3, 0x64, "02 00 08 c9 00 80 02"), kSilence);
    EXPECT_EQ(exchange(3, 0x64, "01 0a 08 c9 00 80 02"), kSilence);
    EXPECT_EQ(exchange(3, 0x64, "01 00 08 c9"), kSilence);
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 02"), "01 08 09 c1 00 00 02 00 09 02 00");
    EXPECT_EQ(exchange(3, 0x64, "01 ff 08 c9 00 80 02"), "01 08 09 c1 00 00 02 00 09 02 00");
    EXPECT_EQ(exchange(3, 0x64, "f1 09 08 c9 00 80 02"), "01 08 09 c1 00 00 02 00 09 02 00");
}

TEST_F(MctpStack, AnswersWithTheRequestersTagAndTagOwnerClear) {
    EXPECT_EQ(exchange(3, 0x64, "01 09 20 cf 00 9f 02"), "01 20 09 c7 00 1f 02 00 09 02 00");
}

TEST_F(MctpStack, ResponsesAreNotAnswered) {
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c1 00 80 02"), kSilence);
}

TEST_F(MctpStack, PutsPacketsTogether) {
    EXPECT_EQ(send(3, 0x68, "01 0a 08 89 7e 01 02"), 0);
    EXPECT_EQ(send(3, 0x68, "01 0a 08 19 03 04 05"), 0);
    EXPECT_EQ(send(3, 0x68, "01 0a 08 69 06 07"), 0);
    EXPECT_EQ(receive(3), "01 08 0a c1 7e aa");
}

TEST_F(MctpStack, KeepsMessagesOfDifferentTagsApart) {
    EXPECT_EQ(send(3, 0x68, "01 0a 08 89 7e 01 02 03"), 0);
    EXPECT_EQ(send(3, 0x68, "01 0a 08 8a 7e 01 02 03"), 0);
    EXPECT_EQ(send(3, 0x68, "01 0a 08 59 04 05 06 07"), 0);
    EXPECT_EQ(send(3, 0x68, "01 0a 08 5a 04 05 06 07"), 0);
    EXPECT_EQ(receive(3), "01 08 0a c1 7e aa");
    EXPECT_EQ(receive(3), "01 08 0a c2 7e aa");
}

TEST_F(MctpStack, GapInTheSequenceEndsTheAssembly) {
    EXPECT_EQ(send(3, 0x68, "01 0a 08 89 7e 01 02"), 0);
    EXPECT_EQ(send(3, 0x68, "01 0a 08 29 03 04 05"), 0);  // sequence 2 instead of 1
    EXPECT_EQ(send(3, 0x68, "01 0a 08 69 06 07"), 0);
    EXPECT_EQ(receive(3), kSilence);
}

TEST_F(MctpStack, MiddlePacketOfAnotherSizeEndsTheAssembly) {
    EXPECT_EQ(send(3, 0x68, "01 0a 08 89 7e 01 02"), 0);
    EXPECT_EQ(send(3, 0x68, "01 0a 08 19 03 04"), 0);
    EXPECT_EQ(send(3, 0x68, "01 0a 08 69 05 06 07"), 0);
    EXPECT_EQ(receive(3), kSilence);
    EXPECT_EQ(send(3, 0x68, "01 0a 08 89 7e 01 02"), 0);
    EXPECT_EQ(send(3, 0x68, "01 0a 08 59 03 04 05 06 07"), 0);  // last one longer than the first
    EXPECT_EQ(receive(3), kSilence);
}

TEST_F(MctpStack, NewStartDropsWhatWasThere) {
    EXPECT_EQ(send(3, 0x68, "01 0a 08 89 7e 09 09 09"), 0);
    EXPECT_EQ(send(3, 0x68, "01 0a 08 89 7e 01 02 03"), 0);
    EXPECT_EQ(send(3, 0x68, "01 0a 08 59 04 05 06 07"), 0);
    EXPECT_EQ(receive(3), "01 08 0a c1 7e aa");
}

TEST_F(MctpStack, EndWithoutAStartIsIgnored) {
    EXPECT_EQ(exchange(3, 0x68, "01 0a 08 49 7e 01 02 03 04 05 06 07"), kSilence);
}

TEST_F(MctpStack, MessageThatFallsSilentOnFullPacketsIsComplete) {
    EXPECT_EQ(send(3, 0x68, "01 0a 08 89 7e" + run(95, "5a")), 0);
    EXPECT_EQ(send(3, 0x68, "01 0a 08 19" + run(96, "5a")), 0);
    EXPECT_EQ(receive(3), "01 08 0a c1 7e bb");
    EXPECT_EQ(statistics(3).missing_ends, 1u);
}

TEST_F(MctpStack, OnePacketWithoutEndIsNotComplete) {
    EXPECT_EQ(exchange(3, 0x68, "01 0a 08 89 7e 01 02 03 04 05 06 07"), kSilence);
    EXPECT_EQ(statistics(3).missing_ends, 0u);
}

TEST_F(MctpStack, StrictDeviceWaitsForTheEnd) {
    EXPECT_EQ(send(3, 0x6A, "01 0b 08 89 7e 01 02 03"), 0);
    EXPECT_EQ(send(3, 0x6A, "01 0b 08 19 04 05 06 07"), 0);
    EXPECT_EQ(receive(3), kSilence);
    EXPECT_EQ(statistics(3).missing_ends, 0u);
}

TEST_F(MctpStack, SplitsAnswersIntoTransmissionUnits) {
    EXPECT_EQ(exchange(3, 0x68, "01 0a 08 c9 7e 0f"), "01 08 0a 81 7e" + run(63, "c3"));
    EXPECT_EQ(receive(3), "01 08 0a 11" + run(64, "c3"));
    EXPECT_EQ(receive(3), "01 08 0a 61" + run(13, "c3"));
}

TEST_F(MctpStack, AnswerThatFillsItsLastPacketHasAnEnd) {
    // 141 bytes at 70 a packet: two full packets and one byte.
    EXPECT_EQ(exchange(3, 0x6A, "01 0b 08 c9 7e 0f"), "01 08 0b 81 7e" + run(69, "c3"));
    EXPECT_EQ(receive(3), "01 08 0b 11" + run(70, "c3"));
    EXPECT_EQ(receive(3), "01 08 0b 61" + run(1, "c3"));
}

TEST_F(MctpStack, UnknownMessageTypesGetNoAnswer) {
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 05 80 02"), kSilence);
}

}  // namespace
