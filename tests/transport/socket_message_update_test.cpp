// SPDX-License-Identifier: Apache-2.0
// Requests of devices over MCTP sockets: when PLDM is bound, what is received, how it is answered.
#include <sideband/mctp.h>
#include <sideband/pldm.h>

#include <cerrno>
#include <string>
#include <vector>

#include "transport/socket_fixture.h"

namespace {

using test::Bytes;
using test::Datagram;
using test::hex;
using test::port;
using test::SentDatagram;

const Bytes kRequestUpdate = hex("81 05 10 00 01 00 00");
const Bytes kUpdateComponent = hex("82 05 14 0a 00");
const Bytes kActivateFirmware = hex("83 05 1a 01");
const Bytes kCancelUpdate = hex("84 05 1d");
const Bytes kFirmwareData = hex("81 05 15 00 00 00 00 20 00 00 00");
const Bytes kDone = hex("01 05 10 00");
/// Family 45, any network, any EID, type 1, tag owner.
constexpr char kBind[] = "bind 2d 00 00 00 00 00 00 00 ff 01 08 00";

class SocketUpdate : public test::SocketTest {
protected:
    SocketUpdate() { answer_all(); }

    void answer_all() {
        kernel.on_send = [this](const SentDatagram& message) {
            if ((message.tag() & 8) != 0) {
                kernel.deliver(kernel.answer_to(message, kDone));
            }
        };
    }

    /// The device asks, with a tag of its own.
    void ask(uint8_t tag, const Bytes& body = kFirmwareData, int64_t after_ms = 0) {
        kernel.deliver({9, 1, static_cast<uint8_t>(tag | 8), body}, after_ms);
    }

    Lines trace_of(const std::string& word) const {
        Lines found;
        for (const std::string& line : kernel.trace) {
            if (line.starts_with(word)) {
                found.push_back(line);
            }
        }
        return found;
    }
};

TEST_F(SocketUpdate, BindsInFrontOfTheRequestThatLetsTheDeviceAsk) {
    kernel.on_send = [this](const SentDatagram& message) {
        EXPECT_TRUE(kernel.is_bound(1));
        kernel.deliver(kernel.answer_to(message, kDone));
        ask(5);  // at once
    };
    EXPECT_EQ(xfer(kRequestUpdate), 4);
    EXPECT_EQ(answer, kDone) << "its own request is not taken for the answer";
    EXPECT_EQ(trace_of("bind"), Lines{kBind});
    EXPECT_EQ(recv(), 11);
    EXPECT_EQ(answer, kFirmwareData);
    EXPECT_EQ(ctx.tag, 5);
    EXPECT_EQ(ctx.binding_eids[0], 9);
}

TEST_F(SocketUpdate, AnswersWithTheTagOfTheRequest) {
    EXPECT_EQ(xfer(kRequestUpdate), 4);
    for (const uint8_t tag : {7, 0, 3}) {
        ask(tag);
        EXPECT_EQ(recv(), 11);
        EXPECT_EQ(send(hex("01 05 15 00 aa"), 0), 0);
        EXPECT_EQ(sent().back(),
                  "2d 00 00 00 01 00 00 00 09 01 0" + std::to_string(tag) + " 00 | 01 05 15 00 aa");
    }
}

/// A terminus that answers with another instance ID first, and rightly 20 ms later.
class SocketStrictPldm : public SocketUpdate {
protected:
    SocketStrictPldm() {
        mctp_ctx config = endpoint();
        config.strict = MCTP_STRICT_PLDM;
        kernel.on_send = [this](const SentDatagram& request) {
            if ((request.tag() & 8) == 0) {
                return;
            }
            const uint8_t instance = request.body.at(0) & 0x1F;
            Bytes answer{instance, 0x00, 0x02, 0x00, 0x2A};
            kernel.deliver(kernel.answer_to(request, answer), 20);
            answer[0] = static_cast<uint8_t>((instance + 1) & 0x1F);
            answer[4] = 0x55;
            kernel.deliver(kernel.answer_to(request, answer));
        };
        EXPECT_EQ(mctp_init2(&config), 0);
        asker = config;
        EXPECT_EQ(mctp_pldm_register(&asker, &terminus), 0);
    }

    mctp_ctx asker{};
    pldm_ctx terminus{};
};

TEST_F(SocketStrictPldm, TheAnswerIsFoundBehindAnotherOneAndNothingIsBound) {
    EXPECT_EQ(pldm_get_tid(&terminus), 0);
    EXPECT_EQ(terminus.tid, 0x2A);
    EXPECT_FALSE(kernel.is_bound(1));
    EXPECT_EQ(trace_of("bind"), Lines());
}

TEST_F(SocketStrictPldm, WhatAnotherDeviceAsksMeanwhileIsLeftToItsUpdate) {
    const auto answers = kernel.on_send;
    answer_all();
    EXPECT_EQ(xfer(kRequestUpdate), 4);
    kernel.on_send = answers;
    ask(5, kFirmwareData, 10);
    EXPECT_EQ(pldm_get_tid(&terminus), 0);
    EXPECT_EQ(terminus.tid, 0x2A);
    EXPECT_EQ(recv(), 11) << "of the device that is being updated";
    EXPECT_EQ(answer, kFirmwareData);
    EXPECT_EQ(ctx.tag, 5);
}

TEST_F(SocketUpdate, AnAnswerThatThereIsNoRoomForIsNotTried) {
    EXPECT_EQ(xfer(kRequestUpdate), 4);
    ask(3);
    EXPECT_EQ(recv(), 11);
    kernel.full = true;
    EXPECT_EQ(send(hex("01 05 15 00 aa"), 0), -1);
    EXPECT_EQ(kernel.references_lost, 0u);
    EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_SYSTEM);
    EXPECT_EQ(ctx.last_error.detail, EAGAIN);
    EXPECT_EQ(port().console, Lines{"[mctp socket] EID 9 of network 1, answer: Resource "
                                    "temporarily unavailable\n"});
    kernel.full = false;
    EXPECT_EQ(send(hex("01 05 15 00 aa"), 0), 0);
    EXPECT_EQ(sent().back(), "2d 00 00 00 01 00 00 00 09 01 03 00 | 01 05 15 00 aa");
}

TEST_F(SocketUpdate, WholeCourse) {
    EXPECT_EQ(xfer(kRequestUpdate), 4);
    EXPECT_EQ(xfer(kUpdateComponent), 4);
    for (int i = 0; i < 100; ++i) {
        ask(static_cast<uint8_t>(i % 8), kFirmwareData, 20);
        EXPECT_EQ(recv(1024), 11);
        EXPECT_EQ(send(hex("01 05 15 00"), 0), 0);
        EXPECT_LE(kernel.open_sockets(), 2u);
    }
    EXPECT_EQ(xfer(kActivateFirmware), 4);
    EXPECT_FALSE(kernel.is_bound(1));
    EXPECT_EQ(trace_of("bind").size(), 1u);
    EXPECT_EQ(port().console, Lines());
}

TEST_F(SocketUpdate, ACancelledOneLeavesTheTypeToOthers) {
    EXPECT_EQ(xfer(kRequestUpdate), 4);
    EXPECT_TRUE(kernel.is_bound(1));
    EXPECT_EQ(xfer(kCancelUpdate), 4);
    EXPECT_FALSE(kernel.is_bound(1));
}

TEST_F(SocketUpdate, OtherPldmRequestsBindNothing) {
    for (const char* request : {"80 05 01", "80 05 02", "80 05 1b", "80 02 10 00", "80 00 14",
                                "80 45", "80", "80 05 13 05"}) {
        EXPECT_EQ(xfer(hex(request)), 4) << request;
    }
    ctx.msg_type = 4;
    EXPECT_EQ(xfer(kRequestUpdate), 4) << "another message type";
    EXPECT_EQ(trace_of("bind"), Lines());
    EXPECT_EQ(kernel.open_sockets(), 1u);
}

TEST_F(SocketUpdate, WithoutABeginningAComponentBinds) {
    EXPECT_EQ(xfer(kUpdateComponent), 4);
    EXPECT_EQ(trace_of("bind"), Lines{kBind});
    EXPECT_EQ(xfer(kUpdateComponent), 4);
    EXPECT_EQ(trace_of("bind").size(), 1u);
}

TEST_F(SocketUpdate, AReceiveBindsWhereNothingWasSent) {
    ask(2, kFirmwareData, 50);
    EXPECT_EQ(recv(), 11);
    EXPECT_EQ(trace_of("bind"), Lines{kBind});
}

TEST_F(SocketUpdate, WhatAnEarlierUpdateLeftIsGone) {
    EXPECT_EQ(xfer(kRequestUpdate), 4);
    ask(1, hex("81 05 15 01"));
    kernel.now += 1;
    uint8_t nothing = 0;
    mctp_ctx other = endpoint(10);
    ASSERT_EQ(mctp_init2(&other), 0);
    EXPECT_EQ(xfer(other, hex("80 05 02"), 8), 4);  // lets what was asked arrive
    EXPECT_EQ(xfer(kRequestUpdate), 4);
    ask(2, kFirmwareData, 10);
    EXPECT_EQ(recv(), 11);
    EXPECT_EQ(answer, kFirmwareData);
    EXPECT_EQ(ctx.recv(&ctx, 0, &nothing), 0);
}

TEST_F(SocketUpdate, OnlyTheDeviceIsServed) {
    EXPECT_EQ(xfer(kRequestUpdate), 4);
    kernel.deliver({10, 1, 8, hex("81 05 15 01")}, 10);
    kernel.deliver({9, 1, 8, hex("81 05 15 02"), 2}, 20);
    kernel.deliver({9, 0x81, 8, hex("81 05 15 03 00 00 00 00")}, 30);
    ask(4, kFirmwareData, 40);
    EXPECT_EQ(recv(), 11);
    EXPECT_EQ(answer, kFirmwareData);
    EXPECT_EQ(port().syslog,
              (Lines{"[mctp socket] dropped 4 bytes from EID 10 of network 1, type 0x01, tag 0x08: "
                     "another sender\n",
                     "[mctp socket] 2 more messages dropped\n"}));
}

TEST_F(SocketUpdate, ARequestIsCutToItsRoom) {
    EXPECT_EQ(xfer(kRequestUpdate), 4);
    ask(1);
    EXPECT_EQ(recv(3), 3);
    EXPECT_EQ(answer, hex("81 05 15"));
}

TEST_F(SocketUpdate, ASilentDeviceEndsTheWait) {
    EXPECT_EQ(xfer(kRequestUpdate), 4);
    const int64_t start = kernel.now;
    EXPECT_EQ(recv(), -1);
    EXPECT_EQ(kernel.now - start, 300);
}

TEST_F(SocketUpdate, AnAnswerThatComesTwiceIsNoRequest) {
    EXPECT_EQ(xfer(kRequestUpdate), 4);
    kernel.misdeliver(kernel.answer_to(kernel.sent.back(), kDone), 10);
    ask(1, kFirmwareData, 20);
    EXPECT_EQ(recv(), 11);
    EXPECT_EQ(answer, kFirmwareData);
}

TEST_F(SocketUpdate, AnswersAndRequestsAreReceivedAlikeAfterASend) {
    EXPECT_EQ(xfer(kRequestUpdate), 4);
    EXPECT_EQ(send(kUpdateComponent), 0);
    ask(6, kFirmwareData, 10);
    EXPECT_EQ(recv(), 4);
    EXPECT_EQ(answer, kDone);
    EXPECT_EQ(recv(), 11);
    EXPECT_EQ(ctx.tag, 6);
}

TEST_F(SocketUpdate, TheDefaultNetworkIsThatOfARequestToo) {
    EXPECT_EQ(xfer(kRequestUpdate), 4);
    ctx.pcie_param = 0;
    kernel.on_send = [this](const SentDatagram& message) {
        ask(6);
        kernel.deliver(kernel.answer_to(message, kDone), 20);
    };
    EXPECT_EQ(send(kUpdateComponent), 0);
    EXPECT_EQ(recv(), 11);
    EXPECT_EQ(ctx.pcie_param, 1u);
    EXPECT_EQ(recv(), 4) << "the answer is still waited for";
    EXPECT_EQ(answer, kDone);
}

TEST_F(SocketUpdate, AnotherProcessThatHasTheTypeFailsItBeforeTheDeviceKnows) {
    kernel.foreign_bindings = {1};
    EXPECT_EQ(xfer(kRequestUpdate), -1);
    EXPECT_EQ(xfer(kUpdateComponent), -1);
    EXPECT_EQ(send(kDone, 0), -1);
    EXPECT_EQ(kernel.sent.size(), 0u);
    EXPECT_EQ(port().console,
              Lines(3,
                    "[mctp socket] EID 9 of network 1, bind: Address already in use (another "
                    "process receives the requests of PLDM devices)\n"));
    EXPECT_EQ(xfer(hex("80 05 02")), 4) << "all else works";
}

TEST_F(SocketUpdate, AReceiveThatFailsTakesItsWait) {
    kernel.foreign_bindings = {1};
    const int64_t start = kernel.now;
    EXPECT_EQ(recv(), -1);
    EXPECT_EQ(kernel.now - start, 300) << "or a caller that asks again at once would never rest";
    EXPECT_EQ(port().console.size(), 1u);
}

TEST_F(SocketUpdate, MissingRightsAreNamed) {
    kernel.errors["bind"] = {EACCES};
    EXPECT_EQ(xfer(kRequestUpdate), -1);
    EXPECT_EQ(
        port().console,
        Lines{"[mctp socket] EID 9 of network 1, bind: Permission denied (it takes CAP_NET_RAW, "
              "and CAP_NET_BIND_SERVICE to update firmware)\n"});
    kernel.errors["socket"] = {EAFNOSUPPORT};
    EXPECT_EQ(xfer(kRequestUpdate), -1);
    EXPECT_EQ(kernel.open_sockets(), 0u);
}

TEST_F(SocketUpdate, AnAnswerThatIsRefusedFails) {
    EXPECT_EQ(xfer(kRequestUpdate), 4);
    ask(1);
    EXPECT_EQ(recv(), 11);
    kernel.errors["sendmsg"] = {ENOBUFS};
    EXPECT_EQ(send(kDone, 0), -1);
    EXPECT_EQ(port().console,
              Lines{"[mctp socket] EID 9 of network 1, answer: No buffer space available\n"});
    EXPECT_EQ(send(kDone, 0), 0);
}

TEST_F(SocketUpdate, AMinuteWithoutAMessageLeavesTheTypeToOthers) {
    EXPECT_EQ(xfer(kRequestUpdate), 4);
    kernel.now += 59999;
    EXPECT_EQ(xfer(hex("80 05 02")), 4);
    EXPECT_TRUE(kernel.is_bound(1));
    kernel.now += 1;
    EXPECT_EQ(xfer(hex("80 05 02")), 4);
    EXPECT_FALSE(kernel.is_bound(1));
    // The next receive binds again.
    ask(1, kFirmwareData, 10);
    EXPECT_EQ(recv(), 11);
}

TEST_F(SocketUpdate, AnotherEndpointTakesTheListenerOver) {
    EXPECT_EQ(xfer(kRequestUpdate), 4);
    mctp_ctx other = endpoint(10);
    ASSERT_EQ(mctp_init2(&other), 0);
    EXPECT_EQ(xfer(other, kRequestUpdate, 8), 4);
    kernel.deliver({10, 1, 9, kFirmwareData}, 10);
    uint8_t room[16];
    EXPECT_EQ(other.recv(&other, 16, room), 11);
    EXPECT_EQ(trace_of("bind").size(), 2u);
}

TEST_F(SocketUpdate, ThePldmOfOtherContextsDoesNotDisturbIt) {
    EXPECT_EQ(xfer(kRequestUpdate), 4);
    mctp_ctx other = endpoint(10);
    ASSERT_EQ(mctp_init2(&other), 0);
    ask(1);
    EXPECT_EQ(other.send(&other, 3, hex("80 02 11").data(), 1), 0);
    uint8_t room[16];
    EXPECT_EQ(other.recv(&other, 16, room), 4) << "its answer, and nothing of the update's";
    EXPECT_EQ(recv(), 11);
    EXPECT_EQ(port().syslog, Lines());
}

TEST_F(SocketUpdate, AThreadThatServesADeviceIsNotRobbed) {
    EXPECT_EQ(xfer(kRequestUpdate), 4);
    mctp_ctx other = endpoint(10);
    ASSERT_EQ(mctp_init2(&other), 0);
    bool tried = false;
    int32_t begun = 0;
    int32_t received = 0;
    int32_t answered = 0;
    int32_t plain = 0;
    uint8_t cause = SIDEBAND_CAUSE_NONE;
    kernel.before["poll"] = [&] {
        if (tried) {
            return;
        }
        tried = true;
        // In the middle of the wait, as another thread would.
        uint8_t room[16];
        begun = other.send(&other, 7, kRequestUpdate.data(), 1);
        cause = other.last_error.cause;
        received = other.recv(&other, 16, room);
        answered = other.send(&other, 4, kDone.data(), 0);
        plain = other.send(&other, 3, hex("80 02 11").data(), 1);
    };
    ask(1, kFirmwareData, 10);
    ask(1, kFirmwareData, 400);
    EXPECT_EQ(recv(), 11);
    EXPECT_EQ(begun, -1);
    EXPECT_EQ(cause, SIDEBAND_CAUSE_LOCK);
    EXPECT_EQ(received, -1);
    EXPECT_EQ(answered, -1);
    EXPECT_EQ(plain, 0);
    EXPECT_EQ(port().console,
              Lines(3,
                    "[mctp socket] EID 10 of network 1: another thread receives the requests of "
                    "devices\n"));
    EXPECT_EQ(trace_of("bind").size(), 1u);
}

}  // namespace
