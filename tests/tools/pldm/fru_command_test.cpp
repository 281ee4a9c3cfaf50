// SPDX-License-Identifier: Apache-2.0
// Tests of what the tool makes of FRU record tables, healthy and hostile.
#include "tests/tools/tool_runner.h"

namespace {

using tool::Json;
using tool_test::contains;
using tool_test::expect_error;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::parse_json;
using tool_test::replay_board;
using tool_test::run_on;

const char* const kRecords = R"("records": [
    {"set": 1, "fields": [
      {"type": "manufacturer", "text": "Example Networks"},
      {"type": "part_number", "text": "EN2-1000-04"},
      {"type": "manufacture_date", "hex": "3c00000000091e0e1203e80700"},
      {"type": "version", "text": "A4"},
      {"type": "vendor_iana", "hex": "d97e0000"},
      {"type": 9, "hex": "1b5b324a"},
      {"type": 40, "text": "?"}]},
    {"set": 2, "type": 254, "encoding": 5, "fields": [
      {"type": 1, "hex": "01000000"},
      {"type": 2, "hex": "004200e900340000"}]}])";

/// Runs a command on a terminus with a FRU table.
Outcome run_on_table(const std::string& table_keys, std::vector<std::string> arguments) {
    return run_on(R"({"name": "fru", "buses": [{"bus": 1}], "devices": [
        {"name": "nic0", "type": "pldm", "bus": 1, "address": "0x40", "fru": {)" +
                      table_keys + "}}]}",
                  std::move(arguments));
}

const char* const kTableText =
    "SET  RECORD   FIELD             VALUE\n"
    "  1  General  Manufacturer      Example Networks\n"
    "  1  General  Part Number       EN2-1000-04\n"
    "  1  General  Manufacture Date  2024-03-18 14:30:09 +01:00\n"
    "  1  General  Version           A4\n"
    "  1  General  Vendor IANA       32473\n"
    "  1  General  SKU               0x1b5b324a\n"
    "  1  General  field 40          ?\n"
    "  2  OEM      Vendor IANA       1\n"
    "  2  OEM      field 2           B\u00e94\\x00\n";

TEST(Fru, ShowsTheFieldsOfAllRecordsReadably) {
    const Outcome fru = run_on_table(kRecords, {"pldm", "fru", "nic0"});
    EXPECT_EQ(fru.status, 0);
    EXPECT_EQ(fru.err, "");
    EXPECT_EQ(fru.out, kTableText);
}

TEST(Fru, IsTheSameInPartsAndInAnswersOfOneSize) {
    const std::string parts = std::string(kRecords) + R"(, "part_size": 54)";
    EXPECT_EQ(run_on_table(parts, {"pldm", "fru", "nic0"}).out, kTableText);
    const Outcome fixed =
        run_on_table(parts + R"(, "fixed_size": true)", {"pldm", "fru", "nic0", "--fixed"});
    EXPECT_EQ(fixed.err, "");
    EXPECT_EQ(fixed.out, kTableText);
}

TEST(Fru, GivesProgramsTheFieldsOfTheStandard) {
    const Json document =
        one_document(run_on_table(kRecords, {"pldm", "fru", "nic0", "--json"}).out);
    EXPECT_EQ(document["endpoint"], "nic0");
    EXPECT_EQ(document["fru_data_major_version"], 1);
    EXPECT_EQ(document["number_of_records"], 2);
    const Json& first = document["fru_records"][0];
    EXPECT_EQ(first["fru_record_set_identifier"], 1);
    EXPECT_EQ(first["fru_record_type"], 1);
    EXPECT_EQ(first["number_of_fru_fields"], 7);
    EXPECT_EQ(first["encoding_type_for_fru_fields"], 1);
    EXPECT_EQ(first["fru_fields"][3], parse_json(R"({"fru_field_type": 10, "name": "Version",
        "fru_field_length": 2, "fru_field_value": "4134", "text": "A4"})"));
}

TEST(Fru, OfATerminusWithoutATableIsRefusedByTheDevice) {
    const std::string board = R"({"name": "fru", "buses": [{"bus": 1}], "devices": [
        {"name": "nic0", "type": "pldm", "bus": 1, "address": "0x40"}]})";
    expect_error(run_on(board, {"pldm", "fru", "nic0"}), 1,
                 "sideband-sim: pldm fru: nic0: GetFRURecordTableMetadata failed: completion code "
                 "0x20 (ERROR_INVALID_PLDM_TYPE)");
}

TEST(HostileFru, ALengthOfZeroOrOfFourGigabytesIsRefused) {
    for (const char* length : {"0", "4294967295", "1048577"}) {
        const Outcome fru = run_on_table(std::string(kRecords) + R"(, "claimed_length": )" + length,
                                         {"pldm", "fru", "nic0"});
        expect_error(fru, 1,
                     std::string("sideband-sim: pldm fru: nic0: GetFRURecordTable failed: the "
                                 "table is said to have ") +
                         length + " bytes");
    }
}

TEST(HostileFru, ALengthThatIsNotTheTablesShowsWhatIsThere) {
    const Outcome fewer =
        run_on_table(std::string(kRecords) + R"(, "claimed_length": 90)", {"pldm", "fru", "nic0"});
    EXPECT_EQ(fewer.status, 1);
    EXPECT_TRUE(contains(fewer.out, "Example Networks")) << fewer.out << fewer.err;
    EXPECT_TRUE(contains(fewer.err, "no record in the last ")) << fewer.err;
    const Outcome more = run_on_table(std::string(kRecords) + R"(, "claimed_length": 9000)",
                                      {"pldm", "fru", "nic0"});
    expect_error(more, 1,
                 "sideband-sim: pldm fru: nic0: GetFRURecordTable failed: the answer does not fit "
                 "the request");
}

/// A replaying device with a table of the given bytes.
Outcome run_on_bytes(const std::string& table, const std::string& length) {
    const Json exchanges = Json::array({{{"message_type", 1},
                                         {"request", "800401"},
                                         {"response",
                                          "000401000100"
                                          "00000000" +
                                              length +
                                              "0100"
                                              "0100"
                                              "00000000"}},
                                        {{"message_type", 1},
                                         {"request", "8004020000000001"},
                                         {"response", "000402000000000005" + table}}});
    return run_on(replay_board(exchanges), {"pldm", "fru", "rec0"});
}

TEST(HostileFru, AFieldThatRunsPastTheTableIsReported) {
    const Outcome fru = run_on_bytes("01000102010102ff", "08000000");
    expect_error(Outcome{fru.status, "", fru.err}, 1,
                 "sideband-sim: pldm fru: rec0: parsing the FRU record table failed: no record in "
                 "the last 8 of its 8 bytes");
}

TEST(HostileFru, ZerosBehindTheLastRecordAreNothing) {
    const Outcome fru = run_on_bytes("01000101010202414200000000000000", "10000000");
    EXPECT_EQ(fru.status, 0);
    EXPECT_EQ(fru.err, "");
    EXPECT_EQ(fru.out,
              "SET  RECORD   FIELD  VALUE\n"
              "  1  General  Model  AB\n");
    expect_error(run_on_bytes("0000000000000000", "08000000"), 1,
                 "sideband-sim: pldm fru: rec0: GetFRURecordTable failed: the table is empty");
}

TEST(HostileFru, ControlCharactersInATextAreShownInHex) {
    const std::string table = R"("records": [{"set": 1, "fields": [
        {"type": "model", "hex": "4556494c1b5b33316d0a6f6b"},
        {"type": "version", "hex": "419b42"}]},
        {"set": 2, "encoding": 2, "fields": [{"type": "model", "hex": "c3a9c29b41"}]}])";
    const Outcome fru = run_on_table(table, {"pldm", "fru", "nic0"});
    EXPECT_EQ(fru.status, 0) << fru.err;
    EXPECT_EQ(fru.out,
              "SET  RECORD   FIELD    VALUE\n"
              "  1  General  Model    EVIL\\x1b[31m\\x0aok\n"
              "  1  General  Version  0x419b42\n"
              "  2  General  Model    \u00e9\\xc2\\x9bA\n");
    const Json document = one_document(run_on_table(table, {"pldm", "fru", "nic0", "--json"}).out);
    EXPECT_EQ(document["fru_records"][0]["fru_fields"][0]["text"], "EVIL\\x1b[31m\\x0aok");
}

TEST(HostileFru, ADateThatIsNoneIsShownInHex) {
    // The 13th month.
    const Outcome fru = run_on_bytes("0100010101060d0000000000000000010de80700", "14000000");
    EXPECT_EQ(fru.err, "");
    EXPECT_EQ(fru.status, 0);
    EXPECT_EQ(fru.out,
              "SET  RECORD   FIELD             VALUE\n"
              "  1  General  Manufacture Date  0x0000000000000000010de80700\n");
}

}  // namespace
