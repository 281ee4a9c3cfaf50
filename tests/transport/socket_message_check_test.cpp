// SPDX-License-Identifier: Apache-2.0
// The integrity check of messages over MCTP sockets: appended, verified, and what NVMe-MI makes of
// it.
#include <sideband/mctp.h>
#include <sideband/nvme_mi.h>
#include <sideband/pldm.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "support/numbers.h"
#include "transport/socket_fixture.h"

namespace {

using test::Bytes;
using test::Datagram;
using test::hex;
using test::le32;
using test::port;
using test::SentDatagram;
using test::operator+;

const Bytes kRequest = hex("80 02 11 01 00 00");

class SocketCheck : public test::SocketTest {
protected:
    SocketCheck() { ctx.msg_type = 0x84; }

    static Bytes checked(const Bytes& body, uint8_t type = 0x84) {
        return body + le32(test::crc32c(Bytes{type} + body));
    }
};

TEST_F(SocketCheck, IsAppendedAndVerified) {
    const Bytes response = hex("88 00 00 00 01 02 03 04");
    kernel.answer_with({checked(response)});
    EXPECT_EQ(xfer(hex("08 00 00 01 00 00 00")), 12) << "the check is the end of the body";
    EXPECT_EQ(answer, checked(response));
    EXPECT_EQ(sent(), (Lines{"2d 00 00 00 01 00 00 00 09 84 18 00 | "
                             "08 00 00 01 00 00 00 " +
                             test::to_hex(le32(test::crc32c(hex("84 08 00 00 01 00 00 00"))))}));
}

TEST_F(SocketCheck, IsThatOfTheStandard) {
    // CRC-32C of "123456789" is E3069283: the type byte is its first digit.
    ctx.msg_type = 0xB1;
    send(hex("32 33 34 35 36 37 38 39"));
    EXPECT_NE(test::to_hex(kernel.sent[0].body).find("32 33 34 35 36 37 38 39 "),
              std::string::npos);
    EXPECT_EQ(kernel.sent[0].body.size(), 12u);
    EXPECT_EQ(test::le32_at(kernel.sent[0].body, 8),
              test::crc32c(hex("B1 32 33 34 35 36 37 38 39")));
    EXPECT_EQ(test::crc32c(hex("31 32 33 34 35 36 37 38 39")), 0xE3069283u);
}

TEST_F(SocketCheck, AStrictContextHasNoneDelivered) {
    ctx.strict = MCTP_STRICT_INTEGRITY;
    const Bytes response = hex("88 00 00 00 01 02 03 04");
    kernel.answer_with({checked(response)});
    EXPECT_EQ(xfer(hex("08 00 00 01 00 00 00")), 8);
    EXPECT_EQ(answer, response);
    kernel.answer_with({checked(response)});
    EXPECT_EQ(xfer(hex("08 00 00 01 00 00 00"), 5), 5);
    EXPECT_EQ(answer, hex("88 00 00 00 01"));
}

TEST_F(SocketCheck, AnAnswerIsCutWithItsCheck) {
    const Bytes response = checked(hex("88 00 00 00 01 02 03 04"));
    for (const int32_t room : {1, 8, 9, 11, 12}) {
        kernel.answer_with({response});
        EXPECT_EQ(xfer(hex("08"), room), room);
        EXPECT_EQ(answer, Bytes(response.begin(), response.begin() + room));
    }
}

TEST_F(SocketCheck, AFlippedBitDoesNotPass) {
    const Bytes good = checked(hex("88 00 00 00 2A"));
    for (size_t bit = 0; bit < 8 * good.size(); ++bit) {
        Bytes bad = good;
        bad[bit / 8] ^= static_cast<uint8_t>(1 << bit % 8);
        kernel.answer_with({bad});
        EXPECT_EQ(xfer(hex("08")), -1) << "bit " << bit;
    }
    EXPECT_EQ(port().syslog.front(),
              "[mctp socket] dropped 9 bytes from EID 9 of network 1, type 0x84, tag 0x00: wrong "
              "integrity check\n");
}

TEST_F(SocketCheck, AWrongOneIsDroppedAndTheRightOneWaitedFor) {
    kernel.on_send = [&](const SentDatagram& request) {
        Bytes bad = checked(hex("88 00 00 00 2A"));
        bad.back() ^= 1;
        kernel.deliver(kernel.answer_to(request, bad), 10);
        kernel.deliver(kernel.answer_to(request, checked(hex("88 00 00 00 2B"))), 20);
    };
    EXPECT_EQ(xfer(hex("08")), 9);
    EXPECT_EQ(answer, checked(hex("88 00 00 00 2B")));
}

TEST_F(SocketCheck, AMissingOneDoesNotPass) {
    kernel.on_send = [&](const SentDatagram& request) {
        Datagram plain = kernel.answer_to(request, hex("88 00 00 00 2A"));
        plain.type = 0x04;
        kernel.deliver(plain);
    };
    EXPECT_EQ(xfer(hex("08")), -1);
    EXPECT_EQ(port().syslog.front(),
              "[mctp socket] dropped 5 bytes from EID 9 of network 1, type 0x04, tag 0x00: no "
              "integrity check\n");
}

TEST_F(SocketCheck, AMessageShorterThanOneDoesNotPass) {
    for (size_t length = 0; length <= 4; ++length) {
        kernel.answer_with({Bytes(length, 0)});
        EXPECT_EQ(xfer(hex("08")), -1) << length;
    }
    // The check of no body at all is right, but there is nothing to deliver.
    kernel.answer_with({checked({})});
    EXPECT_EQ(xfer(hex("08")), -1);
}

TEST_F(SocketCheck, ALargeMessageIsVerifiedToo) {
    const Bytes largest = checked(test::counting(4220));
    kernel.answer_with({largest});
    EXPECT_EQ(xfer(hex("08"), 5000), 4224);
    EXPECT_EQ(answer, largest);
    kernel.answer_with({checked(test::counting(4221))});
    EXPECT_EQ(xfer(hex("08"), 5000), -1);
    EXPECT_NE(port().syslog.front().find("too long for its integrity check"), std::string::npos);
}

TEST_F(SocketCheck, IsVerifiedWhereNobodyAskedForIt) {
    ctx.msg_type = 0x01;
    kernel.on_send = [&](const SentDatagram& request) {
        Datagram message = kernel.answer_to(request, checked(hex("01 02"), 0x81));
        message.type = 0x81;
        kernel.deliver(message, 10);
    };
    EXPECT_EQ(xfer(kRequest), 6);
    kernel.on_send = [&](const SentDatagram& request) {
        Datagram message = kernel.answer_to(request, checked(hex("01 02"), 0x01));
        message.type = 0x81;
        kernel.deliver(message, 10);
    };
    EXPECT_EQ(xfer(kRequest), -1);
}

TEST_F(SocketCheck, NvmeMiTakesAnAnswerThatIsAnnounced) {
    nvmemi_ctx drive{};
    const mctp_ctx config = endpoint();
    ASSERT_EQ(nvmemi_init(&drive, &config), 0);
    kernel.on_send = [&](const SentDatagram& request) {
        // "More processing required", then the response, with the same tag.
        kernel.deliver(kernel.answer_to(request, checked(hex("88 00 00 01 00 00 00"))), 10);
        kernel.deliver(kernel.answer_to(request, checked(hex("88 00 00 00 03 00 00"))), 700);
    };
    uint8_t frequency = 0;
    EXPECT_EQ(nvmemi_config_get_smbus_freq(&drive, 0, &frequency), 0);
    EXPECT_EQ(frequency, 3);
    EXPECT_EQ(kernel.sent.size(), 1u);
    EXPECT_EQ(nvmemi_deinit(&drive), 0);
    libc.calls.clear();
}

TEST_F(SocketCheck, ABadAnswerDoesNotReachNvmeMi) {
    nvmemi_ctx drive{};
    const mctp_ctx config = endpoint();
    ASSERT_EQ(nvmemi_init(&drive, &config), 0);
    kernel.on_send = [&](const SentDatagram& request) {
        Bytes bad = checked(hex("88 00 00 01 03 00 00"));
        bad[3] ^= 1;
        kernel.deliver(kernel.answer_to(request, bad));
    };
    uint8_t frequency = 0x5A;
    EXPECT_EQ(nvmemi_config_get_smbus_freq(&drive, 0, &frequency), -1);
    EXPECT_EQ(frequency, 0x5A);
    EXPECT_EQ(kernel.sent.size(), 3u) << "asked again";
    EXPECT_EQ(nvmemi_deinit(&drive), 0);
    libc.calls.clear();
}

}  // namespace
