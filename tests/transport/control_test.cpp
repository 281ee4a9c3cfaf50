// SPDX-License-Identifier: Apache-2.0
// MCTP control commands: the requests' bytes, and what is made of each answer.
#include <sideband/mctp.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "support/endpoint.h"
#include "support/scripted_platform.h"

namespace {

using test::Bytes;
using test::Endpoint;
using test::Guarded;
using test::hex;
using test::port;
using test::ready_context;
using test::operator+;
using Lines = std::vector<std::string>;

/// One requester command: how to call it, and what a good exchange of it looks like.
struct Command {
    const char* name;
    int32_t (*call)(mctp_ctx* ctx);
    const char* request;   ///< instance ID 0
    const char* response;  ///< good, shortest that is accepted
    int response_room;     ///< bytes that the command has room for
    int32_t result;        ///< on success
    const char* console;   ///< on failure; null: nothing
};

uint8_t routing_table[MCTP_ROUTING_TABLE_RESPONSE_SIZE];

const Command kCommands[] = {
    {"SetEndpointId", [](mctp_ctx* ctx) { return mctp_set_endpoint_id(ctx, 0x2A); }, "80 01 00 2A",
     "00 01 00", 6, 0, nullptr},
    {"GetEndpointId", [](mctp_ctx* ctx) { return mctp_get_endpoint_id(ctx); }, "80 02",
     "00 02 00 2A", 6, 0x2A, nullptr},
    {"GetEndpointUuid", [](mctp_ctx* ctx) { return mctp_get_endpoint_uuid(ctx); }, "80 03",
     "00 03 00 10 11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 1F", 19, 0, "fail to get mctp UUID\n"},
    {"AllocateEndpointIds",
     [](mctp_ctx* ctx) { return mctp_allocate_endpoint_ids(ctx, 1, 32, 64); }, "80 08 01 20 40",
     "00 08 00", 6, 0, "[mctp_allocate_endpoint_ids] failed\n"},
    {"GetRoutingTableEntries",
     [](mctp_ctx* ctx) { return mctp_get_routing_table_entries(ctx, 0x07, routing_table); },
     "80 0A 07", "00 0A 00 FF 00", 61, 0, "[mctp_get_routing_table_entries] failed\n"},
    {"PrepareForEndpointDiscovery",
     [](mctp_ctx* ctx) { return mctp_prepare_for_endpoint_discovery(ctx); }, "80 0B", "00 0B 00", 3,
     0, nullptr},
    {"EndpointDiscovery", [](mctp_ctx* ctx) { return mctp_endpoint_discovery(ctx); }, "80 0C",
     "00 0C 00", 3, 0, nullptr},
};

/// What all the commands have in common.
class MctpControl : public test::PlatformTest, public ::testing::WithParamInterface<Command> {
protected:
    MctpControl() { std::fill(std::begin(routing_table), std::end(routing_table), uint8_t{0xA5}); }

    int32_t call() { return GetParam().call(&ctx); }

    Bytes good() const { return hex(GetParam().response); }
    /// The same answer with the code "not ready".
    Bytes not_ready() const {
        Bytes answer = good();
        answer[2] = 4;
        return answer;
    }

    /// The call must fail as its kind does, and leave the context's results alone.
    void expect_failure() {
        const mctp_ctx before = ctx;
        EXPECT_EQ(call(), -1);
        const char* line = GetParam().console;
        EXPECT_EQ(port().console, line == nullptr ? Lines() : Lines{line});
        EXPECT_EQ(port().syslog, Lines());
        EXPECT_EQ(ctx.dest_eid, before.dest_eid);
        EXPECT_TRUE(std::equal(std::begin(ctx.uuid), std::end(ctx.uuid), before.uuid));
        EXPECT_TRUE(std::all_of(std::begin(routing_table), std::end(routing_table),
                                [](uint8_t byte) { return byte == 0xA5; }));
    }

    mctp_ctx ctx = ready_context();
};

INSTANTIATE_TEST_SUITE_P(Command, MctpControl, ::testing::ValuesIn(kCommands),
                         [](const auto& parameter) { return std::string(parameter.param.name); });

TEST_P(MctpControl, RequestBytes) {
    Endpoint endpoint({good()});
    EXPECT_EQ(call(), GetParam().result);
    EXPECT_EQ(endpoint.requests, std::vector<Bytes>{hex(GetParam().request)});
    EXPECT_EQ(endpoint.types, hex("00"));
    EXPECT_EQ(port().console, Lines());
    EXPECT_EQ(libc.sleeps, std::vector<uint32_t>());
}

TEST_P(MctpControl, TheResponseIsAskedForInFull) {
    port().read_when_empty = test::SlaveRead::failure();
    EXPECT_EQ(call(), -1);
    ASSERT_EQ(port().slave_reads.size(), 1u);
    EXPECT_EQ(port().slave_reads[0].request.read_length, 3 + 5 + GetParam().response_room);
}

TEST_P(MctpControl, InstanceIdIsStampedAndCountedOncePerCall) {
    ctx.instance_id = 30;
    Endpoint endpoint({good(), good(), good()});
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(call(), GetParam().result);
    }
    ASSERT_EQ(endpoint.requests.size(), 3u);
    EXPECT_EQ(endpoint.requests[0][0], 0x9E);
    EXPECT_EQ(endpoint.requests[1][0], 0x9F);
    EXPECT_EQ(endpoint.requests[2][0], 0x80);
    EXPECT_EQ(ctx.instance_id, 33) << "eight bits wide; five go on the wire";
}

TEST_P(MctpControl, TheInstanceCounterWrapsAt256) {
    ctx.instance_id = 255;
    Endpoint endpoint({good()});
    EXPECT_EQ(call(), GetParam().result);
    EXPECT_EQ(endpoint.requests[0][0], 0x9F);
    EXPECT_EQ(ctx.instance_id, 0);
}

TEST_P(MctpControl, NoAnswerFailsAtOnce) {
    expect_failure();
    EXPECT_EQ(port().writes.size(), 1u);
    EXPECT_EQ(libc.sleeps, std::vector<uint32_t>());
}

TEST_P(MctpControl, EveryCompletionCodeButSuccessAndNotReadyFailsAtOnce) {
    for (int code = 1; code < 256; code++) {
        if (code == 4) {
            continue;
        }
        port().console.clear();
        port().writes.clear();
        Bytes answer = good();
        answer[2] = static_cast<uint8_t>(code);
        Endpoint endpoint({answer});
        expect_failure();
        EXPECT_EQ(port().writes.size(), 1u) << code;
    }
    EXPECT_EQ(libc.sleeps, std::vector<uint32_t>());
}

TEST_P(MctpControl, AnotherCommandCodeFails) {
    Bytes answer = good();
    answer[1] ^= 0x10;
    Endpoint endpoint({answer});
    expect_failure();
}

TEST_P(MctpControl, AnotherInstanceIdFails) {
    for (uint8_t bit : {0x01, 0x02, 0x04, 0x08, 0x10}) {
        port().console.clear();
        ctx.instance_id = 0;
        Bytes answer = good();
        answer[0] = bit;
        Endpoint endpoint({answer}, false);
        expect_failure();
    }
}

TEST_P(MctpControl, TheOtherBitsOfTheFirstByteAreNotCompared) {
    Bytes answer = good();
    answer[0] = 0xE0;
    Endpoint endpoint({answer});
    EXPECT_EQ(call(), GetParam().result);
}

TEST_P(MctpControl, NotReadyIsAskedAgainAfterFiftyMilliseconds) {
    const Bytes busy = not_ready();
    Endpoint endpoint({busy, busy, good()});
    EXPECT_EQ(call(), GetParam().result);
    EXPECT_EQ(libc.sleeps, (std::vector<uint32_t>{50000, 50000}));
    ASSERT_EQ(endpoint.requests.size(), 3u);
    EXPECT_EQ(endpoint.requests[2], endpoint.requests[0]) << "the instance ID stays";
    EXPECT_EQ(ctx.instance_id, 1);
}

TEST_P(MctpControl, APauseThatSignalsCutIsTakenToItsEnd) {
    const Bytes busy = not_ready();
    Endpoint endpoint({busy, good()});
    libc.failure_errno = EINTR;
    libc.fail["usleep"] = test::LibcPatch::kEvery;
    libc.before["usleep"] = [] { std::this_thread::sleep_for(std::chrono::milliseconds(20)); };
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(call(), GetParam().result);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(50));
    ASSERT_GE(libc.sleeps.size(), 2u);
    ASSERT_LE(libc.sleeps.size(), 3u) << "sixty milliseconds are more than there were";
    EXPECT_EQ(libc.sleeps[0], 50000u);
    for (size_t again = 1; again < libc.sleeps.size(); again++) {
        EXPECT_LE(libc.sleeps[again], 51000u - 20000u * again) << "what is left, no more";
    }
}

TEST_P(MctpControl, APauseThatFailsOtherwiseIsNotRepeated) {
    const Bytes busy = not_ready();
    Endpoint endpoint({busy, good()});
    libc.failure_errno = EINVAL;
    libc.fail["usleep"] = test::LibcPatch::kEvery;
    EXPECT_EQ(call(), GetParam().result);
    EXPECT_EQ(libc.sleeps, std::vector<uint32_t>{50000});
}

TEST_P(MctpControl, TheBusIsFreeWhileItWaits) {
    const Bytes busy = not_ready();
    Endpoint endpoint({busy, good()});
    EXPECT_EQ(call(), GetParam().result);
    EXPECT_EQ(port().trace_of({"lock", "unlock", "sleep"}),
              (Lines{"lock bus 3", "unlock bus 3", "sleep 50000", "lock bus 3", "unlock bus 3"}));
}

TEST_P(MctpControl, NotReadyThreeTimesIsTakenForAnAnswer) {
    const Bytes busy = not_ready();
    Endpoint endpoint({busy, busy, busy, busy});
    EXPECT_EQ(call(), GetParam().result);
    EXPECT_EQ(endpoint.requests.size(), 3u);
    EXPECT_EQ(libc.sleeps, (std::vector<uint32_t>{50000, 50000, 50000}));
}

TEST_P(MctpControl, NotReadyThreeTimesWithAnotherCommandOrInstanceFails) {
    const Bytes busy = not_ready();
    Bytes other = busy;
    other[1] ^= 0x10;
    {
        Endpoint endpoint({busy, busy, other});
        expect_failure();
    }
    port().console.clear();
    Endpoint endpoint({busy, busy, hex("1F") + Bytes(busy.begin() + 1, busy.end())}, false);
    ctx.instance_id = 0;
    expect_failure();
}

TEST_P(MctpControl, ALostAnswerAfterNotReadyFails) {
    const Bytes busy = not_ready();
    Endpoint endpoint({busy});
    expect_failure();
    EXPECT_EQ(libc.sleeps, std::vector<uint32_t>{50000});
}

TEST_P(MctpControl, AnAnswerWithoutCompletionCodeAfterNotReadyFails) {
    const Bytes busy = not_ready();
    Endpoint endpoint({busy, Bytes(busy.begin(), busy.begin() + 2), good()});
    expect_failure();
    EXPECT_EQ(endpoint.requests.size(), 2u) << "the code of the first answer is not used again";
}

TEST_P(MctpControl, AnAnswerWithoutCompletionCodeFails) {
    const std::vector<Bytes> answers{hex("00"), Bytes{0x00, hex(GetParam().request)[1]}};
    for (const Bytes& answer : answers) {
        port().console.clear();
        ctx.instance_id = 0;
        Endpoint endpoint({answer});
        expect_failure();
    }
}

TEST_P(MctpControl, ASuccessTruncatedAnywhereFails) {
    const Bytes whole = good();
    for (size_t length = 1; length < whole.size(); length++) {
        port().console.clear();
        Endpoint endpoint({Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length))});
        expect_failure();
    }
}

TEST_P(MctpControl, WithoutAnExchangeOperationOrContextItFails) {
    ctx.xfer = nullptr;
    expect_failure();
    EXPECT_EQ(GetParam().call(nullptr), -1);
    EXPECT_EQ(port().trace, Lines());
}

TEST_P(MctpControl, ARefusedLockFails) {
    port().refused_locks = {"bus 3"};
    expect_failure();
}

// ---- What each stores ----

class MctpControlResult : public test::PlatformTest {
protected:
    mctp_ctx ctx = ready_context();
};

TEST_F(MctpControlResult, SetEndpointIdTakesTheRequestedEidAndNotTheEcho) {
    Endpoint endpoint({hex("00 01 00 00 77 00")});
    EXPECT_EQ(mctp_set_endpoint_id(&ctx, 0x2A), 0);
    EXPECT_EQ(ctx.dest_eid, 0x2A);
}

TEST_F(MctpControlResult, SetEndpointIdOffersARoomOfOnes) {
    static Bytes room;
    ctx.xfer = [](mctp_ctx*, uint32_t, int32_t capacity, const uint8_t*, uint8_t* response) {
        room.assign(response, response + capacity);
        return int32_t{-1};
    };
    EXPECT_EQ(mctp_set_endpoint_id(&ctx, 0x2A), -1);
    EXPECT_EQ(room, Bytes(6, 0xFF));
}

TEST_F(MctpControlResult, GetEndpointIdStoresAndReturnsTheEid) {
    for (const char* answer : {"00 02 00 00 00 00", "00 02 00 FE 10 00", "00 02 00 FF"}) {
        Endpoint endpoint({hex(answer)});
        const int32_t expected = hex(answer)[3];
        EXPECT_EQ(mctp_get_endpoint_id(&ctx), expected);
        EXPECT_EQ(ctx.dest_eid, expected);
    }
}

TEST_F(MctpControlResult, UuidIsStoredAsReceivedWithAZeroBehindIt) {
    ctx.uuid_end = 0xEE;
    Endpoint endpoint({hex("00 03 00 F0 F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB FC FD FE FF")});
    EXPECT_EQ(mctp_get_endpoint_uuid(&ctx), 0);
    EXPECT_EQ(Bytes(std::begin(ctx.uuid), std::end(ctx.uuid)), test::counting(16, 0xF0));
    EXPECT_EQ(ctx.uuid_end, 0);
}

TEST_F(MctpControlResult, AllocateEndpointIdsCarriesItsThreeArguments) {
    Endpoint endpoint({hex("00 08 00 00 20 40")});
    EXPECT_EQ(mctp_allocate_endpoint_ids(&ctx, 0, 32, 64), 0);
    EXPECT_EQ(endpoint.requests, std::vector<Bytes>{hex("80 08 00 20 40")});
}

TEST_F(MctpControlResult, RoutingTableWithoutAnOutputSendsNothing) {
    EXPECT_EQ(mctp_get_routing_table_entries(&ctx, 0, nullptr), -1);
    EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_ARGUMENT);
    EXPECT_EQ(mctp_get_routing_table_entries(nullptr, 0, nullptr), -1);
    EXPECT_EQ(port().trace, Lines());
    EXPECT_EQ(port().console, Lines());
    EXPECT_EQ(ctx.instance_id, 0);
}

TEST_F(MctpControlResult, RoutingTableIsTheWholeResponse) {
    Bytes answer = hex("00 0A 00 FF 07") + test::counting(56, 0x80);
    Endpoint endpoint({answer});
    Guarded table(MCTP_ROUTING_TABLE_RESPONSE_SIZE);
    EXPECT_EQ(mctp_get_routing_table_entries(&ctx, 0, table.data()), 0);
    EXPECT_EQ(table.head(61), answer);
    EXPECT_TRUE(table.intact());
}

TEST_F(MctpControlResult, RoutingTableBytesThatWereNotSentAreZero) {
    Endpoint endpoint({hex("00 0A 00 05 01 01 20 00 02 00 02 41 08")});
    Guarded table(MCTP_ROUTING_TABLE_RESPONSE_SIZE);
    EXPECT_EQ(mctp_get_routing_table_entries(&ctx, 0, table.data()), 0);
    EXPECT_EQ(table.head(61), hex("00 0A 00 05 01 01 20 00 02 00 02 41 08") + Bytes(48, 0));
    EXPECT_TRUE(table.intact());
}

TEST_F(MctpControlResult, ALongerAnswerThatWasNotReadyLeavesNothingBehindAShorterOne) {
    const Bytes busy = hex("00 0A 04") + Bytes(58, 0xEE);
    Endpoint endpoint({busy, hex("00 0A 00 FF 01")});
    Guarded table(MCTP_ROUTING_TABLE_RESPONSE_SIZE);
    EXPECT_EQ(mctp_get_routing_table_entries(&ctx, 0, table.data()), 0);
    EXPECT_EQ(table.head(61), hex("00 0A 00 FF 01") + Bytes(56, 0));
    EXPECT_TRUE(table.intact());
}

TEST_F(MctpControlResult, NotReadyThriceIsAnAnswerOfTheLastOnesBytes) {
    {
        Endpoint endpoint({hex("00 02 04 EE EE EE"), hex("00 02 04"), hex("00 02 04")});
        EXPECT_EQ(mctp_get_endpoint_id(&ctx), 0);
        EXPECT_EQ(ctx.dest_eid, 0);
    }
    std::fill(std::begin(ctx.uuid), std::end(ctx.uuid), uint8_t{0xA5});
    ctx.instance_id = 0;
    Endpoint endpoint({hex("00 03 04") + Bytes(16, 0xEE), hex("00 03 04"), hex("00 03 04 11")});
    EXPECT_EQ(mctp_get_endpoint_uuid(&ctx), 0);
    EXPECT_EQ(Bytes(std::begin(ctx.uuid), std::end(ctx.uuid)), hex("11") + Bytes(15, 0));
}

TEST_F(MctpControlResult, ARoutingTableLongerThanItsBufferIsCut) {
    Bytes answer = hex("00 0A 00 FF 07") + test::counting(200, 0x80);
    Endpoint endpoint({answer});
    Guarded table(MCTP_ROUTING_TABLE_RESPONSE_SIZE);
    EXPECT_EQ(mctp_get_routing_table_entries(&ctx, 0, table.data()), 0);
    EXPECT_EQ(table.head(61), Bytes(answer.begin(), answer.begin() + 61));
    EXPECT_TRUE(table.intact());
}

}  // namespace
