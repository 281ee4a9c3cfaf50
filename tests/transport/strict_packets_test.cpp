// SPDX-License-Identifier: Apache-2.0
// MCTP_STRICT_PACKETS: what it finds in packets, blocks and answers, and that without it nobody
// looks.
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

const char* const kAnswerPacket = "01 08 1D C3 01 BB";

class StrictPackets : public test::ReceiveTest {
protected:
    void queue(const std::vector<const char*>& packets) {
        for (const char* packet : packets) {
            port().queue({hex(packet)});
        }
    }

    /// Receives what is queued without and with the bit.
    void receive_both(const std::vector<const char*>& packets) {
        for (const uint32_t bits : {0U, MCTP_STRICT_PACKETS}) {
            port().reads.clear();
            queue(packets);
            ctx.tag = 3;
            ctx.strict = bits;
            (bits == 0 ? lax_result : strict_result) = receive(256);
            (bits == 0 ? lax : strict) = body;
        }
    }

    int32_t lax_result = 0;
    int32_t strict_result = 0;
    Bytes lax;
    Bytes strict;
};

INSTANTIATE_TEST_SUITE_P(Kind, StrictPackets, test::smbus_kinds(), test::kind_name);

// ---- A packet by itself ----

TEST_P(StrictPackets, APacketOfSomebodyElseIsPassedOver) {
    for (const char* foreign : {"01 09 1D C3 01 AA",     // another destination
                                "01 FF 1D C3 01 AA",     // all, which no answer is for
                                "02 08 1D C3 01 AA",     // another header version
                                "00 08 1D C3 01 AA",     // none
                                "01 08 1D C3 02 AA",     // another message type
                                "01 08 1D CB 7E AA"}) {  // likewise, of a request
        receive_both({foreign, kAnswerPacket});
        EXPECT_EQ(lax, hex("AA")) << foreign;
        EXPECT_EQ(strict, hex("BB")) << foreign;
        EXPECT_NE(printed.find(foreign[0] == '0' ? "Dumping Packets" : ""), std::string::npos);
    }
}

TEST_P(StrictPackets, WhatTheStandardLeavesOpenIsTaken) {
    for (const char* good : {"01 08 1D C3 01 AA",     // as it should be
                             "F1 08 1D C3 01 AA",     // reserved bits beside the version
                             "01 00 1D C3 01 AA",     // by physical address
                             "01 08 1D C3 81 AA",     // with an integrity check, in its type
                             "01 08 1D F3 01 AA",     // the sequence begins anywhere
                             "01 08 1D CE 01 AA",     // a request, with a tag of its own
                             "01 FF 1D CE 01 AA"}) {  // a request to all
        receive_both({good});
        EXPECT_EQ(lax, hex("AA")) << good;
        EXPECT_EQ(strict, hex("AA")) << good;
        EXPECT_EQ(printed, "") << good;
    }
}

TEST_P(StrictPackets, ABmcWithoutAnEidTakesAnyDestination) {
    ctx.src_eid = 0;
    receive_both({"01 2A 1D C3 01 AA"});
    EXPECT_EQ(strict, hex("AA"));
}

TEST_P(StrictPackets, AWrongTagIsReportedAsEver) {
    port().syslog.clear();
    receive_both({"01 08 1D C4 01 AA", kAnswerPacket});
    EXPECT_EQ(lax, hex("BB"));
    EXPECT_EQ(strict, hex("BB"));
    EXPECT_EQ(port().syslog, Lines(2, "MCTP request tag is 3 but response tag is 4\n"));
}

TEST_P(StrictPackets, APacketLargerThanTheUnitIsPassedOver) {
    ctx.unit_size = 8;
    const char* const large = "01 08 1D C3 01 A1 A2 A3 A4 A5 A6 A7 A8 A9";
    receive_both({large, kAnswerPacket});
    EXPECT_EQ(lax, hex("A1 A2 A3 A4 A5 A6 A7 A8")) << "cut";
    EXPECT_EQ(strict, hex("BB"));
}

TEST_P(StrictPackets, EveryReadAsksForAWholePacket) {
    ctx.strict = MCTP_STRICT_PACKETS;
    queue({"01 08 1D 83 01 AA", "01 08 1D 53 BB"});
    EXPECT_EQ(receive(3), 2);
    ASSERT_EQ(port().slave_reads.size(), 2u);
    EXPECT_EQ(port().slave_reads[0].request.read_length, 3 + 5 + 96);
    EXPECT_EQ(port().slave_reads[1].request.read_length, 3 + 4 + 96);
    EXPECT_TRUE(port().slave_reads[1].buffer_was_zero);
}

// ---- The block around a packet ----

TEST_P(StrictPackets, ABlockThatIsNotOneOfMctpIsPassedOver) {
    for (const char* foreign : {"0E 07 65 01 08 1D C3 01 AA 00",     // command code
                                "0F 06 65 01 08 1D C3 01 AA 00",     // byte count too small
                                "0F 08 65 01 08 1D C3 01 AA 00",     // too large
                                "0F 00 65 01 08 1D C3 01 AA 00",     // none
                                "0F 07 64 01 08 1D C3 01 AA 00"}) {  // source address
        for (const uint32_t bits : {0U, MCTP_STRICT_PACKETS}) {
            port().reads = {SlaveRead::of(hex(foreign)),
                            SlaveRead::of(hex("0F 07 65 01 08 1D C3 01 BB 00"))};
            ctx.tag = 3;
            ctx.strict = bits;
            EXPECT_EQ(receive(16), 1);
            EXPECT_EQ(body, bits == 0 ? hex("AA") : hex("BB")) << foreign;
            for (const test::ReadRecord& read : port().slave_reads) {
                EXPECT_TRUE(read.buffer_was_zero);
            }
        }
    }
}

TEST_P(StrictPackets, TheBindingItselfGivesNothingOfSuchABlock) {
    for (const uint32_t bits : {0U, MCTP_STRICT_PACKETS}) {
        port().reads = {SlaveRead::of(hex("0E 07 65 01 08 1D C3 01 AA 00"))};
        ctx.strict = bits;
        Bytes buffer(8);
        EXPECT_EQ(ctx.binding->read(&ctx.section, 8, buffer.data()), bits == 0 ? 6 : 0);
    }
}

// ---- Several packets ----

TEST_P(StrictPackets, ALostPacketMakesNoMessage) {
    receive_both({"01 08 1D 83 01 A1 A2", "01 08 1D 63 C1"});
    EXPECT_EQ(lax, hex("A1 A2 C1")) << "the sequence of an end packet is not looked at";
    EXPECT_EQ(strict_result, -1);
    // The next message is taken, and nothing of the void one is left behind it.
    ctx.strict = MCTP_STRICT_PACKETS;
    queue({"01 08 1D 83 01 A1 A2", "01 08 1D 63 C1", kAnswerPacket});
    Bytes buffer(4, 0xA5);
    EXPECT_EQ(ctx.recv(&ctx, 4, buffer.data()), 1);
    EXPECT_EQ(buffer, hex("BB 00 A5 A5"));
}

TEST_P(StrictPackets, AnEndPacketThatComesTwiceIsNoPartOfTheNextMessage) {
    receive_both(
        {"01 08 1D 83 01 A1 A2", "01 08 1D 13 A3 A4 A5", "01 08 1D 13 A3 A4 A5", "01 08 1D 63 A6"});
    EXPECT_EQ(lax, hex("A1 A2 A3 A4 A5 A6"));
    EXPECT_EQ(strict_result, -1) << "a packet out of sequence ends the assembly";
}

TEST_P(StrictPackets, PacketsOfDifferentSizesMakeNoMessage) {
    const std::vector<std::vector<const char*>> messages = {
        {"01 08 1D 83 01 A1 A2", "01 08 1D 13 A3 A4", "01 08 1D 63 A5"},               // smaller
        {"01 08 1D 83 01 A1 A2", "01 08 1D 13 A3 A4 A5 A6", "01 08 1D 63 A7"},         // larger
        {"01 08 1D 83 01 A1 A2", "01 08 1D 13 A3 A4 A5", "01 08 1D 63 A6 A7 A8 A9"}};  // the last
    for (const auto& message : messages) {
        receive_both(message);
        EXPECT_GT(lax_result, 4);
        EXPECT_EQ(strict_result, -1) << message[1];
    }
    receive_both({"01 08 1D 83 01 A1 A2", "01 08 1D 13 A3 A4 A5", "01 08 1D 63 A6 A7 A8"});
    EXPECT_EQ(strict, hex("A1 A2 A3 A4 A5 A6 A7 A8")) << "the last may be as large";
    EXPECT_EQ(strict, lax);
}

TEST_P(StrictPackets, ASecondStartBeginsAnew) {
    receive_both({"01 08 1D 83 01 A1 A2", "01 08 1D 83 01 B1 B2", "01 08 1D 53 B3"});
    EXPECT_EQ(lax, hex("A1 A2 01 B1 B2 B3")) << "type byte and all";
    EXPECT_EQ(strict, hex("B1 B2 B3"));
}

// A request of the device's own that ends in the middle does not take the tag of the answer with
// it.
TEST_P(StrictPackets, ARequestThatIsVoidLeavesTheAnswerItsTag) {
    for (const char* broken : {"01 08 1D 6E CC", "01 08 1D C3 01 BB"}) {
        ctx.strict = MCTP_STRICT_PACKETS;
        ctx.tag = 3;
        port().reads.clear();
        // Tag 6, TO, sequence 0 without EOM; then out of sequence, or nothing more; then the
        // answer.
        queue({"01 08 1D 8E 01 AA", broken, kAnswerPacket});
        EXPECT_GT(receive(256), 0) << broken;
        EXPECT_EQ(body, hex("BB")) << broken;
        EXPECT_EQ(ctx.tag & 7, 3) << broken;
    }
}

TEST_P(StrictPackets, AnotherEndpointsPacketsBetweenThoseOfAMessageDoNoHarm) {
    for (const char* foreign : {"01 08 2E 13 F1 F2 F3",     // from another endpoint
                                "01 00 1D 13 F1 F2 F3",     // to another EID
                                "01 08 1D 1B F1 F2 F3"}) {  // of a request with the same tag
        receive_both({"01 08 1D 83 01 A1 A2", foreign, "01 08 1D 13 A3 A4 A5", "01 08 1D 63 A6"});
        EXPECT_NE(lax, hex("A1 A2 A3 A4 A5 A6")) << foreign;
        EXPECT_EQ(strict, hex("A1 A2 A3 A4 A5 A6")) << foreign;
    }
    // The start of another message is none of ours, and does not end it.
    receive_both({"01 08 1D 83 01 A1 A2", "01 08 2E 83 02 F1 F2", "01 08 1D 53 A3"});
    EXPECT_EQ(lax, hex("A1 A2 02 F1 F2 A3"));
    EXPECT_EQ(strict, hex("A1 A2 A3"));
}

TEST_P(StrictPackets, PacketsWithoutAStartAreDropped) {
    receive_both({"01 08 1D 13 A1", "01 08 1D 63 A2", kAnswerPacket});
    EXPECT_EQ(lax, hex("BB"));
    EXPECT_EQ(strict, hex("BB"));
}

TEST_P(StrictPackets, PacketsWithoutPayloadAreDropped) {
    receive_both({"01 08 1D C3", "01 08 1D 83 01 A1 A2", "01 08 1D 83", "01 08 1D 53 A3"});
    EXPECT_EQ(strict, hex("A1 A2 A3"));
    receive_both({"01 08 1D 83 01 A1 A2", "01 08 1D 13", "01 08 1D 53 A3"});
    EXPECT_EQ(strict_result, -1);
}

TEST_P(StrictPackets, ALargeMessageIsCutToTheBuffer) {
    ctx.strict = MCTP_STRICT_PACKETS;
    port().queue(test::split(hex("01") + test::counting(300), 0x08, 0x1D, 3, 64));
    EXPECT_EQ(receive(100), 100);
    EXPECT_EQ(body, test::counting(100));
    EXPECT_EQ(port().slave_reads.size(), 2u);
}

TEST_P(StrictPackets, ALargeMessageWrapsTheSequence) {
    ctx.strict = MCTP_STRICT_PACKETS;
    port().queue(test::split(hex("01") + test::counting(4096), 0x08, 0x1D, 3, 64));
    EXPECT_EQ(receive(4096), 4096);
    EXPECT_EQ(body, test::counting(4096));
}

TEST_P(StrictPackets, AnEndlessStreamOfForeignPacketsIsGivenUp) {
    ctx.strict = MCTP_STRICT_PACKETS;
    for (const char* foreign : {"01 09 1D C3 01 AA", "01 08 1D 83 02 AA", "01 08 1D 13 AA"}) {
        port().slave_reads.clear();
        port().read_when_empty = SlaveRead::of(test::block(hex(foreign)));
        EXPECT_EQ(receive(16), -1);
        EXPECT_EQ(port().slave_reads.size(), 1024u);
        EXPECT_NE(printed.find("[mctp recv] 992 more packets dropped\n"), std::string::npos);
    }
    EXPECT_EQ(port().syslog.back(), "[mctp recv] 992 more packets dropped\n");
}

TEST_P(StrictPackets, AnEndlessStreamOfStartsIsGivenUp) {
    port().read_when_empty = SlaveRead::of(test::block(hex("01 08 1D 83 01 AA")));
    for (const uint32_t others : {0U, MCTP_STRICT_INTEGRITY}) {
        ctx.strict = MCTP_STRICT_PACKETS | others;
        port().slave_reads.clear();
        EXPECT_EQ(receive(16), -1);
        EXPECT_EQ(port().slave_reads.size(), 1025u) << "the first one brought a byte";
    }
}

TEST_P(StrictPackets, AllThatIsDroppedCounts) {
    // A good packet for each that is dropped: in a row there is one at most.
    ctx.strict = MCTP_STRICT_PACKETS;
    for (unsigned i = 0; i < 3000; i++) {
        const unsigned flags = (i == 0 ? test::kSom : 0u) | test::sequence(i) | 3u;
        port().queue({Bytes{0x01, 0x08, 0x1D, static_cast<uint8_t>(flags), 0x01, 0xAA},
                      hex("01 09 1D C3 01 AA")});
    }
    EXPECT_EQ(receive(8192), -1);
    EXPECT_EQ(port().slave_reads.size(), 2u * 1024);
}

TEST_P(StrictPackets, AReceiveThatDeliversTheTypeTakesAny) {
    ctx.strict = MCTP_STRICT_PACKETS;
    queue({"01 09 1D C8 7E F1", "01 08 1D 88 7E A1 A2", "01 08 1D 58 A3"});
    Bytes buffer(16, 0xA5);
    EXPECT_EQ(mctp_smbus_recv_with_type(&ctx, 16, buffer.data()), 4);
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 5), hex("7E A1 A2 A3 A5"));
}

// ---- Exchanges ----

TEST_P(StrictPackets, AnExchangeTakesNoRequestForItsAnswer) {
    for (const uint32_t bits : {0U, MCTP_STRICT_PACKETS}) {
        port().reads.clear();
        queue({"01 08 1D CC 01 AA", "01 08 1D C4 01 BB"});  // with the answer's tag, too
        ctx.tag = 3;
        ctx.strict = bits;
        Bytes answer(4);
        EXPECT_EQ(ctx.xfer(&ctx, 1, 4, hex("80").data(), answer.data()), 1);
        EXPECT_EQ(answer[0], bits == 0 ? 0xAA : 0xBB);
    }
}

TEST(StrictPacketsDelayed, AnExchangeTakesNoRequestForItsAnswer) {
    test::port().reset();
    test::LibcPatch libc;
    mctp_ctx ctx = test::smbus_context();
    ctx.skip_discovery = 1;
    ASSERT_EQ(mctp_init2_with_i2c_delay(&ctx), 0);
    ctx.msg_type = 1;
    for (const uint32_t bits : {0U, MCTP_STRICT_PACKETS}) {
        port().queue({hex("01 08 1D CC 01 AA"), hex("01 08 1D C4 01 BB")});
        ctx.tag = 3;
        ctx.strict = bits;
        Bytes answer(4);
        EXPECT_EQ(ctx.xfer(&ctx, 1, 4, hex("80").data(), answer.data()), 1);
        EXPECT_EQ(answer[0], bits == 0 ? 0xAA : 0xBB);
        port().reads.clear();
    }
}

// ---- Sending ----

TEST_P(StrictPackets, TheLastPacketHasEomWhateverItsSize) {
    ctx.unit_size = 4;
    for (const uint32_t bits : {0U, MCTP_STRICT_PACKETS}) {
        ctx.strict = bits;
        port().writes.clear();
        EXPECT_EQ(ctx.send(&ctx, 7, hex("A1 A2 A3 A4 A5 A6 A7").data(), 1), 0);
        EXPECT_EQ(port().written_packets(),
                  (std::vector<Bytes>{
                      hex("01 1D 08 8B 01 A1 A2 A3"),
                      hex(bits == 0 ? "01 1D 08 1B A4 A5 A6 A7" : "01 1D 08 5B A4 A5 A6 A7")}));
        port().writes.clear();
        EXPECT_EQ(ctx.send(&ctx, 6, hex("A1 A2 A3 A4 A5 A6").data(), 1), 0);
        EXPECT_EQ(port().written_packets().at(1), hex("01 1D 08 5B A4 A5 A6"));
        port().writes.clear();
        EXPECT_EQ(ctx.send(&ctx, 3, hex("A1 A2 A3").data(), 1), 0);
        EXPECT_EQ(port().written_packets(), std::vector<Bytes>{hex("01 1D 08 CB 01 A1 A2 A3")});
    }
}

TEST_P(StrictPackets, APacketThatCannotBeWrittenFailsTheMessage) {
    ctx.unit_size = 4;
    for (const uint32_t bits : {0U, MCTP_STRICT_PACKETS}) {
        ctx.strict = bits;
        port().writes.clear();
        port().write_results = {-1, -1, -1};
        const int32_t result = ctx.send(&ctx, 6, hex("A1 A2 A3 A4 A5 A6").data(), 1);
        EXPECT_EQ(result, bits == 0 ? 0 : -1);
        EXPECT_EQ(port().writes.size(), bits == 0 ? 4u : 3u);
    }
}

// ---- Control messages ----

class StrictControl : public test::PlatformTest {
protected:
    mctp_ctx ctx = test::ready_context();
};

TEST_F(StrictControl, OnlyAResponseIsAnAnswer) {
    for (const char* answer : {"80 02 00 2A 00 00", "40 02 00 2A 00 00"}) {
        for (const uint32_t bits : {0U, MCTP_STRICT_PACKETS}) {
            ctx.strict = bits;
            Endpoint endpoint({hex(answer)});
            EXPECT_EQ(mctp_get_endpoint_id(&ctx), bits == 0 ? 0x2A : -1) << answer;
        }
    }
    ctx.strict = MCTP_STRICT_PACKETS;
    Endpoint endpoint({hex("00 02 00 2A 00 00")});
    EXPECT_EQ(mctp_get_endpoint_id(&ctx), 0x2A);
}

TEST_F(StrictControl, NotReadyIsNoSuccess) {
    const Bytes not_ready = hex("00 0C 04");
    for (const uint32_t bits : {0U, MCTP_STRICT_PACKETS}) {
        ctx.strict = bits;
        Endpoint endpoint({not_ready, not_ready, not_ready});
        EXPECT_EQ(mctp_endpoint_discovery(&ctx), bits == 0 ? 0 : -1);
        EXPECT_EQ(endpoint.requests.size(), 3u);
    }
    ctx.strict = MCTP_STRICT_PACKETS;
    Endpoint endpoint({not_ready, not_ready, hex("00 0C 00")});
    EXPECT_EQ(mctp_endpoint_discovery(&ctx), 0);
}

// ---- PCIe ----

class StrictPacketsPcie : public test::MctpPcie {
protected:
    StrictPacketsPcie() { answer_as(hex("01 00 02 11"), 6, 8); }

    /// Answers with this tag and destination.
    static void answer_as(const Bytes& message, uint8_t tag, uint32_t destination) {
        port().on_pcie = [message, tag, destination](plt_pcie_request& request) {
            std::copy(message.begin(), message.end(), request.message);
            request.length = static_cast<uint32_t>(message.size());
            request.src_eid = 0x4A;
            request.dest_eid = destination;
            request.tag = tag;
            return 1;
        };
    }

    /// The result of an exchange with tag 6, without and with the bit.
    std::vector<int32_t> exchange_both() {
        std::vector<int32_t> results;
        for (const uint32_t bits : {0U, MCTP_STRICT_PACKETS}) {
            ctx.strict = bits;
            ctx.tag = 5;
            results.push_back(xfer(hex("80 02 11"), 16));
        }
        return results;
    }
};

TEST_F(StrictPacketsPcie, AnotherMessageIsNoAnswer) {
    const std::vector<int32_t> same{3, 3};
    const std::vector<int32_t> refused{3, -1};
    EXPECT_EQ(exchange_both(), same);
    answer_as(hex("81 00 02 11"), 6, 8);
    EXPECT_EQ(exchange_both(), same) << "a check, in its type";
    answer_as(hex("01 00 02 11"), 0xFE, 0);
    EXPECT_EQ(exchange_both(), same) << "three bits of tag, and the null EID";
    answer_as(hex("02 00 02 11"), 6, 8);
    EXPECT_EQ(exchange_both(), refused) << "type";
    answer_as(hex("01 00 02 11"), 5, 8);
    EXPECT_EQ(exchange_both(), refused) << "tag";
    answer_as(hex("01 00 02 11"), 6, 9);
    EXPECT_EQ(exchange_both(), refused) << "destination";
    answer_as(hex("01 00 02 11"), 6, 0xFF);
    EXPECT_EQ(exchange_both(), refused) << "all";
}

TEST_F(StrictPacketsPcie, AReceivePassesOverOtherMessages) {
    for (const uint32_t bits : {0U, MCTP_STRICT_PACKETS}) {
        ctx.strict = bits;
        port().pcie_requests.clear();
        port().on_pcie = [](plt_pcie_request& request) {
            const bool first = port().pcie_requests.size() == 1;
            request.message[0] = first ? 2 : 1;
            request.message[1] = first ? 0xAA : 0xBB;
            request.length = 2;
            request.dest_eid = 8;
            return 1;
        };
        test::Guarded buffer(16);
        EXPECT_EQ(receive(16, buffer), 0);
        EXPECT_EQ(buffer.head(1), bits == 0 ? hex("AA") : hex("BB"));
        EXPECT_EQ(mctp_pcie_recv_with_type(&ctx, 16, buffer.data()), 2);
    }
}

TEST_F(StrictPacketsPcie, AReceiveTakesAnyTagAndWhatIsForAllOrForWhoeverHasNoEid) {
    ctx.strict = MCTP_STRICT_PACKETS;
    ctx.tag = 5;
    test::Guarded buffer(16);
    answer_as(hex("01 A1"), 3, 8);
    EXPECT_EQ(receive(16, buffer), 0);
    EXPECT_EQ(buffer.head(1), hex("A1"));
    answer_as(hex("01 A2"), 5, 0xFF);
    EXPECT_EQ(receive(16, buffer), 0);
    EXPECT_EQ(buffer.head(1), hex("A2")) << "broadcast";
    answer_as(hex("01 A3"), 5, 9);
    EXPECT_EQ(receive(16, buffer), -1);
    EXPECT_EQ(buffer.head(1), hex("A2")) << "for somebody else";
    ctx.src_eid = 0;
    EXPECT_EQ(receive(16, buffer), 0);
    EXPECT_EQ(buffer.head(1), hex("A3"));
}

TEST_F(StrictPacketsPcie, AReceiveThatDeliversTheTypeTakesAny) {
    ctx.strict = MCTP_STRICT_PACKETS;
    answer_as(hex("7E A1 A2"), 6, 8);
    test::Guarded buffer(16);
    EXPECT_EQ(mctp_pcie_recv_with_type(&ctx, 16, buffer.data()), 3);
    EXPECT_EQ(buffer.head(3), hex("7E A1 A2"));
    EXPECT_TRUE(buffer.untouched_from(3));
    answer_as(hex("7E A1 A2"), 6, 9);
    EXPECT_EQ(mctp_pcie_recv_with_type(&ctx, 16, buffer.data()), -1) << "for somebody else";
}

TEST_F(StrictPacketsPcie, AnEndlessStreamOfOtherMessagesIsGivenUp) {
    ctx.strict = MCTP_STRICT_PACKETS;
    answer_as(hex("02 00"), 6, 8);
    test::Guarded buffer(16);
    EXPECT_EQ(receive(16, buffer), -1);
    EXPECT_EQ(port().pcie_requests.size(), 1024u);
    EXPECT_TRUE(buffer.untouched_from(0));
}

TEST_F(StrictPacketsPcie, TheTagIsCountedModuloEight) {
    for (const uint32_t bits : {0U, MCTP_STRICT_PACKETS}) {
        ctx.strict = bits;
        ctx.tag = 7;
        answer_as(hex("01 00"), 0, 8);
        EXPECT_EQ(xfer(hex("80 02"), 16), 1);
        EXPECT_EQ(port().pcie_requests.back().tag, bits == 0 ? 8 : 0);
        ctx.tag = 0x80;
        EXPECT_EQ(xfer(hex("80 02"), 16), 1);
        EXPECT_EQ(port().pcie_requests.back().tag, 0x80) << "pinned";
    }
}

}  // namespace
