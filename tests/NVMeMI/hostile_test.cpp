// SPDX-License-Identifier: Apache-2.0
// Responses that lie, are cut, or have bits flipped, and a platform that fails: every management
// command.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>

#include "NVMeMI/mi_commands.h"
#include "NVMeMI/nvme_fixture.h"

namespace {

using test::Bytes;
using test::checked;
using test::Endpoint;
using test::hex;
using test::MctpAnswer;
using test::mi_command_name;
using test::mi_commands;
using test::MiCommand;
using test::MiRoom;
using test::port;
using test::status_response;
using test::operator+;

Bytes cut(const Bytes& whole, size_t length) {
    return {whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length)};
}

class MiHostile : public test::NvmeTest, public testing::WithParamInterface<size_t> {
protected:
    const MiCommand& command() const { return mi_commands()[GetParam()]; }

    /// The command over a context, checked for what must hold whatever the endpoint does.
    int32_t call(nvmemi_ctx& context) {
        MiRoom room;
        const size_t blocks = libc.live_blocks();
        const int32_t result =
            test::run([&] { return command().call(&context, room.values()); }).result;
        EXPECT_TRUE(result >= -1 && result <= 255) << result;
        EXPECT_TRUE(room.intact());
        EXPECT_TRUE(result == 0 || room.untouched());
        EXPECT_EQ(libc.live_blocks(), blocks);
        EXPECT_TRUE(port().held.empty());
        EXPECT_TRUE(port().violations.empty());
        return result;
    }
    int32_t exchange(std::initializer_list<MctpAnswer> answers) {
        start_over();
        endpoint.answers = answers;
        const int32_t result = call(ctx);
        EXPECT_LE(endpoint.calls.size(), 6u);
        return result;
    }
    /// The command with this as the answer, as far as there is room for it.
    int32_t exchange_with(const Bytes& body) {
        return exchange(
            {MctpAnswer::of(cut(body, std::min<size_t>(body.size(), command().capacity)))});
    }
    /// The command over SMBus packets when these blocks are read.
    int32_t exchange_blocks(std::vector<test::SlaveRead> blocks) {
        port().reset();
        port().reads.assign(blocks.begin(), blocks.end());
        mctp_ctx mctp = test::ready_context(MCTP_BINDING_KIND_SMBUS);
        return call(bound_to(mctp));
    }
    nvmemi_ctx& bound_to(mctp_ctx& mctp) {
        mctp.unit_size = 64;
        other_.mi_request = ctx.mi_request;
        other_.mctp = &mctp;
        return other_;
    }
    /// A good response with its integrity check in blocks, if the request had this tag.
    std::vector<test::SlaveRead> good_blocks(uint8_t tag = 1) const {
        std::vector<test::SlaveRead> blocks;
        for (const Bytes& one :
             test::split(hex("84") + checked(command().response), 0x08, 0x1D, tag)) {
            blocks.push_back(test::SlaveRead::of(test::block(one)));
        }
        return blocks;
    }

private:
    nvmemi_ctx other_{};
};

INSTANTIATE_TEST_SUITE_P(Commands, MiHostile, testing::Range<size_t>(0, mi_commands().size()),
                         [](const testing::TestParamInfo<size_t>& info) {
                             return mi_command_name(info.param);
                         });

// ---- Responses ----

TEST_P(MiHostile, ResponsesTruncatedAtEveryByteAreRefusedOrWholeEnough) {
    const Bytes& whole = command().response;
    for (size_t length = 0; length <= whole.size(); length++) {
        SCOPED_TRACE(length);
        EXPECT_EQ(exchange_with(cut(whole, length)), length >= command().needed ? 0 : -1);
    }
}

TEST_P(MiHostile, StatusResponsesTruncatedAtEveryByteKeepTheirStatus) {
    for (uint8_t status : Bytes{2, 4, 5, 0xFF}) {
        for (size_t length = 0; length <= 7; length++) {
            SCOPED_TRACE(length);
            EXPECT_EQ(exchange_with(cut(status_response(status), length)),
                      length >= 4 ? int32_t{status} : -1);
        }
    }
}

TEST_P(MiHostile, ResponsesWithEachBitFlippedNeverLeaveTheBuffers) {
    for (size_t bit = 0; bit < command().response.size() * 8; bit++) {
        SCOPED_TRACE(bit);
        Bytes bad = command().response;
        bad[bit / 8] = static_cast<uint8_t>(bad[bit / 8] ^ (1u << (bit % 8)));
        const int32_t result = exchange_with(bad);
        if (bit / 8 == 3) {
            // Flipped to 1, the endpoint asks for time and then is silent.
            EXPECT_EQ(result, bit % 8 == 0 ? -1 : static_cast<int32_t>(bad[3]));
        }
        if (bit / 8 < 3) {
            EXPECT_EQ(result, 0);
        }
    }
}

TEST_P(MiHostile, EveryByteAtItsExtremesNeverLeavesTheBuffers) {
    for (size_t at = 0; at < command().response.size(); at++) {
        for (uint8_t value : Bytes{0x00, 0x01, 0x02, 0x1F, 0x20, 0x21, 0x7F, 0x80, 0xFE, 0xFF}) {
            SCOPED_TRACE(testing::Message() << "byte " << at << " = " << int{value});
            Bytes bad = command().response;
            bad[at] = value;
            exchange_with(bad);
        }
    }
}

TEST_P(MiHostile, LengthsThatLieNeverLeaveTheBuffers) {
    const auto room = static_cast<int32_t>(command().capacity);
    for (int32_t length : {INT32_MIN, -1, 0, 1, 3, room + 1, 5121, 1 << 20, INT32_MAX}) {
        SCOPED_TRACE(length);
        EXPECT_EQ(exchange({{length, command().response}}), -1);
    }
    EXPECT_EQ(exchange({{room, command().response}}), 0);
}

TEST_P(MiHostile, AResponseLongerThanTheRoomIsCut) {
    EXPECT_EQ(exchange_with(command().response + Bytes(6000, 0xFF)), 0);
}

TEST_P(MiHostile, ResponsesAtRandomNeverLeaveTheBuffers) {
    std::mt19937 random(static_cast<uint32_t>(3000 + GetParam()));
    for (int round = 0; round < 400; round++) {
        SCOPED_TRACE(round);
        Bytes body(random() % 100);
        std::generate(body.begin(), body.end(), [&] { return static_cast<uint8_t>(random()); });
        // Half of them get past the status.
        if (round % 2 == 0 && body.size() > 3) {
            body[3] = 0;
        }
        exchange_with(body);
    }
}

// ---- Exchanges that fail ----

TEST_P(MiHostile, EachTryThatFailsInTurnIsForgivenAndTheThirdIsNot) {
    const MctpAnswer good = MctpAnswer::of(command().response);
    const MctpAnswer bad = MctpAnswer::failure();
    EXPECT_EQ(exchange({bad, good}), 0);
    EXPECT_EQ(exchange({bad, bad, good}), 0);
    EXPECT_EQ(exchange({bad, bad, bad, good}), -1);
    EXPECT_EQ(endpoint.calls.size(), 3u);
}

TEST_P(MiHostile, EachReadOfABusyEndpointThatFailsInTurnIsForgivenAndTheThirdIsNot) {
    const MctpAnswer good = MctpAnswer::of(command().response);
    const MctpAnswer busy = MctpAnswer::of(status_response(1));
    const MctpAnswer bad = MctpAnswer::failure(-57);
    EXPECT_EQ(exchange({busy, bad, good}), 0);
    EXPECT_EQ(exchange({busy, bad, bad, good}), 0);
    EXPECT_EQ(exchange({busy, bad, bad, bad, good}), -1);
    EXPECT_EQ(endpoint.calls.size(), 4u);
    EXPECT_EQ(exchange({bad, bad, busy, bad, bad, bad, good}), -1);
    EXPECT_EQ(endpoint.calls.size(), 6u);
}

TEST_P(MiHostile, AnEndpointThatIsAlwaysBusyEndsTheCommand) {
    const MctpAnswer busy = MctpAnswer::of(status_response(1));
    EXPECT_EQ(exchange({busy, busy, busy, busy}), 1);
    EXPECT_EQ(endpoint.calls.size(), 2u);
}

// ---- Over the bindings ----

TEST_P(MiHostile, EveryPlatformCallThatFailsFromThenOnGivesTheOrdinaryErrorAndFreesTheLocks) {
    const auto attempt = [&](int failing) {
        port().reset();
        port().fail_call = failing;
        port().fail_following = failing > 0;
        mctp_ctx mctp = test::ready_context(MCTP_BINDING_KIND_SMBUS);
        const Endpoint drive([this](uint8_t, const Bytes&) { return checked(command().response); });
        return call(bound_to(mctp));
    };
    EXPECT_EQ(attempt(0), 0);
    const int calls = port().result_calls;
    EXPECT_GE(calls, 4);  // lock, power, write, read
    for (int failing = 1; failing <= calls; failing++) {
        SCOPED_TRACE(failing);
        EXPECT_EQ(attempt(failing), -1);
    }
}

TEST_P(MiHostile, APlatformCallThatFailsOnceIsMadeUpForByTheNextTry) {
    const auto attempt = [&](int failing) {
        port().reset();
        port().fail_call = failing;
        mctp_ctx mctp = test::ready_context(MCTP_BINDING_KIND_SMBUS);
        const Endpoint drive([this](uint8_t, const Bytes&) { return checked(command().response); });
        return call(bound_to(mctp));
    };
    EXPECT_EQ(attempt(0), 0);
    const int calls = port().result_calls;
    for (int failing = 1; failing <= calls; failing++) {
        SCOPED_TRACE(failing);
        EXPECT_EQ(attempt(failing), 0);
    }
}

TEST_P(MiHostile, BlocksWithEachBitFlippedNeverLeaveTheBuffersOrKeepALock) {
    const std::vector<test::SlaveRead> good = good_blocks();
    EXPECT_EQ(exchange_blocks(good), 0);
    for (size_t bit = 0; bit < good[0].bytes.size() * 8; bit++) {
        SCOPED_TRACE(bit);
        std::vector<test::SlaveRead> bad = good;
        uint8_t& hit = bad[0].bytes[bit / 8];
        hit = static_cast<uint8_t>(hit ^ (1u << (bit % 8)));
        exchange_blocks(bad);
    }
}

TEST_P(MiHostile, BlocksTruncatedAtEveryByteNeverLeaveTheBuffersOrKeepALock) {
    const test::SlaveRead good = good_blocks()[0];
    for (size_t length = 0; length < good.bytes.size(); length++) {
        SCOPED_TRACE(length);
        exchange_blocks({test::SlaveRead::of(cut(good.bytes, length))});
    }
}

TEST_P(MiHostile, OverPcieEveryAnswerLengthStaysInsideTheBuffers) {
    for (uint32_t length : {0u, 1u, 2u, 4u, 5u, 8u, 16u, 40u, 1024u, 0x7FFFFFFFu, UINT32_MAX}) {
        SCOPED_TRACE(length);
        port().reset();
        port().on_pcie = [&](plt_pcie_request& request) {
            const Bytes& body = command().response;
            std::copy(body.begin(), body.end(), request.message + 1);
            request.length = length;
            return 1;
        };
        mctp_ctx mctp = test::ready_context(MCTP_BINDING_KIND_PCIE);
        const int32_t result = call(bound_to(mctp));
        EXPECT_TRUE(length > command().needed || result == -1) << result;
        EXPECT_TRUE(length != command().response.size() + 1 || result == 0) << result;
    }
}

}  // namespace
