// SPDX-License-Identifier: Apache-2.0
// Recorded PLDM exchanges: the recorded request as it was, then the library's own command, whose
// result is compared with the reading of the bytes that came with the record.
//
// The device answers the library's request with the recorded response even if the recorded
// request was another one: sensors were rearmed (GetSensorReading with rearm 1, state sensors with
// 0x1f), commands were asked for another type or version, parts of PDRs were asked for that are
// longer than the library's, a request had two bytes too many. The answer has the same form in all
// of these, and the answer is what the library decodes.
#include <gtest/gtest.h>
#include <sideband/pldm.h>
#include <sideband/pldm_monitor.h>

#include <algorithm>
#include <map>

#include "traces/pdr_check.h"
#include "traces/record.h"
#include "traces/replay.h"

namespace {

using test::Bytes;
using test::expect_number;
using test::quietly;
using test::Record;
using test::ReplayTerminus;
using tool::Json;
using test::operator+;

/// The low five bits of a message's first byte.
uint8_t instance_of(const Bytes& message) {
    return message[0] & 0x1F;
}

bool succeeded(const Record& record) {
    return record.response_says.value("completion_code", -1) == 0;
}

uint16_t sensor_of(const Record& record) {
    return record.request_says.at("sensor_id").get<uint16_t>();
}

Bytes sensor_bytes(const Record& record) {
    const uint16_t id = sensor_of(record);
    return {static_cast<uint8_t>(id & 0xFF), static_cast<uint8_t>(id >> 8)};
}

/// Bit n of the bitmap for each n of the list.
Bytes bitmap(const Json& numbers, size_t size) {
    Bytes bits(size);
    for (const unsigned number : numbers.get<std::vector<unsigned>>()) {
        bits.at(number / 8) = static_cast<uint8_t>(bits.at(number / 8) | 1u << (number % 8));
    }
    return bits;
}

constexpr test::Field kFields[] = {
    {"GetPLDMVersion", "next_transfer_handle", 4},
    {"GetPLDMVersion", "transfer_flag", 8},
    {"GetSensorReading", "sensor_data_size", 4},
    {"GetSensorReading", "operational_state", 5},
    {"GetSensorReading", "event_message_enable", 6},
    {"GetSensorReading", "present_state", 7},
    {"GetSensorReading", "previous_state", 8},
    {"GetSensorReading", "event_state", 9},
    {"GetSensorThresholds", "sensor_data_size", 4},
    {"GetSensorHysteresis", "sensor_data_size", 4},
    {"GetSensorHysteresis", "hysteresis", 5},
    {"GetStateSensorReadings", "composite_count", 4},
};

/// What the record says of a whole response, beside what the library decodes.
void expect_reading(const Record& record, const Bytes& message) {
    const Json& says = record.response_says;
    expect_number(says, "completion_code", message.at(3));
    if (!says.contains("type")) {
        return;  // a malformed answer, of which no more was read
    }
    test::expect_first_byte(record, message.at(0));
    expect_number(says, "reserved_bit5", message.at(0) >> 5u & 1u);
    expect_number(says, "header_version", message.at(1) >> 6u);
    expect_number(says, "type", message.at(1) & 0x3Fu);
    expect_number(says, "command", message.at(2));
    if (succeeded(record)) {
        test::expect_fields(record, message, kFields);
    }
    if (record.command == "GetSensorThresholds") {
        const Json& thresholds =
            says.at("thresholds_upper_warning_critical_fatal_lower_warning_critical_fatal");
        EXPECT_EQ(Bytes(message.begin() + 5, message.end()), thresholds.get<Bytes>());
    }
}

/// The recorded request, byte for byte, through the context's own operation.
void exchange_as_recorded(const Record& record) {
    ReplayTerminus terminus({{record.request, record.response}});
    terminus.ctx.instance_id = instance_of(record.request);
    Bytes request = record.request;
    test::Guarded room(record.response.size() + 8, 0xEE);
    const int32_t result = quietly([&] {
        return terminus.ctx.transfer_op(&terminus.ctx, static_cast<uint32_t>(request.size()),
                                        static_cast<int32_t>(room.size()), request.data(),
                                        room.data());
    });
    EXPECT_EQ(request, record.request);
    EXPECT_EQ(result, succeeded(record) ? 0 : -1);
    EXPECT_EQ(terminus.ctx.response_length, static_cast<int32_t>(record.response.size()));
    Bytes expected = record.response;
    expected[0] = static_cast<uint8_t>((expected[0] & 0xE0) | instance_of(record.request));
    EXPECT_EQ(room.head(record.response.size()), expected);
    EXPECT_TRUE(room.untouched_from(record.response.size()));
    EXPECT_TRUE(room.intact());
    expect_reading(record, expected);
    if (!succeeded(record)) {
        expect_number(record.response_says, "completion_code", terminus.ctx.completion_code);
    }
    EXPECT_TRUE(terminus.locks_in_order());
}

// ---- The library's own commands ----

void get_tid(const Record& record) {
    ReplayTerminus terminus({{test::hex("80 00 02"), record.response}});
    EXPECT_EQ(quietly([&] { return pldm_get_tid(&terminus.ctx); }), 0);
    EXPECT_EQ(terminus.ctx.tid, record.response_says.at("tid"));
}

void get_types(const Record& record) {
    ReplayTerminus terminus({{test::hex("80 00 04"), record.response}});
    EXPECT_EQ(quietly([&] { return pldm_get_type(&terminus.ctx); }), 0);
    EXPECT_EQ(Bytes(terminus.ctx.pldm_types, terminus.ctx.pldm_types + 8),
              bitmap(record.response_says.at("types"), 8));
}

void get_commands(const Record& record) {
    ReplayTerminus terminus({{test::hex("80 00 05 00 00 00 00 00"), record.response}});
    EXPECT_EQ(quietly([&] { return pldm_get_commands(&terminus.ctx); }), 0);
    EXPECT_EQ(Bytes(terminus.ctx.base_commands, terminus.ctx.base_commands + 32),
              bitmap(record.response_says.at("commands"), 32));
}

void get_version(const Record& record) {
    const uint8_t type = record.request.at(8);
    // A malformed answer carries no flag that ends the transfer: the device gives it again for
    // the next part, whose handle is the one that it gave before.
    const Bytes handle(record.response.begin() + 4, record.response.begin() + 8);
    ReplayTerminus terminus(
        {{test::hex("80 00 03 00 00 00 00 01") + Bytes{type}, record.response},
         {test::hex("80 00 03") + handle + Bytes{0x00, type}, record.response}});
    const int32_t result = quietly([&] { return pldm_get_version(&terminus.ctx, type); });
    if (!record.response_says.contains("versions")) {
        EXPECT_EQ(result, -1);
        return;
    }
    EXPECT_EQ(result, 0);
    const Bytes version = test::hex(record.response_says.at("versions").at(0).get<std::string>());
    EXPECT_EQ(terminus.ctx.pldm_version,
              static_cast<uint32_t>(version.at(0) | version.at(1) << 8 | version.at(2) << 16) |
                  static_cast<uint32_t>(version.at(3)) << 24);
}

void get_sensor_reading(const Record& record) {
    ReplayTerminus terminus(
        {{test::hex("80 02 11") + sensor_bytes(record) + Bytes{0x00}, record.response}});
    uint32_t reading = 0xEEEEEEEE;
    EXPECT_EQ(quietly([&] {
                  return pldm_get_sensor_reading(&terminus.ctx, sensor_of(record), &reading);
              }),
              0);
    EXPECT_EQ(reading, record.response_says.at("present_reading").get<uint32_t>());
}

Bytes bytes_of(const pldm_state_reading& reading) {
    return {reading.sensor_operational_state, reading.present_state, reading.previous_state,
            reading.event_state};
}

/// The first enabled field, as GetStateSensorReadings of the library picks it.
void first_state_reading(pldm_ctx& ctx, const Record& record, const Json& fields) {
    pldm_state_reading out{0xE0, 0xE1, 0xE2, 0xE3};
    const auto enabled = std::find_if(fields.begin(), fields.end(),
                                      [](const Json& field) { return field.at(0) == 0; });
    Bytes expected = test::hex("e0 e1 e2 e3");
    if (enabled != fields.end()) {
        expected = enabled->get<Bytes>();
        expected.at(0) = 0xE0;
    }
    EXPECT_EQ(quietly([&] { return pldm_get_state_sensor_reading(&ctx, sensor_of(record), &out); }),
              succeeded(record) ? 0 : -1);
    EXPECT_EQ(bytes_of(out), expected);
}

void get_state_sensor_readings(const Record& record) {
    ReplayTerminus terminus(
        {{test::hex("80 02 21") + sensor_bytes(record) + Bytes{0x00, 0x00}, record.response}});
    const Json fields =
        record.response_says.value("fields_opstate_present_previous_event", Json::array());
    first_state_reading(terminus.ctx, record, fields);
    for (size_t index = 0; index <= fields.size(); index++) {
        SCOPED_TRACE(index);
        pldm_state_reading out{0xE0, 0xE1, 0xE2, 0xE3};
        const bool found = index < fields.size() && fields.at(index).at(0) == 0;
        const int32_t result = quietly([&] {
            return pldm_get_state_sensor_reading_from_HEALTH(&terminus.ctx, sensor_of(record), &out,
                                                             static_cast<uint8_t>(index));
        });
        EXPECT_EQ(result, !succeeded(record) ? -1 : found ? 0 : PLDM_SENSOR_NOT_FOUND);
        EXPECT_EQ(bytes_of(out), found ? fields.at(index).get<Bytes>() : test::hex("e0e1e2e3"));
    }
    if (!succeeded(record)) {
        expect_number(record.response_says, "completion_code", terminus.ctx.completion_code);
    }
}

using Check = void (*)(const Record&);

/// The commands that the library has a function for. The others go as recorded and no further.
const std::map<std::string, Check>& decoders() {
    static const std::map<std::string, Check> kAll = {
        {"GetTID", get_tid},
        {"GetPLDMVersion", get_version},
        {"GetPLDMTypes", get_types},
        {"GetPLDMCommands", get_commands},
        {"GetSensorReading", get_sensor_reading},
        {"GetStateSensorReadings", get_state_sensor_readings},
        {"GetPDRRepositoryInfo", test::check_repository_info},
        {"GetPDR", test::check_pdr},
    };
    return kAll;
}

/// @return what was done with the record: 1 for the request as recorded, 1 for the decoding
int exercise(const Record& record) {
    if (record.request.empty() || record.response.empty()) {
        return 0;
    }
    exchange_as_recorded(record);
    const auto decoder = decoders().find(record.command);
    if (decoder == decoders().end()) {
        return 1;
    }
    decoder->second(record);
    return 2;
}

class PldmTrace : public testing::TestWithParam<Record> {};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(PldmTrace);

TEST_P(PldmTrace, IsDecodedAsTheRecordSays) {
    EXPECT_GT(exercise(GetParam()), 0);
}

INSTANTIATE_TEST_SUITE_P(Recorded, PldmTrace, testing::ValuesIn(test::records_of("PLDM")),
                         test::test_name);

TEST(PldmTraces, NoRecordOfACoveredCommandIsLeftOut) {
    if (!test::have_records()) {
        GTEST_SKIP() << test::absence();
    }
    test::Counts as_recorded;
    test::Counts decoded;
    for (const Record& record : test::records_of("PLDM")) {
        const int done = exercise(record);
        as_recorded[record.command] += done >= 1 ? 1 : 0;
        if (done == 2) {
            decoded[record.command]++;
        }
    }
    const test::Counts without_decoder = {
        {"GetSensorHysteresis", 1}, {"GetSensorThresholds", 1}, {"SetTID", 1}};
    const test::Counts with_decoder = {{"GetPLDMCommands", 3},        {"GetPLDMTypes", 3},
                                       {"GetPLDMVersion", 5},         {"GetSensorReading", 16},
                                       {"GetStateSensorReadings", 3}, {"GetTID", 1},
                                       {"GetPDRRepositoryInfo", 2},   {"GetPDR", 16}};
    test::Counts all = without_decoder;
    all.insert(with_decoder.begin(), with_decoder.end());
    test::expect_all_exercised("PLDM", as_recorded, all);
    test::expect_all_exercised("PLDM", decoded, with_decoder);
}

}  // namespace
