// SPDX-License-Identifier: Apache-2.0
// A device's MCTP stack: packets, reassembly, the missing end mark, control messages.
#include <cerrno>

#include "board_test.h"

namespace {

const std::string kSilence = "error " + std::to_string(-ETIMEDOUT);

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
            {"name": "p", "type": "pldm", "bus": 3, "address": "0x64", "eid": 9,
             "uuid": "00112233-4455-6677-8899-aabbccddeeff"},
            {"name": "n", "type": "pldm", "bus": 3, "address": "0x66"},
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

TEST_F(MctpStack, SetEndpointIdGivesAnEid) {
    EXPECT_EQ(exchange(3, 0x66, "01 00 08 c9 00 80 02"), "01 08 00 c1 00 00 02 00 00 00 00");
    EXPECT_EQ(exchange(3, 0x66, "01 00 08 c9 00 81 01 00 10"), "01 08 10 c1 00 01 01 00 00 10 00");
    EXPECT_EQ(exchange(3, 0x66, "01 10 08 c9 00 82 02"), "01 08 10 c1 00 02 02 00 10 00 00");
}

TEST_F(MctpStack, ReservedEidsAreInvalidData) {
    for (const char* eid : {"00", "07", "ff"}) {
        EXPECT_EQ(exchange(3, 0x66, std::string("01 00 08 c9 00 80 01 00 ") + eid),
                  "01 08 00 c1 00 00 01 02");
    }
}

TEST_F(MctpStack, StaticEidCanBeReplacedAndReset) {
    EXPECT_EQ(exchange(3, 0x64, "01 00 08 c9 00 80 01 00 20"), "01 08 20 c1 00 00 01 00 00 20 00");
    EXPECT_EQ(exchange(3, 0x64, "01 00 08 c9 00 80 02"), "01 08 20 c1 00 00 02 00 20 03 00");
    EXPECT_EQ(exchange(3, 0x64, "01 00 08 c9 00 80 01 02 00"), "01 08 09 c1 00 00 01 00 00 09 00");
    EXPECT_EQ(exchange(3, 0x66, "01 00 08 c9 00 80 01 02 00"), "01 08 00 c1 00 00 01 02");
}

TEST_F(MctpStack, TellsItsUuid) {
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 03"),
              "01 08 09 c1 00 00 03 00 00 11 22 33 44 55 66 77 88 99 aa bb cc dd ee ff");
    const std::string first = exchange(3, 0x66, "01 00 08 c9 00 80 03");
    EXPECT_EQ(first.size(), (4 + 4 + 16) * 3 - 1u);
    EXPECT_NE(first.substr(24), "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    SetUp();
    EXPECT_EQ(exchange(3, 0x66, "01 00 08 c9 00 80 03"), first);
}

TEST_F(MctpStack, TellsVersions) {
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 04 ff"),
              "01 08 09 c1 00 00 04 00 01 f1 f3 f1 00");
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 04 00"),
              "01 08 09 c1 00 00 04 00 01 f1 f3 f1 00");
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 04 01"),
              "01 08 09 c1 00 00 04 00 01 f1 f1 f0 00");
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 04 02"), "01 08 09 c1 00 00 04 80");
}

TEST_F(MctpStack, TellsMessageTypesBesidesControl) {
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 05"), "01 08 09 c1 00 00 05 00 01 01");
}

TEST_F(MctpStack, DiscoveredEndpointKeepsSilentUntilPrepared) {
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 0c"), "01 08 09 c1 00 00 0c 00");
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 01 03 00"), "01 08 09 c1 00 00 01 00 00 09 00");
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 0c"), kSilence);
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 0b"), "01 08 09 c1 00 00 0b 00");
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 0c"), "01 08 09 c1 00 00 0c 00");
}

TEST_F(MctpStack, OtherControlCommandsAreUnsupported) {
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 06 00"), "01 08 09 c1 00 00 06 05");
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 0a 00"), "01 08 09 c1 00 00 0a 05");
}

TEST_F(MctpStack, ControlRequestsOfWrongLengthAreInvalid) {
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 02 00"), "01 08 09 c1 00 00 02 03");
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 01 00"), "01 08 09 c1 00 00 01 03");
}

TEST_F(MctpStack, ControlResponsesDatagramsAndStubsGetNoAnswer) {
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 00 02"), kSilence);
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 c0 02"), kSilence);
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80"), kSilence);
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00"), kSilence);
}

TEST_F(MctpStack, UnknownMessageTypesGetNoAnswer) {
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 05 80 02"), kSilence);
}

}  // namespace
