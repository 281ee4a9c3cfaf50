// SPDX-License-Identifier: Apache-2.0
// The bus owner: what it asks the BMC in turn, and that it sees a wrong answer.
#include "pcie_fixture.h"

namespace {

using namespace sim_test;

/// A BMC spoken by hand: it takes the owner's requests off PCIe and answers as told.
class BusOwnerDevice : public PcieBoard {
protected:
    void SetUp() override {
        open(board_with(R"({"name": "own0", "type": "bus_owner", "transport": "pcie",
                            "bdf": "80:02.1", "eid": 10, "assign": 40})"));
    }

    /// Discovery Notify. @return the owner's answer
    static std::string notify() {
        plt_pcie_request request = to(0x80, 2, 1, "00 80 0d");
        return PltMCTP_WriteRead(&request) == 1 ? message_of(request) : "nothing";
    }

    /// Waits for the owner's next request. @return its message, or "nothing"
    std::string next() {
        asked = reading();
        return PltMCTP_WriteRead(&asked) == 1 ? message_of(asked) : "nothing";
    }

    /// Answers the request that next() took. @param message  hex, the type byte first
    void answer(std::string_view message, uint8_t source_eid = 0) const {
        plt_pcie_request response = to(asked.bus, asked.device, asked.function, message);
        response.operation = PLT_PCIE_WRITE;
        response.tag = asked.tag;
        response.src_eid = source_eid;
        response.dest_eid = asked.src_eid;
        EXPECT_EQ(PltMCTP_WriteRead(&response), 1);
    }

    /// The complaint about the last answer that the owner has looked at.
    std::string complaint() const { return board->owner_report("own0").steps.back().complaint; }

    plt_pcie_request asked{};
};

TEST_F(BusOwnerDevice, AsksInTurnAndIsContentWithTheRightAnswers) {
    EXPECT_FALSE(board->owner_report("own0").notified);
    EXPECT_EQ(notify(), "00 00 0d 00");
    EXPECT_TRUE(board->owner_report("own0").notified);
    EXPECT_EQ(next(), "00 80 0b");
    EXPECT_EQ(asked.src_eid, 10);
    EXPECT_EQ(asked.bus, 0x80u);
    EXPECT_EQ(asked.device, 2u);
    EXPECT_EQ(asked.function, 1u);
    answer("00 00 0b 00");
    EXPECT_EQ(next(), "00 81 0c");
    answer("00 01 0c 00");
    EXPECT_EQ(next(), "00 82 0c") << "again, and nobody answers";
    EXPECT_EQ(next(), "00 83 02");
    answer("00 03 02 00 00 10 00");
    EXPECT_EQ(next(), "00 84 06 00");
    answer("00 04 06 00 ff 00 03 1a 00 01");
    EXPECT_EQ(next(), "00 85 06 01");
    answer("00 05 06 02");
    EXPECT_EQ(next(), "00 86 01 00 00");
    answer("00 06 01 02");
    EXPECT_EQ(next(), "00 87 01 00 28");
    EXPECT_FALSE(board->owner_report("own0").complete);
    answer("00 07 01 00 00 28 00", 40);
    const sim::OwnerReport report = board->owner_report("own0");
    EXPECT_TRUE(report.complete);
    EXPECT_TRUE(report.faultless());
    EXPECT_EQ(report.assigned_eid, 40);
    EXPECT_EQ(report.steps.size(), 8u);
}

TEST_F(BusOwnerDevice, ComplainsAboutWhatIsWrong) {
    ASSERT_EQ(notify(), "00 00 0d 00");
    ASSERT_EQ(next(), "00 80 0b");
    answer("00 00 0b 01");
    EXPECT_EQ(complaint(), "");  // that is already the next request
    EXPECT_EQ(board->owner_report("own0").steps[0].complaint, "expected 000b00");
    EXPECT_EQ(board->owner_report("own0").steps[0].answer, "000b01");
    ASSERT_EQ(next(), "00 81 0c");
    answer("00 01 0c 00 00 07");
    EXPECT_EQ(board->owner_report("own0").steps[1].complaint, "expected 010c00")
        << "only zeros may follow";
    ASSERT_EQ(next(), "00 82 0c");
    answer("00 02 0c 00");
    EXPECT_EQ(board->owner_report("own0").steps[2].complaint, "no answer was expected");
    ASSERT_EQ(next(), "00 83 02");
    answer("00 03 02 00 00 10 00", 77);
    EXPECT_EQ(board->owner_report("own0").steps[3].complaint, "the source EID is 0x4d");
    EXPECT_FALSE(board->owner_report("own0").faultless());
}

TEST_F(BusOwnerDevice, StopsWhereAnAnswerIsMissing) {
    ASSERT_EQ(notify(), "00 00 0d 00");
    ASSERT_EQ(next(), "00 80 0b");
    EXPECT_EQ(next(), "nothing");
    const sim::OwnerReport report = board->owner_report("own0");
    EXPECT_EQ(report.steps.size(), 1u);
    EXPECT_FALSE(report.complete);
    EXPECT_EQ(report.assigned_eid, 0);
}

TEST_F(BusOwnerDevice, AWrongLastAnswerAssignsNothing) {
    ASSERT_EQ(notify(), "00 00 0d 00");
    const char* const answers[] = {"00 00 0b 00",
                                   "00 01 0c 00",
                                   "",
                                   "00 03 02 00 00 10 00",
                                   "00 04 06 00 ff 00 03 1a 00 01",
                                   "00 05 06 02",
                                   "00 06 01 02",
                                   "00 07 01 00 00 29 00"};
    for (const char* each : answers) {
        ASSERT_NE(next(), "nothing");
        if (*each != '\0') {
            answer(each);
        }
    }
    const sim::OwnerReport report = board->owner_report("own0");
    EXPECT_TRUE(report.complete);
    EXPECT_EQ(report.steps.back().complaint, "expected 070100002800");
    EXPECT_EQ(report.assigned_eid, 0);
}

TEST_F(BusOwnerDevice, OtherDevicesReportNothing) {
    EXPECT_FALSE(board->owner_report("nobody").notified);
    EXPECT_TRUE(board->owner_report("nobody").steps.empty());
}

}  // namespace
