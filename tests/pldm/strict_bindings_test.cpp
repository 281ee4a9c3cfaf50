// SPDX-License-Identifier: Apache-2.0
// Answers that are passed over with MCTP_STRICT_PLDM, packet by packet over each binding.
#include <gtest/gtest.h>
#include <sideband/pldm.h>

#include <algorithm>
#include <deque>

#include "support/scripted_platform.h"

namespace {

using test::Bytes;
using test::packet;
using test::port;
using Texts = std::vector<std::string>;

constexpr uint8_t kAlone = test::kSom | test::kEom;

class PldmStrictBinding : public test::PlatformTest {
protected:
    void bind(uint8_t kind, uint32_t strict) {
        mctp = test::ready_context(kind, MCTP_MSG_TYPE_PLDM);
        mctp.strict = strict;
        ASSERT_EQ(mctp_pldm_register(&mctp, &ctx), 0);
    }

    int32_t get_tid() {
        test::port().trace.clear();
        return pldm_get_tid(&ctx);
    }

    mctp_ctx mctp{};
    pldm_ctx ctx{};
};

/// What a device with a request of its own sends behind a request: RequestFirmwareData (tag 6, TO),
/// an answer to an earlier request, then the answer.
std::vector<Bytes> packets_of_a_busy_device() {
    return {packet(0x08, 0x1D, kAlone | test::kTo | 6, test::hex("01 80 05 15 00 00 00 00 20 00")),
            packet(0x08, 0x1D, kAlone | 1, test::hex("01 1f 00 02 00 55")),
            packet(0x08, 0x1D, kAlone | 1, test::hex("01 00 00 02 00 2a"))};
}

TEST_F(PldmStrictBinding, OverSmbusTheAnswerIsFoundBehindARequestOfTheDevice) {
    for (uint8_t kind : {MCTP_BINDING_KIND_SMBUS, MCTP_BINDING_KIND_SL8_SMBUS}) {
        SCOPED_TRACE(testing::Message() << "kind " << int{kind});
        port().reset();
        bind(kind, MCTP_STRICT_PLDM);
        port().queue(packets_of_a_busy_device());
        EXPECT_EQ(get_tid(), 0);
        EXPECT_EQ(ctx.tid, 0x2A);
        EXPECT_EQ(port().writes.size(), 1u);
        EXPECT_EQ(port().trace_of({"lock", "unlock", "write", "read"}),
                  (Texts{"lock bus 3", "write", "read", "unlock bus 3", "lock bus 3", "read",
                         "unlock bus 3", "lock bus 3", "read", "unlock bus 3"}));
    }
}

TEST_F(PldmStrictBinding, OverSmbusWithoutTheBitTheRequestIsTakenForTheAnswer) {
    for (uint8_t kind : {MCTP_BINDING_KIND_SMBUS, MCTP_BINDING_KIND_SL8_SMBUS}) {
        port().reset();
        bind(kind, 0);
        port().queue(packets_of_a_busy_device());
        EXPECT_EQ(get_tid(), -1) << "its command is not that of the request";
        EXPECT_EQ(port().slave_reads.size(), 1u);
    }
}

TEST_F(PldmStrictBinding, OverSmbusARefusedLockEndsTheExchange) {
    bind(MCTP_BINDING_KIND_SL8_SMBUS, MCTP_STRICT_PLDM);
    port().on_read = [](const test::ReadRecord&) {
        port().refused_locks = {"bus 3"};
        return test::SlaveRead::of(
            test::block(packet(0x08, 0x1D, kAlone | 1, test::hex("01 1f 00 02 00 55"))));
    };
    EXPECT_EQ(get_tid(), -1);
    EXPECT_EQ(port().slave_reads.size(), 1u);
}

TEST_F(PldmStrictBinding, ADiscoveryIsHeldToTheBitsOfItsPrototype) {
    mctp_ctx config = test::smbus_context();
    config.skip_discovery = 1;
    for (const bool strict : {true, false}) {
        port().reset();
        config.strict = strict ? MCTP_STRICT_PLDM : 0;
        port().queue(
            {packet(0x08, 0x1D, kAlone | 1, test::hex("01 1f 00 02 00 55")),
             packet(0x08, 0x1D, kAlone | 1, test::hex("01 00 00 02 00 2a")),
             packet(0x08, 0x1D, kAlone | 2, test::hex("01 01 00 04 00 21 00 00 00 00 00 00 00"))});
        pldm_ctx found{};
        EXPECT_EQ(discover_pldm_terminus(&found, &config), 0);
        EXPECT_EQ(found.tid, strict ? 0x2A : 0x55);
        EXPECT_EQ(found.pldm_types[0], 0x21);
    }
}

class PldmStrictPcie : public PldmStrictBinding {
protected:
    void bind_over_pcie(uint32_t strict) {
        mctp.src_eid = 0x08;
        mctp.dest_eid = 0x4A;
        mctp.binding_kind = MCTP_BINDING_KIND_PCIE;
        mctp.skip_discovery = 1;
        mctp.strict = strict;
        ASSERT_EQ(mctp_init2(&mctp), 0);
        ASSERT_EQ(mctp_pldm_register(&mctp, &ctx), 0);
        port().on_pcie = [this](plt_pcie_request& request) {
            if (answers.empty()) {
                return -1;
            }
            const Bytes message = answers.front();
            answers.pop_front();
            std::copy(message.begin(), message.end(), request.message);
            request.length = static_cast<uint32_t>(message.size());
            return 1;
        };
    }

    std::deque<Bytes> answers{test::hex("01 1f 00 02 00 55"), test::hex("01 00 00 02 00 2a")};
};

TEST_F(PldmStrictPcie, TheAnswerIsFoundBehindAnotherOne) {
    bind_over_pcie(MCTP_STRICT_PLDM);
    EXPECT_EQ(get_tid(), 0);
    EXPECT_EQ(ctx.tid, 0x2A);
    EXPECT_EQ(ctx.response_length, 5);
    ASSERT_EQ(port().pcie_requests.size(), 2u);
    EXPECT_EQ(port().pcie_requests[1].message[0], MCTP_MSG_TYPE_PLDM) << "which type is wanted";
}

TEST_F(PldmStrictPcie, AMessageOfAnotherTypeIsNoAnswer) {
    answers.insert(answers.begin() + 1, test::hex("7e 00 00 02 00 33"));
    bind_over_pcie(MCTP_STRICT_PLDM | MCTP_STRICT_PACKETS);
    // What an exchange is answered with has its tag; what comes behind it has any.
    port().on_pcie = [this](plt_pcie_request& request) {
        const Bytes message = answers.front();
        answers.pop_front();
        std::copy(message.begin(), message.end(), request.message);
        request.length = static_cast<uint32_t>(message.size());
        request.src_eid = 0x4A;
        request.dest_eid = 0x08;
        return 1;
    };
    EXPECT_EQ(get_tid(), 0);
    EXPECT_EQ(ctx.tid, 0x2A);
    EXPECT_TRUE(answers.empty());
}

TEST_F(PldmStrictPcie, ATypeByteAloneIsPassedOver) {
    bind_over_pcie(MCTP_STRICT_PLDM);
    answers.insert(answers.begin() + 1, test::hex("01"));
    EXPECT_EQ(get_tid(), 0);
    EXPECT_EQ(ctx.tid, 0x2A);
    EXPECT_EQ(port().pcie_requests.size(), 3u);
}

TEST_F(PldmStrictPcie, WithoutTheBitTheOtherOneIsTaken) {
    bind_over_pcie(0);
    EXPECT_EQ(get_tid(), 0);
    EXPECT_EQ(ctx.tid, 0x55);
    EXPECT_EQ(port().pcie_requests.size(), 1u);
}

TEST_F(PldmStrictPcie, TheLengthOfTheAnswerIsKnown) {
    bind_over_pcie(MCTP_STRICT_PLDM);
    answers[1] = test::hex("01 00 00 02 00");
    EXPECT_EQ(get_tid(), -1);
    EXPECT_EQ(ctx.response_length, 4);
    answers = {test::hex("01 1e 00 02 00 55"), test::hex("01 01 00 02 00 2a 2b 2c")};
    EXPECT_EQ(get_tid(), 0) << "what is too long is cut, as in an exchange";
    EXPECT_EQ(ctx.response_length, 5);
}

TEST_F(PldmStrictPcie, SilenceEndsTheExchange) {
    bind_over_pcie(MCTP_STRICT_PLDM);
    answers.pop_back();
    EXPECT_EQ(get_tid(), -1);
    EXPECT_EQ(ctx.completion_code, PLDM_CC_RETRIES_EXHAUSTED);
}

}  // namespace
