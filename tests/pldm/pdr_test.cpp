// SPDX-License-Identifier: Apache-2.0
// PDR decoding: widths, slots, verbatim parts, dispatch, the search for a state set.
#include <gtest/gtest.h>
#include <sideband/pldm_monitor.h>

#include <cstring>

#include "pldm/pdr_records.h"
#include "pldm/pldm_fixture.h"
#include "support/numbers.h"

namespace {

using test::Bytes;
using test::Guarded;
using test::wire_order;
using Texts = std::vector<std::string>;

class PdrDecode : public test::PlatformTest {};

// ---- pldm_get_data_size ----

TEST(PdrDataSize, EveryCodeHasItsWidthAndAllOthersNone) {
    const int32_t widths[] = {1, 1, 2, 2, 4, 4, 4};
    for (unsigned code = 0; code <= 255; code++) {
        EXPECT_EQ(pldm_get_data_size(static_cast<uint8_t>(code)), code < 7 ? widths[code] : 0)
            << code;
    }
}

// ---- pldm_parse_numeric_sensor_pdr ----

/// Decodes into a record whose bytes all were fill before, and checks that it stays inside.
int32_t decode_numeric(const Bytes& raw, Guarded& out) {
    const int32_t result = pldm_parse_numeric_sensor_pdr(
        raw.data(), reinterpret_cast<pldm_numeric_sensor_pdr*>(out.data()));
    EXPECT_TRUE(out.intact());
    return result;
}

/// What a record of numeric_pdr() must look like, if it was filled with fill before.
Bytes decoded(uint8_t data_size, uint8_t range_format, uint8_t fill) {
    Bytes record = test::numeric_pdr(data_size, range_format);
    record.resize(45);
    const auto slot = [&](unsigned number, uint8_t format) {
        for (unsigned i = 0; i < 4; i++) {
            record.push_back(i < test::kWidths[format] ? static_cast<uint8_t>((number << 4 | 1) + i)
                                                       : fill);
        }
    };
    slot(0, data_size);
    for (uint8_t byte : test::hex("3f 3e 00 00 80 3f 00 00 40 40")) {
        record.push_back(byte);
    }
    slot(1, data_size);
    slot(2, data_size);
    record.push_back(range_format);
    record.push_back(0x7F);
    for (unsigned number = 3; number < 12; number++) {
        slot(number, range_format);
    }
    return record;
}

TEST(PdrNumericDecode, AllFormatsFillTheirSlotsAsFarAsTheyAreWide) {
    for (uint8_t data_size = 0; data_size < 7; data_size++) {
        for (uint8_t range_format = 0; range_format < 7; range_format++) {
            for (uint8_t fill : {0x00, 0xEE}) {
                SCOPED_TRACE(testing::Message() << int{data_size} << " " << int{range_format});
                Guarded out(sizeof(pldm_numeric_sensor_pdr), fill);
                // The raw record lies in memory of exactly its size.
                ASSERT_EQ(decode_numeric(test::numeric_pdr(data_size, range_format), out), 0);
                EXPECT_EQ(test::to_hex(out.head(105)),
                          test::to_hex(decoded(data_size, range_format, fill)));
            }
        }
    }
}

TEST(PdrNumericDecode, MembersOfTheFixedPartAreTheRecordsFields) {
    pldm_numeric_sensor_pdr record{};
    ASSERT_EQ(pldm_parse_numeric_sensor_pdr(test::numeric_pdr(2, 4).data(), &record), 0);
    EXPECT_EQ(wire_order(record.header.record_handle), 0x01234567u);
    EXPECT_EQ(record.header.header_version, 1);
    EXPECT_EQ(record.header.type, 2);
    EXPECT_EQ(wire_order(record.header.record_change_number), 0xABCD);
    EXPECT_EQ(wire_order(record.header.data_length), 45 + 2 + 10 + 4 + 2 + 36 - 10);
    EXPECT_EQ(wire_order(record.terminus_handle), 0x0201);
    EXPECT_EQ(wire_order(record.sensor_id), 0x0403);
    EXPECT_EQ(wire_order(record.entity_type), 0x0605);
    EXPECT_EQ(wire_order(record.entity_instance_number), 0x0807);
    EXPECT_EQ(wire_order(record.container_id), 0x0A09);
    EXPECT_EQ(record.sensor_init, 1);
    EXPECT_EQ(record.sensor_auxiliary_names_pdr, 11);
    EXPECT_EQ(record.base_unit, 2);
    EXPECT_EQ(record.unit_modifier, -2);
    EXPECT_EQ(record.rate_unit, 3);
    EXPECT_EQ(record.base_oem_unit_handle, 12);
    EXPECT_EQ(record.aux_unit, 5);
    EXPECT_EQ(record.aux_unit_modifier, -3);
    EXPECT_EQ(record.aux_rate_unit, 6);
    EXPECT_EQ(record.rel, 7);
    EXPECT_EQ(record.aux_oem_unit_handle, 13);
    EXPECT_EQ(record.is_linear, 1);
    EXPECT_EQ(record.sensor_data_size, 2);
    EXPECT_EQ(wire_order(record.resolution), 0.5F);
    EXPECT_EQ(wire_order(record.offset), 10.0F);
    EXPECT_EQ(wire_order(record.accuracy), 300);
    EXPECT_EQ(record.plus_tolerance, 14);
    EXPECT_EQ(record.minus_tolerance, 15);
}

TEST(PdrNumericDecode, MembersOfTheVariablePartAreTheRecordsFields) {
    pldm_numeric_sensor_pdr record{};
    ASSERT_EQ(pldm_parse_numeric_sensor_pdr(test::numeric_pdr(2, 4).data(), &record), 0);
    EXPECT_EQ(wire_order(record.hysteresis), 0x0201u);
    EXPECT_EQ(record.supported_thresholds, 0x3F);
    EXPECT_EQ(record.threshold_and_hysteresis_volatility, 0x3E);
    EXPECT_EQ(wire_order(record.state_transition_interval), 1.0F);
    EXPECT_EQ(wire_order(record.update_interval), 3.0F);
    EXPECT_EQ(wire_order(record.max_readable), 0x1211u);
    EXPECT_EQ(wire_order(record.min_readable), 0x2221u);
    EXPECT_EQ(record.range_field_format, 4);
    EXPECT_EQ(record.range_field_support, 0x7F);
    EXPECT_EQ(wire_order(record.nominal_value), 0x34333231u);
    EXPECT_EQ(wire_order(record.normal_max), 0x44434241u);
    EXPECT_EQ(wire_order(record.normal_min), 0x54535251u);
    EXPECT_EQ(wire_order(record.warning_high), 0x64636261u);
    EXPECT_EQ(wire_order(record.warning_low), 0x74737271u);
    EXPECT_EQ(wire_order(record.critical_high), 0x84838281u);
    EXPECT_EQ(wire_order(record.critical_low), 0x94939291u);
    EXPECT_EQ(wire_order(record.fatal_high), 0xA4A3A2A1u);
    EXPECT_EQ(wire_order(record.fatal_low), 0xB4B3B2B1u);
}

TEST(PdrNumericDecode, ANarrowValueIsNotSignExtended) {
    Bytes raw = test::numeric_pdr(1, 3);
    raw[45] = 0xFF;                  // hysteresis, sint8: -1
    raw[60] = 0xFE, raw[61] = 0xFF;  // nominalValue, sint16: -2
    pldm_numeric_sensor_pdr record{};
    ASSERT_EQ(pldm_parse_numeric_sensor_pdr(raw.data(), &record), 0);
    EXPECT_EQ(wire_order(record.hysteresis), 0xFFu);
    EXPECT_EQ(wire_order(record.nominal_value), 0xFFFEu);
}

TEST(PdrNumericDecode, AllNineRangeValuesAreReadWhateverIsSupported) {
    Bytes raw = test::numeric_pdr(0, 0);
    raw[59] = 0;  // rangeFieldSupport
    pldm_numeric_sensor_pdr record{};
    ASSERT_EQ(pldm_parse_numeric_sensor_pdr(raw.data(), &record), 0);
    EXPECT_EQ(record.range_field_support, 0);
    EXPECT_EQ(wire_order(record.nominal_value), 0x31u);
    EXPECT_EQ(wire_order(record.fatal_low), 0xB1u);
}

TEST(PdrNumericDecode, ADataSizeOfSevenOrMoreFailsBehindTheFixedPart) {
    for (unsigned code : {7u, 8u, 128u, 254u, 255u}) {
        Bytes raw = test::numeric_pdr();
        raw.resize(45);
        raw[32] = static_cast<uint8_t>(code);
        Guarded out(sizeof(pldm_numeric_sensor_pdr), 0xEE);
        EXPECT_EQ(decode_numeric(raw, out), -1) << code;
        EXPECT_EQ(out.head(45), raw);
        EXPECT_TRUE(out.untouched_from(45));
    }
}

TEST(PdrNumericDecode, ARangeFormatOfSevenOrMoreFailsBehindTheFieldsBeforeIt) {
    for (unsigned code : {7u, 8u, 128u, 254u, 255u}) {
        Bytes raw = test::numeric_pdr(4, 0);
        raw[67] = static_cast<uint8_t>(code);
        raw.resize(69);
        Guarded out(sizeof(pldm_numeric_sensor_pdr), 0xEE);
        EXPECT_EQ(decode_numeric(raw, out), -1) << code;
        EXPECT_EQ(out.head(69), raw);
        EXPECT_TRUE(out.untouched_from(69));
    }
}

TEST(PdrNumericDecode, ThePdrTypeIsNotLookedAt) {
    Bytes raw = test::numeric_pdr();
    raw[5] = 9;
    pldm_numeric_sensor_pdr record{};
    EXPECT_EQ(pldm_parse_numeric_sensor_pdr(raw.data(), &record), 0);
    EXPECT_EQ(record.header.type, 9);
}

TEST(PdrNumericDecode, NullArgumentsFail) {
    pldm_numeric_sensor_pdr record{};
    EXPECT_EQ(pldm_parse_numeric_sensor_pdr(nullptr, &record), -1);
    EXPECT_EQ(pldm_parse_numeric_sensor_pdr(test::numeric_pdr().data(), nullptr), -1);
}

// ---- pldm_parse_state_sensor_pdr ----

TEST(PdrStateDecode, TheFirstSixtyFourBytesAreCopied) {
    const Bytes raw = test::counting(64, 0x40);
    Guarded out(sizeof(pldm_state_sensor_pdr), 0xEE);
    EXPECT_EQ(pldm_parse_state_sensor_pdr(raw.data(),
                                          reinterpret_cast<pldm_state_sensor_pdr*>(out.data())),
              0);
    EXPECT_EQ(out.head(64), raw);
    EXPECT_TRUE(out.intact());
}

TEST(PdrStateDecode, MembersAreTheRecordsFields) {
    Bytes raw = test::state_pdr({{1, {0x03}}, {18, {0x07, 0x00}}});
    raw.resize(64);
    pldm_state_sensor_pdr record{};
    ASSERT_EQ(pldm_parse_state_sensor_pdr(raw.data(), &record), 0);
    EXPECT_EQ(wire_order(record.header.record_handle), 0x01234567u);
    EXPECT_EQ(record.header.type, 4);
    EXPECT_EQ(wire_order(record.header.data_length), 23 + 4 + 5 - 10);
    EXPECT_EQ(wire_order(record.terminus_handle), 0x0201);
    EXPECT_EQ(wire_order(record.sensor_id), 0x0403);
    EXPECT_EQ(wire_order(record.entity_type), 0x0605);
    EXPECT_EQ(wire_order(record.entity_instance_number), 0x0807);
    EXPECT_EQ(wire_order(record.container_id), 0x0A09);
    EXPECT_EQ(record.sensor_init, 1);
    EXPECT_EQ(record.sensor_auxiliary_names_pdr, 11);
    EXPECT_EQ(record.composite_sensor_count, 2);
    EXPECT_EQ(test::to_hex(std::span(record.entries).first(10)), "01 00 01 03 12 00 02 07 00 00");
}

TEST(PdrStateDecode, NullArgumentsCopyNothingAndSucceed) {
    pldm_state_sensor_pdr record{};
    EXPECT_EQ(pldm_parse_state_sensor_pdr(nullptr, &record), 0);
    EXPECT_EQ(wire_order(record.header.record_handle), 0u);
    EXPECT_EQ(pldm_parse_state_sensor_pdr(test::counting(64).data(), nullptr), 0);
    EXPECT_EQ(pldm_parse_state_sensor_pdr(nullptr, nullptr), 0);
}

// ---- pldm_parse_pdr ----

TEST_F(PdrDecode, TypeTwoIsANumericSensor) {
    Guarded out(sizeof(pldm_pdr), 0xEE);
    const Bytes raw = test::numeric_pdr(0, 6);
    EXPECT_EQ(pldm_parse_pdr(raw.data(), reinterpret_cast<pldm_pdr*>(out.data())), 0);
    EXPECT_EQ(test::to_hex(out.head(105)), test::to_hex(decoded(0, 6, 0xEE)));
    EXPECT_TRUE(out.intact());
    EXPECT_TRUE(test::port().console.empty());
}

TEST_F(PdrDecode, TypeTwoThatIsRefusedFails) {
    Bytes raw = test::numeric_pdr();
    raw[32] = 7;
    pldm_pdr record{};
    EXPECT_EQ(pldm_parse_pdr(raw.data(), &record), -1);
    EXPECT_TRUE(test::port().console.empty());
}

TEST_F(PdrDecode, TypeFourIsAStateSensor) {
    Guarded out(sizeof(pldm_pdr), 0xEE);
    Bytes raw = test::state_pdr({{1, {0x03}}});
    raw.resize(64);
    EXPECT_EQ(pldm_parse_pdr(raw.data(), reinterpret_cast<pldm_pdr*>(out.data())), 0);
    EXPECT_EQ(out.head(64), raw);
    EXPECT_TRUE(out.untouched_from(64));
    EXPECT_TRUE(test::port().console.empty());
}

TEST_F(PdrDecode, EveryOtherTypeIsReportedAndFails) {
    for (unsigned type = 0; type <= 255; type++) {
        if (type == 2 || type == 4) {
            continue;
        }
        test::port().console.clear();
        Bytes raw(6);
        raw[5] = static_cast<uint8_t>(type);
        Guarded out(sizeof(pldm_pdr), 0xEE);
        EXPECT_EQ(pldm_parse_pdr(raw.data(), reinterpret_cast<pldm_pdr*>(out.data())), -1) << type;
        EXPECT_EQ(test::port().console, Texts{"[pldm_parse_pdr] unknow the PDR type\n"});
        EXPECT_TRUE(out.untouched_from(0));
    }
}

TEST_F(PdrDecode, NullArgumentsFailWithoutAMessage) {
    pldm_pdr record{};
    EXPECT_EQ(pldm_parse_pdr(nullptr, &record), -1);
    EXPECT_EQ(pldm_parse_pdr(test::numeric_pdr().data(), nullptr), -1);
    EXPECT_TRUE(test::port().console.empty());
    EXPECT_TRUE(test::port().syslog.empty());
}

// ---- pldm_find_ctrl_state_set_idx ----

class PdrFind : public test::PlatformTest {
protected:
    static constexpr uint32_t kUntouched = 0xEEEEEEEE;

    int32_t find(uint16_t id, const pldm_state_sensor_pdr& record) {
        index = kUntouched;
        return pldm_find_ctrl_state_set_idx(id, &record, &index);
    }
    void expect_not_found(const Texts& messages) {
        EXPECT_EQ(index, kUntouched);
        EXPECT_EQ(test::port().syslog, messages);
    }

    uint32_t index = kUntouched;
};

TEST_F(PdrFind, TheSecondOfTwoIsAtOneAndAnotherIsNotFoundWithoutAMessage) {
    const pldm_state_sensor_pdr record = test::state_record({{1, {3, 0}}, {18, {1, 2, 3}}});
    EXPECT_EQ(find(18, record), 0);
    EXPECT_EQ(index, 1u);
    EXPECT_EQ(find(1, record), 0);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(find(257, record), 144);
    expect_not_found({});
}

TEST_F(PdrFind, TheFirstOfEqualStateSetsIsTaken) {
    EXPECT_EQ(find(7, test::state_record({{1, {}}, {7, {1}}, {7, {2}}})), 0);
    EXPECT_EQ(index, 1u);
}

TEST_F(PdrFind, BothBytesOfTheIdCount) {
    const pldm_state_sensor_pdr record = test::state_record({{0x0101, {1}}});
    EXPECT_EQ(find(0x0001, record), 144);
    EXPECT_EQ(find(0x0100, record), 144);
    EXPECT_EQ(find(0x0101, record), 0);
}

TEST_F(PdrFind, NoCompositeSensorIsNotFoundWithoutAMessage) {
    pldm_state_sensor_pdr record = test::state_record({{1, {3}}});
    record.composite_sensor_count = 0;
    EXPECT_EQ(find(1, record), 144);
    expect_not_found({});
}

TEST_F(PdrFind, AnEntryAtOffsetThirtyEightIsTheLastThatIsRead) {
    // 35 states behind three bytes: the next entry is the last three bytes of the record.
    pldm_state_sensor_pdr record = test::state_record({{1, Bytes(35)}, {18, {}}});
    EXPECT_EQ(find(18, record), 0);
    EXPECT_EQ(index, 1u);
    EXPECT_EQ(find(2, record), 144);
    expect_not_found({});
}

TEST_F(PdrFind, AnEntryAtOffsetThirtyNineIsOutOfBound) {
    pldm_state_sensor_pdr record = test::state_record({{1, Bytes(36)}, {18, {}}});
    EXPECT_EQ(find(18, record), 144);
    expect_not_found({"pldm_find_ctrl_state_set_idx, offset 39 out of bound\n"});
}

TEST_F(PdrFind, TheLargestEntryIsReportedWithItsOffset) {
    pldm_state_sensor_pdr record = test::state_record({{1, {}}});
    record.composite_sensor_count = 2;
    record.entries[2] = 255;
    EXPECT_EQ(find(18, record), 144);
    expect_not_found({"pldm_find_ctrl_state_set_idx, offset 258 out of bound\n"});
}

TEST_F(PdrFind, ALastEntryThatRunsPastTheRecordIsNotReported) {
    pldm_state_sensor_pdr record = test::state_record({{1, {}}});
    record.entries[2] = 255;
    EXPECT_EQ(find(18, record), 144);
    expect_not_found({});
}

TEST_F(PdrFind, MoreCompositeSensorsThanTheRecordHoldsAreOutOfBound) {
    pldm_state_sensor_pdr record = test::state_record({});
    std::memset(record.entries, 0, sizeof record.entries);
    record.composite_sensor_count = 255;
    EXPECT_EQ(find(18, record), 144);  // thirteen entries of three bytes
    expect_not_found({"pldm_find_ctrl_state_set_idx, offset 39 out of bound\n"});
}

TEST_F(PdrFind, ThirteenEmptyEntriesAreAllLookedAt) {
    const std::vector<test::Composite> sensors(13, test::Composite{5, {}});
    pldm_state_sensor_pdr record = test::state_record(sensors);
    record.entries[36] = 9;
    EXPECT_EQ(find(9, record), 0);
    EXPECT_EQ(index, 12u);
    EXPECT_EQ(find(8, record), 144);
    expect_not_found({});
}

TEST_F(PdrFind, NullArgumentsAreReported) {
    const pldm_state_sensor_pdr record = test::state_record({{1, {3}}});
    EXPECT_EQ(pldm_find_ctrl_state_set_idx(1, nullptr, &index), 144);
    EXPECT_EQ(pldm_find_ctrl_state_set_idx(1, &record, nullptr), 144);
    const char* message = "pldm_find_ctrl_state_set_idx, invalid parameter\n";
    expect_not_found({message, message});
}

}  // namespace
