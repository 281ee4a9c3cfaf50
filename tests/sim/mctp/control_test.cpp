// SPDX-License-Identifier: Apache-2.0
// A device's answers to MCTP control messages (DSP0236, clause 12).
#include "sim/board/board_fixture.h"

namespace {

using namespace sim_test;

class MctpControl : public BoardTest {
protected:
    void SetUp() override {
        open(board_with(R"(
            {"name": "p", "type": "pldm", "bus": 3, "address": "0x64", "eid": 9,
             "uuid": "00112233-4455-6677-8899-aabbccddeeff"},
            {"name": "n", "type": "pldm", "bus": 3, "address": "0x66"})"));
    }
};

TEST_F(MctpControl, SetEndpointIdGivesAnEid) {
    EXPECT_EQ(exchange(3, 0x66, "01 00 08 c9 00 80 02"), "01 08 00 c1 00 00 02 00 00 00 00");
    EXPECT_EQ(exchange(3, 0x66, "01 00 08 c9 00 81 01 00 10"), "01 08 10 c1 00 01 01 00 00 10 00");
    EXPECT_EQ(exchange(3, 0x66, "01 10 08 c9 00 82 02"), "01 08 10 c1 00 02 02 00 10 00 00");
}

TEST_F(MctpControl, ReservedEidsAreInvalidData) {
    for (const char* eid : {"00", "07", "ff"}) {
        EXPECT_EQ(exchange(3, 0x66, std::string("01 00 08 c9 00 80 01 00 ") + eid),
                  "01 08 00 c1 00 00 01 02");
    }
}

TEST_F(MctpControl, StaticEidCanBeReplacedAndReset) {
    EXPECT_EQ(exchange(3, 0x64, "01 00 08 c9 00 80 01 00 20"), "01 08 20 c1 00 00 01 00 00 20 00");
    EXPECT_EQ(exchange(3, 0x64, "01 00 08 c9 00 80 02"), "01 08 20 c1 00 00 02 00 20 03 00");
    EXPECT_EQ(exchange(3, 0x64, "01 00 08 c9 00 80 01 02 00"), "01 08 09 c1 00 00 01 00 00 09 00");
    EXPECT_EQ(exchange(3, 0x66, "01 00 08 c9 00 80 01 02 00"), "01 08 00 c1 00 00 01 02");
}

TEST_F(MctpControl, TellsItsUuid) {
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 03"),
              "01 08 09 c1 00 00 03 00 00 11 22 33 44 55 66 77 88 99 aa bb cc dd ee ff");
    const std::string first = exchange(3, 0x66, "01 00 08 c9 00 80 03");
    EXPECT_EQ(first.size(), (4 + 4 + 16) * 3 - 1u);
    EXPECT_NE(first.substr(24), "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    SetUp();
    EXPECT_EQ(exchange(3, 0x66, "01 00 08 c9 00 80 03"), first);
}

TEST_F(MctpControl, TellsVersions) {
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 04 ff"),
              "01 08 09 c1 00 00 04 00 01 f1 f3 f1 00");
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 04 00"),
              "01 08 09 c1 00 00 04 00 01 f1 f3 f1 00");
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 04 01"),
              "01 08 09 c1 00 00 04 00 01 f1 f1 f0 00");
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 04 02"), "01 08 09 c1 00 00 04 80");
}

TEST_F(MctpControl, TellsMessageTypesBesidesControl) {
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 05"), "01 08 09 c1 00 00 05 00 01 01");
}

TEST_F(MctpControl, DiscoveredEndpointKeepsSilentUntilPrepared) {
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 0c"), "01 08 09 c1 00 00 0c 00");
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 01 03 00"), "01 08 09 c1 00 00 01 00 00 09 00");
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 0c"), kSilence);
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 0b"), "01 08 09 c1 00 00 0b 00");
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 0c"), "01 08 09 c1 00 00 0c 00");
}

TEST_F(MctpControl, OtherControlCommandsAreUnsupported) {
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 06 00"), "01 08 09 c1 00 00 06 05");
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 0a 00"), "01 08 09 c1 00 00 0a 05");
}

TEST_F(MctpControl, ControlRequestsOfWrongLengthAreInvalid) {
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 02 00"), "01 08 09 c1 00 00 02 03");
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 01 00"), "01 08 09 c1 00 00 01 03");
}

TEST_F(MctpControl, ControlResponsesDatagramsAndStubsGetNoAnswer) {
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 00 02"), kSilence);
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 c0 02"), kSilence);
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80"), kSilence);
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00"), kSilence);
}

}  // namespace
