// SPDX-License-Identifier: Apache-2.0
// Answers that lie, are cut, or have bits flipped, and a platform that fails: every PLDM command.
#include <gtest/gtest.h>
#include <sideband/pldm_monitor.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>

#include "pldm/pldm_fixture.h"
#include "support/endpoint.h"

namespace {

using test::Bytes;
using test::Guarded;
using test::MctpAnswer;
using test::operator+;

/// A caller's terminus context and output, each between canaries.
class Caller {
public:
    Caller() : context_(sizeof(pldm_ctx), 0), output_(PLDM_PDR_PART_SIZE, 0xEE) {}

    pldm_ctx* ctx() { return reinterpret_cast<pldm_ctx*>(context_.data()); }
    uint32_t* reading() { return reinterpret_cast<uint32_t*>(output_.data()); }
    pldm_state_reading* state() { return reinterpret_cast<pldm_state_reading*>(output_.data()); }
    pldm_pdr* record() { return reinterpret_cast<pldm_pdr*>(output_.data()); }
    uint8_t* room() { return output_.data(); }
    bool intact() const { return context_.intact() && output_.intact(); }

    /// What the command under test has delivered: all members that commands fill, and the output.
    Bytes delivered() {
        Bytes bytes{ctx()->tid};
        bytes.insert(bytes.end(), ctx()->pldm_types, ctx()->pldm_types + 8);
        bytes.insert(bytes.end(), ctx()->base_commands, ctx()->base_commands + 32);
        for (unsigned shift = 0; shift < 32; shift += 8) {
            bytes.push_back(static_cast<uint8_t>(ctx()->pldm_version >> shift));
        }
        return bytes + output_.head(output_.size());
    }

private:
    Guarded context_;
    Guarded output_;
};

/// What is particular about a command.
enum Trait : unsigned {
    kKeepsRequest = 1,  ///< never releases it
    kLeavesSome = 2,    ///< may have stored something before it fails
    kWalks = 4,         ///< goes on as long as there are answers
};

/// One command of the library with an answer that it takes.
struct Command {
    const char* name;
    const char* good;
    size_t needed;             ///< bytes without which the answer is refused
    std::vector<int> results;  ///< of answers that are not good; 0 beside them
    int allocations;           ///< what a good answer takes
    int32_t no_memory;         ///< result if one of them fails
    std::function<int32_t(Caller&)> call;
    unsigned traits = 0;

    bool has(Trait trait) const { return (traits & trait) != 0; }
};

/// GetPDR: the last record, a state sensor with one composite sensor, in one part.
constexpr const char* kStatePdr =
    "00 02 51 00 00 00 00 00 00 00 00 00 05 1b 00 01 00 00 00 01 04 00 00 11 00 01 00 05 00 44 80"
    "02 00 03 00 00 00 01 01 00 01 03";

const std::vector<Command>& commands() {
    static const std::vector<Command> kAll = {
        {"GetTID",
         "00 00 02 00 2a",
         5,
         {-1},
         0,
         0,
         [](Caller& c) { return pldm_get_tid(c.ctx()); }},
        {"GetPLDMVersion",
         "00 00 03 00 00 00 00 00 05 01 f0 f1 f2 de ad be ef",
         13,
         {-1},
         1,
         -1,
         [](Caller& c) { return pldm_get_version(c.ctx(), 2); },
         kLeavesSome},
        {"GetPLDMTypes",
         "00 00 04 00 3d 00 00 00 00 00 00 80",
         12,
         {-1},
         0,
         0,
         [](Caller& c) { return pldm_get_type(c.ctx()); }},
        {"GetPLDMCommands",
         "00 00 05 00 3e 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f"
         "10 11 12 13 14 15 16 17 18 19 1a 1b 1c 1d 1e 1f",
         36,
         {-1},
         0,
         0,
         [](Caller& c) { return pldm_get_commands(c.ctx()); }},
        {"SetNumericSensorEnable",
         "00 02 10 00",
         4,
         {-1},
         0,
         0,
         [](Caller& c) { return pldm_set_numeric_sensor_enable(c.ctx(), 7, 0, 1); }},
        {"GetSensorReading",
         "00 02 11 00 05 00 01 01 01 01 78 56 34 92",
         14,
         {-1},
         0,
         0,
         [](Caller& c) { return pldm_get_sensor_reading(c.ctx(), 7, c.reading()); }},
        {"SetStateSensorEnables",
         "00 02 20 00",
         4,
         {-1},
         1,
         -112,
         [](Caller& c) { return pldm_set_state_sensor_enable(c.ctx(), 7, 2, 0, 1); },
         kKeepsRequest},
        {"GetStateSensorReadings",
         "00 02 21 00 03 01 01 02 03 02 04 05 06 00 07 08 09",
         17,
         {-1},
         1,
         -1,
         [](Caller& c) { return pldm_get_state_sensor_reading(c.ctx(), 7, c.state()); }},
        {"GetStateSensorReadings at 2",
         "00 02 21 00 03 01 01 02 03 02 04 05 06 00 07 08 09",
         17,
         {-1, 144},
         1,
         -112,
         [](Caller& c) {
             return pldm_get_state_sensor_reading_from_HEALTH(c.ctx(), 7, c.state(), 2);
         }},
        {"GetPDRRepositoryInfo",
         "00 02 50 00 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 01 02 03 04 05 06 07 08 09 0a 0b"
         "0c 0d 07 00 00 00 33 33 00 00 80 00 00 00 21",
         35,
         {-1},
         0,
         0,
         [](Caller& c) { return pldm_get_pdr_repository_info(c.ctx(), c.reading()); }},
        {"GetPDR",
         kStatePdr,
         42,
         {-1},
         1,
         144,
         [](Caller& c) {
             uint32_t handle = 1;
             return pldm_get_pdr(c.ctx(), &handle, c.room(), PLDM_PDR_PART_SIZE);
         }},
        {"GetPDR decoded",
         kStatePdr,
         42,
         {-1},
         2,
         -1,
         [](Caller& c) { return pldm_get_full_pdr(c.ctx(), 1, c.record()); },
         kLeavesSome},
        {"GetPDR of all records",
         kStatePdr,
         42,
         {255},
         2,
         255,
         [](Caller& c) { return pldm_PDR_traversal(c.ctx()); },
         kWalks},
    };
    return kAll;
}

class PldmHostile : public test::PlatformTest, public ::testing::WithParamInterface<size_t> {
protected:
    /// One command never releases its request.
    ~PldmHostile() override { libc.release_blocks(); }

    const Command& command() const { return commands()[GetParam()]; }

    /// The command with these answers, checked for what must hold whatever they say.
    int32_t exchange(Caller& caller, std::vector<MctpAnswer> answers) {
        test::FakeEndpoint endpoint;
        endpoint.answers.assign(answers.begin(), answers.end());
        EXPECT_EQ(mctp_pldm_register(&endpoint, caller.ctx()), 0);
        const Bytes before = caller.delivered();
        const size_t blocks = libc.live_blocks();
        const int32_t result = test::run([&] { return command().call(caller); }).result;
        EXPECT_TRUE(caller.intact());
        EXPECT_TRUE(result == 0 || allowed(result)) << result;
        EXPECT_EQ(libc.live_blocks(), blocks + (command().has(kKeepsRequest) ? 1 : 0));
        if (result != 0 && !command().has(kLeavesSome)) {
            EXPECT_EQ(caller.delivered(), before);
        }
        EXPECT_LE(endpoint.calls.size(), command().has(kWalks) ? answers.size() + 1 : 7);
        return result;
    }

    /// The command over SMBus, if this block is all that the device writes.
    void offer_block(const Bytes& block);

    Bytes good_block() const {
        return test::block(test::packet(0x08, 0x1D, test::kSom | test::kEom | 1,
                                        Bytes{1} + test::hex(command().good)));
    }

    bool allowed(int32_t result) const {
        return std::find(command().results.begin(), command().results.end(), result) !=
               command().results.end();
    }

    int32_t exchange(Caller& caller, const Bytes& answer) {
        return exchange(caller, std::vector<MctpAnswer>(8, MctpAnswer::of(answer)));
    }
};

void PldmHostile::offer_block(const Bytes& block) {
    test::port().reset();
    test::port().reads.push_back(test::SlaveRead::of(block));
    mctp_ctx mctp = test::ready_context();
    Caller caller;
    ASSERT_EQ(mctp_pldm_register(&mctp, caller.ctx()), 0);
    const int32_t result = test::run([&] { return command().call(caller); }).result;
    EXPECT_TRUE(result == 0 || allowed(result)) << result;
    EXPECT_TRUE(caller.intact());
    EXPECT_TRUE(test::port().held.empty());
}

TEST_P(PldmHostile, TheGoodAnswerIsTaken) {
    Caller caller;
    EXPECT_EQ(exchange(caller, test::hex(command().good)), 0);
}

TEST_P(PldmHostile, AnswersTruncatedAtEveryByteAreRefusedOrWholeEnough) {
    const Bytes good = test::hex(command().good);
    for (size_t length = 0; length <= good.size(); length++) {
        SCOPED_TRACE(length);
        Caller caller;
        const int32_t result =
            exchange(caller, Bytes(good.begin(), good.begin() + static_cast<long>(length)));
        EXPECT_EQ(result == 0, length >= command().needed) << result;
    }
}

TEST_P(PldmHostile, AnswersWithEachBitFlippedNeverLeaveTheBuffers) {
    const Bytes good = test::hex(command().good);
    for (size_t bit = 0; bit < good.size() * 8; bit++) {
        SCOPED_TRACE(bit);
        Bytes bad = good;
        bad[bit / 8] = static_cast<uint8_t>(bad[bit / 8] ^ (1u << (bit % 8)));
        Caller caller;
        const int32_t result = exchange(caller, bad);
        if (bit / 8 == 3) {
            EXPECT_NE(result, 0) << "an error code was taken for success";
        }
    }
}

TEST_P(PldmHostile, EveryByteAtItsExtremesNeverLeavesTheBuffers) {
    const Bytes good = test::hex(command().good);
    for (size_t at = 0; at < good.size(); at++) {
        for (uint8_t value : {0x00, 0x01, 0x7F, 0x80, 0xFE, 0xFF}) {
            SCOPED_TRACE(testing::Message() << "byte " << at << " = " << int{value});
            Bytes bad = good;
            bad[at] = value;
            Caller caller;
            exchange(caller, bad);
        }
    }
}

TEST_P(PldmHostile, LengthsThatLieNeverLeaveTheBuffers) {
    const Bytes good = test::hex(command().good);
    for (int32_t length : {INT32_MIN, -1, 0, 1, 3, 4, 37, 38, 4096, INT32_MAX}) {
        SCOPED_TRACE(length);
        Caller caller;
        const int32_t result =
            exchange(caller, std::vector<MctpAnswer>(8, MctpAnswer{length, good}));
        if (length < 4) {
            EXPECT_NE(result, 0);
        }
    }
}

TEST_P(PldmHostile, AnswersAtRandomNeverLeaveTheBuffers) {
    const Bytes good = test::hex(command().good);
    std::mt19937 random(static_cast<uint32_t>(1000 + GetParam()));
    for (int round = 0; round < 400; round++) {
        SCOPED_TRACE(round);
        Bytes body(random() % 48);
        std::generate(body.begin(), body.end(), [&] { return static_cast<uint8_t>(random()); });
        // Half of them get past the header.
        if (round % 2 == 0) {
            std::copy_n(good.begin(), std::min<size_t>(4, body.size()), body.begin());
        }
        Caller caller;
        exchange(caller, body);
    }
}

TEST_P(PldmHostile, EveryFailedAllocationGivesTheDocumentedError) {
    Caller caller;
    const int before = libc.allocations();
    EXPECT_EQ(exchange(caller, test::hex(command().good)), 0);
    const int allocations = libc.allocations() - before;
    for (int failing = 1; failing <= allocations; failing++) {
        Caller other;
        test::FakeEndpoint endpoint;
        endpoint.answer({command().good});
        ASSERT_EQ(mctp_pldm_register(&endpoint, other.ctx()), 0);
        const Bytes untouched = other.delivered();
        const size_t blocks = libc.live_blocks();
        libc.fail_allocation(failing);
        EXPECT_EQ(test::run([&] { return command().call(other); }).result, command().no_memory);
        EXPECT_EQ(other.delivered(), untouched);
        EXPECT_EQ(libc.live_blocks(), blocks);
        EXPECT_TRUE(endpoint.calls.empty());
    }
    // Which commands take memory at all is part of the contract with small machines.
    EXPECT_EQ(allocations, command().allocations);
}

// ---- Over SMBus: the bytes of the block itself ----

TEST_P(PldmHostile, BlocksWithEachBitFlippedNeverLeaveTheBuffersOrKeepTheBus) {
    const Bytes good = good_block();
    for (size_t bit = 0; bit < good.size() * 8; bit++) {
        SCOPED_TRACE(bit);
        Bytes bad = good;
        bad[bit / 8] = static_cast<uint8_t>(bad[bit / 8] ^ (1u << (bit % 8)));
        offer_block(bad);
    }
}

TEST_P(PldmHostile, BlocksTruncatedAtEveryByteNeverLeaveTheBuffersOrKeepTheBus) {
    const Bytes good = good_block();
    for (size_t length = 0; length < good.size(); length++) {
        SCOPED_TRACE(length);
        offer_block(Bytes(good.begin(), good.begin() + static_cast<long>(length)));
    }
}

TEST_P(PldmHostile, AnAnswerOfManyPacketsIsCutToTheCallersBuffer) {
    mctp_ctx mctp = test::ready_context();
    Caller caller;
    ASSERT_EQ(mctp_pldm_register(&mctp, caller.ctx()), 0);
    const Bytes good = test::hex(command().good);
    test::Endpoint device([&](uint8_t, const Bytes&) { return good + Bytes(2000, 0xFF); });
    const int32_t result = test::run([&] { return command().call(caller); }).result;
    EXPECT_TRUE(result == 0 || allowed(result)) << result;
    EXPECT_TRUE(caller.intact());
}

TEST_P(PldmHostile, EveryPlatformCallThatFailsGivesTheOrdinaryErrorAndFreesTheBus) {
    const auto attempt = [&](int failing) {
        test::port().reset();
        test::port().fail_call = failing;
        test::port().fail_following = failing > 0;
        mctp_ctx mctp = test::ready_context();
        Caller caller;
        EXPECT_EQ(mctp_pldm_register(&mctp, caller.ctx()), 0);
        test::Endpoint device({test::hex(command().good)});
        const int32_t result = test::run([&] { return command().call(caller); }).result;
        EXPECT_TRUE(test::port().held.empty());
        EXPECT_TRUE(test::port().violations.empty());
        EXPECT_TRUE(caller.intact());
        return result;
    };
    EXPECT_EQ(attempt(0), 0);
    const int calls = test::port().result_calls;
    EXPECT_GE(calls, 4);  // lock, power, write, read
    for (int failing = 1; failing <= calls; failing++) {
        SCOPED_TRACE(failing);
        EXPECT_EQ(attempt(failing), command().results.front());
    }
}

INSTANTIATE_TEST_SUITE_P(Commands, PldmHostile, testing::Range<size_t>(0, commands().size()),
                         [](const testing::TestParamInfo<size_t>& info) {
                             std::string name = commands()[info.param].name;
                             std::erase(name, ' ');
                             return name;
                         });

// ---- Receiving ----

TEST(PldmHostileMessages, ReceivedMessagesAreCutToTheCallersBuffer) {
    test::FakeEndpoint endpoint;
    pldm_ctx ctx{};
    ASSERT_EQ(mctp_pldm_register(&endpoint, &ctx), 0);
    for (int32_t capacity = 0; capacity <= 8; capacity++) {
        Guarded buffer(static_cast<size_t>(capacity), 0xEE);
        endpoint.answers.push_back({8, test::counting(8)});
        EXPECT_EQ(pldm_recv(&ctx, capacity, buffer.data()), 0);
        EXPECT_TRUE(buffer.intact()) << capacity;
    }
}

class PldmHostileTerminus : public test::PlatformTest {
protected:
    mctp_ctx config = test::smbus_context();
    pldm_ctx ctx{};
};

TEST_F(PldmHostileTerminus, EveryPlatformCallThatFailsLeaksNothingAndFreesEveryLock) {
    const auto attempt = [&](int failing) {
        test::port().reset();
        test::port().fail_call = failing;
        test::port().fail_following = failing > 0;
        // EID, then TID and types.
        test::Endpoint device({test::hex("00 02 00 21 10 00"), test::hex("00 00 02 00 07"),
                               test::hex("00 00 04 00 05 00 00 00 00 00 00 00")});
        ctx = pldm_ctx{};
        const int32_t result =
            test::run([&] { return discover_pldm_terminus(&ctx, &config); }).result;
        EXPECT_EQ(libc.live_blocks(), 0u);
        EXPECT_TRUE(test::port().held.empty());
        EXPECT_TRUE(test::port().violations.empty());
        return result;
    };
    EXPECT_EQ(attempt(0), 0);
    const int calls = test::port().result_calls;
    EXPECT_GE(calls, 12);
    for (int failing = 1; failing <= calls; failing++) {
        SCOPED_TRACE(failing);
        EXPECT_EQ(attempt(failing), -1);
    }
}

TEST_F(PldmHostileTerminus, EveryFailedAllocationOfInitAndDiscoverIsReported) {
    config.skip_discovery = 1;
    const int before = libc.allocations();
    ASSERT_EQ(pldm_terminus_init(&ctx, &config), 0);
    EXPECT_EQ(libc.allocations() - before, 1);
    EXPECT_EQ(pldm_terminus_deinit(&ctx), 0);
    libc.fail_allocation(1);
    EXPECT_EQ(pldm_terminus_init(&ctx, &config), -112);
    libc.fail_allocation(1);
    EXPECT_EQ(test::run([&] { return discover_pldm_terminus(&ctx, &config); }).result, -1);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

}  // namespace
