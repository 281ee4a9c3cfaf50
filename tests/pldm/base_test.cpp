// SPDX-License-Identifier: Apache-2.0
// The PLDM discovery commands: requests, fields taken, texts, mismatches, several parts.
#include <gtest/gtest.h>
#include <sideband/pldm_monitor.h>

#include <algorithm>
#include <functional>
#include <utility>

#include "pldm/pldm_fixture.h"

namespace {

using test::Bytes;
using test::MctpAnswer;
using test::Outcome;
using test::operator+;
using Texts = std::vector<std::string>;

class PldmBase : public test::PldmTest {
protected:
    Bytes types() const { return Bytes(ctx.pldm_types, ctx.pldm_types + 8); }
    Bytes commands() const { return Bytes(ctx.base_commands, ctx.base_commands + 32); }
};

std::string too_short(const char* function, int length) {
    return std::string(function) + ", response of " + std::to_string(length) +
           " bytes is too short\n";
}

// ---- GetTID ----

class PldmGetTid : public PldmBase {};

TEST_F(PldmGetTid, StoresAndPrintsTheTerminusId) {
    endpoint.answer({"00 00 02 00 fe"});
    const Outcome outcome = test::run([&] { return pldm_get_tid(&ctx); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "get tid: 254\n");
    EXPECT_EQ(ctx.tid, 254);
    EXPECT_EQ(endpoint.messages(), Texts{"80 00 02"});
    EXPECT_EQ(endpoint.calls[0].capacity, 5);
    EXPECT_EQ(test::port().syslog, Texts());
}

TEST_F(PldmGetTid, ANullContextIsNamedOnStandardOutput) {
    const Outcome outcome = test::run([] { return pldm_get_tid(nullptr); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "[pldm_get_tid] Null ptr error.\n");
}

TEST_F(PldmGetTid, AMissingOperationIsRefusedWithoutAMessage) {
    ctx.transfer_op = nullptr;
    const Outcome outcome = test::run([&] { return pldm_get_tid(&ctx); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(test::port().syslog, Texts());
}

TEST_F(PldmGetTid, ANegativeResultIsLoggedAndReturned) {
    ctx.tid = 9;
    pass_through(-57, {});
    EXPECT_EQ(test::run([&] { return pldm_get_tid(&ctx); }).result, -57);
    EXPECT_EQ(test::port().syslog, Texts{"[pldm_get_tid] PLDM tx failed (-57)\n"});
    EXPECT_EQ(ctx.tid, 9);
}

TEST_F(PldmGetTid, AnErrorAnswerFailsWithTheCodeInTheContext) {
    ctx.tid = 9;
    endpoint.answer({"00 00 02 03"});
    EXPECT_EQ(test::run([&] { return pldm_get_tid(&ctx); }).result, -1);
    EXPECT_EQ(test::port().syslog, Texts{"[pldm_get_tid] PLDM tx failed (-1)\n"});
    EXPECT_EQ(ctx.completion_code, 3);
    EXPECT_EQ(ctx.tid, 9);
}

TEST_F(PldmGetTid, AnotherCommandInTheResponseIsLoggedAndRefused) {
    ctx.tid = 9;
    endpoint.answer({"00 00 03 00 2a"});
    const Outcome outcome = test::run([&] { return pldm_get_tid(&ctx); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(test::port().syslog, Texts{"call get tid, reqCode[2] respCode[3]\n"});
    EXPECT_EQ(ctx.tid, 9);
}

TEST_F(PldmGetTid, ACompletionCodeThatWasPassedThroughIsTheResult) {
    ctx.tid = 9;
    pass_through(0, test::hex("00 00 02 05 2a"));
    const Outcome outcome = test::run([&] { return pldm_get_tid(&ctx); });
    EXPECT_EQ(outcome.result, 5);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(ctx.tid, 9);
    EXPECT_EQ(asked_capacity, 5);
}

TEST_F(PldmGetTid, AnOperationThatTellsNoLengthCountsAsAFullResponse) {
    ctx.response_length = 0;
    pass_through(0, test::hex("00 00 02 00 2a"));
    EXPECT_EQ(test::run([&] { return pldm_get_tid(&ctx); }).result, 0);
    EXPECT_EQ(ctx.tid, 0x2A);
}

TEST_F(PldmGetTid, AnAnswerWithoutTheIdIsRefused) {
    ctx.tid = 9;
    endpoint.answer({"00 00 02 00"});
    const Outcome outcome = test::run([&] { return pldm_get_tid(&ctx); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(test::port().syslog, Texts{too_short("pldm_get_tid", 4)});
    EXPECT_EQ(ctx.tid, 9);
}

// ---- Operations of the caller's own ----

class PldmOwnOperation : public PldmBase {
protected:
    /// Commands of each kind, with the room that they have for an answer.
    std::vector<std::pair<int32_t, std::function<int32_t()>>> calls() {
        return {{5, [&] { return pldm_get_tid(&ctx); }},
                {17, [&] { return pldm_get_version(&ctx, 0); }},
                {12, [&] { return pldm_get_type(&ctx); }},
                {36, [&] { return pldm_get_commands(&ctx); }},
                {14, [&] { return pldm_get_sensor_reading(&ctx, 1, &reading); }},
                {143, [&] { return pldm_get_pdr(&ctx, &reading, record, sizeof record); }}};
    }

    uint32_t reading = 0xEEEEEEEE;
    uint8_t record[16];
};

TEST_F(PldmOwnOperation, TheLengthOfTheResponseIsPresetToTheCapacity) {
    static int32_t preset;
    ctx.transfer_op = [](pldm_ctx* target, uint32_t, int32_t capacity, uint8_t*, uint8_t*) {
        preset = target->response_length;
        EXPECT_EQ(preset, capacity);
        return -57;
    };
    for (const auto& [capacity, command] : calls()) {
        ctx.response_length = -1;
        EXPECT_EQ(test::run(command).result, -57);
        EXPECT_EQ(preset, capacity);
    }
}

TEST_F(PldmOwnOperation, AnAnswerWhoseLengthItLowersIsRefusedAsTruncated) {
    ctx.transfer_op = [](pldm_ctx* target, uint32_t, int32_t, uint8_t* request, uint8_t* response) {
        std::copy_n(request, 3, response);
        target->response_length = 4;
        return 0;
    };
    for (const auto& [capacity, command] : calls()) {
        EXPECT_EQ(test::run(command).result, -1) << capacity;
    }
    EXPECT_EQ(reading, 0xEEEEEEEEu);
}

TEST_F(PldmOwnOperation, AContextWithoutEndpointIsEnoughForIt) {
    pass_through(0, test::hex("00 00 02 00 2a"));
    ctx.mctp = nullptr;
    EXPECT_EQ(test::run([&] { return pldm_get_tid(&ctx); }).result, 0);
    EXPECT_EQ(ctx.tid, 0x2A);
}

TEST_F(PldmOwnOperation, CommandsThatPromiseNoCompletionCodeDoNotLookAtIt) {
    pass_through(0, test::hex("00 00 03 05 00 00 00 00 05 01 02 03 04"));
    EXPECT_EQ(test::run([&] { return pldm_get_version(&ctx, 0); }).result, 0);
    EXPECT_EQ(ctx.pldm_version, 0x04030201u);
    pass_through(0, test::hex("00 00 05 05 3e"));
    EXPECT_EQ(test::run([&] { return pldm_get_commands(&ctx); }).result, 0);
    EXPECT_EQ(ctx.base_commands[0], 0x3E);
    pass_through(0, test::hex("00 02 11 80 00 00 00 00 00 00 2a"));
    EXPECT_EQ(test::run([&] { return pldm_get_sensor_reading(&ctx, 1, &reading); }).result, 0);
    EXPECT_EQ(reading, 0x2Au);
    pldm_state_reading state{};
    pass_through(0, test::hex("00 02 21 80 01 00 05"));
    EXPECT_EQ(test::run([&] { return pldm_get_state_sensor_reading(&ctx, 1, &state); }).result, 0);
    EXPECT_EQ(state.present_state, 5);
}

// ---- GetPLDMTypes ----

class PldmGetType : public PldmBase {};

TEST_F(PldmGetType, StoresTheBitmapAndPrintsTheTypesOfItsFirstByte) {
    endpoint.answer({"00 00 04 00 3d 02 03 04 05 06 07 80"});
    const Outcome outcome = test::run([&] { return pldm_get_type(&ctx); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out,
              "0: PLDM control disvoery\n"
              "2: PLDM monitoring\n"
              "3: PLDM BIOS control configuration\n"
              "4: PLDM FRU data\n"
              "5: PLDM firmware update\n");
    EXPECT_EQ(test::port().syslog, Texts{"pldm_get_type, PLDM type support list: 0x3d\n"});
    EXPECT_EQ(types(), test::hex("3d 02 03 04 05 06 07 80"));
    EXPECT_EQ(endpoint.messages(), Texts{"80 00 04"});
    EXPECT_EQ(endpoint.calls[0].capacity, 12);
}

TEST_F(PldmGetType, AllEightBitsHaveNames) {
    endpoint.answer({"00 00 04 00 ff 00 00 00 00 00 00 00"});
    EXPECT_EQ(test::run([&] { return pldm_get_type(&ctx); }).out,
              "0: PLDM control disvoery\n"
              "1: PLDM SMBIOS\n"
              "2: PLDM monitoring\n"
              "3: PLDM BIOS control configuration\n"
              "4: PLDM FRU data\n"
              "5: PLDM firmware update\n"
              "6: Unknow PLDM type\n"
              "7: Unknow PLDM type\n");
    EXPECT_EQ(test::port().syslog, Texts{"pldm_get_type, PLDM type support list: 0xff\n"});
}

TEST_F(PldmGetType, BitsBehindTheFirstByteAreStoredButNotPrinted) {
    endpoint.answer({"00 00 04 00 00 ff ff ff ff ff ff ff"});
    const Outcome outcome = test::run([&] { return pldm_get_type(&ctx); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(test::port().syslog, Texts{"pldm_get_type, PLDM type support list: 0x0\n"});
    EXPECT_EQ(types(), test::hex("00 ff ff ff ff ff ff ff"));
}

TEST_F(PldmGetType, ANullContextIsNamedOnStandardOutput) {
    const Outcome outcome = test::run([] { return pldm_get_type(nullptr); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "[pldm_get_type] Null ptr error.\n");
}

TEST_F(PldmGetType, AMissingOperationIsRefusedWithoutAMessage) {
    ctx.transfer_op = nullptr;
    const Outcome outcome = test::run([&] { return pldm_get_type(&ctx); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
}

TEST_F(PldmGetType, ANegativeResultIsLoggedAndReturned) {
    pass_through(-57, {});
    EXPECT_EQ(test::run([&] { return pldm_get_type(&ctx); }).result, -57);
    EXPECT_EQ(test::port().syslog, Texts{"[pldm_get_type] PLDM tx failed (-57)\n"});
    EXPECT_EQ(types(), Bytes(8));
}

TEST_F(PldmGetType, AnotherCommandInTheResponseIsLoggedAndRefused) {
    endpoint.answer({"00 00 05 00 ff ff ff ff ff ff ff ff"});
    const Outcome outcome = test::run([&] { return pldm_get_type(&ctx); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(test::port().syslog, Texts{"call get type, reqCode[4] respCode[5]\n"});
    EXPECT_EQ(types(), Bytes(8));
}

TEST_F(PldmGetType, ACompletionCodeThatWasPassedThroughIsTheResultAfterThePrinting) {
    pass_through(0, test::hex("00 00 04 05 02 00 00 00 00 00 00 00"));
    const Outcome outcome = test::run([&] { return pldm_get_type(&ctx); });
    EXPECT_EQ(outcome.result, 5);
    EXPECT_EQ(outcome.out, "1: PLDM SMBIOS\n");
    EXPECT_EQ(test::port().syslog, Texts{"pldm_get_type, PLDM type support list: 0x2\n"});
    EXPECT_EQ(types(), Bytes(8));
}

TEST_F(PldmGetType, ATruncatedBitmapIsRefused) {
    endpoint.answer({"00 00 04 00 3d ff ff ff ff ff ff"});
    const Outcome outcome = test::run([&] { return pldm_get_type(&ctx); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(test::port().syslog, Texts{too_short("pldm_get_type", 11)});
    EXPECT_EQ(types(), Bytes(8));
}

// ---- GetPLDMVersion ----

class PldmGetVersion : public PldmBase {
protected:
    /// One part: handle of the next, flag, version, CRC-32 (which is not looked at).
    static std::string part(const std::string& next_handle, const char* flag,
                            const std::string& version) {
        return "00 00 03 00 " + next_handle + flag + version + "de ad be ef";
    }
};

TEST_F(PldmGetVersion, OnePartStoresTheVersionAsReceived) {
    endpoint.answer({part("00 00 00 00", "05", "01 f0 f1 f2")});
    const Outcome outcome = test::run([&] { return pldm_get_version(&ctx, 5); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "verion len : 17\n");
    EXPECT_EQ(ctx.pldm_version, 0xF2F1F001u);
    EXPECT_EQ(endpoint.messages(), Texts{"80 00 03 00 00 00 00 01 05"});
    EXPECT_EQ(endpoint.calls[0].capacity, 17);
    EXPECT_EQ(test::port().syslog, Texts());
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmGetVersion, StartThenEndTakesTwoPassesAndKeepsTheSecondPart) {
    endpoint.answer(
        {part("78 56 34 12", "01", "11 11 11 11"), part("00 00 00 00", "04", "22 33 44 55")});
    const Outcome outcome = test::run([&] { return pldm_get_version(&ctx, 2); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "verion len : 17\n");
    EXPECT_EQ(ctx.pldm_version, 0x55443322u);
    EXPECT_EQ(endpoint.messages(),
              (Texts{"80 00 03 00 00 00 00 01 02", "81 00 03 78 56 34 12 00 02"}));
    EXPECT_EQ(ctx.instance_id, 2);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmGetVersion, SevenMiddlePartsEndWithATimeout) {
    for (int i = 0; i < 8; i++) {
        endpoint.answer({part("0" + std::to_string(i) + " 00 00 00", "02",
                              "0" + std::to_string(i) + " 00 00 00")});
    }
    const Outcome outcome = test::run([&] { return pldm_get_version(&ctx, 0); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "verion len : 17\nGet Version Timeout\n");
    ASSERT_EQ(endpoint.calls.size(), 7u);
    EXPECT_EQ(endpoint.messages()[6], "86 00 03 05 00 00 00 00 00");
    EXPECT_EQ(ctx.pldm_version, 6u);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmGetVersion, TheSeventhPartMayBeTheLast) {
    for (int i = 0; i < 6; i++) {
        endpoint.answer({part("01 00 00 00", "02", "01 00 00 00")});
    }
    endpoint.answer({part("00 00 00 00", "04", "07 00 00 00")});
    const Outcome outcome = test::run([&] { return pldm_get_version(&ctx, 0); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "verion len : 17\n");
    EXPECT_EQ(ctx.pldm_version, 7u);
}

TEST_F(PldmGetVersion, EveryOtherTransferFlagAsksForTheNextPart) {
    for (const char* flag : {"00", "01", "02", "03", "06", "44", "ff"}) {
        endpoint.calls.clear();
        endpoint.answer(
            {part("01 00 00 00", flag, "01 00 00 00"), part("00 00 00 00", "05", "02 00 00 00")});
        EXPECT_EQ(test::run([&] { return pldm_get_version(&ctx, 0); }).result, 0) << flag;
        EXPECT_EQ(endpoint.calls.size(), 2u) << flag;
        EXPECT_EQ(ctx.pldm_version, 2u) << flag;
    }
}

TEST_F(PldmGetVersion, AnAnswerWithoutTheChecksumIsEnough) {
    endpoint.answer({"00 00 03 00 00 00 00 00 05 01 f0 f1 f2"});
    EXPECT_EQ(test::run([&] { return pldm_get_version(&ctx, 0); }).result, 0);
    EXPECT_EQ(ctx.pldm_version, 0xF2F1F001u);
}

TEST_F(PldmGetVersion, AnAnswerWithoutTheWholeVersionIsRefused) {
    ctx.pldm_version = 7;
    endpoint.answer({"00 00 03 00 00 00 00 00 05 01 f0 f1"});
    EXPECT_EQ(test::run([&] { return pldm_get_version(&ctx, 0); }).result, -1);
    EXPECT_EQ(ctx.pldm_version, 7u);
    EXPECT_EQ(test::port().syslog, Texts{too_short("pldm_get_version", 12)});
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmGetVersion, AFailureInALaterPassIsReturnedAndNothingLeaks) {
    endpoint.answer({part("01 00 00 00", "01", "11 00 00 00")});
    const Outcome outcome = test::run([&] { return pldm_get_version(&ctx, 0); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(ctx.pldm_version, 0x11u);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmGetVersion, ANegativeResultIsReturnedAsItIs) {
    pass_through(-57, {});
    EXPECT_EQ(test::run([&] { return pldm_get_version(&ctx, 0); }).result, -57);
    EXPECT_EQ(asked_capacity, 17);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmGetVersion, AFailedAllocationIsRefusedBeforeAnythingIsPrintedOrSent) {
    libc.fail_allocation(1);
    const Outcome outcome = test::run([&] { return pldm_get_version(&ctx, 0); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(endpoint.calls.empty());
}

TEST_F(PldmGetVersion, NullContextAndMissingOperationAreRefusedWithoutAMessage) {
    ctx.transfer_op = nullptr;
    for (pldm_ctx* target : {static_cast<pldm_ctx*>(nullptr), &ctx}) {
        const Outcome outcome = test::run([&] { return pldm_get_version(target, 0); });
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, "");
    }
    EXPECT_EQ(libc.allocations(), 0);
}

// ---- GetPLDMCommands ----

class PldmGetCommands : public PldmBase {};

TEST_F(PldmGetCommands, StoresTheBitmapOfTypeZero) {
    endpoint.answers.push_back(MctpAnswer::of(test::hex("00 00 05 00") + test::counting(32, 1)));
    const Outcome outcome = test::run([&] { return pldm_get_commands(&ctx); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "verion len : 36\n");
    EXPECT_EQ(commands(), test::counting(32, 1));
    EXPECT_EQ(endpoint.messages(), Texts{"80 00 05 00 00 00 00 00"});
    EXPECT_EQ(endpoint.calls[0].capacity, 36);
}

TEST_F(PldmGetCommands, CommandOfTheResponseIsNotCompared) {
    endpoint.answers.push_back(MctpAnswer::of(test::hex("00 00 7f 00") + test::counting(32, 1)));
    EXPECT_EQ(test::run([&] { return pldm_get_commands(&ctx); }).result, 0);
    EXPECT_EQ(commands(), test::counting(32, 1));
}

TEST_F(PldmGetCommands, ANegativeResultIsReturnedAsItIs) {
    pass_through(-57, {});
    const Outcome outcome = test::run([&] { return pldm_get_commands(&ctx); });
    EXPECT_EQ(outcome.result, -57);
    EXPECT_EQ(outcome.out, "verion len : 36\n");
    EXPECT_EQ(commands(), Bytes(32));
}

TEST_F(PldmGetCommands, ATruncatedBitmapIsRefused) {
    endpoint.answers.push_back(MctpAnswer::of(test::hex("00 00 05 00") + test::counting(31, 1)));
    EXPECT_EQ(test::run([&] { return pldm_get_commands(&ctx); }).result, -1);
    EXPECT_EQ(commands(), Bytes(32));
    EXPECT_EQ(test::port().syslog, Texts{too_short("pldm_get_commands", 35)});
}

TEST_F(PldmGetCommands, NullContextAndMissingOperationAreRefusedWithoutAMessage) {
    ctx.transfer_op = nullptr;
    for (pldm_ctx* target : {static_cast<pldm_ctx*>(nullptr), &ctx}) {
        const Outcome outcome = test::run([&] { return pldm_get_commands(target); });
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, "");
    }
}

// ---- Discovery ----

class PldmDiscovery : public PldmBase {};

TEST_F(PldmDiscovery, AsksForTheIdThenForTheTypes) {
    endpoint.answer({"00 00 02 00 2a", "01 00 04 00 05 00 00 00 00 00 00 00"});
    const Outcome outcome = test::run([&] { return pldm_discovery(&ctx); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "get tid: 42\n0: PLDM control disvoery\n2: PLDM monitoring\n");
    EXPECT_EQ(endpoint.messages(), (Texts{"80 00 02", "81 00 04"}));
    EXPECT_EQ(ctx.tid, 42);
    EXPECT_EQ(ctx.pldm_types[0], 5);
}

TEST_F(PldmDiscovery, AFailedGetTidIsReturnedAndTheTypesAreNotAskedFor) {
    endpoint.answers.push_back(MctpAnswer::failure());
    EXPECT_EQ(test::run([&] { return pldm_discovery(&ctx); }).result, -1);
    EXPECT_EQ(endpoint.messages(), Texts{"80 00 02"});
}

TEST_F(PldmDiscovery, ACompletionCodeOfGetTidThatWasPassedThroughIsTheResult) {
    pass_through(0, test::hex("00 00 02 05 00"));
    EXPECT_EQ(test::run([&] { return pldm_discovery(&ctx); }).result, 5);
}

TEST_F(PldmDiscovery, AFailedGetPldmTypesIsReturned) {
    endpoint.answer({"00 00 02 00 2a", "01 00 04 05"});
    EXPECT_EQ(test::run([&] { return pldm_discovery(&ctx); }).result, -1);
    EXPECT_EQ(ctx.tid, 42);
    EXPECT_EQ(ctx.completion_code, 5);
}

TEST_F(PldmDiscovery, ANullContextIsABadArgument) {
    const Outcome outcome = test::run([] { return pldm_discovery(nullptr); });
    EXPECT_EQ(outcome.result, -112);
    EXPECT_EQ(outcome.out, "");
}

TEST_F(PldmDiscovery, AContextWithoutOperationsFails) {
    pldm_ctx zeroed{};
    EXPECT_EQ(pldm_discovery(&zeroed), -1);
}

}  // namespace
