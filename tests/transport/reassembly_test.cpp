// SPDX-License-Identifier: Apache-2.0
// Reassembly: which packets are accepted in which state, what is stored, what is dropped.
#include <sideband/mctp.h>

#include <algorithm>
#include <string>
#include <vector>

#include "transport/receive_fixture.h"

namespace {

using test::Bytes;
using test::Guarded;
using test::hex;
using test::kEom;
using test::operator+;
using test::kSom;
using test::kTo;
using test::packet;
using test::port;
using test::ready_context;
using test::sequence;
using Lines = std::vector<std::string>;

/// Both SMBus kinds: they receive alike but for the lock.
class MctpReceive : public test::ReceiveTest {
protected:
    /// Queues a packet from the endpoint; the flags hold the tag.
    void queue(unsigned flags, const Bytes& payload, uint8_t src = 0x1D) {
        port().queue({packet(0x08, src, static_cast<uint8_t>(flags), payload)});
    }

    int32_t receive(int32_t capacity = 256) { return ReceiveTest::receive(capacity); }

    /// The trace of one dropped packet.
    static std::string dump(const Bytes& mctp_packet) {
        std::string text =
            "[transport/mctp:42] Dumping Packets....\n===== mctp payload packets(len: " +
            std::to_string(mctp_packet.size()) + ")=====\n";
        for (size_t i = 0; i < mctp_packet.size(); i++) {
            text += i != 0 && i % 12 == 0 ? "\n " : " ";
            text += test::to_hex({&mctp_packet[i], 1});
        }
        return text + "\n===========================";
    }
};

INSTANTIATE_TEST_SUITE_P(Kind, MctpReceive, test::smbus_kinds(), test::kind_name);

// ---- What is stored ----

TEST_P(MctpReceive, OnePacketGivesItsBodyWithoutTheTypeByte) {
    port().queue({hex("01 08 1D C3 01 00 02 11 00")});
    EXPECT_EQ(receive(), 4);
    EXPECT_EQ(body, hex("00 02 11 00"));
    EXPECT_EQ(printed, "");
    EXPECT_EQ(port().syslog, Lines());
}

TEST_P(MctpReceive, WithoutRoomNothingIsRead) {
    uint8_t byte = 0xA5;
    EXPECT_EQ(ctx.recv(&ctx, 16, nullptr), 0);
    EXPECT_EQ(ctx.recv(&ctx, 0, &byte), 0);
    EXPECT_EQ(ctx.recv(&ctx, -1, &byte), 0);
    EXPECT_EQ(ctx.recv(&ctx, INT32_MIN, &byte), 0);
    EXPECT_EQ(byte, 0xA5);
    EXPECT_EQ(port().trace_of({"read", "mux"}), Lines());
}

TEST_P(MctpReceive, PacketsAreJoinedInOrder) {
    const Bytes message = hex("01") + test::counting(200);
    port().queue(test::split(message, 0x08, 0x1D, 3, 96));
    EXPECT_EQ(receive(), 200);
    EXPECT_EQ(body, test::counting(200));
    EXPECT_EQ(printed, "");
}

TEST_P(MctpReceive, ALongMessageWrapsTheSequence) {
    const Bytes message = hex("01") + test::counting(4096);
    port().queue(test::split(message, 0x08, 0x1D, 3, 64));
    EXPECT_EQ(receive(4096), 4096);
    EXPECT_EQ(body, test::counting(4096));
}

TEST_P(MctpReceive, TheFirstSequenceNumberMayBeAny) {
    queue(kSom | sequence(2) | 3, hex("01 AA"));
    queue(sequence(3) | 3, hex("BB"));
    queue(sequence(0) | 3, hex("CC"));
    queue(kEom | sequence(1) | 3, hex("DD"));
    EXPECT_EQ(receive(), 4);
    EXPECT_EQ(body, hex("AA BB CC DD"));
}

TEST_P(MctpReceive, AMessageLongerThanTheBufferIsCutAndReadingEnds) {
    const Bytes message = hex("01") + test::counting(200);
    port().queue(test::split(message, 0x08, 0x1D, 3, 96));
    EXPECT_EQ(receive(100), 100);
    EXPECT_EQ(body, test::counting(100));
    EXPECT_EQ(port().slave_reads.size(), 2u) << "the third packet is not waited for";
}

TEST_P(MctpReceive, AFullBufferEndsTheMessageWithoutEom) {
    queue(kSom | 3, hex("01 AA BB CC"));
    EXPECT_EQ(receive(3), 3);
    EXPECT_EQ(body, hex("AA BB CC"));
    EXPECT_EQ(port().slave_reads.size(), 1u);
}

TEST_P(MctpReceive, EachReadAsksForHeaderAndUnitOrWhatIsStillWanted) {
    const Bytes message = hex("01") + test::counting(120);
    port().queue(test::split(message, 0x08, 0x1D, 3, 64));
    EXPECT_EQ(receive(120), 120);
    ASSERT_EQ(port().slave_reads.size(), 2u);
    // 3 bytes of SMBus header, then 5 + 96; then 4 + (120 - 63).
    EXPECT_EQ(port().slave_reads[0].request.read_length, 104);
    EXPECT_EQ(port().slave_reads[1].request.read_length, 3 + 4 + 57);
}

TEST_P(MctpReceive, ASmallBufferAsksForLittle) {
    EXPECT_EQ(receive(1), -1);
    EXPECT_EQ(port().slave_reads[0].request.read_length, 3 + 5 + 1);
}

TEST_P(MctpReceive, SourceEidOfTheStartIsRecordedOnAcceptance) {
    queue(kSom | 3, hex("01 AA"), 0x2B);
    queue(kEom | sequence(1) | 3, hex("BB"), 0x77);
    ctx.binding_eids[0] = 0;
    ctx.binding_eids[1] = 0x55;
    EXPECT_EQ(receive(), 2);
    EXPECT_EQ(ctx.binding_eids[0], 0x2B);
    EXPECT_EQ(ctx.binding_eids[1], 0x55);
    EXPECT_EQ(ctx.dest_eid, 0x1D);
}

TEST_P(MctpReceive, SourceEidOfADroppedStartIsNotRecorded) {
    queue(kSom | kEom | 4, hex("01 AA"), 0x2B);
    ctx.binding_eids[0] = 0x66;
    EXPECT_EQ(receive(), -1);
    EXPECT_EQ(ctx.binding_eids[0], 0x66);
}

TEST_P(MctpReceive, HeaderVersionAndDestinationAreNotChecked) {
    port().queue({hex("F7 99 1D C3 01 AA")});
    EXPECT_EQ(receive(), 1);
}

TEST_P(MctpReceive, IntegrityCheckIsDeliveredWithTheBody) {
    queue(kSom | kEom | 3, hex("84 88 00 00 DE AD BE EF"));
    EXPECT_EQ(receive(), 7);
    EXPECT_EQ(body, hex("88 00 00 DE AD BE EF"));
}

// ---- Endings ----

TEST_P(MctpReceive, AFailedReadEndsTheReceive) {
    port().reads = {test::SlaveRead::failure(-110)};
    EXPECT_EQ(receive(), -1);
    EXPECT_EQ(port().slave_reads.size(), 1u);
}

TEST_P(MctpReceive, AFailedReadInTheMiddleEndsTheReceive) {
    queue(kSom | 3, hex("01 AA"));
    EXPECT_EQ(receive(), -1);
    EXPECT_EQ(port().slave_reads.size(), 2u);
}

// ---- State "first" ----

TEST_P(MctpReceive, APacketWithoutRoomForATypeByteIsDropped) {
    queue(kSom | kEom | 3, Bytes());
    queue(kSom | kEom | 3, hex("01 AA"));
    EXPECT_EQ(receive(), 1);
    EXPECT_EQ(body, hex("AA"));
    EXPECT_EQ(printed, dump(hex("01 08 1D C3")));
}

TEST_P(MctpReceive, APacketShorterThanATransportHeaderIsDropped) {
    port().queue({Bytes(), hex("01"), hex("01 08 1D"), hex("01 08 1D C3 01 AA")});
    EXPECT_EQ(receive(), 1);
    EXPECT_EQ(printed, dump(Bytes()) + dump(hex("01")) + dump(hex("01 08 1D")));
}

TEST_P(MctpReceive, AMessageMustBeginWithSom) {
    queue(kEom | 3, hex("01 EE"));
    queue(kSom | kEom | 3, hex("01 AA"));
    EXPECT_EQ(receive(), 1);
    EXPECT_EQ(body, hex("AA"));
    EXPECT_EQ(printed, dump(hex("01 08 1D 43 01 EE")));
    EXPECT_EQ(port().syslog, Lines());
}

TEST_P(MctpReceive, WithoutSomNeitherAFittingTagNorToMakesAStart) {
    ctx.tag = 0;
    queue(kEom | 0, hex("01 EE"));
    queue(kEom | kTo | 0, hex("01 EE"));
    queue(kEom | 5, hex("01 EE"));
    queue(kSom | kEom | 0, hex("01 AA"));
    EXPECT_EQ(receive(), 1);
    EXPECT_EQ(body, hex("AA"));
    EXPECT_EQ(printed, dump(hex("01 08 1D 40 01 EE")) + dump(hex("01 08 1D 48 01 EE")) +
                           dump(hex("01 08 1D 45 01 EE")));
    EXPECT_EQ(port().syslog, Lines()) << "tags are compared with starts alone";
}

TEST_P(MctpReceive, AnotherTagIsLoggedAndPrintedAndReadingGoesOn) {
    queue(kSom | kEom | 4, hex("01 EE"));
    queue(kSom | kEom | 3, hex("01 AA"));
    EXPECT_EQ(receive(), 1);
    EXPECT_EQ(body, hex("AA"));
    EXPECT_EQ(port().syslog, Lines{"MCTP request tag is 3 but response tag is 4\n"});
    EXPECT_EQ(printed, dump(hex("01 08 1D C4 01 EE")));
}

TEST_P(MctpReceive, APacketWithToSetIsAcceptedWhateverItsTag) {
    queue(kSom | kEom | kTo | 6, hex("01 AA"));
    EXPECT_EQ(receive(), 1);
    EXPECT_EQ(body, hex("AA"));
    EXPECT_EQ(ctx.tag, 6) << "the tag of the accepted message";
    EXPECT_EQ(port().syslog, Lines());
}

TEST_P(MctpReceive, TheTagOfTheResponseStaysInTheContext) {
    queue(kSom | kEom | 3, hex("01 AA"));
    EXPECT_EQ(receive(), 1);
    EXPECT_EQ(ctx.tag, 3);
}

// ---- State "continue" ----

TEST_P(MctpReceive, AnotherTagInTheMiddleIsLoggedAndPrintedAndReadingGoesOn) {
    queue(kSom | 3, hex("01 AA"));
    queue(kEom | sequence(1) | 5, hex("EE"));
    queue(kEom | sequence(1) | 3, hex("BB"));
    EXPECT_EQ(receive(), 2);
    EXPECT_EQ(body, hex("AA BB"));
    EXPECT_EQ(port().syslog, Lines{"MCTP request tag is 3 but response tag is 5\n"});
    EXPECT_EQ(printed, dump(hex("01 08 1D 55 EE")));
}

TEST_P(MctpReceive, ARequestsPacketInTheMiddleIsDroppedForItsTag) {
    queue(kSom | 3, hex("01 AA"));
    for (const unsigned tag : {1U, 2U, 7U}) {  // each differs in one bit
        queue(sequence(1) | kTo | tag, hex("EE"));
    }
    queue(sequence(1) | 3, hex("BB"));
    queue(kEom | kTo | sequence(2) | 1, hex("EE"));
    queue(kEom | sequence(2) | 3, hex("CC"));
    EXPECT_EQ(receive(), 3);
    EXPECT_EQ(body, hex("AA BB CC"));
    EXPECT_EQ(port().syslog, Lines());
}

TEST_P(MctpReceive, AMiddlePacketOutOfSequenceIsDropped) {
    queue(kSom | 3, hex("01 AA"));
    queue(sequence(2) | 3, hex("EE"));
    queue(sequence(1) | 3, hex("BB"));
    queue(kEom | sequence(2) | 3, hex("CC"));
    EXPECT_EQ(receive(), 3);
    EXPECT_EQ(body, hex("AA BB CC"));
    EXPECT_EQ(printed, dump(hex("01 08 1D 23 EE")));
    EXPECT_EQ(port().syslog, Lines());
}

TEST_P(MctpReceive, ARepeatedMiddlePacketIsDropped) {
    queue(kSom | 3, hex("01 AA"));
    queue(sequence(1) | 3, hex("BB"));
    queue(sequence(1) | 3, hex("BB"));
    queue(kEom | sequence(2) | 3, hex("CC"));
    EXPECT_EQ(receive(), 3);
    EXPECT_EQ(body, hex("AA BB CC"));
    EXPECT_EQ(printed, dump(hex("01 08 1D 13 BB")));
}

TEST_P(MctpReceive, TheSequenceOfAnEndPacketIsNotChecked) {
    queue(kSom | 3, hex("01 AA"));
    queue(kEom | sequence(3) | 3, hex("BB"));
    EXPECT_EQ(receive(), 2);
    EXPECT_EQ(body, hex("AA BB"));
    EXPECT_EQ(printed, "");
}

TEST_P(MctpReceive, AMiddlePacketWithToSetMustCarryTheRememberedTag) {
    queue(kSom | kTo | 6, hex("01 AA"));
    queue(kTo | sequence(1) | 5, hex("EE"));
    queue(kTo | sequence(1) | 6, hex("BB"));
    queue(kEom | kTo | sequence(2) | 5, hex("EE"));
    queue(kEom | kTo | sequence(2) | 6, hex("CC"));
    EXPECT_EQ(receive(), 3);
    EXPECT_EQ(body, hex("AA BB CC"));
    EXPECT_EQ(printed, dump(hex("01 08 1D 1D EE")) + dump(hex("01 08 1D 6D EE")));
    EXPECT_EQ(port().syslog, Lines());
}

TEST_P(MctpReceive, ASecondStartIsAppendedTypeByteIncluded) {
    queue(kSom | 3, hex("01 AA BB"), 0x1D);
    queue(kSom | kEom | 3, hex("01 CC DD"), 0x2E);
    EXPECT_EQ(receive(), 5);
    EXPECT_EQ(body, hex("AA BB 01 CC DD"));
    EXPECT_EQ(ctx.binding_eids[0], 0x2E);
    EXPECT_EQ(printed, "");
}

TEST_P(MctpReceive, ASecondStartRestartsTheSequence) {
    queue(kSom | 3, hex("01 AA"));
    queue(kSom | sequence(3) | 3, hex("01 BB"));
    queue(sequence(0) | 3, hex("CC"));
    queue(kEom | sequence(1) | 3, hex("DD"));
    EXPECT_EQ(receive(), 5);
    EXPECT_EQ(body, hex("AA 01 BB CC DD"));
}

TEST_P(MctpReceive, AnEmptySecondStartDoesNotChangeTheSequence) {
    queue(kSom | 3, hex("01 AA"));
    queue(kSom | sequence(3) | 3, Bytes());
    queue(sequence(1) | 3, hex("BB"));
    queue(kEom | sequence(2) | 3, hex("CC"));
    EXPECT_EQ(receive(), 3);
    EXPECT_EQ(body, hex("AA BB CC"));
    EXPECT_EQ(printed, dump(hex("01 08 1D B3")));
}

TEST_P(MctpReceive, ASecondStartOfAnotherTagIsAMismatch) {
    queue(kSom | 3, hex("01 AA"));
    queue(kSom | kEom | 2, hex("01 EE"));
    queue(kEom | sequence(1) | 3, hex("BB"));
    EXPECT_EQ(receive(), 2);
    EXPECT_EQ(body, hex("AA BB"));
    EXPECT_EQ(port().syslog, Lines{"MCTP request tag is 3 but response tag is 2\n"});
    EXPECT_EQ(printed, dump(hex("01 08 1D C2 01 EE")));
}

TEST_P(MctpReceive, ASecondStartWithToSetChangesTheTag) {
    queue(kSom | 3, hex("01 AA"));
    queue(kSom | kTo | 6, hex("01 BB"));
    queue(kEom | sequence(1) | 6, hex("CC"));
    EXPECT_EQ(receive(), 4);
    EXPECT_EQ(body, hex("AA 01 BB CC"));
    EXPECT_EQ(ctx.tag, 6);
}

TEST_P(MctpReceive, AnEmptyMiddlePacketIsPrintedAndSkipped) {
    queue(kSom | 3, hex("01 AA"));
    queue(sequence(1) | 3, Bytes());
    queue(kEom | sequence(1) | 3, hex("BB"));
    EXPECT_EQ(receive(), 2);
    EXPECT_EQ(body, hex("AA BB"));
    EXPECT_EQ(printed, dump(hex("01 08 1D 13")));
}

TEST_P(MctpReceive, AnEmptyStartIsPrintedAndTheMessageHasBegun) {
    queue(kSom | 3, hex("01"));
    queue(kEom | sequence(1) | 3, hex("AA BB"));
    EXPECT_EQ(receive(), 2);
    EXPECT_EQ(body, hex("AA BB")) << "the second packet needs no SOM and has no type byte";
    EXPECT_EQ(printed, dump(hex("01 08 1D 83 01")));
}

TEST_P(MctpReceive, AnEmptyStartDoesNotAdvanceTheSequence) {
    queue(kSom | 3, hex("01"));
    queue(sequence(1) | 3, hex("EE"));
    queue(sequence(0) | 3, hex("AA"));
    queue(kEom | sequence(1) | 3, hex("BB"));
    EXPECT_EQ(receive(), 2);
    EXPECT_EQ(body, hex("AA BB"));
    EXPECT_EQ(printed, dump(hex("01 08 1D 83 01")) + dump(hex("01 08 1D 13 EE")));
}

TEST_P(MctpReceive, AnEmptySinglePacketMessageDoesNotEndTheReceive) {
    queue(kSom | kEom | kTo | 5, hex("01"));
    queue(kEom | 5, hex("AA"));
    EXPECT_EQ(receive(), 1);
    EXPECT_EQ(body, hex("AA"));
    EXPECT_EQ(ctx.tag, 5) << "the empty start was accepted";
}

// ---- Packets larger than asked, which only a binding of the integrator's own can return ----

Bytes oversized;       ///< what such a binding stores first
int32_t oversized_by;  ///< and how much more it reports

int32_t oversized_read(mctp_section* section, int32_t wanted, uint8_t* buffer) {
    if (oversized.empty()) {
        return smbus_block_read(section, wanted, buffer);
    }
    const auto size = static_cast<int32_t>(oversized.size());
    std::copy_n(oversized.begin(), std::min(size, wanted), buffer);
    oversized.clear();
    return wanted + oversized_by;
}

const mctp_binding kOversizedBinding{smbus_block_write, oversized_read, nullptr};

TEST_P(MctpReceive, AnOversizedStartIsReportedAndDroppedButTheMessageHasBegun) {
    oversized = hex("01 08 2E 83 01 EE EE EE EE");
    oversized_by = 1;
    ctx.binding = &kOversizedBinding;
    queue(kEom | sequence(1) | 3, hex("AA BB"));
    EXPECT_EQ(receive(4), 2);
    EXPECT_EQ(body, hex("AA BB"));
    EXPECT_EQ(ctx.binding_eids[0], 0x2E);
    EXPECT_EQ(port().console, Lines{"MCTP buffer space is not enough due to the length(9 ,10)!\n"});
    EXPECT_EQ(printed, dump(hex("01 08 2E 83 01 EE EE EE EE 00")));
}

TEST_P(MctpReceive, AnOversizedPacketDoesNotChangeTheContextsTag) {
    oversized = hex("01 08 2E 8D 01 EE EE EE EE");
    oversized_by = 1;
    ctx.binding = &kOversizedBinding;
    EXPECT_EQ(receive(4), -1);
    EXPECT_EQ(ctx.tag, 3);
}

TEST_P(MctpReceive, AReportedLengthFarBeyondTheBufferPrintsNoMoreThanThereIs) {
    for (int32_t excess : {1, 200, 100000, INT32_MAX - 300}) {
        oversized = hex("01 08 2E 83 01 EE EE EE EE");
        oversized_by = excess;
        ctx.binding = &kOversizedBinding;
        EXPECT_EQ(receive(200), -1) << excess;
        EXPECT_LT(printed.size(), 1000u);
    }
}

// ---- Lock ----

using MctpReceiveLock = test::PlatformTest;

TEST_F(MctpReceiveLock, HoldsTheBusAroundAllReads) {
    mctp_ctx ctx = ready_context(MCTP_BINDING_KIND_SMBUS, 1);
    port().queue({hex("01 08 1D 80 01 AA"), hex("01 08 1D 50 BB")});
    Guarded buffer(16);
    EXPECT_EQ(ctx.recv(&ctx, 16, buffer.data()), 2);
    EXPECT_EQ(port().trace, (Lines{"lock bus 3", "mux", "read", "mux", "read", "unlock bus 3"}));
}

TEST_F(MctpReceiveLock, ARefusedLockFailsTheReceiveAndReleasesNothing) {
    mctp_ctx ctx = ready_context(MCTP_BINDING_KIND_SMBUS, 1);
    port().refused_locks = {"bus 3"};
    Guarded buffer(16);
    EXPECT_EQ(ctx.recv(&ctx, 16, buffer.data()), -1);
    EXPECT_EQ(port().trace, Lines{"lock bus 3 fails"});
}

TEST_F(MctpReceiveLock, TheSoftwarePecKindTakesNone) {
    mctp_ctx ctx = ready_context(MCTP_BINDING_KIND_SL8_SMBUS, 1);
    port().queue({hex("01 08 1D C0 01 AA")});
    Guarded buffer(16);
    EXPECT_EQ(ctx.recv(&ctx, 16, buffer.data()), 1);
    EXPECT_EQ(port().trace, (Lines{"mux", "read"}));
}

}  // namespace
