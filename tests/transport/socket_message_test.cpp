// SPDX-License-Identifier: Apache-2.0
// Exchanges over MCTP sockets: what goes out, whose answers pass, how long it waits, what fails.
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

using SocketInit = test::SocketTest;
using SocketXfer = test::SocketTest;
using SocketWait = test::SocketTest;
using SocketSend = test::SocketTest;
using SocketTags = test::SocketTest;
using SocketFailures = test::SocketTest;
using SocketThreads = test::SocketTest;

const Bytes kRequest = hex("80 02 11 01 00 00");
const Bytes kAnswer = hex("00 02 11 00 2A");

// ---- Set-up ----

TEST_F(SocketInit, InstallsTheOperationsAndAsksNobody) {
    mctp_ctx made = endpoint();
    made.skip_discovery = 0;
    EXPECT_EQ(mctp_init2(&made), 0);
    EXPECT_NE(made.send, nullptr);
    EXPECT_NE(made.recv, nullptr);
    EXPECT_NE(made.xfer, nullptr);
    EXPECT_EQ(made.binding, nullptr);
    EXPECT_EQ(made.unit_size, 96);
    EXPECT_EQ(made.dest_eid, 9);
    EXPECT_EQ(made.msg_type, 0) << "ready for control messages";
    EXPECT_EQ(kernel.trace, Lines());
}

TEST_F(SocketInit, SkippedDiscoveryLeavesTheMessageTypeAlone) {
    EXPECT_EQ(ctx.msg_type, 1);
}

TEST_F(SocketInit, TheDelayedFormIsNotForSockets) {
    mctp_ctx made = endpoint();
    EXPECT_EQ(mctp_init2_with_i2c_delay(&made), -1);
    EXPECT_EQ(made.xfer, nullptr);
}

// ---- What goes out, and what comes back ----

TEST_F(SocketXfer, SendsToTheEndpointAndStoresItsAnswer) {
    kernel.answer_with({kAnswer});
    EXPECT_EQ(xfer(kRequest), 5);
    EXPECT_EQ(answer, kAnswer);
    // Family 45, network 1, EID 9, type 1, tag 0 that is kept, with the owner bit.
    EXPECT_EQ(sent(), (Lines{"2d 00 00 00 01 00 00 00 09 01 18 00 | 80 02 11 01 00 00"}));
    EXPECT_EQ(kernel.trace, (Lines{"socket", "tag 09 00 00 00", "send", "poll"}));
    EXPECT_EQ(ctx.tag, 0);
    EXPECT_EQ(ctx.binding_eids[0], 9);
    EXPECT_EQ(ctx.tx_seq, 0);
}

TEST_F(SocketXfer, EveryMessageTypeGoesInTheAddress) {
    for (const uint8_t type : {0x00, 0x02, 0x7E}) {
        ctx.msg_type = type;
        kernel.answer_with({hex("01")});
        EXPECT_EQ(xfer(hex("02 03")), 1);
        EXPECT_EQ(kernel.sent.back().type(), type);
        EXPECT_EQ(kernel.sent.back().body, hex("02 03"));
    }
}

TEST_F(SocketXfer, AnAnswerIsCutToItsRoom) {
    for (const int32_t room : {1, 2, 4, 5}) {
        kernel.answer_with({kAnswer});
        EXPECT_EQ(xfer(kRequest, room), room);
        EXPECT_EQ(answer, Bytes(kAnswer.begin(), kAnswer.begin() + room));
    }
}

TEST_F(SocketXfer, LargeMessagesPassBothWays) {
    const Bytes large = test::counting(4096);
    kernel.answer_with({large});
    EXPECT_EQ(xfer(large, 4096), 4096);
    EXPECT_EQ(answer, large);
    EXPECT_EQ(kernel.sent[0].body, large);
}

TEST_F(SocketXfer, WithoutRoomTheRequestIsSentAndNothingRead) {
    kernel.answer_with({kAnswer, kAnswer});
    EXPECT_EQ(xfer(kRequest, 0), 0);
    EXPECT_EQ(xfer(kRequest, -3), 0);
    EXPECT_EQ(ctx.xfer(&ctx, 6, 10, kRequest.data(), nullptr), 0);
    EXPECT_EQ(kernel.sent.size(), 3u);
    EXPECT_EQ(std::count(kernel.trace.begin(), kernel.trace.end(), "poll"), 0);
}

TEST_F(SocketXfer, WithoutARequestNothingIsSent) {
    uint8_t room[4];
    EXPECT_EQ(ctx.xfer(&ctx, 6, 4, nullptr, room), -1);
    EXPECT_EQ(ctx.send(&ctx, 6, nullptr, 1), -1);
    EXPECT_EQ(kernel.trace, Lines());
}

TEST_F(SocketXfer, AControlMessageAsksForTheEid) {
    ctx.msg_type = 0;
    ctx.instance_id = 3;
    kernel.answer_with({hex("03 02 00 09 00 00")});
    EXPECT_EQ(mctp_get_endpoint_id(&ctx), 9);
    EXPECT_EQ(sent(), (Lines{"2d 00 00 00 01 00 00 00 09 00 18 00 | 83 02"}));
}

TEST_F(SocketXfer, PldmSpeaksOverIt) {
    pldm_ctx terminus{};
    const mctp_ctx config = endpoint();
    EXPECT_EQ(pldm_terminus_init(&terminus, &config), 0);
    kernel.answer_with({hex("00 00 02 00 2A")});
    EXPECT_EQ(pldm_get_tid(&terminus), 0);
    EXPECT_EQ(terminus.tid, 0x2A);
    EXPECT_EQ(sent(), (Lines{"2d 00 00 00 01 00 00 00 09 01 18 00 | 80 00 02"}));
    EXPECT_EQ(pldm_terminus_deinit(&terminus), 0);
    libc.calls.clear();  // the terminus is on the heap, exchanges are not
}

// ---- The integrity check ----

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

// ---- Whose messages pass ----

/// A message that is not the answer, and what is said of it.
struct Foreign {
    const char* name;
    void (*change)(Datagram&);
    const char* line;  ///< behind "dropped "
};

class SocketForeign : public test::SocketTest, public ::testing::WithParamInterface<Foreign> {};

TEST_P(SocketForeign, DoesNotPassAndTheAnswerStillDoes) {
    kernel.on_send = [&](const SentDatagram& request) {
        Datagram foreign = kernel.answer_to(request, hex("FF FF"));
        GetParam().change(foreign);
        kernel.misdeliver(foreign, 10);
        kernel.deliver(kernel.answer_to(request, kAnswer), 20);
    };
    EXPECT_EQ(xfer(kRequest), 5);
    EXPECT_EQ(answer, kAnswer);
    EXPECT_EQ(port().syslog,
              (Lines{std::string("[mctp socket] dropped ") + GetParam().line + "\n"}));
}

INSTANTIATE_TEST_SUITE_P(
    , SocketForeign,
    ::testing::Values(
        Foreign{"Eid", [](Datagram& m) { m.eid = 10; },
                "2 bytes from EID 10 of network 1, type 0x01, tag 0x00: another sender"},
        Foreign{"Network", [](Datagram& m) { m.network = 2; },
                "2 bytes from EID 9 of network 2, type 0x01, tag 0x00: another sender"},
        Foreign{"Family", [](Datagram& m) { m.family = 2; },
                "2 bytes from EID 9 of network 1, type 0x01, tag 0x00: another sender"},
        Foreign{"NoAddress", [](Datagram& m) { m.address_size = 0; },
                "2 bytes from EID 0 of network 0, type 0x00, tag 0x00: another sender"},
        Foreign{"HalfAnAddress", [](Datagram& m) { m.address_size = 11; },
                "2 bytes from EID 0 of network 0, type 0x00, tag 0x00: another sender"},
        Foreign{"LongAddress", [](Datagram& m) { m.address_size = 13; },
                "2 bytes from EID 0 of network 0, type 0x00, tag 0x00: another sender"},
        Foreign{"Type", [](Datagram& m) { m.type = 2; },
                "2 bytes from EID 9 of network 1, type 0x02, tag 0x00: another message type"},
        Foreign{"Tag", [](Datagram& m) { m.tag = 1; },
                "2 bytes from EID 9 of network 1, type 0x01, tag 0x01: another tag"},
        Foreign{"Request", [](Datagram& m) { m.tag = 8; },
                "2 bytes from EID 9 of network 1, type 0x01, tag 0x08: another tag"},
        Foreign{"UnknownTagBits", [](Datagram& m) { m.tag = 0x10; },
                "2 bytes from EID 9 of network 1, type 0x01, tag 0x10: another tag"},
        Foreign{"Empty", [](Datagram& m) { m.body.clear(); },
                "0 bytes from EID 9 of network 1, type 0x01, tag 0x00: no body"}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(SocketXfer, ManyForeignMessagesTakeTwoLines) {
    kernel.on_send = [&](const SentDatagram& request) {
        for (int i = 0; i < 500; ++i) {
            kernel.misdeliver({10, 1, 0, hex("FF")}, i / 10);
        }
        kernel.deliver(kernel.answer_to(request, kAnswer), 60);
    };
    EXPECT_EQ(xfer(kRequest), 5);
    EXPECT_EQ(port().syslog.size(), 2u);
    EXPECT_EQ(port().syslog.back(), "[mctp socket] 499 more messages dropped\n");
}

// ---- How long it waits ----

TEST_F(SocketWait, ASilentEndpointEndsIt) {
    const int64_t start = kernel.now;
    EXPECT_EQ(xfer(kRequest), -1);
    EXPECT_EQ(kernel.now - start, 300);
    EXPECT_EQ(port().syslog, Lines{"[mctp socket] EID 9 of network 1: nothing within 300 ms\n"});
    EXPECT_EQ(port().console, Lines());
}

TEST_F(SocketWait, IsTheLowHalfOfTheRoute) {
    for (const auto& [route, wait] : std::vector<std::pair<uint32_t, int64_t>>{
             {0, 5000}, {1, 1}, {0xFFFF, 65535}, {0x001203E8, 1000}, {0xFFFF0000, 5000}}) {
        ctx.route = route;
        const int64_t start = kernel.now;
        EXPECT_EQ(xfer(kRequest), -1);
        EXPECT_EQ(kernel.now - start, wait);
    }
    EXPECT_EQ(MCTP_SOCKET_WAIT_DEFAULT_MS, 5000);
}

TEST_F(SocketWait, AnAnswerInTheLastMillisecondPasses) {
    kernel.answer_with({kAnswer}, 299);
    EXPECT_EQ(xfer(kRequest), 5);
}

TEST_F(SocketWait, InterruptionsDoNotProlongIt) {
    kernel.interrupted_after = 7;
    kernel.errors["poll"] = std::deque<int>(1000, EINTR);
    const int64_t start = kernel.now;
    EXPECT_EQ(xfer(kRequest), -1);
    EXPECT_GE(kernel.now - start, 300);
    EXPECT_LT(kernel.now - start, 307);
}

TEST_F(SocketWait, AnInterruptedOneTakesTheAnswer) {
    kernel.interrupted_after = 1;
    kernel.errors["poll"] = std::deque<int>(20, EINTR);
    kernel.errors["recvfrom"] = {EINTR, EAGAIN};
    kernel.answer_with({kAnswer}, 30);
    EXPECT_EQ(xfer(kRequest), 5);
}

TEST_F(SocketWait, AFloodOfForeignMessagesDoesNotProlongIt) {
    kernel.on_send = [&](const SentDatagram&) { kernel.misdeliver({10, 1, 0, hex("FF")}); };
    kernel.before["recvfrom"] = [&] {
        kernel.now += 1;
        kernel.misdeliver({10, 1, 0, hex("FF")});
    };
    const int64_t start = kernel.now;
    EXPECT_EQ(xfer(kRequest), -1);
    EXPECT_LE(kernel.now - start, 302);
}

// ---- Late and double answers ----

TEST_F(SocketTags, ALateAnswerDoesNotPassForTheNextOne) {
    int64_t late = 350;
    kernel.on_send = [&](const SentDatagram& request) {
        kernel.deliver(kernel.answer_to(request, hex("01 02 11 00")), late);
        late = 100;
    };
    EXPECT_EQ(xfer(kRequest), -1);
    EXPECT_EQ(kernel.open_sockets(), 1u) << "keeps the tag";
    kernel.on_send = [&](const SentDatagram& request) {
        kernel.deliver(kernel.answer_to(request, kAnswer), 100);
    };
    EXPECT_EQ(xfer(kRequest), 5);
    EXPECT_EQ(answer, kAnswer);
    EXPECT_EQ(kernel.sent[0].tag(), 0x18);
    EXPECT_EQ(kernel.sent[1].tag(), 0x19);
}

TEST_F(SocketTags, ADoubleAnswerDoesNotPassForTheNextOne) {
    kernel.on_send = [&](const SentDatagram& request) {
        kernel.deliver(kernel.answer_to(request, kAnswer));
        kernel.deliver(kernel.answer_to(request, kAnswer), 20);
    };
    EXPECT_EQ(xfer(kRequest), 5);
    kernel.on_send = [&](const SentDatagram& request) {
        kernel.deliver(kernel.answer_to(request, hex("01 02 11 00 2B")), 40);
    };
    EXPECT_EQ(xfer(kRequest), 5);
    EXPECT_EQ(answer, hex("01 02 11 00 2B"));
    EXPECT_EQ(kernel.sent[1].tag(), 0x19);
    kernel.answer_with({kAnswer});
    EXPECT_EQ(xfer(kRequest), 5);
    EXPECT_EQ(kernel.sent[2].tag(), 0x18) << "given back by then";
}

TEST_F(SocketTags, OtherContextsOfTheEndpointHaveOthers) {
    mctp_ctx other = endpoint();
    ASSERT_EQ(mctp_init2(&other), 0);
    kernel.answer_with({kAnswer, kAnswer});
    EXPECT_EQ(xfer(kRequest), 5);
    EXPECT_EQ(xfer(other, kRequest, 64), 5);
    EXPECT_EQ(kernel.sent[1].tag(), 0x19);
}

TEST_F(SocketTags, AreGivenBackSixSecondsLater) {
    EXPECT_EQ(xfer(kRequest), -1);
    kernel.now += 5999;
    kernel.answer_with({kAnswer, kAnswer});
    EXPECT_EQ(xfer(kRequest), 5);
    EXPECT_EQ(kernel.sent.back().tag(), 0x19);
    EXPECT_EQ(kernel.held_tags(), 2u);
    kernel.now += 1;
    EXPECT_EQ(xfer(kRequest), 5);
    EXPECT_EQ(kernel.sent.back().tag(), 0x18);
    EXPECT_EQ(kernel.held_tags(), 1u);
}

TEST_F(SocketTags, RunOutAtEight) {
    ctx.route = 10;
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(xfer(kRequest), -1);
    }
    EXPECT_EQ(port().console, Lines());
    EXPECT_EQ(xfer(kRequest), -1);
    EXPECT_EQ(kernel.sent.size(), 8u);
    EXPECT_EQ(port().console,
              Lines{"[mctp socket] EID 9 of network 1, tag: Device or resource busy "
                    "(no message tag is free)\n"});
}

TEST_F(SocketTags, TenThousandExchangesLeaveOneSocket) {
    kernel.on_send = [&](const SentDatagram& request) {
        kernel.deliver(kernel.answer_to(request, kAnswer));
    };
    for (int i = 0; i < 10000; ++i) {
        ASSERT_EQ(xfer(kRequest), 5);
        ASSERT_LE(kernel.open_sockets(), 1u);
    }
}

TEST_F(SocketTags, OfOtherNetworksAreAskedForByTheirNumber) {
    kernel.knows_network_tags = true;
    ctx.pcie_param = 7;
    kernel.on_send = [&](const SentDatagram& request) {
        Datagram message = kernel.answer_to(request, kAnswer);
        message.network = 7;
        kernel.deliver(message);
    };
    EXPECT_EQ(xfer(kRequest), 5);
    EXPECT_EQ(kernel.trace[1], "tag 07 00 00 00 09 00 00 00 00 00 00 00");
    EXPECT_EQ(sent(), (Lines{"2d 00 00 00 07 00 00 00 09 01 18 00 | 80 02 11 01 00 00"}));
    kernel.knows_network_tags = false;
    EXPECT_EQ(xfer(kRequest), 5);
    EXPECT_EQ(kernel.trace[kernel.trace.size() - 4], "tag 09 00 00 00");
}

TEST_F(SocketTags, ANumberOfANetworkHas32Bits) {
    ctx.pcie_param = 0x01020304;
    EXPECT_EQ(xfer(kRequest), -1);
    EXPECT_EQ(sent(), (Lines{"2d 00 00 00 04 03 02 01 09 01 18 00 | 80 02 11 01 00 00"}));
}

TEST_F(SocketTags, TheDefaultNetworkIsTheOneThatAnswersFirst) {
    ctx.pcie_param = 0;
    kernel.answer_with({kAnswer, kAnswer});
    EXPECT_EQ(xfer(kRequest), 5);
    EXPECT_EQ(ctx.pcie_param, 1u);
    EXPECT_EQ(xfer(kRequest), 5);
    EXPECT_EQ(sent(), (Lines{"2d 00 00 00 00 00 00 00 09 01 18 00 | 80 02 11 01 00 00",
                             "2d 00 00 00 01 00 00 00 09 01 19 00 | 80 02 11 01 00 00"}));
    EXPECT_EQ(kernel.open_sockets(), 1u);
}

TEST_F(SocketTags, AChangedDefaultNetworkGivesItsOwn) {
    kernel.knows_network_tags = true;
    kernel.default_network = 3;
    ctx.pcie_param = 0;
    ctx.tag = 5;
    kernel.on_send = [&](const SentDatagram& request) {
        Datagram message = kernel.answer_to(request, kAnswer);
        message.network = 3;
        kernel.deliver(message);
    };
    EXPECT_EQ(xfer(kRequest), 5);
    EXPECT_EQ(ctx.pcie_param, 3u);
    EXPECT_EQ(kernel.sent[0].tag() & 0x18, 0x08) << "not the one that was asked for";
    EXPECT_EQ(port().console, Lines());
}

TEST_F(SocketTags, AnOldKernelGivesThemWithTheMessage) {
    kernel.knows_tag_requests = false;
    ctx.tag = 5;
    kernel.on_send = [&](const SentDatagram& request) {
        EXPECT_EQ(ctx.tag, 5) << "nobody knows it yet";
        kernel.deliver(kernel.answer_to(request, kAnswer));
    };
    EXPECT_EQ(xfer(kRequest), 5);
    EXPECT_EQ(kernel.sent[0].tag(), 0x08);
    EXPECT_EQ(ctx.tag, 0);
    // Requests still do not pass for answers.
    kernel.on_send = [&](const SentDatagram&) { kernel.misdeliver({9, 1, 8, kAnswer}); };
    EXPECT_EQ(xfer(kRequest), -1);
}

// ---- Send, then receive ----

TEST_F(SocketSend, TheAnswerIsReceivedLater) {
    kernel.answer_with({kAnswer});
    EXPECT_EQ(send(kRequest), 0);
    EXPECT_EQ(ctx.tag, 0);
    EXPECT_EQ(recv(), 5);
    EXPECT_EQ(answer, kAnswer);
    EXPECT_FALSE(kernel.is_bound(1)) << "an answer needs no binding";
}

TEST_F(SocketSend, AReceiveWaitsAgainForAnAnswerThatIsLate) {
    kernel.answer_with({kAnswer}, 500);
    EXPECT_EQ(send(kRequest), 0);
    EXPECT_EQ(recv(), -1);
    EXPECT_EQ(recv(), 5);
}

TEST_F(SocketSend, TheAnswerToARequestThatWasGivenUpIsNotReceived) {
    ctx.msg_type = 2;
    kernel.answer_with({kAnswer}, 350);
    EXPECT_EQ(xfer(kRequest), -1);
    EXPECT_EQ(recv(), -1);
    EXPECT_EQ(port().console,
              Lines{"[mctp socket] EID 9 of network 1, receive: Transport endpoint is "
                    "not connected\n"});
}

TEST_F(SocketSend, OnlyTheLastRequestIsWaitedFor) {
    ctx.msg_type = 2;
    kernel.answer_with({hex("01"), hex("02")}, 10);
    EXPECT_EQ(send(kRequest), 0);
    EXPECT_EQ(send(kRequest), 0);
    EXPECT_EQ(recv(), 1);
    EXPECT_EQ(answer, hex("02"));
    EXPECT_EQ(recv(), -1);
}

TEST_F(SocketSend, AReceiveWithoutRoomReadsNothing) {
    EXPECT_EQ(send(kRequest), 0);
    kernel.trace.clear();
    EXPECT_EQ(recv(0), 0);
    EXPECT_EQ(recv(-1), 0);
    EXPECT_EQ(ctx.recv(&ctx, 10, nullptr), 0);
    EXPECT_EQ(kernel.trace, Lines());
}

TEST_F(SocketSend, AnotherEndpointInTheContextIsNotAskedFor) {
    ctx.msg_type = 2;
    kernel.answer_with({kAnswer});
    EXPECT_EQ(send(kRequest), 0);
    ctx.dest_eid = 10;
    EXPECT_EQ(recv(), -1);
    ctx.dest_eid = 9;
    ctx.pcie_param = 2;
    EXPECT_EQ(recv(), -1);
    ctx.pcie_param = 1;
    EXPECT_EQ(recv(), 5);
}

TEST_F(SocketSend, NobodyAnswersWithoutARequest) {
    ctx.msg_type = 2;
    EXPECT_EQ(send(kAnswer, 0), -1);
    EXPECT_EQ(kernel.sent.size(), 0u);
    EXPECT_EQ(port().console,
              Lines{"[mctp socket] EID 9 of network 1, answer: Operation not supported\n"});
}

// ---- What fails ----

struct Failure {
    const char* call;
    int error;
    const char* line;
};

class SocketCallFails : public test::SocketTest, public ::testing::WithParamInterface<Failure> {};

TEST_P(SocketCallFails, LeavesOneLineAndNothingElse) {
    kernel.answer_with({kAnswer, kAnswer});
    kernel.errors[GetParam().call] = {GetParam().error};
    EXPECT_EQ(xfer(kRequest), -1);
    EXPECT_EQ(port().console,
              Lines{std::string("[mctp socket] EID 9 of network 1, ") + GetParam().line + "\n"});
    EXPECT_EQ(xfer(kRequest), 5) << "as if nothing had been";
}

INSTANTIATE_TEST_SUITE_P(
    , SocketCallFails,
    ::testing::Values(
        Failure{"socket", EAFNOSUPPORT,
                "socket: Address family not supported by protocol (this kernel has no MCTP "
                "sockets)"},
        Failure{"socket", EMFILE, "socket: Too many open files"},
        Failure{"ioctl", EBUSY, "tag: Device or resource busy (no message tag is free)"},
        Failure{"sendmsg", EACCES,
                "send: Permission denied (it takes CAP_NET_RAW, and CAP_NET_BIND_SERVICE to update "
                "firmware)"},
        Failure{"sendmsg", EPERM,
                "send: Operation not permitted (it takes CAP_NET_RAW, and CAP_NET_BIND_SERVICE to "
                "update firmware)"},
        Failure{"sendmsg", EHOSTUNREACH, "send: No route to host"},
        Failure{"sendmsg", ENETUNREACH, "send: Network is unreachable"},
        Failure{"sendmsg", ENOBUFS, "send: No buffer space available"},
        Failure{"sendmsg", EAGAIN, "send: Resource temporarily unavailable"},
        Failure{"sendmsg", EMSGSIZE, "send: Message too long"},
        Failure{"poll", ENOMEM, "poll: Cannot allocate memory"},
        Failure{"recvfrom", ENETDOWN, "receive: Network is down"}),
    [](const auto& tested) {
        return std::string(tested.param.call) + std::to_string(tested.param.error);
    });

TEST_F(SocketFailures, AMessageThatVanishesIsWaitedOn) {
    kernel.errors["recvfrom"] = {0, EAGAIN};
    kernel.answer_with({kAnswer});
    EXPECT_EQ(xfer(kRequest), 5);
    EXPECT_EQ(port().syslog, Lines());
}

TEST_F(SocketFailures, AFullTableRefusesARequest) {
    // Each endpoint has tags of its own; 64 of them do not answer.
    std::vector<mctp_ctx> silent(65);
    for (size_t i = 0; i < silent.size(); ++i) {
        silent[i] = endpoint(static_cast<uint8_t>(10 + i));
        silent[i].route = 1;
        ASSERT_EQ(mctp_init2(&silent[i]), 0);
        EXPECT_EQ(xfer(silent[i], kRequest, 64), -1);
    }
    EXPECT_EQ(kernel.sent.size(), 64u);
    EXPECT_EQ(kernel.open_sockets(), 64u);
    EXPECT_EQ(port().console,
              Lines{"[mctp socket] EID 74 of network 1: 64 requests wait for their answers\n"});
    kernel.now += 6000;
    kernel.answer_with({kAnswer});
    EXPECT_EQ(xfer(kRequest), 5);
    EXPECT_EQ(kernel.open_sockets(), 1u);
}

TEST_F(SocketFailures, WhatWasAnsweredLongestAgoMakesRoom) {
    std::vector<mctp_ctx> others(70);
    kernel.on_send = [&](const SentDatagram& request) {
        kernel.deliver(kernel.answer_to(request, kAnswer));
    };
    for (size_t i = 0; i < others.size(); ++i) {
        others[i] = endpoint(static_cast<uint8_t>(10 + i));
        ASSERT_EQ(mctp_init2(&others[i]), 0);
        EXPECT_EQ(xfer(others[i], kRequest, 64), 5);
        kernel.now += 1;
    }
    EXPECT_EQ(kernel.open_sockets(), 64u);
    // The first six are gone, the seventh is not.
    kernel.on_send = nullptr;
    others[6].msg_type = others[5].msg_type = 2;
    uint8_t room[4];
    EXPECT_EQ(others[5].recv(&others[5], 4, room), -1);
    EXPECT_EQ(port().console.size(), 1u);
    EXPECT_EQ(others[6].recv(&others[6], 4, room), -1);
    EXPECT_EQ(port().console.size(), 1u) << "a wait without an end of its own";
}

// ---- Threads ----

TEST_F(SocketThreads, ExchangeWithOneEndpointAtOnce) {
    constexpr int kThreads = 4;
    constexpr int kExchanges = 250;
    kernel.on_send = [&](const SentDatagram& request) {
        kernel.deliver(kernel.answer_to(request, request.body + hex("00")));
    };
    std::vector<std::thread> threads;
    std::vector<int> wrong(kThreads, 0);
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            mctp_ctx own = endpoint();
            mctp_init2(&own);
            for (int n = 0; n < kExchanges; ++n) {
                const uint8_t request[] = {static_cast<uint8_t>(i), static_cast<uint8_t>(n)};
                uint8_t response[8] = {};
                const int32_t result = own.xfer(&own, 2, sizeof response, request, response);
                const bool good = result == 3 && std::memcmp(request, response, 2) == 0;
                wrong[static_cast<size_t>(i)] += good ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, std::vector<int>(kThreads, 0));
    EXPECT_LE(kernel.open_sockets(), 4u);
    EXPECT_EQ(kernel.lost, 0u);
}

}  // namespace
