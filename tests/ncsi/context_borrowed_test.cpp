// SPDX-License-Identifier: Apache-2.0
// Commands on the channel records over an endpoint that was lent: what goes out, under which locks.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "ncsi/ncsi_fixture.h"
#include "support/endpoint.h"

namespace {

using test::Bytes;
using test::Endpoint;
using test::hex;
using test::ncsi_response;
using test::Outcome;
using test::port;
using test::Texts;
using test::to_hex;
using test::operator+;

constexpr uint8_t kChannel = 0x42;
constexpr uint32_t kWait = 77;

/// A command, the packets of its requests in turn, and the payloads of the responses.
struct Command {
    const char* name;
    int32_t (*call)(ncsi_channel*);
    std::vector<std::string> requests;
    std::vector<const char*> payloads;
    int32_t result = 0;
};

constexpr const char* kGetPreboot = "00 00 11 3d 00 1c 00 04 00 00 00 00 00 00 00 05";
constexpr const char* kGetTlv = "00 00 81 19 00 00 23 00 00 00 00 00 03 00 02 21";
constexpr const char* kPreboot = "00 00 11 3d 00 1c 00 04 00 00 00 00 5a 00 f1 23";
constexpr const char* kTlv = "00 00 81 19 00 00 23 00 00 00 f1 00 03 00 02 21 67 5a 12 34";

/// Header and payload of a request, as hex.
std::string request(const char* type, const char* channel, const std::string& length,
                    const std::string& payload) {
    return std::string("00 01 00 01 ") + type + " " + channel + " 00 " + length +
           " 00 00 00 00 00 00 00 00" + (payload.empty() ? "" : " ") + payload + " 00 00 00 00";
}

const std::vector<Command>& commands() {
    static const std::vector<Command> kAll = {
        {"GetLinkStatus",
         ncsi_get_link_status,
         {request("0a", "42", "00", "")},
         {"09 00 00 4f 00 00 00 00 00 00 00 00"}},
        {"SelectPackage",
         [](ncsi_channel* channel) { return ncsi_select_package(channel, 2); },
         {request("01", "5f", "00", "")},
         {""}},
        {"DeselectPackage",
         [](ncsi_channel* channel) { return ncsi_deselect_package(channel, 2); },
         {request("02", "5f", "00", "")},
         {""}},
        {"GetPreboot",
         [](ncsi_channel* channel) { return ncsi_oem_brcm_entry(channel, 0); },
         {request("50", "42", "10", kGetPreboot)},
         {kPreboot}},
        {"SetPreboot",
         [](ncsi_channel* channel) { return ncsi_oem_brcm_entry(channel, 1); },
         {request("50", "42", "10", kGetPreboot),
          request("50", "42", "14", "00 00 11 3d 00 1d 00 04 00 00 00 00 00 00 00 01 5a 00 fa bc")},
         {kPreboot, ""}},
        {"GetCardTlv",
         [](ncsi_channel* channel) { return ncsi_oem_mx_entry(channel, 0); },
         {request("50", "5f", "10", kGetTlv)},
         {kTlv}},
        {"SetCardTlv",
         [](ncsi_channel* channel) { return ncsi_oem_mx_entry(channel, 1); },
         {request("50", "5f", "10", kGetTlv),
          request("50", "5f", "14", "00 00 81 19 00 01 23 00 00 00 f1 00 03 00 02 21 67 5a 0a bc")},
         {kTlv, ""}},
        {"GetPfMac",
         [](ncsi_channel* channel) { return ncsi_oem_mx_entry(channel, 2); },
         {request("50", "42", "08", "00 00 81 19 00 00 00 00")},
         {"00 00 81 19 00 00 00 00 01 02 03 04 05 06 00 00"}},
        {"GetTemperature",
         [](ncsi_channel* channel) { return ncsi_oem_mx_entry(channel, 3); },
         {request("50", "42", "08", "00 00 81 19 00 13 02 09")},
         {"00 00 81 19 00 13 02 00 00 00 00 3d"},
         61},
    };
    return kAll;
}

class NcsiBorrowed : public test::PlatformTest, public testing::WithParamInterface<size_t> {
protected:
    NcsiBorrowed() {
        mctp.msg_type = MCTP_MSG_TYPE_NCSI;
        mctp.route = kWait;
        EXPECT_EQ(ncsi_oem_init(&ctx, &mctp), 0);
        channel.channel_id = kChannel;
        channel.oem_flag = 1;
        channel.oem_value = 0xABC;
        channel.sensor_index = 9;
    }

    /// A call's result and output if the controller answers with these payloads in turn.
    Outcome call(const Command& command) {
        const Endpoint controller(
            [&, next = size_t{0}](uint8_t type, const Bytes& sent) mutable -> std::optional<Bytes> {
                EXPECT_EQ(type, MCTP_MSG_TYPE_NCSI);
                requests.push_back(to_hex(sent));
                return next == command.payloads.size()
                           ? std::nullopt
                           : std::optional(
                                 ncsi_response(sent[4], sent[5], hex(command.payloads[next++])));
            });
        return test::run([&] { return command.call(&channel); });
    }

    mctp_ctx mctp = test::smbus_context();
    ncsi_ctx ctx{};
    ncsi_channel& channel = ctx.channels[2];
    Texts requests;
};

TEST_P(NcsiBorrowed, ACommandOfTheRecordsGoesOutUnderTheLocks) {
    const Command& command = commands()[GetParam()];
    const Outcome outcome = call(command);
    EXPECT_EQ(outcome.result, command.result) << outcome.out;
    EXPECT_EQ(requests, command.requests);
    Texts locks;
    for (size_t i = 0; i < command.requests.size(); i++) {
        for (const char* step : {"lock channel 3", "lock ncsi", "lock bus 3", "write", "read",
                                 "unlock bus 3", "unlock ncsi", "unlock channel 3"}) {
            locks.emplace_back(step);
        }
    }
    EXPECT_EQ(port().trace_of({"lock", "unlock", "write", "read"}), locks);
    EXPECT_EQ(port().console, Texts());
}

TEST_P(NcsiBorrowed, NeitherInstanceIdNorRouteIsTouched) {
    ctx.iid = 1;
    EXPECT_EQ(call(commands()[GetParam()]).result, commands()[GetParam()].result);
    EXPECT_EQ(ctx.iid, 1);
    EXPECT_EQ(mctp.route, kWait);
    ASSERT_FALSE(port().slave_reads.empty());
    for (const test::ReadRecord& read : port().slave_reads) {
        EXPECT_EQ(read.param, kWait);
    }
}

TEST_P(NcsiBorrowed, ARefusedLockFailsTheCommandUnsent) {
    for (const char* lock : {"channel 3", "ncsi"}) {
        port().refused_locks = {lock};
        EXPECT_EQ(call(commands()[GetParam()]).result, -1) << lock;
    }
    EXPECT_EQ(requests, Texts());
    EXPECT_TRUE(port().writes.empty());
}

INSTANTIATE_TEST_SUITE_P(Commands, NcsiBorrowed, testing::Range<size_t>(0, commands().size()),
                         [](const testing::TestParamInfo<size_t>& info) {
                             return std::string(commands()[info.param].name);
                         });

// ---- The calling order ----

class NcsiBorrowedOrder : public NcsiBorrowed {};

TEST_F(NcsiBorrowedOrder, AChannelFoundByOemDiscoveryIsAskedForItsLink) {
    const Endpoint controller([](uint8_t, const Bytes& sent) -> std::optional<Bytes> {
        return ncsi_response(sent[4], sent[5], sent[4] == 0x0A ? Bytes{9, 0, 0, 0x4F} : Bytes{});
    });
    EXPECT_EQ(ncsi_oem_discovery(&ctx), 0);
    EXPECT_EQ(ctx.channel_num, 0) << "nothing is recorded";
    EXPECT_EQ(channel.channel_id, kChannel);
    EXPECT_EQ(ncsi_get_link_status(&channel), 0);
    EXPECT_EQ(channel.link_up, 1);
    EXPECT_EQ(channel.speed, 9);
    EXPECT_EQ(channel.autoneg_done, 1);
    EXPECT_EQ(controller.requests[0][3], 1);
    EXPECT_EQ(controller.requests[1][3], 1);
}

TEST_F(NcsiBorrowedOrder, DiscoveryRecordsTheChannelsUnderTheLocks) {
    const Endpoint controller([](uint8_t, const Bytes& sent) -> std::optional<Bytes> {
        return ncsi_response(sent[4], sent[5]);
    });
    EXPECT_EQ(test::run([&] { return ncsi_discovery(&ctx); }).result, 0);
    EXPECT_EQ(ctx.channel_num, 8);
    EXPECT_EQ(channel.channel_id, 0x02);
    EXPECT_EQ(port().trace_of({"lock"}).size(), 8u * 3);
    EXPECT_EQ(mctp.route, kWait);
    EXPECT_EQ(ctx.iid, 1);
}

TEST_F(NcsiBorrowedOrder, AnExchangeOfTheCallersOwnIsTheOneThatCommandsUse) {
    ctx.oem_transfer = [](ncsi_ctx*, uint32_t, int32_t, uint8_t*, uint8_t*) -> int32_t {
        return -57;
    };
    EXPECT_EQ(test::run([&] { return ncsi_get_link_status(&channel); }).result, -57);
    ctx.oem_transfer = nullptr;
    EXPECT_EQ(test::run([&] { return ncsi_get_link_status(&channel); }).result, -1);
    EXPECT_EQ(port().trace, Texts());
}

TEST_F(NcsiBorrowedOrder, AStrayRecordIsRefused) {
    Bytes bytes(24);
    ncsi_channel stray{};
    EXPECT_EQ(ctx.transfer(nullptr, 16, 24, bytes.data(), bytes.data()), -1);
    EXPECT_EQ(ctx.transfer(&stray, 16, 24, bytes.data(), bytes.data()), -1);
}

TEST_F(NcsiBorrowedOrder, TheLastInitialiserSaysHowCommandsGoOut) {
    mctp_ctx config = test::smbus_context();
    config.skip_discovery = 1;
    const Endpoint controller([](uint8_t, const Bytes& sent) -> std::optional<Bytes> {
        return ncsi_response(sent[4], sent[5], Bytes(4));
    });
    const auto locks_of_a_command = [&] {
        port().trace.clear();
        EXPECT_EQ(ncsi_get_link_status(&channel), 0);
        return port().trace_of({"lock"});
    };
    EXPECT_EQ(test::run([&] { return ncsi_init(&ctx, &config); }).result, 0);
    EXPECT_EQ(locks_of_a_command(), Texts{"lock bus 3"});
    EXPECT_EQ(ncsi_oem_init(&ctx, &mctp), 0);
    EXPECT_EQ(locks_of_a_command(), (Texts{"lock channel 3", "lock ncsi", "lock bus 3"}));
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(NcsiBorrowedOrder, OverPcieTheCommandsTakeTheLocksOfTheDefaultChannel) {
    platform.default_i2c_channel = 9;
    mctp_ctx pcie{};
    pcie.binding_kind = MCTP_BINDING_KIND_PCIE;
    pcie.msg_type = MCTP_MSG_TYPE_NCSI;
    EXPECT_EQ(ncsi_oem_init(&ctx, &pcie), 0);
    port().on_pcie = [&](plt_pcie_request& message) {
        requests.push_back(to_hex({message.message, message.length}));
        const Bytes reply = Bytes{0x02} + ncsi_response(0x0A, kChannel, Bytes{0, 0, 0, 1});
        std::copy(reply.begin(), reply.end(), message.message);
        message.length = static_cast<uint32_t>(reply.size());
        return 1;
    };
    EXPECT_EQ(ncsi_get_link_status(&channel), 0);
    EXPECT_EQ(channel.link_up, 1);
    EXPECT_EQ(requests, Texts{"02 " + request("0a", "42", "00", "")});
    EXPECT_EQ(port().trace,
              (Texts{"lock channel 9", "lock ncsi", "pcie", "unlock ncsi", "unlock channel 9"}));
}

}  // namespace
