// SPDX-License-Identifier: Apache-2.0
// Faults: each kind as it shows on the bus, and when it strikes.
#include <cerrno>

#include "sim/board/board_fixture.h"

namespace {

using namespace sim_test;

constexpr const char* kAnswer = "01 08 09 c1 00 00 02 00 09 02 00";

class Faults : public BoardTest {
protected:
    void SetUp() override {
        open(board_with(R"(
            {"name": "p", "type": "pldm", "bus": 3, "address": "0x64", "eid": 9},
            {"name": "r", "type": "replay", "bus": 3, "address": "0x66", "eid": 10,
             "transmission_unit": 4, "exchanges": [
                {"message_type": 126, "request": "01", "response": "a0a1a2b0b1b2b3c0c1"}]}
        )"));
    }

    std::string ask() { return exchange(3, 0x64, "01 09 08 c9 00 80 02"); }
    int ask_long() { return send(3, 0x66, "01 0a 08 c9 7e 01"); }
};

TEST_F(Faults, NoAck) {
    add_fault("p", R"({"kind": "no_ack", "count": 2})");
    EXPECT_EQ(ask(), "write " + std::to_string(-ENXIO));
    EXPECT_EQ(ask(), "write " + std::to_string(-ENXIO));
    EXPECT_EQ(ask(), kAnswer);
}

TEST_F(Faults, LostRequest) {
    add_fault("p", R"({"kind": "lost", "what": "request", "count": 1})");
    EXPECT_EQ(ask(), kSilence);
    EXPECT_EQ(ask(), kAnswer);
}

TEST_F(Faults, LostResponse) {
    add_fault("r", R"({"kind": "lost", "after": 1, "count": 1})");
    EXPECT_EQ(ask_long(), 0);
    EXPECT_EQ(receive(3), "01 08 0a 81 7e a0 a1 a2");
    EXPECT_EQ(receive(3), "01 08 0a 61 c0 c1");
}

TEST_F(Faults, Duplicate) {
    add_fault("p", R"({"kind": "duplicate", "count": 1})");
    EXPECT_EQ(ask(), kAnswer);
    EXPECT_EQ(receive(3), kAnswer);
    EXPECT_EQ(receive(3), kSilence);
}

TEST_F(Faults, Reorder) {
    add_fault("r", R"({"kind": "reorder", "count": 1})");
    EXPECT_EQ(ask_long(), 0);
    EXPECT_EQ(receive(3), "01 08 0a 11 b0 b1 b2 b3");
    EXPECT_EQ(receive(3), "01 08 0a 81 7e a0 a1 a2");
    EXPECT_EQ(receive(3), "01 08 0a 61 c0 c1");
}

TEST_F(Faults, Late) {
    add_fault("p", R"({"kind": "late", "delay_us": 300000, "count": 1})");
    const uint64_t before = board->now_us();
    EXPECT_EQ(ask(), kAnswer);
    // 12 bytes out, 500 us to think, the delay, 16 bytes back; 22.5 us a byte.
    EXPECT_EQ(board->now_us() - before, 28 * 45 / 2 + 500 + 300'000u);
}

TEST_F(Faults, LateBeyondTheWaitArrivesAfterIt) {
    add_fault("p", R"({"kind": "late", "delay_us": 1500000, "count": 1})");
    EXPECT_EQ(ask(), kSilence);
    EXPECT_EQ(receive(3), kAnswer);
}

TEST_F(Faults, Truncate) {
    add_fault("p", R"({"kind": "truncate", "bytes": 2, "count": 1})");
    EXPECT_EQ(ask(), "01 08 09 c1 00 00 02 00 09");
    add_fault("p", R"({"kind": "truncate", "bytes": 255, "count": 1})");
    EXPECT_EQ(send(3, 0x64, "01 09 08 c9 00 80 02"), 0);
    EXPECT_EQ(read(3), "0f 01 65 a0");  // header and PEC alone
}

TEST_F(Faults, OverLong) {
    add_fault("p", R"({"kind": "over_long", "bytes": 3, "count": 1})");
    EXPECT_EQ(ask(), std::string(kAnswer) + " ee ee ee");
    add_fault("p", R"({"kind": "over_long", "bytes": 255, "count": 1})");
    // An SMBus block holds no more than 255 bytes.
    EXPECT_EQ(ask().size(), 254 * 3 - 1u);
}

TEST_F(Faults, BadPec) {
    add_fault("p", R"({"kind": "bad_pec", "count": 1})");
    EXPECT_EQ(ask(), "error " + std::to_string(-EBADMSG));
    EXPECT_EQ(ask(), kAnswer);
}

TEST_F(Faults, WrongTag) {
    add_fault("p", R"({"kind": "wrong_tag", "count": 2})");
    EXPECT_EQ(ask(), "01 08 09 c2 00 00 02 00 09 02 00");
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 cf 00 80 02"), "01 08 09 c0 00 00 02 00 09 02 00");
}

TEST_F(Faults, WrongSequence) {
    add_fault("r", R"({"kind": "wrong_sequence", "after": 1, "count": 1})");
    EXPECT_EQ(ask_long(), 0);
    EXPECT_EQ(receive(3), "01 08 0a 81 7e a0 a1 a2");
    EXPECT_EQ(receive(3), "01 08 0a 21 b0 b1 b2 b3");
    EXPECT_EQ(receive(3), "01 08 0a 61 c0 c1");
}

TEST_F(Faults, NotReady) {
    add_fault("p", R"({"kind": "not_ready", "count": 2})");
    EXPECT_EQ(ask(), "01 08 09 c1 00 00 02 04");
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 01 9d 00 02"), "01 08 09 c1 01 1d 00 02 04");
    EXPECT_EQ(ask(), kAnswer);
}

TEST_F(Faults, NotReadyIsForControlAndPldmAlone) {
    add_fault("r", R"({"kind": "not_ready", "count": 1})");
    EXPECT_EQ(ask_long(), 0);
    EXPECT_EQ(receive(3), "01 08 0a 81 7e a0 a1 a2");
    EXPECT_EQ(receive(3), "01 08 0a 11 b0 b1 b2 b3");
    EXPECT_EQ(receive(3), "01 08 0a 61 c0 c1");
    EXPECT_EQ(exchange(3, 0x66, "01 0a 08 c9 00 80 02"), "01 08 0a c1 00 00 02 04");
}

TEST_F(Faults, StrikeEveryNthAfterTheFirst) {
    add_fault("p", R"({"kind": "no_ack", "after": 1, "every": 3, "count": 2})");
    std::string seen;
    for (int i = 0; i < 10; ++i) {
        seen += ask() == kAnswer ? "." : "x";
    }
    EXPECT_EQ(seen, ".x..x.....");
}

TEST_F(Faults, WithoutCountStrikeUntilCleared) {
    add_fault("p", R"({"kind": "no_ack"})");
    for (int i = 0; i < 5; ++i) {
        EXPECT_NE(ask(), kAnswer);
    }
    board->clear_faults("p");
    board->clear_faults("nobody");
    EXPECT_EQ(ask(), kAnswer);
}

TEST_F(Faults, MalformedFaultsAreRefused) {
    sim::BoardError error;
    EXPECT_FALSE(board->add_fault("nobody", R"({"kind": "no_ack"})", error));
    EXPECT_EQ(error.text, "the board has no device nobody");
    EXPECT_FALSE(board->add_fault("p", R"({"kind": "gremlin"})", error));
    EXPECT_EQ(error.key, "kind");
    EXPECT_FALSE(board->add_fault("p", R"({"kind": "late"})", error));
    EXPECT_EQ(error.key, "delay_us");
    EXPECT_EQ(error.text, "is missing");
    EXPECT_FALSE(board->add_fault("p", "{\"kind\": \"no_ack\",\n\"bytes\": 2}", error));
    EXPECT_EQ(error.key, "bytes");
    EXPECT_EQ(error.line, 2);
    EXPECT_FALSE(board->add_fault("p", "", error));
    EXPECT_EQ(ask(), kAnswer);
}

TEST_F(Faults, BoardFileSetsThemToo) {
    open(board_with(R"({"name": "p", "type": "pldm", "bus": 3, "address": "0x64", "eid": 9,
                        "faults": [{"kind": "no_ack", "count": 1}]})"));
    EXPECT_EQ(ask(), "write " + std::to_string(-ENXIO));
    EXPECT_EQ(ask(), kAnswer);
}

}  // namespace
