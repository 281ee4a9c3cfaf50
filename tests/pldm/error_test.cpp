// SPDX-License-Identifier: Apache-2.0
// Why a PLDM command failed, as its context remembers it, with an endpoint and without one.
#include <sideband/pldm_fru.h>
#include <sideband/pldm_fw_update.h>
#include <sideband/pldm_monitor.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "pldm/pldm_fixture.h"
#include "support/endpoint.h"
#include "support/errors.h"

namespace {

using test::hex;
using test::MctpAnswer;
using test::port;
using test::said;

class PldmError : public test::PldmTest {
protected:
    std::string why() const { return said(*pldm_last_error(&ctx)); }
    int32_t read(uint32_t* reading) { return pldm_get_sensor_reading(&ctx, 1, reading); }

    uint32_t reading = 0;
};

TEST_F(PldmError, ATransportSaysWhyAndTheCommandIsNamed) {
    endpoint.on_call = [this] { endpoint.last_error.cause = SIDEBAND_CAUSE_NOT_ACKNOWLEDGED; };
    EXPECT_EQ(read(&reading), -1);
    EXPECT_EQ(why(), "not acknowledged, in PLDM command 0x11");
    endpoint.on_call = nullptr;
    EXPECT_EQ(read(&reading), -1);
    EXPECT_EQ(why(), "no answer, in PLDM command 0x11") << "of an operation that says nothing";
    EXPECT_EQ(ctx.completion_code, PLDM_CC_RETRIES_EXHAUSTED);
}

TEST_F(PldmError, TheCodeOfTheDeviceIsKept) {
    endpoint.answer({"00 02 11 80"});
    EXPECT_EQ(read(&reading), -1);
    EXPECT_EQ(why(), "refused by the device: PLDM completion code 0x80, in PLDM command 0x11");
    EXPECT_EQ(ctx.last_error.code, 0x80);
    EXPECT_EQ(ctx.last_error.kind, SIDEBAND_CODE_PLDM);
    endpoint.answer({"00 02 11 04"});
    EXPECT_EQ(read(&reading), -1);
    EXPECT_EQ(why(), "refused by the device: PLDM completion code 0x04, in PLDM command 0x11")
        << "not ready";
}

TEST_F(PldmError, AnAnswerThatIsTooShortIsMalformed) {
    endpoint.answer({"00 02 11"});
    EXPECT_EQ(read(&reading), -1);
    EXPECT_EQ(why(), "malformed answer, in PLDM command 0x11");
    endpoint.answer({"00 02 11 00 05 00 00 00"});
    EXPECT_EQ(read(&reading), -1);
    EXPECT_EQ(why(), "malformed answer, in PLDM command 0x11");
    endpoint.answer({"00 00 04 00 01 00 00 00 00 00 00 00"});
    EXPECT_EQ(pldm_get_tid(&ctx), -1);
    EXPECT_EQ(why(), "malformed answer, in PLDM command 0x02") << "another command";
}

TEST_F(PldmError, ACallThatSucceedsClearsItAndAnArgumentIsToldFromSilence) {
    EXPECT_EQ(read(&reading), -1);
    endpoint.answer({"00 02 11 00 00 00 00 00 00 00 2A"});
    EXPECT_EQ(read(&reading), 0);
    EXPECT_EQ(why(), "no failure");
    EXPECT_EQ(read(nullptr), -112);
    EXPECT_EQ(why(), "wrong argument");
    ctx.transfer_op = nullptr;
    EXPECT_EQ(read(&reading), -112);
    EXPECT_EQ(why(), "wrong argument");
    EXPECT_EQ(said(*pldm_last_error(nullptr)), "wrong argument");
}

TEST_F(PldmError, AnOperationInThePlaceOfTheLibrarysIsLookedAtToo) {
    pass_through(0, hex("00 02 11 82"));
    EXPECT_EQ(read(&reading), 0) << "its answer counts as filled";
    EXPECT_EQ(why(), "refused by the device: PLDM completion code 0x82, in PLDM command 0x11");
    pass_through(-7, {});
    EXPECT_EQ(read(&reading), -7);
    EXPECT_EQ(why(), "no answer, in PLDM command 0x11");
}

TEST_F(PldmError, AnOperationOfTheCallersOwnMaySayWhyItself) {
    ctx.transfer_op = [](pldm_ctx* terminus, uint32_t, int32_t, uint8_t*, uint8_t*) -> int32_t {
        terminus->last_error.cause = SIDEBAND_CAUSE_LOCK;
        return -1;
    };
    endpoint.last_error.cause = SIDEBAND_CAUSE_NO_POWER;
    EXPECT_EQ(read(&reading), -1);
    EXPECT_EQ(why(), "lock refused, in PLDM command 0x11") << "not what the endpoint says";
    pass_through(-7, {});
    ctx.mctp = nullptr;
    EXPECT_EQ(read(&reading), -7);
    EXPECT_EQ(why(), "no answer, in PLDM command 0x11") << "there is no endpoint to ask";
}

TEST_F(PldmError, AnAnswerThatAnOperationOfTheCallersOwnCutsIsMalformed) {
    ctx.transfer_op = [](pldm_ctx* terminus, uint32_t, int32_t, uint8_t*,
                         uint8_t* room) -> int32_t {
        const test::Bytes cut = hex("00 02 11 00 02");
        std::copy(cut.begin(), cut.end(), room);
        terminus->response_length = 5;
        return 0;
    };
    ctx.last_command = 0x11;
    endpoint.last_error.cause = SIDEBAND_CAUSE_WRONG_CHECK;
    EXPECT_EQ(read(&reading), -1);
    EXPECT_EQ(why(), "wrong checksum, in PLDM command 0x11") << "the endpoint knows more";
    ctx.mctp = nullptr;
    EXPECT_EQ(read(&reading), -1);
    EXPECT_EQ(why(), "malformed answer, in PLDM command 0x11");
    ctx.transfer_op = [](pldm_ctx* terminus, uint32_t, int32_t, uint8_t*, uint8_t*) -> int32_t {
        terminus->response_length = 0;
        terminus->last_error.cause = SIDEBAND_CAUSE_WRONG_TAG;
        return 0;
    };
    ctx.mctp = &endpoint;
    EXPECT_EQ(read(&reading), -1);
    EXPECT_EQ(why(), "only answers to something else came, in PLDM command 0x11");
}

TEST_F(PldmError, AnAnswerWithoutCompletionCodeEnablesNoSensor) {
    ctx.transfer_op = [](pldm_ctx* terminus, uint32_t, int32_t, uint8_t*, uint8_t*) -> int32_t {
        terminus->response_length = 3;
        return 0;
    };
    EXPECT_EQ(pldm_set_numeric_sensor_enable(&ctx, 1, 0, 0), -1);
    EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_MALFORMED);
    EXPECT_EQ(pldm_set_state_sensor_enable(&ctx, 1, 1, 0, 0), -1);
    libc.release_blocks();
    EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_MALFORMED);
    EXPECT_EQ(test::port().syslog,
              (std::vector<std::string>{
                  "pldm_set_numeric_sensor_enable, response of 3 bytes is too short\n",
                  "pldm_set_state_sensor_enable, response of 3 bytes is too short\n"}));
}

TEST_F(PldmError, MemoryThatRanOutIsToldFromSilence) {
    pldm_state_reading state{};
    libc.fail_allocation(1);
    EXPECT_EQ(pldm_get_state_sensor_reading(&ctx, 1, &state), -1);
    EXPECT_EQ(why(), "out of memory");
    libc.fail_allocation(1);
    EXPECT_EQ(pldm_get_version(&ctx, 0), -1);
    EXPECT_EQ(why(), "out of memory");
    uint32_t handle = 0;
    uint8_t record[54];
    libc.fail_allocation(1);
    EXPECT_EQ(pldm_get_pdr(&ctx, &handle, record, sizeof record), PLDM_PDR_NOT_FOUND);
    EXPECT_EQ(why(), "out of memory, in PLDM command 0x00");
}

TEST_F(PldmError, MessagesOfTheCallersOwnAreRememberedToo) {
    uint8_t buffer[8] = {};
    const test::Bytes message = hex("80 02 11");
    EXPECT_EQ(pldm_send(&ctx, 3, message.data(), 1), -1);
    EXPECT_EQ(why(), "not acknowledged, in PLDM command 0x11");
    EXPECT_EQ(pldm_send(&ctx, 2, message.data(), 1), -1);
    EXPECT_EQ(why(), "wrong argument");
    EXPECT_EQ(pldm_recv(&ctx, sizeof buffer, buffer), -1);
    EXPECT_EQ(why(), "no answer");
    EXPECT_EQ(pldm_recv(&ctx, sizeof buffer, nullptr), -1);
    EXPECT_EQ(why(), "wrong argument");
    EXPECT_EQ(pldm_transfer(&ctx, 2, 8, buffer, buffer), -1);
    EXPECT_EQ(why(), "wrong argument");
    ctx.last_error = {};
    EXPECT_EQ(pldm_transfer(&ctx, 3, 8, nullptr, buffer), -1);
    EXPECT_EQ(why(), "wrong argument");
    endpoint.answers.push_back(MctpAnswer::of({}));
    EXPECT_EQ(pldm_recv(&ctx, sizeof buffer, buffer), 0);
    EXPECT_EQ(why(), "no failure");
}

TEST_F(PldmError, AStrictContextTellsAnswersToSomethingElseAndAWrongTransferCrc) {
    endpoint.strict = MCTP_STRICT_PLDM;
    endpoint.answer({"1F 02 11 00 00 00 00 00 00 00 2A"});  // another instance ID, then nothing
    EXPECT_EQ(read(&reading), -1);
    EXPECT_EQ(why(), "only answers to something else came, in PLDM command 0x11");
    uint32_t handle = 0;
    uint8_t record[54];
    // The last of several parts: two bytes and a CRC that is not theirs.
    endpoint.answer({"01 02 51 00 00 00 00 00 01 00 00 00 01 02 00 AA BB",
                     "02 02 51 00 00 00 00 00 00 00 00 00 04 02 00 CC DD 00"});
    EXPECT_EQ(pldm_get_pdr(&ctx, &handle, record, sizeof record), -1);
    EXPECT_EQ(why(), "wrong checksum, in PLDM command 0x51");
}

TEST_F(PldmError, AFruTableOfAnotherLengthAndItsParts) {
    uint8_t table[8];
    const char* metadata = "00 04 01 00 01 00 00 00 00 00 08 00 00 00 01 00 01 00 00 00 00 00";
    endpoint.answer({metadata});
    EXPECT_EQ(pldm_get_FRU_record_table(&ctx, table, 7), -112);
    EXPECT_EQ(why(), "malformed answer, in PLDM command 0x01") << "of another length than before";
    endpoint.answer({metadata, "01 04 02 00 00 00 00 00 05 01"});
    EXPECT_EQ(pldm_get_FRU_record_table(&ctx, table, 0), -112);
    EXPECT_EQ(why(), "malformed answer, in PLDM command 0x02");
    endpoint.answer({metadata, "02 04 02 85"});
    EXPECT_EQ(pldm_get_FRU_record_table(&ctx, table, 0), -1);
    EXPECT_EQ(why(), "refused by the device: PLDM completion code 0x85, in PLDM command 0x02");
}

/// The table's one record: each memory that runs out, and a value that the table cuts.
TEST_F(PldmError, OfFruFieldsMemoryIsToldFromATableThatIsWrong) {
    const char* metadata = "00 04 01 00 01 00 00 00 00 00 0B 00 00 00 01 00 01 00 00 00 00 00";
    const std::string head = "01 04 02 00 00 00 00 00 05 01 00 01 02 01 ";
    const auto fields = [&](const std::string& rest) {
        endpoint.answers.clear();
        endpoint.answer({metadata, (head + rest + "00 00 00 00 00").c_str()});
        ctx.instance_id = 0;
        return pldm_get_FRU_fields(&ctx, 2);
    };
    EXPECT_EQ(fields("02 01 41 03 01 42 "), 0);
    EXPECT_EQ(why(), "no failure");
    for (int failing = 1; failing <= 2; ++failing) {
        libc.fail_allocation(failing);
        EXPECT_EQ(fields("02 01 41 03 01 42 "), -2);
        EXPECT_EQ(why(), "out of memory, in PLDM command 0x02") << failing;
    }
    for (int failing = 3; failing <= 5; ++failing) {
        libc.fail_allocation(failing);
        EXPECT_EQ(fields("02 01 41 03 01 42 "), -112);
        EXPECT_EQ(why(), "out of memory, in PLDM command 0x02") << failing;
    }
    EXPECT_EQ(fields("02 01 41 03 09 42 "), -112);
    EXPECT_EQ(why(), "malformed answer, in PLDM command 0x02");
}

TEST_F(PldmError, AStrictFruReaderSaysWhatItCouldNotDoAndOfWhichCommand) {
    endpoint.strict = MCTP_STRICT_PLDM;
    endpoint.answer({"00 02 11 80"});
    EXPECT_EQ(read(&reading), -1);
    uint8_t table[4] = {};
    EXPECT_EQ(pldm_get_FRU_record_table_MX(&ctx, table, -1), -1);
    EXPECT_EQ(why(), "wrong argument");
    test::Bytes large(PLDM_FRU_TABLE_LENGTH_MAX + 1);
    EXPECT_EQ(pldm_get_FRU_record_table_MX(&ctx, large.data(), PLDM_FRU_TABLE_LENGTH_MAX + 1),
              -112);
    EXPECT_EQ(why(), "wrong argument") << "nothing was sent";
    for (int failing = 1; failing <= 2; ++failing) {
        libc.fail_allocation(failing);
        EXPECT_EQ(pldm_get_FRU_record_table_MX(&ctx, table, sizeof table), -112);
        EXPECT_EQ(why(), "out of memory, in PLDM command 0x02") << failing;
    }
}

// ---- Without an endpoint ----

class TerminusError : public test::PlatformTest {
protected:
    std::string why() const { return said(*pldm_last_error(&ctx)); }

    pldm_ctx ctx{};
};

TEST_F(TerminusError, WhatFailedInFrontOfTheEndpointIsRemembered) {
    mctp_ctx config = test::smbus_context();
    EXPECT_EQ(pldm_terminus_init(&ctx, nullptr), -112);
    EXPECT_EQ(why(), "wrong argument");
    libc.fail_allocation(1);
    EXPECT_EQ(pldm_terminus_init(&ctx, &config), -112);
    EXPECT_EQ(why(), "out of memory, in setting up the endpoint");
    port().main_power = 0;
    EXPECT_EQ(pldm_terminus_init(&ctx, &config), -1);
    EXPECT_EQ(why(), "no power, in MCTP control command 0x02");
    EXPECT_EQ(discover_pldm_terminus(&ctx, &config), -1);
    EXPECT_EQ(why(), "no power, in MCTP control command 0x02");
    config.binding_kind = 9;
    EXPECT_EQ(pldm_terminus_init(&ctx, &config), -1);
    EXPECT_EQ(why(), "wrong argument, in setting up the endpoint");
    uint32_t reading = 0;
    EXPECT_EQ(pldm_get_sensor_reading(&ctx, 1, &reading), -112);
    EXPECT_EQ(why(), "wrong argument");
}

TEST_F(TerminusError, WhatFailedStaysWhenTheEndpointIsGone) {
    mctp_ctx config = test::smbus_context();
    config.skip_discovery = 1;
    ASSERT_EQ(pldm_terminus_init(&ctx, &config), 0);
    EXPECT_EQ(why(), "no failure");
    port().write_results = {-ENXIO, -ENXIO, -ENXIO};
    EXPECT_NE(pldm_get_tid(&ctx), 0);
    EXPECT_EQ(said(ctx.mctp->last_error), "not acknowledged");
    EXPECT_EQ(pldm_terminus_deinit(&ctx), 0);
    EXPECT_EQ(why(), "not acknowledged, in PLDM command 0x02");
    EXPECT_EQ(ctx.last_error.detail, ENXIO);
}

TEST_F(TerminusError, OfAnUpdateThatDoesNotBeginTheReasonIsKept) {
    pldm_fw_update_ctx update{};
    const auto why_not = [&] { return said(*pldm_fw_update_last_error(&update)); };
    EXPECT_EQ(pldm_parse_file(nullptr, &update), -1);
    EXPECT_EQ(why_not(), "wrong argument");
    EXPECT_EQ(pldm_parse_file("/nv/absent", &update), -1);
    EXPECT_EQ(why_not(), "bad file, in the file");
    EXPECT_EQ(pldm_nic_update("/nv/absent", &update, nullptr, 0), -1);
    EXPECT_EQ(why_not(), "bad file, in the file");
    EXPECT_EQ(pldm_fw_update_init(&update, nullptr), -112);
    EXPECT_EQ(why_not(), "wrong argument");
    const mctp_ctx config = test::smbus_context();
    port().read_when_empty = test::SlaveRead::failure(-EBADMSG);
    EXPECT_EQ(pldm_fw_update_init(&update, &config), -1);
    EXPECT_EQ(why_not(), "wrong checksum, in MCTP control command 0x02");
    EXPECT_EQ(said(*pldm_fw_update_last_error(nullptr)), "wrong argument");
    EXPECT_EQ(pldm_free_ua_resource(&update), 0);
    EXPECT_EQ(why_not(), "wrong checksum, in MCTP control command 0x02");
}

TEST_F(PldmError, BehindTheTimeLimitACommandIsNotTriedAgain) {
    mctp_set_deadline(&endpoint, 1000);
    endpoint.on_call = [this] { libc.later_ms += 2000; };
    test::Bytes request = hex("80 05 1A 00");  // tried ten times if there is time
    uint8_t response[6] = {};
    EXPECT_EQ(pldm_transfer(&ctx, 4, sizeof response, request.data(), response), -1);
    EXPECT_EQ(endpoint.calls.size(), 1u);
    EXPECT_TRUE(libc.sleeps.empty());
    EXPECT_EQ(ctx.completion_code, PLDM_CC_RETRIES_EXHAUSTED);
    EXPECT_EQ(pldm_send(&ctx, 4, request.data(), 1), -1);
    EXPECT_EQ(endpoint.calls.size(), 2u);
    EXPECT_TRUE(libc.sleeps.empty());
}

}  // namespace
