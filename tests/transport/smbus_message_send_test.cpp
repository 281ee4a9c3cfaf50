// SPDX-License-Identifier: Apache-2.0
// Framing: how a message becomes packets, flags and checks, and what a failed write does.
#include <sideband/mctp.h>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "support/scripted_platform.h"

namespace {

using test::Bytes;
using test::hex;
using test::operator+;
using test::port;
using test::ready_context;
using Lines = std::vector<std::string>;

int32_t send(mctp_ctx& ctx, const Bytes& body, uint8_t tag_owner = 1) {
    return ctx.send(&ctx, static_cast<uint32_t>(body.size()), body.data(), tag_owner);
}

/// The flag byte of each packet that was written.
Bytes flags_written() {
    Bytes flags;
    for (const Bytes& packet : port().written_packets()) {
        flags.push_back(packet[3]);
    }
    return flags;
}

/// The payload bytes of each packet that was written.
std::vector<size_t> payloads_written() {
    std::vector<size_t> sizes;
    for (const Bytes& packet : port().written_packets()) {
        sizes.push_back(packet.size() - 4);
    }
    return sizes;
}

/// The payloads of all packets, one behind the other.
Bytes message_written() {
    Bytes message;
    for (const Bytes& packet : port().written_packets()) {
        message.insert(message.end(), packet.begin() + 4, packet.end());
    }
    return message;
}

/// Both SMBus kinds, for what they have in common: all but lock and integrity check.
class MctpSend : public test::PlatformTest, public ::testing::WithParamInterface<uint8_t> {
protected:
    mctp_ctx ctx = ready_context(GetParam(), 1);
};

INSTANTIATE_TEST_SUITE_P(Kind, MctpSend,
                         ::testing::Values(MCTP_BINDING_KIND_SMBUS, MCTP_BINDING_KIND_SL8_SMBUS),
                         [](const auto& parameter) {
                             return std::string(parameter.param == 0 ? "Smbus" : "Sl8");
                         });

using MctpSendLocked = test::PlatformTest;
using MctpSendUnlocked = test::PlatformTest;

TEST_P(MctpSend, PacketIsTransportHeaderTypeByteAndBody) {
    ctx.tag = 2;
    EXPECT_EQ(send(ctx, hex("80 02 11 0C 00 00")), 0);
    EXPECT_EQ(port().written_packets(),
              (std::vector<Bytes>{hex("01 1D 08 CA 01 80 02 11 0C 00 00")}));
    EXPECT_EQ(port().writes[0].bytes[0], 0x64);
    EXPECT_EQ(port().writes[0].bytes[2], 12);
}

TEST_P(MctpSend, TagOwnerBitFollowsTheCaller) {
    ctx.tag = 3;
    EXPECT_EQ(send(ctx, hex("00"), 0), 0);
    EXPECT_EQ(send(ctx, hex("00"), 1), 0);
    EXPECT_EQ(flags_written(), hex("C3 CB"));
}

TEST_P(MctpSend, AnyTagOwnerArgumentButZeroSetsOneBit) {
    EXPECT_EQ(send(ctx, hex("00"), 0xFF), 0);
    EXPECT_EQ(flags_written(), hex("C8"));
}

TEST_P(MctpSend, OnlyTheLowThreeBitsOfTheTagGoOut) {
    ctx.tag = 0xFD;
    EXPECT_EQ(send(ctx, hex("00")), 0);
    EXPECT_EQ(flags_written(), hex("CD"));
    EXPECT_EQ(ctx.tag, 0xFD);
}

TEST_P(MctpSend, AnEmptyBodySendsTheTypeByteAlone) {
    EXPECT_EQ(ctx.send(&ctx, 0, nullptr, 1), 0);
    EXPECT_EQ(port().written_packets(), (std::vector<Bytes>{hex("01 1D 08 C8 01")}));
}

TEST_P(MctpSend, AMessageOfExactlyOneUnitIsOnePacketWithSomAndEom) {
    EXPECT_EQ(send(ctx, test::counting(95)), 0);
    EXPECT_EQ(payloads_written(), std::vector<size_t>{96});
    EXPECT_EQ(flags_written(), hex("C8"));
}

TEST_P(MctpSend, AMessageOfOneUnitAndOneByteIsTwoPackets) {
    EXPECT_EQ(send(ctx, test::counting(96)), 0);
    EXPECT_EQ(payloads_written(), (std::vector<size_t>{96, 1}));
    EXPECT_EQ(flags_written(), hex("88 58"));
}

TEST_P(MctpSend, LastFullPacketCarriesNoEom) {
    EXPECT_EQ(send(ctx, test::counting(191)), 0);
    EXPECT_EQ(payloads_written(), (std::vector<size_t>{96, 96}));
    EXPECT_EQ(flags_written(), hex("88 18"));
}

TEST_P(MctpSend, LastFullPacketCarriesNoEomWhateverTheUnit) {
    for (uint16_t unit : {1, 2, 64, 119, 120}) {
        port().writes.clear();
        ctx.unit_size = unit;
        EXPECT_EQ(send(ctx, test::counting(size_t{unit} * 3 - 1)), 0);
        EXPECT_EQ(payloads_written(), std::vector<size_t>(3, unit));
        EXPECT_EQ(flags_written(), hex("88 18 28"));
    }
}

TEST_P(MctpSend, SequenceCountsModuloFourAndBeginsAtZero) {
    ctx.unit_size = 10;
    ctx.tx_seq = 77;
    EXPECT_EQ(send(ctx, test::counting(54)), 0);
    EXPECT_EQ(flags_written(), hex("88 18 28 38 08 58"));
    EXPECT_EQ(ctx.tx_seq, 6);
    EXPECT_EQ(send(ctx, hex("00")), 0);
    EXPECT_EQ(flags_written().back(), 0xC8);
    EXPECT_EQ(ctx.tx_seq, 1);
}

TEST_P(MctpSend, PacketCounterWrapsAt256) {
    ctx.unit_size = 1;
    EXPECT_EQ(send(ctx, test::counting(257)), 0);
    EXPECT_EQ(port().writes.size(), 258u);
    EXPECT_EQ(ctx.tx_seq, 2);
    EXPECT_EQ(flags_written()[256], 0x08);
}

TEST_P(MctpSend, EveryPacketCarriesTheHeaderAndTheMessageIsWhole) {
    const Bytes body = test::counting(1000);
    EXPECT_EQ(send(ctx, body), 0);
    EXPECT_EQ(payloads_written(),
              (std::vector<size_t>{96, 96, 96, 96, 96, 96, 96, 96, 96, 96, 41}));
    for (const Bytes& packet : port().written_packets()) {
        EXPECT_EQ(Bytes(packet.begin(), packet.begin() + 3), hex("01 1D 08"));
    }
    EXPECT_EQ(message_written(), hex("01") + body);
}

TEST_P(MctpSend, LargestUnitIsSentInFull) {
    ctx.unit_size = 120;
    const Bytes body = test::counting(4096);
    EXPECT_EQ(send(ctx, body), 0);
    EXPECT_EQ(port().writes[0].request.write_length, GetParam() == 0 ? 128 : 129);
    EXPECT_EQ(message_written(), hex("01") + body);
    for (const test::WriteRecord& write : port().writes) {
        if (!write.controller_pec) {
            const Bytes frame(write.bytes.begin(), write.bytes.end() - 1);
            EXPECT_EQ(write.bytes.back(), test::pec(frame));
        }
    }
}

TEST_P(MctpSend, UnitSizesThatNoPacketHoldsFailWithoutTouchingTheBus) {
    for (uint16_t unit : {0, 121, 256, 65535}) {
        ctx.unit_size = unit;
        EXPECT_EQ(send(ctx, test::counting(300)), -1) << unit;
    }
    EXPECT_EQ(port().trace_of({"write", "mux", "power"}), Lines());
}

TEST_P(MctpSend, AMissingBodyFailsWithoutTouchingTheBus) {
    EXPECT_EQ(ctx.send(&ctx, 5, nullptr, 1), -1);
    EXPECT_EQ(port().trace_of({"write", "mux", "power"}), Lines());
}

TEST_P(MctpSend, AFailedFinalPacketFailsTheMessage) {
    port().write_results = {0, -1, -1, -1};
    EXPECT_EQ(send(ctx, test::counting(100)), -1);
    EXPECT_EQ(port().writes.size(), 4u) << "one packet, then three attempts at the second";
}

TEST_P(MctpSend, AFailedEarlierPacketIsIgnored) {
    port().write_results = {-1, -1, -1, 0};
    EXPECT_EQ(send(ctx, test::counting(100)), 0);
    EXPECT_EQ(port().writes.size(), 4u);
    EXPECT_EQ(flags_written(), hex("88 88 88 58"));
}

TEST_P(MctpSend, AFailedFinalPacketWithoutEomIsIgnoredToo) {
    port().write_results = {0, -1, -1, -1};
    EXPECT_EQ(send(ctx, test::counting(191)), 0);
    EXPECT_EQ(flags_written(), hex("88 18 18 18"));
}

TEST_P(MctpSend, WithoutPowerTheMessageFails) {
    port().main_power = 0;
    EXPECT_EQ(send(ctx, hex("80 02")), -1);
    EXPECT_EQ(port().writes.size(), 0u);
}

TEST_P(MctpSend, APositiveResultOfTheBindingIsASuccess) {
    static mctp_binding binding;
    binding = *ctx.binding;
    binding.write = [](mctp_section*, int32_t length, uint8_t*) { return length; };
    ctx.binding = &binding;
    EXPECT_EQ(send(ctx, test::counting(500)), 0);
}

TEST_P(MctpSend, BindingGetsTheContextsSectionAndRoomForItsHeaderAndPec) {
    static const mctp_section* section;
    static Bytes lengths;
    lengths.clear();
    static mctp_binding binding;
    binding.write = [](mctp_section* seen, int32_t length, uint8_t* frame) {
        section = seen;
        lengths.push_back(static_cast<uint8_t>(length));
        std::fill_n(frame, 4, uint8_t{0x99});
        frame[length + 4] = 0x99;
        return 0;
    };
    ctx.binding = &binding;
    ctx.unit_size = 120;
    EXPECT_EQ(send(ctx, test::counting(130)), 0);
    EXPECT_EQ(section, &ctx.section);
    EXPECT_EQ(lengths, (Bytes{124, 15}));
}

TEST_P(MctpSend, NeedsNoHeap) {
    EXPECT_EQ(send(ctx, test::counting(4095)), 0);
    EXPECT_EQ(libc.allocations(), 0);
}

// ---- Lock ----

TEST_F(MctpSendLocked, HoldsTheBusFromBeforeTheFirstPacketToAfterTheLast) {
    mctp_ctx ctx = ready_context(MCTP_BINDING_KIND_SMBUS, 1);
    EXPECT_EQ(send(ctx, test::counting(100)), 0);
    EXPECT_EQ(port().trace_of({"lock", "unlock", "mux", "write"}),
              (Lines{"lock bus 3", "mux", "write", "mux", "write", "unlock bus 3"}));
}

TEST_F(MctpSendLocked, ReleasesTheBusAfterAFailure) {
    mctp_ctx ctx = ready_context(MCTP_BINDING_KIND_SMBUS, 1);
    port().write_results = {-1, -1, -1};
    EXPECT_EQ(send(ctx, hex("00")), -1);
    EXPECT_EQ(port().trace.back(), "unlock bus 3");
}

TEST_F(MctpSendLocked, TheContextsBusChoosesTheLock) {
    mctp_ctx ctx = ready_context(MCTP_BINDING_KIND_SMBUS, 1);
    for (uint8_t bus : {0, 1, 255}) {
        port().trace.clear();
        ctx.bus = bus;
        EXPECT_EQ(send(ctx, hex("00")), 0);
        EXPECT_EQ(port().trace.front(), "lock bus " + std::to_string(bus));
    }
}

TEST_F(MctpSendLocked, ARefusedLockFailsTheSendAndReleasesNothing) {
    mctp_ctx ctx = ready_context(MCTP_BINDING_KIND_SMBUS, 1);
    port().refused_locks = {"bus 3"};
    EXPECT_EQ(send(ctx, hex("00")), -1);
    EXPECT_EQ(port().trace, Lines{"lock bus 3 fails"});
}

TEST_F(MctpSendUnlocked, TakesNoLock) {
    mctp_ctx ctx = ready_context(MCTP_BINDING_KIND_SL8_SMBUS, 1);
    EXPECT_EQ(send(ctx, test::counting(100)), 0);
    EXPECT_EQ(port().trace_of({"lock", "unlock"}), Lines());
    EXPECT_EQ(port().writes.size(), 2u);
}

// ---- Integrity check ----

TEST(Crc32c, TestsOwnRoutineGivesTheCheckValueOfTheAlgorithm) {
    const std::string text = "123456789";
    EXPECT_EQ(test::crc32c(Bytes(text.begin(), text.end())), 0xE3069283u);
}

Bytes with_check(const Bytes& message) {
    const uint32_t crc = test::crc32c(message);
    Bytes checked = message;
    for (unsigned shift : {0u, 8u, 16u, 24u}) {
        checked.push_back(static_cast<uint8_t>(crc >> shift));
    }
    return checked;
}

TEST_F(MctpSendLocked, IntegrityCheckFollowsTheBodyLittleEndian) {
    mctp_ctx ctx = ready_context(MCTP_BINDING_KIND_SMBUS, 0x84);
    EXPECT_EQ(send(ctx, hex("08 00 00 01 00 00 00 00")), 0);
    EXPECT_EQ(message_written(), with_check(hex("84 08 00 00 01 00 00 00 00")));
    EXPECT_EQ(flags_written(), hex("C8"));
}

TEST_F(MctpSendLocked, IntegrityCheckOf32KnownBytes) {
    mctp_ctx ctx = ready_context(MCTP_BINDING_KIND_SMBUS, 0x80);
    EXPECT_EQ(send(ctx, Bytes(31, 0x00)), 0);
    EXPECT_EQ(message_written(), hex("80") + Bytes(31, 0x00) + hex("94 BD 34 34"));
}

TEST_F(MctpSendLocked, IntegrityCheckCountsInTheMessageLength) {
    mctp_ctx ctx = ready_context(MCTP_BINDING_KIND_SMBUS, 0x84);
    ctx.unit_size = 64;
    // 1 + 59 + 4 bytes fill one packet; 1 + 123 + 4 fill two, the second without EOM.
    EXPECT_EQ(send(ctx, test::counting(59)), 0);
    EXPECT_EQ(flags_written(), hex("C8"));
    port().writes.clear();
    EXPECT_EQ(send(ctx, test::counting(123)), 0);
    EXPECT_EQ(flags_written(), hex("88 18"));
    EXPECT_EQ(message_written(), with_check(hex("84") + test::counting(123)));
}

TEST_F(MctpSendLocked, IntegrityCheckMaySpanTwoPackets) {
    mctp_ctx ctx = ready_context(MCTP_BINDING_KIND_SMBUS, 0x84);
    ctx.unit_size = 64;
    for (size_t body : {60u, 61u, 62u, 63u, 64u}) {
        port().writes.clear();
        EXPECT_EQ(send(ctx, test::counting(body)), 0);
        EXPECT_EQ(payloads_written(), (std::vector<size_t>{64, body + 5 - 64}));
        EXPECT_EQ(flags_written(), hex("88 58"));
        EXPECT_EQ(message_written(), with_check(hex("84") + test::counting(body)));
    }
}

TEST_F(MctpSendLocked, IntegrityCheckOfAnEmptyBodyCoversTheTypeByte) {
    mctp_ctx ctx = ready_context(MCTP_BINDING_KIND_SMBUS, 0x84);
    EXPECT_EQ(ctx.send(&ctx, 0, nullptr, 1), 0);
    EXPECT_EQ(message_written(), with_check(hex("84")));
}

TEST_F(MctpSendLocked, WithoutBitSevenThereIsNoIntegrityCheck) {
    mctp_ctx ctx = ready_context(MCTP_BINDING_KIND_SMBUS, 0x04);
    EXPECT_EQ(send(ctx, hex("08 00")), 0);
    EXPECT_EQ(message_written(), hex("04 08 00"));
}

TEST_F(MctpSendUnlocked, NeverAppendsAnIntegrityCheck) {
    mctp_ctx ctx = ready_context(MCTP_BINDING_KIND_SL8_SMBUS, 0x84);
    EXPECT_EQ(send(ctx, hex("08 00")), 0);
    EXPECT_EQ(message_written(), hex("84 08 00"));
}

}  // namespace
