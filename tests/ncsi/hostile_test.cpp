// SPDX-License-Identifier: Apache-2.0
// Responses that lie, are cut, or have bits flipped, and a platform that fails: every command.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>

#include "ncsi/ncsi_fixture.h"
#include "support/endpoint.h"

namespace {

using test::Bytes;
using test::Endpoint;
using test::Guarded;
using test::hex;
using test::MctpAnswer;
using test::ncsi_response;
using test::port;
using test::operator+;

/// One command of the library with the responses that it takes.
struct HostileCommand {
    const char* name;
    uint8_t type;
    uint8_t channel;              ///< that is addressed
    std::vector<Bytes> payloads;  ///< of its responses in turn
    std::vector<size_t> needed;   ///< bytes without which each response is refused
    int32_t good;                 ///< result if they are good
    int32_t (*call)(ncsi_channel*);
    bool locks = false;  ///< goes through the exchange under locks

    Bytes response(size_t which) const { return ncsi_response(type, channel, payloads[which]); }
};

int32_t select_package(ncsi_channel* channel) {
    return ncsi_select_package(channel, 2);
}
int32_t deselect_package(ncsi_channel* channel) {
    return ncsi_deselect_package(channel, 2);
}
int32_t oem_discovery(ncsi_channel* channel) {
    return ncsi_oem_discovery(channel->ctx);
}

const std::vector<HostileCommand>& hostile_commands() {
    static const Bytes kPreboot = hex("00 00 11 3d 00 1c 00 04 00 00 00 00 5a 00 f1 23");
    static const Bytes kTlv = hex("00 00 81 19 00 00 23 00 00 00 f1 00 03 00 02 21 67 5a 12 34");
    static const std::vector<HostileCommand> kAll = {
        {"GetLinkStatus",
         0x0A,
         0x42,
         {hex("09 00 00 4f 00 00 00 00 00 00 00 00")},
         {24},
         0,
         ncsi_get_link_status},
        {"SelectPackage", 0x01, 0x5F, {Bytes{}}, {20}, 0, select_package},
        {"DeselectPackage", 0x02, 0x5F, {Bytes{}}, {20}, 0, deselect_package},
        {"OemDiscovery", 0x00, 0x00, {Bytes{}}, {20}, 0, oem_discovery, true},
        {"GetPreboot", 0x50, 0x42, {kPreboot}, {36}, 0, ncsi_oem_brcm_get_preboot_server_config},
        {"SetPreboot",
         0x50,
         0x42,
         {kPreboot, {}},
         {36, 20},
         0,
         ncsi_oem_brcm_set_preboot_server_config},
        {"GetCardTlv", 0x50, 0x5F, {kTlv}, {40}, 0, ncsi_oem_mx_get_card_tlv_info},
        {"SetCardTlv", 0x50, 0x5F, {kTlv, {}}, {40, 20}, 0, ncsi_oem_mx_set_card_tlv_info},
        {"GetPfMac",
         0x50,
         0x42,
         {hex("00 00 81 19 00 00 00 00 01 02 03 04 05 06 00 00")},
         {36},
         0,
         ncsi_oem_mx_get_pf_mac_address},
        {"GetTemperature",
         0x50,
         0x42,
         {hex("00 00 81 19 00 13 02 00 00 00 00 3d")},
         {32},
         61,
         ncsi_oem_mx_get_temperature},
    };
    return kAll;
}

/// A caller's context between canaries.
class Caller {
public:
    Caller() : room_(sizeof(ncsi_ctx), 0) { channel().channel_id = 0x42; }

    ncsi_ctx& ctx() { return *reinterpret_cast<ncsi_ctx*>(room_.data()); }
    ncsi_channel& channel() { return ctx().channels[2]; }
    bool intact() const { return room_.intact(); }

    /// What commands store in the records.
    Bytes records() {
        Bytes bytes;
        for (const ncsi_channel& record : ctx().channels) {
            bytes = bytes + Bytes{record.channel_id,
                                  record.link_up,
                                  record.speed,
                                  record.autoneg_done,
                                  record.oem_valid,
                                  record.oem_flag,
                                  static_cast<uint8_t>(record.oem_value >> 8),
                                  static_cast<uint8_t>(record.oem_value),
                                  record.sensor_index};
        }
        return bytes;
    }

private:
    Guarded room_;
};

class NcsiHostile : public test::NcsiTest, public testing::WithParamInterface<size_t> {
protected:
    const HostileCommand& command() const { return hostile_commands()[GetParam()]; }
    size_t exchanges() const { return command().payloads.size(); }

    /// Binds a caller's context to this endpoint, with the operations of the fixture's.
    void bind(Caller& caller, mctp_ctx& mctp) const {
        caller.ctx().transfer = ctx.transfer;
        caller.ctx().oem_transfer = ctx.oem_transfer;
        caller.ctx().mctp = &mctp;
        for (ncsi_channel& record : caller.ctx().channels) {
            record.ctx = &caller.ctx();
        }
    }

    /// The command with these answers, checked for what must hold whatever they say.
    int32_t exchange(const std::vector<MctpAnswer>& answers) {
        Caller caller;
        start_over();
        bind(caller, endpoint);
        caller.channel().oem_valid = 0xE1;
        endpoint.answers.assign(answers.begin(), answers.end());
        const Bytes before = caller.records();
        const int32_t result = test::run([&] { return command().call(&caller.channel()); }).result;
        EXPECT_TRUE(caller.intact());
        EXPECT_TRUE(result == -1 || (result >= 0 && result <= (command().good > 0 ? 255 : 0)))
            << result;
        EXPECT_LE(endpoint.calls.size(), command().locks ? 8u : exchanges());
        EXPECT_TRUE(port().held.empty());
        if (result < 0) {
            // "Unsupported" alone may be noted.
            if (caller.channel().oem_valid == 0) {
                caller.channel().oem_valid = 0xE1;
            }
            EXPECT_EQ(caller.records(), before);
        }
        return result;
    }

    /// The good answers, with this one in its place and nothing behind it.
    std::vector<MctpAnswer> good_before(size_t which, MctpAnswer bad) const {
        std::vector<MctpAnswer> answers = good();
        answers.resize(which);
        answers.push_back(std::move(bad));
        return answers;
    }
    std::vector<MctpAnswer> good() const {
        std::vector<MctpAnswer> answers;
        for (size_t which = 0; which < exchanges(); which++) {
            answers.push_back(MctpAnswer::of(command().response(which)));
        }
        return answers;
    }
    /// The good answers, with this one in its place.
    int32_t exchange_with(size_t which, const Bytes& bad) {
        std::vector<MctpAnswer> answers = good();
        answers[which] = MctpAnswer::of(bad);
        return exchange(answers);
    }
    /// A controller on SMBus that gives the good answers.
    Endpoint::Handler controller() const;
};

Endpoint::Handler NcsiHostile::controller() const {
    return [this, next = size_t{0}](uint8_t, const Bytes&) mutable -> std::optional<Bytes> {
        return command().response(next++ % exchanges());
    };
}

TEST_P(NcsiHostile, TheGoodResponsesAreTaken) {
    EXPECT_EQ(exchange(good()), command().good);
    EXPECT_EQ(endpoint.calls.size(), exchanges());
}

TEST_P(NcsiHostile, ResponsesTruncatedAtEveryByteAreRefusedOrWholeEnough) {
    for (size_t which = 0; which < exchanges(); which++) {
        const Bytes whole = command().response(which);
        for (size_t length = 0; length <= whole.size(); length++) {
            SCOPED_TRACE(testing::Message() << "response " << which << ", bytes " << length);
            const int32_t result = exchange_with(
                which, Bytes(whole.begin(), whole.begin() + static_cast<long>(length)));
            EXPECT_EQ(result, length >= command().needed[which] ? command().good : -1);
        }
    }
}

TEST_P(NcsiHostile, ResponsesWithEachBitFlippedFailWhereTypeOrCodesAreHit) {
    for (size_t which = 0; which < exchanges(); which++) {
        for (size_t bit = 0; bit < command().response(which).size() * 8; bit++) {
            SCOPED_TRACE(testing::Message() << "response " << which << ", bit " << bit);
            Bytes bad = command().response(which);
            bad[bit / 8] = static_cast<uint8_t>(bad[bit / 8] ^ (1u << (bit % 8)));
            const size_t at = bit / 8;
            const bool judged = at == 4 || (at >= 16 && at < 20);
            EXPECT_EQ(exchange_with(which, bad) < 0, judged);
        }
    }
}

TEST_P(NcsiHostile, EveryByteAtItsExtremesNeverLeavesTheBuffers) {
    for (size_t which = 0; which < exchanges(); which++) {
        for (size_t at = 0; at < command().response(which).size(); at++) {
            for (uint8_t value : Bytes{0x00, 0x01, 0x7F, 0x80, 0xFE, 0xFF}) {
                SCOPED_TRACE(testing::Message() << "byte " << at << " = " << int{value});
                Bytes bad = command().response(which);
                bad[at] = value;
                exchange_with(which, bad);
            }
        }
    }
}

TEST_P(NcsiHostile, ResponsesOfAnotherCommandAreRefused) {
    for (size_t which = 0; which < exchanges(); which++) {
        for (unsigned type = 0; type < 256; type++) {
            Bytes other = command().response(which);
            other[4] = static_cast<uint8_t>(type);
            const bool own = type == (command().type | 0x80u);
            EXPECT_EQ(exchange_with(which, other), own ? command().good : -1) << type;
        }
    }
}

TEST_P(NcsiHostile, ResponsesOfAnotherChannelAreTaken) {
    for (size_t which = 0; which < exchanges(); which++) {
        for (unsigned id = 0; id < 256; id++) {
            Bytes other = command().response(which);
            other[5] = static_cast<uint8_t>(id);
            EXPECT_EQ(exchange_with(which, other), command().good) << id;
        }
    }
}

TEST_P(NcsiHostile, LengthsThatLieNeverLeaveTheBuffers) {
    for (size_t which = 0; which < exchanges(); which++) {
        for (int32_t length : {INT32_MIN, -1, 0, 1, 5, 15, 16, 19, 4096, INT32_MAX}) {
            SCOPED_TRACE(length);
            std::vector<MctpAnswer> answers = good();
            answers[which].result = length;
            EXPECT_EQ(exchange(answers), length < 20 ? -1 : command().good);
        }
    }
}

TEST_P(NcsiHostile, AResponseLongerThanTheRoomIsCut) {
    for (size_t which = 0; which < exchanges(); which++) {
        EXPECT_EQ(exchange_with(which, command().response(which) + Bytes(2000, 0xFF)),
                  command().good);
    }
}

TEST_P(NcsiHostile, ResponsesAtRandomNeverLeaveTheBuffers) {
    std::mt19937 random(static_cast<uint32_t>(1000 + GetParam()));
    for (int round = 0; round < 400; round++) {
        SCOPED_TRACE(round);
        const size_t which = random() % exchanges();
        Bytes body(random() % 100);
        std::generate(body.begin(), body.end(), [&] { return static_cast<uint8_t>(random()); });
        // Half of them get past the codes.
        if (round % 2 == 0) {
            const Bytes whole = command().response(which);
            std::copy_n(whole.begin(), std::min<size_t>(20, body.size()), body.begin());
        }
        exchange_with(which, body);
    }
}

TEST_P(NcsiHostile, EachExchangeThatFailsInTurnFailsTheCommand) {
    for (size_t which = 0; which < exchanges(); which++) {
        SCOPED_TRACE(which);
        for (int32_t result : {-1, -57, 0}) {
            EXPECT_EQ(exchange(good_before(which, MctpAnswer::failure(result))), -1);
            EXPECT_EQ(endpoint.calls.size(), command().locks ? 8 : which + 1);
        }
    }
}

// ---- Over the bindings ----

TEST_P(NcsiHostile, EveryPlatformCallThatFailsGivesTheOrdinaryErrorAndFreesTheLocks) {
    const auto attempt = [&](int failing) {
        port().reset();
        port().fail_call = failing;
        port().fail_following = failing > 0;
        mctp_ctx mctp = test::ready_context(MCTP_BINDING_KIND_SMBUS, MCTP_MSG_TYPE_NCSI);
        Caller caller;
        bind(caller, mctp);
        Endpoint device(controller());
        const int32_t result = test::run([&] { return command().call(&caller.channel()); }).result;
        EXPECT_TRUE(port().held.empty());
        EXPECT_TRUE(port().violations.empty());
        EXPECT_TRUE(caller.intact());
        return result;
    };
    EXPECT_EQ(attempt(0), command().good);
    const int calls = port().result_calls;
    EXPECT_GE(calls, 4);  // lock, power, write, read
    for (int failing = 1; failing <= calls; failing++) {
        SCOPED_TRACE(failing);
        EXPECT_EQ(attempt(failing), -1);
    }
}

TEST_P(NcsiHostile, BlocksWithEachBitFlippedNeverLeaveTheBuffersOrKeepALock) {
    const Bytes good_block = test::block(
        test::packet(0x08, 0x1D, test::kSom | test::kEom | 1, Bytes{0x02} + command().response(0)));
    for (size_t bit = 0; bit < good_block.size() * 8; bit++) {
        SCOPED_TRACE(bit);
        port().reset();
        Bytes bad = good_block;
        bad[bit / 8] = static_cast<uint8_t>(bad[bit / 8] ^ (1u << (bit % 8)));
        port().reads.push_back(test::SlaveRead::of(bad));
        mctp_ctx mctp = test::ready_context(MCTP_BINDING_KIND_SMBUS, MCTP_MSG_TYPE_NCSI);
        Caller caller;
        bind(caller, mctp);
        test::run([&] { return command().call(&caller.channel()); });
        EXPECT_TRUE(caller.intact());
        EXPECT_TRUE(port().held.empty());
    }
}

TEST_P(NcsiHostile, OverPcieEveryAnswerLengthStaysInsideTheBuffers) {
    for (uint32_t length : {0u, 1u, 2u, 16u, 20u, 21u, 25u, 45u, 1024u, 0x7FFFFFFFu, UINT32_MAX}) {
        SCOPED_TRACE(length);
        port().reset();
        size_t next = 0;
        port().on_pcie = [&](plt_pcie_request& request) {
            const Bytes body = command().response(next++ % exchanges());
            std::copy(body.begin(), body.end(), request.message + 1);
            request.length = length;
            return 1;
        };
        mctp_ctx mctp = test::ready_context(MCTP_BINDING_KIND_PCIE, MCTP_MSG_TYPE_NCSI);
        Caller caller;
        bind(caller, mctp);
        const int32_t result = test::run([&] { return command().call(&caller.channel()); }).result;
        EXPECT_TRUE(result == command().good || result == -1) << result;
        EXPECT_TRUE(length > 20 || result == -1);
        EXPECT_TRUE(length != 45 || result == command().good);
        EXPECT_TRUE(caller.intact());
    }
}

INSTANTIATE_TEST_SUITE_P(Commands, NcsiHostile,
                         testing::Range<size_t>(0, hostile_commands().size()),
                         [](const testing::TestParamInfo<size_t>& info) {
                             return std::string(hostile_commands()[info.param].name);
                         });

// ---- The life of a context ----

class NcsiHostileContext : public test::PlatformTest {};

TEST_F(NcsiHostileContext, EveryPlatformCallThatFailsLeaksNothingAndFreesEveryLock) {
    mctp_ctx config = test::smbus_context();
    const auto attempt = [&](int failing) {
        port().reset();
        port().fail_call = failing;
        port().fail_following = failing > 0;
        Endpoint device([](uint8_t type, const Bytes& request) -> std::optional<Bytes> {
            if (type == MCTP_MSG_TYPE_CONTROL) {
                return Bytes{static_cast<uint8_t>(request[0] & 0x1F), 0x02, 0x00, 0x33, 0x00, 0x00};
            }
            return ncsi_response(request[4], request[5]);
        });
        ncsi_ctx ctx{};
        const int32_t result = test::run([&] { return ncsi_init(&ctx, &config); }).result;
        EXPECT_TRUE(result == 0 || result == -1) << result;
        EXPECT_TRUE(result == -1 || ctx.mctp != nullptr);
        EXPECT_EQ(ncsi_deinit(&ctx), 0);
        EXPECT_EQ(libc.live_blocks(), 0u);
        EXPECT_TRUE(port().held.empty());
        EXPECT_TRUE(port().violations.empty());
        return ctx.channel_num;
    };
    EXPECT_EQ(attempt(0), 8);
    const int calls = port().result_calls;
    EXPECT_GE(calls, 9 * 4);
    unsigned last = 0;
    for (int failing = 1; failing <= calls; failing++) {
        SCOPED_TRACE(failing);
        const unsigned found = attempt(failing);
        EXPECT_LT(found, 8u);
        EXPECT_GE(found, last);
        last = found;
    }
    EXPECT_EQ(last, 7u);
}

}  // namespace
