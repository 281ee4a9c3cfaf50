// SPDX-License-Identifier: Apache-2.0
// Why an NC-SI command failed, as its context remembers it.
#include <cerrno>
#include <string>

#include "ncsi/ncsi_fixture.h"
#include "support/errors.h"

namespace {

using test::ncsi_response;
using test::port;
using test::said;

class NcsiError : public test::NcsiTest {
protected:
    std::string why() const { return said(*ncsi_last_error(&ctx)); }
    int32_t ask() { return ncsi_get_link_status(&channel); }
};

TEST_F(NcsiError, TransportAndSilence) {
    endpoint.on_call = [this] { endpoint.last_error.cause = SIDEBAND_CAUSE_NO_POWER; };
    EXPECT_EQ(ask(), -1);
    EXPECT_EQ(why(), "no power, in NC-SI command 0x0a");
    endpoint.on_call = nullptr;
    EXPECT_EQ(ask(), -1);
    EXPECT_EQ(why(), "no answer, in NC-SI command 0x0a");
}

TEST_F(NcsiError, TheCodesOfTheController) {
    answer({ncsi_response(NCSI_GET_LINK_STATUS, 0x42, test::Bytes(12), 3, 0x7FFF)});
    EXPECT_EQ(ask(), -1);
    EXPECT_EQ(why(),
              "refused by the device: NC-SI response code 0x03, reason code 0x7fff, in NC-SI "
              "command 0x0a");
    EXPECT_EQ(ctx.last_error.code, 3);
    EXPECT_EQ(ctx.last_error.detail, 0x7FFF);
}

TEST_F(NcsiError, AnswersThatAreNone) {
    answer({ncsi_response(NCSI_SELECT_PACKAGE, 0x42, test::Bytes(12))});
    EXPECT_EQ(ask(), -1);
    EXPECT_EQ(why(), "only answers to something else came, in NC-SI command 0x0a");
    test::Bytes cut = ncsi_response(NCSI_GET_LINK_STATUS, 0x42, test::Bytes(12));
    cut.resize(21);
    answer({cut});
    EXPECT_EQ(ask(), -1);
    EXPECT_EQ(why(), "malformed answer, in NC-SI command 0x0a");
    endpoint.answers.push_back(test::MctpAnswer::of({}));
    EXPECT_EQ(ask(), -1);
    EXPECT_EQ(why(), "malformed answer, in NC-SI command 0x0a");
    endpoint.strict = MCTP_STRICT_INTEGRITY;
    test::Bytes wrong = ncsi_response(NCSI_GET_LINK_STATUS, 0x42, test::Bytes(12));
    wrong.back() = 1;
    answer({wrong});
    EXPECT_EQ(ask(), -1);
    EXPECT_EQ(why(), "wrong checksum, in NC-SI command 0x0a");
}

TEST_F(NcsiError, EachStrictBitSaysWhatItFoundWrong) {
    constexpr size_t kIid = 3;
    constexpr size_t kChannel = 5;
    constexpr size_t kLength = 7;
    const auto said_of = [this](uint32_t strict, size_t offset, uint8_t flip) {
        endpoint.strict = strict;
        test::Bytes wrong = ncsi_response(NCSI_GET_LINK_STATUS, 0x42, test::Bytes(12));
        wrong.at(offset) ^= flip;
        answer({wrong});
        EXPECT_EQ(ask(), -1);
        return why();
    };
    const std::string elsewhere = "only answers to something else came, in NC-SI command 0x0a";
    // The first request has the instance ID of the answers.
    EXPECT_EQ(said_of(MCTP_STRICT_PACKETS, kLength, 0x40),
              "malformed answer, in NC-SI command 0x0a");
    EXPECT_EQ(said_of(MCTP_STRICT_PACKETS, kIid, 0x80), elsewhere);
    EXPECT_EQ(said_of(MCTP_STRICT_ADDRESSES, kChannel, 1), elsewhere);
}

TEST_F(NcsiError, ASuccessClearsItAndAnArgumentIsToldFromSilence) {
    EXPECT_EQ(ask(), -1);
    answer({ncsi_response(NCSI_GET_LINK_STATUS, 0x42, test::Bytes(12))});
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(why(), "no failure");
    EXPECT_EQ(ncsi_select_package(&channel, 8), -1);
    EXPECT_EQ(why(), "wrong argument");
    EXPECT_EQ(ncsi_oem_mx_entry(&channel, 77), -1);
    EXPECT_EQ(why(), "wrong argument");
    ctx.transfer = nullptr;
    EXPECT_EQ(ask(), -1);
    EXPECT_EQ(why(), "wrong argument");
    EXPECT_EQ(said(*ncsi_last_error(nullptr)), "wrong argument");
}

TEST_F(NcsiError, ALockThatIsRefusedIsToldFromSilence) {
    ctx.transfer = [](ncsi_channel* of, uint32_t length, int32_t capacity, uint8_t* request,
                      uint8_t* response) {
        return of->ctx->oem_transfer(of->ctx, length, capacity, request, response);
    };
    for (const char* lock : {"channel 3", "ncsi"}) {
        port().refused_locks = {lock};
        EXPECT_EQ(ask(), -1);
        EXPECT_EQ(why(), "lock refused, in NC-SI command 0x0a") << lock;
    }
}

TEST_F(NcsiError, OfASearchThatFindsSomeChannelsNothingIsLeft) {
    for (int channel_number = 0; channel_number < NCSI_CHANNELS; ++channel_number) {
        if (channel_number == 0) {
            answer({ncsi_response(NCSI_CLEAR_INITIAL_STATE, 0)});
        }
    }
    EXPECT_EQ(ncsi_discovery(&ctx), 0);
    EXPECT_EQ(why(), "no failure");
    EXPECT_EQ(ncsi_discovery(&ctx), -1);
    EXPECT_EQ(why(), "no answer, in NC-SI command 0x00");
}

TEST_F(NcsiError, OfASearchThatFindsNoChannelTheFirstFailureIsKept) {
    int calls = 0;
    endpoint.on_call = [&] {
        endpoint.last_error.cause = ++calls == 1 ? SIDEBAND_CAUSE_NO_POWER : SIDEBAND_CAUSE_NONE;
    };
    EXPECT_EQ(ncsi_discovery(&ctx), -1);
    EXPECT_EQ(calls, 64);
    EXPECT_EQ(why(), "no power, in NC-SI command 0x00");
    calls = 0;
    EXPECT_EQ(ncsi_oem_discovery(&ctx), -1);
    EXPECT_EQ(calls, 8);
    EXPECT_EQ(why(), "no power, in NC-SI command 0x00");
}

TEST_F(NcsiError, WhatFailedInFrontOfTheEndpointIsRemembered) {
    ncsi_ctx fresh{};
    const mctp_ctx config = test::smbus_context();
    EXPECT_EQ(ncsi_init(&fresh, nullptr), -1);
    EXPECT_EQ(said(fresh.last_error), "wrong argument");
    libc.fail_allocation(1);
    EXPECT_EQ(ncsi_init(&fresh, &config), -1);
    EXPECT_EQ(said(fresh.last_error), "out of memory, in setting up the endpoint");
    port().write_results = {-ENXIO, -ENXIO, -ENXIO};
    EXPECT_EQ(ncsi_init(&fresh, &config), -1);
    EXPECT_EQ(said(fresh.last_error), "not acknowledged, in MCTP control command 0x02");
    EXPECT_EQ(ncsi_oem_init(&fresh, nullptr), -1);
    EXPECT_EQ(said(fresh.last_error), "wrong argument");
    mctp_ctx lent = config;
    lent.binding_kind = 9;
    EXPECT_EQ(ncsi_oem_init(&fresh, &lent), -1);
    EXPECT_EQ(said(fresh.last_error), "wrong argument, in setting up the endpoint");
    EXPECT_EQ(said(lent.last_error), "wrong argument") << "what the endpoint says of itself";
    lent.binding_kind = MCTP_BINDING_KIND_SMBUS;
    EXPECT_EQ(ncsi_oem_init(&fresh, &lent), 0);
    EXPECT_EQ(said(fresh.last_error), "no failure");
    EXPECT_EQ(fresh.last_error.step, SIDEBAND_STEP_NONE);
}

}  // namespace
