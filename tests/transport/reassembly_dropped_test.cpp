// SPDX-License-Identifier: Apache-2.0
// Packets that a receive has to drop: how many it bears, and how much of a trace they leave.
#include <sideband/mctp.h>

#include <algorithm>
#include <string>
#include <vector>

#include "transport/receive_fixture.h"

namespace {

using test::Bytes;
using test::hex;
using test::kEom;
using test::operator+;
using test::kSom;
using test::packet;
using test::port;
using test::sequence;
using Lines = std::vector<std::string>;

const Bytes kWrongTag = packet(0x08, 0x1D, kSom | kEom | 4, hex("01 EE"));
const Bytes kTooShort = hex("01 08 1D");
const char* const kMismatch = "MCTP request tag is 3 but response tag is 4\n";
const char* const kGaveUp = "[mctp recv] gave up after 1024 packets that had to be dropped\n";

size_t count(const std::string& text, std::string_view word) {
    size_t found = 0;
    for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
        ++found;
    }
    return found;
}

class DroppedPackets : public test::ReceiveTest {
protected:
    static void queue(const Bytes& one, size_t times = 1) {
        port().queue(std::vector<Bytes>(times, one));
    }

    /// A packet of the message that ctx waits for; each stores one byte.
    static Bytes good(unsigned flags, unsigned number) {
        const Bytes payload = number == 0 ? hex("01 AA") : hex("BB");
        return packet(0x08, 0x1D, static_cast<uint8_t>(flags | sequence(number) | 3), payload);
    }

    int32_t receive(int32_t capacity = 64) { return ReceiveTest::receive(capacity); }

    size_t dumps() const { return count(printed, "Dumping Packets"); }
};

INSTANTIATE_TEST_SUITE_P(Kind, DroppedPackets, test::smbus_kinds(), test::kind_name);

// ---- How many ----

TEST_P(DroppedPackets, AnAnswerOf19200BytesWithADuplicateBesideEachPacketArrives) {
    const std::vector<Bytes> packets =
        test::split(hex("01") + test::counting(19200), 0x08, 0x1D, 3, 16);
    ASSERT_GT(packets.size(), 1024u + 2);
    for (const Bytes& one : packets) {
        // A second start would be appended, and behind the end nothing is read.
        queue(one, (one[3] & (kSom | kEom)) != 0 ? 1 : 2);
    }
    EXPECT_EQ(receive(19200), 19200);
    EXPECT_EQ(body, test::counting(19200));
}

TEST_P(DroppedPackets, In1023OfThemInARowIsBorneAndIn1024Not) {
    for (const bool in_the_middle : {false, true}) {
        for (const size_t dropped : {1023u, 1024u}) {
            port().reads.clear();
            port().slave_reads.clear();
            port().syslog.clear();
            if (in_the_middle) {
                queue(good(kSom, 0));
            }
            queue(kTooShort, dropped);
            queue(in_the_middle ? good(kEom, 1) : good(kSom | kEom, 0));
            const bool borne = dropped == 1023;
            const size_t start = in_the_middle ? 1 : 0;
            EXPECT_EQ(receive(), borne ? static_cast<int32_t>(start + 1) : -1);
            EXPECT_EQ(port().slave_reads.size(), start + 1024);
            EXPECT_EQ(std::count(port().syslog.begin(), port().syslog.end(), kGaveUp),
                      borne ? 0 : 1);
        }
    }
}

TEST_P(DroppedPackets, TheMostThatOneReceiveReadsIs1024TimesItsRoom) {
    constexpr int32_t kRoom = 3;
    for (const bool ends_well : {true, false}) {
        port().reads.clear();
        port().slave_reads.clear();
        for (unsigned stored = 0; stored < kRoom; ++stored) {
            queue(kTooShort, 1023);
            queue(stored + 1 < kRoom || ends_well ? good(stored == 0 ? kSom : 0, stored)
                                                  : kTooShort);
        }
        queue(kTooShort, 10);
        EXPECT_EQ(receive(kRoom), ends_well ? kRoom : -1);
        EXPECT_EQ(port().slave_reads.size(), 1024u * kRoom);
    }
}

TEST_P(DroppedPackets, AMessageInPacketsOfOneByteTakesAsManyReadsAsItHasBytes) {
    constexpr unsigned kRoom = 2000;
    for (unsigned i = 0; i < kRoom; ++i) {
        queue(good(i == 0 ? kSom : 0, i));
    }
    EXPECT_EQ(receive(kRoom), static_cast<int32_t>(kRoom));
    EXPECT_EQ(port().slave_reads.size(), kRoom);
    const bool locks = GetParam() == MCTP_BINDING_KIND_SMBUS;
    EXPECT_EQ(port().trace_of({"lock", "unlock"}),
              locks ? (Lines{"lock bus 3", "unlock bus 3"}) : Lines())
        << "the bus is held throughout";
}

// ---- What they leave ----

TEST_P(DroppedPackets, ThirtyTwoOfThemAreReportedEachByItself) {
    queue(kWrongTag, 32);
    queue(good(kSom | kEom, 0));
    EXPECT_EQ(receive(), 1);
    EXPECT_EQ(dumps(), 32u);
    EXPECT_EQ(count(printed, "more packets"), 0u);
    EXPECT_EQ(port().syslog, Lines(32, kMismatch));
}

TEST_P(DroppedPackets, FromTheThirtyThirdOnOneLineCountsThem) {
    queue(kWrongTag, 90);
    queue(kTooShort, 10);
    queue(good(kSom | kEom, 0));
    EXPECT_EQ(receive(), 1);
    EXPECT_EQ(body, hex("AA"));
    EXPECT_EQ(dumps(), 32u);
    EXPECT_TRUE(printed.ends_with("===\n[mctp recv] 68 more packets dropped\n"));
    Lines expected(32, kMismatch);
    expected.emplace_back("[mctp recv] 68 more packets dropped\n");
    EXPECT_EQ(port().syslog, expected);
}

TEST_P(DroppedPackets, AFloodOfThemDoesNotWashTheLogsOut) {
    queue(kWrongTag, 2000);
    EXPECT_EQ(receive(), -1);
    EXPECT_EQ(dumps(), 32u);
    EXPECT_LT(printed.size(), 8192u);
    Lines expected(32, kMismatch);
    expected.emplace_back(kGaveUp);
    expected.emplace_back("[mctp recv] 992 more packets dropped\n");
    EXPECT_EQ(port().syslog, expected);
}

TEST_P(DroppedPackets, AFailedReadEndsTheReceiveWithTheCountToo) {
    queue(kTooShort, 40);
    EXPECT_EQ(receive(), -1);
    EXPECT_EQ(dumps(), 32u);
    EXPECT_TRUE(printed.ends_with("\n[mctp recv] 8 more packets dropped\n"));
}

TEST_P(DroppedPackets, StoredPacketsDoNotStartTheReportsAnew) {
    queue(good(kSom, 0));
    queue(kWrongTag, 30);
    queue(good(0, 1));
    queue(kWrongTag, 30);
    queue(good(kEom, 2));
    EXPECT_EQ(receive(), 3);
    EXPECT_EQ(dumps(), 32u);
    EXPECT_TRUE(printed.ends_with("\n[mctp recv] 28 more packets dropped\n"));
}

TEST_P(DroppedPackets, EachReceiveReportsItsOwn) {
    for (int i = 0; i < 2; ++i) {
        port().syslog.clear();
        queue(kWrongTag, 20);
        queue(good(kSom | kEom, 0));
        EXPECT_EQ(receive(), 1);
        EXPECT_EQ(dumps(), 20u);
        EXPECT_EQ(port().syslog, Lines(20, kMismatch));
    }
}

int32_t endless_read(mctp_section*, int32_t wanted, uint8_t* buffer) {
    const Bytes start = packet(0x08, 0x1D, kSom | 3, hex("01"));
    std::copy(start.begin(), start.end(), buffer);
    return wanted + 1;
}

const mctp_binding kEndlessBinding{smbus_block_write, endless_read, nullptr};

TEST_P(DroppedPackets, AFloodOfPacketsLargerThanAskedIsReportedInTheSameMeasure) {
    ctx.binding = &kEndlessBinding;
    EXPECT_EQ(receive(), -1);
    EXPECT_EQ(dumps(), 32u);
    ASSERT_EQ(port().console.size(), 32u);
    EXPECT_EQ(port().console[1], "MCTP buffer space is not enough due to the length(68 ,69)!\n");
    EXPECT_TRUE(printed.ends_with("\n[mctp recv] 992 more packets dropped\n"));
}

}  // namespace
