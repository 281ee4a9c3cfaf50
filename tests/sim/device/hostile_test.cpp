// SPDX-License-Identifier: Apache-2.0
// Hostile devices: repeatable, and right in the checks that come first.
#include "sim/device/hostile.h"

#include <set>

#include "sim/board/board_fixture.h"

namespace {

using namespace sim_test;
using sim::Hostile;
using sim::Message;

/// GetPDR, answered with a record in one part.
Message pdr_answer() {
    Message message;
    message.type = 1;
    message.body = bytes("00 02 51 00 02 00 00 00 00 00 00 00 05 04 00 a0 a1 a2 a3");
    message.source_eid = 9;
    message.destination_eid = 8;
    return message;
}

std::string text_of(const std::vector<Message>& messages) {
    std::string text;
    for (const Message& message : messages) {
        text += "[" + hex(message.body) + (message.tag_owner ? " rq" : "") + "]";
    }
    return text;
}

std::vector<std::string> said_by(uint64_t seed, uint32_t rate, size_t count) {
    Hostile hostile(seed, rate);
    std::vector<std::string> said;
    for (size_t i = 0; i < count; ++i) {
        said.push_back(text_of(hostile.spoil(pdr_answer())));
    }
    return said;
}

TEST(Hostile, SaysTheSameForTheSameSeed) {
    EXPECT_EQ(said_by(7, 500, 200), said_by(7, 500, 200));
    EXPECT_NE(said_by(7, 500, 200), said_by(8, 500, 200));
}

TEST(Hostile, ChangesAsManyMessagesAsItsRateSays) {
    const std::string honest = text_of({pdr_answer()});
    Hostile always(1, Hostile::kMostRate);
    for (int i = 0; i < 100; ++i) {
        always.spoil(pdr_answer());
    }
    EXPECT_EQ(always.spoilt(), 100u);
    // A rate of one in a thousand, before anything has become a habit.
    size_t unchanged = 0;
    for (uint64_t seed = 0; seed < 1000; ++seed) {
        unchanged += said_by(seed, 1, 1)[0] == honest ? 1 : 0;
    }
    EXPECT_GT(unchanged, 980u);
    EXPECT_LT(unchanged, 1001u);
}

TEST(Hostile, KnowsWhatMakesAnAnswerOneThatGoesOn) {
    std::set<std::string> flags;
    for (const std::string& said : said_by(3, 1000, 3000)) {
        // "[00 02 51 00 ..." has its transfer flag in the thirteenth byte.
        if (said.size() > 40 && said.starts_with("[00 02 51 00")) {
            flags.insert(said.substr(1 + 12 * 3, 2));
        }
    }
    EXPECT_TRUE(flags.contains("01")) << "the middle one of several parts";
    EXPECT_TRUE(flags.contains("05"));
}

TEST(Hostile, IsSilentAtTimesAndSpeaksTwiceAtOthers) {
    size_t silent = 0;
    size_t more = 0;
    for (const std::string& said : said_by(5, 1000, 2000)) {
        silent += said.empty() ? 1 : 0;
        more += said.find("][") != std::string::npos ? 1 : 0;
    }
    EXPECT_GT(silent, 10u);
    EXPECT_GT(more, 10u);
}

TEST(Hostile, MostIntegrityChecksAreRight) {
    Hostile hostile(11, 1000);
    size_t right = 0;
    size_t all = 0;
    for (int i = 0; i < 2000; ++i) {
        Message message;
        message.type = 0x84;
        message.body = bytes("88 00 00 00 20 00 00 01 02 03 04");
        sim::Bytes covered{message.type};
        sim::append(covered, message.body);
        sim::append_le32(message.body, sim::crc32c(covered));
        for (const Message& spoilt : hostile.spoil(message)) {
            if (spoilt.body.size() < 4) {
                continue;
            }
            const sim::ByteView body = spoilt.body;
            sim::Bytes summed{spoilt.type};
            sim::append(summed, body.first(body.size() - 4));
            ++all;
            right += sim::crc32c(summed) == sim::le32(body, body.size() - 4) ? 1 : 0;
        }
    }
    EXPECT_GT(right, all * 8 / 10);
    EXPECT_LT(right, all);
}

class HostileDevice : public BoardTest {
protected:
    void open_devices(const std::string& fault) {
        open(board_with(R"({"name": "p", "type": "pldm", "bus": 3, "address": "0x64", "eid": 9,
                            "faults": [)" +
                        fault + "]}"));
    }
    /// What the bus carries in answer to so many requests.
    std::string ask(int times) {
        std::string all;
        for (int i = 0; i < times; ++i) {
            all += exchange(3, 0x64, "01 09 08 c9 00 80 02") + "\n" + receive(3) + "\n";
        }
        return all;
    }
};

TEST_F(HostileDevice, IsRepeatable) {
    open_devices(R"({"kind": "hostile", "seed": 42, "rate": 800})");
    const std::string first = ask(100);
    open_devices(R"({"kind": "hostile", "seed": 42, "rate": 800})");
    EXPECT_EQ(ask(100), first);
    open_devices(R"({"kind": "hostile", "seed": 43, "rate": 800})");
    EXPECT_NE(ask(100), first);
}

TEST_F(HostileDevice, IsAsHonestAsBeforeOnceTheFaultIsGone) {
    open_devices(R"({"kind": "hostile", "seed": "0x2a", "rate": 1000})");
    ask(50);
    board->clear_faults("p");
    while (receive(3) != kSilence) {
    }
    EXPECT_EQ(exchange(3, 0x64, "01 09 08 c9 00 80 02"), "01 08 09 c1 00 00 02 00 09 02 00");
}

TEST_F(HostileDevice, NeedsASeedAndTakesARateInItsRange) {
    EXPECT_EQ(refusal_of(board_with(R"({"name": "p", "type": "pldm", "bus": 3, "address": "0x64",
                         "faults": [{"kind": "hostile"}]})")),
              "11: devices[0].faults[0].seed: is missing");
    EXPECT_EQ(refusal_of(board_with(R"({"name": "p", "type": "pldm", "bus": 3, "address": "0x64",
                         "faults": [{"kind": "hostile", "seed": 1, "rate": 1001}]})")),
              "11: devices[0].faults[0].rate: must be a whole number from 1 to 1000");
}

TEST_F(HostileDevice, WorksBesideOtherFaults) {
    open_devices(R"({"kind": "hostile", "seed": 9, "rate": 1000}, {"kind": "wrong_tag"},
                    {"kind": "wrong_sequence"}, {"kind": "truncate", "bytes": 3})");
    ask(300);
}

}  // namespace
