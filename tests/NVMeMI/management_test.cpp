// SPDX-License-Identifier: Apache-2.0
// The management commands: bytes on the wire, texts, and what they make of good answers.
#include <gtest/gtest.h>

#include <cstdio>
#include <tuple>
#include <utility>

#include "NVMeMI/mi_commands.h"
#include "NVMeMI/nvme_fixture.h"

namespace {

using test::Bytes;
using test::counting;
using test::hex;
using test::mi_command_name;
using test::mi_commands;
using test::mi_response;
using test::MiCommand;
using test::MiRoom;
using test::Outcome;
using test::port;
using test::status_response;
using test::Texts;
using test::unsuccess;

using Index = testing::TestParamInfo<size_t>;

// ---- Every command ----

class MiCommandOnSmbus : public test::NvmeSmbusTest, public testing::WithParamInterface<size_t> {
protected:
    const MiCommand& command() const { return mi_commands()[GetParam()]; }
};

TEST_P(MiCommandOnSmbus, GoesOutWithItsIntegrityCheck) {
    MiRoom room;
    const Outcome outcome =
        exchange({command().response}, [&] { return command().call(&ctx, room.values()); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(packets(), Texts{command().packet});
    EXPECT_TRUE(room.intact());
    EXPECT_EQ(libc.live_blocks(), 1u) << "the context's own endpoint";
    EXPECT_EQ(libc.sleeps, std::vector<uint32_t>());
}

INSTANTIATE_TEST_SUITE_P(Commands, MiCommandOnSmbus,
                         testing::Range<size_t>(0, mi_commands().size()),
                         [](const Index& info) { return mi_command_name(info.param); });

class MiEveryCommand : public test::NvmeTest, public testing::WithParamInterface<size_t> {
protected:
    const MiCommand& command() const { return mi_commands()[GetParam()]; }
    Outcome call(nvmemi_ctx* context) {
        return test::run([&] { return command().call(context, room.values()); });
    }

    MiRoom room;
};

INSTANTIATE_TEST_SUITE_P(Commands, MiEveryCommand, testing::Range<size_t>(0, mi_commands().size()),
                         [](const Index& info) { return mi_command_name(info.param); });

TEST_P(MiEveryCommand, HandsItsRoomToTheExchange) {
    answer({command().response});
    EXPECT_EQ(call(&ctx).result, 0);
    ASSERT_EQ(endpoint.calls.size(), 1u);
    EXPECT_EQ(endpoint.calls[0].capacity, static_cast<int32_t>(command().capacity));
}

TEST_P(MiEveryCommand, OfANullContextSaysSo) {
    const Outcome outcome = call(nullptr);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "nvmemi ctx is null\n");
    EXPECT_TRUE(room.untouched());
    EXPECT_EQ(libc.allocations(), 0);
}

TEST_P(MiEveryCommand, SaysThatTheExchangeFailed) {
    const Outcome outcome = call(&ctx);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, command().failure);
    EXPECT_EQ(endpoint.calls.size(), 3u);
    EXPECT_TRUE(room.untouched());
    EXPECT_EQ(libc.live_blocks(), 0u);
    EXPECT_EQ(port().console, Texts());
}

TEST_P(MiEveryCommand, ReturnsEveryStatusAsItIsAndFillsNothing) {
    for (unsigned status = 2; status < 256; status++) {
        SCOPED_TRACE(status);
        start_over();
        Bytes response = command().response;
        response[3] = static_cast<uint8_t>(status);
        response[4] = 0x05;
        response[5] = 0x0B;
        answer({response});
        const Outcome outcome = call(&ctx);
        EXPECT_EQ(outcome.result, static_cast<int32_t>(status));
        EXPECT_EQ(outcome.out,
                  status == 4
                      ? "[print_resp_error:48] Invalid parameter at request byte 0xb, bit 5\n"
                      : unsuccess(status));
        EXPECT_TRUE(room.untouched());
        EXPECT_EQ(libc.live_blocks(), 0u);
        EXPECT_EQ(port().console, Texts());
    }
}

TEST_P(MiEveryCommand, WaitsForABusyEndpoint) {
    answer({status_response(1), command().response});
    EXPECT_EQ(call(&ctx).result, 0);
    EXPECT_EQ(endpoint.calls.size(), 2u);
    EXPECT_EQ(libc.sleeps, (std::vector<uint32_t>{200000}));
}

TEST_P(MiEveryCommand, WithoutMemoryFailsBeforeTheExchange) {
    for (int nth = 1; nth <= command().allocations; nth++) {
        start_over();
        libc.fail_allocation(nth);
        answer({command().response});
        const Outcome outcome = call(&ctx);
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, "fail to allocate buffer\n");
        EXPECT_TRUE(endpoint.calls.empty());
        EXPECT_TRUE(room.untouched());
    }
    start_over();
    answer({command().response});
    EXPECT_EQ(call(&ctx).result, 0);
    EXPECT_EQ(libc.allocations(), command().allocations);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

// ---- Configuration ----

class MiConfiguration : public test::NvmeTest {};

TEST_F(MiConfiguration, TheFrequencyIsTheLowFourBits) {
    for (unsigned byte = 0; byte < 256; byte++) {
        start_over();
        answer({mi_response({static_cast<uint8_t>(byte), 0xFF, 0xFF})});
        uint8_t frequency = 0xEE;
        EXPECT_EQ(nvmemi_config_get_smbus_freq(&ctx, 0, &frequency), 0);
        EXPECT_EQ(frequency, byte & 0x0F);
    }
}

TEST_F(MiConfiguration, TheThreeFrequenciesAreSet) {
    answer({mi_response(), mi_response(), mi_response()});
    EXPECT_EQ(nvmemi_config_set_smbus_freq(&ctx, 0, NVMEMI_SMBUS_100_KHZ), 0);
    EXPECT_EQ(nvmemi_config_set_smbus_freq(&ctx, 1, NVMEMI_SMBUS_400_KHZ), 0);
    EXPECT_EQ(nvmemi_config_set_smbus_freq(&ctx, 0xFF, NVMEMI_SMBUS_1_MHZ), 0);
    EXPECT_EQ(endpoint.messages(), (Texts{"08 00 00 03 00 00 00 01 01 00 00 00 00 00 00",
                                          "08 00 00 03 00 00 00 01 02 00 01 00 00 00 00",
                                          "08 00 00 03 00 00 00 01 03 00 ff 00 00 00 00"}));
}

TEST_F(MiConfiguration, SettingTheFrequencyTo0Or4IsRefusedWithoutAnExchange) {
    for (const auto& [frequency, text] :
         {std::pair{0, "invalid freq (0)\n"}, std::pair{4, "invalid freq (4)\n"}}) {
        const auto set = [&, value = static_cast<uint8_t>(frequency)] {
            return nvmemi_config_set_smbus_freq(&ctx, 0, value);
        };
        const Outcome outcome = test::run(set);
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, text);
    }
    EXPECT_TRUE(endpoint.calls.empty());
}

TEST_F(MiConfiguration, EveryOtherFrequencyIsRefusedAsWell) {
    for (unsigned frequency = 4; frequency < 256; frequency++) {
        SCOPED_TRACE(frequency);
        const Outcome outcome = test::run(
            [&] { return nvmemi_config_set_smbus_freq(&ctx, 0, static_cast<uint8_t>(frequency)); });
        char text[32];
        std::snprintf(text, sizeof text, "invalid freq (%x)\n", frequency);
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, text);
    }
    EXPECT_TRUE(endpoint.calls.empty());
}

TEST_F(MiConfiguration, AWrongFrequencyForANullContextIsAboutTheContext) {
    const Outcome outcome = test::run([] { return nvmemi_config_set_smbus_freq(nullptr, 0, 0); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "nvmemi ctx is null\n");
}

TEST_F(MiConfiguration, TheHealthStatusChangeHasNoValue) {
    answer({mi_response(hex("ff ff ff"))});
    const Outcome outcome = test::run([&] { return nvmemi_config_get_health_status_change(&ctx); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
}

TEST_F(MiConfiguration, TheUnitSizeIsLittleEndian) {
    for (const auto& [bytes, size] :
         {std::pair{"00 00 ff", 0u}, std::pair{"40 00 ff", 64u}, std::pair{"fe ff 00", 0xFFFEu},
          std::pair{"ff ff 00", 0xFFFFu}, std::pair{"34 12 00", 0x1234u}}) {
        start_over();
        answer({mi_response(hex(bytes))});
        uint16_t value = 0xEEEE;
        EXPECT_EQ(nvmemi_config_get_mctp_tx_unit_size(&ctx, 0, &value), 0);
        EXPECT_EQ(value, size);
    }
}

TEST_F(MiConfiguration, TheUnitSizeStaysAsItWasOnAnyOtherStatus) {
    for (uint8_t status : Bytes{2, 3, 4, 5, 0x20, 0xFF}) {
        start_over();
        answer({status_response(status, hex("40 00 00"))});
        uint16_t size = 0xEEEE;
        const auto get = [&] { return nvmemi_config_get_mctp_tx_unit_size(&ctx, 0, &size); };
        EXPECT_EQ(test::run(get).result, status);
        EXPECT_EQ(size, 0xEEEE);
    }
}

TEST_F(MiConfiguration, SettingTheUnitSizeDoesNotChangeTheContextsOwn) {
    endpoint.unit_size = 64;
    for (const auto& [size, request] :
         {std::pair{uint16_t{0}, "08 00 00 03 00 00 00 03 00 00 00 00 00 00 00"},
          std::pair{uint16_t{250}, "08 00 00 03 00 00 00 03 00 00 00 fa 00 00 00"},
          std::pair{uint16_t{0xFFFF}, "08 00 00 03 00 00 00 03 00 00 00 ff ff 00 00"}}) {
        start_over();
        answer({mi_response()});
        EXPECT_EQ(nvmemi_config_set_mctp_tx_unit_size(&ctx, 0, size), 0);
        EXPECT_EQ(endpoint.messages(), Texts{request});
    }
    EXPECT_EQ(endpoint.unit_size, 64);
}

TEST_F(MiConfiguration, NullArgumentsAreRefusedWithoutAnExchange) {
    EXPECT_EQ(nvmemi_config_get_smbus_freq(&ctx, 0, nullptr), -1);
    EXPECT_EQ(nvmemi_config_set_health_status_change(&ctx, nullptr), -1);
    EXPECT_EQ(nvmemi_config_get_mctp_tx_unit_size(&ctx, 0, nullptr), -1);
    EXPECT_TRUE(endpoint.calls.empty());
}

// ---- Health ----

class MiHealth : public test::NvmeTest {
protected:
    Outcome poll() {
        return test::run([&] {
            MiRoom::Values& at = room.values();
            return nvmemi_controller_health_status_poll(&ctx, &nmd0, &nmd1, &at.count,
                                                        at.controllers);
        });
    }

    const uint32_t nmd0 = 0;
    const uint32_t nmd1 = 0;
    MiRoom room;
};

/// Two entries, each byte of them different.
const Bytes kTwo = counting(32, 0x10);

TEST_F(MiHealth, TheSubsystemsHealthIsDecoded) {
    answer({mi_response(Bytes(3), hex("38 ff 2a 03 01 80 cd ab"))});
    nvme_subsystem_health health{};
    EXPECT_EQ(nvmemi_nvm_subsystem_health_status_poll(&ctx, &nmd1, &health), 0);
    EXPECT_EQ(health.nss, 0x38);
    EXPECT_EQ(health.smart_warnings, 0xFF);
    EXPECT_EQ(health.ctemp, 0x2A);
    EXPECT_EQ(health.pdlu, 3);
    EXPECT_EQ(health.ccs, 0x8001);
    EXPECT_EQ(health.reserved, 0xABCD);
    EXPECT_EQ(endpoint.messages(), Texts{"08 00 00 01 00 00 00 00 00 00 00 00 00 00 00"});
}

TEST_F(MiHealth, TwoControllersAreDecoded) {
    answer({mi_response(hex("00 00 02"), kTwo)});
    EXPECT_EQ(poll().result, 0);
    const MiRoom::Values& at = room.values();
    EXPECT_EQ(at.count, 2);
    const auto values = [](const nvme_controller_health& entry) {
        return std::tuple(entry.ctlid, entry.csts, entry.ctemp, entry.pdlu, entry.spare,
                          entry.cwarn);
    };
    EXPECT_EQ(values(at.controllers[0]), std::tuple(0x1110, 0x1312, 0x1514, 0x16, 0x17, 0x18));
    EXPECT_EQ(values(at.controllers[1]), std::tuple(0x2120, 0x2322, 0x2524, 0x26, 0x27, 0x28));
}

TEST_F(MiHealth, EntriesBehindTheCountStayAsTheyWere) {
    answer({mi_response(hex("00 00 01"), kTwo)});
    EXPECT_EQ(poll().result, 0);
    EXPECT_EQ(room.values().count, 1);
    EXPECT_EQ(room.values().controllers[0].ctlid, 0x1110);
    EXPECT_EQ(room.values().controllers[1].ctlid, 0xA5A5);
    EXPECT_EQ(room.values().controllers[1].cwarn, 0xA5);
    answer({mi_response(hex("00 00 00"), kTwo)});
    EXPECT_EQ(poll().result, 0);
    EXPECT_EQ(room.values().count, 0);
    EXPECT_EQ(room.values().controllers[0].ctlid, 0x1110);
}

TEST_F(MiHealth, APollThatReportsThreeControllersSaysThatTheyAreTooMany) {
    for (const auto& [count, text] :
         {std::pair{uint8_t{3}, "3"}, std::pair{uint8_t{4}, "4"}, std::pair{uint8_t{254}, "254"},
          std::pair{uint8_t{255}, "255"}}) {
        start_over();
        answer({mi_response(Bytes{0, 0, count}, kTwo)});
        const Outcome outcome = poll();
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, "Response entries (" + std::string(text) +
                                   ") should not greater than MAX_NVME_CONTROLLER=2.\n");
        EXPECT_TRUE(room.untouched());
        EXPECT_TRUE(room.intact());
    }
}

TEST_F(MiHealth, EntriesAreOnlyTakenWhereTheyArrived) {
    for (size_t length = 0; length <= 32; length++) {
        for (uint8_t count = 0; count <= 2; count++) {
            SCOPED_TRACE(testing::Message() << length << " bytes, " << int{count} << " entries");
            start_over();
            room = MiRoom();
            Bytes data = kTwo;
            data.resize(length);
            answer({mi_response(Bytes{0, 0, count}, data)});
            const bool whole = length >= size_t{count} * 16;
            EXPECT_EQ(poll().result, whole ? 0 : -1);
            EXPECT_EQ(room.untouched(), !whole);
        }
    }
}

TEST_F(MiHealth, NullArgumentsAreRefusedWithoutAnExchange) {
    MiRoom::Values& at = room.values();
    EXPECT_EQ(nvmemi_nvm_subsystem_health_status_poll(&ctx, nullptr, &at.health), -1);
    EXPECT_EQ(nvmemi_nvm_subsystem_health_status_poll(&ctx, &nmd1, nullptr), -1);
    const auto poll_of = [&](const uint32_t* dword0, const uint32_t* dword1, uint8_t* count,
                             nvme_controller_health* entries) {
        return nvmemi_controller_health_status_poll(&ctx, dword0, dword1, count, entries);
    };
    EXPECT_EQ(poll_of(nullptr, &nmd1, &at.count, at.controllers), -1);
    EXPECT_EQ(poll_of(&nmd0, nullptr, &at.count, at.controllers), -1);
    EXPECT_EQ(poll_of(&nmd0, &nmd1, nullptr, at.controllers), -1);
    EXPECT_EQ(poll_of(&nmd0, &nmd1, &at.count, nullptr), -1);
    EXPECT_TRUE(endpoint.calls.empty());
    EXPECT_TRUE(room.untouched());
}

// ---- Reset ----

class MiReset : public test::NvmeTest {};

TEST_F(MiReset, ASilentEndpointIsWhatOneExpects) {
    const Outcome outcome = test::run([&] { return nvmemi_reset(&ctx); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "send reset command; no response as expected\n");
    EXPECT_EQ(endpoint.messages(), Texts(3, "08 00 00 07 00 00 00 00 00 00 00 00 00 00 00"));
}

TEST_F(MiReset, AResponseThatDoesArriveIsJudged) {
    answer({mi_response(), status_response(2)});
    Outcome outcome = test::run([&] { return nvmemi_reset(&ctx); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    outcome = test::run([&] { return nvmemi_reset(&ctx); });
    EXPECT_EQ(outcome.result, 2);
    EXPECT_EQ(outcome.out, "Response unsuccess (2h)\n");
}

}  // namespace
