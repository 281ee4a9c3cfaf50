// SPDX-License-Identifier: Apache-2.0
// Why an exchange over MCTP sockets failed, as the context remembers it.
#include <sideband/mctp.h>

#include <cerrno>
#include <string>

#include "support/errors.h"
#include "transport/socket_fixture.h"

namespace {

using test::hex;
using test::said;

class SocketError : public test::SocketTest {
protected:
    /// @param call  one of the kernel's that fails once
    void expect_of(const std::string& call, int error, const char* text) {
        kernel.errors[call] = {error};
        const int64_t before = kernel.now;
        EXPECT_EQ(xfer(hex("80 02 11")), -1);
        EXPECT_EQ(kernel.now, before) << "nothing is waited for";
        EXPECT_EQ(said(ctx.last_error), text) << call << " " << error;
        EXPECT_EQ(ctx.last_error.detail, error);
    }
};

TEST_F(SocketError, WhatTheKernelSaysIsRemembered) {
    expect_of("sendmsg", EHOSTUNREACH, "no such bus");
    expect_of("sendmsg", ENETUNREACH, "no such bus");
    expect_of("sendmsg", ENODEV, "no such bus");
    expect_of("sendmsg", ENOBUFS, "refused by the system");
    expect_of("sendmsg", ENOMEM, "out of memory");
    expect_of("socket", EAFNOSUPPORT, "refused by the system");
}

/// A service that has closed its standard input may get it.
TEST_F(SocketError, ASocketWithTheDescriptor0IsClosedToo) {
    kernel.gives = 0;
    kernel.errors["sendmsg"] = {ENODEV};
    EXPECT_EQ(xfer(hex("80 02 11")), -1);
    EXPECT_EQ(kernel.open_sockets(), 0u);
}

TEST_F(SocketError, SilenceAndWhatAnswersSomethingElseAreToldApart) {
    EXPECT_EQ(xfer(hex("80 02 11")), -1);
    EXPECT_EQ(said(ctx.last_error), "no answer");
    EXPECT_EQ(ctx.send(&ctx, 1, nullptr, 1), -1);
    EXPECT_EQ(said(ctx.last_error), "wrong argument");
}

TEST_F(SocketError, ATimeLimitCutsTheWaitAndThenNothingIsSent) {
    mctp_set_deadline(&ctx, 100);
    const int64_t before = kernel.now;
    EXPECT_EQ(xfer(hex("80 02 11")), -1);
    EXPECT_EQ(said(ctx.last_error), "deadline passed");
    EXPECT_EQ(kernel.now - before, 100);
    EXPECT_EQ(sent().size(), 1u);
    EXPECT_EQ(xfer(hex("80 02 11")), -1);
    EXPECT_EQ(said(ctx.last_error), "deadline passed");
    EXPECT_EQ(sent().size(), 1u);
    EXPECT_EQ(kernel.now - before, 100);
}

TEST_F(SocketError, ATimeLimitCutsThePauseOfWhoCannotListen) {
    kernel.foreign_bindings = {1};
    mctp_set_deadline(&ctx, 100);
    const int64_t before = kernel.now;
    EXPECT_EQ(recv(), -1);
    EXPECT_EQ(kernel.now - before, 100);
    kernel.now += 50;
    EXPECT_EQ(recv(), -1);
    EXPECT_EQ(kernel.now - before, 150) << "none is left";
    mctp_set_deadline(&ctx, 0);
    EXPECT_EQ(recv(), -1);
    EXPECT_EQ(kernel.now - before, 450) << "the whole pause";
}

TEST_F(SocketError, BehindATimeLimitADeviceIsNotAnswered) {
    kernel.deliver({9, 1, 0x0B, hex("81 05 15 00 00 00 00 20 00 00 00")});
    EXPECT_EQ(recv(), 11);
    mctp_set_deadline(&ctx, 100);
    kernel.now += 100;
    EXPECT_EQ(send(hex("01 05 15 00 aa"), 0), -1);
    EXPECT_EQ(said(ctx.last_error), "deadline passed");
    EXPECT_EQ(sent().size(), 0u);
    mctp_set_deadline(&ctx, 0);
    EXPECT_EQ(send(hex("01 05 15 00 aa"), 0), 0);
    EXPECT_EQ(sent(),
              std::vector<std::string>{"2d 00 00 00 01 00 00 00 09 01 03 00 | 01 05 15 00 aa"});
}

}  // namespace
