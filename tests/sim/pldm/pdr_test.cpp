// SPDX-License-Identifier: Apache-2.0
// The PDR repository of the simulated PLDM terminus, byte by byte (DSP0248).
#include "terminus_fixture.h"

namespace {

using namespace sim_test;

class PdrRepository : public TerminusTest {
protected:
    static std::string le16(unsigned value) {
        return hex({static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8)});
    }
    static std::string le32(unsigned value) { return le16(value) + " " + le16(value >> 16); }

    /// A GetPDR request and its answer behind the completion code, or the whole answer.
    std::string get(unsigned record, unsigned transfer = 0, unsigned operation = 1,
                    unsigned count = 128, unsigned change = 0) {
        const std::string answer =
            pldm("80 02 51 " + le32(record) + " " + le32(transfer) + " " +
                 hex({static_cast<uint8_t>(operation)}) + " " + le16(count) + " " + le16(change));
        const std::string head = "00 02 51 00 ";
        return answer.starts_with(head) ? answer.substr(head.size()) : answer;
    }

    static std::string zeros(size_t count) {
        std::string text;
        for (size_t i = 0; i < count; i++) {
            text += " 00";
        }
        return text;
    }
};

TEST_F(PdrRepository, NumericSensorTellsAllOfItself) {
    open_terminus(R"("sensors": [
        {"kind": "numeric", "id": 1, "name": "asic", "data_size": 1, "signed": true,
         "unit": "degC", "entity": {"type": 68, "instance": 2, "container": 3}, "hysteresis": 2,
         "waveform": {"shape": "constant", "value": 20}, "normal": {"nominal": 40},
         "thresholds": {"upper_warning": 70, "upper_critical": 95, "lower_fatal": -40}}])");
    EXPECT_EQ(get(0),
              "00 00 00 00 00 00 00 00 05 60 00 "      // the last one, in one part
              "01 00 00 00 01 02 00 00 56 00 "         // common header
              "01 00 01 00 44 00 02 00 03 00 00 00 "   // terminus, sensor, entity
              "02 00 00 00 00 00 00 00 00 01 01 "      // degrees C, linear, sint8
              "00 00 80 3f 00 00 00 00 00 00 00 00 "   // resolution 1, offset 0
              "02 23 00 00 00 00 00 00 00 80 3f "      // hysteresis, thresholds, intervals
              "7f 80 06 49 "                           // readable, range format and support
              "00 00 20 42 00 00 00 00 00 00 00 00 "   // nominal, normal
              "00 00 8c 42 00 00 00 00 00 00 be 42 "   // warnings, critical high
              "00 00 00 00 00 00 00 00 00 00 20 c2");  // critical low, fatal
}

TEST_F(PdrRepository, UnitModifierScalesResolutionOffsetAndRange) {
    open_terminus(R"("sensors": [
        {"kind": "numeric", "id": 2, "data_size": 2, "unit": "V", "unit_modifier": -3,
         "resolution": 0.001, "offset": 0.25, "range_format": "uint16",
         "waveform": {"shape": "constant", "value": 0.85},
         "thresholds": {"upper_critical": 0.9, "lower_critical": 0.8}}])");
    EXPECT_EQ(get(1),
              "00 00 00 00 00 00 00 00 05 51 00 01 00 00 00 01 02 00 00 47 00 "
              "01 00 02 00 00 00 01 00 00 00 00 00 05 fd 00 00 00 00 00 00 00 01 02 "
              "00 00 80 3f 00 00 7a 43 00 00 00 00 00 00 12 00 00 00 00 00 00 00 80 3f "
              "ff ff 00 00 02 18 00 00 00 00 00 00 00 00 00 00 84 03 20 03 00 00 00 00");
    // The reading counts from the offset, and so do the thresholds.
    EXPECT_EQ(pldm("80 02 11 02 00 00"), "00 02 11 00 02 00 00 01 00 01 58 02");
    EXPECT_EQ(pldm("80 02 12 02 00"), "00 02 12 00 02 00 00 8a 02 00 00 00 00 26 02 00 00");
}

TEST_F(PdrRepository, EveryDataSizeAndRangeFormatHasItsWidth) {
    const char* const formats[] = {"uint8",  "sint8",  "uint16", "sint16",
                                   "uint32", "sint32", "real32"};
    const size_t widths[] = {1, 1, 2, 2, 4, 4, 4};
    for (size_t size = 0; size < 6; size++) {
        for (size_t format = 0; format < 7; format++) {
            SCOPED_TRACE(testing::Message() << "size " << size << " format " << format);
            sim::Board::use(nullptr);
            open_terminus(R"("sensors": [{"kind": "numeric", "id": 1, "data_size": )" +
                          std::to_string(widths[size]) + ", \"signed\": " +
                          (size % 2 != 0 ? "true" : "false") + ", \"range_format\": \"" +
                          formats[format] + R"(", "waveform": {"shape": "constant", "value": 1},
                          "thresholds": {"upper_warning": 5}}])");
            const std::vector<uint8_t> record = bytes(get(1).substr(33));
            const size_t length = 57 + 3 * widths[size] + 9 * widths[format];
            ASSERT_EQ(record.size(), length);
            EXPECT_EQ(record[8], length - 10);
            EXPECT_EQ(record[32], size);
            const size_t range = 55 + 3 * widths[size];
            EXPECT_EQ(record[range], format);
            const std::vector<uint8_t> five =
                format == 6 ? bytes("00 00 a0 40") : bytes("05 00 00 00");
            for (size_t i = 0; i < widths[format]; i++) {
                EXPECT_EQ(record[range + 2 + 3 * widths[format] + i], five[i]);
            }
        }
    }
}

TEST_F(PdrRepository, NegativeRangeValuesKeepTheirSign) {
    open_terminus(R"("sensors": [
        {"kind": "numeric", "id": 1, "data_size": 1, "signed": true, "range_format": "sint16",
         "waveform": {"shape": "constant", "value": 1},
         "thresholds": {"lower_warning": -10, "lower_critical": -20, "lower_fatal": -30},
         "normal": {"nominal": 0, "max": 9, "min": -9}}])");
    EXPECT_TRUE(get(1).ends_with("03 57 00 00 09 00 f7 ff 00 00 f6 ff 00 00 ec ff 00 00 e2 ff"))
        << get(1);
}

TEST_F(PdrRepository, BaseUnitFollowsFromTheUnitUnlessItIsGiven) {
    const std::pair<const char*, const char*> units[] = {
        {R"("unit": "W")", "07"}, {R"("unit": "rpm")", "13"},
        {R"("unit": "%")", "41"}, {R"("unit": "furlong")", "01"},
        {R"("name": "x")", "00"}, {R"("unit": "W", "base_unit": 66)", "42"}};
    for (const auto& [key, code] : units) {
        sim::Board::use(nullptr);
        open_terminus(std::string(R"("sensors": [{"kind": "numeric", "id": 1, )") + key +
                      R"(, "waveform": {"shape": "constant", "value": 1}}])");
        EXPECT_EQ(get(1).substr(33 + 3 * 22, 2), code) << key;
    }
}

TEST_F(PdrRepository, StateSensorTellsItsCompositeSensors) {
    open_terminus(R"("sensors": [
        {"kind": "state", "id": 7, "composites": [
            {"state_set": 33, "states": [1, 2]}, {"state_set": 1, "states": [1, 9, 3]}]}])");
    EXPECT_EQ(get(1),
              "00 00 00 00 00 00 00 00 05 20 00 01 00 00 00 01 04 00 00 16 00 "
              "01 00 07 00 00 00 01 00 00 00 00 00 02 21 00 01 06 01 00 02 0a 02");
}

TEST_F(PdrRepository, NamesAreRecordsOfTheirOwnWhereWanted) {
    open_terminus(R"("auxiliary_names": true, "sensors": [
        {"kind": "numeric", "id": 1, "name": "T1",
         "waveform": {"shape": "constant", "value": 1}},
        {"kind": "numeric", "id": 2, "waveform": {"shape": "constant", "value": 1}},
        {"kind": "state", "id": 3, "name": "L", "composites": [
            {"state_set": 33, "states": [1]}, {"state_set": 33, "states": [1]}]}])");
    EXPECT_EQ(get(1).substr(33 + 3 * 21, 2), "01");
    EXPECT_EQ(get(2),
              "03 00 00 00 00 00 00 00 05 19 00 02 00 00 00 01 06 00 00 0f 00 "
              "01 00 01 00 01 01 65 6e 00 00 54 00 31 00 00");
    EXPECT_EQ(get(3).substr(33 + 3 * 21, 2), "00");
    EXPECT_EQ(get(5),
              "00 00 00 00 00 00 00 00 05 1f 00 05 00 00 00 01 06 00 00 15 00 "
              "01 00 03 00 02 01 65 6e 00 00 4c 00 00 01 65 6e 00 00 4c 00 00");
}

TEST_F(PdrRepository, ASensorMayGoWithoutARecord) {
    open_terminus(R"("sensors": [
        {"kind": "numeric", "id": 1, "pdr": false, "waveform": {"shape": "constant", "value": 1}},
        {"kind": "state", "id": 2, "pdr": false,
         "composites": [{"state_set": 33, "states": [1]}]}])");
    EXPECT_EQ(get(0), "00 02 51 82");
    EXPECT_EQ(pldm("80 02 11 01 00 00").substr(0, 11), "00 02 11 00");
}

/// Sixty bytes that come in three parts, three hundred, exactly 128, one that cannot be decoded.
constexpr const char* kRaw = R"("pdrs": [
    {"type": 8, "hex": "0102030405", "length": 60, "change_number": 513, "part_size": 25},
    {"type": 2, "length": 300},
    {"type": 126, "hex": "c0ffee", "length": 128},
    {"type": 2, "hex": "0100"}])";

TEST_F(PdrRepository, ARecordOfThreePartsEndsWithItsCrc) {
    open_terminus(kRaw);
    EXPECT_EQ(get(0),
              "02 00 00 00 19 00 00 00 00 19 00 01 00 00 00 01 08 01 02 32 00 "
              "01 02 03 04 05" +
                  zeros(10));
    EXPECT_EQ(get(1, 25, 0, 128, 513), "02 00 00 00 32 00 00 00 01 19 00" + zeros(25));
    EXPECT_EQ(get(1, 50, 0, 128, 513), "02 00 00 00 00 00 00 00 04 0a 00" + zeros(10) + " 34");
}

TEST_F(PdrRepository, ALongRecordComesInPartsOfWhatWasAskedFor) {
    open_terminus(kRaw);
    EXPECT_EQ(get(2),
              "03 00 00 00 bc 00 00 00 00 80 00 02 00 00 00 01 02 00 00 22 01" + zeros(118));
    EXPECT_EQ(get(2, 188, 0), "03 00 00 00 3c 01 00 00 01 80 00" + zeros(128));
    EXPECT_EQ(get(2, 316, 0), "03 00 00 00 00 00 00 00 04 2c 00" + zeros(44) + " 77");
}

TEST_F(PdrRepository, ARecordOfExactly128BytesIsOnePart) {
    open_terminus(kRaw);
    EXPECT_EQ(get(3), "04 00 00 00 00 00 00 00 05 80 00 03 00 00 00 01 7e 00 00 76 00 c0 ff ee" +
                          zeros(115));
}

TEST_F(PdrRepository, ARecordMayBeTooShortForItsType) {
    open_terminus(kRaw);
    EXPECT_EQ(get(4), "00 00 00 00 00 00 00 00 05 0c 00 04 00 00 00 01 02 00 00 02 00 01 00");
}

TEST_F(PdrRepository, ThePartSizeOfTheTerminusBoundsEveryRecord) {
    open_terminus(std::string(kRaw) + ", \"pdr_part_size\": 20");
    EXPECT_EQ(get(1),
              "02 00 00 00 14 00 00 00 00 14 00 01 00 00 00 01 08 01 02 32 00 "
              "01 02 03 04 05" +
                  zeros(5));
    EXPECT_EQ(get(4).substr(0, 32), "00 00 00 00 00 00 00 00 05 0c 00");
    EXPECT_EQ(get(1, 0, 1, 5), "02 00 00 00 05 00 00 00 00 05 00 01 00 00 00 01");
}

TEST_F(PdrRepository, WrongHandlesFlagsAndNumbersAreRefused) {
    open_terminus(kRaw);
    EXPECT_EQ(get(5), "00 02 51 82");
    EXPECT_EQ(get(0xFFFFFFFF), "00 02 51 82");
    EXPECT_EQ(get(1, 0, 2), "00 02 51 81");
    EXPECT_EQ(get(1, 0, 1, 0), "00 02 51 02");
    EXPECT_EQ(get(1, 0, 0, 128, 513), "00 02 51 80");
    EXPECT_EQ(get(1, 60, 0, 128, 513), "00 02 51 80");  // a part of the next record
    EXPECT_EQ(get(1, 0xFFFFFFFF, 0, 128, 513), "00 02 51 80");
    EXPECT_EQ(get(2, 59, 0), "00 02 51 80");
    EXPECT_EQ(get(1, 25, 0, 128, 512), "00 02 51 83");
    EXPECT_EQ(pldm("80 02 51 01 00 00 00"), "00 02 51 03");
}

TEST_F(PdrRepository, InfoAndSignatureCoverAllRecords) {
    open_terminus(kRaw);
    EXPECT_EQ(pldm("80 02 50"),
              "00 02 50 00 00" + zeros(26) + " 04 00 00 00 f4 01 00 00 2c 01 00 00 00");
    open_terminus(R"("pdrs": [
        {"type": 8, "hex": "0102030405", "length": 60, "change_number": 513},
        {"type": 2, "length": 300}])");
    EXPECT_EQ(pldm("80 02 53"), "00 02 53 00 14 a7 53 58");
}

TEST_F(PdrRepository, AnEmptyRepositoryHasNoRecords) {
    open_terminus("\"tid\": 1");
    EXPECT_EQ(pldm("80 02 50"), "00 02 50 00 00" + zeros(39));
    EXPECT_EQ(get(0), "00 02 51 82");
    EXPECT_EQ(pldm("80 02 53"), "00 02 53 00 00 00 00 00");
}

// ---- The board file ----

std::string sensor_refusal(const std::string& keys) {
    return refusal_of(
        terminus_with("\"sensors\": [{\"kind\": \"numeric\", \"id\": 1, \"data_size\": 1,\n"
                      "\"waveform\": {\"shape\": \"constant\", \"value\": 1},\n" +
                      keys + "}]"));
}

TEST(PdrBoardFile, NumericSensorErrors) {
    const std::string at = "devices[0].sensors[0].";
    EXPECT_EQ(sensor_refusal(R"("entity": {"instance": 1})"),
              "14: " + at + "entity.type: is missing");
    EXPECT_EQ(sensor_refusal(R"("entity": {"type": 65536})"),
              "14: " + at + "entity.type: must be a whole number from 0 to 65535");
    EXPECT_EQ(sensor_refusal(R"("base_unit": 256)"),
              "14: " + at + "base_unit: must be a whole number from 0 to 255");
    EXPECT_EQ(sensor_refusal(R"("unit_modifier": 31)"),
              "14: " + at + "unit_modifier: must be a whole number from -30 to 30");
    EXPECT_EQ(sensor_refusal(R"("hysteresis": -1)"),
              "14: " + at + "hysteresis: does not fit the sensor's data_size and resolution");
    EXPECT_EQ(sensor_refusal(R"("hysteresis": 256)"),
              "14: " + at + "hysteresis: does not fit the sensor's data_size and resolution");
    EXPECT_EQ(sensor_refusal(R"("unit_modifier": 30, "offset": 1, "resolution": 1e-16)"),
              "14: " + at + "resolution: does not fit a real32")
        << "1e-46 in the record's own unit";
    EXPECT_EQ(sensor_refusal(R"("resolution": 1e39)"),
              "14: " + at + "resolution: does not fit a real32");
    EXPECT_EQ(sensor_refusal(R"("unit_modifier": -30, "resolution": 1e9)"),
              "14: " + at + "resolution: does not fit a real32")
        << "1e39 in the record's own unit";
    EXPECT_EQ(sensor_refusal(R"("normal": {"max": 1e300})"),
              "14: " + at + "normal: does not fit the sensor's range_format");
    EXPECT_EQ(sensor_refusal(R"("offset": 2)"),
              "13: " + at + "waveform: does not fit the sensor's data_size and resolution");
    EXPECT_EQ(sensor_refusal(R"("range_format": "real64")"),
              "14: " + at +
                  "range_format: must be one of uint8, sint8, uint16, sint16, uint32, sint32, "
                  "real32");
    EXPECT_EQ(sensor_refusal("\"range_format\": \"sint8\",\n\"normal\": {\"max\": 128}"),
              "15: " + at + "normal: does not fit the sensor's range_format");
    EXPECT_EQ(
        sensor_refusal("\"range_format\": \"sint8\",\n\"thresholds\": {\"upper_fatal\": 200}"),
        "15: " + at + "thresholds: does not fit the sensor's range_format");
    EXPECT_EQ(sensor_refusal(R"("normal": {"low": 1})"), "14: " + at + "normal.low: no such key");
    EXPECT_EQ(sensor_refusal(R"("pdr": 1)"), "14: " + at + "pdr: must be true or false");
}

TEST(PdrBoardFile, RecordErrors) {
    const std::string at = "devices[0].pdrs[0].";
    auto refusal = [](const std::string& keys) {
        return refusal_of(terminus_with("\"pdrs\": [{" + keys + "}]"));
    };
    EXPECT_EQ(refusal("\"hex\": \"00\""), "12: " + at + "type: is missing");
    EXPECT_EQ(refusal("\"type\": 256"), "12: " + at + "type: must be a whole number from 0 to 255");
    EXPECT_EQ(refusal("\"type\": 1,\n\"hex\": \"0\""),
              "13: " + at + "hex: must be pairs of hex digits without separators");
    EXPECT_EQ(refusal("\"type\": 1, \"hex\": \"0000\",\n\"length\": 11"),
              "13: " + at + "length: must be a whole number from 12 to 65545");
    EXPECT_EQ(refusal("\"type\": 1,\n\"part_size\": 65536"),
              "13: " + at + "part_size: must be a whole number from 0 to 65535");
    EXPECT_EQ(refusal("\"type\": 1,\n\"handle\": 1"), "13: " + at + "handle: no such key");
}

TEST(PdrBoardFile, NamesThatNoRecordCanHold) {
    EXPECT_EQ(refusal_of(terminus_with("\"auxiliary_names\": true, \"sensors\": [{\"kind\": "
                                       "\"numeric\", \"id\": 1, \"name\": \"\u00e9\", "
                                       "\"waveform\": {\"shape\": \"constant\", \"value\": 1}}]")),
              "12: devices[0].auxiliary_names: needs sensor names in printable ASCII");
}

}  // namespace
