// SPDX-License-Identifier: Apache-2.0
// Printing of decoded PDRs, every line to the letter.
#include <gtest/gtest.h>
#include <sideband/pldm_monitor.h>

#include <algorithm>
#include <cstring>

#include "pldm/pdr_records.h"
#include "pldm/pldm_fixture.h"
#include "support/numbers.h"

namespace {

using test::Bytes;

std::string joined(const std::vector<std::string>& messages) {
    std::string text;
    for (const std::string& message : messages) {
        text += message;
    }
    return text;
}

class PdrPrint : public test::PlatformTest {
protected:
    std::string print(const pldm_numeric_sensor_pdr* record) {
        test::port().syslog.clear();
        pldm_print_numeric_PDR(record);
        return joined(test::port().syslog);
    }
    std::string print(const pldm_state_sensor_pdr* record) {
        test::port().syslog.clear();
        pldm_print_state_PDR(record);
        return joined(test::port().syslog);
    }
    /// The lines behind the 13 that every state sensor begins with.
    std::string entries(const pldm_state_sensor_pdr& record) {
        const std::string text = print(&record);
        size_t at = 0;
        for (int line = 0; line < 13; line++) {
            at = text.find('\n', at) + 1;
        }
        return text.substr(at);
    }
};

// ---- pldm_print_numeric_PDR ----

TEST_F(PdrPrint, ANumericSensorTakesFortySixLines) {
    pldm_numeric_sensor_pdr record{};
    ASSERT_EQ(pldm_parse_numeric_sensor_pdr(test::numeric_pdr(2, 4).data(), &record), 0);
    record.resolution = test::wire_order(0.1F);  // 0x3DCCCCCD
    record.offset = test::wire_order(-0.1F);     // 0xBDCCCCCD
    EXPECT_EQ(print(&record),
              "record_handle         4B = 0x1234567\n"
              "pdr_header_version    1B = 0x1\n"
              "pdr_type              1B = 0x2\n"
              "record_change_number  2B = 0xabcd\n"
              "data_length           2B = 0x59\n"
              "terminus_handle       2B = 0x201\n"
              "sensor_id             2B = 0x403\n"
              "entity_type           2B = 0x605\n"
              "entity_instance_number2B = 0x807\n"
              "container_id          2B = 0xa09\n"
              "sensor_init           1B = 0x1\n"
              "sensor_desc_pdr       1B = 0xb\n"
              "base_unit             1B = 0x2\n"
              "unit_modifer          1B = 0xfe\n"
              "rate_unit             1B = 0x3\n"
              "base_oem_unit_handle  1B = 0xc\n"
              "aux_unit              1B = 0x5\n"
              "aux_unit_modifier     1B = 0xfd\n"
              "aux_rate_unit         1B = 0x6\n"
              "rel                   1B = 0x7\n"
              "aux_oem_unit_handle   1B = 0xd\n"
              "is_linear             1B = 0x1\n"
              "sensor_date_size      1B = 0x2\n"
              "resolution            4B = 0x3DCCCCCD\n"
              "offset                4B = 0xbdcccccd\n"
              "accuracy              2B = 0x12c\n"
              "plus_tolerance        1B = 0xe\n"
              "minus_tolerance       1B = 0xf\n"
              "hysteresis       PLDM xB = 0x201\n"
              "supported_thresholds  1B = 0x3f\n"
              "threshold_and_hystere 1B = 0x3e\n"
              "state_transition      4B = 0x3f800000\n"
              "update_interval       4B = 0x40400000\n"
              "max_readable          xB = 0x1211\n"
              "min_readable          xB = 0x2221\n"
              "range_field_format    1B = 0x4\n"
              "range_field_support;  1B = 0x7f\n"
              "nominal_value         1B = 0x34333231\n"
              "normal_max            xB = 0x44434241\n"
              "normal_min            xB = 0x54535251\n"
              "warning_high          x8 = 0x64636261\n"
              "warning_low           xB = 0x74737271\n"
              "critical_high         xB = 0x84838281\n"
              "critical_low          xB = 0x94939291\n"
              "fatal_high            xB = 0xa4a3a2a1\n"
              "fatal_low             xB = 0xb4b3b2b1\n");
    EXPECT_EQ(test::port().syslog.size(), 46u);
}

TEST_F(PdrPrint, AZeroedSlotShowsTheSingleByteOfANarrowValue) {
    pldm_numeric_sensor_pdr record{};
    ASSERT_EQ(pldm_parse_numeric_sensor_pdr(test::numeric_pdr(0, 0).data(), &record), 0);
    EXPECT_NE(print(&record).find("hysteresis       PLDM xB = 0x1\n"), std::string::npos);
}

TEST_F(PdrPrint, ASlotThatWasNotZeroedShowsWhatItHeld) {
    pldm_numeric_sensor_pdr record;
    std::memset(&record, 0xEE, sizeof record);
    ASSERT_EQ(pldm_parse_numeric_sensor_pdr(test::numeric_pdr(0, 2).data(), &record), 0);
    const std::string text = print(&record);
    EXPECT_NE(text.find("hysteresis       PLDM xB = 0xeeeeee01\n"), std::string::npos);
    EXPECT_NE(text.find("max_readable          xB = 0xeeeeee11\n"), std::string::npos);
    EXPECT_NE(text.find("fatal_low             xB = 0xeeeeb2b1\n"), std::string::npos);
}

TEST_F(PdrPrint, NanKeepsItsBits) {
    pldm_numeric_sensor_pdr record{};
    const Bytes nan = test::hex("01 00 a0 7f");  // signalling
    std::memcpy(reinterpret_cast<uint8_t*>(&record) + 33, nan.data(), 4);
    EXPECT_NE(print(&record).find("resolution            4B = 0x7FA00001\n"), std::string::npos);
}

TEST_F(PdrPrint, NullRecordsPrintNothing) {
    EXPECT_EQ(print(static_cast<const pldm_numeric_sensor_pdr*>(nullptr)), "");
    EXPECT_EQ(print(static_cast<const pldm_state_sensor_pdr*>(nullptr)), "");
}

// ---- pldm_print_state_PDR ----

TEST_F(PdrPrint, AStateSensorTakesThirteenLinesAndItsCompositeSensors) {
    const pldm_state_sensor_pdr record = test::state_record({{1, {0x03}}});
    EXPECT_EQ(print(&record),
              "record_handle         4B = 0x1234567\n"
              "pdr_header_version    1B = 0x1\n"
              "pdr_type              1B = 0x4\n"
              "record_change_number  2B = 0xabcd\n"
              "data_length           2B = 0x11\n"
              "terminus_handle       2B = 0x201\n"
              "sensor_id             2B = 0x403\n"
              "entity_type           2B = 0x605\n"
              "entity_instance_number2B = 0x807\n"
              "container_id          2B = 0xa09\n"
              "sensor_init           1B = 0x1\n"
              "sensor_auxiliar_name  1B = 0xb\n"
              "composite_sensor_count1B = 0x1\n"
              "setID =0x1, setSize =0x1\n"
              "p_pdr->state_sets[0].setID      = 0x1(HEALTH_STATE)\n"
              "p_pdr->state_sets[0].state_size = 0x1\n"
              "p_pdr->state_sets[0].states =0x3 \n");
}

TEST_F(PdrPrint, CompositeSensorsAreWalkedAsTheyLieInTheRecord) {
    EXPECT_EQ(entries(test::state_record({{257, {0xA0, 0x0B}}, {4, {}}})),
              "setID =0x101, setSize =0x2\n"
              "p_pdr->state_sets[0].setID      = 0x101(DEVICE_POWER_STATE)\n"
              "p_pdr->state_sets[0].state_size = 0x2\n"
              "p_pdr->state_sets[0].states =0xa0 0xb \n"
              "setID =0x4, setSize =0x0\n"
              "p_pdr->state_sets[1].setID      = 0x4()\n"
              "p_pdr->state_sets[1].state_size = 0x0\n"
              "p_pdr->state_sets[1].states =\n");
}

TEST_F(PdrPrint, NoCompositeSensorPrintsNoEntry) {
    EXPECT_EQ(entries(test::state_record({})), "");
}

TEST_F(PdrPrint, AnEntryThatFillsTheRecordIsPrintedWhole) {
    const std::string text = entries(test::state_record({{2, Bytes(38, 0x01)}}));
    EXPECT_EQ(std::count(text.begin(), text.end(), 'x'), 5 + 38 - 1);
    EXPECT_EQ(text.find("runs past"), std::string::npos);
}

TEST_F(PdrPrint, StatesThatRunPastTheRecordEndTheList) {
    const std::string text = entries(test::state_record({{2, Bytes(39, 0x01)}, {1, {3}}}));
    std::string states;
    for (int i = 0; i < 38; i++) {
        states += "0x1 ";
    }
    EXPECT_EQ(text,
              "setID =0x2, setSize =0x27\n"
              "p_pdr->state_sets[0].setID      = 0x2(AVALIABILITY)\n"
              "p_pdr->state_sets[0].state_size = 0x27\n"
              "p_pdr->state_sets[0].states =" +
                  states +
                  "\n"
                  "pldm_print_state_PDR, composite sensor 0 runs past the record\n");
}

TEST_F(PdrPrint, ACountThatRunsPastTheRecordEndsTheList) {
    pldm_state_sensor_pdr record = test::state_record({{1, Bytes(36, 0x01)}});
    record.composite_sensor_count = 255;
    const std::string text = entries(record);
    const std::string last = "\npldm_print_state_PDR, composite sensor 1 runs past the record\n";
    EXPECT_TRUE(text.ends_with(last)) << text;
    EXPECT_EQ(text.find("state_sets[1]"), std::string::npos);
}

// ---- dump_numeric_sensor_pdr ----

class PdrDump : public test::PlatformTest {};

TEST_F(PdrDump, PrintsSevenLinesOfFifteenBytes) {
    const Bytes bytes = test::counting(105);
    pldm_numeric_sensor_pdr record;
    std::memcpy(&record, bytes.data(), sizeof record);
    dump_numeric_sensor_pdr(&record);
    EXPECT_EQ(joined(test::port().console),
              " 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e\n"
              " 0f 10 11 12 13 14 15 16 17 18 19 1a 1b 1c 1d\n"
              " 1e 1f 20 21 22 23 24 25 26 27 28 29 2a 2b 2c\n"
              " 2d 2e 2f 30 31 32 33 34 35 36 37 38 39 3a 3b\n"
              " 3c 3d 3e 3f 40 41 42 43 44 45 46 47 48 49 4a\n"
              " 4b 4c 4d 4e 4f 50 51 52 53 54 55 56 57 58 59\n"
              " 5a 5b 5c 5d 5e 5f 60 61 62 63 64 65 66 67 68\n"
              "\n");
}

TEST_F(PdrDump, ANullRecordPrintsNothing) {
    dump_numeric_sensor_pdr(nullptr);
    EXPECT_TRUE(test::port().console.empty());
}

}  // namespace
