// SPDX-License-Identifier: Apache-2.0
// State sensors: requests, fields taken, texts, results, and the request that is never released.
#include <gtest/gtest.h>
#include <sideband/pldm_monitor.h>

#include "pldm/pldm_fixture.h"

namespace {

using test::Bytes;
using test::MctpAnswer;
using test::Outcome;
using test::operator+;
using Texts = std::vector<std::string>;

Bytes bytes_of(const pldm_state_reading& reading) {
    return {reading.sensor_operational_state, reading.present_state, reading.previous_state,
            reading.event_state};
}

// ---- SetStateSensorEnables ----

class PldmSetStateSensorEnable : public test::PldmTest {
protected:
    /// The library never releases the request, so the test does.
    ~PldmSetStateSensorEnable() override { libc.release_blocks(); }

    Outcome enable(uint8_t count, uint8_t state = 1, uint8_t event = 2) {
        return test::run(
            [&] { return pldm_set_state_sensor_enable(&ctx, 0x1234, count, state, event); });
    }
};

constexpr const char* kStateEnableEnd =
    "===================================\n"
    "====== set state sensor enable Resp =====\n";

TEST_F(PldmSetStateSensorEnable, EightSensorsMakeARequestOf22Bytes) {
    endpoint.answer({"00 02 20 00"});
    const Outcome outcome = enable(8);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(endpoint.messages(),
              Texts{"80 02 20 34 12 08 01 02 01 02 01 02 01 02 01 02 01 02 01 02 01 02"});
    EXPECT_EQ(endpoint.calls[0].capacity, 4);
    EXPECT_EQ(outcome.out, std::string("====== set state sensor enable Req: len 22=====\n"
                                       " 80 02 20 34 12 08 01 02 01 02 01 02 01 02 01 02\n"
                                       " 01 02 01 02 01 02\n") +
                               kStateEnableEnd +
                               " 00 02 20 00\n"
                               "====================================\n");
    EXPECT_EQ(test::port().console, (Texts{"pldm_set_state_sensor_enable req_len =22\n",
                                           "pldm set state sensor enable success\n"}));
}

TEST_F(PldmSetStateSensorEnable, NoSensorsMakeARequestOfSixBytes) {
    endpoint.answer({"00 02 20 00"});
    const Outcome outcome = enable(0);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(endpoint.messages(), Texts{"80 02 20 34 12 00"});
    EXPECT_TRUE(
        outcome.out.starts_with("====== set state sensor enable Req: len 6=====\n"
                                " 80 02 20 34 12 00\n"))
        << outcome.out;
    EXPECT_EQ(test::port().console[0], "pldm_set_state_sensor_enable req_len =6\n");
}

TEST_F(PldmSetStateSensorEnable, NineSensorsAreRefusedOnTheConsole) {
    const Outcome outcome = enable(9);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(test::port().console,
              (Texts{"pldm_set_state_sensor_enable req_len =24\n", "invaild stats count: 9\n"}));
    EXPECT_TRUE(endpoint.calls.empty());
}

TEST_F(PldmSetStateSensorEnable, TheCountIsComparedUnsigned) {
    EXPECT_EQ(enable(255).result, -1);
    EXPECT_EQ(test::port().console,
              (Texts{"pldm_set_state_sensor_enable req_len =516\n", "invaild stats count: 255\n"}));
}

TEST_F(PldmSetStateSensorEnable, TheRequestIsNotReleasedOnAnyPath) {
    endpoint.answer({"00 02 20 00", "00 02 20 80"});
    enable(1);  // success
    EXPECT_EQ(libc.live_blocks(), 1u);
    enable(1);  // error answer
    EXPECT_EQ(libc.live_blocks(), 2u);
    enable(1);  // no answer
    EXPECT_EQ(libc.live_blocks(), 3u);
    enable(9);  // too many sensors
    EXPECT_EQ(libc.live_blocks(), 4u);
    pass_through(0, test::hex("00 02 20 82"));
    enable(1);
    EXPECT_EQ(libc.live_blocks(), 5u);
}

TEST_F(PldmSetStateSensorEnable, ANegativeResultIsReturnedAsItIs) {
    pass_through(-57, {});
    const Outcome outcome = enable(1);
    EXPECT_EQ(outcome.result, -57);
    EXPECT_TRUE(outcome.out.ends_with("===================================\n"));
    EXPECT_EQ(outcome.out.find("Resp"), std::string::npos);
    EXPECT_EQ(test::port().console, Texts{"pldm_set_state_sensor_enable req_len =8\n"});
}

TEST_F(PldmSetStateSensorEnable, CodesThatWerePassedThroughAreNamedOnTheConsole) {
    pass_through(0, test::hex("00 02 20 80"));
    EXPECT_EQ(enable(1).result, -1);
    EXPECT_EQ(test::port().console.back(),
              "pldm set state sensor enable fail: PLDM_MONITOR_INVALID_SENSOR_ID\n");
    pass_through(0, test::hex("00 02 20 82"));
    EXPECT_EQ(enable(1).result, -1);
    EXPECT_EQ(test::port().console.back(),
              "pldm set state sensor enable fail: PLDM_MONITOR_EVENT_GENERATION_NOT_SUPPORTED\n");
}

TEST_F(PldmSetStateSensorEnable, AnotherCodeThatWasPassedThroughGivesTheResultOfTheTransfer) {
    pass_through(3, test::hex("00 02 20 81"));
    EXPECT_EQ(enable(1).result, 3);
    EXPECT_EQ(test::port().console, Texts{"pldm_set_state_sensor_enable req_len =8\n"});
}

TEST_F(PldmSetStateSensorEnable, AnErrorAnswerEndsTheExchangeBeforeItsNameIsPrinted) {
    endpoint.answer({"00 02 20 80"});
    EXPECT_EQ(enable(1).result, -1);
    EXPECT_EQ(ctx.completion_code, 0x80);
    EXPECT_EQ(test::port().console, Texts{"pldm_set_state_sensor_enable req_len =8\n"});
}

TEST_F(PldmSetStateSensorEnable, AFailedAllocationIsABadArgument) {
    libc.fail_allocation(1);
    const Outcome outcome = enable(1);
    EXPECT_EQ(outcome.result, -112);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(test::port().console, Texts{"pldm_set_state_sensor_enable req_len =8\n"});
    EXPECT_TRUE(endpoint.calls.empty());
}

TEST_F(PldmSetStateSensorEnable, NullContextAndMissingOperationAreBadArguments) {
    EXPECT_EQ(pldm_set_state_sensor_enable(nullptr, 1, 1, 0, 0), -112);
    ctx.transfer_op = nullptr;
    EXPECT_EQ(enable(1).result, -112);
    EXPECT_EQ(test::port().console, Texts());
    EXPECT_EQ(libc.live_blocks(), 0u);
}

// ---- GetStateSensorReadings ----

class PldmGetStateSensorReading : public test::PldmTest {
protected:
    Outcome read() {
        return test::run([&] { return pldm_get_state_sensor_reading(&ctx, 0x1234, &out); });
    }

    pldm_state_reading out{0xE0, 0xE1, 0xE2, 0xE3};
    const Bytes untouched = test::hex("e0 e1 e2 e3");
};

TEST_F(PldmGetStateSensorReading, FirstEnabledFieldGivesItsThreeStates) {
    endpoint.answer({"00 02 21 00 03 01 0a 0b 0c 00 14 15 16 00 1e 1f 20"});
    const Outcome outcome = read();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(bytes_of(out), test::hex("e0 14 15 16"));
    EXPECT_EQ(outcome.out,
              "====== get State reading Req =====\n"
              "===================================\n"
              "====== get State reading Resp =====\n"
              "====================================\n"
              "compositeSensorCount = 3\n");
    EXPECT_EQ(endpoint.messages(), Texts{"80 02 21 34 12 00 00"});
    EXPECT_EQ(endpoint.calls[0].capacity, 37);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmGetStateSensorReading, WithoutAnEnabledFieldItSucceedsAndLeavesTheOutputAlone) {
    endpoint.answer({"00 02 21 00 02 01 0a 0b 0c 02 14 15 16"});
    EXPECT_EQ(read().result, 0);
    EXPECT_EQ(bytes_of(out), untouched);
}

TEST_F(PldmGetStateSensorReading, FieldsBehindTheCountAreNotLookedAt) {
    endpoint.answer({"00 02 21 00 01 01 0a 0b 0c 00 14 15 16", "00 02 21 00 00 00 14 15 16"});
    EXPECT_EQ(read().result, 0);
    EXPECT_EQ(bytes_of(out), untouched);
    EXPECT_EQ(read().result, 0);
    EXPECT_EQ(bytes_of(out), untouched);
}

TEST_F(PldmGetStateSensorReading, TheScanEndsAtEightFieldsWhateverTheCountSays) {
    Bytes answer = test::hex("00 02 21 00 ff");
    for (int i = 0; i < 8; i++) {
        answer = answer + test::hex("01 0a 0b 0c");
    }
    endpoint.answers.push_back(MctpAnswer::of(answer));
    const Outcome outcome = read();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_TRUE(outcome.out.ends_with("compositeSensorCount = 255\n"));
    EXPECT_EQ(bytes_of(out), untouched);
}

TEST_F(PldmGetStateSensorReading, TheEighthFieldCanBeTheOne) {
    Bytes answer = test::hex("00 02 21 00 08");
    for (int i = 0; i < 7; i++) {
        answer = answer + test::hex("01 0a 0b 0c");
    }
    endpoint.answers.push_back(MctpAnswer::of(answer + test::hex("00 14 15 16")));
    EXPECT_EQ(read().result, 0);
    EXPECT_EQ(bytes_of(out), test::hex("e0 14 15 16"));
}

TEST_F(PldmGetStateSensorReading, AnAnswerWithoutAFieldThatIsNeededIsRefused) {
    const char* const truncated[] = {"00 02 21 00", "00 02 21 00 01", "00 02 21 00 01 00 14 15",
                                     "00 02 21 00 02 01 0a 0b 0c 00 14 15"};
    for (const char* answer : truncated) {
        test::port().syslog.clear();
        endpoint.answer({answer});
        EXPECT_EQ(read().result, -1) << answer;
        EXPECT_EQ(bytes_of(out), untouched) << answer;
        EXPECT_EQ(test::port().syslog,
                  Texts{"pldm_get_state_sensor_reading, response of " +
                        std::to_string(test::hex(answer).size()) + " bytes is too short\n"});
    }
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmGetStateSensorReading, AFieldThatIsNotNeededMayBeMissing) {
    endpoint.answer({"00 02 21 00 02 00 14 15 16 00"});
    EXPECT_EQ(read().result, 0);
    EXPECT_EQ(bytes_of(out), test::hex("e0 14 15 16"));
}

TEST_F(PldmGetStateSensorReading, ANegativeResultIsReturnedAsItIs) {
    pass_through(-57, {});
    const Outcome outcome = read();
    EXPECT_EQ(outcome.result, -57);
    EXPECT_EQ(outcome.out,
              "====== get State reading Req =====\n"
              "===================================\n");
    EXPECT_EQ(bytes_of(out), untouched);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmGetStateSensorReading, BadArgumentsAndAFailedAllocationFail) {
    EXPECT_EQ(pldm_get_state_sensor_reading(nullptr, 1, &out), -1);
    EXPECT_EQ(pldm_get_state_sensor_reading(&ctx, 1, nullptr), -1);
    libc.fail_allocation(1);
    Outcome outcome = read();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    ctx.transfer_op = nullptr;
    outcome = read();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(endpoint.calls.empty());
    EXPECT_EQ(bytes_of(out), untouched);
}

// ---- GetStateSensorReadings, one position ----

class PldmStateReadingFromHealth : public test::PldmTest {
protected:
    int32_t read(uint8_t index) {
        const Outcome outcome = test::run(
            [&] { return pldm_get_state_sensor_reading_from_HEALTH(&ctx, 0x1234, &out, index); });
        EXPECT_EQ(outcome.out.find("======"), std::string::npos) << outcome.out;
        return outcome.result;
    }

    pldm_state_reading out{0xE0, 0xE1, 0xE2, 0xE3};
    const Bytes untouched = test::hex("e0 e1 e2 e3");
};

TEST_F(PldmStateReadingFromHealth, TheWholeFieldAtThePositionIsCopied) {
    endpoint.answer({"00 02 21 00 02 01 0a 0b 0c 00 14 15 16"});
    EXPECT_EQ(read(1), 0);
    EXPECT_EQ(bytes_of(out), test::hex("00 14 15 16"));
    EXPECT_EQ(endpoint.messages(), Texts{"80 02 21 34 12 00 00"});
    EXPECT_EQ(endpoint.calls[0].capacity, 37);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmStateReadingFromHealth, APositionEqualToTheCountIsNotFound) {
    endpoint.answer({"00 02 21 00 02 00 0a 0b 0c 00 14 15 16 00 1e 1f 20"});
    EXPECT_EQ(read(2), 144);
    EXPECT_EQ(bytes_of(out), untouched);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmStateReadingFromHealth, AFieldThatIsNotEnabledIsNotFound) {
    for (const char* state : {"01", "02", "ff"}) {
        endpoint.answer({std::string("00 02 21 00 01 ") + state + " 0a 0b 0c"});
        EXPECT_EQ(read(0), 144) << state;
        EXPECT_EQ(bytes_of(out), untouched);
    }
}

TEST_F(PldmStateReadingFromHealth, PositionsOutsideTheResponseAreNotFound) {
    const Bytes full = test::hex("00 02 21 00 ff") + Bytes(32, 0);
    for (uint8_t index : {8, 9, 255}) {
        endpoint.answers.push_back(MctpAnswer::of(full));
        EXPECT_EQ(read(index), 144) << int{index};
        EXPECT_EQ(bytes_of(out), untouched);
    }
    endpoint.answers.push_back(MctpAnswer::of(full));
    EXPECT_EQ(read(7), 0);
}

TEST_F(PldmStateReadingFromHealth, ATruncatedFieldIsNotFound) {
    for (const char* answer :
         {"00 02 21 00", "00 02 21 00 02", "00 02 21 00 02 00 0a 0b 0c 00 14 15"}) {
        endpoint.answer({answer});
        EXPECT_EQ(read(1), 144) << answer;
        EXPECT_EQ(bytes_of(out), untouched);
    }
}

TEST_F(PldmStateReadingFromHealth, ANegativeResultIsLoggedAndReturned) {
    pass_through(-57, {});
    EXPECT_EQ(read(0), -57);
    EXPECT_EQ(test::port().syslog,
              Texts{"pldm_get_state_sensor_reading_from_HEALTH, transfer() fail (-57)\n"});
    EXPECT_EQ(bytes_of(out), untouched);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmStateReadingFromHealth, ACodeThatWasPassedThroughIsTheResult) {
    pass_through(0, test::hex("00 02 21 05 01 00 0a 0b 0c"));
    EXPECT_EQ(read(0), 5);
    EXPECT_EQ(bytes_of(out), test::hex("00 0a 0b 0c"));
}

TEST_F(PldmStateReadingFromHealth, NullArgumentsAreLoggedAndRefused) {
    EXPECT_EQ(pldm_get_state_sensor_reading_from_HEALTH(nullptr, 1, &out, 0), -112);
    EXPECT_EQ(pldm_get_state_sensor_reading_from_HEALTH(&ctx, 1, nullptr, 0), -112);
    EXPECT_EQ(test::port().syslog,
              Texts(2, "pldm_get_state_sensor_reading_from_HEALTH, invalid parameters\n"));
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmStateReadingFromHealth, AMissingOperationIsRefusedWithoutAMessage) {
    ctx.transfer_op = nullptr;
    EXPECT_EQ(read(0), -112);
    EXPECT_EQ(test::port().syslog, Texts());
}

TEST_F(PldmStateReadingFromHealth, AFailedAllocationIsLoggedAndRefused) {
    libc.fail_allocation(1);
    EXPECT_EQ(read(0), -112);
    EXPECT_EQ(test::port().syslog,
              Texts{"pldm_get_state_sensor_reading_from_HEALTH, malloc() fail\n"});
    EXPECT_TRUE(endpoint.calls.empty());
}

}  // namespace
