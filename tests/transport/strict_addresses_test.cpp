// SPDX-License-Identifier: Apache-2.0
// MCTP_STRICT_ADDRESSES: an answer is that of the endpoint that was asked, over SMBus and PCIe.
#include <sideband/mctp.h>

#include <string>
#include <vector>

#include "support/endpoint.h"
#include "transport/pcie_fixture.h"
#include "transport/receive_fixture.h"

namespace {

using test::Bytes;
using test::Endpoint;
using test::hex;
using test::operator+;
using test::port;
using test::SlaveRead;
using Lines = std::vector<std::string>;

constexpr uint32_t kBothWays[] = {0, MCTP_STRICT_ADDRESSES};

class StrictAddresses : public test::ReceiveTest {
protected:
    void queue(const std::vector<const char*>& packets) {
        port().reads.clear();
        for (const char* packet : packets) {
            port().queue({hex(packet)});
        }
    }
};

INSTANTIATE_TEST_SUITE_P(Kind, StrictAddresses, test::smbus_kinds(), test::kind_name);

TEST_P(StrictAddresses, AnotherEndpointsAnswerIsPassedOver) {
    for (const uint32_t bits : kBothWays) {
        ctx.strict = bits;
        ctx.tag = 3;
        queue({"01 08 2E C3 01 AA", "01 08 00 C3 01 AA", "01 08 1D C3 01 BB"});
        EXPECT_EQ(receive(16), 1);
        EXPECT_EQ(body, bits == 0 ? hex("AA") : hex("BB"));
        EXPECT_EQ(ctx.binding_eids[0], bits == 0 ? 0x2E : 0x1D);
    }
}

TEST_P(StrictAddresses, ItsPacketsAreNoPartOfAMessage) {
    for (const uint32_t bits : kBothWays) {
        ctx.strict = bits;
        ctx.tag = 3;
        queue({"01 08 1D 83 01 A1 A2", "01 08 2E 13 F1 F2 F3", "01 08 1D 53 A3"});
        EXPECT_EQ(receive(16), bits == 0 ? 6 : 3);
        EXPECT_EQ(body, bits == 0 ? hex("A1 A2 F1 F2 F3 A3") : hex("A1 A2 A3"));
    }
}

TEST_P(StrictAddresses, WhoeverIsAskedByPhysicalAddressAnswersFromAnyEid) {
    ctx.strict = MCTP_STRICT_ADDRESSES;
    ctx.dest_eid = 0;
    queue({"01 08 2E C3 01 AA"});
    EXPECT_EQ(receive(16), 1);
}

TEST_P(StrictAddresses, OtherThingsAreNotLookedAt) {
    ctx.strict = MCTP_STRICT_ADDRESSES;
    queue({"02 09 1D C3 02 AA"});
    EXPECT_EQ(receive(16), 1);
    EXPECT_EQ(body, hex("AA"));
}

TEST_P(StrictAddresses, AnEndlessStreamOfAnotherEndpointIsGivenUp) {
    ctx.strict = MCTP_STRICT_ADDRESSES;
    port().read_when_empty = SlaveRead::of(test::block(hex("01 08 2E C3 01 AA")));
    EXPECT_EQ(receive(16), -1);
    EXPECT_EQ(port().slave_reads.size(), 1024u);
    EXPECT_EQ(port().syslog.front(),
              "[mctp recv] gave up after 1024 packets that had to be dropped\n");
}

// ---- Set Endpoint ID and Allocate Endpoint IDs ----

TEST_P(StrictAddresses, SetEndpointIdIsAnsweredFromTheOldEidOrTheNew) {
    ctx.msg_type = 0;
    for (const char* source : {"1D", "2A"}) {
        ctx.strict = MCTP_STRICT_ADDRESSES;
        ctx.dest_eid = 0x1D;
        ctx.tag = 3;
        ctx.instance_id = 0;
        const std::string answer = std::string("01 08 ") + source + " C4 00 00 01 00 00 2A 00";
        queue({"01 08 2B C4 00 00 01 00 00 2A 00", answer.c_str()});
        EXPECT_EQ(mctp_set_endpoint_id(&ctx, 0x2A), 0) << source;
        EXPECT_EQ(ctx.dest_eid, 0x2A);
        EXPECT_TRUE(port().reads.empty());
    }
    EXPECT_EQ(port().written_packets().at(0), hex("01 1D 08 CC 00 80 01 00 2A"));
    // Other answers come from the old one alone: this is Get Endpoint ID.
    ctx.tag = 3;
    ctx.dest_eid = 0x1D;
    queue({"01 08 2A C4 00 02 02 00 2A 00 00"});
    EXPECT_EQ(mctp_get_endpoint_id(&ctx), -1);
}

class StrictAssignment : public test::PlatformTest {
protected:
    /// The result of a call for this answer, without and with the bit.
    std::vector<int32_t> both(const char* answer, int32_t (*call)(mctp_ctx*)) {
        std::vector<int32_t> results;
        for (const uint32_t bits : kBothWays) {
            ctx = test::ready_context();
            ctx.strict = bits;
            Endpoint endpoint({hex(answer)});
            results.push_back(call(&ctx));
        }
        return results;
    }

    mctp_ctx ctx{};
    const std::vector<int32_t> kFound{0, -1};
    const std::vector<int32_t> kGood{0, 0};
};

TEST_F(StrictAssignment, AnEndpointThatDoesNotTakeItsEidHasNone) {
    const auto set = [](mctp_ctx* endpoint) { return mctp_set_endpoint_id(endpoint, 0x2A); };
    EXPECT_EQ(both("00 01 00 00 2A 00", set), kGood);
    EXPECT_EQ(ctx.dest_eid, 0x2A);
    EXPECT_EQ(both("00 01 00 01 2A 20", set), kGood) << "it wants a pool";
    EXPECT_EQ(both("00 01 00 10 2A 00", set), kFound) << "rejected";
    EXPECT_EQ(ctx.dest_eid, 0x1D);
    EXPECT_EQ(both("00 01 00 00 1D 00", set), kFound) << "it has another one";
    EXPECT_EQ(both("00 01 00 00", set), kFound) << "it does not say";
    EXPECT_EQ(both("00 01 00", set), kFound);
}

// The third "not ready" says nothing of an EID or a pool.
TEST_F(StrictAssignment, WhoIsNeverReadyHasAcceptedNothing) {
    ctx = test::ready_context();
    ctx.strict = MCTP_STRICT_ADDRESSES;
    Endpoint bridge({hex("00 08 04"), hex("00 08 04"), hex("00 08 04")});
    EXPECT_EQ(mctp_allocate_endpoint_ids(&ctx, 0, 32, 64), -1);
    EXPECT_EQ(bridge.requests.size(), 3u);
    ctx = test::ready_context();
    ctx.strict = MCTP_STRICT_ADDRESSES;
    Endpoint endpoint({hex("00 01 04"), hex("00 01 04"), hex("00 01 04")});
    EXPECT_EQ(mctp_set_endpoint_id(&ctx, 0x2A), -1);
}

TEST_F(StrictAssignment, ARejectedPoolIsNone) {
    const auto allocate = [](mctp_ctx* bridge) {
        return mctp_allocate_endpoint_ids(bridge, 0, 32, 64);
    };
    const auto ask = [](mctp_ctx* bridge) { return mctp_allocate_endpoint_ids(bridge, 2, 0, 0); };
    EXPECT_EQ(both("00 08 00 00 20 40", allocate), kGood);
    EXPECT_EQ(both("00 08 00 01 20 40", allocate), kFound);
    EXPECT_EQ(both("00 08 00", allocate), kFound);
    EXPECT_EQ(both("00 08 00 01 20 40", ask), kGood) << "it only tells";
}

// ---- PCIe ----

class StrictAddressesPcie : public test::MctpPcie {
protected:
    struct Sender {
        uint8_t eid;
        Bytes bdf;
    };

    /// Whoever answers, in turn; the last one for ever.
    static void answer_from(const std::vector<Sender>& senders) {
        port().pcie_requests.clear();
        port().on_pcie = [senders](plt_pcie_request& request) {
            const size_t index = std::min(port().pcie_requests.size(), senders.size()) - 1;
            const Sender& sender = senders[index];
            std::copy_n(hex("01 00 02 11").begin(), 4, request.message);
            request.message[3] = static_cast<uint8_t>(index);
            request.length = 4;
            request.src_eid = sender.eid;
            request.dest_eid = 8;
            request.bus = sender.bdf[0];
            request.device = sender.bdf[1];
            request.function = sender.bdf[2];
            return 1;
        };
    }

    /// The result of an exchange, without and with the bit, for an answer from there.
    std::vector<int32_t> exchange_both(const Sender& sender) {
        std::vector<int32_t> results;
        for (const uint32_t bits : kBothWays) {
            std::copy_n(hex("41 02 03").begin(), 3, ctx.pcie_bdf);
            ctx.strict = bits;
            answer_from({sender});
            results.push_back(xfer(hex("80 02 11"), 16));
        }
        return results;
    }
};

TEST_F(StrictAddressesPcie, AnAnswerFromElsewhereIsNone) {
    const std::vector<int32_t> same{3, 3};
    const std::vector<int32_t> refused{3, -1};
    EXPECT_EQ(exchange_both({0x4A, hex("41 02 03")}), same);
    for (const Sender& other : {Sender{0x4B, hex("41 02 03")}, Sender{0x4A, hex("40 02 03")},
                                Sender{0x4A, hex("41 01 03")}, Sender{0x4A, hex("41 02 02")}}) {
        EXPECT_EQ(exchange_both(other), refused);
        EXPECT_EQ(Bytes(ctx.pcie_bdf, ctx.pcie_bdf + 3), hex("41 02 03")) << "it stays";
    }
    EXPECT_EQ(port().syslog.front(), "[mctp pcie] passed over a message from EID 75 at 41/02/03\n");
}

TEST_F(StrictAddressesPcie, TheRootComplexAndTheNullEidAreAnybody) {
    ctx.strict = MCTP_STRICT_ADDRESSES;
    std::fill_n(ctx.pcie_bdf, 3, uint8_t{0});
    answer_from({{0x4A, hex("17 00 01")}});
    EXPECT_EQ(xfer(hex("80 02 11"), 16), 3);
    ctx.dest_eid = 0;
    std::fill_n(ctx.pcie_bdf, 3, uint8_t{0});
    answer_from({{0x99, hex("17 00 01")}});
    EXPECT_EQ(xfer(hex("80 02 11"), 16), 3);
}

TEST_F(StrictAddressesPcie, AReceivePassesOverOthers) {
    for (const uint32_t bits : kBothWays) {
        std::copy_n(hex("41 02 03").begin(), 3, ctx.pcie_bdf);
        ctx.strict = bits;
        answer_from({{0x4B, hex("41 02 03")}, {0x4A, hex("40 02 03")}, {0x4A, hex("41 02 03")}});
        test::Guarded buffer(16);
        EXPECT_EQ(receive(16, buffer), 0);
        EXPECT_EQ(buffer.head(3), bits == 0 ? hex("00 02 00") : hex("00 02 02"));
    }
}

TEST_F(StrictAddressesPcie, AnEndlessStreamOfOthersIsGivenUp) {
    ctx.strict = MCTP_STRICT_ADDRESSES;
    answer_from({{0x4B, hex("41 02 03")}});
    test::Guarded buffer(16);
    EXPECT_EQ(receive(16, buffer), -1);
    EXPECT_EQ(port().pcie_requests.size(), 1024u);
}

TEST_F(StrictAddressesPcie, SetEndpointIdIsAnsweredFromTheOldEidOrTheNew) {
    ctx.msg_type = 0;
    ctx.strict = MCTP_STRICT_ADDRESSES;
    for (const uint8_t source : {0x4A, 0x2A, 0x2B}) {
        ctx.dest_eid = 0x4A;
        port().on_pcie = [source](plt_pcie_request& request) {
            std::copy_n(hex("00 00 01 00 00 2A 00").begin(), 7, request.message);
            request.message[1] = port().pcie_requests.back().message[1] & 0x1F;
            request.length = 7;
            request.src_eid = source;
            return 1;
        };
        EXPECT_EQ(mctp_set_endpoint_id(&ctx, 0x2A), source == 0x2B ? -1 : 0) << int{source};
    }
}

TEST_F(StrictAddressesPcie, OnlyControlMessagesGoToTheRootComplex) {
    for (const uint32_t bits : kBothWays) {
        ctx.strict = bits;
        ctx.msg_type = 1;
        for (const char* body : {"80 0A 00", "80 0D 00"}) {
            EXPECT_EQ(send(hex(body)), 0);
            EXPECT_EQ(port().pcie_requests.back().routing, bits == 0 ? 0 : 2) << body;
        }
        ctx.msg_type = 0;
        EXPECT_EQ(send(hex("80 0D")), 0);
        EXPECT_EQ(port().pcie_requests.back().routing, 0);
    }
}

// ---- The MPIO ----

TEST_F(StrictAddressesPcie, TheMpioIsAskedAsStrictly) {
    // It says that it has rejected nothing and knows the device; but these are no control messages.
    port().on_pcie = [](plt_pcie_request& request) {
        const uint8_t instance = request.message[1] & 0x1F;
        const bool table = request.message[2] == 0x0A;
        const Bytes answer =
            table ? hex("01 00 0A 00 FF 01 01 4A 00 02 08 02 41 13") : hex("01 00 02 00 21 00 00");
        std::copy(answer.begin(), answer.end(), request.message);
        request.message[1] = instance;
        request.length = static_cast<uint32_t>(answer.size());
        request.dest_eid = 0x80;
        return 1;
    };
    port().secure.mpio_state = 0x21;
    EXPECT_EQ(get_eid_from_mpio(&ctx), 0);
    ctx.strict = MCTP_STRICT_PACKETS;
    EXPECT_EQ(get_eid_from_mpio(&ctx), -1);
    port().secure.mpio_state = PLT_MPIO_NONE;
    EXPECT_EQ(mctp_discovery(&ctx), -1);
    EXPECT_EQ(port().syslog.back(), "[mctp pcie] passed over a message from EID 8 at 41/02/03\n")
        << "there is no MPIO, and no endpoint";
}

}  // namespace
