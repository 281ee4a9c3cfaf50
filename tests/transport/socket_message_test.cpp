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
using SocketFailures = test::SocketTest;

const Bytes kReadingRequest = hex("80 02 11 01 00 00");
const Bytes kReadingAnswer = hex("00 02 11 00 2A");

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
    kernel.answer_with({kReadingAnswer});
    EXPECT_EQ(xfer(kReadingRequest), 5);
    EXPECT_EQ(answer, kReadingAnswer);
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
        kernel.answer_with({kReadingAnswer});
        EXPECT_EQ(xfer(kReadingRequest, room), room);
        EXPECT_EQ(answer, Bytes(kReadingAnswer.begin(), kReadingAnswer.begin() + room));
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
    kernel.answer_with({kReadingAnswer, kReadingAnswer});
    EXPECT_EQ(xfer(kReadingRequest, 0), 0);
    EXPECT_EQ(xfer(kReadingRequest, -3), 0);
    EXPECT_EQ(ctx.xfer(&ctx, 6, 10, kReadingRequest.data(), nullptr), 0);
    EXPECT_EQ(kernel.sent.size(), 3u);
    EXPECT_EQ(std::count(kernel.trace.begin(), kernel.trace.end(), "poll"), 0);
}

TEST_F(SocketXfer, WithoutARequestNothingIsSent) {
    uint8_t room[4];
    EXPECT_EQ(ctx.xfer(&ctx, 6, 4, nullptr, room), -1);
    EXPECT_EQ(ctx.send(&ctx, 6, nullptr, 1), -1);
    EXPECT_EQ(kernel.trace, Lines());
}

TEST_F(SocketXfer, ARequestOfNothingIsSentWithoutABuffer) {
    kernel.answer_with({hex("00 02 11 00 2a")});
    uint8_t response[8] = {};
    EXPECT_EQ(ctx.xfer(&ctx, 0, sizeof response, nullptr, response), 5);
    EXPECT_EQ(test::to_hex(std::span(response).first(5)), "00 02 11 00 2a");
    EXPECT_EQ(sent(), Lines{"2d 00 00 00 01 00 00 00 09 01 18 00 | "});
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
        kernel.deliver(kernel.answer_to(request, kReadingAnswer), 20);
    };
    EXPECT_EQ(xfer(kReadingRequest), 5);
    EXPECT_EQ(answer, kReadingAnswer);
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
        kernel.deliver(kernel.answer_to(request, kReadingAnswer), 60);
    };
    EXPECT_EQ(xfer(kReadingRequest), 5);
    EXPECT_EQ(port().syslog.size(), 2u);
    EXPECT_EQ(port().syslog.back(), "[mctp socket] 499 more messages dropped\n");
}

// ---- How long it waits ----

TEST_F(SocketWait, ASilentEndpointEndsIt) {
    const int64_t start = kernel.now;
    EXPECT_EQ(xfer(kReadingRequest), -1);
    EXPECT_EQ(kernel.now - start, 300);
    EXPECT_EQ(port().syslog, Lines{"[mctp socket] EID 9 of network 1: nothing within 300 ms\n"});
    EXPECT_EQ(port().console, Lines());
}

TEST_F(SocketWait, IsTheLowHalfOfTheRoute) {
    for (const auto& [route, wait] : std::vector<std::pair<uint32_t, int64_t>>{
             {0, 5000}, {1, 1}, {0xFFFF, 65535}, {0x001203E8, 1000}, {0xFFFF0000, 5000}}) {
        ctx.route = route;
        const int64_t start = kernel.now;
        EXPECT_EQ(xfer(kReadingRequest), -1);
        EXPECT_EQ(kernel.now - start, wait);
    }
    EXPECT_EQ(MCTP_SOCKET_WAIT_DEFAULT_MS, 5000);
}

TEST_F(SocketWait, AnAnswerInTheLastMillisecondPasses) {
    kernel.answer_with({kReadingAnswer}, 299);
    EXPECT_EQ(xfer(kReadingRequest), 5);
}

TEST_F(SocketWait, InterruptionsDoNotProlongIt) {
    kernel.interrupted_after = 7;
    kernel.errors["poll"] = std::deque<int>(1000, EINTR);
    const int64_t start = kernel.now;
    EXPECT_EQ(xfer(kReadingRequest), -1);
    EXPECT_GE(kernel.now - start, 300);
    EXPECT_LT(kernel.now - start, 307);
}

TEST_F(SocketWait, AnInterruptedOneTakesTheAnswer) {
    kernel.interrupted_after = 1;
    kernel.errors["poll"] = std::deque<int>(20, EINTR);
    kernel.errors["recvfrom"] = {EINTR, EAGAIN};
    kernel.answer_with({kReadingAnswer}, 30);
    EXPECT_EQ(xfer(kReadingRequest), 5);
}

TEST_F(SocketWait, AFloodOfForeignMessagesDoesNotProlongIt) {
    kernel.on_send = [&](const SentDatagram&) { kernel.misdeliver({10, 1, 0, hex("FF")}); };
    kernel.before["recvfrom"] = [&] {
        kernel.now += 1;
        kernel.misdeliver({10, 1, 0, hex("FF")});
    };
    const int64_t start = kernel.now;
    EXPECT_EQ(xfer(kReadingRequest), -1);
    EXPECT_LE(kernel.now - start, 302);
}

// ---- Send, then receive ----

TEST_F(SocketSend, TheAnswerIsReceivedLater) {
    kernel.answer_with({kReadingAnswer});
    EXPECT_EQ(send(kReadingRequest), 0);
    EXPECT_EQ(ctx.tag, 0);
    EXPECT_EQ(recv(), 5);
    EXPECT_EQ(answer, kReadingAnswer);
    EXPECT_FALSE(kernel.is_bound(1)) << "an answer needs no binding";
}

TEST_F(SocketSend, AReceiveWaitsAgainForAnAnswerThatIsLate) {
    kernel.answer_with({kReadingAnswer}, 500);
    EXPECT_EQ(send(kReadingRequest), 0);
    EXPECT_EQ(recv(), -1);
    EXPECT_EQ(recv(), 5);
}

TEST_F(SocketSend, TheAnswerToARequestThatWasGivenUpIsNotReceived) {
    ctx.msg_type = 2;
    kernel.answer_with({kReadingAnswer}, 350);
    EXPECT_EQ(xfer(kReadingRequest), -1);
    EXPECT_EQ(recv(), -1);
    EXPECT_EQ(port().console,
              Lines{"[mctp socket] EID 9 of network 1, receive: Transport endpoint is "
                    "not connected\n"});
}

TEST_F(SocketSend, OnlyTheLastRequestIsWaitedFor) {
    ctx.msg_type = 2;
    kernel.answer_with({hex("01"), hex("02")}, 10);
    EXPECT_EQ(send(kReadingRequest), 0);
    EXPECT_EQ(send(kReadingRequest), 0);
    EXPECT_EQ(recv(), 1);
    EXPECT_EQ(answer, hex("02"));
    EXPECT_EQ(recv(), -1);
}

TEST_F(SocketSend, ARequestThatNobodyWaitedForKeepsItsTag) {
    ctx.msg_type = 2;
    kernel.answer_with({hex("01")}, 1000);
    EXPECT_EQ(send(kReadingRequest), 0);
    for (const char* body : {"02", "03"}) {
        kernel.answer_with({hex(body)});
        EXPECT_EQ(xfer(kReadingRequest), 1);
        EXPECT_EQ(answer, hex(body));
    }
    EXPECT_EQ(kernel.sent[0].tag(), 0x18);
    EXPECT_EQ(kernel.sent[1].tag(), 0x19);
    EXPECT_EQ(kernel.sent[2].tag(), 0x1A);
}

TEST_F(SocketSend, AReceiveWithoutRoomReadsNothing) {
    EXPECT_EQ(send(kReadingRequest), 0);
    kernel.trace.clear();
    EXPECT_EQ(recv(0), 0);
    EXPECT_EQ(recv(-1), 0);
    EXPECT_EQ(ctx.recv(&ctx, 10, nullptr), 0);
    EXPECT_EQ(kernel.trace, Lines());
}

TEST_F(SocketSend, AnotherEndpointInTheContextIsNotAskedFor) {
    ctx.msg_type = 2;
    kernel.answer_with({kReadingAnswer});
    EXPECT_EQ(send(kReadingRequest), 0);
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
    EXPECT_EQ(send(kReadingAnswer, 0), -1);
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
    kernel.answer_with({kReadingAnswer, kReadingAnswer});
    kernel.errors[GetParam().call] = {GetParam().error};
    EXPECT_EQ(xfer(kReadingRequest), -1);
    EXPECT_EQ(port().console,
              Lines{std::string("[mctp socket] EID 9 of network 1, ") + GetParam().line + "\n"});
    EXPECT_EQ(xfer(kReadingRequest), 5) << "as if nothing had been";
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
    kernel.answer_with({kReadingAnswer});
    EXPECT_EQ(xfer(kReadingRequest), 5);
    EXPECT_EQ(port().syslog, Lines());
}

}  // namespace
