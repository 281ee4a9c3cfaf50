// SPDX-License-Identifier: Apache-2.0
// A drive that asks for more time, over each binding: how its late answer is read.
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <string>
#include <vector>

#include "NVMeMI/nvme_fixture.h"

namespace {

using test::Bytes;
using test::checked;
using test::counting;
using test::Guarded;
using test::hex;
using test::mi_response;
using test::Outcome;
using test::port;
using test::status_response;
using test::Texts;
using test::to_hex;
using test::operator+;

using Sleeps = std::vector<uint32_t>;

constexpr uint32_t kMoreTimeUs = 200000;

const Bytes kMoreTime = status_response(1);

class NvmeLate : public test::PlatformTest {
protected:
    ~NvmeLate() override { nvmemi_deinit(&ctx); }

    void init(uint8_t binding_kind) {
        mctp_ctx config = test::smbus_context(binding_kind);
        EXPECT_EQ(nvmemi_init(&ctx, &config), 0);
    }
    Outcome ask() {
        return test::run([&] { return nvmemi_config_get_smbus_freq(&ctx, 1, &frequency); });
    }

    nvmemi_ctx ctx{};
    uint8_t frequency = 0xEE;
};

// ---- SMBus ----

/// One packet of the drive's, which answers a request with tag 1.
Bytes packet_of(const Bytes& body) {
    return test::packet(0x08, 0x1D, test::kSom | test::kEom | 1, hex("84") + body);
}

class NvmeLateSmbus : public NvmeLate, public testing::WithParamInterface<uint8_t> {
protected:
    NvmeLateSmbus() { init(GetParam()); }

    Texts steps() const { return port().trace_of({"lock", "unlock", "write", "read", "sleep"}); }
};

INSTANTIATE_TEST_SUITE_P(Binding, NvmeLateSmbus,
                         testing::Values(uint8_t{MCTP_BINDING_KIND_SMBUS},
                                         uint8_t{MCTP_BINDING_KIND_SL8_SMBUS}),
                         [](const auto& info) { return "Kind" + std::to_string(info.param); });

TEST_P(NvmeLateSmbus, TheBusIsHeldForTheReadAndFreeDuringTheWait) {
    port().queue({packet_of(checked(kMoreTime)), packet_of(checked(mi_response(hex("02 00 00"))))});
    EXPECT_EQ(ask().result, 0);
    EXPECT_EQ(frequency, 2);
    EXPECT_EQ(steps(), (Texts{"lock bus 3", "write", "read", "unlock bus 3", "sleep 200000",
                              "lock bus 3", "read", "unlock bus 3"}));
}

TEST_P(NvmeLateSmbus, EachOfThreeReadsTakesTheBusByItself) {
    port().queue({packet_of(checked(kMoreTime))});
    EXPECT_EQ(ask().result, -1);
    const Texts late{"sleep 200000", "lock bus 3", "read fails", "unlock bus 3"};
    Texts expected{"lock bus 3", "write", "read", "unlock bus 3"};
    for (int i = 0; i < 3; i++) {
        expected.insert(expected.end(), late.begin(), late.end());
    }
    EXPECT_EQ(steps(), expected);
}

TEST_P(NvmeLateSmbus, ABusThatCannotBeHadIsAFailedRead) {
    port().queue({packet_of(checked(kMoreTime)), packet_of(checked(mi_response()))});
    // The exchange itself holds the bus already.
    port().on_write = [](const test::WriteRecord&) { port().refused_locks = {"bus 3"}; };
    EXPECT_EQ(ask().result, -1);
    EXPECT_EQ(steps(), (Texts{"lock bus 3", "write", "read", "unlock bus 3", "sleep 200000",
                              "lock bus 3 fails", "sleep 200000", "lock bus 3 fails",
                              "sleep 200000", "lock bus 3 fails"}));
    EXPECT_EQ(port().reads.size(), 1u);
}

// ---- A receive operation of the caller's own ----

class NvmeLateOwn : public test::NvmeTest {};

TEST_F(NvmeLateOwn, OnlyThatOfTheSoftwarePecBindingIsCalledWithTheBusHeld) {
    for (uint8_t kind :
         {MCTP_BINDING_KIND_SMBUS, MCTP_BINDING_KIND_PCIE, MCTP_BINDING_KIND_SL8_SMBUS}) {
        SCOPED_TRACE(int{kind});
        start_over();
        endpoint.binding_kind = kind;
        answer({kMoreTime, mi_response(hex("03 00 00"))});
        std::vector<Texts> held;
        endpoint.on_call = [&] { held.push_back(port().held); };
        uint8_t frequency = 0;
        EXPECT_EQ(nvmemi_config_get_smbus_freq(&ctx, 0, &frequency), 0);
        EXPECT_EQ(frequency, 3);
        const bool bare = kind == MCTP_BINDING_KIND_SL8_SMBUS;
        EXPECT_EQ(held, (std::vector<Texts>{{}, bare ? Texts{"bus 3"} : Texts{}}));
    }
}

// ---- PCIe ----

/// What one platform call gives: the message with its type byte, and the length that it claims.
struct PcieAnswer {
    Bytes message;
    uint32_t length = 0;
    int result = 1;

    static PcieAnswer of(const Bytes& body) {
        const Bytes message = hex("84") + body;
        return {message, static_cast<uint32_t>(message.size()), 1};
    }
    static PcieAnswer failure() { return {{}, 0, 0}; }
};

class NvmeLatePcie : public NvmeLate {
protected:
    NvmeLatePcie() {
        init(MCTP_BINDING_KIND_PCIE);
        port().on_pcie = [&](plt_pcie_request& request) {
            operations.push_back(request.operation);
            PcieAnswer next = PcieAnswer::failure();
            if (!answers.empty()) {
                next = answers.front();
                answers.pop_front();
            }
            std::copy(next.message.begin(), next.message.end(), request.message);
            request.length = next.length;
            return next.result;
        };
    }

    /// The exchange is answered with "more processing required", the reads with these.
    void late(std::initializer_list<PcieAnswer> reads) {
        operations.clear();
        libc.sleeps.clear();
        answers = {PcieAnswer::of(kMoreTime)};
        answers.insert(answers.end(), reads.begin(), reads.end());
    }
    /// The request operation itself, with room for so many bytes.
    int32_t exchange(uint32_t capacity) {
        Bytes request = counting(15);
        response = Guarded(capacity);
        ctx.mctp->msg_type = 0x84;
        const int32_t result = ctx.mi_request(&ctx, 15, capacity, request.data(), response.data());
        EXPECT_TRUE(response.intact());
        EXPECT_TRUE(response.untouched_from(static_cast<size_t>(std::max(result, 0))));
        return result;
    }
    int32_t exchange_for(const PcieAnswer& read, uint32_t capacity) {
        late({read});
        return exchange(capacity);
    }
    /// One exchange, then reads.
    void expect_reads(size_t count) const {
        ASSERT_EQ(operations.size(), count + 1);
        EXPECT_EQ(operations[0], PLT_PCIE_WRITE_READ);
        EXPECT_EQ(std::count(operations.begin(), operations.end(), PLT_PCIE_READ),
                  static_cast<ptrdiff_t>(count));
        EXPECT_EQ(libc.sleeps, Sleeps(count, kMoreTimeUs));
    }

    std::deque<PcieAnswer> answers;
    std::vector<uint32_t> operations;
    Guarded response{0};
};

TEST_F(NvmeLatePcie, ALateAnswerSucceedsWithAndWithoutItsIntegrityCheck) {
    const Bytes body = mi_response(hex("02 00 00"));
    for (const Bytes& sent : {body, checked(body)}) {
        frequency = 0;
        late({PcieAnswer::of(sent)});
        const Outcome outcome = ask();
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(frequency, 2);
        expect_reads(1);
    }
}

TEST_F(NvmeLatePcie, ALateAnswerMayComeWithTheThirdRead) {
    late({PcieAnswer::failure(), PcieAnswer::of({}), PcieAnswer::of(mi_response(hex("01 00 00")))});
    EXPECT_EQ(ask().result, 0);
    EXPECT_EQ(frequency, 1);
    expect_reads(3);
}

TEST_F(NvmeLatePcie, SilenceForThreeReadsIsAFailure) {
    late({});
    const Outcome outcome = ask();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "fail to get NVMe-MI config\n");
    EXPECT_EQ(frequency, 0xEE);
    expect_reads(3);
}

TEST_F(NvmeLatePcie, ASecondMoreProcessingAnswerIsTheCommandsStatus) {
    late({PcieAnswer::of(kMoreTime), PcieAnswer::of(mi_response())});
    EXPECT_EQ(ask().result, 1);
    expect_reads(1);
}

TEST_F(NvmeLatePcie, WhatArrivedIsJudgedByItsOwnLength) {
    for (size_t length = 1; length <= 64; length++) {
        SCOPED_TRACE(length);
        const Bytes body = counting(length, 0x20);
        EXPECT_EQ(exchange_for(PcieAnswer::of(body), 64), static_cast<int32_t>(length));
        EXPECT_EQ(response.head(length), body);
        expect_reads(1);
    }
}

TEST_F(NvmeLatePcie, AnAnswerOfExactlyTheCapacityIsTakenAndOneByteMoreIsNot) {
    for (uint32_t capacity : {4u, 7u, 19u, 64u, 1034u}) {
        SCOPED_TRACE(capacity);
        const Bytes body = counting(capacity, 0x20);
        EXPECT_EQ(exchange_for(PcieAnswer::of(body), capacity), static_cast<int32_t>(capacity));
        EXPECT_EQ(response.head(capacity), body);
        EXPECT_EQ(exchange_for(PcieAnswer::of(body + hex("00")), capacity), -1);
    }
}

TEST_F(NvmeLatePcie, AnIntegrityCheckThatThereIsNoRoomForIsLeftOut) {
    const Bytes body = mi_response(hex("02 00 00"));
    // From no room for its first byte to room for its last.
    for (uint32_t capacity = 7; capacity <= 11; capacity++) {
        SCOPED_TRACE(capacity);
        const int32_t result = exchange_for(PcieAnswer::of(checked(body)), capacity);
        EXPECT_EQ(result, capacity < 11 ? 7 : 11);
        EXPECT_EQ(response.head(7), body);
    }
    EXPECT_EQ(exchange_for(PcieAnswer::of(checked(body)), 6), -1);
    Bytes wrong = checked(body);
    wrong.back() ^= 1;
    EXPECT_EQ(exchange_for(PcieAnswer::of(wrong), 7), -1);
}

TEST_F(NvmeLatePcie, LengthsThatLieNeverLeaveTheBuffers) {
    const Bytes message = hex("84") + counting(1035, 0x20);
    for (uint32_t length : {0u, 1u, 2u, 8u, 65u, 66u, 1024u, 1036u, 1037u, 5120u, 0x7FFFFFFFu,
                            0x80000000u, UINT32_MAX}) {
        for (uint32_t capacity : {0u, 4u, 64u, 4115u, 70000u}) {
            SCOPED_TRACE(testing::Message() << length << " bytes, room for " << capacity);
            const int32_t result = exchange_for({message, length, 1}, capacity);
            const bool fits = length >= 2 && length <= 1036 && length - 1 <= capacity;
            EXPECT_EQ(result, fits ? static_cast<int32_t>(length - 1) : -1);
        }
    }
}

TEST_F(NvmeLatePcie, DataComeLateAsWell) {
    Guarded data(512);
    nvme_admin_req req{};
    req.ctx = &ctx;
    uint32_t received = 0;
    answers = {PcieAnswer::of(status_response(1, Bytes(3), 0x90)),
               PcieAnswer::of(checked(test::admin_response(counting(512, 1))))};
    const Outcome outcome =
        test::run([&] { return nvme_identify(&req, 512, 0, data.data(), &received); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(received, 512u);
    EXPECT_EQ(data.head(512), counting(512, 1));
}

}  // namespace
