// SPDX-License-Identifier: Apache-2.0
// The sockets that stay open behind their exchanges: tags, late answers, bounds, threads.
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

using SocketTags = test::SocketTest;
using SocketTable = test::SocketTest;
using SocketThreads = test::SocketTest;

const Bytes kRequest = hex("80 02 11 01 00 00");
const Bytes kAnswer = hex("00 02 11 00 2A");

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

TEST_F(SocketTags, OfTheOldestRequestWithoutAnAnswerServeTheNinth) {
    kernel.on_send = nullptr;
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(send(kRequest), 0);
        kernel.now += 10;
    }
    EXPECT_EQ(kernel.held_tags(), 8u);
    kernel.answer_with({kAnswer});
    EXPECT_EQ(xfer(kRequest), 5);
    EXPECT_EQ(answer, kAnswer);
    EXPECT_EQ(kernel.sent.at(8).tag(), kernel.sent.at(0).tag());
    EXPECT_EQ(kernel.held_tags(), 8u);
    EXPECT_EQ(port().console, Lines());
}

// Each network has its eight tags since Linux 6.11, and the oldest gives way in each.
TEST_F(SocketTags, OfTheOldestRequestServeTheNinthInAnyNetwork) {
    kernel.knows_network_tags = true;
    kernel.on_send = nullptr;
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(send(kRequest), 0);
        kernel.now += 10;
    }
    ctx.pcie_param = 2;
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(send(kRequest), 0);
        kernel.now += 10;
    }
    EXPECT_EQ(kernel.held_tags(), 16u);
    kernel.on_send = [&](const SentDatagram& request) {
        Datagram message = kernel.answer_to(request, kAnswer);
        message.network = 2;
        kernel.deliver(message);
    };
    EXPECT_EQ(xfer(kRequest), 5);
    EXPECT_EQ(answer, kAnswer);
    EXPECT_EQ(kernel.sent.at(16).tag(), kernel.sent.at(8).tag());
    EXPECT_EQ(kernel.held_tags(), 16u);
    EXPECT_EQ(port().console, Lines());
}

TEST_F(SocketTags, OfAnotherEndpointAreNotTaken) {
    kernel.on_send = nullptr;
    EXPECT_EQ(send(kRequest), 0);
    ctx.dest_eid = 10;
    kernel.errors["ioctl"] = {EBUSY};
    EXPECT_EQ(send(kRequest), -1);
    EXPECT_EQ(kernel.held_tags(), 1u);
    EXPECT_EQ(port().console,
              Lines{"[mctp socket] EID 10 of network 1, tag: Device or resource busy "
                    "(no message tag is free)\n"});
}

TEST_F(SocketTags, OfTheSameEidInAnotherNetworkAreNotTaken) {
    kernel.on_send = nullptr;
    EXPECT_EQ(send(kRequest), 0);
    ctx.pcie_param = 2;
    kernel.errors["ioctl"] = {EBUSY};
    EXPECT_EQ(send(kRequest), -1);
    EXPECT_EQ(kernel.held_tags(), 1u);
    EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_SYSTEM);
    EXPECT_EQ(ctx.last_error.detail, EBUSY);
    EXPECT_EQ(port().console,
              Lines{"[mctp socket] EID 9 of network 2, tag: Device or resource busy "
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

TEST_F(SocketTable, AFullTableRefusesARequest) {
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
    EXPECT_EQ(send(kRequest), -1) << "without waiting for its answer, too";
    EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_SYSTEM);
    EXPECT_EQ(kernel.sent.size(), 64u);
    kernel.now += 6000;
    kernel.answer_with({kAnswer});
    EXPECT_EQ(xfer(kRequest), 5);
    EXPECT_EQ(kernel.open_sockets(), 1u);
}

TEST_F(SocketTable, WhatWasAnsweredLongestAgoMakesRoom) {
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

TEST_F(SocketThreads, ADeviceIsServedBesideTheExchangesOfOthers) {
    constexpr int kPieces = 200;
    const Bytes ask = hex("81 05 15 00 00 00 00 20 00 00 00");
    kernel.on_send = [&](const SentDatagram& message) {
        if ((message.tag() & 8) != 0) {
            kernel.deliver(kernel.answer_to(message, message.body + hex("00")));
        }
        if (message.eid() == 9) {
            kernel.deliver({9, 1, 0x0D, ask});
        }
    };
    int served = 0;
    std::thread update([&] {
        const Bytes begin = hex("81 05 10 00");
        uint8_t room[64];
        served -= ctx.xfer(&ctx, 4, sizeof room, begin.data(), room) == 5 ? 0 : 1;
        for (int i = 0; i < kPieces; ++i) {
            const bool asked = ctx.recv(&ctx, sizeof room, room) == 11 && ctx.tag == 5;
            served += asked && ctx.send(&ctx, 4, begin.data(), 0) == 0 ? 1 : 0;
        }
    });
    int wrong = 0;
    std::thread others([&] {
        mctp_ctx own = endpoint(10);
        mctp_init2(&own);
        const uint8_t request[] = {0x80, 0x02, 0x11};
        uint8_t room[64];
        for (int i = 0; i < kPieces; ++i) {
            wrong += own.xfer(&own, 3, sizeof room, request, room) == 4 ? 0 : 1;
            wrong += own.send(&own, 3, request, 1) == 0 ? 0 : 1;
            wrong += own.recv(&own, sizeof room, room) == 4 ? 0 : 1;
        }
    });
    update.join();
    others.join();
    EXPECT_EQ(served, kPieces);
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(port().console, Lines());
    EXPECT_EQ(port().syslog, Lines());
}

}  // namespace
