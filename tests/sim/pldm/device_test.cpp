// SPDX-License-Identifier: Apache-2.0
// The simulated PLDM terminus: base commands, byte by byte (DSP0240).
#include "terminus_fixture.h"

namespace {

using namespace sim_test;

class PldmTerminus : public TerminusTest {
protected:
    void SetUp() override { open_terminus(R"("tid": 5)"); }
};

TEST_F(PldmTerminus, TellsAndTakesATid) {
    EXPECT_EQ(pldm("83 00 02"), "03 00 02 00 05");
    EXPECT_EQ(pldm("84 00 01 2a"), "04 00 01 00");
    EXPECT_EQ(pldm("85 00 02"), "05 00 02 00 2a");
    EXPECT_EQ(pldm("86 00 01 00"), "06 00 01 02");
    EXPECT_EQ(pldm("87 00 01 ff"), "07 00 01 02");
}

TEST_F(PldmTerminus, TellsVersionsWithTheirCrc) {
    EXPECT_EQ(pldm("80 00 03 00 00 00 00 01 00"),
              "00 00 03 00 00 00 00 00 05 00 f0 f1 f1 ba be 9d 53");
    EXPECT_EQ(pldm("80 00 03 00 00 00 00 01 02"),
              "00 00 03 00 00 00 00 00 05 00 f1 f2 f1 4e 87 72 79");
    EXPECT_EQ(pldm("80 00 03 00 00 00 00 00 00"), "00 00 03 81");  // next part of nothing
    EXPECT_EQ(pldm("80 00 03 00 00 00 00 01 05"), "00 00 03 83");
}

TEST_F(PldmTerminus, TellsTypesAndCommands) {
    EXPECT_EQ(pldm("80 00 04"), "00 00 04 00 05 00 00 00 00 00 00 00");
    const std::string zeros = " 00 00 00 00 00 00 00 00 00 00 00 00 00 00";
    EXPECT_EQ(pldm("80 00 05 00 00 f0 f1 f1"), "00 00 05 00 3e 00 00 00" + zeros + zeros);
    EXPECT_EQ(pldm("80 00 05 02 00 f1 f2 f1"),
              "00 00 05 00 00 00 07 00 03 00 00 00 00 00 0b" + zeros.substr(18) + zeros.substr(3));
    EXPECT_EQ(pldm("80 00 05 00 00 00 00 00"),  // version 0: any
              "00 00 05 00 3e 00 00 00" + zeros + zeros);
    EXPECT_EQ(pldm("80 00 05 00 00 f0 f0 f1"), "00 00 05 84");
    EXPECT_EQ(pldm("80 00 05 04 00 00 00 00"), "00 00 05 83");
}

TEST_F(PldmTerminus, RefusesWhatItDoesNotKnow) {
    EXPECT_EQ(pldm("80 05 01"), "00 05 01 20");
    EXPECT_EQ(pldm("80 04 01"), "00 04 01 20");
    EXPECT_EQ(pldm("80 00 06"), "00 00 06 05");
    EXPECT_EQ(pldm("80 02 52"), "00 02 52 05");
    EXPECT_EQ(pldm("80 00 02 00"), "00 00 02 03");
    EXPECT_EQ(pldm("80 02 11 01 00"), "00 02 11 03");
}

TEST_F(PldmTerminus, ResponsesDatagramsStubsAndLaterHeadersGetNoAnswer) {
    EXPECT_EQ(pldm("00 00 02"), kSilence);
    EXPECT_EQ(pldm("c0 00 02"), kSilence);
    EXPECT_EQ(pldm("80 40 02"), kSilence);
    EXPECT_EQ(pldm("80 00"), kSilence);
}

}  // namespace
