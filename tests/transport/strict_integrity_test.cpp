// SPDX-License-Identifier: Apache-2.0
// MCTP_STRICT_INTEGRITY: every binding appends the check, and no message passes without the right
// one.
#include <sideband/mctp.h>

#include <string>
#include <vector>

#include "support/numbers.h"
#include "transport/pcie_fixture.h"
#include "transport/receive_fixture.h"

namespace {

using test::Bytes;
using test::hex;
using test::le32;
using test::operator+;
using test::port;
using Lines = std::vector<std::string>;

constexpr uint8_t kType = MCTP_MSG_TYPE_NVME_MI | MCTP_MSG_TYPE_INTEGRITY_CHECK;

/// A message of NVMe-MI, type byte first, with its check.
Bytes checked(const Bytes& body) {
    const Bytes message = Bytes{kType} + body;
    return message + le32(test::crc32c(message));
}

const Bytes kBody = hex("88 00 00 00 11 22 33 44");
const char* const kWrong = "[mctp recv] EID 29: the integrity check is wrong\n";
const char* const kMissing = "[mctp recv] EID 29: the integrity check is missing\n";

class StrictIntegrity : public test::ReceiveTest {
protected:
    StrictIntegrity() {
        ctx.msg_type = kType;
        ctx.strict = MCTP_STRICT_INTEGRITY;
    }

    int32_t receive_message(const Bytes& message, int32_t capacity = 64, size_t unit = 64) {
        port().reads.clear();
        port().queue(test::split(message, 0x08, 0x1D, 3, unit));
        return receive(capacity);
    }
};

INSTANTIATE_TEST_SUITE_P(Kind, StrictIntegrity, test::smbus_kinds(), test::kind_name);

// ---- Receiving ----

TEST_P(StrictIntegrity, TheCheckIsVerifiedAndNotDelivered) {
    EXPECT_EQ(receive_message(checked(kBody)), 8);
    EXPECT_EQ(body, kBody);
    EXPECT_EQ(port().syslog, Lines());
    ctx.strict = 0;
    EXPECT_EQ(receive_message(checked(kBody)), 12) << "the end of the body";
    EXPECT_EQ(Bytes{kType} + body, checked(kBody));
}

TEST_P(StrictIntegrity, TheCheckOnTheWire) {
    port().queue({hex("01 08 1D C3 84 88 00 00 00 11 22 33 44 E0 BF 3A DD")});
    EXPECT_EQ(receive(64), 8);
    EXPECT_EQ(body, hex("88 00 00 00 11 22 33 44"));
    EXPECT_EQ(ctx.send(&ctx, 7, hex("08 00 00 01 00 00 00").data(), 1), 0);
    EXPECT_EQ(port().written_packets(),
              std::vector<Bytes>{hex("01 1D 08 CB 84 08 00 00 01 00 00 00 68 F1 5C 0A")});
}

TEST_P(StrictIntegrity, EveryWrongBitIsFound) {
    const Bytes right = checked(kBody);
    for (size_t bit = 8; bit < right.size() * 8; bit++) {
        Bytes wrong = right;
        wrong[bit / 8] = static_cast<uint8_t>(wrong[bit / 8] ^ (1u << (bit % 8)));
        EXPECT_EQ(receive_message(wrong), -1) << bit;
        EXPECT_EQ(port().syslog.back(), kWrong);
    }
    ctx.strict = 0;
    Bytes wrong = right;
    wrong[1] ^= 1;
    EXPECT_EQ(receive_message(wrong), 12) << "nobody looks";
}

TEST_P(StrictIntegrity, AMissingCheckFails) {
    EXPECT_EQ(receive_message(hex("04") + kBody), -1);
    EXPECT_EQ(port().syslog.back(), kMissing);
    for (size_t length = 2; length < 5; length++) {
        const Bytes whole = checked({});
        EXPECT_EQ(receive_message(Bytes(whole.begin(), whole.begin() + length)), -1) << length;
        EXPECT_EQ(port().syslog.back(), kWrong);
    }
    ctx.strict = 0;
    EXPECT_EQ(receive_message(hex("04") + kBody), 8);
}

TEST_P(StrictIntegrity, AMessageWithoutBitSevenHasNone) {
    ctx.msg_type = 4;
    EXPECT_EQ(receive_message(hex("04") + kBody), 8);
    EXPECT_EQ(body, kBody);
    // One that has it is verified although nobody has asked for it.
    EXPECT_EQ(receive_message(checked(kBody)), 8);
    Bytes wrong = checked(kBody);
    wrong.back() ^= 0x80;
    EXPECT_EQ(receive_message(wrong), -1);
}

TEST_P(StrictIntegrity, TheCheckMayBeSplitAnywhere) {
    ctx.unit_size = 120;
    for (size_t unit = 2; unit <= 14; unit++) {
        for (size_t size = 1; size <= 24; size++) {
            EXPECT_EQ(receive_message(checked(test::counting(size)), 64, unit),
                      static_cast<int32_t>(size))
                << unit;
            EXPECT_EQ(body, test::counting(size)) << unit;
        }
    }
}

TEST_P(StrictIntegrity, RoomForTheBodyIsRoomEnough) {
    EXPECT_EQ(receive_message(checked(test::counting(200)), 200), 200);
    EXPECT_EQ(body, test::counting(200));
}

TEST_P(StrictIntegrity, AMessageThatIsCutIsVerifiedAsAWhole) {
    EXPECT_EQ(receive_message(checked(test::counting(200)), 50), 50);
    EXPECT_EQ(body, test::counting(50));
    EXPECT_TRUE(port().reads.empty()) << "all of it has been read";
    Bytes wrong = checked(test::counting(200));
    wrong[150] ^= 1;
    EXPECT_EQ(receive_message(wrong, 50), -1);
}

TEST_P(StrictIntegrity, AMessageWithoutEndIsGivenUp) {
    port().queue({hex("01 08 1D 83 84 A1 A2 A3 A4 A5 A6 A7 A8")});
    for (unsigned i = 1; i < 3000; i++) {
        port().queue({Bytes{0x01, 0x08, 0x1D, static_cast<uint8_t>(test::sequence(i) | 3), 0xEE}});
    }
    EXPECT_EQ(receive(8), -1);
    EXPECT_EQ(port().slave_reads.size(), 1u + 4 + 1023);
}

TEST_P(StrictIntegrity, ADeliveredTypeBelongsToTheMessage) {
    port().queue({Bytes{0x01, 0x08, 0x1D, 0xC3} + checked(kBody)});
    Bytes buffer(16, 0xA5);
    EXPECT_EQ(mctp_smbus_recv_with_type(&ctx, 16, buffer.data()), 9);
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 10), Bytes{kType} + kBody + hex("A5"));
}

TEST_P(StrictIntegrity, AnAbandonedMessageLeavesNothingInTheCheck) {
    ctx.strict = MCTP_STRICT_INTEGRITY | MCTP_STRICT_PACKETS;
    port().queue({hex("01 08 1D 83 84 A1 A2 A3 A4 A5 A6 A7 A8")});
    EXPECT_EQ(receive_message(checked(kBody)), 8);
    EXPECT_EQ(body, kBody);
}

// ---- Sending ----

TEST_P(StrictIntegrity, EveryBindingAppendsTheCheck) {
    const Bytes request = hex("08 00 00 01 00 00 00");
    const Bytes message = Bytes{kType} + request;
    const bool sl8 = GetParam() == MCTP_BINDING_KIND_SL8_SMBUS;
    for (const uint32_t bits : {0U, MCTP_STRICT_INTEGRITY}) {
        ctx.strict = bits;
        port().writes.clear();
        EXPECT_EQ(ctx.send(&ctx, 7, request.data(), 1), 0);
        const bool appended = bits != 0 || !sl8;
        EXPECT_EQ(port().written_packets(),
                  std::vector<Bytes>{hex("01 1D 08 CB") + (appended ? checked(request) : message)});
    }
    ctx.msg_type = 4;
    port().writes.clear();
    EXPECT_EQ(ctx.send(&ctx, 2, request.data(), 1), 0);
    EXPECT_EQ(port().written_packets(), std::vector<Bytes>{hex("01 1D 08 CB 04 08 00")});
}

// ---- PCIe ----

class StrictIntegrityPcie : public test::MctpPcie {
protected:
    StrictIntegrityPcie() {
        ctx.msg_type = kType;
        ctx.strict = MCTP_STRICT_INTEGRITY;
    }
};

TEST_F(StrictIntegrityPcie, SendAndExchangeAppendTheCheck) {
    answer(checked(kBody));
    EXPECT_EQ(send(hex("08 00")), 0);
    EXPECT_EQ(message(port().pcie_requests.back()), checked(hex("08 00")));
    EXPECT_EQ(xfer(hex("08 00"), 64), 8);
    EXPECT_EQ(response, kBody);
}

TEST_F(StrictIntegrityPcie, TheLargestMessageLeavesRoomForTheCheck) {
    EXPECT_EQ(send(test::counting(1031)), 0);
    EXPECT_EQ(port().pcie_requests.back().length, 1036u);
    EXPECT_EQ(send(test::counting(1032)), -1);
    answer(checked(test::counting(1031)));
    EXPECT_EQ(xfer(hex("08 00"), 2000), 1031);
    EXPECT_EQ(response, test::counting(1031));
}

TEST_F(StrictIntegrityPcie, AnAnswerWithoutTheRightCheckFails) {
    Bytes wrong = checked(kBody);
    wrong[3] ^= 0x10;
    for (const Bytes& message : {wrong, hex("04") + kBody, Bytes{kType}, hex("84 01 02 03")}) {
        answer(message);
        EXPECT_EQ(xfer(hex("08 00"), 64), -1);
        test::Guarded buffer(64);
        EXPECT_EQ(receive(64, buffer), -1);
        EXPECT_TRUE(buffer.untouched_from(0));
    }
    EXPECT_EQ(port().syslog.front(), "[mctp pcie] EID 74: the integrity check is wrong\n");
    EXPECT_EQ(port().syslog.at(2), "[mctp pcie] EID 74: the integrity check is missing\n");
    ctx.strict = 0;
    answer(wrong);
    EXPECT_EQ(xfer(hex("08 00"), 64), 12);
}

TEST_F(StrictIntegrityPcie, ACutAnswerIsVerifiedAsAWhole) {
    answer(checked(kBody));
    EXPECT_EQ(xfer(hex("08 00"), 3), 3);
    EXPECT_EQ(response, hex("88 00 00"));
    EXPECT_EQ(xfer(hex("08 00"), 8), 8);
    EXPECT_EQ(response, kBody);
}

TEST_F(StrictIntegrityPcie, AReceiveDeliversNoCheck) {
    answer(checked(kBody));
    test::Guarded buffer(9);
    EXPECT_EQ(receive(9, buffer), 0) << "room for type and body is enough";
    EXPECT_EQ(buffer.head(8), kBody);
    EXPECT_EQ(mctp_pcie_recv_with_type(&ctx, 9, buffer.data()), 9);
    EXPECT_EQ(buffer.head(9), Bytes{kType} + kBody);
    EXPECT_EQ(receive(8, buffer), -1);
}

TEST_F(StrictIntegrityPcie, AMessageWithoutBitSevenHasNone) {
    ctx.msg_type = 1;
    answer(hex("01 00 02 11"));
    EXPECT_EQ(xfer(hex("80 02 11"), 16), 3);
    EXPECT_EQ(message(port().pcie_requests.back()), hex("01 80 02 11"));
}

TEST_F(StrictIntegrityPcie, TheTypeByteOfAMessageAloneSaysWhetherItHasACheck) {
    ctx.msg_type = 1;
    answer(hex("01 80 02 11"));
    EXPECT_EQ(xfer(hex("80 02 11"), 16), 3) << "whatever the body begins with";
    EXPECT_EQ(response, hex("80 02 11"));
    ctx.msg_type = 4;
    answer(checked(hex("08 00 01")));
    EXPECT_EQ(xfer(hex("08 00"), 16), 3);
    EXPECT_EQ(response, hex("08 00 01"));
    Bytes wrong = checked(hex("08 00 01"));
    wrong.back() ^= 1;
    answer(wrong);
    EXPECT_EQ(xfer(hex("08 00"), 16), -1);
}

}  // namespace
