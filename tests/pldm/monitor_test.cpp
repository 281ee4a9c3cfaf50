// SPDX-License-Identifier: Apache-2.0
// Numeric sensors: requests, fields taken, texts, results, the count of disabled readings.
#include <gtest/gtest.h>
#include <sideband/pldm_monitor.h>

#include <utility>

#include "pldm/pldm_fixture.h"

namespace {

using test::Bytes;
using test::MctpAnswer;
using test::Outcome;
using Texts = std::vector<std::string>;

constexpr const char* kEnabledReading = "00 02 11 00 04 00 01 02 03 04 78 56 34 12";

class PldmMonitor : public test::PldmTest {
protected:
    /// An enabled reading sets the count of the process back, whatever ran before.
    void SetUp() override {
        uint32_t ignored = 0;
        endpoint.answer({kEnabledReading});
        ASSERT_EQ(test::run([&] { return pldm_get_sensor_reading(&ctx, 1, &ignored); }).result, 0);
        endpoint.calls.clear();
        ctx.instance_id = 0;
        test::port().console.clear();
    }
};

// ---- dump_packet ----

std::string dumped(const uint8_t* buffer, int32_t length) {
    return test::run([&] {
               dump_packet(buffer, length);
               return 0;
           })
        .out;
}

TEST(DumpPacket, SeventeenBytesTakeTwoLines) {
    const Bytes bytes = test::counting(17, 0xF0);
    EXPECT_EQ(dumped(bytes.data(), 17), " f0 f1 f2 f3 f4 f5 f6 f7 f8 f9 fa fb fc fd fe ff\n 00\n");
}

TEST(DumpPacket, SixteenBytesTakeOneLine) {
    const Bytes bytes = test::counting(16);
    EXPECT_EQ(dumped(bytes.data(), 16), " 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f\n");
}

TEST(DumpPacket, ThirtyThreeBytesTakeThreeLines) {
    const Bytes bytes(33, 0x0A);
    std::string line;
    for (int i = 0; i < 16; i++) {
        line += " 0a";
    }
    EXPECT_EQ(dumped(bytes.data(), 33), line + "\n" + line + "\n 0a\n");
}

TEST(DumpPacket, NoBytesPrintTheLineEndAlone) {
    const uint8_t byte = 1;
    EXPECT_EQ(dumped(&byte, 0), "\n");
    EXPECT_EQ(dumped(&byte, -1), "\n");
    EXPECT_EQ(dumped(&byte, INT32_MIN), "\n");
}

TEST(DumpPacket, ANullBufferPrintsNothing) {
    EXPECT_EQ(dumped(nullptr, 17), "");
    EXPECT_EQ(dumped(nullptr, 0), "");
}

// ---- SetNumericSensorEnable ----

class PldmSetNumericSensorEnable : public PldmMonitor {};

constexpr const char* kNumericRequestLines =
    "====== set numeric sensor enable Req =====\n"
    "===================================\n";
constexpr const char* kNumericResponseLines =
    "====== set numeric sensor enable Resp =====\n"
    "====================================\n";

TEST_F(PldmSetNumericSensorEnable, SendsSevenBytesAndPrintsItsBanners) {
    endpoint.answer({"00 02 10 00"});
    const Outcome outcome =
        test::run([&] { return pldm_set_numeric_sensor_enable(&ctx, 0x1234, 1, 2); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, std::string(kNumericRequestLines) + kNumericResponseLines +
                               "pldm set numeric sensor enable success\n");
    EXPECT_EQ(endpoint.messages(), Texts{"80 02 10 34 12 01 02"});
    EXPECT_EQ(endpoint.calls[0].capacity, 4);
}

TEST_F(PldmSetNumericSensorEnable, ANegativeResultIsReturnedAsItIs) {
    pass_through(-57, {});
    const Outcome outcome =
        test::run([&] { return pldm_set_numeric_sensor_enable(&ctx, 1, 0, 0); });
    EXPECT_EQ(outcome.result, -57);
    EXPECT_EQ(outcome.out, kNumericRequestLines);
}

TEST_F(PldmSetNumericSensorEnable, ACodeThatWasPassedThroughGivesTheResultOfTheTransfer) {
    pass_through(3, test::hex("00 02 10 80"));
    const Outcome outcome =
        test::run([&] { return pldm_set_numeric_sensor_enable(&ctx, 1, 0, 0); });
    EXPECT_EQ(outcome.result, 3);
    EXPECT_EQ(outcome.out, std::string(kNumericRequestLines) + kNumericResponseLines);
}

TEST_F(PldmSetNumericSensorEnable, NullContextAndMissingOperationAreBadArguments) {
    ctx.transfer_op = nullptr;
    for (pldm_ctx* target : {static_cast<pldm_ctx*>(nullptr), &ctx}) {
        const Outcome outcome =
            test::run([&] { return pldm_set_numeric_sensor_enable(target, 1, 0, 0); });
        EXPECT_EQ(outcome.result, -112);
        EXPECT_EQ(outcome.out, "");
    }
}

// ---- GetSensorReading ----

class PldmGetSensorReading : public PldmMonitor {
protected:
    Outcome read(uint16_t sensor_id = 0x012C) {
        return test::run([&] { return pldm_get_sensor_reading(&ctx, sensor_id, &reading); });
    }
    /// One reading whose sensor is in this state.
    static std::string in_state(const char* state) {
        return std::string("00 02 11 00 04 ") + state + " 00 01 01 01 11 22 33 44";
    }

    uint32_t reading = 0xEEEEEEEE;
};

TEST_F(PldmGetSensorReading, StoresTheReadingAndPrintsBothMessages) {
    endpoint.answer({kEnabledReading});
    const Outcome outcome = read();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(reading, 0x12345678u);
    EXPECT_EQ(outcome.out,
              "====== get Sensor reading Req =====\n"
              " 80 02 11 2c 01 00\n"
              "===================================\n"
              "====== get Sensor reading Resp =====\n"
              " 00 02 11 00 04 00 01 02 03 04 78 56 34 12\n"
              "====================================\n");
    EXPECT_EQ(endpoint.messages(), Texts{"80 02 11 2c 01 00"});
    EXPECT_EQ(endpoint.calls[0].capacity, 14);
}

TEST_F(PldmGetSensorReading, ANarrowReadingIsZeroExtended) {
    endpoint.answer({"00 02 11 00 00 00 01 02 03 04 fe", "00 02 11 00 03 00 01 02 03 04 fe ff"});
    EXPECT_EQ(read().result, 0);
    EXPECT_EQ(reading, 0xFEu);
    EXPECT_EQ(read().result, 0);
    EXPECT_EQ(reading, 0xFFFEu);
}

TEST_F(PldmGetSensorReading, AllFourBytesAreDeliveredWhateverTheDataSizeSays) {
    for (const char* size : {"00", "01", "02", "03", "04", "05", "06", "ff"}) {
        endpoint.answer({std::string("00 02 11 00 ") + size + " 00 01 02 03 04 78 56 34 12"});
        reading = 0;
        EXPECT_EQ(read().result, 0) << size;
        EXPECT_EQ(reading, 0x12345678u) << size;
    }
}

TEST_F(PldmGetSensorReading, AnAnswerShorterThanItsDataSizeIsRefused) {
    const std::pair<const char*, size_t> needed[] = {{"00", 11}, {"01", 11}, {"02", 12},
                                                     {"03", 12}, {"04", 14}, {"05", 14}};
    for (const auto& [size, length] : needed) {
        const Bytes whole =
            test::hex(std::string("00 02 11 00 ") + size + " 00 01 02 03 04 78 56 34 12");
        for (size_t part = 4; part <= whole.size(); part++) {
            reading = 0xEEEEEEEE;
            test::port().syslog.clear();
            endpoint.answers.push_back(
                MctpAnswer::of(Bytes(whole.begin(), whole.begin() + static_cast<long>(part))));
            const int32_t result = read().result;
            EXPECT_EQ(result, part >= length ? 0 : -1) << size << " " << part;
            EXPECT_EQ(reading == 0xEEEEEEEE, part < length) << size << " " << part;
            if (part >= 5 && part < length) {
                EXPECT_EQ(test::port().syslog,
                          Texts{"pldm_get_sensor_reading, response of " + std::to_string(part) +
                                " bytes is too short\n"});
            }
        }
    }
}

TEST_F(PldmGetSensorReading, TheEleventhReadingInARowThatIsNotEnabledFails) {
    for (int i = 1; i <= 10; i++) {
        endpoint.answer({in_state("01")});
        reading = 0xEEEEEEEE;
        EXPECT_EQ(read().result, 0) << i;
        EXPECT_EQ(reading, 0x44332211u) << i;
    }
    for (int i = 11; i <= 13; i++) {
        endpoint.answer({in_state("01")});
        reading = 0xEEEEEEEE;
        const Outcome outcome = read();
        EXPECT_EQ(outcome.result, -1) << i;
        EXPECT_EQ(reading, 0xEEEEEEEEu) << i;
        EXPECT_TRUE(outcome.out.ends_with("====================================\n"));
    }
    endpoint.answer({kEnabledReading, in_state("01")});
    EXPECT_EQ(read().result, 0);
    EXPECT_EQ(reading, 0x12345678u);
    EXPECT_EQ(read().result, 0);
    EXPECT_EQ(reading, 0x44332211u);
}

TEST_F(PldmGetSensorReading, TheCountIsOfTheProcessNotOfASensorOrAContext) {
    test::FakeEndpoint other_endpoint;
    pldm_ctx other{};
    ASSERT_EQ(mctp_pldm_register(&other_endpoint, &other), 0);
    for (int i = 0; i < 5; i++) {
        endpoint.answer({in_state("02")});
        other_endpoint.answer({in_state("0a")});
        EXPECT_EQ(read(1).result, 0);
        EXPECT_EQ(test::run([&] { return pldm_get_sensor_reading(&other, 2, &reading); }).result,
                  0);
    }
    other_endpoint.answer({in_state("ff")});
    EXPECT_EQ(test::run([&] { return pldm_get_sensor_reading(&other, 3, &reading); }).result, -1);
}

TEST_F(PldmGetSensorReading, FailuresAndTruncatedAnswersDoNotCount) {
    for (int i = 0; i < 10; i++) {
        endpoint.answer({in_state("01")});
        EXPECT_EQ(read().result, 0);
    }
    endpoint.answers.push_back(MctpAnswer::failure());
    EXPECT_EQ(read().result, -1);
    // Truncated, although the state would set the count back.
    endpoint.answer({"00 02 11 00 04 00", in_state("01")});
    EXPECT_EQ(read().result, -1);
    EXPECT_EQ(read().result, -1);
}

TEST_F(PldmGetSensorReading, ANegativeResultIsReturnedAsItIs) {
    pass_through(-57, {});
    const Outcome outcome = read();
    EXPECT_EQ(outcome.result, -57);
    EXPECT_EQ(outcome.out,
              "====== get Sensor reading Req =====\n"
              " 80 02 11 2c 01 00\n"
              "===================================\n");
    EXPECT_EQ(reading, 0xEEEEEEEEu);
}

TEST_F(PldmGetSensorReading, AnErrorAnswerLeavesTheCodeInTheContext) {
    endpoint.answer({"00 02 11 80"});
    const Outcome outcome = read();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_TRUE(outcome.out.ends_with("command:0x11 is not successful, completion code:0x80\n"));
    EXPECT_EQ(ctx.completion_code, 0x80);
    EXPECT_EQ(reading, 0xEEEEEEEEu);
}

TEST_F(PldmGetSensorReading, NullArgumentsAndAMissingOperationAreBadArguments) {
    EXPECT_EQ(pldm_get_sensor_reading(nullptr, 1, &reading), -112);
    EXPECT_EQ(pldm_get_sensor_reading(&ctx, 1, nullptr), -112);
    ctx.transfer_op = nullptr;
    const Outcome outcome = read();
    EXPECT_EQ(outcome.result, -112);
    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(endpoint.calls.empty());
}

}  // namespace
