// SPDX-License-Identifier: Apache-2.0
// Get Link Status, Select Package and Deselect Package.
#include <gtest/gtest.h>

#include "ncsi/ncsi_fixture.h"

namespace {

using test::Bytes;
using test::ncsi_response;
using test::Outcome;
using test::port;
using test::Texts;
using test::operator+;

/// A transfer operation of the caller's own.
template <int32_t Result>
int32_t own_transfer(ncsi_channel*, uint32_t, int32_t, uint8_t*, uint8_t*) {
    return Result;
}

// ---- Get Link Status ----

class NcsiLink : public test::NcsiTest {
protected:
    NcsiLink() {
        channel.link_up = 0xE1;
        channel.speed = 0xE2;
        channel.autoneg_done = 0xE3;
    }

    Outcome get() {
        return test::run([&] { return ncsi_get_link_status(&channel); });
    }
    /// Link status, then the other indications and the OEM link status.
    Outcome get_for(uint8_t high, uint8_t low) {
        answer({ncsi_response(0x0A, 0x42, Bytes{high, 0xFF, 0xFF, low} + Bytes(8, 0xFF))});
        return get();
    }
    void expect_untouched() const {
        EXPECT_EQ(channel.link_up, 0xE1);
        EXPECT_EQ(channel.speed, 0xE2);
        EXPECT_EQ(channel.autoneg_done, 0xE3);
    }
};

TEST_F(NcsiLink, TheStatusOfTheChannelIsAskedFor) {
    const Outcome outcome = get_for(0x00, 0x4F);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(endpoint.messages(),
              Texts{"00 01 00 01 0a 42 00 00 00 00 00 00 00 00 00 00 00 00 00 00"});
    EXPECT_EQ(endpoint.calls[0].capacity, 36);
    EXPECT_EQ(channel.link_up, 1);
    EXPECT_EQ(channel.speed, 7);
    EXPECT_EQ(channel.autoneg_done, 1);
    EXPECT_EQ(channel.channel_id, 0x42);
}

TEST_F(NcsiLink, EveryLowByteIsTakenApart) {
    for (unsigned low = 0; low < 256; low++) {
        SCOPED_TRACE(low);
        EXPECT_EQ(get_for(0x00, static_cast<uint8_t>(low)).result, 0);
        EXPECT_EQ(channel.link_up, low % 2);
        EXPECT_EQ(channel.speed, low / 2 % 16);
        EXPECT_EQ(channel.autoneg_done, low / 64 % 2);
    }
}

TEST_F(NcsiLink, TheExtendedSpeedIsTakenWhereThereIsOne) {
    for (unsigned high = 1; high < 256; high++) {
        SCOPED_TRACE(high);
        EXPECT_EQ(get_for(static_cast<uint8_t>(high), 0x1E).result, 0);
        EXPECT_EQ(channel.link_up, 0);
        EXPECT_EQ(channel.speed, high);
        EXPECT_EQ(channel.autoneg_done, 0);
    }
}

TEST_F(NcsiLink, AFailedExchangeIsReportedAndLeavesTheRecord) {
    const Outcome outcome = get();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "get link status failed.\n");
    expect_untouched();
}

TEST_F(NcsiLink, ARefusalLeavesTheRecord) {
    answer({ncsi_response(0x0A, 0x42, Bytes(12, 0xFF), 0x0001, 0x0002)});
    const Outcome outcome = get();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, test::not_successful(1, 2, 36) + "get link status failed.\n");
    expect_untouched();
}

TEST_F(NcsiLink, AResponseWithoutLinkStatusIsLogged) {
    Bytes reply = ncsi_response(0x0A, 0x42, Bytes(12, 0xFF));
    reply.resize(23);
    answer({reply});
    const Outcome outcome = get();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "get link status failed.\n");
    EXPECT_EQ(port().syslog, Texts{"ncsi, response of 23 bytes is too short\n"});
    expect_untouched();
}

TEST_F(NcsiLink, AnOwnTransfersResultIsPassedOn) {
    ctx.transfer = own_transfer<-57>;
    EXPECT_EQ(get().result, -57);
    expect_untouched();
    // It says nothing about a length: the response counts as whole.
    ctx.transfer = own_transfer<5>;
    EXPECT_EQ(get().result, 5);
    EXPECT_EQ(channel.link_up, 0);
    EXPECT_EQ(channel.speed, 0);
    EXPECT_EQ(channel.autoneg_done, 0);
}

TEST_F(NcsiLink, WhatCannotTransferIsRefused) {
    ncsi_channel stray{};
    EXPECT_EQ(ncsi_get_link_status(nullptr), -1);
    EXPECT_EQ(ncsi_get_link_status(&stray), -1);
    ctx.transfer = nullptr;
    EXPECT_EQ(ncsi_get_link_status(&channel), -1);
    EXPECT_TRUE(endpoint.calls.empty());
    expect_untouched();
}

// ---- Select Package, Deselect Package ----

struct Selection {
    const char* name;
    int32_t (*call)(ncsi_channel*, uint32_t);
    uint8_t type;
    const char* failure;  ///< on package 5
};

class NcsiPackage : public test::NcsiTest, public testing::WithParamInterface<Selection> {
protected:
    Outcome address(uint32_t package) {
        return test::run([&] { return GetParam().call(&channel, package); });
    }
};

INSTANTIATE_TEST_SUITE_P(Command, NcsiPackage,
                         testing::Values(Selection{"Select", ncsi_select_package, 0x01,
                                                   "select package falied on package id[5].\n"},
                                         Selection{"Deselect", ncsi_deselect_package, 0x02,
                                                   "deselect package falied on package id[5]\n"}),
                         [](const auto& parameter) { return std::string(parameter.param.name); });

TEST_P(NcsiPackage, EachPackageIsAddressedAsAWhole) {
    const char* const requests[2][8] = {
        {"00 01 00 01 01 1f 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
         "00 01 00 02 01 3f 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
         "00 01 00 03 01 5f 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
         "00 01 00 04 01 7f 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
         "00 01 00 05 01 9f 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
         "00 01 00 06 01 bf 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
         "00 01 00 07 01 df 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
         "00 01 00 08 01 ff 00 00 00 00 00 00 00 00 00 00 00 00 00 00"},
        {"00 01 00 01 02 1f 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
         "00 01 00 02 02 3f 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
         "00 01 00 03 02 5f 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
         "00 01 00 04 02 7f 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
         "00 01 00 05 02 9f 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
         "00 01 00 06 02 bf 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
         "00 01 00 07 02 df 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
         "00 01 00 08 02 ff 00 00 00 00 00 00 00 00 00 00 00 00 00 00"}};
    for (uint32_t package = 0; package < 8; package++) {
        SCOPED_TRACE(package);
        answer({ncsi_response(GetParam().type, static_cast<uint8_t>(package << 5 | 0x1F))});
        const Outcome outcome = address(package);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(endpoint.messages().back(), requests[GetParam().type - 1][package]);
        EXPECT_EQ(endpoint.calls.back().capacity, 24);
    }
    EXPECT_EQ(port().console, Texts());
    EXPECT_EQ(channel.channel_id, 0x42);
}

TEST_P(NcsiPackage, AFailureIsReportedOnTheConsole) {
    Outcome outcome = address(5);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(port().console, Texts{GetParam().failure});
    port().console.clear();
    answer({test::ncsi_unsupported(GetParam().type, 0xBF)});
    outcome = address(5);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, test::not_successful(0x0003, 0x7FFF, 24));
    EXPECT_EQ(port().console, Texts{GetParam().failure});
}

TEST_P(NcsiPackage, TheAnswerOfAChannelIsTakenForThatOfItsPackage) {
    answer({ncsi_response(GetParam().type, 0xA0)});
    const Outcome outcome = address(5);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(port().console, Texts());
}

TEST_P(NcsiPackage, APackageAbove7IsAFailureUnsent) {
    const std::pair<uint32_t, const char*> packages[] = {
        {8, "8"},          {15, "15"}, {255, "255"}, {256, "256"}, {0x08000000, "134217728"},
        {UINT32_MAX, "-1"}};
    for (const auto& [package, shown] : packages) {
        SCOPED_TRACE(package);
        start_over();
        answer({ncsi_response(GetParam().type, 0x1F)});
        const Outcome outcome = address(package);
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, "");
        std::string failure = GetParam().failure;
        failure.replace(failure.find('5'), 1, shown);
        EXPECT_EQ(port().console, Texts{failure});
        EXPECT_TRUE(endpoint.calls.empty());
        EXPECT_EQ(ctx.iid, 0);
    }
}

TEST_P(NcsiPackage, AnOwnTransfersResultIsPassedOn) {
    ctx.transfer = own_transfer<-57>;
    EXPECT_EQ(address(5).result, -57);
    EXPECT_EQ(port().console, Texts{GetParam().failure});
    ctx.transfer = own_transfer<5>;
    EXPECT_EQ(address(5).result, 5);
}

TEST_P(NcsiPackage, WhatCannotTransferIsRefused) {
    ncsi_channel stray{};
    EXPECT_EQ(GetParam().call(nullptr, 0), -1);
    EXPECT_EQ(GetParam().call(&stray, 0), -1);
    ctx.transfer = nullptr;
    EXPECT_EQ(address(0).result, -1);
    EXPECT_TRUE(endpoint.calls.empty());
    EXPECT_EQ(port().console, Texts());
}

}  // namespace
