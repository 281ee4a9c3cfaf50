// SPDX-License-Identifier: Apache-2.0
// The replay device: recorded requests get recorded responses, all others silence.
#include "sim/board/board_fixture.h"

namespace {

using namespace sim_test;

class Replay : public BoardTest {
protected:
    void SetUp() override {
        open(board_with(R"(
            {"name": "rec0", "type": "replay", "bus": 5, "address": "0x30", "eid": 12, "exchanges": [
                {"message_type": 1, "request": "800211640000", "response": "150211000401"},
                {"message_type": 1, "request": "9f0211640000", "response": "200211000402"},
                {"message_type": 1, "request": "800004", "response": ""},
                {"message_type": 0, "request": "8003", "response": "000300ff"},
                {"message_type": 126, "request": "05", "response": "06"}]},
            {"name": "rec1", "type": "replay", "bus": 5, "address": "0x32", "eid": 13, "exchanges": [
                {"message_type": 0, "request": "8002", "response": "000200080100"},
                {"message_type": 0, "request": "80010008", "response": "000105"}]}
        )"));
    }

    std::string ask(const std::string& message) {
        return exchange(5, 0x30, "01 0c 08 c9 " + message);
    }
};

TEST_F(Replay, InstanceIdIsIgnoredAndCopied) {
    EXPECT_EQ(ask("01 9a 02 11 64 00 00"), "01 08 0c c1 01 1a 02 11 00 04 01");
}

TEST_F(Replay, EqualRequestsAreAnsweredInTurn) {
    EXPECT_EQ(ask("01 80 02 11 64 00 00"), "01 08 0c c1 01 00 02 11 00 04 01");
    // The upper bits of the recorded response stay: here the reserved bit.
    EXPECT_EQ(ask("01 81 02 11 64 00 00"), "01 08 0c c1 01 21 02 11 00 04 02");
    EXPECT_EQ(ask("01 82 02 11 64 00 00"), "01 08 0c c1 01 02 02 11 00 04 01");
}

TEST_F(Replay, UnknownRequestsGetNoAnswer) {
    EXPECT_EQ(ask("01 80 02 11 65 00 00"), kSilence);
    EXPECT_EQ(ask("01 80 02 11 64 00"), kSilence);
    EXPECT_EQ(ask("01 00 02 11 64 00 00"), kSilence);  // not a request
    EXPECT_EQ(ask("02 80 02 11 64 00 00"), kSilence);
    EXPECT_EQ(ask("00 80 04 ff"), kSilence);
}

TEST_F(Replay, EmptyResponseIsSilence) {
    EXPECT_EQ(ask("01 80 00 04"), kSilence);
}

TEST_F(Replay, OtherMessageTypesHaveNoInstanceId) {
    EXPECT_EQ(ask("7e 05"), "01 08 0c c1 7e 06");
    EXPECT_EQ(ask("7e 06"), kSilence);
}

TEST_F(Replay, AnswersTheEidCommandsItself) {
    EXPECT_EQ(exchange(5, 0x30, "01 00 08 c9 00 85 02"), "01 08 0c c1 00 05 02 00 0c 02 00");
    EXPECT_EQ(exchange(5, 0x30, "01 00 08 c9 00 86 01 00 20"), "01 08 20 c1 00 06 01 00 00 20 00");
    EXPECT_EQ(exchange(5, 0x30, "01 20 08 c9 00 87 03"), "01 08 20 c1 00 07 03 00 ff");
    EXPECT_EQ(exchange(5, 0x30, "01 20 08 c9 00 88 05"), kSilence);
}

TEST_F(Replay, RecordedControlMessagesGoFirst) {
    EXPECT_EQ(exchange(5, 0x32, "01 00 08 c9 00 9f 02"), "01 08 0d c1 00 1f 02 00 08 01 00");
    EXPECT_EQ(exchange(5, 0x32, "01 00 08 c9 00 80 01 00 08"), "01 08 0d c1 00 00 01 05");
    EXPECT_EQ(exchange(5, 0x32, "01 00 08 c9 00 80 01 00 09"), "01 08 09 c1 00 00 01 00 00 09 00");
}

}  // namespace
